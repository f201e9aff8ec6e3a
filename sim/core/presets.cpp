// The bundled hosts: empty (no driver loaded), fc (one dual-port FC HBA), demo (an FC HBA with
// targets and a CNA), large (16 adapters, 128 PCI functions, 1024 remote ports).
#include "presets.h"

#include <cstdio>

namespace kvosim {

namespace {

uint64_t wwn_of(uint64_t naa_prefix, uint32_t serial_part) { return naa_prefix | serial_part; }

Mac mac_of(uint32_t n) {
    // Locally administered addresses.
    return Mac{0x02, 0xe1, 0xf2, static_cast<uint8_t>(n >> 16), static_cast<uint8_t>(n >> 8),
               static_cast<uint8_t>(n)};
}

std::string pci(unsigned bus, unsigned fn) {
    char b[16];
    snprintf(b, sizeof b, "0000:%02x:00.%u", bus & 0xFF, fn & 7);
    return b;
}

Adapter fc_hba(const std::string& serial, uint16_t device_id, uint32_t id) {
    Adapter a;
    a.serial = serial;
    a.model = "TV-1862";
    a.model_descr = "Torvane-1862";
    a.type_text = "FC";
    a.card_type = 1862;
    a.device_id = device_id;
    a.ssid = device_id;
    a.mode = 1;
    a.max_speed = 16;
    a.hw_ver = "Rev-B1";
    a.fw_ver = "3.2.7.0";
    a.optrom_ver = "3.2.7.0";
    a.bios_ver = "3.2.7.0";
    a.trunk_capable = true;
    for (int p = 0; p < 2; p++) {
        Port port;
        port.number = p;
        port.pwwn = wwn_of(0x100000e1f2000000ULL, id << 8 | static_cast<uint32_t>(p));
        port.nwwn = wwn_of(0x200000e1f2000000ULL, id << 8 | static_cast<uint32_t>(p));
        port.mac = mac_of(id << 8 | static_cast<uint32_t>(p));
        a.ports.push_back(port);
    }
    return a;
}

Function storage_fn(const std::string& addr, int host, const Port& p, uint32_t ioc_type) {
    Function f;
    f.pci = addr;
    f.driver = Driver::kvo;
    f.ioc_type = ioc_type;
    f.host = host;
    f.pwwn = f.factory_pwwn = p.pwwn;
    f.nwwn = f.factory_nwwn = p.nwwn;
    if (ioc_type == 2) f.mac = f.factory_mac = f.current_mac = p.mac;
    return f;
}

Function eth_fn(const std::string& addr, const std::string& ifname, const Mac& mac) {
    Function f;
    f.pci = addr;
    f.driver = Driver::tqe;
    f.ioc_type = 3;
    f.eth_name = ifname;
    f.mac = f.factory_mac = f.current_mac = mac;
    return f;
}

Lun disk(uint64_t lun, const std::string& product, uint64_t blocks, uint32_t bs = 512) {
    Lun l;
    l.lun = lun;
    l.type = "disk";
    l.vendor = "TORVANE";
    l.product = product;
    l.rev = "0930";
    l.blocks = blocks;
    l.block_size = bs;
    return l;
}

RemotePort target(uint64_t pwwn, uint32_t port_id, uint32_t tgt) {
    RemotePort r;
    r.pwwn = pwwn;
    r.nwwn = pwwn ^ 0x0100000000000000ULL;
    r.port_id = port_id;
    r.target = tgt;
    return r;
}

void finish(Host& h) {
    h.kvo_loaded = h.tqe_loaded = h.ipfc_node = false;
    for (Adapter& a : h.adapters) {
        a.hwpath = a.ports.front().functions.front().pci;
        for (Port& p : a.ports)
            for (Function& f : p.functions) {
                if (f.driver == Driver::kvo) h.kvo_loaded = h.ipfc_node = true;
                else h.tqe_loaded = true;
            }
    }
}

Host preset_fc() {
    Host h;
    Adapter a = fc_hba("TVF2319K01A", 0x22, 0x10);
    a.ports[0].functions.push_back(storage_fn(pci(3, 0), 5, a.ports[0], 1));
    a.ports[1].functions.push_back(storage_fn(pci(3, 1), 6, a.ports[1], 1));
    h.adapters.push_back(a);
    finish(h);
    return h;
}

Host preset_demo() {
    Host h;
    Adapter hba = fc_hba("TVF2319K04B", 0x23, 0x21);
    Function f0 = storage_fn(pci(4, 0), 3, hba.ports[0], 1);
    Function f1 = storage_fn(pci(4, 1), 4, hba.ports[1], 1);
    // A disk array: LUNs of several sizes, one over 2 TiB, one with 4 KiB blocks.
    RemotePort array = target(0x500e1f2000a10001ULL, 0x010400, 0);
    array.luns.push_back(disk(0, "FlexStor 2400", 209715200));        // 100 GiB
    array.luns.push_back(disk(1, "FlexStor 2400", 2147483648ULL));    // 1 TiB
    array.luns.push_back(disk(2, "FlexStor 2400", 6442450944ULL));    // 3 TiB
    array.luns.push_back(disk(3, "FlexStor 2400", 67108864ULL, 4096)); // 256 GiB, 4K blocks
    Lun raid;
    raid.lun = 31;
    raid.type = "raid";
    raid.vendor = "TORVANE";
    raid.product = "FlexStor CTRL";
    raid.rev = "0930";
    array.luns.push_back(raid);
    // Steady I/O to the array, for the nexus counters (see kvosim io).
    array.ext["io"] = {{"read_iops", 1200}, {"write_iops", 300}, {"io_size", 8192}};
    f0.rports.push_back(array);
    // A tape library: one drive and its changer.
    RemotePort tape = target(0x500e1f2000b20001ULL, 0x010500, 1);
    Lun drive;
    drive.lun = 0;
    drive.type = "tape";
    drive.vendor = "TORVANE";
    drive.product = "LTO-8 TD";
    drive.rev = "K5T1";
    tape.luns.push_back(drive);
    Lun changer;
    changer.lun = 1;
    changer.type = "changer";
    changer.vendor = "TORVANE";
    changer.product = "TL2000 Library";
    changer.rev = "1.20";
    tape.luns.push_back(changer);
    f0.rports.push_back(tape);
    // The array's second controller, seen from port 1.
    RemotePort array2 = target(0x500e1f2000a10002ULL, 0x020400, 0);
    array2.luns.push_back(disk(0, "FlexStor 2400", 209715200));
    array2.luns.push_back(disk(1, "FlexStor 2400", 2147483648ULL));
    f1.rports.push_back(array2);
    // A third array port that logged out: its nexus is offline.
    RemotePort gone = target(0x500e1f2000a10003ULL, 0x020500, 1);
    gone.ext["itnim"] = {{"state", 0}};
    f1.rports.push_back(gone);
    hba.ports[0].functions.push_back(f0);
    hba.ports[1].functions.push_back(f1);
    h.adapters.push_back(hba);

    Adapter cna;
    cna.serial = "TVC2320M11C";
    cna.model = "TV-1867";
    cna.model_descr = "Torvane-1867";
    cna.type_text = "CNA";
    cna.card_type = 1867;
    cna.device_id = 0x14;
    cna.ssid = 0x14;
    cna.mode = 2;
    cna.max_speed = 10;
    cna.hw_ver = "Rev-C2";
    cna.fw_ver = "3.2.7.0";
    cna.optrom_ver = "3.2.7.0";
    cna.bios_ver = "3.2.7.0";
    cna.cna_capable = true;
    for (int p = 0; p < 2; p++) {
        Port port;
        port.number = p;
        port.pwwn = wwn_of(0x100000e1f2000000ULL, 0x3200 | static_cast<uint32_t>(p));
        port.nwwn = wwn_of(0x200000e1f2000000ULL, 0x3200 | static_cast<uint32_t>(p));
        port.mac = mac_of(0x3200 | static_cast<uint32_t>(p) << 4);
        Mac emac = mac_of(0x3200 | static_cast<uint32_t>(p) << 4 | 1);
        port.functions.push_back(eth_fn(pci(5, static_cast<unsigned>(p)), "eth" + std::to_string(p), emac));
        Function fcoe = storage_fn(pci(5, 2 + static_cast<unsigned>(p)), 7 + p, port, 2);
        if (p == 0) {
            RemotePort t = target(0x500e1f2000c30001ULL, 0x0a0100, 0);
            t.luns.push_back(disk(0, "FlexStor 1200", 419430400));  // 200 GiB
            t.luns.push_back(disk(1, "FlexStor 1200", 41943040));   // 20 GiB
            fcoe.rports.push_back(t);
        }
        port.functions.push_back(fcoe);
        cna.ports.push_back(port);
    }
    h.adapters.push_back(cna);
    finish(h);
    return h;
}

Host preset_large() {
    Host h;
    int host = 1;
    int eth = 0;
    uint32_t rport_no = 0;
    for (unsigned ad = 0; ad < 16; ad++) {
        const bool cna = ad >= 8;
        char serial[16];
        snprintf(serial, sizeof serial, "TVL24%02uA%03u", ad, 100 + ad);
        Adapter a = fc_hba(serial, cna ? 0x14 : 0x22, 0x400 + ad);
        if (cna) {
            a.model = "TV-1867";
            a.model_descr = "Torvane-1867";
            a.type_text = "CNA";
            a.card_type = 1867;
            a.mode = 2;
            a.max_speed = 10;
            a.cna_capable = true;
            a.trunk_capable = false;
        }
        const unsigned bus = 0x10 + ad;
        for (unsigned p = 0; p < 2; p++) {
            Port& port = a.ports[p];
            for (unsigned k = 0; k < 4; k++) {
                const unsigned fn = p * 4 + k;
                if (cna && k >= 2) {
                    Mac m = port.mac;
                    m[5] = static_cast<uint8_t>(m[5] + 0x10 * k);
                    port.functions.push_back(eth_fn(pci(bus, fn), "eth" + std::to_string(eth++), m));
                    continue;
                }
                Function f = storage_fn(pci(bus, fn), host++, port, cna ? 2 : 1);
                if (k > 0) {
                    // Additional functions of a port carry their own names.
                    f.pwwn = f.factory_pwwn = port.pwwn + (uint64_t{k} << 32);
                    f.nwwn = f.factory_nwwn = port.nwwn + (uint64_t{k} << 32);
                    if (cna) f.mac[5] = f.factory_mac[5] = f.current_mac[5] = static_cast<uint8_t>(f.mac[5] + k);
                }
                // The FC adapters' functions each see 16 targets with 4 LUNs.
                if (!cna) {
                    for (uint32_t t = 0; t < 16; t++, rport_no++) {
                        RemotePort r = target(0x500e1f2100000000ULL | rport_no, 0x100000 | rport_no, t);
                        for (uint64_t l = 0; l < 4; l++)
                            r.luns.push_back(disk(l, "FlexStor 2400", 20971520ULL << l));
                        f.rports.push_back(r);
                    }
                }
                port.functions.push_back(f);
            }
        }
        h.adapters.push_back(a);
    }
    finish(h);
    return h;
}

}  // namespace

const char* const preset_names[] = {"empty", "fc", "demo", "large"};

bool make_preset(const std::string& name, Host& out) {
    if (name == "empty") {
        out = Host();
        out.kvo_loaded = out.tqe_loaded = out.ipfc_node = false;
        return true;
    }
    if (name == "fc") out = preset_fc();
    else if (name == "demo") out = preset_demo();
    else if (name == "large") out = preset_large();
    else return false;
    return true;
}

}  // namespace kvosim
