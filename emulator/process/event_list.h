#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

#include <android-base/thread_annotations.h>

namespace tarvo_emu {

// Events in arrival order, each taken at most once. A waiter takes the earliest event not yet
// taken that matches; events nobody takes stay for later waiters and for the transcript.
template <typename T>
class EventList {
  public:
    using Predicate = std::function<bool(const T&)>;

    void Add(T event) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            events_.push_back({std::move(event), false, std::chrono::steady_clock::now()});
        }
        added_.notify_all();
    }

    // Events before index `first` are not looked at.
    std::optional<T> Take(const Predicate& matches, std::chrono::milliseconds timeout,
                          size_t first = 0) {
        std::unique_lock<std::mutex> lock(mutex_);
        Recorded* found = nullptr;
        const auto find = [&] {
            for (size_t i = first; i < events_.size(); ++i) {
                Recorded& entry = events_[i];
                if (entry.taken || !matches(entry.event)) continue;
                found = &entry;
                return true;
            }
            return false;
        };
        if (!added_.wait_for(lock, timeout, find)) return std::nullopt;
        found->taken = true;
        return found->event;
    }

    // Waits until at least `count` events from index `first` on match, taken or not.
    bool WaitForCount(const Predicate& matches, size_t count, std::chrono::milliseconds timeout,
                      size_t first = 0) {
        std::unique_lock<std::mutex> lock(mutex_);
        return added_.wait_for(lock, timeout, [&] { return CountLocked(matches, first) >= count; });
    }
    // Waits for a matching event, taken or not, without taking it.
    bool Wait(const Predicate& matches, std::chrono::milliseconds timeout) {
        return WaitForCount(matches, 1, timeout);
    }

    // Takes every matching event from index `first` on, taken before or not; returns how many.
    size_t TakeAll(const Predicate& matches, size_t first = 0) {
        std::lock_guard<std::mutex> lock(mutex_);
        size_t count = 0;
        for (size_t i = first; i < events_.size(); ++i) {
            if (!matches(events_[i].event)) continue;
            events_[i].taken = true;
            ++count;
        }
        return count;
    }

    // Waits for an event that arrives from now on; nothing when none came within `timeout`.
    std::optional<T> NextNew(std::chrono::milliseconds timeout) {
        std::unique_lock<std::mutex> lock(mutex_);
        const size_t start = events_.size();
        if (!added_.wait_for(lock, timeout, [&] { return events_.size() > start; })) {
            return std::nullopt;
        }
        return events_[start].event;
    }

    size_t Count(const Predicate& matches, size_t first = 0) const {
        std::lock_guard<std::mutex> lock(mutex_);
        return CountLocked(matches, first);
    }

    size_t size() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return events_.size();
    }

    // The events from index `first` on that nobody took, in order.
    std::vector<T> Untaken(size_t first = 0) const {
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<T> untaken;
        for (size_t i = first; i < events_.size(); ++i) {
            if (!events_[i].taken) untaken.push_back(events_[i].event);
        }
        return untaken;
    }

    std::vector<T> All() const {
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<T> all;
        for (const Recorded& entry : events_) all.push_back(entry.event);
        return all;
    }

    struct Recorded {
        T event;
        bool taken;
        std::chrono::steady_clock::time_point arrived;
    };
    // Every event in arrival order, with whether a waiter took it and when it came.
    std::vector<Recorded> Snapshot() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return events_;
    }

  private:
    size_t CountLocked(const Predicate& matches, size_t first) const REQUIRES(mutex_) {
        size_t count = 0;
        for (size_t i = first; i < events_.size(); ++i) count += matches(events_[i].event) ? 1 : 0;
        return count;
    }

    mutable std::mutex mutex_;
    std::condition_variable added_;
    std::vector<Recorded> events_ GUARDED_BY(mutex_);
};

}  // namespace tarvo_emu
