// verify.cpp: the table's invariants, checked on demand. Nothing here
// changes the table, its planners, its recurring index or the counters, and
// nothing is written: the planners are compared with a scratch table into
// which every reservation is booked again.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "persist/persist_internal.h"
#include "planner/planner_internal.h"
#include "rsv_internal.h"

namespace {

// Longest problem line; longer ones (very long names) are cut.
constexpr size_t kLineSize = 1024;
// An identifier number of more digits than this cannot come from a counter.
constexpr size_t kMaxNumberDigits = 9;

// Counts the problems and hands each one to the caller's function.
class Problems {
public:
    Problems(RsvVerifyProblem report, void *context) : report_(report), context_(context) {}

    __attribute__((format(printf, 2, 3))) void add(const char *format, ...)
    {
        ++count_;
        if (!report_)
            return;
        char line[kLineSize];
        va_list args;
        va_start(args, format);
        std::vsnprintf(line, sizeof line, format, args);
        va_end(args);
        report_(context_, line);
    }
    void addCount(int n) { count_ += n; }
    int count() const { return count_; }

private:
    RsvVerifyProblem report_;
    void *context_;
    int count_ = 0;
};

struct TableDeleter {
    void operator()(RsvTimeTbl *tbl) const noexcept { RsvTimeTbl_free(tbl); }
};
using TablePtr = std::unique_ptr<RsvTimeTbl, TableDeleter>;

const char *orEmpty(const char *text)
{
    return text ? text : "";
}

ListEntry *endOf(List *list)
{
    return reinterpret_cast<ListEntry *>(list);
}

List *listOf(HashEnt *he)
{
    return he ? static_cast<List *>(he->value) : nullptr;
}

ResPlanner *plannerFor(List *list, const RsvWeek &week)
{
    RsvWeek key = week;
    return list ? reinterpret_cast<ResPlanner *>(listSearchEntry(list, &key, ResPlanner_equal, 0)) : nullptr;
}

// "2026-02-08" for a dated week, "the recurring week" for the zero week.
void weekText(const RsvWeek &week, char *out, size_t size)
{
    if (week.startYear == 0)
        std::snprintf(out, size, "the recurring week");
    else
        std::snprintf(out, size, "the week of %04d-%02d-%02d", week.startYear, week.startMonth + 1, week.startDay);
}

bool isEmpty(const ResPlanner *p)
{
    for (int d = 0; d < RSV_PLANNER_DAYS; ++d)
        for (int s = 0; s < RSV_PLANNER_SLOTS_PER_DAY; ++s)
            if (p->slots[d][s].reserved != 0)
                return false;
    return true;
}

// A scratch table with, for every host of `tbl`, an empty planner for each
// week that host's list holds. False when memory runs out.
bool copyWeeks(RsvTimeTbl *tbl, RsvTimeTbl *scratch, Problems &problems)
{
    HashIter iter;
    for (HashEnt *he = h_firstEnt_(&tbl->plannerLists, &iter); he; he = h_nextEnt_(&iter)) {
        List *real = listOf(he);
        List *copy = RsvTimeTbl_getPlannerList(scratch, he->key);
        if (!copy)
            return false;
        if (!real) {
            problems.add("host <%s> has a key in the planner table but no planner list", he->key);
            continue;
        }
        for (ListEntry *e = real->forw; e != endOf(real); e = e->forw) {
            auto *p = reinterpret_cast<ResPlanner *>(e);
            char week[64];
            weekText(p->week, week, sizeof week);
            if (plannerFor(real, p->week) != p) {
                problems.add("host <%s> has two planners for %s", he->key, week);
                continue;
            }
            if (p->week.startYear == 0)
                continue; // every new list already has its recurring week
            ResPlanner *fresh = ResPlanner_new(he->key, &p->week);
            if (!fresh)
                return false;
            listInsertEntryAtBack(copy, &fresh->links);
        }
    }
    return true;
}

// Book every reservation of `tbl` into `scratch` as a restored reservation
// is booked. False when memory runs out.
bool rebookEntries(RsvTimeTbl *tbl, RsvTimeTbl *scratch)
{
    HashIter iter;
    for (HashEnt *he = h_firstEnt_(&tbl->entries, &iter); he; he = h_nextEnt_(&iter)) {
        auto *ent = static_cast<RsvEnt *>(he->value);
        if (!ent || !ent->allocVector)
            continue;
        for (int i = 0; i < ent->numHosts; ++i) {
            const AllocElem &elem = ent->allocVector[i];
            if (!elem.hostName)
                continue;
            List *list = RsvTimeTbl_getPlannerList(scratch, elem.hostName);
            if (!list)
                return false;
            ResPlannerList_map(list, scratch, elem.hostName, ent->timeWindow, ent->options & RSV_OPT_RECURRING,
                               ResPlannerEnt_incr, elem.numSlots, 1, ent);
        }
    }
    return true;
}

// One planner against its rebooking: one line for the first differing cell.
void comparePlanner(const char *host, const ResPlanner *real, const ResPlanner *rebooked, Problems &problems)
{
    int differing = 0;
    int firstDay = 0;
    int firstSlot = 0;
    for (int d = 0; d < RSV_PLANNER_DAYS; ++d)
        for (int s = 0; s < RSV_PLANNER_SLOTS_PER_DAY; ++s)
            if (real->slots[d][s].reserved != rebooked->slots[d][s].reserved && differing++ == 0) {
                firstDay = d;
                firstSlot = s;
            }
    if (differing == 0)
        return;
    char week[64];
    weekText(real->week, week, sizeof week);
    problems.add("planner of host <%s> for %s: day %d %02d:%02d holds %d slots, the reservations book %d "
                 "(%d cells differ)",
                 host, week, firstDay, firstSlot / 6, firstSlot % 6 * 10, real->slots[firstDay][firstSlot].reserved,
                 rebooked->slots[firstDay][firstSlot].reserved, differing);
}

// Every planner of `tbl` against `scratch`, and the weeks the reservations
// book that `tbl` has no planner for. Hosts without a list in `tbl` are
// reported with the entries that name them.
void comparePlanners(RsvTimeTbl *tbl, RsvTimeTbl *scratch, Problems &problems)
{
    HashIter iter;
    for (HashEnt *he = h_firstEnt_(&tbl->plannerLists, &iter); he; he = h_nextEnt_(&iter)) {
        List *real = listOf(he);
        List *rebooked = listOf(h_getEnt_(&scratch->plannerLists, he->key));
        if (!real || !rebooked)
            continue;
        for (ListEntry *e = real->forw; e != endOf(real); e = e->forw) {
            auto *p = reinterpret_cast<ResPlanner *>(e);
            if (plannerFor(real, p->week) == p)
                if (const ResPlanner *q = plannerFor(rebooked, p->week))
                    comparePlanner(he->key, p, q, problems);
        }
        for (ListEntry *e = rebooked->forw; e != endOf(rebooked); e = e->forw) {
            auto *q = reinterpret_cast<ResPlanner *>(e);
            if (plannerFor(real, q->week) || isEmpty(q) || rsv::weekTrimmed(tbl, q->week))
                continue;
            char week[64];
            weekText(q->week, week, sizeof week);
            problems.add("host <%s> has no planner for %s, where reservations book slots", he->key, week);
        }
    }
}

// Planner cells against a rebooking from scratch. False when memory runs
// out (the scratch table could not be made whole).
bool checkPlanners(RsvTimeTbl *tbl, Problems &problems)
{
    const unsigned long failures = rsv::allocationFailures();
    TablePtr scratch(RsvTimeTbl_new(nullptr));
    if (!scratch)
        return false;
    if (!copyWeeks(tbl, scratch.get(), problems) || !rebookEntries(tbl, scratch.get()))
        return false;
    // A booking step that ran short skips its work silently: the rebooking
    // would then differ for want of memory, not because of the table.
    if (rsv::allocationFailures() != failures)
        return false;
    comparePlanners(tbl, scratch.get(), problems);
    return true;
}

// Each entry under its own identifier.
void checkEntries(RsvTimeTbl *tbl, Problems &problems)
{
    HashIter iter;
    for (HashEnt *he = h_firstEnt_(&tbl->entries, &iter); he; he = h_nextEnt_(&iter)) {
        const auto *ent = static_cast<const RsvEnt *>(he->value);
        if (!ent)
            problems.add("key <%s> of the reservation table holds no reservation", he->key);
        else if (!ent->rsvId || std::strcmp(ent->rsvId, he->key) != 0)
            problems.add("reservation <%s> is stored under the key <%s>", orEmpty(ent->rsvId), he->key);
    }
}

// A planner list for every host a reservation holds. A lazy table builds a
// host's list from its reservations when first asked for it, so a host
// without one is as it should be there.
void checkHostLists(RsvTimeTbl *tbl, Problems &problems)
{
    if (rsv::plannersLazy(tbl))
        return;
    HashIter iter;
    for (HashEnt *he = h_firstEnt_(&tbl->entries, &iter); he; he = h_nextEnt_(&iter)) {
        const auto *ent = static_cast<const RsvEnt *>(he->value);
        for (int i = 0; ent && ent->allocVector && i < ent->numHosts; ++i) {
            const char *host = ent->allocVector[i].hostName;
            if (host && host[0] != '\0' && !listOf(h_getEnt_(&tbl->plannerLists, host)))
                problems.add("reservation <%s> holds host <%s>, which has no planner list", orEmpty(ent->rsvId),
                             host);
        }
    }
}

// The number n of an identifier "word#n"; false for any other form and for
// numbers no counter reaches.
bool identifierNumber(const char *rsvId, int *number)
{
    const char *hash = rsvId ? std::strchr(rsvId, '#') : nullptr;
    if (!hash)
        return false;
    const char *digits = hash + 1;
    const size_t length = std::strspn(digits, "0123456789");
    if (length == 0 || digits[length] != '\0' || length > kMaxNumberDigits)
        return false;
    *number = std::atoi(digits);
    return true;
}

// An owner's counter is the number it handed out last, so it is at least
// every number of the owner's reservations, until the numbers go round the
// per-owner limit; for an owner whose numbers have gone round only the
// counter's presence is checked. A name-only entry carries the identifier
// the daemon gave it, which no counter made, and is left out.
void checkCounters(RsvTimeTbl *tbl, Problems &problems)
{
    HashIter iter;
    for (HashEnt *he = h_firstEnt_(&tbl->entries, &iter); he; he = h_nextEnt_(&iter)) {
        const auto *ent = static_cast<const RsvEnt *>(he->value);
        int number = 0;
        if (!ent || (ent->options & RSV_OPT_NAME_ONLY) || !identifierNumber(ent->rsvId, &number))
            continue;
        int counter = 0;
        if (!ent->name || !rsv::RsvId_counter(ent->name, &counter)) {
            problems.add("reservation <%s>: its owner <%s> has no identifier counter", ent->rsvId,
                         orEmpty(ent->name));
            continue;
        }
        if (number > counter && !rsv::RsvId_hasWrapped(ent->name))
            problems.add("reservation <%s>: the identifier counter of its owner <%s> is %d, below %d", ent->rsvId,
                         ent->name, counter, number);
    }
}

int verifyTable(RsvTimeTbl *tbl, RsvVerifyProblem report, void *context)
{
    Problems problems(report, context);
    checkEntries(tbl, problems);
    const int plannerProblems = rsv::checkPlannerCells(tbl, report, context);
    if (plannerProblems < 0)
        return -1;
    problems.addCount(plannerProblems);
    const int indexProblems = rsv::checkRecurringIndex(tbl, report, context);
    if (indexProblems < 0)
        return -1;
    problems.addCount(indexProblems);
    checkCounters(tbl, problems);
    return problems.count();
}

} // namespace

namespace rsv {

int checkPlannerCells(RsvTimeTbl *tbl, RsvVerifyProblem report, void *context) noexcept
{
    if (!tbl)
        return -1;
    try {
        Problems problems(report, context);
        checkHostLists(tbl, problems);
        return checkPlanners(tbl, problems) ? problems.count() : -1;
    } catch (const std::bad_alloc &) {
        return -1;
    }
}

} // namespace rsv

extern "C" {

int RsvTimeTbl_verify(RsvTimeTbl *tbl, RsvVerifyProblem report, void *context)
{
    if (!tbl)
        return -1;
    // The checks end in module calls that may set errno; the caller's value
    // is kept, as a call that changes nothing should.
    const int savedErrno = errno;
    int result = -1;
    try {
        result = verifyTable(tbl, report, context);
    } catch (const std::bad_alloc &) {
        result = -1;
    }
    errno = savedErrno;
    if (result < 0)
        qob_errno = RSV_ERR_NO_MEMORY;
    return result;
}

} // extern "C"
