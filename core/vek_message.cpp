#include "vek_message.h"

#include <log/log.h>

#include "token_gen.h"

namespace tarvo {

using tarvo_message::TarvoMessage;

VekMessage::VekMessage() : envelope_(std::in_place), token_source_(TokenGen::GetInstance()) {}

VekMessage::VekMessage(const char* data, int length) : token_source_(nullptr) {
    if (data == nullptr || length < 1) return;
    envelope_.emplace();
    if (!envelope_->ParseFromArray(data, length)) ALOGE("ParseFromArray failed");
}

VekMessage::~VekMessage() = default;

std::unique_ptr<VekMessage> VekMessage::Clone() const {
    auto clone = std::make_unique<VekMessage>();
    if (envelope_) {
        clone->envelope_->CopyFrom(*envelope_);
    } else {
        clone->envelope_.reset();
    }
    return clone;
}

uint32_t VekMessage::GetToken() const {
    return envelope_ && envelope_->has_token() ? envelope_->token() : TokenGen::kNoToken;
}

int VekMessage::GetType() const {
    return envelope_ && envelope_->has_type() ? envelope_->type() : 0;
}

int VekMessage::GetMessageId() const { return envelope_ ? envelope_->payload_case() : 0; }

int VekMessage::GetResult() const {
    return envelope_ && envelope_->has_result() ? envelope_->result()
                                                : tarvo_message::RESULT_FAILURE;
}

bool VekMessage::IsRequest() const { return GetType() == tarvo_message::REQUEST; }

bool VekMessage::IsResponse() const { return GetType() == tarvo_message::RESPONSE; }

bool VekMessage::IsIndication() const { return GetType() == tarvo_message::INDICATION; }

int VekMessage::GetFileOperationId() const {
    if (GetMessageId() != TarvoMessage::kFile) return 0;
    return envelope_->file().FileOperation_case();
}

int VekMessage::GetUecapFileOperationId() const {
    if (GetMessageId() != TarvoMessage::kUecapFile) return 0;
    return envelope_->uecap_file().UecapFileOperation_case();
}

bool VekMessage::InitialHeader(PayloadCase id, tarvo_message::TarvoMessageType type) {
    if (!envelope_) return false;
    envelope_->set_message_id(id);
    envelope_->set_type(type);
    if (type == tarvo_message::REQUEST && token_source_ != nullptr) {
        envelope_->set_token(token_source_->GetNext());
    }
    return true;
}

int VekMessage::GetProtobufSerialDataLength() const {
    if (!envelope_) {
        ALOGE("Message not exist");
        return 0;
    }
    const int length = static_cast<int>(envelope_->ByteSizeLong());
    if (length < 1) ALOGE("Protobuf length is invalid %d", length);
    return length;
}

bool VekMessage::SerializeSendMessage(char* buffer, int size) const {
    if (!envelope_) {
        ALOGE("Message not exist");
        return false;
    }
    if (!envelope_->SerializeToArray(buffer, size)) {
        ALOGE("SerializeToArray failed!");
        return false;
    }
    return true;
}

}  // namespace tarvo
