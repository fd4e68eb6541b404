#pragma once

#include <mutex>
#include <streambuf>
#include <string>
#include <vector>

namespace tarvo_emu {

// Where the transcript and the console's own lines go. While a prompt waits for input, lines
// are held and the input loop shows them above the prompt, so that they do not land in the
// middle of the line being typed; otherwise they are written at once.
class LiveOutput : public std::streambuf {
  public:
    // `wake_fd` gets a byte for each line held, to wake the input loop.
    explicit LiveOutput(int wake_fd) : wake_fd_(wake_fd) {}

    // Whole lines, as one write.
    void Say(const std::string& text);
    void SetPrompting(bool prompting);
    std::vector<std::string> TakeHeld();

  protected:
    int overflow(int c) override;
    std::streamsize xsputn(const char* bytes, std::streamsize size) override;

  private:
    void Emit(const std::string& lines);
    static void Write(const std::string& lines);

    const int wake_fd_;
    std::mutex mutex_;
    bool prompting_ = false;
    std::vector<std::string> held_;
    std::string partial_;
};

}  // namespace tarvo_emu
