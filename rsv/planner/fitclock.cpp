// fitclock.cpp: local time for the earliest-fit search: planner weeks by
// number, and the local clock's offset from UTC read once a day instead of
// once per 10-minute start.
#include <algorithm>

#include "earliest_internal.h"
#include "kx_civil.h"
#include "planner_internal.h"
#include "timewin/timewin_internal.h"

namespace rsv::fit {

namespace {

// How far apart the C library is asked for the offset: a day, so that one
// year of starts costs a few hundred look-ups rather than 52,000.
constexpr time_t kProbeStep = kDaySeconds;

} // namespace

void weekRecord(int64_t week, RsvWeek *out)
{
    const kx::Civil sunday = kx::civilFromDays(kFirstSunday + 7 * week);
    weekFromSunday(dateToInt(static_cast<int>(sunday.year), sunday.month - 1, sunday.day), out);
}

bool localOffset(time_t t, long &offset)
{
    struct tm tm {};
    if (!localtime_r(&t, &tm))
        return false;
    offset = tm.tm_gmtoff;
    return true;
}

bool LocalClock::offsetAt(time_t t, long &offset, time_t &sameUntil)
{
    if (segments_.empty() || t < segments_.front().start) {
        long first = 0;
        if (!localOffset(t, first))
            return false;
        segments_.clear();
        segments_.push_back({t, first});
        probedUntil_ = t;
    }
    if (t > probedUntil_ && !extendTo(t))
        return false;
    auto after = std::upper_bound(segments_.begin(), segments_.end(), t,
                                  [](time_t x, const Segment &s) { return x < s.start; });
    const Segment &at = *(after - 1);
    offset = at.offset;
    sameUntil = after == segments_.end() ? probedUntil_ + 1 : after->start;
    return true;
}

// Read ahead, a day at a time, until t is covered; a day whose offset
// differs from the one before is searched for the second of the change.
bool LocalClock::extendTo(time_t t)
{
    while (probedUntil_ < t) {
        const long current = segments_.back().offset;
        const time_t next = probedUntil_ + kProbeStep;
        long ahead = 0;
        if (!localOffset(next, ahead))
            return false;
        if (ahead == current) {
            probedUntil_ = next;
            continue;
        }
        time_t same = probedUntil_;
        time_t changed = next;
        while (changed - same > 1) {
            const time_t mid = same + (changed - same) / 2;
            long midOffset = 0;
            if (!localOffset(mid, midOffset))
                return false;
            if (midOffset == current) {
                same = mid;
            } else {
                changed = mid;
                ahead = midOffset;
            }
        }
        segments_.push_back({changed, ahead});
        probedUntil_ = changed;
    }
    return true;
}

} // namespace rsv::fit
