#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace tarvo {

class TarvoMessageHandler;
class TarvoPayloadMessage;
struct ModemRequestTexts;
class VekMessage;

// Entry point for the modem's requests and indications and for the daemon's own service commands.
// Every handler works from the message alone; transfer state lives in the file system.
class TarvoServiceHandler {
  public:
    explicit TarvoServiceHandler(TarvoMessageHandler* handler) : handler_(handler) {}
    TarvoServiceHandler(const TarvoServiceHandler&) = delete;
    TarvoServiceHandler& operator=(const TarvoServiceHandler&) = delete;
    virtual ~TarvoServiceHandler() = default;

    // Routing by message id, file operation or command; the chosen handler's status is returned.
    unsigned int OnReceiveRequest(VekMessage* request);
    unsigned int OnReceiveFileMessageRequest(VekMessage* request);
    unsigned int OnReceiveIndication(VekMessage* indication);
    unsigned int SendServiceRequest(unsigned int command);

    // Property read or write (message id 7), temperature readings for the thermal driver (10),
    // UE-capability file read (12). Each sends its own response(s) and returns the send status,
    // or RESULT_INVALID when the request cannot be handled.
    unsigned int OnReceivePropertyRequest(VekMessage* request);
    unsigned int OnReceiveModemTemperatureRequest(VekMessage* request);
    unsigned int OnReceiveUecapFileReadRequest(VekMessage* request);
    // Reads up to read_size bytes of the requested UE-capability file: RESULT_SUCCESS with the
    // buffer handed over, or RESULT_UNAVAILABLE with none.
    unsigned int TryUecapFileRead(VekMessage* request, std::unique_ptr<char[]>* buffer,
                                  uint32_t* size);

    // Status of a daemon request that the modem answered with a failure result; never sent.
    static constexpr unsigned int kStatusModemRefused = 9;

    // Modem statistics (payload 5). The configuration loader sends one enable request per
    // configured module: RESULT_SUCCESS once a configuration file was read, RESULT_UNAVAILABLE
    // when there is none. The requests return kStatusModemOffline when the modem is not online,
    // the send's status, kStatusModemRefused when the modem refused an enable (a refused report
    // still returns RESULT_SUCCESS), RESULT_SUCCESS when it agreed. A report piece is stored in
    // the dump file: RESULT_INVALID when the message is not one, else RESULT_SUCCESS.
    unsigned int LoadDebugStatConfig();
    void LoadDebugStatModuleConfig(const std::string& entry);
    unsigned int SendModemStatEnableRequest(std::string module, int v, unsigned int t);
    unsigned int SendModemStatReportRequest();
    unsigned int OnReceiveModemStatReportIndication(VekMessage* indication);

    // Extended log (payload 6). The request returns as the enable requests do; a piece is appended
    // to its log file with a time stamp: RESULT_INVALID when the message is not one,
    // RESULT_UNAVAILABLE when the file cannot be opened, else RESULT_SUCCESS.
    unsigned int SendExtendedLogRequest();
    unsigned int OnReceiveExtendedLogIndication(VekMessage* indication);

    // Userspace log (payload 8). One enable request per configured name: kStatusModemOffline
    // when the modem is not online, else RESULT_SUCCESS. One request returns the send's status,
    // kStatusModemRefused when refused, RESULT_SUCCESS when agreed. A line from the modem is
    // printed to the log: RESULT_INVALID when the message is not one, else RESULT_SUCCESS.
    unsigned int SendUserspaceLogEnableRequest();
    unsigned int SendUserspaceLogEnableRequestMessage(std::string name);
    unsigned int OnReceiveUserspaceLogIndication(VekMessage* indication);

  private:
    // Logs "Modem is not online" when it is not.
    bool CheckModemOnline();
    // Sends the filled request, waits for the modem's answer and logs the outcome in the family's
    // words: the send's status, kStatusModemRefused when the modem refused, RESULT_SUCCESS when
    // it agreed.
    unsigned int RequestOfModem(TarvoPayloadMessage* request, const ModemRequestTexts& texts);

    // Sends `response` with the envelope result RESULT_FAILURE and returns RESULT_UNAVAILABLE,
    // the status of a failure that the modem was told of; the send's own status is not returned.
    unsigned int AnswerFailure(TarvoPayloadMessage* response);

    // Modem file transfers (message id 9).
    unsigned int OnReceiveFileWriteRequest(VekMessage* request);
    unsigned int OnReceiveFileAppendRequest(VekMessage* request);
    unsigned int OnReceiveFileReadRequest(VekMessage* request);
    unsigned int OnReceiveFileWriteIndication(VekMessage* indication);

    TarvoMessageHandler* handler_;
};

}  // namespace tarvo
