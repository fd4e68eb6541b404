// soak.scaling: the checks per second of `tarvo-emu soak --jobs 2` against those of the same two
// seeds played one after the other on a single rig, each for the same time.

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include <android-base/stringprintf.h>

#include "bench_figures.h"
#include "device/fault.h"
#include "soak/soak_jobs.h"

using android::base::Error;
using android::base::Result;
using android::base::StringPrintf;

namespace tarvo_bench {

namespace {

constexpr uint64_t kFirstSeed = 1;
constexpr size_t kScalingJobs = 2;
constexpr double kScalingGoal = 1.6;
// Below any seed's time, which includes starting its rig.
constexpr double kShortest = 1e-3;

// The checks per second of `seeds` played `jobs` at a time: each seed's checks over its own time,
// added up, so that a seed whose last stimulus outlasts the duration does not make the others
// look slow. An error when one diverged.
Result<double> ChecksPerSecond(const tarvo_emu::SoakOptions& options, tarvo_emu::SoakSeeds seeds,
                               size_t jobs) {
    const std::vector<tarvo_emu::SoakSeedResult> results =
        tarvo_emu::RunSoakJobs(options, seeds, jobs, nullptr);
    double rate = 0;
    for (const tarvo_emu::SoakSeedResult& result : results) {
        if (!result.error.empty()) return Error() << "seed " << result.seed << ": " << result.error;
        if (result.report.divergence) {
            return Error() << "seed " << result.seed
                           << " diverged: " << result.report.divergence->message;
        }
        rate += result.report.checks / std::max(result.report.seconds, kShortest);
    }
    return rate;
}

}  // namespace

Figures SoakScalingFigures(const BenchSettings& settings) {
    tarvo_emu::SoakOptions options;
    options.duration = std::chrono::seconds(settings.soak_scaling_s);
    options.faults = *tarvo_emu::ParseSoakFaults("all");
    options.shrink_budget = std::chrono::seconds(0);
    options.out = (std::filesystem::temp_directory_path() / "tarvo-bench-soak.textproto").string();

    double alone = 0;
    for (uint64_t seed = kFirstSeed; seed < kFirstSeed + kScalingJobs; ++seed) {
        Result<double> rate = ChecksPerSecond(options, {seed, seed}, 1);
        if (!rate.ok()) return rate.error();
        alone += *rate / kScalingJobs;
    }
    Result<double> together =
        ChecksPerSecond(options, {kFirstSeed, kFirstSeed + kScalingJobs - 1}, kScalingJobs);
    if (!together.ok()) return together.error();

    Figure figure = RatioAtLeast("soak.scaling", "checks/s", *together, alone, kScalingGoal);
    figure.note = StringPrintf(
        "seeds %llu and %llu for %d s each, side by side against one after the other; each "
        "seed's checks over its own time",
        static_cast<unsigned long long>(kFirstSeed),
        static_cast<unsigned long long>(kFirstSeed + 1), settings.soak_scaling_s);
    return std::vector<Figure>{figure};
}

}  // namespace tarvo_bench
