#pragma once

#include <cstdint>
#include <memory>

class TarvoMessageHandler;
class TarvoPayloadMessage;
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

    // Property read or write (message id 7), temperature readings for the thermal driver (10),
    // UE-capability file read (12). Each sends its own response(s) and returns the send status,
    // or 2 when the request cannot be handled.
    unsigned int OnReceivePropertyRequest(VekMessage* request);
    unsigned int OnReceiveModemTemperatureRequest(VekMessage* request);
    unsigned int OnReceiveUecapFileReadRequest(VekMessage* request);
    // Reads up to read_size bytes of the requested UE-capability file: 0 with the buffer handed
    // over, or 8 with none.
    unsigned int TryUecapFileRead(VekMessage* request, std::unique_ptr<char[]>* buffer,
                                  uint32_t* size);

  private:
    // Sends `response` with the envelope result 5 and returns 8, the status of a failure that the
    // modem was told of; the send's own status is not returned.
    unsigned int AnswerFailure(TarvoPayloadMessage* response);

    // Modem file transfers (message id 9).
    unsigned int OnReceiveFileWriteRequest(VekMessage* request);
    unsigned int OnReceiveFileAppendRequest(VekMessage* request);
    unsigned int OnReceiveFileReadRequest(VekMessage* request);
    unsigned int OnReceiveFileWriteIndication(VekMessage* indication);

    TarvoMessageHandler* handler_;
};
