/* The public header compiles as C11 and the library links from C. */
#include <stdio.h>
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
    size_t n = strlen(text) + 1;
    char *copy = malloc(n);
    if (copy)
        memcpy(copy, text, n);
    return copy;
}

static RsvHost theHost = {8, 8, 0u, 0u};

static RsvHost *findHost(const char *name)
{
    return strcmp(name, "h1") == 0 ? &theHost : NULL;
}

static char *officialHostName(const char *name)
{
    return findHost(name) ? dupString(name) : NULL;
}

static int maxRsvPerOwner(void)
{
    return 10;
}

static time_t pinnedNow(void)
{
    return 1000;
}

int main(void)
{
    RsvMiscFuncs services;
    memset(&services, 0, sizeof services);
    services.allocZeroed = allocZeroed;
    services.dupString = dupString;
    services.findHost = findHost;
    services.officialHostName = officialHostName;
    services.maxRsvPerOwner = maxRsvPerOwner;
    RsvMod_init(&services);
    RsvMod_setClock(pinnedNow);

    int failures = 0;
    RsvTimeTbl *tbl = RsvTimeTbl_new("/nonexistent/rsv.state");
    if (tbl == NULL || strcmp(tbl->idFile, "/nonexistent/rsv.ids") != 0) {
        fprintf(stderr, "RsvTimeTbl_new: wrong id file\n");
        failures++;
    }
    if (RsvTimeWindow_toDuration("1000-4600") != 3600) {
        fprintf(stderr, "RsvTimeWindow_toDuration: wrong duration\n");
        failures++;
    }
    if (isRsvActive(NULL) != 0) {
        fprintf(stderr, "isRsvActive(NULL) != 0\n");
        failures++;
    }
    {
        /* The earliest fit on an empty table is the first 10-minute
         * boundary at or after notBefore. */
        char *hosts[1];
        RsvReq req;
        RsvFit fit;
        memset(&req, 0, sizeof req);
        memset(&fit, 0, sizeof fit);
        hosts[0] = dupString("h1");
        req.minNumProcs = 2;
        req.maxNumProcs = 2;
        req.numAskedHosts = 1;
        req.askedHosts = hosts;
        if (tbl == NULL || RsvTimeTbl_findEarliest(tbl, &req, 1000, 100000, 30, NULL, &fit) != RSV_OK ||
            !fit.found || fit.numHosts != 1 || fit.allocVector[0].numSlots != 2 || fit.end - fit.start != 1800) {
            fprintf(stderr, "RsvTimeTbl_findEarliest: wrong answer\n");
            failures++;
        }
        RsvFit_destroy(&fit);
        free(hosts[0]);
    }
    RsvTimeTbl_free(tbl);
    RsvMod_setClock(NULL);
    return failures == 0 ? 0 : 1;
}
