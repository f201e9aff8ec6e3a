#pragma once
// Linux pieces of the library: owners of system resources, the sysfs parsing of discovery, and
// the framing of the requests that travel as SG_IO (bsg version-4 vendor requests, FC
// pass-through, SCSI generic version-3). The framing and parsing functions make no system
// call, so the unit tests drive them directly.
#include <dirent.h>
#include <linux/bsg.h>
#include <regex.h>
#include <scsi/sg.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "kvol_ioc_priv.h"

constexpr size_t KVOL_IOCTL_DEFAULT_LEN = 4116;  // buf_len 0 means the largest record
constexpr uint32_t KVOL_BSG_TIMEOUT_MS = 60000;
constexpr uint32_t KVOL_SG_TIMEOUT_MS = 30000;
constexpr uint32_t KVOL_ETH_IOC_TYPE = 0x44;     // the Ethernet driver's type byte, 'D'

// ---- Owners of system resources --------------------------------------------------------------

class kvol_fd {
public:
    explicit kvol_fd(int fd = -1) : fd_(fd) {}
    ~kvol_fd() {
        if (fd_ >= 0) close(fd_);
    }
    kvol_fd(const kvol_fd&) = delete;
    kvol_fd& operator=(const kvol_fd&) = delete;
    int get() const { return fd_; }
    void reset(int fd) {
        if (fd_ >= 0) close(fd_);
        fd_ = fd;
    }

private:
    int fd_;
};

struct kvol_dir_closer {
    void operator()(DIR* d) const { closedir(d); }
};
using kvol_dir = std::unique_ptr<DIR, kvol_dir_closer>;

// The outcome of a directory search.
enum class kvol_dir_scan { found, none, unreadable };

// Calls match(name) for the entries of a directory in the order it lists them, and stops at the
// first it accepts. `unreadable` when the directory does not open; `none` also when its name
// maximum cannot be had (a directory the system cannot describe is not searched).
template <class Match>
kvol_dir_scan kvol_dir_find(const char* path, Match&& match) {
    kvol_dir d(opendir(path));
    if (!d) return kvol_dir_scan::unreadable;
    if (pathconf(path, _PC_NAME_MAX) < 0) return kvol_dir_scan::none;
    while (const dirent* e = readdir(d.get()))
        if (match(static_cast<const char*>(e->d_name))) return kvol_dir_scan::found;
    return kvol_dir_scan::none;
}

// Opens a driver node read-write, non-blocking. KVO_STATUS_NO_DRIVER (also left in the
// last-status cell) when it cannot be opened.
kvo_status_t kvol_open_node(const char* path, kvol_fd& out);
bool kvol_node_exists(const char* path);

// ---- Discovery: sysfs --------------------------------------------------------------------------

// One PCI function found in a driver's sysfs directory.
struct kvol_pci_host_map {
    char pci_name[128];  // directory entry name, a PCI address
    int host_num;        // SCSI host number (storage functions)
    int instance;        // driver instance
};

// Compiles the expression that PCI function entries of a driver directory match.
// Returns 0 on success (the caller frees it with regfree).
int kvol_pci_regex_compile(regex_t* re);
// True when a directory entry name matches the compiled expression.
bool kvol_pci_name_matches(const regex_t* re, const char* name);
// The SCSI host number of a function's "host" entry (the digits after its first four
// characters; 0 when there are none), or -1 when the name does not contain "host".
int kvol_sysfs_host_num(const char* entry_name);
// Writes into out the node through which a storage function on SCSI host `host` is reached:
// its bsg node, else its old-style fc_host node, else the driver's control node.
void kvol_fc_devpath(uint32_t host, bool (*exists)(const char* path), char* out, size_t size);

// ---- Transport -----------------------------------------------------------------------------------

// True when a storage function's node is not the driver's control node, so it talks bsg.
bool kvol_devpath_is_bsg(const char* devpath);
// The code of a request as sent to the Ethernet driver: type byte replaced by 'D'.
uint32_t kvol_eth_ioctl_code(uint32_t cmd);
// The EEPROM offset of a partition: a write starts 4 bytes early (for its length word)
// unless the partition starts at 0.
uint32_t kvol_eeprom_offset(uint32_t part_off, bool write);

// The FC transport's request header (fc_bsg_request), packed as the kernel lays it out.
struct __attribute__((packed)) kvol_fc_bsg_request {
    uint32_t msgcode;
    union __attribute__((packed)) {
        struct __attribute__((packed)) {
            uint64_t vendor_id;
            uint32_t vendor_cmd[2];
        } h_vendor;
        struct __attribute__((packed)) {
            uint8_t command_code;
            uint8_t port_id[3];
        } h_els;
        struct __attribute__((packed)) {
            uint8_t reserved;
            uint8_t port_id[3];
            uint32_t preamble_word[3];
        } h_ct;
        struct __attribute__((packed)) {
            uint8_t els_code;
        } r_els;
        struct __attribute__((packed)) {
            uint32_t preamble_word[3];
        } r_ct;
    } rqst_data;
};
static_assert(sizeof(kvol_fc_bsg_request) == 20);

// Frames an FC transport request r: the version-4 header with its guard, protocol, lengths and
// time-out, the 32-byte request buffer holding r, the two transfers as given.
void kvol_bsg_frame(sg_io_v4* hdr, uint8_t (&req)[32], const kvol_fc_bsg_request& r,
                    uint64_t dout, uint32_t dout_len, uint64_t din, uint32_t din_len,
                    kvo_bsg_reply_s* reply);
// Frames a vendor request: header, 32-byte request buffer (20 bytes set), both transfers at
// the record. Returns KVO_STATUS_FAILED when the length cannot be framed, else KVO_STATUS_OK.
kvo_status_t kvol_bsg_vendor_frame(sg_io_v4* hdr, uint8_t (&req)[32], uint32_t vendor_cmd,
                                   void* rec, size_t len, kvo_bsg_reply_s* reply);

// ---- FC pass-through ---------------------------------------------------------------------------

// The message code of a pass-through frame: ELS or CT, to a remote port or to the fabric;
// 0 when the frame type is neither ELS nor CT.
uint32_t kvol_fcpt_msgcode(const kvo_ioctl_fcpt_t* rec);
// Frames a pass-through record; KVO_STATUS_FAILED when the frame type is refused.
kvo_status_t kvol_fcpt_frame(sg_io_v4* hdr, uint8_t (&req)[32], const kvo_ioctl_fcpt_t* rec,
                             kvo_bsg_reply_s* reply);
// Sends a framed pass-through record on h->sg_fd (a bsg node) and folds the transport's result
// into the record's status and response length. The channel's status is returned.
kvo_status_t kvol_fcpt_bsg(kvol_t* h, kvo_ioctl_fcpt_t* rec);

// ---- SCSI generic pass-through -------------------------------------------------------------------

// The version-3 SCSI generic header for a SCSI pass-through record.
void kvol_scsi_sg_hdr(sg_io_hdr_t* hdr, kvo_ioctl_scsi_t* rec);
// Issues the record's CDB on h->sg_fd and closes it, whatever the outcome; the record gets the
// SCSI status and a status of 1 when the host or driver status shows a failure. The channel's
// status is returned.
kvo_status_t kvol_scsi_passthru(kvol_t* h, kvo_ioctl_scsi_t* rec);

constexpr size_t KVOL_SCSI_PATH_LEN = 128;
// The sg node (/dev/sgN) of the SCSI device host:bus:target:lun, from its scsi_generic child
// (or, on older sysfs, its scsi_generic:sgN link). 0 when found, 1 when not.
int kvol_check_sg_node_presence(int host, int bus, int target, int lun,
                                char (&path)[KVOL_SCSI_PATH_LEN]);
// The sg node to reach the LUN: its own, else that of the first other device of the same target
// that has one. 0 when found, 1 when not, 3 when memory runs out.
int kvol_get_rport_lun_sg(int host, int bus, int target, int lun,
                          char (&path)[KVOL_SCSI_PATH_LEN]);
