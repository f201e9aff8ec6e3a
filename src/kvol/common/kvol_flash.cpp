// Flash access: the partition table, whole-partition reads and writes, erase and the option ROM
// switch. Storage functions go through the driver channel; an Ethernet function has no flash
// request of its own, so its partition reads and writes travel over ethtool.
#include <cstdint>
#include <cstring>

#include "kvol.h"

namespace {

bool is_storage(const kvol_t* h) {
    return h->ioc_type == KVO_IOC_TYPE_FC || h->ioc_type == KVO_IOC_TYPE_FCoE;
}

// The channel's verdict first, then the driver's own status in the record.
kvo_status_t verdict(kvo_status_t rc, uint32_t rec_status) {
    if (rc != KVO_STATUS_OK) return rc;
    return static_cast<kvo_status_t>(rec_status);
}

kvo_status_t flash_transfer(kvol_t* h, uint32_t cmd, uint32_t type, uint32_t instance,
                            const void* buf, uint32_t len) {
    if (h == nullptr || buf == nullptr || len == 0) return KVO_STATUS_EINVAL;
    if (instance > UINT16_MAX) return KVO_STATUS_EINVAL;
    kvo_flash_req_t req{};
    req.kvod_num = static_cast<uint16_t>(h->instance);
    req.instance = static_cast<uint16_t>(instance);
    req.type = type;
    req.bufsz = len;
    req.buf_ptr = reinterpret_cast<uintptr_t>(buf);
    if (!is_storage(h)) {
        int rc = kvol_send_flash_ethtool_cmd(h, cmd, &req);
        // The ethtool path reports an allocation failure as a negative number.
        if (rc < 0) return KVO_STATUS_ENOMEM;
        return verdict(static_cast<kvo_status_t>(rc), req.status);
    }
    kvo_status_t rc = kvol_ioctl(h, cmd, &req, sizeof(req), sizeof(req), sizeof(req));
    return verdict(rc, req.status);
}

kvo_status_t optrom_request(kvol_t* h, uint32_t cmd) {
    if (h == nullptr) return KVO_STATUS_EINVAL;
    kvo_gen_t req{};
    req.kvod_num = static_cast<uint16_t>(h->instance);
    kvo_status_t rc = kvol_ioctl(h, cmd, &req, sizeof(req), sizeof(req), sizeof(req));
    return verdict(rc, req.status);
}

}  // namespace

// Reads the partition table. The driver's count is clipped to the table's capacity, so a
// garbled reply can never make a reader walk past the array.
kvo_status_t kvol_flash_get_attr(kvol_t* h, kvo_flash_attr_s* attr) {
    if (h == nullptr || attr == nullptr) return KVO_STATUS_EINVAL;
    kvo_flash_attr_req_t req{};
    req.kvod_num = static_cast<uint16_t>(h->instance);
    kvo_status_t rc =
        kvol_ioctl(h, KVO_IOCMD_FLASH_GET_ATTR, &req, sizeof(req), sizeof(req), sizeof(req));
    rc = verdict(rc, req.status);
    if (rc != KVO_STATUS_OK) return rc;
    *attr = req.attr;
    if (attr->npart > static_cast<uint32_t>(KVO_FLASH_PART_MAX)) attr->npart = KVO_FLASH_PART_MAX;
    return KVO_STATUS_OK;
}

// Reads len bytes from the start of partition (type, instance) into buf.
kvo_status_t kvol_flash_read_part(kvol_t* h, uint32_t type, uint32_t instance, void* buf,
                                  uint32_t len) {
    return flash_transfer(h, KVO_IOCMD_FLASH_READ_PART, type, instance, buf, len);
}

// Writes len bytes of buf from the start of partition (type, instance).
kvo_status_t kvol_flash_update_part(kvol_t* h, uint32_t type, uint32_t instance,
                                    const void* buf, uint32_t len) {
    return flash_transfer(h, KVO_IOCMD_FLASH_UPDATE_PART, type, instance, buf, len);
}

// Erases partition (type, instance). Always a driver request: ethtool has no erase.
kvo_status_t kvol_flash_erase_part(kvol_t* h, uint32_t type, uint32_t instance) {
    if (h == nullptr || instance > UINT16_MAX) return KVO_STATUS_EINVAL;
    kvo_flash_req_t req{};
    req.kvod_num = static_cast<uint16_t>(h->instance);
    req.instance = static_cast<uint16_t>(instance);
    req.type = type;
    kvo_status_t rc =
        kvol_ioctl(h, KVO_IOCMD_FLASH_ERASE_PART, &req, sizeof(req), sizeof(req), sizeof(req));
    return verdict(rc, req.status);
}

kvo_status_t kvol_flash_enable_optrom(kvol_t* h) {
    return optrom_request(h, KVO_IOCMD_FLASH_ENABLE_OPTROM);
}

kvo_status_t kvol_flash_disable_optrom(kvol_t* h) {
    return optrom_request(h, KVO_IOCMD_FLASH_DISABLE_OPTROM);
}

// The first partition of the given type in a table read by kvol_flash_get_attr; null if none.
const kvo_flash_part_attr_s* kvol_flash_find_part(const kvo_flash_attr_s* attr, uint32_t type) {
    if (attr == nullptr) return nullptr;
    uint32_t n = attr->npart;
    if (n > static_cast<uint32_t>(KVO_FLASH_PART_MAX)) n = KVO_FLASH_PART_MAX;
    for (uint32_t i = 0; i < n; i++) {
        if (attr->part[i].part_type == type) return &attr->part[i];
    }
    return nullptr;
}
