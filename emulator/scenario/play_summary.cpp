#include "scenario/play_summary.h"

#include <fmt/format.h>

namespace tarvo_emu {

std::string SummaryText(const PlaySummary& summary) {
    const bool some = summary.steps > summary.played;
    const int counted = some ? summary.steps : summary.played;
    return fmt::format("{}{} step{} played, {} passed, {} failed, {:.3f} s",
                       some ? fmt::format("{} of ", summary.played) : "", counted,
                       counted == 1 ? "" : "s", summary.passed, summary.failed,
                       std::chrono::duration<double>(summary.elapsed).count());
}

}  // namespace tarvo_emu
