#pragma once

#include <string>

#include "tarvo_payload_message.h"

namespace tarvo {

// The daemon's request that the modem send one of its logs here (payload 8).
class TarvoUserspaceLogMessage : public TarvoPayloadMessage {
  public:
    explicit TarvoUserspaceLogMessage(tarvo_message::TarvoMessageType type);

    // Selects the enable request for `name`. RESULT_SUCCESS, or RESULT_INVALID for an empty
    // name, which leaves the payload unset.
    unsigned int FillEnableRequest(std::string name);
};

}  // namespace tarvo
