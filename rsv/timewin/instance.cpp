// Recurring instances: calendar days, the current and the next instance of a
// recurring reservation with its disabled days skipped, and the readable text
// of the instance last chosen.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "rsv_internal.h"

namespace {

constexpr int kMsgWindowNull = 6118;
constexpr int kMsgWindowFormat = 6119;
// The instance calls report under their original name, which the daemon's
// log readers know.
constexpr const char *kCurrentInstanceName = "RsvTimeWindow_getCurrentInstanceAtTime";
constexpr size_t kCtimeBufSize = 80;

// Move a candidate start S past the disabled durations it falls into. The
// list is sorted, so the walk stops at the first duration that starts after
// the candidate; it is not restarted after a shift, so a shift onto a day of
// an earlier duration is not seen again, while consecutive durations further
// on are each passed in turn.
time_t Rsv_skipDisabledDays(List *durations, const char *startPoint, time_t start)
{
    for (ListEntry *e = durations->forw; e != reinterpret_cast<ListEntry *>(durations); e = e->forw) {
        const auto *dur = reinterpret_cast<const RsvDisableDuration *>(e);
        tmDay day{};
        tmDay_getDayFromTime(start, &day);
        if (tmDay_earlierThan(&day, &dur->firstDay, 0))
            break;
        if (tmDay_earlierThan(&dur->firstDay, &day, 1) && tmDay_earlierThan(&day, &dur->lastDay, 1)) {
            struct tm after {};
            after.tm_mday = dur->lastDay.mday + 1;
            after.tm_mon = dur->lastDay.mon;
            after.tm_year = dur->lastDay.year - 1900;
            after.tm_isdst = 0;
            start = Rsv_timeToOccurFromGivenTime(startPoint, mktime(&after), RSV_OCCUR_NEXT);
        }
    }
    return start;
}

bool hasDurations(const List *list)
{
    return list != nullptr && list->forw != reinterpret_cast<const ListEntry *>(list);
}

// Copy ctime of t without its newline into buf; an unprintable time gives "".
void ctimeText(time_t t, char *buf, size_t size)
{
    const char *text = ctime(&t);
    std::snprintf(buf, size, "%s", text ? text : "");
    const size_t len = std::strlen(buf);
    if (len > 0)
        buf[len - 1] = '\0';
}

} // namespace

extern "C" {

// Fill *day with the local calendar day of t. 0; -1 with qob_errno 52 when
// day is NULL (nothing written).
int tmDay_getDayFromTime(time_t t, tmDay *day)
{
    if (day == nullptr) {
        qob_errno = RSV_ERR_BAD_ARGUMENT;
        return -1;
    }
    const struct tm *tm = localtime(&t);
    if (tm == nullptr) {
        qob_errno = RSV_ERR_BAD_ARGUMENT;
        return -1;
    }
    day->mday = tm->tm_mday;
    day->wday = tm->tm_wday;
    day->mon = tm->tm_mon;
    day->year = tm->tm_year + 1900;
    return 0;
}

// 1 when a lies before b by year, month and day; for equal days, whether
// orEqual is set; else 0. The weekday is not compared. 0 on a NULL argument.
int tmDay_earlierThan(const tmDay *a, const tmDay *b, int orEqual)
{
    if (a == nullptr || b == nullptr)
        return 0;
    if (a->year != b->year)
        return a->year < b->year;
    if (a->mon != b->mon)
        return a->mon < b->mon;
    if (a->mday != b->mday)
        return a->mday < b->mday;
    return orEqual ? 1 : 0;
}

// 1 when b is the calendar day before a (across month and year ends), else 0
// (also on a NULL argument).
int tmDay_dayAfter(const tmDay *a, const tmDay *b)
{
    if (a == nullptr || b == nullptr)
        return 0;
    struct tm before {};
    before.tm_mday = a->mday - 1;
    before.tm_mon = a->mon;
    before.tm_year = a->year - 1900;
    // Noon keeps the normalisation clear of a change of clocks at midnight.
    before.tm_hour = 12;
    before.tm_isdst = -1;
    if (mktime(&before) == static_cast<time_t>(-1))
        return 0;
    return before.tm_mday == b->mday && before.tm_mon == b->mon && before.tm_year + 1900 == b->year;
}

// The instance of a recurring window current at `reference`: the one whose
// end is the next end occurrence after it (an instance in progress counts),
// moved past the disabled durations of the list when it is not NULL or empty.
// Results go to *start and *end when those are not NULL. A NULL window (6118)
// or one without a dash (6119) is logged at error level with qob_errno 52; a
// failed copy sets qob_errno 55. On an error the outputs are untouched.
void RsvTimeWindow_getCurrentInstance(const char *timeWindow, List *disabledDurations, time_t reference,
                                      time_t *start, time_t *end)
{
    if (timeWindow == nullptr) {
        kx_syslog(KX_LOG_ERR,
                  kx_catgets(kx_catd, rsv::kCatSetRsv, kMsgWindowNull, "%s: function called with timeWindow == NULL"),
                  kCurrentInstanceName);
        qob_errno = RSV_ERR_BAD_ARGUMENT;
        return;
    }
    rsv::CPtr<char> copy(rsv::dupText(timeWindow));
    if (!copy) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return;
    }
    char *dash = std::strchr(copy.get(), '-');
    if (dash == nullptr) {
        kx_syslog(KX_LOG_ERR, kx_catgets(kx_catd, rsv::kCatSetRsv, kMsgWindowFormat, "%s: error in timeWindow format"),
                  kCurrentInstanceName);
        qob_errno = RSV_ERR_BAD_ARGUMENT;
        return;
    }
    *dash = '\0';
    const int64_t duration = RsvTimeWindow_toDuration(timeWindow);
    const time_t endOccur = Rsv_timeToOccurFromGivenTime(dash + 1, reference, RSV_OCCUR_NEXT);
    time_t s = endOccur - duration;
    if (hasDurations(disabledDurations))
        s = Rsv_skipDisabledDays(disabledDurations, copy.get(), s);
    if (start != nullptr)
        *start = s;
    if (end != nullptr)
        *end = s + duration;
}

// The entry's instance current at `reference`; disabled days are skipped only
// when useDisabled is set and the entry is recurring. qob_errno 52 for a NULL
// entry (outputs untouched); otherwise as RsvTimeWindow_getCurrentInstance.
void RsvEnt_getCurrentInstanceAtTime(RsvEnt *ent, int useDisabled, time_t reference, time_t *start, time_t *end)
{
    if (ent == nullptr) {
        qob_errno = RSV_ERR_BAD_ARGUMENT;
        return;
    }
    List *durations = (useDisabled && (ent->options & RSV_OPT_RECURRING)) ? ent->disabledDurations : nullptr;
    RsvTimeWindow_getCurrentInstance(ent->timeWindow, durations, reference, start, end);
}

// As RsvEnt_getCurrentInstanceAtTime at the current time.
void RsvEnt_getCurrentInstance(RsvEnt *ent, int useDisabled, time_t *start, time_t *end)
{
    RsvEnt_getCurrentInstanceAtTime(ent, useDisabled, rsv::now(), start, end);
}

// The entry's next instance to start after now, with disabled days skipped
// when useDisabled is set (the recurring bit is not consulted here). The end
// is the start plus the entry's stored duration. qob_errno 52 for a NULL
// entry or a window without a dash, 55 for a failed copy; outputs untouched
// then.
void RsvEnt_getNextInstance(RsvEnt *ent, int useDisabled, time_t *start, time_t *end)
{
    if (ent == nullptr || ent->timeWindow == nullptr) {
        qob_errno = RSV_ERR_BAD_ARGUMENT;
        return;
    }
    const time_t now = rsv::now();
    rsv::CPtr<char> copy(rsv::dupText(ent->timeWindow));
    if (!copy) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return;
    }
    char *dash = std::strchr(copy.get(), '-');
    if (dash == nullptr) {
        qob_errno = RSV_ERR_BAD_ARGUMENT;
        return;
    }
    *dash = '\0';
    time_t s = Rsv_timeToOccurFromGivenTime(copy.get(), now, RSV_OCCUR_NEXT);
    if (useDisabled && hasDurations(ent->disabledDurations))
        s = Rsv_skipDisabledDays(ent->disabledDurations, copy.get(), s);
    if (start != nullptr)
        *start = s;
    if (end != nullptr)
        *end = s + RsvEnt_getDuration(ent);
}

// Record start..end as the recurring entry's readable instance text
// (timeDuration, owned by the entry). Entries without the recurring bit, and
// NULL, are left untouched. When the text cannot be allocated it stays NULL.
void RsvEnt_setNextInstance(RsvEnt *ent, time_t start, time_t end)
{
    if (ent == nullptr || !(ent->options & RSV_OPT_RECURRING))
        return;
    std::free(ent->timeDuration);
    ent->timeDuration = nullptr;
    setCalendarTimeDuration(start, end, &ent->timeDuration);
    if (rsv::logOn(LC_RSV))
        kx_syslog(KX_LOG_DEBUG, "%s: Reservation %s set its time duration: %s", "RsvEnt_setNextInstance()",
                  ent->rsvId ? ent->rsvId : "", ent->timeDuration ? ent->timeDuration : "");
}

// Replace *text (freed) with "<ctime start> - <ctime end>" without newlines,
// allocated with allocZeroed; the caller owns it. When the allocation fails
// *text is NULL. A NULL text pointer is ignored.
void setCalendarTimeDuration(time_t start, time_t end, char **text)
{
    // Static like the daemon's own: the module is not reentrant anyway.
    static char startText[kCtimeBufSize];
    static char endText[kCtimeBufSize];
    if (text == nullptr)
        return;
    ctimeText(start, startText, sizeof startText);
    ctimeText(end, endText, sizeof endText);
    std::free(*text);
    const size_t size = std::strlen(startText) + std::strlen(endText) + 5;
    *text = static_cast<char *>(rsv::allocRecord(static_cast<int>(size), 1, "setCalendarTimeDuration"));
    if (*text != nullptr)
        std::snprintf(*text, size, "%s - %s", startText, endText);
}

} // extern "C"
