// timewin_internal.h: what the time-window units share with the units above
// them and nothing else sees.
#ifndef RSV_TIMEWIN_INTERNAL_H
#define RSV_TIMEWIN_INTERNAL_H

#include <ctime>

#include "qob.rsvimpl.h"

namespace rsv {

// Fill `week` with the Sunday-to-Saturday week whose Sunday is `sunday` (a
// date integer).
void weekFromSunday(int sunday, RsvWeek *week);

// The date integer of the Sunday that begins t's week; false when t has no
// local time.
bool sundayOf(time_t t, int *sunday);

// Seconds of a one-off window point: atoi's value, or with wide times on
// (RsvMod_setWideTimes) the whole 64-bit number.
time_t windowPoint(const char *text) noexcept;

// How many times RsvEnt_updateWithMod has given an entry a new owner: an
// index of owners is made again when it changes.
unsigned long long ownerRenameGeneration() noexcept;

// While one lives on this thread, RsvTimeWindow_toDuration remembers the
// length of each recurring window text and gives it again for the same text
// at the same current second. The length is a function of the text, the
// current time and the zone alone, and a load changes neither the zone nor
// (within one second) the time, so a load that reads thousands of records of
// a few dozen recurring windows does each window's calendar arithmetic once.
// Scopes nest; the outermost one's memory is used and dropped at its end.
class WindowLengthMemo {
public:
    WindowLengthMemo() noexcept;
    ~WindowLengthMemo();
    WindowLengthMemo(const WindowLengthMemo &) = delete;
    WindowLengthMemo &operator=(const WindowLengthMemo &) = delete;

private:
    bool outermost_;
};

} // namespace rsv

#endif
