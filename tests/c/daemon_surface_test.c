/* The daemon's view of the module, in C11: every function of qob.rsvimpl.h
 * and of the base headers it includes is called here with the argument types
 * a daemon uses (weeks and days by pointer, plain char * texts, int counts,
 * a services table of functions with the described signatures), and the
 * results are checked. A small daemon (two hosts, one job, a name table) runs
 * a table with its state file in a fresh directory: add, look up, report,
 * activate, change, remove, save durably, reload.
 *
 * The clock is pinned to Wednesday 2026-01-07 10:00:00 UTC and TZ is UTC, so
 * every time below is exact. Exit status 0 when every check holds. */
#define _POSIX_C_SOURCE 200809L

#include <errno.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "qob.rsvimpl.h"

/* ------------------------------------------------------------------------ */
/* Checks                                                                   */
/* ------------------------------------------------------------------------ */

static int checks = 0;
static int failures = 0;

static void checkFailed(const char *file, int line, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    fprintf(stderr, "%s:%d: ", file, line);
    vfprintf(stderr, format, args);
    fputc('\n', stderr);
    va_end(args);
    ++failures;
}

#define CHECK(cond)                                                         \
    do {                                                                    \
        ++checks;                                                           \
        if (!(cond))                                                        \
            checkFailed(__FILE__, __LINE__, "check failed: %s", #cond);     \
    } while (0)

#define CHECK_INT(actual, expected)                                         \
    do {                                                                    \
        ++checks;                                                           \
        long long got_ = (long long)(actual);                               \
        long long want_ = (long long)(expected);                            \
        if (got_ != want_)                                                  \
            checkFailed(__FILE__, __LINE__, "%s is %lld, expected %lld",    \
                        #actual, got_, want_);                              \
    } while (0)

#define CHECK_STR(actual, expected)                                         \
    do {                                                                    \
        ++checks;                                                           \
        const char *got_ = (actual);                                        \
        const char *want_ = (expected);                                     \
        if (got_ == NULL || strcmp(got_, want_) != 0)                       \
            checkFailed(__FILE__, __LINE__, "%s is \"%s\", expected \"%s\"", \
                        #actual, got_ ? got_ : "(null)", want_);            \
    } while (0)

/* ------------------------------------------------------------------------ */
/* The daemon: clock, services, hosts, one job, the name table, log capture */
/* ------------------------------------------------------------------------ */

enum { HOUR = 3600, DAY = 86400 };
static const time_t NOW = 1767780000; /* Wed 2026-01-07 10:00:00 UTC */

static time_t clockNow = 1767780000;
static time_t pinnedClock(void)
{
    return clockNow;
}

static int failAllocations = 0; /* the daemon's allocator runs dry */

static void *allocZeroed(int count, size_t size, const char *caller)
{
    (void)caller;
    if (failAllocations || count <= 0)
        return NULL;
    return calloc((size_t)count, size);
}

static char *dupString(const char *text)
{
    if (failAllocations)
        return NULL;
    size_t n = strlen(text) + 1;
    char *copy = malloc(n);
    if (copy)
        memcpy(copy, text, n);
    return copy;
}

static RsvHost hostA = {8, 8, 0u, 0u};
static RsvHost hostB = {2147483647, 4, 0u, 0u}; /* no slot limit: 4 processors */
static int hostBLost = 0;                       /* the daemon forgot hostB */

static RsvHost *findHost(const char *name)
{
    if (strcmp(name, "hostA") == 0)
        return &hostA;
    if (strcmp(name, "hostB") == 0 && !hostBLost)
        return &hostB;
    return NULL;
}

static char *officialHostName(const char *name)
{
    if (strcmp(name, "a") == 0 || strcmp(name, "hostA") == 0)
        return dupString("hostA");
    if (strcmp(name, "b") == 0 || strcmp(name, "hostB") == 0)
        return dupString("hostB");
    return NULL;
}

static RsvHost *jobHosts[1] = {&hostA};
static RsvJob job42 = {42, 0x4, 0, 1, jobHosts}; /* running on hostA */

static RsvJob *findJob(int64_t jobId)
{
    return jobId == 42 ? &job42 : NULL;
}

static HashTab nameTable;
static HashTab *rsvNameTable(void)
{
    return &nameTable;
}

static int maxRsvPerOwner(void)
{
    return 3;
}

static void unusedService(void)
{
}

static int logLines = 0;
static char lastLog[2048];
static char allLogs[16384];

static void captureLog(int level, const char *line)
{
    (void)level;
    ++logLines;
    snprintf(lastLog, sizeof lastLog, "%s", line);
    size_t used = strlen(allLogs);
    if (used + strlen(line) + 2 < sizeof allLogs) {
        strcat(allLogs, line);
        strcat(allLogs, "\n");
    }
}

static void clearLogs(void)
{
    logLines = 0;
    lastLog[0] = '\0';
    allLogs[0] = '\0';
}

/* ------------------------------------------------------------------------ */
/* Helpers                                                                  */
/* ------------------------------------------------------------------------ */

static char *readFile(const char *path)
{
    FILE *fp = fopen(path, "r");
    if (!fp)
        return NULL;
    size_t cap = 4096;
    size_t len = 0;
    char *text = malloc(cap);
    int c;
    while (text && (c = fgetc(fp)) != EOF) {
        if (len + 1 >= cap) {
            char *bigger = realloc(text, cap * 2);
            if (!bigger) {
                free(text);
                text = NULL;
                break;
            }
            text = bigger;
            cap *= 2;
        }
        text[len++] = (char)c;
    }
    if (text)
        text[len] = '\0';
    fclose(fp);
    return text;
}

static int countLines(const char *text)
{
    int n = 0;
    for (; text && *text; ++text)
        n += *text == '\n';
    return n;
}

static char *window(time_t start, time_t end, char *buf, size_t size)
{
    snprintf(buf, size, "%lld-%lld", (long long)start, (long long)end);
    return buf;
}

static void freeTexts(char **texts, int count)
{
    for (int i = 0; i < count; ++i)
        free(texts[i]);
}

/* A request as a daemon builds one: every text on the heap. */
static void makeRequest(RsvReq *req, int options, const char *owner, int minProcs, int maxProcs, char **hosts,
                        int numHosts, const char *timeWindow, const char *description)
{
    memset(req, 0, sizeof *req);
    req->options = options;
    req->name = dupString(owner);
    req->minNumProcs = minProcs;
    req->maxNumProcs = maxProcs;
    req->numAskedHosts = numHosts;
    req->askedHosts = hosts;
    req->timeWindow = dupString(timeWindow);
    req->description = description ? dupString(description) : NULL;
}

static void freeRequest(RsvReq *req)
{
    free(req->name);
    if (req->askedHosts) {
        freeTexts(req->askedHosts, req->numAskedHosts);
        free(req->askedHosts);
    }
    free(req->timeWindow);
    free(req->description);
    free(req->rsvId);
    memset(req, 0, sizeof *req);
}

static char **hostList(const char *first, const char *second)
{
    char **hosts = calloc(2, sizeof *hosts);
    if (hosts) {
        hosts[0] = dupString(first);
        hosts[1] = second ? dupString(second) : NULL;
    }
    return hosts;
}

static void freeFinishLog(RsvFinishLog *record)
{
    for (int i = 0; record->hosts && i < record->numHosts; ++i)
        free(record->hosts[i].hostName);
    free(record->hosts);
    free(record->rsvId);
    free(record->name);
    free(record->timeWindow);
    free(record->creator);
    memset(record, 0, sizeof *record);
}

static void countProblem(void *context, const char *problem)
{
    fprintf(stderr, "verify: %s\n", problem);
    ++*(int *)context;
}

/* ------------------------------------------------------------------------ */
/* Base library                                                             */
/* ------------------------------------------------------------------------ */

typedef struct Item {
    ListEntry links;
    int value;
} Item;

static int itemHasValue(void *element, void *key, int hint)
{
    (void)hint;
    return ((Item *)element)->value == *(int *)key;
}

static Item *newItem(int value)
{
    Item *item = calloc(1, sizeof *item);
    if (item)
        item->value = value;
    return item;
}

static void testBaseLibrary(void)
{
    /* hash table */
    HashTab tab;
    h_initTab_(&tab, 4);
    int isNew = -1;
    HashEnt *x = h_addEnt_(&tab, "x", &isNew);
    CHECK(x != NULL);
    CHECK_INT(isNew, 1);
    x->value = malloc(4);
    CHECK(h_addEnt_(&tab, "x", &isNew) == x);
    CHECK_INT(isNew, 0);
    HashEnt *y = h_addEnt_(&tab, "y", NULL);
    y->value = malloc(4);
    CHECK(h_getEnt_(&tab, "y") == y);
    CHECK(h_getEnt_(&tab, "z") == NULL);
    CHECK_INT(h_numEnts_(&tab), 2);
    HashIter iter;
    CHECK(h_firstEnt_(&tab, &iter) == x);
    CHECK(h_nextEnt_(&iter) == y);
    CHECK(h_nextEnt_(&iter) == NULL);
    CHECK(h_nextEntAfter_(&tab, x) == y);
    CHECK(h_nextEntAfter_(&tab, NULL) == x);
    free(x->value);
    h_delEnt_(&tab, x);
    CHECK_INT(h_numEnts_(&tab), 1);
    CHECK_INT(h_TabEmpty_(&tab), 0);
    h_freeTab_(&tab, free);
    CHECK_INT(h_TabEmpty_(&tab), 1);

    /* list */
    List *list = listCreate("items");
    CHECK(list != NULL && strcmp(list->name, "items") == 0);
    Item *one = newItem(1);
    Item *three = newItem(3);
    Item *two = newItem(2);
    CHECK_INT(listInsertEntryAtBack(list, &one->links), 0);
    CHECK_INT(listInsertEntryAtBack(list, &three->links), 0);
    CHECK_INT(listInsertEntryBefore(list, &three->links, &two->links), 0);
    CHECK_INT(list->numEnts, 3);
    int key = 2;
    CHECK(listSearchEntry(list, &key, itemHasValue, 0) == &two->links);
    ListIterator it;
    CHECK_INT(listIteratorAttach(&it, list), 0);
    CHECK(listIteratorGetCurEntry(&it) == &one->links);
    CHECK(listIteratorNext(&it) == &two->links);
    CHECK(listIteratorNext(&it) == &three->links);
    CHECK(listIteratorPrev(&it) == &two->links);
    CHECK_INT(listIteratorIsEndOfList(&it), 0);
    listIteratorSetCurEntry(&it, NULL);
    CHECK(listIteratorIsEndOfList(&it) != 0);
    List *copy = listDup(list, (int)sizeof(Item));
    CHECK(copy != NULL && copy->numEnts == 3);
    CHECK(copy && ((Item *)copy->back)->value == 3 && copy->back != &three->links);
    listRemoveEntry(list, &two->links);
    free(two);
    CHECK_INT(list->numEnts, 2);
    listDestroy(list, free);
    listDestroy(copy, free);

    /* dates: month 0..11 in date integers */
    float hour = 0.0f;
    float minute = 0.0f;
    int day = -1;
    CHECK_INT(parse_time("8:30", &hour, &day), 0);
    CHECK(hour == 8.5f && day == 0);
    CHECK_INT(parse_time("5:18:0", &hour, &day), 0);
    CHECK(hour == 18.0f && day == 5);
    CHECK(parse_time("1767780000", &hour, &day) < 0);
    CHECK_INT(parse_time_ex("2:12:30", &minute, &hour, &day), 0);
    CHECK(minute == 30.0f && hour == 12.0f && day == 2);
    CHECK_INT(dateToInt(2026, 0, 7), 20260007);
    CHECK_INT(getNowday(NOW), 20260007);
    CHECK_INT(nextDays(20260007, 25), 20260101);
    CHECK_STR(intToDate(20260007), "Wed Jan 7 2026");
    CHECK_INT(evalNumWeeks(20260007, 20260010), 1);
    CHECK_INT(evalNumWeeks(20260007, 20260011), 2);

    /* text */
    CHECK_INT(isint_("-12"), 1);
    CHECK_INT(isint_("1x"), 0);
    CHECK_INT(isdigitstr_("123"), 1);
    CHECK_INT(isdigitstr_(""), 0);
    char quoted[32];
    CHECK_INT(stripQStr("\"a b\" rest", quoted), 5);
    CHECK_STR(quoted, "a b");

    /* logging: the test's sink is installed by main */
    clearLogs();
    kx_syslog(KX_LOG_WARNING, "%s: %d", "surface", 5);
    CHECK_STR(lastLog, "surface: 5");
    CHECK_STR(kx_catgets(kx_catd, 37, 6100, "default text"), "default text");
    CHECK_INT(logclass, 0);

    /* clock and batch library */
    CHECK_INT(kx_now(), NOW);
    RsvExecCmd *cmd = calloc(1, sizeof *cmd);
    if (cmd)
        cmd->command = dupString("echo end");
    qob_freeRsvExecCmd(&cmd);
    CHECK(cmd == NULL);
    qob_freeRsvExecCmd(&cmd);
}

/* ------------------------------------------------------------------------ */
/* Time windows, instances and disabled days                                */
/* ------------------------------------------------------------------------ */

static void testOccurrencesAndValidation(void)
{
    char w1[64];
    char w2[64];
    CHECK_INT(Rsv_timeToOccurFromGivenTime("8:0", NOW, RSV_OCCUR_NEXT), NOW - 2 * HOUR + DAY);
    CHECK_INT(Rsv_timeToOccurFromGivenTime("12:0", NOW, RSV_OCCUR_NEXT), NOW + 2 * HOUR);
    CHECK_INT(Rsv_timeToOccurFromGivenTime("12:0", NOW, RSV_OCCUR_AFTER_TODAY), NOW + 2 * HOUR + DAY);
    CHECK_INT(Rsv_timeToOccurFromGivenTime("8:0", NOW, RSV_OCCUR_TODAY), NOW - 2 * HOUR);
    CHECK_INT(Rsv_timeToOccurFromGivenTime("3:12:0", NOW, RSV_OCCUR_NEXT), NOW + 2 * HOUR);
    CHECK_INT(Rsv_timeToOccurFromGivenTime("3:9:0", NOW, RSV_OCCUR_NEXT), NOW - HOUR + 7 * DAY);
    CHECK_INT(Rsv_timeToOccurFromGivenTime("1767790000", NOW, RSV_OCCUR_ASIS), 1767790000);
    CHECK_INT(Rsv_timeToOccurFromGivenTime(NULL, NOW, RSV_OCCUR_NEXT), -1);
    CHECK_INT(Rsv_time2occur("12:0", RSV_OCCUR_NEXT), NOW + 2 * HOUR);

    CHECK_INT(RsvTimeWindow_toDuration("1000-4600"), 3600);
    CHECK_INT(RsvTimeWindow_toDuration("22:0-6:0"), 8 * HOUR);
    CHECK_INT(RsvTimeWindow_toDuration("nodash"), 0);

    CHECK_INT(isValidTimeWindow(window(NOW + HOUR, NOW + 2 * HOUR, w1, sizeof w1), 0), RSV_OK);
    CHECK_INT(isValidTimeWindow("1000-2000", 0), RSV_ERR_START_IN_PAST);
    CHECK_INT(isValidTimeWindow("8:0-17:0", 1), RSV_OK);
    CHECK_INT(isValidTimeWindow("8:0-8:0", 1), RSV_ERR_END_INVALID);
    CHECK_INT(isNonRecValidTimeWindow(NULL), RSV_ERR_BAD_TIME_WINDOW);
    CHECK_INT(isNonRecValidTimeWindow("12x-20"), RSV_ERR_BAD_TIME_WINDOW);
    /* 2040-07-01 and 2040-07-02: long past by default, ahead with wide times. */
    CHECK_INT(RsvMod_wideTimes(), 0);
    CHECK_INT(isNonRecValidTimeWindow("2224742400-2224828800"), RSV_ERR_START_IN_PAST);
    CHECK_INT(RsvMod_setWideTimes(1), 0);
    CHECK_INT(isNonRecValidTimeWindow("2224742400-2224828800"), RSV_OK);
    CHECK(Rsv_time2occur("2224742400", RSV_OCCUR_ASIS) == (time_t)2224742400LL);
    CHECK_INT(RsvMod_setWideTimes(0), 1);
    CHECK_INT(isRecValidTimeWindow("22:0-6:0"), RSV_OK);
    CHECK_INT(isRecValidTimeWindow("8:0-1:9:0"), RSV_ERR_DAY_MISMATCH);

    char *built = RsvMod_buildTimeWindow("1000-2000", "null&+30");
    CHECK_STR(built, "1000-3800");
    free(built);
    built = RsvMod_buildTimeWindow("1000-2000", "-10&null");
    CHECK_STR(built, "400-2000");
    free(built);
    CHECK(RsvMod_buildTimeWindow("1000-2000", "no ampersand") == NULL);

    /* A one-off entry and changes of its window. */
    RsvEnt *ent = RsvEnt_new(0, "erin", window(NOW + HOUR, NOW + 2 * HOUR, w1, sizeof w1));
    CHECK(ent != NULL);
    if (!ent)
        return;
    CHECK_STR(ent->version, RSV_FORMAT_VERSION);
    CHECK_INT(ent->createTime, NOW);
    CHECK_INT(RsvEnt_getDuration(ent), HOUR);
    CHECK_INT(RsvEnt_getLeftTime(ent), 2 * HOUR);
    CHECK_INT(isValidModTimeWindow(window(NOW + HOUR, NOW + 3 * HOUR, w2, sizeof w2), ent, 0), RSV_OK);
    CHECK_INT(isValidModTimeWindow(window(NOW - 10, NOW + 2 * HOUR, w2, sizeof w2), ent, 0), RSV_ERR_START_IN_PAST);
    CHECK_INT(isValidModTimeWindow(w2, NULL, 0), RSV_ERR_BAD_ARGUMENT);

    RsvModReq mod;
    memset(&mod, 0, sizeof mod);
    mod.req.timeWindow = dupString("null&+30");
    CHECK_INT(RsvMod_updateModReqTimeWindow(&mod, ent), RSV_OK);
    CHECK_STR(mod.req.timeWindow, window(NOW + HOUR, NOW + 2 * HOUR + 1800, w2, sizeof w2));
    CHECK_INT(RsvMod_updateModReqTimeWindow(NULL, ent), RSV_ERR_BAD_ARGUMENT);

    mod.req.options = RSV_MOD_NAME | RSV_MOD_TIMEWINDOW | RSV_MOD_DESCRIPTION;
    mod.req.name = dupString("carol");
    mod.req.description = dupString("moved");
    RsvEnt_updateWithMod(ent, &mod);
    CHECK_STR(ent->name, "carol");
    CHECK_STR(ent->description, "moved");
    CHECK_STR(ent->timeWindow, w2);
    CHECK_INT(ent->duration, HOUR + 1800);
    CHECK((ent->options & (RSV_MOD_NAME | RSV_MOD_TIMEWINDOW)) == (RSV_MOD_NAME | RSV_MOD_TIMEWINDOW));
    free(mod.req.timeWindow);
    free(mod.req.name);
    free(mod.req.description);

    CHECK_INT(isRsvActive(NULL), 0);
    CHECK_INT(isRsvActive(ent), 0);
    RsvEnt_destroy(ent);
    CHECK(ent->name == NULL && ent->timeWindow == NULL);
    free(ent);
}

static void testDaysAndInstances(void)
{
    tmDay today;
    CHECK_INT(tmDay_getDayFromTime(NOW, &today), 0);
    CHECK(today.mday == 7 && today.wday == 3 && today.mon == 0 && today.year == 2026);
    qob_errno = 0;
    CHECK_INT(tmDay_getDayFromTime(NOW, NULL), -1);
    CHECK_INT(qob_errno, RSV_ERR_BAD_ARGUMENT);
    CHECK_INT(tmDay_earlierThan(&today, &today, 1), 1);
    CHECK_INT(tmDay_earlierThan(&today, &today, 0), 0);
    tmDay march1 = {1, 0, 2, 2026};
    tmDay feb28 = {28, 6, 1, 2026};
    CHECK_INT(tmDay_dayAfter(&march1, &feb28), 1);
    CHECK_INT(tmDay_dayAfter(&feb28, &march1), 0);

    time_t start = 0;
    time_t end = 0;
    RsvTimeWindow_getCurrentInstance("8:0-17:0", NULL, NOW, &start, &end);
    CHECK_INT(start, NOW - 2 * HOUR);
    CHECK_INT(end, NOW + 7 * HOUR);
    qob_errno = 0;
    RsvTimeWindow_getCurrentInstance("nodash", NULL, NOW, &start, &end);
    CHECK_INT(qob_errno, RSV_ERR_BAD_ARGUMENT);

    char *text = NULL;
    setCalendarTimeDuration(NOW, NOW + HOUR, &text);
    CHECK_STR(text, "Wed Jan  7 10:00:00 2026 - Wed Jan  7 11:00:00 2026");
    free(text);

    /* The date checker of the command side. */
    char *first = NULL;
    char *last = NULL;
    char *range = NULL;
    CHECK_INT(qob_getdisableddates("2026:1:10-2026:1:12", &first, &last, &range), 2);
    CHECK_STR(first, "Sat Jan 10 2026");
    CHECK_STR(last, "Mon Jan 12 2026");
    CHECK_STR(range, "2026:1:10-2026:1:12");
    free(first);
    free(last);
    free(range);
    CHECK_INT(qob_getdisableddates("25", &first, &last, &range), 1);
    CHECK_STR(first, "Sun Jan 25 2026");
    CHECK_STR(range, "2026:1:25-2026:1:25");
    free(first);
    free(last);
    free(range);
    CHECK_INT(qob_getdisableddates("2026:2:29", &first, &last, &range), -1);
    CHECK_INT(qob_errno, RSV_ERR_BAD_DATE);
    CHECK(first == NULL && last == NULL && range == NULL);

    char date[] = "1:9";
    tmDay day;
    CHECK_INT(fillInRsvDisableDurationDate(date, &day, 1, 1), 0);
    CHECK(day.mday == 9 && day.mon == 0 && day.year == 2026 && day.wday == 5);
    char past[] = "1:6";
    CHECK_INT(fillInRsvDisableDurationDate(past, &day, 1, 1), -1);
    CHECK_INT(qob_errno, RSV_ERR_DATE_IN_PAST);
    CHECK(createRsvDisableDuration("1:20-1:18", 0) == NULL);
    CHECK_INT(qob_errno, RSV_ERR_BAD_DATE);

    RsvDisableDuration *rec = createRsvDisableDuration("1:8-1:9", 1);
    CHECK(rec != NULL);
    if (!rec)
        return;
    text = NULL;
    setCalendarDayDuration(&rec->firstDay, &rec->lastDay, &text);
    CHECK_STR(text, "Thu Jan 8 2026 - Fri Jan 9 2026");
    free(text);

    /* A recurring entry with disabled days: 8-9, then 9 again, then 10. */
    RsvEnt *ent = RsvEnt_new(RSV_OPT_RECURRING, "bob", "8:0-17:0");
    CHECK(ent != NULL);
    if (!ent) {
        free(rec);
        return;
    }
    ent->rsvId = dupString("bob#9");
    CHECK_INT(RsvEnt_getDuration(ent), 9 * HOUR);
    CHECK_INT(RsvEnt_getLeftTime(ent), 7 * HOUR);
    CHECK_INT(addDurationToDisabledList(ent, rec), 0);
    CHECK_INT(addDurationToDisabledList(ent, createRsvDisableDuration("1:9", 1)), -1);
    CHECK_INT(qob_errno, RSV_ERR_DURATION_EXISTS);
    CHECK_INT(addDurationToDisabledList(ent, createRsvDisableDuration("1:10", 1)), 0);
    CHECK(ent->disabledDurations != NULL && ent->disabledDurations->numEnts == 1);
    if (ent->disabledDurations && ent->disabledDurations->numEnts == 1) {
        const RsvDisableDuration *merged = (const RsvDisableDuration *)ent->disabledDurations->forw;
        CHECK(merged->firstDay.mday == 8 && merged->lastDay.mday == 10);
    }

    const time_t jan11at8 = NOW + 3 * DAY + 22 * HOUR;
    RsvEnt_getNextInstance(ent, 0, &start, &end);
    CHECK_INT(start, NOW + 22 * HOUR);
    RsvEnt_getNextInstance(ent, 1, &start, &end);
    CHECK_INT(start, jan11at8);
    CHECK_INT(end, jan11at8 + 9 * HOUR);
    RsvEnt_getCurrentInstance(ent, 1, &start, &end);
    CHECK_INT(start, NOW - 2 * HOUR);
    RsvEnt_getCurrentInstanceAtTime(ent, 1, NOW + DAY + 2 * HOUR, &start, &end);
    CHECK_INT(start, jan11at8);
    RsvEnt_getCurrentInstanceAtTime(ent, 0, NOW + DAY + 2 * HOUR, &start, &end);
    CHECK_INT(start, NOW + 22 * HOUR);

    RsvEnt_setNextInstance(ent, jan11at8, jan11at8 + 9 * HOUR);
    CHECK_STR(ent->timeDuration, "Sun Jan 11 08:00:00 2026 - Sun Jan 11 17:00:00 2026");

    RsvDisableDuration *next = createNextDisableDuration(ent);
    CHECK(next != NULL && next->firstDay.mday == 11 && next->lastDay.mday == 11);
    free(next);

    RsvWeek thisWeek;
    RsvWeek nextWeek;
    RsvTime_toWeek(NOW, &thisWeek);
    RsvTime_toWeek(NOW + 4 * DAY, &nextWeek);
    CHECK(thisWeek.startDay == 4 && thisWeek.startMonth == 0 && thisWeek.startYear == 2026 && thisWeek.endDay == 10);
    int days[7] = {9, 9, 9, 9, 9, 9, 9};
    getDisabledDaysInWeek(&thisWeek, ent, days);
    CHECK(days[0] == 0 && days[3] == 0 && days[4] == 1 && days[5] == 1 && days[6] == 1);
    int before[7] = {9, 9, 9, 9, 9, 9, 9};
    getDisabledDaysInPreviousWeek(&nextWeek, ent, before);
    CHECK(memcmp(days, before, sizeof days) == 0);

    /* Pruning keeps the previous week, drops what is older. */
    HashTab entries;
    h_initTab_(&entries, 4);
    HashEnt *he = h_addEnt_(&entries, ent->rsvId, NULL);
    if (he)
        he->value = ent;
    RsvTimeTbl_cleanDisabledDurations(&entries);
    CHECK(ent->disabledDurations != NULL);
    clockNow = NOW + 18 * DAY; /* Sunday 25 January */
    RsvTimeTbl_cleanDisabledDurations(&entries);
    CHECK(ent->disabledDurations == NULL);
    clockNow = NOW;
    h_freeTab_(&entries, NULL);

    RsvEnt_destroy(ent);
    free(ent);
}

/* ------------------------------------------------------------------------ */
/* Planners, planner lists and weeks                                        */
/* ------------------------------------------------------------------------ */

static void testPlanners(void)
{
    ResPlanner *planner = ResPlanner_new("hostA", NULL);
    CHECK(planner != NULL);
    if (!planner)
        return;
    CHECK_STR(planner->plannerName, "Resource Weekly Planner for host <hostA>");
    CHECK(RsvWeek_equal(&planner->week, &rsvWeekRecur));

    ResPlanner_map(planner, "8:0-17:0", ResPlannerEnt_incr, 2, NULL);
    CHECK(planner->slots[0][47].reserved == 0 && planner->slots[0][48].reserved == 2);
    CHECK(planner->slots[6][101].reserved == 2 && planner->slots[6][102].reserved == 0);
    int most = 0;
    ResPlanner_map(planner, "0:0:0-0:0:0", ResPlannerEnt_getMaxRsv, (int64_t)(intptr_t)&most, NULL);
    CHECK_INT(most, 2);
    ResPlanner_map(planner, "8:0-17:0", ResPlannerEnt_decr, 2, NULL);
    most = 0;
    ResPlanner_map(planner, "0:0:0-0:0:0", ResPlannerEnt_getMaxRsv, (int64_t)(intptr_t)&most, NULL);
    CHECK_INT(most, 0);

    ResPlannerEnt cell = {0};
    CHECK_INT(ResPlannerEnt_incr(&cell, 3), 3);
    CHECK_INT(ResPlannerEnt_decr(&cell, 1), 1);
    CHECK_INT(cell.reserved, 2);
    int acc = 1;
    CHECK_INT(ResPlannerEnt_getMaxRsv(&cell, (int64_t)(intptr_t)&acc), 2);
    CHECK_INT(acc, 2);

    RsvWeek zero = rsvWeekRecur;
    CHECK(ResPlanner_equal(planner, &zero, 0) != 0);
    CHECK_INT(ResPlanner_isOutdated(planner, &zero, 0), 0);

    RsvWeek *current = Rsv_thisWeek();
    CHECK(current->startDay == 4 && current->startYear == 2026 && current->endWeekday == 6);
    CHECK_STR(RsvTime_toVktTimexpr(NOW), "3:10:0");
    CHECK_STR(RsvTime_toVktTimexpr(NOW + 3 * DAY + 14 * HOUR), "7:0:0");

    char w[64];
    char start[64];
    char end[64];
    window(NOW, NOW + 6 * DAY + 2 * HOUR, w, sizeof w); /* Wed 10:00 to the next Tue 12:00 */
    int numWeeks = 0;
    RsvWeek *weeks = RsvTimeWindow_getWeeks(w, &numWeeks);
    CHECK_INT(numWeeks, 2);
    if (weeks && numWeeks == 2) {
        CHECK(weeks[0].startDay == 4 && weeks[1].startDay == 11);
        char *overlap = RsvWeek_getOverlapTimeWindow(&weeks[0], w);
        CHECK_STR(overlap, "3:10:0-0:0:0");
        free(overlap);
        overlap = RsvWeek_getOverlapTimeWindow(&weeks[1], w);
        CHECK_STR(overlap, "0:0:0-2:12:0");
        free(overlap);
    }
    free(weeks);

    CHECK(RsvTimeWindow_toTimeRange("100-200", start, end) == end);
    CHECK_STR(start, "100");
    CHECK_STR(end, "200");
    RsvTimeWindow_toTimeRangeBounded("12345-678", start, end, 3);
    CHECK_STR(start, "12");
    CHECK_STR(end, "67");

    /* One host's planner list in a table of its own. */
    RsvTimeTbl *tbl = RsvTimeTbl_new(NULL);
    CHECK(tbl != NULL);
    if (!tbl) {
        ResPlanner_destroy(planner);
        return;
    }
    CHECK_STR(tbl->stateFile, "");
    CHECK_STR(tbl->idFile, "");
    List *list = RsvTimeTbl_getPlannerList(tbl, "hostA");
    CHECK(list != NULL && list->numEnts == 1);
    if (list) {
        ResPlannerList_map(list, tbl, "hostA", w, 0, ResPlannerEnt_incr, 1, 1, NULL);
        CHECK_INT(list->numEnts, 3);
        weeks = ResPlannerList_getWeeks(list, &numWeeks);
        CHECK_INT(numWeeks, 3);
        CHECK(weeks && RsvWeek_equal(&weeks[0], &rsvWeekRecur) && weeks[2].startDay == 11);
        free(weeks);
        most = 0;
        ResPlannerList_map(list, tbl, "hostA", window(NOW + 14 * DAY, NOW + 15 * DAY, w, sizeof w), 0,
                           ResPlannerEnt_getMaxRsv, (int64_t)(intptr_t)&most, 0, NULL);
        CHECK_INT(most, 0);
        CHECK_INT(list->numEnts, 3); /* the query left no planner behind */
        ResPlannerList_trimOutdatedPlanners(list);
        CHECK_INT(list->numEnts, 3);

        /* Byte copies of the list share the planner names: freePlanner
         * releases them as a hash table's value destructor. */
        HashTab copies;
        h_initTab_(&copies, 2);
        HashEnt *he = h_addEnt_(&copies, "hostA", NULL);
        if (he)
            he->value = listDup(list, (int)sizeof(ResPlanner));
        h_freeTab_(&copies, freePlanner);
        freePlanner(listDup(list, (int)sizeof(ResPlanner)));
        freePlanner(NULL);
        ResPlanner *bare = malloc(sizeof *bare);
        if (bare)
            memcpy(bare, list->forw, sizeof *bare);
        freePlanner_t(bare);
        CHECK_STR(((ResPlanner *)list->forw)->plannerName, "Resource Weekly Planner for host <hostA>");
    }

    RsvWeek week;
    RsvTime_toWeek(NOW, &week);
    ResPlanner *dated = ResPlanner_new("hostA", &week);
    CHECK(dated != NULL && RsvWeek_equal(&dated->week, current));
    ResPlanner_addRecurs(dated, tbl, "hostA"); /* no recurring reservation: nothing */
    CHECK(dated != NULL && dated->slots[3][60].reserved == 0);
    ResPlanner_destroy(dated);
    ResPlanner_destroy(planner);
    RsvTimeTbl_free(tbl);
}

/* ------------------------------------------------------------------------ */
/* Low-level calls on a table without files                                 */
/* ------------------------------------------------------------------------ */

static void testLowLevelCalls(void)
{
    char w[64];
    char w2[64];
    char w3[64];
    window(NOW + HOUR, NOW + 2 * HOUR, w, sizeof w);
    window(NOW + 5 * HOUR, NOW + 6 * HOUR, w2, sizeof w2);
    window(NOW + 2 * HOUR, NOW + 3 * HOUR, w3, sizeof w3);
    RsvTimeTbl *lab = RsvTimeTbl_new(NULL);
    CHECK(lab != NULL);
    if (!lab)
        return;

    ResAlloc *spare = ResAlloc_new(2);
    CHECK(spare != NULL && spare[1].hostName == NULL && spare[1].numSlots == 0);
    free(spare);

    /* Query, choose and book by hand, as RsvTimeTbl_addEntry does. The alias
     * "a" is replaced by hostA's official name (asking by alias is safe only
     * while nothing is booked under the official name). */
    RsvReq req;
    makeRequest(&req, 0, "lab", 2, 2, hostList("a", NULL), 1, w, NULL);
    ResAlloc *avail = NULL;
    CHECK_INT(RsvTimeTbl_getReservableAlloc(lab, &req, &avail, NULL), 2);
    CHECK(avail != NULL && avail[0].hostName == req.askedHosts[0]);
    CHECK_STR(req.askedHosts[0], "hostA");
    AllocElem *vec = NULL;
    CHECK_INT(Rsv_alloc(lab, 1, avail, &req, &vec, "just_enough"), 1);
    free(avail);
    CHECK(vec != NULL && strcmp(vec[0].hostName, "hostA") == 0 && vec[0].numSlots == 2);
    CHECK_INT(Rsv_getMaxAvailonHost(lab, "hostA", w, 0, NULL), 6);
    qob_errno = 0;
    CHECK_INT(RsvTimeTbl_getReservableAlloc(NULL, &req, &avail, NULL), -1);
    CHECK_INT(qob_errno, RSV_ERR_BAD_ARGUMENT);

    RsvEnt *ent = RsvEnt_new(0, "lab", w);
    CHECK(ent != NULL);
    if (!ent) {
        RsvEnt_freeAllocVector(&vec, 1);
        freeRequest(&req);
        RsvTimeTbl_free(lab);
        return;
    }
    ent->rsvId = dupString("lab#0");
    ent->numHosts = 1;
    ent->allocVector = vec;

    /* Move to w2: the old window is released, the new one booked. */
    CHECK_INT(Rsv_chkupdRsv4NewTimeWindow(lab, ent, w2, 1), 0);
    CHECK_INT(Rsv_getMaxAvailonHost(lab, "hostA", w, 0, NULL), 8);
    CHECK_INT(Rsv_getMaxAvailonHost(lab, "hostA", w2, 0, NULL), 6);
    RsvModReq mod;
    memset(&mod, 0, sizeof mod);
    mod.req.options = RSV_MOD_TIMEWINDOW;
    mod.req.timeWindow = w2;
    RsvEnt_updateWithMod(ent, &mod);
    CHECK_STR(ent->timeWindow, w2);
    Rsv_dealloc(lab, ent);
    CHECK_INT(Rsv_getMaxAvailonHost(lab, "hostA", w2, 0, NULL), 8);

    /* Restore books it again and records it. */
    RsvTimeTbl_restoreEntry(lab, ent);
    CHECK(RsvTimeTbl_getEntry(lab, "lab#0") == ent);
    CHECK_INT(Rsv_getMaxAvailonHost(lab, "hostA", w2, 0, NULL), 6);

    /* Grow by hostB, then by one more slot on hostB, then shrink by one. */
    char labId[] = "lab#0";
    memset(&mod, 0, sizeof mod);
    mod.rsvId = labId;
    mod.req.askedHosts = hostList("hostB", NULL);
    mod.req.numAskedHosts = 1;
    mod.req.minNumProcs = 1;
    mod.req.maxNumProcs = 1;
    mod.req.timeWindow = ent->timeWindow;
    CHECK_INT(RsvTimeTbl_modEntrywithAddHosts(lab, &mod), 0);
    CHECK_INT(ent->numHosts, 2);
    ResAlloc *offer = ResAlloc_new(1);
    char hostBName[] = "hostB";
    int size = -1;
    if (offer) {
        offer[0].hostName = hostBName;
        offer[0].numSlots = 1;
        size = Rsv_reallocwithAddHosts(lab, 1, offer, &mod, ent, "just_enough");
        free(offer);
    }
    CHECK_INT(size, 2);
    if (size > 0)
        ent->numHosts = size;
    CHECK_INT(Rsv_getNumSlotsReserved(ent), 4);
    CHECK_INT(Rsv_getMaxAvailonHost(lab, "hostB", w2, 0, NULL), 2);
    mod.req.minNumProcs = 1;
    mod.req.maxNumProcs = 0;
    CHECK_INT(RsvTimeTbl_modEntryWithRmHosts(lab, &mod, NULL, RSV_RM_NUMPROCS), 1);
    CHECK_INT(Rsv_getNumSlotsReserved(ent), 3);
    mod.req.minNumProcs = 10;
    qob_errno = 0;
    CHECK_INT(RsvTimeTbl_modEntryWithRmHosts(lab, &mod, NULL, RSV_RM_NUMPROCS), -1);
    CHECK_INT(qob_errno, RSV_ERR_NOT_ENOUGH_SLOTS);
    CHECK_INT(Rsv_getNumSlotsReserved(ent), 3);
    freeTexts(mod.req.askedHosts, 1);
    free(mod.req.askedHosts);

    /* Replace the entry by an equal one read back from its record. */
    char *record = RsvEnt_ToString(ent);
    RsvEnt *twin = record ? RsvEnt_newByString(record) : NULL;
    free(record);
    CHECK(twin != NULL);
    if (twin) {
        CHECK_INT(RsvTimeTbl_replaceEntry(lab, "lab#0", twin), 0);
        CHECK(RsvTimeTbl_getEntry(lab, "lab#0") == twin);
        ent = twin;
        CHECK_INT(Rsv_getNumSlotsReserved(ent), 3);
    }
    CHECK_INT(RsvTimeTbl_replaceEntry(lab, "nope#0", ent), -1);

    /* With RSV_RM_HOSTS a host whose status carries RSV_HOST_STATUS_FLAGGED
     * (and whose attr lacks RSV_HOST_ATTR_MARKED) goes even when not named;
     * hostB, unflagged and not named, stays. */
    hostA.status = RSV_HOST_STATUS_FLAGGED;
    memset(&mod, 0, sizeof mod);
    mod.rsvId = labId;
    CHECK_INT(RsvTimeTbl_modEntryWithRmHosts(lab, &mod, NULL, RSV_RM_HOSTS), 2);
    hostA.status = 0u;
    CHECK_INT(ent->numHosts, 1);
    CHECK_STR(ent->allocVector[0].hostName, "hostB");
    CHECK_INT(Rsv_getMaxAvailonHost(lab, "hostA", w2, 0, NULL), 8);

    RsvDisableDuration *rec = createRsvDisableDuration("1:20", 1);
    qob_errno = 0;
    CHECK_INT(RsvTimeTbl_addDurationToDisabledList(lab, ent, rec), -1); /* one-off: refused */
    CHECK_INT(qob_errno, RSV_ERR_BAD_ARGUMENT);
    free(rec);

    /* A recurring entry on hostA with Thursday 8 January disabled. */
    RsvEnt *daily = RsvEnt_new(RSV_OPT_RECURRING, "lab", "8:0-17:0");
    AllocElem *one = calloc(1, sizeof *one);
    CHECK(daily != NULL && one != NULL);
    if (daily && one) {
        daily->rsvId = dupString("lab#1");
        one->hostName = dupString("hostA");
        one->numSlots = 1;
        daily->numHosts = 1;
        daily->allocVector = one;
        RsvTimeTbl_restoreEntry(lab, daily);
        CHECK(RsvTimeTbl_getEntry(lab, "lab#1") == daily);
        CHECK_INT(RsvTimeTbl_addDurationToDisabledList(lab, daily, createRsvDisableDuration("1:8", 1)), 0);
        CHECK_INT(Rsv_getMaxAvailonHost(lab, "hostA", w3, 0, NULL), 7);
        char thursday[64];
        CHECK_INT(Rsv_getMaxAvailonHost(lab, "hostA", window(NOW + 23 * HOUR, NOW + DAY, thursday, sizeof thursday),
                                        0, NULL),
                  8);
    } else {
        free(daily);
        free(one);
    }

    /* A table without files logs its writes. */
    clearLogs();
    RsvTimeTbl_logStat(lab);
    CHECK(strstr(allLogs, "failed to open") != NULL);
    clearLogs();
    RsvTimeTbl_logId(lab);
    CHECK(strstr(lastLog, "failed to open") != NULL);

    RsvTimeTbl_free(lab);
    freeRequest(&req);
}

/* ------------------------------------------------------------------------ */
/* The daemon's table: add, look up, report, activate, change, remove       */
/* ------------------------------------------------------------------------ */

typedef struct Paths {
    char dir[256];
    char state[300];
    char ids[300];
} Paths;

static void testTable(const Paths *p)
{
    char w[64];
    char w2[64];
    char expect[256];
    RsvTimeTbl *tbl = RsvTimeTbl_new(p->state);
    CHECK(tbl != NULL);
    if (!tbl)
        return;
    CHECK_STR(tbl->stateFile, p->state);
    CHECK_STR(tbl->idFile, p->ids);
    int rejected = -1;
    CHECK_INT(RsvTimeTbl_load(tbl, &rejected), 0); /* first start: no state file */
    CHECK_INT(rejected, 0);

    /* alice asks for 2..6 slots on hostA or hostB: each host offers at most
     * 2, and hostA alone is enough. */
    window(NOW + HOUR, NOW + 2 * HOUR, w, sizeof w);
    RsvReq req;
    makeRequest(&req, 0, "alice", 2, 6, hostList("hostA", "hostB"), 2, w, "first");
    snprintf(expect, sizeof expect, "options(0) name(alice) procRange(2, 6), askedHosts(2) timeWindow(%s)", w);
    CHECK_STR(RsvReq_ToString(&req), expect);
    char *id = RsvTimeTbl_addEntry(tbl, &req);
    CHECK_STR(id, "alice#0");
    free(id);
    CHECK_STR(req.askedHosts[0], "hostA");
    RsvEnt *ent = RsvTimeTbl_getEntry(tbl, "alice#0");
    CHECK(ent != NULL);
    if (!ent) {
        freeRequest(&req);
        RsvTimeTbl_free(tbl);
        return;
    }
    CHECK_INT(ent->numHosts, 1);
    CHECK_STR(ent->allocVector[0].hostName, "hostA");
    CHECK_INT(ent->allocVector[0].numSlots, 2);
    CHECK_STR(ent->description, "first");
    CHECK_INT(ent->state, 0);
    CHECK_INT(Rsv_getNumSlotsReserved(ent), 2);
    CHECK_INT(Rsv_getMaxAvailonHost(tbl, "hostA", w, 0, NULL), 6);
    CHECK_INT(Rsv_getMaxAvailonHost(tbl, "hostB", w, 0, NULL), 4);
    CHECK_INT(Rsv_getMaxAvailonHost(tbl, "nohost", w, 0, NULL), 0);

    char *state = readFile(p->state);
    CHECK(state != NULL && countLines(state) == 1 && strncmp(state, "9.11 ", 5) == 0);
    free(state);
    char *ids = readFile(p->ids);
    CHECK_STR(ids, "9.11\n1\nalice 0 \n ");
    free(ids);

    /* The record reads back into an equal entry. */
    char *record = RsvEnt_ToString(ent);
    RsvEnt *back = record ? RsvEnt_newByString(record) : NULL;
    CHECK(back != NULL);
    if (back) {
        CHECK_STR(back->rsvId, "alice#0");
        CHECK_STR(back->description, "first");
        char *again = RsvEnt_ToString(back);
        CHECK(again && record && strcmp(again, record) == 0);
        free(again);
        RsvEnt_destroy(back);
        free(back);
    }
    free(record);
    CHECK(RsvEnt_newByString("9.11 nonsense") == NULL);

    AllocElem *copy = RsvEnt_DupAllocVector(ent);
    CHECK(copy != NULL && copy[0].hostName != ent->allocVector[0].hostName);
    CHECK(copy != NULL && strcmp(copy[0].hostName, "hostA") == 0 && copy[0].numSlots == 2);
    RsvEnt_freeAllocVector(&copy, 1);
    CHECK(copy == NULL);

    /* Refusals change nothing. */
    RsvReq refused;
    makeRequest(&refused, 0, "alice", 1, 1, hostList("nohost", NULL), 1, w, NULL);
    qob_errno = 0;
    CHECK(RsvTimeTbl_addEntry(tbl, &refused) == NULL);
    CHECK_INT(qob_errno, RSV_ERR_NOT_ENOUGH_SLOTS);
    freeRequest(&refused);
    CHECK_INT(RsvTimeTbl_removeEntry(tbl, "nobody#1"), RSV_ERR_NO_RSV);
    CHECK_INT(h_numEnts_(&tbl->entries), 1);

    /* The per-owner limit is 3. */
    char *more[2] = {NULL, NULL};
    for (int i = 0; i < 2; ++i) {
        RsvReq r;
        makeRequest(&r, 0, "alice", 2, 2, hostList("hostA", NULL), 1, w, NULL);
        more[i] = RsvTimeTbl_addEntry(tbl, &r);
        freeRequest(&r);
    }
    CHECK_STR(more[0], "alice#1");
    CHECK_STR(more[1], "alice#2");
    RsvReq over;
    makeRequest(&over, 0, "alice", 2, 2, hostList("hostA", NULL), 1, w, NULL);
    clearLogs();
    CHECK(RsvTimeTbl_addEntry(tbl, &over) == NULL);
    CHECK_INT(qob_errno, RSV_ERR_NO_RSV_ID);
    CHECK(strstr(allLogs, "Too many reservations for <alice>") != NULL);
    freeRequest(&over);
    const char *bogus[2] = {"alice#1", "alice#7"};
    int failedIndex = -2;
    CHECK_INT(RsvTimeTbl_removeEntries(tbl, bogus, 2, &failedIndex), RSV_ERR_NO_RSV);
    CHECK_INT(failedIndex, 1);
    CHECK(RsvTimeTbl_getEntry(tbl, "alice#1") != NULL);
    const char *both[2] = {more[0], more[1]};
    CHECK_INT(RsvTimeTbl_removeEntries(tbl, both, 2, &failedIndex), RSV_OK);
    CHECK_INT(failedIndex, -1);
    CHECK_INT(h_numEnts_(&tbl->entries), 1);
    free(more[0]);
    free(more[1]);

    /* A job of the reservation runs on hostA; the reply counts it there. */
    ent->jobList = listCreate("jobs");
    RsvJobEnt *job = calloc(1, sizeof *job);
    if (ent->jobList && job) {
        job->jobId = 42;
        listInsertEntryAtBack(ent->jobList, &job->links);
        ent->numJobs = 1;
        int64_t wanted = 42;
        CHECK(listSearchEntry(ent->jobList, &wanted, jobListRsvId_equal, 0) == &job->links);
        CHECK_INT(jobListRsvId_equal(job, &wanted, 0), 1);
        wanted = 43;
        CHECK(listSearchEntry(ent->jobList, &wanted, jobListRsvId_equal, 0) == NULL);
    } else {
        free(job);
        CHECK(!"no memory for the job list");
    }

    RsvInfoReply reply;
    memset(&reply, 0, sizeof reply);
    CHECK_INT(RsvTimeTbl_ToRsvInfoReply(tbl, &reply), RSV_OK);
    CHECK_INT(reply.numReservations, 1);
    if (reply.rsvInfo && reply.numReservations == 1) {
        RsvInfoEnt *info = &reply.rsvInfo[0];
        CHECK_STR(info->rsvId, "alice#0");
        CHECK_STR(info->name, "alice");
        CHECK_STR(info->timeWindow, w);
        CHECK_STR(info->description, "first");
        CHECK_STR(info->creator, "");
        CHECK_INT(info->numHosts, 1);
        CHECK(info->hostInfo != NULL && strcmp(info->hostInfo[0].hostName, "hostA") == 0);
        CHECK(info->hostInfo != NULL && info->hostInfo[0].maxSlots == 8 && info->hostInfo[0].numCpus == 8);
        CHECK(info->hostInfo != NULL && info->hostInfo[0].numSlots == 2 && info->hostInfo[0].numJobsOnHost == 1);
        CHECK_INT(info->numJobs, 1);
        CHECK(info->jobIds != NULL && info->jobIds[0] == 42);
        CHECK(info->jobStatus != NULL && info->jobStatus[0] == 0x4);
        CHECK(info->disabledDurations == NULL);
        RsvInfoEnt_destroy(info);
        CHECK(info->rsvId == NULL && info->hostInfo == NULL && info->creator == NULL);
    }
    RsvInfoReply_destroy(&reply);
    CHECK(reply.rsvInfo == NULL);
    CHECK_INT(RsvTimeTbl_ToRsvInfoReply(NULL, &reply), RSV_ERR_BAD_ARGUMENT);

    /* The same reply packed in one block, released by one call. */
    CHECK_INT(RsvTimeTbl_ToRsvInfoReplyPacked(tbl, &reply), RSV_OK);
    CHECK_INT(reply.numReservations, 1);
    if (reply.rsvInfo && reply.numReservations == 1) {
        RsvInfoEnt *info = &reply.rsvInfo[0];
        CHECK_STR(info->rsvId, "alice#0");
        CHECK_STR(info->description, "first");
        CHECK(info->hostInfo != NULL && strcmp(info->hostInfo[0].hostName, "hostA") == 0);
        CHECK(info->jobIds != NULL && info->jobIds[0] == 42);
    }
    RsvInfoReply_destroyPacked(&reply);
    CHECK(reply.rsvInfo == NULL);
    CHECK_INT(RsvTimeTbl_ToRsvInfoReplyPacked(NULL, &reply), RSV_ERR_BAD_ARGUMENT);

    /* One reservation's element alone. */
    CHECK_INT(RsvTimeTbl_ToRsvInfoReplyOf(tbl, "alice#0", &reply), RSV_OK);
    CHECK_INT(reply.numReservations, 1);
    if (reply.rsvInfo && reply.numReservations == 1)
        CHECK_STR(reply.rsvInfo[0].description, "first");
    RsvInfoReply_destroyPacked(&reply);
    CHECK_INT(RsvTimeTbl_ToRsvInfoReplyOf(tbl, "nobody#9", &reply), RSV_ERR_NO_RSV);

    /* Activation is stamped, written, and measured by the finish record. */
    setRsvActive(tbl, ent);
    CHECK_INT(isRsvActive(ent), 1);
    CHECK_INT(ent->activeTime, NOW);
    state = readFile(p->state);
    snprintf(expect, sizeof expect, " %lld\n", (long long)NOW);
    CHECK(state != NULL && strstr(state, expect) != NULL);
    free(state);
    RsvFinishLog fin;
    memset(&fin, 0, sizeof fin);
    clockNow = NOW + 600;
    CHECK_INT(fillRsvFinishLog(&fin, tbl, "alice#0"), 0);
    CHECK_INT(fin.activeDuration, 600);
    CHECK_INT(fin.createTime, NOW);
    CHECK_STR(fin.rsvId, "alice#0");
    CHECK_STR(fin.name, "alice");
    CHECK_STR(fin.timeWindow, w);
    CHECK_INT(fin.numHosts, 1);
    CHECK(fin.hosts != NULL && strcmp(fin.hosts[0].hostName, "hostA") == 0 && fin.hosts[0].numSlots == 2);
    freeFinishLog(&fin);
    clockNow = NOW + 3 * HOUR; /* after the instance's end */
    CHECK_INT(fillRsvFinishLog(&fin, tbl, "alice#0"), 0);
    CHECK_INT(fin.activeDuration, 2 * HOUR);
    freeFinishLog(&fin);
    clockNow = NOW;
    CHECK_INT(fillRsvFinishLog(&fin, tbl, "nobody#0"), -1);
    setRsvInactive(tbl, ent);
    CHECK_INT(ent->state, RSV_STATE_INACTIVE);
    CHECK_INT(ent->activeTime, 0);
    CHECK_INT(RsvTimeTbl_activate(tbl, NULL), RSV_ERR_BAD_ARGUMENT);
    CHECK_INT(RsvTimeTbl_deactivate(tbl, ent), RSV_OK);
    {
        /* Several at once: one change. */
        RsvEnt *several[1];
        several[0] = ent;
        CHECK_INT(RsvTimeTbl_activateEntries(tbl, several, 1), RSV_OK);
        CHECK_INT(ent->state, RSV_STATE_ACTIVE);
        CHECK_INT(ent->activeTime, NOW);
        CHECK_INT(RsvTimeTbl_activateEntries(tbl, NULL, 1), RSV_ERR_BAD_ARGUMENT);
        CHECK_INT(RsvTimeTbl_deactivate(tbl, ent), RSV_OK);
    }

    setJobRsvInActive(42, 5);
    CHECK_INT(job42.rsvFlags, 0x2);
    setJobRsvInActive(42, 0);
    CHECK_INT(job42.rsvFlags, 0x3);
    setJobRsvInActive(7, 1);

    /* Combined changes. */
    CHECK_INT(RsvTimeTbl_setDescription(tbl, "alice#0", "second"), 0);
    CHECK_STR(ent->description, "second");
    state = readFile(p->state);
    CHECK(state != NULL && strstr(state, " \"second\" ") != NULL);
    free(state);
    CHECK_INT(RsvTimeTbl_setDescription(tbl, "nobody#0", "x"), -1);
    CHECK_INT(qob_errno, RSV_ERR_NO_SUCH_RSV);

    RsvModReq mod;
    memset(&mod, 0, sizeof mod);
    mod.rsvId = dupString("alice#0");
    mod.req.timeWindow = dupString("null&+30");
    CHECK_INT(RsvTimeTbl_modifyTimeWindow(tbl, &mod), RSV_OK);
    window(NOW + HOUR, NOW + 2 * HOUR + 1800, w2, sizeof w2);
    CHECK_STR(ent->timeWindow, w2);
    CHECK_STR(mod.req.timeWindow, w2);
    CHECK_INT(ent->duration, HOUR + 1800);
    free(mod.req.timeWindow);
    mod.req.timeWindow = dupString("-600&null");
    CHECK_INT(RsvTimeTbl_modifyTimeWindow(tbl, &mod), RSV_ERR_START_IN_PAST);
    CHECK_INT(qob_errno, RSV_ERR_START_IN_PAST);
    CHECK_STR(ent->timeWindow, w2);
    CHECK_STR(mod.req.timeWindow, "-600&null");
    free(mod.req.timeWindow);
    mod.req.timeWindow = NULL;

    mod.req.askedHosts = hostList("hostB", NULL);
    mod.req.numAskedHosts = 1;
    mod.req.minNumProcs = 1;
    mod.req.maxNumProcs = 1;
    CHECK_INT(RsvTimeTbl_addHosts(tbl, &mod), 0);
    CHECK_STR(mod.req.askedHosts[0], "hostB");
    CHECK_INT(ent->numHosts, 2);
    CHECK_INT(Rsv_getNumSlotsReserved(ent), 3);

    HashTab named;
    h_initTab_(&named, 2);
    HashEnt *mark = h_addEnt_(&named, "hostB", NULL);
    int *markValue = calloc(1, sizeof *markValue);
    if (mark)
        mark->value = markValue;
    CHECK_INT(Rsv_rmHosts_checkHostsInRsv(&named), -1); /* not marked yet */
    CHECK_INT(RsvTimeTbl_removeHosts(tbl, &mod, &named, RSV_RM_HOSTS), 1);
    CHECK(markValue != NULL && *markValue == 2);
    CHECK_INT(Rsv_rmHosts_checkHostsInRsv(&named), 0);
    CHECK_INT(ent->numHosts, 1);
    h_freeTab_(&named, free);
    mod.req.minNumProcs = 1;
    mod.req.maxNumProcs = 0;
    CHECK_INT(RsvTimeTbl_removeHosts(tbl, &mod, NULL, RSV_RM_NUMPROCS), 1);
    CHECK_INT(Rsv_getNumSlotsReserved(ent), 1);
    h_initTab_(&named, 2);
    mark = h_addEnt_(&named, "hostA", NULL);
    if (mark)
        mark->value = calloc(1, sizeof(int));
    CHECK_INT(RsvTimeTbl_removeHosts(tbl, &mod, &named, RSV_RM_HOSTS), -1);
    CHECK_INT(qob_errno, RSV_ERR_NOTHING_LEFT);
    CHECK_INT(ent->numHosts, 1);
    h_freeTab_(&named, free);
    CHECK_INT(RsvTimeTbl_disableDays(tbl, "alice#0", "1:20"), -1);
    CHECK_INT(qob_errno, RSV_ERR_BAD_ARGUMENT);
    free(mod.rsvId);
    freeTexts(mod.req.askedHosts, 1);
    free(mod.req.askedHosts);

    /* bob's daily reservation on hostB, off on 8 and 9 January. */
    RsvReq daily;
    makeRequest(&daily, RSV_OPT_RECURRING, "bob", 1, 1, hostList("hostB", NULL), 1, "8:0-17:0", NULL);
    id = RsvTimeTbl_addEntry(tbl, &daily);
    CHECK_STR(id, "bob#0");
    free(id);
    freeRequest(&daily);
    CHECK_INT(RsvTimeTbl_disableDays(tbl, "bob#0", "1:8-1:9"), 0);
    RsvEnt *bob = RsvTimeTbl_getEntry(tbl, "bob#0");
    CHECK(bob != NULL && bob->disabledDurations != NULL && bob->disabledDurations->numEnts == 1);
    CHECK_INT(RsvTimeTbl_disableDays(tbl, "bob#0", "1:9"), -1);
    CHECK_INT(qob_errno, RSV_ERR_DURATION_EXISTS);
    CHECK_INT(RsvTimeTbl_disableDays(tbl, "bob#0", "1:2"), -1);
    CHECK_INT(qob_errno, RSV_ERR_DATE_IN_PAST);
    {
        /* On again on 9 January, off on 12 and 13, in two calls of lists. */
        const char *on[] = {"1:9"};
        const char *off[] = {"1:12", "1:13"};
        const char *notOff[] = {"1:10"};
        int failed = 7;
        CHECK_INT(RsvTimeTbl_enableDayList(tbl, "bob#0", on, 1, &failed), 0);
        CHECK_INT(failed, -1);
        CHECK(bob->disabledDurations != NULL && bob->disabledDurations->numEnts == 1);
        CHECK_INT(RsvTimeTbl_enableDayList(tbl, "bob#0", notOff, 1, &failed), -1);
        CHECK_INT(qob_errno, RSV_ERR_NOT_DISABLED);
        CHECK_INT(failed, 0);
        CHECK_INT(RsvTimeTbl_disableDayList(tbl, "bob#0", off, 2, &failed), 0);
        CHECK(bob->disabledDurations != NULL && bob->disabledDurations->numEnts == 2);
        CHECK_INT(RsvTimeTbl_enableDayList(tbl, "bob#0", off, 2, NULL), 0);
        CHECK_INT(RsvTimeTbl_disableDays(tbl, "bob#0", "1:9"), 0);
        CHECK(bob->disabledDurations != NULL && bob->disabledDurations->numEnts == 1);
    }
    CHECK_INT(Rsv_getMaxAvailonHost(tbl, "hostB", window(NOW + 2 * HOUR, NOW + 3 * HOUR, w2, sizeof w2), 0, NULL), 3);
    CHECK_INT(Rsv_getMaxAvailonHost(tbl, "hostB", window(NOW + 23 * HOUR, NOW + DAY, w2, sizeof w2), 0, NULL), 4);
    CHECK_INT(Rsv_getMaxAvailonHost(tbl, "hostB", "8:0-9:0", 1, NULL), 3);

    /* The daemon's name table. */
    RsvTimeTbl_addNameEntry(&nameTable, "n#1");
    HashEnt *nameEnt = h_getEnt_(&nameTable, "n#1");
    CHECK(nameEnt != NULL && nameEnt->value != NULL &&
          (((RsvEnt *)nameEnt->value)->options & RSV_OPT_NAME_ONLY) != 0);
    CHECK_INT(RsvTimeTbl_removeNameEntry(&nameTable, "n#2"), RSV_ERR_NO_RSV);
    CHECK_INT(RsvTimeTbl_removeNameEntry(&nameTable, "n#1"), 0);
    CHECK(h_getEnt_(&nameTable, "n#1") == NULL);

    /* A set of official host names. */
    HashTab *set = calloc(1, sizeof *set);
    if (set) {
        h_initTab_(set, 4);
        CHECK_INT(RsvMod_aHostInTab(&set, "a"), 0);
        CHECK_INT(RsvMod_aHostInTab(&set, "hostA"), 0);
        CHECK_INT(h_numEnts_(set), 1);
        HashEnt *member = h_getEnt_(set, "hostA");
        CHECK(member != NULL && member->value != NULL && *(int *)member->value == 1);
        CHECK_INT(RsvMod_aHostInTab(&set, "nohost"), -1);
        CHECK_INT(qob_errno, RSV_ERR_BAD_HOST);
        h_freeTab_(set, free);
        free(set);
    }

    /* Checks after a reconfiguration. */
    clearLogs();
    RsvTimeTbl_checkHost(tbl, "hostA");
    CHECK_INT(logLines, 0);
    hostA.maxSlots = 0;
    RsvTimeTbl_checkHost(tbl, "hostA");
    CHECK(strstr(lastLog, "has been over-reserved") != NULL);
    hostA.maxSlots = 8;
    clearLogs();
    hostBLost = 1;
    RsvTimeTbl_checkEntries(tbl);
    CHECK(strstr(allLogs, "host <hostB> reserved by reservation <bob#0>") != NULL);
    hostBLost = 0;

    /* A trial copy of bob's part of the table. */
    RsvTimeTbl *tmp = RsvTimeTbl_new(NULL);
    if (tmp && bob) {
        CHECK_INT(Rsv_dupTimeTbl4CurrRsv(tbl, bob, tmp), 0);
        CHECK_INT(h_numEnts_(&tmp->entries), 1);
        CHECK(h_getEnt_(&tmp->plannerLists, "hostB") != NULL);
        CHECK_INT(Rsv_dupTimeTbl4CurrRsv(tbl, bob, tmp), -1);
    }
    RsvTimeTbl_freeTmpTable(tmp);

    /* Identifiers and the id file. */
    RsvReq dave;
    memset(&dave, 0, sizeof dave);
    dave.name = dupString("dave");
    char *made[5];
    made[0] = RsvId_new(tbl, &dave);
    made[1] = RsvId_new(tbl, &dave);
    RsvId_setCur("dave#7");
    made[2] = RsvId_new(tbl, &dave); /* 8 wraps to 2 at the limit 3 */
    dave.options = RSV_OPT_NAME_ONLY;
    dave.rsvId = dupString("dave@cluster");
    made[3] = RsvId_new(tbl, &dave);
    dave.options = RSV_OPT_SYSTEM;
    made[4] = RsvId_new(tbl, &dave);
    CHECK_STR(made[0], "dave#0");
    CHECK_STR(made[1], "dave#1");
    CHECK_STR(made[2], "dave#2");
    CHECK_STR(made[3], "dave@cluster");
    CHECK_STR(made[4], "system#1");
    freeTexts(made, 5);
    freeRequest(&dave);
    RsvTimeTbl_logId(tbl);
    ids = readFile(p->ids);
    CHECK_STR(ids, "9.11\n3\nalice 2 \n bob 0 \n dave 1 \n ");
    free(ids);
    RsvId_setCur("dave#0");
    initRsvIdTbl(tbl->idFile);
    dave.name = dupString("dave");
    made[0] = RsvId_new(tbl, &dave); /* the file said 1 */
    CHECK_STR(made[0], "dave#2");
    free(made[0]);
    freeRequest(&dave);
    RsvTimeTbl_logStat(tbl);
    state = readFile(p->state);
    CHECK(state != NULL && countLines(state) == 2);
    free(state);

    /* Durable saving. */
    CHECK_INT(RsvTimeTbl_isDurable(tbl), 0);
    CHECK_INT(RsvTimeTbl_setDurable(tbl, 1), 0);
    CHECK_INT(RsvTimeTbl_isDurable(tbl), 1);
    CHECK_INT(RsvTimeTbl_save(tbl), RSV_OK);
    const char *file = "?";
    const char *step = "?";
    CHECK_INT(RsvTimeTbl_lastSaveError(tbl, &file, &step), 0);
    CHECK_STR(file, "");
    CHECK_STR(step, "");
    /* A directory where the id file's temporary file goes makes the save
     * fail: the change is undone and both files stay as they were. */
    char blocker[320];
    snprintf(blocker, sizeof blocker, "%s.tmp", p->ids);
    CHECK_INT(mkdir(blocker, 0700), 0);
    char *stateBefore = readFile(p->state);
    char *idsBefore = readFile(p->ids);
    CHECK_INT(RsvTimeTbl_setDescription(tbl, "alice#0", "third"), -1);
    CHECK_INT(qob_errno, RSV_ERR_NOT_SAVED);
    CHECK_STR(ent->description, "second");
    CHECK_INT(RsvTimeTbl_lastSaveError(tbl, &file, &step), EISDIR);
    CHECK_STR(file, p->ids);
    CHECK_STR(step, "open");
    state = readFile(p->state);
    ids = readFile(p->ids);
    CHECK(state != NULL && stateBefore != NULL && strcmp(state, stateBefore) == 0);
    CHECK(ids != NULL && idsBefore != NULL && strcmp(ids, idsBefore) == 0);
    free(state);
    free(ids);
    free(stateBefore);
    free(idsBefore);
    CHECK_INT(rmdir(blocker), 0);
    CHECK_INT(RsvTimeTbl_setDescription(tbl, "alice#0", "third"), 0);
    CHECK_STR(ent->description, "third");
    CHECK_INT(RsvTimeTbl_lastSaveError(tbl, NULL, NULL), 0);
    CHECK_INT(RsvTimeTbl_setDurable(tbl, 0), 1);

    RsvTimeTbl *nowhere = RsvTimeTbl_new("/nonexistent/rsv.state");
    CHECK(nowhere != NULL && strcmp(nowhere->idFile, "/nonexistent/rsv.ids") == 0);
    if (nowhere) {
        CHECK_INT(RsvTimeTbl_save(nowhere), RSV_ERR_NOT_SAVED);
        CHECK_INT(qob_errno, RSV_ERR_NOT_SAVED);
        CHECK_INT(RsvTimeTbl_lastSaveError(nowhere, &file, &step), ENOENT);
        CHECK_STR(step, "open");
    }
    RsvTimeTbl_free(nowhere);
    CHECK_INT(RsvTimeTbl_save(NULL), RSV_ERR_BAD_ARGUMENT);

    int problems = 0;
    CHECK_INT(RsvTimeTbl_verify(tbl, countProblem, &problems), 0);
    CHECK_INT(problems, 0);
    CHECK_INT(RsvTimeTbl_verify(NULL, NULL, NULL), -1);

    /* Out of memory: nothing changes. */
    int entriesBefore = h_numEnts_(&tbl->entries);
    stateBefore = readFile(p->state);
    RsvReq hungry;
    makeRequest(&hungry, 0, "erin", 1, 1, hostList("hostA", NULL), 1, w, NULL);
    failAllocations = 1;
    qob_errno = 0;
    CHECK(RsvTimeTbl_addEntry(tbl, &hungry) == NULL);
    failAllocations = 0;
    CHECK_INT(qob_errno, RSV_ERR_NO_MEMORY);
    CHECK_INT(h_numEnts_(&tbl->entries), entriesBefore);
    state = readFile(p->state);
    CHECK(state != NULL && stateBefore != NULL && strcmp(state, stateBefore) == 0);
    free(state);
    free(stateBefore);
    freeRequest(&hungry);

    /* Remove alice; bob alone comes back at the next start. */
    CHECK_INT(RsvTimeTbl_removeEntry(tbl, "alice#0"), RSV_OK);
    CHECK(RsvTimeTbl_getEntry(tbl, "alice#0") == NULL);
    state = readFile(p->state);
    CHECK(state != NULL && countLines(state) == 1 && strstr(state, " bob#0 bob 8:0-17:0 ") != NULL);
    free(state);
    freeRequest(&req);
    RsvTimeTbl_free(tbl);

    RsvId_clearTbl();
    RsvTimeTbl *restarted = RsvTimeTbl_new(p->state);
    CHECK(restarted != NULL);
    if (!restarted)
        return;
    CHECK_INT(RsvTimeTbl_load(restarted, &rejected), 1);
    CHECK_INT(rejected, 0);
    bob = RsvTimeTbl_getEntry(restarted, "bob#0");
    CHECK(bob != NULL && bob->disabledDurations != NULL && bob->disabledDurations->numEnts == 1);
    CHECK_INT(Rsv_getMaxAvailonHost(restarted, "hostB", "8:0-9:0", 1, NULL), 3);

    /* The queries for front ends: bob's slot on hostB, off on Thursday 8
     * January, read from a planner of this week that the table never gets. */
    int numLists = h_numEnts_(&restarted->plannerLists);
    int cells[RSV_PLANNER_DAYS][RSV_PLANNER_SLOTS_PER_DAY];
    RsvWeek thisWeek;
    RsvTime_toWeek((time_t)1767787200, &thisWeek); /* Wed 2026-01-07 12:00 */
    CHECK_INT(RsvTimeTbl_hostWeekCells(restarted, "hostB", &thisWeek, cells), 0);
    CHECK_INT(cells[3][8 * 6], 1);
    CHECK_INT(cells[4][8 * 6], 0);
    RsvCell at;
    CHECK_INT(RsvTimeTbl_peakBooked(restarted, "hostB", &thisWeek, &at), 1);
    CHECK_INT(at.day, 0);
    CHECK_INT(at.slot, 8 * 6);
    CHECK_INT(RsvTimeTbl_peakBooked(restarted, "hostB", NULL, NULL), 1);
    RsvWeek *plannerWeeks = NULL;
    CHECK_INT(RsvTimeTbl_plannerWeeks(restarted, "hostB", &plannerWeeks), 1);
    CHECK(plannerWeeks != NULL && RsvWeek_equal(&plannerWeeks[0], &rsvWeekRecur));
    free(plannerWeeks);
    char wedHour[64];
    char thuHour[64];
    window(1767776400, 1767780000, wedHour, sizeof wedHour); /* Wed 9:00-10:00 */
    window(1767862800, 1767866400, thuHour, sizeof thuHour); /* Thu 9:00-10:00 */
    CHECK_INT(RsvTimeTbl_freeSlots(restarted, "hostB", wedHour, 0, NULL), 3);
    CHECK_INT(RsvTimeTbl_freeSlots(restarted, "hostB", wedHour, 0, "bob#0"), 4);
    CHECK_INT(RsvTimeTbl_freeSlots(restarted, "hostB", thuHour, 0, NULL), 4);
    CHECK_INT(RsvTimeTbl_firstShortCell(restarted, "hostB", wedHour, 0, 4, NULL, &at), 1);
    CHECK_INT(at.day, 3);
    CHECK_INT(at.slot, 9 * 6);
    CHECK_INT(at.booked, 1);
    CHECK_INT(RsvTimeTbl_firstShortCell(restarted, "hostB", thuHour, 0, RSV_NEED_WHOLE_HOST, NULL, &at), 0);
    CHECK_INT(RsvTimeTbl_freeSlots(restarted, "nowhere", thuHour, 0, NULL), -1);
    CHECK_INT(qob_errno, RSV_ERR_BAD_HOST);
    CHECK_INT(h_numEnts_(&restarted->plannerLists), numLists);

    /* The earliest one-off hour with all four slots of hostB from Wed 9:00,
     * and the earliest daily hour: found, on a cell boundary, and free by
     * the queries' count. */
    char **fitHosts = (char **)calloc(1, sizeof(char *));
    fitHosts[0] = dupString("hostB");
    RsvReq fitReq;
    makeRequest(&fitReq, 0, "erin", 4, 4, fitHosts, 1, "", NULL);
    RsvFit fit;
    memset(&fit, 0, sizeof fit);
    CHECK_INT(RsvTimeTbl_findEarliest(restarted, &fitReq, (time_t)1767776400, (time_t)1767776400 + 7 * 86400, 60,
                                      NULL, &fit),
              0);
    CHECK_INT(fit.found, 1);
    CHECK(fit.start >= (time_t)1767776400 && fit.start % 600 == 0 && fit.end - fit.start == 3600);
    CHECK(fit.numHosts == 1 && fit.allocVector && strcmp(fit.allocVector[0].hostName, "hostB") == 0);
    CHECK(fit.timeWindow != NULL);
    if (fit.timeWindow)
        CHECK_INT(RsvTimeTbl_freeSlots(restarted, "hostB", fit.timeWindow, 0, NULL), 4);
    RsvFit_destroy(&fit);
    RsvFit_destroy(&fit);
    CHECK(fit.timeWindow == NULL && fit.allocVector == NULL);
    fitReq.options = RSV_OPT_RECURRING;
    CHECK_INT(RsvTimeTbl_findEarliestRecurring(restarted, &fitReq, RSV_FIT_DAILY, 60, NULL, &fit), 0);
    CHECK(fit.found == 1 && fit.timeWindow != NULL && isValidTimeWindow(fit.timeWindow, 1) == 0);
    RsvFit_destroy(&fit);
    CHECK_INT(RsvTimeTbl_findEarliest(restarted, &fitReq, 0, 0, 60, NULL, &fit), RSV_ERR_BAD_ARGUMENT);
    RsvFit_destroy(&fit);
    freeRequest(&fitReq);
    CHECK_INT(h_numEnts_(&restarted->plannerLists), numLists);

    /* Planners built when first needed: a load that builds none, the same
     * answers, and every host built when the table goes back to eager. */
    CHECK_INT(RsvTimeTbl_isLazyPlanners(NULL), 0);
    CHECK_INT(RsvTimeTbl_setLazyPlanners(NULL, 1), -1);
    RsvTimeTbl *lazy = RsvTimeTbl_new(p->state);
    CHECK_INT(RsvTimeTbl_isLazyPlanners(lazy), 0);
    CHECK_INT(RsvTimeTbl_setLazyPlanners(lazy, 1), 0);
    CHECK_INT(RsvTimeTbl_isLazyPlanners(lazy), 1);
    CHECK_INT(RsvTimeTbl_load(lazy, NULL), h_numEnts_(&restarted->entries));
    CHECK_INT(h_numEnts_(&lazy->plannerLists), 0);
    CHECK_INT(RsvTimeTbl_freeSlots(lazy, "hostB", wedHour, 0, NULL), 3);
    CHECK_INT(RsvTimeTbl_freeSlots(lazy, "hostB", wedHour, 0, "bob#0"), 4);
    CHECK_INT(h_numEnts_(&lazy->plannerLists), 1);
    problems = 0;
    CHECK_INT(RsvTimeTbl_verify(lazy, countProblem, &problems), 0);
    CHECK_INT(RsvTimeTbl_setLazyPlanners(lazy, 0), 1);
    CHECK_INT(RsvTimeTbl_isLazyPlanners(lazy), 0);
    CHECK_INT(h_numEnts_(&lazy->plannerLists), numLists);
    CHECK_INT(RsvTimeTbl_verify(lazy, countProblem, &problems), 0);
    RsvTimeTbl_free(lazy);

    /* A system reservation made by operator ops: the creator is in the
     * saved record; a creator with a blank is refused before anything. */
    RsvReq byOps;
    makeRequest(&byOps, RSV_OPT_SYSTEM, "system", 0, 0, hostList("hostA", NULL), 1, thuHour, NULL);
    char *opsId = RsvTimeTbl_addEntryBy(restarted, &byOps, "ops");
    CHECK(opsId != NULL && strncmp(opsId, "system#", 7) == 0);
    RsvEnt *opsEnt = opsId ? RsvTimeTbl_getEntry(restarted, opsId) : NULL;
    CHECK(opsEnt != NULL && strcmp(opsEnt->creator, "ops") == 0);
    char *saved = readFile(p->state);
    CHECK(saved != NULL && strstr(saved, " hostA 8 ops ") != NULL);
    free(saved);
    CHECK_INT(opsId ? RsvTimeTbl_removeEntry(restarted, opsId) : -1, RSV_OK);
    free(opsId);
    freeRequest(&byOps);
    makeRequest(&byOps, 0, "erin", 1, 1, hostList("hostA", NULL), 1, thuHour, NULL);
    qob_errno = 0;
    CHECK(RsvTimeTbl_addEntryBy(restarted, &byOps, "two words") == NULL);
    CHECK_INT(qob_errno, RSV_ERR_BAD_ARGUMENT);
    freeRequest(&byOps);

    /* Four weeks on, the planners of the weeks that are over go; the
     * any-week planner stays, and the table still verifies. */
    CHECK(RsvTimeTbl_trimPastWeeks(restarted, (time_t)1767787200 + 28 * 86400) >= 1);
    plannerWeeks = NULL;
    CHECK_INT(RsvTimeTbl_plannerWeeks(restarted, "hostA", &plannerWeeks), 1);
    CHECK(plannerWeeks != NULL && RsvWeek_equal(&plannerWeeks[0], &rsvWeekRecur));
    free(plannerWeeks);
    CHECK_INT(RsvTimeTbl_trimPastWeeks(restarted, (time_t)1767787200 + 28 * 86400), 0);
    qob_errno = 0;
    CHECK_INT(RsvTimeTbl_trimPastWeeks(NULL, 0), -1);
    CHECK_INT(qob_errno, RSV_ERR_BAD_ARGUMENT);

    problems = 0;
    CHECK_INT(RsvTimeTbl_verify(restarted, countProblem, &problems), 0);
    RsvTimeTbl_cleanDisabledDurations(&restarted->entries);
    CHECK(bob != NULL && bob->disabledDurations != NULL); /* still this week */
    RsvTimeTbl_free(restarted);
}

int main(void)
{
    setenv("TZ", "UTC", 1);
    tzset();

    RsvMiscFuncs services = {
        .reservedService0 = unusedService,
        .allocZeroed = allocZeroed,
        .reservedService2 = unusedService,
        .dupString = dupString,
        .findJob = findJob,
        .findHost = findHost,
        .officialHostName = officialHostName,
        .rsvNameTable = rsvNameTable,
        .maxRsvPerOwner = maxRsvPerOwner,
    };
    RsvMod_init(&services);
    RsvMod_setClock(pinnedClock);
    KxLogSink previousSink = kx_setLogSink(captureLog);
    h_initTab_(&nameTable, 8);

    testBaseLibrary();
    testOccurrencesAndValidation();
    testDaysAndInstances();
    testPlanners();
    testLowLevelCalls();

    RsvId_clearTbl();
    Paths paths;
    const char *tmpdir = getenv("TMPDIR");
    snprintf(paths.dir, sizeof paths.dir, "%s/rsv-surface-XXXXXX", tmpdir && *tmpdir ? tmpdir : "/tmp");
    if (!mkdtemp(paths.dir)) {
        perror("mkdtemp");
        return 1;
    }
    snprintf(paths.state, sizeof paths.state, "%s/rsv.state", paths.dir);
    snprintf(paths.ids, sizeof paths.ids, "%s/rsv.ids", paths.dir);
    testTable(&paths);
    unlink(paths.state);
    unlink(paths.ids);
    CHECK_INT(rmdir(paths.dir), 0); /* no temporary file was left behind */

    CHECK_INT(h_numEnts_(&nameTable), 0);
    h_freeTab_(&nameTable, NULL);
    RsvId_clearTbl();
    kx_setLogSink(previousSink);
    RsvMod_setClock(NULL);
    printf("daemon_surface_test: %d passed, %d failed\n", checks - failures, failures);
    return failures == 0 ? 0 : 1;
}
