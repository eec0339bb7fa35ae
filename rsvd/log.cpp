// log.cpp: one structured line per event.
#include "log.h"

#include <cstdio>
#include <string>

#include "qob.rsvimpl.h"

namespace rsvd {

namespace {

bool plainWord(const std::string &text)
{
    if (text.empty())
        return false;
    for (char c : text)
        if (c <= ' ' || c == '"' || c == '=' || c == '\\' || static_cast<unsigned char>(c) >= 0x7f)
            return false;
    return true;
}

void moduleLine(int level, const char *line)
{
    logEvent("module", {{"level", level}, {"msg", line ? line : ""}});
}

} // namespace

void logEvent(std::string_view event, const nlohmann::json &fields)
{
    std::string line = "rsvd: event=";
    line.append(event);
    for (const auto &[key, value] : fields.items()) {
        line += ' ';
        line += key;
        line += '=';
        if (value.is_string()) {
            const std::string &text = value.get_ref<const std::string &>();
            line += plainWord(text) ? text : value.dump();
        } else {
            line += value.dump();
        }
    }
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
}

void installModuleLog()
{
    kx_setLogSink(&moduleLine);
}

} // namespace rsvd
