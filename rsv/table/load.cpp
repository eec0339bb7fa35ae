// load.cpp: start-up in one call, the id file and then every record of the
// state file restored into the table, as one change.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "persist/persist_internal.h"
#include "rsv_internal.h"
#include "table/change.h"

namespace {

// Owns a stdio stream.
struct FileCloser {
    void operator()(FILE *fp) const noexcept { std::fclose(fp); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

constexpr const char *kLoad = "RsvTimeTbl_load";

// The body of RsvTimeTbl_load: every restored entry is told to `change`.
int loadRecords(RsvTimeTbl *tbl, rsv::Change &change, int *numRejected)
{

    const char *name = tbl->stateFile ? tbl->stateFile : "";
    FilePtr fp(std::fopen(name, "r"));
    if (!fp) {
        if (errno == ENOENT) {
            if (rsv::logOn(LC_FILE))
                kx_syslog(KX_LOG_DEBUG, "%s: no state file <%s>; starting with no reservations", kLoad, name);
            return 0;
        }
        kx_syslog(KX_LOG_ERR, "%s: failed to open %s for reading: %s", kLoad, name, std::strerror(errno));
        return -1;
    }

    int restored = 0;
    int rejected = 0;
    int lineNo = 0;
    char *raw = nullptr;
    size_t cap = 0;
    ssize_t len;
    while ((len = getline(&raw, &cap, fp.get())) >= 0) {
        ++lineNo;
        if (len > 0 && raw[len - 1] == '\n')
            raw[--len] = '\0';
        if (len == 0)
            continue;
        // A line holding a NUL byte is no record, whatever its first part says.
        RsvEnt *ent = std::strlen(raw) == static_cast<size_t>(len) ? RsvEnt_newByString(raw) : nullptr;
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
        RsvTimeTbl_restoreEntry(tbl, ent);
        HashEnt *he = h_getEnt_(&tbl->entries, ent->rsvId);
        if (he && he->value == ent) {
            ++restored;
        } else {
            // An entry with no hosts only advances its owner's counter.
            kx_syslog(KX_LOG_WARNING, "%s: line %d of %s: reservation <%s> holds no hosts and is dropped",
                      kLoad, lineNo, name, ent->rsvId);
            change.forget(ent);
            rsv::freeEntry(ent);
        }
    }
    std::free(raw);
    if (numRejected)
        *numRejected = rejected;
    if (std::ferror(fp.get())) {
        // What was read before the error stays in the table.
        kx_syslog(KX_LOG_ERR, "%s: failed to read %s: %s", kLoad, name, std::strerror(errno));
        return -1;
    }
    return restored;
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
    const int restored = loadRecords(tbl, change, numRejected);
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
