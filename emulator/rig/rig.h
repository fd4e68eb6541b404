#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <android-base/result.h>
#include <android-base/thread_annotations.h>

#include "device/device_facts.h"
#include "nodes/modem_emulator.h"
#include "peers/modem_side.h"
#include "peers/ril_side.h"
#include "peers/transcript.h"
#include "process/child_process.h"
#include "process/event_list.h"
#include "process/log_line.h"
#include "proto/tarvo_message.pb.h"
#include "sandbox/sandbox.h"

namespace tarvo_emu {

// Path of the daemon's executable in this build.
std::string TarvoBinary();

// The daemon's line that ends its start-up (kStartedText).
bool IsDaemonStarted(const LogLine& line);
// The monitor's report of a change to kModemOnline. It names the state it saw before, which it may
// not have read yet, so only the new state is compared.
bool IsOnlineReport(const LogLine& line);

// Moves this process into a mount namespace of its own, so that the emulator's mount disappears
// with the process whatever way it ends. Call it first thing in main, while single-threaded.
android::base::Result<void> EnterPrivateMountNamespace();

// How the rig itself works where benchmarks and coverage runs need it to work otherwise; nothing
// here changes what the daemon sees. Apart from RigOptions, which say what the daemon runs in.
struct RigHooks {
    // Sees each message that the daemon writes on oem_ipc1 before the modem side does, on the
    // filesystem's thread. Returning true keeps the message from the modem side: no parse, no
    // record, no reply. For benchmarks, which would otherwise time the modem side's bookkeeping.
    std::function<bool(std::string_view bytes)> uplink_tap = {};
    // Whether the daemon's output and log lines, and the writes to the thermal driver's file, are
    // kept for AwaitLog and the like. A long run that reads none of them turns this off, so that
    // the rig's memory stays flat.
    bool keep_logs = true;
    // How long a daemon that the rig ends is given to end on SIGTERM before it is killed; 0 kills
    // it at once. A coverage build's daemon writes its counters on SIGTERM: by default it gets the
    // time when the counters have somewhere to go (GCOV_PREFIX is set).
    std::chrono::milliseconds terminate_grace = DefaultTerminateGrace();
    // Sees the traffic of oem_ipc1 as the daemon reads and writes it (for a capture of the
    // session); it must outlive the rig. Null for none.
    IpcObserver* ipc_observer = nullptr;
    // Sees every log line of the processes in the sandbox as the rig reads it, kept or not.
    std::function<void(const LogLine& line)> log_sink = {};

    static std::chrono::milliseconds DefaultTerminateGrace();
};

struct SeedFile {
    std::string path;  // inside the sandbox, e.g. kStatConfigFile
    std::string content;
    mode_t mode = 0664;
};

// The vendor RIL client library that the sandbox offers the daemon.
struct RilLibraryOptions {
    // No library at all.
    bool absent = false;
    // A library that lacks this entry point, e.g. "RILC_Reconnect".
    std::string omit_symbol = {};
    // Nobody listens on the RIL's socket, so opening a client fails.
    bool open_fails = false;
};

struct RigOptions {
    int initial_state = 0;
    std::vector<SeedFile> files = {};
    std::vector<std::pair<std::string, std::string>> properties = {};
    // Paths taken out of the standard tree before start: an emulated node's device path leaves
    // the node out; a directory or file is deleted.
    std::vector<std::string> remove = {};
    // Environment variables for every process in the sandbox.
    std::vector<std::pair<std::string, std::string>> env = {};
    RilLibraryOptions ril = {};
    // The modem's part in the throughput test.
    TputSettings tput = {};
    bool start_daemon = true;
    // Where the transcript goes, long payloads shortened; null for none.
    std::ostream* transcript = nullptr;
    // Where the whole transcript goes, every payload in full; null for none.
    std::ostream* full_transcript = nullptr;
    // When not 0, /data is a tmpfs of this many KiB.
    uint32_t data_size_limit_kib = 0;
    // When not 0, /mnt is a tmpfs of this many KiB.
    uint32_t mnt_size_limit_kib = 0;
    // Host directories shown writable at their own paths, e.g. a fuzzer's corpus.
    std::vector<std::string> writable = {};
    // Paths under /data or /mnt bound read-only.
    std::vector<std::string> read_only = {};
    // Directories under /data or /mnt that are a tmpfs of their own, for Sandbox::Remount.
    std::vector<std::string> own_mounts = {};
};

// The whole host rig: a sandbox root, the emulated modem mounted and bound into it, the daemon
// `tarvo -s` running inside, and the modem's end of the channel. Everything it started is
// stopped and removed by the destructor, in order: processes, reply timer, mount, files.
class Rig {
  public:
    explicit Rig(RigOptions options = {}, RigHooks hooks = {});
    ~Rig();

    Rig(const Rig&) = delete;
    Rig& operator=(const Rig&) = delete;

    // Builds the root, mounts the emulator and starts the daemon if asked.
    android::base::Result<void> Start();
    android::base::Result<void> StartDaemon();
    // Kills the daemon (SIGKILL to its process group) and waits for it.
    void StopDaemon();
    // Kills the daemon and starts it again in the same tree, as init restarts a service.
    android::base::Result<void> RestartDaemon();
    // The daemon's own pid as its log lines show it; none before its first line.
    std::optional<pid_t> daemon_pid() const { return daemon_pid_; }
    // The daemon's pid once its first log line came, waiting up to `timeout`; none when none came.
    std::optional<pid_t> AwaitDaemonPid(std::chrono::milliseconds timeout = kDefaultWait);
    // The pid that the server wrote to kPidFile, once it has written one, waiting up to `timeout`.
    android::base::Result<pid_t> AwaitPidFile(std::chrono::milliseconds timeout = kDefaultWait);
    // Fails when a process in the sandbox printed a sanitizer report, or when the daemon ended
    // without being stopped by the rig (a crash, an abort, a sanitizer ending it). The error
    // holds the report. Tests and scenarios check it last, so that a fault that broke nothing
    // they looked at still fails them.
    android::base::Result<void> CheckHealth();
    // Waits until the daemon ends on its own, and notes how it ended (or why it cannot be waited
    // for); false when it still runs after `timeout`.
    bool AwaitDaemonEnd(std::chrono::milliseconds timeout = std::chrono::milliseconds(0));

    // Modem side.
    void SetModemState(int state);
    void InjectFault(Fault fault);
    ModemSide& modem() { return *modem_; }

    // The radio behind the RIL client library.
    RilSide& ril() { return *ril_; }
    ModemEmulator& emulator() { return *emulator_; }

    // Log lines of every process in the sandbox, daemon and clients. `priority` 0 matches any.
    // Takes the earliest line not taken before with this priority, tag and exact text.
    std::optional<LogLine> AwaitLog(int priority, const std::string& text,
                                    std::chrono::milliseconds timeout = kDefaultWait,
                                    const std::string& tag = kDaemonTag);
    // Waits for such a line, taken or not, without taking it.
    bool WaitForLog(int priority, const std::string& text,
                    std::chrono::milliseconds timeout = kDefaultWait,
                    const std::string& tag = kDaemonTag);
    // How many such lines were printed so far, taken or not.
    size_t CountLog(int priority, const std::string& text,
                    const std::string& tag = kDaemonTag) const;
    std::vector<LogLine> logs() const { return logs_.All(); }
    // Every log line, for waits on conditions of a test's own.
    EventList<LogLine>& log_events() { return logs_; }

    // Runs a command inside a second sandbox over the same binds, and waits for it (killing it
    // after `timeout`). Its log lines join the daemon's.
    android::base::Result<ProcessResult> Run(
        const std::vector<std::string>& command,
        std::chrono::milliseconds timeout = std::chrono::seconds(60));
    // `tarvo` with these arguments, e.g. {"-m"}.
    android::base::Result<ProcessResult> RunClient(
        const std::vector<std::string>& args,
        std::chrono::milliseconds timeout = std::chrono::seconds(10));

    // Files and properties in the sandbox, by their paths inside it. A property that was never
    // set is nothing, not an error.
    android::base::Result<std::string> ReadFile(const std::string& path) const;
    // Permission bits only.
    android::base::Result<mode_t> FileMode(const std::string& path) const;
    android::base::Result<void> WriteFile(const std::string& path, const std::string& content,
                                          mode_t mode = 0664);
    android::base::Result<void> RemoveFile(const std::string& path);
    std::optional<std::string> Property(const std::string& name) const;
    android::base::Result<void> SetProperty(const std::string& name, const std::string& value);

    Sandbox& sandbox() { return *sandbox_; }
    Transcript& transcript() { return transcript_; }

  private:
    // A line that a process in the sandbox printed: on stderr, where `joiner` puts a log line's
    // lines together, or on stdout (null `joiner`).
    void OnOutputLine(const std::string& line, LogLineJoiner* joiner);
    void OnLogLine(LogLine line, bool from_daemon);
    // Hands a process's output to OnOutputLine, its log lines put together by `lines`.
    ChildOptions OutputOptions(LogLineJoiner* lines);
    android::base::Result<void> SetUpRil();
    // Keeps the report a line starts or continues; false for any other line.
    bool KeepReportLine(const std::string& line);
    // Ends the daemon, if one runs.
    void EndDaemon();

    RigOptions options_;
    RigHooks hooks_;
    Transcript transcript_;
    EventList<LogLine> logs_;
    // The daemon's log lines, put back together on its reading thread.
    LogLineJoiner daemon_lines_;
    std::atomic<std::optional<pid_t>> daemon_pid_;
    std::unique_ptr<Sandbox> sandbox_;
    std::unique_ptr<ModemEmulator> emulator_;
    std::unique_ptr<ModemSide> modem_;
    std::unique_ptr<RilSide> ril_;
    std::unique_ptr<TputModem> tput_modem_;
    std::unique_ptr<ChildProcess> daemon_;
    std::mutex health_mutex_;
    // The first sanitizer report and the lines that follow.
    std::vector<std::string> report_ GUARDED_BY(health_mutex_);
    // How the daemon ended before the rig stopped it.
    std::string daemon_end_ GUARDED_BY(health_mutex_);
};

}  // namespace tarvo_emu
