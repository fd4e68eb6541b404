#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "nodes/test_node.h"
#include "proto/tarvo_message.pb.h"

namespace tarvo_emu {

// How the emulated modem takes part in the throughput test.
struct TputSettings {
    static constexpr size_t kDefaultBlockSize = 65536;

    size_t downlink_block_size = kDefaultBlockSize;
    // 0: as fast as the daemon reads.
    uint64_t downlink_bytes_per_s = 0;
    // Answers the downlink start request but sends nothing.
    bool no_downlink = false;
    // 1-based numbers of uplink write attempts that fail with EIO.
    std::vector<uint64_t> fail_writes = {};
};

// The modem's side of the throughput test on "/dev/oem_test": streams from the downlink start
// request to the downlink end request. The uplink is counted by the node all along; the replies
// to the requests come from the auto-reply rules.
class TputModem {
  public:
    TputModem(TestNode* node, TputSettings settings);

    // Every message the daemon writes on the IPC channel.
    void OnDaemonMessage(const tarvo_message::TarvoMessage& message);

    // Whether `message` is a throughput test request with these flags.
    static bool IsTputRequest(const tarvo_message::TarvoMessage& message, bool downlink, bool stop);

  private:
    TestNode* node_;
    TputSettings settings_;
};

}  // namespace tarvo_emu
