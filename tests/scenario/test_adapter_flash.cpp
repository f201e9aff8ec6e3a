// The adapter commands that read flash and attributes: the auto-start switch (one bit of the
// ASIC partition, read and written back whole) and the attribute report.
#include <string>
#include <vector>

#include "harness.h"
#include "test_adapter_hosts.h"

using adtest::flash_part;
using adtest::kAsicPart;
using adtest::kFourAdapters;
using adtest::lines_with;
using adtest::requests;
using adtest::rule;
using scen::Bed;
using scen::Result;

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

const std::string kIncorrect =
    "ERROR: command \"--autostart\" syntax is incorrect or one of the parameters is incorrect\n";

}  // namespace

// ---- --autostart ------------------------------------------------------------------------------

TEST(AdapterAutostart, OnAndOffFlipOnlyTheStartBit) {
    Bed bed = Bed::from_json(kFourAdapters);
    fill_asic(bed, "TVA1000001", 0xF3);
    const std::string asic = flash_part(bed, "TVA1000001", kAsicPart).value_or("");
    ASSERT_EQ(asic.size(), 0x10000u);
    const std::string rest = outside_asic(bed, "TVA1000001");

    Result on = bed.qmx({"adapter", "--autostart", "1", "on"});
    EXPECT_EQ(on.status, 0);
    EXPECT_EQ(on.out, "Successfully enabled the adapter auto start capability\n");
    EXPECT_EQ(on.err, "");
    EXPECT_EQ(flash_part(bed, "TVA1000001", kAsicPart), with_start(asic, 0xF7));
    EXPECT_EQ(outside_asic(bed, "TVA1000001"), rest);

    // Again: the bit stays set.
    EXPECT_EQ(bed.qmx({"adapter", "--autostart", "1", "on"}).status, 0);
    EXPECT_EQ(flash_part(bed, "TVA1000001", kAsicPart), with_start(asic, 0xF7));

    Result off = bed.qmx({"adapter", "--autostart", "TVA1000001", "off"});
    EXPECT_EQ(off.status, 0);
    EXPECT_EQ(off.out, "Successfully disabled the adapter auto start capability\n");
    EXPECT_EQ(flash_part(bed, "TVA1000001", kAsicPart), asic);
    EXPECT_EQ(outside_asic(bed, "TVA1000001"), rest);
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterAutostart, SecondDeviceIdAndTheEthernetOnlyCardWork) {
    Bed bed = Bed::from_json(kFourAdapters);
    for (const char* serial : {"TVA2000002", "TVN4000004"}) {
        fill_asic(bed, serial, 0x00);
        const std::string asic = flash_part(bed, serial, kAsicPart).value_or("");
        const std::string rest = outside_asic(bed, serial);
        bed.clear_log();
        Result r = bed.qmx({"adapter", "--autostart", serial, "on"});
        EXPECT_EQ(r.status, 0) << serial << ": " << r.err;
        EXPECT_EQ(r.out, "Successfully enabled the adapter auto start capability\n");
        EXPECT_EQ(flash_part(bed, serial, kAsicPart), with_start(asic, 0x04)) << serial;
        EXPECT_EQ(outside_asic(bed, serial), rest) << serial;
    }
    // The Ethernet function's flash goes over ethtool, not through a driver request.
    EXPECT_TRUE(requests(bed, "FLASH_UPDATE_PART").empty());
    EXPECT_FALSE(lines_with(scen::read_text(bed.dir() + "/log").value_or(""), "ethtool eth").empty());
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterAutostart, OnlyLowerCaseOnAndOffAreAccepted) {
    Bed bed = Bed::from_json(kFourAdapters);
    bed.qmx({"adapter", "--count"});
    bed.clear_log();
    for (const char* word : {"ON", "Off", "1", "enable"}) {
        Result r = bed.qmx({"adapter", "--autostart", "1", word});
        EXPECT_EQ(r.status, 167) << word;
        EXPECT_EQ(r.out, "") << word;
        EXPECT_EQ(r.err, kIncorrect) << word;
    }
    EXPECT_TRUE(lines_with(scen::read_text(bed.dir() + "/log").value_or(""), "FLASH").empty());
}

TEST(AdapterAutostart, UnsupportedDeviceIsRefusedBeforeFlashIsTouched) {
    Bed bed = Bed::from_json(kFourAdapters);
    bed.qmx({"adapter", "--count"});
    bed.clear_log();
    Result r = bed.qmx({"adapter", "--autostart", "3", "on"});
    EXPECT_EQ(r.status, 192);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "ERROR: Feature not supported \n");
    std::vector<std::string> log = bed.log();
    ASSERT_FALSE(log.empty());
    for (const std::string& l : log) {
        EXPECT_EQ(l.find("FLASH"), std::string::npos) << l;
        EXPECT_EQ(l.find("EEPROM"), std::string::npos) << l;
    }
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterAutostart, FlashWithoutAnAsicPartitionIsEmpty) {
    Bed bed = Bed::from_json(R"({"adapters": [
      {"serial": "TVA9000009", "device_id": 34,
       "flash": {"partitions": [{"type": 2, "offset": 0, "size": 65536},
                                {"type": 16, "offset": 65536, "size": 65536}]},
       "ports": [{"pwwn": "10:00:00:e1:f2:09:00:00", "functions": [{"pci": "0000:09:00.0"}]}]}]})");
    Result r = bed.qmx({"adapter", "--autostart", "1", "on"});
    EXPECT_EQ(r.status, 161);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "ERROR: Flash is empty \n");
    EXPECT_TRUE(requests(bed, "FLASH_READ_PART").empty());
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterAutostart, FailedReadLeavesFlashAloneAndFailedWriteIsReported) {
    Bed bed = Bed::from_json(kFourAdapters);
    fill_asic(bed, "TVA1000001", 0x00);
    const std::string asic = flash_part(bed, "TVA1000001", kAsicPart).value_or("");

    bed.fault({"request", "FLASH_READ_PART", "status", "9", "times", "1"});
    bed.clear_log();
    Result read = bed.qmx({"adapter", "--autostart", "1", "on"});
    EXPECT_EQ(read.status, 9);
    EXPECT_EQ(read.out, "");
    EXPECT_EQ(read.err, "ERROR: Flash is bad \n");
    EXPECT_TRUE(requests(bed, "FLASH_UPDATE_PART").empty());
    EXPECT_EQ(flash_part(bed, "TVA1000001", kAsicPart), asic);

    bed.fault({"request", "FLASH_UPDATE_PART", "errno", "EIO", "times", "1"});
    Result write = bed.qmx({"adapter", "--autostart", "1", "on"});
    EXPECT_EQ(write.status, 42);
    EXPECT_EQ(write.out, "");
    EXPECT_EQ(write.err, "ERROR: I/O error \n");
    EXPECT_EQ(flash_part(bed, "TVA1000001", kAsicPart), asic);

    bed.fault({"request", "FLASH_GET_ATTR", "status", "8", "times", "1"});
    Result attr = bed.qmx({"adapter", "--autostart", "1", "on"});
    EXPECT_EQ(attr.status, 8);
    EXPECT_EQ(attr.out, "");
}

// ---- --query ----------------------------------------------------------------------------------

TEST(AdapterQuery, AdapterAndPciSections) {
    Bed bed = Bed::from_json(kFourAdapters);
    ASSERT_EQ(bed.qmx({"adapter", "--name", "1", "hba-one"}).status, 0);
    Result ad = bed.qmx({"adapter", "--query", "hba-one", "adapter"});
    EXPECT_EQ(ad.status, 0);
    EXPECT_EQ(ad.err, "");
    EXPECT_EQ(ad.out, "Adapter id 1\n" + rule() +
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
                          "    State:               operational\n");
    Result pci = bed.qmx({"adapter", "--query", "1", "pci"});
    EXPECT_EQ(pci.status, 0);
    EXPECT_EQ(pci.out, "Adapter id 1\n" + rule() +
                           "PCI:\n"
                           "    Vendor id:           0xe1f2\n"
                           "    Device id:           0x0022\n"
                           "    Subsystem vendor id: 0xe1f2\n"
                           "    Subsystem id:        0x0022\n"
                           "    PCIe link:           Gen2 x8\n"
                           "    Chip revision:       B1\n");
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterQuery, PortSectionListsEveryFunctionByPciFunction) {
    Bed bed = Bed::from_json(kFourAdapters);
    ASSERT_EQ(bed.qmx({"adapter", "--disable", "3"}).status, 0);
    ASSERT_EQ(bed.qmx({"adapter", "--enable", "3"}).status, 0);
    const std::string head =
        "    PCI-fn  Type      Inst  PWWN/MAC                 NWWN                     State\n";
    Result r = bed.qmx({"adapter", "--query", "3", "port"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "Adapter id 3\n" + rule() + "Port 0:\n" + head +
                         "    0       Ethernet  0     02:e1:f2:03:10:00        --                       operational\n"
                         "    2       FCoE      3     10:00:00:e1:f2:03:00:00  10:00:00:e1:f2:03:00:00  operational\n"
                         "Port 1:\n" + head +
                         "    1       Ethernet  1     02:e1:f2:03:10:01        --                       operational\n"
                         "    3       FCoE      4     10:00:00:e1:f2:03:00:01  10:00:00:e1:f2:03:00:01  operational\n");
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterQuery, MixedFunctionStatesShowPerFunction) {
    std::string host = kFourAdapters;
    const std::string fn = R"({"pci": "0000:03:00.1"})";
    host.replace(host.find(fn), fn.size(), R"({"pci": "0000:03:00.1", "state": 10})");
    Bed bed = Bed::from_json(host);
    Result r = bed.qmx({"adapter", "--query", "1"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(lines_with(r.out, "State:"), std::vector<std::string>{"    State:               mixed (see ports)"});
    EXPECT_EQ(lines_with(r.out, "10:00:00:e1:f2:01:00:01"),
              std::vector<std::string>{"    1       FC        1     10:00:00:e1:f2:01:00:01  "
                                       "10:00:00:e1:f2:01:00:01  disabled"});
    // The whole report: every section, in order.
    size_t at = 0;
    for (const char* section : {"Adapter id 1\n", "Adapter:\n", "PCI:\n", "Port 0:\n", "Port 1:\n",
                                "Flash partitions:\n"}) {
        size_t found = r.out.find(section, at);
        EXPECT_NE(found, std::string::npos) << section;
        if (found != std::string::npos) at = found;
    }
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterQuery, FlashSectionNamesTypesAndStatuses) {
    Bed bed = Bed::from_json(R"({"adapters": [
      {"serial": "TVA9000009", "device_id": 34,
       "flash": {"partitions": [{"type": 2, "offset": 0, "size": 4096, "status": 3},
                                {"type": 6, "offset": 4096, "size": 4096, "status": 5},
                                {"type": 17, "instance": 2, "offset": 8192, "size": 4096, "status": 9}]},
       "ports": [{"pwwn": "10:00:00:e1:f2:09:00:00", "functions": [{"pci": "0000:09:00.0"}]}]}]})");
    Result r = bed.qmx({"adapter", "--query", "1", "flash"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "Adapter id 1\n" + rule() +
                         "Flash partitions:\n"
                         "    Type      Inst  Offset      Size        Status\n"
                         "    fw        0     0x00000000  0x00001000  bad\n"
                         "    asic      0     0x00001000  0x00001000  badcksum\n"
                         "    unknown   2     0x00002000  0x00001000  unknown\n");
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterQuery, UnreadableFlashIsNotedInTheFullReportAndFailsTheFlashSection) {
    Bed bed = Bed::from_json(kFourAdapters);
    bed.fault({"request", "FLASH_GET_ATTR", "status", "9"});
    Result full = bed.qmx({"adapter", "--query", "2"});
    EXPECT_EQ(full.status, 0);
    EXPECT_EQ(lines_with(full.out, "Flash"),
              std::vector<std::string>{"Flash partitions: unavailable (Flash is bad )"});
    EXPECT_NE(full.out.find("Port 0:\n"), std::string::npos);

    Result flash = bed.qmx({"adapter", "--query", "2", "flash"});
    EXPECT_EQ(flash.status, 9);
    EXPECT_EQ(flash.out, "");
    EXPECT_EQ(flash.err, "ERROR: Flash is bad \n");
}

TEST(AdapterQuery, UnknownSectionWordIsRefused) {
    Bed bed = Bed::from_json(kFourAdapters);
    for (const char* word : {"ports", "PCI", "all"}) {
        Result r = bed.qmx({"adapter", "--query", "1", word});
        EXPECT_EQ(r.status, 167) << word;
        EXPECT_EQ(r.out, "") << word;
        EXPECT_EQ(r.err,
                  "ERROR: command \"--query\" syntax is incorrect or one of the parameters is incorrect\n");
    }
}
