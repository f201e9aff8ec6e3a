// Adapter and IOC management requests: enable and disable a function, adapter and port names,
// the adapter's personality, firmware reload, and the flash requests (partition table,
// partition read, write and erase, option ROM switch).
#include <cinttypes>
#include <cstdio>
#include <string>
#include <vector>

#include "drv.h"
#include "flash.h"

namespace kvosim {

namespace {

// A name field as the driver takes it: up to the first NUL, never past the field.
template <size_t N>
std::string take_str(const char (&f)[N]) {
    return std::string(f, strnlen(f, N));
}

kvo_status_t ioc_enable(Req& r) {
    Function& f = r.fn();
    if (f.state == KVO_IOC_OPERATIONAL) return KVO_STATUS_IOC_ENABLED;
    f.state = KVO_IOC_OPERATIONAL;
    r.changed();
    return KVO_STATUS_OK;
}

kvo_status_t ioc_disable(Req& r) {
    Function& f = r.fn();
    if (f.state == KVO_IOC_DISABLED) return KVO_STATUS_IOC_DISABLED;
    f.state = KVO_IOC_DISABLED;
    r.changed();
    return KVO_STATUS_OK;
}

kvo_status_t adapter_set_name(Req& r) {
    auto& rec = r.rec<kvo_name_req_t>();
    r.adapter().name = take_str(rec.name);
    r.note = "name \"" + r.adapter().name + "\"";
    r.changed();
    return KVO_STATUS_OK;
}

kvo_status_t ioc_set_name(Req& r) {
    auto& rec = r.rec<kvo_name_req_t>();
    r.fn().port_name = take_str(rec.name);
    r.note = "name \"" + r.fn().port_name + "\"";
    r.changed();
    return KVO_STATUS_OK;
}

// The new personality takes effect at the next host reboot: it is kept as pending.
kvo_status_t adapter_cfg_mode(Req& r) {
    auto& rec = r.rec<kvo_adapter_cfg_mode_req_t>();
    Adapter& a = r.adapter();
    uint32_t mode = rec.cfg.mode;
    r.note = "mode " + std::to_string(mode) + (rec.force ? " force" : "");
    if (mode < KVO_MODE_HBA || mode > KVO_MODE_NIC) return KVO_STATUS_EINVAL;
    if (mode != KVO_MODE_HBA && !a.cna_capable) return KVO_STATUS_UNSUPP_MODE;
    a.ext["pending_mode"] = mode;
    a.ext["mode_force"] = rec.force != 0;
    r.changed();
    return KVO_STATUS_OK;
}

// A firmware restart brings failed functions back; disabled ones stay disabled.
kvo_status_t adapter_reload_fw(Req& r) {
    Adapter& a = r.adapter();
    for (Port& p : a.ports)
        for (Function& f : p.functions)
            if (f.state != KVO_IOC_DISABLED) f.state = KVO_IOC_OPERATIONAL;
    a.ext["fw_reloads"] = a.ext.value("fw_reloads", 0) + 1;
    r.changed();
    return KVO_STATUS_OK;
}

kvo_status_t flash_get_attr(Req& r) {
    auto& rec = r.rec<kvo_flash_attr_req_t>();
    const Adapter& a = r.adapter();
    kvo_flash_attr_s& t = rec.attr;
    memset(&t, 0, sizeof t);
    size_t n = a.flash.size();
    if (n > static_cast<size_t>(KVO_FLASH_PART_MAX)) n = KVO_FLASH_PART_MAX;
    if (n == 0) return KVO_STATUS_NOFLASH;
    t.npart = static_cast<uint32_t>(n);
    for (size_t i = 0; i < n; i++) {
        const FlashPart& p = a.flash[i];
        t.part[i].part_type = p.type;
        t.part[i].part_instance = p.instance;
        t.part[i].part_off = p.offset;
        t.part[i].part_size = p.size;
        t.part[i].part_len = p.len;
        t.part[i].part_status = p.status;
    }
    return KVO_STATUS_OK;
}

// The partition a transfer request names, with the note that says which.
FlashPart* request_part(Req& r, const kvo_flash_req_t& rec) {
    char b[64];
    snprintf(b, sizeof b, "type %u instance %u len %u", rec.type, rec.instance, rec.bufsz);
    r.note = b;
    return flash_find(r.adapter(), rec.type, rec.instance);
}

kvo_status_t flash_read_part(Req& r) {
    auto& rec = r.rec<kvo_flash_req_t>();
    FlashPart* p = request_part(r, rec);
    if (p == nullptr) return KVO_STATUS_EINVAL;
    if (rec.bufsz == 0 || rec.bufsz > p->size) return KVO_STATUS_FLASH_BAD_LEN;
    std::vector<uint8_t> buf(rec.bufsz);
    std::string why;
    kvo_status_t s = flash_part_read(r.st.dir, r.adapter(), *p, buf.data(), buf.size(), why);
    if (s != KVO_STATUS_OK) {
        r.note += "; " + why;
        return s;
    }
    if (!write_user(rec.buf_ptr, buf.data(), buf.size()))
        return r.fail_errno(EFAULT, "data buffer not writable");
    return KVO_STATUS_OK;
}

kvo_status_t flash_update_part(Req& r) {
    auto& rec = r.rec<kvo_flash_req_t>();
    FlashPart* p = request_part(r, rec);
    if (p == nullptr) return KVO_STATUS_EINVAL;
    if (rec.bufsz == 0 || rec.bufsz > p->size) return KVO_STATUS_FLASH_BAD_LEN;
    std::vector<uint8_t> buf(rec.bufsz);
    if (!read_user(buf.data(), rec.buf_ptr, buf.size()))
        return r.fail_errno(EFAULT, "data buffer not readable");
    std::string why;
    kvo_status_t s = flash_part_write(r.st.dir, r.adapter(), *p, buf.data(), buf.size(), why);
    if (s != KVO_STATUS_OK) {
        r.note += "; " + why;
        return s;
    }
    r.changed();
    return KVO_STATUS_OK;
}

kvo_status_t flash_erase_part(Req& r) {
    auto& rec = r.rec<kvo_flash_req_t>();
    FlashPart* p = request_part(r, rec);
    if (p == nullptr) return KVO_STATUS_EINVAL;
    std::string why;
    kvo_status_t s = flash_part_erase(r.st.dir, r.adapter(), *p, why);
    if (s != KVO_STATUS_OK) {
        r.note += "; " + why;
        return s;
    }
    r.changed();
    return KVO_STATUS_OK;
}

kvo_status_t optrom_enable(Req& r) {
    r.adapter().optrom_enabled = true;
    r.changed();
    return KVO_STATUS_OK;
}

kvo_status_t optrom_disable(Req& r) {
    r.adapter().optrom_enabled = false;
    r.changed();
    return KVO_STATUS_OK;
}

constexpr HandlerEntry adapter_handlers[] = {
    {KVO_IOCMD_IOC_ENABLE, "IOC_ENABLE", ioc_enable, 0},
    {KVO_IOCMD_IOC_DISABLE, "IOC_DISABLE", ioc_disable, 0},
    {KVO_IOCMD_ADAPTER_SET_NAME, "ADAPTER_SET_NAME", adapter_set_name, 0},
    {KVO_IOCMD_IOC_SET_NAME, "IOC_SET_NAME", ioc_set_name, 0},
    {KVO_IOCMD_ADAPTER_CFG_MODE, "ADAPTER_CFG_MODE", adapter_cfg_mode, 0},
    {KVO_IOCMD_ADAPTER_RELOAD_FW, "ADAPTER_RELOAD_FW", adapter_reload_fw, 0},
    {KVO_IOCMD_FLASH_GET_ATTR, "FLASH_GET_ATTR", flash_get_attr, 0},
    {KVO_IOCMD_FLASH_READ_PART, "FLASH_READ_PART", flash_read_part, 0},
    {KVO_IOCMD_FLASH_UPDATE_PART, "FLASH_UPDATE_PART", flash_update_part, 0},
    {KVO_IOCMD_FLASH_ERASE_PART, "FLASH_ERASE_PART", flash_erase_part, 0},
    {KVO_IOCMD_FLASH_ENABLE_OPTROM, "FLASH_ENABLE_OPTROM", optrom_enable, 0},
    {KVO_IOCMD_FLASH_DISABLE_OPTROM, "FLASH_DISABLE_OPTROM", optrom_disable, 0},
};

}  // namespace

KVOSIM_HANDLERS(adapter, adapter_handlers);

}  // namespace kvosim
