#pragma once

#include <string>

#include <android-base/result.h>

#include "soak/soak_summary.h"

namespace tarvo_emu {

// `summary` as the JSON report of `tarvo-emu soak --json`: {"seeds", "stimuli", "checks",
// "faults": {kind: count}, "divergences": [{"seed", "message", "scenario"}],
// "checks_per_second", "peak": {"descriptors", "threads", "memory_kib"}, "seconds"}.
std::string SoakSummaryJson(const SoakSummary& summary);

// Reads a report that SoakSummaryJson wrote; the error names the file and what is wrong.
android::base::Result<SoakSummary> ReadSoakSummary(const std::string& path);

}  // namespace tarvo_emu
