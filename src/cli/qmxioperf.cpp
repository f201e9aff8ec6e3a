// fcpim --ioperf: samples the I/O rate and throughput of one port or a range of ports, or of
// their logical or remote ports, every interval, from the driver's cumulative counters.
//
// Which objects a port record samples (-l and -r each optionally followed by a WWN):
//   neither               the port itself: the function's I/O statistics;
//   -l                    every logical port of the fabric (-l WWN: that one), each from its
//                         logical port statistics;
//   -r                    every remote port of those logical ports (of every logical port when
//                         -l names none), each from its I-T nexus statistics;
//   -r WWN                that remote port behind each of those logical ports that lists it;
//                         a logical port that does not gets an error line and no row;
//   -l WWN -r WWN         that one I-T nexus, as named (the driver judges the pair).
// A range walks every PCI function of every port from the first to the last, in adapter, port
// and function order (storage functions of a port before its Ethernet ones), each function one
// record; functions that are not storage ones are shown as skipped.
#include "qmxioperf.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <vector>

#include "qmxhandlers.h"
#include "qmxwrapper.h"

namespace {

// A decimal number that fits an int: the count and the interval alike.
bool read_number(const char* word, uint32_t* out) {
    if (!qmx_verify_num(word)) return false;
    uint64_t v = 0;
    for (const char* c = word; *c != '\0'; ++c) {
        v = v * 10 + static_cast<uint64_t>(*c - '0');
        if (v > INT_MAX) return false;
    }
    *out = static_cast<uint32_t>(v);
    return true;
}

// A WWN may follow -l or -r: the next word, when there is one and it has no '-'.
int read_optional_wwn(char** argv, int argc, int* i, wwn_t* wwn) {
    if (!qmx_has_arg(argc, *i + 1) || strchr(argv[*i + 1], '-') != nullptr) return 0;
    ++*i;
    return qmx_get_port_wwn(argv[*i], wwn) ? 0 : E_CLI_BAD_WWN;
}

// The word names a range as the identifier parser reads one: no ':', a '/' and a '-'.
bool is_range_word(const char* word) {
    return strchr(word, ':') == nullptr && strchr(word, '/') != nullptr && strchr(word, '-') != nullptr;
}

// ---- Interruption ---------------------------------------------------------------------------------
// Ctrl-C (or a SIGTERM or SIGHUP) ends the monitor between two samples: the iteration in print
// is finished, standard output flushed, the table freed, and then the signal is raised again
// with the disposition it had, so that qmx ends by it as it would at any other moment (status
// 130 in the shell for Ctrl-C) and a script that ran it stops too. A signal the process
// ignores stays ignored. Nothing else is held while the monitor runs: the configuration file
// was written and unlocked by the scan before.

volatile sig_atomic_t stop_signal = 0;

extern "C" void note_stop_signal(int sig) { stop_signal = sig; }

class stop_signals {
public:
    stop_signals() {
        stop_signal = 0;
        for (size_t i = 0; i < std::size(kSignals); ++i) {
            sigaction(kSignals[i], nullptr, &old_[i]);
            caught_[i] = old_[i].sa_handler != SIG_IGN;
            if (!caught_[i]) continue;
            struct sigaction sa {};
            sa.sa_handler = note_stop_signal;
            sigemptyset(&sa.sa_mask);
            sa.sa_flags = SA_RESTART;  // driver requests go on; only the sleep is cut short
            sigaction(kSignals[i], &sa, nullptr);
        }
    }
    ~stop_signals() {
        for (size_t i = 0; i < std::size(kSignals); ++i)
            if (caught_[i]) sigaction(kSignals[i], &old_[i], nullptr);
    }
    stop_signals(const stop_signals&) = delete;
    stop_signals& operator=(const stop_signals&) = delete;

private:
    static constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
    struct sigaction old_[std::size(kSignals)] {};
    bool caught_[std::size(kSignals)] {};
};

// Sleeps the whole interval unless a stop signal comes.
void sleep_interval(uint32_t seconds) {
    unsigned left = seconds;
    while (left > 0 && stop_signal == 0) left = sleep(left);
}

// ---- The table -------------------------------------------------------------------------------------

struct free_table {
    void operator()(qmx_fcpim_perf_attr_t* p) const { free(p); }
};
using perf_table = std::unique_ptr<qmx_fcpim_perf_attr_t[], free_table>;

void store(qmx_fcpim_perf_attr_t& rec, wwn_t lpwwn, wwn_t rpwwn) {
    qmx_fcpim_perf_t& p = rec.perf[rec.itn_count++];
    p.lpwwn = lpwwn;
    p.rpwwn = rpwwn;
}

// The functions of a range: from first to last in adapter, port and function order. A last
// function that is not found after the first is ignored and the walk goes to the end, so that
// no port after the first is lost; more than the table holds are cut.
std::vector<kvol_t*> range_walk(kvol_t* first, kvol_t* last) {
    std::vector<kvol_t*> all;
    for (int a = 1; a <= kvol_adapter_get_count(); ++a) {
        kvol_adapter_t* ad = kvol_adapter_get_by_idx(a);
        for (int p = 0; p < kvol_adapter_get_port_count(ad); ++p) {
            kvol_port_t* port = kvol_adapter_get_port(ad, p);
            if (port == nullptr) continue;
            for (kvol_t* h = kvol_port_next_ioc(port, nullptr); h != nullptr; h = kvol_port_next_ioc(port, h))
                all.push_back(h);
        }
    }
    auto from = std::find(all.begin(), all.end(), first);
    if (from == all.end()) return {first};
    auto to = std::find(from, all.end(), last);
    if (to == all.end()) {
        printf("\nIgnoring invalid last port_id\n\n");
    } else {
        ++to;
    }
    std::vector<kvol_t*> walk(from, to);
    if (walk.size() > QMX_PERF_MAX_PORTS) {
        printf("\nWarning: Port range too high, reduced based on space available.\n\n");
        walk.resize(QMX_PERF_MAX_PORTS);
    }
    return walk;
}

// Fills one port record with the objects it samples; 0, or KVO_STATUS_UNKNOWN_RWWN when a
// remote port was asked for and no logical port of the port lists it.
int fill_record(qmx_fcpim_perf_attr_t& rec, kvol_t* h, int index, const qmx_perf_opts_t& o) {
    const kvo_ioc_type_e type = kvol_ioc_get_ioc_type(h);
    if (type != KVO_IOC_TYPE_FC && type != KVO_IOC_TYPE_FCoE) {
        printf("\nInfo: ioc %d skipped\n\n", index);
        return 0;
    }
    rec.ad_id = kvol_ioc_get_adapter_id(h);
    rec.port_id = kvol_ioc_get_port_id(h);
    rec.pcifn_id = kvol_ioc_get_pcifn(h);
    if (!o.lport && !o.rport) {
        rec.kvol = h;
        rec.perf_type = QMX_PERF_PORT;
        store(rec, 0, 0);
        return 0;
    }

    std::vector<wwn_t> lports;
    if (o.lpwwn != 0) {
        lports.push_back(o.lpwwn);
    } else {
        lports.resize(QMX_PERF_MAX_LPORTS);
        uint32_t total = 0;
        if (kvol_fabric_get_lports(h, 0, lports.data(), QMX_PERF_MAX_LPORTS, &total) != KVO_STATUS_OK) {
            fprintf(stderr, "\nERROR: Could not get port details for %d/%d/%d\n\n", rec.ad_id,
                    rec.port_id, rec.pcifn_id);
            return 0;
        }
        if (total > QMX_PERF_MAX_LPORTS)
            printf("\nWarning: lport list (%d) reduced for %d/%d/%d\n", static_cast<int>(total), rec.ad_id,
                   rec.port_id, rec.pcifn_id);
        lports.resize(std::min<uint32_t>(total, QMX_PERF_MAX_LPORTS));
    }
    rec.kvol = h;
    if (!o.rport) {
        rec.perf_type = QMX_PERF_LPORT;
        for (wwn_t l : lports) store(rec, l, 0);
        return 0;
    }
    if (o.lpwwn != 0 && o.rpwwn != 0) {
        rec.perf_type = QMX_PERF_ITNIM;
        store(rec, o.lpwwn, o.rpwwn);
        return 0;
    }

    rec.perf_type = QMX_PERF_RPORT;
    std::vector<wwn_t> rports(QMX_PERF_MAX_ITNS);
    char ltext[32], rtext[32];
    for (wwn_t l : lports) {
        const uint32_t room = static_cast<uint32_t>(QMX_PERF_MAX_ITNS - rec.itn_count);
        uint32_t total = 0;
        if (kvol_lport_get_rports(h, 0, l, rports.data(), room, &total) != KVO_STATUS_OK) {
            fprintf(stderr, "ERROR: Could not get rport details of %d/%d/%d: %s\n", rec.ad_id, rec.port_id,
                    rec.pcifn_id, qmx_wwn2str(ltext, l));
            continue;
        }
        uint32_t n = total;
        if (n > room) {
            printf("\nWarning: rport list (%d) reduced for %llx\n\n", static_cast<int>(total),
                   static_cast<unsigned long long>(l));
            n = room;
        }
        if (o.rpwwn == 0) {
            for (uint32_t k = 0; k < n; ++k) store(rec, l, rports[k]);
        } else if (std::find(rports.begin(), rports.begin() + n, o.rpwwn) != rports.begin() + n) {
            store(rec, l, o.rpwwn);
        } else {
            fprintf(stderr, "ERROR: rpwwn %s:%s do not match\n", qmx_wwn2str(ltext, l),
                    qmx_wwn2str(rtext, o.rpwwn));
        }
    }
    return o.rpwwn != 0 && rec.itn_count == 0 ? KVO_STATUS_UNKNOWN_RWWN : 0;
}

// Reads the counters of every object of a record into new_ios and new_perf; 0 or the failing
// status, after its error line. A port that is not sampled has no objects.
int read_record(qmx_fcpim_perf_attr_t& rec) {
    kvol_t* h = rec.kvol;
    if (h == nullptr) return 0;
    const kvol_stats_t* table = nullptr;
    kvo_itnim_iostats_t s{};
    char ltext[32], rtext[32];
    for (int j = 0; j < rec.itn_count; ++j) {
        qmx_fcpim_perf_t& p = rec.perf[j];
        kvo_status_t st;
        switch (rec.perf_type) {
        case QMX_PERF_PORT:
            st = kvol_fcpim_get_modstats(h, 0, &table, &s);
            if (st != KVO_STATUS_OK)
                fprintf(stderr, "ERROR: Failed to get fcpim stats, error code = %d\n", static_cast<int>(st));
            break;
        case QMX_PERF_LPORT:
            st = kvol_lport_get_iostats(h, 0, p.lpwwn, &table, &s);
            if (st != KVO_STATUS_OK)
                fprintf(stderr, "ERROR: Failed to get lport %s stats, error code = %d\n",
                        qmx_wwn2str(ltext, p.lpwwn), static_cast<int>(st));
            break;
        default:
            st = kvol_itnim_get_iostats(h, 0, p.lpwwn, p.rpwwn, &table, &s);
            if (st != KVO_STATUS_OK)
                fprintf(stderr,
                        rec.perf_type == QMX_PERF_RPORT
                            ? "ERROR: Failed to get rport %s:%s IO stats, error code = %d\n"
                            : "ERROR: Failed to get itnim %s:%s stats, error code = %d\n",
                        qmx_wwn2str(ltext, p.lpwwn), qmx_wwn2str(rtext, p.rpwwn), static_cast<int>(st));
            break;
        }
        if (st != KVO_STATUS_OK) return st;
        p.new_ios = s.total_ios;
        p.new_perf = kvol_itnim_get_iothroughput(table, &s);
    }
    return 0;
}

void print_head(const qmx_perf_opts_t& o) {
    printf(" Port ");
    if (o.lport) printf("       lport WWN         ");
    if (o.rport) printf("       rport WWN         ");
    printf("   IOPs     Throughput\n");
    // One '=' more than " Port " is wide.
    const int width = 7 + (o.lport ? 25 : 0) + (o.rport ? 25 : 0) + 23;
    for (int i = 0; i < width; ++i) putchar('=');
    putchar('\n');
}

void print_rows(qmx_fcpim_perf_attr_t& rec, const qmx_perf_opts_t& o) {
    for (int j = 0; j < rec.itn_count; ++j) {
        qmx_fcpim_perf_t& p = rec.perf[j];
        printf("%2d/%d/%d  ", rec.ad_id, rec.port_id, rec.pcifn_id);
        if (o.lport) {
            qmx_print_pwwn(p.lpwwn);
            printf("  ");
        }
        if (o.rport) {
            qmx_print_pwwn(p.rpwwn);
            printf("  ");
        }
        qmx_fcpim_perf_info_t info{};
        qmx_perf_fcpim_process_data(&p, o.interval, &info);
        printf("%6u%s   ", info.iops_int, info.iops_unit);
        printf("%4u.%u%s ", info.perf_int, info.perf_exp, info.perf_unit);
        printf("\n");
    }
}

// The monitor proper, on the functions to sample; the table lives as long as this call.
int monitor(const std::vector<kvol_t*>& ports, qmx_perf_opts_t o) {
    perf_table table(
        static_cast<qmx_fcpim_perf_attr_t*>(calloc(QMX_PERF_MAX_PORTS, sizeof(qmx_fcpim_perf_attr_t))));
    if (!table) return KVO_STATUS_ENOMEM;
    const int n = static_cast<int>(ports.size());
    for (int i = 0; i < n; ++i) {
        int rc = fill_record(table[i], ports[i], i, o);
        if (rc != 0) return rc;
    }
    for (int i = 0; i < n; ++i) {
        int rc = read_record(table[i]);
        if (rc != 0) return rc;
        for (int j = 0; j < table[i].itn_count; ++j) {
            qmx_fcpim_perf_t& p = table[i].perf[j];
            p.old_ios = p.new_ios;
            p.old_perf = p.new_perf;
            p.new_ios = p.new_perf = 0;
        }
    }
    print_head(o);
    while (stop_signal == 0) {
        sleep_interval(o.interval);
        if (stop_signal != 0) break;
        for (int i = 0; i < n; ++i) {
            int rc = read_record(table[i]);
            if (rc != 0) return rc;
        }
        for (int i = 0; i < n; ++i) print_rows(table[i], o);
        if (o.count > 0) --o.count;
        printf("\n");
        if (o.count == 0) break;
    }
    return KVO_STATUS_OK;
}

}  // namespace

int qmx_perf_parse_opts(char** argv, int argc, qmx_perf_opts_t* o) {
    for (int i = QMX_ARG_1; i < argc; ++i) {
        const char* w = argv[i];
        if (strcmp(w, "-c") == 0 || strcmp(w, "-i") == 0) {
            if (!qmx_has_arg(argc, i + 1)) return E_CLI_TOO_FEW_ARGS;
            uint32_t v = 0;
            if (!read_number(argv[++i], &v)) return E_CLI_INCORRECT_CMD;
            if (w[1] == 'c') o->count = static_cast<int>(v);
            else o->interval = v;
        } else if (strcmp(w, "-l") == 0 || strcmp(w, "-r") == 0) {
            const bool l = w[1] == 'l';
            (l ? o->lport : o->rport) = true;
            int rc = read_optional_wwn(argv, argc, &i, l ? &o->lpwwn : &o->rpwwn);
            if (rc != 0) return rc;
        } else {
            return E_CLI_INCORRECT_CMD;
        }
    }
    return 0;
}

void qmx_perf_fcpim_process_data(qmx_fcpim_perf_t* perf, uint32_t interval, qmx_fcpim_perf_info_t* info) {
    // Kept on purpose: a counter that went backwards (wrapped, or cleared meanwhile) counts
    // new + 4 - old, not the modular difference.
    auto delta = [](uint32_t old_v, uint32_t new_v) -> uint32_t {
        return old_v > new_v ? new_v + 4 - old_v : new_v - old_v;
    };
    info->iops_int = delta(perf->old_ios, perf->new_ios) / interval;
    info->iops_exp = 0;
    info->iops_unit = " ";
    const uint32_t t = delta(perf->old_perf, perf->new_perf) / interval;
    if (t > 0xFFFFF) {
        info->perf_int = t >> 20;
        info->perf_exp = (t / 104857) % 10;
        info->perf_unit = " MB/s";
    } else if (t > 1023) {
        info->perf_int = t >> 10;
        info->perf_exp = (t / 102) % 10;
        info->perf_unit = " KB/s";
    } else {
        info->perf_int = t;
        info->perf_exp = 0;
        info->perf_unit = t == 0 ? "     " : " B/s ";
    }
    perf->old_ios = perf->new_ios;
    perf->old_perf = perf->new_perf;
    perf->new_ios = perf->new_perf = 0;
}

int qmx_fcpim_ioperf(char** argv, int argc, qmx_id_t* /*id*/) {
    qmx_perf_opts_t o;
    int rc = qmx_perf_parse_opts(argv, argc, &o);
    if (rc != 0) return rc;
    if (o.interval == 0) return E_CLI_INVALID_INTERVAL;
    if (o.count == 0) return KVO_STATUS_OK;

    const char* word = argv[QMX_ARG_ID];
    const bool range = is_range_word(word);
    if (range && o.lpwwn != 0) {
        fprintf(stderr, "\nERROR: lport WWN is invalid for port range option.\n\n");
        return KVO_STATUS_FAILED;
    }
    if (range && o.rpwwn != 0) {
        fprintf(stderr, "\nERROR: rport WWN is invalid for port range option.\n\n");
        return KVO_STATUS_FAILED;
    }
    qmx_id_t id{};
    rc = qmx_get_port_id(word, QMX_SIDE_FC, &id);
    if (rc != 0) return rc;
    const std::vector<kvol_t*> ports =
        range ? range_walk(id.kvol, id.range_last) : std::vector<kvol_t*>{id.kvol};

    int stopped = 0;
    {
        stop_signals guard;
        rc = monitor(ports, o);
        fflush(stdout);
        stopped = stop_signal;
    }
    if (stopped != 0) raise(stopped);
    return rc;
}
