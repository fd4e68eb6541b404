#pragma once

#include <android-base/result.h>

#include "scenario/step_player.h"

namespace tarvo_emu {

// Steps on what the daemon holds: its descriptors, threads and resident memory.

// mark: records the daemon's usage and the log lines so far under a name.
android::base::Result<void> PlayMark(StepPlayer& player, const StepCall& call);
// expect_usage: the daemon's usage compared with that at a mark, until it holds or the step's
// time is up.
android::base::Result<void> PlayExpectUsage(StepPlayer& player, const StepCall& call);

}  // namespace tarvo_emu
