#pragma once
// Boot code packages for tests, built the way a release is: members written to a directory,
// the digest taken by coreutils' md5sum and the archive made by GNU tar. Option ROMs are laid
// out here field by field, so the expected fix-up is computed from what the builder placed,
// not from the product's code.
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <sys/wait.h>

namespace boottest {

using bytes = std::vector<uint8_t>;

inline std::string sh_quote(const std::string& s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

// Runs a shell command line and returns its standard output; fails the test when it fails.
inline std::string sh(const std::string& cmd) {
    std::string out;
    FILE* f = popen(cmd.c_str(), "r");
    if (f == nullptr) {
        ADD_FAILURE() << cmd << ": cannot run";
        return out;
    }
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
    int st = pclose(f);
    if (!WIFEXITED(st) || WEXITSTATUS(st) != 0) ADD_FAILURE() << cmd << ": failed";
    return out;
}

template <class Bytes>
void put_file(const std::string& path, const Bytes& b) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(b.data()), b.size());
}
inline bytes get_file(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return bytes(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

// Deterministic filler that differs per member.
inline bytes pattern(size_t n, uint8_t seed) {
    bytes b(n);
    for (size_t i = 0; i < n; i++) b[i] = static_cast<uint8_t>(i * 31 + seed * 7 + (i >> 8));
    return b;
}

// ---- Option ROM images ------------------------------------------------------------------------

// Where the builder puts things inside each image.
constexpr size_t kVerAt = 0x40, kPcirAt = 0x60, kPnpAt = 0x80, kPnpLen = 32;

struct Rom {
    uint8_t code_type;  // 0 x86, 3 EFI, ...
    bool last;          // bit 7 of the last-image indicator
    uint16_t blocks;    // image length in 512-byte blocks
};

inline void put16(bytes& b, size_t at, uint16_t v) {
    b[at] = static_cast<uint8_t>(v);
    b[at + 1] = static_cast<uint8_t>(v >> 8);
}

// A chain of images with device id `orig`, each ending in a deliberately wrong checksum.
inline bytes build_rom(const std::vector<Rom>& images, uint16_t orig, const std::string& version = "3.4.1.0") {
    bytes out;
    uint8_t seed = 1;
    for (const Rom& r : images) {
        bytes img = pattern(size_t{r.blocks} * 512, seed++);
        img[0] = 0x55;
        img[1] = 0xAA;
        img[2] = static_cast<uint8_t>(r.blocks);
        put16(img, 0x16, kVerAt);
        put16(img, 0x18, kPcirAt);
        put16(img, 0x1A, kPnpAt);
        for (size_t i = 0; i < 7 && i < version.size(); i++) img[kVerAt + i] = static_cast<uint8_t>(version[i]);
        memcpy(&img[kPcirAt], "PCIR", 4);
        put16(img, kPcirAt + 4, 0xE1F2);
        put16(img, kPcirAt + 6, orig);
        put16(img, kPcirAt + 0x10, r.blocks);
        img[kPcirAt + 0x14] = r.code_type;
        img[kPcirAt + 0x15] = r.last ? 0x80 : 0x00;
        memcpy(&img[kPnpAt], "$PnP", 4);
        img[kPnpAt + 5] = kPnpLen / 16;
        put16(img, kPnpAt + 12, orig);
        img.back() = 0x5A;
        out.insert(out.end(), img.begin(), img.end());
    }
    return out;
}

inline uint8_t sum(const bytes& b, size_t from, size_t n) {
    unsigned s = 0;
    for (size_t i = 0; i < n; i++) s += b[from + i];
    return static_cast<uint8_t>(s);
}

// What the flash must hold after the update for a card whose device id is devid: the device
// ids rewritten for the ids the cards take, the PnP header and every image summing to zero,
// processing ending after the last image (or at an x86 image for other ids), and then every
// 32-bit word byte-reversed.
inline bytes expected_rom(const std::vector<Rom>& images, bytes rom, uint16_t devid) {
    const bool fix = devid == 0x14 || devid == 0x17 || devid == 0x21 || devid == 0x22 || devid == 0x23;
    size_t off = 0;
    for (const Rom& r : images) {
        size_t len = size_t{r.blocks} * 512;
        if (fix) put16(rom, off + kPcirAt + 6, devid);
        if (r.code_type == 0) {
            if (!fix) break;
            put16(rom, off + kPnpAt + 12, devid);
            rom[off + kPnpAt + 9] = 0;
            rom[off + kPnpAt + 9] = static_cast<uint8_t>(0x100 - sum(rom, off + kPnpAt, kPnpLen));
        }
        rom[off + len - 1] = 0;
        rom[off + len - 1] = static_cast<uint8_t>(0x100 - sum(rom, off, len));
        if (r.last) break;
        off += len;
    }
    for (size_t i = 0; i + 4 <= rom.size(); i += 4) {
        std::swap(rom[i], rom[i + 3]);
        std::swap(rom[i + 1], rom[i + 2]);
    }
    return rom;
}

// ---- Packages ---------------------------------------------------------------------------------

struct Package {
    std::string boot_txt;
    std::map<std::string, bytes> members;  // written after boot.txt and the digest, in name order
    bool wrapped = false;                  // the package as the first member of an outer archive
    std::string hash_text;                 // the digest member; empty: "<hash>" + md5sum's digest
};

// Writes the package into dir (which must exist) and returns the archive's path.
inline std::string make_package(const std::string& dir, const Package& p) {
    const std::string d = sh_quote(dir);
    sh("rm -rf " + d + "/m && mkdir -p " + d + "/m");
    put_file(dir + "/m/boot.txt", p.boot_txt);
    std::string names = "boot.txt checksum";
    for (const auto& [name, b] : p.members) {
        put_file(dir + "/m/" + name, b);
        names += " " + sh_quote(name);
    }
    const std::string first = p.wrapped ? "inner.tar" : "boot.txt";
    if (p.wrapped) {
        // The inner package carries its own (unchecked) digest member.
        put_file(dir + "/m/checksum", "<hash>" + std::string(32, '0') + "\n");
        sh("cd " + d + "/m && tar --format=ustar -cf inner.tar " + names);
    }
    std::string hash = p.hash_text;
    if (hash.empty()) hash = "<hash>" + sh("cd " + d + "/m && md5sum " + first + " | cut -c1-32 | tr -d '\\n'") + "\n";
    if (p.wrapped) {
        put_file(dir + "/m/outer.md5", hash);
        sh("cd " + d + "/m && tar --format=ustar -cf ../pkg.tar inner.tar outer.md5");
    } else {
        put_file(dir + "/m/checksum", hash);
        sh("cd " + d + "/m && tar --format=ustar -cf ../pkg.tar " + names);
    }
    return dir + "/pkg.tar";
}

}  // namespace boottest
