#pragma once
// Self-describing statistics tables: one constant table per statistics record, naming each
// counter, its width and its offset, and pointing to the table of every embedded record or
// union arm. Getters hand a table back with the record; kvol_print_stats prints the pair.
#include <cstddef>
#include <cstdint>

#include "kvo_stats.h"

// Fixed underlying type: a row of a kind this build does not know still holds a valid value.
enum kvol_field_type : int32_t {
    KVOL_UINT16 = 0,
    KVOL_UINT32 = 1,
    KVOL_UINT64 = 2,
    KVOL_STRUCT = 3,  // an embedded record, described by its own table
    KVOL_UNION = 4,   // parent_type of the rows that are alternative arms of a union
};

struct kvol_stats_s;

// One row. Counter ids are the table's number times 100 plus the row's position from 1;
// rows that lead to a nested table carry 0.
struct kvol_stats_desc_s {
    kvol_field_type parent_type;
    kvol_field_type type;
    char desc[64];
    uintptr_t offset;  // bytes from the start of the record that holds the row
    int32_t id;
    const kvol_stats_s* kvol_stats;  // the nested table; null for counters
};
typedef kvol_stats_desc_s kvol_stats_desc_t;

struct kvol_stats_s {
    int32_t count;
    char struct_name[64];  // the described record's type name, e.g. "kvo_ioc_stats_t"
    const kvol_stats_desc_t* desc;
};
typedef kvol_stats_s kvol_stats_t;

// Prints every counter of record that table describes, one "\t<name> : <value>\n" line each, in
// table order, descending into nested tables (their offsets added to base). With a filter, a
// union arm is printed only when its table's struct_name contains the filter; other rows are
// printed regardless. A null table or record prints nothing. Returns nothing.
void kvol_print_stats(const kvol_stats_t* table, const void* record, size_t base,
                      const char* filter);

// The tables, one per record (kvol_<record>). Tables 11 to 67 and 101 to 112, in this order.
extern const kvol_stats_t kvol_kvo_fw_ioc_stats;
extern const kvol_stats_t kvol_kvo_ioc_drv_stats;
extern const kvol_stats_t kvol_kvo_ioc_stats;
extern const kvol_stats_t kvol_kvo_port_fc_stats;
extern const kvol_stats_t kvol_kvo_port_eth_stats;
extern const kvol_stats_t kvol_kvo_port_stats;
extern const kvol_stats_t kvol_kvo_cee_stats;
extern const kvol_stats_t kvol_tqed_ethport_stats;
extern const kvol_stats_t kvol_tqe_stats_txf;
extern const kvol_stats_t kvol_tqe_stats_rxf;
extern const kvol_stats_t kvol_tqe_stats_fc_tx;
extern const kvol_stats_t kvol_tqe_stats_fc_rx;
extern const kvol_stats_t kvol_cna_stats_rad;
extern const kvol_stats_t kvol_cna_stats_bpc_tx;
extern const kvol_stats_t kvol_cna_stats_bpc_rx;
extern const kvol_stats_t kvol_cna_stats_mac_tx;
extern const kvol_stats_t kvol_cna_stats_mac_rx;
extern const kvol_stats_t kvol_tqe_stats;
extern const kvol_stats_t kvol_kvo_ethport_stats;
extern const kvol_stats_t kvol_kvo_vf_stats;
extern const kvol_stats_t kvol_kvo_auth_proto_stats;
extern const kvol_stats_t kvol_kvo_auth_stats;
extern const kvol_stats_t kvol_kvo_lport_stats;
extern const kvol_stats_t kvol_kvo_vport_stats;
extern const kvol_stats_t kvol_kvo_rport_hal_stats;
extern const kvol_stats_t kvol_kvo_rport_stats;
extern const kvol_stats_t kvol_kvo_rport_remote_link_stats;
extern const kvol_stats_t kvol_kvo_itnim_stats;
extern const kvol_stats_t kvol_kvo_iprp_stats;
extern const kvol_stats_t kvol_kvo_ipfc_stats;
extern const kvol_stats_t kvol_kvo_fw_ioim_stats;
extern const kvol_stats_t kvol_kvo_fw_tio_stats;
extern const kvol_stats_t kvol_kvo_fw_io_stats;
extern const kvol_stats_t kvol_kvo_fw_port_fpg_stats;
extern const kvol_stats_t kvol_kvo_fw_lpsm_stats;
extern const kvol_stats_t kvol_kvo_fw_port_lksm_stats;
extern const kvol_stats_t kvol_kvo_fw_port_snsm_stats;
extern const kvol_stats_t kvol_kvo_fw_port_physm_stats;
extern const kvol_stats_t kvol_kvo_fw_fip_stats;
extern const kvol_stats_t kvol_kvo_fw_lps_stats;
extern const kvol_stats_t kvol_kvo_fw_fcoe_stats;
extern const kvol_stats_t kvol_kvo_fw_fcoe_port_stats;
extern const kvol_stats_t kvol_kvo_fw_fc_uport_stats;
extern const kvol_stats_t kvol_kvo_fw_fc_port_stats;
extern const kvol_stats_t kvol_kvo_fw_port_stats;
extern const kvol_stats_t kvol_kvo_fw_fcxchg_stats;
extern const kvol_stats_t kvol_kvo_fw_trunk_stats;
extern const kvol_stats_t kvol_kvo_fw_aport_stats;
extern const kvol_stats_t kvol_kvo_fw_iocfc_stats;
extern const kvol_stats_t kvol_kvo_fw_eth_sndrcv_stats;
extern const kvol_stats_t kvol_kvo_fw_rds_stats;
extern const kvol_stats_t kvol_kvo_fw_mac_mod_stats;
extern const kvol_stats_t kvol_kvo_fw_ct_mod_stats;
extern const kvol_stats_t kvol_kvo_fw_stats;
extern const kvol_stats_t kvol_kvo_qos_stats;
extern const kvol_stats_t kvol_kvo_fcoe_stats;
extern const kvol_stats_t kvol_kvo_fcport_stats;
extern const kvol_stats_t kvol_kvo_fcpim_del_itn_stats;
extern const kvol_stats_t kvol_kvo_itnim_iostats;
extern const kvol_stats_t kvol_kvo_phy_stats;
extern const kvol_stats_t kvol_kvo_vnic_stats_bpc;
extern const kvol_stats_t kvol_kvo_vnic_stats_rad;
extern const kvol_stats_t kvol_kvo_vnic_stats_txq;
extern const kvol_stats_t kvol_kvo_vnic_stats_txf;
extern const kvol_stats_t kvol_kvo_vnic_stats_rxq;
extern const kvol_stats_t kvol_kvo_vnic_stats_rxp;
extern const kvol_stats_t kvol_kvo_vnic_stats_rxf;
extern const kvol_stats_t kvol_kvo_vnic_drvstats;
extern const kvol_stats_t kvol_kvo_vnic_stats;
