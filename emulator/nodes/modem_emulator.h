#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include <android-base/result.h>

#include "device/device_facts.h"
#include "nodes/emulated_node.h"
#include "nodes/ipc_node.h"
#include "nodes/test_node.h"

namespace tarvo_emu {

// The emulated modem's device nodes (kNodeTable), served by a FUSE low-level filesystem mounted on
// a directory of the host. The sandbox binds each file over its device path. The session loop is
// multi-threaded, although no node operation blocks, so that a slow reply never holds up another
// node.
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

    IpcNode& ipc() { return ipc_; }
    BootNode& boot() { return boot_; }
    TestNode& test() { return test_; }
    TempNode& temp() { return temp_; }

  private:
    static const fuse_lowlevel_ops kOperations;

    EmulatedNode* NodeOf(fuse_ino_t ino) const;
    // The node that `req` is for, or null once `req` is answered with ENOENT.
    static EmulatedNode* NodeOrReply(fuse_req_t req, fuse_ino_t ino);
    static void ReplyAttr(fuse_req_t req, fuse_ino_t ino);
    fuse_ino_t InodeOf(const char* name) const;
    // False for an inode that names nothing.
    bool FillAttr(fuse_ino_t ino, struct stat* attr) const;

    IpcNode ipc_;
    BootNode boot_;
    TestNode test_;
    TempNode temp_;
    std::vector<EmulatedNode*> nodes_;  // as in kNodeTable; inode = index + 2, 1 is the root

    std::string dir_;
    fuse_session* session_ = nullptr;
    std::thread loop_;
    std::atomic<uint64_t> next_fh_{1};
};

}  // namespace tarvo_emu
