// How decode tells a capture's form by its first line, and what plain hex and the transcript give:
// a direction label on a hex line names who wrote the message, a log text that spans lines is one
// line of the log.

#include "capture/capture_reader.h"

#include <sstream>

#include <gtest/gtest.h>

namespace tarvo_emu {
namespace {

using Kind = CaptureEvent::Kind;

Capture Read(const std::string& text) {
    std::istringstream in(text);
    android::base::Result<Capture> capture = ReadCapture(in, {});
    EXPECT_TRUE(capture.ok()) << capture.error().message();
    return capture.ok() ? *capture : Capture{};
}

TEST(CaptureReaderTest, PlainHexTakesItsDirectionFromTheLabel) {
    const Capture capture = Read("0801\n  tarvo > modem 0802 1001\n\nmodem > tarvo 08 03\n");
    ASSERT_EQ(capture.events.size(), 3u);
    EXPECT_EQ(capture.events[0].kind, Kind::kToDaemon);
    EXPECT_EQ(capture.events[0].bytes, "\x08\x01");
    EXPECT_EQ(capture.events[1].kind, Kind::kFromDaemon);
    EXPECT_EQ(capture.events[1].bytes, std::string("\x08\x02\x10\x01"));
    EXPECT_EQ(capture.events[1].line, 2u);
    EXPECT_EQ(capture.events[2].kind, Kind::kToDaemon);
    EXPECT_EQ(capture.events[2].bytes, "\x08\x03");

    std::istringstream odd("0801\n080\n");
    android::base::Result<Capture> refused = ReadCapture(odd, {});
    ASSERT_FALSE(refused.ok());
    EXPECT_EQ(refused.error().message(), "line 2: not hex digits, two a byte");
}

TEST(CaptureReaderTest, TranscriptLogTextsKeepTheirLineFeeds) {
    const Capture capture = Read(
        "   0.100  log            I tarvo: first\nsecond\n   0.200  modem > tarvo  { type: "
        "REQUEST token: 3 }\n");
    ASSERT_EQ(capture.events.size(), 2u);
    EXPECT_EQ(capture.events[0].kind, Kind::kLog);
    EXPECT_EQ(capture.events[0].log.text, "first\nsecond");
    EXPECT_EQ(capture.events[1].kind, Kind::kToDaemon);
    EXPECT_EQ(*capture.events[1].time, 0.2);
}

}  // namespace
}  // namespace tarvo_emu
