#pragma once

#include <cstdint>
#include <string>

#include <android/log.h>

#include "proto/tarvo_message.pb.h"

namespace tarvo {

// One block of a staged file transfer. Write requests and write indications carry the same
// fields in different messages; both are read into this once their name and directory are known.
struct FileWriteBlock {
    int file_dir;
    const std::string& file_name;
    const std::string& data;
    uint32_t total_size;
    uint32_t offset;

    template <typename Message>
    static FileWriteBlock From(const Message& message) {
        return {message.file_dir(), message.file_name(), message.data(), message.total_size(),
                message.offset()};
    }
};

// What tells the two kinds of staged transfer apart in the log.
struct FileWriteStagingTexts {
    android_LogPriority handle_priority;  // of "Handle file write operation to path: ..."
    const char* open_failed;              // followed by the temporary path
    const char* completed;                // logged at error priority
};

enum class FileWriteStagingStatus {
    kFailed,     // answered with failure and `file_result`
    kAccepted,   // block stored, more expected
    kCompleted,  // target file replaced
};

struct FileWriteStagingResult {
    FileWriteStagingStatus status;
    tarvo_message::FileMessageResult file_result;
};

// Stores one block in the staging directory and, once the temporary file has the announced
// total size, copies it over the target. The temporary file's size is the whole transfer state.
FileWriteStagingResult stage_file_write_block(const FileWriteBlock& block,
                                              const FileWriteStagingTexts& texts);

}  // namespace tarvo
