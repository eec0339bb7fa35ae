// String-keyed hash table with insertion-ordered iteration.
//
// Every entry sits on two lists: the chain of its bucket (for look-up) and
// one doubly linked list in insertion order (for walks). Walks follow the
// order list only, so growing the bucket array never disturbs a walk, and
// whatever is written by walking a table comes out in the order the entries
// were made.
#include "kx_hash.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace {

// The one sequence every table's delStamp is drawn from, so that no table
// ever shows a value it (or a table at its address) showed before. It starts
// at 1: 0 stands for a table that never held an entry.
std::atomic<unsigned long long> stampSequence{0};

unsigned long long nextStamp()
{
    return stampSequence.fetch_add(1, std::memory_order_relaxed) + 1;
}

// Buckets never grow past this; beyond it chains just get longer.
constexpr int kMaxBuckets = 1 << 30;

// FNV-1a over the key's bytes.
unsigned int hashKey(const char *key)
{
    unsigned int h = 2166136261u;
    for (const unsigned char *p = reinterpret_cast<const unsigned char *>(key); *p; ++p) {
        h ^= *p;
        h *= 16777619u;
    }
    return h;
}

// The bucket of a hash value. FNV-1a's low bits are weak for keys that differ
// only in their last characters ("host1", "host2", ...), so the bits are mixed
// before the power-of-two mask is applied.
int bucketOf(unsigned int h, int numBuckets)
{
    h ^= h >> 16;
    h *= 0x85ebca6bu;
    h ^= h >> 13;
    h *= 0xc2b2ae35u;
    h ^= h >> 16;
    return static_cast<int>(h & static_cast<unsigned int>(numBuckets - 1));
}

int roundUpPowerOfTwo(int n)
{
    int size = 1;
    while (size < n && size < kMaxBuckets)
        size <<= 1;
    return size;
}

// Rechain every entry into a bucket array of `newCount` buckets. On
// allocation failure the table keeps its old buckets: still correct, only
// slower, so the caller need not know.
void rehash(HashTab *tab, int newCount)
{
    auto **buckets = static_cast<HashEnt **>(std::calloc(static_cast<size_t>(newCount), sizeof(HashEnt *)));
    if (!buckets)
        return;
    for (HashEnt *e = tab->first; e; e = e->orderNext) {
        int b = bucketOf(e->hashValue, newCount);
        e->chainNext = buckets[b];
        buckets[b] = e;
    }
    std::free(tab->buckets);
    tab->buckets = buckets;
    tab->numBuckets = newCount;
}

// Make sure the table has a bucket array; a zero-filled HashTab that was
// never initialised works too.
bool ensureBuckets(HashTab *tab)
{
    if (tab->buckets && tab->numBuckets > 0)
        return true;
    int count = roundUpPowerOfTwo(tab->numBuckets > 0 ? tab->numBuckets : 1);
    tab->buckets = static_cast<HashEnt **>(std::calloc(static_cast<size_t>(count), sizeof(HashEnt *)));
    if (!tab->buckets) {
        tab->numBuckets = 0;
        return false;
    }
    tab->numBuckets = count;
    return true;
}

HashEnt *findEnt(const HashTab *tab, const char *key, unsigned int h)
{
    if (!tab->buckets || tab->numBuckets <= 0)
        return nullptr;
    for (HashEnt *e = tab->buckets[bucketOf(h, tab->numBuckets)]; e; e = e->chainNext) {
        if (e->hashValue == h && std::strcmp(e->key, key) == 0)
            return e;
    }
    return nullptr;
}

} // namespace

extern "C" {

// Sets up an empty table. The bucket count is rounded up to a power of two;
// if the bucket array cannot be allocated now, the first h_addEnt_ tries
// again, so the table is usable either way. Earlier contents are not freed.
void h_initTab_(HashTab *tab, int buckets)
{
    if (!tab)
        return;
    std::memset(tab, 0, sizeof *tab);
    tab->delStamp = nextStamp();
    tab->numBuckets = roundUpPowerOfTwo(buckets < 1 ? 1 : buckets);
    tab->buckets = static_cast<HashEnt **>(std::calloc(static_cast<size_t>(tab->numBuckets), sizeof(HashEnt *)));
    if (!tab->buckets)
        tab->numBuckets = 1; // remembered as the size to try on first use
}

// Returns the existing entry of `key` (*isNew = 0) or a new one with a NULL
// value and its own copy of the key (*isNew = 1). NULL for a NULL table or
// key, or when memory runs out; the table is then unchanged and *isNew is
// not written. The bucket array doubles once the entries outnumber it.
HashEnt *h_addEnt_(HashTab *tab, const char *key, int *isNew)
{
    if (!tab || !key)
        return nullptr;
    unsigned int h = hashKey(key);
    if (HashEnt *found = findEnt(tab, key, h)) {
        if (isNew)
            *isNew = 0;
        return found;
    }
    if (!ensureBuckets(tab))
        return nullptr;
    if (tab->delStamp == 0)
        tab->delStamp = nextStamp(); // a zero-filled table's first entry

    auto *ent = static_cast<HashEnt *>(std::calloc(1, sizeof(HashEnt)));
    char *keyCopy = static_cast<char *>(std::malloc(std::strlen(key) + 1));
    if (!ent || !keyCopy) {
        std::free(ent);
        std::free(keyCopy);
        return nullptr;
    }
    std::strcpy(keyCopy, key);
    ent->key = keyCopy;
    ent->hashValue = h;

    int b = bucketOf(h, tab->numBuckets);
    ent->chainNext = tab->buckets[b];
    tab->buckets[b] = ent;

    ent->orderPrev = tab->last;
    if (tab->last)
        tab->last->orderNext = ent;
    else
        tab->first = ent;
    tab->last = ent;
    tab->numEnts++;

    if (tab->numEnts > tab->numBuckets && tab->numBuckets < kMaxBuckets)
        rehash(tab, tab->numBuckets * 2);

    if (isNew)
        *isNew = 1;
    return ent;
}

// The entry of `key`, or NULL (also for a NULL table or key).
HashEnt *h_getEnt_(HashTab *tab, const char *key)
{
    if (!tab || !key)
        return nullptr;
    return findEnt(tab, key, hashKey(key));
}

// Unlinks `ent` and frees it and its key copy. The value is the caller's and
// is not touched. An entry that is not in this table is left alone. A walk
// whose last returned entry is `ent` carries on with the entry after it.
void h_delEnt_(HashTab *tab, HashEnt *ent)
{
    if (!tab || !ent || !tab->buckets || tab->numBuckets <= 0)
        return;
    HashEnt **link = &tab->buckets[bucketOf(ent->hashValue, tab->numBuckets)];
    while (*link && *link != ent)
        link = &(*link)->chainNext;
    if (!*link)
        return;
    *link = ent->chainNext;

    if (ent->orderPrev)
        ent->orderPrev->orderNext = ent->orderNext;
    else
        tab->first = ent->orderNext;
    if (ent->orderNext)
        ent->orderNext->orderPrev = ent->orderPrev;
    else
        tab->last = ent->orderPrev;
    tab->numEnts--;
    tab->delStamp = nextStamp();

    std::free(ent->key);
    std::free(ent);
}

// Starts a walk in insertion order and returns the first entry, or NULL for
// an empty (or NULL) table. The iterator already points past the returned
// entry, which is why deleting it does not break the walk.
HashEnt *h_firstEnt_(HashTab *tab, HashIter *iter)
{
    if (!iter)
        return nullptr;
    iter->tab = tab;
    iter->next = tab ? tab->first : nullptr;
    return h_nextEnt_(iter);
}

// The entry after `ent` in insertion order (the first for NULL), or NULL.
HashEnt *h_nextEntAfter_(HashTab *tab, HashEnt *ent)
{
    if (!tab)
        return nullptr;
    return ent ? ent->orderNext : tab->first;
}

// The next entry of the walk, or NULL at its end. Only the entry just
// returned may be deleted before the next call; deleting any other entry of
// the table during a walk is not supported.
HashEnt *h_nextEnt_(HashIter *iter)
{
    if (!iter || !iter->next)
        return nullptr;
    HashEnt *ent = iter->next;
    iter->next = ent->orderNext;
    return ent;
}

// Frees every entry, its key and the bucket array, calling freeValue (when
// given) on each non-NULL value in insertion order. The table is left empty
// with no buckets; h_addEnt_ or h_initTab_ may be used on it again.
void h_freeTab_(HashTab *tab, void (*freeValue)(void *))
{
    if (!tab)
        return;
    HashEnt *ent = tab->first;
    // Detach everything first so a destructor that looks at the table sees
    // it empty rather than half freed.
    std::free(tab->buckets);
    tab->buckets = nullptr;
    tab->numBuckets = 0;
    tab->first = tab->last = nullptr;
    tab->numEnts = 0;
    tab->delStamp = nextStamp();
    while (ent) {
        HashEnt *next = ent->orderNext;
        if (freeValue && ent->value)
            freeValue(ent->value);
        std::free(ent->key);
        std::free(ent);
        ent = next;
    }
}

// 1 when the table holds no entry or is NULL, else 0.
int h_TabEmpty_(HashTab *tab)
{
    return (!tab || tab->numEnts == 0) ? 1 : 0;
}

// The number of entries; 0 for NULL.
int h_numEnts_(HashTab *tab)
{
    return tab ? tab->numEnts : 0;
}

} // extern "C"
