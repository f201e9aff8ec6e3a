// Identifier words end to end: adapter, port and PCI function forms, the side a command needs,
// the strict and first-IOC variants, and the messages and exit statuses of every refusal.
//
// A resolved identifier is recognised by what follows it: the commands used here (port, lport,
// bios, ethboot, vhba, vnic, pcifn) have table rows but no handler, so once the word resolves
// the command ends with "Command not supported". A refused word ends earlier with its own text.
#include <string>
#include <vector>

#include "harness.h"

using scen::Bed;
using scen::Result;

namespace {

// Adapters as qmx numbers them (storage functions are listed first, by PCI address):
//   1 TVA1000001 FC, name "alpha": port 0 0000:03:00.0, port 1 0000:03:00.1
//   2 TVC2000002 CNA: port 0 Ethernet 0000:05:00.0 + FCoE 0000:05:00.2;
//                     port 1 Ethernet 0000:05:00.1 only (no storage function)
//   3 12abc      FC: port 0 without any function, port 1 0000:07:00.1
//   4 TVA4000004 FC: port 0 0000:08:00.0, port 1 without any function
const char* const kHost = R"({
  "adapters": [
    {"serial": "TVA1000001", "model": "TV-1862", "type": "FC", "device_id": 34, "name": "alpha",
     "ports": [
       {"pwwn": "10:00:00:e1:f2:01:00:00", "nwwn": "20:00:00:e1:f2:01:00:00",
        "functions": [{"pci": "0000:03:00.0"}]},
       {"pwwn": "10:00:00:e1:f2:01:00:01", "nwwn": "20:00:00:e1:f2:01:00:01",
        "functions": [{"pci": "0000:03:00.1"}]}]},
    {"serial": "TVC2000002", "model": "TV-1867", "type": "CNA", "device_id": 20, "mode": "CNA",
     "cna_capable": true,
     "ports": [
       {"pwwn": "10:00:00:e1:f2:02:00:00", "mac": "02:e1:f2:02:00:00",
        "functions": [{"pci": "0000:05:00.0", "driver": "tqe"},
                      {"pci": "0000:05:00.2", "ioc_type": "FCoE"}]},
       {"mac": "02:e1:f2:02:00:01", "functions": [{"pci": "0000:05:00.1", "driver": "tqe"}]}]},
    {"serial": "12abc", "model": "TV-1862", "type": "FC", "device_id": 34,
     "ports": [
       {"pwwn": "10:00:00:e1:f2:03:00:00", "functions": []},
       {"pwwn": "10:00:00:e1:f2:03:00:01", "functions": [{"pci": "0000:07:00.1"}]}]},
    {"serial": "TVA4000004", "model": "TV-1862", "type": "FC", "device_id": 34,
     "ports": [
       {"pwwn": "10:00:00:e1:f2:04:00:00", "functions": [{"pci": "0000:08:00.0"}]},
       {"pwwn": "10:00:00:e1:f2:04:00:01", "functions": []}]}
  ]
})";

// Exit statuses are the codes' low eight bits.
constexpr int kNotSupported = 4002 & 0xFF;
constexpr int kBadPort = 4011 & 0xFF;
constexpr int kBadAdapter = 4012 & 0xFF;
constexpr int kBadPcifn = 4013 & 0xFF;
constexpr int kNoStorage = 4017 & 0xFF;
constexpr int kNoEthernet = 4018 & 0xFF;
constexpr int kPort0Absent = 4024 & 0xFF;

std::string describe(const std::vector<std::string>& args) {
    std::string s = "qmx";
    for (const auto& a : args) s += " '" + a + "'";
    return s;
}

void expect_refused(const Bed& bed, const std::vector<std::string>& args, int status,
                    const std::string& err) {
    Result r = bed.qmx(args);
    EXPECT_EQ(r.status, status) << describe(args);
    EXPECT_EQ(r.err, err) << describe(args);
    EXPECT_EQ(r.out, "") << describe(args);
}

void expect_resolved(const Bed& bed, const std::vector<std::string>& args) {
    expect_refused(bed, args, kNotSupported, "ERROR: \"" + args[1] + "\" Command not supported\n\n");
}

// The refusal of a word of this kind (port, adapter, pcifn).
std::string bad(const std::string& kind, const std::string& w) {
    return "ERROR: " + kind + " id \"" + w + "\" in command is incorrect\n";
}
// A port (or adapter) without a function of this side (Storage, Ethernet).
std::string no_side(const std::string& side, const std::string& w) {
    return "ERROR: Could not find " + side + " functionality on the port (or adapter) \"" + w + "\"\n";
}
const std::string kPort0Text =
    "ERROR: Please load driver on first pci function of port 0 of the adapter.\n";

}  // namespace

TEST(Identifiers, NumericPortWordsAreCheckedAgainstTheScan) {
    Bed bed = Bed::from_json(kHost);
    expect_resolved(bed, {"port", "--query", "1/0"});
    expect_resolved(bed, {"lport", "--list", "1/0"});
    expect_resolved(bed, {"lport", "--list", "1/1/1"});  // a PCI function by number
    expect_resolved(bed, {"port", "--query", "4/0"});
    // The last three are not numeric, so tried as hardware paths, which match nothing.
    for (const char* w : {"0/0", "9/0", "1/7", "4/1", "3/0", "1/2", "99999999999/0", "1/0/1/2", "1a/0", "1//0"})
        expect_refused(bed, {"port", "--query", w}, kBadPort, bad("port", w));
    expect_refused(bed, {"lport", "--list", "1/0/9"}, kBadPort, bad("port", "1/0/9"));
    EXPECT_TRUE(bed.log_clean());
}

TEST(Identifiers, PortStrictCommandsRefuseAFunctionNumber) {
    Bed bed = Bed::from_json(kHost);
    expect_resolved(bed, {"vhba", "--create", "1/0"});
    expect_refused(bed, {"vhba", "--create", "1/0/2"}, kBadPort, bad("port", "1/0/2"));
    expect_refused(bed, {"vhba", "--create", "1/0/0"}, kBadPort, bad("port", "1/0/0"));
    expect_refused(bed, {"vnic", "--create", "2/0/0"}, kBadPort, bad("port", "2/0/0"));
    EXPECT_TRUE(bed.log_clean());
}

TEST(Identifiers, PortFirstCommandsReachPortsWithoutAStorageFunction) {
    Bed bed = Bed::from_json(kHost);
    expect_resolved(bed, {"vhba", "--create", "2/1"});  // Ethernet only
    expect_resolved(bed, {"vhba", "--create", "4/1"});  // nothing bound; the card has two ports
    expect_refused(bed, {"vhba", "--create", "4/2"}, kBadPort, bad("port", "4/2"));
    expect_refused(bed, {"vhba", "--create", "9/1"}, kBadPort, bad("port", "9/1"));
    // A plain port command does not look past the scan.
    expect_refused(bed, {"bios", "--query", "4/1"}, kBadPort, bad("port", "4/1"));
    // The handler would talk to port 0's first function, and adapter 3 has none.
    expect_refused(bed, {"vhba", "--create", "3/1"}, kPort0Absent, kPort0Text);
    expect_refused(bed, {"vhba", "--create", "3/0"}, kPort0Absent, kPort0Text);
    EXPECT_TRUE(bed.log_clean());
}

TEST(Identifiers, PcifnFirstCommandsNeedAFunctionNumber) {
    Bed bed = Bed::from_json(kHost);
    expect_resolved(bed, {"vhba", "--delete", "1/0/0"});
    expect_resolved(bed, {"vhba", "--delete", "1/0/5"});  // not bound yet, still addressable
    expect_resolved(bed, {"vhba", "--delete", "10:00:00:e1:f2:01:00:01"});
    expect_refused(bed, {"vhba", "--delete", "1/0"}, kBadPcifn, bad("pcifn", "1/0"));
    expect_refused(bed, {"vhba", "--delete", "TVA1000001"}, kBadPort, bad("port", "TVA1000001"));
    // An adapter number out of range is a port-id error in either mode.
    expect_refused(bed, {"vhba", "--delete", "9/0/0"}, kBadPort, bad("port", "9/0/0"));
    EXPECT_TRUE(bed.log_clean());
}

TEST(Identifiers, TheFunctionMustBeOnTheCommandsSide) {
    Bed bed = Bed::from_json(kHost);
    expect_refused(bed, {"ethboot", "--query", "1/0"}, kNoEthernet, no_side("Ethernet", "1/0"));
    expect_refused(bed, {"bios", "--query", "2/1"}, kNoStorage, no_side("Storage", "2/1"));
    expect_resolved(bed, {"ethboot", "--query", "2/1"});
    expect_resolved(bed, {"bios", "--query", "2/0"});  // the FCoE function
    expect_resolved(bed, {"port", "--query", "2/1"});  // either side will do
    for (const char* w : {"1/0", "2/1"}) expect_resolved(bed, {"dcb", "--query", w});

    // A WWN names a storage function only.
    expect_resolved(bed, {"bios", "--query", "10:00:00:e1:f2:01:00:01"});
    expect_resolved(bed, {"bios", "--query", "20:00:00:E1:F2:01:00:00"});  // node WWN
    expect_refused(bed, {"ethboot", "--query", "10:00:00:e1:f2:01:00:00"}, kBadPort,
                   bad("port", "10:00:00:e1:f2:01:00:00"));
    expect_refused(bed, {"bios", "--query", "10:00:00:e1:f2:09:00:00"}, kBadPort,
                   bad("port", "10:00:00:e1:f2:09:00:00"));
    // Not 23 characters: taken as a hardware path.
    expect_refused(bed, {"bios", "--query", "10:00:00:e1:f2:01:00"}, kBadPort,
                   bad("port", "10:00:00:e1:f2:01:00"));

    // Hardware paths: the side check applies after the lookup.
    expect_refused(bed, {"bios", "--query", "0000:05:00.1"}, kNoStorage, no_side("Storage", "0000:05:00.1"));
    expect_refused(bed, {"ethboot", "--query", "0000:03:00.0"}, kNoEthernet,
                   no_side("Ethernet", "0000:03:00.0"));
    expect_resolved(bed, {"port", "--query", "0000:05:00.1"});  // storage fails, Ethernet holds
    expect_resolved(bed, {"bios", "--query", "0000:07:00.1"});
    EXPECT_TRUE(bed.log_clean());
}

TEST(Identifiers, RangesAndNames) {
    Bed bed = Bed::from_json(kHost);
    expect_resolved(bed, {"port", "--query", "1/0-1/1"});
    expect_refused(bed, {"port", "--query", "1/0-1/7"}, kBadPort, bad("port", "1/0-1/7"));
    expect_refused(bed, {"bios", "--query", "0/0-1/1"}, kBadPort, bad("port", "0/0-1/1"));
    // Either side will do, and the Ethernet attempt comes last: its far end, port 1 of an FC
    // card, has no Ethernet function, and that is what gets reported.
    expect_refused(bed, {"port", "--query", "0/0-1/1"}, kNoEthernet, no_side("Ethernet", "0/0-1/1"));
    // A far end that is no number and matches nothing leaves the range open.
    expect_resolved(bed, {"port", "--query", "1/0-nosuch"});
    // Words without "/" or ":" are looked up by name or serial number.
    expect_resolved(bed, {"port", "--query", "TVA4000004"});
    expect_refused(bed, {"port", "--query", "nosuch"}, kBadPort, bad("port", "nosuch"));
    EXPECT_TRUE(bed.log_clean());
}

TEST(Identifiers, AdapterWords) {
    Bed bed = Bed::from_json(kHost);
    for (const char* w : {"1", "4", "TVC2000002", "alpha", "0000:07:00.1"}) {
        expect_resolved(bed, {"pcifn", "--list", w});
    }
    // Starts with a digit and has no "/" or ":": an index, even though a serial matches.
    for (const char* w : {"12abc", "0", "5", "1/0", "nosuch", ""}) {
        expect_refused(bed, {"pcifn", "--list", w}, kBadAdapter, bad("adapter", w));
    }
    // A command without an identifier kind does not look at the word.
    expect_resolved(bed, {"port", "--list", "no-such-adapter"});
    EXPECT_TRUE(bed.log_clean());
}

TEST(Identifiers, NoAdapterPresent) {
    const std::string none = "ERROR: No Torvane adapter Found\n";
    Bed bed = Bed::from_json(R"({"drivers": {"kvo": true, "tqe": true}, "adapters": []})");
    expect_refused(bed, {"port", "--query", "1/0"}, kBadPort, none);
    expect_refused(bed, {"pcifn", "--list", "1"}, kBadAdapter, none);
    expect_refused(bed, {"vhba", "--create", "1/1"}, kBadPort, none);
    expect_refused(bed, {"vhba", "--delete", "1/0"}, kBadPort, none);
    expect_refused(bed, {"ethboot", "--query", "nosuch"}, kBadPort, none);
    EXPECT_TRUE(bed.log_clean());

    // Without the drivers the scan itself fails, before any word is looked at.
    Bed empty = Bed::preset("empty");
    const std::string no_driver = "ERROR: Torvane adapter/driver not installed or loaded \n";
    expect_refused(empty, {"port", "--query", "1/0"}, 133, no_driver);
    expect_refused(empty, {"vhba", "--create", "1/1"}, 133, no_driver);
}
