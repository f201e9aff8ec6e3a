// IOC requests: the identity of a PCI function (information) and its attributes.
#include <cinttypes>
#include <cstdio>

#include "drv.h"

namespace kvosim {

namespace {

std::string guid_of(const Adapter& a, const Port& p, const Function& f) {
    char b[96];
    snprintf(b, sizeof b, "%s-p%d-f%u", a.serial.c_str(), p.number, pci_function(f.pci));
    return b;
}

kvo_status_t ioc_get_info(Req& r) {
    auto& rec = r.rec<kvo_ioc_info_t>();
    const Adapter& a = r.adapter();
    const Port& p = r.port();
    const Function& f = r.fn();
    put_str(rec.serialnum, a.serial);
    put_str(rec.hwpath, f.pci);
    put_str(rec.adapter_hwpath, a.hwpath);
    put_str(rec.guid, guid_of(a, p, f));
    put_str(rec.name, a.name);
    put_str(rec.port_name, f.port_name);
    put_str(rec.eth_name, f.eth_name);
    const bool storage = f.driver == Driver::kvo;
    rec.pwwn = storage ? wire_wwn(f.pwwn) : 0;
    rec.nwwn = storage ? wire_wwn(f.nwwn) : 0;
    rec.factorypwwn = storage ? wire_wwn(f.factory_pwwn) : 0;
    rec.factorynwwn = storage ? wire_wwn(f.factory_nwwn) : 0;
    rec.mac = wire_mac(f.mac);
    rec.factory_mac = wire_mac(f.factory_mac);
    rec.current_mac = wire_mac(f.current_mac);
    memset(rec.pad, 0, sizeof rec.pad);
    rec.ioc_type = f.ioc_type;
    rec.pvid = f.pvid;
    rec.rsvd1 = 0;
    rec.host = storage ? static_cast<uint32_t>(f.host) : 0;
    rec.bandwidth = f.bandwidth;
    rec.rsvd2 = 0;
    return KVO_STATUS_OK;
}

kvo_status_t ioc_get_attr(Req& r) {
    auto& rec = r.rec<kvo_ioc_attr_t>();
    const Host& h = r.st.host;
    const Adapter& a = r.adapter();
    const Port& p = r.port();
    const Function& f = r.fn();
    const bool storage = f.driver == Driver::kvo;
    rec.ioc_type = f.ioc_type;
    rec.state = f.state;
    rec.port_id = static_cast<uint32_t>(p.number);
    rec.port_mode = a.mode;
    rec.pwwn = storage ? wire_wwn(f.pwwn) : 0;
    rec.nwwn = storage ? wire_wwn(f.nwwn) : 0;
    rec.mac = wire_mac(f.current_mac);
    memset(rec.rsvd1, 0, sizeof rec.rsvd1);
    rec.bandwidth = f.bandwidth;

    kvo_adapter_attr_s& aa = rec.adapter_attr;
    memset(&aa, 0, sizeof aa);
    put_str(aa.manufacturer, a.manufacturer);
    put_str(aa.serial_num, a.serial);
    put_str(aa.model, a.model);
    put_str(aa.model_descr, a.model_descr);
    put_str(aa.adapter_type, a.type_text);
    put_str(aa.hw_ver, a.hw_ver);
    put_str(aa.fw_ver, a.fw_ver);
    put_str(aa.optrom_ver, a.optrom_ver);
    put_str(aa.bios_ver, a.bios_ver);
    aa.card_type = a.card_type;
    aa.mode = a.mode;
    aa.max_speed = a.max_speed;
    aa.nports = static_cast<uint8_t>(a.ports.size());
    aa.cna_capable = a.cna_capable;
    aa.trunk_capable = a.trunk_capable;
    aa.optrom_enabled = a.optrom_enabled;
    aa.is_mezz = a.is_mezz;
    aa.asic_rev = a.asic_rev;
    const Port& p0 = a.ports.front();
    aa.pwwn = wire_wwn(p0.pwwn);
    aa.nwwn = wire_wwn(p0.nwwn);
    aa.mac = wire_mac(p0.mac);

    kvo_pci_attr_s& pa = rec.pci_attr;
    memset(&pa, 0, sizeof pa);
    pa.vendor_id = a.vendor_id;
    pa.device_id = a.device_id;
    pa.ssid = a.ssid;
    pa.ssvid = a.ssvid;
    pa.pcifn = pci_function(f.pci);
    pa.pcie_gen = a.pcie_gen;
    pa.pcie_lanes = a.pcie_lanes;
    pa.pcie_lanes_orig = a.pcie_lanes;
    put_str(pa.chip_rev, a.chip_rev);

    put_str(rec.driver_ver, h.driver_ver);
    put_str(rec.fw_ver, a.fw_ver);
    put_str(rec.optrom_ver, a.optrom_ver);
    memset(rec.rsvd3, 0, sizeof rec.rsvd3);
    return KVO_STATUS_OK;
}

constexpr HandlerEntry ioc_handlers[] = {
    {KVO_IOCMD_IOC_GET_INFO, "IOC_GET_INFO", ioc_get_info, 0},
    {KVO_IOCMD_IOC_GET_ATTR, "IOC_GET_ATTR", ioc_get_attr, 0},
};

}  // namespace

KVOSIM_HANDLERS(ioc, ioc_handlers);

}  // namespace kvosim
