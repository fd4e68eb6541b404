#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <android-base/result.h>

#include "host_property_store.h"

namespace tarvo_emu {

// A throw-away root for the daemon: a host directory holding the device's directories, the
// property store and the emulator's mount point, and the bubblewrap command line that shows them
// to a process at the device's absolute paths. There is no pid namespace, so the pid file names
// a process that the clients, run in a second sandbox over the same binds, can signal.
class Sandbox {
  public:
    // Creates a fresh root under $TMPDIR (or /tmp). With a size limit, /data (or /mnt) is a tmpfs
    // of that many KiB.
    static android::base::Result<std::unique_ptr<Sandbox>> Create(uint32_t data_size_limit_kib = 0,
                                                                  uint32_t mnt_size_limit_kib = 0);
    // Deletes the root; the emulator must be unmounted first.
    ~Sandbox();

    const std::string& dir() const { return dir_; }
    // Where the emulator is mounted.
    std::string emulator_dir() const { return dir_ + "/emu"; }
    // Shown at /dev/socket inside, for the emulated RIL's socket.
    std::string socket_dir() const { return dir_ + "/socket"; }
    // The host path of a path under /data, /mnt, /vendor or /dev/__properties__ inside the
    // sandbox; an error for any other path.
    android::base::Result<std::string> HostPath(const std::string& path) const;
    HostPropertyStore properties() const { return HostPropertyStore(dir_ + "/properties"); }

    // Shows the host file `host_path` at `device_path` (an emulated device node).
    void BindNode(const std::string& device_path, const std::string& host_path);
    // Takes `path` out of the tree: an emulated node is no longer bound, a file or a directory
    // is deleted with its contents.
    android::base::Result<void> Remove(const std::string& path);
    // Makes the directory `path` (under /data or /mnt) a tmpfs of its own, before anything is
    // written into it, so that Remount can change it while the daemon runs.
    android::base::Result<void> MountOwn(const std::string& path);
    // Remounts a tmpfs of the sandbox (/data or /mnt with a size limit, or one of MountOwn):
    // read-only or writable; full (its size limit moved down to the pages its files hold, and
    // `free_kib` more) or at its own size. The processes inside see it at once, through the same
    // superblock.
    android::base::Result<void> Remount(const std::string& path, bool read_only,
                                        std::optional<uint32_t> free_kib);
    // Binds `path` (under /data or /mnt) read-only.
    android::base::Result<void> SetReadOnly(const std::string& path);
    // Shows the host directory `dir` at the same path, writable, even inside the project's trees.
    void BindWritable(const std::string& dir) { writable_.push_back(dir); }
    // Sets an environment variable for every process in the sandbox.
    void SetEnv(const std::string& name, const std::string& value) { env_[name] = value; }

    // The bubblewrap command line that runs `command` (argv[0] an absolute path) inside. Built
    // here and nowhere else.
    std::vector<std::string> Command(const std::vector<std::string>& command) const;

  private:
    explicit Sandbox(std::string dir);
    android::base::Result<void> MountTmpfs(const std::string& path, uint32_t size_kib);

    std::string dir_;
    std::vector<std::pair<std::string, std::string>> nodes_;      // device path, host path
    std::vector<std::pair<std::string, std::string>> read_only_;  // path, host path
    std::vector<std::string> writable_;
    std::map<std::string, std::string> env_;
    // The tmpfs mounts by their paths inside, in the order mounted: host path and size in KiB.
    std::vector<std::pair<std::string, std::pair<std::string, uint32_t>>> mounted_;
};

}  // namespace tarvo_emu
