// shortfall.cpp: the "why" behind a refusal for lack of slots.
#include "shortfall.h"

#include <algorithm>

#include <fmt/format.h>

#include "cli_error.h"
#include "cluster.h"
#include "planner_grid.h"
#include "table_format.h"
#include "timeparse.h"

namespace rsvctl {

namespace {

std::string cellWords(const RsvCell &cell)
{
    if (isRecurringWeek(cell.week))
        return fmt::format("any week, {} {:02d}:{:02d}", weekdayName(cell.day), cell.slot / 6, cell.slot % 6 * 10);
    return formatTime(cellStart(cell.week, cell.day, cell.slot));
}

} // namespace

std::vector<HostShortfall> explainShortfall(RsvTimeTbl *tbl, const Cluster &cluster,
                                            const std::vector<HostNeed> &hosts, const std::string &window,
                                            bool recurring, bool system, const std::string &ownId)
{
    std::vector<HostShortfall> report;
    const char *own = ownId.empty() ? nullptr : ownId.c_str();
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
        RsvCell cell{};
        int found = RsvTimeTbl_firstShortCell(tbl, need.host.c_str(), window.c_str(), recurring ? 1 : 0,
                                              system ? RSV_NEED_WHOLE_HOST : need.needed, own, &cell);
        if (found < 0)
            queryFailed(qob_errno);
        if (found > 0) {
            row.hasShortCell = true;
            row.shortCell = cellWords(cell);
            row.freeAtCell = std::max(row.capacity - cell.booked, 0);
        }
        row.freeSlots = RsvTimeTbl_freeSlots(tbl, need.host.c_str(), window.c_str(), recurring ? 1 : 0, own);
        if (row.freeSlots < 0)
            queryFailed(qob_errno);
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
