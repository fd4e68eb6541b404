#pragma once

#include "tarvo_payload_message.h"

namespace tarvo {

// A modem-test message (payload 11): the throughput test's requests and the modem's answers.
class TarvoTestMessage : public TarvoPayloadMessage {
  public:
    explicit TarvoTestMessage(tarvo_message::TarvoMessageType type);
    // Takes its own copy of a received message; holds none when `received` is null.
    explicit TarvoTestMessage(const VekMessage* received);

    // Selects the throughput request, replacing any other payload, and sets all five fields,
    // zeros included. 2 when no message is held, else 0.
    int FillTputTestRequest(bool downlink, bool stop, int param_a, int param_b, int param_c);
};

}  // namespace tarvo
