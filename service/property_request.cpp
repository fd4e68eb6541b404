#include <log/log.h>

#include "properties.h"
#include "tarvo_message_handler.h"
#include "tarvo_property_message.h"
#include "tarvo_service_handler.h"
#include "vek_message.h"

namespace tarvo {

using tarvo_message::PropertyMessage;

unsigned int TarvoServiceHandler::OnReceivePropertyRequest(VekMessage* request) {
    if (request == nullptr || request->GetTarvoMessage() == nullptr ||
        request->GetMessageId() != tarvo_message::TarvoMessage::kProperty) {
        return tarvo_message::RESULT_INVALID;
    }

    const PropertyMessage& property = request->GetTarvoMessage()->property();
    TarvoPropertyMessage response(tarvo_message::RESPONSE, request);

    switch (property.Property_case()) {
        case PropertyMessage::kWriteRequest: {
            const std::string& name = property.write_request().name();
            const std::string& value = property.write_request().value();
            // The modem gets a write response whatever the outcome; the result says which.
            response.FillWriteResponse();
            if (property_set(name.c_str(), value.c_str()) != 0) {
                ALOGE("Failed to write property %s with value %s", name.c_str(), value.c_str());
                response.SetResult(tarvo_message::RESULT_IO_ERROR);
            } else {
                ALOGI("Write property %s with value %s", name.c_str(), value.c_str());
                response.SetResult(tarvo_message::RESULT_SUCCESS);
            }
            break;
        }
        case PropertyMessage::kReadRequest: {
            const std::string& name = property.read_request().name();
            char value[PROPERTY_VALUE_MAX] = {};
            // The lookup tells an unknown name from an existing property with an empty value.
            if (__system_property_find(name.c_str()) != nullptr &&
                property_get(name.c_str(), value, "") >= 0) {
                ALOGI("Read property %s with value %s", name.c_str(), value);
                response.FillReadResponse(value);
                response.SetResult(tarvo_message::RESULT_SUCCESS);
            } else {
                ALOGE("Failed to read property %s", name.c_str());
                response.FillReadResponse("");
                response.SetResult(tarvo_message::RESULT_IO_ERROR);
            }
            break;
        }
        default:
            return tarvo_message::RESULT_INVALID;
    }
    return handler_->SendResponse(response.GetVekMessage());
}

}  // namespace tarvo
