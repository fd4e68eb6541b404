#include "tarvo_message_handler.h"

#include <chrono>
#include <vector>

#include <log/log.h>

#include "modem_state_monitor.h"
#include "tarvo_service_handler.h"
#include "tarvo_test_handler.h"
#include "token_gen.h"
#include "vek_io_handler.h"

namespace tarvo {

using tarvo_message::TarvoResult;

TarvoMessageHandler* TarvoMessageHandler::GetInstance() {
    // A plain static object, so it exists before main runs and the token source with it.
    static TarvoMessageHandler instance;
    return &instance;
}

namespace {
// Constructs the singleton during static initialisation.
[[maybe_unused]] TarvoMessageHandler* const kInstance = TarvoMessageHandler::GetInstance();
}  // namespace

TarvoMessageHandler::TarvoMessageHandler() { TokenGen::Init(); }

TarvoMessageHandler::~TarvoMessageHandler() {
    io_handler_.reset();
    monitor_.reset();
    service_handler_.reset();
    test_handler_.reset();
    request_list_.reset();
}

int TarvoMessageHandler::Start() {
    // Everything the threads reach is in place before the first thread starts: the monitor may
    // run service commands and the reader may hand over a request at once.
    if (!service_handler_) service_handler_ = std::make_unique<TarvoServiceHandler>(this);
    if (!test_handler_) test_handler_ = std::make_unique<TarvoTestHandler>(this);
    if (!request_list_) request_list_ = std::make_unique<RequestList>();
    request_list_->CleanRecord();

    const bool new_monitor = !monitor_;
    if (new_monitor) monitor_ = ModemStateMonitor::MakeInstance(this);
    const bool new_io_handler = !io_handler_;
    if (new_io_handler) io_handler_ = std::make_unique<VekIoHandler>(this);

    if (new_monitor && (!monitor_ || monitor_->Start() < 0)) {
        ALOGE("Failed to start modem state monitor thread");
        return tarvo_message::RESULT_UNAVAILABLE;
    }
    if (new_io_handler && !io_handler_->Start()) {
        ALOGE("Failed to start IO handler");
        return tarvo_message::RESULT_UNAVAILABLE;
    }
    return tarvo_message::RESULT_SUCCESS;
}

void TarvoMessageHandler::OnModemStateChanged(int state) {
    const int previous = modem_state_.exchange(state);
    if (state != kModemOnline || previous == kModemOnline) return;

    SendServiceRequest(kModemStatConfig);
    SendServiceRequest(kUserspaceLogEnable);
    SendServiceRequest(kLoadGnssCoexConfig);
    if (RecoveryCallback* callback = recovery_callback_.load()) {
        ALOGI("Modem is back. Call recovery callback");
        callback->NotifyCallBack();
    }
}

bool TarvoMessageHandler::IsModemOnline() {
    return monitor_ && monitor_->GetModemState() == kModemOnline;
}

int TarvoMessageHandler::ProcessReceivedMessage(const void* data, unsigned int length) {
    if (data == nullptr || length == 0) return tarvo_message::RESULT_INVALID;

    VekMessage message(static_cast<const char*>(data), static_cast<int>(length));
    switch (message.GetType()) {
        case tarvo_message::REQUEST:
            return RequestHandler(&message);
        case tarvo_message::RESPONSE:
            return ResponseHandler(&message);
        case tarvo_message::INDICATION:
            return IndicationHandler(&message);
        default:
            return tarvo_message::RESULT_UNSUPPORTED;
    }
}

int TarvoMessageHandler::RequestHandler(VekMessage* message) {
    if (!service_handler_) return tarvo_message::RESULT_UNAVAILABLE;
    return service_handler_->OnReceiveRequest(message);
}

int TarvoMessageHandler::IndicationHandler(VekMessage* message) {
    if (!service_handler_) return tarvo_message::RESULT_UNAVAILABLE;
    return service_handler_->OnReceiveIndication(message);
}

int TarvoMessageHandler::ResponseHandler(VekMessage* message) {
    if (message == nullptr || !message->IsResponse()) return tarvo_message::RESULT_INVALID;
    const uint32_t token = message->GetToken();
    if (!request_list_ || !request_list_->IsRecordInList(token)) {
        return tarvo_message::RESULT_UNAVAILABLE;
    }
    request_list_->UpdateResponseMessage(token, message);
    std::lock_guard<std::mutex> guard(response_lock_);
    response_signal_.notify_all();
    return tarvo_message::RESULT_SUCCESS;
}

int TarvoMessageHandler::SerializeMessage(const VekMessage* message, std::vector<char>* bytes) {
    const int length = message->GetProtobufSerialDataLength();
    if (length < 1) return tarvo_message::RESULT_ENCODE_FAILED;
    bytes->resize(length);
    if (!message->SerializeSendMessage(bytes->data(), length)) {
        return tarvo_message::RESULT_ENCODE_FAILED;
    }
    return tarvo_message::RESULT_SUCCESS;
}

int TarvoMessageHandler::WriteMessage(const VekMessage* message) {
    std::vector<char> bytes;
    const int status = SerializeMessage(message, &bytes);
    if (status != tarvo_message::RESULT_SUCCESS) return status;
    if (!io_handler_ || io_handler_->SendData(bytes.data(), static_cast<int>(bytes.size())) != 0) {
        return tarvo_message::RESULT_IO_ERROR;
    }
    return tarvo_message::RESULT_SUCCESS;
}

int TarvoMessageHandler::SendRequest(VekMessage* request, unsigned int timeout_seconds) {
    if (request == nullptr || !request->IsRequest() || request->GetToken() == TokenGen::kNoToken) {
        return tarvo_message::RESULT_INVALID;
    }
    const int status = WriteMessage(request);
    if (status != tarvo_message::RESULT_SUCCESS) return status;

    // Registered only once written: a reply that the reader handles before this point finds no
    // record and is dropped, and the requester then waits out its time.
    const uint32_t token = request->GetToken();
    if (request_list_) request_list_->AddRecord(RequestRecord(token));
    return WaitForResponse(static_cast<int>(timeout_seconds), token);
}

int TarvoMessageHandler::SendResponse(VekMessage* response) {
    if (response == nullptr || !response->IsResponse()) return tarvo_message::RESULT_INVALID;
    return WriteMessage(response);
}

int TarvoMessageHandler::SendServiceRequest(unsigned int command) {
    if (!service_handler_) return tarvo_message::RESULT_UNAVAILABLE;
    return service_handler_->SendServiceRequest(command);
}

int TarvoMessageHandler::WaitForResponse(int timeout_seconds, unsigned int token) {
    using std::chrono::milliseconds;
    std::unique_lock<std::mutex> lock(response_lock_);
    const auto start = std::chrono::system_clock::now();
    if (!request_list_ || !request_list_->IsRecordInList(token)) {
        return tarvo_message::RESULT_UNAVAILABLE;
    }

    const int32_t budget_ms = static_cast<int32_t>(static_cast<uint32_t>(timeout_seconds) * 1000u);
    int64_t remaining_ms = budget_ms;
    while (true) {
        bool timed_out = remaining_ms <= 0;
        if (!timed_out) {
            const auto waited_from = std::chrono::steady_clock::now();
            response_signal_.wait_for(lock, milliseconds(remaining_ms));
            timed_out =
                std::chrono::steady_clock::now() - waited_from >= milliseconds(remaining_ms);
        }
        const RequestRecord record = request_list_->GetRecord(token);
        if (timed_out) return tarvo_message::RESULT_FAILURE;
        if (record.GetResponse() != nullptr) return tarvo_message::RESULT_SUCCESS;
        const auto elapsed =
            std::chrono::duration_cast<milliseconds>(std::chrono::system_clock::now() - start);
        remaining_ms = budget_ms - elapsed.count();
    }
}

RequestRecord TarvoMessageHandler::GetRequestRecord(unsigned int token) {
    return request_list_ ? request_list_->GetRecord(token) : RequestRecord();
}

void TarvoMessageHandler::RemoveRequestRecord(unsigned int token) {
    if (request_list_) request_list_->RemoveRecord(token);
}

int TarvoMessageHandler::AskModem(VekMessage* request, const char* sending, int* result) {
    ALOGI("%s", sending);
    const int status = SendRequest(request, kRequestTimeoutSeconds);
    if (status != tarvo_message::RESULT_SUCCESS) {
        // The record stays listed; a late answer is stored there and never read.
        ALOGE("Failed to send request, status:%d", status);
        return status;
    }
    const uint32_t token = request->GetToken();
    const RequestRecord record = GetRequestRecord(token);
    const VekMessage* response = record.GetResponse();
    *result = response != nullptr ? response->GetResult() : tarvo_message::RESULT_FAILURE;
    RemoveRequestRecord(token);
    return tarvo_message::RESULT_SUCCESS;
}

void TarvoMessageHandler::TputTestStartRequest() {
    if (test_handler_) test_handler_->TputTestStart();
}

void TarvoMessageHandler::RegisterRecoveryCallback(RecoveryCallback* callback) {
    recovery_callback_ = callback;
}

}  // namespace tarvo
