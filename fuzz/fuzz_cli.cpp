// The words of the command line: identifiers and values as an administrator (or a script)
// types them, checked against the front end's parsers. The input is one word; its first eight
// bytes are also used as a WWN, a MAC and a LUN for the printers, and its first byte as a
// buffer size.
//
// Properties:
//  - each validator accepts exactly the words of its form (checked against a regular
//    expression), and a parser that refuses a word leaves its output alone;
//  - WWN: parse and print give the word back (lower case); print and parse give the bytes back;
//  - MAC: never more than 6 bytes written; a six-piece MAC prints back as typed;
//  - LUN: the printed form, dashes taken out, converts to the bytes that print as the word;
//    the converter writes 8 bytes and the printer stays within its buffer;
//  - adapter/port[/pcifn]: the shape, and the numbers checked against the adapters of a small
//    tree (out of range: adapter 0, port -1), whatever their length;
//  - VLAN ids, numbers, speeds and topologies: the values of their words;
//  - any port word resolves to a function of the side asked for, or to nothing.
#include <regex.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_util.h"
#include "kvol_ioc_priv.h"
#include "qmxwrapper.h"

namespace {

// Two adapters: an FC HBA with two ports, and a CNA with FCoE, Ethernet and FCoE functions.
struct fn_desc {
    const char* hwpath;
    const char* adapter;
    kvo_ioc_type_e type;
    uint32_t port, pcifn;
    wwn_t pwwn;
    const char* name;
};
const fn_desc kTree[] = {
    {"0000:03:00.0", "0000:03:00", KVO_IOC_TYPE_FC, 0, 0, 0x000000f2e1000010ull, "fc-a"},
    {"0000:03:00.1", "0000:03:00", KVO_IOC_TYPE_FC, 1, 1, 0x010000f2e1000010ull, "fc-b"},
    {"0000:04:00.0", "0000:04:00", KVO_IOC_TYPE_FCoE, 0, 0, 0x000032f2e1000010ull, "cna-a"},
    {"0000:04:00.2", "0000:04:00", KVO_IOC_TYPE_LL, 0, 2, 0, "eth-a"},
    {"0000:04:00.4", "0000:04:00", KVO_IOC_TYPE_FCoE, 1, 4, 0x010032f2e1000010ull, "cna-b"},
};

void build_tree() {
    int n = 0;
    for (const fn_desc& d : kTree) {
        kvol_t* rec = kvol_calloc<kvol_t>();
        FUZZ_CHECK(rec != nullptr, "no memory");
        rec->fd = rec->sg_fd = rec->ipfc_fd = -1;
        rec->id = n;
        rec->ioc_type = d.type;
        snprintf(rec->ioc_hwpath, sizeof rec->ioc_hwpath, "%s", d.hwpath);
        snprintf(rec->adapter_hwpath, sizeof rec->adapter_hwpath, "%s", d.adapter);
        snprintf(rec->name, sizeof rec->name, "%s", d.name);
        rec->pwwn = d.pwwn;
        rec->nwwn = d.pwwn ? d.pwwn + 0x20 : 0;
        kvol_ioc_list_push(rec);
        kvol_ioc_set_num(++n);
    }
    for (int i = 0; i < n; ++i) {
        kvol_t* h = kvol_adapter_open_ioc(i);
        FUZZ_CHECK(h != nullptr, "IOC %d not listed", i);
        kvo_ioc_attr_t attr{};
        attr.port_id = kTree[i].port;
        attr.pci_attr.pcifn = kTree[i].pcifn;
        kvo_ioc_info_t info{};
        snprintf(info.serialnum, sizeof info.serialnum, "SN%d", i / 2);
        kvol_adapter_t* added = nullptr;
        FUZZ_CHECK(kvol_adapter_tree_add(h, &attr, &info, &added) == KVO_STATUS_OK, "tree");
    }
    FUZZ_CHECK(kvol_adapter_get_count() == 2, "two adapters expected");
}

// The forms of the words, as regular expressions (the checks' own reading of the rules).
class form {
public:
    explicit form(const char* pattern) {
        FUZZ_CHECK(regcomp(&re_, pattern, REG_EXTENDED | REG_NOSUB) == 0, "bad pattern %s", pattern);
    }
    bool operator()(const std::string& w) const { return regexec(&re_, w.c_str(), 0, nullptr, 0) == 0; }

private:
    regex_t re_;
};
#define HEX "[0-9A-Fa-f]"
const form kWwn("^(" HEX "{2}:){7}" HEX "{2}$");
const form kMacChars("^[0-9A-Fa-f:]{17}$");
const form kMac("^(" HEX "{2}:){5}" HEX "{2}$");
const form kLunWord("^[0-9A-Fa-f-]+$");
const form kLunPrinted("^(" HEX "{4}-){3}" HEX "{4}$");
const form kAdapterPort("^[0-9]+/[0-9]+(/[0-9]+)?$");
const form kDigits("^[0-9]*$");
const form kName("^[A-Za-z][A-Za-z0-9_-]{0,14}$");
const form kPattern("^" HEX "{1,8}$");
#undef HEX

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return s;
}

// A writable copy of exactly the word's size, as argv holds it.
std::vector<char> argv_copy(const std::string& w) { return std::vector<char>(w.c_str(), w.c_str() + w.size() + 1); }

// The decimal value of a run of digits, held at INT_MAX.
long long dec(const std::string& digits) {
    long long v = 0;
    for (char c : digits) v = std::min<long long>(v * 10 + (c - '0'), INT_MAX);
    return v;
}

void check_wwn(const std::string& w, const uint8_t (&b8)[8]) {
    wwn_t wwn = 0x5a5a5a5a5a5a5a5aull;
    const int ok = qmx_get_port_wwn(w.c_str(), &wwn);
    FUZZ_CHECK(ok == kWwn(w), "WWN \"%s\": %d", w.c_str(), ok);
    char buf[24];
    if (ok)
        FUZZ_CHECK(qmx_wwn2str(buf, wwn) == std::string(lower(w)), "WWN \"%s\" prints as %s", w.c_str(), buf);
    else
        FUZZ_CHECK(wwn == 0x5a5a5a5a5a5a5a5aull, "a refused WWN changed the output");

    wwn_t in;
    memcpy(&in, b8, sizeof in);
    wwn_t back = 0;
    FUZZ_CHECK(qmx_get_port_wwn(qmx_wwn2str(buf, in), &back) == 1 && back == in, "WWN %s does not parse back", buf);
}

void check_mac(const std::string& w) {
    uint8_t mac[16];
    memset(mac, 0xA5, sizeof mac);
    std::vector<char> word = argv_copy(w);
    const int ok = qmx_get_mac_number(word.data(), mac);
    bool pieces_ok = true;
    size_t run = 0;
    for (char c : w) {
        run = c == ':' ? 0 : run + 1;
        pieces_ok = pieces_ok && run <= 2;
    }
    FUZZ_CHECK(ok == (kMacChars(w) && pieces_ok), "MAC \"%s\": %d", w.c_str(), ok);
    for (size_t i = 6; i < sizeof mac; ++i) FUZZ_CHECK(mac[i] == 0xA5, "MAC byte %zu written", i);
    if (!ok) {
        for (size_t i = 0; i < 6; ++i) FUZZ_CHECK(mac[i] == 0xA5, "a refused MAC changed the output");
    } else if (kMac(w)) {
        char buf[18];
        snprintf(buf, sizeof buf, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
        FUZZ_CHECK(lower(w) == buf, "MAC \"%s\" reads as %s", w.c_str(), buf);
    }
}

void check_lun(const std::string& w, const uint8_t (&b8)[8], size_t room) {
    FUZZ_CHECK(qmx_verify_lun(w.c_str()) == kLunWord(w), "LUN word \"%s\"", w.c_str());
    uint8_t lun[16];
    memset(lun, 0xA5, sizeof lun);
    qmx_convert_string_to_lun(w.c_str(), lun);
    for (size_t i = 8; i < sizeof lun; ++i) FUZZ_CHECK(lun[i] == 0xA5, "LUN byte %zu written", i);
    if (kLunPrinted(w)) {
        std::string digits;
        for (char c : w)
            if (c != '-') digits += c;
        qmx_convert_string_to_lun(digits.c_str(), lun);
        lun_t l;
        memcpy(&l, lun, sizeof l);
        char buf[20];
        qmx_convert_lun_to_string(l, buf, sizeof buf);
        FUZZ_CHECK(lower(w) == buf, "LUN \"%s\" comes back as %s", w.c_str(), buf);
    }

    lun_t l;
    memcpy(&l, b8, sizeof l);
    char full[20];
    qmx_convert_lun_to_string(l, full, sizeof full);
    FUZZ_CHECK(strlen(full) == 19, "LUN text %s", full);
    std::vector<char> small(room + 4, '\x7f');
    qmx_convert_lun_to_string(l, small.data(), room);
    for (size_t i = room; i < small.size(); ++i) FUZZ_CHECK(small[i] == '\x7f', "LUN text past %zu bytes", room);
    if (room > 0)
        FUZZ_CHECK(strnlen(small.data(), room) < room && strncmp(small.data(), full, room - 1) == 0,
                   "LUN text in %zu bytes", room);
}

void check_adapter_port(const std::string& w) {
    std::vector<char> word = argv_copy(w);
    qmx_pcifn_t p{7, 7, 7};
    const int ok = qmx_get_adapter_port_id(word.data(), &p, 0);
    FUZZ_CHECK(ok == kAdapterPort(w), "adapter/port \"%s\": %d", w.c_str(), ok);
    if (!ok) return;
    const size_t s1 = w.find('/'), s2 = w.find('/', s1 + 1);
    const long long a = dec(w.substr(0, s1));
    const long long port = dec(w.substr(s1 + 1, s2 == std::string::npos ? std::string::npos : s2 - s1 - 1));
    const int want_ad = a >= 1 && a <= kvol_adapter_get_count() ? static_cast<int>(a) : 0;
    const int ports = want_ad ? kvol_adapter_get_port_count(kvol_adapter_get_by_idx(want_ad)) : 0;
    FUZZ_CHECK(p.adapter == want_ad, "\"%s\": adapter %d", w.c_str(), p.adapter);
    FUZZ_CHECK(p.port == (port < ports ? static_cast<int>(port) : -1), "\"%s\": port %d", w.c_str(), p.port);
    FUZZ_CHECK(p.pcifn_id == (s2 == std::string::npos ? -1 : dec(w.substr(s2 + 1))), "\"%s\": pcifn %d",
               w.c_str(), p.pcifn_id);
}

void check_values(const std::string& w) {
    const bool digits = kDigits(w);
    const int16_t vlan = qmx_parse_vlan_id(w.c_str());
    FUZZ_CHECK(vlan == (digits && dec(w) <= 4094 ? dec(w) : -1), "VLAN \"%s\": %d", w.c_str(), vlan);
    FUZZ_CHECK(qmx_verify_num(w.c_str()) == (digits && !w.empty()), "number \"%s\"", w.c_str());
    FUZZ_CHECK(qmx_verify_name(w.c_str()) == kName(w), "name \"%s\"", w.c_str());
    FUZZ_CHECK(qmx_verify_pattern(w.c_str()) == kPattern(w), "pattern \"%s\"", w.c_str());
    if (digits && !w.empty() && w.size() <= 19)
        FUZZ_CHECK(qmx_str2longlong(w.c_str()) == strtoull(w.c_str(), nullptr, 10), "number \"%s\"", w.c_str());

    const struct {
        const char* word;
        uint32_t speed;
    } speeds[] = {{"1", 1}, {"2", 2}, {"4", 4}, {"8", 8}, {"10", 10}, {"16", 16}, {"auto", 15}};
    uint32_t speed = 99;
    const int sp = qmx_set_speed(w.c_str(), &speed);
    uint32_t want = 99;
    for (const auto& s : speeds)
        if (w == s.word) want = s.speed;
    FUZZ_CHECK(sp == (want != 99) && speed == want, "speed \"%s\": %d, %u", w.c_str(), sp, speed);
    uint32_t topo = 99;
    const int tp = qmx_set_topology(w.c_str(), &topo);
    const uint32_t want_topo = w == "p2p" ? 5 : w == "loop" ? 2 : 99;
    FUZZ_CHECK(tp == (want_topo != 99) && topo == want_topo, "topology \"%s\"", w.c_str());
}

void check_resolution(const std::string& w) {
    for (qmx_side_t side : {QMX_SIDE_FC, QMX_SIDE_ETH}) {
        qmx_id_t id{};
        port_id_type_t form = e_id_unknown;
        const int rc = qmx_get_port_id_any(w.c_str(), side, &id, &form);
        if (rc != 0) {
            FUZZ_CHECK(id.kvol == nullptr, "\"%s\" failed with %d but names a function", w.c_str(), rc);
            continue;
        }
        FUZZ_CHECK(id.kvol != nullptr, "\"%s\" resolved to nothing", w.c_str());
        FUZZ_CHECK(kvol_is_storage_ioc(id.kvol) == (side == QMX_SIDE_FC), "\"%s\" resolved to the other side",
                   w.c_str());
        if (form == e_id_wwn) {
            wwn_t wwn;
            FUZZ_CHECK(qmx_get_port_wwn(w.c_str(), &wwn) && (id.kvol->pwwn == wwn || id.kvol->nwwn == wwn),
                       "\"%s\" resolved to another WWN", w.c_str());
        }
    }
    kvol_adapter_t* ad = qmx_get_adapter_id(w.c_str());
    FUZZ_CHECK(ad == nullptr || ad == kvol_adapter_get_by_idx(1) || ad == kvol_adapter_get_by_idx(2),
               "\"%s\" names no adapter of the tree", w.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    build_tree();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string w(reinterpret_cast<const char*>(data), strnlen(reinterpret_cast<const char*>(data), size));
    uint8_t b8[8] = {};
    memcpy(b8, data, std::min<size_t>(size, 8));
    check_wwn(w, b8);
    check_mac(w);
    check_lun(w, b8, size > 0 ? data[0] % 24 : 0);
    check_adapter_port(w);
    check_values(w);
    check_resolution(w);
    return 0;
}
