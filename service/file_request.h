#pragma once

#include <string>

#include <log/log.h>

#include "proto/tarvo_message.pb.h"
#include "vek_message.h"

namespace tarvo {

// The checks that every file handler begins with, shared so that each handler states only what
// differs: its operation and its texts.

// The file message of `message` when it carries one with `operation`, else null. Nothing is
// logged: such a message is simply not for this handler.
const tarvo_message::FileMessage* get_file_operation(
    const VekMessage* message, tarvo_message::FileMessage::FileOperationCase operation);

// How a handler names itself when a field is missing.
struct FileFieldTexts {
    const char* missing_file_dir;
    const char* missing_file_name;
};

inline constexpr FileFieldTexts kFileWriteRequestTexts = {"FileWriteRequest requires a file_dir",
                                                          "FileWriteRequest requires a file_name"};
inline constexpr FileFieldTexts kFileReadRequestTexts = {"FileReadRequest requires a file_dir",
                                                         "FileReadRequest requires a file_name"};
inline constexpr FileFieldTexts kFileWriteIndicationTexts = {
    "FileWriteIndication requires a file_dir", "FileWriteIndication requires a file_name"};

// Whether `request` names both a directory and a file. Logs the first missing field, or the
// directory and name when both are there.
template <typename Request>
bool has_file_dir_and_name(const Request& request, const FileFieldTexts& texts) {
    if (!request.has_file_dir()) {
        ALOGE("%s", texts.missing_file_dir);
        return false;
    }
    if (!request.has_file_name()) {
        ALOGE("%s", texts.missing_file_name);
        return false;
    }
    ALOGI("file dir: %d and name: %s", request.file_dir(), request.file_name().c_str());
    return true;
}

// The operation of `message` when it is a file message of that kind that names both a directory
// and a file; null otherwise, after logging a missing field.
template <typename Operation>
const Operation* get_named_file_operation(const VekMessage* message,
                                          tarvo_message::FileMessage::FileOperationCase operation,
                                          const Operation& (tarvo_message::FileMessage::*get)()
                                              const,
                                          const FileFieldTexts& texts) {
    const tarvo_message::FileMessage* file = get_file_operation(message, operation);
    if (file == nullptr) return nullptr;
    const Operation& named = (file->*get)();
    return has_file_dir_and_name(named, texts) ? &named : nullptr;
}

// Whether the modem may use the directory id; logs a refused one.
bool is_allowed_file_dir(int file_dir);

enum class FileTargetStatus {
    kFound,
    kBadDirectory,      // the directory id is not allowed
    kMissingDirectory,  // the directory cannot be examined
};

struct FileTarget {
    FileTargetStatus status;
    std::string path;  // prefix and name as they stand, when found
};

// Resolves the file that an append or a read works on, logging as it goes.
FileTarget find_file_target(int file_dir, const std::string& file_name);

}  // namespace tarvo
