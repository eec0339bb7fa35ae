// Tests of the module's one clock.
#include "rsv_test_support.h"

#include <ctime>

namespace {
time_t fixedClock()
{
    return 1000;
}
} // namespace

TEST(Clock, PinnedClockReplacesTime)
{
    rsvtest::PinnedClock clock(12345);
    EXPECT_EQ(kx_now(), 12345);
    clock.advance(5);
    EXPECT_EQ(kx_now(), 12350);
}

TEST(Clock, SetClockInstallsAndNullRestoresTime)
{
    RsvMod_setClock(fixedClock);
    EXPECT_EQ(kx_now(), 1000);
    RsvMod_setClock(nullptr);
    time_t before = time(nullptr);
    time_t now = kx_now();
    EXPECT_GE(now, before);
    EXPECT_LE(now, time(nullptr));
}
