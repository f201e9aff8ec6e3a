// The fcpim class: the LUN list, I-T nexus attributes and statistics, the path time-out, the I/O
// throttle, the target reset list and the LUN mask of a storage function.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <vector>

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

// The function's own port stands in for a local port not given.
int own_port_if_unset(kvol_t* h, wwn_t& lpwwn) {
    if (lpwwn != 0) return 0;
    kvo_ioc_info_t info{};
    kvo_status_t st = kvol_ioc_get_info(h, &info);
    if (st != KVO_STATUS_OK) return st;
    lpwwn = info.pwwn;
    return 0;
}

// read_nexus with the function's own port standing in for a missing local port.
int read_nexus_own(char** argv, int argc, kvol_t* h, nexus_words& n) {
    int rc = read_nexus(argv, argc, n);
    if (rc != 0) return rc;
    return own_port_if_unset(h, n.lpwwn);
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

// ---- LUN list -----------------------------------------------------------------------------------

namespace {

constexpr uint32_t kMaxRports = 1024;
constexpr uint32_t kMaxOsNames = 512;
constexpr uint8_t kScsiGood = 0;
constexpr size_t kScsiDataLen = 128;
// The low byte of the sense length is what the SCSI generic driver gets: 0, so no sense data
// comes back. The sense of a failed command is never shown anyway.
constexpr uint32_t kSenseLen = 256;

uint32_t be32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
           static_cast<uint32_t>(p[2]) << 8 | p[3];
}

void print_wwn_nonzero(wwn_t wwn) {
    if (wwn != 0) qmx_print_pwwn(wwn);
    printf("\n");
}

// A LUN's OS device names: "------" for an empty one, the first name followed by a blank, the
// others each on a line of their own. Every name is cleared for the next LUN.
void print_os_names(char (*names)[KVOL_OSNAME_LEN], uint32_t count) {
    bool first = true;
    for (uint32_t i = 0; i < std::min(count, kMaxOsNames); ++i) {
        if (names[i][0] == '\0') {
            printf("------");
        } else if (first) {
            printf("%s ", names[i]);
            first = false;
        } else {
            printf("\n\t\t%s", names[i]);
        }
        memset(names[i], 0, KVOL_OSNAME_LEN);
    }
}

// The rows of one target: the LUNs its REPORT LUNS lists.
void list_target_luns(kvol_t* h, wwn_t lpwwn, wwn_t rpwwn, int host, int bus, int target,
                      bool verbose, char (*names)[KVOL_OSNAME_LEN]) {
    scsi_cdb_t cdb{};
    uint8_t* raw = nullptr;
    uint32_t size = 0;
    uint8_t status = 0;
    uint8_t sense[kSenseLen];
    uint32_t sense_len = sizeof(sense);
    kvo_status_t st = kvol_scsi_reportluns(h, 0, lpwwn, rpwwn, 0, &cdb, 0, &raw, &size, &status,
                                           sense, &sense_len);
    const std::unique_ptr<uint8_t, decltype(&free)> data(raw, &free);
    uint32_t n = 0;
    if (st != KVO_STATUS_OK || status != kScsiGood) printf("Report Luns failed\n");
    else n = kvol_scsi_rpl_count(raw, size);
    for (uint32_t k = 0; k < n; ++k) {
        const uint8_t* entry = raw + 8 + 8 * k;
        lun_t lun;
        memcpy(&lun, entry, sizeof(lun));
        char text[24];
        qmx_convert_lun_to_string(lun, text, sizeof(text));
        // The address method bits are cut off here, unlike the kernel's numbering: a flat-space
        // LUN is looked up under its plain number.
        const uint32_t hlun = static_cast<uint32_t>(entry[0] & 0x3F) << 8 | entry[1];
        uint32_t count = 0;
        (void)kvol_get_osname(host, bus, target, static_cast<int>(hlun), names, &count);
        if (verbose) printf(" %d:%d:%d:%s", host, bus, target, text);
        else printf(" %d:%s", target, text);
        // The column that marks LUNs with advanced I/O profiling on; nothing sets the mark.
        printf("  ");
        qmx_print_pwwn(rpwwn);
        if (verbose) {
            printf(" ");
            (void)qmx_fcpim_scsitest_commands(h, lpwwn, rpwwn, hlun);
        }
        printf(" ");
        print_os_names(names, count);
        printf("\n");
    }
}

}  // namespace

std::string qmx_fcpim_lun_size(int64_t last_lba, int64_t block_len) {
    // The product of the returned last LBA (no block added) and the block length, wrapping as a
    // 64-bit product does.
    const auto size =
        static_cast<int64_t>(static_cast<uint64_t>(last_lba) * static_cast<uint64_t>(block_len));
    constexpr int64_t kTiB = int64_t{1} << 40, kGiB = int64_t{1} << 30, kMiB = int64_t{1} << 20;
    // Whole TiB; GiB and MiB in single precision.
    const float bytes = static_cast<float>(size);
    char text[48];
    if (size < 0) return "  -----";
    if (size >= kTiB)
        snprintf(text, sizeof(text), "%4.2fTB", static_cast<double>(size / kTiB));
    else if (size >= kGiB)
        snprintf(text, sizeof(text), "%4.2fGB", static_cast<double>(bytes / 1073741824.0f));
    else if (size >= kMiB)
        snprintf(text, sizeof(text), "%4.2fMB", static_cast<double>(bytes / 1048576.0f));
    else
        snprintf(text, sizeof(text), "%llu", static_cast<unsigned long long>(size));
    return text;
}

std::string qmx_fcpim_inquiry_columns(std::span<const uint8_t, 36> inq) {
    // The target writes these fields: a byte that is not printable shows as '?', so that a
    // garbled answer cannot disturb the terminal. A NUL ends a field.
    auto shown = [](uint8_t c) { return c < 0x20 || c >= 0x7f ? '?' : static_cast<char>(c); };
    // A field up to its first NUL, padded with blanks to its width.
    auto padded = [&](size_t from, size_t width) {
        std::string f;
        for (size_t i = from; i < from + width && inq[i] != '\0'; ++i) f += shown(inq[i]);
        f.resize(width, ' ');
        return f;
    };
    std::string s = padded(8, 8) + ' ';
    // The product up to and including its first blank.
    for (size_t i = 16; i < 32 && inq[i] != '\0'; ++i) {
        s += shown(inq[i]);
        if (inq[i] == ' ') break;
    }
    return s + ' ' + padded(32, 4);
}

int qmx_fcpim_scsitest_commands(kvol_t* h, wwn_t lpwwn, wwn_t rpwwn, uint32_t hlun) {
    const uint8_t wire[8] = {static_cast<uint8_t>(hlun >> 8), static_cast<uint8_t>(hlun)};
    lun_t lun;
    memcpy(&lun, wire, sizeof(lun));
    uint8_t data[kScsiDataLen] = {};
    uint8_t sense[kSenseLen];
    uint32_t sense_len = sizeof(sense);
    uint8_t status = 0;
    scsi_cdb_t cdb{};
    // Each command starts from a clean CDB, data buffer and sense length.
    auto fresh = [&] {
        cdb = {};
        memset(data, 0, sizeof(data));
        sense_len = sizeof(sense);
    };
    static constexpr char kNoInquiry[] = "  -----  -----  -----  -----";
    kvo_status_t st = kvol_scsi_inquiry(h, 0, lpwwn, rpwwn, lun, &cdb, 0, data, sizeof(data),
                                        &status, sense, &sense_len);
    if (st != KVO_STATUS_OK) {
        printf("%s", kNoInquiry);
        return st;
    }
    // Without an answer the LUN is taken for a disk: its capacity is still asked for.
    uint8_t type = 0;
    if (status != kScsiGood) {
        printf("%s", kNoInquiry);
    } else {
        type = data[0] & 0x1F;
        printf("%s", qmx_fcpim_inquiry_columns(std::span(data).first<36>()).c_str());
    }
    if (type != 0) {
        printf("  ------");
        return KVO_STATUS_OK;
    }
    fresh();
    st = kvol_scsi_readcapacity(h, 0, lpwwn, rpwwn, lun, &cdb, 0, data, sizeof(data), &status,
                                sense, &sense_len);
    if (st != KVO_STATUS_OK) return st;
    if (status != kScsiGood) {
        printf("  ------");
        return KVO_STATUS_OK;
    }
    // Both fields read as signed 32-bit values: a last LBA from 0x80000000 on turns negative.
    int64_t last_lba = static_cast<int32_t>(be32(&data[0]));
    const int64_t block_len = static_cast<int32_t>(be32(&data[4]));
    if (last_lba == -1) {
        // Too large for READ CAPACITY(10); the block length stays the one it gave.
        fresh();
        st = kvol_scsi_readcapacity16(h, 0, lpwwn, rpwwn, lun, &cdb, 0, data, sizeof(data),
                                      &status, sense, &sense_len);
        if (st != KVO_STATUS_OK) return st;
        if (status != kScsiGood) {
            printf("  ------");
            return KVO_STATUS_OK;
        }
        last_lba = static_cast<int64_t>(uint64_t{be32(&data[0])} << 32 | be32(&data[4]));
    }
    printf("  %s", qmx_fcpim_lun_size(last_lba, block_len).c_str());
    return KVO_STATUS_OK;
}

int qmx_fcpim_lunlist_hdlr(char** argv, int argc, qmx_id_t* id) {
    kvol_t* h = id->kvol;
    if (h == nullptr) return KVO_STATUS_FAILED;
    bool verbose = false;
    wwn_t lpwwn = 0;
    for (int i = QMX_ARG_1; i < argc; ++i) {
        if (strcmp(argv[i], "-v") == 0) {
            verbose = true;
            continue;
        }
        if (strcmp(argv[i], "-l") != 0 || i + 1 >= argc) return E_CLI_INCORRECT_CMD;
        if (!qmx_get_port_wwn(argv[++i], &lpwwn)) return E_CLI_BAD_WWN;
    }
    if (int rc = own_port_if_unset(h, lpwwn); rc != 0) return rc;
    std::vector<wwn_t> rports(kMaxRports);
    uint32_t total = 0;
    kvo_status_t st = kvol_lport_get_rports(h, 0, lpwwn, rports.data(), kMaxRports, &total);
    if (st != KVO_STATUS_OK) return st;
    const uint32_t nrports = std::min(total, kMaxRports);
    if (nrports == 0) {
        printf("No Remote Ports found...\n");
        return KVO_STATUS_OK;
    }

    const uint8_t width = verbose ? 99 : 79;
    qmx_print_header_line(width);
    if (verbose)
        printf(" H:B:T:L                    Remote Port PWWN        "
               "Vendor   Product   Rev    Size   Dev Name\n");
    else
        printf(" T:L                    Remote Port PWWN       "
               " Dev Name\n");
    qmx_print_header_line(width);

    const auto names = std::make_unique<char[][KVOL_OSNAME_LEN]>(kMaxOsNames);
    for (uint32_t i = 0; i < nrports; ++i) {
        const wwn_t rpwwn = rports[i];
        kvo_rport_attr_s attr{};
        st = kvol_rport_get_attr(h, 0, lpwwn, rpwwn, &attr);
        if (st != KVO_STATUS_OK) {
            print_wwn_nonzero(rpwwn);
            return st;
        }
        if (attr.scsi_function != KVO_RPORT_TARGET) continue;  // initiators have no LUNs
        uint32_t host = 0, bus = 0, target = 0;
        st = kvol_rport_get_scsi_address(h, 0, lpwwn, rpwwn, &host, &bus, &target);
        if (st != KVO_STATUS_OK && st != KVO_STATUS_CMD_NOTSUPP) {
            print_wwn_nonzero(rpwwn);
            continue;
        }
        list_target_luns(h, lpwwn, rpwwn, static_cast<int>(host), static_cast<int>(bus),
                         static_cast<int>(target), verbose, names.get());
    }
    qmx_print_header_line(width);
    return KVO_STATUS_OK;
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

// ---- LUN masking --------------------------------------------------------------------------------

// <rpwwn> <LUN#> [-l <lpwwn>]...: the entry to add or delete, for the port's own WWN unless
// another local port is named.
static int lunmask_edit(char** argv, int argc, qmx_id_t* id, bool add) {
    kvol_t* h = id->kvol;
    if (h == nullptr) return KVO_STATUS_FAILED;
    wwn_t rpwwn = 0;
    if (!qmx_get_port_wwn(argv[QMX_ARG_1], &rpwwn)) return E_CLI_BAD_WWN;
    if (!qmx_verify_lun(argv[QMX_ARG_2])) return E_CLI_INCORRECT_CMD;
    uint8_t wire[sizeof(lun_t)];
    qmx_convert_string_to_lun(argv[QMX_ARG_2], wire);
    lun_t lun;
    memcpy(&lun, wire, sizeof(lun));
    wwn_t lpwwn = 0;
    constexpr int first_option = QMX_ARG_2 + 1;
    if (qmx_has_arg(argc, first_option)) {
        int rc = qmx_fill_vfid_lpwwn(argv, argc, first_option, nullptr, &lpwwn);
        if (rc != 0) return rc;
    }
    int rc = own_port_if_unset(h, lpwwn);
    if (rc != 0) return rc;
    kvo_status_t st = add ? kvol_fcpim_lunmask_add(h, 0, &lpwwn, rpwwn, lun)
                          : kvol_fcpim_lunmask_delete(h, 0, &lpwwn, rpwwn, lun);
    if (st != KVO_STATUS_OK) return st;
    char text[20];
    qmx_convert_lun_to_string(lun, text, sizeof(text));
    printf(add ? "LUN Mask added:\n" : "LUN Mask deleted:\n");
    printf("LUN           : ");
    printf("%s\n", text);
    printf("Target        : ");
    qmx_print_pwwn(rpwwn);
    printf("\n");
    printf("Initiator     : ");
    qmx_print_pwwn(lpwwn);
    printf("\n");
    return st;
}

int qmx_fcpim_lm_add_hdlr(char** argv, int argc, qmx_id_t* id) { return lunmask_edit(argv, argc, id, true); }

int qmx_fcpim_lm_del_hdlr(char** argv, int argc, qmx_id_t* id) { return lunmask_edit(argv, argc, id, false); }

int qmx_fcpim_lm_clear_hdlr(char** /*argv*/, int /*argc*/, qmx_id_t* id) {
    kvol_t* h = id->kvol;
    if (h == nullptr) return KVO_STATUS_FAILED;
    kvo_status_t st = kvol_fcpim_lunmask_clear(h);
    if (st == KVO_STATUS_OK) printf("Lun Mask List cleared\n");
    return st;
}

// Enabling an empty table hides every LUN but LUN 0: said after the fact, not refused.
int qmx_fcpim_lm_en_hdlr(char** /*argv*/, int /*argc*/, qmx_id_t* id) {
    kvol_t* h = id->kvol;
    if (h == nullptr) return KVO_STATUS_FAILED;
    kvo_ioctl_fcpim_lunmask_query_t q{};
    kvo_status_t st = kvol_fcpim_lunmask_query(h, &q);
    if (st != KVO_STATUS_OK) return st;
    int in_use = 0;
    for (const kvo_lun_mask_s& e : q.lun_mask.lun_list) in_use += e.state == KVO_LUNMASK_ENTRY_ACTIVE;
    st = kvol_fcpim_lunmask_enable(h);
    if (st != KVO_STATUS_OK) return st;
    printf("Lun masking enabled on %2d/%-2d\n", kvol_ioc_get_adapter_id(h), kvol_ioc_get_port_id(h));
    if (in_use == 0) printf("Warning: LUN Masking enabled without any LUNs configured in LUN Mask\n");
    return st;
}

int qmx_fcpim_lm_dis_hdlr(char** /*argv*/, int /*argc*/, qmx_id_t* id) {
    kvol_t* h = id->kvol;
    if (h == nullptr) return KVO_STATUS_FAILED;
    kvo_status_t st = kvol_fcpim_lunmask_disable(h);
    if (st == KVO_STATUS_OK)
        printf("Lun masking disabled on %2d/%-2d\n", kvol_ioc_get_adapter_id(h), kvol_ioc_get_port_id(h));
    return st;
}

// [-l <lpwwn>] [-r <rpwwn>] in any order, the last of a kind counting. Every entry in use is
// shown that passes the filters, whatever the status: a disabled table keeps its entries.
int qmx_fcpim_lm_query_hdlr(char** argv, int argc, qmx_id_t* id) {
    kvol_t* h = id->kvol;
    if (h == nullptr) return KVO_STATUS_FAILED;
    wwn_t lpwwn = 0, rpwwn = 0;
    bool by_lport = false, by_rport = false;
    for (int i = QMX_ARG_1; i < argc; i += 2) {
        const bool local = strcmp(argv[i], "-l") == 0;
        if (!local && strcmp(argv[i], "-r") != 0) return E_CLI_INCORRECT_CMD;
        if (!qmx_has_arg(argc, i + 1)) return E_CLI_TOO_FEW_ARGS;
        if (!qmx_get_port_wwn(argv[i + 1], local ? &lpwwn : &rpwwn)) return E_CLI_BAD_WWN;
        (local ? by_lport : by_rport) = true;
    }
    kvo_ioctl_fcpim_lunmask_query_t q{};
    kvo_status_t st = kvol_fcpim_lunmask_query(h, &q);
    if (st != KVO_STATUS_OK) return st;
    switch (q.lun_mask.status) {
    case KVO_LUNMASK_ENABLED: printf("LUN Mask status is : Enabled\n"); break;
    case KVO_LUNMASK_DISABLED: printf("LUN Mask status is : Disabled\n"); break;
    case KVO_LUNMASK_UNINITIALIZED: printf("LUN Mask status is : Uninitialized\n"); break;
    default: printf("LUN Mask status is : Unknown\n"); break;
    }
    const char* rule = "--------------------------------------------------------"
                       "-------------------------------\n";
    printf("%s", rule);
    printf(" Lport-WWN\t\t Rport-WWN \t\t\t Lun#\n");
    printf("%s", rule);
    for (const kvo_lun_mask_s& e : q.lun_mask.lun_list) {
        if (e.state != KVO_LUNMASK_ENTRY_ACTIVE) continue;
        if ((by_rport && e.rp_wwn != rpwwn) || (by_lport && e.lp_wwn != lpwwn)) continue;
        char text[20];
        qmx_convert_lun_to_string(e.lun, text, sizeof(text));
        qmx_print_pwwn(e.lp_wwn);
        printf("\t ");
        qmx_print_pwwn(e.rp_wwn);
        printf("\t %s\n", text);
    }
    return st;
}
