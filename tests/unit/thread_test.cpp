#include "thread.h"

#include <signal.h>

#include <atomic>

#include <gtest/gtest.h>

#include "log_capture.h"

namespace tarvo {

namespace {

class SignalMaskProbe : public Runnable {
  public:
    void Run() override {
        sigset_t mask;
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        usr1 = sigismember(&mask, SIGUSR1) == 1;
        usr2 = sigismember(&mask, SIGUSR2) == 1;
        winch = sigismember(&mask, SIGWINCH) == 1;
        ran = true;
    }
    std::atomic<bool> ran{false}, usr1{false}, usr2{false}, winch{false};
};

}  // namespace

TEST(ThreadTest, WorkersBlockTheSignalsThatTheMainThreadHandles) {
    SignalMaskProbe probe;
    Thread thread(&probe);
    ASSERT_EQ(thread.Start(), 0);
    ASSERT_EQ(thread.Stop(), 0);
    EXPECT_TRUE(probe.ran);
    EXPECT_TRUE(probe.usr1);
    EXPECT_TRUE(probe.usr2);
    EXPECT_TRUE(probe.winch);

    // The creating thread keeps its own mask.
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGUSR1), 0);
}

TEST(ThreadTest, StopWithoutARunningThreadIsRefused) {
    LogCapture log;
    SignalMaskProbe probe;
    Thread never_started(&probe);
    EXPECT_EQ(never_started.Stop(), -1);

    Thread thread(&probe);
    ASSERT_EQ(thread.Start(), 0);
    EXPECT_EQ(thread.Stop(), 0);
    EXPECT_EQ(thread.Stop(), -1);
    EXPECT_EQ(log.Count(ANDROID_LOG_INFO, "Thread is not started"), 2) << log.Dump();
}

}  // namespace tarvo
