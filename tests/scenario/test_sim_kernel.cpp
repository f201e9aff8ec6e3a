// The emulated kernel between qmx and the emulated drivers: sysfs lists in hash order on
// request, and drivers number instances in PCI order and serve a bsg node for its own function.
#include <string>
#include <vector>

#include "harness.h"
#include "test_adapter_hosts.h"

using scen::Bed;
using scen::Result;
using scen::lines_with;
using scen::prints;
using scen::value;
using strings = std::vector<std::string>;

namespace {

// kFourAdapters on a bed whose sysfs lists in hash order. The kvo directory then lists
// 03:00.0, 05:00.3, 03:00.1, 05:00.2, 04:00.0 (the tqe one 05:00.1, 06:00.0, 05:00.0).
std::string four_adapters_hashed() {
    std::string host = adtest::kFourAdapters;
    host.insert(host.find('{') + 1, R"("sysfs_order": "hash",)");
    return host;
}

}  // namespace

// ---- sysfs order and instance numbers -----------------------------------------------------------

TEST(SimSysfsOrder, HashBedListsSysfsInKernelOrderAndOtherFileSystemsSorted) {
    Bed bed = Bed::from_json(four_adapters_hashed());
    const std::string kvo =
        "0000:03:00.0\nuevent\n0000:05:00.3\nbind\nnew_id\nremove_id\n0000:03:00.1\nunbind\n0000:05:00.2\n"
        "0000:04:00.0\nmodule\n";
    EXPECT_EQ(bed.probe({"ls", "/sys/bus/pci/drivers/kvo"}).out, kvo);
    EXPECT_EQ(bed.probe({"lsat", "/sys/bus/pci/drivers/kvo/"}).out, kvo);
    EXPECT_EQ(bed.probe({"ls", "/sys/class/scsi_host"}).out, "host5\nhost3\nhost1\nhost4\nhost2\n");
    // /dev is not sysfs.
    EXPECT_EQ(bed.probe({"ls", "/dev/bsg"}).out, "fc_host1\nfc_host2\nfc_host3\nfc_host4\nfc_host5\n");
    EXPECT_EQ(lines_with(bed.kvosim("show").out, "sysfs"), strings{"sysfs lists in the kernel's hash order"});

    // The create option does the same for a preset, and is checked.
    Bed demo = Bed::preset("demo", {"--sysfs-order", "hash"});
    EXPECT_EQ(demo.probe({"ls", "/sys/class/fc_host"}).out, "host7\nhost3\nhost8\nhost4\n");
    Bed sorted = Bed::preset("demo", {"--sysfs-order", "sorted"});
    EXPECT_EQ(sorted.probe({"ls", "/sys/class/fc_host"}).out, "host3\nhost4\nhost7\nhost8\n");
    Result bad = scen::run_process({scen::kvosim_bin(), "create", demo.dir() + "-x", "--preset", "demo",
                                    "--sysfs-order", "random"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(bad.err, "kvosim: --sysfs-order: \"random\" is neither sorted nor hash\n");
}

TEST(SimSysfsOrder, QmxNumbersAdaptersInTheOrderSysfsListsThem) {
    const std::string head =
        adtest::rule() + "AD#  NP  HW-path        Type   Model-Info       Serial-num   Name\n" + adtest::rule();
    const std::string hba1 = " 1   2   0000:03:00.0   FC     TV-1862          TVA1000001   --             \n";
    const std::string hba2 = "   1   0000:04:00.0   FC     TV-1862          TVA2000002   --             \n";
    const std::string cna = "   2   0000:05:00.0   CNA    TV-1867          TVC3000003   --             \n";
    const std::string nic = " 4   1   0000:06:00.0   NIC    TV-1869          TVN4000004   --             \n";
    // Sorted, the HBAs come first; in hash order the CNA's port-1 FCoE function (05:00.3) is
    // listed before 04:00.0, so the CNA is adapter 2.
    Bed sorted = Bed::from_json(adtest::kFourAdapters);
    EXPECT_TRUE(prints(sorted.qmx({"adapter", "--list"}), head + hba1 + " 2" + hba2 + " 3" + cna + nic + adtest::rule()));
    Bed hashed = Bed::from_json(four_adapters_hashed());
    EXPECT_TRUE(prints(hashed.qmx({"adapter", "--list"}), head + hba1 + " 2" + cna + " 3" + hba2 + nic + adtest::rule()));
    EXPECT_TRUE(hashed.log_clean());
}

TEST(SimSysfsOrder, QmxStaysConsistentOnAHashOrderedBed) {
    Bed bed = Bed::from_json(four_adapters_hashed());
    // qmx numbers FC functions by listing order and sends that number as kvod_num; each bsg
    // node still answers for its own function, so every port shows its own names. The
    // instance column is qmx's number (05:00.3 is listed second), not the driver's.
    const std::string port_head =
        "    PCI-fn  Type      Inst  PWWN/MAC                 NWWN                     State\n";
    EXPECT_TRUE(prints(bed.qmx({"adapter", "--query", "2", "port"}),
                       "Adapter id 2\n" + adtest::rule() + "Port 0:\n" + port_head +
                           "    0       Ethernet  0     02:e1:f2:03:10:00        --                       operational\n"
                           "    2       FCoE      3     10:00:00:e1:f2:03:00:00  10:00:00:e1:f2:03:00:00  operational\n"
                           "Port 1:\n" + port_head +
                           "    1       Ethernet  1     02:e1:f2:03:10:01        --                       operational\n"
                           "    3       FCoE      1     10:00:00:e1:f2:03:00:01  10:00:00:e1:f2:03:00:01  operational\n"));
    // A change reaches the adapter qmx meant.
    EXPECT_TRUE(prints(bed.qmx({"adapter", "--name", "3", "second-hba"}), "adapter id 3; name set to: second-hba\n"));
    EXPECT_EQ(adtest::adapter_state(bed, "TVA2000002")["name"], "second-hba");
    EXPECT_EQ(lines_with(bed.qmx({"adapter", "--list"}).out, "second-hba"),
              strings{" 3   1   0000:04:00.0   FC     TV-1862          TVA2000002   second-hba     "});
    // The log shows the number qmx sent beside the instance that served it.
    EXPECT_EQ(scen::requests(bed, "ADAPTER_SET_NAME"),
              strings{"bsg /dev/bsg/fc_host3 ADAPTER_SET_NAME vcmd=9 kvod=4 inst=2 -> status=0 (name \"second-hba\")"});
    EXPECT_TRUE(bed.log_clean());
}

TEST(SimInstances, DriversNumberFunctionsInPciOrderWhateverSysfsShows) {
    Bed bed = Bed::from_json(four_adapters_hashed());
    const strings storage = {"0000:03:00.0", "0000:03:00.1", "0000:04:00.0", "0000:05:00.2", "0000:05:00.3"};
    const strings eth = {"0000:05:00.0", "0000:05:00.1", "0000:06:00.0"};
    for (size_t i = 0; i < storage.size(); i++)
        EXPECT_EQ(value(bed.probe({"info", "/dev/kvo", std::to_string(i)}), "hwpath"), storage[i]) << i;
    for (size_t i = 0; i < eth.size(); i++)
        EXPECT_EQ(value(bed.probe({"info", "/dev/tqe", std::to_string(i)}), "hwpath"), eth[i]) << i;
    // One past the last instance of each driver names nothing.
    EXPECT_EQ(bed.probe({"info", "/dev/kvo", "5"}).out, "rc=-1 errno=22 (Invalid argument) ioctl\n");
    EXPECT_EQ(bed.probe({"info", "/dev/tqe", "3"}).out, "rc=-1 errno=22 (Invalid argument) ioctl\n");

    // A function whose host entry is missing from sysfs keeps its instance, and so do the
    // others: the driver probed it all the same.
    Bed fc = Bed::preset("fc");
    fc.fault({"nohost", "0000:03:00.0"});
    EXPECT_EQ(value(fc.probe({"info", "/dev/kvo", "0"}), "hwpath"), "0000:03:00.0");
    EXPECT_EQ(value(fc.probe({"info", "/dev/kvo", "1"}), "hwpath"), "0000:03:00.1");
    EXPECT_EQ(value(fc.probe({"info", "/dev/bsg/fc_host5", "0"}), "hwpath"), "0000:03:00.0");
    EXPECT_TRUE(fc.log_clean());
}

TEST(SimInstances, BsgNodeServesItsOwnFunctionWhateverKvodNumItCarries) {
    Bed bed = Bed::preset("fc");  // host5: 03:00.0, instance 0; host6: 03:00.1, instance 1
    struct Case {
        std::string node, kvod, hwpath, log;
    };
    const std::vector<Case> cases = {
        {"/dev/bsg/fc_host6", "1", "0000:03:00.1", "bsg /dev/bsg/fc_host6 IOC_GET_INFO vcmd=4 kvod=1 -> status=0"},
        {"/dev/bsg/fc_host6", "0", "0000:03:00.1", "bsg /dev/bsg/fc_host6 IOC_GET_INFO vcmd=4 kvod=0 inst=1 -> status=0"},
        {"/dev/bsg/fc_host5", "65535", "0000:03:00.0",
         "bsg /dev/bsg/fc_host5 IOC_GET_INFO vcmd=4 kvod=65535 inst=0 -> status=0"},
        // The control node has no function of its own: kvod_num chooses.
        {"/dev/kvo", "1", "0000:03:00.1", "ioctl /dev/kvo IOC_GET_INFO kvod=1 -> status=0"},
    };
    for (const Case& c : cases) {
        bed.clear_log();
        Result r = bed.probe({"info", c.node, c.kvod});
        EXPECT_EQ(value(r, "hwpath"), c.hwpath) << c.log;
        EXPECT_EQ(value(r, "rc"), "0 status=0 kvod=" + c.kvod) << c.log;  // kvod_num comes back as sent
        EXPECT_EQ(bed.log(), strings{c.log});
    }
    EXPECT_TRUE(bed.log_clean());
}
