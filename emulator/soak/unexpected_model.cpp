#include "soak/unexpected_model.h"

#include <android-base/stringprintf.h>

#include "device/device_facts.h"

using android::base::StringPrintf;
using tarvo_message::TarvoMessage;

namespace tarvo_emu {

namespace {

constexpr char kUnsupportedRequest[] = "RequestHandler: Unsupported message id %d";

bool RoutedRequest(const TarvoMessage& message) {
    switch (message.payload_case()) {
        case TarvoMessage::kProperty:
        case TarvoMessage::kModemTemperature:
            return true;
        case TarvoMessage::kFile: {
            const int operation = message.file().FileOperation_case();
            return operation == tarvo_message::FileMessage::kWriteRequest ||
                   operation == tarvo_message::FileMessage::kReadRequest ||
                   operation == tarvo_message::FileMessage::kAppendRequest;
        }
        case TarvoMessage::kUecapFile:
            return message.uecap_file().has_read_request();
        default:
            return false;
    }
}

bool RoutedIndication(const TarvoMessage& message) {
    switch (message.payload_case()) {
        case TarvoMessage::kModemStat:
        case TarvoMessage::kExtendedLog:
        case TarvoMessage::kUserspaceLog:
        case TarvoMessage::kFile:
            return true;
        default:
            return false;
    }
}

}  // namespace

bool UnexpectedModel::Play(const TarvoMessage& message) {
    const bool request = message.has_type() && message.type() == tarvo_message::REQUEST;
    const bool indication = message.has_type() && message.type() == tarvo_message::INDICATION;
    if (request && RoutedRequest(message)) return false;
    if (indication && RoutedIndication(message)) return false;
    if (request && message.has_file()) {
        steps_.Log(kLogInfo, "Got File message request");
        steps_.Log(kLogError,
                   StringPrintf(kUnsupportedRequest, message.file().FileOperation_case()));
    } else if (request && message.has_uecap_file()) {
        steps_.Log(kLogInfo, "Got Uecap File message request");
        steps_.Log(kLogError, StringPrintf(kUnsupportedRequest,
                                           message.uecap_file().UecapFileOperation_case()));
    } else if (request) {
        steps_.Log(kLogError, StringPrintf(kUnsupportedRequest, message.payload_case()));
    } else if (indication) {
        steps_.Log(kLogError, StringPrintf("IndicationHandler: Unsupported message id %d",
                                           message.payload_case()));
    }
    steps_.Ping();
    return true;
}

}  // namespace tarvo_emu
