#include "soak/unexpected_traffic.h"

#include <set>
#include <vector>

#include <google/protobuf/text_format.h>

#include <android-base/stringprintf.h>

#include "device/device_facts.h"

using android::base::StringPrintf;
using tarvo_message::TarvoMessage;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

// Tokens from here on are never drawn by the daemon, whose tokens count from 0 at each start.
constexpr uint32_t kForeignTokens = 0x40000000;
// A type that the schema does not name.
constexpr int kUnknownType = 7;

// Payloads of the answers that the daemon's own requests get.
const std::vector<std::string> kResponses = {"modem_stat { report_response {} }",
                                             "extended_log { response {} }",
                                             "userspace_log { enable_response {} }"};
// Requests of families that only the daemon asks or that only indicate; no payload at all.
const std::vector<std::string> kUnroutedRequests = {
    "modem_stat { enable_request {} }", "extended_log { request {} }",
    "userspace_log { indication { log: 'x' } }", "modem_test { tput_request {} }", ""};
// Indications of families that only answer requests; the ordinary request's own payload too.
const std::vector<std::string> kUnroutedIndications = {
    "modem_temperature { set_request {} }",
    "modem_test { tput_request {} }",
    "uecap_file { read_request { file_name: 'x' } }",
    "",
    "property",
    "property"};
// Operations of a family that are not requests.
const std::vector<std::string> kNoRequests = {"file { write_response { result: 0 } }",
                                              "file { write_indication { file_name: 'a.bin' } }",
                                              "file { read_response { data: 'x' } }", "file {}",
                                              "uecap_file { read_response { data: 'x' } }"};

const std::string& Pick(std::mt19937_64& random, const std::vector<std::string>& choices) {
    return choices[std::uniform_int_distribution<size_t>(0, choices.size() - 1)(random)];
}

// `message` with the payload that `text` writes; the one it has for "property".
TarvoMessage WithPayload(TarvoMessage message, const std::string& text) {
    if (text == "property") return message;
    message.clear_payload();
    google::protobuf::TextFormat::MergeFromString(text, &message);
    return message;
}

Step SendStep(TarvoMessage message) {
    Step step;
    *step.mutable_send() = std::move(message);
    return step;
}

Step RawStep(std::string bytes) {
    Step step;
    step.set_send_raw(std::move(bytes));
    return step;
}

}  // namespace

std::string UnexpectedName(UnexpectedKind kind) {
    static constexpr const char* kNames[kUnexpectedKinds] = {
        "repeated_token",      "answered_twice", "unrequested_response",
        "foreign_token_reply", "unknown_family", "unknown_operation",
        "truncated",           "oversized",      "unparsable_payload"};
    return kNames[static_cast<size_t>(kind)];
}

Step UnexpectedStimulus(UnexpectedKind kind, std::mt19937_64& random, TarvoMessage ordinary,
                        uint32_t earlier_token, std::optional<uint32_t> daemon_token) {
    const auto uniform = [&random](uint64_t low, uint64_t high) {
        return std::uniform_int_distribution<uint64_t>(low, high)(random);
    };
    const auto response = [&](uint32_t token) {
        TarvoMessage message = WithPayload(TarvoMessage(), Pick(random, kResponses));
        message.set_type(tarvo_message::RESPONSE);
        message.set_token(token);
        message.set_result(uniform(0, 1) ? tarvo_message::RESULT_SUCCESS
                                         : tarvo_message::RESULT_FAILURE);
        return SendStep(std::move(message));
    };
    Step step;
    switch (kind) {
        case UnexpectedKind::kRepeatedToken:
            ordinary.set_token(earlier_token);
            return SendStep(std::move(ordinary));
        case UnexpectedKind::kAnsweredTwice:
            return response(daemon_token.value_or(0));
        case UnexpectedKind::kUnrequestedResponse:
            return response(kForeignTokens + uniform(0, 0xffff));
        case UnexpectedKind::kForeignTokenReply:
            step.mutable_auto_reply()->set_payload_case(
                std::vector<int>{TarvoMessage::kModemStat, TarvoMessage::kExtendedLog,
                                 TarvoMessage::kUserspaceLog}[uniform(0, 2)]);
            step.mutable_auto_reply()->mutable_reply()->set_token(kForeignTokens +
                                                                  uniform(0, 0xffff));
            return step;
        case UnexpectedKind::kUnknownFamily:
            switch (uniform(0, 3)) {
                case 0:
                    return SendStep(WithPayload(ordinary, Pick(random, kUnroutedRequests)));
                case 1:
                    ordinary.set_type(tarvo_message::INDICATION);
                    return SendStep(WithPayload(ordinary, Pick(random, kUnroutedIndications)));
                case 2:
                    ordinary.clear_type();
                    return SendStep(std::move(ordinary));
                default:
                    ordinary.set_type(static_cast<tarvo_message::TarvoMessageType>(kUnknownType));
                    return SendStep(std::move(ordinary));
            }
        case UnexpectedKind::kUnknownOperation:
            return SendStep(WithPayload(ordinary, Pick(random, kNoRequests)));
        case UnexpectedKind::kTruncated: {
            // Cut after a field of the header, where what is left parses as the fields before
            // it, or inside the first, where nothing parses.
            TarvoMessage header;
            header.set_type(ordinary.type());
            std::vector<size_t> cuts = {1, header.ByteSizeLong()};
            header.set_token(ordinary.token());
            cuts.push_back(header.ByteSizeLong());
            return RawStep(ordinary.SerializeAsString().substr(0, cuts[uniform(0, 2)]));
        }
        case UnexpectedKind::kOversized: {
            // A block of a write whose data runs past the end of the daemon's buffer.
            google::protobuf::TextFormat::MergeFromString(
                "file { write_request { file_name: 'a.bin' file_dir: FILE_DIR_MDS offset: 0 "
                "total_size: 200000 } }",
                &ordinary);
            *step.mutable_send_generated()->mutable_message() = std::move(ordinary);
            step.mutable_send_generated()->mutable_data()->set_random_seed(random());
            step.mutable_send_generated()->mutable_data()->set_size(kLargestMessage +
                                                                    uniform(1, 4096));
            return step;
        }
        case UnexpectedKind::kUnparsablePayload: {
            // The file payload (field 9) first, holding a field of a wire type that no message
            // has; the header after it is never reached.
            const std::string payload = "\x0f" + std::string(uniform(0, 20), 'x');
            return RawStep("\x4a" + std::string(1, static_cast<char>(payload.size())) + payload +
                           ordinary.SerializeAsString());
        }
    }
    return SendStep(std::move(ordinary));
}

bool ModelUnrouted(const TarvoMessage& message, ModelSteps& steps) {
    using tarvo_message::FileMessage;
    const bool operated = message.has_file() || message.has_uecap_file();
    const int operation = message.has_file() ? message.file().FileOperation_case()
                          : message.has_uecap_file()
                              ? message.uecap_file().UecapFileOperation_case()
                              : 0;
    const std::set<int> requests = {FileMessage::kWriteRequest, FileMessage::kReadRequest,
                                    FileMessage::kAppendRequest};
    const std::set<int> indications = {TarvoMessage::kModemStat, TarvoMessage::kExtendedLog,
                                       TarvoMessage::kUserspaceLog, TarvoMessage::kFile};
    switch (message.has_type() ? message.type() : 0) {
        case tarvo_message::REQUEST:
            if (message.has_property() || message.has_modem_temperature() ||
                (message.has_file() && requests.count(operation)) ||
                (message.has_uecap_file() && message.uecap_file().has_read_request())) {
                return false;
            }
            if (message.has_file()) steps.Log(kLogInfo, "Got File message request");
            if (message.has_uecap_file()) steps.Log(kLogInfo, "Got Uecap File message request");
            // An unknown operation is told with the text of an unknown family.
            steps.Log(kLogError, StringPrintf("RequestHandler: Unsupported message id %d",
                                              operated ? operation : message.payload_case()));
            break;
        case tarvo_message::INDICATION:
            if (indications.count(message.payload_case())) return false;
            steps.Log(kLogError, StringPrintf("IndicationHandler: Unsupported message id %d",
                                              message.payload_case()));
            break;
        default:
            break;
    }
    steps.Ping();
    return true;
}

}  // namespace tarvo_emu
