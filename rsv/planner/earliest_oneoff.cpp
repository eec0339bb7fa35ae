// earliest_oneoff.cpp: the earliest one-off window. Every 10-minute boundary
// of the local clock from notBefore on is a start; its window covers the
// local clock cells from its start's cell up to its end rounded up, which is
// exactly what the planners of its weeks book. Each asked host keeps the
// most booked cell of the current window in a monotonic queue that moves
// with the starts, so one start costs each host about one cell read;
// starts are taken in blocks so that the search stops soon after the first
// fit.
#include <algorithm>
#include <cstdio>

#include "earliest_internal.h"

namespace rsv::fit {

namespace {

constexpr int kFirstBlock = 16;
constexpr int kLargestBlock = 1024;

int64_t positiveMod(int64_t a, int64_t b)
{
    const int64_t r = a % b;
    return r < 0 ? r + b : r;
}

// The starts of the range in time order, each with its window's cells.
class Starts {
public:
    Starts(LocalClock &clock, time_t notBefore, time_t notAfter, time_t length)
        : clock_(clock), from_(notBefore), notAfter_(notAfter), length_(length)
    {
    }
    // The next start and its window's cells [first, last); false at the end
    // of the range or when a time has no local time (failed()).
    bool next(time_t &start, int64_t &first, int64_t &last);
    bool failed() const { return failed_; }

private:
    bool alignedFrom(time_t from, time_t &start);

    LocalClock &clock_;
    time_t from_;
    time_t notAfter_;
    time_t length_;
    bool started_ = false;
    bool failed_ = false;
    time_t current_ = 0;
    long startOffset_ = 0;
    time_t startUntil_ = 0;
    long endOffset_ = 0;
    time_t endUntil_ = 0;
    bool endKnown_ = false;
};

// The first time at or after `from` that is a 10-minute boundary of the
// local clock (offsets change only between segments of the clock).
bool Starts::alignedFrom(time_t from, time_t &start)
{
    for (time_t x = from; x < notAfter_;) {
        long offset = 0;
        time_t until = 0;
        if (!clock_.offsetAt(x, offset, until)) {
            failed_ = true;
            return false;
        }
        const time_t aligned = x + positiveMod(-(static_cast<int64_t>(x) + offset), kCellSeconds);
        if (aligned < until) {
            start = aligned;
            startOffset_ = offset;
            startUntil_ = until;
            return true;
        }
        x = until;
    }
    return false;
}

bool Starts::next(time_t &start, int64_t &first, int64_t &last)
{
    if (started_ && current_ + kCellSeconds < startUntil_) {
        start = current_ + kCellSeconds;
    } else if (!alignedFrom(started_ ? current_ + 1 : from_, start)) {
        return false;
    }
    if (start >= notAfter_)
        return false;
    started_ = true;
    current_ = start;
    const time_t end = start + length_;
    if (!endKnown_ || end >= endUntil_) {
        if (!clock_.offsetAt(end, endOffset_, endUntil_)) {
            failed_ = true;
            return false;
        }
        endKnown_ = true;
    }
    first = startCell(static_cast<int64_t>(start) + startOffset_);
    last = endCell(static_cast<int64_t>(end) + endOffset_);
    return true;
}

// The most booked count over a window of one host's cells, kept in a
// monotonic queue (cells with falling counts) as the window moves forward.
// A window that moves back (the clock put back) starts the queue again.
class WindowMax {
public:
    explicit WindowMax(HostBook &book) : book_(book) { grow(); }
    int used(int64_t first, int64_t last);
    bool failed() const { return failed_; }

private:
    int count(int64_t cell);
    void push(int64_t cell);
    void grow();

    HostBook &book_;
    std::vector<int64_t> cells_; // ring of (cell, count), counts falling
    std::vector<int> counts_;
    size_t head_ = 0;
    size_t size_ = 0;
    size_t mask_ = 0;
    int64_t first_ = INT64_MIN; // cells [first_, last_) have been pushed
    int64_t last_ = INT64_MIN;
    int64_t weekBase_ = 0;
    const ResPlannerEnt *week_ = nullptr;
    bool failed_ = false;
};

void WindowMax::grow()
{
    const size_t capacity = cells_.empty() ? 64 : cells_.size() * 2;
    std::vector<int64_t> cells(capacity);
    std::vector<int> counts(capacity);
    for (size_t i = 0; i < size_; ++i) {
        cells[i] = cells_[(head_ + i) & mask_];
        counts[i] = counts_[(head_ + i) & mask_];
    }
    cells_.swap(cells);
    counts_.swap(counts);
    head_ = 0;
    mask_ = capacity - 1;
}

int WindowMax::count(int64_t cell)
{
    const int64_t at = cell - weekBase_;
    if (week_ && at >= 0 && at < kCellsPerWeek)
        return week_[at].reserved;
    const int64_t week = weekOfCell(cell);
    week_ = book_.week(week);
    weekBase_ = firstCellOfWeek(week);
    if (!week_) {
        failed_ = true;
        return 0;
    }
    return week_[cell - weekBase_].reserved;
}

void WindowMax::push(int64_t cell)
{
    const int value = count(cell);
    while (size_ > 0 && counts_[(head_ + size_ - 1) & mask_] <= value)
        --size_;
    if (size_ == cells_.size())
        grow();
    const size_t at = (head_ + size_) & mask_;
    cells_[at] = cell;
    counts_[at] = value;
    ++size_;
}

int WindowMax::used(int64_t first, int64_t last)
{
    if (last <= first)
        return 0; // a window the planners book nothing of
    if (first < first_ || last < last_ || first >= last_) {
        size_ = 0;
        last_ = first;
    }
    for (; last_ < last; ++last_)
        push(last_);
    first_ = first;
    while (size_ > 0 && cells_[head_] < first) {
        head_ = (head_ + 1) & mask_;
        --size_;
    }
    return size_ > 0 && counts_[head_] > 0 ? counts_[head_] : 0;
}

// Starts taken together, with each one's summed offer.
struct Block {
    std::vector<time_t> start;
    std::vector<int64_t> first;
    std::vector<int64_t> last;
    std::vector<int64_t> total;
    std::vector<char> refused;
    int size = 0;

    explicit Block(size_t capacity)
        : start(capacity), first(capacity), last(capacity), total(capacity), refused(capacity)
    {
    }
};

// Fill the block with up to `wanted` starts; false when there is none.
bool takeStarts(Starts &starts, Block &block, int wanted)
{
    block.size = 0;
    while (block.size < wanted) {
        const auto k = static_cast<size_t>(block.size);
        if (!starts.next(block.start[k], block.first[k], block.last[k]))
            break;
        block.total[k] = 0;
        block.refused[k] = 0;
        ++block.size;
    }
    return block.size > 0;
}

void offerHost(WindowMax &window, int capacity, const Rule &rule, Block &block)
{
    for (size_t k = 0; k < static_cast<size_t>(block.size); ++k) {
        const int used = window.used(block.first[k], block.last[k]);
        block.total[k] += rule.offered(capacity, used);
        if (rule.system && used != 0)
            block.refused[k] = 1;
    }
}

// The best start so far, and the fitting one once found.
struct Outcome {
    bool found = false;
    int total = -1;
    time_t start = 0;
    int64_t first = 0;
    int64_t last = 0;
};

void judge(const Block &block, const Rule &rule, Outcome &out)
{
    for (size_t k = 0; k < static_cast<size_t>(block.size); ++k) {
        const int reached = block.refused[k] ? 0 : Rule::reservable(block.total[k]);
        const bool fits = !block.refused[k] && rule.accepts(block.total[k]);
        if (fits || reached > out.total) {
            out.total = reached;
            out.start = block.start[k];
            out.first = block.first[k];
            out.last = block.last[k];
        }
        if (fits) {
            out.found = true;
            return;
        }
    }
}

// One host's most booked cell over [first, last), read cell by cell.
HostUse useOf(HostBook &book, int64_t first, int64_t last, bool &ok)
{
    HostUse use;
    int64_t week = INT64_MIN;
    const ResPlannerEnt *cells = nullptr;
    for (int64_t c = first; c < last; ++c) {
        if (weekOfCell(c) != week) {
            week = weekOfCell(c);
            cells = book.week(week);
            if (!cells) {
                ok = false;
                return use;
            }
        }
        const int value = cells[c - firstCellOfWeek(week)].reserved;
        if (value > use.used) {
            use.used = value;
            use.cell = c;
        }
    }
    return use;
}

// The first time in [start, end) whose local clock cell is `cell` or, for a
// cell the clock skips, the first time after it.
bool timeOfCell(LocalClock &clock, int64_t cell, time_t start, time_t end, time_t &at)
{
    const int64_t wall = cell * kCellSeconds;
    for (time_t x = start; x < end;) {
        long offset = 0;
        time_t until = 0;
        if (!clock.offsetAt(x, offset, until))
            return false;
        const time_t segmentEnd = std::min(until, end);
        if (startCell(static_cast<int64_t>(segmentEnd - 1) + offset) >= cell) {
            at = std::max<time_t>(x, static_cast<time_t>(wall - offset));
            return true;
        }
        x = until;
    }
    at = start;
    return true;
}

// Fill the answer from the outcome: the window and allocation of a fit, or
// what held the best start back.
int answer(const std::vector<AskedHost> &hosts, std::vector<HostBook> &books, const Rule &rule, const Outcome &out,
           LocalClock &clock, time_t length, RsvFit *result)
{
    result->bestTotal = out.total < 0 ? 0 : out.total;
    result->bestStart = out.total < 0 ? 0 : out.start;
    if (out.total < 0)
        return RSV_OK; // no start in the range at all
    bool ok = true;
    std::vector<HostUse> uses(hosts.size());
    std::vector<int> avail(hosts.size());
    for (size_t i = 0; i < hosts.size(); ++i) {
        uses[i] = useOf(books[i], out.first, out.last, ok);
        avail[i] = rule.offered(hosts[i].capacity, uses[i].used);
    }
    if (!ok)
        return RSV_ERR_NO_MEMORY;
    if (out.found) {
        char text[64];
        std::snprintf(text, sizeof text, "%lld-%lld", static_cast<long long>(out.start),
                      static_cast<long long>(out.start + length));
        result->found = 1;
        result->start = out.start;
        result->end = out.start + length;
        result->timeWindow = dupText(text);
        if (!result->timeWindow || !fillAllocation(hosts, avail, rule, result))
            return RSV_ERR_NO_MEMORY;
        return RSV_OK;
    }
    const int limit = fillLimitHost(hosts, uses, rule, result, &ok);
    if (!ok)
        return RSV_ERR_NO_MEMORY;
    if (limit >= 0 && uses[static_cast<size_t>(limit)].cell >= 0) {
        const int64_t cell = uses[static_cast<size_t>(limit)].cell;
        if (!timeOfCell(clock, cell, out.start, out.start + length, result->limitCell))
            return RSV_ERR_BAD_ARGUMENT;
        weekRecord(weekOfCell(cell), &result->limitWeek);
    }
    return RSV_OK;
}

} // namespace

int searchOneOff(RsvTimeTbl *tbl, const std::vector<AskedHost> &hosts, const Rule &rule, const Changing *changing,
                 time_t notBefore, time_t notAfter, int durationMinutes, RsvFit *result)
{
    const time_t length = static_cast<time_t>(durationMinutes) * 60;
    std::vector<HostBook> books(hosts.size());
    std::vector<WindowMax> windows;
    windows.reserve(hosts.size());
    for (size_t i = 0; i < hosts.size(); ++i) {
        books[i].init(tbl, &hosts[i], changing);
        windows.emplace_back(books[i]);
    }
    LocalClock clock;
    Starts starts(clock, notBefore, notAfter, length);
    Block block(kLargestBlock);
    Outcome out;
    for (int wanted = kFirstBlock; !out.found && takeStarts(starts, block, wanted);
         wanted = std::min(wanted * 2, kLargestBlock)) {
        for (size_t i = 0; i < hosts.size(); ++i) {
            offerHost(windows[i], hosts[i].capacity, rule, block);
            if (windows[i].failed())
                return RSV_ERR_NO_MEMORY;
        }
        judge(block, rule, out);
    }
    if (starts.failed())
        return RSV_ERR_BAD_ARGUMENT;
    return answer(hosts, books, rule, out, clock, length, result);
}

} // namespace rsv::fit
