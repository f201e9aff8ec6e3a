#pragma once
// Records of the storage driver's LUN masking, shared with the driver. The driver keeps one mask
// table per port: a status byte and at most 16 entries (local port, target port, LUN). While
// masking is enabled the host sees LUN 0 and the LUNs in the table only.
#include <cstddef>
#include <cstdint>

#include "kvo_ioctl.h"

constexpr int KVO_LUNMASK_ENTRIES_MAX = 16;

enum kvo_lunmask_status_e : uint8_t {
    KVO_LUNMASK_DISABLED = 0,
    KVO_LUNMASK_ENABLED = 1,
    KVO_LUNMASK_UNINITIALIZED = 255,
};

constexpr uint8_t KVO_LUNMASK_ENTRY_ACTIVE = 1;  // `state` of an entry in use

// One mask entry, as the driver returns it.
struct kvo_lun_mask_s {
    wwn_t lp_wwn;     // local (initiator) port
    wwn_t rp_wwn;     // remote (target) port
    lun_t lun;        // 8-byte SCSI LUN, wire order
    uint8_t ua;       // unit attention pending (the driver's)
    uint8_t rsvd[3];
    uint16_t rp_tag;  // the driver's remote port tag
    uint8_t lp_tag;   // the driver's local port tag
    uint8_t state;    // KVO_LUNMASK_ENTRY_ACTIVE, or a free slot
};
static_assert(sizeof(kvo_lun_mask_s) == 32);
static_assert(offsetof(kvo_lun_mask_s, rp_wwn) == 8);
static_assert(offsetof(kvo_lun_mask_s, lun) == 16);
static_assert(offsetof(kvo_lun_mask_s, ua) == 24);
static_assert(offsetof(kvo_lun_mask_s, rp_tag) == 28);
static_assert(offsetof(kvo_lun_mask_s, lp_tag) == 30);
static_assert(offsetof(kvo_lun_mask_s, state) == 31);

// The table.
struct kvo_lunmask_cfg_s {
    uint8_t status;  // kvo_lunmask_status_e; any other value is unknown
    uint8_t rsvd[7];
    kvo_lun_mask_s lun_list[KVO_LUNMASK_ENTRIES_MAX];
};
static_assert(sizeof(kvo_lunmask_cfg_s) == 520);
static_assert(offsetof(kvo_lunmask_cfg_s, lun_list) == 8);

// Enable, disable and clear carry nothing but the instance.
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_FCPIM_LUNMASK_ENABLE, kvo_gen_t);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_FCPIM_LUNMASK_DISABLE, kvo_gen_t);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_FCPIM_LUNMASK_CLEAR, kvo_gen_t);

// Query: the driver fills the table. The table is 8-byte aligned: it follows two bytes of
// padding after kvod_num.
struct kvo_ioctl_fcpim_lunmask_query_s {
    uint32_t status;
    uint16_t kvod_num;
    uint8_t rsvd[2];
    kvo_lunmask_cfg_s lun_mask;
};
typedef kvo_ioctl_fcpim_lunmask_query_s kvo_ioctl_fcpim_lunmask_query_t;
static_assert(sizeof(kvo_ioctl_fcpim_lunmask_query_t) == 528);
static_assert(offsetof(kvo_ioctl_fcpim_lunmask_query_t, lun_mask) == 8);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_FCPIM_LUNMASK_QUERY, kvo_ioctl_fcpim_lunmask_query_t);

// Add and delete one entry. A zero pwwn asks the driver to take the port's base WWN; the
// driver writes the WWN it used back.
struct kvo_ioctl_fcpim_lunmask_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t vf_id;
    wwn_t pwwn;
    wwn_t rpwwn;
    lun_t lun;
};
typedef kvo_ioctl_fcpim_lunmask_s kvo_ioctl_fcpim_lunmask_t;
static_assert(sizeof(kvo_ioctl_fcpim_lunmask_t) == 32);
static_assert(offsetof(kvo_ioctl_fcpim_lunmask_t, vf_id) == 6);
static_assert(offsetof(kvo_ioctl_fcpim_lunmask_t, pwwn) == 8);
static_assert(offsetof(kvo_ioctl_fcpim_lunmask_t, rpwwn) == 16);
static_assert(offsetof(kvo_ioctl_fcpim_lunmask_t, lun) == 24);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_FCPIM_LUNMASK_ADD, kvo_ioctl_fcpim_lunmask_t);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_FCPIM_LUNMASK_DELETE, kvo_ioctl_fcpim_lunmask_t);
