#pragma once
// Internal pieces of discovery and of the driver channel. They are shared by the library's own
// units and kept free of system calls where possible so that the unit tests can drive them.
#include <linux/bsg.h>
#include <regex.h>
#include <scsi/sg.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "kvol.h"

constexpr int KVOL_MAX_PCI_FN = 128;           // PCI functions one scan records
constexpr size_t KVOL_IOCTL_DEFAULT_LEN = 4116;  // buf_len 0 means the largest record
constexpr uint32_t KVOL_BSG_TIMEOUT_MS = 60000;
constexpr uint32_t KVOL_SG_TIMEOUT_MS = 30000;
constexpr uint32_t KVOL_ETH_IOC_TYPE = 0x44;     // the Ethernet driver's type byte, 'D'
constexpr int KVOL_MAX_PORTS = 128;              // port ids above this are a garbled reply

// One PCI function found in a driver's sysfs directory.
struct kvol_pci_host_map {
    char pci_name[128];  // directory entry name, a PCI address
    int host_num;        // SCSI host number (storage functions)
    int instance;        // driver instance
};

// Zeroed heap record for the library's linked lists (released with free()).
template <class T>
T* kvol_calloc() {
    static_assert(std::is_trivially_copyable_v<T> && std::is_standard_layout_v<T>);
    return static_cast<T*>(std::calloc(1, sizeof(T)));
}

// Copies a possibly unterminated source field of src_size bytes into a fixed field; the result
// is always terminated and cut to the field.
template <size_t N>
void kvol_copy_str(char (&dst)[N], const char* src, size_t src_size) {
    static_assert(N > 0);
    size_t len = (src == nullptr) ? 0 : strnlen(src, src_size);
    if (len > N - 1) len = N - 1;
    if (len > 0) memcpy(dst, src, len);
    dst[len] = '\0';
}

// ---- Discovery helpers -----------------------------------------------------------------------

// Compiles the expression that PCI function entries of a driver directory match.
// Returns 0 on success (the caller frees it with regfree).
int kvol_pci_regex_compile(regex_t* re);
bool kvol_pci_name_matches(const regex_t* re, const char* name);
// The SCSI host number of a function's "host" entry (the digits after its first four
// characters; 0 when there are none), or -1 when the name does not contain "host".
int kvol_sysfs_host_num(const char* entry_name);
// The node through which a storage function on SCSI host `host` is reached: its bsg node,
// else its old-style fc_host node, else the driver's control node.
void kvol_fc_devpath(uint32_t host, bool (*exists)(const char* path), char* out, size_t size);
// The PCI function number: the hex digits after the last '.' of the address, -1 if none.
int kvol_parse_pcifn(const char* hwpath, size_t size);
// Fills an IOC record from the driver's IOC information reply (bounded copies only).
void kvol_ioc_fill_from_info(kvol_t* rec, const kvo_ioc_info_t* info);

// The global IOC list (kept by the scan): append a record, set the count.
void kvol_ioc_list_push(kvol_t* rec);
void kvol_ioc_set_num(int n);

// Adds one IOC to the adapter tree from its attributes and identity: sets its port, PCI
// function, PCI ids and adapter id, and puts a copy of the record into its port's list.
// *added is the adapter made for it, or null when it joined an existing one. Fails with
// KVO_STATUS_ENOMEM, or KVO_STATUS_FAILED when the reply names an impossible port.
kvo_status_t kvol_adapter_tree_add(kvol_t* h, const kvo_ioc_attr_t* attr,
                                   const kvo_ioc_info_t* info, kvol_adapter_t** added);
kvol_adapter_t* kvol_adapter_list_head();

// ---- Channel helpers ---------------------------------------------------------------------------

bool kvol_is_storage_ioc(const kvol_t* h);
// A storage function whose node is not the driver's control node talks bsg.
bool kvol_devpath_is_bsg(const char* devpath);
// The code of a request as sent to the Ethernet driver: type byte replaced by 'D'.
uint32_t kvol_eth_ioctl_code(uint32_t cmd);

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

// Frames a vendor request: header, 32-byte request buffer (20 bytes set), both transfers at
// the record. Returns KVO_STATUS_FAILED when the length cannot be framed.
kvo_status_t kvol_bsg_vendor_frame(sg_io_v4* hdr, uint8_t (&req)[32], uint32_t vendor_cmd,
                                   void* rec, size_t len, kvo_bsg_reply_s* reply);
// The message code of a pass-through frame: ELS or CT, to a remote port or to the fabric;
// 0 when the frame type is neither ELS nor CT.
uint32_t kvol_fcpt_msgcode(const kvo_ioctl_fcpt_t* rec);
// Frames a pass-through record; KVO_STATUS_FAILED when the frame type is refused.
kvo_status_t kvol_fcpt_frame(sg_io_v4* hdr, uint8_t (&req)[32], const kvo_ioctl_fcpt_t* rec,
                             kvo_bsg_reply_s* reply);
// The version-3 SCSI generic header for a SCSI pass-through record.
void kvol_scsi_sg_hdr(sg_io_hdr_t* hdr, kvo_ioctl_scsi_t* rec);
// The EEPROM offset of a partition: a write starts 4 bytes early (for its length word)
// unless the partition starts at 0.
uint32_t kvol_eeprom_offset(uint32_t part_off, bool write);
