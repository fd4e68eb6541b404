#pragma once

#include <android-base/result.h>

#include "scenario/step_player.h"

namespace tarvo_emu {

// Steps on the radio behind the RIL client library.

// ril_reply: how the RIL answers a request from now on.
android::base::Result<void> PlayRilReply(StepPlayer& player, const StepCall& call);
// expect_ril: takes the earliest untaken RIL request that matches.
android::base::Result<void> PlayExpectRil(StepPlayer& player, const StepCall& call);
// expect_ril_silence_ms: no RIL request at all for a while.
android::base::Result<void> PlayExpectRilSilence(StepPlayer& player, const StepCall& call);

}  // namespace tarvo_emu
