// The C++ face: owners release what the contracts say, results carry the
// module's error numbers.
#include "rsv.hpp"

#include "rsv_test_support.h"

namespace {

using rsvtest::FakeDaemon;
using rsvtest::OwnedReq;
using rsvtest::PinnedClock;
using rsvtest::ScopedTz;
using rsvtest::localTime;
using rsvtest::oneOff;

class CppFaceTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        daemon.addHost("hostA", 8);
        RsvId_clearTbl();
    }
    void TearDown() override { RsvId_clearTbl(); }
    ScopedTz tz{"UTC"};
    PinnedClock clock{localTime(2026, 11, 24, 8)};
    FakeDaemon daemon;
    rsvtest::LogCapture log;
};

TEST_F(CppFaceTest, AddFindReplyAndRemove)
{
    rsv::Table tbl(RsvTimeTbl_new(nullptr));
    const time_t start = localTime(2026, 12, 1, 9);
    OwnedReq req(0, "alice", 4, 4, {"hostA"}, oneOff(start, start + 3600), "morning");
    auto id = rsv::addEntry(tbl.get(), req.req);
    ASSERT_TRUE(id) << id.error();
    EXPECT_EQ(id.value(), "alice#0");
    RsvEnt *ent = rsv::findEntry(tbl.get(), std::string_view("alice#0xyz").substr(0, 7));
    ASSERT_NE(ent, nullptr);
    EXPECT_NE(rsv::recordText(ent).find(" alice#0 alice "), std::string::npos);

    rsv::InfoReply reply;
    ASSERT_EQ(reply.fill(tbl.get()), RSV_OK);
    ASSERT_EQ(reply.size(), 1);
    EXPECT_STREQ(reply[0].rsvId, "alice#0");
    int seen = 0;
    for (const RsvInfoEnt &info : reply)
        seen += info.numHosts;
    EXPECT_EQ(seen, 1);

    EXPECT_EQ(rsv::removeEntry(tbl.get(), "alice#0"), RSV_OK);
    EXPECT_EQ(rsv::removeEntry(tbl.get(), "alice#0"), RSV_ERR_NO_RSV);
}

TEST_F(CppFaceTest, FailureCarriesTheErrorNumber)
{
    rsv::Table tbl(RsvTimeTbl_new(nullptr));
    const time_t start = localTime(2026, 12, 1, 9);
    OwnedReq req(0, "alice", 9, 9, {"hostA"}, oneOff(start, start + 3600));
    auto id = rsv::addEntry(tbl.get(), req.req);
    EXPECT_FALSE(id);
    EXPECT_EQ(id.error(), RSV_ERR_NOT_ENOUGH_SLOTS);
    EXPECT_EQ(rsv::Result<int>::failure(RSV_OK).error(), RSV_ERR_BAD_ARGUMENT);
}

TEST_F(CppFaceTest, OwnedEntryAndSaveError)
{
    rsv::Entry ent(RsvEnt_newByString("9.11 5 0 a#1 a 1-2 0 0 c \"\" 0 0"));
    ASSERT_TRUE(ent);
    EXPECT_STREQ(ent->creator, "c");
    rsv::Table tbl(RsvTimeTbl_new(nullptr));
    const rsv::SaveError none = rsv::lastSaveError(tbl.get());
    EXPECT_EQ(none.error, 0);
    EXPECT_EQ(none.file, "");
}

} // namespace
