#include "scenario/step_handlers.h"

#include <chrono>
#include <optional>

#include <android-base/result.h>

using android::base::Result;
using std::chrono::milliseconds;

namespace tarvo_emu {

Result<void> PlayRilReply(StepPlayer& player, const tarvo_scenario::Step& step) {
    const tarvo_scenario::RilReply& reply = step.ril_reply();
    RilReplyRule rule;
    rule.error = reply.error();
    if (reply.has_delay_ms()) rule.delay = milliseconds(reply.delay_ms());
    rule.no_reply = reply.no_reply();
    if (reply.has_count()) rule.count = reply.count();
    player.rig().ril().SetReply(reply.request(), rule);
    return {};
}

Result<void> PlayExpectRil(StepPlayer& player, const tarvo_scenario::Step& step) {
    const tarvo_scenario::ExpectRil& expect = step.expect_ril();
    const milliseconds timeout = StepTimeout(expect.has_timeout_ms(), expect.timeout_ms());
    std::optional<std::string> data;
    if (expect.has_data()) data = expect.data();
    std::optional<RilRequest> taken;
    if (!player.WaitUnlessCancelled(timeout, [&](milliseconds slice) {
            taken = player.rig().ril().Await(expect.request(), data, slice);
            return taken.has_value();
        })) {
        return Errorf("no such RIL request within {} ms", timeout.count());
    }
    if (expect.has_selector() && taken->selector != expect.selector()) {
        return Errorf("RIL request {} came with selector {}, not {}", taken->request,
                      taken->selector, expect.selector());
    }
    return {};
}

Result<void> PlayExpectRilSilence(StepPlayer& player, const tarvo_scenario::Step& step) {
    auto& received = player.rig().ril().received_events();
    const size_t before = received.size();
    player.WaitUnlessCancelled(milliseconds(step.expect_ril_silence_ms()), [&](milliseconds slice) {
        return received.NextNew(slice).has_value() || received.size() > before;
    });
    if (received.size() == before) return {};
    return Errorf("the daemon sent RIL request {}", received.All()[before].request);
}

}  // namespace tarvo_emu
