#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "soak/model_file_system.h"
#include "soak/model_steps.h"

namespace tarvo_emu {

// What the daemon must do with the modem's file transfers: block writes (requests and
// indications) through the staging directory to their target, appends, and reads.
class FileTransferModel {
  public:
    FileTransferModel(ModelFileSystem& files, ModelSteps& steps) : files_(files), steps_(steps) {}

    // A file message from the modem; `request` when it is sent as a request.
    void Play(const tarvo_message::FileMessage& file, uint32_t token, bool request);

    // The size of the staging file that `name` uses, when there is one.
    std::optional<size_t> StagedSize(const std::string& name) const;
    std::optional<size_t> FileSize(uint32_t directory, const std::string& name) const;

  private:
    void BlockWrite(const tarvo_message::FileWriteRequest& block, uint32_t token, bool indication);
    void Append(const tarvo_message::FileAppendRequest& request, uint32_t token);
    void Read(const tarvo_message::FileReadRequest& request, uint32_t token);

    ModelFileSystem& files_;
    ModelSteps& steps_;
};

}  // namespace tarvo_emu
