// cmd_find.cpp: find: the earliest window an add would accept, booked by
// nobody. A read: shared lock, nothing written.
#include <fmt/format.h>

#include "cli_error.h"
#include "commands.h"
#include "earliest.h"
#include "operations.h"

namespace rsvctl {

namespace {

struct FindOptions {
    std::string owner, slots = "1", hosts;
    bool system = false;
    bool json = false;
    FitOptions fit;
};

} // namespace

void addFindCommand(CLI::App &app, GlobalOptions &global, CommandList &commands)
{
    auto find = std::make_shared<FindOptions>();
    CLI::App *cmd = app.add_subcommand("find", "Find the earliest window an add would accept (books nothing)");
    cmd->add_option("-u,--user", find->owner, "Owner: a user or user group")->required();
    cmd->add_option("-n,--slots", find->slots, "Slots wanted: MIN or MIN:MAX (default 1)");
    cmd->add_option("-m,--hosts", find->hosts, "Hosts (names or aliases), comma-separated")->required();
    addFitOptions(cmd, find->fit);
    cmd->add_flag("--system", find->system, "System reservation: hosts with nothing else booked");
    cmd->add_flag("--json", find->json, "JSON output (see docs/rsvctl.md)");
    cmd->footer(fmt::format(R"(One-off starts are on 10-minute boundaries, from --after (default now) to
--before (default {} days later). Status 2 when nothing fits, with the
closest start and what held it back. To book it: add ... --earliest.
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
        parseSlotRange(find->slots, request.minSlots, request.maxSlots);
        request.typedHosts = splitList(find->hosts);
        request.system = find->system;
        readFitOptions(find->fit, request);
        Session session(resolveStateDir(global.stateDir), Access::Read);
        if (session.numRejected() > 0)
            fmt::print(stderr, "rsvctl: warning: {} line(s) of '{}' could not be read; their bookings are not "
                               "counted\n",
                       session.numRejected(), session.stateFile());
        FitAnswer answer = searchEarliest(session, request);
        if (find->json)
            fmt::print("{}\n", fitJson(request, answer).dump(2));
        else if (answer.found)
            fmt::print("{}", formatFit(request, answer));
        if (!answer.found)
            throw CliError(kExitRefused, noFitMessage(request, answer));
        return kExitOk;
    }});
}

} // namespace rsvctl
