// The configuration file as every qmx run treats it: any text is loaded, written back, loaded
// again and written again.
//
// Properties:
//  - nothing the file keeps is lost: every setting of the first tables that the writer writes
//    comes back from the written file with the same value (per port and global settings, the
//    adapters' names and trunk modes in their order, the vports, the target reset pairs);
//  - the written file is a fixed point: the tables read back from it write the same text, and
//    reading that text again gives the same tables, byte for byte;
//  - the tables stay within their bounds (counts, terminated strings).
//
// What the writer drops on purpose is left out: the driver's tunables, "power", qdepth and
// port-mtu; and, taken out of the tables before the round trip so that the rest is still
// checked, a global line that left no setting in record 0 and an empty trunking or VF list.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_util.h"
#include "kvol_config.h"

namespace {

using fuzz::terminated;

struct vport {
    std::string pwwn, nwwn, name, role;
    uint16_t vf_id;
    bool operator==(const vport&) const = default;
};

// A copy of everything the parser fills.
struct tables {
    std::vector<kvol_ad_config_t> ad;
    std::vector<kvol_ioc_config_t> ioc;  // vport pointers cleared: the lists are in vports
    std::vector<std::vector<vport>> vports;
    uint32_t all[4];
};

template <size_t N>
std::string text(const char (&field)[N]) {
    return std::string(field, strnlen(field, N));
}

// Fills t, reusing its storage (fresh copies of these tables on every run cost more than the
// rest of the run).
void snapshot(tables& t) {
    t.ad.assign(std::begin(ad_config_data), std::end(ad_config_data));
    t.ioc.assign(std::begin(ioc_config_data), std::end(ioc_config_data));
    t.vports.resize(t.ioc.size());
    for (size_t i = 0; i < t.ioc.size(); ++i) {
        t.vports[i].clear();
        for (const kvol_vf_config_t* v = t.ioc[i].vport; v; v = v->next)
            t.vports[i].push_back({text(v->pwwn), text(v->nwwn), text(v->name.symname),
                                   text(v->role), v->vf_id});
        t.ioc[i].vport = nullptr;
    }
    memcpy(t.all, config_all, sizeof t.all);
}

void check_bounds(const tables& t) {
    for (const kvol_ad_config_t& a : t.ad) FUZZ_CHECK(terminated(a.name), "adapter name unterminated");
    for (size_t i = 0; i < t.ioc.size(); ++i) {
        const kvol_ioc_config_t& r = t.ioc[i];
        FUZZ_CHECK(terminated(r.pwwn) && terminated(r.name) && terminated(r.mac) &&
                       terminated(r.ethname) && terminated(r.authsstring),
                   "record %zu: a text field is unterminated", i);
        FUZZ_CHECK(r.trs_count <= KVOL_CFG_MAX_TRS, "record %zu: %u target reset pairs", i,
                   r.trs_count);
        FUZZ_CHECK(r.vpcount == static_cast<int>(t.vports[i].size()),
                   "record %zu: vpcount %d for %zu vports", i, r.vpcount, t.vports[i].size());
    }
}

// The settings the writer keeps, per port record.
struct setting {
    const char* key;
    int word;
    uint32_t mask;
    size_t off, size;
};
#define SETTING(key, word, mask, member)                                          \
    setting {                                                                     \
        key, word, mask, offsetof(kvol_ioc_config_t, member),                     \
            sizeof(kvol_ioc_config_t::member)                                     \
    }
const setting kKept[] = {
    SETTING("port-wwn", 0, KVOL_W0_PWWN, pwwn),
    SETTING("port-mac", 0, KVOL_W0_MAC, mac),
    SETTING("port-name", 0, KVOL_W0_NAME, name),
    SETTING("tqe port-name", 0, KVOL_W0_ETHNAME, ethname),
    SETTING("port-speed", 0, KVOL_W0_SPEED, speed),
    SETTING("port-topology", 0, KVOL_W0_TOPOLOGY, topology),
    SETTING("port-hardalpa", 0, KVOL_W0_ALPA, alpa),
    SETTING("port-maxfrsize", 0, KVOL_W0_MAXFRSZ, maxfrsz),
    SETTING("port-trunk", 0, KVOL_W0_TRUNK, trunking),
    SETTING("port-enable", 0, KVOL_W0_ENABLE, enable),
    SETTING("ipfc-enable", 0, KVOL_W0_IPFC, ipfc_enable),
    SETTING("log-level", 0, KVOL_W0_LOG, log),
    SETTING("vf-enable", 0, KVOL_W0_VF_ENABLE, vf_enable),
    SETTING("vf-default", 0, KVOL_W0_VF_DEFAULT, vf_default_id),
    SETTING("vf-list", 0, KVOL_W0_VF_LIST, vf_list),
    SETTING("auth-policy", 0, KVOL_W0_AUTH_POLICY, authpolicy),
    SETTING("auth-algo", 0, KVOL_W0_AUTH_ALGO, authalgo),
    SETTING("auth-group", 0, KVOL_W0_AUTH_GROUP, authgroup),
    SETTING("auth-secretsource", 0, KVOL_W0_AUTH_SSOURCE, authssource),
    SETTING("auth-encrypt", 0, KVOL_W0_AUTH_SSTRING, authsstring),
    SETTING("pathtov", 0, KVOL_W0_PATHTOV, pathtov),
    SETTING("qos", 0, KVOL_W0_QOS, qos),
    SETTING("ratelim", 0, KVOL_W0_RATELIM, ratelim),
    SETTING("ratelim-defspeed", 0, KVOL_W0_DEFSPEED, defspeed),
    SETTING("coalesce", 1, KVOL_W1_COALESCE, coalesce),
    SETTING("delay", 1, KVOL_W1_DELAY, delay),
    SETTING("latency", 1, KVOL_W1_LATENCY, latency),
    SETTING("persistent-binding", 1, KVOL_W1_BINDING, binding),
};
#undef SETTING

bool has(const kvol_ioc_config_t& r, const setting& s) { return (r.flags[s.word] & s.mask) != 0; }
bool same_value(const kvol_ioc_config_t& a, const kvol_ioc_config_t& b, const setting& s) {
    return memcmp(reinterpret_cast<const char*>(&a) + s.off,
                  reinterpret_cast<const char*>(&b) + s.off, s.size) == 0;
}

// Takes out of the tables what the writer cannot write back faithfully, on purpose:
//  - a global line that left no setting in record 0 (read before any port line, or with a
//    value no record took) is written with whatever record 0 holds, which need not read back;
//  - an empty list is written as "key = " with no line end, which joins the next line to it.
void drop_unwritable() {
    for (const setting& s : kKept)
        if ((config_all[s.word] & s.mask) && !has(ioc_config_data[0], s)) config_all[s.word] &= ~s.mask;
    const struct {
        uint32_t mask;
        bool (*empty)(const kvol_ioc_config_t&);
    } lists[] = {
        {KVOL_W0_TRUNK, [](const kvol_ioc_config_t& r) { return r.trunking == 0; }},
        {KVOL_W0_VF_LIST, [](const kvol_ioc_config_t& r) { return r.vf_list == 0; }},
    };
    for (const auto& l : lists) {
        if ((config_all[0] & l.mask) && l.empty(ioc_config_data[0])) {
            config_all[0] &= ~l.mask;
            for (kvol_ioc_config_t& r : ioc_config_data) r.flags[0] &= ~l.mask;
        }
        if (config_all[0] & l.mask) continue;
        for (kvol_ioc_config_t& r : ioc_config_data)
            if (l.empty(r)) r.flags[0] &= ~l.mask;
    }
}

std::string describe(const std::vector<vport>& list) {
    std::string s;
    for (const vport& v : list)
        s += "[" + v.pwwn + "|" + v.nwwn + "|" + v.name + "|" + v.role + "|" +
             std::to_string(v.vf_id) + "]";
    return s;
}

struct ad_entry {
    std::string id, value;
    bool operator==(const ad_entry&) const = default;
};

// The adapter names and trunk modes in record order: what the adapter section writes.
std::vector<ad_entry> adapter_lines(const tables& t, uint32_t bit) {
    std::vector<ad_entry> out;
    for (const kvol_ad_config_t& a : t.ad) {
        if (!(a.flags[0] & bit)) continue;
        out.push_back({std::string(a.id, strnlen(a.id, sizeof a.id)),
                       bit == KVOL_AD_NAME ? text(a.name) : std::to_string(a.ad_trunk)});
    }
    return out;
}

void check_kept(const tables& first, const tables& back) {
    FUZZ_CHECK(adapter_lines(first, KVOL_AD_NAME) == adapter_lines(back, KVOL_AD_NAME),
               "adapter names changed");
    FUZZ_CHECK(adapter_lines(first, KVOL_AD_TRUNK) == adapter_lines(back, KVOL_AD_TRUNK),
               "adapter trunk modes changed");

    // A global line reaches the records that have a port WWN when it is read: in a written
    // file, every port-wwn line comes first, so records 0 to count-1.
    int count = 0;
    for (const kvol_ioc_config_t& r : back.ioc) count += (r.flags[0] & KVOL_W0_PWWN) ? 1 : 0;
    const kvol_ioc_config_t& r0 = first.ioc[0];
    for (const setting& s : kKept) {
        const bool global = (first.all[s.word] & s.mask) != 0;
        if (global) {
            FUZZ_CHECK(back.all[s.word] & s.mask, "global %s lost", s.key);
            for (int i = 0; i < count; ++i)
                FUZZ_CHECK(has(back.ioc[i], s) && same_value(r0, back.ioc[i], s),
                           "global %s lost or changed on record %d", s.key, i);
        }
        for (size_t i = 0; i < first.ioc.size(); ++i) {
            const kvol_ioc_config_t& a = first.ioc[i];
            if (!has(a, s)) continue;
            if (global) {
                FUZZ_CHECK(same_value(a, r0, s), "record %zu: %s differs from the global line",
                           i, s.key);
                continue;
            }
            FUZZ_CHECK(has(back.ioc[i], s), "record %zu: %s lost", i, s.key);
            FUZZ_CHECK(same_value(a, back.ioc[i], s), "record %zu: %s changed", i, s.key);
        }
    }
    for (size_t i = 0; i < first.ioc.size(); ++i) {
        const kvol_ioc_config_t& a = first.ioc[i];
        const kvol_ioc_config_t& b = back.ioc[i];
        if (a.flags[0] & KVOL_W0_VPORT)
            FUZZ_CHECK(first.vports[i] == back.vports[i], "record %zu: vports %s became %s", i,
                       describe(first.vports[i]).c_str(), describe(back.vports[i]).c_str());
        if (a.flags[1] & KVOL_W1_TRS) {
            FUZZ_CHECK((b.flags[1] & KVOL_W1_TRS) && a.trs_count == b.trs_count &&
                           memcmp(a.trs_list, b.trs_list, sizeof a.trs_list) == 0,
                       "record %zu: target reset list changed", i);
        }
    }
}

void check_same(const tables& a, const tables& b) {
    FUZZ_CHECK(memcmp(a.all, b.all, sizeof a.all) == 0, "global flags differ");
    for (size_t i = 0; i < a.ad.size(); ++i)
        FUZZ_CHECK(memcmp(&a.ad[i], &b.ad[i], sizeof a.ad[i]) == 0, "adapter record %zu differs", i);
    for (size_t i = 0; i < a.ioc.size(); ++i) {
        FUZZ_CHECK(memcmp(&a.ioc[i], &b.ioc[i], sizeof a.ioc[i]) == 0, "port record %zu differs", i);
        FUZZ_CHECK(a.vports[i] == b.vports[i], "vports of record %zu differ", i);
    }
}

// Loads the file as a new qmx process would (no global flag left from before).
void load(const std::string& path) {
    memset(config_all, 0, sizeof config_all);
    FUZZ_CHECK(kvol_config_load(path.c_str()) == KVO_STATUS_OK, "load failed");
}

std::string sync(const std::string& path) {
    FUZZ_CHECK(kvol_config_sync(path.c_str()) == KVO_STATUS_OK, "write failed");
    return fuzz::read_file(path);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string path = fuzz::scratch_dir() + "/kvo.conf";
    fuzz::write_file(path, data, size);

    static tables first, back, third;
    load(path);
    drop_unwritable();
    snapshot(first);
    check_bounds(first);
    const std::string written = sync(path);

    load(path);
    snapshot(back);
    check_bounds(back);
    check_kept(first, back);
    const std::string again = sync(path);
    FUZZ_CHECK(again == written, "the written file changes when written again:\n%s\n----\n%s",
               written.c_str(), again.c_str());

    load(path);
    snapshot(third);
    kvol_config_unload();
    check_same(back, third);
    return 0;
}
