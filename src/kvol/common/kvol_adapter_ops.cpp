// Operations on a whole adapter: identity refresh, naming, enable/disable, personality change
// and firmware reload. Adapter-wide requests go to the adapter's control function, the first
// IOC of port 0; enable and disable act on every IOC of the adapter.
#include <cstring>
#include <vector>

#include "kvol.h"
#include "kvol_config.h"
#include "kvol_ioc_priv.h"

namespace {

// The adapter's IOCs by port number, storage functions before Ethernet ones within a port;
// the first is the control function.
std::vector<kvol_t*> adapter_iocs(kvol_adapter_t* ad) {
    std::vector<kvol_t*> out;
    for (int p = 0; p < ad->port_count; p++) {
        kvol_port_t* port = kvol_adapter_get_port(ad, p);
        for (kvol_t* h = kvol_port_next_ioc(port, nullptr); h != nullptr;
             h = kvol_port_next_ioc(port, h))
            out.push_back(h);
    }
    return out;
}

}  // namespace

// Re-reads the adapter's name from one of its IOCs. A reply naming another serial number is
// garbled and changes nothing: the serial number keys the adapter's record in the
// configuration file.
kvo_status_t kvol_adapter_update_ioc(kvol_adapter_t* ad, kvol_t* h) {
    if (ad == nullptr || h == nullptr) return KVO_STATUS_EINVAL;
    kvo_ioc_info_t info{};
    kvo_status_t rc = kvol_ioc_get_info(h, &info);
    if (rc != KVO_STATUS_OK) return rc;
    char serial[sizeof(ad->serial_num)];
    kvol_copy_str(serial, info.serialnum, sizeof(info.serialnum));
    if (memcmp(serial, ad->serial_num, sizeof(serial)) != 0) return KVO_STATUS_FAILED;
    kvol_copy_str(ad->name, info.name, sizeof(info.name));
    kvol_copy_str(h->name, info.name, sizeof(info.name));
    return KVO_STATUS_OK;
}

// True when another adapter of the scan carries this name in the configuration file (under a
// serial number other than this adapter's).
bool kvol_adapter_name_in_use(const kvol_adapter_t* ad, const char* name) {
    if (ad == nullptr || name == nullptr) return false;
    char serial[sizeof(ad->serial_num)];
    kvol_copy_str(serial, ad->serial_num, sizeof(ad->serial_num));
    const int n = kvol_adapter_get_count();
    for (int i = 1; i <= n; i++)
        if (kvol_config_get_ad_name_exists(i, name, serial)) return true;
    return false;
}

// Names the adapter in the driver, then persists the name ("" clears it). A driver refusal
// changes nothing; when the configuration file cannot be loaded the driver keeps the new name
// and the load's status is returned. The name kept is the one sent (cut to the record's field):
// the record's copy after the request is the driver's, unterminated if it likes.
kvo_status_t kvol_adapter_set_name(kvol_adapter_t* ad, const char* name) {
    if (ad == nullptr) return KVO_STATUS_NO_ADAPTER;
    if (name == nullptr) name = "";
    kvol_t* h = kvol_adapter_get_first_ioc(ad);
    if (h == nullptr) return KVO_STATUS_FAILED;

    kvo_name_req_t req{};
    kvol_copy_str(req.name, name, strlen(name));
    char sent[sizeof(req.name)];
    memcpy(sent, req.name, sizeof(sent));
    kvo_status_t rc = kvol_request<KVO_IOCMD_ADAPTER_SET_NAME>(h, req);
    if (rc != KVO_STATUS_OK) return rc;
    kvol_copy_str(ad->name, sent);
    for (kvol_t* ioc : adapter_iocs(ad)) kvol_copy_str(ioc->name, sent);

    const char* path = kvol_get_cfg_path();
    rc = kvol_config_load(path);
    if (rc != KVO_STATUS_OK) return rc;
    kvol_config_ad_name(ad->id, sent);  // adds the adapter's record when it is missing
    kvol_config_sync(path);
    return KVO_STATUS_OK;
}

// An adapter counts as disabled only when every one of its IOCs reports the disabled state, so
// a partly disabled adapter can be disabled again to finish the job.
kvo_status_t kvol_adapter_is_disabled(kvol_adapter_t* ad, bool* disabled) {
    if (ad == nullptr || disabled == nullptr) return KVO_STATUS_EINVAL;
    std::vector<kvol_t*> iocs = adapter_iocs(ad);
    if (iocs.empty()) return KVO_STATUS_FAILED;
    bool all = true;
    for (kvol_t* h : iocs) {
        kvo_ioc_attr_t attr{};
        kvo_status_t rc = kvol_ioc_get_attr(h, &attr);
        if (rc != KVO_STATUS_OK) return rc;
        if (attr.state != KVO_IOC_DISABLED) all = false;
    }
    *disabled = all;
    return KVO_STATUS_OK;
}

// Enables every IOC of the adapter in port order, so the control function (first) comes up
// before the others. IOCs that were already enabled are no failure. Returns the first real
// failure (the IOCs before it stay enabled), else KVO_STATUS_IOC_ENABLED when nothing had to
// change, else KVO_STATUS_OK.
kvo_status_t kvol_adapter_enable(kvol_adapter_t* ad) {
    if (ad == nullptr) return KVO_STATUS_EINVAL;
    std::vector<kvol_t*> iocs = adapter_iocs(ad);
    if (iocs.empty()) return KVO_STATUS_FAILED;
    bool changed = false;
    for (kvol_t* h : iocs) {
        kvo_status_t rc = kvol_ioc_enable(h);
        if (rc == KVO_STATUS_IOC_ENABLED) continue;
        if (rc != KVO_STATUS_OK) return rc;
        changed = true;
    }
    return changed ? KVO_STATUS_OK : KVO_STATUS_IOC_ENABLED;
}

// Disables every IOC of the adapter in reverse port order, the control function last, so it
// can still answer while the others go down. IOCs already disabled are skipped silently.
// Returns the first real failure (the IOCs after it in that order stay enabled) or
// KVO_STATUS_OK.
kvo_status_t kvol_adapter_disable(kvol_adapter_t* ad) {
    if (ad == nullptr) return KVO_STATUS_EINVAL;
    std::vector<kvol_t*> iocs = adapter_iocs(ad);
    if (iocs.empty()) return KVO_STATUS_FAILED;
    for (auto it = iocs.rbegin(); it != iocs.rend(); ++it) {
        kvo_status_t rc = kvol_ioc_disable(*it);
        if (rc != KVO_STATUS_OK && rc != KVO_STATUS_IOC_DISABLED) return rc;
    }
    return KVO_STATUS_OK;
}

// Changes the adapter's personality. Once the driver accepts, the settings persisted for the
// adapter no longer apply: its ports' records are dropped from last to first, then the
// adapter's record, each in a transaction of its own. A port that cannot be cleaned (no IOC,
// file locked) keeps its record; the mode change itself has succeeded.
kvo_status_t kvol_adapter_cfg_mode(kvol_adapter_t* ad, const kvo_adapter_cfg_mode_t* cfg,
                                   bool force) {
    if (ad == nullptr || cfg == nullptr) return KVO_STATUS_EINVAL;
    kvol_t* h = kvol_adapter_get_first_ioc(ad);
    if (h == nullptr) return KVO_STATUS_FAILED;

    kvo_adapter_cfg_mode_req_t req{};
    req.force = force ? 1 : 0;
    req.cfg = *cfg;
    kvo_status_t rc = kvol_request<KVO_IOCMD_ADAPTER_CFG_MODE>(h, req);
    if (rc != KVO_STATUS_OK) return rc;

    const char* path = kvol_get_cfg_path();
    for (int p = ad->port_count - 1; p >= 0; p--) {
        kvol_port_t* port = kvol_adapter_get_port(ad, p);
        if (port == nullptr) continue;
        if (kvol_config_load(path) != KVO_STATUS_OK) continue;
        kvol_conf_port_cleanup(port);
        kvol_config_sync(path);
    }
    if (kvol_config_load(path) == KVO_STATUS_OK) {
        kvol_conf_ad_cleanup(ad);
        kvol_config_sync(path);
    }
    return KVO_STATUS_OK;
}

// Restarts the adapter's firmware through its control function.
kvo_status_t kvol_adapter_reload_fw(kvol_adapter_t* ad) {
    if (ad == nullptr) return KVO_STATUS_EINVAL;
    kvol_t* h = kvol_adapter_get_first_ioc(ad);
    if (h == nullptr) return KVO_STATUS_FAILED;
    return kvol_request_gen<KVO_IOCMD_ADAPTER_RELOAD_FW>(h);
}
