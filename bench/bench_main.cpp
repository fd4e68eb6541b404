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
#include <android-base/parsedouble.h>
#include <android-base/strings.h>

#include "bench_figures.h"
#include "figure.h"
#include "process/child_process.h"
#include "rig/rig.h"

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

// The load averages over 1, 5 and 15 minutes, as /proc/loadavg gives them.
std::string LoadAverages() {
    std::string text;
    android::base::ReadFileToString("/proc/loadavg", &text);
    const std::vector<std::string> fields = android::base::Split(text, " ");
    if (fields.size() < 3) return "unknown";
    return fields[0] + " " + fields[1] + " " + fields[2];
}

std::string Commit() {
    const android::base::Result<tarvo_emu::ProcessResult> git = tarvo_emu::RunProcess(
        {"/usr/bin/git", "-C", TARVO_SOURCE_DIR, "describe", "--always", "--dirty", "--abbrev=12"},
        {}, std::chrono::seconds(10));
    if (!git.ok()) return "unknown";
    const std::string commit = android::base::Trim(git->output);
    return git->status == 0 && !commit.empty() ? commit : "unknown";
}

int Usage() {
    fprintf(stderr, "usage: tarvo-bench [--smoke] [--only NAME[,NAME...]] [--json FILE]\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    if (!tarvo_emu::EnterPrivateMountNamespace().ok()) {
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

    const std::string load_at_start = LoadAverages();
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

    // What the figures were measured on: the commit, and how busy the machine was meanwhile.
    const std::string commit = Commit();
    const std::string load =
        "1, 5 and 15 min: " + load_at_start + " at the start, " + LoadAverages() + " at the end";
    double load_now = 0;
    android::base::ParseDouble(load_at_start.substr(0, load_at_start.find(' ')), &load_now);
    figures.push_back(tarvo_bench::Info("run.load_average", "", load_now, load));
    figures.push_back(tarvo_bench::Info("run.commit", "", tarvo_bench::kNone, commit));
    printf("commit %s; load average %s\n", commit.c_str(), load.c_str());
    printf("%s", tarvo_bench::FigureTable(figures).c_str());
    if (!json_path.empty() &&
        !android::base::WriteStringToFile(tarvo_bench::FiguresJson(figures), json_path)) {
        fprintf(stderr, "tarvo-bench: cannot write %s\n", json_path.c_str());
        return 1;
    }
    return all_ran ? 0 : 1;
}
