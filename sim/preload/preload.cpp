// libkvosim.so: preloaded into the host software and every child it starts. Paths under the
// emulated prefixes are redirected into the bed's root/ (and never reach the real system: a
// file the bed lacks does not exist); descriptors opened on emulated driver nodes are tracked
// and ioctl on them is answered by the emulated drivers. Directory listings of emulated
// directories come back sorted by name, or in sysfs hash order when the bed asks for it, so
// that every run sees the same order. While a bed is active no ioctl reaches a device or
// network interface of the machine (see the ioctl wrapper).
#undef _FORTIFY_SOURCE
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "bed.h"
#include "emu.h"
#include "sysfs_order.h"

using kvosim::NodeKind;
using kvosim::NodeRef;

static_assert(sizeof(struct dirent) == sizeof(struct dirent64), "dirent layouts differ");

namespace {

template <class F>
F next_fn(const char* name) {
    return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

#define REAL(name, type)                                  \
    static const auto real = next_fn<type>(#name);        \
    if (real == nullptr) {                                \
        errno = ENOSYS;                                   \
    }

// ---- where a path goes ------------------------------------------------------------------

enum class How { pass, mapped, noent };

void act_on_writes();

struct Route {
    How how = How::pass;
    std::string vpath;  // normalised virtual path
    std::string real;   // its file in the bed
};

Route route(const char* path) {
    Route r;
    if (path == nullptr || path[0] != '/') return r;
    std::string v;
    if (!kvosim::normalise_path(path, v) || !kvosim::emulated_path(v)) return r;
    r.vpath = v;
    r.real = kvosim::bed_file(v);
    r.how = r.real.empty() ? How::noent : How::mapped;
    if (r.how == How::mapped) {
        if (kvosim::scsi_fs_path(v)) kvosim::ensure_scsi_fs();
        act_on_writes();
    }
    return r;
}

Route route_at(int dirfd, const char* path) {
    // Relative to a real directory descriptor: an emulated directory's descriptor already
    // points into the bed.
    if (path != nullptr && path[0] != '/' && dirfd != AT_FDCWD) return Route();
    return route(path);
}

// ---- tracked descriptors and directory streams ------------------------------------------

struct Tracked {
    std::string vpath;
    dev_t dev;
    ino_t ino;
};

struct DirList {
    std::vector<struct dirent64> ents;
    size_t pos = 0;
};

struct Tables {
    std::mutex mu;
    std::unordered_map<int, Tracked> fds;
    std::unordered_map<DIR*, DirList> dirs;
    std::vector<std::string> written;  // sysfs action files opened for writing, not yet acted on
};

Tables& tables() {
    static Tables* t = new Tables;  // never destroyed: destructors of other libraries may run later
    return *t;
}

void track(int fd, const std::string& vpath) {
    struct stat sb;
    if (fd < 0 || fstat(fd, &sb) != 0) return;
    if (kvosim::classify_node(vpath).kind == NodeKind::scsi) kvosim::scsi_fd_opened(fd);
    Tables& t = tables();
    std::lock_guard<std::mutex> g(t.mu);
    t.fds[fd] = Tracked{vpath, sb.st_dev, sb.st_ino};
}

void untrack(int fd) {
    Tables& t = tables();
    std::lock_guard<std::mutex> g(t.mu);
    t.fds.erase(fd);
}

// sysfs writes (`echo 1 > .../delete`) are acted on when the writer closes the file, or at the
// latest at the process's next emulated access or its exit. Acting reads what was written and
// empties the file, so a second look finds nothing to do.
thread_local bool acting = false;

void act_on_writes() {
    if (acting) return;
    std::vector<std::string> w;
    {
        Tables& t = tables();
        std::lock_guard<std::mutex> g(t.mu);
        if (t.written.empty()) return;
        w = t.written;
        // Still open for writing: keep it for later (more may come).
        std::vector<std::string> keep;
        for (const std::string& v : t.written)
            for (const auto& [fd, tr] : t.fds)
                if (tr.vpath == v) {
                    keep.push_back(v);
                    break;
                }
        t.written.swap(keep);
    }
    acting = true;
    for (const std::string& v : w) kvosim::sysfs_written(v);
    acting = false;
}

void note_write_open(const std::string& vpath, bool writing) {
    if (!writing || !kvosim::sysfs_action_file(vpath)) return;
    Tables& t = tables();
    std::lock_guard<std::mutex> g(t.mu);
    if (std::find(t.written.begin(), t.written.end(), vpath) == t.written.end()) t.written.push_back(vpath);
}

__attribute__((destructor)) void act_at_exit() { act_on_writes(); }

// The virtual path of a descriptor opened on an emulated file; a descriptor number reused
// after a close we could not see (stdio, fdopendir) no longer matches its file and is dropped.
bool tracked(int fd, std::string& vpath) {
    Tracked tr;
    {
        Tables& t = tables();
        std::lock_guard<std::mutex> g(t.mu);
        auto it = t.fds.find(fd);
        if (it == t.fds.end()) return false;
        tr = it->second;
    }
    struct stat sb;
    if (fstat(fd, &sb) != 0 || sb.st_dev != tr.dev || sb.st_ino != tr.ino) {
        untrack(fd);
        return false;
    }
    vpath = tr.vpath;
    return true;
}

// Reads the bed's copy of the directory whole and puts it in the order the emulated file
// system lists it: sysfs hash order when the bed asks for it, else by name.
void load_listing(DIR* d, bool hash_order) {
    static const auto real_readdir64 = next_fn<struct dirent64* (*)(DIR*)>("readdir64");
    if (d == nullptr || real_readdir64 == nullptr) return;
    DirList l;
    int saved = errno;
    while (struct dirent64* e = real_readdir64(d)) l.ents.push_back(*e);
    errno = saved;
    if (hash_order)
        std::sort(l.ents.begin(), l.ents.end(), [](const struct dirent64& a, const struct dirent64& b) {
            return kvosim::kernfs_before(a.d_name, b.d_name);
        });
    else
        std::sort(l.ents.begin(), l.ents.end(),
                  [](const struct dirent64& a, const struct dirent64& b) { return strcmp(a.d_name, b.d_name) < 0; });
    Tables& t = tables();
    std::lock_guard<std::mutex> g(t.mu);
    t.dirs[d] = std::move(l);
}

struct dirent64* next_sorted(DIR* d, bool& known) {
    Tables& t = tables();
    std::lock_guard<std::mutex> g(t.mu);
    auto it = t.dirs.find(d);
    known = it != t.dirs.end();
    if (!known || it->second.pos >= it->second.ents.size()) return nullptr;
    return &it->second.ents[it->second.pos++];
}

int refuse(int e) {
    errno = e;
    return -1;
}

// An emulated SCSI node is a plain file in the bed; stat shows the device it stands for.
template <class Stat>
int as_node(int rc, const Route& r, Stat* sb) {
    mode_t type;
    dev_t rdev;
    if (rc == 0 && r.how == How::mapped && sb != nullptr && (sb->st_mode & S_IFMT) == S_IFREG &&
        kvosim::node_identity(r.vpath, type, rdev)) {
        sb->st_mode = type | 0660;
        sb->st_rdev = rdev;
        sb->st_size = 0;
    }
    return rc;
}

int as_node_x(int rc, const Route& r, struct statx* sb) {
    mode_t type;
    dev_t rdev;
    if (rc == 0 && r.how == How::mapped && sb != nullptr && S_ISREG(sb->stx_mode) &&
        kvosim::node_identity(r.vpath, type, rdev)) {
        sb->stx_mode = static_cast<uint16_t>(type | 0660);
        sb->stx_rdev_major = major(rdev);
        sb->stx_rdev_minor = minor(rdev);
        sb->stx_size = 0;
    }
    return rc;
}

// /dev of a process on a bed lists the bed's nodes in place of the machine's under the
// emulated names (/dev/sd*, /dev/sg*, /dev/kvo, ...), so tools that look a device number up
// in /dev find the emulated node.
void load_dev_listing(DIR* d) {
    static const auto real_readdir64 = next_fn<struct dirent64* (*)(DIR*)>("readdir64");
    if (d == nullptr || real_readdir64 == nullptr) return;
    DirList l;
    int saved = errno;
    while (struct dirent64* e = real_readdir64(d)) {
        std::string v = std::string("/dev/") + e->d_name;
        if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0 && kvosim::emulated_path(v)) continue;
        l.ents.push_back(*e);
    }
    kvosim::ensure_scsi_fs();
    const std::string bed_dev = kvosim::bed_file("/dev");
    static const auto real_opendir = next_fn<DIR* (*)(const char*)>("opendir");
    static const auto real_closedir = next_fn<int (*)(DIR*)>("closedir");
    if (DIR* b = real_opendir ? real_opendir(bed_dev.c_str()) : nullptr) {
        while (struct dirent64* e = real_readdir64(b)) {
            std::string v = std::string("/dev/") + e->d_name;
            if (!kvosim::emulated_path(v)) continue;
            struct dirent64 n = *e;
            mode_t type;
            dev_t rdev;
            if (kvosim::node_identity(v, type, rdev)) n.d_type = S_ISBLK(type) ? DT_BLK : DT_CHR;
            else if (n.d_type == DT_REG) n.d_type = DT_CHR;
            l.ents.push_back(n);
        }
        real_closedir(b);
    }
    errno = saved;
    std::sort(l.ents.begin(), l.ents.end(),
              [](const struct dirent64& a, const struct dirent64& b) { return strcmp(a.d_name, b.d_name) < 0; });
    Tables& t = tables();
    std::lock_guard<std::mutex> g(t.mu);
    t.dirs[d] = std::move(l);
}

bool is_dev_dir(const char* path) {
    std::string v;
    return path != nullptr && kvosim::normalise_path(path, v) && (v == "/dev" || v == "/dev/") &&
           !kvosim::env_bed().empty();
}

// Opens an emulated path through `opener` after the fault rules allow it.
template <class Open>
int open_mapped(const Route& r, Open opener, bool writing) {
    if (r.how == How::noent) return refuse(ENOENT);
    if (int e = kvosim::open_fault(r.vpath)) return refuse(e);
    int fd = opener(r.real.c_str());
    if (fd >= 0) {
        int saved = errno;
        track(fd, r.vpath);
        note_write_open(r.vpath, writing);
        errno = saved;
    }
    return fd;
}

bool writes(int flags) { return (flags & O_ACCMODE) != O_RDONLY || (flags & O_TRUNC); }

mode_t mode_arg(int flags, va_list ap) {
    if ((flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE) return static_cast<mode_t>(va_arg(ap, int));
    return 0;
}

bool debugfs_target(const char* target) {
    std::string v;
    return target != nullptr && kvosim::normalise_path(target, v) &&
           (v == "/sys/kernel/debug" || v == "/sys/kernel/debug/");
}

// The result of realpath on an emulated path names the virtual file, not the bed's copy.
char* virtual_result(char* resolved_real, char* caller_buf) {
    if (resolved_real == nullptr) return nullptr;
    std::string v = kvosim::virtual_of(resolved_real);
    if (v.empty()) return resolved_real;
    if (caller_buf != nullptr) {
        snprintf(caller_buf, PATH_MAX, "%s", v.c_str());
        return caller_buf;
    }
    free(resolved_real);
    return strdup(v.c_str());
}

// The stdio opens: the real call on the mapped path, its stream's descriptor tracked.
template <typename Fn, typename... Rest>
FILE* open_stream(Fn real, const char* path, const char* mode, Rest... rest) {
    Route r = route(path);
    if (r.how == How::pass) return real ? real(path, mode, rest...) : nullptr;
    FILE* f = nullptr;
    open_mapped(
        r,
        [&](const char* p) {
            f = real(p, mode, rest...);
            return f ? fileno(f) : -1;
        },
        strpbrk(mode, "wa+") != nullptr);
    return f;
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

// ---- open family --------------------------------------------------------------------------

int open(const char* path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    mode_t mode = mode_arg(flags, ap);
    va_end(ap);
    REAL(open, int (*)(const char*, int, ...));
    Route r = route(path);
    if (r.how == How::pass) return real ? real(path, flags, mode) : -1;
    return open_mapped(r, [&](const char* p) { return real(p, flags, mode); }, writes(flags));
}

int open64(const char* path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    mode_t mode = mode_arg(flags, ap);
    va_end(ap);
    REAL(open64, int (*)(const char*, int, ...));
    Route r = route(path);
    if (r.how == How::pass) return real ? real(path, flags, mode) : -1;
    return open_mapped(r, [&](const char* p) { return real(p, flags, mode); }, writes(flags));
}

int openat(int dirfd, const char* path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    mode_t mode = mode_arg(flags, ap);
    va_end(ap);
    REAL(openat, int (*)(int, const char*, int, ...));
    Route r = route_at(dirfd, path);
    if (r.how == How::pass) return real ? real(dirfd, path, flags, mode) : -1;
    return open_mapped(r, [&](const char* p) { return real(AT_FDCWD, p, flags, mode); }, writes(flags));
}

int openat64(int dirfd, const char* path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    mode_t mode = mode_arg(flags, ap);
    va_end(ap);
    REAL(openat64, int (*)(int, const char*, int, ...));
    Route r = route_at(dirfd, path);
    if (r.how == How::pass) return real ? real(dirfd, path, flags, mode) : -1;
    return open_mapped(r, [&](const char* p) { return real(AT_FDCWD, p, flags, mode); }, writes(flags));
}

int __open_2(const char* path, int flags) { return open(path, flags); }
int __open64_2(const char* path, int flags) { return open64(path, flags); }
int __openat_2(int dirfd, const char* path, int flags) { return openat(dirfd, path, flags); }
int __openat64_2(int dirfd, const char* path, int flags) { return openat64(dirfd, path, flags); }

int creat(const char* path, mode_t mode) { return open(path, O_CREAT | O_WRONLY | O_TRUNC, mode); }
int creat64(const char* path, mode_t mode) { return open64(path, O_CREAT | O_WRONLY | O_TRUNC, mode); }

FILE* fopen(const char* path, const char* mode) {
    REAL(fopen, FILE* (*)(const char*, const char*));
    return open_stream(real, path, mode);
}

FILE* fopen64(const char* path, const char* mode) {
    REAL(fopen64, FILE* (*)(const char*, const char*));
    return open_stream(real, path, mode);
}

FILE* freopen(const char* path, const char* mode, FILE* stream) {
    REAL(freopen, FILE* (*)(const char*, const char*, FILE*));
    return open_stream(real, path, mode, stream);
}

FILE* freopen64(const char* path, const char* mode, FILE* stream) {
    REAL(freopen64, FILE* (*)(const char*, const char*, FILE*));
    return open_stream(real, path, mode, stream);
}

int fclose(FILE* f) {
    REAL(fclose, int (*)(FILE*));
    if (f != nullptr) untrack(fileno(f));
    int rc = real ? real(f) : EOF;
    int saved = errno;
    act_on_writes();
    errno = saved;
    return rc;
}

int close(int fd) {
    REAL(close, int (*)(int));
    untrack(fd);
    int rc = real ? real(fd) : -1;
    int saved = errno;
    act_on_writes();
    errno = saved;
    return rc;
}

int dup(int fd) {
    REAL(dup, int (*)(int));
    int nfd = real ? real(fd) : -1;
    std::string v;
    if (nfd >= 0 && tracked(fd, v)) track(nfd, v);
    return nfd;
}

int dup2(int fd, int fd2) {
    REAL(dup2, int (*)(int, int));
    int nfd = real ? real(fd, fd2) : -1;
    if (nfd >= 0 && nfd != fd) {
        untrack(nfd);
        std::string v;
        if (tracked(fd, v)) track(nfd, v);
        int saved = errno;
        act_on_writes();  // the descriptor it replaced was closed
        errno = saved;
    }
    return nfd;
}

int dup3(int fd, int fd2, int flags) {
    REAL(dup3, int (*)(int, int, int));
    int nfd = real ? real(fd, fd2, flags) : -1;
    if (nfd >= 0) {
        untrack(nfd);
        std::string v;
        if (tracked(fd, v)) track(nfd, v);
        int saved = errno;
        act_on_writes();
        errno = saved;
    }
    return nfd;
}

// ---- directories ------------------------------------------------------------------------

DIR* opendir(const char* path) {
    REAL(opendir, DIR* (*)(const char*));
    Route r = route(path);
    if (r.how == How::pass) {
        DIR* d = real ? real(path) : nullptr;
        if (d != nullptr && is_dev_dir(path)) load_dev_listing(d);
        return d;
    }
    if (r.how == How::noent) {
        errno = ENOENT;
        return nullptr;
    }
    bool hash_order = false;
    if (int e = kvosim::open_fault(r.vpath, &hash_order)) {
        errno = e;
        return nullptr;
    }
    DIR* d = real(r.real.c_str());
    if (d != nullptr) load_listing(d, hash_order);
    return d;
}

DIR* fdopendir(int fd) {
    REAL(fdopendir, DIR* (*)(int));
    std::string v;
    bool emulated = tracked(fd, v);
    DIR* d = real ? real(fd) : nullptr;
    if (d != nullptr && emulated) load_listing(d, kvosim::hash_listing(v));
    return d;
}

struct dirent* readdir(DIR* d) {
    REAL(readdir, struct dirent* (*)(DIR*));
    bool known = false;
    struct dirent64* e = next_sorted(d, known);
    if (known) return reinterpret_cast<struct dirent*>(e);
    return real ? real(d) : nullptr;
}

struct dirent64* readdir64(DIR* d) {
    REAL(readdir64, struct dirent64* (*)(DIR*));
    bool known = false;
    struct dirent64* e = next_sorted(d, known);
    if (known) return e;
    return real ? real(d) : nullptr;
}

void rewinddir(DIR* d) {
    REAL(rewinddir, void (*)(DIR*));
    {
        Tables& t = tables();
        std::lock_guard<std::mutex> g(t.mu);
        auto it = t.dirs.find(d);
        if (it != t.dirs.end()) {
            it->second.pos = 0;
            return;
        }
    }
    if (real) real(d);
}

int closedir(DIR* d) {
    REAL(closedir, int (*)(DIR*));
    if (d != nullptr) {
        untrack(dirfd(d));
        Tables& t = tables();
        std::lock_guard<std::mutex> g(t.mu);
        t.dirs.erase(d);
    }
    return real ? real(d) : -1;
}

int mkdir(const char* path, mode_t mode) {
    REAL(mkdir, int (*)(const char*, mode_t));
    Route r = route(path);
    if (r.how == How::pass) return real ? real(path, mode) : -1;
    if (r.how == How::noent) return refuse(ENOENT);
    return real(r.real.c_str(), mode);
}

int mkdirat(int dirfd, const char* path, mode_t mode) {
    REAL(mkdirat, int (*)(int, const char*, mode_t));
    Route r = route_at(dirfd, path);
    if (r.how == How::pass) return real ? real(dirfd, path, mode) : -1;
    if (r.how == How::noent) return refuse(ENOENT);
    return real(AT_FDCWD, r.real.c_str(), mode);
}

int rmdir(const char* path) {
    REAL(rmdir, int (*)(const char*));
    Route r = route(path);
    if (r.how == How::pass) return real ? real(path) : -1;
    if (r.how == How::noent) return refuse(ENOENT);
    return real(r.real.c_str());
}

int chdir(const char* path) {
    REAL(chdir, int (*)(const char*));
    Route r = route(path);
    if (r.how == How::pass) return real ? real(path) : -1;
    if (r.how == How::noent) return refuse(ENOENT);
    return real(r.real.c_str());
}

// ---- status -------------------------------------------------------------------------------

int stat(const char* path, struct stat* sb) {
    REAL(stat, int (*)(const char*, struct stat*));
    Route r = route(path);
    if (r.how == How::noent) return refuse(ENOENT);
    return as_node(real ? real(r.how == How::pass ? path : r.real.c_str(), sb) : -1, r, sb);
}

int lstat(const char* path, struct stat* sb) {
    REAL(lstat, int (*)(const char*, struct stat*));
    Route r = route(path);
    if (r.how == How::noent) return refuse(ENOENT);
    return as_node(real ? real(r.how == How::pass ? path : r.real.c_str(), sb) : -1, r, sb);
}

int stat64(const char* path, struct stat64* sb) {
    REAL(stat64, int (*)(const char*, struct stat64*));
    Route r = route(path);
    if (r.how == How::noent) return refuse(ENOENT);
    return as_node(real ? real(r.how == How::pass ? path : r.real.c_str(), sb) : -1, r, sb);
}

int lstat64(const char* path, struct stat64* sb) {
    REAL(lstat64, int (*)(const char*, struct stat64*));
    Route r = route(path);
    if (r.how == How::noent) return refuse(ENOENT);
    return as_node(real ? real(r.how == How::pass ? path : r.real.c_str(), sb) : -1, r, sb);
}

int fstatat(int dirfd, const char* path, struct stat* sb, int flags) {
    REAL(fstatat, int (*)(int, const char*, struct stat*, int));
    Route r = route_at(dirfd, path);
    if (r.how == How::noent) return refuse(ENOENT);
    if (r.how == How::pass) return real ? real(dirfd, path, sb, flags) : -1;
    return as_node(real(AT_FDCWD, r.real.c_str(), sb, flags), r, sb);
}

int fstatat64(int dirfd, const char* path, struct stat64* sb, int flags) {
    REAL(fstatat64, int (*)(int, const char*, struct stat64*, int));
    Route r = route_at(dirfd, path);
    if (r.how == How::noent) return refuse(ENOENT);
    if (r.how == How::pass) return real ? real(dirfd, path, sb, flags) : -1;
    return as_node(real(AT_FDCWD, r.real.c_str(), sb, flags), r, sb);
}

// Entry points of binaries built against older C libraries.
int __xstat(int, const char* path, struct stat* sb) { return stat(path, sb); }
int __lxstat(int, const char* path, struct stat* sb) { return lstat(path, sb); }
int __xstat64(int, const char* path, struct stat64* sb) { return stat64(path, sb); }
int __lxstat64(int, const char* path, struct stat64* sb) { return lstat64(path, sb); }
int __fxstatat(int, int dirfd, const char* path, struct stat* sb, int flags) {
    return fstatat(dirfd, path, sb, flags);
}
int __fxstatat64(int, int dirfd, const char* path, struct stat64* sb, int flags) {
    return fstatat64(dirfd, path, sb, flags);
}

int statx(int dirfd, const char* path, int flags, unsigned int mask, struct statx* sb) {
    REAL(statx, int (*)(int, const char*, int, unsigned int, struct statx*));
    Route r = route_at(dirfd, path);
    if (r.how == How::noent) return refuse(ENOENT);
    if (r.how == How::pass) return real ? real(dirfd, path, flags, mask, sb) : -1;
    return as_node_x(real(AT_FDCWD, r.real.c_str(), flags, mask, sb), r, sb);
}

int access(const char* path, int mode) {
    REAL(access, int (*)(const char*, int));
    Route r = route(path);
    if (r.how == How::noent) return refuse(ENOENT);
    return real ? real(r.how == How::pass ? path : r.real.c_str(), mode) : -1;
}

int faccessat(int dirfd, const char* path, int mode, int flags) {
    REAL(faccessat, int (*)(int, const char*, int, int));
    Route r = route_at(dirfd, path);
    if (r.how == How::noent) return refuse(ENOENT);
    if (r.how == How::pass) return real ? real(dirfd, path, mode, flags) : -1;
    return real(AT_FDCWD, r.real.c_str(), mode, flags);
}

int euidaccess(const char* path, int mode) {
    REAL(euidaccess, int (*)(const char*, int));
    Route r = route(path);
    if (r.how == How::noent) return refuse(ENOENT);
    return real ? real(r.how == How::pass ? path : r.real.c_str(), mode) : -1;
}

int eaccess(const char* path, int mode) { return euidaccess(path, mode); }

long pathconf(const char* path, int name) {
    REAL(pathconf, long (*)(const char*, int));
    Route r = route(path);
    if (r.how == How::noent) return refuse(ENOENT);
    return real ? real(r.how == How::pass ? path : r.real.c_str(), name) : -1;
}

int truncate(const char* path, off_t len) {
    REAL(truncate, int (*)(const char*, off_t));
    Route r = route(path);
    if (r.how == How::noent) return refuse(ENOENT);
    return real ? real(r.how == How::pass ? path : r.real.c_str(), len) : -1;
}

int chmod(const char* path, mode_t mode) {
    REAL(chmod, int (*)(const char*, mode_t));
    Route r = route(path);
    if (r.how == How::noent) return refuse(ENOENT);
    return real ? real(r.how == How::pass ? path : r.real.c_str(), mode) : -1;
}

int chown(const char* path, uid_t uid, gid_t gid) {
    REAL(chown, int (*)(const char*, uid_t, gid_t));
    Route r = route(path);
    if (r.how == How::noent) return refuse(ENOENT);
    return real ? real(r.how == How::pass ? path : r.real.c_str(), uid, gid) : -1;
}

int lchown(const char* path, uid_t uid, gid_t gid) {
    REAL(lchown, int (*)(const char*, uid_t, gid_t));
    Route r = route(path);
    if (r.how == How::noent) return refuse(ENOENT);
    return real ? real(r.how == How::pass ? path : r.real.c_str(), uid, gid) : -1;
}

int utimensat(int dirfd, const char* path, const struct timespec times[2], int flags) {
    REAL(utimensat, int (*)(int, const char*, const struct timespec*, int));
    Route r = route_at(dirfd, path);
    if (r.how == How::noent) return refuse(ENOENT);
    if (r.how == How::pass) return real ? real(dirfd, path, times, flags) : -1;
    return real(AT_FDCWD, r.real.c_str(), times, flags);
}

int mknod(const char* path, mode_t mode, dev_t dev) {
    REAL(mknod, int (*)(const char*, mode_t, dev_t));
    Route r = route(path);
    if (r.how == How::noent) return refuse(ENOENT);
    return real ? real(r.how == How::pass ? path : r.real.c_str(), mode, dev) : -1;
}

int statfs(const char* path, struct statfs* buf) {
    REAL(statfs, int (*)(const char*, struct statfs*));
    Route r = route(path);
    if (r.how == How::noent) return refuse(ENOENT);
    return real ? real(r.how == How::pass ? path : r.real.c_str(), buf) : -1;
}

int statvfs(const char* path, struct statvfs* buf) {
    REAL(statvfs, int (*)(const char*, struct statvfs*));
    Route r = route(path);
    if (r.how == How::noent) return refuse(ENOENT);
    return real ? real(r.how == How::pass ? path : r.real.c_str(), buf) : -1;
}

// scandir opens the directory inside the C library, where no preload reaches: give it the
// bed's copy. Its own comparator orders the result.
int scandir(const char* path, struct dirent*** list, int (*filter)(const struct dirent*),
            int (*compar)(const struct dirent**, const struct dirent**)) {
    REAL(scandir, int (*)(const char*, struct dirent***, int (*)(const struct dirent*),
                          int (*)(const struct dirent**, const struct dirent**)));
    Route r = route(path);
    if (r.how == How::noent) return refuse(ENOENT);
    if (r.how == How::mapped) {
        if (int e = kvosim::open_fault(r.vpath)) return refuse(e);
    }
    return real ? real(r.how == How::pass ? path : r.real.c_str(), list, filter, compar) : -1;
}

int scandir64(const char* path, struct dirent64*** list, int (*filter)(const struct dirent64*),
              int (*compar)(const struct dirent64**, const struct dirent64**)) {
    REAL(scandir64, int (*)(const char*, struct dirent64***, int (*)(const struct dirent64*),
                            int (*)(const struct dirent64**, const struct dirent64**)));
    Route r = route(path);
    if (r.how == How::noent) return refuse(ENOENT);
    if (r.how == How::mapped) {
        if (int e = kvosim::open_fault(r.vpath)) return refuse(e);
    }
    return real ? real(r.how == How::pass ? path : r.real.c_str(), list, filter, compar) : -1;
}

// ---- links and names ----------------------------------------------------------------------

int symlink(const char* target, const char* path) {
    REAL(symlink, int (*)(const char*, const char*));
    Route r = route(path);
    if (r.how == How::noent) return refuse(ENOENT);
    return real ? real(target, r.how == How::pass ? path : r.real.c_str()) : -1;
}

int link(const char* from, const char* to) {
    REAL(link, int (*)(const char*, const char*));
    Route a = route(from), b = route(to);
    if (a.how == How::noent || b.how == How::noent) return refuse(ENOENT);
    if ((a.how == How::pass) != (b.how == How::pass)) return refuse(EXDEV);
    if (real == nullptr) return -1;
    if (a.how == How::pass) return real(from, to);
    return real(a.real.c_str(), b.real.c_str());
}

ssize_t readlink(const char* path, char* buf, size_t len) {
    REAL(readlink, ssize_t (*)(const char*, char*, size_t));
    Route r = route(path);
    if (r.how == How::noent) return refuse(ENOENT);
    return real ? real(r.how == How::pass ? path : r.real.c_str(), buf, len) : -1;
}

ssize_t readlinkat(int dirfd, const char* path, char* buf, size_t len) {
    REAL(readlinkat, ssize_t (*)(int, const char*, char*, size_t));
    Route r = route_at(dirfd, path);
    if (r.how == How::noent) return refuse(ENOENT);
    if (r.how == How::pass) return real ? real(dirfd, path, buf, len) : -1;
    return real(AT_FDCWD, r.real.c_str(), buf, len);
}

ssize_t __readlink_chk(const char* path, char* buf, size_t len, size_t buflen) {
    if (len > buflen) abort();  // the fortified contract
    return readlink(path, buf, len);
}

ssize_t __readlinkat_chk(int dirfd, const char* path, char* buf, size_t len, size_t buflen) {
    if (len > buflen) abort();
    return readlinkat(dirfd, path, buf, len);
}

char* realpath(const char* path, char* resolved) {
    REAL(realpath, char* (*)(const char*, char*));
    Route r = route(path);
    if (r.how == How::noent) {
        errno = ENOENT;
        return nullptr;
    }
    if (real == nullptr) return nullptr;
    if (r.how == How::pass) return real(path, resolved);
    return virtual_result(real(r.real.c_str(), nullptr), resolved);
}

char* __realpath_chk(const char* path, char* resolved, size_t resolvedlen) {
    if (resolved != nullptr && resolvedlen < PATH_MAX) abort();
    return realpath(path, resolved);
}

char* canonicalize_file_name(const char* path) { return realpath(path, nullptr); }

int unlink(const char* path) {
    REAL(unlink, int (*)(const char*));
    Route r = route(path);
    if (r.how == How::noent) return refuse(ENOENT);
    return real ? real(r.how == How::pass ? path : r.real.c_str()) : -1;
}

int unlinkat(int dirfd, const char* path, int flags) {
    REAL(unlinkat, int (*)(int, const char*, int));
    Route r = route_at(dirfd, path);
    if (r.how == How::noent) return refuse(ENOENT);
    if (r.how == How::pass) return real ? real(dirfd, path, flags) : -1;
    return real(AT_FDCWD, r.real.c_str(), flags);
}

int remove(const char* path) {
    REAL(remove, int (*)(const char*));
    Route r = route(path);
    if (r.how == How::noent) return refuse(ENOENT);
    return real ? real(r.how == How::pass ? path : r.real.c_str()) : -1;
}

int rename(const char* from, const char* to) {
    REAL(rename, int (*)(const char*, const char*));
    Route a = route(from), b = route(to);
    if (a.how == How::noent || b.how == How::noent) return refuse(ENOENT);
    // Emulated and real files never share a file system.
    if ((a.how == How::pass) != (b.how == How::pass)) return refuse(EXDEV);
    if (real == nullptr) return -1;
    if (a.how == How::pass) return real(from, to);
    return real(a.real.c_str(), b.real.c_str());
}

int renameat(int fd1, const char* from, int fd2, const char* to) {
    REAL(renameat, int (*)(int, const char*, int, const char*));
    Route a = route_at(fd1, from), b = route_at(fd2, to);
    if (a.how == How::noent || b.how == How::noent) return refuse(ENOENT);
    if ((a.how == How::pass) != (b.how == How::pass)) return refuse(EXDEV);
    if (real == nullptr) return -1;
    if (a.how == How::pass) return real(fd1, from, fd2, to);
    return real(AT_FDCWD, a.real.c_str(), AT_FDCWD, b.real.c_str());
}

// ---- mounts and the shell -------------------------------------------------------------------

// Mounting debugfs on the emulated debug directory is accepted and does nothing; no mount
// ever reaches the real system while a bed is active.
int mount(const char* src, const char* target, const char* fstype, unsigned long flags, const void* data) {
    REAL(mount, int (*)(const char*, const char*, const char*, unsigned long, const void*));
    if (kvosim::env_bed().empty()) return real ? real(src, target, fstype, flags, data) : -1;
    if (debugfs_target(target) && fstype != nullptr && strcmp(fstype, "debugfs") == 0) return 0;
    return refuse(EPERM);
}

int umount(const char* target) {
    REAL(umount, int (*)(const char*));
    if (kvosim::env_bed().empty()) return real ? real(target) : -1;
    return refuse(EPERM);
}

int umount2(const char* target, int flags) {
    REAL(umount2, int (*)(const char*, int));
    if (kvosim::env_bed().empty()) return real ? real(target, flags) : -1;
    return refuse(EPERM);
}

// The debugfs mount the host software runs through the shell is answered here, so that no
// mount program runs at all.
int system(const char* cmd) {
    REAL(system, int (*)(const char*));
    if (cmd != nullptr && !kvosim::env_bed().empty()) {
        const char* p = cmd;
        while (*p == ' ' || *p == '\t') p++;
        if (strncmp(p, "mount ", 6) == 0 && strstr(p, "debugfs") != nullptr) return 0;
    }
    return real ? real(cmd) : -1;
}

// ---- sleeps -------------------------------------------------------------------------------
// On a bed whose "sleep" is "io_clock" a relative sleep advances the bed's I/O clock instead of
// waiting (see drv_iostats.cpp), so that a process that samples counters every few seconds
// runs at once and still sees exactly its intervals' worth of emulated I/O. Absolute sleeps
// (TIMER_ABSTIME) wait for real.

unsigned int sleep(unsigned int seconds) {
    REAL(sleep, unsigned int (*)(unsigned int));
    if (kvosim::sleep_on_io_clock(uint64_t{seconds} * 1000000000ULL)) return 0;
    return real ? real(seconds) : seconds;
}

int usleep(useconds_t usec) {
    REAL(usleep, int (*)(useconds_t));
    if (kvosim::sleep_on_io_clock(uint64_t{usec} * 1000ULL)) return 0;
    return real ? real(usec) : -1;
}

}  // extern "C"

namespace {
// A valid relative sleep the bed's clock took instead (an invalid one gets the real call's
// EINVAL; absurd lengths wait for real).
bool clock_sleep(const struct timespec* req) {
    if (req == nullptr || req->tv_sec < 0 || req->tv_sec > UINT32_MAX || req->tv_nsec < 0 ||
        req->tv_nsec >= 1000000000L)
        return false;
    return kvosim::sleep_on_io_clock(static_cast<uint64_t>(req->tv_sec) * 1000000000ULL +
                                     static_cast<uint64_t>(req->tv_nsec));
}
}  // namespace

extern "C" {

int nanosleep(const struct timespec* req, struct timespec* rem) {
    REAL(nanosleep, int (*)(const struct timespec*, struct timespec*));
    if (clock_sleep(req)) return 0;
    return real ? real(req, rem) : -1;
}

int clock_nanosleep(clockid_t clock, int flags, const struct timespec* req, struct timespec* rem) {
    REAL(clock_nanosleep, int (*)(clockid_t, int, const struct timespec*, struct timespec*));
    if (!(flags & TIMER_ABSTIME) && clock_sleep(req)) return 0;
    return real ? real(clock, flags, req, rem) : ENOSYS;
}

// ---- driver requests ----------------------------------------------------------------------

int ioctl(int fd, unsigned long request, ...) {
    va_list ap;
    va_start(ap, request);
    void* arg = va_arg(ap, void*);
    va_end(ap);
    REAL(ioctl, int (*)(int, unsigned long, ...));
    std::string v;
    if (tracked(fd, v)) {
        NodeRef n = kvosim::classify_node(v);
        n.fd = fd;
        if (n.kind != NodeKind::none) return kvosim::node_ioctl(n, request, arg);
    }
    // Nothing reaches a device or network interface of the machine while a bed is active;
    // regular files, pipes, a socket's own requests and terminals are the process's business.
    if (!kvosim::env_bed().empty()) {
        struct stat sb;
        if (fstat(fd, &sb) == 0) {
            if (S_ISSOCK(sb.st_mode) && kvosim::netdev_request(request)) return kvosim::net_ioctl(request, arg);
            if (S_ISBLK(sb.st_mode) || (S_ISCHR(sb.st_mode) && !kvosim::own_char_device(sb.st_rdev)))
                return kvosim::refuse_device_ioctl(fd, request);
        }
    }
    return real ? real(fd, request, arg) : -1;
}

}  // extern "C"
#pragma GCC visibility pop
