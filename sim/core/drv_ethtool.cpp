// The Ethernet driver's ethtool operations: flash a firmware file from the firmware directory,
// and read or write the flash image as the interface's EEPROM. The kernel's ethtool layer
// (kernel_net.cpp) calls them with at most one page at a time.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "drv.h"
#include "ethtool_ops.h"
#include "flash.h"

namespace kvosim {

namespace {

uint32_t magic_of(const Adapter& a) { return static_cast<uint32_t>(a.device_id) << 16 | a.vendor_id; }

int bad(DrvNote& note, std::string why) {
    note.text = std::move(why);
    note.bad = true;
    return -EINVAL;
}

int fail(DrvNote& note, int err, std::string why) {
    note.text = std::move(why);
    return -err;
}

uint32_t eeprom_len(NetDev& dev) { return dev.fn.adapter->flash_size; }

// The driver refuses a request that does not carry its magic number, on a read as on a write,
// and puts its own number back into the request.
bool magic_ok(NetDev& dev, ethtool_eeprom& ee, DrvNote& note) {
    const uint32_t magic = magic_of(*dev.fn.adapter);
    if (ee.magic == magic) return true;
    bad(note, fmt("magic 0x%08X, expected 0x%08X", ee.magic, magic));
    return false;
}

int get_eeprom(NetDev& dev, ethtool_eeprom& ee, uint8_t* data, DrvNote& note) {
    if (!magic_ok(dev, ee, note)) return -EINVAL;
    std::string why;
    if (!flash_read(dev.st.dir, *dev.fn.adapter, ee.offset, data, ee.len, why)) return fail(note, EIO, why);
    return 0;
}

// A write carries the image's length word ahead of the image; the image belongs at the start
// of the partition that follows that word (or at offset 0 for the first partition). The first
// piece opens the write (the partition is erased, as a flash update does), the pieces that
// follow continue it at the next offset, and the last one records the partition's new length.
int set_eeprom(NetDev& dev, ethtool_eeprom& ee, const uint8_t* data, DrvNote& note) {
    if (!magic_ok(dev, ee, note)) return -EINVAL;
    Adapter& a = *dev.fn.adapter;
    NetDev::EepromWrite& w = dev.wr;
    std::string why;
    uint32_t head = 0;  // bytes of this piece ahead of the image
    if (w.part == nullptr || ee.offset != w.next) {
        if (ee.len < 4) return bad(note, fmt("length %u has no room for the length word", ee.len));
        uint32_t n;
        memcpy(&n, data, 4);
        const uint32_t start = ee.offset == 0 ? 0 : ee.offset + 4;
        FlashPart* p = flash_at(a, start);
        if (p == nullptr) return bad(note, fmt("no partition starts at 0x%X", start));
        if (n > p->size) return fail(note, EFBIG, fmt("write of %u bytes into a partition of %u", n, p->size));
        if (ee.len - 4 > n)
            return bad(note, fmt("length word %u, but %u image bytes follow in the first piece", n, ee.len - 4));
        if (flash_part_erase(dev.st.dir, a, *p, why) != KVO_STATUS_OK) return fail(note, EIO, why);
        w = NetDev::EepromWrite{p, ee.offset, 0, n};
        head = 4;
    }
    const uint32_t bytes = ee.len - head;
    if (uint64_t{w.image_at} + bytes > w.announced)
        return bad(note, fmt("length word %u, but the image goes on to %u bytes", w.announced, w.image_at + bytes));
    if (!flash_write(dev.st.dir, a, uint64_t{w.part->offset} + w.image_at, data + head, bytes, why))
        return fail(note, EIO, why);
    w.image_at += bytes;
    w.next = ee.offset + ee.len;
    dev.st.dirty = true;
    if (w.image_at == w.announced) {
        w.part->len = w.announced;
        note.text = fmt("%u bytes to partition type %u", w.announced, w.part->type);
        w.part = nullptr;
    }
    return 0;
}

std::string unfinished(NetDev& dev) {
    NetDev::EepromWrite& w = dev.wr;
    if (w.part == nullptr) return "";
    std::string why = fmt("length word %u, but the image ended after %u bytes", w.announced, w.image_at);
    w.part = nullptr;
    return why;
}

// The file is loaded from the firmware directory (the bed's copy) and goes into the firmware
// partition.
int flash_device(NetDev& dev, const ethtool_flash& req, DrvNote& note) {
    const std::string file = req.data;  // the kernel has terminated the name
    if (req.region != KVO_FLASH_PART_FWIMG)
        return bad(note, fmt("region %u, expected %u (firmware)", req.region, KVO_FLASH_PART_FWIMG));
    if (file.empty() || file.find('/') != std::string::npos || file == "." || file == "..")
        return bad(note, "\"" + file + "\" is not a file name in the firmware directory");
    std::string image;
    if (!read_file(dev.st.root() + "/lib/firmware/" + file, image)) return -ENOENT;
    Adapter& a = *dev.fn.adapter;
    FlashPart* p = flash_find(a, KVO_FLASH_PART_FWIMG, 0);
    if (p == nullptr) return fail(note, ENODEV, "no firmware partition");
    std::string why;
    kvo_status_t s = flash_part_write(dev.st.dir, a, *p, image.data(), image.size(), why);
    if (s == KVO_STATUS_FLASH_BAD_LEN) return fail(note, EFBIG, why);
    if (s != KVO_STATUS_OK) return fail(note, EIO, why);
    dev.st.dirty = true;
    note.text = fmt("%zu bytes", image.size());
    return 0;
}

constexpr EthtoolOps tqe_ops = {eeprom_len, get_eeprom, set_eeprom, flash_device, unfinished};

}  // namespace

const EthtoolOps& tqe_ethtool_ops() { return tqe_ops; }

}  // namespace kvosim
