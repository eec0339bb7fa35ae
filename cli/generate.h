// generate.h: the manual page and the shell completions, written from the
// very command definitions rsvctl parses with, so they never drift apart.
#ifndef RSVCTL_GENERATE_H
#define RSVCTL_GENERATE_H

#include <string>

#include <CLI/CLI.hpp>

namespace rsvctl {

std::string manPage(const CLI::App &app);
std::string bashCompletion(const CLI::App &app);
std::string zshCompletion(const CLI::App &app);

// The build's hidden mode: "rsvctl --generate man|bash|zsh FILE" writes one
// of them to FILE. Returns the exit status.
int generateFile(const CLI::App &app, const std::string &what, const std::string &file);

} // namespace rsvctl

#endif
