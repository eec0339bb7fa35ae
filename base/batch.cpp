// STUB: generated placeholder; replace each function with its implementation.
#include "qob_batch.h"

extern "C" {

int qob_errno;

void qob_freeRsvExecCmd(RsvExecCmd **cmd)
{
    (void)cmd;
}

} // extern "C"
