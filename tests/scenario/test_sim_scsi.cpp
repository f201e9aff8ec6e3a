// The emulated SCSI side: what standard SCSI tools see on a bed, the targets' answers at their
// boundaries, device removal and rescan through a shell child, and the driver's LUN-mask table.
#include <unistd.h>

#include <string>
#include <vector>

#include "harness.h"

using scen::Bed;
using scen::Result;
using scen::value;

namespace {

bool have(const char* tool) { return access(tool, X_OK) == 0; }

#define NEED(tool)                                                                  \
    if (!have(tool)) GTEST_SKIP() << tool << " is not installed (scripts/setup.sh installs it)"

// One FC function (host 2) with a target (id 1) whose LUNs are given, and an initiator.
std::string host_with(const std::string& luns, const std::string& extra = "") {
    return R"({)" + extra + R"("adapters":[{"serial":"S1","ports":[{"port":0,"pwwn":"10:00:00:00:00:00:00:01",
      "functions":[{"pci":"0000:03:00.0","host":2,"rports":[
        {"pwwn":"50:00:00:00:00:00:00:01","target":1,"luns":[)" + luns + R"(]},
        {"pwwn":"50:00:00:00:00:00:00:02","target":7,"role":"initiator"}]}]}]}]})";
}

// The data bytes sg_raw printed (on either stream), as one hex string.
std::string raw_bytes(const Result& r) {
    std::string out;
    for (const std::string& l : scen::lines(r.out + r.err)) {
        if (l.size() < 8 || l[0] != ' ' || l.find("     ") == std::string::npos) continue;
        std::string hex = l.substr(8, 49);
        for (char c : hex)
            if (c != ' ') out += c;
    }
    return out;
}

// Binary output (sg_raw -b) as hex.
std::string hex_of(const std::string& bin) {
    std::string h;
    char b[3];
    for (unsigned char c : bin) {
        snprintf(b, sizeof b, "%02x", c);
        h += b;
    }
    return h;
}

}  // namespace

TEST(SimScsi, LsscsiListsEveryLunWithItsDiskTapeAndGenericNodes) {
    NEED("/usr/bin/lsscsi");
    Bed bed = Bed::preset("demo");
    Result r = bed.run({"/usr/bin/lsscsi", "-g"});
    ASSERT_EQ(r.status, 0) << r.err;
    std::vector<std::string> l = scen::lines(r.out);
    ASSERT_EQ(l.size(), 11u) << r.out;
    EXPECT_EQ(l[0], "[3:0:0:0]    disk    TORVANE  FlexStor 2400    0930  /dev/sda   /dev/sg0 ");
    EXPECT_EQ(l[4], "[3:0:0:31]   storage TORVANE  FlexStor CTRL    0930  -          /dev/sg4 ");
    EXPECT_EQ(l[5], "[3:0:1:0]    tape    TORVANE  LTO-8 TD         K5T1  /dev/st0   /dev/sg5 ");
    EXPECT_EQ(l[6], "[3:0:1:1]    mediumx TORVANE  TL2000 Library   1.20  -          /dev/sg6 ");
    EXPECT_EQ(l[10], "[7:0:0:1]    disk    TORVANE  FlexStor 1200    0930  /dev/sdh   /dev/sg10");
    Result t = bed.run({"/usr/bin/lsscsi", "-t", "-s"});
    EXPECT_EQ(scen::lines(t.out).at(2), "[3:0:0:2]    disk    fc:0x500e1f2000a10001,0x010400  /dev/sdc   3.29TB");
    EXPECT_TRUE(bed.log_clean());
}

TEST(SimScsi, SgToolsReadInquiryCapacityAndLunListOfTheModel) {
    NEED("/usr/bin/sg_inq");
    Bed bed = Bed::preset("demo");
    Result inq = bed.run({"/usr/bin/sg_inq", "/dev/sg5"});
    ASSERT_EQ(inq.status, 0) << inq.out << inq.err;
    EXPECT_NE(inq.out.find("Peripheral device type: tape"), std::string::npos) << inq.out;
    EXPECT_NE(inq.out.find(" Product identification: LTO-8 TD        \n"), std::string::npos) << inq.out;
    // 3 TiB of 512-byte blocks: READ CAPACITY(10) says 0xFFFFFFFF, the tool goes on with (16).
    Result cap = bed.run({"/usr/bin/sg_readcap", "/dev/sdc"});
    ASSERT_EQ(cap.status, 0) << cap.out << cap.err;
    EXPECT_NE(cap.out.find("Last LBA=6442450943 (0x17fffffff)"), std::string::npos) << cap.out;
    EXPECT_EQ(scen::requests(bed, "READ_CAPACITY_16").size(), 1u);
    Result luns = bed.run({"/usr/bin/sg_luns", "/dev/sg0"});
    EXPECT_NE(luns.out.find("    0003000000000000\n    001f000000000000\n"), std::string::npos) << luns.out;
    EXPECT_TRUE(bed.log_clean());
}

TEST(SimScsi, ReadCapacity10SaysAllOnesOnlyFromTwoToThe32Blocks) {
    NEED("/usr/bin/sg_raw");
    struct Case {
        const char* blocks;
        const char* answer;  // last LBA and block length
    } cases[] = {
        {"0x80000000", "7fffffff00000200"},  // the product shows such sizes as "-----"
        {"0xFFFFFFFF", "fffffffe00000200"},
        {"0x100000000", "ffffffff00000200"},
        {"0x100000001", "ffffffff00000200"},
    };
    for (const Case& c : cases) {
        Bed bed = Bed::from_json(host_with(std::string(R"({"lun":0,"blocks":")") + c.blocks + "\"}"));
        Result r = bed.run({"/usr/bin/sg_raw", "-r", "8", "/dev/sg0", "25", "00", "00", "00", "00", "00", "00", "00", "00", "00"});
        EXPECT_EQ(r.status, 0) << c.blocks << r.err;
        EXPECT_EQ(raw_bytes(r), c.answer) << c.blocks;
    }
}

TEST(SimScsi, ReportLunsGivesTheWholeListLengthAndFlatSpaceLuns) {
    NEED("/usr/bin/sg_raw");
    std::string luns;
    for (int i = 0; i < 110; i++) luns += "{\"lun\":" + std::to_string(i) + "},";
    luns += R"({"lun":300,"type":"tape"},{"lun":16383})";
    Bed bed = Bed::from_json(host_with(luns));
    // An allocation length of 16: the header says 112 LUNs, one entry follows.
    Result r = bed.run({"/usr/bin/sg_raw", "-r", "16", "/dev/sg0", "a0", "00", "00", "00", "00", "00", "00", "00", "00", "10", "00", "00"});
    EXPECT_EQ(raw_bytes(r), "0000038000000000" "0000000000000000");
    // The 101-LUN first allocation (816 bytes) takes 101 entries; the list is longer.
    Result all = bed.run({"/usr/bin/sg_raw", "-b", "-r", "816", "/dev/sg0", "a0", "00", "00", "00", "00", "00", "00", "00", "03", "30", "00", "00"});
    EXPECT_EQ(all.out.size(), 816u);
    Result full = bed.run({"/usr/bin/sg_raw", "-b", "-r", "904", "/dev/sg0", "a0", "00", "00", "00", "00", "00", "00", "00", "03", "88", "00", "00"});
    std::string b = hex_of(full.out);
    ASSERT_EQ(b.size(), 904u * 2);
    EXPECT_EQ(b.substr(16 + 16 * 110, 32), "412c000000000000" "7fff000000000000");
    // The kernel names flat-space LUNs with their address method: 16384 + 300.
    EXPECT_TRUE(scen::read_text(bed.root() + "/sys/class/scsi_device/2:0:1:16684/device/type").has_value());
    EXPECT_TRUE(bed.log_clean());
}

TEST(SimScsi, MissingOrMaskedLunAnswersCheckConditionAndInquiryHasNoLun) {
    NEED("/usr/bin/sg_raw");
    Bed bed = Bed::from_json(host_with(R"({"lun":0},{"lun":1})"));
    ASSERT_EQ(bed.probe({"lunmask", "/dev/kvo", "0", "enable"}).out, "rc=0 status=0\n");
    // LUN 1 is not in the (empty) table: the driver hides it.
    Result rc = bed.run({"/usr/bin/sg_raw", "-r", "8", "/dev/sg1", "25", "00", "00", "00", "00", "00", "00", "00", "00", "00"});
    EXPECT_NE(rc.err.find("Logical unit not supported"), std::string::npos) << rc.err;
    Result inq = bed.run({"/usr/bin/sg_raw", "-r", "36", "/dev/sg1", "12", "00", "00", "00", "24", "00"});
    EXPECT_EQ(raw_bytes(inq).substr(0, 2), "7f");
    Result op = bed.run({"/usr/bin/sg_raw", "/dev/sg0", "d7", "00", "00", "00", "00", "00"});
    EXPECT_NE(op.err.find("Invalid command operation code"), std::string::npos) << op.err;
    EXPECT_EQ(scen::lines_with(scen::lines(bed.log().back()).front(), "(sense 5/20/00)").size(), 1u);
}

TEST(SimScsi, MalformedSgIoIsRefusedAsTheKernelDoes) {
    Bed bed = Bed::preset("demo");
    struct Case {
        const char* node;
        const char* field;
        const char* val;
        const char* err;
    } cases[] = {
        {"/dev/sg0", "interface_id", "81", "errno=38"}, {"/dev/sda", "interface_id", "81", "errno=22"},
        {"/dev/sg0", "cmd_len", "5", "errno=90"},       {"/dev/sg0", "cmd_len", "17", "errno=90"},
        {"/dev/sg0", "dxfer_direction", "3", "errno=22"}, {"/dev/sg0", "iovec_count", "2", "errno=22"},
        {"/dev/sg0", "dxferp", "0", "errno=14"},        {"/dev/sg0", "header", "0", "errno=14"},
        // To and from the device (-4): sg refuses it, as kernels from 6.1 on do.
        {"/dev/sg0", "dxfer_direction", "-4", "errno=12"},
    };
    for (const Case& c : cases) {
        Result r = bed.probe({"sgio", c.node, c.field, c.val});
        EXPECT_NE(r.out.find(c.err), std::string::npos) << c.node << " " << c.field << ": " << r.out;
    }
    EXPECT_EQ(bed.bad_lines().size(), std::size(cases));
    EXPECT_EQ(bed.probe({"sgio", "/dev/sg0", "none"}).out, "rc=0 status=0 resid=0 info=0\n");
    EXPECT_EQ(bed.probe({"sgio", "/dev/sg99", "none"}).out.substr(0, 12), "rc=-1 errno=");
    // The block layer maps the buffer and takes to-and-from as a read; so does sg on a bed whose
    // kernel is older than 6.1.
    EXPECT_EQ(bed.probe({"sgio", "/dev/sda", "dxfer_direction", "-4"}).out, "rc=0 status=0 resid=0 info=0\n");
    Bed older = Bed::preset("demo", {"--sg-to-from", "read"});
    EXPECT_EQ(older.probe({"sgio", "/dev/sg0", "dxfer_direction", "-4"}).out, "rc=0 status=0 resid=0 info=0\n");
}

TEST(SimScsi, DeleteAndScanThroughAShellReuseTheLowestFreeNames) {
    Bed bed = Bed::preset("demo");
    Result d = bed.run({"/bin/sh", "-c",
                        "echo 1 > /sys/class/scsi_device/3:0:0:1/device/delete; "
                        "echo 1 > /sys/bus/scsi/devices/3:0:0:0/delete"});
    ASSERT_EQ(d.status, 0) << d.err;
    EXPECT_EQ(bed.run({"/bin/sh", "-c", "test -e /dev/sg1 || test -e /dev/sdb || test -e /sys/class/scsi_device/3:0:0:1"}).status, 1);
    EXPECT_EQ(scen::lines_with(scen::lines(bed.log().back()).front(), "-> removed 3:0:0:0 (sg0 sda)").size(), 1u);
    Result s = bed.run({"/bin/sh", "-c", "echo '- - -' > /sys/class/scsi_host/host3/scan"});
    ASSERT_EQ(s.status, 0);
    EXPECT_EQ(bed.log().back(),
              "sysfs /sys/class/scsi_host/host3/scan '- - -' -> added 3:0:0:0 (sg0 sda), 3:0:0:1 (sg1 sdb)");
    EXPECT_EQ(scen::read_text(bed.root() + "/sys/class/scsi_device/3:0:0:1/device/block/sdb/dev").value_or(""), "8:16\n");
    // A scan with nothing to add, and one the kernel refuses.
    bed.run({"/bin/sh", "-c", "echo '- - -' > /sys/class/scsi_host/host3/scan; echo '0 1' > /sys/class/scsi_host/host3/scan"});
    std::vector<std::string> log = bed.log();
    EXPECT_EQ(log[log.size() - 2], "sysfs /sys/class/scsi_host/host3/scan '- - -' -> nothing new");
    EXPECT_EQ(bed.bad_lines().size(), 1u);
}

TEST(SimScsi, ScanSkipsLunsTheMaskHidesUntilTheyAreMaskedIn) {
    Bed bed = Bed::from_json(host_with(R"({"lun":0},{"lun":1},{"lun":2})"));
    bed.probe({"lunmask", "/dev/kvo", "0", "enable"});
    bed.run({"/bin/sh", "-c", "for l in 1 2; do echo 1 > /sys/class/scsi_device/2:0:1:$l/device/delete; done; "
                              "echo '- - -' > /sys/class/scsi_host/host2/scan"});
    EXPECT_EQ(bed.log().back(), "sysfs /sys/class/scsi_host/host2/scan '- - -' -> nothing new");
    Result a = bed.probe({"lunmask", "/dev/kvo", "0", "add", "0", "50:00:00:00:00:00:00:01", "0002000000000000"});
    EXPECT_EQ(a.out, "rc=0 status=0\npwwn=10:00:00:00:00:00:00:01\n");
    bed.run({"/bin/sh", "-c", "echo '- - 2' > /sys/class/scsi_host/host2/scan"});
    EXPECT_EQ(bed.log().back(), "sysfs /sys/class/scsi_host/host2/scan '- - 2' -> added 2:0:1:2 (sg1 sdb)");
}

TEST(SimScsi, LunMaskTableBoundsAndStatuses) {
    Bed bed = Bed::from_json(host_with(R"({"lun":0})"));
    const std::string rp = "50:00:00:00:00:00:00:01";
    auto add = [&](int lun, const std::string& lp = "0", const std::string& r = "50:00:00:00:00:00:00:01") {
        char l[20];
        snprintf(l, sizeof l, "%04x000000000000", lun);
        return value(bed.probe({"lunmask", "/dev/kvo", "0", "add", lp, r, l}), "rc=0 status");
    };
    for (int i = 1; i <= 16; i++) ASSERT_EQ(add(i), "0") << i;
    EXPECT_EQ(add(17), "212");  // MAX_ENTRY_REACHED
    EXPECT_EQ(add(3), "193");   // ENTRY_EXISTS
    EXPECT_EQ(add(3, "10:00:00:00:00:00:00:09"), "18");                  // UNKNOWN_LWWN
    EXPECT_EQ(add(3, "0", "50:00:00:00:00:00:00:02"), "19");             // an initiator: UNKNOWN_RWWN
    Result del = bed.probe({"lunmask", "/dev/kvo", "0", "delete", "0", rp, "0005000000000000"});
    EXPECT_EQ(value(del, "rc=0 status"), "0");
    EXPECT_EQ(value(bed.probe({"lunmask", "/dev/kvo", "0", "delete", "0", rp, "0005000000000000"}), "rc=0 status"), "194");
    EXPECT_EQ(add(40), "0");  // the freed slot is used again
    Result q = bed.probe({"lunmask", "/dev/kvo", "0", "query"});
    EXPECT_EQ(value(q, "mask_status"), "0");
    EXPECT_EQ(value(q, "entry=4 10:00:00:00:00:00:00:01 50:00:00:00:00:00:00:01 00:28:00:00:00:00:00:00 rp_tag"), "0");
    EXPECT_EQ(scen::lines_with(q.out, "entry=").size(), 16u);
    EXPECT_EQ(bed.probe({"lunmask", "/dev/kvo", "0", "clear"}).out, "rc=0 status=0\n");
    EXPECT_EQ(scen::lines_with(bed.probe({"lunmask", "/dev/kvo", "0", "query"}).out, "entry=").size(), 0u);
    EXPECT_TRUE(bed.log_clean());
}

TEST(SimScsi, OldLayoutLinksChildrenByNameAndToolsStillFindThem) {
    Bed bed = Bed::from_json(host_with(R"({"lun":0},{"lun":3,"no_sg":true},{"lun":4,"type":"tape"})",
                                       R"("sysfs_layout":"old",)"));
    Result ls = bed.probe({"ls", "/sys/class/scsi_device/2:0:1:0/device"});
    EXPECT_NE(ls.out.find("block:sda"), std::string::npos) << ls.out;
    EXPECT_NE(ls.out.find("scsi_generic:sg0"), std::string::npos);
    EXPECT_EQ(bed.probe({"readlink", "/sys/class/scsi_device/2:0:1:4/device/tape"}).out, "../../../../class/scsi_tape/st0\n");
    // The LUN without a generic node has none, in either form.
    Result no = bed.probe({"ls", "/sys/class/scsi_device/2:0:1:3/device"});
    EXPECT_EQ(no.out.find("scsi_generic"), std::string::npos) << no.out;
    if (have("/usr/bin/lsscsi")) {
        EXPECT_EQ(bed.run({"/usr/bin/lsscsi", "-g"}).out,
                  "[2:0:1:0]    disk    TORVANE                   0001  /dev/sda   /dev/sg0 \n"
                  "[2:0:1:3]    disk    TORVANE                   0001  /dev/sdb   -        \n"
                  "[2:0:1:4]    tape    TORVANE                   0001  /dev/st0   /dev/sg1 \n");
    }
}
