// rsv_internal.h: what the module's units share and a daemon never sees.
#ifndef RSV_INTERNAL_H
#define RSV_INTERNAL_H

#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "qob.rsvimpl.h"

// The daemon's services, copied by RsvMod_init. Every allocation, string copy
// and host or job look-up of the module goes through this table.
extern "C" RsvMiscFuncs miscFuncs;

namespace rsv {

// Hashes texts for the module's maps keyed by std::string, so that a look-up
// by a C text or a view makes no std::string of it (with std::equal_to<>).
struct NameHash {
    using is_transparent = void;
    size_t operator()(std::string_view text) const noexcept { return std::hash<std::string_view>{}(text); }
};

// Catalogue sets of the module's messages.
inline constexpr int kCatSetRsv = 37;
inline constexpr int kCatSetShared = 33;

// Slot limit that means "no limit configured": capacity falls back to numCpus.
inline constexpr int kUnlimitedSlots = 2147483647;

// Size of the id-file name buffer: a 1024-character path, the new extension
// and the terminator.
inline constexpr int kMaxStateFileName = 1024;
inline constexpr int kIdFileBufSize = 1029;

// Owns a block from malloc/calloc/allocZeroed/dupString; frees it with free.
struct FreeDeleter {
    void operator()(void *p) const noexcept { std::free(p); }
};
template <typename T>
using CPtr = std::unique_ptr<T, FreeDeleter>;

// Every block the module makes for a record comes from here: the daemon's
// allocZeroed and dupString services (calloc and strdup before RsvMod_init).
// Each NULL result is counted, so that a change can tell afterwards that it
// ran short somewhere on the way, even where a step only skipped its work.
void *allocRecord(int count, size_t size, const char *caller) noexcept;
char *dupText(const char *text) noexcept;
// Failures counted so far; a change compares it before and after.
unsigned long allocationFailures() noexcept;
// Count a failure that did not come from the two calls above (a C++
// container of the module that could not grow).
void noteAllocationFailure() noexcept;

// What the module keeps per table beyond the record the daemon sees.
struct TableSettings {
    bool durable = false;
    // The last failed durable save: its errno, file and step.
    int saveErrno = 0;
    std::string saveFile;
    const char *saveStep = "";
    // Which of the two files (id file, state file) the last durable save
    // found missing before it replaced them.
    bool idFileWasMissing = false;
    bool stateFileWasMissing = false;
    // RsvTimeTbl_trimPastWeeks has dropped the planners of the weeks over by
    // this time (0: never trimmed); the verification expects none there.
    time_t trimmedBefore = 0;
    // The text of the last durable save, empty but keeping its room: a
    // daemon saves the whole table at every change, and a fresh block of
    // that size costs more in page faults than the records cost to write.
    std::string stateText;
    // The entries in insertion order as the last save saw them, with the
    // last one seen and the entry table's delStamp then: entries only ever
    // join at the end, and any removal changes the stamp, so the list is
    // exact while the stamp holds. Walking the table's linked order costs a
    // cache miss per entry that a daemon would pay at every change.
    std::vector<HashEnt *> order;
    HashEnt *orderLast = nullptr;
    unsigned long long orderStamp = 0;
};
// The settings of `tbl`, made on first use when `create`; NULL when absent
// (or when memory runs out).
TableSettings *tableSettings(const RsvTimeTbl *tbl, bool create) noexcept;
// Forget them (the table is being freed).
void dropTableSettings(const RsvTimeTbl *tbl) noexcept;
inline bool isDurable(const RsvTimeTbl *tbl) noexcept
{
    const TableSettings *s = tableSettings(tbl, false);
    return s && s->durable;
}

// Release an entry the module made: its members, then the record.
inline void freeEntry(RsvEnt *ent)
{
    RsvEnt_destroy(ent);
    std::free(ent);
}

// The current time, through the replaceable clock.
inline time_t now() { return kx_now(); }

// Whether one-off window points are read as 64-bit seconds (RsvMod_setWideTimes).
bool wideTimes() noexcept;

// Whether any of `bits` is on in the global log-class mask.
inline bool logOn(int bits) { return (logclass & bits) != 0; }

// Take the days of `rec` out of the recurring entry's disabled durations,
// cutting a duration in two where they lie inside it; an emptied list is
// destroyed (field NULL). 1 when a day was disabled; 0 when none was (list
// unchanged); -1 with qob_errno RSV_ERR_NO_MEMORY (list unchanged).
int removeDisabledDays(RsvEnt *ent, const RsvDisableDuration &rec) noexcept;

// Enable the days of `rec` for the recurring entry again and book its slots
// on them: its bookings leave every host's planners, the days leave its
// disabled durations, and each host must then have the entry's slots free
// over its window (its remaining disabled days skipped) for them to be
// booked back. 0; or -1 with qob_errno RSV_ERR_NOT_DISABLED (none of the
// days was disabled: nothing changed), RSV_ERR_NO_MEMORY (nothing changed)
// or RSV_ERR_NOT_ENOUGH_SLOTS, which leaves the new list and the bookings
// out of the planners for the caller's rsv::Change to put back.
int enableDisabledDays(RsvTimeTbl *tbl, RsvEnt *ent, const RsvDisableDuration &rec) noexcept;

} // namespace rsv

#endif
