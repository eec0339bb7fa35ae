// The state file: one reservation record per line, rewritten in full after
// every change (read back at start-up by RsvTimeTbl_load).
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <algorithm>

#include "persist/persist_internal.h"
#include "rsv_internal.h"

namespace {

// Owns a stdio stream.
struct FileCloser {
    void operator()(FILE *fp) const noexcept { std::fclose(fp); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

// Opens the state file for the default rewrite, with the rewrite's trace;
// when it cannot be opened, message 6105 is logged and NULL returned.
FilePtr openForRewrite(const RsvTimeTbl *tbl)
{
    static constexpr const char *kFunc = "RsvTimeTbl_logStat";
    if (rsv::logOn(LC_RSV | LC_TRACE))
        kx_syslog(KX_LOG_DEBUG, "%s: Entering...", kFunc);
    if (!tbl)
        return nullptr;
    const char *name = tbl->stateFile ? tbl->stateFile : "";
    FilePtr fp(std::fopen(name, "w"));
    if (!fp)
        kx_syslog(KX_LOG_ERR, kx_catgets(kx_catd, rsv::kCatSetRsv, 6105, "%s: failed to open %s for writing"),
                  kFunc, name);
    return fp;
}

} // namespace

extern "C" {

/* Rewrite the table's state file from its entries, one record per line in
 * table order, entries keyed with '@' left out, then rewrite the id file.
 * When the state file cannot be opened, message 6105 is logged and neither
 * file is touched. An entry whose record cannot be built is logged and its
 * line left out, so the file stays readable. */
void RsvTimeTbl_logStat(RsvTimeTbl *tbl)
{
    FilePtr fp = openForRewrite(tbl);
    if (!fp)
        return;
    const char *name = tbl->stateFile;
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

} // extern "C"

namespace rsv {

void RsvTimeTbl_writeStateText(RsvTimeTbl *tbl, const std::string &text) noexcept
{
    // To a daemon this is the same rewrite as RsvTimeTbl_logStat.
    FilePtr fp = openForRewrite(tbl);
    if (!fp)
        return;
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

void RsvTimeTbl_appendStateText(RsvTimeTbl *tbl, std::string &out, const std::vector<const RsvEnt *> *skip)
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
}

} // namespace rsv
