// The channel's Ethernet flash path end to end: an Ethernet-only card's flash partitions are
// read and written through ethtool EEPROM requests at the partition's offset, a write
// starting four bytes early for its length word, except at offset 0.
#include <string>
#include <vector>

#include "harness.h"

using scen::Bed;
using scen::Result;

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

TEST(ChannelEthtool, EepromWriteAtOffsetZeroIsSentAtZero) {
    Bed bed = Bed::from_json(kNics);
    Result r = bed.qmx({"adapter", "--autostart", "TVN0000001", "on"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "Successfully enabled the adapter auto start capability\n");
    EXPECT_EQ(ethtool_lines(bed),
              (std::vector<std::string>{
                  "ethtool eth0 GEEPROM offset=0x0 len=65536 -> ok",
                  "ethtool eth0 SEEPROM offset=0x0 len=65540 -> ok (65536 bytes to partition type 6)"}));
    EXPECT_EQ(flash_byte(bed, "TVN0000001", 28) & 0x04, 0x04);
    EXPECT_TRUE(bed.log_clean());
}

TEST(ChannelEthtool, EepromWriteElsewhereStartsFourBytesEarly) {
    Bed bed = Bed::from_json(kNics);
    Result r = bed.qmx({"adapter", "--autostart", "2", "on"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(ethtool_lines(bed),
              (std::vector<std::string>{
                  "ethtool eth1 GEEPROM offset=0x20000 len=65536 -> ok",
                  "ethtool eth1 SEEPROM offset=0x1FFFC len=65540 -> ok (65536 bytes to partition type 6)"}));
    EXPECT_EQ(flash_byte(bed, "TVN0000002", 0x20000 + 28) & 0x04, 0x04);
    // The partition table itself came over the Ethernet node, type byte rewritten to 'D'.
    bool seen = false;
    for (const std::string& l : bed.log())
        if (l == "tqe /dev/tqe FLASH_GET_ATTR kvod=1 -> status=0") seen = true;
    EXPECT_TRUE(seen);
    EXPECT_TRUE(bed.log_clean());
}
