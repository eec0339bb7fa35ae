// Planner lists and weeks: the list of each host, calendar weeks of one-off
// windows (also across daylight-saving changes), planner windows of each week,
// the keep-new rule of ResPlannerList_map, and the steps of its walk.
#include <cstdlib>
#include <cstring>
#include <string>

#include "planner/planner_internal.h"
#include "planner_test_util.h"
#include "rsv_test_support.h"

using namespace rsvtest;
using namespace plannertest;

namespace {

constexpr int kSun = 0, kMon = 1, kTue = 2, kWed = 3, kThu = 4, kSat = 6;
const Runs kNone{};
const Runs kWholeDay{{0, 143, 1}};

// A week by its Sunday and Saturday (months 1..12 here; stored 0..11).
struct Ymd {
    int year, month, day;
};

::testing::AssertionResult weekIs(const RsvWeek &w, Ymd sunday, Ymd saturday)
{
    if (w.startDay == sunday.day && w.startWeekday == 0 && w.startMonth == sunday.month - 1 &&
        w.startYear == sunday.year && w.endDay == saturday.day && w.endWeekday == 6 &&
        w.endMonth == saturday.month - 1 && w.endYear == saturday.year)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "week " << w.startYear << "-" << w.startMonth << "-" << w.startDay << "/"
                                         << w.startWeekday << " .. " << w.endYear << "-" << w.endMonth << "-"
                                         << w.endDay << "/" << w.endWeekday;
}

std::string overlap(const RsvWeek &w, const std::string &window)
{
    char *text = RsvWeek_getOverlapTimeWindow(&w, window.c_str());
    std::string result = text ? text : "(null)";
    free(text);
    return result;
}

std::vector<RsvWeek> weeksOf(const std::string &window)
{
    int n = -1;
    RsvWeek *weeks = RsvTimeWindow_getWeeks(window.c_str(), &n);
    std::vector<RsvWeek> result;
    for (int i = 0; i < n; ++i)
        result.push_back(weeks[i]);
    free(weeks);
    return result;
}

// Zones for every calendar test: UTC, and one with daylight-saving changes.
class ZonedTest : public ::testing::TestWithParam<const char *> {
protected:
    void SetUp() override { tbl = RsvTimeTbl_new(nullptr); }
    void TearDown() override { RsvTimeTbl_free(tbl); }
    FakeDaemon daemon;
    ScopedTz tz{GetParam()};
    PinnedClock clock{localTime(2026, 2, 20, 12, 0)};
    RsvTimeTbl *tbl = nullptr;
};

std::string zoneName(const ::testing::TestParamInfo<const char *> &info)
{
    return std::strcmp(info.param, "UTC") == 0 ? "UTC" : "NewYork";
}

} // namespace

// --- the list of a host ---

class PlannerListTest : public ZonedTest {};
INSTANTIATE_TEST_SUITE_P(Zones, PlannerListTest, ::testing::Values("UTC", "America/New_York"), zoneName);

TEST_P(PlannerListTest, FirstCallCreatesAListHoldingOnlyTheZeroWeekPlanner)
{
    List *list = RsvTimeTbl_getPlannerList(tbl, "hostA");
    ASSERT_NE(list, nullptr);
    EXPECT_STREQ(list->name, "Planner list for host <hostA>");
    EXPECT_EQ(listSize(list), 1);
    EXPECT_EQ(list->numEnts, 1);
    ResPlanner *p = plannerAt(list, 0);
    EXPECT_TRUE(RsvWeek_equal(&p->week, &rsvWeekRecur));
    EXPECT_EQ(p->week.startYear, 0);
    EXPECT_EQ(p->week.endYear, 0);
    EXPECT_STREQ(p->plannerName, "Resource Weekly Planner for host <hostA>");
    EXPECT_EQ(bookedCells(p), 0);
    EXPECT_EQ(h_numEnts_(&tbl->plannerLists), 1);
}

TEST_P(PlannerListTest, LaterCallsReturnTheSameList)
{
    List *list = RsvTimeTbl_getPlannerList(tbl, "hostA");
    EXPECT_EQ(RsvTimeTbl_getPlannerList(tbl, "hostA"), list);
    EXPECT_EQ(listSize(list), 1);
}

TEST_P(PlannerListTest, TheKeyIsTheNameExactlyAsGiven)
{
    List *a = RsvTimeTbl_getPlannerList(tbl, "hostA");
    List *b = RsvTimeTbl_getPlannerList(tbl, "HOSTA");
    EXPECT_NE(a, b);
    EXPECT_EQ(h_numEnts_(&tbl->plannerLists), 2);
}

TEST_P(PlannerListTest, NullArgumentsGiveNoList)
{
    EXPECT_EQ(RsvTimeTbl_getPlannerList(nullptr, "hostA"), nullptr);
    EXPECT_EQ(RsvTimeTbl_getPlannerList(tbl, nullptr), nullptr);
    EXPECT_EQ(h_numEnts_(&tbl->plannerLists), 0);
}

TEST_P(PlannerListTest, NoMemoryGivesNoListAndLeavesTheTableUnchanged)
{
    daemon.failAfter(0);
    EXPECT_EQ(RsvTimeTbl_getPlannerList(tbl, "hostA"), nullptr);
    daemon.failAfter(-1);
    EXPECT_EQ(h_numEnts_(&tbl->plannerLists), 0);
    List *list = RsvTimeTbl_getPlannerList(tbl, "hostA");
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(listSize(list), 1);
}

TEST_P(PlannerListTest, GetWeeksCopiesEveryWeekInListOrder)
{
    List *list = RsvTimeTbl_getPlannerList(tbl, "hostA");
    const time_t w1 = localTime(2026, 3, 11, 10, 0);
    const time_t w2 = localTime(2026, 3, 4, 10, 0);
    ResPlannerList_map(list, tbl, "hostA", oneOff(w1, w1 + 3600).c_str(), 0, ResPlannerEnt_incr, 1, 1, nullptr);
    ResPlannerList_map(list, tbl, "hostA", oneOff(w2, w2 + 3600).c_str(), 0, ResPlannerEnt_incr, 1, 1, nullptr);
    int n = 0;
    RsvWeek *weeks = ResPlannerList_getWeeks(list, &n);
    ASSERT_EQ(n, 3);
    EXPECT_TRUE(RsvWeek_equal(&weeks[0], &rsvWeekRecur));
    EXPECT_TRUE(weekIs(weeks[1], {2026, 3, 8}, {2026, 3, 14}));
    EXPECT_TRUE(weekIs(weeks[2], {2026, 3, 1}, {2026, 3, 7}));
    free(weeks);
}

TEST_P(PlannerListTest, GetWeeksOfAnEmptyListIsNullWithCountZero)
{
    List *empty = listCreate("empty");
    int n = 5;
    EXPECT_EQ(ResPlannerList_getWeeks(empty, &n), nullptr);
    EXPECT_EQ(n, 0);
    n = 5;
    EXPECT_EQ(ResPlannerList_getWeeks(nullptr, &n), nullptr);
    EXPECT_EQ(n, 0);
    listDestroy(empty, nullptr);
}

TEST_P(PlannerListTest, TrimKeepsEveryPlannerEvenFromLongPastWeeks)
{
    List *list = RsvTimeTbl_getPlannerList(tbl, "hostA");
    const time_t past = localTime(2020, 1, 8, 10, 0);
    ResPlannerList_map(list, tbl, "hostA", oneOff(past, past + 600).c_str(), 0, ResPlannerEnt_incr, 1, 1, nullptr);
    clock.set(localTime(2030, 6, 1, 0, 0));
    ResPlannerList_trimOutdatedPlanners(list);
    ResPlannerList_trimOutdatedPlanners(nullptr);
    ASSERT_EQ(listSize(list), 2);
    EXPECT_EQ(bookedCells(plannerAt(list, 1)), 1);
}

// --- weeks, times and expressions ---

class WeekTest : public ZonedTest {};
INSTANTIATE_TEST_SUITE_P(Zones, WeekTest, ::testing::Values("UTC", "America/New_York"), zoneName);

TEST_P(WeekTest, TimeToWeekGivesTheSundayAndSaturdayOfItsWeek)
{
    EXPECT_TRUE(weekIs(weekOf(localTime(2026, 3, 4, 10, 0)), {2026, 3, 1}, {2026, 3, 7}));
    EXPECT_TRUE(weekIs(weekOf(localTime(2026, 3, 1, 0, 0)), {2026, 3, 1}, {2026, 3, 7}));
    EXPECT_TRUE(weekIs(weekOf(localTime(2026, 3, 7, 23, 59, 59)), {2026, 3, 1}, {2026, 3, 7}));
    EXPECT_TRUE(weekIs(weekOf(localTime(2026, 3, 8, 0, 0)), {2026, 3, 8}, {2026, 3, 14}));
}

TEST_P(WeekTest, TimeToWeekCrossesMonthAndYearEnds)
{
    EXPECT_TRUE(weekIs(weekOf(localTime(2026, 1, 1, 12, 0)), {2025, 12, 28}, {2026, 1, 3}));
    EXPECT_TRUE(weekIs(weekOf(localTime(2026, 4, 30, 12, 0)), {2026, 4, 26}, {2026, 5, 2}));
    EXPECT_TRUE(weekIs(weekOf(localTime(2028, 2, 29, 12, 0)), {2028, 2, 27}, {2028, 3, 4}));
}

TEST_P(WeekTest, TimeToWeekAcrossTheDaylightSavingChanges)
{
    EXPECT_TRUE(weekIs(weekOf(localTime(2026, 3, 8, 3, 30)), {2026, 3, 8}, {2026, 3, 14}));
    EXPECT_TRUE(weekIs(weekOf(localTime(2026, 11, 1, 1, 30)), {2026, 11, 1}, {2026, 11, 7}));
}

TEST_P(WeekTest, ThisWeekFollowsTheClockInOneSharedRecord)
{
    clock.set(localTime(2026, 3, 4, 10, 0));
    RsvWeek *first = Rsv_thisWeek();
    EXPECT_TRUE(weekIs(*first, {2026, 3, 1}, {2026, 3, 7}));
    clock.set(localTime(2026, 3, 10, 10, 0));
    RsvWeek *second = Rsv_thisWeek();
    EXPECT_EQ(first, second);
    EXPECT_TRUE(weekIs(*second, {2026, 3, 8}, {2026, 3, 14}));
}

TEST_P(WeekTest, WeeksAreEqualWhenTheirStartsAreEqual)
{
    RsvWeek a = weekOf(localTime(2026, 3, 4, 10, 0));
    RsvWeek b = a;
    b.endDay = 1;
    b.endWeekday = 3;
    b.endMonth = 9;
    b.endYear = 1970;
    EXPECT_NE(RsvWeek_equal(&a, &b), 0);
    for (int field = 0; field < 4; ++field) {
        RsvWeek c = a;
        (&c.startDay)[field] += 1;
        EXPECT_EQ(RsvWeek_equal(&a, &c), 0) << "field " << field;
    }
    EXPECT_EQ(RsvWeek_equal(&a, nullptr), 0);
}

TEST_P(WeekTest, TimeExpressionWritesSundayAsSevenAndDropsSeconds)
{
    EXPECT_STREQ(RsvTime_toVktTimexpr(localTime(2026, 3, 1, 9, 30, 45)), "7:9:30");
    EXPECT_STREQ(RsvTime_toVktTimexpr(localTime(2026, 3, 4, 0, 5)), "3:0:5");
    EXPECT_STREQ(RsvTime_toVktTimexpr(localTime(2026, 3, 7, 23, 59)), "6:23:59");
    char *a = RsvTime_toVktTimexpr(localTime(2026, 3, 2, 1, 0));
    char *b = RsvTime_toVktTimexpr(localTime(2026, 3, 3, 1, 0));
    EXPECT_EQ(a, b);
    EXPECT_STREQ(b, "2:1:0");
}

TEST(RsvTimeWindowToTimeRange, SplitsAtTheFirstDash)
{
    char start[32], end[32];
    EXPECT_EQ(RsvTimeWindow_toTimeRange("100-200", start, end), end);
    EXPECT_STREQ(start, "100");
    EXPECT_STREQ(end, "200");
    RsvTimeWindow_toTimeRange("a-b-c", start, end);
    EXPECT_STREQ(start, "a");
    EXPECT_STREQ(end, "b-c");
}

TEST(RsvTimeWindowToTimeRange, TextWithoutDashIsAllStart)
{
    char start[32], end[32];
    RsvTimeWindow_toTimeRange("12345", start, end);
    EXPECT_STREQ(start, "12345");
    EXPECT_STREQ(end, "");
    RsvTimeWindow_toTimeRange(nullptr, start, end);
    EXPECT_STREQ(start, "");
    EXPECT_STREQ(end, "");
}

TEST(RsvTimeWindowToTimeRange, BuffersOfTheWholeTextHoldEitherPart)
{
    const char *window = "1796115600-1796119200";
    char start[22], end[22];
    EXPECT_EQ(RsvTimeWindow_toTimeRange(window, start, end), end);
    EXPECT_STREQ(start, "1796115600");
    EXPECT_STREQ(end, "1796119200");
    char whole[6], none[6];
    RsvTimeWindow_toTimeRange("12:30", whole, none);
    EXPECT_STREQ(whole, "12:30");
    EXPECT_STREQ(none, "");
}

TEST(RsvTimeWindowToTimeRangeBounded, LongPartsAreCutToTheBuffer)
{
    char start[4], end[4];
    char guard[4] = {'x', 'x', 'x', '\0'};
    RsvTimeWindow_toTimeRangeBounded("123456789-987654321", start, end, sizeof start);
    EXPECT_STREQ(start, "123");
    EXPECT_STREQ(end, "987");
    EXPECT_STREQ(guard, "xxx");
}

// --- calendar weeks of one-off windows ---

TEST_P(WeekTest, WindowInsideOneWeekSpansOneWeek)
{
    auto weeks = weeksOf(oneOff(localTime(2026, 3, 4, 9, 30), localTime(2026, 3, 6, 17, 0)));
    ASSERT_EQ(weeks.size(), 1u);
    EXPECT_TRUE(weekIs(weeks[0], {2026, 3, 1}, {2026, 3, 7}));
}

TEST_P(WeekTest, WednesdayToNextTuesdaySpansTwoWeeks)
{
    auto weeks = weeksOf(oneOff(localTime(2026, 2, 25, 9, 30), localTime(2026, 3, 3, 12, 0)));
    ASSERT_EQ(weeks.size(), 2u);
    EXPECT_TRUE(weekIs(weeks[0], {2026, 2, 22}, {2026, 2, 28}));
    EXPECT_TRUE(weekIs(weeks[1], {2026, 3, 1}, {2026, 3, 7}));
}

TEST_P(WeekTest, ThreeWeeksAcrossAYearEnd)
{
    auto weeks = weeksOf(oneOff(localTime(2025, 12, 24, 8, 0), localTime(2026, 1, 5, 8, 0)));
    ASSERT_EQ(weeks.size(), 3u);
    EXPECT_TRUE(weekIs(weeks[0], {2025, 12, 21}, {2025, 12, 27}));
    EXPECT_TRUE(weekIs(weeks[1], {2025, 12, 28}, {2026, 1, 3}));
    EXPECT_TRUE(weekIs(weeks[2], {2026, 1, 4}, {2026, 1, 10}));
}

TEST_P(WeekTest, SpringForwardInsideTheWindowSkipsNoWeek)
{
    // Seven days of seconds after Saturday 23:30 is already Sunday 00:30 of the
    // week after next when an hour is lost on the way.
    auto weeks = weeksOf(oneOff(localTime(2026, 3, 7, 23, 30), localTime(2026, 3, 10, 12, 0)));
    ASSERT_EQ(weeks.size(), 2u);
    EXPECT_TRUE(weekIs(weeks[0], {2026, 3, 1}, {2026, 3, 7}));
    EXPECT_TRUE(weekIs(weeks[1], {2026, 3, 8}, {2026, 3, 14}));
}

TEST_P(WeekTest, FallBackInsideTheWindowRepeatsNoWeek)
{
    auto weeks = weeksOf(oneOff(localTime(2026, 11, 1, 0, 30), localTime(2026, 11, 8, 1, 0)));
    ASSERT_EQ(weeks.size(), 2u);
    EXPECT_TRUE(weekIs(weeks[0], {2026, 11, 1}, {2026, 11, 7}));
    EXPECT_TRUE(weekIs(weeks[1], {2026, 11, 8}, {2026, 11, 14}));
}

TEST_P(WeekTest, EndBeforeStartSpansNoWeek)
{
    int n = 7;
    const std::string window = oneOff(localTime(2026, 3, 10, 0, 0), localTime(2026, 3, 1, 0, 0));
    EXPECT_EQ(RsvTimeWindow_getWeeks(window.c_str(), &n), nullptr);
    EXPECT_EQ(n, 0);
    n = 7;
    EXPECT_EQ(RsvTimeWindow_getWeeks(nullptr, &n), nullptr);
    EXPECT_EQ(n, 0);
}

TEST_P(WeekTest, EndingAtSundayMidnightAlsoSpansTheWeekThatBegins)
{
    auto weeks = weeksOf(oneOff(localTime(2026, 3, 4, 9, 30), localTime(2026, 3, 8, 0, 0)));
    ASSERT_EQ(weeks.size(), 2u);
    EXPECT_TRUE(weekIs(weeks[1], {2026, 3, 8}, {2026, 3, 14}));
    EXPECT_EQ(overlap(weeks[1], oneOff(localTime(2026, 3, 4, 9, 30), localTime(2026, 3, 8, 0, 0))),
              "0:0:0-7:0:0");
}

// --- planner windows of each week ---

TEST_P(WeekTest, WindowInsideOneWeekKeepsBothEnds)
{
    const std::string window = oneOff(localTime(2026, 3, 4, 9, 30), localTime(2026, 3, 6, 17, 0));
    EXPECT_EQ(overlap(weekOf(localTime(2026, 3, 4, 9, 30)), window), "3:9:30-5:17:0");
}

TEST_P(WeekTest, LongerWindowGetsOpenEndsInItsFirstMiddleAndLastWeeks)
{
    const std::string window = oneOff(localTime(2026, 3, 4, 9, 30), localTime(2026, 3, 17, 12, 0));
    auto weeks = weeksOf(window);
    ASSERT_EQ(weeks.size(), 3u);
    EXPECT_EQ(overlap(weeks[0], window), "3:9:30-0:0:0");
    EXPECT_EQ(overlap(weeks[1], window), "0:0:0-0:0:0");
    EXPECT_EQ(overlap(weeks[2], window), "0:0:0-2:12:0");
}

TEST_P(WeekTest, SundayStartIsWrittenAsDaySeven)
{
    const std::string window = oneOff(localTime(2026, 3, 1, 9, 30), localTime(2026, 3, 3, 8, 0));
    EXPECT_EQ(overlap(weekOf(localTime(2026, 3, 1, 9, 30)), window), "7:9:30-2:8:0");
}

TEST_P(WeekTest, OverlapWithNullArgumentsIsNull)
{
    RsvWeek w = weekOf(localTime(2026, 3, 1, 9, 30));
    EXPECT_EQ(RsvWeek_getOverlapTimeWindow(nullptr, "1-2"), nullptr);
    EXPECT_EQ(RsvWeek_getOverlapTimeWindow(&w, nullptr), nullptr);
}

// --- mapping over the weeks of a list ---

class PlannerListMapTest : public ZonedTest {
protected:
    void book(const std::string &window, int recurring, int n, int keepNew = 1, RsvEnt *ent = nullptr)
    {
        ResPlannerList_map(list(), tbl, "hostA", window.c_str(), recurring, ResPlannerEnt_incr, n, keepNew, ent);
    }
    int query(const std::string &window, int recurring)
    {
        int acc = 0;
        ResPlannerList_map(list(), tbl, "hostA", window.c_str(), recurring, ResPlannerEnt_getMaxRsv,
                           static_cast<int64_t>(reinterpret_cast<intptr_t>(&acc)), 0, nullptr);
        return acc;
    }
    List *list() { return RsvTimeTbl_getPlannerList(tbl, "hostA"); }
    ResPlanner *planner(time_t t) { return findPlanner(tbl, "hostA", weekOf(t)); }
    ResPlanner *zero() { return findPlanner(tbl, "hostA", rsvWeekRecur); }
};
INSTANTIATE_TEST_SUITE_P(Zones, PlannerListMapTest, ::testing::Values("UTC", "America/New_York"), zoneName);

TEST_P(PlannerListMapTest, OneOffWindowOverTwoWeeksBooksEachWeeksPart)
{
    book(oneOff(localTime(2026, 3, 4, 9, 30), localTime(2026, 3, 10, 12, 0)), 0, 2);
    ASSERT_EQ(listSize(list()), 3);
    EXPECT_EQ(bookedCells(zero()), 0);
    ResPlanner *first = planner(localTime(2026, 3, 4, 9, 30));
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(runs(first, kTue), kNone);
    EXPECT_EQ(runs(first, kWed), (Runs{{57, 143, 2}}));
    EXPECT_EQ(runs(first, kThu), (Runs{{0, 143, 2}}));
    EXPECT_EQ(runs(first, kSat), (Runs{{0, 143, 2}}));
    ResPlanner *second = planner(localTime(2026, 3, 10, 12, 0));
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(runs(second, kSun), (Runs{{0, 143, 2}}));
    EXPECT_EQ(runs(second, kMon), (Runs{{0, 143, 2}}));
    EXPECT_EQ(runs(second, kTue), (Runs{{0, 71, 2}}));
    EXPECT_EQ(runs(second, kWed), kNone);
}

TEST_P(PlannerListMapTest, OneOffWindowOverThreeWeeksFillsTheMiddleWeek)
{
    book(oneOff(localTime(2026, 3, 4, 9, 30), localTime(2026, 3, 17, 12, 0)), 0, 1);
    ASSERT_EQ(listSize(list()), 4);
    EXPECT_EQ(bookedCells(planner(localTime(2026, 3, 10, 0, 0))), 1008);
    EXPECT_EQ(runs(planner(localTime(2026, 3, 17, 0, 0)), kTue), (Runs{{0, 71, 1}}));
}

TEST_P(PlannerListMapTest, SundayStartBooksSunday)
{
    book(oneOff(localTime(2026, 3, 1, 9, 30), localTime(2026, 3, 1, 11, 0)), 0, 1);
    ResPlanner *p = planner(localTime(2026, 3, 1, 9, 30));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(runs(p, kSun), (Runs{{57, 65, 1}}));
    EXPECT_EQ(bookedCells(p), 9);
}

TEST_P(PlannerListMapTest, WindowOverTheSpringForwardBooksBothWeeks)
{
    // Saturday 23:30 before the change to Tuesday noon after it.
    book(oneOff(localTime(2026, 3, 7, 23, 30), localTime(2026, 3, 10, 12, 0)), 0, 1);
    ASSERT_EQ(listSize(list()), 3);
    ResPlanner *before = planner(localTime(2026, 3, 7, 0, 0));
    ResPlanner *after = planner(localTime(2026, 3, 9, 0, 0));
    ASSERT_NE(before, nullptr);
    ASSERT_NE(after, nullptr);
    EXPECT_EQ(runs(before, kSat), (Runs{{141, 143, 1}}));
    EXPECT_EQ(bookedCells(before), 3);
    EXPECT_EQ(runs(after, kSun), kWholeDay);
    EXPECT_EQ(runs(after, kMon), kWholeDay);
    EXPECT_EQ(runs(after, kTue), (Runs{{0, 71, 1}}));
    EXPECT_EQ(bookedCells(after), 144 * 2 + 72);
}

TEST_P(PlannerListMapTest, WindowOverTheLostHourBooksTheLocalClockSlots)
{
    // Sunday 01:00 to 03:30 local: in New York 02:00-03:00 never happens, but
    // the planner counts local clock slots.
    book(oneOff(localTime(2026, 3, 8, 1, 0), localTime(2026, 3, 8, 3, 30)), 0, 1);
    ResPlanner *p = planner(localTime(2026, 3, 8, 1, 0));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(runs(p, kSun), (Runs{{6, 20, 1}}));
    EXPECT_EQ(bookedCells(p), 15);
}

TEST_P(PlannerListMapTest, RecurringBookingOnAListOfOnlyTheZeroWeekTouchesOnlyThatPlanner)
{
    book("8:0-9:0", 1, 2);
    ASSERT_EQ(listSize(list()), 1);
    EXPECT_EQ(runs(zero(), kMon), (Runs{{48, 53, 2}}));
    EXPECT_EQ(bookedCells(zero()), 42);
}

TEST_P(PlannerListMapTest, RecurringBookingReachesEveryDatedPlannerAlreadyInTheList)
{
    const time_t t = localTime(2026, 3, 4, 12, 0);
    book(oneOff(t, t + 600), 0, 1);
    book("8:0-9:0", 1, 2);
    ASSERT_EQ(listSize(list()), 2);
    EXPECT_EQ(bookedCells(zero()), 42);
    ResPlanner *dated = planner(t);
    EXPECT_EQ(runs(dated, kWed), (Runs{{48, 53, 2}, {72, 72, 1}}));
    EXPECT_EQ(bookedCells(dated), 43);
}

TEST_P(PlannerListMapTest, DatedPlannerMadeLaterStartsWithTheTablesRecurringBookings)
{
    RsvEnt *rec = makeEntry("alice#1", RSV_OPT_RECURRING, "2:10:0-2:11:0", {{"hostA", 4}});
    addAndBook(tbl, rec);
    ASSERT_EQ(listSize(list()), 1);
    const time_t t = localTime(2026, 3, 11, 8, 0);
    RsvEnt *once = makeEntry("alice#2", 0, oneOff(t, t + 3600), {{"hostA", 1}});
    addAndBook(tbl, once);
    ASSERT_EQ(listSize(list()), 2);
    ResPlanner *dated = planner(t);
    EXPECT_EQ(runs(dated, kTue), (Runs{{60, 65, 4}}));
    EXPECT_EQ(runs(dated, kWed), (Runs{{48, 53, 1}}));
    EXPECT_TRUE(plannersMatchRebooking(tbl));
}

TEST_P(PlannerListMapTest, QueryOnAWeekWithoutAPlannerSeesRecurringBookingsAndLeavesNoPlanner)
{
    RsvEnt *rec = makeEntry("alice#1", RSV_OPT_RECURRING, "8:0-9:0", {{"hostA", 3}});
    addAndBook(tbl, rec);
    const int before = listSize(list());
    const time_t t = localTime(2026, 4, 15, 8, 30);
    EXPECT_EQ(query(oneOff(t, t + 600), 0), 3);
    EXPECT_EQ(query(oneOff(t + 3600, t + 7200), 0), 0);
    EXPECT_EQ(listSize(list()), before);
    EXPECT_EQ(planner(t), nullptr);
}

TEST_P(PlannerListMapTest, ReleaseOnAWeekWithoutAPlannerLeavesNoPlanner)
{
    const time_t t = localTime(2026, 4, 15, 8, 30);
    ResPlannerList_map(list(), tbl, "hostA", oneOff(t, t + 600).c_str(), 0, ResPlannerEnt_decr, 1, 0, nullptr);
    EXPECT_EQ(listSize(list()), 1);
}

TEST_P(PlannerListMapTest, RecurringQuerySeesEveryWeekOfTheList)
{
    const time_t t = localTime(2026, 3, 4, 8, 0);
    book(oneOff(t, t + 1800), 0, 6);
    book("8:0-9:0", 1, 1);
    EXPECT_EQ(query("8:0-9:0", 1), 7);
    EXPECT_EQ(query("3:8:30-3:9:0", 1), 1);
    EXPECT_EQ(listSize(list()), 2);
}

TEST_P(PlannerListMapTest, NullListOrWindowChangesNothing)
{
    ResPlannerList_map(nullptr, tbl, "hostA", "8:0-9:0", 1, ResPlannerEnt_incr, 1, 1, nullptr);
    ResPlannerList_map(list(), tbl, "hostA", nullptr, 1, ResPlannerEnt_incr, 1, 1, nullptr);
    ResPlannerList_map(list(), tbl, "hostA", "8:0-9:0", 1, nullptr, 1, 1, nullptr);
    EXPECT_EQ(listSize(list()), 1);
    EXPECT_EQ(bookedCells(zero()), 0);
}

// --- the walk's steps, shared with the table's read-only queries ---

TEST_P(PlannerListMapTest, AStandInListIsTheOneTheTableWouldMakeAndStaysOutOfIt)
{
    List *standIn = rsv::newPlannerList("hostB");
    ASSERT_NE(standIn, nullptr);
    EXPECT_STREQ(standIn->name, "Planner list for host <hostB>");
    ASSERT_EQ(listSize(standIn), 1);
    EXPECT_TRUE(RsvWeek_equal(&plannerAt(standIn, 0)->week, &rsvWeekRecur));
    EXPECT_STREQ(plannerAt(standIn, 0)->plannerName, "Resource Weekly Planner for host <hostB>");
    EXPECT_EQ(h_getEnt_(&tbl->plannerLists, "hostB"), nullptr);
    rsv::destroyPlannerList(standIn);
    rsv::destroyPlannerList(nullptr);
}

TEST_P(PlannerListMapTest, TheWalkVisitsTheListsWeeksOrTheWindowsCalendarWeeks)
{
    const time_t t = localTime(2026, 3, 4, 8, 0);
    book(oneOff(t, t + 1800), 0, 1);
    int n = -1;
    RsvWeek *weeks = rsv::mapWeeks(list(), "8:0-9:0", 1, &n);
    ASSERT_EQ(n, 2);
    EXPECT_TRUE(RsvWeek_equal(&weeks[0], &rsvWeekRecur));
    EXPECT_TRUE(RsvWeek_equal(&weeks[1], &plannerAt(list(), 1)->week));
    free(weeks);
    const std::string window = oneOff(localTime(2026, 3, 20, 9, 0), localTime(2026, 3, 24, 9, 0));
    weeks = rsv::mapWeeks(list(), window.c_str(), 0, &n);
    const std::vector<RsvWeek> expected = weeksOf(window);
    ASSERT_EQ(n, static_cast<int>(expected.size()));
    for (int i = 0; i < n; ++i)
        EXPECT_TRUE(RsvWeek_equal(&weeks[i], &expected[i])) << i;
    free(weeks);
}

TEST_P(PlannerListMapTest, EachWeekMapsTheRecurringWindowOrItsPartOfTheOneOff)
{
    const RsvWeek week = weekOf(localTime(2026, 3, 20, 9, 0));
    const std::string window = oneOff(localTime(2026, 3, 20, 9, 0), localTime(2026, 3, 24, 9, 0));
    char *text = rsv::weekWindow(&week, window.c_str(), 0);
    EXPECT_EQ(std::string(text), overlap(week, window));
    free(text);
    text = rsv::weekWindow(&week, "22:0-2:0", 1);
    EXPECT_STREQ(text, "22:0-2:0");
    free(text);
}

TEST_P(PlannerListMapTest, AWeeksPlannerIsTheListsOrANewOneWithTheRecurringBookings)
{
    RsvEnt *rec = makeEntry("alice#1", RSV_OPT_RECURRING, "8:0-9:0", {{"hostA", 3}});
    addAndBook(tbl, rec);
    const RsvWeek week = weekOf(localTime(2026, 4, 15, 8, 30));
    EXPECT_EQ(rsv::plannerOfWeek(list(), &week), nullptr);
    EXPECT_EQ(rsv::plannerOfWeek(list(), &rsvWeekRecur), zero());
    ResPlanner *fresh = rsv::newWeekPlanner(tbl, "hostA", &week);
    ASSERT_NE(fresh, nullptr);
    EXPECT_TRUE(RsvWeek_equal(&fresh->week, &week));
    EXPECT_EQ(runs(fresh, kWed), (Runs{{48, 53, 3}}));
    EXPECT_EQ(listSize(list()), 1);
    ResPlanner_destroy(fresh);
}
