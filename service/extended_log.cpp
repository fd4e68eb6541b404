#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <string>

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <android-base/unique_fd.h>
#include <log/log.h>

#include "modem_request.h"
#include "tarvo_extended_log_message.h"
#include "tarvo_message_handler.h"
#include "tarvo_service_handler.h"

namespace tarvo {

using android::base::unique_fd;
using tarvo_message::ExtendedLogMessage;

namespace {

constexpr const char* kLogDirectory = "/data/vendor/radio/extended_logs/";
constexpr off_t kRotateAbove = 1024 * 1024;
constexpr mode_t kLogFileMode = 0664;

constexpr ModemRequestTexts kRequestTexts = {"Sending extended log request",
                                             "Got extended log response successful",
                                             "Got extended log response failed"};

// "MM-DD hh:mm:ss.mmm\n" in local time; empty when the time cannot be converted.
std::string TimeStampLine() {
    struct timeval now;
    gettimeofday(&now, nullptr);
    struct tm local;
    if (localtime_r(&now.tv_sec, &local) == nullptr) return {};
    char text[30];
    strftime(text, sizeof(text), "%m-%d %H:%M:%S", &local);
    return android::base::StringPrintf("%s.%03ld\n", text, static_cast<long>(now.tv_usec / 1000));
}

}  // namespace

unsigned int TarvoServiceHandler::SendExtendedLogRequest() {
    if (!CheckModemOnline()) return TarvoMessageHandler::kStatusModemOffline;
    TarvoExtendedLogMessage request(tarvo_message::REQUEST);
    request.FillRequest();
    return RequestOfModem(&request, kRequestTexts);
}

unsigned int TarvoServiceHandler::OnReceiveExtendedLogIndication(VekMessage* indication) {
    if (indication == nullptr || indication->GetTarvoMessage() == nullptr ||
        indication->GetMessageId() != tarvo_message::TarvoMessage::kExtendedLog) {
        return tarvo_message::RESULT_INVALID;
    }
    const ExtendedLogMessage& log = indication->GetTarvoMessage()->extended_log();
    if (log.ExtendedLog_case() != ExtendedLogMessage::kIndication) {
        return tarvo_message::RESULT_INVALID;
    }
    const tarvo_message::ExtendedLogIndication& piece = log.indication();

    // The name is the modem's own and is used as it stands.
    const std::string path = std::string(kLogDirectory) + "extended_log_" + piece.name() + ".txt";
    struct stat st;
    if (stat(path.c_str(), &st) == 0 && st.st_size > kRotateAbove) {
        const std::string old_path = path + ".old";
        unlink(old_path.c_str());
        rename(path.c_str(), old_path.c_str());
    }

    unique_fd fd(TEMP_FAILURE_RETRY(
        open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, kLogFileMode)));
    if (fd == -1) {
        ALOGE("Failed to open extended log file");
        return tarvo_message::RESULT_UNAVAILABLE;
    }
    // The time stamp follows the piece: it says when the piece was stored.
    const std::string time_stamp = TimeStampLine();
    android::base::WriteStringToFd(piece.data(), fd);
    if (!time_stamp.empty()) android::base::WriteStringToFd(time_stamp, fd);
    fd.reset();
    chmod(path.c_str(), kLogFileMode);
    return tarvo_message::RESULT_SUCCESS;
}

}  // namespace tarvo
