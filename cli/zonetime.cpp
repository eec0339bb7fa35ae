// zonetime.cpp: the operator's zone, read through the C library.
//
// The calendar (which dates exist, counting days) comes from the date
// library; the offsets from the C library's zone reader, which applies the
// zone file's rule for the years after its last listed change, so a summer
// afternoon in 2040 has its summer offset.
#include "zonetime.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <date/date.h>

namespace rsvctl {

namespace {

// The file the C library reads when $TZ is unset, and $TZ naming it.
constexpr const char *kSystemZoneFile = "/etc/localtime";
constexpr const char *kSystemZoneTz = ":/etc/localtime";
bool zoneSetHere = false;

date::year_month_day ymdOf(const WallTime &w)
{
    return date::year{w.year} / date::month{static_cast<unsigned>(w.month)} / date::day{static_cast<unsigned>(w.day)};
}

} // namespace

bool WallTime::valid() const
{
    return month >= 1 && month <= 12 && day >= 1 && day <= 31 && ymdOf(*this).ok() && hour >= 0 && hour <= 23 &&
           minute >= 0 && minute <= 59 && second >= 0 && second <= 59;
}

long long WallTime::count() const
{
    const long long days = date::sys_days(ymdOf(*this)).time_since_epoch().count();
    return days * 86400 + hour * 3600LL + minute * 60LL + second;
}

WallTime WallTime::plusDays(long long days) const
{
    const date::year_month_day ymd{date::sys_days(ymdOf(*this)) + date::days{days}};
    WallTime out = *this;
    out.year = static_cast<int>(ymd.year());
    out.month = static_cast<int>(static_cast<unsigned>(ymd.month()));
    out.day = static_cast<int>(static_cast<unsigned>(ymd.day()));
    return out;
}

WallTime wallTimeOf(time_t t)
{
    std::tm tm{};
    localtime_r(&t, &tm);
    WallTime w;
    w.year = tm.tm_year + 1900;
    w.month = tm.tm_mon + 1;
    w.day = tm.tm_mday;
    w.hour = tm.tm_hour;
    w.minute = tm.tm_min;
    w.second = tm.tm_sec;
    return w;
}

long utcOffsetAt(time_t t)
{
    std::tm tm{};
    localtime_r(&t, &tm);
    return tm.tm_gmtoff;
}

WallResolution resolveWallTime(const WallTime &wall)
{
    const long long local = wall.count();
    // Clock changes are months apart: the offsets a day either side are the
    // only ones this wall time can have.
    const long before = utcOffsetAt(static_cast<time_t>(local - 86400));
    const long after = utcOffsetAt(static_cast<time_t>(local + 86400));
    auto shows = [&](long long t) { return t + utcOffsetAt(static_cast<time_t>(t)) == local; };
    const long long early = local - std::max(before, after);
    const long long late = local - std::min(before, after);
    const bool earlyFits = shows(early), lateFits = shows(late);
    WallResolution r;
    if (earlyFits && lateFits && early != late) {
        r.kind = WallResolution::Repeated;
        r.first = static_cast<time_t>(early);
        r.second = static_cast<time_t>(late);
    } else if (earlyFits || lateFits) {
        r.first = static_cast<time_t>(earlyFits ? early : late);
    } else {
        // Skipped: between `early` (still the old offset) and `late` (the
        // new one) lies the jump; find its second.
        long long lo = early, hi = late;
        const long oldOffset = utcOffsetAt(static_cast<time_t>(lo));
        while (hi - lo > 1) {
            const long long mid = lo + (hi - lo) / 2;
            (utcOffsetAt(static_cast<time_t>(mid)) == oldOffset ? lo : hi) = mid;
        }
        r.kind = WallResolution::Skipped;
        r.first = static_cast<time_t>(hi);
        r.second = static_cast<time_t>(lo);
    }
    return r;
}

void readZoneOnce()
{
    if (std::getenv("TZ") || access(kSystemZoneFile, R_OK) != 0)
        return;
    zoneSetHere = setenv("TZ", kSystemZoneTz, 0) == 0;
}

bool zoneNamedByOperator()
{
    const char *tz = std::getenv("TZ");
    return tz && *tz && !(zoneSetHere && std::strcmp(tz, kSystemZoneTz) == 0);
}

} // namespace rsvctl
