#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <android-base/result.h>

#include "rig/rig.h"

namespace tarvo_emu {

// How long one of the daemon's downlink samples lasts.
constexpr double kSampleSeconds = 0.1;

// How the emulated modem streams the downlink.
struct DownlinkSettings {
    uint64_t block_size = 65536;
    uint64_t bytes_per_s = 0;  // 0: as fast as read
};

// A rate measured at the node: bytes between the first and the last transfer.
struct NodeRate {
    uint64_t transfers = 0;
    uint64_t bytes = 0;
    double seconds = 0;
    // Not a number for a single transfer.
    double bytes_per_s() const;
};

// Everything one throughput run measured.
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

// Where a throughput run stands: the daemon's test by its requests to the modem, then the bare
// reader and writer.
enum class TputPhase { kStarting, kDownlink, kDownlinkEnd, kUplink, kUplinkEnd, kBareRuns };

// What a throughput run has moved so far, while the daemon's test runs.
struct TputProgress {
    TputPhase phase = TputPhase::kStarting;
    double seconds = 0;
    uint64_t downlink_bytes = 0;
    uint64_t uplink_bytes = 0;
};
using TputProgressListener = std::function<void(const TputProgress&)>;

// One daemon's per-sample line: its throughput, or none when `text` is not one.
std::optional<double> ParseSampleLine(const std::string& text);
// The daemon's result line: its average and maximum, or none when `text` is not one.
struct TputResultLine {
    double average_gbps = 0;
    double max_gbps = 0;
};
std::optional<TputResultLine> ParseResultLine(const std::string& text);

// The rig's settings for a throughput run streaming `downlink`.
RigOptions TputRigOptions(const DownlinkSettings& downlink);
// In `rig`, started with TputRigOptions(): the daemon's throughput test, then a bare reader of
// the node and a bare writer twice. `listener`, when given, hears where the test stands every
// half second, and once as the bare runs begin. An error when the test could not run to its end.
android::base::Result<TputReport> MeasureTput(Rig& rig, const DownlinkSettings& downlink,
                                              const TputProgressListener& listener = nullptr);

// The test node read in the sandbox by `reader`, the node streaming `downlink` meanwhile: the
// rate at the node, or the reader's output when it failed or read nothing.
android::base::Result<NodeRate> MeasureNodeReads(Rig& rig, const DownlinkSettings& downlink,
                                                 const std::vector<std::string>& reader);

}  // namespace tarvo_emu
