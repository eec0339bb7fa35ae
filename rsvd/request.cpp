// request.cpp: one request line of protocol version 1 (docs/protocol.md) and
// its reply. rsvctl's own command code runs the command on the held table,
// so the reply carries exactly what rsvctl would have printed.
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include <fmt/format.h>

#include "app.h"
#include "cli_error.h"
#include "daemon.h"
#include "log.h"
#include "output.h"
#include "timeparse.h"

namespace rsvd {

namespace {

time_t pinnedNow = 0;

TestPeerHook testPeerHook = nullptr;
constexpr const char *kTestPeerField = "test_peer";

time_t pinnedClock()
{
    return pinnedNow;
}

const char *const kFields[] = {"v", "id", "cmd", "args", "colour", "set"};

bool isChangeCommand(const std::string &cmd)
{
    return cmd == "add" || cmd == "del" || cmd == "mod";
}

nlohmann::json statusReply(Daemon &daemon, const nlohmann::json &id)
{
    const time_t now = kx_now();
    return {{"v", 1},
            {"id", id},
            {"status", 0},
            {"version", "rsvd 0.1.0"},
            {"pid", static_cast<long long>(getpid())},
            {"reservations", h_numEnts_(&daemon.held.table->entries)},
            {"uptime", static_cast<long long>(now - daemon.started)},
            {"clock", static_cast<long long>(now)},
            {"scheduled", daemon.lifecycle ? daemon.lifecycle->scheduled() : 0}};
}

nlohmann::json runCommand(Daemon &daemon, const nlohmann::json &request, const rsvctl::Caller &caller)
{
    const nlohmann::json &id = request.contains("id") ? request["id"] : nlohmann::json();
    const std::string cmd = request["cmd"];
    std::vector<std::string> words{"rsvctl", cmd};
    bool json = false;
    if (request.contains("args")) {
        if (!request["args"].is_array())
            return errorReply(id, "\"args\" must be an array of strings");
        for (const auto &arg : request["args"]) {
            if (!arg.is_string())
                return errorReply(id, "\"args\" must be an array of strings");
            words.push_back(arg.get<std::string>());
            json = json || arg == "--json";
        }
    }
    if (request.contains("colour") && !request["colour"].is_boolean())
        return errorReply(id, "\"colour\" must be true or false");
    if (cmd == "init" || cmd == "demo")
        return {{"v", 1},
                {"id", id},
                {"status", rsvctl::kExitFile},
                {"stdout", ""},
                {"stderr", fmt::format("rsvctl: {} makes a state directory; rsvd serves {} already (stop rsvd, or "
                                       "use another directory with --direct)\n",
                                       cmd, daemon.options.stateDir)}};

    std::vector<char *> argv;
    for (auto &word : words)
        argv.push_back(word.data());
    rsvctl::CapturedOutput output;
    int status = rsvctl::kExitUsage;
    daemon.held.caller = caller;
    const long changesBefore = daemon.held.changes;
    {
        rsvctl::OutputScope scope(output);
        try {
            CLI::App app;
            rsvctl::GlobalOptions global;
            global.stateDir = daemon.options.stateDir;
            global.color = request.value("colour", false) ? "always" : "never";
            rsvctl::CommandList commands;
            rsvctl::defineApp(app, global, commands, rsvctl::FrontEnd::Daemon, cmd);
            if (const rsvctl::Command *command =
                    rsvctl::parseCommandLine(app, commands, static_cast<int>(argv.size()), argv.data(), &status))
                status = command->run();
        } catch (const rsvctl::CliError &e) {
            output.err(fmt::format("rsvctl: {}\n{}", e.what(), e.detail()));
            status = e.status();
        } catch (const std::exception &e) {
            output.err(fmt::format("rsvctl: {}\n", e.what()));
            status = rsvctl::kExitFile;
        }
    }
    if (isChangeCommand(cmd)) {
        nlohmann::json fields = {{"user", caller.user}, {"operator", caller.isOperator}, {"cmd", cmd},
                                 {"args", nlohmann::json(std::vector<std::string>(words.begin() + 2, words.end())).dump()},
                                 {"status", status}};
        if (status == 0) {
            const std::string &out = output.outText();
            fields["result"] = out.substr(0, out.find('\n'));
        } else {
            const std::string &err = output.errText();
            fields["error"] = err.substr(0, err.find('\n'));
        }
        logEvent(daemon.held.changes != changesBefore ? "change" : "change-refused", fields);
    }
    // Only the reservations the command touched are looked at again: a
    // whole-table recomputation would cost more than the change's save.
    std::vector<std::string> touched;
    touched.swap(daemon.held.touched);
    if (daemon.held.changes != changesBefore && daemon.lifecycle) {
        for (const std::string &rsvId : touched)
            daemon.lifecycle->changed(rsvId.c_str());
        if (daemon.schedule)
            daemon.schedule(daemon, daemon.lifecycle->nextDue());
    }
    nlohmann::json reply = {
        {"v", 1}, {"id", id}, {"status", status}, {"stdout", output.outText()}, {"stderr", output.errText()}};
    if (json && status == 0) {
        nlohmann::json doc = nlohmann::json::parse(output.outText(), nullptr, false);
        if (!doc.is_discarded())
            reply["json"] = std::move(doc);
    }
    return reply;
}

} // namespace

void pinClock(time_t now)
{
    pinnedNow = now;
    RsvMod_setClock(&pinnedClock);
}

nlohmann::json errorReply(const nlohmann::json &id, const std::string &error, int status)
{
    return {{"v", 1}, {"id", id}, {"status", status}, {"error", error}};
}

nlohmann::json handleRequest(Daemon &daemon, const std::string &line, const rsvctl::Caller &caller)
{
    ++daemon.requests;
    const nlohmann::json request = nlohmann::json::parse(line, nullptr, false);
    if (request.is_discarded())
        return errorReply(nullptr, "malformed JSON: send one JSON object per line");
    if (!request.is_object())
        return errorReply(nullptr, "a request is a JSON object");
    const nlohmann::json id = request.contains("id") ? request["id"] : nlohmann::json();
    if (!request.contains("v") || request["v"] != 1)
        return errorReply(id, "unsupported protocol version: this rsvd speaks \"v\":1");
    for (const auto &[key, value] : request.items())
        if (std::find(std::begin(kFields), std::end(kFields), key) == std::end(kFields) &&
            !(testPeerHook && key == kTestPeerField))
            return errorReply(id, fmt::format("unknown field \"{}\"", key));
    if (!request.contains("cmd") || !request["cmd"].is_string())
        return errorReply(id, "\"cmd\" must name a command, such as \"list\" or \"rsvd.status\"");
    const std::string cmd = request["cmd"];
    if (cmd == "rsvd.status")
        return statusReply(daemon, id);
    if (cmd == "rsvd.clock") {
        if (daemon.options.testClock < 0)
            return errorReply(id, "rsvd.clock is only for an rsvd started with --test-clock");
        if (!request.contains("set") || !request["set"].is_number_integer() || request["set"].get<long long>() < 0)
            return errorReply(id, "\"set\" must be epoch seconds");
        pinClock(static_cast<time_t>(request["set"].get<long long>()));
        time_t next = daemon.lifecycle ? daemon.lifecycle->step(kx_now()) : 0;
        logEvent("clock", {{"now", static_cast<long long>(kx_now())}, {"next", static_cast<long long>(next)}});
        return statusReply(daemon, id);
    }
    if (request.contains("set"))
        return errorReply(id, "\"set\" goes with rsvd.clock only");
    if (testPeerHook && request.contains(kTestPeerField)) {
        rsvctl::Caller stated = caller;
        if (!testPeerHook(request[kTestPeerField], stated))
            return errorReply(id, "\"test_peer\" must be {\"user\":NAME,\"operator\":BOOL}");
        return runCommand(daemon, request, stated);
    }
    return runCommand(daemon, request, caller);
}

void setTestPeerHook(TestPeerHook hook)
{
    testPeerHook = hook;
}

bool isOperator(unsigned uid, unsigned gid, const std::string &user, const std::string &groupName)
{
    if (uid == 0)
        return true;
    const struct group *gr = getgrnam(groupName.c_str());
    if (!gr)
        return false;
    if (gr->gr_gid == gid)
        return true;
    for (char **member = gr->gr_mem; member && *member; ++member)
        if (user == *member)
            return true;
    return false;
}

} // namespace rsvd
