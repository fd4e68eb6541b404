#pragma once

#include <memory>
#include <ostream>
#include <string>

#include <android-base/result.h>

#include "rig.h"
#include "scenario.pb.h"
#include "scenario_loader.h"
#include "scenario_recorder.h"

namespace tarvo_emu {

// Default wait of expect and expect_log steps.
constexpr std::chrono::milliseconds kDefaultStepTimeout{5000};

// A rig set up as a scenario's setup says, on which steps are played one at a time: all of a
// file's by `tarvo-emu run`, each as it is typed by `tarvo-emu console`.
class StepPlayer;

class ScenarioSession {
  public:
    ScenarioSession(const tarvo_scenario::Scenario& setup, std::ostream* transcript);
    ~ScenarioSession();

    android::base::Result<void> Start();
    // Plays one step. The error names it (index from 0 and text form) and says why it failed.
    android::base::Result<void> Play(const tarvo_scenario::Step& step, int index);
    // Every step played from now on goes to `recorder` too.
    void Record(ScenarioRecorder* recorder) { recorder_ = recorder; }
    Rig& rig() { return rig_; }

  private:
    Rig rig_;
    std::unique_ptr<StepPlayer> player_;
    ScenarioRecorder* recorder_ = nullptr;
};

// Plays a scenario on a fresh rig. Succeeds when every expectation held; otherwise the error
// names the step (index from 0 and text form) and why it failed. With a `record` path, the
// session is written there as a scenario, failed or not.
android::base::Result<void> PlayScenario(const tarvo_scenario::Scenario& scenario,
                                         std::ostream* transcript, const std::string& record = {});

}  // namespace tarvo_emu
