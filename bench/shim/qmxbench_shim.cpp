// Timing shims around the emulator's preload library, built twice from this file:
//
//   LD_PRELOAD=libqmxbench_outer.so:libkvosim.so:libqmxbench_inner.so
//
// The outer shim comes first in the lookup order, so every call the program makes to a libc
// entry that the emulator wraps reaches the outer shim, which times it and passes it on to
// the emulator. The emulator reaches libc through dlsym(RTLD_NEXT), which now finds the inner
// shim: it times the real system call the emulator makes on the program's behalf (opening
// the bed's copy of a sysfs file, closing a descriptor). What is left of the outer time is
// the emulator's own: path routing, loading and saving its state, the emulated drivers'
// request handling, its log.
//
// The emulator's own file work (state.json, its lock and log) also goes through both shims:
// it re-enters the outer shim from inside a call, so it is not a frame of the program and the
// inner shim does not count it as the program's system time. A wrapper that forwards the
// program's call to another wrapper (__open_2 -> open) passes the same path pointer on; such a
// nested frame still belongs to the program.
//
// Each process appends its totals to the file named by QMXBENCH_OUT when it exits.
#undef _FORTIFY_SOURCE
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>

#include "entries.h"

namespace {

enum Entry : int {
#define QB_ENUM(R, n, ...) e_##n,
    QB_ENTRIES(QB_ENUM)
#undef QB_ENUM
    e_open,
    e_open64,
    e_openat,
    e_openat64,
    e_close,
    e_fopen,
    e_fopen64,
    e_ioctl,
    e_count
};

uint64_t now_ns() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000000000ull + static_cast<uint64_t>(ts.tv_nsec);
}

template <class F>
F next_fn(const char* name) {
    void* p = dlsym(RTLD_NEXT, name);
    if (p == nullptr) {
        static const char msg[] = "qmxbench shim: an entry point has no next definition\n";
        ssize_t n = write(2, msg, sizeof msg - 1);
        (void)n;
        abort();
    }
    return reinterpret_cast<F>(p);
}

mode_t mode_arg(int flags, va_list ap) {
    if ((flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE) return static_cast<mode_t>(va_arg(ap, int));
    return 0;
}

}  // namespace

#ifdef QMXBENCH_OUTER
// ---- outer shim: frames, totals, the configuration file transactions -------------------------

namespace {

const char* const kNames[e_count] = {
#define QB_NAME(R, n, ...) #n,
    QB_ENTRIES(QB_NAME)
#undef QB_NAME
    "open", "open64", "openat", "openat64", "close", "fopen", "fopen64", "ioctl",
};

struct Bucket {
    std::atomic<uint64_t> calls{0}, ns{0}, real_ns{0};
};

struct Totals {
    Bucket b[e_count];
    std::atomic<uint64_t> wrapped_ns{0}, real_ns{0};
    // The first call in which the emulator did file work of its own: its state was loaded then.
    std::atomic<uint64_t> first_ns{0};
    std::atomic<int> first_id{0};
    // /etc/kvo.conf: lock-open to close of the lock descriptor, and the emulator's time inside.
    std::atomic<int> conf_fd{-1};
    std::atomic<uint64_t> conf_t0{0}, conf_emu0{0};
    std::atomic<uint64_t> conf_tx{0}, conf_ns{0}, conf_emu_ns{0}, conf_reads{0}, conf_writes{0};
    // Waiting for the file's lock: from the lock descriptor's open to the flock that took the
    // lock (or to its close, when the lock was never had), and the attempts that found it busy.
    std::atomic<bool> conf_locked{false};
    std::atomic<uint64_t> conf_lock_wait_ns{0}, conf_lock_busy{0}, conf_lock_gave_up{0};
    // Holding it: from that flock to the descriptor's close.
    std::atomic<uint64_t> conf_t_locked{0}, conf_hold_ns{0};
};

Totals g_totals;
char g_out[4096];

struct Frame {
    const void* key;
    bool program;
};
constexpr int kMaxDepth = 32;
__thread int t_depth __attribute__((tls_model("initial-exec")));
__thread Frame t_frames[kMaxDepth] __attribute__((tls_model("initial-exec")));
__thread int t_top __attribute__((tls_model("initial-exec")));
__thread bool t_nested __attribute__((tls_model("initial-exec")));  // the emulator's own calls in this one

uint64_t emulator_ns() { return g_totals.wrapped_ns.load() - g_totals.real_ns.load(); }

struct Leave {
    bool top;
    int id;
    uint64_t t0;
    ~Leave() {
        t_depth--;
        if (!top) return;
        uint64_t dt = now_ns() - t0;
        g_totals.b[id].calls.fetch_add(1, std::memory_order_relaxed);
        g_totals.b[id].ns.fetch_add(dt, std::memory_order_relaxed);
        g_totals.wrapped_ns.fetch_add(dt, std::memory_order_relaxed);
        uint64_t none = 0;
        if (t_nested && g_totals.first_ns.compare_exchange_strong(none, dt)) g_totals.first_id = id;
    }
};

template <class F>
auto frame(int id, const void* key, F&& call) -> decltype(call()) {
    if (t_depth >= kMaxDepth) return call();
    const bool top = t_depth == 0;
    const Frame* up = top ? nullptr : &t_frames[t_depth - 1];
    t_frames[t_depth] = Frame{key, top || (up->program && key != nullptr && key == up->key)};
    if (!t_frames[t_depth].program) t_nested = true;
    t_depth++;
    Leave leave{top, id, 0};
    if (top) {
        t_top = id;
        t_nested = false;
        leave.t0 = now_ns();
    }
    return call();
}

void conf_opened(const char* path, int flags, int fd) {
    if (fd < 0 || path == nullptr || strcmp(path, "/etc/kvo.conf") != 0) return;
    if ((flags & O_ACCMODE) != O_RDWR) return;  // the lock descriptor opens the transaction
    g_totals.conf_t0 = now_ns();
    g_totals.conf_emu0 = emulator_ns();
    g_totals.conf_locked = false;
    g_totals.conf_fd = fd;
}

void conf_closing(int fd) {
    if (fd < 0 || fd != g_totals.conf_fd.load()) return;
    g_totals.conf_fd = -1;
    if (g_totals.conf_locked.exchange(true)) {
        g_totals.conf_hold_ns += now_ns() - g_totals.conf_t_locked.load();
    } else {
        g_totals.conf_lock_wait_ns += now_ns() - g_totals.conf_t0.load();
        g_totals.conf_lock_gave_up++;
    }
    g_totals.conf_tx++;
    g_totals.conf_ns += now_ns() - g_totals.conf_t0.load();
    g_totals.conf_emu_ns += emulator_ns() - g_totals.conf_emu0.load();
}

void conf_fopened(const char* path, const char* mode, FILE* f) {
    if (f == nullptr || path == nullptr || mode == nullptr || strcmp(path, "/etc/kvo.conf") != 0) return;
    (mode[0] == 'r' ? g_totals.conf_reads : g_totals.conf_writes)++;
}

void reset_in_child() {
    // A forked child starts from nothing: its parent reports what it did itself.
    for (Bucket& b : g_totals.b) b.calls = b.ns = b.real_ns = 0;
    g_totals.wrapped_ns = g_totals.real_ns = g_totals.first_ns = 0;
    g_totals.conf_tx = g_totals.conf_ns = g_totals.conf_emu_ns = 0;
    g_totals.conf_reads = g_totals.conf_writes = 0;
    g_totals.conf_lock_wait_ns = g_totals.conf_lock_busy = g_totals.conf_lock_gave_up = 0;
    g_totals.conf_hold_ns = 0;
    g_totals.conf_fd = -1;
}

__attribute__((constructor)) void start() {
    const char* out = getenv("QMXBENCH_OUT");
    if (out != nullptr) snprintf(g_out, sizeof g_out, "%s", out);
    pthread_atfork(nullptr, nullptr, reset_in_child);
}

__attribute__((destructor)) void finish() {
    if (g_out[0] == '\0') return;
    static char buf[16384];
    size_t n = 0;
    auto put = [&](const char* fmt, auto... v) {
        int k = snprintf(buf + n, sizeof buf - n, fmt, v...);
        if (k > 0) n = n + static_cast<size_t>(k) < sizeof buf ? n + static_cast<size_t>(k) : sizeof buf - 1;
    };
    unsigned long long calls = 0;
    for (const Bucket& b : g_totals.b) calls += b.calls.load();
    put("proc pid=%d calls=%llu wrapped_ns=%llu real_ns=%llu conf_tx=%llu conf_ns=%llu conf_emu_ns=%llu "
        "conf_reads=%llu conf_writes=%llu lock_wait_ns=%llu lock_busy=%llu lock_gave_up=%llu lock_hold_ns=%llu "
        "first_ns=%llu "
        "first_entry=%s\n",
        static_cast<int>(getpid()), calls, static_cast<unsigned long long>(g_totals.wrapped_ns.load()),
        static_cast<unsigned long long>(g_totals.real_ns.load()),
        static_cast<unsigned long long>(g_totals.conf_tx.load()),
        static_cast<unsigned long long>(g_totals.conf_ns.load()),
        static_cast<unsigned long long>(g_totals.conf_emu_ns.load()),
        static_cast<unsigned long long>(g_totals.conf_reads.load()),
        static_cast<unsigned long long>(g_totals.conf_writes.load()),
        static_cast<unsigned long long>(g_totals.conf_lock_wait_ns.load()),
        static_cast<unsigned long long>(g_totals.conf_lock_busy.load()),
        static_cast<unsigned long long>(g_totals.conf_lock_gave_up.load()),
        static_cast<unsigned long long>(g_totals.conf_hold_ns.load()),
        static_cast<unsigned long long>(g_totals.first_ns.load()), kNames[g_totals.first_id.load()]);
    for (int i = 0; i < e_count; i++)
        if (g_totals.b[i].calls.load() != 0)
            put("entry %s %llu %llu %llu\n", kNames[i], static_cast<unsigned long long>(g_totals.b[i].calls.load()),
                static_cast<unsigned long long>(g_totals.b[i].ns.load()),
                static_cast<unsigned long long>(g_totals.b[i].real_ns.load()));
    // Raw system calls: the file's own open and close would come back through the shims.
    long fd = syscall(SYS_openat, AT_FDCWD, g_out, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) return;
    ssize_t w = write(static_cast<int>(fd), buf, n);
    (void)w;
    syscall(SYS_close, fd);
}

}  // namespace

#define QB_CALL(id, key, expr) frame(id, key, [&] { return expr; })
#define QB_VIS_PUSH _Pragma("GCC visibility push(default)")
#define QB_VIS_POP _Pragma("GCC visibility pop")

QB_VIS_PUSH
extern "C" {

// What the inner shim asks: does the innermost call belong to the program, and its real time.
int qmxbench_program_frame() { return t_depth > 0 && t_depth <= kMaxDepth && t_frames[t_depth - 1].program; }

void qmxbench_add_real(uint64_t ns) {
    g_totals.b[t_top].real_ns.fetch_add(ns, std::memory_order_relaxed);
    g_totals.real_ns.fetch_add(ns, std::memory_order_relaxed);
}

// Not wrapped by the emulator, so not timed as frames: they only follow the configuration
// file. The lock is taken with non-blocking attempts and a pause after each busy one, so the
// wait shows as the time from the lock descriptor's open to the attempt that succeeds.
int flock(int fd, int op) {
    static const auto next = next_fn<int (*)(int, int)>("flock");
    int rc = next(fd, op);
    if (fd >= 0 && fd == g_totals.conf_fd.load() && (op & LOCK_EX)) {
        if (rc != 0)
            g_totals.conf_lock_busy++;
        else if (!g_totals.conf_locked.exchange(true)) {
            const uint64_t t = now_ns();
            g_totals.conf_t_locked = t;
            g_totals.conf_lock_wait_ns += t - g_totals.conf_t0.load();
        }
    }
    return rc;
}

// A rewrite through the lock descriptor ends with its fsync (a rewrite through an O_TRUNC
// fopen is counted there).
int fsync(int fd) {
    static const auto next = next_fn<int (*)(int)>("fsync");
    if (fd >= 0 && fd == g_totals.conf_fd.load()) g_totals.conf_writes++;
    return next(fd);
}

}  // extern "C"
QB_VIS_POP

#else
// ---- inner shim: the real system calls made for the program's calls ------------------------

namespace {

struct Outer {
    int (*program_frame)() = nullptr;
    void (*add_real)(uint64_t) = nullptr;
};

const Outer& outer() {
    static const Outer o = [] {
        Outer r;
        r.program_frame = reinterpret_cast<int (*)()>(dlsym(RTLD_DEFAULT, "qmxbench_program_frame"));
        r.add_real = reinterpret_cast<void (*)(uint64_t)>(dlsym(RTLD_DEFAULT, "qmxbench_add_real"));
        return r;
    }();
    return o;
}

struct Charge {
    const Outer* o;
    uint64_t t0;
    ~Charge() {
        if (o != nullptr) o->add_real(now_ns() - t0);
    }
};

template <class F>
auto frame(int, const void*, F&& call) -> decltype(call()) {
    const Outer& o = outer();
    Charge charge{nullptr, 0};
    if (o.program_frame != nullptr && o.add_real != nullptr && o.program_frame()) {
        charge.o = &o;
        charge.t0 = now_ns();
    }
    return call();
}

void conf_opened(const char*, int, int) {}
void conf_closing(int) {}
void conf_fopened(const char*, const char*, FILE*) {}

}  // namespace

#define QB_CALL(id, key, expr) frame(id, key, [&] { return expr; })
#define QB_VIS_PUSH _Pragma("GCC visibility push(default)")
#define QB_VIS_POP _Pragma("GCC visibility pop")

#endif

// ---- the entry points (both shims) -------------------------------------------------------------

QB_VIS_PUSH
extern "C" {

#define QB_DEFINE(R, n, params, args, key)                            \
    R n params {                                                      \
        static const auto next = next_fn<R(*) params>(#n);            \
        return QB_CALL(e_##n, key, next args);                        \
    }
QB_ENTRIES(QB_DEFINE)
#undef QB_DEFINE

int open(const char* p, int f, ...) {
    va_list ap;
    va_start(ap, f);
    mode_t m = mode_arg(f, ap);
    va_end(ap);
    static const auto next = next_fn<int (*)(const char*, int, ...)>("open");
    int fd = QB_CALL(e_open, p, next(p, f, m));
    conf_opened(p, f, fd);
    return fd;
}

int open64(const char* p, int f, ...) {
    va_list ap;
    va_start(ap, f);
    mode_t m = mode_arg(f, ap);
    va_end(ap);
    static const auto next = next_fn<int (*)(const char*, int, ...)>("open64");
    int fd = QB_CALL(e_open64, p, next(p, f, m));
    conf_opened(p, f, fd);
    return fd;
}

int openat(int d, const char* p, int f, ...) {
    va_list ap;
    va_start(ap, f);
    mode_t m = mode_arg(f, ap);
    va_end(ap);
    static const auto next = next_fn<int (*)(int, const char*, int, ...)>("openat");
    int fd = QB_CALL(e_openat, p, next(d, p, f, m));
    if (d == AT_FDCWD) conf_opened(p, f, fd);
    return fd;
}

int openat64(int d, const char* p, int f, ...) {
    va_list ap;
    va_start(ap, f);
    mode_t m = mode_arg(f, ap);
    va_end(ap);
    static const auto next = next_fn<int (*)(int, const char*, int, ...)>("openat64");
    int fd = QB_CALL(e_openat64, p, next(d, p, f, m));
    if (d == AT_FDCWD) conf_opened(p, f, fd);
    return fd;
}

int close(int fd) {
    static const auto next = next_fn<int (*)(int)>("close");
    conf_closing(fd);
    return QB_CALL(e_close, nullptr, next(fd));
}

FILE* fopen(const char* p, const char* m) {
    static const auto next = next_fn<FILE* (*)(const char*, const char*)>("fopen");
    FILE* f = QB_CALL(e_fopen, p, next(p, m));
    conf_fopened(p, m, f);
    return f;
}

FILE* fopen64(const char* p, const char* m) {
    static const auto next = next_fn<FILE* (*)(const char*, const char*)>("fopen64");
    FILE* f = QB_CALL(e_fopen64, p, next(p, m));
    conf_fopened(p, m, f);
    return f;
}

int ioctl(int fd, unsigned long request, ...) {
    va_list ap;
    va_start(ap, request);
    void* arg = va_arg(ap, void*);
    va_end(ap);
    static const auto next = next_fn<int (*)(int, unsigned long, ...)>("ioctl");
    return QB_CALL(e_ioctl, nullptr, next(fd, request, arg));
}

}  // extern "C"
QB_VIS_POP
