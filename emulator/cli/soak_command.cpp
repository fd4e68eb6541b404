#include "cli/soak_command.h"

#include <stdio.h>

#include <android-base/parseint.h>
#include <CLI/CLI.hpp>

#include "soak/soak_run.h"

namespace tarvo_emu {

const char kSoakHelp[] =
    "usage: tarvo-emu soak [--seed N] [--duration SECONDS | --steps N] [--faults LIST]\n"
    "                      [--out FILE]\n"
    "\n"
    "Plays random modem traffic against the daemon in the sandbox: file transfers in blocks\n"
    "(out of order, repeated, missing, of the wrong total), appends, reads, properties,\n"
    "temperatures, UE-capability reads, diagnostics, signals for the daemon's own requests,\n"
    "malformed messages, with faults between them; each answer, log line, file and property is\n"
    "checked against a model of the daemon, and its descriptors, threads and memory stay flat.\n"
    "The first divergence is shrunk to the fewest stimuli that still show it and written as a\n"
    "scenario that `tarvo-emu run` plays and fails the same way. Progress on a terminal.\n"
    "\n"
    "  --seed N            the run's seed, decimal or 0x hexadecimal (1)\n"
    "  --duration SECONDS  how long to play (60)\n"
    "  --steps N           how many stimuli to play instead\n"
    "  --faults LIST       comma-separated: eof, read, write, hangup, offline, restart; all\n"
    "                      (the default) or none\n"
    "  --out FILE          the scenario of a divergence (soak-failure.textproto)\n"
    "  --shrink SECONDS    how long shrinking may take (600)\n";

int RunSoakCommand(const std::vector<std::string>& args) {
    constexpr int kUsageError = 2;
    CLI::App app("tarvo-emu soak", "tarvo-emu soak");
    std::string seed = "1";
    std::string faults = "all";
    uint64_t duration = 0;
    uint64_t steps = 0;
    uint64_t shrink = 0;
    SoakOptions options;
    app.add_option("--seed", seed);
    CLI::Option* duration_option =
        app.add_option("--duration", duration)->check(CLI::PositiveNumber);
    CLI::Option* steps_option = app.add_option("--steps", steps)->check(CLI::PositiveNumber);
    duration_option->excludes(steps_option);
    app.add_option("--faults", faults);
    app.add_option("--out", options.out);
    CLI::Option* shrink_option = app.add_option("--shrink", shrink);
    std::vector<std::string> reversed(args.rbegin(), args.rend());
    try {
        app.parse(reversed);
    } catch (const CLI::ParseError& e) {
        fprintf(stderr, "tarvo-emu soak: %s\nSee: tarvo-emu soak --help\n", e.what());
        return kUsageError;
    }
    if (!android::base::ParseUint(seed, &options.seed)) {
        fprintf(stderr, "tarvo-emu soak: --seed takes a number, not \"%s\"\n", seed.c_str());
        return kUsageError;
    }
    std::string error;
    if (!ParseSoakFaults(faults, &options.faults, &error)) {
        fprintf(stderr, "tarvo-emu soak: --faults: %s\n", error.c_str());
        return kUsageError;
    }
    if (*duration_option) options.duration = std::chrono::seconds(duration);
    if (*steps_option) options.steps = steps;
    if (*shrink_option) options.shrink_budget = std::chrono::seconds(shrink);
    return RunSoak(options);
}

}  // namespace tarvo_emu
