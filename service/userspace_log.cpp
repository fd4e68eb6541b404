#include <fcntl.h>

#include <string>

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <log/log.h>

#include "modem_request.h"
#include "tarvo_message_handler.h"
#include "tarvo_service_handler.h"
#include "tarvo_userspace_log_message.h"
#include "userspace_log_config.h"

namespace tarvo {

using android::base::unique_fd;
using tarvo_message::UserspaceLogMessage;

namespace {

constexpr const char* kConfigFile = "/data/vendor/radio/modem_userspace_logging.conf";

constexpr ModemRequestTexts kEnableTexts = {"Sending userspace log enable request",
                                            "Got userspace enable response successful",
                                            "Failed to get enable response"};

// The modem's severity as an Android log priority.
int PriorityOf(uint32_t level) {
    switch (level) {
        case 0:
            return ANDROID_LOG_ERROR;
        case 1:
            return ANDROID_LOG_INFO;
        default:
            return ANDROID_LOG_DEBUG;
    }
}

}  // namespace

unsigned int TarvoServiceHandler::SendUserspaceLogEnableRequest() {
    if (!CheckModemOnline()) return TarvoMessageHandler::kStatusModemOffline;
    unique_fd fd(TEMP_FAILURE_RETRY(open(kConfigFile, O_RDONLY | O_CLOEXEC)));
    if (fd == -1) {
        ALOGD("Modem userspace logging config does not exist");
        return tarvo_message::RESULT_SUCCESS;
    }
    std::string text;
    android::base::ReadFdToString(fd, &text);
    fd.reset();

    for (const std::string& name : split_userspace_log_names(text)) {
        ALOGI("Enabling modem userspace logging file %s", name.c_str());
        SendUserspaceLogEnableRequestMessage(name);
    }
    return tarvo_message::RESULT_SUCCESS;
}

unsigned int TarvoServiceHandler::SendUserspaceLogEnableRequestMessage(std::string name) {
    // An empty name still goes out, as a request without payload.
    TarvoUserspaceLogMessage request(tarvo_message::REQUEST);
    request.FillEnableRequest(std::move(name));
    return RequestOfModem(&request, kEnableTexts);
}

unsigned int TarvoServiceHandler::OnReceiveUserspaceLogIndication(VekMessage* indication) {
    if (indication == nullptr || indication->GetTarvoMessage() == nullptr ||
        indication->GetMessageId() != tarvo_message::TarvoMessage::kUserspaceLog) {
        return tarvo_message::RESULT_INVALID;
    }
    const UserspaceLogMessage& log = indication->GetTarvoMessage()->userspace_log();
    if (log.UserspaceLog_case() != UserspaceLogMessage::kIndication) {
        return tarvo_message::RESULT_INVALID;
    }
    __android_log_print(PriorityOf(log.indication().level()), LOG_TAG, "Modem: %s",
                        log.indication().log().c_str());
    return tarvo_message::RESULT_SUCCESS;
}

}  // namespace tarvo
