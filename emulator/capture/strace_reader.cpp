#include "capture/strace_reader.h"

#include <signal.h>
#include <string.h>

#include <algorithm>
#include <utility>
#include <vector>

#include <android-base/file.h>
#include <android-base/parseint.h>
#include <android-base/strings.h>
#include <fmt/format.h>

#include "capture/strace_string.h"
#include "device/device_facts.h"

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;

namespace tarvo_emu {

namespace {

constexpr char kUnfinished[] = "<unfinished ...>";
constexpr char kResumed[] = " resumed>";
constexpr char kCutAdvice[] = "capture with -s 70000";
constexpr double kSecondsPerDay = 24 * 60 * 60;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The boot node's status ioctl, as strace names it or as a number.
bool IsStatusIoctl(std::string_view arg) {
    static const std::string kNumber = fmt::format("{:#x}", kStatusIoctl);
    static const std::string kName =
        fmt::format("_IOC(_IOC_NONE, {:#x}, {:#x}, 0)", kStatusIoctl >> 8, kStatusIoctl & 0xff);
    return arg == kNumber || arg == kName;
}

// The next space-separated word of `*text`, taken off it.
std::string_view TakeWord(std::string_view* text) {
    *text = TrimView(*text);
    const size_t end = std::min(text->find(' '), text->size());
    std::string_view word = text->substr(0, end);
    text->remove_prefix(end);
    *text = TrimView(*text);
    return word;
}

// The seconds of a time stamp of -t, -tt (HH:MM:SS[.us]) or -ttt (seconds[.us]); none for a word
// that is no time stamp.
std::optional<double> Seconds(std::string_view word) {
    if (word.empty() || !IsDigit(word[0]) ||
        word.find_first_not_of("0123456789:.") != std::string_view::npos) {
        return std::nullopt;
    }
    double seconds = 0;
    for (const std::string& part : android::base::Split(std::string(word), ":")) {
        seconds = seconds * 60 + strtod(part.c_str(), nullptr);
    }
    return seconds;
}

StraceReader::Node NodeOfPath(const std::string& path) {
    if (android::base::EndsWith(path, std::string("/") + kIpcNode)) return StraceReader::Node::kIpc;
    if (android::base::EndsWith(path, std::string("/") + kBootNode))
        return StraceReader::Node::kBoot;
    return StraceReader::Node::kOther;
}

int SignalNumber(std::string_view name) {
    if (!android::base::StartsWith(name, "SIG")) return 0;
    name.remove_prefix(3);
    for (int signal = 1; signal < NSIG; ++signal) {
        const char* abbreviation = sigabbrev_np(signal);
        if (abbreviation != nullptr && name == abbreviation) return signal;
    }
    return 0;
}

}  // namespace

Result<void> StraceReader::Line(std::string_view line) {
    ++line_;
    std::string_view rest = TrimView(line);
    if (cut_) return DumpLine(rest);
    // The dump of a buffer that strace showed whole.
    if (std::string ignored; AppendStraceDumpRow(rest, &ignored)) return {};
    if (rest.empty() || android::base::StartsWith(rest, "strace: ")) return {};
    int pid = 0;
    if (android::base::StartsWith(rest, "[pid ")) {
        const size_t close = rest.find(']');
        if (close == std::string_view::npos ||
            !android::base::ParseInt(std::string(TrimView(rest.substr(5, close - 5))), &pid)) {
            return Error() << "line " << line_ << ": a [pid N] prefix without its number";
        }
        rest = TrimView(rest.substr(close + 1));
    } else {
        std::string_view copy = rest;
        const std::string_view word = TakeWord(&copy);
        if (!word.empty() && word.find_first_not_of("0123456789") == std::string_view::npos &&
            !copy.empty() && copy.find_first_not_of("0123456789:.") != 0) {
            // `-o` with -f: the pid first.
            android::base::ParseInt(std::string(word), &pid);
            rest = copy;
        }
    }
    std::string_view after_time = rest;
    const std::optional<double> time = Time(TakeWord(&after_time));
    if (time) rest = after_time;

    if (android::base::StartsWith(rest, "--- ")) {
        rest.remove_prefix(4);
        const std::string_view name = TakeWord(&rest);
        Add(CaptureEvent::Kind::kSignal, time, {}, std::string(name), SignalNumber(name));
        return {};
    }
    if (android::base::StartsWith(rest, "+++ ")) {
        std::string text(TrimView(rest.substr(4, rest.rfind("+++") - 4)));
        if (text != last_note_ && android::base::StartsWith(text, "killed by")) {
            Add(CaptureEvent::Kind::kNote, time, {}, "tarvo " + text);
        }
        last_note_ = text;
        return {};
    }
    if (android::base::StartsWith(rest, "<... ")) {
        const size_t resumed = rest.find(kResumed);
        if (resumed == std::string_view::npos) {
            return Error() << "line " << line_ << ": a resumed call without \"resumed>\"";
        }
        const std::string_view name = rest.substr(5, resumed - 5);
        std::string_view tail = rest.substr(resumed + strlen(kResumed));
        // strace before 5.0 puts a space after "resumed>".
        if (android::base::StartsWith(tail, " ")) tail.remove_prefix(1);
        auto pending = pending_.find(pid);
        if (pending == pending_.end() || !android::base::StartsWith(pending->second.head, name)) {
            // The last thread left loses its prefix: the one call of that name still open.
            pending = pending_.end();
            for (auto it = pending_.begin(); it != pending_.end(); ++it) {
                if (android::base::StartsWith(it->second.head, std::string(name) + "(")) {
                    pending = it;
                }
            }
        }
        // A call begun before strace attached is not in the capture.
        if (pending == pending_.end()) return {};
        const std::string call = pending->second.head + " " + std::string(tail);
        // A message leaves with its write's start and arrives with its read's end.
        const std::optional<double> at =
            android::base::StartsWith(call, "write(") ? pending->second.time : time;
        pending_.erase(pending);
        return Call(call, at);
    }
    if (android::base::EndsWith(rest, kUnfinished)) {
        rest.remove_suffix(strlen(kUnfinished));
        pending_[pid] = {std::string(TrimView(rest)), time};
        return {};
    }
    return Call(rest, time);
}

std::optional<double> StraceReader::Time(std::string_view stamp) {
    std::optional<double> of_stamp = Seconds(stamp);
    if (!of_stamp) return std::nullopt;
    double seconds = *of_stamp;
    if (stamp.find(':') == std::string_view::npos) {
        if (!first_time_) capture_.epoch = seconds;
    } else {
        seconds += day_offset_;
        // Times of the day go back once the capture passes midnight.
        if (last_time_ && seconds + kSecondsPerDay / 2 < *last_time_) {
            day_offset_ += kSecondsPerDay;
            seconds += kSecondsPerDay;
        }
    }
    last_time_ = seconds;
    if (!first_time_) first_time_ = seconds;
    return seconds - *first_time_;
}

Result<int> StraceReader::Descriptor(std::string_view arg) {
    const size_t open = arg.find('<');
    int fd = 0;
    if (!android::base::ParseInt(std::string(arg.substr(0, open)), &fd)) {
        return Error() << "line " << line_ << ": no descriptor in \"" << arg << "\"";
    }
    if (open == std::string_view::npos || arg.back() != '>') return fd;
    // The `-y` path, escaped as strings are.
    std::string quoted = "\"" + std::string(arg.substr(open + 1, arg.size() - open - 2)) + "\"";
    size_t end = 0;
    Result<std::string> path = UnquoteStraceString(quoted, &end);
    if (!path.ok()) return Error() << "line " << line_ << ": " << path.error().message();
    nodes_[fd] = NodeOfPath(*path);
    return fd;
}

StraceReader::Node StraceReader::NodeOf(int fd) const {
    if (options_.ipc_fd == fd) return Node::kIpc;
    const auto it = nodes_.find(fd);
    return it == nodes_.end() ? Node::kOther : it->second;
}

Result<void> StraceReader::DumpLine(std::string_view line) {
    const bool row = AppendStraceDumpRow(line, &cut_->bytes);
    if (row && cut_->bytes.size() < cut_->size) return {};
    Cut cut = std::move(*std::exchange(cut_, std::nullopt));
    // No dump follows the cut buffer: the cut stands.
    if (!row) return Error() << cut.error;
    dumped_ = std::move(cut.bytes);
    const Result<void> called = Call(cut.call, cut.time);
    dumped_.reset();
    return called;
}

Result<void> StraceReader::Call(std::string_view text, std::optional<double> time) {
    call_ = text;
    const size_t open = text.find('(');
    if (open == std::string_view::npos) {
        return Error() << "line " << line_ << ": not a line of strace's output: \""
                       << text.substr(0, 60) << "\"";
    }
    const std::string_view name = text.substr(0, open);
    if (name != "read" && name != "write" && name != "ioctl" && name != "openat" &&
        name != "open" && name != "close") {
        return {};
    }
    std::vector<std::string_view> args;
    size_t close = 0;
    if (!SplitStraceArguments(text.substr(open + 1), &args, &close)) {
        return Error() << "line " << line_ << ": the arguments of " << name << " do not close";
    }
    std::string_view result = TrimView(text.substr(open + 1 + close + 1));
    if (!android::base::StartsWith(result, "= ")) {
        return Error() << "line " << line_ << ": " << name << " without its result";
    }
    result.remove_prefix(2);
    // An interrupted call: the kernel restarts it, and the restart is the call that counts.
    if (android::base::StartsWith(result, "?")) return {};
    if (args.empty()) return Error() << "line " << line_ << ": " << name << " without arguments";

    if (name == "open" || name == "openat") {
        Result<int> fd = Descriptor(TakeWord(&result));
        if (!fd.ok() || *fd < 0) return {};
        size_t end = 0;
        Result<std::string> path = UnquoteStraceString(args[name == "open" ? 0 : 1], &end);
        if (!path.ok()) return {};
        if (nodes_[*fd] == Node::kOther) nodes_[*fd] = NodeOfPath(*path);
        return {};
    }
    Result<int> fd = Descriptor(args[0]);
    if (!fd.ok()) return fd.error();
    if (name == "close") {
        nodes_.erase(*fd);
        return {};
    }
    if (name == "ioctl") {
        // `-X verbose` gives the number, then the name in a comment.
        if (args.size() < 2 || !IsStatusIoctl(TrimView(args[1].substr(0, args[1].find("/*"))))) {
            return {};
        }
        if (NodeOf(*fd) == Node::kOther) nodes_[*fd] = Node::kBoot;
        int state = 0;
        if (!android::base::ParseInt(std::string(TakeWord(&result)), &state)) return {};
        if (state < 0) {
            Add(CaptureEvent::Kind::kNote, time, {},
                "the status ioctl failed: " + std::string(result));
            return {};
        }
        if (state_ != state) Add(CaptureEvent::Kind::kModemState, time, {}, {}, state);
        state_ = state;
        return {};
    }
    if (NodeOf(*fd) != Node::kIpc) {
        if (NodeOf(*fd) == Node::kOther && nodes_.count(*fd) == 0) unknown_.insert(*fd);
        return {};
    }
    return Transfer(name, *fd, args, result, time);
}

Result<void> StraceReader::Transfer(std::string_view name, int fd,
                                    const std::vector<std::string_view>& args,
                                    std::string_view result, std::optional<double> time) {
    const bool write = name == "write";
    int64_t done = 0;
    const std::string_view number = TakeWord(&result);
    if (!android::base::ParseInt(std::string(number), &done)) {
        return Error() << "line " << line_ << ": " << name << " returned \"" << number << "\"";
    }
    if (done < 0) {
        if (write) partial_.erase(fd);
        Add(CaptureEvent::Kind::kFault, time, {}, std::string(TakeWord(&result)), 0,
            write ? Fault::kWriteError : Fault::kReadError);
        return {};
    }
    if (!write && done == 0) {
        Add(CaptureEvent::Kind::kFault, time, {}, {}, 0, Fault::kEndOfFile);
        return {};
    }
    // What the call was given: a read's result is all it took.
    int64_t count = done;
    if (args.size() < 2 ||
        (write && (args.size() < 3 || !android::base::ParseInt(std::string(args[2]), &count)))) {
        return Error() << "line " << line_ << ": " << name << " without its buffer"
                       << (write ? " and count" : "");
    }
    size_t end = 0;
    Result<std::string> bytes =
        dumped_ ? Result<std::string>(*dumped_) : UnquoteStraceString(args[1], &end);
    if (!bytes.ok()) return Error() << "line " << line_ << ": " << bytes.error().message();
    if (!dumped_ && (end < args[1].size() || bytes->size() < static_cast<size_t>(done))) {
        // The hex dump that may follow holds every byte.
        cut_ = Cut{std::string(call_),
                   time,
                   static_cast<size_t>(done),
                   {},
                   fmt::format("line {}: strace's -s cut the {}'s {} bytes after {}; {}", line_,
                               name, count, bytes->size(), kCutAdvice)};
        return {};
    }
    if (!write) {
        Add(CaptureEvent::Kind::kToDaemon, time, std::move(*bytes));
        return {};
    }
    const auto [partial, first] = partial_.try_emplace(fd);
    if (first) partial->second.time = time;
    partial->second.bytes.append(*bytes, 0, done);
    // A write that took less than it was given is followed by one with the rest.
    if (done < count) return {};
    Add(CaptureEvent::Kind::kFromDaemon, partial->second.time, std::move(partial->second.bytes));
    partial_.erase(partial);
    return {};
}

void StraceReader::Add(CaptureEvent::Kind kind, std::optional<double> time, std::string bytes,
                       std::string text, int state, Fault fault) {
    CaptureEvent& event = capture_.events.emplace_back();
    event.kind = kind;
    event.time = time;
    event.bytes = std::move(bytes);
    event.text = std::move(text);
    event.state = state;
    event.fault = fault;
    event.line = line_;
    if (sink_) sink_(event, time && capture_.epoch ? *capture_.epoch + *time : UnixNow());
}

Result<Capture> StraceReader::Finish() {
    if (cut_) return Error() << cut_->error;
    for (const auto& [fd, partial] : partial_) {
        Add(CaptureEvent::Kind::kNote, partial.time, {},
            fmt::format("tarvo > modem: a message cut off after {} bytes", partial.bytes.size()));
    }
    partial_.clear();
    const bool any_ipc = options_.ipc_fd.has_value() ||
                         std::any_of(nodes_.begin(), nodes_.end(),
                                     [](const auto& node) { return node.second == Node::kIpc; });
    if (!any_ipc && !unknown_.empty()) {
        return Error() << "no descriptor is known as /dev/oem_ipc1 (reads and writes on "
                       << android::base::Join(unknown_, ", ")
                       << "): capture with -y, or give --fd N";
    }
    return std::move(capture_);
}

Result<std::string> MergeStraceFiles(const std::vector<std::string>& paths) {
    // Each call's line with the lines that belong to it (its dump's rows), at its time.
    std::vector<std::pair<double, std::string>> blocks;
    for (const std::string& path : paths) {
        int pid = 0;
        const size_t dot = path.rfind('.');
        if (dot == std::string::npos || !android::base::ParseInt(path.substr(dot + 1), &pid)) {
            return Error() << path << " is not named PREFIX.PID, as the files of strace -ff -o "
                           << "PREFIX are; give one capture, or all of one -ff capture";
        }
        std::string text;
        if (!android::base::ReadFileToString(path, &text)) {
            return ErrnoError() << "cannot read " << path;
        }
        const std::string prefix = std::to_string(pid) + " ";
        size_t line_number = 0;
        for (const std::string& line : android::base::Split(text, "\n")) {
            ++line_number;
            if (android::base::Trim(line).empty()) continue;
            const std::optional<double> stamp = Seconds(line.substr(0, line.find(' ')));
            if (stamp) {
                blocks.emplace_back(*stamp, prefix + line + "\n");
            } else if (!blocks.empty() && android::base::StartsWith(blocks.back().second, prefix)) {
                blocks.back().second += line + "\n";
            } else {
                return Error() << path << " line " << line_number << ": no time stamp, by which "
                               << "the files of strace -ff merge; capture with -ttt";
            }
        }
    }
    // Each file is in its own order already; equal times keep it.
    std::stable_sort(blocks.begin(), blocks.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::string merged;
    for (const auto& [time, text] : blocks) merged += text;
    return merged;
}

}  // namespace tarvo_emu
