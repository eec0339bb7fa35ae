// cmd_mod.cpp: mod, one change of a reservation per command.
#include <fmt/format.h>

#include "cli_error.h"
#include "commands.h"
#include "operations.h"
#include "output.h"
#include "report.h"

namespace rsvctl {

namespace {

struct ModOptions {
    std::string id, begin, end, addHosts, rmHosts, slots, disable, enable, description;
    int rmSlots = 0;
    bool hasDescription = false;
};

} // namespace

void addModCommand(CLI::App &app, GlobalOptions &global, CommandList &commands)
{
    auto mod = std::make_shared<ModOptions>();
    CLI::App *cmd = app.add_subcommand("mod", "Change one thing about a reservation");
    cmd->add_option("ID", mod->id, "Reservation identifier")->required();
    cmd->add_option("--begin", mod->begin, "New begin of a one-off reservation: a time, or +N / -N minutes (+2h, -1d)");
    cmd->add_option("--end", mod->end, "New end of a one-off reservation: a time, or +N / -N minutes");
    cmd->add_option("--add-hosts", mod->addHosts, "Hosts to add, comma-separated (with -n for the slots)");
    cmd->add_option("-n,--slots", mod->slots, "Slots to add with --add-hosts: MIN or MIN:MAX (default 1)");
    cmd->add_option("--rm-hosts", mod->rmHosts, "Hosts to take out, comma-separated");
    cmd->add_option("--rm-slots", mod->rmSlots, "Number of slots to give back");
    cmd->add_option("--disable", mod->disable,
                    "Days a recurring reservation is off: YYYY-MM-DD, M:D, D or Y:M:D, ranges such as "
                    "2026-12-24..2027-01-02 or 12:30-1:2, comma-separated");
    cmd->add_option("--enable", mod->enable,
                    "Disabled days to switch on again (same forms); the slots must be free on them");
    auto *desc = cmd->add_option("--description", mod->description, "New description ('' removes it)");
    cmd->footer(R"(Give one change per command (--begin and --end may go together).
Examples:
  rsvctl mod alice#0 --end +60              (one hour longer)
  rsvctl mod alice#0 --begin '2026-12-01 08:00' --end '2026-12-01 18:00'
  rsvctl mod alice#0 --add-hosts hpc03 -n 4
  rsvctl mod alice#0 --rm-hosts hpc02
  rsvctl mod alice#0 --rm-slots 2
  rsvctl mod bob#0 --disable 12:24-12:26   (off over the holidays)
  rsvctl mod bob#0 --disable 2026-12-30..2027-01-02,2027-01-06
  rsvctl mod bob#0 --enable 2026-12-31      (on again that day)
  rsvctl mod bob#0 --description 'nightly batch')");
    commands.push_back({cmd, [mod, desc, &global]() {
        int changes = (!mod->begin.empty() || !mod->end.empty()) + !mod->addHosts.empty() + !mod->rmHosts.empty() +
                      (mod->rmSlots != 0) + !mod->disable.empty() + !mod->enable.empty() + (desc->count() > 0);
        if (changes == 0)
            usageError("name a change: --begin/--end, --add-hosts, --rm-hosts, --rm-slots, --disable, --enable or "
                       "--description");
        if (changes > 1)
            usageError("give one change per command (--begin and --end may go together)");
        if (!mod->slots.empty() && mod->addHosts.empty())
            usageError("-n goes with --add-hosts");
        Session session(resolveStateDir(global.stateDir), Access::Change);
        const std::string &id = mod->id;
        session.mayChange(id, "change");
        std::string said;
        if (!mod->begin.empty() || !mod->end.empty()) {
            std::string window = moveWindow(session, id, mod->begin, mod->end);
            said = fmt::format("{}: window now {}", id, windowInWords(window, false));
        } else if (!mod->addHosts.empty()) {
            int minSlots = 1, maxSlots = 1;
            if (!mod->slots.empty())
                parseSlotRange(mod->slots, minSlots, maxSlots);
            addHosts(session, id, splitList(mod->addHosts), minSlots, maxSlots);
            said = fmt::format("{}: added {}", id, mod->addHosts);
        } else if (!mod->rmHosts.empty()) {
            int removed = removeHosts(session, id, splitList(mod->rmHosts));
            said = fmt::format("{}: removed {} ({} slot{} given back)", id, mod->rmHosts, removed,
                               removed == 1 ? "" : "s");
        } else if (mod->rmSlots != 0) {
            int removed = removeSlots(session, id, mod->rmSlots);
            said = fmt::format("{}: {} slot{} given back", id, removed, removed == 1 ? "" : "s");
        } else if (!mod->disable.empty()) {
            std::string days = disableDays(session, id, mod->disable);
            said = fmt::format("{}: off on {}", id, days);
        } else if (!mod->enable.empty()) {
            std::string days = enableDays(session, id, mod->enable);
            said = fmt::format("{}: on again on {}", id, days);
        } else {
            setDescription(session, id, mod->description);
            said = mod->description.empty() ? fmt::format("{}: description removed", id)
                                            : fmt::format("{}: description set", id);
        }
        printOut("{}\n", said);
        return kExitOk;
    }});
}

} // namespace rsvctl
