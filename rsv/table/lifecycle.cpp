// lifecycle.cpp: the reservation table's constructor and destructor, and the
// id-file name that the state-file name fixes.
#include <cstdio>
#include <cstring>

#include "persist/persist_internal.h"
#include "planner/planner_internal.h"
#include "rsv_internal.h"

namespace {

constexpr int kTableBuckets = 37;

// The id file sits next to the state file: everything from the last '.' of
// the whole path on becomes ".ids".
constexpr char kIdSuffix[] = "ids";

void destroyPlannerElement(void *planner)
{
    ResPlanner_destroy(static_cast<ResPlanner *>(planner));
}

void destroyPlannerList(void *list)
{
    listDestroy(static_cast<List *>(list), destroyPlannerElement);
}

void destroyEntry(void *entry)
{
    rsv::freeEntry(static_cast<RsvEnt *>(entry));
}

// Builds the id-file name from the state-file name; NULL when out of memory.
// A name without any '.' has no id file: the result is then "".
char *idFileNameOf(const char *stateFile)
{
    rsv::CPtr<char> buf(static_cast<char *>(rsv::allocRecord(rsv::kIdFileBufSize, 1, "RsvTimeTbl_new")));
    if (!buf)
        return nullptr;
    // The caller has already refused names longer than kMaxStateFileName, so
    // the name, the suffix and the terminator always fit.
    std::snprintf(buf.get(), rsv::kIdFileBufSize, "%s", stateFile);
    char *dot = std::strrchr(buf.get(), '.');
    if (!dot)
        return rsv::dupText("");
    std::memcpy(dot + 1, kIdSuffix, sizeof kIdSuffix);
    return buf.release();
}

} // namespace

extern "C" {

// A new empty table owned by the caller (release it with RsvTimeTbl_free).
// NULL with nothing allocated when the name is longer than 1024 characters
// (error logged) or when the daemon's allocator fails (qob_errno 55).
RsvTimeTbl *RsvTimeTbl_new(const char *stateFile)
{
    static constexpr const char *kFunc = "RsvTimeTbl_new";
    if (stateFile) {
        size_t length = std::strlen(stateFile);
        if (length > static_cast<size_t>(rsv::kMaxStateFileName)) {
            // A longer name cannot be paired with its id file in the fixed
            // buffer; cutting it would pair the wrong files, so refuse it.
            kx_syslog(KX_LOG_ERR, "%s: state file name of %zu characters is longer than %d; no table created",
                      kFunc, length, rsv::kMaxStateFileName);
            return nullptr;
        }
    }

    rsv::CPtr<RsvTimeTbl> tbl(static_cast<RsvTimeTbl *>(rsv::allocRecord(1, sizeof(RsvTimeTbl), kFunc)));
    if (!tbl) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return nullptr;
    }
    rsv::CPtr<char> state(rsv::dupText(stateFile ? stateFile : ""));
    rsv::CPtr<char> id(stateFile ? idFileNameOf(stateFile) : rsv::dupText(""));
    if (!state || !id) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return nullptr;
    }
    h_initTab_(&tbl->entries, kTableBuckets);
    h_initTab_(&tbl->plannerLists, kTableBuckets);
    tbl->stateFile = state.release();
    tbl->idFile = id.release();
    return tbl.release();
}

// Releases a table from RsvTimeTbl_new with every entry (members and record),
// every planner list with its planners and their names, both hash tables, the
// file names and the record. NULL is ignored. Not for temporary tables, whose
// entries and planner names are shared: use RsvTimeTbl_freeTmpTable there.
void RsvTimeTbl_free(RsvTimeTbl *tbl)
{
    if (!tbl)
        return;
    rsv::dropRecurringIndex(tbl);
    rsv::OwnerIndex_drop(tbl);
    rsv::dropLazyPlanners(tbl);
    rsv::dropTableSettings(tbl);
    h_freeTab_(&tbl->entries, destroyEntry);
    h_freeTab_(&tbl->plannerLists, destroyPlannerList);
    free(tbl->stateFile);
    free(tbl->idFile);
    free(tbl);
}

} // extern "C"
