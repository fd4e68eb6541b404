#pragma once

#include <atomic>
#include <string>

// A message-oriented device node: one read returns one message, one write sends one.
class VekIoChannel {
  public:
    static constexpr const char* kDefaultPath = "/dev/oem_ipc1";

    VekIoChannel() = default;
    VekIoChannel(const VekIoChannel&) = delete;
    VekIoChannel& operator=(const VekIoChannel&) = delete;
    ~VekIoChannel();

    int OpenChannel();
    int CloseChannel();
    int GetFd() const { return fd_; }
    // Retries reads interrupted or that would block; 0 means end of file.
    int ReadFromChannel(char* buffer, int size);
    // Writes all of data; 0 on success, -1 on a hard error.
    int WriteToChannel(const char* data, int size);
    // Takes effect at the next open.
    bool SetChannel(std::string path);

  private:
    // Shared by the reader and the senders; a send racing a reopen may fail, never corrupt.
    std::atomic<int> fd_{-1};
    std::string path_ = kDefaultPath;
};
