// report.cpp: list and show, in words and in JSON.
#include "report.h"

#include <algorithm>
#include <cstdlib>

#include <fmt/format.h>

#include "cli_error.h"
#include "table_format.h"
#include "timeparse.h"

namespace rsvctl {

namespace {

struct PackedReply {
    RsvInfoReply reply{};
    ~PackedReply() { RsvInfoReply_destroyPacked(&reply); }
};

// d:h:m or h:m of a recurring point as (day, hour, minute); day -1 for none.
void splitPoint(const std::string &point, int &day, int &hour, int &minute)
{
    int parts[3] = {0, 0, 0};
    int n = 0;
    size_t start = 0;
    while (n < 3) {
        size_t colon = point.find(':', start);
        parts[n++] = std::atoi(point.substr(start, colon - start).c_str());
        if (colon == std::string::npos)
            break;
        start = colon + 1;
    }
    if (n == 3) {
        day = parts[0] % 7;
        hour = parts[1];
        minute = parts[2];
    } else {
        day = -1;
        hour = parts[0];
        minute = n == 2 ? parts[1] : 0;
    }
}

std::string spanText(const Span &span)
{
    return fmt::format("{} - {}", formatTime(span.begin), formatTime(span.end));
}

nlohmann::ordered_json spanJson(const std::optional<Span> &span)
{
    if (!span)
        return nullptr;
    return {{"begin", static_cast<long long>(span->begin)}, {"end", static_cast<long long>(span->end)}};
}

} // namespace

std::string windowInWords(const std::string &window, bool recurring)
{
    size_t dash = window.find('-');
    if (dash == std::string::npos)
        return window;
    std::string a = window.substr(0, dash), b = window.substr(dash + 1);
    if (!recurring) {
        time_t begin = std::atoll(a.c_str()), end = std::atoll(b.c_str());
        return fmt::format("{} to {} ({})", formatTime(begin), formatTime(end), formatDuration(end - begin));
    }
    long long duration = RsvTimeWindow_toDuration(window.c_str());
    int d1, h1, m1, d2, h2, m2;
    splitPoint(a, d1, h1, m1);
    splitPoint(b, d2, h2, m2);
    if (d1 < 0)
        return fmt::format("every day {:02d}:{:02d} to {:02d}:{:02d} ({})", h1, m1, h2, m2, formatDuration(duration));
    return fmt::format("every {} {:02d}:{:02d} to {} {:02d}:{:02d} ({})", weekdayName(d1), h1, m1, weekdayName(d2),
                       h2, m2, formatDuration(duration));
}

std::string compactWindow(const std::string &window, bool recurring)
{
    size_t dash = window.find('-');
    if (dash == std::string::npos)
        return window;
    std::string a = window.substr(0, dash), b = window.substr(dash + 1);
    if (!recurring) {
        // "Mon 11-23 09:00": the year only when it is not this year's.
        const std::string thisYear = formatTime(nowTime()).substr(4, 4);
        auto point = [&thisYear](time_t t) {
            std::string full = formatTime(t);
            return thisYear == full.substr(4, 4) ? full.substr(0, 4) + full.substr(9) : full;
        };
        return fmt::format("{} - {}", point(std::atoll(a.c_str())), point(std::atoll(b.c_str())));
    }
    int d1, h1, m1, d2, h2, m2;
    splitPoint(a, d1, h1, m1);
    splitPoint(b, d2, h2, m2);
    if (d1 < 0)
        return fmt::format("daily {:02d}:{:02d}-{:02d}:{:02d}", h1, m1, h2, m2);
    return fmt::format("weekly {} {:02d}:{:02d} - {} {:02d}:{:02d}", weekdayName(d1), h1, m1, weekdayName(d2), h2, m2);
}

namespace {

// The reservation of one element of the module's information reply, with
// its instances by the clock at `now`.
ReservationView viewOf(Session &session, const RsvInfoEnt &info, time_t now)
{
    ReservationView v;
    v.id = info.rsvId ? info.rsvId : "";
    v.owner = info.name ? info.name : "";
    bool recurring = (info.options & RSV_OPT_RECURRING) != 0;
    v.window = info.timeWindow ? info.timeWindow : "";
    v.type = !recurring ? "one-off" : isWeeklyWindow(v.window) ? "weekly" : "daily";
    v.system = (info.options & RSV_OPT_SYSTEM) != 0;
    v.windowWords = windowInWords(v.window, recurring);
    for (int j = 0; j < info.numHosts; ++j) {
        const RsvHostInfo &h = info.hostInfo[j];
        v.hosts.push_back({h.hostName ? h.hostName : "", h.numSlots, h.maxSlots, h.numCpus});
        v.totalSlots += h.numSlots;
    }
    v.state = info.state == RSV_STATE_ACTIVE ? "active" : "inactive";
    for (char **d = info.disabledDurations; d && *d; ++d)
        v.disabled.emplace_back(*d);
    if (info.description)
        v.description = info.description;
    v.creator = info.creator ? info.creator : "";

    RsvEnt *ent = RsvTimeTbl_getEntry(session.table(), v.id.c_str());
    if (ent) {
        v.created = ent->createTime;
        v.durationSeconds = ent->duration;
    }
    if (!recurring) {
        size_t dash = v.window.find('-');
        if (dash != std::string::npos) {
            Span span{static_cast<time_t>(std::atoll(v.window.substr(0, dash).c_str())),
                      static_cast<time_t>(std::atoll(v.window.substr(dash + 1).c_str()))};
            v.oneOff = span;
            v.current = span;
            v.durationSeconds = span.end - span.begin;
            v.status = now < span.begin ? "upcoming" : now < span.end ? "running" : "ended";
        }
    } else if (ent) {
        Span cur, nxt;
        RsvEnt_getCurrentInstance(ent, 1, &cur.begin, &cur.end);
        RsvEnt_getNextInstance(ent, 1, &nxt.begin, &nxt.end);
        v.current = cur;
        v.next = nxt;
        v.status = cur.begin <= now && now < cur.end ? "running" : "upcoming";
    }
    return v;
}

} // namespace

std::vector<ReservationView> collectReservations(Session &session)
{
    PackedReply owner;
    int err = RsvTimeTbl_ToRsvInfoReplyPacked(session.table(), &owner.reply);
    if (err != 0)
        throw CliError(kExitRefused, moduleErrorText(err, {}));
    const time_t now = nowTime();
    std::vector<ReservationView> views;
    views.reserve(static_cast<size_t>(std::max(owner.reply.numReservations, 0)));
    for (int k = 0; k < owner.reply.numReservations; ++k)
        views.push_back(viewOf(session, owner.reply.rsvInfo[k], now));
    return views;
}

std::optional<ReservationView> collectReservation(Session &session, const std::string &id)
{
    PackedReply owner;
    const int err = RsvTimeTbl_ToRsvInfoReplyOf(session.table(), id.c_str(), &owner.reply);
    if (err == RSV_ERR_NO_RSV)
        return std::nullopt;
    if (err != 0)
        throw CliError(kExitRefused, moduleErrorText(err, {}));
    return viewOf(session, owner.reply.rsvInfo[0], nowTime());
}

nlohmann::ordered_json toJson(const ReservationView &v)
{
    nlohmann::ordered_json hosts = nlohmann::ordered_json::array();
    for (const auto &h : v.hosts)
        hosts.push_back({{"name", h.name}, {"slots", h.slots}, {"capacity", h.capacity}, {"cpus", h.cpus}});
    return {
        {"id", v.id},
        {"owner", v.owner},
        {"type", v.type},
        {"system", v.system},
        {"window", v.window},
        {"window_text", v.windowWords},
        {"begin", v.oneOff ? nlohmann::ordered_json(static_cast<long long>(v.oneOff->begin)) : nlohmann::ordered_json(nullptr)},
        {"end", v.oneOff ? nlohmann::ordered_json(static_cast<long long>(v.oneOff->end)) : nlohmann::ordered_json(nullptr)},
        {"duration", v.durationSeconds},
        {"hosts", hosts},
        {"slots", v.totalSlots},
        {"state", v.state},
        {"status", v.status},
        {"current", spanJson(v.current)},
        {"next", spanJson(v.next)},
        {"disabled", v.disabled},
        {"description", v.description ? nlohmann::ordered_json(*v.description) : nlohmann::ordered_json(nullptr)},
        {"created", static_cast<long long>(v.created)},
        {"creator", v.creator},
    };
}

const std::vector<Column> &reservationColumns()
{
    static const std::vector<Column> columns = {
        {"id", "ID"},
        {"owner", "OWNER"},
        {"creator", "CREATOR", false, false},
        {"type", "TYPE"},
        {"slots", "SLOTS", true},
        {"hosts", "HOSTS"},
        {"window", "WINDOW"},
        {"status", "STATUS"},
        {"description", "DESCRIPTION", false, false},
        {"created", "CREATED", false, false},
    };
    return columns;
}

Listing reservationListing(const std::vector<ReservationView> &views, bool withJson)
{
    Listing listing(reservationColumns());
    for (const auto &v : views) {
        std::string hosts;
        for (const auto &h : v.hosts)
            hosts += fmt::format("{}{}:{}", hosts.empty() ? "" : ",", h.name, h.slots);
        std::string type = v.system ? v.type + ",sys" : v.type;
        std::string window = compactWindow(v.window, v.type != "one-off");
        if (!v.disabled.empty())
            window += fmt::format(" ({} off)", v.disabled.size() == 1 ? "1 span" : fmt::format("{} spans", v.disabled.size()));
        listing.addRow({v.id, v.owner, v.creator.empty() ? "-" : v.creator, type, std::to_string(v.totalSlots), hosts,
                        window, v.status, v.description ? *v.description : "-",
                        v.created ? formatTime(v.created) : "-"},
                       withJson ? toJson(v) : nlohmann::ordered_json());
    }
    return listing;
}

std::string formatList(const std::vector<ReservationView> &views, const ListingOptions &options)
{
    Listing listing = reservationListing(views, false);
    listing.chosen(options);  // an unknown field is an error also when nothing is listed
    if (views.empty())
        return options.noHeader ? "" : "no reservations\n";
    return listing.text(options);
}

std::string formatShow(const ReservationView &v)
{
    std::string out;
    auto field = [&](const char *name, const std::string &value) { out += fmt::format("{:<13}{}\n", name, value); };
    field("Reservation", v.id);
    field("Owner", v.owner);
    field("Type", v.type + (v.type == "one-off" ? "" : " (recurring)") + (v.system ? ", system" : ""));
    field("Window", v.windowWords);
    TextTable hosts({"HOST", "SLOTS", "CAPACITY", "CPUS"}, {1, 2, 3});
    for (const auto &h : v.hosts)
        hosts.addRow({h.name, std::to_string(h.slots), std::to_string(h.capacity), std::to_string(h.cpus)});
    std::string hostLines = hosts.render(std::string(13, ' '));
    field("Hosts", fmt::format("{} slots on {} host{}", v.totalSlots, v.hosts.size(), v.hosts.size() == 1 ? "" : "s"));
    out += hostLines;
    // One state, told by the clock as list tells it: the instance under way
    // (if any) and the one to come. The module's own active mark is the
    // daemon's business (see --json "state").
    std::optional<Span> current, next;
    if (v.status == "running") {
        current = v.current;
        next = v.type == "one-off" ? std::nullopt : v.next;
    } else if (v.status == "upcoming") {
        next = v.type == "one-off" ? v.oneOff : v.next;
    }
    if (current)
        field("State", fmt::format("running, until {}", formatTime(current->end)));
    else if (next)
        field("State", fmt::format("upcoming, from {}", formatTime(next->begin)));
    else if (v.oneOff)
        field("State", fmt::format("ended, at {}", formatTime(v.oneOff->end)));
    else
        field("State", v.status.empty() ? "-" : v.status);
    field("Current", current ? spanText(*current) : "-");
    field("Next", next ? spanText(*next) : "-");
    std::string disabled;
    for (const auto &d : v.disabled)
        disabled += (disabled.empty() ? "" : "; ") + d;
    field("Disabled", disabled.empty() ? "-" : disabled);
    field("Description", v.description ? *v.description : "-");
    field("Created", v.created ? formatTime(v.created) : "-");
    field("Creator", v.creator.empty() ? "-" : v.creator);
    return out;
}

} // namespace rsvctl
