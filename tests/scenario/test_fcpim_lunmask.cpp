// fcpim's LUN-mask commands end to end: the driver's table, the host's SCSI devices that follow
// it (rescan after an add, removal after a delete or a clear of an enabled mask), the query's
// filters and status lines, argument errors and the driver's refusals.
#include <filesystem>
#include <string>
#include <vector>

#include "harness.h"

using scen::Bed;
using scen::fails;
using scen::prints;
using scen::requests;
using scen::Result;
using strings = std::vector<std::string>;

namespace {

constexpr const char* kOwn = "10:00:00:e1:f2:00:00:00";    // the function's port (host 5)
constexpr const char* kOther = "10:00:00:e1:f2:00:00:99";  // no port of this host
constexpr const char* kArrayA = "50:0e:1f:20:00:00:00:0a";  // target id 0
constexpr const char* kArrayB = "50:0e:1f:20:00:00:00:0b";  // target id 1
constexpr const char* kInitiator = "21:00:00:e1:f2:99:00:00";

// One FC function on its bsg node (SCSI host 5): array A with LUNs 0-2 (`a_luns` overrides
// them), array B with LUNs 0-1, and an initiator. `lunmask` is the driver's table, if given.
std::string host(const std::string& a_luns = R"({"lun": 0}, {"lun": 1}, {"lun": 2})",
                 const std::string& lunmask = "") {
    const std::string ext = lunmask.empty() ? "" : R"(, "ext": {"lunmask": )" + lunmask + "}";
    return R"({"adapters": [{"serial": "TVF0000001", "model": "TV-1862", "type": "FC",
      "ports": [{"pwwn": ")" + std::string(kOwn) + R"(", "functions": [{"pci": "0000:03:00.0",
        "host": 5)" + ext + R"(, "rports": [
          {"pwwn": ")" + kArrayA + R"(", "target": 0, "luns": [)" + a_luns + R"(]},
          {"pwwn": ")" + kArrayB + R"(", "target": 1, "luns": [{"lun": 0}, {"lun": 1}]},
          {"pwwn": ")" + kInitiator + R"(", "role": "initiator", "target": 9}]}]}]}]})";
}

// An entry of the driver's table as a host description gives it.
std::string entry(const char* lp, const char* rp, const char* lun) {
    return std::string(R"({"lp": ")") + lp + R"(", "rp": ")" + rp + R"(", "lun": ")" + lun + R"("})";
}

bool has_device(const Bed& bed, const std::string& hctl) {
    return std::filesystem::exists(bed.root() + "/sys/class/scsi_device/" + hctl);
}

// What a command did beyond the adapter scan: the driver requests and the sysfs writes.
strings effects(const Bed& bed) {
    strings out;
    for (const std::string& l : bed.log())
        if (l.find(" IOC_GET_") == std::string::npos) out.push_back(l);
    return out;
}

std::string edited(const char* verb, const char* lun, const char* rp, const char* lp) {
    return std::string("LUN Mask ") + verb + ":\nLUN           : " + lun + "\nTarget        : " + rp +
           "\nInitiator     : " + lp + "\n";
}

const std::string kRule =
    "---------------------------------------------------------------------------------------\n";
std::string table(const char* status, const std::string& rows = "") {
    return std::string("LUN Mask status is : ") + status + "\n" + kRule +
           " Lport-WWN\t\t Rport-WWN \t\t\t Lun#\n" + kRule + rows;
}
std::string row(const char* lp, const char* rp, const char* lun) {
    return std::string(lp) + "\t " + rp + "\t " + lun + "\n";
}

const std::string kEnabled = "Lun masking enabled on  1/0 \n";
const std::string kWarning = "Warning: LUN Masking enabled without any LUNs configured in LUN Mask\n";
const std::string kAddr = "bsg /dev/bsg/fc_host5 RPORT_GET_SCSI_ADDRESS vcmd=33 kvod=0 -> status=0 (lpwwn " +
                          std::string(kOwn) + " rpwwn " + kArrayA + " -> 5:0:0)";

}  // namespace

TEST(FcpimLunmask, AddRescansForTheMaskedInLunDeleteRemovesItButNeverLunZero) {
    // LUNs 1 and 2 were masked out when the host scanned: they have no OS device.
    Bed bed = Bed::from_json(host(R"({"lun": 0}, {"lun": 1, "present": false}, {"lun": 2, "present": false})"));
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--lunmaskenable", "1/0"}), kEnabled + kWarning));

    // Without -l the entry is for the port's own WWN; the rescan brings LUN 2 in, LUN 1 stays out.
    bed.clear_log();
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--lunmaskadd", "1/0", kArrayA, "0002-0000-0000-0000"}),
                       edited("added", "0002-0000-0000-0000", kArrayA, kOwn)));
    EXPECT_EQ(effects(bed),
              (strings{"bsg /dev/bsg/fc_host5 FCPIM_LUNMASK_ADD vcmd=118 kvod=0 -> status=0 (lpwwn " +
                           std::string(kOwn) + " rpwwn " + kArrayA + " lun 0002-0000-0000-0000 slot 0)",
                       kAddr, "sysfs /sys/class/scsi_host/host5/scan '- - -' -> added 5:0:0:2 (sg3 sdd)"}));
    EXPECT_TRUE(has_device(bed, "5:0:0:2"));
    EXPECT_FALSE(has_device(bed, "5:0:0:1"));

    // Deleting it while enabled removes its device and frees its names.
    bed.clear_log();
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--lunmaskdelete", "1/0", kArrayA, "0002-0000-0000-0000", "-l", kOwn}),
                       edited("deleted", "0002-0000-0000-0000", kArrayA, kOwn)));
    strings done = effects(bed);
    ASSERT_EQ(done.size(), 4u);
    EXPECT_NE(done[1].find(" FCPIM_LUNMASK_QUERY "), std::string::npos) << done[1];
    EXPECT_EQ(done[3], "sysfs /sys/class/scsi_device/5:0:0:2/device/delete '1' -> removed 5:0:0:2 (sg3 sdd)");
    EXPECT_FALSE(has_device(bed, "5:0:0:2"));
    for (const char* node : {"/dev/sg3", "/dev/sdd"}) EXPECT_FALSE(std::filesystem::exists(bed.root() + node)) << node;

    // LUN 0 leaves the table but never the host.
    ASSERT_EQ(bed.qmx({"fcpim", "--lunmaskadd", "1/0", kArrayA, "0000-0000-0000-0000"}).status, 0);
    bed.clear_log();
    ASSERT_EQ(bed.qmx({"fcpim", "--lunmaskdelete", "1/0", kArrayA, "0000-0000-0000-0000"}).status, 0);
    EXPECT_EQ(effects(bed).back(), kAddr);
    EXPECT_TRUE(has_device(bed, "5:0:0:0"));
    EXPECT_TRUE(bed.log_clean());
}

TEST(FcpimLunmask, ArgumentErrorsThenDevicesGoOnlyWhenTheMaskWasEnabled) {
    Bed bed = Bed::from_json(host());
    // Argument errors come before any request.
    const std::string bad_wwn = "ERROR: Incorrectly formatted WWN\n";
    auto incorrect = [](const char* cmd) {
        return std::string("ERROR: command \"") + cmd + "\" syntax is incorrect or one of the parameters is incorrect\n";
    };
    struct Case {
        strings args;
        int status;
        std::string err;
    } cases[] = {
        {{"--lunmaskadd", "1/0", "50:0e:1f:20:00:00:00", "0001-0000-0000-0000"}, 168, bad_wwn},
        {{"--lunmaskadd", "1/0", kArrayA, "0001-0000-0000-000g"}, 167, incorrect("--lunmaskadd")},
        {{"--lunmaskadd", "1/0", kArrayA, "0001", "-l"}, 167, incorrect("--lunmaskadd")},
        {{"--lunmaskadd", "1/0", kArrayA, "0001", "-r", kOwn}, 167, incorrect("--lunmaskadd")},
        {{"--lunmaskdelete", "1/0", kArrayA, "0001", "-l", "10:00"}, 168, bad_wwn},
        {{"--lunmaskquery", "1/0", "-x", kArrayA}, 167, incorrect("--lunmaskquery")},
        {{"--lunmaskquery", "1/0", "-l", "10:00:00:e1:f2:00:00:0"}, 168, bad_wwn},
    };
    for (const Case& c : cases) {
        strings args = {"fcpim"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        EXPECT_TRUE(fails(bed.qmx(args), c.status, c.err)) << c.args[0] << " " << c.args.back();
    }
    // An option without its WWN: too few arguments, and the class's usage.
    Result r = bed.qmx({"fcpim", "--lunmaskquery", "1/0", "-l", kOwn, "-r"});
    EXPECT_EQ(r.status, 4001 & 0xFF);
    EXPECT_EQ(r.err, "ERROR: Too few arguments/options provided for the command \"fcpim\"\n\n");
    EXPECT_EQ(r.out, bed.qmx({"fcpim"}).out);
    EXPECT_TRUE(effects(bed).empty());

    // Devices go only when the mask was enabled, and a clear reads the table first.
    const auto add_all = [&] {
        for (const char* lun : {"0001-0000-0000-0000", "0002-0000-0000-0000", "0000-0000-0000-0000"})
            ASSERT_EQ(bed.qmx({"fcpim", "--lunmaskadd", "1/0", kArrayA, lun}).status, 0) << lun;
    };
    add_all();
    ASSERT_EQ(bed.qmx({"fcpim", "--lunmaskadd", "1/0", kArrayB, "0001-0000-0000-0000"}).status, 0);

    // Disabled: a delete and a clear change the table only.
    ASSERT_EQ(bed.qmx({"fcpim", "--lunmaskdelete", "1/0", kArrayB, "0001-0000-0000-0000"}).status, 0);
    EXPECT_TRUE(has_device(bed, "5:0:1:1"));
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--lunmaskdisable", "1/0"}), "Lun masking disabled on  1/0 \n"));
    bed.clear_log();
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--lunmaskclear", "1/0"}), "Lun Mask List cleared\n"));
    strings done = effects(bed);
    ASSERT_EQ(done.size(), 2u);
    EXPECT_NE(done[0].find(" FCPIM_LUNMASK_QUERY "), std::string::npos) << done[0];
    EXPECT_NE(done[1].find(" FCPIM_LUNMASK_CLEAR "), std::string::npos) << done[1];
    for (const char* d : {"5:0:0:0", "5:0:0:1", "5:0:0:2", "5:0:1:1"}) EXPECT_TRUE(has_device(bed, d)) << d;

    // Enabled: the clear removes what the table it read named, LUN 0 excepted.
    add_all();
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--lunmaskenable", "1/0"}), kEnabled));
    bed.clear_log();
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--lunmaskclear", "1/0"}), "Lun Mask List cleared\n"));
    done = effects(bed);
    ASSERT_EQ(done.size(), 2u + 3u + 2u);  // query, clear, three address lookups, two removals
    EXPECT_NE(done[0].find(" FCPIM_LUNMASK_QUERY "), std::string::npos) << done[0];
    EXPECT_NE(done[1].find(" FCPIM_LUNMASK_CLEAR "), std::string::npos) << done[1];
    for (const auto& [d, kept] : {std::pair{"5:0:0:1", false}, {"5:0:0:2", false}, {"5:0:0:0", true}, {"5:0:1:1", true}})
        EXPECT_EQ(has_device(bed, d), kept) << d;
    // The driver keeps the status across a clear.
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--lunmaskquery", "1/0"}), table("Enabled")));
    EXPECT_TRUE(bed.log_clean());
}

TEST(FcpimLunmask, QueryFiltersEntriesInTableOrderWhateverTheStatus) {
    const std::string entries = "[" + entry(kOwn, kArrayA, "0001-0000-0000-0000") + ", null, " +
                                entry(kOther, kArrayB, "0003-0000-0000-0000") + ", " +
                                entry(kOwn, kArrayB, "4001-0000-0000-0000") + "]";
    const std::string a1 = row(kOwn, kArrayA, "0001-0000-0000-0000");
    const std::string b3 = row(kOther, kArrayB, "0003-0000-0000-0000");
    const std::string b301 = row(kOwn, kArrayB, "4001-0000-0000-0000");
    Bed bed = Bed::from_json(host(R"({"lun": 0})", R"({"status": 255, "entries": )" + entries + "}"));
    struct Case {
        strings options;
        std::string rows;
    } cases[] = {
        {{}, a1 + b3 + b301},
        {{"-r", kArrayB}, b3 + b301},
        {{"-l", kOwn}, a1 + b301},
        {{"-l", kOwn, "-r", kArrayB}, b301},
        {{"-r", kArrayA, "-r", kArrayB}, b3 + b301},  // the later one counts
    };
    for (const Case& c : cases) {
        strings args = {"fcpim", "--lunmaskquery", "1/0"};
        args.insert(args.end(), c.options.begin(), c.options.end());
        EXPECT_TRUE(prints(bed.qmx(args), table("Uninitialized", c.rows))) << c.options.size();
    }
    for (const auto& [status, text] : {std::pair{0, "Disabled"}, {1, "Enabled"}, {7, "Unknown"}}) {
        Bed other = Bed::from_json(host(R"({"lun": 0})", R"({"status": )" + std::to_string(status) + "}"));
        EXPECT_TRUE(prints(other.qmx({"fcpim", "--lunmaskquery", "1/0"}), table(text))) << status;
    }
    EXPECT_TRUE(bed.log_clean());
}

TEST(FcpimLunmask, DriverRefusalsAndFailedQueriesAreTheResult) {
    // A full table: sixteen LUNs of array A for the port's own WWN.
    std::string entries;
    for (int i = 1; i <= 16; ++i) {
        char lun[24];
        snprintf(lun, sizeof lun, "%04x-0000-0000-0000", i);
        entries += (i > 1 ? ", " : "") + entry(kOwn, kArrayA, lun);
    }
    Bed bed = Bed::from_json(host(R"({"lun": 0})", R"({"status": 1, "entries": [)" + entries + "]}"));
    auto err = [](const char* text) { return std::string("ERROR: ") + text + " \n"; };
    struct Case {
        strings args;
        int status;
        std::string err;
    } cases[] = {
        {{"--lunmaskadd", "1/0", kArrayB, "0001-0000-0000-0000"}, 212, err("Maximum number of entries reached")},
        {{"--lunmaskadd", "1/0", kArrayA, "0010-0000-0000-0000"}, 193, err("Entry already exists")},
        {{"--lunmaskdelete", "1/0", kArrayB, "0001-0000-0000-0000"}, 194, err("Entry does not exist")},
        {{"--lunmaskdelete", "1/0", kArrayA, "0001-0000-0000-0000", "-l", kOther}, 18, err("Unknown local port WWN")},
        {{"--lunmaskadd", "1/0", kInitiator, "0001-0000-0000-0000"}, 19, err("Unknown remote port WWN")},
    };
    for (const Case& c : cases) {
        strings args = {"fcpim"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        EXPECT_TRUE(fails(bed.qmx(args), c.status, c.err)) << c.err;
    }
    // Refused: nothing rescanned or removed.
    EXPECT_TRUE(requests(bed, "RPORT_GET_SCSI_ADDRESS").empty());

    // The delete is done, but the table cannot be read after it: that is the result, and
    // no device goes.
    bed.fault({"request", "FCPIM_LUNMASK_QUERY", "status", "57", "times", "1"});
    Result r = bed.qmx({"fcpim", "--lunmaskdelete", "1/0", kArrayA, "0001-0000-0000-0000"});
    EXPECT_TRUE(fails(r, 57, err("Invalid WWN")));
    EXPECT_TRUE(requests(bed, "RPORT_GET_SCSI_ADDRESS").empty());
    ASSERT_EQ(bed.qmx({"fcpim", "--lunmaskadd", "1/0", kArrayB, "0001-0000-0000-0000"}).status, 0);

    // Clear and enable read the table first: when they cannot, nothing changes.
    for (const char* cmd : {"--lunmaskclear", "--lunmaskenable"}) {
        bed.fault({"request", "FCPIM_LUNMASK_QUERY", "errno", "EIO", "times", "1"});
        EXPECT_TRUE(fails(bed.qmx({"fcpim", cmd, "1/0"}), 42, err("I/O error"))) << cmd;
    }
    EXPECT_TRUE(requests(bed, "FCPIM_LUNMASK_CLEAR").empty());
    EXPECT_TRUE(requests(bed, "FCPIM_LUNMASK_ENABLE").empty());
    EXPECT_EQ(scen::lines_with(bed.qmx({"fcpim", "--lunmaskquery", "1/0"}).out, kOwn).size(), 16u);
    EXPECT_TRUE(bed.log_clean());
}
