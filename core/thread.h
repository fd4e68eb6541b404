#pragma once

#include <pthread.h>

#include <cstdint>

namespace tarvo {

// A unit of work that a Thread runs on its own POSIX thread.
class Runnable {
  public:
    virtual ~Runnable() = default;
    virtual void Run() = 0;
};

// Runs one Runnable (not owned) on a POSIX thread. Threads started here block SIGUSR1, SIGUSR2 and
// SIGWINCH, so the daemon's signal handler always runs on the otherwise idle main thread.
class Thread {
  public:
    explicit Thread(Runnable* runnable);
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;
    // Joins a started thread.
    virtual ~Thread();

    virtual void Run();

    // Returns pthread_create's result: 0, or a positive error number.
    int Start();
    // Waits for the thread to end; -1 when it was not started.
    int Stop();

    static void* ThreadProc(void* arg);

  private:
    pthread_t id_{};
    Runnable* runnable_;
    uint32_t started_ = 0;
};

}  // namespace tarvo
