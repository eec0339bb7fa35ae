// restorebook.cpp: booking the start-up's reservations one host at a time.
// Start-up books every reservation of the state file into planners that do
// not exist yet. Booking them one map call per reservation and week searches
// the host's list for each week, walks it for each recurring window, and
// books every recurring window again into each new week. With all of a
// host's reservations at hand, its weeks are made once, each booking finds
// its planner directly, and when no recurring reservation of the host has
// disabled days its recurring bookings are made once and copied to every
// week, which then holds exactly what booking them week by week gives.
#include <new>
#include <vector>

#include "planner/restorebook.h"
#include "planner_internal.h"
#include "rsv_internal.h"

namespace {

bool isRecurring(const RsvEnt *ent)
{
    return (ent->options & RSV_OPT_RECURRING) != 0;
}

bool hasDisabledDays(const RsvEnt *ent)
{
    return ent->disabledDurations && ent->disabledDurations->numEnts > 0;
}

// The planner of every week a one-off share reaches, in the order its
// bookings would reach them.
struct ShareWeeks {
    size_t share;
    rsv::CPtr<RsvWeek> weeks;
    int numWeeks;
    std::vector<ResPlanner *> planners; // NULL where none could be made
};

// The host's dated planners by week, in list order.
class WeekPlanners {
public:
    explicit WeekPlanners(List *list, const char *hostName) : list_(list), hostName_(hostName) {}

    // The planner of `week`, made empty at the back of the list when the
    // list has none; NULL when memory runs out.
    ResPlanner *of(const RsvWeek &week)
    {
        // Most bookings reach the week the previous one reached.
        for (size_t i = made_.size(); i-- > 0;)
            if (RsvWeek_equal(&made_[i]->week, &week))
                return made_[i];
        ResPlanner *planner = ResPlanner_new(hostName_, &week);
        if (!planner)
            return nullptr;
        listInsertEntryAtBack(list_, &planner->links);
        made_.push_back(planner);
        return planner;
    }
    const std::vector<ResPlanner *> &all() const { return made_; }

private:
    List *list_;
    const char *hostName_;
    std::vector<ResPlanner *> made_;
};

// Adds the cells of `from` to those of `to`, as booking `from`'s windows
// into `to` would (counts wrap as the cell operations narrow them).
void addCells(ResPlanner *to, const ResPlanner *from)
{
    for (int d = 0; d < RSV_PLANNER_DAYS; ++d)
        for (int s = 0; s < RSV_PLANNER_SLOTS_PER_DAY; ++s)
            to->slots[d][s].reserved = static_cast<int>(static_cast<unsigned>(to->slots[d][s].reserved) +
                                                        static_cast<unsigned>(from->slots[d][s].reserved));
}

} // namespace

namespace rsv {

void bookNewHostList(RsvTimeTbl *tbl, List *list, const char *hostName, const HostShare *shares, size_t count)
{
    if (!list || !hostName)
        return;
    ResPlanner *zero = plannerOfWeek(list, &rsvWeekRecur);
    try {
        // The weeks, made in the order the one-off bookings reach them; no
        // recurring booking makes a week.
        WeekPlanners dated(list, hostName);
        std::vector<ShareWeeks> oneOffs;
        bool sameEveryWeek = true;
        for (size_t i = 0; i < count; ++i) {
            const RsvEnt *ent = shares[i].ent;
            if (!ent->timeWindow)
                continue;
            if (isRecurring(ent)) {
                sameEveryWeek = sameEveryWeek && !hasDisabledDays(ent);
                continue;
            }
            ShareWeeks sw{i, nullptr, 0, {}};
            sw.weeks.reset(RsvTimeWindow_getWeeks(ent->timeWindow, &sw.numWeeks));
            if (!sw.weeks)
                continue;
            sw.planners.reserve(static_cast<size_t>(sw.numWeeks));
            for (int w = 0; w < sw.numWeeks; ++w)
                sw.planners.push_back(dated.of(sw.weeks.get()[w]));
            oneOffs.push_back(std::move(sw));
        }

        // Recurring bookings: into the zero week and copied to every week
        // when they are the same in every week, else week by week with each
        // reservation's disabled days.
        for (size_t i = 0; i < count; ++i) {
            RsvEnt *ent = shares[i].ent;
            if (!ent->timeWindow || !isRecurring(ent))
                continue;
            const int slots = ent->allocVector[shares[i].elem].numSlots;
            if (sameEveryWeek && zero)
                ResPlanner_map(zero, ent->timeWindow, ResPlannerEnt_incr, slots, ent);
            else
                ResPlannerList_map(list, tbl, hostName, ent->timeWindow, 1, ResPlannerEnt_incr, slots, 1, ent);
        }
        if (sameEveryWeek && zero)
            for (ResPlanner *planner : dated.all())
                addCells(planner, zero);

        // One-off bookings, each into the part of its window in each week.
        for (const ShareWeeks &sw : oneOffs) {
            RsvEnt *ent = shares[sw.share].ent;
            const int slots = ent->allocVector[shares[sw.share].elem].numSlots;
            for (int w = 0; w < sw.numWeeks; ++w) {
                CPtr<char> window(RsvWeek_getOverlapTimeWindow(&sw.weeks.get()[w], ent->timeWindow));
                if (window && sw.planners[static_cast<size_t>(w)])
                    ResPlanner_map(sw.planners[static_cast<size_t>(w)], window.get(), ResPlannerEnt_incr, slots, ent);
            }
        }
    } catch (const std::bad_alloc &) {
        noteAllocationFailure();
    }
}

} // namespace rsv
