#include "capture/live_capture.h"

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstring>

#include <android-base/strings.h>
#include <fmt/format.h>

#include "capture/capture_reader.h"

extern char** environ;

using android::base::Error;
using android::base::Result;

namespace tarvo_emu {

namespace {

constexpr char kShell[] = "/bin/sh";
// The capture guide's strace line, writing to standard output; "-p PID" follows.
constexpr char kStrace[] =
    "strace -f -ttt -y -xx -s 70000 -e trace=read,write,ioctl -P /dev/oem_ipc1 "
    "-P /dev/umts_boot0 -o /proc/self/fd/1";
// From the daemon's start, the nodes are not open yet: their openat names them.
constexpr char kStraceFromStart[] =
    "strace -f -ttt -y -xx -s 70000 -e trace=read,write,ioctl,openat -o /proc/self/fd/1";
// How strace starts its lines about attaching to and detaching from the daemon's threads.
constexpr char kStraceProgress[] = "strace: Process ";
constexpr std::chrono::hours kForever{24 * 365};
constexpr std::chrono::seconds kAdbDevicesTimeout{10};

// The checks before strace, each failing with its cause and its fix. ADB is set to the adb
// command line; SERIAL to the serial asked for, if any.
constexpr char kAdbChecks[] = R"sh(fail() { echo "tarvo-device: $*" >&2; exit 1; }
command -v adb >/dev/null 2>&1 ||
    fail "no adb on PATH: install Android's platform tools (Debian: apt install adb)," \
         "or give a device command that prints strace's output"
ready=$(adb devices | sed -n 's/\tdevice$//p')
if [ -n "$SERIAL" ]; then
    echo "$ready" | grep -qxF "$SERIAL" ||
        fail "no device $SERIAL: adb devices lists ${ready:-none}; connect it with USB" \
             "debugging on, or pick another serial"
elif [ -z "$ready" ]; then
    fail "no device: connect a phone with USB debugging on and accept its prompt" \
         "(adb devices lists none)"
elif [ "$(echo "$ready" | wc -l)" -gt 1 ]; then
    fail "several devices ($(echo $ready)): pick one with the Serial option"
fi
[ "$($ADB shell getprop ro.build.type | tr -d '\r')" = user ] &&
    fail "a user build: it has no strace and refuses adb root; capture on a userdebug or eng build"
root=$($ADB root 2>&1) || fail "adb root refused: $root; capture on a userdebug or eng build"
$ADB wait-for-device
)sh";

constexpr char kDaemonRunning[] =
    R"sh([ -n "$($ADB shell pidof tarvo | tr -d '\r')" ] ||
    fail "the daemon is not running: start it (adb shell start tarvo), or capture it from its" \
         "start with the From start option"
)sh";

std::string ShellQuoted(const std::string& text) {
    return "'" + android::base::StringReplace(text, "'", "'\\''", true) + "'";
}

// The absolute path of `name` on PATH; none when it is not there.
std::optional<std::string> OnPath(const std::string& name) {
    const char* path = getenv("PATH");
    for (const std::string& dir : android::base::Split(path != nullptr ? path : "", ":")) {
        const std::string candidate = dir + "/" + name;
        if (!dir.empty() && access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return std::nullopt;
}

std::vector<std::string> Environment() {
    std::vector<std::string> env;
    for (char** entry = environ; *entry != nullptr; ++entry) env.emplace_back(*entry);
    return env;
}

}  // namespace

std::string AdbDeviceCommand(const std::string& serial, bool from_start) {
    std::string script = fmt::format("SERIAL={}\nADB={}\n", ShellQuoted(serial),
                                     ShellQuoted(serial.empty() ? "adb" : "adb -s " + serial));
    script += kAdbChecks;
    if (!from_start) {
        script += kDaemonRunning;
        return script + fmt::format("exec $ADB shell {}\n",
                                    ShellQuoted(std::string(kStrace) + " -p $(pidof tarvo)"));
    }
    // The guide's ctl.sigstop_on recipe: init stops the restarted daemon before it runs, strace
    // attaches, and the daemon goes on.
    const std::string device_side = fmt::format(
        "pid=$(getprop init.svc_debug_pid.tarvo); "
        "(sleep 1; kill -CONT $pid; setprop ctl.sigstop_off tarvo) & exec {} -p $pid",
        kStraceFromStart);
    return script + fmt::format(
                        "$ADB shell setprop ctl.sigstop_on tarvo\n$ADB shell stop tarvo\n"
                        "$ADB shell start tarvo\nsleep 1\nexec $ADB shell {}\n",
                        ShellQuoted(device_side));
}

std::vector<std::string> AdbSerials() {
    const std::optional<std::string> adb = OnPath("adb");
    if (!adb) return {};
    Result<std::unique_ptr<ChildProcess>> devices =
        ChildProcess::Start({*adb, "devices"}, {.env = Environment(), .separate_stderr = true});
    if (!devices.ok()) return {};
    const Result<std::optional<int>> status = (*devices)->Wait(kAdbDevicesTimeout);
    if (!status.ok() || *status != 0) return {};
    std::vector<std::string> serials;
    for (const std::string& line : android::base::Split((*devices)->output(), "\n")) {
        if (android::base::EndsWith(line, "\tdevice")) {
            serials.push_back(line.substr(0, line.size() - strlen("\tdevice")));
        }
    }
    return serials;
}

std::optional<std::string> DeviceErrorAdvice(const std::string& line) {
    if (line.find("ptrace") == std::string::npos ||
        (line.find("Operation not permitted") == std::string::npos &&
         line.find("Permission denied") == std::string::npos)) {
        return std::nullopt;
    }
    return "tarvo-device: strace was denied tracing the daemon: on a phone it takes `adb root` on "
           "a userdebug or eng build (SELinux permits it to root's shell); on a host, root";
}

LiveDevice::LiveDevice(std::unique_ptr<PcapngWriter> writer,
                       std::function<void(const std::string&)> on_error_line)
    : writer_(std::move(writer)),
      on_error_line_(std::move(on_error_line)),
      reader_({}, [this](const CaptureEvent& event, double unix_time) {
          WriteEvent(writer_.get(), event, unix_time);
      }) {}

Result<std::unique_ptr<LiveDevice>> LiveDevice::Start(
    const std::string& command, const std::string& output,
    std::function<void(const std::string&)> on_error_line) {
    Result<std::unique_ptr<PcapngWriter>> writer = PcapngWriter::Open(output);
    if (!writer.ok()) return writer.error();
    std::unique_ptr<LiveDevice> live(new LiveDevice(std::move(*writer), std::move(on_error_line)));
    LiveDevice* self = live.get();
    Result<std::unique_ptr<ChildProcess>> started = ChildProcess::Start(
        {kShell, "-c", command}, {.env = Environment(),
                                  .on_line = [self](const std::string& line) { self->Line(line); },
                                  .on_error_line =
                                      [self](const std::string& line) {
                                          // strace's news of the threads it follows is no error.
                                          if (!android::base::StartsWith(line, kStraceProgress))
                                              self->on_error_line_(line);
                                      },
                                  .separate_stderr = true,
                                  .keep_output = false});
    if (!started.ok()) return started.error();
    live->command_ = std::move(*started);
    live->group_ = live->command_->pid();
    return live;
}

void LiveDevice::Line(const std::string& line) {
    if (refused_) return;
    if (Result<void> read = reader_.Line(line); !read.ok()) {
        // Not strace's output: said once, and the rest is not read.
        refused_ = true;
        on_error_line_("tarvo-device: the device command's output: " + read.error().message());
    }
}

int LiveDevice::Wait() {
    const Result<std::optional<int>> status = command_->Wait(kForever);
    return status.ok() && status->has_value() ? **status : 1;
}

void LiveDevice::Stop() {
    if (group_ != 0) killpg(group_, SIGTERM);
}

Result<void> LiveDevice::Close() {
    command_.reset();
    // Notes a message that the end cut off; what was read has been written already.
    reader_.Finish();
    return writer_->Close();
}

LiveRig::LiveRig(const tarvo_scenario::Scenario& scenario, const ScenarioOrigin& origin,
                 std::unique_ptr<PcapngWriter> recorder)
    : scenario_(scenario), origin_(origin), recorder_(std::move(recorder)) {
    RigHooks hooks;
    recorder_->Attach(&hooks);
    session_ =
        std::make_unique<ScenarioSession>(scenario_, nullptr, &origin_, nullptr, std::move(hooks));
}

Result<std::unique_ptr<LiveRig>> LiveRig::Start(const tarvo_scenario::Scenario& scenario,
                                                const ScenarioOrigin& origin,
                                                const std::string& output) {
    Result<std::unique_ptr<PcapngWriter>> recorder = PcapngWriter::Open(output);
    if (!recorder.ok()) return recorder.error();
    std::unique_ptr<LiveRig> live(new LiveRig(scenario, origin, std::move(*recorder)));
    if (Result<void> started = live->session_->Start(); !started.ok()) return started.error();
    return live;
}

Result<void> LiveRig::Play(const std::string& client) {
    google::protobuf::RepeatedPtrField<tarvo_scenario::Step> steps = scenario_.step();
    if (!client.empty()) steps.Add()->set_client(client);
    for (int index = 0; index < steps.size(); ++index) {
        if (StepResult played = session_->Play(steps[index], index); !played.ok()) {
            recorder_->OnNote("FAILED " + played.error().message());
            return Error() << played.error().message();
        }
    }
    return {};
}

void LiveRig::Stop() { session_->CancelStep(); }

Result<void> LiveRig::Close() {
    // The stream ends with the daemon's last lines, once the rig is gone.
    session_.reset();
    return recorder_->Close();
}

}  // namespace tarvo_emu
