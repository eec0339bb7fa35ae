// weekindex.cpp: the planners of a host's list by week, so that a query finds
// the planner of a week without walking the list (one planner record of 4 KiB
// per week, each a cache miss). The index of a list is made on the first
// look-up and made again when the list has changed: lists only grow at the
// back (a week's planner is added where the search for it failed, and
// nothing trims them), so an unchanged element count and last element mean
// an unchanged list; every module path that destroys a list forgets its
// index first, so an index never outlives its list.
#include <cstdint>
#include <functional>
#include <new>
#include <unordered_map>

#include "planner_internal.h"
#include "rsv_internal.h"

namespace {

// The start half of a week, which is what RsvWeek_equal compares.
uint64_t weekKey(const RsvWeek &week)
{
    return (static_cast<uint64_t>(static_cast<uint32_t>(week.startYear)) << 32) ^
           (static_cast<uint64_t>(static_cast<uint32_t>(week.startMonth)) << 24) ^
           (static_cast<uint64_t>(static_cast<uint32_t>(week.startDay)) << 16) ^
           static_cast<uint64_t>(static_cast<uint32_t>(week.startWeekday));
}

struct WeekIndex {
    int numEnts = -1;
    const ListEntry *last = nullptr;
    // Week key -> the first planner of the list with that key.
    std::unordered_map<uint64_t, ResPlanner *> byWeek;
};

using Indexes = std::unordered_map<const List *, WeekIndex>;

// Made in place and never destroyed, so that a list freed by a static
// object's destructor at exit still finds it; an empty map allocates nothing.
Indexes &indexes()
{
    alignas(Indexes) static unsigned char storage[sizeof(Indexes)];
    static Indexes *all = new (storage) Indexes;
    return *all;
}

bool sameWeek(const RsvWeek &a, const RsvWeek &b)
{
    return a.startDay == b.startDay && a.startWeekday == b.startWeekday && a.startMonth == b.startMonth &&
           a.startYear == b.startYear;
}

// The list's index, made again when the list has changed. Throws
// std::bad_alloc (the caller then drops it).
WeekIndex &currentIndex(List *list)
{
    WeekIndex &index = indexes()[list];
    if (index.numEnts == list->numEnts && index.last == list->back)
        return index;
    index.byWeek.clear();
    index.numEnts = -1;
    for (ListEntry *e = list->forw; e != reinterpret_cast<ListEntry *>(list); e = e->forw) {
        auto *planner = reinterpret_cast<ResPlanner *>(e);
        index.byWeek.emplace(weekKey(planner->week), planner);
    }
    index.numEnts = list->numEnts;
    index.last = list->back;
    return index;
}

// The first planner of `week` in the list by a walk, as plannerOfWeek finds it.
ResPlanner *walkForWeek(List *list, const RsvWeek &week)
{
    for (ListEntry *e = list->forw; e != reinterpret_cast<ListEntry *>(list); e = e->forw) {
        auto *planner = reinterpret_cast<ResPlanner *>(e);
        if (sameWeek(planner->week, week))
            return planner;
    }
    return nullptr;
}

} // namespace

namespace rsv {

ResPlanner *indexedPlannerOfWeek(List *list, const RsvWeek &week) noexcept
{
    try {
        const WeekIndex &index = currentIndex(list);
        const auto found = index.byWeek.find(weekKey(week));
        if (found == index.byWeek.end())
            return nullptr;
        // Keys of different weeks could meet only for years beyond 32 bits.
        if (sameWeek(found->second->week, week))
            return found->second;
    } catch (const std::bad_alloc &) {
        indexes().erase(list);
    }
    return walkForWeek(list, week);
}

void forgetWeekIndex(const List *list) noexcept
{
    if (list)
        indexes().erase(list);
}

} // namespace rsv
