// Changes to the configuration tables: record creation, setters, vports, the target reset
// list, clean-up, queries, and the transactions that discovery runs.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kvol_config.h"
#include "kvol_ioc_priv.h"

namespace {

kvol_ioc_config_t* record_of(const kvol_t* h) {
    if (!h) return nullptr;
    int i = kvol_config_ioc_lookup(h->pwwn);
    return i < 0 ? nullptr : &ioc_config_data[i];
}

// Stores one setting: a differing value turns the global line into per-instance lines, then
// the presence bit says whether the value is written (a cleared bit means driver default).
template <typename T, typename V>
void store(kvol_ioc_config_t* r, T& field, V value, int word, uint32_t mask, bool present) {
    const T v = static_cast<T>(value);
    if ((config_all[word] & mask) && field != v) config_all[word] &= ~mask;
    if (present)
        r->flags[word] |= mask;
    else
        r->flags[word] &= ~mask;
    field = v;
}

void set_bit(uint32_t* flags, int word, uint32_t mask, bool on) {
    if (on)
        flags[word] |= mask;
    else
        flags[word] &= ~mask;
}

// The serial of an adapter of the scanned tree, terminated.
bool adapter_serial(int idx, char (&serial)[13]) {
    const kvol_adapter_t* ad = kvol_adapter_get_by_idx(idx);
    if (!ad) return false;
    size_t len = strnlen(ad->serial_num, sizeof ad->serial_num);
    memcpy(serial, ad->serial_num, len);
    serial[len] = '\0';
    return true;
}

}  // namespace

// ---- Record creation --------------------------------------------------------------------------------

int kvol_config_ad_add(const char* serial) {
    if (!serial) return -1;
    for (int i = 0; i < KVOL_CFG_MAX_AD; ++i) {
        kvol_ad_config_t& a = ad_config_data[i];
        if (a.flags[0] & KVOL_AD_INUSE) continue;
        a.flags[0] |= KVOL_AD_INUSE;
        size_t len = strnlen(serial, sizeof a.id);
        memset(a.id, 0, sizeof a.id);
        memcpy(a.id, serial, len);
        return i;
    }
    return -1;
}

void kvol_config_ioc_pwwn(int inst, wwn_t wwn) {
    if (inst < 0 || inst >= KVOL_CFG_MAX_IOC) return;
    kvol_ioc_config_t& r = ioc_config_data[inst];
    r.flags[0] |= KVOL_W0_PWWN;
    kvol_get_wwn(r.pwwn, sizeof r.pwwn, wwn);
}

void kvol_config_ethioc_mac(int inst, mac_t mac) {
    if (inst < 0 || inst >= KVOL_CFG_MAX_IOC) return;
    kvol_ioc_config_t& r = ioc_config_data[inst];
    r.flags[0] |= KVOL_W0_MAC;
    kvol_get_mac(r.mac, sizeof r.mac, mac);
}

int kvol_config_ioc_add(wwn_t wwn) {
    for (int i = 0; i < KVOL_CFG_MAX_IOC; ++i) {
        if (ioc_config_data[i].flags[0] & KVOL_W0_PWWN) continue;
        kvol_config_ioc_pwwn(i, wwn);
        return i;
    }
    return -1;
}

int kvol_config_ethioc_add(mac_t mac) {
    for (int i = 0; i < KVOL_CFG_MAX_IOC; ++i) {
        if (ioc_config_data[i].flags[0] & KVOL_W0_MAC) continue;
        kvol_config_ethioc_mac(i, mac);
        return i;
    }
    return -1;
}

// ---- Per-setting setters ----------------------------------------------------------------------------------

void kvol_config_speed(const kvol_t* h, kvo_port_speed_t speed) {
    kvol_ioc_config_t* r = record_of(h);
    if (!r) return;
    kvo_port_speed_t v = speed == KVO_PORT_SPEED_AUTO ? KVO_PORT_SPEED_UNKNOWN : speed;
    store(r, r->speed, v, 0, KVOL_W0_SPEED, v != KVO_PORT_SPEED_UNKNOWN);
}

void kvol_config_topology(const kvol_t* h, kvo_port_topology_t topology) {
    if (kvol_ioc_config_t* r = record_of(h))
        store(r, r->topology, topology, 0, KVOL_W0_TOPOLOGY, topology != KVO_PORT_TOPOLOGY_NONE);
}

void kvol_config_alpa(const kvol_t* h, uint8_t alpa, kvo_boolean_t mode) {
    // The hard ALPA has no global line, so there is nothing to split.
    if (kvol_ioc_config_t* r = record_of(h)) {
        r->alpa = mode ? alpa : 0;
        set_bit(r->flags, 0, KVOL_W0_ALPA, mode != 0);
    }
}

void kvol_config_maxfrsz(const kvol_t* h, uint16_t maxfrsz) {
    if (kvol_ioc_config_t* r = record_of(h))
        store(r, r->maxfrsz, maxfrsz, 0, KVOL_W0_MAXFRSZ, maxfrsz != 2112);
}

void kvol_config_enable(const kvol_t* h, kvo_boolean_t enable) {
    if (kvol_ioc_config_t* r = record_of(h))
        store(r, r->enable, enable, 0, KVOL_W0_ENABLE, !enable);
}

void kvol_config_ipfc_enable(const kvol_t* h, kvo_boolean_t enable) {
    if (kvol_ioc_config_t* r = record_of(h))
        store(r, r->ipfc_enable, enable, 0, KVOL_W0_IPFC, !enable);
}

void kvol_config_log_level(const kvol_t* h, int level) {
    if (kvol_ioc_config_t* r = record_of(h)) store(r, r->log, level, 0, KVOL_W0_LOG, level != 0);
}

void kvol_config_qos(const kvol_t* h, kvo_boolean_t qos) {
    if (kvol_ioc_config_t* r = record_of(h)) store(r, r->qos, qos, 0, KVOL_W0_QOS, qos != 0);
}

void kvol_config_ratelim(const kvol_t* h, kvo_boolean_t ratelim) {
    if (kvol_ioc_config_t* r = record_of(h))
        store(r, r->ratelim, ratelim, 0, KVOL_W0_RATELIM, ratelim != 0);
}

void kvol_config_defspeed(const kvol_t* h, kvo_port_speed_t speed) {
    kvol_ioc_config_t* r = record_of(h);
    if (!r) return;
    kvo_port_speed_t v = speed == KVO_PORT_SPEED_AUTO ? KVO_PORT_SPEED_UNKNOWN : speed;
    // One gigabit is the driver's default rate, so it is the value left out of the file.
    store(r, r->defspeed, v, 0, KVOL_W0_DEFSPEED, speed != KVO_PORT_SPEED_1GBPS);
}

void kvol_config_fcpim(const kvol_t* h, uint16_t pathtov) {
    if (kvol_ioc_config_t* r = record_of(h))
        store(r, r->pathtov, pathtov, 0, KVOL_W0_PATHTOV, pathtov != 0);
}

void kvol_config_qdepth(const kvol_t* h, uint16_t qdepth) {
    if (kvol_ioc_config_t* r = record_of(h))
        store(r, r->qdepth, qdepth, 0, KVOL_W0_QDEPTH, qdepth != 0);
}

void kvol_config_auth_policy(const kvol_t* h, kvo_boolean_t policy) {
    if (kvol_ioc_config_t* r = record_of(h))
        store(r, r->authpolicy, policy, 0, KVOL_W0_AUTH_POLICY, policy != 0);
}

void kvol_config_auth_algo(const kvol_t* h, kvo_auth_algo_t algo) {
    if (kvol_ioc_config_t* r = record_of(h))
        store(r, r->authalgo, algo, 0, KVOL_W0_AUTH_ALGO, algo != KVO_AUTH_ALGO_NONE);
}

void kvol_config_auth_group(const kvol_t* h, kvo_auth_group_t group) {
    if (kvol_ioc_config_t* r = record_of(h))
        store(r, r->authgroup, group, 0, KVOL_W0_AUTH_GROUP, group != KVO_AUTH_DH_1);
}

void kvol_config_auth_secretsource(const kvol_t* h, kvo_auth_secretsource_t source) {
    if (kvol_ioc_config_t* r = record_of(h))
        store(r, r->authssource, source, 0, KVOL_W0_AUTH_SSOURCE,
              source != KVO_AUTH_SECRET_LOCAL);
}

void kvol_config_auth_secretstring(const kvol_t* h, const uint32_t* words, int size) {
    kvol_ioc_config_t* r = record_of(h);
    if (!r || (size > 0 && !words)) return;
    std::string text;
    for (int k = 0; k < size; ++k) {
        char num[16];
        snprintf(num, sizeof num, k + 1 < size ? "%d," : "%d", static_cast<int>(words[k]));
        text += num;
    }
    // A clipped secret would be a different secret: refuse one that does not fit.
    if (text.size() >= sizeof r->authsstring) return;
    if ((config_all[0] & KVOL_W0_AUTH_SSTRING) && text != r->authsstring)
        config_all[0] &= ~KVOL_W0_AUTH_SSTRING;
    set_bit(r->flags, 0, KVOL_W0_AUTH_SSTRING, !text.empty());
    kvol_copy_str(r->authsstring, text.c_str());
}

void kvol_config_iocfc_intr(const kvol_t* h, kvo_boolean_t coalesce, uint16_t delay,
                            uint16_t latency) {
    kvol_ioc_config_t* r = record_of(h);
    if (!r) return;
    const bool on = coalesce != 0;
    store(r, r->coalesce, coalesce, 1, KVOL_W1_COALESCE, !on);
    const bool delay_default = (delay == 1125 && latency == 225) || (!on && delay == 0);
    const bool latency_default = (latency == 225 && delay == 1125) || (!on && latency == 0);
    if (on) {
        store(r, r->delay, delay, 1, KVOL_W1_DELAY, !delay_default);
        store(r, r->latency, latency, 1, KVOL_W1_LATENCY, !latency_default);
    } else {
        set_bit(r->flags, 1, KVOL_W1_DELAY, !delay_default);
        set_bit(r->flags, 1, KVOL_W1_LATENCY, !latency_default);
    }
}

void kvol_config_ioc_name(const kvol_t* h, const char* name) {
    if (!h || !name) return;
    if (kvol_is_storage_ioc(h)) {
        int i = kvol_config_ioc_lookup(h->pwwn);
        if (i < 0) return;
        kvol_copy_str(ioc_config_data[i].name, name);
        set_bit(ioc_config_data[i].flags, 0, KVOL_W0_NAME, name[0] != '\0');
    } else {
        int i = kvol_config_ethioc_lookup(h->mac);
        if (i < 0) return;
        kvol_copy_str(ioc_config_data[i].ethname, name);
        set_bit(ioc_config_data[i].flags, 0, KVOL_W0_ETHNAME, name[0] != '\0');
    }
}

void kvol_config_pbind(const kvol_t* h, kvo_boolean_t binding) {
    if (kvol_ioc_config_t* r = record_of(h))
        store(r, r->binding, binding, 1, KVOL_W1_BINDING, binding != 0);
}

void kvol_config_vf_mode(const kvol_t* h, kvo_boolean_t enable, uint16_t vf_id) {
    kvol_ioc_config_t* r = record_of(h);
    if (!r) return;
    store(r, r->vf_enable, enable, 0, KVOL_W0_VF_ENABLE, enable != 0);
    store(r, r->vf_default_id, vf_id, 0, KVOL_W0_VF_DEFAULT, vf_id != 1);
}

void kvol_config_vf_list(const kvol_t* h, uint16_t vf_id) {
    kvol_ioc_config_t* r = record_of(h);
    if (!r || vf_id >= 16) return;  // the list holds VF ids 0-15
    uint16_t list = static_cast<uint16_t>(r->vf_list ^ (1u << vf_id));
    store(r, r->vf_list, list, 0, KVOL_W0_VF_LIST, list != 0);
}

void kvol_config_trunk(const kvol_t* h, kvo_boolean_t mode, uint32_t bitmap) {
    if (kvol_ioc_config_t* r = record_of(h))
        store(r, r->trunking, bitmap, 0, KVOL_W0_TRUNK, mode != 0);
}

void kvol_config_ad_set_name(const char* serial, const char* name) {
    if (!serial || !name) return;
    int i = kvol_config_ad_lookup(serial);
    if (i < 0) i = kvol_config_ad_add(serial);
    if (i < 0) return;
    kvol_copy_str(ad_config_data[i].name, name);
    set_bit(ad_config_data[i].flags, 0, KVOL_AD_NAME, name[0] != '\0');
}

void kvol_config_ad_set_trunk(const char* serial, kvo_boolean_t mode) {
    int i = kvol_config_ad_lookup(serial);
    if (i < 0) return;
    ad_config_data[i].ad_trunk = mode;
    set_bit(ad_config_data[i].flags, 0, KVOL_AD_TRUNK, mode != 0);
}

void kvol_config_ad_name(int idx, const char* name) {
    char serial[13];
    if (adapter_serial(idx, serial)) kvol_config_ad_set_name(serial, name);
}

void kvol_config_ad_trunk(int idx, kvo_boolean_t mode) {
    char serial[13];
    if (adapter_serial(idx, serial)) kvol_config_ad_set_trunk(serial, mode);
}

// ---- Vports ----------------------------------------------------------------------------------------------

kvo_status_t kvol_config_vport_add(const kvol_t* h, uint16_t vf_id,
                                   const kvol_port_cfg_t* port_cfg) {
    if (!h || !port_cfg) return KVO_STATUS_CNFG_FAILED;
    int i = kvol_config_ioc_lookup(h->pwwn);
    if (i < 0) return KVO_STATUS_CNFG_FAILED;
    static constexpr const char* kRoles[] = {"IM", "TM", "IP"};
    std::string roles;
    for (int bit = 0; bit < 3; ++bit) {
        if (!(port_cfg->roles & (1u << bit))) continue;
        if (!roles.empty()) roles += " + ";
        roles += kRoles[bit];
    }
    char pwwn[32], nwwn[32];
    kvol_get_wwn(pwwn, sizeof pwwn, port_cfg->pwwn);
    kvol_get_wwn(nwwn, sizeof nwwn, port_cfg->nwwn);
    const kvo_lport_symname_t& sym = port_cfg->sym_name;
    char value[KVOL_CFG_LINE_MAX];
    snprintf(value, sizeof value, "%s,%s,\"%.*s\",%s,%d", pwwn, nwwn,
             static_cast<int>(strnlen(sym.symname, sizeof sym.symname)), sym.symname,
             roles.c_str(), vf_id);
    kvol_config_set_vportdata(i, value);
    return KVO_STATUS_OK;
}

kvo_status_t kvol_config_vport_del(const kvol_t* h, const kvol_port_cfg_t* port_cfg) {
    if (!h || !port_cfg) return KVO_STATUS_CNFG_FAILED;
    int i = kvol_config_ioc_lookup(h->pwwn);
    if (i < 0) return KVO_STATUS_CNFG_FAILED;
    char pwwn[32];
    kvol_get_wwn(pwwn, sizeof pwwn, port_cfg->pwwn);
    kvol_vport_delete(i, pwwn);
    return KVO_STATUS_OK;
}

kvo_status_t kvol_config_vport(const kvol_t* h, uint16_t vf_id, const kvol_port_cfg_t* port_cfg,
                               kvo_boolean_t del) {
    const char* path = kvol_get_cfg_path();
    kvo_status_t st = kvol_config_load(path);
    if (st != KVO_STATUS_OK) return st;
    if (del)
        kvol_config_vport_del(h, port_cfg);
    else
        kvol_config_vport_add(h, vf_id, port_cfg);
    return kvol_config_sync(path);
}

void kvol_vport_delete(int idx, const char* pwwn_text) {
    if (idx < 0 || idx >= KVOL_CFG_MAX_IOC || !pwwn_text) return;
    kvol_ioc_config_t& r = ioc_config_data[idx];
    kvol_get_mutex_lock(&vportmutex);
    for (kvol_vf_config_t** link = &r.vport; *link; link = &(*link)->next) {
        kvol_vf_config_t* node = *link;
        if (strncmp(node->pwwn, pwwn_text, sizeof node->pwwn) == 0) {
            *link = node->next;
            std::free(node);
            break;
        }
    }
    // Lowered also when nothing matched: the count follows the driver's deletes, not the list.
    r.vpcount--;
    kvol_release_mutex_lock(&vportmutex);
}

// ---- Target reset list -------------------------------------------------------------------------------------

kvo_status_t kvol_config_trs_update(const kvol_t* h, uint16_t /*vf_id*/, wwn_t lpwwn, wwn_t rpwwn,
                                    kvo_boolean_t trs_disable_req) {
    kvol_ioc_config_t* r = record_of(h);
    if (!r) return KVO_STATUS_CNFG_FAILED;
    int count = std::min<int>(r->trs_count, KVOL_CFG_MAX_TRS);
    int found = -1;
    for (int j = 0; j < count && found < 0; ++j)
        if (r->trs_list[j].lpwwn == lpwwn && r->trs_list[j].rpwwn == rpwwn) found = j;
    if (trs_disable_req) {
        if (found >= 0) return KVO_STATUS_OK;
        if (count >= KVOL_CFG_MAX_TRS) return KVO_STATUS_CNFG_FAILED;
        r->trs_list[count] = {lpwwn, rpwwn};
        ++count;
    } else {
        if (found < 0) return KVO_STATUS_OK;
        for (int j = found; j + 1 < count; ++j) r->trs_list[j] = r->trs_list[j + 1];
        --count;
        r->trs_list[count] = {0, 0};
    }
    r->trs_count = static_cast<uint16_t>(count);
    r->flags[1] |= KVOL_W1_TRS;
    return KVO_STATUS_OK;
}

kvo_status_t kvol_config_trs_clear(const kvol_t* h) {
    kvol_ioc_config_t* r = record_of(h);
    if (!r) return KVO_STATUS_CNFG_FAILED;
    r->flags[1] &= ~KVOL_W1_TRS;
    return KVO_STATUS_OK;
}

// ---- Clean-up on a mode change -------------------------------------------------------------------------------

kvo_status_t kvol_conf_port_cleanup(kvol_port_t* port) {
    if (!port || !kvol_port_get_first_ioc(port)) return KVO_STATUS_NO_PORT_INSTANCE;
    for (int pcifn = 256; pcifn >= 0; --pcifn) {
        const kvol_t* ioc = kvol_port_get_ioc_by_pcifn(port, pcifn);
        if (!ioc) continue;
        int i = kvol_is_storage_ioc(ioc) ? kvol_config_ioc_lookup(ioc->pwwn)
                           : kvol_config_ethioc_lookup(ioc->mac);
        if (i >= 0) kvol_config_ioc_zero(i);
    }
    return KVO_STATUS_OK;
}

kvo_status_t kvol_conf_ad_cleanup(kvol_adapter_t* adapter) {
    if (!adapter) return KVO_STATUS_FAILED;
    char serial[13];
    size_t len = strnlen(adapter->serial_num, sizeof adapter->serial_num);
    memcpy(serial, adapter->serial_num, len);
    serial[len] = '\0';
    int i = kvol_config_ad_lookup(serial);
    if (i >= 0) memset(&ad_config_data[i], 0, sizeof ad_config_data[i]);
    return KVO_STATUS_OK;
}

// ---- Queries ----------------------------------------------------------------------------------------------------

kvo_boolean_t kvol_config_ad_name_taken(const char* ad_serial, const char* name,
                                        const char* serial) {
    if (!ad_serial || !name || !name[0] || !serial) return 0;
    int i = kvol_config_ad_lookup(ad_serial);
    if (i < 0) return 0;
    const kvol_ad_config_t& a = ad_config_data[i];
    if (!(a.flags[0] & KVOL_AD_NAME) || strncmp(a.name, name, sizeof a.name) != 0) return 0;
    return strncmp(serial, ad_serial, sizeof a.id) != 0;
}

kvo_boolean_t kvol_config_get_ad_name_exists(int idx, const char* name, const char* serial) {
    char ad_serial[13];
    if (!adapter_serial(idx, ad_serial)) return 0;
    return kvol_config_ad_name_taken(ad_serial, name, serial);
}

kvo_boolean_t kvol_config_ioc_name_matches(const kvol_t* ioc, const char* name) {
    if (!ioc || !name || !name[0]) return 0;
    if (kvol_is_storage_ioc(ioc)) {
        int i = kvol_config_ioc_lookup(ioc->pwwn);
        return i >= 0 && (ioc_config_data[i].flags[0] & KVOL_W0_NAME) &&
               strncmp(ioc_config_data[i].name, name, sizeof ioc_config_data[i].name) == 0;
    }
    int i = kvol_config_ethioc_lookup(ioc->mac);
    return i >= 0 && (ioc_config_data[i].flags[0] & KVOL_W0_ETHNAME) &&
           strncmp(ioc_config_data[i].ethname, name, sizeof ioc_config_data[i].ethname) == 0;
}

kvo_boolean_t kvol_config_get_port_name_exists(int idx, const char* name, int port) {
    kvol_adapter_t* ad = kvol_adapter_get_by_idx(idx);
    if (!ad) return 0;
    kvol_port_t* p = kvol_adapter_get_port(ad, port);
    if (!p) return 0;
    const kvol_t* ioc = nullptr;
    if (p->ioc_type == KVO_IOC_TYPE_FC || p->ioc_type == KVO_IOC_TYPE_FCoE)
        ioc = kvol_port_get_first_fcioc(p);
    else if (p->ioc_type == KVO_IOC_TYPE_LL)
        ioc = kvol_port_get_first_ethioc(p);
    else  // type not recorded on the port: its FC function when it has one
        ioc = kvol_port_get_first_fcioc(p) ? kvol_port_get_first_fcioc(p)
                                           : kvol_port_get_first_ethioc(p);
    return kvol_config_ioc_name_matches(ioc, name);
}

// ---- Transactions of the discovery -------------------------------------------------------------------------------

// Both registrations write the file even when the load failed: discovery must not stop
// because the file is busy or unreadable.
void kvol_config_register_adapter(const char* serial) {
    const char* path = kvol_get_cfg_path();
    (void)kvol_config_load(path);
    if (serial && kvol_config_ad_lookup(serial) < 0) kvol_config_ad_add(serial);
    (void)kvol_config_sync(path);
}

void kvol_config_register_ioc(const kvol_t* h) {
    const char* path = kvol_get_cfg_path();
    (void)kvol_config_load(path);
    if (h) {
        if (kvol_is_storage_ioc(h)) {
            if (kvol_config_ioc_lookup(h->pwwn) < 0) kvol_config_ioc_add(h->pwwn);
        } else if (kvol_config_ethioc_lookup(h->mac) < 0) {
            kvol_config_ethioc_add(h->mac);
        }
    }
    (void)kvol_config_sync(path);
}

void kvol_config_merge_ioc(kvol_t* h) {
    if (!h) return;
    // A read under the lock, released without writing.
    if (kvol_config_load(kvol_get_cfg_path()) != KVO_STATUS_OK) return;
    const char* name = nullptr;
    if (kvol_is_storage_ioc(h)) {
        int i = kvol_config_ioc_lookup(h->pwwn);
        if (i >= 0 && (ioc_config_data[i].flags[0] & KVOL_W0_NAME)) name = ioc_config_data[i].name;
    } else {
        int i = kvol_config_ethioc_lookup(h->mac);
        if (i >= 0 && (ioc_config_data[i].flags[0] & KVOL_W0_ETHNAME))
            name = ioc_config_data[i].ethname;
    }
    if (name) kvol_copy_str(h->port_name, name);
    kvol_config_unload();
}
