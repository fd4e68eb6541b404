#include "tarvo_test_message.h"

namespace tarvo {

TarvoTestMessage::TarvoTestMessage(tarvo_message::TarvoMessageType type)
    : TarvoPayloadMessage(tarvo_message::TarvoMessage::kModemTest, type) {}

void TarvoTestMessage::FillTputTestRequest(bool downlink, bool stop, int param_a, int param_b,
                                           int param_c) {
    auto* request = Envelope()->mutable_modem_test()->mutable_tput_request();
    request->set_downlink(downlink);
    request->set_stop(stop);
    request->set_param_a(param_a);
    request->set_param_c(param_c);
    request->set_param_b(param_b);
}

}  // namespace tarvo
