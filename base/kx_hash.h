/* String-keyed hash table of the scheduler's base library.
 *
 * Keys are copied into the table; values are opaque pointers owned by the
 * caller. Entries iterate in insertion order, so anything written by walking
 * a table (state files, id files, replies) comes out in the order the entries
 * were made. The bucket array grows as the table fills, so look-up stays O(1)
 * at any size. Deleting the entry an iterator has just returned is safe. */
#ifndef KX_HASH_H
#define KX_HASH_H

#ifdef __cplusplus
extern "C" {
#endif
#if defined(__GNUC__) || defined(__clang__)
#pragma GCC visibility push(default) /* the library's public surface */
#endif

typedef struct HashEnt {
    char *key;    /* the table's own copy */
    void *value;  /* the caller's pointer; never freed by h_delEnt_ */
    /* private to the table */
    struct HashEnt *chainNext;
    struct HashEnt *orderNext;
    struct HashEnt *orderPrev;
    unsigned int hashValue;
} HashEnt;

typedef struct HashTab {
    HashEnt **buckets;
    int numBuckets;
    int numEnts;
    HashEnt *first; /* insertion order */
    HashEnt *last;
    /* Changes whenever an entry leaves the table (h_delEnt_, h_freeTab_) or
     * the table is initialised (h_initTab_), and is given a first value by
     * the first h_addEnt_ of a zero-filled table; adding entries leaves it
     * alone otherwise. Its values come from one sequence shared by every
     * table of the process, so a table emptied and filled again, or a new
     * table at an old one's address, never shows an earlier value: a cache
     * that remembers it, and the last entry it has seen, knows that it
     * only has to take in the entries after that one while the value is
     * unchanged. 0 only for a zero-filled table that never held an entry;
     * 64 bits, so the sequence never wraps round. */
    unsigned long long delStamp;
} HashTab;

typedef struct HashIter {
    HashTab *tab;
    HashEnt *next; /* the entry the next h_nextEnt_ returns */
} HashIter;

/* Initialise an empty table with at least `buckets` buckets (values below 1
 * are taken as 1; the count is rounded up to a power of two). Any earlier
 * contents of `tab` are overwritten, not freed. A zero-filled HashTab that
 * was never initialised also works: its buckets are made on first use. */
void h_initTab_(HashTab *tab, int buckets);

/* Find `key`, or add it with a NULL value. *isNew (when not NULL) is 1 for a
 * new entry, 0 for an existing one. NULL when memory runs out (table
 * unchanged) or a NULL key is given. */
HashEnt *h_addEnt_(HashTab *tab, const char *key, int *isNew);

/* The entry of `key`, or NULL. */
HashEnt *h_getEnt_(HashTab *tab, const char *key);

/* Remove `ent` and free it and its key; its value is left to the caller. An
 * entry that is not in `tab` (or NULL) is ignored. */
void h_delEnt_(HashTab *tab, HashEnt *ent);

/* Start a walk in insertion order: the first entry or NULL. */
HashEnt *h_firstEnt_(HashTab *tab, HashIter *iter);

/* The entry after `ent` in insertion order, the first entry when `ent` is
 * NULL, or NULL at the end (or for a NULL table). `ent` must be an entry of
 * `tab`; no iterator is needed, so a cache can resume where it stopped. */
HashEnt *h_nextEntAfter_(HashTab *tab, HashEnt *ent);

/* The next entry of the walk, or NULL at the end. During a walk only the
 * entry just returned may be deleted; entries added during a walk never
 * disturb it but may or may not be visited. */
HashEnt *h_nextEnt_(HashIter *iter);

/* Free every entry and the buckets, calling freeValue (when not NULL) on each
 * non-NULL value, in insertion order. The table is left empty and may be
 * used or initialised again. */
void h_freeTab_(HashTab *tab, void (*freeValue)(void *));

/* 1 when the table holds no entry (or is NULL), else 0. */
int h_TabEmpty_(HashTab *tab);

/* Number of entries (0 for NULL). */
int h_numEnts_(HashTab *tab);

#if defined(__GNUC__) || defined(__clang__)
#pragma GCC visibility pop
#endif
#ifdef __cplusplus
}
#endif
#endif
