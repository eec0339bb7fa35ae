// signals.cpp: holding back the signals that would end a change half-way.
#include "signals.h"

#include <signal.h>

#include <cstdio>

namespace rsvctl {

namespace {

sigset_t savedMask;
bool held = false;

} // namespace

void holdChangeSignals()
{
    if (held)
        return;
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGHUP);
    if (sigprocmask(SIG_BLOCK, &set, &savedMask) == 0)
        held = true;
}

void releaseChangeSignals()
{
    if (!held)
        return;
    // Buffered output first: a pending signal ends the process as soon as
    // the mask is restored, and the result must already be out by then.
    std::fflush(stdout);
    std::fflush(stderr);
    held = false;
    sigprocmask(SIG_SETMASK, &savedMask, nullptr);
}

bool changeSignalsHeld()
{
    return held;
}

} // namespace rsvctl
