// The parts of the batch library the reservation module uses.
#include "qob_batch.h"

#include <cstdlib>

extern "C" {

int qob_errno = 0;

// Frees the command text and the record and sets *cmd to NULL, so a second
// call on the same pointer does nothing. NULL, *cmd NULL and a NULL command
// text are all accepted.
void qob_freeRsvExecCmd(RsvExecCmd **cmd)
{
    if (!cmd || !*cmd)
        return;
    std::free((*cmd)->command);
    (*cmd)->command = nullptr;
    std::free(*cmd);
    *cmd = nullptr;
}

} // extern "C"
