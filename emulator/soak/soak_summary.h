#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tarvo_emu {

// The most that the daemon of any seed held at once, as /proc showed it at the health checks.
struct SoakPeak {
    size_t descriptors = 0;
    size_t threads = 0;
    long memory_kib = 0;
};

// A divergence of one seed and the scenario written for it (empty when none could be written).
struct SeedDivergence {
    uint64_t seed = 0;
    std::string message;
    std::string scenario;
};

// What one or more soak runs did, as `--json` writes it and `--merge` adds it up.
struct SoakSummary {
    std::vector<uint64_t> seeds;
    size_t stimuli = 0;
    size_t checks = 0;
    // By kind: "eof", "read", "write", "hangup", "offline", "restart".
    std::map<std::string, size_t> faults;
    // The unexpected traffic by kind: "repeated_token", "truncated", ...
    std::map<std::string, size_t> traffic;
    std::vector<SeedDivergence> divergences;
    // The wall time of the run; merged, the sum of the runs' times.
    double seconds = 0;
    SoakPeak peak;

    double checks_per_second() const { return seconds > 0 ? checks / seconds : 0; }
};

// Adds `summaries` up: counts summed, seeds and divergences one after the other, the peaks'
// highest. The seconds add up, so that the merged checks per second is that of a run on
// average, whether the shards ran side by side or one after the other.
SoakSummary MergeSoakSummaries(const std::vector<SoakSummary>& summaries);

}  // namespace tarvo_emu
