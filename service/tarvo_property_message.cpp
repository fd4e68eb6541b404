#include "tarvo_property_message.h"

namespace tarvo {

TarvoPropertyMessage::TarvoPropertyMessage(tarvo_message::TarvoMessageType type,
                                           const VekMessage* request)
    : TarvoPayloadMessage(tarvo_message::TarvoMessage::kProperty, type, request) {}

void TarvoPropertyMessage::FillReadResponse(const char* value) {
    auto* envelope = Envelope();
    if (envelope == nullptr) return;
    envelope->mutable_property()->mutable_read_response()->set_value(value != nullptr ? value : "");
}

void TarvoPropertyMessage::FillWriteResponse() {
    auto* envelope = Envelope();
    if (envelope == nullptr) return;
    envelope->mutable_property()->mutable_write_response();
}

}  // namespace tarvo
