// Beds whose SCSI side is the real kernel's: the model built from a kernel's sysfs (here a
// hand-made tree laid out as the kernel lays it out), and what such a sysfs may hold that the
// model cannot stand for.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "kernel_scsi.h"
#include "presets.h"

namespace {

namespace fs = std::filesystem;
using kvosim::Function;
using kvosim::Host;

class FakeSysfs {
public:
    FakeSysfs() {
        char tmpl[] = "/tmp/kvosim-sysfs-XXXXXX";
        dir_ = mkdtemp(tmpl);
    }
    ~FakeSysfs() { fs::remove_all(dir_); }
    void host(int n, const std::string& proc_name) {
        write("class/scsi_host/host" + std::to_string(n) + "/proc_name", proc_name + "\n");
    }
    // A scsi_device as the kernel shows it: blank-padded INQUIRY names.
    void device(const std::string& hctl, const std::string& type = "0") {
        const std::string d = "bus/scsi/devices/" + hctl + "/";
        write(d + "type", type + "\n");
        write(d + "vendor", "Linux   \n");
        write(d + "model", "scsi_debug      \n");
        write(d + "rev", "0191\n");
    }
    void entry(const std::string& rel) { fs::create_directories(dir_ + "/" + rel); }
    const std::string& dir() const { return dir_; }

private:
    void write(const std::string& rel, const std::string& text) {
        fs::create_directories(fs::path(dir_ + "/" + rel).parent_path());
        std::ofstream(dir_ + "/" + rel) << text;
    }
    std::string dir_;
};

Host fc_preset() {
    Host h;
    EXPECT_TRUE(kvosim::make_preset("fc", h));
    return h;
}

Function& fn(Host& h, const std::string& pci) {
    for (kvosim::FnRef r : kvosim::all_functions(h))
        if (r.fn->pci == pci) return *r.fn;
    throw std::runtime_error("no function " + pci);
}

// Target id, then "lun:type" of each of its LUNs.
std::vector<std::string> targets_of(const Function& f) {
    std::vector<std::string> out;
    for (const kvosim::RemotePort& rp : f.rports) {
        std::string s = rp.role + " " + std::to_string(rp.target) + ":";
        for (const kvosim::Lun& l : rp.luns) s += " " + std::to_string(l.lun) + ":" + l.type;
        out.push_back(s);
    }
    return out;
}

TEST(SimKernelScsi, FunctionsTakeTheScsiDebugHostsInProbeOrderWithTheirTargetsAndLuns) {
    FakeSysfs sys;
    // host12 is one more than the model needs: left alone.
    for (auto [n, proc] : {std::pair{0, "ahci"}, {7, "scsi_debug"}, {3, "scsi_debug"}, {12, "scsi_debug"}})
        sys.host(n, proc);
    for (const char* e : {"host0", "host3", "target3:0:0", "target3:0:2", "host7"}) sys.entry("bus/scsi/devices/" + std::string(e));
    // 0:0:0:0 is the machine's own disk; 3:0:0:16385 flat space LUN 1 (lun_format=1).
    for (auto [hctl, type] : {std::pair{"0:0:0:0", "0"}, {"3:0:2:0", "1"}, {"3:0:0:16385", "0"}, {"3:0:0:0", "0"},
                              {"7:0:1:5", "0"}, {"12:0:0:0", "0"}})
        sys.device(hctl, type);
    Host h = fc_preset();
    // The second port's function comes first in PCI probe order.
    h.adapters[0].ports[0].functions[0].pci = "0000:03:00.1";
    h.adapters[0].ports[1].functions[0].pci = "0000:03:00.0";
    kvosim::RemotePort described;  // the kernel's targets take the place of what the description had
    described.pwwn = 0x2100001b32000001ULL;
    fn(h, "0000:03:00.0").rports.push_back(described);

    std::string why;
    ASSERT_TRUE(kvosim::adopt_kernel_scsi(h, sys.dir(), why)) << why;
    EXPECT_TRUE(h.kernel_scsi);
    const Function& f0 = fn(h, "0000:03:00.0");
    const Function& f1 = fn(h, "0000:03:00.1");
    EXPECT_EQ(f0.host, 3);
    EXPECT_EQ(f1.host, 7);
    EXPECT_EQ(targets_of(f0), (std::vector<std::string>{"target 0: 0:disk 1:disk", "target 2: 0:tape"}));
    EXPECT_EQ(targets_of(f1), (std::vector<std::string>{"target 1: 5:disk"}));
    const kvosim::Lun& l = f0.rports[0].luns[1];
    EXPECT_EQ(l.vendor + "|" + l.product + "|" + l.rev, "Linux|scsi_debug|0191");
    // Made-up names, one per target, none the same.
    EXPECT_NE(f0.rports[0].pwwn, f0.rports[1].pwwn);
    EXPECT_NE(f0.rports[0].pwwn, f1.rports[0].pwwn);
    EXPECT_NE(f0.rports[0].pwwn, f0.rports[0].nwwn);

    // Written and read back as the bed keeps it.
    Host back = kvosim::host_from_json(kvosim::host_to_json(h));
    EXPECT_TRUE(back.kernel_scsi);
    EXPECT_EQ(targets_of(fn(back, "0000:03:00.1")), targets_of(f1));
}

TEST(SimKernelScsi, AKernelTheModelCannotStandForIsRefusedWithItsReason) {
    struct Case {
        const char* what;
        std::vector<std::pair<int, const char*>> hosts;
        std::vector<std::pair<const char*, const char*>> devices;  // H:C:T:L, type
        const char* why;
    };
    const Case cases[] = {
        {"fewer hosts than storage functions", {{2, "scsi_debug"}, {3, "ahci"}}, {},
         "the SCSI side is the kernel's, but the kernel has 1 scsi_debug host(s) for 2 storage function(s)"},
        {"no scsi_debug at all", {}, {}, "the SCSI side is the kernel's, but the kernel has 0 scsi_debug host(s) for 2 storage function(s)"},
        {"a channel beyond 0", {{2, "scsi_debug"}, {4, "scsi_debug"}}, {{"4:1:0:0", "0"}},
         "4:1:0:0: channel 1, but the storage driver's hosts have bus 0 only"},
        {"logical unit addressing", {{2, "scsi_debug"}, {4, "scsi_debug"}}, {{"2:0:0:32769", "0"}},
         "2:0:0:32769: LUN 32769 is neither peripheral nor flat-space addressed"},
        {"one LUN in two address methods", {{2, "scsi_debug"}, {4, "scsi_debug"}}, {{"2:0:3:1", "0"}, {"2:0:3:16385", "0"}},
         "2:0:3: LUN 1 both peripheral and flat-space addressed"},
        {"a target id the model cannot hold", {{2, "scsi_debug"}, {4, "scsi_debug"}}, {{"4:0:65536:0", "0"}},
         "4:0:65536:0: target id beyond 65535"},
        {"an unknown device type", {{2, "scsi_debug"}, {4, "scsi_debug"}}, {{"2:0:0:1", "31"}},
         "2:0:0:1/type: \"31\" is not a device type the model knows"},
        {"a type that is no number", {{2, "scsi_debug"}, {4, "scsi_debug"}}, {{"2:0:0:1", "0x"}},
         "2:0:0:1/type: \"0x\" is not a device type the model knows"},
        {"an empty type", {{2, "scsi_debug"}, {4, "scsi_debug"}}, {{"2:0:0:1", ""}},
         "2:0:0:1/type: \"\" is not a device type the model knows"},
    };
    for (const Case& c : cases) {
        FakeSysfs sys;
        for (const auto& [n, proc] : c.hosts) sys.host(n, proc);
        for (const auto& [hctl, type] : c.devices) sys.device(hctl, type);
        Host h = fc_preset();
        std::string why;
        EXPECT_FALSE(kvosim::adopt_kernel_scsi(h, sys.dir(), why)) << c.what;
        EXPECT_EQ(why, c.why) << c.what;
    }
}

TEST(SimKernelScsi, OnlyTheKernelsSpellingOfAScsiDeviceNameIsOne) {
    kvosim::KernelHctl a;
    ASSERT_TRUE(kvosim::parse_hctl("12:0:3:16385", a));
    EXPECT_EQ(std::tuple(a.host, a.channel, a.target, a.lun), std::tuple(12, 0u, 3u, uint64_t{16385}));
    ASSERT_TRUE(kvosim::parse_hctl("0:0:0:18446744073709551615", a));
    EXPECT_EQ(a.lun, UINT64_MAX);
    for (const char* bad : {"", "host3", "target3:0:0", "3:0:0", "3:0:0:1:2", "3:0:0:1x", "03:0:0:1", "3:0:0:-1",
                            "+3:0:0:1", " 3:0:0:1", "3:0:0: 1", "4294967296:0:0:0", "2147483648:0:0:0",
                            "0:0:0:18446744073709551616"})
        EXPECT_FALSE(kvosim::parse_hctl(bad, a)) << '"' << bad << '"';
}

}  // namespace
