#pragma once

#include <string>

#include <CLI/CLI.hpp>

namespace tarvo_emu {

// What `tarvo-emu run` was given.
struct RunOptions {
    std::string scenario_file;
    std::string record;      // none when empty
    std::string transcript;  // none when empty
    std::string pcapng;      // none when empty
    bool quiet = false;
};

// Declares `tarvo-emu run FILE [--quiet] [--record OUT] [--pcapng OUT] [--transcript OUT]` on
// `app`, filling `options`.
CLI::App* AddRunCommand(CLI::App& app, RunOptions* options);

// Plays the scenario against the daemon, printing the transcript and the verdict. The exit
// status.
int RunRunCommand(const RunOptions& options);

}  // namespace tarvo_emu
