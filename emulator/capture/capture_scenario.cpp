#include "capture/capture_scenario.h"

#include <signal.h>

#include <google/protobuf/util/message_differencer.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <map>
#include <set>
#include <variant>
#include <vector>

#include "capture/capture_reader.h"
#include "device/device_facts.h"
#include "scenario/scenario.pb.h"
#include "scenario/scenario_text.h"
#include "scenario/step_handlers.h"

using tarvo_message::TarvoMessage;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

// A modem that answers sooner than this is answered by the rig after its default delay: the
// difference is noise between a device and the host.
constexpr double kReplyDelayKept = 0.1;
// A pause before the modem's next action that is kept as a sleep.
constexpr double kPauseKept = 0.1;

// One line of the scenario: a step, or a comment.
using Line = std::variant<Step, std::string>;

bool IsAction(const Step& step) {
    return step.has_send() || step.has_send_raw() || step.has_fault() || step.has_modem_state() ||
           step.has_signal_daemon() || step.has_sleep_ms();
}

// How the modem answered one request of the daemon, as the rule that makes that answer.
tarvo_scenario::AutoReply RuleOf(const TarvoMessage& request, const TarvoMessage* reply,
                                 double delay) {
    tarvo_scenario::AutoReply rule;
    rule.set_payload_case(request.payload_case());
    if (reply == nullptr) {
        rule.set_no_reply(true);
        return rule;
    }
    if (reply->result() != 0) rule.set_result(reply->result());
    if (delay >= kReplyDelayKept)
        rule.set_delay_ms(static_cast<uint32_t>(std::lround(delay * 1e3)));
    TarvoMessage overrides = *reply;
    overrides.clear_token();
    overrides.clear_result();
    if (overrides.type() == tarvo_message::RESPONSE) overrides.clear_type();
    if (overrides.message_id() == static_cast<uint32_t>(request.payload_case())) {
        overrides.clear_message_id();
    }
    // The rig answers with an empty payload of the request's case: only more is worth saying.
    TarvoMessage empty;
    const google::protobuf::FieldDescriptor* field =
        TarvoMessage::descriptor()->FindFieldByNumber(request.payload_case());
    if (field != nullptr) empty.GetReflection()->MutableMessage(&empty, field);
    if (!google::protobuf::util::MessageDifferencer::Equals(overrides, empty)) {
        *rule.mutable_reply() = overrides;
    }
    return rule;
}

// The modem's messages of a capture as a scenario, one event at a time.
class CaptureScenario {
  public:
    explicit CaptureScenario(const Capture& capture);

    // The scenario's text, with `source` named in its header.
    std::string Text(const std::string& source);

  private:
    using Kind = CaptureEvent::Kind;

    bool IsRequest(size_t i, Kind from) const {
        return events_[i].kind == from && messages_[i] &&
               messages_[i]->type() == tarvo_message::REQUEST && messages_[i]->has_token();
    }
    // Pairs the answers to each side's requests with them, by token.
    void PairReplies();
    void Add(Step step);
    void Comment(const std::string& text) { lines_.emplace_back(text); }
    // A step that must be in place before whatever led the daemon to its next move.
    void BeforeCause(Step step);
    // A sleep for the modem's pause before `event`, when it is long enough to keep.
    void Pause(const CaptureEvent& event);

    void ToDaemon(size_t i);
    // What the daemon read for the modem's request `i`, answered with success, was there before
    // the session unless the session wrote it: it becomes setup.
    void LearnSetup(const TarvoMessage& request, const TarvoMessage& answer);
    void FromDaemon(size_t i);
    void Event(size_t i);

    const std::vector<CaptureEvent>& events_;
    std::vector<std::optional<TarvoMessage>> messages_;
    std::map<size_t, size_t> replies_;  // request's event -> answer's event
    std::set<size_t> answers_;          // the modem's answers, not sent by steps

    tarvo_scenario::Scenario setup_;
    std::map<std::string, std::string> properties_;
    std::set<std::string> written_;  // properties and files that the session itself wrote
    std::map<std::string, std::string> files_;
    std::vector<Line> lines_;
    std::map<int, tarvo_scenario::AutoReply> rules_;
    std::optional<size_t> last_action_;  // index in `lines_`
    std::optional<double> last_time_;
    bool state_known_ = false;
};

CaptureScenario::CaptureScenario(const Capture& capture)
    : events_(capture.events), messages_(events_.size()) {
    for (size_t i = 0; i < events_.size(); ++i) {
        if (events_[i].kind != Kind::kToDaemon && events_[i].kind != Kind::kFromDaemon) continue;
        TarvoMessage message;
        if (message.ParseFromString(events_[i].bytes)) messages_[i] = std::move(message);
    }
    PairReplies();
}

void CaptureScenario::PairReplies() {
    // The modem's answers become rules; the daemon's show the properties and files it read.
    for (const Kind from : {Kind::kFromDaemon, Kind::kToDaemon}) {
        const Kind to = from == Kind::kFromDaemon ? Kind::kToDaemon : Kind::kFromDaemon;
        std::map<uint32_t, size_t> open;
        for (size_t i = 0; i < events_.size(); ++i) {
            if (IsRequest(i, from)) open[messages_[i]->token()] = i;
            if (events_[i].kind != to || !messages_[i] ||
                messages_[i]->type() != tarvo_message::RESPONSE) {
                continue;
            }
            const auto request = open.find(messages_[i]->token());
            if (request == open.end()) continue;
            replies_[request->second] = i;
            if (to == Kind::kToDaemon) answers_.insert(i);
            open.erase(request);
        }
    }
}

void CaptureScenario::Add(Step step) {
    if (IsAction(step)) last_action_ = lines_.size();
    lines_.emplace_back(std::move(step));
}

void CaptureScenario::BeforeCause(Step step) {
    const size_t at = last_action_ ? *last_action_ : 0;
    lines_.insert(lines_.begin() + at, std::move(step));
    if (last_action_) ++*last_action_;
}

void CaptureScenario::Pause(const CaptureEvent& event) {
    if (!event.time || !last_time_ || *event.time - *last_time_ < kPauseKept) return;
    Step step;
    step.set_sleep_ms(static_cast<uint32_t>(std::lround((*event.time - *last_time_) * 1e3)));
    Add(std::move(step));
}

void CaptureScenario::ToDaemon(size_t i) {
    if (answers_.count(i) != 0) return;
    Pause(events_[i]);
    Step step;
    if (messages_[i]) {
        *step.mutable_send() = *messages_[i];
    } else {
        step.set_send_raw(events_[i].bytes);
    }
    Add(std::move(step));
    const auto reply = replies_.find(i);
    if (!messages_[i] || reply == replies_.end()) return;
    const TarvoMessage& answer = *messages_[reply->second];
    if (answer.result() == tarvo_message::RESULT_SUCCESS) LearnSetup(*messages_[i], answer);
}

void CaptureScenario::LearnSetup(const TarvoMessage& request, const TarvoMessage& answer) {
    if (request.property().has_write_request()) {
        written_.insert(request.property().write_request().name());
    }
    if (request.property().has_read_request() && answer.property().has_read_response()) {
        const std::string& name = request.property().read_request().name();
        if (written_.count(name) == 0 && properties_.count(name) == 0) {
            properties_[name] = answer.property().read_response().value();
        }
    }
    const std::optional<std::string> directory = FileDirectory(
        request.file().has_write_request() ? request.file().write_request().file_dir()
                                           : request.file().read_request().file_dir());
    if (!directory) return;
    if (request.file().has_write_request()) {
        written_.insert(*directory + request.file().write_request().file_name());
    }
    if (!request.file().has_read_request() || !answer.file().has_read_response() ||
        !answer.file().read_response().has_data()) {
        return;
    }
    const std::string path = *directory + request.file().read_request().file_name();
    if (written_.count(path) != 0) return;
    std::string& content = files_[path];
    const size_t offset = request.file().read_request().offset();
    const std::string& data = answer.file().read_response().data();
    if (content.size() < offset + data.size()) content.resize(offset + data.size());
    content.replace(offset, data.size(), data);
}

void CaptureScenario::FromDaemon(size_t i) {
    const CaptureEvent& event = events_[i];
    if (!messages_[i]) {
        const auto [label, text] = DescribeEvent(event, false);
        Comment(label + ": " + text + " (bytes that do not parse)");
        return;
    }
    if (IsRequest(i, Kind::kFromDaemon)) {
        const auto reply = replies_.find(i);
        const tarvo_scenario::AutoReply rule =
            reply == replies_.end()
                ? RuleOf(*messages_[i], nullptr, 0)
                : RuleOf(*messages_[i], &*messages_[reply->second],
                         events_[reply->second].time.value_or(0) - event.time.value_or(0));
        tarvo_scenario::AutoReply standing;
        standing.set_payload_case(rule.payload_case());
        if (rules_.count(rule.payload_case()) != 0) standing = rules_[rule.payload_case()];
        if (!google::protobuf::util::MessageDifferencer::Equals(rule, standing)) {
            rules_[rule.payload_case()] = rule;
            Step reply_step;
            *reply_step.mutable_auto_reply() = rule;
            BeforeCause(std::move(reply_step));
        }
    }
    std::optional<std::chrono::milliseconds> timeout;
    if (event.time && last_time_) {
        timeout = ReplayTimeout(std::chrono::milliseconds(
            static_cast<int64_t>(std::lround((*event.time - *last_time_) * 1e3))));
    }
    Add(ExpectStep(*messages_[i], timeout));
}

void CaptureScenario::Event(size_t i) {
    const CaptureEvent& event = events_[i];
    const auto [label, text] = DescribeEvent(event, false);
    Step step;
    switch (event.kind) {
        case Kind::kToDaemon:
            ToDaemon(i);
            break;
        case Kind::kFromDaemon:
            FromDaemon(i);
            break;
        case Kind::kFault:
            step.set_fault(SchemaFault(event.fault));
            break;
        case Kind::kModemState:
            if (state_known_) {
                step.set_modem_state(event.state);
            } else {
                setup_.set_initial_state(event.state);
                state_known_ = true;
            }
            break;
        case Kind::kSignal:
            if (event.state == SIGUSR1 || event.state == SIGUSR2 || event.state == SIGWINCH) {
                step.set_signal_daemon(event.state);
            } else {
                Comment(text);
            }
            break;
        case Kind::kLog:
            Comment((label.empty() ? "" : label + ": ") + text);
            break;
        case Kind::kNote:
            Comment(text);
            break;
    }
    if (step.has_fault() && event.fault == Fault::kWriteError) {
        // A write's failure is armed before the write that met it.
        BeforeCause(std::move(step));
    } else if (step.action_case() != Step::ACTION_NOT_SET) {
        Pause(event);
        Add(std::move(step));
    }
    if (event.time) last_time_ = event.time;
}

std::string CaptureScenario::Text(const std::string& source) {
    for (size_t i = 0; i < events_.size(); ++i) Event(i);
    for (const auto& [name, value] : properties_) {
        tarvo_scenario::Property* property = setup_.add_property();
        property->set_name(name);
        property->set_value(value);
    }
    for (const auto& [path, content] : files_) {
        tarvo_scenario::SeedFile* file = setup_.add_file();
        file->set_path(path);
        file->set_content(content);
    }
    std::string header = "Decoded by tarvo-emu from " + source +
                         ": the modem's messages as steps, the daemon's as\n"
                         "expectations, the modem's answers to its requests as rules, and the "
                         "properties and files\nits answers show as setup. Play it with "
                         "`tarvo-emu run FILE`.";
    if (!state_known_) header += "\nThe capture holds no state of the boot node: 0 is assumed.";
    ScenarioFile file(header, setup_);
    for (const Line& line : lines_) {
        if (const Step* step = std::get_if<Step>(&line)) {
            file.AddStep(*step);
        } else {
            file.AddComment(std::get<std::string>(line));
        }
    }
    return file.text();
}

}  // namespace

std::string CaptureScenarioText(const Capture& capture, const std::string& source) {
    return CaptureScenario(capture).Text(source);
}

}  // namespace tarvo_emu
