#include "modem_request.h"

#include <log/log.h>

#include "tarvo_message_handler.h"
#include "tarvo_payload_message.h"
#include "tarvo_service_handler.h"

namespace tarvo {

bool TarvoServiceHandler::CheckModemOnline() {
    if (handler_->IsModemOnline()) return true;
    ALOGE("Modem is not online");
    return false;
}

unsigned int TarvoServiceHandler::RequestOfModem(TarvoPayloadMessage* request,
                                                 const ModemRequestTexts& texts) {
    ALOGI("%s", texts.sending);
    VekMessage* message = request->GetVekMessage();
    const int status = handler_->SendRequest(message, kModemRequestTimeoutSeconds);
    if (status != tarvo_message::RESULT_SUCCESS) {
        // The record stays listed; a late answer is stored there and never read.
        ALOGE("Failed to send request, status:%d", status);
        return status;
    }

    const uint32_t token = message->GetToken();
    const RequestRecord record = handler_->GetRequestRecord(token);
    const VekMessage* response = record.GetResponse();
    const int result = response != nullptr ? response->GetResult() : tarvo_message::RESULT_FAILURE;
    handler_->RemoveRequestRecord(token);
    if (result != tarvo_message::RESULT_SUCCESS) {
        ALOGE("%s", texts.failed);
        return kStatusModemRefused;
    }
    ALOGI("%s", texts.succeeded);
    return tarvo_message::RESULT_SUCCESS;
}

}  // namespace tarvo
