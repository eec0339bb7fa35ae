// STUB: generated placeholder; replace each function with its implementation.
#include "rsv_internal.h"


extern "C" {

RsvMiscFuncs miscFuncs;

void RsvMod_init(const RsvMiscFuncs *services)
{
    (void)services;
}

RsvTimeTbl *RsvTimeTbl_new(const char *stateFile)
{
    (void)stateFile; return {};
}

void RsvTimeTbl_free(RsvTimeTbl *tbl)
{
    (void)tbl;
}

} // extern "C"
