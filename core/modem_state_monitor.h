#pragma once

#include <atomic>
#include <memory>

#include "thread.h"

namespace tarvo {

class TarvoMessageHandler;

// Follows the modem's boot state on "/dev/umts_boot0" and reports every valid change.
class ModemStateMonitor : public Runnable {
  public:
    static constexpr unsigned long kStatusIoctl = 0x6F27;

    static std::unique_ptr<ModemStateMonitor> MakeInstance(TarvoMessageHandler* handler);
    ~ModemStateMonitor() override;

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
    std::atomic<int> state_{-1};
    std::atomic<int> fd_{-1};
};

}  // namespace tarvo
