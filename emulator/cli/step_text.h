#pragma once

#include <string>
#include <vector>

#include <android-base/result.h>

#include "scenario/scenario.pb.h"

namespace tarvo_emu {

// How many braces (or angle brackets) `text` leaves open, strings and comments left out.
int OpenBraces(const std::string& text);

// The names that may stand at the end of `text` (a step typed so far) and begin with `word`:
// the field names of the message being written, or, after an enum or bool field's colon, its
// values; on top, also the console's own commands.
std::vector<std::string> CompletionsOf(const std::string& text, const std::string& word);

// A typed step, or `step { ... }` lines pasted from a scenario; none for a comment alone.
android::base::Result<std::vector<tarvo_scenario::Step>> ParseSteps(const std::string& text);

}  // namespace tarvo_emu
