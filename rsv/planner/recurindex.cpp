// recurindex.cpp: the recurring shares of each host, kept per table, so that
// a new dated planner starts with the recurring bookings of its host without
// a walk over every reservation of the table (see planner_internal.h for why
// the index always gives what the walk gives).
#include <cstdio>
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
#include "restorebook.h"
#include "rsv_internal.h"

namespace {

using Share = rsv::HostShare;
using Shares = std::vector<Share>;

using rsv::NameHash;

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
// exit still finds it. Made in place: an empty map allocates nothing, so the
// first use cannot throw (it may come from a call that frees a table).
Indexes &indexes()
{
    alignas(Indexes) static unsigned char storage[sizeof(Indexes)];
    static Indexes *all = new (storage) Indexes;
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

using HostShares = std::unordered_map<std::string, Shares, NameHash, std::equal_to<>>;

// The index of `tbl` when the next use would take it as it is (extending it
// at most); NULL when there is none or it would be made again.
const TableIndex *indexInUse(const RsvTimeTbl *tbl)
{
    auto found = indexes().find(tbl);
    if (found == indexes().end() || !found->second)
        return nullptr;
    const TableIndex *index = found->second.get();
    if (!index->made || index->delStamp != tbl->entries.delStamp || index->generation != changeGeneration)
        return nullptr;
    return index;
}

// The shares of the entries up to the index's last one, as the walk finds
// them now; `inTable` gets those entries. False when the last entry is not
// in the table.
bool walkToLastSeen(RsvTimeTbl *tbl, const TableIndex &index, HostShares &walked,
                    std::unordered_set<const RsvEnt *> &inTable)
{
    if (!index.lastSeen)
        return true;
    for (HashEnt *he = h_nextEntAfter_(&tbl->entries, nullptr); he; he = h_nextEntAfter_(&tbl->entries, he)) {
        auto *ent = static_cast<RsvEnt *>(he->value);
        if (ent) {
            inTable.insert(ent);
            for (int i = 0; (ent->options & RSV_OPT_RECURRING) && ent->allocVector && i < ent->numHosts; ++i)
                if (const char *host = ent->allocVector[i].hostName)
                    walked[host].push_back({ent, i});
        }
        if (he == index.lastSeen)
            return true;
    }
    return false;
}

void reportLine(RsvVerifyProblem report, void *context, const char *line)
{
    if (report)
        report(context, line);
}

// One host: what the index would book against what the walk books. True
// when they agree (or when the index would be dropped and the walk used).
bool hostAgrees(const char *host, const Shares *indexed, const Shares *walked,
                const std::unordered_set<const RsvEnt *> &inTable, RsvVerifyProblem report, void *context)
{
    char line[512];
    Shares given;
    for (size_t k = 0; indexed && k < indexed->size(); ++k) {
        const Share &share = (*indexed)[k];
        if (!inTable.count(share.ent)) {
            std::snprintf(line, sizeof line, "recurring index: host <%s> holds a reservation no longer in the table",
                          host);
            reportLine(report, context, line);
            return false;
        }
        if (!stillMatches(share, host))
            return true; // the index is dropped on use and the walk books
        if (share.ent->options & RSV_OPT_RECURRING)
            given.push_back(share);
    }
    const size_t expected = walked ? walked->size() : 0;
    for (size_t k = 0; k < given.size() || k < expected; ++k) {
        const Share *a = k < given.size() ? &given[k] : nullptr;
        const Share *b = k < expected ? &(*walked)[k] : nullptr;
        if (a && b && a->ent == b->ent && a->elem == b->elem)
            continue;
        const Share *s = b ? b : a;
        std::snprintf(line, sizeof line,
                      "recurring index: host <%s> gets %zu recurring shares from the index, the reservations "
                      "hold %zu (first difference: reservation <%s> element %d)",
                      host, given.size(), expected, s->ent->rsvId ? s->ent->rsvId : "", s->elem);
        reportLine(report, context, line);
        return false;
    }
    return true;
}

int compareIndexWithWalk(RsvTimeTbl *tbl, RsvVerifyProblem report, void *context)
{
    const TableIndex *index = indexInUse(tbl);
    if (!index)
        return 0;
    HostShares walked;
    std::unordered_set<const RsvEnt *> inTable;
    if (!walkToLastSeen(tbl, *index, walked, inTable)) {
        reportLine(report, context, "recurring index: its last entry taken in is no longer in the table");
        return 1;
    }
    int problems = 0;
    for (const auto &[host, shares] : index->byHost) {
        auto w = walked.find(host);
        if (!hostAgrees(host.c_str(), &shares, w == walked.end() ? nullptr : &w->second, inTable, report, context))
            ++problems;
    }
    for (const auto &[host, shares] : walked)
        if (index->byHost.find(host) == index->byHost.end() &&
            !hostAgrees(host.c_str(), nullptr, &shares, inTable, report, context))
            ++problems;
    return problems;
}

// The index of `tbl`, made or brought up to date; NULL when it cannot serve
// (switched off, or out of memory: this and later calls walk the table
// until an index can be made again).
TableIndex *usableIndex(RsvTimeTbl *tbl)
{
    if (!indexEnabled)
        return nullptr;
    try {
        return currentIndex(tbl);
    } catch (const std::bad_alloc &) {
        rsv::dropRecurringIndex(tbl);
        return nullptr;
    }
}

// The recurring shares of `hostName` in `index` (NULL: no recurring
// reservation holds the host).
const Shares *sharesOf(TableIndex *index, const char *hostName)
{
    auto it = index->byHost.find(std::string_view(hostName));
    return it == index->byHost.end() ? nullptr : &it->second;
}

} // namespace

namespace rsv {

int checkRecurringIndex(RsvTimeTbl *tbl, RsvVerifyProblem report, void *context) noexcept
{
    if (!tbl)
        return -1;
    try {
        return compareIndexWithWalk(tbl, report, context);
    } catch (const std::bad_alloc &) {
        return -1;
    }
}

bool addRecursFromIndex(ResPlanner *planner, RsvTimeTbl *tbl, const char *hostName)
{
    if (!planner || !tbl || !hostName)
        return false;
    TableIndex *index = usableIndex(tbl);
    if (!index)
        return false;
    const Shares *found = sharesOf(index, hostName);
    if (!found)
        return true; // no recurring reservation holds this host
    const Shares &shares = *found;
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
    if (!tbl || !hostName)
        return false;
    TableIndex *index = usableIndex(tbl);
    if (!index)
        return false;
    const Shares *shares = sharesOf(index, hostName);
    if (!shares)
        return true;
    for (const Share &share : *shares) {
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

unsigned long long recordChangeGeneration()
{
    return changeGeneration;
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
