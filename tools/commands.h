// The trv subcommands; each registers itself on the application.
#pragma once

#include <CLI/CLI.hpp>

namespace trvtool {

void addFuseCommand(CLI::App& app);
void addDemoCommand(CLI::App& app);
void addEvalCommand(CLI::App& app);
void addStandaloneCommands(CLI::App& app);  // retinex, tone

}  // namespace trvtool
