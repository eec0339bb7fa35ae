// Unit tests of rsvctl's own pieces: the line for every module error number,
// time and window parsing, the cluster file, aligned columns and the
// comparison of a table with the one its files read back to.
#include <gtest/gtest.h>

#include "cli_error.h"
#include "cluster.h"
#include "qob.rsvimpl.h"
#include "rsv_test_support.h"
#include "table_compare.h"
#include "table_format.h"
#include "timeparse.h"

using namespace rsvctl;

namespace {

ErrorContext fullContext()
{
    ErrorContext ctx;
    ctx.rsvId = "alice#3";
    ctx.owner = "alice";
    ctx.hosts = "hpc09";
    ctx.window = "8:0-8:0";
    ctx.dates = "2:30";
    ctx.maxPerOwner = 7;
    return ctx;
}

struct Expected {
    int err;
    const char *text;
};

TEST(ModuleErrorText, EveryErrorNumberIsOneLineNamingTheInput)
{
    const Expected cases[] = {
        {RSV_ERR_BAD_HOST, "unknown host 'hpc09': not in the cluster file"},
        {RSV_ERR_NO_TEXT, "no date given: name the days, for example 12:24-12:26 or 2026-12-24..2026-12-26"},
        {RSV_ERR_BAD_TIME_WINDOW, "malformed time window '8:0-8:0': use H[:M]-H[:M] (daily) or D:H:M-D:H:M (weekly)"},
        {RSV_ERR_BAD_ARGUMENT,
         "reservation 'alice#3' is not recurring: only a daily or weekly reservation has days to disable or enable"},
        {RSV_ERR_NO_MEMORY, "out of memory"},
        {RSV_ERR_NOT_ENOUGH_SLOTS, "not enough free slots on 'hpc09' to enable '2:30' of reservation 'alice#3'"},
        {RSV_ERR_NO_RSV, "no reservation 'alice#3'"},
        {RSV_ERR_NO_RSV_ID, "owner 'alice' already holds 7 reservations, the most allowed (max-per-owner)"},
        {RSV_ERR_START_IN_PAST, "the start of the time window '8:0-8:0' is not in the future"},
        {RSV_ERR_END_INVALID,
         "the end of the time window '8:0-8:0' is not acceptable: it must come after the start, in the future"},
        {RSV_ERR_NO_SUCH_RSV, "no reservation 'alice#3'"},
        {RSV_ERR_NOTHING_LEFT, "the change would leave reservation 'alice#3' with no hosts or no slots"},
        {RSV_ERR_BAD_DATE, "malformed or impossible date '2:30': use D, M:D or Y:M:D, or a range of one form"},
        {RSV_ERR_START_OF_ACTIVE, "reservation 'alice#3' is active: its start cannot change"},
        {RSV_ERR_DURATION_EXISTS, "the days '2:30' are already disabled in reservation 'alice#3'"},
        {RSV_ERR_HOST_NOT_IN_RSV, "host 'hpc09' is not in reservation 'alice#3'"},
        {RSV_ERR_HOST_IN_USE, "host 'hpc09' of reservation 'alice#3' is in use by jobs"},
        {RSV_ERR_DATE_IN_PAST, "the date '2:30' is in the past"},
        {RSV_ERR_DAY_MISMATCH, "time window '8:0-8:0': both ends must name a weekday, or neither"},
        {RSV_ERR_END_BEFORE_START, "the end must come after the start (time window '8:0-8:0')"},
        {RSV_ERR_NOT_DISABLED, "none of the days '2:30' is disabled in reservation 'alice#3'"},
    };
    for (const Expected &c : cases) {
        std::string text = moduleErrorText(c.err, fullContext());
        EXPECT_EQ(text, c.text) << c.err;
        EXPECT_EQ(text.find('\n'), std::string::npos) << c.err;
    }
    EXPECT_EQ(moduleErrorText(999, {}), "refused (error 999)");
}

TEST(ModuleErrorText, SlotsShortForAWindowNameIt)
{
    ErrorContext ctx = fullContext();
    ctx.dates.clear();
    EXPECT_EQ(moduleErrorText(RSV_ERR_NOT_ENOUGH_SLOTS, ctx), "not enough free slots on 'hpc09' for time window '8:0-8:0'");
}

TEST(RefusalStatus, WhatIsMalformedInItselfIsUsage)
{
    for (int err : {RSV_ERR_NO_TEXT, RSV_ERR_BAD_TIME_WINDOW, RSV_ERR_BAD_DATE, RSV_ERR_DAY_MISMATCH,
                    RSV_ERR_END_BEFORE_START})
        EXPECT_EQ(refusalStatus(err), kExitUsage) << err;
    for (int err : {RSV_ERR_BAD_HOST, RSV_ERR_NOT_ENOUGH_SLOTS, RSV_ERR_START_IN_PAST, RSV_ERR_NO_RSV,
                    RSV_ERR_DURATION_EXISTS, RSV_ERR_NOT_DISABLED, RSV_ERR_DATE_IN_PAST})
        EXPECT_EQ(refusalStatus(err), kExitRefused) << err;
}

TEST(ModuleErrorText, BeginAndEndAreNamedWhenTypedSeparately)
{
    ErrorContext ctx;
    ctx.begin = "+1h";
    ctx.end = "2026-11-19 08:00";
    EXPECT_EQ(moduleErrorText(RSV_ERR_START_IN_PAST, ctx), "the begin '+1h' is not in the future");
    EXPECT_EQ(moduleErrorText(RSV_ERR_END_INVALID, ctx),
              "the end '2026-11-19 08:00' is not acceptable: it must be in the future");
    EXPECT_EQ(moduleErrorText(RSV_ERR_END_BEFORE_START, ctx),
              "the end must come after the start ('+1h' to '2026-11-19 08:00')");
    ctx.system = true;
    ctx.hosts = "dev01";
    EXPECT_EQ(moduleErrorText(RSV_ERR_NOT_ENOUGH_SLOTS, ctx),
              "a system reservation needs hosts with nothing booked: 'dev01' has bookings for '+1h' to "
              "'2026-11-19 08:00'");
}

TEST(RefuseThrows, StatusTwoWithTheDetail)
{
    try {
        refuse(RSV_ERR_NO_RSV, fullContext(), "detail\n");
        FAIL() << "no throw";
    } catch (const CliError &e) {
        EXPECT_EQ(e.status(), kExitRefused);
        EXPECT_STREQ(e.what(), "no reservation 'alice#3'");
        EXPECT_EQ(e.detail(), "detail\n");
    }
}

class TimeParse : public ::testing::TestWithParam<const char *> {
};

TEST_P(TimeParse, EveryPointFormIsLocalTime)
{
    rsvtest::ScopedTz tz(GetParam());
    time_t now = rsvtest::localTime(2026, 11, 18, 10, 0);
    rsvtest::PinnedClock clock(now);
    time_t nine = rsvtest::localTime(2026, 11, 19, 9, 0);
    EXPECT_EQ(parsePoint("2026-11-19 09:00", "-b"), nine);
    EXPECT_EQ(parsePoint("2026-11-19T09:00", "-b"), nine);
    EXPECT_EQ(parsePoint("2026-11-19", "-b"), rsvtest::localTime(2026, 11, 19));
    EXPECT_EQ(parsePoint("+90m", "-b"), now + 5400);
    EXPECT_EQ(parsePoint("+2h", "-b"), now + 7200);
    EXPECT_EQ(parsePoint("+1d", "-b"), rsvtest::localTime(2026, 11, 19, 10, 0));
    EXPECT_EQ(parsePoint("1795078800", "-b"), 1795078800);
    for (const char *bad : {"", "2026-02-30 10:00", "2026-11-19 24:00", "-1h", "+5y", "+", "999999999999"})
        EXPECT_THROW(parsePoint(bad, "-b"), CliError) << bad;
}

TEST_P(TimeParse, ADayAcrossTheClockChangeKeepsTheHour)
{
    rsvtest::ScopedTz tz(GetParam());
    rsvtest::PinnedClock clock(rsvtest::localTime(2026, 10, 31, 12, 0));
    EXPECT_EQ(parsePoint("+1d", "-b"), rsvtest::localTime(2026, 11, 1, 12, 0));
}

INSTANTIATE_TEST_SUITE_P(Zones, TimeParse, ::testing::Values("UTC", "America/New_York"));

TEST(ShiftMinutes, SignedNumbersWithUnits)
{
    EXPECT_EQ(parseShiftMinutes("+30", "--end"), 30);
    EXPECT_EQ(parseShiftMinutes("-2h", "--end"), -120);
    EXPECT_EQ(parseShiftMinutes("+1d", "--end"), 1440);
    EXPECT_FALSE(parseShiftMinutes("2026-11-19 09:00", "--end").has_value());
    EXPECT_THROW(parseShiftMinutes("+x", "--end"), CliError);
}

TEST(RecurringWindow, WeekdayNamesBecomeNumbers)
{
    EXPECT_EQ(normaliseRecurringWindow("22:00-6:00"), "22:00-6:00");
    EXPECT_EQ(normaliseRecurringWindow("fri:18:00-mon:6:00"), "5:18:00-1:6:00");
    EXPECT_EQ(normaliseRecurringWindow("Sunday:8:0-sat:9:0"), "7:8:0-6:9:0");
    EXPECT_TRUE(isWeeklyWindow("5:18:0-1:6:0"));
    EXPECT_FALSE(isWeeklyWindow("22:0-6:0"));
    EXPECT_THROW(normaliseRecurringWindow("8:00"), CliError);
    EXPECT_THROW(normaliseRecurringWindow("xyz:8:0-mon:9:0"), CliError);
    EXPECT_THROW(normaliseRecurringWindow("1:2:3:4-5"), CliError);
}

TEST(Durations, DaysHoursMinutes)
{
    EXPECT_EQ(formatDuration(0), "0m");
    EXPECT_EQ(formatDuration(45 * 60), "45m");
    EXPECT_EQ(formatDuration(8 * 3600), "8h");
    EXPECT_EQ(formatDuration(2 * 86400 + 8 * 3600 + 30 * 60), "2d 8h 30m");
}

TEST(Durations, LengthsWithUnitsInMinutes)
{
    EXPECT_EQ(parseDurationMinutes("6h", "-D"), 360);
    EXPECT_EQ(parseDurationMinutes("90m", "-D"), 90);
    EXPECT_EQ(parseDurationMinutes("1d2h", "-D"), 1560);
    EXPECT_EQ(parseDurationMinutes("2h30m", "-D"), 150);
    EXPECT_EQ(parseDurationMinutes("1d2h30m", "-D"), 1590);
    EXPECT_EQ(parseDurationMinutes("2H", "-D"), 120);
    EXPECT_EQ(parseDurationMinutes("1m", "-D"), 1);
    EXPECT_EQ(parseDurationMinutes("366d", "-D"), 366 * 1440);
    EXPECT_EQ(parseDurationMinutes("0d90m", "-D"), 90);
}

TEST(Durations, MalformedLengthsAreUsageErrors)
{
    auto message = [](const std::string &text) {
        try {
            parseDurationMinutes(text, "-D");
        } catch (const CliError &e) {
            EXPECT_EQ(e.status(), kExitUsage) << text;
            return std::string(e.what());
        }
        return std::string("accepted");
    };
    const std::string forms = "use numbers with units d, h and m in that order, such as 6h, 90m, 1d2h or 2h30m";
    EXPECT_EQ(message(""), "-D is empty: " + forms);
    for (const char *bad : {"6", "h", "6x", "30m2h", "2h2h", "1d 2h", "-2h", "+2h", "1.5h", "1234567m"})
        EXPECT_EQ(message(bad), "bad -D '" + std::string(bad) + "': " + forms) << bad;
    EXPECT_EQ(message("0h"), "-D '0h' is too short: at least 1m");
    EXPECT_EQ(message("367d"), "-D '367d' is too long: at most 366d");
}

TEST(ClusterFile, HostsAliasesAndLimit)
{
    Cluster c = Cluster::parse("# c\nmax-per-owner 5\nalpha 8 16 a1 a2   # big\nbeta 4 b1\n\n", "hosts.conf");
    ASSERT_EQ(c.hosts().size(), 2u);
    EXPECT_EQ(c.maxPerOwner(), 5);
    EXPECT_EQ(c.find("a2")->name, "alpha");
    EXPECT_EQ(c.find("alpha")->record.maxSlots, 8);
    EXPECT_EQ(c.find("alpha")->record.numCpus, 16);
    EXPECT_EQ(c.find("b1")->cpus, 4);
    EXPECT_EQ(c.find("gamma"), nullptr);
}

TEST(ClusterFile, BadLinesAreConfigurationProblems)
{
    const std::pair<const char *, const char *> cases[] = {
        {"alpha 0\n", "hosts.conf:1: slots of host 'alpha' must be a positive number, not '0'"},
        {"\n\nalpha 2 0\n", "hosts.conf:3: cpus of host 'alpha' must be a positive number, not '0'"},
        {"9lives 2\n", "hosts.conf:1: '9lives' is not a host name (letters, digits, '-', '.', '_'; a letter first)"},
        {"alpha 2 bad@alias\n", "hosts.conf:1: 'bad@alias' is not a valid alias of host 'alpha'"},
        {"alpha 2\nalpha 3\n", "hosts.conf:2: 'alpha' is already a host name or alias"},
        {"max-per-owner 0\n", "hosts.conf:1: max-per-owner takes one number from 1 to 10000"},
    };
    for (const auto &[text, message] : cases) {
        try {
            Cluster::parse(text, "hosts.conf");
            ADD_FAILURE() << text;
        } catch (const CliError &e) {
            EXPECT_EQ(e.status(), kExitFile);
            EXPECT_STREQ(e.what(), message);
        }
    }
}

TEST(ClusterFile, TheDemoClusterHasSixteenHosts)
{
    Cluster c = Cluster::parse(demoClusterText(), "demo");
    EXPECT_EQ(c.hosts().size(), 16u);
    EXPECT_EQ(c.maxPerOwner(), 20);
    EXPECT_EQ(c.find("node1")->name, "hpc01");
}

TEST(TextTable, AlignsAndTrims)
{
    TextTable t({"NAME", "N", "NOTE"}, {1});
    t.addRow({"a", "10", ""});
    t.addRow({"long-name", "2", "x"});
    EXPECT_EQ(t.render("  "), "  NAME        N  NOTE\n  a          10\n  long-name   2  x\n");
}

// ---------------------------------------------------------------- tables

constexpr time_t kWed1000 = 1794996000;  // Wed 2026-11-18 10:00 UTC
constexpr time_t kThu0900 = 1795078800;  // Thu 2026-11-19 09:00 UTC

// Two tables made the same way, each with its own state file; the owner
// counters start from zero for each, as in two processes.
class TableCompare : public ::testing::Test {
protected:
    void SetUp() override
    {
        daemon.addHost("alpha", 8);
        daemon.addHost("beta", 4);
    }
    void TearDown() override
    {
        RsvTimeTbl_free(memory);
        RsvTimeTbl_free(disk);
    }

    RsvTimeTbl *make(const std::string &name, bool withExtra)
    {
        RsvId_clearTbl();
        RsvTimeTbl *tbl = RsvTimeTbl_new(tmp.file(name).c_str());
        add(tbl, "a", {"alpha"}, rsvtest::oneOff(kThu0900, kThu0900 + 3600), 0, "first");
        add(tbl, "b", {"beta"}, "22:0-6:0", RSV_OPT_RECURRING, nullptr);
        if (withExtra)
            add(tbl, "c", {"alpha", "beta"}, rsvtest::oneOff(kThu0900 + 7200, kThu0900 + 9000), 0, nullptr);
        return tbl;
    }

    static void add(RsvTimeTbl *tbl, const std::string &owner, const std::vector<std::string> &hosts,
                    const std::string &window, int options, const char *description)
    {
        rsvtest::OwnedReq req(options, owner, 2, 2, hosts, window, description);
        char *id = RsvTimeTbl_addEntry(tbl, &req.req);
        ASSERT_NE(id, nullptr) << qob_errno;
        std::free(id);
    }

    rsvtest::ScopedTz tz{"UTC"};
    rsvtest::PinnedClock clock{kWed1000};
    rsvtest::LogCapture log;
    rsvtest::FakeDaemon daemon;
    rsvtest::TempDir tmp;
    RsvTimeTbl *memory = nullptr;
    RsvTimeTbl *disk = nullptr;
};

TEST_F(TableCompare, TablesMadeAlikeHaveNoDifference)
{
    memory = make("m.state", true);
    disk = make("d.state", true);
    EXPECT_EQ(stateLines(memory).size(), 3u);
    EXPECT_EQ(tableDifferences(memory, disk), std::vector<std::string>{});
}

TEST_F(TableCompare, AReservationOnlyInMemoryIsNamedWithItsBookings)
{
    memory = make("m.state", true);
    disk = make("d.state", false);
    std::vector<std::string> d = tableDifferences(memory, disk);
    // c#0 takes its two slots on alpha, the first host asked.
    EXPECT_EQ(d, (std::vector<std::string>{"only in memory: c#0", "planner cells of alpha differ in the week of "
                                                                  "2026-11-15 (day 4, 11:00: 2 in memory, 0 on disk)"}));
    // The other way round, the same reservation is only on disk.
    EXPECT_EQ(tableDifferences(disk, memory)[0], "only on disk: c#0");
}

TEST_F(TableCompare, AReservationWrittenDifferentlyIsNamed)
{
    memory = make("m.state", false);
    disk = make("d.state", false);
    ASSERT_EQ(RsvTimeTbl_setDescription(disk, "a#0", "changed"), 0);
    EXPECT_EQ(tableDifferences(memory, disk), std::vector<std::string>{"written differently: a#0"});
}

TEST_F(TableCompare, ACellChangedByHandIsFound)
{
    memory = make("m.state", false);
    disk = make("d.state", false);
    RsvWeek week{};
    RsvTime_toWeek(kThu0900, &week);
    ResPlanner *p = rsvtest::findPlanner(disk, "alpha", week);
    ASSERT_NE(p, nullptr);
    p->slots[6][0].reserved += 1;
    EXPECT_EQ(tableDifferences(memory, disk),
              std::vector<std::string>{"planner cells of alpha differ in the week of 2026-11-15 (day 6, 00:00: 0 in "
                                       "memory, 1 on disk)"});
}

TEST_F(TableCompare, EmptyPlannersLeftByARemovalAreNoDifference)
{
    memory = make("m.state", true);
    disk = make("d.state", false);
    ASSERT_EQ(RsvTimeTbl_removeEntry(memory, "c#0"), 0);
    // The memory table keeps the planners c#0 made; a table loaded from the
    // files would not have them, and neither holds a booking there.
    EXPECT_EQ(tableDifferences(memory, disk), std::vector<std::string>{});
}

} // namespace
