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
Result<void> PlaySleep(StepPlayer& player, const StepCall& call) {
    player.SleepUnlessCancelled(std::chrono::milliseconds(call.step.sleep_ms()));
    return {};
}

// The handler of each kind of step.
constexpr std::pair<Step::ActionCase, StepHandler> kHandlers[] = {
    {Step::kModemState, PlayModemState},
    {Step::kSend, PlaySend},
    {Step::kExpect, PlayExpect},
    {Step::kExpectSilenceMs, PlayExpectSilence},
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

// The longest a wait goes on without looking whether its step was cancelled.
constexpr std::chrono::milliseconds kCancelSlice{50};

}  // namespace

std::string StepFailure::message() const {
    std::string message = file.empty() ? "" : fmt::format("{}:{}: ", file, line);
    message += fmt::format("{} ({}) ", name, text);
    message += cancelled ? "cancelled" : "failed: " + reason;
    return health.empty() ? message : message + "; " + health;
}

StepResult StepPlayer::PlayRepeat(const StepCall& call) {
    const tarvo_scenario::Repeat& repeat = call.step.repeat();
    const std::vector<StepPlace>* places = call.place != nullptr ? &call.place->steps : nullptr;
    for (uint32_t round = 1; round <= repeat.times(); ++round) {
        for (int i = 0; i < repeat.step_size(); ++i) {
            const StepPlace* place =
                places != nullptr && i < static_cast<int>(places->size()) ? &(*places)[i] : nullptr;
            StepResult played = PlayNamed(
                repeat.step(i), fmt::format("{}, round {}, step {}", call.name, round, i), place);
            if (!played.ok()) return played;
        }
    }
    return {};
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
    const StepCall call{step, name, place};
    const auto handler =
        std::find_if(std::begin(kHandlers), std::end(kHandlers),
                     [&step](const auto& entry) { return entry.first == step.action_case(); });
    const auto start = std::chrono::steady_clock::now();
    // The repeated steps say what they wait for, and a failure among them is their own.
    StepResult repeated;
    Result<void> played;
    if (step.has_repeat()) {
        repeated = PlayRepeat(call);
    } else {
        wait_notice_.Begin(name, text);
        played = handler != std::end(kHandlers) ? handler->second(*this, call)
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

void StepPlayer::SleepUnlessCancelled(std::chrono::milliseconds duration) {
    WaitUnlessCancelled(duration, [](std::chrono::milliseconds slice) {
        std::this_thread::sleep_for(slice);
        return false;
    });
}

Result<pid_t> StepPlayer::AwaitDaemonPid() {
    const std::optional<pid_t> pid = rig_->AwaitDaemonPid(kDefaultStepTimeout);
    if (!pid) return Error() << "the daemon's pid is not known";
    return *pid;
}

}  // namespace tarvo_emu
