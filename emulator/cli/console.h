#pragma once

#include <string>

namespace tarvo_emu {

struct ConsoleOptions {
    // A scenario whose setup the rig starts with and whose steps are played first; none when empty.
    std::string file;
    // Where the session is written as a scenario when it ends; nowhere when empty.
    std::string record;
    // Where the session is written as pcapng for Wireshark; nowhere when empty.
    std::string pcapng;
};

// `tarvo-emu console`: a live rig on which each step typed (scenario text format, one step per
// line, a line with an open brace continuing on the next) is played at once while the
// transcript streams. On a terminal with line editing, history and completion; otherwise the
// lines of standard input are read as steps, so that the console can be scripted. Ends at the
// end of input or on `quit`; the exit status is 0 when every step held, 1 otherwise.
int RunConsole(const ConsoleOptions& options);

}  // namespace tarvo_emu
