// kvosim: creates, runs, shows and breaks emulated hosts (test beds).
//   kvosim create DIR (--preset NAME | --host FILE) [--sysfs-order sorted|hash] [--scsi emulated|kernel]
//                     [--sg-to-from refused|read]
//   kvosim run DIR -- CMD [ARG...]
//   kvosim show DIR
//   kvosim log DIR [--clear]
//   kvosim fault DIR RULE...   (see usage)
//   kvosim restart DIR         (the storage driver starts again)
//   kvosim io DIR SECONDS      (emulated I/O runs that long)
//   kvosim sleep DIR real|io_clock  (whether a sleep on the bed waits or advances the I/O clock)
//   kvosim flash DIR SERIAL TYPE INSTANCE
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "bed.h"
#include "create.h"
#include "drv.h"
#include "emu.h"
#include "flash.h"
#include "presets.h"

using namespace kvosim;

namespace {

const char usage_text[] =
    "usage: kvosim create DIR (--preset empty|fc|demo|large | --host FILE) [--sysfs-order sorted|hash]\n"
    "                     [--scsi emulated|kernel] [--sg-to-from refused|read]\n"
    "       kvosim run DIR -- CMD [ARG...]\n"
    "       kvosim show DIR\n"
    "       kvosim log DIR [--clear]\n"
    "       kvosim fault DIR request CODE (errno E | status S | reply garbage|short) [instance I] [skip N]\n"
    "                                     [times N]\n"
    "       kvosim fault DIR open NODE [errno E] [times N]\n"
    "       kvosim fault DIR missing PATH\n"
    "       kvosim fault DIR nohost PCI-ADDRESS\n"
    "       kvosim fault DIR list | clear\n"
    "       kvosim restart DIR\n"
    "       kvosim io DIR SECONDS\n"
    "       kvosim sleep DIR real|io_clock\n"
    "       kvosim flash DIR SERIAL TYPE INSTANCE\n";

int usage() {
    fputs(usage_text, stderr);
    return 2;
}

int die(const std::string& msg) {
    fprintf(stderr, "kvosim: %s\n", msg.c_str());
    return 1;
}

std::string absolute(const std::string& p) {
    if (!p.empty() && p[0] == '/') return p;
    char cwd[PATH_MAX];
    if (getcwd(cwd, sizeof cwd) == nullptr) return p;
    return std::string(cwd) + "/" + p;
}

std::string bed_arg(const char* a) {
    std::string n;
    normalise_path(absolute(a).c_str(), n);
    while (n.size() > 1 && n.back() == '/') n.pop_back();
    return n;
}

bool is_bed(const std::string& dir) { return access(state_path(dir).c_str(), F_OK) == 0; }

int cmd_create(int argc, char** argv) {
    if (argc < 5 || argc % 2 == 0) return usage();
    const std::string dir = bed_arg(argv[2]);
    const std::string opt = argv[3];
    const char* order = nullptr;
    const char* scsi = nullptr;
    const char* to_from = nullptr;
    for (int i = 5; i + 1 < argc; i += 2) {
        if (strcmp(argv[i], "--sysfs-order") == 0) order = argv[i + 1];
        else if (strcmp(argv[i], "--scsi") == 0) scsi = argv[i + 1];
        else if (strcmp(argv[i], "--sg-to-from") == 0) to_from = argv[i + 1];
        else return usage();
    }
    if (order != nullptr && strcmp(order, "sorted") != 0 && strcmp(order, "hash") != 0)
        return die(std::string("--sysfs-order: \"") + order + "\" is neither sorted nor hash");
    if (scsi != nullptr && strcmp(scsi, "emulated") != 0 && strcmp(scsi, "kernel") != 0)
        return die(std::string("--scsi: \"") + scsi + "\" is neither emulated nor kernel");
    if (to_from != nullptr && strcmp(to_from, "refused") != 0 && strcmp(to_from, "read") != 0)
        return die(std::string("--sg-to-from: \"") + to_from + "\" is neither refused nor read");
    Host host;
    json raw;
    const json* rawp = nullptr;
    if (opt == "--preset") {
        if (!make_preset(argv[4], host)) return die(std::string("unknown preset \"") + argv[4] + "\"");
    } else if (opt == "--host") {
        std::string text;
        if (!read_file(argv[4], text)) return die(std::string(argv[4]) + ": " + strerror(errno));
        try {
            raw = json::parse(text);
            host = host_from_json(raw);
        } catch (const std::exception& e) {
            return die(std::string(argv[4]) + ": " + e.what());
        }
        rawp = &raw;
    } else {
        return usage();
    }
    if (order != nullptr) host.hash_order = strcmp(order, "hash") == 0;
    if (scsi != nullptr) host.kernel_scsi = strcmp(scsi, "kernel") == 0;
    if (to_from != nullptr) host.sg_to_from_read = strcmp(to_from, "read") == 0;
    std::string why;
    if (!create_bed(dir, host, rawp, why)) return die(why);
    printf("%s\n", dir.c_str());
    return 0;
}

std::string self_dir() {
    char buf[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
    if (n <= 0) return ".";
    buf[n] = '\0';
    std::string s = buf;
    return s.substr(0, s.rfind('/'));
}

int cmd_run(int argc, char** argv) {
    if (argc < 5 || strcmp(argv[3], "--") != 0) return usage();
    const std::string dir = bed_arg(argv[2]);
    if (!is_bed(dir)) return die(dir + ": not a test bed (no state.json)");
    const char* override_lib = getenv("KVOSIM_LIB");
    const std::string lib = override_lib ? override_lib : self_dir() + "/libkvosim.so";
    if (access(lib.c_str(), R_OK) != 0) return die(lib + ": " + strerror(errno));
    std::string preload = lib;
    if (const char* old = getenv("LD_PRELOAD"); old && *old) preload += std::string(":") + old;
    std::string asan = "verify_asan_link_order=0";
    if (const char* old = getenv("ASAN_OPTIONS"); old && *old) asan = std::string(old) + ":" + asan;
    setenv("LD_PRELOAD", preload.c_str(), 1);
    setenv("ASAN_OPTIONS", asan.c_str(), 1);
    setenv(kBedEnv, dir.c_str(), 1);
    execvp(argv[4], argv + 4);
    fprintf(stderr, "kvosim: %s: %s\n", argv[4], strerror(errno));
    return 127;
}

const char* ioc_type_text(uint32_t t) { return t == 1 ? "FC" : t == 2 ? "FCoE" : "Ethernet"; }

std::string fault_text(const Fault& f) {
    std::string s = f.kind;
    if (f.kind == "request") {
        const char* n = code_name(f.code);
        char hex[16];
        snprintf(hex, sizeof hex, "0x%08X", f.code);
        s += " " + std::string(n ? n : hex);
        if (f.has_status) s += " status " + std::to_string(f.status);
        else if (!f.reply.empty()) s += " reply " + f.reply;
        else s += std::string(" errno ") + (errno_name(f.err) ? errno_name(f.err) : std::to_string(f.err).c_str());
        if (f.instance >= 0) s += " instance " + std::to_string(f.instance);
        if (f.skip > 0) s += " skip " + std::to_string(f.skip);
    } else {
        s += " " + f.path;
        if (f.kind == "open")
            s += std::string(" errno ") + (errno_name(f.err) ? errno_name(f.err) : std::to_string(f.err).c_str());
    }
    if (f.times >= 0) s += " times " + std::to_string(f.times);
    return s;
}

int cmd_show(int argc, char** argv) {
    if (argc != 3) return usage();
    const std::string dir = bed_arg(argv[2]);
    std::string why;
    bool ok = with_state(dir, [&](State& st) {
        const Host& h = st.host;
        printf("bed %s\n", dir.c_str());
        printf("drivers: kvo %s, tqe %s, /dev/kvoipfc %s; driver version %s\n", h.kvo_loaded ? "loaded" : "absent",
               h.tqe_loaded ? "loaded" : "absent", h.ipfc_node ? "present" : "absent", h.driver_ver.c_str());
        printf("sysfs lists %s\n", h.hash_order ? "in the kernel's hash order" : "sorted by name");
        if (!h.kernel_scsi)
            printf("sg %s transfers to and from the device\n", h.sg_to_from_read ? "does" : "refuses");
        for (size_t i = 0; i < h.adapters.size(); i++) {
            const Adapter& a = h.adapters[i];
            printf("adapter %zu: serial %s model %s (%s) type %s card %u device 0x%02x mode %s name \"%s\"\n", i + 1,
                   a.serial.c_str(), a.model.c_str(), a.model_descr.c_str(), a.type_text.c_str(), a.card_type,
                   a.device_id, a.mode == 1 ? "HBA" : a.mode == 2 ? "CNA" : "NIC", a.name.c_str());
            printf("  hwpath %s fw %s boot %s flash %s (%u bytes, %zu partitions)\n", a.hwpath.c_str(),
                   a.fw_ver.c_str(), a.optrom_ver.c_str(), a.flash_file.c_str(), a.flash_size, a.flash.size());
            for (const Port& p : a.ports) {
                printf("  port %d pwwn %s nwwn %s mac %s\n", p.number, wwn_str(p.pwwn).c_str(), wwn_str(p.nwwn).c_str(),
                       mac_str(p.mac).c_str());
                for (const Function& f : p.functions) {
                    int inst = st.instance_of(f);
                    std::string where = inst < 0 ? "no instance" : "instance " + std::to_string(inst);
                    if (f.driver == Driver::kvo) {
                        std::string node = f.node == "bsg"       ? "/dev/bsg/fc_host" + std::to_string(f.host)
                                           : f.node == "fc_host" ? "/dev/fc_host" + std::to_string(f.host)
                                                                 : "no node";
                        printf("    %s kvo %s host%d %s state %u node %s pwwn %s\n", f.pci.c_str(),
                               ioc_type_text(f.ioc_type), f.host, where.c_str(), f.state, node.c_str(),
                               wwn_str(f.pwwn).c_str());
                        size_t luns = 0;
                        for (const RemotePort& r : f.rports) luns += r.luns.size();
                        if (!f.rports.empty()) printf("      %zu remote ports, %zu LUNs\n", f.rports.size(), luns);
                    } else {
                        printf("    %s tqe Ethernet %s %s state %u mac %s\n", f.pci.c_str(), f.eth_name.c_str(),
                               where.c_str(), f.state, mac_str(f.current_mac).c_str());
                    }
                }
            }
        }
        printf("faults:%s\n", h.faults.empty() ? " none" : "");
        for (const Fault& f : h.faults) printf("  %s\n", fault_text(f).c_str());
    }, &why);
    return ok ? 0 : die(why);
}

int cmd_log(int argc, char** argv) {
    if (argc != 3 && !(argc == 4 && strcmp(argv[3], "--clear") == 0)) return usage();
    const std::string dir = bed_arg(argv[2]);
    if (!is_bed(dir)) return die(dir + ": not a test bed (no state.json)");
    std::string why;
    if (argc == 4) return write_file(log_path(dir), "", why) ? 0 : die(why);
    std::string text;
    if (!read_file(log_path(dir), text)) return die(log_path(dir) + ": " + strerror(errno));
    fputs(text.c_str(), stdout);
    return 0;
}

bool parse_int(const char* s, long lo, long hi, long& out) {
    char* end = nullptr;
    errno = 0;
    long v = strtol(s, &end, 0);
    if (errno != 0 || end == s || *end != '\0' || v < lo || v > hi) return false;
    out = v;
    return true;
}

// Parses the words after the rule kind into f; returns an error text or "".
std::string parse_rule(State& st, const std::vector<std::string>& w, Fault& f) {
    f.kind = w[0];
    size_t i = 1;
    if (f.kind == "request") {
        if (w.size() < 2 || !parse_code(w[1], f.code) || code_name(f.code) == nullptr)
            return "request: unknown code" + (w.size() < 2 ? std::string() : " " + w[1]);
        if (w.size() < 4) return "request: errno E, status S or reply garbage|short required";
        if (w[2] == "errno") {
            if (!parse_errno(w[3], f.err)) return "request: bad errno " + w[3];
        } else if (w[2] == "status") {
            long v;
            if (!parse_int(w[3].c_str(), 0, UINT32_MAX, v)) return "request: bad status " + w[3];
            f.has_status = true;
            f.status = static_cast<uint32_t>(v);
        } else if (w[2] == "reply") {
            if (w[3] != "garbage" && w[3] != "short") return "request: bad reply " + w[3];
            f.reply = w[3];
        } else {
            return "request: errno E, status S or reply garbage|short required";
        }
        i = 4;
    } else if (f.kind == "open" || f.kind == "missing" || f.kind == "nohost") {
        if (w.size() < 2) return f.kind + ": path required";
        f.path = w[1];
        i = 2;
        if (f.kind == "nohost") {
            FnRef r = st.by_pci(f.path);
            if (r.fn == nullptr || r.fn->driver != Driver::kvo) return "nohost: " + f.path + " is not a kvo function";
        } else {
            std::string v;
            if (!normalise_path(f.path.c_str(), v) || !emulated_path(v) || (st.host.kernel_scsi && kernel_scsi_path(v)))
                return f.kind + ": " + f.path + " is not an emulated path";
            while (v.size() > 1 && v.back() == '/') v.pop_back();
            f.path = v;
        }
        if (f.kind == "open") {
            f.err = EACCES;
            if (i < w.size() && w[i] == "errno") {
                if (i + 1 >= w.size() || !parse_errno(w[i + 1], f.err)) return "open: bad errno";
                i += 2;
            }
        }
    } else {
        return "unknown rule \"" + f.kind + "\"";
    }
    while (i < w.size()) {
        long v;
        if (w[i] == "times" && f.kind != "missing" && f.kind != "nohost" && i + 1 < w.size() &&
            parse_int(w[i + 1].c_str(), 1, INT32_MAX, v)) {
            f.times = static_cast<int>(v);
        } else if (w[i] == "instance" && f.kind == "request" && i + 1 < w.size() &&
                   parse_int(w[i + 1].c_str(), 0, 65535, v)) {
            f.instance = static_cast<int>(v);
        } else if (w[i] == "skip" && f.kind == "request" && i + 1 < w.size() &&
                   parse_int(w[i + 1].c_str(), 0, INT32_MAX, v)) {
            f.skip = static_cast<int>(v);
        } else {
            return "unexpected \"" + w[i] + "\"";
        }
        i += 2;
    }
    return "";
}

int cmd_fault(int argc, char** argv) {
    if (argc < 4) return usage();
    const std::string dir = bed_arg(argv[2]);
    std::vector<std::string> w(argv + 3, argv + argc);
    std::string why, err;
    bool ok = with_state(dir, [&](State& st) {
        if (w[0] == "list" && w.size() == 1) {
            for (const Fault& f : st.host.faults) printf("%s\n", fault_text(f).c_str());
            return;
        }
        if (w[0] == "clear" && w.size() == 1) {
            st.host.faults.clear();
            st.dirty = st.fs_dirty = true;
            return;
        }
        Fault f;
        err = parse_rule(st, w, f);
        if (!err.empty()) return;
        st.host.faults.push_back(f);
        st.dirty = true;
        if (f.kind == "missing" || f.kind == "nohost") st.fs_dirty = true;
    }, &why);
    if (!ok) return die(why);
    if (!err.empty()) {
        fprintf(stderr, "kvosim: fault %s\n", err.c_str());
        return usage();
    }
    return 0;
}

// Changes the bed's state with fn under its lock; 0, or 1 with the reason.
int change_state(const std::string& dir, const std::function<void(Host&)>& fn) {
    std::string why;
    bool ok = with_state(dir, [&](State& st) {
        fn(st.host);
        st.dirty = true;
    }, &why);
    return ok ? 0 : die(why);
}

int cmd_restart(int argc, char** argv) {
    if (argc != 3) return usage();
    return change_state(bed_arg(argv[2]), fcpim_driver_start);
}

int cmd_io(int argc, char** argv) {
    if (argc != 4) return usage();
    char* end = nullptr;
    errno = 0;
    const unsigned long long s = strtoull(argv[3], &end, 10);
    if (argv[3][0] < '0' || argv[3][0] > '9' || *end != '\0' || errno != 0 || s > 100000000ULL)
        return die(std::string("io: seconds must be a whole number up to 100000000: ") + argv[3]);
    return change_state(bed_arg(argv[2]), [s](Host& h) { advance_io_clock(h, s); });
}

int cmd_sleep(int argc, char** argv) {
    if (argc != 4) return usage();
    const std::string how = argv[3];
    if (how != "real" && how != "io_clock") return usage();
    return change_state(bed_arg(argv[2]), [&how](Host& h) { h.sleep_on_io_clock = how == "io_clock"; });
}

// Writes the bytes in use of one flash partition to standard output, exactly as the last write
// left them, so that a test can compare a partition with what it expects byte for byte.
int cmd_flash(int argc, char** argv) {
    if (argc != 6) return usage();
    const std::string dir = bed_arg(argv[2]);
    if (!is_bed(dir)) return die(dir + ": not a test bed (no state.json)");
    long type = 0, instance = 0;
    if (!parse_int(argv[4], 0, UINT32_MAX, type) || !parse_int(argv[5], 0, UINT16_MAX, instance))
        return usage();
    std::string err;
    std::vector<uint8_t> bytes;
    bool ok = with_state(dir, [&](State& st) {
        for (Adapter& a : st.host.adapters) {
            if (a.serial != argv[3]) continue;
            FlashPart* p = flash_find(a, static_cast<uint32_t>(type), static_cast<uint32_t>(instance));
            if (p == nullptr) {
                err = "adapter " + a.serial + " has no partition of type " + argv[4] + " instance " + argv[5];
                return;
            }
            bytes.resize(p->len);
            if (flash_part_read(st.dir, a, *p, bytes.data(), bytes.size(), err) != KVO_STATUS_OK && err.empty())
                err = "partition cannot be read";
            return;
        }
        err = std::string("no adapter ") + argv[3];
    }, &err);
    if (!ok || !err.empty()) return die(err);
    return fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) return usage();
    const std::string cmd = argv[1];
    if (cmd == "create") return cmd_create(argc, argv);
    if (cmd == "run") return cmd_run(argc, argv);
    if (cmd == "show") return cmd_show(argc, argv);
    if (cmd == "log") return cmd_log(argc, argv);
    if (cmd == "fault") return cmd_fault(argc, argv);
    if (cmd == "restart") return cmd_restart(argc, argv);
    if (cmd == "io") return cmd_io(argc, argv);
    if (cmd == "sleep") return cmd_sleep(argc, argv);
    if (cmd == "flash") return cmd_flash(argc, argv);
    return usage();
}
