#include "rsv_test_support.h"

TEST(Clock, PinnedClockReplacesTime)
{
    rsvtest::PinnedClock clock(12345);
    EXPECT_EQ(kx_now(), 12345);
}
