#pragma once
// Basic types shared by the library, the front end and the drivers.
#include <cstdint>

typedef uint64_t wwn_t;  // 8 bytes in the order written: the first pair of digits is byte 0
struct mac_t {
    uint8_t mac[6];
};
static_assert(sizeof(mac_t) == 6);
typedef uint64_t lun_t;  // SCSI LUN, 8 bytes in wire order
typedef uint32_t kvo_boolean_t;

enum kvo_ioc_type_e : uint32_t {
    KVO_IOC_TYPE_FC = 1,
    KVO_IOC_TYPE_FCoE = 2,
    KVO_IOC_TYPE_LL = 3,  // Ethernet
};

enum kvo_ioc_state_e : uint32_t {
    KVO_IOC_UNINIT = 1,
    KVO_IOC_RESET = 2,
    KVO_IOC_SEMWAIT = 3,
    KVO_IOC_HWINIT = 4,
    KVO_IOC_GETATTR = 5,
    KVO_IOC_OPERATIONAL = 6,
    KVO_IOC_INITFAIL = 7,
    KVO_IOC_FAIL = 8,
    KVO_IOC_DISABLING = 9,
    KVO_IOC_DISABLED = 10,
    KVO_IOC_FWMISMATCH = 11,
    KVO_IOC_HWFAIL = 13,
    KVO_IOC_ACQ_ADDR = 14,
};

enum kvo_port_speed_t : uint32_t {
    KVO_PORT_SPEED_UNKNOWN = 0,
    KVO_PORT_SPEED_1GBPS = 1,
    KVO_PORT_SPEED_2GBPS = 2,
    KVO_PORT_SPEED_4GBPS = 4,
    KVO_PORT_SPEED_8GBPS = 8,
    KVO_PORT_SPEED_10GBPS = 10,
    KVO_PORT_SPEED_16GBPS = 16,
    KVO_PORT_SPEED_32GBPS = 32,
    KVO_PORT_SPEED_AUTO = 15,
};

enum kvo_port_topology_t : uint32_t {
    KVO_PORT_TOPOLOGY_NONE = 0,
    KVO_PORT_TOPOLOGY_LOOP = 2,
    KVO_PORT_TOPOLOGY_AUTO = 4,
    KVO_PORT_TOPOLOGY_P2P = 5,
};

enum kvo_mode_t : uint32_t {
    KVO_MODE_HBA = 1,
    KVO_MODE_CNA = 2,
    KVO_MODE_NIC = 3,
};

// Flash partition types (names in kvol_flash_part_type_to_string).
enum kvo_flash_part_type_e : uint32_t {
    KVO_FLASH_PART_OPTROM = 1,
    KVO_FLASH_PART_FWIMG = 2,
    KVO_FLASH_PART_FWCFG = 3,
    KVO_FLASH_PART_DRV = 4,
    KVO_FLASH_PART_BOOT = 5,
    KVO_FLASH_PART_ASIC = 6,
    KVO_FLASH_PART_MFG = 7,
    KVO_FLASH_PART_OPTROM2 = 8,
    KVO_FLASH_PART_VPD = 9,
    KVO_FLASH_PART_PBC = 10,
    KVO_FLASH_PART_BOOTOVL = 11,
    KVO_FLASH_PART_LOG = 12,
    KVO_FLASH_PART_PXECFG = 13,
    KVO_FLASH_PART_PXEOVL = 14,
    KVO_FLASH_PART_PORTCFG = 15,
    KVO_FLASH_PART_ASICBK = 16,
};

constexpr uint16_t KVO_PCI_VENDOR_ID = 0xE1F2;
