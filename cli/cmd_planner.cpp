// cmd_planner.cpp: planner, a host's week as a picture.
#include <fstream>

#include <fmt/format.h>

#include "cli_error.h"
#include "commands.h"
#include "output.h"
#include "planner_render.h"
#include "session.h"
#include "timeparse.h"

namespace rsvctl {

namespace {

struct PlannerOptions {
    std::string host, week, svg;
};

} // namespace

void addPlannerCommand(CLI::App &app, GlobalOptions &global, CommandList &commands)
{
    auto opt = std::make_shared<PlannerOptions>();
    CLI::App *cmd = app.add_subcommand("planner", "Draw a host's weekly planner");
    cmd->add_option("HOST", opt->host, "Host name or alias")->required();
    cmd->add_option("--week", opt->week, "Any day of the week to draw (YYYY-MM-DD, +7d, ...); default this week");
    cmd->add_option("--svg", opt->svg, "Also write the full 7 x 144 grid to this SVG file");
    cmd->footer(R"(Each row is a day, Sunday to Saturday; each column 30 minutes, shaded by the
busiest of its three 10-minute cells: booked slots over the host's capacity.
Examples:
  rsvctl planner hpc01
  rsvctl planner node1 --week 2026-12-24
  rsvctl planner hpc01 --svg hpc01.svg)");
    commands.push_back({cmd, [opt, &global]() {
        time_t when = opt->week.empty() ? nowTime() : parsePoint(opt->week, "--week");
        Session session(resolveStateDir(global.stateDir), Access::Read);
        const ClusterHost *host = session.cluster().find(opt->host);
        if (!host) {
            ErrorContext ctx;
            ctx.hosts = opt->host;
            refuse(RSV_ERR_BAD_HOST, ctx);
        }
        PlannerPicture picture;
        picture.host = host->name;
        picture.capacity = host->slots;
        picture.week = weekOf(when);
        picture.booked = hostWeekGrid(session.table(), host->name, picture.week);
        if (!opt->svg.empty()) {
            std::ofstream out(opt->svg, std::ios::binary | std::ios::trunc);
            out << renderSvg(picture);
            out.close();
            if (!out)
                fileError(fmt::format("cannot write SVG file '{}'", opt->svg));
        }
        printOut("{}", renderHeatMap(picture, useColour(global)));
        if (!opt->svg.empty())
            printOut("wrote {}\n", opt->svg);
        return kExitOk;
    }});
}

} // namespace rsvctl
