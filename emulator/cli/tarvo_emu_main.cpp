// tarvo-emu: the host rig's command. `tarvo-emu --help` and `tarvo-emu COMMAND --help` say
// what each command does.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ext/stdio_filebuf.h>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <android-base/parseint.h>
#include <android-base/result.h>
#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "capture/pcapng_recorder.h"
#include "cli/command_formatter.h"
#include "cli/console.h"
#include "cli/decode_command.h"
#include "cli/extcap_command.h"
#include "cli/output_path.h"
#include "cli/soak_command.h"
#include "cli/tput_command.h"
#include "cli/wireshark_install_command.h"
#include "cli/wireshark_profile_command.h"
#include "process/signal_cleanup.h"
#include "rig/rig.h"
#include "scenario/scenario_player.h"

using android::base::Result;

namespace {

constexpr int kUsageError = 2;
constexpr uint64_t kMaxBlockSize = 65568;

constexpr char kExitStatuses[] =
    "Exit status: 0 when every expectation held (or the command did its work), 1 when one\n"
    "failed or the rig could not start (the message says which), 2 for a wrong command line,\n"
    "128+N when signal N ended it (Ctrl-C: 130; its output's reader gone: 141; SIGTERM: 143),\n"
    "after stopping the daemon and removing the sandbox's temporary tree.\n";

// A command line's fault, said in the words of the option it concerns.
[[noreturn]] void Refuse(const std::string& why) { throw CLI::ValidationError(why); }

// Refuses an output file that cannot be written while the command line is read, before any
// work; "-" (standard output) passes when `dash` is.
CLI::Validator Writable(bool dash = false) {
    return CLI::Validator(
        [dash](std::string& path) -> std::string {
            if (dash && path == "-") return "";
            const Result<void> writable = tarvo_emu::CheckOutputPath(path);
            return writable.ok() ? "" : writable.error().message();
        },
        "", "WRITABLE");
}

// What each subcommand was given.
struct CommandLine {
    std::string scenario_file;
    std::string record;
    std::string transcript_file;
    std::string pcapng;
    bool quiet = false;
    tarvo_emu::ConsoleOptions console;
    tarvo_emu::RigOptions exec;
    tarvo_emu::RigHooks exec_hooks;
    std::vector<std::string> command;
    tarvo_emu::TputCommandOptions tput;
    tarvo_emu::DecodeOptions decode;
    std::string profile_dir;
    tarvo_emu::WiresharkInstallOptions install;
    tarvo_emu::ExtcapOptions extcap;
};

CLI::App* AddRun(CLI::App& app, CommandLine& line) {
    CLI::App* run = app.add_subcommand(
        "run",
        "Plays a scenario (protobuf text format, schema emulator/scenario/scenario.proto) against\n"
        "the daemon `tarvo -s` in a sandbox with the emulated modem, and prints the transcript:\n"
        "every message both ways, RIL requests and answers, log lines, steps; payloads of more\n"
        "than 300 bytes shown by their start and size. A failure names the step's file and\n"
        "line, and shows what came nearest to what the step expected.");
    run->add_option("FILE", line.scenario_file, "the scenario to play")->required()->type_name("");
    run->add_flag("--quiet", line.quiet, "print only a failure and the summary");
    run->add_option("--record", line.record,
                    "write the session to OUT as a scenario: the setup, the steps,\n"
                    "and after each step what the daemon did that no step expected")
        ->type_name("OUT")
        ->check(Writable());
    run->add_option("--pcapng", line.pcapng,
                    "write the session to OUT as pcapng for Wireshark (see `tarvo-emu\n"
                    "wireshark-profile`): each message when the daemon reads or writes it,\n"
                    "faults as packet comments, the log lines in the same timeline")
        ->type_name("OUT")
        ->check(Writable());
    run->add_option("--transcript", line.transcript_file,
                    "write the whole transcript to OUT, every payload in full")
        ->type_name("OUT")
        ->check(Writable());
    return run;
}

CLI::App* AddConsole(CLI::App& app, CommandLine& line) {
    CLI::App* console = app.add_subcommand(
        "console",
        "Starts the sandbox and the daemon (with FILE's setup, and its steps played first,\n"
        "when given) and plays each step typed at once, in scenario text format, while the\n"
        "transcript streams: `modem_state: 4`, `send { ... }`, `client: \"-m\"`,\n"
        "`expect_log { ... }`. A line that leaves a brace open goes on on the next. `help`\n"
        "lists every step kind with an example; Tab completes step and field names; `quit`\n"
        "or Ctrl-D ends the session. Standard input that is not a terminal is read as steps.\n"
        "Exit status 1 when a step failed.");
    console->add_option("FILE", line.console.file, "a scenario whose setup and steps come first")
        ->type_name("");
    console
        ->add_option("--record", line.console.record,
                     "write the session to OUT as a scenario that `tarvo-emu run` plays")
        ->type_name("OUT")
        ->check(Writable());
    console
        ->add_option("--pcapng", line.console.pcapng,
                     "write the session to OUT as pcapng for Wireshark (see `tarvo-emu\n"
                     "wireshark-profile`): each message when the daemon reads or writes it,\n"
                     "faults as packet comments, the log lines in the same timeline")
        ->type_name("OUT")
        ->check(Writable());
    return console;
}

CLI::App* AddExec(CLI::App& app, CommandLine& line) {
    CLI::App* exec = app.add_subcommand(
        "exec",
        "Runs COMMAND (an absolute path) inside the sandbox, with the emulated nodes at the\n"
        "device's paths; exits with COMMAND's status, or 1 when COMMAND succeeded but a\n"
        "process printed a sanitizer report or the daemon ended.");
    tarvo_emu::RigOptions& options = line.exec;
    options.start_daemon = false;
    exec->add_option_function<std::string>(
            "--state",
            [&options](const std::string& value) {
                if (!android::base::ParseInt(value, &options.initial_state)) {
                    Refuse(fmt::format("--state takes a number, not \"{}\"", value));
                }
            },
            "the boot node's state (0)")
        ->type_name("N");
    exec->add_flag("--daemon", options.start_daemon, "start `tarvo -s` too");
    exec->add_flag_callback(
        "--discard-uplink",
        [&line] {
            line.exec_hooks.uplink_tap = [](std::string_view) { return true; };
            line.exec_hooks.keep_logs = false;
        },
        "drop every message written on /dev/oem_ipc1 unread, keep no log\n"
        "lines (for a fuzzer's millions of messages)");
    exec->add_option_function<std::string>(
            "--size-limit",
            [&options](const std::string& value) {
                if (!android::base::ParseUint(value, &options.data_size_limit_kib) ||
                    options.data_size_limit_kib == 0) {
                    Refuse(fmt::format("--size-limit takes a number of KiB above 0, not \"{}\"",
                                       value));
                }
                options.mnt_size_limit_kib = options.data_size_limit_kib;
            },
            "/data and /mnt are tmpfs trees of KIB KiB each")
        ->type_name("KIB");
    exec->add_option("--writable", options.writable,
                     "show the host directory DIR writable at its own path")
        ->type_name("DIR")
        ->allow_extra_args(false);
    exec->add_option_function<std::vector<std::string>>(
            "--file",
            [&options](const std::vector<std::string>& values) {
                for (const std::string& value : values) {
                    const size_t equals = value.find('=');
                    if (equals == std::string::npos) {
                        Refuse(fmt::format("--file takes PATH=TEXT, not \"{}\"", value));
                    }
                    options.files.push_back(
                        {value.substr(0, equals), value.substr(equals + 1), 0644});
                }
            },
            "put a file holding TEXT at PATH (under /data, /mnt or /vendor)")
        ->type_name("PATH=TEXT")
        ->allow_extra_args(false);
    exec->add_option("COMMAND", line.command, "the command and its arguments, after --")
        ->type_name("");
    return exec;
}

CLI::App* AddTput(CLI::App& app, CommandLine& line) {
    CLI::App* tput = app.add_subcommand(
        "tput",
        "Runs the IPC throughput test (`tarvo -t`) against the emulated modem, then a bare\n"
        "reader of the node and a bare writer twice (how far the second run lies from the\n"
        "first shows how far one block size's figure strays), and prints the table.");
    tarvo_emu::TputCommandOptions& options = line.tput;
    tput->add_option("--plot", options.plot, "draw the downlink samples and uplink rates (gnuplot)")
        ->type_name("FILE.svg")
        ->check(Writable());
    tput->add_option("--json", options.json, "write the figures as JSON (- for standard output)")
        ->type_name("FILE|-")
        ->check(Writable(true));
    tput->add_option_function<std::string>(
            "--block-size",
            [&options](const std::string& value) {
                if (!android::base::ParseUint(value, &options.downlink.block_size, kMaxBlockSize) ||
                    options.downlink.block_size == 0) {
                    Refuse(
                        fmt::format("--block-size takes a number of bytes from 1 to {}, not "
                                    "\"{}\"",
                                    kMaxBlockSize, value));
                }
            },
            fmt::format("bytes per downlink block, 1 to {} ({})", kMaxBlockSize,
                        options.downlink.block_size))
        ->type_name("N");
    tput->add_option_function<std::string>(
            "--rate",
            [&options](const std::string& value) {
                if (!android::base::ParseUint(value, &options.downlink.bytes_per_s)) {
                    Refuse(fmt::format("--rate takes a number of bytes per second, not \"{}\"",
                                       value));
                }
            },
            "downlink rate; 0 or not given: as fast as read")
        ->type_name("BYTES_PER_S");
    return tput;
}

// Says what was wrong with the command line and where to read how it goes.
int UsageError(const CLI::App* command, const std::string& why) {
    fmt::print(stderr, "tarvo-emu {}: {}\nSee: tarvo-emu {} --help\n", command->get_name(), why,
               command->get_name());
    return kUsageError;
}

// Arguments that the command's options did not take: an unknown option, or a second file where
// one is allowed.
int ExtraArgumentError(const CLI::App* command, const std::string& extra) {
    if (extra.rfind("-", 0) != 0) {
        return UsageError(command, "one scenario at a time, not also " + extra);
    }
    return UsageError(command,
                      "unknown option " + extra +
                          (command->get_name() == "exec" ? " (the command goes after --)" : ""));
}

// What the command's options did not take, the `--` before the command left out.
std::vector<std::string> Unexpected(const CLI::App* command) {
    std::vector<std::string> extra = command->remaining();
    extra.erase(std::remove(extra.begin(), extra.end(), "--"), extra.end());
    return extra;
}

int Run(const CommandLine& line) {
    tarvo_emu::ScenarioOrigin origin;
    Result<tarvo_scenario::Scenario> scenario =
        tarvo_emu::LoadScenario(line.scenario_file, &origin);
    if (!scenario.ok()) {
        fmt::print(stderr, "{}\n", scenario.error().message());
        return 1;
    }
    // Opened close-on-exec, which std::ofstream cannot ask for: the daemon is to hold its own
    // descriptors only.
    std::unique_ptr<__gnu_cxx::stdio_filebuf<char>> transcript_buffer;
    if (!line.transcript_file.empty()) {
        const int fd = open(line.transcript_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC,
                            DEFFILEMODE);
        if (fd < 0) {
            fmt::print(stderr, "cannot write {}: {}\n", line.transcript_file, strerror(errno));
            return 1;
        }
        transcript_buffer = std::make_unique<__gnu_cxx::stdio_filebuf<char>>(fd, std::ios::out);
    }
    std::ostream full_transcript(transcript_buffer.get());
    tarvo_emu::RigHooks hooks;
    std::unique_ptr<tarvo_emu::PcapngRecorder> pcapng;
    if (!line.pcapng.empty()) {
        Result<std::unique_ptr<tarvo_emu::PcapngRecorder>> opened =
            tarvo_emu::PcapngRecorder::Open(line.pcapng);
        if (!opened.ok()) {
            fmt::print(stderr, "{}\n", opened.error().message());
            return 1;
        }
        pcapng = std::move(*opened);
        pcapng->Attach(&hooks);
    }
    tarvo_emu::PlaySummary summary;
    Result<void> played = tarvo_emu::PlayScenario(
        *scenario, {.transcript = line.quiet ? nullptr : &std::cout,
                    .full_transcript = transcript_buffer ? &full_transcript : nullptr,
                    .record = line.record,
                    .origin = &origin,
                    .colour = tarvo_emu::WantsColour(STDOUT_FILENO),
                    .summary = &summary,
                    .hooks = std::move(hooks)});
    if (pcapng) {
        if (Result<void> closed = pcapng->Close(); !closed.ok()) {
            fmt::print(stderr, "{}\n", closed.error().message());
            return 1;
        }
    }
    const std::string steps = tarvo_emu::SummaryText(summary);
    if (!played.ok()) {
        std::cout << std::flush;
        // The failure names the file itself.
        fmt::print(stderr, "FAILED {}\n{}: {}\n", played.error().message(), line.scenario_file,
                   steps);
        return 1;
    }
    fmt::print("PASSED {}: {}\n", line.scenario_file, steps);
    return 0;
}

int Exec(const CommandLine& line) {
    tarvo_emu::RigOptions options = line.exec;
    options.transcript = &std::cout;
    tarvo_emu::Rig rig(options, line.exec_hooks);
    if (Result<void> started = rig.Start(); !started.ok()) {
        fmt::print(stderr, "tarvo-emu: {}\n", started.error().message());
        return 1;
    }
    Result<tarvo_emu::ProcessResult> result = rig.Run(line.command, std::chrono::hours(1));
    if (!result.ok()) {
        fmt::print(stderr, "tarvo-emu: {}\n", result.error().message());
        return 1;
    }
    if (Result<void> health = rig.CheckHealth(); !health.ok()) {
        fmt::print(stderr, "tarvo-emu: {}\n", health.error().message());
        return result->status == 0 ? 1 : result->status;
    }
    return result->status;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app(
        "The host rig of the tarvo daemon: the unmodified daemon in a sandbox at the device's\n"
        "paths, against an emulated modem and RIL. Needs root (FUSE and bubblewrap).",
        "tarvo-emu");
    app.formatter(std::make_shared<tarvo_emu::CommandFormatter>());
    app.footer(kExitStatuses);
    app.allow_extras();
    // Subcommands take the formatter, and keep what they do not know for the messages below.
    CommandLine line;
    CLI::App* const run = AddRun(app, line);
    CLI::App* const console = AddConsole(app, line);
    CLI::App* const exec = AddExec(app, line);
    CLI::App* const tput = AddTput(app, line);
    CLI::App* const decode = tarvo_emu::AddDecodeCommand(app, &line.decode);
    tarvo_emu::SoakOptions soak_options;
    CLI::App* const soak = tarvo_emu::AddSoakCommand(app, &soak_options);
    CLI::App* const profile = tarvo_emu::AddWiresharkProfileCommand(app, &line.profile_dir);
    CLI::App* const install = tarvo_emu::AddWiresharkInstallCommand(app, &line.install);
    CLI::App* const extcap = tarvo_emu::AddExtcapCommand(app, &line.extcap);
    CLI::App* const help = app.add_subcommand("help")->group("");
    for (CLI::App* command : {run, console, exec, tput, decode, soak, profile, install, extcap}) {
        command->allow_extras()->footer(kExitStatuses);
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        fmt::print("{}", app.help());
        return 0;
    } catch (const CLI::RequiredError&) {
        // The scenario file of `run` and the profile's folder are the arguments that must be
        // given.
        if (profile->parsed()) return UsageError(profile, "no folder given");
        return UsageError(run, "no scenario file given");
    } catch (const CLI::ParseError& error) {
        const std::vector<CLI::App*> given = app.get_subcommands();
        if (given.empty()) return UsageError(&app, error.what());
        return UsageError(given.front(), error.what());
    }
    const std::vector<CLI::App*> given = app.get_subcommands();
    if (given.empty() || given.front() == help) {
        if (!app.remaining().empty()) {
            fmt::print(stderr, "tarvo-emu: no command \"{}\"\n", app.remaining().front());
        }
        const bool asked = !given.empty() && app.remaining().empty();
        fmt::print(
            asked ? stdout : stderr, "{}",
            app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal));
        return asked ? 0 : kUsageError;
    }
    CLI::App* const command = given.front();
    if (command == extcap) return tarvo_emu::RunExtcapCommand(line.extcap);  // any extras
    if (const std::vector<std::string> extra = Unexpected(command); !extra.empty()) {
        return ExtraArgumentError(command, extra.front());
    }
    if (command == exec && line.command.empty()) return UsageError(exec, "no command after --");
    // Reads a file and runs nothing, so it needs neither root nor the rig.
    if (command == decode) return tarvo_emu::RunDecode(line.decode);
    if (command == profile) return tarvo_emu::RunWiresharkProfileCommand(line.profile_dir);
    if (command == install) return tarvo_emu::RunWiresharkInstallCommand(line.install);

    if (geteuid() != 0) {
        fmt::print(stderr,
                   "tarvo-emu: needs root: the emulated modem is a FUSE mount and the sandbox is "
                   "made by bubblewrap, and both need root here\n");
        return 1;
    }
    // Without a namespace of its own, a crash would leave the emulator's mount behind. Entered
    // while the process has one thread only.
    if (Result<void> entered = tarvo_emu::EnterPrivateMountNamespace(); !entered.ok()) {
        fmt::print(stderr, "tarvo-emu: cannot enter a private mount namespace: {}\n",
                   entered.error().message());
    }
    if (Result<void> installed = tarvo_emu::InstallSignalCleanup(); !installed.ok()) {
        fmt::print(stderr, "tarvo-emu: no clean-up on signals: {}\n", installed.error().message());
    }
    if (command == run) return Run(line);
    if (command == console) return tarvo_emu::RunConsole(line.console);
    if (command == exec) return Exec(line);
    if (command == soak) return tarvo_emu::RunSoak(soak_options);
    return tarvo_emu::RunTputCommand(line.tput);
}
