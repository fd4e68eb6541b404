#include "process/file_tree.h"

#include <filesystem>
#include <system_error>

namespace tarvo_emu {

android::base::Result<void> MakeDirectories(const std::string& dir) {
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    if (ec) return android::base::Error(ec.value()) << "mkdir " << dir;
    return {};
}

android::base::Result<void> RemoveTree(const std::string& path) {
    std::error_code ec;
    std::filesystem::remove_all(path, ec);
    if (ec) return android::base::Error(ec.value()) << "cannot remove " << path;
    return {};
}

}  // namespace tarvo_emu
