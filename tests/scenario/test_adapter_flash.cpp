// The adapter commands that read flash and attributes: the auto-start switch (one bit of the
// ASIC partition, read and written back whole) and the attribute report.
#include <string>
#include <vector>

#include "harness.h"
#include "test_adapter_hosts.h"

using scen::fails;
using adtest::flash_part;
using adtest::kAsicPart;
using adtest::kFourAdapters;
using scen::lines_with;
using scen::prints;
using scen::requests;
using adtest::rule;
using scen::Bed;
using scen::Result;
using strings = std::vector<std::string>;

namespace {

constexpr size_t kStartByte = 28;

std::string image_path(const Bed& bed, const std::string& serial) {
    return bed.dir() + "/" + adtest::adapter_state(bed, serial)["flash"]["file"].get<std::string>();
}

// Fills the adapter's ASIC partition with a pattern whose start byte is `start`, directly in
// the image, so that a write-back that disturbs any other byte shows.
void fill_asic(const Bed& bed, const std::string& serial, uint8_t start) {
    nlohmann::json a = adtest::adapter_state(bed, serial);
    std::string img = scen::read_text(image_path(bed, serial)).value_or("");
    for (const nlohmann::json& p : a["flash"]["partitions"]) {
        if (p["type"] != kAsicPart) continue;
        size_t off = p["offset"].get<size_t>(), size = p["size"].get<size_t>();
        ASSERT_LE(off + size, img.size());
        for (size_t i = 0; i < size; i++) img[off + i] = static_cast<char>((i * 37 + 11) & 0xFF);
        img[off + kStartByte] = static_cast<char>(start);
    }
    ASSERT_TRUE(scen::write_text(image_path(bed, serial), img));
}

// The image outside the ASIC partition.
std::string outside_asic(const Bed& bed, const std::string& serial) {
    nlohmann::json a = adtest::adapter_state(bed, serial);
    std::string img = scen::read_text(image_path(bed, serial)).value_or("");
    for (const nlohmann::json& p : a["flash"]["partitions"])
        if (p["type"] == kAsicPart) img.erase(p["offset"].get<size_t>(), p["size"].get<size_t>());
    return img;
}

std::string with_start(std::string part, uint8_t start) {
    part[kStartByte] = static_cast<char>(start);
    return part;
}

std::string incorrect(const char* cmd) {
    return std::string("ERROR: command \"") + cmd +
           "\" syntax is incorrect or one of the parameters is incorrect\n";
}

const std::string kEnabled = "Successfully enabled the adapter auto start capability\n";

// One adapter whose flash has no ASIC partition, odd partition types and statuses.
const char* const kOddFlash = R"({"adapters": [
  {"serial": "TVA9000009", "device_id": 34,
   "flash": {"partitions": [{"type": 2, "offset": 0, "size": 4096, "status": 3},
                            {"type": 16, "offset": 4096, "size": 4096, "status": 5},
                            {"type": 17, "instance": 2, "offset": 8192, "size": 4096, "status": 9}]},
   "ports": [{"pwwn": "10:00:00:e1:f2:09:00:00", "functions": [{"pci": "0000:09:00.0"}]}]}]})";

}  // namespace

TEST(AdapterAutostart, OnAndOffFlipOnlyTheStartBitOfEachSupportedDevice) {
    Bed bed = Bed::from_json(kFourAdapters);
    fill_asic(bed, "TVA1000001", 0xF3);
    const std::string asic = flash_part(bed, "TVA1000001", kAsicPart).value_or("");
    ASSERT_EQ(asic.size(), 0x10000u);
    const std::string rest = outside_asic(bed, "TVA1000001");

    for (int i = 0; i < 2; i++) {  // a second "on" leaves the bit set
        EXPECT_TRUE(prints(bed.qmx({"adapter", "--autostart", "1", "on"}), kEnabled));
        EXPECT_EQ(flash_part(bed, "TVA1000001", kAsicPart), with_start(asic, 0xF7));
        EXPECT_EQ(outside_asic(bed, "TVA1000001"), rest);
    }
    EXPECT_TRUE(prints(bed.qmx({"adapter", "--autostart", "TVA1000001", "off"}),
                       "Successfully disabled the adapter auto start capability\n"));
    EXPECT_EQ(flash_part(bed, "TVA1000001", kAsicPart), asic);
    EXPECT_EQ(outside_asic(bed, "TVA1000001"), rest);
    EXPECT_TRUE(bed.log_clean());

    // The second device id and the Ethernet-only card work too.
    bed.clear_log();
    for (const char* serial : {"TVA2000002", "TVN4000004"}) {
        fill_asic(bed, serial, 0x00);
        const std::string part = flash_part(bed, serial, kAsicPart).value_or("");
        const std::string others = outside_asic(bed, serial);
        EXPECT_TRUE(prints(bed.qmx({"adapter", "--autostart", serial, "on"}), kEnabled)) << serial;
        EXPECT_EQ(flash_part(bed, serial, kAsicPart), with_start(part, 0x04)) << serial;
        EXPECT_EQ(outside_asic(bed, serial), others) << serial;
    }
    // Adapter 4's flash goes over ethtool, not through a driver request.
    EXPECT_EQ(requests(bed, "FLASH_UPDATE_PART").size(), 1u);
    EXPECT_EQ(lines_with(scen::read_text(bed.dir() + "/log").value_or(""), "ethtool eth").size(), 2u);
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterAutostart, BadWordsAndFailedRequestsLeaveFlashAlone) {
    Bed bed = Bed::from_json(kFourAdapters);
    // Bad words and unsupported devices are refused before flash is touched.
    bed.qmx({"adapter", "--count"});
    bed.clear_log();
    for (const char* word : {"ON", "Off", "1"})
        EXPECT_TRUE(fails(bed.qmx({"adapter", "--autostart", "1", word}), 167, incorrect("--autostart")));
    // Adapter 3 has device id 0x14.
    EXPECT_TRUE(fails(bed.qmx({"adapter", "--autostart", "3", "on"}), 192, "ERROR: Feature not supported \n"));
    strings log = bed.log();
    ASSERT_FALSE(log.empty());
    for (const std::string& l : log) {
        EXPECT_EQ(l.find("FLASH"), std::string::npos) << l;
        EXPECT_EQ(l.find("EEPROM"), std::string::npos) << l;
    }
    EXPECT_TRUE(bed.log_clean());

    // Failed requests leave the flash as it was.
    fill_asic(bed, "TVA1000001", 0x00);
    const std::string asic = flash_part(bed, "TVA1000001", kAsicPart).value_or("");

    bed.fault({"request", "FLASH_READ_PART", "status", "9", "times", "1"});
    bed.clear_log();
    EXPECT_TRUE(fails(bed.qmx({"adapter", "--autostart", "1", "on"}), 9, "ERROR: Flash is bad \n"));
    EXPECT_TRUE(requests(bed, "FLASH_UPDATE_PART").empty());

    bed.fault({"request", "FLASH_UPDATE_PART", "errno", "EIO", "times", "1"});
    EXPECT_TRUE(fails(bed.qmx({"adapter", "--autostart", "1", "on"}), 42, "ERROR: I/O error \n"));

    bed.fault({"request", "FLASH_GET_ATTR", "status", "8", "times", "1"});
    EXPECT_EQ(bed.qmx({"adapter", "--autostart", "1", "on"}).status, 8);
    EXPECT_EQ(flash_part(bed, "TVA1000001", kAsicPart), asic);
}

TEST(AdapterQuery, AdapterPciAndPortSections) {
    Bed bed = Bed::from_json(kFourAdapters);
    ASSERT_EQ(bed.qmx({"adapter", "--name", "1", "hba-one"}).status, 0);
    EXPECT_TRUE(prints(bed.qmx({"adapter", "--query", "hba-one", "adapter"}),
                       "Adapter id 1\n" + rule() +
                           "Adapter:\n"
                           "    Model:               TV-1862\n"
                           "    Model description:   TV-1862\n"
                           "    Serial number:       TVA1000001\n"
                           "    Name:                hba-one\n"
                           "    Card type:           1862\n"
                           "    Adapter type:        FC\n"
                           "    Mode:                FC\n"
                           "    Port count:          2\n"
                           "    Firmware version:    3.2.7.0\n"
                           "    Boot code version:   3.2.7.0\n"
                           "    State:               operational\n"));
    EXPECT_TRUE(prints(bed.qmx({"adapter", "--query", "1", "pci"}),
                       "Adapter id 1\n" + rule() +
                           "PCI:\n"
                           "    Vendor id:           0xe1f2\n"
                           "    Device id:           0x0022\n"
                           "    Subsystem vendor id: 0xe1f2\n"
                           "    Subsystem id:        0x0022\n"
                           "    PCIe link:           Gen2 x8\n"
                           "    Chip revision:       B1\n"));
    const std::string head =
        "    PCI-fn  Type      Inst  PWWN/MAC                 NWWN                     State\n";
    EXPECT_TRUE(prints(bed.qmx({"adapter", "--query", "3", "port"}),
                       "Adapter id 3\n" + rule() + "Port 0:\n" + head +
                           "    0       Ethernet  0     02:e1:f2:03:10:00        --                       operational\n"
                           "    2       FCoE      3     10:00:00:e1:f2:03:00:00  10:00:00:e1:f2:03:00:00  operational\n"
                           "Port 1:\n" + head +
                           "    1       Ethernet  1     02:e1:f2:03:10:01        --                       operational\n"
                           "    3       FCoE      4     10:00:00:e1:f2:03:00:01  10:00:00:e1:f2:03:00:01  operational\n"));
    for (const char* word : {"ports", "PCI", "all"})
        EXPECT_TRUE(fails(bed.qmx({"adapter", "--query", "1", word}), 167, incorrect("--query")));
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterQuery, FullReportShowsMixedStatesPerFunction) {
    Bed bed = Bed::from_json(adtest::partly_disabled());
    Result r = bed.qmx({"adapter", "--query", "1"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(lines_with(r.out, "State:"), strings{"    State:               mixed (see ports)"});
    EXPECT_EQ(lines_with(r.out, "10:00:00:e1:f2:01:00:01"),
              strings{"    1       FC        1     10:00:00:e1:f2:01:00:01  10:00:00:e1:f2:01:00:01  disabled"});
    size_t at = 0;  // every section, in order
    for (const char* section : {"Adapter id 1\n", "Adapter:\n", "PCI:\n", "Port 0:\n", "Port 1:\n",
                                "Flash partitions:\n", "    asic      0     0x001c0000  0x00010000  good\n"}) {
        size_t found = r.out.find(section, at);
        EXPECT_NE(found, std::string::npos) << section;
        if (found != std::string::npos) at = found;
    }

    // An unreadable partition table is noted in the full report, and fails the flash section.
    bed.fault({"request", "FLASH_GET_ATTR", "status", "9"});
    Result full = bed.qmx({"adapter", "--query", "1"});
    EXPECT_EQ(full.status, 0);
    EXPECT_EQ(lines_with(full.out, "Flash"), strings{"Flash partitions: unavailable (Flash is bad )"});
    EXPECT_TRUE(fails(bed.qmx({"adapter", "--query", "1", "flash"}), 9, "ERROR: Flash is bad \n"));
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterQuery, FlashSectionNamesTypesAndStatusesAndNoAsicPartitionIsEmpty) {
    Bed bed = Bed::from_json(kOddFlash);
    EXPECT_TRUE(prints(bed.qmx({"adapter", "--query", "1", "flash"}),
                       "Adapter id 1\n" + rule() +
                           "Flash partitions:\n"
                           "    Type      Inst  Offset      Size        Status\n"
                           "    fw        0     0x00000000  0x00001000  bad\n"
                           "    asicbk    0     0x00001000  0x00001000  badcksum\n"
                           "    unknown   2     0x00002000  0x00001000  unknown\n"));
    // Without an ASIC partition the flash is empty to the auto-start switch.
    EXPECT_TRUE(fails(bed.qmx({"adapter", "--autostart", "1", "on"}), 161, "ERROR: Flash is empty \n"));
    EXPECT_TRUE(requests(bed, "FLASH_READ_PART").empty());
    EXPECT_TRUE(bed.log_clean());
}
