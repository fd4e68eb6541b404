#include "cli/decode_command.h"

#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>

#include <android-base/file.h>
#include <android-base/result.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>

#include "capture/capture_reader.h"
#include "capture/capture_scenario.h"
#include "capture/pcapng_writer.h"

using android::base::Result;

namespace tarvo_emu {

namespace {

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
        std::cerr << "tarvo-emu decode: cannot write " << options.scenario << ": "
                  << strerror(errno) << "\n";
        return 1;
    }
    return 0;
}

// Prints (and writes to --pcapng) each message as soon as its call is complete, until the end of
// the input or Ctrl-C, then writes the scenario.
int Follow(const DecodeOptions& options) {
    const std::string source = Source(options);
    if (options.files.size() > 1) {
        std::cerr << "tarvo-emu decode: --follow reads one capture, not " << source << "\n";
        return 1;
    }
    android::base::unique_fd opened;
    if (!options.files.empty()) {
        opened.reset(open(source.c_str(), O_RDONLY | O_CLOEXEC));
        if (opened.get() < 0) {
            std::cerr << "tarvo-emu decode: cannot read " << source << ": " << strerror(errno)
                      << "\n";
            return 1;
        }
    }
    std::unique_ptr<PcapngWriter> pcapng;
    if (!options.pcapng.empty()) {
        Result<std::unique_ptr<PcapngWriter>> writer = PcapngWriter::Open(options.pcapng);
        if (!writer.ok()) {
            std::cerr << "tarvo-emu decode: " << writer.error().message() << "\n";
            return 1;
        }
        pcapng = std::move(*writer);
    }
    StraceOptions strace;
    strace.ipc_fd = options.fd;
    Result<std::unique_ptr<CaptureFollower>> follower = CaptureFollower::Create(
        strace, [&options, &pcapng](const CaptureEvent& event, double unix_time) {
            PrintEvent(event, std::cout, options.full);
            std::cout.flush();
            if (pcapng) WriteEvent(pcapng.get(), event, unix_time);
        });
    if (!follower.ok()) {
        std::cerr << "tarvo-emu decode: " << follower.error().message() << "\n";
        return 1;
    }
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
            std::cerr << "tarvo-emu decode: " << closed.error().message() << "\n";
            return 1;
        }
    }
    if (!capture.ok()) {
        std::cerr << "tarvo-emu decode: " << source << ": " << capture.error().message() << "\n";
        return 1;
    }
    return WriteScenario(options, *capture);
}

}  // namespace

CLI::App* AddDecodeCommand(CLI::App& app, DecodeOptions* options) {
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
    return decode;
}

int RunDecodeCommand(const DecodeOptions& options) {
    if (options.follow) return Follow(options);
    const std::string source = Source(options);
    std::ifstream stream;
    std::istringstream merged;
    if (options.files.size() == 1) {
        stream.open(source);
        if (!stream) {
            std::cerr << "tarvo-emu decode: cannot read " << source << ": " << strerror(errno)
                      << "\n";
            return 1;
        }
    } else if (options.files.size() > 1) {
        Result<std::string> lines = MergeStraceFiles(options.files);
        if (!lines.ok()) {
            std::cerr << "tarvo-emu decode: " << lines.error().message() << "\n";
            return 1;
        }
        merged.str(*lines);
    }
    StraceOptions strace;
    strace.ipc_fd = options.fd;
    std::istream* in = &std::cin;
    if (options.files.size() == 1) in = &stream;
    if (options.files.size() > 1) in = &merged;
    Result<Capture> capture = ReadCapture(*in, strace);
    if (!capture.ok()) {
        std::cerr << "tarvo-emu decode: " << (options.files.empty() ? "<stdin>" : source) << ": "
                  << capture.error().message() << "\n";
        return 1;
    }
    PrintCapture(*capture, std::cout, options.full);
    if (!options.pcapng.empty()) {
        if (Result<void> written = WritePcapng(*capture, options.pcapng); !written.ok()) {
            std::cerr << "tarvo-emu decode: " << written.error().message() << "\n";
            return 1;
        }
        std::cerr << "Read it with the profile that `tarvo-emu wireshark-profile "
                     "~/.config/wireshark/profiles/"
                  << kWiresharkProfileName << "` writes:\n  wireshark -C " << kWiresharkProfileName
                  << " " << options.pcapng << "\n";
    }
    return WriteScenario(options, *capture);
}

}  // namespace tarvo_emu
