// Trimming the planners of weeks that are over: the past weeks go, the
// any-week planner and every later week stay cell for cell, later answers do
// not change, the table still verifies, and bookings that reach back into a
// trimmed week can still be released. Eager and lazy tables alike.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "rsv_test_support.h"

using namespace rsvtest;

namespace {

using Cells = std::vector<int>;

class TrimWeeksTest : public ::testing::Test {
protected:
    TrimWeeksTest() : tz("America/New_York"), clock(localTime(2023, 10, 2, 9, 0))
    {
        daemon.addHost("h0", 8);
        daemon.addHost("h1", 8);
        daemon.addHost("h2", 8);
        RsvId_clearTbl();
        tbl = RsvTimeTbl_new(dir.file("rsv.state").c_str());
        addReservation(tbl, 0, "ann", 2, {"h0"}, oneOff(localTime(2023, 10, 3, 8, 0), localTime(2023, 10, 3, 12, 0)));
        addReservation(tbl, 0, "ann", 3, {"h0", "h1"},
                       oneOff(localTime(2023, 10, 10, 8, 0), localTime(2023, 10, 11, 12, 0)));
        spanning = addReservation(tbl, 0, "ben", 1, {"h1"},
                                  oneOff(localTime(2023, 10, 14, 20, 0), localTime(2023, 10, 16, 6, 0)));
        addReservation(tbl, 0, "ben", 4, {"h0"}, oneOff(localTime(2023, 11, 4, 22, 0), localTime(2023, 11, 6, 2, 0)));
        addReservation(tbl, 0, "cat", 2, {"h2"}, oneOff(localTime(2023, 10, 4, 1, 0), localTime(2023, 10, 4, 2, 0)));
        daily = addReservation(tbl, RSV_OPT_RECURRING, "dan", 2, {"h0"}, "8:0-17:0");
        std::string weekly = addReservation(tbl, RSV_OPT_RECURRING, "dan", 1, {"h1"}, "5:20:0-1:6:0");
        EXPECT_EQ(RsvTimeTbl_disableDays(tbl, weekly.c_str(), "2023:10:20"), RSV_OK);
    }
    ~TrimWeeksTest() override
    {
        RsvTimeTbl_free(tbl);
        RsvId_clearTbl();
    }

    std::vector<RsvWeek> weeksOf(RsvTimeTbl *t, const char *host)
    {
        RsvWeek *weeks = nullptr;
        int n = RsvTimeTbl_plannerWeeks(t, host, &weeks);
        std::vector<RsvWeek> out(weeks, weeks + std::max(n, 0));
        std::free(weeks);
        return out;
    }

    Cells cellsOf(RsvTimeTbl *t, const char *host, const RsvWeek &week)
    {
        static int cells[RSV_PLANNER_DAYS][RSV_PLANNER_SLOTS_PER_DAY];
        EXPECT_EQ(RsvTimeTbl_hostWeekCells(t, host, &week, cells), 0);
        return Cells(&cells[0][0], &cells[0][0] + RSV_PLANNER_DAYS * RSV_PLANNER_SLOTS_PER_DAY);
    }

    // Every cell of every week from `from` on that `host` has a planner for,
    // and the free slots of some later windows.
    std::map<std::string, Cells> after(RsvTimeTbl *t, time_t from)
    {
        std::map<std::string, Cells> out;
        for (const char *host : {"h0", "h1", "h2"}) {
            for (const RsvWeek &w : weeksOf(t, host)) {
                if (w.startYear == 0)
                    out[std::string(host) + " any week"] = cellsOf(t, host, w);
                else if (mktimeOf(w) >= from)
                    out[std::string(host) + " " + std::to_string(mktimeOf(w))] = cellsOf(t, host, w);
            }
            Cells free;
            for (int day = 0; day < 30; ++day) {
                time_t s = from + day * 86400 + 7 * 3600;
                free.push_back(RsvTimeTbl_freeSlots(t, host, oneOff(s, s + 12 * 3600).c_str(), 0, nullptr));
            }
            out[std::string(host) + " free"] = free;
        }
        return out;
    }

    static time_t mktimeOf(const RsvWeek &w)
    {
        return localTime(w.startYear, w.startMonth + 1, w.startDay);
    }

    ScopedTz tz;
    PinnedClock clock;
    FakeDaemon daemon;
    TempDir dir;
    RsvTimeTbl *tbl = nullptr;
    std::string spanning;
    std::string daily;
};

TEST_F(TrimWeeksTest, DropsTheWeeksThatAreOverAndNothingElse)
{
    time_t before = localTime(2023, 10, 15); // Sunday
    auto kept = after(tbl, before);
    size_t weeksH0 = weeksOf(tbl, "h0").size();
    size_t weeksH1 = weeksOf(tbl, "h1").size();
    size_t weeksH2 = weeksOf(tbl, "h2").size();
    // h0 holds the weeks of 1 and 8 October, h1 that of 8 October, h2 that
    // of 1 October.
    EXPECT_EQ(RsvTimeTbl_trimPastWeeks(tbl, before - 1), 2);
    EXPECT_EQ(RsvTimeTbl_trimPastWeeks(tbl, before), 2);
    EXPECT_EQ(RsvTimeTbl_trimPastWeeks(tbl, before), 0);
    EXPECT_EQ(weeksOf(tbl, "h0").size(), weeksH0 - 2);
    EXPECT_EQ(weeksOf(tbl, "h1").size(), weeksH1 - 1);
    EXPECT_EQ(weeksOf(tbl, "h2").size(), weeksH2 - 1);
    for (const char *host : {"h0", "h1", "h2"}) {
        auto weeks = weeksOf(tbl, host);
        ASSERT_FALSE(weeks.empty());
        EXPECT_TRUE(RsvWeek_equal(&weeks[0], &rsvWeekRecur)) << host;
        for (size_t i = 1; i < weeks.size(); ++i)
            EXPECT_GE(mktimeOf(weeks[i]), before) << host;
    }
    EXPECT_EQ(after(tbl, before), kept);
    EXPECT_TRUE(tableVerifies(tbl));

    // A booking that reached back into a trimmed week is released whole, and
    // new weeks are booked and found through the week index as before.
    ASSERT_EQ(RsvTimeTbl_removeEntry(tbl, spanning.c_str()), RSV_OK);
    addReservation(tbl, 0, "eve", 5, {"h1"}, oneOff(localTime(2023, 12, 5, 8, 0), localTime(2023, 12, 5, 9, 0)));
    EXPECT_EQ(RsvTimeTbl_freeSlots(tbl, "h1", oneOff(localTime(2023, 12, 5, 8, 0), localTime(2023, 12, 5, 9, 0)).c_str(),
                                   0, nullptr),
              3);
    EXPECT_TRUE(tableVerifies(tbl));
}

TEST_F(TrimWeeksTest, ANullTableIsRefused)
{
    qob_errno = 0;
    EXPECT_EQ(RsvTimeTbl_trimPastWeeks(nullptr, 0), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
}

TEST_F(TrimWeeksTest, ALazyTableTrimsItsBuiltHostsAndAnswersAsAnEagerOne)
{
    ASSERT_EQ(RsvTimeTbl_save(tbl), RSV_OK);
    time_t before = localTime(2023, 10, 22);
    ASSERT_GE(RsvTimeTbl_trimPastWeeks(tbl, before), 1);
    auto eager = after(tbl, before);

    RsvId_clearTbl();
    RsvTimeTbl *lazy = RsvTimeTbl_new(dir.file("rsv.state").c_str());
    ASSERT_EQ(RsvTimeTbl_setLazyPlanners(lazy, 1), 0);
    ASSERT_GE(RsvTimeTbl_load(lazy, nullptr), 1);
    // Build h0 only; h1 and h2 stay unbuilt through the trim.
    HashTab *lists = &lazy->plannerLists;
    RsvTimeTbl_getPlannerList(lazy, "h0");
    ASSERT_EQ(h_numEnts_(lists), 1);
    EXPECT_GE(RsvTimeTbl_trimPastWeeks(lazy, before), 1);
    EXPECT_EQ(h_numEnts_(lists), 1);
    EXPECT_TRUE(tableVerifies(lazy));
    EXPECT_EQ(after(lazy, before), eager);
    RsvTimeTbl_free(lazy);
}

} // namespace
