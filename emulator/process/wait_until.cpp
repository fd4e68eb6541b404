#include "process/wait_until.h"

#include <thread>

namespace tarvo_emu {

bool WaitUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout,
               std::chrono::milliseconds interval) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(interval);
    }
    return true;
}

}  // namespace tarvo_emu
