#pragma once

#include <android-base/result.h>

#include "scenario/step_player.h"

namespace tarvo_emu {

// Steps on the playing itself: a pause (a repeat is the player's own, see StepPlayer).

// sleep_ms: waits, looking at nothing.
android::base::Result<void> PlaySleep(StepPlayer& player, const StepCall& call);

}  // namespace tarvo_emu
