#pragma once

#include <ostream>
#include <string>

#include "rig.h"
#include "scenario.pb.h"

namespace tarvo_emu {

// Default wait of expect and expect_log steps.
constexpr std::chrono::milliseconds kDefaultStepTimeout{5000};

bool LoadScenario(const std::string& path, tarvo_scenario::Scenario* scenario, std::string* error);

// Plays a scenario on a fresh rig. True when every expectation held; otherwise `failure` names
// the step (index from 0 and text form) and why it failed.
bool PlayScenario(const tarvo_scenario::Scenario& scenario, std::ostream* transcript,
                  std::string* failure);

}  // namespace tarvo_emu
