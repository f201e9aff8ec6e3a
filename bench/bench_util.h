// What the benchmark runners share: starting the program under test with a clean environment,
// files in and out, small statistics.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

namespace bench {

[[noreturn]] inline void die(const std::string& why) {
    fprintf(stderr, "%s: %s\n", program_invocation_short_name, why.c_str());
    exit(2);
}

inline uint64_t now_ns() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000000000ull + static_cast<uint64_t>(ts.tv_nsec);
}

struct Run {
    uint64_t wall_ns = 0;
    uint64_t cpu_ns = 0;  // user + system of the process and the children it waited for
    int status = -1;      // exit status, or 128 + signal
};

// Starts argv with the given extra environment (everything of ours is removed from the
// inherited one first); stdin from a file (or /dev/null), stdout and stderr to files.
inline pid_t start(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                   const std::string& in = "", const std::string& out = "", const std::string& err = "") {
    std::vector<std::string> envs;
    for (char** e = environ; *e; e++) {
        std::string v = *e;
        if (v.rfind("LD_PRELOAD=", 0) == 0 || v.rfind("KVOSIM_", 0) == 0 || v.rfind("QMXBENCH_", 0) == 0) continue;
        envs.push_back(v);
    }
    for (const std::string& v : env) envs.push_back(v);
    std::vector<char*> av, ev;
    for (const std::string& a : argv) av.push_back(const_cast<char*>(a.c_str()));
    av.push_back(nullptr);
    for (const std::string& v : envs) ev.push_back(const_cast<char*>(v.c_str()));
    ev.push_back(nullptr);

    pid_t pid = fork();
    if (pid < 0) die(std::string("fork: ") + strerror(errno));
    if (pid == 0) {
        int i = open(in.empty() ? "/dev/null" : in.c_str(), O_RDONLY);
        int o = open(out.empty() ? "/dev/null" : out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        int e = open(err.empty() ? "/dev/null" : err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (i < 0 || o < 0 || e < 0) _exit(126);
        dup2(i, 0);
        dup2(o, 1);
        dup2(e, 2);
        execve(av[0], av.data(), ev.data());
        _exit(127);
    }
    return pid;
}

// Waits for a started process; the wall time counts from t0.
inline Run finish(pid_t pid, uint64_t t0) {
    Run r;
    int st = 0;
    rusage ru{};
    while (wait4(pid, &st, 0, &ru) < 0 && errno == EINTR) {
    }
    r.wall_ns = now_ns() - t0;
    r.cpu_ns = static_cast<uint64_t>(ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) * 1000000000ull +
               static_cast<uint64_t>(ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) * 1000ull;
    r.status = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
    return r;
}

inline Run spawn(const std::vector<std::string>& argv, const std::vector<std::string>& env, const std::string& in,
                 const std::string& out, const std::string& err) {
    const uint64_t t0 = now_ns();
    return finish(start(argv, env, in, out, err), t0);
}

inline std::string slurp(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    std::ostringstream s;
    s << f.rdbuf();
    return s.str();
}

inline void spit(const std::string& path, const std::string& text) {
    std::ofstream f(path, std::ios::binary | std::ios::trunc);
    f << text;
    if (!f) die(path + ": cannot write");
}

// The number after " key=" on a line of the shims' report, 0 when absent.
inline uint64_t field(const std::string& line, const char* key) {
    std::string k = std::string(" ") + key + "=";
    size_t p = line.find(k);
    return p == std::string::npos ? 0 : strtoull(line.c_str() + p + k.size(), nullptr, 10);
}

inline double median(std::vector<double> v) {
    if (v.empty()) return NAN;
    std::sort(v.begin(), v.end());
    size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

inline double minimum(const std::vector<double>& v) {
    return v.empty() ? NAN : *std::min_element(v.begin(), v.end());
}

inline double ms(uint64_t ns) { return static_cast<double>(ns) / 1e6; }

inline std::string fmt(const char* f, double v) {
    if (std::isnan(v)) return "-";
    char b[64];
    snprintf(b, sizeof b, f, v);
    return b;
}

}  // namespace bench
