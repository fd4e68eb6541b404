#pragma once

#include <string>

#include <CLI/CLI.hpp>

namespace tarvo_emu {

// Declares `tarvo-emu wireshark-profile DIR` on `app`, filling `directory`.
CLI::App* AddWiresharkProfileCommand(CLI::App& app, std::string* directory);

// Writes the profile into `directory`. The exit status.
int RunWiresharkProfileCommand(const std::string& directory);

}  // namespace tarvo_emu
