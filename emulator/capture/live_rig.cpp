#include "capture/live_rig.h"

#include <android-base/result.h>

using android::base::Error;
using android::base::Result;

namespace tarvo_emu {

LiveRig::LiveRig(const tarvo_scenario::Scenario& scenario, const ScenarioOrigin& origin,
                 std::unique_ptr<PcapngRecorder> recorder)
    : scenario_(scenario), origin_(origin), recorder_(std::move(recorder)) {
    RigHooks hooks;
    recorder_->Attach(&hooks);
    session_ =
        std::make_unique<ScenarioSession>(scenario_, nullptr, &origin_, nullptr, std::move(hooks));
}

LiveRig::~LiveRig() = default;

Result<std::unique_ptr<LiveRig>> LiveRig::Start(const tarvo_scenario::Scenario& scenario,
                                                const ScenarioOrigin& origin,
                                                const std::string& output) {
    Result<std::unique_ptr<PcapngRecorder>> recorder = PcapngRecorder::Open(output);
    if (!recorder.ok()) return recorder.error();
    std::unique_ptr<LiveRig> live(new LiveRig(scenario, origin, std::move(*recorder)));
    if (Result<void> started = live->session_->Start(); !started.ok()) return started.error();
    return live;
}

Result<void> LiveRig::Play(const std::string& client) {
    int index = 0;
    for (; index < scenario_.step_size(); ++index) {
        if (StepResult played = session_->Play(scenario_.step(index), index); !played.ok()) {
            recorder_->OnNote("FAILED " + played.error().message());
            return android::base::Error() << played.error().message();
        }
    }
    if (client.empty()) return {};
    tarvo_scenario::Step step;
    step.set_client(client);
    if (StepResult played = session_->Play(step, index); !played.ok()) {
        recorder_->OnNote("FAILED " + played.error().message());
        return android::base::Error() << played.error().message();
    }
    return {};
}

void LiveRig::Stop() { session_->CancelStep(); }

Result<void> LiveRig::Close() {
    // The stream ends with the daemon's last lines, once the rig is gone.
    session_.reset();
    return recorder_->Close();
}

}  // namespace tarvo_emu
