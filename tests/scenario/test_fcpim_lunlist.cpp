// fcpim --lunlist end to end: the targets of a port and every LUN they report, with the OS device
// names found in sysfs and, verbose, the SCSI columns read through the LUNs' sg nodes; the REPORT
// LUNS retry, LUN-mask filtering, both sysfs layouts, option errors and driver failures.
#include <unistd.h>

#include <cctype>
#include <string>
#include <tuple>
#include <vector>

#include "harness.h"

using nlohmann::json;
using scen::Bed;
using scen::fails;
using scen::prints;
using scen::requests;
using scen::Result;
using strings = std::vector<std::string>;

namespace {

constexpr const char* kLocal = "10:00:00:e1:f2:00:42:00";
constexpr const char* kArray = "50:0e:1f:20:00:00:00:0a";    // target 0
constexpr const char* kOffline = "50:0e:1f:20:00:00:00:0b";  // target 1, nexus offline
constexpr const char* kShelf = "50:0e:1f:20:00:00:00:0c";    // target 2

json disk(unsigned lun, uint64_t blocks) {
    return {{"lun", lun}, {"type", "disk"}, {"vendor", "TORVANE"}, {"product", "FlexStor 2400"},
            {"rev", "0930"}, {"blocks", blocks}};
}

json target(const char* pwwn, unsigned id, json luns) {
    return {{"pwwn", pwwn}, {"target", id}, {"luns", std::move(luns)}};
}

// One FC function (host 2) of port 0 with these remote ports; `fn_ext` is the function's ext.
// The host's sg driver does transfers to and from the device, as kernels before 6.1 do.
std::string host(json rports, json top = json::object(), json fn_ext = json::object()) {
    if (!top.contains("sg_to_from")) top["sg_to_from"] = "read";
    json fn = {{"pci", "0000:03:00.0"}, {"host", 2}, {"rports", std::move(rports)}, {"ext", std::move(fn_ext)}};
    top["adapters"] = json::array({{{"serial", "TVF0000042"},
                                    {"ports", json::array({{{"port", 0}, {"pwwn", kLocal},
                                                            {"functions", json::array({fn})}}})}}});
    return top.dump();
}

// LUN 0, then LUNs 1 to n - 1 that the host has no device for (no name).
json luns_up_to(unsigned n) {
    json luns = json::array({disk(0, 2048)});
    for (unsigned l = 1; l < n; ++l) luns.push_back(disk(l, 2048));
    for (unsigned l = 1; l < n; ++l) luns[l]["present"] = false;
    return luns;
}

// A target whose nexus is offline, an initiator, and a disk array whose LUNs cover the size
// column (100 GiB; last LBA 0xBFFFFFFF, negative as a signed 32-bit field; 3 TiB, which READ
// CAPACITY(10) cannot give and which counts in whole TiB; under 1 MiB; no medium; a MiB or so), a LUN without an sg node of
// its own, a tape and a flat-space LUN (300).
json mixed_rports() {
    json tape = {{"lun", 4}, {"type", "tape"}, {"vendor", "TORVANE"}, {"product", "LTO-8 TD"}, {"rev", "K5T1"}};
    json no_sg = disk(3, 2048);
    no_sg["no_sg"] = true;
    json offline = target(kOffline, 1, {disk(0, 2048)});
    offline["ext"] = {{"itnim", {{"state", 0}}}};
    return json::array({offline,
                        {{"pwwn", "21:00:00:e1:f2:99:00:00"}, {"role", "initiator"}, {"target", 7}},
                        target(kArray, 0,
                               {disk(0, 209715200), disk(1, 0xC0000000ULL), disk(2, 6442450944ULL), no_sg,
                                tape, disk(5, 1000), disk(6, 0), disk(7, 3000), disk(300, 4096)})});
}

const std::string kPlainHead =
    "-------------------------------------------------------------------------------\n"
    " T:L                    Remote Port PWWN        Dev Name\n"
    "-------------------------------------------------------------------------------\n";
const std::string kPlainTail =
    "-------------------------------------------------------------------------------\n";
const std::string kVerboseHead =
    "---------------------------------------------------------------------------------------------------\n"
    " H:B:T:L                    Remote Port PWWN        Vendor   Product   Rev    Size   Dev Name\n"
    "---------------------------------------------------------------------------------------------------\n";
const std::string kVerboseTail =
    "---------------------------------------------------------------------------------------------------\n";

const std::string kMixedPlain = kPlainHead +
    "Report Luns failed\n"
    " 0:0000-0000-0000-0000  50:0e:1f:20:00:00:00:0a /dev/sda \n"
    " 0:0001-0000-0000-0000  50:0e:1f:20:00:00:00:0a /dev/sdb \n"
    " 0:0002-0000-0000-0000  50:0e:1f:20:00:00:00:0a /dev/sdc \n"
    " 0:0003-0000-0000-0000  50:0e:1f:20:00:00:00:0a /dev/sdd \n"
    " 0:0004-0000-0000-0000  50:0e:1f:20:00:00:00:0a /dev/st0 \n"
    " 0:0005-0000-0000-0000  50:0e:1f:20:00:00:00:0a /dev/sde \n"
    " 0:0006-0000-0000-0000  50:0e:1f:20:00:00:00:0a /dev/sdf \n"
    " 0:0007-0000-0000-0000  50:0e:1f:20:00:00:00:0a /dev/sdg \n"
    // Looked up as 2:0:0:300, while the kernel numbers it 2:0:0:16684: no name.
    " 0:412c-0000-0000-0000  50:0e:1f:20:00:00:00:0a ------\n" + kPlainTail;

const std::string kMixedVerbose = kVerboseHead +
    "Report Luns failed\n"
    " 2:0:0:0000-0000-0000-0000  50:0e:1f:20:00:00:00:0a TORVANE  FlexStor  0930  100.00GB /dev/sda \n"
    " 2:0:0:0001-0000-0000-0000  50:0e:1f:20:00:00:00:0a TORVANE  FlexStor  0930    ----- /dev/sdb \n"
    " 2:0:0:0002-0000-0000-0000  50:0e:1f:20:00:00:00:0a TORVANE  FlexStor  0930  2.00TB /dev/sdc \n"
    // No sg node of its own: LUN 0's node carries the commands, and LUN 0 answers them.
    " 2:0:0:0003-0000-0000-0000  50:0e:1f:20:00:00:00:0a TORVANE  FlexStor  0930  100.00GB /dev/sdd \n"
    " 2:0:0:0004-0000-0000-0000  50:0e:1f:20:00:00:00:0a TORVANE  LTO-8  K5T1  ------ /dev/st0 \n"
    " 2:0:0:0005-0000-0000-0000  50:0e:1f:20:00:00:00:0a TORVANE  FlexStor  0930  511488 /dev/sde \n"
    // READ CAPACITY fails (no medium): the size column ends there.
    " 2:0:0:0006-0000-0000-0000  50:0e:1f:20:00:00:00:0a TORVANE  FlexStor  0930 /dev/sdf \n"
    " 2:0:0:0007-0000-0000-0000  50:0e:1f:20:00:00:00:0a TORVANE  FlexStor  0930  1.46MB /dev/sdg \n"
    " 2:0:0:412c-0000-0000-0000  50:0e:1f:20:00:00:00:0a TORVANE  FlexStor  0930  100.00GB ------\n" +
    kVerboseTail;

constexpr int exit_of(int code) { return code & 0xFF; }

std::string incorrect() {
    return "ERROR: command \"--lunlist\" syntax is incorrect or one of the parameters is incorrect\n";
}

// Exit status, standard output and standard error of a run, to compare at once.
using Outcome = std::tuple<int, std::string, std::string>;
Outcome of(const Result& r) { return {r.status, r.out, r.err}; }

// The LUN column of each row ("0:0002-0000-0000-0000").
strings row_luns(const std::string& out) {
    strings luns;
    for (const std::string& l : scen::lines(out))
        if (l.size() > 24 && l[0] == ' ' && isdigit(static_cast<unsigned char>(l[1])) && l[2] == ':')
            luns.push_back(l.substr(1, 21));
    return luns;
}

}  // namespace

TEST(FcpimLunlist, PlainAndVerboseRowsOfEveryKindOfLun) {
    Bed bed = Bed::from_json(host(mixed_rports()));
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--lunlist", "1/0"}), kMixedPlain));
    // The offline nexus is refused before any SCSI command; the initiator is not asked at all.
    strings rpl = requests(bed, "REPORT_LUNS");
    ASSERT_EQ(rpl.size(), 1u);
    EXPECT_EQ(rpl[0], "scsi /dev/sg0 REPORT_LUNS 2:0:0:0 alloc=816 -> status=0");
    EXPECT_TRUE(bed.log_clean());

    // Verbose, each LUN is asked through its own node or another.
    bed.clear_log();
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--lunlist", "1/0", "-v"}), kMixedVerbose));
    strings inq = requests(bed, "INQUIRY");
    ASSERT_EQ(inq.size(), 9u);
    EXPECT_EQ(inq[3], "scsi /dev/sg0 INQUIRY 2:0:0:0 alloc=128 -> status=0");  // for LUN 3
    EXPECT_EQ(inq[8], "scsi /dev/sg0 INQUIRY 2:0:0:0 alloc=128 -> status=0");  // for LUN 300
    // Only the 3 TiB disk needs READ CAPACITY(16); the tape is not asked for a capacity.
    strings rc16 = requests(bed, "READ_CAPACITY_16");
    ASSERT_EQ(rc16.size(), 1u);
    EXPECT_EQ(rc16[0], "scsi /dev/sg2 READ_CAPACITY_16 2:0:0:2 alloc=128 -> status=0");
    EXPECT_EQ(requests(bed, "READ_CAPACITY_10").size(), 8u);
    // -v may come anywhere, also before -l.
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--lunlist", "1/0", "-v", "-l", kLocal}), kMixedVerbose));
    EXPECT_TRUE(bed.log_clean());
}

// Kernels from 6.1 on refuse the to-and-from transfer every read is sent with: no command reaches
// a target, and each one's listing fails alone.
TEST(FcpimLunlist, SgThatRefusesToAndFromTransfersFailsEveryReportLuns) {
    Bed bed = Bed::from_json(host(mixed_rports(), {{"sg_to_from", "refused"}}));
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--lunlist", "1/0", "-v"}),
                       kVerboseHead + "Report Luns failed\nReport Luns failed\n" + kVerboseTail));
    EXPECT_EQ(bed.bad_lines(),
              strings{"BAD scsi /dev/sg0 SG_IO: to-and-from transfer (refused from kernel 6.1 on) -> errno=ENOMEM"});
}

TEST(FcpimLunlist, OldSysfsLayoutAndKernelListingOrderGiveTheSameNames) {
    struct Case {
        json top;
        bool verbose_too;  // the node that stands in for another LUN's depends on listing order
    } cases[] = {
        {{{"sysfs_layout", "old"}}, true},
        {{{"sysfs_order", "hash"}}, false},
        {{{"sysfs_layout", "old"}, {"sysfs_order", "hash"}}, false},
    };
    for (const Case& c : cases) {
        Bed bed = Bed::from_json(host(mixed_rports(), c.top));
        EXPECT_TRUE(prints(bed.qmx({"fcpim", "--lunlist", "1/0"}), kMixedPlain)) << c.top.dump();
        if (c.verbose_too) {
            EXPECT_TRUE(prints(bed.qmx({"fcpim", "--lunlist", "1/0", "-v"}), kMixedVerbose)) << c.top.dump();
        }
        EXPECT_TRUE(bed.log_clean());
    }
}

TEST(FcpimLunlist, ListLongerThanTheFirstAnswerIsAskedForOnceMore) {
    struct Case {
        unsigned luns;
        strings allocs;  // REPORT LUNS allocation lengths, in order
    } cases[] = {
        {101, {"alloc=816"}},  // exactly fills the first buffer
        {102, {"alloc=816", "alloc=824"}},
        {300, {"alloc=816", "alloc=2408"}},
    };
    for (const Case& c : cases) {
        Bed bed = Bed::from_json(host(json::array({target(kArray, 0, luns_up_to(c.luns))})));
        Result r = bed.qmx({"fcpim", "--lunlist", "1/0"});
        ASSERT_EQ(r.status, 0) << r.err;
        strings rows = row_luns(r.out);
        ASSERT_EQ(rows.size(), c.luns);
        // From 256 on, LUNs are in flat space (address method 01).
        const unsigned top = c.luns - 1;
        char last[32];
        snprintf(last, sizeof last, "0:%04x-0000-0000-0000", top < 256 ? top : 0x4000 | top);
        EXPECT_EQ(rows.back(), last);
        EXPECT_NE(r.out.find(std::string(" ") + last + "  " + kArray + " ------\n"), std::string::npos);
        strings sent = requests(bed, "REPORT_LUNS");
        ASSERT_EQ(sent.size(), c.allocs.size()) << c.luns;
        for (size_t i = 0; i < sent.size(); ++i)
            EXPECT_EQ(sent[i], "scsi /dev/sg0 REPORT_LUNS 2:0:0:0 " + c.allocs[i] + " -> status=0");
        EXPECT_TRUE(bed.log_clean());
    }
}

TEST(FcpimLunlist, LunMaskShowsLunZeroAndTheMaskedInLunsOfEachTarget) {
    const json entries = json::array({
        {{"lp", kLocal}, {"rp", kArray}, {"lun", "0002-0000-0000-0000"}},
        {{"lp", kLocal}, {"rp", kShelf}, {"lun", "0001-0000-0000-0000"}},
        // Another initiator's and another target's entries do not count for this pair.
        {{"lp", "10:00:00:e1:f2:00:42:01"}, {"rp", kArray}, {"lun", "0003-0000-0000-0000"}},
        {{"lp", kLocal}, {"rp", kShelf}, {"lun", "0003-0000-0000-0000"}},
    });
    const strings all = {"0:0000-0000-0000-0000", "0:0001-0000-0000-0000", "0:0002-0000-0000-0000",
                         "0:0003-0000-0000-0000", "2:0000-0000-0000-0000", "2:0001-0000-0000-0000"};
    struct Case {
        int status;
        bool with_entries;
        strings rows;
    } cases[] = {
        {1, true, {"0:0000-0000-0000-0000", "0:0002-0000-0000-0000", "2:0000-0000-0000-0000", "2:0001-0000-0000-0000"}},
        {1, false, {"0:0000-0000-0000-0000", "2:0000-0000-0000-0000"}},
        {0, true, all},
        {255, true, all},
    };
    for (const Case& c : cases) {
        json mask = {{"status", c.status}};
        if (c.with_entries) mask["entries"] = entries;
        json rports = json::array({target(kArray, 0, {disk(0, 2048), disk(1, 2048), disk(2, 2048), disk(3, 2048)}),
                                   target(kShelf, 2, {disk(0, 2048), disk(1, 2048)})});
        Bed bed = Bed::from_json(host(rports, json::object(), {{"lunmask", mask}}));
        Result r = bed.qmx({"fcpim", "--lunlist", "1/0"});
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(row_luns(r.out), c.rows) << "status " << c.status << (c.with_entries ? " with entries" : "");
        // A kept row still names its device.
        EXPECT_NE(r.out.find(std::string(" 2:0000-0000-0000-0000  ") + kShelf + " /dev/sde \n"), std::string::npos)
            << r.out;
        EXPECT_EQ(requests(bed, "FCPIM_LUNMASK_QUERY").size(), 2u);  // one per REPORT LUNS
        EXPECT_TRUE(bed.log_clean());
    }
}

TEST(FcpimLunlist, OptionErrorsAndTheLocalPort) {
    Bed bed = Bed::from_json(host(json::array({target(kArray, 0, {disk(0, 2048)})})));
    struct Case {
        strings args;
        int status;
        std::string err;
    } cases[] = {
        {{"-l", "10:00:00:e1:f2:00:42"}, exit_of(4008), "ERROR: Incorrectly formatted WWN\n"},
        {{"-v", "-l", "zz:00:00:e1:f2:00:42:00"}, exit_of(4008), "ERROR: Incorrectly formatted WWN\n"},
        {{"-l"}, exit_of(4007), incorrect()},
        {{"-v", "-l"}, exit_of(4007), incorrect()},
        {{"-x"}, exit_of(4007), incorrect()},
        {{"-v", "verbose"}, exit_of(4007), incorrect()},
        // A local port that is not the function's: the driver's verdict.
        {{"-l", "10:00:00:e1:f2:00:42:01"}, 18, "ERROR: Unknown local port WWN \n"},
    };
    for (const Case& c : cases) {
        strings args = {"fcpim", "--lunlist", "1/0"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        EXPECT_TRUE(fails(bed.qmx(args), c.status, c.err)) << c.args.back();
    }
    // Word errors are found before any driver request of the listing.
    EXPECT_EQ(requests(bed, "LPORT_GET_RPORTS").size(), 1u);
    const std::string one_row = kPlainHead + " 0:0000-0000-0000-0000  " + kArray + " /dev/sda \n" + kPlainTail;
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--lunlist", "1/0", "-l", kLocal}), one_row));
    EXPECT_TRUE(bed.log_clean());

    Bed lonely = Bed::preset("fc");
    EXPECT_TRUE(prints(lonely.qmx({"fcpim", "--lunlist", "1/1", "-v"}), "No Remote Ports found...\n"));
    EXPECT_TRUE(lonely.log_clean());
}

TEST(FcpimLunlist, DriverAndNodeFailures) {
    const std::string bed_json =
        host(json::array({target(kArray, 0, {disk(0, 2048), disk(1, 4096)}), target(kShelf, 2, {disk(0, 2048)})}));
    const std::string shelf_row = std::string(" 2:0000-0000-0000-0000  ") + kShelf + " /dev/sdc \n";
    struct Case {
        strings rule;
        int status;
        std::string out;
        std::string err;
    } cases[] = {
        // The node will not open: the command fails before it is sent.
        {{"open", "/dev/sg0"}, 0,
         kPlainHead + "Opening file /dev/sg0 failed\nReport Luns failed\n" + shelf_row + kPlainTail, ""},
        // The nexus cannot be read: no command either.
        {{"request", "ITNIM_GET_ATTR", "errno", "EIO", "times", "1"}, 0,
         kPlainHead + "Report Luns failed\n" + shelf_row + kPlainTail, ""},
        // A remote port without a SCSI address is shown by its WWN alone; the listing goes on.
        {{"request", "RPORT_GET_SCSI_ADDRESS", "status", "19", "times", "1"}, 0,
         kPlainHead + kArray + "\n" + shelf_row + kPlainTail, ""},
        // Attributes that cannot be read end the command after the WWN.
        {{"request", "RPORT_GET_ATTR_BY_QUALIFIER", "status", "19", "times", "1"}, 19,
         kPlainHead + kArray + "\n", "ERROR: Unknown remote port WWN \n"},
        {{"request", "LPORT_GET_RPORTS", "status", "18"}, 18, "", "ERROR: Unknown local port WWN \n"},
    };
    for (const Case& c : cases) {
        Bed bed = Bed::from_json(bed_json);
        bed.fault(c.rule);
        EXPECT_EQ(of(bed.qmx({"fcpim", "--lunlist", "1/0"})), Outcome(c.status, c.out, c.err)) << c.rule[1];
        EXPECT_TRUE(bed.log_clean());
    }

    // An address the driver cannot give (not supported) still lists the LUNs, under 0:0:0,
    // where the host has no such devices.
    Bed bed = Bed::from_json(bed_json);
    bed.fault({"request", "RPORT_GET_SCSI_ADDRESS", "status", "26", "times", "1"});
    Result r = bed.qmx({"fcpim", "--lunlist", "1/0", "-v"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find(std::string(" 0:0:0:0001-0000-0000-0000  ") + kArray +
                         " TORVANE  FlexStor  0930  2.00MB ------\n"),
              std::string::npos)
        << r.out;
    EXPECT_TRUE(bed.log_clean());
}

TEST(FcpimLunlist, OverlongTapeLinkIsCutAndStillNamesANode) {
    json tape = {{"lun", 0}, {"type", "tape"}, {"vendor", "TORVANE"}, {"product", "LTO-8 TD"}, {"rev", "K5T1"}};
    Bed bed = Bed::from_json(host(json::array({target(kArray, 0, {tape})})));
    // A link text of 140 bytes: what is read is cut to 127, whose last component is "st0-and-mo".
    std::string text;
    while (text.size() < 117) text += "../";
    text = text.substr(0, 117) + "st0-and-more-than-fits";
    ASSERT_GT(text.size(), 128u);
    const std::string link = bed.root() + "/sys/bus/scsi/devices/2:0:0:0/tape";
    ASSERT_EQ(unlink(link.c_str()), 0);
    ASSERT_EQ(symlink(text.c_str(), link.c_str()), 0);
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--lunlist", "1/0"}),
                       kPlainHead + "The symbolic link length exceeds the maximum\n" +
                           " 0:0000-0000-0000-0000  " + kArray + " /dev/st0-and-mo \n" + kPlainTail));
    EXPECT_TRUE(bed.log_clean());
}

TEST(FcpimLuns, AtMost1024OfALongerListReachTheCaller) {
    Bed bed = Bed::from_json(host(json::array({target(kArray, 0, luns_up_to(1100))})));
    Result r = bed.run({KVOL_LUNS_BIN, "0", kArray});
    ASSERT_EQ(r.status, 0) << r.err;
    strings out = scen::lines(r.out);
    ASSERT_EQ(out.size(), 1025u);
    EXPECT_EQ(out[0], "status=0 count=1024");
    EXPECT_EQ(out[1], "0000-0000-0000-0000");
    EXPECT_EQ(out[1024], "43ff-0000-0000-0000");  // LUN 1023, in flat space
    // The whole list was asked for: 1100 entries.
    strings sent = requests(bed, "REPORT_LUNS");
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[1], "scsi /dev/sg0 REPORT_LUNS 2:0:0:0 alloc=8808 -> status=0");
    EXPECT_TRUE(bed.log_clean());
}
