#include "process/delayed_calls.h"

namespace tarvo_emu {

DelayedCalls::DelayedCalls() : thread_([this] { Loop(); }) {}

DelayedCalls::~DelayedCalls() { Stop(); }

void DelayedCalls::After(std::chrono::milliseconds delay, std::function<void()> call) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (stopping_) return;
        pending_.emplace(std::chrono::steady_clock::now() + delay, std::move(call));
    }
    changed_.notify_all();
}

void DelayedCalls::Stop() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
        pending_.clear();
    }
    changed_.notify_all();
    if (thread_.joinable() && thread_.get_id() != std::this_thread::get_id()) thread_.join();
}

void DelayedCalls::Loop() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stopping_) {
        if (pending_.empty()) {
            changed_.wait(lock);
            continue;
        }
        const auto due = pending_.begin()->first;
        if (std::chrono::steady_clock::now() < due) {
            changed_.wait_until(lock, due);
            continue;
        }
        std::function<void()> call = std::move(pending_.begin()->second);
        pending_.erase(pending_.begin());
        lock.unlock();
        call();
        lock.lock();
    }
}

}  // namespace tarvo_emu
