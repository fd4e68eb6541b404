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
#include "cli/command.h"
#include "device/fault.h"
#include "process/signal_cleanup.h"
#include "rig/rig.h"
#include "scenario/scenario_loader.h"
#include "soak/soak_run.h"

using android::base::Result;

namespace tarvo_emu {

namespace {

// What Wireshark asked, one field per option of the same name.
struct ExtcapOptions {
    bool interfaces = false;
    std::string version;
    std::string interface;
    bool dlts = false;
    bool config = false;
    std::string reload_option;
    bool capture = false;
    std::string fifo;
    std::string capture_filter;
    // tarvo-rig's: the demo when `scenario` is empty; a soak instead when `soak_seed` is not.
    std::string scenario;
    std::string client;
    std::string soak_seed;
    // tarvo-device's.
    std::string serial;
    std::string device_command;
    bool from_start = false;
};

constexpr char kRigInterface[] = "tarvo-rig";
constexpr char kDeviceInterface[] = "tarvo-device";
constexpr char kDemoScenario[] = TARVO_SOURCE_DIR "/tests/scenarios/demo.textproto";
constexpr char kHelp[] = "file://" TARVO_SOURCE_DIR "/docs/captures.md";
// LINKTYPE_WIRESHARK_UPPER_PDU, as PcapngWriter writes.
constexpr int kLinkTypeUpperPdu = 252;
// A live soak plays until the capture stops.
constexpr std::chrono::hours kSoakUntilStopped{24 * 365};

// Set while a capture runs, for the signal with which Wireshark stops it (or a user ends one run
// by hand) to stop it in order: the daemon stopped, the stream closed whole.
std::atomic<LiveRig*> live_rig = nullptr;
std::atomic<LiveDevice*> live_device = nullptr;
std::atomic<SoakRun*> live_soak = nullptr;

void StopCapture() {
    if (LiveRig* live = live_rig.load(); live != nullptr) live->Stop();
    if (LiveDevice* live = live_device.load(); live != nullptr) live->Stop();
    if (SoakRun* soak = live_soak.load(); soak != nullptr) soak->Stop();
}

// The rig's clean-up installed and the stop signals taken over from it: their pipe's read end,
// or none after saying why not.
std::optional<android::base::unique_fd> TakeOverStopSignals(const char* interface) {
    if (Result<void> installed = InstallSignalCleanup([](int) {}); !installed.ok()) {
        fmt::print(stderr, "{}: no clean-up on signals: {}\n", interface,
                   installed.error().message());
        return std::nullopt;
    }
    // Wireshark stops reading the fifo just before it stops the capture: the last writes fail
    // instead of ending the process half-way through its clean-up, and the stop signal that
    // follows ends the capture in order.
    signal(SIGPIPE, SIG_IGN);
    Result<android::base::unique_fd> stop = TakeOverSignals(StopCapture, true);
    if (!stop.ok()) {
        fmt::print(stderr, "tarvo-emu extcap: {}\n", stop.error().message());
        return std::nullopt;
    }
    return std::move(*stop);
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
    if (!live.ok()) return Failed("tarvo-device", live.error().message());
    live_device = live->get();
    const int status = (*live)->Wait();
    live_device = nullptr;
    char stopped = 0;
    const bool asked = read(stop_fd, &stopped, 1) == 1;
    // Once Wireshark has stopped the capture, the stream's reader may be gone already.
    if (Result<void> closed = (*live)->Close(); !closed.ok() && !asked) {
        return Failed("tarvo-device", closed.error().message());
    }
    if (asked || status == 0) return 0;
    return Failed("tarvo-device", fmt::format("the device command ended with status {}", status));
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
        return Failed("tarvo-rig",
                      fmt::format("--soak-seed takes a number, not \"{}\"", options.soak_seed));
    }
    soak_options.duration = kSoakUntilStopped;
    soak_options.faults = *ParseSoakFaults("all");
    Result<std::unique_ptr<PcapngWriter>> recorder = PcapngWriter::Open(options.fifo);
    if (!recorder.ok()) return Failed("tarvo-rig", recorder.error().message());
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
int CaptureRig(const ExtcapOptions& options) {
    if (geteuid() != 0) {
        fmt::print(stderr,
                   "tarvo-rig needs root: the emulated modem is a FUSE mount and the sandbox is "
                   "made by bubblewrap. Run Wireshark as root, or capture with `sudo tshark -i "
                   "{}`\n",
                   kRigInterface);
        return 1;
    }
    if (Result<void> entered = EnterPrivateMountNamespace(); !entered.ok()) {
        return Failed("tarvo-rig",
                      "cannot enter a private mount namespace: " + entered.error().message());
    }
    const std::optional<android::base::unique_fd> stop = TakeOverStopSignals(kRigInterface);
    if (!stop) return 1;
    if (!options.soak_seed.empty()) return CaptureSoak(options, stop->get());

    const std::string file = options.scenario.empty() ? kDemoScenario : options.scenario;
    ScenarioOrigin origin;
    Result<tarvo_scenario::Scenario> scenario = LoadScenario(file, &origin);
    if (!scenario.ok()) return Failed("", scenario.error().message());
    Result<std::unique_ptr<LiveRig>> live = LiveRig::Start(*scenario, origin, options.fifo);
    if (!live.ok()) return Failed("tarvo-rig", live.error().message());
    live_rig = live->get();
    // A step that fails is a note in the capture; the daemon is watched on all the same.
    (*live)->Play(options.client);
    WaitForStop(stop->get());
    live_rig = nullptr;
    // Wireshark has stopped the capture and its reader of the stream may be gone already: the
    // rig is taken down whole, and what the last writes met is nobody's concern.
    (void)(*live)->Close();
    return 0;
}

// Answers Wireshark's extcap calls: the interfaces, their link type, their options, and a
// capture written to the fifo until Wireshark stops it with SIGTERM. What goes wrong is said on
// standard error, which Wireshark shows.
int Extcap(const ExtcapOptions& options) {
    if (options.interfaces) {
        PrintInterfaces();
        return 0;
    }
    const bool device = options.interface == kDeviceInterface;
    if (!device && options.interface != kRigInterface) {
        return Failed("tarvo-emu extcap",
                      fmt::format("no interface \"{}\"; there are {} and {}", options.interface,
                                  kRigInterface, kDeviceInterface));
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
        return Failed("tarvo-emu extcap",
                      "say what to do: --extcap-dlts, --extcap-config or --capture --fifo PATH");
    }
    if (!device) return CaptureRig(options);
    const std::optional<android::base::unique_fd> stop = TakeOverStopSignals(kDeviceInterface);
    return stop ? CaptureDevice(options, stop->get()) : 1;
}

}  // namespace

// `tarvo-emu extcap`, which Wireshark runs through the launcher that `tarvo-emu wireshark-install`
// writes. A capture of tarvo-rig asks for root itself.
Command AddExtcapCommand(CLI::App& app) {
    auto options = std::make_shared<ExtcapOptions>();
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
    return {extcap, [options] { return Extcap(*options); }, [] { return false; }};
}

}  // namespace tarvo_emu
