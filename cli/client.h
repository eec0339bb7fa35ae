// client.h: rsvctl as a client of rsvd.
#ifndef RSVCTL_CLIENT_H
#define RSVCTL_CLIENT_H

#include <optional>
#include <string>

#include "commands.h"

namespace rsvctl {

// Send `command` with its arguments (argv without the global options) to
// rsvd, print its answer's standard output and error, and return its exit
// status. rsvd is asked at --socket (which must answer: else a status-3
// CliError), else at <state-dir>/rsvd.sock when something answers there.
// std::nullopt when the command is to run here: --direct, init and demo
// (which make a state directory), or no rsvd answering at the default path.
std::optional<int> askDaemon(const GlobalOptions &global, const std::string &command, int argc, char **argv);

// argv[1..] without the global options and their values (so the command's
// name comes first).
std::vector<std::string> commandWords(int argc, char **argv);

} // namespace rsvctl

#endif
