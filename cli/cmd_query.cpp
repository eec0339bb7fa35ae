// cmd_query.cpp: list and show.
#include <fmt/format.h>

#include "cli_error.h"
#include "commands.h"
#include "output.h"
#include "report.h"
#include "timeparse.h"

namespace rsvctl {

namespace {

struct ListOptions {
    std::string owner, host;
    ListingOptions output;
};

struct ShowOptions {
    std::string id;
    bool json = false;
};

} // namespace

void addQueryCommands(CLI::App &app, GlobalOptions &global, CommandList &commands)
{
    auto list = std::make_shared<ListOptions>();
    CLI::App *listCmd = app.add_subcommand("list", "List reservations");
    listCmd->add_option("-u,--user", list->owner,
                        "Only reservations this user owns or made (owner or creator)");
    listCmd->add_option("-m,--host", list->host, "Only reservations holding slots on this host (name or alias)");
    addListingOptions(listCmd, list->output, reservationColumns());
    listCmd->footer(R"(Columns shown by default: id,owner,type,slots,hosts,window,status.
Examples:
  rsvctl list
  rsvctl list -u alice
  rsvctl list -u root -o id,creator,window,description
  rsvctl list --noheader -o id
  rsvctl list -m node1 --json)");
    commands.push_back({listCmd, [list, &global]() {
        Session session(resolveStateDir(global.stateDir), Access::Read);
        std::string host = list->host;
        if (!host.empty()) {
            const ClusterHost *h = session.cluster().find(host);
            if (!h) {
                ErrorContext ctx;
                ctx.hosts = host;
                refuse(RSV_ERR_BAD_HOST, ctx);
            }
            host = h->name;
        }
        std::vector<ReservationView> shown;
        for (auto &v : collectReservations(session)) {
            if (!list->owner.empty() && v.owner != list->owner && v.creator != list->owner)
                continue;
            bool onHost = host.empty();
            for (const auto &h : v.hosts)
                onHost = onHost || h.name == host;
            if (onHost)
                shown.push_back(std::move(v));
        }
        if (session.numRejected() > 0)
            printErr("rsvctl: warning: {} line(s) of '{}' could not be read and are not shown\n",
                       session.numRejected(), session.stateFile());
        if (list->output.json) {
            nlohmann::ordered_json out;
            out["now"] = static_cast<long long>(nowTime());
            out["reservations"] = reservationListing(shown).json(list->output);
            printOut("{}\n", out.dump(2));
        } else {
            printOut("{}", formatList(shown, list->output));
        }
        return kExitOk;
    }});

    auto show = std::make_shared<ShowOptions>();
    CLI::App *showCmd = app.add_subcommand("show", "Show everything about one reservation");
    showCmd->add_option("ID", show->id, "Reservation identifier")->required();
    showCmd->add_flag("--json", show->json, "JSON output (see docs/rsvctl.md)");
    showCmd->footer(R"(Examples:
  rsvctl show alice#0
  rsvctl show bob#1 --json)");
    commands.push_back({showCmd, [show, &global]() {
        Session session(resolveStateDir(global.stateDir), Access::Read);
        if (const std::optional<ReservationView> v = collectReservation(session, show->id)) {
            if (show->json)
                printOut("{}\n", toJson(*v).dump(2));
            else
                printOut("{}", formatShow(*v));
            return kExitOk;
        }
        ErrorContext ctx;
        ctx.rsvId = show->id;
        refuse(RSV_ERR_NO_RSV, ctx);
    }});
}

} // namespace rsvctl
