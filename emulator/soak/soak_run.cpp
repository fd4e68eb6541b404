#include "soak/soak_run.h"

#include <unistd.h>

#include <iostream>

#include <android-base/file.h>
#include <android-base/stringprintf.h>

#include "scenario/scenario_loader.h"
#include "scenario/scenario_player.h"
#include "scenario/scenario_text.h"
#include "soak/soak_model.h"
#include "soak/soak_shrinker.h"

using android::base::Result;
using android::base::StringPrintf;
using std::chrono::steady_clock;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

constexpr std::chrono::seconds kDefaultDuration{60};
constexpr std::chrono::milliseconds kProgressEvery{500};
// The daemon's health (alive, no sanitizer report) is looked at after this many stimuli.
constexpr size_t kHealthEvery = 25;

bool IsCheck(const Step& step) {
    switch (step.action_case()) {
        case Step::kExpect:
        case Step::kExpectLog:
        case Step::kExpectFile:
        case Step::kExpectProperty:
        case Step::kExpectThermalWrites:
        case Step::kExpectUsage:
            return true;
        default:
            return false;
    }
}

struct Counts {
    size_t stimuli = 0;
    size_t faults = 0;
    size_t checks = 0;
};

}  // namespace

int RunSoak(const SoakOptions& options) {
    const bool terminal = isatty(STDERR_FILENO);
    const tarvo_scenario::Scenario setup = SoakModel::Setup(options.seed);
    printf("soak: seed %llu%s\n", static_cast<unsigned long long>(options.seed),
           setup.read_only_size() > 0 ? " (replay directory read-only)" : "");
    fflush(stdout);
    SoakModel model(setup);
    SoakTraffic traffic(options.seed, options.faults);
    auto owned_session = std::make_unique<ScenarioSession>(setup, nullptr);
    ScenarioSession& session = *owned_session;
    if (android::base::Result<void> started = session.Start(); !started.ok()) {
        fprintf(stderr, "soak: %s\n", started.error().message().c_str());
        return 1;
    }

    const auto start = steady_clock::now();
    const auto deadline =
        start +
        options.duration.value_or(options.steps ? std::chrono::hours(24 * 365) : kDefaultDuration);
    const auto seconds = [&start] {
        return std::chrono::duration<double>(steady_clock::now() - start).count();
    };
    Counts counts;
    auto next_progress = start;
    const auto progress = [&](bool last) {
        if (!terminal) return;
        fprintf(stderr, "\r%7.1f s  stimuli %zu  faults %zu  checks %zu  (%.0f checks/s)%s",
                seconds(), counts.stimuli, counts.faults, counts.checks,
                counts.checks / std::max(seconds(), 1e-3), last ? "\n" : "   ");
        fflush(stderr);
    };

    std::vector<Step> stimuli;
    SoakOutcome divergence;
    int index = 0;
    const auto play = [&](const std::vector<Step>& steps) {
        for (const Step& step : steps) {
            android::base::Result<void> played = session.Play(step, index++);
            if (!played.ok()) {
                divergence.diverged = true;
                divergence.stimulus = stimuli.empty() ? 0 : stimuli.size() - 1;
                const std::string& message = played.error().message();
                divergence.signature =
                    SoakSignature(step, message.substr(message.find("failed: ")));
                divergence.message = message;
                return false;
            }
            if (IsCheck(step)) ++counts.checks;
        }
        return true;
    };

    bool clean = play(model.Start());
    while (clean && steady_clock::now() < deadline &&
           (!options.steps || counts.stimuli < *options.steps)) {
        bool fault = false;
        stimuli.push_back(traffic.Next(model, &fault));
        ++counts.stimuli;
        if (fault) ++counts.faults;
        clean = play(model.Play(stimuli.back()));
        if (clean && counts.stimuli % kHealthEvery == 0) {
            if (android::base::Result<void> health = session.rig().CheckHealth(); !health.ok()) {
                divergence = {true, stimuli.size() - 1, "health", health.error().message()};
                clean = false;
            }
        }
        if (steady_clock::now() >= next_progress) {
            progress(false);
            next_progress = steady_clock::now() + kProgressEvery;
        }
    }
    if (clean) {
        if (android::base::Result<void> health = session.rig().CheckHealth(); !health.ok()) {
            divergence = {true, stimuli.empty() ? 0 : stimuli.size() - 1, "health",
                          health.error().message()};
            clean = false;
        }
    }
    progress(true);
    const double elapsed = seconds();
    printf("soak: seed %llu, %.1f s, %zu stimuli, %zu faults, %zu checks (%.1f checks/s): %s\n",
           static_cast<unsigned long long>(options.seed), elapsed, counts.stimuli, counts.faults,
           counts.checks, counts.checks / std::max(elapsed, 1e-3),
           clean ? "no divergence" : "DIVERGED");
    if (clean) return 0;

    printf("soak: at stimulus %zu: %s\n", divergence.stimulus, divergence.message.c_str());
    fflush(stdout);
    // Each replay starts a rig of its own.
    owned_session.reset();
    stimuli.resize(std::min(stimuli.size(), divergence.stimulus + 1));
    std::vector<size_t> numbers(stimuli.size());
    for (size_t i = 0; i < numbers.size(); ++i) numbers[i] = i;
    const auto shrink_start = steady_clock::now();
    const ShrinkResult shrunk =
        ShrinkStimuli(setup, stimuli, numbers, divergence, options.shrink_budget,
                      [terminal](const std::string& line) {
                          if (terminal) fprintf(stderr, "\rshrinking: %s          ", line.c_str());
                      });
    if (terminal) fprintf(stderr, "\n");
    const double shrink_seconds =
        std::chrono::duration<double>(steady_clock::now() - shrink_start).count();

    std::string header = StringPrintf(
        "Written by `tarvo-emu soak --seed %llu`: the daemon diverged from the model after "
        "%.1f s, at stimulus %zu.\n",
        static_cast<unsigned long long>(options.seed), elapsed, divergence.stimulus);
    header +=
        shrunk.reproduced
            ? StringPrintf("Shrunk to %zu of %zu stimuli in %zu replays (%.0f s).\n",
                           shrunk.stimuli.size(), stimuli.size(), shrunk.replays, shrink_seconds)
            : "No replay diverged alike (a timing of the run's own); the whole run is kept.\n";
    header += "Divergence: " + shrunk.outcome.message + "\n";
    header += "Play it: tarvo-emu run " + options.out;
    const tarvo_scenario::Scenario shrunk_scenario =
        SoakScenario(setup, shrunk.stimuli, shrunk.numbers);
    ScenarioFile file(header, shrunk_scenario);
    for (const Step& step : shrunk_scenario.step()) file.AddStep(step);
    if (Result<void> written = file.Write(options.out); !written.ok()) {
        fprintf(stderr, "soak: %s\n", written.error().message().c_str());
        return 1;
    }
    // The file as `tarvo-emu run` reads it must fail too.
    Result<tarvo_scenario::Scenario> written = LoadScenario(options.out);
    const bool fails_on_run = written.ok() && !PlayScenario(*written).ok();
    printf("soak: %s stimuli of %zu kept (%zu replays, %.0f s); scenario written to %s\n",
           std::to_string(shrunk.stimuli.size()).c_str(), stimuli.size(), shrunk.replays,
           shrink_seconds, options.out.c_str());
    printf("soak: played again, the scenario %s\n",
           fails_on_run ? "fails" : "PASSES: the divergence depends on a timing of its own");
    return 1;
}

}  // namespace tarvo_emu
