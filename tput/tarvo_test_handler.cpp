#include "tarvo_test_handler.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>

#include <log/log.h>

#include "modem_tput_handler.h"
#include "modem_tput_monitor.h"
#include "tarvo_message_handler.h"
#include "tarvo_test_message.h"

namespace tarvo {

namespace {

constexpr useconds_t kSampleIntervalUs = 100000;
constexpr unsigned int kUplinkSettleSeconds = 2;
constexpr int kResultMask = 0xFFFF;

// The two arguments that say which transfer a test request is about.
constexpr bool kDownlink = true;
constexpr bool kUplink = false;
constexpr bool kStart = false;
constexpr bool kStop = true;
// The modem's own parameters of the downlink start; every other request carries zeros.
constexpr int kDownlinkParamA = 60000;
constexpr int kDownlinkParamB = 3000;
constexpr int kDownlinkParamC = 200;
constexpr int kNoParam = 0;

// Bits per 100-ms sample to gigabits per second, in this order of operations.
double GigabitsPerSecond(double bytes) { return bytes * 8 / 1000 / 1000 / 1000 * 10; }

}  // namespace

double TputSamples::Throughput(uint32_t bytes) { return GigabitsPerSecond(bytes); }

double TputSamples::Add(uint32_t bytes) {
    const double throughput = Throughput(bytes);
    if (count_ != 0) {
        total_bytes_ += bytes;
        max_throughput_ = std::max(max_throughput_, throughput);
    }
    ++count_;
    return throughput;
}

double TputSamples::Average() const {
    // Double arithmetic: no samples give 0 / 0, not a number.
    return GigabitsPerSecond(total_bytes_) / count_;
}

TarvoTestHandler::TarvoTestHandler(TarvoMessageHandler* handler) : handler_(handler) {}

TarvoTestHandler::~TarvoTestHandler() = default;

int TarvoTestHandler::TputTestStart() {
    if (TputDLTestRun(kTestChannel) != tarvo_message::RESULT_SUCCESS) {
        ALOGE("Failed to run DL tput test");
    }
    if (TputULTestRun(kTestChannel) != tarvo_message::RESULT_SUCCESS) {
        ALOGE("Failed to run UL tput test");
    }
    return tarvo_message::RESULT_SUCCESS;
}

int TarvoTestHandler::TputDLTestRun(const std::string& channel) {
    monitors_.erase(std::remove_if(monitors_.begin(), monitors_.end(),
                                   [](const auto& monitor) { return monitor->finished(); }),
                    monitors_.end());
    std::unique_ptr<ModemTputMonitor> monitor = ModemTputMonitor::MakeInstance(this);
    byte_counter_ = 0;
    samples_.Clear();
    if (!monitor) return tarvo_message::RESULT_UNAVAILABLE;
    monitor->SetChannelName(channel);
    if (monitor->Start() < 0) {
        ALOGE("Failed to start modem tput monitor thread");
        return tarvo_message::RESULT_UNAVAILABLE;
    }
    ModemTputMonitor* running = monitors_.emplace_back(std::move(monitor)).get();

    if (SendTarvoTestRequest(kDownlink, kStart, kDownlinkParamA, kDownlinkParamB,
                             kDownlinkParamC) != 0) {
        ALOGE("Modem Failed to initiate DL(CP2AP) Tput transimision");
        return tarvo_message::RESULT_IO_ERROR;
    }
    WaitForTputResponse(kSampleSeconds);
    running->SetChannelClose();
    if (SendTarvoTestRequest(kDownlink, kStop, kNoParam, kNoParam, kNoParam) != 0) {
        ALOGE("Modem Failed to end UL(AP2CP) Tput transimision");
        return tarvo_message::RESULT_IO_ERROR;
    }
    ALOGI(
        "Modem_IPC_Test DL Results: Average Tput: %.2f Gbps, Max Tput: %.2f Gbps, Total byte "
        "cnt: %d, Trasmission cnt:%d",
        samples_.Average(), samples_.max_throughput(), static_cast<int>(samples_.total_bytes()),
        static_cast<int>(samples_.count()));
    return tarvo_message::RESULT_SUCCESS;
}

int TarvoTestHandler::TputULTestRun(const std::string& channel) {
    if (SendTarvoTestRequest(kUplink, kStart, kNoParam, kNoParam, kNoParam) != 0) {
        ALOGE("Modem Failed to initiate UL(AP2CP) Tput transimision");
        return tarvo_message::RESULT_IO_ERROR;
    }
    ModemTputHandler* pump = pumps_.emplace_back(ModemTputHandler::MakeInstance()).get();
    pump->SetChannelName(channel);
    pump->SetBuffer(std::vector<char>(ModemTputHandler::kBufferSize));
    if (pump->Start() < 0) {
        ALOGE("Failed to start Tput handler thread");
        return tarvo_message::RESULT_UNAVAILABLE;
    }
    pump->SetBuffer({});
    sleep(kUplinkSettleSeconds);
    if (SendTarvoTestRequest(kUplink, kStop, kNoParam, kNoParam, kNoParam) != 0) {
        ALOGE("Modem Failed to end UL(AP2CP) Tput transimision");
        return tarvo_message::RESULT_IO_ERROR;
    }
    return tarvo_message::RESULT_SUCCESS;
}

int TarvoTestHandler::SendTarvoTestRequest(bool downlink, bool stop, int param_a, int param_b,
                                           int param_c) {
    if (!handler_->IsModemOnline()) {
        ALOGE("Modem is not online");
        return TarvoMessageHandler::kStatusModemOffline;
    }
    TarvoTestMessage request(tarvo_message::REQUEST);
    request.FillTputTestRequest(downlink, stop, param_a, param_b, param_c);
    int result = tarvo_message::RESULT_FAILURE;
    const int status =
        handler_->AskModem(request.GetVekMessage(), "Sending modem test request", &result);
    if (status != tarvo_message::RESULT_SUCCESS) return status;
    // Only the low 16 bits count; a refusal is logged and the test goes on.
    if ((result & kResultMask) == tarvo_message::RESULT_SUCCESS) {
        ALOGI("Got modem test response successful");
    } else {
        ALOGE("Got modem test response failed");
    }
    return tarvo_message::RESULT_SUCCESS;
}

void TarvoTestHandler::WaitForTputResponse(int seconds) {
    using std::chrono::milliseconds;
    const auto start = std::chrono::system_clock::now();
    const auto elapsed_ms = [&start] {
        return std::chrono::duration_cast<milliseconds>(std::chrono::system_clock::now() - start)
            .count();
    };
    do {
        usleep(kSampleIntervalUs);
        const uint32_t bytes = byte_counter_.exchange(0);
        if (bytes == 0) continue;
        const double throughput = samples_.Add(bytes);
        ALOGI("Modem_IPC_Test DL:Tput : %f (GBps) | byte_counter: %d ", throughput,
              static_cast<int>(bytes));
    } while (elapsed_ms() < static_cast<int64_t>(seconds) * 1000);
}

void TarvoTestHandler::OnReceiveTputPkt(int bytes) {
    byte_counter_ += static_cast<uint32_t>(bytes);
}

}  // namespace tarvo
