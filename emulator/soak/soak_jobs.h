#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <android-base/result.h>

#include "soak/soak_run.h"
#include "soak/soak_summary.h"

namespace tarvo_emu {

// The seeds from `first` to `last`, both played.
struct SoakSeeds {
    uint64_t first = 1;
    uint64_t last = 1;

    size_t count() const { return last - first + 1; }
};

// "A-B", each decimal or 0x hexadecimal, A not above B; the error says what is wrong.
android::base::Result<SoakSeeds> ParseSoakSeeds(const std::string& text);

// Where the scenario of `seed` goes when several seeds run: the seed before the extension of
// `out` ("soak-failure.textproto" -> "soak-failure.seed-7.textproto").
std::string SeedScenarioFile(const std::string& out, uint64_t seed);

// One seed's run, and its divergence's scenario.
struct SoakSeedResult {
    uint64_t seed = 0;
    bool read_only_replay = false;
    SoakReport report;
    std::optional<SoakScenarioReport> scenario;
    // Why the rig did not start or the scenario was not written; empty when neither.
    std::string error;
};

// The runs so far: their reports added up, and how many of the seeds ended.
struct SoakJobsProgress {
    SoakReport total;
    size_t ended = 0;
};

// Plays `seeds` with `options` (its seed set to each), `jobs` rigs at once, each on a thread of
// its own that blocks SIGUSR1, SIGUSR2 and SIGWINCH as the rest of the rig does. Each seed stops
// at its first divergence, which is shrunk and written to SeedScenarioFile of the options' file.
// `progress` hears the total every half second and once at the end, on the calling thread.
std::vector<SoakSeedResult> RunSoakJobs(
    const SoakOptions& options, SoakSeeds seeds, size_t jobs,
    const std::function<void(const SoakJobsProgress&)>& progress);

// What the seeds' runs did, in `seconds` of wall time.
SoakSummary SummarizeSoak(const std::vector<SoakSeedResult>& results, double seconds);

}  // namespace tarvo_emu
