#include "tarvo_service_handler.h"

#include <exception>

#include <log/log.h>

#include "gnss_coex_config.h"
#include "tarvo_message_handler.h"
#include "tarvo_payload_message.h"
#include "vek_message.h"

namespace tarvo {

namespace {

// Only the low 16 bits of an id take part in routing.
uint16_t Id16(int id) { return static_cast<uint16_t>(id); }

}  // namespace

unsigned int TarvoServiceHandler::OnReceiveRequest(VekMessage* request) {
    if (request == nullptr || !request->IsRequest()) return tarvo_message::RESULT_INVALID;

    const uint16_t id = Id16(request->GetMessageId());
    switch (id) {
        case tarvo_message::TarvoMessage::kProperty:
            ALOGI("Get property request");
            return OnReceivePropertyRequest(request);
        case tarvo_message::TarvoMessage::kModemTemperature:
            ALOGI("Got modem temperature request");
            return OnReceiveModemTemperatureRequest(request);
        case tarvo_message::TarvoMessage::kUecapFile: {
            ALOGI("Got Uecap File message request");
            if (!request->IsRequest()) return tarvo_message::RESULT_INVALID;
            // An unknown operation is reported with the same text as an unknown message id.
            const uint16_t operation = Id16(request->GetUecapFileOperationId());
            if (operation != tarvo_message::UecapFileMessage::kReadRequest) {
                ALOGE("RequestHandler: Unsupported message id %d", operation);
                return tarvo_message::RESULT_UNSUPPORTED;
            }
            ALOGI("Got Uecap File Read request");
            return OnReceiveUecapFileReadRequest(request);
        }
        case tarvo_message::TarvoMessage::kFile:
            ALOGI("Got File message request");
            return OnReceiveFileMessageRequest(request);
        default:
            ALOGE("RequestHandler: Unsupported message id %d", id);
            return tarvo_message::RESULT_UNSUPPORTED;
    }
}

unsigned int TarvoServiceHandler::OnReceiveFileMessageRequest(VekMessage* request) {
    if (request == nullptr || !request->IsRequest()) return tarvo_message::RESULT_INVALID;

    const uint16_t operation = Id16(request->GetFileOperationId());
    switch (operation) {
        case tarvo_message::FileMessage::kAppendRequest:
            ALOGI("Got File write append request");
            return OnReceiveFileAppendRequest(request);
        case tarvo_message::FileMessage::kReadRequest:
            ALOGI("Got File read request");
            return OnReceiveFileReadRequest(request);
        case tarvo_message::FileMessage::kWriteRequest:
            ALOGI("Got File write request");
            return OnReceiveFileWriteRequest(request);
        default:
            ALOGE("RequestHandler: Unsupported message id %d", operation);
            return tarvo_message::RESULT_UNSUPPORTED;
    }
}

unsigned int TarvoServiceHandler::OnReceiveIndication(VekMessage* indication) {
    if (indication == nullptr || !indication->IsIndication()) return tarvo_message::RESULT_INVALID;

    const uint16_t id = Id16(indication->GetMessageId());
    switch (id) {
        case tarvo_message::TarvoMessage::kModemStat:
            ALOGI("Got modemstat report indication");
            return OnReceiveModemStatReportIndication(indication);
        case tarvo_message::TarvoMessage::kExtendedLog:
            ALOGI("Got extended log indication");
            return OnReceiveExtendedLogIndication(indication);
        case tarvo_message::TarvoMessage::kUserspaceLog:
            ALOGI("Got userspace log indication");
            return OnReceiveUserspaceLogIndication(indication);
        case tarvo_message::TarvoMessage::kFile:
            ALOGI("Got File write indication");
            return OnReceiveFileWriteIndication(indication);
        default:
            ALOGE("IndicationHandler: Unsupported message id %d", id);
            return tarvo_message::RESULT_UNSUPPORTED;
    }
}

// The GNSS coex loader's statuses are returned as the other commands' statuses are.
static_assert(kGnssCoexConfigLoaded == tarvo_message::RESULT_SUCCESS);
static_assert(kGnssCoexConfigUnavailable == tarvo_message::RESULT_UNAVAILABLE);

unsigned int TarvoServiceHandler::SendServiceRequest(unsigned int command) {
    switch (command) {
        case TarvoMessageHandler::kModemStatReport:
            return SendModemStatReportRequest();
        case TarvoMessageHandler::kModemStatConfig:
            return LoadDebugStatConfig();
        case TarvoMessageHandler::kExtendedLog:
            return SendExtendedLogRequest();
        case TarvoMessageHandler::kUserspaceLogEnable:
            return SendUserspaceLogEnableRequest();
        case TarvoMessageHandler::kLoadGnssCoexConfig:
            // A table field without a number throws; the lines before it are sent, the modem's
            // next start tries again.
            try {
                return LoadGnssCoexConfig();
            } catch (const std::exception& e) {
                ALOGE("Failed to load GNSS coex configuration: %s", e.what());
                return tarvo_message::RESULT_INVALID;
            }
        default:
            ALOGE("Unsupport command type %d", command);
            return tarvo_message::RESULT_INVALID;
    }
}

unsigned int TarvoServiceHandler::AnswerFailure(TarvoPayloadMessage* response) {
    response->SetResult(tarvo_message::RESULT_FAILURE);
    handler_->SendResponse(response->GetVekMessage());
    return tarvo_message::RESULT_UNAVAILABLE;
}

}  // namespace tarvo
