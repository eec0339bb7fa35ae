/* The parts of the scheduler's batch library that the reservation module
 * uses: the error-number global and the reservation command record. */
#ifndef QOB_BATCH_H
#define QOB_BATCH_H

#ifdef __cplusplus
extern "C" {
#endif
#if defined(__GNUC__) || defined(__clang__)
#pragma GCC visibility push(default) /* the library's public surface */
#endif

/* The last error number of a batch or reservation call. */
extern int qob_errno;

/* A command that the daemon runs at a reservation's start or end. */
typedef struct RsvExecCmd {
    int when;      /* the daemon's own code for when to run it */
    char *command; /* owned */
} RsvExecCmd;

/* Free *cmd and its command text and set *cmd to NULL; safe on NULL and on a
 * field that is already NULL, so the field may be freed again. */
void qob_freeRsvExecCmd(RsvExecCmd **cmd);

#if defined(__GNUC__) || defined(__clang__)
#pragma GCC visibility pop
#endif
#ifdef __cplusplus
}
#endif
#endif
