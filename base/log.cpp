// Logging and the message catalogue.
//
// Every line goes to one replaceable sink, so a daemon can route the module's
// messages into its own log and a test can capture them.
#include "kx_log.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

// The catalogue has no translations; the record exists only so that kx_catd
// is a real, non-NULL handle that callers can pass around.
struct KxCatalog {
    int unused;
};

namespace {

KxCatalog defaultCatalog{};

// Short messages are formatted on the stack; longer ones get a heap buffer
// of the exact size, and if even that cannot be had the line is cut at this
// length rather than lost.
constexpr size_t kStackLine = 1024;

const char *levelName(int level)
{
    switch (level) {
    case KX_LOG_ERR: return "err";
    case KX_LOG_WARNING: return "warning";
    case KX_LOG_DEBUG: return "debug";
    case KX_LOG_DETAIL: return "detail";
    default: return nullptr;
    }
}

void defaultSink(int level, const char *line)
{
    if (const char *name = levelName(level))
        std::fprintf(stderr, "%s: %s\n", name, line ? line : "");
    else
        std::fprintf(stderr, "level %d: %s\n", level, line ? line : "");
}

KxLogSink currentSink = defaultSink;

// Drop the line ends a caller's format may carry: the sink adds its own.
void stripLineEnd(char *text, size_t len)
{
    while (len > 0 && (text[len - 1] == '\n' || text[len - 1] == '\r'))
        text[--len] = '\0';
}

} // namespace

extern "C" {

int logclass = 0;
KxCatalog *kx_catd = &defaultCatalog;

// The text of message `num` of set `set`. No catalogue carries translations,
// so this is always `defaultText` (NULL stays NULL); the set and number are
// kept at every call site so a translated catalogue could be added later.
const char *kx_catgets(KxCatalog *catd, int set, int num, const char *defaultText)
{
    (void)catd;
    (void)set;
    (void)num;
    return defaultText;
}

// Formats the message and hands it to the sink as one line, without the
// trailing line end(s) the format may have had. Messages of any length are
// delivered whole while memory lasts; otherwise cut at 1023 characters. A
// NULL format, or one vsnprintf cannot render, logs nothing.
void kx_syslog(int level, const char *fmt, ...)
{
    if (!fmt)
        return;
    char stackLine[kStackLine];
    va_list args;
    va_start(args, fmt);
    va_list again;
    va_copy(again, args);
    int needed = std::vsnprintf(stackLine, sizeof stackLine, fmt, args);
    va_end(args);
    if (needed < 0) {
        va_end(again);
        return;
    }

    char *line = stackLine;
    std::string heapLine;
    if (static_cast<size_t>(needed) >= sizeof stackLine) {
        try {
            heapLine.resize(static_cast<size_t>(needed) + 1);
            std::vsnprintf(heapLine.data(), heapLine.size(), fmt, again);
            line = heapLine.data();
        } catch (const std::bad_alloc &) {
            // keep the line cut at the stack buffer's size
        }
    }
    va_end(again);

    stripLineEnd(line, std::strlen(line));
    currentSink(level, line);
}

// Installs `sink` (NULL restores the default, which writes "LEVEL: line" to
// standard error) and returns the one it replaces. The default sink is
// returned as a real function, never NULL, so a caller can chain to it or
// put it back.
KxLogSink kx_setLogSink(KxLogSink sink)
{
    KxLogSink previous = currentSink;
    currentSink = sink ? sink : defaultSink;
    return previous;
}

} // extern "C"
