// The state file: its rewrite after every change and the start-up load.
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>

#include <string>

#include "persist_test_util.h"
#include "rsv_test_support.h"


using namespace rsvtest;
using namespace persisttest;

namespace {

class StateFileTest : public ::testing::Test {
protected:
    StateFileTest() : clock(localTime(2023, 11, 14, 9, 0)), tz("UTC")
    {
        daemon.addHost("hostA", 8);
        daemon.addHost("hostB", 8);
        tbl = RsvTimeTbl_new(dir.file("rsv.state").c_str());
        window = oneOff(localTime(2023, 11, 15, 10, 0), localTime(2023, 11, 15, 12, 0));
    }
    ~StateFileTest() override { RsvTimeTbl_free(tbl); }

    void put(RsvTimeTbl *t, EntryPtr ent)
    {
        HashEnt *he = h_addEnt_(&t->entries, ent->rsvId, nullptr);
        he->value = ent.release();
    }
    std::string add(const std::string &owner, int procs, const char *description = nullptr)
    {
        OwnedReq r(0, owner, procs, procs, {"hostA", "hostB"}, window, description);
        char *id = RsvTimeTbl_addEntry(tbl, &r.req);
        std::string out = id ? id : "<NULL>";
        std::free(id);
        return out;
    }
    std::string stateText() { return readFile(tbl->stateFile); }

    FakeDaemon daemon;
    PinnedClock clock;
    ScopedTz tz;
    TempDir dir;
    LogCapture log;
    RsvTimeTbl *tbl = nullptr;
    std::string window;
};

} // namespace

TEST_F(StateFileTest, EmptyTableGivesEmptyFileAndStillRewritesIdFile)
{
    writeFile(tbl->stateFile, "old contents\n");
    RsvTimeTbl_logStat(tbl);
    EXPECT_TRUE(fileExists(tbl->stateFile));
    EXPECT_EQ(stateText(), "");
    EXPECT_EQ(readFile(tbl->idFile), "9.11\n0\n");
}

TEST_F(StateFileTest, OneLinePerEntryInTableOrder)
{
    put(tbl, makeEntry("b#0", "b", "1-2", {{"hostA", 1}}, "x"));
    put(tbl, makeEntry("a#0", "a", "1-2", {}, "", "d"));
    RsvTimeTbl_logStat(tbl);
    EXPECT_EQ(stateText(), "9.11 1699952400 0 b#0 b 1-2 1 0 hostA 1 x \"\" 0 0\n"
                           "9.11 1699952400 0 a#0 a 1-2 0 0  \"d\" 0 0\n");
}

TEST_F(StateFileTest, EntriesKeyedWithAtAreLeftOut)
{
    put(tbl, makeEntry("a#0", "a", "1-2", {}));
    put(tbl, makeEntry("x@cluster", "a", "1-2", {}));
    put(tbl, makeEntry("b#0", "b", "1-2", {}));
    RsvTimeTbl_logStat(tbl);
    const std::string text = stateText();
    EXPECT_NE(text.find(" a#0 "), std::string::npos);
    EXPECT_NE(text.find(" b#0 "), std::string::npos);
    EXPECT_EQ(text.find('@'), std::string::npos);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
}

TEST_F(StateFileTest, UnwritableStateFileIsReportedWith6105AndIdFileUntouched)
{
    // The state file's name is taken by a directory.
    ASSERT_EQ(mkdir(tbl->stateFile, 0700), 0);
    writeFile(tbl->idFile, "untouched");
    put(tbl, makeEntry("a#0", "a", "1-2", {}));
    RsvTimeTbl_logStat(tbl);
    EXPECT_TRUE(log.contains(KX_LOG_ERR, "RsvTimeTbl_logStat: failed to open " + std::string(tbl->stateFile) +
                                             " for writing"));
    EXPECT_EQ(readFile(tbl->idFile), "untouched");
}

TEST_F(StateFileTest, StateFileInMissingDirectoryIsReported)
{
    RsvTimeTbl *other = RsvTimeTbl_new(dir.file("nodir/rsv.state").c_str());
    RsvTimeTbl_logStat(other);
    EXPECT_TRUE(log.contains(KX_LOG_ERR, "RsvTimeTbl_logStat: failed to open " + dir.file("nodir/rsv.state") +
                                             " for writing"));
    EXPECT_FALSE(log.contains("RsvTimeTbl_logId"));
    RsvTimeTbl_free(other);
}

TEST_F(StateFileTest, EntryThatCannotBeWrittenIsSkippedAndLogged)
{
    put(tbl, makeEntry("a#0", "a", "1-2", {}));
    put(tbl, makeEntry("b#0", "b", "1-2", {}));
    daemon.failAfter(1); // the second record's buffer cannot be had
    RsvTimeTbl_logStat(tbl);
    daemon.failAfter(-1);
    EXPECT_EQ(stateText(), "9.11 1699952400 0 a#0 a 1-2 0 0  \"\" 0 0\n");
    EXPECT_TRUE(log.contains(KX_LOG_ERR, "RsvTimeTbl_logStat: reservation <b#0> could not be written to " +
                                             std::string(tbl->stateFile) + "; its line is left out"));
}

TEST_F(StateFileTest, TraceOnlyWithDebugClass)
{
    RsvTimeTbl_logStat(tbl);
    EXPECT_FALSE(log.contains("Entering"));
    logclass = LC_RSV;
    RsvTimeTbl_logStat(tbl);
    logclass = 0;
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "RsvTimeTbl_logStat: Entering..."));
}

TEST_F(StateFileTest, EveryLineReadsBackIntoAnEqualEntry)
{
    ASSERT_EQ(add("alice", 2, "first one"), "alice#0");
    ASSERT_EQ(add("bob", 3), "bob#0");
    ASSERT_EQ(add("alice", 1, "with \"quotes\" inside"), "alice#1");
    std::string text = stateText();
    size_t start = 0;
    int lines = 0;
    for (size_t nl; (nl = text.find('\n', start)) != std::string::npos; start = nl + 1) {
        EntryPtr back(RsvEnt_newByString(text.substr(start, nl - start).c_str()));
        ASSERT_TRUE(back);
        EXPECT_TRUE(entriesEqual(RsvTimeTbl_getEntry(tbl, back->rsvId), back.get()));
        ++lines;
    }
    EXPECT_EQ(lines, 3);
}

TEST_F(StateFileTest, AddAndRemoveRewriteTheFile)
{
    ASSERT_EQ(add("alice", 2), "alice#0");
    EXPECT_NE(stateText().find(" alice#0 "), std::string::npos);
    EXPECT_EQ(RsvTimeTbl_removeEntry(tbl, "alice#0"), 0);
    EXPECT_EQ(stateText(), "");
}

TEST_F(StateFileTest, ActivationWritesTheFileExactlyWhenActiveTimeChanges)
{
    ASSERT_EQ(add("alice", 2), "alice#0");
    RsvEnt *ent = RsvTimeTbl_getEntry(tbl, "alice#0");
    ASSERT_NE(ent, nullptr);
    const std::string stateFile = tbl->stateFile;

    clock.set(localTime(2023, 11, 15, 10, 0));
    std::remove(stateFile.c_str());
    setRsvActive(tbl, ent);
    ASSERT_TRUE(fileExists(stateFile));
    EXPECT_NE(stateText().find(" " + std::to_string(localTime(2023, 11, 15, 10, 0)) + "\n"), std::string::npos);

    std::remove(stateFile.c_str());
    clock.advance(600);
    setRsvActive(tbl, ent); // already active: the first activation time stays
    EXPECT_FALSE(fileExists(stateFile));

    setRsvInactive(tbl, ent);
    ASSERT_TRUE(fileExists(stateFile));
    EXPECT_EQ(stateText().substr(stateText().size() - 3), " 0\n");

    std::remove(stateFile.c_str());
    setRsvInactive(tbl, ent); // already inactive: nothing changes
    EXPECT_FALSE(fileExists(stateFile));
}

// ------------------------------------------------------------------ load --

TEST_F(StateFileTest, LoadWithoutStateFileRestoresNothing)
{
    int rejected = -1;
    EXPECT_EQ(RsvTimeTbl_load(tbl, &rejected), 0);
    EXPECT_EQ(rejected, 0);
    EXPECT_EQ(h_numEnts_(&tbl->entries), 0);
    EXPECT_NE(rsvIdTbl, nullptr);
}

TEST_F(StateFileTest, LoadSkipsBadLinesAndReportsTheirNumbers)
{
    writeFile(tbl->stateFile, "9.11 1 0 a#0 a 1-2 1 0 hostA 2 c \"\" 0 0\n"
                              "garbage\n"
                              "\n"
                              "9.11 1 0 b#3 b 1-2 1 0 hostB 1 c \"\" 0 0\n"
                              "9.11 1 0 c#0 c 1-2 1 0 hostB x\n"
                              "9.11 1 0 d#0 d 1-2 1 0 hostA 1 c \"\" 0 0");
    int rejected = 0;
    EXPECT_EQ(RsvTimeTbl_load(tbl, &rejected), 3);
    EXPECT_EQ(rejected, 2);
    EXPECT_NE(RsvTimeTbl_getEntry(tbl, "a#0"), nullptr);
    EXPECT_NE(RsvTimeTbl_getEntry(tbl, "b#3"), nullptr);
    EXPECT_NE(RsvTimeTbl_getEntry(tbl, "d#0"), nullptr);
    EXPECT_TRUE(log.contains(KX_LOG_ERR, "RsvTimeTbl_load: line 2 of " + std::string(tbl->stateFile) + " rejected"));
    EXPECT_TRUE(log.contains(KX_LOG_ERR, "RsvTimeTbl_load: line 5 of " + std::string(tbl->stateFile) + " rejected"));
    EXPECT_TRUE(plannersMatchRebooking(tbl));
}

TEST_F(StateFileTest, LoadDropsEntryWithoutHostsButAdvancesItsCounter)
{
    writeFile(tbl->stateFile, "9.11 1 0 a#4 a 1-2 0 0 c \"\" 0 0\n");
    int rejected = -1;
    EXPECT_EQ(RsvTimeTbl_load(tbl, &rejected), 0);
    EXPECT_EQ(rejected, 0);
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl, "a#4"), nullptr);
    HashEnt *he = h_getEnt_(rsvIdTbl, "a");
    ASSERT_NE(he, nullptr);
    EXPECT_EQ(reinterpret_cast<intptr_t>(he->value), 4);
    EXPECT_TRUE(log.contains(KX_LOG_WARNING, "reservation <a#4> holds no hosts and is dropped"));
}

TEST_F(StateFileTest, LoadRejectsASecondRecordOfOneIdentifier)
{
    writeFile(tbl->stateFile, "9.11 1 0 a#0 a 1-2 1 0 hostA 2 c \"\" 0 0\n"
                              "9.11 1 0 a#0 a 1-2 1 0 hostB 5 c \"\" 0 0\n");
    int rejected = 0;
    EXPECT_EQ(RsvTimeTbl_load(tbl, &rejected), 1);
    EXPECT_EQ(rejected, 1);
    EXPECT_STREQ(RsvTimeTbl_getEntry(tbl, "a#0")->allocVector[0].hostName, "hostA");
    EXPECT_TRUE(log.contains(KX_LOG_ERR, "line 2 of " + std::string(tbl->stateFile) +
                                             " rejected: reservation <a#0> is already loaded"));
    EXPECT_TRUE(plannersMatchRebooking(tbl));
}

TEST_F(StateFileTest, LoadRejectsALineHoldingANulByte)
{
    std::string line = "9.11 1 0 a#0 a 1-2 1 0 hostA 2 c \"\" 0 0";
    line += '\0';
    line += "junk\n";
    writeFile(tbl->stateFile, line);
    int rejected = 0;
    EXPECT_EQ(RsvTimeTbl_load(tbl, &rejected), 0);
    EXPECT_EQ(rejected, 1);
}

TEST_F(StateFileTest, LoadReadsLinesOfAnyLength)
{
    const std::string description(10000, 'x');
    writeFile(tbl->stateFile, "9.11 1 0 a#0 a 1-2 1 0 hostA 2 c \"" + description + "\" 0 0\n");
    EXPECT_EQ(RsvTimeTbl_load(tbl, nullptr), 1);
    EXPECT_EQ(std::string(RsvTimeTbl_getEntry(tbl, "a#0")->description), description);
}

TEST_F(StateFileTest, LoadOfUnreadableStateFileIsMinusOne)
{
    ASSERT_EQ(mkdir(tbl->stateFile, 0700), 0);
    int rejected = -1;
    EXPECT_EQ(RsvTimeTbl_load(tbl, &rejected), -1);
    EXPECT_EQ(rejected, 0);
    EXPECT_TRUE(log.contains(KX_LOG_ERR, "RsvTimeTbl_load: failed to read " + std::string(tbl->stateFile)));
}

TEST_F(StateFileTest, LoadTakesCountersFromIdFileThenFromRestoredEntries)
{
    writeFile(tbl->idFile, "9.11\n2\nalice 9 \n bob 4 \n ");
    writeFile(tbl->stateFile, "9.11 1 0 alice#2 alice 1-2 1 0 hostA 2 c \"\" 0 0\n");
    EXPECT_EQ(RsvTimeTbl_load(tbl, nullptr), 1);
    EXPECT_EQ(reinterpret_cast<intptr_t>(h_getEnt_(rsvIdTbl, "alice")->value), 2);
    EXPECT_EQ(reinterpret_cast<intptr_t>(h_getEnt_(rsvIdTbl, "bob")->value), 4);
}

TEST_F(StateFileTest, LoadOfNullTableIsMinusOne)
{
    int rejected = 5;
    EXPECT_EQ(RsvTimeTbl_load(nullptr, &rejected), -1);
    EXPECT_EQ(rejected, 0);
}
