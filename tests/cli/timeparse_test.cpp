// The times an operator types, one table: every form, in a zone with clock
// changes, in zones far from UTC, past 2038, and the refusals word for word.
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <iterator>
#include <vector>

#include <gtest/gtest.h>

#include "cli_error.h"
#include "daylist.h"
#include "rsv_test_support.h"
#include "timeparse.h"
#include "zonetime.h"

using namespace rsvctl;

namespace {

// Wed 2026-11-18 10:00 UTC.
constexpr long long kNow = 1794996000;

struct Row {
    const char *zone;
    const char *text;
    long long now;       // the pinned "now"
    long long expected;  // the instant, or -1 when refused
    const char *error;   // the refusal, when expected is -1
};

const Row kRows[] = {
    // The calendar forms, with seconds and with offsets.
    {"UTC", "2026-12-01 08:00", kNow, 1796112000, ""},
    {"UTC", "2026-12-01T08:00", kNow, 1796112000, ""},
    {"UTC", "2026-12-01 08:00:30", kNow, 1796112030, ""},
    {"UTC", "2026-12-01T08:00:30Z", kNow, 1796112030, ""},
    {"UTC", "2026-12-01T08:00:00+01:00", kNow, 1796108400, ""},
    {"UTC", "2026-12-01T08:00:00-0530", kNow, 1796131800, ""},
    {"UTC", "2026-12-01T08:00+01", kNow, 1796108400, ""},
    {"Europe/Berlin", "2026-12-01T08:00:00+01:00", kNow, 1796108400, ""},
    {"UTC", "2026-12-01", kNow, 1796083200, ""},
    // Relative to now.
    {"UTC", "now", kNow, kNow, ""},
    {"UTC", "+90m", kNow, kNow + 5400, ""},
    {"UTC", "+90", kNow, kNow + 5400, ""},
    {"UTC", "+2h", kNow, kNow + 7200, ""},
    {"UTC", "+1d2h30m", kNow, kNow + 86400 + 9000, ""},
    {"UTC", "+1d2h", kNow, kNow + 86400 + 7200, ""},
    {"UTC", "tomorrow 08:00", kNow, 1795075200, ""},
    {"UTC", "tomorrow 8:00", kNow, 1795075200, ""},
    {"UTC", "tomorrow", kNow, 1795046400, ""},
    {"UTC", "today 17:30", kNow, kNow + 27000, ""},
    // Epoch seconds, with or without '@'.
    {"UTC", "@1764576000", kNow, 1764576000, ""},
    {"UTC", "1764576000", kNow, 1764576000, ""},
    // Past 2038.
    {"UTC", "2040-07-01 12:00", kNow, 2224756800, ""},
    {"UTC", "@2224756800", kNow, 2224756800, ""},
    {"Europe/Berlin", "2040-07-01 12:00", kNow, 2224749600, ""},
    {"Asia/Kolkata", "2041-01-01 00:00", kNow, 2240591400, ""},
    // A zone with clock changes.
    {"Europe/Berlin", "2026-12-01 08:00", kNow, 1796108400, ""},
    {"Europe/Berlin", "2026-07-01 08:00", kNow, 1782885600, ""},
    {"Europe/Berlin", "tomorrow 08:00", kNow, 1795071600, ""},
    {"Europe/Berlin", "+1d", 1774695600, 1774778400, ""},  // Sat 12:00 to Sun 12:00 across the jump
    {"Europe/Berlin", "2026-10-25T02:30+01:00", kNow, 1792891800, ""},
    {"Europe/Berlin", "2026-03-29 02:30", kNow, -1,
     "-b '2026-03-29 02:30' does not exist in Europe/Berlin: the clocks jump from 01:59 to 03:00; use "
     "'2026-03-29 01:59' or '2026-03-29 03:00'"},
    {"Europe/Berlin", "2040-03-25 02:00", kNow, -1,
     "-b '2040-03-25 02:00' does not exist in Europe/Berlin: the clocks jump from 01:59 to 03:00; use "
     "'2040-03-25 01:59' or '2040-03-25 03:00'"},
    {"Europe/Berlin", "2026-10-25 02:30", kNow, -1,
     "-b '2026-10-25 02:30' happens twice in Europe/Berlin (the clocks go back): give the offset, "
     "'2026-10-25T02:30+02:00' (first) or '2026-10-25T02:30+01:00' (second)"},
    // Far from UTC.
    {"Pacific/Auckland", "tomorrow 08:00", kNow, 1795028400, ""},
    {"Pacific/Auckland", "today 08:00", kNow, 1794942000, ""},
    {"Pacific/Auckland", "2026-09-27 02:15", kNow, -1,
     "-b '2026-09-27 02:15' does not exist in Pacific/Auckland: the clocks jump from 01:59 to 03:00; use "
     "'2026-09-27 01:59' or '2026-09-27 03:00'"},
    {"Asia/Kolkata", "2026-12-01 08:00", kNow, 1796092200, ""},
    {"Asia/Kolkata", "2026-12-01T08:00+05:30", kNow, 1796092200, ""},
    // Malformed.
    {"UTC", "", kNow, -1,
     "-b is empty: use 'YYYY-MM-DD HH:MM[:SS]', YYYY-MM-DDTHH:MM[:SS][Z|+HH:MM], now, +90m, +1d2h30m, "
     "'tomorrow 08:00' or @EPOCH-SECONDS"},
    {"UTC", "2026-02-30 10:00", kNow, -1, "-b '2026-02-30 10:00' is not a date and time of the calendar"},
    {"UTC", "2026-11-19 24:00", kNow, -1, "-b '2026-11-19 24:00' is not a date and time of the calendar"},
    {"UTC", "1969-12-31 23:00", kNow, -1, "-b '1969-12-31 23:00' is before 1970"},
    {"UTC", "999999999999", kNow, -1, "-b '999999999999' is out of range"},
    {"UTC", "tomorrow 8", kNow, -1, "bad -b 'tomorrow 8': give the time of day as HH:MM, such as 'tomorrow 08:00'"},
    {"UTC", "-1h", kNow, -1,
     "bad -b '-1h': use 'YYYY-MM-DD HH:MM[:SS]', YYYY-MM-DDTHH:MM[:SS][Z|+HH:MM], now, +90m, +1d2h30m, "
     "'tomorrow 08:00' or @EPOCH-SECONDS"},
};

std::string name(const Row &row)
{
    return std::string(row.zone) + " '" + row.text + "'";
}

} // namespace

TEST(TimeTable, EveryRow)
{
    for (const Row &row : kRows) {
        rsvtest::ScopedTz tz(row.zone);
        SCOPED_TRACE(name(row));
        if (row.expected >= 0) {
            EXPECT_EQ(static_cast<long long>(parsePointAt(row.text, "-b", static_cast<time_t>(row.now))), row.expected);
            continue;
        }
        try {
            parsePointAt(row.text, "-b", static_cast<time_t>(row.now));
            ADD_FAILURE() << "accepted";
        } catch (const CliError &e) {
            EXPECT_EQ(e.status(), kExitUsage);
            EXPECT_EQ(std::string(e.what()), row.error);
        }
    }
}

TEST(TimeTable, OtherMalformedPoints)
{
    rsvtest::ScopedTz tz("UTC");
    for (const char *bad : {"+", "+5y", "+2h1d", "+1d1d", "2026-1-5", "2026-11-19T9", "2026-11-19 09:00+25:00",
                            "2026-11-19 09:00 CET", "@", "@-5", "yesterday", "now+1h", "+1234567m"})
        EXPECT_THROW(parsePointAt(bad, "-b", static_cast<time_t>(kNow)), CliError) << bad;
}

TEST(TimeTable, ShiftsAndDurationsShareTheUnits)
{
    EXPECT_EQ(parseShiftMinutes("+1d2h30m", "--end"), 1440 + 150);
    EXPECT_EQ(parseShiftMinutes("-90m", "--end"), -90);
    EXPECT_EQ(parseDurationMinutes("1d2h30m", "-D"), 1440 + 150);
    EXPECT_EQ(parseDurationMinutes("4h", "-D"), 240);
    EXPECT_THROW(parseDurationMinutes("90", "-D"), CliError);
    EXPECT_THROW(parseShiftMinutes("-", "--end"), CliError);
}

TEST(DayList, EveryFormBecomesTheModulesFullDates)
{
    rsvtest::ScopedTz tz("Pacific/Auckland");
    const time_t today = static_cast<time_t>(kNow);  // Wed 2026-11-18 23:00 in Auckland
    struct Case {
        const char *typed;
        std::vector<std::string> texts;
    };
    const Case cases[] = {
        {"2026-12-24", {"2026:12:24"}},
        {"12:24", {"2026:12:24"}},
        {"24", {"2026:11:24"}},
        {"2027:1:5", {"2027:1:5"}},
        {"12:24-12:26", {"2026:12:24-2026:12:26"}},
        {"2026-12-30..2027-01-02", {"2026:12:30-2027:1:2"}},
        {"2026-12-30/2027-01-02", {"2026:12:30-2027:1:2"}},
        {"12:30-1:2", {"2026:12:30-2027:1:2"}},
        {"2026-12-30..1:2", {"2026:12:30-2027:1:2"}},
        {"28-3", {"2026:11:28-2026:12:3"}},
        {"12/24", {"2026:11:12-2026:11:24"}},
        {"2026-12-24, 12:31,2027-01-06..2027-01-07", {"2026:12:24", "2026:12:31", "2027:1:6-2027:1:7"}},
    };
    for (const Case &c : cases)
        EXPECT_EQ(parseDayList(c.typed, "--disable", today), c.texts) << c.typed;
    for (const char *bad : {"", "2026-02-30", "2026-13-01", "12:24-", "x", "2026-12-24..", "1:2:3:4",
                            "2027-01-02..2026-12-30", "12:24,,12:25"})
        EXPECT_THROW(parseDayList(bad, "--disable", today), CliError) << bad;
}

TEST(ZoneReadOnce, AnUnsetZoneBecomesTheSystemFileWithTheSameOffsets)
{
    if (access("/etc/localtime", R_OK) != 0)
        GTEST_SKIP() << "no /etc/localtime here";
    rsvtest::ScopedTz restore("UTC");
    unsetenv("TZ");
    tzset();
    // Instants either side of the clock changes of many zones, and past 2038.
    const time_t probes[] = {0, 1711846800, 1729990800, 1796112000, 2500000000};
    std::vector<long> offsets;
    std::vector<int> hours;
    for (time_t t : probes) {
        offsets.push_back(utcOffsetAt(t));
        hours.push_back(wallTimeOf(t).hour);
    }
    EXPECT_FALSE(zoneNamedByOperator());
    readZoneOnce();
    ASSERT_NE(std::getenv("TZ"), nullptr);
    EXPECT_STREQ(std::getenv("TZ"), ":/etc/localtime");
    EXPECT_FALSE(zoneNamedByOperator());
    for (size_t i = 0; i < std::size(probes); ++i) {
        EXPECT_EQ(utcOffsetAt(probes[i]), offsets[i]) << probes[i];
        EXPECT_EQ(wallTimeOf(probes[i]).hour, hours[i]) << probes[i];
    }
}

TEST(ZoneReadOnce, AZoneTheOperatorNamedIsKept)
{
    rsvtest::ScopedTz tz("Europe/Berlin");
    readZoneOnce();
    EXPECT_STREQ(std::getenv("TZ"), "Europe/Berlin");
    EXPECT_TRUE(zoneNamedByOperator());
    setenv("TZ", "", 1);
    readZoneOnce();
    EXPECT_STREQ(std::getenv("TZ"), "");
    EXPECT_FALSE(zoneNamedByOperator());
}
