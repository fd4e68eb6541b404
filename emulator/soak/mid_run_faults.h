#pragma once

#include <optional>

#include "device/fault.h"
#include "scenario/scenario.pb.h"
#include "soak/model_file_system.h"

namespace tarvo_emu {

// The faults that change the daemon's trees while it runs: /data filling up and freeing again,
// the replay directory turning read-only and back. Each is a remount step, which the traffic
// chooses and the model plays on its files.
class MidRunFaults {
  public:
    // The trees that the soak's sandbox mounts on their own so that they can be remounted.
    static void Setup(tarvo_scenario::Scenario* setup);

    // The remount that plays `fault` (full or readonly) on the trees as `files` holds them: it
    // turns the tree full or read-only when it is not, and back when it is. None for another
    // fault.
    static std::optional<tarvo_scenario::Step> Step(Fault fault, const ModelFileSystem& files);
    // Whether /data is full in `files`.
    static bool DiskFull(const ModelFileSystem& files);
    // The fault that `remount` plays.
    static Fault Of(const tarvo_scenario::Remount& remount);
    // `remount` played on the model's files.
    static void Play(const tarvo_scenario::Remount& remount, ModelFileSystem& files);
};

}  // namespace tarvo_emu
