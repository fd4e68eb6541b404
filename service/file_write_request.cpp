#include <log/log.h>

#include "file_write_staging.h"
#include "tarvo_file_message.h"
#include "tarvo_message_handler.h"
#include "tarvo_service_handler.h"

unsigned int TarvoServiceHandler::OnReceiveFileWriteRequest(VekMessage* request) {
    if (request == nullptr || request->GetMessageId() != tarvo_message::TarvoMessage::kFile) {
        return tarvo_message::RESULT_INVALID;
    }
    const tarvo_message::FileMessage& file = request->GetTarvoMessage()->file();
    if (file.FileOperation_case() != tarvo_message::FileMessage::kWriteRequest) {
        return tarvo_message::RESULT_INVALID;
    }
    const tarvo_message::FileWriteRequest& write = file.write_request();
    // A path instead of a directory id and a name marks the modem's previous protocol revision.
    if (!write.file_path().empty()) {
        ALOGE("Old FileWriteRequest is no longer supported");
        return tarvo_message::RESULT_INVALID;
    }

    static constexpr FileWriteStagingTexts kTexts = {
        "FileWriteRequest requires a file_dir", "FileWriteRequest requires a file_name",
        ANDROID_LOG_INFO, "Failed to open", "Moved file into target path"};
    const FileWriteStagingResult staged =
        stage_file_write_block(FileWriteBlock::From(write), kTexts);
    if (staged.status == FileWriteStagingStatus::kRejected) return tarvo_message::RESULT_INVALID;

    // The file result of a write response stays 1 even on success; the modem reads the envelope
    // result.
    TarvoFileMessage response(tarvo_message::RESPONSE, request);
    response.FillWriteResponse();
    response.SetFileMessageResult(staged.file_result);
    response.SetResult(tarvo_message::RESULT_FAILURE);
    if (staged.status == FileWriteStagingStatus::kFailed) {
        handler_->SendResponse(response.GetVekMessage());
        return tarvo_message::RESULT_UNAVAILABLE;
    }
    response.SetResult(tarvo_message::RESULT_SUCCESS);
    return handler_->SendResponse(response.GetVekMessage());
}
