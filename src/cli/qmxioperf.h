#pragma once
// The I/O performance monitor (fcpim --ioperf): its records, and the steps of it that need no
// adapter (option parsing, the rate of one object), which the unit tests reach directly.
#include <cstddef>
#include <cstdint>

#include "qmx.h"

constexpr int QMX_PERF_MAX_PORTS = 1024;   // port records of one run
constexpr int QMX_PERF_MAX_ITNS = 1024;    // sampled objects of one port
constexpr int QMX_PERF_MAX_LPORTS = 256;   // logical ports of one port taken from the fabric

// What a port record samples.
enum qmx_perf_type_e : int16_t {
    QMX_PERF_PORT = 1,   // the physical port (the function's I/O)
    QMX_PERF_LPORT = 2,  // each logical port
    QMX_PERF_RPORT = 3,  // each remote port of the logical ports
    QMX_PERF_ITNIM = 4,  // one I-T nexus named by both WWNs
};

// One sampled object and its last two counter readings.
struct qmx_fcpim_perf_s {
    wwn_t lpwwn;
    wwn_t rpwwn;
    uint32_t old_ios;
    uint32_t new_ios;
    uint32_t old_perf;  // bytes
    uint32_t new_perf;
};
typedef qmx_fcpim_perf_s qmx_fcpim_perf_t;
static_assert(sizeof(qmx_fcpim_perf_t) == 32);

// One port of the run. The two small fields sit in the gap before the handle, so that the head
// is 24 bytes and the record 32792: the table of 1024 records is 33579008 bytes.
struct qmx_fcpim_perf_attr_s {
    int ad_id;
    int port_id;
    int pcifn_id;
    int16_t itn_count;  // objects in perf, at most QMX_PERF_MAX_ITNS
    int16_t perf_type;  // qmx_perf_type_e
    kvol_t* kvol;       // null for a port that is not sampled
    qmx_fcpim_perf_t perf[QMX_PERF_MAX_ITNS];
};
typedef qmx_fcpim_perf_attr_s qmx_fcpim_perf_attr_t;
static_assert(sizeof(qmx_fcpim_perf_attr_t) == 32792);
static_assert(QMX_PERF_MAX_PORTS * sizeof(qmx_fcpim_perf_attr_t) == 33579008);

// The printable rates of one object.
struct qmx_fcpim_perf_info_s {
    uint32_t iops_int;
    uint32_t iops_exp;  // not shown: the I/O rate is a whole number
    uint32_t perf_int;
    uint32_t perf_exp;  // tenths
    const char* perf_unit;
    const char* iops_unit;
};
typedef qmx_fcpim_perf_info_s qmx_fcpim_perf_info_t;

// The options after the identifier.
struct qmx_perf_opts_t {
    int count = -1;         // iterations; negative: until interrupted
    uint32_t interval = 1;  // seconds
    bool lport = false;     // -l given: the logical port column
    bool rport = false;     // -r given: the remote port column
    wwn_t lpwwn = 0;        // the WWN after -l, 0 when none
    wwn_t rpwwn = 0;        // the WWN after -r, 0 when none
};

// Reads the options from argv[QMX_ARG_1] on: 0, E_CLI_TOO_FEW_ARGS (a -c or -i without its
// value), E_CLI_INCORRECT_CMD (a value that is not a decimal number or does not fit, an
// unknown word) or E_CLI_BAD_WWN. The interval and count are not judged here.
int qmx_perf_parse_opts(char** argv, int argc, qmx_perf_opts_t* opts);

// The rates of one object over an interval (seconds, not 0) from its two readings; then the
// newer reading becomes the older one and the newer is cleared. A counter that went backwards
// counts new + 4 - old, modulo 2^32.
void qmx_perf_fcpim_process_data(qmx_fcpim_perf_t* perf, uint32_t interval,
                                 qmx_fcpim_perf_info_t* info);
