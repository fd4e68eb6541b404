#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "soak/soak_traffic.h"

namespace tarvo_emu {

struct SoakOptions {
    uint64_t seed = 1;
    // How long to play; when neither is given, one minute.
    std::optional<std::chrono::seconds> duration;
    std::optional<uint64_t> steps;
    std::set<Fault> faults;
    // Where the scenario of a divergence goes.
    std::string out = "soak-failure.textproto";
    // How long shrinking may take.
    std::chrono::seconds shrink_budget{600};
};

// Plays random traffic against the daemon, each answer, log line, file and property checked
// against the model, until the time or the number of stimuli is reached. On the first divergence
// the run is shrunk and written to `out` as a scenario. Progress goes to standard error when it
// is a terminal, the summary to standard output. 0 for a clean run, 1 for a divergence or a rig
// that did not start.
int RunSoak(const SoakOptions& options);

}  // namespace tarvo_emu
