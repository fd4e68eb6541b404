#pragma once

#include <string>

#include "scenario/step_player.h"

namespace tarvo_emu {

// Steps on the log lines of every process in the sandbox.

// expect_log: takes the earliest untaken line that matches, or counts such lines.
std::string PlayExpectLog(StepPlayer& player, const StepCall& call);
// expect_no_log: no such line was printed so far.
std::string PlayExpectNoLog(StepPlayer& player, const StepCall& call);

}  // namespace tarvo_emu
