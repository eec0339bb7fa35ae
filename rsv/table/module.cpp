// Module start-up: the daemon's services table, and what the module keeps
// per table beyond the record the daemon sees.
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <unordered_map>

#include "rsv_internal.h"

namespace {

using SettingsMap = std::unordered_map<const RsvTimeTbl *, std::unique_ptr<rsv::TableSettings>>;

// Never destroyed, so that a table freed by a static object's destructor at
// exit still finds it. Made in place: an empty map allocates nothing, so the
// first use cannot throw (it may come from a call that frees a table).
SettingsMap &settingsMap()
{
    alignas(SettingsMap) static unsigned char storage[sizeof(SettingsMap)];
    static SettingsMap *all = new (storage) SettingsMap;
    return *all;
}

// Off by default: a daemon built against the 32-bit reading of window points
// keeps it.
bool wideTimesOn = false;

} // namespace

namespace rsv {

bool wideTimes() noexcept
{
    return wideTimesOn;
}

TableSettings *tableSettings(const RsvTimeTbl *tbl, bool create) noexcept
{
    if (!tbl)
        return nullptr;
    SettingsMap &all = settingsMap();
    auto it = all.find(tbl);
    if (it != all.end())
        return it->second.get();
    if (!create)
        return nullptr;
    try {
        auto made = std::make_unique<TableSettings>();
        TableSettings *result = made.get();
        all.emplace(tbl, std::move(made));
        return result;
    } catch (...) {
        noteAllocationFailure();
        return nullptr;
    }
}

void dropTableSettings(const RsvTimeTbl *tbl) noexcept
{
    settingsMap().erase(tbl);
}

} // namespace rsv

extern "C" {

RsvMiscFuncs miscFuncs;

// Installs the daemon's nine services by value; a second call replaces them.
// A NULL table is ignored so that the module never runs on a half-filled one.
void RsvMod_init(const RsvMiscFuncs *services)
{
    if (!services)
        return;
    miscFuncs = *services;
}

int RsvMod_setWideTimes(int wide)
{
    int previous = wideTimesOn ? 1 : 0;
    wideTimesOn = wide != 0;
    return previous;
}

int RsvMod_wideTimes(void)
{
    return wideTimesOn ? 1 : 0;
}

} // extern "C"
