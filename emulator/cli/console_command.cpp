#include <editline/readline.h>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstring>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include <android-base/strings.h>
#include <android-base/unique_fd.h>
#include <fmt/format.h>

#include "cli/command.h"
#include "cli/live_output.h"
#include "cli/typed_step.h"
#include "process/signal_cleanup.h"
#include "scenario/scenario_player.h"
#include "scenario/scenario_recorder.h"

using android::base::Result;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

// The files of the session: none where empty.
struct ConsoleOptions {
    std::string file;    // whose setup the rig starts with and whose steps are played first
    std::string record;  // the session as a scenario, written when it ends
    std::string pcapng;  // the session for Wireshark
};

// Set while a step plays, for Ctrl-C to cancel it.
std::atomic<ScenarioSession*> playing_session = nullptr;

void CancelPlayingStep() {
    if (ScenarioSession* session = playing_session.load(); session != nullptr) {
        session->CancelStep();
    }
}

// The exit status of a session that a signal ended, as for a process that it kills: this plus its
// number.
constexpr int kSignalExit = 128;

// One session: reads the lines of standard input as steps and plays them. On a terminal the
// line editor reads them, which calls back without a pointer of its own; the session that is
// reading is the one its callbacks reach.
class Console {
  public:
    Console(ScenarioSession* session, LiveOutput* output, int wake_fd, int signal_fd)
        : session_(session), output_(output), wake_fd_(wake_fd), signal_fd_(signal_fd) {}

    // Plays the steps given first, up to the first that fails or is cancelled.
    void PlayFirst(const tarvo_scenario::Scenario& scenario) {
        for (const Step& step : scenario.step()) {
            // Checked when loaded: here the check learns the marks that typed steps may use.
            (void)check_.Check(step);
            if (!Play(step) || ending_signal_ != 0) return;
        }
    }

    void Interact() {
        const bool terminal = isatty(STDIN_FILENO) != 0;
        if (terminal) {
            output_->Say("tarvo-emu console: type a step, `help` for the list, `quit` to end.\n");
            reading_ = this;
            rl_attempted_completion_function = Complete;
        }
        while (ending_signal_ == 0) {
            const std::optional<std::string> line = terminal ? EditedLine() : PlainLine();
            // `quit` ends the session even in the middle of a step.
            if (!line || android::base::Trim(*line) == "quit") break;
            pending_text_ += *line + "\n";
            if (OpenBraces(pending_text_) > 0) continue;
            const std::string text = android::base::Trim(pending_text_);
            pending_text_.clear();
            if (text == "help") {
                output_->Say(ConsoleHelp());
            } else if (android::base::StartsWith(text, kHelpWith)) {
                output_->Say(StepHelp(android::base::Trim(text.substr(kHelpWith.size()))));
            } else if (!text.empty()) {
                Result<std::vector<Step>> steps = ParseSteps(text, &check_);
                if (!steps.ok()) {
                    output_->Say(steps.error().message() + "\n");
                    continue;
                }
                for (const Step& step : *steps) {
                    if (!Play(step) || ending_signal_ != 0) break;
                }
            }
        }
        reading_ = nullptr;
    }

    bool failed() const { return failed_; }
    // The signal that ended the session, 0 for none.
    int ending_signal() const { return ending_signal_; }

  private:
    static constexpr std::string_view kHelpWith = "help ";

    bool Play(const Step& step) {
        playing_session.store(session_);
        StepResult played = session_->Play(step, next_index_++);
        playing_session.store(nullptr);
        // A Ctrl-C meanwhile has done its work: it cancelled the step.
        const bool interrupted = TakeSignals();
        if (played.ok()) return true;
        if (interrupted || ending_signal_ != 0) {
            output_->Say(played.error().message() + "\n");
            return false;
        }
        failed_ = true;
        output_->Say("FAILED " + played.error().message() + "\n");
        return false;
    }

    // Reads the signals that came; true when a Ctrl-C came. SIGTERM or SIGHUP ends the session.
    bool TakeSignals() {
        bool interrupted = false;
        char numbers[16];
        ssize_t size;
        while ((size = read(signal_fd_, numbers, sizeof(numbers))) > 0) {
            for (ssize_t i = 0; i < size; ++i) {
                if (numbers[i] == SIGINT) {
                    interrupted = true;
                } else {
                    ending_signal_ = numbers[i];
                }
            }
        }
        return interrupted;
    }

    // A line of input that is no terminal; a Ctrl-C drops the step begun on earlier lines.
    std::optional<std::string> PlainLine() {
        while (true) {
            const size_t end = plain_input_.find('\n');
            if (end != std::string::npos) {
                std::string line = plain_input_.substr(0, end);
                plain_input_.erase(0, end + 1);
                return line;
            }
            if (input_ended_) {
                if (plain_input_.empty()) return std::nullopt;
                return std::exchange(plain_input_, std::string());
            }
            pollfd fds[] = {{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0},
                            {.fd = signal_fd_, .events = POLLIN, .revents = 0}};
            if (poll(fds, 2, -1) < 0) continue;
            if (fds[1].revents != 0) {
                if (TakeSignals()) pending_text_.clear();
                if (ending_signal_ != 0) return std::nullopt;
            }
            if (fds[0].revents == 0) continue;
            char bytes[4096];
            const ssize_t size = read(STDIN_FILENO, bytes, sizeof(bytes));
            if (size <= 0) {
                input_ended_ = size == 0 || errno != EINTR;
                continue;
            }
            plain_input_.append(bytes, size);
        }
    }

    // A line from the line editor, showing what the rig prints meanwhile above the prompt.
    std::optional<std::string> EditedLine() {
        typed_line_.reset();
        output_->SetPrompting(true);
        rl_callback_handler_install(Prompt(), OnLine);
        while (!typed_line_ && !input_ended_ && ending_signal_ == 0) {
            pollfd fds[] = {{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0},
                            {.fd = wake_fd_, .events = POLLIN, .revents = 0},
                            {.fd = signal_fd_, .events = POLLIN, .revents = 0}};
            if (poll(fds, 3, -1) < 0) continue;
            if (fds[2].revents != 0 && TakeSignals()) CancelLine();
            if (fds[1].revents != 0) ShowHeld();
            if (fds[0].revents != 0) rl_callback_read_char();
        }
        rl_callback_handler_remove();
        output_->SetPrompting(false);
        if (input_ended_ || ending_signal_ != 0) {
            output_->Say("\n");
            return std::nullopt;
        }
        return typed_line_;
    }

    const char* Prompt() const { return pending_text_.empty() ? "tarvo> " : "...> "; }

    // Ctrl-C at the prompt: the line being typed and the lines of the step begun before it go;
    // a fresh prompt follows.
    void CancelLine() {
        pending_text_.clear();
        rl_replace_line("", 0);
        rl_callback_handler_remove();
        fputs("^C\n", stdout);
        fflush(stdout);
        rl_callback_handler_install(Prompt(), OnLine);
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
        // A field's name comes with what follows it; a value gets the space after it.
        const bool spaced =
            std::all_of(reading_->completions_.begin(), reading_->completions_.end(),
                        [](const std::string& completion) { return completion.back() == ' '; });
        rl_completion_append_character = spaced ? '\0' : ' ';
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
    StepCheck check_;
    LiveOutput* output_;
    const int wake_fd_;
    const int signal_fd_;
    int next_index_ = 0;
    bool failed_ = false;
    int ending_signal_ = 0;
    // Input that is no terminal, read but not yet taken as lines.
    std::string plain_input_;
    // The step typed so far on earlier lines; the line the line editor gave; the end of input.
    std::string pending_text_;
    std::optional<std::string> typed_line_;
    bool input_ended_ = false;
    std::vector<std::string> completions_;
    size_t next_completion_ = 0;
};

Console* Console::reading_ = nullptr;

// `tarvo-emu console`: a live rig on which each step typed (scenario text format, one step per
// line, a line with an open brace continuing on the next) is played at once while the
// transcript streams. On a terminal with line editing, history and completion; otherwise the
// lines of standard input are read as steps, so that the console can be scripted. Ends at the
// end of input or on `quit`; the exit status is 0 when every step held, 1 otherwise.
int RunConsole(const ConsoleOptions& options) {
    tarvo_scenario::Scenario scenario;
    if (!options.file.empty()) {
        Result<tarvo_scenario::Scenario> loaded = LoadScenario(options.file);
        if (!loaded.ok()) return Failed("tarvo-emu console", loaded.error().message());
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
    RigHooks hooks;
    Result<std::unique_ptr<PcapngWriter>> pcapng = OpenPcapng(options.pcapng, &hooks);
    if (!pcapng.ok()) return Failed("tarvo-emu console", pcapng.error().message());
    auto session = std::make_unique<ScenarioSession>(scenario, &transcript, nullptr, nullptr,
                                                     std::move(hooks));
    session->rig().transcript().SetColour(WantsColour(STDOUT_FILENO));
    ScenarioRecorder recorder(scenario);
    if (!options.record.empty()) session->Record(&recorder);
    if (Result<void> started = session->Start(); !started.ok()) {
        return Failed("tarvo-emu console", started.error().message());
    }
    // Ctrl-C cancels the line being typed or the step being played; SIGTERM and SIGHUP end the
    // session as `quit` does, so that the recording is written and the rig comes down in order.
    Result<android::base::unique_fd> signals = TakeOverSignals(CancelPlayingStep, false);
    if (!signals.ok()) return Failed("tarvo-emu console", signals.error().message());
    Console console(session.get(), &output, wake_read.get(), signals->get());
    console.PlayFirst(scenario);
    console.Interact();
    bool failed = console.failed();
    if (Result<void> health = session->rig().CheckHealth(); !health.ok()) {
        output.Say("FAILED " + health.error().message() + "\n");
        failed = true;
    }
    output.Say(SummaryText(session->Summary()) + "\n");
    if (!options.record.empty()) {
        if (Result<void> written = recorder.Write(options.record, session->rig()); !written.ok()) {
            output.Say("tarvo-emu console: " + written.error().message() + "\n");
            failed = true;
        } else {
            output.Say("recorded " + options.record + "\n");
        }
    }
    // The capture ends with the daemon's last lines, once the rig is gone.
    session.reset();
    if (*pcapng) {
        if (Result<void> closed = (*pcapng)->Close(); !closed.ok()) {
            output.Say("tarvo-emu console: " + closed.error().message() + "\n");
            failed = true;
        }
    }
    if (const int signal_number = console.ending_signal(); signal_number != 0) {
        output.Say(fmt::format("tarvo-emu console: {}: session ended\n", strsignal(signal_number)));
        return kSignalExit + signal_number;
    }
    return failed ? 1 : 0;
}

}  // namespace

// `tarvo-emu console [FILE] [--record OUT] [--pcapng OUT]`.
Command AddConsoleCommand(CLI::App& app) {
    auto options = std::make_shared<ConsoleOptions>();
    CLI::App* console = app.add_subcommand(
        "console",
        "Starts the sandbox and the daemon (with FILE's setup, and its steps played first,\n"
        "when given) and plays each step typed at once, in scenario text format, while the\n"
        "transcript streams: `modem_state: 4`, `send { ... }`, `client: \"-m\"`,\n"
        "`expect_log { ... }`. A line that leaves a brace open goes on on the next. `help`\n"
        "lists every step kind with an example; Tab completes step and field names; `quit`\n"
        "or Ctrl-D ends the session. Standard input that is not a terminal is read as steps.\n"
        "Exit status 1 when a step failed.");
    console->add_option("FILE", options->file, "a scenario whose setup and steps come first")
        ->type_name("");
    console
        ->add_option("--record", options->record,
                     "write the session to OUT as a scenario that `tarvo-emu run` plays")
        ->type_name("OUT")
        ->check(WritableOutput());
    console->add_option("--pcapng", options->pcapng, kPcapngHelp)
        ->type_name("OUT")
        ->check(WritableOutput());
    return {console, [options] { return RunConsole(*options); }};
}

}  // namespace tarvo_emu
