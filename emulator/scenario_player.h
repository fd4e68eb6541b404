#pragma once

#include <ostream>
#include <string>

#include <android-base/result.h>

#include "rig.h"
#include "scenario.pb.h"
#include "scenario_loader.h"

namespace tarvo_emu {

// Default wait of expect and expect_log steps.
constexpr std::chrono::milliseconds kDefaultStepTimeout{5000};

// Plays a scenario on a fresh rig. Succeeds when every expectation held; otherwise the error
// names the step (index from 0 and text form) and why it failed.
android::base::Result<void> PlayScenario(const tarvo_scenario::Scenario& scenario,
                                         std::ostream* transcript);

}  // namespace tarvo_emu
