// Recurring instances: calendar days, current and next instances with
// disabled days skipped, and the readable instance text.
#include "rsv_test_support.h"

#include <cstdlib>
#include <cstring>
#include <string>

using rsvtest::FakeDaemon;
using rsvtest::localTime;
using rsvtest::LogCapture;
using rsvtest::PinnedClock;
using rsvtest::ScopedTz;

namespace {

// 2026-01-14 is a Wednesday; 2026-01-12 and 2026-01-19 are Mondays.

tmDay day(int year, int month1, int mday, int wday = 0)
{
    return tmDay{mday, wday, month1 - 1, year};
}

RsvDisableDuration *newDuration(const tmDay &first, const tmDay &last)
{
    auto *rec = static_cast<RsvDisableDuration *>(calloc(1, sizeof(RsvDisableDuration)));
    rec->firstDay = first;
    rec->lastDay = last;
    return rec;
}

// A list built exactly in the given order (no sorting or merging), so the
// walk's own rules can be observed.
struct RawList {
    List *list = listCreate("disabled durations");
    ~RawList()
    {
        if (list)
            listDestroy(list, free);
    }
    RawList &add(const tmDay &first, const tmDay &last)
    {
        listInsertEntryAtBack(list, &newDuration(first, last)->links);
        return *this;
    }
};

// An entry made by RsvEnt_new and released with it.
struct Entry {
    RsvEnt *ent;
    Entry(int options, const char *window) : ent(RsvEnt_new(options, "alice", window)) {}
    ~Entry()
    {
        RsvEnt_destroy(ent);
        free(ent);
    }
    void disable(const tmDay &first, const tmDay &last)
    {
        if (!ent->disabledDurations)
            ent->disabledDurations = listCreate("disabled durations");
        listInsertEntryAtBack(ent->disabledDurations, &newDuration(first, last)->links);
    }
};

class InstanceTest : public ::testing::TestWithParam<const char *> {
protected:
    ScopedTz tz{GetParam()};
    FakeDaemon daemon;
    PinnedClock clock{localTime(2026, 1, 14, 12)};
};

INSTANTIATE_TEST_SUITE_P(Zones, InstanceTest, ::testing::Values("UTC", "America/New_York"),
                         [](const auto &info) {
                             std::string name = info.param;
                             for (auto &c : name)
                                 if (c == '/')
                                     c = '_';
                             return name;
                         });

// --- calendar days ---

TEST_P(InstanceTest, DayFromTimeIsTheLocalDay)
{
    tmDay d{};
    EXPECT_EQ(tmDay_getDayFromTime(localTime(2026, 1, 14, 23, 59), &d), 0);
    EXPECT_EQ(d.mday, 14);
    EXPECT_EQ(d.wday, 3);
    EXPECT_EQ(d.mon, 0);
    EXPECT_EQ(d.year, 2026);
}

TEST_P(InstanceTest, DayFromTimeWithoutOutputIsError52)
{
    qob_errno = 0;
    EXPECT_EQ(tmDay_getDayFromTime(localTime(2026, 1, 14), nullptr), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
}

TEST_P(InstanceTest, EarlierThanOfEqualDaysFollowsTheFlag)
{
    const tmDay a = day(2026, 1, 14, 3);
    const tmDay b = day(2026, 1, 14, 5); // the weekday is never compared
    EXPECT_EQ(tmDay_earlierThan(&a, &b, 1), 1);
    EXPECT_EQ(tmDay_earlierThan(&a, &b, 0), 0);
}

TEST_P(InstanceTest, EarlierThanComparesYearThenMonthThenDay)
{
    const tmDay dec31 = day(2025, 12, 31);
    const tmDay jan1 = day(2026, 1, 1);
    const tmDay feb1 = day(2026, 2, 1);
    const tmDay jan31 = day(2026, 1, 31);
    EXPECT_EQ(tmDay_earlierThan(&dec31, &jan1, 0), 1);
    EXPECT_EQ(tmDay_earlierThan(&jan1, &dec31, 0), 0);
    EXPECT_EQ(tmDay_earlierThan(&jan31, &feb1, 0), 1);
    EXPECT_EQ(tmDay_earlierThan(&feb1, &jan31, 1), 0);
    EXPECT_EQ(tmDay_earlierThan(&jan1, &jan31, 0), 1);
    EXPECT_EQ(tmDay_earlierThan(nullptr, &jan31, 1), 0);
}

TEST_P(InstanceTest, DayAfterAcrossMonthAndYearEnds)
{
    const tmDay mar1 = day(2026, 3, 1);
    const tmDay feb28 = day(2026, 2, 28);
    EXPECT_EQ(tmDay_dayAfter(&mar1, &feb28), 1);
    const tmDay mar1Leap = day(2024, 3, 1);
    const tmDay feb28Leap = day(2024, 2, 28);
    const tmDay feb29Leap = day(2024, 2, 29);
    EXPECT_EQ(tmDay_dayAfter(&mar1Leap, &feb28Leap), 0);
    EXPECT_EQ(tmDay_dayAfter(&mar1Leap, &feb29Leap), 1);
    const tmDay jan1 = day(2027, 1, 1);
    const tmDay dec31 = day(2026, 12, 31);
    EXPECT_EQ(tmDay_dayAfter(&jan1, &dec31), 1);
    EXPECT_EQ(tmDay_dayAfter(&dec31, &jan1), 0);
    EXPECT_EQ(tmDay_dayAfter(&mar1, &mar1), 0);
    EXPECT_EQ(tmDay_dayAfter(nullptr, &mar1), 0);
}

TEST_P(InstanceTest, DayAfterOnTheDaylightSavingChangeDays)
{
    const tmDay mar9 = day(2026, 3, 9);
    const tmDay mar8 = day(2026, 3, 8);
    const tmDay nov2 = day(2026, 11, 2);
    const tmDay nov1 = day(2026, 11, 1);
    EXPECT_EQ(tmDay_dayAfter(&mar9, &mar8), 1);
    EXPECT_EQ(tmDay_dayAfter(&nov2, &nov1), 1);
}

// --- current instance ---

TEST_P(InstanceTest, DailyCurrentInstanceAtNoonIsToday)
{
    time_t s = 0, e = 0;
    RsvTimeWindow_getCurrentInstance("8:0-17:0", nullptr, localTime(2026, 1, 14, 12), &s, &e);
    EXPECT_EQ(s, localTime(2026, 1, 14, 8));
    EXPECT_EQ(e, localTime(2026, 1, 14, 17));
}

TEST_P(InstanceTest, DailyCurrentInstanceAfterItsEndIsTomorrow)
{
    time_t s = 0, e = 0;
    RsvTimeWindow_getCurrentInstance("8:0-17:0", nullptr, localTime(2026, 1, 14, 18), &s, &e);
    EXPECT_EQ(s, localTime(2026, 1, 15, 8));
    EXPECT_EQ(e, localTime(2026, 1, 15, 17));
}

TEST_P(InstanceTest, WindowCrossingMidnightAskedAtTwoStartedYesterday)
{
    clock.set(localTime(2026, 1, 14, 2));
    time_t s = 0, e = 0;
    RsvTimeWindow_getCurrentInstance("22:0-6:0", nullptr, localTime(2026, 1, 14, 2), &s, &e);
    EXPECT_EQ(s, localTime(2026, 1, 13, 22));
    EXPECT_EQ(e, localTime(2026, 1, 14, 6));
}

TEST_P(InstanceTest, WeeklyCurrentInstanceInProgress)
{
    // Friday 18:00 to Monday 08:00, asked on Sunday.
    clock.set(localTime(2026, 1, 18, 12));
    time_t s = 0, e = 0;
    RsvTimeWindow_getCurrentInstance("5:18:0-1:8:0", nullptr, localTime(2026, 1, 18, 12), &s, &e);
    EXPECT_EQ(s, localTime(2026, 1, 16, 18));
    EXPECT_EQ(e, localTime(2026, 1, 19, 8));
}

TEST_P(InstanceTest, OutputsMayBeNull)
{
    time_t e = 0;
    RsvTimeWindow_getCurrentInstance("8:0-17:0", nullptr, localTime(2026, 1, 14, 12), nullptr, &e);
    EXPECT_EQ(e, localTime(2026, 1, 14, 17));
    RsvTimeWindow_getCurrentInstance("8:0-17:0", nullptr, localTime(2026, 1, 14, 12), nullptr, nullptr);
}

TEST_P(InstanceTest, NullWindowIsLoggedAs6118)
{
    LogCapture log;
    qob_errno = 0;
    time_t s = 7, e = 7;
    RsvTimeWindow_getCurrentInstance(nullptr, nullptr, localTime(2026, 1, 14, 12), &s, &e);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(s, 7);
    EXPECT_EQ(e, 7);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].level, KX_LOG_ERR);
    EXPECT_EQ(log.lines()[0].text, "RsvTimeWindow_getCurrentInstanceAtTime: function called with timeWindow == NULL");
}

TEST_P(InstanceTest, WindowWithoutDashIsLoggedAs6119)
{
    LogCapture log;
    qob_errno = 0;
    time_t s = 7, e = 7;
    RsvTimeWindow_getCurrentInstance("8:0", nullptr, localTime(2026, 1, 14, 12), &s, &e);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(s, 7);
    EXPECT_EQ(e, 7);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].level, KX_LOG_ERR);
    EXPECT_EQ(log.lines()[0].text, "RsvTimeWindow_getCurrentInstanceAtTime: error in timeWindow format");
}

TEST_P(InstanceTest, FailedCopyIsError55)
{
    qob_errno = 0;
    time_t s = 7;
    daemon.failAfter(0);
    RsvTimeWindow_getCurrentInstance("8:0-17:0", nullptr, localTime(2026, 1, 14, 12), &s, nullptr);
    daemon.failAfter(-1);
    EXPECT_EQ(qob_errno, RSV_ERR_NO_MEMORY);
    EXPECT_EQ(s, 7);
}

// --- skipping disabled days ---

TEST_P(InstanceTest, DurationCoveringTodayAndTomorrowMovesDailyInstanceTwoDays)
{
    RawList list;
    list.add(day(2026, 1, 14), day(2026, 1, 15));
    time_t s = 0, e = 0;
    RsvTimeWindow_getCurrentInstance("8:0-17:0", list.list, localTime(2026, 1, 14, 12), &s, &e);
    EXPECT_EQ(s, localTime(2026, 1, 16, 8));
    EXPECT_EQ(e, localTime(2026, 1, 16, 17));
}

TEST_P(InstanceTest, TwoDisabledMondaysInARowMoveWeeklyInstanceTwoWeeks)
{
    // Monday 08:00-17:00, asked on Monday 12 January at 10:00.
    clock.set(localTime(2026, 1, 12, 10));
    RawList list;
    list.add(day(2026, 1, 12), day(2026, 1, 12)).add(day(2026, 1, 19), day(2026, 1, 19));
    time_t s = 0, e = 0;
    RsvTimeWindow_getCurrentInstance("1:8:0-1:17:0", list.list, localTime(2026, 1, 12, 10), &s, &e);
    EXPECT_EQ(s, localTime(2026, 1, 26, 8));
    EXPECT_EQ(e, localTime(2026, 1, 26, 17));
}

TEST_P(InstanceTest, DurationEntirelyBeforeTheCandidateIsPassedOver)
{
    RawList list;
    list.add(day(2026, 1, 1), day(2026, 1, 10)).add(day(2026, 1, 14), day(2026, 1, 14));
    time_t s = 0;
    RsvTimeWindow_getCurrentInstance("8:0-17:0", list.list, localTime(2026, 1, 14, 12), &s, nullptr);
    EXPECT_EQ(s, localTime(2026, 1, 15, 8));
}

TEST_P(InstanceTest, DurationAfterTheCandidateEndsTheWalk)
{
    // Built out of order on purpose: the first duration starts after the
    // candidate, so the one covering the candidate is never reached.
    RawList list;
    list.add(day(2026, 1, 20), day(2026, 1, 21)).add(day(2026, 1, 14), day(2026, 1, 14));
    time_t s = 0;
    RsvTimeWindow_getCurrentInstance("8:0-17:0", list.list, localTime(2026, 1, 14, 12), &s, nullptr);
    EXPECT_EQ(s, localTime(2026, 1, 14, 8));
}

TEST_P(InstanceTest, EmptyListChangesNothing)
{
    RawList list;
    time_t s = 0;
    RsvTimeWindow_getCurrentInstance("8:0-17:0", list.list, localTime(2026, 1, 14, 12), &s, nullptr);
    EXPECT_EQ(s, localTime(2026, 1, 14, 8));
}

TEST_P(InstanceTest, DailyWindowCrossingMidnightWithItsFirstDayDisabled)
{
    // At 23:00 on the 14th the instance 14th 22:00 - 15th 06:00 is current;
    // the 14th is disabled, so the one starting on the 15th is chosen.
    clock.set(localTime(2026, 1, 14, 23));
    RawList list;
    list.add(day(2026, 1, 14), day(2026, 1, 14));
    time_t s = 0, e = 0;
    RsvTimeWindow_getCurrentInstance("22:0-6:0", list.list, localTime(2026, 1, 14, 23), &s, &e);
    EXPECT_EQ(s, localTime(2026, 1, 15, 22));
    EXPECT_EQ(e, localTime(2026, 1, 16, 6));
}

TEST_P(InstanceTest, DurationAcrossTheAutumnChangeLandsOnTheNextMorning)
{
    clock.set(localTime(2026, 10, 31, 7));
    RawList list;
    list.add(day(2026, 10, 31), day(2026, 11, 1));
    time_t s = 0, e = 0;
    RsvTimeWindow_getCurrentInstance("8:0-17:0", list.list, localTime(2026, 10, 31, 7), &s, &e);
    EXPECT_EQ(s, localTime(2026, 11, 2, 8));
    EXPECT_EQ(e, localTime(2026, 11, 2, 17));
}

// --- entry forms ---

TEST_P(InstanceTest, EntryCurrentInstanceUsesDisabledDaysOnlyWhenAskedAndRecurring)
{
    Entry rec(RSV_OPT_RECURRING, "8:0-17:0");
    rec.disable(day(2026, 1, 14), day(2026, 1, 14));
    time_t s = 0;
    RsvEnt_getCurrentInstanceAtTime(rec.ent, 1, localTime(2026, 1, 14, 12), &s, nullptr);
    EXPECT_EQ(s, localTime(2026, 1, 15, 8));
    RsvEnt_getCurrentInstanceAtTime(rec.ent, 0, localTime(2026, 1, 14, 12), &s, nullptr);
    EXPECT_EQ(s, localTime(2026, 1, 14, 8));

    Entry plain(0, "8:0-17:0");
    plain.disable(day(2026, 1, 14), day(2026, 1, 14));
    RsvEnt_getCurrentInstanceAtTime(plain.ent, 1, localTime(2026, 1, 14, 12), &s, nullptr);
    EXPECT_EQ(s, localTime(2026, 1, 14, 8));
}

TEST_P(InstanceTest, EntryCurrentInstanceReadsThePinnedClock)
{
    Entry rec(RSV_OPT_RECURRING, "8:0-17:0");
    time_t s = 0, e = 0;
    RsvEnt_getCurrentInstance(rec.ent, 1, &s, &e);
    EXPECT_EQ(s, localTime(2026, 1, 14, 8));
    EXPECT_EQ(e, localTime(2026, 1, 14, 17));
}

TEST_P(InstanceTest, NullEntryIsError52)
{
    time_t s = 7;
    qob_errno = 0;
    RsvEnt_getCurrentInstanceAtTime(nullptr, 1, localTime(2026, 1, 14, 12), &s, nullptr);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    qob_errno = 0;
    RsvEnt_getCurrentInstance(nullptr, 1, &s, nullptr);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    qob_errno = 0;
    RsvEnt_getNextInstance(nullptr, 1, &s, nullptr);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(s, 7);
}

TEST_P(InstanceTest, NextInstanceAtNoonIsTomorrow)
{
    Entry rec(RSV_OPT_RECURRING, "8:0-17:0");
    time_t s = 0, e = 0;
    RsvEnt_getNextInstance(rec.ent, 1, &s, &e);
    EXPECT_EQ(s, localTime(2026, 1, 15, 8));
    EXPECT_EQ(e, localTime(2026, 1, 15, 17));
}

TEST_P(InstanceTest, NextInstanceEndUsesTheStoredDuration)
{
    Entry rec(RSV_OPT_RECURRING, "8:0-17:0");
    rec.ent->duration = 600;
    time_t s = 0, e = 0;
    RsvEnt_getNextInstance(rec.ent, 0, &s, &e);
    EXPECT_EQ(e - s, 600);
}

TEST_P(InstanceTest, NextInstanceSkipsDisabledDaysWithoutConsultingTheRecurringBit)
{
    Entry plain(0, "8:0-17:0");
    plain.disable(day(2026, 1, 15), day(2026, 1, 16));
    time_t s = 0;
    RsvEnt_getNextInstance(plain.ent, 1, &s, nullptr);
    EXPECT_EQ(s, localTime(2026, 1, 17, 8));
    RsvEnt_getNextInstance(plain.ent, 0, &s, nullptr);
    EXPECT_EQ(s, localTime(2026, 1, 15, 8));
}

TEST_P(InstanceTest, NextInstanceOfWindowWithoutDashIsError52)
{
    Entry rec(RSV_OPT_RECURRING, "8:0");
    time_t s = 7;
    qob_errno = 0;
    RsvEnt_getNextInstance(rec.ent, 1, &s, nullptr);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(s, 7);
}

// --- the instance text ---

TEST_P(InstanceTest, CalendarTimeDurationText)
{
    char *text = nullptr;
    // 9 January 2026 is a Friday: ctime pads the day with a blank.
    setCalendarTimeDuration(localTime(2026, 1, 9, 8), localTime(2026, 1, 9, 17), &text);
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "Fri Jan  9 08:00:00 2026 - Fri Jan  9 17:00:00 2026");
    // A second call replaces (and frees) the first text.
    setCalendarTimeDuration(localTime(2026, 1, 14, 22, 30), localTime(2026, 1, 15, 6, 5), &text);
    EXPECT_STREQ(text, "Wed Jan 14 22:30:00 2026 - Thu Jan 15 06:05:00 2026");
    free(text);
}

TEST_P(InstanceTest, CalendarTimeDurationTextIsNullWhenAllocationFails)
{
    char *text = strdup("old");
    daemon.failAfter(0);
    setCalendarTimeDuration(localTime(2026, 1, 9, 8), localTime(2026, 1, 9, 17), &text);
    daemon.failAfter(-1);
    EXPECT_EQ(text, nullptr);
    setCalendarTimeDuration(0, 0, nullptr); // ignored
}

TEST_P(InstanceTest, SetNextInstanceRecordsTheTextAndLogsWithTheDebugBit)
{
    Entry rec(RSV_OPT_RECURRING, "8:0-17:0");
    rec.ent->rsvId = strdup("alice#3");
    const int saved = logclass;
    logclass = LC_RSV;
    LogCapture log;
    RsvEnt_setNextInstance(rec.ent, localTime(2026, 1, 15, 8), localTime(2026, 1, 15, 17));
    logclass = saved;
    EXPECT_STREQ(rec.ent->timeDuration, "Thu Jan 15 08:00:00 2026 - Thu Jan 15 17:00:00 2026");
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].level, KX_LOG_DEBUG);
    EXPECT_EQ(log.lines()[0].text, "RsvEnt_setNextInstance(): Reservation alice#3 set its time duration: "
                                   "Thu Jan 15 08:00:00 2026 - Thu Jan 15 17:00:00 2026");
}

TEST_P(InstanceTest, SetNextInstanceIsSilentWithoutTheDebugBit)
{
    Entry rec(RSV_OPT_RECURRING, "8:0-17:0");
    const int saved = logclass;
    logclass = 0;
    LogCapture log;
    RsvEnt_setNextInstance(rec.ent, localTime(2026, 1, 15, 8), localTime(2026, 1, 15, 17));
    logclass = saved;
    EXPECT_STREQ(rec.ent->timeDuration, "Thu Jan 15 08:00:00 2026 - Thu Jan 15 17:00:00 2026");
    EXPECT_TRUE(log.lines().empty());
}

TEST_P(InstanceTest, SetNextInstanceLeavesOneOffEntriesAlone)
{
    Entry plain(0, "8:0-17:0");
    char *before = plain.ent->timeDuration;
    RsvEnt_setNextInstance(plain.ent, localTime(2026, 1, 15, 8), localTime(2026, 1, 15, 17));
    EXPECT_EQ(plain.ent->timeDuration, before);
    EXPECT_STREQ(plain.ent->timeDuration, "");
    RsvEnt_setNextInstance(nullptr, 0, 0);
}

} // namespace
