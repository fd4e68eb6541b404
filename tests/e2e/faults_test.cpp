// Faults the daemon must survive without losing data: messages at and past the largest size, a
// channel that fails in the middle of a transfer, a full disk, a read-only /data, and a restart in
// the middle of a transfer.

#include <string>

#include "tarvo_e2e_fixture.h"

namespace {

using std::chrono::milliseconds;

constexpr size_t kLargestMessage = 0x10020;
constexpr char kStaging[] = "/data/vendor/radio/modem_temp_file/";
constexpr char kMds[] = "/data/vendor/radio/mds/";

class FaultsTest : public TarvoE2eTest {
  protected:
    static Message Block(const std::string& name, uint32_t total_size, uint32_t offset,
                         const std::string& data) {
        Message block = Text("type: REQUEST file { write_request { file_dir: 1 } }");
        auto* write = block.mutable_file()->mutable_write_request();
        write->set_file_name(name);
        write->set_total_size(total_size);
        write->set_offset(offset);
        write->set_data(data);
        return block;
    }

    // Sends one block and returns the envelope result of its answer, or -1 without one.
    int Write(const std::string& name, uint32_t total_size, uint32_t offset,
              const std::string& data) {
        std::optional<Message> response = Request(Block(name, total_size, offset, data));
        return response ? response->result() : -1;
    }

    // The file as the modem meant it: `blocks` blocks of 16 KiB, each of its own letter.
    static std::string Content(int blocks) {
        std::string content;
        for (int i = 0; i < blocks; ++i) content += std::string(16 * 1024, 'a' + i);
        return content;
    }
    static std::string Piece(const std::string& content, int block) {
        return content.substr(block * 16 * 1024, 16 * 1024);
    }
};

TEST_F(FaultsTest, TheLargestMessageArrivesWholeALongerOneIsDropped) {
    ASSERT_NO_FATAL_FAILURE(Start({.initial_state = 4}));
    Message block = Block("big", 1 << 20, 0, "");
    block.set_token(1);
    // Short of the mark by more than the length prefixes grow, then filled up byte by byte.
    block.mutable_file()->mutable_write_request()->set_data(
        std::string(kLargestMessage - block.ByteSizeLong() - 16, 'x'));
    while (block.ByteSizeLong() < kLargestMessage) {
        block.mutable_file()->mutable_write_request()->mutable_data()->push_back('x');
    }
    ASSERT_EQ(block.ByteSizeLong(), kLargestMessage);
    std::optional<Message> response = Request(block);
    ASSERT_TRUE(response);
    EXPECT_EQ(response->result(), tarvo_message::RESULT_SUCCESS);

    // One byte more and the read ends inside the last field: the block is not whole and is not
    // stored.
    Message longer = Block("longer", 1 << 20, 0, block.file().write_request().data() + "x");
    longer.set_token(2);
    ASSERT_GT(longer.ByteSizeLong(), kLargestMessage);
    rig().Send(longer);
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "ParseFromArray failed"));
    EXPECT_EQ(Write("next", 1, 0, "n"), tarvo_message::RESULT_SUCCESS);
    EXPECT_FALSE(rig().FileMode(std::string(kStaging) + "longer"));
    EXPECT_EQ(rig().ReadFile(std::string(kMds) + "next"), "n");
}

TEST_F(FaultsTest, ATransferSurvivesTheChannelFailingBetweenBlocks) {
    ASSERT_NO_FATAL_FAILURE(Start({.initial_state = 4}));
    const std::string content = Content(4);
    const uint32_t total = content.size();
    const tarvo_emu::IpcFault faults[] = {tarvo_emu::IpcFault::kEndOfFile,
                                          tarvo_emu::IpcFault::kReadError,
                                          tarvo_emu::IpcFault::kHangUp};
    for (int block = 0; block < 4; ++block) {
        ASSERT_EQ(Write("f", total, block * 16 * 1024, Piece(content, block)),
                  tarvo_message::RESULT_SUCCESS)
            << "block " << block;
        if (block < 3) rig().InjectFault(faults[block]);
    }
    EXPECT_EQ(rig().ReadFile(std::string(kMds) + "f"), content);
    EXPECT_EQ(rig().emulator().ipc().open_count(), 4u);
}

TEST_F(FaultsTest, AFullDiskFailsTheTransferAndTheNextOneSucceedsOnceThereIsSpace) {
    ASSERT_NO_FATAL_FAILURE(Start({.initial_state = 4, .data_size_limit_kib = 96}));
    // 64 KiB to stage and 64 KiB more to copy do not fit in 96 KiB: the copy fails part-way.
    const std::string content = Content(4);
    const uint32_t total = content.size();
    for (int block = 0; block < 3; ++block) {
        ASSERT_EQ(Write("f", total, block * 16 * 1024, Piece(content, block)),
                  tarvo_message::RESULT_SUCCESS);
    }
    std::optional<Message> last = Request(Block("f", total, 3 * 16 * 1024, Piece(content, 3)));
    ASSERT_TRUE(last);
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "File transfer failed."));
    EXPECT_EQ(last->result(), tarvo_message::RESULT_FAILURE);
    EXPECT_EQ(last->file().write_response().result(), tarvo_message::FILE_RESULT_FAILURE);
    EXPECT_FALSE(rig().FileMode(std::string(kMds) + "f")) << "no truncated target is left";
    EXPECT_FALSE(rig().FileMode(std::string(kStaging) + "f"));

    // Staging a file larger than the disk fails at the block that does not fit.
    const std::string large = Content(8);
    int result = tarvo_message::RESULT_SUCCESS;
    int block = 0;
    for (; block < 8 && result == tarvo_message::RESULT_SUCCESS; ++block) {
        result = Write("g", large.size(), block * 16 * 1024, Piece(large, block));
    }
    EXPECT_EQ(result, tarvo_message::RESULT_FAILURE);
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Failed to write temp file correctly"));

    // Space is back once the abandoned temporary file is gone: the modem starts again at 0.
    ASSERT_TRUE(rig().RemoveFile(std::string(kStaging) + "g"));
    const std::string small = Content(2);
    EXPECT_EQ(Write("h", small.size(), 0, Piece(small, 0)), tarvo_message::RESULT_SUCCESS);
    EXPECT_EQ(Write("h", small.size(), 16 * 1024, Piece(small, 1)), tarvo_message::RESULT_SUCCESS);
    EXPECT_EQ(rig().ReadFile(std::string(kMds) + "h"), small);
}

TEST_F(FaultsTest, AReadOnlyDataPartitionFailsEveryWriteAndNothingElse) {
    ASSERT_NO_FATAL_FAILURE(Start({.initial_state = 4,
                                   .files = {{"/data/vendor/radio/mds/old", "kept", 0664}},
                                   .read_only = {"/data"}}));
    EXPECT_EQ(Write("f", 4, 0, "abcd"), tarvo_message::RESULT_FAILURE);
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Failed to open /data/vendor/radio/modem_temp_file/f"));

    std::optional<Message> append =
        Request(Text("file { append_request { file_name: 'old' file_dir: 1 data: 'x' } }"));
    ASSERT_TRUE(append);
    EXPECT_EQ(append->result(), tarvo_message::RESULT_FAILURE);
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Failed to open /data/vendor/radio/mds/old"));

    // Reads are not writes: they go on working.
    std::optional<Message> read = Request(
        Text("file { read_request { file_name: 'old' file_dir: 1 offset: 0 max_data_size: 4 } }"));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->result(), tarvo_message::RESULT_SUCCESS);
    EXPECT_EQ(read->file().read_response().data(), "kept");
}

TEST_F(FaultsTest, ARestartInTheMiddleOfATransferLosesNothing) {
    ASSERT_NO_FATAL_FAILURE(Start({.initial_state = 4}));
    ASSERT_TRUE(Logs(ANDROID_LOG_INFO, "Modem state changed from -1 to 4"));
    const std::string content = Content(4);
    const uint32_t total = content.size();
    for (int block = 0; block < 2; ++block) {
        ASSERT_EQ(Write("f", total, block * 16 * 1024, Piece(content, block)),
                  tarvo_message::RESULT_SUCCESS);
    }
    ASSERT_RESULT_OK(rig().RestartDaemon());
    ASSERT_TRUE(Logs(ANDROID_LOG_INFO, "Modem state changed from -1 to 4"));

    // The staging file holds the transfer: the modem resumes from its size.
    const std::optional<std::string> staged = rig().ReadFile(std::string(kStaging) + "f");
    ASSERT_TRUE(staged);
    ASSERT_EQ(staged->size(), 2u * 16 * 1024);
    for (int block = 2; block < 4; ++block) {
        ASSERT_EQ(Write("f", total, block * 16 * 1024, Piece(content, block)),
                  tarvo_message::RESULT_SUCCESS);
    }
    EXPECT_EQ(rig().ReadFile(std::string(kMds) + "f"), content);
}

}  // namespace
