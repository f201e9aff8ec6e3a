// What a target answers to the LUN list: REPORT LUNS data, its LUN-mask filter, and the
// INQUIRY and READ CAPACITY answers behind the columns of `fcpim --lunlist -v`.
//
// Input: byte 0 is the mask table's status, byte 1 the number of mask entries (mod 17), byte 2
// (its low 5 bits) how many bytes of the buffer the caller leaves out of its size, bytes 3-18 a last LBA and a
// block length (two int64, host order), bytes 19-54 INQUIRY data, then 10 bytes per mask entry
// (a byte choosing the local and remote port, the entry's state, its LUN), then the REPORT LUNS
// buffer.
//
// Properties:
//  - the count never claims more entries than the header announces or the size holds;
//  - the filter, unless masking is enabled and the whole announced list is in the buffer,
//    returns 0 and changes nothing; otherwise it keeps, in order, exactly the all-zero LUN
//    entries and those equal to an entry in use for the same local and remote port, so the
//    list never grows and LUN 0 always stays; the header's length is 8 x entries kept, its
//    reserved bytes and everything after the last entry kept are zero, and a second pass
//    changes nothing; nothing at or past `size` is written;
//  - the INQUIRY columns: vendor 8 wide, a blank, the product up to its first NUL or blank (at
//    most 16), a blank, revision 4 wide; printable characters only;
//  - the size: "  -----" exactly when the 64-bit product of last LBA and block length is
//    negative, else bytes below 1 MiB, MB and GB in single precision, whole TiB from 1 TiB on;
//    never more than 12 characters, whatever the two numbers.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "fuzz_util.h"
#include "kvol_ioc_priv.h"
#include "qmxhandlers.h"

namespace {

using bytes = std::vector<uint8_t>;

constexpr size_t kHead = 55;       // fixed part of the input
constexpr size_t kEntryLen = 10;  // one mask entry in the input

// The nexus the list is filtered for, and two ports that are not it.
constexpr wwn_t kLp = 0x0100000000c09a10, kRp = 0x0200000000c09a20, kOther = 0x0100000000c09a11;
constexpr wwn_t kPorts[4] = {kLp, kRp, kOther, 0};

uint32_t be32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
           static_cast<uint32_t>(p[2]) << 8 | p[3];
}

bool all_zero(const uint8_t* p, size_t n) {
    return std::all_of(p, p + n, [](uint8_t b) { return b == 0; });
}

// The entries in use for the nexus, as 8-byte LUNs.
std::vector<bytes> masked_luns(const kvo_lunmask_cfg_s& mask) {
    std::vector<bytes> luns;
    for (const kvo_lun_mask_s& e : mask.lun_list) {
        if (e.state != KVO_LUNMASK_ENTRY_ACTIVE || e.lp_wwn != kLp || e.rp_wwn != kRp) continue;
        const auto* p = reinterpret_cast<const uint8_t*>(&e.lun);
        luns.emplace_back(p, p + 8);
    }
    return luns;
}

void check_count(const bytes& buf, uint32_t size) {
    const uint32_t n = kvol_scsi_rpl_count(buf.data(), size);
    if (size < 8) {
        FUZZ_CHECK(n == 0, "%u entries counted in %u bytes", n, size);
        return;
    }
    const uint32_t announced = be32(buf.data()) / 8;
    FUZZ_CHECK(n <= announced, "%u entries counted, the header announces %u", n, announced);
    FUZZ_CHECK(8 + uint64_t{n} * 8 <= size, "%u entries counted in %u bytes", n, size);
    // And no fewer than both allow: the LUN list shows every entry it has.
    FUZZ_CHECK(n == announced || 8 + (uint64_t{n} + 1) * 8 > size, "%u entries of %u counted in %u bytes",
               n, announced, size);
}

// buf holds `size` bytes of data followed by the bytes the caller left out of it.
void check_filter(const kvo_lunmask_cfg_s& mask, bytes& buf, uint32_t size) {
    const bytes before = buf;
    const int ret = kvol_scsi_lm_filter_rpl(mask, kLp, kRp, buf.data(), size);
    FUZZ_CHECK(std::equal(before.begin() + size, before.end(), buf.begin() + size),
               "a byte past size %u was written", size);
    const uint32_t announced = size >= 8 ? be32(before.data()) / 8 : 0;
    const bool whole = size >= 8 && 8 + uint64_t{announced} * 8 <= size;
    if (!whole || mask.status != KVO_LUNMASK_ENABLED) {
        FUZZ_CHECK(ret == 0, "filtered (status %u, %u bytes, %u entries announced)", mask.status, size,
                   announced);
        FUZZ_CHECK(buf == before, "data changed though not filtered");
        return;
    }
    FUZZ_CHECK(ret == 1, "not filtered (%u bytes, %u entries)", size, announced);

    // What should stay: all-zero entries and those masked in, in list order.
    const std::vector<bytes> in = masked_luns(mask);
    std::vector<bytes> want;
    bool had_lun0 = false;
    for (uint32_t i = 0; i < announced; ++i) {
        const bytes e(before.begin() + 8 + i * 8, before.begin() + 16 + i * 8);
        const bool zero = all_zero(e.data(), 8);
        had_lun0 |= zero;
        if (zero || std::find(in.begin(), in.end(), e) != in.end()) want.push_back(e);
    }
    const uint32_t len = be32(buf.data());
    FUZZ_CHECK(len % 8 == 0 && len / 8 <= announced, "list length %u after filtering %u entries", len,
               announced);
    const uint32_t kept = len / 8;
    bool has_lun0 = false;
    for (uint32_t i = 0; i < kept; ++i) has_lun0 |= all_zero(buf.data() + 8 + i * 8, 8);
    FUZZ_CHECK(has_lun0 || !had_lun0, "LUN 0 dropped");
    FUZZ_CHECK(kept == want.size(), "%u entries kept, %zu should be", kept, want.size());
    for (uint32_t i = 0; i < kept; ++i)
        FUZZ_CHECK(memcmp(buf.data() + 8 + i * 8, want[i].data(), 8) == 0, "entry %u of %u kept wrong", i, kept);
    FUZZ_CHECK(all_zero(buf.data() + 4, 4), "reserved bytes of the header not cleared");
    FUZZ_CHECK(all_zero(buf.data() + 8 + kept * 8, size - 8 - kept * 8), "bytes after the list not cleared");
    FUZZ_CHECK(kvol_scsi_rpl_count(buf.data(), size) == kept, "count after filtering");

    const bytes once = buf;
    FUZZ_CHECK(kvol_scsi_lm_filter_rpl(mask, kLp, kRp, buf.data(), size) == 1 && buf == once,
               "a second pass changed the list");
}

bool printable(char c) { return c >= 0x20 && c < 0x7f; }

// The field from..from+width up to its first NUL, as it should show: non-printable bytes as '?'.
std::string field(std::span<const uint8_t, 36> inq, size_t from, size_t width) {
    std::string s;
    for (size_t i = from; i < from + width && inq[i] != 0; ++i) s += printable(char(inq[i])) ? char(inq[i]) : '?';
    return s;
}

void check_inquiry(std::span<const uint8_t, 36> inq) {
    const std::string s = qmx_fcpim_inquiry_columns(inq);
    FUZZ_CHECK(s.size() >= 14 && s.size() <= 30, "INQUIRY columns %zu wide", s.size());
    for (char c : s) FUZZ_CHECK(printable(c), "INQUIRY columns hold byte 0x%02x", static_cast<uint8_t>(c));
    std::string vendor = field(inq, 8, 8), rev = field(inq, 32, 4);
    vendor.resize(8, ' ');
    rev.resize(4, ' ');
    FUZZ_CHECK(s.compare(0, 9, vendor + ' ') == 0, "vendor column \"%.9s\"", s.c_str());
    FUZZ_CHECK(s.compare(s.size() - 5, 5, ' ' + rev) == 0, "revision column \"%s\"", s.c_str() + s.size() - 5);
    const std::string product = s.substr(9, s.size() - 14);
    const std::string full = field(inq, 16, 16);
    const size_t blank = full.find(' ');
    FUZZ_CHECK(product == (blank == std::string::npos ? full : full.substr(0, blank + 1)), "product column \"%s\"",
               product.c_str());
}

void check_size(int64_t last_lba, int64_t block_len) {
    const std::string s = qmx_fcpim_lun_size(last_lba, block_len);
    FUZZ_CHECK(!s.empty() && s.size() <= 12, "size \"%s\" for %lld x %lld", s.c_str(), (long long)last_lba,
               (long long)block_len);
    const auto size = static_cast<int64_t>(static_cast<uint64_t>(last_lba) * static_cast<uint64_t>(block_len));
    if (size < 0) {
        FUZZ_CHECK(s == "  -----", "size \"%s\" for a negative product", s.c_str());
        return;
    }
    constexpr int64_t kMiB = int64_t{1} << 20, kGiB = int64_t{1} << 30, kTiB = int64_t{1} << 40;
    if (size < kMiB) {
        FUZZ_CHECK(s == std::to_string(size), "size \"%s\" for %lld bytes", s.c_str(), (long long)size);
        return;
    }
    const char* unit = size >= kTiB ? "TB" : size >= kGiB ? "GB" : "MB";
    FUZZ_CHECK(s.size() >= 6 && s.compare(s.size() - 2, 2, unit) == 0 && s[s.size() - 5] == '.',
               "size \"%s\" for %lld bytes", s.c_str(), (long long)size);
    for (size_t i = 0; i + 2 < s.size(); ++i)
        FUZZ_CHECK(i == s.size() - 5 || (s[i] >= '0' && s[i] <= '9'), "size \"%s\"", s.c_str());
    const double shown = strtod(s.c_str(), nullptr);
    if (size >= kTiB) {
        FUZZ_CHECK(shown == static_cast<double>(size / kTiB), "size \"%s\" for %lld bytes", s.c_str(),
                   (long long)size);
    } else {
        // Single precision: the value is off by at most one part in 2^23, then rounded to 0.01.
        const double exact = static_cast<double>(size) / static_cast<double>(size >= kGiB ? kGiB : kMiB);
        FUZZ_CHECK(std::fabs(shown - exact) <= 0.005 + exact / (1 << 23) + 1e-9, "size \"%s\" for %lld bytes",
                   s.c_str(), (long long)size);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < kHead) return 0;
    int64_t last_lba, block_len;
    memcpy(&last_lba, data + 3, 8);
    memcpy(&block_len, data + 11, 8);
    check_size(last_lba, block_len);
    check_inquiry(std::span<const uint8_t, 36>(data + 19, 36));

    const size_t entries = std::min<size_t>(data[1] % (KVO_LUNMASK_ENTRIES_MAX + 1), (size - kHead) / kEntryLen);
    const uint8_t* e = data + kHead;
    const uint8_t* list = e + entries * kEntryLen;
    const size_t len = size - kHead - entries * kEntryLen;
    kvo_lunmask_cfg_s mask;
    memset(&mask, 0, sizeof mask);
    mask.status = data[0];
    for (size_t i = 0; i < entries; ++i, e += kEntryLen) {
        kvo_lun_mask_s& m = mask.lun_list[i];
        m.lp_wwn = kPorts[e[0] & 3];
        m.rp_wwn = kPorts[e[0] >> 2 & 3];
        m.state = e[1];
        // Bit 4: the LUN of the list entry its first byte picks, so that matches are common.
        const size_t n = len >= 8 ? (len - 8) / 8 : 0;
        memcpy(&m.lun, (e[0] & 0x10) && n > 0 ? list + 8 + e[2] % n * 8 : e + 2, 8);
    }

    // Exactly the buffer's bytes, so that a read or write past it is caught; the caller may
    // give a smaller size.
    bytes buf(list, list + len);
    const auto sz = static_cast<uint32_t>(len - std::min<size_t>(data[2] & 0x1f, len));
    check_count(buf, sz);
    check_filter(mask, buf, sz);
    return 0;
}
