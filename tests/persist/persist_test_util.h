// Helpers shared by the record, state-file and restart tests: building
// entries by hand and comparing two entries field by field.
#ifndef PERSIST_TEST_UTIL_H
#define PERSIST_TEST_UTIL_H

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "rsv_test_support.h"

namespace persisttest {

using EntryPtr = rsv::Entry;

struct Host {
    std::string name;
    int slots;
};

inline void addDuration(RsvEnt *ent, tmDay first, tmDay last)
{
    if (!ent->disabledDurations)
        ent->disabledDurations = listCreate("disabledDurations");
    auto *dd = static_cast<RsvDisableDuration *>(std::calloc(1, sizeof(RsvDisableDuration)));
    dd->firstDay = first;
    dd->lastDay = last;
    listInsertEntryAtBack(ent->disabledDurations, &dd->links);
}

// An entry as the daemon's add path would hold it.
inline rsv::Entry makeEntry(const std::string &rsvId, const std::string &owner, const std::string &window,
                          const std::vector<Host> &hosts, const char *creator = "", const char *description = nullptr,
                          int options = 0)
{
    rsv::Entry ent(RsvEnt_new(options, owner.c_str(), window.c_str()));
    ent->rsvId = strdup(rsvId.c_str());
    ent->numHosts = static_cast<int>(hosts.size());
    if (!hosts.empty()) {
        ent->allocVector = static_cast<AllocElem *>(std::calloc(hosts.size(), sizeof(AllocElem)));
        for (size_t i = 0; i < hosts.size(); ++i) {
            ent->allocVector[i].hostName = strdup(hosts[i].name.c_str());
            ent->allocVector[i].numSlots = hosts[i].slots;
        }
    }
    std::snprintf(ent->creator, sizeof ent->creator, "%s", creator);
    if (description)
        ent->description = strdup(description);
    return ent;
}

inline std::string toString(const RsvEnt *ent)
{
    char *text = RsvEnt_ToString(ent);
    std::string out = text ? text : "<NULL>";
    std::free(text);
    return out;
}

inline std::string durationsText(const RsvEnt *ent)
{
    std::string out;
    if (!ent->disabledDurations)
        return "none";
    ListIterator iter;
    listIteratorAttach(&iter, ent->disabledDurations);
    for (ListEntry *le = listIteratorGetCurEntry(&iter); le; le = listIteratorNext(&iter)) {
        auto *dd = reinterpret_cast<RsvDisableDuration *>(le);
        out += "[" + std::to_string(dd->firstDay.mday) + "," + std::to_string(dd->firstDay.wday) + "," +
               std::to_string(dd->firstDay.mon) + "," + std::to_string(dd->firstDay.year) + ";" +
               std::to_string(dd->lastDay.mday) + "," + std::to_string(dd->lastDay.wday) + "," +
               std::to_string(dd->lastDay.mon) + "," + std::to_string(dd->lastDay.year) + "]";
    }
    return out.empty() ? "none" : out;
}

inline const char *str(const char *s) { return s ? s : "<NULL>"; }

// Every field the record carries, compared one by one.
inline ::testing::AssertionResult entriesEqual(const RsvEnt *a, const RsvEnt *b)
{
    auto fail = [&](const std::string &field, const std::string &x, const std::string &y) {
        return ::testing::AssertionFailure() << str(a->rsvId) << ": " << field << " differs: <" << x << "> vs <"
                                             << y << ">";
    };
    if (a->createTime != b->createTime)
        return fail("createTime", std::to_string(a->createTime), std::to_string(b->createTime));
    if (a->activeTime != b->activeTime)
        return fail("activeTime", std::to_string(a->activeTime), std::to_string(b->activeTime));
    if (std::strcmp(str(a->version), str(b->version)) != 0)
        return fail("version", str(a->version), str(b->version));
    if (a->options != b->options)
        return fail("options", std::to_string(a->options), std::to_string(b->options));
    if (a->auxValue != b->auxValue)
        return fail("auxValue", std::to_string(a->auxValue), std::to_string(b->auxValue));
    if (std::strcmp(str(a->rsvId), str(b->rsvId)) != 0)
        return fail("rsvId", str(a->rsvId), str(b->rsvId));
    if (std::strcmp(str(a->name), str(b->name)) != 0)
        return fail("name", str(a->name), str(b->name));
    if (std::strcmp(str(a->timeWindow), str(b->timeWindow)) != 0)
        return fail("timeWindow", str(a->timeWindow), str(b->timeWindow));
    if (a->duration != b->duration)
        return fail("duration", std::to_string(a->duration), std::to_string(b->duration));
    if (a->numHosts != b->numHosts)
        return fail("numHosts", std::to_string(a->numHosts), std::to_string(b->numHosts));
    for (int i = 0; i < a->numHosts; ++i) {
        if (std::strcmp(str(a->allocVector[i].hostName), str(b->allocVector[i].hostName)) != 0)
            return fail("host " + std::to_string(i), str(a->allocVector[i].hostName),
                        str(b->allocVector[i].hostName));
        if (a->allocVector[i].numSlots != b->allocVector[i].numSlots)
            return fail("slots " + std::to_string(i), std::to_string(a->allocVector[i].numSlots),
                        std::to_string(b->allocVector[i].numSlots));
    }
    if (std::strncmp(a->creator, b->creator, sizeof a->creator) != 0)
        return fail("creator", a->creator, b->creator);
    if ((a->description == nullptr) != (b->description == nullptr) ||
        (a->description && std::strcmp(a->description, b->description) != 0))
        return fail("description", str(a->description), str(b->description));
    if (durationsText(a) != durationsText(b))
        return fail("disabledDurations", durationsText(a), durationsText(b));
    return ::testing::AssertionSuccess();
}

} // namespace persisttest

#endif
