#pragma once

#include <CLI/CLI.hpp>

#include "soak/soak_run.h"

namespace tarvo_emu {

// Declares `tarvo-emu soak [--seed N] [--duration SECONDS | --steps N] [--faults LIST]
// [--out FILE] [--shrink SECONDS]` on `app`, filling `options`; `tarvo_emu::RunSoak` runs it.
CLI::App* AddSoakCommand(CLI::App& app, SoakOptions* options);

}  // namespace tarvo_emu
