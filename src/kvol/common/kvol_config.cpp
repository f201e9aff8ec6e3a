// The configuration file: tables, parser, file lock, load/sync and the writer.
#include "kvol_config.h"
#include "kvol_ioc_priv.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

kvol_ad_config_t ad_config_data[KVOL_CFG_MAX_AD];
kvol_ioc_config_t ioc_config_data[KVOL_CFG_MAX_IOC];
uint32_t config_all[4];
pthread_mutex_t vportmutex = PTHREAD_MUTEX_INITIALIZER;

int msix_disable = 0, num_rports = 0, num_ios = 0, num_tms = 0, num_fcxps = 0, num_ufbufs = 0,
    reqq_size = 0, rspq_size = 0, num_sgpgs = 0, ioc_auto_recover = 1, ipfc_disable = 1,
    rport_del_timeout = 150, dma_relaxed_ordering = 1, pcie_max_read_reqsz = 512;

namespace {

int n;          // next adapter record while parsing
int file = -1;  // descriptor holding the file lock, -1 when none is held

constexpr const char* kTrimSet = " \t\";\n";

struct file_closer {
    void operator()(FILE* fp) const { fclose(fp); }
};
using file_ptr = std::unique_ptr<FILE, file_closer>;

template <size_t N>
int field_len(const char (&field)[N]) {
    return static_cast<int>(strnlen(field, N));
}

// Presence bit of a set_data type: adapter types 0-3 and port types 4-31 in word 0, 32-35 in
// word 1, each at bit (type mod 32).
int type_word(int type) { return type / 32; }
uint32_t type_mask(int type) { return 1u << (type % 32); }

void set_presence(uint32_t* flags, int word, uint32_t mask, bool present) {
    if (present)
        flags[word] |= mask;
    else
        flags[word] &= ~mask;
}

// 1 for "TRUE", 0 for "FALSE", -1 otherwise (likewise "on"/"off").
int parse_word_bool(const char* v, const char* yes, const char* no) {
    if (strcmp(v, yes) == 0) return 1;
    if (strcmp(v, no) == 0) return 0;
    return -1;
}

struct name_value {
    const char* name;
    uint32_t value;
};

constexpr name_value kTopologyWords[] = {
    {"none", KVO_PORT_TOPOLOGY_NONE},
    {"p2p", KVO_PORT_TOPOLOGY_P2P},
    {"loop", KVO_PORT_TOPOLOGY_LOOP},
    {"auto", KVO_PORT_TOPOLOGY_AUTO},
};
constexpr name_value kLogWords[] = {{"Critical", 1}, {"Error", 2}, {"Warning", 3}, {"Info", 4}};
constexpr name_value kAlgoWords[] = {{"md5", 1}, {"sha1", 2}, {"ms", 3}, {"sm", 4}};
constexpr name_value kSourceWords[] = {{"LOCAL", 1}, {"RADIUS", 2}, {"TACACS", 3}};

template <size_t N>
bool find_word(const name_value (&table)[N], const char* v, uint32_t* out) {
    for (const auto& e : table) {
        if (strcmp(e.name, v) == 0) {
            *out = e.value;
            return true;
        }
    }
    return false;
}

// Keys of the instance lines; `global` keys are also accepted without a prefix.
struct key_desc {
    const char* key;
    int type;
    bool global;
};

constexpr key_desc kFcKeys[] = {
    {"port-wwn", KVOL_CFG_PWWN, false},
    {"port-name", KVOL_CFG_NAME, false},
    {"port-speed", KVOL_CFG_SPEED, true},
    {"port-topology", KVOL_CFG_TOPOLOGY, true},
    {"port-hardalpa", KVOL_CFG_ALPA, false},
    {"port-maxfrsize", KVOL_CFG_MAXFRSZ, true},
    {"port-trunk", KVOL_CFG_TRUNK, true},
    {"port-enable", KVOL_CFG_ENABLE, true},
    {"ipfc-enable", KVOL_CFG_IPFC, true},
    {"log-level", KVOL_CFG_LOG, true},
    {"vf-enable", KVOL_CFG_VF_ENABLE, true},
    {"vf-default", KVOL_CFG_VF_DEFAULT, true},
    {"vf-list", KVOL_CFG_VF_LIST, true},
    {"auth-policy", KVOL_CFG_AUTH_POLICY, true},
    {"auth-algo", KVOL_CFG_AUTH_ALGO, true},
    {"auth-group", KVOL_CFG_AUTH_GROUP, true},
    {"auth-secretsource", KVOL_CFG_AUTH_SSOURCE, true},
    {"auth-encrypt", KVOL_CFG_AUTH_SSTRING, true},
    {"pathtov", KVOL_CFG_PATHTOV, true},
    {"qdepth", KVOL_CFG_QDEPTH, true},
    {"persistent-binding", KVOL_CFG_BINDING, true},
    {"qos", KVOL_CFG_QOS, true},
    {"ratelim", KVOL_CFG_RATELIM, true},
    {"ratelim-defspeed", KVOL_CFG_DEFSPEED, true},
    {"coalesce", KVOL_CFG_COALESCE, true},
    {"delay", KVOL_CFG_DELAY, true},
    {"latency", KVOL_CFG_LATENCY, true},
};

constexpr key_desc kEthKeys[] = {
    {"port-mac", KVOL_CFG_MAC, false},
    {"port-name", KVOL_CFG_ETHNAME, false},
    {"port-mtu", KVOL_CFG_MTU, false},
};

struct tunable_desc {
    const char* key;
    int* value;
};

const tunable_desc kTunables[] = {
    {"msix-disable", &msix_disable},
    {"num-rports", &num_rports},
    {"num-ios", &num_ios},
    {"num-tms", &num_tms},
    {"num-fcxps", &num_fcxps},
    {"num-ufbufs", &num_ufbufs},
    {"reqq-size", &reqq_size},
    {"rspq-size", &rspq_size},
    {"num-sgpgs", &num_sgpgs},
    {"ioc-auto-recover", &ioc_auto_recover},
    {"ipfc-disable", &ipfc_disable},
    {"rport-del-timeout", &rport_del_timeout},
    {"dma-relaxed-ordering", &dma_relaxed_ordering},
    {"pcie-max-read-reqsz", &pcie_max_read_reqsz},
};

template <size_t N>
const key_desc* find_key(const key_desc (&table)[N], const char* key) {
    for (const auto& k : table)
        if (strcmp(k.key, key) == 0) return &k;
    return nullptr;
}

bool valid_index(int idx, int max) { return idx >= 0 && idx < max; }

// The length of a trimmed value cut to room bytes. A cut can leave characters at its end that
// the reader trims; they are cut too, so that the value written reads back the same.
size_t cut_len(const char* value, size_t room) {
    size_t len = strnlen(value, room);
    if (value[len] == '\0') return len;
    while (len > 0 && strchr(kTrimSet, value[len - 1])) --len;
    return len;
}

template <size_t N>
void store_text(char (&field)[N], const char* value) {
    kvol_copy_str(field, value, cut_len(value, N - 1));
}

void free_vport_list(kvol_ioc_config_t& rec) {
    kvol_vf_config_t* node = rec.vport;
    while (node) {
        kvol_vf_config_t* next = node->next;
        std::free(node);
        node = next;
    }
    rec.vport = nullptr;
}

// Splits text at `sep` into at most `max` pieces, keeping empty pieces; returns the count.
int split_keep_empty(char* text, char sep, char** pieces, int max) {
    int count = 0;
    char* p = text;
    while (count < max) {
        pieces[count++] = p;
        char* c = strchr(p, sep);
        if (!c) break;
        *c = '\0';
        p = c + 1;
    }
    return count;
}

}  // namespace

// ---- Text helpers --------------------------------------------------------------------------------

int kvol_getline(FILE* fp, char* buf, int size) {
    int len = 0;
    if (!buf || size < 1) return 0;
    if (fp) {
        int c;
        while (len < size - 1 && (c = getc(fp)) != EOF) {
            buf[len++] = static_cast<char>(c);
            if (c == '\n') break;
        }
    }
    buf[len] = '\0';
    return len;
}

void kvol_config_filter_space(const char* in, char* out, size_t out_size) {
    if (!out || out_size == 0) return;
    const char* b = in ? in : "";
    while (*b && strchr(kTrimSet, *b)) ++b;
    const char* e = b + strlen(b);
    while (e > b && strchr(kTrimSet, e[-1])) --e;
    if (e == b) {
        b = " ";
        e = b + 1;
    }
    size_t len = std::min(static_cast<size_t>(e - b), out_size - 1);
    memcpy(out, b, len);
    out[len] = '\0';
}

void kvol_config_get_key(const char* start, const char* end, const char* line, char* temp,
                         char* key) {
    key[0] = '\0';
    if (!line || !end || !*end) return;
    const char* s = line;
    if (start && *start) {
        s = strchr(line, *start);
        if (!s) return;
        ++s;
    }
    const char* e = strchr(s, *end);
    if (!e || e == s) return;
    size_t len = static_cast<size_t>(e - s);
    if (len >= KVOL_CFG_LINE_MAX) return;
    memcpy(temp, s, len);
    temp[len] = '\0';
    char trimmed[KVOL_CFG_LINE_MAX];
    kvol_config_filter_space(temp, trimmed, sizeof trimmed);
    // A key that does not fit is refused rather than clipped into another key.
    if (strlen(trimmed) >= KVOL_CFG_KEY_MAX) return;
    strcpy(key, trimmed);
}

void kvol_config_get_data(const char* sep, const char* line, char* temp, char* value) {
    value[0] = '\0';
    if (!line || !sep || !*sep) return;
    const char* p = strstr(line, sep);
    if (!p) return;
    p += strlen(sep);
    size_t len = strnlen(p, KVOL_CFG_LINE_MAX - 1);
    memcpy(temp, p, len);
    temp[len] = '\0';
    kvol_config_filter_space(temp, value, KVOL_CFG_LINE_MAX);
}

int kvol_config_get_num(const char* text) {
    if (!text) return -1;
    uint64_t value = 0;
    uint64_t mult = 1;
    constexpr uint64_t kBeyond = 100000000000ull;  // past INT_MAX: every further digit saturates
    for (size_t i = strlen(text); i > 0; --i) {
        char c = text[i - 1];
        if (c == '\n') continue;
        if (c < '0' || c > '9') break;
        uint64_t d = static_cast<uint64_t>(c - '0');
        if (d != 0) value = (mult >= kBeyond) ? kBeyond : value + d * mult;
        if (value > INT_MAX) value = kBeyond;
        if (mult < kBeyond) mult *= 10;
    }
    return value > INT_MAX ? INT_MAX : static_cast<int>(value);
}

unsigned kvol_xstrtoi(const char* text) {
    unsigned v = 0;
    if (!text) return 0;
    for (const char* p = text; *p; ++p) {
        unsigned d = 0;
        if (*p >= '0' && *p <= '9')
            d = static_cast<unsigned>(*p - '0');
        else if (*p >= 'a' && *p <= 'f')
            d = static_cast<unsigned>(*p - 'a' + 10);
        else if (*p >= 'A' && *p <= 'F')
            d = static_cast<unsigned>(*p - 'A' + 10);
        v = (v << 4) | d;
    }
    return v;
}

wwn_t kvol_wwn_convert(const char* text) {
    uint8_t bytes[8] = {};
    if (text) {
        char buf[KVOL_CFG_LINE_MAX];
        size_t len = strnlen(text, sizeof buf - 1);
        memcpy(buf, text, len);
        buf[len] = '\0';
        char* pieces[8];
        int count = split_keep_empty(buf, ':', pieces, 8);
        for (int i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(kvol_xstrtoi(pieces[i]));
    }
    wwn_t wwn;
    memcpy(&wwn, bytes, sizeof wwn);
    return wwn;
}

void kvol_get_wwn(char* buf, size_t size, wwn_t wwn) {
    uint8_t b[8];
    memcpy(b, &wwn, sizeof b);
    snprintf(buf, size, "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4],
             b[5], b[6], b[7]);
}

void kvol_get_mac(char* buf, size_t size, mac_t mac) {
    const uint8_t* m = mac.mac;
    snprintf(buf, size, "%02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1], m[2], m[3], m[4], m[5]);
}

uint32_t kvol_listtobmp(const char* text) {
    uint32_t bmp = 0;
    if (!text) return 0;
    char buf[KVOL_CFG_LINE_MAX];
    size_t len = strnlen(text, sizeof buf - 1);
    memcpy(buf, text, len);
    buf[len] = '\0';
    char* save = nullptr;
    for (char* tok = strtok_r(buf, ",", &save); tok; tok = strtok_r(nullptr, ",", &save))
        bmp |= 1u << (kvol_config_get_num(tok) % 32);
    return bmp;
}

void kvol_bmptolist(FILE* stream, uint32_t bmp) {
    for (int bit = 0; bit < 32; ++bit) {
        uint32_t m = 1u << bit;
        if (!(bmp & m)) continue;
        bool last = bit == 31 || (bmp >> (bit + 1)) == 0;
        fprintf(stream, last ? "%d;\n" : "%d, ", bit);
    }
}

// ---- Storing values ----------------------------------------------------------------------------------

void kvol_config_set_data(int type, int idx, const char* value) {
    if (!value || type < 0 || type >= KVOL_CFG_TYPE_COUNT) return;
    if (type <= KVOL_CFG_AD_TRUNK) {
        if (!valid_index(idx, KVOL_CFG_MAX_AD)) return;
        kvol_ad_config_t& ad = ad_config_data[idx];
        switch (type) {
        case KVOL_CFG_AD_ID: {
            size_t len = cut_len(value, sizeof ad.id);
            memset(ad.id, 0, sizeof ad.id);
            memcpy(ad.id, value, len);
            ad.flags[0] |= KVOL_AD_INUSE;
            break;
        }
        case KVOL_CFG_AD_NAME:
            store_text(ad.name, value);
            ad.flags[0] |= KVOL_AD_NAME;
            break;
        case KVOL_CFG_AD_TRUNK: {
            int b = parse_word_bool(value, "TRUE", "FALSE");
            if (b >= 0) ad.ad_trunk = static_cast<kvo_boolean_t>(b);
            set_presence(ad.flags, 0, KVOL_AD_TRUNK, b >= 0);
            break;
        }
        default:  // "power" is accepted and stores nothing
            break;
        }
        return;
    }

    if (!valid_index(idx, KVOL_CFG_MAX_IOC)) return;
    kvol_ioc_config_t& r = ioc_config_data[idx];
    const int word = type_word(type);
    const uint32_t mask = type_mask(type);
    auto present = [&](bool on) { set_presence(r.flags, word, mask, on); };
    auto boolean = [&](kvo_boolean_t& field, const char* yes, const char* no) {
        int b = parse_word_bool(value, yes, no);
        if (b >= 0) field = static_cast<kvo_boolean_t>(b);
        present(b >= 0);
    };
    auto number = [&]() { return kvol_config_get_num(value); };
    uint32_t word_value = 0;

    switch (type) {
    case KVOL_CFG_PWWN: store_text(r.pwwn, value); present(true); break;
    case KVOL_CFG_MAC: store_text(r.mac, value); present(true); break;
    case KVOL_CFG_NAME: store_text(r.name, value); present(true); break;
    case KVOL_CFG_ETHNAME: store_text(r.ethname, value); present(true); break;
    case KVOL_CFG_MTU: r.mtu = number(); present(true); break;
    case KVOL_CFG_SPEED: r.speed = static_cast<kvo_port_speed_t>(number()); present(true); break;
    case KVOL_CFG_TOPOLOGY: {
        bool ok = find_word(kTopologyWords, value, &word_value);
        if (ok) r.topology = static_cast<kvo_port_topology_t>(word_value);
        present(ok);
        break;
    }
    case KVOL_CFG_ALPA: r.alpa = static_cast<uint8_t>(kvol_xstrtoi(value)); present(true); break;
    case KVOL_CFG_MAXFRSZ: r.maxfrsz = static_cast<uint16_t>(number()); present(true); break;
    case KVOL_CFG_TRUNK: r.trunking = kvol_listtobmp(value); present(true); break;
    case KVOL_CFG_ENABLE: boolean(r.enable, "TRUE", "FALSE"); break;
    case KVOL_CFG_IPFC: boolean(r.ipfc_enable, "TRUE", "FALSE"); break;
    case KVOL_CFG_LOG:
        // An unknown level keeps the previous one but still counts as set.
        if (find_word(kLogWords, value, &word_value)) r.log = static_cast<int>(word_value);
        present(true);
        break;
    case KVOL_CFG_VF_ENABLE: boolean(r.vf_enable, "TRUE", "FALSE"); break;
    case KVOL_CFG_VF_DEFAULT:
        r.vf_default_id = static_cast<uint16_t>(number());
        present(true);
        break;
    case KVOL_CFG_VF_LIST:
        r.vf_list = static_cast<uint16_t>(kvol_listtobmp(value) & 0xFFFF);
        present(true);
        break;
    case KVOL_CFG_AUTH_POLICY: boolean(r.authpolicy, "on", "off"); break;
    case KVOL_CFG_AUTH_ALGO: {
        bool ok = find_word(kAlgoWords, value, &word_value);
        if (ok) r.authalgo = static_cast<kvo_auth_algo_t>(word_value);
        present(ok);
        break;
    }
    case KVOL_CFG_AUTH_GROUP:
        r.authgroup = static_cast<kvo_auth_group_t>(number());
        present(true);
        break;
    case KVOL_CFG_AUTH_SSOURCE: {
        bool ok = find_word(kSourceWords, value, &word_value);
        if (ok) r.authssource = static_cast<kvo_auth_secretsource_t>(word_value);
        present(ok);
        break;
    }
    case KVOL_CFG_AUTH_SSTRING: store_text(r.authsstring, value); present(true); break;
    case KVOL_CFG_PATHTOV: r.pathtov = static_cast<uint16_t>(number()); present(true); break;
    case KVOL_CFG_QDEPTH: r.qdepth = static_cast<uint16_t>(number()); present(true); break;
    case KVOL_CFG_QOS: boolean(r.qos, "TRUE", "FALSE"); break;
    case KVOL_CFG_RATELIM: boolean(r.ratelim, "TRUE", "FALSE"); break;
    case KVOL_CFG_DEFSPEED:
        r.defspeed = static_cast<kvo_port_speed_t>(number());
        present(true);
        break;
    case KVOL_CFG_COALESCE: boolean(r.coalesce, "on", "off"); break;
    case KVOL_CFG_DELAY: r.delay = static_cast<uint16_t>(number()); present(true); break;
    case KVOL_CFG_LATENCY: r.latency = static_cast<uint16_t>(number()); present(true); break;
    case KVOL_CFG_BINDING: boolean(r.binding, "TRUE", "FALSE"); break;
    default:  // vport and TRS have their own entries
        break;
    }
}

void kvol_config_set_vportdata(int idx, const char* value) {
    if (!value || !valid_index(idx, KVOL_CFG_MAX_IOC)) return;
    kvol_ioc_config_t& r = ioc_config_data[idx];
    char buf[KVOL_CFG_LINE_MAX];
    size_t len = strnlen(value, sizeof buf - 1);
    memcpy(buf, value, len);
    buf[len] = '\0';
    char* tok[5];
    int count = split_keep_empty(buf, ',', tok, 5);

    kvol_get_mutex_lock(&vportmutex);
    r.flags[0] |= KVOL_W0_VPORT;
    char pwwn[sizeof r.vport->pwwn];
    kvol_copy_str(pwwn, tok[0]);
    // The fields are positional: a blank port WWN is still a vport, keyed by that blank.
    // Only a value with no field at all (nothing but blanks and quotes) adds no vport.
    if (count == 1 && strspn(pwwn, kTrimSet) == strlen(pwwn)) {
        kvol_release_mutex_lock(&vportmutex);
        return;
    }
    kvol_vf_config_t** link = &r.vport;
    while (*link && strcmp((*link)->pwwn, pwwn) != 0) link = &(*link)->next;
    kvol_vf_config_t* node = *link;
    const bool fresh = node == nullptr;
    if (fresh) {
        node = static_cast<kvol_vf_config_t*>(std::calloc(1, sizeof *node));
        if (!node) {
            kvol_release_mutex_lock(&vportmutex);
            return;
        }
        kvol_copy_str(node->pwwn, pwwn);
    }
    if (count > 1) kvol_copy_str(node->nwwn, tok[1]);
    // The name is trimmed, so an empty one reads as " ". A new vport without a name field
    // gets that too: it is what its written line reads back as.
    if (count > 2 || fresh) {
        char name[KVOL_CFG_LINE_MAX];
        kvol_config_filter_space(count > 2 ? tok[2] : "", name, sizeof name);
        store_text(node->name.symname, name);
    }
    if (count > 3) kvol_copy_str(node->role, tok[3]);
    if (count > 4) node->vf_id = static_cast<uint16_t>(kvol_config_get_num(tok[4]));
    if (fresh) {
        *link = node;  // the tail
        r.vpcount++;
    }
    kvol_release_mutex_lock(&vportmutex);
}

void kvol_config_set_trsdata(int idx, const char* value) {
    if (!value || !valid_index(idx, KVOL_CFG_MAX_IOC)) return;
    kvol_ioc_config_t& r = ioc_config_data[idx];
    char buf[KVOL_CFG_LINE_MAX];
    size_t len = strnlen(value, sizeof buf - 1);
    memcpy(buf, value, len);
    buf[len] = '\0';
    char* save = nullptr;
    const char* delims = "\",;";
    char* tok = strtok_r(buf, delims, &save);
    const int announced = tok ? kvol_config_get_num(tok) : 0;
    memset(r.trs_list, 0, sizeof r.trs_list);
    int got = 0;
    // Each announced pair is read on its own: a malformed one is left out and the pairs after
    // it still count. Stored: as many well-formed pairs as are present, up to the list's room.
    const char* fmt = "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx:%hhx:%hhx";
    for (int pair = 0; pair < announced && got < KVOL_CFG_MAX_TRS; ++pair) {
        char* l = strtok_r(nullptr, delims, &save);
        char* rw = l ? strtok_r(nullptr, delims, &save) : nullptr;
        if (!rw) break;
        uint8_t lb[8], rb[8];
        if (sscanf(l, fmt, &lb[0], &lb[1], &lb[2], &lb[3], &lb[4], &lb[5], &lb[6], &lb[7]) != 8 ||
            sscanf(rw, fmt, &rb[0], &rb[1], &rb[2], &rb[3], &rb[4], &rb[5], &rb[6], &rb[7]) != 8)
            continue;
        memcpy(&r.trs_list[got].lpwwn, lb, 8);
        memcpy(&r.trs_list[got].rpwwn, rb, 8);
        ++got;
    }
    r.trs_count = static_cast<uint16_t>(got);
    r.flags[1] |= KVOL_W1_TRS;
}

// ---- Parsing one line ----------------------------------------------------------------------------------

void kvol_config_parse(const char* line) {
    if (!line) return;
    char temp[KVOL_CFG_LINE_MAX];
    char key[KVOL_CFG_KEY_MAX];
    char value[KVOL_CFG_LINE_MAX];

    if (strstr(line, "adapter") && strchr(line, '-')) {
        if (n >= KVOL_CFG_MAX_AD) return;  // table full: further adapter lines are dropped
        kvol_config_get_key("-", "-", line, temp, key);
        // A serial with "=" in it would not read back from the line the writer makes of it.
        if (strchr(key, '=')) return;
        kvol_config_set_data(KVOL_CFG_AD_ID, n, key);
        kvol_config_get_key("-", "=", line, temp, key);
        kvol_config_get_data("=", line, temp, value);
        // The key holds the serial too: the words are looked for after it, so that a serial
        // that happens to contain "name" or "trunk" does not add a setting to its line (which
        // would come back as one more line at every write).
        const char* dash = strchr(key, '-');
        const char* words = dash ? dash + 1 : key;
        if (strstr(words, "name")) kvol_config_set_data(KVOL_CFG_AD_NAME, n, value);
        if (strstr(words, "power")) kvol_config_set_data(KVOL_CFG_AD_POWER, n, value);
        if (strstr(words, "trunk")) kvol_config_set_data(KVOL_CFG_AD_TRUNK, n, value);
        n++;
        return;
    }

    const bool fc = strstr(line, "kvo") && strchr(line, '-');
    const bool eth = !fc && strstr(line, "tqe") && strchr(line, '-');
    if (fc || eth) {
        size_t prefix = static_cast<size_t>(strchr(line, '-') - line);
        if (prefix >= sizeof temp) return;  // longer than any line the loader passes
        memcpy(temp, line, prefix);
        temp[prefix] = '\0';
        int inst = kvol_config_get_num(temp);
        if (!valid_index(inst, KVOL_CFG_MAX_IOC)) return;
        kvol_config_get_key("-", "=", line, temp, key);
        kvol_config_get_data("=", line, temp, value);
        if (!key[0]) return;
        if (fc) {
            if (strstr(key, "vport")) {
                kvol_config_set_vportdata(inst, value);
            } else if (strcmp(key, "trs-cfg") == 0) {
                kvol_config_set_trsdata(inst, value);
            } else if (const key_desc* k = find_key(kFcKeys, key)) {
                // The writer takes a global line's value from record 0 for every record. A
                // port line that changes a setting under a global line turns that line into
                // per-port lines, as the setters do, so that neither value is lost.
                const kvol_ioc_config_t before = ioc_config_data[inst];
                kvol_config_set_data(k->type, inst, value);
                const int w = type_word(k->type);
                const uint32_t m = type_mask(k->type);
                if ((config_all[w] & m) &&
                    memcmp(&before, &ioc_config_data[inst], sizeof before) != 0)
                    config_all[w] &= ~m;
            }
        } else if (const key_desc* k = find_key(kEthKeys, key)) {
            kvol_config_set_data(k->type, inst, value);
        }
        return;
    }

    kvol_config_get_key("", "=", line, temp, key);
    kvol_config_get_data("=", line, temp, value);
    if (!key[0]) return;
    for (const auto& t : kTunables) {
        if (strcmp(t.key, key) == 0) {
            *t.value = kvol_config_get_num(value);
            return;
        }
    }
    if (strcmp(key, "power") == 0) {
        config_all[0] |= KVOL_AD_POWER;
        int ads = kvol_config_ad_get_num();
        for (int i = 0; i < ads; ++i) kvol_config_set_data(KVOL_CFG_AD_POWER, i, value);
        return;
    }
    const key_desc* k = find_key(kFcKeys, key);
    if (!k || !k->global) return;
    const int w = type_word(k->type);
    const uint32_t m = type_mask(k->type);
    int ports = kvol_config_ioc_get_num();
    for (int i = 0; i < ports; ++i) kvol_config_set_data(k->type, i, value);
    // The writer takes a global line's value from record 0 for every record. The line stays
    // per-port lines when that would lose something: a record past its reach with a setting of
    // its own, or (an unknown log level keeps each record's level) records left unlike.
    bool alike = true;
    for (int i = std::max(ports, 0); i < KVOL_CFG_MAX_IOC; ++i)
        alike = alike && !(ioc_config_data[i].flags[w] & m);
    if (k->type == KVOL_CFG_LOG)
        for (int i = 1; i < ports; ++i) alike = alike && ioc_config_data[i].log == ioc_config_data[0].log;
    set_presence(config_all, w, m, alike);
}

// ---- Lookups -----------------------------------------------------------------------------------------------

int kvol_config_ioc_lookup(wwn_t wwn) {
    for (int i = 0; i < KVOL_CFG_MAX_IOC; ++i)
        if (kvol_wwn_convert(ioc_config_data[i].pwwn) == wwn) return i;
    return -1;
}

int kvol_config_ethioc_lookup(mac_t mac) {
    char text[32];
    kvol_get_mac(text, sizeof text, mac);
    for (int i = 0; i < KVOL_CFG_MAX_IOC; ++i)
        if (strncmp(ioc_config_data[i].mac, text, 17) == 0) return i;
    return -1;
}

int kvol_config_ad_lookup(const char* serial) {
    if (!serial) return -1;
    for (int i = 0; i < KVOL_CFG_MAX_AD; ++i)
        if (strncmp(ad_config_data[i].id, serial, sizeof ad_config_data[i].id) == 0) return i;
    return -1;
}

int kvol_config_ad_get_num() {
    return static_cast<int>(std::count_if(std::begin(ad_config_data), std::end(ad_config_data),
                                          [](const auto& a) { return a.flags[0] & KVOL_AD_INUSE; }));
}

int kvol_config_ioc_get_num() {
    return static_cast<int>(std::count_if(std::begin(ioc_config_data), std::end(ioc_config_data),
                                          [](const auto& r) { return r.flags[0] & KVOL_W0_PWWN; }));
}

void kvol_config_ioc_zero(int idx) {
    if (!valid_index(idx, KVOL_CFG_MAX_IOC)) return;
    kvol_get_mutex_lock(&vportmutex);
    free_vport_list(ioc_config_data[idx]);
    memset(&ioc_config_data[idx], 0, sizeof ioc_config_data[idx]);
    kvol_release_mutex_lock(&vportmutex);
}

// ---- Lock, load, sync ----------------------------------------------------------------------------------------

namespace {

// Opens the file read-write (created 0644 when missing) only when it is a regular file. A FIFO,
// socket or device at that path is refused, never opened where the check beforehand can see
// it: opening one could block (a FIFO without a writer) or act on a device. O_NONBLOCK keeps
// the open itself from blocking when the path is swapped between that check and the open;
// fstat on the descriptor then has the last word.
int open_regular(const char* path) {
    struct stat st;
    if (stat(path, &st) == 0 && !S_ISREG(st.st_mode)) return -1;
    int fd = open(path, O_RDWR | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0644);
    if (fd < 0) return -1;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        close(fd);
        return -1;
    }
    int fl = fcntl(fd, F_GETFL);
    if (fl >= 0) fcntl(fd, F_SETFL, fl & ~O_NONBLOCK);
    return fd;
}

// True when path names the file open on fd.
bool same_file(const char* path, int fd) {
    struct stat a, b;
    return stat(path, &a) == 0 && fstat(fd, &b) == 0 && a.st_dev == b.st_dev &&
           a.st_ino == b.st_ino;
}

// The writer's whole text, in one heap buffer (open_memstream), so that nothing is formatted
// while the file is being replaced.
struct text_buffer {
    char* data = nullptr;
    size_t size = 0;
    ~text_buffer() { std::free(data); }
};

bool render(text_buffer& text) {
    FILE* ms = open_memstream(&text.data, &text.size);
    if (!ms) return false;
    kvol_config_ad_update(ms);
    kvol_config_ioc_update(ms);
    bool ok = ferror(ms) == 0;
    if (fclose(ms) != 0) ok = false;
    return ok && text.data;
}

// True when the file's bytes are exactly text: same size and same contents to the end.
bool holds(int fd, const text_buffer& text) {
    struct stat st;
    if (fstat(fd, &st) != 0 || st.st_size < 0 || static_cast<size_t>(st.st_size) != text.size)
        return false;
    char buf[8192];
    size_t off = 0;
    for (;;) {
        ssize_t k = pread(fd, buf, sizeof buf, static_cast<off_t>(off));
        if (k < 0 && errno == EINTR) continue;
        if (k < 0) return false;
        if (k == 0) return off == text.size;
        size_t got = static_cast<size_t>(k);
        if (got > text.size - off || memcmp(buf, text.data + off, got) != 0) return false;
        off += got;
    }
}

// Signals whose default action ends the process and that can be blocked. A rewrite runs with
// them blocked, so Ctrl-C, a hang-up or a kill(1) arriving in the middle cannot leave the file
// half written; they are delivered right after. The faults (SIGSEGV, SIGBUS, ...) stay
// unblocked: they are this process's own.
void terminating_signals(sigset_t* set) {
    sigemptyset(set);
    for (int sig : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGALRM, SIGTERM, SIGUSR1, SIGUSR2, SIGXCPU,
                    SIGXFSZ, SIGVTALRM, SIGPROF, SIGIO, SIGPWR, SIGSTKFLT})
        sigaddset(set, sig);
    for (int sig = SIGRTMIN; sig <= SIGRTMAX; ++sig) sigaddset(set, sig);
}

// The in-place rewrite: one write of the whole text over the old one from the start (continued
// only after a short write), the file cut to the text's length when it was longer, fsync.
// Writing before cutting means the file is never empty, not even for the moment a truncation
// to zero takes, which on a journalling file system can be milliseconds; a reader or a SIGKILL
// sees the old text, the new one, or (shrinking only) the new text followed by the old tail.
// KVO_STATUS_EIO when any step fails; the file may then hold part of the new text.
kvo_status_t rewrite(int fd, const text_buffer& text) {
    sigset_t block, old;
    terminating_signals(&block);
    pthread_sigmask(SIG_BLOCK, &block, &old);
    kvo_status_t st = KVO_STATUS_OK;
    for (size_t done = 0; st == KVO_STATUS_OK && done < text.size;) {
        ssize_t k = pwrite(fd, text.data + done, text.size - done, static_cast<off_t>(done));
        if (k < 0 && errno == EINTR) continue;
        if (k <= 0)
            st = KVO_STATUS_EIO;
        else
            done += static_cast<size_t>(k);
    }
    struct stat now;
    if (st == KVO_STATUS_OK && fstat(fd, &now) != 0) st = KVO_STATUS_EIO;
    if (st == KVO_STATUS_OK && static_cast<size_t>(now.st_size) > text.size &&
        ftruncate(fd, static_cast<off_t>(text.size)) != 0)
        st = KVO_STATUS_EIO;
    if (st == KVO_STATUS_OK && fsync(fd) != 0) st = KVO_STATUS_EIO;
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    return st;
}

}  // namespace

kvo_status_t kvol_lock_conf_file(const char* path) {
    if (file != -1) return KVO_STATUS_FAILED;
    if (!path) return KVO_STATUS_EFOPEN;
    int fd = open_regular(path);
    if (fd < 0) return KVO_STATUS_EFOPEN;
    for (int attempt = 0; attempt < KVOL_CFG_LOCK_TRIES; ++attempt) {
        if (flock(fd, LOCK_EX | LOCK_NB) == 0) {
            file = fd;
            return KVO_STATUS_OK;
        }
        sleep(1);
    }
    close(fd);
    file = -1;
    return KVO_STATUS_EFOPEN;
}

void kvol_unlock_conf_file() {
    if (file == -1) return;
    flock(file, LOCK_UN);
    close(file);
    file = -1;
}

kvo_status_t kvol_config_load(const char* path) {
    kvo_status_t st = kvol_lock_conf_file(path);
    if (st != KVO_STATUS_OK) return st;
    // Read through the locked descriptor: the file checked and locked is the file parsed.
    int rfd = fcntl(file, F_DUPFD_CLOEXEC, 0);
    file_ptr fp(rfd >= 0 ? fdopen(rfd, "r") : nullptr);
    if (!fp) {
        if (rfd >= 0) close(rfd);
        kvol_unlock_conf_file();
        return KVO_STATUS_EFOPEN;
    }
    if (fseeko(fp.get(), 0, SEEK_SET) != 0) {
        fp.reset();
        kvol_unlock_conf_file();
        return KVO_STATUS_EFOPEN;
    }
    n = 0;
    kvol_get_mutex_lock(&vportmutex);
    for (auto& r : ioc_config_data) free_vport_list(r);
    memset(ad_config_data, 0, sizeof ad_config_data);
    memset(ioc_config_data, 0, sizeof ioc_config_data);
    kvol_release_mutex_lock(&vportmutex);

    char line[KVOL_CFG_LINE_MAX];
    for (;;) {
        int len = kvol_getline(fp.get(), line, sizeof line);
        if (line[0] != '#') kvol_config_parse(line);
        if (len == 0) break;
    }
    return KVO_STATUS_OK;
}

kvo_status_t kvol_config_sync(const char* path) {
    text_buffer text;
    if (!render(text)) {
        kvol_unlock_conf_file();
        return KVO_STATUS_ENOMEM;
    }
    // The locked descriptor when it is the file at path; otherwise (no lock held, as after a
    // scan's failed load, or another path) the path opened on its own.
    int fd = -1;
    bool own = false;
    if (path && file != -1 && same_file(path, file)) {
        fd = file;
    } else if (path) {
        fd = open_regular(path);
        own = fd >= 0;
    }
    if (fd < 0) {
        kvol_unlock_conf_file();
        return KVO_STATUS_EFOPEN;
    }
    // Unchanged text is not written again: the scan registers every adapter and port on every
    // command, and after the first command that changes nothing.
    kvo_status_t st = holds(fd, text) ? KVO_STATUS_OK : rewrite(fd, text);
    if (own) close(fd);
    kvol_unlock_conf_file();
    return st;
}

void kvol_config_unload() { kvol_unlock_conf_file(); }

// ---- Writer ----------------------------------------------------------------------------------------------------

namespace {

constexpr const char* kTopologyText[] = {"none", "p2p", "loop", "auto", "auto", "p2p"};
constexpr const char* kLogText[] = {"None", "Critical", "Error", "Warning", "Info", "Info"};
constexpr const char* kAlgoText[] = {" ", "md5", "sha1", "ms", "sm"};
constexpr const char* kSourceText[] = {" ", "LOCAL", "RADIUS", "TACACS"};

// A value outside its table prints as the table's first word.
template <size_t N>
const char* text_of(const char* const (&table)[N], long long v) {
    return (v >= 0 && static_cast<size_t>(v) < N) ? table[v] : table[0];
}

const char* bool_text(kvo_boolean_t v) { return v ? "TRUE" : "FALSE"; }
const char* onoff_text(kvo_boolean_t v) { return v ? "on" : "off"; }

bool global(int word, uint32_t mask) { return (config_all[word] & mask) != 0; }

// A per-instance line: the record has the setting and no global line replaces it.
bool per_instance(const kvol_ioc_config_t& r, int word, uint32_t mask) {
    return (r.flags[word] & mask) && !global(word, mask);
}

}  // namespace

void kvol_config_ad_update(FILE* stream) {
    fputs("# Syntax for global parameter (applied to all HBA instances):\n"
          "#   param_name=param_value \n"
          "#   kvo<instance_number>-param_name=param_value \n"
          "# \n",
          stream);
    fputs("\n#\n# Persistent naming of adapter\n# \n", stream);
    for (const auto& a : ad_config_data)
        if (a.flags[0] & KVOL_AD_NAME)
            fprintf(stream, "adapter-%.*s-name = \"%.*s\";\n", field_len(a.id), a.id,
                    field_len(a.name), a.name);
    fputs("\n#\n# Trunking of adapter\n# \n", stream);
    for (const auto& a : ad_config_data)
        if (a.flags[0] & KVOL_AD_TRUNK)
            fprintf(stream, "adapter-%.*s-trunk = \"%s\";\n", field_len(a.id), a.id,
                    bool_text(a.ad_trunk));
    n = 0;
}

void kvol_config_ioc_update(FILE* stream) {
    const kvol_ioc_config_t& r0 = ioc_config_data[0];
    const int max = KVOL_CFG_MAX_IOC;

    fputs("\n#\n# Persistent naming of port\n#\n", stream);
    for (int i = 0; i < max; ++i) {
        const auto& r = ioc_config_data[i];
        if (r.flags[0] & KVOL_W0_PWWN)
            fprintf(stream, "kvo%d-port-wwn = \"%.*s\";\n", i, field_len(r.pwwn), r.pwwn);
        if (r.flags[0] & KVOL_W0_NAME)
            fprintf(stream, "kvo%d-port-name = \"%.*s\";\n", i, field_len(r.name), r.name);
    }
    for (int i = 0; i < max; ++i) {
        const auto& r = ioc_config_data[i];
        if (r.flags[0] & KVOL_W0_MAC)
            fprintf(stream, "tqe%d-port-mac = \"%.*s\";\n", i, field_len(r.mac), r.mac);
        if (r.flags[0] & KVOL_W0_ETHNAME)
            fprintf(stream, "tqe%d-port-name = \"%.*s\";\n", i, field_len(r.ethname), r.ethname);
    }

    fputs("\n#\n# Port configuration\n#\n", stream);
    if (global(0, KVOL_W0_SPEED)) fprintf(stream, "port-speed = %d;\n", static_cast<int>(r0.speed));
    if (global(0, KVOL_W0_TOPOLOGY))
        fprintf(stream, "port-topology = \"%s\";\n", text_of(kTopologyText, r0.topology));
    if (global(0, KVOL_W0_MAXFRSZ)) fprintf(stream, "port-maxfrsize = %d;\n", r0.maxfrsz);
    for (int i = 0; i < max; ++i) {
        const auto& r = ioc_config_data[i];
        if (per_instance(r, 0, KVOL_W0_SPEED))
            fprintf(stream, "kvo%d-port-speed = %d;\n", i, static_cast<int>(r.speed));
        if (per_instance(r, 0, KVOL_W0_TOPOLOGY))
            fprintf(stream, "kvo%d-port-topology = \"%s\";\n", i,
                    text_of(kTopologyText, r.topology));
        if (r.flags[0] & KVOL_W0_ALPA) fprintf(stream, "kvo%d-port-hardalpa = 0x%x;\n", i, r.alpa);
        if (per_instance(r, 0, KVOL_W0_MAXFRSZ))
            fprintf(stream, "kvo%d-port-maxfrsize = %d;\n", i, r.maxfrsz);
    }

    fputs("\n# trunking\n", stream);
    if (global(0, KVOL_W0_TRUNK)) {
        fputs("port-trunk = ", stream);
        kvol_bmptolist(stream, r0.trunking);
    }
    for (int i = 0; i < max; ++i) {
        const auto& r = ioc_config_data[i];
        if (per_instance(r, 0, KVOL_W0_TRUNK)) {
            fprintf(stream, "kvo%d-port-trunk = ", i);
            kvol_bmptolist(stream, r.trunking);
        }
    }

    fputs("\n# disable a port persistently\n", stream);
    if (global(0, KVOL_W0_ENABLE)) {
        fprintf(stream, "port-enable = \"%s\";\n", bool_text(r0.enable));
    } else {
        for (int i = 0; i < max; ++i)
            if (ioc_config_data[i].flags[0] & KVOL_W0_ENABLE)
                fprintf(stream, "kvo%d-port-enable = \"%s\";\n", i,
                        bool_text(ioc_config_data[i].enable));
    }
    if (global(0, KVOL_W0_IPFC)) {
        fprintf(stream, "ipfc-enable = \"%s\";\n", bool_text(r0.ipfc_enable));
    } else {
        for (int i = 0; i < max; ++i)
            if (ioc_config_data[i].flags[0] & KVOL_W0_IPFC)
                fprintf(stream, "kvo%d-ipfc-enable = \"%s\";\n", i,
                        bool_text(ioc_config_data[i].ipfc_enable));
    }

    fputs("\n#\n# Driver log level\n# level: INFO, WARN, ERROR, CRITICAL\n#\n", stream);
    if (global(0, KVOL_W0_LOG)) {
        fprintf(stream, "log-level = \"%s\";\n", text_of(kLogText, r0.log));
    } else {
        for (int i = 0; i < max; ++i)
            if (ioc_config_data[i].flags[0] & KVOL_W0_LOG)
                fprintf(stream, "kvo%d-log-level = \"%s\";\n", i,
                        text_of(kLogText, ioc_config_data[i].log));
    }

    fputs("\n#\n# VF configuration\n#\n", stream);
    if (global(0, KVOL_W0_VF_ENABLE))
        fprintf(stream, "vf-enable = \"%s\"\n", bool_text(r0.vf_enable));
    if (global(0, KVOL_W0_VF_DEFAULT)) fprintf(stream, "vf-default = %d;\n", r0.vf_default_id);
    if (global(0, KVOL_W0_VF_LIST)) {
        fputs("vf-list = ", stream);
        kvol_bmptolist(stream, r0.vf_list);
    }
    for (int i = 0; i < max; ++i) {
        const auto& r = ioc_config_data[i];
        if (per_instance(r, 0, KVOL_W0_VF_ENABLE))
            fprintf(stream, "kvo%d-vf-enable = \"%s\"\n", i, bool_text(r.vf_enable));
        if (per_instance(r, 0, KVOL_W0_VF_DEFAULT))
            fprintf(stream, "kvo%d-vf-default = %d;\n", i, r.vf_default_id);
        if (per_instance(r, 0, KVOL_W0_VF_LIST)) {
            fprintf(stream, "kvo%d-vf-list = ", i);
            kvol_bmptolist(stream, r.vf_list);
        }
    }

    fputs("\n#\n# vport configuration\n#\n# vport-<id> = pwwn, nwwn,symname, roles [, vf_id]\n#\n",
          stream);
    for (int i = 0; i < max; ++i)
        if (ioc_config_data[i].flags[0] & KVOL_W0_VPORT) kvol_vport_traverse(stream, i);

    fputs("\n#\n# Target reset configuration\n#\n", stream);
    for (int i = 0; i < max; ++i)
        if (ioc_config_data[i].flags[1] & KVOL_W1_TRS) kvol_config_save_trsdata(stream, i);

    fputs("\n#\n# Authentication\n#\n", stream);
    if (global(0, KVOL_W0_AUTH_POLICY))
        fprintf(stream, "auth-policy = \"%s\";\n", onoff_text(r0.authpolicy));
    if (global(0, KVOL_W0_AUTH_ALGO))
        fprintf(stream, "auth-algo = \"%s\";\n", text_of(kAlgoText, r0.authalgo));
    if (global(0, KVOL_W0_AUTH_GROUP))
        fprintf(stream, "auth-group = %d;\n", static_cast<int>(r0.authgroup));
    if (global(0, KVOL_W0_AUTH_SSOURCE))
        fprintf(stream, "auth-secretsource = \"%s\";\n", text_of(kSourceText, r0.authssource));
    if (global(0, KVOL_W0_AUTH_SSTRING))
        fprintf(stream, "auth-encrypt = \"%.*s\";\n", field_len(r0.authsstring), r0.authsstring);
    for (int i = 0; i < max; ++i) {
        const auto& r = ioc_config_data[i];
        if (per_instance(r, 0, KVOL_W0_AUTH_POLICY))
            fprintf(stream, "kvo%d-auth-policy = \"%s\";\n", i, onoff_text(r.authpolicy));
        if (per_instance(r, 0, KVOL_W0_AUTH_ALGO))
            fprintf(stream, "kvo%d-auth-algo = \"%s\";\n", i, text_of(kAlgoText, r.authalgo));
        if (per_instance(r, 0, KVOL_W0_AUTH_GROUP))
            fprintf(stream, "kvo%d-auth-group = %d;\n", i, static_cast<int>(r.authgroup));
        if (per_instance(r, 0, KVOL_W0_AUTH_SSOURCE))
            fprintf(stream, "kvo%d-auth-secretsource = \"%s\";\n", i,
                    text_of(kSourceText, r.authssource));
        if (per_instance(r, 0, KVOL_W0_AUTH_SSTRING))
            fprintf(stream, "kvo%d-auth-encrypt = \"%.*s\";\n", i, field_len(r.authsstring),
                    r.authsstring);
    }

    fputs("\n#\n# Initiator mode configuration\n#\n", stream);
    if (global(0, KVOL_W0_PATHTOV)) fprintf(stream, "pathtov = %d;\n", r0.pathtov);
    if (global(1, KVOL_W1_BINDING))
        fprintf(stream, "persistent-binding = \"%s\";\n", bool_text(r0.binding));
    for (int i = 0; i < max; ++i) {
        const auto& r = ioc_config_data[i];
        if (per_instance(r, 0, KVOL_W0_PATHTOV))
            fprintf(stream, "kvo%d-pathtov = %d;\n", i, r.pathtov);
        if (per_instance(r, 1, KVOL_W1_BINDING))
            fprintf(stream, "kvo%d-persistent-binding = \"%s\";\n", i, bool_text(r.binding));
    }

    fputs("\n#\n# QoS, rate limiting configuration\n#\n", stream);
    if (global(0, KVOL_W0_QOS)) fprintf(stream, "qos = \"%s\";\n", bool_text(r0.qos));
    if (global(0, KVOL_W0_RATELIM)) fprintf(stream, "ratelim = \"%s\";\n", bool_text(r0.ratelim));
    if (global(0, KVOL_W0_DEFSPEED))
        fprintf(stream, "ratelim-defspeed = %d;\n", static_cast<int>(r0.defspeed));
    for (int i = 0; i < max; ++i) {
        const auto& r = ioc_config_data[i];
        if (per_instance(r, 0, KVOL_W0_QOS))
            fprintf(stream, "kvo%d-qos = \"%s\";\n", i, bool_text(r.qos));
        if (per_instance(r, 0, KVOL_W0_RATELIM))
            fprintf(stream, "kvo%d-ratelim = \"%s\";\n", i, bool_text(r.ratelim));
        if (per_instance(r, 0, KVOL_W0_DEFSPEED))
            fprintf(stream, "kvo%d-ratelim-defspeed = %d;\n", i, static_cast<int>(r.defspeed));
    }

    fputs("\n#\n# IOC intr configuration\n#\n", stream);
    if (global(1, KVOL_W1_COALESCE))
        fprintf(stream, "coalesce = \"%s\";\n", onoff_text(r0.coalesce));
    if (global(1, KVOL_W1_DELAY)) fprintf(stream, "delay = %d;\n", r0.delay);
    if (global(1, KVOL_W1_LATENCY)) fprintf(stream, "latency = %d;\n", r0.latency);
    for (int i = 0; i < max; ++i) {
        const auto& r = ioc_config_data[i];
        if (per_instance(r, 1, KVOL_W1_COALESCE))
            fprintf(stream, "kvo%d-coalesce = \"%s\";\n", i, onoff_text(r.coalesce));
        if (per_instance(r, 1, KVOL_W1_DELAY)) fprintf(stream, "kvo%d-delay = %d;\n", i, r.delay);
        if (per_instance(r, 1, KVOL_W1_LATENCY))
            fprintf(stream, "kvo%d-latency = %d;\n", i, r.latency);
    }
}

void kvol_vport_traverse(FILE* stream, int idx) {
    if (!valid_index(idx, KVOL_CFG_MAX_IOC)) return;
    kvol_get_mutex_lock(&vportmutex);
    int k = 0;
    for (const kvol_vf_config_t* v = ioc_config_data[idx].vport; v; v = v->next, ++k)
        fprintf(stream, "kvo%d-vport-%d = \"%.*s,%.*s,%.*s,%.*s,%d\";\n", idx, k,
                field_len(v->pwwn), v->pwwn, field_len(v->nwwn), v->nwwn,
                field_len(v->name.symname), v->name.symname, field_len(v->role), v->role,
                v->vf_id);
    kvol_release_mutex_lock(&vportmutex);
}

void kvol_config_save_trsdata(FILE* stream, int idx) {
    if (!valid_index(idx, KVOL_CFG_MAX_IOC)) return;
    const kvol_ioc_config_t& r = ioc_config_data[idx];
    int count = std::min<int>(r.trs_count, KVOL_CFG_MAX_TRS);
    fprintf(stream, "kvo%d-trs-cfg = \"%d;", idx, count);
    for (int j = 0; j < count; ++j) {
        char l[32], rw[32];
        kvol_get_wwn(l, sizeof l, r.trs_list[j].lpwwn);
        kvol_get_wwn(rw, sizeof rw, r.trs_list[j].rpwwn);
        fprintf(stream, "%s,%s;", l, rw);
    }
    fputs("\";\n", stream);
}
