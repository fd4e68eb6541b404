#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <string>

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <log/log.h>

#include "modem_request.h"
#include "modem_stat_config.h"
#include "tarvo_message_handler.h"
#include "tarvo_modem_stat_message.h"
#include "tarvo_service_handler.h"

namespace tarvo {

using android::base::unique_fd;
using tarvo_message::ModemStatMessage;

namespace {

// The writable copy comes first and wins.
constexpr const char* kConfigDirectories[] = {"/data/vendor/radio/", "/vendor/etc/"};
constexpr const char* kConfigName = "modem_stat.conf";
constexpr const char* kDumpFile = "/data/vendor/modem_stat/debug.txt";
constexpr mode_t kDumpFileMode = 0664;

constexpr ModemRequestTexts kEnableTexts = {"Sending modemstat enable request",
                                            "Got modemstat enable response successful",
                                            "Got modemstat enable response failed"};
constexpr ModemRequestTexts kReportTexts = {"Sending modemstat report request",
                                            "Got modemstat report response successful",
                                            "Got modemstat report response failed"};

}  // namespace

unsigned int TarvoServiceHandler::LoadDebugStatConfig() {
    std::string path;
    struct stat st;
    for (const char* directory : kConfigDirectories) {
        const std::string candidate = std::string(directory) + kConfigName;
        if (stat(candidate.c_str(), &st) == 0) {
            path = candidate;
            break;
        }
    }
    if (path.empty()) {
        ALOGE("Not found any config file");
        return tarvo_message::RESULT_UNAVAILABLE;
    }
    unique_fd fd(TEMP_FAILURE_RETRY(open(path.c_str(), O_RDONLY | O_CLOEXEC)));
    if (fd == -1) {
        ALOGE("Failed to open config file %s", path.c_str());
        return tarvo_message::RESULT_UNAVAILABLE;
    }
    // What a failed read left is parsed all the same; the size is the one that stat saw.
    std::string text;
    android::base::ReadFdToString(fd, &text);
    text.resize(std::min(text.size(), static_cast<size_t>(st.st_size)));
    fd.reset();
    ALOGI("Read config: %s", path.c_str());

    for (const std::string& entry : split_modem_stat_entries(text)) {
        LoadDebugStatModuleConfig(entry);
    }
    return tarvo_message::RESULT_SUCCESS;
}

void TarvoServiceHandler::LoadDebugStatModuleConfig(const std::string& entry) {
    const std::optional<ModemStatModuleConfig> config = parse_modem_stat_entry(entry);
    if (!config) {
        ALOGI("Failed to get module name");
        return;
    }
    ALOGI("Send debug stat config: %s, v=%d, t=%d", config->module.c_str(), config->v,
          static_cast<int>(config->t));
    SendModemStatEnableRequest(config->module, config->v, config->t);
}

unsigned int TarvoServiceHandler::SendModemStatEnableRequest(std::string module, int v,
                                                             unsigned int t) {
    if (!CheckModemOnline()) return TarvoMessageHandler::kStatusModemOffline;
    TarvoModemStatMessage request(tarvo_message::REQUEST);
    request.FillEnableRequest(std::move(module), v, t);
    return RequestOfModem(&request, kEnableTexts);
}

unsigned int TarvoServiceHandler::SendModemStatReportRequest() {
    if (!CheckModemOnline()) return TarvoMessageHandler::kStatusModemOffline;
    TarvoModemStatMessage request(tarvo_message::REQUEST);
    request.FillReportRequest();
    const unsigned int status = RequestOfModem(&request, kReportTexts);
    // A refused report is not a failure of the request: the modem was asked.
    if (status == kStatusModemRefused) return tarvo_message::RESULT_SUCCESS;
    return status;
}

unsigned int TarvoServiceHandler::OnReceiveModemStatReportIndication(VekMessage* indication) {
    if (indication == nullptr || indication->GetTarvoMessage() == nullptr ||
        indication->GetMessageId() != tarvo_message::TarvoMessage::kModemStat) {
        return tarvo_message::RESULT_INVALID;
    }
    const ModemStatMessage& stat = indication->GetTarvoMessage()->modem_stat();
    if (stat.ModemStat_case() != ModemStatMessage::kReportIndication ||
        !stat.report_indication().has_data()) {
        return tarvo_message::RESULT_INVALID;
    }
    const tarvo_message::ModemStatReportIndication& report = stat.report_indication();

    // A piece without an offset starts a new report. With one, 0 writes over the start of the
    // existing file and any other value appends: pieces come in order, so the end is where the
    // next one belongs.
    unique_fd fd;
    if (report.has_offset()) {
        fd.reset(TEMP_FAILURE_RETRY(open(kDumpFile, O_RDWR | O_CLOEXEC)));
        if (fd != -1 && lseek(fd, report.offset(), SEEK_SET) != 0) lseek(fd, 0, SEEK_END);
    } else {
        fd.reset(TEMP_FAILURE_RETRY(
            open(kDumpFile, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, kDumpFileMode)));
    }
    if (fd == -1) {
        ALOGE("Failed to open modemstat dump file");
        return tarvo_message::RESULT_SUCCESS;
    }
    android::base::WriteStringToFd(report.data(), fd);
    fd.reset();
    chmod(kDumpFile, kDumpFileMode);
    return tarvo_message::RESULT_SUCCESS;
}

}  // namespace tarvo
