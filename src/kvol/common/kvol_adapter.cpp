// The adapter tree built over the IOC list (adapters, their ports, the IOCs of each port), the
// handle getters and lookups, the generic list operations and the library's life cycle.
//
// Each port holds its own copies of the IOC records, linked through their `next`; the global
// list keeps the originals. kvol_ioc_get_global_index maps a copy back to the list.
#include <cstdlib>
#include <cstring>

#include "kvol.h"
#include "kvol_ioc_priv.h"

namespace {

struct adapter_state {
    kvol_adapter_t* head = nullptr;
    int count = 0;
    int application_id = 0;
};
adapter_state g_ad;

template <class T>
void append(T** head, T* item) {
    item->next = nullptr;
    T** p = head;
    while (*p != nullptr) p = &(*p)->next;
    *p = item;
}

template <class T>
T* find(T* head, int id) {
    for (T* p = head; p != nullptr; p = p->next)
        if (p->id == id) return p;
    return nullptr;
}

void free_iocs(kvol_t** head) {
    kvol_t* p = *head;
    while (p != nullptr) {
        kvol_t* next = p->next;
        std::free(p);
        p = next;
    }
    *head = nullptr;
}

void free_ports(kvol_port_t** head) {
    kvol_port_t* p = *head;
    while (p != nullptr) {
        kvol_port_t* next = p->next;
        free_iocs(&p->fcioc_list);
        free_iocs(&p->ethioc_list);
        std::free(p);
        p = next;
    }
    *head = nullptr;
}

void free_adapters(kvol_adapter_t** head) {
    kvol_adapter_t* p = *head;
    while (p != nullptr) {
        kvol_adapter_t* next = p->next;
        free_ports(&p->port_list);
        std::free(p);
        p = next;
    }
    *head = nullptr;
}

// Fixed fields are compared within their size: a full field need not be terminated.
template <size_t N>
bool field_equals(const char (&field)[N], const char* word) {
    return strncmp(field, word, N) == 0 && strlen(word) <= N;
}

bool is_operational(kvol_t* h) {
    kvo_ioc_attr_t attr;
    return kvol_ioc_get_attr(h, &attr) == KVO_STATUS_OK && attr.state == KVO_IOC_OPERATIONAL;
}

}  // namespace

// ---- Generic lists -----------------------------------------------------------------------------

void kvol_list_append(void** head, void* item, int kind) {
    if (head == nullptr || item == nullptr) return;
    switch (kind) {
    case KVOL_LIST_IOC:
        append(reinterpret_cast<kvol_t**>(head), static_cast<kvol_t*>(item));
        break;
    case KVOL_LIST_ADAPTER:
        append(reinterpret_cast<kvol_adapter_t**>(head), static_cast<kvol_adapter_t*>(item));
        break;
    case KVOL_LIST_PORT:
        append(reinterpret_cast<kvol_port_t**>(head), static_cast<kvol_port_t*>(item));
        break;
    default:
        break;
    }
}

void* kvol_list_find(void* head, int id, int kind) {
    switch (kind) {
    case KVOL_LIST_IOC: return find(static_cast<kvol_t*>(head), id);
    case KVOL_LIST_ADAPTER: return find(static_cast<kvol_adapter_t*>(head), id);
    case KVOL_LIST_PORT: return find(static_cast<kvol_port_t*>(head), id);
    default: return nullptr;
    }
}

void kvol_list_free(void** head, int kind) {
    if (head == nullptr) return;
    switch (kind) {
    case KVOL_LIST_IOC: free_iocs(reinterpret_cast<kvol_t**>(head)); break;
    case KVOL_LIST_ADAPTER: free_adapters(reinterpret_cast<kvol_adapter_t**>(head)); break;
    case KVOL_LIST_PORT: free_ports(reinterpret_cast<kvol_port_t**>(head)); break;
    default: break;
    }
}

// ---- Life cycle --------------------------------------------------------------------------------

kvo_status_t kvol_libinit(int application_id) {
    g_ad.application_id = application_id;
    return KVO_STATUS_OK;
}

// Releases whatever scan is still held; nothing else to undo.
void kvol_libexit() { kvol_adapter_free(); }

// ---- Adapter tree ------------------------------------------------------------------------------

kvol_adapter_t* kvol_adapter_list_head() { return g_ad.head; }

kvo_status_t kvol_adapter_tree_add(kvol_t* h, const kvo_ioc_attr_t* attr,
                                   const kvo_ioc_info_t* info, kvol_adapter_t** added) {
    *added = nullptr;
    if (attr->port_id >= static_cast<uint32_t>(KVOL_MAX_PORTS)) return KVO_STATUS_FAILED;
    const int port_num = static_cast<int>(attr->port_id);
    h->port_num = port_num;
    h->pcifn_id = static_cast<int>(attr->pci_attr.pcifn);
    h->vendor_id = attr->pci_attr.vendor_id;
    h->device_id = attr->pci_attr.device_id;

    kvol_adapter_t* ad = nullptr;
    for (kvol_adapter_t* a = g_ad.head; a != nullptr; a = a->next) {
        if (strncmp(a->adapter_hwpath, h->adapter_hwpath, sizeof(a->adapter_hwpath)) == 0) {
            ad = a;
            break;
        }
    }
    if (ad != nullptr) {
        if (port_num + 1 > ad->port_count) ad->port_count = port_num + 1;
    } else {
        ad = kvol_calloc<kvol_adapter_t>();
        if (ad == nullptr) return KVO_STATUS_ENOMEM;
        ad->id = g_ad.count + 1;
        ad->port_count = port_num + 1;
        kvol_copy_str(ad->serial_num, info->serialnum, sizeof(info->serialnum));
        kvol_copy_str(ad->name, info->name, sizeof(info->name));
        kvol_copy_str(ad->adapter_hwpath, h->adapter_hwpath, sizeof(h->adapter_hwpath));
        const kvo_adapter_attr_s& aa = attr->adapter_attr;
        kvol_copy_str(ad->model_descr, aa.model_descr, sizeof(aa.model_descr));
        kvol_copy_str(ad->adapter_type, aa.adapter_type, sizeof(aa.adapter_type));
        ad->cna_capable = aa.cna_capable != 0;
        ad->trunk_capable = aa.trunk_capable != 0;
        append(&g_ad.head, ad);
        g_ad.count++;
        *added = ad;
    }
    h->ad_id = ad->id;

    kvol_port_t* port = find(ad->port_list, port_num);
    if (port == nullptr) {
        port = kvol_calloc<kvol_port_t>();
        if (port == nullptr) return KVO_STATUS_ENOMEM;
        port->id = port_num;
        port->ioc_type = h->ioc_type;
        append(&ad->port_list, port);
    }
    kvol_t* copy = kvol_calloc<kvol_t>();
    if (copy == nullptr) return KVO_STATUS_ENOMEM;
    *copy = *h;
    if (kvol_is_storage_ioc(h)) {
        append(&port->fcioc_list, copy);
        if (port->factorypwwn == 0) {
            port->factorypwwn = h->factorypwwn;
            port->factorynwwn = h->factorynwwn;
        }
    } else {
        append(&port->ethioc_list, copy);
    }
    static constexpr mac_t zero_mac{};
    if (memcmp(&port->factory_mac, &zero_mac, sizeof(mac_t)) == 0)
        port->factory_mac = h->factory_mac;
    port->ioc_count++;
    return KVO_STATUS_OK;
}

// Rescans the IOCs and groups them into adapters (by adapter hardware path) and ports (by the
// port number the firmware reports). Adapters are numbered from 1 in order of their first IOC.
// Returns the adapter count, or -1 when a query failed (its status is the last status).
int kvol_adapter_scan() {
    // Each command starts from a clean cell, so a shell sees no earlier command's failure.
    kvol_set_last_error(KVO_STATUS_OK);
    kvol_ioc_handles_close();
    const int count = kvol_ioc_scan();
    free_adapters(&g_ad.head);
    g_ad.count = 0;
    for (int i = 0; i < count; ++i) {
        kvol_t* h = kvol_adapter_open_ioc(i);
        if (h == nullptr) continue;
        kvo_ioc_attr_t attr;
        kvo_status_t st = kvol_ioc_get_attr(h, &attr);
        if (st == KVO_STATUS_OK) {
            kvo_ioc_info_t info;
            st = kvol_ioc_get_info(h, &info);
            kvol_adapter_t* added = nullptr;
            if (st == KVO_STATUS_OK) st = kvol_adapter_tree_add(h, &attr, &info, &added);
            if (added != nullptr) kvol_config_register_adapter(added->serial_num);
        }
        if (st != KVO_STATUS_OK) {
            kvol_set_last_error(st);
            return -1;
        }
    }
    return g_ad.count;
}

// Frees the adapter tree and the IOC list behind it, closing the IOC descriptors.
void kvol_adapter_free() {
    free_adapters(&g_ad.head);
    g_ad.count = 0;
    kvol_ioc_free();
}

// ---- Handles -----------------------------------------------------------------------------------

// The IOC with global index `index`, or null outside 0..count-1.
kvol_t* kvol_adapter_open_ioc(int index) {
    kvol_t* list = kvol_ioc_get_list();
    if (list == nullptr || index < 0 || index >= kvol_ioc_get_num()) return nullptr;
    return find(list, index);
}

// Handles are records of the scan; there is nothing to release per handle.
void kvol_ioc_close(kvol_t* handle) { (void)handle; }

int kvol_ioc_get_instance(const kvol_t* h) { return h->instance; }
int kvol_ioc_get_pcifn(const kvol_t* h) { return h->pcifn_id; }
int kvol_ioc_get_adapter_id(const kvol_t* h) { return h->ad_id; }
int kvol_ioc_get_index(const kvol_t* h) { return h->id; }
int kvol_ioc_get_port_id(const kvol_t* h) { return h->port_num; }
kvo_ioc_type_e kvol_ioc_get_ioc_type(const kvol_t* h) { return h->ioc_type; }
const char* kvol_ioc_get_name(const kvol_t* h) { return h->name; }
const char* kvol_ioc_get_sn(const kvol_t* h) { return h->serialnum; }
wwn_t kvol_ioc_get_pwwn(const kvol_t* h) { return h->pwwn; }
wwn_t kvol_ioc_get_nwwn(const kvol_t* h) { return h->nwwn; }
mac_t kvol_ioc_get_mac(const kvol_t* h) { return h->mac; }
mac_t kvol_ioc_get_factory_mac(const kvol_t* h) { return h->factory_mac; }
mac_t kvol_ioc_get_current_mac(const kvol_t* h) { return h->current_mac; }
const char* kvol_ioc_get_eth_name(const kvol_t* h) { return h->eth_name; }
int kvol_get_unix_fd(const kvol_t* h) { return h->fd; }

void kvol_update_file_handle(kvol_t* dst, const kvol_t* src) { dst->fd = src->fd; }

void kvol_ioc_get_path(const kvol_t* h, char* devpath, char* ioc_hwpath, char* adapter_hwpath) {
    if (devpath != nullptr) {
        memcpy(devpath, h->devpath, sizeof(h->devpath));
        devpath[sizeof(h->devpath) - 1] = '\0';
    }
    if (ioc_hwpath != nullptr) {
        memcpy(ioc_hwpath, h->ioc_hwpath, sizeof(h->ioc_hwpath));
        ioc_hwpath[sizeof(h->ioc_hwpath) - 1] = '\0';
    }
    if (adapter_hwpath != nullptr) {
        memcpy(adapter_hwpath, h->adapter_hwpath, sizeof(h->adapter_hwpath));
        adapter_hwpath[sizeof(h->adapter_hwpath) - 1] = '\0';
    }
}

// The global index of the IOC with the handle's PCI address; -1 when the list has none.
int kvol_ioc_get_global_index(const kvol_t* h) {
    for (const kvol_t* p = kvol_ioc_get_list(); p != nullptr; p = p->next)
        if (strncmp(p->ioc_hwpath, h->ioc_hwpath, sizeof(p->ioc_hwpath)) == 0) return p->id;
    return -1;
}

kvol_t* kvol_ioc_get_by_eth_name(const char* name) {
    if (name == nullptr) return nullptr;
    for (kvol_t* p = kvol_ioc_get_list(); p != nullptr; p = p->next)
        if (field_equals(p->eth_name, name)) return p;
    return nullptr;
}

// The driver instance of the storage IOC with that port WWN; -1 when none.
int kvol_ioc_get_inst_num_by_pwwn(wwn_t wwn) {
    for (const kvol_t* p = kvol_ioc_get_list(); p != nullptr; p = p->next)
        if (kvol_is_storage_ioc(p) && p->pwwn == wwn) return p->instance;
    return -1;
}

kvo_status_t kvol_ioc_is_operational(kvol_t* h, int* flag) {
    if (h == nullptr || flag == nullptr) return KVO_STATUS_FAILED;
    kvo_ioc_attr_t attr;
    kvo_status_t st = kvol_ioc_get_attr(h, &attr);
    if (st != KVO_STATUS_OK) return st;
    *flag = attr.state == KVO_IOC_OPERATIONAL ? 1 : 0;
    return KVO_STATUS_OK;
}

// Replaces a non-operational IOC by the first operational IOC of its port (storage functions
// first, then Ethernet). A failed attribute read leaves the handle alone. Always succeeds.
kvo_status_t kvol_ioc_get_operational_pf(kvol_t** h) {
    if (h == nullptr || *h == nullptr) return KVO_STATUS_OK;
    kvo_ioc_attr_t attr;
    if (kvol_ioc_get_attr(*h, &attr) != KVO_STATUS_OK) return KVO_STATUS_OK;
    if (attr.state == KVO_IOC_OPERATIONAL) return KVO_STATUS_OK;
    kvol_port_t* port = kvol_adapter_get_port(kvol_adapter_get_by_idx((*h)->ad_id), (*h)->port_num);
    if (port == nullptr) return KVO_STATUS_OK;
    for (kvol_t* p = kvol_port_next_ioc(port, nullptr); p != nullptr; p = kvol_port_next_ioc(port, p)) {
        if (is_operational(p)) {
            *h = p;
            return KVO_STATUS_OK;
        }
    }
    return KVO_STATUS_OK;
}

// ---- Adapter tree lookups ----------------------------------------------------------------------

int kvol_adapter_get_count() { return g_ad.count; }

kvol_adapter_t* kvol_adapter_get_by_idx(int idx) {
    if (idx < 1 || idx > g_ad.count) return nullptr;
    return find(g_ad.head, idx);
}

// The first adapter whose serial number, name or hardware path is the word.
kvol_adapter_t* kvol_adapter_get_by_str(const char* word) {
    if (word == nullptr) return nullptr;
    for (int i = 1; i <= g_ad.count; ++i) {
        kvol_adapter_t* ad = kvol_adapter_get_by_idx(i);
        if (ad == nullptr) continue;
        if (field_equals(ad->serial_num, word) || field_equals(ad->name, word) ||
            field_equals(ad->adapter_hwpath, word))
            return ad;
    }
    return nullptr;
}

kvol_port_t* kvol_adapter_get_port(kvol_adapter_t* ad, int port) {
    if (ad == nullptr) return nullptr;
    return find(ad->port_list, port);
}

int kvol_adapter_get_port_count(const kvol_adapter_t* ad) {
    return ad == nullptr ? -1 : ad->port_count;
}

// The card's physical port count as its firmware reports it; -1 when it cannot be read.
int kvol_adapter_get_hw_port_count(kvol_adapter_t* ad) {
    if (ad == nullptr) return -1;
    kvol_t* h = kvol_adapter_get_first_ioc(ad);
    for (kvol_port_t* p = ad->port_list; h == nullptr && p != nullptr; p = p->next)
        h = kvol_port_get_first_ioc(p);
    if (h == nullptr) return -1;
    kvo_ioc_attr_t attr;
    if (kvol_ioc_get_attr(h, &attr) != KVO_STATUS_OK) return -1;
    return attr.adapter_attr.nports;
}

kvol_t* kvol_adapter_get_first_ioc(kvol_adapter_t* ad) {
    return kvol_port_get_first_ioc(kvol_adapter_get_port(ad, 0));
}

// The storage IOC whose port or node WWN is wwn.
kvol_t* kvol_adapter_get_ioc_by_wwn(wwn_t wwn) {
    for (kvol_adapter_t* ad = g_ad.head; ad != nullptr; ad = ad->next)
        for (kvol_port_t* port = ad->port_list; port != nullptr; port = port->next)
            for (kvol_t* p = port->fcioc_list; p != nullptr; p = p->next)
                if (p->pwwn == wwn || p->nwwn == wwn) return p;
    return nullptr;
}

// The IOC whose hardware path, name or serial number is the word. At each position of a
// port's lists the storage function is tried, or the Ethernet function where none is left.
kvol_t* kvol_adapter_get_ioc_by_str(const char* word) {
    if (word == nullptr) return nullptr;
    for (kvol_adapter_t* ad = g_ad.head; ad != nullptr; ad = ad->next) {
        for (kvol_port_t* port = ad->port_list; port != nullptr; port = port->next) {
            kvol_t* fc = port->fcioc_list;
            kvol_t* eth = port->ethioc_list;
            while (fc != nullptr || eth != nullptr) {
                kvol_t* p = fc != nullptr ? fc : eth;
                if (field_equals(p->ioc_hwpath, word) || field_equals(p->name, word) ||
                    field_equals(p->serialnum, word))
                    return p;
                if (fc != nullptr) fc = fc->next;
                if (eth != nullptr) eth = eth->next;
            }
        }
    }
    return nullptr;
}

kvol_t* kvol_port_get_ioc_by_pcifn(kvol_port_t* port, int pcifn) {
    for (kvol_t* p = kvol_port_next_ioc(port, nullptr); p != nullptr; p = kvol_port_next_ioc(port, p))
        if (p->pcifn_id == pcifn) return p;
    return nullptr;
}

kvol_t* kvol_port_get_first_fcioc(kvol_port_t* port) {
    return port == nullptr ? nullptr : port->fcioc_list;
}

kvol_t* kvol_port_get_first_ethioc(kvol_port_t* port) {
    return port == nullptr ? nullptr : port->ethioc_list;
}

kvol_t* kvol_port_get_first_ioc(kvol_port_t* port) {
    if (port == nullptr) return nullptr;
    return port->fcioc_list != nullptr ? port->fcioc_list : port->ethioc_list;
}

kvol_t* kvol_port_next_ioc(kvol_port_t* port, const kvol_t* h) {
    if (port == nullptr) return nullptr;
    if (h == nullptr) return kvol_port_get_first_ioc(port);
    if (h->next != nullptr) return h->next;
    return kvol_is_storage_ioc(h) ? port->ethioc_list : nullptr;
}

int kvol_adapter_get_id(const kvol_adapter_t* ad) { return ad->id; }
const char* kvol_adapter_get_serial_num(const kvol_adapter_t* ad) { return ad->serial_num; }
const char* kvol_adapter_get_model(const kvol_adapter_t* ad) { return ad->model_descr; }
const char* kvol_adapter_get_hw_path(const kvol_adapter_t* ad) { return ad->adapter_hwpath; }
const char* kvol_adapter_get_type(const kvol_adapter_t* ad) { return ad->adapter_type; }
const char* kvol_adapter_get_name(const kvol_adapter_t* ad) { return ad->name; }
