#include "tarvo_file_directory.h"

namespace tarvo {

namespace {

using tarvo_message::FileDirectory;

// Row 0 only supplies the text of a failed lookup; it is never matched.
const TarvoFileDirectory kDirectories[] = {
    {tarvo_message::FILE_DIR_UNKNOWN, "UNKNOWN"},
    {tarvo_message::FILE_DIR_MDS, "/data/vendor/radio/mds/"},
    {tarvo_message::FILE_DIR_REPLAY, "/mnt/vendor/modem_userdata/replay/"},
    {tarvo_message::FILE_DIR_UECAP, "/vendor/firmware/uecapconfig/"},
};

}  // namespace

std::string TarvoFileDirectoryTable::FindDirectoryFromId(FileDirectory id) {
    for (size_t row = 1; row < std::size(kDirectories); ++row) {
        if (kDirectories[row].id() == id) return kDirectories[row].path();
    }
    return kDirectories[0].path();
}

}  // namespace tarvo
