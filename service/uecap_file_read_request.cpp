#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <string>

#include <log/log.h>

#include "tarvo_file_directory.h"
#include "tarvo_message_handler.h"
#include "tarvo_service_handler.h"
#include "tarvo_uecap_file_message.h"
#include "vek_message.h"

namespace tarvo {

using tarvo_message::UecapFileMessage;

namespace {

// 0 when the request is well formed, else the status to return after the bad-format answer.
unsigned int CheckUecapReadRequest(const VekMessage& request) {
    if (request.GetMessageId() != tarvo_message::TarvoMessage::kUecapFile) {
        return tarvo_message::RESULT_INVALID;
    }
    const UecapFileMessage& uecap = request.GetTarvoMessage()->uecap_file();
    if (uecap.UecapFileOperation_case() != UecapFileMessage::kReadRequest) {
        return tarvo_message::RESULT_INVALID;
    }
    const auto& read = uecap.read_request();
    if (!read.has_file_name() || !read.has_directory()) return tarvo_message::RESULT_INVALID;
    // Any whitelisted directory passes here; only the UE-capability one is read later.
    if (!TarvoFileDirectoryTable::IsValidId(read.directory())) {
        return tarvo_message::RESULT_UNAVAILABLE;
    }
    return tarvo_message::RESULT_SUCCESS;
}

}  // namespace

unsigned int TarvoServiceHandler::OnReceiveUecapFileReadRequest(VekMessage* request) {
    if (request == nullptr || request->GetTarvoMessage() == nullptr) {
        return tarvo_message::RESULT_INVALID;
    }

    TarvoUecapFileMessage response(tarvo_message::RESPONSE, request);
    response.FillUecapReadResponse(0, false);
    response.FillUecapReadResponseData(nullptr, 0);

    if (const unsigned int status = CheckUecapReadRequest(*request); status != 0) {
        ALOGE("The incoming request has bad format");
        response.SetResult(tarvo_message::RESULT_BAD_FORMAT);
        response.SetUecapFileMessageResult(tarvo_message::UECAP_RESULT_BAD_FORMAT);
        handler_->SendResponse(response.GetVekMessage());
        return status;
    }

    std::unique_ptr<char[]> buffer;
    uint32_t size = 0;
    if (const unsigned int status = TryUecapFileRead(request, &buffer, &size); status != 0) {
        ALOGE("UECap File Read failed.");
        response.SetResult(tarvo_message::RESULT_FAILURE);
        response.SetUecapFileMessageResult(tarvo_message::UECAP_RESULT_READ_FAILED);
        handler_->SendResponse(response.GetVekMessage());
        return status;
    }

    response.SetResult(tarvo_message::RESULT_SUCCESS);
    response.SetUecapFileMessageResult(tarvo_message::UECAP_RESULT_SUCCESS);

    // A block size of 0 never advances the offset: empty blocks go out until a send fails.
    const uint32_t block_size =
        request->GetTarvoMessage()->uecap_file().read_request().block_size();
    uint32_t offset = 0;
    uint32_t remaining = size;
    uint32_t token = request->GetToken();
    int send_status = 0;
    while (offset < size) {
        const uint32_t length = std::min(remaining, block_size);
        response.FillUecapReadResponseData(buffer.get() + offset, length);
        response.FillUecapReadResponse(offset, offset + block_size >= size);
        response.SetToken(token);
        // Deliberately logs one past the token that goes out.
        ALOGI("Send response with offset: %d, data size: %d, token: %d", offset, length, token + 1);
        send_status = handler_->SendResponse(response.GetVekMessage());
        if (send_status != 0) break;
        token += 1;
        offset += block_size;
        remaining -= block_size;
    }

    if (send_status != 0) {
        ALOGE("Failed to send file %d", send_status);
        return tarvo_message::RESULT_IO_ERROR;
    }
    ALOGI("Succeeded to send all blocks of file");
    return tarvo_message::RESULT_SUCCESS;
}

unsigned int TarvoServiceHandler::TryUecapFileRead(VekMessage* request,
                                                   std::unique_ptr<char[]>* buffer,
                                                   uint32_t* size) {
    const auto& read = request->GetTarvoMessage()->uecap_file().read_request();
    if (read.directory() != tarvo_message::FILE_DIR_UECAP) return tarvo_message::RESULT_UNAVAILABLE;

    const std::string directory =
        TarvoFileDirectoryTable::FindDirectoryFromId(tarvo_message::FILE_DIR_UECAP);
    // The name is used as it stands, inside the read-only firmware directory.
    const std::string path = directory + read.file_name();
    ALOGI("prefix: %s file_name: %s", directory.c_str(), read.file_name().c_str());

    struct stat st;
    if (stat(path.c_str(), &st) != 0) return tarvo_message::RESULT_UNAVAILABLE;

    std::ifstream file(path, std::ios::binary);
    if (!file.is_open()) {
        ALOGE("Failed to open %s", path.c_str());
        return tarvo_message::RESULT_UNAVAILABLE;
    }

    file.seekg(0, std::ios::end);
    const std::streamoff end = file.tellg();
    if (end < 0) {
        ALOGE("Failed to read UECAP file");
        return tarvo_message::RESULT_UNAVAILABLE;
    }
    const uint32_t file_size = static_cast<uint32_t>(end);
    const uint32_t read_size = std::min(read.read_size(), file_size);
    ALOGI("file size: %d, read size: %d, requested read size: %d", file_size, read_size,
          read.read_size());

    auto data = std::make_unique<char[]>(read_size);
    file.seekg(0, std::ios::beg);
    file.read(data.get(), read_size);
    if (file.fail()) {
        ALOGE("Failed to read UECAP file");
        return tarvo_message::RESULT_UNAVAILABLE;
    }

    *buffer = std::move(data);
    *size = read_size;
    return tarvo_message::RESULT_SUCCESS;
}

}  // namespace tarvo
