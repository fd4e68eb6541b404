#include "tarvo_uecap_file_message.h"

namespace tarvo {

TarvoUecapFileMessage::TarvoUecapFileMessage(tarvo_message::TarvoMessageType type,
                                             const VekMessage* request)
    : TarvoPayloadMessage(tarvo_message::TarvoMessage::kUecapFile, type, request) {}

tarvo_message::UecapFileReadResponse* TarvoUecapFileMessage::ReadResponse() const {
    auto* envelope = Envelope();
    if (envelope == nullptr) return nullptr;
    return envelope->mutable_uecap_file()->mutable_read_response();
}

void TarvoUecapFileMessage::FillUecapReadResponse(uint32_t offset, bool last) {
    auto* response = ReadResponse();
    if (response == nullptr) return;
    response->set_offset(offset);
    response->set_last(last);
}

void TarvoUecapFileMessage::FillUecapReadResponseData(const char* data, uint32_t size) {
    auto* response = ReadResponse();
    if (response == nullptr) return;
    if (data == nullptr) {
        response->set_data("");
        return;
    }
    response->set_data(data, size);
}

void TarvoUecapFileMessage::SetUecapFileMessageResult(
    tarvo_message::UecapFileMessageResult result) {
    auto* response = ReadResponse();
    if (response == nullptr) return;
    response->set_result(result);
}

void TarvoUecapFileMessage::SetToken(uint32_t token) {
    auto* envelope = Envelope();
    if (envelope == nullptr) return;
    envelope->set_token(token);
}

}  // namespace tarvo
