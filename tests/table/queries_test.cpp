// The queries for front ends, against the planners' own contents and against
// what the add path accepts, on a table with a one-off reservation, one over
// a week end, a daily one across midnight with a disabled day, a weekly one
// across the week end, and a system reservation.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "rsv_test_support.h"

using namespace rsvtest;

namespace {

struct TblDeleter {
    void operator()(RsvTimeTbl *t) const { RsvTimeTbl_free(t); }
};
using TblPtr = std::unique_ptr<RsvTimeTbl, TblDeleter>;

struct PlannerDeleter {
    void operator()(ResPlanner *p) const { ResPlanner_destroy(p); }
};
using PlannerPtr = std::unique_ptr<ResPlanner, PlannerDeleter>;

using Cells = std::vector<int>;

constexpr int kCapacity = 8;
const char *const kHosts[] = {"hostA", "hostB", "hostC", "hostD", "hostE"};

Cells cellsOf(const ResPlanner *p)
{
    Cells out;
    for (int d = 0; d < RSV_PLANNER_DAYS; ++d)
        for (int s = 0; s < RSV_PLANNER_SLOTS_PER_DAY; ++s)
            out.push_back(p->slots[d][s].reserved);
    return out;
}

struct Window {
    std::string text;
    int recurring;
};

class QueriesTest : public ::testing::TestWithParam<const char *> {
protected:
    QueriesTest() : tz_(GetParam()), clock_(0)
    {
        clock_.set(localTime(2026, 2, 2, 9, 0));  // a Monday
        for (const char *h : kHosts)
            daemon.addHost(h, kCapacity);
        tbl.reset(RsvTimeTbl_new(dir.file("rsv.state").c_str()));
        buildTable();
    }

    std::string add(int options, const std::string &owner, int procs, const std::vector<std::string> &hosts,
                    const std::string &window)
    {
        OwnedReq req(options, owner, procs, procs, hosts, window);
        char *id = RsvTimeTbl_addEntry(tbl.get(), &req.req);
        std::string out = id ? id : "";
        std::free(id);
        return out;
    }

    // hostA: a one-off and a daily day-time booking; hostB: daily across
    // midnight with a disabled day; hostC: a one-off over a week end and a
    // weekly booking across the week end; hostD: a system reservation;
    // hostE: nothing, and no planner list.
    void buildTable()
    {
        ASSERT_EQ(add(0, "alice", 6, {"hostA"}, oneOff(localTime(2026, 2, 4, 10, 0), localTime(2026, 2, 4, 12, 0))),
                  "alice#0");
        ASSERT_EQ(add(0, "alice", 2, {"hostC"}, oneOff(localTime(2026, 2, 6, 18, 0), localTime(2026, 2, 9, 8, 0))),
                  "alice#1");
        ASSERT_EQ(add(RSV_OPT_RECURRING, "bob", 3, {"hostB"}, "22:0-2:0"), "bob#0");
        ASSERT_EQ(add(RSV_OPT_RECURRING, "carol", 3, {"hostC"}, "6:20:0-1:6:0"), "carol#0");
        ASSERT_EQ(add(RSV_OPT_RECURRING, "dave", 1, {"hostA"}, "8:0-17:0"), "dave#0");
        ASSERT_EQ(add(RSV_OPT_SYSTEM, "root", 0, {"hostD"},
                      oneOff(localTime(2026, 2, 5, 0, 0), localTime(2026, 2, 5, 6, 0))),
                  "system#0");
        ASSERT_EQ(RsvTimeTbl_disableDays(tbl.get(), "bob#0", "2:11"), 0) << qob_errno;
    }

    // Windows that the tests ask about: one-off ones inside a week, over the
    // week end, over the disabled day and two weeks ahead, and recurring
    // ones, daily across midnight and weekly across the week end.
    std::vector<Window> windows() const
    {
        return {
            {oneOff(localTime(2026, 2, 4, 9, 0), localTime(2026, 2, 4, 13, 0)), 0},
            {oneOff(localTime(2026, 2, 7, 19, 0), localTime(2026, 2, 9, 7, 0)), 0},
            {oneOff(localTime(2026, 2, 11, 21, 0), localTime(2026, 2, 12, 3, 0)), 0},
            {oneOff(localTime(2026, 2, 5, 1, 0), localTime(2026, 2, 19, 1, 0)), 0},
            {oneOff(localTime(2026, 2, 17, 12, 0), localTime(2026, 2, 17, 12, 30)), 0},
            {"23:0-1:0", RSV_OPT_RECURRING},
            {"12:0-13:0", RSV_OPT_RECURRING},
            {"5:12:0-1:12:0", RSV_OPT_RECURRING},
        };
    }

    RsvWeek weekOf(int year, int month, int day) const
    {
        RsvWeek week{};
        RsvTime_toWeek(localTime(year, month, day, 12, 0), &week);
        return week;
    }

    // What the planners hold for `host` in `week`: its planner, or a new one
    // with the recurring bookings, made by the planner calls themselves.
    Cells plannerCellsOf(const char *host, const RsvWeek &week)
    {
        if (ResPlanner *p = findPlanner(tbl.get(), host, week))
            return cellsOf(p);
        PlannerPtr fresh(ResPlanner_new(host, &week));
        if (week.startYear != 0)
            ResPlanner_addRecurs(fresh.get(), tbl.get(), host);
        return cellsOf(fresh.get());
    }

    Cells queryCells(const char *host, const RsvWeek &week)
    {
        int cells[RSV_PLANNER_DAYS][RSV_PLANNER_SLOTS_PER_DAY];
        EXPECT_EQ(RsvTimeTbl_hostWeekCells(tbl.get(), host, &week, cells), 0) << qob_errno;
        Cells out;
        for (int d = 0; d < RSV_PLANNER_DAYS; ++d)
            for (int s = 0; s < RSV_PLANNER_SLOTS_PER_DAY; ++s)
                out.push_back(cells[d][s]);
        return out;
    }

    // Whether the add path books `slots` on `host` over the window (the
    // reservation is taken away again); a refusal must be for lack of slots.
    bool addAccepts(const char *host, int slots, const Window &w, bool system = false)
    {
        // System identifiers are numbered by their owner's counter: the
        // owner of system#0 gets the next free one.
        const std::string id = add(w.recurring | (system ? RSV_OPT_SYSTEM : 0), system ? "root" : "probe",
                                   system ? 0 : slots, {host}, w.text);
        if (id.empty()) {
            EXPECT_EQ(qob_errno, RSV_ERR_NOT_ENOUGH_SLOTS) << host << " " << w.text;
            return false;
        }
        EXPECT_EQ(RsvTimeTbl_removeEntry(tbl.get(), id.c_str()), 0);
        return true;
    }

    // The local time a cell of a dated week begins.
    static time_t cellStart(const RsvCell &cell)
    {
        std::tm tm{};
        tm.tm_year = cell.week.startYear - 1900;
        tm.tm_mon = cell.week.startMonth;
        tm.tm_mday = cell.week.startDay + cell.day;
        tm.tm_hour = cell.slot / 6;
        tm.tm_min = cell.slot % 6 * 10;
        tm.tm_isdst = -1;
        return mktime(&tm);
    }

    // Everything a query must leave as it was, planner lists included.
    struct State {
        TableFingerprint print;
        int numLists;
        bool operator==(const State &o) const
        {
            return print.records == o.print.records && print.counters == o.print.counters &&
                   print.cells == o.print.cells && numLists == o.numLists;
        }
    };
    State state() { return {fingerprint(tbl.get()), h_numEnts_(&tbl->plannerLists)}; }

    ScopedTz tz_;
    PinnedClock clock_;
    FakeDaemon daemon;
    TempDir dir;
    TblPtr tbl;
};

INSTANTIATE_TEST_SUITE_P(Zones, QueriesTest, ::testing::Values("UTC", "America/New_York"));

// ---------------------------------------------------------------- cells of a week

TEST_P(QueriesTest, WeekCellsAreThePlannersOwnWhereAWeekHasOne)
{
    const RsvWeek weeks[] = {rsvWeekRecur, weekOf(2026, 2, 4), weekOf(2026, 2, 7), weekOf(2026, 2, 9)};
    for (const char *host : {"hostA", "hostB", "hostC", "hostD"})
        for (const RsvWeek &week : weeks) {
            if (week.startYear != 0 && !findPlanner(tbl.get(), host, week))
                continue;
            EXPECT_EQ(queryCells(host, week), cellsOf(findPlanner(tbl.get(), host, week))) << host;
        }
    // The one-off on hostA shows in its week: 6 slots plus the daily one.
    int cells[RSV_PLANNER_DAYS][RSV_PLANNER_SLOTS_PER_DAY];
    const RsvWeek week = weekOf(2026, 2, 4);
    ASSERT_EQ(RsvTimeTbl_hostWeekCells(tbl.get(), "hostA", &week, cells), 0);
    EXPECT_EQ(cells[3][60], 7);  // Wed 10:00
    EXPECT_EQ(cells[3][72], 1);  // Wed 12:00: the daily one alone
    EXPECT_EQ(cells[3][102], 0); // Wed 17:00
}

TEST_P(QueriesTest, AWeekWithoutAPlannerHoldsTheRecurringBookingsAndIsNotMade)
{
    const RsvWeek later = weekOf(2026, 3, 18);
    ASSERT_EQ(findPlanner(tbl.get(), "hostB", later), nullptr);
    const State before = state();
    const Cells cells = queryCells("hostB", later);
    EXPECT_EQ(cells, plannerCellsOf("hostB", later));
    EXPECT_EQ(state(), before);
    EXPECT_EQ(findPlanner(tbl.get(), "hostB", later), nullptr);
    // Daily across midnight: the evening of each day and the morning after.
    EXPECT_EQ(cells[2 * RSV_PLANNER_SLOTS_PER_DAY + 132], 3);  // Tue 22:00
    EXPECT_EQ(cells[3 * RSV_PLANNER_SLOTS_PER_DAY + 11], 3);   // Wed 01:50
    EXPECT_EQ(cells[3 * RSV_PLANNER_SLOTS_PER_DAY + 12], 0);   // Wed 02:00
}

TEST_P(QueriesTest, TheDisabledDayIsMissingFromItsWeek)
{
    const RsvWeek week = weekOf(2026, 2, 11);
    const Cells cells = queryCells("hostB", week);
    EXPECT_EQ(cells, plannerCellsOf("hostB", week));
    EXPECT_EQ(cells[2 * RSV_PLANNER_SLOTS_PER_DAY + 132], 3);  // Tue 22:00
    EXPECT_EQ(cells[3 * RSV_PLANNER_SLOTS_PER_DAY + 6], 3);    // Wed 01:00, Tuesday's occurrence
    EXPECT_EQ(cells[3 * RSV_PLANNER_SLOTS_PER_DAY + 132], 0);  // Wed 22:00: off
    EXPECT_EQ(cells[4 * RSV_PLANNER_SLOTS_PER_DAY + 6], 0);    // Thu 01:00: the same occurrence
    EXPECT_EQ(cells[4 * RSV_PLANNER_SLOTS_PER_DAY + 132], 3);  // Thu 22:00
}

TEST_P(QueriesTest, AHostWithoutPlannersReadsEmptyAndGetsNoList)
{
    const State before = state();
    EXPECT_EQ(queryCells("hostE", rsvWeekRecur), Cells(RSV_PLANNER_DAYS * RSV_PLANNER_SLOTS_PER_DAY, 0));
    EXPECT_EQ(queryCells("hostE", weekOf(2026, 2, 4)), Cells(RSV_PLANNER_DAYS * RSV_PLANNER_SLOTS_PER_DAY, 0));
    RsvWeek *weeks = reinterpret_cast<RsvWeek *>(1);
    EXPECT_EQ(RsvTimeTbl_plannerWeeks(tbl.get(), "hostE", &weeks), 0);
    EXPECT_EQ(weeks, nullptr);
    EXPECT_EQ(state(), before);
    EXPECT_EQ(h_getEnt_(&tbl->plannerLists, "hostE"), nullptr);
}

TEST_P(QueriesTest, PlannerWeeksFollowTheHostsList)
{
    for (const char *host : {"hostA", "hostB", "hostC", "hostD"}) {
        RsvWeek *weeks = nullptr;
        const int n = RsvTimeTbl_plannerWeeks(tbl.get(), host, &weeks);
        std::unique_ptr<RsvWeek, decltype(&std::free)> owner(weeks, &std::free);
        auto *list = static_cast<List *>(h_getEnt_(&tbl->plannerLists, host)->value);
        int i = 0;
        for (ListEntry *e = list->forw; e != reinterpret_cast<ListEntry *>(list); e = e->forw, ++i) {
            ASSERT_LT(i, n) << host;
            EXPECT_TRUE(RsvWeek_equal(&weeks[i], &reinterpret_cast<ResPlanner *>(e)->week)) << host << " " << i;
        }
        EXPECT_EQ(i, n) << host;
        EXPECT_TRUE(RsvWeek_equal(&weeks[0], &rsvWeekRecur)) << host;
    }
}

// ---------------------------------------------------------------- peak

TEST_P(QueriesTest, PeakOverEveryPlannerIsWhatTheHostCheckComparesWith)
{
    for (const char *host : {"hostA", "hostB", "hostC", "hostD"}) {
        RsvCell at{};
        const int peak = RsvTimeTbl_peakBooked(tbl.get(), host, nullptr, &at);
        // The first busiest cell, planners in list order.
        int expected = 0;
        RsvCell first{rsvWeekRecur, -1, -1, 0};
        auto *list = static_cast<List *>(h_getEnt_(&tbl->plannerLists, host)->value);
        for (ListEntry *e = list->forw; e != reinterpret_cast<ListEntry *>(list); e = e->forw) {
            const auto *p = reinterpret_cast<const ResPlanner *>(e);
            for (int d = 0; d < RSV_PLANNER_DAYS; ++d)
                for (int s = 0; s < RSV_PLANNER_SLOTS_PER_DAY; ++s)
                    if (p->slots[d][s].reserved > expected) {
                        expected = p->slots[d][s].reserved;
                        first = RsvCell{p->week, d, s, expected};
                    }
        }
        EXPECT_EQ(peak, expected) << host;
        EXPECT_TRUE(RsvWeek_equal(&at.week, &first.week)) << host;
        EXPECT_EQ(at.day, first.day) << host;
        EXPECT_EQ(at.slot, first.slot) << host;
        EXPECT_EQ(at.booked, peak) << host;

        // The host check warns exactly when the limit is below the peak.
        RsvHost *rec = daemon.host(host);
        for (int limit : {peak - 1, peak}) {
            rec->maxSlots = limit;
            LogCapture log;
            RsvTimeTbl_checkHost(tbl.get(), host);
            EXPECT_EQ(log.contains("has been over-reserved"), limit < peak) << host << " limit " << limit;
        }
        rec->maxSlots = kCapacity;
    }
    EXPECT_EQ(RsvTimeTbl_peakBooked(tbl.get(), "hostA", nullptr, nullptr), 7);
    EXPECT_EQ(RsvTimeTbl_peakBooked(tbl.get(), "hostD", nullptr, nullptr), kCapacity);
}

TEST_P(QueriesTest, PeakOfAWeekIsItsBusiestCellFirstInTheWeek)
{
    struct Case {
        const char *host;
        RsvWeek week;
    };
    const Case cases[] = {
        {"hostA", weekOf(2026, 2, 4)}, {"hostA", weekOf(2026, 3, 4)}, {"hostB", weekOf(2026, 2, 11)},
        {"hostC", weekOf(2026, 2, 7)}, {"hostC", weekOf(2026, 2, 9)}, {"hostC", rsvWeekRecur},
        {"hostD", weekOf(2026, 2, 4)}, {"hostE", weekOf(2026, 2, 4)},
    };
    const State before = state();
    for (const Case &c : cases) {
        const Cells cells = plannerCellsOf(c.host, c.week);
        const auto busiest = std::max_element(cells.begin(), cells.end());
        RsvCell at{};
        const int peak = RsvTimeTbl_peakBooked(tbl.get(), c.host, &c.week, &at);
        EXPECT_EQ(peak, std::max(*busiest, 0)) << c.host;
        EXPECT_TRUE(RsvWeek_equal(&at.week, &c.week)) << c.host;
        if (peak > 0) {
            const int index = static_cast<int>(busiest - cells.begin());
            EXPECT_EQ(at.day, index / RSV_PLANNER_SLOTS_PER_DAY) << c.host;
            EXPECT_EQ(at.slot, index % RSV_PLANNER_SLOTS_PER_DAY) << c.host;
        } else {
            EXPECT_EQ(at.day, -1);
            EXPECT_EQ(at.slot, -1);
        }
        EXPECT_EQ(at.booked, peak);
    }
    EXPECT_EQ(state(), before);
    // hostC over the week end: Saturday evening holds the one-off and the
    // weekly booking.
    RsvCell at{};
    const RsvWeek week = weekOf(2026, 2, 7);
    EXPECT_EQ(RsvTimeTbl_peakBooked(tbl.get(), "hostC", &week, &at), 5);
    EXPECT_EQ(at.day, 6);
    EXPECT_EQ(at.slot, 120);  // Sat 20:00
}

// ---------------------------------------------------------------- free slots and short cells

TEST_P(QueriesTest, FreeSlotsAreWhatTheAddPathAccepts)
{
    for (const Window &w : windows())
        for (const char *host : kHosts) {
            const State before = state();
            const int free = RsvTimeTbl_freeSlots(tbl.get(), host, w.text.c_str(), w.recurring, nullptr);
            EXPECT_EQ(state(), before) << host << " " << w.text;
            ASSERT_GE(free, 0) << host << " " << w.text << ": " << qob_errno;
            EXPECT_FALSE(addAccepts(host, free + 1, w)) << host << " " << w.text;
            if (free > 0) {
                EXPECT_TRUE(addAccepts(host, free, w)) << host << " " << w.text;
            }
            // The module's own availability answer (which makes a planner
            // list where there was none, so it comes after).
            EXPECT_EQ(free, std::max(0, Rsv_getMaxAvailonHost(tbl.get(), host, w.text.c_str(), w.recurring,
                                                               nullptr)))
                << host << " " << w.text;
        }
}

TEST_P(QueriesTest, FreeSlotsOfKnownCases)
{
    auto freeOver = [&](const char *host, const std::string &window, int recurring) {
        return RsvTimeTbl_freeSlots(tbl.get(), host, window.c_str(), recurring, nullptr);
    };
    // hostA: the one-off (6) and the daily one (1) on Wednesday morning.
    EXPECT_EQ(freeOver("hostA", oneOff(localTime(2026, 2, 4, 9, 0), localTime(2026, 2, 4, 13, 0)), 0), 1);
    // hostB on the disabled day: the daily booking is off from Wednesday
    // 22:00 to Thursday 02:00, but Tuesday's occurrence runs to 02:00.
    EXPECT_EQ(freeOver("hostB", oneOff(localTime(2026, 2, 11, 21, 0), localTime(2026, 2, 12, 3, 0)), 0), 8);
    EXPECT_EQ(freeOver("hostB", oneOff(localTime(2026, 2, 11, 1, 0), localTime(2026, 2, 11, 3, 0)), 0), 5);
    // hostC over the week end: the one-off (2) and the weekly one (3).
    EXPECT_EQ(freeOver("hostC", oneOff(localTime(2026, 2, 7, 19, 0), localTime(2026, 2, 9, 7, 0)), 0), 3);
    EXPECT_EQ(freeOver("hostC", "5:12:0-1:12:0", RSV_OPT_RECURRING), 3);
    EXPECT_EQ(freeOver("hostC", "2:12:0-3:12:0", RSV_OPT_RECURRING), 8);
    // hostD: wholly taken by the system reservation.
    EXPECT_EQ(freeOver("hostD", oneOff(localTime(2026, 2, 5, 1, 0), localTime(2026, 2, 5, 2, 0)), 0), 0);
    EXPECT_EQ(freeOver("hostE", "0:0-23:59", RSV_OPT_RECURRING), kCapacity);
}

TEST_P(QueriesTest, AShortCellExistsExactlyWhenTooFewSlotsAreFree)
{
    for (const Window &w : windows())
        for (const char *host : kHosts) {
            const int free = RsvTimeTbl_freeSlots(tbl.get(), host, w.text.c_str(), w.recurring, nullptr);
            for (int needed : {1, free, free + 1, kCapacity}) {
                if (needed < 1)
                    continue;
                const State before = state();
                RsvCell at{};
                const int found =
                    RsvTimeTbl_firstShortCell(tbl.get(), host, w.text.c_str(), w.recurring, needed, nullptr, &at);
                EXPECT_EQ(state(), before);
                EXPECT_EQ(found, free < needed ? 1 : 0) << host << " " << w.text << " " << needed;
                if (found != 1)
                    continue;
                // The cell is short in the planners themselves.
                const Cells cells = plannerCellsOf(host, at.week);
                EXPECT_EQ(at.booked, cells[at.day * RSV_PLANNER_SLOTS_PER_DAY + at.slot]) << host << " " << w.text;
                EXPECT_LT(kCapacity - at.booked, needed);
                if (w.recurring)
                    continue;
                // Nothing before it is short: the add path takes `needed`
                // slots up to the cell, and refuses them with the cell.
                const time_t start = std::atoll(w.text.c_str());
                const time_t cell = cellStart(at);
                ASSERT_GE(cell + 600, start);
                if (cell > start) {
                    EXPECT_TRUE(addAccepts(host, needed, {oneOff(start, cell), 0})) << host << " " << w.text;
                }
                EXPECT_FALSE(addAccepts(host, needed, {oneOff(start, cell + 600), 0})) << host << " " << w.text;
            }
        }
}

TEST_P(QueriesTest, FirstShortCellsOfKnownCases)
{
    RsvCell at{};
    // Daily across midnight on hostB: the any-week planner comes first, and
    // in it Sunday morning (Saturday's occurrence).
    ASSERT_EQ(RsvTimeTbl_firstShortCell(tbl.get(), "hostB", "23:0-1:0", RSV_OPT_RECURRING, 6, nullptr, &at), 1);
    EXPECT_TRUE(RsvWeek_equal(&at.week, &rsvWeekRecur));
    EXPECT_EQ(at.day, 0);
    EXPECT_EQ(at.slot, 0);
    EXPECT_EQ(at.booked, 3);
    // Weekly across the week end on hostC: Sunday of the any-week planner.
    ASSERT_EQ(RsvTimeTbl_firstShortCell(tbl.get(), "hostC", "5:12:0-1:12:0", RSV_OPT_RECURRING, 6, nullptr, &at), 1);
    EXPECT_EQ(at.day, 0);
    EXPECT_EQ(at.slot, 0);
    EXPECT_EQ(at.booked, 3);
    // A one-off on hostA: Wednesday 08:00 is the first cell with the daily
    // booking; with 2 needed, 10:00, where the one-off begins.
    const std::string wed = oneOff(localTime(2026, 2, 4, 7, 0), localTime(2026, 2, 4, 13, 0));
    ASSERT_EQ(RsvTimeTbl_firstShortCell(tbl.get(), "hostA", wed.c_str(), 0, 8, nullptr, &at), 1);
    EXPECT_EQ(cellStart(at), localTime(2026, 2, 4, 8, 0));
    EXPECT_EQ(at.booked, 1);
    ASSERT_EQ(RsvTimeTbl_firstShortCell(tbl.get(), "hostA", wed.c_str(), 0, 2, nullptr, &at), 1);
    EXPECT_EQ(cellStart(at), localTime(2026, 2, 4, 10, 0));
    EXPECT_EQ(at.booked, 7);
    // The whole host: the first cell with anything booked; none on hostE.
    ASSERT_EQ(RsvTimeTbl_firstShortCell(tbl.get(), "hostA", wed.c_str(), 0, RSV_NEED_WHOLE_HOST, nullptr, &at), 1);
    EXPECT_EQ(cellStart(at), localTime(2026, 2, 4, 8, 0));
    EXPECT_EQ(RsvTimeTbl_firstShortCell(tbl.get(), "hostE", wed.c_str(), 0, RSV_NEED_WHOLE_HOST, nullptr, &at), 0);
}

TEST_P(QueriesTest, TheWholeHostIsShortExactlyWhereASystemReservationIsRefused)
{
    for (const Window &w : windows())
        for (const char *host : kHosts) {
            RsvCell at{};
            const int found = RsvTimeTbl_firstShortCell(tbl.get(), host, w.text.c_str(), w.recurring,
                                                        RSV_NEED_WHOLE_HOST, nullptr, &at);
            ASSERT_GE(found, 0);
            EXPECT_EQ(found == 0, addAccepts(host, 0, w, true)) << host << " " << w.text;
        }
}

// The changing reservation's own slots count as free: the answers are those
// of the same table without it.
TEST_P(QueriesTest, AReservationsOwnSlotsCountAsFree)
{
    for (const char *id : {"alice#0", "alice#1", "bob#0", "carol#0", "dave#0", "system#0"}) {
        // A fresh table each time, with the same identifiers.
        tbl.reset();
        RsvId_clearTbl();
        tbl.reset(RsvTimeTbl_new(dir.file("rsv.state").c_str()));
        buildTable();
        struct Answer {
            int free;
            int found;
            RsvCell at;
        };
        std::vector<Answer> with;
        for (const Window &w : windows())
            for (const char *host : kHosts) {
                Answer a{};
                a.free = RsvTimeTbl_freeSlots(tbl.get(), host, w.text.c_str(), w.recurring, id);
                a.found = RsvTimeTbl_firstShortCell(tbl.get(), host, w.text.c_str(), w.recurring, 4, id, &a.at);
                with.push_back(a);
            }
        ASSERT_EQ(RsvTimeTbl_removeEntry(tbl.get(), id), 0) << id;
        size_t i = 0;
        for (const Window &w : windows())
            for (const char *host : kHosts) {
                const Answer &a = with[i++];
                RsvCell at{};
                EXPECT_EQ(a.free, RsvTimeTbl_freeSlots(tbl.get(), host, w.text.c_str(), w.recurring, nullptr))
                    << id << " " << host << " " << w.text;
                const int found =
                    RsvTimeTbl_firstShortCell(tbl.get(), host, w.text.c_str(), w.recurring, 4, nullptr, &at);
                EXPECT_EQ(a.found, found) << id << " " << host << " " << w.text;
                if (found == 1 && a.found == 1) {
                    EXPECT_TRUE(RsvWeek_equal(&a.at.week, &at.week)) << id << " " << host << " " << w.text;
                    EXPECT_EQ(a.at.day, at.day) << id << " " << host << " " << w.text;
                    EXPECT_EQ(a.at.slot, at.slot) << id << " " << host << " " << w.text;
                    EXPECT_EQ(a.at.booked, at.booked) << id << " " << host << " " << w.text;
                }
            }
    }
}

// ---------------------------------------------------------------- errors

TEST_P(QueriesTest, ArgumentsAreChecked)
{
    const RsvWeek week = weekOf(2026, 2, 4);
    int cells[RSV_PLANNER_DAYS][RSV_PLANNER_SLOTS_PER_DAY];
    RsvWeek *weeks = nullptr;
    RsvCell at{};
    const std::string w = windows()[0].text;
    auto errorOf = [](int result) { return result == -1 ? qob_errno : 0; };
    EXPECT_EQ(errorOf(RsvTimeTbl_hostWeekCells(nullptr, "hostA", &week, cells)), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(errorOf(RsvTimeTbl_hostWeekCells(tbl.get(), nullptr, &week, cells)), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(errorOf(RsvTimeTbl_hostWeekCells(tbl.get(), "hostA", nullptr, cells)), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(errorOf(RsvTimeTbl_hostWeekCells(tbl.get(), "hostA", &week, nullptr)), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(errorOf(RsvTimeTbl_plannerWeeks(tbl.get(), "hostA", nullptr)), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(errorOf(RsvTimeTbl_plannerWeeks(nullptr, "hostA", &weeks)), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(errorOf(RsvTimeTbl_peakBooked(nullptr, "hostA", nullptr, &at)), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(errorOf(RsvTimeTbl_peakBooked(tbl.get(), nullptr, &week, &at)), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(errorOf(RsvTimeTbl_freeSlots(tbl.get(), "hostA", nullptr, 0, nullptr)), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(errorOf(RsvTimeTbl_freeSlots(tbl.get(), "nosuch", w.c_str(), 0, nullptr)), RSV_ERR_BAD_HOST);
    EXPECT_EQ(errorOf(RsvTimeTbl_freeSlots(tbl.get(), "hostA", w.c_str(), 0, "alice#9")), RSV_ERR_NO_SUCH_RSV);
    EXPECT_EQ(errorOf(RsvTimeTbl_firstShortCell(tbl.get(), "hostA", w.c_str(), 0, 1, nullptr, nullptr)),
              RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(errorOf(RsvTimeTbl_firstShortCell(nullptr, "hostA", w.c_str(), 0, 1, nullptr, &at)),
              RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(errorOf(RsvTimeTbl_firstShortCell(tbl.get(), "nosuch", w.c_str(), 0, 1, nullptr, &at)),
              RSV_ERR_BAD_HOST);
    EXPECT_EQ(errorOf(RsvTimeTbl_firstShortCell(tbl.get(), "hostA", w.c_str(), 0, 1, "alice#9", &at)),
              RSV_ERR_NO_SUCH_RSV);
}

// Every query, with each allocation in turn failing: 55 or the right
// answer, and never a change.
TEST_P(QueriesTest, RunningOutOfMemoryIs55AndChangesNothing)
{
    const RsvWeek later = weekOf(2026, 3, 18);
    const std::string w = windows()[3].text;
    struct Query {
        const char *name;
        std::function<int()> call;
    };
    int cells[RSV_PLANNER_DAYS][RSV_PLANNER_SLOTS_PER_DAY];
    RsvCell at{};
    auto weekCell = [&](const char *host) {
        return RsvTimeTbl_hostWeekCells(tbl.get(), host, &later, cells) == 0 ? cells[2][132] : -1;
    };
    const std::vector<Query> queries = {
        {"hostWeekCells", [&] { return weekCell("hostB"); }},
        {"hostWeekCells stand-in", [&] { return weekCell("hostE"); }},
        {"plannerWeeks", [&] {
             RsvWeek *weeks = nullptr;
             const int n = RsvTimeTbl_plannerWeeks(tbl.get(), "hostC", &weeks);
             std::free(weeks);
             return n;
         }},
        {"peakBooked", [&] { return RsvTimeTbl_peakBooked(tbl.get(), "hostB", &later, &at); }},
        {"freeSlots", [&] { return RsvTimeTbl_freeSlots(tbl.get(), "hostC", w.c_str(), 0, nullptr); }},
        {"freeSlots own", [&] { return RsvTimeTbl_freeSlots(tbl.get(), "hostC", w.c_str(), 0, "carol#0"); }},
        {"firstShortCell", [&] {
             const int found = RsvTimeTbl_firstShortCell(tbl.get(), "hostB", "23:0-1:0", RSV_OPT_RECURRING, 6,
                                                         "bob#0", &at);
             return found == 1 ? 1000 + at.booked : found;
         }},
    };
    for (const Query &q : queries) {
        const int expected = q.call();
        ASSERT_GE(expected, 0) << q.name;
        const State before = state();
        bool succeeded = false;
        int failed = 0;
        for (int n = 0; n < 200 && !succeeded; ++n) {
            daemon.failAfter(n);
            qob_errno = 0;
            const int got = q.call();
            daemon.failAfter(-1);
            if (got == -1) {
                ++failed;
                EXPECT_EQ(qob_errno, RSV_ERR_NO_MEMORY) << q.name << " " << n;
            } else {
                EXPECT_EQ(got, expected) << q.name << " " << n;
                succeeded = true;
            }
            EXPECT_EQ(state(), before) << q.name << " " << n;
        }
        EXPECT_TRUE(succeeded) << q.name;
        EXPECT_GT(failed, 0) << q.name;
    }
}

} // namespace
