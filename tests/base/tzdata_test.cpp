// The calendar tests of every unit run in America/New_York to cross real clock
// changes; without the zone data that zone silently acts as UTC and those tests
// would prove nothing. This guards the guard.
#include "rsv_test_support.h"

using rsvtest::localTime;
using rsvtest::ScopedTz;

TEST(ZoneData, NewYorkHasSummerTimeIn2026)
{
    ScopedTz tz("America/New_York");
    time_t july = localTime(2026, 7, 1, 12);
    time_t january = localTime(2026, 1, 1, 12);
    struct tm summer {};
    struct tm winter {};
    localtime_r(&july, &summer);
    localtime_r(&january, &winter);
    EXPECT_EQ(summer.tm_isdst, 1) << "install tzdata: America/New_York is not known";
    EXPECT_EQ(winter.tm_isdst, 0);
    EXPECT_EQ(summer.tm_gmtoff, -4 * 3600);
    EXPECT_EQ(winter.tm_gmtoff, -5 * 3600);
}

TEST(ZoneData, SpringForwardDayHasTwentyThreeHours)
{
    ScopedTz tz("America/New_York");
    EXPECT_EQ(localTime(2026, 3, 9) - localTime(2026, 3, 8), 23 * 3600);
    EXPECT_EQ(localTime(2026, 11, 2) - localTime(2026, 11, 1), 25 * 3600);
}
