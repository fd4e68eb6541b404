#include <sys/stat.h>

#include <fstream>

#include <log/log.h>

#include "tarvo_file_directory.h"
#include "tarvo_file_message.h"
#include "tarvo_message_handler.h"
#include "tarvo_service_handler.h"

namespace {

constexpr mode_t kAppendedFileMode = 0664;

}  // namespace

unsigned int TarvoServiceHandler::OnReceiveFileAppendRequest(VekMessage* request) {
    if (request == nullptr || request->GetMessageId() != tarvo_message::TarvoMessage::kFile) {
        return tarvo_message::RESULT_INVALID;
    }
    const tarvo_message::FileMessage& file = request->GetTarvoMessage()->file();
    if (file.FileOperation_case() != tarvo_message::FileMessage::kAppendRequest) {
        return tarvo_message::RESULT_INVALID;
    }
    const tarvo_message::FileAppendRequest& append = file.append_request();
    // The texts name the write request: appends share the write request's messages.
    if (!append.has_file_dir()) {
        ALOGE("FileWriteRequest requires a file_dir");
        return tarvo_message::RESULT_INVALID;
    }
    if (!append.has_file_name()) {
        ALOGE("FileWriteRequest requires a file_name");
        return tarvo_message::RESULT_INVALID;
    }
    ALOGI("file dir: %d and name: %s", append.file_dir(), append.file_name().c_str());

    TarvoFileMessage response(tarvo_message::RESPONSE, request);
    response.FillWriteResponse();
    response.SetFileMessageResult(tarvo_message::FILE_RESULT_FAILURE);
    response.SetResult(tarvo_message::RESULT_FAILURE);
    auto fail = [&] {
        handler_->SendResponse(response.GetVekMessage());
        return tarvo_message::RESULT_UNAVAILABLE;
    };

    if (!TarvoFileDirectoryTable::IsValidId(append.file_dir())) {
        ALOGE("Bad file directory: %d", append.file_dir());
        response.SetFileMessageResult(tarvo_message::FILE_RESULT_BAD_DIRECTORY);
        return fail();
    }
    const std::string prefix = TarvoFileDirectoryTable::FindDirectoryFromId(append.file_dir());
    const std::string path = prefix + append.file_name();
    ALOGI("prefix: %s file_name: %s", prefix.c_str(), append.file_name().c_str());

    struct stat st;
    if (stat(prefix.c_str(), &st) != 0) {
        ALOGE("Target file directory %s does not exist or permission denied.", prefix.c_str());
        return fail();
    }
    {
        std::ofstream target(path, std::ios::out | std::ios::app | std::ios::binary);
        if (!target.is_open()) {
            ALOGE("Failed to open %s", path.c_str());
            return fail();
        }
        ALOGI("size: 0x%lX", static_cast<unsigned long>(append.data().size()));
        // Flushed here so that a failing write shows in the stream state. What was written
        // before a failure stays appended.
        target.write(append.data().data(), append.data().size()).flush();
        if (target.fail() || target.bad()) {
            ALOGE("Failed to write target file correctly");
            return fail();
        }
    }
    chmod(path.c_str(), kAppendedFileMode);

    // Like a write, a successful append keeps file result 1; only the envelope result says 0.
    response.SetResult(tarvo_message::RESULT_SUCCESS);
    return handler_->SendResponse(response.GetVekMessage());
}
