// timeparse.h: the times and windows an operator types, and how rsvctl
// prints them. All calendar work is local time ($TZ).
#ifndef RSVCTL_TIMEPARSE_H
#define RSVCTL_TIMEPARSE_H

#include <ctime>
#include <optional>
#include <string>

namespace rsvctl {

// Pin the module's clock to $RSVCTL_NOW (epoch seconds) when it is set; only
// tests set it. Throws CliError (usage) for a malformed value.
void installPinnedClock();

// The current time, through the module's clock.
time_t nowTime();

// A point in time, in the operator's zone ($TZ):
//   "YYYY-MM-DD HH:MM[:SS]", "YYYY-MM-DDTHH:MM[:SS]", "YYYY-MM-DD" (midnight),
//   either with an offset "Z", "+HH:MM", "-HHMM" or "+HH" (then no zone
//   applies); "now"; "+90m", "+2h", "+1d", "+1d2h30m" or "+90" (minutes)
//   from now, days counted on the calendar; "today HH:MM", "tomorrow HH:MM";
//   "@1764576000" or bare digits, epoch seconds. Up to the year 9999. A wall
//   time the clocks skip is refused naming the last minute before the jump
//   and the first after it; one they show twice is refused unless an offset
//   says which. `what` names the option in the error. Throws CliError
//   (usage).
time_t parsePoint(const std::string &text, const std::string &what);
// The same against a given "now".
time_t parsePointAt(const std::string &text, const std::string &what, time_t now);

// The begin of a booking: parsePoint, except that "now" is the next whole
// minute (a booking must start in the future).
time_t parseBegin(const std::string &text, const std::string &what);

// A shift "+N" or "-N" minutes, or with units d, h, m as for a duration
// ("-1d", "+1d2h30m"), in minutes; nullopt when the text does not start
// with a sign.
std::optional<long> parseShiftMinutes(const std::string &text, const std::string &what);

// A length of time: numbers each followed by a unit d, h or m, units in
// that order and each at most once ("6h", "90m", "1d2h", "2h30m"), from 1
// minute to 366 days; in minutes. `what` names the option in the error.
// Throws CliError (usage).
int parseDurationMinutes(const std::string &text, const std::string &what);

// A recurring window "H[:M]-H[:M]" (daily) or "D:H:M-D:H:M" (weekly, D 0..7
// or a weekday name such as fri), returned in the module's text with
// weekday names turned into numbers. Throws CliError (usage) when the shape
// is wrong; the module's own check runs afterwards.
std::string normaliseRecurringWindow(const std::string &text);

// True when a recurring window text names weekdays (D:H:M).
bool isWeeklyWindow(const std::string &window);

// "Mon 2026-11-23 09:00".
std::string formatTime(time_t t);
// "2026-11-23T09:00:00" (local, for --json).
std::string formatIso(time_t t);
// "2d 8h 30m", "45m", "0m".
std::string formatDuration(long long seconds);
// "Mon".
const char *weekdayName(int wday);

} // namespace rsvctl

#endif
