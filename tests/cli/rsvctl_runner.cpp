// rsvctl_runner.cpp: fork, exec and collect.
#include "rsvctl_runner.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "rsv_test_support.h"

namespace rsvctltest {

namespace {

std::string slurp(int fd)
{
    std::string out;
    char buf[4096];
    lseek(fd, 0, SEEK_SET);
    for (ssize_t n; (n = read(fd, buf, sizeof buf)) > 0;)
        out.append(buf, static_cast<size_t>(n));
    return out;
}

int tempFile()
{
    char name[] = "/tmp/rsvctl-test-XXXXXX";
    int fd = mkstemp(name);
    if (fd >= 0)
        unlink(name);
    return fd;
}

} // namespace

RunResult runRsvctl(const std::vector<std::string> &args, long long now, const std::string &tz,
                    const RunOptions &options)
{
    RunResult result;
    int outFd = tempFile(), errFd = tempFile(), inFd = tempFile();
    if (outFd < 0 || errFd < 0 || inFd < 0)
        return result;
    if (!options.input.empty() && write(inFd, options.input.data(), options.input.size()) < 0)
        return result;
    lseek(inFd, 0, SEEK_SET);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(inFd, 0);
        dup2(outFd, 1);
        dup2(errFd, 2);
        setenv("TZ", tz.c_str(), 1);
        setenv("RSVCTL_NOW", std::to_string(now).c_str(), 1);
        unsetenv("RSV_STATE_DIR");
        unsetenv("NO_COLOR");
        for (const auto &name : options.unset)
            unsetenv(name.c_str());
        for (const auto &[name, value] : options.env)
            setenv(name.c_str(), value.c_str(), 1);
        if (!options.cwd.empty() && chdir(options.cwd.c_str()) != 0)
            _exit(126);
        std::vector<char *> argv;
        std::string program = RSVCTL_PATH;
        argv.push_back(program.data());
        std::vector<std::string> copies = args;
        for (auto &a : copies)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    int wstatus = 0;
    waitpid(pid, &wstatus, 0);
    result.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1;
    result.out = slurp(outFd);
    result.err = slurp(errFd);
    close(outFd);
    close(errFd);
    close(inFd);
    return result;
}

std::map<std::string, std::string> snapshot(const std::string &dir)
{
    std::map<std::string, std::string> files;
    DIR *d = opendir(dir.c_str());
    if (!d)
        return files;
    while (dirent *e = readdir(d)) {
        std::string name = e->d_name;
        std::string path = dir + "/" + name;
        struct stat st {};
        if (stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode))
            files[name] = rsvtest::readFile(path);
    }
    closedir(d);
    return files;
}

std::vector<std::string> lines(const std::string &text)
{
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        out.push_back(line);
    return out;
}

} // namespace rsvctltest
