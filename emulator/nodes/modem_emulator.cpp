#include "nodes/modem_emulator.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mount.h>

#include <iterator>
#include <map>

#include <android-base/unique_fd.h>

using android::base::Error;
using android::base::Result;

namespace tarvo_emu {

namespace {

constexpr fuse_ino_t kRootInode = FUSE_ROOT_ID;
constexpr double kAttrTimeout = 0;  // sizes change under the kernel's feet

ModemEmulator* EmulatorOf(fuse_req_t req) {
    return static_cast<ModemEmulator*>(fuse_req_userdata(req));
}

}  // namespace

EmulatedNode* ModemEmulator::NodeOrReply(fuse_req_t req, fuse_ino_t ino) {
    EmulatedNode* node = EmulatorOf(req)->NodeOf(ino);
    if (node == nullptr) fuse_reply_err(req, ENOENT);
    return node;
}

void ModemEmulator::ReplyAttr(fuse_req_t req, fuse_ino_t ino) {
    struct stat attr;
    if (!EmulatorOf(req)->FillAttr(ino, &attr)) {
        fuse_reply_err(req, ENOENT);
        return;
    }
    fuse_reply_attr(req, &attr, kAttrTimeout);
}

const fuse_lowlevel_ops ModemEmulator::kOperations = [] {
    fuse_lowlevel_ops ops = {};
    ops.lookup = [](fuse_req_t req, fuse_ino_t parent, const char* name) {
        fuse_entry_param entry = {};
        entry.ino = parent == kRootInode ? EmulatorOf(req)->InodeOf(name) : 0;
        entry.attr_timeout = kAttrTimeout;
        entry.entry_timeout = kAttrTimeout;
        if (entry.ino == 0 || !EmulatorOf(req)->FillAttr(entry.ino, &entry.attr)) {
            fuse_reply_err(req, ENOENT);
            return;
        }
        fuse_reply_entry(req, &entry);
    };
    ops.getattr = [](fuse_req_t req, fuse_ino_t ino, fuse_file_info*) { ReplyAttr(req, ino); };
    // Truncation on open (std::ofstream asks for it) means nothing to a device node.
    ops.setattr = [](fuse_req_t req, fuse_ino_t ino, struct stat*, int, fuse_file_info*) {
        ReplyAttr(req, ino);
    };
    ops.readdir = [](fuse_req_t req, fuse_ino_t ino, size_t size, off_t offset, fuse_file_info*) {
        if (ino != kRootInode) {
            fuse_reply_err(req, ENOTDIR);
            return;
        }
        std::string buffer(size, '\0');
        size_t used = 0;
        for (size_t i = offset; i < std::size(kNodeTable); ++i) {
            struct stat attr;
            EmulatorOf(req)->FillAttr(i + 2, &attr);
            const size_t entry = fuse_add_direntry(req, buffer.data() + used, size - used,
                                                   kNodeTable[i].name, &attr, i + 1);
            if (entry > size - used) break;
            used += entry;
        }
        fuse_reply_buf(req, buffer.data(), used);
    };
    ops.open = [](fuse_req_t req, fuse_ino_t ino, fuse_file_info* fi) {
        EmulatedNode* node = EmulatorOf(req)->NodeOf(ino);
        if (node == nullptr) {
            fuse_reply_err(req, ino == kRootInode ? EISDIR : ENOENT);
            return;
        }
        // Every read and write reaches the node as the caller made it, one message each.
        fi->direct_io = 1;
        fi->nonseekable = node->seekable() ? 0 : 1;
        fi->fh = EmulatorOf(req)->next_fh_++;
        node->Open();
        fuse_reply_open(req, fi);
    };
    ops.read = [](fuse_req_t req, fuse_ino_t ino, size_t size, off_t offset, fuse_file_info* fi) {
        if (EmulatedNode* node = NodeOrReply(req, ino)) node->Read(req, size, offset, fi->flags);
    };
    ops.write = [](fuse_req_t req, fuse_ino_t ino, const char* data, size_t size, off_t offset,
                   fuse_file_info*) {
        if (EmulatedNode* node = NodeOrReply(req, ino)) node->Write(req, data, size, offset);
    };
    ops.poll = [](fuse_req_t req, fuse_ino_t ino, fuse_file_info* fi, fuse_pollhandle* handle) {
        if (EmulatedNode* node = NodeOrReply(req, ino)) {
            node->Poll(req, fi->fh, handle);
        } else if (handle != nullptr) {
            fuse_pollhandle_destroy(handle);
        }
    };
    ops.ioctl = [](fuse_req_t req, fuse_ino_t ino, unsigned int cmd, void*, fuse_file_info*,
                   unsigned, const void*, size_t, size_t) {
        if (EmulatedNode* node = NodeOrReply(req, ino)) node->Ioctl(req, cmd);
    };
    return ops;
}();

ModemEmulator::ModemEmulator(int initial_state, IpcNode::UplinkHandler on_uplink)
    : ipc_(std::move(on_uplink)), boot_(initial_state) {
    const std::map<NodeKind, EmulatedNode*> by_kind = {{NodeKind::kIpc, &ipc_},
                                                       {NodeKind::kBoot, &boot_},
                                                       {NodeKind::kTest, &test_},
                                                       {NodeKind::kTemp, &temp_}};
    for (const NodePlace& place : kNodeTable) nodes_.push_back(by_kind.at(place.kind));
}

Result<void> ModemEmulator::Mount(const std::string& dir) {
    dir_ = dir;
    const char* argv[] = {"tarvo-emu", "-o", "fsname=tarvo-emu,subtype=tarvo-emu"};
    fuse_args args = FUSE_ARGS_INIT(3, const_cast<char**>(argv));
    session_ = fuse_session_new(&args, &kOperations, sizeof(kOperations), this);
    fuse_opt_free_args(&args);
    if (session_ == nullptr) return Error() << "fuse_session_new failed";
    if (fuse_session_mount(session_, dir.c_str()) != 0) {
        fuse_session_destroy(session_);
        session_ = nullptr;
        return Error() << "cannot mount the emulator on " << dir << " (is /dev/fuse there?)";
    }
    loop_ = std::thread([this] {
        fuse_loop_config* config = fuse_loop_cfg_create();
        fuse_loop_cfg_set_max_threads(config, 8);
        fuse_session_loop_mt(session_, config);
        fuse_loop_cfg_destroy(config);
    });
    return {};
}

ModemEmulator::~ModemEmulator() {
    if (session_ == nullptr) return;
    for (EmulatedNode* node : nodes_) node->Shutdown();
    // When a process is killed in the middle of a request, the kernel sends an interrupt for it,
    // which may come after the request was answered; libfuse then keeps the interrupt until the
    // next request arrives and answers it with that. No request follows the last process's end,
    // so the rig makes one (an open and close of the boot node): otherwise the interrupt would
    // be left allocated when the session goes.
    android::base::unique_fd last(open(PathOf(kBootNode).c_str(), O_RDONLY | O_CLOEXEC));
    last.reset();
    // A lazy detach ends the connection once the sandboxes' binds of the nodes are gone too (a
    // killed daemon's mount namespace may outlive its reaping by a moment). Its end ends the
    // loop, and libfuse then sees it and unmounts nothing more: a loop told to exit would end at
    // the next request, with the connection alive, and libfuse would unmount the detached
    // directory again. The session's descriptor is closed only after the loop's workers are gone.
    umount2(dir_.c_str(), MNT_DETACH);
    if (loop_.joinable()) loop_.join();
    fuse_session_unmount(session_);
    fuse_session_destroy(session_);
    session_ = nullptr;
}

EmulatedNode* ModemEmulator::NodeOf(fuse_ino_t ino) const {
    if (ino < 2 || ino - 2 >= nodes_.size()) return nullptr;
    return nodes_[ino - 2];
}

fuse_ino_t ModemEmulator::InodeOf(const char* name) const {
    for (size_t i = 0; i < nodes_.size(); ++i) {
        if (strcmp(kNodeTable[i].name, name) == 0) return i + 2;
    }
    return 0;
}

bool ModemEmulator::FillAttr(fuse_ino_t ino, struct stat* attr) const {
    *attr = {};
    attr->st_ino = ino;
    attr->st_nlink = 1;
    if (ino == kRootInode) {
        attr->st_mode = S_IFDIR | 0755;
        attr->st_nlink = 2;
        return true;
    }
    EmulatedNode* node = NodeOf(ino);
    if (node == nullptr) return false;
    attr->st_mode = node->mode();
    attr->st_size = node->size();
    return true;
}

}  // namespace tarvo_emu
