// The README's rsvctl session, run as it stands: every "$ rsvctl ..." line of
// the session's block, in order, in one fresh state directory, with the
// clock and zone the README names, and its printed lines compared with what
// the command writes (standard output, then standard error).
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rsv_test_support.h"
#include "rsvctl_runner.h"

using rsvctltest::RunResult;
using rsvctltest::runRsvctl;

namespace {

struct Step {
    std::string command;                 // as typed after "$ "
    std::vector<std::string> words;      // its words, quotes taken off
    std::string expected;                // the lines the README shows after it
};

// The words of a shell command line as the README types them: blanks split,
// single and double quotes group, and an unquoted '#' after a blank starts a
// comment.
std::vector<std::string> shellWords(const std::string &line)
{
    std::vector<std::string> words;
    std::string word;
    bool inWord = false;
    char quote = 0;
    for (size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quote) {
            if (c == quote)
                quote = 0;
            else
                word += c;
            continue;
        }
        if (c == '\'' || c == '"') {
            quote = c;
            inWord = true;
        } else if (c == ' ' || c == '\t') {
            if (inWord)
                words.push_back(word);
            word.clear();
            inWord = false;
        } else if (c == '#' && !inWord) {
            break;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (inWord)
        words.push_back(word);
    return words;
}

// The steps of the first ```sh block after `marker`.
std::vector<Step> sessionSteps(const std::string &readme, const std::string &marker)
{
    std::vector<Step> steps;
    size_t at = readme.find(marker);
    if (at == std::string::npos)
        return steps;
    at = readme.find("```sh\n", at);
    if (at == std::string::npos)
        return steps;
    const size_t end = readme.find("```\n", at + 6);
    std::istringstream block(readme.substr(at + 6, end - at - 6));
    std::string line;
    while (std::getline(block, line)) {
        if (line.rfind("$ ", 0) == 0) {
            Step step;
            step.command = line.substr(2);
            step.words = shellWords(step.command);
            steps.push_back(step);
        } else if (!steps.empty()) {
            steps.back().expected += line + "\n";
        }
    }
    return steps;
}

} // namespace

TEST(Readme, TheSessionRunsAsPrinted)
{
    std::ifstream in(std::string(RSV_SOURCE_DIR) + "/README.md");
    ASSERT_TRUE(in.good());
    std::stringstream all;
    all << in.rdbuf();
    const std::string readme = all.str();
    // The README's own words for the moment of its session.
    ASSERT_NE(readme.find("Wed 2026-11-18 at 10:00 with `TZ=UTC`"), std::string::npos);
    const std::vector<Step> steps = sessionSteps(readme, "A session on the built-in cluster");
    ASSERT_GE(steps.size(), 5u);

    // Run where the README's reader would: the default ./rsv-state.
    rsvtest::TempDir tmp;
    rsvctltest::RunOptions where;
    where.cwd = tmp.file("");
    for (const Step &step : steps) {
        ASSERT_FALSE(step.words.empty());
        ASSERT_EQ(step.words[0], "rsvctl") << step.command;
        const std::vector<std::string> args(step.words.begin() + 1, step.words.end());
        // The session's clock: Wed 2026-11-18 10:00 UTC.
        const RunResult r = runRsvctl(args, rsvctltest::kNow, "UTC", where);
        EXPECT_EQ(r.out + r.err, step.expected) << "$ " << step.command;
        // A refusal is shown by its message; every other step succeeds.
        if (r.err.empty())
            EXPECT_EQ(r.status, 0) << "$ " << step.command;
        else
            EXPECT_NE(r.status, 0) << "$ " << step.command;
    }
}
