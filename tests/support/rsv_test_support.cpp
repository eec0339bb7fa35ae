#include "rsv_test_support.h"

#include "planner/planner_internal.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>


namespace rsvtest {

FakeDaemon *FakeDaemon::current_ = nullptr;

FakeDaemon::FakeDaemon()
{
    current_ = this;
    h_initTab_(&nameTable_, 37);
    services.allocZeroed = &FakeDaemon::allocZeroed;
    services.dupString = &FakeDaemon::dupString;
    services.findJob = &FakeDaemon::findJob;
    services.findHost = &FakeDaemon::findHost;
    services.officialHostName = &FakeDaemon::officialHostName;
    services.rsvNameTable = &FakeDaemon::rsvNameTable;
    services.maxRsvPerOwner = &FakeDaemon::maxRsvPerOwner;
    RsvMod_init(&services);
    RsvId_clearTbl();
    qob_errno = 0;
}

static void freeNameEntry(void *value)
{
    auto *ent = static_cast<RsvEnt *>(value);
    RsvEnt_destroy(ent);
    free(ent);
}

FakeDaemon::~FakeDaemon()
{
    h_freeTab_(&nameTable_, freeNameEntry);
    for (auto &[name, host] : hosts_)
        delete host;
    for (auto &[id, job] : jobs_)
        delete job;
    for (auto *list : execHostLists_)
        delete list;
    RsvId_clearTbl();
    if (current_ == this)
        current_ = nullptr;
}

RsvHost *FakeDaemon::addHost(const std::string &name, int maxSlots, int numCpus,
                             const std::vector<std::string> &aliases)
{
    auto *host = new Host;
    host->rec.maxSlots = maxSlots;
    host->rec.numCpus = numCpus < 0 ? maxSlots : numCpus;
    host->rec.status = RSV_HOST_STATUS_FLAGGED;
    host->aliases = aliases;
    removeHost(name);
    hosts_[name] = host;
    return &host->rec;
}

void FakeDaemon::removeHost(const std::string &name)
{
    auto it = hosts_.find(name);
    if (it != hosts_.end()) {
        delete it->second;
        hosts_.erase(it);
    }
}

RsvHost *FakeDaemon::host(const std::string &name)
{
    auto it = hosts_.find(name);
    return it == hosts_.end() ? nullptr : &it->second->rec;
}

RsvJob *FakeDaemon::addJob(int64_t jobId, int status, const std::vector<RsvHost *> &execHosts)
{
    auto *list = new std::vector<RsvHost *>(execHosts);
    execHostLists_.push_back(list);
    auto *job = new RsvJob{};
    job->jobId = jobId;
    job->status = status;
    job->numExecHosts = static_cast<int>(list->size());
    job->execHosts = list->empty() ? nullptr : list->data();
    delete jobs_[jobId];
    jobs_[jobId] = job;
    return job;
}

void FakeDaemon::failAfter(int n)
{
    failAfter_ = n;
    allocCount_ = 0;
}

void FakeDaemon::clearFindJob()
{
    services.findJob = nullptr;
    RsvMod_init(&services);
}

bool FakeDaemon::allocAllowed()
{
    ++allocCount_;
    return failAfter_ < 0 || allocCount_ <= failAfter_;
}

void *FakeDaemon::allocZeroed(int count, size_t size, const char *)
{
    if (current_ && !current_->allocAllowed())
        return nullptr;
    if (count <= 0 || size == 0)
        return calloc(1, 1);
    return calloc(static_cast<size_t>(count), size);
}

char *FakeDaemon::dupString(const char *text)
{
    if (current_ && !current_->allocAllowed())
        return nullptr;
    return strdup(text ? text : "");
}

RsvJob *FakeDaemon::findJob(int64_t jobId)
{
    if (!current_)
        return nullptr;
    auto it = current_->jobs_.find(jobId);
    return it == current_->jobs_.end() ? nullptr : it->second;
}

RsvHost *FakeDaemon::findHost(const char *name)
{
    if (!current_ || !name)
        return nullptr;
    for (auto &[official, host] : current_->hosts_) {
        if (official == name)
            return &host->rec;
        for (auto &alias : host->aliases)
            if (alias == name)
                return &host->rec;
    }
    return nullptr;
}

char *FakeDaemon::officialHostName(const char *name)
{
    if (!current_ || !name)
        return nullptr;
    for (auto &[official, host] : current_->hosts_) {
        bool match = official == name;
        for (auto &alias : host->aliases)
            match = match || alias == name;
        if (match)
            return strdup(official.c_str());
    }
    return nullptr;
}

HashTab *FakeDaemon::rsvNameTable()
{
    return current_ ? &current_->nameTable_ : nullptr;
}

int FakeDaemon::maxRsvPerOwner()
{
    return current_ ? current_->maxPerOwner_ : 100;
}

time_t PinnedClock::now_ = 0;

PinnedClock::PinnedClock(time_t t)
{
    now_ = t;
    RsvMod_setClock(&PinnedClock::now);
}

PinnedClock::~PinnedClock()
{
    RsvMod_setClock(nullptr);
}

ScopedTz::ScopedTz(const char *zone)
{
    if (const char *old = getenv("TZ")) {
        old_ = old;
        hadOld_ = true;
    }
    setenv("TZ", zone, 1);
    tzset();
}

ScopedTz::~ScopedTz()
{
    if (hadOld_)
        setenv("TZ", old_.c_str(), 1);
    else
        unsetenv("TZ");
    tzset();
}

time_t localTime(int year, int month, int day, int hour, int minute, int second)
{
    struct tm tm {};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    tm.tm_isdst = -1;
    return mktime(&tm);
}

LogCapture *LogCapture::current_ = nullptr;

LogCapture::LogCapture()
{
    current_ = this;
    previous_ = kx_setLogSink(&LogCapture::sink);
}

LogCapture::~LogCapture()
{
    kx_setLogSink(previous_);
    current_ = nullptr;
}

void LogCapture::sink(int level, const char *line)
{
    if (current_)
        current_->lines_.push_back({level, line ? line : ""});
}

bool LogCapture::contains(const std::string &fragment) const
{
    for (auto &l : lines_)
        if (l.text.find(fragment) != std::string::npos)
            return true;
    return false;
}

bool LogCapture::contains(int level, const std::string &fragment) const
{
    for (auto &l : lines_)
        if (l.level == level && l.text.find(fragment) != std::string::npos)
            return true;
    return false;
}

TempDir::TempDir()
{
    const char *base = getenv("TMPDIR");
    std::string templ = std::string(base && *base ? base : "/tmp") + "/rsvtest.XXXXXX";
    std::vector<char> buf(templ.begin(), templ.end());
    buf.push_back('\0');
    if (!mkdtemp(buf.data()))
        throw std::runtime_error("mkdtemp failed");
    path_ = buf.data();
}

static void removeTree(const std::string &path)
{
    if (DIR *dir = opendir(path.c_str())) {
        while (struct dirent *de = readdir(dir)) {
            std::string name = de->d_name;
            if (name == "." || name == "..")
                continue;
            std::string child = path + "/" + name;
            struct stat st {};
            if (lstat(child.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
                removeTree(child);
            else
                unlink(child.c_str());
        }
        closedir(dir);
    }
    rmdir(path.c_str());
}

TempDir::~TempDir()
{
    removeTree(path_);
}

std::string readFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

bool fileExists(const std::string &path)
{
    struct stat st {};
    return stat(path.c_str(), &st) == 0;
}

void removeDirectory(const std::string &dir)
{
    if (DIR *d = opendir(dir.c_str())) {
        while (dirent *e = readdir(d)) {
            std::string name = e->d_name;
            if (name != "." && name != "..")
                unlink((dir + "/" + name).c_str());
        }
        closedir(d);
    }
    rmdir(dir.c_str());
}

std::map<std::string, int> idFileCounters(const std::string &text)
{
    std::istringstream in(text);
    std::string version;
    int count = 0;
    in >> version >> count;
    std::map<std::string, int> out;
    std::string owner;
    int n = 0;
    while (in >> owner >> n)
        out[owner] = n;
    return out;
}

void writeFile(const std::string &path, const std::string &contents)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << contents;
}

static char *heapCopy(const std::string &s)
{
    return strdup(s.c_str());
}

static void fillReq(RsvReq &req, int options, const std::string &owner, int minProcs, int maxProcs,
                    const std::vector<std::string> &hosts, const std::string &timeWindow, const char *description)
{
    req.options = options;
    req.name = heapCopy(owner);
    req.minNumProcs = minProcs;
    req.maxNumProcs = maxProcs;
    req.numAskedHosts = static_cast<int>(hosts.size());
    req.askedHosts = hosts.empty() ? nullptr : static_cast<char **>(calloc(hosts.size(), sizeof(char *)));
    for (size_t i = 0; i < hosts.size(); ++i)
        req.askedHosts[i] = heapCopy(hosts[i]);
    req.timeWindow = heapCopy(timeWindow);
    req.description = description ? heapCopy(description) : nullptr;
}

static void freeReq(RsvReq &req)
{
    free(req.name);
    for (int i = 0; i < req.numAskedHosts; ++i)
        free(req.askedHosts[i]);
    free(req.askedHosts);
    free(req.timeWindow);
    free(req.description);
    free(req.rsvId);
    req = RsvReq{};
}

OwnedReq::OwnedReq(int options, const std::string &owner, int minProcs, int maxProcs,
                   const std::vector<std::string> &hosts, const std::string &timeWindow, const char *description)
{
    fillReq(req, options, owner, minProcs, maxProcs, hosts, timeWindow, description);
}

OwnedReq::~OwnedReq()
{
    freeReq(req);
}

OwnedModReq::OwnedModReq(const std::string &rsvId, int options, int minProcs, int maxProcs,
                         const std::vector<std::string> &hosts, const std::string &timeWindow,
                         const char *description)
{
    mod.rsvId = heapCopy(rsvId);
    fillReq(mod.req, options, "", minProcs, maxProcs, hosts, timeWindow, description);
}

OwnedModReq::~OwnedModReq()
{
    free(mod.rsvId);
    freeReq(mod.req);
}

RequestedHosts::RequestedHosts(const std::vector<std::string> &names)
{
    h_initTab_(&tab_, 8);
    marks_.reserve(names.size());
    for (const std::string &n : names) {
        marks_.push_back(1);
        h_addEnt_(&tab_, n.c_str(), nullptr)->value = &marks_.back();
    }
}

RequestedHosts::~RequestedHosts()
{
    h_freeTab_(&tab_, nullptr);
}

std::string addReservation(RsvTimeTbl *tbl, int options, const std::string &owner, int procs,
                           const std::vector<std::string> &hosts, const std::string &window)
{
    OwnedReq req(options, owner, procs, procs, hosts, window);
    char *id = RsvTimeTbl_addEntry(tbl, &req.req);
    EXPECT_NE(id, nullptr) << owner << " " << window << ": " << qob_errno;
    std::string out = id ? id : "";
    std::free(id);
    return out;
}

std::string oneOff(time_t start, time_t end)
{
    return std::to_string(static_cast<long long>(start)) + "-" + std::to_string(static_cast<long long>(end));
}

ResPlanner *findPlanner(RsvTimeTbl *tbl, const std::string &host, const RsvWeek &week)
{
    HashEnt *he = h_getEnt_(&tbl->plannerLists, host.c_str());
    if (!he || !he->value)
        return nullptr;
    RsvWeek w = week;
    return reinterpret_cast<ResPlanner *>(listSearchEntry(static_cast<List *>(he->value), &w, ResPlanner_equal, 0));
}

static std::string weekText(const RsvWeek &w)
{
    std::ostringstream out;
    out << w.startYear << "/" << w.startMonth << "/" << w.startDay;
    return out.str();
}

static ::testing::AssertionResult comparePlanners(const std::string &host, const ResPlanner *a, const ResPlanner *b)
{
    for (int d = 0; d < RSV_PLANNER_DAYS; ++d)
        for (int s = 0; s < RSV_PLANNER_SLOTS_PER_DAY; ++s)
            if (a->slots[d][s].reserved != b->slots[d][s].reserved)
                return ::testing::AssertionFailure()
                       << "host " << host << " week " << weekText(a->week) << " day " << d << " slot " << s
                       << ": " << a->slots[d][s].reserved << " vs " << b->slots[d][s].reserved;
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult plannersEqual(RsvTimeTbl *a, RsvTimeTbl *b)
{
    HashIter it;
    for (HashEnt *he = h_firstEnt_(&a->plannerLists, &it); he; he = h_nextEnt_(&it)) {
        List *la = static_cast<List *>(he->value);
        HashEnt *hb = h_getEnt_(&b->plannerLists, he->key);
        for (ListEntry *e = la->forw; e != reinterpret_cast<ListEntry *>(la); e = e->forw) {
            auto *pa = reinterpret_cast<ResPlanner *>(e);
            ResPlanner *pb = nullptr;
            if (hb) {
                RsvWeek w = pa->week;
                pb = reinterpret_cast<ResPlanner *>(
                    listSearchEntry(static_cast<List *>(hb->value), &w, ResPlanner_equal, 0));
            }
            bool emptyA = true;
            for (int d = 0; d < RSV_PLANNER_DAYS && emptyA; ++d)
                for (int s = 0; s < RSV_PLANNER_SLOTS_PER_DAY; ++s)
                    if (pa->slots[d][s].reserved != 0) {
                        emptyA = false;
                        break;
                    }
            if (!pb) {
                if (emptyA)
                    continue;
                return ::testing::AssertionFailure()
                       << "host " << he->key << " week " << weekText(pa->week) << " missing in the second table";
            }
            auto r = comparePlanners(he->key, pa, pb);
            if (!r)
                return r;
        }
    }
    return ::testing::AssertionSuccess();
}

static void collectLine(void *context, const char *line)
{
    static_cast<std::vector<std::string> *>(context)->push_back(line ? line : "");
}

static ::testing::AssertionResult fromProblems(int result, const std::vector<std::string> &lines)
{
    if (result == 0)
        return ::testing::AssertionSuccess();
    auto failure = ::testing::AssertionFailure();
    if (result < 0)
        failure << "the check could not run (result " << result << ", qob_errno " << qob_errno << ")";
    else
        failure << result << " problem(s):";
    for (const std::string &line : lines)
        failure << "\n  " << line;
    return failure;
}

::testing::AssertionResult plannersMatchRebooking(RsvTimeTbl *tbl)
{
    std::vector<std::string> lines;
    const int result = rsv::checkPlannerCells(tbl, &collectLine, &lines);
    return fromProblems(result, lines);
}

std::vector<std::string> verifyProblems(RsvTimeTbl *tbl, int *result)
{
    std::vector<std::string> lines;
    const int n = RsvTimeTbl_verify(tbl, &collectLine, &lines);
    if (result)
        *result = n;
    return lines;
}

::testing::AssertionResult tableVerifies(RsvTimeTbl *tbl)
{
    int result = 0;
    std::vector<std::string> lines = verifyProblems(tbl, &result);
    return fromProblems(result, lines);
}

static std::string entryFingerprint(const RsvEnt *ent)
{
    std::ostringstream out;
    char *record = RsvEnt_ToString(ent);
    out << (record ? record : "<no record>");
    std::free(record);
    // What the record leaves out: state, readable instance, every element
    // of the vector with its job counts.
    out << " | state " << ent->state << " duration <" << (ent->timeDuration ? ent->timeDuration : "") << ">"
        << " hosts " << ent->numHosts << (ent->allocVector ? "" : " (no vector)");
    for (int i = 0; ent->allocVector && i < ent->numHosts; ++i) {
        const AllocElem &el = ent->allocVector[i];
        out << " [" << (el.hostName ? el.hostName : "<none>") << " " << el.numSlots << " " << el.extra1 << " "
            << el.extra2 << "]";
    }
    return out.str();
}

TableFingerprint fingerprint(RsvTimeTbl *tbl)
{
    TableFingerprint fp;
    HashIter it;
    for (HashEnt *he = h_firstEnt_(&tbl->entries, &it); he; he = h_nextEnt_(&it)) {
        fp.records += std::string(he->key) + " -> ";
        fp.records += he->value ? entryFingerprint(static_cast<const RsvEnt *>(he->value)) : "<NULL>";
        fp.records += "\n";
        ++fp.numEntries;
    }
    if (rsvIdTbl)
        for (HashEnt *he = h_firstEnt_(rsvIdTbl, &it); he; he = h_nextEnt_(&it))
            fp.counters += std::string(he->key) + " " +
                           std::to_string(static_cast<int>(reinterpret_cast<intptr_t>(he->value))) + "\n";
    fp.cells = plannerCells(tbl);
    return fp;
}

std::string stateFileText(RsvTimeTbl *tbl)
{
    std::string out;
    HashIter it;
    for (HashEnt *he = h_firstEnt_(&tbl->entries, &it); he; he = h_nextEnt_(&it)) {
        if (std::strchr(he->key, '@'))
            continue;
        char *record = RsvEnt_ToString(static_cast<const RsvEnt *>(he->value));
        out += record ? record : "<no record>";
        out += "\n";
        std::free(record);
    }
    return out;
}

std::string idFileText()
{
    std::string out = RSV_FORMAT_VERSION "\n" + std::to_string(h_numEnts_(rsvIdTbl)) + "\n";
    HashIter it;
    if (rsvIdTbl)
        for (HashEnt *he = h_firstEnt_(rsvIdTbl, &it); he; he = h_nextEnt_(&it))
            out += std::string(he->key) + " " +
                   std::to_string(static_cast<int>(reinterpret_cast<intptr_t>(he->value))) + " \n ";
    return out;
}

::testing::AssertionResult sameFingerprint(const TableFingerprint &before, const TableFingerprint &after)
{
    if (before.numEntries != after.numEntries)
        return ::testing::AssertionFailure() << before.numEntries << " entries before, " << after.numEntries
                                             << " after";
    if (before.records != after.records)
        return ::testing::AssertionFailure() << "records differ:\nbefore:\n"
                                             << before.records << "after:\n"
                                             << after.records;
    if (before.counters != after.counters)
        return ::testing::AssertionFailure() << "identifier counters differ:\nbefore:\n"
                                             << before.counters << "after:\n"
                                             << after.counters;
    if (before.cells != after.cells)
        return ::testing::AssertionFailure() << "planner cells differ (" << before.cells.size() << " values before, "
                                             << after.cells.size() << " after)";
    return ::testing::AssertionSuccess();
}

std::vector<int> plannerCells(RsvTimeTbl *tbl)
{
    std::vector<int> cells;
    HashIter it;
    for (HashEnt *he = h_firstEnt_(&tbl->plannerLists, &it); he; he = h_nextEnt_(&it)) {
        List *list = static_cast<List *>(he->value);
        for (ListEntry *e = list->forw; e != reinterpret_cast<ListEntry *>(list); e = e->forw) {
            auto *p = reinterpret_cast<ResPlanner *>(e);
            cells.push_back(p->week.startYear * 10000 + p->week.startMonth * 100 + p->week.startDay);
            for (int d = 0; d < RSV_PLANNER_DAYS; ++d)
                for (int s = 0; s < RSV_PLANNER_SLOTS_PER_DAY; ++s)
                    cells.push_back(p->slots[d][s].reserved);
        }
    }
    return cells;
}

} // namespace rsvtest
