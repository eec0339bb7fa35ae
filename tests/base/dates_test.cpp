// Tests of the date helpers: recurring time points and date integers, the
// calendar ones in both UTC and a zone with daylight-saving changes.
#include "rsv_test_support.h"

#include <cstdio>
#include <cstring>
#include <string>

using rsvtest::localTime;
using rsvtest::ScopedTz;

namespace {

struct AcceptedPoint {
    const char *text;
    int day;
    int hour;
    int minute;
};

// Every accepted form: daily H and H:M (day 0), weekly D:H:M with Sunday as 0
// or 7 (returned as 7), the 24:00 end of a day, leading zeros.
const AcceptedPoint kAccepted[] = {
    {"0", 0, 0, 0},       {"8", 0, 8, 0},         {"23", 0, 23, 0},      {"24", 0, 24, 0},
    {"08", 0, 8, 0},      {"0:0", 0, 0, 0},       {"8:30", 0, 8, 30},    {"23:59", 0, 23, 59},
    {"24:0", 0, 24, 0},   {"24:00", 0, 24, 0},    {"8:05", 0, 8, 5},     {"0008:0030", 0, 8, 30},
    {"1:8:0", 1, 8, 0},   {"0:8:0", 7, 8, 0},     {"7:8:0", 7, 8, 0},    {"6:24:0", 6, 24, 0},
    {"3:10:45", 3, 10, 45}, {"5:0:0", 5, 0, 0},   {"2:23:59", 2, 23, 59}, {"0:0:0", 7, 0, 0},
    {"7:24:00", 7, 24, 0}, {"00:12:00", 7, 12, 0},
};

// Every rejected form returns a negative value.
const char *const kRejected[] = {
    "",            // empty
    "1136102400",  // a one-off epoch time: all digits but no hour
    "25",          // hour out of range
    "99",
    "24:1",        // 24 only with minute 0
    "6:24:30",
    "8:60",        // minute out of range
    "1:8:60",
    "8:",          // empty parts
    ":30",
    "::",
    "1::0",
    ":8:0",
    "1:8:",
    ":",
    "8:30:",
    "8-30",        // wrong separator
    "8.5",
    " 8",          // blanks
    "8 ",
    "8: 30",
    "+8",          // signs
    "-8",
    "8:-1",
    "1:+8:0",
    "8h",          // non-digits
    "a:8:0",
    "Mon:8:0",
    "8:30am",
    "8:1a",
    "1:2:3:4",     // extra parts
    "0:0:0:0",
    "8:0:0:",
    "8:00000",     // parts too long to be any valid value
    "000008",
    "8\n",
    "1136102400-1136188800",
};

} // namespace

class ParseTimeAccepts : public ::testing::TestWithParam<AcceptedPoint> {};

TEST_P(ParseTimeAccepts, GivesFractionalHourAndDay)
{
    const AcceptedPoint &p = GetParam();
    float hour = -1.0f;
    int day = -1;
    ASSERT_EQ(parse_time(p.text, &hour, &day), 0) << p.text;
    EXPECT_FLOAT_EQ(hour, static_cast<float>(p.hour) + static_cast<float>(p.minute) / 60.0f) << p.text;
    EXPECT_EQ(day, p.day) << p.text;
}

TEST_P(ParseTimeAccepts, ExGivesMinuteHourAndDaySeparately)
{
    const AcceptedPoint &p = GetParam();
    float minute = -1.0f;
    float hour = -1.0f;
    int day = -1;
    ASSERT_EQ(parse_time_ex(p.text, &minute, &hour, &day), 0) << p.text;
    EXPECT_FLOAT_EQ(minute, static_cast<float>(p.minute)) << p.text;
    EXPECT_FLOAT_EQ(hour, static_cast<float>(p.hour)) << p.text;
    EXPECT_EQ(day, p.day) << p.text;
}

INSTANTIATE_TEST_SUITE_P(AllForms, ParseTimeAccepts, ::testing::ValuesIn(kAccepted));

class ParseTimeRejects : public ::testing::TestWithParam<const char *> {};

TEST_P(ParseTimeRejects, ReturnsNegativeAndLeavesOutputsUntouched)
{
    float hour = -7.0f;
    int day = -7;
    EXPECT_LT(parse_time(GetParam(), &hour, &day), 0) << '"' << GetParam() << '"';
    EXPECT_EQ(hour, -7.0f);
    EXPECT_EQ(day, -7);

    float minute = -7.0f;
    EXPECT_LT(parse_time_ex(GetParam(), &minute, &hour, &day), 0) << '"' << GetParam() << '"';
    EXPECT_EQ(minute, -7.0f);
    EXPECT_EQ(hour, -7.0f);
    EXPECT_EQ(day, -7);
}

INSTANTIATE_TEST_SUITE_P(AllForms, ParseTimeRejects, ::testing::ValuesIn(kRejected));

TEST(ParseTime, EveryDayHourAndMinuteOfTheWeekRoundTrips)
{
    for (int d = 0; d <= 7; ++d)
        for (int h = 0; h <= 24; ++h)
            for (int m = 0; m < 60; ++m) {
                char text[32];
                std::snprintf(text, sizeof text, "%d:%d:%d", d, h, m);
                float hour = -1;
                int day = -1;
                int rc = parse_time(text, &hour, &day);
                if (h == 24 && m != 0) {
                    ASSERT_LT(rc, 0) << text;
                    continue;
                }
                ASSERT_EQ(rc, 0) << text;
                ASSERT_EQ(day, d == 0 ? 7 : d) << text;
                ASSERT_FLOAT_EQ(hour, static_cast<float>(h) + static_cast<float>(m) / 60.0f) << text;
            }
}

TEST(ParseTime, DayOutOfRangeIsRejected)
{
    float hour;
    int day;
    EXPECT_LT(parse_time("8:8:0", &hour, &day), 0);
    EXPECT_LT(parse_time("9:0:0", &hour, &day), 0);
}

TEST(ParseTime, NullArgumentsAreRejected)
{
    float hour = 0, minute = 0;
    int day = 0;
    EXPECT_LT(parse_time(nullptr, &hour, &day), 0);
    EXPECT_LT(parse_time("8", nullptr, &day), 0);
    EXPECT_LT(parse_time("8", &hour, nullptr), 0);
    EXPECT_LT(parse_time_ex(nullptr, &minute, &hour, &day), 0);
    EXPECT_LT(parse_time_ex("8", nullptr, &hour, &day), 0);
    EXPECT_LT(parse_time_ex("8", &minute, nullptr, &day), 0);
    EXPECT_LT(parse_time_ex("8", &minute, &hour, nullptr), 0);
}

TEST(DateToInt, PacksYearMonthFromZeroAndDay)
{
    EXPECT_EQ(dateToInt(2026, 0, 9), 20260009);
    EXPECT_EQ(dateToInt(2026, 2, 1), 20260201);
    EXPECT_EQ(dateToInt(2026, 11, 31), 20261131);
    EXPECT_EQ(dateToInt(1970, 0, 1), 19700001);
}

TEST(IntToDate, FourFieldsWithUnpaddedDay)
{
    EXPECT_STREQ(intToDate(20260009), "Fri Jan 9 2026");
    EXPECT_STREQ(intToDate(20260001), "Thu Jan 1 2026");
    EXPECT_STREQ(intToDate(20261131), "Thu Dec 31 2026");
    EXPECT_STREQ(intToDate(20280129), "Tue Feb 29 2028");
    EXPECT_STREQ(intToDate(20000129), "Tue Feb 29 2000");
    EXPECT_STREQ(intToDate(19700001), "Thu Jan 1 1970");
}

TEST(IntToDate, EveryMonthName)
{
    const char *const names[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    for (int m = 0; m < 12; ++m) {
        char week[8] = "", month[8] = "";
        int mday = 0, year = 0;
        ASSERT_EQ(std::sscanf(intToDate(dateToInt(2026, m, 15)), "%7s%7s%d%d", week, month, &mday, &year), 4);
        EXPECT_STREQ(month, names[m]);
        EXPECT_EQ(mday, 15);
        EXPECT_EQ(year, 2026);
    }
}

TEST(IntToDate, EveryWeekdayName)
{
    // 4 to 10 January 2026 run from Sunday to Saturday.
    const char *const expected[] = {"Sun Jan 4 2026",  "Mon Jan 5 2026", "Tue Jan 6 2026", "Wed Jan 7 2026",
                                    "Thu Jan 8 2026",  "Fri Jan 9 2026", "Sat Jan 10 2026"};
    for (int i = 0; i < 7; ++i)
        EXPECT_STREQ(intToDate(20260004 + i), expected[i]);
}

TEST(IntToDate, DayOutOfRangeCarriesOver)
{
    EXPECT_STREQ(intToDate(20260000), "Wed Dec 31 2025");
    EXPECT_STREQ(intToDate(20260132), "Wed Mar 4 2026");
}

TEST(IntToDate, BufferIsReusedByTheNextCall)
{
    char *first = intToDate(20260009);
    char *second = intToDate(20260010);
    EXPECT_EQ(first, second);
    EXPECT_STREQ(second, "Sat Jan 10 2026");
}

TEST(EvalNumWeeks, SameDayIsOneWeek)
{
    EXPECT_EQ(evalNumWeeks(20260009, 20260009), 1);
}

TEST(EvalNumWeeks, SundayToSaturdayIsOneWeek)
{
    EXPECT_EQ(evalNumWeeks(20260004, 20260010), 1);
}

TEST(EvalNumWeeks, SaturdayToNextSundayIsTwoWeeks)
{
    EXPECT_EQ(evalNumWeeks(20260010, 20260011), 2);
}

TEST(EvalNumWeeks, EndBeforeStartIsZero)
{
    EXPECT_EQ(evalNumWeeks(20260011, 20260010), 0);
}

TEST(EvalNumWeeks, SpansAcrossMonthAndYearEnds)
{
    // Wed 31 Dec 2025 .. Thu 1 Jan 2026: one week.
    EXPECT_EQ(evalNumWeeks(20251131, 20260001), 1);
    // Sat 31 Jan 2026 .. Sun 1 Feb 2026: two weeks.
    EXPECT_EQ(evalNumWeeks(20260031, 20260101), 2);
    // Thu 1 Jan 2026 .. Thu 31 Dec 2026: the weeks of 28 Dec 2025 to 2 Jan 2027.
    EXPECT_EQ(evalNumWeeks(20260001, 20261131), 53);
    // Sun 4 Jan .. Sat 17 Jan 2026: exactly two weeks.
    EXPECT_EQ(evalNumWeeks(20260004, 20260017), 2);
    // Sun 4 Jan .. Sun 18 Jan 2026: three weeks.
    EXPECT_EQ(evalNumWeeks(20260004, 20260018), 3);
}

// Calendar helpers in a plain zone and in one with both clock changes of 2026
// (8 March and 1 November in America/New_York).
class DatesInZone : public ::testing::TestWithParam<const char *> {
protected:
    ScopedTz tz{GetParam()};
};

TEST_P(DatesInZone, GetNowdayGivesTheLocalDateInteger)
{
    EXPECT_EQ(getNowday(localTime(2026, 1, 9, 0, 0)), 20260009);
    EXPECT_EQ(getNowday(localTime(2026, 1, 9, 23, 59, 59)), 20260009);
    EXPECT_EQ(getNowday(localTime(2026, 12, 31, 12)), 20261131);
    EXPECT_EQ(getNowday(localTime(2026, 3, 1, 0, 0, 1)), 20260201);
}

TEST_P(DatesInZone, GetNowdayOnTheDaysOfTheClockChanges)
{
    EXPECT_EQ(getNowday(localTime(2026, 3, 8, 0, 30)), 20260208);
    EXPECT_EQ(getNowday(localTime(2026, 3, 8, 3, 30)), 20260208);
    EXPECT_EQ(getNowday(localTime(2026, 3, 8, 23, 59)), 20260208);
    EXPECT_EQ(getNowday(localTime(2026, 11, 1, 0, 30)), 20261001);
    EXPECT_EQ(getNowday(localTime(2026, 11, 1, 23, 59)), 20261001);
    EXPECT_EQ(getNowday(localTime(2026, 11, 2, 0, 0)), 20261002);
}

TEST_P(DatesInZone, GetNowdayDoesNotDisturbACallersLocaltimeResult)
{
    time_t t = localTime(2026, 6, 15, 12);
    struct tm *held = localtime(&t);
    int mday = held->tm_mday;
    getNowday(localTime(2027, 2, 3, 4));
    EXPECT_EQ(held->tm_mday, mday);
}

TEST_P(DatesInZone, NextDaysAgreesWithTheLocalCalendarEveryDayOf2026)
{
    for (int day = 0; day < 366; ++day) {
        time_t noon = localTime(2026, 1, 1 + day, 12);
        time_t nextNoon = localTime(2026, 1, 2 + day, 12);
        int today = getNowday(noon);
        ASSERT_EQ(nextDays(today, 1), getNowday(nextNoon)) << today;
        ASSERT_EQ(nextDays(getNowday(nextNoon), -1), today) << today;
        ASSERT_EQ(nextDays(today, 0), today);
    }
}

TEST_P(DatesInZone, NextDaysAcrossBothClockChanges)
{
    EXPECT_EQ(nextDays(20260207, 1), 20260208);  // Sat 7 Mar -> Sun 8 Mar
    EXPECT_EQ(nextDays(20260208, 1), 20260209);  // over the lost hour
    EXPECT_EQ(nextDays(20260209, -2), 20260207);
    EXPECT_EQ(nextDays(20261001, 1), 20261002);  // over the repeated hour
    EXPECT_EQ(nextDays(20261002, -1), 20261001);
    EXPECT_EQ(nextDays(20260201, 7), 20260208);  // a week that loses an hour
    EXPECT_EQ(nextDays(20260925, 7), 20261001);  // a week that gains one
    EXPECT_EQ(getNowday(localTime(2026, 3, 8, 12)), nextDays(getNowday(localTime(2026, 3, 7, 12)), 1));
    EXPECT_EQ(getNowday(localTime(2026, 11, 1, 12)), nextDays(getNowday(localTime(2026, 10, 31, 12)), 1));
}

TEST_P(DatesInZone, NextDaysAcrossMonthAndYearEnds)
{
    EXPECT_EQ(nextDays(20260031, 1), 20260101);   // 31 Jan -> 1 Feb
    EXPECT_EQ(nextDays(20260127, 1), 20260128);   // 27 Feb -> 28 Feb
    EXPECT_EQ(nextDays(20260128, 1), 20260201);   // 28 Feb -> 1 Mar (2026 is no leap year)
    EXPECT_EQ(nextDays(20280128, 1), 20280129);   // 28 Feb 2028 -> 29 Feb
    EXPECT_EQ(nextDays(20280129, 1), 20280201);
    EXPECT_EQ(nextDays(21000128, 1), 21000201);   // 2100 is no leap year
    EXPECT_EQ(nextDays(20261131, 1), 20270001);   // 31 Dec -> 1 Jan
    EXPECT_EQ(nextDays(20270001, -1), 20261131);
    EXPECT_EQ(nextDays(20260201, -1), 20260128);  // 1 Mar -> 28 Feb
    EXPECT_EQ(nextDays(20260329, 1), 20260330);   // 29 Apr -> 30 Apr
    EXPECT_EQ(nextDays(20260330, 1), 20260401);   // 30 Apr -> 1 May
    EXPECT_EQ(nextDays(20260001, 365), 20270001);
    EXPECT_EQ(nextDays(20280001, 366), 20290001);
    EXPECT_EQ(nextDays(20260009, -3650), 20160012); // three leap days in between
}

TEST_P(DatesInZone, WeekOfADateFromItsLocalWeekday)
{
    // The module finds a week's Sunday and Saturday this way; both must be
    // right in the weeks of the clock changes.
    for (int d : {2, 8, 14}) {
        time_t t = localTime(2026, 3, d, 12);
        struct tm tm;
        localtime_r(&t, &tm);
        int date = getNowday(t);
        int sunday = nextDays(date, -tm.tm_wday);
        int saturday = nextDays(date, 6 - tm.tm_wday);
        EXPECT_EQ(evalNumWeeks(sunday, saturday), 1);
        EXPECT_EQ(std::string(intToDate(sunday)).substr(0, 3), "Sun");
        EXPECT_EQ(std::string(intToDate(saturday)).substr(0, 3), "Sat");
    }
}

INSTANTIATE_TEST_SUITE_P(Zones, DatesInZone, ::testing::Values("UTC", "America/New_York"),
                         [](const ::testing::TestParamInfo<const char *> &info) {
                             return std::string(info.param[0] == 'U' ? "UTC" : "NewYork");
                         });

// The occurrence arithmetic reads a date from nextDays' digits instead of
// printing and scanning it: both must give the same year, month and day, over
// centuries of days, leap years and month ends included.
TEST(NextDays, DigitsAreTheDateIntToDatePrints)
{
    static const char *const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    for (const int start : {19700001, 20260009, 20281130, 20991131, 20380018}) {
        for (int n = -40000; n <= 40000; n += 7 + (n & 3)) {
            const int date = nextDays(start, n);
            ASSERT_GE(date, 0) << start << " " << n;
            char weekday[4] = "", month[4] = "";
            int mday = 0, year = 0;
            ASSERT_EQ(std::sscanf(intToDate(date), "%3s%3s%d%d", weekday, month, &mday, &year), 4);
            EXPECT_EQ(date / 10000, year) << date;
            ASSERT_LT(date / 100 % 100, 12) << date;
            EXPECT_STREQ(months[date / 100 % 100], month) << date;
            EXPECT_EQ(date % 100, mday) << date;
        }
    }
}
