// daylist.cpp: days and ranges of days, into the module's date texts.
#include "daylist.h"

#include <fmt/format.h>

#include "cli_error.h"
#include "zonetime.h"

namespace rsvctl {

namespace {

bool allDigits(const std::string &s)
{
    return !s.empty() && s.size() <= 4 && s.find_first_not_of("0123456789") == std::string::npos;
}

std::vector<std::string> split(const std::string &text, char sep)
{
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        const size_t at = text.find(sep, start);
        parts.push_back(text.substr(start, at - start));
        if (at == std::string::npos)
            return parts;
        start = at + 1;
    }
}

struct Day {
    WallTime date;
    int given = 0;  // parts typed: 1 day, 2 month and day, 3 all
};

// One day in any form; false when it is not one.
bool parseDay(const std::string &text, const WallTime &today, Day &out)
{
    std::vector<std::string> parts = split(text, text.find('-') != std::string::npos ? '-' : ':');
    const bool iso = text.find('-') != std::string::npos;
    if (iso && (parts.size() != 3 || parts[0].size() != 4 || parts[1].size() != 2 || parts[2].size() != 2))
        return false;
    if (parts.size() > 3)
        return false;
    for (const auto &p : parts)
        if (!allDigits(p))
            return false;
    out.date = today;
    out.date.hour = out.date.minute = out.date.second = 0;
    out.given = static_cast<int>(parts.size());
    out.date.day = std::stoi(parts.back());
    if (parts.size() >= 2)
        out.date.month = std::stoi(parts[parts.size() - 2]);
    if (parts.size() == 3)
        out.date.year = std::stoi(parts[0]);
    return out.date.valid();
}

std::string moduleText(const WallTime &d)
{
    return fmt::format("{}:{}:{}", d.year, d.month, d.day);
}

// "a..b", "a/b", or the module's "a-b" (no ISO date on either side).
bool splitRange(const std::string &item, std::string &first, std::string &last)
{
    for (const char *sep : {"..", "/"}) {
        const size_t at = item.find(sep);
        if (at != std::string::npos) {
            first = item.substr(0, at);
            last = item.substr(at + std::string(sep).size());
            return true;
        }
    }
    // One dash between two parts: a date has none (M:D) or two (ISO).
    if (split(item, '-').size() == 2) {
        const size_t dash = item.find('-');
        first = item.substr(0, dash);
        last = item.substr(dash + 1);
        return true;
    }
    return false;
}

} // namespace

std::vector<std::string> parseDayList(const std::string &text, const std::string &what, time_t today)
{
    const WallTime now = wallTimeOf(today);
    std::vector<std::string> out;
    for (std::string item : split(text, ',')) {
        while (!item.empty() && item.front() == ' ')
            item.erase(0, 1);
        while (!item.empty() && item.back() == ' ')
            item.pop_back();
        auto bad = [&] {
            usageError(fmt::format("bad {} day '{}': use YYYY-MM-DD, M:D, D or Y:M:D, a range such as "
                                   "2026-12-24..2027-01-02 or 12:30-1:2, or a list of them separated by commas",
                                   what, item));
        };
        if (item.empty())
            bad();
        std::string firstText, lastText;
        Day first, last;
        if (!splitRange(item, firstText, lastText)) {
            if (!parseDay(item, now, first))
                bad();
            out.push_back(moduleText(first.date));
            continue;
        }
        if (!parseDay(firstText, now, first) || !parseDay(lastText, now, last))
            bad();
        // The last day takes what it leaves out from the first day, and runs
        // into the next year (or month) rather than before the first.
        if (last.given < 3)
            last.date.year = first.date.year;
        if (last.given < 2)
            last.date.month = first.date.month;
        if (last.date.count() < first.date.count() && last.given < 3) {
            if (last.given == 2)
                last.date.year += 1;
            else if (++last.date.month > 12) {
                last.date.month = 1;
                last.date.year += 1;
            }
        }
        if (!last.date.valid())
            bad();
        if (last.date.count() < first.date.count())
            usageError(fmt::format("bad {} range '{}': the last day comes before the first", what, item));
        out.push_back(moduleText(first.date) + "-" + moduleText(last.date));
    }
    return out;
}

} // namespace rsvctl
