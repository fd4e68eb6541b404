#include "scenario/step_handlers.h"

#include <signal.h>

#include <chrono>
#include <thread>
#include <vector>

#include <android-base/parseint.h>
#include <android-base/result.h>
#include <android-base/strings.h>

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using std::chrono::milliseconds;

namespace tarvo_emu {

namespace {

static_assert(tarvo_scenario::END_OF_FILE == static_cast<int>(Fault::kEndOfFile) &&
              tarvo_scenario::READ_ERROR == static_cast<int>(Fault::kReadError) &&
              tarvo_scenario::WRITE_ERROR == static_cast<int>(Fault::kWriteError) &&
              tarvo_scenario::HANG_UP == static_cast<int>(Fault::kHangUp) &&
              tarvo_scenario::Fault_MAX == static_cast<int>(Fault::kHangUp));

// A client finds the server by its pid file, which the server writes only once it has started:
// the client is run once the file holds a pid, or when the step's time is up, as on a device
// whose server never wrote it.
void AwaitServerPid(Rig& rig) {
    if (Result<pid_t> pid = rig.AwaitPidFile(kDefaultStepTimeout); !pid.ok()) {
        rig.transcript().Note(pid.error().message() + ": the client runs anyway");
    }
}

}  // namespace

tarvo_scenario::Fault SchemaFault(Fault fault) { return static_cast<tarvo_scenario::Fault>(fault); }

Result<void> PlayModemState(StepPlayer& player, const tarvo_scenario::Step& step) {
    player.rig().SetModemState(step.modem_state());
    return {};
}

Result<void> PlayFault(StepPlayer& player, const tarvo_scenario::Step& step) {
    if (step.fault() == tarvo_scenario::NO_FAULT) return Error() << "no fault named";
    player.rig().InjectFault(static_cast<Fault>(step.fault()));
    return {};
}

Result<void> PlayRestartDaemon(StepPlayer& player, const tarvo_scenario::Step& step) {
    if (!step.restart_daemon()) return {};
    if (Result<void> restarted = player.rig().RestartDaemon(); !restarted.ok()) {
        return Error() << "restart: " << restarted.error();
    }
    return {};
}

Result<void> PlaySignalDaemon(StepPlayer& player, const tarvo_scenario::Step& step) {
    Result<pid_t> pid = player.AwaitDaemonPid();
    if (!pid.ok()) return pid.error();
    if (kill(*pid, static_cast<int>(step.signal_daemon())) != 0) {
        return ErrnoError() << "kill " << *pid;
    }
    return {};
}

Result<void> PlayClient(StepPlayer& player, const tarvo_scenario::Step& step) {
    std::vector<std::string> argv;
    for (const std::string& arg : android::base::Split(step.client(), " ")) {
        if (!arg.empty()) argv.push_back(arg);
    }
    AwaitServerPid(player.rig());
    Result<ProcessResult> result = player.rig().RunClient(argv);
    if (!result.ok()) return result.error();
    if (result->timed_out) return Error() << "the client did not end within 10 s";
    if (result->status != step.exit_status()) {
        return Errorf("the client exited with {}, not {}", result->status, step.exit_status());
    }
    return {};
}

}  // namespace tarvo_emu
