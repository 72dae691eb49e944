#include "command.h"

#include <memory>

#include <CLI/CLI.hpp>

void add_name_command(CLI::App& app, Command& chosen, const char* command, const char* help, const char* argument,
                      int (*run)(const std::string&)) {
    CLI::App* const sub = app.add_subcommand(command, help);
    auto text = std::make_shared<std::string>();
    sub->add_option(argument, *text)->required();
    sub->callback([text, run, &chosen] { chosen.run = [text, run] { return run(*text); }; });
}
