#include "soak/file_transfer_model.h"

#include <functional>

#include <android-base/stringprintf.h>

#include "device/device_facts.h"

using android::base::StringPrintf;
using tarvo_message::TarvoMessage;

namespace tarvo_emu {

namespace {

// File modes the daemon gives: a staging file and an appended file, a completed target.
constexpr mode_t kStagingMode = 0664;
constexpr mode_t kTargetMode = 0666;
constexpr mode_t kAppendMode = 0664;

std::string Hex(uint64_t value) { return StringPrintf("0x%llX", (unsigned long long)value); }

// The prefix of the directory that a `kind` names, logged as the daemon logs it; none when the
// request lacks its directory or name (the daemon drops it) or the directory is unknown
// (`refuse` answers it).
template <typename Request>
std::optional<std::string> Prefix(ModelSteps& steps, const std::string& kind,
                                  const Request& request, const std::function<void()>& refuse) {
    if (!request.has_file_dir() || !request.has_file_name()) {
        steps.Log(kLogError, kind + (request.has_file_dir() ? " requires a file_name"
                                                            : " requires a file_dir"));
        steps.Ping();
        return std::nullopt;
    }
    steps.Log(kLogInfo, StringPrintf("file dir: %d and name: %s", request.file_dir(),
                                     request.file_name().c_str()));
    std::optional<std::string> prefix = FileDirectory(request.file_dir());
    if (!prefix) {
        steps.Log(kLogError, StringPrintf("Bad file directory: %d", request.file_dir()));
        refuse();
    }
    return prefix;
}

}  // namespace

std::optional<size_t> FileTransferModel::StagedSize(const std::string& name) const {
    const std::optional<std::string> staged =
        files_.Resolve(std::string(kStagingDirectory) + "/" + name);
    if (!staged) return std::nullopt;
    const ModelFileSystem::File* file = files_.Find(*staged);
    if (file == nullptr) return std::nullopt;
    return file->content.size();
}

std::optional<size_t> FileTransferModel::FileSize(uint32_t directory,
                                                  const std::string& name) const {
    const std::optional<std::string> prefix = FileDirectory(directory);
    if (!prefix) return std::nullopt;
    const std::optional<std::string> path = files_.Resolve(*prefix + name);
    if (!path) return std::nullopt;
    const ModelFileSystem::File* file = files_.Find(*path);
    if (file == nullptr) return std::nullopt;
    return file->content.size();
}

void FileTransferModel::Play(const tarvo_message::FileMessage& file, uint32_t token, bool request) {
    if (request && file.has_write_request()) {
        steps_.Log(kLogInfo, "Got File write request");
        BlockWrite(file.write_request(), token, false);
    } else if (!request && file.has_write_indication()) {
        steps_.Log(kLogInfo, "Got File write indication");
        const tarvo_message::FileWriteIndication& indication = file.write_indication();
        tarvo_message::FileWriteRequest block;
        // The indication's own legacy field is never looked at.
        if (indication.has_data()) block.set_data(indication.data());
        if (indication.has_file_name()) block.set_file_name(indication.file_name());
        if (indication.has_total_size()) block.set_total_size(indication.total_size());
        if (indication.has_offset()) block.set_offset(indication.offset());
        if (indication.has_file_dir()) block.set_file_dir(indication.file_dir());
        BlockWrite(block, token, true);
    } else if (request && file.has_append_request()) {
        steps_.Log(kLogInfo, "Got File write append request");
        Append(file.append_request(), token);
    } else if (request && file.has_read_request()) {
        steps_.Log(kLogInfo, "Got File read request");
        Read(file.read_request(), token);
    }
}

void FileTransferModel::BlockWrite(const tarvo_message::FileWriteRequest& block, uint32_t token,
                                   bool indication) {
    const std::string kind = indication ? "FileWriteIndication" : "FileWriteRequest";
    // An indication is not answered: the ping's answer shows it handled, before its files are
    // looked at.
    const auto respond = [this, token, indication](int result, int file_result) {
        if (indication) {
            steps_.Ping();
            return;
        }
        TarvoMessage payload;
        payload.mutable_file()->mutable_write_response()->set_result(
            static_cast<tarvo_message::FileMessageResult>(file_result));
        steps_.Respond(token, result, std::move(payload));
    };
    if (!indication && !block.file_path().empty()) {
        steps_.Log(kLogError, "Old FileWriteRequest is no longer supported");
        steps_.Ping();
        return;
    }
    const std::optional<std::string> found = Prefix(steps_, kind, block, [&respond] {
        respond(tarvo_message::RESULT_FAILURE, tarvo_message::FILE_RESULT_BAD_DIRECTORY);
    });
    if (!found) return;
    const std::string& prefix = *found;
    const std::string& name = block.file_name();
    const std::string target_path = prefix + name;
    const std::string staging_path = std::string(kStagingDirectory) + "/" + name;
    const uint32_t offset = block.offset();
    const uint32_t total = block.total_size();
    steps_.Log(kLogInfo, "offset: " + Hex(offset) + ", size: " + Hex(total));
    steps_.Log(kLogInfo, "prefix: " + prefix + "\nfile_name: " + name);
    if (offset >= total) {
        steps_.Log(kLogError, "Bad max_data_size " + Hex(total) + " or offset " + Hex(offset));
        respond(tarvo_message::RESULT_FAILURE, tarvo_message::FILE_RESULT_BAD_OFFSET);
        return;
    }
    steps_.Log(indication ? kLogError : kLogInfo,
               "Handle file write operation to path: " + target_path +
                   " for offset: " + Hex(offset) + " (total: " + Hex(total) + ")");
    const std::optional<std::string> staging = files_.Resolve(staging_path);
    const std::optional<std::string> target = files_.Resolve(target_path);
    if (offset == 0) {
        if (staging && files_.IsWritable(*staging)) files_.Remove(*staging);
    } else if (staging && files_.Find(*staging) != nullptr &&
               files_.Find(*staging)->content.size() != offset) {
        steps_.Log(kLogError, "Bad offset " + Hex(offset) + " comparing to the expected one: " +
                                  Hex(files_.Find(*staging)->content.size()));
        respond(tarvo_message::RESULT_FAILURE, tarvo_message::FILE_RESULT_BAD_OFFSET);
        steps_.CheckFile(staging);
        return;
    }
    if (!staging || !files_.IsWritable(*staging) || files_.IsDirectory(*staging)) {
        steps_.Log(kLogError, (indication ? "Fail to open " : "Failed to open ") + staging_path);
        respond(tarvo_message::RESULT_FAILURE, tarvo_message::FILE_RESULT_FAILURE);
        steps_.CheckFile(staging);
        return;
    }
    steps_.Log(kLogInfo, StringPrintf("size: 0x%zX", block.data().size()));
    const size_t room = files_.Room(*staging, block.data().size());
    ModelFileSystem::File& staged = files_.Open(*staging, ModelFileSystem::kUmaskMode);
    // What fits before the disk is full stays written.
    staged.content += block.data().substr(0, room);
    if (room < block.data().size()) {
        steps_.Log(kLogError, "Failed to write temp file correctly");
        respond(tarvo_message::RESULT_FAILURE, tarvo_message::FILE_RESULT_FAILURE);
        steps_.CheckFile(staging);
        return;
    }
    staged.mode = kStagingMode;
    if (staged.content.size() != total) {
        respond(tarvo_message::RESULT_SUCCESS, tarvo_message::FILE_RESULT_FAILURE);
        steps_.CheckFile(staging);
        return;
    }
    // Complete: the target is removed first, then the staging file copied over it.
    const bool target_writable =
        target && files_.IsWritable(*target) && !files_.IsDirectory(*target);
    if (target_writable) files_.Remove(*target);
    const ModelFileSystem::File* source = files_.Find(*staging);
    // A copy cut short by a full disk is removed: no half-written target is left.
    const bool copied = source != nullptr && target_writable &&
                        files_.Room(*target, source->content.size()) == source->content.size();
    if (copied) files_.Open(*target, kTargetMode).content = source->content;
    files_.Remove(*staging);
    if (!copied) {
        steps_.Log(kLogError, "File transfer failed.");
        respond(tarvo_message::RESULT_FAILURE, tarvo_message::FILE_RESULT_FAILURE);
    } else {
        steps_.Log(kLogError,
                   indication ? "Move file into target path done" : "Moved file into target path");
        respond(tarvo_message::RESULT_SUCCESS, tarvo_message::FILE_RESULT_FAILURE);
    }
    steps_.CheckFile(staging);
    steps_.CheckFile(target);
}

void FileTransferModel::Append(const tarvo_message::FileAppendRequest& request, uint32_t token) {
    const auto respond = [this, token](int result, int file_result) {
        TarvoMessage payload;
        payload.mutable_file()->mutable_write_response()->set_result(
            static_cast<tarvo_message::FileMessageResult>(file_result));
        steps_.Respond(token, result, std::move(payload));
    };
    const std::optional<std::string> found = Prefix(steps_, "FileWriteRequest", request, [&] {
        respond(tarvo_message::RESULT_FAILURE, tarvo_message::FILE_RESULT_BAD_DIRECTORY);
    });
    if (!found) return;
    const std::string& prefix = *found;
    const std::string path = prefix + request.file_name();
    steps_.Log(kLogInfo, "prefix: " + prefix + " file_name: " + request.file_name());
    const std::optional<std::string> target = files_.Resolve(path);
    if (!target || !files_.IsWritable(*target) || files_.IsDirectory(*target)) {
        steps_.Log(kLogError, "Failed to open " + path);
        respond(tarvo_message::RESULT_FAILURE, tarvo_message::FILE_RESULT_FAILURE);
        steps_.CheckFile(target);
        return;
    }
    steps_.Log(kLogInfo, StringPrintf("size: 0x%zX", request.data().size()));
    const size_t room = files_.Room(*target, request.data().size());
    ModelFileSystem::File& file = files_.Open(*target, ModelFileSystem::kUmaskMode);
    file.content += request.data().substr(0, room);
    if (room < request.data().size()) {
        steps_.Log(kLogError, "Failed to write target file correctly");
        respond(tarvo_message::RESULT_FAILURE, tarvo_message::FILE_RESULT_FAILURE);
        steps_.CheckFile(target);
        return;
    }
    file.mode = kAppendMode;
    respond(tarvo_message::RESULT_SUCCESS, tarvo_message::FILE_RESULT_FAILURE);
    steps_.CheckFile(target);
}

void FileTransferModel::Read(const tarvo_message::FileReadRequest& request, uint32_t token) {
    const auto respond = [this, token](int result, int file_result, const std::string* data) {
        TarvoMessage payload;
        tarvo_message::FileReadResponse* response = payload.mutable_file()->mutable_read_response();
        if (data != nullptr) response->set_data(*data);
        response->set_result(static_cast<tarvo_message::FileMessageResult>(file_result));
        steps_.Respond(token, result, std::move(payload));
    };
    const std::optional<std::string> found = Prefix(steps_, "FileReadRequest", request, [&] {
        respond(tarvo_message::RESULT_FAILURE, tarvo_message::FILE_RESULT_BAD_DIRECTORY, nullptr);
    });
    if (!found) return;
    const std::string& prefix = *found;
    const std::string path = prefix + request.file_name();
    steps_.Log(kLogInfo, "prefix: " + prefix + " file_name: " + request.file_name());
    const std::optional<std::string> resolved = files_.Resolve(path);
    const ModelFileSystem::File* file = resolved ? files_.Find(*resolved) : nullptr;
    if (file == nullptr) {
        steps_.Log(kLogError, "Failed to open " + path);
        respond(tarvo_message::RESULT_FAILURE, tarvo_message::FILE_RESULT_FAILURE, nullptr);
        return;
    }
    steps_.Log(kLogInfo, StringPrintf("size: 0x%X", request.max_data_size()));
    const uint64_t end = uint64_t{request.offset()} + request.max_data_size();
    if (end > file->content.size()) {
        steps_.Log(kLogError, "Failed to read target file correctly");
        respond(tarvo_message::RESULT_FAILURE, tarvo_message::FILE_RESULT_FAILURE, nullptr);
        return;
    }
    const std::string data = file->content.substr(request.offset(), request.max_data_size());
    respond(tarvo_message::RESULT_SUCCESS, tarvo_message::FILE_RESULT_SUCCESS, &data);
}

}  // namespace tarvo_emu
