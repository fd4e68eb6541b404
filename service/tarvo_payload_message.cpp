#include "tarvo_payload_message.h"

namespace tarvo {

TarvoPayloadMessage::TarvoPayloadMessage(PayloadCase id, tarvo_message::TarvoMessageType type,
                                         const VekMessage* request)
    : message_(std::make_unique<VekMessage>()) {
    message_->InitialHeader(id, type);
    if (request != nullptr && request->GetTarvoMessage() != nullptr &&
        request->GetTarvoMessage()->has_token()) {
        message_->GetTarvoMessage()->set_token(request->GetTarvoMessage()->token());
    }
}

tarvo_message::TarvoMessage* TarvoPayloadMessage::Envelope() const {
    return message_ ? message_->GetTarvoMessage() : nullptr;
}

void TarvoPayloadMessage::SetResult(tarvo_message::TarvoResult result) {
    if (auto* envelope = Envelope()) envelope->set_result(result);
}

}  // namespace tarvo
