#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "rsv_test_support.h"

using namespace rsvtest;

namespace {

// Sets the log-class mask for one test and restores it afterwards.
class ScopedLogClass {
public:
    explicit ScopedLogClass(int bits) : old_(logclass) { logclass = bits; }
    ~ScopedLogClass() { logclass = old_; }

private:
    int old_;
};

rsv::Entry makeEntry(int options, const char *window, const char *id = "alice#0")
{
    rsv::Entry ent(RsvEnt_new(options, "alice", window));
    ent->rsvId = strdup(id);
    return ent;
}

// A modification request whose texts the test owns.
struct Mod {
    explicit Mod(const char *window, int options = 0, const char *name = nullptr, const char *description = nullptr)
        : owned("alice#0", options, 0, 0, {}, window ? window : "", description)
    {
        if (!window) {
            free(owned.mod.req.timeWindow);
            owned.mod.req.timeWindow = nullptr;
        }
        if (name) {
            free(owned.mod.req.name);
            owned.mod.req.name = strdup(name);
        }
    }
    RsvModReq *get() { return &owned.mod; }
    OwnedModReq owned;
};

} // namespace

// ------------------------------------------------------ isNonRecValidTimeWindow

TEST(IsNonRecValidTimeWindow, FutureStartAndEndAreAccepted)
{
    PinnedClock clock(500);
    FakeDaemon daemon;
    EXPECT_EQ(isNonRecValidTimeWindow("1000-2000"), RSV_OK);
}

TEST(IsNonRecValidTimeWindow, StartAtOrBeforeNowIs247EvenWithAFutureEnd)
{
    PinnedClock clock(1500);
    FakeDaemon daemon;
    EXPECT_EQ(isNonRecValidTimeWindow("1000-2000"), RSV_ERR_START_IN_PAST);
    clock.set(1000);
    EXPECT_EQ(isNonRecValidTimeWindow("1000-2000"), RSV_ERR_START_IN_PAST);
}

TEST(IsNonRecValidTimeWindow, EndAtOrBeforeNowIs248AndOrderIsNotChecked)
{
    PinnedClock clock(500);
    FakeDaemon daemon;
    EXPECT_EQ(isNonRecValidTimeWindow("1000-400"), RSV_ERR_END_INVALID);
    EXPECT_EQ(isNonRecValidTimeWindow("1000-500"), RSV_ERR_END_INVALID);
    // Start after end, both in the future: accepted here.
    EXPECT_EQ(isNonRecValidTimeWindow("3000-2000"), RSV_OK);
}

TEST(IsNonRecValidTimeWindow, TextWithoutDashIsAcceptedAsItStands)
{
    PinnedClock clock(2100000000);
    FakeDaemon daemon;
    EXPECT_EQ(isNonRecValidTimeWindow("2000000000"), RSV_OK);
    EXPECT_EQ(isNonRecValidTimeWindow("not a window"), RSV_OK);
}

TEST(IsNonRecValidTimeWindow, NonDigitPointsAre36)
{
    PinnedClock clock(500);
    FakeDaemon daemon;
    EXPECT_EQ(isNonRecValidTimeWindow("abc-2000"), RSV_ERR_BAD_TIME_WINDOW);
    EXPECT_EQ(isNonRecValidTimeWindow("1000-2x"), RSV_ERR_BAD_TIME_WINDOW);
    EXPECT_EQ(isNonRecValidTimeWindow("-2000"), RSV_ERR_BAD_TIME_WINDOW);
    EXPECT_EQ(isNonRecValidTimeWindow("1000-"), RSV_ERR_BAD_TIME_WINDOW);
    EXPECT_EQ(isNonRecValidTimeWindow("8:0-9:0"), RSV_ERR_BAD_TIME_WINDOW);
}

TEST(IsNonRecValidTimeWindow, NullIs36AndLoggedUnderTheTraceClass)
{
    FakeDaemon daemon;
    ScopedLogClass lc(LC_TRACE);
    LogCapture log;
    EXPECT_EQ(isNonRecValidTimeWindow(nullptr), RSV_ERR_BAD_TIME_WINDOW);
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "isNonRecValidTimeWindow: Entering..."));
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "isNonRecValidTimeWindow: function called with NULL input"));
}

TEST(IsNonRecValidTimeWindow, NothingIsLoggedWithoutTheClassBits)
{
    FakeDaemon daemon;
    ScopedLogClass lc(0);
    LogCapture log;
    EXPECT_EQ(isNonRecValidTimeWindow(nullptr), RSV_ERR_BAD_TIME_WINDOW);
    EXPECT_TRUE(log.lines().empty());
}

TEST(IsNonRecValidTimeWindow, FailedCopyIs55)
{
    PinnedClock clock(500);
    FakeDaemon daemon;
    daemon.failAfter(0);
    EXPECT_EQ(isNonRecValidTimeWindow("1000-2000"), RSV_ERR_NO_MEMORY);
}

// ------------------------------------------------------ isRecValidTimeWindow

TEST(IsRecValidTimeWindow, DailyAndWeeklyRules)
{
    FakeDaemon daemon;
    EXPECT_EQ(isRecValidTimeWindow("8:0-8:0"), RSV_ERR_END_INVALID);
    EXPECT_EQ(isRecValidTimeWindow("22:0-6:0"), RSV_OK);
    EXPECT_EQ(isRecValidTimeWindow("8:0-17:30"), RSV_OK);
    EXPECT_EQ(isRecValidTimeWindow("8:30-8:0"), RSV_OK);  // a daily window may wrap
    EXPECT_EQ(isRecValidTimeWindow("8:0-8:1"), RSV_OK);   // minutes take part
    EXPECT_EQ(isRecValidTimeWindow("1:8:0-1:8:0"), RSV_ERR_END_INVALID);
    EXPECT_EQ(isRecValidTimeWindow("1:9:0-1:8:0"), RSV_ERR_END_INVALID);
    EXPECT_EQ(isRecValidTimeWindow("1:8:0-1:8:30"), RSV_OK);
    EXPECT_EQ(isRecValidTimeWindow("1:9:0-2:8:0"), RSV_OK);
    EXPECT_EQ(isRecValidTimeWindow("5:18:0-1:8:0"), RSV_OK);  // wraps over the week
}

TEST(IsRecValidTimeWindow, OnlyOnePointWithADayIs337)
{
    FakeDaemon daemon;
    EXPECT_EQ(isRecValidTimeWindow("8:0-1:9:0"), RSV_ERR_DAY_MISMATCH);
    EXPECT_EQ(isRecValidTimeWindow("1:9:0-8:0"), RSV_ERR_DAY_MISMATCH);
}

TEST(IsRecValidTimeWindow, SundayWrittenAs0Or7IsOneDay)
{
    FakeDaemon daemon;
    EXPECT_EQ(isRecValidTimeWindow("0:9:0-7:8:0"), RSV_ERR_END_INVALID);
}

TEST(IsRecValidTimeWindow, MalformedTextsAre36)
{
    FakeDaemon daemon;
    EXPECT_EQ(isRecValidTimeWindow("8:0"), RSV_ERR_BAD_TIME_WINDOW);
    EXPECT_EQ(isRecValidTimeWindow("25:0-8:0"), RSV_ERR_BAD_TIME_WINDOW);
    EXPECT_EQ(isRecValidTimeWindow("8:0-x"), RSV_ERR_BAD_TIME_WINDOW);
    EXPECT_EQ(isRecValidTimeWindow(""), RSV_ERR_BAD_TIME_WINDOW);
}

TEST(IsRecValidTimeWindow, NullIs36AndLoggedUnderTheModuleClass)
{
    FakeDaemon daemon;
    ScopedLogClass lc(LC_RSV);
    LogCapture log;
    EXPECT_EQ(isRecValidTimeWindow(nullptr), RSV_ERR_BAD_TIME_WINDOW);
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "isRecValidTimeWindow: Entering..."));
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "isRecValidTimeWindow: function called with NULL input"));
}

TEST(IsRecValidTimeWindow, FailedCopyIs55)
{
    FakeDaemon daemon;
    daemon.failAfter(0);
    EXPECT_EQ(isRecValidTimeWindow("8:0-9:0"), RSV_ERR_NO_MEMORY);
}

TEST(IsValidTimeWindow, DispatchesOnTheRecurringFlag)
{
    PinnedClock clock(500);
    FakeDaemon daemon;
    EXPECT_EQ(isValidTimeWindow("8:0-8:0", 1), RSV_ERR_END_INVALID);
    EXPECT_EQ(isValidTimeWindow("8:0-8:0", 0), RSV_ERR_BAD_TIME_WINDOW);
    EXPECT_EQ(isValidTimeWindow("1000-2000", 0), RSV_OK);
    EXPECT_EQ(isValidTimeWindow("1000-2000", 8), RSV_ERR_BAD_TIME_WINDOW);
}

TEST(IsValidTimeWindow, LogsEnteringUnderTheTraceClass)
{
    PinnedClock clock(500);
    FakeDaemon daemon;
    ScopedLogClass lc(LC_TRACE);
    LogCapture log;
    isValidTimeWindow("1000-2000", 0);
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "isValidTimeWindow: Entering..."));
}

// ------------------------------------------------------ RsvMod_buildTimeWindow

TEST(RsvModBuildTimeWindow, NullKeepsAPointAndSignsShiftByMinutes)
{
    FakeDaemon daemon;
    rsv::Text a(RsvMod_buildTimeWindow("1000-2000", "null&+30"));
    ASSERT_NE(a, nullptr);
    EXPECT_STREQ(a.get(), "1000-3800");
    rsv::Text b(RsvMod_buildTimeWindow("1000-2000", "null&null"));
    ASSERT_NE(b, nullptr);
    EXPECT_STREQ(b.get(), "1000-2000");
    rsv::Text c(RsvMod_buildTimeWindow("1000-2000", "-10&null"));
    ASSERT_NE(c, nullptr);
    EXPECT_STREQ(c.get(), "400-2000");
}

TEST(RsvModBuildTimeWindow, OtherTextsReplaceThePointAsTheyStand)
{
    FakeDaemon daemon;
    rsv::Text a(RsvMod_buildTimeWindow("1000-2000", "5000&6000"));
    ASSERT_NE(a, nullptr);
    EXPECT_STREQ(a.get(), "5000-6000");
    rsv::Text b(RsvMod_buildTimeWindow("8:0-17:0", "9:0&null"));
    ASSERT_NE(b, nullptr);
    EXPECT_STREQ(b.get(), "9:0-17:0");
}

TEST(RsvModBuildTimeWindow, NullIsComparedOnItsFirstFourCharacters)
{
    FakeDaemon daemon;
    rsv::Text a(RsvMod_buildTimeWindow("1000-2000", "nullify&+1"));
    ASSERT_NE(a, nullptr);
    EXPECT_STREQ(a.get(), "1000-2060");
}

TEST(RsvModBuildTimeWindow, OnlyTheFirstAmpersandAndDashSplit)
{
    FakeDaemon daemon;
    rsv::Text a(RsvMod_buildTimeWindow("1000-2000", "null&+1&x"));
    ASSERT_NE(a, nullptr);
    EXPECT_STREQ(a.get(), "1000-2060");  // atol reads "+1" of "+1&x"
}

TEST(RsvModBuildTimeWindow, FailuresGiveNull)
{
    FakeDaemon daemon;
    EXPECT_EQ(RsvMod_buildTimeWindow(nullptr, "null&null"), nullptr);
    EXPECT_EQ(RsvMod_buildTimeWindow("1000-2000", nullptr), nullptr);
    EXPECT_EQ(RsvMod_buildTimeWindow("1000", "null&null"), nullptr);
    EXPECT_EQ(RsvMod_buildTimeWindow("1000-2000", "null"), nullptr);
    for (int n = 0; n < 3; ++n) {
        daemon.failAfter(n);
        EXPECT_EQ(RsvMod_buildTimeWindow("1000-2000", "null&null"), nullptr) << "failing allocation " << n;
    }
    daemon.failAfter(-1);
}

TEST(RsvModBuildTimeWindow, LongPointsAreBounded)
{
    FakeDaemon daemon;
    std::string longPoint(2000, '7');
    std::string mod = longPoint + "&null";
    rsv::Text a(RsvMod_buildTimeWindow("1000-2000", mod.c_str()));
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(std::strlen(a.get()), 511U + 1 + 4);
}

// ------------------------------------------------------ isValidModTimeWindow

TEST(IsValidModTimeWindow, InactiveOneOffRules)
{
    PinnedClock clock(500);
    FakeDaemon daemon;
    rsv::Entry ent = makeEntry(0, "1000-2000");
    EXPECT_EQ(isValidModTimeWindow("1000-3000", ent.get(), 0), RSV_OK);
    EXPECT_EQ(isValidModTimeWindow("400-2000", ent.get(), 0), RSV_ERR_START_IN_PAST);
    EXPECT_EQ(isValidModTimeWindow("1800-1700", ent.get(), 0), RSV_ERR_END_BEFORE_START);
    EXPECT_EQ(isValidModTimeWindow("1800-1800", ent.get(), 0), RSV_ERR_END_BEFORE_START);
    EXPECT_EQ(isValidModTimeWindow("600-450", ent.get(), 0), RSV_ERR_END_INVALID);
    // A start already past is fine while it does not change.
    clock.set(1500);
    EXPECT_EQ(isValidModTimeWindow("1000-3000", ent.get(), 0), RSV_OK);
    EXPECT_EQ(isValidModTimeWindow("1000-1400", ent.get(), 0), RSV_ERR_END_INVALID);
    EXPECT_EQ(isValidModTimeWindow("1100-3000", ent.get(), 0), RSV_ERR_START_IN_PAST);
}

TEST(IsValidModTimeWindow, ActiveOneOffKeepsItsStart)
{
    PinnedClock clock(1500);
    FakeDaemon daemon;
    rsv::Entry ent = makeEntry(0, "1000-2000");
    ent->state = RSV_STATE_ACTIVE;
    EXPECT_EQ(isValidModTimeWindow("1000-1400", ent.get(), 0), RSV_ERR_END_INVALID);
    EXPECT_EQ(isValidModTimeWindow("1100-3000", ent.get(), 0), RSV_ERR_START_OF_ACTIVE);
    EXPECT_EQ(isValidModTimeWindow("1000-3000", ent.get(), 0), RSV_OK);
}

TEST(IsValidModTimeWindow, RecurringOnlyGuardsTheStartOfAnActiveReservation)
{
    PinnedClock clock(1700000000);
    FakeDaemon daemon;
    rsv::Entry ent = makeEntry(RSV_OPT_RECURRING, "8:0-17:0");
    EXPECT_EQ(isValidModTimeWindow("9:0-18:0", ent.get(), 1), RSV_OK);
    ent->state = RSV_STATE_ACTIVE;
    EXPECT_EQ(isValidModTimeWindow("9:0-18:0", ent.get(), 1), RSV_ERR_START_OF_ACTIVE);
    EXPECT_EQ(isValidModTimeWindow("8:0-18:0", ent.get(), 1), RSV_OK);
}

TEST(IsValidModTimeWindow, OneOffRulesOnARecurringTextAre36)
{
    PinnedClock clock(1700000000);
    FakeDaemon daemon;
    rsv::Entry ent = makeEntry(RSV_OPT_RECURRING, "8:0-17:0");
    EXPECT_EQ(isValidModTimeWindow("9:0-18:0", ent.get(), 0), RSV_ERR_BAD_TIME_WINDOW);
    rsv::Entry oneOffEnt = makeEntry(0, "1000-2000");
    EXPECT_EQ(isValidModTimeWindow("1000-2x", oneOffEnt.get(), 0), RSV_ERR_BAD_TIME_WINDOW);
}

TEST(IsValidModTimeWindow, MissingDashesAndArguments)
{
    PinnedClock clock(500);
    FakeDaemon daemon;
    rsv::Entry ent = makeEntry(0, "1000-2000");
    EXPECT_EQ(isValidModTimeWindow("3000", ent.get(), 0), RSV_ERR_BAD_TIME_WINDOW);
    EXPECT_EQ(isValidModTimeWindow(nullptr, ent.get(), 0), RSV_ERR_BAD_TIME_WINDOW);
    EXPECT_EQ(isValidModTimeWindow("1000-3000", nullptr, 0), RSV_ERR_BAD_ARGUMENT);
    // The current window without a dash: nothing to compare against.
    rsv::Entry plain = makeEntry(0, "1000");
    EXPECT_EQ(isValidModTimeWindow("1-2", plain.get(), 0), RSV_OK);
}

TEST(IsValidModTimeWindow, FailedCopiesGive55ThenThe36OfTheCurrentWindow)
{
    PinnedClock clock(500);
    FakeDaemon daemon;
    rsv::Entry ent = makeEntry(0, "1000-2000");
    daemon.failAfter(0);
    EXPECT_EQ(isValidModTimeWindow("1000-3000", ent.get(), 0), RSV_ERR_NO_MEMORY);
    daemon.failAfter(1);
    EXPECT_EQ(isValidModTimeWindow("1000-3000", ent.get(), 0), RSV_ERR_BAD_TIME_WINDOW);
    daemon.failAfter(-1);
}

TEST(IsValidModTimeWindow, LogsBothWindowsUnderTheModuleClass)
{
    ScopedTz tz("UTC");
    PinnedClock clock(500);
    FakeDaemon daemon;
    rsv::Entry ent = makeEntry(0, "1000-2000");
    ScopedLogClass lc(LC_RSV);
    LogCapture log;
    EXPECT_EQ(isValidModTimeWindow("1000-3000", ent.get(), 0), RSV_OK);
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "isValidModTimeWindow: Entering..."));
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG,
                             "isValidModTimeWindow: curr = <Thu Jan  1 00:08:20 1970\n>, modified <alice#0 > "
                             "(active = 0) time from <Thu Jan  1 00:16:40 1970\n - Thu Jan  1 00:33:20 1970\n> "
                             "to <Thu Jan  1 00:16:40 1970\n - Thu Jan  1 00:50:00 1970\n>"))
        << (log.lines().empty() ? std::string() : log.lines().back().text);
}

TEST(IsValidModTimeWindow, NoLogLineWithoutTheModuleClass)
{
    PinnedClock clock(500);
    FakeDaemon daemon;
    rsv::Entry ent = makeEntry(0, "1000-2000");
    ScopedLogClass lc(LC_TRACE);
    LogCapture log;
    isValidModTimeWindow("1000-3000", ent.get(), 0);
    EXPECT_FALSE(log.contains("curr = <"));
}

// ------------------------------------------------------ RsvMod_updateModReqTimeWindow

TEST(RsvModUpdateModReqTimeWindow, SuccessStoresTheCompleteWindowInTheRequest)
{
    PinnedClock clock(500);
    FakeDaemon daemon;
    rsv::Entry ent = makeEntry(0, "1000-2000");
    Mod mod("null&+30");
    EXPECT_EQ(RsvMod_updateModReqTimeWindow(mod.get(), ent.get()), RSV_OK);
    EXPECT_STREQ(mod.get()->req.timeWindow, "1000-3800");
    EXPECT_STREQ(ent->timeWindow, "1000-2000");  // the entry is not touched
}

TEST(RsvModUpdateModReqTimeWindow, RejectionLeavesTheRequestAsItWas)
{
    PinnedClock clock(500);
    FakeDaemon daemon;
    rsv::Entry ent = makeEntry(0, "1000-2000");
    Mod mod("-10&null");
    EXPECT_EQ(RsvMod_updateModReqTimeWindow(mod.get(), ent.get()), RSV_ERR_START_IN_PAST);
    EXPECT_STREQ(mod.get()->req.timeWindow, "-10&null");
    Mod bad("garbage");
    EXPECT_EQ(RsvMod_updateModReqTimeWindow(bad.get(), ent.get()), RSV_ERR_BAD_TIME_WINDOW);
    EXPECT_STREQ(bad.get()->req.timeWindow, "garbage");
}

TEST(RsvModUpdateModReqTimeWindow, NullArgumentsAre52)
{
    FakeDaemon daemon;
    rsv::Entry ent = makeEntry(0, "1000-2000");
    Mod mod("null&null");
    EXPECT_EQ(RsvMod_updateModReqTimeWindow(nullptr, ent.get()), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvMod_updateModReqTimeWindow(mod.get(), nullptr), RSV_ERR_BAD_ARGUMENT);
}

TEST(RsvModUpdateModReqTimeWindow, OneOffRulesApplyWhateverTheKind)
{
    // A daemon relies on recurring reservations being refused here.
    PinnedClock clock(1700000000);
    FakeDaemon daemon;
    rsv::Entry ent = makeEntry(RSV_OPT_RECURRING, "8:0-17:0");
    Mod mod("null&18:0");
    EXPECT_EQ(RsvMod_updateModReqTimeWindow(mod.get(), ent.get()), RSV_ERR_BAD_TIME_WINDOW);
    EXPECT_STREQ(mod.get()->req.timeWindow, "null&18:0");
}

TEST(RsvModUpdateModReqTimeWindow, ActiveReservationMayOnlyMoveItsEnd)
{
    PinnedClock clock(1500);
    FakeDaemon daemon;
    rsv::Entry ent = makeEntry(0, "1000-2000");
    ent->state = RSV_STATE_ACTIVE;
    Mod past("null&1400");
    EXPECT_EQ(RsvMod_updateModReqTimeWindow(past.get(), ent.get()), RSV_ERR_END_INVALID);
    Mod move("+1&null");
    EXPECT_EQ(RsvMod_updateModReqTimeWindow(move.get(), ent.get()), RSV_ERR_START_OF_ACTIVE);
    Mod later("null&+60");
    EXPECT_EQ(RsvMod_updateModReqTimeWindow(later.get(), ent.get()), RSV_OK);
    EXPECT_STREQ(later.get()->req.timeWindow, "1000-5600");
}

TEST(RsvModUpdateModReqTimeWindow, FailedCopyIntoTheRequestIs55AndLeavesIt)
{
    PinnedClock clock(500);
    FakeDaemon daemon;
    rsv::Entry ent = makeEntry(0, "1000-2000");
    Mod mod("null&+30");
    // build: 2 copies + 1 result; check: 2 copies; then the copy into the request.
    daemon.failAfter(5);
    EXPECT_EQ(RsvMod_updateModReqTimeWindow(mod.get(), ent.get()), RSV_ERR_NO_MEMORY);
    daemon.failAfter(-1);
    EXPECT_STREQ(mod.get()->req.timeWindow, "null&+30");
}

// ------------------------------------------------------ RsvEnt_updateWithMod

TEST(RsvEntUpdateWithMod, NameBitReplacesTheOwnerAndItsTwoFlags)
{
    PinnedClock clock(500);
    FakeDaemon daemon;
    rsv::Entry ent = makeEntry(0x2 | RSV_OPT_RECURRING, "1000-2000");
    Mod mod(nullptr, RSV_MOD_NAME | 0x1, "bob");
    RsvEnt_updateWithMod(ent.get(), mod.get());
    EXPECT_STREQ(ent->name, "bob");
    EXPECT_EQ(ent->options, RSV_MOD_NAME | 0x1 | RSV_OPT_RECURRING);
}

TEST(RsvEntUpdateWithMod, AbsentBitsClearTheirMarksOnly)
{
    PinnedClock clock(500);
    FakeDaemon daemon;
    rsv::Entry ent = makeEntry(RSV_MOD_NAME | RSV_MOD_TIMEWINDOW | RSV_MOD_RUNFLAG | 0x1 | 0x40 | 0x80 | RSV_OPT_SYSTEM,
                           "1000-2000");
    Mod mod(nullptr, 0);
    RsvEnt_updateWithMod(ent.get(), mod.get());
    EXPECT_EQ(ent->options, 0x1 | 0x40 | 0x80 | RSV_OPT_SYSTEM);
    EXPECT_STREQ(ent->name, "alice");
    EXPECT_STREQ(ent->timeWindow, "1000-2000");
}

TEST(RsvEntUpdateWithMod, WindowBitReplacesWindowAndDuration)
{
    PinnedClock clock(500);
    FakeDaemon daemon;
    rsv::Entry ent = makeEntry(0, "1000-2000");
    Mod mod("1000-5000", RSV_MOD_TIMEWINDOW);
    RsvEnt_updateWithMod(ent.get(), mod.get());
    EXPECT_STREQ(ent->timeWindow, "1000-5000");
    EXPECT_EQ(ent->duration, 4000);
    EXPECT_EQ(ent->options, RSV_MOD_TIMEWINDOW);
}

TEST(RsvEntUpdateWithMod, RunFlagBitChoosesBetween0x40And0x100)
{
    PinnedClock clock(500);
    FakeDaemon daemon;
    rsv::Entry ent = makeEntry(0x40, "1000-2000");
    Mod with(nullptr, RSV_MOD_RUNFLAG | 0x100);
    RsvEnt_updateWithMod(ent.get(), with.get());
    EXPECT_EQ(ent->options, RSV_MOD_RUNFLAG | 0x100);
    Mod without(nullptr, RSV_MOD_RUNFLAG);
    RsvEnt_updateWithMod(ent.get(), without.get());
    EXPECT_EQ(ent->options, RSV_MOD_RUNFLAG | 0x40);
    Mod absent(nullptr, 0);
    RsvEnt_updateWithMod(ent.get(), absent.get());
    EXPECT_EQ(ent->options, 0x40);
}

TEST(RsvEntUpdateWithMod, DescriptionBitReplacesOrRemovesTheTextWithoutBits)
{
    PinnedClock clock(500);
    FakeDaemon daemon;
    rsv::Entry ent = makeEntry(0, "1000-2000");
    Mod set(nullptr, RSV_MOD_DESCRIPTION, nullptr, "weekly sync");
    RsvEnt_updateWithMod(ent.get(), set.get());
    EXPECT_STREQ(ent->description, "weekly sync");
    EXPECT_EQ(ent->options, 0);
    Mod clear(nullptr, RSV_MOD_DESCRIPTION);
    RsvEnt_updateWithMod(ent.get(), clear.get());
    EXPECT_EQ(ent->description, nullptr);
    Mod untouched(nullptr, 0, nullptr, "ignored");
    RsvEnt_updateWithMod(ent.get(), untouched.get());
    EXPECT_EQ(ent->description, nullptr);
}

TEST(RsvEntUpdateWithMod, CopiedBitsFollowTheRequest)
{
    PinnedClock clock(500);
    FakeDaemon daemon;
    rsv::Entry ent = makeEntry(0x1000 | 0x4000, "1000-2000");
    Mod mod(nullptr, 0x2000 | 0x4000);
    RsvEnt_updateWithMod(ent.get(), mod.get());
    EXPECT_EQ(ent->options, 0x2000 | 0x4000);
}

TEST(RsvEntUpdateWithMod, FailedCopyLeavesTheEntryAsItWas)
{
    PinnedClock clock(500);
    FakeDaemon daemon;
    rsv::Entry ent = makeEntry(0x1000, "1000-2000");
    Mod mod("1000-5000", RSV_MOD_NAME | RSV_MOD_TIMEWINDOW | RSV_MOD_DESCRIPTION | 0x2000, "bob", "text");
    for (int n = 0; n < 3; ++n) {
        daemon.failAfter(n);
        RsvEnt_updateWithMod(ent.get(), mod.get());
        EXPECT_STREQ(ent->name, "alice") << n;
        EXPECT_STREQ(ent->timeWindow, "1000-2000") << n;
        EXPECT_EQ(ent->duration, 1000) << n;
        EXPECT_EQ(ent->description, nullptr) << n;
        EXPECT_EQ(ent->options, 0x1000) << n;
    }
    daemon.failAfter(-1);
    RsvEnt_updateWithMod(ent.get(), mod.get());
    EXPECT_STREQ(ent->name, "bob");
    EXPECT_STREQ(ent->timeWindow, "1000-5000");
    EXPECT_STREQ(ent->description, "text");
    EXPECT_EQ(ent->options, RSV_MOD_NAME | RSV_MOD_TIMEWINDOW | 0x2000);
}

TEST(RsvEntUpdateWithMod, NullArgumentsAreIgnored)
{
    FakeDaemon daemon;
    rsv::Entry ent = makeEntry(0x1000, "1000-2000");
    RsvEnt_updateWithMod(ent.get(), nullptr);
    Mod mod(nullptr, 0);
    RsvEnt_updateWithMod(nullptr, mod.get());
    EXPECT_EQ(ent->options, 0x1000);
}
