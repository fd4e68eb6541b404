#pragma once

#include <android/log.h>

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "process/log_line.h"

// The rig's log line; captured lines carry the tag and no pid or tid.
using LogLine = tarvo_emu::LogLine;

inline LogLine Debug(std::string text) { return {ANDROID_LOG_DEBUG, std::move(text)}; }
inline LogLine Info(std::string text) { return {ANDROID_LOG_INFO, std::move(text)}; }
inline LogLine Error(std::string text) { return {ANDROID_LOG_ERROR, std::move(text)}; }

// Collects the log lines written in this process under one tag (the daemon's by default), every
// priority, while it is alive; with a buffer, only the lines written to that buffer.
class LogCapture {
  public:
    explicit LogCapture(std::string tag = tarvo_emu::kDaemonTag,
                        std::optional<log_id_t> buffer = std::nullopt);
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    ~LogCapture();

    std::vector<LogLine> Lines() const;
    std::vector<LogLine> LinesAt(int priority) const;
    // How many lines have exactly this priority and text.
    int Count(int priority, const std::string& text) const;
    bool Contains(int priority, const std::string& text) const { return Count(priority, text) > 0; }
    // The lines in order, for failure messages.
    std::string Dump() const;
    void Clear();

  private:
    static void Write(const __android_logger_data* data, const char* message);

    const std::string tag_;
    const std::optional<log_id_t> buffer_;
    mutable std::mutex lock_;
    std::vector<LogLine> lines_;
    int previous_priority_;
};
