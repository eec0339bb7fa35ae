// generate.cpp: the manual page (troff) and the bash and zsh completions,
// walked from the command definitions: every subcommand and every option
// rsvctl accepts appears in all three.
#include "generate.h"

#include <fstream>
#include <initializer_list>
#include <set>
#include <vector>

#include <fmt/format.h>

#include "cli_error.h"

namespace rsvctl {

namespace {

std::vector<const CLI::App *> subcommands(const CLI::App &app)
{
    return app.get_subcommands([](const CLI::App *sub) { return !sub->get_group().empty(); });
}

std::vector<const CLI::Option *> options(const CLI::App &app)
{
    return app.get_options([](const CLI::Option *opt) { return !opt->get_group().empty(); });
}

// "-u", "--user" of an option (positionals have none).
std::vector<std::string> optionNames(const CLI::Option &opt)
{
    std::vector<std::string> names;
    for (const auto &s : opt.get_snames())
        names.push_back("-" + s);
    for (const auto &l : opt.get_lnames())
        names.push_back("--" + l);
    return names;
}

bool takesValue(const CLI::Option &opt)
{
    return opt.get_type_size() > 0 && opt.get_expected_min() > 0;
}

// "TEXT" of the parser's "TEXT:{auto,always,never}".
std::string valueName(const CLI::Option &opt)
{
    if (opt.get_positional())
        return opt.get_name();
    std::string type = opt.get_type_name();
    type = type.substr(0, type.find(':'));
    return type.empty() ? "VALUE" : type;
}

// The values an option is limited to ("{auto,always,never}" after the type
// name), blank-separated; "" when any value goes.
std::string choices(const CLI::Option &opt)
{
    std::string type = opt.get_type_name();
    size_t open = type.find(":{");
    if (open == std::string::npos || type.back() != '}')
        return {};
    std::string list = type.substr(open + 2, type.size() - open - 3);
    for (char &c : list)
        if (c == ',')
            c = ' ';
    return list;
}

// `text` with each character of `table` replaced by its text.
std::string replaced(const std::string &text, std::initializer_list<std::pair<char, const char *>> table)
{
    std::string out;
    for (char c : text) {
        const char *with = nullptr;
        for (const auto &[from, to] : table)
            if (c == from)
                with = to;
        if (with)
            out += with;
        else
            out += c;
    }
    return out;
}

// troff: backslashes and minus signs written as such.
std::string roff(const std::string &text)
{
    return replaced(text, {{'\\', "\\e"}, {'-', "\\-"}});
}

// Lines of text for troff: escaped, and none starting with a control character.
std::string roffLines(const std::string &text)
{
    std::string out;
    size_t start = 0;
    while (start <= text.size()) {
        size_t nl = text.find('\n', start);
        std::string line = text.substr(start, nl == std::string::npos ? std::string::npos : nl - start);
        if (!line.empty() && (line[0] == '.' || line[0] == '\''))
            out += "\\&";
        out += roff(line) + "\n";
        if (nl == std::string::npos)
            break;
        start = nl + 1;
    }
    return out;
}

std::string manOptions(const CLI::App &app)
{
    std::string out;
    for (const CLI::Option *opt : options(app)) {
        std::string names;
        if (opt->get_positional()) {
            names = fmt::format("\\fI{}\\fR", roff(opt->get_name()));
        } else {
            for (const auto &n : optionNames(*opt))
                names += (names.empty() ? "" : ", ") + fmt::format("\\fB{}\\fR", roff(n));
            if (takesValue(*opt))
                names += fmt::format(" \\fI{}\\fR", roff(valueName(*opt)));
        }
        out += ".TP\n" + names + "\n" + roffLines(opt->get_description());
    }
    return out;
}

// Single-quoted for the shells.
std::string shellQuoted(const std::string &text)
{
    std::string out = "'";
    for (char c : text)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

// An option's help as a zsh description: brackets and colons would end it.
std::string zshDescription(const std::string &text)
{
    return replaced(text, {{'[', "("}, {']', ")"}, {':', "\\:"}, {'\n', " "}});
}

// The _arguments optionLines of the options of `app`, leaving out those of
// `skip` (the globals, given to every command already).
std::string zshOptionLines(const CLI::App &app, const std::string &indent, const CLI::App *skip = nullptr)
{
    std::set<std::string> skipped;
    if (skip)
        for (const CLI::Option *opt : options(*skip))
            for (const auto &n : optionNames(*opt))
                skipped.insert(n);
    std::string out;
    for (const CLI::Option *opt : options(app)) {
        if (opt->get_positional()) {
            out += indent + shellQuoted(fmt::format("*:{}:", opt->get_name())) + "\n";
            continue;
        }
        std::string value;
        if (takesValue(*opt)) {
            if (!opt->get_lnames().empty() && opt->get_lnames()[0] == "state-dir")
                value = ":directory:_files -/";
            else if (std::string values = choices(*opt); !values.empty())
                value = fmt::format(":{}:({})", valueName(*opt), values);
            else
                value = fmt::format(":{}:", valueName(*opt));
        }
        for (const auto &n : optionNames(*opt))
            if (!skipped.count(n))
                out += indent + shellQuoted(fmt::format("{}[{}]{}", n, zshDescription(opt->get_description()), value)) +
                       "\n";
    }
    return out;
}

std::string wordsOf(const CLI::App &app)
{
    std::string out;
    for (const CLI::Option *opt : options(app))
        for (const auto &n : optionNames(*opt))
            out += (out.empty() ? "" : " ") + n;
    return out;
}

} // namespace

std::string manPage(const CLI::App &app)
{
    const std::string name = app.get_name();
    std::string out;
    out += fmt::format(".TH {} 1 \"\" \"{}\" \"User Commands\"\n", "RSVCTL", name);
    const std::string summary = app.get_description().substr(app.get_description().find(": ") + 2);
    out += ".SH NAME\n" + roff(name) + " \\- " + roff(summary) + "\n";
    out += ".SH SYNOPSIS\n.B " + roff(name) + "\n[\\fIglobal options\\fR] \\fIcommand\\fR [\\fIoptions\\fR]\n";
    out += ".SH DESCRIPTION\n.B " + roff(name) + "\nmanages " + roff(summary) + ".\n" +
           "Each run locks the state directory, loads it as the daemon starts up, performs one operation\n"
           "through the reservation module and lets the module save its files.\n"
           "Global options may also follow the command.\n";
    out += ".SH GLOBAL OPTIONS\n" + manOptions(app);
    out += ".SH COMMANDS\n";
    for (const CLI::App *sub : subcommands(app)) {
        out += fmt::format(".SS \"{} \\- {}\"\n", roff(sub->get_name()), roff(sub->get_description()));
        out += manOptions(*sub);
        if (!sub->get_footer().empty())
            out += ".PP\n.nf\n" + roffLines(sub->get_footer()) + ".fi\n";
    }
    out += ".SH NOTES\n.nf\n" + roffLines(app.get_footer()) + ".fi\n";
    out += ".SH FILES\n.TP\n\\fIhosts.conf\\fR, \\fIrsv.state\\fR, \\fIrsv.ids\\fR, \\fIrsv.lock\\fR\n"
           "In the state directory: the cluster, the reservations, the identifier counters, the lock.\n";
    out += ".SH ENVIRONMENT\n.TP\n\\fBRSV_STATE_DIR\\fR\nThe state directory when \\fB\\-\\-state\\-dir\\fR "
           "is not given (else \\fI./rsv\\-state\\fR).\n.TP\n\\fBLOGNAME\\fR, \\fBUSER\\fR\n"
           "The operator recorded as a reservation's creator when \\fB\\-\\-as\\fR is not given.\n"
           ".TP\n\\fBNO_COLOR\\fR\nNo colour with \\fB\\-\\-color auto\\fR.\n";
    out += ".SH SEE ALSO\nThe guide \\fIdocs/rsvctl.md\\fR of the source tree.\n";
    return out;
}

std::string bashCompletion(const CLI::App &app)
{
    const std::string name = app.get_name();
    std::string commands;
    for (const CLI::App *sub : subcommands(app))
        commands += (commands.empty() ? "" : " ") + sub->get_name();
    std::string out = fmt::format(R"(# bash completion for {0}, generated from its command definitions.
_{0}()
{{
    local cur="${{COMP_WORDS[COMP_CWORD]}}" prev="${{COMP_WORDS[COMP_CWORD-1]}}"
    local globals={1}
    local commands={2}
    if [[ "$prev" == --state-dir ]]; then
        COMPREPLY=( $(compgen -d -- "$cur") )
        return
    fi
    local cmd="" i
    for (( i = 1; i < COMP_CWORD; i++ )); do
        case " $commands " in
            *" ${{COMP_WORDS[i]}} "*) cmd="${{COMP_WORDS[i]}}"; break ;;
        esac
    done
    local words
    case "$cmd" in
        "") words="$globals $commands" ;;
)",
                                  name, shellQuoted(wordsOf(app)), shellQuoted(commands));
    for (const CLI::App *sub : subcommands(app))
        out += fmt::format("        {}) words={}\" $globals\" ;;\n", sub->get_name(), shellQuoted(wordsOf(*sub)));
    out += fmt::format(R"(    esac
    COMPREPLY=( $(compgen -W "$words" -- "$cur") )
}}
complete -o default -F _{0} {0}
)",
                       name);
    return out;
}

std::string zshCompletion(const CLI::App &app)
{
    const std::string name = app.get_name();
    std::string out = fmt::format("#compdef {0}\n# zsh completion for {0}, generated from its command definitions.\n"
                                  "_{0}() {{\n    local curcontext=\"$curcontext\" state line\n"
                                  "    local -a globals commands\n    globals=(\n",
                                  name);
    out += zshOptionLines(app, "        ");
    out += "    )\n    commands=(\n";
    for (const CLI::App *sub : subcommands(app))
        out += "        " + shellQuoted(fmt::format("{}:{}", sub->get_name(), zshDescription(sub->get_description()))) + "\n";
    out += "    )\n    _arguments -C $globals '1:command:->command' '*::argument:->argument'\n"
           "    case $state in\n"
           "        command) _describe -t commands 'rsvctl command' commands ;;\n"
           "        argument)\n            case $line[1] in\n";
    for (const CLI::App *sub : subcommands(app)) {
        std::string optionLines = zshOptionLines(*sub, "                        ", &app);
        out += fmt::format("                {})\n                    _arguments $globals{}\n", sub->get_name(),
                           optionLines.empty() ? "" : " \\");
        // One continued command: every option line but the last ends in " \".
        std::string joinedLines;
        size_t start = 0;
        while (start < optionLines.size()) {
            size_t nl = optionLines.find('\n', start);
            std::string line = optionLines.substr(start, nl - start);
            start = nl + 1;
            joinedLines += line + (start < optionLines.size() ? " \\\n" : "\n");
        }
        out += joinedLines + "                    ;;\n";
    }
    out += "            esac ;;\n    esac\n}\n_" + name + " \"$@\"\n";
    return out;
}

int generateFile(const CLI::App &app, const std::string &what, const std::string &file)
{
    std::string text;
    if (what == "man")
        text = manPage(app);
    else if (what == "bash")
        text = bashCompletion(app);
    else if (what == "zsh")
        text = zshCompletion(app);
    else
        usageError(fmt::format("--generate takes man, bash or zsh, not '{}'", what));
    if (file.empty() || file == "-") {
        fmt::print("{}", text);
        return kExitOk;
    }
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    if (!out)
        fileError(fmt::format("cannot write '{}'", file));
    return kExitOk;
}

} // namespace rsvctl
