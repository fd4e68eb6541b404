// tarvo-emu: the host rig's command.
//
//   tarvo-emu run FILE [--quiet] [--transcript FILE]
//       Plays a scenario (emulator/scenario.proto, text format) against `tarvo -s` and the
//       emulated modem; prints the transcript, long payloads shortened, unless --quiet, and
//       writes the whole transcript to the file given with --transcript. Exit 0 when every
//       expectation held, 1 otherwise.
//   tarvo-emu exec [--state N] [--daemon] [--discard-uplink] [--size-limit KIB]
//                  [--writable DIR]... [--file PATH=TEXT]... -- COMMAND [ARG...]
//       Runs COMMAND (an absolute path) inside the sandbox with the emulated modem in state N
//       (0 by default), and the daemon too with --daemon; exits with COMMAND's status, or 1
//       when COMMAND succeeded but a process printed a sanitizer report or the daemon ended.
//       For in-process tests of code that touches the device's paths. For long runs (a fuzzer's
//       millions of messages): --discard-uplink drops every message written on oem_ipc1 unread
//       and keeps no log lines, --size-limit makes /data and /mnt tmpfs trees of KIB KiB each,
//       --writable shows a host directory (a corpus) writable at its own path. --file puts a
//       file holding TEXT at PATH (under /data, /mnt or /vendor) before COMMAND starts.
//   tarvo-emu tput [--plot FILE.svg] [--json FILE|-] [--block-size N] [--rate BYTES_PER_S]
//       Runs the IPC throughput test (`tarvo -t`) against the emulated modem, whose downlink
//       streams blocks of N bytes (65536) at the rate given (as fast as read when 0 or not
//       given), then measures a bare reader and a bare writer of the node. Prints the table;
//       writes the plot (gnuplot) and the figures as JSON when asked.

#include <stdio.h>
#include <string.h>

#include <cerrno>
#include <fstream>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include <android-base/parseint.h>
#include <android-base/result.h>

#include "rig.h"
#include "scenario_player.h"
#include "tput_command.h"

using android::base::Result;

namespace {

int Usage() {
    fprintf(stderr,
            "usage: tarvo-emu run FILE [--quiet] [--transcript FILE]\n"
            "       tarvo-emu exec [--state N] [--daemon] [--discard-uplink] [--size-limit KIB]\n"
            "                      [--writable DIR]... [--file PATH=TEXT]... -- COMMAND [ARG...]\n"
            "       tarvo-emu tput [--plot FILE.svg] [--json FILE|-] [--block-size N]"
            " [--rate BYTES_PER_S]\n");
    return 2;
}

int Run(const std::vector<std::string>& args) {
    std::string file;
    std::string transcript_file;
    bool quiet = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--quiet") {
            quiet = true;
        } else if (arg == "--transcript" && i + 1 < args.size()) {
            transcript_file = args[++i];
        } else if (file.empty()) {
            file = arg;
        } else {
            return Usage();
        }
    }
    if (file.empty()) return Usage();

    tarvo_emu::ScenarioOrigin origin;
    Result<tarvo_scenario::Scenario> scenario = tarvo_emu::LoadScenario(file, &origin);
    if (!scenario.ok()) {
        fprintf(stderr, "%s\n", scenario.error().message().c_str());
        return 1;
    }
    std::ofstream full_transcript;
    if (!transcript_file.empty()) {
        full_transcript.open(transcript_file);
        if (!full_transcript) {
            fprintf(stderr, "cannot write %s: %s\n", transcript_file.c_str(), strerror(errno));
            return 1;
        }
    }
    Result<void> played =
        tarvo_emu::PlayScenario(*scenario, quiet ? nullptr : &std::cout, &origin,
                                transcript_file.empty() ? nullptr : &full_transcript);
    if (!played.ok()) {
        std::cout << std::flush;
        // The failure names the file itself.
        fprintf(stderr, "FAILED %s\n", played.error().message().c_str());
        return 1;
    }
    if (!quiet) printf("PASSED %s\n", file.c_str());
    return 0;
}

int Exec(const std::vector<std::string>& args) {
    tarvo_emu::RigOptions options;
    options.start_daemon = false;
    size_t i = 0;
    for (; i < args.size() && args[i] != "--"; ++i) {
        const bool has_value = i + 1 < args.size();
        if (args[i] == "--daemon") {
            options.start_daemon = true;
        } else if (args[i] == "--discard-uplink") {
            options.uplink_tap = [](std::string_view) { return true; };
            options.keep_logs = false;
        } else if (args[i] == "--size-limit" && has_value) {
            if (!android::base::ParseUint(args[++i], &options.data_size_limit_kib) ||
                options.data_size_limit_kib == 0) {
                return Usage();
            }
            options.mnt_size_limit_kib = options.data_size_limit_kib;
        } else if (args[i] == "--writable" && has_value) {
            options.writable.push_back(args[++i]);
        } else if (args[i] == "--file" && has_value) {
            const std::string& file = args[++i];
            const size_t equals = file.find('=');
            if (equals == std::string::npos) return Usage();
            options.files.push_back({file.substr(0, equals), file.substr(equals + 1), 0644});
        } else if (args[i] == "--state" && has_value) {
            if (!android::base::ParseInt(args[++i], &options.initial_state)) {
                fprintf(stderr, "tarvo-emu: bad state \"%s\"\n", args[i].c_str());
                return Usage();
            }
        } else {
            return Usage();
        }
    }
    if (i + 1 >= args.size()) return Usage();
    const std::vector<std::string> command(args.begin() + i + 1, args.end());

    options.transcript = &std::cout;
    tarvo_emu::Rig rig(options);
    if (Result<void> started = rig.Start(); !started.ok()) {
        fprintf(stderr, "tarvo-emu: %s\n", started.error().message().c_str());
        return 1;
    }
    const tarvo_emu::ProcessResult result = rig.Run(command, std::chrono::hours(1));
    if (Result<void> health = rig.CheckHealth(); !health.ok()) {
        fprintf(stderr, "tarvo-emu: %s\n", health.error().message().c_str());
        return result.status == 0 ? 1 : result.status;
    }
    return result.status;
}

int Tput(const std::vector<std::string>& args) {
    tarvo_emu::TputCommandOptions options;
    for (size_t i = 0; i < args.size(); ++i) {
        const bool has_value = i + 1 < args.size();
        if (args[i] == "--plot" && has_value) {
            options.plot = args[++i];
        } else if (args[i] == "--json" && has_value) {
            options.json = args[++i];
        } else if (args[i] == "--block-size" && has_value) {
            if (!android::base::ParseUint(args[++i], &options.block_size, uint64_t{65568}) ||
                options.block_size == 0) {
                return Usage();
            }
        } else if (args[i] == "--rate" && has_value) {
            if (!android::base::ParseUint(args[++i], &options.bytes_per_s)) return Usage();
        } else {
            return Usage();
        }
    }
    return tarvo_emu::RunTputCommand(options);
}

}  // namespace

int main(int argc, char** argv) {
    // Without a namespace of its own, a crash would leave the emulator's mount behind.
    if (!tarvo_emu::EnterPrivateMountNamespace()) {
        fprintf(stderr, "tarvo-emu: cannot enter a private mount namespace (run as root)\n");
    }
    if (argc < 2) return Usage();
    const std::string command = argv[1];
    const std::vector<std::string> args(argv + 2, argv + argc);
    if (command == "run") return Run(args);
    if (command == "exec") return Exec(args);
    if (command == "tput") return Tput(args);
    return Usage();
}
