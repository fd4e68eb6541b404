#pragma once

#include <memory>

#include "vek_message.h"

namespace tarvo {

// Base of the payload wrappers: owns the one VekMessage being built. A response built for a
// request carries the request's token, when the request has one.
class TarvoPayloadMessage {
  public:
    TarvoPayloadMessage(const TarvoPayloadMessage&) = delete;
    TarvoPayloadMessage& operator=(const TarvoPayloadMessage&) = delete;
    virtual ~TarvoPayloadMessage() = default;

    VekMessage* GetVekMessage() const { return message_.get(); }
    void SetResult(tarvo_message::TarvoResult result);

  protected:
    TarvoPayloadMessage(PayloadCase id, tarvo_message::TarvoMessageType type,
                        const VekMessage* request = nullptr);

    // Null when no message is owned.
    tarvo_message::TarvoMessage* Envelope() const;

  private:
    std::unique_ptr<VekMessage> message_;
};

}  // namespace tarvo
