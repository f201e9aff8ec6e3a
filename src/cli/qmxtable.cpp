// The command table: every class and command the front end knows, in lookup order.
// Commands whose handler is null exist for help and argument checking only; running one
// reports "not supported".
#include <iterator>

#include "qmx.h"
#include "qmxhandlers.h"

namespace {
// Short names keep the rows on one line each.
constexpr qmx_id_desc_t PORT = PORT_ID;
constexpr qmx_id_desc_t ADAPTER = ADAPTER_ID;
constexpr qmx_id_desc_t PCIFN = PCIFN_ID;
constexpr qmx_id_desc_t PORT_FIRST = PORT_FIRST_IOC;
constexpr qmx_id_desc_t PCIFN_FIRST = PCIFN_FIRST_IOC;
constexpr qmx_id_desc_t NONE = ID_NONE;
constexpr qmx_drv_path_t P_FC = PATH_FC;
constexpr qmx_drv_path_t P_ETH = PATH_ETH;
constexpr qmx_drv_path_t P_ANY = PATH_ANY;
constexpr qmx_drv_path_t P_OPER = PATH_ANY_OPER;

// A class's command count, taken from its array and checked against the count the class must
// have: a row removed or added by mistake does not compile.
template <size_t Want, size_t N>
constexpr int rows(const qmx_cmd_desc_t (&)[N]) {
    static_assert(N == Want, "command count of the class changed");
    return static_cast<int>(N);
}
}  // namespace

const qmx_cmd_desc_t qmx_adapter_cmd_desc[] = {
    {"--autostart", 2, 2, ADAPTER, P_ANY, qmx_adapter_autostart},
    {"--count", 0, 0, ADAPTER, P_ANY, qmx_adapter_count},
    {"--disable", 1, 1, ADAPTER, P_ANY, qmx_adapter_disable},
    {"--enable", 1, 1, ADAPTER, P_ANY, qmx_adapter_enable},
    {"--list", 0, 0, NONE, P_ANY, qmx_adapter_list},
    {"--mode", 2, 3, ADAPTER, P_ANY, qmx_adapter_mode},
    {"--name", 1, 2, ADAPTER, P_ANY, qmx_adapter_name},
    {"--query", 1, 2, ADAPTER, P_ANY, qmx_adapter_query},
    {"--reload_fw", 1, 1, ADAPTER, P_ANY, qmx_adapter_reload_fw},
};

const qmx_cmd_desc_t qmx_auth_cmd_desc[] = {
    {"--algo", 2, 2, PCIFN, P_FC, nullptr},
    {"--encrypt", 2, 2, PCIFN, P_FC, nullptr},
    {"--policy", 2, 2, PCIFN, P_FC, nullptr},
    {"--secret", 2, 2, PCIFN, P_FC, nullptr},
    {"--show", 1, 1, PCIFN, P_FC, nullptr},
    {"--stats", 1, 1, PCIFN, P_FC, nullptr},
    {"--statsclr", 1, 1, PCIFN, P_FC, nullptr},
};

const qmx_cmd_desc_t qmx_bios_cmd_desc[] = {
    {"--disable", 1, 1, PORT, P_FC, nullptr},
    {"--enable", 1, 19, PORT, P_FC, nullptr},
    {"--query", 1, 1, PORT, P_FC, nullptr},
};

const qmx_cmd_desc_t qmx_boot_cmd_desc[] = {
    {"--blunZone", 8, 8, NONE, P_ANY, nullptr},
    {"--update", 2, 4, NONE, P_ANY, qmx_boot_update},
};

const qmx_cmd_desc_t qmx_bootdup_cmd_desc[] = {
    {"--query", 1, 5, NONE, P_ANY, nullptr},
    {"--read", 3, 3, ADAPTER, P_ANY, nullptr},
    {"--swquery", 1, 5, NONE, P_ANY, nullptr},
    {"--update", 3, 7, NONE, P_ANY, nullptr},
};

const qmx_cmd_desc_t qmx_dcb_desc[] = {
    {"--query", 1, 1, PORT, P_OPER, nullptr},
    {"--stats", 1, 1, PORT, P_OPER, nullptr},
    {"--statsclr", 1, 1, PORT, P_OPER, nullptr},
};

const qmx_cmd_desc_t qmx_debug_cmd_desc[] = {
    {"--dsave", 2, 2, PCIFN, P_ANY, nullptr},
    {"--dstart", 1, 1, PCIFN, P_ANY, nullptr},
    {"--dstop", 1, 1, PCIFN, P_ANY, nullptr},
    {"--dtrc", 2, 2, PCIFN, P_ANY, nullptr},
    {"--dump", 1, 1, PCIFN, P_ANY, nullptr},
    {"--fcoresave", 2, 2, PCIFN, P_ANY, nullptr},
    {"--fsave", 2, 2, PCIFN, P_ANY, nullptr},
    {"--fsaveclr", 1, 1, PCIFN, P_ANY, nullptr},
    {"--fstart", 1, 1, PCIFN, P_ANY, nullptr},
    {"--fstop", 1, 1, PCIFN, P_ANY, nullptr},
    {"--ftrc", 2, 2, PCIFN, P_ANY, nullptr},
    {"--itrc", 1, 1, NONE, P_ANY, nullptr},
    {"--membase", 1, 1, PCIFN, P_ANY, nullptr},
    {"--memread", 1, 3, PCIFN, P_ANY, nullptr},
    {"--portlog", 1, 1, PCIFN, P_FC, nullptr},
    {"--portlogclear", 1, 1, PCIFN, P_FC, nullptr},
    {"--portlogctl", 2, 2, PCIFN, P_FC, nullptr},
    {"--regread", 2, 4, PCIFN, P_ANY, nullptr},
    {"--regwrite", 3, 4, PCIFN, P_ANY, nullptr},
};

const qmx_cmd_desc_t qmx_diag_cmd_desc[] = {
    {"--beacon", 2, 3, PORT, P_OPER, nullptr},
    {"--dportdisable", 1, 1, PORT, P_FC, nullptr},
    {"--dportenable", 1, 5, PORT, P_FC, nullptr},
    {"--dportshow", 1, 1, PORT, P_FC, nullptr},
    {"--dportstart", 1, 5, PORT, P_FC, nullptr},
    {"--ethloopback", 1, 7, PORT, P_ETH, nullptr},
    {"--ledtest", 3, 5, PORT, P_OPER, nullptr},
    {"--loopback", 1, 9, PORT, P_FC, nullptr},
    {"--memtest", 1, 1, ADAPTER, P_ANY, nullptr},
    {"--pciloopback", 2, 4, PCIFN, P_OPER, nullptr},
    {"--queuetest", 1, 3, PORT, P_FC, nullptr},
    {"--sfpshow", 1, 1, PORT, P_OPER, nullptr},
    {"--tempshow", 1, 1, ADAPTER, P_ANY, nullptr},
};

const qmx_cmd_desc_t qmx_ethboot_cmd_desc[] = {
    {"--disable", 1, 1, PORT, P_ETH, nullptr},
    {"--enable", 1, 1, PORT, P_ETH, nullptr},
    {"--query", 1, 1, PORT, P_ETH, nullptr},
    {"--vlan", 2, 2, PORT, P_ETH, nullptr},
};

const qmx_cmd_desc_t qmx_vf_cmd_desc[] = {
    {"--stats", 1, 1, PORT, P_FC, nullptr},
    {"--statsclr", 1, 1, PORT, P_FC, nullptr},
};

const qmx_cmd_desc_t qmx_fcoe_cmd_desc[] = {
    {"--disable", 1, 1, PORT, P_FC, nullptr},
    {"--enable", 1, 1, PORT, P_FC, nullptr},
    {"--stats", 1, 1, PORT, P_FC, nullptr},
    {"--statsclr", 1, 1, PORT, P_FC, nullptr},
};

const qmx_cmd_desc_t qmx_fcdiag_cmd_desc[] = {
    {"--fcecho", 2, 4, PCIFN, P_FC, nullptr},
    {"--fcping", 2, 4, PCIFN, P_FC, nullptr},
    {"--fctraceroute", 2, 4, PCIFN, P_FC, nullptr},
    {"--linkbeacon", 2, 2, PORT, P_FC, nullptr},
    {"--scsitest", 2, 4, PCIFN, P_FC, nullptr},
};

const qmx_cmd_desc_t qmx_fcpim_cmd_desc[] = {
    {"--ioperf", 1, 9, NONE, P_FC, qmx_fcpim_ioperf},
    {"--lunlist", 1, 5, PCIFN, P_FC, qmx_fcpim_lunlist_hdlr},
    {"--lunmaskadd", 3, 5, PORT, P_FC, nullptr},
    {"--lunmaskclear", 1, 1, PORT, P_FC, nullptr},
    {"--lunmaskdelete", 3, 5, PORT, P_FC, nullptr},
    {"--lunmaskdisable", 1, 1, PORT, P_FC, nullptr},
    {"--lunmaskenable", 1, 1, PORT, P_FC, nullptr},
    {"--lunmaskquery", 1, 5, PORT, P_FC, nullptr},
    {"--ioprofile_clr", 1, 5, PORT, P_FC, nullptr},
    {"--ioprofile_query", 1, 1, PORT, P_FC, nullptr},
    {"--ioprofile_reset", 1, 8, PORT, P_FC, nullptr},
    {"--ioprofile_show", 1, 6, PORT, P_FC, nullptr},
    {"--ioprofile_start", 1, 8, PORT, P_FC, nullptr},
    {"--ioprofile_stop", 4, 7, PORT, P_FC, nullptr},
    {"--pathtov", 2, 2, PCIFN, P_FC, qmx_fcpim_pathtov},
    {"--query", 2, 4, PCIFN, P_FC, qmx_fcpim_query},
    {"--stats", 2, 4, PCIFN, P_FC, qmx_fcpim_stats},
    {"--statsclr", 2, 4, PCIFN, P_FC, qmx_fcpim_statsclr},
    {"--throttleclear", 1, 1, PCIFN, P_FC, qmx_fcpim_throttleclear},
    {"--throttlequery", 1, 1, PCIFN, P_FC, qmx_fcpim_throttlequery},
    {"--throttleset", 2, 2, PCIFN, P_FC, qmx_fcpim_throttleset},
    {"--trs_enable", 2, 4, PCIFN, P_FC, qmx_fcpim_trs_enable},
    {"--trs_disable", 2, 4, PCIFN, P_FC, qmx_fcpim_trs_disable},
    {"--trs_clear", 1, 1, PCIFN, P_FC, qmx_fcpim_trs_clear},
    {"--trs_query", 1, 1, PCIFN, P_FC, qmx_fcpim_trs_query},
};

const qmx_cmd_desc_t qmx_flash_cmd_desc[] = {
    {"--doptrom", 1, 1, ADAPTER, P_ANY, nullptr},
    {"--dumpasicblk", 2, 2, ADAPTER, P_ANY, nullptr},
    {"--eoptrom", 1, 1, ADAPTER, P_ANY, nullptr},
    {"--erase", 2, 8, ADAPTER, P_ANY, nullptr},
    {"--query", 1, 1, ADAPTER, P_ANY, nullptr},
    {"--read", 3, 15, ADAPTER, P_ANY, nullptr},
    {"--update", 3, 13, ADAPTER, P_ANY, nullptr},
};

const qmx_cmd_desc_t qmx_fruvpd_cmd_desc[] = {
    {"--dump", 2, 2, ADAPTER, P_ANY, nullptr},
    {"--read", 3, 3, ADAPTER, P_ANY, nullptr},
    {"--update", 2, 2, ADAPTER, P_ANY, nullptr},
    {"--write", 3, 65, ADAPTER, P_ANY, nullptr},
};

const qmx_cmd_desc_t qmx_ipfc_cmd_desc[] = {
    {"--disable", 1, 1, PCIFN, P_FC, nullptr},
    {"--enable", 1, 1, PCIFN, P_FC, nullptr},
    {"--query", 1, 1, PCIFN, P_FC, nullptr},
    {"--stats", 1, 1, PCIFN, P_FC, nullptr},
    {"--statsclr", 1, 1, PCIFN, P_FC, nullptr},
};

const qmx_cmd_desc_t qmx_lport_desc[] = {
    {"--bfs_list", 1, 2, PCIFN, P_FC, nullptr},
    {"--list", 1, 1, PCIFN, P_FC, nullptr},
    {"--query", 1, 3, PCIFN, P_FC, nullptr},
    {"--stats", 1, 3, PCIFN, P_FC, nullptr},
    {"--statsclr", 1, 3, PCIFN, P_FC, nullptr},
};

const qmx_cmd_desc_t qmx_log_cmd_desc[] = {
    {"--level", 1, 4, PCIFN, P_ANY, nullptr},
};

const qmx_cmd_desc_t qmx_mfg_cmd_desc[] = {
    {"--update", 7, 12, ADAPTER, P_ANY, nullptr},
};

const qmx_cmd_desc_t qmx_pcifn_cmd_desc[] = {
    {"--list", 1, 1, ADAPTER, P_ANY, nullptr},
};

const qmx_cmd_desc_t qmx_phy_cmd_desc[] = {
    {"--query", 1, 1, PORT, P_OPER, nullptr},
    {"--read", 2, 2, PORT, P_OPER, nullptr},
    {"--stats", 1, 1, PORT, P_OPER, nullptr},
    {"--update", 2, 2, NONE, P_OPER, nullptr},
};

const qmx_cmd_desc_t qmx_port_cmd_desc[] = {
    {"--alpaclr", 1, 1, PORT, P_FC, nullptr},
    {"--alpaset", 1, 2, PORT, P_FC, nullptr},
    {"--bfs_list", 1, 1, ADAPTER, P_ANY, nullptr},
    {"--dfsize", 1, 2, PORT, P_FC, nullptr},
    {"--disable", 1, 1, PORT, P_ANY, nullptr},
    {"--enable", 1, 1, PORT, P_ANY, nullptr},
    {"--events", 1, 1, ADAPTER, P_ANY, nullptr},
    {"--faa_query", 1, 1, PORT, P_FC, nullptr},
    {"--bbcr_enable", 1, 2, PORT, P_FC, nullptr},
    {"--bbcr_disable", 1, 1, PORT, P_FC, nullptr},
    {"--bbcr_query", 1, 1, PORT, P_FC, nullptr},
    {"--fwstats", 1, 1, PORT, P_ANY, nullptr},
    {"--fwstatsclr", 1, 1, PORT, P_ANY, nullptr},
    {"--list", 0, 1, NONE, P_ANY, nullptr},
    {"--mode", 2, 3, PORT_FIRST, P_ANY, nullptr},
    {"--name", 1, 2, PORT, P_ANY, nullptr},
    {"--pcifn_ethlist", 2, 2, ADAPTER, P_ANY, nullptr},
    {"--pcifn_fclist", 2, 2, ADAPTER, P_ANY, nullptr},
    {"--pcifn_list", 2, 2, ADAPTER, P_ANY, nullptr},
    {"--perf", 1, 5, NONE, P_FC, nullptr},
    {"--query", 1, 1, PORT, P_ANY, nullptr},
    {"--speed", 1, 2, PORT, P_FC, nullptr},
    {"--stats", 1, 1, PORT, P_OPER, nullptr},
    {"--statsclr", 1, 1, PORT, P_OPER, nullptr},
    {"--topology", 1, 2, PORT, P_FC, nullptr},
    {"--fec_query", 1, 1, PORT, P_FC, nullptr},
};

const qmx_cmd_desc_t qmx_qos_cmd_desc[] = {
    {"--disable", 1, 1, PORT, P_FC, nullptr},
    {"--enable", 1, 1, PORT, P_FC, nullptr},
    {"--query", 1, 2, PORT, P_FC, nullptr},
    {"--setbw", 7, 7, PORT, P_FC, nullptr},
    {"--stats", 1, 1, PORT, P_FC, nullptr},
    {"--statsclr", 1, 1, PORT, P_FC, nullptr},
};

const qmx_cmd_desc_t qmx_ratelim_desc[] = {
    {"--defspeed", 1, 2, PORT, P_FC, nullptr},
    {"--disable", 1, 1, PORT, P_FC, nullptr},
    {"--enable", 1, 1, PORT, P_FC, nullptr},
    {"--query", 1, 1, PORT, P_FC, nullptr},
};

const qmx_cmd_desc_t qmx_rport_cmd_desc[] = {
    {"--bfs_list", 1, 2, PCIFN, P_FC, nullptr},
    {"--list", 1, 3, PCIFN, P_FC, nullptr},
    {"--query", 2, 4, PCIFN, P_FC, nullptr},
    {"--speed", 3, 5, PCIFN, P_FC, nullptr},
    {"--stats", 2, 4, PCIFN, P_FC, nullptr},
    {"--statsclr", 2, 4, PCIFN, P_FC, nullptr},
};

const qmx_cmd_desc_t qmx_trunk_cmd_desc[] = {
    {"--disable", 1, 1, ADAPTER, P_FC, nullptr},
    {"--enable", 1, 1, ADAPTER, P_FC, nullptr},
    {"--query", 1, 1, ADAPTER, P_FC, nullptr},
};

const qmx_cmd_desc_t qmx_vhba_cmd_desc[] = {
    {"--bw", 2, 2, PCIFN_FIRST, P_FC, nullptr},
    {"--create", 1, 3, PORT_FIRST, P_FC, nullptr},
    {"--delete", 1, 1, PCIFN_FIRST, P_FC, nullptr},
    {"--disable", 1, 1, PCIFN, P_FC, nullptr},
    {"--enable", 1, 1, PCIFN, P_FC, nullptr},
    {"--intr", 3, 5, PCIFN, P_FC, nullptr},
    {"--query", 1, 1, PCIFN, P_FC, nullptr},
    {"--stats", 1, 1, PCIFN, P_FC, nullptr},
    {"--statsclr", 1, 1, PCIFN, P_FC, nullptr},
};

const qmx_cmd_desc_t qmx_vnic_cmd_desc[] = {
    {"--bw", 3, 5, PCIFN_FIRST, P_ETH, nullptr},
    {"--create", 1, 5, PORT_FIRST, P_ETH, nullptr},
    {"--delete", 1, 1, PCIFN_FIRST, P_ETH, nullptr},
    {"--disable", 1, 1, PCIFN, P_ETH, nullptr},
    {"--enable", 1, 1, PCIFN, P_ETH, nullptr},
    {"--query", 1, 1, PCIFN, P_ETH, nullptr},
    {"--stats", 1, 1, PCIFN, P_ETH, nullptr},
    {"--statsclr", 1, 1, PCIFN, P_ETH, nullptr},
};

const qmx_cmd_desc_t qmx_vport_cmd_desc[] = {
    {"--create", 2, 6, PCIFN, P_FC, nullptr},
    {"--delete", 2, 2, PCIFN, P_FC, nullptr},
    {"--query", 2, 2, PCIFN, P_FC, nullptr},
    {"--stats", 2, 2, PCIFN, P_FC, nullptr},
    {"--statsclr", 2, 2, PCIFN, P_FC, nullptr},
};

#define QMX_CLASS(name, type, os, cmds, count, usage) \
    { name, rows<count>(cmds), type, os, cmds, usage }

const qmx_cmd_class_desc_t qmx_class_desc[] = {
    QMX_CLASS("adapter", COMMON, E_ALL, qmx_adapter_cmd_desc, 9, qmx_adapter_usage),
    QMX_CLASS("auth", COMMON, E_WINDOWS | E_VMWARE | E_LINUX, qmx_auth_cmd_desc, 7, qmx_auth_usage),
    QMX_CLASS("bios", COMMON, E_ALL, qmx_bios_cmd_desc, 3, qmx_bios_usage),
    QMX_CLASS("boot", COMMON, E_ALL, qmx_boot_cmd_desc, 2, qmx_boot_usage),
    QMX_CLASS("bootdup", COMMON, E_ALL | E_HIDDEN, qmx_bootdup_cmd_desc, 4, qmx_bootdup_usage),
    QMX_CLASS("dcb", CNA, E_ALL, qmx_dcb_desc, 3, qmx_dcb_usage),
    QMX_CLASS("debug", COMMON, E_ALL, qmx_debug_cmd_desc, 19, qmx_debug_usage),
    QMX_CLASS("diag", COMMON, E_ALL, qmx_diag_cmd_desc, 13, qmx_diag_usage),
    QMX_CLASS("ethboot", ETH, E_ALL, qmx_ethboot_cmd_desc, 4, qmx_ethboot_usage),
    QMX_CLASS("fabric", FC, E_ALL, qmx_vf_cmd_desc, 2, qmx_vf_usage),
    QMX_CLASS("fcoe", CNA, E_ALL, qmx_fcoe_cmd_desc, 4, qmx_fcoe_usage),
    QMX_CLASS("fcdiag", FC, E_ALL, qmx_fcdiag_cmd_desc, 5, qmx_fcdiag_usage),
    QMX_CLASS("fcpim", FC, E_ALL, qmx_fcpim_cmd_desc, 25, qmx_fcpim_usage),
    QMX_CLASS("flash", COMMON, E_WINDOWS | E_SOLARIS | E_LINUX | E_HIDDEN, qmx_flash_cmd_desc, 7, qmx_flash_usage),
    QMX_CLASS("fruvpd", COMMON, E_ALL | E_HIDDEN, qmx_fruvpd_cmd_desc, 4, qmx_fruvpd_usage),
    QMX_CLASS("ipfc", FC, E_SOLARIS | E_LINUX | E_HIDDEN, qmx_ipfc_cmd_desc, 5, qmx_ipfc_usage),
    QMX_CLASS("lport", FC, E_ALL, qmx_lport_desc, 5, qmx_lport_usage),
    QMX_CLASS("log", COMMON, E_ALL, qmx_log_cmd_desc, 1, qmx_log_usage),
    QMX_CLASS("mfg", COMMON, E_LINUX | E_HIDDEN, qmx_mfg_cmd_desc, 1, qmx_mfg_usage),
    QMX_CLASS("pcifn", COMMON, E_ALL, qmx_pcifn_cmd_desc, 1, qmx_pcifn_usage),
    QMX_CLASS("phy", CNA, E_ALL, qmx_phy_cmd_desc, 4, qmx_phy_usage),
    QMX_CLASS("port", COMMON, E_ALL, qmx_port_cmd_desc, 26, qmx_port_usage),
    QMX_CLASS("qos", FC, E_ALL, qmx_qos_cmd_desc, 6, qmx_qos_usage),
    QMX_CLASS("ratelim", FC, E_ALL, qmx_ratelim_desc, 4, qmx_ratelim_usage),
    QMX_CLASS("rport", FC, E_ALL, qmx_rport_cmd_desc, 6, qmx_rport_usage),
    QMX_CLASS("trunk", FC, E_ALL, qmx_trunk_cmd_desc, 3, qmx_trunk_usage),
    QMX_CLASS("vhba", FC, E_ALL, qmx_vhba_cmd_desc, 9, qmx_vhba_usage),
    QMX_CLASS("vnic", ETH, E_ALL, qmx_vnic_cmd_desc, 8, qmx_vnic_usage),
    QMX_CLASS("vport", FC, E_WINDOWS | E_VMWARE | E_LINUX, qmx_vport_cmd_desc, 5, qmx_vport_usage),
    {"none", 0, TYPE_MAX, E_INVALID, nullptr, nullptr},
};
static_assert(std::size(qmx_class_desc) == 30, "29 classes and the closing entry");
const int qmx_class_count = static_cast<int>(std::size(qmx_class_desc)) - 1;
