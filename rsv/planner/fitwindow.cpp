// fitwindow.cpp: the moving parts of the one-off search: the starts in time
// order with the cells each window covers, a reader of one host's cells, and
// the most booked count of a window kept as the window moves.
#include <algorithm>

#include "earliest_internal.h"

namespace rsv::fit {

namespace {

int64_t positiveMod(int64_t a, int64_t b)
{
    const int64_t r = a % b;
    return r < 0 ? r + b : r;
}

} // namespace

// The first time at or after `from` that is a 10-minute boundary of the
// local clock (the offset only changes between segments of the clock).
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

// While the offset of starts and ends stays the same, each start's window
// is the one before moved by one cell: the next (cell - first) windows all
// hold `cell`.
void Starts::passOver(int64_t cell, int64_t first)
{
    if (!started_ || cell <= first)
        return;
    int64_t n = cell - first;
    n = std::min<int64_t>(n, (startUntil_ - 1 - current_) / kCellSeconds);
    n = std::min<int64_t>(n, (endUntil_ - 1 - length_ - current_) / kCellSeconds);
    if (n > 0)
        current_ += static_cast<time_t>(n) * kCellSeconds;
}

int CellReader::load(int64_t cell)
{
    const int64_t week = weekOfCell(cell);
    week_ = book_->week(week);
    weekBase_ = firstCellOfWeek(week);
    if (!week_) {
        failed_ = true;
        return 0;
    }
    return week_[cell - weekBase_].reserved;
}

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

void WindowMax::push(int64_t cell)
{
    const int value = reader_.at(cell);
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

} // namespace rsv::fit
