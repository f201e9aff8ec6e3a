// Flash access: the partition table, whole-partition reads and writes, erase and the option ROM
// switch. An Ethernet function has no flash request of its own: the channel carries its
// partition reads and writes over ethtool.
#include <cstdint>
#include <cstring>

#include "kvol.h"
#include "kvol_ioc_priv.h"

namespace {

template <uint32_t Code>
kvo_status_t flash_request(kvol_t* h, uint32_t type, uint32_t instance, const void* buf,
                           uint32_t len) {
    if (instance > UINT16_MAX) return KVO_STATUS_EINVAL;
    kvo_flash_req_t req{};
    req.instance = static_cast<uint16_t>(instance);
    req.type = type;
    req.bufsz = len;
    req.buf_ptr = reinterpret_cast<uintptr_t>(buf);
    return kvol_request<Code>(h, req);
}

}  // namespace

// Reads the partition table. The driver's count is clipped to the table's capacity, so a
// garbled reply can never make a reader walk past the array.
kvo_status_t kvol_flash_get_attr(kvol_t* h, kvo_flash_attr_s* attr) {
    if (attr == nullptr) return KVO_STATUS_EINVAL;
    kvo_flash_attr_req_t req{};
    kvo_status_t rc = kvol_request<KVO_IOCMD_FLASH_GET_ATTR>(h, req);
    if (rc != KVO_STATUS_OK) return rc;
    *attr = req.attr;
    if (attr->npart > static_cast<uint32_t>(KVO_FLASH_PART_MAX)) attr->npart = KVO_FLASH_PART_MAX;
    return KVO_STATUS_OK;
}

// Reads len bytes from the start of partition (type, instance) into buf.
kvo_status_t kvol_flash_read_part(kvol_t* h, uint32_t type, uint32_t instance, void* buf,
                                  uint32_t len) {
    if (buf == nullptr || len == 0) return KVO_STATUS_EINVAL;
    return flash_request<KVO_IOCMD_FLASH_READ_PART>(h, type, instance, buf, len);
}

// Writes len bytes of buf from the start of partition (type, instance).
kvo_status_t kvol_flash_update_part(kvol_t* h, uint32_t type, uint32_t instance,
                                    const void* buf, uint32_t len) {
    if (buf == nullptr || len == 0) return KVO_STATUS_EINVAL;
    return flash_request<KVO_IOCMD_FLASH_UPDATE_PART>(h, type, instance, buf, len);
}

// Erases partition (type, instance). Always a driver request: ethtool has no erase.
kvo_status_t kvol_flash_erase_part(kvol_t* h, uint32_t type, uint32_t instance) {
    return flash_request<KVO_IOCMD_FLASH_ERASE_PART>(h, type, instance, nullptr, 0);
}

kvo_status_t kvol_flash_enable_optrom(kvol_t* h) {
    return kvol_request_gen<KVO_IOCMD_FLASH_ENABLE_OPTROM>(h);
}

kvo_status_t kvol_flash_disable_optrom(kvol_t* h) {
    return kvol_request_gen<KVO_IOCMD_FLASH_DISABLE_OPTROM>(h);
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
