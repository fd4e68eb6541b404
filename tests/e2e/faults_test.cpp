// Faults the daemon must survive without losing data: messages at and past the largest size, a
// channel that fails in the middle of a transfer, a full disk, a read-only /data, and a restart in
// the middle of a transfer.

#include <signal.h>

#include <string>
#include <vector>

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

TEST_F(FaultsTest, ABurstOfReportSignalsIsServedOneAtATime) {
    ASSERT_NO_FATAL_FAILURE(Start());
    ASSERT_TRUE(AwaitPidFile());
    const pid_t daemon = rig().daemon_pid();
    ASSERT_NE(daemon, 0);

    // Offline, every handled signal is refused at once.
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(kill(daemon, SIGUSR1), 0);
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Modem is not online"));

    // Online, each handled signal asks the modem and waits for its answer before the next.
    ASSERT_NO_FATAL_FAILURE(GoOnline());
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(kill(daemon, SIGUSR1), 0);
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Got modemstat report response successful"));
    // The reader serves the modem meanwhile, and the daemon is still the same process.
    std::optional<Message> answer =
        Request(Text("property { read_request { name: 'vendor.none' } }"), milliseconds(10000));
    EXPECT_TRUE(answer);
    EXPECT_EQ(kill(daemon, 0), 0);

    std::vector<std::string> report_lines;
    for (const tarvo_emu::LogLine& line : rig().logs()) {
        if (line.text == "Sending modemstat report request" ||
            line.text == "Got modemstat report response successful") {
            report_lines.push_back(line.text);
        }
    }
    // Never a second request before the first was answered.
    for (size_t i = 0; i < report_lines.size(); ++i) {
        EXPECT_EQ(report_lines[i], i % 2 == 0 ? "Sending modemstat report request"
                                              : "Got modemstat report response successful")
            << i;
    }
}

}  // namespace
