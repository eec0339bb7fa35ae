// Disabled durations: date texts, the sorted and merged list, pruning, the
// per-week day flags, the readable day ranges and the exported date checker.
#include "rsv_test_support.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using rsvtest::FakeDaemon;
using rsvtest::localTime;
using rsvtest::LogCapture;
using rsvtest::PinnedClock;
using rsvtest::ScopedTz;

namespace {

// The clock stands on Wednesday 14 January 2026 unless a test moves it.

tmDay day(int year, int month1, int mday)
{
    return tmDay{mday, 0, month1 - 1, year};
}

RsvDisableDuration *newDuration(const tmDay &first, const tmDay &last)
{
    auto *rec = static_cast<RsvDisableDuration *>(calloc(1, sizeof(RsvDisableDuration)));
    rec->firstDay = first;
    rec->lastDay = last;
    return rec;
}

RsvDisableDuration *newDuration(int month1, int firstDay, int lastDay)
{
    return newDuration(day(2026, month1, firstDay), day(2026, month1, lastDay));
}

std::string dayText(const tmDay &d)
{
    return std::to_string(d.year) + "-" + std::to_string(d.mon + 1) + "-" + std::to_string(d.mday);
}

// The entry's list as "Y-M-D..Y-M-D" texts in list order.
std::vector<std::string> durations(const RsvEnt *ent)
{
    std::vector<std::string> out;
    if (ent->disabledDurations == nullptr)
        return out;
    for (ListEntry *e = ent->disabledDurations->forw; e != reinterpret_cast<ListEntry *>(ent->disabledDurations);
         e = e->forw) {
        auto *d = reinterpret_cast<RsvDisableDuration *>(e);
        out.push_back(dayText(d->firstDay) + ".." + dayText(d->lastDay));
    }
    return out;
}

using Texts = std::vector<std::string>;

struct Entry {
    RsvEnt *ent;
    Entry(int options, const char *window, const char *id = "alice#1") : ent(RsvEnt_new(options, "alice", window))
    {
        ent->rsvId = strdup(id);
    }
    ~Entry()
    {
        RsvEnt_destroy(ent);
        free(ent);
    }
    int add(int month1, int first, int last) { return addDurationToDisabledList(ent, newDuration(month1, first, last)); }
};

class DisabledTest : public ::testing::TestWithParam<const char *> {
protected:
    ScopedTz tz{GetParam()};
    FakeDaemon daemon;
    PinnedClock clock{localTime(2026, 1, 14, 12)};

    // fillInRsvDisableDurationDate on a writable copy.
    int fill(const char *text, tmDay *out, int colons, int checkPast = 0)
    {
        std::string copy = text;
        return fillInRsvDisableDurationDate(copy.data(), out, colons, checkPast);
    }
};

INSTANTIATE_TEST_SUITE_P(Zones, DisabledTest, ::testing::Values("UTC", "America/New_York"),
                         [](const auto &info) {
                             std::string name = info.param;
                             for (auto &c : name)
                                 if (c == '/')
                                     c = '_';
                             return name;
                         });

// --- one date ---

TEST_P(DisabledTest, DayAloneIsInThisMonth)
{
    tmDay d{};
    ASSERT_EQ(fill("24", &d, 0), 0);
    EXPECT_EQ(dayText(d), "2026-1-24");
    EXPECT_EQ(d.wday, 6);
}

TEST_P(DisabledTest, MonthAndDayIsInThisYear)
{
    tmDay d{};
    ASSERT_EQ(fill("12:24", &d, 1), 0);
    EXPECT_EQ(dayText(d), "2026-12-24");
    EXPECT_EQ(d.wday, 4);
}

TEST_P(DisabledTest, FullDateIsTakenAsGiven)
{
    tmDay d{};
    ASSERT_EQ(fill("2024:2:29", &d, 2), 0);
    EXPECT_EQ(dayText(d), "2024-2-29");
    EXPECT_EQ(d.wday, 4);
}

TEST_P(DisabledTest, MalformedOrImpossibleDatesAre320)
{
    struct Case {
        const char *text;
        int colons;
    };
    const Case cases[] = {
        {"2026:2:29", 2}, {"2026:4:31", 2}, {"4:31", 1},   {"1899:1:1", 2}, {"ab:1:1", 2}, {"2026:0:1", 2},
        {"2026:13:1", 2}, {"2026:1:0", 2},  {"2026:1:x", 2}, {"", 0},       {"0", 0},      {"-3", 0},
        {"x", 0},         {"5", 2},         {"5", 1},      {"1:2", 3},      {"1", -1},     {"2026:1:40", 2},
    };
    for (const auto &c : cases) {
        tmDay d = day(1, 1, 1);
        qob_errno = 0;
        EXPECT_EQ(fill(c.text, &d, c.colons), -1) << c.text;
        EXPECT_EQ(qob_errno, RSV_ERR_BAD_DATE) << c.text;
        EXPECT_EQ(dayText(d), "1-1-1") << c.text; // untouched
    }
}

TEST_P(DisabledTest, ThirtyFirstIsRefusedInAShortMonth)
{
    clock.set(localTime(2026, 4, 10, 12));
    tmDay d{};
    qob_errno = 0;
    EXPECT_EQ(fill("31", &d, 0), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_DATE);
    EXPECT_EQ(fill("30", &d, 0), 0);
}

TEST_P(DisabledTest, DatesBeforeTodayAre334WhenThePastIsChecked)
{
    for (const char *text : {"2025:12:31", "2026:1:13", "2025:6:20"}) {
        tmDay d{};
        qob_errno = 0;
        EXPECT_EQ(fill(text, &d, 2, 1), -1) << text;
        EXPECT_EQ(qob_errno, RSV_ERR_DATE_IN_PAST) << text;
        EXPECT_EQ(fill(text, &d, 2, 0), 0) << text;
    }
    tmDay d{};
    qob_errno = 0;
    EXPECT_EQ(fill("13", &d, 0, 1), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_DATE_IN_PAST);
    EXPECT_EQ(fill("14", &d, 0, 1), 0);
    EXPECT_EQ(fill("2026:2:1", &d, 2, 1), 0);
    EXPECT_EQ(fill("2027:1:1", &d, 2, 1), 0);
}

TEST_P(DisabledTest, NullDateTextOrDayIsRefused)
{
    tmDay d{};
    qob_errno = 0;
    EXPECT_EQ(fillInRsvDisableDurationDate(nullptr, &d, 0, 0), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NO_TEXT);
    std::string text = "5";
    EXPECT_EQ(fillInRsvDisableDurationDate(text.data(), nullptr, 0, 0), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
}

// --- a duration from text ---

TEST_P(DisabledTest, MonthDayRangeDenotesThoseDaysOfThisYear)
{
    RsvDisableDuration *rec = createRsvDisableDuration("12:24-12:26", 1);
    ASSERT_NE(rec, nullptr);
    EXPECT_EQ(dayText(rec->firstDay), "2026-12-24");
    EXPECT_EQ(dayText(rec->lastDay), "2026-12-26");
    free(rec);
}

TEST_P(DisabledTest, SingleDateIsBothFirstAndLast)
{
    RsvDisableDuration *rec = createRsvDisableDuration("24", 1);
    ASSERT_NE(rec, nullptr);
    EXPECT_EQ(dayText(rec->firstDay), "2026-1-24");
    EXPECT_EQ(dayText(rec->lastDay), "2026-1-24");
    free(rec);
}

TEST_P(DisabledTest, EqualFirstAndLastAreAccepted)
{
    RsvDisableDuration *rec = createRsvDisableDuration("2026:3:8-2026:3:8", 1);
    ASSERT_NE(rec, nullptr);
    EXPECT_EQ(dayText(rec->lastDay), "2026-3-8");
    free(rec);
}

TEST_P(DisabledTest, BadDurationTextsAre320)
{
    for (const char *text : {"2006:2:29", "12:24-1:2", "2006:12:24-26", "20-18", "3-", "-3", "1:2:3:4", "1:2:3:4-1:2:3:5",
                             "a-b", ""}) {
        qob_errno = 0;
        EXPECT_EQ(createRsvDisableDuration(text, 0), nullptr) << text;
        EXPECT_EQ(qob_errno, RSV_ERR_BAD_DATE) << text;
    }
}

TEST_P(DisabledTest, DurationInThePastIs334OnlyWhenChecked)
{
    qob_errno = 0;
    EXPECT_EQ(createRsvDisableDuration("10-20", 1), nullptr);
    EXPECT_EQ(qob_errno, RSV_ERR_DATE_IN_PAST);
    // The last day in the past is found too.
    qob_errno = 0;
    EXPECT_EQ(createRsvDisableDuration("2026:1:20-2025:1:1", 1), nullptr);
    EXPECT_EQ(qob_errno, RSV_ERR_DATE_IN_PAST);
    RsvDisableDuration *rec = createRsvDisableDuration("10-20", 0);
    ASSERT_NE(rec, nullptr);
    free(rec);
}

TEST_P(DisabledTest, NullDurationTextIs35)
{
    qob_errno = 0;
    EXPECT_EQ(createRsvDisableDuration(nullptr, 0), nullptr);
    EXPECT_EQ(qob_errno, RSV_ERR_NO_TEXT);
}

TEST_P(DisabledTest, FailedCopiesAre55WithNothingLeft)
{
    for (int n = 0; n < 2; ++n) {
        daemon.failAfter(n);
        qob_errno = 0;
        EXPECT_EQ(createRsvDisableDuration("3-5", 0), nullptr) << n;
        EXPECT_EQ(qob_errno, RSV_ERR_NO_MEMORY) << n;
    }
    daemon.failAfter(-1);
    RsvDisableDuration *rec = createRsvDisableDuration("3-5", 0);
    ASSERT_NE(rec, nullptr);
    free(rec);
}

// --- the next instance as a duration ---

TEST_P(DisabledTest, NextDisableDurationOfDailyWindowIsTheNextStartDay)
{
    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    RsvDisableDuration *rec = createNextDisableDuration(e.ent);
    ASSERT_NE(rec, nullptr);
    EXPECT_EQ(dayText(rec->firstDay), "2026-1-15");
    EXPECT_EQ(dayText(rec->lastDay), "2026-1-15");
    free(rec);
}

TEST_P(DisabledTest, NextDisableDurationOfDailyWindowCrossingMidnightIsOneDay)
{
    Entry e(RSV_OPT_RECURRING, "22:0-6:0");
    RsvDisableDuration *rec = createNextDisableDuration(e.ent);
    ASSERT_NE(rec, nullptr);
    EXPECT_EQ(dayText(rec->firstDay), "2026-1-14");
    EXPECT_EQ(dayText(rec->lastDay), "2026-1-14");
    free(rec);
}

TEST_P(DisabledTest, NextDisableDurationOfWeeklyWindowCoversStartToEndDay)
{
    Entry e(RSV_OPT_RECURRING, "5:18:0-1:8:0");
    RsvDisableDuration *rec = createNextDisableDuration(e.ent);
    ASSERT_NE(rec, nullptr);
    EXPECT_EQ(dayText(rec->firstDay), "2026-1-16");
    EXPECT_EQ(dayText(rec->lastDay), "2026-1-19");
    EXPECT_EQ(rec->firstDay.wday, 5);
    EXPECT_EQ(rec->lastDay.wday, 1);
    free(rec);
}

TEST_P(DisabledTest, NextDisableDurationSkipsDaysAlreadyDisabled)
{
    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(e.add(1, 15, 15), 0);
    RsvDisableDuration *rec = createNextDisableDuration(e.ent);
    ASSERT_NE(rec, nullptr);
    EXPECT_EQ(dayText(rec->firstDay), "2026-1-16");
    ASSERT_EQ(addDurationToDisabledList(e.ent, rec), 0);
    EXPECT_EQ(durations(e.ent), (Texts{"2026-1-15..2026-1-16"}));
}

TEST_P(DisabledTest, NextDisableDurationRefusesWhatIsNotRecurring)
{
    Entry oneOff(0, "8:0-17:0");
    Entry noWindow(RSV_OPT_RECURRING, nullptr);
    for (RsvEnt *ent : {static_cast<RsvEnt *>(nullptr), oneOff.ent, noWindow.ent}) {
        qob_errno = 0;
        EXPECT_EQ(createNextDisableDuration(ent), nullptr);
        EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    }
}

// --- the list ---

TEST_P(DisabledTest, FirstDurationCreatesTheList)
{
    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(e.ent->disabledDurations, nullptr);
    ASSERT_EQ(e.add(1, 20, 21), 0);
    ASSERT_NE(e.ent->disabledDurations, nullptr);
    EXPECT_STREQ(e.ent->disabledDurations->name, "disabled durations");
    EXPECT_EQ(durations(e.ent), (Texts{"2026-1-20..2026-1-21"}));
}

TEST_P(DisabledTest, AddingOneLogsItWithZeroBasedMonths)
{
    Entry e(RSV_OPT_RECURRING, "8:0-17:0", "alice#7");
    LogCapture log;
    ASSERT_EQ(e.add(3, 3, 5), 0);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].level, KX_LOG_DEBUG);
    EXPECT_EQ(log.lines()[0].text,
              "addDurationToDisabledList: adding a disabled duration 2026/2/3-2026/2/5 to reservation alice#7");
}

TEST_P(DisabledTest, TouchingDurationBeforeIsMerged)
{
    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(e.add(2, 6, 8), 0);
    ASSERT_EQ(e.add(2, 3, 5), 0);
    EXPECT_EQ(durations(e.ent), (Texts{"2026-2-3..2026-2-8"}));
}

TEST_P(DisabledTest, DurationInsideAnExistingOneIs325AndChangesNothing)
{
    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(e.add(2, 3, 8), 0);
    for (auto [first, last] : {std::pair{4, 4}, std::pair{3, 8}, std::pair{3, 3}, std::pair{8, 8}}) {
        qob_errno = 0;
        EXPECT_EQ(e.add(2, first, last), -1);
        EXPECT_EQ(qob_errno, RSV_ERR_DURATION_EXISTS);
        EXPECT_EQ(durations(e.ent), (Texts{"2026-2-3..2026-2-8"}));
    }
}

TEST_P(DisabledTest, DurationCoveringTwoSwallowsThem)
{
    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(e.add(2, 3, 4), 0);
    ASSERT_EQ(e.add(2, 6, 7), 0);
    ASSERT_EQ(e.add(2, 1, 10), 0);
    EXPECT_EQ(durations(e.ent), (Texts{"2026-2-1..2026-2-10"}));
}

TEST_P(DisabledTest, DurationTouchingOnlyTheNextOneMergesWithItAlone)
{
    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(e.add(2, 1, 2), 0);
    ASSERT_EQ(e.add(2, 5, 6), 0);
    ASSERT_EQ(e.add(2, 4, 4), 0);
    EXPECT_EQ(durations(e.ent), (Texts{"2026-2-1..2026-2-2", "2026-2-4..2026-2-6"}));
}

TEST_P(DisabledTest, MergingChainSwallowsThree)
{
    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(e.add(2, 3, 4), 0);
    ASSERT_EQ(e.add(2, 6, 7), 0);
    ASSERT_EQ(e.add(2, 9, 10), 0);
    ASSERT_EQ(e.add(2, 20, 21), 0);
    ASSERT_EQ(e.add(2, 4, 11), 0);
    EXPECT_EQ(durations(e.ent), (Texts{"2026-2-3..2026-2-11", "2026-2-20..2026-2-21"}));
}

TEST_P(DisabledTest, SeparateDurationsStaySorted)
{
    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(e.add(2, 10, 12), 0);
    ASSERT_EQ(e.add(2, 1, 3), 0);
    ASSERT_EQ(e.add(2, 20, 20), 0);
    ASSERT_EQ(e.add(2, 15, 16), 0);
    EXPECT_EQ(durations(e.ent),
              (Texts{"2026-2-1..2026-2-3", "2026-2-10..2026-2-12", "2026-2-15..2026-2-16", "2026-2-20..2026-2-20"}));
}

TEST_P(DisabledTest, AdjacentDurationAfterIsMerged)
{
    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(e.add(2, 1, 2), 0);
    ASSERT_EQ(e.add(2, 3, 4), 0);
    EXPECT_EQ(durations(e.ent), (Texts{"2026-2-1..2026-2-4"}));
}

TEST_P(DisabledTest, DurationsMergeAcrossMonthAndYearEnds)
{
    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(addDurationToDisabledList(e.ent, newDuration(day(2026, 12, 30), day(2026, 12, 31))), 0);
    ASSERT_EQ(addDurationToDisabledList(e.ent, newDuration(day(2027, 1, 1), day(2027, 1, 2))), 0);
    ASSERT_EQ(addDurationToDisabledList(e.ent, newDuration(day(2026, 2, 28), day(2026, 2, 28))), 0);
    ASSERT_EQ(addDurationToDisabledList(e.ent, newDuration(day(2026, 3, 1), day(2026, 3, 1))), 0);
    EXPECT_EQ(durations(e.ent), (Texts{"2026-2-28..2026-3-1", "2026-12-30..2027-1-2"}));
}

TEST_P(DisabledTest, OverlapFromBeforeWidensTheFirstDay)
{
    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(e.add(2, 5, 10), 0);
    ASSERT_EQ(e.add(2, 3, 6), 0);
    ASSERT_EQ(e.add(2, 9, 14), 0);
    EXPECT_EQ(durations(e.ent), (Texts{"2026-2-3..2026-2-14"}));
}

TEST_P(DisabledTest, AddingToWhatIsNotRecurringIs52AndKeepsTheRecord)
{
    Entry oneOff(0, "8:0-17:0");
    RsvDisableDuration *rec = newDuration(2, 3, 4);
    qob_errno = 0;
    EXPECT_EQ(addDurationToDisabledList(oneOff.ent, rec), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(oneOff.ent->disabledDurations, nullptr);
    qob_errno = 0;
    EXPECT_EQ(addDurationToDisabledList(nullptr, rec), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    free(rec);

    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(e.add(2, 3, 4), 0);
    qob_errno = 0;
    EXPECT_EQ(addDurationToDisabledList(e.ent, nullptr), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(durations(e.ent), (Texts{"2026-2-3..2026-2-4"}));
}

TEST_P(DisabledTest, TableFormRefusesNullArgumentsAndOneOffEntries)
{
    RsvTimeTbl *tbl = RsvTimeTbl_new(nullptr);
    ASSERT_NE(tbl, nullptr);
    Entry oneOff(0, "8:0-17:0");
    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(e.add(2, 3, 4), 0);
    RsvDisableDuration *rec = newDuration(2, 10, 11);
    const std::pair<RsvTimeTbl *, RsvEnt *> calls[] = {{nullptr, e.ent}, {tbl, nullptr}, {tbl, oneOff.ent}};
    for (auto [t, ent] : calls) {
        qob_errno = 0;
        EXPECT_EQ(RsvTimeTbl_addDurationToDisabledList(t, ent, rec), -1);
        EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    }
    qob_errno = 0;
    EXPECT_EQ(RsvTimeTbl_addDurationToDisabledList(tbl, e.ent, nullptr), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(durations(e.ent), (Texts{"2026-2-3..2026-2-4"}));
    EXPECT_EQ(oneOff.ent->disabledDurations, nullptr);
    free(rec);
    RsvTimeTbl_free(tbl);
}

// --- pruning ---

struct EntryTable {
    HashTab tab{};
    EntryTable() { h_initTab_(&tab, 11); }
    ~EntryTable()
    {
        h_freeTab_(&tab, [](void *v) {
            auto *ent = static_cast<RsvEnt *>(v);
            RsvEnt_destroy(ent);
            free(ent);
        });
    }
    RsvEnt *add(const char *id, int options)
    {
        RsvEnt *ent = RsvEnt_new(options, "alice", "8:0-17:0");
        ent->rsvId = strdup(id);
        int isNew = 0;
        h_addEnt_(&tab, id, &isNew)->value = ent;
        return ent;
    }
};

TEST_P(DisabledTest, PruningKeepsThePreviousWeekAndDropsWhatEndedBefore)
{
    // Wednesday 14 January: the previous week starts on Sunday 4 January.
    EntryTable t;
    RsvEnt *ent = t.add("alice#1", RSV_OPT_RECURRING);
    addDurationToDisabledList(ent, newDuration(day(2025, 12, 20), day(2025, 12, 24)));
    addDurationToDisabledList(ent, newDuration(1, 1, 3));
    addDurationToDisabledList(ent, newDuration(day(2026, 1, 1), day(2026, 1, 1)));
    // A later, separate duration ending on the cut-off day itself stays.
    RsvEnt *other = t.add("alice#2", RSV_OPT_RECURRING);
    addDurationToDisabledList(other, newDuration(day(2025, 12, 30), day(2026, 1, 4)));
    addDurationToDisabledList(other, newDuration(1, 20, 22));
    RsvTimeTbl_cleanDisabledDurations(&t.tab);
    EXPECT_EQ(ent->disabledDurations, nullptr);
    EXPECT_EQ(durations(other), (Texts{"2025-12-30..2026-1-4", "2026-1-20..2026-1-22"}));
}

TEST_P(DisabledTest, PruningDropsOnlyWhatEndsBeforeTheCutoff)
{
    EntryTable t;
    RsvEnt *ent = t.add("alice#1", RSV_OPT_RECURRING);
    addDurationToDisabledList(ent, newDuration(1, 1, 2));
    addDurationToDisabledList(ent, newDuration(1, 5, 6));
    addDurationToDisabledList(ent, newDuration(1, 13, 13));
    RsvTimeTbl_cleanDisabledDurations(&t.tab);
    EXPECT_EQ(durations(ent), (Texts{"2026-1-5..2026-1-6", "2026-1-13..2026-1-13"}));
}

TEST_P(DisabledTest, PruningAcrossAYearEnd)
{
    // Tuesday 6 January 2026: the previous week started on Sunday 28 December.
    clock.set(localTime(2026, 1, 6, 9));
    EntryTable t;
    RsvEnt *ent = t.add("alice#1", RSV_OPT_RECURRING);
    addDurationToDisabledList(ent, newDuration(day(2025, 12, 20), day(2025, 12, 27)));
    addDurationToDisabledList(ent, newDuration(day(2025, 12, 29), day(2025, 12, 29)));
    addDurationToDisabledList(ent, newDuration(day(2026, 1, 3), day(2026, 1, 3)));
    RsvEnt *edge = t.add("alice#2", RSV_OPT_RECURRING);
    addDurationToDisabledList(edge, newDuration(day(2025, 12, 28), day(2025, 12, 28)));
    RsvTimeTbl_cleanDisabledDurations(&t.tab);
    EXPECT_EQ(durations(ent), (Texts{"2025-12-29..2025-12-29", "2026-1-3..2026-1-3"}));
    EXPECT_EQ(durations(edge), (Texts{"2025-12-28..2025-12-28"}));
}

TEST_P(DisabledTest, PruningOnASundayCutsSevenDaysBack)
{
    clock.set(localTime(2026, 1, 18, 9));
    EntryTable t;
    RsvEnt *ent = t.add("alice#1", RSV_OPT_RECURRING);
    addDurationToDisabledList(ent, newDuration(1, 10, 10));
    addDurationToDisabledList(ent, newDuration(1, 12, 12));
    RsvTimeTbl_cleanDisabledDurations(&t.tab);
    EXPECT_EQ(durations(ent), (Texts{"2026-1-12..2026-1-12"}));
}

TEST_P(DisabledTest, PruningLeavesEntriesWithoutDurationsAlone)
{
    EntryTable t;
    RsvEnt *none = t.add("alice#1", RSV_OPT_RECURRING);
    RsvEnt *empty = t.add("alice#2", RSV_OPT_RECURRING);
    empty->disabledDurations = listCreate("disabled durations");
    RsvTimeTbl_cleanDisabledDurations(&t.tab);
    EXPECT_EQ(none->disabledDurations, nullptr);
    EXPECT_NE(empty->disabledDurations, nullptr);
}

TEST_P(DisabledTest, PruningNullTableIsLogged)
{
    LogCapture log;
    RsvTimeTbl_cleanDisabledDurations(nullptr);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].level, KX_LOG_DEBUG);
    EXPECT_EQ(log.lines()[0].text, "RsvTimeTbl_cleanDisabledDurations: function called with NULL input");
}

// --- day flags of a week ---

// Sunday 1 February 2026 to Saturday 7 February.
const RsvWeek kFeb1{1, 0, 1, 2026, 7, 6, 1, 2026};

std::vector<int> flags(const RsvWeek &week, RsvEnt *ent, bool previous = false)
{
    int days[7] = {9, 9, 9, 9, 9, 9, 9};
    if (previous)
        getDisabledDaysInPreviousWeek(&week, ent, days);
    else
        getDisabledDaysInWeek(&week, ent, days);
    return std::vector<int>(days, days + 7);
}

using Flags = std::vector<int>;

TEST_P(DisabledTest, WeekFlagsOfADurationRunningIntoTheNextWeek)
{
    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(e.add(2, 6, 9), 0);
    EXPECT_EQ(flags(kFeb1, e.ent), (Flags{0, 0, 0, 0, 0, 1, 1}));
}

TEST_P(DisabledTest, WeekFlagsOfSeveralDurations)
{
    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(e.add(1, 20, 31), 0);
    ASSERT_EQ(e.add(2, 2, 2), 0);
    ASSERT_EQ(e.add(2, 4, 5), 0);
    ASSERT_EQ(e.add(2, 20, 21), 0);
    EXPECT_EQ(flags(kFeb1, e.ent), (Flags{0, 1, 0, 1, 1, 0, 0}));
}

TEST_P(DisabledTest, WeekFlagsOfADurationCoveringTheWholeWeek)
{
    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(e.add(1, 25, 31), 0);
    ASSERT_EQ(addDurationToDisabledList(e.ent, newDuration(day(2026, 2, 1), day(2026, 3, 1))), 0);
    EXPECT_EQ(flags(kFeb1, e.ent), (Flags{1, 1, 1, 1, 1, 1, 1}));
}

TEST_P(DisabledTest, WeekFlagsOfDurationsOutsideTheWeekAreClear)
{
    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(e.add(1, 20, 24), 0);
    EXPECT_EQ(flags(kFeb1, e.ent), (Flags{0, 0, 0, 0, 0, 0, 0}));
    ASSERT_EQ(e.add(2, 12, 14), 0);
    EXPECT_EQ(flags(kFeb1, e.ent), (Flags{0, 0, 0, 0, 0, 0, 0}));
}

TEST_P(DisabledTest, WeekFlagsAcrossAMonthEnd)
{
    // Sunday 29 March to Saturday 4 April 2026.
    const RsvWeek week{29, 0, 2, 2026, 4, 6, 3, 2026};
    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(addDurationToDisabledList(e.ent, newDuration(day(2026, 3, 31), day(2026, 4, 1))), 0);
    EXPECT_EQ(flags(week, e.ent), (Flags{0, 0, 1, 1, 0, 0, 0}));
}

TEST_P(DisabledTest, WeekFlagsOfTheAutumnChangeWeek)
{
    // Sunday 1 November 2026 is the day the clocks go back.
    const RsvWeek week{1, 0, 10, 2026, 7, 6, 10, 2026};
    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(addDurationToDisabledList(e.ent, newDuration(day(2026, 10, 30), day(2026, 11, 2))), 0);
    EXPECT_EQ(flags(week, e.ent), (Flags{1, 1, 0, 0, 0, 0, 0}));
}

TEST_P(DisabledTest, WeekFlagsWithoutDurationsAreClearAndNullIsIgnored)
{
    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    EXPECT_EQ(flags(kFeb1, e.ent), (Flags{0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(flags(kFeb1, nullptr), (Flags{9, 9, 9, 9, 9, 9, 9}));
    EXPECT_EQ(flags(kFeb1, nullptr, true), (Flags{9, 9, 9, 9, 9, 9, 9}));
    getDisabledDaysInWeek(nullptr, e.ent, nullptr);
}

TEST_P(DisabledTest, PreviousWeekFlags)
{
    // The week before Sunday 8 February is 1 to 7 February.
    const RsvWeek week{8, 0, 1, 2026, 14, 6, 1, 2026};
    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(e.add(2, 6, 9), 0);
    EXPECT_EQ(flags(week, e.ent, true), (Flags{0, 0, 0, 0, 0, 1, 1}));
    EXPECT_EQ(flags(week, e.ent), (Flags{1, 1, 0, 0, 0, 0, 0}));
}

TEST_P(DisabledTest, PreviousWeekFlagsAcrossAYearEnd)
{
    // The week before Sunday 4 January 2026 is 28 December to 3 January.
    const RsvWeek week{4, 0, 0, 2026, 10, 6, 0, 2026};
    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(addDurationToDisabledList(e.ent, newDuration(day(2025, 12, 31), day(2026, 1, 1))), 0);
    EXPECT_EQ(flags(week, e.ent, true), (Flags{0, 0, 0, 1, 1, 0, 0}));
}

TEST_P(DisabledTest, PreviousWeekFlagsOfTheSpringChangeWeek)
{
    // Sunday 8 March 2026 is the day the clocks go forward.
    const RsvWeek week{8, 0, 2, 2026, 14, 6, 2, 2026};
    Entry e(RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(addDurationToDisabledList(e.ent, newDuration(day(2026, 3, 7), day(2026, 3, 8))), 0);
    EXPECT_EQ(flags(week, e.ent, true), (Flags{0, 0, 0, 0, 0, 0, 1}));
    EXPECT_EQ(flags(week, e.ent), (Flags{1, 0, 0, 0, 0, 0, 0}));
}

// --- readable day ranges ---

TEST_P(DisabledTest, CalendarDayDurationOfOneDayIsOneDate)
{
    char *text = nullptr;
    const tmDay d = day(2026, 1, 9);
    setCalendarDayDuration(&d, &d, &text);
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "Fri Jan 9 2026");
    free(text);
}

TEST_P(DisabledTest, CalendarDayDurationOfARange)
{
    char *text = strdup("old text");
    const tmDay a = day(2026, 1, 9);
    const tmDay b = day(2026, 1, 11);
    setCalendarDayDuration(&a, &b, &text);
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "Fri Jan 9 2026 - Sun Jan 11 2026");
    const tmDay c = day(2026, 10, 31);
    const tmDay d = day(2026, 11, 1);
    setCalendarDayDuration(&c, &d, &text);
    EXPECT_STREQ(text, "Sat Oct 31 2026 - Sun Nov 1 2026");
    free(text);
    setCalendarDayDuration(nullptr, &d, nullptr);
}

// --- the exported date checker ---

class DisabledDatesTest : public DisabledTest {
protected:
    char *first = nullptr;
    char *last = nullptr;
    char *range = nullptr;
    void SetUp() override { clock.set(localTime(2006, 12, 10, 12)); }
    void TearDown() override
    {
        free(first);
        free(last);
        free(range);
    }
    int check(const char *text) { return qob_getdisableddates(text, &first, &last, &range); }
};

INSTANTIATE_TEST_SUITE_P(Zones, DisabledDatesTest, ::testing::Values("UTC", "America/New_York"),
                         [](const auto &info) {
                             std::string name = info.param;
                             for (auto &c : name)
                                 if (c == '/')
                                     c = '_';
                             return name;
                         });

TEST_P(DisabledDatesTest, DayAloneIsOneDay)
{
    ASSERT_EQ(check("25"), 1);
    EXPECT_STREQ(first, "Mon Dec 25 2006");
    EXPECT_STREQ(last, "Mon Dec 25 2006");
    EXPECT_STREQ(range, "2006:12:25-2006:12:25");
    EXPECT_NE(first, last);
}

TEST_P(DisabledDatesTest, DayRangeIsTwo)
{
    ASSERT_EQ(check("25-27"), 2);
    EXPECT_STREQ(first, "Mon Dec 25 2006");
    EXPECT_STREQ(last, "Wed Dec 27 2006");
    EXPECT_STREQ(range, "2006:12:25-2006:12:27");
}

TEST_P(DisabledDatesTest, MonthDayForms)
{
    ASSERT_EQ(check("12:24"), 1);
    EXPECT_STREQ(first, "Sun Dec 24 2006");
    EXPECT_STREQ(range, "2006:12:24-2006:12:24");
    free(first);
    free(last);
    free(range);
    ASSERT_EQ(check("12:24-12:26"), 2);
    EXPECT_STREQ(first, "Sun Dec 24 2006");
    EXPECT_STREQ(last, "Tue Dec 26 2006");
    EXPECT_STREQ(range, "2006:12:24-2006:12:26");
}

TEST_P(DisabledDatesTest, YearMonthDayFormsAndThePast)
{
    ASSERT_EQ(check("2006:12:30-2007:1:2"), 2);
    EXPECT_STREQ(first, "Sat Dec 30 2006");
    EXPECT_STREQ(last, "Tue Jan 2 2007");
    EXPECT_STREQ(range, "2006:12:30-2007:1:2");
    free(first);
    free(last);
    free(range);
    // Past dates are allowed here.
    ASSERT_EQ(check("2006:1:1"), 1);
    EXPECT_STREQ(first, "Sun Jan 1 2006");
    EXPECT_STREQ(range, "2006:1:1-2006:1:1");
}

TEST_P(DisabledDatesTest, ErrorsLeaveAllOutputsNull)
{
    struct Case {
        const char *text;
        int err;
    };
    for (const Case &c : {Case{"2006:2:29", RSV_ERR_BAD_DATE}, Case{"2006:12:24-26", RSV_ERR_BAD_DATE},
                          Case{"12:24-1:2", RSV_ERR_BAD_DATE}, Case{nullptr, RSV_ERR_NO_TEXT}}) {
        qob_errno = 0;
        EXPECT_EQ(check(c.text), -1);
        EXPECT_EQ(qob_errno, c.err);
        EXPECT_EQ(first, nullptr);
        EXPECT_EQ(last, nullptr);
        EXPECT_EQ(range, nullptr);
    }
}

TEST_P(DisabledDatesTest, NullOutputPointerIs52)
{
    qob_errno = 0;
    EXPECT_EQ(qob_getdisableddates("25", nullptr, &last, &range), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(qob_getdisableddates("25", &first, &last, nullptr), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
}

TEST_P(DisabledDatesTest, FailedCopiesGiveMinusOneAndNoOutputs)
{
    // The record and two copies while reading the text, the calendar text,
    // two copies for the echoed days, then the range text.
    const struct {
        const char *text;
        int failAt;
        int err;
    } cases[] = {{"25", 0, RSV_ERR_NO_MEMORY},    {"25", 1, RSV_ERR_NO_MEMORY},    {"25", 3, RSV_ERR_NO_MEMORY},
                 {"25", 4, RSV_ERR_NO_TEXT},      {"25", 5, RSV_ERR_NO_TEXT},      {"25", 6, RSV_ERR_NO_MEMORY},
                 {"25-27", 4, RSV_ERR_NO_MEMORY}, {"25-27", 5, RSV_ERR_NO_MEMORY}, {"25-27", 6, RSV_ERR_NO_MEMORY}};
    for (const auto &c : cases) {
        daemon.failAfter(c.failAt);
        qob_errno = 0;
        EXPECT_EQ(check(c.text), -1) << c.text << " " << c.failAt;
        EXPECT_EQ(qob_errno, c.err) << c.text << " " << c.failAt;
        EXPECT_EQ(first, nullptr);
        EXPECT_EQ(last, nullptr);
        EXPECT_EQ(range, nullptr);
    }
    daemon.failAfter(-1);
    EXPECT_EQ(check("25-27"), 2);
}

} // namespace
