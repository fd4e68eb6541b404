#pragma once

#include <string>

#include "device/fault.h"
#include "scenario/scenario.pb.h"
#include "soak/model_file_system.h"

namespace tarvo_emu {

// The faults that change the daemon's trees while it runs: /data filling up and freeing again,
// the replay or the extended log directory turning read-only and back. Each is a remount step,
// which the traffic chooses and the model plays on its files.
class MidRunFaults {
  public:
    // The trees that the soak's sandbox mounts on their own so that they can be remounted.
    static void Setup(tarvo_scenario::Scenario* setup);

    // The remount that fills /data when it is not full, up to `free_pages`, and frees it when it
    // is.
    static tarvo_scenario::Step Full(const ModelFileSystem& files, size_t free_pages);
    // The remount that turns `tree`, one of the setup's own mounts, read-only when it is not,
    // and back when it is.
    static tarvo_scenario::Step ReadOnly(const std::string& tree, const ModelFileSystem& files);
    // Whether /data is full in `files`.
    static bool DiskFull(const ModelFileSystem& files);
    // The fault that `remount` plays.
    static Fault Of(const tarvo_scenario::Remount& remount);
    // `remount` played on the model's files.
    static void Play(const tarvo_scenario::Remount& remount, ModelFileSystem& files);
};

}  // namespace tarvo_emu
