// tarvo-bench-peer: the floors that the daemon's figures are held against, run in the sandbox
// where the daemon would run.
//
//   tarvo-bench-peer echo RESPONSE_FILE
//       Reads "/dev/oem_ipc1" one message at a time and writes the bytes of RESPONSE_FILE back
//       for each, until killed: the IPC channel's own cost of one round trip.
//   tarvo-bench-peer write PATH TOTAL_BYTES BLOCK_BYTES
//       Writes TOTAL_BYTES into PATH in blocks of BLOCK_BYTES, closes it, removes it and prints
//       the seconds that took: the storage's own cost of a file.

#include <fcntl.h>
#include <stdio.h>
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
            "usage: tarvo-bench-peer echo RESPONSE_FILE\n"
            "       tarvo-bench-peer write PATH TOTAL_BYTES BLOCK_BYTES\n");
    return 2;
}

int Echo(const std::string& response_file) {
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
    std::vector<char> buffer(kLargestMessage);
    while (true) {
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
    if (args.size() == 2 && args[0] == "echo") return Echo(args[1]);
    uint64_t total;
    uint64_t block;
    if (args.size() == 4 && args[0] == "write" && android::base::ParseUint(args[2], &total) &&
        android::base::ParseUint(args[3], &block)) {
        return Write(args[1], total, block);
    }
    return Usage();
}
