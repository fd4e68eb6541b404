#pragma once

#include <android-base/result.h>

#include "scenario/step_player.h"

namespace tarvo_emu {

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

}  // namespace tarvo_emu
