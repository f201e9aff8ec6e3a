#include "harness.h"

#include <fcntl.h>
#include <cstdio>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace scen {

namespace {

struct Pipe {
    int fd[2] = {-1, -1};
    Pipe() {
        if (pipe2(fd, O_CLOEXEC) != 0) fd[0] = fd[1] = -1;
    }
    ~Pipe() {
        for (int f : fd)
            if (f >= 0) close(f);
    }
    void close_end(int i) {
        if (fd[i] >= 0) close(fd[i]);
        fd[i] = -1;
    }
};

double now_s() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

}  // namespace

Result run_process(const std::vector<std::string>& argv, const std::string& input,
                const std::vector<std::string>& env_add, int timeout_s, const Interrupt* interrupt) {
    Result r;
    if (argv.empty()) return r;
    Pipe in, out, err;
    if (in.fd[0] < 0 || out.fd[0] < 0 || err.fd[0] < 0) return r;
    std::vector<char*> args;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    pid_t pid = fork();
    if (pid < 0) return r;
    if (pid == 0) {
        dup2(in.fd[0], 0);
        dup2(out.fd[1], 1);
        dup2(err.fd[1], 2);
        for (const std::string& e : env_add) putenv(const_cast<char*>(e.c_str()));
        execv(args[0], args.data());
        dprintf(2, "cannot run %s: %s\n", args[0], strerror(errno));
        _exit(127);
    }
    in.close_end(0);
    out.close_end(1);
    err.close_end(1);
    signal(SIGPIPE, SIG_IGN);
    size_t written = 0;
    if (input.empty()) in.close_end(1);
    const double deadline = now_s() + timeout_s;
    bool killed = false;
    while (out.fd[0] >= 0 || err.fd[0] >= 0) {
        pollfd p[3];
        int n = 0;
        int oi = -1, ei = -1, ii = -1;
        if (out.fd[0] >= 0) { p[n] = {out.fd[0], POLLIN, 0}; oi = n++; }
        if (err.fd[0] >= 0) { p[n] = {err.fd[0], POLLIN, 0}; ei = n++; }
        if (in.fd[1] >= 0) { p[n] = {in.fd[1], POLLOUT, 0}; ii = n++; }
        int left_ms = static_cast<int>((deadline - now_s()) * 1000);
        if (left_ms <= 0) {
            kill(pid, SIGKILL);
            killed = true;
            break;
        }
        int pr = poll(p, static_cast<nfds_t>(n), left_ms);
        if (pr < 0 && errno == EINTR) continue;
        if (pr < 0) break;
        char buf[65536];
        auto drain = [&](int idx, Pipe& pp, std::string& dst) {
            if (idx < 0 || !(p[idx].revents & (POLLIN | POLLHUP | POLLERR))) return;
            ssize_t k = read(pp.fd[0], buf, sizeof buf);
            if (k > 0) dst.append(buf, static_cast<size_t>(k));
            else if (k == 0 || errno != EINTR) pp.close_end(0);
        };
        drain(oi, out, r.out);
        drain(ei, err, r.err);
        if (interrupt != nullptr && r.out.find(interrupt->after) != std::string::npos) {
            kill(pid, interrupt->signal);
            interrupt = nullptr;
        }
        if (ii >= 0 && (p[ii].revents & (POLLOUT | POLLERR | POLLHUP))) {
            ssize_t k = write(in.fd[1], input.data() + written, input.size() - written);
            if (k > 0) written += static_cast<size_t>(k);
            if (k < 0 && errno != EINTR) in.close_end(1);
            if (written >= input.size()) in.close_end(1);
        }
    }
    int st = 0;
    while (waitpid(pid, &st, 0) < 0 && errno == EINTR) {
    }
    if (killed) {
        r.status = -1;
        r.err += "\n[harness: killed after " + std::to_string(timeout_s) + " s]\n";
    } else if (WIFEXITED(st)) {
        r.status = WEXITSTATUS(st);
    } else if (WIFSIGNALED(st)) {
        r.status = 128 + WTERMSIG(st);
    }
    return r;
}

std::string qmx_bin() { return QMX_BIN; }
std::string kvosim_bin() { return KVOSIM_BIN; }
std::string probe_bin() {
    std::string k = KVOSIM_BIN;
    return k.substr(0, k.rfind('/')) + "/kvosim_probe";
}

std::optional<std::string> read_text(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    if (!f) return std::nullopt;
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

bool write_text(const std::string& path, const std::string& text) {
    std::ofstream f(path, std::ios::binary | std::ios::trunc);
    f << text;
    return static_cast<bool>(f);
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::string cur;
    for (char c : text) {
        if (c == '\n') {
            out.push_back(cur);
            cur.clear();
        } else {
            cur += c;
        }
    }
    if (!cur.empty()) out.push_back(cur);
    return out;
}

Bed Bed::make(const std::vector<std::string>& create_args, const std::string& host_json) {
    const char* tmp = getenv("TMPDIR");
    std::string tmpl = std::string(tmp && *tmp ? tmp : "/tmp") + "/qmx-bed-XXXXXX";
    std::vector<char> t(tmpl.begin(), tmpl.end());
    t.push_back('\0');
    if (mkdtemp(t.data()) == nullptr) {
        ADD_FAILURE() << "mkdtemp: " << strerror(errno);
        return Bed("", "");
    }
    std::string top = t.data();
    std::string dir = top + "/bed";
    std::vector<std::string> argv = {kvosim_bin(), "create", dir};
    argv.insert(argv.end(), create_args.begin(), create_args.end());
    if (!host_json.empty()) {
        write_text(top + "/host.json", host_json);
        argv.push_back(top + "/host.json");
    }
    Result r = run_process(argv);
    if (r.status != 0) ADD_FAILURE() << "kvosim create failed (" << r.status << "): " << r.err;
    return Bed(top, dir);
}

Bed Bed::preset(const std::string& name, const std::vector<std::string>& options) {
    std::vector<std::string> args = {"--preset", name};
    args.insert(args.end(), options.begin(), options.end());
    return make(args, "");
}

Bed Bed::from_json(const std::string& host_json) { return make({"--host"}, host_json); }

Bed::Bed(Bed&& o) noexcept : top_(std::move(o.top_)), dir_(std::move(o.dir_)) { o.top_.clear(); }

Bed::~Bed() {
    if (top_.empty() || getenv("KVOSIM_KEEP") != nullptr) return;
    std::error_code ec;
    std::filesystem::remove_all(top_, ec);
}

Result Bed::run(const std::vector<std::string>& argv, const std::string& input) const {
    std::vector<std::string> a = {kvosim_bin(), "run", dir_, "--"};
    a.insert(a.end(), argv.begin(), argv.end());
    return run_process(a, input);
}

Result Bed::qmx(const std::vector<std::string>& args, const std::string& input) const {
    std::vector<std::string> a = {qmx_bin()};
    a.insert(a.end(), args.begin(), args.end());
    return run(a, input);
}

Result Bed::shell(const std::string& input) const { return qmx({"shell"}, input); }

Result Bed::qmx_interrupted(const std::vector<std::string>& args, const Interrupt& interrupt) const {
    std::vector<std::string> a = {kvosim_bin(), "run", dir_, "--", qmx_bin()};
    a.insert(a.end(), args.begin(), args.end());
    return run_process(a, "", {}, 30, &interrupt);
}

Result Bed::probe(const std::vector<std::string>& args) const {
    std::vector<std::string> a = {probe_bin()};
    a.insert(a.end(), args.begin(), args.end());
    return run(a);
}

Result Bed::kvosim(const std::string& sub, const std::vector<std::string>& args) const {
    std::vector<std::string> a = {kvosim_bin(), sub, dir_};
    a.insert(a.end(), args.begin(), args.end());
    return run_process(a);
}

void Bed::fault(const std::vector<std::string>& rule) const {
    Result r = kvosim("fault", rule);
    if (r.status != 0) {
        std::string words;
        for (const std::string& w : rule) words += " " + w;
        ADD_FAILURE() << "kvosim fault" << words << " refused: " << r.err;
    }
}

std::vector<std::string> Bed::log() const { return lines(read_text(dir_ + "/log").value_or("")); }

void Bed::clear_log() const { write_text(dir_ + "/log", ""); }

std::vector<std::string> Bed::bad_lines() const {
    std::vector<std::string> bad;
    for (const std::string& l : log())
        if (l.rfind("BAD", 0) == 0 || l.rfind("UNHANDLED", 0) == 0) bad.push_back(l);
    return bad;
}

::testing::AssertionResult Bed::log_clean() const {
    std::vector<std::string> bad = bad_lines();
    if (bad.empty()) return ::testing::AssertionSuccess();
    auto r = ::testing::AssertionFailure() << "the emulated drivers saw bad or unemulated requests:";
    for (const std::string& l : bad) r << "\n  " << l;
    return r;
}

std::optional<std::string> Bed::conf() const { return read_text(root() + "/etc/kvo.conf"); }

void Bed::set_conf(const std::string& text) const {
    if (!write_text(root() + "/etc/kvo.conf", text)) ADD_FAILURE() << "cannot write kvo.conf";
}

void Bed::remove_conf() const { unlink((root() + "/etc/kvo.conf").c_str()); }

std::string Bed::state_text() const { return read_text(dir_ + "/state.json").value_or(""); }

nlohmann::json Bed::state() const {
    try {
        return nlohmann::json::parse(state_text());
    } catch (const std::exception& e) {
        ADD_FAILURE() << "state.json: " << e.what();
        return nlohmann::json();
    }
}

std::string hex(uint32_t v) {
    char b[16];
    snprintf(b, sizeof b, "0x%X", v);
    return b;
}

std::string value(const Result& r, const std::string& key) {
    for (const std::string& l : lines(r.out))
        if (l.rfind(key + "=", 0) == 0) return l.substr(key.size() + 1);
    return "";
}

// A command that succeeded with exactly this output and nothing on standard error.
::testing::AssertionResult prints(const Result& r, const std::string& out) {
    if (r.status == 0 && r.out == out && r.err.empty()) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "status " << r.status << "\nout: [" << r.out
                                         << "]\nexpected: [" << out << "]\nerr: [" << r.err << "]";
}

// A command that failed with this exit status and message and printed nothing else.
::testing::AssertionResult fails(const Result& r, int status, const std::string& err) {
    if (r.status == status && r.out.empty() && r.err == err) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "status " << r.status << " (expected " << status
                                         << ")\nout: [" << r.out << "]\nerr: [" << r.err
                                         << "]\nexpected: [" << err << "]";
}

// The lines of a text that contain `part`.
std::vector<std::string> lines_with(const std::string& text, const std::string& part) {
    std::vector<std::string> out;
    for (const std::string& l : lines(text))
        if (l.find(part) != std::string::npos) out.push_back(l);
    return out;
}

// The log lines of requests with this name.
std::vector<std::string> requests(const Bed& bed, const std::string& name) {
    std::vector<std::string> out;
    for (const std::string& l : bed.log())
        if (l.find(" " + name + " ") != std::string::npos) out.push_back(l);
    return out;
}

}  // namespace scen
