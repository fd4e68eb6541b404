#include <sys/stat.h>

#include <fstream>

#include <log/log.h>

#include "file_request.h"
#include "tarvo_file_message.h"
#include "tarvo_message_handler.h"
#include "tarvo_service_handler.h"

namespace tarvo {

namespace {

constexpr mode_t kAppendedFileMode = 0664;

}  // namespace

unsigned int TarvoServiceHandler::OnReceiveFileAppendRequest(VekMessage* request) {
    // Appends share the write request's texts.
    const tarvo_message::FileAppendRequest* named = get_named_file_operation(
        request, tarvo_message::FileMessage::kAppendRequest,
        &tarvo_message::FileMessage::append_request, kFileWriteRequestTexts);
    if (named == nullptr) return tarvo_message::RESULT_INVALID;
    const tarvo_message::FileAppendRequest& append = *named;

    TarvoFileMessage response(tarvo_message::RESPONSE, request);
    response.FillWriteResponse();
    response.SetFileMessageResult(tarvo_message::FILE_RESULT_FAILURE);
    const FileTarget target = find_file_target(append.file_dir(), append.file_name());
    if (target.status == FileTargetStatus::kBadDirectory) {
        response.SetFileMessageResult(tarvo_message::FILE_RESULT_BAD_DIRECTORY);
    }
    if (target.status != FileTargetStatus::kFound) return AnswerFailure(&response);

    {
        // Unbuffered: a write that fails leaves no bytes behind in the stream for its close to
        // write after the failure has been answered.
        std::ofstream stream;
        stream.rdbuf()->pubsetbuf(nullptr, 0);
        stream.open(target.path, std::ios::out | std::ios::app | std::ios::binary);
        if (!stream.is_open()) {
            ALOGE("Failed to open %s", target.path.c_str());
            return AnswerFailure(&response);
        }
        ALOGI("size: 0x%lX", static_cast<unsigned long>(append.data().size()));
        // What was written before a failure stays appended.
        stream.write(append.data().data(), append.data().size());
        if (stream.fail() || stream.bad()) {
            ALOGE("Failed to write target file correctly");
            return AnswerFailure(&response);
        }
    }
    chmod(target.path.c_str(), kAppendedFileMode);

    // Like a write, a successful append keeps file result 1; only the envelope result says 0.
    response.SetResult(tarvo_message::RESULT_SUCCESS);
    return handler_->SendResponse(response.GetVekMessage());
}

}  // namespace tarvo
