/* Logging and the message catalogue of the scheduler's base library. */
#ifndef KX_LOG_H
#define KX_LOG_H

#ifdef __cplusplus
extern "C" {
#endif
#if defined(__GNUC__) || defined(__clang__)
#pragma GCC visibility push(default) /* the library's public surface */
#endif

enum {
    KX_LOG_ERR = 3,
    KX_LOG_WARNING = 4,
    KX_LOG_DEBUG = 7,
    KX_LOG_DETAIL = 9
};

/* Log-class bits of the global mask `logclass`. */
enum {
    LC_TRACE = 0x4,
    LC_FILE = 0x200000,
    LC_RSV = 0x10000000
};

/* The global log-class mask: detail and trace lines are written only when
 * the bits a caller names are set. 0 at start. */
extern int logclass;

/* A message catalogue. The default catalogue `kx_catd` has no translations,
 * so every look-up gives its default text. */
typedef struct KxCatalog KxCatalog;
extern KxCatalog *kx_catd;

#if defined(__GNUC__) || defined(__clang__)
#define KX_FORMAT(fmtIndex, firstArg) __attribute__((format(printf, fmtIndex, firstArg)))
#define KX_FORMAT_ARG(index) __attribute__((format_arg(index)))
#else
#define KX_FORMAT(fmtIndex, firstArg)
#define KX_FORMAT_ARG(index)
#endif

/* The text of message `num` of catalogue set `set`, or `defaultText`. */
const char *kx_catgets(KxCatalog *catd, int set, int num, const char *defaultText) KX_FORMAT_ARG(4);

/* Format a message and hand it, as one line without a newline at its end, to
 * the current sink with its level: trailing line ends of the format are
 * dropped, line breaks inside the text are kept. Messages of any length are
 * delivered whole while memory lasts. A NULL format logs nothing. */
void kx_syslog(int level, const char *fmt, ...) KX_FORMAT(2, 3);

/* A sink receives every formatted line. */
typedef void (*KxLogSink)(int level, const char *line);

/* Install `sink` (NULL restores the default, which writes "LEVEL: line" to
 * standard error, LEVEL being err, warning, debug or detail) and return the
 * previous one. The default sink is returned as a real function, never NULL,
 * so a caller can chain to it or put it back. */
KxLogSink kx_setLogSink(KxLogSink sink);

#if defined(__GNUC__) || defined(__clang__)
#pragma GCC visibility pop
#endif
#ifdef __cplusplus
}
#endif
#endif
