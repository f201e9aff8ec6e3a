// Discovery of the PCI functions of both drivers through sysfs: the PCI map of each driver's
// directory, one IOC information request per function, and the global IOC list.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kvol_linux.h"

namespace {

class regex_owner {
public:
    regex_owner() { ok_ = kvol_pci_regex_compile(&re_) == 0; }
    ~regex_owner() {
        if (ok_) regfree(&re_);
    }
    regex_owner(const regex_owner&) = delete;
    regex_owner& operator=(const regex_owner&) = delete;
    bool ok() const { return ok_; }
    const regex_t* get() const { return &re_; }

private:
    regex_t re_{};
    bool ok_ = false;
};

// ---- Discovery state ---------------------------------------------------------------------------

struct scan_state {
    kvol_t* ioc_list = nullptr;
    int total = 0;
    int map_count = 0;
    int kvo_inst_cnt = 0;  // storage functions found
    std::array<kvol_heap<kvol_pci_host_map>, KVOL_MAX_PCI_FN> map;
    // Descriptors a scan opens. The records only borrow them; the scan closes them when the
    // list goes (kvol_ioc_handles_close closes the Ethernet one early).
    int ipfc_fd = -1;
    int eth_fd = -1;
};
scan_state g_scan;

constexpr const char* KVO_PCI_DIR = "/sys/bus/pci/drivers/kvo";
constexpr const char* TQE_PCI_DIR = "/sys/bus/pci/drivers/tqe";

void close_ipfc() {
    if (g_scan.ipfc_fd < 0) return;
    for (kvol_t* h = g_scan.ioc_list; h != nullptr; h = h->next)
        if (h->ipfc_fd == g_scan.ipfc_fd) h->ipfc_fd = -1;
    close(g_scan.ipfc_fd);
    g_scan.ipfc_fd = -1;
}

// Records the PCI functions of one driver in the map.
kvo_status_t pci_scan(kvo_ioc_type_e kind) {
    regex_owner re;
    if (!re.ok()) return KVO_STATUS_FAILED;
    const bool storage = kind != KVO_IOC_TYPE_LL;
    kvol_dir dir(opendir(storage ? KVO_PCI_DIR : TQE_PCI_DIR));
    if (!dir) return KVO_STATUS_NO_DRIVER;

    while (g_scan.map_count < KVOL_MAX_PCI_FN) {
        const dirent* e = readdir(dir.get());
        if (e == nullptr) break;
        if (!kvol_pci_name_matches(re.get(), e->d_name)) continue;
        kvol_heap<kvol_pci_host_map> ent(kvol_calloc<kvol_pci_host_map>());
        if (!ent) return KVO_STATUS_ENOMEM;
        kvol_copy_str(ent->pci_name, e->d_name, sizeof(e->d_name));
        size_t len = strlen(ent->pci_name);
        if (len > 0 && ent->pci_name[len - 1] == '\n') ent->pci_name[len - 1] = '\0';

        if (!storage) {
            // Ethernet instances count from 0 after the storage functions.
            ent->instance = g_scan.map_count - g_scan.kvo_inst_cnt;
            g_scan.map[g_scan.map_count++] = std::move(ent);
            continue;
        }
        ent->instance = g_scan.map_count;
        std::string fn_dir = std::string(KVO_PCI_DIR) + "/" + ent->pci_name;
        kvol_dir fn(opendir(fn_dir.c_str()));
        if (!fn) return KVO_STATUS_FAILED;
        int host = -1;
        while (const dirent* he = readdir(fn.get())) {
            host = kvol_sysfs_host_num(he->d_name);
            if (host >= 0) break;
        }
        // A function the SCSI midlayer has no host for is not usable: its slot is reused.
        if (host < 0) continue;
        ent->host_num = host;
        g_scan.map[g_scan.map_count++] = std::move(ent);
        g_scan.kvo_inst_cnt++;
    }
    return KVO_STATUS_OK;
}

bool is_storage_type(uint32_t type) { return type == KVO_IOC_TYPE_FC || type == KVO_IOC_TYPE_FCoE; }

// Scans one driver: PCI functions, then one IOC information request per function. Returns
// the number of IOCs appended, or -1 (the reason is left in the last-status cell).
int ioc_scan_cna(kvo_ioc_type_e kind) {
    // debugfs carries the driver and firmware traces; its mount may well exist already.
    if (system("mount -t debugfs debugfs /sys/kernel/debug/ 2>/dev/null") != 0) {
    }
    kvo_status_t st = pci_scan(kind);
    if (st != KVO_STATUS_OK) {
        kvol_set_last_error(st);
        return -1;
    }
    const bool storage = kind != KVO_IOC_TYPE_LL;
    int shared_fd = -1;
    int ipfc_fd = -1;
    if (!storage) {
        shared_fd = open("/dev/tqe", O_RDWR);
        if (shared_fd < 0) {
            kvol_set_last_error(KVO_STATUS_NO_DRIVER);
            return -1;
        }
        if (g_scan.eth_fd >= 0) close(g_scan.eth_fd);
        g_scan.eth_fd = shared_fd;
    } else {
        close_ipfc();
        ipfc_fd = open("/dev/kvoipfc", O_RDWR);  // IP over FC is optional
        g_scan.ipfc_fd = ipfc_fd;
    }

    int added = 0;
    const int first = storage ? 0 : g_scan.kvo_inst_cnt;
    for (int i = first; i < g_scan.map_count; ++i) {
        const kvol_pci_host_map& ent = *g_scan.map[i];
        char fc_path[sizeof(kvol_t::devpath)];
        if (storage)
            kvol_fc_devpath(static_cast<uint32_t>(ent.host_num), kvol_node_exists, fc_path,
                            sizeof(fc_path));
        else
            snprintf(fc_path, sizeof(fc_path), "/dev/kvo");

        kvol_t tmp{};
        tmp.fd = shared_fd;
        tmp.sg_fd = -1;
        tmp.ipfc_fd = ipfc_fd;
        tmp.host = static_cast<uint32_t>(ent.host_num);
        tmp.instance = ent.instance;
        tmp.ioc_type = kind;
        snprintf(tmp.devpath, sizeof(tmp.devpath), "%s", storage ? fc_path : "/dev/tqe");
        kvo_ioc_info_t info{};
        st = kvol_ioc_get_info(&tmp, &info);
        // A function of one driver that calls itself the other's kind is a garbled reply: taken
        // at its word it would be sent to the other driver's node and registered under its name.
        if (st == KVO_STATUS_OK && is_storage_type(info.ioc_type) != storage) st = KVO_STATUS_FAILED;
        if (st != KVO_STATUS_OK) {
            kvol_set_last_error(st);
            close_ipfc();
            return -1;
        }

        kvol_t* rec = kvol_calloc<kvol_t>();
        if (rec == nullptr) {
            kvol_set_last_error(KVO_STATUS_ENOMEM);
            return -1;
        }
        rec->fd = shared_fd;
        rec->sg_fd = -1;
        rec->ipfc_fd = ipfc_fd;
        rec->instance = info.kvod_num;
        rec->host = info.host;
        rec->id = i;
        kvol_ioc_fill_from_info(rec, &info);
        snprintf(rec->devpath, sizeof(rec->devpath), "%s",
                 kvol_is_storage_ioc(rec) ? fc_path : "/dev/tqe");
        kvol_config_merge_ioc(rec);
        rec->next = nullptr;
        kvol_config_register_ioc(rec);
        kvol_ioc_list_push(rec);
        ++added;
    }
    return added;
}

}  // namespace

// ---- sysfs parsing ---------------------------------------------------------------------------

int kvol_pci_regex_compile(regex_t* re) {
    // The dot is deliberately unescaped: it matches any character.
    return regcomp(re, "[a-f0-9]{4}:[a-f0-9]{2}:[a-f0-9]{2}.[a-f0-9]", REG_EXTENDED | REG_NOSUB);
}

bool kvol_pci_name_matches(const regex_t* re, const char* name) {
    return regexec(re, name, 0, nullptr, 0) == 0;
}

int kvol_sysfs_host_num(const char* entry_name) {
    if (strstr(entry_name, "host") == nullptr) return -1;
    long v = 0;
    for (const char* p = entry_name + 4; isdigit(static_cast<unsigned char>(*p)); ++p) {
        v = v * 10 + (*p - '0');
        if (v > INT_MAX) return -1;
    }
    return static_cast<int>(v);
}

void kvol_fc_devpath(uint32_t host, bool (*exists)(const char*), char* out, size_t size) {
    snprintf(out, size, "/dev/bsg/fc_host%u", host);
    if (exists(out)) return;
    snprintf(out, size, "/dev/fc_host%u", host);
    if (exists(out)) return;
    snprintf(out, size, "/dev/kvo");
}

// ---- IOC list ----------------------------------------------------------------------------------

void kvol_ioc_list_push(kvol_t* rec) {
    kvol_list_append(reinterpret_cast<void**>(&g_scan.ioc_list), rec, KVOL_LIST_IOC);
}

void kvol_ioc_set_num(int n) { g_scan.total = n; }

int kvol_ioc_get_num() { return g_scan.total; }

kvol_t* kvol_ioc_get_list() { return g_scan.ioc_list; }

// Closes the driver descriptors the IOCs hold. The Ethernet descriptor is shared by every
// Ethernet IOC and closed once.
void kvol_ioc_handles_close() {
    std::vector<int> closed;
    for (kvol_t* h = g_scan.ioc_list; h != nullptr; h = h->next) {
        if (h->fd == -1) continue;
        if (std::find(closed.begin(), closed.end(), h->fd) == closed.end()) {
            close(h->fd);
            closed.push_back(h->fd);
        }
        h->fd = -1;
    }
    if (g_scan.eth_fd >= 0 &&
        std::find(closed.begin(), closed.end(), g_scan.eth_fd) == closed.end())
        close(g_scan.eth_fd);
    g_scan.eth_fd = -1;
}

void kvol_ioc_free() {
    kvol_ioc_handles_close();
    close_ipfc();
    kvol_list_free(reinterpret_cast<void**>(&g_scan.ioc_list), KVOL_LIST_IOC);
    g_scan.total = 0;
}

// Rebuilds the IOC list: storage functions first, in sysfs directory order, then Ethernet
// functions. A driver whose scan fails contributes no count (its appended IOCs stay listed).
int kvol_ioc_scan() {
    kvol_ioc_free();
    g_scan.total = 0;
    g_scan.kvo_inst_cnt = 0;
    g_scan.map_count = 0;
    int n = ioc_scan_cna(KVO_IOC_TYPE_FC);
    if (n != -1) g_scan.total = n;
    n = ioc_scan_cna(KVO_IOC_TYPE_LL);
    if (n != -1) g_scan.total += n;
    for (auto& ent : g_scan.map) ent.reset();
    return g_scan.total;
}

