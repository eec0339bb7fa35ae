// earliest.cpp: the earliest-fit calls: checking the arguments, resolving the
// asked hosts the way RsvTimeTbl_getReservableAlloc does (without replacing
// the request's names), and the parts of an answer both searches share: the
// allocation Rsv_alloc would make and the host that held a request back.
#include <algorithm>
#include <cstring>
#include <new>

#include "earliest_internal.h"
#include "planner_internal.h"

namespace rsv::fit {

namespace {

constexpr int kUnlimited = kUnlimitedSlots;
// The range of times searched: the years 1900 to 9999, so that no start or
// end can overflow and every one has a local calendar date.
constexpr time_t kEarliestTime = -2208988800;
constexpr time_t kLatestTime = 253402300799;

int fail(int error)
{
    qob_errno = error;
    return error;
}

bool requestUsable(const RsvReq *req)
{
    if (req->numAskedHosts < 1 || !req->askedHosts)
        return false;
    for (int i = 0; i < req->numAskedHosts; ++i)
        if (!req->askedHosts[i])
            return false;
    return true;
}

// Each asked host as the addition resolves it: the list under the name as
// asked, the capacity of the official host. 0 or an error number.
int resolveHosts(RsvTimeTbl *tbl, const RsvReq *req, std::vector<AskedHost> &hosts)
{
    hosts.resize(static_cast<size_t>(req->numAskedHosts));
    for (int i = 0; i < req->numAskedHosts; ++i) {
        AskedHost &h = hosts[static_cast<size_t>(i)];
        h.asked = req->askedHosts[i];
        h.official.reset(miscFuncs.officialHostName ? miscFuncs.officialHostName(h.asked) : nullptr);
        const RsvHost *host = h.official && miscFuncs.findHost ? miscFuncs.findHost(h.official.get()) : nullptr;
        if (!host)
            return RSV_ERR_BAD_HOST;
        h.capacity = host->maxSlots == kUnlimited ? host->numCpus : host->maxSlots;
        bool failed = false;
        h.list = plannerListIfAny(tbl, h.asked, failed);
        if (failed)
            return RSV_ERR_NO_MEMORY;
    }
    return RSV_OK;
}

// The checks and preparation both calls share; then the search itself.
template <typename Search>
int run(RsvTimeTbl *tbl, const RsvReq *req, bool recurring, const char *changingRsvId, RsvFit *result,
        Search search) noexcept
{
    try {
        if (!requestUsable(req) || ((req->options & RSV_OPT_RECURRING) != 0) != recurring)
            return fail(RSV_ERR_BAD_ARGUMENT);
        Changing changing;
        RsvEnt *changed = nullptr;
        if (changingRsvId) {
            // Read from the table's record: the table's own look-up sits in
            // the layer above the planners.
            HashEnt *he = h_getEnt_(&tbl->entries, changingRsvId);
            changed = he ? static_cast<RsvEnt *>(he->value) : nullptr;
            if (!changed)
                return fail(RSV_ERR_NO_RSV);
        }
        if (!changing.init(changed))
            return fail(RSV_ERR_NO_MEMORY);
        std::vector<AskedHost> hosts;
        if (const int error = resolveHosts(tbl, req, hosts))
            return fail(error);
        Rule rule;
        rule.minNumProcs = req->minNumProcs;
        rule.maxNumProcs = req->maxNumProcs;
        rule.system = (req->options & RSV_OPT_SYSTEM) != 0;
        const int error = search(hosts, rule, changed ? &changing : nullptr);
        if (error != RSV_OK) {
            RsvFit_destroy(result);
            return fail(error);
        }
        return RSV_OK;
    } catch (const std::bad_alloc &) {
        RsvFit_destroy(result);
        return fail(RSV_ERR_NO_MEMORY);
    } catch (...) {
        RsvFit_destroy(result);
        return fail(RSV_ERR_NO_MEMORY);
    }
}

void clearResult(RsvFit *result)
{
    std::memset(result, 0, sizeof *result);
    result->limitHostIndex = -1;
}

} // namespace

bool fillAllocation(const std::vector<AskedHost> &hosts, const std::vector<int> &avail, const Rule &rule,
                    RsvFit *result)
{
    // Rsv_alloc: just enough hosts, in order, for their slots to reach the
    // minimum (a system request's minimum and maximum are the reservable
    // count), then each filled as far as it can up to the maximum.
    int64_t sum = 0;
    for (int a : avail)
        sum += a;
    const int reservable = Rule::reservable(sum);
    const int minimum = rule.system ? reservable : rule.minNumProcs;
    const int maximum = rule.system ? reservable : rule.maxNumProcs;
    int chosen = 0;
    sum = 0;
    for (int a : avail) {
        if (a == 0)
            continue;
        ++chosen;
        sum += a;
        if (sum >= minimum)
            break;
    }
    const int64_t target = std::min<int64_t>(maximum, sum);
    auto *vector = static_cast<AllocElem *>(allocRecord(chosen, sizeof(AllocElem), "RsvTimeTbl_findEarliest"));
    if (!vector)
        return false;
    result->allocVector = vector;
    int64_t booked = 0;
    int k = 0;
    for (size_t i = 0; i < avail.size() && k < chosen; ++i) {
        if (avail[i] == 0)
            continue;
        AllocElem &elem = vector[k++];
        elem.numSlots = static_cast<int>(std::min<int64_t>(avail[i], target - booked));
        elem.hostName = dupText(hosts[i].official.get());
        result->numHosts = k;
        if (!elem.hostName)
            return false;
        booked += elem.numSlots;
        if (booked == target)
            break;
    }
    return true;
}

int fillLimitHost(const std::vector<AskedHost> &hosts, const std::vector<HostUse> &uses, const Rule &rule,
                  RsvFit *result, bool *ok)
{
    *ok = true;
    for (size_t i = 0; i < hosts.size(); ++i) {
        const int used = uses[i].used;
        const int best = rule.offered(hosts[i].capacity, 0);
        const bool held = rule.system ? used != 0 : rule.offered(hosts[i].capacity, used) < best;
        if (!held)
            continue;
        result->limitHostIndex = static_cast<int>(i);
        result->limitHost = dupText(hosts[i].official.get());
        *ok = result->limitHost != nullptr;
        return static_cast<int>(i);
    }
    return -1;
}

} // namespace rsv::fit

extern "C" {

int RsvTimeTbl_findEarliest(RsvTimeTbl *tbl, const RsvReq *req, time_t notBefore, time_t notAfter,
                            int durationMinutes, const char *changingRsvId, RsvFit *result)
{
    if (result)
        rsv::fit::clearResult(result);
    if (!tbl || !req || !result || durationMinutes < 1 || notAfter <= notBefore ||
        notBefore < rsv::fit::kEarliestTime || notAfter > rsv::fit::kLatestTime)
        return rsv::fit::fail(RSV_ERR_BAD_ARGUMENT);
    return rsv::fit::run(tbl, req, false, changingRsvId, result,
                         [&](const std::vector<rsv::fit::AskedHost> &hosts, const rsv::fit::Rule &rule,
                             const rsv::fit::Changing *changing) {
                             return rsv::fit::searchOneOff(tbl, hosts, rule, changing, notBefore, notAfter,
                                                           durationMinutes, result);
                         });
}

int RsvTimeTbl_findEarliestRecurring(RsvTimeTbl *tbl, const RsvReq *req, int form, int durationMinutes,
                                     const char *changingRsvId, RsvFit *result)
{
    if (result)
        rsv::fit::clearResult(result);
    const int longest = form == RSV_FIT_DAILY ? 1439 : 10079;
    if (!tbl || !req || !result || (form != RSV_FIT_DAILY && form != RSV_FIT_WEEKLY) || durationMinutes < 1 ||
        durationMinutes > longest)
        return rsv::fit::fail(RSV_ERR_BAD_ARGUMENT);
    return rsv::fit::run(tbl, req, true, changingRsvId, result,
                         [&](const std::vector<rsv::fit::AskedHost> &hosts, const rsv::fit::Rule &rule,
                             const rsv::fit::Changing *changing) {
                             return rsv::fit::searchRecurring(hosts, rule, changing, form, durationMinutes, result);
                         });
}

void RsvFit_destroy(RsvFit *fit)
{
    if (!fit)
        return;
    std::free(fit->timeWindow);
    RsvEnt_freeAllocVector(&fit->allocVector, fit->numHosts);
    std::free(fit->limitHost);
    rsv::fit::clearResult(fit);
}

} // extern "C"
