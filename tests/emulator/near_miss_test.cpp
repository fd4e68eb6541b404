// What a failure names as nearest: the edit distance, the nearest names of a misspelling, and the
// untaken messages and log lines that came nearest to an expectation, nearest first.

#include <string>
#include <vector>

#include <android/log.h>
#include <gtest/gtest.h>

#include "scenario/near_miss.h"
#include "scenario/nearest_names.h"

namespace {

using tarvo_message::TarvoMessage;

TEST(NearestNamesTest, EditDistanceCountsInsertionsDeletionsAndSubstitutions) {
    EXPECT_EQ(tarvo_emu::EditDistance("kitten", "sitting"), 3u);
    EXPECT_EQ(tarvo_emu::EditDistance("", "abc"), 3u);
    EXPECT_EQ(tarvo_emu::EditDistance("abc", ""), 3u);
    EXPECT_EQ(tarvo_emu::EditDistance("flaw", "lawn"), 2u);
    EXPECT_EQ(tarvo_emu::EditDistance("same", "same"), 0u);
}

TEST(NearestNamesTest, NearestFirstAtMostCountAndNoneBeyondReach) {
    const std::vector<std::string> kinds = {"send",       "sleep_ms", "expect",
                                            "expect_log", "fault",    "sleep_ms"};
    EXPECT_EQ(tarvo_emu::NearestNames("expct", kinds),
              (std::vector<std::string>{"expect", "fault", "expect_log"}));
    EXPECT_EQ(tarvo_emu::NearestNames("expct", kinds, 1), std::vector<std::string>{"expect"});
    // Typed short, a name is one edit away; a duplicate is named once.
    EXPECT_EQ(tarvo_emu::NearestNames("sle", kinds, 3, 1), std::vector<std::string>{"sleep_ms"});
    EXPECT_EQ(tarvo_emu::NearestNames("expect_l", kinds, 2),
              (std::vector<std::string>{"expect_log", "expect"}));
    EXPECT_TRUE(tarvo_emu::NearestNames("zzzzzz", kinds, 3, 2).empty());
}

TarvoMessage PropertyRead(const std::string& name, uint32_t token) {
    TarvoMessage message;
    message.set_type(tarvo_message::REQUEST);
    message.set_token(token);
    message.mutable_property()->mutable_read_request()->set_name(name);
    return message;
}

TEST(NearMissTest, MessagesWithFewestDifferencesComeFirst) {
    TarvoMessage far = PropertyRead("other", 9);
    far.set_type(tarvo_message::INDICATION);
    const TarvoMessage near = PropertyRead("persist.x", 9);
    TarvoMessage temperature;
    temperature.set_type(tarvo_message::REQUEST);
    temperature.mutable_modem_temperature();
    const std::string shown =
        tarvo_emu::NearestMessages({far, temperature, near}, PropertyRead("persist.x", 4), false);
    EXPECT_EQ(shown.rfind("; nearest of the 3 messages that no step took:\n  { ", 0), 0u) << shown;
    const size_t first = shown.find("persist.x");
    ASSERT_NE(first, std::string::npos) << shown;
    EXPECT_LT(first, shown.find("other")) << shown;
    EXPECT_NE(shown.find("token: 9"), std::string::npos) << shown;
    EXPECT_EQ(tarvo_emu::NearestMessages({}, near, false),
              "; every message of the daemon was taken by an earlier step");
}

TEST(NearMissTest, LogLinesRankByTextThenTagAndPriority) {
    const std::vector<tarvo_emu::LogLine> lines = {
        {ANDROID_LOG_INFO, "IO handler started"},
        {ANDROID_LOG_INFO, "Start modem state monitorin", "other"},
        {ANDROID_LOG_INFO, "Start modem state monitoring"},
    };
    const std::string shown = tarvo_emu::NearestLogLines(lines, ANDROID_LOG_ERROR, "tarvo",
                                                         "Start modem state monitorin");
    EXPECT_EQ(shown.rfind("; nearest of the 3 log lines that no step took:\n"
                          "  I tarvo: Start modem state monitoring\n"
                          "    priority INFO, not ERROR; text differs from byte 27\n"
                          "  I other: Start modem state monitorin\n"
                          "    tag other, not tarvo; priority INFO, not ERROR\n"
                          "  I tarvo: IO handler started",
                          0),
              0u)
        << shown;
}

TEST(NearMissTest, FirstDifferenceShowsTheBytesAroundIt) {
    EXPECT_EQ(tarvo_emu::FirstDifference("abcX", "abcY"),
              "first difference at byte 3 (4 bytes on both sides); from byte 0: \"abcX\" here, "
              "\"abcY\" expected");
    EXPECT_EQ(tarvo_emu::FirstDifference("ab", "abc", 100),
              "alike up to byte 102 (2 bytes here, 3 expected); from byte 100: \"ab\" here, "
              "\"abc\" expected");
}

}  // namespace
