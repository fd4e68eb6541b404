#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tarvo_emu {

class Rig;
struct RigOptions;

struct TputCommandOptions {
    std::string plot;  // SVG file; none when empty
    std::string json;  // JSON file, "-" for stdout; none when empty
    uint64_t block_size = 65536;
    uint64_t bytes_per_s = 0;
};

// A rate measured at the node: bytes between the first and the last transfer.
struct NodeRate {
    uint64_t transfers = 0;
    uint64_t bytes = 0;
    double seconds = 0;
    // Not a number for a single transfer.
    double bytes_per_s() const;
};

// Everything one `tarvo-emu tput` run measured.
struct TputReport {
    uint64_t block_size = 0;
    uint64_t bytes_per_s = 0;
    // The daemon's own figures: one per 100-ms sample in gigabits per second, and its result.
    std::vector<double> samples_gbps;
    std::string result_line;
    double average_gbps = 0;
    double max_gbps = 0;
    // Downlink at the node while the daemon's monitor read, and for a bare read loop.
    NodeRate monitor;
    NodeRate bare_reader;
    // Uplink at the node by block size, for the daemon's pump and for a bare writer. The bare
    // writer runs twice in a row: how far its second run lies from its first is how far one
    // sample of 10000 writes strays on this machine.
    std::map<uint64_t, NodeRate> pump;
    std::map<uint64_t, NodeRate> bare_writer;
    std::map<uint64_t, NodeRate> bare_writer_again;
    uint64_t pump_failed = 0;
};

// One daemon's per-sample line: its throughput, or false when `text` is not one.
bool ParseSampleLine(const std::string& text, double* gbps);
// The daemon's result line: its average and maximum, or false when `text` is not one.
bool ParseResultLine(const std::string& text, double* average, double* max);

// The rig's settings for a throughput run with `options`.
RigOptions TputRigOptions(const TputCommandOptions& options);
// In `rig`, started with TputRigOptions(): the daemon's throughput test (progress on stderr when
// `progress`), then a bare reader of the node and a bare writer twice. False, with `error`, when
// the test could not run to its end.
bool MeasureTput(Rig& rig, const TputCommandOptions& options, bool progress, TputReport* report,
                 std::string* error);

std::string ReportTable(const TputReport& report);
std::string ReportJson(const TputReport& report);
// The gnuplot script that draws the report into `svg`, reading its data from `data_dir`.
std::string PlotScript(const TputReport& report, const std::string& data_dir,
                       const std::string& svg);

// Draws the report into `svg` with gnuplot; false with the reason.
bool WritePlot(const TputReport& report, const std::string& svg, std::string* error);

// `tarvo-emu tput`: runs `tarvo -t` against the emulated modem and reports. The exit status.
int RunTputCommand(const TputCommandOptions& options);

}  // namespace tarvo_emu
