#pragma once

#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>

#include <android-base/parseint.h>
#include <android-base/result.h>
#include <android-base/unique_fd.h>
#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "capture/pcapng_writer.h"
#include "rig/rig.h"

namespace tarvo_emu {

// A `tarvo-emu` command: its CLI11 declaration, which fills options that `run` owns, and its run
// once the command line is read.
struct Command {
    CLI::App* app = nullptr;
    // The exit status.
    std::function<int()> run;
    // Whether `run` needs root, a private mount namespace and the clean-up on signals: the rig's
    // FUSE mount and sandbox. Asked once the command line is read.
    std::function<bool()> needs_rig = [] { return true; };
};

// Each command, declared on `app`; each one's file says what it does.
Command AddRunCommand(CLI::App& app);
Command AddConsoleCommand(CLI::App& app);
Command AddExecCommand(CLI::App& app);
Command AddTputCommand(CLI::App& app);
Command AddDecodeCommand(CLI::App& app);
Command AddSoakCommand(CLI::App& app);
Command AddWiresharkProfileCommand(CLI::App& app);
Command AddWiresharkInstallCommand(CLI::App& app);
Command AddExtcapCommand(CLI::App& app);

// Help in the layout of the rig's commands: a usage line made from the options as declared
// (positionals first, then each option with its value's name, repeatable ones marked `...`, and a
// command taken whole after `--` last), the description, every option with its help, the footer.
// The help of a command with subcommands shows the usage line of each.
class CommandFormatter : public CLI::Formatter {
  public:
    CommandFormatter();

    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode mode) const override;
    std::string make_usage(const CLI::App* app, std::string name) const override;
};

// The exit status of a wrong command line.
constexpr int kUsageError = 2;

// Says what was wrong with `command`'s line and where to read how it goes; kUsageError.
int UsageError(const CLI::App* command, const std::string& why);

// Says why the command failed on standard error, after what standard output holds: `why`, after
// `who` and a colon when `who` is given. Returns 1, the exit status of a failure.
int Failed(const std::string& who, const std::string& why);

// The help of the `--pcapng` option of the commands that run a session.
constexpr char kPcapngHelp[] =
    "write the session to OUT as pcapng for Wireshark (see `tarvo-emu\n"
    "wireshark-profile`): each message when the daemon reads or writes it,\n"
    "faults as packet comments, the log lines in the same timeline";

// Refuses an output file that cannot be written while the command line is read, before any
// work; "-" (standard output) passes when `dash` is.
CLI::Validator WritableOutput(bool dash = false);

// Adds the option `name` to `command`, taking a number from `min` to `max` into `*value`;
// anything else is refused as "NAME takes WHAT, not "TEXT"".
template <typename T>
CLI::Option* AddNumberOption(CLI::App* command, const std::string& name, T* value,
                             const std::string& what, const std::string& help,
                             T min = std::numeric_limits<T>::min(),
                             T max = std::numeric_limits<T>::max()) {
    return command->add_option_function<std::string>(
        name,
        [=](const std::string& text) {
            bool parsed;
            if constexpr (std::is_signed_v<T>) {
                parsed = android::base::ParseInt(text, value, min, max);
            } else {
                parsed = android::base::ParseUint(text, value, max) && *value >= min;
            }
            if (!parsed) {
                throw CLI::ValidationError(
                    fmt::format("{} takes {}, not \"{}\"", name, what, text));
            }
        },
        help);
}

// Takes SIGINT, SIGTERM and SIGHUP over from the rig's clean-up while a session runs: each calls
// `on_signal`, which must be async-signal-safe, and writes its number as a byte to the pipe
// whose read end is returned, for the session's loop. A second SIGTERM or SIGHUP, and a second
// SIGINT when `interrupt_ends`, goes to the clean-up, which ends the process at once.
android::base::Result<android::base::unique_fd> TakeOverSignals(void (*on_signal)(),
                                                                bool interrupt_ends);

// The session's pcapng recorder on `path`, attached to the rig that takes `hooks`; none when
// `path` is empty.
android::base::Result<std::unique_ptr<PcapngWriter>> OpenPcapng(const std::string& path,
                                                                RigHooks* hooks);

}  // namespace tarvo_emu
