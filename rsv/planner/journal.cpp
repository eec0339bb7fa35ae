// journal.cpp: the planner lists of a table as they were when a change began,
// copied the first time the change reaches each host, so that a change that
// fails part-way (or whose save fails) can put every cell back exactly.
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>

#include "planner_internal.h"
#include "rsv_internal.h"

namespace {

using rsv::NameHash;

struct Journal {
    RsvTimeTbl *tbl = nullptr;
    // Host -> its list as it was (NULL: the host had no list).
    std::unordered_map<std::string, List *, NameHash, std::equal_to<>> saved;
};

// One change at a time: the module is single-threaded and changes do not nest.
Journal *active = nullptr;

void destroyPlannerElement(void *planner)
{
    ResPlanner_destroy(static_cast<ResPlanner *>(planner));
}

void destroyList(List *list)
{
    rsv::forgetWeekIndex(list);
    if (list)
        listDestroy(list, destroyPlannerElement);
}

// A deep copy of `list` (planners and their names). NULL when memory runs out.
List *copyList(List *list)
{
    List *copy = listCreate(list->name);
    if (!copy) {
        rsv::noteAllocationFailure();
        return nullptr;
    }
    for (ListEntry *e = list->forw; e != reinterpret_cast<ListEntry *>(list); e = e->forw) {
        const auto *from = reinterpret_cast<const ResPlanner *>(e);
        auto *to = static_cast<ResPlanner *>(rsv::allocRecord(1, sizeof(ResPlanner), "ResPlannerList_copy"));
        char *name = to ? rsv::dupText(from->plannerName ? from->plannerName : "") : nullptr;
        if (!name) {
            std::free(to);
            destroyList(copy);
            return nullptr;
        }
        std::memcpy(to, from, sizeof(ResPlanner));
        to->plannerName = name;
        listInsertEntryAtBack(copy, &to->links);
    }
    return copy;
}

} // namespace

namespace rsv {

bool PlannerJournal_begin(RsvTimeTbl *tbl) noexcept
{
    if (active)
        return false;
    active = new (std::nothrow) Journal;
    if (!active) {
        noteAllocationFailure();
        return false;
    }
    active->tbl = tbl;
    return true;
}

bool PlannerJournal_record(RsvTimeTbl *tbl, const char *hostName, List *current) noexcept
{
    if (!active || active->tbl != tbl)
        return true;
    if (active->saved.find(std::string_view(hostName)) != active->saved.end())
        return true;
    List *copy = nullptr;
    if (current && !(copy = copyList(current)))
        return false;
    try {
        active->saved.emplace(std::string(hostName), copy);
    } catch (...) {
        destroyList(copy);
        noteAllocationFailure();
        return false;
    }
    return true;
}

void PlannerJournal_end(bool restore) noexcept
{
    if (!active)
        return;
    Journal *j = active;
    active = nullptr;
    for (auto &[host, before] : j->saved) {
        if (!restore) {
            destroyList(before);
            continue;
        }
        HashEnt *he = h_getEnt_(&j->tbl->plannerLists, host.c_str());
        if (he) {
            destroyList(static_cast<List *>(he->value));
            if (before)
                he->value = before;
            else
                h_delEnt_(&j->tbl->plannerLists, he);
        } else if (before) {
            // No step of a change drops a host's list; should one ever, the
            // list comes back under its name.
            if (HashEnt *added = h_addEnt_(&j->tbl->plannerLists, host.c_str(), nullptr))
                added->value = before;
            else
                destroyList(before);
        }
    }
    delete j;
    if (restore)
        noteRecurringChange();
}

} // namespace rsv
