#pragma once

#include <optional>
#include <string>

#include <google/protobuf/message.h>

#include <android-base/result.h>

#include "proto/tarvo_message.pb.h"

namespace tarvo_emu {

// The innermost message set in `message`: the request, response or indication that its payload
// holds.
const google::protobuf::Message* InnermostPayload(const google::protobuf::Message* message);
google::protobuf::Message* InnermostPayload(google::protobuf::Message* message);

// The `data` field of the message's payload; none when its payload has no such field.
std::optional<std::string> PayloadData(const tarvo_message::TarvoMessage& message);
// Puts `data` into the `data` field of the message's payload, as a generated send fills it;
// an error when its payload has no such field.
android::base::Result<void> SetPayloadData(tarvo_message::TarvoMessage* message,
                                           const std::string& data);

// A field of the payload's innermost message that a transfer sets, of the type it must have.
android::base::Result<const google::protobuf::FieldDescriptor*> TransferField(
    const google::protobuf::Message& payload, const std::string& name,
    google::protobuf::FieldDescriptor::Type type);

}  // namespace tarvo_emu
