// Occurrence arithmetic of time-window texts: turns a time point ("8:0",
// "5:18:0" or an absolute "1136102400") into the calendar time of the wanted
// occurrence relative to a reference time, and a window into its length.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>

#include "rsv_internal.h"
#include "timewin_internal.h"

namespace {

constexpr const char *kMonthNames[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// Index 0..11 of a three-letter month name; 12 for an unknown one, which
// mktime later carries into January of the following year.
int monthIndex(const char *name)
{
    for (int i = 0; i < 12; ++i)
        if (std::strcmp(kMonthNames[i], name) == 0)
            return i;
    return 12;
}

// Whether a parsed weekly day names the weekday `wday` of the reference time.
// The date helpers return Sunday as 7 while localtime counts it as 0; without
// this a Sunday point would never be "today" and every Sunday window would
// look a week away during its own Sunday.
bool isSameWeekday(int day, int wday)
{
    return day == wday || (day == 7 && wday == 0);
}

// The weekday (0..7, or W + 7) the wanted occurrence falls on, for a point of
// `day` (0 = daily) at hour:minute, relative to a reference at weekday W,
// hour H and minute M.
int occurrenceDay(int day, int hour, int minute, int mode, int W, int H, int M)
{
    const bool pointLater = hour > H || (hour == H && minute > M);
    const bool pointEarlier = hour < H || (hour == H && minute < M);

    if (day == 0) {
        // A daily point in the as-is mode stays day 0, read as Sunday below.
        if (mode == RSV_OCCUR_ASIS)
            return day;
        if (mode == RSV_OCCUR_TODAY)
            return W;
        if (mode == RSV_OCCUR_AFTER_TODAY)
            return W + 1;
        // At the very same minute a daily point moves on to tomorrow.
        return pointLater ? W : W + 1;
    }
    if (isSameWeekday(day, W)) {
        if (mode == RSV_OCCUR_ASIS || mode == RSV_OCCUR_TODAY)
            return W;
        if (mode == RSV_OCCUR_AFTER_TODAY)
            return W + 7;
        // Unlike a daily point, a weekly point at the current minute stays
        // today; callers that start a window "now" rely on that.
        return pointEarlier ? W + 7 : W;
    }
    return day;
}


// The lengths remembered while a rsv::WindowLengthMemo lives on the thread,
// all taken at `second` with wide times `wide`.
using rsv::NameHash;

struct WindowLengths {
    time_t second = 0;
    bool wide = false;
    std::unordered_map<std::string, int64_t, NameHash, std::equal_to<>> byText;
};
thread_local int windowMemoDepth = 0;
thread_local WindowLengths windowMemo;

// The length of one occurrence of `timeWindow` (not NULL) as worked out from
// the current time; see RsvTimeWindow_toDuration. `copied` tells whether the
// text could be copied (a failed copy gives 0, which is not to be remembered).
int64_t windowLength(const char *timeWindow, bool *copied = nullptr)
{
    rsv::CPtr<char> copy(rsv::dupText(timeWindow));
    if (copied)
        *copied = static_cast<bool>(copy);
    if (!copy)
        return 0;
    char *dash = std::strchr(copy.get(), '-');
    if (dash == nullptr)
        return 0;
    *dash = '\0';
    const time_t start = Rsv_time2occur(copy.get(), RSV_OCCUR_NEXT);
    const time_t end = Rsv_timeToOccurFromGivenTime(dash + 1, start, RSV_OCCUR_NEXT);
    return static_cast<int64_t>(end - start);
}

// windowLength from the memory when the text was worked out at this second;
// everything remembered is forgotten when the second (or the width of
// one-off times, which a malformed point falls back to) has moved on. A
// length that cannot be remembered for want of memory is worked out alone.
int64_t rememberedLength(const char *timeWindow)
{
    const time_t second = rsv::now();
    const bool wide = rsv::wideTimes();
    if (windowMemo.second != second || windowMemo.wide != wide) {
        windowMemo.byText.clear();
        windowMemo.second = second;
        windowMemo.wide = wide;
    }
    const auto found = windowMemo.byText.find(std::string_view(timeWindow));
    if (found != windowMemo.byText.end())
        return found->second;
    bool copied = false;
    const int64_t length = windowLength(timeWindow, &copied);
    if (!copied)
        return length;
    try {
        windowMemo.byText.emplace(timeWindow, length);
    } catch (const std::bad_alloc &) {
    }
    return length;
}

} // namespace

namespace rsv {

WindowLengthMemo::WindowLengthMemo() noexcept : outermost_(windowMemoDepth++ == 0) {}

WindowLengthMemo::~WindowLengthMemo()
{
    --windowMemoDepth;
    if (outermost_)
        WindowLengths().byText.swap(windowMemo.byText);
}


time_t windowPoint(const char *text) noexcept
{
    if (wideTimes())
        return static_cast<time_t>(std::strtoll(text, nullptr, 10));
    return static_cast<time_t>(std::atoi(text));
}

} // namespace rsv

extern "C" {

// The occurrence of `timePoint` relative to the current time (rsv::now()).
// See Rsv_timeToOccurFromGivenTime for results.
time_t Rsv_time2occur(const char *timePoint, int mode)
{
    return Rsv_timeToOccurFromGivenTime(timePoint, rsv::now(), mode);
}

// The calendar time of the wanted occurrence (`mode`, RSV_OCCUR_*) of a
// recurring time point relative to `reference`, in local time; seconds are
// always 0. -1 for a NULL text. A text that is no recurring time point is an
// absolute time and comes back as atoi of the text, so one-off windows go
// through the same arithmetic. No error number; nothing is allocated.
time_t Rsv_timeToOccurFromGivenTime(const char *timePoint, time_t reference, int mode)
{
    if (timePoint == nullptr)
        return -1;

    float fhour = 0.0f;
    int day = 0;
    int parsed;
    {
        // A failed copy is no error: the text itself is parsed instead.
        rsv::CPtr<char> copy(rsv::dupText(timePoint));
        parsed = parse_time(copy ? copy.get() : timePoint, &fhour, &day);
    }
    if (parsed < 0)
        return rsv::windowPoint(timePoint);

    const int today = getNowday(reference);

    const int hour = static_cast<int>(fhour);
    const int minute = static_cast<int>(static_cast<double>(fhour - hour) * 60.0 + 0.5);

    const time_t ref = reference;
    const struct tm *tmp = localtime(&ref);
    if (tmp == nullptr)
        return -1;
    const struct tm tmNow = *tmp;
    const int W = tmNow.tm_wday;

    const int d = occurrenceDay(day, hour, minute, mode, W, tmNow.tm_hour, tmNow.tm_min);
    const int offset = W <= d ? d - W : d - W + 7;

    int mday = 0;
    int mon = 0;
    int year = 0;
    const int date = nextDays(today, offset);
    if (date >= 0) {
        // nextDays carries every field over, so the digits are the date:
        // year * 10000 + month (0..11) * 100 + day, as the text below reads.
        year = date / 10000;
        mon = date / 100 % 100;
        mday = date % 100;
    } else {
        char weekdayName[4] = "";
        char monthName[4] = "";
        const char *dateText = intToDate(date);
        if (dateText == nullptr ||
            std::sscanf(dateText, "%3s%3s%d%d", weekdayName, monthName, &mday, &year) != 4)
            return -1;
        mon = monthIndex(monthName);
    }

    struct tm when {};
    when.tm_min = minute;
    when.tm_hour = hour;
    when.tm_mday = mday;
    when.tm_mon = mon;
    when.tm_year = year - 1900;
    // The reference time's daylight flag is carried over on purpose: on the
    // day of a change mktime shifts the result by the hour, which the
    // daemon's instance arithmetic has always seen.
    when.tm_isdst = tmNow.tm_isdst;
    return mktime(&when);
}

// The entry's stored length of one occurrence in seconds; 0 for NULL.
int64_t RsvEnt_getDuration(const RsvEnt *ent)
{
    return ent == nullptr ? 0 : ent->duration;
}

// Seconds from now until the next occurrence (mode 1) of the end point of the
// entry's window; negative for a one-off window whose end has passed. 0 when
// the entry, its window or the window's dash is missing, or the copy fails.
time_t RsvEnt_getLeftTime(const RsvEnt *ent)
{
    if (ent == nullptr || ent->timeWindow == nullptr)
        return 0;
    rsv::CPtr<char> copy(rsv::dupText(ent->timeWindow));
    if (!copy)
        return 0;
    char *dash = std::strchr(copy.get(), '-');
    if (dash == nullptr)
        return 0;
    return Rsv_time2occur(dash + 1, RSV_OCCUR_NEXT) - rsv::now();
}

// Length of one occurrence of a window in seconds: the end is searched from
// the start onward, so a daily window ending earlier in the day than it
// starts (22:0-6:0) crosses midnight with a positive length. 0 for a NULL
// text, a text without a dash, or a failed copy. Within a
// rsv::WindowLengthMemo a recurring window's length is remembered.
int64_t RsvTimeWindow_toDuration(const char *timeWindow)
{
    if (timeWindow == nullptr)
        return 0;
    if (windowMemoDepth > 0 && std::strchr(timeWindow, ':') != nullptr)
        return rememberedLength(timeWindow);
    return windowLength(timeWindow);
}

} // extern "C"
