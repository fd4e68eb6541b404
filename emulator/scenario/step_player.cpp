#include "scenario/step_player.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <thread>
#include <utility>

#include <fmt/format.h>

#include "scenario/scenario_text.h"
#include "scenario/step_handlers.h"

using android::base::Error;
using android::base::Result;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

// sleep_ms: waits, looking at nothing.
Result<void> PlaySleep(StepPlayer& player, const Step& step) {
    player.WaitUnlessCancelled(std::chrono::milliseconds(step.sleep_ms()),
                               [](std::chrono::milliseconds slice) {
                                   std::this_thread::sleep_for(slice);
                                   return false;
                               });
    return {};
}

// Plays one kind of step; the error says why it failed.
using StepHandler = Result<void> (*)(StepPlayer& player, const Step& step);

// The handler of each kind of step.
constexpr std::pair<Step::ActionCase, StepHandler> kHandlers[] = {
    {Step::kModemState, PlayModemState},
    {Step::kSend, PlaySend},
    {Step::kExpect, PlayExpect},
    {Step::kExpectSilenceMs, PlayExpectSilence},
    {Step::kExpectAllTaken, PlayExpectAllTaken},
    {Step::kExpectLog, PlayExpectLog},
    {Step::kExpectNoLog, PlayExpectNoLog},
    {Step::kExpectFile, PlayExpectFile},
    {Step::kExpectProperty, PlayExpectProperty},
    {Step::kAutoReply, PlayAutoReply},
    {Step::kClient, PlayClient},
    {Step::kSleepMs, PlaySleep},
    {Step::kSendRaw, PlaySendRaw},
    {Step::kRestartDaemon, PlayRestartDaemon},
    {Step::kFault, PlayFault},
    {Step::kExpectRil, PlayExpectRil},
    {Step::kRilReply, PlayRilReply},
    {Step::kExpectRilSilenceMs, PlayExpectRilSilence},
    {Step::kExpectUplink, PlayExpectUplink},
    {Step::kMark, PlayMark},
    {Step::kExpectUsage, PlayExpectUsage},
    {Step::kWriteFile, PlayWriteFile},
    {Step::kRemoveFile, PlayRemoveFile},
    {Step::kSendGenerated, PlaySendGenerated},
    {Step::kExpectThermalWrites, PlayExpectThermalWrites},
    {Step::kSignalDaemon, PlaySignalDaemon},
    {Step::kSetProperty, PlaySetProperty},
    {Step::kRemount, PlayRemount},
};

// A step that has waited this long is named in the transcript...
constexpr std::chrono::milliseconds kFirstNotice{1000};
// ...and again after each such while.
constexpr std::chrono::milliseconds kNoticeInterval{5000};

// The longest a wait goes on without looking whether its step was cancelled.
constexpr std::chrono::milliseconds kCancelSlice{50};

}  // namespace

std::string StepFailure::message() const {
    std::string message = file.empty() ? "" : fmt::format("{}:{}: ", file, line);
    message += fmt::format("{} ({}) ", name, text);
    message += cancelled ? "cancelled" : "failed: " + reason;
    return health.empty() ? message : message + "; " + health;
}

StepResult StepPlayer::PlayRepeat(const Step& step, const std::string& name,
                                  const StepPlace* place) {
    const tarvo_scenario::Repeat& repeat = step.repeat();
    for (uint32_t round = 1; round <= repeat.times(); ++round) {
        for (int i = 0; i < repeat.step_size(); ++i) {
            const bool known = place != nullptr && i < static_cast<int>(place->steps.size());
            StepResult played =
                PlayNamed(repeat.step(i), fmt::format("{}, round {}, step {}", name, round, i),
                          known ? &place->steps[i] : nullptr);
            if (!played.ok()) return played;
        }
    }
    return {};
}

void StepPlayer::NoteStimulus() {
    state_.messages_before_stimulus = rig_->modem().received_events().size();
}

StepResult StepPlayer::PlayNamed(const Step& step, const std::string& name,
                                 const StepPlace* place) {
    if (!step.note().empty()) rig_->transcript().Note("# " + step.note());
    if (step.action_case() == Step::ACTION_NOT_SET) return {};
    Step shown = step;
    shown.clear_note();
    const std::string text = step.has_repeat()
                                 ? fmt::format("repeat {} times", step.repeat().times())
                                 : ShortStepText(shown);
    rig_->transcript().Note(name + ": " + text);
    const auto handler =
        std::find_if(std::begin(kHandlers), std::end(kHandlers),
                     [&step](const auto& entry) { return entry.first == step.action_case(); });
    const auto start = std::chrono::steady_clock::now();
    // The repeated steps say what they wait for, and a failure among them is their own.
    StepResult repeated;
    Result<void> played;
    if (step.has_repeat()) {
        repeated = PlayRepeat(step, name, place);
    } else {
        wait_notice_.Begin(name, text);
        played = handler != std::end(kHandlers) ? handler->second(*this, step)
                                                : Error() << "unknown step";
        wait_notice_.End();
    }
    const bool held = repeated.ok() && played.ok();
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    rig_->transcript().Verdict(held, held ? "ok" : "FAILED",
                               fmt::format(" {} ({:.3f} s)", name, seconds));
    // A cancelled step did not wait its time, whatever it saw meanwhile.
    if (step.has_repeat() || (played.ok() && !cancelled())) return repeated;
    StepFailure failure{.name = name, .text = text, .cancelled = cancelled()};
    if (origin_ != nullptr && place != nullptr) {
        failure.file = origin_->path;
        failure.line = place->line;
    }
    if (!failure.cancelled) failure.reason = played.error().message();
    return android::base::unexpected(std::move(failure));
}

void WaitNotice::Begin(const std::string& name, const std::string& text) {
    uint64_t step = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        step = ++current_;
        waiting_ = true;
        what_ = name + ": " + text;
    }
    calls_.After(kFirstNotice, [this, step] { Remind(step, kFirstNotice); });
}

void WaitNotice::End() {
    std::lock_guard<std::mutex> lock(mutex_);
    waiting_ = false;
}

void WaitNotice::Remind(uint64_t step, std::chrono::milliseconds waited) {
    std::string what;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!waiting_ || step != current_) return;
        what = what_;
    }
    transcript_->Note(fmt::format("waiting {} s so far on {}", waited.count() / 1000, what));
    const std::chrono::milliseconds next = waited + kNoticeInterval;
    calls_.After(kNoticeInterval, [this, step, next] { Remind(step, next); });
}

bool StepPlayer::WaitUnlessCancelled(std::chrono::milliseconds timeout,
                                     const std::function<bool(std::chrono::milliseconds)>& wait) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!cancelled()) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (wait(std::clamp(left, std::chrono::milliseconds(0), kCancelSlice))) return true;
        if (left <= kCancelSlice) return false;
    }
    return false;
}

Result<pid_t> StepPlayer::AwaitDaemonPid() {
    const std::optional<pid_t> pid = rig_->AwaitDaemonPid(kDefaultStepTimeout);
    if (!pid) return Error() << "the daemon's pid is not known";
    return *pid;
}

}  // namespace tarvo_emu
