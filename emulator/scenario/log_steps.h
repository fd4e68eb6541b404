#pragma once

#include <android-base/result.h>

#include "scenario/step_player.h"

namespace tarvo_emu {

// Steps on the log lines of every process in the sandbox.

// expect_log: takes the earliest untaken line that matches, or counts such lines.
android::base::Result<void> PlayExpectLog(StepPlayer& player, const StepCall& call);
// expect_no_log: no such line was printed so far.
android::base::Result<void> PlayExpectNoLog(StepPlayer& player, const StepCall& call);

}  // namespace tarvo_emu
