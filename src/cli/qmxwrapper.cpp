// Identifier lookups (adapter, port, PCI function words) and the value parsers and printers
// that the handlers share. Validators print nothing: the handler picks the error code.
#include "qmxwrapper.h"

#include <sys/stat.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace {

bool is_digit(int c) { return c >= '0' && c <= '9'; }

bool is_letter(int c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

int hex_value(int c) {
    if (is_digit(c)) return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return c - 'A' + 10;
}

// Decimal value of a run of digits, held at INT_MAX so that an absurd number stays out of
// every range instead of wrapping into one.
int dec_value(std::string_view digits) {
    long long v = 0;
    for (char c : digits) {
        v = v * 10 + (c - '0');
        if (v > INT_MAX) return INT_MAX;
    }
    return static_cast<int>(v);
}

// An IOC found by WWN, hardware path or name must sit on the side the command works on.
int check_side(const kvol_t* ioc, qmx_side_t side) {
    if (side == QMX_SIDE_FC) return kvol_is_storage_ioc(ioc) ? 0 : E_CLI_NO_FC_INFO;
    return kvol_ioc_get_ioc_type(ioc) == KVO_IOC_TYPE_LL ? 0 : E_CLI_NO_ETH_INFO;
}

// The numeric adapter/port[/pcifn] form, once parsed: find the IOC and check its side.
int resolve_numeric(const qmx_pcifn_t& p, qmx_side_t side, kvol_t** out, port_id_type_t* form) {
    if (p.adapter == 0 || p.port == -1) return E_CLI_INCORRECT_PORT_ID;
    kvol_adapter_t* ad = kvol_adapter_get_by_idx(p.adapter);
    if (ad == nullptr) return E_CLI_INCORRECT_PORT_ID;
    kvol_port_t* port = kvol_adapter_get_port(ad, p.port);
    if (port == nullptr) return E_CLI_INCORRECT_PORT_ID;

    kvol_t* ioc;
    if (p.pcifn_id != -1) {
        *form = e_id_adapter_port_pfn;
        ioc = kvol_port_get_ioc_by_pcifn(port, p.pcifn_id);
        if (ioc == nullptr) return E_CLI_INCORRECT_PORT_ID;
    } else {
        *form = e_id_adapter_port;
        if (side == QMX_SIDE_FC) {
            ioc = kvol_port_get_first_fcioc(port);
            if (ioc == nullptr) return E_CLI_NO_FC_INFO;
        } else {
            ioc = kvol_port_get_first_ethioc(port);
            if (ioc == nullptr) return E_CLI_NO_ETH_INFO;
        }
    }
    // Here the Ethernet side is "anything not storage", as the port lists are split that way.
    bool storage = kvol_is_storage_ioc(ioc);
    if (side == QMX_SIDE_FC && !storage) return E_CLI_NO_FC_INFO;
    if (side == QMX_SIDE_ETH && storage) return E_CLI_NO_ETH_INFO;
    *out = ioc;
    return 0;
}

// A word with "/" and no ":": the numeric form, else a hardware path.
int resolve_slashed(const std::string& word, qmx_side_t side, kvol_t** out,
                    port_id_type_t* form) {
    std::string scratch = word;  // the numeric parse tokenises its input
    qmx_pcifn_t p;
    if (!qmx_get_adapter_port_id(scratch.data(), &p, 0)) {
        *form = e_id_hwpath;
        return qmx_get_ioc_by_hwpath(word.c_str(), side, out);
    }
    return resolve_numeric(p, side, out, form);
}

int lookup_by_str(const char* word, qmx_side_t side, kvol_t** out) {
    *out = nullptr;
    // An empty word would match any IOC whose name was never set.
    if (word == nullptr || *word == '\0') return E_CLI_INCORRECT_PORT_ID;
    kvol_t* ioc = kvol_adapter_get_ioc_by_str(word);
    if (ioc == nullptr) return E_CLI_INCORRECT_PORT_ID;
    int rc = check_side(ioc, side);
    if (rc != 0) return rc;
    *out = ioc;
    return 0;
}

}  // namespace

// ---- Identifier resolution -------------------------------------------------------------------

// An adapter by 1-based index, serial number, name or hardware path; null when none.
kvol_adapter_t* qmx_get_adapter_id(const char* word) {
    if (word == nullptr || *word == '\0') return nullptr;
    if (strchr(word, '/') == nullptr && is_digit(word[0]) && strchr(word, ':') == nullptr) {
        // Taken as an index: a serial or name starting with a digit cannot be used here.
        std::string_view w(word);
        for (char c : w) {
            if (!is_digit(c)) return nullptr;
        }
        int n = dec_value(w);
        if (n == 0 || n > kvol_adapter_get_count()) return nullptr;
        return kvol_adapter_get_by_idx(n);
    }
    return kvol_adapter_get_by_str(word);
}

// 1 when the word has the adapter/port[/pcifn] shape. Out-of-range numbers do not fail the
// parse: they leave adapter 0 or port -1 for the caller to reject. Tokenises the word.
int qmx_get_adapter_port_id(char* word, qmx_pcifn_t* out, int count_mode) {
    out->adapter = 0;
    out->port = -1;
    out->pcifn_id = -1;
    if (word == nullptr) return 0;
    int slashes = 0;
    for (const char* c = word; *c != '\0'; ++c) {
        if (*c == '/') {
            ++slashes;
        } else if (!is_digit(*c)) {
            return 0;
        }
    }
    if (slashes > 2) return 0;

    int result = 1;
    char* save = nullptr;
    char* piece = strtok_r(word, "/", &save);
    kvol_adapter_t* ad = nullptr;
    if (piece == nullptr || !is_digit(piece[0])) {
        result = 0;
    } else {
        out->adapter = dec_value(piece);
        if (out->adapter > kvol_adapter_get_count()) out->adapter = 0;
        if (out->adapter != 0) ad = kvol_adapter_get_by_idx(out->adapter);
    }

    piece = strtok_r(nullptr, "/", &save);
    if (piece == nullptr || !is_digit(piece[0])) return 0;
    int count = 0;  // no adapter: no port number is valid
    if (ad != nullptr) {
        count = count_mode == 1 ? kvol_adapter_get_hw_port_count(ad)
                                : kvol_adapter_get_port_count(ad);
        if (count == -1) return 0;
    }
    out->port = dec_value(piece);
    if (out->port >= count) out->port = -1;

    if (slashes == 2) {
        piece = strtok_r(nullptr, "/", &save);
        if (piece == nullptr || !is_digit(piece[0])) return 0;
        out->pcifn_id = dec_value(piece);
    }
    return result;
}

int qmx_get_port_id_any(const char* word, qmx_side_t side, qmx_id_t* out, port_id_type_t* form) {
    *form = e_id_unknown;
    out->kvol = nullptr;
    out->range_last = nullptr;
    if (word == nullptr || *word == '\0') return E_CLI_INCORRECT_PORT_ID;
    std::string w(word);

    if (w.find(':') != std::string::npos) {
        wwn_t wwn;
        if (qmx_get_port_wwn(w.c_str(), &wwn)) {
            *form = e_id_wwn;
            // A WWN names a storage function only.
            if (side == QMX_SIDE_ETH) return E_CLI_INCORRECT_PORT_ID;
            return qmx_get_ioc_by_wwn(w.c_str(), side, &out->kvol);
        }
        *form = e_id_hwpath;
        return qmx_get_ioc_by_hwpath(w.c_str(), side, &out->kvol);
    }

    if (w.find('/') != std::string::npos) {
        size_t dash = w.find('-');
        if (dash != std::string::npos) {
            *form = e_id_range;
            std::string last = w.substr(dash + 1);
            w.resize(dash);
            // The far end first. Its form does not count: the near end's form is the one a
            // strict caller filters on.
            kvol_t* last_ioc = nullptr;
            std::string scratch = last;
            qmx_pcifn_t p;
            if (qmx_get_adapter_port_id(scratch.data(), &p, 0)) {
                port_id_type_t last_form = e_id_unknown;
                int rc = resolve_numeric(p, side, &last_ioc, &last_form);
                if (rc != 0) return rc;
            } else {
                // A far end that matches nothing leaves the range open; not an error.
                (void)qmx_get_ioc_by_hwpath(last.c_str(), side, &last_ioc);
            }
            out->range_last = last_ioc;
        }
        return resolve_slashed(w, side, &out->kvol, form);
    }

    *form = e_id_name;
    return qmx_get_ioc_by_portname(w.c_str(), side, &out->kvol);
}

int qmx_get_port_id(const char* word, qmx_side_t side, qmx_id_t* out) {
    port_id_type_t form;
    int rc = qmx_get_port_id_any(word, side, out, &form);
    if (rc != 0) return rc;
    if (form == e_id_unknown) {
        out->kvol = nullptr;
        return E_CLI_INCORRECT_PORT_ID;
    }
    return 0;
}

// A port word must not name a PCI function by number.
int qmx_get_port_id_strict(const char* word, qmx_side_t side, qmx_id_t* out) {
    port_id_type_t form;
    int rc = qmx_get_port_id_any(word, side, out, &form);
    if (rc != 0) return rc;
    if (form == e_id_unknown || form == e_id_adapter_port_pfn) {
        out->kvol = nullptr;
        return E_CLI_INCORRECT_PORT_ID;
    }
    return 0;
}

// A PCI function word must be adapter/port/pcifn, a WWN, a hardware path or a range.
int qmx_get_pcifn_id_strict(const char* word, qmx_side_t side, qmx_id_t* out) {
    port_id_type_t form;
    int rc = qmx_get_port_id_any(word, side, out, &form);
    if (rc != 0) return rc;
    if (form == e_id_unknown || form == e_id_adapter_port || form == e_id_name) {
        out->kvol = nullptr;
        return E_CLI_INCORRECT_PCIFN_ID;
    }
    return 0;
}

// The adapter's control function (first IOC of port 0) plus the port and PCI function the
// word names. The target port may have no function bound to a driver yet, so a word that does
// not resolve is still accepted in its numeric form against the hardware port count.
int qmx_get_first_ioc(const char* word, kvol_t** out, int* port, int* pfn, int pcifn_mode) {
    const int bad_id = pcifn_mode ? E_CLI_INCORRECT_PCIFN_ID : E_CLI_INCORRECT_PORT_ID;
    *out = nullptr;
    auto resolve = pcifn_mode ? qmx_get_pcifn_id_strict : qmx_get_port_id_strict;
    qmx_id_t id{};
    int rc = resolve(word, QMX_SIDE_FC, &id);
    if (rc != 0) rc = resolve(word, QMX_SIDE_ETH, &id);

    kvol_adapter_t* ad;
    int the_port;
    int the_pfn;
    if (rc == 0) {
        ad = kvol_adapter_get_by_idx(kvol_ioc_get_adapter_id(id.kvol));
        if (ad == nullptr) return bad_id;
        the_port = kvol_ioc_get_port_id(id.kvol);
        the_pfn = kvol_ioc_get_pcifn(id.kvol);
    } else {
        if (word == nullptr) return E_CLI_INCORRECT_PORT_ID;
        std::string scratch(word);
        qmx_pcifn_t p;
        if (!qmx_get_adapter_port_id(scratch.data(), &p, 1)) return E_CLI_INCORRECT_PORT_ID;
        if (p.adapter == 0 || p.port == -1) return E_CLI_INCORRECT_PORT_ID;
        if (!pcifn_mode && p.pcifn_id != -1) return E_CLI_INCORRECT_PORT_ID;
        if (pcifn_mode && p.pcifn_id == -1) return E_CLI_INCORRECT_PCIFN_ID;
        ad = kvol_adapter_get_by_idx(p.adapter);
        if (ad == nullptr) return bad_id;
        the_port = p.port;
        the_pfn = pcifn_mode ? p.pcifn_id : -1;
    }

    kvol_port_t* port0 = kvol_adapter_get_port(ad, 0);
    kvol_t* first = port0 != nullptr ? kvol_port_get_first_ioc(port0) : nullptr;
    if (first == nullptr) return E_CLI_PORT0_ABSENT;
    *out = first;
    if (port != nullptr) *port = the_port;
    if (pfn != nullptr) *pfn = the_pfn;
    return 0;
}

int qmx_get_ioc_by_wwn(const char* word, qmx_side_t side, kvol_t** out) {
    *out = nullptr;
    wwn_t wwn;
    if (word == nullptr || !qmx_get_port_wwn(word, &wwn)) return E_CLI_INCORRECT_PORT_ID;
    kvol_t* ioc = kvol_adapter_get_ioc_by_wwn(wwn);
    if (ioc == nullptr) return E_CLI_INCORRECT_PORT_ID;
    int rc = check_side(ioc, side);
    if (rc != 0) return rc;
    *out = ioc;
    return 0;
}

int qmx_get_ioc_by_hwpath(const char* word, qmx_side_t side, kvol_t** out) {
    return lookup_by_str(word, side, out);
}

int qmx_get_ioc_by_portname(const char* word, qmx_side_t side, kvol_t** out) {
    return lookup_by_str(word, side, out);
}

kvol_adapter_t* qmx_get_adapter_by_id(int index) {
    if (index < 1 || index > kvol_adapter_get_count()) return nullptr;
    return kvol_adapter_get_by_idx(index);
}

// The adapter's first IOC in port order; null when the adapter or any IOC is missing.
kvol_t* qmx_get_ioc_by_adapter_id(int index) {
    kvol_adapter_t* ad = qmx_get_adapter_by_id(index);
    if (ad == nullptr) return nullptr;
    int count = kvol_adapter_get_port_count(ad);
    for (int p = 0; p < count; ++p) {
        kvol_port_t* port = kvol_adapter_get_port(ad, p);
        if (port == nullptr) continue;
        kvol_t* ioc = kvol_port_get_first_ioc(port);
        if (ioc != nullptr) return ioc;
    }
    return nullptr;
}

// ---- Value parsers ---------------------------------------------------------------------------

int ishex(int c) {
    return is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F') ? 1 : 0;
}

// Eight two-digit hexadecimal bytes joined by ":", in the order written. The output is left
// untouched when the word is refused.
int qmx_get_port_wwn(const char* word, wwn_t* wwn) {
    if (word == nullptr) return 0;
    std::string_view w(word);
    if (w.size() != 23) return 0;
    int colons = 0;
    size_t piece = 0;
    for (char c : w) {
        if (c == ':') {
            ++colons;
            piece = 0;
        } else if (ishex(c)) {
            if (++piece > 2) return 0;
        } else {
            return 0;
        }
    }
    if (colons != 7) return 0;
    // 16 digits in 8 pieces of at most 2: every piece has exactly two, at 3*i.
    uint8_t bytes[8];
    for (size_t i = 0; i < 8; ++i) {
        bytes[i] = static_cast<uint8_t>(hex_value(w[3 * i]) * 16 + hex_value(w[3 * i + 1]));
    }
    memcpy(wwn, bytes, sizeof bytes);
    return 1;
}

// Seventeen characters of hex digits and ":" with no piece longer than two. The number of
// pieces is not fixed by that rule (nine one-digit pieces fit), so only the first six are
// kept; missing ones read as zero. Tokenises the word.
int qmx_get_mac_number(char* word, uint8_t* mac) {
    if (word == nullptr || mac == nullptr) return 0;
    if (strlen(word) != 17) return 0;
    for (const char* c = word; *c != '\0'; ++c) {
        if (!ishex(*c) && *c != ':') return 0;
    }
    uint8_t bytes[6] = {};
    size_t n = 0;
    char* save = nullptr;
    for (char* piece = strtok_r(word, ":", &save); piece != nullptr;
         piece = strtok_r(nullptr, ":", &save)) {
        size_t len = strlen(piece);
        if (len > 2) return 0;
        if (n < sizeof bytes) {
            int v = hex_value(piece[0]);
            if (len == 2) v = v * 16 + hex_value(piece[1]);
            bytes[n] = static_cast<uint8_t>(v);
        }
        ++n;
    }
    memcpy(mac, bytes, sizeof bytes);
    return 1;
}

int qmx_set_speed(const char* word, uint32_t* speed) {
    static const struct {
        const char* word;
        uint32_t speed;
    } speeds[] = {
        {"1", KVO_PORT_SPEED_1GBPS},   {"2", KVO_PORT_SPEED_2GBPS},
        {"4", KVO_PORT_SPEED_4GBPS},   {"8", KVO_PORT_SPEED_8GBPS},
        {"16", KVO_PORT_SPEED_16GBPS}, {"10", KVO_PORT_SPEED_10GBPS},
        {"auto", KVO_PORT_SPEED_AUTO},
    };
    if (word == nullptr) return 0;
    for (const auto& s : speeds) {
        if (strcmp(word, s.word) == 0) {
            *speed = s.speed;
            return 1;
        }
    }
    return 0;
}

int qmx_set_topology(const char* word, uint32_t* topology) {
    if (word == nullptr) return 0;
    if (strcmp(word, "p2p") == 0) {
        *topology = KVO_PORT_TOPOLOGY_P2P;
        return 1;
    }
    if (strcmp(word, "loop") == 0) {
        *topology = KVO_PORT_TOPOLOGY_LOOP;
        return 1;
    }
    return 0;
}

// 0..4094, or -1. An empty word has no digit to refuse and reads as 0.
int16_t qmx_parse_vlan_id(const char* word) {
    if (word == nullptr) return -1;
    int v = 0;
    for (const char* c = word; *c != '\0'; ++c) {
        if (!is_digit(*c)) return -1;
        v = v * 10 + (*c - '0');
        if (v > 4094) return -1;
    }
    return static_cast<int16_t>(v);
}

int qmx_verify_name(const char* word) {
    if (word == nullptr || !is_letter(word[0])) return 0;
    size_t len = 1;
    for (const char* c = word + 1; *c != '\0'; ++c, ++len) {
        if (!is_letter(*c) && !is_digit(*c) && *c != '-' && *c != '_') return 0;
    }
    return len <= 15 ? 1 : 0;
}

int qmx_verify_pattern(const char* word) {
    if (word == nullptr) return 0;
    size_t len = strlen(word);
    if (len < 1 || len > 8) return 0;
    for (size_t i = 0; i < len; ++i) {
        if (!ishex(word[i])) return 0;
    }
    return 1;
}

int qmx_verify_num(const char* word) {
    if (word == nullptr || *word == '\0') return 0;
    for (const char* c = word; *c != '\0'; ++c) {
        if (!is_digit(*c)) return 0;
    }
    return 1;
}

int qmx_verify_lun(const char* word) {
    if (word == nullptr || *word == '\0') return 0;
    for (const char* c = word; *c != '\0'; ++c) {
        if (!ishex(*c) && *c != '-') return 0;
    }
    return 1;
}

// No validation: callers check the word first. Unsigned arithmetic wraps, never traps.
uint64_t qmx_str2longlong(const char* word) {
    uint64_t v = 0;
    if (word == nullptr) return 0;
    for (const char* c = word; *c != '\0'; ++c) {
        v = v * 10 + static_cast<uint64_t>(static_cast<int64_t>(*c - '0'));
    }
    return v;
}

uint64_t qmx_str2lun(const char* word) { return qmx_str2longlong(word); }

// Sixteen hex digits as eight bytes in order. Bytes the word does not supply are zero.
void qmx_convert_string_to_lun(const char* word, uint8_t* lun) {
    if (word == nullptr || lun == nullptr) return;
    unsigned b[8] = {};
    sscanf(word, "%02x%02x%02x%02x%02x%02x%02x%02x", &b[0], &b[1], &b[2], &b[3], &b[4], &b[5],
           &b[6], &b[7]);
    for (size_t i = 0; i < 8; ++i) {
        lun[i] = static_cast<uint8_t>(b[i]);
    }
}

// Pairs "-l <wwn>" from argv[start] on; the last WWN wins.
int qmx_fill_vfid_lpwwn(char** argv, int argc, int start, const char* /*ignored*/, wwn_t* wwn) {
    for (int i = start; i < argc; i += 2) {
        if (strcmp(argv[i], "-l") != 0) return E_CLI_INCORRECT_CMD;
        if (i + 1 >= argc) return E_CLI_INCORRECT_CMD;
        if (!qmx_get_port_wwn(argv[i + 1], wwn)) return E_CLI_BAD_WWN;
    }
    return 0;
}

// 0 and the function's adapter, port and PCI function; 1 when no function has that interface.
int qmx_get_port_num(const char* eth_name, int* adapter, int* port, int* pcifn) {
    if (eth_name == nullptr) return 1;
    kvol_t* ioc = kvol_ioc_get_by_eth_name(eth_name);
    if (ioc == nullptr) return 1;
    *adapter = kvol_ioc_get_adapter_id(ioc);
    *port = kvol_ioc_get_port_id(ioc);
    *pcifn = kvol_ioc_get_pcifn(ioc);
    return 0;
}

int qmx_test_file_exists(const char* path) {
    struct stat st;
    return path != nullptr && stat(path, &st) == 0 ? 1 : 0;
}

// Copies the n words from the first argument after the identifier into strings the caller releases with qmx_free_args.
int create_args(char** argv, char*** out, int n) {
    *out = nullptr;
    if (n < 0) return E_CLI_INCORRECT_ARG;
    if (n == 0) return 0;
    char** args = static_cast<char**>(calloc(static_cast<size_t>(n), sizeof(char*)));
    if (args == nullptr) return E_CLI_SYSTEM_BUSY;
    for (int i = 0; i < n; ++i) {
        args[i] = strdup(argv[QMX_ARG_1 + i]);
        if (args[i] == nullptr) {
            qmx_free_args(args, i);
            return E_CLI_SYSTEM_BUSY;
        }
    }
    *out = args;
    return 0;
}

void qmx_free_args(char** args, int n) {
    if (args == nullptr) return;
    for (int i = 0; i < n; ++i) {
        free(args[i]);
    }
    free(args);
}

// ---- Printers --------------------------------------------------------------------------------

char* qmx_wwn2str(char* buf, wwn_t wwn) {
    uint8_t b[8];
    memcpy(b, &wwn, sizeof b);
    snprintf(buf, 24, "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4],
             b[5], b[6], b[7]);
    return buf;
}

void qmx_print_pwwn(wwn_t wwn) {
    char buf[24];
    printf("%s", qmx_wwn2str(buf, wwn));
}

void qmx_print_mac(const uint8_t* mac) {
    printf("%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

void qmx_print_lun(lun_t lun) {
    char buf[20];
    qmx_convert_lun_to_string(lun, buf, sizeof buf);
    printf("%s", buf);
}

void qmx_convert_lun_to_string(lun_t lun, char* buf, size_t size) {
    if (buf == nullptr || size == 0) return;
    uint8_t b[8];
    memcpy(b, &lun, sizeof b);
    snprintf(buf, size, "%02x%02x-%02x%02x-%02x%02x-%02x%02x", b[0], b[1], b[2], b[3], b[4],
             b[5], b[6], b[7]);
}

void qmx_print_header_line(uint8_t n) {
    std::string line(n, '-');
    printf("%s\n", line.c_str());
}

void qmx_print_duration(uint32_t seconds) {
    if (seconds < 86400) {
        printf("%02d:%02d:%02d", static_cast<int>(seconds / 3600),
               static_cast<int>(seconds % 3600 / 60), static_cast<int>(seconds % 60));
        return;
    }
    uint32_t rest = seconds % 86400;
    printf("%d days, %02d:%02d:%02d", static_cast<int>(seconds / 86400),
           static_cast<int>(rest / 3600), static_cast<int>(rest % 3600 / 60),
           static_cast<int>(rest % 60));
}
