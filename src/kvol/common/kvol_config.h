#pragma once
// The persistent configuration store: the in-memory tables that /etc/kvo.conf is parsed into,
// the parser, the locked load/sync transaction, the setters and the writer.
//
// A persistent change is one transaction:
//     if (kvol_config_load(path) == KVO_STATUS_OK) { <one setter>; kvol_config_sync(path); }
// Setters and clean-up functions only change the tables; they never touch the file.
#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "kvol.h"

constexpr int KVOL_CFG_MAX_AD = 128;     // adapter records
constexpr int KVOL_CFG_MAX_IOC = 128;    // port (IOC) records; index = instance number
constexpr int KVOL_CFG_MAX_TRS = 16;     // target-reset pairs per port
constexpr int KVOL_CFG_LINE_MAX = 1024;  // one logical line, NUL included
constexpr int KVOL_CFG_KEY_MAX = 64;     // one key, NUL included
constexpr int KVOL_CFG_LOCK_TRIES = 60;  // one-second attempts to take the file lock

enum kvo_auth_algo_t : uint32_t {
    KVO_AUTH_ALGO_NONE = 0,
    KVO_AUTH_ALGO_MD5 = 1,
    KVO_AUTH_ALGO_SHA1 = 2,
    KVO_AUTH_ALGO_MS = 3,
    KVO_AUTH_ALGO_SM = 4,
};

enum kvo_auth_group_t : uint32_t {
    KVO_AUTH_DH_NULL = 0,
    KVO_AUTH_DH_1 = 1,
    KVO_AUTH_DH_2 = 2,
    KVO_AUTH_DH_4 = 4,
    KVO_AUTH_DH_8 = 8,
    KVO_AUTH_DH_ALL = 256,
};

enum kvo_auth_secretsource_t : uint32_t {
    KVO_AUTH_SECRET_NONE = 0,
    KVO_AUTH_SECRET_LOCAL = 1,
    KVO_AUTH_SECRET_RADIUS = 2,
    KVO_AUTH_SECRET_TACACS = 3,
};

struct kvo_lport_symname_s {
    char symname[128];
};
typedef kvo_lport_symname_s kvo_lport_symname_t;

// Roles of a logical port (bit numbers of kvol_port_cfg_t::roles).
constexpr uint32_t KVOL_LPORT_ROLE_IM = 1u << 0;
constexpr uint32_t KVOL_LPORT_ROLE_TM = 1u << 1;
constexpr uint32_t KVOL_LPORT_ROLE_IP = 1u << 2;

// What the store needs to know of an NPIV vport being created or deleted.
struct kvol_port_cfg_s {
    wwn_t pwwn;
    wwn_t nwwn;
    kvo_lport_symname_t sym_name;
    uint32_t roles;  // KVOL_LPORT_ROLE_* bits
};
typedef kvol_port_cfg_s kvol_port_cfg_t;

// One persisted NPIV vport; a singly linked list per port record, guarded by vportmutex.
struct kvol_vf_config_s {
    int vidx;  // never set
    char pwwn[32];
    char nwwn[32];
    char role[16];
    kvo_lport_symname_t name;
    uint16_t vf_id;
    kvol_vf_config_s* next;
};
typedef kvol_vf_config_s kvol_vf_config_t;

// Adapter record. flags word 0: 0x1 in use (id valid), 0x2 name set, 0x4 "power" (global only),
// 0x8 ad_trunk set.
struct kvol_ad_config_s {
    uint32_t flags[4];
    char id[12];  // serial number, not necessarily NUL-terminated
    char name[128];
    kvo_boolean_t ad_trunk;
};
typedef kvol_ad_config_s kvol_ad_config_t;

// Port (IOC) record; the comments give the presence bit (W0/W1 = flags word 0/1).
struct kvol_ioc_config_s {
    uint32_t flags[4];
    char pwwn[32];                        // W0 0x10
    char name[128];                       // W0 0x40
    char mac[32];                         // W0 0x20
    char ethname[128];                    // W0 0x80
    kvo_port_speed_t speed;               // W0 0x200
    kvo_port_topology_t topology;         // W0 0x400
    uint8_t alpa;                         // W0 0x800
    uint16_t maxfrsz;                     // W0 0x1000
    uint32_t trunking;                    // W0 0x2000 (bitmap)
    kvo_boolean_t enable;                 // W0 0x4000
    kvo_boolean_t ipfc_enable;            // W0 0x8000
    int log;                              // W0 0x10000
    kvo_boolean_t vf_enable;              // W0 0x20000
    uint16_t vf_default_id;               // W0 0x40000
    uint16_t vf_list;                     // W0 0x80000 (bitmap)
    kvol_vf_config_t* vport;              // W0 0x100000
    int vpcount;
    kvo_boolean_t authpolicy;             // W0 0x200000
    kvo_auth_algo_t authalgo;             // W0 0x400000
    kvo_auth_group_t authgroup;           // W0 0x800000
    kvo_auth_secretsource_t authssource;  // W0 0x1000000
    char authsstring[512];                // W0 0x2000000
    uint16_t pathtov;                     // W0 0x8000000
    uint16_t qdepth;                      // W0 0x10000000
    kvo_boolean_t binding;                // W1 0x8
    kvo_boolean_t qos;                    // W0 0x20000000
    kvo_boolean_t ratelim;                // W0 0x40000000
    kvo_port_speed_t defspeed;            // W0 0x80000000
    kvo_boolean_t coalesce;               // W1 0x1
    uint16_t delay;                       // W1 0x2
    uint16_t latency;                     // W1 0x4
    int mtu;                              // W0 0x100
    uint16_t trs_count;                   // W1 0x10 (whole list)
    kvo_trs_list_t trs_list[KVOL_CFG_MAX_TRS];
};
typedef kvol_ioc_config_s kvol_ioc_config_t;

// Presence bits.
constexpr uint32_t KVOL_AD_INUSE = 0x1, KVOL_AD_NAME = 0x2, KVOL_AD_POWER = 0x4,
                   KVOL_AD_TRUNK = 0x8;
constexpr uint32_t KVOL_W0_PWWN = 0x10, KVOL_W0_MAC = 0x20, KVOL_W0_NAME = 0x40,
                   KVOL_W0_ETHNAME = 0x80, KVOL_W0_MTU = 0x100, KVOL_W0_SPEED = 0x200,
                   KVOL_W0_TOPOLOGY = 0x400, KVOL_W0_ALPA = 0x800, KVOL_W0_MAXFRSZ = 0x1000,
                   KVOL_W0_TRUNK = 0x2000, KVOL_W0_ENABLE = 0x4000, KVOL_W0_IPFC = 0x8000,
                   KVOL_W0_LOG = 0x10000, KVOL_W0_VF_ENABLE = 0x20000,
                   KVOL_W0_VF_DEFAULT = 0x40000, KVOL_W0_VF_LIST = 0x80000,
                   KVOL_W0_VPORT = 0x100000, KVOL_W0_AUTH_POLICY = 0x200000,
                   KVOL_W0_AUTH_ALGO = 0x400000, KVOL_W0_AUTH_GROUP = 0x800000,
                   KVOL_W0_AUTH_SSOURCE = 0x1000000, KVOL_W0_AUTH_SSTRING = 0x2000000,
                   KVOL_W0_TRS_RSVD = 0x4000000, KVOL_W0_PATHTOV = 0x8000000,
                   KVOL_W0_QDEPTH = 0x10000000, KVOL_W0_QOS = 0x20000000,
                   KVOL_W0_RATELIM = 0x40000000, KVOL_W0_DEFSPEED = 0x80000000u;
constexpr uint32_t KVOL_W1_COALESCE = 0x1, KVOL_W1_DELAY = 0x2, KVOL_W1_LATENCY = 0x4,
                   KVOL_W1_BINDING = 0x8, KVOL_W1_TRS = 0x10;

// Value types of kvol_config_set_data.
enum kvol_config_type_e {
    KVOL_CFG_AD_ID = 0,
    KVOL_CFG_AD_NAME = 1,
    KVOL_CFG_AD_POWER = 2,
    KVOL_CFG_AD_TRUNK = 3,
    KVOL_CFG_PWWN = 4,
    KVOL_CFG_MAC = 5,
    KVOL_CFG_NAME = 6,
    KVOL_CFG_ETHNAME = 7,
    KVOL_CFG_MTU = 8,
    KVOL_CFG_SPEED = 9,
    KVOL_CFG_TOPOLOGY = 10,
    KVOL_CFG_ALPA = 11,
    KVOL_CFG_MAXFRSZ = 12,
    KVOL_CFG_TRUNK = 13,
    KVOL_CFG_ENABLE = 14,
    KVOL_CFG_IPFC = 15,
    KVOL_CFG_LOG = 16,
    KVOL_CFG_VF_ENABLE = 17,
    KVOL_CFG_VF_DEFAULT = 18,
    KVOL_CFG_VF_LIST = 19,
    KVOL_CFG_VPORT = 20,  // reserved: stores nothing
    KVOL_CFG_AUTH_POLICY = 21,
    KVOL_CFG_AUTH_ALGO = 22,
    KVOL_CFG_AUTH_GROUP = 23,
    KVOL_CFG_AUTH_SSOURCE = 24,
    KVOL_CFG_AUTH_SSTRING = 25,
    KVOL_CFG_TRS = 26,  // reserved: stores nothing
    KVOL_CFG_PATHTOV = 27,
    KVOL_CFG_QDEPTH = 28,
    KVOL_CFG_QOS = 29,
    KVOL_CFG_RATELIM = 30,
    KVOL_CFG_DEFSPEED = 31,
    KVOL_CFG_COALESCE = 32,
    KVOL_CFG_DELAY = 33,
    KVOL_CFG_LATENCY = 34,
    KVOL_CFG_BINDING = 35,
    KVOL_CFG_TYPE_COUNT = 36,
};

// ---- The tables (one copy per process) ---------------------------------------------------------

extern kvol_ad_config_t ad_config_data[KVOL_CFG_MAX_AD];
extern kvol_ioc_config_t ioc_config_data[KVOL_CFG_MAX_IOC];
extern uint32_t config_all[4];  // settings written as one global line from record 0
extern pthread_mutex_t vportmutex;

// Driver tunables: read from global lines, never written back.
extern int msix_disable, num_rports, num_ios, num_tms, num_fcxps, num_ufbufs, reqq_size,
    rspq_size, num_sgpgs, ioc_auto_recover, ipfc_disable, rport_del_timeout,
    dma_relaxed_ordering, pcie_max_read_reqsz;

// ---- Text helpers --------------------------------------------------------------------------------

// Reads one logical line (at most size-1 characters, the ending newline kept); returns its length,
// 0 at end of file.
int kvol_getline(FILE* fp, char* buf, int size);
// Trims blanks, tabs, quotes, ";" and newlines at both ends; an empty result is " ".
void kvol_config_filter_space(const char* in, char* out, size_t out_size = KVOL_CFG_LINE_MAX);
// Key between `start` ("-": after the first "-"; anything else: the line's start) and the first
// `end` character; key holds KVOL_CFG_KEY_MAX bytes and stays empty when there is no key or it
// does not fit; temp is scratch of KVOL_CFG_LINE_MAX bytes.
void kvol_config_get_key(const char* start, const char* end, const char* line, char* temp,
                         char* key);
// Trimmed text after the first `sep`; value (KVOL_CFG_LINE_MAX bytes) stays empty without `sep`.
void kvol_config_get_data(const char* sep, const char* line, char* temp, char* value);
// Value of the trailing decimal digits (0 if none, -1 for null; saturates at INT_MAX).
int kvol_config_get_num(const char* text);
// Hex digits read from the text, non-hex characters counting as 0.
unsigned kvol_xstrtoi(const char* text);
wwn_t kvol_wwn_convert(const char* text);
// Formats "xx:xx:xx:xx:xx:xx:xx:xx" (needs 24 bytes).
void kvol_get_wwn(char* buf, size_t size, wwn_t wwn);
void kvol_get_mac(char* buf, size_t size, mac_t mac);
uint32_t kvol_listtobmp(const char* text);
// Writes the set bits of bmp as "a, b, c;\n"; nothing at all for an empty bitmap.
void kvol_bmptolist(FILE* stream, uint32_t bmp);

// ---- Parser and lookups --------------------------------------------------------------------------

kvo_status_t kvol_config_load(const char* path);
void kvol_config_parse(const char* line);
void kvol_config_set_data(int type, int idx, const char* value);
void kvol_config_set_vportdata(int idx, const char* value);
void kvol_config_set_trsdata(int idx, const char* value);
int kvol_config_ioc_lookup(wwn_t wwn);
int kvol_config_ethioc_lookup(mac_t mac);
int kvol_config_ad_lookup(const char* serial);
int kvol_config_ad_get_num();
int kvol_config_ioc_get_num();

// ---- Lock and write-back -----------------------------------------------------------------------------

// Opens the file (created when missing; only a regular file is accepted) and takes its
// exclusive lock, trying once a second for a minute. KVO_STATUS_FAILED when this process holds
// the lock already, KVO_STATUS_EFOPEN when the file cannot be opened or stays locked.
kvo_status_t kvol_lock_conf_file(const char* path);
void kvol_unlock_conf_file();
// Writes the tables back in place and releases the lock. Skips the write when the file already
// holds exactly that text. KVO_STATUS_EFOPEN when path is not an openable regular file,
// KVO_STATUS_EIO when the write, the cut to length or the fsync fails (the file may then hold
// part of the new text), KVO_STATUS_ENOMEM when the text cannot be built.
kvo_status_t kvol_config_sync(const char* path);
void kvol_config_unload();  // releases the lock without writing
void kvol_config_ad_update(FILE* stream);
void kvol_config_ioc_update(FILE* stream);

// ---- Record creation (return the index used, -1 when the table is full) -----------------------------

int kvol_config_ad_add(const char* serial);
int kvol_config_ioc_add(wwn_t wwn);
int kvol_config_ethioc_add(mac_t mac);
void kvol_config_ioc_pwwn(int inst, wwn_t wwn);
void kvol_config_ethioc_mac(int inst, mac_t mac);

// ---- Setters (tables only; no record for the handle's port WWN: no change) ---------------------------

void kvol_config_speed(const kvol_t* h, kvo_port_speed_t speed);
void kvol_config_topology(const kvol_t* h, kvo_port_topology_t topology);
void kvol_config_alpa(const kvol_t* h, uint8_t alpa, kvo_boolean_t mode);
void kvol_config_maxfrsz(const kvol_t* h, uint16_t maxfrsz);
void kvol_config_enable(const kvol_t* h, kvo_boolean_t enable);
void kvol_config_ipfc_enable(const kvol_t* h, kvo_boolean_t enable);
void kvol_config_log_level(const kvol_t* h, int level);
void kvol_config_qos(const kvol_t* h, kvo_boolean_t qos);
void kvol_config_ratelim(const kvol_t* h, kvo_boolean_t ratelim);
void kvol_config_defspeed(const kvol_t* h, kvo_port_speed_t speed);
void kvol_config_fcpim(const kvol_t* h, uint16_t pathtov);
void kvol_config_qdepth(const kvol_t* h, uint16_t qdepth);
void kvol_config_auth_policy(const kvol_t* h, kvo_boolean_t policy);
void kvol_config_auth_algo(const kvol_t* h, kvo_auth_algo_t algo);
void kvol_config_auth_group(const kvol_t* h, kvo_auth_group_t group);
void kvol_config_auth_secretsource(const kvol_t* h, kvo_auth_secretsource_t source);
// A secret whose text does not fit the 512-byte field is refused (the stored one stays).
void kvol_config_auth_secretstring(const kvol_t* h, const uint32_t* words, int size);
void kvol_config_iocfc_intr(const kvol_t* h, kvo_boolean_t coalesce, uint16_t delay,
                            uint16_t latency);
// FC/FCoE: the record of the port WWN; Ethernet: the record of the MAC.
void kvol_config_ioc_name(const kvol_t* h, const char* name);
void kvol_config_pbind(const kvol_t* h, kvo_boolean_t binding);
void kvol_config_vf_mode(const kvol_t* h, kvo_boolean_t enable, uint16_t vf_id);
void kvol_config_vf_list(const kvol_t* h, uint16_t vf_id);  // toggles; vf_id 0..15
void kvol_config_trunk(const kvol_t* h, kvo_boolean_t mode, uint32_t bitmap);

// Adapter setters: idx is the adapter id of the scanned tree (from 1); they act on the first
// record carrying that adapter's serial. The name setter adds the record when it is missing.
void kvol_config_ad_name(int idx, const char* name);
void kvol_config_ad_trunk(int idx, kvo_boolean_t mode);
// The same, by serial number.
void kvol_config_ad_set_name(const char* serial, const char* name);
void kvol_config_ad_set_trunk(const char* serial, kvo_boolean_t mode);

// ---- Vports ---------------------------------------------------------------------------------------------

// A whole transaction: load, add (del false) or delete the vport, sync; returns the load failure
// or the sync status.
kvo_status_t kvol_config_vport(const kvol_t* h, uint16_t vf_id, const kvol_port_cfg_t* port_cfg,
                               kvo_boolean_t del);
// Tables only; KVO_STATUS_CNFG_FAILED when the handle's port has no record.
kvo_status_t kvol_config_vport_add(const kvol_t* h, uint16_t vf_id,
                                   const kvol_port_cfg_t* port_cfg);
kvo_status_t kvol_config_vport_del(const kvol_t* h, const kvol_port_cfg_t* port_cfg);
void kvol_vport_delete(int idx, const char* pwwn_text);
void kvol_vport_traverse(FILE* stream, int idx);

// ---- Target reset list ----------------------------------------------------------------------------------

// Tables only. A full list (16 pairs) refuses another pair with KVO_STATUS_CNFG_FAILED.
kvo_status_t kvol_config_trs_update(const kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn,
                                    kvo_boolean_t trs_disable_req);
kvo_status_t kvol_config_trs_clear(const kvol_t* h);
void kvol_config_save_trsdata(FILE* stream, int idx);

// ---- Clean-up on a mode change (tables only; the caller wraps each call in load/sync) ----------------

kvo_status_t kvol_conf_port_cleanup(kvol_port_t* port);
kvo_status_t kvol_conf_ad_cleanup(kvol_adapter_t* adapter);
// Zeroes one port record (its vport list freed).
void kvol_config_ioc_zero(int idx);

// ---- Queries on the tables as last loaded ----------------------------------------------------------------

kvo_boolean_t kvol_config_get_ad_name_exists(int idx, const char* name, const char* serial);
kvo_boolean_t kvol_config_get_port_name_exists(int idx, const char* name, int port);
// Cores of the two queries: the adapter known by ad_serial; one IOC.
kvo_boolean_t kvol_config_ad_name_taken(const char* ad_serial, const char* name,
                                        const char* serial);
kvo_boolean_t kvol_config_ioc_name_matches(const kvol_t* ioc, const char* name);
