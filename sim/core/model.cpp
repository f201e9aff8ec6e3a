// state.json <-> the host model, with the checks that keep every text field within the record
// field it is copied into and every identity (PCI address, host number, interface) unique.
#include "model.h"
#include "scsi.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <set>
#include <stdexcept>

namespace kvosim {

namespace {

[[noreturn]] void fail(const std::string& where, const std::string& what) {
    throw std::runtime_error(where + ": " + what);
}

uint64_t to_u64(const json& v, const std::string& where) {
    if (v.is_number_unsigned()) return v.get<uint64_t>();
    if (v.is_number_integer()) {
        int64_t i = v.get<int64_t>();
        if (i < 0) fail(where, "must not be negative");
        return static_cast<uint64_t>(i);
    }
    if (v.is_string()) {
        const std::string s = v.get<std::string>();
        if (s.empty()) fail(where, "empty number");
        char* end = nullptr;
        errno = 0;
        unsigned long long n = strtoull(s.c_str(), &end, 0);
        if (errno != 0 || end == s.c_str() || *end != '\0' || s[0] == '-')
            fail(where, "not a number: \"" + s + "\"");
        return n;
    }
    fail(where, "must be a number");
}

uint64_t num(const json& j, const char* key, uint64_t def, const std::string& where,
             uint64_t max = UINT64_MAX) {
    auto it = j.find(key);
    if (it == j.end() || it->is_null()) return def;
    uint64_t v = to_u64(*it, where + "." + key);
    if (v > max) fail(where + "." + key, "out of range (max " + std::to_string(max) + ")");
    return v;
}

int64_t snum(const json& j, const char* key, int64_t def, const std::string& where) {
    auto it = j.find(key);
    if (it == j.end() || it->is_null()) return def;
    if (it->is_number_integer()) return it->get<int64_t>();
    return static_cast<int64_t>(to_u64(*it, where + "." + key));
}

std::string str(const json& j, const char* key, const std::string& def, const std::string& where,
                size_t max) {
    auto it = j.find(key);
    if (it == j.end() || it->is_null()) return def;
    if (!it->is_string()) fail(where + "." + key, "must be a string");
    std::string s = it->get<std::string>();
    if (s.size() > max)
        fail(where + "." + key, "longer than " + std::to_string(max) + " characters");
    return s;
}

// A host setting that is one of two words, `def` when absent: true for `other`.
bool either(const json& j, const char* key, const std::string& def, const std::string& other) {
    const std::string v = str(j, key, def, "host", 15);
    if (v != def && v != other) fail(std::string("host.") + key, "must be " + def + " or " + other);
    return v == other;
}

bool boolean(const json& j, const char* key, bool def, const std::string& where) {
    auto it = j.find(key);
    if (it == j.end() || it->is_null()) return def;
    if (!it->is_boolean()) fail(where + "." + key, "must be true or false");
    return it->get<bool>();
}

uint64_t wwn(const json& j, const char* key, uint64_t def, const std::string& where) {
    auto it = j.find(key);
    if (it == j.end() || it->is_null()) return def;
    uint64_t w = 0;
    if (it->is_string() && parse_wwn(it->get<std::string>(), w)) return w;
    fail(where + "." + key, "must be a WWN like \"20:00:00:11:22:33:44:55\"");
}

Mac mac(const json& j, const char* key, const Mac& def, const std::string& where) {
    auto it = j.find(key);
    if (it == j.end() || it->is_null()) return def;
    Mac m{};
    if (it->is_string() && parse_mac(it->get<std::string>(), m)) return m;
    fail(where + "." + key, "must be a MAC like \"00:11:22:33:44:55\"");
}

json ext_of(const json& j, const std::string& where) {
    auto it = j.find("ext");
    if (it == j.end() || it->is_null()) return json::object();
    if (!it->is_object()) fail(where + ".ext", "must be an object");
    return *it;
}

const json& array_of(const json& j, const char* key, const std::string& where) {
    static const json empty = json::array();
    auto it = j.find(key);
    if (it == j.end() || it->is_null()) return empty;
    if (!it->is_array()) fail(where + "." + key, "must be an array");
    return *it;
}

void require_object(const json& j, const std::string& where) {
    if (!j.is_object()) fail(where, "must be an object");
}

const char* const lun_types[] = {"disk", "tape", "changer", "enclosure", "raid", "cdrom"};

Lun lun_from(const json& j, const std::string& w) {
    require_object(j, w);
    Lun l;
    l.lun = num(j, "lun", 0, w, 16383);
    l.type = str(j, "type", "disk", w, 15);
    bool known = false;
    for (const char* t : lun_types) known = known || l.type == t;
    if (!known) fail(w + ".type", "unknown device type \"" + l.type + "\"");
    l.vendor = str(j, "vendor", "TORVANE", w, 8);
    l.product = str(j, "product", "", w, 16);
    l.rev = str(j, "rev", "0001", w, 4);
    l.blocks = num(j, "blocks", 0, w);
    l.block_size = static_cast<uint32_t>(num(j, "block_size", 512, w, 1u << 20));
    l.serial = str(j, "serial", "", w, 32);
    l.no_sg = boolean(j, "no_sg", false, w);
    l.present = boolean(j, "present", true, w);
    l.sg = static_cast<int>(snum(j, "sg", -1, w));
    l.dev = static_cast<int>(snum(j, "dev", -1, w));
    if (l.sg < -1 || l.sg > 32767) fail(w + ".sg", "out of range");
    if (l.dev < -1 || l.dev > 65535) fail(w + ".dev", "out of range");
    if (l.no_sg && l.sg >= 0) fail(w + ".sg", "a LUN with no_sg has no sg node");
    l.ext = ext_of(j, w);
    return l;
}

RemotePort rport_from(const json& j, const std::string& w) {
    require_object(j, w);
    RemotePort r;
    r.pwwn = wwn(j, "pwwn", 0, w);
    if (r.pwwn == 0) fail(w + ".pwwn", "required");
    r.nwwn = wwn(j, "nwwn", r.pwwn, w);
    r.port_id = static_cast<uint32_t>(num(j, "port_id", 0, w, 0xFFFFFF));
    r.target = static_cast<uint32_t>(num(j, "target", 0, w, 0xFFFF));
    r.role = str(j, "role", "target", w, 15);
    if (r.role != "target" && r.role != "initiator" && r.role != "fabric")
        fail(w + ".role", "must be target, initiator or fabric");
    const json& luns = array_of(j, "luns", w);
    std::set<uint64_t> seen;
    for (size_t i = 0; i < luns.size(); i++) {
        r.luns.push_back(lun_from(luns[i], w + ".luns[" + std::to_string(i) + "]"));
        if (!seen.insert(r.luns.back().lun).second)
            fail(w + ".luns[" + std::to_string(i) + "]", "duplicate LUN");
    }
    r.ext = ext_of(j, w);
    return r;
}

// Objects are filled key by key: initializer lists copy every value once more, which shows on
// hosts with thousands of LUNs.
json lun_to(const Lun& l) {
    json j(json::value_t::object);
    j["lun"] = l.lun;
    j["type"] = l.type;
    j["vendor"] = l.vendor;
    j["product"] = l.product;
    j["rev"] = l.rev;
    j["blocks"] = l.blocks;
    j["block_size"] = l.block_size;
    if (!l.serial.empty()) j["serial"] = l.serial;
    if (l.no_sg) j["no_sg"] = true;
    if (!l.present) j["present"] = false;
    if (l.sg >= 0) j["sg"] = l.sg;
    if (l.dev >= 0) j["dev"] = l.dev;
    if (!l.ext.empty()) j["ext"] = l.ext;
    return j;
}

json rport_to(const RemotePort& r) {
    json j(json::value_t::object);
    j["pwwn"] = wwn_str(r.pwwn);
    j["nwwn"] = wwn_str(r.nwwn);
    j["port_id"] = r.port_id;
    j["target"] = r.target;
    j["role"] = r.role;
    json& luns = j["luns"] = json::array();
    luns.get_ref<json::array_t&>().reserve(r.luns.size());
    for (const Lun& l : r.luns) luns.push_back(lun_to(l));
    if (!r.ext.empty()) j["ext"] = r.ext;
    return j;
}

const char* ioc_type_name(uint32_t t) {
    switch (t) {
    case 1: return "FC";
    case 2: return "FCoE";
    default: return "Ethernet";
    }
}

uint32_t ioc_type_from(const json& j, Driver d, const std::string& w) {
    auto it = j.find("ioc_type");
    if (it == j.end() || it->is_null()) return d == Driver::tqe ? 3 : 1;
    uint32_t t = 0;
    if (it->is_string()) {
        std::string s = it->get<std::string>();
        if (s == "FC") t = 1;
        else if (s == "FCoE") t = 2;
        else if (s == "Ethernet") t = 3;
        else fail(w + ".ioc_type", "must be FC, FCoE or Ethernet");
    } else {
        t = static_cast<uint32_t>(to_u64(*it, w + ".ioc_type"));
    }
    if (d == Driver::kvo && t != 1 && t != 2)
        fail(w + ".ioc_type", "a kvo function is FC or FCoE");
    if (d == Driver::tqe && t != 3) fail(w + ".ioc_type", "a tqe function is Ethernet");
    return t;
}

const char* mode_name(uint32_t m) {
    switch (m) {
    case 1: return "HBA";
    case 2: return "CNA";
    case 3: return "NIC";
    default: return "?";
    }
}

uint32_t mode_from(const json& j, const std::string& w) {
    auto it = j.find("mode");
    if (it == j.end() || it->is_null()) return 1;
    if (it->is_string()) {
        std::string s = it->get<std::string>();
        if (s == "HBA") return 1;
        if (s == "CNA") return 2;
        if (s == "NIC") return 3;
    }
    uint64_t v = it->is_string() ? 0 : to_u64(*it, w + ".mode");
    if (v < 1 || v > 3) fail(w + ".mode", "must be HBA, CNA or NIC");
    return static_cast<uint32_t>(v);
}

FlashPart part_from(const json& j, const std::string& w) {
    require_object(j, w);
    FlashPart p;
    p.type = static_cast<uint32_t>(num(j, "type", 0, w, 0xFFFF));
    if (p.type == 0) fail(w + ".type", "required");
    p.instance = static_cast<uint32_t>(num(j, "instance", 0, w, 0xFFFF));
    p.offset = static_cast<uint32_t>(num(j, "offset", 0, w, UINT32_MAX));
    p.size = static_cast<uint32_t>(num(j, "size", 0, w, UINT32_MAX));
    p.len = static_cast<uint32_t>(num(j, "len", 0, w, UINT32_MAX));
    p.status = static_cast<uint32_t>(num(j, "status", 0, w, UINT32_MAX));
    if (p.len > p.size) fail(w + ".len", "larger than the partition");
    return p;
}

}  // namespace

std::string wwn_str(uint64_t w) {
    char b[24];
    snprintf(b, sizeof b, "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x",
             static_cast<unsigned>(w >> 56 & 0xFF), static_cast<unsigned>(w >> 48 & 0xFF),
             static_cast<unsigned>(w >> 40 & 0xFF), static_cast<unsigned>(w >> 32 & 0xFF),
             static_cast<unsigned>(w >> 24 & 0xFF), static_cast<unsigned>(w >> 16 & 0xFF),
             static_cast<unsigned>(w >> 8 & 0xFF), static_cast<unsigned>(w & 0xFF));
    return b;
}

std::string mac_str(const Mac& m) {
    char b[20];
    snprintf(b, sizeof b, "%02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1], m[2], m[3], m[4], m[5]);
    return b;
}

namespace {
bool parse_hex_bytes(const std::string& s, uint8_t* out, size_t n) {
    // n pairs of hex digits separated by ':'
    if (s.size() != n * 3 - 1) return false;
    for (size_t i = 0; i < n; i++) {
        if (i > 0 && s[i * 3 - 1] != ':') return false;
        unsigned v = 0;
        for (size_t k = 0; k < 2; k++) {
            char c = s[i * 3 + k];
            v <<= 4;
            if (c >= '0' && c <= '9') v |= static_cast<unsigned>(c - '0');
            else if (c >= 'a' && c <= 'f') v |= static_cast<unsigned>(c - 'a' + 10);
            else if (c >= 'A' && c <= 'F') v |= static_cast<unsigned>(c - 'A' + 10);
            else return false;
        }
        out[i] = static_cast<uint8_t>(v);
    }
    return true;
}
}  // namespace

bool parse_wwn(const std::string& s, uint64_t& out) {
    uint8_t b[8];
    if (!parse_hex_bytes(s, b, 8)) return false;
    out = 0;
    for (uint8_t x : b) out = out << 8 | x;
    return true;
}

bool parse_mac(const std::string& s, Mac& out) { return parse_hex_bytes(s, out.data(), 6); }

uint32_t fc_port_id(const Function& f) {
    return f.state == 6 ? 0x010000u | (static_cast<unsigned>(f.host) & 0xFF) << 8 : 0u;
}

uint64_t fabric_wwn(const Function& f) {
    return f.state == 6 ? 0x100000051e000001ULL + static_cast<unsigned>(f.host) : 0;
}

uint32_t pci_function(const std::string& pci) {
    size_t dot = pci.rfind('.');
    if (dot == std::string::npos || dot + 1 >= pci.size()) return 0;
    return static_cast<uint32_t>(strtoul(pci.c_str() + dot + 1, nullptr, 16));
}

bool valid_pci(const std::string& pci) {
    // dddd:bb:dd.f, lower-case hex, as sysfs names PCI devices
    static const char pattern[] = "xxxx:xx:xx.x";
    if (pci.size() != sizeof pattern - 1) return false;
    for (size_t i = 0; i < pci.size(); i++) {
        char c = pci[i];
        if (pattern[i] == 'x') {
            if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) return false;
        } else if (c != pattern[i]) {
            return false;
        }
    }
    return true;
}

std::vector<FnRef> all_functions(Host& h) {
    std::vector<FnRef> out;
    for (Adapter& a : h.adapters)
        for (Port& p : a.ports)
            for (Function& f : p.functions) out.push_back({&a, &p, &f});
    return out;
}

json host_to_json(const Host& h) {
    json j;
    j["driver_version"] = h.driver_ver;
    j["drivers"] = {{"kvo", h.kvo_loaded}, {"tqe", h.tqe_loaded}, {"kvoipfc", h.ipfc_node}};
    j["sysfs_order"] = h.hash_order ? "hash" : "sorted";
    if (h.old_layout) j["sysfs_layout"] = "old";
    if (h.kernel_scsi) j["scsi"] = "kernel";
    if (h.sleep_on_io_clock) j["sleep"] = "io_clock";
    if (h.sg_to_from_read) j["sg_to_from"] = "read";
    if (h.has_conf) j["kvo_conf"] = h.kvo_conf;
    json ads = json::array();
    for (const Adapter& a : h.adapters) {
        json ja = {{"serial", a.serial},
                   {"model", a.model},
                   {"model_descr", a.model_descr},
                   {"type", a.type_text},
                   {"manufacturer", a.manufacturer},
                   {"hw_ver", a.hw_ver},
                   {"fw_ver", a.fw_ver},
                   {"optrom_ver", a.optrom_ver},
                   {"bios_ver", a.bios_ver},
                   {"chip_rev", a.chip_rev},
                   {"card_type", a.card_type},
                   {"vendor_id", a.vendor_id},
                   {"device_id", a.device_id},
                   {"ssid", a.ssid},
                   {"ssvid", a.ssvid},
                   {"mode", mode_name(a.mode)},
                   {"max_speed", a.max_speed},
                   {"name", a.name},
                   {"cna_capable", a.cna_capable},
                   {"trunk_capable", a.trunk_capable},
                   {"optrom_enabled", a.optrom_enabled},
                   {"is_mezz", a.is_mezz},
                   {"asic_rev", a.asic_rev},
                   {"pcie_gen", a.pcie_gen},
                   {"pcie_lanes", a.pcie_lanes},
                   {"hwpath", a.hwpath}};
        json fl = {{"file", a.flash_file}, {"size", a.flash_size}};
        json parts = json::array();
        for (const FlashPart& p : a.flash)
            parts.push_back({{"type", p.type},
                             {"instance", p.instance},
                             {"offset", p.offset},
                             {"size", p.size},
                             {"len", p.len},
                             {"status", p.status}});
        fl["partitions"] = parts;
        ja["flash"] = fl;
        json ports = json::array();
        for (const Port& p : a.ports) {
            json jp = {{"port", p.number}, {"pwwn", wwn_str(p.pwwn)}, {"nwwn", wwn_str(p.nwwn)},
                       {"mac", mac_str(p.mac)}};
            json fns = json::array();
            for (const Function& f : p.functions) {
                json jf = {{"pci", f.pci},
                           {"driver", f.driver == Driver::kvo ? "kvo" : "tqe"},
                           {"ioc_type", ioc_type_name(f.ioc_type)},
                           {"state", f.state},
                           {"port_name", f.port_name},
                           {"bandwidth", f.bandwidth},
                           {"pvid", f.pvid}};
                if (f.driver == Driver::kvo) {
                    jf["host"] = f.host;
                    jf["node"] = f.node;
                    jf["pwwn"] = wwn_str(f.pwwn);
                    jf["nwwn"] = wwn_str(f.nwwn);
                    jf["factory_pwwn"] = wwn_str(f.factory_pwwn);
                    jf["factory_nwwn"] = wwn_str(f.factory_nwwn);
                }
                if (f.ioc_type != 1) {
                    jf["mac"] = mac_str(f.mac);
                    jf["factory_mac"] = mac_str(f.factory_mac);
                    jf["current_mac"] = mac_str(f.current_mac);
                }
                if (!f.eth_name.empty()) jf["eth_name"] = f.eth_name;
                if (!f.rports.empty()) {
                    json& rps = jf["rports"] = json::array();
                    for (const RemotePort& r : f.rports) rps.push_back(rport_to(r));
                }
                if (!f.ext.empty()) jf["ext"] = f.ext;
                fns.push_back(jf);
            }
            jp["functions"] = fns;
            if (!p.ext.empty()) jp["ext"] = p.ext;
            ports.push_back(jp);
        }
        ja["ports"] = ports;
        if (!a.ext.empty()) ja["ext"] = a.ext;
        ads.push_back(ja);
    }
    j["adapters"] = ads;
    json fs = json::array();
    for (const Fault& f : h.faults) {
        json jf = {{"kind", f.kind}};
        if (f.kind == "request") {
            char code[16];
            snprintf(code, sizeof code, "0x%08X", f.code);
            jf["code"] = code;
            if (f.has_status) jf["status"] = f.status;
            else if (!f.reply.empty()) jf["reply"] = f.reply;
            else jf["errno"] = f.err;
            if (f.instance >= 0) jf["instance"] = f.instance;
            if (f.skip > 0) jf["skip"] = f.skip;
        } else {
            jf["path"] = f.path;
            if (f.kind == "open") jf["errno"] = f.err;
        }
        if (f.times >= 0) jf["times"] = f.times;
        fs.push_back(jf);
    }
    j["faults"] = fs;
    if (!h.ext.empty()) j["ext"] = h.ext;
    return j;
}

Host host_from_json(const json& j) {
    require_object(j, "host");
    Host h;
    h.driver_ver = str(j, "driver_version", h.driver_ver, "host", 63);
    h.hash_order = either(j, "sysfs_order", "sorted", "hash");
    h.old_layout = either(j, "sysfs_layout", "current", "old");
    h.kernel_scsi = either(j, "scsi", "emulated", "kernel");
    h.sleep_on_io_clock = either(j, "sleep", "real", "io_clock");
    h.sg_to_from_read = either(j, "sg_to_from", "refused", "read");
    std::set<std::string> pcis, ethnames, serials;
    std::set<int> hosts;
    bool any_kvo = false, any_tqe = false;
    const json& ads = array_of(j, "adapters", "host");
    int next_host = 1;
    int next_eth = 0;
    // Host numbers and interface names that the description leaves out are given in order
    // after the highest one it names.
    for (const json& ja : ads)
        for (const json& jp : array_of(ja, "ports", "host"))
            for (const json& jf : array_of(jp, "functions", "host")) {
                if (jf.is_object() && jf.contains("host") && jf["host"].is_number_integer())
                    next_host = std::max(next_host, jf["host"].get<int>() + 1);
            }
    for (size_t ai = 0; ai < ads.size(); ai++) {
        const std::string w = "adapters[" + std::to_string(ai) + "]";
        const json& ja = ads[ai];
        require_object(ja, w);
        Adapter a;
        a.serial = str(ja, "serial", "", w, 11);
        if (a.serial.empty()) fail(w + ".serial", "required");
        for (char c : a.serial)
            if (!isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_')
                fail(w + ".serial", "only letters, digits, '-' and '_'");
        if (!serials.insert(a.serial).second) fail(w + ".serial", "duplicate serial number");
        a.model = str(ja, "model", "TV-1862", w, 15);
        a.model_descr = str(ja, "model_descr", "", w, 127);
        a.type_text = str(ja, "type", "FC", w, 31);
        a.manufacturer = str(ja, "manufacturer", a.manufacturer, w, 63);
        a.hw_ver = str(ja, "hw_ver", "Rev-B1", w, 63);
        a.fw_ver = str(ja, "fw_ver", "3.2.7.0", w, 63);
        a.optrom_ver = str(ja, "optrom_ver", "3.2.7.0", w, 63);
        a.bios_ver = str(ja, "bios_ver", "3.2.7.0", w, 63);
        a.chip_rev = str(ja, "chip_rev", a.chip_rev, w, 7);
        a.card_type = static_cast<uint32_t>(num(ja, "card_type", 1862, w, UINT32_MAX));
        a.vendor_id = static_cast<uint16_t>(num(ja, "vendor_id", 0xE1F2, w, 0xFFFF));
        a.device_id = static_cast<uint16_t>(num(ja, "device_id", 0x22, w, 0xFFFF));
        a.ssid = static_cast<uint16_t>(num(ja, "ssid", a.device_id, w, 0xFFFF));
        a.ssvid = static_cast<uint16_t>(num(ja, "ssvid", a.vendor_id, w, 0xFFFF));
        a.mode = mode_from(ja, w);
        a.max_speed = static_cast<uint32_t>(num(ja, "max_speed", 16, w, UINT32_MAX));
        a.name = str(ja, "name", "", w, 63);
        a.cna_capable = boolean(ja, "cna_capable", false, w);
        a.trunk_capable = boolean(ja, "trunk_capable", false, w);
        a.optrom_enabled = boolean(ja, "optrom_enabled", true, w);
        a.is_mezz = boolean(ja, "is_mezz", false, w);
        a.asic_rev = static_cast<uint8_t>(num(ja, "asic_rev", 1, w, 255));
        a.pcie_gen = static_cast<uint8_t>(num(ja, "pcie_gen", 2, w, 255));
        a.pcie_lanes = static_cast<uint8_t>(num(ja, "pcie_lanes", 8, w, 255));
        a.ext = ext_of(ja, w);
        if (auto fl = ja.find("flash"); fl != ja.end() && !fl->is_null()) {
            require_object(*fl, w + ".flash");
            a.flash_file = str(*fl, "file", "", w + ".flash", 255);
            if (a.flash_file.find("..") != std::string::npos || (!a.flash_file.empty() && a.flash_file[0] == '/'))
                fail(w + ".flash.file", "must be a plain name inside the bed");
            a.flash_size = static_cast<uint32_t>(num(*fl, "size", 0, w + ".flash", 64u << 20));
            const json& parts = array_of(*fl, "partitions", w + ".flash");
            for (size_t i = 0; i < parts.size(); i++) {
                std::string pw = w + ".flash.partitions[" + std::to_string(i) + "]";
                a.flash.push_back(part_from(parts[i], pw));
                if (a.flash.size() > 32) fail(pw, "at most 32 partitions");
            }
        }
        const json& ports = array_of(ja, "ports", w);
        if (ports.empty()) fail(w + ".ports", "an adapter has at least one port");
        std::set<int> port_numbers;
        for (size_t pi = 0; pi < ports.size(); pi++) {
            const std::string pw = w + ".ports[" + std::to_string(pi) + "]";
            const json& jp = ports[pi];
            require_object(jp, pw);
            Port p;
            p.number = static_cast<int>(num(jp, "port", pi, pw, 255));
            if (!port_numbers.insert(p.number).second) fail(pw + ".port", "duplicate port number");
            p.pwwn = wwn(jp, "pwwn", 0, pw);
            p.nwwn = wwn(jp, "nwwn", p.pwwn, pw);
            p.mac = mac(jp, "mac", Mac{}, pw);
            p.ext = ext_of(jp, pw);
            const json& fns = array_of(jp, "functions", pw);
            for (size_t fi = 0; fi < fns.size(); fi++) {
                const std::string fw = pw + ".functions[" + std::to_string(fi) + "]";
                const json& jf = fns[fi];
                require_object(jf, fw);
                Function f;
                f.pci = str(jf, "pci", "", fw, 31);
                if (!valid_pci(f.pci)) fail(fw + ".pci", "must be a PCI address like 0000:03:00.0");
                if (!pcis.insert(f.pci).second) fail(fw + ".pci", "duplicate PCI address");
                std::string drv = str(jf, "driver", "kvo", fw, 7);
                if (drv == "kvo") f.driver = Driver::kvo;
                else if (drv == "tqe") f.driver = Driver::tqe;
                else fail(fw + ".driver", "must be kvo or tqe");
                f.ioc_type = ioc_type_from(jf, f.driver, fw);
                f.state = static_cast<uint32_t>(num(jf, "state", 6, fw, 255));
                f.port_name = str(jf, "port_name", "", fw, 63);
                f.bandwidth = static_cast<uint32_t>(num(jf, "bandwidth", 100, fw, 100));
                f.pvid = static_cast<uint16_t>(num(jf, "pvid", 0, fw, 4095));
                f.eth_name = str(jf, "eth_name", "", fw, 15);
                f.ext = ext_of(jf, fw);
                if (f.driver == Driver::kvo) {
                    any_kvo = true;
                    int64_t hn = snum(jf, "host", -1, fw);
                    if (hn < 0) hn = next_host++;
                    if (hn > 65535) fail(fw + ".host", "out of range");
                    f.host = static_cast<int>(hn);
                    if (!hosts.insert(f.host).second) fail(fw + ".host", "duplicate SCSI host number");
                    f.node = str(jf, "node", "bsg", fw, 15);
                    if (f.node != "bsg" && f.node != "fc_host" && f.node != "none")
                        fail(fw + ".node", "must be bsg, fc_host or none");
                    f.pwwn = wwn(jf, "pwwn", p.pwwn, fw);
                    f.nwwn = wwn(jf, "nwwn", p.nwwn, fw);
                    f.factory_pwwn = wwn(jf, "factory_pwwn", f.pwwn, fw);
                    f.factory_nwwn = wwn(jf, "factory_nwwn", f.nwwn, fw);
                    const json& rps = array_of(jf, "rports", fw);
                    std::set<uint32_t> targets;
                    for (size_t ri = 0; ri < rps.size(); ri++) {
                        std::string rw = fw + ".rports[" + std::to_string(ri) + "]";
                        f.rports.push_back(rport_from(rps[ri], rw));
                        if (!rps[ri].contains("target")) f.rports.back().target = static_cast<uint32_t>(ri);
                        if (!targets.insert(f.rports.back().target).second)
                            fail(rw + ".target", "duplicate SCSI target id");
                    }
                } else {
                    any_tqe = true;
                    if (f.eth_name.empty()) f.eth_name = "eth" + std::to_string(next_eth);
                    next_eth++;
                    if (jf.contains("rports")) fail(fw + ".rports", "an Ethernet function has no remote ports");
                }
                if (f.ioc_type != 1) {
                    f.mac = mac(jf, "mac", p.mac, fw);
                    f.factory_mac = mac(jf, "factory_mac", f.mac, fw);
                    f.current_mac = mac(jf, "current_mac", f.mac, fw);
                }
                if (!f.eth_name.empty()) {
                    for (char c : f.eth_name)
                        if (c == '/' || isspace(static_cast<unsigned char>(c)))
                            fail(fw + ".eth_name", "not an interface name");
                    if (!ethnames.insert(f.eth_name).second) fail(fw + ".eth_name", "duplicate interface name");
                }
                p.functions.push_back(std::move(f));
            }
            a.ports.push_back(std::move(p));
        }
        a.hwpath = str(ja, "hwpath", "", w, 31);
        if (a.hwpath.empty()) {
            for (const Port& p : a.ports)
                if (!p.functions.empty()) {
                    a.hwpath = p.functions.front().pci;
                    break;
                }
        }
        if (a.hwpath.empty()) fail(w, "an adapter needs at least one PCI function");
        h.adapters.push_back(std::move(a));
    }
    if (auto d = j.find("drivers"); d != j.end() && !d->is_null()) {
        require_object(*d, "host.drivers");
        h.kvo_loaded = boolean(*d, "kvo", any_kvo, "host.drivers");
        h.tqe_loaded = boolean(*d, "tqe", any_tqe, "host.drivers");
        h.ipfc_node = boolean(*d, "kvoipfc", h.kvo_loaded, "host.drivers");
    } else {
        h.kvo_loaded = any_kvo;
        h.tqe_loaded = any_tqe;
        h.ipfc_node = any_kvo;
    }
    if (any_kvo && !h.kvo_loaded) fail("host.drivers.kvo", "kvo functions need the kvo driver");
    if (any_tqe && !h.tqe_loaded) fail("host.drivers.tqe", "tqe functions need the tqe driver");
    if (auto c = j.find("kvo_conf"); c != j.end() && !c->is_null()) {
        if (!c->is_string()) fail("host.kvo_conf", "must be a string");
        h.kvo_conf = c->get<std::string>();
        h.has_conf = true;
    }
    const json& fs = array_of(j, "faults", "host");
    for (size_t i = 0; i < fs.size(); i++) {
        const std::string w = "faults[" + std::to_string(i) + "]";
        require_object(fs[i], w);
        Fault f;
        f.kind = str(fs[i], "kind", "", w, 15);
        if (f.kind == "request") {
            f.code = static_cast<uint32_t>(num(fs[i], "code", 0, w, UINT32_MAX));
            if (fs[i].contains("status")) {
                f.has_status = true;
                f.status = static_cast<uint32_t>(num(fs[i], "status", 0, w, UINT32_MAX));
            } else if (fs[i].contains("reply")) {
                f.reply = str(fs[i], "reply", "", w, 15);
                if (f.reply != "garbage" && f.reply != "short") fail(w + ".reply", "must be garbage or short");
            } else {
                f.err = static_cast<int>(num(fs[i], "errno", 5, w, 4095));
            }
            f.instance = static_cast<int>(snum(fs[i], "instance", -1, w));
            f.skip = static_cast<int>(num(fs[i], "skip", 0, w, INT32_MAX));
        } else if (f.kind == "open" || f.kind == "missing" || f.kind == "nohost") {
            f.path = str(fs[i], "path", "", w, 4095);
            if (f.path.empty()) fail(w + ".path", "required");
            if (f.kind == "open") f.err = static_cast<int>(num(fs[i], "errno", 13, w, 4095));
        } else {
            fail(w + ".kind", "must be request, open, missing or nohost");
        }
        f.times = static_cast<int>(snum(fs[i], "times", -1, w));
        h.faults.push_back(f);
    }
    h.ext = ext_of(j, "host");
    assign_scsi_names(h);
    return h;
}

}  // namespace kvosim
