/* A minimal daemon: install the services, ask the module one question. */
#include <stdlib.h>
#include <string.h>

#include "qob.rsvimpl.h"

static void *allocZeroed(int count, size_t size, const char *caller)
{
    (void)caller;
    return calloc((size_t)count, size);
}

static char *dupString(const char *text)
{
    char *copy = malloc(strlen(text) + 1);
    if (copy)
        strcpy(copy, text);
    return copy;
}

int main(void)
{
    RsvMiscFuncs services;
    memset(&services, 0, sizeof services);
    services.allocZeroed = allocZeroed;
    services.dupString = dupString;
    RsvMod_init(&services);
    return RsvTimeWindow_toDuration("1000-4600") == 3600 ? 0 : 1;
}
