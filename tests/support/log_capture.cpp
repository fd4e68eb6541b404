#include "log_capture.h"

#include <atomic>

namespace {
std::atomic<LogCapture*> active{nullptr};
}

LogCapture::LogCapture(std::string tag, std::optional<log_id_t> buffer)
    : tag_(std::move(tag)), buffer_(buffer) {
    previous_priority_ = __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    active = this;
    __android_log_set_logger(&LogCapture::Write);
}

LogCapture::~LogCapture() {
    __android_log_set_logger(__android_log_stderr_logger);
    __android_log_set_minimum_priority(previous_priority_);
    active = nullptr;
}

void LogCapture::Write(const __android_logger_data* data, const char* message) {
    LogCapture* capture = active;
    if (capture == nullptr || data->tag == nullptr || capture->tag_ != data->tag) return;
    if (capture->buffer_ && data->buffer_id != *capture->buffer_) return;
    std::lock_guard<std::mutex> guard(capture->lock_);
    capture->lines_.push_back({data->priority, message != nullptr ? message : "", capture->tag_});
}

std::vector<LogLine> LogCapture::Lines() const {
    std::lock_guard<std::mutex> guard(lock_);
    return lines_;
}

std::vector<LogLine> LogCapture::LinesAt(int priority) const {
    std::lock_guard<std::mutex> guard(lock_);
    std::vector<LogLine> lines;
    for (const LogLine& line : lines_) {
        if (line.priority == priority) lines.push_back(line);
    }
    return lines;
}

int LogCapture::Count(int priority, const std::string& text) const {
    std::lock_guard<std::mutex> guard(lock_);
    int count = 0;
    for (const LogLine& line : lines_) {
        if (line.priority == priority && line.text == text) ++count;
    }
    return count;
}

std::string LogCapture::Dump() const {
    std::lock_guard<std::mutex> guard(lock_);
    std::string dump;
    for (const LogLine& line : lines_) {
        dump += line.ToString() + "\n";
    }
    return dump;
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> guard(lock_);
    lines_.clear();
}
