// Discovery's pure pieces: which sysfs entries are PCI functions, the host entry, the device
// node choice, the PCI function number, and reading the driver's identity reply into a record.
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <utility>

#include "kvol.h"
#include "kvol_linux.h"

namespace {

class PciName : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(kvol_pci_regex_compile(&re_), 0); }
    void TearDown() override { regfree(&re_); }
    bool match(const char* s) { return kvol_pci_name_matches(&re_, s); }
    regex_t re_{};
};

std::set<std::string> g_nodes;
bool fake_exists(const char* path) { return g_nodes.count(path) > 0; }

}  // namespace

TEST_F(PciName, FunctionAddressesMatchAndDriverFilesDoNot) {
    // The separator before the function is any character, and the match is not anchored.
    for (const char* s : {"0000:03:00.0", "0000:af:1f.7", "0000:03:00x1", "10000:03:00.1"})
        EXPECT_TRUE(match(s)) << s;
    for (const char* s : {"bind", "unbind", "new_id", "remove_id", "module", "uevent", ".", "..",
                          "0000:03:00", "0000:03:00.", "0000:03:0.1", "0000:AF:00.0",
                          "0000:03:00.A", "000:03:00.1"})
        EXPECT_FALSE(match(s)) << s;
}

TEST(SysfsHost, HostEntryGivesTheDigitsAfterItsFirstFourCharacters) {
    const std::pair<const char*, int> rows[] = {
        {"host3", 3},   {"host127", 127}, {"host", 0}, {"hostx9", 0},
        {"scsi_host", 0},  // contains "host": digits after "scsi"
        {"driver", -1}, {"Host3", -1},    {"", -1},
        {"host99999999999999999999", -1},  // no overflow
    };
    for (const auto& [entry, n] : rows) EXPECT_EQ(kvol_sysfs_host_num(entry), n) << entry;
}

TEST(DevicePath, BsgNodeThenFcHostNodeThenControlNode) {
    const struct {
        std::set<std::string> nodes;
        const char* want;
    } rows[] = {
        {{"/dev/bsg/fc_host3", "/dev/fc_host3"}, "/dev/bsg/fc_host3"},
        {{"/dev/fc_host3", "/dev/bsg/fc_host4"}, "/dev/fc_host3"},
        {{"/dev/bsg/fc_host30", "/dev/fc_host30"}, "/dev/kvo"},
    };
    char out[256];
    for (const auto& r : rows) {
        g_nodes = r.nodes;
        kvol_fc_devpath(3, fake_exists, out, sizeof(out));
        EXPECT_STREQ(out, r.want);
    }
    g_nodes.clear();
    char small[8];
    kvol_fc_devpath(12345, fake_exists, small, sizeof(small));
    EXPECT_STREQ(small, "/dev/kv");  // cut, never overrun
}

TEST(PciFunction, HexDigitsAfterTheLastDot) {
    const std::pair<const char*, int> rows[] = {
        {"0000:03:00.0", 0},    {"0000:03:00.7", 7},    {"0000:03:00.a", 10},
        {"0000:03:00.F", 15},   {"0000:03:00.1f", 31},  {"0000:03.00.2\n", 2},
        {"a.b.3", 3},           {"0000:03:00", -1},     {"0000:03:00.", -1},
        {"0000:03:00.x", -1},   {"0000:03:00.123", -1}, {"", -1},
    };
    for (const auto& [path, fn] : rows) EXPECT_EQ(kvol_parse_pcifn(path, 32), fn) << path;
    // An unterminated field is read within its size only.
    char field[12];
    memcpy(field, "0000:03:00.5", sizeof(field));
    EXPECT_EQ(kvol_parse_pcifn(field, 11), -1);  // the digit lies beyond the field
    EXPECT_EQ(kvol_parse_pcifn(field, 12), 5);
}

TEST(IocInfoFill, StorageFunctionTakesWwnsAndFcoeItsMacs) {
    kvo_ioc_info_t info{};
    snprintf(info.serialnum, sizeof(info.serialnum), "KV1234567");
    snprintf(info.hwpath, sizeof(info.hwpath), "0000:03:00.1");
    snprintf(info.adapter_hwpath, sizeof(info.adapter_hwpath), "0000:03:00");
    snprintf(info.name, sizeof(info.name), "lab");
    snprintf(info.port_name, sizeof(info.port_name), "p1");
    info.pwwn = 0x1000000000000001;
    info.nwwn = 0x2000000000000001;
    info.factorypwwn = 0x1000000000000011;
    info.factorynwwn = 0x2000000000000011;
    info.mac = mac_t{{1, 2, 3, 4, 5, 6}};
    info.factory_mac = mac_t{{1, 2, 3, 4, 5, 7}};
    info.current_mac = mac_t{{1, 2, 3, 4, 5, 8}};
    info.ioc_type = KVO_IOC_TYPE_FC;

    kvol_t rec{};
    kvol_ioc_fill_from_info(&rec, &info);
    EXPECT_STREQ(rec.serialnum, "KV1234567");
    EXPECT_STREQ(rec.ioc_hwpath, "0000:03:00.1");
    EXPECT_STREQ(rec.adapter_hwpath, "0000:03:00");
    EXPECT_STREQ(rec.name, "lab");
    EXPECT_STREQ(rec.port_name, "p1");
    EXPECT_EQ(rec.pcifn_id, 1);
    EXPECT_EQ(rec.ioc_type, KVO_IOC_TYPE_FC);
    EXPECT_EQ(rec.pwwn, info.pwwn);
    EXPECT_EQ(rec.factorynwwn, info.factorynwwn);
    EXPECT_EQ(rec.mac.mac[0], 0);  // plain FC has no MAC

    info.ioc_type = KVO_IOC_TYPE_FCoE;
    kvol_t fcoe{};
    kvol_ioc_fill_from_info(&fcoe, &info);
    EXPECT_EQ(fcoe.nwwn, info.nwwn);
    EXPECT_EQ(memcmp(&fcoe.mac, &info.mac, 6), 0);
    EXPECT_EQ(memcmp(&fcoe.factory_mac, &info.factory_mac, 6), 0);
    EXPECT_EQ(fcoe.current_mac.mac[5], 0);
}

// An Ethernet function, and any type the library does not know, takes its MACs and no WWNs; a
// reply without terminators is cut to the fields.
TEST(IocInfoFill, EthernetOrUnknownTypeTakesMacsAndNoWwnsAndIsCutToTheFields) {
    for (uint32_t type : {uint32_t{KVO_IOC_TYPE_LL}, 77u}) {
        SCOPED_TRACE(type);
        kvo_ioc_info_t info;
        memset(&info, 'Z', sizeof(info));  // no terminator anywhere
        info.ioc_type = type;
        kvol_t rec;
        memset(&rec, 0x11, sizeof(rec));
        kvol_ioc_fill_from_info(&rec, &info);
        EXPECT_EQ(strlen(rec.serialnum), sizeof(rec.serialnum) - 1);  // 64 bytes into 12
        EXPECT_EQ(strlen(rec.ioc_hwpath), sizeof(rec.ioc_hwpath) - 1);
        EXPECT_EQ(strlen(rec.adapter_hwpath), sizeof(rec.adapter_hwpath) - 1);
        EXPECT_EQ(strlen(rec.name), sizeof(rec.name) - 1);
        EXPECT_EQ(strlen(rec.port_name), sizeof(rec.port_name) - 1);
        EXPECT_EQ(std::string(rec.eth_name), std::string(sizeof(rec.eth_name) - 1, 'Z'));
        EXPECT_EQ(rec.pcifn_id, -1);  // no dot in the hardware path
        EXPECT_EQ(rec.pwwn, 0u);
        EXPECT_EQ(rec.nwwn, 0u);
        EXPECT_EQ(memcmp(&rec.current_mac, &info.current_mac, 6), 0);
        EXPECT_EQ(static_cast<uint32_t>(rec.ioc_type), type);
        // Fields after the copied ones are untouched.
        EXPECT_EQ(static_cast<uint8_t>(rec.friendlyName[0]), 0x11);
    }
}
