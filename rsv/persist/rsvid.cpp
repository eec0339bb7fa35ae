// Reservation identifiers ("owner#number"), the per-owner counters behind
// them and the id file that carries the counters across daemon restarts.
#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "persist/persist_internal.h"
#include "rsv_internal.h"

// Owner name -> last number handed out, kept as an int in the value slot.
// Module-level so that the counters outlive any one table; created on first
// use and released only by RsvId_clearTbl.
extern "C" {
HashTab *rsvIdTbl = nullptr;
}

namespace {

constexpr int kIdTblBuckets = 37;
constexpr int kDefaultMaxPerOwner = 100;
constexpr int kMaxPerOwnerLimit = 10000;
// Identifiers are built and copied in buffers of this size; longer ones are cut.
constexpr size_t kIdBufSize = 522;
// An owner word in the id file longer than this is a malformed record.
constexpr size_t kOwnerWordSize = 1024;

inline void *toValue(int n) { return reinterpret_cast<void *>(static_cast<intptr_t>(n)); }
inline int fromValue(const void *v) { return static_cast<int>(reinterpret_cast<intptr_t>(v)); }

// Owners whose numbers have gone round the per-owner limit (or were
// restored out of order) since the counters were last cleared: for them a
// counter below some of their numbers is expected. Never destroyed, so that
// a table freed at exit still finds it.
std::unordered_set<std::string> &wrappedOwners()
{
    static auto *owners = new std::unordered_set<std::string>;
    return *owners;
}

void noteWrapped(const char *owner)
{
    try {
        wrappedOwners().insert(owner);
    } catch (...) {
        // Only the table check reads it; it then names a counter it could
        // have let pass.
    }
}

// The counter table, created on first use. NULL only when memory runs out.
HashTab *idTbl(const char *caller)
{
    if (!rsvIdTbl) {
        auto *tab = static_cast<HashTab *>(rsv::allocRecord(1, sizeof(HashTab), caller));
        if (!tab)
            return nullptr;
        h_initTab_(tab, kIdTblBuckets);
        rsvIdTbl = tab;
    }
    return rsvIdTbl;
}

// Parse one id-file record "owner number" (leading blanks allowed). An owner
// word that does not fit kOwnerWordSize is malformed rather than cut, so that
// a damaged file never renames an owner.
bool parseIdRecord(const char *line, char *owner, int *number)
{
    int consumed = 0;
    if (std::sscanf(line, "%1023s%n", owner, &consumed) != 1)
        return false;
    unsigned char next = static_cast<unsigned char>(line[consumed]);
    if (next != '\0' && !std::isspace(next))
        return false;
    return std::sscanf(line + consumed, "%d", number) == 1;
}

// The owner's reservations in a table: the numbers of its own identifiers
// (up to the limit) and how many other owners' identifiers carry its word.
struct OwnerCount {
    rsv::CPtr<int> used;
    int own = 0;
    int other = 0;
};

void countOwner(RsvTimeTbl *tbl, const char *owner, int max, OwnerCount &count)
{
    // The walk logs every identifier it passes; the index serves the rest.
    if (!rsv::logOn(LC_RSV) && rsv::OwnerIndex_count(tbl, owner, max, count.used.get(), count.own, count.other))
        return;
    count.own = 0;
    count.other = 0;
    HashIter iter;
    for (HashEnt *he = h_firstEnt_(&tbl->entries, &iter); he; he = h_nextEnt_(&iter)) {
        const RsvEnt *ent = static_cast<const RsvEnt *>(he->value);
        if (!ent || !ent->rsvId)
            continue;
        if (rsv::logOn(LC_RSV))
            kx_syslog(KX_LOG_DETAIL, "%s: tbl:- rsvId: <%s>", "RsvId_new", ent->rsvId);
        const char *hash = std::strchr(ent->rsvId, '#');
        if (ent->name && std::strcmp(ent->name, owner) == 0) {
            if (hash)
                count.used.get()[count.own] = std::atoi(hash + 1);
            if (++count.own == max)
                break;
        } else if (hash && std::strncmp(ent->rsvId, owner, static_cast<size_t>(hash - ent->rsvId)) == 0) {
            // Other owners' reservations numbered under this owner's word (the
            // system reservations when the word is "system") widen the range.
            ++count.other;
        }
    }
}

// Walk the candidate `next` forward until count.own consecutive comparisons
// find no clash. The table itself is consulted only in the first two steps
// after each clash; identifiers already handed out depend on this exact
// search.
int firstFreeNumber(RsvTimeTbl *tbl, const char *owner, int next, int max, const OwnerCount &count)
{
    const int range = max + count.other;
    const int *used = count.used.get();
    char probe[kIdBufSize];
    for (int i = 0, j = 0; i < count.own;) {
        bool clash = false;
        if (count.other > 0 && i < 2) {
            std::snprintf(probe, sizeof probe, "%s#%d", owner, next);
            clash = h_getEnt_(&tbl->entries, probe) != nullptr || used[j] == next;
        } else {
            clash = used[j] == next;
        }
        if (clash) {
            next = (next + 1) % range;
            i = 0;
        }
        j = (j + 1) % count.own;
        ++i;
    }
    return next;
}

} // namespace

extern "C" {

/* A new identifier for the owner of `req` ("owner#n", "system#n" for a system
 * reservation, or the request's own identifier for a name-only entry). The
 * caller frees it. NULL when the owner already holds the per-owner maximum
 * (message 6104 logged; the counter is unchanged) or memory runs out; the
 * caller reports error 192. The owner's counter is advanced to n. */
char *RsvId_new(RsvTimeTbl *tbl, RsvReq *req)
{
    if (!tbl || !req || !req->name)
        return nullptr;
    HashTab *ids = idTbl(__func__);
    if (!ids)
        return nullptr;

    const int max = rsv::RsvId_perOwnerLimit();
    OwnerCount count;
    count.used.reset(static_cast<int *>(rsv::allocRecord(max, sizeof(int), __func__)));
    if (!count.used)
        return nullptr;
    if (rsv::logOn(LC_RSV))
        kx_syslog(KX_LOG_DEBUG,
                  kx_catgets(kx_catd, rsv::kCatSetRsv, 6120,
                             "%s: the max advance reservation for one user or user gropu is %d"),
                  __func__, max);

    int isNew = 0;
    HashEnt *counter = h_addEnt_(ids, req->name, &isNew);
    if (!counter)
        return nullptr;
    int next = isNew ? 0 : (fromValue(counter->value) + 1) % max;
    if (next < 0)
        next = 0;

    countOwner(tbl, req->name, max, count);
    if (count.own == max) {
        kx_syslog(KX_LOG_ERR,
                  kx_catgets(kx_catd, rsv::kCatSetRsv, 6104,
                             "%s: Too many reservations for <%s> in the system; can't accept any new "
                             "reservatoin for the moment"),
                  __func__, req->name);
        return nullptr;
    }
    next = firstFreeNumber(tbl, req->name, next, max, count);
    if (!isNew && next < fromValue(counter->value))
        noteWrapped(req->name);
    counter->value = toValue(next);

    if (req->options & RSV_OPT_NAME_ONLY)
        return req->rsvId ? rsv::dupText(req->rsvId) : nullptr;
    char buf[kIdBufSize];
    std::snprintf(buf, sizeof buf, "%s#%d", (req->options & RSV_OPT_SYSTEM) ? "system" : req->name, next);
    return rsv::dupText(buf);
}

/* Record the number of an existing identifier "owner#n" as the owner's last
 * one (the last identifier restored wins, it is not a maximum). An identifier
 * without '#' changes nothing. */
void RsvId_setCur(const char *rsvId)
{
    if (!rsvId)
        return;
    char buf[kIdBufSize + 1];
    std::snprintf(buf, sizeof buf, "%s", rsvId);
    char *hash = std::strchr(buf, '#');
    if (!hash)
        return;
    *hash = '\0';
    HashTab *ids = idTbl(__func__);
    if (!ids)
        return;
    if (HashEnt *he = h_addEnt_(ids, buf, nullptr)) {
        const int number = std::atoi(hash + 1);
        // Restoring an older number after a newer one means the numbers went
        // round the limit.
        if (he->value && number < fromValue(he->value))
            noteWrapped(buf);
        he->value = toValue(number);
    }
}

/* Load the owner counters from the id file `idFile`. A missing file leaves
 * the counters as they are (debug log only); a malformed record is logged
 * (message 6115) and skipped; a later record of an owner overwrites an
 * earlier one. The version line is not checked. */
void initRsvIdTbl(const char *idFile)
{
    HashTab *ids = idTbl(__func__);
    if (!ids || !idFile)
        return;
    FILE *fp = std::fopen(idFile, "r");
    if (!fp) {
        if (rsv::logOn(LC_FILE))
            kx_syslog(KX_LOG_DEBUG, "%s: failed to open <%s> for reading: ", __func__, idFile);
        return;
    }
    char *line = nullptr;
    size_t cap = 0;
    ssize_t len;
    // Line 1 is the version, line 2 the number of records that follow.
    if (getline(&line, &cap, fp) >= 0 && getline(&line, &cap, fp) >= 0) {
        int count = std::atoi(line);
        int accepted = 2;
        char owner[kOwnerWordSize];
        for (int i = 0; i < count && (len = getline(&line, &cap, fp)) >= 0; ++i) {
            if (len > 0 && line[len - 1] == '\n')
                line[len - 1] = '\0';
            int number = 0;
            HashEnt *he = nullptr;
            if (parseIdRecord(line, owner, &number) && (he = h_addEnt_(ids, owner, nullptr)) != nullptr) {
                he->value = toValue(number);
                ++accepted;
            } else {
                kx_syslog(KX_LOG_ERR,
                          kx_catgets(kx_catd, rsv::kCatSetRsv, 6115,
                                     "%s: failed to convert line %d <%s>, skip the line"),
                          __func__, accepted, line);
            }
        }
    }
    std::free(line);
    std::fclose(fp);
}

/* Rewrite the table's id file: the version line, the number of owners and one
 * "owner number" record per owner. When the file cannot be opened, message
 * 6114 is logged and the file is left untouched. */
void RsvTimeTbl_logId(RsvTimeTbl *tbl)
{
    if (!tbl)
        return;
    const char *name = tbl->idFile ? tbl->idFile : "";
    FILE *fp = std::fopen(name, "w");
    if (!fp) {
        kx_syslog(KX_LOG_ERR, kx_catgets(kx_catd, rsv::kCatSetRsv, 6114, "%s: failed to open %s for writing"),
                  __func__, name);
        return;
    }
    std::fprintf(fp, "%s\n", RSV_FORMAT_VERSION);
    if (!rsvIdTbl) {
        std::fprintf(fp, "%d\n", 0);
    } else {
        std::fprintf(fp, "%d\n", h_numEnts_(rsvIdTbl));
        // Each record ends in a newline followed by a blank, so every record
        // line after the first starts with a blank and the file ends in one;
        // readers of earlier releases expect exactly these bytes.
        HashIter iter;
        for (HashEnt *he = h_firstEnt_(rsvIdTbl, &iter); he; he = h_nextEnt_(&iter))
            std::fprintf(fp, "%s %d \n ", he->key, fromValue(he->value));
    }
    std::fclose(fp);
}

/* Forget every owner counter and release the counter table; the next call
 * that needs it starts a new, empty one. For daemon reloads and tests. */
void RsvId_clearTbl(void)
{
    wrappedOwners().clear();
    if (!rsvIdTbl)
        return;
    h_freeTab_(rsvIdTbl, nullptr);
    std::free(rsvIdTbl);
    rsvIdTbl = nullptr;
}

} // extern "C"

namespace rsv {

bool IdCounters::keep(const char *owner) noexcept
{
    if (whole_ || !owner)
        return true;
    for (const auto &o : owners_)
        if (o.owner == owner)
            return true;
    HashEnt *he = rsvIdTbl ? h_getEnt_(rsvIdTbl, owner) : nullptr;
    try {
        owners_.push_back({owner, he != nullptr, he ? fromValue(he->value) : 0});
    } catch (...) {
        noteAllocationFailure();
        return false;
    }
    return true;
}

bool IdCounters::keepAll() noexcept
{
    owners_.clear();
    whole_ = true;
    hadTable_ = rsvIdTbl != nullptr;
    if (!rsvIdTbl)
        return true;
    try {
        owners_.reserve(static_cast<size_t>(h_numEnts_(rsvIdTbl)));
        HashIter iter;
        for (HashEnt *he = h_firstEnt_(rsvIdTbl, &iter); he; he = h_nextEnt_(&iter))
            owners_.push_back({he->key, true, fromValue(he->value)});
    } catch (...) {
        noteAllocationFailure();
        return false;
    }
    return true;
}

void IdCounters::restore() noexcept
{
    if (whole_) {
        // Emptied and refilled in the order it had, so that the id file is
        // written as before.
        RsvId_clearTbl();
        if (!hadTable_)
            return;
        HashTab *ids = idTbl("RsvId_restore");
        for (const auto &o : owners_)
            if (HashEnt *he = ids ? h_addEnt_(ids, o.owner.c_str(), nullptr) : nullptr)
                he->value = toValue(o.value);
        return;
    }
    for (const auto &o : owners_) {
        HashEnt *he = rsvIdTbl ? h_getEnt_(rsvIdTbl, o.owner.c_str()) : nullptr;
        if (o.existed) {
            if (!he && rsvIdTbl)
                he = h_addEnt_(rsvIdTbl, o.owner.c_str(), nullptr);
            if (he)
                he->value = toValue(o.value);
        } else if (he) {
            h_delEnt_(rsvIdTbl, he);
        }
    }
}

void IdCounters::raiseToKept(int limit) noexcept
{
    if (!rsvIdTbl)
        return;
    for (const auto &o : owners_) {
        HashEnt *he = h_getEnt_(rsvIdTbl, o.owner.c_str());
        if (!he || !o.existed)
            continue;
        const int now = fromValue(he->value);
        if (now < o.value && o.value - now <= limit / 2)
            he->value = toValue(o.value);
    }
}

bool RsvId_counter(const char *owner, int *value) noexcept
{
    HashEnt *he = rsvIdTbl && owner ? h_getEnt_(rsvIdTbl, owner) : nullptr;
    if (!he)
        return false;
    if (value)
        *value = fromValue(he->value);
    return true;
}

bool RsvId_hasWrapped(const char *owner) noexcept
{
    try {
        return owner && wrappedOwners().count(owner) != 0;
    } catch (...) {
        return true;
    }
}

int RsvId_perOwnerLimit() noexcept
{
    const int max = miscFuncs.maxRsvPerOwner ? miscFuncs.maxRsvPerOwner() : kDefaultMaxPerOwner;
    return max < 1 || max > kMaxPerOwnerLimit ? kDefaultMaxPerOwner : max;
}

void RsvId_appendFileText(std::string &out)
{
    out += RSV_FORMAT_VERSION "\n";
    if (!rsvIdTbl) {
        out += "0\n";
        return;
    }
    out += std::to_string(h_numEnts_(rsvIdTbl));
    out += '\n';
    // The same bytes as RsvTimeTbl_logId writes: each record ends in a
    // newline followed by a blank.
    HashIter iter;
    for (HashEnt *he = h_firstEnt_(rsvIdTbl, &iter); he; he = h_nextEnt_(&iter)) {
        out += he->key;
        out += ' ';
        out += std::to_string(fromValue(he->value));
        out += " \n ";
    }
}

} // namespace rsv
