#pragma once

#include <CLI/CLI.hpp>

#include "soak/soak_run.h"

namespace tarvo_emu {

// Declares `tarvo-emu soak [--seed N] [--duration SECONDS | --steps N] [--faults LIST]
// [--out FILE] [--shrink SECONDS]` on `app`, filling `options`.
CLI::App* AddSoakCommand(CLI::App& app, SoakOptions* options);

// Soaks the daemon: progress on standard error when it is a terminal, the summary on standard
// output. 0 for a clean run, 1 for a divergence or a rig that did not start.
int RunSoakCommand(const SoakOptions& options);

}  // namespace tarvo_emu
