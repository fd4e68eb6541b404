#include "scenario/step_handlers.h"

#include <chrono>
#include <thread>

#include <fmt/format.h>

#include <android-base/result.h>

#include "process/process_usage.h"

using android::base::Error;
using android::base::Result;
using std::chrono::milliseconds;

namespace tarvo_emu {

namespace {

// How often the usage is read again while it differs.
constexpr milliseconds kUsagePollInterval{50};

UsageMark UsageOf(pid_t pid) {
    const ProcessUsage process = ReadProcessUsage(pid).value_or(ProcessUsage{});
    return {pid, process.descriptors, process.threads, process.rss_kib};
}

// Whether the usage `now` is within the step's tolerances of that at the mark.
Result<void> CompareUsage(const tarvo_scenario::ExpectUsage& expect, const UsageMark& before,
                          const UsageMark& now) {
    const auto differs = [](size_t a, size_t b, uint32_t tolerance) {
        return (a > b ? a - b : b - a) > tolerance;
    };
    if (differs(now.descriptors, before.descriptors, expect.descriptors_tolerance()) ||
        differs(now.threads, before.threads, expect.threads_tolerance())) {
        return Errorf("{} descriptors and {} threads, {} and {} at the mark", now.descriptors,
                      now.threads, before.descriptors, before.threads);
    }
#ifndef TARVO_SANITIZED
    if (expect.has_rss_growth_below_kib() &&
        now.rss_kib - before.rss_kib >= expect.rss_growth_below_kib()) {
        return Errorf("resident memory grew from {} KiB to {} KiB", before.rss_kib, now.rss_kib);
    }
#endif
    return {};
}

}  // namespace

Result<void> PlayMark(StepPlayer& player, const tarvo_scenario::Step& step) {
    const std::string& name = step.mark();
    Result<pid_t> pid = player.AwaitDaemonPid();
    if (!pid.ok()) return pid.error();
    UsageMark usage = UsageOf(*pid);
    usage.log_lines = player.rig().log_events().size();
    player.rig().transcript().Note(
        fmt::format("mark {}: pid {}, {} descriptors, {} threads, {} KiB", name, *pid,
                    usage.descriptors, usage.threads, usage.rss_kib));
    player.state().marks[name] = usage;
    return {};
}

Result<void> PlayExpectUsage(StepPlayer& player, const tarvo_scenario::Step& step) {
    const tarvo_scenario::ExpectUsage& expect = step.expect_usage();
    const auto& marks = player.state().marks;
    const auto mark = marks.find(expect.mark());
    if (mark == marks.end()) return Error() << "no mark \"" << expect.mark() << "\"";
    const UsageMark& before = mark->second;
    const auto deadline = std::chrono::steady_clock::now() +
                          StepTimeout(expect.has_timeout_ms(), expect.timeout_ms());
    Rig& rig = player.rig();
    while (true) {
        if (const std::optional<pid_t> now = rig.daemon_pid(); now != before.pid) {
            return Errorf("the daemon is pid {}, not {} as at the mark",
                          now ? std::to_string(*now) : "not known", before.pid);
        }
        const Result<void> held = CompareUsage(expect, before, UsageOf(before.pid));
        if (held.ok() || std::chrono::steady_clock::now() >= deadline) return held;
        std::this_thread::sleep_for(kUsagePollInterval);
    }
}

}  // namespace tarvo_emu
