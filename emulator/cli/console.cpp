#include "cli/console.h"

#include <editline/readline.h>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <iostream>
#include <map>
#include <mutex>
#include <optional>
#include <streambuf>

#include <google/protobuf/descriptor.h>
#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/text_format.h>

#include <android-base/strings.h>
#include <android-base/unique_fd.h>

#include "process/signal_cleanup.h"
#include "scenario/scenario_player.h"
#include "scenario/scenario_recorder.h"

using android::base::Result;
using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

const std::map<std::string, std::string>& Examples() {
    static const auto* const kExamples = new std::map<std::string, std::string>{
        {"modem_state", "modem_state: 4"},
        {"send",
         "send { type: REQUEST message_id: 7 token: 1 property { read_request { name: "
         "\"ro.build.type\" } } }"},
        {"expect", "expect { message { type: RESPONSE token: 1 result: RESULT_SUCCESS } }"},
        {"expect_silence_ms", "expect_silence_ms: 500"},
        {"expect_log", "expect_log { priority: INFO text: \"Modem state changed from 0 to 4\" }"},
        {"expect_no_log", "expect_no_log { priority: ERROR text_regex: \"Failed.*\" }"},
        {"expect_file",
         "expect_file { path: \"/data/vendor/radio/tarvo_pid\" content_regex: \"[0-9]+\" "
         "timeout_ms: 5000 }"},
        {"expect_property", "expect_property { name: \"vendor.radio.demo\" value: \"on\" }"},
        {"auto_reply", "auto_reply { payload_case: 5 result: 1 delay_ms: 100 }"},
        {"client", "client: \"-m\""},
        {"sleep_ms", "sleep_ms: 100"},
        {"fault", "fault: END_OF_FILE"},
        {"expect_ril", "expect_ril { request: 227 data: \",\\001\" }"},
        {"ril_reply", "ril_reply { request: 227 error: 1 count: 1 }"},
        {"expect_ril_silence_ms", "expect_ril_silence_ms: 500"},
        {"expect_uplink", "expect_uplink { writes: 1 bytes: 10 timeout_ms: 20000 }"},
        {"send_raw", "send_raw: \"\\x08\\x01garbage\""},
        {"restart_daemon", "restart_daemon: true"},
        {"repeat", "repeat { times: 3 step { client: \"-m\" } step { sleep_ms: 100 } }"},
        {"mark", "mark: \"before\""},
        {"expect_usage", "expect_usage { mark: \"before\" threads_tolerance: 1 }"},
        {"write_file",
         "write_file { path: \"/data/vendor/radio/gnss_blanking.csv\" content: \"300\\n\" }"},
        {"remove_file", "remove_file: \"/data/vendor/radio/gnss_blanking.csv\""},
        {"send_generated",
         "send_generated { message { type: REQUEST message_id: 9 token: 1 file { write_request "
         "{ file_name: \"big\" file_dir: FILE_DIR_MDS total_size: 1048576 } } } data { size: "
         "1048576 } block_size: 65536 }"},
        {"expect_thermal_writes", "expect_thermal_writes { write: \"1 45000\" }"},
        {"signal_daemon", "signal_daemon: 10"},
        {"exit_status", "client: \"-m\" exit_status: 0"},
        {"note", "note: \"shown in the transcript\" modem_state: 0"},
    };
    return *kExamples;
}

// A field of `descriptor` by name, or null.
const FieldDescriptor* FieldOf(const Descriptor* descriptor, const std::string& name) {
    return descriptor == nullptr ? nullptr : descriptor->FindFieldByName(name);
}

// How many braces (or angle brackets) `text` leaves open, quoted strings and comments left out.
int OpenBraces(const std::string& text) {
    int open = 0;
    char quote = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (quote != 0) {
            if (c == '\\') {
                ++i;
            } else if (c == quote) {
                quote = 0;
            }
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == '#') {
            i = std::min(text.find('\n', i), text.size());
        } else if (c == '{' || c == '<') {
            ++open;
        } else if (c == '}' || c == '>') {
            --open;
        }
    }
    return open;
}

// Collects the parse errors of a typed step.
class ErrorCollector : public google::protobuf::io::ErrorCollector {
  public:
    void AddError(int, int column, const std::string& message) override {
        errors += "column " + std::to_string(column + 1) + ": " + message +
                  NearestNamesHint(message) + "; ";
    }
    std::string errors;
};

// A typed step, or `step { ... }` lines pasted from a scenario.
Result<std::vector<Step>> ParseSteps(const std::string& text) {
    google::protobuf::TextFormat::Parser parser;
    ErrorCollector errors;
    parser.RecordErrorsTo(&errors);
    Step step;
    if (parser.ParseFromString(text, &step)) {
        // A comment alone is no step.
        if (step.ByteSizeLong() == 0) return std::vector<Step>{};
        return std::vector<Step>{step};
    }
    Result<tarvo_scenario::Scenario> steps = ParseScenario(text, "");
    if (steps.ok() && steps->step_size() > 0) {
        tarvo_scenario::Scenario setup = *steps;
        setup.clear_step();
        if (setup.ByteSizeLong() == 0)
            return std::vector<Step>(steps->step().begin(), steps->step().end());
    }
    return android::base::Error() << "not a step (help lists them): " << errors.errors;
}

// Where the transcript and the console's own lines go. While a prompt waits for input, lines
// are held and the input loop shows them above the prompt, so that they do not land in the
// middle of the line being typed; otherwise they are written at once.
class LiveOutput : public std::streambuf {
  public:
    explicit LiveOutput(int wake_fd) : wake_fd_(wake_fd) {}

    // Whole lines, as one write.
    void Say(const std::string& text) {
        std::lock_guard<std::mutex> lock(mutex_);
        Emit(text);
    }
    void SetPrompting(bool prompting) {
        std::lock_guard<std::mutex> lock(mutex_);
        prompting_ = prompting;
        if (!prompting_) {
            for (const std::string& line : held_) Write(line);
            held_.clear();
        }
    }
    std::vector<std::string> TakeHeld() {
        std::lock_guard<std::mutex> lock(mutex_);
        return std::move(held_);
    }

  protected:
    int overflow(int c) override {
        if (c == traits_type::eof()) return 0;
        const char byte = static_cast<char>(c);
        xsputn(&byte, 1);
        return c;
    }
    std::streamsize xsputn(const char* bytes, std::streamsize size) override {
        std::lock_guard<std::mutex> lock(mutex_);
        partial_.append(bytes, static_cast<size_t>(size));
        const size_t end = partial_.rfind('\n');
        if (end != std::string::npos) {
            Emit(partial_.substr(0, end + 1));
            partial_.erase(0, end + 1);
        }
        return size;
    }

  private:
    void Emit(const std::string& lines) {
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
    static void Write(const std::string& lines) {
        fwrite(lines.data(), 1, lines.size(), stdout);
        fflush(stdout);
    }

    const int wake_fd_;
    std::mutex mutex_;
    bool prompting_ = false;
    std::vector<std::string> held_;
    std::string partial_;
};

// The step typed so far on earlier lines, for completion; a line given by the line editor.
std::string pending_text;
std::optional<std::string> typed_line;
bool input_ended = false;

// The names that complete the word under the cursor, handed to the line editor one at a time.
std::vector<std::string> completions;

char* NextCompletion(const char*, int state) {
    static size_t next = 0;
    if (state == 0) next = 0;
    return next < completions.size() ? strdup(completions[next++].c_str()) : nullptr;
}

char** Complete(const char* word, int start, int) {
    // Never the line editor's own completion of file names.
    rl_attempted_completion_over = 1;
    completions = CompletionsOf(pending_text + std::string(rl_line_buffer, start), word);
    if (completions.empty()) return nullptr;
    return rl_completion_matches(word, NextCompletion);
}

void OnLine(char* line) {
    if (line == nullptr) {
        input_ended = true;
        return;
    }
    if (*line != '\0') add_history(line);
    typed_line = line;
    free(line);
}

// Reads the lines of standard input as steps and plays them.
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
        }
        while (true) {
            const std::optional<std::string> line = terminal ? EditedLine() : PlainLine();
            // `quit` ends the session even in the middle of a step.
            if (!line || android::base::Trim(*line) == "quit") return;
            pending_text += *line + "\n";
            if (OpenBraces(pending_text) > 0) continue;
            const std::string text = android::base::Trim(pending_text);
            pending_text.clear();
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
        typed_line.reset();
        output_->SetPrompting(true);
        rl_callback_handler_install(pending_text.empty() ? "tarvo> " : "...> ", OnLine);
        while (!typed_line && !input_ended) {
            pollfd fds[] = {{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0},
                            {.fd = wake_fd_, .events = POLLIN, .revents = 0}};
            if (poll(fds, 2, -1) < 0) continue;
            if (fds[1].revents != 0) ShowHeld();
            if (fds[0].revents != 0) rl_callback_read_char();
        }
        rl_callback_handler_remove();
        output_->SetPrompting(false);
        if (input_ended) {
            output_->Say("\n");
            return std::nullopt;
        }
        return typed_line;
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

    ScenarioSession* session_;
    LiveOutput* output_;
    const int wake_fd_;
    int next_index_ = 0;
    bool failed_ = false;
};

}  // namespace

std::string StepExample(const std::string& kind) {
    const auto it = Examples().find(kind);
    return it == Examples().end() ? std::string() : it->second;
}

std::string ConsoleHelp() {
    const Descriptor* step = Step::descriptor();
    std::string help =
        "Steps, one per line (a line that leaves a brace open goes on on the next):\n";
    std::string common;
    for (int i = 0; i < step->field_count(); ++i) {
        const FieldDescriptor* field = step->field(i);
        std::string example = StepExample(field->name());
        if (example.empty())
            example = field->name() + (field->message_type() ? " { ... }" : ": ...");
        std::string& list = field->real_containing_oneof() != nullptr ? help : common;
        list += "  " + field->name() +
                std::string(24 - std::min<size_t>(field->name().size(), 23), ' ') + example + "\n";
    }
    return help + "Any step may also have:\n" + common +
           "Commands: help, quit (or Ctrl-D). Tab completes step and field names and enum values.\n"
           "Every field and its meaning: emulator/scenario/scenario.proto.\n";
}

std::vector<std::string> CompletionsOf(const std::string& text, const std::string& word) {
    // Walks the text's tokens, keeping the message that each open brace opened.
    std::vector<const Descriptor*> open = {Step::descriptor()};
    const FieldDescriptor* field = nullptr;  // the latest field name
    bool after_colon = false;
    for (size_t i = 0; i < text.size();) {
        const char c = text[i];
        if (isalpha(static_cast<unsigned char>(c)) || c == '_') {
            size_t end = i;
            while (end < text.size() &&
                   (isalnum(static_cast<unsigned char>(text[end])) || text[end] == '_')) {
                ++end;
            }
            if (after_colon) {
                after_colon = false;
                field = nullptr;
            } else {
                field = FieldOf(open.back(), text.substr(i, end - i));
            }
            i = end;
        } else if (c == '"' || c == '\'') {
            size_t end = i + 1;
            while (end < text.size() && text[end] != c) end += text[end] == '\\' ? 2 : 1;
            i = end + 1;
            after_colon = false;
        } else if (c == '{' || c == '<') {
            open.push_back(field != nullptr ? field->message_type() : nullptr);
            field = nullptr;
            after_colon = false;
            ++i;
        } else if (c == '}' || c == '>') {
            if (open.size() > 1) open.pop_back();
            field = nullptr;
            ++i;
        } else if (c == ':') {
            after_colon = field != nullptr;
            ++i;
        } else {
            if (!isspace(static_cast<unsigned char>(c))) after_colon = false;
            ++i;
        }
    }
    std::vector<std::string> names;
    if (after_colon) {
        if (field->enum_type() != nullptr) {
            for (int i = 0; i < field->enum_type()->value_count(); ++i) {
                names.push_back(field->enum_type()->value(i)->name());
            }
        } else if (field->type() == FieldDescriptor::TYPE_BOOL) {
            names = {"true", "false"};
        }
    } else if (open.back() != nullptr) {
        for (int i = 0; i < open.back()->field_count(); ++i) {
            names.push_back(open.back()->field(i)->name());
        }
        if (open.size() == 1) names.insert(names.end(), {"help", "quit"});
    }
    std::vector<std::string> matches;
    for (const std::string& name : names) {
        if (android::base::StartsWith(name, word)) matches.push_back(name);
    }
    return matches;
}

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
        rl_attempted_completion_function = Complete;
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
