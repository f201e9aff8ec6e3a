// The emulated drivers' transports: what a well-formed request gets back, and how each kind of
// malformed request is refused (EINVAL and a BAD log line saying why).
#include <string>
#include <vector>

#include "harness.h"
#include "kvo_ioctl.h"

using scen::Bed;
using scen::Result;
using scen::hex;
using scen::value;

namespace {

// A probe reply that succeeded and holds each of these key=value lines.
void expect_values(const Result& r, const std::vector<std::pair<std::string, std::string>>& want) {
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    for (const auto& [k, v] : want) EXPECT_EQ(value(r, k), v) << k << " in\n" << r.out;
}

}  // namespace

TEST(SimTransport, InformationAndAttributesOverEveryNodeKindDescribeTheAddressedFunction) {
    Bed bed = Bed::preset("demo");
    // Storage instances follow the sorted PCI addresses of kvo functions: 04:00.0, 04:00.1,
    // 05:00.2, 05:00.3; Ethernet instances the tqe functions 05:00.0, 05:00.1.
    expect_values(bed.probe({"info", "/dev/bsg/fc_host7", "2"}),
                  {{"hwpath", "0000:05:00.2"}, {"adapter_hwpath", "0000:05:00.0"}, {"serial", "TVC2320M11C"},
                   {"ioc_type", "2"}, {"host", "7"}, {"pwwn", "10:00:00:e1:f2:00:32:00"}, {"response_len", "8"},
                   {"reply_len", "528"}});
    expect_values(bed.probe({"info", "/dev/kvo", "1"}), {{"hwpath", "0000:04:00.1"}, {"host", "4"}});
    expect_values(bed.probe({"info", "/dev/tqe", "1"}),
                  {{"hwpath", "0000:05:00.1"}, {"eth_name", "eth1"}, {"ioc_type", "3"},
                   {"pwwn", "00:00:00:00:00:00:00:00"}, {"current_mac", "02:e1:f2:00:32:11"}});
    EXPECT_EQ(bed.log(), (std::vector<std::string>{"bsg /dev/bsg/fc_host7 IOC_GET_INFO vcmd=4 kvod=2 -> status=0",
                                                   "ioctl /dev/kvo IOC_GET_INFO kvod=1 -> status=0",
                                                   "tqe /dev/tqe IOC_GET_INFO kvod=1 -> status=0"}));

    // Attributes carry adapter, PCI and state data.
    expect_values(bed.probe({"attr", "/dev/bsg/fc_host4", "1"}),
                  {{"state", "6"}, {"port_id", "1"}, {"device_id", "0x0023"}, {"vendor_id", "0xe1f2"}, {"pcifn", "1"},
                   {"nports", "2"}, {"model", "TV-1862"}, {"serial_num", "TVF2319K04B"}, {"mode", "1"}});
    expect_values(bed.probe({"attr", "/dev/tqe", "0"}),
                  {{"device_id", "0x0014"}, {"adapter_type", "CNA"}, {"cna_capable", "1"}, {"port_id", "0"}});
    EXPECT_TRUE(bed.log_clean());
}

TEST(SimTransport, FcHostNodeTakesTheSameFramingAsBsg) {
    Bed bed = Bed::from_json(R"({"adapters": [{"serial": "TVX0000001", "ports": [
        {"pwwn": "10:00:00:e1:f2:99:00:00", "functions": [{"pci": "0000:07:00.0", "host": 3, "node": "fc_host"}]},
        {"pwwn": "10:00:00:e1:f2:99:00:01", "functions": [{"pci": "0000:07:00.1", "host": 4, "node": "none"}]}]}]})");
    EXPECT_EQ(bed.probe({"stat", "/dev/bsg/fc_host3"}).out, "rc=-1 errno=2 (No such file or directory) stat\n");
    expect_values(bed.probe({"info", "/dev/fc_host3", "0"}), {{"hwpath", "0000:07:00.0"}});
    EXPECT_NE(bed.probe({"stat", "/dev/fc_host4"}).status, 0);
    EXPECT_EQ(value(bed.probe({"info", "/dev/kvo", "1"}), "host"), "4");
    EXPECT_EQ(bed.log().front(), "bsg /dev/fc_host3 IOC_GET_INFO vcmd=4 kvod=0 -> status=0");
}

// Each malformed bsg request: the override that breaks it and the reason the log must give.
struct BadBsg {
    std::vector<std::string> args;
    std::string reason;
};

TEST(SimTransport, MalformedBsgRequestsAreRefusedSharedNumbersResolvedUnknownOnesUnhandled) {
    Bed bed = Bed::preset("fc");
    const std::string info = hex(KVO_IOCMD_IOC_GET_INFO);
    const std::vector<BadBsg> cases = {
        {{info, "0", "guard=0x53"}, "guard 0x53, expected 'Q'"},
        {{info, "0", "protocol=1"}, "protocol 1, expected 0 (SCSI)"},
        {{info, "0", "subprotocol=0"}, "subprotocol 0, expected 2 (SCSI transport)"},
        {{info, "0", "request_len=20"}, "request_len 20, expected 32"},
        {{info, "0", "msgcode=0x80000001"}, "msgcode 0x80000001, expected 0x800000FF"},
        {{info, "0", "vendor_id=0x1657"}, "vendor_id 0x1657, expected 0xE1F2"},
        {{info, "0", "vcmd=93"}, "vendor command 93 is not a driver command"},
        {{info, "0", "vcmd=0"}, "vendor command 0 is not a driver command"},
        {{info, "0", "vcmd=3"}, "vendor command 3: transfer length 528 matches no record of that command"},
        {{info, "0", "din_len=1632"}, "vendor command 4: dout_xfer_len 528 != din_xfer_len 1632"},
        {{info, "0", "split=1"}, "IOC_GET_INFO: data-out and data-in must both point at the record"},
        {{info, "0", "timeout=30000"}, "IOC_GET_INFO: timeout 30000 ms, expected 60000"},
    };
    for (const BadBsg& c : cases) {
        bed.clear_log();
        std::vector<std::string> args = {"bsg", "/dev/bsg/fc_host5"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        Result r = bed.probe(args);
        EXPECT_EQ(r.out, "rc=-1 errno=22 (Invalid argument) ioctl\n") << c.reason;
        std::vector<std::string> log = bed.log();
        ASSERT_EQ(log.size(), 1u) << c.reason;
        EXPECT_EQ(log[0], "BAD bsg /dev/bsg/fc_host5 " + c.reason);
    }
    // The boundary itself is fine: the same request unbroken is answered.
    bed.clear_log();
    EXPECT_EQ(bed.probe({"bsg", "/dev/bsg/fc_host5", info, "0"}).status, 0);
    EXPECT_TRUE(bed.log_clean());

    // Number 116 is both LUN-mask clear (8-byte record) and query (0x210 bytes).
    bed.clear_log();
    bed.probe({"bsg", "/dev/bsg/fc_host6", hex(KVO_IOCMD_FCPIM_LUNMASK_CLEAR), "1"});
    bed.probe({"bsg", "/dev/bsg/fc_host6", hex(KVO_IOCMD_FCPIM_LUNMASK_QUERY), "1"});
    std::vector<std::string> log = bed.log();
    ASSERT_EQ(log.size(), 2u);
    EXPECT_NE(log[0].find(" FCPIM_LUNMASK_CLEAR vcmd=116 kvod=1 -> "), std::string::npos) << log[0];
    EXPECT_NE(log[1].find(" FCPIM_LUNMASK_QUERY vcmd=116 kvod=1 -> "), std::string::npos) << log[1];

    // A known code without emulation is reported unhandled.
    bed.clear_log();
    Result r = bed.probe({"raw", "/dev/kvo", hex(KVO_IOCMD_DIAG_MEMTEST), "0"});
    EXPECT_EQ(r.out, "rc=-1 errno=95 (Operation not supported) ioctl\n");
    EXPECT_EQ(bed.log(), std::vector<std::string>{"UNHANDLED ioctl /dev/kvo DIAG_MEMTEST kvod=0 -> errno=EOPNOTSUPP"});
    EXPECT_FALSE(bed.log_clean());
}

TEST(SimTransport, MalformedIoctlsAreRefusedConcurrentOnesAllAnswered) {
    Bed bed = Bed::preset("demo");
    struct Case {
        std::string node;
        uint32_t code;
        std::string kvod;
        std::string log;
    };
    const std::vector<Case> cases = {
        {"/dev/kvo", 0xC0084399, "0", "BAD ioctl /dev/kvo unknown request code 0xC0084399"},
        {"/dev/kvo", KVO_IOCMD_IOC_GET_INFO, "4",
         "BAD ioctl /dev/kvo IOC_GET_INFO: kvod_num 4 names no storage instance (4 instances)"},
        // The Ethernet driver only takes codes whose type byte was rewritten to 'D'.
        {"/dev/tqe", KVO_IOCMD_IOC_GET_INFO, "0",
         "BAD tqe /dev/tqe request 0xC2104307: type byte 0x43, expected 0x44 ('D')"},
        {"/dev/tqe", (KVO_IOCMD_IOC_GET_INFO & ~0xFF00u) | 0x4400u, "2",
         "BAD tqe /dev/tqe IOC_GET_INFO: kvod_num 2 names no Ethernet instance (2 instances)"},
        {"/dev/bsg/fc_host3", KVO_IOCMD_IOC_GET_INFO, "0", "BAD bsg /dev/bsg/fc_host3 ioctl 0xc2104307 is not SG_IO"},
    };
    for (const Case& c : cases) {
        bed.clear_log();
        Result r = bed.probe({"raw", c.node, hex(c.code), c.kvod});
        EXPECT_EQ(r.out, "rc=-1 errno=22 (Invalid argument) ioctl\n") << c.log;
        EXPECT_EQ(bed.log(), std::vector<std::string>{c.log});
    }
    // Highest valid instance of each driver is answered.
    bed.clear_log();
    EXPECT_EQ(bed.probe({"raw", "/dev/kvo", hex(KVO_IOCMD_IOC_GET_INFO), "3"}).out, "rc=0 status=0\n");
    EXPECT_EQ(bed.probe({"raw", "/dev/tqe", hex((KVO_IOCMD_IOC_GET_ATTR & ~0xFF00u) | 0x4400u), "1"}).out,
              "rc=0 status=0\n");
    EXPECT_TRUE(bed.log_clean());

    // Concurrent threads are all answered.
    bed.clear_log();
    Result r = bed.probe({"threads", "8", "/dev/bsg/fc_host8", "3"});
    EXPECT_EQ(r.out, "ok=160 failed=0\n");
    EXPECT_EQ(bed.log().size(), 160u);
    EXPECT_TRUE(bed.log_clean());
}
