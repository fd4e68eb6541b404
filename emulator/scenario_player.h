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
// names the step (its file and line when `origin` is given, its index from 0 and text form), why
// it failed and what came nearest to what it expected. `transcript` shows long payloads
// shortened; `full_transcript`, when given, gets the whole transcript.
android::base::Result<void> PlayScenario(const tarvo_scenario::Scenario& scenario,
                                         std::ostream* transcript,
                                         const ScenarioOrigin* origin = nullptr,
                                         std::ostream* full_transcript = nullptr);

}  // namespace tarvo_emu
