// The module's one clock: every read of "now" goes through kx_now().
#include "kx_clock.h"

namespace {
time_t (*clockFunc)(void) = nullptr;
}

extern "C" {

time_t kx_now(void)
{
    return clockFunc ? clockFunc() : time(nullptr);
}

void RsvMod_setClock(time_t (*now)(void))
{
    clockFunc = now;
}

} // extern "C"
