#include "cli/extcap_command.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <iterator>

#include <android-base/file.h>
#include <android-base/parseint.h>
#include <android-base/result.h>
#include <android-base/unique_fd.h>
#include <fmt/format.h>

#include "capture/live_capture.h"
#include "capture/pcapng_writer.h"
#include "device/fault.h"
#include "process/signal_cleanup.h"
#include "rig/rig.h"
#include "scenario/scenario_loader.h"
#include "soak/soak_run.h"

using android::base::Result;

namespace tarvo_emu {

namespace {

constexpr char kRigInterface[] = "tarvo-rig";
constexpr char kDeviceInterface[] = "tarvo-device";
constexpr char kDemoScenario[] = TARVO_SOURCE_DIR "/tests/scenarios/demo.textproto";
constexpr char kHelp[] = "file://" TARVO_SOURCE_DIR "/docs/captures.md";
// LINKTYPE_WIRESHARK_UPPER_PDU, as PcapngWriter writes.
constexpr int kLinkTypeUpperPdu = 252;
// A live soak plays until the capture stops.
constexpr std::chrono::hours kSoakUntilStopped{24 * 365};

// The signals with which Wireshark stops a capture, or a user ends one run by hand. The first
// ends the capture in order (the daemon stopped, the stream closed whole); a second goes to the
// rig's clean-up, which ends the process at once.
constexpr int kStopSignals[] = {SIGINT, SIGTERM, SIGHUP};
std::atomic<LiveRig*> live_rig = nullptr;
std::atomic<LiveDevice*> live_device = nullptr;
std::atomic<SoakRun*> live_soak = nullptr;
int stop_write_fd = -1;
struct sigaction cleanup_actions[std::size(kStopSignals)];

void OnStopSignal(int signal_number) {
    const int saved_errno = errno;
    if (LiveRig* live = live_rig.load(); live != nullptr) live->Stop();
    if (LiveDevice* live = live_device.load(); live != nullptr) live->Stop();
    if (SoakRun* soak = live_soak.load(); soak != nullptr) soak->Stop();
    for (size_t i = 0; i < std::size(kStopSignals); ++i) {
        if (signal_number == kStopSignals[i]) {
            sigaction(signal_number, &cleanup_actions[i], nullptr);
        }
    }
    const char byte = static_cast<char>(signal_number);
    if (write(stop_write_fd, &byte, 1) < 0) {
        // A full pipe already holds a stop.
    }
    errno = saved_errno;
}

void TakeOverStopSignals(int write_fd) {
    stop_write_fd = write_fd;
    // Wireshark stops reading the fifo just before it stops the capture: the last writes fail
    // instead of ending the process half-way through its clean-up, and the stop signal that
    // follows ends the capture in order.
    signal(SIGPIPE, SIG_IGN);
    struct sigaction action = {};
    action.sa_handler = OnStopSignal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (size_t i = 0; i < std::size(kStopSignals); ++i) {
        sigaction(kStopSignals[i], &action, &cleanup_actions[i]);
    }
}

void PrintInterfaces() {
    fmt::print("extcap {{version=1.0}}{{help={}}}\n", kHelp);
    fmt::print(
        "interface {{value={}}}{{display=tarvo rig: a scenario played against the daemon, "
        "then the daemon live}}\n",
        kRigInterface);
    fmt::print(
        "interface {{value={}}}{{display=tarvo on a phone: strace of the daemon over adb, "
        "live}}\n",
        kDeviceInterface);
}

void PrintDlts() {
    fmt::print(
        "dlt {{number={}}}{{name=WIRESHARK_UPPER_PDU}}{{display=tarvo's messages and log "
        "lines (profile {})}}\n",
        kLinkTypeUpperPdu, kWiresharkProfileName);
}

void PrintRigConfig() {
    fmt::print(
        "arg {{number=0}}{{call=--scenario}}{{display=Scenario}}{{type=fileselect}}"
        "{{mustexist=true}}{{tooltip=The scenario to play (protobuf text format); the demo, {}, "
        "when empty}}\n",
        kDemoScenario);
    fmt::print(
        "arg {{number=1}}{{call=--client}}{{display=Client after the scenario}}{{type=selector}}"
        "{{tooltip=Runs `tarvo` with this option once the scenario has played}}\n");
    fmt::print("value {{arg=1}}{{value=}}{{display=none}}{{default=true}}\n");
    for (const char* client : {"-m", "-e", "-t"}) {
        fmt::print("value {{arg=1}}{{value={0}}}{{display=tarvo {0}}}{{default=false}}\n", client);
    }
    fmt::print(
        "arg {{number=2}}{{call=--soak-seed}}{{display=Soak seed}}{{type=integer}}"
        "{{tooltip=Plays a soak with this seed instead of the scenario (as `tarvo-emu soak "
        "--seed N`), each divergence a packet comment}}\n");
}

void PrintSerialValues() {
    const std::vector<std::string> serials = AdbSerials();
    fmt::print("value {{arg=0}}{{value=}}{{display={}}}{{default=true}}\n",
               serials.empty() ? "none listed by adb devices" : "the only device");
    for (const std::string& serial : serials) {
        fmt::print("value {{arg=0}}{{value={0}}}{{display={0}}}{{default=false}}\n", serial);
    }
}

void PrintDeviceConfig(bool reload) {
    if (reload) {
        PrintSerialValues();
        return;
    }
    fmt::print(
        "arg {{number=0}}{{call=--serial}}{{display=Serial}}{{type=selector}}{{reload=true}}"
        "{{placeholder=Reload the devices}}{{tooltip=The device, as adb devices lists it; "
        "needed when there are several}}\n");
    PrintSerialValues();
    fmt::print(
        "arg {{number=1}}{{call=--device-command}}{{display=Device command}}{{type=string}}"
        "{{tooltip=A shell command that prints strace's output of the daemon (e.g. over ssh) "
        "instead of adb}}\n");
    fmt::print(
        "arg {{number=2}}{{call=--from-start}}{{display=From start}}{{type=boolflag}}"
        "{{default=false}}{{tooltip=Restarts the daemon stopped by init until strace has "
        "attached (ctl.sigstop_on), to capture its first message}}\n");
}

// Runs the device command and streams each message of its strace lines to the fifo, until the
// command ends or Wireshark stops the capture.
int CaptureDevice(const ExtcapOptions& options, int stop_fd) {
    const std::string command = options.device_command.empty()
                                    ? AdbDeviceCommand(options.serial, options.from_start)
                                    : options.device_command;
    Result<std::unique_ptr<LiveDevice>> live =
        LiveDevice::Start(command, options.fifo, [](const std::string& line) {
            fmt::print(stderr, "{}\n", line);
            if (std::optional<std::string> advice = DeviceErrorAdvice(line)) {
                fmt::print(stderr, "{}\n", *advice);
            }
        });
    if (!live.ok()) {
        fmt::print(stderr, "tarvo-device: {}\n", live.error().message());
        return 1;
    }
    live_device = live->get();
    const int status = (*live)->Wait();
    live_device = nullptr;
    char stopped = 0;
    const bool asked = read(stop_fd, &stopped, 1) == 1;
    // Once Wireshark has stopped the capture, the stream's reader may be gone already.
    if (Result<void> closed = (*live)->Close(); !closed.ok() && !asked) {
        fmt::print(stderr, "tarvo-device: {}\n", closed.error().message());
        return 1;
    }
    if (asked || status == 0) return 0;
    fmt::print(stderr, "tarvo-device: the device command ended with status {}\n", status);
    return 1;
}

void WaitForStop(int stop_fd) {
    pollfd stop = {.fd = stop_fd, .events = POLLIN, .revents = 0};
    while (poll(&stop, 1, -1) < 0 && errno == EINTR) {
    }
}

// Plays a soak in the rig, streaming its session to the fifo with its divergence as a packet
// comment, until Wireshark stops the capture.
int CaptureSoak(const ExtcapOptions& options, int stop_fd) {
    SoakOptions soak_options;
    if (!android::base::ParseUint(options.soak_seed, &soak_options.seed)) {
        fmt::print(stderr, "tarvo-rig: --soak-seed takes a number, not \"{}\"\n",
                   options.soak_seed);
        return 1;
    }
    soak_options.duration = kSoakUntilStopped;
    soak_options.faults = *ParseSoakFaults("all");
    Result<std::unique_ptr<PcapngWriter>> recorder = PcapngWriter::Open(options.fifo);
    if (!recorder.ok()) {
        fmt::print(stderr, "tarvo-rig: {}\n", recorder.error().message());
        return 1;
    }
    (*recorder)->Attach(&soak_options.hooks);
    SoakRun soak(soak_options);
    live_soak = &soak;
    // A stop that came before the soak could hear it is in the pipe.
    if (pollfd stop = {.fd = stop_fd, .events = POLLIN, .revents = 0}; poll(&stop, 1, 0) > 0) {
        soak.Stop();
    }
    Result<SoakReport> report = soak.Play(nullptr);
    if (!report.ok()) {
        (*recorder)->OnNote("FAILED " + report.error().message());
    } else if (report->divergence) {
        (*recorder)->OnNote(fmt::format("DIVERGED at stimulus {}: {}", report->divergence->stimulus,
                                        report->divergence->message));
    }
    WaitForStop(stop_fd);
    live_soak = nullptr;
    // As for a scenario: the stream's reader may be gone already.
    (void)(*recorder)->Close();
    return 0;
}

// Plays the scenario in the rig, streaming the session to the fifo, and keeps the daemon
// running until Wireshark stops the capture.
int CaptureRig(const ExtcapOptions& options, android::base::unique_fd stop_read,
               android::base::unique_fd stop_write) {
    if (geteuid() != 0) {
        fmt::print(stderr,
                   "tarvo-rig needs root: the emulated modem is a FUSE mount and the sandbox is "
                   "made by bubblewrap. Run Wireshark as root, or capture with `sudo tshark -i "
                   "{}`\n",
                   kRigInterface);
        return 1;
    }
    if (Result<void> entered = EnterPrivateMountNamespace(); !entered.ok()) {
        fmt::print(stderr, "tarvo-rig: cannot enter a private mount namespace: {}\n",
                   entered.error().message());
        return 1;
    }
    if (Result<void> installed = InstallSignalCleanup([](int) {}); !installed.ok()) {
        fmt::print(stderr, "tarvo-rig: no clean-up on signals: {}\n", installed.error().message());
        return 1;
    }
    TakeOverStopSignals(stop_write.release());
    if (!options.soak_seed.empty()) return CaptureSoak(options, stop_read.get());

    const std::string file = options.scenario.empty() ? kDemoScenario : options.scenario;
    ScenarioOrigin origin;
    Result<tarvo_scenario::Scenario> scenario = LoadScenario(file, &origin);
    if (!scenario.ok()) {
        fmt::print(stderr, "{}\n", scenario.error().message());
        return 1;
    }
    Result<std::unique_ptr<LiveRig>> live = LiveRig::Start(*scenario, origin, options.fifo);
    if (!live.ok()) {
        fmt::print(stderr, "tarvo-rig: {}\n", live.error().message());
        return 1;
    }
    live_rig = live->get();
    // A step that fails is a note in the capture; the daemon is watched on all the same.
    (*live)->Play(options.client);
    WaitForStop(stop_read.get());
    live_rig = nullptr;
    // Wireshark has stopped the capture and its reader of the stream may be gone already: the
    // rig is taken down whole, and what the last writes met is nobody's concern.
    (void)(*live)->Close();
    return 0;
}

}  // namespace

CLI::App* AddExtcapCommand(CLI::App& app, ExtcapOptions* options) {
    CLI::App* extcap = app.add_subcommand(
        "extcap",
        "Wireshark's live capture interfaces, called by Wireshark through the launcher that\n"
        "`tarvo-emu wireshark-install` writes: tarvo-rig plays a scenario in the rig and\n"
        "streams the session as `run --pcapng` writes it, then keeps the daemon running until\n"
        "the capture stops; tarvo-device runs strace on a phone's daemon over adb (or a device\n"
        "command of its own) and streams each message as soon as its call is complete.\n"
        "Headless: `tshark -i tarvo-rig -o extcap.tarvo_rig.scenario:FILE -a duration:N -w\n"
        "OUT.pcapng`, `tshark -i tarvo-device -o extcap.tarvo_device.serial:SERIAL ...`.");
    extcap->add_flag("--extcap-interfaces", options->interfaces, "list the interfaces");
    extcap->add_option("--extcap-version", options->version, "Wireshark's version")->type_name("V");
    extcap->add_option("--extcap-interface", options->interface, "the interface asked about")
        ->type_name("NAME");
    extcap->add_flag("--extcap-dlts", options->dlts, "the interface's link type");
    extcap->add_flag("--extcap-config", options->config, "the interface's options");
    extcap
        ->add_option("--extcap-reload-option", options->reload_option,
                     "the values of one option again")
        ->type_name("OPTION");
    extcap->add_flag("--capture", options->capture, "capture to the fifo until SIGTERM");
    extcap->add_option("--fifo", options->fifo, "where the pcapng stream goes")->type_name("PATH");
    extcap
        ->add_option("--extcap-capture-filter", options->capture_filter,
                     "a capture filter (none is applied)")
        ->type_name("FILTER");
    extcap
        ->add_option("--scenario", options->scenario,
                     "tarvo-rig: the scenario; the demo when "
                     "empty")
        ->type_name("FILE");
    extcap
        ->add_option("--client", options->client,
                     "tarvo-rig: run `tarvo` with -m, -e or -t after the scenario")
        ->type_name("OPTION");
    extcap
        ->add_option("--soak-seed", options->soak_seed,
                     "tarvo-rig: play a soak with this seed instead of the scenario")
        ->type_name("N");
    extcap->add_option("--serial", options->serial, "tarvo-device: the device, as adb lists it")
        ->type_name("SERIAL");
    extcap
        ->add_option("--device-command", options->device_command,
                     "tarvo-device: a shell command printing strace's output, instead of adb")
        ->type_name("COMMAND");
    extcap->add_flag("--from-start", options->from_start,
                     "tarvo-device: restart the daemon under strace (ctl.sigstop_on)");
    return extcap;
}

int RunExtcapCommand(const ExtcapOptions& options) {
    if (options.interfaces) {
        PrintInterfaces();
        return 0;
    }
    const bool device = options.interface == kDeviceInterface;
    if (!device && options.interface != kRigInterface) {
        fmt::print(stderr, "tarvo-emu extcap: no interface \"{}\"; there are {} and {}\n",
                   options.interface, kRigInterface, kDeviceInterface);
        return 1;
    }
    if (options.dlts) {
        PrintDlts();
        return 0;
    }
    if (options.config) {
        if (device) {
            PrintDeviceConfig(!options.reload_option.empty());
        } else {
            PrintRigConfig();
        }
        return 0;
    }
    if (!options.capture || options.fifo.empty()) {
        fmt::print(stderr,
                   "tarvo-emu extcap: say what to do: --extcap-dlts, --extcap-config or "
                   "--capture --fifo PATH\n");
        return 1;
    }
    android::base::unique_fd stop_read, stop_write;
    if (!android::base::Pipe(&stop_read, &stop_write, O_CLOEXEC | O_NONBLOCK)) {
        fmt::print(stderr, "tarvo-emu extcap: pipe: {}\n", strerror(errno));
        return 1;
    }
    if (device) {
        if (Result<void> installed = InstallSignalCleanup([](int) {}); !installed.ok()) {
            fmt::print(stderr, "tarvo-device: no clean-up on signals: {}\n",
                       installed.error().message());
            return 1;
        }
        TakeOverStopSignals(stop_write.release());
        return CaptureDevice(options, stop_read.get());
    }
    return CaptureRig(options, std::move(stop_read), std::move(stop_write));
}

}  // namespace tarvo_emu
