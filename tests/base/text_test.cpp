// Tests of the text helpers: whole numbers, digit runs and the quoted-string
// reader of the reservation record.
#include "rsv_test_support.h"

#include <cstring>
#include <string>
#include <vector>

namespace {

// Reads the description back from a record tail as the record reader does:
// the writer puts ' "<text>"' and then the remaining numbers; the reader
// skips the blank and hands the rest to stripQStr.
struct ReadBack {
    int occupied;
    std::string text;
    std::string rest;
};

ReadBack readBack(const std::string &line)
{
    std::vector<char> dst(line.size() + 1, '\x7f');
    const char *src = line.c_str() + 1;
    int k = stripQStr(src, dst.data());
    ReadBack r{k, "", ""};
    if (k >= 0) {
        r.text = dst.data();
        r.rest = std::string(src + k);
    }
    return r;
}

std::string recordTail(const std::string &description)
{
    return " \"" + description + "\" 0 0";
}

} // namespace

TEST(IsInt, AcceptsWholeNumbersWithinInt)
{
    for (const char *text : {"0", "7", "-7", "+7", "2026", "007", "-0", "+0", "2147483647", "-2147483648",
                             "0002147483647", "-0002147483648"})
        EXPECT_EQ(isint_(text), 1) << text;
}

TEST(IsInt, RejectsEverythingElse)
{
    for (const char *text : {"", "+", "-", "+-1", "--1", " 1", "1 ", "1a", "a1", "1.0", "0x10", "1e3",
                             "2147483648", "-2147483649", "99999999999999999999", "12:30", "1,000"})
        EXPECT_EQ(isint_(text), 0) << '"' << text << '"';
    EXPECT_EQ(isint_(nullptr), 0);
}

TEST(IsDigitStr, AcceptsNonEmptyDigitRunsOfAnyLength)
{
    for (const char *text : {"0", "9", "1136102400", "000", "99999999999999999999999999"})
        EXPECT_EQ(isdigitstr_(text), 1) << text;
}

TEST(IsDigitStr, RejectsEmptySignsBlanksAndOtherCharacters)
{
    for (const char *text : {"", "+1", "-1", " 1", "1 ", "1a", "1.5", "12:30", "1136102400-1136188800", "\n"})
        EXPECT_EQ(isdigitstr_(text), 0) << '"' << text << '"';
    EXPECT_EQ(isdigitstr_(nullptr), 0);
}

TEST(StripQStr, CopiesTheQuotedTextAndCountsBothQuotes)
{
    char dst[32];
    EXPECT_EQ(stripQStr("\"night shift\" 0 0", dst), 13);
    EXPECT_STREQ(dst, "night shift");
}

TEST(StripQStr, EmptyQuotedStringOccupiesTwoCharacters)
{
    char dst[8] = "xxxxxxx";
    EXPECT_EQ(stripQStr("\"\" 0 0", dst), 2);
    EXPECT_STREQ(dst, "");
}

TEST(StripQStr, ClosingQuoteIsTheLastOneOnTheLine)
{
    char dst[64];
    EXPECT_EQ(stripQStr("\"say \"hi\" now\" 0 0", dst), 14);
    EXPECT_STREQ(dst, "say \"hi\" now");
}

TEST(StripQStr, StopsAtTheLineEnd)
{
    char dst[64];
    EXPECT_EQ(stripQStr("\"first\" 0 0\n\"second\" 0 0", dst), 7);
    EXPECT_STREQ(dst, "first");
}

TEST(StripQStr, BackslashIsAnOrdinaryCharacter)
{
    char dst[64];
    EXPECT_EQ(stripQStr("\"a\\\" b\\\\\" 1", dst), 9);
    EXPECT_STREQ(dst, "a\\\" b\\\\");
}

TEST(StripQStr, RejectsTextNotStartingWithAQuoteAndLeavesDstUntouched)
{
    for (const char *src : {"", "abc\"", " \"abc\"", "'abc'", "0 0"}) {
        char dst[16] = "untouched";
        EXPECT_LT(stripQStr(src, dst), 0) << src;
        EXPECT_STREQ(dst, "untouched");
    }
}

TEST(StripQStr, RejectsAMissingClosingQuoteAndLeavesDstUntouched)
{
    for (const char *src : {"\"", "\"abc", "\"abc 0 0", "\"abc\n\" 0 0"}) {
        char dst[16] = "untouched";
        EXPECT_LT(stripQStr(src, dst), 0) << src;
        EXPECT_STREQ(dst, "untouched");
    }
}

TEST(StripQStr, NullArgumentsAreRejected)
{
    char dst[4];
    EXPECT_LT(stripQStr(nullptr, dst), 0);
    EXPECT_LT(stripQStr("\"a\"", nullptr), 0);
}

TEST(StripQStr, DstOfStrlenSrcBytesIsEnough)
{
    const char *src = "\"abcdef\"";
    std::vector<char> dst(std::strlen(src));
    EXPECT_EQ(stripQStr(src, dst.data()), 8);
    EXPECT_STREQ(dst.data(), "abcdef");
}

class StripQStrRoundTrip : public ::testing::TestWithParam<const char *> {};

TEST_P(StripQStrRoundTrip, DescriptionReadsBackAsWrittenAndTheNumbersFollow)
{
    std::string description = GetParam();
    ReadBack r = readBack(recordTail(description));
    ASSERT_GE(r.occupied, 0) << description;
    EXPECT_EQ(r.text, description);
    EXPECT_EQ(r.occupied, static_cast<int>(description.size()) + 2);
    EXPECT_EQ(r.rest, " 0 0");
}

INSTANTIATE_TEST_SUITE_P(Descriptions, StripQStrRoundTrip,
                         ::testing::Values("", "night shift", "\"", "\"\"", "say \"hi\"", "\"quoted\"",
                                           "ends with quote\"", "back\\slash", "trailing\\", "\\\"",
                                           "a\" 5 6", "12 34", "0 0", "1 \"2\" 3", "  spaced  ",
                                           "tab\there"));

TEST(StripQStr, RoundTripWithDisabledDurationsAfterTheDescription)
{
    std::string line = " \"maint \"A\" 2\" 1 9 5 0 126 10 6 0 126 0";
    ReadBack r = readBack(line);
    EXPECT_EQ(r.text, "maint \"A\" 2");
    EXPECT_EQ(r.rest, " 1 9 5 0 126 10 6 0 126 0");
}
