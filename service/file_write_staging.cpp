#include "file_write_staging.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <vector>

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <log/log.h>

#include "file_request.h"
#include "tarvo_file_directory.h"

namespace tarvo {

namespace {

using tarvo_message::FILE_RESULT_BAD_DIRECTORY;
using tarvo_message::FILE_RESULT_BAD_OFFSET;
using tarvo_message::FILE_RESULT_FAILURE;

constexpr char kStagingDirectory[] = "/data/vendor/radio/modem_temp_file/";
constexpr mode_t kTemporaryFileMode = 0664;
constexpr mode_t kCompletedFileMode = 0666;
constexpr size_t kCopyBufferSize = 64 * 1024;

// The umask is process-wide; only the reader thread, which runs this, creates files meanwhile.
class ScopedUmask {
  public:
    explicit ScopedUmask(mode_t mask) : previous_(umask(mask)) {}
    ScopedUmask(const ScopedUmask&) = delete;
    ScopedUmask& operator=(const ScopedUmask&) = delete;
    ~ScopedUmask() { umask(previous_); }

  private:
    mode_t previous_;
};

FileWriteStagingResult Failed(tarvo_message::FileMessageResult file_result = FILE_RESULT_FAILURE) {
    return {FileWriteStagingStatus::kFailed, file_result};
}

// Appends the block to the temporary file; false once the failure has been logged.
bool AppendToTemporaryFile(const std::string& path, const std::string& data,
                           const FileWriteStagingTexts& texts) {
    std::ofstream temporary(path, std::ios::out | std::ios::app | std::ios::binary);
    if (!temporary.is_open()) {
        ALOGE("%s %s", texts.open_failed, path.c_str());
        return false;
    }
    ALOGI("size: 0x%lX", static_cast<unsigned long>(data.size()));
    // Flushed here so that a failing write shows in the stream state, not only at close.
    temporary.write(data.data(), data.size()).flush();
    if (temporary.fail() || temporary.bad()) {
        ALOGE("Failed to write temp file correctly");
        return false;
    }
    return true;
}

// Copies `from` over `to` (created with mode 0666 under the current umask); false unless every
// byte was written and the target closed cleanly.
bool CopyFile(const std::string& from, const std::string& to) {
    android::base::unique_fd source(open(from.c_str(), O_RDONLY | O_CLOEXEC));
    if (source < 0) return false;
    android::base::unique_fd target(
        open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kCompletedFileMode));
    if (target < 0) return false;
    // Streams through one buffer; the file is never held in memory whole.
    std::vector<char> buffer(kCopyBufferSize);
    while (true) {
        const ssize_t n = TEMP_FAILURE_RETRY(read(source, buffer.data(), buffer.size()));
        if (n < 0) return false;
        if (n == 0) break;
        if (!android::base::WriteFully(target, buffer.data(), n)) return false;
    }
    // Some file systems report a failed write only at close.
    return close(target.release()) == 0;
}

// Replaces the target with the completed temporary file. Whatever happens to the copy, the
// temporary file is removed afterwards. A copy that did not complete leaves no target either, so
// that the modem, told of the failure, sends the whole file again.
FileWriteStagingResult MoveIntoTarget(const std::string& prefix, const std::string& temporary_path,
                                      const std::string& target_path,
                                      const FileWriteStagingTexts& texts) {
    unlink(target_path.c_str());
    ScopedUmask no_mask(0);

    struct stat st;
    if (stat(prefix.c_str(), &st) != 0) {
        ALOGE("File/path %s does not exist or permission denied.", prefix.c_str());
        return Failed();
    }

    const bool copied = CopyFile(temporary_path, target_path);
    if (!copied) {
        ALOGE("File transfer failed.");
        unlink(target_path.c_str());
    }
    unlink(temporary_path.c_str());
    chmod(target_path.c_str(), kCompletedFileMode);
    if (!copied) return Failed();

    ALOGE("%s", texts.completed);
    return {FileWriteStagingStatus::kCompleted, FILE_RESULT_FAILURE};
}

}  // namespace

FileWriteStagingResult stage_file_write_block(const FileWriteBlock& block,
                                              const FileWriteStagingTexts& texts) {
    if (!is_allowed_file_dir(block.file_dir)) return Failed(FILE_RESULT_BAD_DIRECTORY);

    const std::string prefix = TarvoFileDirectoryTable::FindDirectoryFromId(
        static_cast<tarvo_message::FileDirectory>(block.file_dir));
    const std::string target_path = prefix + block.file_name;
    const std::string temporary_path = kStagingDirectory + block.file_name;
    ALOGI("offset: 0x%X, size: 0x%X", block.offset, block.total_size);
    ALOGI("prefix: %s\nfile_name: %s", prefix.c_str(), block.file_name.c_str());

    // The text names max_data_size although it reports the total size; it is kept word for word
    // because log readers match on it.
    if (block.offset >= block.total_size) {
        ALOGE("Bad max_data_size 0x%X or offset 0x%X", block.total_size, block.offset);
        return Failed(FILE_RESULT_BAD_OFFSET);
    }

    LOG_PRI(texts.handle_priority, LOG_TAG,
            "Handle file write operation to path: %s for offset: 0x%X (total: 0x%X)",
            target_path.c_str(), block.offset, block.total_size);

    struct stat st;
    if (stat(kStagingDirectory, &st) != 0) {
        ALOGE("Temp file directory %s does not exist or permission denied.", kStagingDirectory);
        return Failed();
    }

    // Offset 0 always starts afresh. Any other offset must continue the temporary file, but a
    // missing one is taken as the start of a new file.
    if (block.offset == 0) {
        unlink(temporary_path.c_str());
    } else if (stat(temporary_path.c_str(), &st) == 0 &&
               st.st_size != static_cast<off_t>(block.offset)) {
        ALOGE("Bad offset 0x%X comparing to the expected one: 0x%lX", block.offset,
              static_cast<unsigned long>(st.st_size));
        return Failed(FILE_RESULT_BAD_OFFSET);
    }

    if (!AppendToTemporaryFile(temporary_path, block.data, texts)) return Failed();
    chmod(temporary_path.c_str(), kTemporaryFileMode);

    if (stat(temporary_path.c_str(), &st) != 0) {
        ALOGE("Temp file %s does not exist or permission denied.", temporary_path.c_str());
        return Failed();
    }
    // A temporary file that has grown past the total size is also not complete; only a block at
    // offset 0 can start it again.
    if (st.st_size != static_cast<off_t>(block.total_size)) {
        return {FileWriteStagingStatus::kAccepted, FILE_RESULT_FAILURE};
    }
    return MoveIntoTarget(prefix, temporary_path, target_path, texts);
}

}  // namespace tarvo
