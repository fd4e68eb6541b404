#pragma once

#include <string>

#include <google/protobuf/message.h>

#include "scenario/scenario.pb.h"

namespace tarvo_emu {

// A scenario's message on one line as the transcript shows it, with file modes in octal as a
// scenario writes them: shortened for reading, or whole, as text that parses back.
std::string ShortStepText(const google::protobuf::Message& message);
std::string FullStepText(const google::protobuf::Message& message);
// A scenario's setup (all but its steps) whole, one entry a line, as text that parses back.
std::string SetupText(const tarvo_scenario::Scenario& scenario);

}  // namespace tarvo_emu
