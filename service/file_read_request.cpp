#include <fstream>
#include <memory>
#include <new>

#include <log/log.h>

#include "file_request.h"
#include "tarvo_file_message.h"
#include "tarvo_message_handler.h"
#include "tarvo_service_handler.h"

namespace tarvo {

unsigned int TarvoServiceHandler::OnReceiveFileReadRequest(VekMessage* request) {
    const tarvo_message::FileReadRequest* named =
        get_named_file_operation(request, tarvo_message::FileMessage::kReadRequest,
                                 &tarvo_message::FileMessage::read_request, kFileReadRequestTexts);
    if (named == nullptr) return tarvo_message::RESULT_INVALID;
    const tarvo_message::FileReadRequest& read = *named;

    TarvoFileMessage response(tarvo_message::RESPONSE, request);
    response.SetFileReadMessageResult(tarvo_message::FILE_RESULT_FAILURE);
    const FileTarget target = find_file_target(read.file_dir(), read.file_name());
    if (target.status == FileTargetStatus::kBadDirectory) {
        response.SetFileReadMessageResult(tarvo_message::FILE_RESULT_BAD_DIRECTORY);
    }
    if (target.status != FileTargetStatus::kFound) return AnswerFailure(&response);

    std::ifstream source(target.path, std::ios::in | std::ios::binary);
    if (!source.is_open()) {
        ALOGE("Failed to open %s", target.path.c_str());
        return AnswerFailure(&response);
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
        return AnswerFailure(&response);
    }
    source.close();

    response.FillReadResponse(buffer.get(), size);
    response.SetResult(tarvo_message::RESULT_SUCCESS);
    response.SetFileReadMessageResult(tarvo_message::FILE_RESULT_SUCCESS);
    return handler_->SendResponse(response.GetVekMessage());
}

}  // namespace tarvo
