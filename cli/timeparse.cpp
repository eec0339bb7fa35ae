// timeparse.cpp: parsing and printing times for rsvctl.
#include "timeparse.h"

#include <cctype>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "cli_error.h"
#include "qob.rsvimpl.h"
#include "zonetime.h"

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

// Exactly `n` digits at `pos`, advancing it.
bool digitsAt(const std::string &s, size_t &pos, size_t n, int &out)
{
    if (pos + n > s.size())
        return false;
    int value = 0;
    for (size_t i = pos; i < pos + n; ++i) {
        if (!std::isdigit(static_cast<unsigned char>(s[i])))
            return false;
        value = value * 10 + (s[i] - '0');
    }
    out = value;
    pos += n;
    return true;
}

// "HH:MM" or "HH:MM:SS" from `pos`; an hour may have one digit.
bool clockAt(const std::string &s, size_t &pos, WallTime &w)
{
    const bool oneDigitHour = pos + 1 < s.size() && s[pos + 1] == ':';
    if (!digitsAt(s, pos, oneDigitHour ? 1 : 2, w.hour) || pos >= s.size() || s[pos] != ':' ||
        !digitsAt(s, ++pos, 2, w.minute))
        return false;
    w.second = 0;
    if (pos < s.size() && s[pos] == ':' && !digitsAt(s, ++pos, 2, w.second))
        return false;
    return true;
}

// "Z", "+HH:MM", "+HHMM" or "+HH" (or '-') from `pos` to the end; seconds
// east of UTC.
bool offsetAt(const std::string &s, size_t pos, long &offset)
{
    if (s.compare(pos, std::string::npos, "Z") == 0 || s.compare(pos, std::string::npos, "z") == 0) {
        offset = 0;
        return true;
    }
    if (pos >= s.size() || (s[pos] != '+' && s[pos] != '-'))
        return false;
    const int sign = s[pos] == '-' ? -1 : 1;
    int hours = 0, minutes = 0;
    ++pos;
    if (!digitsAt(s, pos, 2, hours))
        return false;
    if (pos < s.size() && s[pos] == ':')
        ++pos;
    if (pos < s.size() && !digitsAt(s, pos, 2, minutes))
        return false;
    if (pos != s.size() || hours > 14 || minutes > 59)
        return false;
    offset = sign * (hours * 3600L + minutes * 60L);
    return true;
}

// "2026-03-29 02:30" for messages, with seconds only when they are not 0.
std::string wallText(const WallTime &w)
{
    std::string out = fmt::format("{:04d}-{:02d}-{:02d} {:02d}:{:02d}", w.year, w.month, w.day, w.hour, w.minute);
    if (w.second)
        out += fmt::format(":{:02d}", w.second);
    return out;
}

std::string offsetText(long offset)
{
    const long magnitude = offset < 0 ? -offset : offset;
    return fmt::format("{}{:02d}:{:02d}", offset < 0 ? '-' : '+', magnitude / 3600, magnitude % 3600 / 60);
}

// The zone's name for messages.
std::string zoneName()
{
    if (!zoneNamedByOperator())
        return "the local zone";
    const char *tz = std::getenv("TZ");
    return tz[0] == ':' ? tz + 1 : tz;
}

// A wall time the operator typed, in the operator's zone: refused when the
// clocks skip it or show it twice.
time_t strictWallTime(const WallTime &w, const std::string &text, const std::string &what)
{
    const WallResolution r = resolveWallTime(w);
    if (r.kind == WallResolution::Skipped) {
        WallTime before = wallTimeOf(r.second);
        before.second = 0;  // the last whole minute before the jump
        const WallTime after = wallTimeOf(r.first);
        usageError(fmt::format("{} '{}' does not exist in {}: the clocks jump from {} to {}; use '{}' or '{}'", what,
                               text, zoneName(), wallText(before).substr(11), wallText(after).substr(11),
                               wallText(before), wallText(after)));
    }
    if (r.kind == WallResolution::Repeated) {
        std::string iso = wallText(w);
        iso[10] = 'T';
        usageError(fmt::format("{} '{}' happens twice in {} (the clocks go back): give the offset, '{}{}' (first) "
                               "or '{}{}' (second)",
                               what, text, zoneName(), iso, offsetText(utcOffsetAt(r.first)), iso,
                               offsetText(utcOffsetAt(r.second))));
    }
    return r.first;
}

// A wall time reached by counting calendar days: a skipped one moves on by
// the jump and a repeated one takes its first instant, as a clock would.
time_t lenientWallTime(const WallTime &w)
{
    const WallResolution r = resolveWallTime(w);
    if (r.kind == WallResolution::Skipped)
        return r.first + static_cast<time_t>(w.count() - wallTimeOf(r.second).count() - 1);
    return r.first;
}

// The years rsvctl reads: from 1970 to 9999.
constexpr long long kLastSecond = 253402300799LL;  // 9999-12-31 23:59:59 UTC

// "YYYY-MM-DD" with an optional " HH:MM[:SS]" or "THH:MM[:SS]", then an
// optional offset. False when the text is not of this shape.
bool parseCalendar(const std::string &text, const std::string &what, time_t &out)
{
    WallTime w;
    size_t pos = 0;
    if (!digitsAt(text, pos, 4, w.year) || pos >= text.size() || text[pos] != '-' ||
        !digitsAt(text, ++pos, 2, w.month) || pos >= text.size() || text[pos] != '-' ||
        !digitsAt(text, ++pos, 2, w.day))
        return false;
    if (pos < text.size() && (text[pos] == ' ' || text[pos] == 'T') && !clockAt(text, ++pos, w))
        return false;
    long offset = 0;
    const bool hasOffset = pos < text.size();
    if (hasOffset && !offsetAt(text, pos, offset))
        return false;
    if (!w.valid())
        usageError(fmt::format("{} '{}' is not a date and time of the calendar", what, text));
    if (w.year < 1970)
        usageError(fmt::format("{} '{}' is before 1970", what, text));
    const long long t = hasOffset ? w.count() - offset : static_cast<long long>(strictWallTime(w, text, what));
    if (t < 0 || t > kLastSecond)
        usageError(fmt::format("{} '{}' is out of range", what, text));
    out = static_cast<time_t>(t);
    return true;
}

// "today" or "tomorrow", then optionally " HH:MM[:SS]" (else midnight).
bool parseNamedDay(const std::string &text, const std::string &what, time_t now, time_t &out)
{
    int days = -1;
    size_t pos = 0;
    for (const auto &[word, offset] : {std::pair<const char *, int>{"today", 0}, {"tomorrow", 1}}) {
        const size_t n = std::strlen(word);
        if (text.compare(0, n, word) == 0 && (text.size() == n || text[n] == ' ')) {
            days = offset;
            pos = n;
        }
    }
    if (days < 0)
        return false;
    WallTime w = wallTimeOf(now).plusDays(days);
    w.hour = w.minute = w.second = 0;
    if (pos < text.size() && (!clockAt(text, ++pos, w) || pos != text.size() || !w.valid()))
        usageError(fmt::format("bad {} '{}': give the time of day as HH:MM, such as 'tomorrow 08:00'", what, text));
    out = strictWallTime(w, text, what);
    return true;
}

// Days and minutes of "1d2h30m", "90m", "2h", "1d" or "90" (minutes):
// numbers each followed by a unit d, h or m, in that order, each at most
// once; one bare number is minutes. False when malformed.
bool parseAmount(const std::string &body, long long &days, long long &minutes)
{
    days = minutes = 0;
    if (allDigits(body)) {
        if (body.size() > 6)
            return false;
        toLong(body, minutes);
        return true;
    }
    size_t pos = 0;
    int lastUnit = -1;  // index into "dhm" of the unit before
    while (pos < body.size()) {
        size_t digits = pos;
        while (digits < body.size() && std::isdigit(static_cast<unsigned char>(body[digits])))
            ++digits;
        if (digits == pos || digits - pos > 6 || digits == body.size())
            return false;
        long long amount = 0;
        toLong(body.substr(pos, digits - pos), amount);
        const char unit = static_cast<char>(std::tolower(static_cast<unsigned char>(body[digits])));
        const int index = unit == 'd' ? 0 : unit == 'h' ? 1 : unit == 'm' ? 2 : -1;
        if (index <= lastUnit)
            return false;
        lastUnit = index;
        if (index == 0)
            days = amount;
        else
            minutes += amount * (index == 1 ? 60 : 1);
        pos = digits + 1;
    }
    return !body.empty();
}

const char *kPointForms = "use 'YYYY-MM-DD HH:MM[:SS]', YYYY-MM-DDTHH:MM[:SS][Z|+HH:MM], now, +90m, +1d2h30m, "
                          "'tomorrow 08:00' or @EPOCH-SECONDS";

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
    return parsePointAt(text, what, nowTime());
}

time_t parsePointAt(const std::string &text, const std::string &what, time_t now)
{
    if (text.empty())
        usageError(fmt::format("{} is empty: {}", what, kPointForms));
    if (text == "now")
        return now;
    if (allDigits(text) || (text[0] == '@' && allDigits(text.substr(1)))) {
        long long value = 0;
        if (!toLong(text[0] == '@' ? text.substr(1) : text, value) || value > kLastSecond)
            usageError(fmt::format("{} '{}' is out of range", what, text));
        return static_cast<time_t>(value);
    }
    if (text[0] == '+') {
        long long days = 0, minutes = 0;
        if (text.size() < 2 || !parseAmount(text.substr(1), days, minutes))
            usageError(fmt::format("bad {} '{}': {}", what, text, kPointForms));
        // Calendar days, so a day across a clock change keeps the hour; the
        // hours and minutes after them are elapsed time.
        const time_t base = days ? lenientWallTime(wallTimeOf(now).plusDays(days)) : now;
        return base + static_cast<time_t>(minutes * 60);
    }
    time_t t = 0;
    if (parseNamedDay(text, what, now, t) || parseCalendar(text, what, t))
        return t;
    usageError(fmt::format("bad {} '{}': {}", what, text, kPointForms));
}

time_t parseBegin(const std::string &text, const std::string &what)
{
    if (text != "now")
        return parsePoint(text, what);
    // The module takes only a start in the future: "now" is the next whole
    // minute.
    const time_t now = nowTime();
    return now - now % 60 + 60;
}

std::optional<long> parseShiftMinutes(const std::string &text, const std::string &what)
{
    if (text.empty() || (text[0] != '+' && text[0] != '-'))
        return std::nullopt;
    long long days = 0, minutes = 0;
    if (text.size() < 2 || !parseAmount(text.substr(1), days, minutes))
        usageError(fmt::format("bad {} shift '{}': use +N or -N minutes, or units such as +2h, -1d or +1d2h30m",
                               what, text));
    const long long total = days * 1440 + minutes;
    return static_cast<long>(text[0] == '-' ? -total : total);
}

int parseDurationMinutes(const std::string &text, const std::string &what)
{
    const std::string forms = "use numbers with units d, h and m in that order, such as 6h, 90m, 1d2h or 2h30m";
    if (text.empty())
        usageError(fmt::format("{} is empty: {}", what, forms));
    // A bare number is refused rather than read as minutes: "-D 6" is as
    // likely meant as hours.
    long long days = 0, minutes = 0;
    if (allDigits(text) || !parseAmount(text, days, minutes))
        usageError(fmt::format("bad {} '{}': {}", what, text, forms));
    const long long total = days * 1440 + minutes;
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
