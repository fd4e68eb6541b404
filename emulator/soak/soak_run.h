#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <android-base/result.h>

#include "rig/rig.h"
#include "soak/soak_shrinker.h"
#include "soak/soak_summary.h"
#include "soak/soak_traffic.h"

namespace tarvo_emu {

struct SoakOptions {
    uint64_t seed = 1;
    // How long to play; when neither is given, one minute.
    std::optional<std::chrono::seconds> duration;
    std::optional<uint64_t> steps;
    std::set<Fault> faults;
    // Where the scenario of a divergence goes.
    std::string out = "soak-failure.textproto";
    // How long shrinking may take.
    std::chrono::seconds shrink_budget{600};
    // For the rig that Play starts (a live capture of the run); the replays of shrinking get
    // none.
    RigHooks hooks;
};

// What a soak run played, and its first divergence.
struct SoakReport {
    size_t stimuli = 0;
    size_t faults = 0;
    // The faults by kind, as --faults names them.
    std::map<std::string, size_t> fault_kinds;
    // The unexpected traffic by kind (unexpected_traffic.h).
    std::map<std::string, size_t> traffic_kinds;
    size_t checks = 0;
    double seconds = 0;
    SoakPeak peak;
    std::optional<SoakDivergence> divergence;
};

// A divergence shrunk and written as a scenario.
struct SoakScenarioReport {
    size_t kept = 0;    // the stimuli left
    size_t played = 0;  // of those played up to the divergence
    size_t replays = 0;
    double seconds = 0;
    std::string file;
    // Whether the file, played as `tarvo-emu run` plays it, fails too.
    bool fails_on_run = false;
};

// Random traffic against the daemon, each answer, log line, file and property checked against
// the model. Play first; when it diverged, ShrinkAndWrite.
class SoakRun {
  public:
    explicit SoakRun(const SoakOptions& options);

    // Whether the seed made the replay directory read-only.
    bool read_only_replay() const { return setup_.read_only_size() > 0; }

    // Plays until the time or the number of stimuli is reached, or up to the first divergence.
    // `progress`, when given, hears the report so far every half second and once at the end
    // (`last`). An error when the rig did not start.
    android::base::Result<SoakReport> Play(
        const std::function<void(const SoakReport&, bool last)>& progress);
    // Ends Play after the stimulus being played, as if its time were up; callable from a
    // signal handler.
    void Stop() { stopped_ = true; }

    // Shrinks the divergence that Play found to the fewest stimuli that still show it, each
    // replay on a rig of its own (`progress` hears each attempt), and writes them to the
    // options' file as a scenario. An error when the file could not be written.
    android::base::Result<SoakScenarioReport> ShrinkAndWrite(
        const std::function<void(const std::string&)>& progress);

  private:
    // Raises the report's peak to what /proc shows of `daemon` now.
    void NotePeak(std::optional<pid_t> daemon);

    const SoakOptions options_;
    const tarvo_scenario::Scenario setup_;
    std::vector<tarvo_scenario::Step> stimuli_;
    SoakReport report_;
    std::atomic<bool> stopped_ = false;
};

}  // namespace tarvo_emu
