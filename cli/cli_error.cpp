// cli_error.cpp: every module error number as one line naming the bad input.
#include "cli_error.h"

#include <fmt/format.h>

#include "qob.rsvimpl.h"

namespace rsvctl {

namespace {

// "'text'" when the text is known, else the fallback words.
std::string quoted(const std::string &text, const char *fallback)
{
    return text.empty() ? std::string(fallback) : fmt::format("'{}'", text);
}

std::string windowWords(const ErrorContext &ctx)
{
    if (!ctx.window.empty())
        return fmt::format("time window '{}'", ctx.window);
    if (!ctx.begin.empty() || !ctx.end.empty())
        return fmt::format("{} to {}", quoted(ctx.begin, "(unchanged)"), quoted(ctx.end, "(unchanged)"));
    return "time window";
}

} // namespace

std::string moduleErrorText(int err, const ErrorContext &ctx)
{
    switch (err) {
    case RSV_ERR_BAD_HOST:
        return fmt::format("unknown host {}: not in the cluster file", quoted(ctx.hosts, "in the request"));
    case RSV_ERR_NO_TEXT:
        return "no date given: name the days, for example 12:24-12:26 or 2026-12-24..2026-12-26";
    case RSV_ERR_BAD_TIME_WINDOW:
        return fmt::format("malformed {}: use H[:M]-H[:M] (daily) or D:H:M-D:H:M (weekly)", windowWords(ctx));
    case RSV_ERR_BAD_ARGUMENT:
        if (!ctx.dates.empty())
            return fmt::format("reservation {} is not recurring: only a daily or weekly reservation has days to "
                               "disable or enable",
                               quoted(ctx.rsvId, "(none)"));
        return fmt::format("the request for {} is missing a required part", quoted(ctx.rsvId, "the reservation"));
    case RSV_ERR_NO_MEMORY:
        return "out of memory";
    case RSV_ERR_NOT_ENOUGH_SLOTS:
        if (!ctx.dates.empty() && !ctx.rsvId.empty())
            return fmt::format("not enough free slots on {} to enable {} of reservation {}",
                               quoted(ctx.hosts, "its hosts"), quoted(ctx.dates, "the days"), quoted(ctx.rsvId, ""));
        if (ctx.system)
            return fmt::format("a system reservation needs hosts with nothing booked: {} has bookings for {}",
                               quoted(ctx.hosts, "a host"), windowWords(ctx));
        return fmt::format("not enough free slots on {} for {}", quoted(ctx.hosts, "the hosts"), windowWords(ctx));
    case RSV_ERR_NO_RSV:
    case RSV_ERR_NO_SUCH_RSV:
        return fmt::format("no reservation {}", quoted(ctx.rsvId, "with that identifier"));
    case RSV_ERR_NO_RSV_ID:
        if (ctx.maxPerOwner > 0)
            return fmt::format("owner {} already holds {} reservations, the most allowed (max-per-owner)",
                               quoted(ctx.owner, "(unknown)"), ctx.maxPerOwner);
        return fmt::format("owner {} already holds the most reservations allowed",
                           quoted(ctx.owner, "(unknown)"));
    case RSV_ERR_START_IN_PAST:
        if (!ctx.begin.empty())
            return fmt::format("the begin '{}' is not in the future", ctx.begin);
        return fmt::format("the start of the {} is not in the future", windowWords(ctx));
    case RSV_ERR_END_INVALID:
        if (!ctx.end.empty())
            return fmt::format("the end '{}' is not acceptable: it must be in the future", ctx.end);
        return fmt::format("the end of the {} is not acceptable: it must come after the start, in the future",
                           windowWords(ctx));
    case RSV_ERR_NOTHING_LEFT:
        return fmt::format("the change would leave reservation {} with no hosts or no slots",
                           quoted(ctx.rsvId, "(none)"));
    case RSV_ERR_BAD_DATE:
        return fmt::format("malformed or impossible date {}: use D, M:D or Y:M:D, or a range of one form",
                           quoted(ctx.dates, "(none)"));
    case RSV_ERR_START_OF_ACTIVE:
        return fmt::format("reservation {} is active: its start cannot change", quoted(ctx.rsvId, "(none)"));
    case RSV_ERR_DURATION_EXISTS:
        return fmt::format("the days {} are already disabled in reservation {}", quoted(ctx.dates, "(none)"),
                           quoted(ctx.rsvId, "(none)"));
    case RSV_ERR_HOST_NOT_IN_RSV:
        return fmt::format("host {} is not in reservation {}", quoted(ctx.hosts, "(none)"),
                           quoted(ctx.rsvId, "(none)"));
    case RSV_ERR_HOST_IN_USE:
        return fmt::format("host {} of reservation {} is in use by jobs", quoted(ctx.hosts, "(none)"),
                           quoted(ctx.rsvId, "(none)"));
    case RSV_ERR_DATE_IN_PAST:
        return fmt::format("the date {} is in the past", quoted(ctx.dates, "(none)"));
    case RSV_ERR_DAY_MISMATCH:
        return fmt::format("{}: both ends must name a weekday, or neither", windowWords(ctx));
    case RSV_ERR_NOT_DISABLED:
        return fmt::format("none of the days {} is disabled in reservation {}", quoted(ctx.dates, "(none)"),
                           quoted(ctx.rsvId, "(none)"));
    case RSV_ERR_END_BEFORE_START:
        return fmt::format("the end must come after the start ({})", windowWords(ctx));
    default:
        return fmt::format("refused (error {})", err);
    }
}

int refusalStatus(int err)
{
    switch (err) {
    // What was typed cannot be read as a window or date, whatever the
    // state: a usage error, as a malformed time is.
    case RSV_ERR_NO_TEXT:
    case RSV_ERR_BAD_TIME_WINDOW:
    case RSV_ERR_BAD_DATE:
    case RSV_ERR_DAY_MISMATCH:
    case RSV_ERR_END_BEFORE_START:
        return kExitUsage;
    default:
        return kExitRefused;
    }
}

void refuse(int err, const ErrorContext &ctx, const std::string &detail)
{
    throw CliError(refusalStatus(err), moduleErrorText(err, ctx), detail);
}

void queryFailed(int err)
{
    throw CliError(kExitFile, moduleErrorText(err, {}));
}

} // namespace rsvctl
