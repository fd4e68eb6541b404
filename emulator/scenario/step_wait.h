#pragma once

#include <chrono>
#include <cstdint>

#include "device/device_facts.h"

namespace tarvo_emu {

// How long an expectation waits when its step gives no timeout_ms. The recorder gives a step a
// wait of its own only when the default would not see it again.
constexpr std::chrono::milliseconds kDefaultStepTimeout = kDefaultWait;

// A step's wait: its own `timeout_ms` when it has one, the default otherwise.
inline std::chrono::milliseconds StepTimeout(bool has_timeout, uint32_t timeout_ms) {
    return has_timeout ? std::chrono::milliseconds(timeout_ms) : kDefaultStepTimeout;
}

}  // namespace tarvo_emu
