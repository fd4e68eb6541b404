// live.latency: how long a message that the daemon writes on the node takes to reach Wireshark as
// a packet in the fifo of `tarvo-emu extcap`: the packet's own time (the write, as the rig or
// strace stamped it) against the moment the fifo's reader has the whole packet. The rig path
// plays a soak in the extcap's rig; the device path straces the daemon of a rig of ours, the
// command that stands in for `adb shell strace ...` on a phone.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <android-base/stringprintf.h>
#include <android-base/unique_fd.h>

#include "bench_figures.h"
#include "bench_rig.h"
#include "process/child_process.h"

using android::base::Error;
using android::base::Result;
using android::base::StringPrintf;

namespace tarvo_bench {

namespace {

constexpr char kTarvoEmu[] = TARVO_BINARY_DIR "/tarvo-emu";
constexpr char kSoakSeed[] = "1";
constexpr double kP99GoalMs = 50;
constexpr std::chrono::seconds kPacketsTimeout{120};
constexpr std::chrono::milliseconds kPollEvery{100};
constexpr std::chrono::seconds kExtcapEnd{30};
// The round trips sent at a time while the device path waits for its packets.
constexpr uint64_t kDeviceBatch = 50;
// pcapng: the Enhanced Packet Block, its flags option, and the flags' direction bits.
constexpr uint32_t kEnhancedPacket = 6;
constexpr uint16_t kOptionEnd = 0;
constexpr uint16_t kOptionFlags = 2;
constexpr uint32_t kDirectionMask = 3;
constexpr uint32_t kOutbound = 2;
constexpr size_t kBlockHeader = 8;
constexpr size_t kPacketHeader = 20;

uint32_t Get32(const std::string& bytes, size_t at) {
    uint32_t value;
    memcpy(&value, bytes.data() + at, sizeof(value));
    return value;
}

uint16_t Get16(const std::string& bytes, size_t at) {
    uint16_t value;
    memcpy(&value, bytes.data() + at, sizeof(value));
    return value;
}

size_t Padded(size_t size) { return (size + 3) & ~size_t{3}; }

// Reads the pcapng stream of a fifo on a thread of its own and keeps, for every packet of the
// daemon's writes, the milliseconds from its time stamp to its arrival.
class FifoLatencies {
  public:
    explicit FifoLatencies(std::string path) : path_(std::move(path)) {
        reader_ = std::thread([this] { Read(); });
    }
    ~FifoLatencies() {
        stop_ = true;
        reader_.join();
    }

    // Waits until `count` packets came; false when they did not in time.
    bool WaitFor(size_t count, std::chrono::milliseconds timeout) {
        std::unique_lock<std::mutex> lock(mutex_);
        return arrived_.wait_for(lock, timeout, [&] { return latencies_.size() >= count; });
    }
    size_t count() {
        std::lock_guard<std::mutex> lock(mutex_);
        return latencies_.size();
    }
    std::vector<double> latencies() {
        std::lock_guard<std::mutex> lock(mutex_);
        return latencies_;
    }

  private:
    void Read() {
        // Not blocking, so that an extcap that never opens the fifo does not hold this thread.
        android::base::unique_fd fd(open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        if (fd.get() < 0) return;
        std::string pending;
        char buffer[65536];
        while (!stop_) {
            pollfd readable = {.fd = fd.get(), .events = POLLIN, .revents = 0};
            if (poll(&readable, 1, kPollEvery.count()) <= 0) continue;
            const ssize_t size = read(fd.get(), buffer, sizeof(buffer));
            if (size <= 0) {
                if (size == 0 && (readable.revents & POLLHUP)) return;
                continue;
            }
            const double now =
                std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
                    .count();
            pending.append(buffer, size);
            TakeBlocks(&pending, now);
        }
    }

    // Takes the whole blocks at the front of `pending`, which came at `now`.
    void TakeBlocks(std::string* pending, double now) {
        size_t at = 0;
        while (pending->size() - at >= kBlockHeader) {
            const uint32_t length = Get32(*pending, at + 4);
            if (length < kBlockHeader || pending->size() - at < length) break;
            if (Get32(*pending, at) == kEnhancedPacket) {
                std::optional<double> stamp = DaemonWriteTime(pending->substr(at, length));
                if (stamp) {
                    std::lock_guard<std::mutex> lock(mutex_);
                    latencies_.push_back((now - *stamp) * 1e3);
                    arrived_.notify_all();
                }
            }
            at += length;
        }
        pending->erase(0, at);
    }

    // The time of a packet of the daemon's writes (outbound, with bytes); none for the others.
    static std::optional<double> DaemonWriteTime(const std::string& block) {
        if (block.size() < kBlockHeader + kPacketHeader + 4) return std::nullopt;
        const uint64_t micros = (uint64_t{Get32(block, 12)} << 32) | Get32(block, 16);
        const uint32_t captured = Get32(block, 20);
        size_t at = kBlockHeader + kPacketHeader + Padded(captured);
        while (captured > 0 && at + 4 <= block.size() - 4) {
            const uint16_t code = Get16(block, at);
            const uint16_t size = Get16(block, at + 2);
            if (code == kOptionEnd) break;
            if (code == kOptionFlags && size == 4 &&
                (Get32(block, at + 4) & kDirectionMask) == kOutbound) {
                return static_cast<double>(micros) / 1e6;
            }
            at += 4 + Padded(size);
        }
        return std::nullopt;
    }

    const std::string path_;
    std::atomic<bool> stop_ = false;
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::vector<double> latencies_;
    std::thread reader_;
};

double Percentile(std::vector<double> values, double share) {
    std::sort(values.begin(), values.end());
    const size_t index = static_cast<size_t>(std::ceil(share * values.size())) - 1;
    return values[std::min(index, values.size() - 1)];
}

// A capture of `tarvo-emu extcap` with `options`, to a fifo of its own, read by FifoLatencies.
class ExtcapCapture {
  public:
    static Result<std::unique_ptr<ExtcapCapture>> Start(const std::vector<std::string>& options) {
        std::unique_ptr<ExtcapCapture> capture(new ExtcapCapture());
        char directory[] = "/tmp/tarvo-bench-live-XXXXXX";
        if (mkdtemp(directory) == nullptr) return android::base::ErrnoError() << "mkdtemp";
        capture->directory_ = directory;
        const std::string fifo = capture->directory_ + "/fifo";
        if (mkfifo(fifo.c_str(), 0600) != 0) return android::base::ErrnoError() << "mkfifo";
        capture->packets_ = std::make_unique<FifoLatencies>(fifo);
        std::vector<std::string> argv = {kTarvoEmu, "extcap", "--capture", "--fifo", fifo};
        argv.insert(argv.end(), options.begin(), options.end());
        // A sanitized build's options go along, as the sandbox passes them to the daemon: without
        // them, reports that the suite's options leave out interleave with the daemon's log.
        std::vector<std::string> env = {"PATH=/usr/bin:/bin"};
        for (const auto& [name, value] : tarvo_emu::BuildToolEnvironment()) {
            env.push_back(name + "=" + value);
        }
        Result<std::unique_ptr<tarvo_emu::ChildProcess>> child =
            tarvo_emu::ChildProcess::Start(argv, {.env = std::move(env), .separate_stderr = true});
        if (!child.ok()) return child.error();
        capture->extcap_ = std::move(*child);
        return capture;
    }

    ~ExtcapCapture() {
        if (extcap_) Stop();
        packets_.reset();
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
    }

    FifoLatencies& packets() { return *packets_; }
    // What the extcap said on stderr, once stopped.
    std::string errors() {
        Stop();
        return extcap_->errors();
    }

  private:
    ExtcapCapture() = default;

    // Stops the capture as Wireshark does, and waits for the extcap's end.
    void Stop() {
        if (stopped_) return;
        stopped_ = true;
        kill(extcap_->pid(), SIGTERM);
        (void)extcap_->Wait(kExtcapEnd);
    }

    bool stopped_ = false;
    std::string directory_;
    std::unique_ptr<FifoLatencies> packets_;
    std::unique_ptr<tarvo_emu::ChildProcess> extcap_;
};

Figures LatencyFigures(const std::string& path, const std::vector<double>& latencies,
                       const std::string& note) {
    Figure p50 = Info("live.latency." + path + ".p50", "ms", Percentile(latencies, 0.5), note);
    Figure p99 =
        ValueAtMost("live.latency." + path + ".p99", "ms", Percentile(latencies, 0.99), kP99GoalMs);
    p99.note = note;
    return std::vector<Figure>{p50, p99};
}

Figures RigLatency(uint64_t messages) {
    Result<std::unique_ptr<ExtcapCapture>> capture =
        ExtcapCapture::Start({"--extcap-interface", "tarvo-rig", "--soak-seed", kSoakSeed});
    if (!capture.ok()) return capture.error();
    if (!(*capture)->packets().WaitFor(messages, kPacketsTimeout)) {
        return Error() << "tarvo-rig: " << (*capture)->packets().count() << " of " << messages
                       << " packets came; it said: " << (*capture)->errors();
    }
    std::vector<double> latencies = (*capture)->packets().latencies();
    latencies.resize(messages);
    return LatencyFigures(
        "rig", latencies,
        StringPrintf("the first %llu messages that the daemon writes in a soak (seed %s) played "
                     "by the tarvo-rig interface",
                     static_cast<unsigned long long>(messages), kSoakSeed));
}

Figures DeviceLatency(uint64_t messages) {
    Result<std::unique_ptr<BenchRig>> bench = BenchRig::Create();
    if (!bench.ok()) return bench.error();
    if (Result<void> started = (*bench)->StartDaemon(); !started.ok()) return started.error();
    const std::optional<pid_t> pid = (*bench)->daemon_pid();
    if (!pid) return Error() << "the daemon's pid is not known";
    // The strace line of the capture guide, run here instead of on a phone.
    const std::string command = StringPrintf(
        "strace -f -ttt -y -xx -s 70000 -e trace=read,write,ioctl -P /dev/oem_ipc1 "
        "-P /dev/umts_boot0 -o /proc/self/fd/1 -p %d",
        *pid);
    Result<std::unique_ptr<ExtcapCapture>> capture =
        ExtcapCapture::Start({"--extcap-interface", "tarvo-device", "--device-command", command});
    if (!capture.ok()) return capture.error();
    FifoLatencies& packets = (*capture)->packets();
    const auto deadline = std::chrono::steady_clock::now() + kPacketsTimeout;
    // Round trips until as many answers came as packets: those before strace attached come
    // nowhere.
    uint64_t sent = 0;
    while (packets.count() < messages) {
        if (std::chrono::steady_clock::now() > deadline) {
            return Error() << "tarvo-device: " << packets.count() << " of " << messages
                           << " packets came; it said: " << (*capture)->errors();
        }
        Result<double> played =
            (*bench)->RoundTrips(kDeviceBatch, [&](uint64_t, std::string* bytes) {
                *bytes = PropertyRead(kFirstToken + static_cast<uint32_t>(sent++ % 0x3000));
            });
        if (!played.ok()) return Error() << "daemon: " << played.error();
        packets.WaitFor(messages, kPollEvery);
    }
    std::vector<double> latencies = packets.latencies();
    latencies.resize(messages);
    return LatencyFigures(
        "device", latencies,
        StringPrintf(
            "the first %llu answers to property reads after strace attached, its lines read "
            "by the tarvo-device interface",
            static_cast<unsigned long long>(messages)));
}

}  // namespace

Figures LiveLatencyFigures(const BenchSettings& settings) {
    Figures rig = RigLatency(settings.live_messages);
    if (!rig.ok()) return rig.error();
    Figures device = DeviceLatency(settings.live_messages);
    if (!device.ok()) return device.error();
    rig->insert(rig->end(), device->begin(), device->end());
    return rig;
}

}  // namespace tarvo_bench
