#pragma once

#include <android-base/result.h>

#include "device/fault.h"
#include "scenario/scenario.pb.h"
#include "scenario/step_player.h"

namespace tarvo_emu {

// Steps that act on the daemon from outside the message channel: the modem's boot state, faults
// on the channel, a restart, a signal, a client run.

// modem_state: the state that the boot node reports from now on.
android::base::Result<void> PlayModemState(StepPlayer& player, const StepCall& call);
// The schema's fault of a node's fault, which has its number.
tarvo_scenario::Fault SchemaFault(Fault fault);

// fault: the daemon's next read or write on the channel fails, or the channel hangs up.
android::base::Result<void> PlayFault(StepPlayer& player, const StepCall& call);
// restart_daemon: kills the daemon and starts it again, as init restarts a service.
android::base::Result<void> PlayRestartDaemon(StepPlayer& player, const StepCall& call);
// signal_daemon: sends the daemon a signal.
android::base::Result<void> PlaySignalDaemon(StepPlayer& player, const StepCall& call);
// client: runs `tarvo` with arguments once the server wrote its pid file, and checks its exit
// status.
android::base::Result<void> PlayClient(StepPlayer& player, const StepCall& call);

}  // namespace tarvo_emu
