#include "soak/mid_run_faults.h"

#include "device/device_facts.h"

namespace tarvo_emu {

namespace {

constexpr char kDataTree[] = "/data";
// /data's size: room for an hour's appends, far from full until a fault fills it.
constexpr uint32_t kDataSizeKib = 262144;

}  // namespace

void MidRunFaults::Setup(tarvo_scenario::Scenario* setup) {
    setup->set_data_size_limit_kib(kDataSizeKib);
    // Apart from /data, so that its logs go on while /data is full.
    setup->add_own_mount(kExtendedLogDirectory);
    // A replay directory bound read-only from the start stays so.
    for (const std::string& path : setup->read_only()) {
        if (path == kReplayDirectory) return;
    }
    setup->add_own_mount(kReplayDirectory);
}

tarvo_scenario::Step MidRunFaults::Full(const ModelFileSystem& files, size_t free_pages) {
    tarvo_scenario::Step step;
    step.mutable_remount()->set_path(kDataTree);
    if (files.IsFull(kDataTree)) return step;
    step.mutable_remount()->set_full(true);
    step.mutable_remount()->set_free_kib(free_pages * ModelFileSystem::kPage / 1024);
    return step;
}

tarvo_scenario::Step MidRunFaults::ReadOnly(const std::string& tree, const ModelFileSystem& files) {
    tarvo_scenario::Step step;
    step.mutable_remount()->set_path(tree);
    step.mutable_remount()->set_read_only(!files.IsReadOnly(tree));
    return step;
}

bool MidRunFaults::DiskFull(const ModelFileSystem& files) { return files.IsFull(kDataTree); }

Fault MidRunFaults::Of(const tarvo_scenario::Remount& remount) {
    return remount.path() == kDataTree ? Fault::kFull : Fault::kReadOnly;
}

void MidRunFaults::Play(const tarvo_scenario::Remount& remount, ModelFileSystem& files) {
    files.SetReadOnly(remount.path(), remount.read_only());
    if (remount.full()) {
        const size_t page_kib = ModelFileSystem::kPage / 1024;
        files.SetFull(remount.path(), (remount.free_kib() + page_kib - 1) / page_kib);
    } else if (files.IsFull(remount.path())) {
        files.SetFull(std::nullopt);
    }
}

}  // namespace tarvo_emu
