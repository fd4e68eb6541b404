#include "nodes/temp_node.h"

#include <android-base/strings.h>

namespace tarvo_emu {

std::string TempNode::JoinedLocked() const { return android::base::Join(writes_, ""); }

off_t TempNode::size() {
    std::lock_guard<std::mutex> lock(mutex_);
    return JoinedLocked().size();
}

void TempNode::Read(fuse_req_t req, size_t size, off_t offset, int /*flags*/) {
    std::lock_guard<std::mutex> lock(mutex_);
    const std::string joined = JoinedLocked();
    if (offset < 0 || static_cast<size_t>(offset) >= joined.size()) {
        fuse_reply_buf(req, nullptr, 0);
        return;
    }
    const std::string part = joined.substr(offset, size);
    fuse_reply_buf(req, part.data(), part.size());
}

void TempNode::Write(fuse_req_t req, const char* data, size_t size, off_t /*offset*/) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (keep_writes_) writes_.emplace_back(data, size);
    fuse_reply_write(req, size);
}

void TempNode::KeepWrites(bool keep) {
    std::lock_guard<std::mutex> lock(mutex_);
    keep_writes_ = keep;
}

std::vector<std::string> TempNode::writes() {
    std::lock_guard<std::mutex> lock(mutex_);
    return writes_;
}

}  // namespace tarvo_emu
