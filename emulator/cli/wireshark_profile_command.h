#pragma once

#include <string>

#include <CLI/CLI.hpp>

namespace tarvo_emu {

// Declares `tarvo-emu wireshark-profile DIR` on `app`, filling `dir`.
CLI::App* AddWiresharkProfileCommand(CLI::App& app, std::string* dir);

// Writes the profile into `dir`. Returns the exit status.
int RunWiresharkProfileCommand(const std::string& dir);

}  // namespace tarvo_emu
