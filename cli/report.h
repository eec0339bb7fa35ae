// report.h: reservations as rsvctl shows them: built from the module's
// information reply (and the entry, for instances and creation time), printed
// in aligned columns or as JSON.
#ifndef RSVCTL_REPORT_H
#define RSVCTL_REPORT_H

#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "listing.h"
#include "session.h"

namespace rsvctl {

struct HostView {
    std::string name;
    int slots = 0;     // held by the reservation
    int capacity = 0;  // the host's slot limit (0 when the host is gone)
    int cpus = 0;
};

struct Span {
    time_t begin = 0;
    time_t end = 0;
};

struct ReservationView {
    std::string id;
    std::string owner;
    std::string type;  // "one-off", "daily" or "weekly"
    bool system = false;
    std::string window;       // the module's text
    std::string windowWords;  // "every day 22:00 to 06:00 (8h)"
    std::optional<Span> oneOff;
    long long durationSeconds = 0;
    std::vector<HostView> hosts;
    int totalSlots = 0;
    std::string state;   // "inactive" or "active" (the module's state)
    std::string status;  // "upcoming", "running" or "ended" (by the clock)
    std::optional<Span> current;
    std::optional<Span> next;
    std::vector<std::string> disabled;
    std::optional<std::string> description;
    time_t created = 0;
    std::string creator;
};

// Every reservation, in the table's order.
std::vector<ReservationView> collectReservations(Session &session);

// The reservation `id` alone (nullopt when the table has none so named),
// at a cost that does not grow with the table.
std::optional<ReservationView> collectReservation(Session &session, const std::string &id);

// The window of a reservation in words.
std::string windowInWords(const std::string &window, bool recurring);

// The same, short, for list: "daily 22:00-06:00", "Mon 11-23 09:00 - ...".
std::string compactWindow(const std::string &window, bool recurring);

nlohmann::ordered_json toJson(const ReservationView &view);

// The columns of list, and its rows; each row's JSON object only when
// `withJson` (a text listing never reads them).
const std::vector<Column> &reservationColumns();
Listing reservationListing(const std::vector<ReservationView> &views, bool withJson = true);

// list's text: the chosen columns, "no reservations" when there are none
// (nothing at all with --noheader).
std::string formatList(const std::vector<ReservationView> &views, const ListingOptions &options = {});
std::string formatShow(const ReservationView &view);

} // namespace rsvctl

#endif
