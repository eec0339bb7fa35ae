// The information reply for a large table: 1,000 to 100,000 reservations of 4
// hosts and 8 jobs each, built and released.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

#include "rsv_test_support.h"

using namespace rsvtest;

namespace {

constexpr int kHostsPerReservation = 4;
constexpr int kJobsPerReservation = 8;
constexpr int kHosts = 64;

// A daemon finds hosts and jobs by hash; the fake daemon's look-ups are
// linear scans and ordered-map walks that would be measured instead of the
// reply.
std::unordered_map<std::string, RsvHost *> hostIndex;
std::unordered_map<int64_t, RsvJob *> jobIndex;

RsvHost *indexedHost(const char *name)
{
    auto it = hostIndex.find(name ? name : "");
    return it == hostIndex.end() ? nullptr : it->second;
}

RsvJob *indexedJob(int64_t jobId)
{
    auto it = jobIndex.find(jobId);
    return it == jobIndex.end() ? nullptr : it->second;
}

void fillTable(FakeDaemon &daemon, RsvTimeTbl *tbl, int reservations)
{
    std::vector<RsvHost *> hosts;
    for (int h = 0; h < kHosts; ++h) {
        std::string name = "host" + std::to_string(h);
        hosts.push_back(daemon.addHost(name, 16));
        hostIndex[name] = hosts.back();
    }
    int64_t jobId = 1;
    for (int r = 0; r < reservations; ++r) {
        RsvEnt *ent = RsvEnt_new(0, "alice", "1900000000-1900003600");
        ent->rsvId = strdup(("alice#" + std::to_string(r)).c_str());
        ent->numHosts = kHostsPerReservation;
        ent->allocVector = static_cast<AllocElem *>(calloc(kHostsPerReservation, sizeof(AllocElem)));
        for (int h = 0; h < kHostsPerReservation; ++h) {
            ent->allocVector[h].hostName = strdup(("host" + std::to_string((r + h) % kHosts)).c_str());
            ent->allocVector[h].numSlots = 2;
        }
        ent->jobList = listCreate("jobs");
        for (int j = 0; j < kJobsPerReservation; ++j) {
            auto *job = static_cast<RsvJobEnt *>(calloc(1, sizeof(RsvJobEnt)));
            job->jobId = jobId;
            listInsertEntryAtBack(ent->jobList, &job->links);
            jobIndex[jobId] = daemon.addJob(jobId, 0x4, {hosts[static_cast<size_t>((r + j) % kHosts)]});
            ++jobId;
        }
        ent->numJobs = kJobsPerReservation;
        ent->description = strdup("benchmark reservation");
        h_addEnt_(&tbl->entries, ent->rsvId, nullptr)->value = ent;
    }
}

// The reply built and released with the given pair of calls.
void replyBench(benchmark::State &state, int (*build)(RsvTimeTbl *, RsvInfoReply *),
                void (*release)(RsvInfoReply *))
{
    // Each size with indexes of its own hosts and jobs only.
    hostIndex.clear();
    jobIndex.clear();
    FakeDaemon daemon;
    RsvTimeTbl *tbl = RsvTimeTbl_new(nullptr);
    const int reservations = static_cast<int>(state.range(0));
    fillTable(daemon, tbl, reservations);
    daemon.services.findHost = indexedHost;
    daemon.services.findJob = indexedJob;
    RsvMod_init(&daemon.services);
    for (auto _ : state) {
        RsvInfoReply reply{};
        int rc = build(tbl, &reply);
        benchmark::DoNotOptimize(rc);
        benchmark::DoNotOptimize(reply.rsvInfo);
        release(&reply);
    }
    state.SetItemsProcessed(state.iterations() * reservations);
    RsvTimeTbl_free(tbl);
}

// Every text and array in a block of its own, as a daemon may free them.
void BM_InfoReplyBuildAndRelease(benchmark::State &state)
{
    replyBench(state, RsvTimeTbl_ToRsvInfoReply, RsvInfoReply_destroy);
}

// The same reply in one block.
void BM_InfoReplyPackedBuildAndRelease(benchmark::State &state)
{
    replyBench(state, RsvTimeTbl_ToRsvInfoReplyPacked, RsvInfoReply_destroyPacked);
}

} // namespace

// Argument: reservations in the table.
BENCHMARK(BM_InfoReplyBuildAndRelease)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_InfoReplyPackedBuildAndRelease)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
