// Tests of logging and the message catalogue.
#include "rsv_test_support.h"

#include <string>

using rsvtest::LogCapture;

namespace {

std::vector<std::pair<int, std::string>> received;
void recordingSink(int level, const char *line)
{
    received.emplace_back(level, line);
}

} // namespace

TEST(Log, LogClassStartsAtZero)
{
    EXPECT_EQ(logclass, 0);
}

TEST(Log, CatalogueReturnsTheDefaultText)
{
    ASSERT_NE(kx_catd, nullptr);
    const char *text = "%s: cannot find the planner list of <%s>";
    EXPECT_EQ(kx_catgets(kx_catd, 37, 6100, text), text);
    EXPECT_EQ(kx_catgets(kx_catd, 33, 1, "%s: %s() failed."), std::string("%s: %s() failed."));
    EXPECT_EQ(kx_catgets(nullptr, 0, 0, "x"), std::string("x"));
    EXPECT_EQ(kx_catgets(kx_catd, 1, 2, nullptr), nullptr);
}

TEST(Log, SinkReceivesTheFormattedLineAndItsLevel)
{
    LogCapture log;
    kx_syslog(KX_LOG_ERR, kx_catgets(kx_catd, 33, 1, "%s: %s() failed."), "RsvEnt_ToString", "calloc");
    kx_syslog(KX_LOG_WARNING, "%s: value <%d>", "f", -3);
    kx_syslog(KX_LOG_DEBUG, "%s: Entering this routine...", "g");
    kx_syslog(KX_LOG_DETAIL, "plain");
    ASSERT_EQ(log.lines().size(), 4u);
    EXPECT_EQ(log.lines()[0].level, KX_LOG_ERR);
    EXPECT_EQ(log.lines()[0].text, "RsvEnt_ToString: calloc() failed.");
    EXPECT_EQ(log.lines()[1].level, KX_LOG_WARNING);
    EXPECT_EQ(log.lines()[1].text, "f: value <-3>");
    EXPECT_EQ(log.lines()[2].level, KX_LOG_DEBUG);
    EXPECT_EQ(log.lines()[2].text, "g: Entering this routine...");
    EXPECT_EQ(log.lines()[3].level, KX_LOG_DETAIL);
    EXPECT_EQ(log.lines()[3].text, "plain");
}

TEST(Log, TrailingLineEndsAreDropped)
{
    LogCapture log;
    kx_syslog(KX_LOG_ERR, "%s: done\n", "f");
    kx_syslog(KX_LOG_ERR, "two\r\n\n");
    kx_syslog(KX_LOG_ERR, "inner\nkept");
    ASSERT_EQ(log.lines().size(), 3u);
    EXPECT_EQ(log.lines()[0].text, "f: done");
    EXPECT_EQ(log.lines()[1].text, "two");
    EXPECT_EQ(log.lines()[2].text, "inner\nkept");
}

TEST(Log, LongMessagesArriveWhole)
{
    LogCapture log;
    std::string longText(100000, 'x');
    kx_syslog(KX_LOG_ERR, "%s: the reservation string <%s> has the wrong format", "RsvEnt_newByString",
              longText.c_str());
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].text, "RsvEnt_newByString: the reservation string <" + longText +
                                       "> has the wrong format");
}

TEST(Log, MessageOfExactlyTheStackBufferSize)
{
    LogCapture log;
    for (size_t n : {1022u, 1023u, 1024u, 1025u}) {
        std::string text(n, 'y');
        kx_syslog(KX_LOG_DEBUG, "%s", text.c_str());
        ASSERT_FALSE(log.lines().empty());
        EXPECT_EQ(log.lines().back().text, text) << n;
    }
}

TEST(Log, NullFormatLogsNothing)
{
    LogCapture log;
    kx_syslog(KX_LOG_ERR, kx_catgets(kx_catd, 1, 1, nullptr));
    EXPECT_TRUE(log.lines().empty());
}

TEST(Log, SetLogSinkReturnsThePreviousSink)
{
    KxLogSink original = kx_setLogSink(recordingSink);
    EXPECT_NE(original, nullptr); // the default sink, usable for chaining
    EXPECT_EQ(kx_setLogSink(nullptr), recordingSink);
    KxLogSink restoredDefault = kx_setLogSink(recordingSink);
    EXPECT_EQ(restoredDefault, original);
    received.clear();
    kx_syslog(KX_LOG_WARNING, "%s: %d", "n", 5);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].first, KX_LOG_WARNING);
    EXPECT_EQ(received[0].second, "n: 5");
    kx_setLogSink(original);
}

TEST(Log, DefaultSinkWritesLevelNameAndLineToStandardError)
{
    kx_setLogSink(nullptr);
    ::testing::internal::CaptureStderr();
    kx_syslog(KX_LOG_ERR, "%s: failed", "a");
    kx_syslog(KX_LOG_WARNING, "%s: careful", "b");
    kx_syslog(KX_LOG_DEBUG, "%s: Entering...", "c");
    kx_syslog(KX_LOG_DETAIL, "%s: cell", "d");
    kx_syslog(6, "other");
    std::string out = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(out, "err: a: failed\n"
                   "warning: b: careful\n"
                   "debug: c: Entering...\n"
                   "detail: d: cell\n"
                   "level 6: other\n");
}

TEST(Log, CaptureRestoresThePreviousSink)
{
    kx_setLogSink(recordingSink);
    {
        LogCapture log;
        kx_syslog(KX_LOG_ERR, "inside");
        EXPECT_TRUE(log.contains(KX_LOG_ERR, "inside"));
    }
    received.clear();
    kx_syslog(KX_LOG_ERR, "outside");
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].second, "outside");
    kx_setLogSink(nullptr);
}
