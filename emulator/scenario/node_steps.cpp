#include "scenario/step_handlers.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <vector>

#include <fmt/format.h>

#include <android-base/result.h>

#include "peers/transcript.h"
#include "scenario/near_miss.h"

using android::base::Result;
using std::chrono::milliseconds;

namespace tarvo_emu {

namespace {

// How often the thermal writes are looked at again.
constexpr milliseconds kThermalPollInterval{10};

}  // namespace

Result<void> PlayExpectUplink(StepPlayer& player, const tarvo_scenario::Step& step) {
    const tarvo_scenario::ExpectUplink& expect = step.expect_uplink();
    const auto holds = [&expect](const TestNode::Uplink& uplink) {
        if (expect.has_writes() && uplink.writes != expect.writes()) return false;
        if (expect.has_bytes() && uplink.bytes != expect.bytes()) return false;
        if (expect.has_failed() && uplink.failed != expect.failed()) return false;
        for (const auto& [size, writes] : expect.writes_by_size()) {
            const auto it = uplink.writes_by_size.find(size);
            if ((it == uplink.writes_by_size.end() ? 0 : it->second) != writes) return false;
        }
        return true;
    };
    const milliseconds timeout = StepTimeout(expect.has_timeout_ms(), expect.timeout_ms());
    TestNode& node = player.rig().emulator().test();
    if (node.WaitForUplink(holds, timeout)) return {};
    const TestNode::Uplink uplink = node.uplink();
    std::string sizes;
    for (const auto& [size, writes] : uplink.writes_by_size) {
        sizes += fmt::format(" {}:{}", size, writes);
    }
    return Errorf("after {} ms: writes {}, bytes {}, failed {}, by size {{{} }}", timeout.count(),
                  uplink.writes, uplink.bytes, uplink.failed, sizes);
}

Result<void> PlayExpectThermalWrites(StepPlayer& player, const tarvo_scenario::Step& step) {
    const tarvo_scenario::ExpectThermalWrites& expect = step.expect_thermal_writes();
    size_t& seen = player.state().thermal_writes_seen;
    const std::vector<std::string> expected(expect.write().begin(), expect.write().end());
    const auto deadline = std::chrono::steady_clock::now() +
                          StepTimeout(expect.has_timeout_ms(), expect.timeout_ms());
    std::vector<std::string> writes;
    while (true) {
        const std::vector<std::string> all = player.rig().emulator().temp().writes();
        writes.assign(all.begin() + std::min(seen, all.size()), all.end());
        if (writes.size() >= expected.size() || std::chrono::steady_clock::now() >= deadline) {
            seen = all.size();
            break;
        }
        std::this_thread::sleep_for(kThermalPollInterval);
    }
    if (writes == expected) return {};
    std::string shown;
    for (const std::string& write : writes) shown += " " + QuotedBytes(write);
    return Errorf("{} writes:", writes.size()) << shown;
}

}  // namespace tarvo_emu
