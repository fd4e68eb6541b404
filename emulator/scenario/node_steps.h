#pragma once

#include <android-base/result.h>

#include "scenario/step_player.h"

namespace tarvo_emu {

// Steps on what the daemon wrote to the emulator's nodes other than the message channel.

// expect_uplink: the throughput test node's uplink counters, awaited until they hold.
android::base::Result<void> PlayExpectUplink(StepPlayer& player, const StepCall& call);
// expect_thermal_writes: the writes to the thermal driver's node since the step before.
android::base::Result<void> PlayExpectThermalWrites(StepPlayer& player, const StepCall& call);

}  // namespace tarvo_emu
