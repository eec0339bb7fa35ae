// rsvd: the reference daemon. Holds the state directory's table in memory
// for its whole life, serves rsvctl's commands over a Unix socket to
// whoever the socket says is asking, and runs the reservations' lifecycle
// on time.
#include "daemon.h"

int main(int argc, char **argv)
{
    return rsvd::run(argc, argv);
}
