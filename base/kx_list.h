/* Doubly linked list of the scheduler's base library.
 *
 * Every element begins with a ListEntry (its links); the List header itself
 * begins with the same two links and serves as the sentinel, so a list is
 * empty when its head links to itself. The header keeps a name and an
 * element count. */
#ifndef KX_LIST_H
#define KX_LIST_H

#ifdef __cplusplus
extern "C" {
#endif
#if defined(__GNUC__) || defined(__clang__)
#pragma GCC visibility push(default) /* the library's public surface */
#endif

typedef struct ListEntry {
    struct ListEntry *forw;
    struct ListEntry *back;
} ListEntry;

typedef struct List {
    ListEntry *forw; /* first element, or the list itself when empty */
    ListEntry *back; /* last element, or the list itself when empty */
    char *name;      /* owned copy */
    int numEnts;
} List;

typedef struct ListIterator {
    List *list;
    ListEntry *curEnt;
} ListIterator;

/* An element destructor, called with the element itself. */
typedef void (*ListEntryDestroyFunc)(void *element);

/* A search predicate: non-zero when `element` matches `key`. */
typedef int (*ListEntryEqualFunc)(void *element, void *key, int hint);

/* A new empty list named `name` (copied; NULL gives ""), or NULL when memory
 * runs out. */
List *listCreate(const char *name);

/* Remove every element (calling destroy on each when not NULL; otherwise the
 * elements are left alone), then free the name and the header. */
void listDestroy(List *list, ListEntryDestroyFunc destroy);

/* A deep copy: a new list with the same name whose elements are byte copies
 * of `elementSize` bytes each (links rewritten), in the same order. NULL when
 * memory runs out, with nothing left allocated. */
List *listDup(List *list, int elementSize);

/* Append `entry`; 0, or -1 when either argument is NULL. */
int listInsertEntryAtBack(List *list, ListEntry *entry);

/* Insert `entry` just before `before` (which may be the list itself, meaning
 * the end); 0, or -1 on a NULL argument. */
int listInsertEntryBefore(List *list, ListEntry *before, ListEntry *entry);

/* Unlink `entry` from `list` (not freed). The element's own links are left
 * as they were, so an iterator standing on it can still step forward. */
void listRemoveEntry(List *list, ListEntry *entry);

/* The first element for which equal(element, key, hint) is non-zero, or NULL. */
ListEntry *listSearchEntry(List *list, void *key, ListEntryEqualFunc equal, int hint);

/* Iterators. Attach places the cursor on the first element (or at the end of
 * an empty list) and returns 0 (-1 on a NULL argument). GetCurEntry gives the
 * element under the cursor, or NULL at the end. Next and Prev move the cursor
 * and return the new current element (NULL once past either end). Past
 * either end the cursor is at the end position; Next and Prev leave it there
 * (a walk never wraps round). SetCurEntry with NULL moves to the end. */
int listIteratorAttach(ListIterator *iter, List *list);
ListEntry *listIteratorGetCurEntry(ListIterator *iter);
void listIteratorSetCurEntry(ListIterator *iter, ListEntry *entry);
ListEntry *listIteratorNext(ListIterator *iter);
ListEntry *listIteratorPrev(ListIterator *iter);
int listIteratorIsEndOfList(ListIterator *iter);

#if defined(__GNUC__) || defined(__clang__)
#pragma GCC visibility pop
#endif
#ifdef __cplusplus
}
#endif
#endif
