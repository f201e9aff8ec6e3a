#pragma once
// Request records shared byte for byte with the storage (kvo) and Ethernet (tqe) drivers.
// Every record starts with the status the driver writes back; most continue with the driver
// instance (kvod_num) and a 16-bit PCI function or reserved word. The size of each record is
// the size carried in its request code: both sides rely on it.
#include <cstddef>
#include <cstdint>

#include "kvo_defs.h"
#include "kvo_ioctl_codes.h"
#include "kvo_status.h"

#define KVO_ASSERT_CODE_SIZE(code, rec) static_assert(kvo_ioc_size(code) == sizeof(rec), #code)

// Requests that carry nothing but the instance: enable, disable, reload, option ROM on/off.
struct kvo_gen_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t rsvd;
};
typedef kvo_gen_s kvo_gen_t;
static_assert(sizeof(kvo_gen_t) == 8);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_IOC_ENABLE, kvo_gen_t);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_IOC_DISABLE, kvo_gen_t);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_ADAPTER_RELOAD_FW, kvo_gen_t);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_FLASH_ENABLE_OPTROM, kvo_gen_t);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_FLASH_DISABLE_OPTROM, kvo_gen_t);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_IOC_CHECK_VERSION, kvo_gen_t);

// IOC information: the identity of one PCI function.
struct kvo_ioc_info_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t rsvd;
    char serialnum[64];
    char hwpath[32];          // PCI address of the function
    char adapter_hwpath[32];  // PCI address identifying the adapter
    char guid[128];
    char name[64];
    char port_name[64];
    char eth_name[64];
    wwn_t pwwn;
    wwn_t nwwn;
    wwn_t factorypwwn;
    wwn_t factorynwwn;
    mac_t mac;
    mac_t factory_mac;
    mac_t current_mac;
    uint8_t pad[2];
    uint32_t ioc_type;  // kvo_ioc_type_e
    uint16_t pvid;      // port VLAN id (Ethernet)
    uint16_t rsvd1;
    uint32_t host;  // SCSI host number
    uint32_t bandwidth;
    uint32_t rsvd2;
};
typedef kvo_ioc_info_s kvo_ioc_info_t;
static_assert(sizeof(kvo_ioc_info_t) == 528);
static_assert(offsetof(kvo_ioc_info_t, serialnum) == 8);
static_assert(offsetof(kvo_ioc_info_t, hwpath) == 72);
static_assert(offsetof(kvo_ioc_info_t, adapter_hwpath) == 104);
static_assert(offsetof(kvo_ioc_info_t, guid) == 136);
static_assert(offsetof(kvo_ioc_info_t, name) == 264);
static_assert(offsetof(kvo_ioc_info_t, port_name) == 328);
static_assert(offsetof(kvo_ioc_info_t, eth_name) == 392);
static_assert(offsetof(kvo_ioc_info_t, pwwn) == 456);
static_assert(offsetof(kvo_ioc_info_t, nwwn) == 464);
static_assert(offsetof(kvo_ioc_info_t, factorypwwn) == 472);
static_assert(offsetof(kvo_ioc_info_t, factorynwwn) == 480);
static_assert(offsetof(kvo_ioc_info_t, mac) == 488);
static_assert(offsetof(kvo_ioc_info_t, factory_mac) == 494);
static_assert(offsetof(kvo_ioc_info_t, current_mac) == 500);
static_assert(offsetof(kvo_ioc_info_t, ioc_type) == 508);
static_assert(offsetof(kvo_ioc_info_t, pvid) == 512);
static_assert(offsetof(kvo_ioc_info_t, host) == 516);
static_assert(offsetof(kvo_ioc_info_t, bandwidth) == 520);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_IOC_GET_INFO, kvo_ioc_info_t);

// IOC attributes: the adapter, its PCI identity and the function's state.
// Text fields are NUL-terminated by the driver when they fit; readers copy them bounded.
struct kvo_adapter_attr_s {
    char manufacturer[64];
    char serial_num[12];
    char model[16];        // short model name, e.g. "TV-1862"
    char model_descr[128]; // one-line description
    char adapter_type[32]; // "FC", "CNA", ...
    char hw_ver[64];
    char fw_ver[64];
    char optrom_ver[64];   // boot code version
    char bios_ver[64];
    uint32_t card_type;    // numeric model, e.g. 1862
    uint32_t mode;         // kvo_mode_t
    uint32_t max_speed;    // kvo_port_speed_t
    uint8_t nports;        // physical ports of the card
    uint8_t cna_capable;
    uint8_t trunk_capable;
    uint8_t optrom_enabled;
    uint8_t is_mezz;
    uint8_t asic_rev;
    uint8_t prototype;
    uint8_t rsvd;
    wwn_t pwwn;            // factory WWNs of port 0
    wwn_t nwwn;
    mac_t mac;             // factory MAC of port 0
    uint8_t rsvd2[2];
};
static_assert(sizeof(kvo_adapter_attr_s) == 552);

struct kvo_pci_attr_s {
    uint16_t vendor_id;
    uint16_t device_id;
    uint16_t ssid;         // subsystem device id
    uint16_t ssvid;        // subsystem vendor id
    uint32_t pcifn;
    uint8_t pcie_gen;
    uint8_t pcie_lanes;
    uint8_t pcie_lanes_orig;
    uint8_t rsvd;
    char chip_rev[8];
};
static_assert(sizeof(kvo_pci_attr_s) == 24);

struct kvo_ioc_attr_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t rsvd;
    uint32_t ioc_type;   // kvo_ioc_type_e
    uint32_t state;      // kvo_ioc_state_e; 6 is operational
    uint32_t port_id;    // physical port the function belongs to
    uint32_t port_mode;  // kvo_mode_t of the port
    wwn_t pwwn;
    wwn_t nwwn;
    mac_t mac;
    uint8_t rsvd1[2];
    uint32_t bandwidth;  // share of the port, percent
    kvo_adapter_attr_s adapter_attr;
    kvo_pci_attr_s pci_attr;
    char driver_ver[64];
    char fw_ver[64];
    char optrom_ver[64];
    uint8_t rsvd3[808];
};
typedef kvo_ioc_attr_s kvo_ioc_attr_t;
static_assert(offsetof(kvo_ioc_attr_t, adapter_attr) == 56);
static_assert(offsetof(kvo_ioc_attr_t, pci_attr) == 608);
static_assert(sizeof(kvo_ioc_attr_t) == 1632);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_IOC_GET_ATTR, kvo_ioc_attr_t);

// Adapter or port name.
struct kvo_name_req_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t rsvd;
    char name[64];
};
typedef kvo_name_req_s kvo_name_req_t;
static_assert(sizeof(kvo_name_req_t) == 72);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_ADAPTER_SET_NAME, kvo_name_req_t);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_IOC_SET_NAME, kvo_name_req_t);

// Adapter personality.
struct kvo_adapter_cfg_mode_s {
    uint16_t max_pf;
    uint16_t max_vf;
    uint32_t mode;  // kvo_mode_t
};
typedef kvo_adapter_cfg_mode_s kvo_adapter_cfg_mode_t;
struct kvo_adapter_cfg_mode_req_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t force;  // 1: the driver also resets the settings kept on the adapter
    kvo_adapter_cfg_mode_t cfg;
};
typedef kvo_adapter_cfg_mode_req_s kvo_adapter_cfg_mode_req_t;
static_assert(sizeof(kvo_adapter_cfg_mode_req_t) == 16);
static_assert(offsetof(kvo_adapter_cfg_mode_req_t, cfg) == 8);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_ADAPTER_CFG_MODE, kvo_adapter_cfg_mode_req_t);

// Flash partition table.
constexpr int KVO_FLASH_PART_MAX = 32;
struct kvo_flash_part_attr_s {
    uint32_t part_type;  // kvo_flash_part_type_e
    uint32_t part_instance;
    uint32_t part_off;   // byte offset in the flash device
    uint32_t part_size;
    uint32_t part_len;   // bytes in use
    uint32_t part_status;  // names in kvol_flash_status_to_string
    uint32_t rsvd[2];
};
static_assert(sizeof(kvo_flash_part_attr_s) == 32);
struct kvo_flash_attr_s {
    uint32_t status;
    uint32_t npart;
    kvo_flash_part_attr_s part[KVO_FLASH_PART_MAX];
};
struct kvo_flash_attr_req_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t rsvd;
    kvo_flash_attr_s attr;
};
typedef kvo_flash_attr_req_s kvo_flash_attr_req_t;
static_assert(offsetof(kvo_flash_attr_req_t, attr) == 8);
static_assert(sizeof(kvo_flash_attr_req_t) == 1040);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_FLASH_GET_ATTR, kvo_flash_attr_req_t);

// Flash partition erase, write and read. The data buffer is in the caller's memory; the
// driver transfers bufsz bytes from the start of the partition.
struct kvo_flash_req_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t instance;  // partition instance
    uint32_t type;      // partition type
    uint32_t bufsz;
    uint64_t buf_ptr;
};
typedef kvo_flash_req_s kvo_flash_req_t;
static_assert(sizeof(kvo_flash_req_t) == 24);
static_assert(offsetof(kvo_flash_req_t, type) == 8);
static_assert(offsetof(kvo_flash_req_t, bufsz) == 12);
static_assert(offsetof(kvo_flash_req_t, buf_ptr) == 16);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_FLASH_ERASE_PART, kvo_flash_req_t);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_FLASH_UPDATE_PART, kvo_flash_req_t);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_FLASH_READ_PART, kvo_flash_req_t);

// bsg vendor request, laid out as the FC transport's packed request header.
constexpr uint32_t KVO_BSG_HST_VENDOR = 0x800000FF;
constexpr uint32_t KVO_BSG_REQUEST_LEN = 32;  // declared length; only the first 20 bytes are set
struct __attribute__((packed)) kvo_bsg_vendor_req_s {
    uint32_t msgcode;
    uint64_t vendor_id;
    uint32_t vendor_cmd[2];
};
static_assert(sizeof(kvo_bsg_vendor_req_s) == 20);
static_assert(offsetof(kvo_bsg_vendor_req_s, vendor_id) == 4);
static_assert(offsetof(kvo_bsg_vendor_req_s, vendor_cmd) == 12);

// The reply a bsg vendor request returns in its response buffer.
struct kvo_bsg_reply_s {
    uint32_t result;
    uint32_t reply_payload_rcv_len;
};

// Ethernet flash through ethtool.
struct kvol_ethtool_flash {
    uint32_t cmd;
    uint32_t region;
    char data[128];
};
constexpr uint32_t KVO_ETHTOOL_FLASHDEV = 51;
constexpr uint32_t KVO_ETHTOOL_GEEPROM = 11;
constexpr uint32_t KVO_ETHTOOL_SEEPROM = 12;

// The SCSI address (host, bus, target) under which the OS sees a remote port.
struct kvo_rport_scsi_addr_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t vf_id;
    wwn_t pwwn;   // local (logical) port
    wwn_t rpwwn;  // remote port
    uint32_t host;
    uint32_t bus;
    uint32_t target;
    uint32_t lun;
};
typedef kvo_rport_scsi_addr_s kvo_rport_scsi_addr_t;
static_assert(sizeof(kvo_rport_scsi_addr_t) == 40);
static_assert(offsetof(kvo_rport_scsi_addr_t, pwwn) == 8);
static_assert(offsetof(kvo_rport_scsi_addr_t, host) == 24);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_RPORT_GET_SCSI_ADDRESS, kvo_rport_scsi_addr_t);

// SCSI pass-through. The library serves it with one SCSI generic request on the handle's
// sg_fd; the record travels with iosz spare bytes behind it.
struct scsi_cdb_s {
    uint8_t scsi_cdb[16];
};
typedef scsi_cdb_s scsi_cdb_t;
struct kvo_ioctl_scsi_s {
    uint32_t status;  // 0 when the host adapter and the mid-layer reported no error, else 1
    uint16_t kvod_num;
    uint16_t vf_id;
    wwn_t lpwwn;
    wwn_t rpwwn;
    lun_t lun;        // wire order
    scsi_cdb_t cdb;
    int32_t write;
    uint32_t iosz;
    uint8_t rsvd1[3];
    uint8_t scsi_status;
    uint32_t snssz;
    uint64_t iobuf_ptr;
    uint64_t snsbuf_pt;
};
typedef kvo_ioctl_scsi_s kvo_ioctl_scsi_t;
static_assert(sizeof(kvo_ioctl_scsi_t) == 80);
static_assert(offsetof(kvo_ioctl_scsi_t, lun) == 24);
static_assert(offsetof(kvo_ioctl_scsi_t, cdb) == 32);
static_assert(offsetof(kvo_ioctl_scsi_t, write) == 48);
static_assert(offsetof(kvo_ioctl_scsi_t, iosz) == 52);
static_assert(offsetof(kvo_ioctl_scsi_t, scsi_status) == 59);
static_assert(offsetof(kvo_ioctl_scsi_t, snssz) == 60);
static_assert(offsetof(kvo_ioctl_scsi_t, iobuf_ptr) == 64);
static_assert(offsetof(kvo_ioctl_scsi_t, snsbuf_pt) == 72);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_SCSI_PASSTHRU, kvo_ioctl_scsi_t);

// FC pass-through of one ELS or CT frame; the response lands in rspbuf_ptr.
struct kvo_ioctl_fcpt_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t vf_id;
    wwn_t lpwwn;
    wwn_t dpwwn;    // remote port; 0 for a frame to a fabric service
    uint32_t tsecs; // time-out, seconds
    int32_t cts;    // 1: CT rather than ELS
    uint32_t cos;
    uint32_t rsvd;
    uint8_t fchs[24];  // FC frame header
    int32_t nport_nexus_needed;  // 1 when dpwwn is not 0
    uint32_t reqsz;
    uint32_t rspsz;  // in: room; out: bytes received
    uint32_t rsvd1;
    uint64_t reqbuf_ptr;
    uint64_t rspbuf_ptr;
};
typedef kvo_ioctl_fcpt_s kvo_ioctl_fcpt_t;
static_assert(sizeof(kvo_ioctl_fcpt_t) == 96);
static_assert(offsetof(kvo_ioctl_fcpt_t, tsecs) == 24);
static_assert(offsetof(kvo_ioctl_fcpt_t, fchs) == 40);
static_assert(offsetof(kvo_ioctl_fcpt_t, nport_nexus_needed) == 64);
static_assert(offsetof(kvo_ioctl_fcpt_t, reqbuf_ptr) == 80);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_FCPT, kvo_ioctl_fcpt_t);

// FC transport bsg message codes of pass-through frames, and the frame types the library sends.
constexpr uint32_t KVO_BSG_RPT_ELS = 0x40000001;
constexpr uint32_t KVO_BSG_RPT_CT = 0x40000002;
constexpr uint32_t KVO_BSG_HST_ELS_NOLOGIN = 0x80000003;
constexpr uint32_t KVO_BSG_HST_CT = 0x80000004;
constexpr uint8_t KVO_FC_TYPE_ELS = 0x01;
constexpr uint8_t KVO_FC_TYPE_CT = 0x20;
