// earliest_oneoff.cpp: the earliest one-off window. Every 10-minute boundary
// of the local clock from notBefore on is a start; its window covers the
// local clock cells from its start's cell up to its end rounded up, which is
// exactly what the planners of its weeks book.
//
// The search runs in two passes. The first looks for the fit: a cell at
// which even the hosts' free slots of that cell alone could not make the
// request (a "blocked" cell) turns down every window holding it, so the
// starts whose windows hold the last blocked cell found are passed over at
// once, and each cell is judged at most once while the windows move on;
// only a window without a blocked cell is counted exactly, each host's
// most booked cell kept in a monotonic queue that moves with the starts.
// On a busy host a year is crossed in about (cells / window length) steps.
// When nothing fits, a second pass counts every start exactly, in blocks,
// for the closest start and what held it back.
#include <algorithm>
#include <cstdio>

#include "earliest_internal.h"

namespace rsv::fit {

namespace {

constexpr int kLargestBlock = 1024;

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

// Cells at which the hosts' own free slots of that cell could not make the
// request: any window holding one is turned down, whatever the rest holds.
class Blocked {
public:
    Blocked(std::vector<HostBook> &books, const std::vector<AskedHost> &hosts, const Rule &rule)
        : hosts_(hosts), rule_(rule)
    {
        readers_.reserve(books.size());
        for (HostBook &book : books)
            readers_.emplace_back(book);
    }
    // Whether [first, last) holds a blocked cell; the last one found is
    // lastBlocked(). Cells found free of blocks are not read again while the
    // windows move forward.
    bool within(int64_t first, int64_t last);
    int64_t lastBlocked() const { return lastBlocked_; }
    bool failed() const;

private:
    bool blocked(int64_t cell);

    const std::vector<AskedHost> &hosts_;
    const Rule &rule_;
    std::vector<CellReader> readers_;
    int64_t lastBlocked_ = INT64_MIN;
    int64_t clearFrom_ = 0; // cells [clearFrom_, clearTo_) hold no block
    int64_t clearTo_ = 0;
};

bool Blocked::blocked(int64_t cell)
{
    int64_t total = 0;
    for (size_t i = 0; i < readers_.size(); ++i) {
        const int used = std::max(readers_[i].at(cell), 0);
        if (rule_.system && used != 0)
            return true;
        total += rule_.offered(hosts_[i].capacity, used);
    }
    return !rule_.accepts(total);
}

bool Blocked::within(int64_t first, int64_t last)
{
    if (last <= first)
        return false;
    if (lastBlocked_ >= first && lastBlocked_ < last)
        return true;
    const bool clearStart = clearFrom_ <= first && first < clearTo_;
    const int64_t known = clearStart ? clearTo_ : first;
    for (int64_t c = last - 1; c >= known; --c) {
        if (blocked(c)) {
            lastBlocked_ = c;
            clearFrom_ = c + 1;
            clearTo_ = last;
            return true;
        }
    }
    clearFrom_ = clearStart ? clearFrom_ : first;
    clearTo_ = std::max(known, last);
    return false;
}

bool Blocked::failed() const
{
    for (const CellReader &r : readers_)
        if (r.failed())
            return true;
    return false;
}

// The exact reservable total of one window; false when a system request
// finds a booking.
bool exactTotal(std::vector<WindowMax> &windows, const std::vector<AskedHost> &hosts, const Rule &rule,
                int64_t first, int64_t last, int64_t &total)
{
    total = 0;
    for (size_t i = 0; i < windows.size(); ++i) {
        const int used = windows[i].used(first, last);
        if (rule.system && used != 0)
            return false;
        total += rule.offered(hosts[i].capacity, used);
    }
    return true;
}

// The first pass: the earliest start that fits, if any.
int firstFit(std::vector<HostBook> &books, std::vector<HostBook> &probes, const std::vector<AskedHost> &hosts,
             const Rule &rule, Starts &starts, Outcome &out)
{
    std::vector<WindowMax> windows;
    windows.reserve(books.size());
    for (HostBook &book : books)
        windows.emplace_back(book);
    Blocked blocked(probes, hosts, rule);
    time_t start = 0;
    int64_t first = 0;
    int64_t last = 0;
    while (starts.next(start, first, last)) {
        if (blocked.within(first, last)) {
            starts.passOver(blocked.lastBlocked(), first);
            continue;
        }
        int64_t total = 0;
        if (exactTotal(windows, hosts, rule, first, last, total) && rule.accepts(total)) {
            out = Outcome{true, Rule::reservable(total), start, first, last};
            break;
        }
    }
    for (const WindowMax &w : windows)
        if (w.failed())
            return RSV_ERR_NO_MEMORY;
    if (blocked.failed())
        return RSV_ERR_NO_MEMORY;
    return starts.failed() ? RSV_ERR_BAD_ARGUMENT : RSV_OK;
}

// The second pass, when nothing fits: every start counted exactly, for the
// first start with the most slots.
int closest(std::vector<HostBook> &books, const std::vector<AskedHost> &hosts, const Rule &rule, Starts &starts,
            Outcome &out)
{
    std::vector<WindowMax> windows;
    windows.reserve(books.size());
    for (HostBook &book : books)
        windows.emplace_back(book);
    Block block(kLargestBlock);
    while (takeStarts(starts, block, kLargestBlock)) {
        for (size_t i = 0; i < hosts.size(); ++i) {
            offerHost(windows[i], hosts[i].capacity, rule, block);
            if (windows[i].failed())
                return RSV_ERR_NO_MEMORY;
        }
        judge(block, rule, out);
    }
    return starts.failed() ? RSV_ERR_BAD_ARGUMENT : RSV_OK;
}

} // namespace

int searchOneOff(RsvTimeTbl *tbl, const std::vector<AskedHost> &hosts, const Rule &rule, const Changing *changing,
                 time_t notBefore, time_t notAfter, int durationMinutes, RsvFit *result)
{
    const time_t length = static_cast<time_t>(durationMinutes) * 60;
    // Two books per host: each reader keeps its own weeks.
    std::vector<HostBook> books(hosts.size());
    std::vector<HostBook> probes(hosts.size());
    for (size_t i = 0; i < hosts.size(); ++i) {
        books[i].init(tbl, &hosts[i], changing);
        probes[i].init(tbl, &hosts[i], changing);
    }
    LocalClock clock;
    Outcome out;
    Starts starts(clock, notBefore, notAfter, length);
    int error = firstFit(books, probes, hosts, rule, starts, out);
    if (error == RSV_OK && !out.found) {
        Starts again(clock, notBefore, notAfter, length);
        error = closest(books, hosts, rule, again, out);
    }
    if (error != RSV_OK)
        return error;
    return answer(hosts, books, rule, out, clock, length, result);
}

} // namespace rsv::fit
