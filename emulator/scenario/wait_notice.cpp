#include "scenario/wait_notice.h"

#include <fmt/format.h>

namespace tarvo_emu {

namespace {

// A step that has waited this long is named in the transcript...
constexpr std::chrono::milliseconds kFirstNotice{1000};
// ...and again after each such while.
constexpr std::chrono::milliseconds kNoticeInterval{5000};

}  // namespace

void WaitNotice::Begin(const std::string& name, const std::string& text) {
    uint64_t step = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        step = ++current_;
        waiting_ = true;
        what_ = name + ": " + text;
    }
    calls_.After(kFirstNotice, [this, step] { Remind(step, kFirstNotice); });
}

void WaitNotice::End() {
    std::lock_guard<std::mutex> lock(mutex_);
    waiting_ = false;
}

void WaitNotice::Remind(uint64_t step, std::chrono::milliseconds waited) {
    std::string what;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!waiting_ || step != current_) return;
        what = what_;
    }
    transcript_->Note(fmt::format("waiting {} s so far on {}", waited.count() / 1000, what));
    const std::chrono::milliseconds next = waited + kNoticeInterval;
    calls_.After(kNoticeInterval, [this, step, next] { Remind(step, next); });
}

}  // namespace tarvo_emu
