// tarvo-bench-peer: the floors that the daemon's figures are held against, run in the sandbox
// where the daemon would run. `tarvo-bench-peer --help` says how each goes.

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <limits>
#include <string>
#include <vector>

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <log/log.h>
#include <CLI/CLI.hpp>

#include "device/device_facts.h"
#include "properties.h"
#include "proto/tarvo_message.pb.h"

namespace {

// The largest message the daemon reads, so the peer reads as much per call.
using tarvo_emu::kLargestMessage;
using tarvo_emu::kStatusIoctl;

constexpr int kUsageError = 2;

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

constexpr size_t kCopyBuffer = 64 * 1024;

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
    const std::string prefix = tarvo_emu::FileDirectory(write.file_dir())
                                   .value_or(std::string(tarvo_emu::kUecapDirectory) + "/");
    const std::string target = prefix + write.file_name();
    const std::string temporary =
        std::string(tarvo_emu::kStagingDirectory) + "/" + write.file_name();
    ALOGI("offset: 0x%X, size: 0x%X", write.offset(), write.total_size());
    ALOGI("prefix: %s\nfile_name: %s", prefix.c_str(), write.file_name().c_str());
    ALOGI("Handle file write operation to path: %s for offset: 0x%X (total: 0x%X)", target.c_str(),
          write.offset(), write.total_size());
    response->set_message_id(TarvoMessage::kFile);
    response->set_result(tarvo_message::RESULT_FAILURE);
    response->mutable_file()->mutable_write_response()->set_result(
        tarvo_message::FILE_RESULT_FAILURE);
    struct stat st;
    if (stat(tarvo_emu::kStagingDirectory, &st) != 0) return;
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
    CLI::App app(
        "The floors that the daemon's figures are held against, run in the sandbox where\n"
        "the daemon would run.",
        "tarvo-bench-peer");
    app.require_subcommand(1);

    std::string response_file;
    bool wait_with_select = false;
    bool ask_status = false;
    CLI::App* echo = app.add_subcommand(
        "echo",
        "Reads /dev/oem_ipc1 one message at a time and writes the bytes of RESPONSE_FILE back\n"
        "for each, until killed: the IPC channel's own cost of one round trip.");
    echo->add_option("RESPONSE_FILE", response_file, "the bytes of every answer")
        ->required()
        ->type_name("");
    echo->add_flag("--select", wait_with_select,
                   "wait for each message with select first, as the daemon's reader does");
    echo->add_flag("--status", ask_status,
                   "ask /dev/umts_boot0 for the modem's state before each, as the daemon's\n"
                   "reader does");

    CLI::App* steps = app.add_subcommand(
        "steps",
        "Serves /dev/oem_ipc1 as the daemon must, making per message exactly the calls its\n"
        "behaviour requires and nothing else: the floor of the daemon's own steps. For a\n"
        "property read: the boot node's status, select, clearing the 65,568-byte buffer, read,\n"
        "parse, the property lookup, the two log lines, serialise, write. For a file write\n"
        "block: the same with the block's log lines, the stats of the staging directory and\n"
        "the temporary file, the append, chmod and, once the file is whole, the final copy.\n"
        "Its answers are the daemon's, byte for byte.");

    std::string path;
    uint64_t count = 0;
    bool clear = false;
    CLI::App* read = app.add_subcommand("read", "Reads NODE COUNT times, 65,568 bytes at a time.");
    read->add_option("NODE", path, "the node to read")->required()->type_name("");
    read->add_option("COUNT", count, "how many reads")->required()->type_name("");
    read->add_flag("--select", wait_with_select, "select before each read");
    read->add_flag("--clear", clear, "clear the buffer before each read");

    uint64_t block = 0;
    CLI::App* write = app.add_subcommand(
        "write",
        "Writes TOTAL_BYTES into PATH in blocks of BLOCK_BYTES, closes it, removes it and\n"
        "prints the seconds that took: the storage's own cost of a file.");
    write->add_option("PATH", path, "the file to write")->required()->type_name("");
    write->add_option("TOTAL_BYTES", count, "the file's size")->required()->type_name("");
    write->add_option("BLOCK_BYTES", block, "bytes per write")
        ->required()
        ->type_name("")
        ->check(CLI::Range(uint64_t{1}, std::numeric_limits<uint64_t>::max()));

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kUsageError;
    }
    if (echo->parsed()) return Echo(response_file, wait_with_select, ask_status);
    if (steps->parsed()) return Steps();
    if (read->parsed()) return Read(path, count, wait_with_select, clear);
    return Write(path, count, block);
}
