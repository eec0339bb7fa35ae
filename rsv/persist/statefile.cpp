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

namespace {

// The entries of `tbl` in insertion order: the settings' list brought up to
// date (see TableSettings::order), or `walked` filled by a walk when the
// table has no settings. Throws std::bad_alloc.
const std::vector<HashEnt *> &entryOrder(RsvTimeTbl *tbl, std::vector<HashEnt *> &walked)
{
    TableSettings *settings = tableSettings(tbl, false);
    std::vector<HashEnt *> &order = settings ? settings->order : walked;
    HashEnt *he = tbl->entries.first;
    // orderLast is NULL exactly when the list is empty.
    if (settings && settings->orderStamp != 0 && settings->orderStamp == tbl->entries.delStamp)
        he = settings->orderLast ? settings->orderLast->orderNext : tbl->entries.first;
    else
        order.clear();
    order.reserve(static_cast<size_t>(h_numEnts_(&tbl->entries)));
    for (; he; he = he->orderNext)
        order.push_back(he);
    if (settings) {
        settings->orderLast = order.empty() ? nullptr : order.back();
        settings->orderStamp = tbl->entries.delStamp;
    }
    return order;
}

} // namespace

void RsvTimeTbl_appendStateText(RsvTimeTbl *tbl, std::string &out, const std::vector<const RsvEnt *> *skip)
{
    std::vector<HashEnt *> walked;
    const std::vector<HashEnt *> &order = entryOrder(tbl, walked);
    std::vector<const RsvEnt *> written;
    written.reserve(order.size());
    // The entries lie wherever they were allocated: asking for the ones a
    // few steps ahead lets their loads overlap.
    constexpr size_t kAhead = 8;
    for (size_t i = 0; i < order.size(); ++i) {
        if (i + kAhead < order.size()) {
            __builtin_prefetch(order[i + kAhead]);
            __builtin_prefetch(order[i + kAhead / 2]->key);
        }
        const HashEnt *he = order[i];
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
