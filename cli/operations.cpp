// operations.cpp: the changes, through the module's own calls, with every
// refusal turned into one line (and the reason, when slots are lacking).
#include "operations.h"

#include <pwd.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <fmt/format.h>

#include "cli_error.h"
#include "daylist.h"
#include "shortfall.h"
#include "timeparse.h"

namespace rsvctl {

namespace {

struct FreeDeleter {
    void operator()(void *p) const { std::free(p); }
};
using CText = std::unique_ptr<char, FreeDeleter>;

char *heapText(const std::string &text)
{
    char *copy = strdup(text.c_str());
    if (!copy)
        throw CliError(kExitRefused, moduleErrorText(RSV_ERR_NO_MEMORY, {}));
    return copy;
}

// A request whose texts live on the heap, as the daemon's do: the module
// replaces asked host names in place and the destructor frees what is there.
struct HeapReq {
    RsvReq req{};
    HeapReq() = default;
    HeapReq(const HeapReq &) = delete;
    HeapReq &operator=(const HeapReq &) = delete;
    void setHosts(const std::vector<std::string> &hosts)
    {
        req.askedHosts = static_cast<char **>(std::calloc(hosts.size() + 1, sizeof(char *)));
        if (!req.askedHosts)
            throw CliError(kExitRefused, moduleErrorText(RSV_ERR_NO_MEMORY, {}));
        for (const auto &h : hosts)
            req.askedHosts[req.numAskedHosts++] = heapText(h);
    }
    ~HeapReq()
    {
        for (int i = 0; req.askedHosts && i < req.numAskedHosts; ++i)
            std::free(req.askedHosts[i]);
        std::free(req.askedHosts);
        std::free(req.name);
        std::free(req.timeWindow);
        std::free(req.description);
        std::free(req.rsvId);
    }
};

struct HeapModReq {
    RsvModReq mod{};
    HeapReq body;
    explicit HeapModReq(const std::string &id) { mod.rsvId = heapText(id); }
    HeapModReq(const HeapModReq &) = delete;
    HeapModReq &operator=(const HeapModReq &) = delete;
    // The module reads the embedded request; copy it in before the call and
    // back afterwards so that one destructor frees whatever the module left.
    RsvModReq *get()
    {
        mod.req = body.req;
        return &mod;
    }
    void sync() { body.req = mod.req; }
    ~HeapModReq() { std::free(mod.rsvId); }
};

RsvEnt *findEntry(Session &session, const std::string &id)
{
    RsvEnt *ent = RsvTimeTbl_getEntry(session.table(), id.c_str());
    if (!ent) {
        ErrorContext ctx;
        ctx.rsvId = id;
        refuse(RSV_ERR_NO_RSV, ctx);
    }
    return ent;
}

std::string joined(const std::vector<std::string> &items)
{
    std::string out;
    for (const auto &item : items)
        out += (out.empty() ? "" : ",") + item;
    return out;
}

int ownerLimit(const Session &session)
{
    int limit = session.cluster().maxPerOwner();
    return limit >= 1 && limit <= 10000 ? limit : 100;
}

bool isRecurring(const RsvEnt *ent)
{
    return (ent->options & RSV_OPT_RECURRING) != 0;
}

// The module did not make the change. A save that failed is a file problem
// (status 3, naming the file and the reason), whatever else was asked;
// anything else is a refusal.
[[noreturn]] void changeFailed(Session &session, int err, const ErrorContext &ctx, const std::string &detail = {})
{
    if (err == RSV_ERR_NOT_SAVED)
        session.notSaved();
    refuse(err, ctx, detail);
}

} // namespace

void checkOwnerName(const std::string &owner)
{
    // The owner becomes the first part of "owner#n" and a word of the state
    // file: keep it to name characters ('@' marks entries the file skips).
    if (owner.empty() || owner.size() > 64)
        usageError("the owner (-u) must be 1 to 64 characters");
    for (char c : owner)
        if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-' || c == '.'))
            usageError(fmt::format("bad owner '{}': use letters, digits, '_', '-' and '.'", owner));
}

void checkDescription(const std::string &description)
{
    // A reservation is one line of the state file.
    if (description.size() > 512)
        usageError("the description is longer than 512 characters");
    for (char c : description)
        if (static_cast<unsigned char>(c) < 0x20 || c == '"')
            usageError("the description may not hold control characters or double quotes");
}

std::vector<std::string> resolveHosts(const Cluster &cluster, const std::vector<std::string> &typed)
{
    std::vector<std::string> official;
    for (const auto &name : typed) {
        const ClusterHost *host = cluster.find(name);
        if (!host) {
            ErrorContext ctx;
            ctx.hosts = name;
            refuse(RSV_ERR_BAD_HOST, ctx);
        }
        // Asking for one host twice (by name and by alias) would offer its
        // free slots twice.
        bool seen = false;
        for (const auto &h : official)
            seen = seen || h == host->name;
        if (!seen)
            official.push_back(host->name);
    }
    if (official.empty())
        usageError("name at least one host (-m HOST[,HOST...])");
    return official;
}

int wholeHostSlots(const Cluster &cluster, const std::vector<std::string> &typed)
{
    int total = 0;
    for (const auto &name : resolveHosts(cluster, typed))
        total += cluster.find(name)->slots;
    return total;
}

std::string addReservation(Session &session, const AddRequest &request)
{
    session.requireWritableState();
    checkOwnerName(request.owner);
    checkDescription(request.description);
    ErrorContext ctx;
    ctx.owner = request.owner;
    ctx.hosts = joined(request.hosts);
    ctx.window = request.typedWindow;
    ctx.begin = request.typedBegin;
    ctx.end = request.typedEnd;
    ctx.maxPerOwner = ownerLimit(session);
    ctx.system = request.system;
    // Planner lists are kept under the name the module is given: always the
    // official one, so bookings made through an alias are seen by everyone.
    std::vector<std::string> hosts = resolveHosts(session.cluster(), request.hosts);

    if (int err = isValidTimeWindow(request.window.c_str(), request.recurring ? 1 : 0); err != 0)
        refuse(err, ctx);
    if (!request.recurring) {
        // The module's one-off check leaves the order of the two ends to the
        // table; a user gets the plain answer here.
        size_t dash = request.window.find('-');
        if (std::atoll(request.window.substr(dash + 1).c_str()) <= std::atoll(request.window.substr(0, dash).c_str()))
            refuse(RSV_ERR_END_BEFORE_START, ctx);
    }

    // Whole hosts: asking for the sum of their capacities makes the module
    // offer each host all it has free and take every host, so a host that is
    // partly booked leaves the request short and it is refused.
    int minSlots = request.minSlots, maxSlots = request.maxSlots;
    std::vector<HostNeed> needs;
    if (request.wholeHosts) {
        minSlots = maxSlots = wholeHostSlots(session.cluster(), hosts);
        for (const auto &h : hosts)
            needs.push_back({h, session.cluster().find(h)->slots});
    } else {
        for (const auto &h : hosts)
            needs.push_back({h, minSlots > 0 ? minSlots : 1});
    }

    HeapReq req;
    req.req.options = (request.recurring ? RSV_OPT_RECURRING : 0) | (request.system ? RSV_OPT_SYSTEM : 0);
    req.req.name = heapText(request.owner);
    // A system reservation takes every free slot: with no minimum the module
    // offers each host's whole free capacity, then books all of it.
    req.req.minNumProcs = request.system ? 0 : minSlots;
    req.req.maxNumProcs = request.system ? 0 : maxSlots;
    req.setHosts(hosts);
    req.req.timeWindow = heapText(request.window);
    if (!request.description.empty())
        req.req.description = heapText(request.description);

    session.beginChange();
    qob_errno = 0;
    CText id(RsvTimeTbl_addEntryBy(session.table(), &req.req,
                                   request.creator.empty() ? nullptr : request.creator.c_str()));
    if (!id) {
        int err = qob_errno ? qob_errno : RSV_ERR_NOT_ENOUGH_SLOTS;
        if (err == RSV_ERR_NOT_SAVED)
            session.notSaved();
        std::string detail;
        if (err == RSV_ERR_NOT_ENOUGH_SLOTS) {
            detail = formatShortfall(explainShortfall(session.table(), session.cluster(), needs, request.window,
                                                      request.recurring, request.system, ""),
                                     request.system);
        }
        refuse(err, ctx, detail);
    }
    session.changeSaved({id.get()});
    return id.get();
}

std::string heldHosts(Session &session, const std::string &id, int *total)
{
    std::string hosts;
    int sum = 0;
    if (const RsvEnt *ent = RsvTimeTbl_getEntry(session.table(), id.c_str()))
        for (int i = 0; i < ent->numHosts; ++i)
            if (ent->allocVector[i].hostName) {
                hosts += fmt::format("{}{}:{}", hosts.empty() ? "" : ",", ent->allocVector[i].hostName,
                                     ent->allocVector[i].numSlots);
                sum += ent->allocVector[i].numSlots;
            }
    if (total)
        *total = sum;
    return hosts;
}

std::string placementText(Session &session, const std::string &id)
{
    int total = 0;
    std::string hosts = heldHosts(session, id, &total);
    return fmt::format("{} slot{} on {}", total, total == 1 ? "" : "s", hosts);
}

std::string operatorName(const std::string &typed)
{
    std::string name = typed;
    if (name.empty()) {
        for (const char *var : {"LOGNAME", "USER"})
            if (const char *value = std::getenv(var); value && *value) {
                name = value;
                break;
            }
    }
    if (name.empty()) {
        const passwd *pw = getpwuid(getuid());
        name = pw && pw->pw_name ? pw->pw_name : fmt::format("uid{}", static_cast<long>(getuid()));
    }
    // Recorded as one word of the state file, in the entry's 40-character field.
    if (name.size() > 39)
        usageError(fmt::format("bad operator '{}': at most 39 characters (give --as NAME)", name));
    for (char c : name)
        if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-' || c == '.'))
            usageError(fmt::format("bad operator '{}': use letters, digits, '_', '-' and '.' (give --as NAME)", name));
    return name;
}

void deleteReservations(Session &session, const std::vector<std::string> &ids)
{
    session.requireWritableState();
    // Check every identifier first: a refused command changes no file.
    std::vector<const char *> names;
    for (size_t i = 0; i < ids.size(); ++i) {
        findEntry(session, ids[i]);
        for (size_t j = 0; j < i; ++j)
            if (ids[j] == ids[i])
                usageError(fmt::format("'{}' is named twice", ids[i]));
        names.push_back(ids[i].c_str());
    }
    session.aboutToRemove(ids);
    // One change: every reservation goes, and the files are rewritten once,
    // or none goes.
    session.beginChange();
    int failedIndex = -1;
    qob_errno = 0;
    int err = RsvTimeTbl_removeEntries(session.table(), names.data(), static_cast<int>(names.size()), &failedIndex);
    if (err != 0) {
        ErrorContext ctx;
        if (failedIndex >= 0 && static_cast<size_t>(failedIndex) < ids.size())
            ctx.rsvId = ids[static_cast<size_t>(failedIndex)];
        changeFailed(session, err, ctx);
    }
    session.changeSaved(ids);
}

std::string moveWindow(Session &session, const std::string &id, const std::string &begin, const std::string &end)
{
    session.requireWritableState();
    RsvEnt *ent = findEntry(session, id);
    ErrorContext ctx;
    ctx.rsvId = id;
    ctx.begin = begin;
    ctx.end = end;
    if (isRecurring(ent))
        throw CliError(kExitRefused,
                       fmt::format("reservation '{}' is recurring: --begin and --end move one-off reservations; "
                                   "delete it and add it again with the new window",
                                   id));
    auto side = [](const std::string &text, const char *what) -> std::string {
        if (text.empty())
            return "null";
        if (auto shift = parseShiftMinutes(text, what))
            return fmt::format("{:+d}", *shift);
        return std::to_string(static_cast<long long>(std::string(what) == "--begin" ? parseBegin(text, what)
                                                                                     : parsePoint(text, what)));
    };
    std::string modText = side(begin, "--begin") + "&" + side(end, "--end");

    // What the window will be, for the reason shown if it does not fit.
    CText newWindow(RsvMod_buildTimeWindow(ent->timeWindow, modText.c_str()));
    std::string target = newWindow ? newWindow.get() : "";
    std::vector<std::string> held;
    for (int i = 0; i < ent->numHosts; ++i)
        if (ent->allocVector[i].hostName)
            held.emplace_back(ent->allocVector[i].hostName);
    ctx.hosts = joined(held);

    HeapModReq mod(id);
    mod.body.req.options = RSV_MOD_TIMEWINDOW;
    mod.body.req.timeWindow = heapText(modText);
    mod.body.req.name = heapText(ent->name ? ent->name : "");
    session.beginChange();
    qob_errno = 0;
    int err = RsvTimeTbl_modifyTimeWindow(session.table(), mod.get());
    mod.sync();
    if (err != 0) {
        if (err == RSV_ERR_NOT_SAVED)
            session.notSaved();
        std::string detail;
        if (err == RSV_ERR_NOT_ENOUGH_SLOTS && !target.empty()) {
            size_t dash = target.find('-');
            ctx.window = fmt::format("{} - {}", formatTime(std::atoll(target.substr(0, dash).c_str())),
                                     formatTime(std::atoll(target.substr(dash + 1).c_str())));
            std::vector<HostNeed> needs;
            for (int i = 0; i < ent->numHosts; ++i)
                if (ent->allocVector[i].hostName)
                    needs.push_back({ent->allocVector[i].hostName, ent->allocVector[i].numSlots});
            detail = formatShortfall(explainShortfall(session.table(), session.cluster(), needs, target, false,
                                                      (ent->options & RSV_OPT_SYSTEM) != 0, id),
                                     (ent->options & RSV_OPT_SYSTEM) != 0);
        }
        refuse(err, ctx, detail);
    }
    session.changeSaved({id});
    RsvEnt *after = RsvTimeTbl_getEntry(session.table(), id.c_str());
    return after && after->timeWindow ? after->timeWindow : target;
}

void addHosts(Session &session, const std::string &id, const std::vector<std::string> &hosts, int minSlots,
              int maxSlots)
{
    session.requireWritableState();
    RsvEnt *ent = findEntry(session, id);
    ErrorContext ctx;
    ctx.rsvId = id;
    ctx.hosts = joined(hosts);
    std::vector<std::string> official = resolveHosts(session.cluster(), hosts);
    std::string window = ent->timeWindow ? ent->timeWindow : "";
    bool recurring = isRecurring(ent);
    bool system = (ent->options & RSV_OPT_SYSTEM) != 0;

    HeapModReq mod(id);
    mod.body.req.options = ent->options;
    mod.body.req.name = heapText(ent->name ? ent->name : "");
    mod.body.req.minNumProcs = minSlots;
    mod.body.req.maxNumProcs = maxSlots;
    mod.body.setHosts(official);
    mod.body.req.timeWindow = heapText(window);
    session.beginChange();
    qob_errno = 0;
    int rc = RsvTimeTbl_addHosts(session.table(), mod.get());
    mod.sync();
    if (rc != 0) {
        int err = qob_errno ? qob_errno : RSV_ERR_NOT_ENOUGH_SLOTS;
        if (err == RSV_ERR_NOT_SAVED)
            session.notSaved();
        std::string detail;
        if (err == RSV_ERR_NOT_ENOUGH_SLOTS) {
            std::vector<HostNeed> needs;
            for (const auto &h : official)
                needs.push_back({h, minSlots > 0 ? minSlots : 1});
            detail = formatShortfall(
                explainShortfall(session.table(), session.cluster(), needs, window, recurring, system, ""),
                system);
        }
        refuse(err, ctx, detail);
    }
    session.changeSaved({id});
}

namespace {

struct HostSet {
    HashTab tab{};
    HostSet() { h_initTab_(&tab, 37); }
    ~HostSet() { h_freeTab_(&tab, &std::free); }
    HostSet(const HostSet &) = delete;
    HostSet &operator=(const HostSet &) = delete;
    void add(const std::string &host)
    {
        int isNew = 0;
        HashEnt *ent = h_addEnt_(&tab, host.c_str(), &isNew);
        if (!ent)
            throw CliError(kExitRefused, moduleErrorText(RSV_ERR_NO_MEMORY, {}));
        if (isNew)
            ent->value = std::calloc(1, sizeof(int));
    }
};

int removeWith(Session &session, const std::string &id, const std::vector<std::string> &hosts, int count,
               int rmFlags, const ErrorContext &ctx)
{
    HostSet set;
    for (const auto &h : hosts)
        set.add(h);
    RsvEnt *ent = findEntry(session, id);
    HeapModReq mod(id);
    mod.body.req.options = ent->options;
    mod.body.req.name = heapText(ent->name ? ent->name : "");
    mod.body.req.minNumProcs = count;
    mod.body.req.maxNumProcs = 0;
    mod.body.req.timeWindow = heapText(ent->timeWindow ? ent->timeWindow : "");
    session.beginChange();
    qob_errno = 0;
    int removed = RsvTimeTbl_removeHosts(session.table(), mod.get(), &set.tab, rmFlags);
    mod.sync();
    if (removed < 0)
        changeFailed(session, qob_errno ? qob_errno : RSV_ERR_NOTHING_LEFT, ctx);
    session.changeSaved({id});
    return removed;
}

} // namespace

int removeHosts(Session &session, const std::string &id, const std::vector<std::string> &hosts)
{
    session.requireWritableState();
    findEntry(session, id);
    ErrorContext ctx;
    ctx.rsvId = id;
    ctx.hosts = joined(hosts);
    return removeWith(session, id, resolveHosts(session.cluster(), hosts), 0, RSV_RM_HOSTS, ctx);
}

int removeSlots(Session &session, const std::string &id, int count)
{
    session.requireWritableState();
    findEntry(session, id);
    ErrorContext ctx;
    ctx.rsvId = id;
    if (count < 1)
        usageError("--rm-slots takes a positive number of slots");
    int held = Rsv_getNumSlotsReserved(RsvTimeTbl_getEntry(session.table(), id.c_str()));
    if (count > held)
        throw CliError(kExitRefused, fmt::format("reservation '{}' holds {} slot{}: it cannot give back {}", id, held,
                                                 held == 1 ? "" : "s", count));
    return removeWith(session, id, {}, count, RSV_RM_NUMPROCS, ctx);
}

namespace {

// Disable or enable the days of `dates` (see parseDayList) in one module
// call; returns the days in words, joined by ", ".
std::string changeDays(Session &session, const std::string &id, const std::string &dates, bool enable)
{
    session.requireWritableState();
    RsvEnt *ent = findEntry(session, id);
    ErrorContext ctx;
    ctx.rsvId = id;
    ctx.dates = dates;
    const std::vector<std::string> texts = parseDayList(dates, enable ? "--enable" : "--disable", nowTime());
    std::string words;
    for (const auto &text : texts) {
        char *first = nullptr, *last = nullptr, *range = nullptr;
        qob_errno = 0;
        int kind = qob_getdisableddates(text.c_str(), &first, &last, &range);
        CText firstOwner(first), lastOwner(last), rangeOwner(range);
        if (kind < 0) {
            ctx.dates = text;
            refuse(qob_errno ? qob_errno : RSV_ERR_BAD_DATE, ctx);
        }
        words += (words.empty() ? "" : ", ") + (kind == 1 ? std::string(first) : fmt::format("{} - {}", first, last));
    }
    std::vector<const char *> args;
    for (const auto &text : texts)
        args.push_back(text.c_str());
    session.beginChange();
    qob_errno = 0;
    int failed = -1;
    const int rc = enable ? RsvTimeTbl_enableDayList(session.table(), id.c_str(), args.data(),
                                                     static_cast<int>(args.size()), &failed)
                          : RsvTimeTbl_disableDayList(session.table(), id.c_str(), args.data(),
                                                      static_cast<int>(args.size()), &failed);
    if (rc != 0) {
        const int err = qob_errno ? qob_errno : RSV_ERR_BAD_DATE;
        if (err == RSV_ERR_NOT_SAVED)
            session.notSaved();
        // Name the item of the list at fault (the list has one item per text).
        if (failed >= 0 && texts.size() > 1) {
            size_t start = 0;
            for (int i = 0; i < failed && start != std::string::npos; ++i)
                start = dates.find(',', start) + 1;
            ctx.dates = dates.substr(start, dates.find(',', start) - start);
        }
        std::string detail;
        if (err == RSV_ERR_NOT_ENOUGH_SLOTS && ent->timeWindow) {
            std::vector<HostNeed> needs;
            for (int i = 0; i < ent->numHosts; ++i)
                if (ent->allocVector[i].hostName)
                    needs.push_back({ent->allocVector[i].hostName, ent->allocVector[i].numSlots});
            ctx.hosts.clear();
            for (const auto &n : needs)
                ctx.hosts += (ctx.hosts.empty() ? "" : ",") + n.host;
            detail = formatShortfall(explainShortfall(session.table(), session.cluster(), needs, ent->timeWindow,
                                                      true, (ent->options & RSV_OPT_SYSTEM) != 0, id),
                                     (ent->options & RSV_OPT_SYSTEM) != 0);
        }
        refuse(err, ctx, detail);
    }
    session.changeSaved({id});
    return words;
}

} // namespace

std::string disableDays(Session &session, const std::string &id, const std::string &dates)
{
    return changeDays(session, id, dates, false);
}

std::string enableDays(Session &session, const std::string &id, const std::string &dates)
{
    return changeDays(session, id, dates, true);
}

void setDescription(Session &session, const std::string &id, const std::string &description)
{
    session.requireWritableState();
    checkDescription(description);
    findEntry(session, id);
    ErrorContext ctx;
    ctx.rsvId = id;
    session.beginChange();
    qob_errno = 0;
    if (RsvTimeTbl_setDescription(session.table(), id.c_str(), description.c_str()) != 0)
        changeFailed(session, qob_errno ? qob_errno : RSV_ERR_NO_SUCH_RSV, ctx);
    session.changeSaved({id});
}

} // namespace rsvctl
