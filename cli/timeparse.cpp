// timeparse.cpp: parsing and printing times for rsvctl.
#include "timeparse.h"

#include <cctype>
#include <charconv>
#include <cstdlib>
#include <ctime>
#include <vector>

#include <fmt/format.h>

#include "cli_error.h"
#include "qob.rsvimpl.h"

namespace rsvctl {

namespace {

time_t pinnedNow = 0;

time_t pinnedClock(void)
{
    return pinnedNow;
}

constexpr const char *kWeekdays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

bool allDigits(const std::string &s)
{
    return !s.empty() && s.find_first_not_of("0123456789") == std::string::npos;
}

bool toLong(const std::string &s, long long &out)
{
    auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
    return ec == std::errc() && end == s.data() + s.size();
}

std::tm localTm(time_t t)
{
    std::tm tm{};
    localtime_r(&t, &tm);
    return tm;
}

// "YYYY-MM-DD" with an optional " HH:MM" or "THH:MM".
bool parseCalendar(const std::string &text, time_t &out)
{
    int y = 0, mo = 0, d = 0, h = 0, mi = 0;
    char sep = 0;
    int used = 0;
    std::tm tm{};
    if (std::sscanf(text.c_str(), "%4d-%2d-%2d%n", &y, &mo, &d, &used) == 3 &&
        used == static_cast<int>(text.size())) {
        h = mi = 0;
    } else if (std::sscanf(text.c_str(), "%4d-%2d-%2d%c%2d:%2d%n", &y, &mo, &d, &sep, &h, &mi, &used) == 6 &&
               used == static_cast<int>(text.size()) && (sep == ' ' || sep == 'T')) {
    } else {
        return false;
    }
    if (mo < 1 || mo > 12 || d < 1 || d > 31 || h < 0 || h > 23 || mi < 0 || mi > 59 || y < 1970)
        return false;
    tm.tm_year = y - 1900;
    tm.tm_mon = mo - 1;
    tm.tm_mday = d;
    tm.tm_hour = h;
    tm.tm_min = mi;
    tm.tm_isdst = -1;
    time_t t = mktime(&tm);
    // mktime normalises 31 April into May: refuse dates that do not exist.
    if (t == static_cast<time_t>(-1) || tm.tm_mday != d || tm.tm_mon != mo - 1)
        return false;
    out = t;
    return true;
}

// "+N" with unit m/h/d; false when malformed.
bool parseSigned(const std::string &text, long long &amount, char &unit)
{
    if (text.size() < 2 || (text[0] != '+' && text[0] != '-'))
        return false;
    std::string body = text.substr(1);
    unit = 'm';
    if (!body.empty() && std::isalpha(static_cast<unsigned char>(body.back()))) {
        unit = static_cast<char>(std::tolower(static_cast<unsigned char>(body.back())));
        body.pop_back();
    }
    if (!allDigits(body) || body.size() > 6 || (unit != 'm' && unit != 'h' && unit != 'd'))
        return false;
    toLong(body, amount);
    if (text[0] == '-')
        amount = -amount;
    return true;
}

const char *kPointForms = "use 'YYYY-MM-DD HH:MM', 'YYYY-MM-DDTHH:MM', +90m, +2h, +1d or epoch seconds";

// One side of a recurring window, with a weekday name turned into its
// number (Sunday as 7, which the module reads as Sunday).
std::string normaliseSide(const std::string &side, const std::string &whole)
{
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        size_t colon = side.find(':', start);
        parts.push_back(side.substr(start, colon - start));
        if (colon == std::string::npos)
            break;
        start = colon + 1;
    }
    if (parts.size() > 3)
        usageError(fmt::format("bad window '{}': a point is H, H:M or D:H:M", whole));
    if (parts.size() == 3 && !allDigits(parts[0])) {
        std::string lower;
        for (char c : parts[0])
            lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        static const char *names[] = {"sun", "mon", "tue", "wed", "thu", "fri", "sat"};
        int day = -1;
        for (int i = 0; i < 7; ++i)
            if (lower.size() >= 3 && std::string(names[i]).compare(0, 3, lower, 0, 3) == 0)
                day = i;
        if (day < 0)
            usageError(fmt::format("bad window '{}': '{}' is not a weekday (0-7 or sun..sat)", whole, parts[0]));
        parts[0] = std::to_string(day == 0 ? 7 : day);
    }
    std::string out;
    for (size_t i = 0; i < parts.size(); ++i)
        out += (i ? ":" : "") + parts[i];
    return out;
}

} // namespace

void installPinnedClock()
{
    const char *env = std::getenv("RSVCTL_NOW");
    if (!env || !*env)
        return;
    long long value = 0;
    if (!allDigits(env) || !toLong(env, value))
        usageError(fmt::format("RSVCTL_NOW must be epoch seconds, not '{}'", env));
    pinnedNow = static_cast<time_t>(value);
    RsvMod_setClock(&pinnedClock);
}

time_t nowTime()
{
    return kx_now();
}

time_t parsePoint(const std::string &text, const std::string &what)
{
    if (text.empty())
        usageError(fmt::format("{} is empty: {}", what, kPointForms));
    if (allDigits(text)) {
        long long value = 0;
        if (!toLong(text, value) || value > 2147483647LL)
            usageError(fmt::format("{} '{}' is out of range", what, text));
        return static_cast<time_t>(value);
    }
    long long amount = 0;
    char unit = 'm';
    if (text[0] == '+' || text[0] == '-') {
        if (!parseSigned(text, amount, unit) || text[0] == '-')
            usageError(fmt::format("bad {} '{}': {}", what, text, kPointForms));
        time_t now = nowTime();
        if (unit == 'd') {
            // Calendar days, so a day across a clock change keeps the hour.
            std::tm tm = localTm(now);
            tm.tm_mday += static_cast<int>(amount);
            tm.tm_isdst = -1;
            return mktime(&tm);
        }
        return now + static_cast<time_t>(amount * (unit == 'h' ? 3600 : 60));
    }
    time_t t = 0;
    if (!parseCalendar(text, t))
        usageError(fmt::format("bad {} '{}': {}", what, text, kPointForms));
    return t;
}

std::optional<long> parseShiftMinutes(const std::string &text, const std::string &what)
{
    if (text.empty() || (text[0] != '+' && text[0] != '-'))
        return std::nullopt;
    long long amount = 0;
    char unit = 'm';
    if (!parseSigned(text, amount, unit))
        usageError(fmt::format("bad {} shift '{}': use +N or -N minutes, or +Nh / +Nd", what, text));
    long long factor = unit == 'd' ? 1440 : unit == 'h' ? 60 : 1;
    return static_cast<long>(amount * factor);
}

int parseDurationMinutes(const std::string &text, const std::string &what)
{
    const std::string forms = "use numbers with units d, h and m in that order, such as 6h, 90m, 1d2h or 2h30m";
    // A bare number is refused rather than read as minutes: "-D 6" is as
    // likely meant as hours.
    long long total = 0;
    size_t pos = 0;
    int lastUnit = -1;  // index into "dhm" of the unit before
    if (text.empty())
        usageError(fmt::format("{} is empty: {}", what, forms));
    while (pos < text.size()) {
        size_t digits = pos;
        while (digits < text.size() && std::isdigit(static_cast<unsigned char>(text[digits])))
            ++digits;
        if (digits == pos || digits - pos > 6 || digits == text.size())
            usageError(fmt::format("bad {} '{}': {}", what, text, forms));
        long long amount = 0;
        toLong(text.substr(pos, digits - pos), amount);
        const char unit = static_cast<char>(std::tolower(static_cast<unsigned char>(text[digits])));
        const int index = unit == 'd' ? 0 : unit == 'h' ? 1 : unit == 'm' ? 2 : -1;
        if (index <= lastUnit)
            usageError(fmt::format("bad {} '{}': {}", what, text, forms));
        lastUnit = index;
        total += amount * (index == 0 ? 1440 : index == 1 ? 60 : 1);
        pos = digits + 1;
    }
    if (total < 1)
        usageError(fmt::format("{} '{}' is too short: at least 1m", what, text));
    if (total > 366 * 1440)
        usageError(fmt::format("{} '{}' is too long: at most 366d", what, text));
    return static_cast<int>(total);
}

std::string normaliseRecurringWindow(const std::string &text)
{
    size_t dash = text.find('-');
    if (dash == std::string::npos || dash == 0 || dash + 1 >= text.size())
        usageError(fmt::format("bad window '{}': use H[:M]-H[:M] (daily) or D:H:M-D:H:M (weekly)", text));
    return normaliseSide(text.substr(0, dash), text) + "-" + normaliseSide(text.substr(dash + 1), text);
}

bool isWeeklyWindow(const std::string &window)
{
    size_t dash = window.find('-');
    std::string start = window.substr(0, dash);
    size_t colons = 0;
    for (char c : start)
        colons += c == ':';
    return colons == 2;
}

std::string formatTime(time_t t)
{
    std::tm tm = localTm(t);
    return fmt::format("{} {:04d}-{:02d}-{:02d} {:02d}:{:02d}", kWeekdays[tm.tm_wday], tm.tm_year + 1900,
                       tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min);
}

std::string formatIso(time_t t)
{
    std::tm tm = localTm(t);
    return fmt::format("{:04d}-{:02d}-{:02d}T{:02d}:{:02d}:{:02d}", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday,
                       tm.tm_hour, tm.tm_min, tm.tm_sec);
}

std::string formatDuration(long long seconds)
{
    if (seconds < 0)
        return "-" + formatDuration(-seconds);
    long long minutes = (seconds + 59) / 60;
    long long days = minutes / 1440, hours = minutes % 1440 / 60, mins = minutes % 60;
    std::string out;
    if (days)
        out += fmt::format("{}d", days);
    if (hours)
        out += fmt::format("{}{}h", out.empty() ? "" : " ", hours);
    if (mins || out.empty())
        out += fmt::format("{}{}m", out.empty() ? "" : " ", mins);
    return out;
}

const char *weekdayName(int wday)
{
    return kWeekdays[((wday % 7) + 7) % 7];
}

} // namespace rsvctl
