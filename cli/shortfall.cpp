// shortfall.cpp: the "why" behind a refusal for lack of slots.
#include "shortfall.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <memory>

#include <fmt/format.h>

#include "cluster.h"
#include "planner_grid.h"
#include "table_format.h"
#include "timeparse.h"

namespace rsvctl {

namespace {

struct FreeDeleter {
    void operator()(void *p) const { std::free(p); }
};

// The weeks a query over `window` looks at, as the module chooses them.
std::vector<RsvWeek> queryWeeks(RsvTimeTbl *tbl, const std::string &host, const std::string &window,
                                bool recurring)
{
    int n = 0;
    RsvWeek *weeks = nullptr;
    if (recurring) {
        List *list = RsvTimeTbl_getPlannerList(tbl, host.c_str());
        weeks = list ? ResPlannerList_getWeeks(list, &n) : nullptr;
    } else {
        weeks = RsvTimeWindow_getWeeks(window.c_str(), &n);
    }
    std::unique_ptr<RsvWeek, FreeDeleter> owner(weeks);
    std::vector<RsvWeek> out;
    for (int i = 0; weeks && i < n; ++i)
        out.push_back(weeks[i]);
    if (out.empty() && recurring)
        out.push_back(rsvWeekRecur);
    return out;
}

std::string cellWords(const RsvWeek &week, int day, int slot)
{
    if (isRecurringWeek(week))
        return fmt::format("any week, {} {:02d}:{:02d}", weekdayName(day), slot / 6, slot % 6 * 10);
    return formatTime(cellStart(week, day, slot));
}

} // namespace

std::vector<HostShortfall> explainShortfall(RsvTimeTbl *tbl, const Cluster &cluster,
                                            const std::vector<HostNeed> &hosts, const std::string &window,
                                            bool recurring, bool system, const RsvEnt *own)
{
    std::vector<HostShortfall> report;
    for (const HostNeed &need : hosts) {
        HostShortfall row;
        row.host = need.host;
        row.needed = need.needed;
        const ClusterHost *host = cluster.find(need.host);
        if (!host) {
            row.known = false;
            report.push_back(row);
            continue;
        }
        row.capacity = host->slots;
        int maxBooked = 0;
        bool firstFound = false;
        for (const RsvWeek &week : queryWeeks(tbl, need.host, window, recurring)) {
            CellGrid booked = hostWeekGrid(tbl, need.host, week);
            CellGrid mine = own ? entryWeekGrid(own, need.host, week) : CellGrid{};
            CellGrid covered = windowCoverage(week, window, recurring);
            for (int d = 0; d < RSV_PLANNER_DAYS; ++d) {
                for (int s = 0; s < RSV_PLANNER_SLOTS_PER_DAY; ++s) {
                    if (!covered[d][s])
                        continue;
                    int used = booked[d][s] - mine[d][s];
                    maxBooked = std::max(maxBooked, used);
                    int freeHere = row.capacity - used;
                    bool short_ = system ? used > 0 : freeHere < need.needed;
                    if (short_ && !firstFound) {
                        firstFound = true;
                        row.hasShortCell = true;
                        row.shortCell = cellWords(week, d, s);
                        row.freeAtCell = std::max(freeHere, 0);
                    }
                }
            }
        }
        // The module's own answer when nothing of the reservation itself
        // needs giving back; it agrees with the cells read above.
        row.freeSlots = own ? row.capacity - maxBooked
                            : Rsv_getMaxAvailonHost(tbl, need.host.c_str(), window.c_str(), recurring ? 1 : 0,
                                                    nullptr);
        report.push_back(row);
    }
    return report;
}

std::string formatShortfall(const std::vector<HostShortfall> &report, bool system)
{
    TextTable table({"HOST", "CAPACITY", "FREE", "NEEDED", "FIRST SHORT"}, {1, 2, 3});
    for (const HostShortfall &row : report) {
        if (!row.known) {
            table.addRow({row.host, "-", "-", std::to_string(row.needed), "not in the cluster"});
            continue;
        }
        std::string where;
        if (row.hasShortCell)
            where = system ? fmt::format("{} (already booked)", row.shortCell)
                           : fmt::format("{} ({} free)", row.shortCell, row.freeAtCell);
        else
            where = "-";
        table.addRow({row.host, std::to_string(row.capacity), std::to_string(std::max(row.freeSlots, 0)),
                      system ? "all" : std::to_string(row.needed), where});
    }
    return "why: free slots over the window, per asked host\n" + table.render("  ");
}

} // namespace rsvctl
