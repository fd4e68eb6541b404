#pragma once

#include <chrono>
#include <cstdint>

#include <android-base/result.h>

#include "device/device_facts.h"
#include "device/fault.h"
#include "scenario/scenario.pb.h"
#include "scenario/step_player.h"

// The player's handler of each kind of step (scenario.proto says what each does), by family, one
// file each. Each returns an error that says what did not hold.

namespace tarvo_emu {

// How long an expectation waits when its step gives no timeout_ms. The recorder gives a step a
// wait of its own only when the default would not see it again.
constexpr std::chrono::milliseconds kDefaultStepTimeout = kDefaultWait;

// A step's wait: its own `timeout_ms` when it has one, the default otherwise.
inline std::chrono::milliseconds StepTimeout(bool has_timeout, uint32_t timeout_ms) {
    return has_timeout ? std::chrono::milliseconds(timeout_ms) : kDefaultStepTimeout;
}

// The schema's fault of a node's fault, which has its number.
tarvo_scenario::Fault SchemaFault(Fault fault);

// message_steps.cpp: what the modem sends and answers, and the daemon's messages expected.
android::base::Result<void> PlaySend(StepPlayer&, const tarvo_scenario::Step&);
android::base::Result<void> PlaySendRaw(StepPlayer&, const tarvo_scenario::Step&);
android::base::Result<void> PlaySendGenerated(StepPlayer&, const tarvo_scenario::Step&);
android::base::Result<void> PlayAutoReply(StepPlayer&, const tarvo_scenario::Step&);
android::base::Result<void> PlayExpect(StepPlayer&, const tarvo_scenario::Step&);
android::base::Result<void> PlayExpectSilence(StepPlayer&, const tarvo_scenario::Step&);
android::base::Result<void> PlayExpectAllTaken(StepPlayer&, const tarvo_scenario::Step&);

// log_steps.cpp: the log lines of every process in the sandbox.
android::base::Result<void> PlayExpectLog(StepPlayer&, const tarvo_scenario::Step&);
android::base::Result<void> PlayExpectNoLog(StepPlayer&, const tarvo_scenario::Step&);

// file_steps.cpp: the files and system properties of the sandbox's tree, and what the daemon
// wrote to the emulator's nodes other than the message channel.
android::base::Result<void> PlayWriteFile(StepPlayer&, const tarvo_scenario::Step&);
android::base::Result<void> PlayRemoveFile(StepPlayer&, const tarvo_scenario::Step&);
android::base::Result<void> PlayRemount(StepPlayer&, const tarvo_scenario::Step&);
android::base::Result<void> PlayExpectFile(StepPlayer&, const tarvo_scenario::Step&);
android::base::Result<void> PlaySetProperty(StepPlayer&, const tarvo_scenario::Step&);
android::base::Result<void> PlayExpectProperty(StepPlayer&, const tarvo_scenario::Step&);
android::base::Result<void> PlayExpectUplink(StepPlayer&, const tarvo_scenario::Step&);
android::base::Result<void> PlayExpectThermalWrites(StepPlayer&, const tarvo_scenario::Step&);

// ril_steps.cpp: the radio behind the RIL client library.
android::base::Result<void> PlayRilReply(StepPlayer&, const tarvo_scenario::Step&);
android::base::Result<void> PlayExpectRil(StepPlayer&, const tarvo_scenario::Step&);
android::base::Result<void> PlayExpectRilSilence(StepPlayer&, const tarvo_scenario::Step&);

// daemon_steps.cpp: the daemon acted on from outside the message channel, and what it holds:
// its descriptors, threads and resident memory.
android::base::Result<void> PlayModemState(StepPlayer&, const tarvo_scenario::Step&);
android::base::Result<void> PlayFault(StepPlayer&, const tarvo_scenario::Step&);
android::base::Result<void> PlayRestartDaemon(StepPlayer&, const tarvo_scenario::Step&);
android::base::Result<void> PlaySignalDaemon(StepPlayer&, const tarvo_scenario::Step&);
android::base::Result<void> PlayClient(StepPlayer&, const tarvo_scenario::Step&);
android::base::Result<void> PlayMark(StepPlayer&, const tarvo_scenario::Step&);
android::base::Result<void> PlayExpectUsage(StepPlayer&, const tarvo_scenario::Step&);

}  // namespace tarvo_emu
