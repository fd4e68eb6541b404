// tarvo-emu: the host rig's command. `tarvo-emu --help` and `tarvo-emu COMMAND --help` say
// what each command does.

#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <android-base/parseint.h>
#include <android-base/result.h>

#include "cli/console.h"
#include "cli/decode_command.h"
#include "cli/output_path.h"
#include "cli/tput_command.h"
#include "process/signal_cleanup.h"
#include "rig/rig.h"
#include "scenario/scenario_player.h"

using android::base::Result;

namespace {

constexpr int kUsageError = 2;

constexpr char kExitStatuses[] =
    "Exit status: 0 when every expectation held (or the command did its work), 1 when one\n"
    "failed or the rig could not start (the message says which), 2 for a wrong command line,\n"
    "128+N when signal N ended it (Ctrl-C: 130; SIGTERM: 143), after stopping the daemon and\n"
    "removing the sandbox's temporary tree.\n";

const std::map<std::string, std::string>& HelpTexts() {
    static const auto* const kHelp = new std::map<std::string, std::string>{
        {"run",
         "usage: tarvo-emu run FILE [--quiet] [--record OUT] [--transcript OUT]\n"
         "\n"
         "Plays a scenario (protobuf text format, schema emulator/scenario/scenario.proto) against "
         "the\n"
         "daemon `tarvo -s` in a sandbox with the emulated modem, and prints the transcript:\n"
         "every message both ways, RIL requests and answers, log lines, steps; payloads of more\n"
         "than 300 bytes shown by their start and size. A failure names the step's file and\n"
         "line, and shows what came nearest to what the step expected.\n"
         "\n"
         "  --quiet           print only a failure and the summary\n"
         "  --transcript OUT  write the whole transcript to OUT, every payload in full\n"
         "  --record OUT      write the session to OUT as a scenario: the setup, the steps,\n"
         "                    and after each step what the daemon did that no step expected\n"},
        {"console",
         "usage: tarvo-emu console [FILE] [--record OUT]\n"
         "\n"
         "Starts the sandbox and the daemon (with FILE's setup, and its steps played first,\n"
         "when given) and plays each step typed at once, in scenario text format, while the\n"
         "transcript streams: `modem_state: 4`, `send { ... }`, `client: \"-m\"`,\n"
         "`expect_log { ... }`. A line that leaves a brace open goes on on the next. `help`\n"
         "lists every step kind with an example; Tab completes step and field names; `quit`\n"
         "or Ctrl-D ends the session. Standard input that is not a terminal is read as steps.\n"
         "\n"
         "  --record OUT  write the session to OUT as a scenario that `tarvo-emu run` plays\n"
         "\n"
         "Exit status 1 when a step failed.\n"},
        {"exec",
         "usage: tarvo-emu exec [--state N] [--daemon] [--discard-uplink] [--size-limit KIB]\n"
         "                      [--writable DIR]... [--file PATH=TEXT]... -- COMMAND [ARG...]\n"
         "\n"
         "Runs COMMAND (an absolute path) inside the sandbox, with the emulated nodes at the\n"
         "device's paths; exits with COMMAND's status, or 1 when COMMAND succeeded but a\n"
         "process printed a sanitizer report or the daemon ended.\n"
         "\n"
         "  --state N          the boot node's state (0)\n"
         "  --daemon           start `tarvo -s` too\n"
         "  --discard-uplink   drop every message written on /dev/oem_ipc1 unread, keep no log\n"
         "                     lines (for a fuzzer's millions of messages)\n"
         "  --size-limit KIB   /data and /mnt are tmpfs trees of KIB KiB each\n"
         "  --writable DIR     show the host directory DIR writable at its own path\n"
         "  --file PATH=TEXT   put a file holding TEXT at PATH (under /data, /mnt or /vendor)\n"},
        {"tput",
         "usage: tarvo-emu tput [--plot FILE.svg] [--json FILE|-] [--block-size N]\n"
         "                      [--rate BYTES_PER_S]\n"
         "\n"
         "Runs the IPC throughput test (`tarvo -t`) against the emulated modem, then a bare\n"
         "reader of the node and a bare writer twice (how far the second run lies from the\n"
         "first shows how far one block size's figure strays), and prints the table.\n"
         "\n"
         "  --plot FILE.svg       draw the downlink samples and uplink rates (gnuplot)\n"
         "  --json FILE|-         write the figures as JSON (- for standard output)\n"
         "  --block-size N        bytes per downlink block, 1 to 65568 (65536)\n"
         "  --rate BYTES_PER_S    downlink rate; 0 or not given: as fast as read\n"},
    };
    return *kHelp;
}

int Usage(FILE* out) {
    fprintf(out,
            "usage: tarvo-emu run FILE [--quiet] [--record OUT]\n"
            "       tarvo-emu console [FILE] [--record OUT]\n"
            "       tarvo-emu exec [OPTION...] -- COMMAND [ARG...]\n"
            "       tarvo-emu tput [OPTION...]\n"
            "       tarvo-emu decode [FILE] [OPTION...]\n"
            "       tarvo-emu COMMAND --help\n"
            "\n"
            "The host rig of the tarvo daemon: the unmodified daemon in a sandbox at the device's\n"
            "paths, against an emulated modem and RIL. Needs root (FUSE and bubblewrap).\n\n%s",
            kExitStatuses);
    return out == stdout ? 0 : kUsageError;
}

// Says what was wrong with the command line and where to read how it goes.
int UsageError(const std::string& command, const std::string& why) {
    fprintf(stderr, "tarvo-emu %s: %s\nSee: tarvo-emu %s --help\n", command.c_str(), why.c_str(),
            command.c_str());
    return kUsageError;
}

// The value after option `args[*i]`, or nothing when it is the last argument.
const std::string* ValueOf(const std::vector<std::string>& args, size_t* i) {
    if (*i + 1 >= args.size()) return nullptr;
    return &args[++*i];
}

// A usage error when `option`'s output file cannot be written, checked before any work.
std::optional<int> OutputError(const std::string& command, const std::string& option,
                               const std::string& path) {
    if (Result<void> writable = tarvo_emu::CheckOutputPath(path); !writable.ok()) {
        return UsageError(command, option + ": " + writable.error().message());
    }
    return std::nullopt;
}

int Run(const std::vector<std::string>& args) {
    std::string file;
    std::string record;
    std::string transcript_file;
    bool quiet = false;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--quiet") {
            quiet = true;
        } else if (args[i] == "--record") {
            const std::string* value = ValueOf(args, &i);
            if (value == nullptr) return UsageError("run", "--record needs a file");
            record = *value;
        } else if (args[i] == "--transcript") {
            const std::string* value = ValueOf(args, &i);
            if (value == nullptr) return UsageError("run", "--transcript needs a file");
            transcript_file = *value;
        } else if (args[i].rfind("--", 0) == 0) {
            return UsageError("run", "unknown option " + args[i]);
        } else if (!file.empty()) {
            return UsageError("run", "one scenario at a time, not also " + args[i]);
        } else {
            file = args[i];
        }
    }
    if (file.empty()) return UsageError("run", "no scenario file given");
    if (!record.empty()) {
        if (std::optional<int> error = OutputError("run", "--record", record)) return *error;
    }

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
    tarvo_emu::PlaySummary summary;
    Result<void> played = tarvo_emu::PlayScenario(
        *scenario, {.transcript = quiet ? nullptr : &std::cout,
                    .full_transcript = transcript_file.empty() ? nullptr : &full_transcript,
                    .record = record,
                    .origin = &origin,
                    .colour = tarvo_emu::WantsColour(STDOUT_FILENO),
                    .summary = &summary});
    const std::string steps = tarvo_emu::SummaryText(summary);
    if (!played.ok()) {
        std::cout << std::flush;
        // The failure names the file itself.
        fprintf(stderr, "FAILED %s\n%s: %s\n", played.error().message().c_str(), file.c_str(),
                steps.c_str());
        return 1;
    }
    printf("PASSED %s: %s\n", file.c_str(), steps.c_str());
    return 0;
}

int Console(const std::vector<std::string>& args) {
    tarvo_emu::ConsoleOptions options;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--record") {
            const std::string* value = ValueOf(args, &i);
            if (value == nullptr) return UsageError("console", "--record needs a file");
            options.record = *value;
        } else if (args[i].rfind("--", 0) == 0) {
            return UsageError("console", "unknown option " + args[i]);
        } else if (!options.file.empty()) {
            return UsageError("console", "one scenario at a time, not also " + args[i]);
        } else {
            options.file = args[i];
        }
    }
    if (!options.record.empty()) {
        if (std::optional<int> error = OutputError("console", "--record", options.record)) {
            return *error;
        }
    }
    return tarvo_emu::RunConsole(options);
}

int Exec(const std::vector<std::string>& args) {
    tarvo_emu::RigOptions options;
    options.start_daemon = false;
    size_t i = 0;
    for (; i < args.size() && args[i] != "--"; ++i) {
        const std::string& option = args[i];
        if (option == "--daemon") {
            options.start_daemon = true;
            continue;
        }
        if (option == "--discard-uplink") {
            options.uplink_tap = [](std::string_view) { return true; };
            options.keep_logs = false;
            continue;
        }
        if (option != "--size-limit" && option != "--writable" && option != "--file" &&
            option != "--state") {
            return UsageError("exec", "unknown option " + option + " (the command goes after --)");
        }
        const std::string* value = ValueOf(args, &i);
        if (value == nullptr) return UsageError("exec", option + " needs a value");
        if (option == "--size-limit") {
            if (!android::base::ParseUint(*value, &options.data_size_limit_kib) ||
                options.data_size_limit_kib == 0) {
                return UsageError(
                    "exec", "--size-limit takes a number of KiB above 0, not \"" + *value + "\"");
            }
            options.mnt_size_limit_kib = options.data_size_limit_kib;
        } else if (option == "--writable") {
            options.writable.push_back(*value);
        } else if (option == "--file") {
            const size_t equals = value->find('=');
            if (equals == std::string::npos) {
                return UsageError("exec", "--file takes PATH=TEXT, not \"" + *value + "\"");
            }
            options.files.push_back({value->substr(0, equals), value->substr(equals + 1), 0644});
        } else if (!android::base::ParseInt(*value, &options.initial_state)) {
            return UsageError("exec", "--state takes a number, not \"" + *value + "\"");
        }
    }
    if (i + 1 >= args.size()) return UsageError("exec", "no command after --");
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
    constexpr uint64_t kMaxBlockSize = 65568;
    tarvo_emu::TputCommandOptions options;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& option = args[i];
        if (option != "--plot" && option != "--json" && option != "--block-size" &&
            option != "--rate") {
            return UsageError("tput", "unknown option " + option);
        }
        const std::string* value = ValueOf(args, &i);
        if (value == nullptr) return UsageError("tput", option + " needs a value");
        if (option == "--plot") {
            options.plot = *value;
        } else if (option == "--json") {
            options.json = *value;
        } else if (option == "--block-size") {
            if (!android::base::ParseUint(*value, &options.block_size, kMaxBlockSize) ||
                options.block_size == 0) {
                return UsageError("tput", "--block-size takes a number of bytes from 1 to " +
                                              std::to_string(kMaxBlockSize) + ", not \"" + *value +
                                              "\"");
            }
        } else if (!android::base::ParseUint(*value, &options.bytes_per_s)) {
            return UsageError("tput",
                              "--rate takes a number of bytes per second, not \"" + *value + "\"");
        }
    }
    for (const auto& [option, path] :
         {std::pair{"--plot", options.plot}, {"--json", options.json}}) {
        if (path.empty() || path == "-") continue;
        if (std::optional<int> error = OutputError("tput", option, path)) return *error;
    }
    return tarvo_emu::RunTputCommand(options);
}

bool AsksForHelp(const std::vector<std::string>& args) {
    for (const std::string& arg : args) {
        if (arg == "--") return false;
        if (arg == "--help" || arg == "-h") return true;
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return Usage(stderr);
    const std::string command = argv[1];
    const std::vector<std::string> args(argv + 2, argv + argc);
    if (command == "--help" || command == "-h" || command == "help") return Usage(stdout);
    // Reads a file and runs nothing, so it needs neither root nor the rig.
    if (command == "decode") return tarvo_emu::RunDecode(args);
    const auto help = HelpTexts().find(command);
    if (help == HelpTexts().end()) {
        fprintf(stderr, "tarvo-emu: no command \"%s\"\n", command.c_str());
        return Usage(stderr);
    }
    if (AsksForHelp(args)) {
        printf("%s\n%s", help->second.c_str(), kExitStatuses);
        return 0;
    }
    if (geteuid() != 0) {
        fprintf(stderr,
                "tarvo-emu: needs root: the emulated modem is a FUSE mount and the sandbox is "
                "made by bubblewrap, and both need root here\n");
        return 1;
    }
    // Without a namespace of its own, a crash would leave the emulator's mount behind. Entered
    // while the process has one thread only.
    if (!tarvo_emu::EnterPrivateMountNamespace()) {
        perror("tarvo-emu: cannot enter a private mount namespace");
    }
    tarvo_emu::InstallSignalCleanup();
    if (command == "run") return Run(args);
    if (command == "console") return Console(args);
    if (command == "exec") return Exec(args);
    return Tput(args);
}
