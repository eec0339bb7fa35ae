// Time-window validation and modification: is a new window acceptable, what
// window does a "start&end" modification text make of the current one, may a
// reservation move to it, and copying an accepted modification into the entry.
#include <cstdio>
#include <cstring>
#include <ctime>

#include "rsv_internal.h"
#include "timewin_internal.h"

namespace {

constexpr int kTraceBits = LC_RSV | LC_TRACE;

// A shift or a point printed by the builder fits easily: "%ld" of a long.
constexpr size_t kPointBufSize = 512;

// Entry option bits that a modification request copies one for one.
constexpr int kCopiedModBits = 0x1000 | 0x2000 | 0x4000;

void traceEntering(const char *fn)
{
    if (rsv::logOn(kTraceBits))
        kx_syslog(KX_LOG_DEBUG, "%s: Entering...", fn);
}

// A copy through the daemon's string service; NULL when it cannot be made.
char *copyText(const char *text)
{
    return rsv::dupText(text);
}

// Cuts `text` at its first '-' and returns what follows, or NULL (text
// untouched) when there is no dash.
char *cutAtDash(char *text)
{
    char *dash = std::strchr(text, '-');
    if (!dash)
        return nullptr;
    *dash = '\0';
    return dash + 1;
}

// One side of a modification: "null" keeps the current point, a leading sign
// shifts it by that many minutes, anything else replaces it.
void resolvePoint(const char *current, const char *mod, char *out, size_t outSize)
{
    if (std::strncmp(mod, "null", 4) == 0) {
        std::snprintf(out, outSize, "%s", current);
    } else if (mod[0] == '+' || mod[0] == '-') {
        long shifted = std::atol(current) + std::atol(mod) * 60;
        std::snprintf(out, outSize, "%ld", shifted);
    } else {
        std::snprintf(out, outSize, "%s", mod);
    }
}

// ctime of t, newline kept, in the caller's buffer.
void ctimeInto(time_t t, char *buf, size_t size)
{
    const char *text = std::ctime(&t);
    std::snprintf(buf, size, "%s", text ? text : "");
}

// Owners given by RsvEnt_updateWithMod (ownerRenameGeneration).
unsigned long long ownerRenames = 0;

} // namespace

namespace rsv {

unsigned long long ownerRenameGeneration() noexcept
{
    return ownerRenames;
}

} // namespace rsv

extern "C" {

// 0 when `timeWindow` is acceptable for a new reservation, else its error
// number: the one-off rules when `recurring` is 0, the recurring ones
// otherwise. Nothing is changed or logged on rejection.
int isValidTimeWindow(const char *timeWindow, int recurring)
{
    traceEntering("isValidTimeWindow");
    return recurring == 0 ? isNonRecValidTimeWindow(timeWindow) : isRecValidTimeWindow(timeWindow);
}

// 0 for a one-off "start-end" window whose start and end both lie after now;
// 36 for a NULL or malformed text, 55 when it cannot be copied, 247 when the
// start, 248 when the end is not in the future. The order of start and end is
// not checked here.
int isNonRecValidTimeWindow(const char *timeWindow)
{
    traceEntering("isNonRecValidTimeWindow");
    if (!timeWindow) {
        if (rsv::logOn(kTraceBits))
            kx_syslog(KX_LOG_DEBUG, "%s: function called with NULL input", "isNonRecValidTimeWindow");
        return RSV_ERR_BAD_TIME_WINDOW;
    }
    rsv::CPtr<char> copy(copyText(timeWindow));
    if (!copy)
        return RSV_ERR_NO_MEMORY;
    char *end = cutAtDash(copy.get());
    // A daemon passes single points through this check and relies on them
    // being accepted as they stand.
    if (!end)
        return RSV_OK;
    const char *start = copy.get();
    if (!isdigitstr_(start) || !isdigitstr_(end))
        return RSV_ERR_BAD_TIME_WINDOW;
    const time_t startTime = rsv::windowPoint(start);
    const time_t endTime = rsv::windowPoint(end);
    // By default the window points are 32-bit values and the clock is
    // compared as one; wide times compare all 64 bits.
    const time_t now = rsv::wideTimes() ? rsv::now() : static_cast<time_t>(static_cast<int32_t>(rsv::now()));
    if (now >= startTime)
        return RSV_ERR_START_IN_PAST;
    if (now >= endTime)
        return RSV_ERR_END_INVALID;
    return RSV_OK;
}

// 0 for a well-formed daily or weekly window; 36 for a NULL or malformed
// text, 55 when it cannot be copied, 337 when only one point names a day, 248
// when the end does not come after the start within one day (daily windows
// may wrap over midnight, weekly ones over the week between two weekdays).
int isRecValidTimeWindow(const char *timeWindow)
{
    traceEntering("isRecValidTimeWindow");
    if (!timeWindow) {
        if (rsv::logOn(kTraceBits))
            kx_syslog(KX_LOG_DEBUG, "%s: function called with NULL input", "isRecValidTimeWindow");
        return RSV_ERR_BAD_TIME_WINDOW;
    }
    rsv::CPtr<char> copy(copyText(timeWindow));
    if (!copy)
        return RSV_ERR_NO_MEMORY;
    char *end = cutAtDash(copy.get());
    if (!end)
        return RSV_ERR_BAD_TIME_WINDOW;
    float hour1 = 0.0F;
    float hour2 = 0.0F;
    int day1 = 0;
    int day2 = 0;
    if (parse_time(copy.get(), &hour1, &day1) < 0 || parse_time(end, &hour2, &day2) < 0)
        return RSV_ERR_BAD_TIME_WINDOW;
    if ((day1 == 0) != (day2 == 0))
        return RSV_ERR_DAY_MISMATCH;
    if (day1 == day2) {
        if (day1 == 0 && hour2 == hour1)
            return RSV_ERR_END_INVALID;
        if (day1 != 0 && hour2 <= hour1)
            return RSV_ERR_END_INVALID;
    }
    return RSV_OK;
}

// Checks that a reservation may move to `newTimeWindow`: 0, or 36 (NULL or
// malformed text), 52 (NULL entry), 55 (no copy), 247, 248, 385 (start, end
// or order not acceptable for a reservation that is not active), 323 (an
// active reservation's start would change). Nothing is changed.
int isValidModTimeWindow(const char *newTimeWindow, RsvEnt *ent, int recurring)
{
    static const char *const fn = "isValidModTimeWindow";
    traceEntering(fn);
    time_t now = rsv::now();
    if (!newTimeWindow)
        return RSV_ERR_BAD_TIME_WINDOW;
    if (!ent)
        return RSV_ERR_BAD_ARGUMENT;
    rsv::CPtr<char> newCopy(copyText(newTimeWindow));
    if (!newCopy)
        return RSV_ERR_NO_MEMORY;
    char *newEndText = cutAtDash(newCopy.get());
    if (!newEndText)
        return RSV_ERR_BAD_TIME_WINDOW;
    rsv::CPtr<char> curCopy(copyText(ent->timeWindow));
    if (!curCopy)
        return RSV_ERR_BAD_TIME_WINDOW;
    char *curEndText = cutAtDash(curCopy.get());
    if (!curEndText)
        return RSV_OK;
    const char *newStartText = newCopy.get();
    const char *curStartText = curCopy.get();

    time_t newStart = 0;
    time_t newEnd = 0;
    time_t curStart = 0;
    time_t curEnd = 0;
    if (recurring == 0) {
        if (!isdigitstr_(newStartText) || !isdigitstr_(newEndText) || !isdigitstr_(curStartText) ||
            !isdigitstr_(curEndText))
            return RSV_ERR_BAD_TIME_WINDOW;
        newStart = rsv::windowPoint(newStartText);
        newEnd = rsv::windowPoint(newEndText);
        curStart = rsv::windowPoint(curStartText);
        curEnd = rsv::windowPoint(curEndText);
    } else {
        // Only the log line below uses these.
        newStart = Rsv_time2occur(newStartText, RSV_OCCUR_AFTER_TODAY);
        newEnd = Rsv_time2occur(newEndText, RSV_OCCUR_AFTER_TODAY);
        curStart = Rsv_time2occur(curStartText, RSV_OCCUR_AFTER_TODAY);
        curEnd = Rsv_time2occur(curEndText, RSV_OCCUR_AFTER_TODAY);
    }

    int active = (ent->state == RSV_STATE_ACTIVE);
    if (rsv::logOn(LC_RSV)) {
        char nowText[64];
        char curStartBuf[64];
        char curEndBuf[64];
        char newStartBuf[64];
        char newEndBuf[64];
        ctimeInto(now, nowText, sizeof nowText);
        ctimeInto(curStart, curStartBuf, sizeof curStartBuf);
        ctimeInto(curEnd, curEndBuf, sizeof curEndBuf);
        ctimeInto(newStart, newStartBuf, sizeof newStartBuf);
        ctimeInto(newEnd, newEndBuf, sizeof newEndBuf);
        kx_syslog(KX_LOG_DEBUG, "%s: curr = <%s>, modified <%s > (active = %d) time from <%s - %s> to <%s - %s>", fn,
                  nowText, ent->rsvId ? ent->rsvId : "", active, curStartBuf, curEndBuf, newStartBuf, newEndBuf);
    }

    if (recurring != 0)
        return (!active || std::strcmp(newStartText, curStartText) == 0) ? RSV_OK : RSV_ERR_START_OF_ACTIVE;
    if (!active) {
        if (now >= newStart && newStart != curStart)
            return RSV_ERR_START_IN_PAST;
        if (now >= newEnd)
            return RSV_ERR_END_INVALID;
        if (newStart >= newEnd)
            return RSV_ERR_END_BEFORE_START;
        return RSV_OK;
    }
    if (newStart != curStart)
        return RSV_ERR_START_OF_ACTIVE;
    if (now >= newEnd)
        return RSV_ERR_END_INVALID;
    return RSV_OK;
}

// The window that the modification text "newStart&newEnd" makes of
// `currentWindow`: each side "null" (keep), a signed minute shift, or a new
// point. A new text from allocZeroed that the caller frees, or NULL for a
// NULL or malformed input or exhausted memory.
char *RsvMod_buildTimeWindow(const char *currentWindow, const char *modText)
{
    traceEntering("RsvMod_buildTimeWindow");
    if (!currentWindow || !modText)
        return nullptr;
    rsv::CPtr<char> cur(copyText(currentWindow));
    rsv::CPtr<char> mod(copyText(modText));
    if (!cur || !mod)
        return nullptr;
    char *curEnd = cutAtDash(cur.get());
    if (!curEnd)
        return nullptr;
    char *amp = std::strchr(mod.get(), '&');
    if (!amp)
        return nullptr;
    *amp = '\0';
    const char *modEnd = amp + 1;

    char start[kPointBufSize];
    char end[kPointBufSize];
    resolvePoint(cur.get(), mod.get(), start, sizeof start);
    resolvePoint(curEnd, modEnd, end, sizeof end);

    size_t size = std::strlen(start) + std::strlen(end) + 2;
    auto *text = static_cast<char *>(rsv::allocRecord(static_cast<int>(size), 1, "RsvMod_buildTimeWindow"));
    if (!text)
        return nullptr;
    std::snprintf(text, size, "%s-%s", start, end);
    return text;
}

// Turns the request's modification text into the complete new window and
// checks it against the entry: 0 (the request's timeWindow now holds the new
// window), 52 for a NULL argument, 55 when the new text cannot be copied
// into the request, or the check's error number (request unchanged).
int RsvMod_updateModReqTimeWindow(RsvModReq *modReq, RsvEnt *ent)
{
    traceEntering("RsvMod_updateModReqTimeWindow");
    if (!modReq || !ent)
        return RSV_ERR_BAD_ARGUMENT;
    rsv::CPtr<char> newText(RsvMod_buildTimeWindow(ent->timeWindow, modReq->req.timeWindow));
    // A daemon relies on the one-off rules being applied here whatever the
    // kind of reservation.
    int status = isValidModTimeWindow(newText.get(), ent, 0);
    if (status != RSV_OK)
        return status;
    char *copy = copyText(newText.get());
    if (!copy)
        return RSV_ERR_NO_MEMORY;
    free(modReq->req.timeWindow);
    modReq->req.timeWindow = copy;
    return RSV_OK;
}

// Copies an accepted modification into the entry according to the request's
// option bits (owner, window and duration, run flag, description, the copied
// bits). Every text is copied before anything changes, so a copy that cannot
// be made leaves the entry exactly as it was. NULL arguments are ignored.
void RsvEnt_updateWithMod(RsvEnt *ent, RsvModReq *modReq)
{
    if (!ent || !modReq)
        return;
    const int reqOptions = modReq->req.options;
    const bool newName = (reqOptions & RSV_MOD_NAME) != 0;
    const bool newWindow = (reqOptions & RSV_MOD_TIMEWINDOW) != 0;
    const bool newDescription = (reqOptions & RSV_MOD_DESCRIPTION) != 0 && modReq->req.description != nullptr;

    rsv::CPtr<char> name(newName ? copyText(modReq->req.name) : nullptr);
    rsv::CPtr<char> window(newWindow ? copyText(modReq->req.timeWindow) : nullptr);
    rsv::CPtr<char> description(newDescription ? copyText(modReq->req.description) : nullptr);
    if ((newName && !name) || (newWindow && !window) || (newDescription && !description))
        return;

    if (newName) {
        free(ent->name);
        ent->name = name.release();
        ++ownerRenames;
        ent->options |= RSV_MOD_NAME;
        ent->options &= ~(0x1 | 0x2);
        ent->options |= reqOptions & (0x1 | 0x2);
    } else {
        ent->options &= ~RSV_MOD_NAME;
    }

    if (newWindow) {
        free(ent->timeWindow);
        ent->timeWindow = window.release();
        ent->duration = RsvTimeWindow_toDuration(ent->timeWindow);
        ent->options |= RSV_MOD_TIMEWINDOW;
    } else {
        ent->options &= ~RSV_MOD_TIMEWINDOW;
    }

    if (reqOptions & RSV_MOD_RUNFLAG) {
        ent->options |= RSV_MOD_RUNFLAG;
        if (reqOptions & 0x100) {
            ent->options &= ~0x40;
            ent->options |= 0x100;
        } else {
            ent->options &= ~0x100;
            ent->options |= 0x40;
        }
    } else {
        ent->options &= ~RSV_MOD_RUNFLAG;
    }

    if (reqOptions & RSV_MOD_DESCRIPTION) {
        free(ent->description);
        ent->description = description.release();
    }

    ent->options = (ent->options & ~kCopiedModBits) | (reqOptions & kCopiedModBits);
}

} // extern "C"
