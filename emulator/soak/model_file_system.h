#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tarvo_emu {

// What the soak expects the sandbox's tree to hold: the directories the daemon may reach through
// the names the modem sends, and every file in them with its bytes and mode. Paths are resolved
// as the kernel resolves them, so that a name holding "../" lands where the daemon's open lands.
class ModelFileSystem {
  public:
    struct File {
        std::string content;
        mode_t mode = 0;
        // Where time stamps begin, each standing in `content` as bytes of its size: their
        // text is the clock's.
        std::vector<size_t> stamps;
    };
    // A time stamp's size: "MM-DD hh:mm:ss.mmm\n".
    static constexpr size_t kStampSize = 19;
    // A tmpfs holds a file's bytes in pages of this size.
    static constexpr size_t kPage = 4096;
    // A mode of 0: the file was created with the daemon's umask and its mode never set.
    static constexpr mode_t kUmaskMode = 0;

    ModelFileSystem(const std::vector<std::string>& directories,
                    const std::vector<std::string>& read_only);

    // The path with "." and ".." taken out, or nothing when a component before the last is not a
    // directory of the tree (the daemon's open fails with ENOENT there).
    std::optional<std::string> Resolve(const std::string& path) const;
    bool IsDirectory(const std::string& resolved) const { return directories_.count(resolved); }
    // A file may be created, written or removed at this resolved path.
    bool IsWritable(const std::string& resolved) const;

    const File* Find(const std::string& resolved) const;
    File* FindMutable(const std::string& resolved);
    // Creates the file (empty, with `mode`) when it is missing; the file.
    File& Open(const std::string& resolved, mode_t mode);
    void Remove(const std::string& resolved) { files_.erase(resolved); }
    void Rename(const std::string& from, const std::string& to);
    // The tree at `prefix` turning read-only, or writable again.
    void SetReadOnly(const std::string& prefix, bool read_only);
    bool IsReadOnly(const std::string& prefix) const;
    // The tree at `prefix` is a file system apart from the tree it is in: it neither fills up
    // nor frees space with it.
    void AddMount(const std::string& prefix) { mounts_.push_back(prefix); }
    // The tree at `prefix` full from now on: its files grow only into the pages they hold now,
    // `free_pages` more and those freed since, as a tmpfs whose size limit moved down to what it
    // uses. Nothing full when not given.
    void SetFull(const std::optional<std::string>& prefix, size_t free_pages = 0);
    bool IsFull(const std::string& prefix) const { return full_ == prefix; }
    // How many of `size` bytes appended to the file at `resolved` (an empty one when missing)
    // land before the write fails with ENOSPC.
    size_t Room(const std::string& resolved, size_t size) const;

    // Every file whose path starts with `prefix`, for checks after a step.
    std::vector<std::string> FilesUnder(const std::string& prefix) const;

  private:
    // Whether `resolved` is on the full tree's file system.
    bool OnFullTree(const std::string& resolved) const;
    // The pages that the files on the full tree hold.
    size_t FullPages() const;

    std::set<std::string> directories_;
    std::vector<std::string> read_only_;
    std::map<std::string, File> files_;
    std::vector<std::string> mounts_;
    std::optional<std::string> full_;
    size_t full_pages_ = 0;  // the pages held when full_ filled up
};

}  // namespace tarvo_emu
