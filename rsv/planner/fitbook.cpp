// fitbook.cpp: one asked host's booked counts, week by week, as
// RsvTimeTbl_addEntry reads them, without touching the table: dated planners
// are read in place (or copied when the changing reservation has to come
// out), and a week without a planner is made in a scratch planner the way
// ResPlannerList_map makes a temporary one.
#include <cstring>

#include "earliest_internal.h"
#include "planner_internal.h"

namespace rsv::fit {

namespace {

int keptIndex(int64_t week, int kept)
{
    const int64_t r = week % kept;
    return static_cast<int>(r < 0 ? r + kept : r);
}

bool namesHost(const AllocElem &elem, const char *hostName)
{
    return elem.hostName && std::strcmp(elem.hostName, hostName) == 0;
}

} // namespace

ResPlanner *newScratchPlanner()
{
    return static_cast<ResPlanner *>(allocRecord(1, sizeof(ResPlanner), "RsvTimeTbl_findEarliest"));
}

bool Changing::init(RsvEnt *ent)
{
    ent_ = ent;
    weeks_.clear();
    if (!ent || (ent->options & RSV_OPT_RECURRING) || !ent->timeWindow)
        return true;
    const unsigned long failures = allocationFailures();
    int numWeeks = 0;
    CPtr<RsvWeek> weeks(RsvTimeWindow_getWeeks(ent->timeWindow, &numWeeks));
    if (!weeks)
        return allocationFailures() == failures; // a window without weeks booked nothing
    weeks_.assign(weeks.get(), weeks.get() + numWeeks);
    return true;
}

bool Changing::inWeeks(const RsvWeek &week) const
{
    for (const RsvWeek &w : weeks_)
        if (RsvWeek_equal(&w, &week))
            return true;
    return false;
}

bool Changing::holds(const ResPlanner *planner, const char *hostName) const
{
    if (!ent_ || !ent_->allocVector)
        return false;
    const bool recurring = ent_->options & RSV_OPT_RECURRING;
    if (!recurring && (planner->week.startYear == 0 || !inWeeks(planner->week)))
        return false;
    for (int i = 0; i < ent_->numHosts; ++i)
        if (namesHost(ent_->allocVector[i], hostName))
            return true;
    return false;
}

// Rsv_dealloc maps the reservation's window over the host's list: a
// recurring one over every planner, a one-off one over the part of its
// window in each of its weeks.
bool Changing::release(ResPlanner *planner, const char *hostName) const
{
    if (!holds(planner, hostName))
        return true;
    const bool recurring = ent_->options & RSV_OPT_RECURRING;
    CPtr<char> window(recurring ? nullptr : RsvWeek_getOverlapTimeWindow(&planner->week, ent_->timeWindow));
    if (!recurring && !window)
        return false;
    const char *text = recurring ? ent_->timeWindow : window.get();
    for (int i = 0; i < ent_->numHosts; ++i) {
        const AllocElem &elem = ent_->allocVector[i];
        if (namesHost(elem, hostName))
            ResPlanner_map(planner, text, ResPlannerEnt_decr, elem.numSlots, ent_);
    }
    return true;
}

// ResPlanner_addRecurs books every share of a recurring reservation whose
// host name matches; the same shares come out again.
void Changing::releaseFromNew(ResPlanner *planner, const char *hostName) const
{
    if (!ent_ || !(ent_->options & RSV_OPT_RECURRING) || !ent_->allocVector)
        return;
    for (int i = 0; i < ent_->numHosts; ++i) {
        const AllocElem &elem = ent_->allocVector[i];
        if (namesHost(elem, hostName))
            ResPlanner_map(planner, ent_->timeWindow, ResPlannerEnt_decr, elem.numSlots, ent_);
    }
}

HostBook::~HostBook()
{
    for (Kept &k : kept_)
        std::free(k.copy);
    std::free(uniform_);
}

void HostBook::init(RsvTimeTbl *tbl, const AskedHost *host, const Changing *changing)
{
    tbl_ = tbl;
    host_ = host;
    changing_ = changing;
    sameEveryWeek_ = recurringSharesSameEveryWeek(tbl, host->official.get());
}

ResPlanner *HostBook::scratch(ResPlanner *&slot)
{
    if (!slot)
        slot = newScratchPlanner();
    return slot;
}

// A week without a dated planner: a new planner of that week holding the
// host's recurring bookings (ResPlannerList_map's temporary planner), less
// the changing reservation's share.
const ResPlannerEnt *HostBook::newWeek(const RsvWeek &week, ResPlanner *&slot)
{
    ResPlanner *planner = scratch(slot);
    if (!planner)
        return nullptr;
    std::memset(planner->slots, 0, sizeof planner->slots);
    planner->week = week;
    ResPlanner_addRecurs(planner, tbl_, host_->official.get());
    if (changing_)
        changing_->releaseFromNew(planner, host_->official.get());
    return planner->slots[0];
}

const ResPlannerEnt *HostBook::week(int64_t week)
{
    Kept &k = kept_[keptIndex(week, kKept)];
    if (k.week == week && k.cells)
        return k.cells;
    k.week = INT64_MIN;
    k.cells = nullptr;
    RsvWeek record{};
    weekRecord(week, &record);
    auto *dated = host_->list ? reinterpret_cast<ResPlanner *>(
                                    listSearchEntry(host_->list, &record, ResPlanner_equal, 0))
                              : nullptr;
    if (dated && (!changing_ || !changing_->holds(dated, host_->asked))) {
        k.cells = dated->slots[0];
    } else if (dated) {
        ResPlanner *copy = scratch(k.copy);
        if (!copy)
            return nullptr;
        copy->week = dated->week;
        std::memcpy(copy->slots, dated->slots, sizeof copy->slots);
        if (!changing_->release(copy, host_->asked))
            return nullptr;
        k.cells = copy->slots[0];
    } else if (sameEveryWeek_) {
        // Every new week starts with the same counts: made once.
        if (!uniform_ && !newWeek(record, uniform_))
            return nullptr;
        k.cells = uniform_->slots[0];
    } else {
        k.cells = newWeek(record, k.copy);
    }
    if (k.cells)
        k.week = week;
    return k.cells;
}

} // namespace rsv::fit
