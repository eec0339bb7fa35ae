// earliest.h: the earliest window a request fits, found through the module's
// search without booking anything; find prints it, add --earliest books it.
#ifndef RSVCTL_EARLIEST_H
#define RSVCTL_EARLIEST_H

#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "session.h"

namespace rsvctl {

// How far ahead a one-off search looks when --before is not given: starts
// within this many calendar days from the search's first start.
inline constexpr int kDefaultHorizonDays = 56;

enum class FitForm { OneOff, Daily, Weekly };

// The search's options as typed.
struct FitOptions {
    std::string duration, after, before;
    bool daily = false, weekly = false;
};

// Add -D/--duration, --after, --before, --daily and --weekly to `cmd`.
void addFitOptions(CLI::App *cmd, FitOptions &options);

// Whether any of them was given.
bool anyFitOption(const FitOptions &options);

struct FitRequest {
    std::string owner;
    int minSlots = 1;
    int maxSlots = 1;
    bool system = false;
    std::vector<std::string> typedHosts;  // names or aliases, as typed
    FitForm form = FitForm::OneOff;
    int durationMinutes = 0;
    // One-off: starts from `after` (never before now) up to, not including,
    // `before`.
    time_t after = 0;
    time_t before = 0;
    bool afterGiven = false;
};

// The search's part of `request` from the typed options; usage errors for
// anything malformed or contradictory. Reads the clock.
void readFitOptions(const FitOptions &options, FitRequest &request);

struct FitHost {
    std::string name;  // official
    int slots = 0;
    int capacity = 0;
    int cpus = 0;
};

struct FitAnswer {
    bool found = false;
    std::string window;  // found: the module's window text, as add takes it
    // found: the window; epoch seconds, or for a recurring window seconds
    // from 0:00 (daily) or Sunday 0:00 (weekly).
    time_t start = 0;
    time_t end = 0;
    std::vector<FitHost> hosts;  // found: what the add would book
    // Not found: what came closest (times as above).
    bool anyStart = false;  // the range held a start at all
    int bestTotal = 0;
    time_t bestStart = 0;
    std::optional<std::string> limitHost;
    time_t limitCell = 0;
    RsvWeek limitWeek{};
};

// Ask the module for the earliest fit of `request` on the session's table.
// Unknown hosts and the module's errors are refusals (CliError, status 2);
// a search that finds nothing is an answer with found false.
FitAnswer searchEarliest(Session &session, const FitRequest &request);

// The one line (without "rsvctl: ") for a search that found nothing: the
// request, the range, and the closest start with what held it back.
std::string noFitMessage(const FitRequest &request, const FitAnswer &answer);

// find's text output for a window found.
std::string formatFit(const FitRequest &request, const FitAnswer &answer);

// find's JSON output, found or not.
nlohmann::ordered_json fitJson(const FitRequest &request, const FitAnswer &answer);

} // namespace rsvctl

#endif
