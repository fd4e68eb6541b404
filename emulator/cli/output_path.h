#pragma once

#include <string>

#include <android-base/result.h>

namespace tarvo_emu {

// Whether a file can be written at `path`, as an option that names an output checks it before
// any work: an existing file writable, or its directory one that a file can be created in.
android::base::Result<void> CheckOutputPath(const std::string& path);

}  // namespace tarvo_emu
