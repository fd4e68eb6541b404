#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <android-base/result.h>

#include "device/device_facts.h"
#include "nodes/boot_node.h"
#include "nodes/ipc_node.h"
#include "nodes/temp_node.h"
#include "nodes/test_node.h"

namespace tarvo_emu {

// The emulated modem's device nodes (kNodeTable), served by a FUSE low-level filesystem mounted on
// a directory of the host. The sandbox binds each file over its
// device path. The session loop is multi-threaded, although no node operation blocks, so that a
// slow reply never holds up another node.
class ModemEmulator {
  public:
    ModemEmulator(int initial_state, IpcNode::UplinkHandler on_uplink);
    // Answers held requests, unmounts and stops the session loop.
    ~ModemEmulator();

    ModemEmulator(const ModemEmulator&) = delete;
    ModemEmulator& operator=(const ModemEmulator&) = delete;

    // Mounts the filesystem on `dir` (an existing empty directory) and starts serving it.
    android::base::Result<void> Mount(const std::string& dir);

    // Host path of a node's file, e.g. PathOf("oem_ipc1").
    std::string PathOf(const std::string& name) const { return dir_ + "/" + name; }

    IpcNode& ipc() { return *ipc_; }
    BootNode& boot() { return *boot_; }
    TestNode& test() { return *test_; }
    TempNode& temp() { return *temp_; }

  private:
    static const fuse_lowlevel_ops kOperations;

    EmulatedNode* NodeOfKind(NodeKind kind) const;
    EmulatedNode* NodeOf(fuse_ino_t ino) const;
    // The node that `req` is for, or null once `req` is answered with ENOENT.
    static EmulatedNode* NodeOrReply(fuse_req_t req, fuse_ino_t ino);
    fuse_ino_t InodeOf(const char* name) const;
    void FillAttr(fuse_ino_t ino, struct stat* attr) const;

    static void Lookup(fuse_req_t req, fuse_ino_t parent, const char* name);
    static void Getattr(fuse_req_t req, fuse_ino_t ino, fuse_file_info* fi);
    static void Setattr(fuse_req_t req, fuse_ino_t ino, struct stat* attr, int to_set,
                        fuse_file_info* fi);
    static void Readdir(fuse_req_t req, fuse_ino_t ino, size_t size, off_t offset,
                        fuse_file_info* fi);
    static void Open(fuse_req_t req, fuse_ino_t ino, fuse_file_info* fi);
    static void Read(fuse_req_t req, fuse_ino_t ino, size_t size, off_t offset, fuse_file_info* fi);
    static void Write(fuse_req_t req, fuse_ino_t ino, const char* data, size_t size, off_t offset,
                      fuse_file_info* fi);
    static void Poll(fuse_req_t req, fuse_ino_t ino, fuse_file_info* fi, fuse_pollhandle* handle);
    static void Ioctl(fuse_req_t req, fuse_ino_t ino, unsigned int cmd, void* arg,
                      fuse_file_info* fi, unsigned flags, const void* in_buf, size_t in_size,
                      size_t out_size);

    std::unique_ptr<IpcNode> ipc_;
    std::unique_ptr<BootNode> boot_;
    std::unique_ptr<TestNode> test_;
    std::unique_ptr<TempNode> temp_;
    std::vector<EmulatedNode*> nodes_;  // as in kNodeTable; inode = index + 2, 1 is the root

    std::string dir_;
    fuse_session* session_ = nullptr;
    std::thread loop_;
    std::atomic<uint64_t> next_fh_{1};
};

}  // namespace tarvo_emu
