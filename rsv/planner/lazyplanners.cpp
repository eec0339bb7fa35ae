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
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "planner_internal.h"
#include "restorebook.h"
#include "rsv_internal.h"

namespace {

using Share = rsv::HostShare;
using Shares = std::vector<Share>;

using rsv::NameHash;

// Every host's shares in a lazy table, in entry order, then element order,
// taken in one walk of the entries and kept while no entry comes or goes and
// no entry's record or allocation vector is replaced (what the recurring
// index follows too), so that building many hosts costs one walk, not one
// per host. The first few hosts a table builds gather only their own shares
// instead: a front end that changes one reservation builds one or two hosts,
// and sorting every host's shares for them costs more than the walk itself.
struct SharesByHost {
    int singleWalks = 0;
    bool made = false;
    unsigned long long delStamp = 0;
    unsigned long long generation = 0;
    int numEntries = 0;
    std::unordered_map<std::string, Shares, NameHash, std::equal_to<>> byHost;
};

// The lazy tables, each with its shares. Made in place and never destroyed,
// so that a table freed by a static object's destructor at exit still finds
// the map; an empty map allocates nothing.
using LazyTables = std::unordered_map<const RsvTimeTbl *, SharesByHost>;
LazyTables &lazyTables()
{
    alignas(LazyTables) static unsigned char storage[sizeof(LazyTables)];
    static LazyTables *all = new (storage) LazyTables;
    return *all;
}

RsvEnt *entryOf(HashEnt *he)
{
    return he ? static_cast<RsvEnt *>(he->value) : nullptr;
}

// The shares of `tbl` (a lazy table), taken again when the entries changed.
// Throws std::bad_alloc (the shares are then dropped).
const SharesByHost &currentShares(RsvTimeTbl *tbl)
{
    SharesByHost &shares = lazyTables()[tbl];
    const int numEntries = h_numEnts_(&tbl->entries);
    if (shares.made && shares.delStamp == tbl->entries.delStamp &&
        shares.generation == rsv::recordChangeGeneration() && shares.numEntries == numEntries)
        return shares;
    shares.made = false;
    shares.byHost.clear();
    try {
        HashIter iter;
        for (HashEnt *he = h_firstEnt_(&tbl->entries, &iter); he; he = h_nextEnt_(&iter)) {
            RsvEnt *ent = entryOf(he);
            for (int i = 0; ent && ent->allocVector && i < ent->numHosts; ++i) {
                const char *host = ent->allocVector[i].hostName;
                if (!host)
                    continue;
                auto found = shares.byHost.find(std::string_view(host));
                if (found == shares.byHost.end())
                    found = shares.byHost.emplace(host, Shares()).first;
                found->second.push_back({ent, i});
            }
        }
    } catch (...) {
        shares.byHost.clear();
        throw;
    }
    shares.delStamp = tbl->entries.delStamp;
    shares.generation = rsv::recordChangeGeneration();
    shares.numEntries = numEntries;
    shares.made = true;
    return shares;
}

// Hosts a lazy table gathers alone, each in its own walk, before it takes
// every host's shares in one walk and keeps them.
constexpr int kSingleWalks = 4;

// Whether `tbl` (a lazy table) still gathers a host's shares alone: before
// it has done so kSingleWalks times, and while every host's are not taken.
bool gathersAlone(RsvTimeTbl *tbl)
{
    const SharesByHost &shares = lazyTables()[tbl];
    return !shares.made && shares.singleWalks < kSingleWalks;
}

// Appends the shares of `hostName` in `tbl` to `out`, in the order of
// currentShares; with `firstOnly` stops at the first. Throws std::bad_alloc.
void gatherShares(RsvTimeTbl *tbl, const char *hostName, bool firstOnly, Shares &out)
{
    HashIter iter;
    for (HashEnt *he = h_firstEnt_(&tbl->entries, &iter); he; he = h_nextEnt_(&iter)) {
        RsvEnt *ent = entryOf(he);
        for (int i = 0; ent && ent->allocVector && i < ent->numHosts; ++i) {
            const char *host = ent->allocVector[i].hostName;
            if (!host || std::strcmp(host, hostName) != 0)
                continue;
            out.push_back({ent, i});
            if (firstOnly)
                return;
        }
    }
}

// Whether `hostName` holds a share of a reservation in `tbl` (a lazy
// table). Throws std::bad_alloc.
bool hasShares(RsvTimeTbl *tbl, const char *hostName)
{
    if (gathersAlone(tbl)) {
        Shares first;
        gatherShares(tbl, hostName, true, first);
        return !first.empty();
    }
    const SharesByHost &shares = currentShares(tbl);
    return shares.byHost.find(std::string_view(hostName)) != shares.byHost.end();
}

// The shares of `hostName` in `tbl`, empty when it has none: a copy, since
// the booking that reads them may have the table's shares taken again.
// Throws std::bad_alloc.
Shares sharesOf(RsvTimeTbl *tbl, const char *hostName)
{
    Shares out;
    if (gathersAlone(tbl)) {
        ++lazyTables()[tbl].singleWalks;
        gatherShares(tbl, hostName, false, out);
        return out;
    }
    const SharesByHost &shares = currentShares(tbl);
    const auto found = shares.byHost.find(std::string_view(hostName));
    if (found != shares.byHost.end())
        out = found->second;
    return out;
}

// The weeks the one-off bookings of `shares` reach, each added to the list as
// an empty planner where the list has none, in the order the bookings would
// have added them. False when memory runs out.
bool addOneOffWeeks(List *list, const char *hostName, const Shares &shares)
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
        const Shares shares = sharesOf(tbl, hostName);
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

List *plannerListIfAny(RsvTimeTbl *tbl, const char *hostName, bool &failed) noexcept
{
    failed = false;
    HashEnt *he = h_getEnt_(&tbl->plannerLists, hostName);
    if (he)
        return static_cast<List *>(he->value);
    if (!plannersLazy(tbl))
        return nullptr;
    try {
        if (!hasShares(tbl, hostName))
            return nullptr;
    } catch (const std::bad_alloc &) {
        noteAllocationFailure();
        failed = true;
        return nullptr;
    }
    List *list = RsvTimeTbl_getPlannerList(tbl, hostName);
    failed = list == nullptr;
    return list;
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
            lazyTables().try_emplace(tbl);
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
