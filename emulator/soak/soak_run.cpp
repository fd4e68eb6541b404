#include "soak/soak_run.h"

#include <android-base/file.h>
#include <android-base/stringprintf.h>

#include "device/fault.h"
#include "process/process_usage.h"
#include "scenario/scenario_loader.h"
#include "scenario/scenario_player.h"
#include "scenario/scenario_text.h"
#include "soak/mid_run_faults.h"
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
        case Step::kExpectAllTaken:
            return true;
        default:
            return false;
    }
}

// How --faults names the fault that `step` plays.
std::string FaultKind(const Step& step) {
    switch (step.action_case()) {
        case Step::kFault:
            return std::string(FaultSoakName(static_cast<Fault>(step.fault())));
        case Step::kModemState:
            return std::string(FaultSoakName(Fault::kOffline));
        case Step::kRestartDaemon:
            return std::string(FaultSoakName(Fault::kRestart));
        case Step::kRemount:
            return std::string(FaultSoakName(MidRunFaults::Of(step.remount())));
        default:
            return Step::descriptor()->FindFieldByNumber(step.action_case())->name();
    }
}

}  // namespace

SoakRun::SoakRun(const SoakOptions& options)
    : options_(options), setup_(SoakModel::Setup(options.seed)) {}

Result<SoakReport> SoakRun::Play(
    const std::function<void(const SoakReport&, bool last)>& progress) {
    SoakModel model(setup_);
    SoakTraffic traffic(options_.seed, options_.faults);
    ScenarioSession session(setup_, nullptr, nullptr, nullptr, options_.hooks);
    if (Result<void> started = session.Start(); !started.ok()) return started.error();

    const auto start = steady_clock::now();
    const auto deadline =
        start + options_.duration.value_or(options_.steps ? std::chrono::hours(24 * 365)
                                                          : kDefaultDuration);
    const auto tell = [&](bool last) {
        report_.seconds = std::chrono::duration<double>(steady_clock::now() - start).count();
        if (progress) progress(report_, last);
    };
    auto next_progress = start;

    int index = 0;
    const auto play = [&](const std::vector<Step>& steps) {
        for (const Step& step : steps) {
            StepResult played = session.Play(step, index++);
            if (!played.ok()) {
                report_.divergence = {stimuli_.empty() ? 0 : stimuli_.size() - 1,
                                      SoakSignature(step, played.error()),
                                      played.error().message()};
                return false;
            }
            if (IsCheck(step)) ++report_.checks;
        }
        return true;
    };

    const auto healthy = [&] {
        Result<void> health = session.rig().CheckHealth();
        if (health.ok()) {
            NotePeak(session.rig().daemon_pid());
            return true;
        }
        report_.divergence = {stimuli_.empty() ? 0 : stimuli_.size() - 1, "health",
                              health.error().message()};
        return false;
    };

    bool clean = play(model.Start());
    while (clean && !stopped_ && steady_clock::now() < deadline &&
           (!options_.steps || report_.stimuli < *options_.steps)) {
        stimuli_.push_back(traffic.Next(model));
        ++report_.stimuli;
        if (traffic.faults_given() != report_.faults) {
            report_.faults = traffic.faults_given();
            ++report_.fault_kinds[FaultKind(stimuli_.back())];
        }
        report_.traffic_kinds = traffic.unexpected_given();
        clean =
            play(model.Play(stimuli_.back())) && (report_.stimuli % kHealthEvery != 0 || healthy());
        if (steady_clock::now() >= next_progress) {
            tell(false);
            next_progress = steady_clock::now() + kProgressEvery;
        }
    }
    if (clean) healthy();
    tell(true);
    return report_;
}

void SoakRun::NotePeak(std::optional<pid_t> daemon) {
    if (!daemon) return;
    Result<ProcessUsage> usage = ReadProcessUsage(*daemon);
    if (!usage.ok()) return;
    report_.peak.descriptors = std::max(report_.peak.descriptors, usage->descriptors);
    report_.peak.threads = std::max(report_.peak.threads, usage->threads);
    report_.peak.memory_kib = std::max(report_.peak.memory_kib, usage->rss_kib);
}

Result<SoakScenarioReport> SoakRun::ShrinkAndWrite(
    const std::function<void(const std::string&)>& progress) {
    const SoakDivergence& divergence = *report_.divergence;
    std::vector<Step> stimuli = stimuli_;
    stimuli.resize(std::min(stimuli.size(), divergence.stimulus + 1));
    std::vector<size_t> numbers(stimuli.size());
    for (size_t i = 0; i < numbers.size(); ++i) numbers[i] = i;
    const auto shrink_start = steady_clock::now();
    const ShrinkResult shrunk = ShrinkStimuli(
        stimuli, numbers, divergence, options_.shrink_budget,
        [this](const std::vector<Step>& candidate) { return PlayStimuli(setup_, candidate); },
        [&progress](const std::string& line) {
            if (progress) progress(line);
        });
    const double shrink_seconds =
        std::chrono::duration<double>(steady_clock::now() - shrink_start).count();

    std::string header = StringPrintf(
        "Written by `tarvo-emu soak --seed %llu`: the daemon diverged from the model after "
        "%.1f s, at stimulus %zu.\n",
        static_cast<unsigned long long>(options_.seed), report_.seconds, divergence.stimulus);
    header +=
        shrunk.reproduced
            ? StringPrintf("Shrunk to %zu of %zu stimuli in %zu replays (%.0f s).\n",
                           shrunk.stimuli.size(), stimuli.size(), shrunk.replays, shrink_seconds)
            : "No replay diverged alike (a timing of the run's own); the whole run is kept.\n";
    header += "Divergence: " + shrunk.reproduced.value_or(divergence).message + "\n";
    header += "Play it: tarvo-emu run " + options_.out;
    const tarvo_scenario::Scenario shrunk_scenario =
        SoakScenario(setup_, shrunk.stimuli, shrunk.numbers);
    ScenarioFile file(header, shrunk_scenario);
    for (const Step& step : shrunk_scenario.step()) file.AddStep(step);
    if (Result<void> written = file.Write(options_.out); !written.ok()) {
        return written.error();
    }
    // The file as `tarvo-emu run` reads it must fail too.
    Result<tarvo_scenario::Scenario> written = LoadScenario(options_.out);
    return SoakScenarioReport{.kept = shrunk.stimuli.size(),
                              .played = stimuli.size(),
                              .replays = shrunk.replays,
                              .seconds = shrink_seconds,
                              .file = options_.out,
                              .fails_on_run = written.ok() && !PlayScenario(*written).ok()};
}

}  // namespace tarvo_emu
