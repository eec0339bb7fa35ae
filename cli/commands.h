// commands.h: the command groups of rsvctl. Each adds its subcommands to the
// application and registers what runs when one of them is chosen.
#ifndef RSVCTL_COMMANDS_H
#define RSVCTL_COMMANDS_H

#include <functional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace rsvctl {

struct GlobalOptions {
    std::string stateDir;
    bool verbose = false;
    std::string color = "auto";
    std::string socket;   // --socket: ask the rsvd listening there
    bool direct = false;  // --direct: never ask rsvd
};

struct Command {
    CLI::App *app = nullptr;
    std::function<int()> run;
};

using CommandList = std::vector<Command>;

void addChangeCommands(CLI::App &app, GlobalOptions &global, CommandList &commands);   // add, del
void addQueryCommands(CLI::App &app, GlobalOptions &global, CommandList &commands);    // list, show
void addModCommand(CLI::App &app, GlobalOptions &global, CommandList &commands);       // mod
void addPlannerCommand(CLI::App &app, GlobalOptions &global, CommandList &commands);   // planner
void addClusterCommands(CLI::App &app, GlobalOptions &global, CommandList &commands);  // check, hosts
void addFindCommand(CLI::App &app, GlobalOptions &global, CommandList &commands);      // find
void addDemoCommand(CLI::App &app, GlobalOptions &global, CommandList &commands);      // demo
void addInitCommand(CLI::App &app, GlobalOptions &global, CommandList &commands);      // init

// Whether to colour output on standard output.
bool useColour(const GlobalOptions &global);

// "a,b,,c" -> {"a","b","c"}.
std::vector<std::string> splitList(const std::string &text);

// "MIN[:MAX]" -> (min, max); usage error when malformed.
void parseSlotRange(const std::string &text, int &minSlots, int &maxSlots);

} // namespace rsvctl

#endif
