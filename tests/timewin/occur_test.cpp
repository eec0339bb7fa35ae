// Occurrence arithmetic: time points to calendar times in every mode, window
// lengths and time left, in UTC and in a zone with daylight-saving changes.
#include "rsv_test_support.h"

#include <string>

using rsvtest::FakeDaemon;
using rsvtest::localTime;
using rsvtest::PinnedClock;
using rsvtest::ScopedTz;

namespace {

// 2026-01-14 is a Wednesday, 2026-01-17 a Saturday, 2026-01-18 a Sunday.
constexpr int kYear = 2026;

class OccurTest : public ::testing::TestWithParam<const char *> {
protected:
    ScopedTz tz{GetParam()};
    FakeDaemon daemon;

    time_t occur(const char *point, time_t ref, int mode) { return Rsv_timeToOccurFromGivenTime(point, ref, mode); }
};

INSTANTIATE_TEST_SUITE_P(Zones, OccurTest, ::testing::Values("UTC", "America/New_York"),
                         [](const auto &info) {
                             std::string name = info.param;
                             for (auto &c : name)
                                 if (c == '/')
                                     c = '_';
                             return name;
                         });

TEST_P(OccurTest, NullTextGivesMinusOne)
{
    EXPECT_EQ(occur(nullptr, localTime(kYear, 1, 14, 12), RSV_OCCUR_NEXT), -1);
}

TEST_P(OccurTest, AbsoluteTimeComesBackUnchangedInEveryMode)
{
    for (int mode = 0; mode <= 3; ++mode)
        EXPECT_EQ(occur("1136102400", localTime(kYear, 1, 14, 12), mode), 1136102400) << "mode " << mode;
}

TEST_P(OccurTest, TextThatIsNeitherPointNorNumberGivesItsAtoiValue)
{
    EXPECT_EQ(occur("abc", localTime(kYear, 1, 14, 12), RSV_OCCUR_NEXT), 0);
    EXPECT_EQ(occur("12abc", localTime(kYear, 1, 14, 12), RSV_OCCUR_NEXT), 12);
}

// --- daily points ---

TEST_P(OccurTest, DailyPointAtItsOwnMinuteMovesToTomorrow)
{
    EXPECT_EQ(occur("8:0", localTime(kYear, 1, 14, 8, 0), RSV_OCCUR_NEXT), localTime(kYear, 1, 15, 8, 0));
    EXPECT_EQ(occur("8:0", localTime(kYear, 1, 14, 8, 0, 59), RSV_OCCUR_NEXT), localTime(kYear, 1, 15, 8, 0));
}

TEST_P(OccurTest, DailyPointOneMinuteAheadIsToday)
{
    EXPECT_EQ(occur("8:0", localTime(kYear, 1, 14, 7, 59), RSV_OCCUR_NEXT), localTime(kYear, 1, 14, 8, 0));
}

TEST_P(OccurTest, DailyPointWithoutMinuteIsWholeHour)
{
    EXPECT_EQ(occur("17", localTime(kYear, 1, 14, 12), RSV_OCCUR_NEXT), localTime(kYear, 1, 14, 17, 0));
}

TEST_P(OccurTest, DailyPointAsIsFallsOnTheComingSunday)
{
    // A daily point read as-is counts its day 0 as Sunday.
    EXPECT_EQ(occur("8:0", localTime(kYear, 1, 14, 12), RSV_OCCUR_ASIS), localTime(kYear, 1, 18, 8, 0));
    EXPECT_EQ(occur("8:0", localTime(kYear, 1, 17, 12), RSV_OCCUR_ASIS), localTime(kYear, 1, 18, 8, 0));
}

TEST_P(OccurTest, DailyPointAsIsOnASundayIsToday)
{
    EXPECT_EQ(occur("8:0", localTime(kYear, 1, 18, 12), RSV_OCCUR_ASIS), localTime(kYear, 1, 18, 8, 0));
}

TEST_P(OccurTest, DailyPointAfterTodayIsAlwaysTomorrow)
{
    EXPECT_EQ(occur("8:0", localTime(kYear, 1, 14, 7, 0), RSV_OCCUR_AFTER_TODAY), localTime(kYear, 1, 15, 8, 0));
    EXPECT_EQ(occur("8:0", localTime(kYear, 1, 14, 9, 0), RSV_OCCUR_AFTER_TODAY), localTime(kYear, 1, 15, 8, 0));
}

TEST_P(OccurTest, DailyPointTodayIsAlwaysToday)
{
    EXPECT_EQ(occur("8:0", localTime(kYear, 1, 14, 23, 0), RSV_OCCUR_TODAY), localTime(kYear, 1, 14, 8, 0));
    EXPECT_EQ(occur("8:0", localTime(kYear, 1, 14, 1, 0), RSV_OCCUR_TODAY), localTime(kYear, 1, 14, 8, 0));
}

TEST_P(OccurTest, DailyPointCrossesMonthAndYearEnds)
{
    EXPECT_EQ(occur("8:0", localTime(2026, 12, 31, 9), RSV_OCCUR_NEXT), localTime(2027, 1, 1, 8, 0));
    EXPECT_EQ(occur("8:0", localTime(2026, 2, 28, 9), RSV_OCCUR_NEXT), localTime(2026, 3, 1, 8, 0));
}

TEST_P(OccurTest, MinutesAreRoundedToTheNearestWholeMinute)
{
    const time_t ref = localTime(kYear, 1, 14, 1);
    EXPECT_EQ(occur("8:30", ref, RSV_OCCUR_NEXT), localTime(kYear, 1, 14, 8, 30));
    // 20 minutes is not exact in a float hour; rounding still gives 20.
    EXPECT_EQ(occur("8:20", ref, RSV_OCCUR_NEXT), localTime(kYear, 1, 14, 8, 20));
    EXPECT_EQ(occur("23:59", ref, RSV_OCCUR_NEXT), localTime(kYear, 1, 14, 23, 59));
    EXPECT_EQ(occur("8:1", ref, RSV_OCCUR_NEXT), localTime(kYear, 1, 14, 8, 1));
}

TEST_P(OccurTest, SecondsOfTheResultAreZero)
{
    const time_t t = occur("8:7", localTime(kYear, 1, 14, 1, 2, 33), RSV_OCCUR_NEXT);
    EXPECT_EQ(t % 60, 0);
}

// --- weekly points on the reference weekday ---

TEST_P(OccurTest, WeeklyPointAtTheCurrentMinuteStaysToday)
{
    // Wednesday 08:00, a Wednesday point at 08:00: today (unlike a daily one).
    EXPECT_EQ(occur("3:8:0", localTime(kYear, 1, 14, 8, 0), RSV_OCCUR_NEXT), localTime(kYear, 1, 14, 8, 0));
}

TEST_P(OccurTest, WeeklyPointOneMinuteBeforeNowIsNextWeek)
{
    EXPECT_EQ(occur("3:8:0", localTime(kYear, 1, 14, 8, 1), RSV_OCCUR_NEXT), localTime(kYear, 1, 21, 8, 0));
}

TEST_P(OccurTest, WeeklyPointLaterTodayIsToday)
{
    EXPECT_EQ(occur("3:8:0", localTime(kYear, 1, 14, 7, 0), RSV_OCCUR_NEXT), localTime(kYear, 1, 14, 8, 0));
}

TEST_P(OccurTest, WeeklyPointOnTodayAsIsIsToday)
{
    EXPECT_EQ(occur("3:8:0", localTime(kYear, 1, 14, 12), RSV_OCCUR_ASIS), localTime(kYear, 1, 14, 8, 0));
}

TEST_P(OccurTest, WeeklyPointOnTodayAfterTodayIsSevenDaysOn)
{
    EXPECT_EQ(occur("3:8:0", localTime(kYear, 1, 14, 7, 0), RSV_OCCUR_AFTER_TODAY), localTime(kYear, 1, 21, 8, 0));
}

TEST_P(OccurTest, WeeklyPointOnTodayTodayIsTodayEvenWhenPast)
{
    EXPECT_EQ(occur("3:8:0", localTime(kYear, 1, 14, 20, 0), RSV_OCCUR_TODAY), localTime(kYear, 1, 14, 8, 0));
}

// --- weekly points on another weekday ---

TEST_P(OccurTest, WeeklyPointOnAnotherDayLandsDayMinusWeekdayAheadInEveryMode)
{
    const time_t wed = localTime(kYear, 1, 14, 12);
    for (int mode = 0; mode <= 3; ++mode) {
        EXPECT_EQ(occur("5:18:0", wed, mode), localTime(kYear, 1, 16, 18, 0)) << "mode " << mode;
        // Monday lies before Wednesday: seven days are added.
        EXPECT_EQ(occur("1:8:0", wed, mode), localTime(kYear, 1, 19, 8, 0)) << "mode " << mode;
        EXPECT_EQ(occur("6:0:0", wed, mode), localTime(kYear, 1, 17, 0, 0)) << "mode " << mode;
    }
}

TEST_P(OccurTest, AnyPointAfterTodayIsNeverToday)
{
    const time_t ref = localTime(kYear, 1, 14, 0, 0);
    const time_t dayEnd = localTime(kYear, 1, 15, 0, 0);
    for (const char *point : {"8:0", "23:59", "0:0", "3:8:0", "3:23:59", "4:0:0", "2:0:0", "7:1:0"})
        EXPECT_GE(occur(point, ref, RSV_OCCUR_AFTER_TODAY), dayEnd) << point;
}

// --- Sunday points (day 7 from the parser, weekday 0 from the clock) ---

TEST_P(OccurTest, SundayPointOnASundayIsTodayAsIs)
{
    const time_t sun = localTime(kYear, 1, 18, 12);
    EXPECT_EQ(occur("7:8:0", sun, RSV_OCCUR_ASIS), localTime(kYear, 1, 18, 8, 0));
    EXPECT_EQ(occur("0:8:0", sun, RSV_OCCUR_ASIS), localTime(kYear, 1, 18, 8, 0));
}

TEST_P(OccurTest, SundayPointOnASundayNextFollowsTheWeeklyRule)
{
    EXPECT_EQ(occur("7:8:0", localTime(kYear, 1, 18, 7, 0), RSV_OCCUR_NEXT), localTime(kYear, 1, 18, 8, 0));
    EXPECT_EQ(occur("7:8:0", localTime(kYear, 1, 18, 8, 0), RSV_OCCUR_NEXT), localTime(kYear, 1, 18, 8, 0));
    EXPECT_EQ(occur("7:8:0", localTime(kYear, 1, 18, 8, 1), RSV_OCCUR_NEXT), localTime(kYear, 1, 25, 8, 0));
    EXPECT_EQ(occur("0:8:0", localTime(kYear, 1, 18, 7, 0), RSV_OCCUR_NEXT), localTime(kYear, 1, 18, 8, 0));
}

TEST_P(OccurTest, SundayPointOnASundayAfterTodayIsNextSunday)
{
    EXPECT_EQ(occur("7:8:0", localTime(kYear, 1, 18, 7, 0), RSV_OCCUR_AFTER_TODAY), localTime(kYear, 1, 25, 8, 0));
}

TEST_P(OccurTest, SundayPointOnASundayTodayIsToday)
{
    EXPECT_EQ(occur("7:8:0", localTime(kYear, 1, 18, 20, 0), RSV_OCCUR_TODAY), localTime(kYear, 1, 18, 8, 0));
}

TEST_P(OccurTest, SundayPointOnOtherDaysIsTheComingSundayInEveryMode)
{
    for (int mode = 0; mode <= 3; ++mode) {
        EXPECT_EQ(occur("7:8:0", localTime(kYear, 1, 14, 12), mode), localTime(kYear, 1, 18, 8, 0)) << mode;
        EXPECT_EQ(occur("7:8:0", localTime(kYear, 1, 17, 23, 0), mode), localTime(kYear, 1, 18, 8, 0)) << mode;
        EXPECT_EQ(occur("7:8:0", localTime(kYear, 1, 19, 0, 0), mode), localTime(kYear, 1, 25, 8, 0)) << mode;
    }
}

TEST_P(OccurTest, Time2occurReadsThePinnedClock)
{
    PinnedClock clock(localTime(kYear, 1, 14, 7, 59));
    EXPECT_EQ(Rsv_time2occur("8:0", RSV_OCCUR_NEXT), localTime(kYear, 1, 14, 8, 0));
    clock.set(localTime(kYear, 1, 14, 8, 0));
    EXPECT_EQ(Rsv_time2occur("8:0", RSV_OCCUR_NEXT), localTime(kYear, 1, 15, 8, 0));
    EXPECT_EQ(Rsv_time2occur(nullptr, RSV_OCCUR_NEXT), -1);
}

// --- durations and time left ---

TEST_P(OccurTest, DurationOfDailyWindowCrossingMidnightIsPositive)
{
    PinnedClock clock(localTime(kYear, 1, 14, 12));
    EXPECT_EQ(RsvTimeWindow_toDuration("22:0-6:0"), 8 * 3600);
    // Asked in the middle of the night, the start is tonight and still 8 hours.
    clock.set(localTime(kYear, 1, 14, 23, 0));
    EXPECT_EQ(RsvTimeWindow_toDuration("22:0-6:0"), 8 * 3600);
}

TEST_P(OccurTest, DurationOfPlainDailyAndWeeklyWindows)
{
    PinnedClock clock(localTime(kYear, 1, 14, 12));
    EXPECT_EQ(RsvTimeWindow_toDuration("8:0-17:30"), 9 * 3600 + 1800);
    EXPECT_EQ(RsvTimeWindow_toDuration("5:18:0-1:8:0"), 62 * 3600);
    EXPECT_EQ(RsvTimeWindow_toDuration("1:8:0-1:17:0"), 9 * 3600);
    // A weekly window from Saturday into Sunday.
    EXPECT_EQ(RsvTimeWindow_toDuration("6:18:0-7:6:0"), 12 * 3600);
}

TEST_P(OccurTest, DurationOfOneOffWindowIsEndMinusStart)
{
    PinnedClock clock(localTime(kYear, 1, 14, 12));
    EXPECT_EQ(RsvTimeWindow_toDuration("1136102400-1136106000"), 3600);
}

TEST_P(OccurTest, DurationWithoutDashOrTextIsZero)
{
    PinnedClock clock(localTime(kYear, 1, 14, 12));
    EXPECT_EQ(RsvTimeWindow_toDuration("8:0"), 0);
    EXPECT_EQ(RsvTimeWindow_toDuration(""), 0);
    EXPECT_EQ(RsvTimeWindow_toDuration(nullptr), 0);
}

TEST_P(OccurTest, DurationIsZeroWhenTheCopyFails)
{
    PinnedClock clock(localTime(kYear, 1, 14, 12));
    daemon.failAfter(0);
    EXPECT_EQ(RsvTimeWindow_toDuration("8:0-17:0"), 0);
    daemon.failAfter(-1);
    EXPECT_EQ(RsvTimeWindow_toDuration("8:0-17:0"), 9 * 3600);
}

TEST_P(OccurTest, GetDurationReturnsTheStoredField)
{
    RsvEnt ent{};
    ent.duration = 12345;
    EXPECT_EQ(RsvEnt_getDuration(&ent), 12345);
    EXPECT_EQ(RsvEnt_getDuration(nullptr), 0);
}

TEST_P(OccurTest, LeftTimeIsUntilTheNextEnd)
{
    PinnedClock clock(localTime(kYear, 1, 14, 12));
    char window[] = "8:0-17:0";
    RsvEnt ent{};
    ent.timeWindow = window;
    EXPECT_EQ(RsvEnt_getLeftTime(&ent), 5 * 3600);
    // After today's end the next end is tomorrow's.
    clock.set(localTime(kYear, 1, 14, 18));
    EXPECT_EQ(RsvEnt_getLeftTime(&ent), 23 * 3600);
}

TEST_P(OccurTest, LeftTimeOfPassedOneOffWindowIsNegative)
{
    const time_t end = localTime(kYear, 1, 14, 10);
    PinnedClock clock(localTime(kYear, 1, 14, 12));
    std::string text = rsvtest::oneOff(end - 3600, end);
    RsvEnt ent{};
    ent.timeWindow = text.data();
    EXPECT_EQ(RsvEnt_getLeftTime(&ent), -2 * 3600);
}

TEST_P(OccurTest, LeftTimeWithoutWindowOrDashIsZero)
{
    PinnedClock clock(localTime(kYear, 1, 14, 12));
    char window[] = "17:0";
    RsvEnt ent{};
    EXPECT_EQ(RsvEnt_getLeftTime(&ent), 0);
    EXPECT_EQ(RsvEnt_getLeftTime(nullptr), 0);
    ent.timeWindow = window;
    EXPECT_EQ(RsvEnt_getLeftTime(&ent), 0);
}

// --- daylight-saving changes (only the zone that has them) ---

class OccurDstTest : public ::testing::Test {
protected:
    ScopedTz tz{"America/New_York"};
    FakeDaemon daemon;
};

TEST_F(OccurDstTest, ResultOnTheSpringChangeDayCarriesTheReferenceFlag)
{
    // Asked the day before in winter time, 08:00 of 8 March is built with the
    // winter flag and mktime moves it to 09:00 summer time.
    EXPECT_EQ(Rsv_timeToOccurFromGivenTime("8:0", localTime(2026, 3, 7, 12), RSV_OCCUR_NEXT),
              localTime(2026, 3, 8, 9, 0));
    // Asked on the day after the change, the flag is summer's: plain 08:00.
    EXPECT_EQ(Rsv_timeToOccurFromGivenTime("8:0", localTime(2026, 3, 8, 12), RSV_OCCUR_TODAY),
              localTime(2026, 3, 8, 8, 0));
    EXPECT_EQ(Rsv_timeToOccurFromGivenTime("8:0", localTime(2026, 3, 8, 12), RSV_OCCUR_NEXT),
              localTime(2026, 3, 9, 8, 0));
    // Before 02:00 of the day itself the flag is still winter's.
    EXPECT_EQ(Rsv_timeToOccurFromGivenTime("8:0", localTime(2026, 3, 8, 1), RSV_OCCUR_NEXT),
              localTime(2026, 3, 8, 9, 0));
}

TEST_F(OccurDstTest, SundayPointOnTheSpringChangeSunday)
{
    EXPECT_EQ(Rsv_timeToOccurFromGivenTime("7:12:0", localTime(2026, 3, 8, 10), RSV_OCCUR_NEXT),
              localTime(2026, 3, 8, 12, 0));
    EXPECT_EQ(Rsv_timeToOccurFromGivenTime("7:12:0", localTime(2026, 3, 8, 13), RSV_OCCUR_NEXT),
              localTime(2026, 3, 15, 12, 0));
}

TEST_F(OccurDstTest, ResultOnTheAutumnChangeDayCarriesTheReferenceFlag)
{
    // Asked in summer time on 31 October, 08:00 of 1 November keeps the summer
    // flag and mktime reads it as 07:00 winter time.
    EXPECT_EQ(Rsv_timeToOccurFromGivenTime("8:0", localTime(2026, 10, 31, 12), RSV_OCCUR_NEXT),
              localTime(2026, 11, 1, 7, 0));
    EXPECT_EQ(Rsv_timeToOccurFromGivenTime("8:0", localTime(2026, 11, 1, 12), RSV_OCCUR_NEXT),
              localTime(2026, 11, 2, 8, 0));
    EXPECT_EQ(Rsv_timeToOccurFromGivenTime("0:12:0", localTime(2026, 11, 1, 10), RSV_OCCUR_ASIS),
              localTime(2026, 11, 1, 12, 0));
}

TEST_F(OccurDstTest, DurationsAcrossTheChangesAreWallClockLengths)
{
    // Start and end are built with the same flag, so the length stays 8 hours.
    PinnedClock clock(localTime(2026, 3, 7, 12));
    EXPECT_EQ(RsvTimeWindow_toDuration("22:0-6:0"), 8 * 3600);
    clock.set(localTime(2026, 10, 31, 12));
    EXPECT_EQ(RsvTimeWindow_toDuration("22:0-6:0"), 8 * 3600);
    // Asked at 00:30 winter time on the spring day: the start moves to 09:00
    // summer time and the end, searched from there, is 17:00: 8 hours.
    clock.set(localTime(2026, 3, 8, 0, 30));
    EXPECT_EQ(RsvTimeWindow_toDuration("8:0-17:0"), 8 * 3600);
}

} // namespace
