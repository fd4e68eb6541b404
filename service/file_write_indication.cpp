#include "file_request.h"
#include "file_write_staging.h"
#include "tarvo_service_handler.h"
#include "vek_message.h"

namespace tarvo {

unsigned int TarvoServiceHandler::OnReceiveFileWriteIndication(VekMessage* indication) {
    // Unlike a write request, an indication's own file_path does not mark the old protocol: it is
    // ignored and the block is stored like any other.
    const tarvo_message::FileWriteIndication* write = get_named_file_operation(
        indication, tarvo_message::FileMessage::kWriteIndication,
        &tarvo_message::FileMessage::write_indication, kFileWriteIndicationTexts);
    if (write == nullptr) return tarvo_message::RESULT_INVALID;

    static constexpr FileWriteStagingTexts kTexts = {ANDROID_LOG_ERROR, "Fail to open",
                                                     "Move file into target path done"};
    // Nothing is ever sent back for an indication; the outcome shows only in the log.
    const FileWriteStagingResult staged =
        stage_file_write_block(FileWriteBlock::From(*write), kTexts);
    return staged.status == FileWriteStagingStatus::kFailed ? tarvo_message::RESULT_UNAVAILABLE
                                                            : tarvo_message::RESULT_SUCCESS;
}

}  // namespace tarvo
