// lazyplanners.cpp: tables whose hosts' planners are built when first needed.
// A front end that loads the whole table to change or show one reservation
// would otherwise book every host's planners of every week first. In this
// mode a host's planner list stays unbuilt until a call reaches it; it is
// then made from the table's reservations as the start-up bookings would
// have made it: the zero week first, then each week a one-off booking of the
// host reached, in the table's order, every planner holding what a booking
// of every reservation from scratch gives (the invariant RsvTimeTbl_verify
// checks on every table).
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "planner_internal.h"
#include "rsv_internal.h"

namespace {

// One reservation's share of a host: element `elem` of its allocation vector.
struct Share {
    RsvEnt *ent;
    int elem;
};

// Made in place and never destroyed, so that a table freed by a static
// object's destructor at exit still finds the set; an empty set allocates
// nothing.
std::unordered_set<const RsvTimeTbl *> &lazyTables()
{
    using Tables = std::unordered_set<const RsvTimeTbl *>;
    alignas(Tables) static unsigned char storage[sizeof(Tables)];
    static Tables *all = new (storage) Tables;
    return *all;
}

RsvEnt *entryOf(HashEnt *he)
{
    return he ? static_cast<RsvEnt *>(he->value) : nullptr;
}

bool namesHost(const AllocElem &elem, const char *hostName)
{
    return elem.hostName && std::strcmp(elem.hostName, hostName) == 0;
}

// Every share of `hostName` in the table, in entry order, then element order.
// Throws std::bad_alloc.
std::vector<Share> sharesOf(RsvTimeTbl *tbl, const char *hostName)
{
    std::vector<Share> shares;
    HashIter iter;
    for (HashEnt *he = h_firstEnt_(&tbl->entries, &iter); he; he = h_nextEnt_(&iter)) {
        RsvEnt *ent = entryOf(he);
        for (int i = 0; ent && ent->allocVector && i < ent->numHosts; ++i)
            if (namesHost(ent->allocVector[i], hostName))
                shares.push_back({ent, i});
    }
    return shares;
}

bool namedByAnEntry(RsvTimeTbl *tbl, const char *hostName)
{
    HashIter iter;
    for (HashEnt *he = h_firstEnt_(&tbl->entries, &iter); he; he = h_nextEnt_(&iter)) {
        RsvEnt *ent = entryOf(he);
        for (int i = 0; ent && ent->allocVector && i < ent->numHosts; ++i)
            if (namesHost(ent->allocVector[i], hostName))
                return true;
    }
    return false;
}

// The weeks the one-off bookings of `shares` reach, each added to the list as
// an empty planner where the list has none, in the order the bookings would
// have added them. False when memory runs out.
bool addOneOffWeeks(List *list, const char *hostName, const std::vector<Share> &shares)
{
    for (const Share &share : shares) {
        const RsvEnt *ent = share.ent;
        if ((ent->options & RSV_OPT_RECURRING) || !ent->timeWindow)
            continue;
        int numWeeks = 0;
        rsv::CPtr<RsvWeek> weeks(RsvTimeWindow_getWeeks(ent->timeWindow, &numWeeks));
        for (int w = 0; w < numWeeks; ++w) {
            const RsvWeek *week = &weeks.get()[w];
            if (rsv::plannerOfWeek(list, week))
                continue;
            ResPlanner *planner = ResPlanner_new(hostName, week);
            if (!planner)
                return false;
            listInsertEntryAtBack(list, &planner->links);
        }
    }
    return true;
}

} // namespace

namespace rsv {

bool plannersLazy(const RsvTimeTbl *tbl) noexcept
{
    return tbl && lazyTables().count(tbl) != 0;
}

void dropLazyPlanners(const RsvTimeTbl *tbl) noexcept
{
    if (tbl)
        lazyTables().erase(tbl);
}

List *buildPlannerList(RsvTimeTbl *tbl, const char *hostName) noexcept
{
    const unsigned long failures = allocationFailures();
    List *list = newPlannerList(hostName);
    if (!list)
        return nullptr;
    try {
        const std::vector<Share> shares = sharesOf(tbl, hostName);
        // With every week in place first, no booking below makes a planner,
        // so none takes the recurring bookings in twice.
        bool complete = addOneOffWeeks(list, hostName, shares);
        for (size_t i = 0; complete && i < shares.size(); ++i) {
            RsvEnt *ent = shares[i].ent;
            const AllocElem &elem = ent->allocVector[shares[i].elem];
            ResPlannerList_map(list, tbl, hostName, ent->timeWindow, ent->options & RSV_OPT_RECURRING,
                               ResPlannerEnt_incr, elem.numSlots, 1, ent);
        }
        // A booking step that ran short skips its work: the list would lack it.
        if (complete && allocationFailures() == failures)
            return list;
    } catch (const std::bad_alloc &) {
        noteAllocationFailure();
    }
    destroyPlannerList(list);
    return nullptr;
}

List *plannerListIfAny(RsvTimeTbl *tbl, const char *hostName) noexcept
{
    HashEnt *he = h_getEnt_(&tbl->plannerLists, hostName);
    if (he)
        return static_cast<List *>(he->value);
    if (!plannersLazy(tbl) || !namedByAnEntry(tbl, hostName))
        return nullptr;
    return RsvTimeTbl_getPlannerList(tbl, hostName);
}

bool buildAllPlannerLists(RsvTimeTbl *tbl) noexcept
{
    try {
        // Each host once, in the order the start-up bookings would reach them.
        std::vector<const char *> hosts;
        std::unordered_set<std::string_view> seen;
        HashIter iter;
        for (HashEnt *he = h_firstEnt_(&tbl->entries, &iter); he; he = h_nextEnt_(&iter)) {
            RsvEnt *ent = entryOf(he);
            for (int i = 0; ent && ent->allocVector && i < ent->numHosts; ++i) {
                const char *host = ent->allocVector[i].hostName;
                if (host && !h_getEnt_(&tbl->plannerLists, host) && seen.insert(host).second)
                    hosts.push_back(host);
            }
        }
        for (const char *host : hosts)
            if (!RsvTimeTbl_getPlannerList(tbl, host))
                return false;
        return true;
    } catch (const std::bad_alloc &) {
        noteAllocationFailure();
        return false;
    }
}

} // namespace rsv

extern "C" {

int RsvTimeTbl_setLazyPlanners(RsvTimeTbl *tbl, int lazy)
{
    if (!tbl)
        return -1;
    const int previous = rsv::plannersLazy(tbl) ? 1 : 0;
    if (lazy) {
        try {
            lazyTables().insert(tbl);
        } catch (const std::bad_alloc &) {
            rsv::noteAllocationFailure();
            qob_errno = RSV_ERR_NO_MEMORY;
            return -1;
        }
        return previous;
    }
    if (previous && !rsv::buildAllPlannerLists(tbl)) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return -1;
    }
    rsv::dropLazyPlanners(tbl);
    return previous;
}

int RsvTimeTbl_isLazyPlanners(const RsvTimeTbl *tbl)
{
    return rsv::plannersLazy(tbl) ? 1 : 0;
}

} // extern "C"
