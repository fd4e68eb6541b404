#include "scenario/step_handlers.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <google/protobuf/util/message_differencer.h>

#include <fmt/format.h>

#include <android-base/result.h>

#include "peers/transcript.h"
#include "scenario/generated_data.h"
#include "scenario/near_miss.h"
#include "scenario/payload_fields.h"
#include "scenario/step_check.h"

using android::base::Error;
using android::base::Result;
using std::chrono::milliseconds;

namespace tarvo_emu {

namespace {

// Whether the daemon's `response` to the read of `expected` at `start` (token `token`) holds
// exactly those bytes.
Result<void> CheckReadBlock(const std::optional<tarvo_message::TarvoMessage>& response,
                            const std::string& expected, size_t start, uint32_t token,
                            milliseconds timeout) {
    if (!response) {
        return Errorf("no response to the read at {} (token {}) within {} ms", start, token,
                      timeout.count());
    }
    if (response->result() != 0) {
        return Errorf("the read at {} (token {}) failed: {{ {} }}", start, token,
                      ShortText(*response));
    }
    const std::optional<std::string> read = PayloadData(*response);
    if (!read) return Errorf("the response to the read at {} holds no data", start);
    if (*read != expected) {
        return Errorf("the read at {} (token {}) holds other bytes: ", start, token)
               << FirstDifference(*read, expected, start);
    }
    return {};
}

// The payloads of both messages equal, field presence included; headers are not compared.
bool PayloadsEqual(const tarvo_message::TarvoMessage& a, const tarvo_message::TarvoMessage& b) {
    return google::protobuf::util::MessageDifferencer::Equals(PayloadOnly(a), PayloadOnly(b));
}

}  // namespace

Result<void> PlaySend(StepPlayer& player, const tarvo_scenario::Step& step) {
    player.NoteStimulus();
    player.rig().modem().Send(step.send());
    return {};
}

Result<void> PlaySendRaw(StepPlayer& player, const tarvo_scenario::Step& step) {
    player.NoteStimulus();
    player.rig().modem().SendRaw(step.send_raw());
    return {};
}

// A payload without a data field makes a read train: each block is asked for by its
// max_data_size and read back.
Result<void> PlaySendGenerated(StepPlayer& player, const tarvo_scenario::Step& step) {
    using google::protobuf::FieldDescriptor;
    const tarvo_scenario::GeneratedSend& send = step.send_generated();
    if (Result<void> playable = CheckGeneratedSend(send); !playable.ok()) return playable;
    player.NoteStimulus();
    Rig& rig = player.rig();
    const std::string data = GeneratedBytes(send.data());
    tarvo_message::TarvoMessage message = send.message();
    google::protobuf::Message* payload = InnermostPayload(&message);
    const google::protobuf::Reflection* reflection = payload->GetReflection();
    const Result<const FieldDescriptor*> data_field =
        TransferField(*payload, "data", FieldDescriptor::TYPE_BYTES);
    const bool read = !data_field.ok();
    if (!read && !send.has_block_size()) {
        reflection->SetString(payload, *data_field, data);
        rig.modem().Send(message);
        return {};
    }
    const FieldDescriptor* offset_field =
        *TransferField(*payload, "offset", FieldDescriptor::TYPE_UINT32);
    const uint32_t first_offset = reflection->GetUInt32(*payload, offset_field);
    const milliseconds timeout = StepTimeout(send.has_timeout_ms(), send.timeout_ms());
    const uint32_t first_token = message.token();
    EventList<tarvo_message::TarvoMessage>& received = rig.modem().received_events();
    for (size_t start = 0, block = 0; start < data.size(); start += send.block_size(), ++block) {
        const std::string bytes = data.substr(start, send.block_size());
        const uint32_t token = first_token + block;
        message.set_token(token);
        reflection->SetUInt32(payload, offset_field, first_offset + start);
        if (read) {
            reflection->SetUInt32(
                payload, *TransferField(*payload, "max_data_size", FieldDescriptor::TYPE_UINT32),
                bytes.size());
        } else {
            reflection->SetString(payload, *data_field, bytes);
        }
        rig.modem().Send(message);
        const auto answers = [token](const tarvo_message::TarvoMessage& response) {
            return response.type() == tarvo_message::RESPONSE && response.token() == token;
        };
        if (read) {
            Result<void> checked =
                CheckReadBlock(received.Take(answers, timeout), bytes, start, token, timeout);
            if (!checked.ok()) return checked;
            continue;
        }
        if (!player.WaitUnlessCancelled(
                timeout, [&](milliseconds slice) { return received.Wait(answers, slice); })) {
            return Errorf("no response to the block at {} (token {}) within {} ms", start, token,
                          timeout.count());
        }
        const auto succeeded = [&answers](const tarvo_message::TarvoMessage& response) {
            return answers(response) && response.result() == 0;
        };
        if (!received.Take(succeeded, milliseconds(0))) {
            rig.transcript().Note(
                fmt::format("the block at {} was not a success: transfer ended", start));
            return {};
        }
    }
    return {};
}

Result<void> PlayAutoReply(StepPlayer& player, const tarvo_scenario::Step& step) {
    const tarvo_scenario::AutoReply& reply = step.auto_reply();
    AutoReply rule;
    rule.no_reply = reply.no_reply();
    rule.result = reply.result();
    if (reply.has_delay_ms()) rule.delay = milliseconds(reply.delay_ms());
    rule.overrides = reply.reply();
    player.rig().modem().SetAutoReply(reply.payload_case(), std::move(rule));
    return {};
}

Result<void> PlayExpect(StepPlayer& player, const tarvo_scenario::Step& step) {
    const tarvo_scenario::Expect& expect = step.expect();
    Rig& rig = player.rig();
    const milliseconds timeout = StepTimeout(expect.has_timeout_ms(), expect.timeout_ms());
    std::optional<std::string> data;
    if (expect.has_data()) data = GeneratedBytes(expect.data());
    EventList<tarvo_message::TarvoMessage>& received = rig.modem().received_events();
    tarvo_message::TarvoMessage header = expect.message();
    header.clear_payload();
    // Every field but the generated data, which is compared apart.
    const auto matches_but_data = [&](const tarvo_message::TarvoMessage& message) {
        if (!expect.exact_payload()) return PartiallyMatches(expect.message(), message);
        return PartiallyMatches(header, message) && PayloadsEqual(expect.message(), message);
    };
    const auto matches = [&](const tarvo_message::TarvoMessage& message) {
        return matches_but_data(message) && (!data || PayloadData(message) == data);
    };
    if (player.WaitUnlessCancelled(timeout, [&](milliseconds slice) {
            return received.Take(matches, slice).has_value();
        })) {
        return {};
    }
    Error failure;
    failure << fmt::format("no such message from the daemon within {} ms", timeout.count());
    const std::vector<tarvo_message::TarvoMessage> untaken = received.Untaken();
    if (data) {
        const auto near = std::find_if(untaken.begin(), untaken.end(), matches_but_data);
        if (near != untaken.end()) {
            const std::optional<std::string> sent = PayloadData(*near);
            return failure << "; the earliest that matches but for its data, token "
                           << near->token() << ": "
                           << (sent ? FirstDifference(*sent, *data) : "it has no data field");
        }
    }
    return failure << NearestMessages(untaken, expect.message(), expect.exact_payload());
}

Result<void> PlayExpectSilence(StepPlayer& player, const tarvo_scenario::Step& step) {
    auto& received = player.rig().modem().received_events();
    const size_t before = received.size();
    const size_t since = std::min(player.state().messages_before_stimulus, before);
    // An answer to the last stimulus that no step took breaks the silence, however soon it came.
    if (received.Untaken(since).empty()) {
        player.WaitUnlessCancelled(milliseconds(step.expect_silence_ms()), [&](milliseconds slice) {
            return received.NextNew(slice).has_value() || received.size() > before;
        });
        if (received.size() == before) return {};
    }
    // No step takes a message while this one waits: the earliest untaken is the one to name.
    return Error() << "the daemon sent { " << ShortText(received.Untaken(since).front()) << " }";
}

Result<void> PlayExpectAllTaken(StepPlayer& player, const tarvo_scenario::Step&) {
    const std::vector<tarvo_message::TarvoMessage> untaken =
        player.rig().modem().received_events().Untaken();
    if (untaken.empty()) return {};
    // Named by its type and innermost payload, so that one such divergence is told from another.
    const tarvo_message::TarvoMessage& first = untaken.front();
    const google::protobuf::Message* payload = InnermostPayload(&first);
    return Errorf("the daemon sent a {} {} that no step took: {{ {} }}, {} such in all",
                  tarvo_message::TarvoMessageType_Name(first.type()),
                  payload != &first ? payload->GetDescriptor()->name() : "without payload",
                  ShortText(first), untaken.size());
}

}  // namespace tarvo_emu
