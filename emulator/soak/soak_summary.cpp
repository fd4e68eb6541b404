#include "soak/soak_summary.h"

#include <algorithm>

namespace tarvo_emu {

SoakSummary MergeSoakSummaries(const std::vector<SoakSummary>& summaries) {
    SoakSummary merged;
    for (const SoakSummary& summary : summaries) {
        merged.seeds.insert(merged.seeds.end(), summary.seeds.begin(), summary.seeds.end());
        merged.stimuli += summary.stimuli;
        merged.checks += summary.checks;
        for (const auto& [kind, count] : summary.faults) merged.faults[kind] += count;
        for (const auto& [kind, count] : summary.traffic) merged.traffic[kind] += count;
        merged.divergences.insert(merged.divergences.end(), summary.divergences.begin(),
                                  summary.divergences.end());
        merged.seconds += summary.seconds;
        merged.peak.descriptors = std::max(merged.peak.descriptors, summary.peak.descriptors);
        merged.peak.threads = std::max(merged.peak.threads, summary.peak.threads);
        merged.peak.memory_kib = std::max(merged.peak.memory_kib, summary.peak.memory_kib);
    }
    return merged;
}

}  // namespace tarvo_emu
