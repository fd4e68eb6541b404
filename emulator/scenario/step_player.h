#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <android-base/expected.h>
#include <android-base/result.h>

#include "peers/transcript.h"
#include "process/delayed_calls.h"
#include "rig/rig.h"
#include "scenario/scenario.pb.h"
#include "scenario/scenario_loader.h"

namespace tarvo_emu {

// Why a step did not hold: the step, where it is, and the reason; a failure inside a repeat is
// the failure of the repeated step.
struct StepFailure {
    // The scenario file and the step's line in it; empty and 0 when not known.
    std::string file = {};
    int line = 0;
    // The step's name in the transcript and its short text form.
    std::string name = {};
    std::string text = {};
    // Whether it was cancelled rather than failed; a cancelled step has no reason.
    bool cancelled = false;
    std::string reason = {};
    // What the rig's health check found after the failure; empty for nothing.
    std::string health = {};

    // "FILE:LINE: step 3 (TEXT) failed: REASON; HEALTH", the parts that are known.
    std::string message() const;
};

using StepResult = android::base::expected<void, StepFailure>;

// What a mark step recorded of the daemon.
struct UsageMark {
    pid_t pid = 0;
    size_t descriptors = 0;
    size_t threads = 0;
    long rss_kib = 0;
    size_t log_lines = 0;
};

// What the steps of a session leave for later steps.
struct PlayState {
    std::map<std::string, UsageMark> marks;
    // Writes to the thermal driver's node that an earlier step already looked at.
    size_t thermal_writes_seen = 0;
    // How many messages the daemon had sent when the modem last sent it something or it was
    // last signalled: what came after may be its answer, which expect_silence_ms counts even
    // when it came before that step began.
    size_t messages_before_stimulus = 0;
};

// Says in the transcript which step is still waiting, a second into it and every few seconds
// after, so that a quiet transcript is not taken for a hung rig.
class WaitNotice {
  public:
    explicit WaitNotice(Transcript* transcript) : transcript_(transcript) {}

    // The step shown as `name` (its text `text`) starts waiting.
    void Begin(const std::string& name, const std::string& text);
    // The step is over: no more notices for it.
    void End();

  private:
    void Remind(uint64_t step, std::chrono::milliseconds waited);

    Transcript* transcript_;
    std::mutex mutex_;
    // Counts the steps begun, so that a reminder due for an ended step says nothing.
    uint64_t current_ = 0;
    bool waiting_ = false;
    std::string what_;
    // Last, so that its thread stops before the members that its calls use go.
    DelayedCalls calls_;
};

// Plays steps on a rig, each by the handler of its kind (see step_player.cpp), showing each in
// the transcript before it is played and, once it is over, whether it held and how long it took.
class StepPlayer {
  public:
    StepPlayer(Rig* rig, const ScenarioOrigin* origin)
        : rig_(rig), origin_(origin), wait_notice_(&rig->transcript()) {}

    // Plays a step shown in the transcript as `name`, at `place` in the file when known.
    StepResult PlayNamed(const tarvo_scenario::Step& step, const std::string& name,
                         const StepPlace* place);

    Rig& rig() { return *rig_; }
    PlayState& state() { return state_; }
    // Notes that the daemon is about to be sent something; see `messages_before_stimulus`.
    void NoteStimulus();

    // Ends the step being played at its next wait, as a failure that says so. Safe to call from a
    // signal handler or another thread; the next step begun clears it.
    void Cancel() { cancelled_.store(true); }
    void ClearCancel() { cancelled_.store(false); }
    bool cancelled() const { return cancelled_.load(); }
    // Calls `wait` with slices of `timeout` until it holds (true), the time is up or the step is
    // cancelled (false), so that a cancel ends a long wait within a slice.
    bool WaitUnlessCancelled(std::chrono::milliseconds timeout,
                             const std::function<bool(std::chrono::milliseconds)>& wait);

    // The daemon's pid, known from its first log line; an error when none came within the step
    // time.
    android::base::Result<pid_t> AwaitDaemonPid();

  private:
    // The repeat's steps, in order, so many times over; a failure is the repeated step's.
    StepResult PlayRepeat(const tarvo_scenario::Step& step, const std::string& name,
                          const StepPlace* place);

    Rig* rig_;
    const ScenarioOrigin* origin_;
    PlayState state_;
    std::atomic<bool> cancelled_ = false;
    WaitNotice wait_notice_;
};

}  // namespace tarvo_emu
