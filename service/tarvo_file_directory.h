#pragma once

#include <string>

#include "proto/tarvo_message.pb.h"

namespace tarvo {

// One whitelisted directory: the number the modem sends and the prefix it stands for.
class TarvoFileDirectory {
  public:
    TarvoFileDirectory(tarvo_message::FileDirectory id, std::string path)
        : id_(id), path_(std::move(path)) {}
    virtual ~TarvoFileDirectory() = default;

    tarvo_message::FileDirectory id() const { return id_; }
    const std::string& path() const { return path_; }

  private:
    tarvo_message::FileDirectory id_;
    std::string path_;
};

// The only place where directories for modem file transfers are defined. The modem never sends a
// path, only a directory number; the file name it sends is appended to the prefix as it stands.
class TarvoFileDirectoryTable {
  public:
    // The directory prefix (ending in "/") for an id, or "UNKNOWN".
    static std::string FindDirectoryFromId(tarvo_message::FileDirectory id);

    // Whether a handler may use the id; only 1 to 3 are. The enum is open, so any number can
    // arrive from the modem.
    static bool IsValidId(int id) { return static_cast<unsigned int>(id) - 1u < 3u; }
};

}  // namespace tarvo
