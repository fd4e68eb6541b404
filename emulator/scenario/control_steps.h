#pragma once

#include <android-base/result.h>

#include "scenario/step_player.h"

namespace tarvo_emu {

// Steps on the playing itself: a pause, and steps played over again.

// sleep_ms: waits, looking at nothing.
android::base::Result<void> PlaySleep(StepPlayer& player, const StepCall& call);
// repeat: its steps, in order, so many times over; a failure names the round and the step.
android::base::Result<void> PlayRepeat(StepPlayer& player, const StepCall& call);

}  // namespace tarvo_emu
