#pragma once
// The command classes: for each, its command array (qmxtable), its usage function and the
// handlers that exist so far. A command without a handler has a null handler in its row and
// reports "not supported".
//
// How to add a command:
//   1. its row in the class's array in qmxtable.cpp (name, argument bounds, identifier kind,
//      driver side, handler), and the class's command count in its QMX_CLASS line;
//   2. its handler in the class's unit (qmx<class>.cpp), declared below, and its usage entry
//      beside the handler. A class that gets its first handler takes its usage text out of
//      qmxusage.cpp into its own unit.
// The dispatcher has done the common work before a handler runs: the count of words checked
// against the row, a fresh adapter scan, the identifier resolved into the qmx_id_t (for an
// adapter, also its control function). Arguments are read by their QMX_ARG_ positions.
#include <cstdint>
#include <span>
#include <string>

#include "qmx.h"

// One command of a class's usage text.
struct qmx_usage_entry {
    const char* name;           // the command word, as in the command table
    const char* args;           // what follows the command word; "" when nothing
    const char* help;           // help lines; the printer closes the block with a blank line
    bool hidden = false;        // listed by the extended text only
    const char* ext_args = "";  // appended to the command line in the extended text
    const char* ext_help = "";  // appended to the help lines in the extended text
};
// Prints "Example: qmx <example>" and then one block per entry, in order.
void qmx_print_usage(const char* example, std::span<const qmx_usage_entry> entries, int extended);

// ---- adapter -------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_adapter_cmd_desc[];
void qmx_adapter_usage(int extended);
int qmx_adapter_list(char** argv, int argc, qmx_id_t* id);
int qmx_adapter_count(char** argv, int argc, qmx_id_t* id);
int qmx_adapter_name(char** argv, int argc, qmx_id_t* id);
int qmx_adapter_enable(char** argv, int argc, qmx_id_t* id);
int qmx_adapter_disable(char** argv, int argc, qmx_id_t* id);
int qmx_adapter_mode(char** argv, int argc, qmx_id_t* id);
int qmx_adapter_autostart(char** argv, int argc, qmx_id_t* id);
int qmx_adapter_reload_fw(char** argv, int argc, qmx_id_t* id);
int qmx_adapter_query(char** argv, int argc, qmx_id_t* id);

// ---- auth ----------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_auth_cmd_desc[];
void qmx_auth_usage(int extended);

// ---- bios ----------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_bios_cmd_desc[];
void qmx_bios_usage(int extended);

// ---- boot ----------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_boot_cmd_desc[];
void qmx_boot_usage(int extended);
int qmx_boot_update(char** argv, int argc, qmx_id_t* id);

// ---- bootdup -------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_bootdup_cmd_desc[];
void qmx_bootdup_usage(int extended);

// ---- dcb -----------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_dcb_desc[];
void qmx_dcb_usage(int extended);

// ---- debug ---------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_debug_cmd_desc[];
void qmx_debug_usage(int extended);

// ---- diag ----------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_diag_cmd_desc[];
void qmx_diag_usage(int extended);

// ---- ethboot -------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_ethboot_cmd_desc[];
void qmx_ethboot_usage(int extended);

// ---- fabric (virtual fabric) ---------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_vf_cmd_desc[];
void qmx_vf_usage(int extended);

// ---- fcoe ----------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_fcoe_cmd_desc[];
void qmx_fcoe_usage(int extended);

// ---- fcdiag --------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_fcdiag_cmd_desc[];
void qmx_fcdiag_usage(int extended);

// ---- fcpim ---------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_fcpim_cmd_desc[];
void qmx_fcpim_usage(int extended);
int qmx_fcpim_ioperf(char** argv, int argc, qmx_id_t* id);  // in qmxioperf.cpp
int qmx_fcpim_query(char** argv, int argc, qmx_id_t* id);
int qmx_fcpim_stats(char** argv, int argc, qmx_id_t* id);
int qmx_fcpim_statsclr(char** argv, int argc, qmx_id_t* id);
int qmx_fcpim_pathtov(char** argv, int argc, qmx_id_t* id);
int qmx_fcpim_lunlist_hdlr(char** argv, int argc, qmx_id_t* id);
// The SCSI columns of a verbose LUN row (vendor, product, revision, size) for the LUN whose
// kernel number is hlun; the status the commands ended with (the row goes on regardless).
int qmx_fcpim_scsitest_commands(kvol_t* h, wwn_t lpwwn, wwn_t rpwwn, uint32_t hlun);
// The vendor, product (up to its first blank) and revision columns of standard INQUIRY data,
// bytes that are not printable shown as '?'.
std::string qmx_fcpim_inquiry_columns(std::span<const uint8_t, 36> inq);
// The size column: last LBA times block length, "  -----" when the product is negative.
std::string qmx_fcpim_lun_size(int64_t last_lba, int64_t block_len);
int qmx_fcpim_throttlequery(char** argv, int argc, qmx_id_t* id);
int qmx_fcpim_throttleset(char** argv, int argc, qmx_id_t* id);
int qmx_fcpim_throttleclear(char** argv, int argc, qmx_id_t* id);
int qmx_fcpim_trs_enable(char** argv, int argc, qmx_id_t* id);
int qmx_fcpim_trs_disable(char** argv, int argc, qmx_id_t* id);
int qmx_fcpim_trs_query(char** argv, int argc, qmx_id_t* id);
int qmx_fcpim_trs_clear(char** argv, int argc, qmx_id_t* id);
int qmx_fcpim_lm_add_hdlr(char** argv, int argc, qmx_id_t* id);
int qmx_fcpim_lm_del_hdlr(char** argv, int argc, qmx_id_t* id);
int qmx_fcpim_lm_clear_hdlr(char** argv, int argc, qmx_id_t* id);
int qmx_fcpim_lm_en_hdlr(char** argv, int argc, qmx_id_t* id);
int qmx_fcpim_lm_dis_hdlr(char** argv, int argc, qmx_id_t* id);
int qmx_fcpim_lm_query_hdlr(char** argv, int argc, qmx_id_t* id);

// ---- flash ---------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_flash_cmd_desc[];
void qmx_flash_usage(int extended);

// ---- fruvpd --------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_fruvpd_cmd_desc[];
void qmx_fruvpd_usage(int extended);

// ---- ipfc ----------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_ipfc_cmd_desc[];
void qmx_ipfc_usage(int extended);

// ---- lport ---------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_lport_desc[];
void qmx_lport_usage(int extended);

// ---- log -----------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_log_cmd_desc[];
void qmx_log_usage(int extended);

// ---- mfg -----------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_mfg_cmd_desc[];
void qmx_mfg_usage(int extended);

// ---- pcifn ---------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_pcifn_cmd_desc[];
void qmx_pcifn_usage(int extended);

// ---- phy -----------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_phy_cmd_desc[];
void qmx_phy_usage(int extended);

// ---- port ----------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_port_cmd_desc[];
void qmx_port_usage(int extended);

// ---- qos -----------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_qos_cmd_desc[];
void qmx_qos_usage(int extended);

// ---- ratelim -------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_ratelim_desc[];
void qmx_ratelim_usage(int extended);

// ---- rport ---------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_rport_cmd_desc[];
void qmx_rport_usage(int extended);

// ---- trunk ---------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_trunk_cmd_desc[];
void qmx_trunk_usage(int extended);

// ---- vhba ----------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_vhba_cmd_desc[];
void qmx_vhba_usage(int extended);

// ---- vnic ----------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_vnic_cmd_desc[];
void qmx_vnic_usage(int extended);

// ---- vport ---------------------------------------------------------------------------------
extern const qmx_cmd_desc_t qmx_vport_cmd_desc[];
void qmx_vport_usage(int extended);
