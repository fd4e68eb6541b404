#include "scenario/message_steps.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <vector>

#include <google/protobuf/util/message_differencer.h>

#include <fmt/format.h>

#include <android-base/result.h>

#include "scenario/generated_data.h"
#include "scenario/near_miss.h"
#include "scenario/step_wait.h"

using android::base::Error;
using android::base::Result;
using std::chrono::milliseconds;

namespace tarvo_emu {

namespace {

// The innermost message set in `message`: the request or indication that its payload holds.
google::protobuf::Message* InnermostPayload(google::protobuf::Message* message) {
    while (true) {
        const google::protobuf::Reflection* reflection = message->GetReflection();
        std::vector<const google::protobuf::FieldDescriptor*> fields;
        reflection->ListFields(*message, &fields);
        const auto nested = std::find_if(fields.begin(), fields.end(), [](const auto* field) {
            return field->cpp_type() == google::protobuf::FieldDescriptor::CPPTYPE_MESSAGE &&
                   !field->is_repeated();
        });
        if (nested == fields.end()) return message;
        message = reflection->MutableMessage(message, *nested);
    }
}

// The payloads of both messages equal, field presence included; headers are not compared.
bool PayloadsEqual(const tarvo_message::TarvoMessage& a, const tarvo_message::TarvoMessage& b) {
    return google::protobuf::util::MessageDifferencer::Equals(PayloadOnly(a), PayloadOnly(b));
}

}  // namespace

Result<void> PlaySend(StepPlayer& player, const StepCall& call) {
    player.rig().Send(call.step.send());
    return {};
}

Result<void> PlaySendRaw(StepPlayer& player, const StepCall& call) {
    player.rig().modem().SendRaw(call.step.send_raw());
    return {};
}

Result<void> PlaySendGenerated(StepPlayer& player, const StepCall& call) {
    using google::protobuf::FieldDescriptor;
    const tarvo_scenario::GeneratedSend& send = call.step.send_generated();
    Rig& rig = player.rig();
    const std::string data = GeneratedBytes(send.data());
    tarvo_message::TarvoMessage message = send.message();
    google::protobuf::Message* payload = InnermostPayload(&message);
    const FieldDescriptor* data_field = payload->GetDescriptor()->FindFieldByName("data");
    if (data_field == nullptr || data_field->type() != FieldDescriptor::TYPE_BYTES) {
        return Error() << payload->GetDescriptor()->name() << " has no data field";
    }
    const google::protobuf::Reflection* reflection = payload->GetReflection();
    if (!send.has_block_size()) {
        reflection->SetString(payload, data_field, data);
        rig.Send(message);
        return {};
    }
    if (send.block_size() == 0) return Error() << "block_size 0";
    const FieldDescriptor* offset_field = payload->GetDescriptor()->FindFieldByName("offset");
    if (offset_field == nullptr || offset_field->type() != FieldDescriptor::TYPE_UINT32) {
        return Error() << payload->GetDescriptor()->name() << " has no offset field";
    }
    const uint32_t first_offset = reflection->GetUInt32(*payload, offset_field);
    const milliseconds timeout = StepTimeout(send.has_timeout_ms(), send.timeout_ms());
    const uint32_t first_token = message.token();
    for (size_t start = 0, block = 0; start < data.size(); start += send.block_size(), ++block) {
        const uint32_t token = first_token + block;
        message.set_token(token);
        reflection->SetUInt32(payload, offset_field, first_offset + start);
        reflection->SetString(payload, data_field, data.substr(start, send.block_size()));
        rig.Send(message);
        const auto answers = [token](const tarvo_message::TarvoMessage& response) {
            return response.type() == tarvo_message::RESPONSE && response.token() == token;
        };
        if (!player.WaitUnlessCancelled(
                timeout, [&](milliseconds slice) { return rig.modem().WaitFor(answers, slice); })) {
            return Errorf("no response to the block at {} (token {}) within {} ms", start, token,
                          timeout.count());
        }
        const auto succeeded = [&answers](const tarvo_message::TarvoMessage& response) {
            return answers(response) && response.result() == 0;
        };
        if (!rig.modem().Await(succeeded, milliseconds(0))) {
            rig.transcript().Note(
                fmt::format("the block at {} was not a success: transfer ended", start));
            return {};
        }
    }
    return {};
}

Result<void> PlayAutoReply(StepPlayer& player, const StepCall& call) {
    const tarvo_scenario::AutoReply& step = call.step.auto_reply();
    AutoReply rule;
    rule.no_reply = step.no_reply();
    rule.result = step.result();
    if (step.has_delay_ms()) rule.delay = milliseconds(step.delay_ms());
    rule.overrides = step.reply();
    player.rig().SetAutoReply(step.payload_case(), std::move(rule));
    return {};
}

Result<void> PlayExpect(StepPlayer& player, const StepCall& call) {
    const tarvo_scenario::Expect& expect = call.step.expect();
    Rig& rig = player.rig();
    const milliseconds timeout = StepTimeout(expect.has_timeout_ms(), expect.timeout_ms());
    if (expect.exact_payload()) {
        tarvo_message::TarvoMessage header = expect.message();
        header.clear_payload();
        const auto matches = [&](const tarvo_message::TarvoMessage& message) {
            return PartiallyMatches(header, message) && PayloadsEqual(expect.message(), message);
        };
        if (player.WaitUnlessCancelled(timeout, [&](milliseconds slice) {
                return rig.modem().Await(matches, slice).has_value();
            })) {
            return {};
        }
    } else if (player.WaitUnlessCancelled(timeout, [&](milliseconds slice) {
                   return rig.AwaitMessage(expect.message(), slice).has_value();
               })) {
        return {};
    }
    return Errorf("no such message from the daemon within {} ms", timeout.count())
           << NearestMessages(rig.modem().untaken(), expect.message(), expect.exact_payload());
}

Result<void> PlayExpectSilence(StepPlayer& player, const StepCall& call) {
    const auto& received = player.rig().modem().received_events();
    const size_t before = received.size();
    player.WaitUnlessCancelled(
        milliseconds(call.step.expect_silence_ms()), [&](milliseconds slice) {
            return player.rig().modem().NextNew(slice).has_value() || received.size() > before;
        });
    if (received.size() == before) return {};
    return Error() << "the daemon sent { " << ShortText(received.All()[before]) << " }";
}

}  // namespace tarvo_emu
