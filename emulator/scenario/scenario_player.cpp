#include "scenario/scenario_player.h"

#include <fmt/format.h>

#include "scenario/scenario_recorder.h"
#include "scenario/scenario_setup.h"
#include "scenario/step_player.h"

using android::base::Error;
using android::base::Result;
using tarvo_scenario::Scenario;
using tarvo_scenario::Step;

namespace tarvo_emu {

ScenarioSession::ScenarioSession(const Scenario& setup, std::ostream* transcript,
                                 const ScenarioOrigin* origin, std::ostream* full_transcript,
                                 RigHooks hooks)
    : rig_(RigOptionsOf(setup, transcript, full_transcript), std::move(hooks)),
      player_(std::make_unique<StepPlayer>(&rig_, origin)),
      origin_(origin) {}

std::string ScenarioSession::Source() const {
    return origin_ != nullptr ? origin_->path + ": " : "";
}

ScenarioSession::~ScenarioSession() = default;

Result<void> ScenarioSession::Start() {
    if (Result<void> started = rig_.Start(); !started.ok()) {
        return Error() << Source() << "the rig did not start: " << started.error();
    }
    return {};
}

void ScenarioSession::CancelStep() { player_->Cancel(); }

Result<void> ScenarioSession::Play(const Step& step, int index) {
    if (recorder_ != nullptr) recorder_->BeforeStep(step, rig_);
    const StepPlace* place = origin_ != nullptr && index < static_cast<int>(origin_->steps.size())
                                 ? &origin_->steps[index]
                                 : nullptr;
    player_->ClearCancel();
    const Result<void> played = player_->PlayNamed(step, fmt::format("step {}", index), place);
    if (played.ok()) return {};
    if (recorder_ != nullptr) recorder_->StepFailed();
    Result<void> health = rig_.CheckHealth();
    return Error() << played.error() << (health.ok() ? "" : "; " + health.error().message());
}

Result<void> PlayScenario(const Scenario& scenario, std::ostream* transcript,
                          const std::string& record, const ScenarioOrigin* origin,
                          std::ostream* full_transcript, RigHooks hooks) {
    ScenarioSession session(scenario, transcript, origin, full_transcript, std::move(hooks));
    if (Result<void> started = session.Start(); !started.ok()) return started.error();
    ScenarioRecorder recorder(scenario);
    if (!record.empty()) session.Record(&recorder);
    Result<void> played;
    for (int i = 0; i < scenario.step_size() && played.ok(); ++i) {
        played = session.Play(scenario.step(i), i);
    }
    if (played.ok()) {
        if (Result<void> health = session.rig().CheckHealth(); !health.ok()) {
            played = Error() << session.Source() << health.error();
        }
    }
    if (!record.empty()) {
        if (Result<void> written = recorder.Write(record, session.rig()); !written.ok()) {
            return written.error();
        }
    }
    return played;
}

}  // namespace tarvo_emu
