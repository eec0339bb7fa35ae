// STUB: generated placeholder; replace each function with its implementation.
#include "kx_list.h"

extern "C" {


List *listCreate(const char *name)
{
    (void)name; return {};
}

void listDestroy(List *list, ListEntryDestroyFunc destroy)
{
    (void)list; (void)destroy;
}

List *listDup(List *list, int elementSize)
{
    (void)list; (void)elementSize; return {};
}

int listInsertEntryAtBack(List *list, ListEntry *entry)
{
    (void)list; (void)entry; return {};
}

int listInsertEntryBefore(List *list, ListEntry *before, ListEntry *entry)
{
    (void)list; (void)before; (void)entry; return {};
}

void listRemoveEntry(List *list, ListEntry *entry)
{
    (void)list; (void)entry;
}

ListEntry *listSearchEntry(List *list, void *key, ListEntryEqualFunc equal, int hint)
{
    (void)list; (void)key; (void)equal; (void)hint; return {};
}

int listIteratorAttach(ListIterator *iter, List *list)
{
    (void)iter; (void)list; return {};
}

ListEntry *listIteratorGetCurEntry(ListIterator *iter)
{
    (void)iter; return {};
}

void listIteratorSetCurEntry(ListIterator *iter, ListEntry *entry)
{
    (void)iter; (void)entry;
}

ListEntry *listIteratorNext(ListIterator *iter)
{
    (void)iter; return {};
}

ListEntry *listIteratorPrev(ListIterator *iter)
{
    (void)iter; return {};
}

int listIteratorIsEndOfList(ListIterator *iter)
{
    (void)iter; return {};
}

} // extern "C"
