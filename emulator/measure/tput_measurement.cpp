#include "measure/tput_measurement.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <string_view>
#include <thread>

#include <android-base/parsedouble.h>
#include <android-base/parseint.h>
#include <android-base/strings.h>
#include <fmt/format.h>

using android::base::Error;
using android::base::Result;
using android::base::StartsWith;
using std::chrono::milliseconds;

namespace tarvo_emu {

namespace {

constexpr std::string_view kSamplePrefix = "Modem_IPC_Test DL:Tput : ";
constexpr std::string_view kSampleCounter = " (GBps) | byte_counter: ";
constexpr std::string_view kResultPrefix = "Modem_IPC_Test DL Results: Average Tput: ";
constexpr std::string_view kResultMax = " Gbps, Max Tput: ";
constexpr std::string_view kResultMaxEnd = " Gbps";
constexpr milliseconds kTestTimeout = std::chrono::minutes(10);
constexpr milliseconds kProgressInterval{500};
constexpr milliseconds kBareWriterTimeout = std::chrono::minutes(10);

// The text of `line` between `start` (where it begins) and the first `end` after it, and what
// follows `end`; none when `line` does not have both.
struct FieldText {
    std::string_view value;
    std::string_view rest;
};
std::optional<FieldText> Field(std::string_view line, std::string_view start,
                               std::string_view end) {
    if (line.substr(0, start.size()) != start) return std::nullopt;
    line.remove_prefix(start.size());
    const size_t at = line.find(end);
    if (at == std::string_view::npos) return std::nullopt;
    return FieldText{line.substr(0, at), line.substr(at + end.size())};
}

NodeRate RateOf(uint64_t transfers, uint64_t bytes, const TestNode::Span& span) {
    return {transfers, bytes, transfers == 0 ? 0 : span.seconds()};
}

std::map<uint64_t, NodeRate> RatesBySize(const TestNode::Uplink& uplink) {
    std::map<uint64_t, NodeRate> rates;
    for (const auto& [size, writes] : uplink.writes_by_size) {
        rates[size] = RateOf(writes, writes * size, uplink.span_by_size.at(size));
    }
    return rates;
}

// Where the test stands, from the daemon's requests to the modem.
struct TestState {
    int requests = 0;  // throughput requests so far
    bool uplink_end = false;
    TputPhase phase() const {
        return static_cast<TputPhase>(std::min(requests, static_cast<int>(TputPhase::kUplinkEnd)));
    }
};

TestState StateOf(const std::vector<tarvo_message::TarvoMessage>& messages) {
    TestState state;
    for (const tarvo_message::TarvoMessage& message : messages) {
        if (message.type() != tarvo_message::REQUEST || !message.modem_test().has_tput_request()) {
            continue;
        }
        ++state.requests;
        if (TputModem::IsTputRequest(message, false, true)) state.uplink_end = true;
    }
    return state;
}

// Runs the daemon's test and waits for its end, telling `listener` where it stands.
Result<void> RunDaemonTest(Rig& rig, const TputProgressListener& listener) {
    rig.emulator().test().ResetStats();
    Result<ProcessResult> client = rig.RunClient({"-t"});
    if (!client.ok()) return Error() << "tarvo -t: " << client.error();
    if (client->status != 0) return Error() << "tarvo -t exited with " << client->status;
    const auto start = std::chrono::steady_clock::now();
    const auto answered = [](const LogLine& line) {
        return StartsWith(line.text, kTestAnswerPrefix) ||
               StartsWith(line.text, kRequestFailurePrefix);
    };
    const auto failed = [](const LogLine& line) { return line.text == kUplinkFailureText; };
    while (true) {
        const TestState state = StateOf(rig.modem().received());
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (listener) {
            listener({state.phase(), seconds, rig.emulator().test().downlink().bytes,
                      rig.emulator().test().uplink().bytes});
        }
        const bool done = rig.log_events().Count(failed) > 0 ||
                          (state.uplink_end &&
                           rig.log_events().Count(answered) >= static_cast<size_t>(state.requests));
        if (done) return {};
        if (seconds * 1000 > kTestTimeout.count()) {
            return Error() << "the test did not end within 10 minutes";
        }
        std::this_thread::sleep_for(kProgressInterval);
    }
}

// The daemon's uplink schedule written by dd in the sandbox, one process per block size.
std::map<uint64_t, NodeRate> MeasureBareWriter(Rig& rig) {
    TestNode& node = rig.emulator().test();
    node.ResetStats();
    using Schedule = UplinkSchedule;
    const std::string script = fmt::format(
        "dd if=/dev/zero of=/dev/oem_test bs={} count=1 conv=notrunc status=none && "
        "for size in $(seq {} {} {}); do "
        "dd if=/dev/zero of=/dev/oem_test bs=$size count={} conv=notrunc status=none || exit 1; "
        "done",
        Schedule::kOpeningWrite, Schedule::kFirstBlockSize, Schedule::kBlockSizeStep,
        Schedule::kLastBlockSize, Schedule::kWritesPerSize);
    rig.Run({"/bin/sh", "-c", script}, kBareWriterTimeout);
    return RatesBySize(node.uplink());
}

}  // namespace

double NodeRate::bytes_per_s() const { return seconds > 0 ? bytes / seconds : NAN; }

std::optional<double> ParseSampleLine(const std::string& text) {
    std::optional<FieldText> number = Field(text, kSamplePrefix, kSampleCounter);
    double gbps = 0;
    int bytes = 0;
    if (!number ||
        !android::base::ParseDouble(android::base::Trim(std::string(number->value)), &gbps) ||
        !android::base::ParseInt(android::base::Trim(std::string(number->rest)), &bytes)) {
        return std::nullopt;
    }
    return gbps;
}

std::optional<TputResultLine> ParseResultLine(const std::string& text) {
    std::optional<FieldText> average = Field(text, kResultPrefix, kResultMax);
    if (!average) return std::nullopt;
    std::optional<FieldText> max = Field(average->rest, "", kResultMaxEnd);
    TputResultLine result;
    // The average is "nan" or "-nan" when no sample came.
    if (!max || !android::base::ParseDouble(std::string(average->value), &result.average_gbps) ||
        !android::base::ParseDouble(std::string(max->value), &result.max_gbps)) {
        return std::nullopt;
    }
    return result;
}

RigOptions TputRigOptions(const DownlinkSettings& downlink) {
    RigOptions rig_options;
    rig_options.tput.downlink_block_size = downlink.block_size;
    rig_options.tput.downlink_bytes_per_s = downlink.bytes_per_s;
    return rig_options;
}

Result<NodeRate> MeasureNodeReads(Rig& rig, const DownlinkSettings& downlink,
                                  const std::vector<std::string>& reader) {
    TestNode& node = rig.emulator().test();
    node.ResetStats();
    node.StartDownlink(downlink.block_size, downlink.bytes_per_s);
    Result<ProcessResult> run = rig.Run(reader);
    node.StopDownlink();
    if (!run.ok()) return run.error();
    const TestNode::Downlink down = node.downlink();
    if (run->status != 0) return Error() << reader[0] << " failed: " << run->output;
    return RateOf(down.reads, down.bytes, down.span);
}

Result<TputReport> MeasureTput(Rig& rig, const DownlinkSettings& downlink,
                               const TputProgressListener& listener) {
    if (!rig.log_events().Wait(IsDaemonStarted, kDefaultWait)) {
        return Error() << "the daemon did not start";
    }
    rig.SetModemState(kModemOnline);
    if (!rig.log_events().Wait(IsOnlineReport, kDefaultWait)) {
        return Error() << "the daemon did not see the modem online";
    }
    if (Result<void> ran = RunDaemonTest(rig, listener); !ran.ok()) return ran.error();

    TputReport report;
    report.block_size = downlink.block_size;
    report.bytes_per_s = downlink.bytes_per_s;
    for (const LogLine& line : rig.logs()) {
        if (std::optional<double> gbps = ParseSampleLine(line.text)) {
            report.samples_gbps.push_back(*gbps);
        }
        if (std::optional<TputResultLine> result = ParseResultLine(line.text)) {
            report.average_gbps = result->average_gbps;
            report.max_gbps = result->max_gbps;
            report.result_line = line.text;
        }
    }
    TestNode& node = rig.emulator().test();
    const TestNode::Downlink down = node.downlink();
    report.monitor = RateOf(down.reads, down.bytes, down.span);
    const TestNode::Uplink up = node.uplink();
    report.pump = RatesBySize(up);
    report.pump_failed = up.failed;

    if (listener) listener({.phase = TputPhase::kBareRuns});
    const uint64_t reads = std::clamp<uint64_t>(down.reads / 5, 50, 20000);
    Result<NodeRate> bare_reader = MeasureNodeReads(
        rig, downlink,
        {"/usr/bin/dd", "if=/dev/oem_test", "of=/dev/null", fmt::format("bs={}", kLargestMessage),
         fmt::format("count={}", reads), "status=none"});
    if (!bare_reader.ok()) return bare_reader.error();
    report.bare_reader = *bare_reader;
    report.bare_writer = MeasureBareWriter(rig);
    report.bare_writer_again = MeasureBareWriter(rig);
    return report;
}

}  // namespace tarvo_emu
