// Tests of the sentinel-headed list.
#include "rsv_test_support.h"

#include <cstdlib>
#include <vector>

namespace {

struct Item {
    ListEntry links;
    int value;
};

Item *newItem(int v)
{
    auto *it = static_cast<Item *>(std::calloc(1, sizeof(Item)));
    it->value = v;
    return it;
}

void freeItem(void *p)
{
    std::free(p);
}

std::vector<int> values(List *list)
{
    std::vector<int> out;
    ListIterator it;
    listIteratorAttach(&it, list);
    for (ListEntry *e = listIteratorGetCurEntry(&it); e; e = listIteratorNext(&it))
        out.push_back(reinterpret_cast<Item *>(e)->value);
    return out;
}

} // namespace

TEST(List, CreateGivesAnEmptySelfLinkedList)
{
    List *l = listCreate("planners");
    ASSERT_NE(l, nullptr);
    EXPECT_STREQ(l->name, "planners");
    EXPECT_EQ(l->numEnts, 0);
    EXPECT_EQ(l->forw, reinterpret_cast<ListEntry *>(l));
    EXPECT_EQ(l->back, reinterpret_cast<ListEntry *>(l));
    listDestroy(l, nullptr);
}

TEST(List, DupCopiesElementsInOrder)
{
    List *l = listCreate("src");
    for (int i = 1; i <= 3; ++i)
        ASSERT_EQ(listInsertEntryAtBack(l, &newItem(i)->links), 0);
    List *d = listDup(l, sizeof(Item));
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(values(d), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(d->numEnts, 3);
    EXPECT_NE(d->forw, l->forw);
    listDestroy(l, freeItem);
    listDestroy(d, freeItem);
}
