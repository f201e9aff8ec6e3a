// The emulated host as a whole: path isolation, directory order, state that persists across
// processes, fault rules, host descriptions, ethtool firmware flash and kvosim run itself.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "harness.h"
#include "kvo_ioctl.h"

using scen::Bed;
using scen::Result;
using scen::hex;
using scen::value;

namespace {

const std::string kNoEnt = "rc=-1 errno=2 (No such file or directory) ";

// A probe reply holding each of these key=value lines.
void expect_values(const Result& r, const std::vector<std::pair<std::string, std::string>>& want) {
    for (const auto& [k, v] : want) EXPECT_EQ(value(r, k), v) << k << " in\n" << r.out;
}

}  // namespace

TEST(SimBed, EmulatedPathsNeverReachTheRealSystem) {
    Bed empty = Bed::preset("empty");
    // No driver loaded: no driver directories and no nodes, whatever the machine has.
    for (const char* p : {"/sys/bus/pci/drivers/kvo", "/sys/bus/pci/drivers/tqe", "/dev/kvo", "/dev/tqe",
                          "/dev/kvoipfc", "/dev/sg0", "/dev/fc_host0", "/dev/rport-0:0-0", "/etc/kvo.conf"})
        EXPECT_EQ(empty.probe({"stat", p}).out, kNoEnt + "stat\n") << p;
    EXPECT_EQ(empty.probe({"open", "/dev/bsg/fc_host0"}).out, kNoEnt + "open\n");
    // Class directories exist but hold only what the bed has.
    EXPECT_EQ(empty.probe({"ls", "/sys/class/scsi_host"}).out, "");
    EXPECT_EQ(empty.probe({"ls", "/sys/class/fc_host/"}).out, "");

    Bed fc = Bed::preset("fc");
    EXPECT_EQ(fc.probe({"ls", "/sys/class/scsi_host"}).out, "host5\nhost6\n");
    EXPECT_EQ(fc.probe({"cat", "/sys/class/fc_host/host6/port_name"}).out, "0x100000e1f2001001\n");
    EXPECT_EQ(fc.probe({"cat", "/sys/class/fc_host/host6/../host5/node_name"}).out, "0x200000e1f2001000\n");
    EXPECT_EQ(fc.probe({"realpath", "//sys/class/./fc_host/host5"}).out, "/sys/class/fc_host/host5\n");
    for (const char* p : {"/sys/bus/pci/drivers/tqe", "/dev/tqe"}) EXPECT_EQ(fc.probe({"stat", p}).out, kNoEnt + "stat\n") << p;
    // Writing the configuration file lands in the bed.
    EXPECT_EQ(fc.probe({"write", "/etc/kvo.conf", "kvo0-x=1\n"}).out, "rc=0\n");
    EXPECT_EQ(fc.conf().value_or("<none>"), "kvo0-x=1\n");
    // A bed whose state cannot be read has no emulated files at all.
    ASSERT_TRUE(scen::write_text(fc.dir() + "/state.json", "{garbage"));
    EXPECT_EQ(fc.probe({"open", "/dev/kvo"}).out, kNoEnt + "open\n");
}

TEST(SimBed, ShellChildrenSeeAndChangeTheEmulatedFiles) {
    Bed bed = Bed::preset("fc");
    Result r = bed.run({"/bin/sh", "-c",
                        "cat /sys/class/fc_host/host5/port_name;"
                        "stat -c %s /sys/class/fc_host/host5/port_name;"
                        "test -e /dev/kvo && echo node;"
                        "test -e /dev/tqe || echo no-tqe;"
                        "echo kvo0-x=1 > /etc/kvo.conf;"
                        "readlink -f /sys/class/../class/fc_host/host6;"
                        "mkdir /sys/kernel/debug/kvo;"
                        "echo /sys/bus/pci/drivers/kvo/0*"});
    EXPECT_EQ(r.out,
              "0x100000e1f2001000\n19\nnode\nno-tqe\n/sys/class/fc_host/host6\n"
              "/sys/bus/pci/drivers/kvo/0000:03:00.0 /sys/bus/pci/drivers/kvo/0000:03:00.1\n");
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(bed.conf().value_or("<none>"), "kvo0-x=1\n");
    struct stat sb;
    EXPECT_EQ(stat((bed.root() + "/sys/kernel/debug/kvo").c_str(), &sb), 0);
    EXPECT_EQ(bed.run({"/bin/rm", "/etc/kvo.conf"}).status, 0);
    EXPECT_FALSE(bed.conf().has_value());
    EXPECT_EQ(bed.probe({"lsat", "/sys/class/fc_host/host7"}).out, kNoEnt + "openat\n");
}

TEST(SimBed, DebugfsMountIsANoOpAndOtherMountsAreRefused) {
    Bed bed = Bed::preset("fc");
    EXPECT_EQ(bed.probe({"mount"}).out, "rc=0\n");
    Result sh = bed.run({"/bin/sh", "-c", "mount -t debugfs debugfs /sys/kernel/debug/ 2>/dev/null; echo $?"});
    EXPECT_EQ(sh.out, "0\n");
    Result other = bed.run({"/bin/sh", "-c", "mount -t tmpfs none /tmp/qmx-never 2>/dev/null; echo $?"});
    EXPECT_NE(other.out, "0\n");
}

TEST(SimBed, DirectoryListingsComeSortedByName) {
    Bed bed = Bed::preset("fc");
    const std::string d = bed.root() + "/sys/class/scsi_device";
    for (const char* n : {"2:0:0:0", "10:0:1:0", "1:0:0:7", "1:0:0:10"}) ASSERT_EQ(mkdir((d + "/" + n).c_str(), 0755), 0);
    EXPECT_EQ(bed.probe({"ls", "/sys/class/scsi_device"}).out, "10:0:1:0\n1:0:0:10\n1:0:0:7\n2:0:0:0\n");
    // Walks through openat and fdopendir (as libstdc++ makes them) are sorted too.
    EXPECT_EQ(bed.probe({"lsat", "/sys/class/scsi_device"}).out, "10:0:1:0\n1:0:0:10\n1:0:0:7\n2:0:0:0\n");
    EXPECT_EQ(bed.probe({"scandir", "/sys/class/scsi_host"}).out, "host5\nhost6\n");
    EXPECT_EQ(bed.probe({"scandir", "/sys/class/scsi_host/host9"}).out, kNoEnt + "scandir\n");
    EXPECT_EQ(bed.probe({"ls", "/sys/bus/pci/drivers/kvo"}).out,
              "0000:03:00.0\n0000:03:00.1\nbind\nmodule\nnew_id\nremove_id\nuevent\nunbind\n");
}

TEST(SimBed, RequestFaultsFireTheirCountAcrossProcessesThenClear) {
    Bed bed = Bed::preset("fc");
    bed.fault({"request", "IOC_GET_INFO", "errno", "EIO", "times", "2"});
    bed.fault({"request", "KVO_IOCMD_IOC_GET_ATTR", "status", "83", "instance", "1"});
    EXPECT_EQ(bed.probe({"info", "/dev/kvo", "0"}).out, "rc=-1 errno=5 (Input/output error) ioctl\n");
    EXPECT_EQ(bed.probe({"info", "/dev/bsg/fc_host6", "1"}).out, "rc=-1 errno=5 (Input/output error) ioctl\n");
    EXPECT_EQ(value(bed.probe({"info", "/dev/kvo", "0"}), "rc"), "0 status=0 kvod=0");
    // The status rule is limited to instance 1 and has no count.
    EXPECT_EQ(value(bed.probe({"attr", "/dev/kvo", "0"}), "rc"), "0 status=0 kvod=0");
    EXPECT_EQ(value(bed.probe({"attr", "/dev/kvo", "1"}), "rc"), "0 status=83 kvod=1");
    EXPECT_EQ(value(bed.probe({"attr", "/dev/kvo", "1"}), "rc"), "0 status=83 kvod=1");
    std::vector<std::string> log = bed.log();
    ASSERT_EQ(log.size(), 6u);
    EXPECT_EQ(log[0], "ioctl /dev/kvo IOC_GET_INFO kvod=0 -> errno=EIO (fault)");
    EXPECT_EQ(log[1], "bsg /dev/bsg/fc_host6 IOC_GET_INFO vcmd=4 kvod=1 -> errno=EIO (fault)");
    EXPECT_EQ(log[4], "ioctl /dev/kvo IOC_GET_ATTR kvod=1 -> status=83 (fault)");
    Result list = bed.kvosim("fault", {"list"});
    EXPECT_EQ(list.out, "request IOC_GET_ATTR status 83 instance 1\n");
    bed.clear_faults();
    EXPECT_EQ(value(bed.probe({"attr", "/dev/kvo", "1"}), "rc"), "0 status=0 kvod=1");
    EXPECT_TRUE(bed.log_clean());
}

TEST(SimBed, BrokenRepliesComeAfterTheSkippedRequests) {
    Bed bed = Bed::preset("fc");
    bed.fault({"request", "IOC_GET_INFO", "reply", "short", "skip", "1", "times", "1"});
    bed.fault({"request", "IOC_GET_ATTR", "reply", "garbage", "instance", "1"});
    expect_values(bed.probe({"info", "/dev/bsg/fc_host5", "0"}), {{"serial", "TVF2319K01A"}, {"din_resid", "0"}});
    // Only the status word comes back; the bsg reply says so, the record keeps what was sent.
    expect_values(bed.probe({"info", "/dev/bsg/fc_host5", "0"}),
                  {{"rc", "0 status=0 kvod=0"}, {"reply_len", "4"}, {"din_resid", "524"}, {"serial", ""}});
    EXPECT_EQ(value(bed.probe({"info", "/dev/bsg/fc_host5", "0"}), "serial"), "TVF2319K01A");
    // Every byte after kvod_num set: the counts at their maximum, text without an end.
    expect_values(bed.probe({"attr", "/dev/kvo", "1"}),
                  {{"rc", "0 status=0 kvod=1"}, {"nports", "255"}, {"device_id", "0xffff"}});
    EXPECT_EQ(value(bed.probe({"attr", "/dev/kvo", "0"}), "device_id"), "0x0022");
    EXPECT_EQ(bed.kvosim("fault", {"list"}).out, "request IOC_GET_ATTR reply garbage instance 1\n");
    const std::vector<std::string> log = bed.log();
    ASSERT_EQ(log.size(), 5u);
    EXPECT_EQ(log[1], "bsg /dev/bsg/fc_host5 IOC_GET_INFO vcmd=4 kvod=0 -> status=0 (fault: short reply, 4 of 528 bytes)");
    EXPECT_EQ(log[3], "ioctl /dev/kvo IOC_GET_ATTR kvod=1 -> status=0 (fault: garbage reply)");
    EXPECT_TRUE(bed.log_clean());
}

TEST(SimBed, FaultCountsHoldUnderParallelProcesses) {
    Bed bed = Bed::preset("demo");
    bed.fault({"request", hex(KVO_IOCMD_IOC_GET_INFO), "errno", "ENODEV", "times", "30"});
    Result a, b;
    std::thread t1([&] { a = bed.probe({"threads", "4", "/dev/kvo", "0"}); });
    std::thread t2([&] { b = bed.probe({"threads", "4", "/dev/tqe", "1"}); });
    t1.join();
    t2.join();
    auto failures = [](const Result& r) {
        size_t at = r.out.find("failed=");
        return at == std::string::npos ? -1 : std::atoi(r.out.c_str() + at + 7);
    };
    EXPECT_EQ(failures(a) + failures(b), 30) << a.out << b.out;
    EXPECT_EQ(bed.log().size(), 160u);
    EXPECT_EQ(bed.state()["faults"].size(), 0u);
}

TEST(SimBed, OpenMissingAndNoHostFaults) {
    Bed bed = Bed::preset("fc");
    bed.fault({"open", "/dev/kvo", "errno", "EBUSY", "times", "1"});
    EXPECT_EQ(bed.probe({"open", "/dev/kvo"}).out, "rc=-1 errno=16 (Device or resource busy) open\n");
    EXPECT_EQ(bed.probe({"open", "/dev/kvo"}).out, "rc=0\n");
    EXPECT_EQ(bed.log().front(), "open /dev/kvo -> errno=EBUSY (fault)");

    bed.fault({"missing", "/sys/class/fc_host/host5/port_name"});
    EXPECT_EQ(bed.probe({"cat", "/sys/class/fc_host/host5/port_name"}).out, kNoEnt + "fopen\n");
    // The host entry goes from sysfs (the driver's instances stay, see test_sim_kernel.cpp).
    bed.fault({"nohost", "0000:03:00.0"});
    EXPECT_EQ(bed.probe({"ls", "/sys/bus/pci/drivers/kvo/0000:03:00.0"}).out.find("host"), std::string::npos);

    bed.clear_faults();
    bed.clear_log();
    EXPECT_EQ(bed.probe({"cat", "/sys/class/fc_host/host5/port_name"}).out, "0x100000e1f2001000\n");
    EXPECT_NE(bed.probe({"ls", "/sys/bus/pci/drivers/kvo/0000:03:00.0"}).out.find("host5\n"), std::string::npos);
    EXPECT_TRUE(bed.log_clean());
}

TEST(SimBed, FaultRulesAreCheckedWhenGiven) {
    Bed bed = Bed::preset("fc");
    const std::vector<std::vector<std::string>> refused = {
        {"request", "NO_SUCH_CODE", "errno", "EIO"},
        {"request", "0xC0084399", "errno", "EIO"},
        {"request", "IOC_GET_INFO"},
        {"request", "IOC_GET_INFO", "errno", "ENOTANERRNO"},
        {"request", "IOC_GET_INFO", "status", "-1"},
        {"request", "IOC_GET_INFO", "errno", "EIO", "times", "0"},
        {"request", "IOC_GET_INFO", "errno", "EIO", "instance"},
        {"request", "IOC_GET_INFO", "reply", "late"},
        {"request", "IOC_GET_INFO", "reply", "short", "skip", "-1"},
        {"open", "/home/user/file"},
        {"missing", "/sys/devices"},
        {"nohost", "0000:09:00.0"},
        {"explode"},
    };
    for (const auto& rule : refused) {
        Result r = bed.kvosim("fault", rule);
        EXPECT_EQ(r.status, 2) << rule[0] << " " << (rule.size() > 1 ? rule[1] : "");
        EXPECT_EQ(r.err.rfind("kvosim: fault ", 0), 0u) << r.err;
    }
    EXPECT_EQ(bed.state()["faults"].size(), 0u);
}

TEST(SimBed, HostDescriptionsAreValidated) {
    struct Case {
        std::string json;
        std::string message;
    };
    const std::vector<Case> cases = {
        {"[1]", "host: must be an object"},
        {R"({"adapters": [{"serial": "TOO-LONG-SERIAL", "ports": [{"functions": [{"pci": "0000:01:00.0"}]}]}]})",
         "adapters[0].serial: longer than 11 characters"},
        {R"({"adapters": [{"serial": "A1", "ports": [{"functions": [{"pci": "0000:01:00.0"}, {"pci": "0000:01:00.0"}]}]}]})",
         "adapters[0].ports[0].functions[1].pci: duplicate PCI address"},
        {R"({"adapters": [{"serial": "A1", "ports": [{"functions": [{"pci": "0000:1:00.0"}]}]}]})",
         "adapters[0].ports[0].functions[0].pci: must be a PCI address like 0000:03:00.0"},
        {R"({"adapters": [{"serial": "A1", "ports": [{"functions": [{"pci": "0000:01:00.0", "driver": "tqe", "ioc_type": "FC"}]}]}]})",
         "adapters[0].ports[0].functions[0].ioc_type: a tqe function is Ethernet"},
        {R"({"adapters": [{"serial": "A1", "ports": [{"functions": [{"pci": "0000:01:00.0", "pwwn": "10:00"}]}]}]})",
         "adapters[0].ports[0].functions[0].pwwn: must be a WWN like \"20:00:00:11:22:33:44:55\""},
        {R"({"adapters": [{"serial": "A1", "ports": [{"functions": [{"pci": "0000:01:00.0", "host": 2},
            {"pci": "0000:01:00.1", "host": 2}]}]}]})",
         "adapters[0].ports[0].functions[1].host: duplicate SCSI host number"},
        {R"({"adapters": [{"serial": "A1", "ports": []}]})", "adapters[0].ports: an adapter has at least one port"},
        {R"({"adapters": [{"serial": "A1", "ports": [{"functions": [{"pci": "0000:01:00.0", "rports": [
            {"pwwn": "50:00:00:00:00:00:00:01", "luns": [{"lun": 1}, {"lun": 1}]}]}]}]}]})",
         "adapters[0].ports[0].functions[0].rports[0].luns[1]: duplicate LUN"},
        {"{not json", ""},
    };
    for (const Case& c : cases) {
        char tmpl[] = "/tmp/qmx-host-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        const std::string top = tmpl;
        ASSERT_TRUE(scen::write_text(top + "/host.json", c.json));
        Result r = scen::run_process({scen::kvosim_bin(), "create", top + "/bed", "--host", top + "/host.json"});
        EXPECT_EQ(r.status, 1) << c.json;
        EXPECT_EQ(r.err.rfind("kvosim: " + top + "/host.json: " + c.message, 0), 0u) << r.err;
        struct stat sb;
        EXPECT_NE(stat((top + "/bed/state.json").c_str(), &sb), 0);
        scen::run_process({"/bin/rm", "-rf", top});
    }
}

TEST(SimBed, HostDescriptionSuppliesConfigurationAndDefaults) {
    Bed bed = Bed::from_json(R"({"kvo_conf": "kvo0-path_tov=30\n", "adapters": [{"serial": "TVQ1",
        "ports": [{"pwwn": "10:00:00:e1:f2:aa:00:00", "mac": "02:00:00:00:00:01",
                   "functions": [{"pci": "0000:0a:00.1", "driver": "tqe"}, {"pci": "0000:0a:00.0"}]}]}]})");
    EXPECT_EQ(bed.conf().value_or("<none>"), "kvo0-path_tov=30\n");
    // Unnamed interfaces and host numbers are given in order; the adapter is named by its
    // first function.
    expect_values(bed.probe({"info", "/dev/tqe", "0"}),
                  {{"eth_name", "eth0"}, {"current_mac", "02:00:00:00:00:01"}, {"adapter_hwpath", "0000:0a:00.1"}});
    expect_values(bed.probe({"info", "/dev/bsg/fc_host1", "0"}),
                  {{"pwwn", "10:00:00:e1:f2:aa:00:00"}, {"factorypwwn", "10:00:00:e1:f2:aa:00:00"}});
    EXPECT_TRUE(bed.log_clean());
}

TEST(SimBed, EthtoolFlashesFirmwareAndReadsAndWritesTheFlashImage) {
    Bed bed = Bed::preset("demo");
    const std::string magic = hex(0x14u << 16 | 0xE1F2u);
    ASSERT_EQ(bed.probe({"write", "/lib/firmware/2-tqe_tmpfw_e1f2.bin", "NEWFIRMWARE"}).out, "rc=0\n");
    EXPECT_EQ(bed.probe({"ethtool", "eth1", "flashdev", "2-tqe_tmpfw_e1f2.bin"}).out, "rc=0\n");
    // The firmware partition sits after the 64 KiB boot partition.
    EXPECT_EQ(value(bed.probe({"ethtool", "eth1", "geeprom", magic, "0x10000", "12"}), "rc"),
              "0 data=4e45574649524d5741524500");
    EXPECT_EQ(bed.log(), (std::vector<std::string>{
                             "ethtool eth1 FLASHDEV file=2-tqe_tmpfw_e1f2.bin region=2 -> ok (11 bytes)",
                             "tqe eth1 get_eeprom offset=0x10000 len=12 -> ok",
                             "ethtool eth1 GEEPROM offset=0x10000 len=12 -> ok"}));
    // The flash table records the new length (EEPROM writes: test_sim_kernel.cpp).
    int firmware = 0;
    const nlohmann::json st = bed.state();
    for (const auto& p : st["adapters"][1]["flash"]["partitions"])
        if (p["type"] == 2) {
            EXPECT_EQ(p["len"], 11);
            firmware++;
        }
    EXPECT_EQ(firmware, 1);
    EXPECT_TRUE(bed.log_clean());

    bed.clear_log();
    EXPECT_EQ(bed.probe({"ethtool", "eth0", "geeprom", "0x12345678", "0", "4"}).out,
              "rc=-1 errno=22 (Invalid argument) SIOCETHTOOL\nreply=magic 0x12345678 offset 0x0 len 0\n");
    EXPECT_EQ(bed.probe({"ethtool", "eth0", "flashdev", "2-tqe_tmpfw_e1f2.bin", "1"}).status, 1);
    EXPECT_EQ(bed.probe({"ethtool", "eth0", "flashdev", "missing.bin"}).out,
              "rc=-1 errno=2 (No such file or directory) SIOCETHTOOL\n");
    EXPECT_EQ(bed.log(), (std::vector<std::string>{
                             "BAD tqe eth0 get_eeprom offset=0x0 len=4: magic 0x12345678, expected 0x0014E1F2",
                             "ethtool eth0 GEEPROM offset=0x0 len=4 -> errno=EINVAL (magic 0x12345678, expected 0x0014E1F2)",
                             "BAD ethtool eth0 FLASHDEV: region 1, expected 2 (firmware)",
                             "ethtool eth0 FLASHDEV file=missing.bin region=2 -> errno=ENOENT"}));
}

TEST(SimBed, RunPassesStdioAndExitStatusThrough) {
    Bed bed = Bed::preset("empty");
    Result r = bed.run({"/bin/sh", "-c", "cat; echo oops >&2; exit 7"}, "line one\nline two\n");
    EXPECT_EQ(r.status, 7);
    EXPECT_EQ(r.out, "line one\nline two\n");
    EXPECT_EQ(r.err, "oops\n");
    Result missing = scen::run_process({scen::kvosim_bin(), "run", bed.dir() + "/nope", "--", "/bin/true"});
    EXPECT_EQ(missing.status, 1);
}

TEST(SimBed, QmxScansEveryPresetWithoutBadRequests) {
    struct Case {
        const char* preset;
        size_t adapters;
    };
    for (const Case& c : {Case{"fc", 1}, Case{"demo", 2}, Case{"large", 16}}) {
        Bed bed = Bed::preset(c.preset);
        Result r = bed.qmx({"adapter", "--count"});
        EXPECT_EQ(r.status, 0) << c.preset << r.err;
        EXPECT_EQ(r.out, std::to_string(c.adapters) + "\n") << c.preset;
        EXPECT_TRUE(bed.log_clean()) << c.preset;
    }
}

TEST(SimBed, SleepsAdvanceTheIoClockOnABedThatSaysSo) {
    Bed bed = Bed::preset("fc");
    auto clock_lines = [&] {
        std::vector<std::string> out;
        for (const std::string& l : bed.log())
            if (l.rfind("sleep ", 0) == 0) out.push_back(l);
        return out;
    };
    // A real bed sleeps for real and leaves the clock alone.
    EXPECT_EQ(bed.run({"/bin/sleep", "0.1"}).status, 0);
    EXPECT_TRUE(clock_lines().empty());
    ASSERT_EQ(bed.kvosim("sleep", {"io_clock"}).status, 0);
    // sleep(1) takes nanosleep or clock_nanosleep: an hour passes at once; the clock counts
    // whole seconds (2.2 here).
    EXPECT_EQ(bed.run({"/bin/sleep", "3600"}).status, 0);
    EXPECT_EQ(bed.run({"/bin/sleep", "0.5", "1.7"}).status, 0);
    EXPECT_EQ(clock_lines(), (std::vector<std::string>{"sleep 3600 s -> io_clock=3600", "sleep 2 s -> io_clock=3602"}));
    EXPECT_EQ(bed.state()["ext"]["io_clock"], 3602);
    EXPECT_NE(bed.kvosim("sleep", {"sometimes"}).status, 0);
}
