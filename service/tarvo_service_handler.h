#pragma once

#include <cstdint>
#include <memory>

class TarvoMessageHandler;
class VekMessage;

// Entry point for the modem's requests and indications and for the daemon's own service commands.
// Every handler works from the message alone; transfer state lives in the file system.
class TarvoServiceHandler {
  public:
    explicit TarvoServiceHandler(TarvoMessageHandler* handler) : handler_(handler) {}
    TarvoServiceHandler(const TarvoServiceHandler&) = delete;
    TarvoServiceHandler& operator=(const TarvoServiceHandler&) = delete;
    virtual ~TarvoServiceHandler() = default;

    // Routing by message id, file operation or command; the chosen handler's status is returned.
    unsigned int OnReceiveRequest(VekMessage* request);
    unsigned int OnReceiveFileMessageRequest(VekMessage* request);
    unsigned int OnReceiveIndication(VekMessage* indication);
    unsigned int SendServiceRequest(unsigned int command);

  private:
    // Modem file transfers (message id 9).
    unsigned int OnReceiveFileWriteRequest(VekMessage* request);
    unsigned int OnReceiveFileAppendRequest(VekMessage* request);
    unsigned int OnReceiveFileReadRequest(VekMessage* request);
    unsigned int OnReceiveFileWriteIndication(VekMessage* indication);

    TarvoMessageHandler* handler_;
};
