#include "server_signals.h"

#include <signal.h>

#include <string>

#include <gtest/gtest.h>

namespace tarvo {

namespace {

// What the handler saw, in order; written only from signal context on this thread.
volatile sig_atomic_t events[8];
volatile sig_atomic_t event_count = 0;

void Record(int event) {
    if (event_count < 8) events[event_count++] = event;
}

// SIGUSR1 stands for a handler that is still waiting for the modem when the next signal comes.
void RecordingHandler(int signal) {
    Record(signal);
    if (signal == SIGUSR1) {
        raise(SIGUSR2);
        raise(SIGWINCH);
        Record(-signal);
    }
}

std::string Events() {
    std::string text;
    for (int i = 0; i < event_count; ++i) text += std::to_string(events[i]) + " ";
    return text;
}

class ServerSignalsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        event_count = 0;
        for (int i = 0; i < 3; ++i) sigaction(kSignals[i], nullptr, &saved_[i]);
    }
    void TearDown() override {
        for (int i = 0; i < 3; ++i) sigaction(kSignals[i], &saved_[i], nullptr);
    }

    static constexpr int kSignals[3] = {SIGUSR1, SIGUSR2, SIGWINCH};
    struct sigaction saved_[3];
};

}  // namespace

TEST_F(ServerSignalsTest, ASignalThatComesDuringTheHandlerIsHandledAfterIt) {
    install_server_signal_handler(RecordingHandler);
    raise(SIGUSR1);
    // A nested handler would show SIGUSR2 between the start and the end of the first one.
    EXPECT_EQ(Events(), "10 -10 12 28 ") << "SIGUSR1 is 10, SIGUSR2 12, SIGWINCH 28";
}

TEST_F(ServerSignalsTest, SignalsThatComeWhileBlockedWaitForTheEndOfTheBlock) {
    install_server_signal_handler(RecordingHandler);
    {
        ScopedServerSignalBlock block;
        raise(SIGUSR2);
        EXPECT_EQ(Events(), "");
    }
    EXPECT_EQ(Events(), "12 ");
}

}  // namespace tarvo
