// qmxconfbench: what happens to /etc/kvo.conf on the large emulated host when qmx is killed or
// interrupted at a random moment, what a reader that does not take the lock sees meanwhile, and
// how long commands wait for the file's lock when 16 run at once. See bench/README.md.
//
// Two starting points, each a file the commands are run on:
//   steady  every adapter and port registered and every adapter named: what any command after
//           the first finds (a scan then changes nothing);
//   first   the adapter names only, no port registered yet: the first command registers all
//           128 functions, so the file really changes 128 times.
// In both, losing the 16 name lines is losing an administrator's settings.
#include <signal.h>
#include <sys/stat.h>
#include <sys/statfs.h>

#include <atomic>
#include <filesystem>
#include <random>
#include <thread>

#include "bench_util.h"

namespace fs = std::filesystem;
using namespace bench;

namespace {

struct Options {
    std::string build;  // sim/ and bench/ of this build
    std::string qmx;    // the program under test (default: BUILD/qmx)
    std::string work = "/tmp/qmxconfbench";
    std::string label;  // names the program in the report
    std::string markdown;
    int kills = 100, ints = 50, reader_runs = 20, parallel = 16, batches = 5;
    unsigned seed = 1;
};

[[noreturn]] void usage() {
    fprintf(stderr,
            "usage: qmxconfbench [--build DIR] [--qmx PATH] [--label TEXT] [--work DIR] [--markdown FILE]\n"
            "                    [--kills N] [--ints N] [--reader-runs N] [--parallel N] [--batches N] [--seed N]\n");
    exit(2);
}

Options parse(int argc, char** argv) {
    Options o;
    std::error_code ec;
    fs::path self = fs::read_symlink("/proc/self/exe", ec);
    if (!ec) o.build = self.parent_path().parent_path().string();
    for (int i = 1; i < argc; i++) {
        std::string a = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc) usage();
            return argv[++i];
        };
        auto number = [&] { return std::max(1, atoi(value().c_str())); };
        if (a == "--build") o.build = value();
        else if (a == "--qmx") o.qmx = value();
        else if (a == "--label") o.label = value();
        else if (a == "--work") o.work = value();
        else if (a == "--markdown") o.markdown = value();
        else if (a == "--kills") o.kills = number();
        else if (a == "--ints") o.ints = number();
        else if (a == "--reader-runs") o.reader_runs = number();
        else if (a == "--parallel") o.parallel = number();
        else if (a == "--batches") o.batches = number();
        else if (a == "--seed") o.seed = static_cast<unsigned>(number());
        else usage();
    }
    if (o.qmx.empty()) o.qmx = o.build + "/qmx";
    if (o.label.empty()) o.label = o.qmx;
    return o;
}

constexpr int kAdapters = 16;  // the large preset
// The writer's last section header: a file without it at its end was cut short.
const std::string kLastSection = "\n#\n# IOC intr configuration\n#\n";

int count_of(const std::string& hay, const std::string& needle) {
    int n = 0;
    for (size_t p = hay.find(needle); p != std::string::npos; p = hay.find(needle, p + 1)) n++;
    return n;
}

bool ends_with(const std::string& s, const std::string& end) {
    return s.size() >= end.size() && s.compare(s.size() - end.size(), end.size(), end) == 0;
}

// What a look at the file found.
enum State { kIntact, kEmpty, kCut, kSettingsLost, kMissing, kStates };
const char* const kStateNames[kStates] = {"intact", "empty", "cut short", "names lost", "missing"};

State classify(const std::string& path) {
    std::error_code ec;
    if (!fs::exists(path, ec)) return kMissing;
    const std::string text = slurp(path);
    if (text.empty()) return kEmpty;
    if (!ends_with(text, kLastSection)) return kCut;
    if (count_of(text, "-name = \"bench") != kAdapters) return kSettingsLost;
    return kIntact;
}

struct Start {
    const char* name;
    std::string text;
    double run_ms = 0;  // median of undisturbed runs from this start
};

struct KillResult {
    std::string start, signal;
    int runs = 0, finished = 0;  // finished: the command had ended before the signal came
    int states[kStates] = {};
};

struct ReaderResult {
    std::string start;
    int commands = 0;
    long reads = 0, empty = 0, cut = 0;
};

struct Batch {
    double wall_ms = 0, wait_total_ms = 0, wait_max_ms = 0, hold_total_ms = 0;
    uint64_t busy = 0, gave_up = 0, tx = 0, rewrites = 0;
    int failed = 0;  // commands that did not exit 0
};

struct Bench {
    Options opt;
    std::string kvosim, lib, outer, inner, bed, conf;
    std::vector<std::string> report;

    std::vector<std::string> env_plain() const { return {"LD_PRELOAD=" + lib, "KVOSIM_BED=" + bed}; }
    std::vector<std::string> env_instr(const std::string& out) const {
        return {"LD_PRELOAD=" + outer + ":" + lib + ":" + inner, "KVOSIM_BED=" + bed, "QMXBENCH_OUT=" + out};
    }

    void locate() {
        kvosim = opt.build + "/sim/kvosim";
        lib = opt.build + "/sim/libkvosim.so";
        outer = opt.build + "/bench/libqmxbench_outer.so";
        inner = opt.build + "/bench/libqmxbench_inner.so";
        for (const std::string& f : {opt.qmx, kvosim, lib, outer, inner})
            if (access(f.c_str(), R_OK) != 0) die(f + ": " + strerror(errno) + " (build the targets first)");
    }

    Run qmx(const std::vector<std::string>& args, const std::string& out = "") {
        std::vector<std::string> argv = {opt.qmx};
        argv.insert(argv.end(), args.begin(), args.end());
        return spawn(argv, env_plain(), "", out, "");
    }

    void make_bed() {
        bed = opt.work + "/large";
        conf = bed + "/root/etc/kvo.conf";
        std::error_code ec;
        fs::remove_all(bed, ec);
        fs::create_directories(opt.work, ec);
        if (spawn({kvosim, "create", bed, "--preset", "large"}, {}, "", "", "").status != 0)
            die("kvosim create failed");
    }

    // The two starting files, made by the program under test itself.
    std::vector<Start> starts() {
        const std::string out = opt.work + "/stdout";
        Run r = qmx({"adapter", "--count"}, out);
        if (r.status != 0 || slurp(out) != std::to_string(kAdapters) + "\n") die("adapter --count: " + slurp(out));
        for (int i = 1; i <= kAdapters; i++)
            if (qmx({"adapter", "--name", std::to_string(i), "bench" + std::to_string(i)}).status != 0)
                die("adapter --name failed");
        Start steady{"steady", slurp(conf)};
        if (classify(conf) != kIntact) die("the named file does not look complete");
        // Without its port lines: the names stay, the 128 functions are new again.
        Start first{"first", ""};
        std::istringstream in(steady.text);
        for (std::string line; std::getline(in, line);)
            if (line.rfind("kvo", 0) != 0 && line.rfind("tqe", 0) != 0) first.text += line + "\n";
        return {steady, first};
    }

    void put_back(const Start& s) { spit(conf, s.text); }

    double undisturbed_ms(const Start& s) {
        std::vector<double> t;
        for (int i = 0; i < 5; i++) {
            put_back(s);
            Run r = qmx({"adapter", "--list"});
            if (r.status != 0) die("adapter --list failed");
            t.push_back(ms(r.wall_ns));
        }
        return median(t);
    }

    // Sends sig at a moment drawn uniformly from an undisturbed run's length.
    KillResult kill_test(const Start& s, int sig, int runs, std::mt19937& rng) {
        KillResult k;
        k.start = s.name;
        k.signal = sig == SIGKILL ? "SIGKILL" : "SIGINT";
        std::uniform_real_distribution<double> when(0.0, s.run_ms);
        for (int i = 0; i < runs; i++) {
            put_back(s);
            const double delay_ms = when(rng);
            const uint64_t t0 = now_ns();
            pid_t pid = start({opt.qmx, "adapter", "--list"}, env_plain());
            const uint64_t ns = static_cast<uint64_t>(delay_ms * 1e6);
            timespec ts{static_cast<time_t>(ns / 1000000000ull), static_cast<long>(ns % 1000000000ull)};
            while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
            }
            kill(pid, sig);
            Run r = finish(pid, t0);
            if (r.status != 128 + sig) k.finished++;
            k.states[classify(conf)]++;
            k.runs++;
        }
        return k;
    }

    // A reader that opens and reads the whole file every millisecond without the lock, while
    // the commands run one after another.
    ReaderResult reader_test(const Start& s, bool restore_each) {
        ReaderResult res;
        res.start = s.name;
        put_back(s);
        std::atomic<bool> stop{false};
        std::atomic<long> reads{0}, empty{0}, cut{0};
        // Odd while the runner itself puts the start file back: reads overlapping that are not
        // the program's doing and are not counted.
        std::atomic<unsigned> restoring{0};
        std::thread reader([&] {
            std::string text;
            char buf[65536];
            while (!stop) {
                const unsigned gen = restoring;
                int fd = open(conf.c_str(), O_RDONLY | O_CLOEXEC);
                if (fd >= 0) {
                    text.clear();
                    for (ssize_t k; (k = read(fd, buf, sizeof buf)) > 0;) text.append(buf, static_cast<size_t>(k));
                    close(fd);
                }
                if (fd >= 0 && gen % 2 == 0 && restoring == gen) {
                    reads++;
                    if (text.empty()) empty++;
                    else if (!ends_with(text, kLastSection)) cut++;
                }
                timespec ms1{0, 1000000};
                nanosleep(&ms1, nullptr);
            }
        });
        for (int i = 0; i < opt.reader_runs; i++) {
            if (restore_each && i > 0) {
                restoring++;
                put_back(s);
                restoring++;
            }
            if (qmx({"adapter", "--list"}).status != 0) die("adapter --list failed");
            res.commands++;
        }
        stop = true;
        reader.join();
        res.reads = reads;
        res.empty = empty;
        res.cut = cut;
        return res;
    }

    // opt.parallel commands started together on the steady file, with the outer shim following
    // the lock.
    Batch batch(const Start& s) {
        Batch b;
        put_back(s);
        const std::string stats = opt.work + "/batch.stats";
        fs::remove(stats);
        const uint64_t t0 = now_ns();
        std::vector<pid_t> pids;
        for (int i = 0; i < opt.parallel; i++)
            pids.push_back(start({opt.qmx, "adapter", "--list"}, env_instr(stats)));
        for (pid_t pid : pids)
            if (finish(pid, t0).status != 0) b.failed++;
        b.wall_ms = ms(now_ns() - t0);
        std::istringstream in(slurp(stats));
        int procs = 0;
        for (std::string line; std::getline(in, line);) {
            if (line.rfind("proc ", 0) != 0) continue;
            procs++;
            const double wait = ms(field(line, "lock_wait_ns"));
            b.wait_total_ms += wait;
            b.wait_max_ms = std::max(b.wait_max_ms, wait);
            b.hold_total_ms += ms(field(line, "lock_hold_ns"));
            b.busy += field(line, "lock_busy");
            b.gave_up += field(line, "lock_gave_up");
            b.tx += field(line, "conf_tx");
            b.rewrites += field(line, "conf_writes");
        }
        if (procs != opt.parallel) die("expected a timing report from every command, got " + std::to_string(procs));
        return b;
    }

    std::string run() {
        std::string r;
        char line[512];
        make_bed();
        std::vector<Start> st = starts();
        for (Start& s : st) s.run_ms = undisturbed_ms(s);
        snprintf(line, sizeof line,
                 "Program: `%s`. Bed: large preset in %s (%s). `adapter --list` undisturbed: %.1f ms from the "
                 "steady file, %.1f ms from the first-run file (median of 5).\n\n",
                 opt.label.c_str(), opt.work.c_str(), fs_type(opt.work).c_str(), st[0].run_ms, st[1].run_ms);
        r += line;

        fprintf(stderr, "qmxconfbench: kill tests ...\n");
        std::vector<KillResult> kills;
        for (const Start& s : st) {
            std::mt19937 rng(opt.seed);  // the same moments for every program measured
            kills.push_back(kill_test(s, SIGKILL, opt.kills, rng));
            kills.push_back(kill_test(s, SIGINT, opt.ints, rng));
        }
        r += "### A signal at a random moment of `adapter --list`\n\n"
             "| start | signal | runs | ended first | empty | cut short | names lost | intact |\n"
             "|---|---|---:|---:|---:|---:|---:|---:|\n";
        for (const KillResult& k : kills) {
            snprintf(line, sizeof line, "| %s | %s | %d | %d | %d | %d | %d | %d |\n", k.start.c_str(), k.signal.c_str(),
                     k.runs, k.finished, k.states[kEmpty], k.states[kCut], k.states[kSettingsLost],
                     k.states[kIntact]);
            r += line;
        }

        fprintf(stderr, "qmxconfbench: reader without the lock ...\n");
        std::vector<ReaderResult> readers = {reader_test(st[0], false), reader_test(st[1], true)};
        r += "\n### A reader without the lock, one read a millisecond\n\n"
             "| start | commands | reads | empty | cut short |\n|---|---:|---:|---:|---:|\n";
        for (const ReaderResult& x : readers) {
            snprintf(line, sizeof line, "| %s | %d | %ld | %ld (%.1f%%) | %ld (%.1f%%) |\n", x.start.c_str(), x.commands,
                     x.reads, x.empty, 100.0 * static_cast<double>(x.empty) / static_cast<double>(std::max(1L, x.reads)),
                     x.cut, 100.0 * static_cast<double>(x.cut) / static_cast<double>(std::max(1L, x.reads)));
            r += line;
        }

        fprintf(stderr, "qmxconfbench: %d commands at once ...\n", opt.parallel);
        std::vector<Batch> batches;
        for (int i = 0; i < opt.batches; i++) batches.push_back(batch(st[0]));
        snprintf(line, sizeof line,
                 "\n### %d `adapter --list` at once, steady file, timing shims on\n\n"
                 "Lock wait: from a command's open of the lock descriptor to the attempt that takes the lock, "
                 "summed over the transactions of all %d commands (longest: the command that waited most). "
                 "Lock held: from that attempt to the descriptor's close, summed likewise.\n\n",
                 opt.parallel, opt.parallel);
        r += line;
        r += "| batch | wall ms | lock wait, all commands, ms | longest one command, ms | lock held, all commands, ms "
             "| busy attempts | gave up | locks | rewrites | failed |\n"
             "|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n";
        std::vector<double> wall, total, longest, held;
        for (size_t i = 0; i < batches.size(); i++) {
            const Batch& b = batches[i];
            wall.push_back(b.wall_ms);
            total.push_back(b.wait_total_ms);
            longest.push_back(b.wait_max_ms);
            held.push_back(b.hold_total_ms);
            snprintf(line, sizeof line, "| %zu | %.0f | %.0f | %.0f | %.1f | %llu | %llu | %llu | %llu | %d |\n", i + 1,
                     b.wall_ms, b.wait_total_ms, b.wait_max_ms, b.hold_total_ms, static_cast<unsigned long long>(b.busy),
                     static_cast<unsigned long long>(b.gave_up), static_cast<unsigned long long>(b.tx),
                     static_cast<unsigned long long>(b.rewrites), b.failed);
            r += line;
        }
        snprintf(line, sizeof line, "| median | %.0f | %.0f | %.0f | %.1f | | | | | |\n", median(wall), median(total),
                 median(longest), median(held));
        r += line;
        std::error_code ec;
        fs::remove_all(bed, ec);
        return r;
    }

    static std::string fs_type(const std::string& dir) {
        struct statfs sf {};
        if (statfs(dir.c_str(), &sf) != 0) return "?";
        switch (static_cast<unsigned long>(sf.f_type)) {
        case 0xEF53: return "ext4";
        case 0x01021994: return "tmpfs";
        case 0x794C7630: return "overlayfs";
        case 0x58465342: return "xfs";
        case 0x9123683E: return "btrfs";
        default: return "other";
        }
    }
};

}  // namespace

int main(int argc, char** argv) {
    Bench b;
    b.opt = parse(argc, argv);
    b.locate();
    const std::string rep = b.run();
    fputs(rep.c_str(), stdout);
    if (!b.opt.markdown.empty()) spit(b.opt.markdown, rep);
    return 0;
}
