#include "scenario/control_steps.h"

#include <chrono>

#include <android-base/result.h>

using android::base::Result;

namespace tarvo_emu {

Result<void> PlaySleep(StepPlayer& player, const StepCall& call) {
    player.SleepUnlessCancelled(std::chrono::milliseconds(call.step.sleep_ms()));
    return {};
}

}  // namespace tarvo_emu
