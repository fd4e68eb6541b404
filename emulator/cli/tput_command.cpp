#include <unistd.h>

#include <iostream>
#include <optional>

#include <android-base/file.h>
#include <fmt/format.h>

#include "cli/command.h"
#include "cli/tput_report.h"
#include "device/device_facts.h"
#include "measure/tput_measurement.h"

using android::base::Result;

namespace tarvo_emu {

namespace {

constexpr uint64_t kMaxBlockSize = kLargestMessage;

const char* PhaseName(TputPhase phase) {
    static const char* const kNames[] = {"starting", "downlink", "downlink end", "uplink",
                                         "uplink end"};
    return kNames[static_cast<int>(phase)];
}

// Shows the run's progress on stderr: a terminal gets one line drawn again and again, a file or
// pipe a line per phase.
TputProgressListener ProgressPrinter() {
    const bool terminal = isatty(STDERR_FILENO) != 0;
    return [terminal, shown = std::optional<TputPhase>()](const TputProgress& progress) mutable {
        if (progress.phase == TputPhase::kBareRuns) {
            if (terminal) fmt::print(stderr, "\n");
            fmt::print(stderr, "measuring a bare reader of the node, and a bare writer twice...\n");
            return;
        }
        if (!terminal && progress.phase == shown) return;
        fmt::print(stderr, "{}{:<12} {:6.1f} s   downlink {:9.1f} MB   uplink {:9.1f} MB{}",
                   terminal ? "\r" : "", PhaseName(progress.phase), progress.seconds,
                   progress.downlink_bytes / 1e6, progress.uplink_bytes / 1e6,
                   terminal ? " " : "\n");
        shown = progress.phase;
    };
}

struct TputOptions {
    std::string plot;  // SVG file; none when empty
    std::string json;  // JSON file, "-" for stdout; none when empty
    DownlinkSettings downlink;
};

// Runs `tarvo -t` against the emulated modem and reports.
int Tput(const TputOptions& options) {
    Rig rig(TputRigOptions(options.downlink));
    if (Result<void> started = rig.Start(); !started.ok()) {
        return Failed("tarvo-emu", started.error().message());
    }
    Result<TputReport> report = MeasureTput(rig, options.downlink, ProgressPrinter());
    if (!report.ok()) return Failed("\ntarvo-emu", report.error().message());

    std::cout << ReportTable(*report) << std::flush;
    if (!options.json.empty()) {
        const std::string json = ReportJson(*report);
        if (options.json == "-") {
            std::cout << json << std::flush;
        } else if (!android::base::WriteStringToFile(json, options.json)) {
            return Failed("tarvo-emu", "cannot write " + options.json);
        }
    }
    if (!options.plot.empty()) {
        if (Result<void> drawn = WritePlot(*report, options.plot); !drawn.ok()) {
            return Failed("tarvo-emu", drawn.error().message());
        }
        fmt::print("plot written to {}\n", options.plot);
    }
    return 0;
}

}  // namespace

// `tarvo-emu tput [--plot FILE.svg] [--json FILE|-] [--block-size N] [--rate BYTES_PER_S]`.
Command AddTputCommand(CLI::App& app) {
    auto options = std::make_shared<TputOptions>();
    CLI::App* tput = app.add_subcommand(
        "tput",
        "Runs the IPC throughput test (`tarvo -t`) against the emulated modem, then a bare\n"
        "reader of the node and a bare writer twice (how far the second run lies from the\n"
        "first shows how far one block size's figure strays), and prints the table.");
    tput->add_option("--plot", options->plot,
                     "draw the downlink samples and uplink rates (gnuplot)")
        ->type_name("FILE.svg")
        ->check(WritableOutput());
    tput->add_option("--json", options->json, "write the figures as JSON (- for standard output)")
        ->type_name("FILE|-")
        ->check(WritableOutput(true));
    DownlinkSettings& downlink = options->downlink;
    AddNumberOption(
        tput, "--block-size", &downlink.block_size,
        fmt::format("a number of bytes from 1 to {}", kMaxBlockSize),
        fmt::format("bytes per downlink block, 1 to {} ({})", kMaxBlockSize, downlink.block_size),
        uint64_t{1}, kMaxBlockSize)
        ->type_name("N");
    AddNumberOption(tput, "--rate", &downlink.bytes_per_s, "a number of bytes per second",
                    "downlink rate; 0 or not given: as fast as read")
        ->type_name("BYTES_PER_S");
    return {tput, [options] { return Tput(*options); }};
}

}  // namespace tarvo_emu
