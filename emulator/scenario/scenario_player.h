#pragma once

#include <chrono>
#include <optional>
#include <ostream>
#include <string>

#include <android-base/result.h>

#include "rig/rig.h"
#include "scenario/scenario.pb.h"
#include "scenario/scenario_loader.h"
#include "scenario/step_player.h"

namespace tarvo_emu {

class ScenarioRecorder;

// What a run or a console session played: the line that ends it.
struct PlaySummary {
    // The steps to play (notes left out) when they are known, as a file's are.
    std::optional<int> steps;
    int played = 0;
    int passed = 0;
    int failed = 0;
    std::chrono::steady_clock::duration elapsed{};
};

// "4 of 6 steps played, 3 passed, 1 failed, 5.312 s", the "of" part when the steps to play are
// known and not all were played.
std::string SummaryText(const PlaySummary& summary);

// A rig set up as a scenario's setup says, on which steps are played one at a time: all of a
// file's by `tarvo-emu run`, each as it is typed by `tarvo-emu console`.
class ScenarioSession {
  public:
    // `origin`, when given, names the file and lines of the steps played by index; `hooks` go
    // to the rig.
    ScenarioSession(const tarvo_scenario::Scenario& setup, std::ostream* transcript,
                    const ScenarioOrigin* origin = nullptr, std::ostream* full_transcript = nullptr,
                    RigHooks hooks = {});

    android::base::Result<void> Start();
    // Plays one step, named by its index from 0 (and its file and line when known); a failure
    // carries what the rig's health check found after it.
    StepResult Play(const tarvo_scenario::Step& step, int index);
    // Ends the step being played at its next wait (see StepPlayer::Cancel).
    void CancelStep();
    // The steps played so far (a step that is only a note not counted), and the time since
    // Start.
    PlaySummary Summary() const;
    // Every step played from now on goes to `recorder` too.
    void Record(ScenarioRecorder* recorder) { recorder_ = recorder; }
    Rig& rig() { return rig_; }
    // "FILE: " when the origin is known, for failures that belong to no step.
    std::string Source() const;

  private:
    Rig rig_;
    StepPlayer player_;
    const ScenarioOrigin* origin_;
    ScenarioRecorder* recorder_ = nullptr;
    PlaySummary summary_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// How a scenario is played and where what it shows goes.
struct PlayOptions {
    // The transcript, long payloads shortened; none when null.
    std::ostream* transcript = nullptr;
    // The whole transcript, every payload in full; none when null.
    std::ostream* full_transcript = nullptr;
    // When not empty, the session is written there as a scenario, failed or not.
    std::string record;
    // Names the file and lines of the steps in failures.
    const ScenarioOrigin* origin = nullptr;
    // The steps' verdicts in colour on `transcript` (a terminal).
    bool colour = false;
    // When given, gets the steps played, passed and failed, and the time.
    PlaySummary* summary = nullptr;
    // Passed on to the rig.
    RigHooks hooks = {};
};

// Plays a scenario on a fresh rig. Succeeds when every expectation held; otherwise the error
// names the step (its file and line when the origin is given, its index from 0 and text form),
// why it failed and what came nearest to what it expected.
android::base::Result<void> PlayScenario(const tarvo_scenario::Scenario& scenario,
                                         const PlayOptions& options = {});

}  // namespace tarvo_emu
