#include "modem_state_monitor.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <log/log.h>

#include "properties.h"
#include "tarvo_message_handler.h"

namespace tarvo {

namespace {

constexpr const char* kModemBootNode = "/dev/umts_boot0";
constexpr const char* kNoModemBoardProperty = "persist.vendor.radio.no_modem_board";
constexpr short kStateEvents = POLLIN | POLLHUP | POLLRDNORM;
constexpr int kOfflineIntervalMs = 3000;
constexpr int kNoTimeout = -1;
constexpr int kAtOnce = 0;
constexpr unsigned int kPauseSeconds = 3;
// The driver's states that the monitor pauses after: the modem is on its way up.
constexpr int kFirstPauseState = 1;
constexpr int kLastPauseState = 2;

bool IsValidState(int state) { return state >= 0 && state <= TarvoMessageHandler::kModemOnline; }

bool PausesAfter(int state) { return state >= kFirstPauseState && state <= kLastPauseState; }

bool NoModemBoard() {
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(kNoModemBoardProperty, value, "0");
    return value[0] == '1';
}

}  // namespace

std::unique_ptr<ModemStateMonitor> ModemStateMonitor::MakeInstance(TarvoMessageHandler* handler) {
    if (handler == nullptr) return nullptr;
    return std::unique_ptr<ModemStateMonitor>(new ModemStateMonitor(handler));
}

ModemStateMonitor::~ModemStateMonitor() { thread_.reset(); }

int ModemStateMonitor::Start() {
    // Open before the IO handler starts: its reader asks for the state as soon as it runs.
    fd_.reset(TEMP_FAILURE_RETRY(open(kModemBootNode, O_RDWR | O_CLOEXEC)));
    thread_ = std::make_unique<Thread>(this);
    return thread_->Start() < 0 ? -1 : 0;
}

int ModemStateMonitor::PollInterval() const {
    if (NoModemBoard()) return kNoTimeout;
    const int state = state_;
    if (state < 0) return kAtOnce;
    if (state == TarvoMessageHandler::kModemOnline) return kNoTimeout;
    return kOfflineIntervalMs;
}

void ModemStateMonitor::Run() {
    if (!fd_.ok()) {
        ALOGE("Failed to open MODEM_BOOT ioctl node");
        return;
    }
    ALOGI("Start modem state monitoring");

    while (true) {
        const int interval = PollInterval();
        pollfd pfd = {.fd = fd_.get(), .events = kStateEvents, .revents = 0};
        const int result = poll(&pfd, 1, interval);
        if (result != 0 && state_ >= 0 && (result < 0 || (pfd.revents & kStateEvents) == 0)) {
            ALOGE("MODEM STATUS : unknown poll event (%d)", pfd.revents);
            sleep(kPauseSeconds);
            continue;
        }
        if (result == 0) ALOGI("Poll timeout. interval=%d", interval);
        PollModemState();
        if (PausesAfter(state_)) sleep(kPauseSeconds);
    }
}

void ModemStateMonitor::PollModemState() {
    const int previous = state_;
    if (!fd_.ok()) {
        ALOGE("MODEM_BOOT ioctl fd is invalid");
        state_ = kUnknownState;
        if (previous != kUnknownState) ALOGE("Invalid modem state %d", kUnknownState);
        return;
    }
    const int state = ioctl(fd_.get(), kStatusIoctl);
    if (state == previous) return;
    state_ = state;
    if (IsValidState(state)) {
        ALOGI("Modem state changed from %d to %d", previous, state);
        handler_->OnModemStateChanged(state);
    } else {
        ALOGE("Invalid modem state %d", state);
    }
}

int ModemStateMonitor::GetModemState() {
    if (!fd_.ok()) {
        ALOGE("MODEM_BOOT ioctl fd is invalid");
        return kUnknownState;
    }
    return ioctl(fd_.get(), kStatusIoctl);
}

}  // namespace tarvo
