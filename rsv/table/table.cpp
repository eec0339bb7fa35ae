// The reservation table: adding a request end to end, look-up, replacement,
// restoration at start-up, removal, the daemon's name table, the host checks
// after reconfiguration, the temporary partial copy used to try a change, and
// the official-host set.
#include <cstdint>
#include <cstring>

#include "persist/persist_internal.h"
#include "planner/planner_internal.h"
#include "rsv_internal.h"
#include "table/change.h"

namespace {

constexpr int kDebugOrTrace = LC_RSV | LC_TRACE;  // 0x10000004
constexpr int kFileOrTrace = LC_FILE | LC_TRACE;  // 0x200004

// The whole week of a recurring planner, as the planners read it.
constexpr char kWholeWeek[] = "0:0:0-6:24:0";

constexpr char kOverReserved[] =
    "%s: host <%s> has been over-reserved by advance reservations, some jobs may not be able to start.  "
    "Use arlist(1) command to check the reservations\n";
constexpr char kHostGone[] =
    "%s: host <%s> reserved by reservation <%s> not longer exists. Configuration changed?";

RsvEnt *entryOf(HashEnt *he)
{
    return he ? static_cast<RsvEnt *>(he->value) : nullptr;
}

// The shallow copies of a temporary table own none of their members.
void freeShallowEntry(void *entry)
{
    free(entry);
}

// Removes the reservations of `rsvIds` (all in the table, none twice) in one
// change: their bookings are released, and they leave the table (and the
// daemon's name table) when the change is kept. 0, or 55/RSV_ERR_NOT_SAVED
// with nothing changed.
int removeAll(RsvTimeTbl *tbl, const char *const *rsvIds, int count)
{
    rsv::Change change(tbl);
    if (!change.started()) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return RSV_ERR_NO_MEMORY;
    }
    for (int i = 0; i < count; ++i) {
        HashEnt *he = h_getEnt_(&tbl->entries, rsvIds[i]);
        auto *ent = he ? static_cast<RsvEnt *>(he->value) : nullptr;
        if (!ent) {
            // A key without a record holds no bookings: it just goes.
            if (he)
                rsv::OwnerIndex_delEnt(tbl, he);
            continue;
        }
        if (!change.removing(ent)) {
            qob_errno = RSV_ERR_NO_MEMORY;
            return RSV_ERR_NO_MEMORY;
        }
        Rsv_dealloc(tbl, ent);
    }
    return change.finish();
}

// Checks the request against the hosts' free slots, makes an identifier,
// books the slots and records the reservation, then writes the state and id
// files. Returns the new identifier (a heap text the caller frees), or NULL
// with qob_errno: the reservable-count error (52, 55, 190), 190 when fewer
// slots than the minimum (or none) are free, 192 when no identifier can be
// made (also when the identifier is already in the table), 55 when memory
// runs out on the way, or in durable mode RSV_ERR_NOT_SAVED. On failure
// nothing is booked and the table, the owner's counter and the files are
// unchanged, but a system request's minimum and maximum are already set to
// the reservable count and asked host names may have been replaced by
// official names. The creator (NULL: none) is stored in the entry before
// the save, so the saved record carries it.
char *addEntryMadeBy(RsvTimeTbl *tbl, RsvReq *req, const char *creator)
{
    rsv::Change change(tbl);
    if (tbl && !change.started()) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return nullptr;
    }
    // The names in the candidates are shared with the request's askedHosts:
    // only the array itself is released here.
    ResAlloc *rawCandidates = nullptr;
    int reservable = RsvTimeTbl_getReservableAlloc(tbl, req, &rawCandidates, nullptr);
    rsv::CPtr<ResAlloc> candidates(rawCandidates);
    if (reservable < 0)
        return nullptr;
    if (change.ranShort()) {
        // A host's planners could not be read whole: the count is not sure.
        qob_errno = RSV_ERR_NO_MEMORY;
        return nullptr;
    }
    if (reservable < req->minNumProcs || reservable == 0) {
        qob_errno = RSV_ERR_NOT_ENOUGH_SLOTS;
        return nullptr;
    }
    // A system reservation takes every reservable slot.
    if (req->options & RSV_OPT_SYSTEM) {
        req->minNumProcs = reservable;
        req->maxNumProcs = reservable;
    }

    if (!change.keepCounter(req->name)) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return nullptr;
    }
    rsv::CPtr<char> id(RsvId_new(tbl, req));
    if (!id || h_getEnt_(&tbl->entries, id.get())) {
        // An identifier already in use (a name-only request may ask for one)
        // would overwrite a booked reservation.
        qob_errno = change.ranShort() ? RSV_ERR_NO_MEMORY : RSV_ERR_NO_RSV_ID;
        return nullptr;
    }

    RsvEnt *ent = RsvEnt_new(req->options, req->name, req->timeWindow);
    if (!ent)
        return nullptr;
    if (!change.added(ent)) {
        rsv::freeEntry(ent);
        qob_errno = RSV_ERR_NO_MEMORY;
        return nullptr;
    }
    ent->rsvId = rsv::dupText(id.get());
    if (!ent->rsvId) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return nullptr;
    }
    ent->numHosts = Rsv_alloc(tbl, req->numAskedHosts, candidates.get(), req, &ent->allocVector, "just_enough");
    if (req->description && req->description[0] != '\0')
        ent->description = rsv::dupText(req->description);
    if (creator) {
        std::strncpy(ent->creator, creator, sizeof ent->creator - 1);
        ent->creator[sizeof ent->creator - 1] = '\0';
    }
    // Entered only once booked: a planner made while booking walks the table
    // and must find complete entries there.
    if (HashEnt *he = h_addEnt_(&tbl->entries, ent->rsvId, nullptr))
        he->value = ent;
    else
        rsv::noteAllocationFailure();

    // Out of memory anywhere on the way (a host name, a planner, the
    // description) undoes the whole add.
    if (change.finish() != RSV_OK)
        return nullptr;
    return id.release();
}

} // namespace

extern "C" {

// Checks the request against the hosts' free slots, makes an identifier,
// books the slots and records the reservation, then writes the state and id
// files; see addEntryMadeBy.
char *RsvTimeTbl_addEntry(RsvTimeTbl *tbl, RsvReq *req)
{
    static constexpr const char *kFunc = "RsvTimeTbl_addEntry";
    if (rsv::logOn(kDebugOrTrace))
        kx_syslog(KX_LOG_DEBUG, "%s: Entering this routine...", kFunc);
    return addEntryMadeBy(tbl, req, nullptr);
}

// RsvTimeTbl_addEntry that also records who made the reservation, in the
// same change and the same save.
char *RsvTimeTbl_addEntryBy(RsvTimeTbl *tbl, RsvReq *req, const char *creator)
{
    static constexpr const char *kFunc = "RsvTimeTbl_addEntryBy";
    if (rsv::logOn(kDebugOrTrace))
        kx_syslog(KX_LOG_DEBUG, "%s: Entering this routine...", kFunc);
    if (creator && (creator[0] == '\0' || std::strlen(creator) >= sizeof(RsvEnt{}.creator) ||
                    std::strpbrk(creator, " \t\n\r\"") != nullptr)) {
        qob_errno = RSV_ERR_BAD_ARGUMENT;
        return nullptr;
    }
    return addEntryMadeBy(tbl, req, creator);
}

// The entry of `rsvId`, still owned by the table; NULL when absent or when
// an argument is NULL.
RsvEnt *RsvTimeTbl_getEntry(RsvTimeTbl *tbl, const char *rsvId)
{
    if (!tbl || !rsvId)
        return nullptr;
    return entryOf(h_getEnt_(&tbl->entries, rsvId));
}

// Puts `newEntry` (now owned by the table) in place of the entry of `rsvId`,
// which is destroyed and freed. Bookings and files are left alone: the
// caller keeps them in step. -1 when the identifier is absent (the new entry
// stays the caller's). Replacing an entry by itself changes nothing.
int RsvTimeTbl_replaceEntry(RsvTimeTbl *tbl, const char *rsvId, RsvEnt *newEntry)
{
    if (!tbl || !rsvId)
        return -1;
    HashEnt *he = h_getEnt_(&tbl->entries, rsvId);
    if (!he)
        return -1;
    auto *old = static_cast<RsvEnt *>(he->value);
    if (old == newEntry)
        return 0;
    // rsvId may be the old entry's own text: it is not used after this.
    if (old)
        rsv::freeEntry(old);
    he->value = newEntry;
    rsv::noteRecurringChange();
    return 0;
}

// Start-up: books a reservation read back from the state file into its
// hosts' planners, records it under its identifier and advances its owner's
// counter. No file is written. The table takes the entry only when it has at
// least one host; an entry with no hosts stays the caller's (it must free
// it; RsvTimeTbl_getEntry tells which) although the counter still advances.
// An identifier restored twice keeps the later record: the earlier one's
// bookings are released and it is freed.
void RsvTimeTbl_restoreEntry(RsvTimeTbl *tbl, RsvEnt *ent)
{
    static constexpr const char *kFunc = "RsvTimeTbl_restoreEntry";
    if (!tbl || !ent) {
        if (rsv::logOn(kFileOrTrace))
            kx_syslog(KX_LOG_DEBUG, "%s: input parameters are NULL", kFunc);
        return;
    }

    if (ent->rsvId && ent->numHosts > 0 && ent->allocVector) {
        HashEnt *earlier = h_getEnt_(&tbl->entries, ent->rsvId);
        RsvEnt *old = entryOf(earlier);
        if (old && old != ent) {
            kx_syslog(KX_LOG_WARNING, "%s: reservation <%s> restored twice; the later record replaces the earlier",
                      kFunc, ent->rsvId);
            Rsv_dealloc(tbl, old);
            rsv::OwnerIndex_delEnt(tbl, earlier);
            rsv::freeEntry(old);
            rsv::noteRecurringChange();
        }
    }

    for (int i = 0; ent->allocVector && i < ent->numHosts; ++i) {
        const AllocElem &elem = ent->allocVector[i];
        if (!elem.hostName)
            continue;
        // A lazy table books an unbuilt host when its planners are built.
        const bool unbuilt = rsv::plannersLazy(tbl) && !h_getEnt_(&tbl->plannerLists, elem.hostName);
        List *list = unbuilt ? nullptr : RsvTimeTbl_getPlannerList(tbl, elem.hostName);
        ResPlannerList_map(list, tbl, elem.hostName, ent->timeWindow, ent->options & RSV_OPT_RECURRING,
                           ResPlannerEnt_incr, elem.numSlots, 1, ent);
        // Added once per host, always the same key and value: the entry is
        // in the table exactly when it has a host, which the load relies on.
        if (ent->rsvId) {
            if (HashEnt *he = h_addEnt_(&tbl->entries, ent->rsvId, nullptr))
                he->value = ent;
        }
    }
    if (ent->rsvId)
        RsvId_setCur(ent->rsvId);
}

// Releases the reservation's bookings, drops its name-table entry (unless
// jobs still use it), removes it from the table, frees it, and writes the
// state and id files. 0; 191 when absent (nothing changed, no error number
// stored, no file written); 55 when memory runs out, or in durable mode
// RSV_ERR_NOT_SAVED, both also in qob_errno with nothing changed.
int RsvTimeTbl_removeEntry(RsvTimeTbl *tbl, const char *rsvId)
{
    if (!tbl || !rsvId)
        return RSV_ERR_NO_RSV;
    HashEnt *he = h_getEnt_(&tbl->entries, rsvId);
    if (!he)
        return RSV_ERR_NO_RSV;
    return removeAll(tbl, &rsvId, 1);
}

// Removes every reservation of `rsvIds` in one change, or none.
int RsvTimeTbl_removeEntries(RsvTimeTbl *tbl, const char *const *rsvIds, int count, int *failedIndex)
{
    if (failedIndex)
        *failedIndex = -1;
    if (!tbl || !rsvIds || count < 1) {
        qob_errno = RSV_ERR_BAD_ARGUMENT;
        return RSV_ERR_BAD_ARGUMENT;
    }
    for (int i = 0; i < count; ++i) {
        bool named = rsvIds[i] && h_getEnt_(&tbl->entries, rsvIds[i]);
        for (int j = 0; named && j < i; ++j)
            named = std::strcmp(rsvIds[i], rsvIds[j]) != 0;
        if (!named) {
            if (failedIndex)
                *failedIndex = i;
            qob_errno = RSV_ERR_NO_RSV;
            return RSV_ERR_NO_RSV;
        }
    }
    return removeAll(tbl, rsvIds, count);
}

// Records `rsvId` in the daemon's name table as a name-only entry owned by
// that table. NULL table or identifier: nothing. Out of memory: nothing
// (the table is unchanged).
void RsvTimeTbl_addNameEntry(HashTab *nameTable, const char *rsvId)
{
    static constexpr const char *kFunc = "RsvTimeTbl_addNameEntry";
    if (rsv::logOn(LC_RSV))
        kx_syslog(KX_LOG_DEBUG, "%s: Entering this routine... ( rsvId: <%s> )", kFunc, rsvId ? rsvId : "NULL");
    if (!nameTable || !rsvId)
        return;
    RsvEnt *ent = RsvEnt_new(RSV_OPT_NAME_ONLY, rsvId, "");
    if (!ent)
        return;
    ent->rsvId = rsv::dupText(rsvId);
    HashEnt *he = ent->rsvId ? h_addEnt_(nameTable, ent->rsvId, nullptr) : nullptr;
    if (!he) {
        rsv::freeEntry(ent);
        return;
    }
    // An earlier entry under the same key is not released: the daemon may
    // still hold it through the jobs that name it.
    he->value = ent;
}

// Drops the name-only entry of `rsvId` from the daemon's name table and
// frees it, unless jobs still refer to it (then it stays). 0 also when the
// table is NULL or empty or the identifier NULL; 191 when absent.
int RsvTimeTbl_removeNameEntry(HashTab *nameTable, const char *rsvId)
{
    static constexpr const char *kFunc = "RsvTimeTbl_removeNameEntry";
    if (!nameTable || h_TabEmpty_(nameTable) || !rsvId)
        return 0;
    if (rsv::logOn(LC_RSV))
        kx_syslog(KX_LOG_DEBUG, "%s: remove rsvId <%s> from rsvNameTbl", kFunc, rsvId);
    HashEnt *he = h_getEnt_(nameTable, rsvId);
    if (!he)
        return RSV_ERR_NO_RSV;
    auto *ent = static_cast<RsvEnt *>(he->value);
    // A name stays known while jobs still refer to it.
    if (ent && ent->numJobs != 0)
        return 0;
    h_delEnt_(nameTable, he);
    if (ent)
        rsv::freeEntry(ent);
    return 0;
}

// Warns (message 6100) when the most slots booked in any 10-minute cell of
// the host's planners exceed the host's slot limit. Unknown host: silent.
void RsvTimeTbl_checkHost(RsvTimeTbl *tbl, const char *hostName)
{
    static constexpr const char *kFunc = "RsvTimeTbl_checkHost";
    if (!tbl || !hostName || !miscFuncs.findHost)
        return;
    RsvHost *host = miscFuncs.findHost(hostName);
    if (!host)
        return;
    List *list = RsvTimeTbl_getPlannerList(tbl, hostName);
    if (!list)
        return;
    int maximum = 0;
    ResPlannerList_map(list, tbl, hostName, kWholeWeek, 1, ResPlannerEnt_getMaxRsv,
                       static_cast<int64_t>(reinterpret_cast<intptr_t>(&maximum)), 0, nullptr);
    if (maximum > host->maxSlots)
        kx_syslog(KX_LOG_WARNING, kx_catgets(kx_catd, rsv::kCatSetRsv, 6100, kOverReserved), kFunc, hostName);
}

// After the daemon reloads its hosts: logs an error (message 6101) for every
// reserved host that no longer exists, keeping the reservation as it is, and
// checks every planned host for over-reservation. No file is written.
void RsvTimeTbl_checkEntries(RsvTimeTbl *tbl)
{
    static constexpr const char *kFunc = "RsvTimeTbl_checkEntries";
    if (!tbl || !miscFuncs.findHost)
        return;
    HashIter iter;
    for (HashEnt *he = h_firstEnt_(&tbl->entries, &iter); he; he = h_nextEnt_(&iter)) {
        RsvEnt *ent = entryOf(he);
        if (!ent || !ent->allocVector)
            continue;
        for (int i = 0; i < ent->numHosts; ++i) {
            const char *host = ent->allocVector[i].hostName;
            if (host && !miscFuncs.findHost(host))
                kx_syslog(KX_LOG_ERR, kx_catgets(kx_catd, rsv::kCatSetRsv, 6101, kHostGone), kFunc, host,
                          ent->rsvId ? ent->rsvId : "");
        }
    }
    // The host's list already exists, so checking it adds no key to the
    // table being walked; a lazy table builds every host's first.
    if (rsv::plannersLazy(tbl))
        rsv::buildAllPlannerLists(tbl);
    for (HashEnt *he = h_firstEnt_(&tbl->plannerLists, &iter); he; he = h_nextEnt_(&iter))
        RsvTimeTbl_checkHost(tbl, he->key);
}

// Copies into `tmpTbl` a shallow copy of `ent` (members shared with the real
// entry) and a deep copy of each of its hosts' planner lists (planner names
// shared), so that a change can be tried without touching the real planners.
// 0, or -1 for a NULL argument, an identifier already copied, a host already
// copied or an allocation failure; what was copied so far stays in `tmpTbl`.
int Rsv_dupTimeTbl4CurrRsv(RsvTimeTbl *tbl, RsvEnt *ent, RsvTimeTbl *tmpTbl)
{
    static constexpr const char *kFunc = "Rsv_dupTimeTbl4CurrRsv";
    if (rsv::logOn(kDebugOrTrace))
        kx_syslog(KX_LOG_DEBUG, "%s: Entering...", kFunc);
    if (!tbl || !ent || !tmpTbl || !ent->rsvId)
        return -1;
    if (h_getEnt_(&tmpTbl->entries, ent->rsvId)) {
        if (rsv::logOn(LC_RSV))
            kx_syslog(KX_LOG_DEBUG, "%s: The rsvID <%s> is already in duplicated TimeTable", kFunc, ent->rsvId);
        return -1;
    }
    auto *copy = static_cast<RsvEnt *>(rsv::allocRecord(1, sizeof(RsvEnt), kFunc));
    if (!copy)
        return -1;
    std::memcpy(copy, ent, sizeof(RsvEnt));
    HashEnt *he = h_addEnt_(&tmpTbl->entries, ent->rsvId, nullptr);
    if (!he) {
        free(copy);
        return -1;
    }
    he->value = copy;

    for (int i = 0; ent->allocVector && i < ent->numHosts; ++i) {
        const char *host = ent->allocVector[i].hostName;
        if (!host)
            continue;
        List *real = RsvTimeTbl_getPlannerList(tbl, host);
        if (!real)
            return -1;
        ResPlannerList_trimOutdatedPlanners(real);
        if (h_getEnt_(&tmpTbl->plannerLists, host)) {
            // The text says "find" although the list is already there: a host
            // may be copied only once, and daemons match on this message.
            if (rsv::logOn(LC_RSV))
                kx_syslog(KX_LOG_DEBUG, "%s: cannot find the planner list of <%s>", kFunc, host);
            return -1;
        }
        List *dup = listDup(real, static_cast<int>(sizeof(ResPlanner)));
        HashEnt *lists = dup ? h_addEnt_(&tmpTbl->plannerLists, host, nullptr) : nullptr;
        if (!lists) {
            if (dup)
                freePlanner(dup);
            if (rsv::logOn(LC_RSV))
                kx_syslog(KX_LOG_DEBUG, "%s: cannot duplicate the planner list of  <%s>", kFunc, host);
            return -1;
        }
        lists->value = dup;
    }
    return 0;
}

// Releases a temporary table filled by Rsv_dupTimeTbl4CurrRsv: its copied
// planners (not their shared names), its shallow entry records (not their
// shared members), its file names and the record. NULL is ignored.
void RsvTimeTbl_freeTmpTable(RsvTimeTbl *tmpTbl)
{
    if (!tmpTbl)
        return;
    rsv::dropRecurringIndex(tmpTbl);
    rsv::OwnerIndex_drop(tmpTbl);
    rsv::dropTableSettings(tmpTbl);
    h_freeTab_(&tmpTbl->plannerLists, freePlanner);
    h_freeTab_(&tmpTbl->entries, freeShallowEntry);
    free(tmpTbl->stateFile);
    free(tmpTbl->idFile);
    free(tmpTbl);
}

// Adds the official name of `hostName` to the set *hostSet (value: an int 1
// owned by the set, freed with free). 0 also when the host is already there
// (left as it is); -1 for a NULL argument (no error number), -1 with
// qob_errno 23 for an unknown host or 55 when memory runs out. On failure
// the set is unchanged.
int RsvMod_aHostInTab(HashTab **hostSet, const char *hostName)
{
    if (!hostName || !hostSet || !*hostSet || !miscFuncs.officialHostName)
        return -1;
    rsv::CPtr<char> official(miscFuncs.officialHostName(hostName));
    if (!official) {
        qob_errno = RSV_ERR_BAD_HOST;
        return -1;
    }
    int isNew = 0;
    HashEnt *he = h_addEnt_(*hostSet, official.get(), &isNew);
    if (!he) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return -1;
    }
    if (isNew) {
        // Through the daemon's allocator, so that it can report (and a test
        // can simulate) the shortage like every other allocation.
        auto *flag = static_cast<int *>(rsv::allocRecord(1, sizeof(int), "RsvMod_aHostInTab"));
        if (!flag) {
            h_delEnt_(*hostSet, he);
            qob_errno = RSV_ERR_NO_MEMORY;
            return -1;
        }
        *flag = 1;
        he->value = flag;
    }
    return 0;
}

} // extern "C"
