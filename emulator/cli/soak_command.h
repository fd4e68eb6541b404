#pragma once

#include <string>
#include <vector>

namespace tarvo_emu {

// `tarvo-emu soak`: `args` are the command line after the command's name. Returns the exit
// status.
int RunSoakCommand(const std::vector<std::string>& args);

// The command's help, as `tarvo-emu soak --help` prints it.
extern const char kSoakHelp[];

}  // namespace tarvo_emu
