#pragma once

#include <string>

#include "tarvo_payload_message.h"

namespace tarvo {

// The daemon's modem statistics requests (payload 5): enable a module, or ask for a report.
class TarvoModemStatMessage : public TarvoPayloadMessage {
  public:
    explicit TarvoModemStatMessage(tarvo_message::TarvoMessageType type);

    // Selects the enable request for `module`. `v` goes out only when it is 0 or more and `t`
    // only when it is not 0: -1 and 0 mean "not configured". RESULT_SUCCESS, or RESULT_INVALID
    // for an empty module.
    unsigned int FillEnableRequest(std::string module, int v, unsigned int t);
    // Selects the (empty) report request. RESULT_SUCCESS.
    unsigned int FillReportRequest();
};

}  // namespace tarvo
