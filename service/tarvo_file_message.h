#pragma once

#include "tarvo_payload_message.h"

namespace tarvo {

// The one response a file handler builds: a write response (answering writes and appends) or a
// read response. Selecting the other kind discards the first, so a handler keeps to one.
class TarvoFileMessage : public TarvoPayloadMessage {
  public:
    TarvoFileMessage(tarvo_message::TarvoMessageType type, const VekMessage* request);

    void FillWriteResponse();
    void SetFileMessageResult(tarvo_message::FileMessageResult result);
    // Copies exactly `size` bytes, zero bytes included.
    void FillReadResponse(const char* data, unsigned int size);
    void SetFileReadMessageResult(tarvo_message::FileMessageResult result);

  private:
    // Null when no message is owned; otherwise the payload switched to the requested kind.
    tarvo_message::FileWriteResponse* WriteResponse() const;
    tarvo_message::FileReadResponse* ReadResponse() const;
};

}  // namespace tarvo
