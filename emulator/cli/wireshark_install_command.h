#pragma once

#include <CLI/CLI.hpp>

namespace tarvo_emu {

// What `tarvo-emu wireshark-install` was given.
struct WiresharkInstallOptions {
    bool system = false;  // the system's folders instead of the user's
};

// Declares `tarvo-emu wireshark-install [--system]` on `app`, filling `options`.
CLI::App* AddWiresharkInstallCommand(CLI::App& app, WiresharkInstallOptions* options);

// Writes the Wireshark profile and the extcap launcher that runs this very `tarvo-emu`, and says
// what it wrote. Returns the exit status.
int RunWiresharkInstallCommand(const WiresharkInstallOptions& options);

}  // namespace tarvo_emu
