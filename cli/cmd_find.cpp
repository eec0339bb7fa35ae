// cmd_find.cpp: find: the earliest window an add would accept, booked by
// nobody. A read: shared lock, nothing written.
#include <fmt/format.h>

#include "cli_error.h"
#include "commands.h"
#include "earliest.h"
#include "listing.h"
#include "operations.h"
#include "output.h"
#include "timeparse.h"

namespace rsvctl {

namespace {

struct FindOptions {
    std::string owner, slots, hosts;
    bool system = false;
    ListingOptions output;
    FitOptions fit;
};

// The rows of find: the hosts of the window found, with the window.
const std::vector<Column> &fitColumns()
{
    static const std::vector<Column> columns = {
        {"host", "HOST"}, {"slots", "SLOTS", true}, {"capacity", "CAPACITY", true}, {"cpus", "CPUS", true},
        {"begin", "BEGIN"}, {"end", "END"},
    };
    return columns;
}

Listing fitListing(const FitRequest &request, const FitAnswer &answer)
{
    Listing listing(fitColumns());
    if (!answer.found)
        return listing;
    const bool oneOff = request.form == FitForm::OneOff;
    const std::string begin = oneOff ? formatTime(answer.start) : answer.window.substr(0, answer.window.find('-'));
    const std::string end = oneOff ? formatTime(answer.end) : answer.window.substr(answer.window.find('-') + 1);
    // JSON: epoch seconds for a one-off window, the module's text for a recurring one.
    auto point = [&](time_t t, const std::string &text) {
        return oneOff ? nlohmann::ordered_json(static_cast<long long>(t)) : nlohmann::ordered_json(text);
    };
    for (const auto &h : answer.hosts)
        listing.addRow({h.name, std::to_string(h.slots), std::to_string(h.capacity), std::to_string(h.cpus), begin, end},
                       {{"host", h.name},
                        {"slots", h.slots},
                        {"capacity", h.capacity},
                        {"cpus", h.cpus},
                        {"begin", point(answer.start, begin)},
                        {"end", point(answer.end, end)}});
    return listing;
}

} // namespace

void addFindCommand(CLI::App &app, GlobalOptions &global, CommandList &commands)
{
    auto find = std::make_shared<FindOptions>();
    CLI::App *cmd = app.add_subcommand("find", "Find the earliest window an add would accept (books nothing)");
    cmd->add_option("-u,--user", find->owner, "Owner: a user or user group")->required();
    cmd->add_option("-n,--slots", find->slots,
                    "Slots wanted: N or MIN:MAX, as for add; without -n, every slot of each host");
    cmd->add_option("-m,--hosts", find->hosts, "Hosts (names or aliases), comma-separated")->required();
    addFitOptions(cmd, find->fit);
    cmd->add_flag("--system", find->system, "System reservation: hosts with nothing else booked");
    addListingOptions(cmd, find->output, fitColumns());
    cmd->footer(fmt::format(R"(One-off starts are on 10-minute boundaries, from --after (default now) to
--before (default {} days later). Status 2 when nothing fits, with the
closest start and what held it back. To book it: add ... --earliest.
--noheader or -o print the hosts of the window found as rows (a recurring
window's begin and end as the module writes them, such as 1:8:0).
Examples:
  rsvctl find -u alice -n 8 -m hpc01 -D 6h
  rsvctl find -u bob -n 12 -m hpc01,hpc02 -D 2h30m --after '2026-12-01 08:00'
  rsvctl find -u ops -n 2 -m gpu01 -D 8h --daily         (a time of day)
  rsvctl find -u lab -n 16 -m fat01 -D 2d --weekly --json)",
                            kDefaultHorizonDays));
    commands.push_back({cmd, [find, &global]() {
        FitRequest request;
        request.owner = find->owner;
        checkOwnerName(request.owner);
        if (!find->slots.empty())
            parseSlotRange(find->slots, request.minSlots, request.maxSlots);
        request.typedHosts = splitList(find->hosts);
        request.system = find->system;
        readFitOptions(find->fit, request);
        Session session(resolveStateDir(global.stateDir), Access::Read);
        if (find->slots.empty() && !request.system)
            request.minSlots = request.maxSlots = wholeHostSlots(session.cluster(), request.typedHosts);
        if (session.numRejected() > 0)
            printErr("rsvctl: warning: {} line(s) of '{}' could not be read; their bookings are not "
                               "counted\n",
                       session.numRejected(), session.stateFile());
        FitAnswer answer = searchEarliest(session, request);
        Listing listing = fitListing(request, answer);
        listing.chosen(find->output);
        if (find->output.json) {
            nlohmann::ordered_json out = fitJson(request, answer);
            if (!find->output.fields.empty())
                out["hosts"] = listing.json(find->output);
            printOut("{}\n", out.dump(2));
        } else if (answer.found) {
            printOut("{}", find->output.rowsOnly() ? listing.text(find->output) : formatFit(request, answer));
        }
        if (!answer.found)
            throw CliError(kExitRefused, noFitMessage(request, answer));
        return kExitOk;
    }});
}

} // namespace rsvctl
