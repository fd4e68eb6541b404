#include "cli/typed_step.h"

#include <google/protobuf/descriptor.h>

#include <algorithm>
#include <map>
#include <optional>

#include <android-base/no_destructor.h>
#include <android-base/strings.h>
#include <fmt/format.h>

#include "device/device_facts.h"
#include "scenario/nearest_names.h"
#include "scenario/scenario_loader.h"

using android::base::Result;
using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

// A name is near another when it takes at most this many edits, or one per this many letters.
constexpr size_t kMinNearEdits = 2;
constexpr size_t kNearEditsPerLetters = 3;
// How many of the nearest kinds an error lists.
constexpr size_t kMaxNearNames = 3;

using Tokenizer = google::protobuf::io::Tokenizer;

bool Opens(const Tokenizer::Token& token) {
    return token.type == Tokenizer::TYPE_SYMBOL && (token.text == "{" || token.text == "<");
}

bool Closes(const Tokenizer::Token& token) {
    return token.type == Tokenizer::TYPE_SYMBOL && (token.text == "}" || token.text == ">");
}

// A field of `descriptor` by name, or null.
const FieldDescriptor* FieldOf(const Descriptor* descriptor, const std::string& name) {
    return descriptor == nullptr ? nullptr : descriptor->FindFieldByName(name);
}

// `step { ... }` lines pasted from a scenario; none when the text is not that, or holds setup.
std::optional<std::vector<Step>> PastedSteps(const std::string& text) {
    tarvo_scenario::Scenario pasted;
    if (!ParseText(text, "", &pasted).ok() || pasted.step_size() == 0) return std::nullopt;
    std::vector<Step> steps(pasted.step().begin(), pasted.step().end());
    pasted.clear_step();
    if (pasted.ByteSizeLong() > 0) return std::nullopt;
    return steps;
}

constexpr size_t kExampleColumn = 24;

const std::map<std::string, std::string>& Examples() {
    static const android::base::NoDestructor<std::map<std::string, std::string>> kExamples({
        {"modem_state", "modem_state: 4"},
        {"send",
         "send { type: REQUEST message_id: 7 token: 1 property { read_request { name: "
         "\"ro.build.type\" } } }"},
        {"expect", "expect { message { type: RESPONSE token: 1 result: RESULT_SUCCESS } }"},
        {"expect_silence_ms", "expect_silence_ms: 500"},
        {"expect_log", "expect_log { priority: INFO text: \"Modem state changed from 0 to 4\" }"},
        {"expect_no_log", "expect_no_log { priority: ERROR text_regex: \"Failed.*\" }"},
        {"expect_file",
         fmt::format("expect_file {{ path: \"{}\" content_regex: \"[0-9]+\" timeout_ms: 5000 }}",
                     kPidFile)},
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
         fmt::format("write_file {{ path: \"{}\" content: \"300\\n\" }}", kGnssBlankingFile)},
        {"remove_file", fmt::format("remove_file: \"{}\"", kGnssBlankingFile)},
        {"send_generated",
         "send_generated { message { type: REQUEST message_id: 9 token: 1 file { write_request "
         "{ file_name: \"big\" file_dir: FILE_DIR_MDS total_size: 1048576 } } } data { size: "
         "1048576 } block_size: 65536 }"},
        {"expect_thermal_writes", "expect_thermal_writes { write: \"1 45000\" }"},
        {"signal_daemon", "signal_daemon: 10"},
        {"expect_all_taken", "expect_all_taken: true"},
        {"remount", "remount { path: \"/data\" full: true }"},
        {"set_property", "set_property { name: \"persist.vendor.radio.demo\" value: \"1\" }"},
        {"exit_status", "client: \"-m\" exit_status: 0"},
        {"note", "note: \"shown in the transcript\" modem_state: 0"},
    });
    return *kExamples;
}

// The names of an enum's values, in their order.
std::vector<std::string> ValuesOf(const google::protobuf::EnumDescriptor* type) {
    std::vector<std::string> values;
    for (int i = 0; i < type->value_count(); ++i) values.push_back(type->value(i)->name());
    return values;
}

// A field's type as the help shows it: the scalar's type, the message's name, or the enum's
// values.
std::string TypeOf(const FieldDescriptor* field) {
    std::string type = field->is_repeated() ? "repeated " : "";
    if (field->message_type() != nullptr) return type + field->message_type()->name() + " { ... }";
    if (field->enum_type() == nullptr) return type + field->type_name();
    return type + "one of " + android::base::Join(ValuesOf(field->enum_type()), ", ");
}

// `name` padded to the column where the help's second column starts.
std::string Padded(const std::string& name) {
    return "  " + name +
           std::string(kExampleColumn - std::min(name.size(), kExampleColumn - 1), ' ');
}

// "NAME is no step", with the nearest step kinds.
std::string NoStepKind(const std::string& name) {
    std::vector<std::string> kinds;
    for (int i = 0; i < Step::descriptor()->field_count(); ++i) {
        kinds.push_back(Step::descriptor()->field(i)->name());
    }
    const std::vector<std::string> near =
        NearestNames(name, kinds, kMaxNearNames,
                     std::max<size_t>(kMinNearEdits, name.size() / kNearEditsPerLetters));
    return fmt::format(
        "\"{}\" is no step{} (help lists them)", name,
        near.empty() ? "" : "; did you mean " + android::base::Join(near, " or ") + "?");
}

}  // namespace

int OpenBraces(const std::string& text) {
    int open = 0;
    TextTokens tokens(text);
    while (const Tokenizer::Token* token = tokens.Next()) {
        if (Opens(*token)) ++open;
        if (Closes(*token)) --open;
    }
    return open;
}

std::vector<std::string> CompletionsOf(const std::string& text, const std::string& word) {
    // Walks the text's tokens, keeping the message that each open brace opened.
    std::vector<const Descriptor*> open = {Step::descriptor()};
    const FieldDescriptor* field = nullptr;  // the latest field name
    bool after_colon = false;
    TextTokens tokens(text);
    while (const Tokenizer::Token* token = tokens.Next()) {
        if (token->type == Tokenizer::TYPE_IDENTIFIER) {
            // A field's name, or the value after its colon.
            field = after_colon ? nullptr : FieldOf(open.back(), token->text);
            after_colon = false;
        } else if (Opens(*token)) {
            open.push_back(field != nullptr ? field->message_type() : nullptr);
            field = nullptr;
            after_colon = false;
        } else if (Closes(*token)) {
            if (open.size() > 1) open.pop_back();
            field = nullptr;
        } else if (token->type == Tokenizer::TYPE_SYMBOL && token->text == ":") {
            after_colon = field != nullptr;
        } else {
            after_colon = false;
        }
    }
    // What a name completes to: a field's name goes on with what the text format wants after it.
    std::vector<std::string> names;
    if (after_colon) {
        if (field->enum_type() != nullptr) {
            names = ValuesOf(field->enum_type());
        } else if (field->type() == FieldDescriptor::TYPE_BOOL) {
            names = {"true", "false"};
        }
    } else if (open.back() != nullptr) {
        for (int i = 0; i < open.back()->field_count(); ++i) {
            const FieldDescriptor* named = open.back()->field(i);
            names.push_back(named->name() + (named->message_type() != nullptr ? " { " : ": "));
        }
        if (open.size() == 1) names.insert(names.end(), {"help", "quit"});
    }
    std::vector<std::string> matches;
    for (const std::string& name : names) {
        if (android::base::StartsWith(name, word)) matches.push_back(name);
    }
    return matches;
}

Result<std::vector<Step>> ParseSteps(const std::string& text, StepCheck* check) {
    Step step;
    Result<void> parsed = ParseText(text, "", &step);
    std::optional<std::vector<Step>> steps;
    if (parsed.ok()) {
        // A comment alone is no step.
        steps.emplace();
        if (step.ByteSizeLong() > 0) steps->push_back(step);
    } else {
        steps = PastedSteps(text);
    }
    if (!steps) {
        TextTokens tokens(text);
        const Tokenizer::Token* first = tokens.Next();
        if (first != nullptr && first->type == Tokenizer::TYPE_IDENTIFIER &&
            FieldOf(Step::descriptor(), first->text) == nullptr && first->text != "step") {
            return android::base::Error() << NoStepKind(first->text);
        }
        return android::base::Error()
               << "not a step (help lists them): " << android::base::Trim(parsed.error().message());
    }
    for (const Step& typed : *steps) {
        if (Result<void> checked = check->Check(typed); !checked.ok()) return checked.error();
    }
    return *steps;
}

std::string StepExample(const std::string& kind) {
    const auto it = Examples().find(kind);
    return it == Examples().end() ? std::string() : it->second;
}

std::string StepHelp(const std::string& kind) {
    const FieldDescriptor* field = tarvo_scenario::Step::descriptor()->FindFieldByName(kind);
    if (field == nullptr) return NoStepKind(kind) + "\n";
    std::string help = kind + ": " + TypeOf(field) + "\n";
    if (const Descriptor* message = field->message_type(); message != nullptr) {
        help += "Its fields:\n";
        for (int i = 0; i < message->field_count(); ++i) {
            help += Padded(message->field(i)->name()) + TypeOf(message->field(i)) + "\n";
        }
    }
    const std::string example = StepExample(kind);
    if (!example.empty()) help += "For example:\n  " + example + "\n";
    return help;
}

std::string ConsoleHelp() {
    const Descriptor* step = tarvo_scenario::Step::descriptor();
    std::string help =
        "Steps, one per line (a line that leaves a brace open goes on on the next):\n";
    std::string common;
    for (int i = 0; i < step->field_count(); ++i) {
        const FieldDescriptor* field = step->field(i);
        std::string example = StepExample(field->name());
        if (example.empty())
            example = field->name() + (field->message_type() ? " { ... }" : ": ...");
        std::string& list = field->real_containing_oneof() != nullptr ? help : common;
        list += Padded(field->name()) + example + "\n";
    }
    return help + "Any step may also have:\n" + common +
           "Commands: help, help STEP (its fields), quit (or Ctrl-D). Ctrl-C cancels the line "
           "being\n"
           "typed or the step being played. Tab completes step and field names and enum values.\n"
           "Every field and its meaning: emulator/scenario/scenario.proto.\n";
}

}  // namespace tarvo_emu
