// cmd_cluster.cpp: check and hosts, the cluster's side of reservations.
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <set>

#include <fmt/format.h>

#include "cli_error.h"
#include "commands.h"
#include "listing.h"
#include "output.h"
#include "planner_grid.h"
#include "session.h"
#include "table_compare.h"
#include "table_format.h"
#include "timeparse.h"

namespace rsvctl {

namespace {

// The most slots booked in any cell of any of the host's planners: what the
// module's reconfiguration check compares with the host's capacity.
int peakBooked(RsvTimeTbl *tbl, const std::string &host)
{
    int peak = RsvTimeTbl_peakBooked(tbl, host.c_str(), nullptr, nullptr);
    if (peak < 0)
        queryFailed(qob_errno);
    return peak;
}

// Temporary files a save leaves only when it is cut short (a crash, a kill):
// the module and rsvctl write "<file>.tmp" and rename it over the file.
std::vector<std::string> staleTemporaries(const std::string &dir)
{
    std::vector<std::string> names;
    DIR *d = opendir(dir.c_str());
    if (!d)
        return names;
    while (dirent *e = readdir(d)) {
        std::string name = e->d_name;
        struct stat st {};
        if (name.size() > 4 && name.compare(name.size() - 4, 4, ".tmp") == 0 &&
            stat((dir + "/" + name).c_str(), &st) == 0 && S_ISREG(st.st_mode))
            names.push_back(name);
    }
    closedir(d);
    std::sort(names.begin(), names.end());
    return names;
}

void dropLogLine(int, const char *) {}

// Load the directory's files into a second table, as a restart would, and
// compare it with the session's. "" when they match, else what differs.
std::string filesAgainstTable(Session &session)
{
    // The second load logs what the first already did: keep it quiet.
    KxLogSink previous = kx_setLogSink(&dropLogLine);
    RsvTimeTbl *disk = RsvTimeTbl_new(session.stateFile().c_str());
    int rejected = 0;
    int restored = disk ? RsvTimeTbl_load(disk, &rejected) : -1;
    kx_setLogSink(previous);
    if (restored < 0) {
        RsvTimeTbl_free(disk);
        return "the files on disk could not be read back";
    }
    std::vector<std::string> differences;
    try {
        differences = tableDifferences(session.table(), disk);
    } catch (...) {
        RsvTimeTbl_free(disk);
        throw;
    }
    RsvTimeTbl_free(disk);
    if (rejected != session.numRejected())
        differences.push_back(fmt::format("{} unreadable line(s) now, {} when loaded", rejected, session.numRejected()));
    std::string text;
    for (const auto &d : differences)
        text += (text.empty() ? "" : "; ") + d;
    return text;
}

void collectProblem(void *context, const char *problem)
{
    static_cast<std::vector<std::string> *>(context)->emplace_back(problem ? problem : "");
}

int runCheck(GlobalOptions &global)
{
    Session session(resolveStateDir(global.stateDir), Access::Read);
    RsvTimeTbl *tbl = session.table();
    // The check walks every host's planners: all of them are built first.
    if (RsvTimeTbl_setLazyPlanners(tbl, 0) < 0)
        fileError("cannot check the table: out of memory");
    // First, before anything below reads the table: the files read back to
    // this very table.
    const std::string filesDiffer = filesAgainstTable(session);

    // Hosts reservations hold that the cluster file no longer names.
    std::map<std::string, std::vector<std::string>> lost;
    HashIter iter{};
    for (HashEnt *e = h_firstEnt_(&tbl->entries, &iter); e; e = h_nextEnt_(&iter)) {
        auto *ent = static_cast<RsvEnt *>(e->value);
        for (int i = 0; ent && i < ent->numHosts; ++i) {
            const char *name = ent->allocVector[i].hostName;
            if (name && !session.cluster().find(name))
                lost[name].push_back(e->key);
        }
    }
    std::vector<std::string> plannerHosts;
    for (HashEnt *e = h_firstEnt_(&tbl->plannerLists, &iter); e; e = h_nextEnt_(&iter))
        plannerHosts.emplace_back(e->key);
    TextTable over({"HOST", "CAPACITY", "BOOKED"}, {1, 2});
    int numOver = 0;
    for (const auto &name : plannerHosts) {
        const ClusterHost *host = session.cluster().find(name);
        if (!host)
            continue;
        int peak = peakBooked(tbl, name);
        if (peak > host->slots) {
            over.addRow({name, std::to_string(host->slots), std::to_string(peak)});
            ++numOver;
        }
    }
    // The table's own invariants: planner cells against a rebooking from
    // scratch, the recurring index, identifiers and owner counters.
    std::vector<std::string> problems;
    int numProblems = RsvTimeTbl_verify(tbl, &collectProblem, &problems);
    // The daemon's own check, for its log lines under -v.
    RsvTimeTbl_checkEntries(tbl);

    for (const auto &name : staleTemporaries(session.dir()))
        printOut("note: {}/{} was left by a save that did not finish; it is harmless and ignored\n", session.dir(),
                   name);
    bool clean = lost.empty() && numOver == 0 && session.numRejected() == 0;
    if (clean)
        printOut("ok: every reserved host exists and none is over-reserved\n");
    if (session.numRejected() > 0)
        printOut("{} line(s) of {} could not be read (rsvctl -v check names them)\n", session.numRejected(),
                   session.stateFile());
    if (!lost.empty()) {
        printOut("hosts that no longer exist:\n");
        TextTable table({"HOST", "RESERVATIONS"});
        for (const auto &[host, ids] : lost) {
            std::string list;
            for (const auto &id : ids)
                list += (list.empty() ? "" : ",") + id;
            table.addRow({host, list});
        }
        printOut("{}", table.render("  "));
    }
    if (numOver > 0)
        printOut("over-reserved hosts (most slots booked at once):\n{}", over.render("  "));
    if (numProblems < 0) {
        printOut("the table's invariants could not be checked: {}\n", moduleErrorText(RSV_ERR_NO_MEMORY, {}));
        clean = false;
    } else if (numProblems > 0) {
        printOut("the table's invariants are broken ({} problem{}):\n", numProblems, numProblems == 1 ? "" : "s");
        for (const auto &problem : problems)
            printOut("  {}\n", problem);
        clean = false;
    } else {
        printOut("ok: the table's invariants hold\n");
    }
    if (filesDiffer.empty()) {
        printOut("files on disk match the table\n");
    } else {
        printOut("files on disk differ from the table: {}\n", filesDiffer);
        clean = false;
    }
    return clean ? kExitOk : kExitFile;
}

const std::vector<Column> &hostColumns()
{
    static const std::vector<Column> columns = {
        {"host", "HOST"},   {"slots", "SLOTS", true}, {"cpus", "CPUS", true},
        {"aliases", "ALIASES"}, {"rsvs", "RSVS", true}, {"peak", "PEAK THIS WEEK"},
    };
    return columns;
}

int runHosts(GlobalOptions &global, const ListingOptions &output)
{
    Session session(resolveStateDir(global.stateDir), Access::Read);
    RsvTimeTbl *tbl = session.table();
    RsvWeek week = weekOf(nowTime());
    std::map<std::string, int> reservations;
    HashIter iter{};
    for (HashEnt *e = h_firstEnt_(&tbl->entries, &iter); e; e = h_nextEnt_(&iter)) {
        auto *ent = static_cast<RsvEnt *>(e->value);
        for (int i = 0; ent && i < ent->numHosts; ++i)
            if (ent->allocVector[i].hostName)
                ++reservations[ent->allocVector[i].hostName];
    }
    Listing listing(hostColumns());
    for (const ClusterHost &host : session.cluster().hosts()) {
        RsvCell busiest{};
        int peak = RsvTimeTbl_peakBooked(tbl, host.name.c_str(), &week, &busiest);
        if (peak < 0)
            queryFailed(qob_errno);
        std::string aliases;
        for (const auto &a : host.aliases)
            aliases += (aliases.empty() ? "" : ",") + a;
        time_t peakAt = peak == 0 ? 0 : cellStart(week, busiest.day, busiest.slot);
        std::string peakText =
            peak == 0 ? "-" : fmt::format("{}/{} from {}", peak, host.slots, formatTime(peakAt));
        nlohmann::ordered_json peakJson = nullptr;
        if (peak > 0)
            peakJson = {{"booked", peak}, {"at", static_cast<long long>(peakAt)}};
        listing.addRow({host.name, std::to_string(host.slots), std::to_string(host.cpus), aliases.empty() ? "-" : aliases,
                        std::to_string(reservations[host.name]), peakText},
                       {{"host", host.name},
                        {"slots", host.slots},
                        {"cpus", host.cpus},
                        {"aliases", host.aliases},
                        {"rsvs", reservations[host.name]},
                        {"peak", peakJson}});
    }
    if (output.json) {
        nlohmann::ordered_json out;
        out["now"] = static_cast<long long>(nowTime());
        out["hosts"] = listing.json(output);
        out["max_per_owner"] = session.cluster().maxPerOwner() > 0
                                   ? nlohmann::ordered_json(session.cluster().maxPerOwner())
                                   : nlohmann::ordered_json(nullptr);
        printOut("{}\n", out.dump(2));
        return kExitOk;
    }
    printOut("{}", listing.text(output));
    if (session.cluster().maxPerOwner() > 0 && !output.rowsOnly())
        printOut("max-per-owner {}\n", session.cluster().maxPerOwner());
    return kExitOk;
}

} // namespace

void addClusterCommands(CLI::App &app, GlobalOptions &global, CommandList &commands)
{
    CLI::App *check = app.add_subcommand("check", "Check reservations, the table and the files on disk");
    check->footer(R"(Lists hosts that reservations hold but hosts.conf no longer names, and hosts
whose booked slots exceed their capacity (after a capacity was lowered); checks
the table's invariants; and loads the files again to see that they read back
to the same table. Temporary files left by an interrupted save are noted and
ignored. Exit status 0 when all is well, 3 when something needs attention.
Example:
  rsvctl check)");
    commands.push_back({check, [&global]() { return runCheck(global); }});

    auto output = std::make_shared<ListingOptions>();
    CLI::App *hosts = app.add_subcommand("hosts", "List the cluster's hosts and how busy each is this week");
    addListingOptions(hosts, *output, hostColumns());
    hosts->footer(R"(Examples:
  rsvctl hosts
  rsvctl hosts --noheader -o host,slots
  rsvctl hosts --json)");
    commands.push_back({hosts, [&global, output]() { return runHosts(global, *output); }});
}

} // namespace rsvctl
