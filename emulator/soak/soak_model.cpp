#include "soak/soak_model.h"

#include <signal.h>

#include <random>

#include <android-base/stringprintf.h>
#include <android-base/strings.h>

using android::base::StringPrintf;
using tarvo_message::TarvoMessage;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

constexpr int kDebug = tarvo_scenario::DEBUG;
constexpr int kInfo = tarvo_scenario::INFO;
constexpr int kError = tarvo_scenario::ERROR;

constexpr char kPingValue[] = "pong";
constexpr uint32_t kFirstPingToken = 0x80000000;
constexpr int kOnline = 4;

// File modes the daemon gives: a staging file and an appended file, a completed target.
constexpr mode_t kStagingMode = 0664;
constexpr mode_t kTargetMode = 0666;
constexpr mode_t kAppendMode = 0664;

constexpr char kStatDump[] = "/data/vendor/modem_stat/debug.txt";
constexpr char kExtendedLogPrefix[] = "/data/vendor/radio/extended_logs/extended_log_";
constexpr size_t kRotationSize = 1048576;
// The time stamp line after each extended-log piece: "MM-DD hh:mm:ss.mmm\n".
constexpr size_t kStampSize = 19;
// Files up to this size are checked byte for byte by regular expression (their time stamps
// vary); longer ones by size.
constexpr size_t kRegexCheckedSize = 4096;

constexpr char kUecapDirectory[] = "/vendor/firmware/uecapconfig/";
constexpr uint32_t kUecapDirectoryId = 3;

// The daemon waits this long for the modem's answer to a request of its own.
constexpr uint32_t kRequestTimeoutMs = 3000;
// An expectation that follows such a wait gets this much more: the end of the wait is the
// daemon's own clock, and a loaded machine (the suite runs two tests at a time) delays the log
// line that reports it.
constexpr uint32_t kAfterRequestTimeoutMs = kRequestTimeoutMs + 7000;
// Offline, the daemon's reader looks at the modem state every 2 s, so the first answer to a
// request of the daemon's after the modem comes back can take that long to be read.
constexpr uint32_t kOfflineReaderPauseMs = 2000;

// Resident memory may grow this much over a run before the soak calls it a leak.
constexpr uint32_t kRssGrowthKib = 16384;
// A usage check after this many stimuli.
constexpr size_t kUsageCheckEvery = 100;
constexpr char kMark[] = "soak";

// The configuration the sandbox holds, and what each module and name of it makes the daemon send.
constexpr char kStatConfig[] = "L1:v=3,t=10|RRC";
constexpr char kStatConfigPath[] = "/data/vendor/radio/modem_stat.conf";
constexpr char kUserspaceConfig[] = "mac\nrlc\n";
constexpr char kUserspaceConfigPath[] = "/data/vendor/radio/modem_userspace_logging.conf";
struct StatModule {
    const char* name;
    int v;
    uint32_t t;
};
constexpr StatModule kStatModules[] = {{"L1", 3, 10}, {"RRC", -1, 0}};
constexpr const char* kUserspaceNames[] = {"mac", "rlc"};

const std::vector<std::string>& TreeDirectories() {
    static const auto* const kTree = new std::vector<std::string>{
        "/data",
        "/data/vendor",
        "/data/vendor/radio",
        "/data/vendor/radio/mds",
        "/data/vendor/radio/modem_temp_file",
        "/data/vendor/radio/extended_logs",
        "/data/vendor/modem_stat",
        "/mnt",
        "/mnt/vendor",
        "/mnt/vendor/modem_userdata",
        "/mnt/vendor/modem_userdata/replay",
        "/vendor",
        "/vendor/etc",
        "/vendor/firmware",
        "/vendor/firmware/uecapconfig",
    };
    return *kTree;
}

std::string Hex(uint64_t value) { return StringPrintf("0x%llX", (unsigned long long)value); }

// A regular expression that matches `file` with its time stamps as any time.
std::string StampedRegex(const ModelFileSystem::File& file) {
    std::string regex;
    size_t next_stamp = 0;
    for (size_t i = 0; i < file.content.size();) {
        if (next_stamp < file.stamps.size() && file.stamps[next_stamp] == i) {
            regex += "\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d\\d\\d\\n";
            i += kStampSize;
            ++next_stamp;
            continue;
        }
        const unsigned char c = file.content[i++];
        if (isalnum(c)) {
            regex += static_cast<char>(c);
        } else {
            regex += StringPrintf("\\x%02x", c);
        }
    }
    return regex;
}

}  // namespace

std::string GeneratedData(const tarvo_scenario::Generated& generated) {
    std::string bytes;
    if (generated.has_random_seed()) {
        std::mt19937_64 random(generated.random_seed());
        while (bytes.size() < generated.size()) {
            const uint64_t word = random();
            bytes.append(reinterpret_cast<const char*>(&word), sizeof(word));
        }
    } else if (generated.pattern().empty()) {
        bytes.assign(generated.size(), '\0');
    } else {
        while (bytes.size() < generated.size()) bytes += generated.pattern();
    }
    bytes.resize(generated.size());
    return bytes;
}

const std::vector<std::string>& SoakModel::Directories() {
    static const auto* const kDirectories =
        new std::vector<std::string>{"UNKNOWN", "/data/vendor/radio/mds/",
                                     "/mnt/vendor/modem_userdata/replay/", kUecapDirectory};
    return *kDirectories;
}

tarvo_scenario::Scenario SoakModel::Setup(uint64_t seed) {
    tarvo_scenario::Scenario setup;
    setup.set_initial_state(kOnline);
    const auto file = [&setup](const std::string& path, const std::string& content,
                               mode_t mode) -> tarvo_scenario::SeedFile& {
        tarvo_scenario::SeedFile* seeded = setup.add_file();
        seeded->set_path(path);
        seeded->set_content(content);
        seeded->set_mode(mode);
        return *seeded;
    };
    file(kStatConfigPath, kStatConfig, 0664);
    file(kUserspaceConfigPath, kUserspaceConfig, 0664);
    file("/data/vendor/radio/mds/seed.bin", "seed contents", 0644);
    file("/mnt/vendor/modem_userdata/replay/a.bin", "replayed", 0600);
    file(std::string(kUecapDirectory) + "uecap.bin", "", 0644)
        .mutable_content()
        ->assign(GeneratedData([] {
            tarvo_scenario::Generated generated;
            generated.set_random_seed(7);
            generated.set_size(3001);
            return generated;
        }()));
    // Exactly at the rotation threshold: the next piece is appended, the one after rotates.
    file(std::string(kExtendedLogPrefix) + "main.txt", "m", 0664).set_size(kRotationSize);
    tarvo_scenario::Property* ping = setup.add_property();
    ping->set_name(kPingProperty);
    ping->set_value(kPingValue);
    tarvo_scenario::Property* mode = setup.add_property();
    mode->set_name("persist.vendor.modem.mode");
    mode->set_value("auto");
    // One run in four has the replay directory on a read-only mount.
    constexpr uint64_t kReadOnlyVariants = 4;
    if (seed % kReadOnlyVariants == kReadOnlyVariants - 1) {
        setup.add_read_only("/mnt/vendor/modem_userdata/replay");
    }
    return setup;
}

SoakModel::SoakModel(const tarvo_scenario::Scenario& setup)
    : files_(TreeDirectories(),
             [&setup] {
                 std::vector<std::string> read_only{"/vendor"};
                 read_only.insert(read_only.end(), setup.read_only().begin(),
                                  setup.read_only().end());
                 return read_only;
             }()),
      next_ping_token_(kFirstPingToken) {
    for (const tarvo_scenario::SeedFile& seeded : setup.file()) {
        std::string content = seeded.content();
        if (seeded.has_size()) {
            tarvo_scenario::Generated generated;
            generated.set_pattern(seeded.content());
            generated.set_size(seeded.size());
            content = GeneratedData(generated);
        }
        files_.Open(seeded.path(), seeded.mode()).content = std::move(content);
    }
    for (const tarvo_scenario::Property& property : setup.property()) {
        properties_[property.name()] = property.value();
    }
    for (int payload_case :
         {TarvoMessage::kModemStat, TarvoMessage::kExtendedLog, TarvoMessage::kUserspaceLog}) {
        replies_[payload_case] = Reply::kSuccess;
    }
}

std::optional<size_t> SoakModel::StagedSize(const std::string& name) const {
    const std::optional<std::string> staged = files_.Resolve(kStagingDirectory + name);
    if (!staged) return std::nullopt;
    const ModelFileSystem::File* file = files_.Find(*staged);
    if (file == nullptr) return std::nullopt;
    return file->content.size();
}

std::optional<size_t> SoakModel::FileSize(uint32_t directory, const std::string& name) const {
    if (directory == 0 || directory >= Directories().size()) return std::nullopt;
    const std::optional<std::string> path = files_.Resolve(Directories()[directory] + name);
    if (!path) return std::nullopt;
    const ModelFileSystem::File* file = files_.Find(*path);
    if (file == nullptr) return std::nullopt;
    return file->content.size();
}

void SoakModel::Respond(uint32_t token, int result, TarvoMessage payload) {
    Step step;
    tarvo_scenario::Expect* expect = step.mutable_expect();
    *expect->mutable_message() = std::move(payload);
    expect->mutable_message()->set_type(tarvo_message::RESPONSE);
    expect->mutable_message()->set_token(token);
    if (result >= 0) {
        expect->mutable_message()->set_result(static_cast<tarvo_message::TarvoResult>(result));
    }
    expect->set_exact_payload(true);
    steps_.push_back(std::move(step));
}

void SoakModel::Log(int priority, const std::string& text) {
    Step step;
    step.mutable_expect_log()->set_priority(static_cast<tarvo_scenario::Priority>(priority));
    step.mutable_expect_log()->set_text(text);
    steps_.push_back(std::move(step));
}

void SoakModel::LogRegex(int priority, const std::string& regex) {
    Step step;
    step.mutable_expect_log()->set_priority(static_cast<tarvo_scenario::Priority>(priority));
    step.mutable_expect_log()->set_text_regex(regex);
    steps_.push_back(std::move(step));
}

void SoakModel::CheckFile(const std::optional<std::string>& resolved) {
    if (!resolved || files_.IsDirectory(*resolved)) return;
    Step step;
    tarvo_scenario::ExpectFile* expect = step.mutable_expect_file();
    expect->set_path(*resolved);
    const ModelFileSystem::File* file = files_.Find(*resolved);
    if (file == nullptr) {
        expect->set_absent(true);
    } else if (file->stamps.empty()) {
        expect->set_content(file->content);
        expect->set_mode(file->mode);
    } else {
        expect->set_size(file->content.size());
        expect->set_mode(file->mode);
        if (file->content.size() <= kRegexCheckedSize) {
            expect->set_content_regex(StampedRegex(*file));
        }
    }
    steps_.push_back(std::move(step));
}

void SoakModel::Ping() {
    const uint32_t token = next_ping_token_++;
    Step send;
    send.mutable_send()->set_type(tarvo_message::REQUEST);
    send.mutable_send()->set_token(token);
    send.mutable_send()->mutable_property()->mutable_read_request()->set_name(kPingProperty);
    steps_.push_back(std::move(send));
    TarvoMessage payload;
    payload.mutable_property()->mutable_read_response()->set_value(kPingValue);
    Respond(token, tarvo_message::RESULT_SUCCESS, std::move(payload));
}

void SoakModel::UsageCheck() {
    if (++steps_since_mark_ % kUsageCheckEvery != 0) return;
    Step step;
    step.mutable_expect_usage()->set_mark(kMark);
    step.mutable_expect_usage()->set_rss_growth_below_kib(kRssGrowthKib);
    steps_.push_back(std::move(step));
}

// A request of the daemon's own, then what it logs of the modem's answer: the answer's result,
// or the end of its wait when the modem stays silent.
void SoakModel::AnsweredRequest(int payload_case, const std::string& success, int success_priority,
                                const std::string& failure) {
    switch (replies_[payload_case]) {
        case Reply::kSuccess:
            Log(success_priority, success);
            return;
        case Reply::kFailure:
            Log(kError, failure);
            return;
        case Reply::kSilent: {
            Log(kError, "Failed to send request, status:5");
            steps_.back().mutable_expect_log()->set_timeout_ms(kAfterRequestTimeoutMs);
            return;
        }
    }
}

// What the daemon sends each time it sees the modem online: the statistics enables, the
// userspace-log enables, each waiting for its answer, then the GNSS table, which this sandbox
// does not have.
void SoakModel::Configuration() {
    Log(kInfo, std::string("Read config: ") + kStatConfigPath);
    for (const StatModule& module : kStatModules) {
        Log(kInfo, StringPrintf("Send debug stat config: %s, v=%d, t=%u", module.name, module.v,
                                module.t));
        TarvoMessage request;
        request.set_type(tarvo_message::REQUEST);
        tarvo_message::ModemStatEnableRequest* enable =
            request.mutable_modem_stat()->mutable_enable_request();
        enable->set_module(module.name);
        if (module.v >= 0) enable->set_v(module.v);
        if (module.t != 0) enable->set_t(module.t);
        Step expect;
        *expect.mutable_expect()->mutable_message() = request;
        expect.mutable_expect()->set_exact_payload(true);
        expect.mutable_expect()->set_timeout_ms(kAfterRequestTimeoutMs);
        steps_.push_back(std::move(expect));
        AnsweredRequest(TarvoMessage::kModemStat, "Got modemstat enable response successful", kInfo,
                        "Got modemstat enable response failed");
    }
    for (const char* name : kUserspaceNames) {
        Log(kInfo, StringPrintf("Enabling modem userspace logging file %s", name));
        TarvoMessage request;
        request.set_type(tarvo_message::REQUEST);
        request.mutable_userspace_log()->mutable_enable_request()->set_name(name);
        Step expect;
        *expect.mutable_expect()->mutable_message() = request;
        expect.mutable_expect()->set_exact_payload(true);
        expect.mutable_expect()->set_timeout_ms(kAfterRequestTimeoutMs);
        steps_.push_back(std::move(expect));
        AnsweredRequest(TarvoMessage::kUserspaceLog, "Got userspace enable response successful",
                        kInfo, "Failed to get enable response");
    }
    Log(kError, "Failed to read any GNSS coex configuration file");
    steps_.back().mutable_expect_log()->set_timeout_ms(kAfterRequestTimeoutMs);
}

std::vector<Step> SoakModel::Start() {
    steps_.clear();
    Log(kInfo, "Modem state changed from -1 to 4");
    Configuration();
    Step mark;
    mark.set_mark(kMark);
    steps_.push_back(std::move(mark));
    steps_since_mark_ = 0;
    return std::move(steps_);
}

std::vector<Step> SoakModel::Play(const Step& stimulus) {
    steps_.clear();
    steps_.push_back(stimulus);
    switch (stimulus.action_case()) {
        case Step::kSend:
            Message(stimulus.send());
            break;
        case Step::kSendGenerated: {
            TarvoMessage message = stimulus.send_generated().message();
            const std::string data = GeneratedData(stimulus.send_generated().data());
            // The data field of the innermost request, as the player fills it.
            if (message.file().has_write_request()) {
                message.mutable_file()->mutable_write_request()->set_data(data);
            } else if (message.file().has_write_indication()) {
                message.mutable_file()->mutable_write_indication()->set_data(data);
            } else if (message.file().has_append_request()) {
                message.mutable_file()->mutable_append_request()->set_data(data);
            } else if (message.extended_log().has_indication()) {
                message.mutable_extended_log()->mutable_indication()->set_data(data);
            } else if (message.modem_stat().has_report_indication()) {
                message.mutable_modem_stat()->mutable_report_indication()->set_data(data);
            }
            Message(message);
            break;
        }
        case Step::kSendRaw:
            // Bytes that do not parse are dropped; the next message is read as usual.
            Log(kError, "ParseFromArray failed");
            Ping();
            break;
        case Step::kFault:
            switch (stimulus.fault()) {
                case tarvo_scenario::READ_ERROR:
                    Log(kError, "Read channel error, size:-1, errno:5");
                    break;
                case tarvo_scenario::WRITE_ERROR:
                    // The answer to the first ping is lost on the failing write; the node
                    // still takes the next.
                    Ping();
                    steps_.pop_back();
                    break;
                default:
                    // A read of 0 bytes sets no errno: the line shows the thread's last one.
                    LogRegex(kError, "Read channel error, size:0, errno:[0-9]+");
                    break;
            }
            Ping();
            break;
        case Step::kModemState: {
            Log(kInfo, "Modem state changed from 4 to 0");
            Step online;
            online.set_modem_state(kOnline);
            steps_.push_back(std::move(online));
            Log(kInfo, "Modem state changed from 0 to 4");
            Configuration();
            // The first answer may wait for the offline reader's pause.
            for (Step& step : steps_) {
                if (step.has_expect() && step.expect().timeout_ms() > 0) {
                    step.mutable_expect()->set_timeout_ms(kAfterRequestTimeoutMs +
                                                          kOfflineReaderPauseMs);
                }
            }
            break;
        }
        case Step::kRestartDaemon: {
            std::vector<Step> started = Start();
            steps_ = {stimulus};
            steps_.insert(steps_.end(), started.begin(), started.end());
            return std::move(steps_);
        }
        case Step::kSignalDaemon:
            Signal(stimulus.signal_daemon());
            break;
        case Step::kAutoReply: {
            const tarvo_scenario::AutoReply& rule = stimulus.auto_reply();
            replies_[rule.payload_case()] = rule.no_reply()      ? Reply::kSilent
                                            : rule.result() == 0 ? Reply::kSuccess
                                                                 : Reply::kFailure;
            break;
        }
        default:
            break;
    }
    UsageCheck();
    return std::move(steps_);
}

void SoakModel::Signal(uint32_t signal) {
    TarvoMessage request;
    request.set_type(tarvo_message::REQUEST);
    if (signal == SIGUSR1) {
        Log(kInfo, "Sending modemstat report request");
        request.mutable_modem_stat()->mutable_report_request();
    } else {
        Log(kInfo, "Sending extended log request");
        request.mutable_extended_log()->mutable_request();
    }
    Step expect;
    *expect.mutable_expect()->mutable_message() = request;
    expect.mutable_expect()->set_exact_payload(true);
    steps_.push_back(std::move(expect));
    if (signal == SIGUSR1) {
        AnsweredRequest(TarvoMessage::kModemStat, "Got modemstat report response successful", kInfo,
                        "Got modemstat report response failed");
    } else {
        AnsweredRequest(TarvoMessage::kExtendedLog, "Got extended log response successful", kInfo,
                        "Got extended log response failed");
    }
}

void SoakModel::Message(const TarvoMessage& message) {
    if (message.ByteSizeLong() > kLargestMessage) {
        // The read ends inside the message, which then does not parse.
        Log(kError, "ParseFromArray failed");
        Ping();
        return;
    }
    const uint32_t token = message.token();
    const bool request = message.type() == tarvo_message::REQUEST;
    if (message.has_file()) {
        const tarvo_message::FileMessage& file = message.file();
        if (request && file.has_write_request()) {
            Log(kInfo, "Got File write request");
            BlockWrite(file.write_request(), token, false);
        } else if (!request && file.has_write_indication()) {
            Log(kInfo, "Got File write indication");
            const tarvo_message::FileWriteIndication& indication = file.write_indication();
            tarvo_message::FileWriteRequest block;
            // The indication's own legacy field is never looked at.
            if (indication.has_data()) block.set_data(indication.data());
            if (indication.has_file_name()) block.set_file_name(indication.file_name());
            if (indication.has_total_size()) block.set_total_size(indication.total_size());
            if (indication.has_offset()) block.set_offset(indication.offset());
            if (indication.has_file_dir()) block.set_file_dir(indication.file_dir());
            BlockWrite(block, token, true);
        } else if (request && file.has_append_request()) {
            Log(kInfo, "Got File write append request");
            Append(file.append_request(), token);
        } else if (request && file.has_read_request()) {
            Log(kInfo, "Got File read request");
            Read(file.read_request(), token);
        }
    } else if (message.has_property()) {
        Log(kInfo, "Get property request");
        PropertyRequest(message.property(), token);
    } else if (message.has_modem_temperature()) {
        Log(kInfo, "Got modem temperature request");
        Temperature(message.modem_temperature(), token);
    } else if (message.has_uecap_file()) {
        Log(kInfo, "Got Uecap File message request");
        UecapRead(message.uecap_file(), token);
    } else if (message.has_modem_stat()) {
        Log(kInfo, "Got modemstat report indication");
        StatReport(message.modem_stat());
    } else if (message.has_extended_log()) {
        Log(kInfo, "Got extended log indication");
        ExtendedLog(message.extended_log());
    } else if (message.has_userspace_log()) {
        Log(kInfo, "Got userspace log indication");
        UserspaceLog(message.userspace_log());
    }
}

void SoakModel::BlockWrite(const tarvo_message::FileWriteRequest& block, uint32_t token,
                           bool indication) {
    const std::string kind = indication ? "FileWriteIndication" : "FileWriteRequest";
    // An indication is not answered: the ping's answer shows it handled, before its files are
    // looked at.
    const auto respond = [this, token, indication](int result, int file_result) {
        if (indication) {
            Ping();
            return;
        }
        TarvoMessage payload;
        payload.mutable_file()->mutable_write_response()->set_result(
            static_cast<tarvo_message::FileMessageResult>(file_result));
        Respond(token, result, std::move(payload));
    };
    if (!indication && !block.file_path().empty()) {
        Log(kError, "Old FileWriteRequest is no longer supported");
        Ping();
        return;
    }
    if (!block.has_file_dir() || !block.has_file_name()) {
        Log(kError,
            kind + (block.has_file_dir() ? " requires a file_name" : " requires a file_dir"));
        Ping();
        return;
    }
    const uint32_t directory = block.file_dir();
    const std::string& name = block.file_name();
    Log(kInfo, StringPrintf("file dir: %d and name: %s", directory, name.c_str()));
    if (directory < 1 || directory >= Directories().size()) {
        Log(kError, StringPrintf("Bad file directory: %d", directory));
        respond(tarvo_message::RESULT_FAILURE, tarvo_message::FILE_RESULT_BAD_DIRECTORY);
        return;
    }
    const std::string& prefix = Directories()[directory];
    const std::string target_path = prefix + name;
    const std::string staging_path = kStagingDirectory + name;
    const uint32_t offset = block.offset();
    const uint32_t total = block.total_size();
    Log(kInfo, "offset: " + Hex(offset) + ", size: " + Hex(total));
    Log(kInfo, "prefix: " + prefix + "\nfile_name: " + name);
    if (offset >= total) {
        Log(kError, "Bad max_data_size " + Hex(total) + " or offset " + Hex(offset));
        respond(tarvo_message::RESULT_FAILURE, tarvo_message::FILE_RESULT_BAD_OFFSET);
        return;
    }
    Log(indication ? kError : kInfo, "Handle file write operation to path: " + target_path +
                                         " for offset: " + Hex(offset) + " (total: " + Hex(total) +
                                         ")");
    const std::optional<std::string> staging = files_.Resolve(staging_path);
    const std::optional<std::string> target = files_.Resolve(target_path);
    if (offset == 0) {
        if (staging && files_.IsWritable(*staging)) files_.Remove(*staging);
    } else if (staging && files_.Find(*staging) != nullptr &&
               files_.Find(*staging)->content.size() != offset) {
        Log(kError, "Bad offset " + Hex(offset) + " comparing to the expected one: " +
                        Hex(files_.Find(*staging)->content.size()));
        respond(tarvo_message::RESULT_FAILURE, tarvo_message::FILE_RESULT_BAD_OFFSET);
        CheckFile(staging);
        return;
    }
    if (!staging || !files_.IsWritable(*staging) || files_.IsDirectory(*staging)) {
        Log(kError, (indication ? "Fail to open " : "Failed to open ") + staging_path);
        respond(tarvo_message::RESULT_FAILURE, tarvo_message::FILE_RESULT_FAILURE);
        CheckFile(staging);
        return;
    }
    Log(kInfo, StringPrintf("size: 0x%zX", block.data().size()));
    ModelFileSystem::File& staged = files_.Open(*staging, kStagingMode);
    staged.content += block.data();
    staged.mode = kStagingMode;
    if (staged.content.size() != total) {
        respond(tarvo_message::RESULT_SUCCESS, tarvo_message::FILE_RESULT_FAILURE);
        CheckFile(staging);
        return;
    }
    // Complete: the target is removed first, then the staging file copied over it.
    const bool target_writable =
        target && files_.IsWritable(*target) && !files_.IsDirectory(*target);
    if (target_writable) files_.Remove(*target);
    const ModelFileSystem::File* source = files_.Find(*staging);
    const std::optional<std::string> content =
        source != nullptr ? std::optional<std::string>(source->content) : std::nullopt;
    if (target_writable) files_.Open(*target, kTargetMode).content = content.value_or("");
    files_.Remove(*staging);
    if (target_writable && files_.FindMutable(*target) != nullptr) {
        files_.FindMutable(*target)->mode = kTargetMode;
    }
    if (!content || !target_writable) {
        Log(kError, "File transfer failed.");
        respond(tarvo_message::RESULT_FAILURE, tarvo_message::FILE_RESULT_FAILURE);
    } else {
        Log(kError, indication ? "Move file into target path done" : "Moved file into target path");
        respond(tarvo_message::RESULT_SUCCESS, tarvo_message::FILE_RESULT_FAILURE);
    }
    CheckFile(staging);
    CheckFile(target);
}

void SoakModel::Append(const tarvo_message::FileAppendRequest& request, uint32_t token) {
    const auto respond = [this, token](int result, int file_result) {
        TarvoMessage payload;
        payload.mutable_file()->mutable_write_response()->set_result(
            static_cast<tarvo_message::FileMessageResult>(file_result));
        Respond(token, result, std::move(payload));
    };
    if (!request.has_file_dir() || !request.has_file_name()) {
        Log(kError, request.has_file_dir() ? "FileWriteRequest requires a file_name"
                                           : "FileWriteRequest requires a file_dir");
        Ping();
        return;
    }
    const uint32_t directory = request.file_dir();
    Log(kInfo, StringPrintf("file dir: %d and name: %s", directory, request.file_name().c_str()));
    if (directory < 1 || directory >= Directories().size()) {
        Log(kError, StringPrintf("Bad file directory: %d", directory));
        respond(tarvo_message::RESULT_FAILURE, tarvo_message::FILE_RESULT_BAD_DIRECTORY);
        return;
    }
    const std::string& prefix = Directories()[directory];
    const std::string path = prefix + request.file_name();
    Log(kInfo, "prefix: " + prefix + " file_name: " + request.file_name());
    const std::optional<std::string> target = files_.Resolve(path);
    if (!target || !files_.IsWritable(*target) || files_.IsDirectory(*target)) {
        Log(kError, "Failed to open " + path);
        respond(tarvo_message::RESULT_FAILURE, tarvo_message::FILE_RESULT_FAILURE);
        CheckFile(target);
        return;
    }
    Log(kInfo, StringPrintf("size: 0x%zX", request.data().size()));
    ModelFileSystem::File& file = files_.Open(*target, kAppendMode);
    file.content += request.data();
    file.mode = kAppendMode;
    respond(tarvo_message::RESULT_SUCCESS, tarvo_message::FILE_RESULT_FAILURE);
    CheckFile(target);
}

void SoakModel::Read(const tarvo_message::FileReadRequest& request, uint32_t token) {
    const auto respond = [this, token](int result, int file_result, const std::string* data) {
        TarvoMessage payload;
        tarvo_message::FileReadResponse* response = payload.mutable_file()->mutable_read_response();
        if (data != nullptr) response->set_data(*data);
        response->set_result(static_cast<tarvo_message::FileMessageResult>(file_result));
        Respond(token, result, std::move(payload));
    };
    if (!request.has_file_dir() || !request.has_file_name()) {
        Log(kError, request.has_file_dir() ? "FileReadRequest requires a file_name"
                                           : "FileReadRequest requires a file_dir");
        Ping();
        return;
    }
    const uint32_t directory = request.file_dir();
    Log(kInfo, StringPrintf("file dir: %d and name: %s", directory, request.file_name().c_str()));
    if (directory < 1 || directory >= Directories().size()) {
        Log(kError, StringPrintf("Bad file directory: %d", directory));
        respond(tarvo_message::RESULT_FAILURE, tarvo_message::FILE_RESULT_BAD_DIRECTORY, nullptr);
        return;
    }
    const std::string& prefix = Directories()[directory];
    const std::string path = prefix + request.file_name();
    Log(kInfo, "prefix: " + prefix + " file_name: " + request.file_name());
    const std::optional<std::string> resolved = files_.Resolve(path);
    const ModelFileSystem::File* file = resolved ? files_.Find(*resolved) : nullptr;
    if (file == nullptr) {
        Log(kError, "Failed to open " + path);
        respond(tarvo_message::RESULT_FAILURE, tarvo_message::FILE_RESULT_FAILURE, nullptr);
        return;
    }
    Log(kInfo, StringPrintf("size: 0x%X", request.max_data_size()));
    const uint64_t end = uint64_t{request.offset()} + request.max_data_size();
    if (end > file->content.size()) {
        Log(kError, "Failed to read target file correctly");
        respond(tarvo_message::RESULT_FAILURE, tarvo_message::FILE_RESULT_FAILURE, nullptr);
        return;
    }
    const std::string data = file->content.substr(request.offset(), request.max_data_size());
    respond(tarvo_message::RESULT_SUCCESS, tarvo_message::FILE_RESULT_SUCCESS, &data);
}

void SoakModel::PropertyRequest(const tarvo_message::PropertyMessage& property, uint32_t token) {
    // The platform's rules: a name of letters, digits and "_.-:@" without empty components, a
    // value of at most 91 bytes unless the name starts with "ro.", which is set once.
    constexpr size_t kMaxValue = 91;
    TarvoMessage payload;
    if (property.has_write_request()) {
        const std::string& name = property.write_request().name();
        const std::string& value = property.write_request().value();
        const bool read_only = android::base::StartsWith(name, "ro.");
        bool valid = !name.empty() && name.front() != '.' && name.back() != '.' &&
                     name.find("..") == std::string::npos;
        for (char c : name)
            valid =
                valid && (isalnum(static_cast<unsigned char>(c)) || strchr("_.-:@", c) != nullptr);
        const bool accepted = valid && (value.size() <= kMaxValue || read_only) &&
                              !(read_only && properties_.count(name));
        payload.mutable_property()->mutable_write_response();
        if (accepted) {
            properties_[name] = value;
            Log(kInfo, "Write property " + name + " with value " + value);
        } else {
            Log(kError, "Failed to write property " + name + " with value " + value);
        }
        Respond(token, accepted ? tarvo_message::RESULT_SUCCESS : tarvo_message::RESULT_IO_ERROR,
                std::move(payload));
        if (!valid) return;
        Step check;
        check.mutable_expect_property()->set_name(name);
        const auto it = properties_.find(name);
        if (it != properties_.end()) check.mutable_expect_property()->set_value(it->second);
        steps_.push_back(std::move(check));
        return;
    }
    if (property.has_read_request()) {
        const std::string& name = property.read_request().name();
        const auto it = properties_.find(name);
        if (it == properties_.end()) {
            Log(kError, "Failed to read property " + name);
            payload.mutable_property()->mutable_read_response()->set_value("");
            Respond(token, tarvo_message::RESULT_IO_ERROR, std::move(payload));
            return;
        }
        // A long "ro." value is read cut to what a value may hold.
        const std::string value = it->second.substr(0, kMaxValue);
        Log(kInfo, "Read property " + name + " with value " + value);
        payload.mutable_property()->mutable_read_response()->set_value(value);
        Respond(token, tarvo_message::RESULT_SUCCESS, std::move(payload));
        return;
    }
    Ping();
}

void SoakModel::Temperature(const tarvo_message::ModemTemperatureMessage& temperature,
                            uint32_t token) {
    Step writes;
    for (const tarvo_message::ModemTemperatureSensor& sensor :
         temperature.set_request().sensors()) {
        Log(kDebug, StringPrintf("Temp sensor %d - Update %d - Temperature %d",
                                 static_cast<int>(sensor.sensor()), sensor.update() ? 1 : 0,
                                 static_cast<int>(sensor.temperature())));
        writes.mutable_expect_thermal_writes()->add_write(
            StringPrintf("%llu %d %lld\n", (unsigned long long)sensor.sensor(),
                         sensor.update() ? 1 : 0, (long long)sensor.temperature()));
    }
    TarvoMessage payload;
    payload.mutable_modem_temperature()->mutable_set_response();
    // The answer carries no result, whatever became of the readings.
    Respond(token, -1, std::move(payload));
    writes.mutable_expect_thermal_writes();
    steps_.push_back(std::move(writes));
}

void SoakModel::UecapRead(const tarvo_message::UecapFileMessage& uecap, uint32_t token) {
    const tarvo_message::UecapFileReadRequest& request = uecap.read_request();
    const auto respond_failure = [this, token](int result, int uecap_result) {
        TarvoMessage payload;
        tarvo_message::UecapFileReadResponse* response =
            payload.mutable_uecap_file()->mutable_read_response();
        response->set_data("");
        response->set_offset(0);
        response->set_last(false);
        response->set_result(static_cast<tarvo_message::UecapFileMessageResult>(uecap_result));
        Respond(token, result, std::move(payload));
    };
    Log(kInfo, "Got Uecap File Read request");
    if (!request.has_file_name() || !request.has_directory() || request.directory() < 1 ||
        static_cast<uint32_t>(request.directory()) > kUecapDirectoryId) {
        Log(kError, "The incoming request has bad format");
        respond_failure(tarvo_message::RESULT_BAD_FORMAT, tarvo_message::UECAP_RESULT_BAD_FORMAT);
        return;
    }
    const ModelFileSystem::File* file = nullptr;
    if (request.directory() == kUecapDirectoryId) {
        const std::string path = kUecapDirectory + request.file_name();
        Log(kInfo,
            std::string("prefix: ") + kUecapDirectory + " file_name: " + request.file_name());
        const std::optional<std::string> resolved = files_.Resolve(path);
        if (resolved) file = files_.Find(*resolved);
    }
    if (file == nullptr) {
        Log(kError, "UECap File Read failed.");
        respond_failure(tarvo_message::RESULT_FAILURE, tarvo_message::UECAP_RESULT_READ_FAILED);
        return;
    }
    const uint32_t size = std::min<uint64_t>(request.read_size(), file->content.size());
    Log(kInfo, StringPrintf("file size: %zu, read size: %u, requested read size: %u",
                            file->content.size(), size, request.read_size()));
    const uint32_t block_size = request.block_size();
    for (uint32_t offset = 0, block = 0; offset < size; offset += block_size, ++block) {
        const uint32_t length = std::min(size - offset, block_size);
        TarvoMessage payload;
        tarvo_message::UecapFileReadResponse* response =
            payload.mutable_uecap_file()->mutable_read_response();
        response->set_data(file->content.substr(offset, length));
        response->set_offset(offset);
        response->set_result(tarvo_message::UECAP_RESULT_SUCCESS);
        response->set_last(uint64_t{offset} + block_size >= size);
        Log(kInfo, StringPrintf("Send response with offset: %u, data size: %u, token: %u", offset,
                                length, token + block + 1));
        Respond(token + block, tarvo_message::RESULT_SUCCESS, std::move(payload));
    }
    Log(kInfo, "Succeeded to send all blocks of file");
    // Nothing may be sent at all: the ping shows the request handled.
    if (size == 0) Ping();
}

void SoakModel::StatReport(const tarvo_message::ModemStatMessage& stat) {
    if (!stat.has_report_indication() || !stat.report_indication().has_data()) {
        Ping();
        return;
    }
    const tarvo_message::ModemStatReportIndication& report = stat.report_indication();
    ModelFileSystem::File* dump = files_.FindMutable(kStatDump);
    if (!report.has_offset()) {
        // A new report.
        ModelFileSystem::File& file = files_.Open(kStatDump, 0664);
        file.content = report.data();
        file.mode = 0664;
    } else if (dump == nullptr) {
        Log(kError, "Failed to open modemstat dump file");
    } else if (report.offset() == 0) {
        // Written over the start, not truncated.
        dump->content.replace(0, std::min(dump->content.size(), report.data().size()),
                              report.data());
        dump->mode = 0664;
    } else {
        // Every other offset appends, whatever its value.
        dump->content += report.data();
        dump->mode = 0664;
    }
    Ping();
    CheckFile(std::string(kStatDump));
}

void SoakModel::ExtendedLog(const tarvo_message::ExtendedLogMessage& log) {
    if (!log.has_indication()) {
        Ping();
        return;
    }
    const std::string path = kExtendedLogPrefix + log.indication().name() + ".txt";
    const std::optional<std::string> resolved = files_.Resolve(path);
    std::optional<std::string> rotated;
    if (resolved) {
        rotated = *resolved + ".old";
        const ModelFileSystem::File* file = files_.Find(*resolved);
        if (file != nullptr && file->content.size() > kRotationSize) {
            files_.Remove(*rotated);
            files_.Rename(*resolved, *rotated);
        }
    }
    if (!resolved || !files_.IsWritable(*resolved) || files_.IsDirectory(*resolved)) {
        Log(kError, "Failed to open extended log file");
    } else {
        ModelFileSystem::File& file = files_.Open(*resolved, 0664);
        file.content += log.indication().data();
        file.stamps.push_back(file.content.size());
        file.content.append(kStampSize, ' ');
        file.mode = 0664;
    }
    Ping();
    CheckFile(resolved);
    CheckFile(rotated);
}

void SoakModel::UserspaceLog(const tarvo_message::UserspaceLogMessage& log) {
    if (log.has_indication()) {
        const uint32_t level = log.indication().level();
        Log(level == 0 ? kError : level == 1 ? kInfo : kDebug, "Modem: " + log.indication().log());
    }
    Ping();
}

}  // namespace tarvo_emu
