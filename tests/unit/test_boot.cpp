// The boot package's pieces without an adapter: MD5, boot.txt, the option ROM fix-up, the VPD
// version field.
#include <gtest/gtest.h>
#include <cstdlib>
#include <string>
#include <vector>

#include "../scenario/boot_pkg.h"
#include "kvol_boot.h"
#include "kvol_md5.h"

using boottest::bytes;
using boottest::Rom;

namespace {

std::string md5(const std::string& s) {
    char hex[33];
    kvol_md5_hex(s.data(), s.size(), hex);
    return hex;
}

std::vector<CARD_DATA_T> parse(const std::string& text, kvo_status_t expect = KVO_STATUS_OK) {
    std::vector<CARD_DATA_T> cards;
    EXPECT_EQ(kvol_populate_card_data(reinterpret_cast<const uint8_t*>(text.data()), text.size(), cards), expect)
        << text;
    return cards;
}

// A card as one line: its type, its seven names ("-" for none), its instances, their count.
std::string card(const CARD_DATA_T& c) {
    std::string s = std::to_string(c.card_type);
    for (const char* n : {c.firmware_name, c.option_rom_name, c.option_rom_2_name, c.boot_overlay_name,
                          c.pxe_overlay_name, c.fw_config_name, c.asic_block_name})
        s += std::string(" ") + (*n ? n : "-");
    s += " |";
    for (uint8_t p : c.port) s += " " + std::to_string(p);
    return s + " | " + std::to_string(c.portcnt);
}

// A scratch directory removed afterwards.
struct TempDir {
    std::string path;
    TempDir() {
        char t[] = "/tmp/qmx_boot_XXXXXX";
        path = mkdtemp(t);
    }
    ~TempDir() { boottest::sh("rm -rf " + boottest::sh_quote(path)); }
};

}  // namespace

// Around the padding boundaries (55/56/64 bytes mod 64), from the empty message up, against
// coreutils' md5sum.
TEST(BootMd5, AgreesWithMd5sum) {
    TempDir d;
    for (size_t n : {0u, 1u, 3u, 55u, 56u, 57u, 63u, 64u, 65u, 119u, 120u, 128u, 1000u}) {
        bytes b = boottest::pattern(n, static_cast<uint8_t>(n));
        boottest::put_file(d.path + "/f", b);
        std::string want = boottest::sh("md5sum " + d.path + "/f | cut -c1-32 | tr -d '\\n'");
        EXPECT_EQ(md5(std::string(b.begin(), b.end())), want) << n;
    }
}

TEST(BootTxt, VersionLine) {
    struct Case {
        const char* text;
        kvo_status_t want;
    } cases[] = {
        {"Version=3.0.0.0\nCARDTYPE=1\n", KVO_STATUS_OK},
        {"Version=3.0.0.0", KVO_STATUS_OK},
        {"Version=3.0.0.1\n", KVO_STATUS_BOOT_VERSION},
        {"Version=3.0.0.0\r\n", KVO_STATUS_BOOT_VERSION},
        {"Version=3.0.0.0 \n", KVO_STATUS_BOOT_VERSION},
        {"Version 3.0.0.0\n", KVO_STATUS_BAD_FILE},
        {"version=3.0.0.0\n", KVO_STATUS_BAD_FILE},
        {"\nVersion=3.0.0.0\n", KVO_STATUS_BAD_FILE},
        {"", KVO_STATUS_BAD_FILE},
    };
    for (const Case& c : cases) {
        IMAGEFILE_DATA_T im{};
        im.ibuf.assign(c.text, c.text + strlen(c.text));
        EXPECT_EQ(kvol_check_boot_code_version(im), c.want) << c.text;
    }
}

TEST(BootTxt, CardsAndTheirSlots) {
    auto cards = parse(
        "Version=3.0.0.0\n"
        "# CARDTYPE=9999 FIRMWARE=commented.bin\n"
        "CARDTYPE=1862\n"
        "FIRMWARE=fw.bin\tnot part of the name\n"
        "OPTROM2=rom2.bin\n"
        "OPTROM=rom1.bin\r\n"
        "BOOTOVL=b.bin\nPXEOVL=p.bin\nFWCFG=c.bin\nASICBLOCK=a.bin\n"
        "PORT=0,1,a\n"
        "\n"
        "CARDTYPE=1867\n"
        "FIRMWARE=fw2.bin\n"
        "\n"
        "CARDTYPE=2758\n"
        "FWCFG\n");
    ASSERT_EQ(cards.size(), 3u);
    EXPECT_EQ(card(cards[0]), "1862 fw.bin rom1.bin rom2.bin b.bin p.bin c.bin a.bin | 0 1 10 | 3");
    // Closed without PORT: the first instance only; the last card is closed by the end.
    EXPECT_EQ(card(cards[1]), "1867 fw2.bin - - - - - - | 0 | 1");
    EXPECT_EQ(card(cards[2]), "2758 - - - - - - - | 0 | 1");  // "FWCFG" without "=": no name
}

TEST(BootTxt, MalformedCardsFailTheParse) {
    const char* bad[] = {
        "CARDTYPE=1\nFIRMWARE=a\nFIRMWARE=b\n",       // twice in a card
        "CARDTYPE=1\nOPTROM=a\nOPTROM=b\n",
        "CARDTYPE=1\nPORT=0\nPORT=1\n",
        "FWCFG=a\nCARDTYPE=1\n",                      // before any card
        "CARDTYPE=1\nFIRMWARE=a\n\nFIRMWARE=b\n",     // after the card closed
        "CARDTYPE=1\nFIRMWARE=a\r\n\r\nCARDTYPE=2\n", // "\r\n" does not close a card
        "CARDTYPE=1\nPORT=0,,1\n",
        "CARDTYPE=1\nPORT=100\n",
        "CARDTYPE=1\nPORT=g\n",
        "CARDTYPE=99999999999\n",
    };
    for (const char* t : bad) parse(t, KVO_STATUS_FAILED);
}

// Names are cut to their field; a keyword past the 511th character starts a piece of its own.
TEST(BootTxt, LongLines) {
    auto cards = parse("CARDTYPE=1\nFIRMWARE=" + std::string(600, 'n') + "\n");
    ASSERT_EQ(cards.size(), 1u);
    EXPECT_EQ(std::string(cards[0].firmware_name), std::string(99, 'n'));
    parse("CARDTYPE=1\nFIRMWARE=a" + std::string(520, ' ') + "FIRMWARE=b\n", KVO_STATUS_FAILED);
}

// ---- Option ROM fix-up ----------------------------------------------------------------------

namespace {
char ver[KVOL_BOOT_VER_LEN + 1];
kvo_status_t fixup(bytes& rom, uint16_t devid, int first = 0) {
    return kvol_update_device_id_chksum(rom.data(), rom.size(), devid, first, ver);
}
bytes unswapped(bytes b) {
    kvol_swap32_words(b.data(), b.size());
    return b;
}
}  // namespace

TEST(BootOptionRom, ChainsAreFixedUpForTheCardsDeviceId) {
    struct Case {
        const char* what;
        std::vector<Rom> chain;
        uint16_t devid;
    } cases[] = {
        {"one x86 image", {{0, true, 1}}, 0x22},
        {"x86 then EFI", {{0, false, 2}, {3, true, 1}}, 0x14},
        {"EFI, x86 last, an image never reached", {{3, false, 1}, {0, true, 1}, {3, false, 1}}, 0x17},
        {"non-x86 only", {{1, false, 1}, {3, true, 3}}, 0x21},
        {"id not taken by the cards: EFI summed, x86 ends it", {{3, false, 1}, {0, false, 1}, {3, true, 1}}, 0x13},
        {"id not taken, x86 first: nothing changes", {{0, false, 1}, {3, true, 1}}, 0x13},
        {"last bit on the first image", {{3, true, 1}, {0, true, 1}}, 0x23},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        bytes rom = boottest::build_rom(c.chain, 0x99);
        bytes want = unswapped(boottest::expected_rom(c.chain, rom, c.devid));
        EXPECT_EQ(fixup(rom, c.devid), KVO_STATUS_OK);
        EXPECT_EQ(rom, want);
    }
}

TEST(BootOptionRom, BrokenChainsAreBadBootCode) {
    auto with = [](bytes b, size_t at, uint8_t v) {
        b[at] = v;
        return b;
    };
    const bytes one = boottest::build_rom({{3, true, 1}}, 0x22);
    const bytes open_chain = boottest::build_rom({{3, false, 1}}, 0x22);
    struct Case {
        const char* what;
        bytes rom;
    } cases[] = {
        {"empty", {}},
        {"shorter than the header", bytes(one.begin(), one.begin() + 0x10)},
        {"chain runs off the end", open_chain},
        {"image length zero", with(one, boottest::kPcirAt + 0x10, 0)},
        {"image longer than the member", with(one, boottest::kPcirAt + 0x10, 2)},
        {"PCI data structure outside", with(with(one, 0x18, 0xFF), 0x19, 0x01)},
        {"PnP header outside the image", with(with(boottest::build_rom({{0, true, 1}}, 0x22), 0x1A, 0xF8), 0x1B, 0x01)},
        {"PnP length past the image", with(boottest::build_rom({{0, true, 1}}, 0x22), boottest::kPnpAt + 5, 0xFF)},
        {"version outside the image", with(with(boottest::build_rom({{0, true, 1}}, 0x22), 0x16, 0xFE), 0x17, 0x01)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        bytes rom = c.rom;
        int first = strcmp(c.what, "version outside the image") == 0 ? 1 : 0;
        EXPECT_EQ(kvol_update_device_id_chksum(rom.data(), rom.size(), 0x22, first, ver), KVO_STATUS_BAD_BOOT_CODE);
    }
}

// The version is taken from the first option ROM of the process only, and only from an x86
// image. (This test owns the process's first call with first set; no other test makes one.)
TEST(BootOptionRom, VersionIsCapturedOnceFromTheFirstOptionRom) {
    memset(ver, '0', KVOL_BOOT_VER_LEN);
    ver[KVOL_BOOT_VER_LEN] = '\0';
    bytes efi = boottest::build_rom({{3, true, 1}}, 0x22, "9.9.9.9");
    ASSERT_EQ(fixup(efi, 0x22, 1), KVO_STATUS_OK);
    bytes second = boottest::build_rom({{0, true, 1}}, 0x22, "7.7.7.7");
    ASSERT_EQ(fixup(second, 0x22, 0), KVO_STATUS_OK);
    EXPECT_STREQ(ver, "000000000000");
    bytes rom = boottest::build_rom({{0, true, 1}}, 0x22, "3.4.1.0");
    ASSERT_EQ(fixup(rom, 0x22, 1), KVO_STATUS_OK);
    EXPECT_STREQ(ver, "03.04.01.000");
    bytes later = boottest::build_rom({{0, true, 1}}, 0x22, "5.5.5.5");
    ASSERT_EQ(fixup(later, 0x22, 1), KVO_STATUS_OK);
    EXPECT_STREQ(ver, "03.04.01.000");
}

TEST(BootVpd, VersionKeywordAndChecksum) {
    // ID string, read-only section with PN, V1 (8 bytes) and RV, end tag.
    bytes vpd = {0x82, 3, 0, 'T', 'V', 'x', 0x90, 21, 0, 'P', 'N', 3, 'A', 'B', 'C',
                 'V', '1', 8, 'o', 'l', 'd', ' ', ' ', ' ', ' ', ' ', 'R', 'V', 1, 0x00, 0x78};
    vpd.resize(512, 0);
    ASSERT_TRUE(kvol_vpd_set_fw_version(vpd.data(), vpd.size(), "03.04.01.000", 12));
    EXPECT_EQ(std::string(vpd.begin() + 18, vpd.begin() + 26), "03.04.01");
    EXPECT_EQ(boottest::sum(vpd, 0, 30), 0);

    bytes no_r = {0x82, 2, 0, 'T', 'V', 0x78};
    no_r.resize(512, 0);
    bytes before = no_r;
    EXPECT_FALSE(kvol_vpd_set_fw_version(no_r.data(), no_r.size(), "x", 1));
    EXPECT_EQ(no_r, before);
    bytes runaway = {0x82, 0xFF, 0x7F};
    EXPECT_FALSE(kvol_vpd_set_fw_version(runaway.data(), runaway.size(), "x", 1));
}
