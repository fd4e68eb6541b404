#pragma once

#include <string>

#include <android-base/result.h>

namespace tarvo_emu {

// `dir` and the directories above it that are missing; done when they all exist.
android::base::Result<void> MakeDirectories(const std::string& dir);
// `path` and all below it; done when nothing is left, also when nothing was there.
android::base::Result<void> RemoveTree(const std::string& path);

}  // namespace tarvo_emu
