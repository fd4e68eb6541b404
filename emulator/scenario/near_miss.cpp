#include "scenario/near_miss.h"

#include <algorithm>

#include <google/protobuf/stubs/strutil.h>
#include <google/protobuf/util/message_differencer.h>

#include <fmt/format.h>

#include <android-base/strings.h>

#include "peers/transcript.h"
#include "scenario/nearest_names.h"
#include "scenario/scenario.pb.h"

namespace tarvo_emu {

namespace {

// How many of the nearest candidates a failure shows.
constexpr size_t kNearestShown = 3;
// Longer lines of a difference report are cut: a 64 KiB data field is not read whole.
constexpr size_t kLongestReportLine = 300;
// Texts longer than this are compared by their start only.
constexpr size_t kLongestCompared = 512;
// Log lines looked at for the nearest: the latest ones.
constexpr size_t kLogLinesCompared = 2000;
// Bytes of a file shown when an expectation on it failed.
constexpr size_t kFileBytesShown = 256;
// Bytes shown before a first difference, and as many from it on.
constexpr size_t kBytesAroundDifference = 16;

// Each line of `report` indented, long lines cut.
std::string Indented(const std::string& report, const std::string& indent) {
    std::string indented;
    for (std::string line : android::base::Split(report, "\n")) {
        if (line.empty()) continue;
        if (line.size() > kLongestReportLine) line = line.substr(0, kLongestReportLine) + "...";
        indented += "\n" + indent + line;
    }
    return indented;
}

// Field by field, how `actual` differs from what `expected` sets; the payloads compared whole
// when `exact_payload`.
std::string DifferenceReport(const tarvo_message::TarvoMessage& expected,
                             const tarvo_message::TarvoMessage& actual, bool exact_payload) {
    using google::protobuf::util::MessageDifferencer;
    const auto differences = [](const tarvo_message::TarvoMessage& a,
                                const tarvo_message::TarvoMessage& b, bool partial) {
        MessageDifferencer differencer;
        if (partial) differencer.set_scope(MessageDifferencer::PARTIAL);
        std::string report;
        differencer.ReportDifferencesToString(&report);
        differencer.Compare(a, b);
        return report;
    };
    if (!exact_payload) return differences(expected, actual, true);
    tarvo_message::TarvoMessage expected_header = expected;
    tarvo_message::TarvoMessage actual_header = actual;
    expected_header.clear_payload();
    actual_header.clear_payload();
    return differences(expected_header, actual_header, true) +
           differences(PayloadOnly(expected), PayloadOnly(actual), false);
}

// Bytes to change to turn one text into the other, over their first bytes.
size_t PrefixEditDistance(const std::string& a, const std::string& b) {
    return EditDistance(std::string_view(a).substr(0, kLongestCompared),
                        std::string_view(b).substr(0, kLongestCompared));
}

std::string PriorityName(int priority) {
    return tarvo_scenario::Priority_IsValid(priority)
               ? tarvo_scenario::Priority_Name(static_cast<tarvo_scenario::Priority>(priority))
               : std::to_string(priority);
}

}  // namespace

tarvo_message::TarvoMessage PayloadOnly(const tarvo_message::TarvoMessage& message) {
    tarvo_message::TarvoMessage payload = message;
    payload.clear_type();
    payload.clear_message_id();
    payload.clear_token();
    payload.clear_result();
    return payload;
}

std::string NearestMessages(const std::vector<tarvo_message::TarvoMessage>& untaken,
                            const tarvo_message::TarvoMessage& expected, bool exact_payload) {
    if (untaken.empty()) return "; every message of the daemon was taken by an earlier step";
    std::vector<std::pair<size_t, std::string>> nearest;
    for (const tarvo_message::TarvoMessage& message : untaken) {
        const std::string report = DifferenceReport(expected, message, exact_payload);
        nearest.emplace_back(std::count(report.begin(), report.end(), '\n'),
                             "\n  { " + ShortText(message) + " }" + Indented(report, "    "));
    }
    std::stable_sort(nearest.begin(), nearest.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::string shown =
        fmt::format("; nearest of the {} messages that no step took:", untaken.size());
    for (size_t i = 0; i < std::min(kNearestShown, nearest.size()); ++i) {
        shown += nearest[i].second;
    }
    return shown;
}

std::string NearestLogLines(std::vector<LogLine> untaken, int priority, const std::string& tag,
                            const std::string& text) {
    if (untaken.empty()) return "; every log line was taken by an earlier step";
    const size_t count = untaken.size();
    if (untaken.size() > kLogLinesCompared) {
        untaken.erase(untaken.begin(), untaken.end() - kLogLinesCompared);
    }
    // Another tag or priority counts as a few bytes of text more.
    constexpr size_t kOtherTag = 8;
    constexpr size_t kOtherPriority = 4;
    std::vector<std::pair<size_t, const LogLine*>> nearest;
    for (const LogLine& line : untaken) {
        size_t distance = PrefixEditDistance(text, line.text);
        if (line.tag != tag) distance += kOtherTag;
        if (priority != 0 && line.priority != priority) distance += kOtherPriority;
        nearest.emplace_back(distance, &line);
    }
    std::stable_sort(nearest.begin(), nearest.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::string shown = fmt::format("; nearest of the {} log lines that no step took:", count);
    for (size_t i = 0; i < std::min(kNearestShown, nearest.size()); ++i) {
        const LogLine& line = *nearest[i].second;
        shown += "\n  " + std::string(1, PriorityLetter(line.priority)) + " " + line.tag + ": " +
                 PrintableText(line.text);
        std::vector<std::string> differences;
        if (line.tag != tag) differences.push_back("tag " + line.tag + ", not " + tag);
        if (priority != 0 && line.priority != priority) {
            differences.push_back("priority " + PriorityName(line.priority) + ", not " +
                                  PriorityName(priority));
        }
        if (line.text != text) {
            const auto [at, _] =
                std::mismatch(line.text.begin(), line.text.end(), text.begin(), text.end());
            differences.push_back(fmt::format("text differs from byte {}", at - line.text.begin()));
        }
        shown += "\n    " + android::base::Join(differences, "; ");
    }
    return shown;
}

std::string FirstDifference(const std::string& actual, const std::string& expected, uint64_t base) {
    const auto [at, _] =
        std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
    const size_t offset = at - actual.begin();
    const std::string sizes =
        actual.size() == expected.size()
            ? fmt::format("{} bytes on both sides", actual.size())
            : fmt::format("{} bytes here, {} expected", actual.size(), expected.size());
    const size_t from = offset - std::min(offset, kBytesAroundDifference);
    const auto around = [&](const std::string& bytes) {
        return QuotedBytes(bytes.substr(std::min(from, bytes.size()), 2 * kBytesAroundDifference));
    };
    const bool differs = offset < actual.size() && offset < expected.size();
    return fmt::format("{} byte {} ({}); from byte {}: {} here, {} expected",
                       differs ? "first difference at" : "alike up to", base + offset, sizes,
                       base + from, around(actual), around(expected));
}

std::string Holdings(const std::string& content, std::optional<mode_t> mode) {
    std::string shown = google::protobuf::CEscape(content.substr(0, kFileBytesShown));
    if (content.size() > kFileBytesShown) shown += "...";
    return fmt::format("the file holds {} bytes, mode 0{:o}: \"", content.size(),
                       mode.value_or(0)) +
           shown + "\"";
}

}  // namespace tarvo_emu
