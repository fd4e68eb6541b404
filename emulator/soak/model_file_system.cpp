#include "soak/model_file_system.h"

#include <android-base/strings.h>

namespace tarvo_emu {

ModelFileSystem::ModelFileSystem(const std::vector<std::string>& directories,
                                 const std::vector<std::string>& read_only)
    : directories_(directories.begin(), directories.end()), read_only_(read_only) {
    directories_.insert("/");
}

std::optional<std::string> ModelFileSystem::Resolve(const std::string& path) const {
    const std::vector<std::string> parts = android::base::Split(path, "/");
    std::vector<std::string> resolved;
    const auto joined = [&resolved] { return "/" + android::base::Join(resolved, "/"); };
    for (size_t i = 0; i < parts.size(); ++i) {
        const std::string& part = parts[i];
        if (part.empty() || part == ".") continue;
        // Every component but the last is looked up as a directory, ".." included.
        if (!IsDirectory(joined())) return std::nullopt;
        if (part == "..") {
            if (!resolved.empty()) resolved.pop_back();
            continue;
        }
        resolved.push_back(part);
    }
    return joined();
}

bool ModelFileSystem::IsWritable(const std::string& resolved) const {
    for (const std::string& prefix : read_only_) {
        if (resolved == prefix || android::base::StartsWith(resolved, prefix + "/")) return false;
    }
    const size_t slash = resolved.rfind('/');
    return IsDirectory(slash == 0 ? "/" : resolved.substr(0, slash));
}

const ModelFileSystem::File* ModelFileSystem::Find(const std::string& resolved) const {
    const auto it = files_.find(resolved);
    return it == files_.end() ? nullptr : &it->second;
}

ModelFileSystem::File* ModelFileSystem::FindMutable(const std::string& resolved) {
    const auto it = files_.find(resolved);
    return it == files_.end() ? nullptr : &it->second;
}

ModelFileSystem::File& ModelFileSystem::Open(const std::string& resolved, mode_t mode) {
    const auto [it, created] = files_.try_emplace(resolved);
    if (created) it->second.mode = mode;
    return it->second;
}

void ModelFileSystem::Rename(const std::string& from, const std::string& to) {
    const auto it = files_.find(from);
    if (it == files_.end()) return;
    File file = std::move(it->second);
    files_.erase(it);
    files_[to] = std::move(file);
}

std::vector<std::string> ModelFileSystem::FilesUnder(const std::string& prefix) const {
    std::vector<std::string> paths;
    for (const auto& [path, file] : files_) {
        if (android::base::StartsWith(path, prefix)) paths.push_back(path);
    }
    return paths;
}

}  // namespace tarvo_emu
