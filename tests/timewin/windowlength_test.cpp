// Remembered window lengths: within a rsv::WindowLengthMemo every recurring
// window's length is the one worked out afresh, at every current time, in
// zones with daylight-saving changes, on the days of the changes and between.
#include "rsv_test_support.h"

#include <cstdint>
#include <string>
#include <vector>

#include "timewin/timewin_internal.h"

using rsvtest::FakeDaemon;
using rsvtest::localTime;
using rsvtest::PinnedClock;
using rsvtest::ScopedTz;

namespace {

// Daily and weekly windows, crossing midnight, the week's end, and the hours
// a change skips or repeats; one-off and malformed texts ride along.
const std::vector<std::string> kWindows = {
    "8:0-17:0",     "22:0-6:0",      "1:30-3:30",     "2:0-3:0",       "2:30-2:45",    "0:0-0:0",
    "23:59-0:1",    "12:0-11:59",    "1:8:0-5:18:0",  "5:18:0-1:8:0",  "7:1:0-7:3:0",  "0:2:30-0:3:30",
    "6:22:0-0:2:0", "3:2:0-3:2:0",   "1:0:0-7:23:59", "7:23:30-1:0:30", "1136102400-1136188800",
    "8:0",          "9:0-",          "-9:0",          "25:0-26:0",     "1:2:3:4-5:6",
};

// The recurring windows at the front of kWindows.
constexpr size_t kWellFormedRecurring = 16;

// Every 97 minutes over two weeks on each side of each change of 2026, and
// every 7 hours over the whole year: current times on every weekday, at
// every hour, before, on and after the days of the changes.
std::vector<time_t> nows(const std::vector<time_t> &changes)
{
    std::vector<time_t> out;
    for (time_t change : changes)
        for (time_t t = change - 14 * 86400; t < change + 14 * 86400; t += 97 * 60)
            out.push_back(t);
    for (time_t t = localTime(2026, 1, 1); t < localTime(2027, 1, 1); t += 7 * 3600 + 13)
        out.push_back(t);
    return out;
}

const char *const kZones[] = {"UTC", "America/New_York", "Europe/Berlin", "Australia/Lord_Howe", "Pacific/Chatham"};

// Every remembered length in `zone` against the fresh one.
void expectRememberedIsFresh(const std::string &zone)
{
    const ScopedTz tz(zone.c_str());
    // The changes of 2026 in the zones above (and harmless extra days in UTC).
    const std::vector<time_t> changes = {localTime(2026, 3, 8, 12),  localTime(2026, 11, 1, 12),
                                         localTime(2026, 3, 29, 12), localTime(2026, 10, 25, 12),
                                         localTime(2026, 4, 5, 12),  localTime(2026, 10, 4, 12),
                                         localTime(2026, 9, 27, 12)};
    PinnedClock clock(0);
    std::vector<int64_t> fresh;
    const std::vector<time_t> times = nows(changes);
    for (time_t t : times) {
        clock.set(t);
        for (const std::string &w : kWindows)
            fresh.push_back(RsvTimeWindow_toDuration(w.c_str()));
    }

    // Across a change the same window's length moves by the hour (the
    // reference's daylight flag is carried over), so remembering a length
    // past its second would show below; in UTC no well-formed recurring
    // window's length moves.
    int varying = 0;
    for (size_t k = 0; k < kWellFormedRecurring; ++k)
        for (size_t j = k; j < fresh.size(); j += kWindows.size())
            if (fresh[j] != fresh[k]) {
                ++varying;
                break;
            }
    EXPECT_EQ(varying > 0, zone != "UTC") << zone;

    // One scope over all of it: each second forgets what the last remembered.
    const rsv::WindowLengthMemo memo;
    size_t i = 0;
    int differing = 0;
    for (time_t t : times) {
        clock.set(t);
        for (int pass = 0; pass < 2; ++pass)
            for (size_t k = 0; k < kWindows.size(); ++k) {
                const int64_t remembered = RsvTimeWindow_toDuration(kWindows[k].c_str());
                EXPECT_EQ(remembered, fresh[i + k]) << zone << ": " << kWindows[k] << " at " << t << " pass " << pass;
                differing += remembered != fresh[i + k];
            }
        i += kWindows.size();
    }
    EXPECT_EQ(differing, 0) << zone;
}

TEST(WindowLengthTest, RememberedLengthIsTheFreshOneAtEveryCurrentTime)
{
    const FakeDaemon daemon;
    for (const char *zone : kZones)
        expectRememberedIsFresh(zone);
}

TEST(WindowLengthTest, NestedScopesKeepRememberingUntilTheOutermostEnds)
{
    const ScopedTz tz("Europe/Berlin");
    const FakeDaemon daemon;
    PinnedClock clock(localTime(2026, 6, 10, 9));
    const int64_t fresh = RsvTimeWindow_toDuration("22:0-6:0");
    {
        const rsv::WindowLengthMemo outer;
        {
            const rsv::WindowLengthMemo inner;
            EXPECT_EQ(RsvTimeWindow_toDuration("22:0-6:0"), fresh);
        }
        EXPECT_EQ(RsvTimeWindow_toDuration("22:0-6:0"), fresh);
    }
    EXPECT_EQ(RsvTimeWindow_toDuration("22:0-6:0"), 8 * 3600);
    EXPECT_EQ(RsvTimeWindow_toDuration(nullptr), 0);
}

} // namespace
