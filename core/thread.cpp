#include "thread.h"

#include <log/log.h>

#include "server_signals.h"

namespace tarvo {

Thread::Thread(Runnable* runnable) : runnable_(runnable) {}

Thread::~Thread() { Stop(); }

void Thread::Run() {
    if (runnable_ != nullptr) runnable_->Run();
}

int Thread::Start() {
    int result;
    {
        // The new thread inherits the mask in force while it is created.
        ScopedServerSignalBlock block;
        result = pthread_create(&id_, nullptr, ThreadProc, this);
    }
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

}  // namespace tarvo
