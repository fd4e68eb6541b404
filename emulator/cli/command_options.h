#pragma once

#include <limits>
#include <memory>
#include <string>
#include <type_traits>

#include <android-base/parseint.h>
#include <android-base/result.h>
#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "capture/pcapng_writer.h"
#include "rig/rig_hooks.h"

namespace tarvo_emu {

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

// The session's pcapng recorder on `path`, attached to the rig that takes `hooks`; none when
// `path` is empty.
android::base::Result<std::unique_ptr<PcapngWriter>> OpenPcapng(const std::string& path,
                                                                RigHooks* hooks);

}  // namespace tarvo_emu
