// The transcript's lines as the rig writes them and as decode reads them back: every kind of line
// returns the event it was written from, and a line that is wrong says why instead of passing as
// something else.

#include "peers/transcript_codec.h"

#include <android/log.h>

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarvo_emu {
namespace {

using ::testing::HasSubstr;
using Kind = TranscriptEvent::Kind;

std::string Written(const TranscriptEvent& event) {
    const auto [label, text] = DescribeEvent(event, true);
    return LinePrefix(event.time, label) + text;
}

TranscriptEvent Event(Kind kind, double time) {
    TranscriptEvent event;
    event.kind = kind;
    event.time = time;
    return event;
}

std::vector<TranscriptEvent> EveryKind() {
    std::vector<TranscriptEvent> events;
    tarvo_message::TarvoMessage request;
    request.set_type(tarvo_message::REQUEST);
    request.set_token(7);
    request.mutable_property()->mutable_read_request()->set_name(std::string("ro.\0\xff", 5));
    events.push_back(Event(Kind::kToDaemon, 0.5));
    events.back().bytes = request.SerializeAsString();
    events.push_back(Event(Kind::kFromDaemon, 1.25));
    events.back().bytes = request.SerializeAsString();
    // Bytes that do not parse as a message, longer than a shortened line shows.
    events.push_back(Event(Kind::kFromDaemon, 2));
    events.back().bytes = std::string(60, '\xff') + "\"\\";
    for (const Fault fault :
         {Fault::kEndOfFile, Fault::kReadError, Fault::kWriteError, Fault::kHangUp}) {
        events.push_back(Event(Kind::kFault, 3));
        events.back().fault = fault;
        events.back().text = "EIO";
    }
    events.push_back(Event(Kind::kFault, 3.5));
    events.back().fault = Fault::kReadError;
    events.back().text = "ECONNRESET";
    events.push_back(Event(Kind::kModemState, 4));
    events.back().state = -1;
    for (const int priority : {ANDROID_LOG_VERBOSE, ANDROID_LOG_INFO, ANDROID_LOG_FATAL}) {
        events.push_back(Event(Kind::kLog, 5));
        events.back().log = {.priority = priority, .text = "Read config: a: b", .tag = "tarvo"};
    }
    events.push_back(Event(Kind::kNote, 6));
    events.back().text = "step 3 (sleep_ms: 100) ok";
    return events;
}

TEST(TranscriptCodecTest, EveryKindOfLineReadsBackAsWritten) {
    for (const TranscriptEvent& event : EveryKind()) {
        const std::string line = Written(event);
        SCOPED_TRACE(line);
        auto read = ParseTranscriptLine(line);
        ASSERT_TRUE(read.ok()) << read.error();
        EXPECT_EQ(read->kind, event.kind);
        EXPECT_NEAR(read->time.value_or(-1), *event.time, 1e-9);
        EXPECT_EQ(read->bytes, event.bytes);
        EXPECT_EQ(read->text, event.text);
        if (event.kind == Kind::kFault) {
            EXPECT_EQ(read->fault, event.fault);
        }
        EXPECT_EQ(read->state, event.state);
        EXPECT_EQ(read->log, event.log);
    }
}

TEST(TranscriptCodecTest, LinesShowWhatTheRigPrints) {
    std::vector<std::string> lines;
    for (const TranscriptEvent& event : EveryKind()) lines.push_back(Written(event));
    EXPECT_EQ(lines[0],
              "   0.500  modem > tarvo  { type: REQUEST token: 7 property { read_request { name: "
              "\"ro.\\000\\377\" } } }");
    EXPECT_EQ(lines[3], "   3.000                 fault on oem_ipc1: end of file");
    EXPECT_EQ(lines[4], "   3.000                 fault on oem_ipc1: read error");
    EXPECT_EQ(lines[5], "   3.000                 fault on oem_ipc1: write error");
    EXPECT_EQ(lines[6], "   3.000                 fault on oem_ipc1: hang-up");
    EXPECT_EQ(lines[7], "   3.500                 fault on oem_ipc1: read error (ECONNRESET)");
    EXPECT_EQ(lines[8], "   4.000                 modem state -1");
    EXPECT_EQ(lines[9], "   5.000  log            V tarvo: Read config: a: b");

    // Shortened raw bytes show their start and read back as a note that says so.
    const auto [label, text] = DescribeEvent(EveryKind()[2], false);
    std::string start;
    for (int i = 0; i < 48; ++i) start += "\\377";
    EXPECT_EQ(text, "raw 62 bytes \"" + start + "\"...");
    auto read = ParseTranscriptLine(LinePrefix(2, label) + text);
    ASSERT_TRUE(read.ok()) << read.error();
    EXPECT_EQ(read->kind, Kind::kNote);
    EXPECT_THAT(read->text, HasSubstr("the transcript keeps only their start"));

    // A time that a capture does not know is a dash, and such a line is not read back.
    EXPECT_EQ(LinePrefix(std::nullopt, "log"), "       -  log            ");
    EXPECT_FALSE(IsTranscriptLine(LinePrefix(std::nullopt, "log") + "I tarvo: x"));
}

TEST(TranscriptCodecTest, OtherLabelsAndUnknownNotesAreNotes) {
    for (const auto& [line, note] : std::vector<std::pair<std::string, std::string>>{
             {LinePrefix(1, "ril > tarvo") + "request 227", "ril > tarvo: request 227"},
             {LinePrefix(1, "") + "modem state up", "modem state up"},
             {LinePrefix(1, "") + "fault on oem_ipc1: flood", "fault on oem_ipc1: flood"},
         }) {
        auto read = ParseTranscriptLine(line);
        ASSERT_TRUE(read.ok()) << line << ": " << read.error();
        EXPECT_EQ(read->kind, Kind::kNote) << line;
        EXPECT_EQ(read->text, note);
    }
}

TEST(TranscriptCodecTest, MalformedLinesAreRefusedWithTheirReason) {
    for (const auto& [line, reason] : std::vector<std::pair<std::string, std::string>>{
             {"tarvo I 11-21 23:17:09  5883  5885 IO handler started", "not a line"},
             {"   1.5  log            I tarvo: x", "not a line"},
             {LinePrefix(1, kToDaemonLabel) + "{ token: \"ro.build\"... (400 bytes) }",
              "does not parse back"},
             {LinePrefix(1, kFromDaemonLabel) + "raw 3 bytes \"ab\"", "not the 3 they say"},
             {LinePrefix(1, kFromDaemonLabel) + "raw 3 bytes \"abc", "unquoted"},
             {LinePrefix(1, kFromDaemonLabel) + "raw many bytes \"abc\"", "without their size"},
             {LinePrefix(1, "log") + "Q tarvo: x", "without its priority and tag"},
             {LinePrefix(1, "log") + "I tarvo x", "without its priority and tag"},
         }) {
        auto read = ParseTranscriptLine(line);
        ASSERT_FALSE(read.ok()) << line;
        EXPECT_THAT(read.error().message(), HasSubstr(reason)) << line;
    }
}

TEST(FaultNamesTest, SoakListTakesItsNamesAllAndNone) {
    auto all = ParseSoakFaults("all");
    ASSERT_TRUE(all.ok());
    EXPECT_EQ(all->size(), 8u);
    auto none = ParseSoakFaults("none");
    ASSERT_TRUE(none.ok());
    EXPECT_TRUE(none->empty());
    auto some = ParseSoakFaults("eof,hangup,restart");
    ASSERT_TRUE(some.ok());
    EXPECT_EQ(*some, (std::set<Fault>{Fault::kEndOfFile, Fault::kHangUp, Fault::kRestart}));
    auto wrong = ParseSoakFaults("read,hang-up");
    ASSERT_FALSE(wrong.ok());
    EXPECT_THAT(wrong.error().message(), HasSubstr("no fault \"hang-up\""));
}

}  // namespace
}  // namespace tarvo_emu
