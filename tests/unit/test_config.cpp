// The configuration file's text helpers, parser and writer, on temporary files.
#include <algorithm>
#include <sstream>
#include <vector>

#include "test_config_util.h"

namespace {

// A small configuration using every section, written out by hand from the file's rules.
const std::string kFullText =
    "# Syntax for global parameter (applied to all HBA instances):\n"
    "#   param_name=param_value \n"
    "#   kvo<instance_number>-param_name=param_value \n"
    "# \n"
    "\n#\n# Persistent naming of adapter\n# \n"
    "adapter-SER0001-name = \"lab-a\";\n"
    "adapter-SER0002-name = \"lab b\";\n"
    "\n#\n# Trunking of adapter\n# \n"
    "adapter-SER0001-trunk = \"TRUE\";\n"
    "\n#\n# Persistent naming of port\n#\n"
    "kvo0-port-wwn = \"10:00:00:05:1e:aa:bb:01\";\n"
    "kvo0-port-name = \"port0\";\n"
    "kvo1-port-wwn = \"10:00:00:05:1e:aa:bb:02\";\n"
    "tqe0-port-mac = \"00:05:1e:12:34:56\";\n"
    "tqe0-port-name = \"eth0-lab\";\n"
    "\n#\n# Port configuration\n#\n"
    "kvo0-port-speed = 8;\n"
    "kvo0-port-topology = \"p2p\";\n"
    "kvo0-port-hardalpa = 0xef;\n"
    "kvo0-port-maxfrsize = 1024;\n"
    "kvo1-port-speed = 4;\n"
    "\n# trunking\n"
    "kvo0-port-trunk = 0, 1;\n"
    "\n# disable a port persistently\n"
    "kvo0-port-enable = \"FALSE\";\n"
    "kvo0-ipfc-enable = \"FALSE\";\n"
    "\n#\n# Driver log level\n# level: INFO, WARN, ERROR, CRITICAL\n#\n"
    "kvo0-log-level = \"Warning\";\n"
    "\n#\n# VF configuration\n#\n"
    "kvo0-vf-enable = \"TRUE\"\n"
    "kvo0-vf-default = 5;\n"
    "kvo0-vf-list = 1, 3;\n"
    "\n#\n# vport configuration\n#\n# vport-<id> = pwwn, nwwn,symname, roles [, vf_id]\n#\n"
    "kvo0-vport-0 = \"20:01:00:05:1e:aa:bb:01,20:00:00:05:1e:aa:bb:01,vp one,IM + IP,5\";\n"
    "kvo0-vport-1 = \"20:02:00:05:1e:aa:bb:01,20:00:00:05:1e:aa:bb:01,vp two,TM,0\";\n"
    "\n#\n# Target reset configuration\n#\n"
    "kvo0-trs-cfg = \"2;10:00:00:05:1e:aa:bb:01,50:06:01:60:3b:20:1c:11;"
    "10:00:00:05:1e:aa:bb:01,50:06:01:60:3b:20:1c:12;\";\n"
    "\n#\n# Authentication\n#\n"
    "kvo0-auth-policy = \"on\";\n"
    "kvo0-auth-algo = \"sha1\";\n"
    "kvo0-auth-group = 2;\n"
    "kvo0-auth-secretsource = \"RADIUS\";\n"
    "kvo0-auth-encrypt = \"1,2,-3\";\n"
    "\n#\n# Initiator mode configuration\n#\n"
    "kvo0-pathtov = 30;\n"
    "kvo0-persistent-binding = \"TRUE\";\n"
    "\n#\n# QoS, rate limiting configuration\n#\n"
    "qos = \"TRUE\";\n"
    "kvo0-ratelim = \"TRUE\";\n"
    "kvo0-ratelim-defspeed = 4;\n"
    "\n#\n# IOC intr configuration\n#\n"
    "kvo0-coalesce = \"off\";\n"
    "kvo1-delay = 200;\n"
    "kvo1-latency = 100;\n";

// The writer's output with no record at all: every section header of the full text and nothing
// else (no record line starts with '#' or is blank).
std::string empty_text() {
    std::string out, line;
    std::istringstream in(kFullText);
    while (std::getline(in, line))
        if (line.empty() || line[0] == '#') out += line + "\n";
    return out;
}

std::string long_text(size_t len, char c) { return std::string(len, c); }

}  // namespace

// ---- Text helpers
// -----------------------------------------------------------------------------------

TEST(ConfigText, TrimRemovesBlanksQuotesSemicolonsButNotCarriageReturns) {
    auto trim = [](const char* in) {
        char out[KVOL_CFG_LINE_MAX];
        kvol_config_filter_space(in, out);
        return std::string(out);
    };
    EXPECT_EQ(trim(" \t\"lab b\";\n"), "lab b");
    EXPECT_EQ(trim("\"\" ; \t\n"), " ");
    EXPECT_EQ(trim(""), " ");
    EXPECT_EQ(trim("TRUE\";\r\n"), "TRUE\";\r");
    char small[4];
    kvol_config_filter_space("abcdefgh", small, sizeof small);
    EXPECT_STREQ(small, "abc");
}

TEST(ConfigText, KeysAreBoundedAndNeedTheirDelimiter) {
    auto key = [](const char* pre, const char* post, const std::string& line) {
        char temp[KVOL_CFG_LINE_MAX], out[KVOL_CFG_KEY_MAX];
        kvol_config_get_key(pre, post, line.c_str(), temp, out);
        return std::string(out);
    };
    EXPECT_EQ(key("-", "=", "kvo3- port-speed =8"), "port-speed");
    EXPECT_EQ(key("", "=", "  log-level = x"), "log-level");
    EXPECT_EQ(key("-", "=", "kvo3-port-speed 8"), "");
    EXPECT_EQ(key("", "=", "= 8"), "");
    EXPECT_EQ(key("-", "-", "adapter-SER1-name = x"), "SER1");
    EXPECT_EQ(key("", "=", long_text(63, 'k') + " = 1"), long_text(63, 'k'));
    EXPECT_EQ(key("", "=", long_text(64, 'k') + " = 1"), "");
}

TEST(ConfigText, DataIsTheTrimmedTextAfterTheFirstEquals) {
    auto data = [](const char* line) {
        char temp[KVOL_CFG_LINE_MAX], value[KVOL_CFG_LINE_MAX];
        kvol_config_get_data("=", line, temp, value);
        return std::string(value);
    };
    EXPECT_EQ(data("kvo0-port-name = \"a=b\";"), "a=b");
    EXPECT_EQ(data("kvo0-port-name"), "");
    EXPECT_EQ(data("kvo0-port-name ="), " ");
}

TEST(ConfigText, NumbersAreTheTrailingDigits) {
    const std::pair<const char*, int> nums[] = {
        {"kvo12", 12}, {"-5", 5}, {"1x", 0}, {"", 0}, {"8\n", 8}, {"8\r", 0},
        {"2147483647", 2147483647}, {"99999999999999999999999", 2147483647},
        {"00000000000000000000007", 7}};
    for (const auto& [in, want] : nums) EXPECT_EQ(kvol_config_get_num(in), want) << in;
    EXPECT_EQ(kvol_config_get_num(nullptr), -1);
    // A non-hex character counts as digit 0.
    for (const auto& [in, want] : {std::pair<const char*, unsigned>{"0xef", 0xef}, {"EF", 0xef}, {"1g", 0x10}})
        EXPECT_EQ(kvol_xstrtoi(in), want) << in;
    EXPECT_EQ(kvol_xstrtoi("123456789abcdef") & 0xff, 0xefu);
}

TEST(ConfigText, WwnTextConvertsBothWays) {
    const char* text = "10:00:00:05:1e:aa:bb:01";
    EXPECT_EQ(kvol_wwn_convert(text), wwn_of(text));
    char buf[32];
    kvol_get_wwn(buf, sizeof buf, wwn_of(text));
    EXPECT_STREQ(buf, text);
    EXPECT_EQ(kvol_wwn_convert("10:0:5"), wwn_of("10:00:05:00:00:00:00:00"));
    EXPECT_EQ(kvol_wwn_convert(""), 0u);
    EXPECT_EQ(kvol_wwn_convert("1:2:3:4:5:6:7:8:9:10"), wwn_of("01:02:03:04:05:06:07:08"));
    kvol_get_mac(buf, sizeof buf, mac_of("00:05:1E:12:34:56"));
    EXPECT_STREQ(buf, "00:05:1e:12:34:56");
}

TEST(ConfigText, ListsBecomeBitmapsAndBack) {
    EXPECT_EQ(kvol_listtobmp("0, 3,35"), 0x9u);  // 35 wraps to bit 3
    EXPECT_EQ(kvol_listtobmp("31"), 0x80000000u);
    EXPECT_EQ(kvol_listtobmp(" "), 0x1u);  // an empty list reads as number 0

    auto list = [](uint32_t bmp) { return written_by([=](FILE* fp) { kvol_bmptolist(fp, bmp); }); };
    for (const auto& [bmp, text] : {std::pair<uint32_t, const char*>{0x9, "0, 3;\n"},
                                    {0x80000001u, "0, 31;\n"}, {0x4, "2;\n"}, {0, ""}})
        EXPECT_EQ(list(bmp), text) << bmp;
}

TEST(ConfigText, GetlineSplitsAt1023Characters) {
    std::string text = long_text(1500, 'x') + "\nshort\n";
    FILE* fp = fmemopen(text.data(), text.size(), "r");
    ASSERT_NE(fp, nullptr);
    char buf[KVOL_CFG_LINE_MAX];
    EXPECT_EQ(kvol_getline(fp, buf, sizeof buf), 1023);
    EXPECT_EQ(strlen(buf), 1023u);
    EXPECT_EQ(kvol_getline(fp, buf, sizeof buf), 478);
    EXPECT_EQ(buf[477], '\n');
    EXPECT_EQ(kvol_getline(fp, buf, sizeof buf), 6);
    EXPECT_STREQ(buf, "short\n");
    EXPECT_EQ(kvol_getline(fp, buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "");
    fclose(fp);
}

// ---- Parser
// --------------------------------------------------------------------------------------------

TEST_F(ConfigTest, InstanceLinesAcceptBlanksAndRefuseInstancesPast127) {
    load(
        "kvo3-port-speed = 8;\n"
        "   kvo4-port-speed=8\n"
        "kvo-port-speed = 2;\n"
        "kvo127-port-speed = 16;\n"
        "kvo128-port-speed = 4;\n"
        "kvo200-port-speed = 4;\n"
        "kvo99999999999999999999-port-speed = 4;\n"
        "kvo5-port-speed = 32");  // no newline at the end of the file
    for (const auto& [i, speed] : {std::pair{3, 8u}, {4, 8u}, {0, 2u}, {127, 16u}, {5, 32u}})
        EXPECT_EQ(ioc_config_data[i].speed, speed) << i;
    EXPECT_EQ(std::count_if(std::begin(ioc_config_data), std::end(ioc_config_data),
                            [](const auto& r) { return r.flags[0] & KVOL_W0_SPEED; }), 5);
}

TEST_F(ConfigTest, CommentsOnlyWhenHashIsTheFirstCharacter) {
    load(
        "#kvo1-port-speed = 8;\n"
        "  #kvo2-port-speed = 8;\n"
        "kvo3-port-speed\n"
        "kvo3-port-sped = 8;\n");
    EXPECT_FALSE(ioc_config_data[1].flags[0] & KVOL_W0_SPEED);
    EXPECT_EQ(ioc_config_data[2].speed, 8u);
    EXPECT_FALSE(ioc_config_data[3].flags[0]);
}

TEST_F(ConfigTest, LinesAreClassifiedAdapterFirstThenKvoThenTqe) {
    load(
        "kvo0-port-wwn = \"10:00:00:05:1e:aa:bb:01\";\n"
        "kvo0-port-name = \"my adapter\";\n"  // an adapter line, by its word
        "tqe1-port-name = \"kvo-link\";\n"    // a kvo line
        "tqe2-port-name = \"eth2\";\n"
        "tqe2-port-mtu = 9000;\n"
        "tqe2-port-speed = 8;\n");  // not an Ethernet key
    EXPECT_FALSE(ioc_config_data[0].flags[0] & KVOL_W0_NAME);
    EXPECT_EQ(kvol_config_ad_get_num(), 1);
    EXPECT_STREQ(ioc_config_data[1].name, "kvo-link");
    EXPECT_STREQ(ioc_config_data[2].ethname, "eth2");
    EXPECT_EQ(ioc_config_data[2].mtu, 9000);
    EXPECT_FALSE(ioc_config_data[2].flags[0] & (KVOL_W0_SPEED | KVOL_W0_NAME));
}

TEST_F(ConfigTest, ValueVocabularies) {
    load(
        "kvo0-port-enable = \"FALSE\";\n"
        "kvo1-port-enable = \"false\";\n"
        "kvo0-port-topology = \"loop\";\n"
        "kvo1-port-topology = \"p2p\";\n"
        "kvo2-port-topology = \"star\";\n"
        "kvo0-auth-policy = \"on\";\n"
        "kvo1-auth-policy = \"TRUE\";\n"
        "kvo0-auth-algo = \"sm\";\n"
        "kvo1-auth-algo = \"MD5\";\n"
        "kvo0-auth-secretsource = \"TACACS\";\n"
        "kvo1-auth-secretsource = \"local\";\n"
        "kvo0-coalesce = \"off\";\n"
        "kvo1-coalesce = \"FALSE\";\n"
        "kvo0-port-hardalpa = 0x1ef;\n"
        "kvo0-vf-list = 3, 17, 40;\n"
        "kvo0-port-trunk = 1,33;\n");
    const auto& a = ioc_config_data[0];
    const auto& b = ioc_config_data[1];
    EXPECT_TRUE(a.flags[0] & KVOL_W0_ENABLE);
    EXPECT_EQ(a.enable, 0u);
    EXPECT_EQ(a.topology, KVO_PORT_TOPOLOGY_LOOP);
    EXPECT_EQ(b.topology, KVO_PORT_TOPOLOGY_P2P);
    EXPECT_FALSE(ioc_config_data[2].flags[0] & KVOL_W0_TOPOLOGY);
    EXPECT_EQ(a.authpolicy, 1u);
    EXPECT_EQ(a.authalgo, KVO_AUTH_ALGO_SM);
    EXPECT_EQ(a.authssource, KVO_AUTH_SECRET_TACACS);
    // The second port's words are outside their keys' vocabularies: none is set.
    EXPECT_FALSE(b.flags[0] &
                 (KVOL_W0_ENABLE | KVOL_W0_AUTH_POLICY | KVOL_W0_AUTH_ALGO | KVOL_W0_AUTH_SSOURCE));
    EXPECT_TRUE(a.flags[1] & KVOL_W1_COALESCE);
    EXPECT_FALSE(b.flags[1] & KVOL_W1_COALESCE);
    EXPECT_EQ(a.alpa, 0xef);
    EXPECT_EQ(a.vf_list, (1u << 3) | (1u << 8));  // 17 -> bit 17 dropped, 40 -> bit 8
    EXPECT_EQ(a.trunking, 0x2u);                  // 33 -> bit 1
}

TEST_F(ConfigTest, UnknownLogLevelKeepsTheLevelButCountsAsSet) {
    load(
        "kvo0-log-level = \"Error\";\n"
        "kvo0-log-level = \"Verbose\";\n"
        "kvo1-log-level = \"None\";\n");
    EXPECT_EQ(ioc_config_data[0].log, 2);
    EXPECT_TRUE(ioc_config_data[0].flags[0] & KVOL_W0_LOG);
    EXPECT_EQ(ioc_config_data[1].log, 0);
    EXPECT_TRUE(ioc_config_data[1].flags[0] & KVOL_W0_LOG);
    EXPECT_TRUE(contains(sync(), "kvo0-log-level = \"Error\";\nkvo1-log-level = \"None\";\n"));
}

TEST_F(ConfigTest, CarriageReturnsStayInValues) {
    load(
        "kvo0-port-wwn = \"10:00:00:05:1e:aa:bb:01\";\r\n"
        "kvo0-port-enable = \"FALSE\";\r\n"
        "kvo0-port-speed = 8;\r\n"
        "kvo0-port-name = \"p0\";\r\n");
    const auto& r = ioc_config_data[0];
    EXPECT_FALSE(r.flags[0] & KVOL_W0_ENABLE);
    EXPECT_TRUE(r.flags[0] & KVOL_W0_SPEED);
    EXPECT_EQ(r.speed, 0u);
    EXPECT_STREQ(r.name, "p0\";\r");
    // The WWN's last byte reads as 01 followed by three non-hex characters: 0x01000.
    EXPECT_EQ(kvol_config_ioc_lookup(wwn_of("10:00:00:05:1e:aa:bb:01")), -1);
    EXPECT_EQ(kvol_config_ioc_lookup(wwn_of("10:00:00:05:1e:aa:bb:00")), 0);
}

TEST_F(ConfigTest, LongPhysicalLinesAreParsedAsSeveralLines) {
    std::string first = "kvo1-port-speed = 8;";
    first += long_text(1023 - first.size(), ' ');
    std::string name_line = "kvo2-port-name = \"" + long_text(1400, 'A') + "\";\n";
    load(first + "kvo3-port-speed = 4;\n" + name_line + "kvo4-port-speed = 2;\n");
    for (const auto& [i, speed] : {std::pair{1, 8u}, {3, 4u}, {4, 2u}})
        EXPECT_EQ(ioc_config_data[i].speed, speed) << i;
    EXPECT_EQ(std::string(ioc_config_data[2].name), long_text(127, 'A'));
    for (int i = 5; i < KVOL_CFG_MAX_IOC; ++i) EXPECT_EQ(ioc_config_data[i].flags[0], 0u) << i;
}

TEST_F(ConfigTest, ValueOfOnlyQuotesAndBlanksIsOneBlank) {
    load(
        "kvo0-port-name = \" \" \"\" ;\n"
        "adapter-S1-name = \"\";\n");
    EXPECT_STREQ(ioc_config_data[0].name, " ");
    EXPECT_STREQ(ad_config_data[0].name, " ");
    EXPECT_TRUE(has_all(sync(), {"kvo0-port-name = \" \";\n", "adapter-S1-name = \" \";\n"}));
}

TEST_F(ConfigTest, LongKeysAndTokensAreRefusedOrClipped) {
    std::string serial15 = "ABCDEFGHIJKLMNO";
    load("kvo0-port-speed" + long_text(60, 'x') + " = 8;\n" +    // key too long
         "kvo1-" + long_text(70, ' ') + "port-speed = 4;\n" +    // blanks trimmed
         "adapter-" + serial15 + "-name = \"wide\";\n" +         // id is 12 bytes
         "adapter-" + long_text(70, 'S') + "-name = \"x\";\n" +  // key refused
         "kvo2-vport-0 = \"" + long_text(40, '2') + "," + long_text(40, '3') + "," +
         long_text(200, 'n') + "," + long_text(30, 'r') + ",7\";\n");
    EXPECT_EQ(ioc_config_data[0].flags[0], 0u);
    EXPECT_EQ(ioc_config_data[1].speed, 4u);
    EXPECT_EQ(std::string(ad_config_data[0].id, 12), serial15.substr(0, 12));
    EXPECT_STREQ(ad_config_data[0].name, "wide");
    EXPECT_FALSE(ad_config_data[1].flags[0] & KVOL_AD_NAME);
    const kvol_vf_config_t* v = ioc_config_data[2].vport;
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(vport_text(v), long_text(31, '2') + "," + long_text(31, '3') + "," +
                                 long_text(127, 'n') + "," + long_text(15, 'r') + ",7");
    EXPECT_TRUE(contains(sync(), "adapter-ABCDEFGHIJKL-name = \"wide\";\n"));
}

TEST_F(ConfigTest, AdapterLinesEachTakeARecordEvenForOneSerial) {
    load(
        "adapter-S1-name = \"a\";\n"
        "adapter-S1-trunk = \"TRUE\";\n"
        "adapter-S1-trunk = \"FALSE\";\n"
        "adapter-AB-CD-name = \"cut\";\n"
        "adapter-S2-name\n"
        "adapter-S3-power = on;\n");
    EXPECT_EQ(kvol_config_ad_get_num(), 6);
    EXPECT_EQ(kvol_config_ad_lookup("S1"), 0);
    EXPECT_STREQ(ad_config_data[3].id, "AB");
    EXPECT_STREQ(ad_config_data[3].name, "cut");
    EXPECT_STREQ(ad_config_data[4].id, "S2");
    EXPECT_EQ(ad_config_data[4].flags[0], KVOL_AD_INUSE);
    EXPECT_EQ(ad_config_data[5].flags[0], KVOL_AD_INUSE);

    kvol_config_ad_set_name("S1", "renamed");
    EXPECT_TRUE(has_all(sync(), {"# \nadapter-S1-name = \"renamed\";\nadapter-AB-name = \"cut\";\n\n",
                                 "# \nadapter-S1-trunk = \"TRUE\";\nadapter-S1-trunk = \"FALSE\";\n\n"}));
}

TEST_F(ConfigTest, AdapterKeyWordsAreLookedForAfterTheSerial) {
    // The key carries the serial: a serial containing "name" or "trunk" changes nothing.
    load("adapter-name7-trunk = \"TRUE\";\nadapter-trunk8-name = \"lab\";\n");
    EXPECT_EQ(ad_config_data[0].flags[0], KVOL_AD_INUSE | KVOL_AD_TRUNK);
    EXPECT_EQ(ad_config_data[0].ad_trunk, 1);
    EXPECT_EQ(ad_config_data[1].flags[0], KVOL_AD_INUSE | KVOL_AD_NAME);
    EXPECT_STREQ(ad_config_data[1].name, "lab");
}

TEST_F(ConfigTest, MoreThan128AdapterLinesAreDropped) {
    std::string text;
    for (int i = 0; i < 200; ++i) text += "adapter-SN" + std::to_string(i) + "-name = \"n\";\n";
    text += "kvo0-port-speed = 8;\n";
    load(text);
    EXPECT_EQ(kvol_config_ad_get_num(), KVOL_CFG_MAX_AD);
    EXPECT_EQ(kvol_config_ad_lookup("SN127"), 127);
    EXPECT_EQ(kvol_config_ad_lookup("SN128"), -1);
    EXPECT_EQ(kvol_config_ad_add("NEW"), -1);
    EXPECT_EQ(ioc_config_data[0].speed, 8u);
    std::string out = sync();
    EXPECT_TRUE(contains(out, "adapter-SN127-name") && !contains(out, "adapter-SN128-name"));
}

TEST_F(ConfigTest, GlobalLinesApplyToTheRecordsRegisteredSoFar) {
    load(
        "port-speed = 4;\n"
        "kvo0-port-wwn = \"10:00:00:00:00:00:00:01\";\n"
        "kvo1-port-wwn = \"10:00:00:00:00:00:00:02\";\n"
        "kvo5-port-wwn = \"10:00:00:00:00:00:00:03\";\n"
        "log-level = \"Info\";\n"
        "num-ios = 512;\n"
        "power = on;\n"
        "port-hardalpa = 0x10;\n");
    EXPECT_TRUE(config_all[0] & KVOL_W0_SPEED);
    EXPECT_FALSE(ioc_config_data[0].flags[0] & KVOL_W0_SPEED);
    // Three records with a WWN: the global line reaches indices 0-2, not the records 0, 1, 5.
    EXPECT_EQ(ioc_config_data[2].log, 4);
    EXPECT_EQ(ioc_config_data[5].log, 0);
    EXPECT_EQ(num_ios, 512);
    EXPECT_TRUE(config_all[0] & KVOL_AD_POWER);
    EXPECT_FALSE(ioc_config_data[0].flags[0] & KVOL_W0_ALPA);  // no global form

    std::string out = sync();
    EXPECT_TRUE(has_all(out, {"#\nport-speed = 0;\n\n# trunking", "#\nlog-level = \"Info\";\n\n#\n# VF"}));
    EXPECT_TRUE(has_none(out, {"kvo0-log-level", "num-ios", "power"}));
    num_ios = 0;
}

TEST_F(ConfigTest, TargetResetCountIsClippedToTheListAndThePairsPresent) {
    std::string pairs;
    for (int i = 0; i < 18; ++i) {
        char p[64];
        snprintf(p, sizeof p, "10:00:00:00:00:00:00:%02x,20:00:00:00:00:00:00:%02x;", i, i);
        pairs += p;
    }
    load("kvo0-trs-cfg = \"20;" + pairs + "\";\n" +
         "kvo1-trs-cfg = \"5;10:00:00:00:00:00:00:01,20:00:00:00:00:00:00:01;"
         "10:00:00:00:00:00:00:02,20:00:00:00:00:00:00:02;\";\n" +
         "kvo2-trs-cfg = \"2;10:00:00:00:00:00:00:01,garbage;\";\n" + "kvo3-trs-cfg = \"\";\n" +
         // Malformed pairs are left out one by one; the well-formed one after them stays.
         "kvo4-trs-cfg = \"3;10:00:00:00:00:00:00:01,garbage;zz,20:00:00:00:00:00:00:02;"
         "10:00:00:00:00:00:00:03,20:00:00:00:00:00:00:03;\";\n");
    EXPECT_EQ(ioc_config_data[0].trs_count, 16);
    EXPECT_EQ(ioc_config_data[0].trs_list[15].rpwwn, wwn_of("20:00:00:00:00:00:00:0f"));
    EXPECT_EQ(ioc_config_data[1].trs_count, 2);
    EXPECT_EQ(ioc_config_data[1].trs_list[1].lpwwn, wwn_of("10:00:00:00:00:00:00:02"));
    EXPECT_EQ(ioc_config_data[2].trs_count, 0);
    EXPECT_TRUE(ioc_config_data[3].flags[1] & KVOL_W1_TRS);
    EXPECT_TRUE(has_all(sync(), {"kvo0-trs-cfg = \"16;10:00:00:00:00:00:00:00,",
                                 "kvo2-trs-cfg = \"0;\";\nkvo3-trs-cfg = \"0;\";\n",
                                 "kvo4-trs-cfg = \"1;10:00:00:00:00:00:00:03,20:00:00:00:00:00:00:03;\";\n"}));
}

TEST_F(ConfigTest, VportLinesAddOrReplaceByPortWwn) {
    load(
        "kvo1-vport-0 = \"20:01:00:00:00:00:00:01,20:00:00:00:00:00:00:01,one,IM,0\";\n"
        "kvo1-vport-1 = \"20:01:00:00:00:00:00:02,20:00:00:00:00:00:00:01,two,TM,3\";\n"
        "kvo1-vport-9 = \"20:01:00:00:00:00:00:01,20:00:00:00:00:00:00:09,  uno  ,IP\";\n"
        "kvo2-vport-0 = \"\";\n"
        "kvo3-vport-0 = \" ,20:00:00:00:00:00:00:03,no pwwn,TM,4\";\n");
    const auto& r = ioc_config_data[1];
    EXPECT_EQ(r.vpcount, 2);
    ASSERT_NE(r.vport, nullptr);
    // A token that is absent keeps its value (vf_id 0).
    EXPECT_EQ(vport_text(r.vport), "20:01:00:00:00:00:00:01,20:00:00:00:00:00:00:09,uno,IP,0");
    ASSERT_NE(r.vport->next, nullptr);
    EXPECT_STREQ(r.vport->next->name.symname, "two");
    EXPECT_TRUE(ioc_config_data[2].flags[0] & KVOL_W0_VPORT);
    EXPECT_EQ(ioc_config_data[2].vport, nullptr);  // no field at all: no vport
    // A blank first field is still a vport: the fields after it keep their places.
    const kvol_vf_config_t* blank = ioc_config_data[3].vport;
    ASSERT_NE(blank, nullptr);
    EXPECT_EQ(ioc_config_data[3].vpcount, 1);
    EXPECT_EQ(vport_text(blank), ",20:00:00:00:00:00:00:03,no pwwn,TM,4");
    EXPECT_TRUE(
        contains(sync(),
                 "#\n"
                 "kvo1-vport-0 = \"20:01:00:00:00:00:00:01,20:00:00:00:00:00:00:09,uno,IP,0\";\n"
                 "kvo1-vport-1 = \"20:01:00:00:00:00:00:02,20:00:00:00:00:00:00:01,two,TM,3\";\n"
                 "kvo3-vport-0 = \",20:00:00:00:00:00:00:03,no pwwn,TM,4\";\n"
                 "\n"));
}

TEST_F(ConfigTest, UpperCaseMacIsNeverMatched) {
    load(
        "tqe0-port-mac = \"00:05:1E:12:34:56\";\n"
        "tqe1-port-mac = \"00:05:1e:12:34:57\";\n");
    EXPECT_EQ(kvol_config_ethioc_lookup(mac_of("00:05:1e:12:34:56")), -1);
    EXPECT_EQ(kvol_config_ethioc_lookup(mac_of("00:05:1E:12:34:57")), 1);
    EXPECT_EQ(kvol_config_ethioc_add(mac_of("00:05:1e:12:34:56")), 2);
}

// ---- Writer
// ------------------------------------------------------------------------------------------------

TEST_F(ConfigTest, EmptyTablesWriteOnlyTheSectionHeaders) {
    load("");
    EXPECT_EQ(sync(), empty_text());
}

TEST_F(ConfigTest, AFileWrittenByTheProgramReadsBackToTheSameTables) {
    load(kFullText);
    EXPECT_EQ(sync(), kFullText);
    ASSERT_EQ(kvol_config_load(path()), KVO_STATUS_OK);
    EXPECT_EQ(sync(), kFullText);
    ASSERT_EQ(kvol_config_load(path()), KVO_STATUS_OK);

    // Spot checks that the text really went into the fields.
    EXPECT_EQ(ioc_config_data[0].alpa, 0xef);
    EXPECT_EQ(ioc_config_data[0].trs_count, 2);
    EXPECT_EQ(ioc_config_data[0].vpcount, 2);
    EXPECT_EQ(ioc_config_data[1].qos, 1u);
    EXPECT_EQ(ioc_config_data[1].delay, 200);
    EXPECT_STREQ(ioc_config_data[0].authsstring, "1,2,-3");
    EXPECT_EQ(kvol_config_ad_get_num(), 3);  // the trunk line is a record of its own
}

// Read and written once, a file is written the same way again; a port's own setting under a
// global line, or past its reach, stays with the port.
TEST_F(ConfigTest, WhatIsWrittenReadsBackTheSame) {
    const std::string wwn0 = "kvo0-port-wwn = \"10:00:00:00:00:00:00:01\";\n";
    const std::string wwn1 = "kvo1-port-wwn = \"10:00:00:00:00:00:00:02\";\n";
    struct Case {
        const char* what;
        std::string text;
        std::vector<std::string> written, not_written;
    } cases[] = {
        {"a vport without a name", "kvo0-vport-0 = \"20:02:00:05:1e:aa:bb:01\";\n",
         {"kvo0-vport-0 = \"20:02:00:05:1e:aa:bb:01,, ,,0\";\n"}, {}},
        {"a port WWN cut at a blank", "kvo0-port-wwn = \"" + long_text(30, 'w') + " x\";\n",
         {"kvo0-port-wwn = \"" + long_text(30, 'w') + "\";\n"}, {}},
        {"an adapter name cut at a blank", "adapter-SN1-name = \"" + long_text(126, 'n') + " x\";\n",
         {"adapter-SN1-name = \"" + long_text(126, 'n') + "\";\n"}, {}},
        {"a serial cut at a blank", "adapter-SERIAL12345 X-name = \"n\";\n",
         {"adapter-SERIAL12345-name = \"n\";\n"}, {}},
        {"a serial holding a key word", "adapter-name7-trunk = \"TRUE\";\n",
         {"adapter-name7-trunk = \"TRUE\";\n"}, {"adapter-name7-name"}},
        {"a serial holding \"=\"", "adapter-a=b-name = \"x\";\n", {}, {"adapter-a"}},
        {"a port line under a global line", wwn0 + wwn1 + "port-speed = 16;\nkvo1-port-speed = 4;\n",
         {"kvo0-port-speed = 16;\n", "kvo1-port-speed = 4;\n"}, {"\nport-speed"}},
        {"a port past a global line's reach", wwn0 + "kvo1-delay = 200;\ndelay = 6;\n",
         {"kvo0-delay = 6;\n", "kvo1-delay = 200;\n"}, {"\ndelay"}},
        {"an unknown log level leaving the ports unlike",
         "kvo0-log-level = \"Warning\";\n" + wwn0 + wwn1 + "log-level = \"Verbose\";\n",
         {"kvo0-log-level = \"Warning\";\n", "kvo1-log-level = \"None\";\n"}, {"\nlog-level"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        memset(config_all, 0, sizeof config_all);
        load(c.text);
        const std::string once = sync();
        for (const std::string& line : c.written) EXPECT_TRUE(contains(once, line)) << line;
        for (const std::string& part : c.not_written) EXPECT_FALSE(contains(once, part)) << part;
        ASSERT_EQ(kvol_config_load(path()), KVO_STATUS_OK);
        EXPECT_EQ(sync(), once);
    }
}

TEST_F(ConfigTest, GlobalFormsOfEverySection) {
    load(
        "kvo0-port-wwn = \"10:00:00:00:00:00:00:01\";\n"
        "port-speed = 16;\nport-topology = \"loop\";\nport-maxfrsize = 2048;\n"
        "port-trunk = 0, 2;\nport-enable = \"FALSE\";\nipfc-enable = \"TRUE\";\n"
        "log-level = \"Critical\";\nvf-enable = \"FALSE\"\nvf-default = 3;\nvf-list = 4;\n"
        "auth-policy = \"off\";\nauth-algo = \"ms\";\nauth-group = 256;\n"
        "auth-secretsource = \"LOCAL\";\nauth-encrypt = \"9,8\";\npathtov = 10;\n"
        "persistent-binding = \"FALSE\";\nqdepth = 32;\nqos = \"FALSE\";\nratelim = \"TRUE\";\n"
        "ratelim-defspeed = 2;\ncoalesce = \"on\";\ndelay = 7;\nlatency = 9;\n");
    // The empty file with each section's records after its header.
    const std::pair<const char*, const char*> records[] = {
        {"# Persistent naming of port\n#\n", "kvo0-port-wwn = \"10:00:00:00:00:00:00:01\";\n"},
        {"# Port configuration\n#\n",
         "port-speed = 16;\nport-topology = \"loop\";\nport-maxfrsize = 2048;\n"},
        {"# trunking\n", "port-trunk = 0, 2;\n"},
        {"# disable a port persistently\n", "port-enable = \"FALSE\";\nipfc-enable = \"TRUE\";\n"},
        {"CRITICAL\n#\n", "log-level = \"Critical\";\n"},
        {"# VF configuration\n#\n", "vf-enable = \"FALSE\"\nvf-default = 3;\nvf-list = 4;\n"},
        {"# Authentication\n#\n",
         "auth-policy = \"off\";\nauth-algo = \"ms\";\nauth-group = 256;\n"
         "auth-secretsource = \"LOCAL\";\nauth-encrypt = \"9,8\";\n"},
        {"# Initiator mode configuration\n#\n", "pathtov = 10;\npersistent-binding = \"FALSE\";\n"},
        {"# QoS, rate limiting configuration\n#\n",
         "qos = \"FALSE\";\nratelim = \"TRUE\";\nratelim-defspeed = 2;\n"},
        {"# IOC intr configuration\n#\n", "coalesce = \"on\";\ndelay = 7;\nlatency = 9;\n"},
    };
    std::string expected = empty_text();
    for (const auto& [header, lines] : records) {
        size_t at = expected.find(header);
        ASSERT_NE(at, std::string::npos) << header;
        expected.insert(at + strlen(header), lines);
    }
    EXPECT_EQ(sync(), expected);
}

TEST_F(ConfigTest, WriterEdgeValues) {
    load("");
    ASSERT_EQ(kvol_config_ioc_add(wwn_of("10:00:00:00:00:00:00:01")), 0);
    kvol_t h = fc_ioc("10:00:00:00:00:00:00:01");
    kvol_config_trunk(&h, 1, 0);
    kvol_config_topology(&h, static_cast<kvo_port_topology_t>(9));
    kvol_config_log_level(&h, 42);
    kvol_config_auth_algo(&h, static_cast<kvo_auth_algo_t>(77));
    EXPECT_TRUE(has_all(sync(), {"\n# trunking\nkvo0-port-trunk = \n# disable",
                                 "kvo0-port-topology = \"none\";\n", "kvo0-log-level = \"None\";\n",
                                 "kvo0-auth-algo = \" \";\n"}));
}

TEST_F(ConfigTest, ParseIsSafeOnLinesLongerThanTheLoaderPasses) {
    load("");
    std::string huge = std::string(3000, 'k') + "kvo1-port-speed = 8;";
    kvol_config_parse(huge.c_str());
    std::string value = "kvo1-port-name = \"" + std::string(5000, 'v') + "\";";
    kvol_config_parse(value.c_str());
    EXPECT_FALSE(ioc_config_data[1].flags[0] & KVOL_W0_SPEED);
    EXPECT_EQ(std::string(ioc_config_data[1].name), std::string(127, 'v'));
}
