#pragma once

#include <filesystem>
#include <string>
#include <system_error>

#include <android-base/result.h>

namespace tarvo_emu {

// `dir` and the directories above it that are missing; done when they all exist.
inline android::base::Result<void> MakeDirectories(const std::string& dir) {
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    if (ec) return android::base::Error(ec.value()) << "mkdir " << dir;
    return {};
}

// `path` and all below it; done when nothing is left, also when nothing was there.
inline android::base::Result<void> RemoveTree(const std::string& path) {
    std::error_code ec;
    std::filesystem::remove_all(path, ec);
    if (ec) return android::base::Error(ec.value()) << "cannot remove " << path;
    return {};
}

}  // namespace tarvo_emu
