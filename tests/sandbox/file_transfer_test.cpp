#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <random>
#include <string>

#include "service_capture.h"

using android::base::ReadFileToString;
using android::base::StringPrintf;
using android::base::WriteStringToFile;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr char kStaging[] = "/data/vendor/radio/modem_temp_file/";
constexpr char kMds[] = "/data/vendor/radio/mds/";
constexpr char kUecap[] = "/vendor/firmware/uecapconfig/";

bool Exists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

mode_t ModeOf(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

std::string Block(char fill, size_t size) { return std::string(size, fill); }

tarvo_message::TarvoMessage WriteBlock(uint32_t token, const std::string& name, int dir,
                                       uint32_t offset, uint32_t total, const std::string& data) {
    tarvo_message::TarvoMessage envelope;
    envelope.set_type(tarvo_message::REQUEST);
    envelope.set_token(token);
    auto* write = envelope.mutable_file()->mutable_write_request();
    write->set_file_name(name);
    write->set_file_dir(static_cast<tarvo_message::FileDirectory>(dir));
    write->set_offset(offset);
    write->set_total_size(total);
    write->set_data(data);
    return envelope;
}

tarvo_message::TarvoMessage AsIndication(tarvo_message::TarvoMessage request) {
    tarvo_message::FileWriteIndication indication;
    indication.ParseFromString(request.file().write_request().SerializeAsString());
    request.clear_token();
    request.set_type(tarvo_message::INDICATION);
    *request.mutable_file()->mutable_write_indication() = indication;
    return request;
}

// Every case starts from empty directories: the temporary file is the whole transfer state.
class FileTransferTest : public ServiceHandlerTest {
  protected:
    void SetUp() override {
        ASSERT_TRUE(Exists(kStaging)) << "runs only inside the rig's sandbox";
        for (const char* name : {"f", "g", "big"}) {
            unlink((std::string(kStaging) + name).c_str());
            unlink((std::string(kMds) + name).c_str());
        }
        ServiceHandlerTest::SetUp();
    }

    unsigned int Write(uint32_t token, const std::string& name, int dir, uint32_t offset,
                       uint32_t total, const std::string& data) {
        return service_.OnReceiveRequest(
            Received(WriteBlock(token, name, dir, offset, total, data)).get());
    }

    // Envelope result and file result of a write response.
    std::pair<int, int> WriteResults(size_t index) const {
        const auto& response = handler_.responses.at(index);
        return {response.result(), response.file().write_response().result()};
    }
};

TEST_F(FileTransferTest, BlocksCollectInTheTemporaryFileUntilTheTargetIsReplaced) {
    ASSERT_TRUE(WriteStringToFile("old contents", std::string(kMds) + "f"));
    const std::string contents = Block('a', 0x100) + Block('b', 0x100) + Block('c', 0x100);

    EXPECT_EQ(Write(1, "f", 1, 0x000, 0x300, contents.substr(0x000, 0x100)), 0u);
    EXPECT_EQ(Write(2, "f", 1, 0x100, 0x300, contents.substr(0x100, 0x100)), 0u);
    EXPECT_EQ(ModeOf(std::string(kStaging) + "f"), 0664u);
    EXPECT_THAT(LinesAt(ANDROID_LOG_ERROR), IsEmpty());
    EXPECT_EQ(Write(3, "f", 1, 0x200, 0x300, contents.substr(0x200, 0x100)), 0u);

    ASSERT_EQ(handler_.responses.size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(handler_.responses[i].token(), i + 1);
        EXPECT_EQ(WriteResults(i), std::make_pair(0, 1)) << i;
    }
    std::string target;
    ASSERT_TRUE(ReadFileToString(std::string(kMds) + "f", &target));
    EXPECT_EQ(target, contents);
    EXPECT_EQ(ModeOf(std::string(kMds) + "f"), 0666u);
    EXPECT_FALSE(Exists(std::string(kStaging) + "f"));
    EXPECT_THAT(captured_, Contains(Info("Handle file write operation to path: "
                                         "/data/vendor/radio/mds/f for offset: 0x200 (total: "
                                         "0x300)")));
    EXPECT_THAT(LinesAt(ANDROID_LOG_ERROR), ElementsAre(Error("Moved file into target path")));
    // The completed write leaves the process umask as it found it.
    const mode_t mask = umask(022);
    umask(mask);
    EXPECT_EQ(mask, 022u);
}

TEST_F(FileTransferTest, OffsetMustMatchTheTemporaryFileUnlessThereIsNone) {
    const std::string temporary = std::string(kStaging) + "f";
    ASSERT_TRUE(WriteStringToFile(Block('x', 0x80), temporary));
    EXPECT_EQ(Write(1, "f", 1, 0x100, 0x300, Block('y', 0x100)), 8u);
    EXPECT_EQ(WriteResults(0), std::make_pair(5, 3));
    EXPECT_THAT(LinesAt(ANDROID_LOG_ERROR),
                ElementsAre(Error("Bad offset 0x100 comparing to the expected one: 0x80")));

    // Offset 0 starts afresh over whatever was collected.
    EXPECT_EQ(Write(2, "f", 1, 0, 0x300, Block('z', 0x10)), 0u);
    std::string staged;
    ASSERT_TRUE(ReadFileToString(temporary, &staged));
    EXPECT_EQ(staged, Block('z', 0x10));

    // With no temporary file a later block is taken as the start of a new one.
    unlink(temporary.c_str());
    EXPECT_EQ(Write(3, "f", 1, 0x100, 0x300, Block('w', 0x100)), 0u);
    ASSERT_TRUE(ReadFileToString(temporary, &staged));
    EXPECT_EQ(staged, Block('w', 0x100));

    // A block past the announced size is accepted but never completes; only offset 0 recovers.
    EXPECT_EQ(Write(4, "g", 1, 0, 0x10, Block('v', 0x20)), 0u);
    EXPECT_EQ(Write(5, "g", 1, 0x8, 0x10, Block('v', 0x8)), 8u);
    EXPECT_FALSE(Exists(std::string(kMds) + "g"));
    EXPECT_EQ(WriteResults(3), std::make_pair(0, 1));
    EXPECT_EQ(WriteResults(4), std::make_pair(5, 3));
}

TEST_F(FileTransferTest, FailedFinalCopyLeavesNeitherFile) {
    // The firmware directory is read-only: the block is staged, the copy cannot open the target.
    EXPECT_EQ(Write(1, "f", 3, 0, 4, "abcd"), 8u);
    EXPECT_EQ(WriteResults(0), std::make_pair(5, 1));
    EXPECT_FALSE(Exists(std::string(kStaging) + "f"));
    EXPECT_FALSE(Exists(std::string(kUecap) + "f"));
    EXPECT_THAT(LinesAt(ANDROID_LOG_ERROR), ElementsAre(Error("File transfer failed.")));
}

TEST_F(FileTransferTest, MissingStagingDirectoryIsNeverCreated) {
    const std::string aside = "/data/vendor/radio/modem_temp_file.aside";
    ASSERT_EQ(rename(kStaging, aside.c_str()), 0);
    const unsigned int status = Write(1, "f", 1, 0, 4, "abcd");
    const bool created = Exists(kStaging);
    ASSERT_EQ(rename(aside.c_str(), kStaging), 0);

    EXPECT_EQ(status, 8u);
    EXPECT_FALSE(created);
    EXPECT_EQ(WriteResults(0), std::make_pair(5, 1));
    EXPECT_THAT(LinesAt(ANDROID_LOG_ERROR),
                ElementsAre(Error("Temp file directory /data/vendor/radio/modem_temp_file/ does "
                                  "not exist or permission denied.")));
}

TEST_F(FileTransferTest, IndicationsStageTheSameWayButAreNeverAnswered) {
    for (uint32_t offset : {0u, 2u, 4u}) {
        EXPECT_EQ(service_.OnReceiveIndication(
                      Received(AsIndication(WriteBlock(9, "f", 1, offset, 6, "ab"))).get()),
                  0u);
    }
    std::string target;
    ASSERT_TRUE(ReadFileToString(std::string(kMds) + "f", &target));
    EXPECT_EQ(target, "ababab");
    EXPECT_EQ(ModeOf(std::string(kMds) + "f"), 0666u);

    // The temporary file of a name under a missing directory cannot be created.
    EXPECT_EQ(service_.OnReceiveIndication(
                  Received(AsIndication(WriteBlock(9, "no/f", 1, 0, 6, "ab"))).get()),
              8u);
    EXPECT_THAT(handler_.responses, IsEmpty());
    const auto errors = LinesAt(ANDROID_LOG_ERROR);
    EXPECT_EQ(std::count(errors.begin(), errors.end(), Error("Move file into target path done")),
              1);
    EXPECT_EQ(errors.back(), Error("Fail to open /data/vendor/radio/modem_temp_file/no/f"));
}

TEST_F(FileTransferTest, AppendsGoStraightToTheTarget) {
    EXPECT_EQ(Request("type: REQUEST token: 1 file { append_request { file_name: 'f' "
                      "file_dir: FILE_DIR_MDS data: 'ab' } }"),
              0u);
    EXPECT_EQ(Request("type: REQUEST token: 2 file { append_request { file_name: 'f' "
                      "file_dir: FILE_DIR_MDS data: 'cde' } }"),
              0u);
    EXPECT_EQ(Request("type: REQUEST token: 3 file { append_request { file_name: 'g' "
                      "file_dir: FILE_DIR_MDS } }"),
              0u);
    EXPECT_EQ(Request("type: REQUEST token: 4 file { append_request { file_name: 'f' "
                      "file_dir: FILE_DIR_UECAP data: 'x' } }"),
              8u);

    std::string appended;
    ASSERT_TRUE(ReadFileToString(std::string(kMds) + "f", &appended));
    EXPECT_EQ(appended, "abcde");
    EXPECT_EQ(ModeOf(std::string(kMds) + "f"), 0664u);
    ASSERT_TRUE(ReadFileToString(std::string(kMds) + "g", &appended));
    EXPECT_EQ(appended, "");
    EXPECT_FALSE(Exists(std::string(kStaging) + "f"));
    ASSERT_EQ(handler_.responses.size(), 4u);
    for (size_t i = 0; i < 3; ++i) EXPECT_EQ(WriteResults(i), std::make_pair(0, 1)) << i;
    EXPECT_EQ(WriteResults(3), std::make_pair(5, 1));
    EXPECT_THAT(LinesAt(ANDROID_LOG_ERROR),
                ElementsAre(Error("Failed to open /vendor/firmware/uecapconfig/f")));
}

TEST_F(FileTransferTest, ReadsReturnTheExactBlockOrNothing) {
    const std::string contents(
        "0123\0"
        "56789",
        10);
    ASSERT_TRUE(WriteStringToFile(contents, std::string(kMds) + "f"));
    auto read = [&](uint32_t offset, uint32_t size, const std::string& name = "f") {
        return Request(
            StringPrintf("type: REQUEST token: 1 file { read_request { file_name: "
                         "'%s' file_dir: FILE_DIR_MDS offset: %u max_data_size: %u } }",
                         name.c_str(), offset, size));
    };

    EXPECT_EQ(read(0, 10), 0u);
    EXPECT_EQ(read(8, 4), 8u);
    EXPECT_EQ(read(8, 0), 0u);
    EXPECT_EQ(read(0, 1, "missing"), 8u);
    ASSERT_EQ(handler_.responses.size(), 4u);

    const auto& whole = handler_.responses[0];
    EXPECT_EQ(whole.result(), 0);
    EXPECT_EQ(whole.file().read_response().result(), 0);
    EXPECT_EQ(whole.file().read_response().data(), contents);
    for (size_t i : {1, 3}) {
        const auto& failed = handler_.responses[i];
        EXPECT_EQ(failed.result(), 5) << i;
        EXPECT_EQ(failed.file().read_response().result(), 1) << i;
        EXPECT_FALSE(failed.file().read_response().has_data()) << i;
    }
    const auto& empty = handler_.responses[2].file().read_response();
    EXPECT_TRUE(empty.has_data());
    EXPECT_EQ(empty.data(), "");
    EXPECT_THAT(LinesAt(ANDROID_LOG_ERROR),
                ElementsAre(Error("Failed to read target file correctly"),
                            Error("Failed to open /data/vendor/radio/mds/missing")));
}

// Writes `size` bytes in 64 KiB blocks; returns the seconds taken and checks the copy.
double TimeLargeTransfer(TarvoServiceHandler& service, uint32_t size) {
    constexpr uint32_t kBlock = 64 * 1024;
    std::mt19937_64 random(size);
    std::string block(kBlock, '\0');
    uint64_t sent_sum = 0;
    double seconds = 0;
    for (uint32_t offset = 0; offset < size; offset += kBlock) {
        for (size_t i = 0; i < kBlock; i += 8) {
            const uint64_t word = random();
            memcpy(&block[i], &word, 8);
            sent_sum = sent_sum * 31 + word;
        }
        auto message = Received(WriteBlock(offset / kBlock, "big", 1, offset, size, block));
        const auto start = std::chrono::steady_clock::now();
        const unsigned int status = service.OnReceiveRequest(message.get());
        seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        EXPECT_EQ(status, 0u) << offset;
        if (status != 0) return seconds;
    }

    android::base::unique_fd fd(open("/data/vendor/radio/mds/big", O_RDONLY | O_CLOEXEC));
    EXPECT_TRUE(fd.ok());
    uint64_t received_sum = 0;
    size_t received = 0;
    while (android::base::ReadFully(fd, block.data(), kBlock)) {
        for (size_t i = 0; i < kBlock; i += 8) {
            uint64_t word;
            memcpy(&word, &block[i], 8);
            received_sum = received_sum * 31 + word;
        }
        received += kBlock;
    }
    EXPECT_EQ(received, size);
    EXPECT_EQ(received_sum, sent_sum);
    return seconds;
}

TEST_F(FileTransferTest, LargeTransfersArriveIntactInLinearTime) {
    // The best of two runs each, so that a busy machine does not decide the ratio.
    double small = 1e9;
    double large = 1e9;
    for (int run = 0; run < 2; ++run) {
        small = std::min(small, TimeLargeTransfer(service_, 16u << 20));
        large = std::min(large, TimeLargeTransfer(service_, 64u << 20));
        captured_.clear();
        handler_.responses.clear();
    }
    EXPECT_FALSE(Exists(std::string(kStaging) + "big"));
    // Four times the data; a cost per block that grew with the file would show as 16 or more.
    const double ratio = large / small;
    std::cout << StringPrintf("16 MiB: %.3f s, 64 MiB: %.3f s, ratio %.2f\n", small, large, ratio);
    EXPECT_LT(ratio, 8.0);
    unlink("/data/vendor/radio/mds/big");
}

}  // namespace
