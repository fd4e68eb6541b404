#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarvo_emu {

// What the rig knows of the device and the daemon, stated here once. The daemon states the same
// facts in its own code, and the rig does not link it, so that a change on one side alone shows
// in a test instead of passing unnoticed on both.

// How long the rig waits by default for what the daemon does at once: a message, a log line, a
// file. Generous, so that a loaded machine does not fail a test.
inline constexpr std::chrono::milliseconds kDefaultWait{5000};

// The daemon's directories, as a device has them.
inline constexpr char kStagingDirectory[] = "/data/vendor/radio/modem_temp_file";
inline constexpr char kMdsDirectory[] = "/data/vendor/radio/mds";
inline constexpr char kExtendedLogDirectory[] = "/data/vendor/radio/extended_logs";
inline constexpr char kModemStatDirectory[] = "/data/vendor/modem_stat";
inline constexpr char kReplayDirectory[] = "/mnt/vendor/modem_userdata/replay";
inline constexpr char kModemConfigDirectory[] = "/vendor/etc/modem";
inline constexpr char kUecapDirectory[] = "/vendor/firmware/uecapconfig";
// Where a device's linker finds the vendor's libraries, the RIL client library among them.
inline constexpr char kVendorLibraryDirectory[] = "/vendor/lib64";
inline constexpr const char* kDeviceDirectories[] = {
    kStagingDirectory, kMdsDirectory,         kExtendedLogDirectory, kModemStatDirectory,
    kReplayDirectory,  kModemConfigDirectory, kUecapDirectory,       kVendorLibraryDirectory,
};
// The device's directories and every directory above them, each once, parents first.
std::vector<std::string> DeviceTree();
// The file service's directory with the id that a message's file_dir gives it, with its closing
// slash; nothing for an id that names none.
std::optional<std::string> FileDirectory(uint32_t id);

// Where the server writes its pid, for the clients to find it. It is created empty and written
// right after the server's start, and no log line follows: a wait for it polls.
inline constexpr char kPidFile[] = "/data/vendor/radio/tarvo_pid";
// The GNSS coexistence configuration that the daemon reads.
inline constexpr char kGnssBlankingFile[] = "/data/vendor/radio/gnss_blanking.csv";
// The diagnostics' configurations and outputs.
inline constexpr char kStatConfigFile[] = "/data/vendor/radio/modem_stat.conf";
inline constexpr char kUserspaceConfigFile[] = "/data/vendor/radio/modem_userspace_logging.conf";
inline constexpr char kExtendedLogPrefix[] = "/data/vendor/radio/extended_logs/extended_log_";
inline constexpr char kStatDumpFile[] = "/data/vendor/modem_stat/debug.txt";

// The modem's nodes: each one's name, and the path a device has it at.
enum class NodeKind { kIpc, kBoot, kTest, kTemp };
struct NodePlace {
    NodeKind kind;
    const char* name;
    const char* device_path;
};
inline constexpr NodePlace kNodeTable[] = {
    {NodeKind::kIpc, "oem_ipc1", "/dev/oem_ipc1"},
    {NodeKind::kBoot, "umts_boot0", "/dev/umts_boot0"},
    {NodeKind::kTest, "oem_test", "/dev/oem_test"},
    {NodeKind::kTemp, "cp_temp", "/sys/devices/platform/cp-tm1/cp_temp"},
};
inline constexpr const char* kIpcNode = kNodeTable[0].name;
inline constexpr const char* kBootNode = kNodeTable[1].name;

// The boot node's status ioctl, whose return value is the modem's state.
inline constexpr unsigned int kStatusIoctl = 0x6F27;
// The boot node's state of a modem that is up.
inline constexpr int kModemOnline = 4;
// The largest message the daemon reads whole.
inline constexpr size_t kLargestMessage = 65568;

// Android's log priorities, as the scenario schema numbers them too.
inline constexpr int kLogDebug = 3;
inline constexpr int kLogInfo = 4;
inline constexpr int kLogError = 6;

// The daemon's start-up ends when its modem state monitor runs: before this info line its
// threads race each other, after it the daemon answers on its channel.
inline constexpr char kStartedText[] = "Start modem state monitoring";
// The monitor's info line on a change of the modem's state.
std::string StateChangeText(int from, int to);
inline constexpr char kStateChangePrefix[] = "Modem state changed from ";
// The lines that end the daemon's throughput test: the modem's answer or the request's failure,
// and the uplink's failure.
inline constexpr char kTestAnswerPrefix[] = "Got modem test response ";
inline constexpr char kRequestFailurePrefix[] = "Failed to send request, status:";
inline constexpr char kUplinkFailureText[] = "Failed to run UL tput test";

// The uplink schedule of the daemon's throughput test: one opening write, then kWritesPerSize
// blocks of each size from kFirstBlockSize to kLastBlockSize, kBlockSizeStep apart.
struct UplinkSchedule {
    static constexpr uint64_t kOpeningWrite = 10;
    static constexpr uint64_t kFirstBlockSize = 1000;
    static constexpr uint64_t kBlockSizeStep = 1000;
    static constexpr uint64_t kLastBlockSize = 20000;
    static constexpr uint64_t kWritesPerSize = 10000;
};

}  // namespace tarvo_emu
