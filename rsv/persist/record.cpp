// The reservation record: one line of text per reservation, written with
// RsvEnt_ToString and read back with RsvEnt_newByString. The writer always
// writes the current version; the reader accepts every older one.
#include <algorithm>
#include <cctype>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "rsv_internal.h"

namespace {

// Version thresholds: records above 5.0 carry the creator, records above
// 7.02 also the description, the disabled durations and the activation time.
constexpr double kVersionWithCreator = 5.0;
constexpr double kVersionWithDescription = 7.02;

// Scratch sizes of the reader, terminator included.
constexpr size_t kVersionWordSize = 80;
constexpr size_t kIdWordSize = 1024;
constexpr size_t kNameWordSize = 1024;
constexpr size_t kTimeWindowWordSize = 80;
constexpr size_t kHostWordSize = 1024;
constexpr size_t kCreatorSize = sizeof(RsvEnt{}.creator);

// Growth of the writer's buffer for the creator, the disabled-duration count
// and the description's quotes.
constexpr int kCreatorRoom = 41;
constexpr int kCountRoom = 10;
constexpr int kQuoteRoom = 5;

constexpr const char *kWrongFormat = "%s: the reservation string <%s> has the wrong format";

inline bool isBlank(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

// Word and integer scans with the semantics of the record's "%s" and "%d"
// conversions, bounded: each returns the characters consumed (leading white
// space included) or -1 when the conversion fails. A word that does not fit
// its buffer fails rather than splitting, so an over-long word makes the
// record malformed instead of shifting every later field. An integer outside
// the range of int fails likewise.
int scanWord(const char *p, char *dst, size_t cap)
{
    const char *start = p;
    while (isBlank(*p))
        ++p;
    size_t n = 0;
    while (p[n] != '\0' && !isBlank(p[n]))
        ++n;
    if (n == 0 || n >= cap)
        return -1;
    std::memcpy(dst, p, n);
    dst[n] = '\0';
    return static_cast<int>(p + n - start);
}

int scanInt(const char *p, int *out)
{
    const char *start = p;
    while (isBlank(*p))
        ++p;
    bool negative = false;
    if (*p == '+' || *p == '-')
        negative = *p++ == '-';
    if (!std::isdigit(static_cast<unsigned char>(*p)))
        return -1;
    long long value = 0;
    while (std::isdigit(static_cast<unsigned char>(*p))) {
        value = value * 10 + (*p++ - '0');
        if (value > static_cast<long long>(INT_MAX) + 1)
            return -1;
    }
    if (negative)
        value = -value;
    if (value > INT_MAX || value < INT_MIN)
        return -1;
    *out = static_cast<int>(value);
    return static_cast<int>(p - start);
}

// A run of conversions over one text, like one scanf call: it stops at the
// first failure and counts the conversions made.
class Scan {
public:
    explicit Scan(const char *text) : start_(text), p_(text) {}
    Scan &word(char *dst, size_t cap) { return step(ok_ ? scanWord(p_, dst, cap) : -1); }
    Scan &integer(int *out) { return step(ok_ ? scanInt(p_, out) : -1); }
    int count() const { return count_; }
    int consumed() const { return static_cast<int>(p_ - start_); }

private:
    Scan &step(int n)
    {
        if (n < 0) {
            ok_ = false;
        } else {
            p_ += n;
            ++count_;
        }
        return *this;
    }
    const char *start_;
    const char *p_;
    int count_ = 0;
    bool ok_ = true;
};

// The reader's position in the record. Every advance is clamped to the end of
// the text, so a record that ends early never makes the reader look past its
// terminator.
class Cursor {
public:
    explicit Cursor(const char *text) : text_(text), len_(std::strlen(text)) {}
    const char *get() const { return text_ + pos_; }
    void advance(long n)
    {
        if (n > 0)
            pos_ = static_cast<size_t>(n) >= len_ - pos_ ? len_ : pos_ + static_cast<size_t>(n);
    }
    size_t left() const { return len_ - pos_; }

private:
    const char *text_;
    size_t len_;
    size_t pos_ = 0;
};

void logAllocFailure(const char *caller, const char *what)
{
    kx_syslog(KX_LOG_ERR, kx_catgets(kx_catd, rsv::kCatSetShared, 1, "%s: %s() failed."), caller, what);
}

void logWrongFormat(int number, const char *text)
{
    kx_syslog(KX_LOG_ERR, kx_catgets(kx_catd, rsv::kCatSetRsv, number, kWrongFormat), "RsvEnt_newByString", text);
}

// The writer's output buffer, grown by realloc from a first allocZeroed
// block. A failed growth logs the catalogue message given and releases the
// buffer, so no path leaks it.
class RecordBuf {
public:
    ~RecordBuf() { std::free(buf_); }
    bool init(int size)
    {
        size_ = size;
        buf_ = static_cast<char *>(rsv::allocRecord(1, static_cast<size_t>(size), "RsvEnt_ToString"));
        if (!buf_) {
            kx_syslog(KX_LOG_ERR,
                      kx_catgets(kx_catd, rsv::kCatSetRsv, 6107,
                                 "%s: failed to allocate memory (<%d> bytes) for sbuf"),
                      "RsvEnt_ToString", size);
            return false;
        }
        return true;
    }
    int size() const { return size_; }
    int length() const { return static_cast<int>(len_); }
    bool grow(int by, int messageNumber)
    {
        int newSize = size_ + by;
        auto *p = static_cast<char *>(std::realloc(buf_, static_cast<size_t>(newSize)));
        if (!p) {
            kx_syslog(KX_LOG_ERR,
                      kx_catgets(kx_catd, rsv::kCatSetRsv, messageNumber,
                                 "%s: failed to re-allocate memory (<%d> bytes) for sbuf"),
                      "RsvEnt_ToString", newSize);
            return false;
        }
        buf_ = p;
        size_ = newSize;
        return true;
    }
    // Grow by `by` when fewer than `need` bytes (terminator included) are
    // left after the text.
    bool reserve(int need, int by, int messageNumber)
    {
        return size_ >= length() + need || grow(by, messageNumber);
    }
    void append(const std::string &piece)
    {
        std::memcpy(buf_ + len_, piece.c_str(), piece.size() + 1);
        len_ += piece.size();
    }
    char *release()
    {
        char *p = buf_;
        buf_ = nullptr;
        return p;
    }

private:
    char *buf_ = nullptr;
    int size_ = 0;
    size_t len_ = 0;
};

// Builds one piece of the record: the same text as the record's printf
// formats (" %s", " %d"), without a format parse per field, since a state
// file of thousands of records is rewritten after every change.
class Piece {
public:
    Piece &text(std::string_view s)
    {
        out_.append(s);
        return *this;
    }
    Piece &word(std::string_view s)
    {
        out_.push_back(' ');
        out_.append(s);
        return *this;
    }
    Piece &number(long long n)
    {
        char digits[24];
        auto res = std::to_chars(digits, digits + sizeof digits, n);
        out_.append(digits, static_cast<size_t>(res.ptr - digits));
        return *this;
    }
    Piece &blankNumber(long long n)
    {
        out_.push_back(' ');
        return number(n);
    }
    const std::string &str() const { return out_; }
    int need() const { return static_cast<int>(out_.size()) + 1; }

private:
    std::string out_;
};

inline const char *orEmpty(const char *s) { return s ? s : ""; }

inline bool isNamedElement(const AllocElem &elem) { return elem.hostName && elem.hostName[0] != '\0'; }

constexpr const char *kToString = "RsvEnt_ToString";

// The record text of `ent` (not NULL); see RsvEnt_ToString. Throws
// std::bad_alloc when a piece cannot be built.
char *recordText(const RsvEnt *ent)
{
    const char *name = orEmpty(ent->name);
    const char *rsvId = orEmpty(ent->rsvId);

    RecordBuf sbuf;
    if (!sbuf.init(static_cast<int>(std::strlen(name) + std::strlen(rsvId) + 512)))
        return nullptr;

    // Adding hosts can leave trailing elements that never got a host (no
    // name, no slots). They hold nothing, and a nameless host word would make
    // the whole line unreadable at the next start, so they are left out.
    int namedHosts = 0;
    for (int i = 0; i < ent->numHosts && ent->allocVector; ++i)
        namedHosts += isNamedElement(ent->allocVector[i]);

    // "%s %d %d %s %s %s %d %d"; createTime is written as a 32-bit int.
    Piece header;
    header.text(orEmpty(ent->version))
        .blankNumber(static_cast<int>(ent->createTime))
        .blankNumber(ent->options)
        .word(rsvId)
        .word(name)
        .word(orEmpty(ent->timeWindow))
        .blankNumber(namedHosts)
        .blankNumber(ent->auxValue);
    // The first allocation leaves room for the owner, the identifier and
    // 512 more characters; a longer version or window still must fit.
    if (!sbuf.reserve(header.need(), header.need() - sbuf.size(), 6108))
        return nullptr;
    sbuf.append(header.str());

    for (int i = 0; i < ent->numHosts && ent->allocVector; ++i) {
        const AllocElem &elem = ent->allocVector[i];
        if (!isNamedElement(elem))
            continue;
        Piece piece;
        piece.word(elem.hostName).blankNumber(elem.numSlots);
        if (!sbuf.reserve(piece.need(), std::max(sbuf.size() / 2, piece.need()), 6108))
            return nullptr;
        sbuf.append(piece.str());
    }

    // The creator is written even when empty, leaving two blanks ahead of the
    // description; the reader recognises that case.
    if (!sbuf.reserve(kCreatorRoom, kCreatorRoom, 6109))
        return nullptr;
    sbuf.append(Piece().word(std::string_view(ent->creator, strnlen(ent->creator, kCreatorSize - 1))).str());

    const char *description = ent->description;
    const int descNeed = description ? static_cast<int>(std::strlen(description)) + kQuoteRoom : kQuoteRoom;
    if (!sbuf.reserve(descNeed, descNeed, 6109))
        return nullptr;
    if (description) {
        rsv::CPtr<char> scratch(static_cast<char *>(rsv::allocRecord(1, static_cast<size_t>(descNeed), kToString)));
        if (!scratch) {
            logAllocFailure(kToString, "calloc");
            qob_errno = RSV_ERR_NO_MEMORY;
            return nullptr;
        }
        std::snprintf(scratch.get(), static_cast<size_t>(descNeed), " \"%s\"", description);
        // A line break inside the description would split the record over two
        // lines of the state file and lose the reservation at the next start.
        for (char *c = scratch.get(); *c; ++c)
            if (*c == '\n' || *c == '\r')
                *c = ' ';
        sbuf.append(scratch.get());
    } else {
        sbuf.append(" \"\"");
    }

    if (!sbuf.reserve(kCountRoom, kCountRoom, 6109))
        return nullptr;
    List *durations = ent->disabledDurations;
    if (!durations || durations->numEnts < 1) {
        sbuf.append(" 0");
    } else {
        // Ten characters were set aside for the count, but a count of nine or
        // more digits needs more.
        Piece count;
        count.blankNumber(durations->numEnts);
        if (!sbuf.reserve(count.need(), count.need(), 6109))
            return nullptr;
        sbuf.append(count.str());
        ListIterator iter;
        listIteratorAttach(&iter, durations);
        for (ListEntry *le = listIteratorGetCurEntry(&iter); le; le = listIteratorNext(&iter)) {
            const auto *dd = reinterpret_cast<const RsvDisableDuration *>(le);
            Piece piece;
            piece.blankNumber(dd->firstDay.mday)
                .blankNumber(dd->firstDay.wday)
                .blankNumber(dd->firstDay.mon)
                .blankNumber(dd->firstDay.year)
                .blankNumber(dd->lastDay.mday)
                .blankNumber(dd->lastDay.wday)
                .blankNumber(dd->lastDay.mon)
                .blankNumber(dd->lastDay.year);
            if (!sbuf.reserve(piece.need(), piece.need(), 6109))
                return nullptr;
            sbuf.append(piece.str());
        }
    }

    Piece active;
    active.blankNumber(ent->activeTime > 0 ? static_cast<int>(ent->activeTime) : 0);
    if (!sbuf.reserve(active.need(), active.need(), 6109))
        return nullptr;
    sbuf.append(active.str());
    return sbuf.release();
}

} // namespace

extern "C" {

/* The record text of `ent` in the current format, without a line end. The
 * caller frees it. NULL when memory runs out (the failure is logged; a
 * failed description scratch also sets qob_errno to 55); the entry is never
 * changed. */
char *RsvEnt_ToString(const RsvEnt *ent)
{
    if (rsv::logOn(LC_RSV | LC_TRACE))
        kx_syslog(KX_LOG_DEBUG, "%s: Entering...", __func__);
    if (!ent)
        return nullptr;
    try {
        return recordText(ent);
    } catch (const std::bad_alloc &) {
        // A piece of the record could not be built: the buffer is released
        // on the way out, as for any other shortage.
        rsv::noteAllocationFailure();
        logAllocFailure(__func__, "malloc");
        return nullptr;
    }
}

/* A new entry rebuilt from the record `text` (any version), which the caller
 * releases with RsvEnt_destroy and free. Fields an older version lacks keep
 * a fresh entry's defaults, and the entry carries the current version. A
 * record of the current version that ends after the creator, or whose
 * description is not quoted, gives an entry with what was read and a
 * missing-data warning (6117). NULL for a malformed record (logged with its
 * catalogue number) or when memory runs out (qob_errno 55). */
RsvEnt *RsvEnt_newByString(const char *text)
{
    static constexpr const char *kFunc = "RsvEnt_newByString";
    RsvEnt *ent = RsvEnt_new(0, "", "");
    if (!ent) {
        logAllocFailure(kFunc, "calloc");
        qob_errno = RSV_ERR_NO_MEMORY;
        return nullptr;
    }
    if (!text)
        text = "";

    enum class Status { Failed, Complete, Partial };
    Status status = Status::Failed;

    // Reads the record; returns on the first failure with status Failed.
    auto read = [&]() {
        char version[kVersionWordSize];
        char rsvIdWord[kIdWordSize];
        char nameWord[kNameWordSize];
        char windowWord[kTimeWindowWordSize];
        int createTime = 0;
        int numHosts = 0;
        int auxValue = 0;

        Scan header(text);
        header.word(version, sizeof version)
            .integer(&createTime)
            .integer(&ent->options)
            .word(rsvIdWord, sizeof rsvIdWord)
            .word(nameWord, sizeof nameWord)
            .word(windowWord, sizeof windowWord)
            .integer(&numHosts)
            .integer(&auxValue);
        int consumed = header.consumed();
        if (header.count() == 7) {
            kx_syslog(KX_LOG_WARNING,
                      kx_catgets(kx_catd, rsv::kCatSetRsv, 6116,
                                 "%s: the reservation string <%s> has the old format"),
                      kFunc, text);
            Scan old(text);
            old.word(version, sizeof version)
                .integer(&createTime)
                .integer(&ent->options)
                .word(rsvIdWord, sizeof rsvIdWord)
                .word(nameWord, sizeof nameWord)
                .word(windowWord, sizeof windowWord)
                .integer(&numHosts);
            if (old.count() != 7) {
                logWrongFormat(6110, text);
                return;
            }
            consumed = old.consumed();
            auxValue = 0;
        } else if (header.count() != 8) {
            logWrongFormat(6111, text);
            return;
        }
        if (numHosts < 0) {
            logWrongFormat(6111, text);
            return;
        }

        std::free(ent->name);
        ent->name = nullptr;
        std::free(ent->timeWindow);
        ent->timeWindow = nullptr;
        ent->createTime = static_cast<time_t>(createTime);
        ent->auxValue = auxValue;
        ent->rsvId = rsv::dupText(rsvIdWord);
        ent->name = rsv::dupText(nameWord);
        ent->timeWindow = rsv::dupText(windowWord);
        if (!ent->rsvId || !ent->name || !ent->timeWindow) {
            logAllocFailure(kFunc, "calloc");
            qob_errno = RSV_ERR_NO_MEMORY;
            return;
        }
        ent->duration = RsvTimeWindow_toDuration(ent->timeWindow);

        Cursor cursor(text);
        cursor.advance(consumed);

        // Every host takes at least three characters of text, so no more
        // elements are needed than the rest of the record can hold; this
        // keeps an absurd host count from asking for an absurd block.
        const int hostRoom = static_cast<int>(std::min<size_t>(cursor.left() / 3 + 1, INT_MAX));
        const int numElems = std::min(numHosts, hostRoom);
        if (numElems > 0) {
            ent->allocVector = static_cast<AllocElem *>(rsv::allocRecord(numElems, sizeof(AllocElem), kFunc));
            if (!ent->allocVector) {
                logAllocFailure(kFunc, "calloc");
                qob_errno = RSV_ERR_NO_MEMORY;
                return;
            }
        }
        // Until every host is read, numHosts counts the elements allocated,
        // which is what a destroy of the half-built entry walks.
        ent->numHosts = numElems;
        for (int i = 0; i < numHosts; ++i) {
            char hostWord[kHostWordSize];
            int slots = 0;
            Scan host(cursor.get());
            host.word(hostWord, sizeof hostWord).integer(&slots);
            if (host.count() != 2 || i >= numElems || slots < 0) {
                logWrongFormat(6112, cursor.get());
                return;
            }
            AllocElem &elem = ent->allocVector[i];
            elem.hostName = miscFuncs.officialHostName ? miscFuncs.officialHostName(hostWord) : nullptr;
            if (!elem.hostName)
                elem.hostName = rsv::dupText(hostWord);
            if (!elem.hostName) {
                logAllocFailure(kFunc, "calloc");
                qob_errno = RSV_ERR_NO_MEMORY;
                return;
            }
            elem.numSlots = slots;
            cursor.advance(host.consumed() + 1);
        }
        ent->numHosts = numHosts;

        const double v = std::atof(version);
        if (!(v > kVersionWithCreator)) {
            status = Status::Complete;
            return;
        }
        // An entry made by RsvTimeTbl_addEntry has an empty creator, which the
        // writer leaves as two blanks ahead of the description. Taking the
        // next word as the creator would swallow the description, so a blank
        // where the creator should start means "no creator" and the cursor
        // stays for the description.
        const char *at = cursor.get();
        bool emptyCreator;
        if (numHosts > 0) {
            emptyCreator = at[0] == ' ';
        } else {
            // After the header the cursor still stands on the separator.
            emptyCreator = at[0] == ' ' && at[1] == ' ';
            if (emptyCreator)
                cursor.advance(1);
        }
        int creatorConsumed = 0;
        if (emptyCreator) {
            ent->creator[0] = '\0';
        } else {
            Scan creator(cursor.get());
            creator.word(ent->creator, kCreatorSize);
            if (creator.count() != 1) {
                logWrongFormat(6113, cursor.get());
                return;
            }
            creatorConsumed = creator.consumed();
        }
        if (!(v > kVersionWithDescription)) {
            status = Status::Complete;
            return;
        }

        cursor.advance(creatorConsumed + 1);
        const size_t rest = cursor.left();
        rsv::CPtr<char> scratch(static_cast<char *>(rsv::allocRecord(1, rest + 1, kFunc)));
        if (!scratch) {
            logAllocFailure(kFunc, "calloc");
            qob_errno = RSV_ERR_NO_MEMORY;
            return;
        }
        const int quoted = stripQStr(cursor.get(), scratch.get());
        if (quoted < 0) {
            status = Status::Partial;
            return;
        }
        // An empty description reads back as none, as RsvTimeTbl_addEntry
        // stores it, so the restored entry equals the one written.
        if (scratch.get()[0] != '\0') {
            ent->description = rsv::dupText(scratch.get());
            if (!ent->description) {
                logAllocFailure(kFunc, "calloc");
                qob_errno = RSV_ERR_NO_MEMORY;
                return;
            }
        }
        scratch.reset();
        cursor.advance(quoted + 1);

        int numDurations = 0;
        Scan count(cursor.get());
        count.integer(&numDurations);
        if (count.count() != 1) {
            logWrongFormat(6113, cursor.get());
            return;
        }
        int lastConsumed = count.consumed();
        if (numDurations > 0) {
            ent->disabledDurations = listCreate("disabledDurations");
            if (!ent->disabledDurations) {
                logAllocFailure(kFunc, "listCreate");
                return;
            }
            for (int i = 0; i < numDurations; ++i) {
                cursor.advance(lastConsumed + 1);
                rsv::CPtr<RsvDisableDuration> dd(
                    static_cast<RsvDisableDuration *>(rsv::allocRecord(1, sizeof(RsvDisableDuration), kFunc)));
                if (!dd) {
                    logAllocFailure(kFunc, "calloc");
                    return;
                }
                Scan days(cursor.get());
                days.integer(&dd->firstDay.mday)
                    .integer(&dd->firstDay.wday)
                    .integer(&dd->firstDay.mon)
                    .integer(&dd->firstDay.year)
                    .integer(&dd->lastDay.mday)
                    .integer(&dd->lastDay.wday)
                    .integer(&dd->lastDay.mon)
                    .integer(&dd->lastDay.year);
                if (days.count() != 8) {
                    logWrongFormat(6113, cursor.get());
                    return;
                }
                if (listInsertEntryAtBack(ent->disabledDurations, &dd->links) < 0) {
                    logAllocFailure(kFunc, "listInsertEntryAtBack");
                    return;
                }
                dd.release();
                lastConsumed = days.consumed();
            }
        }

        cursor.advance(lastConsumed + 1);
        int activeTime = 0;
        Scan active(cursor.get());
        active.integer(&activeTime);
        if (active.count() != 1) {
            logWrongFormat(6113, cursor.get());
            return;
        }
        ent->activeTime = static_cast<time_t>(activeTime);
        status = Status::Complete;
    };
    read();

    if (status == Status::Partial)
        kx_syslog(KX_LOG_WARNING,
                  kx_catgets(kx_catd, rsv::kCatSetRsv, 6117,
                             "%s: missing data for reservation <%s>, initializing the reservation with the "
                             "available data"),
                  kFunc, orEmpty(ent->rsvId));
    if (status == Status::Failed) {
        RsvEnt_destroy(ent);
        std::free(ent);
        return nullptr;
    }
    return ent;
}

} // extern "C"
