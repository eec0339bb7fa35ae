// Durable saving: a durable add into the reference table of 10,000
// reservations, files included, and its parts: the text of the two files,
// writing them, fsync, and rename with the directory fsync (the change in
// memory is what remains of the whole). Files go under $TMPDIR.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "persist/persist_internal.h"
#include "rsv_test_support.h"
#include "workload.h"

using namespace rsvtest;

namespace {

void quietSink(int, const char *) {}

struct World {
    ScopedTz tz{"UTC"};
    PinnedClock clock{localTime(2030, 1, 7, 9, 0)};
    FakeDaemon daemon;
    TempDir dir;
    rsvbench::StateFiles files{dir, PinnedClock::now()};

    World()
    {
        kx_setLogSink(quietSink);
        rsvbench::addReferenceHosts(daemon);
    }

    // The state file of the reference table with `reservations` records.
    const std::string &source(int reservations) { return files.of(reservations); }

    // The reference table, saving to `stateName` in the benchmark directory
    // ("" for a table whose files cannot be written).
    RsvTimeTbl *load(const std::string &stateName, bool durable, int reservations = rsvbench::kReservations)
    {
        RsvId_clearTbl();
        RsvTimeTbl *tbl = RsvTimeTbl_new(source(reservations).c_str());
        if (RsvTimeTbl_load(tbl, nullptr) != reservations)
            std::abort();
        std::free(tbl->stateFile);
        std::free(tbl->idFile);
        tbl->stateFile = strdup(stateName.empty() ? "" : dir.file(stateName + ".state").c_str());
        tbl->idFile = strdup(stateName.empty() ? "" : dir.file(stateName + ".ids").c_str());
        RsvTimeTbl_setDurable(tbl, durable ? 1 : 0);
        return tbl;
    }
};

World &world()
{
    static World w;
    return w;
}

// Adds one small reservation, then removes it untimed.
void addOne(benchmark::State &state, RsvTimeTbl *tbl, int n)
{
    const time_t start = PinnedClock::now() + 3 * 86400;
    OwnedReq r(0, "bench", 1, 1, {rsvbench::hostName(n % rsvbench::kHosts)}, oneOff(start, start + 7200));
    char *id = RsvTimeTbl_addEntry(tbl, &r.req);
    state.PauseTiming();
    if (!id)
        std::abort();
    RsvTimeTbl_removeEntry(tbl, id);
    std::free(id);
    state.ResumeTiming();
}

// The whole durable add: plan, commit, texts, write, fsync, rename
// (argument: reservations in the table).
void BM_DurableAdd(benchmark::State &state)
{
    RsvTimeTbl *tbl = world().load("durable", true, static_cast<int>(state.range(0)));
    int n = 0;
    for (auto _ : state)
        addOne(state, tbl, n++);
    RsvTimeTbl_free(tbl);
}
BENCHMARK(BM_DurableAdd)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(40);

// The text of both files, built in memory.
void BM_SaveTexts(benchmark::State &state)
{
    RsvTimeTbl *tbl = world().load("", false);
    for (auto _ : state) {
        std::string ids;
        std::string text;
        rsv::RsvId_appendFileText(ids);
        rsv::RsvTimeTbl_appendStateText(tbl, text, nullptr);
        benchmark::DoNotOptimize(text.data());
    }
    RsvTimeTbl_free(tbl);
}
BENCHMARK(BM_SaveTexts)->Unit(benchmark::kMillisecond)->Iterations(40);

// Writing the state text to a new file, with and without fsync, and the
// rename with the directory fsync.
void writeBench(benchmark::State &state, bool sync, bool rename)
{
    RsvTimeTbl *tbl = world().load("", false);
    std::string text;
    rsv::RsvTimeTbl_appendStateText(tbl, text, nullptr);
    const std::string tmp = world().dir.file("w.tmp");
    const std::string target = world().dir.file("w.state");
    for (auto _ : state) {
        if (rename)
            state.PauseTiming();
        const int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (fd < 0 || ::write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
            std::abort();
        if (sync)
            ::fsync(fd);
        ::close(fd);
        if (!rename)
            continue;
        state.ResumeTiming();
        std::rename(tmp.c_str(), target.c_str());
        const int dirFd = ::open(world().dir.path().c_str(), O_RDONLY | O_DIRECTORY);
        ::fsync(dirFd);
        ::close(dirFd);
    }
    RsvTimeTbl_free(tbl);
}
void BM_WriteStateFile(benchmark::State &state) { writeBench(state, false, false); }
void BM_WriteAndFsyncStateFile(benchmark::State &state) { writeBench(state, true, false); }
void BM_RenameAndFsyncDirectory(benchmark::State &state) { writeBench(state, true, true); }
BENCHMARK(BM_WriteStateFile)->Unit(benchmark::kMillisecond)->Iterations(40);
BENCHMARK(BM_WriteAndFsyncStateFile)->Unit(benchmark::kMillisecond)->Iterations(40);
BENCHMARK(BM_RenameAndFsyncDirectory)->Unit(benchmark::kMillisecond)->Iterations(40);

// The default rewrite of the same table, for comparison.
void BM_DefaultRewrite(benchmark::State &state)
{
    RsvTimeTbl *tbl = world().load("default", false);
    for (auto _ : state)
        RsvTimeTbl_logStat(tbl);
    RsvTimeTbl_free(tbl);
}
BENCHMARK(BM_DefaultRewrite)->Unit(benchmark::kMillisecond)->Iterations(20);

} // namespace
