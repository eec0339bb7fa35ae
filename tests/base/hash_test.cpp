// Tests of the string-keyed hash table.
#include "rsv_test_support.h"

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
};

} // namespace

TEST(HashTable, AddCopiesKeyAndFindsIt)
{
    Table t;
    char key[] = "alpha";
    int isNew = -1;
    HashEnt *e = h_addEnt_(&t.tab, key, &isNew);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(isNew, 1);
    EXPECT_NE(e->key, key);
    EXPECT_EQ(e->value, nullptr);
    key[0] = 'X';
    EXPECT_EQ(h_getEnt_(&t.tab, "alpha"), e);
    EXPECT_EQ(h_getEnt_(&t.tab, "Xlpha"), nullptr);
}

TEST(HashTable, AddingAnExistingKeyReturnsTheSameEntry)
{
    Table t;
    int isNew = -1;
    HashEnt *a = h_addEnt_(&t.tab, "k", &isNew);
    a->value = &isNew;
    HashEnt *b = h_addEnt_(&t.tab, "k", &isNew);
    EXPECT_EQ(a, b);
    EXPECT_EQ(isNew, 0);
    EXPECT_EQ(b->value, &isNew);
    EXPECT_EQ(h_numEnts_(&t.tab), 1);
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
    EXPECT_GE(t.tab.numBuckets, n);
    for (int i = 0; i < n; ++i) {
        HashEnt *e = h_getEnt_(&t.tab, keyOf(i).c_str());
        ASSERT_NE(e, nullptr) << keyOf(i);
        ASSERT_EQ(reinterpret_cast<intptr_t>(e->value), i + 1);
    }
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

TEST(HashTable, WalksInInsertionOrderAcrossGrowth)
{
    Table t(1);
    std::vector<std::string> expected;
    for (int i = 50; i > 0; --i) {
        expected.push_back(keyOf(i * 7919 % 1000));
        h_addEnt_(&t.tab, expected.back().c_str(), nullptr);
    }
    EXPECT_EQ(walkKeys(&t.tab), expected);
}
