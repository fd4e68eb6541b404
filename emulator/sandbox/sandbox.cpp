#include "sandbox/sandbox.h"

#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/statfs.h>

#include <algorithm>
#include <filesystem>

#include <android-base/strings.h>

#include "device/device_facts.h"
#include "process/child_process.h"
#include "process/file_tree.h"
#include "process/signal_cleanup.h"
#include "ril_library/ril_wire.h"

namespace fs = std::filesystem;

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;

namespace tarvo_emu {

namespace {

constexpr const char* kBwrap = "/usr/bin/bwrap";
// The size of a tree that MountOwn makes.
constexpr uint32_t kOwnMountKib = 262144;

// A sandbox path prefix, the directory of the root that holds it, and whether it is writable.
struct MappedTree {
    const char* path;
    const char* local;
    bool writable;
};
constexpr MappedTree kMappedTrees[] = {
    {"/data", "data", true},
    {"/mnt", "mnt", true},
    // A device's vendor partition is read-only, even for root.
    {"/vendor", "vendor", false},
    {"/dev/__properties__", "properties", true},
};

bool IsUnder(const std::string& path, const std::string& prefix) {
    return path == prefix || android::base::StartsWith(path, prefix + "/");
}

}  // namespace

Result<std::unique_ptr<Sandbox>> Sandbox::Create(uint32_t data_size_limit_kib,
                                                 uint32_t mnt_size_limit_kib) {
    const char* tmp = getenv("TMPDIR");
    std::string pattern =
        std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/tarvo-rig.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) return ErrnoError() << "mkdtemp " << pattern;
    std::unique_ptr<Sandbox> sandbox(new Sandbox(pattern));
    AddTemporaryTree(pattern);
    for (const auto& [tree, limit_kib] :
         {std::pair{"/data", data_size_limit_kib}, std::pair{"/mnt", mnt_size_limit_kib}}) {
        if (limit_kib == 0) continue;
        if (Result<void> mounted = sandbox->MountTmpfs(tree, limit_kib); !mounted.ok()) {
            return mounted.error();
        }
    }
    std::vector<std::string> dirs = {pattern + "/emu", pattern + "/properties",
                                     pattern + "/socket"};
    // The directories that a device has and the daemon expects.
    for (const char* dir : kDeviceDirectories) dirs.push_back(*sandbox->HostPath(dir));
    for (const std::string& dir : dirs) {
        if (Result<void> made = MakeDirectories(dir); !made.ok()) return made.error();
    }
    return sandbox;
}

Sandbox::Sandbox(std::string dir) : dir_(std::move(dir)) {}

Sandbox::~Sandbox() {
    for (auto it = mounted_.rbegin(); it != mounted_.rend(); ++it) {
        umount2(it->second.first.c_str(), MNT_DETACH);
    }
    RemoveTree(dir_);
    RemoveTemporaryTree(dir_);
}

Result<std::string> Sandbox::HostPath(const std::string& path) const {
    for (const MappedTree& tree : kMappedTrees) {
        if (IsUnder(path, tree.path))
            return dir_ + "/" + tree.local + path.substr(strlen(tree.path));
    }
    return Error() << path << " is not in the sandbox's tree";
}

void Sandbox::BindNode(const std::string& device_path, const std::string& host_path) {
    nodes_.emplace_back(device_path, host_path);
}

Result<void> Sandbox::MountTmpfs(const std::string& path, uint32_t size_kib) {
    Result<std::string> dir = HostPath(path);
    if (!dir.ok()) return dir.error();
    if (Result<void> made = MakeDirectories(*dir); !made.ok()) return made.error();
    const std::string options = "size=" + std::to_string(size_kib) + "k,mode=0755";
    if (mount("tmpfs", dir->c_str(), "tmpfs", 0, options.c_str()) != 0) {
        return ErrnoError() << "mount tmpfs " << options << " on " << *dir;
    }
    mounted_.push_back({path, {*dir, size_kib}});
    return {};
}

Result<void> Sandbox::MountOwn(const std::string& path) {
    if (!IsUnder(path, "/data") && !IsUnder(path, "/mnt")) {
        return Error() << "cannot mount " << path << ": not under /data or /mnt";
    }
    return MountTmpfs(path, kOwnMountKib);
}

Result<void> Sandbox::Remount(const std::string& path, bool read_only,
                              std::optional<uint32_t> free_kib) {
    auto mounted = std::find_if(mounted_.begin(), mounted_.end(),
                                [&path](const auto& tree) { return tree.first == path; });
    if (mounted == mounted_.end()) return Error() << path << " is not a tree of its own";
    const auto& [dir, size_kib] = mounted->second;
    uint64_t kib = size_kib;
    if (free_kib) {
        struct statfs fs;
        if (statfs(dir.c_str(), &fs) != 0) return ErrnoError() << "statfs " << dir;
        // A size of 0 is no limit at all: an empty tree keeps one page.
        kib = std::max<uint64_t>(fs.f_blocks - fs.f_bfree, 1) * fs.f_bsize / 1024 + *free_kib;
    }
    const std::string options = "size=" + std::to_string(kib) + "k";
    if (mount("tmpfs", dir.c_str(), "tmpfs", MS_REMOUNT | (read_only ? MS_RDONLY : 0),
              options.c_str()) != 0) {
        return ErrnoError() << "remount " << path << " " << options;
    }
    // The remount made the host's mount read-only too, and a sandbox started now would copy that
    // flag and keep it after the superblock is writable again: only the superblock says so.
    if (read_only && mount(nullptr, dir.c_str(), nullptr, MS_REMOUNT | MS_BIND, nullptr) != 0) {
        return ErrnoError() << "remount " << path << " writable for later sandboxes";
    }
    return {};
}

Result<void> Sandbox::SetReadOnly(const std::string& path) {
    if (!IsUnder(path, "/data") && !IsUnder(path, "/mnt")) {
        return Error() << "cannot bind " << path << " read-only: not under /data or /mnt";
    }
    Result<std::string> host = HostPath(path);
    if (!host.ok()) return host.error();
    if (!fs::exists(*host)) return Error(ENOENT) << "cannot bind " << path << " read-only";
    read_only_.emplace_back(path, *host);
    return {};
}

Result<void> Sandbox::Remove(const std::string& path) {
    auto node = std::find_if(nodes_.begin(), nodes_.end(),
                             [&path](const auto& bind) { return bind.first == path; });
    if (node != nodes_.end()) {
        nodes_.erase(node);
        return {};
    }
    Result<std::string> host = HostPath(path);
    if (!host.ok()) return Error() << "cannot remove " << path << ": not in the sandbox's tree";
    return RemoveTree(*host);
}

std::vector<std::string> Sandbox::Command(const std::vector<std::string>& command) const {
    std::vector<std::string> args = {kBwrap, "--die-with-parent", "--ro-bind", "/usr", "/usr"};
    for (const std::string dir : {"lib", "lib64", "bin", "sbin"}) {
        args.insert(args.end(), {"--symlink", "usr/" + dir, "/" + dir});
    }
    args.insert(args.end(), {"--proc", "/proc", "--dev", "/dev", "--tmpfs", "/tmp"});
    for (const MappedTree& tree : kMappedTrees) {
        args.insert(args.end(),
                    {tree.writable ? "--bind" : "--ro-bind", dir_ + "/" + tree.local, tree.path});
    }
    args.insert(args.end(), {"--bind", socket_dir(), kRilSocketDir});
    // Devices allowed: a node may also be a real character device of the host, such as
    // /dev/full for a disk that fills up.
    for (const auto& [device_path, host_path] : nodes_) {
        args.insert(args.end(), {"--dev-bind", host_path, device_path});
    }
    for (const auto& [path, host_path] : read_only_) {
        args.insert(args.end(), {"--ro-bind", host_path, path});
    }
    // The project's binaries, at their host paths.
    for (const char* tree : {TARVO_SOURCE_DIR, TARVO_BINARY_DIR}) {
        args.insert(args.end(), {"--ro-bind", tree, tree});
    }
    // After the trees, so that a directory inside one of them can be writable.
    for (const std::string& dir : writable_) args.insert(args.end(), {"--bind", dir, dir});
    if (const char* counters = getenv("GCOV_PREFIX"); counters != nullptr) {
        args.insert(args.end(), {"--bind", counters, counters});
    }
    args.insert(args.end(), {"--clearenv", "--setenv", "PATH", "/usr/bin:/bin", "--setenv",
                             "LD_LIBRARY_PATH", kVendorLibraryDirectory});
    // In a sanitized build, the options that make the first report end the process reach the
    // daemon and its clients too; in a coverage build, where their counters go.
    for (const auto& [name, value] : BuildToolEnvironment()) {
        args.insert(args.end(), {"--setenv", name, value});
    }
    for (const auto& [name, value] : env_) args.insert(args.end(), {"--setenv", name, value});
    args.emplace_back("--");
    args.insert(args.end(), command.begin(), command.end());
    return args;
}

}  // namespace tarvo_emu
