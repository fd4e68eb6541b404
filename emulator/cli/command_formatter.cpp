#include "cli/command_formatter.h"

#include <vector>

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

}  // namespace

CommandFormatter::CommandFormatter() { column_width(kOptionColumn); }

std::string CommandFormatter::make_usage(const CLI::App* app, std::string name) const {
    std::vector<std::string> words;
    for (const CLI::Option* option : app->get_options()) {
        if (option->get_positional() && option->get_expected_max() <= 1) {
            words.push_back(UsageOf(option));
        }
    }
    for (const CLI::Option* option : app->get_options()) {
        if (!option->get_positional() && option != app->get_help_ptr()) {
            words.push_back(UsageOf(option));
        }
    }
    for (const CLI::Option* option : app->get_options()) {
        if (option->get_positional() && option->get_expected_max() > 1) {
            words.push_back(UsageOf(option));
        }
    }
    // Wrapped under the command's first argument.
    const std::string indent(sizeof(kUsagePrefix) - 1 + name.size() + 1, ' ');
    std::string usage = name;
    size_t column = sizeof(kUsagePrefix) - 1 + name.size();
    for (const std::string& word : words) {
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

}  // namespace tarvo_emu
