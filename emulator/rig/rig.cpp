#include "rig/rig.h"

#include <android/log.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <filesystem>

#include <android-base/file.h>
#include <android-base/parseint.h>
#include <android-base/strings.h>
#include <fmt/format.h>

#include "peers/transcript_codec.h"
#include "process/file_tree.h"
#include "process/wait_until.h"
#include "ril_library/ril_wire.h"

namespace fs = std::filesystem;

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;

namespace tarvo_emu {

bool IsDaemonStarted(const LogLine& line) {
    return line.tag == kDaemonTag && line.priority == ANDROID_LOG_INFO && line.text == kStartedText;
}

bool IsOnlineReport(const LogLine& line) {
    return line.tag == kDaemonTag && line.priority == ANDROID_LOG_INFO &&
           android::base::StartsWith(line.text, kStateChangePrefix) &&
           android::base::EndsWith(line.text, " to " + std::to_string(kModemOnline));
}

std::string TarvoBinary() { return TARVO_BINARY_DIR "/tarvo"; }

Result<void> EnterPrivateMountNamespace() {
    if (unshare(CLONE_NEWNS) != 0) return ErrnoError() << "unshare";
    // Mounts made here must not propagate back to the host's namespace.
    if (mount(nullptr, "/", nullptr, MS_REC | MS_SLAVE, nullptr) != 0) {
        return ErrnoError() << "mount / as a slave";
    }
    return {};
}

std::chrono::milliseconds RigHooks::DefaultTerminateGrace() {
    return getenv("GCOV_PREFIX") != nullptr ? std::chrono::seconds(10)
                                            : std::chrono::milliseconds(0);
}

Rig::Rig(RigOptions options, RigHooks hooks)
    : options_(std::move(options)),
      hooks_(std::move(hooks)),
      transcript_(options_.transcript, options_.full_transcript),
      daemon_lines_([this](LogLine line) { OnLogLine(std::move(line), true); }) {}

Rig::~Rig() {
    EndDaemon();
    if (ril_) ril_->Stop();
    // The replies stop before the filesystem goes, and the filesystem, whose threads hand the
    // daemon's messages to the modem side, goes before the modem side.
    if (modem_) modem_->Stop();
    emulator_.reset();
    modem_.reset();
    tput_modem_.reset();
    sandbox_.reset();
}

Result<void> Rig::Start() {
    Result<std::unique_ptr<Sandbox>> sandbox =
        Sandbox::Create(options_.data_size_limit_kib, options_.mnt_size_limit_kib);
    if (!sandbox.ok()) return Error() << "sandbox: " << sandbox.error();
    sandbox_ = std::move(*sandbox);
    for (const std::string& path : options_.own_mounts) {
        if (Result<void> mounted = sandbox_->MountOwn(path); !mounted.ok()) return mounted.error();
    }

    emulator_ =
        std::make_unique<ModemEmulator>(options_.initial_state, [this](std::string_view bytes) {
            if (hooks_.uplink_tap && hooks_.uplink_tap(bytes)) return;
            if (modem_) modem_->OnUplink(bytes);
        });
    emulator_->temp().KeepWrites(hooks_.keep_logs);
    emulator_->ipc().SetObserver(hooks_.ipc_observer);
    modem_ = std::make_unique<ModemSide>(&emulator_->ipc(), &transcript_);
    tput_modem_ = std::make_unique<TputModem>(&emulator_->test(), options_.tput);
    modem_->SetObserver([this](const tarvo_message::TarvoMessage& message) {
        tput_modem_->OnDaemonMessage(message);
    });
    if (Result<void> mounted = emulator_->Mount(sandbox_->emulator_dir()); !mounted.ok()) {
        return mounted.error();
    }
    for (const NodePlace& node : kNodeTable) {
        sandbox_->BindNode(node.device_path, emulator_->PathOf(node.name));
    }

    if (Result<void> ril = SetUpRil(); !ril.ok()) return ril.error();
    for (const auto& [name, value] : options_.env) sandbox_->SetEnv(name, value);
    for (const std::string& dir : options_.writable) sandbox_->BindWritable(dir);
    for (const std::string& path : options_.remove) {
        if (Result<void> removed = sandbox_->Remove(path); !removed.ok()) return removed.error();
    }
    for (const SeedFile& file : options_.files) {
        const bool seedable = android::base::StartsWith(file.path, "/data/") ||
                              android::base::StartsWith(file.path, "/mnt/") ||
                              android::base::StartsWith(file.path, "/vendor/");
        if (!seedable || file.path.find("/../") != std::string::npos) {
            return Error() << "cannot seed " << file.path
                           << ": seed files go under /data, /mnt or /vendor";
        }
        if (Result<void> written = WriteFile(file.path, file.content, file.mode); !written.ok()) {
            return written.error();
        }
    }
    for (const auto& [name, value] : options_.properties) {
        if (Result<void> set = SetProperty(name, value); !set.ok()) return set.error();
    }
    for (const std::string& path : options_.read_only) {
        if (Result<void> bound = sandbox_->SetReadOnly(path); !bound.ok()) return bound.error();
    }
    if (!options_.start_daemon) return {};
    return StartDaemon();
}

Result<void> Rig::SetUpRil() {
    ril_ = std::make_unique<RilSide>(&transcript_);
    const RilLibraryOptions& options = options_.ril;
    if (!options.absent) {
        const std::string variant =
            options.omit_symbol.empty() ? "full" : "without-" + options.omit_symbol;
        const std::string library = TARVO_BINARY_DIR "/vekril/" + variant + "/libvekril-client.so";
        std::string content;
        if (!android::base::ReadFileToString(library, &content) ||
            !android::base::WriteStringToFile(
                content, *sandbox_->HostPath(std::string(kVendorLibraryDirectory) +
                                             "/libvekril-client.so"))) {
            return ErrnoError() << "no RIL client library " << variant;
        }
    }
    if (options.open_fails) return {};
    return ril_->Listen(sandbox_->socket_dir() + "/" +
                        fs::path(kRilSocketPath).filename().string());
}

Result<void> Rig::StartDaemon() {
    transcript_.Note("start tarvo -s");
    ChildOptions options = OutputOptions(&daemon_lines_);
    options.keep_output = hooks_.keep_logs;
    // Nobody waits for a line: take them in bulk, and leave the daemon the processor.
    options.read_interval =
        hooks_.keep_logs ? std::chrono::milliseconds(0) : std::chrono::milliseconds(10);
    Result<std::unique_ptr<ChildProcess>> daemon =
        ChildProcess::Start(sandbox_->Command({TarvoBinary(), "-s"}), std::move(options));
    if (!daemon.ok()) return Error() << "tarvo -s: " << daemon.error();
    daemon_ = std::move(*daemon);
    return {};
}

void Rig::StopDaemon() {
    AwaitDaemonEnd();
    EndDaemon();
}

void Rig::EndDaemon() {
    const std::optional<pid_t> pid = daemon_pid_;
    if (daemon_ && pid && hooks_.terminate_grace.count() != 0 && kill(*pid, SIGTERM) == 0) {
        daemon_->Wait(hooks_.terminate_grace);
    }
    daemon_.reset();
    daemon_pid_ = std::nullopt;
}

std::optional<pid_t> Rig::AwaitDaemonPid(std::chrono::milliseconds timeout) {
    // The rig takes the daemon's lines in bulk when it keeps none: no event to wait on.
    WaitUntil([this] { return daemon_pid_.load().has_value(); }, timeout,
              std::chrono::milliseconds(1));
    return daemon_pid_;
}

Result<pid_t> Rig::AwaitPidFile(std::chrono::milliseconds timeout) {
    pid_t pid = 0;
    const auto written = [this, &pid] {
        const Result<std::string> content = ReadFile(kPidFile);
        return content.ok() && android::base::ParseInt(*content, &pid) && pid > 0;
    };
    if (!WaitUntil(written, timeout)) return Error() << "no pid in " << kPidFile;
    return pid;
}

Result<void> Rig::RestartDaemon() {
    transcript_.Note("kill -9 tarvo");
    StopDaemon();
    return StartDaemon();
}

bool Rig::AwaitDaemonEnd(std::chrono::milliseconds timeout) {
    if (!daemon_) return false;
    const Result<std::optional<int>> status = daemon_->Wait(timeout);
    if (status.ok() && !status->has_value()) return false;
    // Once the process has ended, this returns after its last line was handed on.
    if (status.ok()) daemon_->output();
    std::lock_guard<std::mutex> lock(health_mutex_);
    if (daemon_end_.empty()) {
        daemon_end_ = status.ok() ? fmt::format("tarvo -s ended with status {}", **status)
                                  : fmt::format("tarvo -s: {}", status.error().message());
    }
    return true;
}

Result<void> Rig::CheckHealth() {
    // A sanitized daemon that hits a fault right after the test's last step is still printing
    // its report when the test ends, and would be killed before it ends by itself. Giving it a
    // moment to end shows such a fault; a healthy daemon costs this wait in those builds only.
#ifdef TARVO_SANITIZED
    constexpr std::chrono::milliseconds kLastWords{300};
#else
    constexpr std::chrono::milliseconds kLastWords{0};
#endif
    AwaitDaemonEnd(kLastWords);
    bool reporting;
    {
        std::lock_guard<std::mutex> lock(health_mutex_);
        reporting = !report_.empty();
    }
    // A daemon that began a report ends once it is printed: the whole of it is worth the wait.
    if (reporting) AwaitDaemonEnd(std::chrono::seconds(10));
    std::lock_guard<std::mutex> lock(health_mutex_);
    if (daemon_end_.empty() && report_.empty()) return {};
    const std::string what = daemon_end_.empty() ? "sanitizer report" : daemon_end_;
    return Error() << what << (report_.empty() ? "" : ":\n") << android::base::Join(report_, "\n");
}

namespace {

// The first line of a report of AddressSanitizer, LeakSanitizer, UndefinedBehaviorSanitizer or
// ThreadSanitizer, as they print it on stderr.
bool StartsSanitizerReport(const std::string& line) {
    return (line.find("==ERROR: ") != std::string::npos &&
            line.find("Sanitizer") != std::string::npos) ||
           android::base::StartsWith(line, "WARNING: ThreadSanitizer: ") ||
           line.find(": runtime error: ") != std::string::npos;
}

}  // namespace

bool Rig::KeepReportLine(const std::string& line) {
    // Enough for a report with its stacks; whatever comes later is noise.
    constexpr size_t kMaxReportLines = 400;
    std::lock_guard<std::mutex> lock(health_mutex_);
    if (report_.empty() && !StartsSanitizerReport(line)) return false;
    if (report_.size() < kMaxReportLines) report_.push_back(line);
    return true;
}

void Rig::OnOutputLine(const std::string& line, LogLineJoiner* joiner) {
    // Once the daemon's pid is known, a line that is neither kept nor shown is looked at only
    // for a sanitizer report.
    if (!hooks_.keep_logs && !transcript_.enabled() && daemon_pid_.load()) {
        KeepReportLine(line);
        return;
    }
    // liblog writes to stderr; what a process prints on stdout is never part of a log line.
    if (joiner == nullptr) {
        KeepReportLine(line);
        transcript_.Output(line);
        return;
    }
    std::optional<LogLine> parsed = ParseLogLine(line);
    if (parsed) {
        joiner->Start(std::move(*parsed));
        return;
    }
    if (KeepReportLine(line)) {
        joiner->Flush();
        transcript_.Output(line);
        return;
    }
    if (!joiner->Continue(line)) transcript_.Output(line);
}

void Rig::OnLogLine(LogLine line, bool from_daemon) {
    if (from_daemon && !daemon_pid_.load()) daemon_pid_ = line.pid;
    transcript_.Log(line);
    if (hooks_.log_sink) hooks_.log_sink(line);
    if (hooks_.keep_logs) logs_.Add(std::move(line));
}

void Rig::SetModemState(int state) {
    transcript_.Note(ModemStateNote(state));
    emulator_->boot().SetState(state);
}

void Rig::InjectFault(Fault fault) {
    transcript_.Note(FaultNote(fault, {}));
    emulator_->ipc().InjectFault(fault);
}

namespace {

EventList<LogLine>::Predicate LineMatcher(int priority, const std::string& text,
                                          const std::string& tag) {
    return [=](const LogLine& line) {
        return (priority == 0 || line.priority == priority) && line.tag == tag && line.text == text;
    };
}

}  // namespace

std::optional<LogLine> Rig::AwaitLog(int priority, const std::string& text,
                                     std::chrono::milliseconds timeout, const std::string& tag) {
    return logs_.Take(LineMatcher(priority, text, tag), timeout);
}

bool Rig::WaitForLog(int priority, const std::string& text, std::chrono::milliseconds timeout,
                     const std::string& tag) {
    return logs_.Wait(LineMatcher(priority, text, tag), timeout);
}

size_t Rig::CountLog(int priority, const std::string& text, const std::string& tag) const {
    return logs_.Count(LineMatcher(priority, text, tag));
}

Result<ProcessResult> Rig::Run(const std::vector<std::string>& command,
                               std::chrono::milliseconds timeout) {
    LogLineJoiner lines([this](LogLine line) { OnLogLine(std::move(line), false); });
    return RunProcess(sandbox_->Command(command), OutputOptions(&lines), timeout);
}

ChildOptions Rig::OutputOptions(LogLineJoiner* lines) {
    return {.on_line = [this](const std::string& line) { OnOutputLine(line, nullptr); },
            .on_error_line = [this, lines](const std::string& line) { OnOutputLine(line, lines); },
            .on_drained = [lines] { lines->Flush(); },
            .separate_stderr = true};
}

Result<ProcessResult> Rig::RunClient(const std::vector<std::string>& args,
                                     std::chrono::milliseconds timeout) {
    std::vector<std::string> command = {TarvoBinary()};
    command.insert(command.end(), args.begin(), args.end());
    std::string text = "run tarvo";
    for (const std::string& arg : args) text += " " + arg;
    transcript_.Note(text);
    Result<ProcessResult> result = Run(command, timeout);
    transcript_.Note(result.ok() ? fmt::format("tarvo exited with {}", result->status)
                                 : fmt::format("tarvo did not run: {}", result.error().message()));
    return result;
}

Result<std::string> Rig::ReadFile(const std::string& path) const {
    Result<std::string> host = sandbox_->HostPath(path);
    if (!host.ok()) return host.error();
    std::string content;
    if (!android::base::ReadFileToString(*host, &content)) return ErrnoError() << "read " << path;
    return content;
}

Result<mode_t> Rig::FileMode(const std::string& path) const {
    Result<std::string> host = sandbox_->HostPath(path);
    if (!host.ok()) return host.error();
    struct stat st;
    if (stat(host->c_str(), &st) != 0) return ErrnoError() << "stat " << path;
    return st.st_mode & 07777;
}

Result<void> Rig::RemoveFile(const std::string& path) {
    Result<std::string> host = sandbox_->HostPath(path);
    if (!host.ok()) return host.error();
    if (unlink(host->c_str()) != 0) return ErrnoError() << "cannot remove " << path;
    return {};
}

Result<void> Rig::WriteFile(const std::string& path, const std::string& content, mode_t mode) {
    Result<std::string> host = sandbox_->HostPath(path);
    if (!host.ok()) return host.error();
    if (Result<void> made = MakeDirectories(fs::path(*host).parent_path()); !made.ok()) {
        return Error(made.error().code()) << "cannot create the directory of " << path;
    }
    if (!android::base::WriteStringToFile(content, *host) || chmod(host->c_str(), mode) != 0) {
        return ErrnoError() << "cannot write " << path;
    }
    return {};
}

std::optional<std::string> Rig::Property(const std::string& name) const {
    return sandbox_->properties().Get(name);
}

Result<void> Rig::SetProperty(const std::string& name, const std::string& value) {
    if (sandbox_->properties().Set(name, value) != 0) {
        return Error() << "cannot set property " << name;
    }
    return {};
}

}  // namespace tarvo_emu
