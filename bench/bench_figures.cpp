#include "bench_figures.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>
#include <thread>

#include <google/protobuf/text_format.h>

#include <android-base/file.h>
#include <android-base/parsedouble.h>
#include <android-base/parseint.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>

#include "bench_rig.h"
#include "device/device_facts.h"
#include "measure/tput_measurement.h"
#include "process/process_usage.h"
#include "proto/tarvo_message.pb.h"
#include "rig/rig.h"

using android::base::Error;
using android::base::Result;
using android::base::StringAppendF;
using android::base::StringPrintf;
using tarvo_message::TarvoMessage;

namespace tarvo_bench {

namespace {

constexpr uint64_t kMiB = 1 << 20;
constexpr uint64_t kBlock = 64 * 1024;
// Where the benchmark's file transfers go, and where the daemon stages them.
std::string TargetPath(const std::string& name) {
    return std::string(tarvo_emu::kMdsDirectory) + "/" + name;
}
std::string StagingPath(const std::string& name) {
    return std::string(tarvo_emu::kStagingDirectory) + "/" + name;
}

// The write requests of one file, block after block. Each block is the same random bytes with
// its number in front, so that a block out of place shows in the target. They carry no token:
// with one, a full block of a 256 MiB file would not fit in the largest message the daemon
// reads, and responses are counted, not matched.
class FileBlocks {
  public:
    FileBlocks(const std::string& name, uint64_t size) : size_(size) {
        message_.set_type(tarvo_message::REQUEST);
        auto* write = message_.mutable_file()->mutable_write_request();
        write->set_file_name(name);
        write->set_file_dir(tarvo_message::FILE_DIR_MDS);
        write->set_total_size(static_cast<uint32_t>(size));
        std::string data(std::min(kBlock, size), '\0');
        std::mt19937 random(static_cast<uint32_t>(size));
        for (char& c : data) c = static_cast<char>(random());
        write->set_data(std::move(data));
    }

    uint64_t count() const { return (size_ + kBlock - 1) / kBlock; }

    void Make(uint64_t i, std::string* bytes) {
        auto* write = message_.mutable_file()->mutable_write_request();
        write->set_offset(static_cast<uint32_t>(i * kBlock));
        std::string* data = write->mutable_data();
        data->resize(std::min(kBlock, size_ - i * kBlock));
        memcpy(data->data(), &i, std::min(sizeof(i), data->size()));
        message_.SerializeToString(bytes);
    }

  private:
    uint64_t size_;
    TarvoMessage message_;
};

// The two steps that the daemon's reader takes for every message besides its read: a select, and
// a status query of the boot node.
const std::vector<std::string> kReaderSteps = {"--select", "--status"};

Result<double> EchoRoundTrips(BenchRig& bench, const std::string& response,
                              const std::vector<std::string>& steps, uint64_t count,
                              const MessageMaker& make) {
    if (Result<void> started = bench.StartEcho(response, steps); !started.ok()) {
        return started.error();
    }
    Result<double> seconds = bench.RoundTrips(count, make);
    bench.StopPeer();
    if (!seconds.ok()) return Error() << "echo peer: " << seconds.error();
    return seconds;
}

// Nanoseconds on a processor of every thread of every process in the group `pgid` so far.
uint64_t GroupCpuNs(pid_t pgid);

// Round trips through the steps peer, whose last answer must be the daemon's `expected`; adds
// the peer's processor time to `cpu_ns`.
Result<double> StepsRoundTrips(BenchRig& bench, const std::string& expected, uint64_t count,
                               const MessageMaker& make, uint64_t* cpu_ns) {
    if (Result<void> started = bench.StartSteps(); !started.ok()) return started.error();
    const uint64_t before = GroupCpuNs(bench.peer_group());
    Result<double> seconds = bench.RoundTrips(count, make);
    *cpu_ns += GroupCpuNs(bench.peer_group()) - before;
    const std::string last = bench.responses().last();
    bench.StopPeer();
    if (!seconds.ok()) return Error() << "steps peer: " << seconds.error();
    if (last != expected) return Error() << "the steps peer's answers are not the daemon's";
    return seconds;
}

// Sends a whole file through whoever serves the node; the seconds it took.
Result<double> Transfer(BenchRig& bench, const std::string& name, uint64_t size) {
    FileBlocks blocks(name, size);
    return bench.RoundTrips(blocks.count(),
                            [&blocks](uint64_t i, std::string* bytes) { blocks.Make(i, bytes); });
}

// Checks what a transfer through the daemon left: the whole target, no staging file. Removes the
// target, so that the next transfer starts clean and the disk does not fill.
Result<void> CheckAndRemoveTarget(BenchRig& bench, const std::string& name, uint64_t size) {
    std::error_code ec;
    const std::string host = *bench.rig().sandbox().HostPath(TargetPath(name));
    const uintmax_t arrived = std::filesystem::file_size(host, ec);
    if (ec || arrived != size) {
        return Error() << name << ": " << arrived << " bytes arrived of " << size;
    }
    if (bench.rig().FileMode(StagingPath(name)).ok()) {
        return Error() << name << ": staging file left";
    }
    return bench.rig().RemoveFile(TargetPath(name));
}

// Whole-process figures of a running process, from /proc.
Result<uint64_t> CpuTicks(pid_t pid) {
    std::string stat;
    if (!android::base::ReadFileToString(StringPrintf("/proc/%d/stat", pid), &stat)) {
        return Error() << "no process " << pid;
    }
    // Fields after the command, which may hold spaces: state is the 3rd, utime the 14th.
    const std::vector<std::string> fields =
        android::base::Split(stat.substr(stat.rfind(')') + 2), " ");
    uint64_t utime;
    uint64_t stime;
    if (fields.size() < 13 || !android::base::ParseUint(fields[11], &utime) ||
        !android::base::ParseUint(fields[12], &stime)) {
        return Error() << "cannot read /proc/" << pid << "/stat";
    }
    return utime + stime;
}

// Nanoseconds on a processor of every thread of `pid` so far.
uint64_t CpuNs(pid_t pid) {
    uint64_t total = 0;
    std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(StringPrintf("/proc/%d/task", pid).c_str()),
                                            closedir);
    if (!dir) return 0;
    while (dirent* entry = readdir(dir.get())) {
        std::string stat;
        uint64_t ns;
        if (entry->d_name[0] == '.' ||
            !android::base::ReadFileToString(
                StringPrintf("/proc/%d/task/%s/schedstat", pid, entry->d_name), &stat) ||
            !android::base::ParseUint(stat.substr(0, stat.find(' ')), &ns)) {
            continue;
        }
        total += ns;
    }
    return total;
}

uint64_t GroupCpuNs(pid_t pgid) {
    uint64_t total = 0;
    std::unique_ptr<DIR, int (*)(DIR*)> proc(opendir("/proc"), closedir);
    if (!proc || pgid == 0) return 0;
    while (dirent* entry = readdir(proc.get())) {
        pid_t pid;
        std::string stat;
        if (!android::base::ParseInt(entry->d_name, &pid) ||
            !android::base::ReadFileToString(StringPrintf("/proc/%d/stat", pid), &stat)) {
            continue;
        }
        // After the command, which may hold spaces: state, parent, then the process group.
        const std::vector<std::string> fields =
            android::base::Split(stat.substr(stat.rfind(')') + 2), " ");
        pid_t group;
        if (fields.size() > 2 && android::base::ParseInt(fields[2], &group) && group == pgid) {
            total += CpuNs(pid);
        }
    }
    return total;
}

// Runs `measure` and adds the processor time that the daemon spent meanwhile to `cpu_ns`.
Result<double> WithDaemonCpu(BenchRig& bench, uint64_t* cpu_ns,
                             const std::function<Result<double>()>& measure) {
    const std::optional<pid_t> pid = bench.daemon_pid();
    const auto cpu = [&pid]() -> uint64_t { return pid ? CpuNs(*pid) : 0; };
    const uint64_t before = cpu();
    Result<double> seconds = measure();
    *cpu_ns += cpu() - before;
    return seconds;
}

Result<pid_t> DaemonPid(BenchRig& bench) {
    const std::optional<pid_t> pid = bench.daemon_pid();
    if (!pid) return Error() << "the daemon's pid is unknown";
    return *pid;
}

}  // namespace

std::string PropertyRead(uint32_t token) {
    TarvoMessage message;
    message.set_type(tarvo_message::REQUEST);
    message.set_token(token);
    message.mutable_property()->mutable_read_request()->set_name("persist.vendor.radio.bench");
    return message.SerializeAsString();
}

BenchSettings BenchSettings::Smoke() {
    BenchSettings smoke;
    smoke.micro_rounds = 1;
    smoke.micro_min_time_s = 0.01;
    smoke.rounds = 1;
    smoke.round_trips = 50;
    smoke.transfer_mib = 1;
    smoke.linearity_mib = {1, 2};
    smoke.downlink = false;
    smoke.idle_s = 1;
    smoke.soak_early = 120;
    smoke.soak_messages = 600;
    smoke.decode_blocks = 4;
    smoke.soak_scaling_s = 2;
    smoke.live_messages = 20;
    return smoke;
}

Figures MicroFigures(const BenchSettings& settings) {
    tarvo_emu::Rig rig({.start_daemon = false}, {.keep_logs = false});
    if (Result<void> started = rig.Start(); !started.ok()) return started.error();
    constexpr char kOut[] = "/data/micro_bench.tsv";
    const Result<tarvo_emu::ProcessResult> result = rig.Run(
        {BenchBinary("tarvo-micro-bench"), "--rounds", std::to_string(settings.micro_rounds),
         "--min-time", StringPrintf("%g", settings.micro_min_time_s), "--out", kOut},
        std::chrono::minutes(30));
    if (!result.ok()) return Error() << "micro benchmarks: " << result.error();
    Result<std::string> tsv = rig.ReadFile(kOut);
    if (result->status != 0 || !tsv.ok()) return Error() << "micro benchmarks: " << result->output;

    std::vector<Figure> figures;
    for (const std::string& line : android::base::Split(*tsv, "\n")) {
        const std::vector<std::string> fields = android::base::Split(line, "\t");
        double value = 0;
        double floor = 0;
        if (fields.size() == 4 && fields[0] == "pair" &&
            android::base::ParseDouble(fields[2], &value) &&
            android::base::ParseDouble(fields[3], &floor)) {
            figures.push_back(RatioAtMost("micro." + fields[1], "ns", value, floor, 2));
        } else if (fields.size() == 3 && fields[0] == "info" &&
                   android::base::ParseDouble(fields[2], &value)) {
            figures.push_back(Info("micro." + fields[1], "ns", value));
        } else if (fields.size() == 2 && fields[0] == "warning") {
            return Error() << "micro benchmarks: " << fields[1];
        }
    }
    if (figures.empty()) return Error() << "micro benchmarks printed no figures";

    // The dispatch against bare protobuf with the two steps it cannot skip: the property lookup
    // and the two log lines.
    const auto value_of = [&figures](const std::string& name, bool floor) {
        for (const Figure& figure : figures) {
            if (figure.name == name) return floor ? figure.floor : figure.value;
        }
        return kNone;
    };
    const double dispatch = value_of("micro.dispatch.property_read", false);
    const double required = value_of("micro.dispatch.property_read", true) +
                            value_of("micro.dispatch.property_read.share.property_lookup", false) +
                            value_of("micro.dispatch.property_read.share.log_lines", false);
    const double bare = value_of("micro.dispatch.property_read", true);
    figures.push_back(RatioInfo(
        "micro.dispatch.property_read.vs_steps", "ns", dispatch, required,
        StringPrintf("floor: bare protobuf, the property lookup and the two log lines; those "
                     "steps alone are %.2f times bare protobuf",
                     required / bare)));

    return figures;
}

Figures RoundTripFigures(const BenchSettings& settings) {
    Result<std::unique_ptr<BenchRig>> bench = BenchRig::Create();
    if (!bench.ok()) return bench.error();
    const auto make = [](uint64_t i, std::string* bytes) {
        *bytes = PropertyRead(kFirstToken + static_cast<uint32_t>(i % 0x3000));
    };
    double daemon_s = 0;
    double echo_s = 0;
    double stepped_s = 0;
    double steps_s = 0;
    uint64_t cpu_ns = 0;
    uint64_t steps_cpu_ns = 0;
    for (int round = 0; round < settings.rounds; ++round) {
        if (Result<void> started = (*bench)->StartDaemon(); !started.ok()) return started.error();
        Result<double> daemon = WithDaemonCpu(
            **bench, &cpu_ns, [&] { return (*bench)->RoundTrips(settings.round_trips, make); });
        if (!daemon.ok()) return Error() << "daemon: " << daemon.error();
        daemon_s += *daemon;
        // The peer answers with the daemon's own answer, byte for byte.
        const std::string response = (*bench)->responses().last();
        (*bench)->StopDaemon();

        Result<double> echo = EchoRoundTrips(**bench, response, {}, settings.round_trips, make);
        if (!echo.ok()) return echo.error();
        echo_s += *echo;
        Result<double> stepped =
            EchoRoundTrips(**bench, response, kReaderSteps, settings.round_trips, make);
        if (!stepped.ok()) return stepped.error();
        stepped_s += *stepped;
        Result<double> steps =
            StepsRoundTrips(**bench, response, settings.round_trips, make, &steps_cpu_ns);
        if (!steps.ok()) return steps.error();
        steps_s += *steps;
    }
    const double reads = static_cast<double>(settings.round_trips) * settings.rounds;
    Figure figure =
        RatioAtLeast("roundtrip.property_read", "reads/s", reads / daemon_s, reads / echo_s, 0.8);
    figure.note = StringPrintf(
        "%.0f us per read through the daemon (its own processor time %.0f us), %.0f us through "
        "the echo peer",
        daemon_s / reads * 1e6, cpu_ns / reads / 1e3, echo_s / reads * 1e6);
    Figure stepped = RatioInfo(
        "roundtrip.property_read.vs_reader_steps", "reads/s", reads / daemon_s, reads / stepped_s,
        StringPrintf("floor: echo peer that also selects and asks the modem state per message, as "
                     "the daemon's reader does: %.0f us per read",
                     stepped_s / reads * 1e6));
    Figure steps = RatioAtLeast("roundtrip.property_read.vs_steps", "reads/s", reads / daemon_s,
                                reads / steps_s, 0.9);
    steps.note = StringPrintf(
        "floor: a peer making the daemon's required calls per read: %.0f us per read; processor "
        "time per read: daemon %.1f us, peer %.1f us",
        steps_s / reads * 1e6, cpu_ns / reads / 1e3, steps_cpu_ns / reads / 1e3);
    return std::vector<Figure>{figure, stepped, steps};
}

Figures FileTransferFigures(const BenchSettings& settings) {
    Result<std::unique_ptr<BenchRig>> bench = BenchRig::Create();
    if (!bench.ok()) return bench.error();
    const uint64_t size = settings.transfer_mib * kMiB;
    double daemon_s = 0;
    double echo_s = 0;
    double write_s = 0;
    double stepped_s = 0;
    double steps_s = 0;
    uint64_t cpu_ns = 0;
    uint64_t steps_cpu_ns = 0;
    for (int round = 0; round < settings.rounds; ++round) {
        if (Result<void> started = (*bench)->StartDaemon(); !started.ok()) return started.error();
        Result<double> daemon =
            WithDaemonCpu(**bench, &cpu_ns, [&] { return Transfer(**bench, "b", size); });
        if (!daemon.ok()) return Error() << "daemon: " << daemon.error();
        if (Result<void> checked = CheckAndRemoveTarget(**bench, "b", size); !checked.ok()) {
            return checked.error();
        }
        daemon_s += *daemon;
        const std::string response = (*bench)->responses().last();
        (*bench)->StopDaemon();

        FileBlocks blocks("b", size);
        const auto make = [&blocks](uint64_t i, std::string* bytes) { blocks.Make(i, bytes); };
        Result<double> echo = EchoRoundTrips(**bench, response, {}, blocks.count(), make);
        if (!echo.ok()) return echo.error();
        echo_s += *echo;
        Result<double> stepped =
            EchoRoundTrips(**bench, response, kReaderSteps, blocks.count(), make);
        if (!stepped.ok()) return stepped.error();
        stepped_s += *stepped;
        Result<double> steps =
            StepsRoundTrips(**bench, response, blocks.count(), make, &steps_cpu_ns);
        if (!steps.ok()) return steps.error();
        if (Result<void> checked = CheckAndRemoveTarget(**bench, "b", size); !checked.ok()) {
            return Error() << "steps peer: " << checked.error();
        }
        steps_s += *steps;

        Result<double> written = (*bench)->PlainWrite(TargetPath("plain"), size, kBlock);
        if (!written.ok()) return written.error();
        write_s += *written;
    }
    const double mib = static_cast<double>(settings.transfer_mib) * settings.rounds;
    const std::string name = StringPrintf("file_transfer.%lluMiB",
                                          static_cast<unsigned long long>(settings.transfer_mib));
    Figure figure = RatioAtLeast(name, "MiB/s", mib / daemon_s, mib / (echo_s + write_s), 0.67);
    const double blocks = mib * kMiB / kBlock;
    figure.note = StringPrintf(
        "per 64 KiB block: daemon %.0f us (its own processor time %.0f us); floor %.0f us = echo "
        "%.0f us + plain write %.0f us",
        daemon_s / blocks * 1e6, cpu_ns / blocks / 1e3, (echo_s + write_s) / blocks * 1e6,
        echo_s / blocks * 1e6, write_s / blocks * 1e6);
    Figure stepped = RatioInfo(
        name + ".vs_reader_steps", "MiB/s", mib / daemon_s, mib / (stepped_s + write_s),
        StringPrintf("floor: echo peer with the reader's select and status query (%.0f us per "
                     "block) + plain write",
                     stepped_s / blocks * 1e6));
    Figure steps = RatioAtLeast(name + ".vs_steps", "MiB/s", mib / daemon_s, mib / steps_s, 0.9);
    steps.note = StringPrintf(
        "floor: a peer making the daemon's required calls per block and the final copy: %.0f us "
        "per block; processor time per block: daemon %.0f us, peer %.0f us",
        steps_s / blocks * 1e6, cpu_ns / blocks / 1e3, steps_cpu_ns / blocks / 1e3);
    return std::vector<Figure>{figure, stepped, steps};
}

Figures LinearityFigures(const BenchSettings& settings) {
    Result<std::unique_ptr<BenchRig>> bench = BenchRig::Create();
    if (!bench.ok()) return bench.error();
    if (Result<void> started = (*bench)->StartDaemon(); !started.ok()) return started.error();
    // Best of the rounds for each size; the sizes take turns.
    std::vector<double> per_mib(settings.linearity_mib.size(), 1e9);
    std::vector<double> cpu_per_mib(settings.linearity_mib.size(), 1e9);
    for (int round = 0; round < 2; ++round) {
        for (size_t i = 0; i < settings.linearity_mib.size(); ++i) {
            const uint64_t size = settings.linearity_mib[i] * kMiB;
            uint64_t cpu_ns = 0;
            Result<double> seconds =
                WithDaemonCpu(**bench, &cpu_ns, [&] { return Transfer(**bench, "l", size); });
            if (!seconds.ok()) return seconds.error();
            if (Result<void> checked = CheckAndRemoveTarget(**bench, "l", size); !checked.ok()) {
                return checked.error();
            }
            per_mib[i] = std::min(per_mib[i], *seconds * 1e3 / settings.linearity_mib[i]);
            cpu_per_mib[i] = std::min(cpu_per_mib[i], cpu_ns / 1e6 / settings.linearity_mib[i]);
        }
    }
    std::vector<Figure> figures;
    for (size_t i = 0; i < per_mib.size(); ++i) {
        figures.push_back(
            Info(StringPrintf("file_transfer.linearity.%lluMiB",
                              static_cast<unsigned long long>(settings.linearity_mib[i])),
                 "ms/MiB", per_mib[i],
                 StringPrintf("the daemon's own processor time %.2f ms/MiB", cpu_per_mib[i])));
    }
    const auto [fastest, slowest] = std::minmax_element(per_mib.begin(), per_mib.end());
    Figure figure = RatioAtMost("file_transfer.linearity", "ms/MiB", *slowest, *fastest, 1.2);
    figure.note = "slowest size's time per MiB against the fastest's";
    figures.push_back(figure);
    return figures;
}

// The rate of `reads` reads of the test node by a plain loop in `rig`'s sandbox that selects
// before each read (and clears its buffer first with `clear`), the node streaming blocks of
// `block_size` as fast as they are read.
Result<double> SelectReadRate(tarvo_emu::Rig& rig, uint64_t block_size, uint64_t reads,
                              bool clear) {
    std::vector<std::string> command = {BenchBinary("tarvo-bench-peer"), "read", "/dev/oem_test",
                                        std::to_string(reads), "--select"};
    if (clear) command.push_back("--clear");
    Result<tarvo_emu::NodeRate> rate = MeasureNodeReads(rig, {.block_size = block_size}, command);
    if (!rate.ok()) return Error() << "select reader: " << rate.error().message();
    if (rate->seconds <= 0) return Error() << "select reader: no time between its reads";
    return rate->bytes_per_s();
}

using NodeRates = std::map<uint64_t, tarvo_emu::NodeRate>;

// `value` against `floor`, two uplink rate maps keyed by block size: the figure `name` is the
// block size where the ratio is lowest (held against `bound` unless it is not a number), and
// `name`.whole_schedule adds every size's time up on each side, so that one size caught by a
// busy moment weighs only its share.
void UplinkFigures(const std::string& name, const char* sides, const NodeRates& value,
                   const NodeRates& floor, double bound, std::vector<Figure>* figures) {
    std::map<uint64_t, Figure> by_size;
    for (const auto& [bytes, rate] : value) {
        const auto floor_rate = floor.find(bytes);
        if (bytes == tarvo_emu::UplinkSchedule::kOpeningWrite || floor_rate == floor.end())
            continue;
        const double mb_s = rate.bytes_per_s() / 1e6;
        const double floor_mb_s = floor_rate->second.bytes_per_s() / 1e6;
        if (!std::isfinite(mb_s) || !std::isfinite(floor_mb_s)) continue;
        by_size[bytes] = std::isnan(bound) ? RatioInfo(name, "MB/s", mb_s, floor_mb_s, "")
                                           : RatioAtLeast(name, "MB/s", mb_s, floor_mb_s, bound);
    }
    Figure lowest = Pending(name, "MB/s", std::isnan(bound) ? "" : StringPrintf(">= %g", bound),
                            "no uplink rates");
    std::string ratios;
    uint64_t lowest_at = 0;
    double value_s = 0;
    double floor_s = 0;
    double total = 0;
    for (const auto& [bytes, at] : by_size) {
        StringAppendF(&ratios, "%s%llu: %.2f", ratios.empty() ? "" : ", ",
                      static_cast<unsigned long long>(bytes), at.ratio);
        if (std::isnan(lowest.ratio) || at.ratio < lowest.ratio) {
            lowest = at;
            lowest_at = bytes;
        }
        const double moved =
            static_cast<double>(bytes) * tarvo_emu::UplinkSchedule::kWritesPerSize / 1e6;
        value_s += moved / at.value;
        floor_s += moved / at.floor;
        total += moved;
    }
    if (lowest_at != 0) {
        lowest.note =
            StringPrintf("lowest at %llu-byte blocks; %s by block size: %s",
                         static_cast<unsigned long long>(lowest_at), sides, ratios.c_str());
    }
    figures->push_back(lowest);
    if (!by_size.empty()) {
        figures->push_back(RatioInfo(name + ".whole_schedule", "MB/s", total / value_s,
                                     total / floor_s,
                                     "every block size's time added up on each side"));
    }
}

Figures DownlinkFigures(const BenchSettings& settings) {
    const std::string goal = ">= 0.9";
    if (!settings.downlink) {
        return std::vector<Figure>{
            Pending("downlink.monitor_read_rate", "MB/s", goal, "not run in the smoke run"),
            Pending("uplink.pump.vs_bare_writer", "MB/s", goal, "not run in the smoke run")};
    }
    // What `tarvo-emu tput` measures, and then the select reader in the same rig: the emulator
    // that served the daemon serves its floor.
    const tarvo_emu::DownlinkSettings downlink;
    tarvo_emu::Rig rig(tarvo_emu::TputRigOptions(downlink));
    if (Result<void> started = rig.Start(); !started.ok()) return started.error();
    Result<tarvo_emu::TputReport> measured = tarvo_emu::MeasureTput(rig, downlink);
    if (!measured.ok()) return Error() << "throughput test: " << measured.error().message();
    const tarvo_emu::TputReport& report = *measured;

    const double monitor = report.monitor.bytes_per_s();
    std::vector<Figure> figures;
    Figure figure = RatioAtLeast("downlink.monitor_read_rate", "MB/s", monitor / 1e6,
                                 report.bare_reader.bytes_per_s() / 1e6, 0.9);
    figure.note = "the daemon's monitor against a bare read loop (dd), from one throughput test";
    figures.push_back(figure);

    // As many reads as the monitor made, so that both sides span the same stretch of time.
    const uint64_t reads = std::clamp<uint64_t>(report.monitor.transfers, 1000, 1000000);
    Result<double> selecting = SelectReadRate(rig, downlink.block_size, reads, false);
    if (!selecting.ok()) return selecting.error();
    Figure vs_select = RatioAtLeast("downlink.monitor_read_rate.vs_select_reader", "MB/s",
                                    monitor / 1e6, *selecting / 1e6, 0.9);
    vs_select.note = StringPrintf(
        "floor: a read loop that selects before each read, right after the test in the same rig, "
        "for as many reads (%llu)",
        static_cast<unsigned long long>(reads));
    figures.push_back(vs_select);
    // The same loop with the monitor's other required step: the clear of its buffer.
    Result<double> clearing = SelectReadRate(rig, downlink.block_size, reads, true);
    if (!clearing.ok()) return clearing.error();
    figures.push_back(RatioInfo("downlink.monitor_read_rate.vs_select_clear_reader", "MB/s",
                                monitor / 1e6, *clearing / 1e6,
                                "floor: the selecting loop that also clears its 65,568-byte "
                                "buffer before each read, as the monitor must"));

    // The pump against dd at each block size, and dd's second run against its first: how far
    // one sample strays on this machine, which bounds what the pump's ratio can show.
    UplinkFigures("uplink.pump.vs_bare_writer", "pump / dd", report.pump, report.bare_writer, 0.9,
                  &figures);
    UplinkFigures("uplink.bare_writer.vs_itself", "second dd run / first", report.bare_writer_again,
                  report.bare_writer, NAN, &figures);
    return figures;
}

Figures IdleFigures(const BenchSettings& settings) {
    Result<std::unique_ptr<BenchRig>> bench = BenchRig::Create();
    if (!bench.ok()) return bench.error();
    if (Result<void> started = (*bench)->StartDaemon(); !started.ok()) return started.error();
    Result<pid_t> pid = DaemonPid(**bench);
    if (!pid.ok()) return pid.error();
    // Start-up work (the configuration requests once online) is over well within a second.
    std::this_thread::sleep_for(std::chrono::seconds(1));
    Result<uint64_t> before = CpuTicks(*pid);
    std::this_thread::sleep_for(std::chrono::seconds(settings.idle_s));
    Result<uint64_t> after = CpuTicks(*pid);
    if (!before.ok() || !after.ok()) return Error() << "cannot read the daemon's CPU time";
    Figure figure =
        ValueAtMost("idle.cpu_ticks", "ticks", static_cast<double>(*after - *before), 0);
    figure.note = StringPrintf("user and system ticks (1/%ld s) over %d s, modem online and quiet",
                               sysconf(_SC_CLK_TCK), settings.idle_s);
    return std::vector<Figure>{figure};
}

Figures SoakFigures(const BenchSettings& settings) {
    Result<std::unique_ptr<BenchRig>> bench = BenchRig::Create();
    if (!bench.ok()) return bench.error();
    if (Result<void> started = (*bench)->StartDaemon(); !started.ok()) return started.error();
    Result<pid_t> pid = DaemonPid(**bench);
    if (!pid.ok()) return pid.error();

    // One batch: an indication of every family, a property read and a 4 KiB block of a 16 KiB
    // file, whose every fourth block completes the file and copies it into place.
    constexpr uint64_t kSoakBlock = 4096;
    constexpr uint64_t kBlocksPerFile = 4;
    std::vector<std::string> batch;
    const auto indication = [&batch](const std::string& text) {
        TarvoMessage message;
        message.set_type(tarvo_message::INDICATION);
        google::protobuf::TextFormat::ParseFromString(text, &message);
        message.set_message_id(message.payload_case());
        batch.push_back(message.SerializeAsString());
    };
    indication("modem_stat { report_indication { data: 'rx 1 tx 2\\n' } }");
    indication("extended_log { indication { name: 'soak' data: 'extended log piece\\n' } }");
    indication("userspace_log { indication { log: 'soak line' level: 4 } }");
    indication(
        "file { write_indication { file_name: 'soak_ind' file_dir: 1 total_size: 16 offset: 0 "
        "data: '0123456789abcdef' } }");
    const size_t property_at = batch.size();
    batch.push_back({});
    const size_t block_at = batch.size();
    batch.push_back({});
    TarvoMessage block;
    block.set_type(tarvo_message::REQUEST);
    auto* write = block.mutable_file()->mutable_write_request();
    write->set_file_name("soak");
    write->set_file_dir(tarvo_message::FILE_DIR_MDS);
    write->set_total_size(kSoakBlock * kBlocksPerFile);
    write->set_data(std::string(kSoakBlock, 's'));

    struct Sample {
        uint64_t messages;
        uint64_t rss_kib;
        uint64_t fds;
    };
    std::vector<Sample> samples;
    uint64_t sent = 0;
    uint64_t batches = 0;
    const auto start = std::chrono::steady_clock::now();
    for (uint64_t checkpoint : {settings.soak_early, settings.soak_messages}) {
        while (sent < checkpoint) {
            const uint32_t token = kFirstToken + static_cast<uint32_t>(batches % 0x3000);
            batch[property_at] = PropertyRead(token);
            write->set_offset(static_cast<uint32_t>((batches % kBlocksPerFile) * kSoakBlock));
            block.set_token(token);
            block.SerializeToString(&batch[block_at]);
            if (Result<void> done = (*bench)->Batch(batch, 2); !done.ok()) {
                return Error() << "after " << sent << " messages: " << done.error();
            }
            sent += batch.size();
            ++batches;
        }
        const Result<tarvo_emu::ProcessUsage> usage = tarvo_emu::ReadProcessUsage(*pid);
        if (!usage.ok()) return Error() << "the daemon is gone after " << sent;
        samples.push_back({sent, static_cast<uint64_t>(usage->rss_kib), usage->descriptors});
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if ((*bench)->responses().failures() != 0) {
        return Error() << (*bench)->responses().failures() << " answers reported a failure";
    }

    const Sample& early = samples[0];
    const Sample& late = samples[1];
    std::vector<Figure> figures;
    Figure rss = ValueAtMost("soak.rss_growth", "KiB",
                             static_cast<double>(late.rss_kib) - early.rss_kib, 512);
    rss.note = StringPrintf("resident %llu KiB after %llu messages, %llu KiB after %llu (%.0f s)",
                            static_cast<unsigned long long>(early.rss_kib),
                            static_cast<unsigned long long>(early.messages),
                            static_cast<unsigned long long>(late.rss_kib),
                            static_cast<unsigned long long>(late.messages), seconds);
    figures.push_back(rss);
    Figure fds = ValueAtMost("soak.fd_growth", "fds", static_cast<double>(late.fds) - early.fds, 0);
    fds.note = StringPrintf(
        "%llu open descriptors after %llu messages, %llu after %llu",
        static_cast<unsigned long long>(early.fds), static_cast<unsigned long long>(early.messages),
        static_cast<unsigned long long>(late.fds), static_cast<unsigned long long>(late.messages));
    figures.push_back(fds);
    return figures;
}

}  // namespace tarvo_bench
