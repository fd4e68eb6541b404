#include <log/log.h>

#include "file_request.h"
#include "file_write_staging.h"
#include "tarvo_file_message.h"
#include "tarvo_message_handler.h"
#include "tarvo_service_handler.h"

namespace tarvo {

unsigned int TarvoServiceHandler::OnReceiveFileWriteRequest(VekMessage* request) {
    const tarvo_message::FileMessage* file =
        get_file_operation(request, tarvo_message::FileMessage::kWriteRequest);
    if (file == nullptr) return tarvo_message::RESULT_INVALID;
    const tarvo_message::FileWriteRequest& write = file->write_request();
    // A path instead of a directory id and a name marks the modem's previous protocol revision.
    if (!write.file_path().empty()) {
        ALOGE("Old FileWriteRequest is no longer supported");
        return tarvo_message::RESULT_INVALID;
    }
    if (!has_file_dir_and_name(write, kFileWriteRequestTexts)) return tarvo_message::RESULT_INVALID;

    static constexpr FileWriteStagingTexts kTexts = {ANDROID_LOG_INFO, "Failed to open",
                                                     "Moved file into target path"};
    const FileWriteStagingResult staged =
        stage_file_write_block(FileWriteBlock::From(write), kTexts);

    // The file result of a write response stays 1 even on success; the modem reads the envelope
    // result.
    TarvoFileMessage response(tarvo_message::RESPONSE, request);
    response.FillWriteResponse();
    response.SetFileMessageResult(staged.file_result);
    if (staged.status == FileWriteStagingStatus::kFailed) return AnswerFailure(&response);
    response.SetResult(tarvo_message::RESULT_SUCCESS);
    return handler_->SendResponse(response.GetVekMessage());
}

}  // namespace tarvo
