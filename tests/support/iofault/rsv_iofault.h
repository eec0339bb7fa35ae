/* rsv_iofault.h: an I/O fault layer for tests of durable saves.
 *
 * librsv_iofault.so wraps open (open, open64, openat, openat64, __open_2,
 * __open64_2), write, fsync (fsync, fdatasync), close and rename (rename,
 * renameat, renameat2) and makes the nth call of one kind fail with a chosen
 * errno. Only calls on paths under one directory (the directory itself
 * included, so the fsync of the directory counts as an fsync) and on the
 * descriptors opened there count; every other call goes straight to the C
 * library, found with dlsym(RTLD_NEXT).
 *
 * Two ways to use it:
 *
 * 1. Preloaded into a program (LD_PRELOAD=.../librsv_iofault.so), armed from
 *    the environment when the library is loaded:
 *      RSV_IOFAULT="op=fsync,nth=1,errno=ENOSPC"
 *          op      open, write, fsync, close or rename
 *          nth     the first matching call that fails, counting from 1
 *          errno   a name (ENOSPC, EIO, EDQUOT, EROFS, EACCES, ...) or a
 *                  number; 0 or absent: the call is not failed (only
 *                  delayed, see delay_ms)
 *          times   how many matching calls fail from the nth on (default 1;
 *                  0: every one from the nth on, a fault that stays)
 *          delay_ms  sleep this long before each chosen call (after the
 *                  descriptor bookkeeping, before failing or passing it on)
 *      RSV_IOFAULT_DIR=<dir>  only calls under <dir> count (default: all)
 *      RSV_IOFAULT_LOG=<file> one line per chosen call is appended:
 *          "fail <op> <n> <path> <errno-name>" or "delay <op> <n> <path>"
 *    In a program built with AddressSanitizer, ASAN_OPTIONS must hold
 *    verify_asan_link_order=0, since the sanitizer's run-time then no longer
 *    comes first in the library list.
 *
 * 2. Linked into a test program, armed from the inside with the calls
 *    below. Matching calls are counted from the moment of arming.
 */
#ifndef RSV_IOFAULT_H
#define RSV_IOFAULT_H

#ifdef __cplusplus
extern "C" {
#endif

/* Make the nth call of kind `op` ("open", "write", "fsync", "close",
 * "rename") on a path under `dir` (NULL: any path) fail with `err`, once.
 * Resets the counts. A NULL or unknown `op` disarms. */
void rsv_iofault_arm(const char *op, int nth, int err, const char *dir);

/* The same from a text of the RSV_IOFAULT form. 0, or -1 when the text is
 * malformed (then disarmed). */
int rsv_iofault_arm_text(const char *fault, const char *dir);

/* Stop failing and delaying calls; counts are kept. */
void rsv_iofault_disarm(void);

/* Calls failed since arming. */
int rsv_iofault_hits(void);

/* Matching calls (of the armed kind, under the directory) seen since
 * arming, failed or not. */
int rsv_iofault_calls(void);

#ifdef __cplusplus
}
#endif

#endif
