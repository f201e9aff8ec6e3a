// The statistics tables: one per record of kvo_stats.h, rows in field order.
//
// Each row is built from its field: the width comes from the field's type and the offset from
// offsetof, so a row cannot disagree with the record; a nested row must name the table of the
// member's own type. Ids are the table number times 100 plus the row's position from 1 (nested
// rows 0). Ids are what scripts and logs keep, so numbers are never reused or shifted: the
// adapter, port, Ethernet, firmware and FC port tables run from 11 to 67, the initiator, PHY
// and vNIC tables from 101 to 112, each series in the order below.
#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "kvol_stats.h"

// Never defined: a constant row that breaks a rule calls it, which stops the build.
void kvol_stats_table_error_desc_too_long();

namespace {

consteval kvol_stats_desc_t kvol_row(kvol_field_type parent, kvol_field_type type, size_t offset,
                                     const char* text, const kvol_stats_t* nested) {
    kvol_stats_desc_t row{parent, type, {}, offset, 0, nested};
    for (size_t n = 0; text[n] != '\0'; n++) {
        if (n + 1 >= sizeof row.desc) kvol_stats_table_error_desc_too_long();
        row.desc[n] = text[n];
    }
    return row;
}

template <class Field>
consteval kvol_stats_desc_t kvol_counter(size_t offset, const char* text) {
    if constexpr (std::is_same_v<Field, uint16_t>) {
        return kvol_row(KVOL_STRUCT, KVOL_UINT16, offset, text, nullptr);
    } else if constexpr (std::is_same_v<Field, uint32_t>) {
        return kvol_row(KVOL_STRUCT, KVOL_UINT32, offset, text, nullptr);
    } else {
        static_assert(std::is_same_v<Field, uint64_t>, "counters are u16, u32 or u64");
        return kvol_row(KVOL_STRUCT, KVOL_UINT64, offset, text, nullptr);
    }
}

template <class Member, class Described>
consteval kvol_stats_desc_t kvol_nested(kvol_field_type parent, size_t offset, const char* text,
                                        const kvol_stats_t* table) {
    static_assert(std::is_same_v<Member, Described>, "nested table of another record");
    return kvol_row(parent, KVOL_STRUCT, offset, text, table);
}

template <size_t N>
consteval std::array<kvol_stats_desc_t, N> kvol_numbered(int table,
                                                         const kvol_stats_desc_t (&rows)[N]) {
    static_assert(N < 100, "a table's ids would run into the next table's");
    std::array<kvol_stats_desc_t, N> out{};
    for (size_t i = 0; i < N; i++) {
        out[i] = rows[i];
        bool nested = rows[i].type == KVOL_STRUCT || rows[i].type == KVOL_UNION;
        out[i].id = nested ? 0 : table * 100 + static_cast<int>(i) + 1;
    }
    return out;
}

}  // namespace

// Rows of the record R of the table being defined: a counter, an embedded record, a union arm.
#define CTR(field, text) kvol_counter<decltype(R::field)>(offsetof(R, field), text)
#define SUB(field, text, rec) \
    kvol_nested<decltype(R::field), rec##_t>(KVOL_STRUCT, offsetof(R, field), text, &kvol_##rec)
#define ARM(field, text, rec) \
    kvol_nested<decltype(R::field), rec##_t>(KVOL_UNION, offsetof(R, field), text, &kvol_##rec)

// Defines kvol_<rec>_desc (the rows) and kvol_<rec> (the table) for the record rec_t.
#define KVOL_STATS_TABLE(rec, number, ...)                                              \
    namespace kvol_stats_layout::rec {                                                  \
    using R = rec##_t;                                                                  \
    consteval auto rows() { return kvol_numbered(number, {__VA_ARGS__}); }             \
    }                                                                                   \
    extern constexpr auto kvol_##rec##_desc = kvol_stats_layout::rec::rows();           \
    constexpr kvol_stats_t kvol_##rec = {static_cast<int32_t>(kvol_##rec##_desc.size()), \
                                         #rec "_t", kvol_##rec##_desc.data()}

// ---- IOC ---------------------------------------------------------------------------------------

KVOL_STATS_TABLE(kvo_fw_ioc_stats, 11,
    CTR(hb_count, "Heart-beat count"),
    CTR(enable_reqs, "Enable requests"),
    CTR(disable_reqs, "Disable requests"),
    CTR(getattr_reqs, "Get attribute requests"),
    CTR(stats_reqs, "Statistics requests"),
    CTR(unknown_reqs, "Unknown requests"));

KVOL_STATS_TABLE(kvo_ioc_drv_stats, 12,
    CTR(mbox_intr, "Mailbox interrupts"),
    CTR(enable_evts, "Enable events"),
    CTR(disable_evts, "Disable events"),
    CTR(hb_failures, "Heartbeat failures"),
    CTR(fw_boots, "Firmware boots"),
    CTR(stats_timeouts, "Stats timeouts"),
    CTR(hb_count, "Heart-beat count"),
    CTR(disable_reqs, "Disable requests"),
    CTR(enable_reqs, "Enable requests"),
    CTR(disable_replies, "Disable replies"),
    CTR(enable_replies, "Enable replies"));

KVOL_STATS_TABLE(kvo_ioc_stats, 13,
    SUB(drv_stats, "driver IOC stats", kvo_ioc_drv_stats),
    SUB(fw_stats, "firmware IOC stats", kvo_fw_ioc_stats));

// ---- Physical port -----------------------------------------------------------------------------

KVOL_STATS_TABLE(kvo_port_fc_stats, 14,
    CTR(secs_reset, "Seconds since stats reset"),
    CTR(tx_frames, "Transmitted frames"),
    CTR(tx_words, "Transmitted words"),
    CTR(tx_lip, "Transmitted LIPs"),
    CTR(tx_nos, "Transmitted NOS"),
    CTR(rx_frames, "Received frames"),
    CTR(rx_words, "Received words"),
    CTR(rx_lip, "Received LIPs"),
    CTR(rx_nos, "Received NOS"),
    CTR(error_frames, "Error frames"),
    CTR(dropped_frames, "Dropped frames"),
    CTR(link_failures, "Link failures"),
    CTR(loss_of_sync, "Loss of sync"),
    CTR(loss_of_signal, "Loss of signal"),
    CTR(primseq_errors, "Primitive sequence errors"),
    CTR(bad_os_count, "Invalid ordered sets"),
    CTR(invalid_crcs, "Invalid CRCs"),
    CTR(undersized_frames, "Undersized frames"),
    CTR(oversized_frames, "Oversized frames"),
    CTR(bad_eof_frames, "Frames with bad EOF"),
    CTR(bbcr_frames_lost, "BB credit recovery frames lost"),
    CTR(bbcr_credits_lost, "BB credit recovery credits lost"),
    CTR(bbcr_link_resets, "BB credit recovery link resets"));

KVOL_STATS_TABLE(kvo_port_eth_stats, 15,
    CTR(secs_reset, "Seconds since stats reset"),
    CTR(tx_frames, "Transmitted frames"),
    CTR(tx_bytes, "Transmitted bytes"),
    CTR(tx_multicast, "Transmitted multicast frames"),
    CTR(tx_broadcast, "Transmitted broadcast frames"),
    CTR(tx_pause, "Transmitted pause frames"),
    CTR(tx_pfc, "Transmitted PFC frames"),
    CTR(tx_errors, "Transmit errors"),
    CTR(tx_drops, "Transmit drops"),
    CTR(rx_frames, "Received frames"),
    CTR(rx_bytes, "Received bytes"),
    CTR(rx_multicast, "Received multicast frames"),
    CTR(rx_broadcast, "Received broadcast frames"),
    CTR(rx_pause, "Received pause frames"),
    CTR(rx_pfc, "Received PFC frames"),
    CTR(rx_crc_errors, "Receive CRC errors"),
    CTR(rx_align_errors, "Receive alignment errors"),
    CTR(rx_undersize, "Received undersized frames"),
    CTR(rx_oversize, "Received oversized frames"),
    CTR(rx_fragments, "Received fragments"),
    CTR(rx_jabbers, "Received jabbers"),
    CTR(rx_drops, "Receive drops"));

KVOL_STATS_TABLE(kvo_port_stats, 16,
    ARM(fc, "FC port stats", kvo_port_fc_stats),
    ARM(eth, "Ethernet port stats", kvo_port_eth_stats));

KVOL_STATS_TABLE(kvo_cee_stats, 17,
    CTR(lldp_tx_frames, "LLDP frames transmitted"),
    CTR(lldp_rx_frames, "LLDP frames received"),
    CTR(lldp_rx_discards, "LLDP frames discarded"),
    CTR(lldp_rx_errors, "LLDP frames in error"),
    CTR(lldp_tlvs_unknown, "LLDP unrecognized TLVs"),
    CTR(lldp_ageouts, "LLDP neighbor ageouts"),
    CTR(lldp_shutdowns, "LLDP shutdown frames received"),
    CTR(dcbx_linkups, "DCBX link ups"),
    CTR(dcbx_linkdowns, "DCBX link downs"),
    CTR(dcbx_peer_changes, "DCBX peer changes"),
    CTR(dcbx_rx_tlvs, "DCBX TLVs received"),
    CTR(dcbx_rx_tlv_errors, "DCBX TLVs in error"),
    CTR(dcbx_cfg_mismatches, "DCBX configuration mismatches"),
    CTR(pfc_cfg_changes, "PFC configuration changes"),
    CTR(ets_cfg_changes, "ETS configuration changes"),
    CTR(app_cfg_changes, "Application configuration changes"));

// ---- Ethernet function -------------------------------------------------------------------------

KVOL_STATS_TABLE(tqed_ethport_stats, 18,
    CTR(rx_packets, "Received packets"),
    CTR(rx_bytes, "Received bytes"),
    CTR(rx_drops, "Receive drops"),
    CTR(rx_errors, "Receive errors"),
    CTR(rx_buf_alloc_fails, "Receive buffer allocation failures"),
    CTR(rx_csum_ok, "Receive checksums verified"),
    CTR(rx_csum_errors, "Receive checksum errors"),
    CTR(rx_lro_merged, "Receive packets merged"),
    CTR(tx_packets, "Transmitted packets"),
    CTR(tx_bytes, "Transmitted bytes"),
    CTR(tx_drops, "Transmit drops"),
    CTR(tx_errors, "Transmit errors"),
    CTR(tx_queue_stops, "Transmit queue stops"),
    CTR(tx_queue_wakeups, "Transmit queue wakeups"),
    CTR(tx_tso, "Segmentation offloads"),
    CTR(tx_csum_offload, "Transmit checksum offloads"),
    CTR(link_toggles, "Link toggles"),
    CTR(mbox_timeouts, "Mailbox timeouts"));

KVOL_STATS_TABLE(tqe_stats_txf, 19,
    CTR(ucast_frames, "Unicast frames"),
    CTR(ucast_octets, "Unicast octets"),
    CTR(mcast_frames, "Multicast frames"),
    CTR(mcast_octets, "Multicast octets"),
    CTR(bcast_frames, "Broadcast frames"),
    CTR(bcast_octets, "Broadcast octets"),
    CTR(vlan_frames, "VLAN tagged frames"),
    CTR(errors, "Errors"),
    CTR(filter_vlan_drops, "Dropped by VLAN filter"),
    CTR(filter_mac_drops, "Dropped by MAC filter"));

KVOL_STATS_TABLE(tqe_stats_rxf, 20,
    CTR(ucast_frames, "Unicast frames"),
    CTR(ucast_octets, "Unicast octets"),
    CTR(mcast_frames, "Multicast frames"),
    CTR(mcast_octets, "Multicast octets"),
    CTR(bcast_frames, "Broadcast frames"),
    CTR(bcast_octets, "Broadcast octets"),
    CTR(vlan_frames, "VLAN tagged frames"),
    CTR(frame_drops, "Frame drops"));

KVOL_STATS_TABLE(tqe_stats_fc_tx, 21,
    CTR(frames, "FCoE frames transmitted"),
    CTR(octets, "FCoE octets transmitted"),
    CTR(fip_frames, "FIP frames transmitted"),
    CTR(fip_octets, "FIP octets transmitted"),
    CTR(errors, "Transmit errors"),
    CTR(pause_held, "Frames held by pause"),
    CTR(drops, "Transmit drops"));

KVOL_STATS_TABLE(tqe_stats_fc_rx, 22,
    CTR(frames, "FCoE frames received"),
    CTR(octets, "FCoE octets received"),
    CTR(fip_frames, "FIP frames received"),
    CTR(fip_octets, "FIP octets received"),
    CTR(crc_errors, "CRC errors"),
    CTR(eof_errors, "EOF errors"),
    CTR(drops, "Receive drops"));

KVOL_STATS_TABLE(cna_stats_rad, 23,
    CTR(rx_frames, "Received frames"),
    CTR(rx_octets, "Received octets"),
    CTR(rx_vlan_frames, "Received VLAN frames"),
    CTR(rx_ucast, "Received unicast frames"),
    CTR(rx_mcast, "Received multicast frames"),
    CTR(rx_bcast, "Received broadcast frames"),
    CTR(rx_no_buf_drops, "Dropped for lack of buffers"),
    CTR(rx_rss_dispatch, "Dispatched by receive side scaling"),
    CTR(rx_default_queue, "Dispatched to the default queue"),
    CTR(rx_filter_drops, "Dropped by filters"));

KVOL_STATS_TABLE(cna_stats_bpc_tx, 24,
    CTR(pause_frames, "Pause frames transmitted"),
    CTR(zero_pause_frames, "Zero pause frames transmitted"),
    CTR(first_pause_frames, "First pause frames transmitted"),
    CTR(pfc_frames, "PFC frames transmitted"),
    CTR(zero_pfc_frames, "Zero PFC frames transmitted"),
    CTR(first_pfc_frames, "First PFC frames transmitted"));

KVOL_STATS_TABLE(cna_stats_bpc_rx, 25,
    CTR(pause_frames, "Pause frames received"),
    CTR(zero_pause_frames, "Zero pause frames received"),
    CTR(first_pause_frames, "First pause frames received"),
    CTR(pfc_frames, "PFC frames received"),
    CTR(zero_pfc_frames, "Zero PFC frames received"),
    CTR(first_pfc_frames, "First PFC frames received"));

KVOL_STATS_TABLE(cna_stats_mac_tx, 26,
    CTR(frames, "Transmitted frames"),
    CTR(octets, "Transmitted octets"),
    CTR(ucast, "Transmitted unicast frames"),
    CTR(mcast, "Transmitted multicast frames"),
    CTR(bcast, "Transmitted broadcast frames"),
    CTR(vlan, "Transmitted VLAN frames"),
    CTR(pause, "Transmitted pause frames"),
    CTR(fcs_errors, "Transmit FCS errors"),
    CTR(underruns, "Transmit underruns"),
    CTR(jabbers, "Transmitted jabbers"),
    CTR(drops, "Transmit drops"),
    CTR(frames_64, "Frames of 64 bytes"),
    CTR(frames_65_127, "Frames of 65 to 127 bytes"),
    CTR(frames_128_255, "Frames of 128 to 255 bytes"),
    CTR(frames_256_511, "Frames of 256 to 511 bytes"),
    CTR(frames_512_1023, "Frames of 512 to 1023 bytes"),
    CTR(frames_1024_1518, "Frames of 1024 to 1518 bytes"),
    CTR(frames_1519_max, "Frames of 1519 bytes or more"));

KVOL_STATS_TABLE(cna_stats_mac_rx, 27,
    CTR(frames, "Received frames"),
    CTR(octets, "Received octets"),
    CTR(ucast, "Received unicast frames"),
    CTR(mcast, "Received multicast frames"),
    CTR(bcast, "Received broadcast frames"),
    CTR(vlan, "Received VLAN frames"),
    CTR(pause, "Received pause frames"),
    CTR(fcs_errors, "Receive FCS errors"),
    CTR(align_errors, "Receive alignment errors"),
    CTR(length_errors, "Receive length errors"),
    CTR(code_errors, "Receive code errors"),
    CTR(undersize, "Received undersized frames"),
    CTR(oversize, "Received oversized frames"),
    CTR(fragments, "Received fragments"),
    CTR(jabbers, "Received jabbers"),
    CTR(drops, "Receive drops"),
    CTR(frames_64, "Frames of 64 bytes"),
    CTR(frames_65_127, "Frames of 65 to 127 bytes"),
    CTR(frames_128_255, "Frames of 128 to 255 bytes"),
    CTR(frames_256_511, "Frames of 256 to 511 bytes"),
    CTR(frames_512_1023, "Frames of 512 to 1023 bytes"),
    CTR(frames_1024_max, "Frames of 1024 bytes or more"));

KVOL_STATS_TABLE(tqe_stats, 28,
    SUB(mac_rx, "MAC receive", cna_stats_mac_rx),
    SUB(mac_tx, "MAC transmit", cna_stats_mac_tx),
    SUB(bpc_rx, "Back-pressure receive", cna_stats_bpc_rx),
    SUB(bpc_tx, "Back-pressure transmit", cna_stats_bpc_tx),
    SUB(rad, "Receive dispatch", cna_stats_rad),
    SUB(fc_rx, "FCoE receive", tqe_stats_fc_rx),
    SUB(fc_tx, "FCoE transmit", tqe_stats_fc_tx),
    SUB(rxf, "Receive function", tqe_stats_rxf),
    SUB(txf, "Transmit function", tqe_stats_txf));

KVOL_STATS_TABLE(kvo_ethport_stats, 29,
    SUB(hw, "Ethernet engine stats", tqe_stats),
    SUB(drv, "Ethernet driver stats", tqed_ethport_stats));

// ---- Virtual fabric, authentication, logical and virtual ports ----------------------------------

KVOL_STATS_TABLE(kvo_vf_stats, 30,
    CTR(flogi_sent, "FLOGI sent"),
    CTR(flogi_accepts, "FLOGI accepts"),
    CTR(flogi_rejects, "FLOGI rejects"),
    CTR(flogi_rsp_errors, "FLOGI response errors"),
    CTR(flogi_timeouts, "FLOGI timeouts"),
    CTR(flogi_retries, "FLOGI retries"),
    CTR(flogi_alloc_waits, "FLOGI allocation waits"),
    CTR(flogi_rcvd, "FLOGI received"),
    CTR(fabric_onlines, "Fabric onlines"),
    CTR(fabric_offlines, "Fabric offlines"),
    CTR(fabric_isolations, "Fabric isolations"));

KVOL_STATS_TABLE(kvo_auth_proto_stats, 31,
    CTR(negotiate_sent, "Negotiate sent"),
    CTR(negotiate_rcvd, "Negotiate received"),
    CTR(challenge_sent, "Challenge sent"),
    CTR(challenge_rcvd, "Challenge received"),
    CTR(reply_sent, "Reply sent"),
    CTR(reply_rcvd, "Reply received"),
    CTR(success_sent, "Success sent"),
    CTR(success_rcvd, "Success received"),
    CTR(reject_sent, "Reject sent"),
    CTR(reject_rcvd, "Reject received"),
    CTR(timeouts, "Timeouts"),
    CTR(hash_mismatches, "Hash mismatches"));

KVOL_STATS_TABLE(kvo_auth_stats, 32,
    CTR(attempts, "Authentication attempts"),
    CTR(successes, "Authentication successes"),
    CTR(failures, "Authentication failures"),
    CTR(rejects, "Authentication rejects"),
    CTR(timeouts, "Authentication timeouts"),
    CTR(secret_mismatches, "Secret mismatches"),
    CTR(algo_mismatches, "Algorithm mismatches"),
    CTR(group_mismatches, "DH group mismatches"),
    SUB(initiator, "as initiator", kvo_auth_proto_stats),
    SUB(responder, "as responder", kvo_auth_proto_stats));

KVOL_STATS_TABLE(kvo_lport_stats, 33,
    CTR(flogi_sent, "FLOGI sent"),
    CTR(flogi_accepts, "FLOGI accepts"),
    CTR(flogi_rejects, "FLOGI rejects"),
    CTR(flogi_rsp_errors, "FLOGI response errors"),
    CTR(flogi_timeouts, "FLOGI timeouts"),
    CTR(flogi_retries, "FLOGI retries"),
    CTR(flogi_rcvd, "FLOGI received"),
    CTR(fabric_onlines, "Fabric onlines"),
    CTR(fabric_offlines, "Fabric offlines"),
    CTR(fabric_cleanups, "Fabric cleanups"),
    CTR(ns_plogi_sent, "Name server PLOGI sent"),
    CTR(ns_plogi_accepts, "Name server PLOGI accepts"),
    CTR(ns_plogi_rejects, "Name server PLOGI rejects"),
    CTR(ns_plogi_timeouts, "Name server PLOGI timeouts"),
    CTR(ns_rspnid_sent, "RSPN_ID sent"),
    CTR(ns_rspnid_accepts, "RSPN_ID accepts"),
    CTR(ns_rspnid_rejects, "RSPN_ID rejects"),
    CTR(ns_rftid_sent, "RFT_ID sent"),
    CTR(ns_rftid_accepts, "RFT_ID accepts"),
    CTR(ns_rftid_rejects, "RFT_ID rejects"),
    CTR(ns_rffid_sent, "RFF_ID sent"),
    CTR(ns_rffid_accepts, "RFF_ID accepts"),
    CTR(ns_rffid_rejects, "RFF_ID rejects"),
    CTR(ns_gidft_sent, "GID_FT sent"),
    CTR(ns_gidft_accepts, "GID_FT accepts"),
    CTR(ns_gidft_rejects, "GID_FT rejects"),
    CTR(ns_gidft_unknown_rsp, "GID_FT unknown responses"),
    CTR(ns_timeouts, "Name server timeouts"),
    CTR(ns_retries, "Name server retries"),
    CTR(ms_plogi_sent, "Management server PLOGI sent"),
    CTR(ms_plogi_accepts, "Management server PLOGI accepts"),
    CTR(ms_plogi_rejects, "Management server PLOGI rejects"),
    CTR(ms_rhba_sent, "RHBA sent"),
    CTR(ms_rhba_accepts, "RHBA accepts"),
    CTR(ms_rprt_sent, "RPRT sent"),
    CTR(ms_rprt_accepts, "RPRT accepts"),
    CTR(ms_rpa_sent, "RPA sent"),
    CTR(ms_rpa_accepts, "RPA accepts"),
    CTR(ms_rejects, "Management server rejects"),
    CTR(ms_timeouts, "Management server timeouts"),
    CTR(scr_sent, "SCR sent"),
    CTR(scr_accepts, "SCR accepts"),
    CTR(scr_rejects, "SCR rejects"),
    CTR(rscns_rcvd, "RSCNs received"),
    CTR(rscn_entries, "RSCN entries"),
    CTR(plogi_rcvd, "PLOGI received"),
    CTR(prli_rcvd, "PRLI received"),
    CTR(logo_rcvd, "LOGO received"),
    CTR(prlo_rcvd, "PRLO received"),
    CTR(adisc_rcvd, "ADISC received"),
    CTR(rnid_rcvd, "RNID received"),
    CTR(echo_rcvd, "ECHO received"),
    CTR(rrq_rcvd, "RRQ received"),
    CTR(els_unsupported, "Unsupported ELS received"),
    CTR(els_rejects_sent, "ELS rejects sent"),
    CTR(rport_creates, "Remote port creates"),
    CTR(rport_deletes, "Remote port deletes"),
    CTR(rport_onlines, "Remote port onlines"),
    CTR(rport_offlines, "Remote port offlines"),
    CTR(unsol_frames, "Unsolicited frames"),
    CTR(unsol_drops, "Unsolicited frames dropped"),
    CTR(fcxp_alloc_waits, "Exchange allocation waits"));

KVOL_STATS_TABLE(kvo_vport_stats, 34,
    SUB(port_stats, "logical port stats", kvo_lport_stats),
    CTR(fdisc_sent, "FDISC sent"),
    CTR(fdisc_accepts, "FDISC accepts"),
    CTR(fdisc_rejects, "FDISC rejects"),
    CTR(fdisc_rsp_errors, "FDISC response errors"),
    CTR(fdisc_timeouts, "FDISC timeouts"),
    CTR(fdisc_retries, "FDISC retries"),
    CTR(fdisc_alloc_waits, "FDISC allocation waits"),
    CTR(fdisc_no_npiv, "FDISC without NPIV support"),
    CTR(fdisc_unknown_rsp, "FDISC unknown responses"),
    CTR(logo_sent, "LOGO sent"),
    CTR(logo_accepts, "LOGO accepts"),
    CTR(logo_rejects, "LOGO rejects"),
    CTR(logo_timeouts, "LOGO timeouts"),
    CTR(logo_alloc_waits, "LOGO allocation waits"),
    CTR(vport_creates, "Virtual port creates"),
    CTR(vport_deletes, "Virtual port deletes"),
    CTR(vport_onlines, "Virtual port onlines"),
    CTR(vport_offlines, "Virtual port offlines"),
    CTR(fabric_no_npiv, "Fabric without NPIV support"));

// ---- Remote ports and I-T nexus -----------------------------------------------------------------

KVOL_STATS_TABLE(kvo_rport_hal_stats, 35,
    CTR(create_reqs, "Create requests"),
    CTR(delete_reqs, "Delete requests"),
    CTR(online_reqs, "Online requests"),
    CTR(offline_reqs, "Offline requests"),
    CTR(fw_create_rsps, "Firmware create responses"),
    CTR(fw_delete_rsps, "Firmware delete responses"),
    CTR(fw_create_fails, "Firmware create failures"),
    CTR(fw_delete_fails, "Firmware delete failures"),
    CTR(fw_online_evts, "Firmware online events"),
    CTR(fw_offline_evts, "Firmware offline events"),
    CTR(qos_changes, "QoS changes"),
    CTR(speed_changes, "Speed changes"),
    CTR(resource_waits, "Resource waits"),
    CTR(create_timeouts, "Create timeouts"),
    CTR(delete_timeouts, "Delete timeouts"),
    CTR(unexpected_evts, "Unexpected events"));

KVOL_STATS_TABLE(kvo_rport_stats, 36,
    CTR(onlines, "Onlines"),
    CTR(offlines, "Offlines"),
    CTR(rscns, "RSCNs"),
    CTR(plogi_sent, "PLOGI sent"),
    CTR(plogi_accepts, "PLOGI accepts"),
    CTR(plogi_rejects, "PLOGI rejects"),
    CTR(plogi_rsp_errors, "PLOGI response errors"),
    CTR(plogi_timeouts, "PLOGI timeouts"),
    CTR(plogi_retries, "PLOGI retries"),
    CTR(plogi_rcvd, "PLOGI received"),
    CTR(plogi_collisions, "PLOGI collisions"),
    CTR(adisc_sent, "ADISC sent"),
    CTR(adisc_accepts, "ADISC accepts"),
    CTR(adisc_rejects, "ADISC rejects"),
    CTR(adisc_timeouts, "ADISC timeouts"),
    CTR(adisc_rcvd, "ADISC received"),
    CTR(logo_sent, "LOGO sent"),
    CTR(logo_accepts, "LOGO accepts"),
    CTR(logo_timeouts, "LOGO timeouts"),
    CTR(logo_rcvd, "LOGO received"),
    CTR(prlo_rcvd, "PRLO received"),
    CTR(prli_rcvd, "PRLI received"),
    CTR(rpsc_sent, "RPSC sent"),
    CTR(rpsc_accepts, "RPSC accepts"),
    CTR(rpsc_rejects, "RPSC rejects"),
    CTR(rls_sent, "RLS sent"),
    CTR(rls_accepts, "RLS accepts"),
    CTR(rls_rejects, "RLS rejects"),
    CTR(rls_timeouts, "RLS timeouts"),
    CTR(gpnid_sent, "GPN_ID sent"),
    CTR(gpnid_accepts, "GPN_ID accepts"),
    CTR(gpnid_rejects, "GPN_ID rejects"),
    CTR(gpnid_timeouts, "GPN_ID timeouts"),
    CTR(els_rcvd, "ELS received"),
    CTR(els_rejects_sent, "ELS rejects sent"),
    CTR(abts_rcvd, "ABTS received"),
    CTR(fcxp_alloc_waits, "Exchange allocation waits"),
    CTR(speed_changes, "Speed changes"),
    CTR(qos_changes, "QoS changes"),
    CTR(address_changes, "Address changes"),
    CTR(pid_conflicts, "Port id conflicts"),
    CTR(create_reqs, "Create requests"),
    CTR(delete_reqs, "Delete requests"),
    CTR(itnim_creates, "I-T nexus creates"),
    SUB(hal_stats, "remote port HAL stats", kvo_rport_hal_stats),
    SUB(rls, "remote link stats", kvo_rport_remote_link_stats));

KVOL_STATS_TABLE(kvo_rport_remote_link_stats, 37,
    CTR(link_failures, "Link failures"),
    CTR(loss_of_sync, "Loss of sync"),
    CTR(loss_of_signal, "Loss of signal"),
    CTR(primseq_errors, "Primitive sequence errors"),
    CTR(invalid_words, "Invalid transmission words"),
    CTR(invalid_crcs, "Invalid CRCs"));

KVOL_STATS_TABLE(kvo_itnim_stats, 38,
    CTR(onlines, "Onlines"),
    CTR(offlines, "Offlines"),
    CTR(prli_sent, "PRLI sent"),
    CTR(fcxp_alloc_wait, "Exchange allocation waits"),
    CTR(prli_rsp_err, "PRLI response errors"),
    CTR(prli_rsp_acc, "PRLI accepts"),
    CTR(initiator, "Remote port is an initiator"),
    CTR(prli_rsp_parse_err, "PRLI response parse errors"),
    CTR(prli_rsp_rjt, "PRLI rejects"),
    CTR(timeout, "Timeouts"),
    CTR(sler, "Sequence level error recoveries"));

// ---- IP over FC ---------------------------------------------------------------------------------

KVOL_STATS_TABLE(kvo_iprp_stats, 39,
    CTR(farp_req_sent, "FARP requests sent"),
    CTR(farp_req_rcvd, "FARP requests received"),
    CTR(farp_rsp_sent, "FARP replies sent"),
    CTR(farp_rsp_rcvd, "FARP replies received"),
    CTR(farp_rsp_errors, "FARP reply errors"),
    CTR(farp_timeouts, "FARP timeouts"),
    CTR(plogi_sent, "PLOGI sent"),
    CTR(plogi_accepts, "PLOGI accepts"),
    CTR(plogi_rejects, "PLOGI rejects"),
    CTR(logo_sent, "LOGO sent"),
    CTR(logo_rcvd, "LOGO received"),
    CTR(nport_onlines, "N_Port onlines"),
    CTR(nport_offlines, "N_Port offlines"),
    CTR(no_nport_drops, "Dropped without N_Port"));

KVOL_STATS_TABLE(kvo_ipfc_stats, 40,
    SUB(iprp, "IP remote port stats", kvo_iprp_stats),
    CTR(tx_packets, "Transmitted packets"),
    CTR(tx_bytes, "Transmitted bytes"),
    CTR(tx_errors, "Transmit errors"),
    CTR(tx_drops, "Transmit drops"),
    CTR(rx_packets, "Received packets"),
    CTR(rx_bytes, "Received bytes"),
    CTR(rx_errors, "Receive errors"),
    CTR(rx_drops, "Receive drops"),
    CTR(rx_bcast, "Received broadcasts"),
    CTR(rx_mcast, "Received multicasts"));

// ---- Firmware -----------------------------------------------------------------------------------

KVOL_STATS_TABLE(kvo_fw_ioim_stats, 41,
    CTR(host_ios, "Host IO requests"),
    CTR(host_aborts, "Host aborts"),
    CTR(host_cleanups, "Host cleanups"),
    CTR(read_reqs, "Read requests"),
    CTR(write_reqs, "Write requests"),
    CTR(data_len_errors, "Data length errors"),
    CTR(frames_out_of_order, "Frames out of order"),
    CTR(io_timeouts, "IO timeouts"),
    CTR(abts_sent, "ABTS sent"),
    CTR(abts_accepts, "ABTS accepts"),
    CTR(abts_rejects, "ABTS rejects"),
    CTR(abts_timeouts, "ABTS timeouts"),
    CTR(seq_recovery_reqs, "Sequence recovery requests"),
    CTR(dif_errors, "DIF errors"),
    CTR(fcp_rsp_errors, "FCP response errors"),
    CTR(underruns, "Underruns"),
    CTR(overruns, "Overruns"),
    CTR(retried_ios, "Retried IOs"));

KVOL_STATS_TABLE(kvo_fw_tio_stats, 42,
    CTR(cmds_rcvd, "Commands received"),
    CTR(xfer_rdy_sent, "Transfer ready sent"),
    CTR(data_frames_rcvd, "Data frames received"),
    CTR(data_frames_sent, "Data frames sent"),
    CTR(rsp_sent, "Responses sent"),
    CTR(aborts_rcvd, "Aborts received"),
    CTR(task_mgmt_rcvd, "Task management received"),
    CTR(cleanups, "Cleanups"),
    CTR(unexp_frames, "Unexpected frames"),
    CTR(drops, "Drops"),
    CTR(conf_reqs, "Confirmation requests"),
    CTR(conf_drops, "Confirmations dropped"));

KVOL_STATS_TABLE(kvo_fw_io_stats, 43,
    SUB(ioim, "initiator IO stats", kvo_fw_ioim_stats),
    SUB(tio, "target IO stats", kvo_fw_tio_stats));

KVOL_STATS_TABLE(kvo_fw_port_fpg_stats, 44,
    CTR(intr_events, "Interrupt events"),
    CTR(intr_excess, "Excess interrupts"),
    CTR(sig_lost, "Signal lost"),
    CTR(sig_regained, "Signal regained"),
    CTR(sync_lost, "Sync lost"),
    CTR(sync_regained, "Sync regained"),
    CTR(sync_timeouts, "Sync timeouts"),
    CTR(fifo_overflows, "FIFO overflows"),
    CTR(fifo_underflows, "FIFO underflows"),
    CTR(idles_rcvd, "Idles received"),
    CTR(lr_rcvd, "LR received"),
    CTR(lrr_rcvd, "LRR received"),
    CTR(ols_rcvd, "OLS received"),
    CTR(nos_rcvd, "NOS received"),
    CTR(lip_rcvd, "LIP received"),
    CTR(arb_rcvd, "ARB received"),
    CTR(mrk_rcvd, "MRK received"),
    CTR(unknown_prims, "Unknown primitives"));

KVOL_STATS_TABLE(kvo_fw_lpsm_stats, 45,
    CTR(lip_sent, "LIP sent"),
    CTR(lip_rcvd, "LIP received"),
    CTR(lip_f7_rcvd, "LIP F7 received"),
    CTR(lip_f8_rcvd, "LIP F8 received"),
    CTR(lip_reset_rcvd, "LIP reset received"),
    CTR(arb_won, "Arbitrations won"),
    CTR(arb_lost, "Arbitrations lost"),
    CTR(opn_sent, "OPN sent"),
    CTR(cls_sent, "CLS sent"),
    CTR(cls_rcvd, "CLS received"),
    CTR(lisa_timeouts, "LISA timeouts"),
    CTR(lirp_timeouts, "LIRP timeouts"),
    CTR(lilp_timeouts, "LILP timeouts"),
    CTR(alpa_conflicts, "AL_PA conflicts"),
    CTR(loop_inits, "Loop initializations"),
    CTR(loop_failures, "Loop failures"));

KVOL_STATS_TABLE(kvo_fw_port_lksm_stats, 46,
    CTR(hw_link_ups, "Hardware link ups"),
    CTR(hw_link_fails, "Hardware link failures"),
    CTR(hw_wd_timeouts, "Hardware watchdog timeouts"),
    CTR(sw_link_ups, "Software link ups"),
    CTR(sw_link_fails, "Software link failures"),
    CTR(sw_wd_timeouts, "Software watchdog timeouts"),
    CTR(lr_sent, "LR sent"),
    CTR(lrr_sent, "LRR sent"),
    CTR(ols_sent, "OLS sent"),
    CTR(nos_sent, "NOS sent"),
    CTR(lr_unexpected, "Unexpected LR"),
    CTR(lrr_unexpected, "Unexpected LRR"),
    CTR(buf_waits, "Buffer waits"),
    CTR(primseq_errors, "Primitive sequence errors"));

KVOL_STATS_TABLE(kvo_fw_port_snsm_stats, 47,
    CTR(hw_successes, "Hardware negotiation successes"),
    CTR(hw_failures, "Hardware negotiation failures"),
    CTR(hw_wd_timeouts, "Hardware watchdog timeouts"),
    CTR(sw_successes, "Software negotiation successes"),
    CTR(sw_failures, "Software negotiation failures"),
    CTR(sw_wd_timeouts, "Software watchdog timeouts"),
    CTR(sync_lost, "Sync lost"),
    CTR(sig_lost, "Signal lost"),
    CTR(error_resets, "Error resets"),
    CTR(speed_downshifts, "Speed downshifts"),
    CTR(tx_adapt_successes, "Transmit adaptation successes"),
    CTR(tx_adapt_failures, "Transmit adaptation failures"));

KVOL_STATS_TABLE(kvo_fw_port_physm_stats, 48,
    CTR(module_inserts, "Module inserts"),
    CTR(module_removals, "Module removals"),
    CTR(module_invalid, "Invalid modules"),
    CTR(module_read_errors, "Module read errors"),
    CTR(laser_faults, "Laser faults"),
    CTR(temp_alarms, "Temperature alarms"),
    CTR(rx_power_alarms, "Receive power alarms"),
    CTR(tx_power_alarms, "Transmit power alarms"));

KVOL_STATS_TABLE(kvo_fw_fip_stats, 49,
    CTR(vlan_reqs_sent, "VLAN requests sent"),
    CTR(vlan_notifications, "VLAN notifications"),
    CTR(vlan_errors, "VLAN errors"),
    CTR(vlan_timeouts, "VLAN timeouts"),
    CTR(vlan_invalid, "Invalid VLANs"),
    CTR(sol_sent, "Solicitations sent"),
    CTR(adv_rcvd, "Advertisements received"),
    CTR(unsol_adv_rcvd, "Unsolicited advertisements"),
    CTR(adv_errors, "Advertisement errors"),
    CTR(disc_timeouts, "Discovery timeouts"),
    CTR(fcf_unavailable, "FCF unavailable"),
    CTR(keepalives_sent, "Keep-alives sent"),
    CTR(keepalives_missed, "Keep-alives missed"),
    CTR(clear_vlinks_rcvd, "Clear virtual links received"),
    CTR(logo_sent, "LOGO sent"),
    CTR(els_unsupported, "Unsupported link services"),
    CTR(els_errors, "Link service errors"),
    CTR(untagged_frames, "Untagged frames"),
    CTR(version_errors, "Version errors"),
    CTR(fcf_changes, "FCF changes"));

KVOL_STATS_TABLE(kvo_fw_lps_stats, 50,
    CTR(flogi_sent, "FLOGI sent"),
    CTR(flogi_accepts, "FLOGI accepts"),
    CTR(flogi_rejects, "FLOGI rejects"),
    CTR(flogi_timeouts, "FLOGI timeouts"),
    CTR(fdisc_sent, "FDISC sent"),
    CTR(fdisc_accepts, "FDISC accepts"),
    CTR(fdisc_rejects, "FDISC rejects"),
    CTR(fdisc_timeouts, "FDISC timeouts"),
    CTR(logo_sent, "LOGO sent"),
    CTR(logo_accepts, "LOGO accepts"),
    CTR(mac_invalid, "Invalid fabric MAC"),
    CTR(pid_changes, "Port id changes"));

KVOL_STATS_TABLE(kvo_fw_fcoe_stats, 51,
    CTR(tx_frames, "FCoE frames transmitted"),
    CTR(tx_octets, "FCoE octets transmitted"),
    CTR(tx_fip_frames, "FIP frames transmitted"),
    CTR(tx_fip_octets, "FIP octets transmitted"),
    CTR(tx_drops, "Transmit drops"),
    CTR(tx_timeouts, "Transmit timeouts"),
    CTR(tx_parity_errors, "Transmit parity errors"),
    CTR(rx_frames, "FCoE frames received"),
    CTR(rx_octets, "FCoE octets received"),
    CTR(rx_fip_frames, "FIP frames received"),
    CTR(rx_fip_octets, "FIP octets received"),
    CTR(rx_crc_errors, "Receive CRC errors"),
    CTR(rx_sof_errors, "Receive SOF errors"),
    CTR(rx_eof_errors, "Receive EOF errors"),
    CTR(rx_version_errors, "Receive version errors"),
    CTR(rx_len_errors, "Receive length errors"),
    CTR(rx_mac_mismatches, "Receive MAC mismatches"),
    CTR(rx_vlan_mismatches, "Receive VLAN mismatches"),
    CTR(rx_drops, "Receive drops"),
    CTR(rx_unsupported, "Unsupported frames received"));

KVOL_STATS_TABLE(kvo_fw_fcoe_port_stats, 52,
    SUB(fip, "FIP stats", kvo_fw_fip_stats),
    SUB(fcoe, "FCoE stats", kvo_fw_fcoe_stats));

KVOL_STATS_TABLE(kvo_fw_fc_uport_stats, 53,
    CTR(link_ups, "Link ups"),
    CTR(link_downs, "Link downs"),
    CTR(speed_changes, "Speed changes"),
    CTR(topology_changes, "Topology changes"),
    CTR(enable_reqs, "Enable requests"),
    CTR(disable_reqs, "Disable requests"),
    CTR(loopback_starts, "Loopback starts"),
    CTR(loopback_stops, "Loopback stops"),
    CTR(diag_starts, "Diagnostic starts"),
    CTR(bbcr_enables, "BB credit recovery enables"),
    CTR(bbcr_disables, "BB credit recovery disables"),
    CTR(bbcr_failures, "BB credit recovery failures"),
    CTR(trunk_joins, "Trunk joins"),
    CTR(trunk_leaves, "Trunk leaves"),
    SUB(port, "FC port stats", kvo_fw_fc_port_stats));

KVOL_STATS_TABLE(kvo_fw_fc_port_stats, 54,
    CTR(tx_frames, "Transmitted frames"),
    CTR(tx_words, "Transmitted words"),
    CTR(rx_frames, "Received frames"),
    CTR(rx_words, "Received words"),
    CTR(lip_count, "LIP count"),
    CTR(nos_count, "NOS count"),
    CTR(ols_count, "OLS count"),
    CTR(lr_count, "LR count"),
    CTR(lrr_count, "LRR count"),
    CTR(error_frames, "Error frames"),
    CTR(dropped_frames, "Dropped frames"),
    CTR(invalid_crcs, "Invalid CRCs"),
    CTR(bad_eof_frames, "Frames with bad EOF"),
    CTR(undersized_frames, "Undersized frames"),
    CTR(oversized_frames, "Oversized frames"),
    CTR(link_failures, "Link failures"),
    CTR(loss_of_sync, "Loss of sync"),
    CTR(loss_of_signal, "Loss of signal"),
    CTR(primseq_errors, "Primitive sequence errors"),
    CTR(invalid_words, "Invalid transmission words"),
    CTR(bb_credit_zero, "Transmit credit exhausted"));

KVOL_STATS_TABLE(kvo_fw_port_stats, 55,
    SUB(fpg, "frame and primitive stats", kvo_fw_port_fpg_stats),
    SUB(lksm, "link state stats", kvo_fw_port_lksm_stats),
    SUB(snsm, "speed negotiation stats", kvo_fw_port_snsm_stats),
    SUB(physm, "optical module stats", kvo_fw_port_physm_stats),
    ARM(fcoe_port, "FCoE port stats", kvo_fw_fcoe_port_stats),
    ARM(fc_uport, "FC port stats", kvo_fw_fc_uport_stats));

KVOL_STATS_TABLE(kvo_fw_fcxchg_stats, 56,
    CTR(xchg_opens, "Exchanges opened"),
    CTR(xchg_closes, "Exchanges closed"),
    CTR(xchg_alloc_fails, "Exchange allocation failures"),
    CTR(xchg_unknown, "Unknown exchanges"),
    CTR(xchg_bad_state, "Exchanges in a bad state"),
    CTR(xchg_timeouts, "Exchange timeouts"),
    CTR(seq_timeouts, "Sequence timeouts"),
    CTR(abts_sent, "ABTS sent"),
    CTR(abts_rcvd, "ABTS received"),
    CTR(ba_acc_sent, "BA_ACC sent"),
    CTR(ba_rjt_sent, "BA_RJT sent"),
    CTR(rrq_sent, "RRQ sent"));

KVOL_STATS_TABLE(kvo_fw_trunk_stats, 57,
    CTR(link_ups, "Trunk link ups"),
    CTR(link_downs, "Trunk link downs"),
    CTR(member_adds, "Members added"),
    CTR(member_removes, "Members removed"),
    CTR(master_changes, "Master changes"),
    CTR(deskew_errors, "Deskew errors"),
    CTR(emt_sent, "EMT sent"),
    CTR(emt_rcvd, "EMT received"),
    CTR(emt_rejects, "EMT rejects"),
    CTR(etp_sent, "ETP sent"),
    CTR(etp_rcvd, "ETP received"),
    CTR(frames_rerouted, "Frames rerouted"));

KVOL_STATS_TABLE(kvo_fw_aport_stats, 58,
    CTR(enables, "Enables"),
    CTR(disables, "Disables"),
    CTR(link_ups, "Link ups"),
    CTR(link_downs, "Link downs"),
    CTR(speed_changes, "Speed changes"),
    CTR(loopback_starts, "Loopback starts"),
    CTR(loopback_stops, "Loopback stops"),
    CTR(mbox_timeouts, "Mailbox timeouts"));

KVOL_STATS_TABLE(kvo_fw_iocfc_stats, 59,
    CTR(cfg_reqs, "Configuration requests"),
    CTR(cfg_rsps, "Configuration responses"),
    CTR(intr_set_reqs, "Interrupt setting requests"),
    CTR(queue_updates, "Queue updates"),
    CTR(stats_reqs, "Statistics requests"),
    CTR(unknown_reqs, "Unknown requests"),
    CTR(mbox_errors, "Mailbox errors"),
    CTR(fw_events, "Firmware events"));

KVOL_STATS_TABLE(kvo_fw_eth_sndrcv_stats, 60,
    CTR(frames_sent, "Frames sent"),
    CTR(send_failures, "Send failures"),
    CTR(frames_rcvd, "Frames received"),
    CTR(rcv_crc_errors, "Receive CRC errors"),
    CTR(rcv_len_errors, "Receive length errors"),
    CTR(rcv_drops, "Receive drops"),
    CTR(unknown_ethertypes, "Unknown ethertypes"),
    CTR(lldp_frames, "LLDP frames"),
    CTR(fip_frames, "FIP frames"),
    CTR(buf_waits, "Buffer waits"));

KVOL_STATS_TABLE(kvo_fw_rds_stats, 61,
    CTR(reqs_rcvd, "Read requests received"),
    CTR(rsps_sent, "Read responses sent"),
    CTR(pages_read, "Pages read"),
    CTR(req_errors, "Read request errors"),
    CTR(buf_overruns, "Buffer overruns"),
    CTR(timeouts, "Read timeouts"));

KVOL_STATS_TABLE(kvo_fw_mac_mod_stats, 62,
    CTR(ucast_adds, "Unicast address adds"),
    CTR(ucast_deletes, "Unicast address deletes"),
    CTR(mcast_adds, "Multicast address adds"),
    CTR(mcast_deletes, "Multicast address deletes"),
    CTR(promisc_changes, "Promiscuous mode changes"),
    CTR(vlan_adds, "VLAN filter adds"),
    CTR(vlan_deletes, "VLAN filter deletes"),
    CTR(table_full, "Filter table full"));

KVOL_STATS_TABLE(kvo_fw_ct_mod_stats, 63,
    CTR(reqs_sent, "CT requests sent"),
    CTR(rsps_rcvd, "CT responses received"),
    CTR(accepts, "CT accepts"),
    CTR(rejects, "CT rejects"),
    CTR(timeouts, "CT timeouts"),
    CTR(ns_registrations, "Name server registrations"),
    CTR(ms_queries, "Management server queries"),
    CTR(unsol_rcvd, "Unsolicited CT received"));

KVOL_STATS_TABLE(kvo_fw_stats, 64,
    SUB(ioc, "IOC stats", kvo_fw_ioc_stats),
    SUB(iocfc, "IOC FC stats", kvo_fw_iocfc_stats),
    SUB(io, "IO stats", kvo_fw_io_stats),
    SUB(fcxchg, "exchange stats", kvo_fw_fcxchg_stats),
    SUB(lpsm, "loop stats", kvo_fw_lpsm_stats),
    SUB(lps, "login stats", kvo_fw_lps_stats),
    SUB(trunk, "trunk stats", kvo_fw_trunk_stats),
    SUB(mac_mod, "MAC filter stats", kvo_fw_mac_mod_stats),
    SUB(ct_mod, "CT stats", kvo_fw_ct_mod_stats),
    SUB(eth_sndrcv, "Ethernet send and receive stats", kvo_fw_eth_sndrcv_stats),
    SUB(rds, "read data stats", kvo_fw_rds_stats),
    SUB(aport, "adapter port stats", kvo_fw_aport_stats),
    SUB(port, "port stats", kvo_fw_port_stats));

// ---- QoS, FCoE and the FC port module -----------------------------------------------------------

KVOL_STATS_TABLE(kvo_qos_stats, 65,
    CTR(flogi_sent, "QoS FLOGI sent"),
    CTR(flogi_accepts, "QoS FLOGI accepts"),
    CTR(flogi_rejects, "QoS FLOGI rejects"),
    CTR(flogi_retries, "QoS FLOGI retries"),
    CTR(elp_rcvd, "ELP received"),
    CTR(elp_accepts, "ELP accepted"),
    CTR(elp_rejects, "ELP rejected"),
    CTR(elp_drops, "ELP dropped"),
    CTR(rscns_rcvd, "QoS RSCNs received"),
    CTR(hi_frames_sent, "High priority frames sent"),
    CTR(med_frames_sent, "Medium priority frames sent"),
    CTR(lo_frames_sent, "Low priority frames sent"),
    CTR(hi_frames_rcvd, "High priority frames received"),
    CTR(med_frames_rcvd, "Medium priority frames received"),
    CTR(lo_frames_rcvd, "Low priority frames received"),
    CTR(prio_changes, "Priority changes"),
    CTR(bw_changes, "Bandwidth changes"),
    CTR(state_changes, "State changes"));

KVOL_STATS_TABLE(kvo_fcoe_stats, 66,
    CTR(secs_reset, "Seconds since stats reset"),
    CTR(cee_link_ups, "CEE link ups"),
    CTR(cee_link_downs, "CEE link downs"),
    CTR(fip_link_ups, "FIP link ups"),
    CTR(fip_link_downs, "FIP link downs"),
    CTR(fip_failures, "FIP failures"),
    CTR(fcf_logins, "FCF logins"),
    CTR(fcf_logouts, "FCF logouts"),
    CTR(vn_port_creates, "VN_Port creates"),
    CTR(vn_port_deletes, "VN_Port deletes"),
    CTR(mac_invalid, "Invalid fabric MAC"),
    CTR(frames_no_fcf, "Frames dropped without FCF"),
    CTR(frames_dropped, "Frames dropped"),
    CTR(queue_stops, "Queue stops"),
    CTR(queue_wakeups, "Queue wakeups"),
    SUB(fip, "FIP stats", kvo_fw_fip_stats),
    SUB(fcoe, "FCoE stats", kvo_fw_fcoe_stats));

KVOL_STATS_TABLE(kvo_fcport_stats, 67,
    ARM(fc, "FC port stats", kvo_port_fc_stats),
    ARM(qos, "QoS stats", kvo_qos_stats),
    ARM(fcoe, "FCoE stats", kvo_fcoe_stats));

// ---- Initiator, PHY and vNIC: the second series -------------------------------------------------

KVOL_STATS_TABLE(kvo_fcpim_del_itn_stats, 101,
    CTR(itns_deleted, "Deleted I-T nexuses"),
    CTR(ios_total, "Total IO"),
    CTR(ios_aborted, "IO aborted"),
    CTR(ios_timed_out, "IO timeouts"),
    CTR(ios_completed, "IO completions"),
    CTR(ios_host_aborted, "IO aborted by host"),
    CTR(tms_pending, "Pending task management requests"),
    CTR(ioc_downs, "IOC downs"));

KVOL_STATS_TABLE(kvo_itnim_iostats, 102,
    CTR(total_ios, "Total IO"),
    CTR(input_reqs, "Data in-bound requests"),
    CTR(output_reqs, "Data out-bound requests"),
    CTR(io_comps, "Total IO Completions"),
    CTR(wr_throughput, "Write data transferred in bytes"),
    CTR(rd_throughput, "Read data transferred in bytes"),
    CTR(iocomp_ok, "Slowpath IO completions"),
    CTR(iocomp_underrun, "IO underrun"),
    CTR(iocomp_overrun, "IO overrun"),
    CTR(qwait, "IO Request-Q wait"),
    CTR(qresumes, "IO Request-Q wait done"),
    CTR(no_iotags, "No free IO tag"),
    CTR(iocomp_timedout, "IO timeouts"),
    CTR(iocomp_tgt_offline, "IO failure due to target offline"),
    CTR(iocomp_aborted, "IO aborted"),
    CTR(iocomp_cleanups, "IO cleanup completions"),
    CTR(iocomp_res_free, "IO completions after resource free"),
    CTR(iocomp_fw_err, "IO firmware errors"),
    CTR(iocomp_dif_err, "IO DIF errors"),
    CTR(iocomp_sense, "IO completions with sense data"),
    CTR(iocomp_busy, "IO completions with busy status"),
    CTR(iocomp_qfull, "IO completions with task set full"),
    CTR(iocomp_check_cond, "IO completions with check condition"),
    CTR(iocomp_resid_mismatch, "IO residual mismatches"),
    CTR(host_aborts, "Host abort requests"),
    CTR(host_abort_comps, "Host abort completions"),
    CTR(host_abort_fails, "Host abort failures"),
    CTR(host_cleanups, "Host cleanup requests"),
    CTR(fw_aborts, "Firmware initiated aborts"),
    CTR(sler_events, "Sequence level error recoveries"),
    CTR(rec_sent, "REC requests sent"),
    CTR(rec_rsps, "REC responses received"),
    CTR(srr_sent, "SRR requests sent"),
    CTR(io_retries, "IO retries"),
    CTR(tm_reqs, "Task management requests"),
    CTR(tm_success, "Task management successes"),
    CTR(tm_failures, "Task management failures"),
    CTR(tm_timeouts, "Task management timeouts"),
    CTR(tm_lun_resets, "LUN reset requests"),
    CTR(tm_tgt_resets, "Target reset requests"),
    CTR(tm_abort_tasks, "Abort task set requests"),
    CTR(tm_clear_tasks, "Clear task set requests"),
    CTR(tm_qwait, "Task management Request-Q wait"),
    CTR(tm_qresumes, "Task management Request-Q wait done"),
    CTR(tm_io_comps, "IO completions during task management"),
    CTR(tm_cleanups, "Task management cleanups"),
    CTR(tm_iocdowns, "Task management failure due to IOC down"),
    CTR(io_iocdowns, "IO failure due to IOC down"),
    CTR(io_pathtov_holds, "IO held for path timeout"),
    CTR(io_pathtov_fails, "IO failed on path timeout"),
    CTR(io_pathtov_resumes, "IO resumed within path timeout"),
    CTR(throttle_waits, "IO throttled"),
    CTR(throttle_resumes, "Throttled IO resumed"),
    CTR(lunmask_rejects, "IO rejected by LUN masking"),
    CTR(io_invalid_lun, "IO to unknown LUN"),
    CTR(io_dma_errors, "IO DMA mapping failures"),
    CTR(io_sg_limits, "IO over scatter-gather limit"),
    CTR(ios_le_512, "IO of 512 bytes or less"),
    CTR(ios_le_4k, "IO of 4 KiB or less"),
    CTR(ios_le_64k, "IO of 64 KiB or less"),
    CTR(ios_gt_64k, "IO larger than 64 KiB"),
    CTR(lat_le_1ms, "IO completed within 1 ms"),
    CTR(lat_le_10ms, "IO completed within 10 ms"),
    CTR(lat_le_100ms, "IO completed within 100 ms"),
    CTR(lat_gt_100ms, "IO completed after 100 ms"),
    CTR(lat_max_ms, "Longest IO completion in ms"),
    CTR(io_reqs_dropped, "IO requests dropped"),
    CTR(io_reqs_rejected, "IO requests rejected"));

KVOL_STATS_TABLE(kvo_phy_stats, 103,
    CTR(power_ups, "Power ups"),
    CTR(link_ups, "Link ups"),
    CTR(link_downs, "Link downs"),
    CTR(signal_losses, "Signal losses"),
    CTR(symbol_errors, "Symbol errors"),
    CTR(crc_errors, "CRC errors"),
    CTR(invalid_code_words, "Invalid code words"),
    CTR(sync_losses, "Sync losses"));

KVOL_STATS_TABLE(kvo_vnic_stats_bpc, 104,
    CTR(tx_pause_frames, "Pause frames transmitted"),
    CTR(rx_pause_frames, "Pause frames received"),
    CTR(tx_pfc_frames, "PFC frames transmitted"),
    CTR(rx_pfc_frames, "PFC frames received"),
    CTR(tx_paused_usecs, "Transmit paused microseconds"),
    CTR(rx_paused_usecs, "Receive paused microseconds"));

KVOL_STATS_TABLE(kvo_vnic_stats_rad, 105,
    CTR(rx_frames, "Received frames"),
    CTR(rx_octets, "Received octets"),
    CTR(rx_rss_hits, "Dispatched by receive side scaling"),
    CTR(rx_default_queue, "Dispatched to the default queue"),
    CTR(rx_filter_drops, "Dropped by filters"),
    CTR(rx_no_buf_drops, "Dropped for lack of buffers"));

KVOL_STATS_TABLE(kvo_vnic_stats_txq, 106,
    CTR(frames, "Frames"),
    CTR(octets, "Octets"),
    CTR(doorbells, "Doorbells"),
    CTR(completions, "Completions"),
    CTR(queue_stops, "Queue stops"),
    CTR(queue_wakeups, "Queue wakeups"),
    CTR(tso_frames, "Segmentation offload frames"),
    CTR(csum_offloads, "Checksum offloads"));

KVOL_STATS_TABLE(kvo_vnic_stats_txf, 107,
    CTR(ucast_frames, "Unicast frames"),
    CTR(ucast_octets, "Unicast octets"),
    CTR(mcast_frames, "Multicast frames"),
    CTR(mcast_octets, "Multicast octets"),
    CTR(bcast_frames, "Broadcast frames"),
    CTR(bcast_octets, "Broadcast octets"),
    CTR(vlan_frames, "VLAN tagged frames"),
    CTR(errors, "Errors"));

KVOL_STATS_TABLE(kvo_vnic_stats_rxq, 108,
    CTR(frames, "Frames"),
    CTR(octets, "Octets"),
    CTR(polls, "Polls"),
    CTR(interrupts, "Interrupts"),
    CTR(buf_posts, "Buffers posted"),
    CTR(buf_alloc_fails, "Buffer allocation failures"));

KVOL_STATS_TABLE(kvo_vnic_stats_rxp, 109,
    CTR(small_buf_posts, "Small buffers posted"),
    CTR(large_buf_posts, "Large buffers posted"),
    CTR(ring_empty_events, "Ring empty events"),
    CTR(hds_frames, "Header split frames"),
    CTR(csum_ok, "Checksums verified"),
    CTR(csum_errors, "Checksum errors"),
    CTR(lro_merged, "Frames merged"));

KVOL_STATS_TABLE(kvo_vnic_stats_rxf, 110,
    CTR(ucast_frames, "Unicast frames"),
    CTR(ucast_octets, "Unicast octets"),
    CTR(mcast_frames, "Multicast frames"),
    CTR(mcast_octets, "Multicast octets"),
    CTR(bcast_frames, "Broadcast frames"),
    CTR(bcast_octets, "Broadcast octets"),
    CTR(vlan_filtered, "Dropped by VLAN filter"),
    CTR(mac_filtered, "Dropped by MAC filter"),
    CTR(frame_drops, "Frame drops"));

KVOL_STATS_TABLE(kvo_vnic_drvstats, 111,
    CTR(netif_queue_stops, "Queue stops"),
    CTR(netif_queue_wakeups, "Queue wakeups"),
    CTR(tx_skb_drops, "Transmit drops"),
    CTR(tx_map_failures, "Transmit mapping failures"),
    CTR(rx_alloc_failures, "Receive allocation failures"),
    CTR(rx_csum_errors, "Receive checksum errors"),
    CTR(rx_backlog_drops, "Receive backlog drops"),
    CTR(link_toggles, "Link toggles"),
    CTR(mbox_timeouts, "Mailbox timeouts"),
    CTR(resets, "Resets"),
    CTR(mtu_changes, "MTU changes"),
    CTR(mac_changes, "MAC address changes"));

KVOL_STATS_TABLE(kvo_vnic_stats, 112,
    SUB(bpc, "back-pressure stats", kvo_vnic_stats_bpc),
    SUB(rad, "receive dispatch stats", kvo_vnic_stats_rad),
    SUB(txq, "transmit queue stats", kvo_vnic_stats_txq),
    SUB(txf, "transmit function stats", kvo_vnic_stats_txf),
    SUB(rxq, "receive queue stats", kvo_vnic_stats_rxq),
    SUB(rxp, "receive path stats", kvo_vnic_stats_rxp),
    SUB(rxf, "receive function stats", kvo_vnic_stats_rxf),
    SUB(drv, "driver stats", kvo_vnic_drvstats));

#undef KVOL_STATS_TABLE
#undef ARM
#undef SUB
#undef CTR
