#pragma once

// Steps as the console reads them typed, completes them, and explains them.

#include <string>
#include <vector>

#include <android-base/result.h>

#include "scenario/scenario.pb.h"
#include "scenario/step_check.h"

namespace tarvo_emu {

// How many braces (or angle brackets) `text` leaves open, strings and comments left out.
int OpenBraces(const std::string& text);

// What may stand at the end of `text` (a step typed so far) and begins with `word`: the field
// names of the message being written, each with what follows it (`name: ` for a value,
// `name { ` for a message), or, after an enum or bool field's colon, its values; on top, also the
// console's own commands.
std::vector<std::string> CompletionsOf(const std::string& text, const std::string& word);

// A typed step, or `step { ... }` lines pasted from a scenario; none for a comment alone. A
// misspelt step kind gets the nearest kinds in the error. Each step is checked as a scenario's
// steps are when loaded, `check` knowing the steps played before.
android::base::Result<std::vector<tarvo_scenario::Step>> ParseSteps(const std::string& text,
                                                                    StepCheck* check);

// The example that the console's `help` shows for a step kind (a field of the step's oneof);
// empty for none.
std::string StepExample(const std::string& kind);

// `help STEP`: the step kind's type, its fields (for a kind that is a message) and its example;
// for a name that is no step kind, the nearest step kinds.
std::string StepHelp(const std::string& kind);

// Every step kind with an example, the fields any step may have, and the console's commands.
std::string ConsoleHelp();

}  // namespace tarvo_emu
