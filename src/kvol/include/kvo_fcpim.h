#pragma once
// Records of the FCP initiator shared with the storage driver: I-T nexus attributes, the path
// time-out, the I/O throttle and the target reset list. A nexus record names its nexus by the
// local and remote port WWNs after the common head; its payload starts at 24.
#include <cstddef>
#include <cstdint>

#include "kvo_ioctl.h"

enum kvo_itnim_state : uint32_t {
    KVO_ITNIM_OFFLINE = 0,
    KVO_ITNIM_PRLI_SEND = 1,
    KVO_ITNIM_PRLI_SENT = 2,
    KVO_ITNIM_PRLI_RETRY = 3,
    KVO_ITNIM_HCB_ONLINE = 4,
    KVO_ITNIM_ONLINE = 5,
    KVO_ITNIM_HCB_OFFLINE = 6,
    KVO_ITNIM_INITIATIOR = 7,
};

struct kvo_itnim_attr_s {
    uint32_t state;  // kvo_itnim_state
    uint8_t retry;   // data retransmission supported
    uint8_t task_retry_id;
    uint8_t rec_support;
    uint8_t conf_comp;
    uint8_t trs_blocked;  // target reset disabled for this nexus
    uint8_t rsvd[7];
};
static_assert(sizeof(kvo_itnim_attr_s) == 16);

// The head every nexus request shares.
struct kvo_itnim_head_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t vf_id;
    wwn_t lpwwn;
    wwn_t rpwwn;
};
static_assert(sizeof(kvo_itnim_head_s) == 24);

struct kvo_ioctl_itnim_attr_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t vf_id;
    wwn_t lpwwn;
    wwn_t rpwwn;
    kvo_itnim_attr_s attr;
};
typedef kvo_ioctl_itnim_attr_s kvo_ioctl_itnim_attr_t;
static_assert(sizeof(kvo_ioctl_itnim_attr_t) == 40);
static_assert(offsetof(kvo_ioctl_itnim_attr_t, lpwwn) == 8);
static_assert(offsetof(kvo_ioctl_itnim_attr_t, rpwwn) == 16);
static_assert(offsetof(kvo_ioctl_itnim_attr_t, attr) == 24);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_ITNIM_GET_ATTR, kvo_ioctl_itnim_attr_t);

// Statistics reset: the head alone.
typedef kvo_itnim_head_s kvo_ioctl_itnim_reset_stats_t;
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_ITNIM_RESET_STATS, kvo_ioctl_itnim_reset_stats_t);

// The path time-out of the function, in seconds.
struct kvo_ioctl_fcpim_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t path_tov;
};
typedef kvo_ioctl_fcpim_s kvo_ioctl_fcpim_t;
static_assert(sizeof(kvo_ioctl_fcpim_t) == 8);
static_assert(offsetof(kvo_ioctl_fcpim_t, path_tov) == 6);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_FCPIM_FAST_FAILOVER, kvo_ioctl_fcpim_t);
constexpr uint16_t KVO_FCPIM_PATHTOV_MAX = 60;

// The I/O throttle: the driver's ceiling, the value in force, and the value configured for the
// driver's next start.
struct kvo_fcpim_throttle_s {
    uint16_t max_value;
    uint16_t cur_value;
    uint16_t cfg_value;
    uint16_t rsvd;
};
static_assert(sizeof(kvo_fcpim_throttle_s) == 8);

struct kvo_ioctl_fcpim_throttle_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t vf_id;
    kvo_fcpim_throttle_s throttle;
};
typedef kvo_ioctl_fcpim_throttle_s kvo_ioctl_fcpim_throttle_t;
static_assert(sizeof(kvo_ioctl_fcpim_throttle_t) == 16);
static_assert(offsetof(kvo_ioctl_fcpim_throttle_t, throttle) == 8);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_FCPIM_THROTTLE_QUERY, kvo_ioctl_fcpim_throttle_t);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_FCPIM_THROTTLE_SET, kvo_ioctl_fcpim_throttle_t);

// ---- Target reset list ----------------------------------------------------------------------------

// A nexus (local port, target port) for which target reset is disabled.
struct kvo_trs_list_s {
    wwn_t lpwwn;
    wwn_t rpwwn;
};
typedef kvo_trs_list_s kvo_trs_list_t;
static_assert(sizeof(kvo_trs_list_t) == 16);
constexpr int KVO_TRS_LIST_MAX = 16;  // nexuses the driver's list holds

// Enable (remove the nexus from the list) and disable (add it).
struct kvo_ioctl_itnim_trs_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t vf_id;
    wwn_t lpwwn;
    wwn_t rpwwn;
    uint8_t rsvd[16];
};
typedef kvo_ioctl_itnim_trs_s kvo_ioctl_itnim_trs_t;
static_assert(sizeof(kvo_ioctl_itnim_trs_t) == 40);
static_assert(offsetof(kvo_ioctl_itnim_trs_t, rpwwn) == 16);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_ITNIM_TRS_ENABLE, kvo_ioctl_itnim_trs_t);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_ITNIM_TRS_DISABLE, kvo_ioctl_itnim_trs_t);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_ITNIM_TRS_CLEAR, kvo_gen_t);

// The query's head; the driver writes the count and the entries into the list area that
// trs_list addresses (in the library, the 256 bytes that follow the head).
struct kvo_ioctl_itnim_trs_cfg_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t trs_count;
    uint64_t trs_list;
};
typedef kvo_ioctl_itnim_trs_cfg_s kvo_ioctl_itnim_trs_cfg_t;
static_assert(sizeof(kvo_ioctl_itnim_trs_cfg_t) == 16);
static_assert(offsetof(kvo_ioctl_itnim_trs_cfg_t, trs_count) == 6);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_ITNIM_TRS_QUERY, kvo_ioctl_itnim_trs_cfg_t);

// The query buffer: the head and the list area behind it.
struct kvo_itnim_trs_query_s {
    kvo_ioctl_itnim_trs_cfg_t head;
    kvo_trs_list_t list[KVO_TRS_LIST_MAX];
};
static_assert(sizeof(kvo_itnim_trs_query_s) == 272);
static_assert(offsetof(kvo_itnim_trs_query_s, list) == 16);
