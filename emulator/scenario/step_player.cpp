#include "scenario/step_player.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <thread>
#include <utility>

#include <fmt/format.h>

#include "scenario/control_steps.h"
#include "scenario/daemon_steps.h"
#include "scenario/file_steps.h"
#include "scenario/log_steps.h"
#include "scenario/message_steps.h"
#include "scenario/node_steps.h"
#include "scenario/ril_steps.h"
#include "scenario/scenario_text.h"
#include "scenario/step_wait.h"
#include "scenario/usage_steps.h"

using android::base::Error;
using android::base::Result;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

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
    {Step::kRepeat, PlayRepeat},
    {Step::kMark, PlayMark},
    {Step::kExpectUsage, PlayExpectUsage},
    {Step::kWriteFile, PlayWriteFile},
    {Step::kRemoveFile, PlayRemoveFile},
    {Step::kSendGenerated, PlaySendGenerated},
    {Step::kExpectThermalWrites, PlayExpectThermalWrites},
    {Step::kSignalDaemon, PlaySignalDaemon},
    {Step::kSetProperty, PlaySetProperty},
};

// The longest a wait goes on without looking whether its step was cancelled.
constexpr std::chrono::milliseconds kCancelSlice{50};

}  // namespace

Result<void> StepPlayer::PlayAll(const google::protobuf::RepeatedPtrField<Step>& steps,
                                 const std::string& label, const std::vector<StepPlace>* places) {
    for (int i = 0; i < steps.size(); ++i) {
        const StepPlace* place =
            places != nullptr && i < static_cast<int>(places->size()) ? &(*places)[i] : nullptr;
        Result<void> played = PlayNamed(steps[i], label + fmt::format("step {}", i), place);
        if (!played.ok()) return played;
    }
    return {};
}

Result<void> StepPlayer::PlayNamed(const Step& step, const std::string& name,
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
    // A repeat's own steps say what they wait for.
    if (!step.has_repeat()) wait_notice_.Begin(name, text);
    Result<void> played = Error() << "unknown step";
    if (handler != std::end(kHandlers))
        played = handler->second(*this, StepCall{step, name, place});
    wait_notice_.End();
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    rig_->transcript().Verdict(played.ok(), played.ok() ? "ok" : "FAILED",
                               fmt::format(" {} ({:.3f} s)", name, seconds));
    // A failure inside a repeat names its own step.
    // A cancelled step did not wait its time, whatever it saw meanwhile.
    if ((played.ok() && !cancelled()) || step.has_repeat()) return played;
    std::string where;
    if (origin_ != nullptr && place != nullptr) {
        where = fmt::format("{}:{}: ", origin_->path, place->line);
    }
    if (cancelled()) return Error() << where << name << " (" << text << ") cancelled";
    return Error() << where << name << " (" << text << ") failed: " << played.error();
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
    const pid_t pid = rig_->AwaitDaemonPid(kDefaultStepTimeout);
    if (pid == 0) return Error() << "the daemon's pid is not known";
    return pid;
}

}  // namespace tarvo_emu
