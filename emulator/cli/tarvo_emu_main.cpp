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

#include "cli/command.h"
#include "process/signal_cleanup.h"
#include "rig/rig.h"

using android::base::Result;

namespace tarvo_emu {
namespace {

constexpr char kExitStatuses[] =
    "Exit status: 0 when every expectation held (or the command did its work), 1 when one\n"
    "failed or the rig could not start (the message says which), 2 for a wrong command line,\n"
    "128+N when signal N ended it (Ctrl-C: 130; its output's reader gone: 141; SIGTERM: 143),\n"
    "after stopping the daemon and removing the sandbox's temporary tree.\n";

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

int Main(int argc, char** argv) {
    // Protobuf makes the pool of its generated descriptors on first use, under a lock of its own
    // that ThreadSanitizer does not see (libprotobuf is not built with it). Made here, before any
    // thread, the pool is made before every thread that uses it, the soak's rigs on several cores
    // among them.
    google::protobuf::DescriptorPool::generated_pool();
    CLI::App app(
        "The host rig of the tarvo daemon: the unmodified daemon in a sandbox at the device's\n"
        "paths, against an emulated modem and RIL. Needs root (FUSE and bubblewrap).",
        "tarvo-emu");
    app.formatter(std::make_shared<CommandFormatter>());
    app.footer(kExitStatuses);
    app.allow_extras();
    // Subcommands take the formatter, and keep what they do not know for the messages below.
    std::vector<Command> commands;
    for (Command (*add)(CLI::App&) :
         {AddRunCommand, AddConsoleCommand, AddExecCommand, AddTputCommand, AddDecodeCommand,
          AddSoakCommand, AddWiresharkProfileCommand, AddWiresharkInstallCommand,
          AddExtcapCommand}) {
        commands.push_back(add(app));
        commands.back().app->allow_extras()->footer(kExitStatuses);
    }
    CLI::App* const help = app.add_subcommand("help")->group("");

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        fmt::print("{}", app.help());
        return 0;
    } catch (const CLI::RequiredError&) {
        // The scenario file of `run` and the profile's folder are the arguments that must be
        // given.
        if (CLI::App* profile = app.get_subcommand("wireshark-profile"); profile->parsed()) {
            return UsageError(profile, "no folder given");
        }
        return UsageError(app.get_subcommand("run"), "no scenario file given");
    } catch (const CLI::ParseError& error) {
        const std::vector<CLI::App*> given = app.get_subcommands();
        return UsageError(given.empty() ? &app : given.front(), error.what());
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
    const Command& command = *std::find_if(
        commands.begin(), commands.end(), [&](const Command& c) { return c.app == given.front(); });
    // Wireshark's calls carry options of its own that the command takes as they come.
    if (command.app->get_name() != "extcap") {
        if (const std::vector<std::string> extra = Unexpected(command.app); !extra.empty()) {
            return ExtraArgumentError(command.app, extra.front());
        }
    }
    if (!command.needs_rig()) return command.run();

    if (geteuid() != 0) {
        return Failed("tarvo-emu",
                      "needs root: the emulated modem is a FUSE mount and the sandbox is made by "
                      "bubblewrap, and both need root here");
    }
    // Without a namespace of its own, a crash would leave the emulator's mount behind. Entered
    // while the process has one thread only.
    if (Result<void> entered = EnterPrivateMountNamespace(); !entered.ok()) {
        fmt::print(stderr, "tarvo-emu: cannot enter a private mount namespace: {}\n",
                   entered.error().message());
    }
    const auto say_cleaned = [](int signal_number) {
        fmt::print(stderr, "\ntarvo-emu: {}: daemon stopped, temporary tree removed\n",
                   strsignal(signal_number));
    };
    if (Result<void> installed = InstallSignalCleanup(say_cleaned); !installed.ok()) {
        fmt::print(stderr, "tarvo-emu: no clean-up on signals: {}\n", installed.error().message());
    }
    return command.run();
}

}  // namespace
}  // namespace tarvo_emu

int main(int argc, char** argv) { return tarvo_emu::Main(argc, argv); }
