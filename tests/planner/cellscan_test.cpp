// The availability read without heap traffic against its reference,
// ResPlannerList_map with ResPlannerEnt_getMaxRsv: random one-off windows
// (across week ends and both clock changes) and recurring ones, on weeks
// with and without planners, with and without a reservation whose disabled
// days are skipped.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "planner/planner_internal.h"
#include "planner_test_util.h"
#include "rsv_test_support.h"

using namespace rsvtest;
using namespace plannertest;

namespace {

int referenceMax(List *list, RsvTimeTbl *tbl, const char *host, const std::string &window, int recurring,
                 RsvEnt *ent)
{
    int used = 0;
    ResPlannerList_map(list, tbl, host, window.c_str(), recurring, ResPlannerEnt_getMaxRsv,
                       static_cast<int64_t>(reinterpret_cast<intptr_t>(&used)), 0, ent);
    return used;
}

TEST(CellScan, MaxOfCellsEqualsAPlainLoopForEveryLengthAndStart)
{
    std::mt19937 rng(7);
    std::vector<ResPlannerEnt> cells(200);
    for (auto &c : cells)
        c.reserved = std::uniform_int_distribution<int>(-50, 50)(rng);
    for (int from = 0; from < 20; ++from)
        for (int count = -1; from + count <= 200 && count < 60; ++count)
            for (int init : {-100, 0, 30}) {
                int expected = init;
                for (int i = 0; i < count; ++i)
                    expected = std::max(expected, cells[static_cast<size_t>(from + i)].reserved);
                ASSERT_EQ(rsv::maxBookedInCells(cells.data() + from, count, init), expected)
                    << from << " " << count << " " << init;
            }
}

TEST(CellScan, WindowsReadWhatTheMapReads)
{
    ScopedTz tz("America/New_York");
    PinnedClock clock(localTime(2026, 2, 20, 9, 0));
    FakeDaemon daemon;
    daemon.addHost("hostA", 100);
    rsv::Table tbl(RsvTimeTbl_new(nullptr));
    std::mt19937 rng(11);
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    const time_t base = localTime(2026, 3, 1, 0, 0);
    // One-off bookings in some weeks around the March clock change, and
    // recurring ones, one of them with disabled days.
    for (int i = 0; i < 12; ++i) {
        const time_t start = base + static_cast<time_t>(pick(0, 5 * 7 * 24 * 6)) * 600;
        addAndBook(tbl.get(), makeEntry("u#" + std::to_string(i), 0,
                                        oneOff(start, start + static_cast<time_t>(pick(1, 400)) * 600),
                                        {{"hostA", pick(1, 9)}}));
    }
    addAndBook(tbl.get(), makeEntry("r#1", RSV_OPT_RECURRING, "22:0-3:30", {{"hostA", 4}}));
    addAndBook(tbl.get(), makeEntry("r#2", RSV_OPT_RECURRING, "6:18:0-2:7:0", {{"hostA", 3}}));
    ASSERT_EQ(RsvTimeTbl_disableDays(tbl.get(), "r#1", "3:10"), 0) << qob_errno;
    RsvEnt *withDays = RsvTimeTbl_getEntry(tbl.get(), "r#1");
    ASSERT_NE(withDays, nullptr);
    List *list = RsvTimeTbl_getPlannerList(tbl.get(), "hostA");
    ASSERT_GT(listSize(list), 3);
    const int weeksBefore = listSize(list);

    for (int i = 0; i < 3000; ++i) {
        // Now and then a booking in a new week: the list grows under the
        // reads, which must find the new planner.
        if (i % 100 == 99) {
            const time_t start = base + static_cast<time_t>(pick(0, 20 * 7 * 24 * 6)) * 600;
            addAndBook(tbl.get(), makeEntry("n#" + std::to_string(i), 0, oneOff(start, start + 3 * 3600),
                                            {{"hostA", pick(1, 9)}}));
        }
        RsvEnt *ent = pick(0, 2) == 0 ? withDays : nullptr;
        std::string window;
        int recurring = 0;
        switch (pick(0, 5)) {
        case 0:
            recurring = 1;
            window = std::to_string(pick(0, 23)) + ":" + std::to_string(pick(0, 59)) + "-" +
                     std::to_string(pick(0, 23)) + ":" + std::to_string(pick(0, 59));
            break;
        case 1:
            recurring = 1;
            window = std::to_string(pick(0, 7)) + ":" + std::to_string(pick(0, 23)) + ":" +
                     std::to_string(pick(0, 59)) + "-" + std::to_string(pick(0, 7)) + ":" +
                     std::to_string(pick(0, 23)) + ":" + std::to_string(pick(0, 59));
            break;
        default: {
            // Any second, ends before starts included, some years on.
            const time_t start = base - 86400 * 14 + pick(0, 22 * 7 * 86400) + (pick(0, 20) == 0 ? 86400L * 800 : 0);
            window = oneOff(start, start + pick(-3600, 24 * 86400));
            break;
        }
        }
        ASSERT_EQ(rsv::maxBookedOverWindow(list, tbl.get(), "hostA", window.c_str(), recurring, ent),
                  referenceMax(list, tbl.get(), "hostA", window, recurring, ent))
            << window << (ent ? " with disabled days" : "");
    }
    EXPECT_GT(listSize(list), weeksBefore + 5);
    // Texts that are no windows read nothing, as in the map.
    for (const char *bad : {"", "-", "abc", "5", "1:0", "99:0-100:0"})
        for (int recurring : {0, 1})
            EXPECT_EQ(rsv::maxBookedOverWindow(list, tbl.get(), "hostA", bad, recurring, nullptr),
                      referenceMax(list, tbl.get(), "hostA", bad, recurring, nullptr))
                << bad;
    EXPECT_EQ(rsv::maxBookedOverWindow(nullptr, tbl.get(), "hostA", "1:0-2:0", 1, nullptr), 0);
}

} // namespace
