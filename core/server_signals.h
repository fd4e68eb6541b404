#pragma once

#include <signal.h>

namespace tarvo {

// The signals that the server acts on: SIGUSR1, SIGUSR2 and SIGWINCH. Their handler runs on the
// main thread; every other thread blocks them.
sigset_t server_signals();

// Installs `handler` for the three signals, in that order. While it runs, all three are blocked,
// so a second signal waits for the first to be handled instead of interrupting it.
void install_server_signal_handler(void (*handler)(int));

// Blocks the three signals on the calling thread while it lives; a thread created meanwhile
// inherits the mask. Signals that arrive in the meantime are delivered when it ends.
class ScopedServerSignalBlock {
  public:
    ScopedServerSignalBlock();
    ScopedServerSignalBlock(const ScopedServerSignalBlock&) = delete;
    ScopedServerSignalBlock& operator=(const ScopedServerSignalBlock&) = delete;
    ~ScopedServerSignalBlock();

  private:
    sigset_t previous_;
};

}  // namespace tarvo
