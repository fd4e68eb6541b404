#include "scenario/expect_step.h"

#include "scenario/step_handlers.h"

using std::chrono::milliseconds;
using tarvo_scenario::Step;

namespace tarvo_emu {

Step ExpectStep(tarvo_message::TarvoMessage message, std::optional<milliseconds> timeout) {
    if (message.type() == tarvo_message::REQUEST) message.clear_token();
    Step step;
    tarvo_scenario::Expect* expect = step.mutable_expect();
    *expect->mutable_message() = std::move(message);
    expect->set_exact_payload(true);
    if (timeout) expect->set_timeout_ms(static_cast<uint32_t>(timeout->count()));
    return step;
}

Step ExpectStep(const RilRequest& request, std::optional<milliseconds> timeout) {
    Step step;
    tarvo_scenario::ExpectRil* expect = step.mutable_expect_ril();
    expect->set_request(request.request);
    expect->set_selector(request.selector);
    expect->set_data(request.data);
    if (timeout) expect->set_timeout_ms(static_cast<uint32_t>(timeout->count()));
    return step;
}

Step ExpectStep(const LogLine& line, const std::optional<std::string>& text_regex,
                std::optional<milliseconds> timeout) {
    Step step;
    tarvo_scenario::ExpectLog* expect = step.mutable_expect_log();
    expect->set_priority(static_cast<tarvo_scenario::Priority>(line.priority));
    if (line.tag != kDaemonTag) expect->set_tag(line.tag);
    if (text_regex) {
        expect->set_text_regex(*text_regex);
    } else {
        expect->set_text(line.text);
    }
    if (timeout) expect->set_timeout_ms(static_cast<uint32_t>(timeout->count()));
    return step;
}

std::optional<milliseconds> ReplayTimeout(milliseconds waited) {
    const milliseconds twice = 2 * waited;
    if (twice <= kDefaultStepTimeout) return std::nullopt;
    return twice;
}

}  // namespace tarvo_emu
