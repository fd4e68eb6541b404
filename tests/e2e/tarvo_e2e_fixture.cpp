#include "tarvo_e2e_fixture.h"

#include <google/protobuf/text_format.h>

#include <android-base/result.h>

void TarvoE2eTest::Start(tarvo_emu::RigOptions options) {
    rig_ = std::make_unique<tarvo_emu::Rig>(std::move(options));
    ASSERT_RESULT_OK(rig_->Start());
    ASSERT_TRUE(rig_->log_events().Wait(tarvo_emu::IsDaemonStarted, kTimeout))
        << "the daemon did not start";
}

void TarvoE2eTest::TearDown() {
    if (rig_) EXPECT_RESULT_OK(rig_->CheckHealth());
    rig_.reset();
}

void TarvoE2eTest::GoOnline() {
    ASSERT_NE(rig_->emulator().boot().state(), tarvo_emu::kModemOnline);
    const size_t before = rig_->log_events().Count(tarvo_emu::IsOnlineReport);
    rig_->SetModemState(tarvo_emu::kModemOnline);
    ASSERT_TRUE(rig_->log_events().WaitForCount(tarvo_emu::IsOnlineReport, before + 1, kTimeout))
        << "the monitor did not report the modem online";
}

std::optional<TarvoE2eTest::Message> TarvoE2eTest::Request(Message request,
                                                           std::chrono::milliseconds timeout) {
    if (!request.has_type()) request.set_type(tarvo_message::REQUEST);
    if (!request.has_token()) request.set_token(next_token_++);
    rig_->modem().Send(request);
    Message response;
    response.set_type(tarvo_message::RESPONSE);
    response.set_token(request.token());
    return rig_->modem().Await(response, timeout);
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
