// cli_error.h: how rsvctl fails: one clear line and one of four exit statuses.
#ifndef RSVCTL_CLI_ERROR_H
#define RSVCTL_CLI_ERROR_H

#include <stdexcept>
#include <string>

namespace rsvctl {

// Exit statuses; scripts rely on these four values.
inline constexpr int kExitOk = 0;
inline constexpr int kExitUsage = 1;
inline constexpr int kExitRefused = 2;
inline constexpr int kExitFile = 3;

// A failure that ends the command: the message is printed as one line after
// "rsvctl: " and the process exits with `status`. Anything already printed
// (a shortfall report, for instance) stays on screen.
class CliError : public std::runtime_error {
public:
    CliError(int status, const std::string &message, std::string detail = {})
        : std::runtime_error(message), status_(status), detail_(std::move(detail))
    {
    }
    int status() const { return status_; }
    // Lines printed after the message (the shortfall report), or "".
    const std::string &detail() const { return detail_; }

private:
    int status_;
    std::string detail_;
};

[[noreturn]] inline void usageError(const std::string &message) { throw CliError(kExitUsage, message); }
[[noreturn]] inline void fileError(const std::string &message) { throw CliError(kExitFile, message); }

// What the refused request was about, so that a module error number can be
// turned into a line that names the bad input. Fields left empty are not
// mentioned.
struct ErrorContext {
    std::string rsvId;
    std::string owner;
    std::string hosts;       // as the user typed them
    std::string window;      // as the user typed it
    std::string begin;       // the typed begin, when it came separately
    std::string end;         // the typed end
    std::string dates;       // a disabled-date text
    int maxPerOwner = 0;
    bool system = false;     // a system request: hosts must be wholly free
};

// One line, without "rsvctl: ", for module error number `err`.
std::string moduleErrorText(int err, const ErrorContext &ctx);

// The exit status for module error number `err`: 1 (usage) when the typed
// window or date is malformed in itself, else 2 (refused).
int refusalStatus(int err);

// Throw the refusal for module error number `err` (status refusalStatus),
// with optional detail lines.
[[noreturn]] void refuse(int err, const ErrorContext &ctx, const std::string &detail = {});

// A module query that could not answer (a query changes nothing, so in
// practice only running out of memory stops one): its line, exit status 3.
[[noreturn]] void queryFailed(int err);

} // namespace rsvctl

#endif
