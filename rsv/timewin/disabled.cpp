// Disabled durations: the stretches of whole days on which a recurring
// reservation is switched off. Their date text, the sorted and merged list of
// an entry, pruning, the per-week day flags the planners ask for, and the
// readable day ranges of replies and of the command side.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "rsv_internal.h"

namespace {

constexpr const char *kListName = "disabled durations";
constexpr size_t kCtimeBufSize = 80;
constexpr size_t kRangeTextSize = 512;
constexpr int kMinYear = 1900;
constexpr int kSecondsBeforeWeek = 10080;
constexpr int kCountAllColons = 1 << 30;

int fail(int err)
{
    qob_errno = err;
    return -1;
}

// A copy through the daemon's string service (strdup before any services are
// installed: the command side may call the date checker first).
char *copyText(const char *text)
{
    return rsv::dupText(text);
}

bool isRecurring(const RsvEnt *ent)
{
    return (ent->options & RSV_OPT_RECURRING) != 0;
}

bool hasDurations(const List *list)
{
    return list != nullptr && list->forw != reinterpret_cast<const ListEntry *>(list);
}

ListEntry *listEnd(List *list)
{
    return reinterpret_cast<ListEntry *>(list);
}

RsvDisableDuration *asDuration(ListEntry *e)
{
    return reinterpret_cast<RsvDisableDuration *>(e);
}

int countColons(const char *text, int stopAt)
{
    int n = 0;
    for (const char *p = text; *p != '\0' && n < stopAt; ++p)
        if (*p == ':')
            ++n;
    return n;
}

// The local calendar day of (year, month 0..11, mday), normalised by mktime.
tmDay normalisedDay(int year, int mon, int mday)
{
    struct tm tm {};
    tm.tm_mday = mday;
    tm.tm_mon = mon;
    tm.tm_year = year - 1900;
    tm.tm_hour = 12;
    tm.tm_isdst = -1;
    mktime(&tm);
    return tmDay{tm.tm_mday, tm.tm_wday, tm.tm_mon, tm.tm_year + 1900};
}

// 00:00 local time of a day.
time_t startOfDay(const tmDay &day)
{
    struct tm tm {};
    tm.tm_mday = day.mday;
    tm.tm_mon = day.mon;
    tm.tm_year = day.year - 1900;
    tm.tm_isdst = -1;
    return mktime(&tm);
}

// ctime of t in buf (bounded); an unprintable time gives "".
void ctimeText(time_t t, char *buf, size_t size)
{
    const char *text = ctime(&t);
    std::snprintf(buf, size, "%s", text ? text : "");
}

// "Www Mmm D YYYY" from a ctime text: the clock time is dropped and the day
// loses its padding. Words are taken from the right at runs of spaces, at
// most five, and the last character (ctime's newline) is cut.
void ctimeToDateText(const char *ctimeText, char *out, size_t size)
{
    char work[kCtimeBufSize];
    std::snprintf(work, sizeof work, "%s", ctimeText);
    const char *words[5] = {"", "", "", "", ""};
    int count = 0;
    char *p = work + std::strlen(work);
    while (count < 5 && p > work) {
        while (p > work && p[-1] == ' ')
            *--p = '\0';
        if (p == work)
            break;
        while (p > work && p[-1] != ' ')
            --p;
        words[count++] = p;
    }
    // With all five words: year, clock, day, month, weekday from the right.
    if (count == 5)
        std::snprintf(out, size, "%s %s %s %s", words[4], words[3], words[2], words[0]);
    else
        std::snprintf(out, size, "%s", ctimeText);
    const size_t len = std::strlen(out);
    if (len > 0)
        out[len - 1] = '\0';
}

} // namespace

extern "C" {

// Read one date ("day", "month:day" or "year:month:day", with numColons 0, 1
// or 2; omitted parts are today's) into *day. The text is cut in place at its
// colons. 0; -1 with qob_errno 320 for a malformed or impossible date (31
// April, 29 February of a common year), 334 when checkPast is set and the
// date is before today, 35 for a NULL text, 52 for a NULL day. *day is
// written only on success.
int fillInRsvDisableDurationDate(char *text, tmDay *day, int numColons, int checkPast)
{
    if (numColons < 0 || numColons > 2)
        return fail(RSV_ERR_BAD_DATE);
    if (text == nullptr)
        return fail(RSV_ERR_NO_TEXT);
    if (day == nullptr)
        return fail(RSV_ERR_BAD_ARGUMENT);

    const time_t now = rsv::now();
    const struct tm *nowTm = localtime(&now);
    if (nowTm == nullptr)
        return fail(RSV_ERR_BAD_DATE);
    const struct tm today = *nowTm;

    char *p = text;
    int year = today.tm_year + 1900;
    int month = today.tm_mon + 1;
    if (numColons == 2) {
        char *colon = std::strchr(p, ':');
        if (colon == nullptr)
            return fail(RSV_ERR_BAD_DATE);
        *colon = '\0';
        if (!isint_(p) || std::atoi(p) < kMinYear)
            return fail(RSV_ERR_BAD_DATE);
        year = std::atoi(p);
        p = colon + 1;
    }
    if (numColons >= 1) {
        char *colon = std::strchr(p, ':');
        if (colon == nullptr)
            return fail(RSV_ERR_BAD_DATE);
        *colon = '\0';
        if (!isint_(p) || std::atoi(p) < 1)
            return fail(RSV_ERR_BAD_DATE);
        month = std::atoi(p);
        p = colon + 1;
    }
    if (!isint_(p) || std::atoi(p) == 0)
        return fail(RSV_ERR_BAD_DATE);
    const int mday = std::atoi(p);

    struct tm tm {};
    tm.tm_mday = mday;
    tm.tm_mon = month - 1;
    tm.tm_year = year - 1900;
    if (mktime(&tm) < 0)
        return fail(RSV_ERR_BAD_DATE);
    if (tm.tm_mday != mday || (numColons >= 1 && tm.tm_mon != month - 1) ||
        (numColons == 2 && tm.tm_year != year - 1900))
        return fail(RSV_ERR_BAD_DATE);

    if (checkPast) {
        const bool past = tm.tm_year < today.tm_year ||
                          (tm.tm_year == today.tm_year && tm.tm_mon < today.tm_mon) ||
                          (tm.tm_year == today.tm_year && tm.tm_mon == today.tm_mon && tm.tm_mday < today.tm_mday);
        if (past)
            return fail(RSV_ERR_DATE_IN_PAST);
    }

    day->mday = tm.tm_mday;
    day->wday = tm.tm_wday;
    day->mon = tm.tm_mon;
    day->year = tm.tm_year + 1900;
    return 0;
}

// A new duration from a user's date text ("first-last" or one date; both
// sides in the same form). The record comes from allocZeroed; the caller owns it
// and frees it with free. NULL with qob_errno 35 (NULL text), 55 (no memory),
// 320 (bad date, unequal forms, last before first) or 334 (a date before
// today with checkPast); nothing is left allocated then.
RsvDisableDuration *createRsvDisableDuration(const char *dateText, int checkPast)
{
    if (dateText == nullptr) {
        qob_errno = RSV_ERR_NO_TEXT;
        return nullptr;
    }
    rsv::CPtr<RsvDisableDuration> rec(
        static_cast<RsvDisableDuration *>(rsv::allocRecord(1, sizeof(RsvDisableDuration), __func__)));
    rsv::CPtr<char> firstText(rec ? copyText(dateText) : nullptr);
    if (!rec || !firstText) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return nullptr;
    }
    char *dash = std::strchr(firstText.get(), '-');
    if (dash != nullptr)
        *dash = '\0';
    rsv::CPtr<char> lastText(copyText(dash != nullptr ? dash + 1 : firstText.get()));
    if (!lastText) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return nullptr;
    }
    const int colons = countColons(firstText.get(), kCountAllColons);
    if (colons != countColons(lastText.get(), kCountAllColons)) {
        qob_errno = RSV_ERR_BAD_DATE;
        return nullptr;
    }
    if (fillInRsvDisableDurationDate(firstText.get(), &rec->firstDay, colons, checkPast) < 0 ||
        fillInRsvDisableDurationDate(lastText.get(), &rec->lastDay, colons, checkPast) < 0)
        return nullptr;
    if (tmDay_earlierThan(&rec->lastDay, &rec->firstDay, 0)) {
        qob_errno = RSV_ERR_BAD_DATE;
        return nullptr;
    }
    return rec.release();
}

// A new duration covering the days of the recurring entry's next instance
// (disabled days skipped): its start day, and for a weekly window its end
// day; a daily instance gives its start day alone even when it runs past
// midnight. The record comes from calloc and is the caller's. NULL with
// qob_errno 52 (NULL, one-off or window-less entry, or a window without a
// dash) or 55.
RsvDisableDuration *createNextDisableDuration(RsvEnt *ent)
{
    if (ent == nullptr || !isRecurring(ent) || ent->timeWindow == nullptr ||
        std::strchr(ent->timeWindow, '-') == nullptr) {
        qob_errno = RSV_ERR_BAD_ARGUMENT;
        return nullptr;
    }
    rsv::CPtr<RsvDisableDuration> rec(
        static_cast<RsvDisableDuration *>(rsv::allocRecord(1, sizeof(RsvDisableDuration), __func__)));
    if (!rec) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return nullptr;
    }
    const int savedErrno = qob_errno;
    qob_errno = RSV_OK;
    time_t start = 0;
    time_t end = 0;
    RsvEnt_getNextInstance(ent, 1, &start, &end);
    if (qob_errno != RSV_OK)
        return nullptr;
    qob_errno = savedErrno;
    tmDay_getDayFromTime(start, &rec->firstDay);
    // Four colons means d:h:m-d:h:m, a weekly window.
    if (countColons(ent->timeWindow, 4) == 4)
        tmDay_getDayFromTime(end, &rec->lastDay);
    else
        rec->lastDay = rec->firstDay;
    return rec.release();
}

// Add a duration to the recurring entry's sorted list, merging it with every
// duration it overlaps or touches. 0 on success (the list owns rec, or rec
// was merged into it). -1 with qob_errno 325 when rec lies inside an existing
// duration (rec is freed, the list unchanged); 52 for a NULL or one-off
// entry or a NULL rec, 55 when the list cannot be made (rec stays the
// caller's, the list unchanged).
int addDurationToDisabledList(RsvEnt *ent, RsvDisableDuration *rec)
{
    if (ent == nullptr || !isRecurring(ent) || rec == nullptr)
        return fail(RSV_ERR_BAD_ARGUMENT);

    // Months are printed 0-based here, unlike everywhere else; log readers
    // of the daemon expect exactly this line.
    kx_syslog(KX_LOG_DEBUG, "%s: adding a disabled duration %d/%d/%d-%d/%d/%d to reservation %s",
              "addDurationToDisabledList", rec->firstDay.year, rec->firstDay.mon, rec->firstDay.mday,
              rec->lastDay.year, rec->lastDay.mon, rec->lastDay.mday, ent->rsvId ? ent->rsvId : "");

    if (ent->disabledDurations == nullptr) {
        ent->disabledDurations = listCreate(kListName);
        if (ent->disabledDurations == nullptr)
            return fail(RSV_ERR_NO_MEMORY);
    }
    List *list = ent->disabledDurations;
    if (!hasDurations(list)) {
        listInsertEntryAtBack(list, &rec->links);
        return 0;
    }

    bool placed = false;
    for (ListEntry *e = list->forw; e != listEnd(list); e = e->forw) {
        RsvDisableDuration *cur = asDuration(e);
        if (tmDay_earlierThan(&cur->firstDay, &rec->firstDay, 1) && tmDay_earlierThan(&rec->lastDay, &cur->lastDay, 1)) {
            std::free(rec);
            return fail(RSV_ERR_DURATION_EXISTS);
        }
        if (tmDay_earlierThan(&rec->lastDay, &cur->firstDay, 0) && !tmDay_dayAfter(&cur->firstDay, &rec->lastDay)) {
            listInsertEntryBefore(list, e, &rec->links);
            placed = true;
            break;
        }
    }
    if (!placed)
        listInsertEntryAtBack(list, &rec->links);

    // Merge backward: a duration placed after the ones it overlaps or touches
    // swallows them all.
    while (rec->links.back != listEnd(list)) {
        RsvDisableDuration *prev = asDuration(rec->links.back);
        if (!tmDay_earlierThan(&rec->firstDay, &prev->lastDay, 1) && !tmDay_dayAfter(&rec->firstDay, &prev->lastDay))
            break;
        if (tmDay_earlierThan(&rec->lastDay, &prev->lastDay, 0))
            rec->lastDay = prev->lastDay;
        if (tmDay_earlierThan(&prev->firstDay, &rec->firstDay, 0))
            rec->firstDay = prev->firstDay;
        listRemoveEntry(list, &prev->links);
        std::free(prev);
    }
    return 0;
}

// Drop every disabled duration that ended before the Sunday that starts the
// previous week; a list left empty is destroyed. Durations of the previous
// week are kept because the planners look one week back.
void RsvTimeTbl_cleanDisabledDurations(HashTab *entries)
{
    if (entries == nullptr) {
        kx_syslog(KX_LOG_DEBUG, "%s: function called with NULL input", "RsvTimeTbl_cleanDisabledDurations");
        return;
    }
    const time_t now = rsv::now();
    const struct tm *nowTm = localtime(&now);
    if (nowTm == nullptr)
        return;
    const tmDay cutoff =
        normalisedDay(nowTm->tm_year + 1900, nowTm->tm_mon, nowTm->tm_mday - (nowTm->tm_wday + 7));

    HashIter iter;
    for (HashEnt *he = h_firstEnt_(entries, &iter); he != nullptr; he = h_nextEnt_(&iter)) {
        auto *ent = static_cast<RsvEnt *>(he->value);
        if (ent == nullptr || !hasDurations(ent->disabledDurations))
            continue;
        List *list = ent->disabledDurations;
        for (ListEntry *e = list->forw; e != listEnd(list);) {
            ListEntry *next = e->forw;
            if (tmDay_earlierThan(&asDuration(e)->lastDay, &cutoff, 0)) {
                listRemoveEntry(list, e);
                std::free(e);
            }
            e = next;
        }
        if (!hasDurations(list)) {
            listDestroy(list, nullptr);
            ent->disabledDurations = nullptr;
        }
    }
}

// Flags for the seven days of `week` (index 0 its Sunday): 1 when the day
// lies in one of the entry's disabled durations. All zero when the entry has
// none; nothing is written on a NULL argument.
void getDisabledDaysInWeek(const RsvWeek *week, RsvEnt *ent, int days[7])
{
    if (week == nullptr || ent == nullptr || days == nullptr)
        return;
    for (int i = 0; i < 7; ++i)
        days[i] = 0;
    List *list = ent->disabledDurations;
    if (!hasDurations(list))
        return;

    ListEntry *e = list->forw;
    for (int i = 0; i < 7 && e != listEnd(list); ++i) {
        const tmDay day = normalisedDay(week->startYear, week->startMonth, week->startDay + i);
        while (e != listEnd(list)) {
            const RsvDisableDuration *cur = asDuration(e);
            if (tmDay_earlierThan(&day, &cur->firstDay, 0))
                break;
            if (tmDay_earlierThan(&day, &cur->lastDay, 1)) {
                days[i] = 1;
                break;
            }
            e = e->forw;
        }
    }
}

// Flags for the seven days of the week before `week`, as
// getDisabledDaysInWeek.
void getDisabledDaysInPreviousWeek(const RsvWeek *week, RsvEnt *ent, int days[7])
{
    if (week == nullptr || ent == nullptr || days == nullptr)
        return;
    // Any time on the previous week's Saturday finds that week; 10080
    // seconds back from Sunday 00:00 is one.
    const time_t t = startOfDay(tmDay{week->startDay, 0, week->startMonth, week->startYear}) - kSecondsBeforeWeek;
    RsvWeek previous{};
    RsvTime_toWeek(t, &previous);
    getDisabledDaysInWeek(&previous, ent, days);
}

// Replace *text (freed) with the readable day range "Mon Jan 9 2006 - Wed
// Jan 11 2006", or a single date when both days are the same. The text comes
// from calloc and is the caller's; when it cannot be allocated *text is NULL
// and qob_errno is 55. A NULL argument is ignored.
void setCalendarDayDuration(const tmDay *first, const tmDay *last, char **text)
{
    // Static like the daemon's own: the module is not reentrant anyway.
    static char firstCtime[kCtimeBufSize];
    static char lastCtime[kCtimeBufSize];
    static char firstDate[kCtimeBufSize];
    static char lastDate[kCtimeBufSize];
    if (first == nullptr || last == nullptr || text == nullptr)
        return;
    ctimeText(startOfDay(*first), firstCtime, sizeof firstCtime);
    ctimeText(startOfDay(*last), lastCtime, sizeof lastCtime);
    const bool singleDay = std::strcmp(firstCtime, lastCtime) == 0;

    std::free(*text);
    *text = nullptr;

    ctimeToDateText(firstCtime, firstDate, sizeof firstDate);
    ctimeToDateText(lastCtime, lastDate, sizeof lastDate);
    if (singleDay) {
        const size_t size = std::strlen(firstDate) + 2;
        *text = static_cast<char *>(rsv::allocRecord(static_cast<int>(size), 1, __func__));
        if (*text != nullptr)
            std::snprintf(*text, size, "%s", firstDate);
    } else {
        const size_t size = std::strlen(firstDate) + std::strlen(lastDate) + 5;
        *text = static_cast<char *>(rsv::allocRecord(static_cast<int>(size), 1, __func__));
        if (*text != nullptr)
            std::snprintf(*text, size, "%s - %s", firstDate, lastDate);
    }
    if (*text == nullptr)
        qob_errno = RSV_ERR_NO_MEMORY;
}

// Check a user's disabled-date text (past dates allowed) and echo it: *first
// and *last get the readable first and last day, *range "Y:M:D-Y:M:D" with
// 1-based months. 1 for a single day, 2 for a range; the caller frees the
// three texts. -1 with qob_errno 52 (a NULL output pointer), 35 (NULL text),
// or the error of createRsvDisableDuration; all three outputs are NULL then.
int qob_getdisableddates(const char *dateText, char **first, char **last, char **range)
{
    if (first == nullptr || last == nullptr || range == nullptr)
        return fail(RSV_ERR_BAD_ARGUMENT);
    *first = nullptr;
    *last = nullptr;
    *range = nullptr;
    if (dateText == nullptr)
        return fail(RSV_ERR_NO_TEXT);

    rsv::CPtr<RsvDisableDuration> rec(createRsvDisableDuration(dateText, 0));
    if (!rec)
        return -1;
    char *calText = nullptr;
    setCalendarDayDuration(&rec->firstDay, &rec->lastDay, &calText);
    rsv::CPtr<char> cal(calText);
    if (!cal)
        return fail(RSV_ERR_NO_MEMORY);

    int result = -1;
    char *dash = std::strchr(cal.get(), '-');
    if (dash == nullptr) {
        *first = copyText(cal.get());
        *last = copyText(cal.get());
        if (*first == nullptr || *last == nullptr)
            qob_errno = RSV_ERR_NO_TEXT;
        else
            result = 1;
    } else {
        char *firstEnd = dash;
        while (firstEnd > cal.get() && firstEnd[-1] == ' ')
            --firstEnd;
        const char *lastStart = dash + 1;
        while (*lastStart == ' ')
            ++lastStart;
        *firstEnd = '\0';
        *first = copyText(cal.get());
        *last = copyText(lastStart);
        if (*first == nullptr || *last == nullptr)
            qob_errno = RSV_ERR_NO_MEMORY;
        else
            result = 2;
    }

    if (result > 0) {
        *range = static_cast<char *>(rsv::allocRecord(static_cast<int>(kRangeTextSize), 1, __func__));
        if (*range != nullptr)
            std::snprintf(*range, kRangeTextSize, "%d:%d:%d-%d:%d:%d", rec->firstDay.year, rec->firstDay.mon + 1,
                          rec->firstDay.mday, rec->lastDay.year, rec->lastDay.mon + 1, rec->lastDay.mday);
        else
            result = fail(RSV_ERR_NO_MEMORY);
    }
    if (result < 0) {
        std::free(*first);
        std::free(*last);
        std::free(*range);
        *first = nullptr;
        *last = nullptr;
        *range = nullptr;
    }
    return result;
}

} // extern "C"

namespace rsv {

int removeDisabledDays(RsvEnt *ent, const RsvDisableDuration &rec) noexcept
{
    if (ent == nullptr || !hasDurations(ent->disabledDurations))
        return 0;
    List *list = ent->disabledDurations;
    const tmDay &first = rec.firstDay;
    const tmDay &last = rec.lastDay;
    auto overlaps = [&](const RsvDisableDuration *cur) {
        return !tmDay_earlierThan(&cur->lastDay, &first, 0) && !tmDay_earlierThan(&last, &cur->firstDay, 0);
    };
    // A duration reaching past both ends is cut in two: make the second
    // half before anything changes.
    RsvDisableDuration *cut = nullptr;
    bool any = false;
    for (ListEntry *e = list->forw; e != listEnd(list); e = e->forw) {
        RsvDisableDuration *cur = asDuration(e);
        any = any || overlaps(cur);
        if (tmDay_earlierThan(&cur->firstDay, &first, 0) && tmDay_earlierThan(&last, &cur->lastDay, 0))
            cut = cur;
    }
    if (!any)
        return 0;
    CPtr<RsvDisableDuration> secondHalf;
    if (cut) {
        secondHalf.reset(static_cast<RsvDisableDuration *>(allocRecord(1, sizeof(RsvDisableDuration), __func__)));
        if (!secondHalf)
            return fail(RSV_ERR_NO_MEMORY);
    }
    const tmDay dayBefore = normalisedDay(first.year, first.mon, first.mday - 1);
    const tmDay dayAfter = normalisedDay(last.year, last.mon, last.mday + 1);
    for (ListEntry *e = list->forw; e != listEnd(list);) {
        RsvDisableDuration *cur = asDuration(e);
        e = e->forw;
        if (!overlaps(cur))
            continue;
        const bool keepsHead = tmDay_earlierThan(&cur->firstDay, &first, 0);
        const bool keepsTail = tmDay_earlierThan(&last, &cur->lastDay, 0);
        if (keepsHead && keepsTail) {
            secondHalf->firstDay = dayAfter;
            secondHalf->lastDay = cur->lastDay;
            cur->lastDay = dayBefore;
            listInsertEntryBefore(list, e, &secondHalf.release()->links);
        } else if (keepsHead) {
            cur->lastDay = dayBefore;
        } else if (keepsTail) {
            cur->firstDay = dayAfter;
        } else {
            listRemoveEntry(list, &cur->links);
            std::free(cur);
        }
    }
    if (!hasDurations(list)) {
        listDestroy(list, nullptr);
        ent->disabledDurations = nullptr;
    }
    return 1;
}

} // namespace rsv
