#pragma once

#include <memory>
#include <ostream>
#include <string>

#include <android-base/result.h>

#include "rig/rig.h"
#include "scenario/scenario.pb.h"
#include "scenario/scenario_loader.h"

namespace tarvo_emu {

class ScenarioRecorder;
class StepPlayer;

// A rig set up as a scenario's setup says, on which steps are played one at a time: all of a
// file's by `tarvo-emu run`, each as it is typed by `tarvo-emu console`.
class ScenarioSession {
  public:
    // `origin`, when given, names the file and lines of the steps played by index; `hooks` go
    // to the rig.
    ScenarioSession(const tarvo_scenario::Scenario& setup, std::ostream* transcript,
                    const ScenarioOrigin* origin = nullptr, std::ostream* full_transcript = nullptr,
                    RigHooks hooks = {});
    ~ScenarioSession();

    android::base::Result<void> Start();
    // Plays one step. The error names it (file and line when known, index from 0 and text form)
    // and says why it failed.
    android::base::Result<void> Play(const tarvo_scenario::Step& step, int index);
    // Ends the step being played at its next wait (see StepPlayer::Cancel).
    void CancelStep();
    // Every step played from now on goes to `recorder` too.
    void Record(ScenarioRecorder* recorder) { recorder_ = recorder; }
    Rig& rig() { return rig_; }
    // "FILE: " when the origin is known, for failures that belong to no step.
    std::string Source() const;

  private:
    Rig rig_;
    std::unique_ptr<StepPlayer> player_;
    const ScenarioOrigin* origin_;
    ScenarioRecorder* recorder_ = nullptr;
};

// Plays a scenario on a fresh rig. Succeeds when every expectation held; otherwise the error
// names the step (its file and line when `origin` is given, its index from 0 and text form), why
// it failed and what came nearest to what it expected. With a `record` path, the session is
// written there as a scenario, failed or not. `transcript` shows long payloads shortened;
// `full_transcript`, when given, gets the whole transcript; `hooks` go to the rig.
android::base::Result<void> PlayScenario(const tarvo_scenario::Scenario& scenario,
                                         std::ostream* transcript, const std::string& record = {},
                                         const ScenarioOrigin* origin = nullptr,
                                         std::ostream* full_transcript = nullptr,
                                         RigHooks hooks = {});

}  // namespace tarvo_emu
