#include "capture/strace_reader.h"

#include <signal.h>
#include <string.h>

#include <vector>

#include <android-base/parseint.h>
#include <android-base/strings.h>
#include <fmt/format.h>

#include "capture/strace_string.h"
#include "device/device_facts.h"

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

std::string_view TrimView(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) {
        text.remove_suffix(1);
    }
    return text;
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

// Where the quoted string starting at `at` ends (after the closing quote), or npos. A quote
// closes the string unless an odd run of backslashes escapes it; strace's buffers are long,
// so the search goes by quotes rather than by characters.
size_t SkipQuoted(std::string_view text, size_t at) {
    for (size_t quote = text.find('"', at + 1); quote != std::string_view::npos;
         quote = text.find('"', quote + 1)) {
        size_t backslashes = 0;
        while (text[quote - 1 - backslashes] == '\\') ++backslashes;
        if (backslashes % 2 == 0) return quote + 1;
    }
    return std::string_view::npos;
}

// The arguments of a call, from after its opening parenthesis; `*close` is set to the matching
// parenthesis. A `-y` path (`5</dev/oem_ipc1>`) and nested braces stay within their argument.
bool SplitArguments(std::string_view text, std::vector<std::string_view>* args, size_t* close) {
    int depth = 0;
    size_t start = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"') {
            i = SkipQuoted(text, i);
            if (i == std::string_view::npos) return false;
            --i;
        } else if (c == '(' || c == '{' || c == '[' ||
                   (c == '<' && i > 0 && IsDigit(text[i - 1]))) {
            ++depth;
        } else if ((c == ')' && depth == 0)) {
            if (i > start || !args->empty())
                args->push_back(TrimView(text.substr(start, i - start)));
            *close = i;
            return true;
        } else if (c == ')' || c == '}' || c == ']' || (c == '>' && depth > 0)) {
            --depth;
        } else if (c == ',' && depth == 0) {
            args->push_back(TrimView(text.substr(start, i - start)));
            start = i + 1;
        }
    }
    return false;
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
    std::optional<double> time;
    {
        std::string_view copy = rest;
        const std::string_view word = TakeWord(&copy);
        if (!word.empty() && IsDigit(word[0]) &&
            word.find_first_not_of("0123456789:.") == std::string_view::npos) {
            time = Time(word);
            rest = copy;
        }
    }

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
    double seconds = 0;
    if (stamp.find(':') == std::string_view::npos) {
        seconds = strtod(std::string(stamp).c_str(), nullptr);
        if (!first_time_) capture_.epoch = seconds;
    } else {
        for (const std::string& part : android::base::Split(std::string(stamp), ":")) {
            seconds = seconds * 60 + strtod(part.c_str(), nullptr);
        }
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

StraceReader::Node StraceReader::NodeOfPath(const std::string& path) {
    if (android::base::EndsWith(path, std::string("/") + kIpcNode)) return Node::kIpc;
    if (android::base::EndsWith(path, std::string("/") + kBootNode)) return Node::kBoot;
    return Node::kOther;
}

StraceReader::Node StraceReader::NodeOf(int fd) const {
    if (options_.ipc_fd == fd) return Node::kIpc;
    const auto it = nodes_.find(fd);
    return it == nodes_.end() ? Node::kOther : it->second;
}

Result<void> StraceReader::DumpLine(std::string_view line) {
    if (!AppendStraceDumpRow(line, &cut_->bytes)) {
        // No dump follows the cut buffer: the cut stands.
        const std::string error = cut_->error;
        cut_.reset();
        return Error() << error;
    }
    if (cut_->bytes.size() < cut_->size) return {};
    Cut cut = std::move(*cut_);
    cut_.reset();
    dumped_ = std::move(cut.bytes);
    const Result<void> called = Call(cut.call, cut.time);
    dumped_.reset();
    return called;
}

Result<void> StraceReader::Wait(size_t size, std::optional<double> time, std::string error) {
    cut_ = Cut{std::string(call_), time, size, {}, std::move(error)};
    return {};
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
    if (!SplitArguments(text.substr(open + 1), &args, &close)) {
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
        if (NodeOf(*fd) == Node::kOther && nodes_.count(*fd) == 0) ++unknown_[*fd];
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
        return Wait(done, time,
                    fmt::format("line {}: strace's -s cut the {}'s {} bytes after {}; {}", line_,
                                name, count, bytes->size(), kCutAdvice));
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
        std::string fds;
        for (const auto& [fd, calls] : unknown_) {
            fds += (fds.empty() ? "" : ", ") + std::to_string(fd);
        }
        return Error() << "no descriptor is known as /dev/oem_ipc1 (reads and writes on " << fds
                       << "): capture with -y, or give --fd N";
    }
    return std::move(capture_);
}

}  // namespace tarvo_emu
