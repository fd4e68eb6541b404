#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <android-base/file.h>
#include <android-base/result.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>
#include <fmt/format.h>

#include "capture/capture_reader.h"
#include "capture/capture_scenario.h"
#include "capture/pcapng_writer.h"
#include "cli/command.h"

using android::base::Result;

namespace tarvo_emu {

namespace {

struct DecodeOptions {
    // The capture (several: the files of `strace -ff -o PREFIX`); standard input when none.
    std::vector<std::string> files;
    std::optional<int> fd;
    bool full = false;
    bool follow = false;   // each message as soon as its call is complete
    std::string pcapng;    // none when empty
    std::string scenario;  // none when empty
};

// How the command names itself in its failures.
constexpr char kDecode[] = "tarvo-emu decode";

// Set while a capture is followed, for Ctrl-C to end it.
CaptureFollower* following = nullptr;

void OnInterrupt(int /*signal_number*/) { following->Stop(); }

// What the capture is read from, as messages name it.
std::string Source(const DecodeOptions& options) {
    if (options.files.empty()) return "standard input";
    if (options.files.size() == 1) return options.files.front();
    return android::base::Join(options.files, ", ");
}

// Writes the scenario of a capture read whole; returns the exit status.
int WriteScenario(const DecodeOptions& options, const Capture& capture) {
    if (!options.scenario.empty() &&
        !android::base::WriteStringToFile(CaptureScenarioText(capture, Source(options)),
                                          options.scenario)) {
        return Failed("tarvo-emu decode",
                      fmt::format("cannot write {}: {}", options.scenario, strerror(errno)));
    }
    return 0;
}

// Prints (and writes to --pcapng) each message as soon as its call is complete, until the end of
// the input or Ctrl-C, then writes the scenario.
int Follow(const DecodeOptions& options) {
    const std::string source = Source(options);
    if (options.files.size() > 1) {
        return Failed(kDecode, "--follow reads one capture, not " + source);
    }
    android::base::unique_fd opened;
    if (!options.files.empty()) {
        opened.reset(open(source.c_str(), O_RDONLY | O_CLOEXEC));
        if (opened.get() < 0) {
            return Failed("tarvo-emu decode",
                          fmt::format("cannot read {}: {}", source, strerror(errno)));
        }
    }
    std::unique_ptr<PcapngWriter> pcapng;
    if (!options.pcapng.empty()) {
        Result<std::unique_ptr<PcapngWriter>> writer = PcapngWriter::Open(options.pcapng);
        if (!writer.ok()) return Failed(kDecode, writer.error().message());
        pcapng = std::move(*writer);
    }
    Result<std::unique_ptr<CaptureFollower>> follower = CaptureFollower::Create(
        {.ipc_fd = options.fd}, [&options, &pcapng](const CaptureEvent& event, double unix_time) {
            PrintEvent(event, std::cout, options.full);
            std::cout.flush();
            if (pcapng) WriteEvent(pcapng.get(), event, unix_time);
        });
    if (!follower.ok()) return Failed(kDecode, follower.error().message());
    following = follower->get();
    struct sigaction action = {};
    action.sa_handler = OnInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    Result<Capture> capture = (*follower)->Follow(opened.get() < 0 ? STDIN_FILENO : opened.get());
    signal(SIGINT, SIG_DFL);
    following = nullptr;
    if (pcapng) {
        if (Result<void> closed = pcapng->Close(); !closed.ok()) {
            return Failed(kDecode, closed.error().message());
        }
    }
    if (!capture.ok()) {
        return Failed(kDecode, fmt::format("{}: {}", source, capture.error().message()));
    }
    return WriteScenario(options, *capture);
}

// Prints a capture (strace's output of the daemon, the rig's transcript, or plain hex) as the
// transcript shows a session, and writes it as a scenario or a pcapng file when asked.
int Decode(const DecodeOptions& options) {
    if (options.follow) return Follow(options);
    const std::string source = Source(options);
    std::ifstream stream;
    std::istringstream merged;
    std::istream* in = &std::cin;
    if (options.files.size() == 1) {
        stream.open(source);
        in = &stream;
        if (!stream) {
            return Failed("tarvo-emu decode",
                          fmt::format("cannot read {}: {}", source, strerror(errno)));
        }
    } else if (options.files.size() > 1) {
        Result<std::string> lines = MergeStraceFiles(options.files);
        if (!lines.ok()) return Failed(kDecode, lines.error().message());
        merged.str(*lines);
        in = &merged;
    }
    Result<Capture> capture = ReadCapture(*in, {.ipc_fd = options.fd});
    if (!capture.ok()) {
        return Failed("tarvo-emu decode",
                      fmt::format("{}: {}", (options.files.empty() ? "<stdin>" : source),
                                  capture.error().message()));
    }
    PrintCapture(*capture, std::cout, options.full);
    if (!options.pcapng.empty()) {
        if (Result<void> written = WritePcapng(*capture, options.pcapng); !written.ok()) {
            return Failed(kDecode, written.error().message());
        }
        std::cout.flush();
        fmt::print(stderr,
                   "Read it with the profile that `tarvo-emu wireshark-profile "
                   "~/.config/wireshark/profiles/{0}` writes:\n  wireshark -C {0} {1}\n",
                   kWiresharkProfileName, options.pcapng);
    }
    return WriteScenario(options, *capture);
}

}  // namespace

// `tarvo-emu decode [FILE] [OPTION...]`. Reads a file and runs nothing, so it needs neither root
// nor the rig.
Command AddDecodeCommand(CLI::App& app) {
    auto options = std::make_shared<DecodeOptions>();
    CLI::App* decode = app.add_subcommand(
        "decode",
        "Reads a capture of the daemon's IPC node and prints it as the transcript shows a "
        "session: every message both ways in text format (bytes that do not parse as bytes), "
        "and between them read errors, end of file, signals and the boot node's states.\n"
        "The capture is strace's output (any of -t/-tt/-ttt, -xx/-x/neither, -X, -o or "
        "standard error, with -f, the hex dumps of -e read=all -e write=all, the files of -ff -o "
        "PREFIX given together), the whole transcript that `tarvo-emu run --transcript OUT` "
        "writes, or plain hex, one message a line. On a device:\n"
        "  strace -f -ttt -y -xx -s 70000 -e trace=read,write,ioctl -P /dev/oem_ipc1 "
        "-P /dev/umts_boot0 -o /data/local/tmp/tarvo.strace -p $(pidof tarvo)");
    decode
        ->add_option("FILE", options->files,
                     "the capture; standard input when not given. The files of `strace -ff -o "
                     "PREFIX` (PREFIX.PID each) are given together, and merged by their times")
        ->type_name("");
    decode
        ->add_option("--fd", options->fd,
                     "the descriptor of /dev/oem_ipc1, for a capture without -y and without the "
                     "open")
        ->type_name("FD");
    decode->add_flag("--full", options->full,
                     "show every payload whole, not by its start and size");
    decode->add_flag("--follow", options->follow,
                     "print each message (and write it to --pcapng) as soon as its strace call "
                     "is complete, from a pipe (`adb shell strace ... | tarvo-emu decode "
                     "--follow`) or a file that grows (as `tail -f`), until the end of the input "
                     "or Ctrl-C; the --scenario is written then");
    decode
        ->add_option("--pcapng", options->pcapng,
                     "write the capture to OUT as pcapng for Wireshark (see `tarvo-emu "
                     "wireshark-profile`)")
        ->type_name("OUT");
    decode
        ->add_option("--scenario", options->scenario,
                     "write the capture to OUT as a scenario that `tarvo-emu run OUT` replays")
        ->type_name("OUT");
    return {decode, [options] { return Decode(*options); }, [] { return false; }};
}

}  // namespace tarvo_emu
