// Reservation identifiers, the per-owner counters and the id file.
#include <string>

#include "persist_test_util.h"
#include "rsv_test_support.h"


using namespace rsvtest;
using namespace persisttest;

namespace {

// The owner's stored counter, or -1 when the owner is unknown.
int counter(const char *owner)
{
    if (!rsvIdTbl)
        return -1;
    HashEnt *he = h_getEnt_(rsvIdTbl, owner);
    return he ? static_cast<int>(reinterpret_cast<intptr_t>(he->value)) : -1;
}

class RsvIdTest : public ::testing::Test {
protected:
    RsvIdTest() : clock(localTime(2023, 11, 14, 9, 0)), tz("UTC")
    {
        tbl = RsvTimeTbl_new(dir.file("rsv.state").c_str());
    }
    ~RsvIdTest() override { RsvTimeTbl_free(tbl); }

    // Put a reservation straight into the table, as if restored.
    void put(const std::string &id, const std::string &owner)
    {
        HashEnt *he = h_addEnt_(&tbl->entries, id.c_str(), nullptr);
        he->value = makeEntry(id, owner, "1000-2000", {}).release();
    }
    std::string newId(const std::string &owner, int options = 0)
    {
        OwnedReq r(options, owner, 1, 1, {}, "1000-2000");
        char *id = RsvId_new(tbl, &r.req);
        std::string out = id ? id : "<NULL>";
        std::free(id);
        return out;
    }

    FakeDaemon daemon;
    PinnedClock clock;
    ScopedTz tz;
    TempDir dir;
    LogCapture log;
    RsvTimeTbl *tbl = nullptr;
};

} // namespace

TEST_F(RsvIdTest, FirstIdentifierOfAnOwnerIsZeroThenCounts)
{
    EXPECT_EQ(newId("alice"), "alice#0");
    EXPECT_EQ(counter("alice"), 0);
    put("alice#0", "alice");
    EXPECT_EQ(newId("alice"), "alice#1");
    EXPECT_EQ(counter("alice"), 1);
}

TEST_F(RsvIdTest, OwnerWithoutReservationsTakesCandidateUnchecked)
{
    RsvId_setCur("alice#6");
    EXPECT_EQ(newId("alice"), "alice#7");
}

TEST_F(RsvIdTest, OwnerAtTheLimitIsRefusedWith6104)
{
    daemon.setMaxPerOwner(3);
    put("alice#0", "alice");
    put("alice#1", "alice");
    put("alice#2", "alice");
    RsvId_setCur("alice#2");
    EXPECT_EQ(newId("alice"), "<NULL>");
    EXPECT_EQ(counter("alice"), 2);
    EXPECT_TRUE(log.contains(KX_LOG_ERR, "RsvId_new: Too many reservations for <alice> in the system; can't accept "
                                         "any new reservatoin for the moment"));
}

TEST_F(RsvIdTest, CounterWrapsAndSkipsIdentifiersInUse)
{
    daemon.setMaxPerOwner(3);
    put("alice#0", "alice");
    put("alice#2", "alice");
    RsvId_setCur("alice#2");
    EXPECT_EQ(newId("alice"), "alice#1");
    EXPECT_EQ(counter("alice"), 1);
}

TEST_F(RsvIdTest, ClashesMoveTheCandidateOnUntilFree)
{
    put("alice#0", "alice");
    put("alice#1", "alice");
    EXPECT_EQ(newId("alice"), "alice#2");
}

TEST_F(RsvIdTest, OtherOwnersIdentifiersUnderThisWordAreSkippedInTheTable)
{
    put("alice#0", "alice");
    put("alice#5", "alice");
    put("alice#1", "bob");
    EXPECT_EQ(newId("alice"), "alice#2");
}

// With one reservation of its own the search stops right after a clash: the
// table is consulted once only, and the daemon's identifiers depend on it.
TEST_F(RsvIdTest, SingleOwnReservationChecksTheTableOnlyOnce)
{
    put("alice#0", "alice");
    put("alice#1", "bob");
    EXPECT_EQ(newId("alice"), "alice#1");
}

TEST_F(RsvIdTest, OutOfRangeLimitsBehaveAsOneHundred)
{
    logclass = LC_RSV;
    for (int limit : {0, 20000, -5}) {
        daemon.setMaxPerOwner(limit);
        log.clear();
        newId("carol");
        EXPECT_TRUE(log.contains(KX_LOG_DEBUG,
                                 "RsvId_new: the max advance reservation for one user or user gropu is 100"))
            << limit;
    }
    daemon.setMaxPerOwner(10000);
    log.clear();
    newId("carol");
    EXPECT_TRUE(log.contains("is 10000"));
    logclass = 0;
}

TEST_F(RsvIdTest, LimitOfZeroRefusesTheHundredthFirst)
{
    daemon.setMaxPerOwner(0);
    for (int i = 0; i < 99; ++i)
        put("alice#" + std::to_string(i), "alice");
    RsvId_setCur("alice#98");
    EXPECT_EQ(newId("alice"), "alice#99");
    put("alice#99", "alice");
    EXPECT_EQ(newId("alice"), "<NULL>");
}

TEST_F(RsvIdTest, DebugClassLogsEveryTableIdentifier)
{
    put("alice#0", "alice");
    newId("alice");
    EXPECT_FALSE(log.contains("tbl:- rsvId"));
    logclass = LC_RSV;
    newId("alice");
    logclass = 0;
    EXPECT_TRUE(log.contains(KX_LOG_DETAIL, "RsvId_new: tbl:- rsvId: <alice#0>"));
}

TEST_F(RsvIdTest, SystemReservationIsNamedSystemButAdvancesTheOwnersCounter)
{
    EXPECT_EQ(newId("bob", RSV_OPT_SYSTEM), "system#0");
    EXPECT_EQ(counter("bob"), 0);
    EXPECT_EQ(counter("system"), -1);
    EXPECT_EQ(newId("bob", RSV_OPT_SYSTEM), "system#1");
}

TEST_F(RsvIdTest, NameOnlyRequestKeepsItsOwnIdentifier)
{
    OwnedReq r(RSV_OPT_NAME_ONLY, "alice", 1, 1, {}, "1000-2000");
    r.req.rsvId = strdup("wanted");
    char *id = RsvId_new(tbl, &r.req);
    ASSERT_NE(id, nullptr);
    EXPECT_STREQ(id, "wanted");
    std::free(id);
    EXPECT_EQ(counter("alice"), 0);
}

TEST_F(RsvIdTest, LongOwnerIdentifierIsCut)
{
    const std::string owner(600, 'o');
    const std::string id = newId(owner);
    EXPECT_EQ(id.size(), 521u);
    EXPECT_EQ(id, owner.substr(0, 521));
}

TEST_F(RsvIdTest, AllocationFailureGivesNull)
{
    daemon.failAfter(1); // the counter table succeeds, the used array fails
    EXPECT_EQ(newId("alice"), "<NULL>");
    daemon.failAfter(-1);
}

TEST_F(RsvIdTest, SetCurRecordsTheNumberAndTheLastOneWins)
{
    RsvId_setCur("alice#7");
    EXPECT_EQ(counter("alice"), 7);
    RsvId_setCur("alice#3");
    EXPECT_EQ(counter("alice"), 3);
    RsvId_setCur("system#4");
    EXPECT_EQ(counter("system"), 4);
}

TEST_F(RsvIdTest, SetCurWithoutHashChangesNothing)
{
    RsvId_setCur("alice");
    EXPECT_EQ(counter("alice"), -1);
    RsvId_setCur(nullptr);
    EXPECT_EQ(counter("alice"), -1);
}

TEST_F(RsvIdTest, ClearForgetsEveryCounter)
{
    RsvId_setCur("alice#7");
    RsvId_clearTbl();
    EXPECT_EQ(rsvIdTbl, nullptr);
    EXPECT_EQ(newId("alice"), "alice#0");
}

// ------------------------------------------------------------------ file --

TEST_F(RsvIdTest, IdFileBytesWithoutCounterTable)
{
    RsvId_clearTbl();
    RsvTimeTbl_logId(tbl);
    EXPECT_EQ(readFile(tbl->idFile), "9.11\n0\n");
}

TEST_F(RsvIdTest, IdFileBytesEndInABlank)
{
    RsvId_setCur("alice#3");
    RsvId_setCur("bob#0");
    RsvTimeTbl_logId(tbl);
    EXPECT_EQ(readFile(tbl->idFile), "9.11\n2\nalice 3 \n bob 0 \n ");
}

TEST_F(RsvIdTest, IdFileThatCannotBeWrittenIsReportedWith6114)
{
    RsvTimeTbl *other = RsvTimeTbl_new(dir.file("missing/rsv.state").c_str());
    RsvTimeTbl_logId(other);
    EXPECT_TRUE(log.contains(KX_LOG_ERR, "RsvTimeTbl_logId: failed to open " + dir.file("missing/rsv.ids") +
                                             " for writing"));
    RsvTimeTbl_free(other);
}

TEST_F(RsvIdTest, IdFileReadsBackWhatWasWritten)
{
    RsvId_setCur("alice#3");
    RsvId_setCur("bob#9");
    RsvTimeTbl_logId(tbl);
    RsvId_clearTbl();
    initRsvIdTbl(tbl->idFile);
    EXPECT_EQ(counter("alice"), 3);
    EXPECT_EQ(counter("bob"), 9);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(RsvIdTest, CountLimitsTheRecordsRead)
{
    writeFile(dir.file("a.ids"), "9.11\n2\nalice 1 \n bob 2 \n carol 3 \n ");
    initRsvIdTbl(dir.file("a.ids").c_str());
    EXPECT_EQ(counter("alice"), 1);
    EXPECT_EQ(counter("bob"), 2);
    EXPECT_EQ(counter("carol"), -1);
}

TEST_F(RsvIdTest, ShortFileStopsAtItsEnd)
{
    writeFile(dir.file("a.ids"), "9.11\n3\nalice 1 \n bob 2 \n ");
    initRsvIdTbl(dir.file("a.ids").c_str());
    EXPECT_EQ(counter("alice"), 1);
    EXPECT_EQ(counter("bob"), 2);
    EXPECT_EQ(h_numEnts_(rsvIdTbl), 2);
}

TEST_F(RsvIdTest, MalformedRecordIsSkippedWith6115)
{
    writeFile(dir.file("a.ids"), "9.11\n4\nalice 1\nbroken\n bob x\ncarol 5\n");
    initRsvIdTbl(dir.file("a.ids").c_str());
    EXPECT_EQ(counter("alice"), 1);
    EXPECT_EQ(counter("carol"), 5);
    EXPECT_EQ(counter("broken"), -1);
    EXPECT_TRUE(log.contains(KX_LOG_ERR, "initRsvIdTbl: failed to convert line 3 <broken>, skip the line"));
    EXPECT_TRUE(log.contains(KX_LOG_ERR, "initRsvIdTbl: failed to convert line 3 < bob x>, skip the line"));
}

TEST_F(RsvIdTest, LaterRecordOfAnOwnerOverwrites)
{
    writeFile(dir.file("a.ids"), "9.11\n2\nalice 8\nalice 2\n");
    initRsvIdTbl(dir.file("a.ids").c_str());
    EXPECT_EQ(counter("alice"), 2);
}

TEST_F(RsvIdTest, OverLongOwnerWordIsMalformed)
{
    writeFile(dir.file("a.ids"), "9.11\n1\n" + std::string(3000, 'o') + " 1\n");
    initRsvIdTbl(dir.file("a.ids").c_str());
    EXPECT_EQ(h_numEnts_(rsvIdTbl), 0);
    EXPECT_TRUE(log.contains(KX_LOG_ERR, "failed to convert line 2"));
}

TEST_F(RsvIdTest, MissingFileLeavesCountersAndLogsOnlyForFileClass)
{
    RsvId_setCur("alice#4");
    initRsvIdTbl(dir.file("none.ids").c_str());
    EXPECT_EQ(counter("alice"), 4);
    EXPECT_TRUE(log.lines().empty());
    logclass = LC_FILE;
    initRsvIdTbl(dir.file("none.ids").c_str());
    logclass = 0;
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG,
                             "initRsvIdTbl: failed to open <" + dir.file("none.ids") + "> for reading: "));
}

TEST_F(RsvIdTest, FileWithoutCountLineLoadsNothing)
{
    writeFile(dir.file("a.ids"), "9.11\n");
    initRsvIdTbl(dir.file("a.ids").c_str());
    EXPECT_NE(rsvIdTbl, nullptr);
    EXPECT_EQ(h_numEnts_(rsvIdTbl), 0);
}

// ------------------------------------------------------- through the table --

class RsvIdTableTest : public RsvIdTest {
protected:
    RsvIdTableTest()
    {
        daemon.addHost("hostA", 100);
        window = oneOff(localTime(2023, 11, 15, 10, 0), localTime(2023, 11, 15, 12, 0));
    }
    std::string add(const std::string &owner)
    {
        OwnedReq r(0, owner, 1, 1, {"hostA"}, window);
        char *id = RsvTimeTbl_addEntry(tbl, &r.req);
        std::string out = id ? id : "<NULL>";
        std::free(id);
        return out;
    }
    std::string window;
};

TEST_F(RsvIdTableTest, PerOwnerLimitOfThreeWrapsAroundAfterARemoval)
{
    daemon.setMaxPerOwner(3);
    EXPECT_EQ(add("alice"), "alice#0");
    EXPECT_EQ(add("alice"), "alice#1");
    EXPECT_EQ(add("alice"), "alice#2");
    qob_errno = 0;
    EXPECT_EQ(add("alice"), "<NULL>");
    EXPECT_EQ(qob_errno, RSV_ERR_NO_RSV_ID);
    EXPECT_EQ(RsvTimeTbl_removeEntry(tbl, "alice#1"), 0);
    EXPECT_EQ(add("alice"), "alice#1"); // 2 + 1 wraps to 0, in use, so 1
    EXPECT_EQ(RsvTimeTbl_removeEntry(tbl, "alice#0"), 0);
    EXPECT_EQ(add("alice"), "alice#0");
}

TEST_F(RsvIdTableTest, IdFileBytesAfterAddsAndRemoves)
{
    EXPECT_EQ(add("alice"), "alice#0");
    EXPECT_EQ(add("bob"), "bob#0");
    EXPECT_EQ(add("alice"), "alice#1");
    EXPECT_EQ(readFile(tbl->idFile), "9.11\n2\nalice 1 \n bob 0 \n ");
    EXPECT_EQ(RsvTimeTbl_removeEntry(tbl, "alice#1"), 0);
    // A removal does not lower the counter.
    EXPECT_EQ(readFile(tbl->idFile), "9.11\n2\nalice 1 \n bob 0 \n ");
    EXPECT_EQ(add("carol"), "carol#0");
    EXPECT_EQ(add("alice"), "alice#2");
    EXPECT_EQ(readFile(tbl->idFile), "9.11\n3\nalice 2 \n bob 0 \n carol 0 \n ");
}
