// Code-to-name tables for firmware states, speeds, roles and reasons, and two small helpers.
// Tables are in display order, not sorted; each is closed by a KVO_STATE_END pair whose text
// is never returned.
#include "kvol.h"
#include "kvol_state.h"

const char* kvol_state_lookup(const kvo_state_t* table, uint32_t code) {
    for (const kvo_state_t* row = table; row->code != KVO_STATE_END; ++row) {
        if (row->code == code) {
            return row->str;
        }
    }
    return "unknown";
}

const kvo_state_t kvo_flash_status_str[] = {
    {0, "good"}, {1, "absent"}, {2, "uninit"}, {3, "bad"}, {4, "empty"}, {5, "badcksum"},
    {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_flash_part_type_str[] = {
    {0, "null"},     {1, "optrom"},   {2, "fw"},      {3, "cfg"},     {4, "drv"},
    {5, "boot"},     {6, "asic"},     {7, "mfg"},     {8, "optrom2"}, {9, "vpd"},
    {10, "pbc"},     {11, "bootovl"}, {12, "log"},    {13, "pxecfg"}, {14, "pxeovl"},
    {15, "portcfg"}, {16, "asicbk"},  {KVO_STATE_END, "--"},
};

// No rows for 0, 1 and 12: those print as "unknown".
const kvo_state_t kvo_ioc_state_str[] = {
    {2, "reset"},         {3, "semwait"},  {4, "hwinit"},    {11, "firmware mismatch"},
    {5, "getattr"},       {6, "operational"}, {7, "init fail"}, {13, "hwfail"},
    {8, "fail"},          {9, "disabling"}, {10, "disabled"}, {14, "acq addr"},
    {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_faa_state_str[] = {
    {1, "Enabled"}, {2, "Disabled"}, {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_faa_source_str[] = {
    {1, "Factory"}, {2, "Blade System"}, {3, "Fabric"}, {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_port_states_str[] = {
    {0, "Unknown"},
    {1, "Uninit"},
    {2, "Enabling (qwait)"},
    {3, "Enabling"},
    {4, "Linkdown"},
    {5, "Linkup"},
    {6, "Disabling (qwait)"},
    {7, "Disabling"},
    {8, "Disabled"},
    {9, "Stopped"},
    {10, "IOC down"},
    {11, "IOC disabled"},
    {12, "FW mismatch"},
    {13, "Disabled#"},
    {14, "Link toggling (qwait)"},
    {15, "FAA cfg error"},
    {16, "Disabled"},
    {17, "Disabled"},
    {18, "Invalid"},
    {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_qos_state_str[] = {
    {0, "Disabled"}, {1, "Online"}, {2, "Offline"}, {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_qos_priority_str[] = {
    {0, "Unknown"}, {1, "High"}, {2, "Medium"}, {3, "Low"}, {KVO_STATE_END, "--"},
};

// One-digit speeds carry a trailing blank so that columns line up.
const kvo_state_t kvo_port_speed_str[] = {
    {0, "---"}, {1, "1G "},  {2, "2G "},  {4, "4G "},  {8, "8G "},
    {10, "10G"}, {16, "16G"}, {32, "32G"}, {15, "Auto"}, {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_port_type_str[] = {
    {1, "UN"}, {5, "N"}, {6, "NL"}, {20, "LP"}, {21, "P2P"}, {22, "VP"}, {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_port_topology_str[] = {
    {0, "Unknown"}, {5, "P2P"}, {2, "Loop"}, {4, "Auto"}, {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_rport_state_str[] = {
    {0, "uninit"}, {1, "offline"}, {2, "plogi"},    {3, "online"}, {4, "retry"},
    {5, "nsquery"}, {6, "adisc"},  {7, "logo"},     {8, "logorecv"}, {9, "nsdisc"},
    {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_itnim_state_str[] = {
    {0, "offline"},         {1, "prli send"}, {2, "prli sent"},        {3, "prli retry"},
    {4, "online callback"}, {5, "online"},    {6, "offline callback"}, {7, "initiator"},
    {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_auth_status_str[] = {
    {0, "no_auth"},    {1, "uninit"},      {2, "neg_send"}, {3, "chal_wait"}, {4, "neg_retry"},
    {5, "reply_send"}, {6, "status_wait"}, {7, "success"},  {8, "failed"},    {9, "unknown"},
    {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_auth_algo_str[] = {
    {1, "MD5"}, {2, "SHA1"}, {3, "MD5,SHA1"}, {4, "SHA1,MD5"}, {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_auth_group_str[] = {
    {0, "DH-NULL"}, {1, "DH-768"},  {2, "DH-1024"},          {4, "DH-1280"},
    {8, "DH-1536"}, {256, "DH-ALL(1,2,3,4)"}, {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_auth_rej_code_str[] = {
    {1, "Auth fail"}, {2, "Logical err"}, {255, "Logical err"}, {254, "no password"},
    {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_auth_rej_code_exp_str[] = {
    {1, "Auth Mech"},    {2, "DH Group"},    {3, "Hash Func"},  {4, "Auth XACT"},
    {5, "Auth fail"},    {6, "Payload"},     {7, "Proto msg"},  {8, "Restart Auth"},
    {9, "Auth Concat"},  {10, "Proto Ver."}, {255, "-"},        {254, "-"},
    {KVO_STATE_END, "--"},
};

// No row for 8.
const kvo_state_t kvo_vport_state_str[] = {
    {0, "uninit"}, {1, "offline"},  {2, "fdisc*"},   {3, "fdisc"}, {4, "fdisc-retry"},
    {5, "fdisc*"}, {6, "online"},   {7, "deleting"}, {9, "logo*"}, {10, "logo"},
    {11, "Error"}, {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_log_severity_str[] = {
    {0, "invalid"}, {1, "Critical"}, {2, "Error"}, {3, "Warning"}, {4, "Info"},
    {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_ethport_cee_state_str[] = {
    {1, "Linkdown"}, {2, "Linkup"}, {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_trunk_state_str[] = {
    {0, "Disabled"}, {1, "Linkup"}, {2, "Linkdown"}, {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_trunk_link_state_str[] = {
    {1, "Linkup"}, {2, "Linkdown"}, {3, "MisGrp"}, {4, "MisSpd"}, {5, "MisMode"},
    {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_trunk_link_fctl_str[] = {
    {0, "Normal"}, {1, "VC"}, {2, "QoS VC"}, {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_cee_status_str[] = {
    {0, "DCB Linkup"}, {1, "Linkup"}, {3, "Linkdown"}, {2, "Loopback"}, {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_vmq_state_str[] = {
    {1, "Undefined"}, {2, "Allocated"}, {3, "SetFilter"}, {4, "Paused"},
    {5, "Running"},   {6, "StopDma"},   {7, "Freeing"},   {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_mode_str[] = {
    {1, "FC"}, {2, "CNA"}, {3, "NIC"}, {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_lport_role_str[] = {
    {1, "IM"}, {2, "TM"}, {4, "IP"}, {5, "IM IP"}, {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_bbcr_state_str[] = {
    {0, "Disabled"}, {1, "Online"}, {2, "Offline"}, {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_bbcr_err_reason_str[] = {
    {0, "None"},
    {1, "Not supported at current port speed"},
    {2, "No support on peer port"},
    {3, "Connected to non TRVN switch"},
    {4, "Login reject by peer port"},
    {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_fec_state_str[] = {
    {1, "Online"}, {2, "Offline"}, {3, "Offline (link speed is not 16 Gig)"},
    {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_diag_dport_test_status_str[] = {
    {0, "Not started"}, {1, "Passed"},    {2, "Skipped"},  {3, "Failed"},
    {4, "In progress"}, {5, "Check switch result"}, {6, "Stopped"}, {KVO_STATE_END, "--"},
};

const kvo_state_t kvo_diag_dport_test_opmode_str[] = {
    {0, "Auto"}, {1, "Manual"}, {KVO_STATE_END, "--"},
};

// DCBX negotiation outcomes. The joined words ("notcompatible", "shouldequal", ...) are kept
// as these texts have always been printed. No rows for 39 and 40.
const kvo_state_t kvo_port_linkstate_rsn_str[] = {
    {20, "Timeout waiting to receive from peer"},
    {21, "Received LLDP shutdown TLV from peer"},
    {22, "Peer not advertising DCBX"},
    {23, "Peer not advertising PG TLV"},
    {24, "Peer not advertising PFC TLV"},
    {25, "Peer not advertising FCOE TLV"},
    {26, "Protocol Error - PG values not compatible"},
    {27, "Protocol Error - PFC values not compatible"},
    {28, "Protocol Error - FCOE values notcompatible"},
    {29, "Invalid PGID values received [Valid values 0-7]"},
    {30, "Invalid BW values received [Sum of all BW shouldequal to 100]"},
    {31, "Invalid PFC values received [PFCs should beconsistent within a priority group]"},
    {32, "Invalid App values received [At least oneApp priority(s) must be set]"},
    {33, "PFC disabled for FCoE priority(s)"},
    {34, "Protocol Error - Duplicate Control TLVsreceived"},
    {35, "Protocol Error - Duplicate Feature TLVsreceived"},
    {36, "Applying new configuration in progress.Please retry"},
    {37, "Protocol Initialization in progress Or Waitingto receive from Peer"},
    {38, "Physical link down"},
    {41, "Protocol Error - ISCSI values notcompatible"},
    {42, "PFC disabled for iSCSI priority(s)"},
    {43, "iSCSI priority(s) overlap FCoE priority(s)"},
    {KVO_STATE_END, "Unknown Error."},
};

const char* kvol_flash_status_to_string(uint32_t c) { return kvol_state_lookup(kvo_flash_status_str, c); }
const char* kvol_flash_part_type_to_string(uint32_t c) { return kvol_state_lookup(kvo_flash_part_type_str, c); }
const char* kvol_ioc_state_to_string(uint32_t c) { return kvol_state_lookup(kvo_ioc_state_str, c); }
const char* kvol_faa_state_to_string(uint32_t c) { return kvol_state_lookup(kvo_faa_state_str, c); }
const char* kvol_faa_source_to_string(uint32_t c) { return kvol_state_lookup(kvo_faa_source_str, c); }
const char* kvol_port_states_to_string(uint32_t c) { return kvol_state_lookup(kvo_port_states_str, c); }
const char* kvol_qos_state_to_string(uint32_t c) { return kvol_state_lookup(kvo_qos_state_str, c); }
const char* kvol_qos_priority_to_string(uint32_t c) { return kvol_state_lookup(kvo_qos_priority_str, c); }
const char* kvol_port_speed_to_string(uint32_t c) { return kvol_state_lookup(kvo_port_speed_str, c); }
const char* kvol_port_type_to_string(uint32_t c) { return kvol_state_lookup(kvo_port_type_str, c); }
const char* kvol_port_topology_to_string(uint32_t c) { return kvol_state_lookup(kvo_port_topology_str, c); }
const char* kvol_rport_state_to_string(uint32_t c) { return kvol_state_lookup(kvo_rport_state_str, c); }
const char* kvol_itnim_state_to_string(uint32_t c) { return kvol_state_lookup(kvo_itnim_state_str, c); }
const char* kvol_auth_status_to_string(uint32_t c) { return kvol_state_lookup(kvo_auth_status_str, c); }
const char* kvol_auth_algo_to_string(uint32_t c) { return kvol_state_lookup(kvo_auth_algo_str, c); }
const char* kvol_auth_group_to_string(uint32_t c) { return kvol_state_lookup(kvo_auth_group_str, c); }
const char* kvol_auth_rej_code_to_string(uint32_t c) { return kvol_state_lookup(kvo_auth_rej_code_str, c); }
const char* kvol_auth_rej_code_exp_to_string(uint32_t c) { return kvol_state_lookup(kvo_auth_rej_code_exp_str, c); }
const char* kvol_vport_state_to_string(uint32_t c) { return kvol_state_lookup(kvo_vport_state_str, c); }
const char* kvol_log_severity_to_string(uint32_t c) { return kvol_state_lookup(kvo_log_severity_str, c); }
const char* kvol_ethport_cee_state_to_string(uint32_t c) { return kvol_state_lookup(kvo_ethport_cee_state_str, c); }
const char* kvol_trunk_state_to_string(uint32_t c) { return kvol_state_lookup(kvo_trunk_state_str, c); }
const char* kvol_trunk_link_state_to_string(uint32_t c) { return kvol_state_lookup(kvo_trunk_link_state_str, c); }
const char* kvol_trunk_link_fctl_to_string(uint32_t c) { return kvol_state_lookup(kvo_trunk_link_fctl_str, c); }
const char* kvol_cee_status_to_string(uint32_t c) { return kvol_state_lookup(kvo_cee_status_str, c); }
const char* kvol_vmq_state_to_string(uint32_t c) { return kvol_state_lookup(kvo_vmq_state_str, c); }
const char* kvol_mode_to_string(uint32_t c) { return kvol_state_lookup(kvo_mode_str, c); }
const char* kvol_lport_role_to_string(uint32_t c) { return kvol_state_lookup(kvo_lport_role_str, c); }
const char* kvol_bbcr_state_to_string(uint32_t c) { return kvol_state_lookup(kvo_bbcr_state_str, c); }
const char* kvol_bbcr_err_reason_to_string(uint32_t c) { return kvol_state_lookup(kvo_bbcr_err_reason_str, c); }
const char* kvol_fec_state_to_string(uint32_t c) { return kvol_state_lookup(kvo_fec_state_str, c); }
const char* kvol_diag_dport_test_status_to_string(uint32_t c) { return kvol_state_lookup(kvo_diag_dport_test_status_str, c); }
const char* kvol_diag_dport_test_opmode_to_string(uint32_t c) { return kvol_state_lookup(kvo_diag_dport_test_opmode_str, c); }
const char* kvol_port_linkstate_rsn_to_string(uint32_t c) { return kvol_state_lookup(kvo_port_linkstate_rsn_str, c); }

// Fixed 8-byte fields: a name of eight characters or more would not compile.
const kvo_plog_mid_s kvo_plog_mid[KVO_PLOG_MID_COUNT] = {
    {"Invalid"}, {"Debug"}, {"Driver"}, {"HAL"}, {"FCXP"}, {"UF"}, {"FCS"}, {"LPS"}, {"Max"},
};

const kvo_plog_eid_s kvo_plog_eid[KVO_PLOG_EID_COUNT] = {
    {"Invalid"}, {"iocstop"}, {"iocstrt"}, {"pstop"},   {"pstart"}, {"pstchg"},  {"Tx"},
    {"Tx_Ack1"}, {"Tx_Rjt"},  {"Tx_Bsy"},  {"Rx"},      {"Rx_Ack1"}, {"Rx_Rjt"}, {"Rx_Bsy"},
    {"ct_in"},   {"ct_out"},  {"drvstrt"}, {"rscn"},    {"debug"},  {"misc"},    {"fcfdisc"},
    {"fcfcvl"},  {"login"},   {"logout"},  {"trkscn"},  {""},
};

// Direct index: the caller has checked the id against the array size.
const char* kvo_plog_mid_strings(uint32_t mid) { return kvo_plog_mid[mid].m_str; }

const char* kvo_plog_eid_strings(uint32_t eid) { return kvo_plog_eid[eid].e_str; }

static const char* const sfp_media_str[KVO_SFP_MEDIA_COUNT] = {"--", "cu", "lw", "sw", "el", "us"};

// Direct index: the media code comes from the SFP attributes, which the caller has checked.
const char* kvol_get_sfp_media(uint32_t media) { return sfp_media_str[media]; }

// Two's complement of the byte sum, so that the bytes plus the checksum add up to 0 mod 256.
uint8_t kvol_checksum_u8(const uint8_t* buf, uint32_t len) {
    uint32_t sum = 0;
    for (uint32_t i = 0; i < len; ++i) {
        sum += buf[i];
    }
    return static_cast<uint8_t>((~sum + 1) & 0xFF);
}
