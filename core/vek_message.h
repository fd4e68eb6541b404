#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "proto/tarvo_message.pb.h"

namespace tarvo {

class TokenGen;

using PayloadCase = tarvo_message::TarvoMessage::PayloadCase;

// Owning wrapper of one TarvoMessage envelope: parses received bytes, fills outgoing headers and
// answers header questions with fixed values where a field is absent.
class VekMessage {
  public:
    // An empty envelope whose request headers draw tokens from the process TokenGen.
    VekMessage();
    // Parses one received message. Empty input leaves the message without an envelope; a parse
    // failure is logged and the partly parsed envelope kept.
    VekMessage(const char* data, int length);
    VekMessage(const VekMessage&) = delete;
    VekMessage& operator=(const VekMessage&) = delete;
    virtual ~VekMessage();

    // An independent copy, token included.
    virtual std::unique_ptr<VekMessage> Clone() const;

    tarvo_message::TarvoMessage* GetTarvoMessage() { return envelope_ ? &*envelope_ : nullptr; }
    const tarvo_message::TarvoMessage* GetTarvoMessage() const {
        return envelope_ ? &*envelope_ : nullptr;
    }

    uint32_t GetToken() const;  // 0xFFFFFFFF when absent
    int GetType() const;        // 0 when absent
    int GetMessageId() const;   // the payload case, 0 when none
    int GetResult() const;      // RESULT_FAILURE when absent
    bool IsRequest() const;
    bool IsResponse() const;
    bool IsIndication() const;
    int GetFileOperationId() const;       // the FileMessage case for payload 9, else 0
    int GetUecapFileOperationId() const;  // the UecapFileMessage case for payload 12, else 0

    // Sets message id and type; a request also draws a fresh token.
    bool InitialHeader(PayloadCase id, tarvo_message::TarvoMessageType type);

    int GetProtobufSerialDataLength() const;
    bool SerializeSendMessage(char* buffer, int size) const;

  private:
    // Held in place: a message is built for every one received and sent, and an allocation of
    // its own for the envelope showed in the dispatch's profile.
    std::optional<tarvo_message::TarvoMessage> envelope_;
    TokenGen* token_source_;
};

}  // namespace tarvo
