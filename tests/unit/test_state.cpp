// Status messages, the last-status cell, the state-name tables and the small helpers.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kvol.h"
#include "kvol_state.h"

namespace {

// Rows whose exact text no scenario prints (those it does, such as 13 "Device busy", are
// checked there through the real command's error line).
TEST(StatusText, TellingRowsAreExact) {
    const std::map<int, std::string> rows = {
        {0, "Success "}, {2, "Invalid params Check input parameters "},
        {3, "Out of resources "}, {5, "Timer expired - Retry if persists contact support "},
        {14, "Operation aborted "}, {27, "No Torvane Adapter Found "},
        {28, "Link is down - Check or replace SFP/cable "},
        {41, "A signal was caught during ioctl "}, {45, "Failed to open file "},
        {46, "WWN is same as base port's WWN "},
        {50, "Missing frame check and replace SFP/cable or for Mezz card check and replace pass "
             "through module "},
        {61, "IOC is not operational. Enable IOC and if it still fails contact support "},
        {64, "API completes asynchronously "}, {70, "Application/Driver version mismatch "},
        {79, "Not a valid Torvane Boot Code file "}, {95, "Can't read windows registry "},
        {108, "Invalid speed selection for Wendrix. "},
        {129, "Bios speed config not allowed for CNA "},
        {141, "Acquiring Network Subsytem Lock Failed. Please try after some time "},
        {144, "User doesn't have sufficient permissions to execute the QMX application "},
        {155, "Boot image is not for the adapter(s) installed "},
        {167, "reboot -- -r is needed after boot code update or driver update "},
        {169, "Boot image is not for the adapter(s) installed "},
        {180, "Microsoft Hyper-V is enabled on this Port/VLAN.\nPlease remove this Port/VLAN from "
              "Microsoft Hyper-V configuration\nusing Microsoft Hyper-V tools and then try this "
              "operation again. "},
        {205, "Link beacon is currently ON at a different port on the switch.\nPlease turn it OFF "
              "first.\nOnly one switch port is allowed to beacon at a time. "},
        {229, "Torvane VPD header not found. "}, {235, "D-port mode is enabled "},
        {243, "SFP is not present.\n D-port will be enabled but it will be operational only after "
              "inserting a valid SFP. "},
        {245, "D-port mode is enabled "}, {260, "Invalid BBSCN value. Valid range is [1-15] "},
        {261, "Dynamic D_Port mode is active.\n To exit dynamic mode disable D_Port on the remote "
              "port "},
        {263, "LUN Range specifed is invalid "},
        {264, "Boot code update is not allowed on port 1 of 2763/2765 cards "},
        {272, "Supported LUN range on Windows is 0-254 "},
        {275, "Aport has done VVL/Dummy Login to fabric. "},
        {276, "This configuration is allowed only on port 0 when trunking is enabled. "},
    };
    for (const auto& [status, text] : rows) {
        EXPECT_EQ(kvol_status_to_string(status), text) << "status " << status;
    }
}

// Every entry ends in exactly one blank, and only the two documented pairs share a text; any
// other repeat is a copy slip.
TEST(StatusText, EveryEntryEndsInOneBlankAndOnlyTheKnownPairsRepeat) {
    std::map<std::string, std::vector<int>> by_text;
    for (int i = 0; i <= KVO_STATUS_MAX_VAL; ++i) {
        SCOPED_TRACE(i);
        ASSERT_NE(errorlist[i], nullptr);
        std::string t = errorlist[i];
        ASSERT_GE(t.size(), 3u);
        EXPECT_EQ(t.back(), ' ');
        EXPECT_NE(t[t.size() - 2], ' ');
        EXPECT_NE(t[0], ' ');
        by_text[t].push_back(i);
    }
    std::vector<std::vector<int>> repeats;
    for (const auto& [text, ids] : by_text)
        if (ids.size() > 1) repeats.push_back(ids);
    const std::vector<std::vector<int>> expected = {{155, 169}, {235, 245}};
    std::sort(repeats.begin(), repeats.end());
    EXPECT_EQ(repeats, expected);
}

TEST(StatusText, LookupIsBoundedUnsigned) {
    for (int i = 0; i <= KVO_STATUS_PORT0_ONLY; ++i) {
        EXPECT_EQ(kvol_status_to_string(i), errorlist[i]);
    }
    // 277 is the bound, not a status: only a caller that indexes the table sees its text.
    EXPECT_STREQ(errorlist[KVO_STATUS_MAX_VAL], "Unknown error code ");
    for (int status : {int{KVO_STATUS_MAX_VAL}, -1, INT_MIN, INT_MAX, 4011})
        EXPECT_STREQ(kvol_status_to_string(status), "Unknown Failure") << status;
}

// Worker threads (one per adapter in the boot update) may fail deep in the library at the
// same time as each other and the command thread: each sees only its own last failure.
TEST(LastStatus, EachThreadKeepsItsOwnCell) {
    kvol_set_last_error(KVO_STATUS_ENOMEM);
    std::vector<kvo_status_t> seen(8, KVO_STATUS_OK);
    std::vector<std::thread> workers;
    for (size_t i = 0; i < seen.size(); ++i) {
        workers.emplace_back([&seen, i] {
            EXPECT_EQ(kvol_get_last_error(), KVO_STATUS_OK);  // a fresh thread starts clean
            const auto mine = static_cast<kvo_status_t>(KVO_STATUS_NO_DRIVER + i);
            for (int k = 0; k < 1000; ++k) kvol_set_last_error(mine);
            seen[i] = kvol_get_last_error();
        });
    }
    for (std::thread& t : workers) t.join();
    for (size_t i = 0; i < seen.size(); ++i)
        EXPECT_EQ(seen[i], static_cast<kvo_status_t>(KVO_STATUS_NO_DRIVER + i));
    EXPECT_EQ(kvol_get_last_error(), KVO_STATUS_ENOMEM);
    kvol_set_last_error(KVO_STATUS_OK);
}

struct NamedTable {
    const char* name;
    const kvo_state_t* table;
    const char* (*lookup)(uint32_t);
    size_t rows;
};

const NamedTable kTables[] = {
    {"flash_status", kvo_flash_status_str, kvol_flash_status_to_string, 6},
    {"flash_part_type", kvo_flash_part_type_str, kvol_flash_part_type_to_string, 17},
    {"ioc_state", kvo_ioc_state_str, kvol_ioc_state_to_string, 12},
    {"faa_state", kvo_faa_state_str, kvol_faa_state_to_string, 2},
    {"faa_source", kvo_faa_source_str, kvol_faa_source_to_string, 3},
    {"port_states", kvo_port_states_str, kvol_port_states_to_string, 19},
    {"qos_state", kvo_qos_state_str, kvol_qos_state_to_string, 3},
    {"qos_priority", kvo_qos_priority_str, kvol_qos_priority_to_string, 4},
    {"port_speed", kvo_port_speed_str, kvol_port_speed_to_string, 9},
    {"port_type", kvo_port_type_str, kvol_port_type_to_string, 6},
    {"port_topology", kvo_port_topology_str, kvol_port_topology_to_string, 4},
    {"rport_state", kvo_rport_state_str, kvol_rport_state_to_string, 10},
    {"itnim_state", kvo_itnim_state_str, kvol_itnim_state_to_string, 8},
    {"auth_status", kvo_auth_status_str, kvol_auth_status_to_string, 10},
    {"auth_algo", kvo_auth_algo_str, kvol_auth_algo_to_string, 4},
    {"auth_group", kvo_auth_group_str, kvol_auth_group_to_string, 6},
    {"auth_rej_code", kvo_auth_rej_code_str, kvol_auth_rej_code_to_string, 4},
    {"auth_rej_code_exp", kvo_auth_rej_code_exp_str, kvol_auth_rej_code_exp_to_string, 12},
    {"vport_state", kvo_vport_state_str, kvol_vport_state_to_string, 11},
    {"log_severity", kvo_log_severity_str, kvol_log_severity_to_string, 5},
    {"ethport_cee_state", kvo_ethport_cee_state_str, kvol_ethport_cee_state_to_string, 2},
    {"trunk_state", kvo_trunk_state_str, kvol_trunk_state_to_string, 3},
    {"trunk_link_state", kvo_trunk_link_state_str, kvol_trunk_link_state_to_string, 5},
    {"trunk_link_fctl", kvo_trunk_link_fctl_str, kvol_trunk_link_fctl_to_string, 3},
    {"cee_status", kvo_cee_status_str, kvol_cee_status_to_string, 4},
    {"vmq_state", kvo_vmq_state_str, kvol_vmq_state_to_string, 7},
    {"mode", kvo_mode_str, kvol_mode_to_string, 3},
    {"lport_role", kvo_lport_role_str, kvol_lport_role_to_string, 4},
    {"bbcr_state", kvo_bbcr_state_str, kvol_bbcr_state_to_string, 3},
    {"bbcr_err_reason", kvo_bbcr_err_reason_str, kvol_bbcr_err_reason_to_string, 5},
    {"fec_state", kvo_fec_state_str, kvol_fec_state_to_string, 3},
    {"dport_test_status", kvo_diag_dport_test_status_str, kvol_diag_dport_test_status_to_string, 7},
    {"dport_test_opmode", kvo_diag_dport_test_opmode_str, kvol_diag_dport_test_opmode_to_string, 2},
    {"linkstate_rsn", kvo_port_linkstate_rsn_str, kvol_port_linkstate_rsn_to_string, 22},
};

// Each lookup walks its own table (a lookup wired to a neighbour's table fails here), every
// table is closed where expected, and the closing text never leaks out.
TEST(StateNames, EachLookupServesItsTableAndStopsAtTheClosingPair) {
    for (const NamedTable& t : kTables) {
        size_t n = 0;
        while (t.table[n].code != KVO_STATE_END) {
            EXPECT_STREQ(t.lookup(t.table[n].code), t.table[n].str) << t.name << " row " << n;
            ++n;
            ASSERT_LE(n, 64u) << t.name << " is not closed";
        }
        EXPECT_EQ(n, t.rows) << t.name;
        const char* closing = t.lookup == kvol_port_linkstate_rsn_to_string ? "Unknown Error." : "--";
        EXPECT_STREQ(t.table[n].str, closing) << t.name;
        EXPECT_STREQ(t.lookup(KVO_STATE_END), "unknown") << t.name;
        EXPECT_STREQ(t.lookup(1000), "unknown") << t.name;
    }
}

// Rows whose text a caller relies on, gaps between codes, and the link-state reasons whose
// words are joined without a blank.
TEST(StateNames, TellingRows) {
    using Lookup = const char* (*)(uint32_t);
    const Lookup speed = kvol_port_speed_to_string, ioc = kvol_ioc_state_to_string,
                 port = kvol_port_states_to_string, rsn = kvol_port_linkstate_rsn_to_string;
    const struct {
        Lookup lookup;
        uint32_t code;
        const char* text;
    } rows[] = {
        {speed, 15, "Auto"}, {speed, 3, "unknown"}, {speed, 1, "1G "}, {speed, 8, "8G "},
        {speed, 10, "10G"}, {speed, 0, "---"},
        {ioc, 12, "unknown"}, {ioc, 0, "unknown"}, {ioc, 1, "unknown"},
        {ioc, 11, "firmware mismatch"}, {ioc, KVO_IOC_OPERATIONAL, "operational"},
        {port, 16, "Disabled"}, {port, 17, "Disabled"}, {port, 13, "Disabled#"},
        {port, 19, "unknown"},
        {kvol_vport_state_to_string, 8, "unknown"}, {kvol_vport_state_to_string, 5, "fdisc*"},
        {kvol_auth_group_to_string, 256, "DH-ALL(1,2,3,4)"},
        {kvol_auth_group_to_string, 3, "unknown"},
        {kvol_auth_rej_code_to_string, 255, "Logical err"},
        {kvol_auth_rej_code_exp_to_string, 254, "-"},
        {kvol_port_topology_to_string, KVO_PORT_TOPOLOGY_P2P, "P2P"},
        {kvol_cee_status_to_string, 2, "Loopback"},
        {kvol_fec_state_to_string, 3, "Offline (link speed is not 16 Gig)"},
        {kvol_bbcr_err_reason_to_string, 3, "Connected to non TRVN switch"},
        {rsn, 20, "Timeout waiting to receive from peer"},
        {rsn, 28, "Protocol Error - FCOE values notcompatible"},
        {rsn, 30, "Invalid BW values received [Sum of all BW shouldequal to 100]"},
        {rsn, 31, "Invalid PFC values received [PFCs should beconsistent within a priority group]"},
        {rsn, 36, "Applying new configuration in progress.Please retry"},
        {rsn, 37, "Protocol Initialization in progress Or Waitingto receive from Peer"},
        {rsn, 43, "iSCSI priority(s) overlap FCoE priority(s)"},
        {rsn, 0, "unknown"}, {rsn, 19, "unknown"}, {rsn, 39, "unknown"}, {rsn, 40, "unknown"},
        {rsn, 44, "unknown"},
    };
    for (const auto& r : rows) EXPECT_STREQ(r.lookup(r.code), r.text) << r.code << " " << r.text;
}

TEST(Checksum, ComplementsTheByteSum) {
    // The sum runs past eight bits (300 x 0xFF): only its low byte counts.
    const std::pair<std::vector<uint8_t>, unsigned> fixed[] = {
        {{0x01, 0x02}, 0xFD}, {{0x00}, 0x00}, {{}, 0x00}, {std::vector<uint8_t>(300, 0xFF), 0x2C}};
    for (const auto& [buf, sum] : fixed) {
        EXPECT_EQ(kvol_checksum_u8(buf.data(), static_cast<uint32_t>(buf.size())), sum)
            << buf.size();
    }

    std::mt19937 rng(7);
    for (int round = 0; round < 50; ++round) {
        std::vector<uint8_t> buf(rng() % 600);
        for (auto& b : buf) b = static_cast<uint8_t>(rng());
        unsigned sum = kvol_checksum_u8(buf.data(), static_cast<uint32_t>(buf.size()));
        for (uint8_t b : buf) sum += b;
        EXPECT_EQ(sum & 0xFF, 0u);
    }
}

}  // namespace
