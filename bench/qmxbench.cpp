// qmxbench: runs the built qmx on emulated hosts of growing size and reports, per command, the
// wall time and how it splits between the program and the emulator. See bench/README.md.
//
// Every command runs N times in two shapes, interleaved so that a burst of load on the machine
// hits both alike:
//   plain         LD_PRELOAD=libkvosim.so, as `kvosim run` starts it: the wall and CPU times;
//   instrumented  the timing shims on both sides of libkvosim.so: the emulator's time inside
//                 the calls it answers, the program's system time inside them, and the
//                 /etc/kvo.conf transactions.
// A start-up baseline (qmx without arguments touches no emulated path) gives the cost of
// loading the preload library itself, which belongs to the emulator too.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "bench_util.h"

namespace fs = std::filesystem;

namespace {

using namespace bench;

// ---- options ----------------------------------------------------------------------------------

struct Options {
    std::string build;                 // the build directory (qmx, sim/, bench/)
    std::string work = "/tmp/qmxbench";  // beds and scratch files
    int reps = 7;
    int shell_lines = 16;
    std::vector<std::string> beds = {"a1", "a2", "a4", "a8", "a16", "a16r256", "large"};
    std::string markdown;  // also write the report here
    std::string csv;       // one line per run
    bool keep = false;     // keep the beds afterwards
};

void usage() {
    fprintf(stderr,
            "usage: qmxbench [--build DIR] [--work DIR] [--reps N] [--shell-lines N]\n"
            "                [--beds a1,a2,a4,a8,a16,a16r256,large] [--markdown FILE] [--csv FILE] [--keep]\n"
            "  aN       N adapters (half FC HBAs, half CNAs), 8 PCI functions each, no remote ports\n"
            "  a16rN    16 adapters with N remote ports (4 LUNs each) spread over the FC functions\n"
            "  large    the emulator's large preset\n");
    exit(2);
}

std::vector<std::string> split(const std::string& s, char sep) {
    std::vector<std::string> out;
    std::stringstream ss(s);
    for (std::string item; std::getline(ss, item, sep);)
        if (!item.empty()) out.push_back(item);
    return out;
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
        if (a == "--build") o.build = value();
        else if (a == "--work") o.work = value();
        else if (a == "--reps") o.reps = std::max(1, atoi(value().c_str()));
        else if (a == "--shell-lines") o.shell_lines = std::max(1, atoi(value().c_str()));
        else if (a == "--beds") o.beds = split(value(), ',');
        else if (a == "--markdown") o.markdown = value();
        else if (a == "--csv") o.csv = value();
        else if (a == "--keep") o.keep = true;
        else usage();
    }
    return o;
}

// ---- host descriptions ------------------------------------------------------------------------

struct BedPlan {
    std::string name;
    int adapters = 0;     // 0: the large preset
    int rports = 0;       // remote ports in all, spread over the FC functions
    int functions = 0;    // PCI functions
    int total_rports = 0;
    int total_luns = 0;
};

bool bed_plan(const std::string& name, BedPlan& s) {
    s = BedPlan();
    s.name = name;
    if (name == "large") {
        s.functions = 128;
        s.total_rports = 1024;
        s.total_luns = 4096;
        s.adapters = 16;
        return true;
    }
    int n = 0, r = 0;
    if (sscanf(name.c_str(), "a%dr%d", &n, &r) == 2 || sscanf(name.c_str(), "a%d", &n) == 1) {
        if (n < 1 || n > 16 || r < 0) return false;
        s.adapters = n;
        s.rports = r;
        s.functions = 8 * n;
        return true;
    }
    return false;
}

std::string hex2(unsigned v) {
    char b[8];
    snprintf(b, sizeof b, "%02x", v & 0xFF);
    return b;
}

// n adapters shaped like the large preset's: two ports of four functions each; odd adapters are
// CNAs (two FCoE and two Ethernet functions a port). Remote ports go round the FC functions.
std::string host_json(BedPlan& s) {
    struct FnRef {
        unsigned ad, fn;
    };
    std::vector<FnRef> fc_fns;
    for (unsigned ad = 0; ad < static_cast<unsigned>(s.adapters); ad++)
        if (ad % 2 == 0)
            for (unsigned fn = 0; fn < 8; fn++) fc_fns.push_back({ad, fn});
    std::map<std::pair<unsigned, unsigned>, int> rports_of;
    for (int i = 0; i < s.rports && !fc_fns.empty(); i++) {
        const FnRef& f = fc_fns[static_cast<size_t>(i) % fc_fns.size()];
        rports_of[{f.ad, f.fn}]++;
    }
    std::ostringstream o;
    o << "{\n \"adapters\": [\n";
    int host = 1, eth = 0, rport_no = 0;
    for (unsigned ad = 0; ad < static_cast<unsigned>(s.adapters); ad++) {
        const bool cna = ad % 2 == 1;
        char serial[32];
        snprintf(serial, sizeof serial, "TVB%02uA%03u", ad, 100 + ad);
        o << (ad ? ",\n" : "") << "  {\"serial\": \"" << serial << "\", ";
        if (cna)
            o << "\"model\": \"TV-1867\", \"model_descr\": \"Torvane-1867\", \"type\": \"CNA\", "
                 "\"card_type\": 1867, \"device_id\": \"0x14\", \"mode\": \"CNA\", \"max_speed\": 10, "
                 "\"cna_capable\": true, ";
        else
            o << "\"model\": \"TV-1862\", \"model_descr\": \"Torvane-1862\", \"type\": \"FC\", "
                 "\"card_type\": 1862, \"device_id\": \"0x22\", \"mode\": \"HBA\", \"max_speed\": 16, "
                 "\"trunk_capable\": true, ";
        o << "\"ports\": [";
        const std::string a = hex2(0x20 + ad);
        for (unsigned p = 0; p < 2; p++) {
            o << (p ? ", " : "") << "\n   {\"port\": " << p << ", \"pwwn\": \"10:00:00:e1:f2:" << a << ":0" << p
              << ":00\", \"nwwn\": \"20:00:00:e1:f2:" << a << ":0" << p << ":00\", \"mac\": \"02:e1:f2:" << a
              << ":0" << p << ":00\", \"functions\": [";
            for (unsigned k = 0; k < 4; k++) {
                const unsigned fn = p * 4 + k;
                char pci[16];
                snprintf(pci, sizeof pci, "0000:%02x:00.%u", 0x20 + ad, fn);
                o << (k ? "," : "") << "\n    {\"pci\": \"" << pci << "\", ";
                if (cna && k >= 2) {
                    o << "\"driver\": \"tqe\", \"eth_name\": \"eth" << eth++ << "\", \"mac\": \"02:e1:f2:" << a
                      << ":" << hex2(fn) << ":10\"}";
                    continue;
                }
                o << "\"driver\": \"kvo\", \"ioc_type\": \"" << (cna ? "FCoE" : "FC") << "\", \"host\": " << host++
                  << ", \"node\": \"bsg\", \"pwwn\": \"10:00:00:e1:f2:" << a << ":" << hex2(fn)
                  << ":01\", \"nwwn\": \"20:00:00:e1:f2:" << a << ":" << hex2(fn) << ":01\"";
                if (cna) o << ", \"mac\": \"02:e1:f2:" << a << ":" << hex2(fn) << ":20\"";
                auto it = rports_of.find({ad, fn});
                if (it != rports_of.end()) {
                    o << ", \"rports\": [";
                    for (int t = 0; t < it->second; t++, rport_no++) {
                        char w[32];
                        snprintf(w, sizeof w, "50:0e:1f:21:00:00:%02x:%02x", (rport_no >> 8) & 0xFF, rport_no & 0xFF);
                        o << (t ? ", " : "") << "{\"pwwn\": \"" << w << "\", \"port_id\": \"0x"
                          << hex2(0x10) << hex2(static_cast<unsigned>(rport_no) >> 8) << hex2(static_cast<unsigned>(rport_no))
                          << "\", \"target\": " << t << ", \"luns\": [";
                        for (int l = 0; l < 4; l++)
                            o << (l ? ", " : "") << "{\"lun\": " << l << ", \"type\": \"disk\", \"blocks\": "
                              << (20971520ull << l) << "}";
                        o << "]}";
                        s.total_rports++;
                        s.total_luns += 4;
                    }
                    o << "]";
                }
                o << "}";
            }
            o << "]}";
        }
        o << "]}";
    }
    o << "\n ]\n}\n";
    return o.str();
}

// ---- what the shims report --------------------------------------------------------------------

struct EntryStat {
    uint64_t calls = 0, ns = 0, real_ns = 0;
};

struct ShimStats {
    int procs = 0;
    uint64_t calls = 0, wrapped_ns = 0, real_ns = 0;
    uint64_t conf_tx = 0, conf_ns = 0, conf_emu_ns = 0, conf_reads = 0, conf_writes = 0;
    uint64_t first_ns = 0;  // the call that loaded the emulator's state (first process)
    std::string first_entry;
    std::map<std::string, EntryStat> entries;
    uint64_t emulator_ns() const { return wrapped_ns > real_ns ? wrapped_ns - real_ns : 0; }
    uint64_t conf_program_ns() const { return conf_ns > conf_emu_ns ? conf_ns - conf_emu_ns : 0; }
};

ShimStats read_stats(const std::string& path) {
    ShimStats s;
    std::istringstream in(slurp(path));
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("proc ", 0) == 0) {
            s.procs++;
            s.calls += field(line, "calls");
            s.wrapped_ns += field(line, "wrapped_ns");
            s.real_ns += field(line, "real_ns");
            s.conf_tx += field(line, "conf_tx");
            s.conf_ns += field(line, "conf_ns");
            s.conf_emu_ns += field(line, "conf_emu_ns");
            s.conf_reads += field(line, "conf_reads");
            s.conf_writes += field(line, "conf_writes");
            if (s.procs == 1) {
                s.first_ns = field(line, "first_ns");
                size_t p = line.find(" first_entry=");
                s.first_entry = p == std::string::npos ? "" : line.substr(p + 13);
            }
        } else if (line.rfind("entry ", 0) == 0) {
            char name[64];
            unsigned long long c, n, r;
            if (sscanf(line.c_str(), "entry %63s %llu %llu %llu", name, &c, &n, &r) == 4) {
                EntryStat& e = s.entries[name];
                e.calls += c;
                e.ns += n;
                e.real_ns += r;
            }
        }
    }
    return s;
}

// ---- the benchmark ----------------------------------------------------------------------------

struct Command {
    std::string label;
    std::vector<std::string> args;
    std::string input;  // shell input, "" for a one-shot command
    int lines = 1;      // command lines the run carries out
};

struct Cell {  // one command on one bed
    std::string bed, command;
    int functions = 0, rports = 0, luns = 0, lines = 1;
    std::vector<double> wall, cpu, iwall, emu, conf_ms, requests, first_call;
    ShimStats last;  // the last instrumented run, for the breakdown
    int status = 0;
    std::string check;  // "" when the output looked right
    uint64_t conf_tx = 0, conf_writes = 0;
};

// The growth series: hosts that differ only in their number of adapters.
bool growth_bed(const Cell& c) { return c.rports == 0 && c.bed != "large"; }

double shim_overhead_pct(const Cell& c) { return 100.0 * (median(c.iwall) / median(c.wall) - 1.0); }

struct Bench {
    Options opt;
    std::string qmx, kvosim, lib, outer, inner;
    double startup_emu_ms = 0;  // loading the preload library
    std::vector<std::vector<std::string>> baseline_rows;
    std::vector<Cell> cells;
    std::vector<BedPlan> plans;
    std::ofstream csv;
    int bad_lines = 0, unhandled_lines = 0;

    std::vector<std::string> env_plain(const std::string& bed) const {
        return {"LD_PRELOAD=" + lib, "KVOSIM_BED=" + bed, "ASAN_OPTIONS=verify_asan_link_order=0"};
    }
    std::vector<std::string> env_instr(const std::string& bed, const std::string& out) const {
        return {"LD_PRELOAD=" + outer + ":" + lib + ":" + inner, "KVOSIM_BED=" + bed,
                "ASAN_OPTIONS=verify_asan_link_order=0", "QMXBENCH_OUT=" + out};
    }

    void locate() {
        const std::string b = opt.build;
        qmx = b + "/qmx";
        kvosim = b + "/sim/kvosim";
        lib = b + "/sim/libkvosim.so";
        outer = b + "/bench/libqmxbench_outer.so";
        inner = b + "/bench/libqmxbench_inner.so";
        for (const std::string& f : {qmx, kvosim, lib, outer, inner})
            if (access(f.c_str(), R_OK) != 0) die(f + ": " + strerror(errno) + " (build the targets first)");
    }

    // qmx without arguments prints its classes and touches no emulated path: the difference
    // with and without the preload library is the library's own start-up cost.
    void baseline(const std::string& bed) {
        const int n = std::max(30, 4 * opt.reps);
        std::vector<double> none, pre, shim, launcher, diff;
        const std::string out = opt.work + "/baseline.stats";
        for (int i = 0; i < n; i++) {
            none.push_back(ms(spawn({qmx}, {}, "", "", "").wall_ns));
            pre.push_back(ms(spawn({qmx}, env_plain(bed), "", "", "").wall_ns));
            shim.push_back(ms(spawn({qmx}, env_instr(bed, out), "", "", "").wall_ns));
            launcher.push_back(ms(spawn({kvosim, "run", bed, "--", qmx}, {}, "", "", "").wall_ns));
            diff.push_back(pre.back() - none.back());
        }
        fs::remove(out);
        // Paired differences: a burst of load on the machine hits one pair, not the estimate.
        startup_emu_ms = std::max(0.0, median(diff));
        baseline_rows = {
            {"qmx, no preload", fmt("%.2f", median(none)), fmt("%.2f", minimum(none))},
            {"qmx + libkvosim.so", fmt("%.2f", median(pre)), fmt("%.2f", minimum(pre))},
            {"qmx + timing shims + libkvosim.so", fmt("%.2f", median(shim)), fmt("%.2f", minimum(shim))},
            {"kvosim run BED -- qmx", fmt("%.2f", median(launcher)), fmt("%.2f", minimum(launcher))},
        };
    }

    std::string make_bed(BedPlan& s) {
        const std::string dir = opt.work + "/" + s.name;
        std::error_code ec;
        fs::remove_all(dir, ec);
        std::vector<std::string> argv = {kvosim, "create", dir};
        if (s.name == "large") {
            argv.insert(argv.end(), {"--preset", "large"});
        } else {
            const std::string json = opt.work + "/" + s.name + ".json";
            spit(json, host_json(s));
            argv.insert(argv.end(), {"--host", json});
        }
        const std::string err = opt.work + "/create.err";
        Run r = spawn(argv, {}, "", "", err);
        if (r.status != 0) die("kvosim create " + s.name + " failed: " + slurp(err));
        return dir;
    }

    std::vector<Command> commands() const {
        std::vector<Command> c = {
            {"adapter --list", {"adapter", "--list"}, "", 1},
            {"adapter --count", {"adapter", "--count"}, "", 1},
            {"adapter --query 1", {"adapter", "--query", "1"}, "", 1},
            {"port --list", {"port", "--list"}, "", 1},
        };
        Command sh{"shell, " + std::to_string(opt.shell_lines) + " lines", {"shell"}, "", opt.shell_lines};
        const char* cycle[] = {"adapter --list", "adapter --count", "adapter --query 1", "port --list"};
        for (int i = 0; i < opt.shell_lines; i++) sh.input += std::string(cycle[i % 4]) + "\n";
        sh.input += "exit\n";
        c.push_back(sh);
        return c;
    }

    // What the first run printed, checked loosely: a run that failed early would make every
    // number meaningless.
    std::string check(const Command& c, const BedPlan& s, const Run& r, const std::string& out) {
        const int n = s.adapters;
        if (c.label == "adapter --count") {
            if (r.status != 0 || out != std::to_string(n) + "\n") return "expected \"" + std::to_string(n) + "\"";
        } else if (c.label == "adapter --list") {
            int rows = 0;
            std::istringstream in(out);
            for (std::string l; std::getline(in, l);) {
                int ad = 0, np = 0;
                char hw[32];
                if (sscanf(l.c_str(), " %d %d %31s", &ad, &np, hw) == 3 && strchr(hw, ':') != nullptr) rows++;
            }
            if (r.status != 0 || rows != n) return "expected " + std::to_string(n) + " adapter rows";
        } else if (c.label == "adapter --query 1") {
            if (r.status != 0 || out.rfind("Adapter id 1", 0) != 0) return "expected \"Adapter id 1\"";
        } else if (!c.input.empty()) {
            // The shell prompts once per line and once more for "exit".
            int prompts = 0;
            for (size_t p = out.find("qmx> "); p != std::string::npos; p = out.find("qmx> ", p + 1)) prompts++;
            if (prompts != c.lines + 1) return "expected " + std::to_string(c.lines + 1) + " prompts";
        }
        return "";
    }

    // Driver requests the run made: lines appended to the bed's log.
    int log_lines(const std::string& bed, uintmax_t& offset) {
        const std::string path = bed + "/log";
        std::ifstream f(path, std::ios::binary);
        f.seekg(static_cast<std::streamoff>(offset));
        int lines = 0;
        for (std::string l; std::getline(f, l);) {
            lines++;
            if (l.rfind("BAD", 0) == 0) bad_lines++;
            if (l.rfind("UNHANDLED", 0) == 0) unhandled_lines++;
        }
        std::error_code ec;
        offset = fs::file_size(path, ec);
        if (ec) offset = 0;
        return lines;
    }

    void run_bed(BedPlan& s) {
        fprintf(stderr, "qmxbench: bed %s ...\n", s.name.c_str());
        const std::string bed = make_bed(s);
        uintmax_t log_off = 0;
        log_lines(bed, log_off);
        const std::string stats = opt.work + "/run.stats";
        const std::string in = opt.work + "/stdin";
        const std::string out = opt.work + "/stdout", err = opt.work + "/stderr";
        for (const Command& c : commands()) {
            Cell cell;
            cell.bed = s.name;
            cell.command = c.label;
            cell.functions = s.functions;
            cell.rports = s.total_rports;
            cell.luns = s.total_luns;
            cell.lines = c.lines;
            std::vector<std::string> argv = {qmx};
            argv.insert(argv.end(), c.args.begin(), c.args.end());
            spit(in, c.input);
            // The first run also brings /etc/kvo.conf to its steady contents.
            Run first = spawn(argv, env_plain(bed), in, out, err);
            cell.status = first.status;
            cell.check = check(c, s, first, slurp(out));
            if (!cell.check.empty())
                fprintf(stderr, "qmxbench: %s on %s: %s; stdout: %.200s stderr: %.200s\n", c.label.c_str(),
                        s.name.c_str(), cell.check.c_str(), slurp(out).c_str(), slurp(err).c_str());
            log_lines(bed, log_off);
            for (int i = 0; i < opt.reps; i++) {
                Run p = spawn(argv, env_plain(bed), in, "", "");
                const int req = log_lines(bed, log_off);
                fs::remove(stats);
                Run q = spawn(argv, env_instr(bed, stats), in, "", "");
                log_lines(bed, log_off);
                ShimStats st = read_stats(stats);
                if (st.procs == 0) die("no timing report from " + c.label + " on " + s.name);
                cell.wall.push_back(ms(p.wall_ns));
                cell.cpu.push_back(ms(p.cpu_ns));
                cell.iwall.push_back(ms(q.wall_ns));
                cell.emu.push_back(ms(st.emulator_ns()) + startup_emu_ms);
                cell.conf_ms.push_back(ms(st.conf_program_ns()));
                cell.requests.push_back(req);
                cell.first_call.push_back(ms(st.first_ns));
                cell.conf_tx = st.conf_tx;
                cell.conf_writes = st.conf_writes;
                cell.last = st;
                if (csv)
                    csv << s.name << ',' << s.functions << ',' << s.total_rports << ',' << s.total_luns << ",\""
                        << c.label << "\"," << i << ',' << ms(p.wall_ns) << ',' << ms(p.cpu_ns) << ','
                        << ms(q.wall_ns) << ',' << ms(st.wrapped_ns) << ',' << ms(st.real_ns) << ','
                        << startup_emu_ms << ',' << st.conf_tx << ',' << ms(st.conf_ns) << ','
                        << ms(st.conf_emu_ns) << ',' << req << ',' << p.status << '\n';
            }
            cells.push_back(std::move(cell));
        }
        if (!opt.keep) {
            std::error_code ec;
            fs::remove_all(bed, ec);
        }
    }

    // ---- the report ----

    static std::string table(const std::vector<std::string>& head, const std::vector<std::vector<std::string>>& rows) {
        std::string t = "|";
        for (const std::string& h : head) t += " " + h + " |";
        t += "\n|";
        // Numbers right, words left.
        for (size_t i = 0; i < head.size(); i++) {
            bool numeric = !rows.empty();
            for (const auto& r : rows)
                if (i < r.size() && !r[i].empty() && !isdigit(static_cast<unsigned char>(r[i][0])) &&
                    r[i][0] != '-' && r[i][0] != '+')
                    numeric = false;
            t += numeric ? "---:|" : "---|";
        }
        t += "\n";
        for (const auto& r : rows) {
            t += "|";
            for (const std::string& c : r) t += " " + c + " |";
            t += "\n";
        }
        return t;
    }

    std::string report() const {
        std::string r;
        char line[256];
        snprintf(line, sizeof line,
                 "Beds in %s; %d runs of each command in each shape; times in ms; emulator start-up %.2f ms "
                 "included in the emulator column.\n\n",
                 opt.work.c_str(), opt.reps, startup_emu_ms);
        r += line;

        r += "### Per command\n\n";
        std::vector<std::vector<std::string>> rows;
        for (const Cell& c : cells) {
            const double wall = median(c.wall), emu = median(c.emu);
            const double prog = wall - emu;
            rows.push_back({c.bed + (c.check.empty() ? "" : " (!)"), std::to_string(c.functions), c.command,
                            fmt("%.1f", wall), fmt("%.1f", minimum(c.wall)), fmt("%.1f", median(c.cpu)),
                            fmt("%.1f", emu), fmt("%.1f", prog), fmt("%.0f%%", 100.0 * prog / wall),
                            std::to_string(c.conf_tx) + " / " + std::to_string(c.conf_writes) + " / " +
                                fmt("%.1f", median(c.conf_ms)),
                            fmt("%.0f", median(c.requests)), fmt("%+.0f%%", shim_overhead_pct(c)),
                            std::to_string(c.status)});
        }
        r += table({"bed", "PCI fns", "command", "wall med", "wall min", "CPU", "emulator", "qmx", "qmx share",
                    "kvo.conf locks / rewrites / ms", "requests", "shims", "exit"},
                   rows);
        r += "\nShell, per line:\n\n";
        for (const Cell& c : cells)
            if (c.lines > 1) {
                snprintf(line, sizeof line, "- %s: %.1f ms (emulator %.1f, qmx %.1f)\n", c.bed.c_str(),
                         median(c.wall) / c.lines, median(c.emu) / c.lines,
                         (median(c.wall) - median(c.emu)) / c.lines);
                r += line;
            }

        r += "\n### Growth with the number of PCI functions (beds a1..a16, no remote ports)\n\n";
        std::vector<int> fns;
        for (const Cell& c : cells)
            if (growth_bed(c) && std::find(fns.begin(), fns.end(), c.functions) == fns.end()) fns.push_back(c.functions);
        std::sort(fns.begin(), fns.end());
        auto find = [&](const std::string& cmd, int f) -> const Cell* {
            for (const Cell& c : cells)
                if (growth_bed(c) && c.command == cmd && c.functions == f) return &c;
            return nullptr;
        };
        // Local exponent between the two largest beds: 1 is linear, 2 quadratic.
        auto exponent = [&](const std::string& cmd, double (*part)(const Cell&)) -> std::string {
            if (fns.size() < 2) return "-";
            const Cell* a = find(cmd, fns[fns.size() - 2]);
            const Cell* b = find(cmd, fns.back());
            if (a == nullptr || b == nullptr || part(*a) <= 0 || part(*b) <= 0) return "-";
            return fmt("%.2f", std::log(part(*b) / part(*a)) / std::log(double(fns.back()) / fns[fns.size() - 2]));
        };
        static double (*const kWall)(const Cell&) = [](const Cell& c) { return median(c.wall); };
        static double (*const kEmu)(const Cell&) = [](const Cell& c) { return median(c.emu); };
        static double (*const kConf)(const Cell&) = [](const Cell& c) { return median(c.conf_ms); };
        static double (*const kOther)(const Cell&) = [](const Cell& c) {
            return median(c.wall) - median(c.emu) - median(c.conf_ms);
        };
        rows.clear();
        for (int f : fns)
            if (const Cell* c = find("adapter --list", f))
                rows.push_back({std::to_string(f), fmt("%.1f", kWall(*c)), fmt("%.1f", kEmu(*c)),
                                fmt("%.1f", kConf(*c)), fmt("%.1f", kOther(*c)), fmt("%.3f", kWall(*c) / f),
                                fmt("%.3f", kEmu(*c) / f), fmt("%.3f", kConf(*c) / f)});
        r += "adapter --list; 'qmx other' is the wall time less the emulator and the kvo.conf transactions.\n\n";
        r += table({"PCI fns", "wall", "emulator", "kvo.conf", "qmx other", "wall/fn", "emulator/fn", "kvo.conf/fn"},
                   rows);
        rows.clear();
        std::vector<std::string> head = {"command"};
        for (int f : fns) head.push_back(std::to_string(f));
        for (const char* h : {"exp. wall", "exp. emulator", "exp. kvo.conf", "exp. qmx other"}) head.push_back(h);
        for (const Command& cmd : commands()) {
            std::vector<std::string> row = {cmd.label};
            for (int f : fns) {
                const Cell* c = find(cmd.label, f);
                row.push_back(c ? fmt("%.1f", kWall(*c)) : "-");
            }
            for (auto part : {kWall, kEmu, kConf, kOther}) row.push_back(exponent(cmd.label, part));
            rows.push_back(row);
        }
        r += "\nWall time (median, ms) by PCI functions, and the exponent k of the growth between the two largest "
             "beds (time grows as functions^k: 1 linear, 2 quadratic).\n\n";
        r += table(head, rows);

        r += "\n### Process start-up (qmx without arguments, no emulated access)\n\n";
        r += table({"process", "wall med", "wall min"}, baseline_rows);

        r += "\n### Where the emulator's time goes (largest bed, adapter --list, one instrumented run)\n\n";
        const Cell* big = nullptr;
        for (const Cell& c : cells)
            if (c.command == "adapter --list" && (big == nullptr || c.functions + c.luns > big->functions + big->luns))
                big = &c;
        if (big != nullptr) {
            std::vector<std::pair<std::string, EntryStat>> es(big->last.entries.begin(), big->last.entries.end());
            std::sort(es.begin(), es.end(), [](const auto& a, const auto& b) {
                return a.second.ns - a.second.real_ns > b.second.ns - b.second.real_ns;
            });
            rows.clear();
            for (const auto& [name, e] : es)
                rows.push_back({name, std::to_string(e.calls), fmt("%.2f", ms(e.ns)), fmt("%.2f", ms(e.real_ns)),
                                fmt("%.2f", ms(e.ns - e.real_ns))});
            r += "Bed " + big->bed + ". Time inside each wrapped libc entry the program called; 'real' is the " +
                 "system call the emulator made for it, the rest is the emulator's.\n\n";
            r += table({"entry", "calls", "in call", "real", "emulator"}, rows);
            r += "\nThe emulator's first access in a run loads state.json, whose size grows with the functions, "
                 "remote ports and LUNs of the bed:\n\n";
            rows.clear();
            for (const Cell& c : cells)
                if (c.command == "adapter --list")
                    rows.push_back({c.bed, std::to_string(c.functions), std::to_string(c.rports),
                                    std::to_string(c.luns), c.last.first_entry, fmt("%.1f", median(c.first_call)),
                                    fmt("%.1f", median(c.emu))});
            r += table({"bed", "PCI fns", "remote ports", "LUNs", "first access", "its time", "emulator in all"}, rows);
        }
        if (bad_lines || unhandled_lines) {
            snprintf(line, sizeof line, "\nEmulator log: %d BAD and %d UNHANDLED lines during the runs.\n", bad_lines,
                     unhandled_lines);
            r += line;
        }
        return r;
    }
};

}  // namespace

int main(int argc, char** argv) {
    Bench b;
    b.opt = parse(argc, argv);
    if (b.opt.build.empty()) die("cannot tell the build directory; pass --build");
    b.locate();
    std::error_code ec;
    fs::create_directories(b.opt.work, ec);
    if (ec) die(b.opt.work + ": " + ec.message());
    for (const std::string& name : b.opt.beds) {
        BedPlan s;
        if (!bed_plan(name, s)) die("unknown bed " + name);
        b.plans.push_back(s);
    }
    if (!b.opt.csv.empty()) {
        b.csv.open(b.opt.csv, std::ios::trunc);
        if (!b.csv) die(b.opt.csv + ": cannot write");
        b.csv << "bed,functions,rports,luns,command,rep,wall_ms,cpu_ms,instr_wall_ms,wrapped_ms,real_ms,"
                 "startup_ms,conf_tx,conf_ms,conf_emu_ms,requests,exit\n";
    }
    {
        BedPlan s;
        bed_plan("a1", s);
        const std::string bed = b.make_bed(s);
        b.baseline(bed);
        fs::remove_all(bed, ec);
    }
    for (BedPlan& s : b.plans) b.run_bed(s);
    const std::string rep = b.report();
    fputs(rep.c_str(), stdout);
    if (!b.opt.markdown.empty()) spit(b.opt.markdown, rep);
    return 0;
}
