// earliest.cpp: the module's earliest-fit search for find and add --earliest,
// and how its answer is told.
#include "earliest.h"

#include <algorithm>

#include <fmt/format.h>

#include "cli_error.h"
#include "operations.h"
#include "report.h"
#include "table_format.h"
#include "timeparse.h"

namespace rsvctl {

namespace {

constexpr long kDay = 86400;
constexpr long kWeek = 7 * kDay;

// A one-off start is at least this far ahead of the clock, so the add that
// books a found window still finds its start in the future.
constexpr time_t kStartLead = 60;

struct FitOwner {
    RsvFit fit{};
    FitOwner() = default;
    FitOwner(const FitOwner &) = delete;
    FitOwner &operator=(const FitOwner &) = delete;
    ~FitOwner() { RsvFit_destroy(&fit); }
};

std::string joined(const std::vector<std::string> &items)
{
    std::string out;
    for (const auto &item : items)
        out += (out.empty() ? "" : ",") + item;
    return out;
}

std::string slotsWord(int n)
{
    return fmt::format("{} slot{}", n, n == 1 ? "" : "s");
}

const char *formName(FitForm form)
{
    return form == FitForm::OneOff ? "one-off" : form == FitForm::Daily ? "daily" : "weekly";
}

// A recurring start as words: "every day 09:00", "every Fri 18:00".
std::string recurringPoint(FitForm form, time_t offset)
{
    const long seconds = static_cast<long>(offset);
    const long inDay = seconds % kDay;
    const std::string clock = fmt::format("{:02d}:{:02d}", inDay / 3600, inDay % 3600 / 60);
    if (form == FitForm::Daily)
        return "every day " + clock;
    return fmt::format("every {} {}", weekdayName(static_cast<int>(seconds / kDay % 7)), clock);
}

// A recurring end: "14:00", "06:00 the next day", "Mon 06:00".
std::string recurringEnd(FitForm form, time_t offset)
{
    const long seconds = static_cast<long>(offset);
    const long inDay = seconds % kDay;
    const std::string clock = fmt::format("{:02d}:{:02d}", inDay / 3600, inDay % 3600 / 60);
    if (form == FitForm::Daily)
        return seconds >= kDay ? clock + " the next day" : clock;
    return fmt::format("{} {}{}", weekdayName(static_cast<int>(seconds / kDay % 7)), clock,
                       seconds >= kWeek ? " the next week" : "");
}

// Where the closest start's limit lies: a time, or for a recurring search
// a weekday and time in a dated week or in every week.
std::string cellWords(const FitRequest &request, const FitAnswer &answer)
{
    if (request.form == FitForm::OneOff)
        return formatTime(answer.limitCell);
    const long seconds = static_cast<long>(answer.limitCell);
    const long inDay = seconds % kDay;
    std::string at = fmt::format("{} {:02d}:{:02d}", weekdayName(static_cast<int>(seconds / kDay % 7)),
                                 inDay / 3600, inDay % 3600 / 60);
    const RsvWeek &w = answer.limitWeek;
    if (w.startYear == 0)
        return at + " in every week";
    return fmt::format("{} in the week of Sun {:04d}-{:02d}-{:02d}", at, w.startYear, w.startMonth + 1,
                       w.startDay);
}

std::string startWords(const FitRequest &request, time_t start)
{
    return request.form == FitForm::OneOff ? formatTime(start) : recurringPoint(request.form, start);
}

// The Sunday of a dated planner week, "YYYY-MM-DD", or null.
nlohmann::ordered_json weekJson(const RsvWeek &w)
{
    if (w.startYear == 0)
        return nullptr;
    return fmt::format("{:04d}-{:02d}-{:02d}", w.startYear, w.startMonth + 1, w.startDay);
}

nlohmann::ordered_json timeOrNull(bool present, time_t t)
{
    return present ? nlohmann::ordered_json(static_cast<long long>(t)) : nlohmann::ordered_json(nullptr);
}

} // namespace

void addFitOptions(CLI::App *cmd, FitOptions &options)
{
    cmd->add_option("-D,--duration", options.duration, "Length of the window: 6h, 90m, 1d2h, 2h30m");
    cmd->add_option("--after", options.after,
                    "One-off: the earliest start (default now), in the forms of -b");
    cmd->add_option("--before", options.before,
                    fmt::format("One-off: every start comes before this (default {} days after --after)",
                                kDefaultHorizonDays));
    cmd->add_flag("--daily", options.daily, "A daily window: the earliest time of day");
    cmd->add_flag("--weekly", options.weekly, "A weekly window: the earliest day and time of the week");
}

bool anyFitOption(const FitOptions &options)
{
    return !options.duration.empty() || !options.after.empty() || !options.before.empty() || options.daily ||
           options.weekly;
}

void readFitOptions(const FitOptions &options, FitRequest &request)
{
    if (options.daily && options.weekly)
        usageError("give --daily or --weekly, not both");
    if (options.duration.empty())
        usageError("give the length of the window: -D DURATION, such as 6h, 90m or 1d2h");
    request.durationMinutes = parseDurationMinutes(options.duration, "-D");
    request.form = options.daily ? FitForm::Daily : options.weekly ? FitForm::Weekly : FitForm::OneOff;
    if (request.form != FitForm::OneOff) {
        if (!options.after.empty() || !options.before.empty())
            usageError("--after and --before limit one-off searches: a daily or weekly window repeats without end");
        // The module's own limits for a recurring window's length.
        const bool daily = request.form == FitForm::Daily;
        if (request.durationMinutes > (daily ? 1439 : 10079))
            usageError(fmt::format("-D '{}' is too long for a {} window: at most {}", options.duration,
                                   daily ? "daily" : "weekly", daily ? "23h59m" : "6d23h59m"));
        return;
    }
    const time_t now = nowTime();
    request.afterGiven = !options.after.empty();
    request.after = request.afterGiven ? std::max(parsePoint(options.after, "--after"), now) : now;
    if (options.before.empty()) {
        // Calendar days, so the horizon keeps its clock time across a change.
        std::tm tm{};
        localtime_r(&request.after, &tm);
        tm.tm_mday += kDefaultHorizonDays;
        tm.tm_isdst = -1;
        request.before = mktime(&tm);
    } else {
        request.before = parsePoint(options.before, "--before");
    }
    if (request.before <= request.after)
        usageError(fmt::format("--before '{}' must come after {}{}", options.before, formatTime(request.after),
                               request.afterGiven ? " (--after)" : " (now)"));
}

FitAnswer searchEarliest(Session &session, const FitRequest &request)
{
    ErrorContext ctx;
    ctx.owner = request.owner;
    ctx.hosts = joined(request.typedHosts);
    ctx.system = request.system;
    // The module keeps bookings under official names: search under them, as
    // add books under them.
    std::vector<std::string> official = resolveHosts(session.cluster(), request.typedHosts);
    std::vector<char *> names;
    for (auto &h : official)
        names.push_back(h.data());
    std::string owner = request.owner;
    RsvReq req{};
    req.options = (request.form != FitForm::OneOff ? RSV_OPT_RECURRING : 0) | (request.system ? RSV_OPT_SYSTEM : 0);
    req.name = owner.data();
    // As add asks: a system request with no minimum or maximum.
    req.minNumProcs = request.system ? 0 : request.minSlots;
    req.maxNumProcs = request.system ? 0 : request.maxSlots;
    req.numAskedHosts = static_cast<int>(names.size());
    req.askedHosts = names.data();

    FitAnswer answer;
    FitOwner owned;
    RsvFit &fit = owned.fit;
    qob_errno = 0;
    int err = 0;
    if (request.form == FitForm::OneOff) {
        const time_t notBefore = std::max(request.after, nowTime() + kStartLead);
        if (request.before <= notBefore)
            return answer;  // no start at all
        err = RsvTimeTbl_findEarliest(session.table(), &req, notBefore, request.before, request.durationMinutes,
                                      nullptr, &fit);
    } else {
        err = RsvTimeTbl_findEarliestRecurring(session.table(), &req,
                                               request.form == FitForm::Daily ? RSV_FIT_DAILY : RSV_FIT_WEEKLY,
                                               request.durationMinutes, nullptr, &fit);
    }
    if (err != 0)
        refuse(err, ctx);

    answer.found = fit.found != 0;
    answer.bestTotal = fit.bestTotal;
    answer.bestStart = fit.bestStart;
    answer.anyStart = request.form != FitForm::OneOff || fit.bestTotal != 0 || fit.bestStart != 0;
    if (answer.found) {
        answer.window = fit.timeWindow ? fit.timeWindow : "";
        answer.start = fit.start;
        answer.end = fit.end;
        for (int i = 0; i < fit.numHosts; ++i) {
            const AllocElem &e = fit.allocVector[i];
            FitHost h;
            h.name = e.hostName ? e.hostName : "";
            h.slots = e.numSlots;
            if (const ClusterHost *c = session.cluster().find(h.name)) {
                h.capacity = c->slots;
                h.cpus = c->cpus;
            }
            answer.hosts.push_back(h);
        }
    } else if (fit.limitHost) {
        answer.limitHost = fit.limitHost;
        answer.limitCell = fit.limitCell;
        answer.limitWeek = fit.limitWeek;
    }
    return answer;
}

std::string noFitMessage(const FitRequest &request, const FitAnswer &answer)
{
    const std::string length = formatDuration(static_cast<long long>(request.durationMinutes) * 60);
    const std::string hosts = joined(request.typedHosts);
    const std::string kind = request.form == FitForm::OneOff ? "" : std::string(formName(request.form)) + " ";
    std::string out = request.system
                          ? fmt::format("no {}{} window with nothing else booked on '{}'", kind, length, hosts)
                          : fmt::format("no {}{} window with {} on '{}'", kind, length,
                                        slotsWord(request.minSlots), hosts);
    if (request.form != FitForm::OneOff)
        out += " fits";
    else if (request.afterGiven)
        out += fmt::format(" starts between {} and {}", formatTime(request.after), formatTime(request.before));
    else
        out += fmt::format(" starts before {}", formatTime(request.before));
    if (!answer.anyStart)
        return out + ": no 10-minute boundary in the future lies in that range";
    out += "; closest: " + startWords(request, answer.bestStart);
    if (request.system)
        return answer.limitHost
                   ? out + fmt::format(", held back by a booking on {} at {}", *answer.limitHost,
                                       cellWords(request, answer))
                   : out;
    out += fmt::format(" with {} of {}", answer.bestTotal, slotsWord(request.minSlots));
    if (answer.limitHost)
        return out + fmt::format(", held back by {} at {}", *answer.limitHost, cellWords(request, answer));
    // No host gave less than it could: the hosts together are too small.
    return out + ", every slot the hosts have";
}

std::string formatFit(const FitRequest &request, const FitAnswer &answer)
{
    std::string out;
    auto field = [&](const char *name, const std::string &value) { out += fmt::format("{:<13}{}\n", name, value); };
    const std::string length = formatDuration(answer.end - answer.start);
    if (request.form == FitForm::OneOff) {
        field("Start", formatTime(answer.start));
        field("End", fmt::format("{} ({})", formatTime(answer.end), length));
    } else {
        field("Start", recurringPoint(request.form, answer.start));
        field("End", fmt::format("{} ({})", recurringEnd(request.form, answer.end), length));
    }
    int total = 0;
    TextTable hosts({"HOST", "SLOTS", "CAPACITY", "CPUS"}, {1, 2, 3});
    for (const auto &h : answer.hosts) {
        hosts.addRow({h.name, std::to_string(h.slots), std::to_string(h.capacity), std::to_string(h.cpus)});
        total += h.slots;
    }
    field("Hosts", fmt::format("{} on {} host{}", slotsWord(total), answer.hosts.size(),
                               answer.hosts.size() == 1 ? "" : "s"));
    out += hosts.render(std::string(13, ' '));
    return out;
}

nlohmann::ordered_json fitJson(const FitRequest &request, const FitAnswer &answer)
{
    const bool oneOff = request.form == FitForm::OneOff;
    nlohmann::ordered_json out;
    out["now"] = static_cast<long long>(nowTime());
    out["found"] = answer.found;
    out["owner"] = request.owner;
    out["type"] = formName(request.form);
    out["system"] = request.system;
    out["min_slots"] = request.system ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(request.minSlots);
    out["max_slots"] = request.system ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(request.maxSlots);
    out["duration"] = static_cast<long long>(request.durationMinutes) * 60;
    out["asked_hosts"] = request.typedHosts;
    out["after"] = timeOrNull(oneOff, request.after);
    out["before"] = timeOrNull(oneOff, request.before);
    out["window"] = answer.found ? nlohmann::ordered_json(answer.window) : nlohmann::ordered_json(nullptr);
    out["window_text"] = answer.found ? nlohmann::ordered_json(windowInWords(answer.window, !oneOff))
                                      : nlohmann::ordered_json(nullptr);
    out["begin"] = timeOrNull(answer.found && oneOff, answer.start);
    out["end"] = timeOrNull(answer.found && oneOff, answer.end);
    out["begin_offset"] = timeOrNull(answer.found && !oneOff, answer.start);
    out["end_offset"] = timeOrNull(answer.found && !oneOff, answer.end);
    nlohmann::ordered_json hosts = nlohmann::ordered_json::array();
    int total = 0;
    for (const auto &h : answer.hosts) {
        hosts.push_back({{"name", h.name}, {"slots", h.slots}, {"capacity", h.capacity}, {"cpus", h.cpus}});
        total += h.slots;
    }
    out["hosts"] = hosts;
    out["slots"] = total;
    if (answer.found) {
        out["closest"] = nullptr;
    } else {
        nlohmann::ordered_json closest;
        closest["begin"] = timeOrNull(answer.anyStart, answer.bestStart);
        closest["slots"] = answer.bestTotal;
        closest["host"] = answer.limitHost ? nlohmann::ordered_json(*answer.limitHost) : nlohmann::ordered_json(nullptr);
        closest["cell"] = timeOrNull(answer.limitHost.has_value(), answer.limitCell);
        closest["cell_week"] = answer.limitHost && !oneOff ? weekJson(answer.limitWeek) : nlohmann::ordered_json(nullptr);
        out["closest"] = closest;
    }
    return out;
}

} // namespace rsvctl
