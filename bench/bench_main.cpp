// tarvo-bench: every benchmark of the daemon against its floor, as one table.
//
//   tarvo-bench [--smoke] [--only NAME[,NAME...]] [--json FILE]
//
// NAME is one of micro, roundtrip, file_transfer, linearity, downlink, idle, soak. --smoke runs
// each for a moment, only to show that it still runs; its figures mean nothing. Exit 0 when
// every benchmark ran, whether or not its goal was met; 1 when one could not run.

#include <stdio.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "bench_figures.h"
#include "figure.h"
#include "rig.h"

namespace {

struct Benchmark {
    const char* name;
    std::function<tarvo_bench::Figures(const tarvo_bench::BenchSettings&)> run;
};

const std::vector<Benchmark> kBenchmarks = {
    {"micro", tarvo_bench::MicroFigures},
    {"roundtrip", tarvo_bench::RoundTripFigures},
    {"file_transfer", tarvo_bench::FileTransferFigures},
    {"linearity", tarvo_bench::LinearityFigures},
    {"downlink", tarvo_bench::DownlinkFigures},
    {"idle", tarvo_bench::IdleFigures},
    {"soak", tarvo_bench::SoakFigures},
};

int Usage() {
    fprintf(stderr, "usage: tarvo-bench [--smoke] [--only NAME[,NAME...]] [--json FILE]\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    if (!tarvo_emu::EnterPrivateMountNamespace()) {
        fprintf(stderr, "tarvo-bench: cannot enter a private mount namespace (run as root)\n");
    }
    tarvo_bench::BenchSettings settings;
    std::vector<std::string> only;
    std::string json_path;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--smoke") {
            settings = tarvo_bench::BenchSettings::Smoke();
        } else if (arg == "--only" && i + 1 < argc) {
            only = android::base::Split(argv[++i], ",");
        } else if (arg == "--json" && i + 1 < argc) {
            json_path = argv[++i];
        } else {
            return Usage();
        }
    }

    std::vector<tarvo_bench::Figure> figures;
    bool all_ran = true;
    for (const Benchmark& benchmark : kBenchmarks) {
        if (!only.empty() && std::find(only.begin(), only.end(), benchmark.name) == only.end()) {
            continue;
        }
        fprintf(stderr, "tarvo-bench: %s...\n", benchmark.name);
        tarvo_bench::Figures result = benchmark.run(settings);
        if (!result.ok()) {
            fprintf(stderr, "tarvo-bench: %s failed: %s\n", benchmark.name,
                    result.error().message().c_str());
            all_ran = false;
            continue;
        }
        for (const tarvo_bench::Figure& figure : *result) {
            fprintf(stderr, "%s", tarvo_bench::FigureRow(figure).c_str());
            figures.push_back(figure);
        }
    }

    printf("%s", tarvo_bench::FigureTable(figures).c_str());
    if (!json_path.empty() &&
        !android::base::WriteStringToFile(tarvo_bench::FiguresJson(figures), json_path)) {
        fprintf(stderr, "tarvo-bench: cannot write %s\n", json_path.c_str());
        return 1;
    }
    return all_ran ? 0 : 1;
}
