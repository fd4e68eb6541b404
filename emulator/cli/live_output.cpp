#include "cli/live_output.h"

#include <stdio.h>
#include <unistd.h>

namespace tarvo_emu {

void LiveOutput::Say(const std::string& text) {
    std::lock_guard<std::mutex> lock(mutex_);
    Emit(text);
}

void LiveOutput::SetPrompting(bool prompting) {
    std::lock_guard<std::mutex> lock(mutex_);
    prompting_ = prompting;
    if (!prompting_) {
        for (const std::string& line : held_) Write(line);
        held_.clear();
    }
}

std::vector<std::string> LiveOutput::TakeHeld() {
    std::lock_guard<std::mutex> lock(mutex_);
    return std::move(held_);
}

int LiveOutput::overflow(int c) {
    if (c == traits_type::eof()) return 0;
    const char byte = traits_type::to_char_type(c);
    xsputn(&byte, 1);
    return c;
}

std::streamsize LiveOutput::xsputn(const char* bytes, std::streamsize size) {
    std::lock_guard<std::mutex> lock(mutex_);
    partial_.append(bytes, size);
    const size_t end = partial_.rfind('\n');
    if (end != std::string::npos) {
        Emit(partial_.substr(0, end + 1));
        partial_.erase(0, end + 1);
    }
    return size;
}

void LiveOutput::Emit(const std::string& lines) {
    if (!prompting_) {
        Write(lines);
        return;
    }
    held_.push_back(lines);
    const char byte = 0;
    if (write(wake_fd_, &byte, 1) < 0) {
        // A full pipe already wakes the loop.
    }
}

void LiveOutput::Write(const std::string& lines) {
    fwrite(lines.data(), 1, lines.size(), stdout);
    fflush(stdout);
}

}  // namespace tarvo_emu
