// The option ROM fix-up of a boot code update and the VPD version field: the input is a ROM
// member (or a VPD image) as a package may carry it.
//
// Input: byte 0 picks the card's device id, byte 1 bit 0 asks for the version capture, bytes
// 2-13 are a firmware version; the rest is the ROM, and also the VPD.
//
// Properties:
//  - swapping the 32-bit words twice gives the bytes back; a tail shorter than a word is left;
//  - the fix-up accepts exactly the chains whose images, PCI data structures and PnP headers lie
//    in the buffer, and changes nothing but the device ids, the PnP checksum and the image
//    checksums of the images it walks; each image it sums then sums to zero, and so does each
//    PnP header it fixes (when the image checksum does not fall into it);
//  - the version is captured into its seven places, once;
//  - the VPD version: refused, the buffer is untouched; done, only the V1 field and the RV
//    checksum byte change, the VPD sums to zero through that byte, and doing it again changes
//    nothing more.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "fuzz_util.h"
#include "kvol_boot.h"

namespace {

using bytes = std::vector<uint8_t>;

constexpr uint16_t kDevids[] = {0x13, 0x14, 0x17, 0x21, 0x22, 0x23, 0x99, 0x0};
bool fixes(uint16_t devid) {
    return devid == 0x14 || devid == 0x17 || devid == 0x21 || devid == 0x22 || devid == 0x23;
}

uint16_t get16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
bool fits(size_t off, size_t n, size_t len) { return off <= len && n <= len - off; }
uint8_t sum(const uint8_t* p, size_t n) {
    unsigned s = 0;
    for (size_t i = 0; i < n; ++i) s += p[i];
    return static_cast<uint8_t>(s);
}

void check_swap(const bytes& rom) {
    bytes b = rom;
    kvol_swap32_words(b.data(), b.size());
    const size_t whole = rom.size() / 4 * 4;
    for (size_t i = 0; i < whole; ++i)
        FUZZ_CHECK(b[i] == rom[i / 4 * 4 + 3 - i % 4], "byte %zu not swapped within its word", i);
    FUZZ_CHECK(std::equal(b.begin() + static_cast<long>(whole), b.end(),
                          rom.begin() + static_cast<long>(whole)),
               "the tail changed");
    kvol_swap32_words(b.data(), b.size());
    FUZZ_CHECK(b == rom, "swapping twice does not give the bytes back");
}

// The version is taken by the first capture of the process only.
bool g_version_taken = false;

void put16(uint8_t* p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}

// The fix-up done by hand from the layout's rules, step by step in the order the fields are
// read and written: the expected bytes, verdict and version, and what was summed.
struct fixed_rom {
    bytes rom;
    bool ok = false;
    bool captured = false;
    bytes version;
    std::vector<std::pair<size_t, size_t>> images, pnps;  // offset, length of what sums to 0
};

fixed_rom expected(const bytes& rom, uint16_t devid, bool first, const bytes& version) {
    fixed_rom f{rom, false, false, version, {}, {}};
    const size_t len = rom.size();
    for (size_t off = 0;;) {
        if (off >= len || !fits(off, 0x1C, len)) return f;
        uint8_t* img = f.rom.data() + off;
        const size_t room = len - off;
        const size_t pcir = get16(img + 0x18);
        if (!fits(pcir, 0x16, room)) return f;
        const size_t img_len = size_t{get16(img + pcir + 0x10)} * 512;
        if (img_len == 0 || img_len > room) return f;
        if (fixes(devid)) put16(img + pcir + 6, devid);
        if (img[pcir + 0x14] == 0) {
            const size_t vp = get16(img + 0x16);
            if (first && !g_version_taken) {
                if (!fits(vp, 7, img_len)) return f;
                const size_t at[7] = {1, 2, 4, 5, 7, 8, 10};
                for (size_t i = 0; i < 7; ++i) f.version[at[i]] = img[vp + i];
                f.captured = true;
            }
            if (!fixes(devid)) {
                f.ok = true;
                return f;
            }
            const size_t pnp = get16(img + 0x1A);
            if (!fits(pnp, 14, img_len)) return f;
            put16(img + pnp + 12, devid);
            const size_t pnp_len = size_t{img[pnp + 5]} * 16;
            if (pnp_len <= 9 || !fits(pnp, pnp_len, img_len)) return f;
            img[pnp + 9] = 0;
            img[pnp + 9] = static_cast<uint8_t>(0x100 - sum(img + pnp, pnp_len));
            // The image checksum written next may fall into the header.
            if (img_len - 1 < pnp || img_len - 1 >= pnp + pnp_len) f.pnps.push_back({off + pnp, pnp_len});
        }
        img[img_len - 1] = 0;
        img[img_len - 1] = static_cast<uint8_t>(0x100 - sum(img, img_len));
        f.images.push_back({off, img_len});
        if (img[pcir + 0x15] & 0x80) {
            f.ok = true;
            return f;
        }
        off += img_len;
    }
}

void check_fixup(const bytes& rom, uint16_t devid, bool first, const bytes& version) {
    const fixed_rom want = expected(rom, devid, first, version);
    // An exact-size copy: a read or write past the member is a sanitizer report.
    std::vector<uint8_t> got(rom);
    char ver[KVOL_BOOT_VER_LEN + 1];
    memcpy(ver, version.data(), KVOL_BOOT_VER_LEN);
    ver[KVOL_BOOT_VER_LEN] = '\0';
    const kvo_status_t s = kvol_update_device_id_chksum(got.data(), got.size(), devid, first ? 1 : 0, ver);
    FUZZ_CHECK(s == (want.ok ? KVO_STATUS_OK : KVO_STATUS_BAD_BOOT_CODE), "fix-up returned %d", s);
    g_version_taken = g_version_taken || want.captured;
    for (size_t i = 0; i < got.size(); ++i)
        FUZZ_CHECK(got[i] == want.rom[i], "byte %zu is 0x%02x, 0x%02x expected (was 0x%02x)", i, got[i],
                   want.rom[i], rom[i]);
    FUZZ_CHECK(memcmp(ver, want.version.data(), KVOL_BOOT_VER_LEN) == 0 && ver[KVOL_BOOT_VER_LEN] == '\0',
               "version \"%s\" captured", ver);
    for (const auto& [off, n] : want.images)
        FUZZ_CHECK(sum(got.data() + off, n) == 0, "image at %zu does not sum to zero", off);
    for (const auto& [off, n] : want.pnps)
        FUZZ_CHECK(sum(got.data() + off, n) == 0, "PnP header at %zu does not sum to zero", off);
}

// The read-only section of a VPD: where its V1 field and its RV checksum byte are.
struct vpd_fields {
    bool found = false;
    size_t v1 = 0, v1_len = 0, rv = 0;
};

vpd_fields find_rv(const bytes& vpd) {
    vpd_fields f;
    const size_t len = vpd.size();
    for (size_t off = 0; off + 3 <= len;) {
        const uint8_t tag = vpd[off];
        if (tag == 0x78 || !(tag & 0x80)) return f;
        const size_t rlen = get16(&vpd[off + 1]), data = off + 3;
        if (!fits(data, rlen, len)) return f;
        if (tag != 0x90) {
            off = data + rlen;
            continue;
        }
        bool v1 = false;
        for (size_t k = data; k + 3 <= data + rlen;) {
            const size_t klen = vpd[k + 2];
            if (!fits(k + 3, klen, data + rlen)) return f;
            if (vpd[k] == 'V' && vpd[k + 1] == '1') {
                v1 = true;
                f.v1 = k + 3;
                f.v1_len = klen;
            } else if (vpd[k] == 'R' && vpd[k + 1] == 'V') {
                if (klen == 0) return f;
                if (!v1) f.v1_len = 0;
                f.rv = k + 3;
                f.found = true;
                return f;
            }
            k += 3 + klen;
        }
        return f;
    }
    return f;
}

void check_vpd(const bytes& vpd, const bytes& version) {
    const vpd_fields f = find_rv(vpd);
    std::vector<uint8_t> got(vpd);
    const char* v = reinterpret_cast<const char*>(version.data());
    const bool done = kvol_vpd_set_fw_version(got.data(), got.size(), v, version.size());
    FUZZ_CHECK(done == f.found, "VPD update %s", done ? "done without a read-only section" : "refused");
    if (!done) {
        FUZZ_CHECK(got == vpd, "a refused VPD update changed the buffer");
        return;
    }
    for (size_t i = 0; i < got.size(); ++i) {
        if (i >= f.v1 && i < f.v1 + f.v1_len) {
            const size_t k = i - f.v1;
            FUZZ_CHECK(got[i] == (k < version.size() ? version[k] : ' '), "V1 byte %zu", k);
        } else if (i != f.rv) {
            FUZZ_CHECK(got[i] == vpd[i], "VPD byte %zu changed", i);
        }
    }
    FUZZ_CHECK(sum(got.data(), f.rv + 1) == 0, "the VPD does not sum to zero through RV");
    std::vector<uint8_t> again(got);
    FUZZ_CHECK(kvol_vpd_set_fw_version(again.data(), again.size(), v, version.size()) && again == got,
               "the VPD update is not idempotent");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 14) return 0;
    const uint16_t devid = kDevids[data[0] % (sizeof kDevids / sizeof kDevids[0])];
    const bool first = data[1] & 1;
    const bytes version(data + 2, data + 14);
    const bytes rom(data + 14, data + size);
    check_swap(rom);
    check_fixup(rom, devid, first, bytes(KVOL_BOOT_VER_LEN, '0'));
    check_vpd(rom, version);
    return 0;
}
