// Start-up books a whole state file host by host; the table it gives must be
// the one that restoring each record in turn gives: the same entries in the
// same order, the same planner lists in the same order, the same weeks in
// each list and the same cells, also for recurring reservations with
// disabled days and across a clock change.
#include <cstdlib>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "rsv_test_support.h"

using namespace rsvtest;

namespace {

std::vector<std::string> keysOf(HashTab *tab)
{
    std::vector<std::string> keys;
    HashIter iter;
    for (HashEnt *he = h_firstEnt_(tab, &iter); he; he = h_nextEnt_(&iter))
        keys.emplace_back(he->key);
    return keys;
}

std::vector<ResPlanner *> plannersOf(List *list)
{
    std::vector<ResPlanner *> out;
    for (ListEntry *e = list->forw; e != reinterpret_cast<ListEntry *>(list); e = e->forw)
        out.push_back(reinterpret_cast<ResPlanner *>(e));
    return out;
}

// The table that restoring each line of `text` in turn gives, with the
// load's rules for rejected, repeated and host-less records.
RsvTimeTbl *restoreOneByOne(const std::string &text)
{
    RsvTimeTbl *tbl = RsvTimeTbl_new(nullptr);
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.empty())
            continue;
        RsvEnt *ent = RsvEnt_newByString(line.c_str());
        if (!ent)
            continue;
        if (h_getEnt_(&tbl->entries, ent->rsvId)) {
            RsvEnt_destroy(ent);
            std::free(ent);
            continue;
        }
        RsvTimeTbl_restoreEntry(tbl, ent);
        if (RsvTimeTbl_getEntry(tbl, ent->rsvId) != ent) {
            RsvEnt_destroy(ent);
            std::free(ent);
        }
    }
    return tbl;
}

::testing::AssertionResult sameTables(RsvTimeTbl *a, RsvTimeTbl *b)
{
    if (keysOf(&a->entries) != keysOf(&b->entries))
        return ::testing::AssertionFailure() << "entries differ";
    if (keysOf(&a->plannerLists) != keysOf(&b->plannerLists))
        return ::testing::AssertionFailure() << "planner lists differ";
    for (const std::string &host : keysOf(&a->plannerLists)) {
        auto pa = plannersOf(static_cast<List *>(h_getEnt_(&a->plannerLists, host.c_str())->value));
        auto pb = plannersOf(static_cast<List *>(h_getEnt_(&b->plannerLists, host.c_str())->value));
        if (pa.size() != pb.size())
            return ::testing::AssertionFailure() << host << ": " << pa.size() << " planners, " << pb.size();
        for (size_t i = 0; i < pa.size(); ++i) {
            if (!RsvWeek_equal(&pa[i]->week, &pb[i]->week))
                return ::testing::AssertionFailure() << host << ": week " << i << " differs";
            if (std::memcmp(pa[i]->slots, pb[i]->slots, sizeof pa[i]->slots) != 0)
                return ::testing::AssertionFailure() << host << ": cells of week " << i << " differ";
        }
    }
    return ::testing::AssertionSuccess();
}

class LoadTest : public ::testing::TestWithParam<const char *> {
protected:
    // Monday before the spring clock change of 2024 in America/New_York.
    LoadTest() : tz(GetParam()), clock(localTime(2024, 3, 4, 9, 0))
    {
        for (int h = 0; h < 12; ++h)
            daemon.addHost("h" + std::to_string(h), 100000);
    }

    int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); }

    // A state file of random one-off, daily and weekly reservations made
    // through the module, some recurring ones with disabled days.
    std::string randomStateText()
    {
        RsvTimeTbl *tbl = RsvTimeTbl_new(dir.file("made.state").c_str());
        const time_t now = PinnedClock::now();
        for (int i = 0; i < 300; ++i) {
            std::vector<std::string> hosts;
            const int numHosts = 1 + pick(3);
            for (int h = 0; h < numHosts; ++h)
                hosts.push_back("h" + std::to_string(pick(12)));
            const int kind = pick(10);
            std::string window;
            int options = 0;
            if (kind < 6) {
                const time_t start = now + 3600 + static_cast<time_t>(pick(6 * 7 * 144)) * 600;
                window = oneOff(start, start + 600 + static_cast<time_t>(pick(20 * 144)) * 600);
            } else if (kind < 8) {
                options = RSV_OPT_RECURRING;
                const int from = pick(22);
                window = std::to_string(from) + ":0-" + std::to_string(from + 1 + pick(2)) + ":30";
            } else {
                options = RSV_OPT_RECURRING;
                const int day = 1 + pick(5);
                window = std::to_string(day) + ":8:0-" + std::to_string(day + 1) + ":18:0";
            }
            // Disabled days only on h0..h3: the other hosts' recurring
            // bookings are the same in every week.
            const bool disable = options && pick(3) == 0;
            if (disable)
                for (std::string &host : hosts)
                    host = "h" + std::to_string(pick(4));
            OwnedReq r(options, "u" + std::to_string(pick(7)), 1, 2, hosts, window);
            char *id = RsvTimeTbl_addEntry(tbl, &r.req);
            if (id && disable) {
                const time_t first = now + static_cast<time_t>(1 + pick(20)) * 86400;
                struct tm a {};
                localtime_r(&first, &a);
                const std::string dates = std::to_string(a.tm_mon + 1) + ":" + std::to_string(a.tm_mday);
                RsvTimeTbl_disableDays(tbl, id, dates.c_str());
            }
            std::free(id);
        }
        RsvTimeTbl_logStat(tbl);
        std::string text = readFile(tbl->stateFile);
        RsvTimeTbl_free(tbl);
        return text;
    }

    ScopedTz tz;
    PinnedClock clock;
    FakeDaemon daemon;
    TempDir dir;
    LogCapture log; // the rejected lines are logged on purpose
    std::mt19937 rng{5};
};

TEST_P(LoadTest, HostByHostBookingEqualsOneByOne)
{
    for (int round = 0; round < 4; ++round) {
        std::string text = randomStateText();
        // A record that does not read, one repeated, one without hosts.
        text += "not a record\n";
        text += text.substr(0, text.find('\n') + 1);
        text += "9.11 1709560800 0 zed#3 zed 1709560800-1709564400 0 0  \"\" 0 0\n";
        const std::string file = dir.file("load.state");
        writeFile(file, text);

        RsvId_clearTbl();
        RsvTimeTbl *oneByOne = restoreOneByOne(text);
        RsvId_clearTbl();
        RsvTimeTbl *loaded = RsvTimeTbl_new(file.c_str());
        int rejected = 0;
        const int restored = RsvTimeTbl_load(loaded, &rejected);
        EXPECT_EQ(restored, h_numEnts_(&oneByOne->entries));
        EXPECT_EQ(rejected, 2);
        EXPECT_TRUE(sameTables(loaded, oneByOne)) << "round " << round;
        EXPECT_EQ(RsvTimeTbl_verify(loaded, nullptr, nullptr), 0);
        RsvTimeTbl_free(loaded);
        RsvTimeTbl_free(oneByOne);
    }
}

// Into a table that already holds reservations, each record is booked as it
// comes, over what the table holds.
TEST_P(LoadTest, LoadIntoAFilledTableBooksOverIt)
{
    const std::string text = randomStateText();
    const size_t half = text.find('\n', text.size() / 2) + 1;
    const std::string first = dir.file("first.state");
    const std::string second = dir.file("second.state");
    writeFile(first, text.substr(0, half));
    writeFile(second, text.substr(half));

    RsvId_clearTbl();
    RsvTimeTbl *oneByOne = restoreOneByOne(text);
    RsvId_clearTbl();
    RsvTimeTbl *loaded = RsvTimeTbl_new(first.c_str());
    ASSERT_GT(RsvTimeTbl_load(loaded, nullptr), 0);
    std::free(loaded->stateFile);
    loaded->stateFile = strdup(second.c_str());
    ASSERT_GT(RsvTimeTbl_load(loaded, nullptr), 0);
    EXPECT_TRUE(sameTables(loaded, oneByOne));
    EXPECT_EQ(RsvTimeTbl_verify(loaded, nullptr, nullptr), 0);
    RsvTimeTbl_free(loaded);
    RsvTimeTbl_free(oneByOne);
}

INSTANTIATE_TEST_SUITE_P(Zones, LoadTest, ::testing::Values("UTC", "America/New_York"));

} // namespace
