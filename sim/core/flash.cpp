// Flash images: a sparse file per adapter; erased flash reads as zeros.
#include "flash.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "bed.h"
#include "kvo_defs.h"

namespace kvosim {

namespace {

std::string image_path(const std::string& bed, const Adapter& a) { return bed + "/" + a.flash_file; }

struct Fd {
    int fd;
    ~Fd() {
        if (fd >= 0) close(fd);
    }
};

bool in_range(const Adapter& a, uint64_t off, size_t len) {
    return off <= a.flash_size && len <= a.flash_size - off;
}

// First contents of a partition: what a freshly manufactured card carries.
std::vector<uint8_t> first_content(const Adapter& a, const FlashPart& p, bool autostart) {
    std::vector<uint8_t> b;
    auto text = [&](size_t at, const std::string& s) {
        if (b.size() < at + s.size()) b.resize(at + s.size());
        memcpy(b.data() + at, s.data(), s.size());
    };
    switch (p.type) {
    case KVO_FLASH_PART_FWIMG:
        b.resize(4096);
        text(0, "TVFW");
        text(16, a.fw_ver);
        for (size_t i = 64; i < b.size(); i++) b[i] = static_cast<uint8_t>(i * 7);
        break;
    case KVO_FLASH_PART_OPTROM:
    case KVO_FLASH_PART_OPTROM2:
        b.resize(2048);
        b[0] = 0x55;
        b[1] = 0xAA;
        b[2] = 4;  // 4 blocks of 512 bytes
        text(32, "TVBOOT " + a.optrom_ver);
        break;
    case KVO_FLASH_PART_ASIC:
        b.resize(512);
        text(0, "TVAS");
        b[kAsicStartByte] = autostart ? kAsicStartBit : 0;
        break;
    case KVO_FLASH_PART_MFG:
        b.resize(256);
        text(0, "TVMF");
        text(8, a.serial);
        text(24, a.model);
        text(40, std::to_string(a.card_type));
        break;
    case KVO_FLASH_PART_VPD:
        b.resize(512);
        b[0] = 0x82;  // identifier string tag
        b[1] = static_cast<uint8_t>(a.model_descr.size());
        text(3, a.model_descr);
        break;
    case KVO_FLASH_PART_FWCFG:
        b.resize(256);
        text(0, "TVCF");
        b[4] = static_cast<uint8_t>(p.instance);
        break;
    default:
        break;
    }
    if (b.size() > p.size) b.resize(p.size);
    return b;
}

}  // namespace

std::vector<FlashPart> default_flash_layout(size_t nports, uint32_t& size) {
    struct Row {
        uint32_t type;
        uint32_t size;
    };
    static const Row rows[] = {
        {KVO_FLASH_PART_BOOT, 0x10000},    {KVO_FLASH_PART_FWIMG, 0x100000},
        {KVO_FLASH_PART_OPTROM, 0x40000},  {KVO_FLASH_PART_OPTROM2, 0x40000},
        {KVO_FLASH_PART_FWCFG, 0x10000},   {KVO_FLASH_PART_DRV, 0x10000},
        {KVO_FLASH_PART_ASIC, 0x10000},    {KVO_FLASH_PART_MFG, 0x10000},
        {KVO_FLASH_PART_VPD, 0x10000},     {KVO_FLASH_PART_PBC, 0x10000},
        {KVO_FLASH_PART_BOOTOVL, 0x40000}, {KVO_FLASH_PART_LOG, 0x20000},
        {KVO_FLASH_PART_PXECFG, 0x10000},  {KVO_FLASH_PART_PXEOVL, 0x40000},
        {KVO_FLASH_PART_PORTCFG, 0x10000}, {KVO_FLASH_PART_ASICBK, 0x10000},
    };
    std::vector<FlashPart> parts;
    uint32_t off = 0;
    for (const Row& r : rows) {
        // The firmware configuration has one instance per port.
        size_t n = r.type == KVO_FLASH_PART_FWCFG ? (nports ? nports : 1) : 1;
        for (size_t i = 0; i < n; i++) {
            FlashPart p;
            p.type = r.type;
            p.instance = static_cast<uint32_t>(i);
            p.offset = off;
            p.size = r.size;
            parts.push_back(p);
            off += r.size;
        }
    }
    size = 0x400000;
    while (size < off) size *= 2;
    return parts;
}

bool flash_create(const std::string& bed, Adapter& a, const json* raw, std::string& why) {
    if (a.flash.empty()) a.flash = default_flash_layout(a.ports.size(), a.flash_size);
    uint64_t end = 0;
    for (const FlashPart& p : a.flash) end = std::max<uint64_t>(end, uint64_t{p.offset} + p.size);
    if (a.flash_size == 0) a.flash_size = static_cast<uint32_t>(end);
    if (end > a.flash_size) {
        why = "adapter " + a.serial + ": flash partitions end past the flash size";
        return false;
    }
    if (a.flash_file.empty()) a.flash_file = "flash/" + a.serial + ".bin";
    if (!make_dirs(bed + "/flash")) {
        why = bed + "/flash: cannot create";
        return false;
    }
    const std::string path = image_path(bed, a);
    Fd f{open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)};
    if (f.fd < 0 || ftruncate(f.fd, a.flash_size) != 0) {
        why = path + ": " + strerror(errno);
        return false;
    }
    bool autostart = false;
    if (raw != nullptr && raw->is_object() && raw->contains("autostart") && (*raw)["autostart"].is_boolean())
        autostart = (*raw)["autostart"].get<bool>();
    for (FlashPart& p : a.flash) {
        if (p.len != 0) continue;  // described explicitly: content left erased
        std::vector<uint8_t> b = first_content(a, p, autostart);
        if (b.empty()) continue;
        if (pwrite(f.fd, b.data(), b.size(), p.offset) != static_cast<ssize_t>(b.size())) {
            why = path + ": " + strerror(errno);
            return false;
        }
        p.len = static_cast<uint32_t>(b.size());
    }
    return true;
}

FlashPart* flash_find(Adapter& a, uint32_t type, uint32_t instance) {
    for (FlashPart& p : a.flash)
        if (p.type == type && p.instance == instance) return &p;
    return nullptr;
}

FlashPart* flash_at(Adapter& a, uint32_t offset) {
    for (FlashPart& p : a.flash)
        if (p.offset == offset) return &p;
    return nullptr;
}

bool flash_read(const std::string& bed, const Adapter& a, uint64_t off, void* buf, size_t len,
                std::string& why) {
    if (!in_range(a, off, len)) {
        why = "range leaves the flash";
        return false;
    }
    Fd f{open(image_path(bed, a).c_str(), O_RDONLY | O_CLOEXEC)};
    if (f.fd < 0) {
        why = a.flash_file + ": " + strerror(errno);
        return false;
    }
    memset(buf, 0, len);
    ssize_t n = pread(f.fd, buf, len, static_cast<off_t>(off));
    if (n < 0) {
        why = a.flash_file + ": " + strerror(errno);
        return false;
    }
    return true;  // a short image reads as erased
}

bool flash_write(const std::string& bed, const Adapter& a, uint64_t off, const void* buf, size_t len,
                 std::string& why) {
    if (!in_range(a, off, len)) {
        why = "range leaves the flash";
        return false;
    }
    Fd f{open(image_path(bed, a).c_str(), O_WRONLY | O_CLOEXEC)};
    if (f.fd < 0) {
        why = a.flash_file + ": " + strerror(errno);
        return false;
    }
    if (pwrite(f.fd, buf, len, static_cast<off_t>(off)) != static_cast<ssize_t>(len)) {
        why = a.flash_file + ": " + strerror(errno);
        return false;
    }
    return true;
}

kvo_status_t flash_part_read(const std::string& bed, const Adapter& a, const FlashPart& p, void* buf,
                             size_t len, std::string& why) {
    if (len > p.size) {
        why = "read of " + std::to_string(len) + " bytes from a partition of " + std::to_string(p.size);
        return KVO_STATUS_FLASH_BAD_LEN;
    }
    return flash_read(bed, a, p.offset, buf, len, why) ? KVO_STATUS_OK : KVO_STATUS_FAILED;
}

kvo_status_t flash_part_write(const std::string& bed, Adapter& a, FlashPart& p, const void* buf,
                              size_t len, std::string& why) {
    if (len > p.size) {
        why = "write of " + std::to_string(len) + " bytes into a partition of " + std::to_string(p.size);
        return KVO_STATUS_FLASH_BAD_LEN;
    }
    // The part of the partition past the new image is erased, as a flash update does.
    std::vector<uint8_t> img(p.size, 0);
    memcpy(img.data(), buf, len);
    if (!flash_write(bed, a, p.offset, img.data(), img.size(), why)) return KVO_STATUS_FAILED;
    p.len = static_cast<uint32_t>(len);
    return KVO_STATUS_OK;
}

kvo_status_t flash_part_erase(const std::string& bed, Adapter& a, FlashPart& p, std::string& why) {
    std::vector<uint8_t> img(p.size, 0);
    if (!flash_write(bed, a, p.offset, img.data(), img.size(), why)) return KVO_STATUS_FAILED;
    p.len = 0;
    return KVO_STATUS_OK;
}

}  // namespace kvosim
