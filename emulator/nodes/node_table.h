#pragma once

namespace tarvo_emu {

enum class NodeKind { kIpc, kBoot, kTest, kTemp };

// An emulated node: its file in the emulator's mount and the path a device has it at. The daemon
// states its paths on its own, so that a wrong one on either side shows.
struct NodePlace {
    NodeKind kind;
    const char* name;
    const char* device_path;
};

inline constexpr NodePlace kNodeTable[] = {
    {NodeKind::kIpc, "oem_ipc1", "/dev/oem_ipc1"},
    {NodeKind::kBoot, "umts_boot0", "/dev/umts_boot0"},
    {NodeKind::kTest, "oem_test", "/dev/oem_test"},
    {NodeKind::kTemp, "cp_temp", "/sys/devices/platform/cp-tm1/cp_temp"},
};

}  // namespace tarvo_emu
