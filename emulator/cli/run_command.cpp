#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ext/stdio_filebuf.h>
#include <iostream>
#include <memory>

#include <android-base/result.h>
#include <fmt/format.h>

#include "cli/command.h"
#include "scenario/scenario_player.h"

using android::base::Result;

namespace tarvo_emu {

namespace {

struct RunOptions {
    std::string scenario_file;
    std::string record;      // none when empty
    std::string transcript;  // none when empty
    std::string pcapng;      // none when empty
    bool quiet = false;
};

// Plays the scenario against the daemon, printing the transcript and the verdict.
int Run(const RunOptions& options) {
    ScenarioOrigin origin;
    Result<tarvo_scenario::Scenario> scenario = LoadScenario(options.scenario_file, &origin);
    if (!scenario.ok()) return Failed("", scenario.error().message());
    // Opened close-on-exec, which std::ofstream cannot ask for: the daemon is to hold its own
    // descriptors only.
    std::unique_ptr<__gnu_cxx::stdio_filebuf<char>> transcript_buffer;
    if (!options.transcript.empty()) {
        const int fd =
            open(options.transcript.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, DEFFILEMODE);
        if (fd < 0) {
            return Failed("",
                          fmt::format("cannot write {}: {}", options.transcript, strerror(errno)));
        }
        transcript_buffer = std::make_unique<__gnu_cxx::stdio_filebuf<char>>(fd, std::ios::out);
    }
    std::ostream full_transcript(transcript_buffer.get());
    RigHooks hooks;
    Result<std::unique_ptr<PcapngWriter>> pcapng = OpenPcapng(options.pcapng, &hooks);
    if (!pcapng.ok()) return Failed("", pcapng.error().message());
    PlaySummary summary;
    Result<void> played =
        PlayScenario(*scenario, {.transcript = options.quiet ? nullptr : &std::cout,
                                 .full_transcript = transcript_buffer ? &full_transcript : nullptr,
                                 .record = options.record,
                                 .origin = &origin,
                                 .colour = WantsColour(STDOUT_FILENO),
                                 .summary = &summary,
                                 .hooks = std::move(hooks)});
    if (*pcapng) {
        if (Result<void> closed = (*pcapng)->Close(); !closed.ok()) {
            return Failed("", closed.error().message());
        }
    }
    const std::string steps = SummaryText(summary);
    if (!played.ok()) {
        std::cout << std::flush;
        // The failure names the file itself.
        fmt::print(stderr, "FAILED {}\n{}: {}\n", played.error().message(), options.scenario_file,
                   steps);
        return 1;
    }
    fmt::print("PASSED {}: {}\n", options.scenario_file, steps);
    return 0;
}

}  // namespace

// `tarvo-emu run FILE [--quiet] [--record OUT] [--pcapng OUT] [--transcript OUT]`.
Command AddRunCommand(CLI::App& app) {
    auto options = std::make_shared<RunOptions>();
    CLI::App* run = app.add_subcommand(
        "run",
        "Plays a scenario (protobuf text format, schema emulator/scenario/scenario.proto) against\n"
        "the daemon `tarvo -s` in a sandbox with the emulated modem, and prints the transcript:\n"
        "every message both ways, RIL requests and answers, log lines, steps; payloads of more\n"
        "than 300 bytes shown by their start and size. A failure names the step's file and\n"
        "line, and shows what came nearest to what the step expected.");
    run->add_option("FILE", options->scenario_file, "the scenario to play")
        ->required()
        ->type_name("");
    run->add_flag("--quiet", options->quiet, "print only a failure and the summary");
    run->add_option("--record", options->record,
                    "write the session to OUT as a scenario: the setup, the steps,\n"
                    "and after each step what the daemon did that no step expected")
        ->type_name("OUT")
        ->check(WritableOutput());
    run->add_option("--pcapng", options->pcapng, kPcapngHelp)
        ->type_name("OUT")
        ->check(WritableOutput());
    run->add_option("--transcript", options->transcript,
                    "write the whole transcript to OUT, every payload in full")
        ->type_name("OUT")
        ->check(WritableOutput());
    return {run, [options] { return Run(*options); }};
}

}  // namespace tarvo_emu
