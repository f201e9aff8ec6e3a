// What the scan reads from sysfs and from the driver's identity reply: directory entry names
// (PCI functions, SCSI hosts), the PCI address of a function, and the reply record itself.
// The input is an entry name (up to its first NUL) and, read as a raw record, an identity
// reply; its first bytes also give a host number and a buffer size.
//
// Properties:
//  - a PCI function entry is accepted exactly when it holds "hhhh:hh:hh" and any character and a
//    hex digit (lower case), as the expression reads it;
//  - a SCSI host entry is one whose name holds "host"; its number is the digits after the
//    name's first four characters, "host<N>" gives N back, and nothing past INT_MAX is taken;
//  - the PCI function number is the one or two hex digits after the last dot, read within the
//    field's size (an unterminated field is not read past), and PCI addresses give theirs back;
//  - the node path of a host fits its buffer, terminated, and is one of the three forms;
//  - an identity record, however filled, leaves every text of the handle terminated, and the
//    handle's function number is its PCI address's.
#include <regex.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_util.h"
#include "kvol_linux.h"

namespace {

using fuzz::terminated;

bool lower_hex(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); }

// "hhhh:hh:hh", any character, a hex digit: somewhere in the name.
bool pci_entry(const std::string& n) {
    const char* const shape = "hhhh:hh:hh?h";
    for (size_t i = 0; i + 12 <= n.size(); ++i) {
        bool ok = true;
        for (size_t k = 0; k < 12 && ok; ++k) {
            const char c = n[i + k];
            ok = shape[k] == 'h' ? lower_hex(c) : shape[k] == ':' ? c == ':' : true;
        }
        if (ok) return true;
    }
    return false;
}

void check_pci_entry(const std::string& name) {
    static regex_t re;
    static const bool compiled = kvol_pci_regex_compile(&re) == 0;
    FUZZ_CHECK(compiled, "the PCI entry expression does not compile");
    FUZZ_CHECK(kvol_pci_name_matches(&re, name.c_str()) == pci_entry(name), "PCI entry \"%s\"", name.c_str());
}

void check_host(const std::string& name, uint32_t n) {
    const int host = kvol_sysfs_host_num(name.c_str());
    if (name.find("host") == std::string::npos) {
        FUZZ_CHECK(host == -1, "\"%s\" is no host but gives %d", name.c_str(), host);
    } else {
        long long v = 0;
        for (size_t i = 4; i < name.size() && name[i] >= '0' && name[i] <= '9' && v <= INT_MAX; ++i)
            v = v * 10 + (name[i] - '0');
        FUZZ_CHECK(host == (v > INT_MAX ? -1 : v), "host \"%s\" gives %d", name.c_str(), host);
    }
    const std::string entry = "host" + std::to_string(n);
    const int back = kvol_sysfs_host_num(entry.c_str());
    FUZZ_CHECK(back == (n > INT_MAX ? -1 : static_cast<int>(n)), "%s gives %d", entry.c_str(), back);
}

int hex_digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// The field as the driver fills it: size bytes, terminated or not.
void check_pcifn(const uint8_t* data, size_t size, uint8_t fn) {
    std::vector<char> field(data, data + size);  // exactly size bytes: nothing past is readable
    const int got = kvol_parse_pcifn(field.data(), field.size());
    const size_t len = strnlen(field.data(), field.size());
    const std::string text(field.data(), len);
    const size_t dot = text.rfind('.');
    int want = -1;
    if (dot != std::string::npos) {
        size_t digits = 0;
        int v = 0;
        for (; dot + 1 + digits < len && hex_digit(text[dot + 1 + digits]) >= 0; ++digits)
            if (digits < 2) v = v * 16 + hex_digit(text[dot + 1 + digits]);
        want = digits == 0 || digits > 2 ? -1 : v;
    }
    FUZZ_CHECK(got == want, "PCI function of \"%s\": %d", text.c_str(), got);

    char addr[16];
    snprintf(addr, sizeof addr, "%04x:%02x:%02x.%x", data[0] << 8 | data[1], data[2], data[3] & 0x1f, fn);
    FUZZ_CHECK(kvol_parse_pcifn(addr, sizeof addr) == fn, "%s gives %d", addr, kvol_parse_pcifn(addr, sizeof addr));
}

// Which nodes exist, for one call.
unsigned g_nodes;
bool node_exists(const char* path) {
    if (strncmp(path, "/dev/bsg/", 9) == 0) return g_nodes & 1;
    return g_nodes & 2;
}

void check_devpath(uint32_t host, unsigned nodes, size_t room) {
    g_nodes = nodes;
    char full[64];
    kvol_fc_devpath(host, node_exists, full, sizeof full);
    const std::string bsg = "/dev/bsg/fc_host" + std::to_string(host), old = "/dev/fc_host" + std::to_string(host);
    FUZZ_CHECK(full == ((nodes & 1) ? bsg : (nodes & 2) ? old : std::string("/dev/kvo")), "node %s", full);
    if (room == 0) return;
    std::vector<char> out(room, '\x7f');  // exactly room bytes
    kvol_fc_devpath(host, node_exists, out.data(), out.size());
    const size_t len = strnlen(out.data(), room);
    FUZZ_CHECK(len < room, "node path unterminated in %zu bytes", room);
    // The forms are checked by their own buffer: a short one holds a cut of one of them.
    FUZZ_CHECK(bsg.compare(0, len, out.data(), len) == 0 || old.compare(0, len, out.data(), len) == 0 ||
                   std::string("/dev/kvo").compare(0, len, out.data(), len) == 0,
               "node path %s", out.data());
}

void check_identity(const uint8_t* data, size_t size) {
    kvo_ioc_info_t info;
    memset(&info, 0, sizeof info);
    memcpy(&info, data, std::min(size, sizeof info));
    kvol_t rec;
    memset(&rec, 0x5a, sizeof rec);
    kvol_ioc_fill_from_info(&rec, &info);
    FUZZ_CHECK(terminated(rec.serialnum) && terminated(rec.ioc_hwpath) && terminated(rec.adapter_hwpath) &&
                   terminated(rec.name) && terminated(rec.port_name) && terminated(rec.eth_name),
               "a text of the handle is unterminated");
    FUZZ_CHECK(rec.pcifn_id == kvol_parse_pcifn(info.hwpath, sizeof info.hwpath), "function number %d",
               rec.pcifn_id);
    FUZZ_CHECK(strncmp(rec.ioc_hwpath, info.hwpath, sizeof rec.ioc_hwpath - 1) == 0, "PCI address copied wrong");
    if (kvol_is_storage_ioc(&rec))
        FUZZ_CHECK(rec.pwwn == info.pwwn && rec.nwwn == info.nwwn, "storage WWNs");
    else
        FUZZ_CHECK(rec.pwwn == 0 && rec.nwwn == 0 && memcmp(&rec.mac, &info.mac, sizeof rec.mac) == 0,
                   "Ethernet identity");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 8) return 0;
    const std::string name(reinterpret_cast<const char*>(data), strnlen(reinterpret_cast<const char*>(data), size));
    uint32_t n;
    memcpy(&n, data + 4, sizeof n);
    check_pci_entry(name);
    check_host(name, n);
    check_pcifn(data, std::min<size_t>(size, 32), data[size - 1]);
    check_devpath(n, data[0] & 3, data[2] % 40);
    check_identity(data, size);
    return 0;
}
