// tarvo-bench: every benchmark of the daemon against its floor, as one table. `tarvo-bench --help`
// says how it goes.

#include <stdio.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include <android-base/file.h>
#include <android-base/parsedouble.h>
#include <android-base/strings.h>
#include <CLI/CLI.hpp>

#include "bench_figures.h"
#include "figure.h"
#include "process/child_process.h"
#include "rig/rig.h"

namespace {

constexpr int kUsageError = 2;

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
    {"soak_scaling", tarvo_bench::SoakScalingFigures},
    {"decode", tarvo_bench::DecodeFigures},
    {"live_latency", tarvo_bench::LiveLatencyFigures},
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

std::string BenchmarkNames() {
    std::string names;
    for (const Benchmark& benchmark : kBenchmarks) {
        names += (names.empty() ? "" : ", ") + std::string(benchmark.name);
    }
    return names;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app(
        "Runs every benchmark of the daemon against its floor and prints them as one table. Exit\n"
        "0 when every benchmark ran, whether or not its goal was met; 1 when one could not run.",
        "tarvo-bench");
    bool smoke = false;
    std::vector<std::string> only;
    std::string json_path;
    app.add_flag("--smoke", smoke,
                 "run each for a moment, only to show that it still runs; its figures\n"
                 "mean nothing");
    app.add_option("--only", only, "run only these of:\n" + BenchmarkNames())
        ->delimiter(',')
        ->type_name("NAME[,NAME...]");
    app.add_option("--json", json_path, "write the figures to FILE as JSON too")->type_name("FILE");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kUsageError;
    }
    if (!tarvo_emu::EnterPrivateMountNamespace().ok()) {
        fprintf(stderr, "tarvo-bench: cannot enter a private mount namespace (run as root)\n");
    }
    const tarvo_bench::BenchSettings settings =
        smoke ? tarvo_bench::BenchSettings::Smoke() : tarvo_bench::BenchSettings();

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
