#include "cli/soak_command.h"

#include <unistd.h>

#include <algorithm>
#include <limits>
#include <string>
#include <thread>

#include <android-base/file.h>
#include <fmt/format.h>

#include "cli/command_options.h"
#include "cli/soak_json.h"

using android::base::Result;

namespace tarvo_emu {

namespace {

double Rate(const SoakReport& report) { return report.checks / std::max(report.seconds, 1e-3); }

// Writes `summary` to `path` when one is given; false after saying why it could not.
bool WriteJson(const std::string& path, const SoakSummary& summary) {
    if (path.empty()) return true;
    if (android::base::WriteStringToFile(SoakSummaryJson(summary), path)) return true;
    fmt::print(stderr, "soak: cannot write {}: {}\n", path, strerror(errno));
    return false;
}

// Says how the scenario of a divergence was written; the lines start with `prefix`.
void PrintScenario(const std::string& prefix, const SoakScenarioReport& written) {
    fmt::print("{}{} stimuli of {} kept ({} replays, {:.0f} s); scenario written to {}\n", prefix,
               written.kept, written.played, written.replays, written.seconds, written.file);
    fmt::print(
        "{}played again, the scenario {}\n", prefix,
        written.fails_on_run ? "fails" : "PASSES: the divergence depends on a timing of its own");
}

}  // namespace

CLI::App* AddSoakCommand(CLI::App& app, SoakCommandOptions* command) {
    CLI::App* soak = app.add_subcommand(
        "soak",
        "Plays random modem traffic against the daemon in the sandbox: file transfers in blocks\n"
        "(out of order, repeated, missing, of the wrong total), appends, reads, properties,\n"
        "temperatures, UE-capability reads, diagnostics, signals for the daemon's own requests,\n"
        "malformed messages, with faults between them; each answer, log line, file and property\n"
        "is checked against a model of the daemon, and its descriptors, threads and memory stay\n"
        "flat. The first divergence is shrunk to the fewest stimuli that still show it and\n"
        "written as a scenario that `tarvo-emu run` plays and fails the same way. Progress on a\n"
        "terminal, a summary at the end. Several seeds run side by side, each on a rig of its\n"
        "own; --json reports what a run did, --merge adds reports of shards up.");
    SoakOptions* const options = &command->soak;
    options->faults = *ParseSoakFaults("all");
    CLI::Option* seed = AddNumberOption(soak, "--seed", &options->seed, "a number",
                                        "the run's seed, decimal or 0x hexadecimal (1)")
                            ->type_name("N");
    CLI::Option* seeds =
        soak->add_option_function<std::string>(
                "--seeds",
                [command](const std::string& value) {
                    Result<SoakSeeds> range = ParseSoakSeeds(value);
                    if (!range.ok()) {
                        throw CLI::ValidationError("--seeds " + range.error().message());
                    }
                    command->seeds = *range;
                },
                "the seeds A to B instead, e.g. to split a range over machines")
            ->type_name("A-B");
    seed->excludes(seeds);
    command->jobs = std::max(1u, std::thread::hardware_concurrency());
    CLI::Option* jobs =
        AddNumberOption<size_t>(soak, "--jobs", &command->jobs, "a number above 0",
                                "rigs at once, with the seeds from --seed on (the cores)", 1)
            ->type_name("N");
    CLI::Option* duration =
        soak->add_option_function<uint64_t>(
                "--duration",
                [options](uint64_t seconds) {
                    if (seconds == 0)
                        throw CLI::ValidationError("--duration takes seconds above 0");
                    options->duration = std::chrono::seconds(seconds);
                },
                "how long to play (60)")
            ->type_name("SECONDS");
    CLI::Option* steps =
        soak->add_option_function<uint64_t>(
                "--steps",
                [options](uint64_t count) {
                    if (count == 0) throw CLI::ValidationError("--steps takes a number above 0");
                    options->steps = count;
                },
                "how many stimuli to play instead")
            ->type_name("N");
    duration->excludes(steps);
    soak->add_option_function<std::string>(
            "--faults",
            [options](const std::string& value) {
                auto faults = ParseSoakFaults(value);
                if (!faults.ok()) {
                    throw CLI::ValidationError("--faults: " + faults.error().message());
                }
                options->faults = std::move(*faults);
            },
            "comma-separated: eof, read, write, hangup, offline, restart, full,\n"
            "readonly; all (the default) or none")
        ->type_name("LIST");
    soak->add_option("--out", options->out, "the scenario of a divergence (soak-failure.textproto)")
        ->type_name("FILE");
    soak->add_option_function<uint64_t>(
            "--shrink",
            [options](uint64_t seconds) { options->shrink_budget = std::chrono::seconds(seconds); },
            "how long shrinking may take (600)")
        ->type_name("SECONDS");
    soak->add_option("--json", command->json,
                     "write what the run did as JSON: seeds, checks, faults by kind,\n"
                     "divergences and their scenarios, checks per second, peaks")
        ->type_name("FILE")
        ->check(WritableOutput());
    CLI::Option* merge =
        soak->add_option("--merge", command->merge,
                         "add up the JSON reports of runs instead of playing, into --json\n"
                         "or onto standard output")
            ->type_name("FILE...")
            ->expected(1, std::numeric_limits<int>::max())
            ->check(CLI::ExistingFile);
    for (CLI::Option* played : {seed, seeds, jobs, duration, steps}) merge->excludes(played);
    return soak;
}

namespace {

// One seed, as the soak has always printed it.
int RunOneSeed(const SoakCommandOptions& command) {
    const SoakOptions& options = command.soak;
    const bool terminal = isatty(STDERR_FILENO);
    SoakRun soak(options);
    fmt::print("soak: seed {}{}\n", options.seed,
               soak.read_only_replay() ? " (replay directory read-only)" : "");
    fflush(stdout);
    Result<SoakReport> report = soak.Play([&](const SoakReport& so_far, bool last) {
        if (!terminal) return;
        fmt::print(stderr, "\r{:7.1f} s  stimuli {}  faults {}  checks {}  ({:.0f} checks/s){}",
                   so_far.seconds, so_far.stimuli, so_far.faults, so_far.checks, Rate(so_far),
                   last ? "\n" : "   ");
        fflush(stderr);
    });
    if (!report.ok()) {
        fmt::print(stderr, "soak: {}\n", report.error().message());
        return 1;
    }
    fmt::print("soak: seed {}, {:.1f} s, {} stimuli, {} faults, {} checks ({:.1f} checks/s): {}\n",
               options.seed, report->seconds, report->stimuli, report->faults, report->checks,
               Rate(*report), report->divergence ? "DIVERGED" : "no divergence");
    SoakSeedResult result;
    result.seed = options.seed;
    result.report = *report;
    if (!report->divergence)
        return WriteJson(command.json, SummarizeSoak({result}, report->seconds)) ? 0 : 1;

    fmt::print("soak: at stimulus {}: {}\n", report->divergence->stimulus,
               report->divergence->message);
    fflush(stdout);
    Result<SoakScenarioReport> written = soak.ShrinkAndWrite([terminal](const std::string& line) {
        if (terminal) fmt::print(stderr, "\rshrinking: {}          ", line);
    });
    if (terminal) fmt::print(stderr, "\n");
    if (written.ok()) result.scenario = *written;
    WriteJson(command.json, SummarizeSoak({result}, report->seconds));
    if (!written.ok()) {
        fmt::print(stderr, "soak: {}\n", written.error().message());
        return 1;
    }
    PrintScenario("soak: ", *written);
    return 1;
}

// Several seeds side by side: a line for each when it ended, then their total.
int RunSeeds(const SoakCommandOptions& command, SoakSeeds seeds) {
    const bool terminal = isatty(STDERR_FILENO);
    const size_t jobs = std::min(command.jobs, seeds.count());
    fmt::print("soak: seeds {} to {}, {} at once\n", seeds.first, seeds.last, jobs);
    fflush(stdout);
    double seconds = 0;
    const std::vector<SoakSeedResult> results =
        RunSoakJobs(command.soak, seeds, jobs, [&](const SoakJobsProgress& so_far) {
            seconds = so_far.total.seconds;
            if (!terminal) return;
            fmt::print(stderr,
                       "\r{:7.1f} s  seeds ended {} of {}  stimuli {}  faults {}  checks {}  "
                       "({:.0f} checks/s)   ",
                       so_far.total.seconds, so_far.ended, seeds.count(), so_far.total.stimuli,
                       so_far.total.faults, so_far.total.checks, Rate(so_far.total));
            fflush(stderr);
        });
    if (terminal) fmt::print(stderr, "\n");
    bool clean = true;
    for (const SoakSeedResult& result : results) {
        const SoakReport& report = result.report;
        const std::string prefix = fmt::format("soak: seed {}: ", result.seed);
        if (!result.error.empty()) {
            fmt::print(stderr, "{}{}\n", prefix, result.error);
            clean = false;
        }
        if (report.stimuli == 0 && !report.divergence) continue;
        fmt::print("{}{}{:.1f} s, {} stimuli, {} faults, {} checks ({:.1f} checks/s): {}\n", prefix,
                   result.read_only_replay ? "replay directory read-only, " : "", report.seconds,
                   report.stimuli, report.faults, report.checks, Rate(report),
                   report.divergence ? "DIVERGED" : "no divergence");
        if (!report.divergence) continue;
        clean = false;
        fmt::print("{}at stimulus {}: {}\n", prefix, report.divergence->stimulus,
                   report.divergence->message);
        if (result.scenario) PrintScenario(prefix, *result.scenario);
    }
    const SoakSummary summary = SummarizeSoak(results, seconds);
    fmt::print("soak: {} seeds, {:.1f} s, {} stimuli, {} checks ({:.1f} checks/s): {} diverged\n",
               summary.seeds.size(), summary.seconds, summary.stimuli, summary.checks,
               summary.checks_per_second(), summary.divergences.size());
    return WriteJson(command.json, summary) && clean ? 0 : 1;
}

// Adds the reports of --merge up.
int MergeReports(const SoakCommandOptions& command) {
    std::vector<SoakSummary> summaries;
    for (const std::string& path : command.merge) {
        Result<SoakSummary> summary = ReadSoakSummary(path);
        if (!summary.ok()) {
            fmt::print(stderr, "soak: {}\n", summary.error().message());
            return 1;
        }
        summaries.push_back(std::move(*summary));
    }
    const SoakSummary merged = MergeSoakSummaries(summaries);
    if (command.json.empty()) {
        fmt::print("{}", SoakSummaryJson(merged));
        return 0;
    }
    return WriteJson(command.json, merged) ? 0 : 1;
}

}  // namespace

int RunSoakCommand(const SoakCommandOptions& command) {
    if (!command.merge.empty()) return MergeReports(command);
    const uint64_t first = command.soak.seed;
    const SoakSeeds seeds = command.seeds.value_or(
        SoakSeeds{first, first + std::min<uint64_t>(command.jobs - 1,
                                                    std::numeric_limits<uint64_t>::max() - first)});
    if (seeds.count() == 1) {
        SoakCommandOptions one = command;
        one.soak.seed = seeds.first;
        return RunOneSeed(one);
    }
    return RunSeeds(command, seeds);
}

}  // namespace tarvo_emu
