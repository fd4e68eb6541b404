#pragma once

#include <memory>
#include <mutex>
#include <string>

#include <android-base/unique_fd.h>

namespace tarvo {

// A message-oriented device node: one read returns one message, one write sends one.
//
// The reader thread closes and reopens the node while other threads send on it. Each read or
// write holds a reference to the descriptor it started with, so a close that happens meanwhile
// takes effect when that call ends: the number is never written to after it was closed or
// reused, and there is only ever one open descriptor per channel that new calls can reach.
class VekIoChannel {
  public:
    static constexpr const char* kDefaultPath = "/dev/oem_ipc1";

    VekIoChannel() = default;
    VekIoChannel(const VekIoChannel&) = delete;
    VekIoChannel& operator=(const VekIoChannel&) = delete;
    ~VekIoChannel() = default;

    int OpenChannel();
    int CloseChannel();
    // The current descriptor, -1 when closed. Only the thread that closes the channel may wait on
    // the number, as the reader does.
    int GetFd() const;
    // Retries reads interrupted or that would block; 0 means end of file.
    int ReadFromChannel(char* buffer, int size);
    // Writes all of data; 0 on success, -1 on a hard error.
    int WriteToChannel(const char* data, int size);
    // Takes effect at the next open.
    bool SetChannel(std::string path);

  private:
    using SharedFd = std::shared_ptr<const android::base::unique_fd>;

    SharedFd Current() const;

    mutable std::mutex lock_;  // guards file_ and path_, never held across a read or write
    SharedFd file_;
    std::string path_ = kDefaultPath;
};

}  // namespace tarvo
