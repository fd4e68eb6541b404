#pragma once

#include <chrono>
#include <cstdint>

#include <android-base/result.h>

#include "device/device_facts.h"
#include "device/fault.h"
#include "scenario/scenario.pb.h"
#include "scenario/step_player.h"

// The player's handler of each kind of step, by family. Each takes the step from `call` and
// returns an error that says what did not hold.

namespace tarvo_emu {

// How long an expectation waits when its step gives no timeout_ms. The recorder gives a step a
// wait of its own only when the default would not see it again.
constexpr std::chrono::milliseconds kDefaultStepTimeout = kDefaultWait;

// A step's wait: its own `timeout_ms` when it has one, the default otherwise.
inline std::chrono::milliseconds StepTimeout(bool has_timeout, uint32_t timeout_ms) {
    return has_timeout ? std::chrono::milliseconds(timeout_ms) : kDefaultStepTimeout;
}

// Steps on the message channel: what the modem sends the daemon, how it answers the daemon's
// requests, and the daemon's messages that a step expects.

// send: one message from the modem.
android::base::Result<void> PlaySend(StepPlayer& player, const StepCall& call);
// send_raw: bytes written as one message, unparsed.
android::base::Result<void> PlaySendRaw(StepPlayer& player, const StepCall& call);
// send_generated: a message with generated data, whole or in blocks each awaiting its response.
android::base::Result<void> PlaySendGenerated(StepPlayer& player, const StepCall& call);
// auto_reply: how the modem answers a kind of request from now on.
android::base::Result<void> PlayAutoReply(StepPlayer& player, const StepCall& call);
// expect: takes the daemon's earliest untaken message that matches.
android::base::Result<void> PlayExpect(StepPlayer& player, const StepCall& call);
// expect_silence_ms: no message at all for a while.
android::base::Result<void> PlayExpectSilence(StepPlayer& player, const StepCall& call);

// Steps on the log lines of every process in the sandbox.

// expect_log: takes the earliest untaken line that matches, or counts such lines.
android::base::Result<void> PlayExpectLog(StepPlayer& player, const StepCall& call);
// expect_no_log: no such line was printed so far.
android::base::Result<void> PlayExpectNoLog(StepPlayer& player, const StepCall& call);

// Steps on the files and system properties of the sandbox's tree.

// write_file: writes a file now, as a seed file is written before start.
android::base::Result<void> PlayWriteFile(StepPlayer& player, const StepCall& call);
// remove_file: removes a file that must exist.
android::base::Result<void> PlayRemoveFile(StepPlayer& player, const StepCall& call);
// remount: a tree of its own turns read-only or full, or back.
android::base::Result<void> PlayRemount(StepPlayer& player, const StepCall& call);
// expect_file: a file's presence, content, size and mode, checked again until they hold or the
// step's time is up.
android::base::Result<void> PlayExpectFile(StepPlayer& player, const StepCall& call);
// set_property: sets a system property now; an error when the store refuses it.
android::base::Result<void> PlaySetProperty(StepPlayer& player, const StepCall& call);
// expect_property: a property's value, or that it is not set.
android::base::Result<void> PlayExpectProperty(StepPlayer& player, const StepCall& call);

// Steps on what the daemon wrote to the emulator's nodes other than the message channel.

// expect_uplink: the throughput test node's uplink counters, awaited until they hold.
android::base::Result<void> PlayExpectUplink(StepPlayer& player, const StepCall& call);
// expect_thermal_writes: the writes to the thermal driver's node since the step before.
android::base::Result<void> PlayExpectThermalWrites(StepPlayer& player, const StepCall& call);

// Steps on the radio behind the RIL client library.

// ril_reply: how the RIL answers a request from now on.
android::base::Result<void> PlayRilReply(StepPlayer& player, const StepCall& call);
// expect_ril: takes the earliest untaken RIL request that matches.
android::base::Result<void> PlayExpectRil(StepPlayer& player, const StepCall& call);
// expect_ril_silence_ms: no RIL request at all for a while.
android::base::Result<void> PlayExpectRilSilence(StepPlayer& player, const StepCall& call);

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

// Steps on what the daemon holds: its descriptors, threads and resident memory.

// mark: records the daemon's usage and the log lines so far under a name.
android::base::Result<void> PlayMark(StepPlayer& player, const StepCall& call);
// expect_usage: the daemon's usage compared with that at a mark, until it holds or the step's
// time is up.
android::base::Result<void> PlayExpectUsage(StepPlayer& player, const StepCall& call);

}  // namespace tarvo_emu
