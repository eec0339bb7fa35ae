// zonetime.h: wall-clock times of the operator's zone ($TZ) turned into
// instants, refusing the ones a clock change skips or repeats.
#ifndef RSVCTL_ZONETIME_H
#define RSVCTL_ZONETIME_H

#include <ctime>

namespace rsvctl {

// A date and time of day as typed, fields in their usual ranges (month
// 1..12). valid() checks the date exists in the calendar.
struct WallTime {
    int year = 1970, month = 1, day = 1, hour = 0, minute = 0, second = 0;
    bool valid() const;
    // Seconds from 1970-01-01 00:00 of the same calendar, no zone applied.
    long long count() const;
    // The same wall time `days` calendar days later (or earlier).
    WallTime plusDays(long long days) const;
};

// The wall time of instant `t` in the operator's zone.
WallTime wallTimeOf(time_t t);

// The UTC offset, in seconds, in force at instant `t`.
long utcOffsetAt(time_t t);

// How a wall time maps onto instants in the operator's zone.
struct WallResolution {
    enum Kind { Unique, Skipped, Repeated } kind = Unique;
    // Unique: the instant. Repeated: the earlier instant (first) and the
    // later one (second). Skipped: the instant the clocks jumped (first) —
    // the first wall time after the gap — and the last second before it
    // (second).
    time_t first = 0, second = 0;
};

WallResolution resolveWallTime(const WallTime &wall);

// With $TZ unset the C library looks the zone file up again on every
// mktime; naming the system's zone file in $TZ (when there is one) lets it
// keep the zone it read, with the same offsets. Called once at start.
void readZoneOnce();

// Whether $TZ names the operator's zone: false when it is unset, empty, or
// was set by readZoneOnce.
bool zoneNamedByOperator();

} // namespace rsvctl

#endif
