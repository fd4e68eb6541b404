#pragma once

#include <string>

#include "cli/tput_measurement.h"

namespace tarvo_emu {

struct TputCommandOptions {
    std::string plot;  // SVG file; none when empty
    std::string json;  // JSON file, "-" for stdout; none when empty
    DownlinkSettings downlink;
};

// `tarvo-emu tput`: runs `tarvo -t` against the emulated modem and reports. The exit status.
int RunTputCommand(const TputCommandOptions& options);

}  // namespace tarvo_emu
