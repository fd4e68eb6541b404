#include "cli/step_examples.h"

#include <algorithm>
#include <map>

#include <android-base/no_destructor.h>
#include <android-base/strings.h>
#include <fmt/format.h>
#include <google/protobuf/descriptor.h>

#include "device/device_facts.h"
#include "scenario/scenario.pb.h"

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;

namespace tarvo_emu {

namespace {

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
        {"set_property", "set_property { name: \"persist.vendor.radio.demo\" value: \"1\" }"},
        {"remount", "remount { path: \"/data\" full: true }"},
        {"exit_status", "client: \"-m\" exit_status: 0"},
        {"note", "note: \"shown in the transcript\" modem_state: 0"},
    });
    return *kExamples;
}

// A field's type as the help shows it: the scalar's type, the message's name, or the enum's
// values.
std::string TypeOf(const FieldDescriptor* field) {
    std::string type = field->is_repeated() ? "repeated " : "";
    if (field->message_type() != nullptr) return type + field->message_type()->name() + " { ... }";
    if (field->enum_type() == nullptr) return type + field->type_name();
    std::vector<std::string> values;
    for (int i = 0; i < field->enum_type()->value_count(); ++i) {
        values.push_back(field->enum_type()->value(i)->name());
    }
    return type + "one of " + android::base::Join(values, ", ");
}

// `name` padded to the column where the help's second column starts.
std::string Padded(const std::string& name) {
    return "  " + name +
           std::string(kExampleColumn - std::min(name.size(), kExampleColumn - 1), ' ');
}

}  // namespace

std::string StepExample(const std::string& kind) {
    const auto it = Examples().find(kind);
    return it == Examples().end() ? std::string() : it->second;
}

std::string StepHelp(const std::string& kind) {
    const FieldDescriptor* field = tarvo_scenario::Step::descriptor()->FindFieldByName(kind);
    if (field == nullptr) return {};
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
