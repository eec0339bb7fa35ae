// output.h: where a command's text goes. rsvctl prints to its standard
// output and error; rsvd captures both for the reply, so that the two front
// ends say exactly the same things.
#ifndef RSVCTL_OUTPUT_H
#define RSVCTL_OUTPUT_H

#include <string>
#include <string_view>

#include <fmt/format.h>

namespace rsvctl {

class Output {
public:
    virtual ~Output() = default;
    virtual void out(std::string_view text);
    virtual void err(std::string_view text);
};

// Both streams kept as text.
class CapturedOutput : public Output {
public:
    void out(std::string_view text) override { out_.append(text); }
    void err(std::string_view text) override { err_.append(text); }
    const std::string &outText() const { return out_; }
    const std::string &errText() const { return err_; }

private:
    std::string out_;
    std::string err_;
};

// The output of the command being run: the process's streams unless a front
// end has installed another one.
Output &output();

// Installs `output` for its lifetime (the previous one comes back after).
class OutputScope {
public:
    explicit OutputScope(Output &output);
    ~OutputScope();
    OutputScope(const OutputScope &) = delete;
    OutputScope &operator=(const OutputScope &) = delete;

private:
    Output *previous_;
};

template <typename... Args>
void printOut(fmt::format_string<Args...> format, Args &&...args)
{
    output().out(fmt::format(format, std::forward<Args>(args)...));
}

template <typename... Args>
void printErr(fmt::format_string<Args...> format, Args &&...args)
{
    output().err(fmt::format(format, std::forward<Args>(args)...));
}

} // namespace rsvctl

#endif
