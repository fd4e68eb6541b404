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

    // The daemon's own service commands (SendServiceRequest); any other number is refused.
    enum ServiceCommand : unsigned int {
        kModemStatReport = 0,
        kModemStatConfig = 1,
        kExtendedLog = 2,
        kUserspaceLogEnable = 3,
        kLoadGnssCoexConfig = 4,
    };

    // How long each of the daemon's own requests waits for the modem's answer.
    static constexpr unsigned int kRequestTimeoutSeconds = 3;
    // Status of a daemon request not sent because the modem is not online; the number of
    // RESULT_BAD_FORMAT.
    static constexpr int kStatusModemOffline = tarvo_message::RESULT_BAD_FORMAT;

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
    // One round trip of a request that the caller built: logs `sending` (info), sends the request,
    // waits for the modem's answer, reads its result into `result` (RESULT_FAILURE when the
    // answer has none) and removes the record. Returns SendRequest's status, logged when not
    // RESULT_SUCCESS; `result` is set only on RESULT_SUCCESS.
    int AskModem(VekMessage* request, const char* sending, int* result);
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
