#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "request_list.h"
#include "vek_message.h"

namespace tarvo {

class ModemStateMonitor;
class TarvoServiceHandler;
class TarvoTestHandler;
class VekIoHandler;

// Called each time the modem comes back online.
class RecoveryCallback {
  public:
    explicit RecoveryCallback(std::function<void()> callback) : callback_(std::move(callback)) {}
    virtual ~RecoveryCallback() = default;

    void NotifyCallBack() {
        if (callback_) callback_();
    }

  private:
    std::function<void()> callback_;
};

// The daemon's hub: starts and owns its components, routes received messages by type, sends
// requests and waits for their responses, and reacts when the modem comes online.
class TarvoMessageHandler {
  public:
    static constexpr int kModemOnline = 4;

    static TarvoMessageHandler* GetInstance();

    TarvoMessageHandler();
    TarvoMessageHandler(const TarvoMessageHandler&) = delete;
    TarvoMessageHandler& operator=(const TarvoMessageHandler&) = delete;
    virtual ~TarvoMessageHandler();

    virtual int Start();
    virtual void OnModemStateChanged(int state);
    virtual int ProcessReceivedMessage(const void* data, unsigned int length);
    virtual int RequestHandler(VekMessage* message);
    virtual int ResponseHandler(VekMessage* message);
    virtual int IndicationHandler(VekMessage* message);
    virtual int SendRequest(VekMessage* request, unsigned int timeout_seconds);
    virtual int SendResponse(VekMessage* response);
    virtual int SendServiceRequest(unsigned int command);
    virtual int WaitForResponse(int timeout_seconds, unsigned int token);

    // Virtual so that in-process tests can stand in for the modem state node.
    virtual bool IsModemOnline();
    RequestRecord GetRequestRecord(unsigned int token);
    void RemoveRequestRecord(unsigned int token);
    void TputTestStartRequest();
    // The callback is not owned; null unregisters.
    void RegisterRecoveryCallback(RecoveryCallback* callback);

  protected:
    // Serialises one message into `bytes` (resized to fit); the status numbers of SendRequest.
    static int SerializeMessage(const VekMessage* message, std::vector<char>* bytes);
    // Serialises and writes one message; the status numbers of SendRequest.
    int WriteMessage(const VekMessage* message);

    std::unique_ptr<ModemStateMonitor> monitor_;
    std::atomic<int> modem_state_{0};
    std::atomic<RecoveryCallback*> recovery_callback_{nullptr};
    std::unique_ptr<TarvoServiceHandler> service_handler_;
    std::unique_ptr<TarvoTestHandler> test_handler_;
    std::unique_ptr<VekIoHandler> io_handler_;
    std::unique_ptr<RequestList> request_list_;
    std::mutex response_lock_;
    std::condition_variable response_signal_;
};

}  // namespace tarvo
