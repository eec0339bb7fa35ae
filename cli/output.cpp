// output.cpp: the process's streams, or what a front end installed.
#include "output.h"

#include <cstdio>

namespace rsvctl {

namespace {

Output processOutput;
Output *current = &processOutput;

} // namespace

void Output::out(std::string_view text)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
}

void Output::err(std::string_view text)
{
    std::fflush(stdout);
    std::fwrite(text.data(), 1, text.size(), stderr);
}

Output &output()
{
    return *current;
}

OutputScope::OutputScope(Output &output) : previous_(current)
{
    current = &output;
}

OutputScope::~OutputScope()
{
    current = previous_;
}

} // namespace rsvctl
