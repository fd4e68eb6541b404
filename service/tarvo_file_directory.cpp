#include "tarvo_file_directory.h"

#include <iterator>

namespace {

// Row 0 only holds the text that an unknown id yields; lookups never match it.
const TarvoFileDirectory kDirectories[] = {
    {tarvo_message::FILE_DIR_UNKNOWN, "UNKNOWN"},
    {tarvo_message::FILE_DIR_MDS, "/data/vendor/radio/mds/"},
    {tarvo_message::FILE_DIR_REPLAY, "/mnt/vendor/modem_userdata/replay/"},
    {tarvo_message::FILE_DIR_UECAP, "/vendor/firmware/uecapconfig/"},
};

}  // namespace

std::string TarvoFileDirectoryTable::FindDirectoryFromId(tarvo_message::FileDirectory id) {
    for (size_t row = 1; row < std::size(kDirectories); ++row) {
        if (kDirectories[row].GetId() == id) return kDirectories[row].GetPath();
    }
    return kDirectories[0].GetPath();
}
