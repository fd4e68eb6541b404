#include "tarvo_e2e_fixture.h"

#include <google/protobuf/text_format.h>

#include <android-base/result.h>
#include <android-base/strings.h>

void TarvoE2eTest::Start(tarvo_emu::RigOptions options) {
    rig_ = std::make_unique<tarvo_emu::Rig>(std::move(options));
    ASSERT_RESULT_OK(rig_->Start());
    ASSERT_TRUE(rig_->WaitForLog(ANDROID_LOG_INFO, "Start modem state monitoring"))
        << "the daemon did not start";
}

void TarvoE2eTest::TearDown() {
    if (rig_) EXPECT_RESULT_OK(rig_->CheckHealth());
    rig_.reset();
}

void TarvoE2eTest::GoOnline() {
    ASSERT_NE(rig_->emulator().boot().state(), 4);
    // The report names the state the monitor saw before, which it may not have read yet.
    const auto online = [](const tarvo_emu::LogLine& line) {
        return android::base::StartsWith(line.text, "Modem state changed from ") &&
               android::base::EndsWith(line.text, " to 4");
    };
    const size_t before = rig_->log_events().Count(online);
    rig_->SetModemState(4);
    ASSERT_TRUE(rig_->log_events().WaitForCount(online, before + 1, kTimeout))
        << "the monitor did not report state 4";
}

std::optional<TarvoE2eTest::Message> TarvoE2eTest::Request(Message request,
                                                           std::chrono::milliseconds timeout) {
    if (!request.has_type()) request.set_type(tarvo_message::REQUEST);
    if (!request.has_token()) request.set_token(next_token_++);
    rig_->Send(request);
    Message response;
    response.set_type(tarvo_message::RESPONSE);
    response.set_token(request.token());
    return rig_->AwaitMessage(response, timeout);
}

::testing::AssertionResult TarvoE2eTest::Logs(int priority, const std::string& text,
                                              std::chrono::milliseconds timeout) {
    if (rig_->AwaitLog(priority, text, timeout)) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << "no log line " << tarvo_emu::PriorityLetter(priority) << " \"" << text << "\" within "
           << timeout.count() << " ms";
}

TarvoE2eTest::Message TarvoE2eTest::Text(const std::string& text) {
    Message message;
    EXPECT_TRUE(google::protobuf::TextFormat::ParseFromString(text, &message)) << text;
    return message;
}
