/* The one clock of the module and the base library: every read of the current
 * time goes through kx_now(), which a daemon or a test can replace. */
#ifndef KX_CLOCK_H
#define KX_CLOCK_H

#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif
#if defined(__GNUC__) || defined(__clang__)
#pragma GCC visibility push(default) /* the library's public surface */
#endif

/* The current time, from the installed clock (`time` by default). */
time_t kx_now(void);

/* Replace the clock; NULL restores `time`. */
void RsvMod_setClock(time_t (*now)(void));

#if defined(__GNUC__) || defined(__clang__)
#pragma GCC visibility pop
#endif
#ifdef __cplusplus
}
#endif
#endif
