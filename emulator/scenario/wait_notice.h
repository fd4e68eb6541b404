#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

#include "peers/transcript.h"
#include "process/delayed_calls.h"

namespace tarvo_emu {

// Says in the transcript which step is still waiting, a second into it and every few seconds
// after, so that a quiet transcript is not taken for a hung rig.
class WaitNotice {
  public:
    explicit WaitNotice(Transcript* transcript) : transcript_(transcript) {}

    // The step shown as `name` (its text `text`) starts waiting.
    void Begin(const std::string& name, const std::string& text);
    // The step is over: no more notices for it.
    void End();

  private:
    void Remind(uint64_t step, std::chrono::milliseconds waited);

    Transcript* transcript_;
    std::mutex mutex_;
    // Counts the steps begun, so that a reminder due for an ended step says nothing.
    uint64_t current_ = 0;
    bool waiting_ = false;
    std::string what_;
    // Last, so that its thread stops before the members that its calls use go.
    DelayedCalls calls_;
};

}  // namespace tarvo_emu
