// Disabled days as the planners see them: dated planners leave the slots of
// disabled occurrences free, the recurring planner and one-off reservations
// never look at them, disabling through the table unbooks, records and
// rebooks, and a restart keeps the durations and the free slots.
#include "rsv_test_support.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using rsvtest::cell;
using rsvtest::FakeDaemon;
using rsvtest::findPlanner;
using rsvtest::localTime;
using rsvtest::PinnedClock;
using rsvtest::ScopedTz;

namespace {

constexpr int kSun = 0, kMon = 1, kTue = 2, kWed = 3, kThu = 4, kFri = 5, kSat = 6;
constexpr int kSlots = 2; // slots of the recurring reservation
constexpr int kOneOffSlot = 72; // Wednesday 12:00-12:10, the one-off booking

// An entry as a restart hands it over: id, window and one host.
RsvEnt *newEntry(const char *rsvId, int options, const std::string &window, int slots)
{
    RsvEnt *ent = RsvEnt_new(options, "alice", window.c_str());
    ent->rsvId = strdup(rsvId);
    ent->numHosts = 1;
    ent->allocVector = static_cast<AllocElem *>(calloc(1, sizeof(AllocElem)));
    ent->allocVector[0].hostName = strdup("hostA");
    ent->allocVector[0].numSlots = slots;
    return ent;
}

// Every cell of day `d` from slot `from` to `to` (inclusive) holds `value`.
::testing::AssertionResult run(const ResPlanner *p, int d, int from, int to, int value)
{
    if (p == nullptr)
        return ::testing::AssertionFailure() << "no planner";
    for (int s = from; s <= to; ++s)
        if (cell(p, d, s) != value)
            return ::testing::AssertionFailure() << "day " << d << " slot " << s << " holds " << cell(p, d, s)
                                                 << ", expected " << value;
    return ::testing::AssertionSuccess();
}

std::vector<int> cells(const ResPlanner *p)
{
    std::vector<int> out;
    for (int d = 0; d < 7; ++d)
        for (int s = 0; s < 144; ++s)
            out.push_back(cell(p, d, s));
    return out;
}

class DisabledPlannerTest : public ::testing::TestWithParam<const char *> {
protected:
    ScopedTz tz{GetParam()};
    // Monday 2 February 2026; the test week is Sunday 8 to Saturday 14.
    PinnedClock clock{localTime(2026, 2, 2, 9)};
    FakeDaemon daemon;
    RsvTimeTbl *tbl = nullptr;
    RsvEnt *recurring = nullptr;
    RsvWeek week{};

    void SetUp() override
    {
        daemon.addHost("hostA", 16);
        tbl = RsvTimeTbl_new(nullptr);
        RsvTime_toWeek(localTime(2026, 2, 11, 12), &week);
    }
    void TearDown() override { RsvTimeTbl_free(tbl); }

    // The recurring reservation under test, booked with kSlots slots.
    void bookRecurring(const char *window)
    {
        recurring = newEntry("alice#1", RSV_OPT_RECURRING, window, kSlots);
        RsvTimeTbl_restoreEntry(tbl, recurring);
    }

    // A one-off booking on Wednesday 12:00 of the week of `day`, which gives
    // that week its dated planner.
    void bookOneOff(const char *rsvId, int year, int month, int wednesday)
    {
        RsvEnt *ent = newEntry(rsvId, 0,
                               rsvtest::oneOff(localTime(year, month, wednesday, 12), localTime(year, month, wednesday, 12, 10)),
                               1);
        RsvTimeTbl_restoreEntry(tbl, ent);
    }

    int disable(const char *dateText)
    {
        RsvDisableDuration *rec = createRsvDisableDuration(dateText, 1);
        if (rec == nullptr)
            return -2;
        return RsvTimeTbl_addDurationToDisabledList(tbl, recurring, rec);
    }

    ResPlanner *dated() { return findPlanner(tbl, "hostA", week); }
    ResPlanner *zeroWeek() { return findPlanner(tbl, "hostA", rsvWeekRecur); }
};

INSTANTIATE_TEST_SUITE_P(Zones, DisabledPlannerTest, ::testing::Values("UTC", "America/New_York"),
                         [](const auto &info) {
                             std::string name = info.param;
                             for (auto &c : name)
                                 if (c == '/')
                                     c = '_';
                             return name;
                         });

TEST_P(DisabledPlannerTest, WrappingDailyWindowLeavesTheDisabledTuesdaysOccurrenceFree)
{
    bookRecurring("22:0-2:0");
    bookOneOff("alice#2", 2026, 2, 11);
    ASSERT_NE(dated(), nullptr);
    ASSERT_TRUE(run(dated(), kTue, 132, 143, kSlots));

    ASSERT_EQ(disable("2026:2:10"), 0);
    ResPlanner *p = dated();
    // Tuesday evening and Wednesday morning belonged to Tuesday's occurrence.
    EXPECT_TRUE(run(p, kTue, 132, 143, 0));
    EXPECT_TRUE(run(p, kWed, 0, 11, 0));
    // Tuesday morning is Monday's occurrence and stays booked.
    EXPECT_TRUE(run(p, kTue, 0, 11, kSlots));
    for (int d : {kSun, kMon, kThu, kFri, kSat}) {
        EXPECT_TRUE(run(p, d, 0, 11, kSlots));
        EXPECT_TRUE(run(p, d, 132, 143, kSlots));
        EXPECT_TRUE(run(p, d, 12, 131, 0));
    }
    EXPECT_TRUE(run(p, kMon, 132, 143, kSlots));
    EXPECT_TRUE(run(p, kWed, 132, 143, kSlots));
    EXPECT_EQ(cell(p, kWed, kOneOffSlot), 1);
    EXPECT_TRUE(rsvtest::plannersMatchRebooking(tbl));
}

TEST_P(DisabledPlannerTest, SundayMorningFollowsThePreviousSaturday)
{
    bookRecurring("22:0-2:0");
    bookOneOff("alice#2", 2026, 2, 11);
    ASSERT_EQ(disable("2026:2:7"), 0);
    ResPlanner *p = dated();
    // Saturday 7 February is in the week before: only its morning tail here.
    EXPECT_TRUE(run(p, kSun, 0, 11, 0));
    EXPECT_TRUE(run(p, kSun, 132, 143, kSlots));
    EXPECT_TRUE(run(p, kSat, 132, 143, kSlots));
    EXPECT_TRUE(rsvtest::plannersMatchRebooking(tbl));
}

TEST_P(DisabledPlannerTest, PlainDailyWindowLeavesDisabledDaysFree)
{
    bookRecurring("8:0-17:0");
    bookOneOff("alice#2", 2026, 2, 11);
    ASSERT_EQ(disable("2026:2:12-2026:2:13"), 0);
    ResPlanner *p = dated();
    EXPECT_TRUE(run(p, kThu, 48, 101, 0));
    EXPECT_TRUE(run(p, kFri, 48, 101, 0));
    for (int d : {kSun, kMon, kTue, kSat})
        EXPECT_TRUE(run(p, d, 48, 101, kSlots));
    EXPECT_EQ(cell(p, kWed, kOneOffSlot), kSlots + 1);
    EXPECT_TRUE(rsvtest::plannersMatchRebooking(tbl));
}

TEST_P(DisabledPlannerTest, WeeklyWindowPastSaturdayWithThePreviousWeeksOccurrenceDisabled)
{
    // Friday 18:00 to Tuesday 08:00; the occurrence that starts on Friday
    // 6 February covers this week's Sunday to Tuesday morning.
    bookRecurring("5:18:0-2:8:0");
    bookOneOff("alice#2", 2026, 2, 11);
    ASSERT_TRUE(run(dated(), kSun, 0, 143, kSlots));
    ASSERT_EQ(disable("2026:2:6"), 0);
    ResPlanner *p = dated();
    EXPECT_TRUE(run(p, kSun, 0, 143, 0));
    EXPECT_TRUE(run(p, kMon, 0, 143, 0));
    EXPECT_TRUE(run(p, kTue, 0, 47, 0));
    // This week's own occurrence, from Friday 13 February, stays.
    EXPECT_TRUE(run(p, kFri, 0, 107, 0));
    EXPECT_TRUE(run(p, kFri, 108, 143, kSlots));
    EXPECT_TRUE(run(p, kSat, 0, 143, kSlots));
    EXPECT_TRUE(rsvtest::plannersMatchRebooking(tbl));
}

TEST_P(DisabledPlannerTest, WeeklyWindowPastSaturdayWithThisWeeksOccurrenceDisabled)
{
    bookRecurring("5:18:0-2:8:0");
    bookOneOff("alice#2", 2026, 2, 11);
    ASSERT_EQ(disable("2026:2:13"), 0);
    ResPlanner *p = dated();
    EXPECT_TRUE(run(p, kSun, 0, 143, kSlots));
    EXPECT_TRUE(run(p, kTue, 0, 47, kSlots));
    EXPECT_TRUE(run(p, kFri, 108, 143, 0));
    EXPECT_TRUE(run(p, kSat, 0, 143, 0));
    EXPECT_TRUE(rsvtest::plannersMatchRebooking(tbl));
}

TEST_P(DisabledPlannerTest, WeeklyWindowFromSaturdayIntoSundayWithThePreviousWeeksOccurrenceDisabled)
{
    bookRecurring("6:18:0-7:6:0");
    bookOneOff("alice#2", 2026, 2, 11);
    ASSERT_TRUE(run(dated(), kSun, 0, 35, kSlots));
    ASSERT_EQ(disable("2026:2:7"), 0);
    ResPlanner *p = dated();
    EXPECT_TRUE(run(p, kSun, 0, 35, 0));
    EXPECT_TRUE(run(p, kSat, 108, 143, kSlots));
    EXPECT_TRUE(rsvtest::plannersMatchRebooking(tbl));
}

TEST_P(DisabledPlannerTest, ZeroWeekPlannerNeverConsultsDisabledDays)
{
    bookRecurring("22:0-2:0");
    bookOneOff("alice#2", 2026, 2, 11);
    const std::vector<int> before = cells(zeroWeek());
    ASSERT_EQ(disable("2026:2:8-2026:2:14"), 0);
    EXPECT_EQ(cells(zeroWeek()), before);
    for (int d = 0; d < 7; ++d) {
        EXPECT_TRUE(run(zeroWeek(), d, 0, 11, kSlots));
        EXPECT_TRUE(run(zeroWeek(), d, 132, 143, kSlots));
    }
    EXPECT_TRUE(run(dated(), kMon, 132, 143, 0));
    EXPECT_TRUE(rsvtest::plannersMatchRebooking(tbl));
}

TEST_P(DisabledPlannerTest, OneOffReservationsNeverConsultDisabledDays)
{
    // A one-off entry that carries a list anyway is booked in full.
    RsvEnt *ent = newEntry("alice#3", 0, rsvtest::oneOff(localTime(2026, 2, 10, 8), localTime(2026, 2, 10, 9)), 3);
    ent->disabledDurations = listCreate("disabled durations");
    RsvDisableDuration *rec = createRsvDisableDuration("2026:2:10", 1);
    ASSERT_NE(rec, nullptr);
    listInsertEntryAtBack(ent->disabledDurations, &rec->links);
    RsvTimeTbl_restoreEntry(tbl, ent);
    EXPECT_TRUE(run(dated(), kTue, 48, 53, 3));
    // And the table refuses to disable days of a one-off reservation.
    RsvDisableDuration *other = createRsvDisableDuration("2026:2:11", 1);
    qob_errno = 0;
    EXPECT_EQ(RsvTimeTbl_addDurationToDisabledList(tbl, ent, other), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    free(other);
    EXPECT_TRUE(run(dated(), kTue, 48, 53, 3));
    EXPECT_TRUE(rsvtest::plannersMatchRebooking(tbl));
}

TEST_P(DisabledPlannerTest, RefusedDurationLeavesPlannersAndListAsTheyWere)
{
    bookRecurring("8:0-17:0");
    bookOneOff("alice#2", 2026, 2, 11);
    ASSERT_EQ(disable("2026:2:9-2026:2:12"), 0);
    const std::vector<int> datedBefore = cells(dated());
    const std::vector<int> zeroBefore = cells(zeroWeek());
    qob_errno = 0;
    EXPECT_EQ(disable("2026:2:10"), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_DURATION_EXISTS);
    EXPECT_EQ(cells(dated()), datedBefore);
    EXPECT_EQ(cells(zeroWeek()), zeroBefore);
    ASSERT_NE(recurring->disabledDurations, nullptr);
    EXPECT_EQ(recurring->disabledDurations->numEnts, 1);
    EXPECT_TRUE(rsvtest::plannersMatchRebooking(tbl));
}

TEST_P(DisabledPlannerTest, MergedDurationsFreeEveryDayTheyCover)
{
    bookRecurring("8:0-17:0");
    bookOneOff("alice#2", 2026, 2, 11);
    ASSERT_EQ(disable("2026:2:9"), 0);
    ASSERT_EQ(disable("2026:2:13"), 0);
    ASSERT_EQ(disable("2026:2:10-2026:2:12"), 0);
    EXPECT_EQ(recurring->disabledDurations->numEnts, 1);
    ResPlanner *p = dated();
    for (int d : {kMon, kTue, kThu, kFri})
        EXPECT_TRUE(run(p, d, 48, 101, 0));
    EXPECT_TRUE(run(p, kWed, 48, kOneOffSlot - 1, 0));
    EXPECT_EQ(cell(p, kWed, kOneOffSlot), 1);
    EXPECT_TRUE(run(p, kWed, kOneOffSlot + 1, 101, 0));
    EXPECT_TRUE(run(p, kSun, 48, 101, kSlots));
    EXPECT_TRUE(run(p, kSat, 48, 101, kSlots));
    EXPECT_TRUE(rsvtest::plannersMatchRebooking(tbl));
}

TEST_P(DisabledPlannerTest, DatedPlannerMadeLaterStartsWithDisabledDaysFree)
{
    bookRecurring("8:0-17:0");
    ASSERT_EQ(disable("2026:2:17"), 0);
    // The week of 15 February gets its planner only now.
    bookOneOff("alice#2", 2026, 2, 18);
    RsvWeek later{};
    RsvTime_toWeek(localTime(2026, 2, 18, 12), &later);
    ResPlanner *p = findPlanner(tbl, "hostA", later);
    ASSERT_NE(p, nullptr);
    EXPECT_TRUE(run(p, kTue, 48, 101, 0));
    EXPECT_TRUE(run(p, kMon, 48, 101, kSlots));
    EXPECT_TRUE(rsvtest::plannersMatchRebooking(tbl));
}

TEST_P(DisabledPlannerTest, DurationAcrossTheAutumnChangeFreesBothWeeks)
{
    // Saturday 31 October and Sunday 1 November, the day the clocks go back.
    bookRecurring("8:0-17:0");
    bookOneOff("alice#2", 2026, 10, 28);
    bookOneOff("alice#3", 2026, 11, 4);
    ASSERT_EQ(disable("2026:10:31-2026:11:1"), 0);
    RsvWeek before{}, after{};
    RsvTime_toWeek(localTime(2026, 10, 28, 12), &before);
    RsvTime_toWeek(localTime(2026, 11, 4, 12), &after);
    ResPlanner *p1 = findPlanner(tbl, "hostA", before);
    ResPlanner *p2 = findPlanner(tbl, "hostA", after);
    EXPECT_TRUE(run(p1, kSat, 48, 101, 0));
    EXPECT_TRUE(run(p1, kFri, 48, 101, kSlots));
    EXPECT_TRUE(run(p2, kSun, 48, 101, 0));
    EXPECT_TRUE(run(p2, kMon, 48, 101, kSlots));
    EXPECT_TRUE(rsvtest::plannersMatchRebooking(tbl));
}

TEST_P(DisabledPlannerTest, RestartKeepsDurationsAndFreeSlots)
{
    bookRecurring("22:0-2:0");
    bookOneOff("alice#2", 2026, 2, 11);
    ASSERT_EQ(disable("2026:2:10"), 0);
    ASSERT_EQ(disable("2026:2:20-2026:2:22"), 0);

    // Write both records and read them back into a new table.
    RsvTimeTbl *restarted = RsvTimeTbl_new(nullptr);
    for (const char *id : {"alice#1", "alice#2"}) {
        char *text = RsvEnt_ToString(RsvTimeTbl_getEntry(tbl, id));
        ASSERT_NE(text, nullptr);
        RsvEnt *back = RsvEnt_newByString(text);
        free(text);
        ASSERT_NE(back, nullptr) << id;
        RsvTimeTbl_restoreEntry(restarted, back);
    }
    RsvEnt *ent = RsvTimeTbl_getEntry(restarted, "alice#1");
    ASSERT_NE(ent, nullptr);
    ASSERT_NE(ent->disabledDurations, nullptr);
    ASSERT_EQ(ent->disabledDurations->numEnts, 2);
    auto *first = reinterpret_cast<RsvDisableDuration *>(ent->disabledDurations->forw);
    auto *second = reinterpret_cast<RsvDisableDuration *>(first->links.forw);
    EXPECT_EQ(first->firstDay.mday, 10);
    EXPECT_EQ(first->lastDay.mday, 10);
    EXPECT_EQ(second->firstDay.mday, 20);
    EXPECT_EQ(second->lastDay.mday, 22);
    EXPECT_EQ(second->lastDay.mon, 1);
    EXPECT_EQ(second->lastDay.year, 2026);

    ResPlanner *p = findPlanner(restarted, "hostA", week);
    EXPECT_TRUE(run(p, kTue, 132, 143, 0));
    EXPECT_TRUE(run(p, kWed, 0, 11, 0));
    EXPECT_TRUE(run(p, kTue, 0, 11, kSlots));
    EXPECT_TRUE(rsvtest::plannersEqual(tbl, restarted));
    EXPECT_TRUE(rsvtest::plannersMatchRebooking(restarted));
    RsvTimeTbl_free(restarted);
}

} // namespace
