#pragma once

#include <string>

#include <CLI/CLI.hpp>

#include "measure/tput_measurement.h"

namespace tarvo_emu {

struct TputCommandOptions {
    std::string plot;  // SVG file; none when empty
    std::string json;  // JSON file, "-" for stdout; none when empty
    DownlinkSettings downlink;
};

// Declares `tarvo-emu tput [--plot FILE.svg] [--json FILE|-] [--block-size N] [--rate
// BYTES_PER_S]` on `app`, filling `options`.
CLI::App* AddTputCommand(CLI::App& app, TputCommandOptions* options);

// Runs `tarvo -t` against the emulated modem and reports. The exit status.
int RunTputCommand(const TputCommandOptions& options);

}  // namespace tarvo_emu
