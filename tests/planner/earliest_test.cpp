// Earliest fit: the answer is exactly what RsvTimeTbl_addEntry would accept.
// Every answer is checked three ways: adding it for real books the slots the
// answer names; trying every earlier start in turn with the module's own
// RsvTimeTbl_getReservableAlloc finds none it accepts; and the table is the
// same before and after the search, cell for cell and record for record.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "planner/planner_internal.h"
#include "rsv_test_support.h"

using namespace rsvtest;

namespace {

// ---------------------------------------------------------------------------
// What the checks share
// ---------------------------------------------------------------------------

// Everything a search must leave as it was.
struct Image {
    std::vector<int> cells;
    std::vector<std::string> records;
    std::vector<std::string> lists;
    bool operator==(const Image &) const = default;
};

int listLength(List *list)
{
    int n = 0;
    for (ListEntry *e = list->forw; e != reinterpret_cast<ListEntry *>(list); e = e->forw)
        ++n;
    return n;
}

Image imageOf(RsvTimeTbl *tbl)
{
    Image image;
    image.cells = plannerCells(tbl);
    HashIter it;
    for (HashEnt *he = h_firstEnt_(&tbl->entries, &it); he; he = h_nextEnt_(&it)) {
        char *text = RsvEnt_ToString(static_cast<RsvEnt *>(he->value));
        image.records.push_back(std::string(he->key) + "=" + (text ? text : "(none)"));
        free(text);
    }
    for (HashEnt *he = h_firstEnt_(&tbl->plannerLists, &it); he; he = h_nextEnt_(&it))
        image.lists.push_back(std::string(he->key) + ":" +
                              std::to_string(listLength(static_cast<List *>(he->value))));
    return image;
}

// A search's answer, released at the end of the scope.
struct Fit {
    RsvFit r{};
    Fit() = default;
    Fit(const Fit &) = delete;
    Fit &operator=(const Fit &) = delete;
    ~Fit() { RsvFit_destroy(&r); }
};

// A request as the tests write it.
struct Ask {
    int options = 0;
    int minProcs = 1;
    int maxProcs = 1;
    std::vector<std::string> hosts;
};

int findOneOff(RsvTimeTbl *tbl, const Ask &ask, time_t notBefore, time_t notAfter, int minutes, Fit &fit,
               const char *changing = nullptr)
{
    OwnedReq req(ask.options, "asker", ask.minProcs, ask.maxProcs, ask.hosts, "");
    return RsvTimeTbl_findEarliest(tbl, &req.req, notBefore, notAfter, minutes, changing, &fit.r);
}

int findRecurring(RsvTimeTbl *tbl, const Ask &ask, int form, int minutes, Fit &fit, const char *changing = nullptr)
{
    OwnedReq req(ask.options, "asker", ask.minProcs, ask.maxProcs, ask.hosts, "");
    return RsvTimeTbl_findEarliestRecurring(tbl, &req.req, form, minutes, changing, &fit.r);
}

// The module's own count of reservable slots for `ask` over `window`; -1
// when it turns the request down (a system request on a booked host).
int reservableFor(RsvTimeTbl *tbl, const Ask &ask, const std::string &window)
{
    OwnedReq req(ask.options, "probe", ask.minProcs, ask.maxProcs, ask.hosts, window);
    ResAlloc *out = nullptr;
    const int n = RsvTimeTbl_getReservableAlloc(tbl, &req.req, &out, nullptr);
    free(out);
    return n;
}

bool accepted(const Ask &ask, int reservable)
{
    return reservable >= 0 && reservable >= ask.minProcs && reservable > 0;
}

// Every 10-minute boundary of the local clock in [from, to), minute by
// minute.
std::vector<time_t> boundaries(time_t from, time_t to)
{
    std::vector<time_t> out;
    for (time_t t = (from + 59) / 60 * 60; t < to; t += 60) {
        struct tm tm {};
        localtime_r(&t, &tm);
        if (tm.tm_sec == 0 && tm.tm_min % 10 == 0)
            out.push_back(t);
    }
    return out;
}

// What trying every start in turn finds: the first accepted one, or the
// first start with the most slots.
struct Scan {
    bool found = false;
    time_t start = 0;
    int total = 0;
    std::string window;
};

template <typename Starts, typename WindowOf>
Scan scan(RsvTimeTbl *tbl, const Ask &ask, const Starts &starts, WindowOf windowOf)
{
    Scan s;
    int best = -1;
    for (time_t start : starts) {
        const std::string window = windowOf(start);
        if (window.empty())
            continue;
        const int n = reservableFor(tbl, ask, window);
        if (accepted(ask, n)) {
            s.found = true;
            s.start = start;
            s.total = n;
            s.window = window;
            return s;
        }
        if (std::max(n, 0) > best) {
            best = std::max(n, 0);
            s.start = start;
        }
    }
    s.total = std::max(best, 0);
    return s;
}

Scan scanOneOff(RsvTimeTbl *tbl, const Ask &ask, time_t notBefore, time_t notAfter, int minutes)
{
    return scan(tbl, ask, boundaries(notBefore, notAfter),
                [&](time_t t) { return oneOff(t, t + static_cast<time_t>(minutes) * 60); });
}

// The recurring window of `form` starting `start` seconds into the day or
// week; "" when the module would not take it.
std::string recurringWindow(int form, time_t start, int minutes)
{
    const int period = form == RSV_FIT_DAILY ? 1440 : 10080;
    const int from = static_cast<int>(start / 60);
    const int to = (from + minutes) % period;
    char text[64];
    if (form == RSV_FIT_DAILY) {
        std::snprintf(text, sizeof text, "%d:%d-%d:%d", from / 60, from % 60, to / 60, to % 60);
    } else {
        auto day = [](int m) { return m / 1440 == 0 ? 7 : m / 1440; };
        std::snprintf(text, sizeof text, "%d:%d:%d-%d:%d:%d", day(from), from % 1440 / 60, from % 60, day(to),
                      to % 1440 / 60, to % 60);
    }
    return isRecValidTimeWindow(text) == 0 ? std::string(text) : std::string();
}

Scan scanRecurring(RsvTimeTbl *tbl, const Ask &ask, int form, int minutes)
{
    std::vector<time_t> starts;
    for (time_t s = 0; s < (form == RSV_FIT_DAILY ? 1440 : 10080) * 60; s += 600)
        starts.push_back(s);
    return scan(tbl, ask, starts, [&](time_t s) { return recurringWindow(form, s, minutes); });
}

using Booking = std::vector<std::pair<std::string, int>>;

// Add the answer for real: it must be accepted and book what it said.
::testing::AssertionResult bookedAsAnswered(RsvTimeTbl *tbl, const Ask &ask, const RsvFit &fit)
{
    OwnedReq req(ask.options, "taker", ask.minProcs, ask.maxProcs, ask.hosts, fit.timeWindow);
    // A system reservation is named "system#n" with its owner's next number:
    // start that owner far from the numbers the table's owners have used.
    RsvId_setCur("taker#49");
    char *id = RsvTimeTbl_addEntry(tbl, &req.req);
    if (!id)
        return ::testing::AssertionFailure() << "the addition refused " << fit.timeWindow << ": " << qob_errno;
    RsvEnt *ent = RsvTimeTbl_getEntry(tbl, id);
    free(id);
    Booking booked;
    Booking answered;
    for (int i = 0; i < ent->numHosts; ++i)
        if (ent->allocVector[i].hostName)
            booked.emplace_back(ent->allocVector[i].hostName, ent->allocVector[i].numSlots);
    for (int i = 0; i < fit.numHosts; ++i)
        answered.emplace_back(fit.allocVector[i].hostName, fit.allocVector[i].numSlots);
    if (booked != answered) {
        auto text = [](const Booking &b) {
            std::string s;
            for (const auto &[h, n] : b)
                s += h + ":" + std::to_string(n) + " ";
            return s;
        };
        return ::testing::AssertionFailure() << "booked " << text(booked) << "answered " << text(answered);
    }
    return ::testing::AssertionSuccess();
}

// The answer agrees with the scan: same start, or the same closest start.
::testing::AssertionResult agrees(const RsvFit &fit, const Scan &s)
{
    if ((fit.found != 0) != s.found)
        return ::testing::AssertionFailure() << "found " << fit.found << " but the scan says " << s.found
                                             << " (scan start " << s.start << ", answer " << fit.start << ")";
    if (s.found && (fit.start != s.start || fit.bestTotal != s.total || s.window != fit.timeWindow))
        return ::testing::AssertionFailure() << "answer " << fit.start << " (" << fit.bestTotal << " slots, "
                                             << (fit.timeWindow ? fit.timeWindow : "") << ") but the scan found "
                                             << s.start << " (" << s.total << " slots, " << s.window << ")";
    if (!s.found && (fit.bestStart != s.start || fit.bestTotal != s.total))
        return ::testing::AssertionFailure() << "closest " << fit.bestStart << " with " << fit.bestTotal
                                             << " slots but the scan says " << s.start << " with " << s.total;
    return ::testing::AssertionSuccess();
}

// ---------------------------------------------------------------------------
// Generated tables
// ---------------------------------------------------------------------------

struct Zone {
    const char *name;
    int year, month, day; // the first day of the busy period
};

// Zones and days that cross what the search must get right: both clock
// changes of New York, a half-hour change, a zone whose 10-minute
// boundaries are not those of UTC, and a year's end.
const Zone kZones[] = {
    {"America/New_York", 2026, 3, 5},   {"America/New_York", 2026, 10, 29}, {"America/New_York", 2026, 6, 10},
    {"America/New_York", 2026, 12, 29}, {"Asia/Kathmandu", 2026, 6, 10},    {"Australia/Lord_Howe", 2026, 4, 2},
    {"Australia/Lord_Howe", 2026, 10, 1},
};

const std::vector<std::string> kHosts = {"h0", "h1", "h2", "h3"};

class Generator {
public:
    explicit Generator(unsigned seed) : rng_(seed) {}

    int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng_); }

    void addHosts(FakeDaemon &daemon)
    {
        for (const std::string &h : kHosts)
            daemon.addHost(h, 2 + pick(10), -1, h == "h1" ? std::vector<std::string>{"h1-alias"}
                                                          : std::vector<std::string>{});
    }

    std::vector<std::string> someHosts(bool alias)
    {
        std::vector<std::string> hosts = kHosts;
        std::shuffle(hosts.begin(), hosts.end(), rng_);
        hosts.resize(static_cast<size_t>(1 + pick(3)));
        for (std::string &h : hosts)
            if (alias && h == "h1" && pick(3) == 0)
                h = "h1-alias";
        return hosts;
    }

    std::string oneOffWindow(time_t base)
    {
        const time_t start = base + static_cast<time_t>(pick(8 * 24 * 12)) * 300 + (pick(4) == 0 ? pick(300) : 0);
        static const int kLengths[] = {300, 600, 1800, 3600, 4 * 3600, 12 * 3600, 86400, 3 * 86400};
        const time_t length = kLengths[pick(8)] + (pick(3) == 0 ? pick(3600) : 0);
        return oneOff(start, start + length);
    }

    std::string dailyWindow()
    {
        for (;;) {
            char text[32];
            std::snprintf(text, sizeof text, "%d:%d-%d:%d", pick(24), 5 * pick(12), pick(24), 5 * pick(12));
            if (isRecValidTimeWindow(text) == 0)
                return text;
        }
    }

    std::string weeklyWindow()
    {
        for (;;) {
            char text[48];
            const int day = 1 + pick(7);
            // Mostly short, often across the week's end.
            const int endDay = pick(2) ? 1 + (day + pick(3)) % 7 : 1 + pick(7);
            std::snprintf(text, sizeof text, "%d:%d:%d-%d:%d:%d", day, pick(24), 10 * pick(6), endDay, pick(24),
                          10 * pick(6));
            if (isRecValidTimeWindow(text) == 0)
                return text;
        }
    }

    // Tens of reservations: one-off, daily, weekly, system ones, some of
    // the recurring ones with disabled days.
    void fill(RsvTimeTbl *tbl, time_t base)
    {
        const int count = 15 + pick(25);
        for (int i = 0; i < count; ++i) {
            const int kind = pick(100);
            int options = 0;
            std::string window;
            std::vector<std::string> hosts = someHosts(false);
            if (kind < 50) {
                window = oneOffWindow(base);
            } else if (kind < 70) {
                options = RSV_OPT_RECURRING;
                window = dailyWindow();
            } else if (kind < 90) {
                options = RSV_OPT_RECURRING;
                window = weeklyWindow();
            } else {
                options = RSV_OPT_SYSTEM | (pick(2) ? RSV_OPT_RECURRING : 0);
                window = options & RSV_OPT_RECURRING ? dailyWindow() : oneOffWindow(base);
                hosts.resize(1);
            }
            const int min = 1 + pick(6);
            OwnedReq req(options, "u" + std::to_string(pick(4)), min, min + pick(4), hosts, window);
            char *id = RsvTimeTbl_addEntry(tbl, &req.req);
            if (id && (options & RSV_OPT_RECURRING) && pick(3) == 0)
                disableSomeDays(tbl, id, base);
            free(id);
        }
    }

    void disableSomeDays(RsvTimeTbl *tbl, const char *id, time_t base)
    {
        const time_t first = base + static_cast<time_t>(pick(9)) * 86400 + 43200;
        const time_t last = first + static_cast<time_t>(pick(3)) * 86400;
        struct tm a {};
        struct tm b {};
        localtime_r(&first, &a);
        localtime_r(&last, &b);
        char text[32];
        std::snprintf(text, sizeof text, "%d:%d-%d:%d", a.tm_mon + 1, a.tm_mday, b.tm_mon + 1, b.tm_mday);
        RsvTimeTbl_disableDays(tbl, id, text);
    }

    Ask ask(bool recurring)
    {
        Ask a;
        a.hosts = someHosts(true);
        const int kind = pick(20);
        a.options = (recurring ? RSV_OPT_RECURRING : 0) | (kind == 0 ? RSV_OPT_SYSTEM : 0);
        a.minProcs = kind == 1 ? 0 : 1 + pick(static_cast<int>(a.hosts.size()) * 6);
        a.maxProcs = a.minProcs + pick(4);
        return a;
    }

    // An existing reservation now and then, to count its slots free.
    std::string changing(RsvTimeTbl *tbl)
    {
        if (pick(4) != 0)
            return "";
        std::vector<std::string> ids;
        HashIter it;
        for (HashEnt *he = h_firstEnt_(&tbl->entries, &it); he; he = h_nextEnt_(&it))
            ids.push_back(he->key);
        return ids.empty() ? "" : ids[static_cast<size_t>(pick(static_cast<int>(ids.size())))];
    }

private:
    std::mt19937 rng_;
};

// One generated world: the zone, a pinned clock two days before the busy
// period, hosts and a table.
struct World {
    explicit World(const Zone &zone)
        : tz(zone.name), base(localTime(zone.year, zone.month, zone.day, 0, 0)), clock(base - 2 * 86400)
    {
        tbl = RsvTimeTbl_new(nullptr);
    }
    ~World() { RsvTimeTbl_free(tbl); }
    World(const World &) = delete;
    World &operator=(const World &) = delete;

    FakeDaemon daemon;
    LogCapture quiet; // no state file: the module says so on every change
    ScopedTz tz;
    time_t base;
    PinnedClock clock;
    RsvTimeTbl *tbl = nullptr;
};

// Seeds per property: enough tables to meet every kind of booking many
// times, few enough for the sanitizer build.
constexpr unsigned kOneOffSeeds = 800;
constexpr unsigned kRecurringSeeds = 200;
constexpr unsigned kWalkSeeds = 100;

void checkOneOffSeed(unsigned seed, int &found)
{
    Generator gen(seed);
    World w(kZones[seed % std::size(kZones)]);
    gen.addHosts(w.daemon);
    gen.fill(w.tbl, w.base);
    const Ask ask = gen.ask(false);
    const std::string changing = gen.changing(w.tbl);
    // Whole cells and odd minutes alike: an end inside a cell books all of it.
    static const int kMinutes[] = {10, 25, 60, 90, 240, 600, 1440, 2000, 4000};
    const int minutes = gen.pick(2) ? kMinutes[gen.pick(9)] : 1 + gen.pick(3000);
    const time_t notBefore = w.base + gen.pick(3 * 86400);
    const time_t notAfter = notBefore + 3600 + gen.pick(2 * 86400);

    const Image before = imageOf(w.tbl);
    Fit fit;
    ASSERT_EQ(findOneOff(w.tbl, ask, notBefore, notAfter, minutes, fit, changing.empty() ? nullptr : changing.c_str()),
              0)
        << qob_errno;
    ASSERT_TRUE(imageOf(w.tbl) == before) << "the search changed the table";

    if (!changing.empty()) {
        ASSERT_EQ(RsvTimeTbl_removeEntry(w.tbl, changing.c_str()), 0);
    }
    const Scan s = scanOneOff(w.tbl, ask, notBefore, fit.r.found ? fit.r.start + 1 : notAfter, minutes);
    ASSERT_TRUE(agrees(fit.r, s));
    if (fit.r.found) {
        ++found;
        EXPECT_EQ(fit.r.end - fit.r.start, minutes * 60);
        ASSERT_TRUE(bookedAsAnswered(w.tbl, ask, fit.r));
    }
}

void checkRecurringSeed(unsigned seed, int &found)
{
    Generator gen(seed);
    World w(kZones[seed % std::size(kZones)]);
    gen.addHosts(w.daemon);
    gen.fill(w.tbl, w.base);
    const Ask ask = gen.ask(true);
    const std::string changing = gen.changing(w.tbl);
    const int form = gen.pick(2) ? RSV_FIT_DAILY : RSV_FIT_WEEKLY;
    const int minutes = form == RSV_FIT_DAILY ? 1 + gen.pick(1439) : 1 + gen.pick(10079);

    const Image before = imageOf(w.tbl);
    Fit fit;
    ASSERT_EQ(findRecurring(w.tbl, ask, form, minutes, fit, changing.empty() ? nullptr : changing.c_str()), 0)
        << qob_errno;
    ASSERT_TRUE(imageOf(w.tbl) == before) << "the search changed the table";

    if (!changing.empty()) {
        ASSERT_EQ(RsvTimeTbl_removeEntry(w.tbl, changing.c_str()), 0);
    }
    const Scan s = scanRecurring(w.tbl, ask, form, minutes);
    ASSERT_TRUE(agrees(fit.r, s));
    if (fit.r.found) {
        ++found;
        ASSERT_TRUE(bookedAsAnswered(w.tbl, ask, fit.r));
    }
}

TEST(EarliestFitProperty, OneOffAnswersMatchTheAdditionOnGeneratedTables)
{
    int found = 0;
    for (unsigned seed = 1; seed <= kOneOffSeeds; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        checkOneOffSeed(seed, found);
        if (HasFatalFailure())
            return;
    }
    // Both outcomes must be well represented for the property to mean much.
    RecordProperty("found", found);
    EXPECT_GT(found, static_cast<int>(kOneOffSeeds) / 4);
    EXPECT_LT(found, static_cast<int>(kOneOffSeeds) * 19 / 20);
}

// Without the recurring index every week without a planner is made on its
// own by walking the table, as the addition then does too.
TEST(EarliestFitProperty, OneOffAnswersMatchWithoutTheRecurringIndex)
{
    rsv::setRecurringIndexEnabled(false);
    int found = 0;
    for (unsigned seed = 5001; seed < 5001 + kWalkSeeds; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        checkOneOffSeed(seed, found);
        if (HasFatalFailure())
            break;
    }
    rsv::setRecurringIndexEnabled(true);
    EXPECT_GT(found, static_cast<int>(kWalkSeeds) / 4);
}

TEST(EarliestFitProperty, RecurringAnswersMatchTheAdditionOnGeneratedTables)
{
    int found = 0;
    for (unsigned seed = 1; seed <= kRecurringSeeds; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        checkRecurringSeed(seed, found);
        if (HasFatalFailure())
            return;
    }
    RecordProperty("found", found);
    EXPECT_GT(found, static_cast<int>(kRecurringSeeds) / 5);
    EXPECT_LT(found, static_cast<int>(kRecurringSeeds) * 19 / 20);
}

// ---------------------------------------------------------------------------
// Hand-made tables
// ---------------------------------------------------------------------------

// A table in New York with hosts added by the test.
struct Fixed {
    explicit Fixed(time_t now = localTimeIn("America/New_York", 2026, 3, 1)) : clock(now)
    {
        tbl = RsvTimeTbl_new(nullptr);
    }
    ~Fixed() { RsvTimeTbl_free(tbl); }
    Fixed(const Fixed &) = delete;
    Fixed &operator=(const Fixed &) = delete;

    // Book `slots` on each host; the identifier, or "" when refused.
    std::string book(int options, const std::vector<std::string> &hosts, int slots, const std::string &window)
    {
        OwnedReq req(options, "owner", slots * static_cast<int>(hosts.size()),
                     slots * static_cast<int>(hosts.size()), hosts, window);
        char *id = RsvTimeTbl_addEntry(tbl, &req.req);
        EXPECT_NE(id, nullptr) << window << ": " << qob_errno;
        std::string out = id ? id : "";
        free(id);
        return out;
    }

    static time_t localTimeIn(const char *zone, int y, int m, int d)
    {
        ScopedTz tz(zone);
        return localTime(y, m, d);
    }

    FakeDaemon daemon;
    LogCapture quiet;
    ScopedTz tz{"America/New_York"};
    PinnedClock clock;
    RsvTimeTbl *tbl = nullptr;
};

constexpr time_t kHour = 3600;
constexpr time_t kDay = 86400;

// Search, then check the answer against the scan and the table image, and
// finally add it for real (which changes the table).
void searchAndCheck(Fixed &f, const Ask &ask, time_t notBefore, time_t notAfter, int minutes, Fit &fit,
                    const char *changing = nullptr)
{
    const Image before = imageOf(f.tbl);
    ASSERT_EQ(findOneOff(f.tbl, ask, notBefore, notAfter, minutes, fit, changing), 0) << qob_errno;
    ASSERT_TRUE(imageOf(f.tbl) == before);
    ASSERT_TRUE(agrees(fit.r, scanOneOff(f.tbl, ask, notBefore, notAfter, minutes)));
}

void recurringSearchAndCheck(Fixed &f, const Ask &ask, int form, int minutes, Fit &fit)
{
    const Image before = imageOf(f.tbl);
    ASSERT_EQ(findRecurring(f.tbl, ask, form, minutes, fit), 0) << qob_errno;
    ASSERT_TRUE(imageOf(f.tbl) == before);
    ASSERT_TRUE(agrees(fit.r, scanRecurring(f.tbl, ask, form, minutes)));
}

TEST(EarliestFit, StartsExactlyWhenABookingEnds)
{
    Fixed f;
    f.daemon.addHost("a", 4);
    const time_t monday = localTime(2026, 3, 2);
    f.book(0, {"a"}, 4, oneOff(monday + 10 * kHour, monday + 12 * kHour));
    const Ask ask{0, 1, 1, {"a"}};

    Fit fit;
    searchAndCheck(f, ask, monday + 10 * kHour, monday + 2 * kDay, 60, fit);
    ASSERT_TRUE(fit.r.found);
    EXPECT_EQ(fit.r.start, monday + 12 * kHour);
    EXPECT_EQ(fit.r.end, monday + 13 * kHour);
    EXPECT_STREQ(fit.r.timeWindow, oneOff(monday + 12 * kHour, monday + 13 * kHour).c_str());
    EXPECT_EQ(fit.r.bestTotal, 1);
    EXPECT_EQ(fit.r.bestStart, fit.r.start);
    ASSERT_EQ(fit.r.numHosts, 1);
    EXPECT_STREQ(fit.r.allocVector[0].hostName, "a");
    EXPECT_EQ(fit.r.allocVector[0].numSlots, 1);
    EXPECT_EQ(fit.r.limitHostIndex, -1);

    // A window that ends when the booking begins fits before it.
    Fit before;
    searchAndCheck(f, ask, monday + 9 * kHour, monday + 2 * kDay, 60, before);
    EXPECT_EQ(before.r.start, monday + 9 * kHour);

    // A booking that ends inside a cell holds the whole cell.
    f.book(0, {"a"}, 4, oneOff(monday + 14 * kHour, monday + 15 * kHour + 5 * 60));
    Fit rounded;
    searchAndCheck(f, ask, monday + 14 * kHour, monday + 2 * kDay, 60, rounded);
    EXPECT_EQ(rounded.r.start, monday + 15 * kHour + 10 * 60);
    EXPECT_TRUE(bookedAsAnswered(f.tbl, ask, rounded.r));
}

TEST(EarliestFit, WindowAcrossTheWeekEndReadsBothWeeks)
{
    Fixed f;
    f.daemon.addHost("a", 2);
    const time_t saturday = localTime(2026, 6, 13);
    f.book(0, {"a"}, 2, oneOff(saturday + 10 * kHour, saturday + 16 * kHour));
    const Ask ask{0, 2, 2, {"a"}};

    Fit fit;
    searchAndCheck(f, ask, saturday + 12 * kHour, saturday + 3 * kDay, 600, fit);
    ASSERT_TRUE(fit.r.found);
    EXPECT_EQ(fit.r.start, saturday + 16 * kHour);
    EXPECT_EQ(fit.r.allocVector[0].numSlots, 2);
    ASSERT_TRUE(bookedAsAnswered(f.tbl, ask, fit.r));
    RsvWeek next{};
    RsvTime_toWeek(saturday + kDay, &next);
    ResPlanner *sunday = findPlanner(f.tbl, "a", next);
    ASSERT_NE(sunday, nullptr);
    EXPECT_EQ(cell(sunday, 0, 0), 2);
    EXPECT_EQ(cell(sunday, 0, 11), 2);
    EXPECT_EQ(cell(sunday, 0, 12), 0);
}

TEST(EarliestFit, WeekWithoutPlannerHoldsTheRecurringBookings)
{
    Fixed f;
    f.daemon.addHost("a", 2);
    const time_t saturday = localTime(2026, 6, 13);
    f.book(0, {"a"}, 2, oneOff(saturday + 10 * kHour, saturday + 16 * kHour));
    f.book(RSV_OPT_RECURRING, {"a"}, 2, "7:0:0-7:1:0");
    RsvWeek next{};
    RsvTime_toWeek(saturday + kDay, &next);
    ASSERT_EQ(findPlanner(f.tbl, "a", next), nullptr);
    const Ask ask{0, 1, 2, {"a"}};

    // 10 hours from Saturday 16:00 would run into Sunday 0:00-1:00.
    Fit fit;
    searchAndCheck(f, ask, saturday + 12 * kHour, saturday + 3 * kDay, 600, fit);
    ASSERT_TRUE(fit.r.found);
    EXPECT_EQ(fit.r.start, saturday + kDay + kHour);
    EXPECT_EQ(findPlanner(f.tbl, "a", next), nullptr) << "the search made a planner";
    EXPECT_TRUE(bookedAsAnswered(f.tbl, ask, fit.r));
}

TEST(EarliestFit, SpringForwardInNewYork)
{
    Fixed f;
    f.daemon.addHost("a", 1);
    const time_t sunday = localTime(2026, 3, 8); // 2:00 EST becomes 3:00 EDT
    f.book(0, {"a"}, 1, oneOff(sunday, localTime(2026, 3, 8, 1, 30)));
    const Ask ask{0, 1, 1, {"a"}};

    // 1:30 EST to 4:00 EDT: 90 minutes that cover 2.5 hours of cells.
    Fit fit;
    searchAndCheck(f, ask, sunday, sunday + kDay, 90, fit);
    ASSERT_TRUE(fit.r.found);
    EXPECT_EQ(fit.r.start, localTime(2026, 3, 8, 1, 30));
    EXPECT_EQ(fit.r.end, localTime(2026, 3, 8, 4, 0));

    // A booking at 3:00 EDT is inside that window: the next start is
    // after it, the skipped hour holding no start.
    f.book(0, {"a"}, 1, oneOff(localTime(2026, 3, 8, 3, 0), localTime(2026, 3, 8, 3, 30)));
    Fit later;
    searchAndCheck(f, ask, sunday, sunday + kDay, 90, later);
    ASSERT_TRUE(later.r.found);
    EXPECT_EQ(later.r.start, localTime(2026, 3, 8, 3, 30));
    ASSERT_TRUE(bookedAsAnswered(f.tbl, ask, later.r));
    RsvWeek week{};
    RsvTime_toWeek(sunday, &week);
    const ResPlanner *p = findPlanner(f.tbl, "a", week);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(cell(p, 0, 8), 1);  // 1:20, the first booking
    EXPECT_EQ(cell(p, 0, 9), 0);  // 1:30
    EXPECT_EQ(cell(p, 0, 21), 1); // 3:30, the answer's first cell
    EXPECT_EQ(cell(p, 0, 29), 1); // 4:50
    EXPECT_EQ(cell(p, 0, 30), 0); // 5:00
}

TEST(EarliestFit, FallBackInNewYork)
{
    Fixed f;
    f.daemon.addHost("a", 1);
    const time_t midnight = localTime(2026, 11, 1); // 2:00 EDT becomes 1:00 EST
    const time_t firstOne = midnight + kHour;       // 1:00 EDT
    const time_t twoEst = midnight + 3 * kHour;     // 2:00 EST
    f.book(0, {"a"}, 1, oneOff(midnight + 1800, twoEst));
    const Ask ask{0, 1, 1, {"a"}};

    // Two hours from 0:30 EDT on: both passes of 1:00-2:00 are starts, and
    // every one of them meets the booking; 2:00 EST is the first free one.
    Fit fit;
    searchAndCheck(f, ask, midnight + 1800, midnight + kDay, 120, fit);
    ASSERT_TRUE(fit.r.found);
    EXPECT_EQ(fit.r.start, twoEst);

    // A 60-minute window from 1:00 EDT ends at 1:00 EST: by the clock it
    // ends where it starts, the planners book nothing of it, and the
    // addition accepts it however full the host is.
    Fit empty;
    searchAndCheck(f, ask, midnight + 1800, midnight + kDay, 60, empty);
    ASSERT_TRUE(empty.r.found);
    EXPECT_EQ(empty.r.start, firstOne);
    const std::vector<int> cells = plannerCells(f.tbl);
    ASSERT_TRUE(bookedAsAnswered(f.tbl, ask, empty.r));
    EXPECT_EQ(plannerCells(f.tbl), cells);
}

TEST(EarliestFit, NeverFitsReportsWhatCameClosest)
{
    Fixed f;
    f.daemon.addHost("a", 4);
    f.daemon.addHost("b", 2);
    const time_t monday = localTime(2026, 6, 1);
    f.book(0, {"a"}, 3, oneOff(monday + 7 * kHour, monday + 13 * kHour));
    f.book(0, {"b"}, 1, oneOff(monday + 8 * kHour, monday + 9 * kHour));

    // a offers 1 throughout, b 2 once its booking is over: 3 of 4.
    Fit fit;
    searchAndCheck(f, Ask{0, 4, 4, {"a", "b"}}, monday + 8 * kHour, monday + 12 * kHour, 60, fit);
    EXPECT_EQ(fit.r.found, 0);
    EXPECT_EQ(fit.r.timeWindow, nullptr);
    EXPECT_EQ(fit.r.allocVector, nullptr);
    EXPECT_EQ(fit.r.bestTotal, 3);
    EXPECT_EQ(fit.r.bestStart, monday + 9 * kHour);
    EXPECT_EQ(fit.r.limitHostIndex, 0);
    EXPECT_STREQ(fit.r.limitHost, "a");
    EXPECT_EQ(fit.r.limitCell, monday + 9 * kHour);
    RsvWeek week{};
    RsvTime_toWeek(monday, &week);
    EXPECT_TRUE(RsvWeek_equal(&fit.r.limitWeek, &week));

    // A system request finds a booking on every start.
    Fit system;
    searchAndCheck(f, Ask{RSV_OPT_SYSTEM, 1, 1, {"a"}}, monday + 8 * kHour, monday + 12 * kHour, 60, system);
    EXPECT_EQ(system.r.found, 0);
    EXPECT_EQ(system.r.bestTotal, 0);
    EXPECT_EQ(system.r.bestStart, monday + 8 * kHour);
    EXPECT_STREQ(system.r.limitHost, "a");
    EXPECT_EQ(system.r.limitCell, monday + 8 * kHour);
}

TEST(EarliestFit, SystemRequestTakesEveryReservableSlot)
{
    Fixed f;
    f.daemon.addHost("a", 4);
    f.daemon.addHost("b", 3);
    const time_t monday = localTime(2026, 6, 1);
    f.book(0, {"b"}, 1, oneOff(monday + 8 * kHour, monday + 9 * kHour));
    // No minimum: no host is capped, and the request takes all 7 slots.
    const Ask ask{RSV_OPT_SYSTEM, 0, 0, {"a", "b"}};
    Fit fit;
    searchAndCheck(f, ask, monday + 8 * kHour, monday + kDay, 30, fit);
    ASSERT_TRUE(fit.r.found);
    EXPECT_EQ(fit.r.start, monday + 9 * kHour);
    ASSERT_EQ(fit.r.numHosts, 2);
    EXPECT_EQ(fit.r.allocVector[0].numSlots, 4);
    EXPECT_EQ(fit.r.allocVector[1].numSlots, 3);
    EXPECT_TRUE(bookedAsAnswered(f.tbl, ask, fit.r));
}

TEST(EarliestFit, UnknownHostIsRefusedAndNothingIsMade)
{
    Fixed f;
    f.daemon.addHost("a", 4);
    const time_t monday = localTime(2026, 6, 1);
    f.book(0, {"a"}, 1, oneOff(monday, monday + kHour));
    const Image before = imageOf(f.tbl);
    Fit fit;
    qob_errno = 0;
    EXPECT_EQ(findOneOff(f.tbl, Ask{0, 1, 1, {"a", "nope"}}, monday, monday + kDay, 60, fit), RSV_ERR_BAD_HOST);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_HOST);
    EXPECT_EQ(fit.r.found, 0);
    EXPECT_EQ(fit.r.timeWindow, nullptr);
    EXPECT_EQ(fit.r.limitHostIndex, -1);
    Fit recurring;
    EXPECT_EQ(findRecurring(f.tbl, Ask{RSV_OPT_RECURRING, 1, 1, {"nope"}}, RSV_FIT_DAILY, 60, recurring),
              RSV_ERR_BAD_HOST);
    EXPECT_TRUE(imageOf(f.tbl) == before);
}

TEST(EarliestFit, ArgumentsAreChecked)
{
    Fixed f;
    f.daemon.addHost("a", 4);
    const time_t monday = localTime(2026, 6, 1);
    OwnedReq req(0, "asker", 1, 1, {"a"}, "");
    OwnedReq recurring(RSV_OPT_RECURRING, "asker", 1, 1, {"a"}, "");
    OwnedReq noHosts(0, "asker", 1, 1, {}, "");
    RsvFit fit{};
    const time_t later = monday + kDay;
    EXPECT_EQ(RsvTimeTbl_findEarliest(nullptr, &req.req, monday, later, 60, nullptr, &fit), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvTimeTbl_findEarliest(f.tbl, nullptr, monday, later, 60, nullptr, &fit), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvTimeTbl_findEarliest(f.tbl, &req.req, monday, later, 60, nullptr, nullptr), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvTimeTbl_findEarliest(f.tbl, &req.req, monday, later, 0, nullptr, &fit), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvTimeTbl_findEarliest(f.tbl, &req.req, monday, later, -5, nullptr, &fit), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvTimeTbl_findEarliest(f.tbl, &req.req, later, later, 60, nullptr, &fit), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvTimeTbl_findEarliest(f.tbl, &recurring.req, monday, later, 60, nullptr, &fit),
              RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvTimeTbl_findEarliest(f.tbl, &noHosts.req, monday, later, 60, nullptr, &fit), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvTimeTbl_findEarliest(f.tbl, &req.req, monday, 253402300800, 60, nullptr, &fit), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvTimeTbl_findEarliest(f.tbl, &req.req, monday, later, 60, "nobody#9", &fit), RSV_ERR_NO_RSV);
    EXPECT_EQ(qob_errno, RSV_ERR_NO_RSV);
    EXPECT_EQ(RsvTimeTbl_findEarliestRecurring(f.tbl, &req.req, RSV_FIT_DAILY, 60, nullptr, &fit),
              RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvTimeTbl_findEarliestRecurring(f.tbl, &recurring.req, 3, 60, nullptr, &fit), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvTimeTbl_findEarliestRecurring(f.tbl, &recurring.req, RSV_FIT_DAILY, 1440, nullptr, &fit),
              RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvTimeTbl_findEarliestRecurring(f.tbl, &recurring.req, RSV_FIT_WEEKLY, 10080, nullptr, &fit),
              RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvTimeTbl_findEarliestRecurring(f.tbl, &recurring.req, RSV_FIT_WEEKLY, 0, nullptr, &fit),
              RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(fit.timeWindow, nullptr);
    RsvFit_destroy(&fit);
    RsvFit_destroy(nullptr);
    // The request is read, never changed.
    OwnedReq alias(0, "asker", 1, 1, {"a"}, "");
    EXPECT_EQ(RsvTimeTbl_findEarliest(f.tbl, &alias.req, monday, later, 60, nullptr, &fit), 0);
    EXPECT_STREQ(alias.req.askedHosts[0], "a");
    RsvFit_destroy(&fit);
    RsvFit_destroy(&fit);
}

TEST(EarliestFit, ChangingReservationCountsItsOwnSlotsFree)
{
    Fixed f;
    f.daemon.addHost("a", 2);
    f.daemon.addHost("b", 2);
    const time_t monday = localTime(2026, 6, 1);
    const std::string x = f.book(0, {"a"}, 2, oneOff(monday + 10 * kHour, monday + 12 * kHour));
    const std::string y = f.book(RSV_OPT_RECURRING, {"b"}, 2, "0:0-12:0");
    const Ask ask{0, 2, 2, {"a"}};

    Fit without;
    searchAndCheck(f, ask, monday + 10 * kHour, monday + kDay, 60, without);
    EXPECT_EQ(without.r.start, monday + 12 * kHour);
    const Image before = imageOf(f.tbl);
    Fit with;
    ASSERT_EQ(findOneOff(f.tbl, ask, monday + 10 * kHour, monday + kDay, 60, with, x.c_str()), 0);
    EXPECT_EQ(with.r.start, monday + 10 * kHour);

    const Ask daily{RSV_OPT_RECURRING, 2, 2, {"b"}};
    Fit dailyWithout;
    ASSERT_EQ(findRecurring(f.tbl, daily, RSV_FIT_DAILY, 60, dailyWithout), 0);
    EXPECT_STREQ(dailyWithout.r.timeWindow, "12:0-13:0");
    Fit dailyWith;
    ASSERT_EQ(findRecurring(f.tbl, daily, RSV_FIT_DAILY, 60, dailyWith, y.c_str()), 0);
    EXPECT_STREQ(dailyWith.r.timeWindow, "0:0-1:0");
    EXPECT_TRUE(imageOf(f.tbl) == before);

    // Counted free as if removed: the same answers once it is.
    ASSERT_EQ(RsvTimeTbl_removeEntry(f.tbl, x.c_str()), 0);
    ASSERT_EQ(RsvTimeTbl_removeEntry(f.tbl, y.c_str()), 0);
    EXPECT_TRUE(agrees(with.r, scanOneOff(f.tbl, ask, monday + 10 * kHour, monday + kDay, 60)));
    EXPECT_TRUE(agrees(dailyWith.r, scanRecurring(f.tbl, daily, RSV_FIT_DAILY, 60)));
}

TEST(EarliestFitRecurring, DailyWindowAcrossMidnight)
{
    Fixed f;
    f.daemon.addHost("a", 1);
    f.book(RSV_OPT_RECURRING, {"a"}, 1, "1:0-23:0");
    const Ask ask{RSV_OPT_RECURRING, 1, 1, {"a"}};
    Fit fit;
    recurringSearchAndCheck(f, ask, RSV_FIT_DAILY, 120, fit);
    ASSERT_TRUE(fit.r.found);
    EXPECT_STREQ(fit.r.timeWindow, "23:0-1:0");
    EXPECT_EQ(fit.r.start, 23 * kHour);
    EXPECT_EQ(fit.r.end, 25 * kHour);
    EXPECT_TRUE(bookedAsAnswered(f.tbl, ask, fit.r));
}

TEST(EarliestFitRecurring, WeeklyWindowAcrossTheWeekEnd)
{
    Fixed f;
    f.daemon.addHost("a", 1);
    f.book(RSV_OPT_RECURRING, {"a"}, 1, "1:0:0-6:20:0");
    f.book(RSV_OPT_RECURRING, {"a"}, 1, "7:4:0-7:23:0");
    const Ask ask{RSV_OPT_RECURRING, 1, 1, {"a"}};
    Fit fit;
    recurringSearchAndCheck(f, ask, RSV_FIT_WEEKLY, 480, fit);
    ASSERT_TRUE(fit.r.found);
    EXPECT_STREQ(fit.r.timeWindow, "6:20:0-7:4:0");
    EXPECT_EQ(fit.r.start, (6 * 24 + 20) * kHour);
    EXPECT_TRUE(bookedAsAnswered(f.tbl, ask, fit.r));
}

TEST(EarliestFitRecurring, EveryDatedPlannerCountsPastWeeksToo)
{
    Fixed f;
    f.daemon.addHost("a", 1);
    f.book(RSV_OPT_RECURRING, {"a"}, 1, "0:0-10:0");
    // Next Wednesday, and a Friday before the clock's day: the table keeps
    // both weeks' planners and the addition reads them all.
    f.book(0, {"a"}, 1, oneOff(localTime(2026, 3, 4, 10, 0), localTime(2026, 3, 4, 11, 0)));
    f.book(0, {"a"}, 1, oneOff(localTime(2026, 2, 20, 11, 0), localTime(2026, 2, 20, 12, 0)));
    const Ask ask{RSV_OPT_RECURRING, 1, 1, {"a"}};
    Fit fit;
    recurringSearchAndCheck(f, ask, RSV_FIT_DAILY, 60, fit);
    ASSERT_TRUE(fit.r.found);
    EXPECT_STREQ(fit.r.timeWindow, "12:0-13:0");

    // Nothing fits when the whole day is taken somewhere: the closest start
    // and the dated week that held it back are reported.
    f.book(0, {"a"}, 1, oneOff(localTime(2026, 3, 10, 10, 0), localTime(2026, 3, 11, 0, 0)));
    Fit none;
    recurringSearchAndCheck(f, ask, RSV_FIT_DAILY, 60, none);
    EXPECT_EQ(none.r.found, 0);
    EXPECT_EQ(none.r.bestTotal, 0);
    EXPECT_EQ(none.r.bestStart, 0);
    EXPECT_STREQ(none.r.limitHost, "a");
    EXPECT_EQ(none.r.limitCell, 0); // Sunday 0:00 of the recurring planner
    EXPECT_EQ(none.r.limitWeek.startYear, 0);
}

TEST(EarliestFit, OutOfMemoryLeavesTheTableAsItWas)
{
    Fixed f;
    f.daemon.addHost("a", 3);
    f.daemon.addHost("b", 3);
    const time_t monday = localTime(2026, 3, 2);
    const std::string x = f.book(0, {"a"}, 2, oneOff(monday + 10 * kHour, monday + 30 * kHour));
    const std::string y = f.book(RSV_OPT_RECURRING, {"a", "b"}, 1, "9:0-17:0");
    ASSERT_EQ(RsvTimeTbl_disableDays(f.tbl, y.c_str(), "3:4"), 0);
    const Ask ask{0, 5, 6, {"b", "a"}};
    const Ask daily{RSV_OPT_RECURRING, 5, 6, {"b", "a"}};
    Fit reference;
    ASSERT_EQ(findOneOff(f.tbl, ask, monday, monday + 20 * kDay, 120, reference, x.c_str()), 0);
    ASSERT_TRUE(reference.r.found);
    Fit dailyReference;
    ASSERT_EQ(findRecurring(f.tbl, daily, RSV_FIT_DAILY, 120, dailyReference, y.c_str()), 0);
    const Image before = imageOf(f.tbl);
    int failed = 0;
    for (int n = 0; n < 60; ++n) {
        Fit fit;
        Fit dailyFit;
        f.daemon.failAfter(n);
        const int rc = findOneOff(f.tbl, ask, monday, monday + 20 * kDay, 120, fit, x.c_str());
        f.daemon.failAfter(n);
        const int dailyRc = findRecurring(f.tbl, daily, RSV_FIT_DAILY, 120, dailyFit, y.c_str());
        f.daemon.failAfter(-1);
        ASSERT_TRUE(rc == RSV_OK || rc == RSV_ERR_NO_MEMORY) << rc;
        ASSERT_TRUE(dailyRc == RSV_OK || dailyRc == RSV_ERR_NO_MEMORY) << dailyRc;
        failed += (rc != RSV_OK) + (dailyRc != RSV_OK);
        if (rc == RSV_OK) {
            EXPECT_EQ(fit.r.start, reference.r.start);
            EXPECT_EQ(fit.r.numHosts, reference.r.numHosts);
        } else {
            EXPECT_EQ(fit.r.timeWindow, nullptr);
        }
        if (dailyRc == RSV_OK) {
            EXPECT_STREQ(dailyFit.r.timeWindow, dailyReference.r.timeWindow);
        }
        ASSERT_TRUE(imageOf(f.tbl) == before) << "after " << n << " allocations";
    }
    EXPECT_GT(failed, 4);
}

} // namespace
