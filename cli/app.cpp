// app.cpp: rsvctl's command line: the global options, the commands, and the
// checks that come before any command runs.
#include "app.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <vector>

#include <fmt/format.h>

#include "cli_error.h"
#include "output.h"

namespace rsvctl {

bool useColour(const GlobalOptions &global)
{
    if (global.color == "always")
        return true;
    if (global.color == "never")
        return false;
    const char *noColour = std::getenv("NO_COLOR");
    const char *term = std::getenv("TERM");
    return isatty(STDOUT_FILENO) && !(noColour && *noColour) && !(term && std::string(term) == "dumb");
}

std::vector<std::string> splitList(const std::string &text)
{
    std::vector<std::string> out;
    size_t start = 0;
    for (;;) {
        size_t comma = text.find(',', start);
        std::string item = text.substr(start, comma - start);
        if (!item.empty())
            out.push_back(item);
        if (comma == std::string::npos)
            break;
        start = comma + 1;
    }
    return out;
}

void parseSlotRange(const std::string &text, int &minSlots, int &maxSlots)
{
    auto number = [&](const std::string &part) {
        if (part.empty() || part.size() > 7 || part.find_first_not_of("0123456789") != std::string::npos)
            usageError(fmt::format("bad slot count '{}': use MIN or MIN:MAX, such as 4 or 4:8", text));
        return std::atoi(part.c_str());
    };
    size_t colon = text.find(':');
    minSlots = number(text.substr(0, colon));
    maxSlots = colon == std::string::npos ? minSlots : number(text.substr(colon + 1));
    if (minSlots < 1)
        usageError(fmt::format("bad slot count '{}': at least 1 slot", text));
    if (maxSlots < minSlots)
        usageError(fmt::format("bad slot count '{}': MAX is below MIN", text));
}

namespace {

// Edits (insert, delete, replace, swap two neighbours) from `a` to `b`.
size_t editDistance(const std::string &a, const std::string &b)
{
    std::vector<std::vector<size_t>> d(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); ++i)
        d[i][0] = i;
    for (size_t j = 0; j <= b.size(); ++j)
        d[0][j] = j;
    for (size_t i = 1; i <= a.size(); ++i)
        for (size_t j = 1; j <= b.size(); ++j) {
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (a[i - 1] != b[j - 1])});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    return d[a.size()][b.size()];
}

// The first word that is not an option must name a command: otherwise say
// which command was probably meant (usage, status 1).
void checkCommandName(CLI::App &app, int argc, char **argv)
{
    std::string word;
    for (int i = 1; i < argc && word.empty(); ++i) {
        const std::string arg = argv[i];
        if (arg == "--")
            return;
        if (arg.empty() || arg[0] != '-') {
            word = arg;
            break;
        }
        // A global option that takes a value, given as a separate word.
        if (arg.find('=') == std::string::npos)
            for (const CLI::Option *opt : app.get_options())
                if (opt->check_name(arg) && opt->get_items_expected_min() > 0) {
                    ++i;
                    break;
                }
    }
    if (word.empty())
        return;
    std::string best;
    size_t bestDistance = 0;
    for (const CLI::App *sub : app.get_subcommands([](CLI::App *) { return true; })) {
        if (sub->get_name() == word)
            return;
        const size_t distance = editDistance(word, sub->get_name());
        if (best.empty() || distance < bestDistance) {
            best = sub->get_name();
            bestDistance = distance;
        }
    }
    if (!best.empty() && bestDistance <= std::max<size_t>(2, word.size() / 3))
        usageError(fmt::format("unknown command '{}': did you mean '{}'?", word, best));
    usageError(fmt::format("unknown command '{}': see rsvctl --help for the commands", word));
}


} // namespace

void defineApp(CLI::App &app, GlobalOptions &global, CommandList &commands, FrontEnd frontEnd,
               std::string_view only)
{
    app.description("rsvctl: advance reservations of job slots on a cluster's hosts");
    app.name("rsvctl");
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", "rsvctl 0.1.0");
    if (frontEnd == FrontEnd::Process) {
        app.add_option("--state-dir", global.stateDir,
                       "State directory (default $RSV_STATE_DIR, else ./rsv-state): hosts.conf, rsv.state, rsv.ids");
        app.add_flag("-v,--verbose", global.verbose,
                     "On standard error: what was loaded and saved and how long it took, and the module's log lines");
        app.add_option("--color", global.color, "Colour the planner: auto (on a terminal), always or never")
            ->check(CLI::IsMember({"auto", "always", "never"}));
        app.add_option("--socket", global.socket,
                       "Ask the rsvd listening here (default: <state-dir>/rsvd.sock when it answers)");
        app.add_flag("--direct", global.direct,
                     "Work on the state directory directly even where rsvd listens (refused while it runs)");
    }
    app.footer(R"(Exit status:
  0  done
  1  usage: unknown command or option, malformed time, window, date or count
  2  refused by the module (the reason follows; where slots are short, which
     hosts and when), or by rsvd: only an owner or an operator may change a
     reservation
  3  file, lock or configuration problem (hosts.conf missing or wrong, a
     state file that cannot be read, a change that could not be saved: then
     nothing changed; rsvd holding the directory in --direct mode)
Start with:  rsvctl demo --state-dir /tmp/rsv-demo
Or for a real cluster:  rsvctl --state-dir DIR init --host NAME:SLOTS ...)");

    using Adder = void (*)(CLI::App &, GlobalOptions &, CommandList &);
    static const std::pair<const char *, Adder> kGroups[] = {
        {"add,del", &addChangeCommands}, {"list,show", &addQueryCommands}, {"mod", &addModCommand},
        {"planner", &addPlannerCommand}, {"check,hosts", &addClusterCommands}, {"find", &addFindCommand},
        {"demo", &addDemoCommand},       {"init", &addInitCommand},
    };
    // Defining every command costs far more than running a quick one; a
    // daemon that knows the command defines only its group. An unknown name
    // gets them all, to say which one was meant.
    if (!only.empty())
        for (const auto &[names, add] : kGroups)
            for (const std::string &name : splitList(names))
                if (name == only) {
                    add(app, global, commands);
                    return;
                }
    for (const auto &[names, add] : kGroups)
        add(app, global, commands);
}

const Command *parseCommandLine(CLI::App &app, const CommandList &commands, int argc, char **argv, int *status)
{
    checkCommandName(app, argc, argv);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        std::ostringstream out, err;
        const int code = app.exit(e, out, err);
        output().out(out.str());
        output().err(err.str());
        *status = code == 0 ? kExitOk : kExitUsage;
        return nullptr;
    }
    for (const Command &command : commands)
        if (command.app->parsed())
            return &command;
    *status = kExitUsage;
    return nullptr;
}

} // namespace rsvctl
