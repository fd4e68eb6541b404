#include "cli/soak_json.h"

#include <android-base/file.h>
#include <nlohmann/json.hpp>

using android::base::Error;
using android::base::Result;
using nlohmann::json;

namespace tarvo_emu {

namespace {

constexpr int kIndent = 2;

}  // namespace

std::string SoakSummaryJson(const SoakSummary& summary) {
    json divergences = json::array();
    for (const SeedDivergence& divergence : summary.divergences) {
        divergences.push_back({{"seed", divergence.seed},
                               {"message", divergence.message},
                               {"scenario", divergence.scenario}});
    }
    const json report = {
        {"seeds", summary.seeds},
        {"stimuli", summary.stimuli},
        {"checks", summary.checks},
        {"faults", summary.faults},
        {"traffic", summary.traffic},
        {"divergences", divergences},
        {"checks_per_second", summary.checks_per_second()},
        {"peak",
         {{"descriptors", summary.peak.descriptors},
          {"threads", summary.peak.threads},
          {"memory_kib", summary.peak.memory_kib}}},
        {"seconds", summary.seconds},
    };
    return report.dump(kIndent) + "\n";
}

Result<SoakSummary> ReadSoakSummary(const std::string& path) {
    std::string text;
    if (!android::base::ReadFileToString(path, &text)) {
        return android::base::ErrnoError() << path;
    }
    try {
        const json report = json::parse(text);
        SoakSummary summary;
        report.at("seeds").get_to(summary.seeds);
        report.at("stimuli").get_to(summary.stimuli);
        report.at("checks").get_to(summary.checks);
        report.at("faults").get_to(summary.faults);
        if (report.contains("traffic")) report.at("traffic").get_to(summary.traffic);
        for (const json& divergence : report.at("divergences")) {
            summary.divergences.push_back({divergence.at("seed").get<uint64_t>(),
                                           divergence.at("message").get<std::string>(),
                                           divergence.at("scenario").get<std::string>()});
        }
        report.at("seconds").get_to(summary.seconds);
        const json& peak = report.at("peak");
        peak.at("descriptors").get_to(summary.peak.descriptors);
        peak.at("threads").get_to(summary.peak.threads);
        peak.at("memory_kib").get_to(summary.peak.memory_kib);
        return summary;
    } catch (const json::exception& error) {
        return Error() << path << ": not a soak report: " << error.what();
    }
}

}  // namespace tarvo_emu
