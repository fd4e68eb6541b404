#include "capture/live_rig.h"

using android::base::Error;
using android::base::Result;

namespace tarvo_emu {

LiveRig::LiveRig(const tarvo_scenario::Scenario& scenario, const ScenarioOrigin& origin,
                 std::unique_ptr<PcapngWriter> recorder)
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
    Result<std::unique_ptr<PcapngWriter>> recorder = PcapngWriter::Open(output);
    if (!recorder.ok()) return recorder.error();
    std::unique_ptr<LiveRig> live(new LiveRig(scenario, origin, std::move(*recorder)));
    if (Result<void> started = live->session_->Start(); !started.ok()) return started.error();
    return live;
}

Result<void> LiveRig::Play(const std::string& client) {
    google::protobuf::RepeatedPtrField<tarvo_scenario::Step> steps = scenario_.step();
    if (!client.empty()) steps.Add()->set_client(client);
    for (int index = 0; index < steps.size(); ++index) {
        if (StepResult played = session_->Play(steps[index], index); !played.ok()) {
            recorder_->OnNote("FAILED " + played.error().message());
            return Error() << played.error().message();
        }
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
