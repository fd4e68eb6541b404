#include <sys/stat.h>

#include <fstream>
#include <memory>
#include <new>

#include <log/log.h>

#include "tarvo_file_directory.h"
#include "tarvo_file_message.h"
#include "tarvo_message_handler.h"
#include "tarvo_service_handler.h"

unsigned int TarvoServiceHandler::OnReceiveFileReadRequest(VekMessage* request) {
    if (request == nullptr || request->GetMessageId() != tarvo_message::TarvoMessage::kFile) {
        return tarvo_message::RESULT_INVALID;
    }
    const tarvo_message::FileMessage& file = request->GetTarvoMessage()->file();
    if (file.FileOperation_case() != tarvo_message::FileMessage::kReadRequest) {
        return tarvo_message::RESULT_INVALID;
    }
    const tarvo_message::FileReadRequest& read = file.read_request();
    if (!read.has_file_dir()) {
        ALOGE("FileReadRequest requires a file_dir");
        return tarvo_message::RESULT_INVALID;
    }
    if (!read.has_file_name()) {
        ALOGE("FileReadRequest requires a file_name");
        return tarvo_message::RESULT_INVALID;
    }
    ALOGI("file dir: %d and name: %s", read.file_dir(), read.file_name().c_str());

    TarvoFileMessage response(tarvo_message::RESPONSE, request);
    response.SetFileReadMessageResult(tarvo_message::FILE_RESULT_FAILURE);
    response.SetResult(tarvo_message::RESULT_FAILURE);
    auto fail = [&] {
        handler_->SendResponse(response.GetVekMessage());
        return tarvo_message::RESULT_UNAVAILABLE;
    };

    if (!TarvoFileDirectoryTable::IsValidId(read.file_dir())) {
        ALOGE("Bad file directory: %d", read.file_dir());
        response.SetFileReadMessageResult(tarvo_message::FILE_RESULT_BAD_DIRECTORY);
        return fail();
    }
    const std::string prefix = TarvoFileDirectoryTable::FindDirectoryFromId(read.file_dir());
    const std::string path = prefix + read.file_name();
    ALOGI("prefix: %s file_name: %s", prefix.c_str(), read.file_name().c_str());

    struct stat st;
    if (stat(prefix.c_str(), &st) != 0) {
        ALOGE("Target file directory %s does not exist or permission denied.", prefix.c_str());
        return fail();
    }
    std::ifstream source(path, std::ios::in | std::ios::binary);
    if (!source.is_open()) {
        ALOGE("Failed to open %s", path.c_str());
        return fail();
    }

    // The modem asks for exactly the bytes it wants: a block that runs past the end of the file
    // fails whole rather than coming back short. A size that cannot be allocated fails the same
    // way instead of ending the daemon.
    const uint32_t size = read.max_data_size();
    ALOGI("size: 0x%lX", static_cast<unsigned long>(size));
    std::unique_ptr<char[]> buffer(new (std::nothrow) char[size]);
    if (buffer != nullptr) {
        source.seekg(read.offset(), std::ios::beg);
        source.read(buffer.get(), size);
    }
    if (buffer == nullptr || source.fail() || source.bad()) {
        ALOGE("Failed to read target file correctly");
        return fail();
    }
    source.close();

    response.FillReadResponse(buffer.get(), size);
    response.SetResult(tarvo_message::RESULT_SUCCESS);
    response.SetFileReadMessageResult(tarvo_message::FILE_RESULT_SUCCESS);
    return handler_->SendResponse(response.GetVekMessage());
}
