#include "soak/unexpected_traffic.h"

#include <vector>

#include "device/device_facts.h"
#include "scenario/payload_fields.h"

using tarvo_message::TarvoMessage;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

// Tokens from here on are never drawn by the daemon, whose tokens count from 0 at each start.
constexpr uint32_t kForeignTokens = 0x40000000;
// A type that the schema does not name.
constexpr int kUnknownType = 7;

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

uint64_t UnexpectedTraffic::Uniform(uint64_t low, uint64_t high) {
    return std::uniform_int_distribution<uint64_t>(low, high)(random_);
}

TarvoMessage UnexpectedTraffic::Response(uint32_t token) {
    TarvoMessage response;
    response.set_type(tarvo_message::RESPONSE);
    response.set_token(token);
    response.set_result(Uniform(0, 1) == 0 ? tarvo_message::RESULT_SUCCESS
                                           : tarvo_message::RESULT_FAILURE);
    switch (Uniform(0, 2)) {
        case 0:
            response.mutable_modem_stat()->mutable_report_response();
            break;
        case 1:
            response.mutable_extended_log()->mutable_response();
            break;
        default:
            response.mutable_userspace_log()->mutable_enable_response();
            break;
    }
    return response;
}

Step UnexpectedTraffic::Make(UnexpectedKind kind, TarvoMessage ordinary, uint32_t earlier_token,
                             std::optional<uint32_t> daemon_token) {
    switch (kind) {
        case UnexpectedKind::kRepeatedToken:
            ordinary.set_token(earlier_token);
            return SendStep(std::move(ordinary));
        case UnexpectedKind::kAnsweredTwice:
            return SendStep(Response(daemon_token.value_or(0)));
        case UnexpectedKind::kUnrequestedResponse:
            return SendStep(Response(kForeignTokens + Uniform(0, 0xffff)));
        case UnexpectedKind::kForeignTokenReply: {
            constexpr int kCases[] = {TarvoMessage::kModemStat, TarvoMessage::kExtendedLog,
                                      TarvoMessage::kUserspaceLog};
            Step step;
            step.mutable_auto_reply()->set_payload_case(kCases[Uniform(0, 2)]);
            step.mutable_auto_reply()->mutable_reply()->set_token(kForeignTokens +
                                                                  Uniform(0, 0xffff));
            return step;
        }
        case UnexpectedKind::kUnknownFamily:
            return UnknownFamily(std::move(ordinary));
        case UnexpectedKind::kUnknownOperation:
            return UnknownOperation(std::move(ordinary));
        case UnexpectedKind::kTruncated:
            return Truncated(ordinary);
        case UnexpectedKind::kOversized: {
            // A block of a write whose data runs past the end of the daemon's buffer.
            tarvo_message::FileWriteRequest* write =
                ordinary.mutable_file()->mutable_write_request();
            write->set_file_name("a.bin");
            write->set_file_dir(tarvo_message::FILE_DIR_MDS);
            write->set_total_size(kLargestMessage * 2);
            write->set_offset(0);
            Step step;
            *step.mutable_send_generated()->mutable_message() = std::move(ordinary);
            step.mutable_send_generated()->mutable_data()->set_random_seed(random_());
            step.mutable_send_generated()->mutable_data()->set_size(kLargestMessage +
                                                                    Uniform(1, 4096));
            return step;
        }
        case UnexpectedKind::kUnparsablePayload: {
            // The file payload first, holding a field of a wire type that no message has; the
            // header after it is never reached.
            std::string payload = "\x0f" + std::string(Uniform(0, 20), 'x');
            std::string bytes = "\x4a";
            bytes += static_cast<char>(payload.size());
            return RawStep(bytes + payload + ordinary.SerializeAsString());
        }
    }
    return SendStep(std::move(ordinary));
}

Step UnexpectedTraffic::UnknownFamily(TarvoMessage message) {
    // `message` is a request of a family that the daemon serves.
    switch (Uniform(0, 3)) {
        case 0:
            // Requests of families that only the daemon sends or that only indicate.
            message.clear_payload();
            switch (Uniform(0, 4)) {
                case 0:
                    message.mutable_modem_stat()->mutable_enable_request();
                    break;
                case 1:
                    message.mutable_extended_log()->mutable_request();
                    break;
                case 2:
                    message.mutable_userspace_log()->mutable_indication()->set_log("x");
                    break;
                case 3:
                    message.mutable_modem_test()->mutable_tput_request();
                    break;
                default:
                    break;
            }
            break;
        case 1:
            // Indications of families that only answer requests.
            message.set_type(tarvo_message::INDICATION);
            switch (Uniform(0, 7)) {
                case 0:
                    message.mutable_modem_temperature()->mutable_set_request();
                    break;
                case 1:
                    message.mutable_modem_test()->mutable_tput_request();
                    break;
                case 2:
                    message.mutable_uecap_file()->mutable_read_request()->set_file_name("x");
                    break;
                case 3:
                    message.clear_payload();
                    break;
                default:
                    break;
            }
            break;
        case 2:
            message.clear_type();
            break;
        default:
            message.set_type(static_cast<tarvo_message::TarvoMessageType>(kUnknownType));
            break;
    }
    return SendStep(std::move(message));
}

Step UnexpectedTraffic::UnknownOperation(TarvoMessage message) {
    message.clear_payload();
    switch (Uniform(0, 4)) {
        case 0:
            message.mutable_file()->mutable_write_response()->set_result(
                tarvo_message::FileMessageResult(0));
            break;
        case 1:
            message.mutable_file()->mutable_write_indication()->set_file_name("a.bin");
            break;
        case 2:
            message.mutable_file()->mutable_read_response()->set_data("x");
            break;
        case 3:
            message.mutable_file();
            break;
        default:
            message.mutable_uecap_file()->mutable_read_response()->set_data("x");
            break;
    }
    return SendStep(std::move(message));
}

Step UnexpectedTraffic::Truncated(const TarvoMessage& message) {
    // Cut after a field of the envelope, where what is left parses as the fields before it, or
    // inside the first, where nothing parses.
    std::vector<size_t> cuts = {1};
    TarvoMessage prefix;
    prefix.set_type(message.type());
    cuts.push_back(prefix.ByteSizeLong());
    prefix.set_token(message.token());
    cuts.push_back(prefix.ByteSizeLong());
    return RawStep(message.SerializeAsString().substr(0, cuts[Uniform(0, cuts.size() - 1)]));
}

}  // namespace tarvo_emu
