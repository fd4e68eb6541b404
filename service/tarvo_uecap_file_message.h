#pragma once

#include <cstdint>

#include "tarvo_payload_message.h"

namespace tarvo {

// The answer to a UE-capability file read (payload 12). One wrapper is re-filled for every block
// of a train, so each fill touches only its own fields of the read response.
class TarvoUecapFileMessage : public TarvoPayloadMessage {
  public:
    TarvoUecapFileMessage(tarvo_message::TarvoMessageType type, const VekMessage* request);

    void FillUecapReadResponse(uint32_t offset, bool last);
    // Copies size bytes; a null pointer with size 0 gives empty data.
    void FillUecapReadResponseData(const char* data, uint32_t size);
    void SetUecapFileMessageResult(tarvo_message::UecapFileMessageResult result);
    // Blocks after the first carry the following token numbers.
    void SetToken(uint32_t token);

  private:
    tarvo_message::UecapFileReadResponse* ReadResponse() const;
};

}  // namespace tarvo
