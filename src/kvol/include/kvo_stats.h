#pragma once
// Statistics records the drivers and the firmware return, and the requests that carry them.
// Every counter is a named fixed-width field in host byte order; a record that embeds another
// embeds it whole, and where a record's meaning depends on the port's personality it holds
// the alternatives as arms of an anonymous union. The library prints them through the
// statistics tables (kvol_stats.h), which follow these layouts field by field.
#include <cstddef>
#include <cstdint>

#include "kvo_defs.h"
#include "kvo_ioctl.h"

// ---- IOC ---------------------------------------------------------------------------------------

// What the firmware counts for the IOC.
struct kvo_fw_ioc_stats_s {
    uint32_t hb_count;      // heart-beats the firmware sent
    uint32_t enable_reqs;
    uint32_t disable_reqs;
    uint32_t getattr_reqs;
    uint32_t stats_reqs;
    uint32_t unknown_reqs;  // mailbox requests the firmware did not recognise
};
typedef kvo_fw_ioc_stats_s kvo_fw_ioc_stats_t;
static_assert(sizeof(kvo_fw_ioc_stats_t) == 24);

// What the driver counts for the IOC.
struct kvo_ioc_drv_stats_s {
    uint32_t mbox_intr;
    uint32_t enable_evts;
    uint32_t disable_evts;
    uint32_t hb_failures;
    uint32_t fw_boots;
    uint32_t stats_timeouts;
    uint32_t hb_count;  // heart-beats the driver saw
    uint32_t disable_reqs;
    uint32_t enable_reqs;
    uint32_t disable_replies;
    uint32_t enable_replies;
};
typedef kvo_ioc_drv_stats_s kvo_ioc_drv_stats_t;
static_assert(sizeof(kvo_ioc_drv_stats_t) == 44);
static_assert(offsetof(kvo_ioc_drv_stats_t, mbox_intr) == 0);
static_assert(offsetof(kvo_ioc_drv_stats_t, enable_evts) == 4);
static_assert(offsetof(kvo_ioc_drv_stats_t, disable_evts) == 8);
static_assert(offsetof(kvo_ioc_drv_stats_t, hb_failures) == 12);
static_assert(offsetof(kvo_ioc_drv_stats_t, fw_boots) == 16);
static_assert(offsetof(kvo_ioc_drv_stats_t, stats_timeouts) == 20);
static_assert(offsetof(kvo_ioc_drv_stats_t, hb_count) == 24);
static_assert(offsetof(kvo_ioc_drv_stats_t, disable_reqs) == 28);
static_assert(offsetof(kvo_ioc_drv_stats_t, enable_reqs) == 32);
static_assert(offsetof(kvo_ioc_drv_stats_t, disable_replies) == 36);
static_assert(offsetof(kvo_ioc_drv_stats_t, enable_replies) == 40);

struct kvo_ioc_stats_s {
    kvo_ioc_drv_stats_t drv_stats;
    uint32_t rsvd;  // the firmware part starts on an 8-byte boundary
    kvo_fw_ioc_stats_t fw_stats;
};
typedef kvo_ioc_stats_s kvo_ioc_stats_t;
static_assert(sizeof(kvo_ioc_stats_t) == 72);
static_assert(offsetof(kvo_ioc_stats_t, drv_stats) == 0);
static_assert(offsetof(kvo_ioc_stats_t, fw_stats) == 48);

// ---- Physical port, as the storage driver reports it --------------------------------------------

// FC link counters of a port in FC mode.
struct kvo_port_fc_stats_s {
    uint64_t secs_reset;  // seconds since the counters were last cleared
    uint64_t tx_frames;
    uint64_t tx_words;
    uint64_t tx_lip;
    uint64_t tx_nos;
    uint64_t rx_frames;
    uint64_t rx_words;
    uint64_t rx_lip;
    uint64_t rx_nos;
    uint64_t error_frames;
    uint64_t dropped_frames;
    uint64_t link_failures;
    uint64_t loss_of_sync;
    uint64_t loss_of_signal;
    uint64_t primseq_errors;
    uint64_t bad_os_count;  // ordered sets not recognised
    uint64_t invalid_crcs;
    uint64_t undersized_frames;
    uint64_t oversized_frames;
    uint64_t bad_eof_frames;
    uint64_t bbcr_frames_lost;   // buffer-to-buffer credit recovery
    uint64_t bbcr_credits_lost;
    uint64_t bbcr_link_resets;
};
typedef kvo_port_fc_stats_s kvo_port_fc_stats_t;
static_assert(sizeof(kvo_port_fc_stats_t) == 184);

// MAC counters of a port in CNA or NIC mode.
struct kvo_port_eth_stats_s {
    uint64_t secs_reset;
    uint64_t tx_frames;
    uint64_t tx_bytes;
    uint64_t tx_multicast;
    uint64_t tx_broadcast;
    uint64_t tx_pause;
    uint64_t tx_pfc;
    uint64_t tx_errors;
    uint64_t tx_drops;
    uint64_t rx_frames;
    uint64_t rx_bytes;
    uint64_t rx_multicast;
    uint64_t rx_broadcast;
    uint64_t rx_pause;
    uint64_t rx_pfc;
    uint64_t rx_crc_errors;
    uint64_t rx_align_errors;
    uint64_t rx_undersize;
    uint64_t rx_oversize;
    uint64_t rx_fragments;
    uint64_t rx_jabbers;
    uint64_t rx_drops;
};
typedef kvo_port_eth_stats_s kvo_port_eth_stats_t;
static_assert(sizeof(kvo_port_eth_stats_t) == 176);

// A port's counters: the arm that matches the port's mode is the valid one.
struct kvo_port_stats_s {
    union {
        kvo_port_fc_stats_t fc;
        kvo_port_eth_stats_t eth;
    };
};
typedef kvo_port_stats_s kvo_port_stats_t;
static_assert(sizeof(kvo_port_stats_t) == 184);
static_assert(offsetof(kvo_port_stats_t, fc) == 0 && offsetof(kvo_port_stats_t, eth) == 0);

// DCB exchange (LLDP and DCBX) counters of a CNA port.
struct kvo_cee_stats_s {
    uint32_t lldp_tx_frames;
    uint32_t lldp_rx_frames;
    uint32_t lldp_rx_discards;
    uint32_t lldp_rx_errors;
    uint32_t lldp_tlvs_unknown;
    uint32_t lldp_ageouts;
    uint32_t lldp_shutdowns;
    uint32_t dcbx_linkups;
    uint32_t dcbx_linkdowns;
    uint32_t dcbx_peer_changes;
    uint32_t dcbx_rx_tlvs;
    uint32_t dcbx_rx_tlv_errors;
    uint32_t dcbx_cfg_mismatches;
    uint32_t pfc_cfg_changes;
    uint32_t ets_cfg_changes;
    uint32_t app_cfg_changes;
};
typedef kvo_cee_stats_s kvo_cee_stats_t;
static_assert(sizeof(kvo_cee_stats_t) == 64);

// ---- Ethernet function, as the Ethernet driver reports it ---------------------------------------

// The Ethernet driver's own per-port counters.
struct tqed_ethport_stats_s {
    uint64_t rx_packets;
    uint64_t rx_bytes;
    uint64_t rx_drops;
    uint64_t rx_errors;
    uint64_t rx_buf_alloc_fails;
    uint64_t rx_csum_ok;
    uint64_t rx_csum_errors;
    uint64_t rx_lro_merged;
    uint64_t tx_packets;
    uint64_t tx_bytes;
    uint64_t tx_drops;
    uint64_t tx_errors;
    uint64_t tx_queue_stops;
    uint64_t tx_queue_wakeups;
    uint64_t tx_tso;
    uint64_t tx_csum_offload;
    uint64_t link_toggles;
    uint64_t mbox_timeouts;
};
typedef tqed_ethport_stats_s tqed_ethport_stats_t;
static_assert(sizeof(tqed_ethport_stats_t) == 144);

// Transmit function of the adapter's Ethernet engine.
struct tqe_stats_txf_s {
    uint64_t ucast_frames;
    uint64_t ucast_octets;
    uint64_t mcast_frames;
    uint64_t mcast_octets;
    uint64_t bcast_frames;
    uint64_t bcast_octets;
    uint64_t vlan_frames;
    uint64_t errors;
    uint64_t filter_vlan_drops;
    uint64_t filter_mac_drops;
};
typedef tqe_stats_txf_s tqe_stats_txf_t;
static_assert(sizeof(tqe_stats_txf_t) == 80);

// Receive function of the adapter's Ethernet engine.
struct tqe_stats_rxf_s {
    uint64_t ucast_frames;
    uint64_t ucast_octets;
    uint64_t mcast_frames;
    uint64_t mcast_octets;
    uint64_t bcast_frames;
    uint64_t bcast_octets;
    uint64_t vlan_frames;
    uint64_t frame_drops;
};
typedef tqe_stats_rxf_s tqe_stats_rxf_t;
static_assert(sizeof(tqe_stats_rxf_t) == 64);

// FCoE traffic leaving through the Ethernet MAC.
struct tqe_stats_fc_tx_s {
    uint64_t frames;
    uint64_t octets;
    uint64_t fip_frames;
    uint64_t fip_octets;
    uint64_t errors;
    uint64_t pause_held;  // frames held back by pause
    uint64_t drops;
};
typedef tqe_stats_fc_tx_s tqe_stats_fc_tx_t;
static_assert(sizeof(tqe_stats_fc_tx_t) == 56);

// FCoE traffic arriving through the Ethernet MAC.
struct tqe_stats_fc_rx_s {
    uint64_t frames;
    uint64_t octets;
    uint64_t fip_frames;
    uint64_t fip_octets;
    uint64_t crc_errors;
    uint64_t eof_errors;
    uint64_t drops;
};
typedef tqe_stats_fc_rx_s tqe_stats_fc_rx_t;
static_assert(sizeof(tqe_stats_fc_rx_t) == 56);

// Receive address dispatch: how arriving frames were sorted onto queues.
struct cna_stats_rad_s {
    uint64_t rx_frames;
    uint64_t rx_octets;
    uint64_t rx_vlan_frames;
    uint64_t rx_ucast;
    uint64_t rx_mcast;
    uint64_t rx_bcast;
    uint64_t rx_no_buf_drops;
    uint64_t rx_rss_dispatch;
    uint64_t rx_default_queue;
    uint64_t rx_filter_drops;
};
typedef cna_stats_rad_s cna_stats_rad_t;
static_assert(sizeof(cna_stats_rad_t) == 80);

// Back-pressure (pause and per-priority pause) sent.
struct cna_stats_bpc_tx_s {
    uint64_t pause_frames;
    uint64_t zero_pause_frames;   // pause with a quanta of 0 (resume)
    uint64_t first_pause_frames;  // pause that started a paused period
    uint64_t pfc_frames;
    uint64_t zero_pfc_frames;
    uint64_t first_pfc_frames;
};
typedef cna_stats_bpc_tx_s cna_stats_bpc_tx_t;
static_assert(sizeof(cna_stats_bpc_tx_t) == 48);

// Back-pressure received.
struct cna_stats_bpc_rx_s {
    uint64_t pause_frames;
    uint64_t zero_pause_frames;
    uint64_t first_pause_frames;
    uint64_t pfc_frames;
    uint64_t zero_pfc_frames;
    uint64_t first_pfc_frames;
};
typedef cna_stats_bpc_rx_s cna_stats_bpc_rx_t;
static_assert(sizeof(cna_stats_bpc_rx_t) == 48);

// MAC transmit counters; the size buckets count frames by length in bytes.
struct cna_stats_mac_tx_s {
    uint64_t frames;
    uint64_t octets;
    uint64_t ucast;
    uint64_t mcast;
    uint64_t bcast;
    uint64_t vlan;
    uint64_t pause;
    uint64_t fcs_errors;
    uint64_t underruns;
    uint64_t jabbers;
    uint64_t drops;
    uint64_t frames_64;
    uint64_t frames_65_127;
    uint64_t frames_128_255;
    uint64_t frames_256_511;
    uint64_t frames_512_1023;
    uint64_t frames_1024_1518;
    uint64_t frames_1519_max;
};
typedef cna_stats_mac_tx_s cna_stats_mac_tx_t;
static_assert(sizeof(cna_stats_mac_tx_t) == 144);

// MAC receive counters.
struct cna_stats_mac_rx_s {
    uint64_t frames;
    uint64_t octets;
    uint64_t ucast;
    uint64_t mcast;
    uint64_t bcast;
    uint64_t vlan;
    uint64_t pause;
    uint64_t fcs_errors;
    uint64_t align_errors;
    uint64_t length_errors;
    uint64_t code_errors;
    uint64_t undersize;
    uint64_t oversize;
    uint64_t fragments;
    uint64_t jabbers;
    uint64_t drops;
    uint64_t frames_64;
    uint64_t frames_65_127;
    uint64_t frames_128_255;
    uint64_t frames_256_511;
    uint64_t frames_512_1023;
    uint64_t frames_1024_max;
};
typedef cna_stats_mac_rx_s cna_stats_mac_rx_t;
static_assert(sizeof(cna_stats_mac_rx_t) == 176);

// The adapter's Ethernet engine, block by block.
struct tqe_stats_s {
    cna_stats_mac_rx_t mac_rx;
    cna_stats_mac_tx_t mac_tx;
    cna_stats_bpc_rx_t bpc_rx;
    cna_stats_bpc_tx_t bpc_tx;
    cna_stats_rad_t rad;
    tqe_stats_fc_rx_t fc_rx;
    tqe_stats_fc_tx_t fc_tx;
    tqe_stats_rxf_t rxf;
    tqe_stats_txf_t txf;
};
typedef tqe_stats_s tqe_stats_t;
static_assert(sizeof(tqe_stats_t) == 752);

// An Ethernet port: the engine's counters, then the driver's.
struct kvo_ethport_stats_s {
    tqe_stats_t hw;
    tqed_ethport_stats_t drv;
};
typedef kvo_ethport_stats_s kvo_ethport_stats_t;
static_assert(sizeof(kvo_ethport_stats_t) == 896);
static_assert(offsetof(kvo_ethport_stats_t, drv) == 752);

// ---- Virtual fabric, authentication, logical and virtual ports ----------------------------------

// Fabric login of one virtual fabric.
struct kvo_vf_stats_s {
    uint32_t flogi_sent;
    uint32_t flogi_accepts;
    uint32_t flogi_rejects;
    uint32_t flogi_rsp_errors;
    uint32_t flogi_timeouts;
    uint32_t flogi_retries;
    uint32_t flogi_alloc_waits;  // logins delayed for want of an exchange
    uint32_t flogi_rcvd;
    uint32_t fabric_onlines;
    uint32_t fabric_offlines;
    uint32_t fabric_isolations;
    uint32_t rsvd;
};
typedef kvo_vf_stats_s kvo_vf_stats_t;
static_assert(sizeof(kvo_vf_stats_t) == 48);

// One direction of the authentication protocol (as initiator or as responder).
struct kvo_auth_proto_stats_s {
    uint32_t negotiate_sent;
    uint32_t negotiate_rcvd;
    uint32_t challenge_sent;
    uint32_t challenge_rcvd;
    uint32_t reply_sent;
    uint32_t reply_rcvd;
    uint32_t success_sent;
    uint32_t success_rcvd;
    uint32_t reject_sent;
    uint32_t reject_rcvd;
    uint32_t timeouts;
    uint32_t hash_mismatches;
};
typedef kvo_auth_proto_stats_s kvo_auth_proto_stats_t;
static_assert(sizeof(kvo_auth_proto_stats_t) == 48);

struct kvo_auth_stats_s {
    uint32_t attempts;
    uint32_t successes;
    uint32_t failures;
    uint32_t rejects;
    uint32_t timeouts;
    uint32_t secret_mismatches;
    uint32_t algo_mismatches;
    uint32_t group_mismatches;
    kvo_auth_proto_stats_t initiator;
    kvo_auth_proto_stats_t responder;
};
typedef kvo_auth_stats_s kvo_auth_stats_t;
static_assert(sizeof(kvo_auth_stats_t) == 128);
static_assert(offsetof(kvo_auth_stats_t, initiator) == 32);

// A logical port's fabric services: fabric login, name and management servers, state change
// registration, the link services it received and the remote ports it made.
struct kvo_lport_stats_s {
    uint32_t flogi_sent;
    uint32_t flogi_accepts;
    uint32_t flogi_rejects;
    uint32_t flogi_rsp_errors;
    uint32_t flogi_timeouts;
    uint32_t flogi_retries;
    uint32_t flogi_rcvd;
    uint32_t fabric_onlines;
    uint32_t fabric_offlines;
    uint32_t fabric_cleanups;
    uint32_t ns_plogi_sent;
    uint32_t ns_plogi_accepts;
    uint32_t ns_plogi_rejects;
    uint32_t ns_plogi_timeouts;
    uint32_t ns_rspnid_sent;  // symbolic port name registration
    uint32_t ns_rspnid_accepts;
    uint32_t ns_rspnid_rejects;
    uint32_t ns_rftid_sent;   // FC-4 types registration
    uint32_t ns_rftid_accepts;
    uint32_t ns_rftid_rejects;
    uint32_t ns_rffid_sent;   // FC-4 features registration
    uint32_t ns_rffid_accepts;
    uint32_t ns_rffid_rejects;
    uint32_t ns_gidft_sent;   // port list query
    uint32_t ns_gidft_accepts;
    uint32_t ns_gidft_rejects;
    uint32_t ns_gidft_unknown_rsp;
    uint32_t ns_timeouts;
    uint32_t ns_retries;
    uint32_t ms_plogi_sent;
    uint32_t ms_plogi_accepts;
    uint32_t ms_plogi_rejects;
    uint32_t ms_rhba_sent;    // HBA registration
    uint32_t ms_rhba_accepts;
    uint32_t ms_rprt_sent;    // port registration
    uint32_t ms_rprt_accepts;
    uint32_t ms_rpa_sent;     // port attribute registration
    uint32_t ms_rpa_accepts;
    uint32_t ms_rejects;
    uint32_t ms_timeouts;
    uint32_t scr_sent;
    uint32_t scr_accepts;
    uint32_t scr_rejects;
    uint32_t rscns_rcvd;
    uint32_t rscn_entries;    // affected addresses over all RSCNs
    uint32_t plogi_rcvd;
    uint32_t prli_rcvd;
    uint32_t logo_rcvd;
    uint32_t prlo_rcvd;
    uint32_t adisc_rcvd;
    uint32_t rnid_rcvd;
    uint32_t echo_rcvd;
    uint32_t rrq_rcvd;
    uint32_t els_unsupported;
    uint32_t els_rejects_sent;
    uint32_t rport_creates;
    uint32_t rport_deletes;
    uint32_t rport_onlines;
    uint32_t rport_offlines;
    uint32_t unsol_frames;
    uint32_t unsol_drops;
    uint32_t fcxp_alloc_waits;  // requests delayed for want of an exchange
};
typedef kvo_lport_stats_s kvo_lport_stats_t;
static_assert(sizeof(kvo_lport_stats_t) == 248);

// A virtual port: its logical port's counters, then its own fabric discovery and life cycle.
struct kvo_vport_stats_s {
    kvo_lport_stats_t port_stats;
    uint32_t fdisc_sent;
    uint32_t fdisc_accepts;
    uint32_t fdisc_rejects;
    uint32_t fdisc_rsp_errors;
    uint32_t fdisc_timeouts;
    uint32_t fdisc_retries;
    uint32_t fdisc_alloc_waits;
    uint32_t fdisc_no_npiv;     // the fabric answered without NPIV support
    uint32_t fdisc_unknown_rsp;
    uint32_t logo_sent;
    uint32_t logo_accepts;
    uint32_t logo_rejects;
    uint32_t logo_timeouts;
    uint32_t logo_alloc_waits;
    uint32_t vport_creates;
    uint32_t vport_deletes;
    uint32_t vport_onlines;
    uint32_t vport_offlines;
    uint32_t fabric_no_npiv;    // fabric came online without NPIV support
    uint32_t rsvd;
};
typedef kvo_vport_stats_s kvo_vport_stats_t;
static_assert(sizeof(kvo_vport_stats_t) == 328);
static_assert(offsetof(kvo_vport_stats_t, fdisc_sent) == 248);

// ---- Remote ports and I-T nexus -----------------------------------------------------------------

// The remote port's life in the driver's hardware layer.
struct kvo_rport_hal_stats_s {
    uint32_t create_reqs;
    uint32_t delete_reqs;
    uint32_t online_reqs;
    uint32_t offline_reqs;
    uint32_t fw_create_rsps;
    uint32_t fw_delete_rsps;
    uint32_t fw_create_fails;
    uint32_t fw_delete_fails;
    uint32_t fw_online_evts;
    uint32_t fw_offline_evts;
    uint32_t qos_changes;
    uint32_t speed_changes;
    uint32_t resource_waits;
    uint32_t create_timeouts;
    uint32_t delete_timeouts;
    uint32_t unexpected_evts;
};
typedef kvo_rport_hal_stats_s kvo_rport_hal_stats_t;
static_assert(sizeof(kvo_rport_hal_stats_t) == 64);

// The remote port's link error status block, as it last answered a link status request.
struct kvo_rport_remote_link_stats_s {
    uint32_t link_failures;
    uint32_t loss_of_sync;
    uint32_t loss_of_signal;
    uint32_t primseq_errors;
    uint32_t invalid_words;
    uint32_t invalid_crcs;
};
typedef kvo_rport_remote_link_stats_s kvo_rport_remote_link_stats_t;
static_assert(sizeof(kvo_rport_remote_link_stats_t) == 24);

struct kvo_rport_stats_s {
    uint32_t onlines;
    uint32_t offlines;
    uint32_t rscns;
    uint32_t plogi_sent;
    uint32_t plogi_accepts;
    uint32_t plogi_rejects;
    uint32_t plogi_rsp_errors;
    uint32_t plogi_timeouts;
    uint32_t plogi_retries;
    uint32_t plogi_rcvd;
    uint32_t plogi_collisions;  // both sides logged in at once
    uint32_t adisc_sent;
    uint32_t adisc_accepts;
    uint32_t adisc_rejects;
    uint32_t adisc_timeouts;
    uint32_t adisc_rcvd;
    uint32_t logo_sent;
    uint32_t logo_accepts;
    uint32_t logo_timeouts;
    uint32_t logo_rcvd;
    uint32_t prlo_rcvd;
    uint32_t prli_rcvd;
    uint32_t rpsc_sent;         // port speed query
    uint32_t rpsc_accepts;
    uint32_t rpsc_rejects;
    uint32_t rls_sent;          // link status query
    uint32_t rls_accepts;
    uint32_t rls_rejects;
    uint32_t rls_timeouts;
    uint32_t gpnid_sent;        // name server lookup of the port name
    uint32_t gpnid_accepts;
    uint32_t gpnid_rejects;
    uint32_t gpnid_timeouts;
    uint32_t els_rcvd;
    uint32_t els_rejects_sent;
    uint32_t abts_rcvd;
    uint32_t fcxp_alloc_waits;
    uint32_t speed_changes;
    uint32_t qos_changes;
    uint32_t address_changes;
    uint32_t pid_conflicts;
    uint32_t create_reqs;
    uint32_t delete_reqs;
    uint32_t itnim_creates;
    kvo_rport_hal_stats_t hal_stats;
    kvo_rport_remote_link_stats_t rls;
};
typedef kvo_rport_stats_s kvo_rport_stats_t;
static_assert(sizeof(kvo_rport_stats_t) == 264);
static_assert(offsetof(kvo_rport_stats_t, hal_stats) == 176);
static_assert(offsetof(kvo_rport_stats_t, rls) == 240);

// The login of the FCP initiator to one target.
struct kvo_itnim_stats_s {
    uint32_t onlines;
    uint32_t offlines;
    uint32_t prli_sent;
    uint32_t fcxp_alloc_wait;
    uint32_t prli_rsp_err;
    uint32_t prli_rsp_acc;
    uint32_t initiator;  // the remote port turned out to be an initiator
    uint32_t prli_rsp_parse_err;
    uint32_t prli_rsp_rjt;
    uint32_t timeout;
    uint32_t sler;       // sequence level error recoveries
    uint32_t rsvd;
};
typedef kvo_itnim_stats_s kvo_itnim_stats_t;
static_assert(sizeof(kvo_itnim_stats_t) == 48);
static_assert(offsetof(kvo_itnim_stats_t, onlines) == 0);
static_assert(offsetof(kvo_itnim_stats_t, offlines) == 4);
static_assert(offsetof(kvo_itnim_stats_t, prli_sent) == 8);
static_assert(offsetof(kvo_itnim_stats_t, fcxp_alloc_wait) == 12);
static_assert(offsetof(kvo_itnim_stats_t, prli_rsp_err) == 16);
static_assert(offsetof(kvo_itnim_stats_t, prli_rsp_acc) == 20);
static_assert(offsetof(kvo_itnim_stats_t, initiator) == 24);
static_assert(offsetof(kvo_itnim_stats_t, prli_rsp_parse_err) == 28);
static_assert(offsetof(kvo_itnim_stats_t, prli_rsp_rjt) == 32);
static_assert(offsetof(kvo_itnim_stats_t, timeout) == 36);
static_assert(offsetof(kvo_itnim_stats_t, sler) == 40);
static_assert(offsetof(kvo_itnim_stats_t, rsvd) == 44);

// I/O counters of the FCP initiator. The same record serves one I-T nexus, one logical port
// and the whole function (module statistics). Byte counts wrap at 32 bits.
struct kvo_itnim_iostats_s {
    uint32_t total_ios;
    uint32_t input_reqs;        // reads
    uint32_t output_reqs;       // writes
    uint32_t io_comps;
    uint32_t wr_throughput;     // bytes written
    uint32_t rd_throughput;     // bytes read
    uint32_t iocomp_ok;         // completed through the slow path
    uint32_t iocomp_underrun;
    uint32_t iocomp_overrun;
    uint32_t qwait;             // waited for room in the request queue
    uint32_t qresumes;
    uint32_t no_iotags;
    uint32_t iocomp_timedout;
    uint32_t iocomp_tgt_offline;
    uint32_t iocomp_aborted;
    uint32_t iocomp_cleanups;
    uint32_t iocomp_res_free;   // completed after their resources were released
    uint32_t iocomp_fw_err;
    uint32_t iocomp_dif_err;
    uint32_t iocomp_sense;
    uint32_t iocomp_busy;
    uint32_t iocomp_qfull;
    uint32_t iocomp_check_cond;
    uint32_t iocomp_resid_mismatch;
    uint32_t host_aborts;
    uint32_t host_abort_comps;
    uint32_t host_abort_fails;
    uint32_t host_cleanups;
    uint32_t fw_aborts;
    uint32_t sler_events;
    uint32_t rec_sent;          // exchange state queries
    uint32_t rec_rsps;
    uint32_t srr_sent;          // sequence retransmission requests
    uint32_t io_retries;
    uint32_t tm_reqs;
    uint32_t tm_success;
    uint32_t tm_failures;
    uint32_t tm_timeouts;
    uint32_t tm_lun_resets;
    uint32_t tm_tgt_resets;
    uint32_t tm_abort_tasks;
    uint32_t tm_clear_tasks;
    uint32_t tm_qwait;
    uint32_t tm_qresumes;
    uint32_t tm_io_comps;       // I/O completed while a task management request was pending
    uint32_t tm_cleanups;
    uint32_t tm_iocdowns;
    uint32_t io_iocdowns;
    uint32_t io_pathtov_holds;  // held while the path time-out ran
    uint32_t io_pathtov_fails;
    uint32_t io_pathtov_resumes;
    uint32_t throttle_waits;
    uint32_t throttle_resumes;
    uint32_t lunmask_rejects;
    uint32_t io_invalid_lun;
    uint32_t io_dma_errors;
    uint32_t io_sg_limits;
    uint32_t ios_le_512;        // transfer size buckets
    uint32_t ios_le_4k;
    uint32_t ios_le_64k;
    uint32_t ios_gt_64k;
    uint32_t lat_le_1ms;        // completion time buckets
    uint32_t lat_le_10ms;
    uint32_t lat_le_100ms;
    uint32_t lat_gt_100ms;
    uint32_t lat_max_ms;        // longest completion time seen
    uint32_t io_reqs_dropped;
    uint32_t io_reqs_rejected;
};
typedef kvo_itnim_iostats_s kvo_itnim_iostats_t;
static_assert(sizeof(kvo_itnim_iostats_t) == 272);
static_assert(offsetof(kvo_itnim_iostats_t, total_ios) == 0);
static_assert(offsetof(kvo_itnim_iostats_t, input_reqs) == 4);
static_assert(offsetof(kvo_itnim_iostats_t, output_reqs) == 8);
static_assert(offsetof(kvo_itnim_iostats_t, io_comps) == 12);
static_assert(offsetof(kvo_itnim_iostats_t, wr_throughput) == 16);
static_assert(offsetof(kvo_itnim_iostats_t, rd_throughput) == 20);
static_assert(offsetof(kvo_itnim_iostats_t, iocomp_ok) == 24);
static_assert(offsetof(kvo_itnim_iostats_t, iocomp_underrun) == 28);
static_assert(offsetof(kvo_itnim_iostats_t, iocomp_overrun) == 32);
static_assert(offsetof(kvo_itnim_iostats_t, qwait) == 36);
static_assert(offsetof(kvo_itnim_iostats_t, qresumes) == 40);
static_assert(offsetof(kvo_itnim_iostats_t, no_iotags) == 44);
static_assert(offsetof(kvo_itnim_iostats_t, iocomp_timedout) == 48);
static_assert(offsetof(kvo_itnim_iostats_t, iocomp_tgt_offline) == 52);

// I/O of nexuses that were deleted, so that their counts are not lost with them.
struct kvo_fcpim_del_itn_stats_s {
    uint32_t itns_deleted;
    uint32_t ios_total;
    uint32_t ios_aborted;
    uint32_t ios_timed_out;
    uint32_t ios_completed;
    uint32_t ios_host_aborted;
    uint32_t tms_pending;  // task management requests still open at deletion
    uint32_t ioc_downs;
};
typedef kvo_fcpim_del_itn_stats_s kvo_fcpim_del_itn_stats_t;
static_assert(sizeof(kvo_fcpim_del_itn_stats_t) == 32);

// ---- IP over FC ---------------------------------------------------------------------------------

// IP over FC, per remote port: address resolution and login.
struct kvo_iprp_stats_s {
    uint32_t farp_req_sent;
    uint32_t farp_req_rcvd;
    uint32_t farp_rsp_sent;
    uint32_t farp_rsp_rcvd;
    uint32_t farp_rsp_errors;
    uint32_t farp_timeouts;
    uint32_t plogi_sent;
    uint32_t plogi_accepts;
    uint32_t plogi_rejects;
    uint32_t logo_sent;
    uint32_t logo_rcvd;
    uint32_t nport_onlines;
    uint32_t nport_offlines;
    uint32_t no_nport_drops;  // packets for an address with no logged-in port
};
typedef kvo_iprp_stats_s kvo_iprp_stats_t;
static_assert(sizeof(kvo_iprp_stats_t) == 56);

struct kvo_ipfc_stats_s {
    kvo_iprp_stats_t iprp;
    uint64_t tx_packets;
    uint64_t tx_bytes;
    uint64_t tx_errors;
    uint64_t tx_drops;
    uint64_t rx_packets;
    uint64_t rx_bytes;
    uint64_t rx_errors;
    uint64_t rx_drops;
    uint64_t rx_bcast;
    uint64_t rx_mcast;
};
typedef kvo_ipfc_stats_s kvo_ipfc_stats_t;
static_assert(sizeof(kvo_ipfc_stats_t) == 136);
static_assert(offsetof(kvo_ipfc_stats_t, tx_packets) == 56);

// ---- Firmware -----------------------------------------------------------------------------------

// Initiator I/O in the firmware.
struct kvo_fw_ioim_stats_s {
    uint32_t host_ios;
    uint32_t host_aborts;
    uint32_t host_cleanups;
    uint32_t read_reqs;
    uint32_t write_reqs;
    uint32_t data_len_errors;
    uint32_t frames_out_of_order;
    uint32_t io_timeouts;
    uint32_t abts_sent;
    uint32_t abts_accepts;
    uint32_t abts_rejects;
    uint32_t abts_timeouts;
    uint32_t seq_recovery_reqs;
    uint32_t dif_errors;
    uint32_t fcp_rsp_errors;
    uint32_t underruns;
    uint32_t overruns;
    uint32_t retried_ios;
};
typedef kvo_fw_ioim_stats_s kvo_fw_ioim_stats_t;
static_assert(sizeof(kvo_fw_ioim_stats_t) == 72);

// Target I/O in the firmware.
struct kvo_fw_tio_stats_s {
    uint32_t cmds_rcvd;
    uint32_t xfer_rdy_sent;
    uint32_t data_frames_rcvd;
    uint32_t data_frames_sent;
    uint32_t rsp_sent;
    uint32_t aborts_rcvd;
    uint32_t task_mgmt_rcvd;
    uint32_t cleanups;
    uint32_t unexp_frames;
    uint32_t drops;
    uint32_t conf_reqs;   // confirmed completions asked for
    uint32_t conf_drops;
};
typedef kvo_fw_tio_stats_s kvo_fw_tio_stats_t;
static_assert(sizeof(kvo_fw_tio_stats_t) == 48);

struct kvo_fw_io_stats_s {
    kvo_fw_ioim_stats_t ioim;
    kvo_fw_tio_stats_t tio;
};
typedef kvo_fw_io_stats_s kvo_fw_io_stats_t;
static_assert(sizeof(kvo_fw_io_stats_t) == 120);

// The port's frame and primitive logic.
struct kvo_fw_port_fpg_stats_s {
    uint32_t intr_events;
    uint32_t intr_excess;
    uint32_t sig_lost;
    uint32_t sig_regained;
    uint32_t sync_lost;
    uint32_t sync_regained;
    uint32_t sync_timeouts;
    uint32_t fifo_overflows;
    uint32_t fifo_underflows;
    uint32_t idles_rcvd;
    uint32_t lr_rcvd;
    uint32_t lrr_rcvd;
    uint32_t ols_rcvd;
    uint32_t nos_rcvd;
    uint32_t lip_rcvd;
    uint32_t arb_rcvd;
    uint32_t mrk_rcvd;
    uint32_t unknown_prims;
};
typedef kvo_fw_port_fpg_stats_s kvo_fw_port_fpg_stats_t;
static_assert(sizeof(kvo_fw_port_fpg_stats_t) == 72);

// Loop initialisation and arbitration.
struct kvo_fw_lpsm_stats_s {
    uint32_t lip_sent;
    uint32_t lip_rcvd;
    uint32_t lip_f7_rcvd;
    uint32_t lip_f8_rcvd;
    uint32_t lip_reset_rcvd;
    uint32_t arb_won;
    uint32_t arb_lost;
    uint32_t opn_sent;
    uint32_t cls_sent;
    uint32_t cls_rcvd;
    uint32_t lisa_timeouts;
    uint32_t lirp_timeouts;
    uint32_t lilp_timeouts;
    uint32_t alpa_conflicts;
    uint32_t loop_inits;
    uint32_t loop_failures;
};
typedef kvo_fw_lpsm_stats_s kvo_fw_lpsm_stats_t;
static_assert(sizeof(kvo_fw_lpsm_stats_t) == 64);

// Link bring-up (hardware and software state machines).
struct kvo_fw_port_lksm_stats_s {
    uint32_t hw_link_ups;
    uint32_t hw_link_fails;
    uint32_t hw_wd_timeouts;
    uint32_t sw_link_ups;
    uint32_t sw_link_fails;
    uint32_t sw_wd_timeouts;
    uint32_t lr_sent;
    uint32_t lrr_sent;
    uint32_t ols_sent;
    uint32_t nos_sent;
    uint32_t lr_unexpected;
    uint32_t lrr_unexpected;
    uint32_t buf_waits;
    uint32_t primseq_errors;
};
typedef kvo_fw_port_lksm_stats_s kvo_fw_port_lksm_stats_t;
static_assert(sizeof(kvo_fw_port_lksm_stats_t) == 56);

// Speed negotiation.
struct kvo_fw_port_snsm_stats_s {
    uint32_t hw_successes;
    uint32_t hw_failures;
    uint32_t hw_wd_timeouts;
    uint32_t sw_successes;
    uint32_t sw_failures;
    uint32_t sw_wd_timeouts;
    uint32_t sync_lost;
    uint32_t sig_lost;
    uint32_t error_resets;
    uint32_t speed_downshifts;
    uint32_t tx_adapt_successes;
    uint32_t tx_adapt_failures;
};
typedef kvo_fw_port_snsm_stats_s kvo_fw_port_snsm_stats_t;
static_assert(sizeof(kvo_fw_port_snsm_stats_t) == 48);

// The optical module.
struct kvo_fw_port_physm_stats_s {
    uint32_t module_inserts;
    uint32_t module_removals;
    uint32_t module_invalid;
    uint32_t module_read_errors;
    uint32_t laser_faults;
    uint32_t temp_alarms;
    uint32_t rx_power_alarms;
    uint32_t tx_power_alarms;
};
typedef kvo_fw_port_physm_stats_s kvo_fw_port_physm_stats_t;
static_assert(sizeof(kvo_fw_port_physm_stats_t) == 32);

// FCoE initialisation protocol: VLAN and forwarder discovery, keep-alives, link services.
struct kvo_fw_fip_stats_s {
    uint32_t vlan_reqs_sent;
    uint32_t vlan_notifications;
    uint32_t vlan_errors;
    uint32_t vlan_timeouts;
    uint32_t vlan_invalid;
    uint32_t sol_sent;        // forwarder solicitations
    uint32_t adv_rcvd;        // forwarder advertisements
    uint32_t unsol_adv_rcvd;
    uint32_t adv_errors;
    uint32_t disc_timeouts;
    uint32_t fcf_unavailable;
    uint32_t keepalives_sent;
    uint32_t keepalives_missed;
    uint32_t clear_vlinks_rcvd;
    uint32_t logo_sent;
    uint32_t els_unsupported;
    uint32_t els_errors;
    uint32_t untagged_frames;
    uint32_t version_errors;
    uint32_t fcf_changes;
};
typedef kvo_fw_fip_stats_s kvo_fw_fip_stats_t;
static_assert(sizeof(kvo_fw_fip_stats_t) == 80);

// Logins of the logical ports as the firmware sends them.
struct kvo_fw_lps_stats_s {
    uint32_t flogi_sent;
    uint32_t flogi_accepts;
    uint32_t flogi_rejects;
    uint32_t flogi_timeouts;
    uint32_t fdisc_sent;
    uint32_t fdisc_accepts;
    uint32_t fdisc_rejects;
    uint32_t fdisc_timeouts;
    uint32_t logo_sent;
    uint32_t logo_accepts;
    uint32_t mac_invalid;  // fabric-provided MAC address refused
    uint32_t pid_changes;
};
typedef kvo_fw_lps_stats_s kvo_fw_lps_stats_t;
static_assert(sizeof(kvo_fw_lps_stats_t) == 48);

// FCoE encapsulation.
struct kvo_fw_fcoe_stats_s {
    uint64_t tx_frames;
    uint64_t tx_octets;
    uint64_t tx_fip_frames;
    uint64_t tx_fip_octets;
    uint64_t tx_drops;
    uint64_t tx_timeouts;
    uint64_t tx_parity_errors;
    uint64_t rx_frames;
    uint64_t rx_octets;
    uint64_t rx_fip_frames;
    uint64_t rx_fip_octets;
    uint64_t rx_crc_errors;
    uint64_t rx_sof_errors;
    uint64_t rx_eof_errors;
    uint64_t rx_version_errors;
    uint64_t rx_len_errors;
    uint64_t rx_mac_mismatches;
    uint64_t rx_vlan_mismatches;
    uint64_t rx_drops;
    uint64_t rx_unsupported;
};
typedef kvo_fw_fcoe_stats_s kvo_fw_fcoe_stats_t;
static_assert(sizeof(kvo_fw_fcoe_stats_t) == 160);

// The FCoE arm of a port: FIP, then encapsulation.
struct kvo_fw_fcoe_port_stats_s {
    kvo_fw_fip_stats_t fip;
    kvo_fw_fcoe_stats_t fcoe;
};
typedef kvo_fw_fcoe_port_stats_s kvo_fw_fcoe_port_stats_t;
static_assert(sizeof(kvo_fw_fcoe_port_stats_t) == 240);

// FC link frames and primitives as the firmware's port logic counts them.
struct kvo_fw_fc_port_stats_s {
    uint64_t tx_frames;
    uint64_t tx_words;
    uint64_t rx_frames;
    uint64_t rx_words;
    uint64_t lip_count;
    uint64_t nos_count;
    uint64_t ols_count;
    uint64_t lr_count;
    uint64_t lrr_count;
    uint64_t error_frames;
    uint64_t dropped_frames;
    uint64_t invalid_crcs;
    uint64_t bad_eof_frames;
    uint64_t undersized_frames;
    uint64_t oversized_frames;
    uint64_t link_failures;
    uint64_t loss_of_sync;
    uint64_t loss_of_signal;
    uint64_t primseq_errors;
    uint64_t invalid_words;
    uint64_t bb_credit_zero;  // times the port ran out of transmit credit
};
typedef kvo_fw_fc_port_stats_s kvo_fw_fc_port_stats_t;
static_assert(sizeof(kvo_fw_fc_port_stats_t) == 168);

// The FC arm of a port: the user port's requests and events, then its FC link.
struct kvo_fw_fc_uport_stats_s {
    uint32_t link_ups;
    uint32_t link_downs;
    uint32_t speed_changes;
    uint32_t topology_changes;
    uint32_t enable_reqs;
    uint32_t disable_reqs;
    uint32_t loopback_starts;
    uint32_t loopback_stops;
    uint32_t diag_starts;
    uint32_t bbcr_enables;
    uint32_t bbcr_disables;
    uint32_t bbcr_failures;
    uint32_t trunk_joins;
    uint32_t trunk_leaves;
    kvo_fw_fc_port_stats_t port;
};
typedef kvo_fw_fc_uport_stats_s kvo_fw_fc_uport_stats_t;
static_assert(sizeof(kvo_fw_fc_uport_stats_t) == 224);
static_assert(offsetof(kvo_fw_fc_uport_stats_t, port) == 56);

// A physical port in the firmware: the blocks every port has, then its mode's arm.
struct kvo_fw_port_stats_s {
    kvo_fw_port_fpg_stats_t fpg;
    kvo_fw_port_lksm_stats_t lksm;
    kvo_fw_port_snsm_stats_t snsm;
    kvo_fw_port_physm_stats_t physm;
    union {
        kvo_fw_fcoe_port_stats_t fcoe_port;
        kvo_fw_fc_uport_stats_t fc_uport;
    };
};
typedef kvo_fw_port_stats_s kvo_fw_port_stats_t;
static_assert(sizeof(kvo_fw_port_stats_t) == 448);
static_assert(offsetof(kvo_fw_port_stats_t, fcoe_port) == 208);
static_assert(offsetof(kvo_fw_port_stats_t, fc_uport) == 208);

// Exchange management.
struct kvo_fw_fcxchg_stats_s {
    uint32_t xchg_opens;
    uint32_t xchg_closes;
    uint32_t xchg_alloc_fails;
    uint32_t xchg_unknown;
    uint32_t xchg_bad_state;
    uint32_t xchg_timeouts;
    uint32_t seq_timeouts;
    uint32_t abts_sent;
    uint32_t abts_rcvd;
    uint32_t ba_acc_sent;
    uint32_t ba_rjt_sent;
    uint32_t rrq_sent;
};
typedef kvo_fw_fcxchg_stats_s kvo_fw_fcxchg_stats_t;
static_assert(sizeof(kvo_fw_fcxchg_stats_t) == 48);

// Port trunking.
struct kvo_fw_trunk_stats_s {
    uint32_t link_ups;
    uint32_t link_downs;
    uint32_t member_adds;
    uint32_t member_removes;
    uint32_t master_changes;
    uint32_t deskew_errors;
    uint32_t emt_sent;
    uint32_t emt_rcvd;
    uint32_t emt_rejects;
    uint32_t etp_sent;
    uint32_t etp_rcvd;
    uint32_t frames_rerouted;
};
typedef kvo_fw_trunk_stats_s kvo_fw_trunk_stats_t;
static_assert(sizeof(kvo_fw_trunk_stats_t) == 48);

// The Ethernet side of a port (adapter port).
struct kvo_fw_aport_stats_s {
    uint32_t enables;
    uint32_t disables;
    uint32_t link_ups;
    uint32_t link_downs;
    uint32_t speed_changes;
    uint32_t loopback_starts;
    uint32_t loopback_stops;
    uint32_t mbox_timeouts;
};
typedef kvo_fw_aport_stats_s kvo_fw_aport_stats_t;
static_assert(sizeof(kvo_fw_aport_stats_t) == 32);

// The FC personality of the IOC.
struct kvo_fw_iocfc_stats_s {
    uint32_t cfg_reqs;
    uint32_t cfg_rsps;
    uint32_t intr_set_reqs;
    uint32_t queue_updates;
    uint32_t stats_reqs;
    uint32_t unknown_reqs;
    uint32_t mbox_errors;
    uint32_t fw_events;
};
typedef kvo_fw_iocfc_stats_s kvo_fw_iocfc_stats_t;
static_assert(sizeof(kvo_fw_iocfc_stats_t) == 32);

// Frames the firmware itself sends and receives on Ethernet (LLDP, FIP).
struct kvo_fw_eth_sndrcv_stats_s {
    uint32_t frames_sent;
    uint32_t send_failures;
    uint32_t frames_rcvd;
    uint32_t rcv_crc_errors;
    uint32_t rcv_len_errors;
    uint32_t rcv_drops;
    uint32_t unknown_ethertypes;
    uint32_t lldp_frames;
    uint32_t fip_frames;
    uint32_t buf_waits;
};
typedef kvo_fw_eth_sndrcv_stats_s kvo_fw_eth_sndrcv_stats_t;
static_assert(sizeof(kvo_fw_eth_sndrcv_stats_t) == 40);

// Read data service: the host reading firmware memory and state.
struct kvo_fw_rds_stats_s {
    uint32_t reqs_rcvd;
    uint32_t rsps_sent;
    uint32_t pages_read;
    uint32_t req_errors;
    uint32_t buf_overruns;
    uint32_t timeouts;
};
typedef kvo_fw_rds_stats_s kvo_fw_rds_stats_t;
static_assert(sizeof(kvo_fw_rds_stats_t) == 24);

// MAC address and VLAN filters.
struct kvo_fw_mac_mod_stats_s {
    uint32_t ucast_adds;
    uint32_t ucast_deletes;
    uint32_t mcast_adds;
    uint32_t mcast_deletes;
    uint32_t promisc_changes;
    uint32_t vlan_adds;
    uint32_t vlan_deletes;
    uint32_t table_full;
};
typedef kvo_fw_mac_mod_stats_s kvo_fw_mac_mod_stats_t;
static_assert(sizeof(kvo_fw_mac_mod_stats_t) == 32);

// Common transport (fabric service requests).
struct kvo_fw_ct_mod_stats_s {
    uint32_t reqs_sent;
    uint32_t rsps_rcvd;
    uint32_t accepts;
    uint32_t rejects;
    uint32_t timeouts;
    uint32_t ns_registrations;
    uint32_t ms_queries;
    uint32_t unsol_rcvd;
};
typedef kvo_fw_ct_mod_stats_s kvo_fw_ct_mod_stats_t;
static_assert(sizeof(kvo_fw_ct_mod_stats_t) == 32);

// Everything the firmware counts, module by module.
struct kvo_fw_stats_s {
    kvo_fw_ioc_stats_t ioc;
    kvo_fw_iocfc_stats_t iocfc;
    kvo_fw_io_stats_t io;
    kvo_fw_fcxchg_stats_t fcxchg;
    kvo_fw_lpsm_stats_t lpsm;
    kvo_fw_lps_stats_t lps;
    kvo_fw_trunk_stats_t trunk;
    kvo_fw_mac_mod_stats_t mac_mod;
    kvo_fw_ct_mod_stats_t ct_mod;
    kvo_fw_eth_sndrcv_stats_t eth_sndrcv;
    kvo_fw_rds_stats_t rds;
    kvo_fw_aport_stats_t aport;
    kvo_fw_port_stats_t port;
};
typedef kvo_fw_stats_s kvo_fw_stats_t;
static_assert(sizeof(kvo_fw_stats_t) == 992);
static_assert(offsetof(kvo_fw_stats_t, port) == 544);

// ---- QoS, FCoE and the FC port module -----------------------------------------------------------

// QoS negotiation with the switch and traffic per priority.
struct kvo_qos_stats_s {
    uint32_t flogi_sent;
    uint32_t flogi_accepts;
    uint32_t flogi_rejects;
    uint32_t flogi_retries;
    uint32_t elp_rcvd;
    uint32_t elp_accepts;
    uint32_t elp_rejects;
    uint32_t elp_drops;
    uint32_t rscns_rcvd;
    uint32_t hi_frames_sent;
    uint32_t med_frames_sent;
    uint32_t lo_frames_sent;
    uint32_t hi_frames_rcvd;
    uint32_t med_frames_rcvd;
    uint32_t lo_frames_rcvd;
    uint32_t prio_changes;
    uint32_t bw_changes;
    uint32_t state_changes;
};
typedef kvo_qos_stats_s kvo_qos_stats_t;
static_assert(sizeof(kvo_qos_stats_t) == 72);

// An FCoE function: the driver's counters, then the firmware's FIP and encapsulation counters.
struct kvo_fcoe_stats_s {
    uint64_t secs_reset;
    uint64_t cee_link_ups;
    uint64_t cee_link_downs;
    uint64_t fip_link_ups;
    uint64_t fip_link_downs;
    uint64_t fip_failures;
    uint64_t fcf_logins;
    uint64_t fcf_logouts;
    uint64_t vn_port_creates;
    uint64_t vn_port_deletes;
    uint64_t mac_invalid;
    uint64_t frames_no_fcf;  // frames dropped while no forwarder was selected
    uint64_t frames_dropped;
    uint64_t queue_stops;
    uint64_t queue_wakeups;
    kvo_fw_fip_stats_t fip;
    kvo_fw_fcoe_stats_t fcoe;
};
typedef kvo_fcoe_stats_s kvo_fcoe_stats_t;
static_assert(sizeof(kvo_fcoe_stats_t) == 360);
static_assert(offsetof(kvo_fcoe_stats_t, fip) == 120);
static_assert(offsetof(kvo_fcoe_stats_t, fcoe) == 200);

// The FC port module answers for its link, its QoS or its FCoE function; the arm asked for
// is the valid one.
struct kvo_fcport_stats_s {
    union {
        kvo_port_fc_stats_t fc;
        kvo_qos_stats_t qos;
        kvo_fcoe_stats_t fcoe;
    };
};
typedef kvo_fcport_stats_s kvo_fcport_stats_t;
static_assert(sizeof(kvo_fcport_stats_t) == 360);

// PHY of a CNA port.
struct kvo_phy_stats_s {
    uint32_t power_ups;
    uint32_t link_ups;
    uint32_t link_downs;
    uint32_t signal_losses;
    uint32_t symbol_errors;
    uint32_t crc_errors;
    uint32_t invalid_code_words;
    uint32_t sync_losses;
};
typedef kvo_phy_stats_s kvo_phy_stats_t;
static_assert(sizeof(kvo_phy_stats_t) == 32);

// ---- vNIC ---------------------------------------------------------------------------------------

struct kvo_vnic_stats_bpc_s {
    uint64_t tx_pause_frames;
    uint64_t rx_pause_frames;
    uint64_t tx_pfc_frames;
    uint64_t rx_pfc_frames;
    uint64_t tx_paused_usecs;
    uint64_t rx_paused_usecs;
};
typedef kvo_vnic_stats_bpc_s kvo_vnic_stats_bpc_t;
static_assert(sizeof(kvo_vnic_stats_bpc_t) == 48);

struct kvo_vnic_stats_rad_s {
    uint64_t rx_frames;
    uint64_t rx_octets;
    uint64_t rx_rss_hits;
    uint64_t rx_default_queue;
    uint64_t rx_filter_drops;
    uint64_t rx_no_buf_drops;
};
typedef kvo_vnic_stats_rad_s kvo_vnic_stats_rad_t;
static_assert(sizeof(kvo_vnic_stats_rad_t) == 48);

struct kvo_vnic_stats_txq_s {
    uint64_t frames;
    uint64_t octets;
    uint64_t doorbells;
    uint64_t completions;
    uint64_t queue_stops;
    uint64_t queue_wakeups;
    uint64_t tso_frames;
    uint64_t csum_offloads;
};
typedef kvo_vnic_stats_txq_s kvo_vnic_stats_txq_t;
static_assert(sizeof(kvo_vnic_stats_txq_t) == 64);

struct kvo_vnic_stats_txf_s {
    uint64_t ucast_frames;
    uint64_t ucast_octets;
    uint64_t mcast_frames;
    uint64_t mcast_octets;
    uint64_t bcast_frames;
    uint64_t bcast_octets;
    uint64_t vlan_frames;
    uint64_t errors;
};
typedef kvo_vnic_stats_txf_s kvo_vnic_stats_txf_t;
static_assert(sizeof(kvo_vnic_stats_txf_t) == 64);

struct kvo_vnic_stats_rxq_s {
    uint64_t frames;
    uint64_t octets;
    uint64_t polls;
    uint64_t interrupts;
    uint64_t buf_posts;
    uint64_t buf_alloc_fails;
};
typedef kvo_vnic_stats_rxq_s kvo_vnic_stats_rxq_t;
static_assert(sizeof(kvo_vnic_stats_rxq_t) == 48);

// Receive path: buffers posted and what arrived in them.
struct kvo_vnic_stats_rxp_s {
    uint64_t small_buf_posts;
    uint64_t large_buf_posts;
    uint64_t ring_empty_events;
    uint64_t hds_frames;  // frames split into header and data buffers
    uint64_t csum_ok;
    uint64_t csum_errors;
    uint64_t lro_merged;
};
typedef kvo_vnic_stats_rxp_s kvo_vnic_stats_rxp_t;
static_assert(sizeof(kvo_vnic_stats_rxp_t) == 56);

struct kvo_vnic_stats_rxf_s {
    uint64_t ucast_frames;
    uint64_t ucast_octets;
    uint64_t mcast_frames;
    uint64_t mcast_octets;
    uint64_t bcast_frames;
    uint64_t bcast_octets;
    uint64_t vlan_filtered;
    uint64_t mac_filtered;
    uint64_t frame_drops;
};
typedef kvo_vnic_stats_rxf_s kvo_vnic_stats_rxf_t;
static_assert(sizeof(kvo_vnic_stats_rxf_t) == 72);

// The Ethernet driver's own counters for one vNIC.
struct kvo_vnic_drvstats_s {
    uint32_t netif_queue_stops;
    uint32_t netif_queue_wakeups;
    uint32_t tx_skb_drops;
    uint32_t tx_map_failures;
    uint32_t rx_alloc_failures;
    uint32_t rx_csum_errors;
    uint32_t rx_backlog_drops;
    uint32_t link_toggles;
    uint32_t mbox_timeouts;
    uint32_t resets;
    uint32_t mtu_changes;
    uint32_t mac_changes;
};
typedef kvo_vnic_drvstats_s kvo_vnic_drvstats_t;
static_assert(sizeof(kvo_vnic_drvstats_t) == 48);

struct kvo_vnic_stats_s {
    kvo_vnic_stats_bpc_t bpc;
    kvo_vnic_stats_rad_t rad;
    kvo_vnic_stats_txq_t txq;
    kvo_vnic_stats_txf_t txf;
    kvo_vnic_stats_rxq_t rxq;
    kvo_vnic_stats_rxp_t rxp;
    kvo_vnic_stats_rxf_t rxf;
    kvo_vnic_drvstats_t drv;
};
typedef kvo_vnic_stats_s kvo_vnic_stats_t;
static_assert(sizeof(kvo_vnic_stats_t) == 448);

// ---- Requests -----------------------------------------------------------------------------------
// Records small enough travel inside the request; the firmware, port and DCB records are
// written by the driver into the caller's buffer (buf_ptr, bufsz bytes), as flash data is.

struct kvo_ioctl_ioc_stats_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t rsvd;
    kvo_ioc_stats_t stats;
};
typedef kvo_ioctl_ioc_stats_s kvo_ioctl_ioc_stats_t;
static_assert(sizeof(kvo_ioctl_ioc_stats_t) == 80);
static_assert(offsetof(kvo_ioctl_ioc_stats_t, stats) == 8);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_IOC_GET_STATS, kvo_ioctl_ioc_stats_t);

// Firmware (kvo_fw_stats_t), port (kvo_port_stats_t) and DCB (kvo_cee_stats_t) statistics.
struct kvo_ioctl_stats_buf_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t rsvd;
    uint32_t bufsz;
    uint32_t rsvd1;
    uint64_t buf_ptr;
};
typedef kvo_ioctl_stats_buf_s kvo_ioctl_stats_buf_t;
static_assert(sizeof(kvo_ioctl_stats_buf_t) == 24);
static_assert(offsetof(kvo_ioctl_stats_buf_t, bufsz) == 8);
static_assert(offsetof(kvo_ioctl_stats_buf_t, buf_ptr) == 16);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_IOC_GET_FWSTATS, kvo_ioctl_stats_buf_t);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_PORT_GET_STATS, kvo_ioctl_stats_buf_t);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_CEE_GET_STATS, kvo_ioctl_stats_buf_t);

struct kvo_ioctl_phy_stats_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t instance;  // PHY of the port
    kvo_phy_stats_t stats;
};
typedef kvo_ioctl_phy_stats_s kvo_ioctl_phy_stats_t;
static_assert(sizeof(kvo_ioctl_phy_stats_t) == 40);
static_assert(offsetof(kvo_ioctl_phy_stats_t, stats) == 8);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_PHY_GET_STATS, kvo_ioctl_phy_stats_t);

struct kvo_ioctl_lport_stats_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t vf_id;
    wwn_t pwwn;
    kvo_lport_stats_t stats;
};
typedef kvo_ioctl_lport_stats_s kvo_ioctl_lport_stats_t;
static_assert(sizeof(kvo_ioctl_lport_stats_t) == 264);
static_assert(offsetof(kvo_ioctl_lport_stats_t, stats) == 16);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_LPORT_GET_STATS, kvo_ioctl_lport_stats_t);

struct kvo_ioctl_lport_iostats_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t vf_id;
    wwn_t pwwn;
    kvo_itnim_iostats_t iostats;
};
typedef kvo_ioctl_lport_iostats_s kvo_ioctl_lport_iostats_t;
static_assert(sizeof(kvo_ioctl_lport_iostats_t) == 288);
static_assert(offsetof(kvo_ioctl_lport_iostats_t, iostats) == 16);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_LPORT_GET_IOSTATS, kvo_ioctl_lport_iostats_t);

struct kvo_ioctl_rport_stats_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t vf_id;
    wwn_t lpwwn;
    wwn_t rpwwn;
    kvo_rport_stats_t stats;
};
typedef kvo_ioctl_rport_stats_s kvo_ioctl_rport_stats_t;
static_assert(sizeof(kvo_ioctl_rport_stats_t) == 288);
static_assert(offsetof(kvo_ioctl_rport_stats_t, stats) == 24);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_RPORT_GET_STATS, kvo_ioctl_rport_stats_t);

struct kvo_ioctl_vport_stats_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t vf_id;
    wwn_t vpwwn;
    kvo_vport_stats_t stats;
};
typedef kvo_ioctl_vport_stats_s kvo_ioctl_vport_stats_t;
static_assert(sizeof(kvo_ioctl_vport_stats_t) == 344);
static_assert(offsetof(kvo_ioctl_vport_stats_t, stats) == 16);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_VPORT_GET_STATS, kvo_ioctl_vport_stats_t);

// The function's I/O statistics over all its nexuses.
struct kvo_ioctl_fcpim_modstats_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t vf_id;
    kvo_itnim_iostats_t modstats;
};
typedef kvo_ioctl_fcpim_modstats_s kvo_ioctl_fcpim_modstats_t;
static_assert(sizeof(kvo_ioctl_fcpim_modstats_t) == 280);
static_assert(offsetof(kvo_ioctl_fcpim_modstats_t, modstats) == 8);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_FCPIM_GET_MODSTATS, kvo_ioctl_fcpim_modstats_t);

struct kvo_ioctl_fcpim_del_itn_stats_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t vf_id;
    kvo_fcpim_del_itn_stats_t stats;
};
typedef kvo_ioctl_fcpim_del_itn_stats_s kvo_ioctl_fcpim_del_itn_stats_t;
static_assert(sizeof(kvo_ioctl_fcpim_del_itn_stats_t) == 40);
static_assert(offsetof(kvo_ioctl_fcpim_del_itn_stats_t, stats) == 8);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_FCPIM_GET_DEL_ITN_STATS, kvo_ioctl_fcpim_del_itn_stats_t);

struct kvo_ioctl_itnim_iostats_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t vf_id;
    wwn_t lpwwn;
    wwn_t rpwwn;
    kvo_itnim_iostats_t iostats;
};
typedef kvo_ioctl_itnim_iostats_s kvo_ioctl_itnim_iostats_t;
static_assert(sizeof(kvo_ioctl_itnim_iostats_t) == 296);
static_assert(offsetof(kvo_ioctl_itnim_iostats_t, lpwwn) == 8);
static_assert(offsetof(kvo_ioctl_itnim_iostats_t, rpwwn) == 16);
static_assert(offsetof(kvo_ioctl_itnim_iostats_t, iostats) == 24);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_ITNIM_GET_IOSTATS, kvo_ioctl_itnim_iostats_t);

struct kvo_ioctl_itnim_itnstats_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t vf_id;
    wwn_t lpwwn;
    wwn_t rpwwn;
    kvo_itnim_stats_t itnstats;
};
typedef kvo_ioctl_itnim_itnstats_s kvo_ioctl_itnim_itnstats_t;
static_assert(sizeof(kvo_ioctl_itnim_itnstats_t) == 72);
static_assert(offsetof(kvo_ioctl_itnim_itnstats_t, itnstats) == 24);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_ITNIM_GET_ITNSTATS, kvo_ioctl_itnim_itnstats_t);

struct kvo_ioctl_fcoe_stats_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t rsvd;
    kvo_fcoe_stats_t stats;
};
typedef kvo_ioctl_fcoe_stats_s kvo_ioctl_fcoe_stats_t;
static_assert(sizeof(kvo_ioctl_fcoe_stats_t) == 368);
static_assert(offsetof(kvo_ioctl_fcoe_stats_t, stats) == 8);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_FCOE_GET_STATS, kvo_ioctl_fcoe_stats_t);

struct kvo_ioctl_qos_stats_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t rsvd;
    kvo_qos_stats_t stats;
};
typedef kvo_ioctl_qos_stats_s kvo_ioctl_qos_stats_t;
static_assert(sizeof(kvo_ioctl_qos_stats_t) == 80);
static_assert(offsetof(kvo_ioctl_qos_stats_t, stats) == 8);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_QOS_GET_STATS, kvo_ioctl_qos_stats_t);

struct kvo_ioctl_vf_stats_s {
    uint32_t status;
    uint16_t kvod_num;
    uint16_t vf_id;
    kvo_vf_stats_t stats;
};
typedef kvo_ioctl_vf_stats_s kvo_ioctl_vf_stats_t;
static_assert(sizeof(kvo_ioctl_vf_stats_t) == 56);
static_assert(offsetof(kvo_ioctl_vf_stats_t, stats) == 8);
KVO_ASSERT_CODE_SIZE(KVO_IOCMD_VF_GET_STATS, kvo_ioctl_vf_stats_t);
