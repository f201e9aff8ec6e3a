#pragma once
// The library's vocabulary tables: status messages and the code-to-name tables behind the
// kvol_*_to_string lookups of kvol.h. Exposed so that callers can walk a table as a whole.
#include <cstddef>
#include <cstdint>

#include "kvol.h"

// Status messages indexed by status value 0..KVO_STATUS_MAX_VAL. Every text ends in one blank.
// The array is writable data; its texts are not.
extern const char* errorlist[KVO_STATUS_MAX_VAL + 1];

// Walks a table closed by KVO_STATE_END; "unknown" when the code has no row.
const char* kvol_state_lookup(const kvo_state_t* table, uint32_t code);

extern const kvo_state_t kvo_flash_status_str[];
extern const kvo_state_t kvo_flash_part_type_str[];
extern const kvo_state_t kvo_ioc_state_str[];
extern const kvo_state_t kvo_faa_state_str[];
extern const kvo_state_t kvo_faa_source_str[];
extern const kvo_state_t kvo_port_states_str[];
extern const kvo_state_t kvo_qos_state_str[];
extern const kvo_state_t kvo_qos_priority_str[];
extern const kvo_state_t kvo_port_speed_str[];
extern const kvo_state_t kvo_port_type_str[];
extern const kvo_state_t kvo_port_topology_str[];
extern const kvo_state_t kvo_rport_state_str[];
extern const kvo_state_t kvo_itnim_state_str[];
extern const kvo_state_t kvo_auth_status_str[];
extern const kvo_state_t kvo_auth_algo_str[];
extern const kvo_state_t kvo_auth_group_str[];
extern const kvo_state_t kvo_auth_rej_code_str[];
extern const kvo_state_t kvo_auth_rej_code_exp_str[];
extern const kvo_state_t kvo_vport_state_str[];
extern const kvo_state_t kvo_log_severity_str[];
extern const kvo_state_t kvo_ethport_cee_state_str[];
extern const kvo_state_t kvo_trunk_state_str[];
extern const kvo_state_t kvo_trunk_link_state_str[];
extern const kvo_state_t kvo_trunk_link_fctl_str[];
extern const kvo_state_t kvo_cee_status_str[];
extern const kvo_state_t kvo_vmq_state_str[];
extern const kvo_state_t kvo_mode_str[];
extern const kvo_state_t kvo_lport_role_str[];
extern const kvo_state_t kvo_bbcr_state_str[];
extern const kvo_state_t kvo_bbcr_err_reason_str[];
extern const kvo_state_t kvo_fec_state_str[];
extern const kvo_state_t kvo_diag_dport_test_status_str[];
extern const kvo_state_t kvo_diag_dport_test_opmode_str[];
extern const kvo_state_t kvo_port_linkstate_rsn_str[];

// Port-log module and event names: fixed 8-byte fields, indexed directly.
struct kvo_plog_mid_s {
    char m_str[8];
};
struct kvo_plog_eid_s {
    char e_str[8];
};
constexpr size_t KVO_PLOG_MID_COUNT = 9;
constexpr size_t KVO_PLOG_EID_COUNT = 26;
extern const kvo_plog_mid_s kvo_plog_mid[KVO_PLOG_MID_COUNT];
extern const kvo_plog_eid_s kvo_plog_eid[KVO_PLOG_EID_COUNT];

constexpr size_t KVO_SFP_MEDIA_COUNT = 6;
