// rsv_internal.h: what the module's units share and a daemon never sees.
#ifndef RSV_INTERNAL_H
#define RSV_INTERNAL_H

#include <cstdlib>
#include <memory>

#include "qob.rsvimpl.h"

// The daemon's services, copied by RsvMod_init. Every allocation, string copy
// and host or job look-up of the module goes through this table.
extern "C" RsvMiscFuncs miscFuncs;

namespace rsv {

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

// The current time, through the replaceable clock.
inline time_t now() { return kx_now(); }

// Whether any of `bits` is on in the global log-class mask.
inline bool logOn(int bits) { return (logclass & bits) != 0; }

} // namespace rsv

#endif
