// rsvctl: the operator's command-line front end of the reservation module.
// Where rsvd serves the state directory, each command is sent to it and its
// answer printed; else each run loads the state directory as a daemon starts
// up, performs one operation through the module, and lets the module
// rewrite its files.
#include <cstdio>
#include <optional>

#include <fmt/format.h>

#include "app.h"
#include "cli_error.h"
#include "client.h"
#include "commands.h"
#include "generate.h"
#include "session.h"
#include "signals.h"
#include "timeparse.h"
#include "zonetime.h"

namespace rsvctl {

namespace {

int run(int argc, char **argv)
{
    readZoneOnce();
    CLI::App app;
    GlobalOptions global;
    CommandList commands;
    defineApp(app, global, commands, FrontEnd::Process);

    // The build writes the manual page and the completions from these very
    // definitions: "rsvctl --generate man|bash|zsh FILE" (not in --help).
    if (argc >= 3 && std::string(argv[1]) == "--generate")
        return generateFile(app, argv[2], argc >= 4 ? argv[3] : "-");

    int status = kExitUsage;
    const Command *command = parseCommandLine(app, commands, argc, argv, &status);
    if (!command)
        return status;

    installLogSink(global.verbose);
    installPinnedClock();
    if (std::optional<int> served = askDaemon(global, command->app->get_name(), argc, argv))
        return *served;
    return command->run();
}

} // namespace

} // namespace rsvctl

int main(int argc, char **argv)
{
    int status = rsvctl::kExitFile;
    try {
        status = rsvctl::run(argc, argv);
    } catch (const rsvctl::CliError &e) {
        std::fflush(stdout);
        fmt::print(stderr, "rsvctl: {}\n{}", e.what(), e.detail());
        status = e.status();
    } catch (const std::exception &e) {
        fmt::print(stderr, "rsvctl: {}\n", e.what());
        status = rsvctl::kExitFile;
    }
    // A change holds SIGINT, SIGTERM and SIGHUP back until its result, good
    // or bad, is printed; one that arrived meanwhile takes effect here.
    rsvctl::releaseChangeSignals();
    return status;
}
