// Boot code package update: open and check the package, read its members and boot.txt, and
// write the members of the matching card block into an adapter's flash partitions, for one
// adapter or for every adapter in parallel.
//
// The package comes from the administrator but is treated as hostile: member sizes are checked
// against the bytes really there, names never become paths, and every field of a ROM image is
// read only after its offset was checked against the buffer.
#include "kvol_boot.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <new>
#include <random>
#include <string_view>
#include <utility>

#include "kvol_ioc_priv.h"
#include "kvol_md5.h"

namespace {

constexpr size_t TAR_NAME_OFF = 0;
constexpr size_t TAR_SIZE_OFF = 124;
constexpr size_t TAR_SIZE_LEN = 12;
constexpr size_t TAR_MAGIC_OFF = 257;
constexpr char TAR_MAGIC[] = "ustar";
constexpr char BOOT_TXT[] = "boot.txt";
constexpr char HASH_TAG[] = "<hash>";
constexpr size_t HASH_HEX_LEN = 2 * KVOL_MD5_LEN;
constexpr std::string_view BOOT_VERSION_KEY = "Version";
constexpr std::string_view BOOT_VERSION = "3.0.0.0";
// Member sizes are kept in an int.
constexpr uint64_t MAX_PACKAGE = INT_MAX;

// ---- Archive walk ---------------------------------------------------------------------------

// Reads the whole file from its start. KVO_STATUS_BAD_FILE when it is too large to be a
// package or cannot be read.
kvo_status_t read_all(FILE* fp, std::vector<uint8_t>& out) {
    out.clear();
    if (fseeko(fp, 0, SEEK_SET) != 0) return KVO_STATUS_BAD_FILE;
    uint8_t buf[65536];
    for (;;) {
        size_t n = fread(buf, 1, sizeof buf, fp);
        if (n > 0) {
            if (out.size() + n > MAX_PACKAGE) return KVO_STATUS_BAD_FILE;
            out.insert(out.end(), buf, buf + n);
        }
        if (n < sizeof buf) break;
    }
    return ferror(fp) ? KVO_STATUS_BAD_FILE : KVO_STATUS_OK;
}

// The octal size field: leading blanks, octal digits, then NUL or blanks. A size that does not
// fit, a base-256 size or any other character is refused.
bool tar_size(const uint8_t* field, uint64_t& size) {
    size_t i = 0;
    while (i < TAR_SIZE_LEN && field[i] == ' ') i++;
    uint64_t v = 0;
    size_t digits = 0;
    for (; i < TAR_SIZE_LEN && field[i] >= '0' && field[i] <= '7'; i++, digits++) {
        if (v > (UINT64_MAX >> 3)) return false;
        v = (v << 3) | static_cast<uint64_t>(field[i] - '0');
    }
    for (; i < TAR_SIZE_LEN; i++)
        if (field[i] != '\0' && field[i] != ' ') return false;
    if (digits == 0) return false;
    size = v;
    return true;
}

enum class walk { member, end, bad };

// One member of the archive in data at *off: its header and bytes. Moves *off to the next
// header (the next 512-byte boundary after the data). A clean end of the data or a header
// starting with NUL ends the archive; a short header, a header without the ustar magic, a
// garbled size or data running past the end is a bad archive.
walk tar_next(const std::vector<uint8_t>& data, size_t& off, const uint8_t*& hdr,
              const uint8_t*& body, size_t& size) {
    if (off >= data.size()) return walk::end;
    if (data.size() - off < KVOL_TAR_BLOCK) return walk::bad;
    hdr = data.data() + off;
    if (hdr[0] == '\0') return walk::end;
    if (memcmp(hdr + TAR_MAGIC_OFF, TAR_MAGIC, sizeof TAR_MAGIC - 1) != 0) return walk::bad;
    uint64_t sz;
    if (!tar_size(hdr + TAR_SIZE_OFF, sz)) return walk::bad;
    size_t start = off + KVOL_TAR_BLOCK;
    if (sz > data.size() - start) return walk::bad;
    body = data.data() + start;
    size = static_cast<size_t>(sz);
    size_t padded = (size + KVOL_TAR_BLOCK - 1) / KVOL_TAR_BLOCK * KVOL_TAR_BLOCK;
    off = (padded > data.size() - start) ? data.size() : start + padded;
    return walk::member;
}

// The member name field (100 bytes, terminated only when shorter).
std::string_view tar_name(const uint8_t* hdr) {
    const char* n = reinterpret_cast<const char*>(hdr + TAR_NAME_OFF);
    return std::string_view(n, strnlen(n, KVOL_BOOT_NAME_LEN));
}

bool contains(std::string_view s, std::string_view part) { return s.find(part) != std::string_view::npos; }

// ---- Temporary file -------------------------------------------------------------------------

// Creates a new file in the current directory that cannot be a link or an existing file:
// O_CREAT | O_EXCL with a random suffix, retried on a name clash. The descriptor, or -1.
int create_temp(std::string& name) {
    std::random_device rd;
    char buf[64];
    for (int tries = 0; tries < 100; tries++) {
        snprintf(buf, sizeof buf, "tmp_%lx_%08x", static_cast<unsigned long>(pthread_self()),
                 static_cast<unsigned>(rd()));
        int fd = open(buf, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd >= 0) {
            name = buf;
            return fd;
        }
        if (errno != EEXIST) return -1;
    }
    return -1;
}

bool write_all(int fd, const uint8_t* p, size_t n) {
    while (n > 0) {
        ssize_t w = write(fd, p, n);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return false;
        p += w;
        n -= static_cast<size_t>(w);
    }
    return true;
}

// Unpacks the wrapped package into a temporary file and reopens it for reading, making sure
// the file opened is the one created.
kvo_status_t unwrap_to_temp(const uint8_t* body, size_t size, kvol_boot_file& out) {
    int fd = create_temp(out.tmp);
    if (fd < 0) return KVO_STATUS_CREATE_FILE;
    struct stat made {};
    bool ok = write_all(fd, body, size) && fstat(fd, &made) == 0;
    if (::close(fd) != 0) ok = false;
    if (!ok) return KVO_STATUS_CREATE_FILE;
    int rfd = open(out.tmp.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (rfd < 0) return KVO_STATUS_CREATE_FILE;
    struct stat now {};
    if (fstat(rfd, &now) != 0 || now.st_dev != made.st_dev || now.st_ino != made.st_ino) {
        ::close(rfd);
        return KVO_STATUS_CREATE_FILE;
    }
    out.fp = fdopen(rfd, "rb");
    if (out.fp == nullptr) {
        ::close(rfd);
        return KVO_STATUS_CREATE_FILE;
    }
    return KVO_STATUS_OK;
}

// ---- boot.txt -------------------------------------------------------------------------------

// The next line: up to and including its line feed, at most 511 characters.
bool next_line(const uint8_t* text, size_t len, size_t& pos, std::string_view& line) {
    if (pos >= len) return false;
    size_t start = pos;
    while (pos < len && pos - start < KVOL_BOOT_LINE_MAX - 1) {
        if (text[pos++] == '\n') break;
    }
    line = std::string_view(reinterpret_cast<const char*>(text) + start, pos - start);
    return true;
}

// The value of "KEY=value": after the first '=', up to a carriage return, blank, tab or line
// feed. Empty when the line has no '='.
std::string_view line_value(std::string_view line) {
    size_t eq = line.find('=');
    if (eq == std::string_view::npos) return {};
    std::string_view v = line.substr(eq + 1);
    size_t end = v.find_first_of("\r \t\n");
    return end == std::string_view::npos ? v : v.substr(0, end);
}

template <size_t N>
void set_name(char (&dst)[N], std::string_view v) {
    kvol_copy_str(dst, v.data(), v.size());
}

bool parse_decimal(std::string_view v, uint32_t& out) {
    uint64_t n = 0;
    for (char c : v) {
        if (c < '0' || c > '9') break;
        n = n * 10 + static_cast<uint64_t>(c - '0');
        if (n > UINT32_MAX) return false;
    }
    out = static_cast<uint32_t>(n);
    return true;
}

// "0,1" and the like: hexadecimal bytes separated by commas.
bool parse_ports(std::string_view v, std::vector<uint8_t>& ports) {
    ports.clear();
    for (;;) {
        size_t comma = v.find(',');
        std::string_view item = v.substr(0, comma);
        if (item.empty() || item.size() > 2) return false;
        unsigned b = 0;
        for (char c : item) {
            int d = (c >= '0' && c <= '9') ? c - '0'
                    : (c >= 'a' && c <= 'f') ? c - 'a' + 10
                    : (c >= 'A' && c <= 'F') ? c - 'A' + 10
                                             : -1;
            if (d < 0) return false;
            b = b * 16 + static_cast<unsigned>(d);
        }
        ports.push_back(static_cast<uint8_t>(b));
        if (comma == std::string_view::npos) return true;
        v.remove_prefix(comma + 1);
    }
}

void close_card(CARD_DATA_T& c, bool has_port) {
    if (!has_port) c.port.assign(1, 0);
    c.portcnt = static_cast<int>(c.port.size());
}

// ---- Option ROM -----------------------------------------------------------------------------

constexpr size_t ROM_VERSION_PTR = 0x16;
constexpr size_t ROM_PCIR_PTR = 0x18;
constexpr size_t ROM_PNP_PTR = 0x1A;
constexpr size_t PCIR_DEVICE_ID = 6;
constexpr size_t PCIR_IMAGE_LEN = 0x10;
constexpr size_t PCIR_CODE_TYPE = 0x14;
constexpr size_t PCIR_INDICATOR = 0x15;
constexpr size_t PCIR_MIN_LEN = 0x16;
constexpr size_t PNP_LENGTH = 5;
constexpr size_t PNP_CHECKSUM = 9;
constexpr size_t PNP_DEVICE_ID = 12;
constexpr size_t ROM_VERSION_LEN = 7;
constexpr uint8_t CODE_TYPE_X86 = 0;
constexpr uint8_t LAST_IMAGE = 0x80;

bool fixes_device_id(uint16_t devid) {
    return devid == 0x17 || devid == 0x14 || devid == 0x21 || devid == 0x22 || devid == 0x23;
}

uint16_t get16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
void put16(uint8_t* p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}
// True when [off, off + n) lies in a buffer of len bytes.
bool fits(size_t off, size_t n, size_t len) { return off <= len && n <= len - off; }

// The version is captured once per process, by the first fix-up of a first option ROM.
std::atomic<bool> g_version_taken{false};

// ---- VPD ------------------------------------------------------------------------------------

constexpr uint32_t VPD_LEN = 512;
constexpr uint8_t VPD_TAG_R = 0x90;
constexpr uint8_t VPD_TAG_END = 0x78;

bool keeps_version_in_vpd(uint32_t card_type) {
    return card_type == 2639 || card_type == 2758 || card_type == 2760;
}

// ---- Writing one adapter ----------------------------------------------------------------------

const IMAGEFILE_DATA_T* find_image(const std::vector<IMAGEFILE_DATA_T>& images, const char* name) {
    for (const IMAGEFILE_DATA_T& im : images)
        if (strncmp(im.iname, name, KVOL_BOOT_NAME_LEN) == 0) return &im;
    return nullptr;
}

// Set when the command gave up waiting: the workers write nothing more, so that they end soon
// and the caller can wait for them before it releases what they use.
std::atomic<bool> g_cancelled{false};

kvo_status_t write_member(kvol_t* ioc, uint32_t type, uint32_t instance, const uint8_t* buf,
                          size_t len) {
    if (g_cancelled.load()) return KVO_STATUS_BOOT_CODE_TIMEDOUT;
    return kvol_flash_update_part(ioc, type, instance, buf, static_cast<uint32_t>(len));
}

// An option ROM member fixed up for this card and word-swapped, written to its partition.
kvo_status_t write_optrom(kvol_t* ioc, uint32_t type, const IMAGEFILE_DATA_T& im, uint16_t devid,
                          int first, char (&version)[KVOL_BOOT_VER_LEN + 1]) {
    // The members are shared by every adapter's thread: each fixes up its own copy.
    std::vector<uint8_t> rom(im.ibuf);
    kvo_status_t s = kvol_update_device_id_chksum(rom.data(), rom.size(), devid, first, version);
    if (s != KVO_STATUS_OK) return s;
    kvol_swap32_words(rom.data(), rom.size());
    return write_member(ioc, type, 0, rom.data(), rom.size());
}

}  // namespace

// ---- Opening and reading the package --------------------------------------------------------

void kvol_boot_file::close() {
    if (fp != nullptr) fclose(fp);
    fp = nullptr;
    if (!tmp.empty()) unlink(tmp.c_str());
    tmp.clear();
}

kvo_status_t kvol_check_file_contains_tar(const char* path, kvol_boot_file& out) {
    out.close();
    if (path == nullptr) return KVO_STATUS_EFOPEN;
    FILE* fp = fopen(path, "rb");
    if (fp == nullptr) return KVO_STATUS_EFOPEN;
    std::vector<uint8_t> data;
    kvo_status_t s = read_all(fp, data);
    if (s != KVO_STATUS_OK) {
        fclose(fp);
        return s;
    }
    size_t off = 0;
    const uint8_t* hdr = nullptr;
    const uint8_t* body = nullptr;
    size_t size = 0;
    if (tar_next(data, off, hdr, body, size) != walk::member) {
        fclose(fp);
        return KVO_STATUS_BAD_FILE;
    }
    if (contains(tar_name(hdr), BOOT_TXT)) {
        out.fp = fp;  // the package itself; read again from its start
    } else {
        fclose(fp);
        s = unwrap_to_temp(body, size, out);
        if (s != KVO_STATUS_OK) {
            out.close();
            return s;
        }
    }
    // The first member's digest must be the one the second member carries after "<hash>".
    char digest[HASH_HEX_LEN + 1];
    kvol_md5_hex(body, size, digest);
    const uint8_t* hbody = nullptr;
    size_t hsize = 0;
    if (tar_next(data, off, hdr, hbody, hsize) != walk::member) {
        out.close();
        return KVO_STATUS_BAD_FILE;
    }
    std::string_view second(reinterpret_cast<const char*>(hbody), hsize);
    size_t at = second.find(HASH_TAG);
    if (at == std::string_view::npos ||
        second.substr(at + sizeof HASH_TAG - 1, HASH_HEX_LEN) != std::string_view(digest)) {
        out.close();
        return KVO_STATUS_BAD_FILE;
    }
    return KVO_STATUS_OK;
}

int kvol_count_images(const std::vector<uint8_t>& data) {
    size_t off = 0;
    const uint8_t* hdr;
    const uint8_t* body;
    size_t size;
    int n = 0;
    for (;;) {
        walk w = tar_next(data, off, hdr, body, size);
        if (w == walk::end) return n;
        if (w == walk::bad) return -1;
        n++;
    }
}

kvo_status_t kvol_read_boot_image(const std::vector<uint8_t>& data,
                                  std::vector<IMAGEFILE_DATA_T>& images) {
    int n = kvol_count_images(data);
    if (n < 0) return KVO_STATUS_BAD_FILE;
    images.clear();
    images.resize(static_cast<size_t>(n));
    size_t off = 0;
    const uint8_t* hdr;
    const uint8_t* body;
    size_t size;
    for (IMAGEFILE_DATA_T& im : images) {
        if (tar_next(data, off, hdr, body, size) != walk::member) return KVO_STATUS_BAD_FILE;
        std::string_view name = tar_name(hdr);
        kvol_copy_str(im.iname, name.data(), name.size());
        im.ibuf.assign(body, body + size);
        im.isize = static_cast<int>(size);
        im.ialloc = true;
    }
    return KVO_STATUS_OK;
}

kvo_status_t kvol_check_boot_code_version(const IMAGEFILE_DATA_T& boot_txt) {
    std::string_view text(reinterpret_cast<const char*>(boot_txt.ibuf.data()), boot_txt.ibuf.size());
    std::string_view first = text.substr(0, text.find('\n'));
    size_t eq = first.find('=');
    if (eq == std::string_view::npos || first.substr(0, eq) != BOOT_VERSION_KEY)
        return KVO_STATUS_BAD_FILE;
    return first.substr(eq + 1) == BOOT_VERSION ? KVO_STATUS_OK : KVO_STATUS_BOOT_VERSION;
}

kvo_status_t kvol_populate_card_data(const uint8_t* text, size_t len,
                                     std::vector<CARD_DATA_T>& cards) {
    cards.clear();
    size_t pos = 0;
    std::string_view line;
    size_t ncards = 0;
    while (next_line(text, len, pos, line))
        if (!contains(line, "#") && contains(line, "CARDTYPE")) ncards++;
    cards.resize(ncards);
    for (CARD_DATA_T& c : cards) {
        c.card_type = 0;
        c.portcnt = 0;
        c.firmware_name[0] = c.option_rom_name[0] = c.option_rom_2_name[0] = '\0';
        c.boot_overlay_name[0] = c.pxe_overlay_name[0] = c.fw_config_name[0] = '\0';
        c.asic_block_name[0] = '\0';
    }

    enum : unsigned { FW = 1, OPT2 = 2, OPT = 4, BOOTOVL = 8, PXEOVL = 16, FWCFG = 32, PORT = 64, ASIC = 128 };
    size_t next = 0;
    CARD_DATA_T* card = nullptr;  // the open card block
    unsigned seen = 0;
    pos = 0;
    while (next_line(text, len, pos, line)) {
        if (contains(line, "#")) continue;
        if (line == "\n") {
            if (card != nullptr) close_card(*card, seen & PORT);
            card = nullptr;
            continue;
        }
        std::string_view v = line_value(line);
        if (contains(line, "CARDTYPE")) {
            // A card block ends at an empty line before the next one starts.
            if (card != nullptr) return KVO_STATUS_FAILED;
            card = &cards[next++];
            seen = 0;
            if (!parse_decimal(v, card->card_type)) return KVO_STATUS_FAILED;
            continue;
        }
        struct key {
            const char* word;
            unsigned bit;
            char (*name)[KVOL_BOOT_NAME_LEN];
        };
        CARD_DATA_T dummy;
        CARD_DATA_T& c = card != nullptr ? *card : dummy;
        const key keys[] = {
            {"FIRMWARE", FW, &c.firmware_name},       {"OPTROM2", OPT2, &c.option_rom_2_name},
            {"OPTROM", OPT, &c.option_rom_name},      {"BOOTOVL", BOOTOVL, &c.boot_overlay_name},
            {"PXEOVL", PXEOVL, &c.pxe_overlay_name},  {"FWCFG", FWCFG, &c.fw_config_name},
            {"PORT", PORT, nullptr},                  {"ASICBLOCK", ASIC, &c.asic_block_name},
        };
        for (const key& k : keys) {
            if (!contains(line, k.word)) continue;
            if (card == nullptr || (seen & k.bit) != 0) return KVO_STATUS_FAILED;
            seen |= k.bit;
            if (k.bit == PORT) {
                if (!parse_ports(v, card->port)) return KVO_STATUS_FAILED;
            } else {
                set_name(*k.name, v);
            }
            break;
        }
    }
    if (card != nullptr) close_card(*card, seen & PORT);
    return KVO_STATUS_OK;
}

kvo_status_t kvol_populate_flash_data(FILE* fp, std::vector<IMAGEFILE_DATA_T>& images,
                                      std::vector<CARD_DATA_T>& cards) {
    std::vector<uint8_t> data;
    kvo_status_t s = read_all(fp, data);
    if (s != KVO_STATUS_OK) return s;
    s = kvol_read_boot_image(data, images);
    if (s != KVO_STATUS_OK) return s;
    if (images.empty() || strstr(images[0].iname, BOOT_TXT) == nullptr) return KVO_STATUS_BAD_FILE;
    s = kvol_check_boot_code_version(images[0]);
    if (s != KVO_STATUS_OK) return s;
    return kvol_populate_card_data(images[0].ibuf.data(), images[0].ibuf.size(), cards);
}

// ---- Option ROM fix-up ----------------------------------------------------------------------

void kvol_swap32_words(uint8_t* buf, size_t len) {
    for (size_t i = 0; i + 4 <= len; i += 4) {
        std::swap(buf[i], buf[i + 3]);
        std::swap(buf[i + 1], buf[i + 2]);
    }
}

kvo_status_t kvol_update_device_id_chksum(uint8_t* buf, size_t len, uint16_t devid, int first,
                                          char (&version)[KVOL_BOOT_VER_LEN + 1]) {
    if (buf == nullptr) return KVO_STATUS_BAD_BOOT_CODE;
    size_t off = 0;
    for (;;) {
        if (off >= len || !fits(off, ROM_PNP_PTR + 2, len)) return KVO_STATUS_BAD_BOOT_CODE;
        uint8_t* img = buf + off;
        const size_t room = len - off;
        size_t pcir = get16(img + ROM_PCIR_PTR);
        if (!fits(pcir, PCIR_MIN_LEN, room)) return KVO_STATUS_BAD_BOOT_CODE;
        size_t img_len = size_t{get16(img + pcir + PCIR_IMAGE_LEN)} * 512;
        if (img_len == 0 || img_len > room) return KVO_STATUS_BAD_BOOT_CODE;

        if (fixes_device_id(devid)) put16(img + pcir + PCIR_DEVICE_ID, devid);

        if (img[pcir + PCIR_CODE_TYPE] == CODE_TYPE_X86) {
            size_t vp = get16(img + ROM_VERSION_PTR);
            if (first == 1 && !g_version_taken.load() && !fits(vp, ROM_VERSION_LEN, img_len))
                return KVO_STATUS_BAD_BOOT_CODE;
            if (first == 1 && !g_version_taken.exchange(true)) {
                // "3.2.7.0"-style text laid pairwise into "0xx0xx0xx0x0".
                static constexpr size_t at[ROM_VERSION_LEN] = {1, 2, 4, 5, 7, 8, 10};
                for (size_t i = 0; i < ROM_VERSION_LEN; i++)
                    version[at[i]] = static_cast<char>(img[vp + i]);
            }
            if (!fixes_device_id(devid)) return KVO_STATUS_OK;
            size_t pnp = get16(img + ROM_PNP_PTR);
            if (!fits(pnp, PNP_DEVICE_ID + 2, img_len)) return KVO_STATUS_BAD_BOOT_CODE;
            put16(img + pnp + PNP_DEVICE_ID, devid);
            size_t pnp_len = size_t{img[pnp + PNP_LENGTH]} * 16;
            if (pnp_len <= PNP_CHECKSUM || !fits(pnp, pnp_len, img_len)) return KVO_STATUS_BAD_BOOT_CODE;
            img[pnp + PNP_CHECKSUM] = 0;
            img[pnp + PNP_CHECKSUM] = kvol_checksum_u8(img + pnp, static_cast<uint32_t>(pnp_len));
        }

        img[img_len - 1] = 0;
        img[img_len - 1] = kvol_checksum_u8(img, static_cast<uint32_t>(img_len));
        if (img[pcir + PCIR_INDICATOR] & LAST_IMAGE) return KVO_STATUS_OK;
        off += img_len;
    }
}

// ---- VPD --------------------------------------------------------------------------------------

// Puts the firmware version into the "V1" keyword of the VPD's read-only section (padded with
// blanks, cut to the keyword's length) and recomputes the "RV" checksum over everything from
// the start of the VPD through the checksum byte. False when the VPD's resource list is not
// well formed or has no read-only section (the buffer is then left alone).
bool kvol_vpd_set_fw_version(uint8_t* vpd, size_t len, const char* version, size_t vlen) {
    size_t off = 0;
    while (off + 3 <= len) {
        uint8_t tag = vpd[off];
        if (tag == VPD_TAG_END) return false;
        if (!(tag & 0x80)) return false;  // only large resources before the read-only section
        size_t rlen = get16(vpd + off + 1);
        size_t data = off + 3;
        if (!fits(data, rlen, len)) return false;
        if (tag != VPD_TAG_R) {
            off = data + rlen;
            continue;
        }
        uint8_t* v1 = nullptr;
        size_t v1_len = 0;
        for (size_t k = data; k + 3 <= data + rlen;) {
            size_t klen = vpd[k + 2];
            if (!fits(k + 3, klen, data + rlen)) return false;
            if (vpd[k] == 'V' && vpd[k + 1] == '1') {
                v1 = vpd + k + 3;
                v1_len = klen;
            } else if (vpd[k] == 'R' && vpd[k + 1] == 'V') {
                if (klen == 0) return false;
                if (v1 != nullptr) {
                    for (size_t i = 0; i < v1_len; i++) v1[i] = i < vlen ? static_cast<uint8_t>(version[i]) : ' ';
                }
                vpd[k + 3] = 0;
                vpd[k + 3] = kvol_checksum_u8(vpd, static_cast<uint32_t>(k + 4));
                return true;
            }
            k += 3 + klen;
        }
        return false;
    }
    return false;
}

kvo_status_t kvol_boot_vpd_update(kvol_t* ioc, uint32_t card_type,
                                  const char (&version)[KVOL_BOOT_VER_LEN + 1]) {
    if (!keeps_version_in_vpd(card_type)) return KVO_STATUS_OK;
    uint8_t vpd[VPD_LEN];
    if (g_cancelled.load()) return KVO_STATUS_BOOT_CODE_TIMEDOUT;
    kvo_status_t s = kvol_flash_read_part(ioc, KVO_FLASH_PART_VPD, 0, vpd, VPD_LEN);
    if (s != KVO_STATUS_OK) return s;
    kvol_vpd_set_fw_version(vpd, VPD_LEN, version, KVOL_BOOT_VER_LEN);
    return kvol_flash_update_part(ioc, KVO_FLASH_PART_VPD, 0, vpd, VPD_LEN);
}

// ---- Writing the flash ------------------------------------------------------------------------

kvo_status_t kvol_boot_flash_data(kvol_t* ioc, uint16_t devid, uint32_t card_type,
                                  const std::vector<IMAGEFILE_DATA_T>& images,
                                  const std::vector<CARD_DATA_T>& cards) {
    if (ioc == nullptr) return KVO_STATUS_EINVAL;
    // These cards take their boot code through the first port's function only.
    if ((card_type == 2763 || card_type == 2765) && kvol_ioc_get_port_id(ioc) != 0)
        return KVO_STATUS_BOOT_UPDATE_PORT1;
    char version[KVOL_BOOT_VER_LEN + 1];
    memset(version, '0', KVOL_BOOT_VER_LEN);
    version[KVOL_BOOT_VER_LEN] = '\0';
    kvol_heap_record<kvo_ioc_attr_t> attr;
    if (!attr) return KVO_STATUS_ENOMEM;
    kvo_status_t s = kvol_ioc_get_attr(ioc, attr.p);
    if (s != KVO_STATUS_OK) return s;

    const CARD_DATA_T* card = nullptr;
    for (const CARD_DATA_T& c : cards) {
        if (c.card_type == card_type) {
            card = &c;
            break;
        }
    }
    if (card == nullptr) return KVO_STATUS_CARDTYPE_MISSING;

    const IMAGEFILE_DATA_T* im;
    auto member = [&](const char* name) { return name[0] != '\0' ? find_image(images, name) : nullptr; };
    if ((im = member(card->firmware_name)) != nullptr &&
        (s = write_member(ioc, KVO_FLASH_PART_FWIMG, 0, im->ibuf.data(), im->ibuf.size())) != KVO_STATUS_OK)
        return s;
    if ((im = member(card->option_rom_name)) != nullptr) {
        if ((s = write_optrom(ioc, KVO_FLASH_PART_OPTROM, *im, devid, 1, version)) != KVO_STATUS_OK) return s;
        if ((s = kvol_boot_vpd_update(ioc, card_type, version)) != KVO_STATUS_OK) return s;
    }
    if ((im = member(card->option_rom_2_name)) != nullptr &&
        (s = write_optrom(ioc, KVO_FLASH_PART_OPTROM2, *im, devid, 0, version)) != KVO_STATUS_OK)
        return s;
    if ((im = member(card->boot_overlay_name)) != nullptr &&
        (s = write_member(ioc, KVO_FLASH_PART_BOOTOVL, 0, im->ibuf.data(), im->ibuf.size())) != KVO_STATUS_OK)
        return s;
    if ((im = member(card->pxe_overlay_name)) != nullptr &&
        (s = write_member(ioc, KVO_FLASH_PART_PXEOVL, 0, im->ibuf.data(), im->ibuf.size())) != KVO_STATUS_OK)
        return s;
    if ((im = member(card->fw_config_name)) != nullptr) {
        for (uint8_t instance : card->port)
            if ((s = write_member(ioc, KVO_FLASH_PART_FWCFG, instance, im->ibuf.data(), im->ibuf.size())) !=
                KVO_STATUS_OK)
                return s;
    }
    if ((im = member(card->asic_block_name)) != nullptr &&
        (s = write_member(ioc, KVO_FLASH_PART_ASIC, 0, im->ibuf.data(), im->ibuf.size())) != KVO_STATUS_OK)
        return s;
    if (g_cancelled.load()) return KVO_STATUS_BOOT_CODE_TIMEDOUT;
    return kvol_flash_enable_optrom(ioc);
}

void kvol_boot_cancel() { g_cancelled.store(true); }

// ---- Every adapter --------------------------------------------------------------------------

namespace {

// One adapter's thread. Each thread writes only its own record; the images and cards are
// read-only while the threads run.
struct bootupdt_s {
    uint32_t ad_id;  // 1-based adapter index
    int image_count;
    int card_count;
    uint32_t thread_sts;  // pthread_create's error, 0 when the thread runs
    kvo_status_t code;
    uintptr_t ret;  // the thread's exit value: ad_id on success, 0 on failure
    const std::vector<IMAGEFILE_DATA_T>* images;
    const std::vector<CARD_DATA_T>* cards;
};

void* kvol_update_adapter_flash(void* arg) {
    bootupdt_s* r = static_cast<bootupdt_s*>(arg);
    try {
        kvol_adapter_t* ad = kvol_adapter_get_by_idx(static_cast<int>(r->ad_id));
        kvol_t* ioc = ad != nullptr ? kvol_adapter_get_first_ioc(ad) : nullptr;
        if (ioc == nullptr) return nullptr;
        kvol_heap_record<kvo_ioc_attr_t> attr;
        if (!attr || kvol_ioc_get_attr(ioc, attr.p) != KVO_STATUS_OK) return nullptr;
        r->code = kvol_boot_flash_data(ioc, attr->pci_attr.device_id, attr->adapter_attr.card_type,
                                       *r->images, *r->cards);
    } catch (const std::bad_alloc&) {
        r->code = KVO_STATUS_ENOMEM;
    }
    return r->code == KVO_STATUS_OK ? reinterpret_cast<void*>(uintptr_t{r->ad_id}) : nullptr;
}

}  // namespace

kvo_status_t kvol_update_adapter_thread(uint16_t* mask,
                                        kvo_status_t (&statuses)[KVOL_BOOT_MAX_ADAPTERS],
                                        const std::vector<IMAGEFILE_DATA_T>& images,
                                        const std::vector<CARD_DATA_T>& cards) {
    int count = kvol_adapter_get_count();
    if (count > KVOL_BOOT_MAX_ADAPTERS) {
        printf("Adapter count exceeds the maximum!\n");
        return KVO_STATUS_FAILED;
    }
    bootupdt_s rec[KVOL_BOOT_MAX_ADAPTERS];
    pthread_t tid[KVOL_BOOT_MAX_ADAPTERS];
    for (int i = 0; i < KVOL_BOOT_MAX_ADAPTERS; i++) {
        rec[i] = bootupdt_s{static_cast<uint32_t>(i + 1), static_cast<int>(images.size()),
                            static_cast<int>(cards.size()), 0, KVO_STATUS_FAILED, 0, &images, &cards};
        statuses[i] = KVO_STATUS_FAILED;
    }
    for (int i = 0; i < count; i++)
        rec[i].thread_sts = static_cast<uint32_t>(pthread_create(&tid[i], nullptr, kvol_update_adapter_flash, &rec[i]));
    for (int i = 0; i < count; i++) {
        if (rec[i].thread_sts != 0) continue;
        void* ret = nullptr;
        if (pthread_join(tid[i], &ret) == 0) rec[i].ret = reinterpret_cast<uintptr_t>(ret);
    }
    for (int i = 0; i < count; i++) {
        statuses[i] = rec[i].code;
        if (rec[i].ret != 0 && rec[i].ret <= KVOL_BOOT_MAX_ADAPTERS)
            *mask = static_cast<uint16_t>(*mask | (1u << (rec[i].ret - 1)));
    }
    return KVO_STATUS_OK;
}

// ---- The update -------------------------------------------------------------------------------

kvo_status_t kvol_boot_fwupdate(kvol_t* ioc, const char* path, uint16_t devid, uint16_t* mask,
                                kvo_status_t (&statuses)[KVOL_BOOT_MAX_ADAPTERS]) {
    g_cancelled.store(false);
    kvo_status_t s = KVO_STATUS_OK;
    uint16_t dev_id = 0;
    uint32_t card_type = 0;
    uint16_t ignored = 0;
    if (mask == nullptr) mask = &ignored;
    try {
        kvol_heap_record<kvo_ioc_attr_t> attr;
        if (!attr) throw std::bad_alloc();
        if (ioc != nullptr) s = kvol_ioc_get_attr(ioc, attr.p);
        // A device id from the command line is only checked: nothing is written with it.
        if (devid != 0) {
            if (devid != 0x13 && devid != 0x14 && devid != 0x17 && devid != 0x21) s = KVO_STATUS_INVALID_DEVID;
        } else {
            if (ioc != nullptr && s == KVO_STATUS_OK) {
                dev_id = attr->pci_attr.device_id;
                card_type = attr->adapter_attr.card_type;
            }
            std::vector<IMAGEFILE_DATA_T> images;
            std::vector<CARD_DATA_T> cards;
            {
                kvol_boot_file pkg;  // closed, and its temporary file removed, on every path
                s = kvol_check_file_contains_tar(path, pkg);
                if (s == KVO_STATUS_OK) s = kvol_populate_flash_data(pkg.fp, images, cards);
            }
            if (s == KVO_STATUS_OK) {
                if (ioc != nullptr) return kvol_boot_flash_data(ioc, dev_id, card_type, images, cards);
                return kvol_update_adapter_thread(mask, statuses, images, cards);
            }
        }
    } catch (const std::bad_alloc&) {
        s = KVO_STATUS_ENOMEM;
    }
    for (kvo_status_t& st : statuses) st = s;
    return s;
}
