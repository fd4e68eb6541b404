// File transfers through the real daemon where a scenario, whose paths are text, cannot say it: a
// name that is not UTF-8.

#include <string>

#include "tarvo_e2e_fixture.h"

namespace {

class FileTransferTest : public TarvoE2eTest {
  protected:
    void SetUp() override { ASSERT_NO_FATAL_FAILURE(Start({.initial_state = 4})); }
};

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
    const android::base::Result<std::string> content =
        rig().ReadFile("/data/vendor/radio/mds/" + name);
    ASSERT_RESULT_OK(content);
    EXPECT_EQ(*content, "abcd");
}

}  // namespace
