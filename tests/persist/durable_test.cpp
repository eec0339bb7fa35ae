// Durable mode: whole files written beside the old ones and renamed over
// them, changes that are kept on disk or not at all, and identifiers that are
// never handed out twice.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "rsv_test_support.h"

namespace {

using rsvtest::FakeDaemon;
using rsvtest::OwnedModReq;
using rsvtest::OwnedReq;
using rsvtest::PinnedClock;
using rsvtest::ScopedTz;
using rsvtest::TempDir;
using rsvtest::fileExists;
using rsvtest::localTime;
using rsvtest::oneOff;
using rsvtest::readFile;

class DurableTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        daemon.addHost("hostA", 16);
        daemon.addHost("hostB", 16);
        RsvId_clearTbl();
        tbl = RsvTimeTbl_new(stateFile().c_str());
        ASSERT_NE(tbl, nullptr);
        ASSERT_EQ(RsvTimeTbl_setDurable(tbl, 1), 0);
    }
    void TearDown() override
    {
        RsvTimeTbl_free(tbl);
        RsvId_clearTbl();
    }

    std::string stateFile() const { return dir.file("rsv.state"); }
    std::string idFile() const { return dir.file("rsv.ids"); }

    std::string add(const std::string &owner, int slots, const std::string &host, int dayOffset = 1)
    {
        const time_t start = localTime(2026, 12, 1 + dayOffset, 9);
        OwnedReq r(0, owner, slots, slots, {host}, oneOff(start, start + 3600));
        char *id = RsvTimeTbl_addEntry(tbl, &r.req);
        std::string out = id ? id : "";
        std::free(id);
        return out;
    }

    // A table reloaded from the files on disk, in the given mode.
    std::string reloadedStateText(bool durable)
    {
        RsvId_clearTbl();
        RsvTimeTbl *other = RsvTimeTbl_new(stateFile().c_str());
        RsvTimeTbl_setDurable(other, durable ? 1 : 0);
        EXPECT_GE(RsvTimeTbl_load(other, nullptr), 0);
        std::string text;
        HashIter iter;
        for (HashEnt *he = h_firstEnt_(&other->entries, &iter); he; he = h_nextEnt_(&iter)) {
            char *line = RsvEnt_ToString(static_cast<RsvEnt *>(he->value));
            text += std::string(line) + "\n";
            std::free(line);
        }
        RsvTimeTbl_free(other);
        return text;
    }

    // Makes the next write of "<file>.tmp" fail to open: a directory holds
    // the name.
    void blockTemporary(const std::string &file) { ASSERT_EQ(mkdir((file + ".tmp").c_str(), 0755), 0); }
    void unblockTemporary(const std::string &file) { ASSERT_EQ(rmdir((file + ".tmp").c_str()), 0); }

    ScopedTz tz{"UTC"};
    PinnedClock clock{localTime(2026, 11, 24, 8)};
    FakeDaemon daemon;
    TempDir dir;
    RsvTimeTbl *tbl = nullptr;
};

TEST_F(DurableTest, ModeSwitchReportsThePreviousMode)
{
    EXPECT_EQ(RsvTimeTbl_isDurable(tbl), 1);
    EXPECT_EQ(RsvTimeTbl_setDurable(tbl, 0), 1);
    EXPECT_EQ(RsvTimeTbl_isDurable(tbl), 0);
    EXPECT_EQ(RsvTimeTbl_setDurable(tbl, 0), 0);
    EXPECT_EQ(RsvTimeTbl_setDurable(nullptr, 1), -1);
    EXPECT_EQ(RsvTimeTbl_isDurable(nullptr), 0);
}

TEST_F(DurableTest, FilesHoldTheSameBytesAsTheDefaultRewrite)
{
    ASSERT_EQ(add("alice", 4, "hostA"), "alice#0");
    ASSERT_EQ(add("bob", 2, "hostB"), "bob#0");
    const std::string durableState = readFile(stateFile());
    const std::string durableIds = readFile(idFile());
    RsvTimeTbl_setDurable(tbl, 0);
    RsvTimeTbl_logStat(tbl);
    EXPECT_EQ(readFile(stateFile()), durableState);
    EXPECT_EQ(readFile(idFile()), durableIds);
    EXPECT_NE(durableIds.find("alice 0 \n bob 0 \n "), std::string::npos) << durableIds;
}

TEST_F(DurableTest, NoTemporaryFileIsLeftBehind)
{
    ASSERT_EQ(add("alice", 4, "hostA"), "alice#0");
    ASSERT_EQ(RsvTimeTbl_removeEntry(tbl, "alice#0"), 0);
    EXPECT_FALSE(fileExists(stateFile() + ".tmp"));
    EXPECT_FALSE(fileExists(idFile() + ".tmp"));
    EXPECT_EQ(readFile(stateFile()), "");
}

TEST_F(DurableTest, SaveWritesBothFilesAndReportsSuccess)
{
    ASSERT_EQ(add("alice", 4, "hostA"), "alice#0");
    std::remove(stateFile().c_str());
    std::remove(idFile().c_str());
    EXPECT_EQ(RsvTimeTbl_save(tbl), RSV_OK);
    EXPECT_NE(readFile(stateFile()).find("alice#0"), std::string::npos);
    EXPECT_EQ(readFile(idFile()), "9.11\n1\nalice 0 \n ");
    EXPECT_EQ(RsvTimeTbl_lastSaveError(tbl, nullptr, nullptr), 0);
}

TEST_F(DurableTest, SaveWithoutAStateFileIsABadArgument)
{
    RsvTimeTbl *nameless = RsvTimeTbl_new(nullptr);
    EXPECT_EQ(RsvTimeTbl_save(nameless), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvTimeTbl_save(nullptr), RSV_ERR_BAD_ARGUMENT);
    RsvTimeTbl_free(nameless);
}

TEST_F(DurableTest, FailedSaveOfAnAddLeavesTableCounterAndFilesAsTheyWere)
{
    ASSERT_EQ(add("alice", 4, "hostA"), "alice#0");
    const std::string state = readFile(stateFile());
    const std::string ids = readFile(idFile());
    const std::vector<int> cells = rsvtest::plannerCells(tbl);
    blockTemporary(stateFile());

    qob_errno = 0;
    EXPECT_EQ(add("alice", 4, "hostA"), "");
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_SAVED);
    const char *file = nullptr;
    const char *step = nullptr;
    EXPECT_EQ(RsvTimeTbl_lastSaveError(tbl, &file, &step), EISDIR);
    EXPECT_EQ(std::string(file), stateFile());
    EXPECT_STREQ(step, "open");
    EXPECT_EQ(readFile(stateFile()), state);
    EXPECT_EQ(readFile(idFile()), ids);
    EXPECT_EQ(rsvtest::plannerCells(tbl), cells);
    EXPECT_EQ(h_numEnts_(&tbl->entries), 1);
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl, "alice#1"), nullptr);
    EXPECT_FALSE(fileExists(idFile() + ".tmp"));

    // The counter did not move: the next add that is kept gets alice#1.
    unblockTemporary(stateFile());
    EXPECT_EQ(add("alice", 4, "hostA"), "alice#1");
    EXPECT_EQ(RsvTimeTbl_lastSaveError(tbl, nullptr, nullptr), 0);
}

TEST_F(DurableTest, FailedRenameOfTheStateFileWritesTheOldIdFileBack)
{
    ASSERT_EQ(add("alice", 4, "hostA"), "alice#0");
    const std::string ids = readFile(idFile());
    // A non-empty directory under the state file's name: the id file is
    // replaced first, then renaming the state file fails.
    std::remove(stateFile().c_str());
    ASSERT_EQ(mkdir(stateFile().c_str(), 0755), 0);
    rsvtest::writeFile(stateFile() + "/keep", "x");

    qob_errno = 0;
    EXPECT_EQ(add("bob", 2, "hostB"), "");
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_SAVED);
    const char *step = nullptr;
    EXPECT_NE(RsvTimeTbl_lastSaveError(tbl, nullptr, &step), 0);
    EXPECT_STREQ(step, "rename");
    EXPECT_EQ(readFile(idFile()), ids);
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl, "bob#0"), nullptr);
    EXPECT_FALSE(fileExists(stateFile() + ".tmp"));

    std::remove((stateFile() + "/keep").c_str());
    rmdir(stateFile().c_str());
}

TEST_F(DurableTest, FailedSaveOfARemovalKeepsTheReservation)
{
    ASSERT_EQ(add("alice", 4, "hostA"), "alice#0");
    ASSERT_EQ(add("bob", 2, "hostA"), "bob#0");
    const std::string state = readFile(stateFile());
    const std::vector<int> cells = rsvtest::plannerCells(tbl);
    blockTemporary(stateFile());

    EXPECT_EQ(RsvTimeTbl_removeEntry(tbl, "alice#0"), RSV_ERR_NOT_SAVED);
    EXPECT_NE(RsvTimeTbl_getEntry(tbl, "alice#0"), nullptr);
    EXPECT_EQ(rsvtest::plannerCells(tbl), cells);
    const char *ids[] = {"bob#0", "alice#0"};
    int failed = 7;
    EXPECT_EQ(RsvTimeTbl_removeEntries(tbl, ids, 2, &failed), RSV_ERR_NOT_SAVED);
    EXPECT_EQ(failed, -1);
    EXPECT_EQ(h_numEnts_(&tbl->entries), 2);
    EXPECT_EQ(rsvtest::plannerCells(tbl), cells);
    EXPECT_EQ(readFile(stateFile()), state);

    // The table still iterates in its old order: the file is rewritten as
    // before once saving works again.
    unblockTemporary(stateFile());
    ASSERT_EQ(RsvTimeTbl_save(tbl), RSV_OK);
    EXPECT_EQ(readFile(stateFile()), state);
}

TEST_F(DurableTest, RemovingSeveralIsOneChange)
{
    ASSERT_EQ(add("alice", 4, "hostA"), "alice#0");
    ASSERT_EQ(add("bob", 2, "hostA"), "bob#0");
    ASSERT_EQ(add("carol", 2, "hostB"), "carol#0");
    const std::string state = readFile(stateFile());

    const char *bad[] = {"alice#0", "nobody#3", "bob#0"};
    int failed = -1;
    EXPECT_EQ(RsvTimeTbl_removeEntries(tbl, bad, 3, &failed), RSV_ERR_NO_RSV);
    EXPECT_EQ(failed, 1);
    const char *twice[] = {"alice#0", "alice#0"};
    EXPECT_EQ(RsvTimeTbl_removeEntries(tbl, twice, 2, &failed), RSV_ERR_NO_RSV);
    EXPECT_EQ(failed, 1);
    EXPECT_EQ(RsvTimeTbl_removeEntries(tbl, bad, 0, &failed), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(readFile(stateFile()), state);
    EXPECT_EQ(h_numEnts_(&tbl->entries), 3);

    const char *good[] = {"carol#0", "alice#0"};
    EXPECT_EQ(RsvTimeTbl_removeEntries(tbl, good, 2, &failed), RSV_OK);
    EXPECT_EQ(h_numEnts_(&tbl->entries), 1);
    EXPECT_NE(RsvTimeTbl_getEntry(tbl, "bob#0"), nullptr);
    EXPECT_TRUE(rsvtest::plannersMatchRebooking(tbl));
    EXPECT_EQ(reloadedStateText(true), readFile(stateFile()));
}

TEST_F(DurableTest, FailedSaveOfEachChangeLeavesEntryAndPlanners)
{
    const time_t start = localTime(2026, 12, 2, 9);
    OwnedReq daily(RSV_OPT_RECURRING, "dora", 2, 2, {"hostA"}, "9:0-11:0");
    char *id = RsvTimeTbl_addEntry(tbl, &daily.req);
    ASSERT_NE(id, nullptr);
    std::free(id);
    ASSERT_EQ(add("alice", 4, "hostA"), "alice#0");
    const std::string state = readFile(stateFile());
    const std::string ids = readFile(idFile());
    const std::vector<int> cells = rsvtest::plannerCells(tbl);
    const std::string aliceLine = [&] {
        char *t = RsvEnt_ToString(RsvTimeTbl_getEntry(tbl, "alice#0"));
        std::string s = t;
        std::free(t);
        return s;
    }();
    blockTemporary(stateFile());

    OwnedModReq move("alice#0", RSV_MOD_TIMEWINDOW, 0, 0, {}, "+60&+60");
    EXPECT_EQ(RsvTimeTbl_modifyTimeWindow(tbl, &move.mod), RSV_ERR_NOT_SAVED);
    EXPECT_STREQ(move.mod.req.timeWindow, "+60&+60");
    OwnedModReq more("alice#0", 0, 2, 2, {"hostB"}, oneOff(start, start + 3600));
    EXPECT_EQ(RsvTimeTbl_addHosts(tbl, &more.mod), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_SAVED);
    OwnedModReq fewer("alice#0", 0, 1, 0, {}, "");
    EXPECT_EQ(RsvTimeTbl_removeHosts(tbl, &fewer.mod, nullptr, RSV_RM_NUMPROCS), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_SAVED);
    EXPECT_EQ(RsvTimeTbl_disableDays(tbl, "dora#0", "2026:12:3"), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_SAVED);
    const char *days[] = {"2026:12:3", "2026:12:5"};
    int failed = 7;
    EXPECT_EQ(RsvTimeTbl_disableDayList(tbl, "dora#0", days, 2, &failed), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_SAVED);
    EXPECT_EQ(failed, -1);
    EXPECT_EQ(RsvTimeTbl_setDescription(tbl, "alice#0", "moved"), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_SAVED);
    RsvEnt *alice = RsvTimeTbl_getEntry(tbl, "alice#0");
    EXPECT_EQ(RsvTimeTbl_activate(tbl, alice), RSV_ERR_NOT_SAVED);
    EXPECT_EQ(alice->activeTime, 0);
    EXPECT_EQ(isRsvActive(alice), 0);

    EXPECT_EQ(rsvtest::plannerCells(tbl), cells);
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl, "dora#0")->disabledDurations, nullptr);
    char *now = RsvEnt_ToString(alice);
    EXPECT_EQ(std::string(now), aliceLine);
    std::free(now);
    EXPECT_EQ(readFile(stateFile()), state);
    EXPECT_EQ(readFile(idFile()), ids);
    EXPECT_TRUE(rsvtest::plannersMatchRebooking(tbl));

    // Each change goes through once the directory is writable again.
    unblockTemporary(stateFile());
    EXPECT_EQ(RsvTimeTbl_modifyTimeWindow(tbl, &move.mod), RSV_OK);
    EXPECT_EQ(RsvTimeTbl_disableDays(tbl, "dora#0", "2026:12:3"), 0);
    // Enabling the day again cannot be saved either: the day stays off.
    blockTemporary(stateFile());
    const std::string offState = readFile(stateFile());
    EXPECT_EQ(RsvTimeTbl_enableDayList(tbl, "dora#0", days, 1, &failed), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_SAVED);
    EXPECT_NE(RsvTimeTbl_getEntry(tbl, "dora#0")->disabledDurations, nullptr);
    EXPECT_EQ(readFile(stateFile()), offState);
    EXPECT_TRUE(rsvtest::plannersMatchRebooking(tbl));
    unblockTemporary(stateFile());
    EXPECT_EQ(RsvTimeTbl_enableDayList(tbl, "dora#0", days, 1, &failed), 0);
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl, "dora#0")->disabledDurations, nullptr);
    EXPECT_EQ(RsvTimeTbl_activate(tbl, alice), RSV_OK);
    EXPECT_EQ(alice->activeTime, clock.now());
    EXPECT_EQ(RsvTimeTbl_deactivate(tbl, alice), RSV_OK);
    EXPECT_EQ(reloadedStateText(true), readFile(stateFile()));
}

TEST_F(DurableTest, SeveralActivationsAreOneChange)
{
    ASSERT_EQ(add("alice", 1, "hostA"), "alice#0");
    ASSERT_EQ(add("bob", 1, "hostA"), "bob#0");
    RsvEnt *ents[] = {RsvTimeTbl_getEntry(tbl, "alice#0"), RsvTimeTbl_getEntry(tbl, "bob#0")};
    const std::string state = readFile(stateFile());
    blockTemporary(stateFile());
    EXPECT_EQ(RsvTimeTbl_activateEntries(tbl, ents, 2), RSV_ERR_NOT_SAVED);
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_SAVED);
    for (RsvEnt *ent : ents) {
        EXPECT_EQ(ent->activeTime, 0);
        EXPECT_EQ(isRsvActive(ent), 0);
    }
    EXPECT_EQ(readFile(stateFile()), state);
    unblockTemporary(stateFile());
    EXPECT_EQ(RsvTimeTbl_activateEntries(tbl, ents, 2), RSV_OK);
    for (RsvEnt *ent : ents) {
        EXPECT_EQ(ent->activeTime, clock.now());
        EXPECT_EQ(isRsvActive(ent), 1);
    }
    EXPECT_EQ(reloadedStateText(true), readFile(stateFile()));
    RsvEnt *withNull[] = {ents[0], nullptr};
    EXPECT_EQ(RsvTimeTbl_activateEntries(tbl, withNull, 2), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvTimeTbl_activateEntries(tbl, nullptr, 1), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvTimeTbl_activateEntries(tbl, ents, 0), RSV_OK);
}

TEST_F(DurableTest, AStateChangeAloneWritesNothing)
{
    ASSERT_EQ(add("alice", 4, "hostA"), "alice#0");
    RsvEnt *alice = RsvTimeTbl_getEntry(tbl, "alice#0");
    blockTemporary(stateFile());
    // Never activated: deactivating changes the state only, which is not
    // written, so it cannot fail.
    EXPECT_EQ(RsvTimeTbl_deactivate(tbl, alice), RSV_OK);
    EXPECT_EQ(alice->state, RSV_STATE_INACTIVE);
    EXPECT_EQ(RsvTimeTbl_activate(nullptr, nullptr), RSV_ERR_BAD_ARGUMENT);
    unblockTemporary(stateFile());
}

TEST_F(DurableTest, AnIdentifierOnceHandedOutIsNotHandedOutAgainAfterARestart)
{
    ASSERT_EQ(add("alice", 1, "hostA"), "alice#0");
    ASSERT_EQ(add("alice", 1, "hostA"), "alice#1");
    ASSERT_EQ(RsvTimeTbl_removeEntry(tbl, "alice#1"), 0);
    RsvTimeTbl_free(tbl);

    RsvId_clearTbl();
    tbl = RsvTimeTbl_new(stateFile().c_str());
    RsvTimeTbl_setDurable(tbl, 1);
    ASSERT_EQ(RsvTimeTbl_load(tbl, nullptr), 1);
    EXPECT_EQ(add("alice", 1, "hostA"), "alice#2");
}

TEST_F(DurableTest, DefaultModeRestartKeepsTheLastRestoredNumber)
{
    // The default restart takes each owner's number from its last
    // reservation in the state file; daemons built for it rely on that.
    ASSERT_EQ(add("alice", 1, "hostA"), "alice#0");
    ASSERT_EQ(add("alice", 1, "hostA"), "alice#1");
    ASSERT_EQ(RsvTimeTbl_removeEntry(tbl, "alice#1"), 0);
    RsvTimeTbl_free(tbl);

    RsvId_clearTbl();
    tbl = RsvTimeTbl_new(stateFile().c_str());
    ASSERT_EQ(RsvTimeTbl_load(tbl, nullptr), 1);
    EXPECT_EQ(add("alice", 1, "hostA"), "alice#1");
}

TEST_F(DurableTest, ACrashBetweenTheTwoFilesNeverReissuesAKeptIdentifier)
{
    ASSERT_EQ(add("alice", 1, "hostA"), "alice#0");
    const std::string oldState = readFile(stateFile());
    ASSERT_EQ(add("alice", 1, "hostA"), "alice#1");
    const std::string newIds = readFile(idFile());

    // The id file is written first: a crash after it and before the state
    // file leaves the new id file with the old state file.
    rsvtest::writeFile(stateFile(), oldState);
    RsvTimeTbl_free(tbl);
    RsvId_clearTbl();
    tbl = RsvTimeTbl_new(stateFile().c_str());
    RsvTimeTbl_setDurable(tbl, 1);
    ASSERT_EQ(RsvTimeTbl_load(tbl, nullptr), 1);
    ASSERT_EQ(readFile(idFile()), newIds);
    // alice#1 was never acknowledged; the number is skipped all the same.
    EXPECT_EQ(add("alice", 1, "hostA"), "alice#2");
    EXPECT_NE(RsvTimeTbl_getEntry(tbl, "alice#0"), nullptr);
}

TEST_F(DurableTest, WrappedCountersAreNotMovedBack)
{
    daemon.setMaxPerOwner(4);
    for (int i = 0; i < 4; ++i)
        ASSERT_EQ(add("alice", 1, "hostA", i), "alice#" + std::to_string(i));
    ASSERT_EQ(RsvTimeTbl_removeEntry(tbl, "alice#0"), 0);
    // The counter wraps round to the free number 0.
    ASSERT_EQ(add("alice", 1, "hostA", 5), "alice#0");
    RsvTimeTbl_free(tbl);

    RsvId_clearTbl();
    tbl = RsvTimeTbl_new(stateFile().c_str());
    RsvTimeTbl_setDurable(tbl, 1);
    ASSERT_EQ(RsvTimeTbl_load(tbl, nullptr), 4);
    ASSERT_EQ(RsvTimeTbl_removeEntry(tbl, "alice#1"), 0);
    EXPECT_EQ(add("alice", 1, "hostA", 6), "alice#1");
}

} // namespace
