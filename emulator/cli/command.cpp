#include "cli/command.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iterator>
#include <vector>

#include <android-base/file.h>

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;

namespace tarvo_emu {

namespace {

constexpr size_t kOptionColumn = 24;
constexpr size_t kUsageWidth = 92;
constexpr char kUsagePrefix[] = "usage: ";

// How an option reads in a usage line: "FILE", "[FILE]", "[--record OUT]", "[--writable DIR]...";
// a positional that takes every argument left stands after `--`.
std::string UsageOf(const CLI::Option* option) {
    const bool repeated = option->get_expected_max() > 1 || option->get_items_expected_max() > 1 ||
                          option->get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll;
    if (option->get_positional()) {
        const std::string name = option->get_name(true, false);
        if (repeated) return "-- " + name + " [ARG...]";
        return option->get_required() ? name : "[" + name + "]";
    }
    std::string usage = option->get_name(false, false);
    if (!option->get_type_name().empty()) usage += " " + option->get_type_name();
    return "[" + usage + "]" + (repeated ? "..." : "");
}

constexpr int kTakenSignals[] = {SIGINT, SIGTERM, SIGHUP};
struct sigaction cleanup_actions[std::size(kTakenSignals)];
int signal_write_fd = -1;
void (*on_taken_signal)() = nullptr;
bool interrupt_ends_session = false;

void OnTakenSignal(int signal_number) {
    const int saved_errno = errno;
    on_taken_signal();
    for (size_t i = 0; i < std::size(kTakenSignals); ++i) {
        if (signal_number == kTakenSignals[i] &&
            (signal_number != SIGINT || interrupt_ends_session)) {
            sigaction(signal_number, &cleanup_actions[i], nullptr);
        }
    }
    const char byte = static_cast<char>(signal_number);
    if (write(signal_write_fd, &byte, 1) < 0) {
        // A full pipe already holds a signal for the loop.
    }
    errno = saved_errno;
}

// Whether a file can be written at `path`: an existing file writable, or its directory one that
// a file can be created in.
Result<void> CheckOutputPath(const std::string& path) {
    struct stat status;
    if (stat(path.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode)) return Error() << path << " is a directory";
        if (access(path.c_str(), W_OK) != 0) return ErrnoError() << "cannot write " << path;
        return {};
    }
    const std::string directory = android::base::Dirname(path);
    if (access(directory.c_str(), W_OK | X_OK) != 0) {
        return ErrnoError() << "cannot create " << path << " in " << directory;
    }
    return {};
}

}  // namespace

CLI::Validator WritableOutput(bool dash) {
    return CLI::Validator(
        [dash](std::string& path) -> std::string {
            if (dash && path == "-") return "";
            const Result<void> writable = CheckOutputPath(path);
            return writable.ok() ? "" : writable.error().message();
        },
        "", "WRITABLE");
}

CommandFormatter::CommandFormatter() { column_width(kOptionColumn); }

std::string CommandFormatter::make_usage(const CLI::App* app, std::string name) const {
    // Positionals first, then the options, then a command taken whole after `--`.
    const auto rank = [](const CLI::Option* option) {
        if (!option->get_positional()) return 1;
        return option->get_expected_max() > 1 ? 2 : 0;
    };
    std::vector<const CLI::Option*> options = app->get_options(
        [app](const CLI::Option* option) { return option != app->get_help_ptr(); });
    std::stable_sort(options.begin(), options.end(),
                     [&](const CLI::Option* a, const CLI::Option* b) { return rank(a) < rank(b); });
    // Wrapped under the command's first argument.
    const std::string indent(sizeof(kUsagePrefix) - 1 + name.size() + 1, ' ');
    std::string usage = name;
    size_t column = sizeof(kUsagePrefix) - 1 + name.size();
    for (const CLI::Option* option : options) {
        const std::string word = UsageOf(option);
        if (column + 1 + word.size() > kUsageWidth) {
            usage += "\n" + indent;
            column = indent.size();
        } else {
            usage += " ";
            ++column;
        }
        usage += word;
        column += word.size();
    }
    return usage + "\n";
}

std::string CommandFormatter::make_help(const CLI::App* app, std::string name,
                                        CLI::AppFormatMode) const {
    std::string help;
    const std::vector<const CLI::App*> commands =
        app->get_subcommands([](const CLI::App* sub) { return !sub->get_group().empty(); });
    if (commands.empty()) {
        help = kUsagePrefix + make_usage(app, name);
    } else {
        const std::string continued(sizeof(kUsagePrefix) - 1, ' ');
        for (const CLI::App* command : commands) {
            help += (help.empty() ? kUsagePrefix : continued) +
                    make_usage(command, name + " " + command->get_name());
        }
        help += continued + name + " COMMAND --help\n";
    }
    help += "\n" + app->get_description() + "\n";
    if (commands.empty()) {
        help += make_positionals(app) + make_groups(app, CLI::AppFormatMode::Normal);
    }
    const std::string footer = app->get_footer();
    if (!footer.empty()) help += "\n" + footer;
    return help;
}

int Failed(const std::string& who, const std::string& why) {
    fflush(stdout);
    if (who.empty()) {
        fmt::print(stderr, "{}\n", why);
    } else {
        fmt::print(stderr, "{}: {}\n", who, why);
    }
    return 1;
}

int UsageError(const CLI::App* command, const std::string& why) {
    fmt::print(stderr, "tarvo-emu {}: {}\nSee: tarvo-emu {} --help\n", command->get_name(), why,
               command->get_name());
    return kUsageError;
}

Result<android::base::unique_fd> TakeOverSignals(void (*on_signal)(), bool interrupt_ends) {
    android::base::unique_fd read_end, write_end;
    if (!android::base::Pipe(&read_end, &write_end, O_CLOEXEC | O_NONBLOCK)) {
        return ErrnoError() << "pipe";
    }
    signal_write_fd = write_end.release();
    on_taken_signal = on_signal;
    interrupt_ends_session = interrupt_ends;
    struct sigaction action = {};
    action.sa_handler = OnTakenSignal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (size_t i = 0; i < std::size(kTakenSignals); ++i) {
        sigaction(kTakenSignals[i], &action, &cleanup_actions[i]);
    }
    return read_end;
}

Result<std::unique_ptr<PcapngWriter>> OpenPcapng(const std::string& path, RigHooks* hooks) {
    if (path.empty()) return nullptr;
    Result<std::unique_ptr<PcapngWriter>> opened = PcapngWriter::Open(path);
    if (opened.ok()) (*opened)->Attach(hooks);
    return opened;
}

}  // namespace tarvo_emu
