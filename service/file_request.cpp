#include "file_request.h"

#include <sys/stat.h>

#include "tarvo_file_directory.h"

namespace tarvo {

const tarvo_message::FileMessage* get_file_operation(
    const VekMessage* message, tarvo_message::FileMessage::FileOperationCase operation) {
    if (message == nullptr || message->GetMessageId() != tarvo_message::TarvoMessage::kFile) {
        return nullptr;
    }
    const tarvo_message::FileMessage& file = message->GetTarvoMessage()->file();
    return file.FileOperation_case() == operation ? &file : nullptr;
}

bool is_allowed_file_dir(int file_dir) {
    if (TarvoFileDirectoryTable::IsValidId(file_dir)) return true;
    ALOGE("Bad file directory: %d", file_dir);
    return false;
}

FileTarget find_file_target(int file_dir, const std::string& file_name) {
    if (!is_allowed_file_dir(file_dir)) return {FileTargetStatus::kBadDirectory, {}};
    const std::string prefix = TarvoFileDirectoryTable::FindDirectoryFromId(
        static_cast<tarvo_message::FileDirectory>(file_dir));
    ALOGI("prefix: %s file_name: %s", prefix.c_str(), file_name.c_str());

    struct stat st;
    if (stat(prefix.c_str(), &st) != 0) {
        ALOGE("Target file directory %s does not exist or permission denied.", prefix.c_str());
        return {FileTargetStatus::kMissingDirectory, {}};
    }
    return {FileTargetStatus::kFound, prefix + file_name};
}

}  // namespace tarvo
