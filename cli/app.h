// app.h: rsvctl's command line, defined once for both front ends: rsvctl
// itself and rsvd, which runs the same commands for its clients.
#ifndef RSVCTL_APP_H
#define RSVCTL_APP_H

#include <string_view>

#include <CLI/CLI.hpp>

#include "commands.h"

namespace rsvctl {

// Where the command line is read.
enum class FrontEnd {
    Process,  // rsvctl: the global options, every command
    Daemon    // rsvd: a client's command; the global options are the client's
};

// Add the global options (Process only), every command and the help text;
// with `only` naming a command, that command's group alone (what it parses
// and prints is the same).
void defineApp(CLI::App &app, GlobalOptions &global, CommandList &commands, FrontEnd frontEnd,
               std::string_view only = {});

// Read `argc`/`argv` (argv[0] the program name); the chosen command, or
// nullptr when the line was only for help or version, whose text went to
// output() with *status set. A usage error throws CliError (status 1).
const Command *parseCommandLine(CLI::App &app, const CommandList &commands, int argc, char **argv, int *status);

} // namespace rsvctl

#endif
