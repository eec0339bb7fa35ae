// Sentinel-headed doubly linked list.
//
// The List header starts with the same two links as every element, so the
// header itself closes the ring: the first element's back link and the last
// element's forward link point at the header, and an empty list links to
// itself. No operation needs a special case for the ends.
#include "kx_list.h"

#include <cstdlib>
#include <cstring>

namespace {

ListEntry *sentinel(List *list)
{
    return reinterpret_cast<ListEntry *>(list);
}

char *copyName(const char *name)
{
    const char *text = name ? name : "";
    size_t len = std::strlen(text);
    auto *copy = static_cast<char *>(std::malloc(len + 1));
    if (copy)
        std::memcpy(copy, text, len + 1);
    return copy;
}

void freeElement(void *element)
{
    std::free(element);
}

} // namespace

extern "C" {

// A new empty list owning a copy of `name` (NULL gives ""). NULL when memory
// runs out, with nothing left allocated. Release with listDestroy.
List *listCreate(const char *name)
{
    auto *list = static_cast<List *>(std::calloc(1, sizeof(List)));
    if (!list)
        return nullptr;
    list->name = copyName(name);
    if (!list->name) {
        std::free(list);
        return nullptr;
    }
    list->forw = list->back = sentinel(list);
    list->numEnts = 0;
    return list;
}

// Unlinks every element, handing each to `destroy` when one is given
// (otherwise the elements stay with whoever else holds them), then frees the
// name and the header. NULL is ignored.
void listDestroy(List *list, ListEntryDestroyFunc destroy)
{
    if (!list)
        return;
    ListEntry *end = sentinel(list);
    ListEntry *e = list->forw;
    while (e && e != end) {
        ListEntry *next = e->forw;
        if (destroy)
            destroy(e);
        e = next;
    }
    std::free(list->name);
    std::free(list);
}

// A new list with the same name whose elements are byte copies of
// `elementSize` bytes each, in the same order, with their links rewritten.
// Pointers inside the elements are copied as they are, not followed. NULL for
// a NULL list, an element size smaller than the links, or when memory runs
// out; in every failure nothing stays allocated and `list` is unchanged.
List *listDup(List *list, int elementSize)
{
    if (!list || elementSize < static_cast<int>(sizeof(ListEntry)))
        return nullptr;
    List *copy = listCreate(list->name);
    if (!copy)
        return nullptr;
    ListEntry *end = sentinel(list);
    for (ListEntry *e = list->forw; e != end; e = e->forw) {
        auto *dup = static_cast<ListEntry *>(std::malloc(static_cast<size_t>(elementSize)));
        if (!dup) {
            listDestroy(copy, freeElement);
            return nullptr;
        }
        std::memcpy(dup, e, static_cast<size_t>(elementSize));
        listInsertEntryAtBack(copy, dup);
    }
    return copy;
}

// Appends `entry`; 0, or -1 (list unchanged) when either argument is NULL.
int listInsertEntryAtBack(List *list, ListEntry *entry)
{
    if (!list)
        return -1;
    return listInsertEntryBefore(list, sentinel(list), entry);
}

// Links `entry` in just before `before`, which may be the list itself to
// mean the end. 0, or -1 (list unchanged) on a NULL argument.
int listInsertEntryBefore(List *list, ListEntry *before, ListEntry *entry)
{
    if (!list || !before || !entry)
        return -1;
    entry->forw = before;
    entry->back = before->back;
    before->back->forw = entry;
    before->back = entry;
    list->numEnts++;
    return 0;
}

// Unlinks `entry` from `list`; the element is not freed. Its own links are
// left as they were, so an iterator standing on it can still step to the
// element that followed it. NULL arguments, and the list's own header, are
// ignored.
void listRemoveEntry(List *list, ListEntry *entry)
{
    if (!list || !entry || entry == sentinel(list) || !entry->forw || !entry->back)
        return;
    entry->back->forw = entry->forw;
    entry->forw->back = entry->back;
    list->numEnts--;
}

// The first element, from the head, for which equal(element, key, hint) is
// non-zero; NULL when none matches or an argument is NULL.
ListEntry *listSearchEntry(List *list, void *key, ListEntryEqualFunc equal, int hint)
{
    if (!list || !equal)
        return nullptr;
    ListEntry *end = sentinel(list);
    for (ListEntry *e = list->forw; e != end; e = e->forw) {
        if (equal(e, key, hint))
            return e;
    }
    return nullptr;
}

// Places the cursor on the first element (at the end for an empty list).
// 0, or -1 on a NULL argument (iterator untouched).
int listIteratorAttach(ListIterator *iter, List *list)
{
    if (!iter || !list)
        return -1;
    iter->list = list;
    iter->curEnt = list->forw;
    return 0;
}

// The element under the cursor, or NULL at the end.
ListEntry *listIteratorGetCurEntry(ListIterator *iter)
{
    if (listIteratorIsEndOfList(iter))
        return nullptr;
    return iter->curEnt;
}

// Puts the cursor on `entry`, which must be an element of the attached list;
// NULL (or the list header) puts it at the end.
void listIteratorSetCurEntry(ListIterator *iter, ListEntry *entry)
{
    if (!iter || !iter->list)
        return;
    iter->curEnt = entry ? entry : sentinel(iter->list);
}

// Moves the cursor forward and returns the new current element, or NULL once
// past the last one. At the end the cursor stays there: a walk never wraps
// round to the head.
ListEntry *listIteratorNext(ListIterator *iter)
{
    if (listIteratorIsEndOfList(iter))
        return nullptr;
    iter->curEnt = iter->curEnt->forw;
    return listIteratorGetCurEntry(iter);
}

// Moves the cursor back and returns the new current element, or NULL once
// before the first one (the cursor is then at the end position, as after
// Next ran off the tail).
ListEntry *listIteratorPrev(ListIterator *iter)
{
    if (listIteratorIsEndOfList(iter))
        return nullptr;
    iter->curEnt = iter->curEnt->back;
    return listIteratorGetCurEntry(iter);
}

// 1 when the cursor is at the end (or the iterator is NULL or unattached).
int listIteratorIsEndOfList(ListIterator *iter)
{
    if (!iter || !iter->list || !iter->curEnt)
        return 1;
    return iter->curEnt == sentinel(iter->list) ? 1 : 0;
}

} // extern "C"
