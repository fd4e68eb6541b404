#include "peers/tput_modem.h"

namespace tarvo_emu {

TputModem::TputModem(TestNode* node, TputSettings settings)
    : node_(node), settings_(std::move(settings)) {
    for (uint64_t index : settings_.fail_writes) node_->FailWrite(index);
}

bool TputModem::IsTputRequest(const tarvo_message::TarvoMessage& message, bool downlink,
                              bool stop) {
    if (message.type() != tarvo_message::REQUEST || !message.modem_test().has_tput_request()) {
        return false;
    }
    const tarvo_message::ModemTestTputRequest& request = message.modem_test().tput_request();
    return request.downlink() == downlink && request.stop() == stop;
}

void TputModem::OnDaemonMessage(const tarvo_message::TarvoMessage& message) {
    if (IsTputRequest(message, true, false) && !settings_.no_downlink) {
        node_->StartDownlink(settings_.downlink_block_size, settings_.downlink_bytes_per_s);
    } else if (IsTputRequest(message, true, true)) {
        node_->StopDownlink();
    }
}

}  // namespace tarvo_emu
