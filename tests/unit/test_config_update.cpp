// Setters, vports, the target reset list, clean-up, queries, and the file lock.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>

#include <chrono>
#include <functional>
#include <vector>

#include "test_config_util.h"

namespace {

constexpr const char* kW0 = "10:00:00:05:1e:00:00:01";
constexpr const char* kW1 = "10:00:00:05:1e:00:00:02";
constexpr const char* kW2 = "10:00:00:05:1e:00:00:03";

class ConfigUpdateTest : public ConfigTest {
protected:
    // Three registered FC ports at indices 0-2, the lock released.
    void three_ports(const std::string& extra = "") {
        load(std::string("kvo0-port-wwn = \"") + kW0 + "\";\nkvo1-port-wwn = \"" + kW1 +
             "\";\nkvo2-port-wwn = \"" + kW2 + "\";\n" + extra);
        kvol_config_unload();
    }
    kvol_t h0 = fc_ioc(kW0), h1 = fc_ioc(kW1), h2 = fc_ioc(kW2);
};

int count_of(const std::string& hay, const std::string& needle) {
    int n = 0;
    for (size_t p = hay.find(needle); p != std::string::npos; p = hay.find(needle, p + 1)) ++n;
    return n;
}

}  // namespace

// ---- Setters
// ------------------------------------------------------------------------------------------

TEST_F(ConfigUpdateTest, ChangingOneRecordTurnsTheGlobalLineIntoPerInstanceLines) {
    three_ports("port-speed = 4;\nlog-level = \"Info\";\nqos = \"TRUE\";\n");
    kvol_config_speed(&h2, KVO_PORT_SPEED_8GBPS);
    kvol_config_log_level(&h1, 4);  // the same value: the global line stays
    kvol_config_qos(&h0, 0);        // back to the default: gone from records 0, kept on 1 and 2
    std::string out = render();
    EXPECT_TRUE(has_all(out, {"kvo0-port-speed = 4;\nkvo1-port-speed = 4;\nkvo2-port-speed = 8;\n",
                              "\nlog-level = \"Info\";\n", "kvo1-qos = \"TRUE\";\n", "kvo2-qos = \"TRUE\";\n"}));
    EXPECT_TRUE(has_none(out, {"\nport-speed =", "kvo1-log-level", "\nqos =", "kvo0-qos"}));
}

TEST_F(ConfigUpdateTest, DriverDefaultsAreLeftOutOfTheFile) {
    three_ports();
    // Each row sets a value that is written, then one the driver takes by default.
    const kvol_t* h = &h0;
    const std::pair<const char*, std::function<void(bool)>> cases[] = {
        {"kvo0-port-speed = 16;\n",
         [&](bool on) { kvol_config_speed(h, on ? KVO_PORT_SPEED_16GBPS : KVO_PORT_SPEED_AUTO); }},
        {"kvo0-port-topology = \"loop\";\n", [&](bool on) {
             kvol_config_topology(h, on ? KVO_PORT_TOPOLOGY_LOOP : KVO_PORT_TOPOLOGY_NONE); }},
        {"kvo0-port-hardalpa = 0x2;\n", [&](bool on) { kvol_config_alpa(h, 2, on); }},
        {"kvo0-port-maxfrsize = 512;\n", [&](bool on) { kvol_config_maxfrsz(h, on ? 512 : 2112); }},
        {"kvo0-port-enable = \"FALSE\";\n", [&](bool on) { kvol_config_enable(h, !on); }},
        {"kvo0-ipfc-enable = \"FALSE\";\n", [&](bool on) { kvol_config_ipfc_enable(h, !on); }},
        {"kvo0-log-level = \"Error\";\n", [&](bool on) { kvol_config_log_level(h, on ? 2 : 0); }},
        {"kvo0-ratelim-defspeed = 2;\n", [&](bool on) {
             kvol_config_defspeed(h, on ? KVO_PORT_SPEED_2GBPS : KVO_PORT_SPEED_1GBPS); }},
        {"kvo0-pathtov = 45;\n", [&](bool on) { kvol_config_fcpim(h, on ? 45 : 0); }},
        {"kvo0-auth-group = 0;\n",
         [&](bool on) { kvol_config_auth_group(h, on ? KVO_AUTH_DH_NULL : KVO_AUTH_DH_1); }},
        {"kvo0-auth-secretsource = \"TACACS\";\n", [&](bool on) {
             kvol_config_auth_secretsource(h, on ? KVO_AUTH_SECRET_TACACS : KVO_AUTH_SECRET_LOCAL); }},
        {"kvo0-auth-algo = \"md5\";\n",
         [&](bool on) { kvol_config_auth_algo(h, on ? KVO_AUTH_ALGO_MD5 : KVO_AUTH_ALGO_NONE); }},
        {"kvo0-port-name = \"p0\";\n", [&](bool on) { kvol_config_ioc_name(h, on ? "p0" : ""); }},
        {"kvo0-persistent-binding = \"TRUE\";\n", [&](bool on) { kvol_config_pbind(h, on); }},
        {"kvo0-port-trunk = 0, 1;\n", [&](bool on) { kvol_config_trunk(h, on, 0x3); }},
        {"kvo0-vf-enable = \"TRUE\"\n", [&](bool on) { kvol_config_vf_mode(h, on, 1); }},
        {"kvo0-vf-default = 5;\n", [&](bool on) { kvol_config_vf_mode(h, 0, on ? 5 : 1); }},
        {"kvo0-auth-policy = \"on\";\n", [&](bool on) { kvol_config_auth_policy(h, on); }},
        {"kvo0-qos = \"TRUE\";\n", [&](bool on) { kvol_config_qos(h, on); }},
        {"kvo0-ratelim = \"TRUE\";\n", [&](bool on) { kvol_config_ratelim(h, on); }},
    };
    for (const auto& [line, apply] : cases) {
        SCOPED_TRACE(line);
        apply(true);
        EXPECT_TRUE(contains(render(), line));
        apply(false);
        EXPECT_FALSE(contains(render(), std::string(line).substr(0, std::string(line).find('='))));
    }
    // Read from the file, never written.
    kvol_config_qdepth(&h0, 16);
    kvol_config_set_data(KVOL_CFG_MTU, 0, "9000");
    EXPECT_FALSE(contains(render(), "qdepth") || contains(render(), "mtu"));
    // Auto stored as 0 is the rate limit's one written "default": only one gigabit is left out.
    kvol_config_defspeed(&h0, KVO_PORT_SPEED_AUTO);
    EXPECT_TRUE(contains(render(), "kvo0-ratelim-defspeed = 0;\n"));
    EXPECT_EQ(ioc_config_data[0].defspeed, KVO_PORT_SPEED_UNKNOWN);
}

TEST_F(ConfigUpdateTest, InterruptCoalescingDefaults) {
    three_ports();
    kvol_config_iocfc_intr(&h0, 1, 1125, 225);
    EXPECT_FALSE(ioc_config_data[0].flags[1] &
                 (KVOL_W1_COALESCE | KVOL_W1_DELAY | KVOL_W1_LATENCY));
    kvol_config_iocfc_intr(&h0, 1, 1125, 100);
    EXPECT_TRUE(contains(render(), "kvo0-delay = 1125;\nkvo0-latency = 100;\n"));
    kvol_config_iocfc_intr(&h0, 0, 0, 0);
    std::string out = render();
    EXPECT_TRUE(contains(out, "kvo0-coalesce = \"off\";\n"));
    EXPECT_TRUE(has_none(out, {"kvo0-delay", "kvo0-latency"}));
    EXPECT_EQ(ioc_config_data[0].latency, 100);  // values are kept only while coalescing is on
}

TEST_F(ConfigUpdateTest, SettersWithoutARecordChangeNothing) {
    three_ports("port-speed = 4;\n");
    std::string before = render();
    kvol_t stranger = fc_ioc("20:00:00:00:00:00:00:99");
    kvol_config_speed(&stranger, KVO_PORT_SPEED_8GBPS);
    kvol_config_ioc_name(&stranger, "x");
    kvol_config_trunk(&stranger, 1, 3);
    kvol_config_ioc_name(nullptr, "x");
    kvol_t eth = eth_ioc("00:05:1e:00:00:09");
    kvol_config_ioc_name(&eth, "x");
    EXPECT_EQ(render(), before);
    EXPECT_TRUE(config_all[0] & KVOL_W0_SPEED);
    EXPECT_EQ(kvol_config_trs_update(&stranger, 0, 1, 2, 1), KVO_STATUS_CNFG_FAILED);
    EXPECT_EQ(kvol_config_trs_clear(&stranger), KVO_STATUS_CNFG_FAILED);
    kvol_port_cfg_t vp{};
    EXPECT_EQ(kvol_config_vport_add(&stranger, 0, &vp), KVO_STATUS_CNFG_FAILED);
    EXPECT_EQ(kvol_config_vport_del(&stranger, &vp), KVO_STATUS_CNFG_FAILED);
}

TEST_F(ConfigUpdateTest, PortNamesGoToTheViewOfTheIocType) {
    three_ports("tqe0-port-mac = \"00:05:1e:00:00:01\";\n");
    kvol_t eth = eth_ioc("00:05:1e:00:00:01");
    kvol_config_ioc_name(&h0, "fc side");
    kvol_config_ioc_name(&eth, "eth side");
    EXPECT_STREQ(ioc_config_data[0].name, "fc side");
    EXPECT_STREQ(ioc_config_data[0].ethname, "eth side");
    std::string long_name(300, 'n');
    kvol_config_ioc_name(&h1, long_name.c_str());
    EXPECT_EQ(std::string(ioc_config_data[1].name), long_name.substr(0, 127));
    EXPECT_TRUE(
        contains(render(), "tqe0-port-mac = \"00:05:1e:00:00:01\";\ntqe0-port-name = \"eth side\";\n"));
    kvol_config_ioc_name(&eth, "");
    EXPECT_FALSE(contains(render(), "tqe0-port-name"));
}

TEST_F(ConfigUpdateTest, AdapterSetters) {
    load("adapter-S1-trunk = \"TRUE\";\n");
    kvol_config_unload();
    kvol_config_ad_set_name("S2", "new");  // missing: added first
    EXPECT_EQ(kvol_config_ad_lookup("S2"), 1);
    EXPECT_STREQ(ad_config_data[1].name, "new");
    kvol_config_ad_set_trunk("S3", 1);  // missing: nothing
    EXPECT_EQ(kvol_config_ad_lookup("S3"), -1);
    kvol_config_ad_set_trunk("S2", 1);
    EXPECT_TRUE(contains(render(), "adapter-S2-trunk = \"TRUE\";\n"));
    kvol_config_ad_set_trunk("S2", 0);
    kvol_config_ad_set_trunk("S1", 0);
    kvol_config_ad_set_name("S2", "");
    EXPECT_TRUE(has_none(render(), {"adapter-S1-trunk", "adapter-S2-name"}));
    EXPECT_EQ(kvol_config_ad_get_num(), 2);
}

TEST_F(ConfigUpdateTest, SecretStringIsRefusedWhenItCannotFit) {
    three_ports("auth-encrypt = \"5\";\n");
    const uint32_t words[] = {7, 0xFFFFFFFFu};
    kvol_config_auth_secretstring(&h1, words, 2);
    EXPECT_STREQ(ioc_config_data[1].authsstring, "7,-1");
    EXPECT_FALSE(config_all[0] & KVOL_W0_AUTH_SSTRING);
    std::vector<uint32_t> big(50, 0x80000000u);  // 50 x "-2147483648," > 511 characters
    kvol_config_auth_secretstring(&h1, big.data(), static_cast<int>(big.size()));
    EXPECT_STREQ(ioc_config_data[1].authsstring, "7,-1");
    std::vector<uint32_t> fits(42, 0x80000000u);  // 42 * 12 - 1 = 503 characters
    kvol_config_auth_secretstring(&h1, fits.data(), static_cast<int>(fits.size()));
    EXPECT_EQ(strlen(ioc_config_data[1].authsstring), 503u);
    kvol_config_auth_secretstring(&h0, nullptr, 0);
    EXPECT_FALSE(ioc_config_data[0].flags[0] & KVOL_W0_AUTH_SSTRING);
    EXPECT_TRUE(contains(render(), "kvo2-auth-encrypt = \"5\";\n"));
}

TEST_F(ConfigUpdateTest, VfListTogglesAndTrunkFollowsItsMode) {
    three_ports();
    kvol_config_vf_list(&h0, 0);
    kvol_config_vf_list(&h0, 15);
    kvol_config_vf_list(&h0, 16);  // outside the 16-bit list
    EXPECT_EQ(ioc_config_data[0].vf_list, 0x8001);
    EXPECT_TRUE(contains(render(), "kvo0-vf-list = 0, 15;\n"));
    kvol_config_vf_list(&h0, 0);
    kvol_config_vf_list(&h0, 15);
    EXPECT_FALSE(ioc_config_data[0].flags[0] & KVOL_W0_VF_LIST);
    kvol_config_vf_mode(&h1, 0, 7);
    std::string out = render();
    EXPECT_TRUE(!contains(out, "kvo1-vf-enable") && contains(out, "kvo1-vf-default = 7;\n"));
    kvol_config_trunk(&h2, 0, 0x5);
    EXPECT_FALSE(contains(render(), "kvo2-port-trunk"));
    EXPECT_EQ(ioc_config_data[2].trunking, 0x5u);
}

// ---- Record creation
// ------------------------------------------------------------------------------------

TEST_F(ConfigUpdateTest, NewRecordsTakeTheLowestFreeIndexOfTheirView) {
    three_ports("tqe0-port-mac = \"00:05:1e:00:00:01\";\n");
    kvol_config_ioc_zero(1);
    EXPECT_EQ(kvol_config_ioc_add(wwn_of("10:00:00:05:1e:00:00:77")), 1);
    EXPECT_EQ(kvol_config_ethioc_add(mac_of("00:05:1e:00:00:02")), 1);
    EXPECT_EQ(kvol_config_ioc_lookup(wwn_of("10:00:00:05:1e:00:00:77")), 1);
    EXPECT_EQ(kvol_config_ethioc_lookup(mac_of("00:05:1e:00:00:02")), 1);
    for (int i = 3; i < KVOL_CFG_MAX_IOC; ++i)
        EXPECT_EQ(kvol_config_ioc_add(wwn_plus("10:00:00:05:1e:00:01:00", i)), i);
    EXPECT_EQ(kvol_config_ioc_add(wwn_of("10:00:00:05:1e:00:02:00")), -1);
    EXPECT_EQ(kvol_config_ioc_get_num(), KVOL_CFG_MAX_IOC);
    kvol_config_ioc_pwwn(200, 1);  // outside the table: ignored
    kvol_config_ethioc_mac(-1, mac_t{});
}

// ---- Vports
// -----------------------------------------------------------------------------------------------

TEST_F(ConfigUpdateTest, VportsAreAddedReplacedAndDeleted) {
    three_ports();
    const char* nwwn = "20:00:00:00:00:00:00:0a";
    kvol_port_cfg_t a = vport_cfg("20:01:00:00:00:00:00:0a", nwwn, "",
                                  KVOL_LPORT_ROLE_IM | KVOL_LPORT_ROLE_TM | KVOL_LPORT_ROLE_IP);
    kvol_port_cfg_t b = vport_cfg("20:01:00:00:00:00:00:0b", nwwn, "beta", 0);
    ASSERT_EQ(kvol_config_vport_add(&h1, 2, &a), KVO_STATUS_OK);
    ASSERT_NE(ioc_config_data[1].vport, nullptr);
    EXPECT_STREQ(ioc_config_data[1].vport->role, "IM + TM + IP");
    EXPECT_STREQ(ioc_config_data[1].vport->name.symname, " ");  // an empty name reads as a blank
    ASSERT_EQ(kvol_config_vport_add(&h1, 0, &b), KVO_STATUS_OK);
    a = vport_cfg("20:01:00:00:00:00:00:0a", nwwn, "alpha2", KVOL_LPORT_ROLE_TM);
    ASSERT_EQ(kvol_config_vport_add(&h1, 3, &a), KVO_STATUS_OK);  // same port WWN: replaced
    EXPECT_EQ(ioc_config_data[1].vpcount, 2);
    EXPECT_TRUE(
        contains(render(),
                 "kvo1-vport-0 = \"20:01:00:00:00:00:00:0a,20:00:00:00:00:00:00:0a,alpha2,TM,3\";\n"
                 "kvo1-vport-1 = \"20:01:00:00:00:00:00:0b,20:00:00:00:00:00:00:0a,beta,,0\";\n"));

    kvol_port_cfg_t unknown = a;
    unknown.pwwn = wwn_of("20:01:00:00:00:00:00:ff");
    ASSERT_EQ(kvol_config_vport_del(&h1, &unknown), KVO_STATUS_OK);
    EXPECT_EQ(ioc_config_data[1].vpcount, 1);  // lowered although nothing matched
    EXPECT_EQ(count_of(render(), "kvo1-vport-"), 2);
    ASSERT_EQ(kvol_config_vport_del(&h1, &a), KVO_STATUS_OK);
    EXPECT_EQ(ioc_config_data[1].vpcount, 0);
    std::string out = render();
    EXPECT_TRUE(contains(out, "kvo1-vport-0 = \"20:01:00:00:00:00:00:0b,"));
    EXPECT_EQ(count_of(out, "kvo1-vport-"), 1);
}

// ---- Target reset list
// ----------------------------------------------------------------------------------

TEST_F(ConfigUpdateTest, TargetResetPairsAreAppendedRemovedAndBounded) {
    three_ports();
    const wwn_t l = wwn_of("10:00:00:05:1e:00:00:01");
    auto r = [](int i) { return wwn_plus("50:00:00:00:00:00:00:00", i); };
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(kvol_config_trs_update(&h0, 0, l, r(i), 1), KVO_STATUS_OK);
    EXPECT_EQ(kvol_config_trs_update(&h0, 0, l, r(1), 1), KVO_STATUS_OK);  // present: no change
    EXPECT_EQ(ioc_config_data[0].trs_count, 3);
    EXPECT_EQ(kvol_config_trs_update(&h0, 0, l, r(1), 0), KVO_STATUS_OK);
    EXPECT_EQ(ioc_config_data[0].trs_count, 2);
    EXPECT_EQ(ioc_config_data[0].trs_list[1].rpwwn, r(2));
    EXPECT_EQ(ioc_config_data[0].trs_list[2].lpwwn, 0u);
    EXPECT_EQ(ioc_config_data[0].trs_list[2].rpwwn, 0u);
    EXPECT_EQ(kvol_config_trs_update(&h0, 0, l, r(9), 0), KVO_STATUS_OK);  // absent: no change
    EXPECT_EQ(ioc_config_data[0].trs_count, 2);
    EXPECT_TRUE(contains(render(),
                         "kvo0-trs-cfg = \"2;10:00:00:05:1e:00:00:01,50:00:00:00:00:00:00:00;"
                         "10:00:00:05:1e:00:00:01,50:00:00:00:00:00:00:02;\";\n"));

    for (int i = 10; i < 24; ++i)
        ASSERT_EQ(kvol_config_trs_update(&h0, 0, l, r(i), 1), KVO_STATUS_OK);
    EXPECT_EQ(ioc_config_data[0].trs_count, 16);
    EXPECT_EQ(kvol_config_trs_update(&h0, 0, l, r(99), 1), KVO_STATUS_CNFG_FAILED);
    EXPECT_EQ(ioc_config_data[0].trs_count, 16);

    // Removing the last pair still writes an (empty) list; clearing writes none.
    kvol_config_trs_update(&h1, 0, l, r(1), 1);
    kvol_config_trs_update(&h1, 0, l, r(1), 0);
    EXPECT_TRUE(contains(render(), "kvo1-trs-cfg = \"0;\";\n"));
    EXPECT_EQ(kvol_config_trs_clear(&h0), KVO_STATUS_OK);
    EXPECT_FALSE(contains(render(), "kvo0-trs-cfg"));
    EXPECT_EQ(ioc_config_data[0].trs_count, 16);
}

// ---- Clean-up and queries
// ---------------------------------------------------------------------------------

TEST_F(ConfigUpdateTest, CleanupZeroesThePortsRecordsAndTheFirstAdapterRecord) {
    three_ports(
        "tqe2-port-mac = \"00:05:1e:00:00:02\";\n"
        "kvo1-vport-0 = \"20:01:00:00:00:00:00:01,20:00:00:00:00:00:00:01,v,IM,0\";\n"
        "kvo0-port-speed = 8;\n"
        "adapter-S1-name = \"a\";\nadapter-S1-trunk = \"TRUE\";\n");
    kvol_t fc = fc_ioc(kW1);
    fc.pcifn_id = 0;
    kvol_t eth = eth_ioc("00:05:1e:00:00:02");
    eth.pcifn_id = 1;
    kvol_port_t port{};
    port.fcioc_list = &fc;
    port.ethioc_list = &eth;
    EXPECT_EQ(kvol_conf_port_cleanup(&port), KVO_STATUS_OK);
    EXPECT_EQ(ioc_config_data[1].flags[0], 0u);
    EXPECT_EQ(ioc_config_data[1].vport, nullptr);
    EXPECT_EQ(ioc_config_data[2].flags[0], 0u);  // the Ethernet view's record, by MAC
    EXPECT_EQ(ioc_config_data[0].speed, 8u);

    kvol_port_t empty{};
    EXPECT_EQ(kvol_conf_port_cleanup(&empty), KVO_STATUS_NO_PORT_INSTANCE);
    EXPECT_EQ(kvol_conf_port_cleanup(nullptr), KVO_STATUS_NO_PORT_INSTANCE);

    kvol_adapter_t ad{};
    memcpy(ad.serial_num, "S1", 3);
    EXPECT_EQ(kvol_conf_ad_cleanup(&ad), KVO_STATUS_OK);
    EXPECT_EQ(ad_config_data[0].flags[0], 0u);
    EXPECT_EQ(kvol_config_ad_lookup("S1"), 1);
    std::string out = render();
    EXPECT_TRUE(!contains(out, "adapter-S1-name") && contains(out, "adapter-S1-trunk"));
}

TEST_F(ConfigUpdateTest, NameQueries) {
    three_ports(
        "adapter-S1-name = \"lab\";\nkvo0-port-name = \"p0\";\n"
        "tqe1-port-mac = \"00:05:1e:00:00:02\";\ntqe1-port-name = \"e1\";\n");
    EXPECT_TRUE(kvol_config_ad_name_taken("S1", "lab", "S2"));
    EXPECT_FALSE(kvol_config_ad_name_taken("S1", "lab", "S1"));
    EXPECT_FALSE(kvol_config_ad_name_taken("S1", "la", "S2"));
    EXPECT_FALSE(kvol_config_ad_name_taken("S1", "", "S2"));
    EXPECT_FALSE(kvol_config_ad_name_taken("S9", "lab", "S2"));

    kvol_t eth = eth_ioc("00:05:1e:00:00:02");
    EXPECT_TRUE(kvol_config_ioc_name_matches(&h0, "p0"));
    EXPECT_FALSE(kvol_config_ioc_name_matches(&h0, "e1"));
    EXPECT_TRUE(kvol_config_ioc_name_matches(&eth, "e1"));
    EXPECT_FALSE(kvol_config_ioc_name_matches(&h1, ""));
    EXPECT_FALSE(kvol_config_ioc_name_matches(nullptr, "p0"));
}

// ---- Lock and transactions
// -----------------------------------------------------------------------------------

TEST_F(ConfigUpdateTest, LoadCreatesTheFileRefusesASecondLoadAndFailuresReleaseTheLock) {
    ASSERT_EQ(kvol_config_load(path()), KVO_STATUS_OK);  // a missing file is created
    kvol_config_unload();
    EXPECT_EQ(access(path(), F_OK), 0);
    std::string nowhere = dir_ + "/missing/kvo.conf";
    EXPECT_EQ(kvol_config_load(nowhere.c_str()), KVO_STATUS_EFOPEN);
    load("kvo0-port-speed = 8;\n");  // the failure held no lock
    // A second load while locked fails and leaves the tables.
    write_file("kvo0-port-speed = 4;\n");
    EXPECT_EQ(kvol_config_load(path()), KVO_STATUS_FAILED);
    EXPECT_EQ(ioc_config_data[0].speed, 8u);
    sync();
    ASSERT_EQ(kvol_config_load(path()), KVO_STATUS_OK);
    EXPECT_EQ(ioc_config_data[0].speed, 8u);
    // A failed write releases the lock.
    EXPECT_EQ(kvol_config_sync(dir_.c_str()), KVO_STATUS_EFOPEN);
    ASSERT_EQ(kvol_config_load(path()), KVO_STATUS_OK);
    EXPECT_EQ(ioc_config_data[0].speed, 8u);
}

TEST_F(ConfigUpdateTest, TwoProcessesTransactingConcurrentlyLoseNothing) {
    constexpr int kRounds = 40;
    load("");
    sync();
    int go[2];
    ASSERT_EQ(pipe(go), 0);
    pid_t kids[2];
    for (int k = 0; k < 2; ++k) {
        kids[k] = fork();
        ASSERT_GE(kids[k], 0);
        if (kids[k] == 0) {
            char c;
            close(go[1]);
            if (read(go[0], &c, 1) != 0) _exit(100);
            int failures = 0;
            for (int i = 0; i < kRounds; ++i) {
                if (kvol_config_load(path()) != KVO_STATUS_OK) {
                    ++failures;
                    continue;
                }
                kvol_t h = fc_ioc("00:00:00:00:00:00:00:00");
                h.pwwn = wwn_plus("10:00:00:00:00:00:00:00", k * 64 + i + 1);
                if (kvol_config_ioc_add(h.pwwn) < 0) ++failures;
                kvol_config_speed(&h, k ? KVO_PORT_SPEED_8GBPS : KVO_PORT_SPEED_4GBPS);
                kvol_config_ad_set_name(k ? "KIDB" : "KIDA", std::to_string(i).c_str());
                if (kvol_config_sync(path()) != KVO_STATUS_OK) ++failures;
            }
            _exit(failures);
        }
    }
    close(go[0]);
    close(go[1]);  // both start together
    for (pid_t kid : kids) {
        int status = 0;
        ASSERT_EQ(waitpid(kid, &status, 0), kid);
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 0);
    }
    ASSERT_EQ(kvol_config_load(path()), KVO_STATUS_OK);
    kvol_config_unload();
    EXPECT_EQ(kvol_config_ioc_get_num(), 2 * kRounds);
    for (int k = 0; k < 2; ++k) {
        for (int i = 0; i < kRounds; ++i) {
            int idx = kvol_config_ioc_lookup(wwn_plus("10:00:00:00:00:00:00:00", k * 64 + i + 1));
            ASSERT_GE(idx, 0) << k << " " << i;
            EXPECT_EQ(ioc_config_data[idx].speed, k ? 8u : 4u);
        }
    }
    for (const char* serial : {"KIDA", "KIDB"}) {
        int a = kvol_config_ad_lookup(serial);
        ASSERT_GE(a, 0) << serial;
        EXPECT_EQ(std::string(ad_config_data[a].name), std::to_string(kRounds - 1));
    }
}

namespace {

// A child process that holds the file's lock until `hold` seconds have passed (or until
// killed); returns its pid once the lock is taken.
pid_t hold_lock_elsewhere(const char* path, int hold) {
    int ready[2];
    if (pipe(ready) != 0) return -1;
    pid_t pid = fork();
    if (pid == 0) {
        close(ready[0]);
        int fd = open(path, O_RDWR | O_CREAT, 0644);
        if (fd < 0 || flock(fd, LOCK_EX) != 0) _exit(1);
        if (write(ready[1], "x", 1) != 1) _exit(1);
        sleep(static_cast<unsigned>(hold));
        _exit(0);
    }
    close(ready[1]);
    char c;
    bool ok = read(ready[0], &c, 1) == 1;
    close(ready[0]);
    return ok ? pid : -1;
}

double seconds_since(std::chrono::steady_clock::time_point t0) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

}  // namespace

TEST_F(ConfigUpdateTest, LoadWaitsForALockHeldByAnotherProcess) {
    write_file("kvo0-port-speed = 16;\n");
    pid_t holder = hold_lock_elsewhere(path(), 2);
    ASSERT_GT(holder, 0);
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(kvol_config_load(path()), KVO_STATUS_OK);
    EXPECT_GE(seconds_since(t0), 1.0);
    EXPECT_EQ(ioc_config_data[0].speed, 16u);
    kvol_config_unload();
    waitpid(holder, nullptr, 0);
}

TEST_F(ConfigUpdateTest, LoadGivesUpAfterSixtyAttemptsOnABusyLock) {
    write_file("kvo0-port-speed = 16;\n");
    // Stands for the tables left by an earlier load.
    kvol_config_ioc_zero(0);
    kvol_config_set_data(KVOL_CFG_SPEED, 5, "2");
    pid_t holder = hold_lock_elsewhere(path(), 600);
    ASSERT_GT(holder, 0);
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(kvol_config_load(path()), KVO_STATUS_EFOPEN);
    double waited = seconds_since(t0);
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    EXPECT_GE(waited, 59.5);
    EXPECT_LT(waited, 90.0);
    EXPECT_EQ(ioc_config_data[5].speed, 2u);
    EXPECT_FALSE(ioc_config_data[0].flags[0] & KVOL_W0_SPEED);
    ASSERT_EQ(kvol_config_load(path()), KVO_STATUS_OK);  // no lock was left held
    EXPECT_EQ(ioc_config_data[0].speed, 16u);
}
