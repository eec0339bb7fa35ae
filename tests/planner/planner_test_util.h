// Helpers shared by the planner, planner-list and allocation tests: entries
// built by hand, cell runs of a planner day, and week records.
#ifndef PLANNER_TEST_UTIL_H
#define PLANNER_TEST_UTIL_H

#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "rsv_test_support.h"

namespace plannertest {

struct Booking {
    std::string host;
    int slots;
};

// Runs of consecutive equal non-zero cells of one day: {first, last, count}.
struct Run {
    int first;
    int last;
    int count;
    bool operator==(const Run &o) const { return first == o.first && last == o.last && count == o.count; }
};
using Runs = std::vector<Run>;

inline std::ostream &operator<<(std::ostream &out, const Run &r)
{
    return out << "[" << r.first << ".." << r.last << "]=" << r.count;
}

inline Runs runs(const ResPlanner *p, int day)
{
    Runs result;
    for (int s = 0; s < RSV_PLANNER_SLOTS_PER_DAY; ++s) {
        const int v = p->slots[day][s].reserved;
        if (v == 0)
            continue;
        if (!result.empty() && result.back().last == s - 1 && result.back().count == v)
            result.back().last = s;
        else
            result.push_back({s, s, v});
    }
    return result;
}

// Number of cells with a non-zero count.
inline int bookedCells(const ResPlanner *p)
{
    int n = 0;
    for (int d = 0; d < RSV_PLANNER_DAYS; ++d)
        for (int s = 0; s < RSV_PLANNER_SLOTS_PER_DAY; ++s)
            n += p->slots[d][s].reserved != 0;
    return n;
}

// An entry with an allocation vector, owned by the caller until handed to a
// table (RsvTimeTbl_free releases it then).
inline RsvEnt *makeEntry(const std::string &rsvId, int options, const std::string &window,
                         const std::vector<Booking> &hosts)
{
    RsvEnt *ent = RsvEnt_new(options, "alice", window.c_str());
    if (!ent)
        return nullptr;
    free(ent->rsvId);
    ent->rsvId = strdup(rsvId.c_str());
    ent->numHosts = static_cast<int>(hosts.size());
    ent->allocVector = hosts.empty() ? nullptr : static_cast<AllocElem *>(calloc(hosts.size(), sizeof(AllocElem)));
    for (size_t i = 0; i < hosts.size(); ++i) {
        ent->allocVector[i].hostName = strdup(hosts[i].host.c_str());
        ent->allocVector[i].numSlots = hosts[i].slots;
    }
    return ent;
}

inline void freeEntry(RsvEnt *ent)
{
    RsvEnt_destroy(ent);
    free(ent);
}

// Put the entry into the table and book its hosts the way a restored entry is
// booked (keep-new 1).
inline void addAndBook(RsvTimeTbl *tbl, RsvEnt *ent)
{
    HashEnt *he = h_addEnt_(&tbl->entries, ent->rsvId, nullptr);
    he->value = ent;
    for (int i = 0; i < ent->numHosts; ++i) {
        const AllocElem &el = ent->allocVector[i];
        List *list = RsvTimeTbl_getPlannerList(tbl, el.hostName);
        ResPlannerList_map(list, tbl, el.hostName, ent->timeWindow, ent->options & RSV_OPT_RECURRING,
                           ResPlannerEnt_incr, el.numSlots, 1, ent);
    }
}

// Put the entry into the table without booking it.
inline void addOnly(RsvTimeTbl *tbl, RsvEnt *ent)
{
    HashEnt *he = h_addEnt_(&tbl->entries, ent->rsvId, nullptr);
    he->value = ent;
}

inline RsvWeek weekOf(time_t t)
{
    RsvWeek w{};
    RsvTime_toWeek(t, &w);
    return w;
}

inline int listSize(List *list)
{
    int n = 0;
    for (ListEntry *e = list->forw; e != reinterpret_cast<ListEntry *>(list); e = e->forw)
        ++n;
    return n;
}

inline ResPlanner *plannerAt(List *list, int index)
{
    ListEntry *e = list->forw;
    for (int i = 0; i < index && e != reinterpret_cast<ListEntry *>(list); ++i)
        e = e->forw;
    return e == reinterpret_cast<ListEntry *>(list) ? nullptr : reinterpret_cast<ResPlanner *>(e);
}

inline int maxOver(ResPlanner *p, const char *window, RsvEnt *ent = nullptr)
{
    int acc = 0;
    ResPlanner_map(p, window, ResPlannerEnt_getMaxRsv, static_cast<int64_t>(reinterpret_cast<intptr_t>(&acc)), ent);
    return acc;
}

} // namespace plannertest

#endif
