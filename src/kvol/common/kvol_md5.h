#pragma once
// MD5 message digest (RFC 1321), used to check a boot code package against the digest it
// carries. Not a security measure: it catches damaged or mismatched packages.
#include <cstddef>
#include <cstdint>

constexpr size_t KVOL_MD5_LEN = 16;

// The 16-byte digest of len bytes at data.
void kvol_md5(const void* data, size_t len, uint8_t (&digest)[KVOL_MD5_LEN]);
// The digest as 32 lower-case hexadecimal characters and a terminating NUL.
void kvol_md5_hex(const void* data, size_t len, char (&hex)[2 * KVOL_MD5_LEN + 1]);
