// File transfers through the real daemon, where a scenario cannot say enough: sizes too large to
// write out, and fields that must be absent.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <string_view>

#include <android-base/result.h>
#include <android-base/stringprintf.h>

#include "tarvo_e2e_fixture.h"

namespace {

constexpr uint32_t kBlockSize = 64 * 1024;
// The daemon reads at most this much per message.
constexpr size_t kLargestMessage = 0x10020;
constexpr char kTarget[] = "/data/vendor/radio/mds/b";

class FileTransferTest : public TarvoE2eTest {
  protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(Start({.initial_state = 4}));
        // The first message may wait out the reader's pause while it still saw the modem
        // offline; keep that out of the timings.
        ASSERT_TRUE(Request(Text("file { read_request { file_name: 'none' file_dir: 1 } }")));
    }

    // Writes `size` random bytes in 64 KiB blocks and checks what arrives; returns the seconds
    // from the first block sent to the last answer.
    double TimeTransfer(uint32_t size) {
        std::string content(size, '\0');
        std::mt19937_64 random(size);
        for (size_t i = 0; i < size; i += sizeof(uint64_t)) {
            const uint64_t word = random();
            memcpy(&content[i], &word, sizeof(word));
        }

        Message block = Text("type: REQUEST file { write_request { file_name: 'b' file_dir: 1 } }");
        auto* write = block.mutable_file()->mutable_write_request();
        write->set_total_size(size);
        const auto start = std::chrono::steady_clock::now();
        for (uint32_t offset = 0; offset < size; offset += kBlockSize) {
            write->set_offset(offset);
            write->set_data(content.substr(offset, kBlockSize));
            block.set_token(0x1000 + offset / kBlockSize);
            // A one-letter name keeps a full block within the largest message, exactly.
            EXPECT_LE(block.ByteSizeLong(), kLargestMessage);
            std::optional<Message> response = Request(block);
            if (!response || response->result() != tarvo_message::RESULT_SUCCESS) {
                ADD_FAILURE() << "block at " << offset << " not accepted";
                return 0;
            }
        }
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

        std::optional<std::string> received = rig().ReadFile(kTarget);
        EXPECT_TRUE(received);
        if (received) {
            EXPECT_EQ(received->size(), size);
            EXPECT_EQ(std::hash<std::string_view>{}(*received),
                      std::hash<std::string_view>{}(content))
                << "checksum of " << size << " bytes";
        }
        EXPECT_EQ(rig().FileMode(kTarget), 0666u);
        EXPECT_FALSE(rig().FileMode("/data/vendor/radio/modem_temp_file/b"));
        return seconds;
    }
};

TEST_F(FileTransferTest, LargeFilesArriveIntactInTimeLinearInTheirSize) {
    // Best of two runs each, so that a busy machine does not decide the ratio.
    double small = 1e9;
    double large = 1e9;
    for (int run = 0; run < 2; ++run) {
        small = std::min(small, TimeTransfer(16u << 20));
        large = std::min(large, TimeTransfer(64u << 20));
        if (HasFailure()) return;
    }
    const double ratio = large / small;
    printf("%s\n", android::base::StringPrintf("16 MiB: %.2f s, 64 MiB: %.2f s, ratio %.2f", small,
                                               large, ratio)
                       .c_str());
    // Four times the blocks: a cost per block that grew with the file would show as 16.
    EXPECT_LT(ratio, 8.0);
}

TEST_F(FileTransferTest, ReadPastTheEndSendsNoPartialData) {
    ASSERT_TRUE(rig().WriteFile("/data/vendor/radio/mds/ten", "0123456789"));
    std::optional<Message> response = Request(
        Text("file { read_request { file_name: 'ten' file_dir: 1 offset: 8 max_data_size: 4 } }"));
    ASSERT_TRUE(response);
    EXPECT_EQ(response->result(), tarvo_message::RESULT_FAILURE);
    EXPECT_EQ(response->file().read_response().result(), tarvo_message::FILE_RESULT_FAILURE);
    EXPECT_FALSE(response->file().read_response().has_data());
}

TEST_F(FileTransferTest, NamesNeedNotBeUtf8) {
    // The firmware promises bytes, not UTF-8: the name is used as it stands.
    const std::string name = "a\xff.bin";
    Message write =
        Text("file { write_request { file_dir: 1 total_size: 4 offset: 0 data: 'abcd' } }");
    write.mutable_file()->mutable_write_request()->set_file_name(name);
    std::optional<Message> response = Request(write);
    ASSERT_TRUE(response);
    EXPECT_EQ(response->result(), tarvo_message::RESULT_SUCCESS);
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "file dir: 1 and name: " + name));
    EXPECT_EQ(rig().ReadFile("/data/vendor/radio/mds/" + name), "abcd");
}

class FileTransferFaultTest : public TarvoE2eTest {};

TEST_F(FileTransferFaultTest, AFinalCopyCutShortIsAFailureAndLeavesNothingBehind) {
    ASSERT_NO_FATAL_FAILURE(Start({.initial_state = 4, .start_daemon = false}));
    // The target is the host's /dev/full: it opens, and every write to it fails with ENOSPC.
    rig().sandbox().BindNode("/data/vendor/radio/mds/full.bin", "/dev/full");
    ASSERT_RESULT_OK(rig().StartDaemon());

    std::optional<Message> response = Request(
        Text("file { write_request { file_name: 'full.bin' file_dir: 1 total_size: 4 offset: 0 "
             "data: 'abcd' } }"));
    ASSERT_TRUE(response);
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "File transfer failed."));
    EXPECT_EQ(response->result(), tarvo_message::RESULT_FAILURE);
    EXPECT_EQ(response->file().write_response().result(), tarvo_message::FILE_RESULT_FAILURE);
    EXPECT_EQ(rig().CountLog(ANDROID_LOG_ERROR, "Moved file into target path"), 0u);
    EXPECT_FALSE(rig().FileMode("/data/vendor/radio/modem_temp_file/full.bin"));
}

}  // namespace
