// earliest_recur.cpp: the earliest recurring window. The addition checks a
// recurring window against every planner of each asked host (the recurring
// planner and every dated one, whatever its week), so a host's count in a
// cell is the largest of its planners' counts there. The cells a window
// covers are the ones ResPlanner_map visits for its text; each host answers
// the largest count over them from a sparse table of its 1,008 cells.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "earliest_internal.h"

namespace rsv::fit {

namespace {

constexpr int kMinutesPerDay = 1440;
constexpr int kMinutesPerWeek = 7 * kMinutesPerDay;
constexpr int kLevels = 10; // 2^10 >= 1,008 cells
// A daily window covers at most two runs of cells a day, a weekly one at
// most one run a day.
constexpr int kMostRanges = 2 * RSV_PLANNER_DAYS + 2;

struct Range {
    int first;
    int last;
    int level; // the sparse table's level for its length
};

// One window tried: its text, its start and the runs of cells it covers.
struct Window {
    char text[40];
    int startMinute;
    int firstRange;
    int numRanges;
};

// Gathers the cells ResPlanner_map visits, as runs in visiting order. A
// fixed array: the operation runs inside a C-linkage call.
struct Collector {
    const ResPlannerEnt *base = nullptr;
    Range ranges[kMostRanges];
    int count = 0;
    bool overflow = false;
};

int64_t collectCell(ResPlannerEnt *cell, int64_t arg)
{
    auto *c = reinterpret_cast<Collector *>(static_cast<intptr_t>(arg));
    const int at = static_cast<int>(cell - c->base);
    if (c->count > 0 && c->ranges[c->count - 1].last == at) {
        ++c->ranges[c->count - 1].last;
    } else if (c->count < kMostRanges) {
        c->ranges[c->count++] = {at, at + 1, 0};
    } else {
        c->overflow = true;
    }
    return 0;
}

// "D:H:M" with Sunday as 7, or "H:M", of a minute of the week or day.
void pointText(int minute, bool weekly, char *out, size_t size)
{
    if (weekly) {
        const int day = minute / kMinutesPerDay;
        const int ofDay = minute % kMinutesPerDay;
        std::snprintf(out, size, "%d:%d:%d", day == 0 ? 7 : day, ofDay / 60, ofDay % 60);
    } else {
        std::snprintf(out, size, "%d:%d", minute / 60, minute % 60);
    }
}

// The module refuses a weekly window that ends on its start day at or
// before its start (it would wrap through the whole week).
bool validWeekly(int startMinute, int endMinute)
{
    return startMinute / kMinutesPerDay != endMinute / kMinutesPerDay ||
           endMinute % kMinutesPerDay > startMinute % kMinutesPerDay;
}

// Every window of the form to try, in order from the day's or week's start,
// with the cells the planners book for it. False when memory runs out.
bool makeWindows(int form, int duration, std::vector<Window> &windows, std::vector<Range> &ranges)
{
    const bool weekly = form == RSV_FIT_WEEKLY;
    const int period = weekly ? kMinutesPerWeek : kMinutesPerDay;
    CPtr<ResPlanner> mask(newScratchPlanner());
    if (!mask)
        return false;
    for (int start = 0; start < period; start += kCellSeconds / 60) {
        const int end = (start + duration) % period;
        if (weekly && !validWeekly(start, end))
            continue;
        Window w{};
        char from[16];
        char to[16];
        pointText(start, weekly, from, sizeof from);
        pointText(end, weekly, to, sizeof to);
        std::snprintf(w.text, sizeof w.text, "%s-%s", from, to);
        w.startMinute = start;
        Collector collector;
        collector.base = mask->slots[0];
        ResPlanner_map(mask.get(), w.text, collectCell, static_cast<int64_t>(reinterpret_cast<intptr_t>(&collector)),
                       nullptr);
        if (collector.overflow)
            continue; // no window of the two forms has that many runs
        w.firstRange = static_cast<int>(ranges.size());
        w.numRanges = collector.count;
        for (int r = 0; r < collector.count; ++r) {
            Range &range = collector.ranges[r];
            while ((2 << range.level) <= range.last - range.first)
                ++range.level;
        }
        ranges.insert(ranges.end(), collector.ranges, collector.ranges + collector.count);
        windows.push_back(w);
    }
    return true;
}

// Visit each planner of the host's list as the addition reads it: the
// changing reservation's slots taken out (in a copy). False when memory runs
// out.
template <typename Visit>
bool eachPlanner(const AskedHost &host, const Changing *changing, ResPlanner *copy, Visit visit)
{
    if (!host.list)
        return true; // the addition would find only a new, empty list
    for (ListEntry *e = host.list->forw; e != reinterpret_cast<ListEntry *>(host.list); e = e->forw) {
        const auto *planner = reinterpret_cast<const ResPlanner *>(e);
        if (changing && changing->holds(planner, host.asked)) {
            copy->week = planner->week;
            std::memcpy(copy->slots, planner->slots, sizeof copy->slots);
            if (!changing->release(copy, host.asked))
                return false;
            planner = copy;
        }
        visit(*planner);
    }
    return true;
}

// The largest count of each cell over the host's planners (at least 0, as
// the addition never sees less), as a sparse table of maxima.
class CellMaxima {
public:
    bool build(const AskedHost &host, const Changing *changing, ResPlanner *copy)
    {
        std::fill(std::begin(table_[0]), std::end(table_[0]), 0);
        const bool ok = eachPlanner(host, changing, copy, [this](const ResPlanner &p) {
            const ResPlannerEnt *cells = &p.slots[0][0];
            for (int c = 0; c < kCellsPerWeek; ++c)
                table_[0][c] = std::max(table_[0][c], cells[c].reserved);
        });
        for (int k = 1; k < kLevels; ++k)
            for (int c = 0; c + (1 << k) <= kCellsPerWeek; ++c)
                table_[k][c] = std::max(table_[k - 1][c], table_[k - 1][c + (1 << (k - 1))]);
        return ok;
    }
    int over(const Range &r) const
    {
        return std::max(table_[r.level][r.first], table_[r.level][r.last - (1 << r.level)]);
    }
    int cell(int c) const { return table_[0][c]; }

private:
    int table_[kLevels][kCellsPerWeek];
};

int usedOver(const CellMaxima &maxima, const Window &w, const std::vector<Range> &ranges)
{
    int used = 0;
    for (int r = 0; r < w.numRanges; ++r)
        used = std::max(used, maxima.over(ranges[static_cast<size_t>(w.firstRange + r)]));
    return used;
}

// A host's use of one window from its cells' maxima: the most booked count
// and the first cell holding it.
HostUse useOf(const int *cells, const Window &w, const std::vector<Range> &ranges)
{
    HostUse use;
    for (int r = 0; r < w.numRanges; ++r) {
        const Range &range = ranges[static_cast<size_t>(w.firstRange + r)];
        for (int c = range.first; c < range.last; ++c) {
            if (cells[c] > use.used) {
                use.used = cells[c];
                use.cell = c;
            }
        }
    }
    return use;
}

// The week of the first planner (in list order) whose count at `cell` is
// `used`. False when memory runs out.
bool weekHolding(const AskedHost &host, const Changing *changing, ResPlanner *copy, HostUse &use)
{
    bool seen = false;
    return eachPlanner(host, changing, copy, [&](const ResPlanner &p) {
        const ResPlannerEnt *cells = &p.slots[0][0];
        if (!seen && cells[use.cell].reserved == use.used) {
            use.week = p.week;
            seen = true;
        }
    });
}

struct Totals {
    std::vector<int64_t> total;
    std::vector<char> refused;
};

// The first window that fits, else the first one with the most slots.
size_t choose(const std::vector<Window> &windows, const Totals &t, const Rule &rule, bool &found, int &best)
{
    size_t chosen = 0;
    best = -1;
    found = false;
    for (size_t i = 0; i < windows.size(); ++i) {
        const int reached = t.refused[i] ? 0 : Rule::reservable(t.total[i]);
        if (!t.refused[i] && rule.accepts(t.total[i])) {
            found = true;
            best = reached;
            return i;
        }
        if (reached > best) {
            best = reached;
            chosen = i;
        }
    }
    return chosen;
}

int answer(const std::vector<AskedHost> &hosts, const Changing *changing, const Rule &rule, int duration,
           const std::vector<Window> &windows, const std::vector<Range> &ranges, const Totals &totals,
           const std::vector<int> &cells, RsvFit *result)
{
    bool found = false;
    int best = 0;
    const Window &w = windows[choose(windows, totals, rule, found, best)];
    result->bestTotal = best;
    result->bestStart = static_cast<time_t>(w.startMinute) * 60;
    std::vector<HostUse> uses(hosts.size());
    std::vector<int> avail(hosts.size());
    for (size_t i = 0; i < hosts.size(); ++i) {
        uses[i] = useOf(&cells[i * kCellsPerWeek], w, ranges);
        avail[i] = rule.offered(hosts[i].capacity, uses[i].used);
    }
    if (found) {
        result->found = 1;
        result->start = result->bestStart;
        result->end = result->start + static_cast<time_t>(duration) * 60;
        result->timeWindow = dupText(w.text);
        if (!result->timeWindow || !fillAllocation(hosts, avail, rule, result))
            return RSV_ERR_NO_MEMORY;
        return RSV_OK;
    }
    bool ok = true;
    const int limit = fillLimitHost(hosts, uses, rule, result, &ok);
    if (!ok)
        return RSV_ERR_NO_MEMORY;
    if (limit < 0 || uses[static_cast<size_t>(limit)].cell < 0)
        return RSV_OK;
    HostUse &use = uses[static_cast<size_t>(limit)];
    CPtr<ResPlanner> copy(newScratchPlanner());
    if (!copy || !weekHolding(hosts[static_cast<size_t>(limit)], changing, copy.get(), use))
        return RSV_ERR_NO_MEMORY;
    result->limitCell = static_cast<time_t>(use.cell) * kCellSeconds;
    result->limitWeek = use.week;
    return RSV_OK;
}

} // namespace

int searchRecurring(const std::vector<AskedHost> &hosts, const Rule &rule, const Changing *changing, int form,
                    int durationMinutes, RsvFit *result)
{
    std::vector<Window> windows;
    std::vector<Range> ranges;
    if (!makeWindows(form, durationMinutes, windows, ranges))
        return RSV_ERR_NO_MEMORY;
    if (windows.empty())
        return RSV_OK;
    Totals totals{std::vector<int64_t>(windows.size(), 0), std::vector<char>(windows.size(), 0)};
    CPtr<ResPlanner> copy(newScratchPlanner());
    auto maxima = std::make_unique<CellMaxima>();
    if (!copy)
        return RSV_ERR_NO_MEMORY;
    // Each host's cell maxima are kept for the answer.
    std::vector<int> cells(hosts.size() * kCellsPerWeek);
    for (size_t h = 0; h < hosts.size(); ++h) {
        const AskedHost &host = hosts[h];
        if (!maxima->build(host, changing, copy.get()))
            return RSV_ERR_NO_MEMORY;
        for (int c = 0; c < kCellsPerWeek; ++c)
            cells[h * kCellsPerWeek + static_cast<size_t>(c)] = maxima->cell(c);
        for (size_t i = 0; i < windows.size(); ++i) {
            const int used = usedOver(*maxima, windows[i], ranges);
            totals.total[i] += rule.offered(host.capacity, used);
            if (rule.system && used != 0)
                totals.refused[i] = 1;
        }
    }
    return answer(hosts, changing, rule, durationMinutes, windows, ranges, totals, cells, result);
}

} // namespace rsv::fit
