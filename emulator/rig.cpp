#include "rig.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <filesystem>

#include <android-base/file.h>
#include <android-base/stringprintf.h>

#include "ril_wire.h"

namespace fs = std::filesystem;

namespace tarvo_emu {

namespace {

// The emulated nodes and where a device has them.
const std::pair<const char*, const char*> kNodes[] = {
    {"oem_ipc1", "/dev/oem_ipc1"},
    {"umts_boot0", "/dev/umts_boot0"},
    {"oem_test", "/dev/oem_test"},
    {"cp_temp", "/sys/devices/platform/cp-tm1/cp_temp"},
};

}  // namespace

std::string TarvoBinary() { return TARVO_BINARY_DIR "/tarvo"; }

bool EnterPrivateMountNamespace() {
    if (unshare(CLONE_NEWNS) != 0) return false;
    // Mounts made here must not propagate back to the host's namespace.
    return mount(nullptr, "/", nullptr, MS_REC | MS_SLAVE, nullptr) == 0;
}

Rig::Rig(RigOptions options) : options_(std::move(options)), transcript_(options_.transcript) {}

Rig::~Rig() {
    daemon_.reset();
    if (ril_) ril_->Stop();
    // The replies stop before the filesystem goes, and the filesystem, whose threads hand the
    // daemon's messages to the modem side, goes before the modem side.
    if (modem_) modem_->Stop();
    emulator_.reset();
    modem_.reset();
    sandbox_.reset();
}

bool Rig::Start(std::string* error) {
    sandbox_ = Sandbox::Create(error);
    if (!sandbox_) return false;

    emulator_ =
        std::make_unique<ModemEmulator>(options_.initial_state, [this](const std::string& bytes) {
            if (modem_) modem_->OnUplink(bytes);
        });
    modem_ = std::make_unique<ModemSide>(&emulator_->ipc(), &transcript_);
    if (!emulator_->Mount(sandbox_->emulator_dir(), error)) return false;
    for (const auto& [name, device_path] : kNodes) {
        sandbox_->BindNode(device_path, emulator_->PathOf(name));
    }

    if (!SetUpRil(error)) return false;
    for (const auto& [name, value] : options_.env) sandbox_->SetEnv(name, value);
    for (const std::string& path : options_.remove) {
        if (!sandbox_->Remove(path, error)) return false;
    }
    for (const SeedFile& file : options_.files) {
        if (!WriteFile(file.path, file.content, file.mode)) {
            *error = "cannot write " + file.path;
            return false;
        }
    }
    for (const auto& [name, value] : options_.properties) {
        if (!SetProperty(name, value)) {
            *error = "cannot set property " + name;
            return false;
        }
    }
    return !options_.start_daemon || StartDaemon(error);
}

bool Rig::SetUpRil(std::string* error) {
    ril_ = std::make_unique<RilSide>(&transcript_);
    const RilLibraryOptions& options = options_.ril;
    if (!options.absent) {
        const std::string variant =
            options.omit_symbol.empty() ? "full" : "without-" + options.omit_symbol;
        const std::string library = TARVO_BINARY_DIR "/vekril/" + variant + "/libvekril-client.so";
        std::error_code ec;
        fs::copy_file(library, sandbox_->HostPath("/vendor/lib64/libvekril-client.so"), ec);
        if (ec) {
            *error = "no RIL client library " + variant + ": " + ec.message();
            return false;
        }
    }
    if (options.open_fails) return true;
    android::base::Result<void> listening =
        ril_->Listen(sandbox_->socket_dir() + "/" + fs::path(kRilSocketPath).filename().string());
    if (!listening.ok()) {
        *error = "RIL socket: " + listening.error().message();
        return false;
    }
    return true;
}

bool Rig::StartDaemon(std::string* error) {
    transcript_.Note("start tarvo -s");
    daemon_ = ChildProcess::Start(
        sandbox_->Command({TarvoBinary(), "-s"}), {},
        [this](const std::string& line) { OnOutputLine(line, true); }, error);
    return daemon_ != nullptr;
}

void Rig::StopDaemon() {
    daemon_.reset();
    daemon_pid_ = 0;
}

void Rig::OnOutputLine(const std::string& line, bool from_daemon) {
    std::optional<LogLine> parsed = ParseLogLine(line);
    if (!parsed) {
        transcript_.Output(line);
        // liblog prints a text that holds a line break as it stands: what follows the break
        // belongs to the daemon's latest line.
        const pid_t pid = daemon_pid_;
        if (from_daemon && pid != 0) {
            logs_.UpdateLast([pid](const LogLine& last) { return last.pid == pid; },
                             [&line](LogLine& last) { last.text += "\n" + line; });
        }
        return;
    }
    if (from_daemon && daemon_pid_ == 0) daemon_pid_ = parsed->pid;
    transcript_.Log(*parsed);
    logs_.Add(std::move(*parsed));
}

void Rig::SetModemState(int state) {
    transcript_.Note(android::base::StringPrintf("modem state %d", state));
    emulator_->boot().SetState(state);
}

void Rig::InjectFault(IpcFault fault) {
    static const char* const kNames[] = {"end of file", "read error", "write error", "hang-up"};
    transcript_.Note(std::string("fault on oem_ipc1: ") + kNames[static_cast<int>(fault)]);
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

ProcessResult Rig::Run(const std::vector<std::string>& command, std::chrono::milliseconds timeout) {
    ProcessResult result;
    std::string error;
    std::unique_ptr<ChildProcess> process = ChildProcess::Start(
        sandbox_->Command(command), {},
        [this](const std::string& line) { OnOutputLine(line, false); }, &error);
    if (!process) {
        result.output = error;
        return result;
    }
    std::optional<int> status = process->Wait(timeout);
    if (!status) {
        result.timed_out = true;
        process->Kill();
        status = process->Wait(std::chrono::seconds(10));
    }
    result.status = status.value_or(-1);
    result.output = process->output();
    return result;
}

ProcessResult Rig::RunClient(const std::vector<std::string>& args,
                             std::chrono::milliseconds timeout) {
    std::vector<std::string> command = {TarvoBinary()};
    command.insert(command.end(), args.begin(), args.end());
    std::string text = "run tarvo";
    for (const std::string& arg : args) text += " " + arg;
    transcript_.Note(text);
    ProcessResult result = Run(command, timeout);
    transcript_.Note(android::base::StringPrintf("tarvo exited with %d", result.status));
    return result;
}

std::optional<std::string> Rig::ReadFile(const std::string& path) const {
    std::string content;
    const std::string host = sandbox_->HostPath(path);
    if (host.empty() || !android::base::ReadFileToString(host, &content)) return std::nullopt;
    return content;
}

std::optional<mode_t> Rig::FileMode(const std::string& path) const {
    struct stat st;
    const std::string host = sandbox_->HostPath(path);
    if (host.empty() || stat(host.c_str(), &st) != 0) return std::nullopt;
    return st.st_mode & 07777;
}

bool Rig::WriteFile(const std::string& path, const std::string& content, mode_t mode) {
    const std::string host = sandbox_->HostPath(path);
    if (host.empty()) return false;
    std::error_code ec;
    fs::create_directories(fs::path(host).parent_path(), ec);
    return android::base::WriteStringToFile(content, host) && chmod(host.c_str(), mode) == 0;
}

std::optional<std::string> Rig::Property(const std::string& name) const {
    return sandbox_->properties().Get(name);
}

bool Rig::SetProperty(const std::string& name, const std::string& value) {
    return sandbox_->properties().Set(name, value) == 0;
}

}  // namespace tarvo_emu
