// The GNSS blanking table, as the daemon loads it each time the modem comes online: each input
// is the whole of /data/vendor/radio/gnss_blanking.csv, and the service command that loads it
// runs with the dispatcher's handling of a table that does not parse.
//
// Runs inside the sandbox (tarvo-emu exec --size-limit ...), so the file is the sandbox's. The
// RIL is a client in this process that answers every request at once, so that the loader sends
// the whole table without waiting; the helper's own waiting and retrying is unchanged.

#include <fstream>
#include <string>

#include "fuzz_sandbox.h"
#include "ril_client_helper.h"
#include "ril_request_helper.h"
#include "tarvo_message_handler.h"
#include "tarvo_service_handler.h"

namespace tarvo {

namespace {

constexpr const char* kTablePath = "/data/vendor/radio/gnss_blanking.csv";

// Accepts every request and answers it with success on the calling thread.
class InstantRilClient : public RilClientHelper {
  public:
    bool Init() override { return true; }
    void Release() override {}
    void* Open() override { return this; }
    void* Open(const char*) override { return this; }
    int Close(void*) override { return 0; }
    int Reconnect(void*) override { return 0; }
    int Send(void* handle, unsigned int request, void* data, unsigned long length,
             RilResponseCallback callback) override {
        return Send(handle, request, data, length, callback, 255);
    }
    int Send(void*, unsigned int request, void*, unsigned long, RilResponseCallback callback,
             unsigned int selector) override {
        callback(request, 0, nullptr, 0, selector);
        return 0;
    }
    int RegisterUnsolicitedResponseHandler(void*, RilUnsolicitedHandler) override { return 0; }
    int SetIndicationFilter(void*, int*, unsigned long) override { return 0; }
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    DropLogLines();
    static InstantRilClient client;
    // The process-wide helper that the loader asks for is this one from now on.
    RilRequestHelper::GetInstance(&client, [](std::chrono::seconds) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static TarvoServiceHandler* const service =
        new TarvoServiceHandler(TarvoMessageHandler::GetInstance());
    {
        std::ofstream table(kTablePath, std::ios::binary | std::ios::trunc);
        table.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
        if (!table) return -1;
    }
    service->SendServiceRequest(TarvoMessageHandler::kLoadGnssCoexConfig);
    return 0;
}

}  // namespace tarvo
