#pragma once

#include <string>
#include <vector>

namespace tarvo_emu {

// `tarvo-emu decode [FILE] [OPTION...]`: prints a capture (strace's output of the daemon, the
// rig's transcript, or plain hex) as the transcript shows a session, and writes it as a scenario
// or a pcapng file when asked. Needs no root: it runs nothing. Returns the exit status.
int RunDecode(const std::vector<std::string>& args);

}  // namespace tarvo_emu
