// New identifiers come from an index of each owner's reservations instead of
// a walk of the table: after random adds, removals (through the module and
// behind its back), renames and restores, every identifier and counter is
// the one the walk gives.
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "persist/persist_internal.h"
#include "persist_test_util.h"
#include "rsv_test_support.h"

using namespace rsvtest;
using namespace persisttest;

namespace {

// The identifier search as a walk of the table, in the table's order: the
// numbers of the owner's own identifiers (up to the limit), then other
// owners' identifiers under a word of its name, then the cyclic search.
// Returns "<NULL>" for an owner at the limit.
std::string walkedId(RsvTimeTbl *tbl, const std::string &owner, int options, const std::string &nameOnlyId,
                     int &nextOut)
{
    const int max = rsv::RsvId_perOwnerLimit();
    std::vector<int> used(static_cast<size_t>(max), 0);
    int own = 0, other = 0;
    HashIter iter;
    for (HashEnt *he = h_firstEnt_(&tbl->entries, &iter); he; he = h_nextEnt_(&iter)) {
        const auto *ent = static_cast<const RsvEnt *>(he->value);
        if (!ent || !ent->rsvId)
            continue;
        const char *hash = std::strchr(ent->rsvId, '#');
        if (ent->name && owner == ent->name) {
            if (hash)
                used[static_cast<size_t>(own)] = std::atoi(hash + 1);
            if (++own == max)
                break;
        } else if (hash && std::strncmp(ent->rsvId, owner.c_str(), static_cast<size_t>(hash - ent->rsvId)) == 0) {
            ++other;
        }
    }
    if (own == max)
        return "<NULL>";
    int value = 0;
    const bool known = rsv::RsvId_counter(owner.c_str(), &value);
    int next = known ? (value + 1) % max : 0;
    if (next < 0)
        next = 0;
    const int range = max + other;
    for (int i = 0, j = 0; i < own;) {
        bool clash = false;
        if (other > 0 && i < 2) {
            const std::string probe = owner + "#" + std::to_string(next);
            clash = h_getEnt_(&tbl->entries, probe.c_str()) != nullptr || used[static_cast<size_t>(j)] == next;
        } else {
            clash = used[static_cast<size_t>(j)] == next;
        }
        if (clash) {
            next = (next + 1) % range;
            i = 0;
        }
        j = (j + 1) % own;
        ++i;
    }
    nextOut = next;
    if (options & RSV_OPT_NAME_ONLY)
        return nameOnlyId;
    return ((options & RSV_OPT_SYSTEM) ? std::string("system") : owner) + "#" + std::to_string(next);
}

class OwnerIndexTest : public ::testing::Test {
protected:
    OwnerIndexTest() : clock(localTime(2023, 11, 14, 9, 0)), tz("UTC")
    {
        RsvId_clearTbl();
        tbl = RsvTimeTbl_new(dir.file("rsv.state").c_str());
    }
    ~OwnerIndexTest() override
    {
        RsvTimeTbl_free(tbl);
        RsvId_clearTbl();
    }

    void put(const std::string &id, const char *owner)
    {
        HashEnt *he = h_addEnt_(&tbl->entries, id.c_str(), nullptr);
        if (he->value)
            return;
        rsv::Entry ent = makeEntry(id, owner ? owner : "", "1000-2000", {});
        if (!owner) {
            std::free(ent->name);
            ent->name = nullptr;
        }
        he->value = ent.release();
    }
    // A random entry of the table, or NULL for an empty one.
    HashEnt *anyEntry(std::mt19937 &rng)
    {
        const int n = h_numEnts_(&tbl->entries);
        if (n == 0)
            return nullptr;
        int k = static_cast<int>(rng() % static_cast<unsigned>(n));
        HashIter iter;
        HashEnt *he = h_firstEnt_(&tbl->entries, &iter);
        while (k-- > 0)
            he = h_nextEnt_(&iter);
        return he;
    }
    void destroy(HashEnt *he, bool throughModule)
    {
        auto *ent = static_cast<RsvEnt *>(he->value);
        if (throughModule)
            rsv::OwnerIndex_delEnt(tbl, he);
        else
            h_delEnt_(&tbl->entries, he);
        if (ent) {
            RsvEnt_destroy(ent);
            std::free(ent);
        }
    }

    FakeDaemon daemon;
    PinnedClock clock;
    ScopedTz tz;
    TempDir dir;
    LogCapture log;
    RsvTimeTbl *tbl = nullptr;
};

} // namespace

TEST_F(OwnerIndexTest, EveryIdentifierIsTheWalksAfterRandomChanges)
{
    // Owners whose names are words of each other ("a" of "ab", "system" of
    // "systems"), so that other owners' identifiers widen the range.
    const std::vector<const char *> owners = {"a", "ab", "abc", "b", "system", "systems", nullptr};
    const std::vector<std::string> words = {"a", "ab", "abc", "b", "system", "", "sys", "x"};
    std::mt19937 rng(20261124);
    int compared = 0, refused = 0, wrapped = 0;
    for (int round = 0; round < 40; ++round) {
        daemon.setMaxPerOwner(3 + static_cast<int>(rng() % 6));
        for (int step = 0; step < 150; ++step) {
            const unsigned what = rng() % 100;
            if (what < 30) {
                // An identifier handed out by the module, entered for its owner.
                const char *owner = owners[rng() % (owners.size() - 1)];
                int options = 0;
                std::string nameOnly;
                if (rng() % 8 == 0)
                    options |= RSV_OPT_SYSTEM;
                if (rng() % 10 == 0) {
                    options |= RSV_OPT_NAME_ONLY;
                    nameOnly = rng() % 2 ? "plain" + std::to_string(step) : "n#" + std::to_string(rng() % 9);
                }
                int before = -1;
                const bool known = rsv::RsvId_counter(owner, &before);
                int expectedNext = -1;
                const std::string expected = walkedId(tbl, owner, options, nameOnly, expectedNext);
                OwnedReq r(options, owner, 1, 1, {}, "1000-2000");
                if (options & RSV_OPT_NAME_ONLY)
                    r.req.rsvId = strdup(nameOnly.c_str());
                char *id = RsvId_new(tbl, &r.req);
                const std::string got = id ? id : "<NULL>";
                std::free(id);
                ASSERT_EQ(got, expected) << "round " << round << " step " << step << " owner " << owner;
                int after = -1;
                if (expected == "<NULL>") {
                    ++refused;
                    EXPECT_EQ(rsv::RsvId_counter(owner, &after), known);
                    EXPECT_EQ(after, before);
                } else {
                    ASSERT_TRUE(rsv::RsvId_counter(owner, &after));
                    EXPECT_EQ(after, expectedNext);
                    wrapped += known && expectedNext <= before;
                    put(got, owner);
                }
                ++compared;
            } else if (what < 55) {
                // A reservation restored or put in directly, any word and number.
                const std::string word = words[rng() % words.size()];
                const char *owner = owners[rng() % owners.size()];
                put(rng() % 7 == 0 ? "bare" + std::to_string(rng() % 5)
                                   : word + "#" + std::to_string(rng() % 12),
                    owner);
            } else if (what < 80) {
                if (HashEnt *he = anyEntry(rng))
                    destroy(he, true);
            } else if (what < 85) {
                // Behind the module's back: the index must notice.
                if (HashEnt *he = anyEntry(rng))
                    destroy(he, false);
            } else if (what < 90) {
                // A new owner for a reservation, as a modification gives it.
                if (HashEnt *he = anyEntry(rng); he && he->value) {
                    RsvModReq mod{};
                    mod.req.options = RSV_MOD_NAME;
                    mod.req.name = strdup(owners[rng() % (owners.size() - 1)]);
                    RsvEnt_updateWithMod(static_cast<RsvEnt *>(he->value), &mod);
                    std::free(mod.req.name);
                }
            } else if (what < 92) {
                // A key without a record, which may get one later. Its number
                // is out of every search's range, so that it never blocks it.
                HashEnt *he = anyEntry(rng);
                if (he && !he->value)
                    he->value = makeEntry(he->key, owners[rng() % (owners.size() - 1)], "1000-2000", {}).release();
                else
                    h_addEnt_(&tbl->entries, (words[rng() % words.size()] + "#" + std::to_string(1000 + rng() % 5)).c_str(),
                              nullptr);
            } else if (what < 95) {
                RsvId_setCur((std::string(owners[rng() % (owners.size() - 1)]) + "#" + std::to_string(rng() % 12)).c_str());
            } else if (what < 97) {
                // Emptied whole.
                HashEnt *he;
                while ((he = anyEntry(rng)) != nullptr)
                    destroy(he, rng() % 2 == 0);
            }
        }
    }
    // The run went through the cases that matter, not just the easy one.
    EXPECT_GT(compared, 1000);
    EXPECT_GT(refused, 20);
    EXPECT_GT(wrapped, 20);
}

TEST_F(OwnerIndexTest, TheFirstSearchOfATableWalksAndLaterOnesUseTheIndex)
{
    put("alice#0", "alice");
    put("alice#1", "alice");
    int own = 0, other = 0;
    std::vector<int> used(100);
    EXPECT_FALSE(rsv::OwnerIndex_count(tbl, "alice", 100, used.data(), own, other));
    EXPECT_TRUE(rsv::OwnerIndex_count(tbl, "alice", 100, used.data(), own, other));
    EXPECT_EQ(own, 2);
    EXPECT_EQ(other, 0);
    put("alice#7", "bob");
    put("al#3", "carol");
    put("alicia#3", "carol");
    ASSERT_TRUE(rsv::OwnerIndex_count(tbl, "alice", 100, used.data(), own, other));
    EXPECT_EQ(own, 2);
    EXPECT_EQ(used[0], 0);
    EXPECT_EQ(used[1], 1);
    EXPECT_EQ(other, 2);  // alice#7 and al#3: words of "alice"; alicia is not

    // A key that gets its record after the index saw it without one.
    HashEnt *later = h_addEnt_(&tbl->entries, "alice#9", nullptr);
    ASSERT_TRUE(rsv::OwnerIndex_count(tbl, "alice", 100, used.data(), own, other));
    EXPECT_EQ(own, 2);
    later->value = makeEntry("alice#9", "alice", "1000-2000", {}).release();
    ASSERT_TRUE(rsv::OwnerIndex_count(tbl, "alice", 100, used.data(), own, other));
    EXPECT_EQ(own, 3);
    EXPECT_EQ(used[2], 9);

    // Removed through the module: followed without a new walk.
    destroy(h_getEnt_(&tbl->entries, "alice#7"), true);
    ASSERT_TRUE(rsv::OwnerIndex_count(tbl, "alice", 100, used.data(), own, other));
    EXPECT_EQ(own, 3);
    EXPECT_EQ(other, 1);
}
