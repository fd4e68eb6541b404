#pragma once

#include "tarvo_payload_message.h"

namespace tarvo {

// The answer to a property read or write request (payload 7).
class TarvoPropertyMessage : public TarvoPayloadMessage {
  public:
    TarvoPropertyMessage(tarvo_message::TarvoMessageType type, const VekMessage* request);

    // Selects the read response, replacing any other payload, and sets its value.
    void FillReadResponse(const char* value);
    // Selects the (empty) write response; an already selected one is kept as it is.
    void FillWriteResponse();
};

}  // namespace tarvo
