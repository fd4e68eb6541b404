#include "scenario/step_handlers.h"

#include <signal.h>

#include <chrono>
#include <vector>

#include <android-base/parseint.h>
#include <android-base/result.h>
#include <android-base/strings.h>
#include <fmt/format.h>

#include "process/process_usage.h"
#include "process/wait_until.h"

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using std::chrono::milliseconds;

namespace tarvo_emu {

namespace {

static_assert(tarvo_scenario::END_OF_FILE == static_cast<int>(Fault::kEndOfFile) &&
              tarvo_scenario::READ_ERROR == static_cast<int>(Fault::kReadError) &&
              tarvo_scenario::WRITE_ERROR == static_cast<int>(Fault::kWriteError) &&
              tarvo_scenario::HANG_UP == static_cast<int>(Fault::kHangUp) &&
              tarvo_scenario::Fault_MAX == static_cast<int>(Fault::kHangUp));

// A client finds the server by its pid file, which the server writes only once it has started:
// the client is run once the file holds a pid, or when the step's time is up, as on a device
// whose server never wrote it.
void AwaitServerPid(Rig& rig) {
    if (Result<pid_t> pid = rig.AwaitPidFile(kDefaultStepTimeout); !pid.ok()) {
        rig.transcript().Note(pid.error().message() + ": the client runs anyway");
    }
}

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

tarvo_scenario::Fault SchemaFault(Fault fault) { return static_cast<tarvo_scenario::Fault>(fault); }

Result<void> PlayModemState(StepPlayer& player, const tarvo_scenario::Step& step) {
    player.rig().SetModemState(step.modem_state());
    return {};
}

Result<void> PlayFault(StepPlayer& player, const tarvo_scenario::Step& step) {
    if (step.fault() == tarvo_scenario::NO_FAULT) return Error() << "no fault named";
    player.rig().InjectFault(static_cast<Fault>(step.fault()));
    return {};
}

Result<void> PlayRestartDaemon(StepPlayer& player, const tarvo_scenario::Step& step) {
    if (!step.restart_daemon()) return {};
    if (Result<void> restarted = player.rig().RestartDaemon(); !restarted.ok()) {
        return Error() << "restart: " << restarted.error();
    }
    return {};
}

Result<void> PlaySignalDaemon(StepPlayer& player, const tarvo_scenario::Step& step) {
    Result<pid_t> pid = player.AwaitDaemonPid();
    if (!pid.ok()) return pid.error();
    player.NoteStimulus();
    if (kill(*pid, static_cast<int>(step.signal_daemon())) != 0) {
        return ErrnoError() << "kill " << *pid;
    }
    return {};
}

Result<void> PlayClient(StepPlayer& player, const tarvo_scenario::Step& step) {
    std::vector<std::string> argv;
    for (const std::string& arg : android::base::Split(step.client(), " ")) {
        if (!arg.empty()) argv.push_back(arg);
    }
    AwaitServerPid(player.rig());
    player.NoteStimulus();
    Result<ProcessResult> result = player.rig().RunClient(argv);
    if (!result.ok()) return result.error();
    if (result->timed_out) return Error() << "the client did not end within 10 s";
    if (result->status != step.exit_status()) {
        return Errorf("the client exited with {}, not {}", result->status, step.exit_status());
    }
    return {};
}

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
    Rig& rig = player.rig();
    Result<void> held;
    WaitUntil(
        [&] {
            if (const std::optional<pid_t> now = rig.daemon_pid(); now != before.pid) {
                held = Errorf("the daemon is pid {}, not {} as at the mark",
                              now ? std::to_string(*now) : "not known", before.pid);
                return true;
            }
            held = CompareUsage(expect, before, UsageOf(before.pid));
            return held.ok();
        },
        StepTimeout(expect.has_timeout_ms(), expect.timeout_ms()), kUsagePollInterval);
    return held;
}

}  // namespace tarvo_emu
