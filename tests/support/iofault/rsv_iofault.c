/* rsv_iofault.c: make chosen open/write/fsync/close/rename calls under one
 * directory fail (see rsv_iofault.h). Every wrapped call is passed on to the
 * next definition in the library search order (the C library, or a
 * sanitizer's wrapper of it). */
#undef _FORTIFY_SOURCE /* the wrappers below replace the C library's own */
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif

#include "rsv_iofault.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

/* Fortified callers reach these; the C library declares them only when
 * fortification is on. */
int __open_2(const char *path, int flags);
int __open64_2(const char *path, int flags);
int __openat_2(int dirfd, const char *path, int flags);
int __openat64_2(int dirfd, const char *path, int flags);

enum { OP_OPEN, OP_WRITE, OP_FSYNC, OP_CLOSE, OP_RENAME, OP_KINDS };
static const char *const opNames[OP_KINDS] = {"open", "write", "fsync", "close", "rename"};

/* Descriptors opened under the directory; a path is kept for the log. */
enum { MAX_TRACKED = 4096, KEPT_PATH = 256 };

static struct {
    int armed;
    int op;
    int nth;
    int times; /* 0: every call from the nth on */
    int err;   /* 0: delay only */
    int delayMs;
    char dir[PATH_MAX];     /* absolute, lexically clean; "" = any path */
    char dirReal[PATH_MAX]; /* the same with links resolved, when it differs */
    char log[PATH_MAX];
    int calls;
    int hits;
} cfg;

static unsigned char tracked[MAX_TRACKED];
static char trackedPath[MAX_TRACKED][KEPT_PATH];

/* ------------------------------------------------------------------ real calls */

static void *nextSymbol(const char *name)
{
    return dlsym(RTLD_NEXT, name);
}

#define REAL(type, name, ...)                                                                                      \
    static type (*real)(__VA_ARGS__);                                                                              \
    if (!real) {                                                                                                   \
        void *sym = nextSymbol(name);                                                                              \
        memcpy(&real, &sym, sizeof real);                                                                          \
    }

static int realOpenat(int dirfd, const char *path, int flags, mode_t mode)
{
    REAL(int, "openat", int, const char *, int, ...)
    if (!real) {
        errno = ENOSYS;
        return -1;
    }
    return real(dirfd, path, flags, mode);
}

static ssize_t realWrite(int fd, const void *buf, size_t n)
{
    REAL(ssize_t, "write", int, const void *, size_t)
    if (!real) {
        errno = ENOSYS;
        return -1;
    }
    return real(fd, buf, n);
}

static int realClose(int fd)
{
    REAL(int, "close", int)
    if (!real) {
        errno = ENOSYS;
        return -1;
    }
    return real(fd);
}

/* ------------------------------------------------------------------ paths */

/* Lexically clean an absolute path in place: no "//", "." or "..". */
static void cleanPath(char *path)
{
    char out[PATH_MAX];
    size_t len = 0;
    const char *p = path;
    while (*p) {
        while (*p == '/')
            ++p;
        const char *start = p;
        while (*p && *p != '/')
            ++p;
        size_t part = (size_t)(p - start);
        if (part == 0 || (part == 1 && start[0] == '.'))
            continue;
        if (part == 2 && start[0] == '.' && start[1] == '.') {
            while (len > 0 && out[len - 1] != '/')
                --len;
            if (len > 0)
                --len;
            continue;
        }
        if (len + 1 + part >= sizeof out)
            return; /* too long to clean: leave it as it is */
        out[len++] = '/';
        memcpy(out + len, start, part);
        len += part;
    }
    if (len == 0)
        out[len++] = '/';
    out[len] = '\0';
    memcpy(path, out, len + 1);
}

/* The absolute, clean form of `path` seen from `dirfd`. 0 when it cannot be
 * told. */
static int absolutePath(int dirfd, const char *path, char *out, size_t size)
{
    if (!path)
        return 0;
    if (path[0] == '/') {
        if (strlen(path) >= size)
            return 0;
        strcpy(out, path);
    } else {
        char base[PATH_MAX];
        if (dirfd == AT_FDCWD) {
            if (!getcwd(base, sizeof base))
                return 0;
        } else {
            char link[64];
            snprintf(link, sizeof link, "/proc/self/fd/%d", dirfd);
            ssize_t n = readlink(link, base, sizeof base - 1);
            if (n <= 0)
                return 0;
            base[n] = '\0';
        }
        if ((size_t)snprintf(out, size, "%s/%s", base, path) >= size)
            return 0;
    }
    cleanPath(out);
    return 1;
}

static int startsWithDir(const char *path, const char *dir)
{
    size_t n = strlen(dir);
    if (n == 0)
        return 0;
    if (strncmp(path, dir, n) != 0)
        return 0;
    return path[n] == '\0' || path[n] == '/' || (n == 1 && dir[0] == '/');
}

/* Whether a call on `path` counts; `full` (PATH_MAX) gets its clean form. */
static int under(int dirfd, const char *path, char *full)
{
    if (!cfg.armed) {
        full[0] = '\0';
        return 0;
    }
    if (!absolutePath(dirfd, path, full, PATH_MAX)) {
        snprintf(full, PATH_MAX, "%s", path ? path : "(null)");
        return cfg.dir[0] == '\0';
    }
    if (cfg.dir[0] == '\0')
        return 1;
    return startsWithDir(full, cfg.dir) || (cfg.dirReal[0] && startsWithDir(full, cfg.dirReal));
}

static void track(int fd, const char *path)
{
    if (fd < 0 || fd >= MAX_TRACKED)
        return;
    tracked[fd] = 1;
    size_t n = strlen(path);
    if (n >= KEPT_PATH)
        n = KEPT_PATH - 1; /* only the log sees it */
    memcpy(trackedPath[fd], path, n);
    trackedPath[fd][n] = '\0';
}

static int isTracked(int fd)
{
    return cfg.armed && fd >= 0 && fd < MAX_TRACKED && tracked[fd];
}

/* ------------------------------------------------------------------ faults */

static const struct {
    const char *name;
    int value;
} errnoNames[] = {
    {"ENOSPC", ENOSPC}, {"EIO", EIO},       {"EDQUOT", EDQUOT}, {"EROFS", EROFS},   {"EACCES", EACCES},
    {"EPERM", EPERM},   {"ENOENT", ENOENT}, {"EBADF", EBADF},   {"EINTR", EINTR},   {"EAGAIN", EAGAIN},
    {"EFBIG", EFBIG},   {"EMFILE", EMFILE}, {"ENFILE", ENFILE}, {"EEXIST", EEXIST}, {"EXDEV", EXDEV},
    {"EBUSY", EBUSY},   {"ENOMEM", ENOMEM}, {"ENOTDIR", ENOTDIR}, {"EISDIR", EISDIR},
};

static const char *errnoName(int err)
{
    for (size_t i = 0; i < sizeof errnoNames / sizeof errnoNames[0]; ++i)
        if (errnoNames[i].value == err)
            return errnoNames[i].name;
    return "E?";
}

static void logLine(const char *what, const char *path, int n)
{
    if (!cfg.log[0])
        return;
    char line[PATH_MAX + 128];
    int len;
    if (strcmp(what, "fail") == 0)
        len = snprintf(line, sizeof line, "fail %s %d %s %s\n", opNames[cfg.op], n, path, errnoName(cfg.err));
    else
        len = snprintf(line, sizeof line, "%s %s %d %s\n", what, opNames[cfg.op], n, path);
    if (len <= 0)
        return;
    if ((size_t)len >= sizeof line)
        len = (int)sizeof line - 1;
    const int saved = errno;
    int fd = realOpenat(AT_FDCWD, cfg.log, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd >= 0) {
        if (realWrite(fd, line, (size_t)len) < 0) {
            /* nothing to do: the log is for the test's eyes only */
        }
        realClose(fd);
    }
    errno = saved;
}

static void sleepFor(int ms)
{
    struct timespec left = {ms / 1000, (long)(ms % 1000) * 1000000L};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

/* Count a matching call of kind `op` and decide its fate: 0 to pass it on,
 * or the errno to fail it with. */
static int decide(int op, const char *path)
{
    if (!cfg.armed || cfg.op != op)
        return 0;
    const int n = __atomic_add_fetch(&cfg.calls, 1, __ATOMIC_SEQ_CST);
    if (n < cfg.nth || (cfg.times > 0 && n >= cfg.nth + cfg.times))
        return 0;
    const int saved = errno;
    if (cfg.delayMs > 0) {
        logLine("delay", path, n);
        sleepFor(cfg.delayMs);
    }
    errno = saved;
    if (cfg.err == 0)
        return 0;
    __atomic_add_fetch(&cfg.hits, 1, __ATOMIC_SEQ_CST);
    logLine("fail", path, n);
    return cfg.err;
}

/* ------------------------------------------------------------------ arming */

static int parseInt(const char *text, int *out)
{
    char *end = NULL;
    errno = 0;
    long v = strtol(text, &end, 10);
    if (errno || end == text || *end || v < 0 || v > INT_MAX)
        return 0;
    *out = (int)v;
    return 1;
}

static int opIndex(const char *name)
{
    for (int i = 0; i < OP_KINDS; ++i)
        if (strcmp(name, opNames[i]) == 0)
            return i;
    return -1;
}

static void setDir(const char *dir)
{
    cfg.dir[0] = '\0';
    cfg.dirReal[0] = '\0';
    if (!dir || !*dir)
        return;
    if (!absolutePath(AT_FDCWD, dir, cfg.dir, sizeof cfg.dir))
        snprintf(cfg.dir, sizeof cfg.dir, "%s", dir);
    char real[PATH_MAX];
    if (realpath(cfg.dir, real) && strcmp(real, cfg.dir) != 0)
        snprintf(cfg.dirReal, sizeof cfg.dirReal, "%s", real);
}

static void reset(void)
{
    cfg.armed = 0;
    cfg.calls = 0;
    cfg.hits = 0;
    memset(tracked, 0, sizeof tracked);
}

void rsv_iofault_arm(const char *op, int nth, int err, const char *dir)
{
    reset();
    const int index = op ? opIndex(op) : -1;
    if (index < 0)
        return;
    cfg.op = index;
    cfg.nth = nth > 0 ? nth : 1;
    cfg.times = 1;
    cfg.err = err;
    cfg.delayMs = 0;
    setDir(dir);
    cfg.armed = 1;
}

int rsv_iofault_arm_text(const char *fault, const char *dir)
{
    reset();
    if (!fault)
        return -1;
    char copy[512];
    if (strlen(fault) >= sizeof copy)
        return -1;
    strcpy(copy, fault);
    int op = -1, nth = 1, times = 1, err = 0, delayMs = 0;
    char *save = NULL;
    for (char *item = strtok_r(copy, ",", &save); item; item = strtok_r(NULL, ",", &save)) {
        char *eq = strchr(item, '=');
        if (!eq)
            return -1;
        *eq = '\0';
        const char *key = item, *value = eq + 1;
        int ok = 1;
        if (strcmp(key, "op") == 0) {
            op = opIndex(value);
            ok = op >= 0;
        } else if (strcmp(key, "nth") == 0) {
            ok = parseInt(value, &nth) && nth >= 1;
        } else if (strcmp(key, "times") == 0) {
            ok = parseInt(value, &times);
        } else if (strcmp(key, "delay_ms") == 0) {
            ok = parseInt(value, &delayMs);
        } else if (strcmp(key, "errno") == 0) {
            ok = 0;
            for (size_t i = 0; i < sizeof errnoNames / sizeof errnoNames[0]; ++i)
                if (strcmp(value, errnoNames[i].name) == 0) {
                    err = errnoNames[i].value;
                    ok = 1;
                }
            if (!ok)
                ok = parseInt(value, &err);
        } else {
            ok = 0;
        }
        if (!ok)
            return -1;
    }
    if (op < 0)
        return -1;
    cfg.op = op;
    cfg.nth = nth;
    cfg.times = times;
    cfg.err = err;
    cfg.delayMs = delayMs;
    setDir(dir);
    cfg.armed = 1;
    return 0;
}

void rsv_iofault_disarm(void)
{
    cfg.armed = 0;
}

int rsv_iofault_hits(void)
{
    return __atomic_load_n(&cfg.hits, __ATOMIC_SEQ_CST);
}

int rsv_iofault_calls(void)
{
    return __atomic_load_n(&cfg.calls, __ATOMIC_SEQ_CST);
}

__attribute__((constructor)) static void armFromEnvironment(void)
{
    const char *log = getenv("RSV_IOFAULT_LOG");
    snprintf(cfg.log, sizeof cfg.log, "%s", log ? log : "");
    const char *fault = getenv("RSV_IOFAULT");
    if (fault && *fault && rsv_iofault_arm_text(fault, getenv("RSV_IOFAULT_DIR")) != 0) {
        static const char msg[] = "rsv_iofault: RSV_IOFAULT is malformed; no fault armed\n";
        if (realWrite(2, msg, sizeof msg - 1) < 0) {
        }
    }
}

/* ------------------------------------------------------------------ open */

/* Each entry point resolves its own next definition, so one kept pointer
 * never stands for two different functions. */
#define OPEN_ENTRY(fname, sym)                                                                                     \
    int fname(const char *path, int flags, ...)                                                                    \
    {                                                                                                              \
        mode_t mode = 0;                                                                                           \
        if ((flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE) {                                               \
            va_list ap;                                                                                            \
            va_start(ap, flags);                                                                                   \
            mode = (mode_t)va_arg(ap, int);                                                                        \
            va_end(ap);                                                                                            \
        }                                                                                                          \
        char full[PATH_MAX];                                                                                       \
        const int counts = under(AT_FDCWD, path, full);                                                            \
        if (counts) {                                                                                              \
            const int err = decide(OP_OPEN, full);                                                                 \
            if (err) {                                                                                             \
                errno = err;                                                                                       \
                return -1;                                                                                         \
            }                                                                                                      \
        }                                                                                                          \
        static int (*real)(const char *, int, ...);                                                                \
        if (!real) {                                                                                               \
            void *s = nextSymbol(sym);                                                                             \
            memcpy(&real, &s, sizeof real);                                                                        \
        }                                                                                                          \
        if (!real) {                                                                                               \
            errno = ENOSYS;                                                                                        \
            return -1;                                                                                             \
        }                                                                                                          \
        const int fd = real(path, flags, mode);                                                                    \
        if (counts && fd >= 0)                                                                                     \
            track(fd, full);                                                                                       \
        return fd;                                                                                                 \
    }

#define OPENAT_ENTRY(fname, sym)                                                                                   \
    int fname(int dirfd, const char *path, int flags, ...)                                                         \
    {                                                                                                              \
        mode_t mode = 0;                                                                                           \
        if ((flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE) {                                               \
            va_list ap;                                                                                            \
            va_start(ap, flags);                                                                                   \
            mode = (mode_t)va_arg(ap, int);                                                                        \
            va_end(ap);                                                                                            \
        }                                                                                                          \
        char full[PATH_MAX];                                                                                       \
        const int counts = under(dirfd, path, full);                                                               \
        if (counts) {                                                                                              \
            const int err = decide(OP_OPEN, full);                                                                 \
            if (err) {                                                                                             \
                errno = err;                                                                                       \
                return -1;                                                                                         \
            }                                                                                                      \
        }                                                                                                          \
        static int (*real)(int, const char *, int, ...);                                                           \
        if (!real) {                                                                                               \
            void *s = nextSymbol(sym);                                                                             \
            memcpy(&real, &s, sizeof real);                                                                        \
        }                                                                                                          \
        if (!real) {                                                                                               \
            errno = ENOSYS;                                                                                        \
            return -1;                                                                                             \
        }                                                                                                          \
        const int fd = real(dirfd, path, flags, mode);                                                             \
        if (counts && fd >= 0)                                                                                     \
            track(fd, full);                                                                                       \
        return fd;                                                                                                 \
    }

OPEN_ENTRY(open, "open")
OPEN_ENTRY(open64, "open64")
OPENAT_ENTRY(openat, "openat")
OPENAT_ENTRY(openat64, "openat64")

/* The fortified forms never create a file (O_CREAT goes to open itself). */
#define OPEN2_ENTRY(fname, sym)                                                                                    \
    int fname(const char *path, int flags)                                                                         \
    {                                                                                                              \
        char full[PATH_MAX];                                                                                       \
        const int counts = under(AT_FDCWD, path, full);                                                            \
        if (counts) {                                                                                              \
            const int err = decide(OP_OPEN, full);                                                                 \
            if (err) {                                                                                             \
                errno = err;                                                                                       \
                return -1;                                                                                         \
            }                                                                                                      \
        }                                                                                                          \
        static int (*real)(const char *, int);                                                                     \
        if (!real) {                                                                                               \
            void *s = nextSymbol(sym);                                                                             \
            memcpy(&real, &s, sizeof real);                                                                        \
        }                                                                                                          \
        if (!real) {                                                                                               \
            errno = ENOSYS;                                                                                        \
            return -1;                                                                                             \
        }                                                                                                          \
        const int fd = real(path, flags);                                                                          \
        if (counts && fd >= 0)                                                                                     \
            track(fd, full);                                                                                       \
        return fd;                                                                                                 \
    }

#define OPENAT2_ENTRY(fname, sym)                                                                                  \
    int fname(int dirfd, const char *path, int flags)                                                              \
    {                                                                                                              \
        char full[PATH_MAX];                                                                                       \
        const int counts = under(dirfd, path, full);                                                               \
        if (counts) {                                                                                              \
            const int err = decide(OP_OPEN, full);                                                                 \
            if (err) {                                                                                             \
                errno = err;                                                                                       \
                return -1;                                                                                         \
            }                                                                                                      \
        }                                                                                                          \
        static int (*real)(int, const char *, int);                                                                \
        if (!real) {                                                                                               \
            void *s = nextSymbol(sym);                                                                             \
            memcpy(&real, &s, sizeof real);                                                                        \
        }                                                                                                          \
        if (!real) {                                                                                               \
            errno = ENOSYS;                                                                                        \
            return -1;                                                                                             \
        }                                                                                                          \
        const int fd = real(dirfd, path, flags);                                                                   \
        if (counts && fd >= 0)                                                                                     \
            track(fd, full);                                                                                       \
        return fd;                                                                                                 \
    }

OPEN2_ENTRY(__open_2, "__open_2")
OPEN2_ENTRY(__open64_2, "__open64_2")
OPENAT2_ENTRY(__openat_2, "__openat_2")
OPENAT2_ENTRY(__openat64_2, "__openat64_2")

/* ------------------------------------------------------------------ fd calls */

ssize_t write(int fd, const void *buf, size_t n)
{
    if (isTracked(fd)) {
        const int err = decide(OP_WRITE, trackedPath[fd]);
        if (err) {
            errno = err;
            return -1;
        }
    }
    return realWrite(fd, buf, n);
}

int fsync(int fd)
{
    if (isTracked(fd)) {
        const int err = decide(OP_FSYNC, trackedPath[fd]);
        if (err) {
            errno = err;
            return -1;
        }
    }
    REAL(int, "fsync", int)
    if (!real) {
        errno = ENOSYS;
        return -1;
    }
    return real(fd);
}

int fdatasync(int fd)
{
    if (isTracked(fd)) {
        const int err = decide(OP_FSYNC, trackedPath[fd]);
        if (err) {
            errno = err;
            return -1;
        }
    }
    REAL(int, "fdatasync", int)
    if (!real) {
        errno = ENOSYS;
        return -1;
    }
    return real(fd);
}

int close(int fd)
{
    if (isTracked(fd)) {
        tracked[fd] = 0;
        const int err = decide(OP_CLOSE, trackedPath[fd]);
        if (err) {
            /* As on Linux, the descriptor is gone even when close fails. */
            realClose(fd);
            errno = err;
            return -1;
        }
    } else if (fd >= 0 && fd < MAX_TRACKED) {
        tracked[fd] = 0;
    }
    return realClose(fd);
}

/* ------------------------------------------------------------------ rename */

static int renameCounts(int oldfd, const char *oldpath, int newfd, const char *newpath, char *full)
{
    char other[PATH_MAX];
    const int a = under(oldfd, oldpath, full);
    const int b = under(newfd, newpath, other);
    return a || b;
}

int rename(const char *oldpath, const char *newpath)
{
    char full[PATH_MAX];
    if (renameCounts(AT_FDCWD, oldpath, AT_FDCWD, newpath, full)) {
        const int err = decide(OP_RENAME, full);
        if (err) {
            errno = err;
            return -1;
        }
    }
    REAL(int, "rename", const char *, const char *)
    if (!real) {
        errno = ENOSYS;
        return -1;
    }
    return real(oldpath, newpath);
}

int renameat(int oldfd, const char *oldpath, int newfd, const char *newpath)
{
    char full[PATH_MAX];
    if (renameCounts(oldfd, oldpath, newfd, newpath, full)) {
        const int err = decide(OP_RENAME, full);
        if (err) {
            errno = err;
            return -1;
        }
    }
    REAL(int, "renameat", int, const char *, int, const char *)
    if (!real) {
        errno = ENOSYS;
        return -1;
    }
    return real(oldfd, oldpath, newfd, newpath);
}

int renameat2(int oldfd, const char *oldpath, int newfd, const char *newpath, unsigned int flags)
{
    char full[PATH_MAX];
    if (renameCounts(oldfd, oldpath, newfd, newpath, full)) {
        const int err = decide(OP_RENAME, full);
        if (err) {
            errno = err;
            return -1;
        }
    }
    REAL(int, "renameat2", int, const char *, int, const char *, unsigned int)
    if (!real) {
        errno = ENOSYS;
        return -1;
    }
    return real(oldfd, oldpath, newfd, newpath, flags);
}
