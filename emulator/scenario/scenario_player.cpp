#include "scenario/scenario_player.h"

#include <algorithm>

#include <fmt/format.h>

#include "scenario/generated_data.h"
#include "scenario/scenario_recorder.h"

using android::base::Error;
using android::base::Result;
using tarvo_scenario::Scenario;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

// The rig that a scenario's setup asks for, its transcripts going to these streams (null for
// none).
RigOptions RigOptionsOf(const tarvo_scenario::Scenario& scenario, std::ostream* transcript,
                        std::ostream* full_transcript) {
    RigOptions options;
    options.initial_state = scenario.initial_state();
    for (const tarvo_scenario::SeedFile& file : scenario.file()) {
        options.files.push_back({file.path(), SeedContent(file), SeedMode(file)});
    }
    for (const tarvo_scenario::Property& property : scenario.property()) {
        options.properties.emplace_back(property.name(), property.value());
    }
    options.remove.assign(scenario.remove().begin(), scenario.remove().end());
    options.ril.absent = scenario.ril().absent();
    options.ril.omit_symbol = scenario.ril().omit_symbol();
    options.ril.open_fails = scenario.ril().open_fails();
    if (scenario.has_tput()) {
        const tarvo_scenario::TputModem& tput = scenario.tput();
        if (tput.has_downlink_block_size()) {
            options.tput.downlink_block_size = tput.downlink_block_size();
        }
        options.tput.downlink_bytes_per_s = tput.downlink_bytes_per_s();
        options.tput.no_downlink = tput.no_downlink();
        options.tput.fail_writes.assign(tput.fail_write().begin(), tput.fail_write().end());
    }
    options.data_size_limit_kib = scenario.data_size_limit_kib();
    options.read_only.assign(scenario.read_only().begin(), scenario.read_only().end());
    options.own_mounts.assign(scenario.own_mount().begin(), scenario.own_mount().end());
    options.transcript = transcript;
    options.full_transcript = full_transcript;
    return options;
}

}  // namespace

std::string SummaryText(const PlaySummary& summary) {
    const bool some = summary.steps.value_or(0) > summary.played;
    const int counted = some ? *summary.steps : summary.played;
    return fmt::format("{}{} step{} played, {} passed, {} failed, {:.3f} s",
                       some ? fmt::format("{} of ", summary.played) : "", counted,
                       counted == 1 ? "" : "s", summary.passed, summary.failed,
                       std::chrono::duration<double>(summary.elapsed).count());
}

ScenarioSession::ScenarioSession(const Scenario& setup, std::ostream* transcript,
                                 const ScenarioOrigin* origin, std::ostream* full_transcript,
                                 RigHooks hooks)
    : rig_(RigOptionsOf(setup, transcript, full_transcript), std::move(hooks)),
      player_(&rig_, origin),
      origin_(origin) {}

std::string ScenarioSession::Source() const {
    return origin_ != nullptr ? origin_->path + ": " : "";
}

Result<void> ScenarioSession::Start() {
    start_ = std::chrono::steady_clock::now();
    if (Result<void> started = rig_.Start(); !started.ok()) {
        return Error() << Source() << "the rig did not start: " << started.error();
    }
    return {};
}

void ScenarioSession::CancelStep() { player_.Cancel(); }

StepResult ScenarioSession::Play(const Step& step, int index) {
    if (recorder_ != nullptr) recorder_->BeforeStep(step, rig_);
    const StepPlace* place = origin_ != nullptr && index < static_cast<int>(origin_->steps.size())
                                 ? &origin_->steps[index]
                                 : nullptr;
    player_.ClearCancel();
    StepResult played = player_.PlayNamed(step, fmt::format("step {}", index), place);
    if (step.action_case() != Step::ACTION_NOT_SET) {
        ++summary_.played;
        ++(played.ok() ? summary_.passed : summary_.failed);
    }
    if (played.ok()) return {};
    if (recorder_ != nullptr) recorder_->StepFailed();
    if (Result<void> health = rig_.CheckHealth(); !health.ok()) {
        played.error().health = health.error().message();
    }
    return played;
}

PlaySummary ScenarioSession::Summary() const {
    PlaySummary summary = summary_;
    summary.elapsed = std::chrono::steady_clock::now() - start_;
    return summary;
}

Result<void> PlayScenario(const Scenario& scenario, const PlayOptions& options) {
    ScenarioSession session(scenario, options.transcript, options.origin, options.full_transcript,
                            options.hooks);
    session.rig().transcript().SetColour(options.colour);
    if (Result<void> started = session.Start(); !started.ok()) {
        if (options.summary != nullptr) *options.summary = session.Summary();
        return started.error();
    }
    ScenarioRecorder recorder(scenario);
    if (!options.record.empty()) session.Record(&recorder);
    Result<void> played;
    for (int i = 0; i < scenario.step_size() && played.ok(); ++i) {
        if (StepResult step = session.Play(scenario.step(i), i); !step.ok()) {
            played = Error() << step.error().message();
        }
    }
    if (played.ok()) {
        if (Result<void> health = session.rig().CheckHealth(); !health.ok()) {
            played = Error() << session.Source() << health.error();
        }
    }
    if (options.summary != nullptr) {
        *options.summary = session.Summary();
        options.summary->steps = std::count_if(
            scenario.step().begin(), scenario.step().end(),
            [](const Step& step) { return step.action_case() != Step::ACTION_NOT_SET; });
    }
    if (!options.record.empty()) {
        if (Result<void> written = recorder.Write(options.record, session.rig()); !written.ok()) {
            return written.error();
        }
    }
    return played;
}

}  // namespace tarvo_emu
