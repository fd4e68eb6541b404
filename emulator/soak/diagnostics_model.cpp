#include "soak/diagnostics_model.h"

#include <signal.h>

#include <algorithm>

#include <android-base/stringprintf.h>

#include "device/device_facts.h"

using android::base::StringPrintf;
using tarvo_message::TarvoMessage;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

constexpr mode_t kDiagnosticsMode = 0664;

// The daemon waits this long for the modem's answer to a request of its own.
constexpr uint32_t kRequestTimeoutMs = 3000;
// An expectation that follows such a wait gets this much more: the end of the wait is the
// daemon's own clock, and a loaded machine (the suite runs two tests at a time) delays the log
// line that reports it.
constexpr uint32_t kAfterRequestTimeoutMs = kRequestTimeoutMs + 7000;
// Offline, the daemon's reader looks at the modem state every 2 s, so the first answer to a
// request of the daemon's after the modem comes back can take that long to be read.
constexpr uint32_t kOfflineReaderPauseMs = 2000;

// What each module and name of the configuration makes the daemon send.
struct StatModule {
    const char* name;
    int v;
    uint32_t t;
};
constexpr StatModule kStatModules[] = {{"L1", 3, 10}, {"RRC", -1, 0}};
constexpr const char* kUserspaceNames[] = {"mac", "rlc"};

}  // namespace

DiagnosticsModel::DiagnosticsModel(ModelFileSystem& files, ModelSteps& steps)
    : files_(files), steps_(steps) {
    for (int payload_case :
         {TarvoMessage::kModemStat, TarvoMessage::kExtendedLog, TarvoMessage::kUserspaceLog}) {
        replies_[payload_case] = Reply::kSuccess;
    }
}

void DiagnosticsModel::SetReply(const tarvo_scenario::AutoReply& rule) {
    // An answer under a token that the daemon never drew is dropped: it waits as for silence.
    replies_[rule.payload_case()] = rule.no_reply() || rule.reply().has_token() ? Reply::kSilent
                                    : rule.result() == 0                        ? Reply::kSuccess
                                                                                : Reply::kFailure;
}

// A request of the daemon's own, then what it logs of the modem's answer: the answer's result,
// or the end of its wait when the modem stays silent.
void DiagnosticsModel::AnsweredRequest(int payload_case, const std::string& success,
                                       int success_priority, const std::string& failure) {
    switch (replies_[payload_case]) {
        case Reply::kSuccess:
            steps_.Log(success_priority, success);
            return;
        case Reply::kFailure:
            steps_.Log(kLogError, failure);
            return;
        case Reply::kSilent:
            steps_.Log(kLogError, "Failed to send request, status:5", kAfterRequestTimeoutMs);
            return;
    }
}

// The statistics enables, the userspace-log enables, each waiting for its answer, then the GNSS
// table, which this sandbox does not have.
void DiagnosticsModel::Configuration() {
    steps_.Log(kLogInfo, std::string("Read config: ") + kStatConfigFile);
    for (const StatModule& module : kStatModules) {
        steps_.Log(kLogInfo, StringPrintf("Send debug stat config: %s, v=%d, t=%u", module.name,
                                          module.v, module.t));
        TarvoMessage request;
        tarvo_message::ModemStatEnableRequest* enable =
            request.mutable_modem_stat()->mutable_enable_request();
        enable->set_module(module.name);
        if (module.v >= 0) enable->set_v(module.v);
        if (module.t != 0) enable->set_t(module.t);
        steps_.ExpectRequest(std::move(request), kAfterRequestTimeoutMs);
        AnsweredRequest(TarvoMessage::kModemStat, "Got modemstat enable response successful",
                        kLogInfo, "Got modemstat enable response failed");
    }
    for (const char* name : kUserspaceNames) {
        steps_.Log(kLogInfo, StringPrintf("Enabling modem userspace logging file %s", name));
        TarvoMessage request;
        request.mutable_userspace_log()->mutable_enable_request()->set_name(name);
        steps_.ExpectRequest(std::move(request), kAfterRequestTimeoutMs);
        AnsweredRequest(TarvoMessage::kUserspaceLog, "Got userspace enable response successful",
                        kLogInfo, "Failed to get enable response");
    }
    steps_.Log(kLogError, "Failed to read any GNSS coex configuration file",
               kAfterRequestTimeoutMs);
}

void DiagnosticsModel::OfflineAndBack() {
    steps_.Log(kLogInfo, StateChangeText(kModemOnline, 0));
    Step online;
    online.set_modem_state(kModemOnline);
    steps_.Add(std::move(online));
    steps_.Log(kLogInfo, StateChangeText(0, kModemOnline));
    Configuration();
    // The first answer may wait for the offline reader's pause.
    for (Step& step : steps_.steps()) {
        if (step.has_expect() && step.expect().timeout_ms() > 0) {
            step.mutable_expect()->set_timeout_ms(kAfterRequestTimeoutMs + kOfflineReaderPauseMs);
        }
    }
}

void DiagnosticsModel::Signal(uint32_t signal) {
    TarvoMessage request;
    if (signal == SIGUSR1) {
        steps_.Log(kLogInfo, "Sending modemstat report request");
        request.mutable_modem_stat()->mutable_report_request();
    } else {
        steps_.Log(kLogInfo, "Sending extended log request");
        request.mutable_extended_log()->mutable_request();
    }
    steps_.ExpectRequest(std::move(request));
    if (signal == SIGUSR1) {
        AnsweredRequest(TarvoMessage::kModemStat, "Got modemstat report response successful",
                        kLogInfo, "Got modemstat report response failed");
    } else {
        AnsweredRequest(TarvoMessage::kExtendedLog, "Got extended log response successful",
                        kLogInfo, "Got extended log response failed");
    }
}

void DiagnosticsModel::StatReport(const tarvo_message::ModemStatMessage& stat) {
    if (!stat.has_report_indication() || !stat.report_indication().has_data()) {
        steps_.Ping();
        return;
    }
    const tarvo_message::ModemStatReportIndication& report = stat.report_indication();
    ModelFileSystem::File* dump = files_.FindMutable(kStatDumpFile);
    if (!report.has_offset()) {
        // A new report.
        ModelFileSystem::File& file = files_.Open(kStatDumpFile, kDiagnosticsMode);
        file.content = report.data();
        file.mode = kDiagnosticsMode;
    } else if (dump == nullptr) {
        steps_.Log(kLogError, "Failed to open modemstat dump file");
    } else if (report.offset() == 0) {
        // Written over the start, not truncated.
        dump->content.replace(0, std::min(dump->content.size(), report.data().size()),
                              report.data());
        dump->mode = kDiagnosticsMode;
    } else {
        // Every other offset appends, whatever its value.
        dump->content += report.data();
        dump->mode = kDiagnosticsMode;
    }
    steps_.Ping();
    steps_.CheckFile(std::string(kStatDumpFile));
}

void DiagnosticsModel::ExtendedLog(const tarvo_message::ExtendedLogMessage& log) {
    if (!log.has_indication()) {
        steps_.Ping();
        return;
    }
    const std::string path = kExtendedLogPrefix + log.indication().name() + ".txt";
    const std::optional<std::string> resolved = files_.Resolve(path);
    std::optional<std::string> rotated;
    if (resolved) {
        rotated = *resolved + ".old";
        const ModelFileSystem::File* file = files_.Find(*resolved);
        // On a read-only tree the removal and the rename fail, unlooked at.
        if (file != nullptr && file->content.size() > kRotationSize &&
            files_.IsWritable(*resolved)) {
            files_.Remove(*rotated);
            files_.Rename(*resolved, *rotated);
        }
    }
    if (!resolved || !files_.IsWritable(*resolved) || files_.IsDirectory(*resolved)) {
        steps_.Log(kLogError, "Failed to open extended log file");
    } else {
        ModelFileSystem::File& file = files_.Open(*resolved, kDiagnosticsMode);
        file.content += log.indication().data();
        file.stamps.push_back(file.content.size());
        file.content.append(ModelFileSystem::kStampSize, ' ');
        file.mode = kDiagnosticsMode;
    }
    steps_.Ping();
    steps_.CheckFile(resolved);
    steps_.CheckFile(rotated);
}

void DiagnosticsModel::UserspaceLog(const tarvo_message::UserspaceLogMessage& log) {
    if (log.has_indication()) {
        const uint32_t level = log.indication().level();
        steps_.Log(level == 0   ? kLogError
                   : level == 1 ? kLogInfo
                                : kLogDebug,
                   "Modem: " + log.indication().log());
    }
    steps_.Ping();
}

}  // namespace tarvo_emu
