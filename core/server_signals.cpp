#include "server_signals.h"

#include <pthread.h>

#include <initializer_list>

namespace tarvo {

sigset_t server_signals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    sigaddset(&set, SIGUSR2);
    sigaddset(&set, SIGWINCH);
    return set;
}

void install_server_signal_handler(void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_mask = server_signals();
    // As signal() installs a handler: interrupted system calls are restarted.
    action.sa_flags = SA_RESTART;
    for (int signal : {SIGUSR1, SIGUSR2, SIGWINCH}) sigaction(signal, &action, nullptr);
}

ScopedServerSignalBlock::ScopedServerSignalBlock() {
    const sigset_t blocked = server_signals();
    pthread_sigmask(SIG_BLOCK, &blocked, &previous_);
}

ScopedServerSignalBlock::~ScopedServerSignalBlock() {
    pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
}

}  // namespace tarvo
