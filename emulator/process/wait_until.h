#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace tarvo_emu {

// Checks `done` until it holds, every `interval`, and once more when `timeout` has passed;
// whether it held. For conditions that no event announces, such as a file that a process writes
// or what /proc shows of it; wait on an event where there is one.
inline bool WaitUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout,
                      std::chrono::milliseconds interval = std::chrono::milliseconds(10)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(interval);
    }
    return true;
}

}  // namespace tarvo_emu
