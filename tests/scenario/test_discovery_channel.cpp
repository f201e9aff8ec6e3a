// The channel's Ethernet flash path end to end: an Ethernet-only card's flash partitions are
// read and written through ethtool EEPROM requests at the partition's offset, a write
// starting four bytes early for its length word, except at offset 0.
#include <string>
#include <vector>

#include "harness.h"

using scen::Bed;
using scen::Result;
using strings = std::vector<std::string>;

namespace {

// Two Ethernet-only cards whose auto-start (ASIC) partition lies at offset 0 and at 0x20000.
const char* const kNics = R"({"adapters": [
 {"serial": "TVN0000001", "type": "NIC", "mode": "NIC", "device_id": 35,
  "flash": {"size": 4194304, "partitions": [
     {"type": 6, "instance": 0, "offset": 0, "size": 65536},
     {"type": 2, "instance": 0, "offset": 65536, "size": 1048576}]},
  "ports": [{"mac": "02:e1:f2:01:00:00", "functions": [{"pci": "0000:06:00.0", "driver": "tqe"}]}]},
 {"serial": "TVN0000002", "type": "NIC", "mode": "NIC", "device_id": 34,
  "flash": {"size": 4194304, "partitions": [
     {"type": 2, "instance": 0, "offset": 0, "size": 131072},
     {"type": 6, "instance": 0, "offset": 131072, "size": 65536}]},
  "ports": [{"mac": "02:e1:f2:02:00:00", "functions": [{"pci": "0000:07:00.0", "driver": "tqe"}]}]}
]})";

std::vector<std::string> ethtool_lines(const Bed& bed) {
    std::vector<std::string> out;
    for (const std::string& l : bed.log())
        if (l.rfind("ethtool ", 0) == 0) out.push_back(l);
    return out;
}

// Byte `at` of an adapter's emulated flash image.
int flash_byte(const Bed& bed, const std::string& serial, size_t at) {
    std::string img = scen::read_text(bed.dir() + "/flash/" + serial + ".bin").value_or("");
    return at < img.size() ? static_cast<unsigned char>(img[at]) : -1;
}

}  // namespace

TEST(ChannelEthtool, EepromWriteStartsFourBytesEarlyExceptAtOffsetZero) {
    Bed bed = Bed::from_json(kNics);
    const struct {
        const char* id;
        const char* serial;
        size_t at;  // the ASIC partition's offset
        strings ethtool;
    } cases[] = {
        {"TVN0000001", "TVN0000001", 0,
         {"ethtool eth0 GEEPROM offset=0x0 len=65536 -> ok",
          "ethtool eth0 SEEPROM offset=0x0 len=65540 -> ok (65536 bytes to partition type 6)"}},
        {"2", "TVN0000002", 0x20000,
         {"ethtool eth1 GEEPROM offset=0x20000 len=65536 -> ok",
          "ethtool eth1 SEEPROM offset=0x1FFFC len=65540 -> ok (65536 bytes to partition type 6)"}},
    };
    for (const auto& c : cases) {
        bed.clear_log();
        EXPECT_TRUE(scen::prints(bed.qmx({"adapter", "--autostart", c.id, "on"}),
                                 "Successfully enabled the adapter auto start capability\n"))
            << c.serial;
        EXPECT_EQ(ethtool_lines(bed), c.ethtool);
        EXPECT_EQ(flash_byte(bed, c.serial, c.at + 28) & 0x04, 0x04) << c.serial;
        EXPECT_TRUE(bed.log_clean());
    }
    // The partition table itself came over the Ethernet node, type byte rewritten to 'D'.
    const strings attrs = scen::requests(bed, "FLASH_GET_ATTR");
    EXPECT_FALSE(attrs.empty());
    for (const std::string& l : attrs) EXPECT_EQ(l, "tqe /dev/tqe FLASH_GET_ATTR kvod=1 -> status=0");
}
