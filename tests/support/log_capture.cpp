#include "log_capture.h"

#include <atomic>

namespace {
std::atomic<LogCapture*> active{nullptr};
}

LogCapture::LogCapture() {
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    active = this;
    __android_log_set_logger(&LogCapture::Write);
}

LogCapture::~LogCapture() {
    __android_log_set_logger(__android_log_stderr_logger);
    active = nullptr;
}

void LogCapture::Write(const __android_logger_data* data, const char* message) {
    LogCapture* capture = active;
    if (capture == nullptr) return;
    std::lock_guard<std::mutex> guard(capture->lock_);
    capture->lines_.push_back({data->priority, data->tag ? data->tag : "", message ? message : ""});
}

std::vector<LogCapture::Line> LogCapture::Lines() const {
    std::lock_guard<std::mutex> guard(lock_);
    return lines_;
}

int LogCapture::Count(int priority, const std::string& text) const {
    std::lock_guard<std::mutex> guard(lock_);
    int count = 0;
    for (const Line& line : lines_) {
        if (line.priority == priority && line.text == text) ++count;
    }
    return count;
}

std::string LogCapture::Dump() const {
    std::lock_guard<std::mutex> guard(lock_);
    std::string dump;
    for (const Line& line : lines_) {
        dump += std::to_string(line.priority) + " " + line.tag + ": " + line.text + "\n";
    }
    return dump;
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> guard(lock_);
    lines_.clear();
}
