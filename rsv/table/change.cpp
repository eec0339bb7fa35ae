// change.cpp: a table change that is kept whole or undone whole.
#include "table/change.h"

#include <cerrno>
#include <cstring>
#include <iterator>
#include <new>
#include <string>

#include "persist/persist_internal.h"
#include "planner/planner_internal.h"
#include "rsv_internal.h"

namespace {

void freeElement(void *element)
{
    std::free(element);
}

void freeText(char **text)
{
    std::free(*text);
    *text = nullptr;
}

// Release the fields of `ent` that a change can alter (those Change keeps).
void freeAlterable(RsvEnt *ent)
{
    freeText(&ent->name);
    freeText(&ent->timeWindow);
    freeText(&ent->description);
    freeText(&ent->timeDuration);
    RsvEnt_freeAllocVector(&ent->allocVector, ent->numHosts);
    if (ent->disabledDurations) {
        listDestroy(ent->disabledDurations, freeElement);
        ent->disabledDurations = nullptr;
    }
}

// `to` gets deep copies of the alterable fields of `from`; false when memory
// runs out (what was copied is released again).
bool copyAlterable(const RsvEnt *from, RsvEnt *to)
{
    *to = *from;
    to->name = nullptr;
    to->timeWindow = nullptr;
    to->description = nullptr;
    to->timeDuration = nullptr;
    to->allocVector = nullptr;
    to->disabledDurations = nullptr;
    bool ok = true;
    auto copy = [&ok](const char *text, char **field) {
        if (text && ok && !(*field = rsv::dupText(text)))
            ok = false;
    };
    copy(from->name, &to->name);
    copy(from->timeWindow, &to->timeWindow);
    copy(from->description, &to->description);
    copy(from->timeDuration, &to->timeDuration);
    if (ok && from->allocVector && from->numHosts > 0) {
        to->allocVector = RsvEnt_DupAllocVector(from);
        ok = to->allocVector != nullptr;
    } else if (ok && from->allocVector) {
        // A vector with no elements still differs from none: keep an empty
        // block so that the field comes back non-NULL.
        to->allocVector = static_cast<AllocElem *>(rsv::allocRecord(1, sizeof(AllocElem), "RsvEnt_keep"));
        ok = to->allocVector != nullptr;
    }
    if (ok && from->disabledDurations) {
        to->disabledDurations = listDup(from->disabledDurations, static_cast<int>(sizeof(RsvDisableDuration)));
        if (!to->disabledDurations) {
            rsv::noteAllocationFailure();
            ok = false;
        }
    }
    if (!ok)
        freeAlterable(to);
    return ok;
}

} // namespace

namespace rsv {

Change::Change(RsvTimeTbl *tbl) noexcept : tbl_(tbl)
{
    failuresAtStart_ = allocationFailures();
    if (!tbl_ || !PlannerJournal_begin(tbl_))
        return;
    started_ = true;
    open_ = true;
}

Change::~Change()
{
    if (open_)
        undo();
}

bool Change::keepEntry(RsvEnt *ent) noexcept
{
    for (const auto &k : kept_)
        if (k.ent == ent)
            return true;
    try {
        kept_.push_back({ent, RsvEnt{}});
    } catch (...) {
        noteAllocationFailure();
        return false;
    }
    if (!copyAlterable(ent, &kept_.back().before)) {
        kept_.pop_back();
        return false;
    }
    return true;
}

bool Change::keepCounter(const char *owner) noexcept
{
    return counters_.keep(owner);
}

bool Change::keepAllCounters() noexcept
{
    return counters_.keepAll();
}

bool Change::added(RsvEnt *ent) noexcept
{
    try {
        added_.push_back(ent);
    } catch (...) {
        noteAllocationFailure();
        return false;
    }
    return true;
}

bool Change::removing(RsvEnt *ent) noexcept
{
    try {
        removing_.push_back(ent);
    } catch (...) {
        noteAllocationFailure();
        return false;
    }
    return true;
}

void Change::forget(const RsvEnt *ent) noexcept
{
    for (auto it = added_.rbegin(); it != added_.rend(); ++it)
        if (*it == ent) {
            added_.erase(std::next(it).base());
            return;
        }
}

bool Change::ranShort() const noexcept
{
    return allocationFailures() != failuresAtStart_;
}

void Change::dropKept(bool restore) noexcept
{
    for (auto &k : kept_) {
        if (!restore) {
            freeAlterable(&k.before);
            continue;
        }
        // The fields no change alters stay those of the live entry.
        RsvEnt live = *k.ent;
        freeAlterable(&live);
        RsvEnt back = k.before;
        back.version = live.version;
        back.rsvId = live.rsvId;
        back.jobList = live.jobList;
        back.numJobs = live.numJobs;
        back.execCmd = live.execCmd;
        *k.ent = back;
    }
    kept_.clear();
}

void Change::finishRemovals() noexcept
{
    HashTab *nameTable = miscFuncs.rsvNameTable ? miscFuncs.rsvNameTable() : nullptr;
    for (const RsvEnt *gone : removing_) {
        auto *ent = const_cast<RsvEnt *>(gone);
        HashEnt *he = ent->rsvId ? h_getEnt_(&tbl_->entries, ent->rsvId) : nullptr;
        if (!he || he->value != ent)
            continue;
        RsvTimeTbl_removeNameEntry(nameTable, ent->rsvId);
        rsv::OwnerIndex_delEnt(tbl_, he);
        rsv::freeEntry(ent);
    }
    removing_.clear();
}

void Change::undo() noexcept
{
    if (!open_)
        return;
    open_ = false;
    const int savedErrno = errno;
    for (auto it = added_.rbegin(); it != added_.rend(); ++it) {
        RsvEnt *ent = *it;
        HashEnt *he = ent->rsvId ? h_getEnt_(&tbl_->entries, ent->rsvId) : nullptr;
        if (he && he->value == ent)
            rsv::OwnerIndex_delEnt(tbl_, he);
        rsv::freeEntry(ent);
    }
    added_.clear();
    removing_.clear();
    dropKept(true);
    PlannerJournal_end(true);
    counters_.restore();
    noteRecurringChange();
    errno = savedErrno;
}

int Change::finish(bool save) noexcept
{
    if (!open_) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return RSV_ERR_NO_MEMORY;
    }
    // The default rewrite truncates the state file before its first line:
    // its text is built while the change can still be undone, so that a
    // shortage there cannot leave lines out of the file of a kept change.
    std::string stateText;
    const bool rewrite = save && !isDurable(tbl_);
    if (!ranShort() && rewrite && !buildStateText(stateText))
        noteAllocationFailure();
    if (ranShort()) {
        undo();
        qob_errno = RSV_ERR_NO_MEMORY;
        return RSV_ERR_NO_MEMORY;
    }
    if (save && isDurable(tbl_)) {
        bool replaced = false;
        const int status = RsvTimeTbl_saveDurably(tbl_, &removing_, &replaced);
        if (status != RSV_OK) {
            const int savedErrno = errno;
            undo();
            // A file was already replaced: write back the table as it was,
            // so that both files match memory again.
            if (replaced)
                RsvTimeTbl_repairFiles(tbl_);
            errno = savedErrno;
            qob_errno = status;
            return status;
        }
    }
    open_ = false;
    PlannerJournal_end(false);
    dropKept(false);
    added_.clear();
    finishRemovals();
    if (rewrite)
        RsvTimeTbl_writeStateText(tbl_, stateText);
    return RSV_OK;
}

bool Change::buildStateText(std::string &text) noexcept
{
    try {
        RsvTimeTbl_appendStateText(tbl_, text, &removing_);
        return true;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

} // namespace rsv
