#include "tarvo_test_message.h"

namespace tarvo {

TarvoTestMessage::TarvoTestMessage(tarvo_message::TarvoMessageType type)
    : TarvoPayloadMessage(tarvo_message::TarvoMessage::kModemTest, type) {}

TarvoTestMessage::TarvoTestMessage(const VekMessage* received)
    : TarvoPayloadMessage(received != nullptr ? received->Clone() : nullptr) {}

int TarvoTestMessage::FillTputTestRequest(bool downlink, bool stop, int param_a, int param_b,
                                          int param_c) {
    auto* envelope = Envelope();
    if (envelope == nullptr) return tarvo_message::RESULT_INVALID;
    auto* request = envelope->mutable_modem_test()->mutable_tput_request();
    request->set_downlink(downlink);
    request->set_stop(stop);
    request->set_param_a(param_a);
    request->set_param_c(param_c);
    request->set_param_b(param_b);
    return tarvo_message::RESULT_SUCCESS;
}

}  // namespace tarvo
