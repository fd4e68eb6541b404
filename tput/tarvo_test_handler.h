#pragma once

#include <cstdint>

class TarvoMessageHandler;

// Runs the IPC throughput test with the modem.
class TarvoTestHandler {
  public:
    explicit TarvoTestHandler(TarvoMessageHandler* handler) : handler_(handler) {}
    TarvoTestHandler(const TarvoTestHandler&) = delete;
    TarvoTestHandler& operator=(const TarvoTestHandler&) = delete;
    virtual ~TarvoTestHandler() = default;

  private:
    [[maybe_unused]] TarvoMessageHandler* handler_;
};
