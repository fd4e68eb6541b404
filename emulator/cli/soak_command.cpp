#include "cli/soak_command.h"

#include <unistd.h>

#include <algorithm>
#include <string>

#include <fmt/format.h>

#include "cli/command_options.h"

using android::base::Result;

namespace tarvo_emu {

CLI::App* AddSoakCommand(CLI::App& app, SoakOptions* options) {
    CLI::App* soak = app.add_subcommand(
        "soak",
        "Plays random modem traffic against the daemon in the sandbox: file transfers in blocks\n"
        "(out of order, repeated, missing, of the wrong total), appends, reads, properties,\n"
        "temperatures, UE-capability reads, diagnostics, signals for the daemon's own requests,\n"
        "malformed messages, with faults between them; each answer, log line, file and property\n"
        "is checked against a model of the daemon, and its descriptors, threads and memory stay\n"
        "flat. The first divergence is shrunk to the fewest stimuli that still show it and\n"
        "written as a scenario that `tarvo-emu run` plays and fails the same way. Progress on a\n"
        "terminal, a summary at the end.");
    options->faults = *ParseSoakFaults("all");
    AddNumberOption(soak, "--seed", &options->seed, "a number",
                    "the run's seed, decimal or 0x hexadecimal (1)")
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
            "comma-separated: eof, read, write, hangup, offline, restart;\n"
            "all (the default) or none")
        ->type_name("LIST");
    soak->add_option("--out", options->out, "the scenario of a divergence (soak-failure.textproto)")
        ->type_name("FILE");
    soak->add_option_function<uint64_t>(
            "--shrink",
            [options](uint64_t seconds) { options->shrink_budget = std::chrono::seconds(seconds); },
            "how long shrinking may take (600)")
        ->type_name("SECONDS");
    return soak;
}

int RunSoakCommand(const SoakOptions& options) {
    const bool terminal = isatty(STDERR_FILENO);
    SoakRun soak(options);
    fmt::print("soak: seed {}{}\n", options.seed,
               soak.read_only_replay() ? " (replay directory read-only)" : "");
    fflush(stdout);
    const auto rate = [](const SoakReport& report) {
        return report.checks / std::max(report.seconds, 1e-3);
    };
    Result<SoakReport> report = soak.Play([&](const SoakReport& so_far, bool last) {
        if (!terminal) return;
        fmt::print(stderr, "\r{:7.1f} s  stimuli {}  faults {}  checks {}  ({:.0f} checks/s){}",
                   so_far.seconds, so_far.stimuli, so_far.faults, so_far.checks, rate(so_far),
                   last ? "\n" : "   ");
        fflush(stderr);
    });
    if (!report.ok()) {
        fmt::print(stderr, "soak: {}\n", report.error().message());
        return 1;
    }
    fmt::print("soak: seed {}, {:.1f} s, {} stimuli, {} faults, {} checks ({:.1f} checks/s): {}\n",
               options.seed, report->seconds, report->stimuli, report->faults, report->checks,
               rate(*report), report->divergence ? "DIVERGED" : "no divergence");
    if (!report->divergence) return 0;

    fmt::print("soak: at stimulus {}: {}\n", report->divergence->stimulus,
               report->divergence->message);
    fflush(stdout);
    Result<SoakScenarioReport> written = soak.ShrinkAndWrite([terminal](const std::string& line) {
        if (terminal) fmt::print(stderr, "\rshrinking: {}          ", line);
    });
    if (terminal) fmt::print(stderr, "\n");
    if (!written.ok()) {
        fmt::print(stderr, "soak: {}\n", written.error().message());
        return 1;
    }
    fmt::print("soak: {} stimuli of {} kept ({} replays, {:.0f} s); scenario written to {}\n",
               written->kept, written->played, written->replays, written->seconds, written->file);
    fmt::print(
        "soak: played again, the scenario {}\n",
        written->fails_on_run ? "fails" : "PASSES: the divergence depends on a timing of its own");
    return 1;
}

}  // namespace tarvo_emu
