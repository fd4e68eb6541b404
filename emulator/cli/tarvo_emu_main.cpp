// tarvo-emu: the host rig's command. `tarvo-emu --help` and `tarvo-emu COMMAND --help` say
// what each command does.

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <android-base/result.h>
#include <fmt/format.h>
#include <google/protobuf/descriptor.h>
#include <CLI/CLI.hpp>

#include "cli/command_formatter.h"
#include "cli/console_command.h"
#include "cli/decode_command.h"
#include "cli/exec_command.h"
#include "cli/extcap_command.h"
#include "cli/run_command.h"
#include "cli/soak_command.h"
#include "cli/tput_command.h"
#include "cli/wireshark_install_command.h"
#include "cli/wireshark_profile_command.h"
#include "process/signal_cleanup.h"
#include "rig/rig.h"

using android::base::Result;

namespace {

constexpr int kUsageError = 2;

constexpr char kExitStatuses[] =
    "Exit status: 0 when every expectation held (or the command did its work), 1 when one\n"
    "failed or the rig could not start (the message says which), 2 for a wrong command line,\n"
    "128+N when signal N ended it (Ctrl-C: 130; its output's reader gone: 141; SIGTERM: 143),\n"
    "after stopping the daemon and removing the sandbox's temporary tree.\n";

// What each subcommand was given.
struct CommandLine {
    tarvo_emu::RunOptions run;
    tarvo_emu::ConsoleOptions console;
    tarvo_emu::ExecOptions exec;
    tarvo_emu::TputCommandOptions tput;
    tarvo_emu::DecodeOptions decode;
    tarvo_emu::SoakCommandOptions soak;
    std::string profile_dir;
    tarvo_emu::WiresharkInstallOptions install;
    tarvo_emu::ExtcapOptions extcap;
};

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

}  // namespace

int main(int argc, char** argv) {
    // Protobuf makes the pool of its generated descriptors on first use, under a lock of its own
    // that ThreadSanitizer does not see (libprotobuf is not built with it). Made here, before any
    // thread, the pool is made before every thread that uses it, the soak's rigs on several cores
    // among them.
    google::protobuf::DescriptorPool::generated_pool();
    CLI::App app(
        "The host rig of the tarvo daemon: the unmodified daemon in a sandbox at the device's\n"
        "paths, against an emulated modem and RIL. Needs root (FUSE and bubblewrap).",
        "tarvo-emu");
    app.formatter(std::make_shared<tarvo_emu::CommandFormatter>());
    app.footer(kExitStatuses);
    app.allow_extras();
    // Subcommands take the formatter, and keep what they do not know for the messages below.
    CommandLine line;
    CLI::App* const run = tarvo_emu::AddRunCommand(app, &line.run);
    CLI::App* const console = tarvo_emu::AddConsoleCommand(app, &line.console);
    CLI::App* const exec = tarvo_emu::AddExecCommand(app, &line.exec);
    CLI::App* const tput = tarvo_emu::AddTputCommand(app, &line.tput);
    CLI::App* const decode = tarvo_emu::AddDecodeCommand(app, &line.decode);
    CLI::App* const soak = tarvo_emu::AddSoakCommand(app, &line.soak);
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
    // Wireshark's calls carry options of its own that the command takes as they come.
    if (command == extcap) return tarvo_emu::RunExtcapCommand(line.extcap);
    if (const std::vector<std::string> extra = Unexpected(command); !extra.empty()) {
        return ExtraArgumentError(command, extra.front());
    }
    if (command == exec && line.exec.command.empty()) {
        return UsageError(exec, "no command after --");
    }
    // Reads a file and runs nothing, so it needs neither root nor the rig.
    if (command == decode) return tarvo_emu::RunDecodeCommand(line.decode);
    if (command == profile) return tarvo_emu::RunWiresharkProfileCommand(line.profile_dir);
    if (command == install) return tarvo_emu::RunWiresharkInstallCommand(line.install);
    if (command == soak && !line.soak.merge.empty()) return tarvo_emu::RunSoakCommand(line.soak);

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
    const auto say_cleaned = [](int signal_number) {
        fmt::print(stderr, "\ntarvo-emu: {}: daemon stopped, temporary tree removed\n",
                   strsignal(signal_number));
    };
    if (Result<void> installed = tarvo_emu::InstallSignalCleanup(say_cleaned); !installed.ok()) {
        fmt::print(stderr, "tarvo-emu: no clean-up on signals: {}\n", installed.error().message());
    }
    if (command == run) return tarvo_emu::RunRunCommand(line.run);
    if (command == console) return tarvo_emu::RunConsole(line.console);
    if (command == exec) return tarvo_emu::RunExecCommand(line.exec);
    if (command == soak) return tarvo_emu::RunSoakCommand(line.soak);
    return tarvo_emu::RunTputCommand(line.tput);
}
