// recurindex.cpp: the recurring shares of each host, kept per table, so that
// a new dated planner starts with the recurring bookings of its host without
// a walk over every reservation of the table (see planner_internal.h for why
// the index always gives what the walk gives).
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "planner_internal.h"
#include "rsv_internal.h"

namespace {

// Element `elem` of a recurring entry's allocation vector.
struct Share {
    RsvEnt *ent;
    int elem;
};
using Shares = std::vector<Share>;

// Looks host names up without making a std::string of them.
struct NameHash {
    using is_transparent = void;
    size_t operator()(std::string_view name) const noexcept { return std::hash<std::string_view>{}(name); }
};

struct TableIndex {
    bool made = false;                 // false: make it from the table's start
    unsigned long long delStamp = 0;   // the entry table's delStamp when made
    unsigned long long generation = 0; // the change generation when made
    HashEnt *lastSeen = nullptr;       // the last entry taken in; NULL: none
    // Keys are the index's own copies: an entry's names go when its vector
    // is replaced.
    std::unordered_map<std::string, Shares, NameHash, std::equal_to<>> byHost;
};

using Indexes = std::unordered_map<const RsvTimeTbl *, std::unique_ptr<TableIndex>>;

// Never destroyed, so that a table freed by a static object's destructor at
// exit still finds it.
Indexes &indexes()
{
    static auto *all = new Indexes;
    return *all;
}

unsigned long long changeGeneration = 0;
bool indexEnabled = true;
bool buildFails = false;
unsigned long rebuildCount = 0;

// Take in the entries of `tbl` after the last one seen, or all of them when
// the index is new or out of date. NULL when an entry has no record yet (it
// is not taken in, nor anything after it). Throws std::bad_alloc; the
// caller then drops the index, whose last entry may be half taken in.
TableIndex *currentIndex(RsvTimeTbl *tbl)
{
    if (buildFails)
        throw std::bad_alloc();
    std::unique_ptr<TableIndex> &slot = indexes()[tbl];
    if (!slot)
        slot = std::make_unique<TableIndex>();
    TableIndex &index = *slot;
    HashTab *entries = &tbl->entries;
    if (!index.made || index.delStamp != entries->delStamp || index.generation != changeGeneration) {
        index.byHost.clear();
        index.lastSeen = nullptr;
        index.delStamp = entries->delStamp;
        index.generation = changeGeneration;
        index.made = true;
        ++rebuildCount;
    }
    for (HashEnt *he = h_nextEntAfter_(entries, index.lastSeen); he; he = h_nextEntAfter_(entries, he)) {
        auto *ent = static_cast<RsvEnt *>(he->value);
        if (!ent)
            return nullptr;
        if ((ent->options & RSV_OPT_RECURRING) && ent->allocVector) {
            for (int i = 0; i < ent->numHosts; ++i) {
                const char *host = ent->allocVector[i].hostName;
                if (!host)
                    continue;
                auto it = index.byHost.find(std::string_view(host));
                if (it == index.byHost.end())
                    it = index.byHost.emplace(std::string(host), Shares{}).first;
                it->second.push_back({ent, i});
            }
        }
        index.lastSeen = he;
    }
    return &index;
}

// A share still names `hostName` in its entry's vector. Anything else means
// the entry was changed behind the module's back: the index is not used.
bool stillMatches(const Share &share, const char *hostName)
{
    const RsvEnt *ent = share.ent;
    return ent->allocVector && share.elem < ent->numHosts && ent->allocVector[share.elem].hostName &&
           std::strcmp(ent->allocVector[share.elem].hostName, hostName) == 0;
}

} // namespace

namespace rsv {

bool addRecursFromIndex(ResPlanner *planner, RsvTimeTbl *tbl, const char *hostName)
{
    if (!indexEnabled || !planner || !tbl || !hostName)
        return false;
    TableIndex *index = nullptr;
    try {
        index = currentIndex(tbl);
    } catch (const std::bad_alloc &) {
        // Out of memory: this and later planners walk the table until an
        // index can be made again.
        dropRecurringIndex(tbl);
        return false;
    }
    if (!index)
        return false;
    auto it = index->byHost.find(std::string_view(hostName));
    if (it == index->byHost.end())
        return true; // no recurring reservation holds this host
    const Shares &shares = it->second;
    for (const Share &share : shares) {
        if (!stillMatches(share, hostName)) {
            dropRecurringIndex(tbl);
            return false;
        }
    }
    // Counts, windows and disabled days are the entry's current ones, as in
    // the walk; an entry that stopped recurring is skipped, as in the walk.
    for (const Share &share : shares) {
        RsvEnt *ent = share.ent;
        if (ent->options & RSV_OPT_RECURRING)
            ResPlanner_map(planner, ent->timeWindow, ResPlannerEnt_incr, ent->allocVector[share.elem].numSlots, ent);
    }
    return true;
}

bool recurringSharesSameEveryWeek(RsvTimeTbl *tbl, const char *hostName)
{
    if (!indexEnabled || !tbl || !hostName)
        return false;
    TableIndex *index = nullptr;
    try {
        index = currentIndex(tbl);
    } catch (const std::bad_alloc &) {
        dropRecurringIndex(tbl);
        return false;
    }
    if (!index)
        return false;
    auto it = index->byHost.find(std::string_view(hostName));
    if (it == index->byHost.end())
        return true;
    for (const Share &share : it->second) {
        if (!stillMatches(share, hostName))
            return false;
        const List *days = share.ent->disabledDurations;
        // Only disabled days make a recurring booking differ between weeks.
        if (days && days->forw != reinterpret_cast<const ListEntry *>(days))
            return false;
    }
    return true;
}

void noteRecurringChange()
{
    ++changeGeneration;
}

void dropRecurringIndex(const RsvTimeTbl *tbl)
{
    if (tbl)
        indexes().erase(tbl);
}

void setRecurringIndexEnabled(bool enabled)
{
    // Indexes are kept while switched off: stamps and generations still tell
    // what changed meanwhile, so switching back on must not hide a missing
    // invalidation from the tests that compare the two.
    indexEnabled = enabled;
}

bool recurringIndexEnabled()
{
    return indexEnabled;
}

void setRecurringIndexBuildFails(bool fails)
{
    buildFails = fails;
}

unsigned long recurringIndexRebuilds()
{
    return rebuildCount;
}

} // namespace rsv
