#pragma once

#include <android-base/result.h>

#include "scenario/step_player.h"

namespace tarvo_emu {

// Steps on the files and system properties of the sandbox's tree.

// write_file: writes a file now, as a seed file is written before start.
android::base::Result<void> PlayWriteFile(StepPlayer& player, const StepCall& call);
// remove_file: removes a file that must exist.
android::base::Result<void> PlayRemoveFile(StepPlayer& player, const StepCall& call);
// expect_file: a file's presence, content, size and mode, checked again until they hold or the
// step's time is up.
android::base::Result<void> PlayExpectFile(StepPlayer& player, const StepCall& call);
// set_property: sets a system property now; an error when the store refuses it.
android::base::Result<void> PlaySetProperty(StepPlayer& player, const StepCall& call);
// expect_property: a property's value, or that it is not set.
android::base::Result<void> PlayExpectProperty(StepPlayer& player, const StepCall& call);

}  // namespace tarvo_emu
