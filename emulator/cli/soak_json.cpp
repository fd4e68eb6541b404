#include "cli/soak_json.h"

#include <android-base/file.h>
#include <nlohmann/json.hpp>

using android::base::Error;
using android::base::Result;
using nlohmann::json;

namespace tarvo_emu {

// Read in the order listed, so that a report lacking several fields names the first.
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(SoakPeak, descriptors, threads, memory_kib)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(SeedDivergence, seed, message, scenario)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(SoakSummary, seeds, stimuli, checks, faults, traffic,
                                   divergences, seconds, peak)

namespace {

constexpr int kIndent = 2;

}  // namespace

std::string SoakSummaryJson(const SoakSummary& summary) {
    json report = summary;
    report["checks_per_second"] = summary.checks_per_second();
    return report.dump(kIndent) + "\n";
}

Result<SoakSummary> ReadSoakSummary(const std::string& path) {
    std::string text;
    if (!android::base::ReadFileToString(path, &text)) {
        return android::base::ErrnoError() << path;
    }
    try {
        return json::parse(text).get<SoakSummary>();
    } catch (const json::exception& error) {
        return Error() << path << ": not a soak report: " << error.what();
    }
}

}  // namespace tarvo_emu
