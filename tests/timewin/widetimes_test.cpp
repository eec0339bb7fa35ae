// Windows past 2038: refused as long past by default, checked, booked, kept
// and reported whole with wide times on.
#include <string>

#include "rsv_test_support.h"

using namespace rsvtest;

namespace {

// Turns wide times on for one test and restores the previous setting.
class WideTimes {
public:
    WideTimes() : previous_(RsvMod_setWideTimes(1)) {}
    ~WideTimes() { RsvMod_setWideTimes(previous_); }

private:
    int previous_;
};

class WideTimesTest : public ::testing::Test {
protected:
    WideTimesTest() : tz_("UTC"), clock_(localTime(2026, 11, 24, 9, 0))
    {
        daemon.addHost("hostA", 8);
        tbl.reset(RsvTimeTbl_new(dir.file("rsv.state").c_str()));
    }

    // Wed 2040-07-04 10:00 to 12:00 UTC: both points beyond 32 bits.
    const time_t start = localTime(2040, 7, 4, 10, 0);
    const time_t end = localTime(2040, 7, 4, 12, 0);
    const std::string window = oneOff(start, end);

    ScopedTz tz_;
    PinnedClock clock_;
    FakeDaemon daemon;
    TempDir dir;
    rsv::Table tbl;
};

} // namespace

TEST_F(WideTimesTest, OffByDefault)
{
    EXPECT_EQ(RsvMod_wideTimes(), 0);
    WideTimes wide;
    EXPECT_EQ(RsvMod_wideTimes(), 1);
    EXPECT_EQ(RsvMod_setWideTimes(1), 1);
}

TEST_F(WideTimesTest, ByDefaultAPointPast2038ReadsAsLongPast)
{
    ASSERT_GT(start, static_cast<time_t>(2147483647));
    EXPECT_EQ(isNonRecValidTimeWindow(window.c_str()), RSV_ERR_START_IN_PAST);
    EXPECT_EQ(isValidTimeWindow(window.c_str(), 0), RSV_ERR_START_IN_PAST);
}

TEST_F(WideTimesTest, WideTimesCheckThePointsWhole)
{
    WideTimes wide;
    EXPECT_EQ(isNonRecValidTimeWindow(window.c_str()), RSV_OK);
    EXPECT_EQ(Rsv_time2occur(std::to_string(end).c_str(), RSV_OCCUR_ASIS), end);
    // A window wholly in the past stays refused.
    const std::string past = oneOff(localTime(2026, 11, 1, 0, 0), localTime(2026, 11, 2, 0, 0));
    EXPECT_EQ(isNonRecValidTimeWindow(past.c_str()), RSV_ERR_START_IN_PAST);
}

TEST_F(WideTimesTest, AReservationPast2038IsBookedKeptAndReported)
{
    WideTimes wide;
    const std::string id = addReservation(tbl.get(), 0, "alice", 3, {"hostA"}, window);
    ASSERT_EQ(id, "alice#0");

    RsvWeek week{};
    RsvTime_toWeek(start, &week);
    ResPlanner *planner = findPlanner(tbl.get(), "hostA", week);
    ASSERT_NE(planner, nullptr);
    // Wednesday, 10:00 is cell 60; 12:00 is the first cell after.
    EXPECT_EQ(cell(planner, 3, 60), 3);
    EXPECT_EQ(cell(planner, 3, 71), 3);
    EXPECT_EQ(cell(planner, 3, 72), 0);
    EXPECT_EQ(cell(planner, 3, 59), 0);

    time_t s = 0, e = 0;
    RsvEnt_getCurrentInstance(RsvTimeTbl_getEntry(tbl.get(), id.c_str()), 0, &s, &e);
    EXPECT_EQ(s, start);
    EXPECT_EQ(e, end);
    EXPECT_TRUE(tableVerifies(tbl.get()));

    // The same window again would go beyond the host's 8 slots.
    OwnedReq req(0, "bob", 6, 6, {"hostA"}, window);
    char *refused = RsvTimeTbl_addEntry(tbl.get(), &req.req);
    EXPECT_EQ(refused, nullptr);
    free(refused);
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_ENOUGH_SLOTS);
}
