#include "soak/soak_jobs.h"

#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <thread>

#include <android-base/parseint.h>
#include <android-base/strings.h>

using android::base::Error;
using android::base::Result;

namespace tarvo_emu {

namespace {

constexpr std::chrono::milliseconds kProgressEvery{500};
// Signals that the rig's threads leave to the main thread.
constexpr int kRigBlockedSignals[] = {SIGUSR1, SIGUSR2, SIGWINCH};

void BlockRigSignals() {
    sigset_t blocked;
    sigemptyset(&blocked);
    for (int signal_number : kRigBlockedSignals) sigaddset(&blocked, signal_number);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
}

void AddUp(const SoakReport& report, SoakReport* total) {
    total->stimuli += report.stimuli;
    total->faults += report.faults;
    total->checks += report.checks;
    for (const auto& [kind, count] : report.fault_kinds) total->fault_kinds[kind] += count;
    for (const auto& [kind, count] : report.traffic_kinds) total->traffic_kinds[kind] += count;
    total->peak.descriptors = std::max(total->peak.descriptors, report.peak.descriptors);
    total->peak.threads = std::max(total->peak.threads, report.peak.threads);
    total->peak.memory_kib = std::max(total->peak.memory_kib, report.peak.memory_kib);
}

SoakSeedResult PlaySeed(SoakOptions options, const std::function<void(const SoakReport&)>& heard) {
    SoakSeedResult result;
    result.seed = options.seed;
    SoakRun soak(options);
    result.read_only_replay = soak.read_only_replay();
    Result<SoakReport> report =
        soak.Play([&heard](const SoakReport& so_far, bool) { heard(so_far); });
    if (!report.ok()) {
        result.error = report.error().message();
        return result;
    }
    result.report = *report;
    if (!report->divergence) return result;
    Result<SoakScenarioReport> written = soak.ShrinkAndWrite(nullptr);
    if (written.ok()) {
        result.scenario = *written;
    } else {
        result.error = written.error().message();
    }
    return result;
}

}  // namespace

Result<SoakSeeds> ParseSoakSeeds(const std::string& text) {
    const std::vector<std::string> ends = android::base::Split(text, "-");
    SoakSeeds seeds;
    if (ends.size() != 2 || !android::base::ParseUint(ends[0], &seeds.first) ||
        !android::base::ParseUint(ends[1], &seeds.last)) {
        return Error() << "takes a range A-B of seeds, not \"" << text << "\"";
    }
    if (seeds.first > seeds.last) {
        return Error() << "\"" << text << "\" ends before it starts";
    }
    if (seeds.first == 0 && seeds.last == UINT64_MAX) {
        return Error() << "\"" << text << "\" holds more seeds than can be counted";
    }
    return seeds;
}

std::string SeedScenarioFile(const std::string& out, uint64_t seed) {
    const std::filesystem::path path(out);
    std::filesystem::path file = path.parent_path() / path.stem();
    file += ".seed-" + std::to_string(seed);
    file += path.extension();
    return file.string();
}

std::vector<SoakSeedResult> RunSoakJobs(
    const SoakOptions& options, SoakSeeds seeds, size_t jobs,
    const std::function<void(const SoakJobsProgress&)>& progress) {
    const size_t count = seeds.count();
    std::vector<SoakSeedResult> results(count);
    std::vector<SoakReport> so_far(count);
    std::mutex mutex;
    std::condition_variable ended;
    size_t ended_count = 0;
    std::atomic<size_t> next{0};

    const auto work = [&] {
        BlockRigSignals();
        for (size_t i = next++; i < count; i = next++) {
            SoakOptions seed_options = options;
            seed_options.seed = seeds.first + i;
            seed_options.out = SeedScenarioFile(options.out, seed_options.seed);
            SoakSeedResult result = PlaySeed(seed_options, [&, i](const SoakReport& report) {
                std::lock_guard<std::mutex> lock(mutex);
                so_far[i] = report;
            });
            std::lock_guard<std::mutex> lock(mutex);
            so_far[i] = result.report;
            results[i] = std::move(result);
            ++ended_count;
            ended.notify_all();
        }
    };
    std::vector<std::thread> workers;
    for (size_t j = 0; j < std::min(std::max<size_t>(jobs, 1), count); ++j) {
        workers.emplace_back(work);
    }

    const auto total = [&] {
        SoakJobsProgress now;
        now.ended = ended_count;
        for (const SoakReport& report : so_far) AddUp(report, &now.total);
        return now;
    };
    const auto start = std::chrono::steady_clock::now();
    {
        std::unique_lock<std::mutex> lock(mutex);
        while (!ended.wait_for(lock, kProgressEvery, [&] { return ended_count == count; })) {
            SoakJobsProgress now = total();
            now.total.seconds =
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            if (progress) progress(now);
        }
    }
    for (std::thread& worker : workers) worker.join();
    SoakJobsProgress last = total();
    last.total.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (progress) progress(last);
    return results;
}

SoakSummary SummarizeSoak(const std::vector<SoakSeedResult>& results, double seconds) {
    SoakSummary summary;
    summary.seconds = seconds;
    SoakReport total;
    for (const SoakSeedResult& result : results) {
        summary.seeds.push_back(result.seed);
        AddUp(result.report, &total);
        if (result.report.divergence) {
            summary.divergences.push_back(
                {.seed = result.seed,
                 .message = result.report.divergence->message,
                 .scenario = result.scenario ? result.scenario->file : std::string()});
        }
    }
    summary.stimuli = total.stimuli;
    summary.checks = total.checks;
    summary.faults = total.fault_kinds;
    summary.traffic = total.traffic_kinds;
    summary.peak = total.peak;
    return summary;
}

}  // namespace tarvo_emu
