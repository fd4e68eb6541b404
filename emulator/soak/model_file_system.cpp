#include "soak/model_file_system.h"

#include <algorithm>

#include <android-base/strings.h>

namespace tarvo_emu {

namespace {

bool IsUnder(const std::string& path, const std::string& prefix) {
    return path == prefix || android::base::StartsWith(path, prefix + "/");
}

}  // namespace

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
        if (IsUnder(resolved, prefix)) return false;
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

void ModelFileSystem::SetReadOnly(const std::string& prefix, bool read_only) {
    read_only_.erase(std::remove(read_only_.begin(), read_only_.end(), prefix), read_only_.end());
    if (read_only) read_only_.push_back(prefix);
}

bool ModelFileSystem::IsReadOnly(const std::string& prefix) const {
    return std::find(read_only_.begin(), read_only_.end(), prefix) != read_only_.end();
}

void ModelFileSystem::SetFull(const std::optional<std::string>& prefix, size_t free_pages) {
    full_ = prefix;
    full_pages_ = FullPages() + free_pages;
}

size_t ModelFileSystem::Room(const std::string& resolved, size_t size) const {
    if (!OnFullTree(resolved)) return size;
    const size_t pages = FullPages();
    const size_t free_pages = full_pages_ > pages ? full_pages_ - pages : 0;
    const File* file = Find(resolved);
    const size_t held = file != nullptr ? file->content.size() : 0;
    // The rest of the file's last page takes bytes without a page more.
    const size_t slack = (kPage - held % kPage) % kPage;
    return std::min(size, slack + free_pages * kPage);
}

bool ModelFileSystem::OnFullTree(const std::string& resolved) const {
    if (!full_ || !IsUnder(resolved, *full_)) return false;
    return std::none_of(mounts_.begin(), mounts_.end(), [&](const std::string& mount) {
        return mount.size() > full_->size() && IsUnder(resolved, mount);
    });
}

size_t ModelFileSystem::FullPages() const {
    size_t pages = 0;
    for (const auto& [path, file] : files_) {
        if (OnFullTree(path)) pages += (file.content.size() + kPage - 1) / kPage;
    }
    return pages;
}

std::vector<std::string> ModelFileSystem::FilesUnder(const std::string& prefix) const {
    std::vector<std::string> paths;
    for (const auto& [path, file] : files_) {
        if (android::base::StartsWith(path, prefix)) paths.push_back(path);
    }
    return paths;
}

}  // namespace tarvo_emu
