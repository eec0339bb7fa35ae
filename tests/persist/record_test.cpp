// The reservation record text: exact writer output, the reader's version
// thresholds and failure messages, and round trips.
#include <climits>
#include <string>

#include "persist_test_util.h"
#include "rsv_test_support.h"

using namespace rsvtest;
using namespace persisttest;

namespace {

constexpr time_t kNow = 1700000000;

class RecordTest : public ::testing::Test {
protected:
    RecordTest() : clock(kNow), tz("UTC")
    {
        daemon.addHost("hostA", 8);
        daemon.addHost("hostB", 8, -1, {"b-alias"});
        daemon.addHost("hostC", 8);
    }
    EntryPtr read(const std::string &text) { return EntryPtr(RsvEnt_newByString(text.c_str())); }

    FakeDaemon daemon;
    PinnedClock clock;
    ScopedTz tz;
    LogCapture log;
};

const std::string kWrong = "RsvEnt_newByString: the reservation string <";

} // namespace

// ---------------------------------------------------------------- writer --

TEST_F(RecordTest, NoHostsNoDescriptionNeverActive)
{
    auto ent = makeEntry("alice#0", "alice", "1000-2000", {}, "carol");
    EXPECT_EQ(toString(ent.get()), "9.11 1700000000 0 alice#0 alice 1000-2000 0 0 carol \"\" 0 0");
}

TEST_F(RecordTest, EmptyCreatorLeavesTwoBlanksBeforeDescription)
{
    auto ent = makeEntry("alice#0", "alice", "1000-2000", {});
    EXPECT_EQ(toString(ent.get()), "9.11 1700000000 0 alice#0 alice 1000-2000 0 0  \"\" 0 0");
}

TEST_F(RecordTest, OneHostWithDescription)
{
    auto ent = makeEntry("bob#3", "bob", "1000-2000", {{"hostA", 4}}, "", "nightly build");
    ent->auxValue = 17;
    EXPECT_EQ(toString(ent.get()), "9.11 1700000000 0 bob#3 bob 1000-2000 1 17 hostA 4  \"nightly build\" 0 0");
}

TEST_F(RecordTest, ThreeHostsDisabledDurationsAndActiveTime)
{
    auto ent = makeEntry("grp#1", "grp", "8:0-17:30", {{"hostA", 4}, {"hostB", 2}, {"hostC", 1}}, "root",
                         "weekly maintenance", RSV_OPT_RECURRING);
    addDuration(ent.get(), {24, 5, 10, 2023}, {26, 0, 10, 2023});
    addDuration(ent.get(), {1, 5, 11, 2023}, {1, 5, 11, 2023});
    ent->activeTime = 1700000600;
    EXPECT_EQ(toString(ent.get()),
              "9.11 1700000000 8 grp#1 grp 8:0-17:30 3 0 hostA 4 hostB 2 hostC 1 root \"weekly maintenance\" 2 "
              "24 5 10 2023 26 0 10 2023 1 5 11 2023 1 5 11 2023 1700000600");
}

TEST_F(RecordTest, ThreeHostsWithoutDescription)
{
    auto ent = makeEntry("grp#2", "grp", "1000-2000", {{"hostA", 4}, {"hostB", 2}, {"hostC", 1}});
    EXPECT_EQ(toString(ent.get()), "9.11 1700000000 0 grp#2 grp 1000-2000 3 0 hostA 4 hostB 2 hostC 1  \"\" 0 0");
}

TEST_F(RecordTest, ElementsWithoutHostAreLeftOutAndTheLineReadsBack)
{
    // Adding hosts can leave trailing elements with no host and no slots.
    auto ent = makeEntry("grp#3", "grp", "1000-2000", {{"hostA", 4}, {"hostB", 2}, {"hostC", 1}});
    free(ent->allocVector[1].hostName);
    ent->allocVector[1].hostName = nullptr;
    ent->allocVector[1].numSlots = 0;
    const std::string text = toString(ent.get());
    EXPECT_EQ(text, "9.11 1700000000 0 grp#3 grp 1000-2000 2 0 hostA 4 hostC 1  \"\" 0 0");
    auto back = read(text);
    ASSERT_NE(back, nullptr);
    ASSERT_EQ(back->numHosts, 2);
    EXPECT_STREQ(back->allocVector[0].hostName, "hostA");
    EXPECT_STREQ(back->allocVector[1].hostName, "hostC");
    EXPECT_EQ(back->allocVector[1].numSlots, 1);
}

TEST_F(RecordTest, ActiveTimeZeroOrNegativeIsWrittenAsZero)
{
    auto ent = makeEntry("a#1", "a", "1-2", {});
    ent->activeTime = -5;
    EXPECT_EQ(toString(ent.get()), "9.11 1700000000 0 a#1 a 1-2 0 0  \"\" 0 0");
    ent->activeTime = 42;
    EXPECT_EQ(toString(ent.get()), "9.11 1700000000 0 a#1 a 1-2 0 0  \"\" 0 42");
}

TEST_F(RecordTest, EmptyDisabledListIsWrittenAsZero)
{
    auto ent = makeEntry("a#1", "a", "1-2", {});
    ent->disabledDurations = listCreate("disabledDurations");
    EXPECT_EQ(toString(ent.get()), "9.11 1700000000 0 a#1 a 1-2 0 0  \"\" 0 0");
}

TEST_F(RecordTest, DescriptionWithQuotesIsWrittenUnchanged)
{
    auto ent = makeEntry("a#1", "a", "1-2", {}, "", "say \"hi\" now");
    EXPECT_EQ(toString(ent.get()), "9.11 1700000000 0 a#1 a 1-2 0 0  \"say \"hi\" now\" 0 0");
}

TEST_F(RecordTest, LineBreakInDescriptionIsWrittenAsBlank)
{
    auto ent = makeEntry("a#1", "a", "1-2", {}, "", "two\nlines\r");
    EXPECT_EQ(toString(ent.get()), "9.11 1700000000 0 a#1 a 1-2 0 0  \"two lines \" 0 0");
}

TEST_F(RecordTest, CreateTimeIsWrittenAsThirtyTwoBitInt)
{
    auto ent = makeEntry("a#1", "a", "1-2", {});
    ent->createTime = -12;
    EXPECT_EQ(toString(ent.get()), "9.11 -12 0 a#1 a 1-2 0 0  \"\" 0 0");
}

TEST_F(RecordTest, ManyHostsGrowTheBuffer)
{
    std::vector<Host> hosts;
    std::string expected = "9.11 1700000000 0 a#1 a 1-2 200 0";
    for (int i = 0; i < 200; ++i) {
        hosts.push_back({"host" + std::to_string(i), i});
        expected += " host" + std::to_string(i) + " " + std::to_string(i);
    }
    std::string longDesc(3000, 'd');
    auto ent = makeEntry("a#1", "a", "1-2", hosts, "", longDesc.c_str());
    for (int i = 0; i < 50; ++i)
        addDuration(ent.get(), {1, 0, 0, 2030}, {2, 1, 0, 2030});
    expected += "  \"" + longDesc + "\" 50";
    for (int i = 0; i < 50; ++i)
        expected += " 1 0 0 2030 2 1 0 2030";
    expected += " 0";
    EXPECT_EQ(toString(ent.get()), expected);
}

TEST_F(RecordTest, LongHostNameIsWrittenWhole)
{
    std::string host(100, 'h');
    auto ent = makeEntry("a#1", "a", "1-2", {{host, 3}});
    EXPECT_EQ(toString(ent.get()), "9.11 1700000000 0 a#1 a 1-2 1 0 " + host + " 3  \"\" 0 0");
}

TEST_F(RecordTest, WriterAllocationFailureLogsBufferSize)
{
    auto ent = makeEntry("alice#0", "alice", "1-2", {});
    daemon.failAfter(0);
    EXPECT_EQ(RsvEnt_ToString(ent.get()), nullptr);
    daemon.failAfter(-1);
    // strlen("alice") + strlen("alice#0") + 512
    EXPECT_TRUE(log.contains(KX_LOG_ERR, "RsvEnt_ToString: failed to allocate memory (<524> bytes) for sbuf"));
}

TEST_F(RecordTest, WriterDescriptionScratchFailureSetsNoMemory)
{
    auto ent = makeEntry("alice#0", "alice", "1-2", {}, "", "text");
    qob_errno = 0;
    daemon.failAfter(1);
    EXPECT_EQ(RsvEnt_ToString(ent.get()), nullptr);
    daemon.failAfter(-1);
    EXPECT_EQ(qob_errno, RSV_ERR_NO_MEMORY);
    EXPECT_TRUE(log.contains(KX_LOG_ERR, "RsvEnt_ToString: calloc() failed."));
}

TEST_F(RecordTest, WriterTraceOnlyWithDebugClass)
{
    auto ent = makeEntry("a#1", "a", "1-2", {});
    toString(ent.get());
    EXPECT_FALSE(log.contains("Entering"));
    logclass = LC_TRACE;
    toString(ent.get());
    logclass = 0;
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "RsvEnt_ToString: Entering..."));
}

TEST_F(RecordTest, NullEntryGivesNull)
{
    EXPECT_EQ(RsvEnt_ToString(nullptr), nullptr);
}

// ---------------------------------------------------------------- reader --

TEST_F(RecordTest, ReadsCurrentRecordCompletely)
{
    auto ent = read("9.11 1600000000 8 grp#1 grp 8:0-17:30 2 5 hostA 4 b-alias 2 root \"weekly job\" 1 "
                    "24 5 10 2023 26 0 10 2023 1700000600");
    ASSERT_TRUE(ent);
    EXPECT_EQ(ent->createTime, 1600000000);
    EXPECT_EQ(ent->options, 8);
    EXPECT_STREQ(ent->rsvId, "grp#1");
    EXPECT_STREQ(ent->name, "grp");
    EXPECT_STREQ(ent->timeWindow, "8:0-17:30");
    EXPECT_EQ(ent->duration, RsvTimeWindow_toDuration("8:0-17:30"));
    EXPECT_EQ(ent->auxValue, 5);
    ASSERT_EQ(ent->numHosts, 2);
    EXPECT_STREQ(ent->allocVector[0].hostName, "hostA");
    EXPECT_EQ(ent->allocVector[0].numSlots, 4);
    EXPECT_STREQ(ent->allocVector[1].hostName, "hostB"); // alias replaced by the official name
    EXPECT_EQ(ent->allocVector[1].numSlots, 2);
    EXPECT_STREQ(ent->creator, "root");
    EXPECT_STREQ(ent->description, "weekly job");
    EXPECT_EQ(durationsText(ent.get()), "[24,5,10,2023;26,0,10,2023]");
    EXPECT_EQ(ent->activeTime, 1700000600);
    EXPECT_STREQ(ent->version, "9.11");
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(RecordTest, UnknownHostIsKeptAsWritten)
{
    auto ent = read("9.11 1 0 a#1 a 1-2 1 0 nosuchhost 3 c \"\" 0 0");
    ASSERT_TRUE(ent);
    EXPECT_STREQ(ent->allocVector[0].hostName, "nosuchhost");
}

TEST_F(RecordTest, EmptyCreatorAfterHostsKeepsDescriptionDurationsAndActiveTime)
{
    auto ent = read("9.11 1 8 a#1 a 8:0-9:0 1 0 hostA 4  \"my text\" 1 1 2 3 2030 4 5 6 2030 99");
    ASSERT_TRUE(ent);
    EXPECT_STREQ(ent->creator, "");
    EXPECT_STREQ(ent->description, "my text");
    EXPECT_EQ(durationsText(ent.get()), "[1,2,3,2030;4,5,6,2030]");
    EXPECT_EQ(ent->activeTime, 99);
}

TEST_F(RecordTest, EmptyCreatorWithoutHostsKeepsDescription)
{
    auto ent = read("9.11 1 0 a#1 a 1-2 0 0  \"d e\" 0 7");
    ASSERT_TRUE(ent);
    EXPECT_STREQ(ent->creator, "");
    EXPECT_STREQ(ent->description, "d e");
    EXPECT_EQ(ent->activeTime, 7);
}

TEST_F(RecordTest, CreatorWithoutHostsIsRead)
{
    auto ent = read("9.11 1 0 a#1 a 1-2 0 0 carol \"d\" 0 7");
    ASSERT_TRUE(ent);
    EXPECT_STREQ(ent->creator, "carol");
    EXPECT_STREQ(ent->description, "d");
}

TEST_F(RecordTest, DescriptionWithQuotesReadsBackWhole)
{
    auto ent = read("9.11 1 0 a#1 a 1-2 0 0  \"say \"hi\" now\" 0 0");
    ASSERT_TRUE(ent);
    EXPECT_STREQ(ent->description, "say \"hi\" now");
}

TEST_F(RecordTest, EmptyQuotedDescriptionReadsAsNone)
{
    auto ent = read("9.11 1 0 a#1 a 1-2 0 0 c \"\" 0 0");
    ASSERT_TRUE(ent);
    EXPECT_EQ(ent->description, nullptr);
}

TEST_F(RecordTest, CreateAndActiveTimesAreSignExtended)
{
    auto ent = read("9.11 -100 0 a#1 a 1-2 0 0 c \"\" 0 -3");
    ASSERT_TRUE(ent);
    EXPECT_EQ(ent->createTime, -100);
    EXPECT_EQ(ent->activeTime, -3);
}

TEST_F(RecordTest, OldSevenValueHeaderWarnsAndZeroesAuxValue)
{
    const std::string text = "9.11 5 0 a#1 a 1-2 1 hostA 4 c \"\" 0 0";
    auto ent = read(text);
    ASSERT_TRUE(ent);
    EXPECT_EQ(ent->auxValue, 0);
    ASSERT_EQ(ent->numHosts, 1);
    EXPECT_STREQ(ent->allocVector[0].hostName, "hostA");
    EXPECT_TRUE(log.contains(KX_LOG_WARNING,
                             "RsvEnt_newByString: the reservation string <" + text + "> has the old format"));
}

TEST_F(RecordTest, OldHeaderWithNoHostsAndNothingMore)
{
    auto ent = read("5.0 5 0 a#1 a 1-2 0");
    ASSERT_TRUE(ent);
    EXPECT_EQ(ent->numHosts, 0);
    EXPECT_TRUE(log.contains(KX_LOG_WARNING, "has the old format"));
}

// A daemon reading such records has always taken the digits as the eighth
// header value; the format cannot tell them apart.
TEST_F(RecordTest, OldHeaderWithDigitLeadingHostTakesDigitsAsAuxValue)
{
    auto ent = read("5.0 5 0 a#1 a 1-2 1 12host 4");
    ASSERT_TRUE(ent);
    EXPECT_EQ(ent->auxValue, 12);
    ASSERT_EQ(ent->numHosts, 1);
    EXPECT_STREQ(ent->allocVector[0].hostName, "host");
    EXPECT_EQ(ent->allocVector[0].numSlots, 4);
    EXPECT_FALSE(log.contains("old format"));
}

TEST_F(RecordTest, FewerThanSevenHeaderValuesIsWrongFormat6111)
{
    const std::string text = "9.11 5 0 a#1 a 1-2";
    EXPECT_FALSE(read(text));
    EXPECT_TRUE(log.contains(KX_LOG_ERR, kWrong + text + "> has the wrong format"));
}

TEST_F(RecordTest, NonNumericHeaderValueIsWrongFormat6111)
{
    const std::string text = "9.11 now 0 a#1 a 1-2 0 0 c \"\" 0 0";
    EXPECT_FALSE(read(text));
    EXPECT_TRUE(log.contains(KX_LOG_ERR, kWrong + text + "> has the wrong format"));
}

TEST_F(RecordTest, EmptyTextIsWrongFormat6111)
{
    EXPECT_FALSE(read(""));
    EXPECT_TRUE(log.contains(KX_LOG_ERR, kWrong + "> has the wrong format"));
    EXPECT_FALSE(RsvEnt_newByString(nullptr));
}

TEST_F(RecordTest, NegativeHostCountIsWrongFormat6111)
{
    const std::string text = "9.11 5 0 a#1 a 1-2 -1 0 c \"\" 0 0";
    EXPECT_FALSE(read(text));
    EXPECT_TRUE(log.contains(KX_LOG_ERR, kWrong + text + "> has the wrong format"));
}

TEST_F(RecordTest, BadHostIsWrongFormat6112WithRestOfRecord)
{
    EXPECT_FALSE(read("9.11 5 0 a#1 a 1-2 2 0 hostA 4 hostB x c \"\" 0 0"));
    EXPECT_TRUE(log.contains(KX_LOG_ERR, kWrong + "hostB x c \"\" 0 0> has the wrong format"));
}

TEST_F(RecordTest, NegativeSlotCountIsWrongFormat6112)
{
    EXPECT_FALSE(read("9.11 5 0 a#1 a 1-2 1 0 hostA -4 c \"\" 0 0"));
    EXPECT_TRUE(log.contains(KX_LOG_ERR, kWrong + " hostA -4 c \"\" 0 0> has the wrong format"));
}

TEST_F(RecordTest, HugeHostCountFailsWithoutHugeAllocation)
{
    EXPECT_FALSE(read("9.11 5 0 a#1 a 1-2 2000000000 0 hostA 4 c \"\" 0 0"));
    EXPECT_TRUE(log.contains(KX_LOG_ERR, "has the wrong format"));
}

TEST_F(RecordTest, MissingCreatorIsWrongFormat6113)
{
    EXPECT_FALSE(read("9.11 5 0 a#1 a 1-2 1 0 hostA 4"));
    EXPECT_TRUE(log.contains(KX_LOG_ERR, kWrong + "> has the wrong format"));
}

TEST_F(RecordTest, Version50ReadsUpToTheHostsOnly)
{
    auto ent = read("5.0 5 0 a#1 a 1-2 1 0 hostA 4 carol \"d\" 0 9");
    ASSERT_TRUE(ent);
    EXPECT_STREQ(ent->creator, "");
    EXPECT_EQ(ent->description, nullptr);
    EXPECT_EQ(ent->activeTime, 0);
    EXPECT_STREQ(ent->version, "9.11");
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(RecordTest, Version50WithoutCreatorIsComplete)
{
    auto ent = read("5.0 5 0 a#1 a 1-2 1 0 hostA 4");
    ASSERT_TRUE(ent);
    EXPECT_EQ(ent->numHosts, 1);
}

TEST_F(RecordTest, Version51AddsTheCreator)
{
    auto ent = read("5.1 5 0 a#1 a 1-2 1 0 hostA 4 carol \"d\" 0 9");
    ASSERT_TRUE(ent);
    EXPECT_STREQ(ent->creator, "carol");
    EXPECT_EQ(ent->description, nullptr);
    EXPECT_EQ(ent->activeTime, 0);
}

TEST_F(RecordTest, Version702StopsAfterTheCreator)
{
    auto ent = read("7.02 5 0 a#1 a 1-2 1 0 hostA 4 carol \"d\" 1 1 2 3 4 5 6 7 8 9");
    ASSERT_TRUE(ent);
    EXPECT_STREQ(ent->creator, "carol");
    EXPECT_EQ(ent->description, nullptr);
    EXPECT_EQ(ent->disabledDurations, nullptr);
    EXPECT_EQ(ent->activeTime, 0);
}

TEST_F(RecordTest, Version703ReadsEverything)
{
    auto ent = read("7.03 5 0 a#1 a 1-2 1 0 hostA 4 carol \"d\" 1 1 2 3 4 5 6 7 8 9");
    ASSERT_TRUE(ent);
    EXPECT_STREQ(ent->description, "d");
    EXPECT_EQ(durationsText(ent.get()), "[1,2,3,4;5,6,7,8]");
    EXPECT_EQ(ent->activeTime, 9);
    EXPECT_STREQ(ent->version, "9.11");
}

TEST_F(RecordTest, NonNumericVersionCountsAsZero)
{
    auto ent = read("vX 5 0 a#1 a 1-2 1 0 hostA 4 carol");
    ASSERT_TRUE(ent);
    EXPECT_STREQ(ent->creator, "");
    EXPECT_STREQ(ent->version, "9.11");
}

TEST_F(RecordTest, EndingAfterCreatorGivesPartialEntry6117)
{
    auto ent = read("9.11 5 0 a#1 a 1-2 1 0 hostA 4 carol");
    ASSERT_TRUE(ent);
    EXPECT_STREQ(ent->creator, "carol");
    EXPECT_EQ(ent->description, nullptr);
    EXPECT_TRUE(log.contains(KX_LOG_WARNING, "RsvEnt_newByString: missing data for reservation <a#1>, "
                                             "initializing the reservation with the available data"));
}

TEST_F(RecordTest, UnquotedDescriptionGivesPartialEntry)
{
    auto ent = read("9.11 5 0 a#1 a 1-2 1 0 hostA 4 carol text 0 0");
    ASSERT_TRUE(ent);
    EXPECT_EQ(ent->description, nullptr);
    EXPECT_EQ(ent->activeTime, 0);
    EXPECT_TRUE(log.contains(KX_LOG_WARNING, "missing data for reservation <a#1>"));
}

TEST_F(RecordTest, MissingActiveTimeIsWrongFormat6113)
{
    EXPECT_FALSE(read("9.11 5 0 a#1 a 1-2 1 0 hostA 4 carol \"d\" 0"));
    EXPECT_TRUE(log.contains(KX_LOG_ERR, kWrong + "> has the wrong format"));
}

TEST_F(RecordTest, MissingDurationCountIsWrongFormat6113)
{
    EXPECT_FALSE(read("9.11 5 0 a#1 a 1-2 1 0 hostA 4 carol \"d\" x 0"));
    EXPECT_TRUE(log.contains(KX_LOG_ERR, kWrong + "x 0> has the wrong format"));
}

TEST_F(RecordTest, ShortDisabledDurationIsWrongFormat6113)
{
    EXPECT_FALSE(read("9.11 5 0 a#1 a 1-2 1 0 hostA 4 carol \"d\" 2 1 2 3 4 5 6 7 8 1 2 3"));
    EXPECT_TRUE(log.contains(KX_LOG_ERR, kWrong + "1 2 3> has the wrong format"));
}

TEST_F(RecordTest, HugeDurationCountFailsQuickly)
{
    EXPECT_FALSE(read("9.11 5 0 a#1 a 1-2 1 0 hostA 4 carol \"d\" 2000000000 1 2 3 4 5 6 7 8 0"));
    EXPECT_TRUE(log.contains(KX_LOG_ERR, "has the wrong format"));
}

TEST_F(RecordTest, OverLongWordsAreWrongFormatNotOverflow)
{
    const std::string longVersion(200, '9');
    EXPECT_FALSE(read(longVersion + " 5 0 a#1 a 1-2 0 0 c \"\" 0 0"));
    const std::string longId(2000, 'i');
    EXPECT_FALSE(read("9.11 5 0 " + longId + " a 1-2 0 0 c \"\" 0 0"));
    const std::string longWindow(100, '1');
    EXPECT_FALSE(read("9.11 5 0 a#1 a " + longWindow + " 0 0 c \"\" 0 0"));
    const std::string longHost(1024, 'h');
    EXPECT_FALSE(read("9.11 5 0 a#1 a 1-2 1 0 " + longHost + " 1 c \"\" 0 0"));
    const std::string longCreator(40, 'c');
    EXPECT_FALSE(read("9.11 5 0 a#1 a 1-2 0 0 " + longCreator + " \"\" 0 0"));
    int wrong = 0;
    for (auto &l : log.lines())
        wrong += l.text.find("has the wrong format") != std::string::npos;
    EXPECT_EQ(wrong, 5);
}

TEST_F(RecordTest, LongestWordsThatFitAreRead)
{
    const std::string host(1023, 'h');
    const std::string creator(39, 'c');
    auto ent = read("9.11 5 0 a#1 a 1-2 1 0 " + host + " 1 " + creator + " \"\" 0 0");
    ASSERT_TRUE(ent);
    EXPECT_EQ(std::string(ent->allocVector[0].hostName), host);
    EXPECT_EQ(std::string(ent->creator), creator);
}

TEST_F(RecordTest, OutOfRangeNumberIsWrongFormat)
{
    EXPECT_FALSE(read("9.11 99999999999 0 a#1 a 1-2 0 0 c \"\" 0 0"));
    EXPECT_TRUE(log.contains(KX_LOG_ERR, "has the wrong format"));
    auto ent = read("9.11 -2147483648 2147483647 a#1 a 1-2 0 0 c \"\" 0 0");
    ASSERT_TRUE(ent);
    EXPECT_EQ(ent->createTime, INT_MIN);
    EXPECT_EQ(ent->options, INT_MAX);
}

TEST_F(RecordTest, RecordsEndingAtEveryPointNeverReadPastTheEnd)
{
    // Each prefix is copied into a block of its own size, so a read beyond
    // the terminator shows up under the address checker.
    const std::string full = "9.11 5 0 a#1 a 1-2 2 0 hostA 4 hostB 2  \"d\" 1 1 2 3 4 5 6 7 8 9";
    for (size_t n = 0; n <= full.size(); ++n) {
        std::unique_ptr<char[]> copy(new char[n + 1]);
        std::memcpy(copy.get(), full.data(), n);
        copy[n] = '\0';
        EntryPtr ent(RsvEnt_newByString(copy.get()));
        if (n == full.size()) {
            ASSERT_TRUE(ent);
            EXPECT_EQ(ent->activeTime, 9);
        }
    }
}

TEST_F(RecordTest, ReaderAllocationFailureOfEntrySetsNoMemory)
{
    qob_errno = 0;
    daemon.failAfter(0);
    EXPECT_FALSE(read("9.11 5 0 a#1 a 1-2 0 0 c \"\" 0 0"));
    daemon.failAfter(-1);
    EXPECT_EQ(qob_errno, RSV_ERR_NO_MEMORY);
    EXPECT_TRUE(log.contains(KX_LOG_ERR, "RsvEnt_newByString: calloc() failed."));
}

// Every allocation of the reader failing in turn: no crash, no leak (the
// sanitizer build checks), and once enough succeed, the full entry.
TEST_F(RecordTest, ReaderSurvivesEveryAllocationFailure)
{
    const std::string text = "9.11 5 8 a#1 a 8:0-9:0 2 0 hostA 4 zz 2 c \"desc\" 1 1 2 3 4 5 6 7 8 9";
    for (int n = 0; n < 40; ++n) {
        daemon.failAfter(n);
        EntryPtr ent(RsvEnt_newByString(text.c_str()));
        daemon.failAfter(-1);
        if (ent) {
            EXPECT_STREQ(ent->description, "desc");
            EXPECT_EQ(ent->activeTime, 9);
            return;
        }
        // Every shortage is told as one, the disabled durations' included.
        EXPECT_EQ(qob_errno, RSV_ERR_NO_MEMORY) << "allocation " << n;
        qob_errno = 0;
    }
    FAIL() << "never succeeded";
}

TEST_F(RecordTest, WriterSurvivesEveryAllocationFailure)
{
    auto ent = makeEntry("a#1", "a", "1-2", {{"hostA", 1}}, "", "desc");
    const std::string expected = toString(ent.get());
    for (int n = 0; n < 5; ++n) {
        daemon.failAfter(n);
        char *text = RsvEnt_ToString(ent.get());
        daemon.failAfter(-1);
        if (text) {
            EXPECT_EQ(expected, text);
            std::free(text);
            return;
        }
    }
    FAIL() << "never succeeded";
}

// ------------------------------------------------------------ round trip --

TEST_F(RecordTest, RoundTripGivesEqualEntryAndText)
{
    std::vector<EntryPtr> entries;
    entries.push_back(makeEntry("a#0", "a", "1000-2000", {}));
    entries.push_back(makeEntry("a#1", "a", "1000-2000", {{"hostA", 3}}, "carol", "one two"));
    entries.push_back(makeEntry("system#4", "bob", "5:18:0-1:8:0", {{"hostA", 3}, {"hostB", 1}, {"hostC", 8}}, "",
                                "say \"x\"", RSV_OPT_SYSTEM | RSV_OPT_RECURRING));
    addDuration(entries.back().get(), {3, 1, 0, 2031}, {9, 0, 0, 2031});
    entries.back()->activeTime = 1700000123;
    entries.back()->auxValue = -7;
    for (auto &ent : entries) {
        const std::string text = toString(ent.get());
        auto back = read(text);
        ASSERT_TRUE(back) << text;
        EXPECT_TRUE(entriesEqual(ent.get(), back.get()));
        EXPECT_EQ(toString(back.get()), text);
    }
    EXPECT_TRUE(log.lines().empty());
}
