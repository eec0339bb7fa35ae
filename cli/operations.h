// operations.h: the changes rsvctl makes, each one call (or one combined
// call) of the module on a loaded session. Commands and the demo share them.
#ifndef RSVCTL_OPERATIONS_H
#define RSVCTL_OPERATIONS_H

#include <optional>
#include <string>
#include <vector>

#include "session.h"

namespace rsvctl {

struct AddRequest {
    std::string owner;    // "system" for a system reservation
    std::string creator;  // the operator who makes it ("" records none)
    int minSlots = 1;
    int maxSlots = 1;
    bool wholeHosts = false;         // every slot of each host: the range is their capacities' sum
    std::vector<std::string> hosts;  // as typed: names or aliases
    std::string window;              // the module's text: "start-end" epoch, or recurring
    bool recurring = false;
    bool system = false;
    std::string description;
    // For messages: the window as the user typed it.
    std::string typedWindow, typedBegin, typedEnd;
};

// Add a reservation; returns its identifier. Refusals throw CliError with
// status 2, and a shortfall report when slots are lacking.
std::string addReservation(Session &session, const AddRequest &request);

// "hpc01:8,hpc02:4": where the reservation's slots are; *total (when not
// NULL) gets their sum. "" for an identifier not in the table.
std::string heldHosts(Session &session, const std::string &id, int *total = nullptr);

// "12 slots on hpc01:8,hpc02:4".
std::string placementText(Session &session, const std::string &id);

// The operator making a change: `typed` (from --as) when given, else the
// login name ($LOGNAME, $USER, then the password database). Usage error for
// a name that cannot be recorded.
std::string operatorName(const std::string &typed);

// Remove every reservation named; all must exist, or nothing is removed.
void deleteReservations(Session &session, const std::vector<std::string> &ids);

// Move a one-off reservation's begin and/or end. Each side is a time point,
// a signed shift ("+30", "-1h"), or empty for unchanged. Returns the new
// window text.
std::string moveWindow(Session &session, const std::string &id, const std::string &begin,
                       const std::string &end);

// Add hosts (names or aliases) with a slot range.
void addHosts(Session &session, const std::string &id, const std::vector<std::string> &hosts, int minSlots,
              int maxSlots);

// Remove whole hosts; returns the slots given back.
int removeHosts(Session &session, const std::string &id, const std::vector<std::string> &hosts);

// Give back `count` slots; returns the slots given back.
int removeSlots(Session &session, const std::string &id, int count);

// Disable days of a recurring reservation: a list of days and ranges (see
// parseDayList), all or none; returns the days in words ("Thu Dec 24 2026 -
// Sat Dec 26 2026", several joined by ", ").
std::string disableDays(Session &session, const std::string &id, const std::string &dates);

// Enable disabled days again, booking the reservation's slots on them (the
// hosts must have them free); same forms and result.
std::string enableDays(Session &session, const std::string &id, const std::string &dates);

// Replace (or, with "", remove) the description.
void setDescription(Session &session, const std::string &id, const std::string &description);

// Official names for typed names (duplicates dropped, order kept); throws the
// bad-host refusal for a name the cluster does not know.
std::vector<std::string> resolveHosts(const Cluster &cluster, const std::vector<std::string> &typed);

// The slots of the named hosts together (each counted once): what "whole
// hosts" asks for. Throws the bad-host refusal for an unknown name.
int wholeHostSlots(const Cluster &cluster, const std::vector<std::string> &typed);

// Check an owner name or description typed by the user (usage errors).
void checkOwnerName(const std::string &owner);
void checkDescription(const std::string &description);

} // namespace rsvctl

#endif
