#include "thread.h"

#include <signal.h>

#include <log/log.h>

Thread::Thread(Runnable* runnable) : runnable_(runnable) {}

Thread::~Thread() { Stop(); }

void Thread::Run() {
    if (runnable_ != nullptr) runnable_->Run();
}

int Thread::Start() {
    // The new thread inherits the mask in force while it is created.
    sigset_t blocked, previous;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    sigaddset(&blocked, SIGUSR2);
    sigaddset(&blocked, SIGWINCH);
    pthread_sigmask(SIG_BLOCK, &blocked, &previous);
    const int result = pthread_create(&id_, nullptr, ThreadProc, this);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    if (result == 0) started_ = 1;
    return result;
}

int Thread::Stop() {
    if (started_ == 0) {
        ALOGI("Thread is not started");
        return -1;
    }
    pthread_join(id_, nullptr);
    started_ = 0;
    return 0;
}

void* Thread::ThreadProc(void* arg) {
    if (arg == nullptr) return nullptr;
    static_cast<Thread*>(arg)->Run();
    return nullptr;
}
