// rsvd through its socket, on the reference table of 10,000 reservations:
// round trips of one client (the status request as the floor, show, find and
// a durable add) and a mix of 32 clients at once. rsvd runs as a child on a
// state directory under $TMPDIR with its clock pinned, as the tests start it.
// Each round trip is timed alone on the steady clock, from the request's
// first byte sent to its reply parsed: the benchmark's time is their mean,
// and the counters their median and 99th percentile in microseconds, with
// the median of rsvd's own processor time per request (of the 32 clients,
// its processor time over the run per request).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <latch>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "rsv_test_support.h"
#include "rsvd_runner.h"
#include "workload.h"

namespace {

using Clock = std::chrono::steady_clock;

// Monday 2030-01-07 09:00 UTC, where the generated tables start.
constexpr long long kNow = 1894006800;
constexpr int kClients = 32;
constexpr int kRequestsPerClient = 30;
// Untimed round trips before the timed ones, so that nothing made on first
// use (a planner of the spare host, the connection's buffers) is counted.
constexpr int kWarmUp = 5;
const char *const kOwner = "bench";

// The reference host holding the most reservations in the state text.
std::string busiestHost(const std::string &stateText)
{
    std::map<std::string, int> held;
    std::istringstream lines(stateText);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::vector<std::string> w;
        for (std::string word; words >> word;)
            w.push_back(word);
        // version, created, options, id, owner, window, host count, 0, then host and slots pairs
        const int hosts = w.size() > 6 ? std::atoi(w[6].c_str()) : 0;
        for (int h = 0; h < hosts && 9 + 2 * static_cast<size_t>(h) < w.size(); ++h)
            ++held[w[8 + 2 * static_cast<size_t>(h)]];
    }
    return std::max_element(held.begin(), held.end(), [](auto &a, auto &b) { return a.second < b.second; })->first;
}

// The reference state directory and rsvd serving it, made on first use and
// stopped at exit.
struct World {
    rsvtest::TempDir dir;
    std::string busyHost;
    int reservations = 0;
    std::optional<rsvdtest::Daemon> daemon;
    clockid_t daemonClock{};

    World()
    {
        if (!rsvbench::writeStateDir(dir.path(), rsvbench::Mix{}, kNow)) {
            std::fprintf(stderr, "rsvd_bench: cannot write %s\n", dir.path().c_str());
            std::exit(1);
        }
        busyHost = busiestHost(rsvtest::readFile(dir.file("rsv.state")));
        daemon.emplace(dir.path(), kNow);
        if (!daemon->ready()) {
            std::fprintf(stderr, "rsvd_bench: rsvd did not start:\n%s\n", daemon->log().c_str());
            std::exit(1);
        }
        // rsvd logs every change; the log must not fill its pipe.
        daemon->followLog();
        if (clock_getcpuclockid(daemon->pid(), &daemonClock) != 0) {
            std::fprintf(stderr, "rsvd_bench: no processor clock of rsvd\n");
            std::exit(1);
        }
        waitUntilIdle();
        rsvdtest::Client client(daemon->socket());
        reservations = client.ask({{"v", 1}, {"cmd", "rsvd.status"}}).value("reservations", 0);
    }

    // rsvd's processor time so far, in seconds: on a shared machine it
    // swings far less than the wall time of a round trip.
    double daemonSeconds() const
    {
        timespec now{};
        clock_gettime(daemonClock, &now);
        return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
    }

    // Once ready, rsvd activates every instance due at the pinned clock (789
    // of the reference table's recurring ones), one durable save each,
    // between requests: the round trips are measured once it has done so,
    // when its processor clock stands still.
    void waitUntilIdle() const
    {
        using namespace std::chrono_literals;
        for (double before = daemonSeconds();;) {
            std::this_thread::sleep_for(250ms);
            const double after = daemonSeconds();
            if (after - before < 0.002)
                return;
            before = after;
        }
    }
};

World &world()
{
    static World w;
    return w;
}

std::string requestLine(const std::string &cmd, const std::vector<std::string> &args)
{
    nlohmann::json request{{"v", 1}, {"cmd", cmd}};
    if (!args.empty())
        request["args"] = args;
    return request.dump() + "\n";
}

struct Answer {
    double seconds = 0;
    nlohmann::json reply;
    bool ok() const { return reply.is_object() && reply.value("status", -1) == 0; }
    std::string why() const
    {
        if (!reply.is_object())
            return "no reply";
        return reply.value("error", "") + reply.value("stderr", "");
    }
};

Answer ask(rsvdtest::Client &client, const std::string &line)
{
    const auto start = Clock::now();
    client.sendRaw(line);
    nlohmann::json reply = client.reply();
    return {std::chrono::duration<double>(Clock::now() - start).count(), std::move(reply)};
}

// An epoch time as the protocol takes it, whatever rsvd's zone.
std::string epochWord(long long seconds)
{
    std::string word = "@";
    word += std::to_string(seconds);
    return word;
}

// A one-hour window of one slot on the spare host, at a new start each time
// (hour by hour through the table's second week, then again): with one slot
// each on a host of 64, every addition fits, however many are held at once.
std::string addLine(const std::string &owner)
{
    static std::atomic<unsigned> count{0};
    const long long start = kNow + 7 * 86400 + static_cast<long long>(count++ % (7 * 24)) * 3600;
    return requestLine("add", {"-u", owner, "-m", rsvbench::kSpareHost, "-n", "1", "-b", epochWord(start),
                               "-e", epochWord(start + 3600)});
}

// The reservation an add's reply names on its first line.
std::string addedId(const nlohmann::json &reply)
{
    const std::string out = reply.value("stdout", "");
    return out.substr(0, out.find('\n'));
}

// The nearest-rank quantile `q` of `samples`, in microseconds.
double quantileMicros(std::vector<double> samples, double q)
{
    if (samples.empty())
        return 0;
    std::sort(samples.begin(), samples.end());
    const size_t rank = static_cast<size_t>(std::ceil(q * static_cast<double>(samples.size())));
    return samples[std::clamp<size_t>(rank, 1, samples.size()) - 1] * 1e6;
}

void reportLatency(benchmark::State &state, const std::vector<double> &samples, const std::string &prefix = "")
{
    state.counters[prefix + "p50_us"] = quantileMicros(samples, 0.50);
    state.counters[prefix + "p99_us"] = quantileMicros(samples, 0.99);
}

// Round trips of one client: `request` gives each request line, and
// `after`, if any, runs untimed after each successful reply.
void runLatency(benchmark::State &state, const std::function<std::string()> &request,
                const std::function<bool(rsvdtest::Client &, const nlohmann::json &)> &after = {})
{
    rsvdtest::Client client(world().daemon->socket());
    for (int i = 0; i < kWarmUp; ++i) {
        const Answer answer = ask(client, request());
        if (!answer.ok() || (after && !after(client, answer.reply))) {
            state.SkipWithError(("warm-up refused: " + answer.why()).c_str());
            return;
        }
    }
    std::vector<double> samples, daemonSamples;
    samples.reserve(static_cast<size_t>(state.max_iterations));
    daemonSamples.reserve(static_cast<size_t>(state.max_iterations));
    for (auto _ : state) {
        const std::string line = request();
        const double daemonBefore = world().daemonSeconds();
        const Answer answer = ask(client, line);
        daemonSamples.push_back(world().daemonSeconds() - daemonBefore);
        if (!answer.ok()) {
            state.SkipWithError(("refused: " + answer.why()).c_str());
            break;
        }
        state.SetIterationTime(answer.seconds);
        samples.push_back(answer.seconds);
        if (after && !after(client, answer.reply)) {
            state.SkipWithError("the untimed step after the reply was refused");
            break;
        }
    }
    reportLatency(state, samples);
    state.counters["rsvd_cpu_us"] = quantileMicros(daemonSamples, 0.50);
    state.counters["reservations"] = world().reservations;
}

// The socket and the JSON alone: rsvd answers from its counters.
void BM_RsvdStatus(benchmark::State &state)
{
    const std::string line = requestLine("rsvd.status", {});
    runLatency(state, [&] { return line; });
}
BENCHMARK(BM_RsvdStatus)->UseManualTime()->Iterations(2000)->Unit(benchmark::kMicrosecond);

// One reservation of the table in full.
void BM_RsvdShow(benchmark::State &state)
{
    const std::string line = requestLine("show", {"user250#10"});
    runLatency(state, [&] { return line; });
}
BENCHMARK(BM_RsvdShow)->UseManualTime()->Iterations(300)->Unit(benchmark::kMicrosecond);

// The earliest hour of one slot on the table's busiest host.
void BM_RsvdFind(benchmark::State &state)
{
    const std::string line = requestLine("find", {"-u", kOwner, "-n", "1", "-m", world().busyHost, "-D", "1h"});
    runLatency(state, [&] { return line; });
    state.SetLabel(world().busyHost);
}
BENCHMARK(BM_RsvdFind)->UseManualTime()->Iterations(1000)->Unit(benchmark::kMicrosecond);

// A durable addition, answered once both files are on disk; each is deleted
// again untimed, so every addition meets the same table.
void BM_RsvdAdd(benchmark::State &state)
{
    runLatency(state, [] { return addLine(kOwner); },
               [](rsvdtest::Client &client, const nlohmann::json &reply) {
                   return ask(client, requestLine("del", {addedId(reply)})).ok();
               });
}
BENCHMARK(BM_RsvdAdd)->UseManualTime()->Iterations(200)->Unit(benchmark::kMicrosecond);

// What one client of the mix asks and how long each took.
enum Kind { kShow, kFind, kAdd, kDel, kKinds };
const char *const kKindNames[kKinds] = {"show", "find", "add", "del"};

struct ClientRun {
    std::vector<double> samples[kKinds];
    std::string failure;
};

// One client of the mix: 35 % show of a random reservation, 35 % find on a
// random host, 30 % changes, each an add of its own on the spare host or,
// when it holds one, the deletion of it; what it still holds at the end it
// deletes, so the table ends as it began.
void mixClient(int index, rsvdtest::Client &client, std::latch &go, ClientRun &run)
{
    std::mt19937 rng(static_cast<unsigned>(index) + 1);
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    const std::string owner = std::string(kOwner) + std::to_string(index);
    std::string held;
    go.arrive_and_wait();
    for (int i = 0; i < kRequestsPerClient && run.failure.empty(); ++i) {
        const int roll = pick(0, 99);
        Kind kind;
        std::string line;
        if (roll < 35) {
            kind = kShow;
            const int r = pick(0, rsvbench::kReservations - 1);
            line = requestLine("show", {"user" + std::to_string(r % rsvbench::kOwners) + "#" +
                                        std::to_string(r / rsvbench::kOwners)});
        } else if (roll < 70) {
            kind = kFind;
            line = requestLine("find", {"-u", owner, "-n", "1", "-m", rsvbench::hostName(pick(0, rsvbench::kHosts - 1)),
                                        "-D", "1h"});
        } else if (held.empty()) {
            kind = kAdd;
            line = addLine(owner);
        } else {
            kind = kDel;
            line = requestLine("del", {held});
        }
        const Answer answer = ask(client, line);
        if (!answer.ok()) {
            run.failure = std::string(kKindNames[kind]) + " refused: " + answer.why();
            break;
        }
        run.samples[kind].push_back(answer.seconds);
        if (kind == kAdd)
            held = addedId(answer.reply);
        else if (kind == kDel)
            held.clear();
    }
    if (!held.empty() && run.failure.empty()) {
        const Answer answer = ask(client, requestLine("del", {held}));
        if (answer.ok())
            run.samples[kDel].push_back(answer.seconds);
        else
            run.failure = "the last deletion refused: " + answer.why();
    }
}

// Requests per second of 32 clients, one connection and one thread each,
// and each kind's latency under that load.
void BM_RsvdMix32Clients(benchmark::State &state)
{
    std::vector<double> all[kKinds];
    int64_t requests = 0;
    double daemonTime = 0;
    for (auto _ : state) {
        std::vector<std::unique_ptr<rsvdtest::Client>> clients;
        for (int c = 0; c < kClients; ++c)
            clients.push_back(std::make_unique<rsvdtest::Client>(world().daemon->socket()));
        std::vector<ClientRun> runs(kClients);
        std::latch go(kClients + 1);
        std::vector<std::thread> threads;
        for (int c = 0; c < kClients; ++c)
            threads.emplace_back(mixClient, c, std::ref(*clients[static_cast<size_t>(c)]), std::ref(go),
                                 std::ref(runs[static_cast<size_t>(c)]));
        const double daemonBefore = world().daemonSeconds();
        go.arrive_and_wait();
        const auto start = Clock::now();
        for (auto &t : threads)
            t.join();
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        daemonTime += world().daemonSeconds() - daemonBefore;
        for (const ClientRun &run : runs) {
            if (!run.failure.empty()) {
                state.SkipWithError(run.failure.c_str());
                return;
            }
            for (int k = 0; k < kKinds; ++k) {
                all[k].insert(all[k].end(), run.samples[k].begin(), run.samples[k].end());
                requests += static_cast<int64_t>(run.samples[k].size());
            }
        }
    }
    state.SetItemsProcessed(requests);
    state.counters["rsvd_cpu_us"] = requests ? daemonTime / static_cast<double>(requests) * 1e6 : 0;
    for (int k = 0; k < kKinds; ++k)
        reportLatency(state, all[k], std::string(kKindNames[k]) + "_");
}
BENCHMARK(BM_RsvdMix32Clients)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace
