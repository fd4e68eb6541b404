#pragma once

#include <mutex>
#include <string>
#include <vector>

#include <android-base/thread_annotations.h>

#include "nodes/emulated_node.h"

namespace tarvo_emu {

// "/sys/devices/platform/cp-tm1/cp_temp", the thermal driver's attribute: every write is kept on
// its own, as the driver sees it. Reading returns all writes so far, joined.
class TempNode : public EmulatedNode {
  public:
    mode_t mode() const override { return S_IFREG | 0664; }
    bool seekable() const override { return true; }
    off_t size() override;

    void Read(fuse_req_t req, size_t size, off_t offset, int flags) override;
    void Write(fuse_req_t req, const char* data, size_t size, off_t offset) override;

    std::vector<std::string> writes();
    // Whether writes are kept; a long run that reads none of them drops them, so that the rig's
    // memory stays flat.
    void KeepWrites(bool keep);

  private:
    std::string JoinedLocked() const REQUIRES(mutex_);

    std::mutex mutex_;
    std::vector<std::string> writes_ GUARDED_BY(mutex_);
    bool keep_writes_ = true;
};

}  // namespace tarvo_emu
