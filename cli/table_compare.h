// table_compare.h: whether two tables are the same as far as the files and
// the planners go: the state text each would write, and every planner cell.
#ifndef RSVCTL_TABLE_COMPARE_H
#define RSVCTL_TABLE_COMPARE_H

#include <string>
#include <vector>

#include "qob.rsvimpl.h"

namespace rsvctl {

// The lines the table's state file would hold, in table order: one record
// per reservation (RsvEnt_ToString), entries keyed with '@' left out as the
// module's writer does. Throws CliError when a record cannot be built.
std::vector<std::string> stateLines(RsvTimeTbl *tbl);

// What differs between `memory` and `disk` (a table loaded from the files),
// one phrase per kind of difference: reservations only in one of them, the
// same reservations written differently or in another order, hosts with
// planners in one only, planner weeks or cells that differ. Empty when the
// two would write the same state text and hold the same planner cells.
std::vector<std::string> tableDifferences(RsvTimeTbl *memory, RsvTimeTbl *disk);

} // namespace rsvctl

#endif
