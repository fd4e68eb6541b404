#pragma once

#include <string>

#include "tarvo_message.pb.h"

// One row of the whitelist: a directory number the modem may send and the prefix it stands for.
class TarvoFileDirectory {
  public:
    TarvoFileDirectory(tarvo_message::FileDirectory id, std::string path)
        : id_(id), path_(std::move(path)) {}
    virtual ~TarvoFileDirectory() = default;

    tarvo_message::FileDirectory GetId() const { return id_; }
    const std::string& GetPath() const { return path_; }

  private:
    tarvo_message::FileDirectory id_;
    std::string path_;  // always ends in "/"
};

// The only place where directories for modem file transfers are defined. The modem names a
// directory by number; the file name it sends is appended to the prefix found here.
class TarvoFileDirectoryTable {
  public:
    // The prefix for id, or "UNKNOWN" for a number outside the whitelist. Never logs.
    static std::string FindDirectoryFromId(tarvo_message::FileDirectory id);
};
