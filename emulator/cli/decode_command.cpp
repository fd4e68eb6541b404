#include "cli/decode_command.h"

#include <string.h>

#include <cerrno>
#include <fstream>
#include <iostream>
#include <optional>

#include <android-base/file.h>
#include <android-base/result.h>
#include <CLI/CLI.hpp>

#include "capture/capture_reader.h"
#include "capture/capture_scenario.h"
#include "capture/pcapng_writer.h"

using android::base::Result;

namespace tarvo_emu {

int RunDecode(const std::vector<std::string>& args) {
    CLI::App app(
        "Reads a capture of the daemon's IPC node and prints it as the transcript shows a "
        "session: every message both ways in text format (bytes that do not parse as bytes), "
        "and between them read errors, end of file, signals and the boot node's states.\n"
        "The capture is strace's output (any of -t/-tt/-ttt, -xx/-x/neither, -o or standard "
        "error, with -f), the whole transcript that `tarvo-emu run --transcript OUT` writes, or "
        "plain hex, one message a line. On a device:\n"
        "  strace -f -ttt -y -xx -s 70000 -e trace=read,write,ioctl -P /dev/oem_ipc1 "
        "-P /dev/umts_boot0 -o /data/local/tmp/tarvo.strace -p $(pidof tarvo)",
        "tarvo-emu decode");
    std::string file;
    std::optional<int> fd;
    bool full = false;
    app.add_option("FILE", file, "the capture; standard input when not given");
    app.add_option("--fd", fd,
                   "the descriptor of /dev/oem_ipc1, for a capture without -y and without the "
                   "open");
    app.add_flag("--full", full, "show every payload whole, not by its start and size");
    std::string pcapng;
    app.add_option("--pcapng", pcapng,
                   "write the capture to OUT as pcapng for Wireshark (see `tarvo-emu "
                   "wireshark-profile`)")
        ->option_text("OUT");
    std::string scenario;
    app.add_option("--scenario", scenario,
                   "write the capture to OUT as a scenario that `tarvo-emu run OUT` replays")
        ->option_text("OUT");
    std::vector<std::string> reversed(args.rbegin(), args.rend());
    try {
        app.parse(reversed);
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    }

    std::ifstream stream;
    if (!file.empty()) {
        stream.open(file);
        if (!stream) {
            std::cerr << "tarvo-emu decode: cannot read " << file << ": " << strerror(errno)
                      << "\n";
            return 1;
        }
    }
    StraceOptions options;
    options.ipc_fd = fd;
    Result<Capture> capture = ReadCapture(file.empty() ? std::cin : stream, options);
    if (!capture.ok()) {
        std::cerr << "tarvo-emu decode: " << (file.empty() ? "<stdin>" : file) << ": "
                  << capture.error().message() << "\n";
        return 1;
    }
    PrintCapture(*capture, std::cout, full);
    if (!pcapng.empty()) {
        if (Result<void> written = WritePcapng(*capture, pcapng); !written.ok()) {
            std::cerr << "tarvo-emu decode: " << written.error().message() << "\n";
            return 1;
        }
        std::cerr << "Read it with the schema's folder as PROTO_DIR:\n  "
                  << TsharkCommand("PROTO_DIR", pcapng) << "\n";
    }
    if (!scenario.empty() &&
        !android::base::WriteStringToFile(
            CaptureScenarioText(*capture, file.empty() ? "standard input" : file), scenario)) {
        std::cerr << "tarvo-emu decode: cannot write " << scenario << ": " << strerror(errno)
                  << "\n";
        return 1;
    }
    return 0;
}

}  // namespace tarvo_emu
