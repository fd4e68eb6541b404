#pragma once

#include <atomic>
#include <memory>

#include <android-base/unique_fd.h>

#include "thread.h"

namespace tarvo {

class TarvoMessageHandler;

// Follows the modem's boot state on "/dev/umts_boot0" and reports every valid change.
class ModemStateMonitor : public Runnable {
  public:
    static constexpr unsigned long kStatusIoctl = 0x6F27;
    // Not read yet, or the node is unusable.
    static constexpr int kUnknownState = -1;

    static std::unique_ptr<ModemStateMonitor> MakeInstance(TarvoMessageHandler* handler);
    ~ModemStateMonitor() override;

    // Opens the boot node, then starts the thread that follows it.
    int Start();
    void Run() override;
    void PollModemState();
    // A fresh query of the node, -1 when it is not open.
    int GetModemState();

  private:
    explicit ModemStateMonitor(TarvoMessageHandler* handler) : handler_(handler) {}
    int PollInterval() const;

    std::unique_ptr<Thread> thread_;
    TarvoMessageHandler* handler_;
    std::atomic<int> state_{kUnknownState};
    // Opened by Start and not changed while the thread runs, so any thread may query it.
    android::base::unique_fd fd_;
};

}  // namespace tarvo
