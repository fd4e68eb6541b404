#pragma once

#include <string>
#include <vector>

#include <android-base/result.h>

namespace tarvo_emu {

// The files that `strace -ff -o PREFIX` writes, one per thread (PREFIX.PID), as one capture: each
// line given its thread's pid, as `-f -o` writes it, and all merged by their time stamps (a
// line without one, a row of a hex dump, stays after the line before it). Fails on a file that
// cannot be read, one not named PREFIX.PID, or lines without times (-t, -tt or -ttt).
android::base::Result<std::string> MergeStraceFiles(const std::vector<std::string>& paths);

}  // namespace tarvo_emu
