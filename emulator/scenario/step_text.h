#pragma once

#include <string>

#include <google/protobuf/message.h>

namespace tarvo_emu {

// A scenario's message on one line as the transcript shows it, with file modes in octal as a
// scenario writes them: shortened for reading, or whole, as text that parses back.
std::string ShortStepText(const google::protobuf::Message& message);
std::string FullStepText(const google::protobuf::Message& message);

}  // namespace tarvo_emu
