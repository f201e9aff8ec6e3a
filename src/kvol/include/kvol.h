#pragma once
// The adapter access library: discovery, handles, the driver channel, status codes and names,
// and the operations on adapters and IOCs. Nothing here prints except where stated.
//
// Return conventions: an operation returns its kvo_status_t (KVO_STATUS_OK on success); a
// call that returns a count or a handle reports why it failed through the per-thread
// last-status cell (kvol_get_last_error). The records below are the library's: callers read
// them through the getters and never touch a handle's descriptors.
#include <pthread.h>

#include <cstddef>
#include <cstdint>

#include "kvo_defs.h"
#include "kvo_fcpim.h"
#include "kvo_ioctl.h"
#include "kvo_lunmask.h"
#include "kvo_rport.h"
#include "kvo_status.h"
#include "kvol_stats.h"

// ---- Handles and the adapter tree -------------------------------------------------------------

// One IOC (PCI function of either driver). The record is the handle every operation takes.
struct kvol_s {
    int fd;       // FC: opened per request; Ethernet: the shared Ethernet node descriptor
    int sg_fd;    // SCSI generic / FC pass-through descriptor
    uint32_t host;  // SCSI host number (FC)
    int ipfc_fd;  // IP over FC node, -1 when absent
    int instance; // driver instance (kvod_num)
    int port_num; // physical port of the adapter
    char devpath[256];
    char ioc_hwpath[32];
    char adapter_hwpath[32];
    char serialnum[12];
    char name[64];
    char port_name[64];
    char eth_name[64];
    char friendlyName[256];
    wwn_t pwwn, nwwn, factorypwwn, factorynwwn;
    int id;       // global IOC index
    int pcifn_id; // PCI function number
    int ad_id;    // owning adapter
    mac_t mac, factory_mac, current_mac;
    kvo_ioc_type_e ioc_type;
    uint16_t vendor_id, device_id;
    kvol_s* next;
};
typedef kvol_s kvol_t;

struct kvol_port_s {
    int id;  // port number
    wwn_t factorypwwn, factorynwwn;
    mac_t factory_mac;
    uint8_t rsvd[2];
    kvo_ioc_type_e ioc_type;
    int ioc_count;
    kvol_t* fcioc_list;   // FC/FCoE IOCs of the port, in IOC list order
    kvol_t* ethioc_list;  // Ethernet IOCs of the port
    kvol_port_s* next;
};
typedef kvol_port_s kvol_port_t;

struct kvol_adapter_s {
    char serial_num[12];
    char name[64];
    char model_descr[128];
    char adapter_hwpath[32];
    char adapter_type[32];
    int id;  // from 1
    bool cna_capable;
    bool trunk_capable;
    int port_count;
    kvol_port_t* port_list;
    kvol_adapter_s* next;
};
typedef kvol_adapter_s kvol_adapter_t;

// ---- Status codes and names --------------------------------------------------------------------

// The message of a status (every message ends in one blank); "Unknown Failure" out of range.
const char* kvol_status_to_string(int status);
// Sets the calling thread's last-status cell.
void kvol_set_last_error(kvo_status_t status);
// The calling thread's last status: why the last count- or handle-returning call failed.
kvo_status_t kvol_get_last_error();

struct kvo_state_t {
    uint32_t code;
    const char* str;
};
constexpr uint32_t KVO_STATE_END = 0xFFFFFFFF;

// Each returns the name of a code in its table, or the table's text for an unknown code.
const char* kvol_flash_status_to_string(uint32_t code);
const char* kvol_flash_part_type_to_string(uint32_t code);
const char* kvol_ioc_state_to_string(uint32_t code);
const char* kvol_faa_state_to_string(uint32_t code);
const char* kvol_faa_source_to_string(uint32_t code);
const char* kvol_port_states_to_string(uint32_t code);
const char* kvol_qos_state_to_string(uint32_t code);
const char* kvol_qos_priority_to_string(uint32_t code);
const char* kvol_port_speed_to_string(uint32_t code);
const char* kvol_port_type_to_string(uint32_t code);
const char* kvol_port_topology_to_string(uint32_t code);
const char* kvol_rport_state_to_string(uint32_t code);
const char* kvol_itnim_state_to_string(uint32_t code);
const char* kvol_auth_status_to_string(uint32_t code);
const char* kvol_auth_algo_to_string(uint32_t code);
const char* kvol_auth_group_to_string(uint32_t code);
const char* kvol_auth_rej_code_to_string(uint32_t code);
const char* kvol_auth_rej_code_exp_to_string(uint32_t code);
const char* kvol_vport_state_to_string(uint32_t code);
const char* kvol_log_severity_to_string(uint32_t code);
const char* kvol_ethport_cee_state_to_string(uint32_t code);
const char* kvol_trunk_state_to_string(uint32_t code);
const char* kvol_trunk_link_state_to_string(uint32_t code);
const char* kvol_trunk_link_fctl_to_string(uint32_t code);
const char* kvol_cee_status_to_string(uint32_t code);
const char* kvol_vmq_state_to_string(uint32_t code);
const char* kvol_mode_to_string(uint32_t code);
const char* kvol_lport_role_to_string(uint32_t code);
const char* kvol_bbcr_state_to_string(uint32_t code);
const char* kvol_bbcr_err_reason_to_string(uint32_t code);
const char* kvol_fec_state_to_string(uint32_t code);
const char* kvol_diag_dport_test_status_to_string(uint32_t code);
const char* kvol_diag_dport_test_opmode_to_string(uint32_t code);
const char* kvol_port_linkstate_rsn_to_string(uint32_t code);
// The names of the port log's module and event ids and of the SFP media; the caller
// guarantees the index is in range (mid < 9, eid < 26, media < 6).
const char* kvo_plog_mid_strings(uint32_t mid);
const char* kvo_plog_eid_strings(uint32_t eid);
const char* kvol_get_sfp_media(uint32_t media);
// The byte that makes the sum of the first len bytes of buf zero (mod 256).
uint8_t kvol_checksum_u8(const uint8_t* buf, uint32_t len);

// ---- Library life cycle and discovery -------------------------------------------------------

// Records the caller's application id; returns KVO_STATUS_OK.
kvo_status_t kvol_libinit(int application_id);
// Releases whatever scan is still held.
void kvol_libexit();

// Rebuilds the IOC list; returns the number of IOCs counted (a failed driver scan leaves its
// reason in the last-status cell and adds nothing to the count).
int kvol_ioc_scan();
// Frees the IOC list and sets the count to 0.
void kvol_ioc_free();
// The IOC count of the last scan, and the head of its list (null when empty).
int kvol_ioc_get_num();
kvol_t* kvol_ioc_get_list();
// Rescans and rebuilds the adapter tree; returns the adapter count, or -1 when a query failed
// (its status in the last-status cell).
int kvol_adapter_scan();
// Frees the adapter tree and the IOC list behind it.
void kvol_adapter_free();

// The IOC whose global index is index, or null when out of range. Opens nothing.
kvol_t* kvol_adapter_open_ioc(int index);
// Does nothing: the scan owns the records and their descriptors.
void kvol_ioc_close(kvol_t* handle);
// Closes every descriptor the IOC records hold (the shared Ethernet one once).
void kvol_ioc_handles_close();

// Getters on a handle; each returns its field.
int kvol_ioc_get_instance(const kvol_t* h);
int kvol_ioc_get_pcifn(const kvol_t* h);
int kvol_ioc_get_adapter_id(const kvol_t* h);
int kvol_ioc_get_index(const kvol_t* h);
int kvol_ioc_get_port_id(const kvol_t* h);
kvo_ioc_type_e kvol_ioc_get_ioc_type(const kvol_t* h);
// True for the storage driver's functions (FC and FCoE), false for Ethernet ones.
bool kvol_is_storage_ioc(const kvol_t* h);
const char* kvol_ioc_get_name(const kvol_t* h);
const char* kvol_ioc_get_sn(const kvol_t* h);
wwn_t kvol_ioc_get_pwwn(const kvol_t* h);
wwn_t kvol_ioc_get_nwwn(const kvol_t* h);
mac_t kvol_ioc_get_mac(const kvol_t* h);
mac_t kvol_ioc_get_factory_mac(const kvol_t* h);
mac_t kvol_ioc_get_current_mac(const kvol_t* h);
const char* kvol_ioc_get_eth_name(const kvol_t* h);
int kvol_get_unix_fd(const kvol_t* h);
// Copies fd from one record to another.
void kvol_update_file_handle(kvol_t* dst, const kvol_t* src);
// Copies the three paths; each output buffer must hold its field (256, 32, 32 bytes).
void kvol_ioc_get_path(const kvol_t* h, char* devpath, char* ioc_hwpath, char* adapter_hwpath);
// The global index of the IOC with the handle's PCI address; -1 when the list has none.
int kvol_ioc_get_global_index(const kvol_t* h);
// The first IOC whose interface name is name, or null.
kvol_t* kvol_ioc_get_by_eth_name(const char* name);
// The driver instance of the first storage IOC with that port WWN; -1 when none.
int kvol_ioc_get_inst_num_by_pwwn(wwn_t wwn);
// Formats seconds as local "%x %X" into buf (at most size - 1 bytes); 0, or 1 when nothing
// could be formatted.
int kvol_get_time_string(long seconds, char* buf, size_t size);
// *flag = 1 when the IOC is operational, else 0; the attribute query's status, or
// KVO_STATUS_FAILED for a null handle.
kvo_status_t kvol_ioc_is_operational(kvol_t* h, int* flag);
// Replaces a non-operational IOC by the first operational IOC of its port; always
// KVO_STATUS_OK (the handle is left alone when nothing better is found).
kvo_status_t kvol_ioc_get_operational_pf(kvol_t** h);
// "/etc/kvo.conf", the persistent configuration file.
const char* kvol_get_cfg_path();
// Lock and unlock a process mutex (null is ignored).
void kvol_get_mutex_lock(pthread_mutex_t* m);
void kvol_release_mutex_lock(pthread_mutex_t* m);

// List items come from calloc/malloc: kvol_list_free releases them with free(). Freeing an
// adapter list also frees its ports, and a port list the IOC records held by its ports.
enum kvol_list_kind { KVOL_LIST_IOC = 0, KVOL_LIST_ADAPTER = 1, KVOL_LIST_PORT = 2 };
// Appends item at the tail of the list of that kind.
void kvol_list_append(void** head, void* item, int kind);
// The first item whose id is id, or null.
void* kvol_list_find(void* head, int id, int kind);
// Frees every item and empties the list.
void kvol_list_free(void** head, int kind);

// ---- Adapter tree lookups -------------------------------------------------------------------

// The number of adapters of the last scan.
int kvol_adapter_get_count();
// The adapter with that 1-based index; null when out of range.
kvol_adapter_t* kvol_adapter_get_by_idx(int idx);
// The first adapter whose serial number, name or hardware path is word; null when none.
kvol_adapter_t* kvol_adapter_get_by_str(const char* word);
// The adapter's port with that number; null when it has none.
kvol_port_t* kvol_adapter_get_port(kvol_adapter_t* ad, int port);
// One more than the highest port number seen; -1 for a null adapter.
int kvol_adapter_get_port_count(const kvol_adapter_t* ad);
// The card's physical port count as the firmware reports it; -1 when it cannot be read.
int kvol_adapter_get_hw_port_count(kvol_adapter_t* ad);
// The adapter's control function, the first IOC of port 0; null when there is none.
kvol_t* kvol_adapter_get_first_ioc(kvol_adapter_t* ad);
// The storage IOC whose port or node WWN is wwn; null when none.
kvol_t* kvol_adapter_get_ioc_by_wwn(wwn_t wwn);
// The IOC whose hardware path, name or serial number is word; null when none.
kvol_t* kvol_adapter_get_ioc_by_str(const char* word);
// The port's IOC with that PCI function number; null when none.
kvol_t* kvol_port_get_ioc_by_pcifn(kvol_port_t* port, int pcifn);
// The port's first storage IOC, first Ethernet IOC, or first IOC of either; null when none.
kvol_t* kvol_port_get_first_fcioc(kvol_port_t* port);
kvol_t* kvol_port_get_first_ethioc(kvol_port_t* port);
kvol_t* kvol_port_get_first_ioc(kvol_port_t* port);
// The port's IOC after h (storage IOCs, then Ethernet ones); the first when h is null, null
// after the last.
kvol_t* kvol_port_next_ioc(kvol_port_t* port, const kvol_t* h);
// Getters on an adapter; each returns its field (text fields may fill their whole size).
int kvol_adapter_get_id(const kvol_adapter_t* ad);
const char* kvol_adapter_get_serial_num(const kvol_adapter_t* ad);
const char* kvol_adapter_get_model(const kvol_adapter_t* ad);
const char* kvol_adapter_get_hw_path(const kvol_adapter_t* ad);
const char* kvol_adapter_get_type(const kvol_adapter_t* ad);
const char* kvol_adapter_get_name(const kvol_adapter_t* ad);

// ---- Driver command channel -----------------------------------------------------------------

// Sends one request record. KVO_STATUS_OK means the request reached the driver, whose verdict
// is then in the record's status; otherwise the channel's failure. in_len and out_len are not
// used on this platform (the record travels whole, buf_len bytes; 0 means the largest record).
kvo_status_t kvol_ioctl(kvol_t* h, uint32_t cmd, void* rec, size_t in_len, size_t out_len,
                        size_t buf_len);
// kvol_ioctl from a private copy of len bytes, copied back whatever the outcome; its result.
kvo_status_t kvol_ioctl_nomask(kvol_t* h, uint32_t cmd, void* rec, size_t len);
// A plain request on the IP-over-FC node; KVO_STATUS_OK or the mapped errno.
kvo_status_t kvol_ioctl_ipfc(kvol_t* h, uint32_t cmd, void* rec);
// Replaces a code by the driver's bsg vendor command number; 0 when mapped or passed
// unchanged, 1 when the bsg interface does not know it.
int kvol_map_opensrc_iocmd_codes(uint32_t* cmd);
// The status of a failed system call's errno.
kvo_status_t kvol_errno_to_status(int err);
// FC pass-through of one ELS or CT frame; the response in rsp and its length in *rsp_len.
// The channel's failure, or the status of the exchange.
kvo_status_t kvol_fcpt(kvol_t* h, uint16_t vf_id, wwn_t lwwn, wwn_t rwwn, uint32_t cos,
                       uint32_t timeout, uint32_t count, const uint8_t* fchdr, void* req,
                       uint32_t req_len, void* rsp, uint32_t* rsp_len);
// Flash write or read of an Ethernet function over ethtool: 0 when sent (the outcome is not
// reported back), a status when the partition table cannot be read or the firmware file
// cannot be staged, -12 when the transfer buffer cannot be allocated.
int kvol_send_flash_ethtool_cmd(kvol_t* h, uint32_t cmd, kvo_flash_req_t* rec);

// ---- IOC and adapter operations ---------------------------------------------------------------
// Each returns the channel's failure or the driver's status, KVO_STATUS_OK on success.

// The function's identity (serial, PCI addresses, names, WWNs, MACs, type, SCSI host).
kvo_status_t kvol_ioc_get_info(kvol_t* h, kvo_ioc_info_t* info);
// The function's attributes: state, port, adapter and PCI attributes, versions.
kvo_status_t kvol_ioc_get_attr(kvol_t* h, kvo_ioc_attr_t* attr);
kvo_status_t kvol_ioc_enable(kvol_t* h);
kvo_status_t kvol_ioc_disable(kvol_t* h);
// Re-reads the adapter's serial number and name through h.
kvo_status_t kvol_adapter_update_ioc(kvol_adapter_t* ad, kvol_t* h);
// True when another adapter of the scan already carries this name in the configuration file.
bool kvol_adapter_name_in_use(const kvol_adapter_t* ad, const char* name);
// Names the adapter in the driver and persists the name ("" clears it).
kvo_status_t kvol_adapter_set_name(kvol_adapter_t* ad, const char* name);
// *disabled is true when every IOC of the adapter is disabled.
kvo_status_t kvol_adapter_is_disabled(kvol_adapter_t* ad, bool* disabled);
// KVO_STATUS_IOC_ENABLED when nothing had to change.
kvo_status_t kvol_adapter_enable(kvol_adapter_t* ad);
kvo_status_t kvol_adapter_disable(kvol_adapter_t* ad);
// Changes the personality; force: the driver also resets the settings kept on the adapter
// (the -f of the mode command). The adapter's persisted settings are dropped on success.
kvo_status_t kvol_adapter_cfg_mode(kvol_adapter_t* ad, const kvo_adapter_cfg_mode_t* cfg,
                                   bool force = false);
kvo_status_t kvol_adapter_reload_fw(kvol_adapter_t* ad);
// The partition table (its count clipped to the table's capacity).
kvo_status_t kvol_flash_get_attr(kvol_t* h, kvo_flash_attr_s* attr);
// Whole-partition transfers from the start of partition (type, instance).
kvo_status_t kvol_flash_read_part(kvol_t* h, uint32_t type, uint32_t instance, void* buf,
                                  uint32_t len);
kvo_status_t kvol_flash_update_part(kvol_t* h, uint32_t type, uint32_t instance,
                                    const void* buf, uint32_t len);
kvo_status_t kvol_flash_erase_part(kvol_t* h, uint32_t type, uint32_t instance);
kvo_status_t kvol_flash_enable_optrom(kvol_t* h);
kvo_status_t kvol_flash_disable_optrom(kvol_t* h);
// The first partition of a type in a table read by kvol_flash_get_attr; null if none.
const kvo_flash_part_attr_s* kvol_flash_find_part(const kvo_flash_attr_s* attr, uint32_t type);

// ---- Boot code update -------------------------------------------------------------------------

// Adapters one update handles at most (one thread each).
constexpr int KVOL_BOOT_MAX_ADAPTERS = 16;
// Writes the boot code package at path into the flash of the adapter of ioc, or of every
// adapter of the scan when ioc is null (one thread per adapter: bit i of *mask is set when
// adapter i + 1 succeeded, statuses[i] is its status). A non-zero devid is only checked
// (KVO_STATUS_INVALID_DEVID unless 0x13, 0x14, 0x17 or 0x21) and nothing is written. Returns
// the update's status; when the package cannot be used, or with a non-zero devid, every entry
// of statuses is set to it. In the all-adapter form a completed run returns KVO_STATUS_OK and
// the per-adapter results are in mask and statuses.
kvo_status_t kvol_boot_fwupdate(kvol_t* ioc, const char* path, uint16_t devid, uint16_t* mask,
                                kvo_status_t (&statuses)[KVOL_BOOT_MAX_ADAPTERS]);
// Asks a running kvol_boot_fwupdate to write nothing more: each adapter's update ends after the
// request in progress, with KVO_STATUS_BOOT_CODE_TIMEDOUT.
void kvol_boot_cancel();

// ---- Configuration store seams used by discovery (implemented with the store) -------------------

// Registers an adapter serial in the configuration file (one transaction; statuses ignored).
void kvol_config_register_adapter(const char* serial);
// Registers an IOC by port WWN (FC/FCoE) or MAC (Ethernet) (one transaction).
void kvol_config_register_ioc(const kvol_t* h);
// Applies the IOC's persisted names from the configuration file to the record.
void kvol_config_merge_ioc(kvol_t* h);

// ---- Logical and remote ports ----------------------------------------------------------------
// Each returns the channel's failure or the driver's status; outputs are written only on success.

// The logical ports of the function on fabric vf_id: at most `room` WWNs copied into lports,
// *total set to the number the driver has (which may exceed room).
kvo_status_t kvol_fabric_get_lports(kvol_t* h, uint16_t vf_id, wwn_t* lports, uint32_t room,
                                    uint32_t* total);
// The remote ports of the logical port lpwwn, as kvol_fabric_get_lports.
kvo_status_t kvol_lport_get_rports(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t* rports,
                                   uint32_t room, uint32_t* total);
// The attributes of the remote port rpwwn seen from the logical port lpwwn.
kvo_status_t kvol_rport_get_attr(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn,
                                 kvo_rport_attr_s* attr);
// The SCSI host, bus and target of a remote port seen from the local port lpwwn.
kvo_status_t kvol_rport_get_scsi_address(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn,
                                         uint32_t* host, uint32_t* bus, uint32_t* target);

// ---- SCSI pass-through, LUN lists and OS device names ------------------------------------------
// A command goes to the LUN through the host's SCSI generic node for it (opened for the command
// and closed after it); the nexus (lpwwn, rpwwn) must be online. The command calls share one
// argument list: the CDB (zeroed by the caller; the call sets its command's bytes), the data
// buffer and its length, the SCSI status and the sense buffer with its length (in: the
// buffer's size; out: the length the channel reports). Each returns the preparation's failure
// (KVO_STATUS_NO_FCPIM_NEXUS for a nexus that is not online, KVO_STATUS_FAILED when the LUN has
// no node or it will not open), the channel's failure, or else 0 when the host adapter and the
// mid-layer reported no error and 1 (KVO_STATUS_FAILED) when they did, as on a CHECK CONDITION.

// The common sender: the CDB as given. REPORT LUNS data that comes back GOOD is filtered through
// the port's LUN mask while masking is enabled.
kvo_status_t kvol_scsi_cmnd(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn, lun_t lun,
                            scsi_cdb_t* cdb, int write, void* buf, uint32_t len,
                            uint8_t* scsi_status, void* sense, uint32_t* sense_len);
// INQUIRY (standard data, allocation length len), READ CAPACITY(10) (len at least 8), READ
// CAPACITY(16) (allocation length len), TEST UNIT READY (no data: buf and len are not used) and
// READ(10) of 8 blocks from LBA 0 into buf.
kvo_status_t kvol_scsi_inquiry(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn, lun_t lun,
                               scsi_cdb_t* cdb, int write, void* buf, uint32_t len,
                               uint8_t* scsi_status, void* sense, uint32_t* sense_len);
kvo_status_t kvol_scsi_readcapacity(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn, lun_t lun,
                                    scsi_cdb_t* cdb, int write, void* buf, uint32_t len,
                                    uint8_t* scsi_status, void* sense, uint32_t* sense_len);
kvo_status_t kvol_scsi_readcapacity16(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn,
                                      lun_t lun, scsi_cdb_t* cdb, int write, void* buf,
                                      uint32_t len, uint8_t* scsi_status, void* sense,
                                      uint32_t* sense_len);
kvo_status_t kvol_scsi_testunitready(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn,
                                     lun_t lun, scsi_cdb_t* cdb, int write, void* buf,
                                     uint32_t len, uint8_t* scsi_status, void* sense,
                                     uint32_t* sense_len);
kvo_status_t kvol_scsi_read10(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn, lun_t lun,
                              scsi_cdb_t* cdb, int write, void* buf, uint32_t len,
                              uint8_t* scsi_status, void* sense, uint32_t* sense_len);
// REPORT LUNS (select report 0) into a buffer the call allocates: first with room for 101 LUNs;
// when the list is longer, once more with room for the whole list as the first answer gave it.
// On KVO_STATUS_OK *buf is the data (the caller frees it with free()) and *len its size; on any
// other result *buf is null. KVO_STATUS_ENOMEM when a buffer cannot be had.
constexpr uint32_t KVOL_SCSI_RPL_FIRST_LEN = 816;
kvo_status_t kvol_scsi_reportluns(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn, lun_t lun,
                                  scsi_cdb_t* cdb, int write, uint8_t** buf, uint32_t* len,
                                  uint8_t* scsi_status, void* sense, uint32_t* sense_len);
// The number of LUN entries of REPORT LUNS data that its list length announces and that its
// size bytes really hold (0 for less than the 8-byte header).
uint32_t kvol_scsi_rpl_count(const uint8_t* data, uint32_t size);
// Filters REPORT LUNS data through the port's LUN mask when masking is enabled and the whole
// list is in the buffer: LUN 0 and the LUNs masked in for (lpwwn, rpwwn) stay. 1 when the data
// was rewritten, else 0.
int kvol_scsi_lm_modify_rpl_payload(kvol_t* h, wwn_t lpwwn, wwn_t rpwwn, void* data,
                                    uint32_t size);
// The LUNs the target rpwwn reports (REPORT LUNS to its LUN 0, base fabric): at most
// KVOL_FCPIM_MAX_LUNS copied into luns and their number into *count. The preparation's or the
// command's failure; a status other than GOOD is KVO_STATUS_OK with nothing copied and *count
// untouched.
constexpr uint32_t KVOL_FCPIM_MAX_LUNS = 1024;
kvo_status_t kvol_fcpim_get_luns(kvol_t* h, wwn_t lpwwn, wwn_t rpwwn,
                                 lun_t (&luns)[KVOL_FCPIM_MAX_LUNS], uint32_t* count);
// The OS device path of the SCSI device host:bus:target:lun (the kernel's LUN number), such as
// /dev/sdb or /dev/st0, written into names[0]; *count is set to 1 (names[0] is left alone when
// there is none). KVO_STATUS_OK, or KVO_STATUS_FAILED when the device has no disk or tape child.
constexpr size_t KVOL_OSNAME_LEN = 64;
kvo_status_t kvol_get_osname(int host, int bus, int target, int lun, char (*names)[KVOL_OSNAME_LEN],
                             uint32_t* count);

// ---- LUN masking ---------------------------------------------------------------------------------

// The port's mask table: on success all of the driver's record is copied to *out.
kvo_status_t kvol_fcpim_lunmask_query(kvol_t* h, kvo_ioctl_fcpim_lunmask_query_t* out);

// ---- FCP initiator: I-T nexuses, path time-out, I/O throttle, target reset list -------------------
// Each returns the channel's failure or the driver's status, KVO_STATUS_OK on success; outputs
// are written only on success. A local port WWN of 0 means the function's own port.

// The attributes of the nexus (lpwwn, rpwwn).
kvo_status_t kvol_itnim_get_attr(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn,
                                 kvo_itnim_attr_s* attr);
// The nexus's statistics and I/O statistics, each with the table that describes it (for
// kvol_print_stats).
kvo_status_t kvol_itnim_get_itnstats(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn,
                                     const kvol_stats_t** table, kvo_itnim_stats_t* stats);
kvo_status_t kvol_itnim_get_iostats(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn,
                                    const kvol_stats_t** table, kvo_itnim_iostats_t* iostats);
// The bytes read plus the bytes written, found by their names in the table; wraps at 32 bits.
uint32_t kvol_itnim_get_iothroughput(const kvol_stats_t* table, const kvo_itnim_iostats_t* iostats);
// The I/O statistics of the whole function (over all its nexuses) and of its logical port
// lpwwn, in the nexus record and with its table (kvol_itnim_get_iothroughput finds their bytes).
kvo_status_t kvol_fcpim_get_modstats(kvol_t* h, uint16_t vf_id, const kvol_stats_t** table,
                                     kvo_itnim_iostats_t* modstats);
kvo_status_t kvol_lport_get_iostats(kvol_t* h, uint16_t vf_id, wwn_t lpwwn,
                                    const kvol_stats_t** table, kvo_itnim_iostats_t* iostats);
// Clears the nexus's statistics.
kvo_status_t kvol_itnim_reset_stats(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn);
// Sets the path time-out (seconds; KVO_STATUS_EINVAL_TOV above 60, with no driver request) and
// persists it; a configuration file that cannot be loaded is the result then.
kvo_status_t kvol_fcpim_fast_failover(kvol_t* h, uint16_t tov);
// The throttle's maximum, current and configured values.
kvo_status_t kvol_fcpim_throttle_query(kvol_t* h, kvo_fcpim_throttle_s* throttle);
// Configures the throttle for the driver's next start.
kvo_status_t kvol_fcpim_throttle_set(kvol_t* h, uint16_t value);
// Takes the nexus off the target reset list (enable) or puts it on (disable), then mirrors the
// change into the configuration file: the file's load failure or the update's status then.
kvo_status_t kvol_itnim_trs_enable(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn);
kvo_status_t kvol_itnim_trs_disable(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn);
kvo_status_t kvol_itnim_trs_en_dis(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn,
                                   bool disable);
// The list: *count entries (at most KVO_TRS_LIST_MAX) copied into entries.
kvo_status_t kvol_itnim_trs_query(kvol_t* h, uint16_t* count,
                                  kvo_trs_list_t (&entries)[KVO_TRS_LIST_MAX]);
// Empties the list in the driver and in the configuration file.
kvo_status_t kvol_itnim_trs_clear(kvol_t* h);
