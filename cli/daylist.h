// daylist.h: the days an operator names for --disable and --enable.
#ifndef RSVCTL_DAYLIST_H
#define RSVCTL_DAYLIST_H

#include <ctime>
#include <string>
#include <vector>

namespace rsvctl {

// A comma-separated list of days and ranges, each a date "YYYY-MM-DD" or
// the module's D, M:D or Y:M:D (omitted parts are today's), a range
// "FIRST..LAST", "FIRST/LAST" or, in the module's forms, "FIRST-LAST". A
// range whose last day leaves out the year (or the month) and would come
// before its first runs into the next year (or month): 12:30-1:2 spans the
// new year. Returns the module's "Y:M:D" or "Y:M:D-Y:M:D" texts, one per
// item. `today` is any instant of today. Throws CliError (usage) naming
// the item that is not a day or range.
std::vector<std::string> parseDayList(const std::string &text, const std::string &what, time_t today);

} // namespace rsvctl

#endif
