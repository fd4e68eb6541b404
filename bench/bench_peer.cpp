// tarvo-bench-peer: the floors that the daemon's figures are held against, run in the sandbox
// where the daemon would run.
//
//   tarvo-bench-peer echo RESPONSE_FILE [--select] [--status]
//       Reads "/dev/oem_ipc1" one message at a time and writes the bytes of RESPONSE_FILE back
//       for each, until killed: the IPC channel's own cost of one round trip. --select waits for
//       each message with select first, --status asks "/dev/umts_boot0" for the modem's state
//       before each: the two steps the daemon's reader takes per message, to show their share.
//   tarvo-bench-peer write PATH TOTAL_BYTES BLOCK_BYTES
//       Writes TOTAL_BYTES into PATH in blocks of BLOCK_BYTES, closes it, removes it and prints
//       the seconds that took: the storage's own cost of a file.

#include <fcntl.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include <android-base/file.h>
#include <android-base/parseint.h>
#include <android-base/unique_fd.h>

namespace {

// The largest message the daemon reads, so the peer reads as much per call.
constexpr size_t kLargestMessage = 0x10020;

int Usage() {
    fprintf(stderr,
            "usage: tarvo-bench-peer echo RESPONSE_FILE [--select] [--status]\n"
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
    uint64_t total;
    uint64_t block;
    if (args.size() == 4 && args[0] == "write" && android::base::ParseUint(args[2], &total) &&
        android::base::ParseUint(args[3], &block)) {
        return Write(args[1], total, block);
    }
    return Usage();
}
