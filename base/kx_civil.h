// kx_civil.h: proleptic Gregorian dates from day counts, for the base
// library's date helpers and the module's own calendar arithmetic. C++ only;
// not part of the daemon's interface.
#ifndef KX_CIVIL_H
#define KX_CIVIL_H

#include <cstdint>

namespace kx {

struct Civil {
    int64_t year;
    int month; // 1..12
    int day;
};

// The date of day `days` after 1 January 1970 (negative: before it).
Civil civilFromDays(int64_t days);

} // namespace kx

#endif
