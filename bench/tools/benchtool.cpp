// benchtool: what the benchmark script needs besides the benchmark programs.
//   benchtool state DIR MIX [RESERVATIONS] [NOW]
//       writes a state directory for rsvctl (hosts.conf and rsv.state) holding
//       the table of MIX ("reference" or "fifty-weeks") starting at NOW, with
//       one more host, "spare", that no reservation holds
//   benchtool run N COMMAND [ARG...]
//       runs COMMAND N times (standard output to /dev/null) and prints
//       "wall_ms cpu_ms peak_rss_mb", each the median over the runs: wall
//       time, processor time (user and system) and the run's resident peak,
//       the last two as wait4 reports them
#include <sys/resource.h>
#include <sys/wait.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "workload.h"

namespace {

int usage()
{
    std::fprintf(stderr, "usage: benchtool state DIR reference|fifty-weeks [RESERVATIONS] [NOW]\n"
                         "       benchtool run N COMMAND [ARG...]\n");
    return 64;
}

int makeState(int argc, char **argv)
{
    if (argc < 4)
        return usage();
    const std::string dir = argv[2];
    const std::string mixName = argv[3];
    rsvbench::Mix mix;
    if (mixName == "fifty-weeks")
        mix = rsvbench::fiftyWeekMix();
    else if (mixName != "reference")
        return usage();
    if (argc > 4)
        mix.reservations = std::atoi(argv[4]);
    const time_t now = argc > 5 ? static_cast<time_t>(std::atoll(argv[5])) : std::time(nullptr);
    if (!rsvbench::writeStateDir(dir, mix, now)) {
        std::fprintf(stderr, "benchtool: cannot write %s\n", dir.c_str());
        return 1;
    }
    return 0;
}

int runCommand(int argc, char **argv)
{
    if (argc < 4)
        return usage();
    const int runs = std::max(1, std::atoi(argv[2]));
    std::vector<double> millis;
    std::vector<double> cpuMillis;
    std::vector<long> peaksKb;
    for (int i = 0; i < runs; ++i) {
        const auto start = std::chrono::steady_clock::now();
        const pid_t pid = fork();
        if (pid < 0) {
            std::perror("fork");
            return 1;
        }
        if (pid == 0) {
            const int null = open("/dev/null", O_WRONLY);
            if (null >= 0)
                dup2(null, STDOUT_FILENO);
            execvp(argv[3], argv + 3);
            std::perror(argv[3]);
            _exit(127);
        }
        int status = 0;
        struct rusage usage {};
        if (wait4(pid, &status, 0, &usage) != pid) {
            std::perror("wait4");
            return 1;
        }
        const auto end = std::chrono::steady_clock::now();
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            std::fprintf(stderr, "benchtool: run %d of %s failed (status %d)\n", i + 1, argv[3], status);
            return 1;
        }
        millis.push_back(std::chrono::duration<double, std::milli>(end - start).count());
        peaksKb.push_back(usage.ru_maxrss);
        auto ms = [](const timeval &tv) { return static_cast<double>(tv.tv_sec) * 1e3 + tv.tv_usec / 1e3; };
        cpuMillis.push_back(ms(usage.ru_utime) + ms(usage.ru_stime));
    }
    std::sort(millis.begin(), millis.end());
    std::sort(cpuMillis.begin(), cpuMillis.end());
    std::sort(peaksKb.begin(), peaksKb.end());
    const size_t mid = millis.size() / 2;
    std::printf("%.2f %.2f %.1f\n", millis[mid], cpuMillis[mid], static_cast<double>(peaksKb[mid]) / 1024.0);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2)
        return usage();
    if (std::strcmp(argv[1], "state") == 0)
        return makeState(argc, argv);
    if (std::strcmp(argv[1], "run") == 0)
        return runCommand(argc, argv);
    return usage();
}
