#include "cli/console.h"

#include <editline/readline.h>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <iostream>
#include <optional>

#include <android-base/strings.h>
#include <android-base/unique_fd.h>

#include "cli/live_output.h"
#include "cli/step_examples.h"
#include "cli/step_text.h"
#include "process/signal_cleanup.h"
#include "scenario/scenario_player.h"
#include "scenario/scenario_recorder.h"

using android::base::Result;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

// One session: reads the lines of standard input as steps and plays them. On a terminal the
// line editor reads them, which calls back without a pointer of its own; the session that is
// reading is the one its callbacks reach.
class Console {
  public:
    Console(ScenarioSession* session, LiveOutput* output, int wake_fd)
        : session_(session), output_(output), wake_fd_(wake_fd) {}

    // Plays the steps given first, up to the first that fails.
    void PlayFirst(const tarvo_scenario::Scenario& scenario) {
        for (const Step& step : scenario.step()) {
            if (!Play(step)) return;
        }
    }

    void Interact() {
        const bool terminal = isatty(STDIN_FILENO) != 0;
        if (terminal) {
            output_->Say("tarvo-emu console: type a step, `help` for the list, `quit` to end.\n");
            reading_ = this;
            rl_attempted_completion_function = Complete;
        }
        while (true) {
            const std::optional<std::string> line = terminal ? EditedLine() : PlainLine();
            // `quit` ends the session even in the middle of a step.
            if (!line || android::base::Trim(*line) == "quit") break;
            pending_text_ += *line + "\n";
            if (OpenBraces(pending_text_) > 0) continue;
            const std::string text = android::base::Trim(pending_text_);
            pending_text_.clear();
            if (text == "help") {
                output_->Say(ConsoleHelp());
            } else if (!text.empty()) {
                Result<std::vector<Step>> steps = ParseSteps(text);
                if (!steps.ok()) {
                    output_->Say(steps.error().message() + "\n");
                    continue;
                }
                for (const Step& step : *steps) Play(step);
            }
        }
        reading_ = nullptr;
    }

    bool failed() const { return failed_; }

  private:
    bool Play(const Step& step) {
        Result<void> played = session_->Play(step, next_index_++);
        if (played.ok()) return true;
        failed_ = true;
        output_->Say("FAILED " + played.error().message() + "\n");
        return false;
    }

    std::optional<std::string> PlainLine() {
        std::string line;
        if (!std::getline(std::cin, line)) return std::nullopt;
        return line;
    }

    // A line from the line editor, showing what the rig prints meanwhile above the prompt.
    std::optional<std::string> EditedLine() {
        typed_line_.reset();
        output_->SetPrompting(true);
        rl_callback_handler_install(pending_text_.empty() ? "tarvo> " : "...> ", OnLine);
        while (!typed_line_ && !input_ended_) {
            pollfd fds[] = {{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0},
                            {.fd = wake_fd_, .events = POLLIN, .revents = 0}};
            if (poll(fds, 2, -1) < 0) continue;
            if (fds[1].revents != 0) ShowHeld();
            if (fds[0].revents != 0) rl_callback_read_char();
        }
        rl_callback_handler_remove();
        output_->SetPrompting(false);
        if (input_ended_) {
            output_->Say("\n");
            return std::nullopt;
        }
        return typed_line_;
    }

    void ShowHeld() {
        char bytes[256];
        while (read(wake_fd_, bytes, sizeof(bytes)) > 0) {
        }
        const std::vector<std::string> held = output_->TakeHeld();
        if (held.empty()) return;
        // Over the prompt's line, which the line editor then draws again below.
        fputs("\r\033[K", stdout);
        for (const std::string& lines : held) fputs(lines.c_str(), stdout);
        fflush(stdout);
        rl_forced_update_display();
    }

    // The line editor's callbacks, for the session reading.
    static void OnLine(char* line) {
        if (line == nullptr) {
            reading_->input_ended_ = true;
            return;
        }
        if (*line != '\0') add_history(line);
        reading_->typed_line_ = line;
        free(line);
    }

    static char** Complete(const char* word, int start, int) {
        // Never the line editor's own completion of file names.
        rl_attempted_completion_over = 1;
        reading_->completions_ =
            CompletionsOf(reading_->pending_text_ + std::string(rl_line_buffer, start), word);
        reading_->next_completion_ = 0;
        if (reading_->completions_.empty()) return nullptr;
        return rl_completion_matches(word, NextCompletion);
    }

    // The names that complete the word under the cursor, handed to the line editor one at a time.
    static char* NextCompletion(const char*, int) {
        Console& console = *reading_;
        if (console.next_completion_ >= console.completions_.size()) return nullptr;
        return strdup(console.completions_[console.next_completion_++].c_str());
    }

    static Console* reading_;

    ScenarioSession* session_;
    LiveOutput* output_;
    const int wake_fd_;
    int next_index_ = 0;
    bool failed_ = false;
    // The step typed so far on earlier lines; the line the line editor gave; the end of input.
    std::string pending_text_;
    std::optional<std::string> typed_line_;
    bool input_ended_ = false;
    std::vector<std::string> completions_;
    size_t next_completion_ = 0;
};

Console* Console::reading_ = nullptr;

}  // namespace

int RunConsole(const ConsoleOptions& options) {
    tarvo_scenario::Scenario scenario;
    if (!options.file.empty()) {
        Result<tarvo_scenario::Scenario> loaded = LoadScenario(options.file);
        if (!loaded.ok()) {
            fprintf(stderr, "tarvo-emu console: %s\n", loaded.error().message().c_str());
            return 1;
        }
        scenario = *loaded;
    }
    android::base::unique_fd wake_read, wake_write;
    if (!android::base::Pipe(&wake_read, &wake_write, O_CLOEXEC | O_NONBLOCK)) {
        perror("tarvo-emu console: pipe");
        return 1;
    }
    if (isatty(STDIN_FILENO)) {
        termios saved;
        if (tcgetattr(STDIN_FILENO, &saved) == 0) {
            SetSignalCleanupHook([saved] { tcsetattr(STDIN_FILENO, TCSANOW, &saved); });
        }
        rl_readline_name = "tarvo-emu";
        rl_catch_signals = 0;
        rl_basic_word_break_characters = " \t\n{}<>:\"'";
    }
    LiveOutput output(wake_write.get());
    std::ostream transcript(&output);
    ScenarioSession session(scenario, &transcript);
    session.rig().transcript().SetColour(WantsColour(STDOUT_FILENO));
    ScenarioRecorder recorder(scenario);
    if (!options.record.empty()) session.Record(&recorder);
    if (Result<void> started = session.Start(); !started.ok()) {
        fprintf(stderr, "tarvo-emu console: %s\n", started.error().message().c_str());
        return 1;
    }
    Console console(&session, &output, wake_read.get());
    console.PlayFirst(scenario);
    console.Interact();
    bool failed = console.failed();
    if (Result<void> health = session.rig().CheckHealth(); !health.ok()) {
        output.Say("FAILED " + health.error().message() + "\n");
        failed = true;
    }
    output.Say(SummaryText(session.Summary()) + "\n");
    if (!options.record.empty()) {
        if (Result<void> written = recorder.Write(options.record, session.rig()); !written.ok()) {
            output.Say("tarvo-emu console: " + written.error().message() + "\n");
            failed = true;
        } else {
            output.Say("recorded " + options.record + "\n");
        }
    }
    return failed ? 1 : 0;
}

}  // namespace tarvo_emu
