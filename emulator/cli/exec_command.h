#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "rig/rig.h"

namespace tarvo_emu {

// What `tarvo-emu exec` was given.
struct ExecOptions {
    RigOptions rig;
    RigHooks hooks;
    std::vector<std::string> command;
};

// Declares `tarvo-emu exec [OPTION...] -- COMMAND...` on `app`, filling `options`.
CLI::App* AddExecCommand(CLI::App& app, ExecOptions* options);

// Runs the command in the sandbox. Its exit status, or 1 when the rig failed.
int RunExecCommand(const ExecOptions& options);

}  // namespace tarvo_emu
