// The boot code package: the input is a package file as an administrator hands it to
// "boot --update". It is opened and checked as the update does (archive, unwrapping, MD5), and
// its bytes are also given straight to the archive walk and to the boot.txt parser, so that
// those are reached without a matching digest.
//
// Properties:
//  - a refused package leaves nothing open and no temporary file behind;
//  - an accepted one carries "<hash>" and the MD5 of its first member, and no longer passes
//    once a byte of that member is changed;
//  - every member read lies within the bytes it was read from, at its header, in order, with
//    the name of its header; the walk agrees with the member count;
//  - the cards of boot.txt hold terminated names taken from the text and at least one
//    firmware configuration instance each;
//  - closing the package removes the temporary file of an unwrapped one.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz_util.h"
#include "kvol_boot.h"
#include "kvol_md5.h"

namespace {

using bytes = std::vector<uint8_t>;

bool one_of(kvo_status_t s, std::initializer_list<kvo_status_t> set) {
    return std::find(set.begin(), set.end(), s) != set.end();
}

// The members lie in data one after the other, each at its header with the header's name.
void check_members(const bytes& data, const std::vector<IMAGEFILE_DATA_T>& images) {
    size_t off = 0;
    for (const IMAGEFILE_DATA_T& im : images) {
        FUZZ_CHECK(data.size() >= KVOL_TAR_BLOCK && off <= data.size() - KVOL_TAR_BLOCK,
                   "member header at %zu outside %zu bytes", off, data.size());
        const char* hdr = reinterpret_cast<const char*>(data.data() + off);
        const size_t name_len = strnlen(im.iname, sizeof im.iname);
        FUZZ_CHECK(name_len < sizeof im.iname, "member name unterminated");
        FUZZ_CHECK(name_len == std::min(strnlen(hdr, KVOL_BOOT_NAME_LEN), KVOL_BOOT_NAME_LEN - 1) &&
                       memcmp(hdr, im.iname, name_len) == 0,
                   "member name is not its header's");
        const size_t size = im.ibuf.size();
        FUZZ_CHECK(im.isize >= 0 && static_cast<size_t>(im.isize) == size, "member size %d for %zu bytes",
                   im.isize, size);
        const size_t body = off + KVOL_TAR_BLOCK;
        FUZZ_CHECK(size <= data.size() - body, "member of %zu bytes runs past the input", size);
        FUZZ_CHECK(size == 0 || memcmp(data.data() + body, im.ibuf.data(), size) == 0,
                   "member bytes are not the input's");
        off = body + (size + KVOL_TAR_BLOCK - 1) / KVOL_TAR_BLOCK * KVOL_TAR_BLOCK;
    }
    FUZZ_CHECK(off >= data.size() || data[off] == 0, "the walk stopped before the end of the archive");
}

void check_walk(const bytes& data) {
    std::vector<IMAGEFILE_DATA_T> images;
    const kvo_status_t s = kvol_read_boot_image(data, images);
    const int count = kvol_count_images(data);
    if (s != KVO_STATUS_OK) {
        FUZZ_CHECK(s == KVO_STATUS_BAD_FILE && count == -1, "walk refused with %d, count %d", s, count);
        return;
    }
    FUZZ_CHECK(count == static_cast<int>(images.size()), "count %d for %zu members", count,
               images.size());
    check_members(data, images);
}

template <size_t N>
void check_name(const char (&name)[N], std::string_view text) {
    const size_t len = strnlen(name, N);
    FUZZ_CHECK(len < N, "card slot name unterminated");
    FUZZ_CHECK(len == 0 || text.find(std::string_view(name, len)) != std::string_view::npos,
               "card slot name \"%s\" is not in boot.txt", name);
}

void check_cards(const uint8_t* text, size_t len, const std::vector<CARD_DATA_T>& cards) {
    const std::string_view t(reinterpret_cast<const char*>(text), len);
    for (const CARD_DATA_T& c : cards) {
        for (const auto* name : {&c.firmware_name, &c.option_rom_name, &c.option_rom_2_name,
                                 &c.boot_overlay_name, &c.pxe_overlay_name, &c.fw_config_name,
                                 &c.asic_block_name})
            check_name(*name, t);
        FUZZ_CHECK(c.portcnt >= 1 && static_cast<size_t>(c.portcnt) == c.port.size(),
                   "card %u: portcnt %d for %zu instances", c.card_type, c.portcnt, c.port.size());
    }
}

void check_boot_txt(const bytes& data) {
    std::vector<CARD_DATA_T> cards;
    const kvo_status_t s = kvol_populate_card_data(data.data(), data.size(), cards);
    FUZZ_CHECK(one_of(s, {KVO_STATUS_OK, KVO_STATUS_FAILED}), "boot.txt parse returned %d", s);
    if (s == KVO_STATUS_OK) check_cards(data.data(), data.size(), cards);
}

// Runs f with the scratch directory as the current one (the update unpacks a wrapped package
// into the current directory).
template <typename F>
void in_scratch(F&& f) {
    static const int home = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    FUZZ_CHECK(home >= 0 && chdir(fuzz::scratch_dir().c_str()) == 0, "cannot enter the scratch directory");
    f();
    FUZZ_CHECK(fchdir(home) == 0, "cannot leave the scratch directory");
}

const std::vector<std::string> kOnlyPackage = {"pkg"};

// Opens data as the package file "pkg" in the scratch directory; a refusal is checked here.
kvo_status_t open_package(const bytes& data, kvol_boot_file& pkg) {
    fuzz::write_file(fuzz::scratch_dir() + "/pkg", data.data(), data.size());
    kvo_status_t s = KVO_STATUS_OK;
    in_scratch([&] { s = kvol_check_file_contains_tar("pkg", pkg); });
    if (s != KVO_STATUS_OK) {
        FUZZ_CHECK(one_of(s, {KVO_STATUS_BAD_FILE, KVO_STATUS_CREATE_FILE, KVO_STATUS_ENOMEM}),
                   "package refused with %d", s);
        FUZZ_CHECK(pkg.fp == nullptr && pkg.tmp.empty(), "a refused package stays open");
        FUZZ_CHECK(fuzz::dir_entries(fuzz::scratch_dir()) == kOnlyPackage,
                   "a refused package left a file behind");
    } else {
        FUZZ_CHECK(pkg.fp != nullptr, "an accepted package is not open");
    }
    return s;
}

// The octal size field of the first header, read leniently (an accepted package has a sound one).
size_t first_size(const bytes& data) {
    size_t v = 0;
    for (size_t i = 124; i < 136 && data[i] != '\0'; ++i)
        if (data[i] >= '0' && data[i] <= '7') v = v * 8 + static_cast<size_t>(data[i] - '0');
    return v;
}

void check_package(const bytes& data) {
    kvol_boot_file pkg;
    if (open_package(data, pkg) != KVO_STATUS_OK) return;

    // The first member, checked against the digest the second one carries.
    FUZZ_CHECK(data.size() >= KVOL_TAR_BLOCK, "accepted without a header");
    const size_t size = first_size(data);
    FUZZ_CHECK(size <= data.size() - KVOL_TAR_BLOCK, "first member runs past the input");
    const uint8_t* body = data.data() + KVOL_TAR_BLOCK;
    char hex[2 * KVOL_MD5_LEN + 1];
    kvol_md5_hex(body, size, hex);
    const std::string_view rest(reinterpret_cast<const char*>(body + size),
                                data.size() - KVOL_TAR_BLOCK - size);
    FUZZ_CHECK(rest.find(std::string("<hash>") + hex) != std::string_view::npos,
               "accepted without the first member's digest");

    // What the update reads the members from: the package, or the one it wraps.
    bytes file = data;
    if (!pkg.tmp.empty()) {
        const std::string inner = fuzz::read_file(fuzz::scratch_dir() + "/" + pkg.tmp);
        FUZZ_CHECK(inner.size() == size && memcmp(inner.data(), body, size) == 0,
                   "the unwrapped package is not the first member");
        file.assign(inner.begin(), inner.end());
    }
    std::vector<IMAGEFILE_DATA_T> images;
    std::vector<CARD_DATA_T> cards;
    const kvo_status_t s = kvol_populate_flash_data(pkg.fp, images, cards);
    FUZZ_CHECK(one_of(s, {KVO_STATUS_OK, KVO_STATUS_BAD_FILE, KVO_STATUS_BOOT_VERSION,
                          KVO_STATUS_FAILED, KVO_STATUS_ENOMEM}),
               "package read returned %d", s);
    if (s == KVO_STATUS_OK) {
        FUZZ_CHECK(!images.empty() && strstr(images[0].iname, "boot.txt") != nullptr,
                   "accepted without boot.txt first");
        check_members(file, images);
        check_cards(images[0].ibuf.data(), images[0].ibuf.size(), cards);
    }
    in_scratch([&] { pkg.close(); });  // the temporary file's name is relative, as it was made
    FUZZ_CHECK(fuzz::dir_entries(fuzz::scratch_dir()) == kOnlyPackage,
               "closing the package left a file behind");

    // The digest guards the first member: one byte changed and the package is refused.
    if (size > 0) {
        bytes changed = data;
        changed[KVOL_TAR_BLOCK + size / 2] ^= 0x01;
        kvol_boot_file again;
        FUZZ_CHECK(open_package(changed, again) != KVO_STATUS_OK,
                   "a changed first member still matches its digest");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const bytes input(data, data + size);
    check_walk(input);
    check_boot_txt(input);
    check_package(input);
    return 0;
}
