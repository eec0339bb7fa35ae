// STUB: generated placeholder; replace each function with its implementation.
#include "rsv_internal.h"

extern "C" {

char *RsvEnt_ToString(const RsvEnt *ent)
{
    (void)ent; return {};
}

RsvEnt *RsvEnt_newByString(const char *text)
{
    (void)text; return {};
}

} // extern "C"
