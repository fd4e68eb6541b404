#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include "cli/command.h"
#include "rig/rig.h"

using android::base::Result;

namespace tarvo_emu {

namespace {

constexpr std::chrono::hours kCommandTimeout{1};

struct ExecOptions {
    RigOptions rig;
    RigHooks hooks;
    std::vector<std::string> command;
};

// Runs the command in the sandbox: its exit status, or 1 when the rig failed.
int Exec(const ExecOptions& options) {
    RigOptions rig_options = options.rig;
    rig_options.mnt_size_limit_kib = rig_options.data_size_limit_kib;
    rig_options.transcript = &std::cout;
    Rig rig(rig_options, options.hooks);
    if (Result<void> started = rig.Start(); !started.ok()) {
        return Failed("tarvo-emu", started.error().message());
    }
    Result<ProcessResult> result = rig.Run(options.command, kCommandTimeout);
    if (!result.ok()) return Failed("tarvo-emu", result.error().message());
    if (Result<void> health = rig.CheckHealth(); !health.ok()) {
        fmt::print(stderr, "tarvo-emu: {}\n", health.error().message());
        return result->status == 0 ? 1 : result->status;
    }
    return result->status;
}

}  // namespace

// `tarvo-emu exec [OPTION...] -- COMMAND...`.
Command AddExecCommand(CLI::App& app) {
    auto options = std::make_shared<ExecOptions>();
    CLI::App* exec = app.add_subcommand(
        "exec",
        "Runs COMMAND (an absolute path) inside the sandbox, with the emulated nodes at the\n"
        "device's paths; exits with COMMAND's status, or 1 when COMMAND succeeded but a\n"
        "process printed a sanitizer report or the daemon ended.");
    RigOptions& rig = options->rig;
    rig.start_daemon = false;
    AddNumberOption(exec, "--state", &rig.initial_state, "a number", "the boot node's state (0)")
        ->type_name("N");
    exec->add_flag("--daemon", rig.start_daemon, "start `tarvo -s` too");
    exec->add_flag_callback(
        "--discard-uplink",
        [&hooks = options->hooks] {
            hooks.uplink_tap = [](std::string_view) { return true; };
            hooks.keep_logs = false;
        },
        "drop every message written on /dev/oem_ipc1 unread, keep no log\n"
        "lines (for a fuzzer's millions of messages)");
    AddNumberOption(exec, "--size-limit", &rig.data_size_limit_kib, "a number of KiB above 0",
                    "/data and /mnt are tmpfs trees of KIB KiB each", 1u)
        ->type_name("KIB");
    exec->add_option("--writable", rig.writable,
                     "show the host directory DIR writable at its own path")
        ->type_name("DIR")
        ->allow_extra_args(false);
    exec->add_option_function<std::vector<std::string>>(
            "--file",
            [&rig](const std::vector<std::string>& values) {
                for (const std::string& value : values) {
                    const size_t equals = value.find('=');
                    if (equals == std::string::npos) {
                        throw CLI::ValidationError(
                            fmt::format("--file takes PATH=TEXT, not \"{}\"", value));
                    }
                    rig.files.push_back({value.substr(0, equals), value.substr(equals + 1), 0644});
                }
            },
            "put a file holding TEXT at PATH (under /data, /mnt or /vendor)")
        ->type_name("PATH=TEXT")
        ->allow_extra_args(false);
    exec->add_option("COMMAND", options->command, "the command and its arguments, after --")
        ->type_name("");
    return {exec,
            [exec, options] {
                if (options->command.empty()) return UsageError(exec, "no command after --");
                return Exec(*options);
            },
            // Without a command the line is wrong, which is said before the rig is asked for.
            [options] { return !options->command.empty(); }};
}

}  // namespace tarvo_emu
