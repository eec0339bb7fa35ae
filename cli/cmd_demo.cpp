// cmd_demo.cpp: demo, a first meeting with rsvctl: a realistic week of
// reservations on the built-in cluster, one that does not fit and why, the
// list, and the picture of a busy host. It fits one screen.
#include <ctime>

#include <fmt/format.h>

#include "cli_error.h"
#include "commands.h"
#include "operations.h"
#include "output.h"
#include "planner_render.h"
#include "report.h"
#include "session.h"
#include "timeparse.h"

namespace rsvctl {

namespace {

// "2026-11-23 09:00" of day `day` (0 = next week's Sunday) at hh:mm.
time_t at(time_t sunday, int day, int hour, int minute = 0)
{
    std::tm tm{};
    localtime_r(&sunday, &tm);
    tm.tm_mday += day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = 0;
    tm.tm_isdst = -1;
    return mktime(&tm);
}

std::string typed(time_t t)
{
    return formatTime(t).substr(4);  // "2026-11-23 09:00"
}

struct Demo {
    Session &session;
    bool colour;

    void say(const std::string &command) { printOut("$ rsvctl {}\n", command); }

    std::string add(const std::string &command, AddRequest req)
    {
        say(command);
        if (req.creator.empty()) {
            // A login that cannot be recorded leaves the creator empty here.
            try {
                req.creator = operatorName("");
            } catch (const CliError &) {
            }
        }
        std::string id = addReservation(session, req);
        printOut("{}\n{}\n", id, placementText(session, id));
        return id;
    }
};

int runDemo(GlobalOptions &global)
{
    std::string dir = resolveStateDir(global.stateDir);
    Session session(dir, Access::Change, ClusterSource::BuiltInOrFile);
    if (h_numEnts_(&session.table()->entries) > 0)
        usageError(fmt::format("'{}' already holds reservations; run the demo in a fresh directory "
                               "(rsvctl demo --state-dir NEW-DIR)",
                               dir));
    if (!session.usingBuiltInCluster())
        printOut("(using the cluster file {})\n", session.clusterFile());
    session.requireWritableState();
    time_t now = nowTime();
    // Next week, so every window lies ahead whatever today is.
    time_t sunday = weekStart(weekOf(now)) + 8 * 86400;
    sunday = weekStart(weekOf(sunday));
    printOut("rsvctl demo: a week of reservations on the built-in cluster, state in {}/\n", dir);
    printOut("now: {}\n\n", formatTime(now));
    Demo demo{session, useColour(global)};

    AddRequest bob;
    bob.owner = "bob";
    bob.minSlots = bob.maxSlots = 8;
    bob.hosts = {"hpc01"};
    bob.window = "22:0-6:0";
    bob.typedWindow = "22:00-6:00";
    bob.recurring = true;
    bob.description = "nightly batch";
    std::string bobId = demo.add("add -u bob -n 8 -m hpc01 -t 22:00-6:00 -d 'nightly batch'", bob);

    AddRequest carol;
    carol.owner = "carol";
    carol.minSlots = carol.maxSlots = 4;
    carol.hosts = {"node1", "fat01"};
    carol.window = "5:18:0-1:6:0";
    carol.typedWindow = "fri:18:00-mon:6:00";
    carol.recurring = true;
    carol.description = "weekend crunch";
    demo.add("add -u carol -n 4 -m node1,fat01 -t fri:18:00-mon:6:00 -d 'weekend crunch'", carol);

    AddRequest alice;
    alice.owner = "alice";
    alice.minSlots = alice.maxSlots = 24;
    alice.hosts = {"hpc01", "hpc02"};
    time_t aliceBegin = at(sunday, 1, 9), aliceEnd = at(sunday, 3, 17);
    alice.window = fmt::format("{}-{}", static_cast<long long>(aliceBegin), static_cast<long long>(aliceEnd));
    alice.typedBegin = typed(aliceBegin);
    alice.typedEnd = typed(aliceEnd);
    alice.description = "training";
    demo.add(fmt::format("add -u alice -n 24 -m hpc01,hpc02 -b '{}' -e '{}' -d '{}'", alice.typedBegin,
                         alice.typedEnd, alice.description),
             alice);

    AddRequest ops;
    ops.owner = "system";
    ops.creator = "ops";
    ops.system = true;
    ops.hosts = {"hpc01"};
    time_t opsBegin = at(sunday, 4, 12), opsEnd = at(sunday, 4, 16);
    ops.window = fmt::format("{}-{}", static_cast<long long>(opsBegin), static_cast<long long>(opsEnd));
    ops.typedBegin = typed(opsBegin);
    ops.typedEnd = typed(opsEnd);
    ops.description = "maintenance";
    demo.add(fmt::format("add --system --as ops -m hpc01 -b '{}' -e '{}' -d '{}'", ops.typedBegin, ops.typedEnd,
                         ops.description),
             ops);

    std::tm holiday{};
    time_t thursday = at(sunday, 4, 0);
    localtime_r(&thursday, &holiday);
    std::string dates = fmt::format("{}:{}:{}", holiday.tm_year + 1900, holiday.tm_mon + 1, holiday.tm_mday);
    demo.say(fmt::format("mod {} --disable {}      # a holiday: no nightly batch", bobId, dates));
    printOut("{}: off on {}\n", bobId, disableDays(session, bobId, dates));

    AddRequest dave;
    dave.owner = "dave";
    dave.minSlots = dave.maxSlots = 12;
    dave.hosts = {"hpc01", "hpc02"};
    time_t daveBegin = at(sunday, 2, 10), daveEnd = at(sunday, 2, 14);
    dave.window = fmt::format("{}-{}", static_cast<long long>(daveBegin), static_cast<long long>(daveEnd));
    dave.typedBegin = typed(daveBegin);
    dave.typedEnd = typed(daveEnd);
    demo.say(fmt::format("add -u dave -n 12 -m hpc01,hpc02 -b '{}' -e '{}'", dave.typedBegin, dave.typedEnd));
    try {
        addReservation(session, dave);
        printOut("(unexpectedly accepted)\n");
    } catch (const CliError &e) {
        // Only the refusal is part of the show; a save that failed ends the
        // demo with status 3 like any change.
        if (e.status() != kExitRefused)
            throw;
        printOut("rsvctl: {}\n{}", e.what(), e.detail());
    }

    printOut("\n");
    ListingOptions columns;
    columns.fields = "id,owner,slots,hosts,window,description";
    demo.say("list -o " + columns.fields);
    printOut("{}", formatList(collectReservations(session), columns));

    printOut("\n");
    demo.say(fmt::format("planner hpc01 --week {}", typed(sunday).substr(0, 10)));
    const ClusterHost *hpc01 = session.cluster().find("hpc01");
    PlannerPicture picture;
    picture.host = hpc01->name;
    picture.capacity = hpc01->slots;
    picture.week = weekOf(sunday);
    picture.booked = hostWeekGrid(session.table(), hpc01->name, picture.week);
    printOut("{}", renderHeatMap(picture, demo.colour));
    printOut("\nTry: rsvctl --state-dir {} show {}   (or --help on any command)\n", dir, bobId);
    return kExitOk;
}

} // namespace

void addDemoCommand(CLI::App &app, GlobalOptions &global, CommandList &commands)
{
    CLI::App *cmd = app.add_subcommand("demo", "Show rsvctl at work on the built-in demo cluster");
    cmd->footer(R"(Run it in a fresh state directory: it adds a realistic week of reservations,
tries one that does not fit and shows why, then lists them and draws a busy host.
Examples:
  rsvctl demo --state-dir /tmp/rsv-demo
  RSV_STATE_DIR=demo rsvctl demo)");
    commands.push_back({cmd, [&global]() { return runDemo(global); }});
}

} // namespace rsvctl
