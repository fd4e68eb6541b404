#include "peers/modem_side.h"

#include <google/protobuf/util/message_differencer.h>

#include <fmt/format.h>

using tarvo_message::TarvoMessage;

namespace tarvo_emu {

namespace {

// The reply a rule makes to `request`, or nothing for no reply.
std::optional<TarvoMessage> MakeReply(const TarvoMessage& request, const AutoReply& rule) {
    if (rule.no_reply) return std::nullopt;
    TarvoMessage reply;
    reply.set_type(tarvo_message::RESPONSE);
    reply.set_message_id(request.payload_case());
    if (request.has_token()) reply.set_token(request.token());
    reply.set_result(static_cast<tarvo_message::TarvoResult>(rule.result));
    // An empty payload of the request's case.
    const google::protobuf::FieldDescriptor* field =
        TarvoMessage::descriptor()->FindFieldByNumber(request.payload_case());
    if (field != nullptr) reply.GetReflection()->MutableMessage(&reply, field);
    reply.MergeFrom(rule.overrides);
    return reply;
}

}  // namespace

bool PartiallyMatches(const TarvoMessage& partial, const TarvoMessage& message) {
    google::protobuf::util::MessageDifferencer differencer;
    differencer.set_scope(google::protobuf::util::MessageDifferencer::PARTIAL);
    return differencer.Compare(partial, message);
}

ModemSide::ModemSide(IpcNode* ipc, Transcript* transcript) : ipc_(ipc), transcript_(transcript) {}

ModemSide::~ModemSide() { Stop(); }

void ModemSide::Stop() { replies_.Stop(); }

void ModemSide::OnUplink(std::string_view bytes) {
    TarvoMessage message;
    if (!message.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))) {
        transcript_->Note(fmt::format("tarvo > modem: {} bytes that do not parse", bytes.size()));
        return;
    }
    transcript_->Message(Transcript::Direction::kFromDaemon, message);
    // The reply is chosen before the request becomes visible, so that a step that awaits the
    // request and then changes the rules changes them for later requests only.
    std::optional<TarvoMessage> reply;
    AutoReply rule;
    if (message.type() == tarvo_message::REQUEST) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            auto it = rules_.find(message.payload_case());
            if (it == rules_.end()) it = rules_.find(kAnyPayload);
            if (it != rules_.end()) rule = it->second;
        }
        reply = MakeReply(message, rule);
    }
    if (observer_) observer_(message);
    received_.Add(message);
    if (reply) Schedule(std::move(*reply), rule.delay);
}

void ModemSide::Send(const TarvoMessage& message) {
    transcript_->Message(Transcript::Direction::kToDaemon, message);
    ipc_->Push(message.SerializeAsString());
}

void ModemSide::SendRaw(const std::string& bytes) {
    transcript_->Raw(Transcript::Direction::kToDaemon, bytes);
    ipc_->Push(bytes);
}

std::optional<TarvoMessage> ModemSide::Await(const TarvoMessage& partial,
                                             std::chrono::milliseconds timeout) {
    return received_.Take(
        [&partial](const TarvoMessage& message) { return PartiallyMatches(partial, message); },
        timeout);
}

void ModemSide::SetAutoReply(int payload_case, AutoReply rule) {
    std::lock_guard<std::mutex> lock(mutex_);
    rules_[payload_case] = std::move(rule);
}

void ModemSide::Schedule(TarvoMessage reply, std::chrono::milliseconds delay) {
    replies_.After(delay, [this, reply = std::move(reply)] { Send(reply); });
}

TputModem::TputModem(TestNode* node, TputSettings settings)
    : node_(node), settings_(std::move(settings)) {
    for (uint64_t index : settings_.fail_writes) node_->FailWrite(index);
}

bool TputModem::IsTputRequest(const tarvo_message::TarvoMessage& message, bool downlink,
                              bool stop) {
    if (message.type() != tarvo_message::REQUEST || !message.modem_test().has_tput_request()) {
        return false;
    }
    const tarvo_message::ModemTestTputRequest& request = message.modem_test().tput_request();
    return request.downlink() == downlink && request.stop() == stop;
}

void TputModem::OnDaemonMessage(const tarvo_message::TarvoMessage& message) {
    if (IsTputRequest(message, true, false) && !settings_.no_downlink) {
        node_->StartDownlink(settings_.downlink_block_size, settings_.downlink_bytes_per_s);
    } else if (IsTputRequest(message, true, true)) {
        node_->StopDownlink();
    }
}

}  // namespace tarvo_emu
