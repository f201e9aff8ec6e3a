#pragma once
// The order in which sysfs lists a directory. sysfs keeps a directory's entries in a tree
// ordered by the hash of the name (then by the name), and readdir walks that tree after "."
// and "..": a listing is in hash order, not sorted, and the host software must not rely on
// either. The hash is the kernel's name hash for entries without a namespace tag.
#include <cstdint>
#include <cstring>

namespace kvosim {

inline uint32_t kernfs_name_hash(const char* name) {
    unsigned long h = 0;  // 64 bits, as on the machines we emulate
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(name); *p != 0; ++p) {
        const unsigned long c = *p;
        h = (h + (c << 4) + (c >> 4)) * 11;
    }
    uint32_t r = static_cast<uint32_t>((static_cast<uint64_t>(h) * 0x61C8864680B583EBull) >> 32);
    r &= 0x7fffffffu;
    // 0, 1 and INT_MAX are kept for the directory's own entries and its end.
    if (r < 2) r += 2;
    if (r >= 0x7fffffffu) r = 0x7fffffffu - 1;
    return r;
}

// True when sysfs lists `a` before `b`: "." and ".." first, then by hash, then by name.
inline bool kernfs_before(const char* a, const char* b) {
    const bool dot_a = strcmp(a, ".") == 0 || strcmp(a, "..") == 0;
    const bool dot_b = strcmp(b, ".") == 0 || strcmp(b, "..") == 0;
    if (dot_a || dot_b) return dot_a && (!dot_b || strcmp(a, b) < 0);
    const uint32_t ha = kernfs_name_hash(a), hb = kernfs_name_hash(b);
    if (ha != hb) return ha < hb;
    return strcmp(a, b) < 0;
}

}  // namespace kvosim
