#include "app/cli/DescribeCommand.h"

#include <CLI/CLI.hpp>

CLI::App* AddDescribeCommand(CLI::App& app, DescribeOptions& options)
{
    CLI::App* command = app.add_subcommand("describe", "List the loaded tools with their pages and controls");
    command->add_flag("--json", options.json, "Print JSON instead of text");
    return command;
}
