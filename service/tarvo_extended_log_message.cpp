#include "tarvo_extended_log_message.h"

#include <log/log.h>

namespace tarvo {

TarvoExtendedLogMessage::TarvoExtendedLogMessage(tarvo_message::TarvoMessageType type)
    : TarvoPayloadMessage(tarvo_message::TarvoMessage::kExtendedLog, type) {}

unsigned int TarvoExtendedLogMessage::FillRequest() {
    auto* envelope = Envelope();
    if (envelope == nullptr) {
        ALOGE("vek_message is invalid");
        return tarvo_message::RESULT_UNAVAILABLE;
    }
    envelope->mutable_extended_log()->mutable_request();
    return tarvo_message::RESULT_SUCCESS;
}

}  // namespace tarvo
