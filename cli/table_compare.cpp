// table_compare.cpp: comparing a table with the one its files read back to.
#include "table_compare.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>

#include <fmt/format.h>

#include "cli_error.h"

namespace rsvctl {

namespace {

struct FreeDeleter {
    void operator()(void *p) const { std::free(p); }
};

struct Record {
    std::string id;
    std::string line;
};

std::vector<Record> records(RsvTimeTbl *tbl)
{
    std::vector<Record> out;
    HashIter iter{};
    for (HashEnt *he = h_firstEnt_(&tbl->entries, &iter); he; he = h_nextEnt_(&iter)) {
        if (std::strchr(he->key, '@'))
            continue;
        std::unique_ptr<char, FreeDeleter> record(RsvEnt_ToString(static_cast<const RsvEnt *>(he->value)));
        if (!record)
            throw CliError(kExitFile, fmt::format("cannot write the record of reservation '{}'", he->key));
        out.push_back({he->key, record.get()});
    }
    return out;
}

// One planner of a host, as the module reports it.
struct WeekCells {
    RsvWeek week{};
    int cells[RSV_PLANNER_DAYS][RSV_PLANNER_SLOTS_PER_DAY]{};
};

// The host's planners, in the order of its list.
std::vector<WeekCells> plannersOf(RsvTimeTbl *tbl, const char *host)
{
    RsvWeek *weeksRaw = nullptr;
    int numWeeks = RsvTimeTbl_plannerWeeks(tbl, host, &weeksRaw);
    std::unique_ptr<RsvWeek, FreeDeleter> weeks(weeksRaw);
    if (numWeeks < 0)
        queryFailed(qob_errno);
    std::vector<WeekCells> out(static_cast<size_t>(numWeeks));
    for (int i = 0; i < numWeeks; ++i) {
        out[i].week = weeks.get()[i];
        if (RsvTimeTbl_hostWeekCells(tbl, host, &out[i].week, out[i].cells) != 0)
            queryFailed(qob_errno);
    }
    return out;
}

std::string weekText(const RsvWeek &week)
{
    if (RsvWeek_equal(&week, &rsvWeekRecur))
        return "the recurring week";
    return fmt::format("week of {:04d}-{:02d}-{:02d}", week.startYear, week.startMonth + 1, week.startDay);
}

std::set<std::string> plannerHosts(RsvTimeTbl *tbl)
{
    std::set<std::string> hosts;
    HashIter iter{};
    for (HashEnt *he = h_firstEnt_(&tbl->plannerLists, &iter); he; he = h_nextEnt_(&iter))
        hosts.insert(he->key);
    return hosts;
}

// A planner with nothing booked: the same as no planner at all (a table
// keeps the empty planners of reservations it no longer has; one loaded
// from the files never makes them).
bool allFree(const WeekCells &p)
{
    for (int d = 0; d < RSV_PLANNER_DAYS; ++d)
        for (int s = 0; s < RSV_PLANNER_SLOTS_PER_DAY; ++s)
            if (p.cells[d][s] != 0)
                return false;
    return true;
}

// The first difference between two hosts' planners, or "".
std::string plannerDifference(RsvTimeTbl *memory, RsvTimeTbl *disk, const std::string &host)
{
    std::vector<WeekCells> a = plannersOf(memory, host.c_str());
    std::vector<WeekCells> b = plannersOf(disk, host.c_str());
    // Matched by week: the order of a host's planners says nothing.
    for (const WeekCells &p : a) {
        const WeekCells *q = nullptr;
        for (const WeekCells &c : b)
            if (RsvWeek_equal(&p.week, &c.week))
                q = &c;
        if (!q && allFree(p))
            continue;
        if (!q)
            return fmt::format("{} has bookings in the {} only in memory", host, weekText(p.week));
        for (int d = 0; d < RSV_PLANNER_DAYS; ++d)
            for (int s = 0; s < RSV_PLANNER_SLOTS_PER_DAY; ++s)
                if (p.cells[d][s] != q->cells[d][s])
                    return fmt::format("planner cells of {} differ in the {} (day {}, {:02d}:{:02d}: {} in memory, "
                                       "{} on disk)",
                                       host, weekText(p.week), d, s / 6, s % 6 * 10, p.cells[d][s], q->cells[d][s]);
    }
    for (const WeekCells &q : b) {
        bool found = false;
        for (const WeekCells &p : a)
            found = found || RsvWeek_equal(&p.week, &q.week);
        if (!found && !allFree(q))
            return fmt::format("{} has bookings in the {} only on disk", host, weekText(q.week));
    }
    return "";
}

} // namespace

std::vector<std::string> stateLines(RsvTimeTbl *tbl)
{
    std::vector<std::string> lines;
    for (auto &r : records(tbl))
        lines.push_back(std::move(r.line));
    return lines;
}

std::vector<std::string> tableDifferences(RsvTimeTbl *memory, RsvTimeTbl *disk)
{
    std::vector<std::string> out;
    const std::vector<Record> ra = records(memory);
    const std::vector<Record> rb = records(disk);
    std::vector<std::string> a, b;
    for (const auto &r : ra)
        a.push_back(r.line);
    for (const auto &r : rb)
        b.push_back(r.line);
    if (a != b) {
        std::multiset<std::string> inA(a.begin(), a.end()), inB(b.begin(), b.end());
        std::set<std::string> idsA, idsB;
        size_t numOnlyA = 0, numOnlyB = 0;
        for (const auto &r : ra)
            if (inB.count(r.line) == 0) {
                idsA.insert(r.id);
                ++numOnlyA;
            }
        for (const auto &r : rb)
            if (inA.count(r.line) == 0) {
                idsB.insert(r.id);
                ++numOnlyB;
            }
        std::vector<std::string> changed, memoryOnly, diskOnly;
        for (const auto &id : idsA)
            (idsB.count(id) ? changed : memoryOnly).push_back(id);
        for (const auto &id : idsB)
            if (!idsA.count(id))
                diskOnly.push_back(id);
        auto listed = [](const std::vector<std::string> &ids) {
            std::string text;
            for (size_t i = 0; i < ids.size() && i < 3; ++i)
                text += (i ? ", " : "") + ids[i];
            if (ids.size() > 3)
                text += fmt::format(" and {} more", ids.size() - 3);
            return text;
        };
        if (!memoryOnly.empty())
            out.push_back(fmt::format("only in memory: {}", listed(memoryOnly)));
        if (!diskOnly.empty())
            out.push_back(fmt::format("only on disk: {}", listed(diskOnly)));
        if (!changed.empty())
            out.push_back(fmt::format("written differently: {}", listed(changed)));
        if (numOnlyA == 0 && numOnlyB == 0)
            out.push_back(a.size() == b.size() ? "the reservations come in another order"
                                               : "a reservation line is repeated");
    }

    std::set<std::string> hosts = plannerHosts(memory);
    for (const auto &host : plannerHosts(disk))
        hosts.insert(host);
    for (const auto &host : hosts) {
        std::string difference = plannerDifference(memory, disk, host);
        if (!difference.empty())
            out.push_back(difference);
    }
    return out;
}

} // namespace rsvctl
