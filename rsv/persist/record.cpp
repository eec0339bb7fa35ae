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

#include "persist/persist_internal.h"
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
    void append(std::string_view piece)
    {
        std::memcpy(buf_ + len_, piece.data(), piece.size());
        len_ += piece.size();
        buf_[len_] = '\0';
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
// file of thousands of records is rewritten after every change. Short
// pieces (nearly all) stay in the piece itself; longer ones spill to the
// heap.
class Piece {
public:
    Piece &text(std::string_view s)
    {
        put(s);
        return *this;
    }
    Piece &word(std::string_view s)
    {
        put(" ");
        put(s);
        return *this;
    }
    Piece &number(long long n)
    {
        char digits[24];
        auto res = std::to_chars(digits, digits + sizeof digits, n);
        put(std::string_view(digits, static_cast<size_t>(res.ptr - digits)));
        return *this;
    }
    Piece &blankNumber(long long n)
    {
        put(" ");
        return number(n);
    }
    std::string_view str() const { return spilled_ ? std::string_view(spill_) : std::string_view(inline_, len_); }
    int need() const { return static_cast<int>(str().size()) + 1; }

private:
    void put(std::string_view s)
    {
        if (!spilled_ && len_ + s.size() <= sizeof inline_) {
            std::memcpy(inline_ + len_, s.data(), s.size());
            len_ += s.size();
            return;
        }
        if (!spilled_) {
            spill_.assign(inline_, len_);
            spilled_ = true;
        }
        spill_.append(s);
    }
    char inline_[200];
    size_t len_ = 0;
    bool spilled_ = false;
    std::string spill_;
};

inline const char *orEmpty(const char *s) { return s ? s : ""; }

inline bool isNamedElement(const AllocElem &elem) { return elem.hostName && elem.hostName[0] != '\0'; }

// The description as the record carries it: a blank and the text in double
// quotes. A line break inside it would split the record over two lines of
// the state file and lose the reservation at the next start.
void quoteDescription(char *out, size_t size, const char *description)
{
    // " \"%s\"" cut to `size`, without a format parse: every record of a
    // state file passes here.
    if (size == 0)
        return;
    const char *parts[] = {" \"", description, "\""};
    size_t at = 0;
    for (const char *part : parts) {
        const size_t n = std::min(std::strlen(part), size - 1 - at);
        std::memcpy(out + at, part, n);
        at += n;
    }
    out[at] = '\0';
    for (char *c = out; *c; ++c)
        if (*c == '\n' || *c == '\r')
            *c = ' ';
}

// The daemon-facing writer's output: the record's own buffer with its
// growth steps and their messages.
class BufferSink {
public:
    using Piece = ::Piece;
    explicit BufferSink(RecordBuf &buf) : buf_(buf) {}
    Piece piece() { return Piece(); }
    bool reserve(int need, int by, int messageNumber) { return buf_.reserve(need, by, messageNumber); }
    int size() const { return buf_.size(); }
    void append(std::string_view piece) { buf_.append(piece); }
    bool description(const char *text, int need)
    {
        rsv::CPtr<char> scratch(static_cast<char *>(rsv::allocRecord(1, static_cast<size_t>(need), "RsvEnt_ToString")));
        if (!scratch) {
            logAllocFailure("RsvEnt_ToString", "calloc");
            qob_errno = RSV_ERR_NO_MEMORY;
            return false;
        }
        quoteDescription(scratch.get(), static_cast<size_t>(need), text);
        buf_.append(scratch.get());
        return true;
    }

private:
    RecordBuf &buf_;
};

// The state file's writer: records appended to one text, no buffer of
// their own. The text is grown in large steps and written through a plain
// cursor, since a durable save writes every record of the table. Throws
// std::bad_alloc.
class TextSink {
public:
    // Pieces go straight into the text: nothing to reserve, nothing to copy.
    class Piece {
    public:
        explicit Piece(TextSink &sink) : sink_(sink) {}
        Piece &text(std::string_view s)
        {
            sink_.put(s.data(), s.size());
            return *this;
        }
        Piece &word(std::string_view s)
        {
            char *at = sink_.room(s.size() + 1);
            *at = ' ';
            std::memcpy(at + 1, s.data(), s.size());
            return *this;
        }
        Piece &blankNumber(long long n)
        {
            char *at = sink_.room(24);
            *at = ' ';
            auto res = std::to_chars(at + 1, at + 24, n);
            sink_.unused(static_cast<size_t>(at + 24 - res.ptr));
            return *this;
        }
        std::string_view str() const { return {}; }
        int need() const { return 1; }

    private:
        TextSink &sink_;
    };

    // The room `out` already has is used first.
    explicit TextSink(std::string &out) : out_(out), len_(out.size()) { out_.resize(out_.capacity()); }
    ~TextSink() { out_.resize(len_); }
    TextSink(const TextSink &) = delete;
    TextSink &operator=(const TextSink &) = delete;

    Piece piece() { return Piece(*this); }
    bool reserve(int, int, int) { return true; }
    int size() const { return static_cast<int>(len_); }
    void append(std::string_view piece) { put(piece.data(), piece.size()); }
    bool description(const char *text, int need)
    {
        char *at = room(static_cast<size_t>(need));
        quoteDescription(at, static_cast<size_t>(need), text);
        unused(static_cast<size_t>(need) - std::strlen(at));
        return true;
    }

private:
    // `n` more bytes at the end of the text, to be written by the caller.
    char *room(size_t n)
    {
        if (len_ + n > out_.size())
            out_.resize(std::max(out_.size() * 2, len_ + n + 4096));
        char *at = out_.data() + len_;
        len_ += n;
        return at;
    }
    // Give back the last `n` bytes of a room that were not used.
    void unused(size_t n) { len_ -= n; }
    void put(const char *data, size_t n)
    {
        char *at = room(n);
        // An empty part may come as a NULL pointer, which memcpy must not see.
        if (n != 0)
            std::memcpy(at, data, n);
    }

    std::string &out_;
    size_t len_;
};

template <typename Sink>
bool writeDurationsAndActivation(const RsvEnt *ent, Sink &sink);

// The record of `ent` into `sink`, field by field. False when the sink
// cannot grow (it has logged why).
template <typename Sink>
bool writeRecord(const RsvEnt *ent, Sink &sink)
{
    const char *name = orEmpty(ent->name);
    const char *rsvId = orEmpty(ent->rsvId);

    // Adding hosts can leave trailing elements that never got a host (no
    // name, no slots). They hold nothing, and a nameless host word would make
    // the whole line unreadable at the next start, so they are left out.
    int namedHosts = 0;
    for (int i = 0; i < ent->numHosts && ent->allocVector; ++i)
        namedHosts += isNamedElement(ent->allocVector[i]);

    // "%s %d %d %s %s %s %d %d"; createTime is written as a 32-bit int.
    auto header = sink.piece();
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
    if (!sink.reserve(header.need(), header.need() - sink.size(), 6108))
        return false;
    sink.append(header.str());

    for (int i = 0; i < ent->numHosts && ent->allocVector; ++i) {
        const AllocElem &elem = ent->allocVector[i];
        if (!isNamedElement(elem))
            continue;
        auto piece = sink.piece();
        piece.word(elem.hostName).blankNumber(elem.numSlots);
        if (!sink.reserve(piece.need(), std::max(sink.size() / 2, piece.need()), 6108))
            return false;
        sink.append(piece.str());
    }

    // The creator is written even when empty, leaving two blanks ahead of the
    // description; the reader recognises that case.
    if (!sink.reserve(kCreatorRoom, kCreatorRoom, 6109))
        return false;
    sink.append(sink.piece().word(std::string_view(ent->creator, strnlen(ent->creator, kCreatorSize - 1))).str());

    const char *description = ent->description;
    const int descNeed = description ? static_cast<int>(std::strlen(description)) + kQuoteRoom : kQuoteRoom;
    if (!sink.reserve(descNeed, descNeed, 6109))
        return false;
    if (description) {
        if (!sink.description(description, descNeed))
            return false;
    } else {
        sink.append(" \"\"");
    }
    return writeDurationsAndActivation(ent, sink);
}

// The tail of the record: the disabled durations and the activation time.
template <typename Sink>
bool writeDurationsAndActivation(const RsvEnt *ent, Sink &sink)
{
    if (!sink.reserve(kCountRoom, kCountRoom, 6109))
        return false;
    List *durations = ent->disabledDurations;
    if (!durations || durations->numEnts < 1) {
        sink.append(" 0");
    } else {
        // Ten characters were set aside for the count, but a count of nine or
        // more digits needs more.
        auto count = sink.piece();
        count.blankNumber(durations->numEnts);
        if (!sink.reserve(count.need(), count.need(), 6109))
            return false;
        sink.append(count.str());
        ListIterator iter;
        listIteratorAttach(&iter, durations);
        for (ListEntry *le = listIteratorGetCurEntry(&iter); le; le = listIteratorNext(&iter)) {
            const auto *dd = reinterpret_cast<const RsvDisableDuration *>(le);
            auto piece = sink.piece();
            piece.blankNumber(dd->firstDay.mday)
                .blankNumber(dd->firstDay.wday)
                .blankNumber(dd->firstDay.mon)
                .blankNumber(dd->firstDay.year)
                .blankNumber(dd->lastDay.mday)
                .blankNumber(dd->lastDay.wday)
                .blankNumber(dd->lastDay.mon)
                .blankNumber(dd->lastDay.year);
            if (!sink.reserve(piece.need(), piece.need(), 6109))
                return false;
            sink.append(piece.str());
        }
    }

    auto active = sink.piece();
    active.blankNumber(ent->activeTime > 0 ? static_cast<int>(ent->activeTime) : 0);
    if (!sink.reserve(active.need(), active.need(), 6109))
        return false;
    sink.append(active.str());
    return true;
}


constexpr const char *kReader = "RsvEnt_newByString";

enum class ReadStatus { Failed, Complete, Partial, More };

// Reads one record into a fresh entry, field kind by field kind. Each step
// returns More to go on, or how the record ended: Failed (malformed or out
// of memory, logged), Complete, or Partial (a current record that stops
// after the creator).
class RecordReader {
public:
    RecordReader(const char *text, RsvEnt *ent) : text_(text), ent_(ent), cursor_(text) {}

    ReadStatus read()
    {
        ReadStatus status = readHeader();
        if (status == ReadStatus::More)
            status = readHosts();
        if (status == ReadStatus::More)
            status = readCreator();
        if (status == ReadStatus::More)
            status = readDescription();
        if (status == ReadStatus::More)
            status = readDurations();
        if (status == ReadStatus::More)
            status = readActiveTime();
        return status;
    }

private:
    ReadStatus noMemory()
    {
        logAllocFailure(kReader, "calloc");
        qob_errno = RSV_ERR_NO_MEMORY;
        return ReadStatus::Failed;
    }
    ReadStatus malformed(int number, const char *at)
    {
        logWrongFormat(number, at);
        return ReadStatus::Failed;
    }

    // "version createTime options rsvId name window numHosts auxValue"; a
    // record of the old format has no auxValue.
    ReadStatus readHeader()
    {
        char version[kVersionWordSize];
        char rsvIdWord[kIdWordSize];
        char nameWord[kNameWordSize];
        char windowWord[kTimeWindowWordSize];
        int createTime = 0;
        int auxValue = 0;
        auto scanHeader = [&](Scan &scan) -> Scan & {
            return scan.word(version, sizeof version)
                .integer(&createTime)
                .integer(&ent_->options)
                .word(rsvIdWord, sizeof rsvIdWord)
                .word(nameWord, sizeof nameWord)
                .word(windowWord, sizeof windowWord)
                .integer(&numHosts_);
        };
        Scan header(text_);
        scanHeader(header).integer(&auxValue);
        int consumed = header.consumed();
        if (header.count() == 7) {
            kx_syslog(KX_LOG_WARNING,
                      kx_catgets(kx_catd, rsv::kCatSetRsv, 6116, "%s: the reservation string <%s> has the old format"),
                      kReader, text_);
            Scan old(text_);
            if (scanHeader(old).count() != 7)
                return malformed(6110, text_);
            consumed = old.consumed();
            auxValue = 0;
        } else if (header.count() != 8) {
            return malformed(6111, text_);
        }
        if (numHosts_ < 0)
            return malformed(6111, text_);

        version_ = std::atof(version);
        std::free(ent_->name);
        ent_->name = nullptr;
        std::free(ent_->timeWindow);
        ent_->timeWindow = nullptr;
        ent_->createTime = static_cast<time_t>(createTime);
        ent_->auxValue = auxValue;
        ent_->rsvId = rsv::dupText(rsvIdWord);
        ent_->name = rsv::dupText(nameWord);
        ent_->timeWindow = rsv::dupText(windowWord);
        if (!ent_->rsvId || !ent_->name || !ent_->timeWindow)
            return noMemory();
        ent_->duration = RsvTimeWindow_toDuration(ent_->timeWindow);
        cursor_.advance(consumed);
        return ReadStatus::More;
    }

    // numHosts_ pairs "host slots", host names made official.
    ReadStatus readHosts()
    {
        // Every host takes at least three characters of text, so no more
        // elements are needed than the rest of the record can hold; this
        // keeps an absurd host count from asking for an absurd block.
        const int hostRoom = static_cast<int>(std::min<size_t>(cursor_.left() / 3 + 1, INT_MAX));
        const int numElems = std::min(numHosts_, hostRoom);
        if (numElems > 0) {
            ent_->allocVector = static_cast<AllocElem *>(rsv::allocRecord(numElems, sizeof(AllocElem), kReader));
            if (!ent_->allocVector)
                return noMemory();
        }
        // Until every host is read, numHosts counts the elements allocated,
        // which is what a destroy of the half-built entry walks.
        ent_->numHosts = numElems;
        for (int i = 0; i < numHosts_; ++i) {
            char hostWord[kHostWordSize];
            int slots = 0;
            Scan host(cursor_.get());
            host.word(hostWord, sizeof hostWord).integer(&slots);
            if (host.count() != 2 || i >= numElems || slots < 0)
                return malformed(6112, cursor_.get());
            AllocElem &elem = ent_->allocVector[i];
            elem.hostName = miscFuncs.officialHostName ? miscFuncs.officialHostName(hostWord) : nullptr;
            if (!elem.hostName)
                elem.hostName = rsv::dupText(hostWord);
            if (!elem.hostName)
                return noMemory();
            elem.numSlots = slots;
            cursor_.advance(host.consumed() + 1);
        }
        ent_->numHosts = numHosts_;
        return version_ > kVersionWithCreator ? ReadStatus::More : ReadStatus::Complete;
    }

    ReadStatus readCreator()
    {
        // An entry made by RsvTimeTbl_addEntry has an empty creator, which the
        // writer leaves as two blanks ahead of the description. Taking the
        // next word as the creator would swallow the description, so a blank
        // where the creator should start means "no creator" and the cursor
        // stays for the description.
        const char *at = cursor_.get();
        bool emptyCreator;
        if (numHosts_ > 0) {
            emptyCreator = at[0] == ' ';
        } else {
            // After the header the cursor still stands on the separator.
            emptyCreator = at[0] == ' ' && at[1] == ' ';
            if (emptyCreator)
                cursor_.advance(1);
        }
        int creatorConsumed = 0;
        if (emptyCreator) {
            ent_->creator[0] = '\0';
        } else {
            Scan creator(cursor_.get());
            creator.word(ent_->creator, kCreatorSize);
            if (creator.count() != 1)
                return malformed(6113, cursor_.get());
            creatorConsumed = creator.consumed();
        }
        if (!(version_ > kVersionWithDescription))
            return ReadStatus::Complete;
        cursor_.advance(creatorConsumed + 1);
        return ReadStatus::More;
    }

    ReadStatus readDescription()
    {
        rsv::CPtr<char> scratch(static_cast<char *>(rsv::allocRecord(1, cursor_.left() + 1, kReader)));
        if (!scratch)
            return noMemory();
        const int quoted = stripQStr(cursor_.get(), scratch.get());
        if (quoted < 0)
            return ReadStatus::Partial;
        // An empty description reads back as none, as RsvTimeTbl_addEntry
        // stores it, so the restored entry equals the one written.
        if (scratch.get()[0] != '\0') {
            ent_->description = rsv::dupText(scratch.get());
            if (!ent_->description)
                return noMemory();
        }
        cursor_.advance(quoted + 1);
        return ReadStatus::More;
    }

    // "count" and count groups of eight day numbers.
    ReadStatus readDurations()
    {
        int numDurations = 0;
        Scan count(cursor_.get());
        count.integer(&numDurations);
        if (count.count() != 1)
            return malformed(6113, cursor_.get());
        lastConsumed_ = count.consumed();
        if (numDurations <= 0)
            return ReadStatus::More;
        ent_->disabledDurations = listCreate("disabledDurations");
        if (!ent_->disabledDurations) {
            logAllocFailure(kReader, "listCreate");
            qob_errno = RSV_ERR_NO_MEMORY;
            return ReadStatus::Failed;
        }
        for (int i = 0; i < numDurations; ++i) {
            cursor_.advance(lastConsumed_ + 1);
            rsv::CPtr<RsvDisableDuration> dd(
                static_cast<RsvDisableDuration *>(rsv::allocRecord(1, sizeof(RsvDisableDuration), kReader)));
            if (!dd)
                return noMemory();
            Scan days(cursor_.get());
            days.integer(&dd->firstDay.mday)
                .integer(&dd->firstDay.wday)
                .integer(&dd->firstDay.mon)
                .integer(&dd->firstDay.year)
                .integer(&dd->lastDay.mday)
                .integer(&dd->lastDay.wday)
                .integer(&dd->lastDay.mon)
                .integer(&dd->lastDay.year);
            if (days.count() != 8)
                return malformed(6113, cursor_.get());
            if (listInsertEntryAtBack(ent_->disabledDurations, &dd->links) < 0) {
                logAllocFailure(kReader, "listInsertEntryAtBack");
                return ReadStatus::Failed;
            }
            dd.release();
            lastConsumed_ = days.consumed();
        }
        return ReadStatus::More;
    }

    ReadStatus readActiveTime()
    {
        cursor_.advance(lastConsumed_ + 1);
        int activeTime = 0;
        Scan active(cursor_.get());
        active.integer(&activeTime);
        if (active.count() != 1)
            return malformed(6113, cursor_.get());
        ent_->activeTime = static_cast<time_t>(activeTime);
        return ReadStatus::Complete;
    }

    const char *text_;
    RsvEnt *ent_;
    Cursor cursor_;
    int numHosts_ = 0;
    double version_ = 0;
    int lastConsumed_ = 0;
};

} // namespace

namespace rsv {

void RsvEnt_appendRecords(const RsvEnt *const *ents, size_t count, std::string &out)
{
    TextSink sink(out);
    for (size_t i = 0; i < count; ++i) {
        // The next records' entries, loaded while this one is written.
        if (i + 4 < count)
            __builtin_prefetch(ents[i + 4]);
        writeRecord(ents[i], sink);
        sink.append("\n");
    }
}

} // namespace rsv

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
    RecordBuf sbuf;
    if (!sbuf.init(static_cast<int>(std::strlen(orEmpty(ent->name)) + std::strlen(orEmpty(ent->rsvId)) + 512)))
        return nullptr;
    BufferSink sink(sbuf);
    try {
        if (!writeRecord(ent, sink))
            return nullptr;
    } catch (const std::bad_alloc &) {
        // A piece of the record could not be built: the buffer is released
        // on the way out, as for any other shortage.
        rsv::noteAllocationFailure();
        logAllocFailure(__func__, "calloc");
        qob_errno = RSV_ERR_NO_MEMORY;
        return nullptr;
    }
    return sbuf.release();
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
    RsvEnt *ent = RsvEnt_new(0, "", "");
    if (!ent) {
        logAllocFailure(kReader, "calloc");
        qob_errno = RSV_ERR_NO_MEMORY;
        return nullptr;
    }
    RecordReader reader(text ? text : "", ent);
    const ReadStatus status = reader.read();
    if (status == ReadStatus::Partial)
        kx_syslog(KX_LOG_WARNING,
                  kx_catgets(kx_catd, rsv::kCatSetRsv, 6117,
                             "%s: missing data for reservation <%s>, initializing the reservation with the "
                             "available data"),
                  kReader, orEmpty(ent->rsvId));
    if (status == ReadStatus::Failed) {
        RsvEnt_destroy(ent);
        std::free(ent);
        return nullptr;
    }
    return ent;
}

} // extern "C"
