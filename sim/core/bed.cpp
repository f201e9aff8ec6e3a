// The bed session: locking, loading and saving state.json, the drivers' instance numbering and the log.
#include "bed.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace kvosim {

std::string state_path(const std::string& dir) { return dir + "/state.json"; }
std::string log_path(const std::string& dir) { return dir + "/log"; }
std::string root_path(const std::string& dir) { return dir + "/root"; }

const std::string& env_bed() {
    static const std::string bed = [] {
        const char* e = getenv(kBedEnv);
        if (e == nullptr || e[0] != '/') return std::string();
        std::string s = e;
        while (s.size() > 1 && s.back() == '/') s.pop_back();
        return s;
    }();
    return bed;
}

FnRef State::by_pci(const std::string& pci) {
    for (Adapter& a : host.adapters)
        for (Port& p : a.ports)
            for (Function& f : p.functions)
                if (f.pci == pci) return {&a, &p, &f};
    return {nullptr, nullptr, nullptr};
}

FnRef State::by_host(int hn) {
    for (Adapter& a : host.adapters)
        for (Port& p : a.ports)
            for (Function& f : p.functions)
                if (f.driver == Driver::kvo && f.host == hn) return {&a, &p, &f};
    return {nullptr, nullptr, nullptr};
}

FnRef State::storage_instance(int i) {
    if (i < 0 || static_cast<size_t>(i) >= inst.storage.size()) return {nullptr, nullptr, nullptr};
    FnRef r = by_pci(inst.storage[i]);
    if (r.fn != nullptr && r.fn->driver != Driver::kvo) return {nullptr, nullptr, nullptr};
    return r;
}

FnRef State::eth_instance(int i) {
    if (i < 0 || static_cast<size_t>(i) >= inst.eth.size()) return {nullptr, nullptr, nullptr};
    FnRef r = by_pci(inst.eth[i]);
    if (r.fn != nullptr && r.fn->driver != Driver::tqe) return {nullptr, nullptr, nullptr};
    return r;
}

FnRef State::by_eth_name(const std::string& ifname) {
    for (Adapter& a : host.adapters)
        for (Port& p : a.ports)
            for (Function& f : p.functions)
                if (!f.eth_name.empty() && f.eth_name == ifname) return {&a, &p, &f};
    return {nullptr, nullptr, nullptr};
}

int State::instance_of(const Function& f) const {
    const auto& v = f.driver == Driver::kvo ? inst.storage : inst.eth;
    auto it = std::find(v.begin(), v.end(), f.pci);
    return it == v.end() ? -1 : static_cast<int>(it - v.begin());
}

Adapter* State::adapter_of(const Function& f) {
    for (Adapter& a : host.adapters)
        for (Port& p : a.ports)
            for (Function& g : p.functions)
                if (&g == &f) return &a;
    return nullptr;
}

// The kernel probes PCI devices bus by bus in address order; each driver numbers the
// functions it binds in that order. Addresses are fixed-width lower-case hex (the model checks
// them), so text order is address order. A storage function whose attach did not complete
// registered no SCSI host (the nohost fault) and is no instance: the storage driver numbers
// only the functions it attached.
Instances probe_order(const Host& h) {
    auto attached = [&h](const Function& f) {
        for (const Fault& x : h.faults)
            if (x.kind == "nohost" && x.path == f.pci) return false;
        return true;
    };
    Instances in;
    for (const Adapter& a : h.adapters)
        for (const Port& p : a.ports)
            for (const Function& f : p.functions) {
                if (f.driver == Driver::kvo && !attached(f)) continue;
                (f.driver == Driver::kvo ? in.storage : in.eth).push_back(f.pci);
            }
    std::sort(in.storage.begin(), in.storage.end());
    std::sort(in.eth.begin(), in.eth.end());
    return in;
}

bool read_file(const std::string& path, std::string& out) {
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    out.clear();
    char buf[65536];
    for (;;) {
        ssize_t n = read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            int e = errno;
            close(fd);
            errno = e;
            return false;
        }
        if (n == 0) break;
        out.append(buf, static_cast<size_t>(n));
    }
    close(fd);
    return true;
}

bool write_file(const std::string& path, const std::string& data, std::string& why) {
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        why = path + ": " + strerror(errno);
        return false;
    }
    size_t off = 0;
    while (off < data.size()) {
        ssize_t n = write(fd, data.data() + off, data.size() - off);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            why = path + ": " + strerror(errno);
            close(fd);
            return false;
        }
        off += static_cast<size_t>(n);
    }
    close(fd);
    return true;
}

bool make_dirs(const std::string& path) {
    if (path.empty()) return false;
    struct stat sb;
    if (stat(path.c_str(), &sb) == 0) return S_ISDIR(sb.st_mode);
    size_t slash = path.rfind('/');
    if (slash != std::string::npos && slash > 0 && !make_dirs(path.substr(0, slash))) return false;
    return mkdir(path.c_str(), 0755) == 0 || errno == EEXIST;
}

void append_log(const std::string& dir, const std::string& line) {
    int fd = open(log_path(dir).c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) return;
    std::string l = line + "\n";
    // One write per line keeps lines of parallel writers whole.
    ssize_t n = write(fd, l.data(), l.size());
    (void)n;
    close(fd);
}

bool load_state(const std::string& dir, State& st, std::string& why) {
    std::string text;
    if (!read_file(state_path(dir), text)) {
        why = state_path(dir) + ": " + strerror(errno);
        errno = ENOENT;
        return false;
    }
    try {
        json j = json::parse(text);
        st.host = host_from_json(j);
    } catch (const std::exception& e) {
        why = state_path(dir) + ": " + e.what();
        errno = EINVAL;
        return false;
    }
    st.dir = dir;
    st.inst = probe_order(st.host);
    st.dirty = false;
    st.fs_dirty = false;
    return true;
}

bool save_state(State& st, std::string& why) {
    std::string tmp = state_path(st.dir) + ".tmp." + std::to_string(getpid());
    if (!write_file(tmp, host_to_json(st.host).dump(1) + "\n", why)) return false;
    if (rename(tmp.c_str(), state_path(st.dir).c_str()) != 0) {
        why = state_path(st.dir) + ": " + strerror(errno);
        unlink(tmp.c_str());
        return false;
    }
    st.dirty = false;
    return true;
}

namespace {

struct Signature {
    dev_t dev = 0;
    ino_t ino = 0;
    off_t size = -1;
    timespec mtim{};
    bool operator==(const Signature& o) const {
        return dev == o.dev && ino == o.ino && size == o.size && mtim.tv_sec == o.mtim.tv_sec &&
               mtim.tv_nsec == o.mtim.tv_nsec;
    }
};

bool signature(const std::string& dir, Signature& s) {
    struct stat sb;
    if (stat(state_path(dir).c_str(), &sb) != 0) return false;
    s.dev = sb.st_dev;
    s.ino = sb.st_ino;
    s.size = sb.st_size;
    s.mtim = sb.st_mtim;
    return true;
}

struct Session {
    std::recursive_mutex mu;
    int depth = 0;  // a handler that reaches the emulated host again runs on the same state
    std::string dir;
    bool loaded = false;
    Signature sig;
    State st;
    int lock_fd = -1;
    pid_t lock_pid = 0;
};

Session& session() {
    // Never destroyed: other libraries' destructors may still reach the emulated host.
    static Session* s = new Session;
    return *s;
}

// The lock descriptor is per process: a child that inherited the parent's shares its lock.
int lock_fd(Session& s) {
    if (s.lock_fd >= 0 && s.lock_pid == getpid()) return s.lock_fd;
    if (s.lock_fd >= 0) close(s.lock_fd);
    s.lock_fd = open((s.dir + "/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    s.lock_pid = getpid();
    return s.lock_fd;
}

}  // namespace

bool with_state(const std::string& dir, const std::function<void(State&)>& fn, std::string* why) {
    Session& s = session();
    std::lock_guard<std::recursive_mutex> g(s.mu);
    if (s.depth > 0 && s.loaded && s.dir == dir) {
        fn(s.st);
        return true;
    }
    if (s.dir != dir) {
        if (s.lock_fd >= 0) close(s.lock_fd);
        s.lock_fd = -1;
        s.dir = dir;
        s.loaded = false;
    }
    int lfd = lock_fd(s);
    if (lfd < 0) {
        int e = errno;
        if (why) *why = dir + "/lock: " + strerror(e);
        errno = e;
        return false;
    }
    while (flock(lfd, LOCK_EX) != 0 && errno == EINTR) {
    }
    struct Unlock {
        int fd;
        ~Unlock() { flock(fd, LOCK_UN); }
    } unlock{lfd};
    Signature now;
    if (!signature(dir, now)) {
        if (why) *why = state_path(dir) + ": " + strerror(errno);
        s.loaded = false;
        errno = ENOENT;
        return false;
    }
    if (!s.loaded || !(now == s.sig)) {
        std::string w;
        State fresh;
        if (!load_state(dir, fresh, w)) {
            int e = errno;
            if (why) *why = w;
            s.loaded = false;
            errno = e;
            return false;
        }
        s.st = std::move(fresh);
        s.sig = now;
        s.loaded = true;
    }
    s.depth++;
    try {
        fn(s.st);
    } catch (...) {
        s.depth--;
        s.loaded = false;  // the state may be half changed: reload it next time
        throw;
    }
    s.depth--;
    std::string w;
    if (s.st.fs_dirty) {
        if (!materialise(s.st, false, w)) append_log(dir, "BAD sim: " + w);
        s.st.fs_dirty = false;
    }
    if (s.st.dirty) {
        s.st.inst = probe_order(s.st.host);
        if (!save_state(s.st, w)) {
            append_log(dir, "BAD sim: " + w);
            s.loaded = false;
        } else if (!signature(dir, s.sig)) {
            s.loaded = false;
        }
    }
    return true;
}

}  // namespace kvosim
