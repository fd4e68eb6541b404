#pragma once

#include "tarvo_payload_message.h"

namespace tarvo {

// The daemon's request that the modem start its extended log (payload 6).
class TarvoExtendedLogMessage : public TarvoPayloadMessage {
  public:
    explicit TarvoExtendedLogMessage(tarvo_message::TarvoMessageType type);

    // Selects the (empty) request. RESULT_SUCCESS.
    unsigned int FillRequest();
};

}  // namespace tarvo
