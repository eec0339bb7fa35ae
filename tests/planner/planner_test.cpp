// Weekly planner: cell arithmetic of every window form, the cell operations,
// recurring bookings of new dated planners, and disabled days.
#include <cstdlib>
#include <cstring>

#include "planner_test_util.h"
#include "rsv_test_support.h"

using namespace rsvtest;
using namespace plannertest;

namespace {

constexpr int kSun = 0, kMon = 1, kTue = 2, kWed = 3, kThu = 4, kFri = 5, kSat = 6;
const Runs kNone{};
const Runs kWholeDay{{0, 143, 1}};

class ResPlannerTest : public ::testing::Test {
protected:
    void SetUp() override { planner = ResPlanner_new("hostA", &rsvWeekRecur); }
    void TearDown() override { ResPlanner_destroy(planner); }
    void book(const char *window, int n = 1, RsvEnt *ent = nullptr)
    {
        ResPlanner_map(planner, window, ResPlannerEnt_incr, n, ent);
    }
    FakeDaemon daemon;
    ScopedTz tz{"UTC"};
    ResPlanner *planner = nullptr;
};

// The week of Sunday 1 March 2026 (day of month 1, month 2 as localtime gives
// it), used for dated planners.
RsvWeek march1Week()
{
    RsvWeek w{};
    w.startDay = 1;
    w.startMonth = 2;
    w.startYear = 2026;
    w.endDay = 7;
    w.endWeekday = 6;
    w.endMonth = 2;
    w.endYear = 2026;
    return w;
}

tmDay dayOf(int year, int month1to12, int mday)
{
    tmDay d{};
    d.mday = mday;
    d.mon = month1to12 - 1;
    d.year = year;
    return d;
}

// Adds a disabled duration (both days inclusive) to the entry's list.
void disable(RsvEnt *ent, tmDay first, tmDay last)
{
    if (!ent->disabledDurations)
        ent->disabledDurations = listCreate("disabled durations");
    auto *rec = static_cast<RsvDisableDuration *>(calloc(1, sizeof(RsvDisableDuration)));
    rec->firstDay = first;
    rec->lastDay = last;
    listInsertEntryAtBack(ent->disabledDurations, &rec->links);
}

// Whether the disabled-day look-up of recurring reservations is in place.
bool disabledDaysAvailable()
{
    RsvEnt *ent = makeEntry("probe", RSV_OPT_RECURRING, "8:0-9:0", {});
    disable(ent, dayOf(2026, 3, 3), dayOf(2026, 3, 3));
    RsvWeek w = march1Week();
    int days[7] = {0, 0, 0, 0, 0, 0, 0};
    getDisabledDaysInWeek(&w, ent, days);
    freeEntry(ent);
    return days[kTue] == 1;
}

} // namespace

TEST_F(ResPlannerTest, NewPlannerIsNamedAfterTheHostAndHasEveryCellAtZero)
{
    ASSERT_NE(planner, nullptr);
    EXPECT_STREQ(planner->plannerName, "Resource Weekly Planner for host <hostA>");
    EXPECT_TRUE(RsvWeek_equal(&planner->week, &rsvWeekRecur));
    EXPECT_EQ(bookedCells(planner), 0);
}

TEST_F(ResPlannerTest, NewPlannerCopiesItsWeek)
{
    RsvWeek w = march1Week();
    ResPlanner *dated = ResPlanner_new("hostA", &w);
    w.startDay = 9;
    EXPECT_EQ(dated->week.startDay, 1);
    EXPECT_EQ(dated->week.startYear, 2026);
    EXPECT_EQ(dated->week.endDay, 7);
    ResPlanner_destroy(dated);
}

TEST_F(ResPlannerTest, NewPlannerReturnsNullWhenMemoryRunsOut)
{
    daemon.failAfter(0);
    EXPECT_EQ(ResPlanner_new("hostA", &rsvWeekRecur), nullptr);
    daemon.failAfter(1); // the record but not its name
    EXPECT_EQ(ResPlanner_new("hostA", &rsvWeekRecur), nullptr);
    daemon.failAfter(-1);
}

TEST_F(ResPlannerTest, WholeWeekLiteralTouchesAll1008Cells)
{
    book("0:0:0-0:0:0");
    for (int d = 0; d < 7; ++d)
        EXPECT_EQ(runs(planner, d), kWholeDay) << "day " << d;
    EXPECT_EQ(bookedCells(planner), 1008);
}

TEST_F(ResPlannerTest, WholeWeekLiteralVisitsEachCellOnceInDayAndSlotOrder)
{
    static std::vector<const ResPlannerEnt *> visited;
    visited.clear();
    auto record = [](ResPlannerEnt *cell, int64_t) -> int64_t {
        visited.push_back(cell);
        return 0;
    };
    ResPlanner_map(planner, "0:0:0-0:0:0", record, 0, nullptr);
    ASSERT_EQ(visited.size(), 1008u);
    for (size_t i = 0; i < visited.size(); ++i)
        ASSERT_EQ(visited[i], &planner->slots[0][0] + i);
}

TEST_F(ResPlannerTest, DailyWindowBooksTheSameSlotsOnEveryDay)
{
    book("8:0-17:0");
    for (int d = 0; d < 7; ++d)
        EXPECT_EQ(runs(planner, d), (Runs{{48, 101, 1}})) << "day " << d;
}

TEST_F(ResPlannerTest, DailyWindowStartRoundsDownAndEndRoundsUp)
{
    book("8:5-17:1");
    for (int d = 0; d < 7; ++d)
        EXPECT_EQ(runs(planner, d), (Runs{{48, 102, 1}})) << "day " << d;
}

TEST_F(ResPlannerTest, EndOnASlotBoundaryIsExclusiveAndOneMinuteLaterTakesTheNextSlot)
{
    book("11:0-12:0");
    EXPECT_EQ(runs(planner, kMon), (Runs{{66, 71, 1}}));
    book("12:1-12:1"); // the end 12:01 covers 12:00-12:10
    EXPECT_EQ(runs(planner, kMon), (Runs{{66, 72, 1}}));
}

TEST_F(ResPlannerTest, EndAt23h59AndAt24h0ReachTheLastSlot)
{
    book("23:50-23:59");
    EXPECT_EQ(runs(planner, kThu), (Runs{{143, 143, 1}}));
    book("23:0-24:0", 2);
    EXPECT_EQ(runs(planner, kThu), (Runs{{138, 142, 2}, {143, 143, 3}}));
}

TEST_F(ResPlannerTest, DailyWindowWithEqualEndsBooksNothing)
{
    book("8:0-8:0");
    EXPECT_EQ(bookedCells(planner), 0);
}

TEST_F(ResPlannerTest, DailyWindowPastMidnightBooksEveningAndMorningOfEveryDay)
{
    book("22:0-2:0");
    for (int d = 0; d < 7; ++d)
        EXPECT_EQ(runs(planner, d), (Runs{{0, 11, 1}, {132, 143, 1}})) << "day " << d;
}

TEST_F(ResPlannerTest, WrappingDailyWindowWhoseRoundedEndMeetsItsStartBooksEachCellOnce)
{
    // 22:05 starts in slot 132 and 22:01 rounds up to 133: the end is pulled
    // back to the start, so head and tail never overlap.
    book("22:5-22:1");
    for (int d = 0; d < 7; ++d)
        EXPECT_EQ(runs(planner, d), kWholeDay) << "day " << d;
}

TEST_F(ResPlannerTest, WrappingDailyWindowWithinOneHourComparesMinutes)
{
    book("10:30-10:10");
    for (int d = 0; d < 7; ++d)
        EXPECT_EQ(runs(planner, d), (Runs{{0, 60, 1}, {63, 143, 1}})) << "day " << d;
    EXPECT_EQ(bookedCells(planner), 1008 - 7 * 2);
}

TEST_F(ResPlannerTest, WeeklyWindowWithinTheWeekBooksFromStartSlotToEndSlot)
{
    book("1:9:0-3:17:30");
    EXPECT_EQ(runs(planner, kSun), kNone);
    EXPECT_EQ(runs(planner, kMon), (Runs{{54, 143, 1}}));
    EXPECT_EQ(runs(planner, kTue), kWholeDay);
    EXPECT_EQ(runs(planner, kWed), (Runs{{0, 104, 1}}));
    EXPECT_EQ(runs(planner, kThu), kNone);
}

TEST_F(ResPlannerTest, WeeklyWindowOnOneDay)
{
    book("4:13:20-4:14:45");
    EXPECT_EQ(runs(planner, kThu), (Runs{{80, 88, 1}}));
    EXPECT_EQ(bookedCells(planner), 9);
}

TEST_F(ResPlannerTest, WeeklyWindowPastSaturdayBooksBothEndsOfTheWeek)
{
    book("5:18:0-2:8:0");
    EXPECT_EQ(runs(planner, kSun), kWholeDay);
    EXPECT_EQ(runs(planner, kMon), kWholeDay);
    EXPECT_EQ(runs(planner, kTue), (Runs{{0, 47, 1}}));
    EXPECT_EQ(runs(planner, kWed), kNone);
    EXPECT_EQ(runs(planner, kThu), kNone);
    EXPECT_EQ(runs(planner, kFri), (Runs{{108, 143, 1}}));
    EXPECT_EQ(runs(planner, kSat), kWholeDay);
}

TEST_F(ResPlannerTest, DaySevenAndDayZeroBothMeanSunday)
{
    book("7:9:0-7:10:0");
    EXPECT_EQ(runs(planner, kSun), (Runs{{54, 59, 1}}));
    book("0:9:0-0:10:0");
    EXPECT_EQ(runs(planner, kSun), (Runs{{54, 59, 2}}));
    EXPECT_EQ(bookedCells(planner), 6);
}

TEST_F(ResPlannerTest, SaturdayToSundayWindowWrapsIntoTheWeeksFirstDay)
{
    book("6:22:0-7:2:0");
    EXPECT_EQ(runs(planner, kSat), (Runs{{132, 143, 1}}));
    EXPECT_EQ(runs(planner, kSun), (Runs{{0, 11, 1}}));
    EXPECT_EQ(bookedCells(planner), 24);
}

TEST_F(ResPlannerTest, OpenStartBooksFromTheWeeksBeginning)
{
    book("0:0:0-3:12:0");
    EXPECT_EQ(runs(planner, kSun), kWholeDay);
    EXPECT_EQ(runs(planner, kMon), kWholeDay);
    EXPECT_EQ(runs(planner, kTue), kWholeDay);
    EXPECT_EQ(runs(planner, kWed), (Runs{{0, 71, 1}}));
    EXPECT_EQ(runs(planner, kThu), kNone);
}

TEST_F(ResPlannerTest, OpenEndBooksToTheWeeksEnd)
{
    book("3:9:30-0:0:0");
    EXPECT_EQ(runs(planner, kTue), kNone);
    EXPECT_EQ(runs(planner, kWed), (Runs{{57, 143, 1}}));
    EXPECT_EQ(runs(planner, kThu), kWholeDay);
    EXPECT_EQ(runs(planner, kFri), kWholeDay);
    EXPECT_EQ(runs(planner, kSat), kWholeDay);
}

TEST_F(ResPlannerTest, SundayStartWrittenAsSevenWithOpenEnd)
{
    book("7:9:30-0:0:0");
    EXPECT_EQ(runs(planner, kSun), (Runs{{57, 143, 1}}));
    for (int d = kMon; d <= kSat; ++d)
        EXPECT_EQ(runs(planner, d), kWholeDay) << "day " << d;
}

TEST_F(ResPlannerTest, OpenStartEndingAtSundayMidnightBooksNothing)
{
    book("0:0:0-7:0:0");
    EXPECT_EQ(bookedCells(planner), 0);
}

TEST_F(ResPlannerTest, WholeWeekFromSaturdayEndForm)
{
    book("0:0:0-6:24:0");
    EXPECT_EQ(bookedCells(planner), 1008);
}

TEST_F(ResPlannerTest, ReleaseUndoesABooking)
{
    book("5:18:0-2:8:0", 3);
    ResPlanner_map(planner, "5:18:0-2:8:0", ResPlannerEnt_decr, 3, nullptr);
    EXPECT_EQ(bookedCells(planner), 0);
}

TEST_F(ResPlannerTest, CountsMayGoNegative)
{
    ResPlanner_map(planner, "1:0:0-1:0:10", ResPlannerEnt_decr, 2, nullptr);
    EXPECT_EQ(runs(planner, kMon), (Runs{{0, 0, -2}}));
}

TEST_F(ResPlannerTest, MaxOverWindowSeesOnlyCoveredCells)
{
    book("2:10:0-2:11:0", 5);
    book("2:11:0-2:12:0", 7);
    EXPECT_EQ(maxOver(planner, "2:10:0-2:11:0"), 5);
    EXPECT_EQ(maxOver(planner, "2:10:50-2:11:1"), 7);
    EXPECT_EQ(maxOver(planner, "2:12:0-2:13:0"), 0);
    EXPECT_EQ(maxOver(planner, "0:0:0-0:0:0"), 7);
}

TEST_F(ResPlannerTest, TextThatIsNotAWindowChangesNothing)
{
    book("8:0");
    book("");
    book("x-y");
    book("3:9:30-");
    book(std::string(400, '1').append("-2:0").c_str());
    EXPECT_EQ(bookedCells(planner), 0);
    ResPlanner_map(planner, nullptr, ResPlannerEnt_incr, 1, nullptr);
    ResPlanner_map(nullptr, "8:0-9:0", ResPlannerEnt_incr, 1, nullptr);
    ResPlanner_map(planner, "8:0-9:0", nullptr, 1, nullptr);
    EXPECT_EQ(bookedCells(planner), 0);
}

TEST(ResPlannerEnt, IncrReturnsTheNewCount)
{
    ResPlannerEnt cell{4};
    EXPECT_EQ(ResPlannerEnt_incr(&cell, 3), 7);
    EXPECT_EQ(cell.reserved, 7);
}

TEST(ResPlannerEnt, DecrReturnsItsArgumentNotTheNewCount)
{
    ResPlannerEnt cell{10};
    EXPECT_EQ(ResPlannerEnt_decr(&cell, 3), 3);
    EXPECT_EQ(cell.reserved, 7);
}

TEST(ResPlannerEnt, GetMaxRsvKeepsTheLargerValueAndReturnsIt)
{
    int acc = 2;
    ResPlannerEnt low{1}, high{9};
    EXPECT_EQ(ResPlannerEnt_getMaxRsv(&low, static_cast<int64_t>(reinterpret_cast<intptr_t>(&acc))), 2);
    EXPECT_EQ(acc, 2);
    EXPECT_EQ(ResPlannerEnt_getMaxRsv(&high, static_cast<int64_t>(reinterpret_cast<intptr_t>(&acc))), 9);
    EXPECT_EQ(acc, 9);
}

TEST(ResPlannerEnt, GetMaxRsvComparesSigned)
{
    int acc = -5;
    ResPlannerEnt cell{-2};
    ResPlannerEnt_getMaxRsv(&cell, static_cast<int64_t>(reinterpret_cast<intptr_t>(&acc)));
    EXPECT_EQ(acc, -2);
}

TEST_F(ResPlannerTest, GetMaxRsvOverEmptyCellsLeavesTheAccumulatorUnchanged)
{
    int acc = 0;
    ResPlanner_map(planner, "0:0:0-0:0:0", ResPlannerEnt_getMaxRsv,
                   static_cast<int64_t>(reinterpret_cast<intptr_t>(&acc)), nullptr);
    EXPECT_EQ(acc, 0);
    acc = 3;
    ResPlanner_map(planner, "0:0:0-0:0:0", ResPlannerEnt_getMaxRsv,
                   static_cast<int64_t>(reinterpret_cast<intptr_t>(&acc)), nullptr);
    EXPECT_EQ(acc, 3);
}

TEST_F(ResPlannerTest, EqualComparesOnlyTheWeeksStart)
{
    RsvWeek other = rsvWeekRecur;
    other.endDay = 5;
    other.endYear = 1999;
    EXPECT_NE(ResPlanner_equal(planner, &other, 0), 0);
    other.startDay = 1;
    EXPECT_EQ(ResPlanner_equal(planner, &other, 0), 0);
}

TEST_F(ResPlannerTest, NoPlannerIsEverOutdated)
{
    RsvWeek w = march1Week();
    w.startYear = 2099;
    EXPECT_EQ(ResPlanner_isOutdated(planner, &w, 0), 0);
    RsvWeek zero = rsvWeekRecur;
    EXPECT_EQ(ResPlanner_isOutdated(planner, &zero, 0), 0);
}

TEST_F(ResPlannerTest, FreePlannerTLeavesTheNameToItsOwner)
{
    ResPlanner *p = ResPlanner_new("hostB", &rsvWeekRecur);
    char *name = p->plannerName;
    freePlanner_t(p);
    // Still ours: under the sanitizers a free here after a free inside would fail.
    EXPECT_STREQ(name, "Resource Weekly Planner for host <hostB>");
    free(name);
    freePlanner_t(nullptr);
}

TEST_F(ResPlannerTest, FreePlannerDestroysTheListAndItsPlanners)
{
    List *list = listCreate("Planner list for host <hostB>");
    std::vector<char *> names;
    for (int i = 0; i < 3; ++i) {
        ResPlanner *p = ResPlanner_new("hostB", &rsvWeekRecur);
        names.push_back(p->plannerName);
        listInsertEntryAtBack(list, &p->links);
    }
    freePlanner(list);
    // The planners went, their names did not: a temporary table's planners
    // share them with the real ones.
    for (char *n : names) {
        EXPECT_STREQ(n, "Resource Weekly Planner for host <hostB>");
        free(n);
    }
    rsvtest::LogCapture log;
    qob_errno = 4242;
    freePlanner(nullptr);
    EXPECT_EQ(qob_errno, 4242);
    EXPECT_TRUE(log.lines().empty());
}

// --- recurring bookings of new dated planners ---

class AddRecursTest : public ::testing::Test {
protected:
    void SetUp() override { tbl = RsvTimeTbl_new(nullptr); }
    void TearDown() override { RsvTimeTbl_free(tbl); }
    FakeDaemon daemon;
    ScopedTz tz{"UTC"};
    RsvTimeTbl *tbl = nullptr;
};

TEST_F(AddRecursTest, BooksEveryRecurringShareOfTheHostOnly)
{
    addOnly(tbl, makeEntry("alice#1", RSV_OPT_RECURRING, "8:0-9:0", {{"hostA", 2}, {"hostB", 5}}));
    addOnly(tbl, makeEntry("alice#2", RSV_OPT_RECURRING, "3:10:0-3:11:0", {{"hostA", 3}}));
    addOnly(tbl, makeEntry("alice#3", 0, "1000-2000", {{"hostA", 7}}));
    addOnly(tbl, makeEntry("alice#4", RSV_OPT_RECURRING, "8:0-9:0", {{"HOSTA", 11}, {"hostAB", 13}}));

    RsvWeek w = march1Week();
    ResPlanner *p = ResPlanner_new("hostA", &w);
    ResPlanner_addRecurs(p, tbl, "hostA");
    EXPECT_EQ(runs(p, kSun), (Runs{{48, 53, 2}}));
    EXPECT_EQ(runs(p, kWed), (Runs{{48, 53, 2}, {60, 65, 3}}));
    EXPECT_EQ(bookedCells(p), 7 * 6 + 6);
    ResPlanner_destroy(p);
}

TEST_F(AddRecursTest, EmptyTableAddsNothing)
{
    ResPlanner *p = ResPlanner_new("hostA", &rsvWeekRecur);
    ResPlanner_addRecurs(p, tbl, "hostA");
    ResPlanner_addRecurs(p, nullptr, "hostA");
    ResPlanner_addRecurs(p, tbl, nullptr);
    EXPECT_EQ(bookedCells(p), 0);
    ResPlanner_destroy(p);
}

// --- disabled days ---

class DisabledDaysTest : public ::testing::TestWithParam<const char *> {
protected:
    void SetUp() override
    {
        if (!disabledDaysAvailable())
            GTEST_SKIP() << "disabled-day look-up not available";
    }
    FakeDaemon daemon;
    ScopedTz tz{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(Zones, DisabledDaysTest, ::testing::Values("UTC", "America/New_York"),
                         [](const auto &info) { return std::string(std::strcmp(info.param, "UTC") ? "NewYork" : "UTC"); });

TEST_P(DisabledDaysTest, WrappingDailyWindowSkipsTheDisabledOccurrenceOnly)
{
    RsvEnt *ent = makeEntry("alice#1", RSV_OPT_RECURRING, "22:0-2:0", {});
    disable(ent, dayOf(2026, 3, 3), dayOf(2026, 3, 3)); // Tuesday
    RsvWeek w = march1Week();
    ResPlanner *p = ResPlanner_new("hostA", &w);
    ResPlanner_map(p, "22:0-2:0", ResPlannerEnt_incr, 1, ent);
    const Runs both{{0, 11, 1}, {132, 143, 1}};
    EXPECT_EQ(runs(p, kMon), both);
    EXPECT_EQ(runs(p, kTue), (Runs{{0, 11, 1}})); // Monday's occurrence
    EXPECT_EQ(runs(p, kWed), (Runs{{132, 143, 1}}));
    EXPECT_EQ(runs(p, kThu), both);
    ResPlanner_destroy(p);
    freeEntry(ent);
}

TEST_P(DisabledDaysTest, NonWrappingDailyWindowSkipsDisabledDays)
{
    RsvEnt *ent = makeEntry("alice#1", RSV_OPT_RECURRING, "8:0-17:0", {});
    disable(ent, dayOf(2026, 3, 6), dayOf(2026, 3, 9)); // Friday to the next Monday
    RsvWeek w = march1Week();
    ResPlanner *p = ResPlanner_new("hostA", &w);
    ResPlanner_map(p, "8:0-17:0", ResPlannerEnt_incr, 1, ent);
    for (int d = kSun; d <= kThu; ++d)
        EXPECT_EQ(runs(p, d), (Runs{{48, 101, 1}})) << "day " << d;
    EXPECT_EQ(runs(p, kFri), kNone);
    EXPECT_EQ(runs(p, kSat), kNone);
    ResPlanner_destroy(p);
    freeEntry(ent);
}

TEST_P(DisabledDaysTest, SundayMorningBelongsToThePreviousSaturdaysOccurrence)
{
    RsvEnt *ent = makeEntry("alice#1", RSV_OPT_RECURRING, "22:0-2:0", {});
    disable(ent, dayOf(2026, 2, 28), dayOf(2026, 2, 28)); // the Saturday before
    RsvWeek w = march1Week();
    ResPlanner *p = ResPlanner_new("hostA", &w);
    ResPlanner_map(p, "22:0-2:0", ResPlannerEnt_incr, 1, ent);
    EXPECT_EQ(runs(p, kSun), (Runs{{132, 143, 1}}));
    EXPECT_EQ(runs(p, kMon), (Runs{{0, 11, 1}, {132, 143, 1}}));
    ResPlanner_destroy(p);
    freeEntry(ent);
}

TEST_P(DisabledDaysTest, WeeklyWindowPastSaturdaySkipsThePreviousWeeksOccurrence)
{
    RsvEnt *ent = makeEntry("alice#1", RSV_OPT_RECURRING, "5:18:0-2:8:0", {});
    disable(ent, dayOf(2026, 2, 27), dayOf(2026, 2, 27)); // the Friday before
    RsvWeek w = march1Week();
    ResPlanner *p = ResPlanner_new("hostA", &w);
    ResPlanner_map(p, "5:18:0-2:8:0", ResPlannerEnt_incr, 1, ent);
    EXPECT_EQ(runs(p, kSun), kNone);
    EXPECT_EQ(runs(p, kMon), kNone);
    EXPECT_EQ(runs(p, kTue), kNone);
    EXPECT_EQ(runs(p, kFri), (Runs{{108, 143, 1}}));
    EXPECT_EQ(runs(p, kSat), kWholeDay);
    ResPlanner_destroy(p);
    freeEntry(ent);
}

TEST_P(DisabledDaysTest, WeeklyWindowPastSaturdayWithThisWeeksStartDisabledKeepsTheEarlierOccurrence)
{
    RsvEnt *ent = makeEntry("alice#1", RSV_OPT_RECURRING, "5:18:0-2:8:0", {});
    disable(ent, dayOf(2026, 3, 6), dayOf(2026, 3, 6)); // this Friday
    RsvWeek w = march1Week();
    ResPlanner *p = ResPlanner_new("hostA", &w);
    ResPlanner_map(p, "5:18:0-2:8:0", ResPlannerEnt_incr, 1, ent);
    EXPECT_EQ(runs(p, kSun), kWholeDay);
    EXPECT_EQ(runs(p, kMon), kWholeDay);
    EXPECT_EQ(runs(p, kTue), (Runs{{0, 47, 1}}));
    EXPECT_EQ(runs(p, kFri), kNone);
    EXPECT_EQ(runs(p, kSat), kNone);
    ResPlanner_destroy(p);
    freeEntry(ent);
}

TEST_P(DisabledDaysTest, WeeklyWindowWithinTheWeekIsSkippedWholeWhenItsStartDayIsDisabled)
{
    RsvEnt *ent = makeEntry("alice#1", RSV_OPT_RECURRING, "1:9:0-3:17:0", {});
    disable(ent, dayOf(2026, 3, 2), dayOf(2026, 3, 2)); // Monday
    RsvWeek w = march1Week();
    ResPlanner *p = ResPlanner_new("hostA", &w);
    ResPlanner_map(p, "1:9:0-3:17:0", ResPlannerEnt_incr, 1, ent);
    EXPECT_EQ(bookedCells(p), 0);
    ResPlanner_destroy(p);
    freeEntry(ent);
}

TEST_P(DisabledDaysTest, DisabledDaysAreNeverConsultedOnTheZeroWeekPlanner)
{
    RsvEnt *ent = makeEntry("alice#1", RSV_OPT_RECURRING, "22:0-2:0", {});
    disable(ent, dayOf(2026, 3, 1), dayOf(2026, 3, 31));
    ResPlanner *p = ResPlanner_new("hostA", &rsvWeekRecur);
    ResPlanner_map(p, "22:0-2:0", ResPlannerEnt_incr, 1, ent);
    EXPECT_EQ(bookedCells(p), 7 * 24);
    ResPlanner_destroy(p);
    freeEntry(ent);
}

TEST_P(DisabledDaysTest, DisabledDaysAreNeverConsultedForAOneOffReservation)
{
    RsvEnt *ent = makeEntry("alice#1", 0, "8:0-9:0", {});
    disable(ent, dayOf(2026, 3, 1), dayOf(2026, 3, 31));
    RsvWeek w = march1Week();
    ResPlanner *p = ResPlanner_new("hostA", &w);
    ResPlanner_map(p, "8:0-9:0", ResPlannerEnt_incr, 1, ent);
    EXPECT_EQ(bookedCells(p), 7 * 6);
    ResPlanner_destroy(p);
    freeEntry(ent);
}

TEST_P(DisabledDaysTest, AnEmptyDisabledListDisablesNothing)
{
    RsvEnt *ent = makeEntry("alice#1", RSV_OPT_RECURRING, "8:0-9:0", {});
    ent->disabledDurations = listCreate("disabled durations");
    RsvWeek w = march1Week();
    ResPlanner *p = ResPlanner_new("hostA", &w);
    ResPlanner_map(p, "8:0-9:0", ResPlannerEnt_incr, 1, ent);
    EXPECT_EQ(bookedCells(p), 7 * 6);
    ResPlanner_destroy(p);
    freeEntry(ent);
}
