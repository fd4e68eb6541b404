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
    int result = tarvo_message::RESULT_FAILURE;
    const int status = handler_->AskModem(request->GetVekMessage(), texts.sending, &result);
    if (status != tarvo_message::RESULT_SUCCESS) return status;
    if (result != tarvo_message::RESULT_SUCCESS) {
        ALOGE("%s", texts.failed);
        return kStatusModemRefused;
    }
    ALOGI("%s", texts.succeeded);
    return tarvo_message::RESULT_SUCCESS;
}

}  // namespace tarvo
