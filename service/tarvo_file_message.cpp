#include "tarvo_file_message.h"

namespace tarvo {

TarvoFileMessage::TarvoFileMessage(tarvo_message::TarvoMessageType type, const VekMessage* request)
    : TarvoPayloadMessage(tarvo_message::TarvoMessage::kFile, type, request) {}

tarvo_message::FileWriteResponse* TarvoFileMessage::WriteResponse() const {
    auto* envelope = Envelope();
    return envelope ? envelope->mutable_file()->mutable_write_response() : nullptr;
}

tarvo_message::FileReadResponse* TarvoFileMessage::ReadResponse() const {
    auto* envelope = Envelope();
    return envelope ? envelope->mutable_file()->mutable_read_response() : nullptr;
}

void TarvoFileMessage::FillWriteResponse() { WriteResponse(); }

void TarvoFileMessage::SetFileMessageResult(tarvo_message::FileMessageResult result) {
    if (auto* response = WriteResponse()) response->set_result(result);
}

void TarvoFileMessage::FillReadResponse(const char* data, unsigned int size) {
    auto* response = ReadResponse();
    if (response == nullptr) return;
    // An empty block may come with no buffer at all.
    if (size == 0) {
        response->set_data(std::string());
    } else {
        response->set_data(data, size);
    }
}

void TarvoFileMessage::SetFileReadMessageResult(tarvo_message::FileMessageResult result) {
    if (auto* response = ReadResponse()) response->set_result(result);
}

}  // namespace tarvo
