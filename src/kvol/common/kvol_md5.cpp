// MD5 as RFC 1321 describes it: the message is padded to 56 bytes modulo 64 with a 1 bit and
// zeros, followed by its bit length as a 64-bit little-endian number, and each 64-byte block
// goes through four rounds of sixteen steps on the state words A, B, C, D.
#include "kvol_md5.h"

#include <cmath>
#include <cstring>

namespace {

struct md5_ctx {
    uint32_t s[4] = {0x67452301u, 0xefcdab89u, 0x98badcfeu, 0x10325476u};
};

// Per-step left rotations, four per round.
constexpr int rot[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

// T[i] = floor(2^32 * |sin(i + 1)|), the sine table of the RFC.
struct sine_table {
    uint32_t t[64];
    sine_table() {
        for (int i = 0; i < 64; i++)
            t[i] = static_cast<uint32_t>(std::floor(std::fabs(std::sin(i + 1.0)) * 4294967296.0));
    }
};
const sine_table& T() {
    static const sine_table table;
    return table;
}

inline uint32_t rotl(uint32_t x, int n) { return (x << n) | (x >> (32 - n)); }

void md5_block(md5_ctx& c, const uint8_t* p) {
    uint32_t x[16];
    for (int i = 0; i < 16; i++)
        x[i] = uint32_t{p[4 * i]} | uint32_t{p[4 * i + 1]} << 8 | uint32_t{p[4 * i + 2]} << 16 |
               uint32_t{p[4 * i + 3]} << 24;
    uint32_t a = c.s[0], b = c.s[1], cc = c.s[2], d = c.s[3];
    const uint32_t* t = T().t;
    for (int i = 0; i < 64; i++) {
        uint32_t f;
        int k;
        switch (i / 16) {
        case 0:  // F(X,Y,Z) = XY v not(X) Z
            f = (b & cc) | (~b & d);
            k = i;
            break;
        case 1:  // G(X,Y,Z) = XZ v Y not(Z)
            f = (b & d) | (cc & ~d);
            k = (5 * i + 1) % 16;
            break;
        case 2:  // H(X,Y,Z) = X xor Y xor Z
            f = b ^ cc ^ d;
            k = (3 * i + 5) % 16;
            break;
        default:  // I(X,Y,Z) = Y xor (X v not(Z))
            f = cc ^ (b | ~d);
            k = (7 * i) % 16;
            break;
        }
        uint32_t nb = b + rotl(a + f + x[k] + t[i], rot[i / 16][i % 4]);
        a = d;
        d = cc;
        cc = b;
        b = nb;
    }
    c.s[0] += a;
    c.s[1] += b;
    c.s[2] += cc;
    c.s[3] += d;
}

}  // namespace

void kvol_md5(const void* data, size_t len, uint8_t (&digest)[KVOL_MD5_LEN]) {
    md5_ctx c;
    const uint8_t* p = static_cast<const uint8_t*>(data);
    size_t n = len;
    for (; n >= 64; n -= 64, p += 64) md5_block(c, p);
    // The tail, the 0x80 byte, zeros, and the bit count: one or two more blocks.
    uint8_t tail[128] = {};
    if (n > 0) memcpy(tail, p, n);
    tail[n] = 0x80;
    size_t blocks = (n + 1 + 8 <= 64) ? 1 : 2;
    uint64_t bits = static_cast<uint64_t>(len) * 8u;
    for (int i = 0; i < 8; i++) tail[blocks * 64 - 8 + i] = static_cast<uint8_t>(bits >> (8 * i));
    for (size_t b = 0; b < blocks; b++) md5_block(c, tail + 64 * b);
    for (int i = 0; i < 4; i++)
        for (int j = 0; j < 4; j++) digest[4 * i + j] = static_cast<uint8_t>(c.s[i] >> (8 * j));
}

void kvol_md5_hex(const void* data, size_t len, char (&hex)[2 * KVOL_MD5_LEN + 1]) {
    static const char digits[] = "0123456789abcdef";
    uint8_t d[KVOL_MD5_LEN];
    kvol_md5(data, len, d);
    for (size_t i = 0; i < KVOL_MD5_LEN; i++) {
        hex[2 * i] = digits[d[i] >> 4];
        hex[2 * i + 1] = digits[d[i] & 0xF];
    }
    hex[2 * KVOL_MD5_LEN] = '\0';
}
