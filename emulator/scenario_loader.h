#pragma once

#include <string>

#include <android-base/result.h>

#include "scenario.pb.h"

namespace tarvo_emu {

// A scenario in protobuf text format (schema emulator/scenario.proto). The error names `source`
// (the file, for the reader) and lists every parse error with its line and column.
android::base::Result<tarvo_scenario::Scenario> ParseScenario(const std::string& text,
                                                              const std::string& source);

// The scenario in the file at `path`.
android::base::Result<tarvo_scenario::Scenario> LoadScenario(const std::string& path);

}  // namespace tarvo_emu
