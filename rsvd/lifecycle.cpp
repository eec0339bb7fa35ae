// lifecycle.cpp: the reservation lifecycle engine (see lifecycle.h).
//
// Each reservation has at most one thing due: its instance's start (activate)
// or its instance's end (finish record, jobs told, deactivate, then expire a
// one-off reservation or move a recurring one to its next instance). The due
// times sit in one ordered queue, so a step costs the events it does and a
// change of one reservation costs one recomputation.
//
// The end of an instance is a sequence of durable steps, and a crash may come
// between any two. They run in this order, each harmless to repeat:
//   1. the finish record, appended to the finish log and synced;
//   2. the jobs told that they lost the reservation (bits only ever set);
//   3. deactivation (activeTime back to 0, the state file written);
//   4. for a one-off reservation, its removal (the state file written).
// After a restart, a reservation whose activeTime is still set was active
// when the daemon stopped; one whose end has passed is finished again from
// step 1, and step 1 is skipped when the finish log already holds the record
// of that instance.
#include "lifecycle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace rsvd {

namespace {

// A failed durable step is tried again this much later.
constexpr time_t kRetrySeconds = 60;

// The finish log is read from its end in chunks of at least this size.
constexpr off_t kFirstTailChunk = 1 << 20;

enum class Kind { Start, End };

struct Due {
    time_t at;
    Kind kind;
    time_t instStart;
    time_t instEnd;
};

bool isRecurring(const RsvEnt *ent)
{
    return (ent->options & RSV_OPT_RECURRING) != 0;
}

// A one-off window "start-end" in epoch seconds.
bool oneOffWindow(const char *window, time_t &start, time_t &end)
{
    if (!window)
        return false;
    char *rest = nullptr;
    errno = 0;
    long long s = std::strtoll(window, &rest, 10);
    if (errno != 0 || rest == window || *rest != '-')
        return false;
    const char *second = rest + 1;
    long long e = std::strtoll(second, &rest, 10);
    if (errno != 0 || rest == second || e <= s)
        return false;
    start = static_cast<time_t>(s);
    end = static_cast<time_t>(e);
    return true;
}

// The recurring instance whose end comes after `ref`. The module's occurrence
// arithmetic reads clock times to the minute, so at the very minute of an end
// it may still give the instance that ends then; asking again from that end
// onwards moves on to the next one.
bool recurringInstance(RsvEnt *ent, int useDisabled, time_t ref, time_t &start, time_t &end)
{
    time_t ask = ref;
    for (int tries = 0; tries < 4; ++tries) {
        time_t s = 0;
        time_t e = 0;
        RsvEnt_getCurrentInstanceAtTime(ent, useDisabled, ask, &s, &e);
        if (e == 0 && s == 0)
            return false;
        if (e > ref) {
            start = s;
            end = e;
            return true;
        }
        ask = std::max(ask, e) + 60;
    }
    return false;
}

// What is due next for `ent`, seen at `ref`.
std::optional<Due> dueOf(RsvEnt *ent, time_t ref)
{
    time_t s = 0;
    time_t e = 0;
    if (!isRecurring(ent)) {
        if (!oneOffWindow(ent->timeWindow, s, e))
            return std::nullopt;
        if (ent->activeTime != 0)
            return Due{e, Kind::End, s, e};
        return Due{s, Kind::Start, s, e};
    }
    if (ent->activeTime != 0) {
        // The instance it was activated in: the one holding activeTime,
        // disabled days not consulted (as the finish record measures it).
        if (!recurringInstance(ent, 0, ent->activeTime, s, e))
            return std::nullopt;
        return Due{e, Kind::End, s, e};
    }
    if (!recurringInstance(ent, 1, ref, s, e))
        return std::nullopt;
    return Due{s, Kind::Start, s, e};
}

// Local midnight of the Sunday that starts the week holding t, plus `weeks`.
time_t weekStart(time_t t, int weeks)
{
    struct tm tm {};
    localtime_r(&t, &tm);
    tm.tm_mday -= tm.tm_wday - 7 * weeks;
    tm.tm_hour = 0;
    tm.tm_min = 0;
    tm.tm_sec = 0;
    tm.tm_isdst = -1;
    return mktime(&tm);
}

void freeFinishRecord(RsvFinishLog &rec)
{
    for (int i = 0; rec.hosts && i < rec.numHosts; ++i)
        std::free(rec.hosts[i].hostName);
    std::free(rec.hosts);
    std::free(rec.rsvId);
    std::free(rec.name);
    std::free(rec.timeWindow);
    std::free(rec.creator);
}

std::string textOf(const char *text)
{
    return text ? text : "";
}

// Appends `line` to the file and syncs it; the file is cut back to its old
// length when the write fails part-way, so no torn line stays behind.
bool appendSynced(const std::string &path, const std::string &line, std::string &error)
{
    struct stat before {};
    bool existed = ::stat(path.c_str(), &before) == 0;
    int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        error = fmt::format("open {}: {}", path, std::strerror(errno));
        return false;
    }
    struct stat st {};
    off_t oldSize = ::fstat(fd, &st) == 0 ? st.st_size : -1;
    const char *p = line.data();
    size_t left = line.size();
    bool ok = true;
    while (left > 0) {
        ssize_t n = ::write(fd, p, left);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            error = fmt::format("write {}: {}", path, std::strerror(errno));
            ok = false;
            break;
        }
        p += n;
        left -= static_cast<size_t>(n);
    }
    if (ok && ::fsync(fd) != 0) {
        error = fmt::format("fsync {}: {}", path, std::strerror(errno));
        ok = false;
    }
    if (!ok && oldSize >= 0 && ::ftruncate(fd, oldSize) == 0)
        (void)::fsync(fd);
    ::close(fd);
    if (ok && !existed) {
        // A new file is only durable once its directory entry is.
        std::string dir = path.substr(0, path.find_last_of('/') == std::string::npos ? 0 : path.find_last_of('/'));
        int dfd = ::open(dir.empty() ? "." : dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (dfd >= 0) {
            (void)::fsync(dfd);
            ::close(dfd);
        }
    }
    return ok;
}

} // namespace

struct Lifecycle::Impl {
    RsvTimeTbl *tbl;
    std::string path;
    LogFn log;

    std::unordered_map<std::string, Due> due;
    std::set<std::pair<time_t, std::string>> queue;

    // Instances whose finish record is known to be in the finish log and
    // whose end is not yet complete: (id, start) and (id, end).
    std::set<std::pair<std::string, time_t>> recordedStarts;
    std::set<std::pair<std::string, time_t>> recordedEnds;

    time_t nextTrim = 0;
    time_t next = 0;

    void emit(std::string_view event, const nlohmann::json &fields) const
    {
        if (log)
            log(event, fields);
    }

    nlohmann::json fieldsOf(const RsvEnt *ent, time_t s, time_t e) const
    {
        return {{"id", textOf(ent->rsvId)}, {"owner", textOf(ent->name)}, {"instanceStart", s}, {"instanceEnd", e}};
    }

    void unschedule(const std::string &id)
    {
        auto it = due.find(id);
        if (it == due.end())
            return;
        queue.erase({it->second.at, id});
        due.erase(it);
    }

    void schedule(const std::string &id, const Due &d)
    {
        unschedule(id);
        due.emplace(id, d);
        queue.emplace(d.at, id);
    }

    void reschedule(RsvEnt *ent, time_t ref)
    {
        std::string id = ent->rsvId;
        std::optional<Due> d = dueOf(ent, ref);
        if (!d) {
            unschedule(id);
            emit("error", {{"id", id}, {"error", "the reservation's time window gives no instance"}});
            return;
        }
        schedule(id, *d);
    }

    void retryLater(const std::string &id, Due d, time_t now)
    {
        d.at = now + kRetrySeconds;
        schedule(id, d);
    }

    void rebuild(time_t ref)
    {
        due.clear();
        queue.clear();
        HashIter iter;
        for (HashEnt *he = h_firstEnt_(&tbl->entries, &iter); he; he = h_nextEnt_(&iter)) {
            auto *ent = static_cast<RsvEnt *>(he->value);
            if (ent && ent->rsvId)
                reschedule(ent, ref);
        }
    }

    bool recorded(const std::string &id, time_t s, time_t e) const
    {
        return recordedStarts.count({id, s}) != 0 || recordedEnds.count({id, e}) != 0;
    }

    void forget(const std::string &id, time_t s, time_t e)
    {
        recordedStarts.erase({id, s});
        recordedEnds.erase({id, e});
    }

    // Step 1 of an instance's end: its finish record, once.
    bool writeFinishRecord(RsvEnt *ent, time_t s, time_t e, bool missed, time_t now)
    {
        std::string id = ent->rsvId;
        if (recorded(id, s, e))
            return true;
        RsvFinishLog rec{};
        if (fillRsvFinishLog(&rec, tbl, id.c_str()) != 0) {
            freeFinishRecord(rec);
            emit("error", {{"id", id}, {"error", "no memory for the finish record"}});
            return false;
        }
        nlohmann::json hosts = nlohmann::json::array();
        for (int i = 0; rec.hosts && i < rec.numHosts; ++i)
            hosts.push_back({{"host", textOf(rec.hosts[i].hostName)}, {"slots", rec.hosts[i].numSlots}});
        nlohmann::json line = {
            {"rsvId", textOf(rec.rsvId)},      {"name", textOf(rec.name)},
            {"createTime", rec.createTime},    {"options", rec.options},
            {"auxValue", rec.auxValue},        {"hosts", hosts},
            {"timeWindow", textOf(rec.timeWindow)}, {"instanceStart", s},
            {"instanceEnd", e},                {"activeDuration", rec.activeDuration},
            {"creator", textOf(rec.creator)},  {"missed", missed},
            {"logged", now}};
        freeFinishRecord(rec);
        std::string error;
        if (!appendSynced(path, line.dump() + "\n", error)) {
            emit("error", {{"id", id}, {"error", "finish record not written: " + error}});
            return false;
        }
        recordedStarts.insert({id, s});
        recordedEnds.insert({id, e});
        nlohmann::json fields = fieldsOf(ent, s, e);
        fields["activeDuration"] = line["activeDuration"];
        fields["missed"] = missed;
        emit("finished", fields);
        return true;
    }

    // Step 2: the reservation's jobs lost it.
    static void tellJobs(RsvEnt *ent)
    {
        if (!ent->jobList)
            return;
        auto *head = reinterpret_cast<ListEntry *>(ent->jobList);
        for (ListEntry *le = head->forw; le && le != head; le = le->forw)
            setJobRsvInActive(reinterpret_cast<RsvJobEnt *>(le)->jobId, 0);
    }

    // Steps 3 and 4, then what comes next for the reservation.
    void completeEnd(RsvEnt *ent, const Due &d, time_t now)
    {
        std::string id = ent->rsvId;
        if (ent->activeTime != 0 || isRsvActive(ent)) {
            if (RsvTimeTbl_deactivate(tbl, ent) != RSV_OK) {
                emit("error", {{"id", id}, {"error", "deactivation not saved"}});
                retryLater(id, d, now);
                return;
            }
            emit("deactivated", fieldsOf(ent, d.instStart, d.instEnd));
        }
        if (!isRecurring(ent)) {
            nlohmann::json fields = fieldsOf(ent, d.instStart, d.instEnd);
            if (RsvTimeTbl_removeEntry(tbl, id.c_str()) != RSV_OK) {
                emit("error", {{"id", id}, {"error", "expiry not saved"}});
                retryLater(id, d, now);
                return;
            }
            emit("expired", fields);
            unschedule(id);
            forget(id, d.instStart, d.instEnd);
            return;
        }
        forget(id, d.instStart, d.instEnd);
        moveToNext(ent, now, d.instEnd);
    }

    // After the instance that ended at `after`. On the night a clock goes
    // back, the module's arithmetic can give a second instance that ends an
    // hour after the first and overlaps it: that is the same night, so the
    // next instance is the first one that starts at or after the end.
    void moveToNext(RsvEnt *ent, time_t now, time_t after = 0)
    {
        std::optional<Due> next = dueOf(ent, now);
        for (int tries = 0; next && next->instStart < after && tries < 4; ++tries)
            next = dueOf(ent, next->instEnd);
        if (!next) {
            unschedule(ent->rsvId);
            emit("error", {{"id", textOf(ent->rsvId)}, {"error", "the reservation's time window gives no instance"}});
            return;
        }
        RsvEnt_setNextInstance(ent, next->instStart, next->instEnd);
        schedule(ent->rsvId, *next);
    }

    void end(RsvEnt *ent, const Due &d, bool missed, time_t now)
    {
        if (!writeFinishRecord(ent, d.instStart, d.instEnd, missed, now)) {
            retryLater(ent->rsvId, d, now);
            return;
        }
        tellJobs(ent);
        completeEnd(ent, d, now);
    }

    void begin(RsvEnt *ent, const Due &d, time_t now)
    {
        std::string id = ent->rsvId;
        if (now >= d.instEnd) {
            // The whole instance passed unseen (the daemon was down, or the
            // timer came that late): nothing was active, so nothing is
            // deactivated. A one-off reservation still owes its finish record
            // and its expiry; a recurring one moves on.
            if (!isRecurring(ent)) {
                end(ent, d, true, now);
                return;
            }
            emit("skipped", fieldsOf(ent, d.instStart, d.instEnd));
            moveToNext(ent, now, d.instEnd);
            return;
        }
        if (RsvTimeTbl_activate(tbl, ent) != RSV_OK) {
            emit("error", {{"id", id}, {"error", "activation not saved"}});
            retryLater(id, d, now);
            return;
        }
        RsvEnt_setNextInstance(ent, d.instStart, d.instEnd);
        emit("activated", fieldsOf(ent, d.instStart, d.instEnd));
        schedule(id, Due{d.instEnd, Kind::End, d.instStart, d.instEnd});
    }

    // The first time anything is due: the queue's first event or the trim.
    time_t earliest() const { return queue.empty() ? nextTrim : std::min(queue.begin()->first, nextTrim); }

    // Instances that start together (the queue's consecutive starts) are
    // activated in one change with one save: a hundred daily reservations
    // starting at 08:00 cost one rewrite of the state file, not a hundred.
    void beginAll(const std::vector<std::pair<std::string, Due>> &starting, time_t now)
    {
        std::vector<RsvEnt *> ents;
        for (const auto &[id, d] : starting)
            ents.push_back(RsvTimeTbl_getEntry(tbl, id.c_str()));
        if (RsvTimeTbl_activateEntries(tbl, ents.data(), static_cast<int>(ents.size())) != RSV_OK) {
            for (const auto &[id, d] : starting) {
                emit("error", {{"id", id}, {"error", "activation not saved"}});
                retryLater(id, d, now);
            }
            return;
        }
        for (size_t i = 0; i < starting.size(); ++i) {
            const auto &[id, d] = starting[i];
            RsvEnt_setNextInstance(ents[i], d.instStart, d.instEnd);
            emit("activated", fieldsOf(ents[i], d.instStart, d.instEnd));
            schedule(id, Due{d.instEnd, Kind::End, d.instStart, d.instEnd});
        }
    }

    // Once a week, at local midnight starting Sunday: the planners of the
    // weeks before this one go.
    void trimIfDue(time_t now)
    {
        if (nextTrim != 0 && now < nextTrim)
            return;
        time_t thisWeek = weekStart(now, 0);
        int removed = RsvTimeTbl_trimPastWeeks(tbl, thisWeek);
        if (removed < 0)
            emit("error", {{"error", "trimming past weeks ran out of memory"}});
        else
            emit("trimmed", {{"before", thisWeek}, {"planners", removed}});
        nextTrim = weekStart(now, 1);
    }

    void run(const std::string &id, const Due &d, time_t now)
    {
        RsvEnt *ent = RsvTimeTbl_getEntry(tbl, id.c_str());
        if (!ent) {
            unschedule(id);
            return;
        }
        if (d.kind == Kind::Start)
            begin(ent, d, now);
        else
            end(ent, d, false, now);
    }

    // The finish log from its end back to the first record logged before
    // `since`: a record is never written before its instance starts, so
    // nothing older concerns an instance that starts at or after `since`.
    void readRecordedSince(time_t since)
    {
        int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0)
            return;
        struct stat st {};
        if (::fstat(fd, &st) != 0) {
            ::close(fd);
            return;
        }
        off_t chunk = kFirstTailChunk;
        for (;;) {
            off_t from = st.st_size > chunk ? st.st_size - chunk : 0;
            std::string text(static_cast<size_t>(st.st_size - from), '\0');
            ssize_t got = ::pread(fd, text.data(), text.size(), from);
            if (got < 0)
                break;
            text.resize(static_cast<size_t>(got));
            size_t pos = 0;
            if (from > 0) {
                // The first line may be cut: it is read in full next round.
                pos = text.find('\n');
                pos = pos == std::string::npos ? text.size() : pos + 1;
            }
            bool reachedOlder = false;
            while (pos < text.size()) {
                size_t nl = text.find('\n', pos);
                if (nl == std::string::npos)
                    break;
                nlohmann::json rec = nlohmann::json::parse(text.begin() + static_cast<std::ptrdiff_t>(pos),
                                                           text.begin() + static_cast<std::ptrdiff_t>(nl), nullptr,
                                                           false);
                pos = nl + 1;
                if (!rec.is_object() || !rec.contains("rsvId") || !rec.contains("instanceStart"))
                    continue;
                try {
                    std::string id = rec.at("rsvId").get<std::string>();
                    recordedStarts.insert({id, rec.at("instanceStart").get<time_t>()});
                    recordedEnds.insert({id, rec.at("instanceEnd").get<time_t>()});
                    if (rec.at("logged").get<time_t>() < since)
                        reachedOlder = true;
                } catch (const nlohmann::json::exception &) {
                    continue;
                }
            }
            if (reachedOlder || from == 0)
                break;
            chunk *= 2;
        }
        ::close(fd);
    }

    // A crash during an append may leave a last line without its end: it was
    // never synced as a whole record, so it is cut off (the instance gets its
    // record again) rather than glued to the next record.
    void cutTornTail()
    {
        int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
        if (fd < 0)
            return;
        struct stat st {};
        if (::fstat(fd, &st) == 0 && st.st_size > 0) {
            off_t end = st.st_size;
            char c = 0;
            if (::pread(fd, &c, 1, end - 1) == 1 && c != '\n') {
                off_t keep = end - 1;
                while (keep > 0 && ::pread(fd, &c, 1, keep - 1) == 1 && c != '\n')
                    --keep;
                if (::ftruncate(fd, keep) == 0 && ::fsync(fd) == 0)
                    emit("error", {{"error", fmt::format("cut an unfinished last line ({} bytes) from {}",
                                                         end - keep, path)}});
            }
        }
        ::close(fd);
    }
};

Lifecycle::Lifecycle(RsvTimeTbl *tbl, std::string finishLogPath, LogFn log)
    : impl_(std::make_unique<Impl>())
{
    impl_->tbl = tbl;
    impl_->path = std::move(finishLogPath);
    impl_->log = std::move(log);
}

Lifecycle::~Lifecycle() = default;

time_t Lifecycle::start(time_t now)
{
    Impl &m = *impl_;
    m.cutTornTail();
    m.rebuild(now);
    // The finish log is consulted for the instances that are active or over:
    // their records, if any, were written after they started.
    time_t since = 0;
    for (const auto &[id, d] : m.due) {
        if ((d.kind == Kind::End || d.instEnd <= now) && (since == 0 || d.instStart < since))
            since = d.instStart;
        RsvEnt *ent = RsvTimeTbl_getEntry(m.tbl, id.c_str());
        if (d.kind == Kind::End && d.instEnd > now && ent && !isRsvActive(ent)) {
            // Active when the daemon stopped and still running: the state the
            // load left is set again, nothing is written, no second activation.
            RsvTimeTbl_activate(m.tbl, ent);
            nlohmann::json fields = m.fieldsOf(ent, d.instStart, d.instEnd);
            fields["resumed"] = true;
            m.emit("activated", fields);
        }
    }
    if (since != 0)
        m.readRecordedSince(since);
    return step(now);
}

time_t Lifecycle::step(time_t now)
{
    Impl &m = *impl_;
    // Every event moves its reservation to a later time or out of the queue,
    // so this ends; the bound only guards against a window that stands still.
    size_t budget = 4 * m.queue.size() + 16;
    // Consecutive instance starts wait here to be activated together; any
    // other event first has them activated, so events keep their order.
    std::vector<std::pair<std::string, Due>> starting;
    while (!m.queue.empty() && m.queue.begin()->first <= now && budget-- > 0) {
        std::string id = m.queue.begin()->second;
        Due d = m.due.at(id);
        if (d.kind == Kind::Start && now < d.instEnd && RsvTimeTbl_getEntry(m.tbl, id.c_str())) {
            m.unschedule(id);
            starting.emplace_back(std::move(id), d);
            continue;
        }
        if (!starting.empty()) {
            // Their ends and retries all come after now: `id` stays first.
            m.beginAll(starting, now);
            starting.clear();
        }
        m.run(id, d, now);
        auto it = m.due.find(id);
        if (it != m.due.end() && it->second.at <= now && it->second.instEnd == d.instEnd &&
            it->second.kind == d.kind) {
            // Nothing moved: try again later rather than spin.
            m.retryLater(id, d, now);
        }
    }
    if (!starting.empty())
        m.beginAll(starting, now);
    m.trimIfDue(now);
    m.next = m.earliest();
    if (m.next <= now)
        m.next = now + 1;
    return m.next;
}

void Lifecycle::changed()
{
    impl_->rebuild(kx_now());
}

void Lifecycle::changed(const char *rsvId)
{
    if (!rsvId)
        return;
    Impl &m = *impl_;
    RsvEnt *ent = RsvTimeTbl_getEntry(m.tbl, rsvId);
    if (!ent) {
        // Removed: a record finishEarly wrote for it is needed no more.
        auto it = m.due.find(rsvId);
        if (it != m.due.end())
            m.forget(rsvId, it->second.instStart, it->second.instEnd);
        m.unschedule(rsvId);
        return;
    }
    m.reschedule(ent, kx_now());
}

bool Lifecycle::finishEarly(const char *rsvId, time_t now)
{
    Impl &m = *impl_;
    RsvEnt *ent = rsvId ? RsvTimeTbl_getEntry(m.tbl, rsvId) : nullptr;
    if (!ent || ent->activeTime == 0)
        return true;
    std::optional<Due> d = dueOf(ent, now);
    if (!d)
        return false;
    if (!m.writeFinishRecord(ent, d->instStart, d->instEnd, false, now))
        return false;
    Impl::tellJobs(ent);
    return true;
}

time_t Lifecycle::nextDue() const
{
    // From the queue, not from the last step: a change since may have made
    // something due sooner.
    const Impl &m = *impl_;
    return m.nextTrim == 0 ? m.next : m.earliest();
}

size_t Lifecycle::scheduled() const
{
    return impl_->due.size();
}

} // namespace rsvd
