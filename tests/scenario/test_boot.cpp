// boot --update: a package built with GNU tar and md5sum written into the emulated flash of one
// adapter or of all, checked byte for byte; every refusal of a bad package or command line.
#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include "boot_pkg.h"
#include "harness.h"

using boottest::bytes;
using boottest::Package;
using boottest::Rom;
using scen::Bed;
using scen::Result;
using strings = std::vector<std::string>;

namespace {

const std::string kBanner =
    "\n\nBoot code update can take a lot of time to complete. \n"
    "Please don't terminate the command as it could result in\n"
    "undesirable adapter state.\n\nUpdating boot code...\n\n";
const std::string kReboot = "A reboot of the system is needed for the newly updated image to be effective\n\n";
const std::string kOne = kBanner + "\nBoot code updated successfully\n" + kReboot;

constexpr int FWIMG = 2, OPTROM = 1, OPTROM2 = 8, FWCFG = 3, ASIC = 6, BOOTOVL = 11, PXEOVL = 14, VPD = 9;

const std::vector<Rom> kRom1 = {{0, false, 2}, {3, true, 1}};  // x86 then EFI, last bit on EFI
const std::vector<Rom> kRom2 = {{3, false, 1}, {0, true, 1}, {3, false, 1}};  // third never reached

std::string card(int type, const std::string& extra = "") {
    return "CARDTYPE=" + std::to_string(type) +
           "\nFIRMWARE=fw.bin\nOPTROM=rom1.bin\nOPTROM2=rom2.bin\nBOOTOVL=bovl.bin\nPXEOVL=pxe.bin\n"
           "FWCFG=cfg.bin\nPORT=0,1\nASICBLOCK=asic.bin\n" + extra + "\n";
}

Package full_package(const std::vector<int>& card_types, uint16_t rom_devid = 0x99) {
    Package p;
    p.boot_txt = "Version=3.0.0.0\n# cards of this release\n";
    for (int t : card_types) p.boot_txt += card(t);
    p.members = {{"fw.bin", boottest::pattern(70001, 1)},
                 {"rom1.bin", boottest::build_rom(kRom1, rom_devid)},
                 {"rom2.bin", boottest::build_rom(kRom2, rom_devid)},
                 {"bovl.bin", boottest::pattern(1234, 2)},
                 {"pxe.bin", boottest::pattern(777, 3)},
                 {"cfg.bin", boottest::pattern(256, 4)},
                 {"asic.bin", boottest::pattern(512, 5)}};
    return p;
}

// Standard output without the spinner's steps (a slow host may show some).
std::string unspun(const std::string& out) { return std::regex_replace(out, std::regex("[|/\\\\-]\r"), ""); }

// Exit status, standard output (unspun) and standard error of a run, to compare at once.
using Outcome = std::tuple<int, std::string, std::string>;
Outcome of(const Result& r) { return {r.status, unspun(r.out), r.err}; }

bytes part(const Bed& bed, const std::string& serial, int type, int instance = 0) {
    Result r = bed.kvosim("flash", {serial, std::to_string(type), std::to_string(instance)});
    EXPECT_EQ(r.status, 0) << r.err;
    return bytes(r.out.begin(), r.out.end());
}

std::vector<std::pair<std::string, uint16_t>> adapters(const Bed& bed) {
    std::vector<std::pair<std::string, uint16_t>> v;
    const nlohmann::json st = bed.state();
    for (const auto& a : st["adapters"]) {
        const auto& d = a["device_id"];
        uint16_t id = d.is_string() ? static_cast<uint16_t>(std::stoul(d.get<std::string>(), nullptr, 0))
                                    : d.get<uint16_t>();
        v.emplace_back(a["serial"].get<std::string>(), id);
    }
    return v;
}

// Every slot of the card, byte for byte, in the flash of the adapter.
void expect_flashed(const Bed& bed, const Package& p, const std::string& serial, uint16_t devid) {
    SCOPED_TRACE(serial);
    EXPECT_EQ(part(bed, serial, FWIMG), p.members.at("fw.bin"));
    EXPECT_EQ(part(bed, serial, OPTROM), boottest::expected_rom(kRom1, p.members.at("rom1.bin"), devid));
    EXPECT_EQ(part(bed, serial, OPTROM2), boottest::expected_rom(kRom2, p.members.at("rom2.bin"), devid));
    EXPECT_EQ(part(bed, serial, BOOTOVL), p.members.at("bovl.bin"));
    EXPECT_EQ(part(bed, serial, PXEOVL), p.members.at("pxe.bin"));
    EXPECT_EQ(part(bed, serial, FWCFG, 0), p.members.at("cfg.bin"));
    EXPECT_EQ(part(bed, serial, FWCFG, 1), p.members.at("cfg.bin"));
    EXPECT_EQ(part(bed, serial, ASIC), p.members.at("asic.bin"));
}

// The flash writes of the log, as "type instance len".
strings writes(const Bed& bed) {
    strings out;
    std::regex re("FLASH_UPDATE_PART .*\\(type (\\d+) instance (\\d+) len (\\d+)\\)");
    for (const std::string& l : scen::requests(bed, "FLASH_UPDATE_PART")) {
        std::smatch m;
        if (std::regex_search(l, m, re)) out.push_back(m[1].str() + " " + m[2].str() + " " + m[3].str());
    }
    return out;
}

// qmx run from dir as its working directory (where a wrapped package is unpacked).
Result qmx_in(const Bed& bed, const std::string& dir, const strings& args) {
    std::string cmd = "cd " + boottest::sh_quote(dir) + " && exec " + boottest::sh_quote(scen::qmx_bin());
    for (const std::string& a : args) cmd += " " + boottest::sh_quote(a);
    return bed.run({"/bin/sh", "-c", cmd});
}

std::string leftovers(const std::string& dir) { return boottest::sh("cd " + boottest::sh_quote(dir) + " && ls -A | grep '^tmp_' || true"); }

}  // namespace

TEST(BootUpdate, OneAdapterWritesEverySlotInOrderAndEnablesTheOptionRom) {
    Bed bed = Bed::preset("fc");
    auto [serial, devid] = adapters(bed)[0];
    Package p = full_package({1862});
    std::string pkg = boottest::make_package(bed.dir(), p);
    bed.clear_log();
    EXPECT_EQ(of(bed.qmx({"boot", "--update", "1", pkg})), Outcome(0, kOne, ""));
    expect_flashed(bed, p, serial, devid);
    EXPECT_EQ(writes(bed), (strings{"2 0 70001", "1 0 1536", "8 0 1536", "11 0 1234", "14 0 777", "3 0 256",
                                    "3 1 256", "6 0 512"}));
    strings log = bed.log();
    ASSERT_FALSE(log.empty());
    EXPECT_NE(log.back().find("FLASH_ENABLE_OPTROM"), std::string::npos) << log.back();
    EXPECT_TRUE(bed.log_clean());
}

TEST(BootUpdate, WrappedPackageGoesThroughATemporaryFileThatIsAlwaysRemoved) {
    Bed bed = Bed::preset("fc");
    auto [serial, devid] = adapters(bed)[0];
    Package p = full_package({1862});
    p.wrapped = true;
    const std::string work = bed.dir() + "/cwd";
    boottest::sh("mkdir -p " + boottest::sh_quote(work));
    std::string pkg = boottest::make_package(bed.dir(), p);
    EXPECT_EQ(of(qmx_in(bed, work, {"boot", "--update", "1", pkg})), Outcome(0, kOne, ""));
    expect_flashed(bed, p, serial, devid);
    EXPECT_EQ(leftovers(work), "");

    // A wrapped package whose digest does not match is refused, and leaves nothing behind.
    p.hash_text = "<hash>" + std::string(32, 'f') + "\n";
    pkg = boottest::make_package(bed.dir(), p);
    EXPECT_EQ(of(qmx_in(bed, work, {"boot", "--update", "1", pkg})),
              Outcome(79, kBanner, "ERROR: Not a valid Torvane Boot Code file \n"));
    EXPECT_EQ(leftovers(work), "");

    EXPECT_TRUE(bed.log_clean());
}

// Every adapter of the large host (16, two card types) in parallel; each gets the fix-up for its
// own device id.
TEST(BootUpdate, AllAdaptersOfTheLargeHostInParallel) {
    Bed bed = Bed::preset("large");
    Package p = full_package({1862, 1867});
    std::string pkg = boottest::make_package(bed.dir(), p);
    EXPECT_EQ(of(bed.qmx({"boot", "--update", pkg, "-a"})),
              Outcome(0, kBanner + "Boot code successfully updated for 16 adapters\n" + kReboot, ""));
    auto ads = adapters(bed);
    ASSERT_EQ(ads.size(), 16u);
    for (const auto& [serial, devid] : ads) expect_flashed(bed, p, serial, devid);
    EXPECT_EQ(scen::requests(bed, "FLASH_ENABLE_OPTROM").size(), 16u);
    EXPECT_TRUE(bed.log_clean());
}

TEST(BootUpdate, AllAdaptersReportsEachFailureAndCountsTheRest) {
    Bed bed = Bed::preset("demo");  // adapter 1: 1862, adapter 2: a CNA of card type 1867
    Package p = full_package({1862});
    std::string pkg = boottest::make_package(bed.dir(), p);
    EXPECT_EQ(of(bed.qmx({"boot", "--update", pkg, "-a"})),
              Outcome(0, kBanner + "adapter id 2 boot update failed\nBoot code successfully updated for 1 out of 2 adapters\n" + kReboot,
                      "ERROR: Boot image is not for the adapter(s) installed \n\n"));

    // Nothing succeeds: no count line, no reboot advice.
    bed.fault({"request", "FLASH_UPDATE_PART", "status", "17"});
    EXPECT_EQ(of(bed.qmx({"boot", "--update", pkg, "-a"})),
              Outcome(0, kBanner + "adapter id 1 boot update failed\nadapter id 2 boot update failed\n",
                      "ERROR: Flash length is invalid \n\nERROR: Boot image is not for the adapter(s) installed \n\n"));
    EXPECT_TRUE(bed.log_clean());
}

TEST(BootUpdate, VpdIsRewrittenAfterTheOptionRomForCardsThatKeepTheVersionThere) {
    Bed bed = Bed::from_json(R"({"adapters": [{"serial": "TVV2758001", "card_type": 2758, "device_id": "0x21",
        "ports": [{"pwwn": "10:00:00:e1:f2:27:58:00", "functions": [{"pci": "0000:03:00.0"}]},
                  {"pwwn": "10:00:00:e1:f2:27:58:01", "functions": [{"pci": "0000:03:00.1"}]}]}]})");
    Package p = full_package({2758});
    std::string pkg = boottest::make_package(bed.dir(), p);
    bytes vpd = part(bed, "TVV2758001", VPD);
    vpd.resize(512);
    bed.clear_log();
    Result r = bed.qmx({"boot", "--update", "1", pkg});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(writes(bed), (strings{"2 0 70001", "1 0 1536", "9 0 512", "8 0 1536", "11 0 1234", "14 0 777",
                                    "3 0 256", "3 1 256", "6 0 512"}));
    // This VPD has no read-only section: it is written back as it was.
    EXPECT_EQ(part(bed, "TVV2758001", VPD), vpd);
    EXPECT_TRUE(bed.log_clean());
}

TEST(BootUpdate, BadPackagesCommandLineFormsAndFlashFailuresStopTheUpdate) {
    Bed bed = Bed::preset("fc");
    // A bad package is refused before anything is written.
    struct Bad {
        const char* what;
        std::string boot_txt;
        std::string hash_text;
        int status;
        const char* err;
    };
    const std::string good_txt = "Version=3.0.0.0\n" + card(1862);
    const Bad bad[] = {
        {"no <hash> in the digest member", good_txt, "digest " + std::string(32, '0') + "\n", 79,
         "Not a valid Torvane Boot Code file "},
        {"another digest", good_txt, "<hash>" + std::string(32, 'a') + "\n", 79, "Not a valid Torvane Boot Code file "},
        {"digest cut short", good_txt, "<hash>0123", 79, "Not a valid Torvane Boot Code file "},
        {"another version", "Version=3.0.0.1\n" + card(1862), "", 168, "Boot code version mismatch "},
        {"second FIRMWARE in a card", "Version=3.0.0.0\n" + card(1862, "FIRMWARE=fw.bin\n"), "", 1,
         "Operation failed "},
        {"no card for the adapter", "Version=3.0.0.0\n" + card(1867), "", 169,
         "Boot image is not for the adapter(s) installed "},
    };
    for (const Bad& c : bad) {
        SCOPED_TRACE(c.what);
        Package p = full_package({});
        p.boot_txt = c.boot_txt;
        p.hash_text = c.hash_text;
        std::string pkg = boottest::make_package(bed.dir(), p);
        bed.clear_log();
        EXPECT_EQ(of(bed.qmx({"boot", "--update", "1", pkg})), Outcome(c.status, kBanner, std::string("ERROR: ") + c.err + "\n"));
        EXPECT_TRUE(writes(bed).empty());
    }

    // Hostile archives are bad files, never overruns.
    std::string pkg = boottest::make_package(bed.dir(), full_package({1862}));
    bytes good = boottest::get_file(pkg);
    ASSERT_GT(good.size(), 2048u);
    auto size_field = [](bytes b, size_t hdr, const std::string& text) {
        for (size_t i = 0; i < 12; i++) b[hdr + 124 + i] = i < text.size() ? static_cast<uint8_t>(text[i]) : 0;
        return b;
    };
    struct Hostile {
        const char* what;
        bytes data;
    };
    const size_t second = 1024;  // boot.txt is short: one header, one data block
    const Hostile hostile[] = {
        {"not an archive", bytes(good.begin() + 1, good.end())},
        {"shorter than a header", bytes(good.begin(), good.begin() + 300)},
        {"first member larger than the package", size_field(good, 0, "77777777777")},
        {"octal size that overflows", size_field(good, 0, "7777777777777")},
        {"size that is not octal", size_field(good, 0, "0000001x000")},
        {"base-256 size", size_field(good, 0, "\x80\x00\x00\x00\x00\x00\x00\x00\x00\x01\x00")},
        {"member past the end", size_field(good, second, "77777777777")},
        {"truncated in a member", bytes(good.begin(), good.begin() + good.size() / 2)},
        {"no ustar magic on the digest", [&] { bytes b = good; b[second + 257] = 'x'; return b; }()},
    };
    for (const Hostile& c : hostile) {
        SCOPED_TRACE(c.what);
        boottest::put_file(bed.dir() + "/bad.tar", c.data);
        EXPECT_EQ(of(bed.qmx({"boot", "--update", "1", bed.dir() + "/bad.tar"})),
                  Outcome(79, kBanner, "ERROR: Not a valid Torvane Boot Code file \n"));
        EXPECT_TRUE(writes(bed).empty());
    }
    EXPECT_TRUE(bed.log_clean());

    // Command-line forms.
    const std::string syntax = "ERROR: command \"--update\" syntax is incorrect or one of the parameters is incorrect\n";
    struct Case {
        strings args;
        int status;
        std::string err;
    };
    const Case cases[] = {
        {{"1", pkg, "-a"}, 4007 & 0xFF, syntax},
        {{pkg, "-x"}, 4007 & 0xFF, syntax},
        {{pkg, "-a", "-x", "13"}, 4007 & 0xFF, syntax},
        {{"1", pkg, "-d", "1x"}, 4007 & 0xFF, syntax},
        {{"1", pkg, "-d", "15"}, 91, "ERROR: Invalid device ID \n"},
        {{"7", pkg}, 4012 & 0xFF, "ERROR: adapter id \"7\" in command is incorrect\n"},
        {{"1", bed.dir() + "/none.tar"}, 105, "ERROR: File not found \n"},
        {{bed.dir() + "/none.tar", "-a"}, 105, "ERROR: File not found \n"},
    };
    for (const Case& c : cases) {
        strings args = {"boot", "--update"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        SCOPED_TRACE(args[3] + (args.size() > 4 ? " " + args[4] : ""));
        Result r = bed.qmx(args);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.err, c.err);
    }
    // Too few words after "-d", and no "-a": the count checks, with the class usage.
    Result r = bed.qmx({"boot", "--update", "1", pkg, "-d"});
    EXPECT_EQ(r.status, 4001 & 0xFF);
    EXPECT_EQ(r.err.rfind("ERROR: Too few arguments/options provided for the command \"boot\"\n\n", 0), 0u);
    r = bed.qmx({"boot", "--update", pkg});
    EXPECT_EQ(r.status, 4006 & 0xFF);

    // A valid -d id is only checked: the update reports success and writes nothing.
    bed.clear_log();
    EXPECT_TRUE(scen::prints(bed.qmx({"boot", "--update", "1", pkg, "-d", "13"}), kOne));
    EXPECT_TRUE(writes(bed).empty());
    EXPECT_TRUE(scen::requests(bed, "FLASH_ENABLE_OPTROM").empty());

    // The -d option is in the extended usage only.
    const std::string opt = " [-d <dev_id>]", hint = "dev_id should be 13 for dual port and 17 for single port card";
    r = bed.qmx({"boot", "--ehelp"});
    EXPECT_NE(r.out.find("<image file> -a" + opt), std::string::npos) << r.out;
    EXPECT_NE(r.out.find(hint), std::string::npos);
    r = bed.qmx({"boot", "--help"});
    EXPECT_EQ(r.out.find(opt), std::string::npos);
    EXPECT_EQ(r.out.find(hint), std::string::npos);
    EXPECT_TRUE(bed.log_clean());

    // The first write fails: nothing after it is written, the option ROM is not enabled.
    bed.fault({"request", "FLASH_UPDATE_PART", "status", "17", "times", "1"});
    bed.clear_log();
    EXPECT_EQ(of(bed.qmx({"boot", "--update", "1", pkg})), Outcome(17, kBanner, "ERROR: Flash length is invalid \n"));
    EXPECT_EQ(scen::requests(bed, "FLASH_UPDATE_PART").size(), 1u);
    EXPECT_TRUE(scen::requests(bed, "FLASH_ENABLE_OPTROM").empty());

    // A chain of option ROM images that runs off its member.
    Package p = full_package({1862});
    p.members["rom1.bin"] = boottest::build_rom({{3, false, 1}}, 0x22);  // no last image
    pkg = boottest::make_package(bed.dir(), p);
    bed.clear_faults();
    bed.clear_log();
    EXPECT_EQ(of(bed.qmx({"boot", "--update", "1", pkg})), Outcome(182, kBanner, "ERROR: Boot code is bad \n"));
    EXPECT_EQ(writes(bed), strings{"2 0 70001"});
    EXPECT_TRUE(bed.log_clean());
}

TEST(BootUpdate, SeventeenAdaptersAreRefusedBeforeAnythingIsOpened) {
    std::string json = R"({"adapters": [)";
    for (int i = 0; i < 17; i++) {
        char b[256];
        snprintf(b, sizeof b,
                 R"(%s{"serial": "TVX%07d", "ports": [{"pwwn": "10:00:00:e1:f2:00:%02x:00", "functions": [{"pci": "0000:%02x:00.0"}]}]})",
                 i ? "," : "", i, i, 0x10 + i);
        json += b;
    }
    Bed bed = Bed::from_json(json + "]}");
    for (const strings& args : {strings{"boot", "--update", "/nonexistent.tar", "-a"},
                                strings{"boot", "--update", "1", "/nonexistent.tar"}}) {
        EXPECT_EQ(of(bed.qmx(args)), Outcome(1, "Adapter count exceeds the maximum!\n", "ERROR: Operation failed \n"));
    }
    EXPECT_TRUE(bed.log_clean());
}
