#pragma once

#include <string>

namespace tarvo_emu {

// The example that the console's `help` shows for a step kind (a field of the step's oneof);
// empty for none.
std::string StepExample(const std::string& kind);

// `help STEP`: the step kind's type, its fields (for a kind that is a message) and its example;
// empty when `kind` is no step kind.
std::string StepHelp(const std::string& kind);

// Every step kind with an example, the fields any step may have, and the console's commands.
std::string ConsoleHelp();

}  // namespace tarvo_emu
