#pragma once
// An adapter's flash: one image file in the bed (flash/<file>) holding every partition at the
// offset the partition table gives. The table (type, instance, offset, size, bytes in use,
// status) lives in the model; the bytes live in the image.
#include <string>
#include <vector>

#include "kvo_status.h"
#include "model.h"

namespace kvosim {

// The partition table of a new adapter's flash and the flash size it needs.
std::vector<FlashPart> default_flash_layout(size_t nports, uint32_t& size);

// Creates the image with the first contents of its partitions. `raw` is the adapter's entry of
// a host description (or null): its "autostart" flag sets the ASIC partition's start bit.
bool flash_create(const std::string& bed, Adapter& a, const json* raw, std::string& why);

// The partition (type, instance), or nullptr.
FlashPart* flash_find(Adapter& a, uint32_t type, uint32_t instance);
// The partition that starts at this offset, or nullptr.
FlashPart* flash_at(Adapter& a, uint32_t offset);

// Raw image access; false with `why` when the range leaves the flash or the file fails.
bool flash_read(const std::string& bed, const Adapter& a, uint64_t off, void* buf, size_t len,
                std::string& why);
bool flash_write(const std::string& bed, const Adapter& a, uint64_t off, const void* buf, size_t len,
                 std::string& why);

// Partition transfers from the partition's start. A write longer than the partition is
// KVO_STATUS_FLASH_BAD_LEN and changes nothing; it sets the bytes in use to `len`.
// Erase clears the partition and its bytes in use.
kvo_status_t flash_part_read(const std::string& bed, const Adapter& a, const FlashPart& p, void* buf,
                             size_t len, std::string& why);
kvo_status_t flash_part_write(const std::string& bed, Adapter& a, FlashPart& p, const void* buf,
                              size_t len, std::string& why);
kvo_status_t flash_part_erase(const std::string& bed, Adapter& a, FlashPart& p, std::string& why);

// The auto-start flag: bit 0x04 of byte 28 of the ASIC partition.
constexpr size_t kAsicStartByte = 28;
constexpr uint8_t kAsicStartBit = 0x04;

}  // namespace kvosim
