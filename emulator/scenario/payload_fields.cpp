#include "scenario/payload_fields.h"

#include <algorithm>
#include <type_traits>
#include <vector>

using android::base::Error;
using android::base::Result;

namespace tarvo_emu {

namespace {

// The innermost message set in `message`; `M` is a message, const or not.
template <typename M>
M* Innermost(M* message) {
    while (true) {
        const google::protobuf::Reflection* reflection = message->GetReflection();
        std::vector<const google::protobuf::FieldDescriptor*> fields;
        reflection->ListFields(*message, &fields);
        const auto nested = std::find_if(fields.begin(), fields.end(), [](const auto* field) {
            return field->cpp_type() == google::protobuf::FieldDescriptor::CPPTYPE_MESSAGE &&
                   !field->is_repeated();
        });
        if (nested == fields.end()) return message;
        if constexpr (std::is_const_v<M>) {
            message = &reflection->GetMessage(*message, *nested);
        } else {
            message = reflection->MutableMessage(message, *nested);
        }
    }
}

}  // namespace

const google::protobuf::Message* InnermostPayload(const google::protobuf::Message* message) {
    return Innermost(message);
}

google::protobuf::Message* InnermostPayload(google::protobuf::Message* message) {
    return Innermost(message);
}

std::optional<std::string> PayloadData(const tarvo_message::TarvoMessage& message) {
    const google::protobuf::Message* payload = InnermostPayload(&message);
    const google::protobuf::FieldDescriptor* field =
        payload->GetDescriptor()->FindFieldByName("data");
    if (field == nullptr || field->type() != google::protobuf::FieldDescriptor::TYPE_BYTES) {
        return std::nullopt;
    }
    return payload->GetReflection()->GetString(*payload, field);
}

Result<void> SetPayloadData(tarvo_message::TarvoMessage* message, const std::string& data) {
    google::protobuf::Message* payload = InnermostPayload(message);
    const Result<const google::protobuf::FieldDescriptor*> field =
        TransferField(*payload, "data", google::protobuf::FieldDescriptor::TYPE_BYTES);
    if (!field.ok()) return Error() << field.error().message();
    payload->GetReflection()->SetString(payload, *field, data);
    return {};
}

Result<const google::protobuf::FieldDescriptor*> TransferField(
    const google::protobuf::Message& payload, const std::string& name,
    google::protobuf::FieldDescriptor::Type type) {
    const google::protobuf::FieldDescriptor* field = payload.GetDescriptor()->FindFieldByName(name);
    if (field == nullptr || field->type() != type) {
        return Error() << payload.GetDescriptor()->name() << " has no " << name << " field";
    }
    return field;
}

}  // namespace tarvo_emu
