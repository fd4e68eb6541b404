// The modem's way in: each input is one message as the reader takes it from /dev/oem_ipc1,
// handed to TarvoMessageHandler::ProcessReceivedMessage with the real service handler behind it.
//
// Runs inside the sandbox (tarvo-emu exec --discard-uplink --size-limit ...): the file handlers
// work in the sandbox's size-limited /data and /mnt, and the responses are written to the
// emulated /dev/oem_ipc1, whose messages the rig drops unread. Every input starts from the same
// tree: the device's directories with one file in each that the modem can read, a transfer
// under way, one property, and the UE-capability file that run_fuzz_target.sh puts in /vendor.

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <memory>
#include <string>

#include "fuzz_sandbox.h"
#include "request_list.h"
#include "tarvo_message_handler.h"
#include "tarvo_service_handler.h"
#include "vek_io_handler.h"

namespace tarvo {

namespace {

// The handler as the server has it once started, without its two threads: no reader (the fuzzer
// is the reader) and no modem state monitor, so the modem counts as offline. Nothing on the
// receiving path waits for the modem; the daemon's own requests, which would, are not reached
// from it.
class FuzzedMessageHandler : public TarvoMessageHandler {
  public:
    FuzzedMessageHandler() {
        service_handler_ = std::make_unique<TarvoServiceHandler>(this);
        request_list_ = std::make_unique<RequestList>();
        io_handler_ = std::make_unique<VekIoHandler>(this);
    }

    // One request of the daemon's is outstanding, as while it waits for the modem, so that a
    // response with its token is taken in; nobody waits for it.
    int Process(const uint8_t* data, size_t size) {
        responses_ = 0;
        request_list_->AddRecord(RequestRecord(kOutstandingToken));
        const int status = ProcessReceivedMessage(data, static_cast<unsigned int>(size));
        request_list_->RemoveRecord(kOutstandingToken);
        return status;
    }

    // A modem that stops reading after a while: past this many responses to one message the
    // channel fails. A UE-capability read with a block size of 0 sends empty blocks until a send
    // fails, and the rig's node never fails one.
    int SendResponse(VekMessage* response) override {
        if (++responses_ > kResponsesPerMessage) return tarvo_message::RESULT_IO_ERROR;
        return TarvoMessageHandler::SendResponse(response);
    }

  private:
    static constexpr int kResponsesPerMessage = 256;
    // The token of the response seeds.
    static constexpr uint32_t kOutstandingToken = 11;
    int responses_ = 0;
};

void WriteFile(const char* path, const std::string& content) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    DropLogLines();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static FuzzedMessageHandler* const handler = new FuzzedMessageHandler();
    // The reader never hands over more than its buffer holds.
    if (size > static_cast<size_t>(VekIoHandler::kBufferSize)) return -1;
    ResetDeviceTrees();
    WriteFile("/data/vendor/radio/mds/append.txt", "line 1\nline 2\nline 3\n");
    // The first half of a transfer of "log.bin" (20 bytes), staged: a block at offset 10 ends it.
    WriteFile("/data/vendor/radio/modem_temp_file/log.bin", "0123456789");
    WriteFile("/mnt/vendor/modem_userdata/replay/replay.dat", std::string(300, 'r'));
    HostPropertyStore::Default().Set("vendor.modem.mode", "auto");
    handler->Process(data, size);
    return 0;
}

}  // namespace tarvo
