// cmd_change.cpp: add and del.
#include <fmt/format.h>

#include "cli_error.h"
#include "commands.h"
#include "operations.h"
#include "timeparse.h"

namespace rsvctl {

namespace {

struct AddOptions {
    std::string owner, slots = "1", hosts, begin, end, window, description;
    bool system = false;
};

} // namespace

void addChangeCommands(CLI::App &app, GlobalOptions &global, CommandList &commands)
{
    auto add = std::make_shared<AddOptions>();
    CLI::App *addCmd = app.add_subcommand("add", "Reserve slots on hosts for an owner over a time window");
    addCmd->add_option("-u,--user", add->owner, "Owner: a user or user group")->required();
    addCmd->add_option("-n,--slots", add->slots, "Slots wanted: MIN or MIN:MAX (default 1)");
    addCmd->add_option("-m,--hosts", add->hosts, "Hosts (names or aliases), comma-separated")->required();
    addCmd->add_option("-b,--begin", add->begin,
                       "One-off begin: 'YYYY-MM-DD HH:MM', YYYY-MM-DDTHH:MM, +90m, +2h, +1d or epoch seconds");
    addCmd->add_option("-e,--end", add->end, "One-off end, in the same forms");
    addCmd->add_option("-t,--window", add->window,
                       "Recurring window: H[:M]-H[:M] daily, or D:H:M-D:H:M weekly (D 0-7 or sun..sat)");
    addCmd->add_flag("--system", add->system, "System reservation: takes every free slot of the hosts");
    addCmd->add_option("-d,--description", add->description, "Free text shown by show and list --json");
    addCmd->footer(R"(Examples:
  rsvctl add -u alice -n 8 -m hpc01 -b '2026-12-01 09:00' -e '2026-12-01 17:00'
  rsvctl add -u bob -n 4:8 -m hpc01,hpc02 -b +1h -e +3h -d 'test run'
  rsvctl add -u ops -n 2 -m gpu01 -t 22:00-6:00            (every night)
  rsvctl add -u lab -n 16 -m fat01 -t fri:18:00-mon:8:00   (every weekend)
  rsvctl add -u root --system -m dev01 -b +1d -e +1d2h     (maintenance))");
    commands.push_back({addCmd, [add, &global]() {
        AddRequest req;
        req.owner = add->owner;
        parseSlotRange(add->slots, req.minSlots, req.maxSlots);
        req.hosts = splitList(add->hosts);
        req.system = add->system;
        req.description = add->description;
        bool oneOff = !add->begin.empty() || !add->end.empty();
        if (oneOff && !add->window.empty())
            usageError("give either -b/-e (one-off) or -t (recurring), not both");
        if (!oneOff && add->window.empty())
            usageError("give a window: -b BEGIN -e END, or -t WINDOW");
        if (oneOff) {
            if (add->begin.empty() || add->end.empty())
                usageError("a one-off reservation needs both -b BEGIN and -e END");
            time_t begin = parsePoint(add->begin, "-b");
            time_t end = parsePoint(add->end, "-e");
            req.window = fmt::format("{}-{}", static_cast<long long>(begin), static_cast<long long>(end));
            req.typedBegin = add->begin;
            req.typedEnd = add->end;
        } else {
            req.window = normaliseRecurringWindow(add->window);
            req.typedWindow = add->window;
            req.recurring = true;
        }
        Session session(resolveStateDir(global.stateDir), Access::Change);
        std::string id = addReservation(session, req);
        fmt::print("{}\n", id);
        return kExitOk;
    }});

    auto ids = std::make_shared<std::vector<std::string>>();
    CLI::App *delCmd = app.add_subcommand("del", "Delete reservations");
    delCmd->add_option("ID", *ids, "Reservation identifiers, such as alice#0")->required();
    delCmd->footer(R"(One change: every identifier must exist, or nothing is deleted.
Examples:
  rsvctl del alice#0
  rsvctl del alice#0 bob#2)");
    commands.push_back({delCmd, [ids, &global]() {
        Session session(resolveStateDir(global.stateDir), Access::Change);
        deleteReservations(session, *ids);
        for (const auto &id : *ids)
            fmt::print("deleted {}\n", id);
        return kExitOk;
    }});
}

} // namespace rsvctl
