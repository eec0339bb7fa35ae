// The I/O fault layer linked into this program and armed from the inside:
// first that it catches every entry point and only calls under its
// directory, then the module's durable saves under each fault.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <string>

#include "rsv_iofault.h"
#include "rsv_test_support.h"

// The fortified entry points, declared by the C library only when
// fortification is on.
extern "C" int __open_2(const char *path, int flags);
extern "C" int __open64_2(const char *path, int flags);

namespace {

class FaultLayer : public ::testing::Test {
protected:
    void SetUp() override
    {
        dir = tmp.file("watched");
        ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
        outside = tmp.file("outside");
    }
    void TearDown() override { rsv_iofault_disarm(); }

    rsvtest::TempDir tmp;
    std::string dir;
    std::string outside;
};

TEST_F(FaultLayer, OnlyCallsUnderTheDirectoryCountAndFail)
{
    rsv_iofault_arm("write", 2, ENOSPC, dir.c_str());
    const int out = open(outside.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int in = open((dir + "/f").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ASSERT_GE(out, 0);
    ASSERT_GE(in, 0);
    EXPECT_EQ(write(out, "x", 1), 1);
    EXPECT_EQ(write(out, "x", 1), 1);
    EXPECT_EQ(write(in, "a", 1), 1);  // first under the directory
    errno = 0;
    EXPECT_EQ(write(in, "b", 1), -1);  // second: fails
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(write(in, "c", 1), 1);  // once only
    EXPECT_EQ(rsv_iofault_calls(), 3);
    EXPECT_EQ(rsv_iofault_hits(), 1);
    close(out);
    close(in);
    EXPECT_EQ(rsvtest::readFile(dir + "/f"), "ac");
}

TEST_F(FaultLayer, EveryOpenEntryPointIsCaught)
{
    const std::string file = dir + "/f";
    rsvtest::writeFile(file, "x");
    const int dirFd = open(dir.c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_GE(dirFd, 0);
    // Relative to the working directory, and with "." and ".." on the way.
    const std::string roundabout = dir + "/./../watched/f";
    rsv_iofault_arm("open", 1, EIO, dir.c_str());
    struct Entry {
        const char *name;
        int (*call)(const std::string &, int);
    };
    const Entry entries[] = {
        {"open", [](const std::string &p, int) { return open(p.c_str(), O_RDONLY); }},
        {"open64", [](const std::string &p, int) { return open64(p.c_str(), O_RDONLY); }},
        {"openat", [](const std::string &, int d) { return openat(d, "f", O_RDONLY); }},
        {"openat64", [](const std::string &, int d) { return openat64(d, "f", O_RDONLY); }},
        {"__open_2", [](const std::string &p, int) { return __open_2(p.c_str(), O_RDONLY); }},
        {"__open64_2", [](const std::string &p, int) { return __open64_2(p.c_str(), O_RDONLY); }},
        {"fopen", [](const std::string &p, int) {
             // The C library's own stdio opens inside itself: not caught.
             FILE *fp = fopen(p.c_str(), "r");
             int ok = fp ? 0 : -1;
             if (fp)
                 fclose(fp);
             return ok;
         }},
    };
    for (const Entry &e : entries) {
        rsv_iofault_arm("open", 1, EIO, dir.c_str());
        errno = 0;
        const int fd = e.call(roundabout, dirFd);
        if (std::string(e.name) == "fopen") {
            EXPECT_EQ(fd, 0);
            EXPECT_EQ(rsv_iofault_hits(), 0);
            continue;
        }
        EXPECT_EQ(fd, -1) << e.name;
        EXPECT_EQ(errno, EIO) << e.name;
        EXPECT_EQ(rsv_iofault_hits(), 1) << e.name;
        // Once only: the next call opens.
        const int again = e.call(roundabout, dirFd);
        EXPECT_GE(again, 0) << e.name;
        if (again >= 0)
            close(again);
    }
    close(dirFd);
}

TEST_F(FaultLayer, FsyncCloseAndRenameOfEveryForm)
{
    const std::string a = dir + "/a", b = dir + "/b";
    rsvtest::writeFile(a, "1");

    rsv_iofault_arm("fsync", 2, EIO, dir.c_str());
    int fd = open(a.c_str(), O_RDONLY);
    const int dirFd = open(dir.c_str(), O_RDONLY | O_DIRECTORY);
    EXPECT_EQ(fsync(fd), 0);
    EXPECT_EQ(fdatasync(dirFd), -1);  // the directory's sync counts too
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(rsv_iofault_calls(), 2);

    // A failed close still releases the descriptor, as on Linux.
    rsv_iofault_arm("close", 1, EIO, dir.c_str());
    close(dirFd);  // opened before arming: not counted
    EXPECT_EQ(close(fd), 0);
    fd = open(a.c_str(), O_RDONLY);
    EXPECT_EQ(close(fd), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_EQ(errno, EBADF);

    for (int form = 0; form < 3; ++form) {
        rsv_iofault_arm("rename", 1, ENOSPC, dir.c_str());
        errno = 0;
        int rc = form == 0 ? rename(a.c_str(), b.c_str())
                 : form == 1 ? renameat(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str())
                             : renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), 0);
        EXPECT_EQ(rc, -1) << form;
        EXPECT_EQ(errno, ENOSPC) << form;
        EXPECT_TRUE(rsvtest::fileExists(a));
        EXPECT_FALSE(rsvtest::fileExists(b));
    }
    // A rename into the directory counts as well.
    rsvtest::writeFile(outside, "2");
    rsv_iofault_arm("rename", 1, EIO, dir.c_str());
    EXPECT_EQ(rename(outside.c_str(), b.c_str()), -1);
    rsv_iofault_disarm();
    EXPECT_EQ(rename(a.c_str(), b.c_str()), 0);
}

TEST_F(FaultLayer, TheTextFormArmsWithTimesAndRefusesNonsense)
{
    EXPECT_EQ(rsv_iofault_arm_text("op=write,nth=2,times=2,errno=EDQUOT", dir.c_str()), 0);
    const int fd = open((dir + "/f").c_str(), O_WRONLY | O_CREAT, 0644);
    EXPECT_EQ(write(fd, "a", 1), 1);
    EXPECT_EQ(write(fd, "b", 1), -1);
    EXPECT_EQ(errno, EDQUOT);
    EXPECT_EQ(write(fd, "c", 1), -1);
    EXPECT_EQ(write(fd, "d", 1), 1);
    EXPECT_EQ(rsv_iofault_hits(), 2);
    close(fd);
    EXPECT_EQ(rsv_iofault_arm_text("op=chmod,nth=1", dir.c_str()), -1);
    EXPECT_EQ(rsv_iofault_arm_text("op=write,nth=0", dir.c_str()), -1);
    EXPECT_EQ(rsv_iofault_arm_text("op=write,errno=EWHAT", dir.c_str()), -1);
    EXPECT_EQ(rsv_iofault_arm_text("op=write,errno=28", dir.c_str()), 0);
}

// ---------------------------------------------------------------- the module

constexpr time_t kNow = 1794996000;      // Wed 2026-11-18 10:00 UTC
constexpr time_t kThu0900 = 1795078800;  // Thu 2026-11-19 09:00 UTC

class DurableSave : public FaultLayer {
protected:
    void SetUp() override
    {
        FaultLayer::SetUp();
        daemon.addHost("alpha", 8);
        state = dir + "/rsv.state";
        tbl = RsvTimeTbl_new(state.c_str());
        ASSERT_NE(tbl, nullptr);
        ASSERT_EQ(RsvTimeTbl_setDurable(tbl, 1), 0);
        ASSERT_TRUE(add("a"));
        ASSERT_TRUE(add("b"));
        stateBefore = rsvtest::readFile(state);
        idsBefore = rsvtest::readFile(dir + "/rsv.ids");
        cellsBefore = rsvtest::plannerCells(tbl);
    }
    void TearDown() override
    {
        FaultLayer::TearDown();
        RsvTimeTbl_free(tbl);
    }
    bool add(const std::string &owner)
    {
        rsvtest::OwnedReq req(0, owner, 2, 2, {"alpha"}, rsvtest::oneOff(kThu0900, kThu0900 + 3600));
        char *id = RsvTimeTbl_addEntry(tbl, &req.req);
        std::free(id);
        return id != nullptr;
    }
    void expectUnchanged()
    {
        EXPECT_EQ(rsvtest::readFile(state), stateBefore);
        EXPECT_EQ(rsvtest::readFile(dir + "/rsv.ids"), idsBefore);
        EXPECT_EQ(rsvtest::plannerCells(tbl), cellsBefore);
        EXPECT_EQ(h_numEnts_(&tbl->entries), 2);
        EXPECT_FALSE(rsvtest::fileExists(state + ".tmp"));
        EXPECT_FALSE(rsvtest::fileExists(dir + "/rsv.ids.tmp"));
    }

    rsvtest::ScopedTz tz{"UTC"};
    rsvtest::PinnedClock clock{kNow};
    rsvtest::LogCapture log;
    rsvtest::FakeDaemon daemon;
    std::string state;
    RsvTimeTbl *tbl = nullptr;
    std::string stateBefore, idsBefore;
    std::vector<int> cellsBefore;
};

struct StepCase {
    const char *op;
    int nth;
    const char *file;  // "ids" or "state"
    const char *step;
};

// Each step of the save, failed once: the add reports RSV_ERR_NOT_SAVED
// with errno and the step kept, and nothing changed in memory or on disk.
TEST_F(DurableSave, EveryStepFailedLeavesTableAndFilesAsTheyWere)
{
    const StepCase cases[] = {
        {"open", 1, "ids", "open"},   {"open", 2, "state", "open"},   {"write", 1, "ids", "write"},
        {"write", 2, "state", "write"}, {"fsync", 1, "ids", "fsync"}, {"fsync", 2, "state", "fsync"},
        {"close", 1, "ids", "close"}, {"close", 2, "state", "close"}, {"rename", 1, "ids", "rename"},
        {"rename", 2, "state", "rename"}, {"fsync", 3, "ids", "fsync directory"},
        {"open", 3, "ids", "open directory"},
    };
    for (const StepCase &c : cases) {
        SCOPED_TRACE(std::string(c.op) + " #" + std::to_string(c.nth));
        rsv_iofault_arm(c.op, c.nth, ENOSPC, dir.c_str());
        qob_errno = 0;
        errno = 0;
        EXPECT_FALSE(add("c"));
        EXPECT_EQ(qob_errno, RSV_ERR_NOT_SAVED);
        EXPECT_EQ(errno, ENOSPC);
        EXPECT_EQ(rsv_iofault_hits(), 1);
        rsv_iofault_disarm();
        const char *file = nullptr, *step = nullptr;
        EXPECT_EQ(RsvTimeTbl_lastSaveError(tbl, &file, &step), ENOSPC);
        EXPECT_STREQ(file, (dir + (std::string(c.file) == "ids" ? "/rsv.ids" : "/rsv.state")).c_str());
        EXPECT_STREQ(step, c.step);
        expectUnchanged();
    }
    // And the same change goes through afterwards, with the identifier the
    // failed attempts did not use up.
    rsvtest::OwnedReq req(0, "c", 2, 2, {"alpha"}, rsvtest::oneOff(kThu0900, kThu0900 + 3600));
    char *id = RsvTimeTbl_addEntry(tbl, &req.req);
    ASSERT_NE(id, nullptr);
    EXPECT_STREQ(id, "c#0");
    std::free(id);
    EXPECT_EQ(RsvTimeTbl_lastSaveError(tbl, nullptr, nullptr), 0);
}

// A fault that stays (every rename from the state file's on fails): the
// state file keeps the old table and no temporary is left; the id file,
// already replaced, cannot be put back, but its counters only run ahead
// of the state file, never behind it.
TEST_F(DurableSave, ALastingFaultAfterTheIdFileNeverPutsTheStateAheadOfIt)
{
    ASSERT_EQ(rsv_iofault_arm_text("op=rename,nth=2,times=0,errno=EIO", dir.c_str()), 0);
    EXPECT_FALSE(add("c"));
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_SAVED);
    rsv_iofault_disarm();
    EXPECT_EQ(rsvtest::readFile(state), stateBefore);
    EXPECT_EQ(h_numEnts_(&tbl->entries), 2);
    EXPECT_FALSE(rsvtest::fileExists(state + ".tmp"));
    EXPECT_FALSE(rsvtest::fileExists(dir + "/rsv.ids.tmp"));
    // Either as before, or with the counter of "c" that the failed add took.
    std::map<std::string, int> before = rsvtest::idFileCounters(idsBefore);
    std::map<std::string, int> after = rsvtest::idFileCounters(rsvtest::readFile(dir + "/rsv.ids"));
    if (after != before) {
        before["c"] = 0;
        EXPECT_EQ(after, before);
    }
}

// The first save of a new table fails after replacing a file: the files
// that were not there before are taken away again.
TEST_F(FaultLayer, AFailedFirstSaveLeavesNoFilesBehind)
{
    rsvtest::ScopedTz tz{"UTC"};
    rsvtest::PinnedClock clock{kNow};
    rsvtest::LogCapture log;
    rsvtest::FakeDaemon daemon;
    daemon.addHost("alpha", 8);
    const std::string state = dir + "/rsv.state";
    for (const char *fault : {"op=fsync,nth=3,errno=EIO", "op=rename,nth=2,errno=ENOSPC"}) {
        RsvTimeTbl *tbl = RsvTimeTbl_new(state.c_str());
        ASSERT_EQ(RsvTimeTbl_setDurable(tbl, 1), 0);
        ASSERT_EQ(rsv_iofault_arm_text(fault, dir.c_str()), 0) << fault;
        rsvtest::OwnedReq req(0, "a", 2, 2, {"alpha"}, rsvtest::oneOff(kThu0900, kThu0900 + 3600));
        char *id = RsvTimeTbl_addEntry(tbl, &req.req);
        rsv_iofault_disarm();
        EXPECT_EQ(id, nullptr) << fault;
        std::free(id);
        EXPECT_EQ(qob_errno, RSV_ERR_NOT_SAVED) << fault;
        EXPECT_FALSE(rsvtest::fileExists(state)) << fault;
        EXPECT_FALSE(rsvtest::fileExists(dir + "/rsv.ids")) << fault;
        EXPECT_FALSE(rsvtest::fileExists(state + ".tmp")) << fault;
        EXPECT_EQ(h_numEnts_(&tbl->entries), 0);
        RsvTimeTbl_free(tbl);
    }
}

} // namespace
