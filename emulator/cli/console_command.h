#pragma once

#include <CLI/CLI.hpp>

#include "cli/console.h"

namespace tarvo_emu {

// Declares `tarvo-emu console [FILE] [--record OUT] [--pcapng OUT]` on `app`, filling `options`;
// RunConsole runs it.
CLI::App* AddConsoleCommand(CLI::App& app, ConsoleOptions* options);

}  // namespace tarvo_emu
