#pragma once
// Shared by the fuzz targets: the property check, and a private scratch directory for the
// targets that need files (on tmpfs when there is one, so that fsync costs nothing).
#include <dirent.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace fuzz {

// A broken property ends the run like a crash, so libFuzzer keeps the input.
[[noreturn]] inline void fail(const char* file, int line, const char* fmt, ...) {
    fprintf(stderr, "%s:%d: property broken: ", file, line);
    va_list ap;
    va_start(ap, fmt);
    vfprintf(stderr, fmt, ap);
    va_end(ap);
    fputc('\n', stderr);
    abort();
}
#define FUZZ_CHECK(cond, ...) \
    do {                      \
        if (!(cond)) ::fuzz::fail(__FILE__, __LINE__, __VA_ARGS__); \
    } while (0)

// A fixed-size text field holds its terminator.
template <size_t N>
bool terminated(const char (&field)[N]) {
    return memchr(field, '\0', N) != nullptr;
}

// The names in dir, "." and ".." left out.
inline std::vector<std::string> dir_entries(const std::string& dir) {
    std::vector<std::string> names;
    if (DIR* d = opendir(dir.c_str())) {
        while (const dirent* e = readdir(d))
            if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0)
                names.push_back(e->d_name);
        closedir(d);
    }
    return names;
}

inline void remove_dir(const std::string& dir) {
    for (const std::string& n : dir_entries(dir)) unlink((dir + "/" + n).c_str());
    rmdir(dir.c_str());
}

// The process's scratch directory, made on first use and removed with its files at exit. A
// run that crashed leaves its own behind: the next run removes those of processes gone.
inline const std::string& scratch_dir() {
    // Never destroyed: the clean-up at exit still needs the name.
    static const std::string& dir = *new std::string([] {
        const char* base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        const std::string parent = std::string(base) + "/qmx-fuzz-" + std::to_string(getuid());
        mkdir(parent.c_str(), 0700);
        for (const std::string& n : dir_entries(parent)) {
            pid_t pid = static_cast<pid_t>(atol(n.c_str()));
            if (pid > 0 && kill(pid, 0) != 0 && errno == ESRCH) remove_dir(parent + "/" + n);
        }
        std::string own = parent + "/" + std::to_string(getpid());
        if (mkdir(own.c_str(), 0700) != 0) fail(__FILE__, __LINE__, "no scratch directory");
        atexit([] { remove_dir(scratch_dir()); });
        return own;
    }());
    return dir;
}

inline void write_file(const std::string& path, const void* data, size_t size) {
    FILE* f = fopen(path.c_str(), "wb");
    FUZZ_CHECK(f != nullptr, "cannot create %s", path.c_str());
    FUZZ_CHECK(size == 0 || fwrite(data, 1, size, f) == size, "cannot write %s", path.c_str());
    FUZZ_CHECK(fclose(f) == 0, "cannot close %s", path.c_str());
}

inline std::string read_file(const std::string& path) {
    std::string s;
    FILE* f = fopen(path.c_str(), "rb");
    FUZZ_CHECK(f != nullptr, "cannot open %s", path.c_str());
    char buf[8192];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) s.append(buf, n);
    fclose(f);
    return s;
}

}  // namespace fuzz
