#pragma once

#include <string>

#include <CLI/CLI.hpp>

namespace tarvo_emu {

// Help in the layout of the rig's commands: a usage line made from the options as declared
// (positionals first, then each option with its value's name, repeatable ones marked `...`, and a
// command taken whole after `--` last), the description, every option with its help, the footer.
// The help of a command with subcommands shows the usage line of each.
class CommandFormatter : public CLI::Formatter {
  public:
    CommandFormatter();

    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode mode) const override;
    std::string make_usage(const CLI::App* app, std::string name) const override;
};

}  // namespace tarvo_emu
