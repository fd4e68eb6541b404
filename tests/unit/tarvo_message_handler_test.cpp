#include "tarvo_message_handler.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <gtest/gtest.h>

#include "vek_io_handler.h"

namespace tarvo {

using namespace std::chrono_literals;
using tarvo_message::TarvoMessage;

namespace {

// A message handler whose channel is a FIFO instead of the modem node, and which records the
// service commands it is asked to run instead of running them.
class TestMessageHandler : public TarvoMessageHandler {
  public:
    explicit TestMessageHandler(const std::string& channel) {
        io_handler_ = std::make_unique<VekIoHandler>(this);
        io_handler_->GetChannel()->SetChannel(channel);
        request_list_ = std::make_unique<RequestList>();
    }

    int SendServiceRequest(unsigned int command) override {
        commands.push_back(command);
        return 0;
    }

    std::vector<unsigned int> commands;
};

// The modem's end of the FIFO: collects what the daemon writes and answers on request.
class FakeModem {
  public:
    FakeModem() {
        path_ = std::string(dir_.path) + "/ipc";
        EXPECT_EQ(mkfifo(path_.c_str(), 0600), 0);
        fd_.reset(open(path_.c_str(), O_RDWR | O_NONBLOCK));
        reader_ = std::thread([this] { ReadLoop(); });
    }

    ~FakeModem() {
        stop_ = true;
        reader_.join();
    }

    const std::string& path() const { return path_; }

    // The next message the daemon wrote, waiting up to a second.
    std::optional<TarvoMessage> Next() {
        std::unique_lock<std::mutex> lock(lock_);
        if (!arrived_.wait_for(lock, 1s, [this] { return !received_.empty(); })) {
            return std::nullopt;
        }
        TarvoMessage message = received_.front();
        received_.pop_front();
        return message;
    }

  private:
    void ReadLoop() {
        while (!stop_) {
            pollfd pfd = {fd_.get(), POLLIN, 0};
            if (poll(&pfd, 1, 20) != 1) continue;
            char buffer[4096];
            const ssize_t n = read(fd_.get(), buffer, sizeof(buffer));
            if (n <= 0) continue;
            TarvoMessage message;
            EXPECT_TRUE(message.ParseFromArray(buffer, static_cast<int>(n)));
            std::lock_guard<std::mutex> guard(lock_);
            received_.push_back(message);
            arrived_.notify_all();
        }
    }

    TemporaryDir dir_;
    std::string path_;
    android::base::unique_fd fd_;
    std::mutex lock_;
    std::condition_variable arrived_;
    std::deque<TarvoMessage> received_;
    std::atomic<bool> stop_{false};
    std::thread reader_;
};

std::unique_ptr<VekMessage> MakeRequest() {
    auto request = std::make_unique<VekMessage>();
    request->InitialHeader(TarvoMessage::kModemStat, tarvo_message::REQUEST);
    request->GetTarvoMessage()->mutable_modem_stat()->mutable_report_request();
    return request;
}

std::string ResponseBytes(uint32_t token, tarvo_message::TarvoResult result) {
    TarvoMessage response;
    response.set_type(tarvo_message::RESPONSE);
    response.set_message_id(TarvoMessage::kModemStat);
    response.set_token(token);
    response.set_result(result);
    response.mutable_modem_stat()->mutable_report_response();
    return response.SerializeAsString();
}

int Deliver(TarvoMessageHandler& handler, const std::string& bytes) {
    return handler.ProcessReceivedMessage(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

// Answers the next request after a short delay, as the modem does.
std::thread ReplyLater(FakeModem& modem, TarvoMessageHandler& handler,
                       tarvo_message::TarvoResult result) {
    return std::thread([&modem, &handler, result] {
        std::optional<TarvoMessage> request = modem.Next();
        ASSERT_TRUE(request.has_value());
        std::this_thread::sleep_for(20ms);
        EXPECT_EQ(Deliver(handler, ResponseBytes(request->token(), result)), 0);
    });
}

class MessageHandlerTest : public ::testing::Test {
  protected:
    FakeModem modem_;
    TestMessageHandler handler_{modem_.path()};
};

}  // namespace

TEST_F(MessageHandlerTest, AnsweredRequestLeavesACloneOfTheResponseUntilRemoved) {
    auto request = MakeRequest();
    std::thread modem = ReplyLater(modem_, handler_, tarvo_message::RESULT_IO_ERROR);
    EXPECT_EQ(handler_.SendRequest(request.get(), 3), 0);
    modem.join();

    RequestRecord record = handler_.GetRequestRecord(request->GetToken());
    ASSERT_NE(record.GetResponse(), nullptr);
    EXPECT_EQ(record.GetResponse()->GetResult(), tarvo_message::RESULT_IO_ERROR);
    // Each fetch hands out a clone of its own.
    EXPECT_NE(handler_.GetRequestRecord(request->GetToken()).GetResponse(), record.GetResponse());

    handler_.RemoveRequestRecord(request->GetToken());
    EXPECT_EQ(handler_.GetRequestRecord(request->GetToken()).GetToken(), TokenGen::kNoToken);
    EXPECT_EQ(handler_.WaitForResponse(1, request->GetToken()), tarvo_message::RESULT_UNAVAILABLE);
}

TEST_F(MessageHandlerTest, UnansweredRequestTimesOutAfterItsWaitAndStaysListed) {
    auto request = MakeRequest();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(handler_.SendRequest(request.get(), 3), tarvo_message::RESULT_FAILURE);
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, 2900ms);
    EXPECT_LT(waited, 4s);

    // The modem saw the request, and a late answer is still stored.
    std::optional<TarvoMessage> sent = modem_.Next();
    ASSERT_TRUE(sent.has_value());
    EXPECT_EQ(sent->token(), request->GetToken());
    EXPECT_EQ(Deliver(handler_, ResponseBytes(request->GetToken(), tarvo_message::RESULT_SUCCESS)),
              0);
    EXPECT_NE(handler_.GetRequestRecord(request->GetToken()).GetResponse(), nullptr);
}

TEST_F(MessageHandlerTest, ZeroWaitTimesOutEvenWhenTheAnswerComes) {
    auto request = MakeRequest();
    std::thread modem = ReplyLater(modem_, handler_, tarvo_message::RESULT_SUCCESS);
    EXPECT_EQ(handler_.SendRequest(request.get(), 0), tarvo_message::RESULT_FAILURE);
    modem.join();
    EXPECT_NE(handler_.GetRequestRecord(request->GetToken()).GetResponse(), nullptr);
}

TEST_F(MessageHandlerTest, LaterResponseForTheSameTokenReplacesTheEarlierOne) {
    auto request = MakeRequest();
    ASSERT_EQ(handler_.SendRequest(request.get(), 0), tarvo_message::RESULT_FAILURE);
    const uint32_t token = request->GetToken();
    EXPECT_EQ(Deliver(handler_, ResponseBytes(token, tarvo_message::RESULT_BAD_FORMAT)), 0);
    EXPECT_EQ(Deliver(handler_, ResponseBytes(token, tarvo_message::RESULT_IO_ERROR)), 0);
    EXPECT_EQ(handler_.GetRequestRecord(token).GetResponse()->GetResult(),
              tarvo_message::RESULT_IO_ERROR);
}

TEST_F(MessageHandlerTest, ResponsesForUnknownTokensAreDropped) {
    EXPECT_EQ(Deliver(handler_, ResponseBytes(0x4242, tarvo_message::RESULT_SUCCESS)),
              tarvo_message::RESULT_UNAVAILABLE);
    EXPECT_EQ(handler_.GetRequestRecord(0x4242).GetToken(), TokenGen::kNoToken);
}

TEST_F(MessageHandlerTest, ConcurrentWaitersEachGetTheirOwnResponse) {
    auto first = MakeRequest();
    auto second = MakeRequest();
    int first_status = -1, second_status = -1;
    std::thread first_sender([&] { first_status = handler_.SendRequest(first.get(), 3); });
    ASSERT_TRUE(modem_.Next().has_value());
    std::thread second_sender([&] { second_status = handler_.SendRequest(second.get(), 3); });
    ASSERT_TRUE(modem_.Next().has_value());

    // Answer the later request first; the earlier waiter wakes, finds nothing and waits on.
    std::this_thread::sleep_for(20ms);
    Deliver(handler_, ResponseBytes(second->GetToken(), tarvo_message::RESULT_IO_ERROR));
    second_sender.join();
    Deliver(handler_, ResponseBytes(first->GetToken(), tarvo_message::RESULT_SUCCESS));
    first_sender.join();

    EXPECT_EQ(first_status, 0);
    EXPECT_EQ(second_status, 0);
    EXPECT_EQ(handler_.GetRequestRecord(first->GetToken()).GetResponse()->GetResult(), 0);
    EXPECT_EQ(handler_.GetRequestRecord(second->GetToken()).GetResponse()->GetResult(),
              tarvo_message::RESULT_IO_ERROR);
}

TEST_F(MessageHandlerTest, UnsendableRequestsAreRefusedBeforeAnythingIsListed) {
    EXPECT_EQ(handler_.SendRequest(nullptr, 3), tarvo_message::RESULT_INVALID);

    VekMessage response;
    response.InitialHeader(TarvoMessage::kFile, tarvo_message::RESPONSE);
    EXPECT_EQ(handler_.SendRequest(&response, 3), tarvo_message::RESULT_INVALID);

    TestMessageHandler unplugged("/nonexistent/ipc");
    auto request = MakeRequest();
    EXPECT_EQ(unplugged.SendRequest(request.get(), 3), tarvo_message::RESULT_IO_ERROR);
    EXPECT_EQ(unplugged.GetRequestRecord(request->GetToken()).GetToken(), TokenGen::kNoToken);
}

TEST_F(MessageHandlerTest, NoBytesNoMessage) {
    EXPECT_EQ(handler_.ProcessReceivedMessage(nullptr, 4), tarvo_message::RESULT_INVALID);
    EXPECT_EQ(handler_.ProcessReceivedMessage("x", 0), tarvo_message::RESULT_INVALID);
}

TEST(ModemStateChangeTest, EachArrivalOnlineRunsTheStartupCommandsOnce) {
    TestMessageHandler handler("/nonexistent/ipc");
    int recoveries = 0;
    RecoveryCallback callback([&recoveries] { ++recoveries; });
    handler.RegisterRecoveryCallback(&callback);

    handler.OnModemStateChanged(0);
    EXPECT_TRUE(handler.commands.empty());
    handler.OnModemStateChanged(4);
    EXPECT_EQ(handler.commands, (std::vector<unsigned int>{1, 3, 4}));
    EXPECT_EQ(recoveries, 1);

    handler.OnModemStateChanged(4);
    EXPECT_EQ(handler.commands.size(), 3u);

    handler.OnModemStateChanged(3);
    handler.OnModemStateChanged(4);
    EXPECT_EQ(handler.commands, (std::vector<unsigned int>{1, 3, 4, 1, 3, 4}));
    EXPECT_EQ(recoveries, 2);
}

}  // namespace tarvo
