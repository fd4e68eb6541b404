#include "tarvo_modem_stat_message.h"

#include <log/log.h>

namespace tarvo {

TarvoModemStatMessage::TarvoModemStatMessage(tarvo_message::TarvoMessageType type)
    : TarvoPayloadMessage(tarvo_message::TarvoMessage::kModemStat, type) {}

unsigned int TarvoModemStatMessage::FillEnableRequest(std::string module, int v, unsigned int t) {
    auto* envelope = Envelope();
    if (envelope == nullptr) {
        ALOGE("vek_message is invalid");
        return tarvo_message::RESULT_UNAVAILABLE;
    }
    if (module.empty()) {
        ALOGE("Input module is empty");
        return tarvo_message::RESULT_INVALID;
    }
    // A fresh request each time, so that no v or t of an earlier fill stays behind.
    tarvo_message::ModemStatEnableRequest* request =
        envelope->mutable_modem_stat()->mutable_enable_request();
    request->Clear();
    request->set_module(std::move(module));
    if (v >= 0) request->set_v(v);
    if (t != 0) request->set_t(t);
    return tarvo_message::RESULT_SUCCESS;
}

unsigned int TarvoModemStatMessage::FillReportRequest() {
    auto* envelope = Envelope();
    if (envelope == nullptr) {
        ALOGE("vek_message is invalid");
        return tarvo_message::RESULT_UNAVAILABLE;
    }
    envelope->mutable_modem_stat()->mutable_report_request();
    return tarvo_message::RESULT_SUCCESS;
}

}  // namespace tarvo
