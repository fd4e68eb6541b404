#pragma once

#include <string>
#include <vector>

namespace tarvo_emu {

struct ConsoleOptions {
    // A scenario whose setup the rig starts with and whose steps are played first; none when empty.
    std::string file;
    // Where the session is written as a scenario when it ends; nowhere when empty.
    std::string record;
};

// `tarvo-emu console`: a live rig on which each step typed (scenario text format, one step per
// line, a line with an open brace continuing on the next) is played at once while the
// transcript streams. On a terminal with line editing, history and completion; otherwise the
// lines of standard input are read as steps, so that the console can be scripted. Ends at the
// end of input or on `quit`; the exit status is 0 when every step held, 1 otherwise.
int RunConsole(const ConsoleOptions& options);

// The names that may stand at the end of `text` (a step typed so far) and begin with `word`:
// the field names of the message being written, or, after an enum or bool field's colon, its
// values; on top, also the console's own commands.
std::vector<std::string> CompletionsOf(const std::string& text, const std::string& word);

// Every step kind with an example, the fields any step may have, and the console's commands.
std::string ConsoleHelp();

// The example `help` shows for a step kind (a field of the step's oneof); empty for none.
std::string StepExample(const std::string& kind);

}  // namespace tarvo_emu
