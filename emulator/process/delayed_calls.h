#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

#include <android-base/thread_annotations.h>

namespace tarvo_emu {

// Runs calls at their due time, in that order, on a thread of its own: the emulated modem's and
// RIL's answers, each after its delay.
class DelayedCalls {
  public:
    DelayedCalls();
    ~DelayedCalls();
    DelayedCalls(const DelayedCalls&) = delete;
    DelayedCalls& operator=(const DelayedCalls&) = delete;

    void After(std::chrono::milliseconds delay, std::function<void()> call);
    // Drops the calls still pending; none runs once this returns, and later ones are ignored.
    void Stop();

  private:
    void Loop();

    std::mutex mutex_;
    std::multimap<std::chrono::steady_clock::time_point, std::function<void()>> pending_
        GUARDED_BY(mutex_);
    std::condition_variable changed_;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace tarvo_emu
