// rsvctl_runner.cpp: fork, exec and collect.
#include "rsvctl_runner.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
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

void closeAll(Running &r)
{
    for (int *fd : {&r.outFd, &r.errFd, &r.inFd}) {
        if (*fd >= 0)
            close(*fd);
        *fd = -1;
    }
}

} // namespace

Running startRsvctl(const std::vector<std::string> &args, long long now, const std::string &tz,
                    const RunOptions &options)
{
    Running r;
    r.outFd = tempFile();
    r.errFd = tempFile();
    r.inFd = tempFile();
    if (r.outFd < 0 || r.errFd < 0 || r.inFd < 0) {
        closeAll(r);
        return r;
    }
    if (!options.input.empty() && write(r.inFd, options.input.data(), options.input.size()) < 0) {
        closeAll(r);
        return r;
    }
    lseek(r.inFd, 0, SEEK_SET);
    // Everything the child needs is made before the fork.
    std::vector<std::string> words = options.wrapper;
    words.push_back(RSVCTL_PATH);
    words.insert(words.end(), args.begin(), args.end());
    std::vector<char *> argv;
    for (auto &w : words)
        argv.push_back(w.data());
    argv.push_back(nullptr);
    const std::string nowText = std::to_string(now);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(r.inFd, 0);
        dup2(r.outFd, 1);
        dup2(r.errFd, 2);
        setenv("TZ", tz.c_str(), 1);
        setenv("RSVCTL_NOW", nowText.c_str(), 1);
        unsetenv("RSV_STATE_DIR");
        unsetenv("NO_COLOR");
        // The operator recorded as creator when --as is not given.
        setenv("LOGNAME", kOperator, 1);
        for (const auto &name : options.unset)
            unsetenv(name.c_str());
        for (const auto &[name, value] : options.env)
            setenv(name.c_str(), value.c_str(), 1);
        if (!options.cwd.empty() && chdir(options.cwd.c_str()) != 0)
            _exit(126);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    r.pid = pid;
    return r;
}

RunResult finish(Running &running)
{
    RunResult result;
    if (running.pid > 0) {
        int wstatus = 0;
        while (waitpid(running.pid, &wstatus, 0) < 0 && errno == EINTR) {
        }
        result.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1;
        result.signal = WIFSIGNALED(wstatus) ? WTERMSIG(wstatus) : 0;
        result.out = slurp(running.outFd);
        result.err = slurp(running.errFd);
    }
    running.pid = -1;
    closeAll(running);
    return result;
}

RunResult runRsvctl(const std::vector<std::string> &args, long long now, const std::string &tz,
                    const RunOptions &options)
{
    Running r = startRsvctl(args, now, tz, options);
    return finish(r);
}

RunOptions withFault(const std::string &library, const std::string &fault, const std::string &dir,
                     const std::string &log)
{
    RunOptions options;
    options.env["LD_PRELOAD"] = library;
    options.env["RSV_IOFAULT"] = fault;
    options.env["RSV_IOFAULT_DIR"] = dir;
    options.env["RSV_IOFAULT_LOG"] = log;
    const char *asan = std::getenv("ASAN_OPTIONS");
    std::string value = asan && *asan ? std::string(asan) + ":" : "";
    options.env["ASAN_OPTIONS"] = value + "verify_asan_link_order=0";
    return options;
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

void restore(const std::string &dir, const std::map<std::string, std::string> &files)
{
    mkdir(dir.c_str(), 0755);
    for (const auto &[name, contents] : files)
        rsvtest::writeFile(dir + "/" + name, contents);
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
