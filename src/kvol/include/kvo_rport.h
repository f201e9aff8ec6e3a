#pragma once
// Records of the storage driver's logical and remote ports, shared with the driver: the remote
// ports of a logical port, a remote port's attributes and the logical ports of the base fabric.
// A list request names a caller area (address and capacity in entries); the driver writes at
// most that many WWNs there and returns how many it has, which may be more.
#include <cstddef>
#include <cstdint>

#include "kvo_ioctl.h"

// What the remote port does on the SCSI level (from its PRLI service parameters).
enum kvo_rport_scsi_function_e : uint32_t {
    KVO_RPORT_INITIATOR = 1,
    KVO_RPORT_TARGET = 2,
};

constexpr uint32_t KVO_RPORT_SYMNAME_LEN = 256;

struct kvo_rport_attr_s {
    wwn_t pwwn;
    wwn_t nwwn;
    uint32_t pid;             // FC address, 24 bits
    uint32_t state;           // remote port state (kvol_rport_state_to_string)
    uint32_t cos;             // class of service
    uint32_t scsi_function;   // kvo_rport_scsi_function_e; 0 when no PRLI was done
    uint32_t df_sz;           // receive data field size
    uint8_t cisc;             // continuously increasing sequence count
    uint8_t rsvd1[3];
    uint32_t curr_speed;      // kvo_port_speed
    uint32_t assigned_speed;
    char symname[KVO_RPORT_SYMNAME_LEN];
    uint8_t rsvd2[24];
};
static_assert(sizeof(kvo_rport_attr_s) == 328);
static_assert(offsetof(kvo_rport_attr_s, scsi_function) == 28);
static_assert(offsetof(kvo_rport_attr_s, symname) == 48);

// Attributes of the remote port rpwwn seen from the logical port lpwwn.
struct kvo_ioctl_rport_attr_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t vf_id;
    wwn_t lpwwn;
    wwn_t rpwwn;
    uint32_t pid;   // qualifier: 0 selects the port by rpwwn alone
    uint32_t rsvd;
    kvo_rport_attr_s attr;
};
typedef kvo_ioctl_rport_attr_s kvo_ioctl_rport_attr_t;
static_assert(sizeof(kvo_ioctl_rport_attr_t) == 360);
static_assert(offsetof(kvo_ioctl_rport_attr_t, rpwwn) == 16);
static_assert(offsetof(kvo_ioctl_rport_attr_t, attr) == 32);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_RPORT_GET_ATTR_BY_QUALIFIER, kvo_ioctl_rport_attr_t);

// The remote ports of the logical port pwwn.
struct kvo_ioctl_lport_get_rports_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t vf_id;
    wwn_t pwwn;
    uint64_t rbuf_ptr;   // the caller's area of wwn_t
    uint32_t nrports;    // in: the area's capacity in entries; out: remote ports the driver has
    uint32_t rsvd;
};
typedef kvo_ioctl_lport_get_rports_s kvo_ioctl_lport_get_rports_t;
static_assert(sizeof(kvo_ioctl_lport_get_rports_t) == 32);
static_assert(offsetof(kvo_ioctl_lport_get_rports_t, rbuf_ptr) == 16);
static_assert(offsetof(kvo_ioctl_lport_get_rports_t, nrports) == 24);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_LPORT_GET_RPORTS, kvo_ioctl_lport_get_rports_t);

// The logical ports (the base port and its virtual ports) of the function on fabric vf_id.
struct kvo_ioctl_fabric_get_lports_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t vf_id;
    uint64_t buf_ptr;    // the caller's area of wwn_t
    uint32_t nports;     // in: the area's capacity in entries; out: logical ports the driver has
    uint32_t rsvd;
};
typedef kvo_ioctl_fabric_get_lports_s kvo_ioctl_fabric_get_lports_t;
static_assert(sizeof(kvo_ioctl_fabric_get_lports_t) == 24);
static_assert(offsetof(kvo_ioctl_fabric_get_lports_t, nports) == 16);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_FABRIC_GET_LPORTS, kvo_ioctl_fabric_get_lports_t);
