#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "soak/soak_jobs.h"
#include "soak/soak_run.h"

namespace tarvo_emu {

struct SoakCommandOptions {
    SoakOptions soak;
    // Rigs at once; the number of cores unless given.
    size_t jobs = 1;
    // The seeds to play; without them `jobs` seeds from the options' seed.
    std::optional<SoakSeeds> seeds;
    // Where the JSON report goes; none when empty.
    std::string json;
    // Reports to add up instead of playing.
    std::vector<std::string> merge;
};

// Declares `tarvo-emu soak [--seed N | --seeds A-B] [--jobs N] [--duration SECONDS | --steps N]
// [--faults LIST] [--out FILE] [--shrink SECONDS] [--json FILE]` and `tarvo-emu soak --merge
// FILE... [--json FILE]` on `app`, filling `options`.
CLI::App* AddSoakCommand(CLI::App& app, SoakCommandOptions* options);

// Soaks the daemon: progress on standard error when it is a terminal, the summary on standard
// output. 0 for a clean run, 1 for a divergence or a rig that did not start. With --merge, adds
// the reports up into --json, or onto standard output; 1 when a report cannot be read.
int RunSoakCommand(const SoakCommandOptions& options);

}  // namespace tarvo_emu
