#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tarvo {

class ModemTputHandler;
class ModemTputMonitor;
class TarvoMessageHandler;

// The downlink figures of one throughput test, from 100-ms samples of the bytes received.
class TputSamples {
  public:
    // Gigabits per second carried by `bytes` in one 100-ms sample.
    static double Throughput(uint32_t bytes);

    // Counts a non-zero sample and returns its throughput. The first sample is counted but
    // left out of the total and the maximum: it covers an unknown part of its 100 ms.
    double Add(uint32_t bytes);
    // Averaged over every sample counted, the first included; not a number without samples.
    double Average() const;
    void Clear() { *this = TputSamples(); }

    uint32_t count() const { return count_; }
    uint32_t total_bytes() const { return total_bytes_; }
    double max_throughput() const { return max_throughput_; }

  private:
    uint32_t count_ = 0;
    uint32_t total_bytes_ = 0;
    double max_throughput_ = 0;
};

// Runs the IPC throughput test with the modem: asks it to send (downlink) and then to receive
// (uplink) on the test node, while a monitor thread counts what arrives and a pump thread writes.
class TarvoTestHandler {
  public:
    static constexpr const char* kTestChannel = "/dev/oem_test";
    static constexpr int kSampleSeconds = 10;

    explicit TarvoTestHandler(TarvoMessageHandler* handler);
    TarvoTestHandler(const TarvoTestHandler&) = delete;
    TarvoTestHandler& operator=(const TarvoTestHandler&) = delete;
    virtual ~TarvoTestHandler();

    // The downlink test, then the uplink test. Always RESULT_SUCCESS.
    int TputTestStart();
    // RESULT_SUCCESS, RESULT_IO_ERROR when the modem could not be asked, RESULT_UNAVAILABLE
    // when the monitor did not start.
    int TputDLTestRun(const std::string& channel);
    // RESULT_SUCCESS, RESULT_IO_ERROR when the modem could not be asked, RESULT_UNAVAILABLE
    // when the pump did not start.
    int TputULTestRun(const std::string& channel);
    // RESULT_SUCCESS once answered (whatever the answer), kStatusModemOffline when the modem is
    // offline, else SendRequest's status.
    int SendTarvoTestRequest(bool downlink, bool stop, int param_a, int param_b, int param_c);
    // Samples the bytes received every 100 ms for `seconds`.
    void WaitForTputResponse(int seconds);
    // The monitor's report of one read.
    void OnReceiveTputPkt(int bytes);

    const TputSamples& samples() const { return samples_; }

  private:
    // Bytes since the last sample: added to by the monitor thread, taken by the sampler.
    std::atomic<uint32_t> byte_counter_{0};
    TputSamples samples_;
    TarvoMessageHandler* handler_;
    // A monitor outlives its test until its thread ends; one whose test failed keeps reading.
    std::vector<std::unique_ptr<ModemTputMonitor>> monitors_;
    // Kept once joined: deleting a joined thread logs that it is not started.
    std::vector<std::unique_ptr<ModemTputHandler>> pumps_;
};

}  // namespace tarvo
