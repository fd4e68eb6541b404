// The strace reader's rules that the kept captures of the daemon in the rig do not reach: calls
// that one thread splits while another runs, interrupted and partial calls, a capture that passes
// midnight, nodes known only by their open or by the user, and cut buffers.

#include "capture/strace_reader.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarvo_emu {
namespace {

using ::testing::AllOf;
using ::testing::DoubleNear;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::HasSubstr;
using ::testing::Optional;
using Kind = CaptureEvent::Kind;

android::base::Result<Capture> Read(const std::vector<std::string>& lines,
                                    StraceOptions options = {}) {
    StraceReader reader(options);
    for (const std::string& line : lines) {
        if (auto read = reader.Line(line); !read.ok()) return read.error();
    }
    return reader.Finish();
}

auto Event(Kind kind, const std::string& bytes) {
    return AllOf(Field(&CaptureEvent::kind, kind), Field(&CaptureEvent::bytes, bytes));
}

auto EventAt(Kind kind, const std::string& bytes, double time) {
    return AllOf(Event(kind, bytes), Field(&CaptureEvent::time, Optional(DoubleNear(time, 1e-6))));
}

auto FaultEvent(Fault fault) {
    return AllOf(Field(&CaptureEvent::kind, Kind::kFault), Field(&CaptureEvent::fault, fault));
}

auto State(int state) {
    return AllOf(Field(&CaptureEvent::kind, Kind::kModemState), Field(&CaptureEvent::state, state));
}

TEST(StraceReaderTest, SplitInterruptedAndPartialCallsMakeWholeMessages) {
    auto capture = Read({
        R"([pid 11] 23:59:59.500000 read(5</dev/oem_ipc1>,  <unfinished ...>)",
        R"([pid 12] 23:59:59.600000 write(5</dev/oem_ipc1>, "\x08\x01", 2) = 2)",
        R"([pid 11] 00:00:00.100000 <... read resumed>"\x08\x02\x10\x07", 65568) = 4)",
        R"([pid 11] 00:00:00.200000 read(5</dev/oem_ipc1>, 0x1234, 65568) = ? ERESTARTSYS (To be restarted if SA_RESTART is set))",
        // Octal escapes take at most three digits: `\0011` is byte 1, then the digit 1.
        R"([pid 11] 00:00:00.300000 read(5</dev/oem_ipc1>, "\101\0011\n", 65568) = 4)",
        R"([pid 12] 00:00:00.400000 write(5</dev/oem_ipc1>, "\x08\x01\x10", 3) = 1)",
        R"([pid 12] 00:00:00.500000 write(5</dev/oem_ipc1>, "\x01\x10", 2) = 2)",
    });
    ASSERT_TRUE(capture.ok()) << capture.error();
    // A read is stamped when it returns, and the day goes on past midnight.
    EXPECT_THAT(capture->events,
                ElementsAre(EventAt(Kind::kFromDaemon, "\x08\x01", 0.1),
                            EventAt(Kind::kToDaemon, std::string("\x08\x02\x10\x07"), 0.6),
                            EventAt(Kind::kToDaemon,
                                    std::string("A\001"
                                                "1\n"),
                                    0.8),
                            EventAt(Kind::kFromDaemon, "\x08\x01\x10", 0.9)));
}

TEST(StraceReaderTest, NodesAreKnownByTheirOpenOrByTheUser) {
    auto capture = Read({
        R"(1000  1.5 openat(AT_FDCWD, "/dev/umts_boot0", O_RDONLY) = 3)",
        R"(1000  1.6 ioctl(3, _IOC(_IOC_NONE, 0x6f, 0x27, 0), 0) = 2)",
        R"(1000  1.7 ioctl(3, _IOC(_IOC_NONE, 0x6f, 0x27, 0), 0) = 2)",
        R"(1000  1.8 openat(AT_FDCWD, "/dev/oem_ipc1", O_RDWR) = 7)",
        R"(1000  1.9 ioctl(3, _IOC(_IOC_NONE, 0x6f, 0x27, 0), 0) = 4)",
        R"(1000  2.0 read(7, "\10", 65568) = 1)",
        R"(1000  2.1 read(7, "", 65568) = 0)",
        R"(1000  2.2 read(9, "\10", 65568) = 1)",
    });
    ASSERT_TRUE(capture.ok()) << capture.error();
    EXPECT_THAT(capture->events, ElementsAre(State(2), State(4), Event(Kind::kToDaemon, "\x08"),
                                             FaultEvent(Fault::kEndOfFile)));

    const std::vector<std::string> unplaced = {R"(read(4, "\10", 65568) = 1)"};
    auto unknown = Read(unplaced);
    ASSERT_FALSE(unknown.ok());
    EXPECT_THAT(unknown.error().message(), HasSubstr("give --fd N"));
    auto given = Read(unplaced, {.ipc_fd = 4});
    ASSERT_TRUE(given.ok()) << given.error();
    EXPECT_THAT(given->events, ElementsAre(Event(Kind::kToDaemon, "\x08")));
}

TEST(StraceReaderTest, CutBufferNamesItsLineAndTheFix) {
    auto capture = Read({
        R"(read(5</dev/oem_ipc1>, "\10", 65568) = 1)",
        R"(read(5</dev/oem_ipc1>, "\x08\x01"..., 65568) = 10)",
    });
    ASSERT_FALSE(capture.ok());
    EXPECT_THAT(capture.error().message(),
                AllOf(HasSubstr("line 2"), HasSubstr("capture with -s 70000")));
}

}  // namespace
}  // namespace tarvo_emu
