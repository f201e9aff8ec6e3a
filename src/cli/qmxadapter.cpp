// The adapter class: list, count, name, enable/disable, personality, auto-start, firmware
// reload and the attribute report.
#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kvol.h"
#include "qmx.h"
#include "qmxhandlers.h"
#include "qmxwrapper.h"

namespace {

// The auto-start capability: one bit of the ASIC block kept in flash.
constexpr uint32_t AUTOSTART_BYTE = 28;
constexpr uint8_t AUTOSTART_BIT = 0x04;
constexpr uint16_t AUTOSTART_DEVID_A = 0x22;
constexpr uint16_t AUTOSTART_DEVID_B = 0x23;
constexpr uint32_t MAX_PART_SIZE = 64u << 20;

// A fixed-size text field as a string: never reads past the field, and shows bytes that are
// not printable as '?' so a garbled reply cannot disturb the terminal.
std::string field(const char* f, size_t size) {
    std::string s(f, strnlen(f, size));
    for (char& c : s) {
        unsigned char u = static_cast<unsigned char>(c);
        if (u < 0x20 || u >= 0x7f) c = '?';
    }
    return s;
}
template <size_t N>
std::string field(const char (&f)[N]) {
    return field(f, N);
}

int adapter_id_of(kvol_adapter_t* ad, kvol_t* h) {
    return h != nullptr ? kvol_ioc_get_adapter_id(h) : kvol_adapter_get_id(ad);
}

// The adapter's name and serial number as strings (their fields need not be terminated).
std::string name_of(const kvol_adapter_t* ad) {
    return field(kvol_adapter_get_name(ad), sizeof(kvol_adapter_t::name));
}

const qmx_usage_entry adapter_usage[] = {
    {"--autostart", "<ad_id> <on|off>",
     "\t\tEnables or disables the auto start capability of the adapter\n"},
    {"--count", "", "\t\tDisplays the number of adapters\n"},
    {"--disable", "<ad_id>", "\t\tDisables the adapter\n"},
    {"--enable", "<ad_id>", "\t\tEnables the adapter\n"},
    {"--list", "", "\t\tLists all the adapters\n"},
    {"--mode", "<ad_id> <HBA|CNA|NIC> [-f]",
     "\t\tConfigures the personality of the adapter; -f also resets\n"
     "\t\tall the settings configured on the adapter\n"},
    {"--name", "<ad_id> [<adapter-name>]",
     "\t\tDisplays or sets the name of the adapter (at most 15\n"
     "\t\tcharacters: a letter, then letters, digits, '-' or '_')\n"},
    {"--query", "<ad_id> [adapter|pci|port|flash]",
     "\t\tDisplays the attributes of the adapter, or only the section named\n"},
    {"--reload_fw", "<ad_id>", "\t\tReloads the firmware of the adapter\n"},
};

}  // namespace

void qmx_adapter_usage(int extended) { qmx_print_usage("adapter --list", adapter_usage, extended); }

// ---- --list and --count ---------------------------------------------------------------------

static int qmx_adapter_printlist() {
    int n = kvol_adapter_get_count();
    if (n <= 0) {
        printf("No KVO adapters found\n");
        return 0;
    }
    qmx_print_header_line(72);
    printf("AD#  NP  HW-path        Type   Model-Info       Serial-num   Name\n");
    qmx_print_header_line(72);
    for (int i = 1; i <= n; i++) {
        kvol_adapter_t* ad = kvol_adapter_get_by_idx(i);
        if (ad == nullptr) {
            printf("ERROR: Unable to open handle to Adapter id %d\n", i);
            return 1;
        }
        std::string serial = field(kvol_adapter_get_serial_num(ad), sizeof(kvol_adapter_t::serial_num));
        std::string model = field(kvol_adapter_get_model(ad), sizeof(kvol_adapter_t::model_descr));
        std::string hwpath = field(kvol_adapter_get_hw_path(ad), sizeof(kvol_adapter_t::adapter_hwpath));
        std::string type = field(kvol_adapter_get_type(ad), sizeof(kvol_adapter_t::adapter_type));
        int nports = kvol_adapter_get_port_count(ad);
        std::string name = name_of(ad);
        if (name.empty()) name = "--";
        printf("%2d   %1d   %-13s  %-6s %-15s  %-11s  %-15s\n", i, nports, hwpath.c_str(),
               type.c_str(), model.c_str(), serial.c_str(), name.c_str());
    }
    qmx_print_header_line(72);
    return 0;
}

int qmx_adapter_list(char** /*argv*/, int /*argc*/, qmx_id_t* /*id*/) {
    return qmx_adapter_printlist();
}

int qmx_adapter_count(char** /*argv*/, int /*argc*/, qmx_id_t* /*id*/) {
    int n = kvol_adapter_get_count();
    printf("%d\n", n > 0 ? n : 0);
    return 0;
}

// ---- --name -------------------------------------------------------------------------------

static int qmx_adapter_setname(char** argv, int argc, qmx_id_t* id) {
    const char* name = qmx_has_arg(argc, QMX_ARG_1) ? argv[QMX_ARG_1] : nullptr;
    // An empty name clears the name and is deliberately not verified.
    if (name != nullptr && name[0] != '\0' && !qmx_verify_name(name)) return E_CLI_INCORRECT_STRING;

    kvol_adapter_t* ad = id->adapter;
    kvol_t* h = id->ad_ioc;
    if (h == nullptr) return KVO_STATUS_FAILED;
    // The scan's copy may be stale; a failed refresh leaves it as the scan saw it.
    kvol_adapter_update_ioc(ad, h);
    int ad_id = adapter_id_of(ad, h);

    if (name == nullptr) {
        printf("adapter id %d; current name is %s\n", ad_id, name_of(ad).c_str());
        return 0;
    }
    if (kvol_adapter_name_in_use(ad, name)) return KVO_STATUS_SAME_NAME;
    kvo_status_t st = kvol_adapter_set_name(ad, name);
    if (st != KVO_STATUS_OK) return st;
    printf("adapter id %d; name set to: %s\n", ad_id, name);
    return 0;
}

int qmx_adapter_name(char** argv, int argc, qmx_id_t* id) {
    return qmx_adapter_setname(argv, argc, id);
}

// ---- --enable and --disable -------------------------------------------------------------------

int qmx_adapter_disable(char** /*argv*/, int /*argc*/, qmx_id_t* id) {
    kvol_adapter_t* ad = id->adapter;
    kvol_t* h = id->ad_ioc;
    if (h == nullptr) return KVO_STATUS_FAILED;
    bool disabled = false;
    kvo_status_t st = kvol_adapter_is_disabled(ad, &disabled);
    if (st != KVO_STATUS_OK) return st;
    if (disabled) return KVO_STATUS_ADAPTER_DISABLED;
    st = kvol_adapter_disable(ad);
    if (st == KVO_STATUS_OK) printf("adapter id %d disabled\n", adapter_id_of(ad, h));
    return st;
}

// Enabling an enabled adapter succeeds, unlike disabling a disabled one.
int qmx_adapter_enable(char** /*argv*/, int /*argc*/, qmx_id_t* id) {
    kvol_adapter_t* ad = id->adapter;
    kvol_t* h = id->ad_ioc;
    if (h == nullptr) return KVO_STATUS_FAILED;
    kvo_status_t st = kvol_adapter_enable(ad);
    if (st != KVO_STATUS_OK && st != KVO_STATUS_IOC_ENABLED) return st;
    printf("adapter id %d enabled\n", adapter_id_of(ad, h));
    return 0;
}

// ---- --mode -----------------------------------------------------------------------------------

int qmx_adapter_mode(char** argv, int argc, qmx_id_t* id) {
    bool force = false;
    if (qmx_has_arg(argc, QMX_ARG_2)) {
        if (strcmp(argv[QMX_ARG_2], "-f") != 0) return E_CLI_INCORRECT_CMD;
        force = true;
    }
    kvo_adapter_cfg_mode_t cfg{};
    if (strcasecmp(argv[QMX_ARG_1], "HBA") == 0) {
        cfg.mode = KVO_MODE_HBA;
    } else if (strcasecmp(argv[QMX_ARG_1], "CNA") == 0) {
        cfg.mode = KVO_MODE_CNA;
    } else if (strcasecmp(argv[QMX_ARG_1], "NIC") == 0) {
        cfg.mode = KVO_MODE_NIC;
    } else {
        return E_CLI_INCORRECT_CMD;
    }
    if (force) {
        printf("Warning: This command will reset all the settings configured on the adapter.\n\n");
        printf("Mode change command can take a lot of time to complete.\nPlease don't terminate "
               "the command as it could result in undesirable adapter state.\n\n");
    } else {
        printf("Warning: This command will not reset the settings configured on the adapter.\n\n");
    }
    kvol_adapter_t* ad = id->adapter;
    kvol_t* h = id->ad_ioc;
    if (h == nullptr) return KVO_STATUS_FAILED;
    kvo_status_t st = kvol_adapter_cfg_mode(ad, &cfg, force);
    if (st == KVO_STATUS_OK) {
        printf("Adapter mode is configured successfully.\nA host reboot is needed for the changes "
               "to be effective. You may also have to change the SFP to match the new mode.\n\n");
    }
    return st;
}

// ---- --autostart ------------------------------------------------------------------------------

int qmx_adapter_autostart(char** argv, int /*argc*/, qmx_id_t* id) {
    bool on;
    if (strcmp(argv[QMX_ARG_1], "on") == 0) {
        on = true;
    } else if (strcmp(argv[QMX_ARG_1], "off") == 0) {
        on = false;
    } else {
        return E_CLI_INCORRECT_CMD;
    }
    kvol_t* h = id->ad_ioc;
    if (h == nullptr) return KVO_STATUS_FAILED;

    kvo_ioc_attr_t attr{};
    kvo_status_t st = kvol_ioc_get_attr(h, &attr);
    if (st != KVO_STATUS_OK) return st;
    uint16_t devid = attr.pci_attr.device_id;
    if (devid != AUTOSTART_DEVID_A && devid != AUTOSTART_DEVID_B) {
        return KVO_STATUS_FEATURE_NOT_SUPPORTED;
    }

    kvo_flash_attr_s fattr{};
    st = kvol_flash_get_attr(h, &fattr);
    if (st != KVO_STATUS_OK) return st;
    const kvo_flash_part_attr_s* part = kvol_flash_find_part(&fattr, KVO_FLASH_PART_ASIC);
    if (part == nullptr || part->part_size == 0) return KVO_STATUS_FLASH_EMPTY;
    uint32_t size = part->part_size;
    // The bit lives inside the partition; a partition too short to hold it is as good as empty.
    if (size <= AUTOSTART_BYTE) return KVO_STATUS_FLASH_EMPTY;
    // No flash part of this family comes near this; a larger size is a garbled table.
    if (size > MAX_PART_SIZE) return KVO_STATUS_FLASH_BAD_LEN;

    // The whole partition is read and written back, so a failed read leaves flash untouched.
    std::unique_ptr<uint8_t, decltype(&free)> buf(static_cast<uint8_t*>(calloc(size, 1)), &free);
    if (!buf) return KVO_STATUS_ENOMEM;
    st = kvol_flash_read_part(h, KVO_FLASH_PART_ASIC, 0, buf.get(), size);
    if (st != KVO_STATUS_OK) {
        kvol_ioc_close(h);
        return st;
    }
    if (on) {
        buf.get()[AUTOSTART_BYTE] |= AUTOSTART_BIT;
    } else {
        buf.get()[AUTOSTART_BYTE] &= static_cast<uint8_t>(~AUTOSTART_BIT);
    }
    st = kvol_flash_update_part(h, KVO_FLASH_PART_ASIC, 0, buf.get(), size);
    if (st == KVO_STATUS_OK) {
        printf("Successfully %s the adapter auto start capability\n", on ? "enabled" : "disabled");
    }
    return st;
}

// ---- --reload_fw ------------------------------------------------------------------------------

// The adapter is echoed as typed (index, serial number, name or hardware path).
int qmx_adapter_reload_fw(char** argv, int /*argc*/, qmx_id_t* id) {
    kvo_status_t st = kvol_adapter_reload_fw(id->adapter);
    if (st != KVO_STATUS_OK && st != KVO_STATUS_IOC_ENABLED) return st;
    printf("Firmware on adapter id %s is reloaded\n", argv[QMX_ARG_ID]);
    return 0;
}

// ---- --query ----------------------------------------------------------------------------------

namespace {

// Sections of the report; the optional word after the adapter picks one.
enum query_section : unsigned {
    Q_ADAPTER = 1u << 0,
    Q_PCI = 1u << 1,
    Q_PORT = 1u << 2,
    Q_FLASH = 1u << 3,
    Q_ALL = Q_ADAPTER | Q_PCI | Q_PORT | Q_FLASH,
};

struct query_word {
    const char* word;
    unsigned sections;
};
constexpr query_word query_words[] = {
    {"adapter", Q_ADAPTER},
    {"pci", Q_PCI},
    {"port", Q_PORT},
    {"flash", Q_FLASH},
};

const char* ioc_type_name(uint32_t type) {
    switch (type) {
        case KVO_IOC_TYPE_FC: return "FC";
        case KVO_IOC_TYPE_FCoE: return "FCoE";
        case KVO_IOC_TYPE_LL: return "Ethernet";
        default: return "unknown";
    }
}

std::string mac_text(const mac_t& m) {
    char buf[18];
    snprintf(buf, sizeof(buf), "%02x:%02x:%02x:%02x:%02x:%02x", m.mac[0], m.mac[1], m.mac[2],
             m.mac[3], m.mac[4], m.mac[5]);
    return buf;
}

std::string wwn_text(wwn_t w) {
    char buf[24];
    return qmx_wwn2str(buf, w);
}

struct ioc_row {
    kvol_t* h;
    bool have_attr;
    uint32_t state;
};

// The adapter's IOCs with their current state, by port, storage functions first.
std::vector<ioc_row> adapter_rows(kvol_adapter_t* ad) {
    std::vector<ioc_row> rows;
    int nports = kvol_adapter_get_port_count(ad);
    for (int p = 0; p < nports; p++) {
        kvol_port_t* port = kvol_adapter_get_port(ad, p);
        for (kvol_t* h = kvol_port_next_ioc(port, nullptr); h != nullptr;
             h = kvol_port_next_ioc(port, h)) {
            kvo_ioc_attr_t attr{};
            bool ok = kvol_ioc_get_attr(h, &attr) == KVO_STATUS_OK;
            rows.push_back({h, ok, ok ? attr.state : 0});
        }
    }
    return rows;
}

// One state for the whole adapter: the common state of its functions, if they agree.
std::string adapter_state(const std::vector<ioc_row>& rows) {
    if (rows.empty()) return "--";
    for (const ioc_row& r : rows) {
        if (!r.have_attr) return "--";
        if (r.state != rows.front().state) return "mixed (see ports)";
    }
    return kvol_ioc_state_to_string(rows.front().state);
}

void print_item(const char* label, const std::string& value) {
    printf("    %-20s %s\n", label, value.c_str());
}

void print_adapter_section(kvol_adapter_t* ad, const kvo_ioc_attr_t& attr,
                           const std::vector<ioc_row>& rows) {
    const kvo_adapter_attr_s& a = attr.adapter_attr;
    std::string name = name_of(ad);
    printf("Adapter:\n");
    print_item("Model:", field(a.model));
    print_item("Model description:", field(a.model_descr));
    print_item("Serial number:", field(kvol_adapter_get_serial_num(ad), sizeof(kvol_adapter_t::serial_num)));
    print_item("Name:", name.empty() ? "--" : name);
    print_item("Card type:", std::to_string(a.card_type));
    print_item("Adapter type:", field(a.adapter_type));
    print_item("Mode:", kvol_mode_to_string(a.mode));
    print_item("Port count:", std::to_string(kvol_adapter_get_port_count(ad)));
    print_item("Firmware version:", field(a.fw_ver));
    print_item("Boot code version:", field(a.optrom_ver));
    print_item("State:", adapter_state(rows));
}

void print_pci_section(const kvo_ioc_attr_t& attr) {
    const kvo_pci_attr_s& p = attr.pci_attr;
    char buf[64];
    printf("PCI:\n");
    snprintf(buf, sizeof(buf), "0x%04x", p.vendor_id);
    print_item("Vendor id:", buf);
    snprintf(buf, sizeof(buf), "0x%04x", p.device_id);
    print_item("Device id:", buf);
    snprintf(buf, sizeof(buf), "0x%04x", p.ssvid);
    print_item("Subsystem vendor id:", buf);
    snprintf(buf, sizeof(buf), "0x%04x", p.ssid);
    print_item("Subsystem id:", buf);
    snprintf(buf, sizeof(buf), "Gen%u x%u", p.pcie_gen, p.pcie_lanes);
    print_item("PCIe link:", buf);
    print_item("Chip revision:", field(p.chip_rev));
}

void print_port_section(kvol_adapter_t* ad, const std::vector<ioc_row>& rows) {
    int nports = kvol_adapter_get_port_count(ad);
    for (int p = 0; p < nports; p++) {
        if (kvol_adapter_get_port(ad, p) == nullptr) continue;
        std::vector<const ioc_row*> fns;
        for (const ioc_row& r : rows) {
            if (kvol_ioc_get_port_id(r.h) == p) fns.push_back(&r);
        }
        std::stable_sort(fns.begin(), fns.end(), [](const ioc_row* x, const ioc_row* y) {
            return kvol_ioc_get_pcifn(x->h) < kvol_ioc_get_pcifn(y->h);
        });
        printf("Port %d:\n", p);
        printf("    PCI-fn  Type      Inst  PWWN/MAC                 NWWN                     "
               "State\n");
        for (const ioc_row* r : fns) {
            kvo_ioc_type_e type = kvol_ioc_get_ioc_type(r->h);
            bool storage = kvol_is_storage_ioc(r->h);
            std::string addr = storage ? wwn_text(kvol_ioc_get_pwwn(r->h))
                                       : mac_text(kvol_ioc_get_mac(r->h));
            std::string nwwn = storage ? wwn_text(kvol_ioc_get_nwwn(r->h)) : "--";
            const char* state = r->have_attr ? kvol_ioc_state_to_string(r->state) : "--";
            printf("    %-6d  %-8s  %-4d  %-23s  %-23s  %s\n", kvol_ioc_get_pcifn(r->h),
                   ioc_type_name(type), kvol_ioc_get_instance(r->h), addr.c_str(), nwwn.c_str(),
                   state);
        }
    }
}

void print_flash_section(const kvo_flash_attr_s& fattr) {
    printf("Flash partitions:\n");
    printf("    Type      Inst  Offset      Size        Status\n");
    uint32_t n = std::min<uint32_t>(fattr.npart, KVO_FLASH_PART_MAX);
    for (uint32_t i = 0; i < n; i++) {
        const kvo_flash_part_attr_s& p = fattr.part[i];
        printf("    %-8s  %-4u  0x%08x  0x%08x  %s\n", kvol_flash_part_type_to_string(p.part_type),
               p.part_instance, p.part_off, p.part_size,
               kvol_flash_status_to_string(p.part_status));
    }
}

}  // namespace

// The attribute report of one adapter: all sections, or the one named by the optional word.
int qmx_adapter_query(char** argv, int argc, qmx_id_t* id) {
    unsigned sections = Q_ALL;
    if (qmx_has_arg(argc, QMX_ARG_1)) {
        sections = 0;
        for (const query_word& w : query_words) {
            if (strcmp(argv[QMX_ARG_1], w.word) == 0) sections = w.sections;
        }
        if (sections == 0) return E_CLI_INCORRECT_CMD;
    }
    kvol_adapter_t* ad = id->adapter;
    kvol_t* h = id->ad_ioc;
    if (h == nullptr) return KVO_STATUS_FAILED;
    kvol_adapter_update_ioc(ad, h);

    // Everything is read before anything is printed, so a failure prints no half report.
    kvo_ioc_attr_t attr{};
    if (sections & (Q_ADAPTER | Q_PCI)) {
        kvo_status_t st = kvol_ioc_get_attr(h, &attr);
        if (st != KVO_STATUS_OK) return st;
    }
    // In the full report an unreadable partition table is noted in its section; asked for
    // alone, it is the command's failure.
    kvo_flash_attr_s fattr{};
    kvo_status_t flash_st = KVO_STATUS_OK;
    if (sections & Q_FLASH) {
        flash_st = kvol_flash_get_attr(h, &fattr);
        if (flash_st != KVO_STATUS_OK && sections == Q_FLASH) return flash_st;
    }
    std::vector<ioc_row> rows;
    if (sections & (Q_ADAPTER | Q_PORT)) rows = adapter_rows(ad);

    printf("Adapter id %d\n", adapter_id_of(ad, h));
    qmx_print_header_line(72);
    if (sections & Q_ADAPTER) print_adapter_section(ad, attr, rows);
    if (sections & Q_PCI) print_pci_section(attr);
    if (sections & Q_PORT) print_port_section(ad, rows);
    if (sections & Q_FLASH) {
        if (flash_st == KVO_STATUS_OK) {
            print_flash_section(fattr);
        } else {
            printf("Flash partitions: unavailable (%s)\n", kvol_status_to_string(flash_st));
        }
    }
    return 0;
}
