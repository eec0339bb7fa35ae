// cmd_change.cpp: add and del.
#include <fmt/format.h>

#include "cli_error.h"
#include "commands.h"
#include "earliest.h"
#include "operations.h"
#include "output.h"
#include "report.h"
#include "timeparse.h"

namespace rsvctl {

namespace {

struct AddOptions {
    std::string owner, slots, hosts, begin, end, window, description, as;
    bool system = false;
    bool earliest = false;
    FitOptions fit;
};

// When a daemon serves the request it knows who asks: a user books for
// themself and is recorded as the creator; only operators book for others,
// make system reservations or name another creator (--as).
void checkCaller(const Session &session, const AddOptions &add, AddRequest &req)
{
    const Caller *who = session.caller();
    if (!who)
        return;
    if (!who->isOperator) {
        if (add.system)
            throw CliError(kExitRefused, fmt::format("{} may not make a system reservation: only an operator may",
                                                     who->user));
        if (!add.as.empty())
            throw CliError(kExitRefused, fmt::format("{} may not record another creator (--as): only an operator may",
                                                     who->user));
        if (req.owner != who->user)
            throw CliError(kExitRefused, fmt::format("{} may not book for {}: only {} or an operator may", who->user,
                                                     req.owner, req.owner));
    }
    if (add.as.empty() && (!add.system || add.owner.empty()))
        req.creator = who->user;
}

// add --earliest: the search and the booking in one session, under the one
// exclusive lock, so nothing can take the window in between.
int addEarliest(const AddOptions &add, AddRequest req, const GlobalOptions &global)
{
    if (!add.begin.empty() || !add.end.empty() || !add.window.empty())
        usageError("--earliest finds the window: give -D DURATION instead of -b/-e or -t");
    FitRequest fit;
    fit.owner = req.owner;
    fit.minSlots = req.minSlots;
    fit.maxSlots = req.maxSlots;
    fit.typedHosts = req.hosts;
    fit.system = req.system;
    checkOwnerName(req.owner);
    checkDescription(req.description);
    readFitOptions(add.fit, fit);
    Session session(resolveStateDir(global.stateDir), Access::Change);
    checkCaller(session, add, req);
    session.requireWritableState();
    if (req.wholeHosts)
        fit.minSlots = fit.maxSlots = wholeHostSlots(session.cluster(), fit.typedHosts);
    FitAnswer answer = searchEarliest(session, fit);
    if (!answer.found)
        throw CliError(kExitRefused, noFitMessage(fit, answer));
    req.window = answer.window;
    req.recurring = fit.form != FitForm::OneOff;
    if (req.recurring) {
        req.typedWindow = answer.window;
    } else {
        req.typedBegin = formatTime(answer.start);
        req.typedEnd = formatTime(answer.end);
    }
    req.minSlots = fit.minSlots;
    req.maxSlots = fit.maxSlots;
    req.wholeHosts = false;
    std::string id = addReservation(session, req);
    // Told from the reservation as booked.
    std::string window = answer.window;
    if (const RsvEnt *ent = RsvTimeTbl_getEntry(session.table(), id.c_str()))
        window = ent->timeWindow ? ent->timeWindow : window;
    printOut("{}\nbooked {} on {}\n", id, windowInWords(window, req.recurring), heldHosts(session, id));
    return kExitOk;
}

// Owner and creator: a system reservation belongs to "system", so that every
// operator's system reservations are numbered in one sequence and never
// collide; the operator who makes it is its creator (--as, else the -u
// given with --system, else the login). Any other reservation belongs to -u
// and records the operator as its creator.
void setOwnerAndCreator(const AddOptions &add, AddRequest &req)
{
    if (add.system) {
        req.owner = "system";
        req.creator = operatorName(!add.as.empty() ? add.as : add.owner);
    } else {
        if (add.owner.empty())
            usageError("give the owner: -u USER (or --system for a system reservation)");
        req.owner = add.owner;
        req.creator = operatorName(add.as);
    }
}

} // namespace

void addChangeCommands(CLI::App &app, GlobalOptions &global, CommandList &commands)
{
    auto add = std::make_shared<AddOptions>();
    CLI::App *addCmd = app.add_subcommand("add", "Reserve slots on hosts for an owner over a time window");
    addCmd->add_option("-u,--user", add->owner,
                       "Owner: a user or user group (with --system: the operator, as --as)");
    addCmd->add_option("-n,--slots", add->slots,
                       "Slots wanted: N, or MIN:MAX (see below); without -n, every slot of each host");
    addCmd->add_option("-m,--hosts", add->hosts, "Hosts (names or aliases), comma-separated")->required();
    addCmd->add_option("--as", add->as, "The operator recorded as creator (default: the login name)");
    addCmd->add_option("-b,--begin", add->begin,
                       "One-off begin: 'YYYY-MM-DD HH:MM[:SS]', YYYY-MM-DDTHH:MM[:SS][Z|+HH:MM], now, +90m, "
                       "+1d2h30m, 'tomorrow 08:00' or @EPOCH-SECONDS");
    addCmd->add_option("-e,--end", add->end, "One-off end, in the same forms (or -D for the length)");
    addCmd->add_option("-t,--window", add->window,
                       "Recurring window: H[:M]-H[:M] daily, or D:H:M-D:H:M weekly (D 0-7 or sun..sat)");
    addCmd->add_flag("--system", add->system,
                     "System reservation (owner 'system'): takes every slot of the hosts, nothing else booked");
    addCmd->add_option("-d,--description", add->description, "Free text shown by show and list --json");
    addCmd->add_flag("--earliest", add->earliest,
                     "Book the earliest window that fits, of length -D (instead of -b/-e or -t; see find)");
    addFitOptions(addCmd, add->fit);
    addCmd->footer(R"(Slots: without -n the reservation takes every slot of each host named, and is
refused when any of them is partly booked. -n N takes N slots, hosts in the
order named, each filled as far as it can until N. -n MIN:MAX never offers
more than MIN from one host and stops at the host that brings the total to
MIN; MAX only caps the total when that last host overshoots MIN.
Prints the identifier, then how many slots landed on which host.
Examples:
  rsvctl add -u alice -n 8 -m hpc01 -b '2026-12-01 09:00' -e '2026-12-01 17:00'
  rsvctl add -u alice -m hpc01,hpc02 -b '2026-12-01 09:00' -e '2026-12-01 17:00'  (whole hosts)
  rsvctl add -u bob -n 4:8 -m hpc01,hpc02 -b +1h -e +3h -d 'test run'
  rsvctl add -u ops -n 2 -m gpu01 -t 22:00-6:00            (every night)
  rsvctl add -u lab -n 16 -m fat01 -t fri:18:00-mon:8:00   (every weekend)
  rsvctl add --system --as root -m dev01 -b +1d -e +1d2h   (maintenance)
  rsvctl add -u alice -n 4 -m hpc01 -b 'tomorrow 08:00' -D 4h
  rsvctl add -u bob -n 2 -m hpc02 -b 2026-12-01T08:00:00+01:00 -e 2026-12-01T12:00Z
  rsvctl add -u alice -n 8 -m hpc01 --earliest -D 6h       (first free 6 hours)
  rsvctl add -u ops -n 2 -m gpu01 --earliest -D 8h --daily (first free time of day)
Times are in $TZ unless they carry an offset; a time the clocks skip or show
twice is refused (give the offset). Without --earliest, -D is the length of a
one-off window: the alternative to -e.
With --earliest: prints the identifier, then the window booked and where.)");
    commands.push_back({addCmd, [add, &global]() {
        AddRequest req;
        setOwnerAndCreator(*add, req);
        req.wholeHosts = add->slots.empty() && !add->system;
        if (!add->slots.empty())
            parseSlotRange(add->slots, req.minSlots, req.maxSlots);
        req.hosts = splitList(add->hosts);
        req.system = add->system;
        req.description = add->description;
        if (add->earliest)
            return addEarliest(*add, req, global);
        // Without --earliest, -D is the length of a one-off window: the
        // alternative to -e, as in find.
        const std::string duration = add->fit.duration;
        FitOptions others = add->fit;
        others.duration.clear();
        if (anyFitOption(others))
            usageError("--after, --before, --daily and --weekly go with --earliest");
        bool oneOff = !add->begin.empty() || !add->end.empty() || !duration.empty();
        if (oneOff && !add->window.empty())
            usageError("give either -b with -e or -D (one-off) or -t (recurring), not both");
        if (!oneOff && add->window.empty())
            usageError("give a window: -b BEGIN with -e END or -D DURATION, or -t WINDOW");
        if (oneOff) {
            if (!add->end.empty() && !duration.empty())
                usageError("give the end (-e) or the length (-D), not both");
            if (add->begin.empty() || (add->end.empty() && duration.empty()))
                usageError("a one-off reservation needs -b BEGIN and either -e END or -D DURATION");
            time_t begin = parseBegin(add->begin, "-b");
            time_t end = duration.empty() ? parsePoint(add->end, "-e")
                                          : begin + static_cast<time_t>(parseDurationMinutes(duration, "-D")) * 60;
            req.window = fmt::format("{}-{}", static_cast<long long>(begin), static_cast<long long>(end));
            req.typedBegin = add->begin;
            req.typedEnd = duration.empty() ? add->end : formatTime(end);
        } else {
            req.window = normaliseRecurringWindow(add->window);
            req.typedWindow = add->window;
            req.recurring = true;
        }
        Session session(resolveStateDir(global.stateDir), Access::Change);
        checkCaller(session, *add, req);
        std::string id = addReservation(session, req);
        printOut("{}\n{}\n", id, placementText(session, id));
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
        for (const auto &id : *ids)
            session.mayChange(id, "delete");
        deleteReservations(session, *ids);
        for (const auto &id : *ids)
            printOut("deleted {}\n", id);
        return kExitOk;
    }});
}

} // namespace rsvctl
