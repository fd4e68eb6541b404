#include "cli/command.h"
#include "cli/console.h"

namespace tarvo_emu {

// `tarvo-emu console [FILE] [--record OUT] [--pcapng OUT]`.
Command AddConsoleCommand(CLI::App& app) {
    auto options = std::make_shared<ConsoleOptions>();
    CLI::App* console = app.add_subcommand(
        "console",
        "Starts the sandbox and the daemon (with FILE's setup, and its steps played first,\n"
        "when given) and plays each step typed at once, in scenario text format, while the\n"
        "transcript streams: `modem_state: 4`, `send { ... }`, `client: \"-m\"`,\n"
        "`expect_log { ... }`. A line that leaves a brace open goes on on the next. `help`\n"
        "lists every step kind with an example; Tab completes step and field names; `quit`\n"
        "or Ctrl-D ends the session. Standard input that is not a terminal is read as steps.\n"
        "Exit status 1 when a step failed.");
    console->add_option("FILE", options->file, "a scenario whose setup and steps come first")
        ->type_name("");
    console
        ->add_option("--record", options->record,
                     "write the session to OUT as a scenario that `tarvo-emu run` plays")
        ->type_name("OUT")
        ->check(WritableOutput());
    console->add_option("--pcapng", options->pcapng, kPcapngHelp)
        ->type_name("OUT")
        ->check(WritableOutput());
    return {console, [options] { return RunConsole(*options); }};
}

}  // namespace tarvo_emu
