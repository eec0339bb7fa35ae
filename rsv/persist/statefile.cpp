// The state file: one reservation record per line, rewritten in full after
// every change, and read back line by line at start-up.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <algorithm>

#include "persist/persist_internal.h"
#include "rsv_internal.h"
#include "table/change.h"

namespace {

// Owns a stdio stream.
struct FileCloser {
    void operator()(FILE *fp) const noexcept { std::fclose(fp); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

void destroyEntry(RsvEnt *ent)
{
    RsvEnt_destroy(ent);
    std::free(ent);
}

constexpr const char *kLoad = "RsvTimeTbl_load";

int loadRecords(RsvTimeTbl *tbl, rsv::Change &change, int *numRejected);

} // namespace

extern "C" {

/* Rewrite the table's state file from its entries, one record per line in
 * table order, entries keyed with '@' left out, then rewrite the id file.
 * When the state file cannot be opened, message 6105 is logged and neither
 * file is touched. An entry whose record cannot be built is logged and its
 * line left out, so the file stays readable. */
void RsvTimeTbl_logStat(RsvTimeTbl *tbl)
{
    if (rsv::logOn(LC_RSV | LC_TRACE))
        kx_syslog(KX_LOG_DEBUG, "%s: Entering...", __func__);
    if (!tbl)
        return;
    const char *name = tbl->stateFile ? tbl->stateFile : "";
    FilePtr fp(std::fopen(name, "w"));
    if (!fp) {
        kx_syslog(KX_LOG_ERR, kx_catgets(kx_catd, rsv::kCatSetRsv, 6105, "%s: failed to open %s for writing"),
                  __func__, name);
        return;
    }
    HashIter iter;
    for (HashEnt *he = h_firstEnt_(&tbl->entries, &iter); he; he = h_nextEnt_(&iter)) {
        if (std::strchr(he->key, '@'))
            continue;
        rsv::CPtr<char> record(RsvEnt_ToString(static_cast<const RsvEnt *>(he->value)));
        if (!record) {
            kx_syslog(KX_LOG_ERR, "%s: reservation <%s> could not be written to %s; its line is left out",
                      __func__, he->key, name);
            continue;
        }
        // One flush per line: after a crash in the middle of the walk the
        // file holds whole records up to the last one written.
        std::fputs(record.get(), fp.get());
        std::fputc('\n', fp.get());
        std::fflush(fp.get());
    }
    fp.reset();
    RsvTimeTbl_logId(tbl);
}

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

} // namespace

namespace {

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
            destroyEntry(ent);
            continue;
        }
        if (!change.added(ent)) {
            destroyEntry(ent);
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
            destroyEntry(ent);
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

namespace rsv {

void RsvTimeTbl_writeStateText(RsvTimeTbl *tbl, const std::string &text) noexcept
{
    // The same trace as RsvTimeTbl_logStat: to a daemon this is that rewrite.
    if (rsv::logOn(LC_RSV | LC_TRACE))
        kx_syslog(KX_LOG_DEBUG, "%s: Entering...", "RsvTimeTbl_logStat");
    const char *name = tbl->stateFile ? tbl->stateFile : "";
    FilePtr fp(std::fopen(name, "w"));
    if (!fp) {
        kx_syslog(KX_LOG_ERR, kx_catgets(kx_catd, rsv::kCatSetRsv, 6105, "%s: failed to open %s for writing"),
                  "RsvTimeTbl_logStat", name);
        return;
    }
    // One flush per line, as RsvTimeTbl_logStat writes.
    for (size_t from = 0; from < text.size();) {
        size_t end = text.find('\n', from);
        end = end == std::string::npos ? text.size() : end + 1;
        std::fwrite(text.data() + from, 1, end - from, fp.get());
        std::fflush(fp.get());
        from = end;
    }
    fp.reset();
    RsvTimeTbl_logId(tbl);
}

bool RsvTimeTbl_appendStateText(RsvTimeTbl *tbl, std::string &out, const std::vector<const RsvEnt *> *skip)
{
    std::vector<const RsvEnt *> written;
    written.reserve(static_cast<size_t>(h_numEnts_(&tbl->entries)));
    HashIter iter;
    for (HashEnt *he = h_firstEnt_(&tbl->entries, &iter); he; he = h_nextEnt_(&iter)) {
        if (std::strchr(he->key, '@'))
            continue;
        const auto *ent = static_cast<const RsvEnt *>(he->value);
        if (skip && std::find(skip->begin(), skip->end(), ent) != skip->end())
            continue;
        written.push_back(ent);
    }
    RsvEnt_appendRecords(written.data(), written.size(), out);
    return true;
}

} // namespace rsv
