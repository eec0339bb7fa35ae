// Tests of the sentinel-headed list: links and count, insertion, removal,
// search, the iterator and the deep copy.
#include "rsv_test_support.h"

#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

struct Item {
    ListEntry links;
    int value;
    char label[12];
};

Item *newItem(int v)
{
    auto *it = static_cast<Item *>(std::calloc(1, sizeof(Item)));
    it->value = v;
    std::snprintf(it->label, sizeof it->label, "item%d", v);
    return it;
}

int destroyed = 0;
void freeItem(void *p)
{
    ++destroyed;
    std::free(p);
}

Item *asItem(ListEntry *e)
{
    return reinterpret_cast<Item *>(e);
}

ListEntry *head(List *l)
{
    return reinterpret_cast<ListEntry *>(l);
}

std::vector<int> values(List *list)
{
    std::vector<int> out;
    ListIterator it;
    listIteratorAttach(&it, list);
    for (ListEntry *e = listIteratorGetCurEntry(&it); e; e = listIteratorNext(&it))
        out.push_back(asItem(e)->value);
    return out;
}

std::vector<int> valuesBackwards(List *list)
{
    std::vector<int> out;
    for (ListEntry *e = list->back; e != head(list); e = e->back)
        out.push_back(asItem(e)->value);
    return out;
}

// A list of items with the given values, owned by the caller.
List *makeList(std::initializer_list<int> vals, const char *name = "items")
{
    List *l = listCreate(name);
    for (int v : vals)
        listInsertEntryAtBack(l, &newItem(v)->links);
    return l;
}

int valueEquals(void *element, void *key, int hint)
{
    return static_cast<Item *>(element)->value == *static_cast<int *>(key) + hint;
}

} // namespace

TEST(List, CreateGivesAnEmptySelfLinkedListWithItsOwnName)
{
    char name[] = "planners";
    List *l = listCreate(name);
    ASSERT_NE(l, nullptr);
    EXPECT_STREQ(l->name, "planners");
    EXPECT_NE(l->name, name);
    EXPECT_EQ(l->numEnts, 0);
    EXPECT_EQ(l->forw, head(l));
    EXPECT_EQ(l->back, head(l));
    listDestroy(l, nullptr);
}

TEST(List, CreateWithNullNameGivesEmptyName)
{
    List *l = listCreate(nullptr);
    ASSERT_NE(l, nullptr);
    EXPECT_STREQ(l->name, "");
    listDestroy(l, nullptr);
}

TEST(List, InsertAtBackKeepsOrderLinksAndCount)
{
    List *l = makeList({1, 2, 3});
    EXPECT_EQ(l->numEnts, 3);
    EXPECT_EQ(values(l), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(valuesBackwards(l), (std::vector<int>{3, 2, 1}));
    EXPECT_EQ(l->forw->back, head(l));
    EXPECT_EQ(l->back->forw, head(l));
    listDestroy(l, freeItem);
}

TEST(List, InsertBeforeAnElementTheHeadOrTheListItself)
{
    List *l = makeList({2, 4});
    ASSERT_EQ(listInsertEntryBefore(l, l->forw, &newItem(1)->links), 0);        // new head
    ASSERT_EQ(listInsertEntryBefore(l, l->back, &newItem(3)->links), 0);        // middle
    ASSERT_EQ(listInsertEntryBefore(l, head(l), &newItem(5)->links), 0);        // the end
    EXPECT_EQ(values(l), (std::vector<int>{1, 2, 3, 4, 5}));
    EXPECT_EQ(valuesBackwards(l), (std::vector<int>{5, 4, 3, 2, 1}));
    EXPECT_EQ(l->numEnts, 5);
    listDestroy(l, freeItem);
}

TEST(List, InsertIntoEmptyListBeforeItself)
{
    List *l = listCreate("x");
    Item *a = newItem(1);
    ASSERT_EQ(listInsertEntryBefore(l, head(l), &a->links), 0);
    EXPECT_EQ(l->forw, &a->links);
    EXPECT_EQ(l->back, &a->links);
    EXPECT_EQ(l->numEnts, 1);
    listDestroy(l, freeItem);
}

TEST(List, InsertWithNullArgumentFailsAndLeavesListUnchanged)
{
    List *l = makeList({1});
    Item *a = newItem(9);
    EXPECT_EQ(listInsertEntryAtBack(nullptr, &a->links), -1);
    EXPECT_EQ(listInsertEntryAtBack(l, nullptr), -1);
    EXPECT_EQ(listInsertEntryBefore(l, nullptr, &a->links), -1);
    EXPECT_EQ(listInsertEntryBefore(l, l->forw, nullptr), -1);
    EXPECT_EQ(listInsertEntryBefore(nullptr, l->forw, &a->links), -1);
    EXPECT_EQ(values(l), std::vector<int>{1});
    EXPECT_EQ(l->numEnts, 1);
    std::free(a);
    listDestroy(l, freeItem);
}

TEST(List, RemoveUnlinksWithoutFreeing)
{
    List *l = makeList({1, 2, 3});
    ListEntry *middle = l->forw->forw;
    listRemoveEntry(l, middle);
    EXPECT_EQ(values(l), (std::vector<int>{1, 3}));
    EXPECT_EQ(valuesBackwards(l), (std::vector<int>{3, 1}));
    EXPECT_EQ(l->numEnts, 2);
    EXPECT_EQ(asItem(middle)->value, 2);
    std::free(middle);
    ListEntry *first = l->forw;
    ListEntry *last = l->back;
    listRemoveEntry(l, first);
    listRemoveEntry(l, last);
    std::free(first);
    std::free(last);
    EXPECT_EQ(l->numEnts, 0);
    EXPECT_EQ(l->forw, head(l));
    EXPECT_EQ(l->back, head(l));
    listDestroy(l, nullptr);
}

TEST(List, RemoveIgnoresNullAndTheHeader)
{
    List *l = makeList({1});
    listRemoveEntry(nullptr, l->forw);
    listRemoveEntry(l, nullptr);
    listRemoveEntry(l, head(l));
    EXPECT_EQ(l->numEnts, 1);
    EXPECT_EQ(values(l), std::vector<int>{1});
    listDestroy(l, freeItem);
}

TEST(List, RemovingTheCurrentElementLetsTheIteratorStepOn)
{
    List *l = makeList({1, 2, 3, 4});
    ListIterator it;
    listIteratorAttach(&it, l);
    std::vector<int> seen;
    std::vector<ListEntry *> removed; // freed once the walk no longer stands on them
    for (ListEntry *e = listIteratorGetCurEntry(&it); e; e = listIteratorNext(&it)) {
        seen.push_back(asItem(e)->value);
        if (asItem(e)->value % 2 == 0) {
            listRemoveEntry(l, e);
            removed.push_back(e);
        }
    }
    EXPECT_EQ(seen, (std::vector<int>{1, 2, 3, 4}));
    EXPECT_EQ(values(l), (std::vector<int>{1, 3}));
    EXPECT_EQ(l->numEnts, 2);
    for (ListEntry *e : removed)
        std::free(e);
    listDestroy(l, freeItem);
}

TEST(List, SearchFindsFirstMatchUsingKeyAndHint)
{
    List *l = makeList({5, 7, 7, 9});
    int key = 7;
    ListEntry *found = listSearchEntry(l, &key, valueEquals, 0);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found, l->forw->forw);
    found = listSearchEntry(l, &key, valueEquals, 2);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(asItem(found)->value, 9);
    key = 100;
    EXPECT_EQ(listSearchEntry(l, &key, valueEquals, 0), nullptr);
    EXPECT_EQ(listSearchEntry(nullptr, &key, valueEquals, 0), nullptr);
    EXPECT_EQ(listSearchEntry(l, &key, nullptr, 0), nullptr);
    listDestroy(l, freeItem);
}

TEST(List, SearchOfEmptyListFindsNothing)
{
    List *l = listCreate("empty");
    int key = 0;
    EXPECT_EQ(listSearchEntry(l, &key, valueEquals, 0), nullptr);
    listDestroy(l, nullptr);
}

TEST(ListIterator, AttachToEmptyListIsAtTheEnd)
{
    List *l = listCreate("empty");
    ListIterator it;
    ASSERT_EQ(listIteratorAttach(&it, l), 0);
    EXPECT_EQ(listIteratorIsEndOfList(&it), 1);
    EXPECT_EQ(listIteratorGetCurEntry(&it), nullptr);
    EXPECT_EQ(listIteratorNext(&it), nullptr);
    EXPECT_EQ(listIteratorPrev(&it), nullptr);
    listDestroy(l, nullptr);
}

TEST(ListIterator, AttachWithNullArgumentFails)
{
    List *l = listCreate("x");
    ListIterator it{};
    EXPECT_EQ(listIteratorAttach(nullptr, l), -1);
    EXPECT_EQ(listIteratorAttach(&it, nullptr), -1);
    EXPECT_EQ(listIteratorIsEndOfList(&it), 1);
    EXPECT_EQ(listIteratorIsEndOfList(nullptr), 1);
    EXPECT_EQ(listIteratorGetCurEntry(nullptr), nullptr);
    EXPECT_EQ(listIteratorNext(nullptr), nullptr);
    EXPECT_EQ(listIteratorPrev(nullptr), nullptr);
    listIteratorSetCurEntry(nullptr, nullptr);
    listDestroy(l, nullptr);
}

TEST(ListIterator, NextWalksForwardAndStaysAtTheEnd)
{
    List *l = makeList({1, 2});
    ListIterator it;
    listIteratorAttach(&it, l);
    EXPECT_EQ(listIteratorGetCurEntry(&it), l->forw);
    EXPECT_EQ(listIteratorIsEndOfList(&it), 0);
    EXPECT_EQ(listIteratorNext(&it), l->back);
    EXPECT_EQ(listIteratorNext(&it), nullptr);
    EXPECT_EQ(listIteratorIsEndOfList(&it), 1);
    EXPECT_EQ(listIteratorNext(&it), nullptr); // no wrap to the head
    EXPECT_EQ(listIteratorGetCurEntry(&it), nullptr);
    listDestroy(l, freeItem);
}

TEST(ListIterator, PrevWalksBackFromAnElementSetAsCurrent)
{
    List *l = makeList({1, 2, 3});
    ListIterator it;
    listIteratorAttach(&it, l);
    listIteratorSetCurEntry(&it, l->back);
    std::vector<int> seen;
    for (ListEntry *e = listIteratorGetCurEntry(&it); e; e = listIteratorPrev(&it))
        seen.push_back(asItem(e)->value);
    EXPECT_EQ(seen, (std::vector<int>{3, 2, 1}));
    EXPECT_EQ(listIteratorIsEndOfList(&it), 1);
    EXPECT_EQ(listIteratorPrev(&it), nullptr);
    listDestroy(l, freeItem);
}

TEST(ListIterator, SetCurEntryNullMovesToTheEnd)
{
    List *l = makeList({1});
    ListIterator it;
    listIteratorAttach(&it, l);
    listIteratorSetCurEntry(&it, nullptr);
    EXPECT_EQ(listIteratorIsEndOfList(&it), 1);
    listIteratorSetCurEntry(&it, l->forw);
    EXPECT_EQ(listIteratorGetCurEntry(&it), l->forw);
    listDestroy(l, freeItem);
}

TEST(List, DestroyCallsDestroyOnEveryElement)
{
    List *l = makeList({1, 2, 3, 4});
    destroyed = 0;
    listDestroy(l, freeItem);
    EXPECT_EQ(destroyed, 4);
    listDestroy(nullptr, freeItem);
}

TEST(List, DestroyWithoutDestructorLeavesElementsAlone)
{
    List *l = listCreate("x");
    Item a{};
    a.value = 5;
    listInsertEntryAtBack(l, &a.links);
    listDestroy(l, nullptr);
    EXPECT_EQ(a.value, 5);
}

TEST(ListDup, CopiesNameCountAndElementsInOrder)
{
    List *l = makeList({1, 2, 3}, "disabledDurations");
    List *d = listDup(l, sizeof(Item));
    ASSERT_NE(d, nullptr);
    EXPECT_STREQ(d->name, "disabledDurations");
    EXPECT_NE(d->name, l->name);
    EXPECT_EQ(d->numEnts, 3);
    EXPECT_EQ(values(d), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(valuesBackwards(d), (std::vector<int>{3, 2, 1}));
    EXPECT_STREQ(asItem(d->forw)->label, "item1");
    EXPECT_EQ(d->forw->back, head(d));
    EXPECT_EQ(d->back->forw, head(d));
    listDestroy(l, freeItem);
    listDestroy(d, freeItem);
}

TEST(ListDup, CopyIsIndependentOfTheOriginal)
{
    List *l = makeList({1, 2});
    List *d = listDup(l, sizeof(Item));
    ASSERT_NE(d, nullptr);
    for (ListEntry *a = l->forw, *b = d->forw; a != head(l); a = a->forw, b = b->forw)
        EXPECT_NE(a, b);
    asItem(d->forw)->value = 100;
    ListEntry *second = d->back;
    listRemoveEntry(d, second);
    std::free(second);
    EXPECT_EQ(values(l), (std::vector<int>{1, 2}));
    EXPECT_EQ(values(d), std::vector<int>{100});
    listDestroy(l, freeItem);
    listDestroy(d, freeItem);
}

TEST(ListDup, EmptyListGivesEmptyCopy)
{
    List *l = listCreate("empty");
    List *d = listDup(l, sizeof(Item));
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(d->numEnts, 0);
    EXPECT_EQ(d->forw, head(d));
    EXPECT_STREQ(d->name, "empty");
    listDestroy(l, nullptr);
    listDestroy(d, nullptr);
}

TEST(ListDup, NullListOrElementSmallerThanLinksGivesNull)
{
    List *l = makeList({1});
    EXPECT_EQ(listDup(nullptr, sizeof(Item)), nullptr);
    EXPECT_EQ(listDup(l, 0), nullptr);
    EXPECT_EQ(listDup(l, static_cast<int>(sizeof(ListEntry)) - 1), nullptr);
    List *linksOnly = listDup(l, sizeof(ListEntry));
    ASSERT_NE(linksOnly, nullptr);
    EXPECT_EQ(linksOnly->numEnts, 1);
    listDestroy(linksOnly, freeItem);
    listDestroy(l, freeItem);
}
