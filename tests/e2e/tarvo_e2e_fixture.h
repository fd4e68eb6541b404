#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include <android/log.h>
#include <gtest/gtest.h>

#include "proto/tarvo_message.pb.h"
#include "rig/rig.h"

// Base of the end-to-end tests: the real daemon in a fresh sandbox against the emulated modem,
// torn down after each test whether it passed or not. A test starts the rig itself, so that it
// can choose the initial state, files and properties:
//
//   TEST_F(FileWriteTest, ...) {
//       ASSERT_NO_FATAL_FAILURE(Start({.initial_state = 4}));
//       std::optional<Message> response = Request(Text("message_id: 9 file { ... }"));
//       ASSERT_TRUE(response);
//       EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Got File message request"));
//   }
class TarvoE2eTest : public ::testing::Test {
  protected:
    using Message = tarvo_message::TarvoMessage;
    static constexpr std::chrono::milliseconds kTimeout = tarvo_emu::kDefaultWait;

    // Builds the rig and starts the daemon, then waits until its monitor runs. Fatal on failure.
    void Start(tarvo_emu::RigOptions options = {});
    // Brings the modem online and waits until the monitor reports the change. Fatal on failure.
    void GoOnline();

    tarvo_emu::Rig& rig() { return *rig_; }

    // Sends `request`, as a REQUEST with a fresh token unless it has a type and a token, and
    // returns the daemon's message with type RESPONSE and that token.
    std::optional<Message> Request(Message request, std::chrono::milliseconds timeout = kTimeout);
    // Takes the daemon's next log line with this priority (ANDROID_LOG_*) and exact text.
    ::testing::AssertionResult Logs(int priority, const std::string& text,
                                    std::chrono::milliseconds timeout = kTimeout);
    // A message in protobuf text format; fails the test when it does not parse.
    static Message Text(const std::string& text);

    // A sanitizer report or a daemon that ended on its own fails the test, even when everything
    // the test looked at held.
    void TearDown() override;

  private:
    std::unique_ptr<tarvo_emu::Rig> rig_;
    uint32_t next_token_ = 1000;
};
