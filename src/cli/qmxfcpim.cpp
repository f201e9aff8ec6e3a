// The fcpim class: I-T nexus attributes and statistics, the path time-out, the I/O throttle and
// the target reset list of a storage function.
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "kvol.h"
#include "qmx.h"
#include "qmxhandlers.h"
#include "qmxwrapper.h"

namespace {

const qmx_usage_entry fcpim_usage[] = {
    {"--ioperf", "<pcifn> [-l [lpwwn]] [-r [rpwwn]] [-c count] [-i interval]",
     // The port range form shares the help text below.
     "\t--ioperf <port_range> [-l | -r] [-c count] [-i interval]\n"
     "\t\tShows IO performance in terms of IOPs and throughput at\n"
     "\t\tdifferent levels viz. Physical port, logical port &\n"
     "\t\tI-T sessions within a logical port\n\n"
     "\t\t<port_range> is low to high in the form of\n"
     "\t\t\t<adapter_id/port_id>-<adapter_id/port_id>\n"
     "\t\tCount is number of iterations (default = indefinite)\n"
     "\t\tInterval is sampling period (default = 1 sec)\n"},
    {"--lunlist", "<pcifn> [-l <lpwwn>] [-v verbose]",
     "\t\tDisplays info about each LUN connected to <pcifn>\n"},
    {"--lunmaskadd", "<port_id> <rpwwn> <LUN#> [-l <lpwwn>]",
     "\t\tAdd the lunmask entry <lun#> on the target <rpwwn>\n"
     "\t\tfor the initiator <lpwwn>\n"
     "\t\t<lun#> is the 64-bit lun number\n"
     "\t\tExample of lun# : 0001-0000-0000-0000\n"},
    {"--lunmaskclear", "<port_id>", "\t\tClears all the LUN masks for the given port\n"},
    {"--lunmaskdelete", "<port_id> <rpwwn> <LUN#> [-l <lpwwn>]",
     "\t\tDeletes the lunmask entry <lun#> on the target <rpwwn>\n"
     "\t\tfor the initiator <lpwwn>\n"
     "\t\t<lun#> is the 64-bit lun number\n"
     "\t\tExample of lun# : 0004-0000-0000-0000\n"},
    {"--lunmaskdisable", "<port_id>", "\t\tDisables lunmasking feature for the given port\n"},
    {"--lunmaskenable", "<port_id>", "\t\tEnables lunmasking feature for the given port\n"},
    {"--lunmaskquery", "<port_id> [-l <lpwwn>] [-r <rpwwn>]",
     "\t\tDisplays the active LUN masking configuration\n"},
    {"--ioprofile_clr", "<port_id> [-l <lpwwn>] [-r <rpwwn>]",
     "\t\tClears the collected IO profile\n"},
    {"--ioprofile_query", "<port_id>", "\t\tDisplays the IO profiling state of the port\n"},
    {"--ioprofile_reset", "<port_id> [-l <lpwwn>] [-r <rpwwn>] [-u <LUN#>] [-a]",
     "\t\tResets IO profiling counters\n"},
    {"--ioprofile_show", "<port_id> [-l <lpwwn>] [-r <rpwwn>] [-a]",
     "\t\tDisplays the collected IO profile\n"},
    {"--ioprofile_start", "<port_id> [-l <lpwwn>] [-r <rpwwn>] [-u <LUN#>] [-a]",
     "\t\tStarts IO profiling\n"},
    {"--ioprofile_stop", "<port_id> -r <rpwwn> <LUN#> [-l <lpwwn>] [-a]",
     "\t\tStops IO profiling\n"},
    {"--pathtov", "<pcifn> <tov>",
     "\t\tSets device path timeout value [tov] in seconds (0..60)\n"},
    {"--query", "<pcifn> <rpwwn> [-l <lpwwn>]", "\t\tQueries fcpim attributes\n"},
    {"--stats", "<pcifn> <rpwwn> [-l <lpwwn>]", "\t\tDisplays fcpim statistics\n"},
    {"--statsclr", "<pcifn> <rpwwn> [-l <lpwwn>]", "\t\tClears fcpim statistics\n"},
    {"--throttleclear", "<pcifn>",
     "\t\tConfigures IO throttle value in given fcpim to default\n"},
    {"--throttlequery", "<pcifn>", "\t\tDisplay current IO throttle values in given fcpim\n"},
    {"--throttleset", "<pcifn> <throttle_size>",
     "\t\tConfigures IO throttle value (1...2000) in given fcpim\n"},
    {"--trs_enable", "<pcifn> <rpwwn> [-l <lpwwn>]",
     "\t\tEnables target reset for the specified target port\n"},
    {"--trs_disable", "<pcifn> <rpwwn> [-l <lpwwn>]",
     "\t\tDisables target reset for the specified target port\n"},
    {"--trs_clear", "<pcifn>", "\t\tClears all target reset entries for the given port\n"},
    {"--trs_query", "<pcifn>", "\t\tQueries all target reset entries for the given port\n"},
};

// A nexus named on the command line: <rpwwn> [-l <lpwwn>] ..., the virtual fabric always 0.
struct nexus_words {
    wwn_t rpwwn = 0;
    wwn_t lpwwn = 0;  // 0 when no -l was given
};

int read_nexus(char** argv, int argc, nexus_words& n) {
    if (!qmx_get_port_wwn(argv[QMX_ARG_1], &n.rpwwn)) return E_CLI_BAD_WWN;
    if (qmx_has_arg(argc, QMX_ARG_2))
        return qmx_fill_vfid_lpwwn(argv, argc, QMX_ARG_2, nullptr, &n.lpwwn);
    return 0;
}

// The same, with the function's own port standing in for a missing local port.
int read_nexus_own(char** argv, int argc, kvol_t* h, nexus_words& n) {
    int rc = read_nexus(argv, argc, n);
    if (rc != 0 || n.lpwwn != 0) return rc;
    kvo_ioc_info_t info{};
    kvo_status_t st = kvol_ioc_get_info(h, &info);
    if (st != KVO_STATUS_OK) return st;
    n.lpwwn = info.pwwn;
    return 0;
}

const char* supported(uint8_t flag) { return flag != 0 ? "Supported" : "Not Supported"; }

// The low 16 bits of a decimal number of any length, folded digit by digit: what a 16-bit
// field keeps of it, with no overflow on the way.
uint16_t low16(const char* digits) {
    uint32_t v = 0;
    for (const char* c = digits; *c != '\0'; ++c) v = (v * 10 + static_cast<uint32_t>(*c - '0')) & 0xFFFF;
    return static_cast<uint16_t>(v);
}

// A decimal number no larger than limit (leading zeros allowed); false otherwise.
bool number_at_most(const char* word, unsigned limit, unsigned* out) {
    if (!qmx_verify_num(word)) return false;
    unsigned v = 0;
    for (const char* c = word; *c != '\0'; ++c) {
        v = v * 10 + static_cast<unsigned>(*c - '0');
        if (v > limit) return false;
    }
    *out = v;
    return true;
}

void print_wwn_line(const char* label, wwn_t wwn) {
    printf("%-15s: ", label);
    qmx_print_pwwn(wwn);
}

}  // namespace

void qmx_fcpim_usage(int extended) {
    qmx_print_usage("fcpim --query <pcifn> <rpwwn> [-l <lpwwn>]", fcpim_usage, extended);
}

// ---- I-T nexus ------------------------------------------------------------------------------

int qmx_fcpim_query(char** argv, int argc, qmx_id_t* id) {
    kvol_t* h = id->kvol;
    if (h == nullptr) return KVO_STATUS_FAILED;
    nexus_words n;
    int rc = read_nexus_own(argv, argc, h, n);
    if (rc != 0) return rc;
    kvo_itnim_attr_s attr{};
    kvo_status_t st = kvol_itnim_get_attr(h, 0, n.lpwwn, n.rpwwn, &attr);
    if (st != KVO_STATUS_OK) return st;
    printf("%-35s: %s\n", "FCP IM state", kvol_itnim_state_to_string(attr.state));
    printf("%-35s: %s\n", "Data retransmission support", supported(attr.retry));
    printf("%-35s: %s\n", "REC support", supported(attr.rec_support));
    printf("%-35s: %s\n", "Task retry identification support", supported(attr.task_retry_id));
    printf("%-35s: %s\n", "Confirmed completions support", supported(attr.conf_comp));
    printf("%-35s: %s\n", "Target reset support", attr.trs_blocked != 0 ? "Disabled" : "Enabled");
    return 0;
}

int qmx_fcpim_stats(char** argv, int argc, qmx_id_t* id) {
    kvol_t* h = id->kvol;
    if (h == nullptr) return KVO_STATUS_FAILED;
    nexus_words n;
    int rc = read_nexus_own(argv, argc, h, n);
    if (rc != 0) return rc;
    const kvol_stats_t* table = nullptr;
    kvo_itnim_stats_t stats{};
    kvo_status_t st = kvol_itnim_get_itnstats(h, 0, n.lpwwn, n.rpwwn, &table, &stats);
    if (st != KVO_STATUS_OK) return st;
    printf("\nITNIM Stats:\n");
    kvol_print_stats(table, &stats, 0, nullptr);
    kvo_itnim_iostats_t iostats{};
    st = kvol_itnim_get_iostats(h, 0, n.lpwwn, n.rpwwn, &table, &iostats);
    if (st != KVO_STATUS_OK) return st;
    printf("\nHAL fcpim statistics\n");
    kvol_print_stats(table, &iostats, 0, nullptr);
    printf("\nTotal data transferred in bytes  : %u\n", kvol_itnim_get_iothroughput(table, &iostats));
    return 0;
}

int qmx_fcpim_statsclr(char** argv, int argc, qmx_id_t* id) {
    kvol_t* h = id->kvol;
    if (h == nullptr) return KVO_STATUS_FAILED;
    nexus_words n;
    int rc = read_nexus_own(argv, argc, h, n);
    if (rc != 0) return rc;
    kvo_status_t st = kvol_itnim_reset_stats(h, 0, n.lpwwn, n.rpwwn);
    if (st == KVO_STATUS_OK) printf("Successfully reset the fcpim level stats\n");
    return st;
}

// The command line's own bound (60) is met before the library's.
int qmx_fcpim_pathtov(char** argv, int /*argc*/, qmx_id_t* id) {
    kvol_t* h = id->kvol;
    if (h == nullptr) return KVO_STATUS_FAILED;
    unsigned tov = 0;
    if (!number_at_most(argv[QMX_ARG_1], KVO_FCPIM_PATHTOV_MAX, &tov)) return E_CLI_INCORRECT_CMD;
    kvo_status_t st = kvol_fcpim_fast_failover(h, static_cast<uint16_t>(tov));
    if (st == KVO_STATUS_OK) printf("path timeout is set to %u\n", tov);
    return st;
}

// ---- I/O throttle -------------------------------------------------------------------------------

int qmx_fcpim_throttlequery(char** /*argv*/, int /*argc*/, qmx_id_t* id) {
    kvol_t* h = id->kvol;
    if (h == nullptr) return KVO_STATUS_FAILED;
    kvo_fcpim_throttle_s t{};
    kvo_status_t st = kvol_fcpim_throttle_query(h, &t);
    if (st != KVO_STATUS_OK) return st;
    printf("IO Throttle:\n");
    printf("Max allowed\t: %u\n", t.max_value);
    printf("Current value\t: %u\n", t.cur_value);
    // A configured value differs from the current one until the driver's next start.
    if (t.cfg_value != t.cur_value) printf("Configured\t: %u\n", t.cfg_value);
    return 0;
}

// The value is kept to its low 16 bits (65537 is 1); the driver's maximum is the only upper
// bound, whatever the usage text says.
int qmx_fcpim_throttleset(char** argv, int /*argc*/, qmx_id_t* id) {
    kvol_t* h = id->kvol;
    if (h == nullptr) return KVO_STATUS_FAILED;
    if (!qmx_verify_num(argv[QMX_ARG_1])) return E_CLI_INCORRECT_CMD;
    const uint16_t value = low16(argv[QMX_ARG_1]);
    if (value == 0) return E_CLI_BAD_ARG;
    kvo_fcpim_throttle_s t{};
    kvo_status_t st = kvol_fcpim_throttle_query(h, &t);
    if (st != KVO_STATUS_OK) return st;
    if (t.max_value < value) {
        printf("Error: IO Throttle value can not exceed %u\n", t.max_value);
        return E_CLI_BAD_ARG;
    }
    st = kvol_fcpim_throttle_set(h, value);
    if (st == KVO_STATUS_OK) {
        printf("\nIO Throttle value will be effective on next reboot ");
        printf("\nand will be subject to number of PFs created.\n");
    }
    return st;
}

// The default throttle is the driver's maximum.
int qmx_fcpim_throttleclear(char** /*argv*/, int /*argc*/, qmx_id_t* id) {
    kvol_t* h = id->kvol;
    if (h == nullptr) return KVO_STATUS_FAILED;
    kvo_fcpim_throttle_s t{};
    kvo_status_t st = kvol_fcpim_throttle_query(h, &t);
    if (st != KVO_STATUS_OK) return st;
    st = kvol_fcpim_throttle_set(h, t.max_value);
    if (st == KVO_STATUS_OK) printf("Default IO Throttle value will be effective on next reboot.\n");
    return st;
}

// ---- Target reset list -----------------------------------------------------------------------------

static int trs_change(char** argv, int argc, qmx_id_t* id, bool disable) {
    kvol_t* h = id->kvol;
    if (h == nullptr) return KVO_STATUS_FAILED;
    nexus_words n;
    int rc = read_nexus(argv, argc, n);
    if (rc != 0) return rc;
    kvo_status_t st = kvol_itnim_trs_en_dis(h, 0, n.lpwwn, n.rpwwn, disable);
    if (st == KVO_STATUS_OK)
        printf("\n%s target reset for the specified target port\n\n", disable ? "Disabled" : "Enabled");
    return st;
}

int qmx_fcpim_trs_enable(char** argv, int argc, qmx_id_t* id) { return trs_change(argv, argc, id, false); }

int qmx_fcpim_trs_disable(char** argv, int argc, qmx_id_t* id) { return trs_change(argv, argc, id, true); }

int qmx_fcpim_trs_query(char** /*argv*/, int /*argc*/, qmx_id_t* id) {
    kvol_t* h = id->kvol;
    if (h == nullptr) return KVO_STATUS_FAILED;
    uint16_t count = 0;
    kvo_trs_list_t entries[KVO_TRS_LIST_MAX];
    kvo_status_t st = kvol_itnim_trs_query(h, &count, entries);
    if (st != KVO_STATUS_OK) return st;
    if (count == 0) {
        printf("\nNo valid entries are present in the target reset list\n\n");
        return 0;
    }
    printf("\nTarget reset has been disabled for the following IT Nexus:\n\n");
    for (uint16_t i = 0; i < count; ++i) {
        print_wwn_line("Initiator WWN", entries[i].lpwwn);
        printf("\n");
        print_wwn_line("Target WWN", entries[i].rpwwn);
        printf("\n\n");
    }
    return 0;
}

int qmx_fcpim_trs_clear(char** /*argv*/, int /*argc*/, qmx_id_t* id) {
    kvol_t* h = id->kvol;
    if (h == nullptr) return KVO_STATUS_FAILED;
    kvo_status_t st = kvol_itnim_trs_clear(h);
    if (st == KVO_STATUS_OK) printf("\nCleared all entries in the target reset list\n\n");
    return st;
}
