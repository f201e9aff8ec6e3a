// Value parsers and printers of the front end, and the parts of identifier parsing that need
// no adapter (no scan has run in this process, so the adapter count is 0).
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "qmxwrapper.h"
#include "unit_util.h"

namespace {

std::vector<uint8_t> bytes_of(uint64_t v) {
    std::vector<uint8_t> b(8);
    memcpy(b.data(), &v, 8);
    return b;
}

using unit::stdout_of;

template <typename R>
void check_words(R (*parse)(const char*), const char* what,
                 std::initializer_list<std::pair<const char*, R>> rows) {
    for (const auto& [word, want] : rows)
        EXPECT_EQ(parse(word), want) << what << " \"" << word << '"';
}

// ---- WWN -----------------------------------------------------------------------------------

TEST(PortWwn, EightPairsInWrittenOrder) {
    wwn_t w = 0;
    ASSERT_EQ(qmx_get_port_wwn("10:00:00:12:34:56:78:9a", &w), 1);
    EXPECT_EQ(bytes_of(w), (std::vector<uint8_t>{0x10, 0x00, 0x00, 0x12, 0x34, 0x56, 0x78, 0x9a}));
    wwn_t upper = 0;
    ASSERT_EQ(qmx_get_port_wwn("10:00:00:12:34:56:78:9A", &upper), 1);
    EXPECT_EQ(upper, w);
    char buf[24];
    EXPECT_STREQ(qmx_wwn2str(buf, w), "10:00:00:12:34:56:78:9a");
    EXPECT_EQ(stdout_of([&] { qmx_print_pwwn(w); }), "10:00:00:12:34:56:78:9a");
}

TEST(PortWwn, RefusedShapesLeaveTheOutputAlone) {
    const char* refused[] = {
        "10:0:00:12:34:56:78:9a",    // 22 characters
        "10-00-00-12-34-56-78-9a",   // wrong separator
        "10:00:00:12:34:56:78:9a0",  // 24 characters
        "100:0:00:12:34:56:78:9a",   // 23 characters, a piece of three
        "10:00:00:12:34:56:78::a",   // 23 characters, eight ":"
        "10:00:00:12:34:56:78:9g",   // not hexadecimal
        "10:00:00:12:34:56:78 9a",   // blank
        "",
    };
    for (const char* word : refused) {
        wwn_t w = 0x1122334455667788ULL;
        EXPECT_EQ(qmx_get_port_wwn(word, &w), 0) << word;
        EXPECT_EQ(w, 0x1122334455667788ULL) << word;
    }
    wwn_t w = 0;
    EXPECT_EQ(qmx_get_port_wwn(nullptr, &w), 0);
}

TEST(VfidLpwwn, PairsOfDashLAndWwn) {
    // Reads the words after "qmx vport --create 1/0".
    auto run = [](std::vector<std::string> tail, wwn_t* w) {
        std::vector<std::string> words = {"qmx", "vport", "--create", "1/0"};
        words.insert(words.end(), tail.begin(), tail.end());
        std::vector<char*> argv;
        for (auto& s : words) argv.push_back(s.data());
        return qmx_fill_vfid_lpwwn(argv.data(), static_cast<int>(argv.size()), 4, nullptr, w);
    };
    const std::string w1 = "20:00:00:00:00:00:00:01", w2 = "20:00:00:00:00:00:00:02";
    wwn_t w = 0;
    ASSERT_EQ(run({"-l", w1, "-l", w2}, &w), 0);
    EXPECT_EQ(bytes_of(w).back(), 0x02);  // the last pair wins
    w = 7;
    EXPECT_EQ(run({}, &w), 0);  // nothing to read
    EXPECT_EQ(w, 7u);
    EXPECT_EQ(run({"-l", w1, "-l"}, &w), E_CLI_INCORRECT_CMD);  // trailing "-l" without value
    EXPECT_EQ(run({"-l", w1, "-x", w2}, &w), E_CLI_INCORRECT_CMD);
    EXPECT_EQ(run({"-l", w1, "-l", "20:00:00:00:00:00:00"}, &w), E_CLI_BAD_WWN);
}

// ---- MAC -----------------------------------------------------------------------------------

TEST(MacNumber, SixPairsAndNeverMoreThanSixBytes) {
    char word[] = "00:12:34:56:78:9a";
    uint8_t mac[6] = {};
    ASSERT_EQ(qmx_get_mac_number(word, mac), 1);
    EXPECT_EQ(std::vector<uint8_t>(mac, mac + 6),
              (std::vector<uint8_t>{0x00, 0x12, 0x34, 0x56, 0x78, 0x9a}));
    EXPECT_EQ(stdout_of([&] { qmx_print_mac(mac); }), "00:12:34:56:78:9a");
    char upper[] = "AB:CD:EF:01:02:03";
    ASSERT_EQ(qmx_get_mac_number(upper, mac), 1);
    EXPECT_EQ(mac[0], 0xab);
    EXPECT_EQ(mac[2], 0xef);
    // Nine one-digit pieces (17 characters) write only six bytes.
    char nine[] = "1:2:3:4:5:6:7:8:9";
    uint8_t buf[9];
    memset(buf, 0xEE, sizeof buf);
    ASSERT_EQ(qmx_get_mac_number(nine, buf), 1);
    EXPECT_EQ(std::vector<uint8_t>(buf, buf + 9),
              (std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 0xEE, 0xEE, 0xEE}));
}

TEST(MacNumber, RefusedShapes) {
    const char* refused[] = {
        "00:12:34:56:78",      // 14 characters
        "00:12:34:56:78:9a:",  // 18 characters
        "001:2:34:56:78:9a",   // 17 characters, a piece of three
        "00-12-34-56-78-9a",   // wrong separator
        "00:12:34:56:78:9g",   // not hexadecimal
        "",
    };
    for (const char* r : refused) {
        std::string word = r;
        uint8_t mac[6] = {9, 9, 9, 9, 9, 9};
        EXPECT_EQ(qmx_get_mac_number(word.data(), mac), 0) << r;
        EXPECT_EQ(mac[0], 9) << r;
    }
    uint8_t mac[6];
    EXPECT_EQ(qmx_get_mac_number(nullptr, mac), 0);
}

// ---- Speed, topology, VLAN -----------------------------------------------------------------

// Each word is taken exactly as written; a refused word leaves the value alone.
TEST(SpeedAndTopology, ExactWordsOnly) {
    using Parser = int (*)(const char*, uint32_t*);
    const struct {
        Parser parse;
        const char* word;
        int value;  // -1: refused
    } rows[] = {
        {qmx_set_speed, "1", 1},       {qmx_set_speed, "2", 2},      {qmx_set_speed, "4", 4},
        {qmx_set_speed, "8", 8},       {qmx_set_speed, "16", 16},    {qmx_set_speed, "10", 10},
        {qmx_set_speed, "auto", 15},   {qmx_set_speed, "32", -1},    {qmx_set_speed, "Auto", -1},
        {qmx_set_speed, "1G", -1},     {qmx_set_speed, "", -1},      {qmx_set_speed, "01", -1},
        {qmx_set_speed, "auto ", -1},  {qmx_set_speed, "3", -1},
        {qmx_set_topology, "p2p", 5},  {qmx_set_topology, "loop", 2}, {qmx_set_topology, "", -1},
        {qmx_set_topology, "auto", -1}, {qmx_set_topology, "P2P", -1},
        {qmx_set_topology, "Loop", -1}, {qmx_set_topology, "p2p2", -1},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(std::string(r.parse == qmx_set_speed ? "speed " : "topology ") + r.word);
        uint32_t v = 99;
        EXPECT_EQ(r.parse(r.word, &v), r.value >= 0 ? 1 : 0);
        EXPECT_EQ(v, r.value >= 0 ? static_cast<uint32_t>(r.value) : 99u);
    }
}

// ---- Names, patterns, numbers, LUN words ---------------------------------------------------

// Each parser against its accepted and refused words: exact values, boundaries, no wrap.
TEST(WordParsers, ValuesAtTheBoundariesAndRefusals) {
    check_words<int16_t>(qmx_parse_vlan_id, "vlan",
                         {{"0", 0}, {"4094", 4094}, {"004094", 4094}, {"4095", -1}, {"-1", -1},
                          {"12a", -1}, {" 12", -1}, {"65536", -1}, {"", 0},
                          {"99999999999999999999999", -1}});  // no wrap into range
    check_words<int>(qmx_verify_name, "name",
                     {{"port-name_01", 1}, {"a", 1}, {"abcdefghijklmno", 1},  // 15 characters
                      {"abcdefghijklmnop", 0},                                 // 16
                      {"1port", 0}, {"my name", 0}, {"_port", 0}, {"port.1", 0}, {"", 0}});
    check_words<int>(qmx_verify_pattern, "pattern",
                     {{"deadBEEF", 1}, {"0", 1}, {"123456789", 0}, {"", 0}, {"0x12", 0}});
    check_words<int>(qmx_verify_num, "num", {{"0123", 1}, {"", 0}, {"12a", 0}, {"-1", 0}});
    check_words<int>(qmx_verify_lun, "lun",
                     {{"0001-0000-0000-0000", 1}, {"-", 1}, {"", 0}, {"0001_0000", 0}, {"g", 0}});
    check_words<uint64_t>(qmx_str2longlong, "decimal",
                          {{"12345", 12345}, {"", 0}, {"18446744073709551615", UINT64_MAX},
                           {"18446744073709551616", 0}});  // wraps, never traps
    check_words<uint64_t>(qmx_str2lun, "lun number", {{"255", 255}});
}

TEST(Verifiers, HexDigitBoundaries) {
    for (int c : {'0', '9', 'a', 'f', 'A', 'F'}) EXPECT_EQ(ishex(c), 1) << char(c);
    for (int c : std::initializer_list<int>{'/', ':', '@', 'G', '`', 'g', ' ', 0, -1, 0x161}) {
        EXPECT_EQ(ishex(c), 0) << c;  // 0x161 is 'a' plus 256: no sign or width slip
    }
}

TEST(Lun, StringToBytesAndBack) {
    uint8_t lun[8];
    qmx_convert_string_to_lun("0001000000000000", lun);
    EXPECT_EQ(std::vector<uint8_t>(lun, lun + 8), (std::vector<uint8_t>{0, 1, 0, 0, 0, 0, 0, 0}));
    qmx_convert_string_to_lun("A0b1c2d3e4f50617", lun);
    EXPECT_EQ(std::vector<uint8_t>(lun, lun + 8),
              (std::vector<uint8_t>{0xa0, 0xb1, 0xc2, 0xd3, 0xe4, 0xf5, 0x06, 0x17}));
    lun_t l;
    memcpy(&l, lun, 8);
    EXPECT_EQ(stdout_of([&] { qmx_print_lun(l); }), "a0b1-c2d3-e4f5-0617");

    uint8_t untouched[8] = {5, 5, 5, 5, 5, 5, 5, 5};
    qmx_convert_string_to_lun(nullptr, untouched);
    EXPECT_EQ(untouched[0], 5);
    qmx_convert_string_to_lun("0001", nullptr);  // no crash

    const uint8_t one[8] = {0, 1, 0, 0, 0, 0, 0, 0};
    memcpy(&l, one, 8);
    char buf[20];
    qmx_convert_lun_to_string(l, buf, sizeof buf);
    EXPECT_STREQ(buf, "0001-0000-0000-0000");
    char small[8];
    memset(small, 'x', sizeof small);
    qmx_convert_lun_to_string(l, small, 5);
    EXPECT_STREQ(small, "0001");
    EXPECT_EQ(small[5], 'x');  // nothing beyond the size
    qmx_convert_lun_to_string(l, nullptr, 20);
}

// ---- Printers ------------------------------------------------------------------------------

TEST(Printers, HeaderLine) {
    EXPECT_EQ(stdout_of([] { qmx_print_header_line(0); }), "\n");
    EXPECT_EQ(stdout_of([] { qmx_print_header_line(3); }), "---\n");
    EXPECT_EQ(stdout_of([] { qmx_print_header_line(255); }), std::string(255, '-') + "\n");
}

TEST(Printers, Duration) {
    const std::pair<uint32_t, const char*> rows[] = {
        {0, "00:00:00"},          {59, "00:00:59"},          {3661, "01:01:01"},
        {86399, "23:59:59"},      {86400, "1 days, 00:00:00"}, {90061, "1 days, 01:01:01"},
        {UINT32_MAX, "49710 days, 06:28:15"},
    };
    for (const auto& [s, want] : rows)
        EXPECT_EQ(stdout_of([s = s] { qmx_print_duration(s); }), want) << s;
}

// ---- Files and argument copies -------------------------------------------------------------

TEST(Files, TestFileExists) {
    char path[] = "/tmp/qmx_wrapper_XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    EXPECT_EQ(qmx_test_file_exists(path), 1);
    unlink(path);
    EXPECT_EQ(qmx_test_file_exists(path), 0);
    EXPECT_EQ(qmx_test_file_exists(nullptr), 0);
}

TEST(Args, CopiesWordsFromIndexFour) {
    std::vector<std::string> words = {"qmx", "boot", "--update", "1", "a", "bb", "ccc"};
    std::vector<char*> argv;
    for (auto& s : words) argv.push_back(s.data());
    char** copy = nullptr;
    ASSERT_EQ(create_args(argv.data(), &copy, 3), 0);
    words[4][0] = 'z';  // the copies are independent
    EXPECT_STREQ(copy[0], "a");
    EXPECT_STREQ(copy[1], "bb");
    EXPECT_STREQ(copy[2], "ccc");
    qmx_free_args(copy, 3);
    EXPECT_EQ(create_args(argv.data(), &copy, 0), 0);
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(create_args(argv.data(), &copy, -1), E_CLI_INCORRECT_ARG);
}

// ---- Identifier words that fail before any adapter is consulted ----------------------------

TEST(AdapterPortWord, ShapesThatAreNotNumeric) {
    for (const char* r : {"1/0/1/2", "1a/0", "1/", "/", "", "1", "1//", "1/0/", "1-0", "1/ 0"}) {
        std::string word = r;
        qmx_pcifn_t p;
        EXPECT_EQ(qmx_get_adapter_port_id(word.data(), &p, 0), 0) << r;
    }
}

// With no adapter, numbers that are out of range leave the invalid markers and still parse.
TEST(AdapterPortWord, OutOfRangeNumbersStillParse) {
    std::string word = "1/0/2";
    qmx_pcifn_t p;
    ASSERT_EQ(qmx_get_adapter_port_id(word.data(), &p, 0), 1);
    EXPECT_EQ(p.adapter, 0);
    EXPECT_EQ(p.port, -1);
    EXPECT_EQ(p.pcifn_id, 2);
    word = "99999999999999/0";
    ASSERT_EQ(qmx_get_adapter_port_id(word.data(), &p, 1), 1);
    EXPECT_EQ(p.adapter, 0);
    EXPECT_EQ(p.pcifn_id, -1);
}

TEST(AdapterWord, DigitsMustBeAllDigits) {
    // "1" is all digits, but no adapter was scanned.
    for (const char* w : {"12abc", "0", "1", ""}) EXPECT_EQ(qmx_get_adapter_id(w), nullptr) << w;
    EXPECT_EQ(qmx_get_adapter_by_id(0), nullptr);
    EXPECT_EQ(qmx_get_adapter_by_id(-1), nullptr);
    EXPECT_EQ(qmx_get_ioc_by_adapter_id(1), nullptr);
}

TEST(PortWord, EmptyAndWwnOnEthernet) {
    qmx_id_t id{};
    port_id_type_t form = e_id_name;
    EXPECT_EQ(qmx_get_port_id_any("", QMX_SIDE_FC, &id, &form), E_CLI_INCORRECT_PORT_ID);
    EXPECT_EQ(form, e_id_unknown);
    EXPECT_EQ(qmx_get_port_id_any("10:00:00:12:34:56:78:9a", QMX_SIDE_ETH, &id, &form),
              E_CLI_INCORRECT_PORT_ID);
    EXPECT_EQ(form, e_id_wwn);
    EXPECT_EQ(id.kvol, nullptr);
    EXPECT_EQ(qmx_get_port_id_any("0/0", QMX_SIDE_FC, &id, &form), E_CLI_INCORRECT_PORT_ID);
    EXPECT_EQ(form, e_id_unknown);
    EXPECT_EQ(qmx_get_pcifn_id_strict("", QMX_SIDE_FC, &id), E_CLI_INCORRECT_PORT_ID);
    kvol_t* ioc = nullptr;
    EXPECT_EQ(qmx_get_ioc_by_wwn("not-a-wwn", QMX_SIDE_FC, &ioc), E_CLI_INCORRECT_PORT_ID);
    EXPECT_EQ(qmx_get_ioc_by_hwpath("", QMX_SIDE_FC, &ioc), E_CLI_INCORRECT_PORT_ID);
    int port = 5, pfn = 5;
    EXPECT_EQ(qmx_get_first_ioc("1/0", &ioc, &port, &pfn, 0), E_CLI_INCORRECT_PORT_ID);
    EXPECT_EQ(qmx_get_first_ioc("1/0/1/2", &ioc, &port, &pfn, 1), E_CLI_INCORRECT_PORT_ID);
    EXPECT_EQ(ioc, nullptr);
    EXPECT_EQ(port, 5);
}

}  // namespace
