// The daemon's lifecycle engine, driven directly: instances activated at
// their start and finished at their end, one-off reservations expired,
// recurring ones moved on (disabled days skipped), and a crash at every step
// boundary caught up exactly once after a restart. Clock and zone pinned.
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "lifecycle.h"
#include "rsv_test_support.h"

using namespace rsvtest;

namespace {

struct Event {
    std::string name;
    nlohmann::json fields;
};

// Thrown from the log callback to stop the engine between two durable steps,
// as a crash would.
struct Crash : std::runtime_error {
    Crash() : std::runtime_error("crash") {}
};

class LifecycleTest : public ::testing::TestWithParam<const char *> {
protected:
    LifecycleTest() : tz(GetParam()), clock(localTime(2023, 11, 1, 9, 0))
    {
        daemon.addHost("h0", 8);
        daemon.addHost("h1", 8);
        RsvId_clearTbl();
        tbl = newTable();
    }
    ~LifecycleTest() override
    {
        engine.reset();
        RsvTimeTbl_free(tbl);
        RsvId_clearTbl();
    }

    RsvTimeTbl *newTable()
    {
        RsvTimeTbl *t = RsvTimeTbl_new(dir.file("rsv.state").c_str());
        EXPECT_EQ(RsvTimeTbl_setDurable(t, 1), 0);
        return t;
    }

    // A restart: the table and the engine are dropped without any clean-up
    // and made again from the files.
    void restart()
    {
        engine.reset();
        RsvTimeTbl_free(tbl);
        RsvId_clearTbl();
        tbl = newTable();
        ASSERT_GE(RsvTimeTbl_load(tbl, nullptr), 0);
        makeEngine();
    }

    void makeEngine()
    {
        engine = std::make_unique<rsvd::Lifecycle>(tbl, finishLog(), [this](std::string_view name,
                                                                           const nlohmann::json &fields) {
            events.push_back({std::string(name), fields});
            if (crashAt > 0 && --crashAt == 0)
                throw Crash();
        });
    }

    std::string finishLog() const { return dir.file("rsv.finish.jsonl"); }

    std::vector<nlohmann::json> finishRecords() const
    {
        std::vector<nlohmann::json> out;
        std::ifstream in(finishLog());
        std::string line;
        while (std::getline(in, line))
            out.push_back(nlohmann::json::parse(line));
        return out;
    }

    // step() at `t` with the module's clock there too.
    time_t stepAt(time_t t)
    {
        clock.set(t);
        return engine->step(t);
    }

    time_t startAt(time_t t)
    {
        clock.set(t);
        return engine->start(t);
    }

    // Steps at each due time the engine gives until `until`; returns the
    // next due time after it.
    time_t runUntil(time_t next, time_t until)
    {
        while (next != 0 && next <= until)
            next = stepAt(next);
        return next;
    }

    // The events of reservations (the weekly trims left out).
    std::vector<std::string> names() const
    {
        std::vector<std::string> out;
        for (auto &e : events)
            if (e.name != "trimmed")
                out.push_back(e.name);
        return out;
    }

    // Local midnight starting the Sunday after `t`: the next weekly trim.
    static time_t nextSunday(time_t t)
    {
        struct tm tm {};
        localtime_r(&t, &tm);
        return localTime(tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday - tm.tm_wday + 7);
    }

    std::vector<time_t> startsOf(const std::string &event) const
    {
        std::vector<time_t> out;
        for (auto &e : events)
            if (e.name == event)
                out.push_back(e.fields.at("instanceStart").get<time_t>());
        return out;
    }

    std::string stateFileText() const { return readFile(dir.file("rsv.state")); }

    void attachJob(const std::string &id, int64_t jobId)
    {
        RsvEnt *ent = RsvTimeTbl_getEntry(tbl, id.c_str());
        ASSERT_NE(ent, nullptr);
        if (!ent->jobList)
            ent->jobList = listCreate("jobs");
        auto *job = static_cast<RsvJobEnt *>(std::calloc(1, sizeof(RsvJobEnt)));
        job->jobId = jobId;
        listInsertEntryAtBack(ent->jobList, &job->links);
        ++ent->numJobs;
    }

    // A one-off reservation of 10:00 to 14:00, activated at its start and
    // finished early ten minutes later (its record written, not removed).
    std::string activeThenFinishedEarly()
    {
        std::string id = addReservation(tbl, 0, "erin", 2, {"h0"}, oneOff(earlyStart, earlyEnd));
        makeEngine();
        startAt(clock.now());
        EXPECT_EQ(stepAt(earlyStart), earlyEnd);
        clock.set(earlyStart + 600);
        return engine->finishEarly(id.c_str(), earlyStart + 600) ? id : "";
    }
    ScopedTz tz;
    PinnedClock clock;
    FakeDaemon daemon;
    TempDir dir;
    RsvTimeTbl *tbl = nullptr;
    std::unique_ptr<rsvd::Lifecycle> engine;
    std::vector<Event> events;
    int crashAt = 0;
    // The window of activeThenFinishedEarly(), read once the zone is pinned.
    const time_t earlyStart = localTime(2023, 11, 1, 10, 0);
    const time_t earlyEnd = localTime(2023, 11, 1, 14, 0);
};

TEST_P(LifecycleTest, OneOffActivatesAtItsStartAndExpiresAtItsEnd)
{
    time_t start = localTime(2023, 11, 1, 10, 0);
    time_t end = localTime(2023, 11, 1, 12, 30);
    std::string id = addReservation(tbl, 0, "alice", 4, {"h0"}, oneOff(start, end));
    RsvJob *job = daemon.addJob(77, 0x4);
    attachJob(id, 77);
    makeEngine();

    EXPECT_EQ(startAt(clock.now()), start);
    EXPECT_TRUE(names().empty());
    EXPECT_EQ(stepAt(start - 1), start);
    EXPECT_TRUE(names().empty());

    EXPECT_EQ(stepAt(start), end);
    EXPECT_EQ(names(), std::vector<std::string>{"activated"});
    RsvEnt *ent = RsvTimeTbl_getEntry(tbl, id.c_str());
    ASSERT_NE(ent, nullptr);
    EXPECT_TRUE(isRsvActive(ent));
    EXPECT_EQ(ent->activeTime, start);
    // The activation is on disk: the record carries the stamp.
    EXPECT_NE(stateFileText().find(" " + std::to_string(start) + "\n"), std::string::npos) << stateFileText();
    EXPECT_EQ(job->rsvFlags, 0);

    EXPECT_EQ(stepAt(end - 1), end);
    // Nothing left but the weekly trim.
    EXPECT_EQ(stepAt(end), nextSunday(end));
    EXPECT_EQ(names(), (std::vector<std::string>{"activated", "finished", "deactivated", "expired"}));
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl, id.c_str()), nullptr);
    EXPECT_EQ(stateFileText().find(id), std::string::npos);
    EXPECT_EQ(job->rsvFlags, 0x1);

    auto records = finishRecords();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0]["rsvId"], id);
    EXPECT_EQ(records[0]["name"], "alice");
    EXPECT_EQ(records[0]["instanceStart"], start);
    EXPECT_EQ(records[0]["instanceEnd"], end);
    EXPECT_EQ(records[0]["activeDuration"], end - start);
    EXPECT_EQ(records[0]["missed"], false);
    EXPECT_EQ(records[0]["hosts"][0]["host"], "h0");
    EXPECT_EQ(records[0]["hosts"][0]["slots"], 4);
    EXPECT_EQ(events.back().fields["owner"], "alice");
    EXPECT_EQ(events.back().fields["instanceEnd"], end);
    EXPECT_EQ(engine->scheduled(), 0u);
    EXPECT_TRUE(tableVerifies(tbl));
}

TEST_P(LifecycleTest, DailyAcrossMidnightSkipsItsDisabledDay)
{
    // 22:00 to 02:00 every night; the night starting on 3 November is
    // disabled. In New York the clocks go back at 02:00 on 5 November.
    std::string id = addReservation(tbl, RSV_OPT_RECURRING, "bob", 2, {"h1"}, "22:0-2:0");
    ASSERT_EQ(RsvTimeTbl_disableDays(tbl, id.c_str(), "2023:11:3"), RSV_OK);
    makeEngine();

    time_t next = startAt(clock.now());
    EXPECT_EQ(next, localTime(2023, 11, 1, 22, 0));
    next = runUntil(next, localTime(2023, 11, 7, 3, 0));
    EXPECT_EQ(next, localTime(2023, 11, 7, 22, 0));

    std::vector<time_t> starts = startsOf("activated");
    std::vector<int> days;
    for (time_t s : starts) {
        struct tm tm {};
        localtime_r(&s, &tm);
        days.push_back(tm.tm_mday);
    }
    EXPECT_EQ(days, (std::vector<int>{1, 2, 4, 5, 6}));
    EXPECT_EQ(startsOf("finished"), starts);
    auto records = finishRecords();
    ASSERT_EQ(records.size(), starts.size());
    time_t previousEnd = 0;
    for (auto &rec : records) {
        time_t s = rec["instanceStart"].get<time_t>();
        time_t e = rec["instanceEnd"].get<time_t>();
        // The module's own instance; in a zone without daylight saving,
        // 02:00 every night.
        time_t ms = 0;
        time_t me = 0;
        RsvEnt_getCurrentInstanceAtTime(RsvTimeTbl_getEntry(tbl, id.c_str()), 1, s, &ms, &me);
        EXPECT_EQ(me, e);
        struct tm tm {};
        localtime_r(&e, &tm);
        if (std::string(GetParam()) == "UTC") {
            EXPECT_EQ(tm.tm_hour, 2) << e;
        }
        EXPECT_GE(s, previousEnd);
        previousEnd = e;
        EXPECT_EQ(rec["activeDuration"].get<time_t>(), e - s);
        EXPECT_EQ(rec["missed"], false);
    }
    RsvEnt *ent = RsvTimeTbl_getEntry(tbl, id.c_str());
    ASSERT_NE(ent, nullptr);
    EXPECT_FALSE(isRsvActive(ent));
    EXPECT_EQ(ent->activeTime, 0);
    // Moved on to the next night.
    ASSERT_NE(ent->timeDuration, nullptr);
    time_t upcoming = localTime(2023, 11, 7, 22, 0);
    char *expected = nullptr;
    setCalendarTimeDuration(upcoming, localTime(2023, 11, 8, 2, 0), &expected);
    EXPECT_STREQ(ent->timeDuration, expected);
    std::free(expected);
    EXPECT_TRUE(tableVerifies(tbl));
}

TEST_P(LifecycleTest, WeeklyAcrossTheWeekEnd)
{
    // Saturday 20:00 to Monday 08:00.
    std::string id = addReservation(tbl, RSV_OPT_RECURRING, "carol", 8, {"h0"}, "6:20:0-1:8:0");
    makeEngine();
    // Weeks clear of the daylight-saving change of early November.
    clock.set(localTime(2023, 11, 8, 9, 0));
    time_t sat = localTime(2023, 11, 11, 20, 0);
    time_t mon = localTime(2023, 11, 13, 8, 0);
    EXPECT_EQ(startAt(clock.now()), sat);
    // The weekly trim comes first, at midnight starting Sunday.
    EXPECT_EQ(stepAt(sat), localTime(2023, 11, 12));
    EXPECT_TRUE(isRsvActive(RsvTimeTbl_getEntry(tbl, id.c_str())));
    EXPECT_EQ(stepAt(localTime(2023, 11, 12)), mon);
    EXPECT_TRUE(isRsvActive(RsvTimeTbl_getEntry(tbl, id.c_str())));
    EXPECT_EQ(stepAt(mon), localTime(2023, 11, 18, 20, 0));
    EXPECT_EQ(stepAt(localTime(2023, 11, 18, 20, 0)), localTime(2023, 11, 19));
    EXPECT_EQ(stepAt(localTime(2023, 11, 19)), localTime(2023, 11, 20, 8, 0));
    EXPECT_EQ(stepAt(localTime(2023, 11, 20, 8, 0)), localTime(2023, 11, 25, 20, 0));
    auto records = finishRecords();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0]["instanceStart"], sat);
    EXPECT_EQ(records[0]["instanceEnd"], mon);
    EXPECT_EQ(records[0]["activeDuration"], mon - sat);
    EXPECT_EQ(records[1]["instanceEnd"], localTime(2023, 11, 20, 8, 0));
    EXPECT_EQ(names(), (std::vector<std::string>{"activated", "finished", "deactivated", "activated", "finished",
                                                 "deactivated"}));
}

TEST_P(LifecycleTest, ChangesAreScheduledOneByOne)
{
    makeEngine();
    EXPECT_EQ(startAt(clock.now()), nextSunday(clock.now()));
    time_t start = localTime(2023, 11, 2, 8, 0);
    time_t end = localTime(2023, 11, 2, 9, 0);
    std::string id = addReservation(tbl, 0, "dave", 1, {"h0"}, oneOff(start, end));
    engine->changed(id.c_str());
    EXPECT_EQ(engine->scheduled(), 1u);
    // The daemon re-arms its timer from nextDue() right after a change,
    // before any step: it must already see the new start.
    EXPECT_EQ(engine->nextDue(), start);
    EXPECT_EQ(stepAt(clock.now()), start);
    std::string later = addReservation(tbl, 0, "dave", 1, {"h1"}, oneOff(start - 3600, end));
    engine->changed(later.c_str());
    EXPECT_EQ(engine->nextDue(), start - 3600);
    EXPECT_EQ(stepAt(clock.now()), start - 3600);
    ASSERT_EQ(RsvTimeTbl_removeEntry(tbl, later.c_str()), RSV_OK);
    engine->changed(later.c_str());
    EXPECT_EQ(stepAt(clock.now()), start);
    // The whole-table recomputation gives the same.
    engine->changed();
    EXPECT_EQ(engine->scheduled(), 1u);
    EXPECT_EQ(stepAt(clock.now()), start);
    EXPECT_TRUE(names().empty());
}

// Instances that start at one moment are activated in one change, each
// stamped and written, in queue order; an end due at the same step keeps
// its place before them.
TEST_P(LifecycleTest, InstancesStartingTogetherAreActivatedTogether)
{
    const time_t start = localTime(2023, 11, 1, 10, 0);
    const time_t end = localTime(2023, 11, 1, 11, 0);
    std::string before = addReservation(tbl, 0, "erin", 1, {"h1"}, oneOff(start - 3600, start));
    std::vector<std::string> ids;
    for (int i = 0; i < 3; ++i)
        ids.push_back(addReservation(tbl, 0, "frank", 1, {"h0"}, oneOff(start, end)));
    makeEngine();
    startAt(clock.now());
    EXPECT_EQ(stepAt(start - 3600), start);
    events.clear();
    EXPECT_EQ(stepAt(start), end);
    EXPECT_EQ(names(), (std::vector<std::string>{"finished", "deactivated", "expired", "activated", "activated",
                                                 "activated"}));
    const std::string text = stateFileText();
    for (const std::string &id : ids) {
        RsvEnt *ent = RsvTimeTbl_getEntry(tbl, id.c_str());
        ASSERT_NE(ent, nullptr) << id;
        EXPECT_TRUE(isRsvActive(ent)) << id;
        EXPECT_EQ(ent->activeTime, start) << id;
        char *line = RsvEnt_ToString(ent);
        EXPECT_NE(text.find(line), std::string::npos) << id;
        std::free(line);
    }
}

TEST_P(LifecycleTest, EarlyRemovalOfAnActiveReservationIsChargedToNow)
{
    std::string id = activeThenFinishedEarly();
    ASSERT_FALSE(id.empty());
    ASSERT_EQ(RsvTimeTbl_removeEntry(tbl, id.c_str()), RSV_OK);
    engine->changed(id.c_str());
    EXPECT_EQ(stepAt(earlyStart + 600), nextSunday(earlyStart));
    auto records = finishRecords();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0]["activeDuration"], 600);
}

TEST_P(LifecycleTest, AnEarlyRecordIsNotWrittenAgainAfterACrashBeforeTheRemoval)
{
    std::string id = activeThenFinishedEarly();
    ASSERT_FALSE(id.empty());
    restart(); // before the removal
    EXPECT_EQ(startAt(earlyStart + 1200), earlyEnd);
    EXPECT_TRUE(isRsvActive(RsvTimeTbl_getEntry(tbl, id.c_str())));
    runUntil(earlyEnd, earlyEnd);
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl, id.c_str()), nullptr);
    auto records = finishRecords();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0]["activeDuration"], 600);
}

// A crash after each event of a one-off and a recurring reservation's
// lifetime (and before the first): after the restart every instance has
// exactly one finish record, the one-off reservation is gone, and the table
// is what a run without the crash leaves.
TEST_P(LifecycleTest, CatchUpAfterACrashAtEveryStepBoundary)
{
    time_t start = localTime(2023, 11, 1, 10, 0);
    time_t end = localTime(2023, 11, 1, 11, 0);
    const std::vector<time_t> restartTimes = {start - 60, start + 60, end, end + 3600, localTime(2023, 11, 3, 9, 0)};
    for (int crash = 0; crash <= 9; ++crash) {
        for (time_t restartAt : restartTimes) {
            SCOPED_TRACE("crash after event " + std::to_string(crash) + ", restart at " + std::to_string(restartAt));
            engine.reset();
            RsvTimeTbl_free(tbl);
            RsvId_clearTbl();
            removeDirectory(dir.path());
            ASSERT_EQ(system(("mkdir -p " + dir.path()).c_str()), 0);
            clock.set(localTime(2023, 11, 1, 9, 0));
            events.clear();
            tbl = newTable();
            std::string oneId = addReservation(tbl, 0, "frank", 2, {"h0"}, oneOff(start, end));
            std::string recId = addReservation(tbl, RSV_OPT_RECURRING, "grace", 1, {"h1"}, "10:30-11:30");
            makeEngine();
            crashAt = crash;
            bool crashed = false;
            try {
                time_t next = startAt(clock.now());
                runUntil(next, restartAt);
            } catch (const Crash &) {
                crashed = true;
            }
            crashAt = 0;
            if (crash > 0 && !crashed)
                continue; // fewer events than that before this restart time
            time_t stoppedAt = clock.now();
            restart();
            time_t at = std::max(restartAt, stoppedAt);
            time_t next = startAt(at);
            runUntil(next, localTime(2023, 11, 4, 0, 0));

            std::map<std::pair<std::string, time_t>, int> perInstance;
            for (auto &rec : finishRecords())
                ++perInstance[{rec["rsvId"].get<std::string>(), rec["instanceStart"].get<time_t>()}];
            for (auto &[key, n] : perInstance)
                EXPECT_EQ(n, 1) << key.first << " " << key.second;
            EXPECT_EQ(perInstance.count({oneId, start}), 1u);
            EXPECT_EQ(RsvTimeTbl_getEntry(tbl, oneId.c_str()), nullptr);
            RsvEnt *rec = RsvTimeTbl_getEntry(tbl, recId.c_str());
            ASSERT_NE(rec, nullptr);
            EXPECT_EQ(rec->activeTime, 0);
            // An instance that began and ended while the daemon was down has
            // no record; every one it was up for has exactly one.
            EXPECT_EQ(perInstance.count({recId, localTime(2023, 11, 2, 10, 30)}),
                      stoppedAt >= localTime(2023, 11, 2, 10, 30) || at < localTime(2023, 11, 2, 11, 30) ? 1u : 0u);
            EXPECT_EQ(perInstance.count({recId, localTime(2023, 11, 3, 10, 30)}), 1u);
            EXPECT_TRUE(tableVerifies(tbl));
        }
    }
}

TEST_P(LifecycleTest, AnInstanceThatEndedWhileDownIsFinishedAtStartUp)
{
    time_t start = localTime(2023, 11, 1, 10, 0);
    time_t end = localTime(2023, 11, 1, 11, 0);
    std::string active = addReservation(tbl, 0, "heidi", 1, {"h0"}, oneOff(start, end));
    std::string missed = addReservation(tbl, 0, "ivan", 1, {"h1"}, oneOff(end, end + 1800));
    makeEngine();
    // Started late: activated two minutes into the instance.
    EXPECT_EQ(startAt(start + 120), end);
    ASSERT_EQ(RsvTimeTbl_getEntry(tbl, active.c_str())->activeTime, start + 120);
    restart();
    // Down from start + 120 until long after both windows.
    time_t back = localTime(2023, 11, 1, 18, 0);
    EXPECT_EQ(startAt(back), nextSunday(back));
    auto records = finishRecords();
    ASSERT_EQ(records.size(), 2u);
    std::map<std::string, nlohmann::json> byId;
    for (auto &r : records)
        byId[r["rsvId"]] = r;
    EXPECT_EQ(byId[active]["activeDuration"], end - start - 120);
    EXPECT_EQ(byId[active]["missed"], false);
    EXPECT_EQ(byId[missed]["activeDuration"], 0);
    EXPECT_EQ(byId[missed]["missed"], true);
    EXPECT_EQ(byId[missed]["instanceStart"], end);
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl, active.c_str()), nullptr);
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl, missed.c_str()), nullptr);
    EXPECT_EQ(h_numEnts_(&tbl->entries), 0);
}

TEST_P(LifecycleTest, ARunningInstanceStaysActiveAcrossARestart)
{
    std::string id = addReservation(tbl, RSV_OPT_RECURRING, "judy", 1, {"h0"}, "10:0-12:0");
    makeEngine();
    time_t start = localTime(2023, 11, 1, 10, 0);
    time_t end = localTime(2023, 11, 1, 12, 0);
    EXPECT_EQ(startAt(clock.now()), start);
    EXPECT_EQ(stepAt(start), end);
    std::string before = stateFileText();
    restart();
    events.clear();
    EXPECT_EQ(startAt(start + 1800), end);
    RsvEnt *ent = RsvTimeTbl_getEntry(tbl, id.c_str());
    ASSERT_NE(ent, nullptr);
    EXPECT_TRUE(isRsvActive(ent));
    EXPECT_EQ(ent->activeTime, start);
    EXPECT_EQ(stateFileText(), before);
    EXPECT_EQ(names(), std::vector<std::string>{"activated"});
    EXPECT_EQ(events[0].fields["resumed"], true);
    EXPECT_EQ(stepAt(end), localTime(2023, 11, 2, 10, 0));
    auto records = finishRecords();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0]["activeDuration"], end - start);
}

TEST_P(LifecycleTest, AnUnfinishedLastLineIsCutAtStartUp)
{
    writeFile(finishLog(), "{\"rsvId\":\"x#1\",\"instanceStart\":1,\"instanceEnd\":2,\"logged\":3}\n{\"rsvId\":\"y");
    time_t start = localTime(2023, 11, 1, 10, 0);
    addReservation(tbl, 0, "ken", 1, {"h0"}, oneOff(start, start + 600));
    makeEngine();
    runUntil(startAt(clock.now()), start + 600);
    auto records = finishRecords();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0]["rsvId"], "x#1");
    EXPECT_EQ(records[1]["instanceStart"], start);
}

TEST_P(LifecycleTest, TrimsThePlannersOfPastWeeksOnceAWeek)
{
    // Bookings in the week of 29 October, this week (from 1 November) and
    // the next; the weeks before this one go at start-up, the next at its
    // end.
    clock.set(localTime(2023, 10, 30, 9, 0));
    addReservation(tbl, 0, "lou", 3, {"h0"}, oneOff(localTime(2023, 10, 30, 10, 0), localTime(2023, 10, 30, 11, 0)));
    std::string spanning = addReservation(tbl, 0, "lou", 2, {"h1"},
                                          oneOff(localTime(2023, 11, 3, 10, 0), localTime(2023, 11, 7, 11, 0)));
    addReservation(tbl, 0, "lou", 1, {"h0"}, oneOff(localTime(2023, 11, 8, 10, 0), localTime(2023, 11, 8, 11, 0)));
    addReservation(tbl, RSV_OPT_RECURRING, "max", 1, {"h0"}, "12:0-13:0");
    makeEngine();
    RsvWeek *weeks = nullptr;
    ASSERT_EQ(RsvTimeTbl_plannerWeeks(tbl, "h0", &weeks), 3);
    std::free(weeks);
    int cells[RSV_PLANNER_DAYS][RSV_PLANNER_SLOTS_PER_DAY];
    RsvWeek next{};
    RsvTime_toWeek(localTime(2023, 11, 8), &next);
    ASSERT_EQ(RsvTimeTbl_hostWeekCells(tbl, "h0", &next, cells), 0);
    std::vector<int> nextWeekCells(&cells[0][0], &cells[0][0] + sizeof cells / sizeof(int));

    time_t due = startAt(localTime(2023, 11, 10, 9, 0));
    // Nothing else is due before Sunday 12 November but the trim: the
    // one-off of the 8th expired at start-up, the daily one starts at noon.
    EXPECT_EQ(due, localTime(2023, 11, 10, 12, 0));
    ASSERT_FALSE(events.empty());
    // After what was due: the finish records and expiries of the three
    // one-off reservations that came and went while the daemon was down.
    EXPECT_EQ(names(), (std::vector<std::string>{"finished", "expired", "finished", "expired", "finished", "expired"}));
    EXPECT_EQ(events.back().name, "trimmed");
    EXPECT_EQ(events.back().fields["before"], localTime(2023, 11, 5));
    EXPECT_EQ(events.back().fields["planners"], 2); // h0 and h1, week of 29 October
    weeks = nullptr;
    ASSERT_EQ(RsvTimeTbl_plannerWeeks(tbl, "h0", &weeks), 2);
    EXPECT_TRUE(RsvWeek_equal(&weeks[0], &rsvWeekRecur));
    EXPECT_TRUE(RsvWeek_equal(&weeks[1], &next));
    std::free(weeks);
    ASSERT_EQ(RsvTimeTbl_hostWeekCells(tbl, "h0", &next, cells), 0);
    // The one-off of the 8th has expired since; the daily hours stay.
    for (int slot = 10 * 6; slot < 11 * 6; ++slot)
        nextWeekCells[3 * RSV_PLANNER_SLOTS_PER_DAY + slot] -= 1;
    EXPECT_EQ(std::vector<int>(&cells[0][0], &cells[0][0] + sizeof cells / sizeof(int)), nextWeekCells);
    EXPECT_TRUE(tableVerifies(tbl));
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl, spanning.c_str()), nullptr);

    size_t trims = 1;
    due = runUntil(due, localTime(2023, 11, 20, 0, 0));
    for (auto &e : events)
        if (e.name == "trimmed" && e.fields["before"] == localTime(2023, 11, 12))
            ++trims;
    EXPECT_EQ(trims, 2u);
    EXPECT_TRUE(tableVerifies(tbl));
}

INSTANTIATE_TEST_SUITE_P(Zones, LifecycleTest, ::testing::Values("UTC", "America/New_York"));

} // namespace
