#pragma once

#include "device/device_facts.h"
#include "process/log_line.h"

namespace tarvo_emu {

// The daemon's line that ends its start-up (kStartedText).
bool IsDaemonStarted(const LogLine& line);
// The monitor's report of a change to kModemOnline. It names the state it saw before, which it may
// not have read yet, so only the new state is compared.
bool IsOnlineReport(const LogLine& line);

}  // namespace tarvo_emu
