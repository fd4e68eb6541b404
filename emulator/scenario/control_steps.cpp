#include "scenario/control_steps.h"

#include <chrono>
#include <thread>

#include <android-base/stringprintf.h>

using android::base::StringPrintf;

namespace tarvo_emu {

std::string PlaySleep(StepPlayer&, const StepCall& call) {
    std::this_thread::sleep_for(std::chrono::milliseconds(call.step.sleep_ms()));
    return {};
}

std::string PlayRepeat(StepPlayer& player, const StepCall& call) {
    const tarvo_scenario::Repeat& repeat = call.step.repeat();
    for (uint32_t round = 1; round <= repeat.times(); ++round) {
        std::string why =
            player.PlayAll(repeat.step(), call.name + StringPrintf(", round %u, ", round),
                           call.place != nullptr ? &call.place->steps : nullptr);
        if (!why.empty()) return why;
    }
    return {};
}

}  // namespace tarvo_emu
