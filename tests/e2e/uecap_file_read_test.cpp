// UE-capability reads end to end where a scenario cannot show it: a block size of 0 sends empty
// blocks until a write on the channel fails.

#include <string>
#include <vector>

#include <android-base/strings.h>

#include "tarvo_e2e_fixture.h"

namespace {

class UecapFileReadTest : public TarvoE2eTest {};

TEST_F(UecapFileReadTest, BlockSizeZeroSendsEmptyBlocksUntilAWriteFails) {
    tarvo_emu::RigOptions options;
    options.initial_state = 4;
    options.files = {{"/vendor/firmware/uecapconfig/cap10.bin", "0123456789", 0644}};
    ASSERT_NO_FATAL_FAILURE(Start(std::move(options)));

    constexpr uint32_t kToken = 500;
    rig().Send(Text(R"(type: REQUEST token: 500 uecap_file { read_request {
        file_name: "cap10.bin" read_size: 10 block_size: 0 directory: FILE_DIR_UECAP } })"));
    // The train is running: it would go on for ever, so the emulated channel fails one write.
    ASSERT_TRUE(rig().AwaitMessage(Text("token: 502 uecap_file { read_response {} }")));
    rig().InjectFault(tarvo_emu::IpcFault::kWriteError);
    ASSERT_TRUE(Logs(ANDROID_LOG_ERROR, "Failed to send file 7"));
    EXPECT_EQ(rig().CountLog(ANDROID_LOG_INFO, "Succeeded to send all blocks of file"), 0u);

    // Every block that arrived is empty, at offset 0, not the last, with consecutive tokens
    // from the request's on.
    std::vector<Message> blocks;
    for (const Message& message : rig().modem().received()) {
        if (message.has_uecap_file()) blocks.push_back(message);
    }
    ASSERT_GE(blocks.size(), 3u);
    for (size_t i = 0; i < blocks.size(); ++i) {
        SCOPED_TRACE(i);
        const auto& block = blocks[i].uecap_file().read_response();
        EXPECT_EQ(blocks[i].token(), kToken + i);
        EXPECT_EQ(blocks[i].result(), tarvo_message::RESULT_SUCCESS);
        EXPECT_EQ(block.result(), tarvo_message::UECAP_RESULT_SUCCESS);
        EXPECT_EQ(block.data(), "");
        EXPECT_EQ(block.offset(), 0u);
        EXPECT_FALSE(block.last());
    }
    // The daemon logged one block more than arrived: the one whose write failed.
    const std::string prefix = "Send response with offset: 0, data size: 0, token: ";
    const size_t logged = rig().log_events().Count([&](const tarvo_emu::LogLine& line) {
        return line.priority == ANDROID_LOG_INFO && android::base::StartsWith(line.text, prefix);
    });
    EXPECT_EQ(logged, blocks.size() + 1);

    // The reader is free again and serves the next request.
    rig().Send(Text(R"(type: REQUEST token: 900 uecap_file { read_request {
        file_name: "cap10.bin" read_size: 10 block_size: 8 directory: FILE_DIR_UECAP } })"));
    const auto first = rig().AwaitMessage(Text(R"(token: 900 uecap_file { read_response {
        data: "01234567" offset: 0 last: false } })"));
    EXPECT_TRUE(first);
    const auto second = rig().AwaitMessage(Text(R"(token: 901 uecap_file { read_response {
        data: "89" offset: 8 last: true } })"));
    EXPECT_TRUE(second);
}

}  // namespace
