#pragma once

#include <string>

#include <android-base/result.h>

#include "measure/tput_measurement.h"

namespace tarvo_emu {

// The report as the table that `tarvo-emu tput` prints.
std::string ReportTable(const TputReport& report);
// The report as JSON; a rate that could not be measured is null.
std::string ReportJson(const TputReport& report);
// Draws the report into `svg` with gnuplot.
android::base::Result<void> WritePlot(const TputReport& report, const std::string& svg);

}  // namespace tarvo_emu
