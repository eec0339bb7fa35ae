// signals.h: a change and the printing of its result run with SIGINT,
// SIGTERM and SIGHUP held back, so an operator's Ctrl-C, a shutdown or a
// closed terminal never stops rsvctl between a save and the line that
// reports it.
#ifndef RSVCTL_SIGNALS_H
#define RSVCTL_SIGNALS_H

namespace rsvctl {

// Block SIGINT, SIGTERM and SIGHUP until releaseChangeSignals (a second
// call while they are held does nothing).
void holdChangeSignals();

// Flush standard output and standard error, then put the signal mask back
// as it was: a signal that arrived meanwhile takes effect now, after the
// result is out.
void releaseChangeSignals();

// Whether the signals are held (for tests of the command paths).
bool changeSignalsHeld();

} // namespace rsvctl

#endif
