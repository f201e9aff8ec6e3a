#pragma once
// The emulated host's hardware and driver state: adapters, their ports, the PCI functions of
// each port, and what each storage function sees behind it (remote ports and LUNs). The model
// is what state.json holds; every object keeps an `ext` JSON object for state that request
// handlers of other families add without changing these records.
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace kvosim {

using json = nlohmann::json;
using Mac = std::array<uint8_t, 6>;

struct Lun {
    uint64_t lun = 0;         // LUN number as the host addresses it (0..16383 flat space)
    std::string type = "disk";  // disk, tape, changer, enclosure, raid, cdrom
    std::string vendor;
    std::string product;
    std::string rev;
    uint64_t blocks = 0;      // capacity in logical blocks (0 for devices without one)
    uint32_t block_size = 512;
    std::string serial;
    bool no_sg = false;       // the SCSI generic driver did not attach: no sg node
    // The host's view (the kernel's, not the target's): whether a scsi_device exists for the
    // LUN, and the names the upper-level drivers gave it (-1: none). `dev` indexes the name
    // space of the LUN's type: sd for disks, sr for CD-ROMs, st for tapes.
    bool present = true;
    int sg = -1;
    int dev = -1;
    json ext = json::object();
};

struct RemotePort {
    uint64_t pwwn = 0;
    uint64_t nwwn = 0;
    uint32_t port_id = 0;     // FC address (24 bits)
    uint32_t target = 0;      // SCSI target id on the function's host
    std::string role = "target";  // target, initiator, fabric
    std::vector<Lun> luns;
    json ext = json::object();
};

enum class Driver { kvo, tqe };

struct Function {
    std::string pci;          // PCI address, "0000:03:00.0"
    Driver driver = Driver::kvo;
    uint32_t ioc_type = 1;    // kvo_ioc_type_e
    int host = -1;            // SCSI host number (storage functions)
    uint64_t pwwn = 0, nwwn = 0, factory_pwwn = 0, factory_nwwn = 0;
    Mac mac{}, factory_mac{}, current_mac{};
    std::string eth_name;     // network interface (Ethernet functions)
    uint32_t state = 6;       // kvo_ioc_state_e
    std::string port_name;
    uint32_t bandwidth = 100;
    uint16_t pvid = 0;
    std::string node = "bsg";  // storage node: bsg (/dev/bsg/fc_host<N>), fc_host (/dev/fc_host<N>), none
    std::vector<RemotePort> rports;
    json ext = json::object();
};

struct Port {
    int number = 0;
    uint64_t pwwn = 0, nwwn = 0;  // factory names of the physical port
    Mac mac{};
    std::vector<Function> functions;
    json ext = json::object();
};

struct FlashPart {
    uint32_t type = 0;        // kvo_flash_part_type_e
    uint32_t instance = 0;
    uint32_t offset = 0;
    uint32_t size = 0;
    uint32_t len = 0;         // bytes in use
    uint32_t status = 0;
};

struct Adapter {
    std::string serial;       // at most 11 characters
    std::string model;        // at most 15
    std::string model_descr;
    std::string type_text = "FC";  // adapter type as reported: FC, CNA, NIC
    std::string manufacturer = "Torvane";
    std::string hw_ver;
    std::string fw_ver;
    std::string optrom_ver;
    std::string bios_ver;
    std::string chip_rev = "B1";
    uint32_t card_type = 0;
    uint16_t vendor_id = 0xE1F2;
    uint16_t device_id = 0x22;
    uint16_t ssid = 0;
    uint16_t ssvid = 0xE1F2;
    uint32_t mode = 1;        // kvo_mode_t
    uint32_t max_speed = 16;
    std::string name;         // set by the user
    bool cna_capable = false;
    bool trunk_capable = false;
    bool optrom_enabled = true;
    bool is_mezz = false;
    uint8_t asic_rev = 1;
    uint8_t pcie_gen = 2;
    uint8_t pcie_lanes = 8;
    std::string hwpath;       // PCI address that identifies the adapter
    std::string flash_file;   // image file, relative to the bed directory
    uint32_t flash_size = 0;
    std::vector<FlashPart> flash;
    std::vector<Port> ports;
    json ext = json::object();
};

// A fault rule. kind: request, open, missing, nohost.
struct Fault {
    std::string kind;
    uint32_t code = 0;        // request: the request code
    int err = 0;              // request/open: errno to fail with (0: use status or reply)
    bool has_status = false;
    uint32_t status = 0;      // request: driver status written to the record
    std::string reply;        // request: "garbage" or "short" (a broken driver's answer)
    int instance = -1;        // request: only this kvod_num (-1: any)
    int skip = 0;             // request: matching requests let through before the rule fires
    int times = -1;           // remaining firings (-1: until cleared)
    std::string path;         // open: node path; missing: emulated path; nohost: PCI address
};

struct Host {
    std::string driver_ver = "3.2.7.0";
    bool kvo_loaded = true;   // driver directories and nodes exist
    bool tqe_loaded = true;
    bool ipfc_node = true;    // /dev/kvoipfc
    bool hash_order = false;  // sysfs directories list in the kernel's hash order, not sorted
    bool old_layout = false;  // SCSI devices link their children as block:sdb, scsi_generic:sg3
    // The SCSI side (scsi_device entries, their classes, the sg, sd and st nodes) is the real
    // kernel's: the storage functions' hosts are real SCSI hosts, and the model's target remote
    // ports and LUNs only record what the kernel had when the bed was made.
    bool kernel_scsi = false;
    bool sleep_on_io_clock = false;  // a process's sleep advances the I/O clock instead of waiting
    // SG_IO on an sg node with data to and from the device (the caller's buffer copied in, then
    // read into): kernels up to 5.x do it; 6.1 and later refuse it (ENOMEM), the default.
    bool sg_to_from_read = false;
    std::string kvo_conf;     // initial /etc/kvo.conf (written at creation when has_conf)
    bool has_conf = false;
    std::vector<Adapter> adapters;
    std::vector<Fault> faults;
    json ext = json::object();
};

// Conversions. from_json fills defaults and checks the model; a description that cannot be
// used throws std::runtime_error with a message naming the offending field.
json host_to_json(const Host& h);
Host host_from_json(const json& j);

// WWN in its written form "20:00:00:11:22:33:44:55"; the first pair is the top byte.
std::string wwn_str(uint64_t w);
std::string mac_str(const Mac& m);
bool parse_wwn(const std::string& s, uint64_t& out);
bool parse_mac(const std::string& s, Mac& out);

// The FC address of a storage function's port and the name of the fabric it logged into, as
// the fabric gave them; 0 while the port is not online.
uint32_t fc_port_id(const Function& f);
uint64_t fabric_wwn(const Function& f);

// Function number of a PCI address ("0000:03:00.1" -> 1); 0 when it has none.
uint32_t pci_function(const std::string& pci);
// True for a lower-case PCI address of the form dddd:bb:dd.f.
bool valid_pci(const std::string& pci);

// Every function of the host, in model order, with its adapter and port.
struct FnRef {
    Adapter* adapter;
    Port* port;
    Function* fn;
};
std::vector<FnRef> all_functions(Host& h);

}  // namespace kvosim
