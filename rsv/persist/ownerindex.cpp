// The reservations of each owner in a table, kept between identifier
// searches so that a new identifier does not walk every entry.
//
// The index gives exactly what the walk of RsvId_new counts: an owner's own
// identifiers in the table's order (the search compares against them in that
// order), and per word before a '#' how many identifiers carry it. It stays
// exact because:
//  - entries added to a table are taken in on next use, from the last entry
//    seen to the end of the table's insertion order;
//  - entries the module removes leave through OwnerIndex_delEnt, which takes
//    them out of the index too; any other removal (or the table emptied or
//    initialised) changes the table's delStamp, and the index is made again;
//  - a record replaced in place (noteRecurringChange) or an owner renamed
//    (RsvEnt_updateWithMod) makes it again as well.
// A table's first search walks as before and only asks for the index: a
// front end that adds one reservation per process pays nothing for it.
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "persist/persist_internal.h"
#include "planner/planner_internal.h"
#include "rsv_internal.h"
#include "timewin/timewin_internal.h"

namespace {

struct OwnEntry {
    const RsvEnt *ent;
    int number;  // after the '#'; 0 for an identifier without one
};

struct ViewHash {
    using is_transparent = void;
    size_t operator()(std::string_view text) const noexcept { return std::hash<std::string_view>{}(text); }
};

struct OwnerIndex {
    bool wanted = false;
    bool made = false;
    unsigned long long delStamp = 0;
    unsigned long long records = 0;
    unsigned long long renames = 0;
    HashEnt *last = nullptr;  // the last entry taken in
    std::vector<const HashEnt *> recordless;  // keys taken in without a record
    std::unordered_map<std::string, std::vector<OwnEntry>, ViewHash, std::equal_to<>> byOwner;
    // Identifiers with a '#', by the word before it (whoever owns them).
    std::unordered_map<std::string, int, ViewHash, std::equal_to<>> byWord;
};

// Made in place and never destroyed, so that a table freed by a static
// object's destructor at exit still finds the map.
using OwnerIndexes = std::unordered_map<const RsvTimeTbl *, OwnerIndex>;
OwnerIndexes &indexes()
{
    alignas(OwnerIndexes) static unsigned char storage[sizeof(OwnerIndexes)];
    static OwnerIndexes *all = new (storage) OwnerIndexes;
    return *all;
}

const RsvEnt *recordOf(const HashEnt *he)
{
    const auto *ent = he ? static_cast<const RsvEnt *>(he->value) : nullptr;
    return ent && ent->rsvId ? ent : nullptr;
}

// Throws std::bad_alloc.
void takeIn(OwnerIndex &index, const RsvEnt *ent)
{
    const char *hash = std::strchr(ent->rsvId, '#');
    if (ent->name) {
        auto found = index.byOwner.find(std::string_view(ent->name));
        if (found == index.byOwner.end())
            found = index.byOwner.emplace(ent->name, std::vector<OwnEntry>()).first;
        found->second.push_back({ent, hash ? std::atoi(hash + 1) : 0});
    }
    if (hash) {
        const std::string_view word(ent->rsvId, static_cast<size_t>(hash - ent->rsvId));
        auto found = index.byWord.find(word);
        if (found == index.byWord.end())
            found = index.byWord.emplace(std::string(word), 0).first;
        ++found->second;
    }
}

void takeOut(OwnerIndex &index, const RsvEnt *ent)
{
    if (ent->name) {
        auto found = index.byOwner.find(std::string_view(ent->name));
        if (found != index.byOwner.end()) {
            auto &own = found->second;
            for (auto it = own.begin(); it != own.end(); ++it)
                if (it->ent == ent) {
                    own.erase(it);
                    break;
                }
        }
    }
    if (const char *hash = std::strchr(ent->rsvId, '#')) {
        auto found = index.byWord.find(std::string_view(ent->rsvId, static_cast<size_t>(hash - ent->rsvId)));
        if (found != index.byWord.end())
            --found->second;
    }
}

bool stillValid(const OwnerIndex &index, const RsvTimeTbl *tbl)
{
    if (!index.made || index.delStamp != tbl->entries.delStamp || index.records != rsv::recordChangeGeneration() ||
        index.renames != rsv::ownerRenameGeneration())
        return false;
    // A key taken in without a record that has one now: made again.
    for (const HashEnt *he : index.recordless)
        if (recordOf(he))
            return false;
    return true;
}

// Brings the index of `tbl` up to date: the entries added since, or all of
// them again after a change it cannot follow. Throws std::bad_alloc (the
// index is then left unmade).
void bringUpToDate(OwnerIndex &index, RsvTimeTbl *tbl)
{
    HashEnt *he = nullptr;
    if (stillValid(index, tbl)) {
        he = index.last ? index.last->orderNext : tbl->entries.first;
    } else {
        index.made = false;
        index.byOwner.clear();
        index.byWord.clear();
        index.recordless.clear();
        index.last = nullptr;
        he = tbl->entries.first;
    }
    for (; he; he = he->orderNext) {
        if (const RsvEnt *ent = recordOf(he))
            takeIn(index, ent);
        else
            index.recordless.push_back(he);
        index.last = he;
    }
    index.delStamp = tbl->entries.delStamp;
    index.records = rsv::recordChangeGeneration();
    index.renames = rsv::ownerRenameGeneration();
    index.made = true;
}

} // namespace

namespace rsv {

bool OwnerIndex_count(RsvTimeTbl *tbl, const char *owner, int max, int *used, int &own, int &other) noexcept
{
    OwnerIndexes::iterator found;
    try {
        found = indexes().find(tbl);
        if (found == indexes().end()) {
            indexes().emplace(tbl, OwnerIndex()).first->second.wanted = true;
            return false;
        }
        bringUpToDate(found->second, tbl);
    } catch (const std::bad_alloc &) {
        OwnerIndex_drop(tbl);
        return false;
    }
    const OwnerIndex &index = found->second;
    own = 0;
    other = 0;
    const std::string_view name(owner);
    const auto mine = index.byOwner.find(name);
    int ownWithWord = 0;
    if (mine != index.byOwner.end()) {
        for (const OwnEntry &e : mine->second) {
            used[own] = e.number;
            if (++own == max)
                return true;
            // Own identifiers under a word of this owner's name are in the
            // word counts too, and are no other owner's.
            const char *hash = std::strchr(e.ent->rsvId, '#');
            if (hash && name.substr(0, static_cast<size_t>(hash - e.ent->rsvId)) ==
                            std::string_view(e.ent->rsvId, static_cast<size_t>(hash - e.ent->rsvId)))
                ++ownWithWord;
        }
    }
    for (size_t length = 0; length <= name.size(); ++length) {
        const auto words = index.byWord.find(name.substr(0, length));
        if (words != index.byWord.end())
            other += words->second;
    }
    other -= ownWithWord;
    return true;
}

void OwnerIndex_delEnt(RsvTimeTbl *tbl, HashEnt *he) noexcept
{
    auto found = indexes().find(tbl);
    OwnerIndex *index = found == indexes().end() ? nullptr : &found->second;
    bool follow = false;
    if (index && index->made) {
        try {
            bringUpToDate(*index, tbl);
            follow = true;
        } catch (const std::bad_alloc &) {
            index->made = false;
        }
    }
    if (follow) {
        if (const RsvEnt *ent = recordOf(he))
            takeOut(*index, ent);
        auto &recordless = index->recordless;
        for (auto it = recordless.begin(); it != recordless.end(); ++it)
            if (*it == he) {
                recordless.erase(it);
                break;
            }
        if (index->last == he)
            index->last = he->orderPrev;
    }
    h_delEnt_(&tbl->entries, he);
    if (follow)
        index->delStamp = tbl->entries.delStamp;
}

void OwnerIndex_drop(const RsvTimeTbl *tbl) noexcept
{
    if (tbl)
        indexes().erase(tbl);
}

} // namespace rsv
