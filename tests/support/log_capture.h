#pragma once

#include <android/log.h>

#include <mutex>
#include <string>
#include <vector>

// Collects the log lines written in this process while it is alive.
class LogCapture {
  public:
    struct Line {
        int priority;
        std::string tag;
        std::string text;
    };

    LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    ~LogCapture();

    std::vector<Line> Lines() const;
    // How many lines have exactly this priority and text.
    int Count(int priority, const std::string& text) const;
    bool Contains(int priority, const std::string& text) const { return Count(priority, text) > 0; }
    // Texts in order, for failure messages.
    std::string Dump() const;
    void Clear();

  private:
    static void Write(const __android_logger_data* data, const char* message);

    mutable std::mutex lock_;
    std::vector<Line> lines_;
};
