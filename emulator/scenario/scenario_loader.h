#pragma once

#include <string>
#include <vector>

#include <android-base/result.h>

#include "scenario/scenario.pb.h"

namespace tarvo_emu {

// Where a step stands in its scenario file: its line, from 1, and the places of a repeat's steps.
struct StepPlace {
    int line = 0;
    std::vector<StepPlace> steps;
};

// Where a scenario came from, so that a failure names the file and line of its step.
struct ScenarioOrigin {
    std::string path;
    std::vector<StepPlace> steps;
};

// A scenario in protobuf text format (schema emulator/scenario/scenario.proto). The error names
// `source` (the file, for the reader) and lists every parse error with its line and column, the
// step it is in (counted from 0) and, for a misspelt name, the nearest known names. When
// given, `origin` gets `source` and the place of every step.
android::base::Result<tarvo_scenario::Scenario> ParseScenario(const std::string& text,
                                                              const std::string& source,
                                                              ScenarioOrigin* origin = nullptr);

// For a text format parser's error `message` about an unknown field or enum value in a scenario
// or step, " Did you mean: NAME, NAME?" with the nearest known names; empty for other errors.
std::string NearestNamesHint(const std::string& message);

// The scenario in the file at `path`.
android::base::Result<tarvo_scenario::Scenario> LoadScenario(const std::string& path,
                                                             ScenarioOrigin* origin = nullptr);

}  // namespace tarvo_emu
