#include "cli/tput_command.h"

#include <iostream>

#include <android-base/file.h>
#include <fmt/format.h>

#include "cli/tput_report.h"

using android::base::Result;

namespace tarvo_emu {

int RunTputCommand(const TputCommandOptions& options) {
    Rig rig(TputRigOptions(options.downlink));
    if (Result<void> started = rig.Start(); !started.ok()) {
        fmt::print(stderr, "tarvo-emu: {}\n", started.error().message());
        return 1;
    }
    Result<TputReport> report = MeasureTput(rig, options.downlink, true);
    if (!report.ok()) {
        fmt::print(stderr, "\ntarvo-emu: {}\n", report.error().message());
        return 1;
    }

    std::cout << ReportTable(*report) << std::flush;
    if (!options.json.empty()) {
        const std::string json = ReportJson(*report);
        if (options.json == "-") {
            std::cout << json << std::flush;
        } else if (!android::base::WriteStringToFile(json, options.json)) {
            fmt::print(stderr, "tarvo-emu: cannot write {}\n", options.json);
            return 1;
        }
    }
    if (!options.plot.empty()) {
        if (Result<void> drawn = WritePlot(*report, options.plot); !drawn.ok()) {
            fmt::print(stderr, "tarvo-emu: {}\n", drawn.error().message());
            return 1;
        }
        fmt::print("plot written to {}\n", options.plot);
    }
    return 0;
}

}  // namespace tarvo_emu
