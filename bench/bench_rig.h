#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include <android-base/result.h>

#include "process/child_process.h"
#include "rig/rig.h"

namespace tarvo_bench {

// Counts the responses written on the IPC node, whoever writes them: the daemon or the echo
// peer. Other messages (the daemon's own requests) go on to the rig's modem side, which answers
// them as usual.
class ResponseCounter {
  public:
    // The rig's uplink tap; runs on the filesystem's threads.
    bool OnUplink(std::string_view bytes);
    // Waits until `count` responses arrived in all; false on timeout.
    bool WaitFor(uint64_t count, std::chrono::milliseconds timeout);
    uint64_t count();
    // Responses whose result was not success.
    uint64_t failures();
    // The bytes of the latest response.
    std::string last();

  private:
    std::mutex mutex_;
    std::condition_variable arrived_;
    uint64_t count_ = 0;
    uint64_t failures_ = 0;
    std::string last_;
};

// Builds the bytes of the i-th message of a series.
using MessageMaker = std::function<void(uint64_t i, std::string* bytes)>;

// The rig as the benchmarks use it: no transcript, no kept log lines, responses counted at the
// node. Either the daemon or one of the peers serves the IPC node at a time.
class BenchRig {
  public:
    static constexpr std::chrono::milliseconds kResponseTimeout{20000};

    static android::base::Result<std::unique_ptr<BenchRig>> Create();
    ~BenchRig();

    // Starts the daemon with the modem online and waits until it answers.
    android::base::Result<void> StartDaemon();
    void StopDaemon();
    std::optional<pid_t> daemon_pid() const { return rig_.daemon_pid(); }

    // Starts the echo peer, answering every message with `response`, and waits until it answers.
    // `steps` are the peer's options that add the daemon's own steps per message.
    android::base::Result<void> StartEcho(const std::string& response,
                                          const std::vector<std::string>& steps = {});
    // Starts the steps peer, which answers as the daemon does, and waits until it answers.
    android::base::Result<void> StartSteps();
    void StopPeer();
    // The process group of the running peer, 0 when none runs.
    pid_t peer_group() const;

    // Sends `count` messages made by `make`, each after the response to the one before; the
    // seconds from the first send to the last response.
    android::base::Result<double> RoundTrips(uint64_t count, const MessageMaker& make);
    // Sends `indications` messages with no response, then one that is answered, and waits for
    // that answer: the daemon handles messages in order, so all of them are then done.
    android::base::Result<void> Batch(const std::vector<std::string>& messages, int answered);

    // The storage's own time for a file of `total` bytes written in `block` byte pieces into
    // `path` (inside the sandbox), measured by a plain program there.
    android::base::Result<double> PlainWrite(const std::string& path, uint64_t total,
                                             uint64_t block);

    tarvo_emu::Rig& rig() { return rig_; }
    ResponseCounter& responses() { return *responses_; }

  private:
    BenchRig(std::shared_ptr<ResponseCounter> responses, tarvo_emu::RigOptions options,
             tarvo_emu::RigHooks hooks);
    android::base::Result<void> AwaitFirstAnswer();
    android::base::Result<void> StartPeer(const std::vector<std::string>& args);

    std::shared_ptr<ResponseCounter> responses_;
    tarvo_emu::Rig rig_;
    std::unique_ptr<tarvo_emu::ChildProcess> peer_;
};

// Host path of a benchmark program of this build.
std::string BenchBinary(const std::string& name);

}  // namespace tarvo_bench
