// log.h: rsvd's log: one line per event on standard error, "rsvd: event=NAME
// key=value ...", values that are not plain words written as JSON strings,
// so that journald and a reader with a shell can both take them apart.
#ifndef RSVD_LOG_H
#define RSVD_LOG_H

#include <string_view>

#include <nlohmann/json.hpp>

namespace rsvd {

void logEvent(std::string_view event, const nlohmann::json &fields = nlohmann::json::object());

// The module's own log lines (reconfiguration findings among them) as events.
void installModuleLog();

} // namespace rsvd

#endif
