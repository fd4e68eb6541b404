#include "ril_request_helper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <mutex>
#include <thread>
#include <vector>

namespace tarvo {

using std::chrono::seconds;
using testing::Each;
using testing::ElementsAre;

namespace {

constexpr int kNever = -1000;

// A RIL client that answers each request from a thread of its own, as the library does, with the
// next of the codes it was given (the last one repeats); kNever leaves a request unanswered.
class FakeRilClient : public RilClientHelper {
  public:
    ~FakeRilClient() override { JoinAnswers(); }

    void JoinAnswers() {
        for (std::thread& thread : threads_) thread.join();
        threads_.clear();
    }

    bool Init() override { return true; }
    void Release() override {}
    void* Open() override {
        ++opens_;
        return open_fails_ ? nullptr : this;
    }
    void* Open(const char*) override { return Open(); }
    int Close(void*) override { return 0; }
    int Reconnect(void*) override { return 0; }
    int Send(void* handle, unsigned int request, void* data, unsigned long length,
             RilResponseCallback callback) override {
        EXPECT_EQ(handle, this);
        requests_.emplace_back(request, std::string(static_cast<char*>(data), length));
        const int answer = answers_.front();
        if (answers_.size() > 1) answers_.pop_front();
        if (answer != kNever) {
            threads_.emplace_back([=] { callback(request, answer, nullptr, 0, 255); });
        }
        return 0;
    }
    int Send(void*, unsigned int, void*, unsigned long, RilResponseCallback,
             unsigned int) override {
        ADD_FAILURE() << "the helper sends with the default selector";
        return 1;
    }
    int RegisterUnsolicitedResponseHandler(void*, RilUnsolicitedHandler) override { return 0; }
    int SetIndicationFilter(void*, int*, unsigned long) override { return 0; }

    bool open_fails_ = false;
    int opens_ = 0;
    std::vector<std::pair<unsigned int, std::string>> requests_;
    std::deque<int> answers_ = {0};

  private:
    std::vector<std::thread> threads_;
};

class RilRequestHelperTest : public testing::Test {
  protected:
    void TearDown() override {
        client_.JoinAnswers();
        RilRequestHelper::DestroyInstance();
    }

    RilRequestHelper* Helper() {
        return RilRequestHelper::GetInstance(&client_,
                                             [this](seconds pause) { pauses_.push_back(pause); });
    }

    int Send(int budget) {
        RilRequestHelper* helper = Helper();
        EXPECT_NE(helper, nullptr);
        std::string data("\x3c\x00", 2);
        return helper == nullptr ? -1 : helper->Send(227, data.data(), data.size(), budget);
    }

    size_t Attempts() const { return client_.requests_.size(); }

    FakeRilClient client_;
    std::vector<seconds> pauses_;
};

}  // namespace

TEST_F(RilRequestHelperTest, ErrorsOtherThanRadioNotAvailableAreNotRetried) {
    client_.answers_ = {2, 0};
    EXPECT_EQ(Send(60), 2);
    EXPECT_EQ(Attempts(), 1u);
}

TEST_F(RilRequestHelperTest, TheBudgetLimitsTheAttempts) {
    client_.answers_ = {1};
    EXPECT_EQ(Send(60), 1);
    EXPECT_EQ(Attempts(), 12u);
    EXPECT_EQ(pauses_.size(), 11u);
    EXPECT_THAT(pauses_, Each(seconds(5)));

    // The last pause is what is left of the budget.
    pauses_.clear();
    client_.requests_.clear();
    EXPECT_EQ(Helper()->Send(226, nullptr, 0, 7), 1);
    EXPECT_EQ(Attempts(), 2u);
    EXPECT_THAT(pauses_, ElementsAre(seconds(2)));

    pauses_.clear();
    client_.requests_.clear();
    EXPECT_EQ(Helper()->Send(226, nullptr, 0, 5), 1);
    EXPECT_EQ(Attempts(), 1u);
}

TEST_F(RilRequestHelperTest, ABudgetOfZeroHasNoEnd) {
    std::deque<int> answers(30, 1);
    answers.push_back(0);
    client_.answers_ = answers;
    EXPECT_EQ(Send(0), 0);
    EXPECT_EQ(Attempts(), 31u);
    EXPECT_EQ(pauses_.size(), 30u);
    EXPECT_THAT(pauses_, Each(seconds(5)));
}

TEST_F(RilRequestHelperTest, ANegativeBudgetIsRefusedUnsent) {
    EXPECT_EQ(Send(-1), 44);
    EXPECT_EQ(Attempts(), 0u);
}

TEST_F(RilRequestHelperTest, ExistsOnlyWithAnOpenHandle) {
    client_.open_fails_ = true;
    EXPECT_EQ(Helper(), nullptr);
    EXPECT_EQ(Helper(), nullptr);
    EXPECT_EQ(client_.opens_, 2);

    client_.open_fails_ = false;
    RilRequestHelper* helper = Helper();
    ASSERT_NE(helper, nullptr);
    EXPECT_EQ(RilRequestHelper::GetInstance(), helper);
    EXPECT_EQ(client_.opens_, 3);
    // The handle that was opened is the one requests go out on (the fake checks it).
    EXPECT_EQ(Send(60), 0);
}

}  // namespace tarvo
