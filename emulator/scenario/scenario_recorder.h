#pragma once

#include <chrono>
#include <string>
#include <vector>

#include <android-base/result.h>

#include "rig/rig.h"
#include "scenario/scenario.pb.h"
#include "scenario/scenario_text.h"

namespace tarvo_emu {

// Turns a session on a rig into a scenario that plays back: the setup, every step played, and
// after each step what the daemon did meanwhile that no step took, as expectations: an `expect`
// per message it sent, an `expect_ril` per RIL request, an `expect_log` per log line. What
// changes from run to run is left out (the tokens of the daemon's own requests) or matched
// loosely (a log text holding a pid, a descriptor number, an address, a clock time or a fraction is
// matched with every number in it loose); the daemon's lines from before its modem state monitor
// started are left out, since its threads race then. Within a step's share, the expectations follow
// the order in which things happened, and one that came late gets a wait long enough to see it
// again.
class ScenarioRecorder {
  public:
    using Clock = std::chrono::steady_clock;
    // Where the rig's events stood when a step began.
    struct Mark {
        size_t messages;
        size_t ril_requests;
        size_t log_lines;
        Clock::time_point time;
    };
    // What the rig saw in a session, as its event lists hold it.
    struct Seen {
        std::vector<EventList<tarvo_message::TarvoMessage>::Recorded> messages;
        std::vector<EventList<RilRequest>::Recorded> ril_requests;
        std::vector<EventList<LogLine>::Recorded> log_lines;
    };

    // The recording starts with the setup of `setup`; its steps are not taken.
    explicit ScenarioRecorder(const tarvo_scenario::Scenario& setup);

    // Called just before `step` is played: what the daemon did up to now follows the step before.
    void BeforeStep(const tarvo_scenario::Step& step, Rig& rig);
    void BeforeStep(const tarvo_scenario::Step& step, const Mark& mark);
    // The step last begun failed: the recording keeps it as a comment only, so that it plays.
    void StepFailed() { failed_.back() = true; }
    // The recording of what the rig saw up to `end`.
    ScenarioFile File(const Seen& seen, Clock::time_point end) const;
    android::base::Result<void> Write(const std::string& path, Rig& rig) const;

  private:
    tarvo_scenario::Scenario setup_;
    std::vector<tarvo_scenario::Step> steps_;
    std::vector<Mark> marks_;  // before each step
    std::vector<bool> failed_;
    // When the rig started, as near as the recorder knows: when it was made.
    const Clock::time_point start_ = Clock::now();
};

}  // namespace tarvo_emu
