#pragma once

#include "tarvo_payload_message.h"

namespace tarvo {

// A modem-test message (payload 11): the throughput test's requests and the modem's answers.
class TarvoTestMessage : public TarvoPayloadMessage {
  public:
    explicit TarvoTestMessage(tarvo_message::TarvoMessageType type);

    // Selects the throughput request, replacing any other payload, and sets all five fields,
    // zeros included.
    void FillTputTestRequest(bool downlink, bool stop, int param_a, int param_b, int param_c);
};

}  // namespace tarvo
