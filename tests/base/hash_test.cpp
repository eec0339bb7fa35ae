// Tests of the string-keyed hash table: key ownership, growth, insertion
// order, deletion during a walk and release with a value destructor.
#include "rsv_test_support.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

std::string keyOf(int i)
{
    char buf[32];
    std::snprintf(buf, sizeof buf, "host%06d", i);
    return buf;
}

std::vector<std::string> walkKeys(HashTab *tab)
{
    std::vector<std::string> keys;
    HashIter it;
    for (HashEnt *e = h_firstEnt_(tab, &it); e; e = h_nextEnt_(&it))
        keys.emplace_back(e->key);
    return keys;
}

struct Table {
    HashTab tab{};
    explicit Table(int buckets = 4) { h_initTab_(&tab, buckets); }
    ~Table() { h_freeTab_(&tab, nullptr); }
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;
};

HashEnt *add(HashTab *tab, const std::string &key)
{
    return h_addEnt_(tab, key.c_str(), nullptr);
}

int destroyedCount = 0;
void countingFree(void *value)
{
    ++destroyedCount;
    std::free(value);
}

} // namespace

TEST(HashTable, AddCopiesKeyAndStartsWithNullValue)
{
    Table t;
    char key[] = "alpha";
    int isNew = -1;
    HashEnt *e = h_addEnt_(&t.tab, key, &isNew);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(isNew, 1);
    EXPECT_NE(e->key, key);
    EXPECT_STREQ(e->key, "alpha");
    EXPECT_EQ(e->value, nullptr);
    key[0] = 'X';
    EXPECT_EQ(h_getEnt_(&t.tab, "alpha"), e);
    EXPECT_EQ(h_getEnt_(&t.tab, "Xlpha"), nullptr);
}

TEST(HashTable, AddingAnExistingKeyReturnsTheSameEntryAndKeepsItsValue)
{
    Table t;
    int isNew = -1;
    HashEnt *a = h_addEnt_(&t.tab, "k", &isNew);
    ASSERT_NE(a, nullptr);
    a->value = &isNew;
    HashEnt *b = h_addEnt_(&t.tab, "k", &isNew);
    EXPECT_EQ(a, b);
    EXPECT_EQ(isNew, 0);
    EXPECT_EQ(b->value, &isNew);
    EXPECT_EQ(h_numEnts_(&t.tab), 1);
}

TEST(HashTable, IsNewMayBeNull)
{
    Table t;
    EXPECT_NE(h_addEnt_(&t.tab, "a", nullptr), nullptr);
    EXPECT_NE(h_addEnt_(&t.tab, "a", nullptr), nullptr);
    EXPECT_EQ(h_numEnts_(&t.tab), 1);
}

TEST(HashTable, KeysAreComparedExactly)
{
    Table t;
    HashEnt *lower = add(&t.tab, "hosta");
    HashEnt *upper = add(&t.tab, "HostA");
    HashEnt *empty = add(&t.tab, "");
    HashEnt *prefix = add(&t.tab, "host");
    EXPECT_EQ(h_numEnts_(&t.tab), 4);
    EXPECT_EQ(h_getEnt_(&t.tab, "hosta"), lower);
    EXPECT_EQ(h_getEnt_(&t.tab, "HostA"), upper);
    EXPECT_EQ(h_getEnt_(&t.tab, ""), empty);
    EXPECT_EQ(h_getEnt_(&t.tab, "host"), prefix);
    EXPECT_EQ(h_getEnt_(&t.tab, "hostA"), nullptr);
}

TEST(HashTable, NullArgumentsAreRejectedWithoutChange)
{
    Table t;
    int isNew = 7;
    EXPECT_EQ(h_addEnt_(&t.tab, nullptr, &isNew), nullptr);
    EXPECT_EQ(isNew, 7);
    EXPECT_EQ(h_addEnt_(nullptr, "a", &isNew), nullptr);
    EXPECT_EQ(h_getEnt_(&t.tab, nullptr), nullptr);
    EXPECT_EQ(h_getEnt_(nullptr, "a"), nullptr);
    h_delEnt_(&t.tab, nullptr);
    h_delEnt_(nullptr, nullptr);
    h_freeTab_(nullptr, nullptr);
    EXPECT_EQ(h_numEnts_(&t.tab), 0);
    EXPECT_EQ(h_numEnts_(nullptr), 0);
    EXPECT_EQ(h_TabEmpty_(nullptr), 1);
    HashIter it;
    EXPECT_EQ(h_firstEnt_(nullptr, &it), nullptr);
    EXPECT_EQ(h_nextEnt_(&it), nullptr);
    EXPECT_EQ(h_firstEnt_(&t.tab, nullptr), nullptr);
    EXPECT_EQ(h_nextEnt_(nullptr), nullptr);
}

TEST(HashTable, BucketCountBelowOneIsTakenAsOne)
{
    for (int buckets : {0, -5}) {
        Table t(buckets);
        EXPECT_GE(t.tab.numBuckets, 1);
        for (int i = 0; i < 100; ++i)
            ASSERT_NE(add(&t.tab, keyOf(i)), nullptr);
        for (int i = 0; i < 100; ++i)
            EXPECT_NE(h_getEnt_(&t.tab, keyOf(i).c_str()), nullptr);
    }
}

TEST(HashTable, ZeroFilledTableWorksWithoutInitialisation)
{
    HashTab tab{};
    EXPECT_EQ(h_getEnt_(&tab, "a"), nullptr);
    EXPECT_EQ(h_TabEmpty_(&tab), 1);
    ASSERT_NE(add(&tab, "a"), nullptr);
    EXPECT_NE(h_getEnt_(&tab, "a"), nullptr);
    h_freeTab_(&tab, nullptr);
}

TEST(HashTable, EmptyAndCountFollowAddsAndDeletes)
{
    Table t;
    EXPECT_EQ(h_TabEmpty_(&t.tab), 1);
    HashEnt *a = add(&t.tab, "a");
    EXPECT_EQ(h_TabEmpty_(&t.tab), 0);
    add(&t.tab, "b");
    EXPECT_EQ(h_numEnts_(&t.tab), 2);
    h_delEnt_(&t.tab, a);
    EXPECT_EQ(h_numEnts_(&t.tab), 1);
    EXPECT_EQ(h_getEnt_(&t.tab, "a"), nullptr);
    h_delEnt_(&t.tab, h_getEnt_(&t.tab, "b"));
    EXPECT_EQ(h_TabEmpty_(&t.tab), 1);
}

TEST(HashTable, GrowsTo100000KeysAndShrinksBackByDeletion)
{
    Table t(1);
    constexpr int n = 100000;
    for (int i = 0; i < n; ++i) {
        int isNew = 0;
        HashEnt *e = h_addEnt_(&t.tab, keyOf(i).c_str(), &isNew);
        ASSERT_NE(e, nullptr);
        ASSERT_EQ(isNew, 1);
        e->value = reinterpret_cast<void *>(static_cast<intptr_t>(i + 1));
    }
    EXPECT_EQ(h_numEnts_(&t.tab), n);
    // Growth keeps the load at or below one entry per bucket.
    EXPECT_GE(t.tab.numBuckets, n);
    for (int i = 0; i < n; ++i) {
        HashEnt *e = h_getEnt_(&t.tab, keyOf(i).c_str());
        ASSERT_NE(e, nullptr) << keyOf(i);
        ASSERT_EQ(reinterpret_cast<intptr_t>(e->value), i + 1);
    }
    EXPECT_EQ(h_getEnt_(&t.tab, keyOf(n).c_str()), nullptr);
    for (int i = 0; i < n; i += 2)
        h_delEnt_(&t.tab, h_getEnt_(&t.tab, keyOf(i).c_str()));
    EXPECT_EQ(h_numEnts_(&t.tab), n / 2);
    for (int i = 0; i < n; ++i)
        ASSERT_EQ(h_getEnt_(&t.tab, keyOf(i).c_str()) != nullptr, i % 2 == 1) << keyOf(i);
    for (int i = 1; i < n; i += 2)
        h_delEnt_(&t.tab, h_getEnt_(&t.tab, keyOf(i).c_str()));
    EXPECT_EQ(h_numEnts_(&t.tab), 0);
    EXPECT_EQ(h_TabEmpty_(&t.tab), 1);
    HashIter it;
    EXPECT_EQ(h_firstEnt_(&t.tab, &it), nullptr);
}

TEST(HashTable, ChainsStayShortForKeysDifferingOnlyAtTheEnd)
{
    Table t(1);
    for (int i = 0; i < 4096; ++i)
        add(&t.tab, "host" + std::to_string(i));
    int longest = 0;
    for (int b = 0; b < t.tab.numBuckets; ++b) {
        int len = 0;
        for (HashEnt *e = t.tab.buckets[b]; e; e = e->chainNext)
            ++len;
        longest = std::max(longest, len);
    }
    EXPECT_LE(longest, 12);
}

TEST(HashTable, WalksInInsertionOrderAcrossGrowth)
{
    Table t(1);
    std::vector<std::string> expected;
    for (int i = 50; i > 0; --i) {
        expected.push_back(keyOf(i * 7919 % 1000));
        add(&t.tab, expected.back());
    }
    EXPECT_EQ(walkKeys(&t.tab), expected);
}

TEST(HashTable, ReAddedKeyMovesToTheEndOfTheWalk)
{
    Table t;
    for (const char *k : {"rsv#1", "rsv#2", "rsv#3"})
        add(&t.tab, k);
    h_delEnt_(&t.tab, h_getEnt_(&t.tab, "rsv#1"));
    add(&t.tab, "rsv#1");
    add(&t.tab, "rsv#2"); // existing: stays where it is
    EXPECT_EQ(walkKeys(&t.tab), (std::vector<std::string>{"rsv#2", "rsv#3", "rsv#1"}));
}

TEST(HashTable, DeletingEachReturnedEntryDuringAWalkVisitsEveryEntry)
{
    Table t(2);
    std::vector<std::string> expected;
    for (int i = 0; i < 100; ++i) {
        expected.push_back(keyOf(i));
        add(&t.tab, expected.back());
    }
    std::vector<std::string> seen;
    HashIter it;
    for (HashEnt *e = h_firstEnt_(&t.tab, &it); e; e = h_nextEnt_(&it)) {
        seen.emplace_back(e->key);
        h_delEnt_(&t.tab, e);
    }
    EXPECT_EQ(seen, expected);
    EXPECT_EQ(h_TabEmpty_(&t.tab), 1);
}

TEST(HashTable, DeletingSomeEntriesDuringAWalkKeepsTheRestInOrder)
{
    Table t(2);
    for (int i = 0; i < 10; ++i)
        add(&t.tab, keyOf(i));
    std::vector<std::string> seen;
    HashIter it;
    int index = 0;
    for (HashEnt *e = h_firstEnt_(&t.tab, &it); e; e = h_nextEnt_(&it), ++index) {
        seen.emplace_back(e->key);
        if (index % 3 == 0)
            h_delEnt_(&t.tab, e);
    }
    EXPECT_EQ(seen.size(), 10u);
    EXPECT_EQ(walkKeys(&t.tab),
              (std::vector<std::string>{keyOf(1), keyOf(2), keyOf(4), keyOf(5), keyOf(7), keyOf(8)}));
}

TEST(HashTable, GrowingDuringAWalkStillVisitsEveryEarlierEntryOnce)
{
    Table t(1);
    for (int i = 0; i < 10; ++i)
        add(&t.tab, keyOf(i));
    std::vector<std::string> seen;
    HashIter it;
    for (HashEnt *e = h_firstEnt_(&t.tab, &it); e; e = h_nextEnt_(&it)) {
        seen.emplace_back(e->key);
        if (seen.size() <= 10) // several doublings of the buckets mid-walk
            for (int j = 0; j < 10; ++j)
                add(&t.tab, "new" + std::to_string(seen.size() * 100 + j));
    }
    ASSERT_GE(seen.size(), 10u);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(seen[i], keyOf(i));
    EXPECT_EQ(h_numEnts_(&t.tab), 110);
}

TEST(HashTable, DeleteFreesEntryButNotValue)
{
    Table t;
    auto *value = static_cast<int *>(std::malloc(sizeof(int)));
    *value = 42;
    HashEnt *e = add(&t.tab, "job");
    e->value = value;
    h_delEnt_(&t.tab, e);
    EXPECT_EQ(*value, 42); // still ours: a freed value would trip the sanitizer here
    std::free(value);
}

TEST(HashTable, DeletingAnEntryOfAnotherTableIsIgnored)
{
    Table a;
    Table b;
    HashEnt *inA = add(&a.tab, "x");
    add(&b.tab, "x");
    h_delEnt_(&b.tab, inA);
    EXPECT_EQ(h_numEnts_(&a.tab), 1);
    EXPECT_EQ(h_numEnts_(&b.tab), 1);
    EXPECT_EQ(h_getEnt_(&a.tab, "x"), inA);
}

TEST(HashTable, FreeTabCallsTheDestructorOnEveryNonNullValue)
{
    HashTab tab;
    h_initTab_(&tab, 8);
    for (int i = 0; i < 30; ++i) {
        HashEnt *e = add(&tab, keyOf(i));
        if (i % 3 != 0)
            e->value = std::malloc(16);
    }
    destroyedCount = 0;
    h_freeTab_(&tab, countingFree);
    EXPECT_EQ(destroyedCount, 20);
    EXPECT_EQ(h_numEnts_(&tab), 0);
    EXPECT_EQ(h_TabEmpty_(&tab), 1);
    EXPECT_EQ(tab.buckets, nullptr);
}

TEST(HashTable, FreeTabWithoutDestructorLeavesValuesAlone)
{
    HashTab tab;
    h_initTab_(&tab, 8);
    int values[3] = {1, 2, 3};
    for (int i = 0; i < 3; ++i)
        add(&tab, keyOf(i))->value = &values[i];
    h_freeTab_(&tab, nullptr);
    EXPECT_EQ(values[2], 3);
    EXPECT_EQ(h_numEnts_(&tab), 0);
}

TEST(HashTable, FreedTableCanBeUsedAndInitialisedAgain)
{
    HashTab tab;
    h_initTab_(&tab, 4);
    add(&tab, "a");
    h_freeTab_(&tab, nullptr);
    ASSERT_NE(add(&tab, "b"), nullptr);
    EXPECT_EQ(walkKeys(&tab), std::vector<std::string>{"b"});
    h_freeTab_(&tab, nullptr);
    h_initTab_(&tab, 16);
    EXPECT_EQ(h_TabEmpty_(&tab), 1);
    add(&tab, "c");
    EXPECT_EQ(walkKeys(&tab), std::vector<std::string>{"c"});
    h_freeTab_(&tab, nullptr);
}

TEST(HashTableNextAfter, NullStartsAtTheFirstEntryAndTheLastEndsTheWalk)
{
    Table t;
    EXPECT_EQ(h_nextEntAfter_(&t.tab, nullptr), nullptr);
    HashEnt *a = add(&t.tab, "a");
    HashEnt *b = add(&t.tab, "b");
    HashEnt *c = add(&t.tab, "c");
    EXPECT_EQ(h_nextEntAfter_(&t.tab, nullptr), a);
    EXPECT_EQ(h_nextEntAfter_(&t.tab, a), b);
    EXPECT_EQ(h_nextEntAfter_(&t.tab, b), c);
    EXPECT_EQ(h_nextEntAfter_(&t.tab, c), nullptr);
    EXPECT_EQ(h_nextEntAfter_(nullptr, a), nullptr);
}

TEST(HashTableNextAfter, EntriesAddedAfterTheLastOneSeenAreFoundFromIt)
{
    Table t;
    for (int i = 0; i < 3; ++i)
        add(&t.tab, keyOf(i));
    HashEnt *lastSeen = t.tab.last;
    // Enough additions to grow the buckets: the order list is what is followed.
    for (int i = 3; i < 200; ++i)
        add(&t.tab, keyOf(i));
    std::vector<std::string> later;
    for (HashEnt *e = h_nextEntAfter_(&t.tab, lastSeen); e; e = h_nextEntAfter_(&t.tab, e))
        later.emplace_back(e->key);
    ASSERT_EQ(later.size(), 197u);
    EXPECT_EQ(later.front(), keyOf(3));
    EXPECT_EQ(later.back(), keyOf(199));
}

TEST(HashTableNextAfter, SkipsAnEntryDeletedAfterTheOneGiven)
{
    Table t;
    HashEnt *a = add(&t.tab, "a");
    add(&t.tab, "b");
    HashEnt *c = add(&t.tab, "c");
    h_delEnt_(&t.tab, h_getEnt_(&t.tab, "b"));
    EXPECT_EQ(h_nextEntAfter_(&t.tab, a), c);
}

TEST(HashTableDelStamp, InitialisingGivesANonZeroStampThatAddingKeeps)
{
    Table t;
    const unsigned long long stamp = t.tab.delStamp;
    EXPECT_NE(stamp, 0u);
    for (int i = 0; i < 100; ++i)
        add(&t.tab, keyOf(i));
    add(&t.tab, keyOf(5)); // an existing key
    EXPECT_EQ(t.tab.delStamp, stamp);
}

TEST(HashTableDelStamp, EveryDeletionChangesIt)
{
    Table t;
    add(&t.tab, "a");
    add(&t.tab, "b");
    const unsigned long long s0 = t.tab.delStamp;
    h_delEnt_(&t.tab, h_getEnt_(&t.tab, "a"));
    const unsigned long long s1 = t.tab.delStamp;
    EXPECT_NE(s1, s0);
    h_delEnt_(&t.tab, h_getEnt_(&t.tab, "b"));
    EXPECT_NE(t.tab.delStamp, s1);
    EXPECT_NE(t.tab.delStamp, s0);
}

TEST(HashTableDelStamp, DeletingAnEntryOfAnotherTableLeavesItAlone)
{
    Table t;
    Table other;
    add(&t.tab, "a");
    HashEnt *foreign = add(&other.tab, "zzz");
    const unsigned long long stamp = t.tab.delStamp;
    h_delEnt_(&t.tab, foreign);
    EXPECT_EQ(t.tab.delStamp, stamp);
    EXPECT_EQ(h_numEnts_(&other.tab), 1);
}

TEST(HashTableDelStamp, FreeingAndInitialisingNeverGiveAnEarlierValue)
{
    HashTab tab{};
    h_initTab_(&tab, 4);
    const unsigned long long s0 = tab.delStamp;
    add(&tab, "a");
    h_freeTab_(&tab, nullptr);
    const unsigned long long s1 = tab.delStamp;
    EXPECT_NE(s1, s0);
    h_initTab_(&tab, 4);
    const unsigned long long s2 = tab.delStamp;
    EXPECT_NE(s2, s0);
    EXPECT_NE(s2, s1);
    h_freeTab_(&tab, nullptr);
}

TEST(HashTableDelStamp, TwoTablesNeverShareAStampFromInitialisation)
{
    Table a;
    Table b;
    EXPECT_NE(a.tab.delStamp, b.tab.delStamp);
}

TEST(HashTableDelStamp, ZeroFilledTableGetsAStampWithItsFirstEntry)
{
    HashTab tab{};
    EXPECT_EQ(tab.delStamp, 0u);
    add(&tab, "a");
    EXPECT_NE(tab.delStamp, 0u);
    h_freeTab_(&tab, nullptr);
}
