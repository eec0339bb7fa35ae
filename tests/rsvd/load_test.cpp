// load_test.cpp: rsvd on a 10,000-reservation table under 32 clients at once,
// killed at a random moment and started again on the same directory. Every
// change a reply acknowledged is there after the restart, every refused one
// is not, and only the changes in flight at the kill may be either way; then
// the clients carry on against the new rsvd, and after a clean stop the
// table is exactly what the replies told of.
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <thread>
#include <utility>

#include <gtest/gtest.h>

#include "rsv_test_support.h"
#include "rsvctl_runner.h"
#include "rsvd_runner.h"

using rsvctltest::kNow;

namespace {

constexpr int kHosts = 200;
constexpr int kSlotsPerHost = 64;
constexpr int kInitialReservations = 10000;
constexpr int kInitialOwners = 500;
constexpr int kClients = 32;

// Under AddressSanitizer every request costs about eight times as much (a
// listing of the whole table takes seconds): the sanitized build runs 5,000
// of the requests, which keeps it near a minute and a half, with the same
// mix and a kill at the same share of its changes; the plain build runs all
// 20,000 (about 40 s).
#if defined(__SANITIZE_ADDRESS__)
#define RSVD_LOAD_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define RSVD_LOAD_SANITIZED 1
#endif
#endif
#ifdef RSVD_LOAD_SANITIZED
constexpr int kRequests = 5000;
#else
constexpr int kRequests = 20000;
#endif
// The seed of a run; RSVD_LOAD_SEED gives another one, to explore or to
// repeat a failure.
constexpr unsigned kDefaultSeed = 20261118;

std::string hostName(int h)
{
    char name[16];
    std::snprintf(name, sizeof name, "node%03d", h);
    return name;
}

std::string login()
{
    const passwd *pw = getpwuid(geteuid());
    return pw && pw->pw_name ? pw->pw_name : "";
}

unsigned runSeed()
{
    const char *text = std::getenv("RSVD_LOAD_SEED");
    return text && *text ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : kDefaultSeed;
}

std::string clusterText()
{
    // One owner makes every add of the run: the limit must not refuse them.
    std::string text = "max-per-owner 10000\n";
    for (int h = 0; h < kHosts; ++h)
        text += hostName(h) + " " + std::to_string(kSlotsPerHost) + "\n";
    return text;
}

// The starting table, written as state-file records: each host has a series
// of one-off windows 4 hours apart, none longer than 3 hours, of at most 8
// slots, a third of them with a few slots on the host 100 places on as well,
// and every tenth a daily window of 1 slot. No host ever has more than 17
// slots booked at once, so every record loads and the clients' adds find
// room, or are refused for want of it now and then.
struct Initial {
    std::string stateText;
    std::map<std::string, std::string> windows; // identifier -> window text
};

Initial initialTable(long long now)
{
    Initial initial;
    for (int i = 0; i < kInitialReservations; ++i) {
        const int h = i % kHosts;
        const int j = i / kHosts;
        const std::string owner = "owner" + std::to_string(i % kInitialOwners);
        const std::string id = owner + "#" + std::to_string(i / kInitialOwners);
        std::string window;
        int options = 0;
        std::string hosts;
        if (j % 10 == 9) {
            options = RSV_OPT_RECURRING;
            const int from = (h + j) % 22;
            window = std::to_string(from) + ":0-" + std::to_string(from + 1) + ":30";
            hosts = "1 0 " + hostName(h) + " 1";
        } else {
            const long long begin = now + 600LL * (6 + h % 12) + j * 4LL * 3600;
            window = std::to_string(begin) + "-" + std::to_string(begin + 3600LL * (1 + i % 3));
            const std::string first = hostName(h) + " " + std::to_string(1 + (i * 7) % 8);
            hosts = i % 3 == 0 ? "2 0 " + first + " " + hostName((h + 100) % kHosts) + " " + std::to_string(1 + i % 4)
                               : "1 0 " + first;
        }
        initial.stateText += std::string(RSV_FORMAT_VERSION) + " " + std::to_string(now) + " " +
                             std::to_string(options) + " " + id + " " + owner + " " + window + " " + hosts +
                             " loader \"initial\" 0 0\n";
        initial.windows[id] = window;
    }
    return initial;
}

// What a client believes about one reservation it added: where it asked for
// it and what the replies said.
struct Owned {
    std::string id;
    std::string window;                 // "begin-end"
    std::map<std::string, int> hosts;   // host -> slots, as the add reported them
    std::string description;
};

// A change whose reply never came: sent (or about to be) when rsvd died.
struct InFlight {
    enum Kind { None, Add, Del, Mod } kind = None;
    Owned target;             // Add: what was asked (no id); Del, Mod: the reservation
    int slots = 0;            // Add: slots asked
    std::string description;  // Mod: the new text
};

// "N slots on host:n,host:n" of add's second line.
std::map<std::string, int> landedSlots(const std::string &line)
{
    std::map<std::string, int> hosts;
    const size_t on = line.find(" on ");
    if (on == std::string::npos)
        return hosts;
    std::stringstream list(line.substr(on + 4));
    for (std::string item; std::getline(list, item, ',');) {
        const size_t colon = item.rfind(':');
        if (colon != std::string::npos)
            hosts[item.substr(0, colon)] = std::atoi(item.c_str() + colon + 1);
    }
    return hosts;
}

// Hosts holding slots in a reservation object of list/show --json.
std::map<std::string, int> jsonHosts(const nlohmann::json &rsv)
{
    std::map<std::string, int> hosts;
    for (const auto &host : rsv["hosts"])
        if (host["slots"].get<int>() > 0)
            hosts[host["name"].get<std::string>()] = host["slots"].get<int>();
    return hosts;
}

std::string describe(const nlohmann::json &rsv)
{
    return rsv.value("id", "?") + " window " + rsv.value("window", "?") + " description " +
           (rsv["description"].is_string() ? rsv["description"].get<std::string>() : "null");
}

// Stops every client at the same acknowledged change: the main thread waits
// here for the moment to kill rsvd.
struct KillSwitch {
    std::mutex mutex;
    std::condition_variable changed;
    int acknowledged = 0;
    int clientsDone = 0;
    std::atomic<bool> killed{false};

    void acknowledge()
    {
        std::lock_guard lock(mutex);
        ++acknowledged;
        changed.notify_all();
    }
    void done()
    {
        std::lock_guard lock(mutex);
        ++clientsDone;
        changed.notify_all();
    }
};

struct Counts {
    int acknowledged = 0;
    int refused = 0;
    int unknown = 0;
    int reads = 0;
};

// One client: its generator, the reservations it added that are there, and
// its change in flight at a kill. Only this client changes its reservations,
// so what it reads of them must agree with what it was told.
class Worker {
public:
    Worker(int index, unsigned seed, const std::string &owner, const Initial &initial)
        : index_(index), rng_(seed * 7919u + static_cast<unsigned>(index)), owner_(owner), initial_(initial)
    {
        for (const auto &[id, window] : initial_.windows)
            initialIds_.push_back(id);
    }

    // Ask requests until `next` reaches `total` or the connection ends.
    void run(const std::string &socket, std::atomic<int> &next, int total, KillSwitch &kill)
    {
        rsvdtest::Client client(socket);
        if (!client.connected()) {
            problem("cannot connect to " + socket);
            kill.done();
            return;
        }
        while (next.fetch_add(1) < total) {
            if (!step(client, kill))
                break;
        }
        kill.done();
    }

    // What went wrong since the last call.
    std::vector<std::string> takeProblems() { return std::exchange(problems_, {}); }
    const Counts &counts() const { return counts_; }
    const std::map<std::string, Owned> &owned() const { return owned_; }
    const std::set<std::string> &everAdded() const { return everAdded_; }
    InFlight &inFlight() { return inFlight_; }

    // What a look at the table settled about the change in flight: the add
    // is there as `own`, the reservation `id` is gone, or has `description`.
    void adopt(const Owned &own)
    {
        owned_[own.id] = own;
        everAdded_.insert(own.id);
    }
    void forget(const std::string &id)
    {
        owned_.erase(id);
        deleted_.push_back(id);
    }
    void setDescription(const std::string &id, const std::string &description) { owned_[id].description = description; }

private:
    int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }

    void problem(const std::string &text)
    {
        if (problems_.size() < 20)
            problems_.push_back("client " + std::to_string(index_) + ": " + text);
    }

    // The reply to `args`, or nothing when the connection ended. An end the
    // kill does not explain is a problem: rsvd died or hung up by itself.
    std::optional<nlohmann::json> ask(rsvdtest::Client &client, const std::string &cmd,
                                      const std::vector<std::string> &args, KillSwitch &kill)
    {
        nlohmann::json reply = client.command(cmd, args);
        if (reply.is_discarded()) {
            if (!kill.killed)
                problem("no reply to " + cmd + " while rsvd should be running");
            return std::nullopt;
        }
        if (!reply.contains("status"))
            problem("reply without status to " + cmd + ": " + reply.dump());
        return reply;
    }

    const Owned *randomOwned()
    {
        if (owned_.empty())
            return nullptr;
        auto it = owned_.begin();
        std::advance(it, pick(0, static_cast<int>(owned_.size()) - 1));
        return &it->second;
    }

    // One request; false when the connection ended. Of a hundred, 30
    // changes and 70 reads, mostly availability queries as a scheduler's
    // traffic is; list goes through the whole table's listing, which costs
    // more than a change, so it is rare.
    bool step(rsvdtest::Client &client, KillSwitch &kill)
    {
        const int kind = pick(0, 99);
        if (kind >= 70)
            return change(client, kill);
        ++counts_.reads;
        if (kind < 60)
            return find(client, kill);
        if (kind < 64)
            return showInitial(client, kill);
        if (kind < 66)
            return showOwned(client, kill);
        if (kind < 68)
            return listOwn(client, kill);
        if (kind < 69 || pick(0, 20) != 0) {
            auto reply = ask(client, "hosts", {}, kill);
            if (reply && (*reply)["status"] != 0)
                problem("hosts: " + reply->dump());
            return reply.has_value();
        }
        // The whole table, now and then: it is the slowest read there is.
        auto reply = ask(client, "list", {"--noheader", "-o", "id"}, kill);
        if (reply && (*reply)["status"] != 0)
            problem("list: " + reply->dump());
        return reply.has_value();
    }

    bool showInitial(rsvdtest::Client &client, KillSwitch &kill)
    {
        const std::string &id = initialIds_[static_cast<size_t>(pick(0, kInitialReservations - 1))];
        auto reply = ask(client, "show", {"--json", id}, kill);
        if (reply && ((*reply)["status"] != 0 || (*reply)["json"]["window"] != initial_.windows.at(id)))
            problem("show " + id + ": " + reply->dump());
        return reply.has_value();
    }

    bool showOwned(rsvdtest::Client &client, KillSwitch &kill)
    {
        if (!deleted_.empty() && pick(0, 3) == 0) {
            const std::string id = deleted_[static_cast<size_t>(pick(0, static_cast<int>(deleted_.size()) - 1))];
            auto reply = ask(client, "show", {id}, kill);
            if (reply && (*reply)["status"] != 2)
                problem("show of deleted " + id + ": " + reply->dump());
            return reply.has_value();
        }
        const Owned *own = randomOwned();
        if (!own)
            return find(client, kill);
        auto reply = ask(client, "show", {"--json", own->id}, kill);
        if (reply && ((*reply)["status"] != 0 || (*reply)["json"]["description"] != own->description ||
                      (*reply)["json"]["window"] != own->window || jsonHosts((*reply)["json"]) != own->hosts))
            problem("show " + own->id + " (expected description '" + own->description + "'): " + reply->dump());
        return reply.has_value();
    }

    std::string someHosts(int count)
    {
        std::set<int> chosen;
        while (static_cast<int>(chosen.size()) < count)
            chosen.insert(pick(0, kHosts - 1));
        std::string text;
        for (int h : chosen)
            text += (text.empty() ? "" : ",") + hostName(h);
        return text;
    }

    bool find(rsvdtest::Client &client, KillSwitch &kill)
    {
        auto reply = ask(client, "find",
                         {"-u", owner_, "-n", std::to_string(pick(1, 40)), "-m", someHosts(pick(1, 3)), "-D", "1h"}, kill);
        if (reply && (*reply)["status"] != 0 && (*reply)["status"] != 2)
            problem("find: " + reply->dump());
        return reply.has_value();
    }

    bool listOwn(rsvdtest::Client &client, KillSwitch &kill)
    {
        auto reply = ask(client, "list", {"-u", owner_, "--noheader", "-o", "id"}, kill);
        if (!reply)
            return false;
        std::set<std::string> listed;
        std::stringstream out((*reply)["stdout"].get<std::string>());
        for (std::string line; std::getline(out, line);)
            listed.insert(line.substr(0, line.find_last_not_of(' ') + 1));
        for (const auto &[id, own] : owned_)
            if (!listed.count(id))
                problem("list -u " + owner_ + " leaves out " + id);
        for (const std::string &id : deleted_)
            if (listed.count(id))
                problem("list -u " + owner_ + " shows deleted " + id);
        return true;
    }

    bool change(rsvdtest::Client &client, KillSwitch &kill)
    {
        const int kind = pick(0, 99);
        if (owned_.empty() || kind < 50)
            return add(client, kill);
        if (kind < 52 && !deleted_.empty())
            return delAgain(client, kill);
        if (kind < 75)
            return del(client, kill);
        return mod(client, kill);
    }

    // A reservation deleted before: refused, and nothing changes.
    bool delAgain(rsvdtest::Client &client, KillSwitch &kill)
    {
        const std::string id = deleted_[static_cast<size_t>(pick(0, static_cast<int>(deleted_.size()) - 1))];
        auto reply = ask(client, "del", {id}, kill);
        if (!reply)
            return false;
        ++counts_.refused;
        if ((*reply)["status"] != 2)
            problem("del of deleted " + id + ": " + reply->dump());
        return true;
    }

    // A change, in flight until its reply comes: the reply, or nothing when
    // the connection ended first.
    std::optional<nlohmann::json> sendChange(rsvdtest::Client &client, KillSwitch &kill, const InFlight &flight,
                                             const std::string &cmd, const std::vector<std::string> &args)
    {
        inFlight_ = flight;
        auto reply = ask(client, cmd, args, kill);
        if (!reply) {
            ++counts_.unknown;
            return std::nullopt;
        }
        inFlight_ = InFlight{};
        if ((*reply)["status"] != 0) {
            ++counts_.refused;
        } else {
            ++counts_.acknowledged;
            kill.acknowledge();
        }
        return reply;
    }

    bool add(rsvdtest::Client &client, KillSwitch &kill)
    {
        InFlight asked;
        asked.kind = InFlight::Add;
        const long long begin = kNow + 600LL * pick(6, 14 * 24 * 6);
        const int minutes = 30 * pick(2, 12);
        asked.target.window = std::to_string(begin) + "-" + std::to_string(begin + 60LL * minutes);
        // Now and then more than the hosts have free: refused.
        asked.slots = pick(0, 9) == 0 ? pick(40, 120) : pick(1, 24);
        asked.target.description = "w" + std::to_string(index_) + " add " + std::to_string(++serial_);
        const std::string hosts = someHosts(pick(1, 2));
        std::stringstream names(hosts);
        for (std::string name; std::getline(names, name, ',');)
            asked.target.hosts[name] = 0;
        auto reply = sendChange(client, kill, asked, "add",
                                {"-u", owner_, "-n", std::to_string(asked.slots), "-m", hosts, "-b",
                                 "@" + std::to_string(begin), "-D", std::to_string(minutes) + "m", "-d",
                                 asked.target.description});
        if (!reply)
            return false;
        if ((*reply)["status"] != 0) {
            if ((*reply)["status"] != 2)
                problem("add: " + reply->dump());
            return true;
        }
        const std::string out = (*reply)["stdout"];
        Owned own = asked.target;
        own.id = out.substr(0, out.find('\n'));
        own.hosts = landedSlots(out.substr(out.find('\n') + 1));
        int total = 0;
        for (const auto &[host, slots] : own.hosts)
            total += slots;
        if (total != asked.slots || !everAdded_.insert(own.id).second)
            problem("add reply: " + out);
        owned_[own.id] = own;
        return true;
    }

    bool del(rsvdtest::Client &client, KillSwitch &kill)
    {
        InFlight flight;
        flight.kind = InFlight::Del;
        flight.target = *randomOwned();
        const std::string id = flight.target.id;
        auto reply = sendChange(client, kill, flight, "del", {id});
        if (!reply)
            return false;
        if ((*reply)["status"] != 0) {
            problem("del " + id + ": " + reply->dump());
            return true;
        }
        owned_.erase(id);
        deleted_.push_back(id);
        return true;
    }

    bool mod(rsvdtest::Client &client, KillSwitch &kill)
    {
        InFlight flight;
        flight.kind = InFlight::Mod;
        flight.target = *randomOwned();
        flight.description = "w" + std::to_string(index_) + " mod " + std::to_string(++serial_);
        const std::string id = flight.target.id;
        auto reply = sendChange(client, kill, flight, "mod", {id, "--description", flight.description});
        if (!reply)
            return false;
        if ((*reply)["status"] != 0) {
            problem("mod " + id + ": " + reply->dump());
            return true;
        }
        owned_[id].description = flight.description;
        return true;
    }

    int index_;
    std::mt19937 rng_;
    std::string owner_;
    const Initial &initial_;
    std::vector<std::string> initialIds_;
    std::map<std::string, Owned> owned_;
    std::vector<std::string> deleted_;
    std::set<std::string> everAdded_;
    InFlight inFlight_;
    Counts counts_;
    int serial_ = 0;
    std::vector<std::string> problems_;
};

class RsvdLoad : public ::testing::Test {
protected:
    void SetUp() override
    {
        chmod(tmp.path().c_str(), 0755);
        state = tmp.file("state");
        mkdir(state.c_str(), 0755);
        rsvtest::writeFile(state + "/hosts.conf", clusterText());
        initial = initialTable(kNow);
        rsvtest::writeFile(state + "/rsv.state", initial.stateText);
        owner = login();
        ASSERT_FALSE(owner.empty());
        for (int i = 0; i < kClients; ++i)
            workers.push_back(std::make_unique<Worker>(i, seed, owner, initial));
    }

    // Run the clients until `next` reaches `total` (or rsvd dies).
    void runClients(const std::string &socket, int total)
    {
        kill.acknowledged = 0;
        kill.clientsDone = 0;
        kill.killed = false;
        std::vector<std::thread> threads;
        for (auto &worker : workers)
            threads.emplace_back([&, w = worker.get()] { w->run(socket, next, total, kill); });
        killAt(total);
        for (auto &thread : threads)
            thread.join();
    }

    // Wait for the chosen acknowledged change, or for every client to finish.
    void killAt(int total)
    {
        std::unique_lock lock(kill.mutex);
        kill.changed.wait(lock, [&] {
            return (killAfter > 0 && kill.acknowledged >= killAfter) || kill.clientsDone == kClients;
        });
        if (killAfter > 0 && kill.clientsDone < kClients) {
            kill.killed = true;
            killedAfter = kill.acknowledged;
            killedAtRequest = std::min(next.load(), total);
            lock.unlock();
            EXPECT_EQ(daemon->stop(SIGKILL), -1);
        }
    }

    // The table served at `socket` against the clients' belief: the starting
    // reservations untouched, each client's own ones as it was told, nothing
    // else but what an in-flight change explains, which settles it; then the
    // daemon's `check`.
    void verify(const std::string &socket)
    {
        rsvdtest::Client client(socket);
        ASSERT_TRUE(client.connected());
        nlohmann::json listed = client.command("list", {"--json"});
        ASSERT_EQ(listed["status"], 0) << listed.dump().substr(0, 2000);
        std::map<std::string, nlohmann::json> actual;
        for (const auto &rsv : listed["json"]["reservations"])
            actual[rsv["id"].get<std::string>()] = rsv;

        std::set<std::string> everAdded;
        std::map<std::string, Worker *> ownerOf;
        for (auto &worker : workers) {
            everAdded.insert(worker->everAdded().begin(), worker->everAdded().end());
            for (const auto &[id, own] : worker->owned())
                ownerOf[id] = worker.get();
        }
        int missing = 0;
        int shows = 0;
        for (const auto &[id, window] : initial.windows) {
            auto it = actual.find(id);
            if (it != actual.end()) {
                EXPECT_EQ(it->second["window"], window) << id;
            } else if (++missing <= 5) {
                ADD_FAILURE() << "starting reservation " << id << " is gone";
            }
        }
        for (auto &worker : workers) {
            const InFlight flight = worker->inFlight();
            const std::map<std::string, Owned> owned = worker->owned();
            for (const auto &[id, own] : owned) {
                auto found = actual.find(id);
                if (found == actual.end()) {
                    if (flight.kind == InFlight::Del && flight.target.id == id) {
                        worker->forget(id);
                        ++inFlightLanded;
                    } else {
                        ADD_FAILURE() << "acknowledged " << id << " is lost";
                    }
                    continue;
                }
                const nlohmann::json &rsv = found->second;
                const std::string description =
                    rsv["description"].is_string() ? rsv["description"].get<std::string>() : "";
                if (flight.kind == InFlight::Mod && flight.target.id == id && description == flight.description) {
                    worker->setDescription(id, description);
                    ++inFlightLanded;
                } else {
                    EXPECT_EQ(description, own.description) << describe(rsv);
                }
                EXPECT_EQ(rsv["window"], own.window) << describe(rsv);
                EXPECT_EQ(jsonHosts(rsv), own.hosts) << describe(rsv);
                // show tells the same as the listing; one in a few is
                // asked, which is enough to catch a difference of kind.
                if (++shows % 16 == 0) {
                    nlohmann::json shown = client.command("show", {"--json", id});
                    EXPECT_EQ(shown["json"], rsv) << id;
                }
            }
        }
        // Whatever else is there must be an add in flight at the kill.
        for (const auto &[id, rsv] : actual) {
            if (initial.windows.count(id) || ownerOf.count(id))
                continue;
            if (everAdded.count(id)) {
                ADD_FAILURE() << "acknowledged delete undone: " << describe(rsv);
                continue;
            }
            const std::map<std::string, int> hosts = jsonHosts(rsv);
            Worker *claimant = nullptr;
            for (auto &worker : workers) {
                const InFlight &flight = worker->inFlight();
                bool onAsked = !hosts.empty();
                int total = 0;
                for (const auto &[host, slots] : hosts) {
                    onAsked = onAsked && flight.target.hosts.count(host);
                    total += slots;
                }
                if (flight.kind == InFlight::Add && rsv["owner"] == owner &&
                    rsv["window"] == flight.target.window && rsv["description"] == flight.target.description &&
                    onAsked && total == flight.slots) {
                    claimant = worker.get();
                    break;
                }
            }
            if (!claimant) {
                ADD_FAILURE() << "reservation nobody was told of: " << describe(rsv);
                continue;
            }
            Owned own = claimant->inFlight().target;
            own.id = id;
            own.hosts = hosts;
            claimant->adopt(own);
            ++inFlightLanded;
            claimant->inFlight() = InFlight{};
        }
        for (auto &worker : workers)
            worker->inFlight() = InFlight{};
        size_t expected = initial.windows.size();
        for (auto &worker : workers)
            expected += worker->owned().size();
        EXPECT_EQ(actual.size(), expected);

        nlohmann::json checked = client.command("check", {});
        EXPECT_EQ(checked["status"], 0) << checked.dump();
        EXPECT_NE(checked["stdout"].get<std::string>().find("files on disk match the table"), std::string::npos)
            << checked.dump();
    }

    std::string summary() const
    {
        Counts all;
        for (const auto &worker : workers) {
            all.acknowledged += worker->counts().acknowledged;
            all.refused += worker->counts().refused;
            all.unknown += worker->counts().unknown;
            all.reads += worker->counts().reads;
        }
        return "seed " + std::to_string(seed) + ": changes acknowledged " + std::to_string(all.acknowledged) +
               ", refused " + std::to_string(all.refused) + ", in flight at the kill " + std::to_string(all.unknown) +
               " (landed " + std::to_string(inFlightLanded) + ")" +
               ", reads " + std::to_string(all.reads) + "; killed after change " + std::to_string(killedAfter) +
               " at request " + std::to_string(killedAtRequest);
    }

    void expectNoProblems()
    {
        for (const auto &worker : workers)
            for (const std::string &text : worker->takeProblems())
                ADD_FAILURE() << text;
    }

    rsvtest::ScopedTz tz{"UTC"};
    rsvtest::TempDir tmp;
    std::string state;
    std::string owner;
    unsigned seed = runSeed();
    Initial initial;
    std::vector<std::unique_ptr<Worker>> workers;
    std::unique_ptr<rsvdtest::Daemon> daemon;
    std::atomic<int> next{0};
    KillSwitch kill;
    int killAfter = 0;
    int killedAtRequest = -1;
    int killedAfter = -1;
    int inFlightLanded = 0;
};

TEST_F(RsvdLoad, AcknowledgedChangesOutliveAKillUnderLoad)
{
    SCOPED_TRACE("seed " + std::to_string(seed) + " (set RSVD_LOAD_SEED to repeat)");
    // Somewhere in the middle of the run's changes, about a third of its
    // requests.
    std::mt19937 rng(seed);
    killAfter = std::uniform_int_distribution<int>(kRequests * 3 / 10 / 4, kRequests * 3 / 10 * 3 / 5)(rng);

    daemon = std::make_unique<rsvdtest::Daemon>(state, kNow);
    ASSERT_TRUE(daemon->ready()) << daemon->log();
    EXPECT_NE(daemon->log().find("reservations=" + std::to_string(kInitialReservations)), std::string::npos)
        << daemon->log();
    daemon->followLog();
    runClients(daemon->socket(), kRequests);
    ASSERT_TRUE(kill.killed) << summary();
    expectNoProblems();

    daemon = std::make_unique<rsvdtest::Daemon>(state, kNow);
    ASSERT_TRUE(daemon->ready()) << daemon->log();
    daemon->followLog();
    {
        SCOPED_TRACE("after the kill: " + summary());
        verify(daemon->socket());
    }

    killAfter = 0;
    runClients(daemon->socket(), kRequests);
    EXPECT_EQ(daemon->stop(SIGTERM), 0) << daemon->log().substr(0, 4000);
    expectNoProblems();
    for (const auto &worker : workers)
        EXPECT_EQ(worker->inFlight().kind, InFlight::None);

    daemon = std::make_unique<rsvdtest::Daemon>(state, kNow);
    ASSERT_TRUE(daemon->ready()) << daemon->log();
    {
        SCOPED_TRACE("after a clean stop: " + summary());
        verify(daemon->socket());
    }
    EXPECT_EQ(daemon->stop(SIGTERM), 0);
    std::printf("%s\n", summary().c_str());
}

} // namespace
