// The rig's RIL side on its own: a client speaking the emulated library's packets, the answers by
// rule, and the requests kept in order.

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <optional>

#include <android-base/unique_fd.h>

#include "peers/ril_side.h"
#include "ril_library/ril_wire.h"

using std::chrono::milliseconds;
using tarvo_emu::RilReplyRule;
using tarvo_emu::RilSide;

namespace {

class RilSideTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char dir[] = "/tmp/tarvo-ril-side.XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        dir_ = dir;
        const std::string path = dir_ + "/socket";
        ASSERT_TRUE(ril_.Listen(path).ok());

        client_.reset(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        ASSERT_EQ(connect(client_.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)),
                  0);
        timeval timeout = {5, 0};
        setsockopt(client_.get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
    }

    void TearDown() override {
        ril_.Stop();
        std::filesystem::remove_all(dir_);
    }

    void Send(uint32_t serial, uint32_t request, const std::string& data = "") {
        std::string packet(sizeof(tarvo_emu::RilWireRequest), '\0');
        const tarvo_emu::RilWireRequest header = {serial, request, 255};
        memcpy(packet.data(), &header, sizeof(header));
        packet += data;
        ASSERT_EQ(send(client_.get(), packet.data(), packet.size(), 0),
                  static_cast<ssize_t>(packet.size()));
    }

    // The next answer as serial and error, if one comes within 5 s.
    std::optional<std::pair<uint32_t, int>> Answer() {
        tarvo_emu::RilWireAnswer answer;
        if (recv(client_.get(), &answer, sizeof(answer), 0) != sizeof(answer)) return std::nullopt;
        return std::make_pair(answer.serial, static_cast<int>(answer.error));
    }

    tarvo_emu::Transcript transcript_{nullptr};
    RilSide ril_{&transcript_};
    std::string dir_;
    android::base::unique_fd client_;
};

RilReplyRule Reply(int error, std::optional<uint32_t> count = std::nullopt) {
    RilReplyRule rule;
    rule.error = error;
    rule.count = count;
    return rule;
}

}  // namespace

TEST_F(RilSideTest, AnswersByTheLatestRuleThatStillApplies) {
    using Answered = std::optional<std::pair<uint32_t, int>>;
    // Without a rule: error 0.
    Send(1, 226);
    EXPECT_EQ(Answer(), Answered({1, 0}));

    ril_.SetReply(226, Reply(1));
    ril_.SetReply(226, Reply(2, 2));
    ril_.SetReply(RilSide::kAnyRequest, Reply(5));
    for (uint32_t serial = 2; serial <= 4; ++serial) Send(serial, 226);
    EXPECT_EQ(Answer(), Answered({2, 2}));
    EXPECT_EQ(Answer(), Answered({3, 2}));
    // The limited rule is used up; the one before it applies again.
    EXPECT_EQ(Answer(), Answered({4, 1}));
    // An id without a rule of its own.
    Send(5, 227);
    EXPECT_EQ(Answer(), Answered({5, 5}));

    RilReplyRule silent;
    silent.no_reply = true;
    silent.count = 1;
    ril_.SetReply(227, silent);
    RilReplyRule slow = Reply(7);
    slow.delay = milliseconds(300);
    ril_.SetReply(228, slow);
    Send(6, 227);
    const auto start = std::chrono::steady_clock::now();
    Send(7, 228);
    // The unanswered request leaves room for the slow answer, and no sooner than its delay.
    EXPECT_EQ(Answer(), Answered({7, 7}));
    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(300));
    Send(8, 227);
    EXPECT_EQ(Answer(), Answered({8, 5}));
}

TEST_F(RilSideTest, KeepsTheRequestsInOrder) {
    Send(1, 227, std::string("\x01\x00", 2));
    Send(2, 226, "first");
    Send(3, 226, "second");
    // Taken by id and data, earliest first; each once.
    EXPECT_TRUE(ril_.Await(226, "second", milliseconds(5000)));
    EXPECT_FALSE(ril_.Await(226, "second", milliseconds(50)));
    const std::optional<tarvo_emu::RilRequest> first =
        ril_.Await(226, std::nullopt, milliseconds(5000));
    ASSERT_TRUE(first);
    EXPECT_EQ(first->data, "first");
    const std::optional<tarvo_emu::RilRequest> header =
        ril_.Await(227, std::nullopt, milliseconds(5000));
    ASSERT_TRUE(header);
    EXPECT_EQ(header->data, std::string("\x01\x00", 2));
}
