// Adapter discovery and the driver channel seen from outside: the requests each scan sends, on
// which node and in which order, how the tree groups the functions, what a missing driver,
// node or host entry does, how driver and system-call failures surface, and the 128-function
// limit.
#include <string>
#include <vector>

#include "harness.h"

using scen::Bed;
using scen::Result;

namespace {

// Three adapters whose storage functions reach their driver three different ways:
//   TVA0000001  FC, port 0 on 0000:03:00.0 (host 5, bsg node), port 1 on 0000:03:00.1 (host 3,
//               old-style /dev/fc_host3 node)
//   TVB0000002  FC, one port on 0000:04:00.0 (host 9, no transport node: /dev/kvo)
//   TVC0000003  CNA, one port: Ethernet 0000:05:00.0 (eth0) and FCoE 0000:05:00.2 (host 7, bsg)
const char* const kNodes = R"({
  "adapters": [
    {"serial": "TVA0000001", "model_descr": "TV-1862", "type": "FC",
     "ports": [
       {"pwwn": "10:00:00:e1:f2:0a:00:00",
        "functions": [{"pci": "0000:03:00.0", "host": 5, "node": "bsg"}]},
       {"pwwn": "10:00:00:e1:f2:0a:00:01",
        "functions": [{"pci": "0000:03:00.1", "host": 3, "node": "fc_host"}]}]},
    {"serial": "TVB0000002", "model_descr": "TV-1862", "type": "FC",
     "ports": [
       {"pwwn": "10:00:00:e1:f2:0b:00:00",
        "functions": [{"pci": "0000:04:00.0", "host": 9, "node": "none"}]}]},
    {"serial": "TVC0000003", "model_descr": "TV-1867", "type": "CNA", "device_id": 20,
     "mode": "CNA", "cna_capable": true,
     "ports": [
       {"pwwn": "10:00:00:e1:f2:0c:00:00", "mac": "02:e1:f2:0c:00:00",
        "functions": [{"pci": "0000:05:00.0", "driver": "tqe"},
                      {"pci": "0000:05:00.2", "ioc_type": "FCoE", "host": 7}]}]}
  ]
})";

const std::string kRule(72, '-');
const std::string kHead = "AD#  NP  HW-path        Type   Model-Info       Serial-num   Name";

// The log lines of the IOC information and attribute requests.
std::vector<std::string> ioc_requests(const Bed& bed) {
    std::vector<std::string> out;
    for (const std::string& l : bed.log())
        if (l.find(" IOC_GET_INFO ") != std::string::npos ||
            l.find(" IOC_GET_ATTR ") != std::string::npos)
            out.push_back(l);
    return out;
}

size_t count_with(const std::vector<std::string>& lines, const std::string& part) {
    size_t n = 0;
    for (const std::string& l : lines)
        if (l.find(part) != std::string::npos) ++n;
    return n;
}

std::string list_row(int ad, int np, const char* hw, const char* type, const char* model,
                     const char* serial) {
    char b[160];
    snprintf(b, sizeof b, "%2d   %1d   %-13s  %-6s %-15s  %-11s  %-15s", ad, np, hw, type, model,
             serial, "--");
    return b;
}

}  // namespace

// ---- Scan order, nodes and framing --------------------------------------------------------------

TEST(DiscoveryScan, AsksEveryFunctionInScanOrderOnTheNodeChosenForIt) {
    Bed bed = Bed::from_json(kNodes);
    EXPECT_TRUE(scen::prints(bed.qmx({"adapter", "--count"}), "3\n"));
    // IOC scan: storage functions in address order (bsg node, then the fc_host node, then the
    // control node), then the Ethernet function on /dev/tqe. Then the adapter scan: attributes
    // and information of every IOC, in the same order and on the same nodes.
    const std::vector<std::string> expect = {
        "bsg /dev/bsg/fc_host5 IOC_GET_INFO vcmd=4 kvod=0 -> status=0",
        "bsg /dev/fc_host3 IOC_GET_INFO vcmd=4 kvod=1 -> status=0",
        "ioctl /dev/kvo IOC_GET_INFO kvod=2 -> status=0",
        "bsg /dev/bsg/fc_host7 IOC_GET_INFO vcmd=4 kvod=3 -> status=0",
        "tqe /dev/tqe IOC_GET_INFO kvod=0 -> status=0",
        "bsg /dev/bsg/fc_host5 IOC_GET_ATTR vcmd=3 kvod=0 -> status=0",
        "bsg /dev/bsg/fc_host5 IOC_GET_INFO vcmd=4 kvod=0 -> status=0",
        "bsg /dev/fc_host3 IOC_GET_ATTR vcmd=3 kvod=1 -> status=0",
        "bsg /dev/fc_host3 IOC_GET_INFO vcmd=4 kvod=1 -> status=0",
        "ioctl /dev/kvo IOC_GET_ATTR kvod=2 -> status=0",
        "ioctl /dev/kvo IOC_GET_INFO kvod=2 -> status=0",
        "bsg /dev/bsg/fc_host7 IOC_GET_ATTR vcmd=3 kvod=3 -> status=0",
        "bsg /dev/bsg/fc_host7 IOC_GET_INFO vcmd=4 kvod=3 -> status=0",
        "tqe /dev/tqe IOC_GET_ATTR kvod=0 -> status=0",
        "tqe /dev/tqe IOC_GET_INFO kvod=0 -> status=0",
    };
    EXPECT_EQ(bed.log(), expect);
    // The emulated drivers refuse any framing fault (guard, lengths, vendor id, the Ethernet
    // type byte 'D'): a clean log means every request above was well formed.
    EXPECT_TRUE(bed.log_clean());
}

TEST(DiscoveryScan, TreeNumbersAdaptersByTheirFirstFunctionAndCountsPorts) {
    Bed bed = Bed::from_json(kNodes);
    // The CNA is numbered after the two HBAs: its first IOC in the list is its FCoE function.
    EXPECT_TRUE(scen::prints(bed.qmx({"adapter", "--list"}), kRule + "\n" + kHead + "\n" + kRule + "\n" +
                         list_row(1, 2, "0000:03:00.0", "FC", "TV-1862", "TVA0000001") + "\n" +
                         list_row(2, 1, "0000:04:00.0", "FC", "TV-1862", "TVB0000002") + "\n" +
                         list_row(3, 1, "0000:05:00.0", "CNA", "TV-1867", "TVC0000003") + "\n" +
                         kRule + "\n"));
    EXPECT_TRUE(bed.log_clean());
}

TEST(DiscoveryScan, EveryAdapterAndFunctionIsRegisteredInTheConfigurationFile) {
    Bed bed = Bed::from_json(kNodes);
    bed.remove_conf();
    ASSERT_EQ(bed.qmx({"adapter", "--count"}).status, 0);
    const std::string conf = bed.conf().value_or("");
    for (const char* id : {"10:00:00:e1:f2:0a:00:00", "10:00:00:e1:f2:0a:00:01", "10:00:00:e1:f2:0b:00:00",
                           "10:00:00:e1:f2:0c:00:00", "02:e1:f2:0c:00:00"})
        EXPECT_NE(conf.find(id), std::string::npos) << id << "\n" << conf;
}

// ---- Drivers present or absent ----------------------------------------------------------------

TEST(DiscoveryDrivers, StorageDriverAloneFindsItsAdaptersAndTheCommandGoesOn) {
    Bed bed = Bed::preset("fc");
    // The Ethernet driver's absence is not reported.
    EXPECT_TRUE(scen::prints(bed.qmx({"adapter", "--count"}), "1\n"));
    const std::vector<std::string> log = bed.log();
    EXPECT_EQ(count_with(log, "tqe "), 0u);
    EXPECT_EQ(count_with(log, " IOC_GET_INFO "), 4u);  // two functions, two scans
    EXPECT_TRUE(bed.log_clean());
}

TEST(DiscoveryDrivers, EthernetDriverAloneFindsItsAdapters) {
    Bed bed = Bed::from_json(R"({"adapters": [
      {"serial": "TVN0000001", "model_descr": "TV-1869", "type": "NIC", "mode": "NIC",
       "ports": [{"mac": "02:e1:f2:01:00:00", "functions": [{"pci": "0000:06:00.0", "driver": "tqe"}]},
                 {"mac": "02:e1:f2:01:00:01", "functions": [{"pci": "0000:06:00.1", "driver": "tqe"}]}]}]})");
    Result r = bed.qmx({"adapter", "--list"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_NE(r.out.find(list_row(1, 2, "0000:06:00.0", "NIC", "TV-1869", "TVN0000001")),
              std::string::npos)
        << r.out;
    EXPECT_EQ(ioc_requests(bed), (std::vector<std::string>{
                                     "tqe /dev/tqe IOC_GET_INFO kvod=0 -> status=0",
                                     "tqe /dev/tqe IOC_GET_INFO kvod=1 -> status=0",
                                     "tqe /dev/tqe IOC_GET_ATTR kvod=0 -> status=0",
                                     "tqe /dev/tqe IOC_GET_INFO kvod=0 -> status=0",
                                     "tqe /dev/tqe IOC_GET_ATTR kvod=1 -> status=0",
                                     "tqe /dev/tqe IOC_GET_INFO kvod=1 -> status=0"}));
    EXPECT_TRUE(bed.log_clean());
}

// ---- Host entries and node fallbacks ------------------------------------------------------------

TEST(DiscoveryFunctions, FunctionWithoutHostEntryIsSkippedAndTheNextTakesItsInstance) {
    Bed bed = Bed::from_json(kNodes);
    bed.fault({"nohost", "0000:03:00.0"});
    Result r = bed.qmx({"adapter", "--list"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    // A function the driver could not attach registered no SCSI host and is no instance of the
    // driver: qmx and the driver both number the remaining functions from 0, so every request
    // reaches the function it names, on bsg nodes and on /dev/kvo alike.
    const std::vector<std::string> reqs = ioc_requests(bed);
    ASSERT_GE(reqs.size(), 4u);
    EXPECT_EQ(reqs[0], "bsg /dev/fc_host3 IOC_GET_INFO vcmd=4 kvod=0 -> status=0");
    EXPECT_EQ(reqs[1], "ioctl /dev/kvo IOC_GET_INFO kvod=1 -> status=0");
    EXPECT_EQ(reqs[2], "bsg /dev/bsg/fc_host7 IOC_GET_INFO vcmd=4 kvod=2 -> status=0");
    // Ethernet instances still count from 0.
    EXPECT_EQ(reqs[3], "tqe /dev/tqe IOC_GET_INFO kvod=0 -> status=0");
    EXPECT_EQ(count_with(reqs, "fc_host5"), 0u);
    // The adapter keeps its remaining port 1, so it still has two port numbers, and the other
    // adapters are all there.
    EXPECT_NE(r.out.find(list_row(1, 2, "0000:03:00.0", "FC", "TV-1862", "TVA0000001")),
              std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("TVB0000002"), std::string::npos) << r.out;
    EXPECT_EQ(bed.qmx({"adapter", "--query", "2", "port"}).status, 0);
    EXPECT_TRUE(bed.log_clean());
}

TEST(DiscoveryFunctions, MissingTransportNodesFallBackToTheControlNode) {
    Bed bed = Bed::from_json(kNodes);
    bed.fault({"missing", "/dev/bsg/fc_host5"});
    bed.fault({"missing", "/dev/fc_host3"});
    EXPECT_TRUE(scen::prints(bed.qmx({"adapter", "--count"}), "3\n"));
    const std::vector<std::string> reqs = ioc_requests(bed);
    ASSERT_GE(reqs.size(), 3u);
    for (size_t i = 0; i < 3; i++) EXPECT_EQ(reqs[i], "ioctl /dev/kvo IOC_GET_INFO kvod=" + std::to_string(i) + " -> status=0");
    EXPECT_EQ(count_with(reqs, "/dev/kvo IOC_GET_ATTR"), 3u);
    EXPECT_TRUE(bed.log_clean());
}

TEST(DiscoveryFunctions, NodeThatCannotBeOpenedEndsTheDriversScanAsNoDriver) {
    Bed bed = Bed::preset("fc");
    bed.fault({"open", "/dev/bsg/fc_host5"});
    EXPECT_TRUE(scen::fails(bed.qmx({"adapter", "--list"}), 133, "ERROR: Torvane adapter/driver not installed or loaded \n"));
    // Nothing is sent after the failed open: the scan of that driver ended there.
    EXPECT_EQ(bed.log(), (std::vector<std::string>{"open /dev/bsg/fc_host5 -> errno=EACCES (fault)"}));
}

// ---- Failures of the requests themselves -------------------------------------------------------

// A failed system call is mapped to its status; a driver status is the command's status.
TEST(DiscoveryErrno, FailedRequestEndsTheScanWithItsStatusAndMessage) {
    const struct {
        const char* kind;
        const char* err;
        int status;
        const char* text;
    } cases[] = {{"errno", "95", 26, "Command/API not supported "},
                 {"errno", "2", 1, "Operation failed "},
                 {"errno", "EACCES", 1, "Operation failed "},
                 {"errno", "EIO", 42, "I/O error "},
                 {"errno", "ENOTTY", 43, "Inappropriate I/O control operation "},
                 {"status", "13", 13, "Device busy - Retry operation "}};
    for (const auto& c : cases) {
        Bed bed = Bed::preset("fc");
        bed.fault({"request", "IOC_GET_ATTR", c.kind, c.err, "times", "1"});
        EXPECT_TRUE(scen::fails(bed.qmx({"adapter", "--count"}), c.status, std::string("ERROR: ") + c.text + "\n")) << c.err;
        // The scan stops at the failed request.
        EXPECT_EQ(count_with(bed.log(), " IOC_GET_ATTR "), 1u) << c.err;
        // The next command scans afresh.
        EXPECT_TRUE(scen::prints(bed.qmx({"adapter", "--count"}), "1\n")) << c.err;
        EXPECT_TRUE(bed.log_clean()) << c.err;
    }
}

TEST(DiscoveryStatus, DriverStatusOnIocInformationEndsTheScanWithThatStatus) {
    // Both drivers loaded, Ethernet without functions: the storage scan's failure stays the
    // last status.
    Bed bed = Bed::from_json(R"({"drivers": {"kvo": true, "tqe": true}, "adapters": [
      {"serial": "TVA0000001", "type": "FC",
       "ports": [{"pwwn": "10:00:00:e1:f2:0a:00:00", "functions": [{"pci": "0000:03:00.0", "host": 5}]},
                 {"pwwn": "10:00:00:e1:f2:0a:00:01", "functions": [{"pci": "0000:03:00.1", "host": 6}]}]}]})");
    bed.fault({"request", "IOC_GET_INFO", "status", "56", "instance", "1", "times", "1"});
    EXPECT_TRUE(scen::fails(bed.qmx({"adapter", "--list"}), 56, "ERROR: IOC failure - Retry if persists contact support \n"));
    // The first function was asked, the second refused, and nothing followed: the function
    // already found is left out of the count, so no adapter is built.
    EXPECT_EQ(ioc_requests(bed), (std::vector<std::string>{
                                     "bsg /dev/bsg/fc_host5 IOC_GET_INFO vcmd=4 kvod=0 -> status=0",
                                     "bsg /dev/bsg/fc_host6 IOC_GET_INFO vcmd=4 kvod=1 -> status=56 (fault)"}));
    EXPECT_TRUE(bed.log_clean());
}

TEST(DiscoveryStatus, ShellCommandsDoNotInheritAnEarlierScanFailure) {
    // Drivers loaded, no adapter: a scan finds nothing, which is an error only when a failure
    // was recorded. The first command's failure must not be seen by the second.
    Bed bed = Bed::from_json(R"({"drivers": {"kvo": true, "tqe": true}, "adapters": []})");
    bed.fault({"open", "/dev/tqe", "times", "1"});
    EXPECT_TRUE(scen::fails(bed.qmx({"adapter", "--count"}), 133, "ERROR: Torvane adapter/driver not installed or loaded \n"));

    bed.fault({"open", "/dev/tqe", "times", "1"});
    Result r = bed.shell("adapter --count\nadapter --count\n");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(count_with(scen::lines(r.out), "0"), 1u) << r.out;  // only the second prints
}

TEST(DiscoveryStatus, ScanAfterAFailedOneInTheSameProcessIsComplete) {
    Bed bed = Bed::preset("fc");
    bed.fault({"request", "IOC_GET_ATTR", "errno", "EIO", "times", "1"});
    Result r = bed.shell("adapter --count\nadapter --count\nadapter --count\n");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(count_with(scen::lines(r.out), "1"), 2u) << r.out;
    // Three full scans, the first cut short after its first attribute request.
    const std::vector<std::string> log = bed.log();
    EXPECT_EQ(count_with(log, " IOC_GET_INFO "), 2u + 4u + 4u);
    EXPECT_EQ(count_with(log, " IOC_GET_ATTR "), 1u + 2u + 2u);
    EXPECT_TRUE(bed.log_clean());
}

// ---- Limits -------------------------------------------------------------------------------------

TEST(DiscoveryLimits, OnlyTheFirst128FunctionsAreRecorded) {
    // 65 dual-port adapters: 130 storage functions, in address order 0000:01:00.0 .. 0000:41:00.1.
    std::string host = R"({"adapters": [)";
    for (int a = 0; a < 65; ++a) {
        char b[400];
        snprintf(b, sizeof b,
                 R"(%s{"serial": "TVB%07d", "ports": [)"
                 R"({"pwwn": "10:00:00:e1:f2:%02x:00:00", "functions": [{"pci": "0000:%02x:00.0"}]},)"
                 R"({"pwwn": "10:00:00:e1:f2:%02x:00:01", "functions": [{"pci": "0000:%02x:00.1"}]}]})",
                 a ? "," : "", a, a, a + 1, a, a + 1);
        host += b;
    }
    host += "]}";
    Bed bed = Bed::from_json(host);
    Result r = bed.qmx({"adapter", "--list"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_NE(r.out.find(list_row(64, 2, "0000:40:00.0", "FC", "", "TVB0000063")),
              std::string::npos)
        << r.out;
    EXPECT_EQ(r.out.find("TVB0000064"), std::string::npos);
    const std::vector<std::string> log = bed.log();
    EXPECT_EQ(count_with(log, " IOC_GET_INFO "), 256u);
    EXPECT_EQ(count_with(log, " kvod=127 "), 3u);  // information, attributes, information
    EXPECT_EQ(count_with(log, " kvod=128 "), 0u);
    EXPECT_TRUE(bed.log_clean());
}
