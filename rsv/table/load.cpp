// load.cpp: start-up in one call, the id file and then every record of the
// state file restored into the table, as one change. The state file is read
// in one piece and each record parsed where it lies.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "persist/persist_internal.h"
#include "planner/planner_internal.h"
#include "planner/restorebook.h"
#include "rsv_internal.h"
#include "table/change.h"
#include "timewin/timewin_internal.h"

namespace {

// Owns a stdio stream.
struct FileCloser {
    void operator()(FILE *fp) const noexcept { std::fclose(fp); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

constexpr const char *kLoad = "RsvTimeTbl_load";

// The whole state file in `text`, read in large blocks through stdio (as
// the file always was read, so the same calls reach the C library). -1 with
// errno set when the file cannot be opened; 1 when a read failed (`text`
// holds what was read before it, *readErrno why); 0 when it was read to its
// end.
int readWhole(const char *name, std::string &text, int *readErrno)
{
    FilePtr fp(std::fopen(name, "r"));
    if (!fp)
        return -1;
    constexpr size_t kBlock = 1 << 16;
    // Room for the whole file, the last block asked for and a terminator,
    // so the text is not moved while it is read.
    struct stat st {};
    if (::fstat(fileno(fp.get()), &st) == 0 && st.st_size > 0)
        text.reserve(static_cast<size_t>(st.st_size) + kBlock + 1);
    for (;;) {
        const size_t at = text.size();
        text.resize(at + kBlock);
        const size_t n = std::fread(text.data() + at, 1, kBlock, fp.get());
        text.resize(at + n);
        if (n == kBlock)
            continue;
        if (!std::ferror(fp.get()))
            return 0;
        *readErrno = errno;
        return 1;
    }
}

// The shares of every host the restored entries hold, hosts in the order
// the entries reach them: the order the planner lists are made in when the
// entries are booked one by one. Throws std::bad_alloc.
class HostShares {
public:
    void add(RsvEnt *ent)
    {
        for (int i = 0; ent->allocVector && i < ent->numHosts; ++i) {
            const char *host = ent->allocVector[i].hostName;
            if (!host)
                continue;
            auto [it, isNew] = index_.try_emplace(std::string_view(host), hosts_.size());
            if (isNew)
                hosts_.push_back({host, {}});
            hosts_[it->second].shares.push_back({ent, i});
        }
    }
    // Books every host's shares into its new planner list.
    void book(RsvTimeTbl *tbl) const
    {
        for (const Host &host : hosts_) {
            List *list = RsvTimeTbl_getPlannerList(tbl, host.name);
            rsv::bookNewHostList(tbl, list, host.name, host.shares.data(), host.shares.size());
        }
    }

private:
    struct Host {
        const char *name;
        std::vector<rsv::HostShare> shares;
    };
    std::vector<Host> hosts_;
    std::unordered_map<std::string_view, size_t> index_;
};

// RsvTimeTbl_restoreEntry without the bookings, for an entry whose
// identifier the table does not hold: the entry goes into the table when it
// has a host, and its owner's counter advances.
void restoreUnbooked(RsvTimeTbl *tbl, RsvEnt *ent)
{
    for (int i = 0; ent->allocVector && i < ent->numHosts; ++i) {
        if (ent->allocVector[i].hostName) {
            if (HashEnt *he = h_addEnt_(&tbl->entries, ent->rsvId, nullptr))
                he->value = ent;
            break;
        }
    }
    RsvId_setCur(ent->rsvId);
}

// The body of RsvTimeTbl_load: every restored entry is told to `change`.
// Into an empty table the entries are restored first and booked afterwards
// host by host (the same planners, weeks and cells as booking each in turn);
// into a table that already holds reservations each is booked as it comes.
int loadRecords(RsvTimeTbl *tbl, rsv::Change &change, int *numRejected)
{
    const char *name = tbl->stateFile ? tbl->stateFile : "";
    std::string text;
    int readErrno = 0;
    const int read = readWhole(name, text, &readErrno);
    if (read < 0) {
        if (errno == ENOENT) {
            if (rsv::logOn(LC_FILE))
                kx_syslog(KX_LOG_DEBUG, "%s: no state file <%s>; starting with no reservations", kLoad, name);
            return 0;
        }
        kx_syslog(KX_LOG_ERR, "%s: failed to open %s for reading: %s", kLoad, name, std::strerror(errno));
        return -1;
    }
    const bool inBulk = h_numEnts_(&tbl->entries) == 0 && h_numEnts_(&tbl->plannerLists) == 0;
    // A table whose planners are built when first needed books nothing now.
    const bool bookInBulk = inBulk && !rsv::plannersLazy(tbl);
    HostShares shares;
    // Records of one recurring window share its length, worked out once.
    const rsv::WindowLengthMemo windowLengths;

    int restored = 0;
    int rejected = 0;
    int lineNo = 0;
    // Each line is read where it lies: its line feed becomes its terminator.
    text.push_back('\0');
    char *const end = text.data() + text.size() - 1;
    for (char *line = text.data(); line < end;) {
        char *feed = static_cast<char *>(std::memchr(line, '\n', static_cast<size_t>(end - line)));
        char *lineEnd = feed ? feed : end;
        *lineEnd = '\0';
        const size_t len = static_cast<size_t>(lineEnd - line);
        char *const record = line;
        line = lineEnd + 1;
        ++lineNo;
        if (len == 0)
            continue;
        // A line holding a NUL byte is no record, whatever its first part says.
        RsvEnt *ent = std::memchr(record, '\0', len) == nullptr ? RsvEnt_newByString(record) : nullptr;
        if (!ent) {
            ++rejected;
            kx_syslog(KX_LOG_ERR, "%s: line %d of %s rejected", kLoad, lineNo, name);
            continue;
        }
        if (h_getEnt_(&tbl->entries, ent->rsvId)) {
            // A second record of one identifier would book its hosts twice and
            // orphan the first entry: the first record wins.
            ++rejected;
            kx_syslog(KX_LOG_ERR, "%s: line %d of %s rejected: reservation <%s> is already loaded", kLoad,
                      lineNo, name, ent->rsvId);
            rsv::freeEntry(ent);
            continue;
        }
        if (!change.added(ent)) {
            rsv::freeEntry(ent);
            break;
        }
        if (inBulk)
            restoreUnbooked(tbl, ent);
        else
            RsvTimeTbl_restoreEntry(tbl, ent);
        HashEnt *he = h_getEnt_(&tbl->entries, ent->rsvId);
        if (he && he->value == ent) {
            ++restored;
            if (bookInBulk)
                shares.add(ent);
        } else {
            // An entry with no hosts only advances its owner's counter.
            kx_syslog(KX_LOG_WARNING, "%s: line %d of %s: reservation <%s> holds no hosts and is dropped",
                      kLoad, lineNo, name, ent->rsvId);
            change.forget(ent);
            rsv::freeEntry(ent);
        }
    }
    if (bookInBulk)
        shares.book(tbl);
    if (numRejected)
        *numRejected = rejected;
    if (read > 0) {
        // What was read before the error stays in the table.
        kx_syslog(KX_LOG_ERR, "%s: failed to read %s: %s", kLoad, name, std::strerror(readErrno));
        return -1;
    }
    return restored;
}

// The whole body in a try: no exception leaves the C call, and a shortage
// of the reader's own containers is a shortage of the load.
int loadRecordsGuarded(RsvTimeTbl *tbl, rsv::Change &change, int *numRejected) noexcept
{
    try {
        return loadRecords(tbl, change, numRejected);
    } catch (const std::bad_alloc &) {
        rsv::noteAllocationFailure();
        return -1;
    }
}

} // namespace

extern "C" {

/* Start-up in one call: load the id file, then rebuild every record of the
 * state file into the table (booking its hosts). Returns the number of
 * reservations put into the table, 0 when there is no state file yet, or -1
 * when the state file exists but cannot be opened or read (the id counters
 * are loaded all the same, and lines read before a read error stay loaded),
 * or -1 with qob_errno 55 when memory runs out (nothing is loaded, counters
 * as before). A rejected line is logged with its line number and skipped;
 * *numRejected (when not NULL) receives their count. A durable table keeps
 * the id file's counters where restoring would move them back. */
int RsvTimeTbl_load(RsvTimeTbl *tbl, int *numRejected)
{
    if (numRejected)
        *numRejected = 0;
    if (!tbl)
        return -1;
    // Memory running out part-way would leave some records out; the whole
    // load is undone instead, so that a later save cannot drop them.
    rsv::Change change(tbl);
    if (!change.started() || !change.keepAllCounters()) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return -1;
    }
    initRsvIdTbl(tbl->idFile);
    // Restoring sets each owner's counter to the number of its last
    // identifier in the file, which is behind the id file once the newest
    // reservations are gone. In durable mode the id file is written first and
    // is never behind the state file, so its counters are put back afterwards:
    // an identifier once handed out is not handed out again.
    rsv::IdCounters fileCounters;
    const bool keepFileCounters = rsv::isDurable(tbl);
    if (keepFileCounters && !fileCounters.keepAll()) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return -1;
    }
    // A read error keeps the lines read before it, as a partial load.
    const int restored = loadRecordsGuarded(tbl, change, numRejected);
    if (keepFileCounters)
        fileCounters.raiseToKept(rsv::RsvId_perOwnerLimit());
    if (change.finish(false) != RSV_OK) {
        if (numRejected)
            *numRejected = 0;
        kx_syslog(KX_LOG_ERR, "%s: out of memory while loading %s; nothing loaded", __func__,
                  tbl->stateFile ? tbl->stateFile : "");
        return -1;
    }
    return restored;
}

} // extern "C"
