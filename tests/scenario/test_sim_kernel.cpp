// The emulated kernel between qmx and the emulated drivers: nothing reaches a device or network
// interface of the machine, sysfs lists in hash order on request, drivers number instances in
// PCI order and serve a bsg node for its own function, and ethtool EEPROM transfers reach the
// driver page by page.
#include <string>
#include <vector>

#include "harness.h"
#include "kvo_ioctl.h"
#include "test_adapter_hosts.h"

using scen::Bed;
using scen::Result;
using scen::hex;
using scen::lines_with;
using scen::prints;
using scen::value;
using strings = std::vector<std::string>;

namespace {

const std::string kRefused = "rc=-1 errno=19 (No such device) ";
const std::string kMagic = hex(0x14u << 16 | 0xE1F2u);  // the EEPROM magic of the tqe driver

// kFourAdapters on a bed whose sysfs lists in hash order. The kvo directory then lists
// 03:00.0, 05:00.3, 03:00.1, 05:00.2, 04:00.0 (the tqe one 05:00.1, 06:00.0, 05:00.0).
std::string four_adapters_hashed() {
    std::string host = adtest::kFourAdapters;
    host.insert(host.find('{') + 1, R"("sysfs_order": "hash",)");
    return host;
}

// The log lines that start with this text.
strings log_starting(const Bed& bed, const std::string& head) {
    strings out;
    for (const std::string& l : bed.log())
        if (l.rfind(head, 0) == 0) out.push_back(l);
    return out;
}

std::string to_hex(const std::string& bytes) {
    std::string out;
    char b[4];
    for (unsigned char c : bytes) {
        snprintf(b, sizeof b, "%02x", c);
        out += b;
    }
    return out;
}

// Bytes [off, off + len) of an adapter's flash image, as hex.
std::string image_hex(const Bed& bed, const std::string& serial, size_t off, size_t len) {
    const std::string img = scen::read_text(bed.dir() + "/flash/" + serial + ".bin").value_or("");
    return to_hex(off < img.size() ? img.substr(off, len) : "");
}

// The probe's test pattern (seeprom @N), as hex.
std::string pattern_hex(size_t n) {
    std::string p;
    for (size_t i = 0; i < n; i++) p += static_cast<char>((i * 37 + 11) & 0xFF);
    return to_hex(p);
}

uint32_t asic_offset(const Bed& bed, const std::string& serial) {
    const nlohmann::json a = adtest::adapter_state(bed, serial);
    for (const auto& p : a["flash"]["partitions"])
        if (p["type"] == adtest::kAsicPart) return p["offset"].get<uint32_t>();
    ADD_FAILURE() << "no ASIC partition";
    return 0;
}

}  // namespace

// ---- Nothing reaches the machine ----------------------------------------------------------------

TEST(SimHostGuard, InterfaceRequestsForInterfacesTheBedLacksAreRefusedAndLogged) {
    Bed bed = Bed::preset("demo");  // eth0 and eth1 are the bed's, lo is the machine's
    struct Case {
        strings args;
        std::string out;
        std::string log;  // "" when nothing is logged
    };
    const std::vector<Case> cases = {
        {{"ethtool", "lo", "geeprom", kMagic, "0", "4"}, kRefused + "SIOCETHTOOL\nreply=magic 0x0014E1F2 offset 0x0 len 4\n",
         "BAD host lo SIOCETHTOOL -> errno=ENODEV (not an interface of the bed)"},
        {{"ethtool", "eth2", "flashdev", "x.bin"}, kRefused + "SIOCETHTOOL\n",
         "BAD host eth2 SIOCETHTOOL -> errno=ENODEV (not an interface of the bed)"},
        {{"ifioctl", "lo", "0x8933"}, kRefused + "ioctl\n", "BAD host lo ioctl 0x8933 -> errno=ENODEV (not an interface of the bed)"},
        {{"ifioctl", "", "0x8912"}, kRefused + "ioctl\n",
         "BAD host socket ioctl 0x8912 -> errno=ENODEV (network configuration of the machine)"},
        // The first and last requests of the network device range.
        {{"ifioctl", "lo", "0x890B"}, kRefused + "ioctl\n", "BAD host lo ioctl 0x890b -> errno=ENODEV (not an interface of the bed)"},
        {{"ifioctl", "lo", "0x89FF"}, kRefused + "ioctl\n", "BAD host lo ioctl 0x89ff -> errno=ENODEV (not an interface of the bed)"},
        // An interface of the bed, but a request no emulated driver answers.
        {{"ifioctl", "eth0", "0x8933"}, "rc=-1 errno=95 (Operation not supported) ioctl\n",
         "UNHANDLED net eth0 ioctl 0x8933 -> errno=EOPNOTSUPP"},
    };
    for (const Case& c : cases) {
        bed.clear_log();
        EXPECT_EQ(bed.probe(c.args).out, c.out) << c.log;
        EXPECT_EQ(bed.log(), strings{c.log});
        EXPECT_FALSE(bed.log_clean()) << c.log;
    }
}

TEST(SimHostGuard, DevicesOfTheMachineAreRefusedButTheProcesssOwnFilesAreNot) {
    Bed bed = Bed::preset("fc");
    // A character device of the machine.
    EXPECT_EQ(bed.probe({"devioctl", "/dev/urandom", "0x80045200"}).out, kRefused + "ioctl\n");
    EXPECT_EQ(bed.log(),
              strings{"BAD host /dev/urandom ioctl 0x80045200 -> errno=ENODEV (a device of the machine, not of the bed)"});
    EXPECT_FALSE(bed.log_clean());

    // The null device, the probe's own standard input (a pipe) and a regular file: the real
    // kernel answers, nothing is logged.
    bed.clear_log();
    EXPECT_EQ(bed.probe({"devioctl", "/dev/null", "0x541B"}).out, "rc=-1 errno=25 (Inappropriate ioctl for device) ioctl\n");
    EXPECT_EQ(bed.probe({"fdioctl", "0", "0x541B"}).out, "rc=0\n");
    ASSERT_TRUE(scen::write_text(bed.dir() + "/plain", "x"));
    EXPECT_EQ(bed.probe({"devioctl", bed.dir() + "/plain", "0x541B"}).out, "rc=0\n");
    // Just outside the network device range: a socket's own request passes.
    bed.probe({"ifioctl", "lo", "0x890A"});
    bed.probe({"ifioctl", "lo", "0x894C"});
    EXPECT_EQ(bed.probe({"ifioctl", "lo", "0x541B"}).out, "rc=0\n");
    EXPECT_TRUE(bed.log().empty());
    // (A whole qmx run with Ethernet flash traffic: QmxFlashTransfersReachTheDriverPageByPage.)
}

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
    EXPECT_TRUE(scen::fails(bad, 1, "kvosim: --sysfs-order: \"random\" is neither sorted nor hash\n"));
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
    const std::pair<std::string, strings> drivers[] = {
        {"/dev/kvo", {"0000:03:00.0", "0000:03:00.1", "0000:04:00.0", "0000:05:00.2", "0000:05:00.3"}},
        {"/dev/tqe", {"0000:05:00.0", "0000:05:00.1", "0000:06:00.0"}}};
    for (const auto& [node, fns] : drivers) {
        for (size_t i = 0; i < fns.size(); i++)
            EXPECT_EQ(value(bed.probe({"info", node, std::to_string(i)}), "hwpath"), fns[i]) << node << " " << i;
        // One past the last instance of each driver names nothing.
        EXPECT_EQ(bed.probe({"info", node, std::to_string(fns.size())}).out, "rc=-1 errno=22 (Invalid argument) ioctl\n");
    }

    // A function the driver could not attach registered no SCSI host: it has no host entry,
    // no transport node and no instance; the functions after it take the numbers.
    Bed fc = Bed::preset("fc");
    fc.fault({"nohost", "0000:03:00.0"});
    EXPECT_EQ(value(fc.probe({"info", "/dev/kvo", "0"}), "hwpath"), "0000:03:00.1");
    EXPECT_EQ(fc.probe({"info", "/dev/kvo", "1"}).out, "rc=-1 errno=22 (Invalid argument) ioctl\n");
    EXPECT_EQ(value(fc.probe({"info", "/dev/bsg/fc_host6", "0"}), "hwpath"), "0000:03:00.1");
    EXPECT_EQ(fc.probe({"info", "/dev/bsg/fc_host5", "0"}).out.rfind("rc=-1 errno=2 ", 0), 0u);
    fc.clear_log();
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

// ---- ethtool EEPROM in pages --------------------------------------------------------------------

TEST(SimEthtoolEeprom, QmxFlashTransfersReachTheDriverPageByPage) {
    Bed bed = Bed::from_json(adtest::kFourAdapters);
    const uint32_t asic = asic_offset(bed, "TVN4000004");
    ASSERT_TRUE(prints(bed.qmx({"adapter", "--autostart", "TVN4000004", "on"}),
                       "Successfully enabled the adapter auto start capability\n"));
    // The 64 KiB read: sixteen pages at advancing offsets.
    const strings got_reads = log_starting(bed, "tqe eth2 get_eeprom ");
    ASSERT_EQ(got_reads.size(), 16u);
    for (uint32_t i = 0; i < 16; i++)
        EXPECT_EQ(got_reads[i], "tqe eth2 get_eeprom offset=" + hex(asic + i * 4096) + " len=4096 -> ok");
    // The write is four bytes longer (the length word ahead of the partition): sixteen full
    // pages and a last piece of four bytes, which completes the partition.
    const strings got_writes = log_starting(bed, "tqe eth2 set_eeprom ");
    ASSERT_EQ(got_writes.size(), 17u);
    for (uint32_t i = 0; i < 16; i++)
        EXPECT_EQ(got_writes[i], "tqe eth2 set_eeprom offset=" + hex(asic - 4 + i * 4096) + " len=4096 -> ok");
    EXPECT_EQ(got_writes[16], "tqe eth2 set_eeprom offset=" + hex(asic + 0xFFFC) +
                                  " len=4 -> ok (65536 bytes to partition type 6)");
    EXPECT_EQ(log_starting(bed, "ethtool eth2 "),
              (strings{"ethtool eth2 GEEPROM offset=" + hex(asic) + " len=65536 -> ok",
                       "ethtool eth2 SEEPROM offset=" + hex(asic - 4) + " len=65540 -> ok (65536 bytes to partition type 6)"}));
    // The bytes came out right: the start bit is set and the rest is what was read.
    const std::string part = adtest::flash_part(bed, "TVN4000004", adtest::kAsicPart).value_or("");
    ASSERT_EQ(part.size(), 0x10000u);
    EXPECT_EQ(part.substr(0, 4), "TVAS");
    EXPECT_EQ(part[28], 0x04);
    const nlohmann::json a = adtest::adapter_state(bed, "TVN4000004");
    for (const auto& p : a["flash"]["partitions"])
        if (p["type"] == adtest::kAsicPart) {
            EXPECT_EQ(p["len"], 0x10000);
        }
    EXPECT_TRUE(bed.log_clean());
}

TEST(SimEthtoolEeprom, ReadsArePagedCopiedOutAndReportedBack) {
    Bed bed = Bed::preset("demo");  // eth0: the CNA, 4 MiB of flash
    const uint32_t at = 0x1C0000 - 100;  // straddles the end of one partition
    Result r = bed.probe({"ethtool", "eth0", "geeprom", kMagic, hex(at), "5000"});
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(value(r, "rc"), "0 data=" + image_hex(bed, "TVC2320M11C", at, 5000));
    EXPECT_EQ(value(r, "reply"), "magic 0x0014E1F2 offset " + hex(at) + " len 5000");
    EXPECT_EQ(log_starting(bed, "tqe eth0 "),
              (strings{"tqe eth0 get_eeprom offset=" + hex(at) + " len=4096 -> ok",
                       "tqe eth0 get_eeprom offset=" + hex(at + 4096) + " len=904 -> ok"}));

    // When the caller's buffer ends after the first page, the second cannot be copied out:
    // EFAULT, and the request reports the one page that was done.
    bed.clear_log();
    Result cut = bed.probe({"ethtool", "eth0", "geeprom", kMagic, hex(at), "5000", "4096"});
    EXPECT_EQ(cut.out, "rc=-1 errno=14 (Bad address) SIOCETHTOOL\nreply=magic 0x0014E1F2 offset " + hex(at) +
                           " len 4096\n");
    EXPECT_EQ(bed.log().back(), "ethtool eth0 GEEPROM offset=" + hex(at) + " len=5000 -> errno=EFAULT");
    EXPECT_EQ(log_starting(bed, "tqe eth0 ").size(), 2u);  // the driver read both pages
}

TEST(SimEthtoolEeprom, RangesTheKernelRefusesNeverReachTheDriver) {
    Bed bed = Bed::preset("demo");
    struct Case {
        std::string offset, len;
        std::string why;  // "" when the read is answered
    };
    const std::vector<Case> cases = {
        {"0x3FFFFC", "4", ""},  // ends exactly at the end of the 4 MiB EEPROM
        {"0x3FFFFD", "4", "beyond the EEPROM (4194304 bytes)"},
        {"0x0", "4194305", "beyond the EEPROM (4194304 bytes)"},
        {"0x10", "0", "empty or wrapping range"},
        {"0xFFFFFFFF", "2", "empty or wrapping range"},
        {"0xFFFFF000", "8192", "empty or wrapping range"},
    };
    for (const Case& c : cases) {
        bed.clear_log();
        Result r = bed.probe({"ethtool", "eth0", "geeprom", kMagic, c.offset, c.len});
        const std::string what = "offset=" + hex(static_cast<uint32_t>(std::stoul(c.offset, nullptr, 16))) + " len=" + c.len;
        if (c.why.empty()) {
            EXPECT_EQ(r.status, 0) << what;
            EXPECT_EQ(bed.log(), (strings{"tqe eth0 get_eeprom " + what + " -> ok", "ethtool eth0 GEEPROM " + what + " -> ok"}));
            continue;
        }
        EXPECT_EQ(r.out.substr(0, r.out.find('\n')), "rc=-1 errno=22 (Invalid argument) SIOCETHTOOL") << what;
        EXPECT_EQ(bed.log(), strings{"BAD ethtool eth0 GEEPROM: " + what + ": " + c.why});
    }
    // Writes are checked the same way before any piece is written.
    bed.clear_log();
    EXPECT_EQ(bed.probe({"ethtool", "eth0", "seeprom", kMagic, "0x3FFFFC", "01"}).status, 1);
    EXPECT_EQ(bed.log(), strings{"BAD ethtool eth0 SEEPROM: offset=0x3FFFFC len=5: beyond the EEPROM (4194304 bytes)"});
}

TEST(SimEthtoolEeprom, WritesInSeveralPiecesLandWhereTheLengthWordSays) {
    Bed bed = Bed::preset("demo");
    const uint32_t asic = 0x1C0000;
    // 9000 bytes of image: pieces of 4096 (word and 4092 bytes), 4096 and 812.
    ASSERT_EQ(bed.probe({"ethtool", "eth0", "seeprom", kMagic, hex(asic - 4), "@9000"}).out, "rc=0\n");
    EXPECT_EQ(log_starting(bed, "tqe eth0 "),
              (strings{"tqe eth0 set_eeprom offset=" + hex(asic - 4) + " len=4096 -> ok",
                       "tqe eth0 set_eeprom offset=" + hex(asic + 4092) + " len=4096 -> ok",
                       "tqe eth0 set_eeprom offset=" + hex(asic + 8188) + " len=812 -> ok (9000 bytes to partition type 6)"}));
    EXPECT_EQ(image_hex(bed, "TVC2320M11C", asic, 9000), pattern_hex(9000));
    EXPECT_EQ(image_hex(bed, "TVC2320M11C", asic + 9000, 4), "00000000");  // the rest is erased
    EXPECT_EQ(image_hex(bed, "TVC2320M11C", asic - 4, 4), "00000000");     // the word is not data
    EXPECT_TRUE(bed.log_clean());

    // A length word that promises more than comes, or less than the first piece brings.
    bed.clear_log();
    EXPECT_EQ(bed.probe({"ethtool", "eth0", "seeprom", kMagic, hex(asic - 4), "@5000", "6000"}).out, "rc=0\n");
    EXPECT_EQ(lines_with(scen::read_text(bed.dir() + "/log").value_or(""), "BAD"),
              strings{"BAD ethtool eth0 SEEPROM: offset=" + hex(asic - 4) +
                      " len=5004: length word 6000, but the image ended after 5000 bytes"});
    bed.clear_log();
    EXPECT_EQ(bed.probe({"ethtool", "eth0", "seeprom", kMagic, hex(asic - 4), "@5000", "100"}).out,
              "rc=-1 errno=22 (Invalid argument) SIOCETHTOOL\n");
    EXPECT_EQ(bed.log().front(), "BAD tqe eth0 set_eeprom offset=" + hex(asic - 4) +
                                     " len=4096: length word 100, but 4092 image bytes follow in the first piece");
    // A length word larger than the partition is refused by the driver on the first piece.
    bed.clear_log();
    EXPECT_EQ(bed.probe({"ethtool", "eth0", "seeprom", kMagic, hex(asic - 4), "@16", "65537"}).out,
              "rc=-1 errno=27 (File too large) SIOCETHTOOL\n");
    EXPECT_EQ(bed.log().back(), "ethtool eth0 SEEPROM offset=" + hex(asic - 4) +
                                    " len=20 -> errno=EFBIG (write of 65537 bytes into a partition of 65536)");
}
