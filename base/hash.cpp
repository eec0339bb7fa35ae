// STUB: generated placeholder; replace each function with its implementation.
#include "kx_hash.h"

extern "C" {


void h_initTab_(HashTab *tab, int buckets)
{
    (void)tab; (void)buckets;
}

HashEnt *h_addEnt_(HashTab *tab, const char *key, int *isNew)
{
    (void)tab; (void)key; (void)isNew; return {};
}

HashEnt *h_getEnt_(HashTab *tab, const char *key)
{
    (void)tab; (void)key; return {};
}

void h_delEnt_(HashTab *tab, HashEnt *ent)
{
    (void)tab; (void)ent;
}

HashEnt *h_firstEnt_(HashTab *tab, HashIter *iter)
{
    (void)tab; (void)iter; return {};
}

HashEnt *h_nextEnt_(HashIter *iter)
{
    (void)iter; return {};
}

void h_freeTab_(HashTab *tab, void (*freeValue)(void *))
{
    (void)tab; (void)freeValue;
}

int h_TabEmpty_(HashTab *tab)
{
    (void)tab; return {};
}

int h_numEnts_(HashTab *tab)
{
    (void)tab; return {};
}

} // extern "C"
