#include "cli/decode_command.h"

#include <string.h>

#include <cerrno>
#include <fstream>
#include <iostream>
#include <optional>

#include <android-base/file.h>
#include <android-base/result.h>

#include "capture/capture_reader.h"
#include "capture/capture_scenario.h"
#include "capture/pcapng_writer.h"
#include "capture/wireshark_profile.h"

using android::base::Result;

namespace tarvo_emu {

CLI::App* AddDecodeCommand(CLI::App& app, DecodeOptions* options) {
    CLI::App* decode = app.add_subcommand(
        "decode",
        "Reads a capture of the daemon's IPC node and prints it as the transcript shows a "
        "session: every message both ways in text format (bytes that do not parse as bytes), "
        "and between them read errors, end of file, signals and the boot node's states.\n"
        "The capture is strace's output (any of -t/-tt/-ttt, -xx/-x/neither, -o or standard "
        "error, with -f), the whole transcript that `tarvo-emu run --transcript OUT` writes, or "
        "plain hex, one message a line. On a device:\n"
        "  strace -f -ttt -y -xx -s 70000 -e trace=read,write,ioctl -P /dev/oem_ipc1 "
        "-P /dev/umts_boot0 -o /data/local/tmp/tarvo.strace -p $(pidof tarvo)");
    decode->add_option("FILE", options->file, "the capture; standard input when not given")
        ->type_name("");
    decode
        ->add_option("--fd", options->fd,
                     "the descriptor of /dev/oem_ipc1, for a capture without -y and without the "
                     "open")
        ->type_name("FD");
    decode->add_flag("--full", options->full,
                     "show every payload whole, not by its start and size");
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
    const std::string& file = options.file;
    std::ifstream stream;
    if (!file.empty()) {
        stream.open(file);
        if (!stream) {
            std::cerr << "tarvo-emu decode: cannot read " << file << ": " << strerror(errno)
                      << "\n";
            return 1;
        }
    }
    StraceOptions strace;
    strace.ipc_fd = options.fd;
    Result<Capture> capture = ReadCapture(file.empty() ? std::cin : stream, strace);
    if (!capture.ok()) {
        std::cerr << "tarvo-emu decode: " << (file.empty() ? "<stdin>" : file) << ": "
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
    if (!options.scenario.empty() &&
        !android::base::WriteStringToFile(
            CaptureScenarioText(*capture, file.empty() ? "standard input" : file),
            options.scenario)) {
        std::cerr << "tarvo-emu decode: cannot write " << options.scenario << ": "
                  << strerror(errno) << "\n";
        return 1;
    }
    return 0;
}

}  // namespace tarvo_emu
