#include "cli/soak_command.h"

#include <string>

#include <android-base/parseint.h>
#include <fmt/format.h>

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
    soak->add_option_function<std::string>(
            "--seed",
            [options](const std::string& value) {
                if (!android::base::ParseUint(value, &options->seed)) {
                    throw CLI::ValidationError(
                        fmt::format("--seed takes a number, not \"{}\"", value));
                }
            },
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

}  // namespace tarvo_emu
