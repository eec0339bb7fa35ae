// Look-up, insertion and walk costs of the string-keyed hash table at the
// sizes a large cluster reaches (hosts, reservations, owners).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <vector>

#include "qob.rsvimpl.h"

namespace {

std::vector<std::string> makeKeys(int n, const char *prefix)
{
    std::vector<std::string> keys;
    keys.reserve(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        char buf[48];
        std::snprintf(buf, sizeof buf, "%s%d", prefix, i);
        keys.emplace_back(buf);
    }
    return keys;
}

struct FilledTable {
    HashTab tab{};
    explicit FilledTable(const std::vector<std::string> &keys)
    {
        h_initTab_(&tab, 64);
        for (const auto &k : keys)
            h_addEnt_(&tab, k.c_str(), nullptr);
    }
    ~FilledTable() { h_freeTab_(&tab, nullptr); }
};

// A hit for every key in turn.
void BM_LookupHit(benchmark::State &state)
{
    const int n = static_cast<int>(state.range(0));
    auto keys = makeKeys(n, "hostname-");
    FilledTable t(keys);
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(h_getEnt_(&t.tab, keys[i].c_str()));
        if (++i == keys.size())
            i = 0;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LookupHit)->Arg(1000)->Arg(100000);

// A miss: a key of the same shape that is not in the table.
void BM_LookupMiss(benchmark::State &state)
{
    const int n = static_cast<int>(state.range(0));
    auto keys = makeKeys(n, "hostname-");
    auto absent = makeKeys(n, "hostnamex");
    FilledTable t(keys);
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(h_getEnt_(&t.tab, absent[i].c_str()));
        if (++i == absent.size())
            i = 0;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LookupMiss)->Arg(1000)->Arg(100000);

// Building a table of n keys from a small start, growth included.
void BM_Fill(benchmark::State &state)
{
    const int n = static_cast<int>(state.range(0));
    auto keys = makeKeys(n, "rsv#");
    for (auto _ : state) {
        FilledTable t(keys);
        benchmark::DoNotOptimize(t.tab.numEnts);
    }
    state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_Fill)->Arg(100000)->Unit(benchmark::kMillisecond);

// One walk over every entry in insertion order.
void BM_Walk(benchmark::State &state)
{
    const int n = static_cast<int>(state.range(0));
    auto keys = makeKeys(n, "owner");
    FilledTable t(keys);
    for (auto _ : state) {
        HashIter it;
        int count = 0;
        for (HashEnt *e = h_firstEnt_(&t.tab, &it); e; e = h_nextEnt_(&it))
            ++count;
        benchmark::DoNotOptimize(count);
    }
    state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_Walk)->Arg(100000)->Unit(benchmark::kMicrosecond);

} // namespace
