#include "tarvo_userspace_log_message.h"

#include <log/log.h>

namespace tarvo {

TarvoUserspaceLogMessage::TarvoUserspaceLogMessage(tarvo_message::TarvoMessageType type)
    : TarvoPayloadMessage(tarvo_message::TarvoMessage::kUserspaceLog, type) {}

unsigned int TarvoUserspaceLogMessage::FillEnableRequest(std::string name) {
    auto* envelope = Envelope();
    if (envelope == nullptr) {
        ALOGE("vek_message is invalid");
        return tarvo_message::RESULT_UNAVAILABLE;
    }
    if (name.empty()) {
        ALOGE("Input name is empty");
        return tarvo_message::RESULT_INVALID;
    }
    envelope->mutable_userspace_log()->mutable_enable_request()->set_name(std::move(name));
    return tarvo_message::RESULT_SUCCESS;
}

}  // namespace tarvo
