// Running out of memory at every allocation of every changing call: for
// n = 0, 1, 2, ... the n+1-th allocation and every later one fail, until the
// call goes through. Each failed call reports RSV_ERR_NO_MEMORY and leaves
// the table (entries, counters, planner cells) and both files exactly as
// they were, and the table still verifies. Two kinds of allocation run out:
// the daemon's allocator, and the C++ allocations of the module itself
// (which must never leave a call as an exception).
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "rsv_test_support.h"

using namespace rsvtest;

// ------------------------------------------------------------ C++ allocation
// While armed, operator new lets `newAllowed` allocations through and throws
// std::bad_alloc for every later one (the nothrow forms give NULL), like
// FakeDaemon::failAfter. Every form is replaced, so that each block is
// released by the allocator that made it.

namespace {

using HostSet = rsvtest::RequestedHosts;
bool newArmed = false;
long newAllowed = 0;
} // namespace

// Out of line: the compiler would otherwise see new's blocks reach free()
// and warn of a mismatch that is none (both sides are these two).
[[gnu::noinline]] void *operator new(std::size_t size)
{
    if (newArmed) {
        if (newAllowed <= 0)
            throw std::bad_alloc();
        --newAllowed;
    }
    if (void *p = std::malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}

[[gnu::noinline]] void *operator new(std::size_t size, const std::nothrow_t &) noexcept
{
    try {
        return ::operator new(size);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

[[gnu::noinline]] void *operator new[](std::size_t size)
{
    return ::operator new(size);
}

[[gnu::noinline]] void *operator new[](std::size_t size, const std::nothrow_t &tag) noexcept
{
    return ::operator new(size, tag);
}

[[gnu::noinline]] void operator delete(void *p) noexcept
{
    std::free(p);
}

[[gnu::noinline]] void operator delete(void *p, std::size_t) noexcept
{
    std::free(p);
}

[[gnu::noinline]] void operator delete(void *p, const std::nothrow_t &) noexcept
{
    std::free(p);
}

[[gnu::noinline]] void operator delete[](void *p) noexcept
{
    std::free(p);
}

[[gnu::noinline]] void operator delete[](void *p, std::size_t) noexcept
{
    std::free(p);
}

[[gnu::noinline]] void operator delete[](void *p, const std::nothrow_t &) noexcept
{
    std::free(p);
}

namespace {

enum class Fault { Daemon, Cpp };

// Drops the module's log lines without allocating, so that a line logged
// while C++ allocations fail costs nothing (and the loops stay quiet).
class QuietLog {
public:
    QuietLog() : previous_(kx_setLogSink(&drop)) {}
    ~QuietLog() { kx_setLogSink(previous_); }
    QuietLog(const QuietLog &) = delete;
    QuietLog &operator=(const QuietLog &) = delete;

private:
    static void drop(int, const char *) {}
    KxLogSink previous_;
};

// Upper bound of allocations of any one call here; a call that still fails
// with that many is broken.
constexpr int kBound = 2000;

// What a call reports: whether it went through, and its error number when
// not (its return value or qob_errno, per the call).
struct Outcome {
    bool ok;
    int error;
};

// The files of a table as they are on disk.
struct Files {
    std::string state;
    std::string ids;
    bool stateTmp;
    bool idsTmp;
    bool operator==(const Files &o) const
    {
        return state == o.state && ids == o.ids && stateTmp == o.stateTmp && idsTmp == o.idsTmp;
    }
};

// Default and durable saving, each with either kind of shortage, on a table
// whose planners are booked at once and on one, loaded again from its file,
// whose planners are built when first needed.
class OomTest : public ::testing::TestWithParam<std::tuple<bool, Fault, bool>> {
protected:
    OomTest() : tz_("America/New_York"), clock_(0)
    {
        clock_.set(localTime(2026, 2, 2, 9, 0)); // a Monday
        for (const char *h : {"hostA", "hostB", "hostC", "hostD"})
            daemon.addHost(h, 8)->status = 0; // removed only when named
        tbl.reset(RsvTimeTbl_new(dir.file("rsv.state").c_str()));
        buildTable();
        if (lazy()) {
            // Loaded again, every host's planners unbuilt until a call needs them.
            RsvId_clearTbl();
            tbl.reset(RsvTimeTbl_new(dir.file("rsv.state").c_str()));
            EXPECT_EQ(RsvTimeTbl_setLazyPlanners(tbl.get(), 1), 0);
            EXPECT_EQ(RsvTimeTbl_load(tbl.get(), nullptr), 5);
            EXPECT_EQ(h_numEnts_(&tbl->plannerLists), 0);
        }
        if (durable()) {
            EXPECT_EQ(RsvTimeTbl_setDurable(tbl.get(), 1), 0);
            EXPECT_EQ(RsvTimeTbl_save(tbl.get()), RSV_OK);
        }
        EXPECT_TRUE(tableVerifies(tbl.get()));
    }

    bool durable() const { return std::get<0>(GetParam()); }
    Fault fault() const { return std::get<1>(GetParam()); }
    bool lazy() const { return std::get<2>(GetParam()); }

    // Allocations from the next one on: `n` go through, the rest fail.
    void failAfter(int n)
    {
        if (fault() == Fault::Daemon) {
            daemon.failAfter(n);
        } else {
            newAllowed = n;
            newArmed = true;
        }
    }
    void stopFailing()
    {
        newArmed = false;
        daemon.failAfter(-1);
    }

    std::string add(int options, const std::string &owner, int procs, const std::vector<std::string> &hosts,
                    const std::string &window)
    {
        return rsvtest::addReservation(tbl.get(), options, owner, procs, hosts, window);
    }

    // alice#0 on two hosts, alice#1 over a week end, bob#0 daily across
    // midnight with a disabled day, carol#0 weekly across the week end, and
    // a system reservation.
    void buildTable()
    {
        add(0, "alice", 10, {"hostA", "hostB"}, oneOff(localTime(2026, 2, 4, 10, 0), localTime(2026, 2, 4, 12, 0)));
        add(0, "alice", 2, {"hostC"}, oneOff(localTime(2026, 2, 6, 18, 0), localTime(2026, 2, 9, 8, 0)));
        add(RSV_OPT_RECURRING, "bob", 2, {"hostB"}, "22:0-2:0");
        add(RSV_OPT_RECURRING, "carol", 2, {"hostC"}, "6:20:0-1:6:0");
        add(RSV_OPT_SYSTEM, "root", 1, {"hostD"}, oneOff(localTime(2026, 2, 5, 0, 0), localTime(2026, 2, 5, 6, 0)));
        EXPECT_EQ(RsvTimeTbl_disableDays(tbl.get(), "bob#0", "2:11"), 0) << qob_errno;
    }

    Files files() const
    {
        const std::string state = tbl->stateFile;
        const std::string ids = tbl->idFile;
        return {readFile(state), readFile(ids), fileExists(state + ".tmp"), fileExists(ids + ".tmp")};
    }

    // Runs `f` (the module call alone: the test's own allocations stay
    // outside) with `n` allocations allowed.
    template <typename F>
    auto during(int n, F f)
    {
        failAfter(n);
        auto result = f();
        stopFailing();
        return result;
    }

    // The loop: `call(n)` runs its module call through during(n, ...) until
    // it goes through; every failure must be a clean RSV_ERR_NO_MEMORY.
    // `succeeded` checks the outcome of the call that went through.
    // `saves`: the call writes the files when it goes through.
    void faultLoop(const std::function<Outcome(int)> &call, const std::function<void()> &succeeded,
                   bool saves = true)
    {
        const TableFingerprint before = fingerprint(tbl.get());
        const Files filesBefore = files();
        int n = 0;
        Outcome outcome{false, 0};
        for (; n < kBound; ++n) {
            qob_errno = 0;
            outcome = call(n);
            if (outcome.ok)
                break;
            ASSERT_EQ(outcome.error, RSV_ERR_NO_MEMORY) << "with " << n << " allocations";
            ASSERT_TRUE(sameFingerprint(before, fingerprint(tbl.get()))) << "with " << n << " allocations";
            ASSERT_TRUE(tableVerifies(tbl.get())) << "with " << n << " allocations";
            ASSERT_TRUE(files() == filesBefore) << "with " << n << " allocations";
        }
        ASSERT_TRUE(outcome.ok) << "still failing with " << kBound << " allocations";
        EXPECT_TRUE(tableVerifies(tbl.get())) << "with " << n << " allocations";
        // The files' texts are built before the change is kept, in either
        // mode: a call that went through has both files as the table now is.
        if (saves) {
            EXPECT_EQ(readFile(tbl->stateFile), stateFileText(tbl.get()));
            EXPECT_EQ(readFile(tbl->idFile), idFileText());
        }
        succeeded();
        lastAllocations_ = n;
    }

    RsvEnt *entry(const char *id) { return RsvTimeTbl_getEntry(tbl.get(), id); }

    // Outcome of a call that returns a slot count or 0, or -1 with qob_errno.
    static Outcome byErrno(int result) { return {result >= 0, result >= 0 ? 0 : qob_errno}; }
    // Outcome of a call that returns 0 or its error number.
    static Outcome byResult(int result) { return {result == 0, result}; }

    ScopedTz tz_;
    PinnedClock clock_;
    FakeDaemon daemon;
    QuietLog quiet_;
    TempDir dir;
    rsv::Table tbl;
    int lastAllocations_ = 0;
};

std::string paramName(const ::testing::TestParamInfo<std::tuple<bool, Fault, bool>> &info)
{
    return std::string(std::get<0>(info.param) ? "Durable" : "Default") +
           (std::get<1>(info.param) == Fault::Daemon ? "DaemonAllocator" : "CppAllocation") +
           (std::get<2>(info.param) ? "LazyPlanners" : "");
}

INSTANTIATE_TEST_SUITE_P(Modes, OomTest,
                         ::testing::Combine(::testing::Bool(), ::testing::Values(Fault::Daemon, Fault::Cpp),
                                            ::testing::Bool()),
                         paramName);

} // namespace

// ------------------------------------------------------------ adding

TEST_P(OomTest, AddingAOneOffReservation)
{
    const std::string window = oneOff(localTime(2026, 2, 3, 14, 0), localTime(2026, 2, 3, 16, 0));
    std::string id;
    faultLoop(
        [&](int n) {
            OwnedReq req(0, "dave", 2, 2, {"hostC"}, window);
            char *made = during(n, [&] { return RsvTimeTbl_addEntry(tbl.get(), &req.req); });
            id = made ? made : "";
            std::free(made);
            return Outcome{made != nullptr, qob_errno};
        },
        [&] {
            EXPECT_EQ(id, "dave#0");
            EXPECT_NE(entry("dave#0"), nullptr);
        });
    if (fault() == Fault::Daemon) {
        EXPECT_GT(lastAllocations_, 3); // the loop went through failures
    }
}

TEST_P(OomTest, AddingARecurringReservation)
{
    std::string id;
    faultLoop(
        [&](int n) {
            OwnedReq req(RSV_OPT_RECURRING, "dave", 3, 3, {"hostA", "hostB"}, "3:8:0-3:9:0");
            char *made = during(n, [&] { return RsvTimeTbl_addEntry(tbl.get(), &req.req); });
            id = made ? made : "";
            std::free(made);
            return Outcome{made != nullptr, qob_errno};
        },
        [&] {
            ASSERT_EQ(id, "dave#0");
            EXPECT_EQ(Rsv_getNumSlotsReserved(entry("dave#0")), 3);
        });
}

TEST_P(OomTest, AddingASystemReservation)
{
    const std::string window = oneOff(localTime(2026, 2, 6, 0, 0), localTime(2026, 2, 6, 6, 0));
    std::string id;
    faultLoop(
        [&](int n) {
            OwnedReq req(RSV_OPT_SYSTEM, "root", 0, 1, {"hostD"}, window);
            char *made = during(n, [&] { return RsvTimeTbl_addEntry(tbl.get(), &req.req); });
            id = made ? made : "";
            std::free(made);
            return Outcome{made != nullptr, qob_errno};
        },
        [&] {
            ASSERT_EQ(id, "system#1");
            EXPECT_EQ(Rsv_getNumSlotsReserved(entry("system#1")), 8); // every slot of the host
        });
}

// ------------------------------------------------------------ removing

TEST_P(OomTest, RemovingAReservation)
{
    faultLoop(
        [&](int n) { return byResult(during(n, [&] { return RsvTimeTbl_removeEntry(tbl.get(), "bob#0"); })); },
              [&] {
                  EXPECT_EQ(entry("bob#0"), nullptr);
                  EXPECT_EQ(h_numEnts_(&tbl->entries), 4);
              });
}

TEST_P(OomTest, RemovingSeveralReservations)
{
    const char *ids[] = {"alice#0", "carol#0"};
    faultLoop(
        [&](int n) {
            return byResult(during(n, [&] { return RsvTimeTbl_removeEntries(tbl.get(), ids, 2, nullptr); }));
        },
              [&] {
                  EXPECT_EQ(entry("alice#0"), nullptr);
                  EXPECT_EQ(entry("carol#0"), nullptr);
                  EXPECT_EQ(h_numEnts_(&tbl->entries), 3);
              });
}

// ------------------------------------------------------------ changing

TEST_P(OomTest, MovingAWindow)
{
    std::string request;
    faultLoop(
        [&](int n) {
            OwnedModReq mod("alice#1", 0, 0, 0, {}, "null&+30");
            const int result = during(n, [&] { return RsvTimeTbl_modifyTimeWindow(tbl.get(), &mod.mod); });
            request = mod.mod.req.timeWindow ? mod.mod.req.timeWindow : "<NULL>";
            // A failed move leaves the caller's request as it was.
            if (result != 0) {
                EXPECT_EQ(request, "null&+30");
            }
            return byResult(result);
        },
        [&] {
            const std::string moved = oneOff(localTime(2026, 2, 6, 18, 0), localTime(2026, 2, 9, 8, 30));
            EXPECT_EQ(request, moved);
            EXPECT_STREQ(entry("alice#1")->timeWindow, moved.c_str());
        });
}

TEST_P(OomTest, AddingHosts)
{
    faultLoop(
        [&](int n) {
            OwnedModReq mod("alice#1", 0, 2, 2, {"hostD"}, "");
            return byErrno(during(n, [&] { return RsvTimeTbl_addHosts(tbl.get(), &mod.mod); }));
        },
        [&] {
            RsvEnt *ent = entry("alice#1");
            ASSERT_EQ(ent->numHosts, 2);
            EXPECT_EQ(Rsv_getNumSlotsReserved(ent), 4);
        });
}

TEST_P(OomTest, RemovingANamedHost)
{
    int removed = -1;
    faultLoop(
        [&](int n) {
            HostSet hosts({"hostB"});
            OwnedModReq mod("alice#0", 0, 0, 0, {}, "");
            removed =
                during(n, [&] { return RsvTimeTbl_removeHosts(tbl.get(), &mod.mod, hosts.get(), RSV_RM_HOSTS); });
            return byErrno(removed);
        },
        [&] {
            EXPECT_EQ(removed, 2);
            RsvEnt *ent = entry("alice#0");
            ASSERT_EQ(ent->numHosts, 1);
            EXPECT_STREQ(ent->allocVector[0].hostName, "hostA");
        });
}

TEST_P(OomTest, RemovingProcessors)
{
    int removed = -1;
    faultLoop(
        [&](int n) {
            OwnedModReq mod("alice#0", 0, 3, 0, {}, "");
            removed =
                during(n, [&] { return RsvTimeTbl_removeHosts(tbl.get(), &mod.mod, nullptr, RSV_RM_NUMPROCS); });
            return byErrno(removed);
        },
        [&] {
            EXPECT_EQ(removed, 3);
            EXPECT_EQ(Rsv_getNumSlotsReserved(entry("alice#0")), 7);
        });
}

TEST_P(OomTest, DisablingDays)
{
    faultLoop(
        [&](int n) {
            return byErrno(during(n, [&] { return RsvTimeTbl_disableDays(tbl.get(), "carol#0", "2:14-2:16"); }));
        },
              [&] {
                  RsvEnt *ent = entry("carol#0");
                  ASSERT_NE(ent->disabledDurations, nullptr);
                  EXPECT_EQ(ent->disabledDurations->numEnts, 1);
              });
}

TEST_P(OomTest, DisablingAListOfDays)
{
    const char *days[] = {"2:14", "2:18-2:20"};
    faultLoop(
        [&](int n) {
            return byErrno(during(n, [&] { return RsvTimeTbl_disableDayList(tbl.get(), "carol#0", days, 2, nullptr); }));
        },
        [&] {
            RsvEnt *ent = entry("carol#0");
            ASSERT_NE(ent->disabledDurations, nullptr);
            EXPECT_EQ(ent->disabledDurations->numEnts, 2);
        });
}

TEST_P(OomTest, EnablingDaysCutsADurationInTwo)
{
    // bob#0 is off on 2:11; off 2:12-2:16 too, then on again on 2:14.
    ASSERT_EQ(RsvTimeTbl_disableDays(tbl.get(), "bob#0", "2:12-2:16"), 0) << qob_errno;
    const char *days[] = {"2:14"};
    faultLoop(
        [&](int n) {
            return byErrno(during(n, [&] { return RsvTimeTbl_enableDayList(tbl.get(), "bob#0", days, 1, nullptr); }));
        },
        [&] {
            RsvEnt *ent = entry("bob#0");
            ASSERT_NE(ent->disabledDurations, nullptr);
            EXPECT_EQ(ent->disabledDurations->numEnts, 2);
        });
}

TEST_P(OomTest, SettingADescription)
{
    faultLoop(
        [&](int n) {
            return byErrno(
                during(n, [&] { return RsvTimeTbl_setDescription(tbl.get(), "bob#0", "nightly backups"); }));
        },
              [&] { EXPECT_STREQ(entry("bob#0")->description, "nightly backups"); });
}

TEST_P(OomTest, Activating)
{
    RsvEnt *ent = entry("alice#0");
    faultLoop([&](int n) { return byResult(during(n, [&] { return RsvTimeTbl_activate(tbl.get(), ent); })); },
              [&] {
                  EXPECT_EQ(entry("alice#0")->state, RSV_STATE_ACTIVE);
                  EXPECT_EQ(entry("alice#0")->activeTime, localTime(2026, 2, 2, 9, 0));
              });
}

TEST_P(OomTest, ActivatingSeveralAtOnce)
{
    RsvEnt *ents[] = {entry("alice#0"), entry("bob#0")};
    faultLoop([&](int n) { return byResult(during(n, [&] { return RsvTimeTbl_activateEntries(tbl.get(), ents, 2); })); },
              [&] {
                  for (const char *id : {"alice#0", "bob#0"}) {
                      EXPECT_EQ(entry(id)->state, RSV_STATE_ACTIVE) << id;
                      EXPECT_EQ(entry(id)->activeTime, localTime(2026, 2, 2, 9, 0)) << id;
                  }
              });
}

TEST_P(OomTest, Deactivating)
{
    RsvEnt *ent = entry("alice#0");
    ASSERT_EQ(RsvTimeTbl_activate(tbl.get(), ent), 0);
    faultLoop([&](int n) { return byResult(during(n, [&] { return RsvTimeTbl_deactivate(tbl.get(), ent); })); },
              [&] {
                  EXPECT_EQ(entry("alice#0")->state, RSV_STATE_INACTIVE);
                  EXPECT_EQ(entry("alice#0")->activeTime, 0);
              });
}

// ------------------------------------------------------------ start-up

TEST_P(OomTest, LoadingAStateFile)
{
    // A few dozen more reservations of several owners and kinds, written by
    // the table itself (rewritten in place: no fsync per reservation).
    RsvTimeTbl_setDurable(tbl.get(), 0);
    for (int i = 0; i < 30; ++i) {
        const std::string owner = "user" + std::to_string(i % 4);
        const time_t start = localTime(2026, 2, 10, 8, 0) + static_cast<time_t>(i) * 86400 * 2;
        if (i % 3 == 0)
            add(RSV_OPT_RECURRING, owner, 1, {"hostD"}, std::to_string(i % 7 + 1) + ":7:0-" +
                                                          std::to_string(i % 7 + 1) + ":7:50");
        else
            add(0, owner, 1 + i % 2, {"hostA", "hostB"}, oneOff(start, start + 3600 * (1 + i % 5)));
    }
    RsvTimeTbl_logStat(tbl.get());
    const int expected = h_numEnts_(&tbl->entries);
    ASSERT_GT(expected, 30);
    const TableFingerprint loaded = fingerprint(tbl.get());

    // A restart: the counters are gone; the id file brings them back.
    RsvId_clearTbl();
    tbl.reset(RsvTimeTbl_new(dir.file("rsv.state").c_str()));
    if (durable()) {
        RsvTimeTbl_setDurable(tbl.get(), 1);
    }
    if (lazy()) {
        RsvTimeTbl_setLazyPlanners(tbl.get(), 1);
    }
    faultLoop(
        [&](int n) {
            int rejected = -1;
            const int restored = during(n, [&] { return RsvTimeTbl_load(tbl.get(), &rejected); });
            if (restored < 0) {
                EXPECT_EQ(rejected, 0);
            }
            return Outcome{restored == expected && rejected == 0, restored < 0 ? qob_errno : -restored};
        },
        [&] {
            const TableFingerprint after = fingerprint(tbl.get());
            EXPECT_EQ(after.records, loaded.records);
            // Every owner's counter is back; restoring "system#n" adds a
            // counter of the word "system" as well.
            std::istringstream lines(loaded.counters);
            for (std::string line; std::getline(lines, line);)
                EXPECT_NE(after.counters.find(line + "\n"), std::string::npos) << line;
        },
        false);
}
