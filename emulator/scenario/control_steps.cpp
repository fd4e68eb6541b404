#include "scenario/control_steps.h"

#include <chrono>

#include <fmt/format.h>

#include <android-base/result.h>

using android::base::Result;

namespace tarvo_emu {

Result<void> PlaySleep(StepPlayer& player, const StepCall& call) {
    player.SleepUnlessCancelled(std::chrono::milliseconds(call.step.sleep_ms()));
    return {};
}

Result<void> PlayRepeat(StepPlayer& player, const StepCall& call) {
    const tarvo_scenario::Repeat& repeat = call.step.repeat();
    for (uint32_t round = 1; round <= repeat.times(); ++round) {
        Result<void> played =
            player.PlayAll(repeat.step(), call.name + fmt::format(", round {}, ", round),
                           call.place != nullptr ? &call.place->steps : nullptr);
        if (!played.ok()) return played;
    }
    return {};
}

}  // namespace tarvo_emu
