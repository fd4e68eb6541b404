#include "scenario/step_check.h"

#include "scenario/payload_fields.h"

using android::base::Error;
using android::base::Result;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

Result<void> Compiles(bool given, const std::string& regex) {
    if (!given) return {};
    Result<std::regex> compiled = CompiledRegex(regex);
    if (!compiled.ok()) return compiled.error();
    return {};
}

}  // namespace

Result<std::regex> CompiledRegex(const std::string& regex) {
    try {
        return std::regex(regex, std::regex::ECMAScript);
    } catch (const std::regex_error& e) {
        return Error() << "bad regular expression \"" << regex << "\": " << e.what();
    }
}

Result<void> CheckGeneratedSend(const tarvo_scenario::GeneratedSend& send) {
    using google::protobuf::FieldDescriptor;
    if (send.has_block_size() && send.block_size() == 0) {
        return Error() << "block_size 0: a block holds at least one byte";
    }
    const google::protobuf::Message* payload = InnermostPayload(&send.message());
    Result<const FieldDescriptor*> offset =
        TransferField(*payload, "offset", FieldDescriptor::TYPE_UINT32);
    if (TransferField(*payload, "data", FieldDescriptor::TYPE_BYTES).ok()) {
        if (send.has_block_size() && !offset.ok()) return offset.error();
        return {};
    }
    if (!offset.ok() ||
        !TransferField(*payload, "max_data_size", FieldDescriptor::TYPE_UINT32).ok()) {
        return Error() << payload->GetDescriptor()->name()
                       << " has no data field to send, nor offset and max_data_size to read by";
    }
    if (!send.has_block_size()) return Error() << "a read train needs a block_size above 0";
    return {};
}

Result<void> StepCheck::KnownMark(const std::string& mark) const {
    if (marks_.count(mark) != 0) return {};
    return Error() << "no mark \"" << mark << "\" before this step";
}

Result<void> StepCheck::Check(const Step& step) {
    switch (step.action_case()) {
        case Step::kExpectLog:
            if (!step.expect_log().since_mark().empty()) {
                if (Result<void> known = KnownMark(step.expect_log().since_mark()); !known.ok()) {
                    return known;
                }
            }
            return Compiles(step.expect_log().has_text_regex(), step.expect_log().text_regex());
        case Step::kExpectNoLog:
            return Compiles(step.expect_no_log().has_text_regex(),
                            step.expect_no_log().text_regex());
        case Step::kExpectFile:
            return Compiles(step.expect_file().has_content_regex(),
                            step.expect_file().content_regex());
        case Step::kExpectUsage:
            return KnownMark(step.expect_usage().mark());
        case Step::kMark:
            marks_.insert(step.mark());
            return {};
        case Step::kFault:
            if (step.fault() == tarvo_scenario::NO_FAULT) return Error() << "no fault named";
            return {};
        case Step::kSendGenerated:
            return CheckGeneratedSend(step.send_generated());
        case Step::kRepeat:
            for (const Step& repeated : step.repeat().step()) {
                if (Result<void> checked = Check(repeated); !checked.ok()) return checked;
            }
            return {};
        default:
            return {};
    }
}

}  // namespace tarvo_emu
