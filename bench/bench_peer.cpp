// tarvo-bench-peer: the floors that the daemon's figures are held against, run in the sandbox
// where the daemon would run.
//
//   tarvo-bench-peer echo RESPONSE_FILE [--select] [--status]
//       Reads "/dev/oem_ipc1" one message at a time and writes the bytes of RESPONSE_FILE back
//       for each, until killed: the IPC channel's own cost of one round trip. --select waits for
//       each message with select first, --status asks "/dev/umts_boot0" for the modem's state
//       before each: the two steps the daemon's reader takes per message, to show their share.
//   tarvo-bench-peer steps
//       Serves "/dev/oem_ipc1" as the daemon must, making per message exactly the calls its
//       behaviour requires and nothing else: the floor of the daemon's own steps. For a property
//       read: the boot node's status, select, clearing the 65,568-byte buffer, read, parse, the
//       property lookup, the two log lines, serialise, write. For a file write block: the same
//       with the block's log lines, the stats of the staging directory and the temporary file,
//       the append, chmod and, once the file is whole, the final copy. Its answers are the
//       daemon's, byte for byte.
//   tarvo-bench-peer read NODE COUNT [--select] [--clear]
//       Reads NODE COUNT times, 65,568 bytes at a time, each read after a select with --select
//       and into a buffer cleared first with --clear.
//   tarvo-bench-peer write PATH TOTAL_BYTES BLOCK_BYTES
//       Writes TOTAL_BYTES into PATH in blocks of BLOCK_BYTES, closes it, removes it and prints
//       the seconds that took: the storage's own cost of a file.

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <set>
#include <string>
#include <vector>

#include <android-base/file.h>
#include <android-base/parseint.h>
#include <android-base/unique_fd.h>
#include <log/log.h>

#include "properties.h"
#include "proto/tarvo_message.pb.h"

namespace {

// The largest message the daemon reads, so the peer reads as much per call.
constexpr size_t kLargestMessage = 0x10020;

int Usage() {
    fprintf(stderr,
            "usage: tarvo-bench-peer echo RESPONSE_FILE [--select] [--status]\n"
            "       tarvo-bench-peer steps\n"
            "       tarvo-bench-peer read NODE COUNT [--select] [--clear]\n"
            "       tarvo-bench-peer write PATH TOTAL_BYTES BLOCK_BYTES\n");
    return 2;
}

constexpr unsigned long kStatusIoctl = 0x6F27;

int Echo(const std::string& response_file, bool wait_with_select, bool ask_status) {
    std::string response;
    if (!android::base::ReadFileToString(response_file, &response)) {
        perror(response_file.c_str());
        return 1;
    }
    android::base::unique_fd fd(open("/dev/oem_ipc1", O_RDWR | O_CLOEXEC));
    if (fd < 0) {
        perror("/dev/oem_ipc1");
        return 1;
    }
    android::base::unique_fd boot(open("/dev/umts_boot0", O_RDWR | O_CLOEXEC));
    if (ask_status && boot < 0) {
        perror("/dev/umts_boot0");
        return 1;
    }
    std::vector<char> buffer(kLargestMessage);
    while (true) {
        if (ask_status && ioctl(boot, kStatusIoctl) < 0) return 1;
        if (wait_with_select) {
            fd_set read_set;
            FD_ZERO(&read_set);
            FD_SET(fd, &read_set);
            if (select(fd + 1, &read_set, nullptr, nullptr, nullptr) < 1) return 1;
        }
        const ssize_t n = TEMP_FAILURE_RETRY(read(fd, buffer.data(), buffer.size()));
        if (n <= 0) return 1;
        if (!android::base::WriteFully(fd, response.data(), response.size())) return 1;
    }
}

using tarvo_message::TarvoMessage;

constexpr char kStagingDir[] = "/data/vendor/radio/modem_temp_file/";
constexpr size_t kCopyBuffer = 64 * 1024;

const char* DirectoryOf(int file_dir) {
    switch (file_dir) {
        case tarvo_message::FILE_DIR_MDS:
            return "/data/vendor/radio/mds/";
        case tarvo_message::FILE_DIR_REPLAY:
            return "/mnt/vendor/modem_userdata/replay/";
        default:
            return "/vendor/firmware/uecapconfig/";
    }
}

void AnswerPropertyRead(const TarvoMessage& request, TarvoMessage* response) {
    ALOGI("Get property request");
    const std::string& name = request.property().read_request().name();
    char value[PROPERTY_VALUE_MAX] = {};
    response->set_message_id(TarvoMessage::kProperty);
    if (__system_property_find(name.c_str()) != nullptr &&
        property_get(name.c_str(), value, "") >= 0) {
        ALOGI("Read property %s with value %s", name.c_str(), value);
        response->set_result(tarvo_message::RESULT_SUCCESS);
    } else {
        ALOGE("Failed to read property %s", name.c_str());
        response->set_result(tarvo_message::RESULT_IO_ERROR);
    }
    response->mutable_property()->mutable_read_response()->set_value(value);
}

bool CopyWhole(const std::string& from, const std::string& to) {
    android::base::unique_fd source(open(from.c_str(), O_RDONLY | O_CLOEXEC));
    android::base::unique_fd target(
        open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (source < 0 || target < 0) return false;
    std::vector<char> buffer(kCopyBuffer);
    ssize_t n;
    while ((n = TEMP_FAILURE_RETRY(read(source, buffer.data(), buffer.size()))) > 0) {
        if (!android::base::WriteFully(target, buffer.data(), n)) return false;
    }
    return n == 0 && close(target.release()) == 0;
}

// The steps of a block that the benchmarks send: a valid block into an existing directory.
void AnswerFileWrite(const TarvoMessage& request, TarvoMessage* response) {
    ALOGI("Got File message request");
    ALOGI("Got File write request");
    const tarvo_message::FileWriteRequest& write = request.file().write_request();
    ALOGI("file dir: %d and name: %s", write.file_dir(), write.file_name().c_str());
    const std::string prefix = DirectoryOf(write.file_dir());
    const std::string target = prefix + write.file_name();
    const std::string temporary = kStagingDir + write.file_name();
    ALOGI("offset: 0x%X, size: 0x%X", write.offset(), write.total_size());
    ALOGI("prefix: %s\nfile_name: %s", prefix.c_str(), write.file_name().c_str());
    ALOGI("Handle file write operation to path: %s for offset: 0x%X (total: 0x%X)", target.c_str(),
          write.offset(), write.total_size());
    response->set_message_id(TarvoMessage::kFile);
    response->set_result(tarvo_message::RESULT_FAILURE);
    response->mutable_file()->mutable_write_response()->set_result(
        tarvo_message::FILE_RESULT_FAILURE);
    struct stat st;
    if (stat(kStagingDir, &st) != 0) return;
    if (write.offset() == 0) {
        unlink(temporary.c_str());
    } else if (stat(temporary.c_str(), &st) == 0 && st.st_size != write.offset()) {
        return;
    }
    android::base::unique_fd append(
        open(temporary.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
    if (append < 0) return;
    ALOGI("size: 0x%lX", static_cast<unsigned long>(write.data().size()));
    if (!android::base::WriteFully(append, write.data().data(), write.data().size())) return;
    append.reset();
    chmod(temporary.c_str(), 0664);
    if (stat(temporary.c_str(), &st) != 0) return;
    if (st.st_size == write.total_size()) {
        unlink(target.c_str());
        const mode_t mask = umask(0);
        const bool copied = stat(prefix.c_str(), &st) == 0 && CopyWhole(temporary, target);
        unlink(temporary.c_str());
        chmod(target.c_str(), 0666);
        umask(mask);
        if (!copied) return;
        ALOGE("Moved file into target path");
    }
    response->set_result(tarvo_message::RESULT_SUCCESS);
}

int Steps() {
    android::base::unique_fd fd(open("/dev/oem_ipc1", O_RDWR | O_CLOEXEC));
    android::base::unique_fd boot(open("/dev/umts_boot0", O_RDWR | O_CLOEXEC));
    if (fd < 0 || boot < 0) {
        perror("/dev/oem_ipc1 or /dev/umts_boot0");
        return 1;
    }
    std::vector<char> buffer(kLargestMessage);
    std::vector<char> bytes;
    while (true) {
        if (ioctl(boot, kStatusIoctl) < 0) return 1;
        fd_set read_set;
        FD_ZERO(&read_set);
        FD_SET(fd, &read_set);
        if (select(fd + 1, &read_set, nullptr, nullptr, nullptr) < 1) return 1;
        memset(buffer.data(), 0, buffer.size());
        const ssize_t n = TEMP_FAILURE_RETRY(read(fd, buffer.data(), buffer.size()));
        if (n <= 0) return 1;
        TarvoMessage request;
        request.ParseFromArray(buffer.data(), static_cast<int>(n));
        TarvoMessage response;
        response.set_type(tarvo_message::RESPONSE);
        if (request.has_token()) response.set_token(request.token());
        if (request.has_property()) {
            AnswerPropertyRead(request, &response);
        } else {
            AnswerFileWrite(request, &response);
        }
        bytes.resize(response.ByteSizeLong());
        response.SerializeToArray(bytes.data(), static_cast<int>(bytes.size()));
        if (!android::base::WriteFully(fd, bytes.data(), bytes.size())) return 1;
    }
}

int Read(const std::string& node, uint64_t count, bool wait_with_select, bool clear) {
    android::base::unique_fd fd(open(node.c_str(), O_RDONLY | O_CLOEXEC));
    if (fd < 0) {
        perror(node.c_str());
        return 1;
    }
    std::vector<char> buffer(kLargestMessage);
    for (uint64_t i = 0; i < count; ++i) {
        if (wait_with_select) {
            fd_set read_set;
            FD_ZERO(&read_set);
            FD_SET(fd, &read_set);
            if (select(fd + 1, &read_set, nullptr, nullptr, nullptr) < 1) return 1;
        }
        if (clear) memset(buffer.data(), 0, buffer.size());
        if (TEMP_FAILURE_RETRY(read(fd, buffer.data(), buffer.size())) <= 0) return 1;
    }
    return 0;
}

int Write(const std::string& path, uint64_t total, uint64_t block) {
    if (block == 0) return Usage();
    const std::vector<char> data(block, '\x5a');
    const auto start = std::chrono::steady_clock::now();
    android::base::unique_fd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0664));
    if (fd < 0) {
        perror(path.c_str());
        return 1;
    }
    for (uint64_t done = 0; done < total; done += block) {
        if (!android::base::WriteFully(fd, data.data(), std::min(block, total - done))) {
            perror(path.c_str());
            return 1;
        }
    }
    if (close(fd.release()) != 0) return 1;
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    unlink(path.c_str());
    printf("%.6f\n", seconds);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    if (args.size() >= 2 && args[0] == "echo") {
        bool wait_with_select = false;
        bool ask_status = false;
        for (size_t i = 2; i < args.size(); ++i) {
            if (args[i] == "--select") {
                wait_with_select = true;
            } else if (args[i] == "--status") {
                ask_status = true;
            } else {
                return Usage();
            }
        }
        return Echo(args[1], wait_with_select, ask_status);
    }
    if (args.size() == 1 && args[0] == "steps") return Steps();
    uint64_t total;
    uint64_t block;
    if (args.size() >= 3 && args[0] == "read" && android::base::ParseUint(args[2], &total)) {
        const std::set<std::string> flags(args.begin() + 3, args.end());
        const bool select = flags.count("--select") != 0;
        const bool clear = flags.count("--clear") != 0;
        const size_t known = (select ? 1 : 0) + (clear ? 1 : 0);
        if (flags.size() == args.size() - 3 && flags.size() == known) {
            return Read(args[1], total, select, clear);
        }
    }
    if (args.size() == 4 && args[0] == "write" && android::base::ParseUint(args[2], &total) &&
        android::base::ParseUint(args[3], &block)) {
        return Write(args[1], total, block);
    }
    return Usage();
}
