#include "file_write_staging.h"
#include "tarvo_service_handler.h"
#include "vek_message.h"

unsigned int TarvoServiceHandler::OnReceiveFileWriteIndication(VekMessage* indication) {
    if (indication == nullptr || indication->GetMessageId() != tarvo_message::TarvoMessage::kFile) {
        return tarvo_message::RESULT_INVALID;
    }
    const tarvo_message::FileMessage& file = indication->GetTarvoMessage()->file();
    if (file.FileOperation_case() != tarvo_message::FileMessage::kWriteIndication) {
        return tarvo_message::RESULT_INVALID;
    }
    // Unlike a write request, an indication's own file_path does not mark the old protocol: it is
    // ignored and the block is stored like any other.

    static constexpr FileWriteStagingTexts kTexts = {
        "FileWriteIndication requires a file_dir", "FileWriteIndication requires a file_name",
        ANDROID_LOG_ERROR, "Fail to open", "Move file into target path done"};
    // Nothing is ever sent back for an indication; the outcome shows only in the log.
    switch (stage_file_write_block(FileWriteBlock::From(file.write_indication()), kTexts).status) {
        case FileWriteStagingStatus::kRejected:
            return tarvo_message::RESULT_INVALID;
        case FileWriteStagingStatus::kFailed:
            return tarvo_message::RESULT_UNAVAILABLE;
        case FileWriteStagingStatus::kAccepted:
        case FileWriteStagingStatus::kCompleted:
            return tarvo_message::RESULT_SUCCESS;
    }
    return tarvo_message::RESULT_UNAVAILABLE;
}
