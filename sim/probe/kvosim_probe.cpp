// kvosim_probe: talks to emulated nodes the way the host software does, one request per call,
// and prints what came back as key=value lines. Run it under `kvosim run`.
//   kvosim_probe info|attr NODE KVOD            IOC information / attributes
//   kvosim_probe raw NODE CODE KVOD             a plain ioctl with a request code as given
//   kvosim_probe bsg NODE CODE KVOD [FIELD=V]   SG_IO vendor request; FIELD overrides one of
//        guard protocol subprotocol request_len msgcode vendor_id vcmd dout_len din_len
//        timeout split (din buffer apart from dout)
//   kvosim_probe ls|lsat|scandir|stat|cat|open|realpath|readlink PATH ;  write PATH TEXT ;  mount
//   kvosim_probe ethtool IF flashdev FILE [REGION]
//   kvosim_probe ethtool IF geeprom MAGIC OFFSET LEN [MAPPED]  data, then what the kernel
//        reported; MAPPED: only that many bytes of the caller's data buffer are mapped
//   kvosim_probe ethtool IF seeprom MAGIC OFFSET DATA [WORD]  the length word (default: the
//        data's length) is prepended; DATA is hex bytes, or @N for N bytes of the test pattern
//   kvosim_probe ifioctl IF REQUEST             a socket ioctl whose ifreq names IF
//   kvosim_probe devioctl PATH REQUEST          an ioctl on a file opened read-only
//   kvosim_probe fdioctl FD REQUEST             an ioctl on an inherited descriptor
//   kvosim_probe threads N NODE KVOD            N threads x 20 information requests
//   kvosim_probe fcpt NODE MSGCODE D_ID PAYLOAD [FIELD=V]  FC pass-through framed as the FC
//        transport defines it (ELS command code, D_ID and CT preamble from the payload, flat
//        payloads, a 256-byte response); FIELD overrides one of msgcode code (ELS command)
//        preamble (CT word 0) dout_len din_len timeout iovec. Prints the reply and the response.
#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/bsg.h>
#include <scsi/sg.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "kvo_ioctl.h"
#include "kvo_lunmask.h"

namespace {

constexpr unsigned long kSgIo = 0x2285;
constexpr unsigned long kSiocEthtool = 0x8946;

int fail(const char* what) {
    printf("rc=-1 errno=%d (%s)%s%s\n", errno, strerror(errno), what ? " " : "", what ? what : "");
    return 1;
}

uint64_t num(const char* s) { return strtoull(s, nullptr, 0); }

bool is_bsg(const std::string& node) {
    return node.find("/dev/bsg/fc_host") == 0 || node.find("/dev/fc_host") == 0;
}

uint32_t vendor_cmd_of(uint32_t code) {
    for (const auto& m : kvo_bsg_cmd_map)
        if (m.code == code) return m.vendor_cmd;
    return 0;
}

struct Overrides {
    std::vector<std::pair<std::string, uint64_t>> kv;
    bool has(const char* k, uint64_t& v) const {
        for (auto& p : kv)
            if (p.first == k) {
                v = p.second;
                return true;
            }
        return false;
    }
};

// FIELD=VALUE words; false (and a message) for anything else.
bool parse_overrides(int argc, char** argv, Overrides& ov) {
    for (int i = 0; i < argc; i++) {
        const char* eq = strchr(argv[i], '=');
        if (eq == nullptr) {
            fprintf(stderr, "override %s: FIELD=VALUE expected\n", argv[i]);
            return false;
        }
        ov.kv.emplace_back(std::string(argv[i], static_cast<size_t>(eq - argv[i])), num(eq + 1));
    }
    return true;
}

// Hex digits, two per byte.
std::vector<uint8_t> hex_bytes(const std::string& hex) {
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(strtoul(hex.substr(i, 2).c_str(), nullptr, 16)));
    return bytes;
}

// Sends one request through the node's transport; returns the ioctl result.
int send(const std::string& node, uint32_t code, void* rec, uint32_t len, const Overrides& ov = {},
         bool verbose = false) {
    int fd = open(node.c_str(), O_RDWR | O_NONBLOCK);
    if (fd < 0) return -2;
    int rc;
    if (is_bsg(node)) {
        kvo_bsg_vendor_req_s req[2]{};  // 40 bytes: the declared request length fits
        req[0].msgcode = KVO_BSG_HST_VENDOR;
        req[0].vendor_id = KVO_PCI_VENDOR_ID;
        req[0].vendor_cmd[0] = vendor_cmd_of(code);
        kvo_bsg_reply_s reply{};
        sg_io_v4 h{};
        h.guard = 'Q';
        h.protocol = BSG_PROTOCOL_SCSI;
        h.subprotocol = BSG_SUB_PROTOCOL_SCSI_TRANSPORT;
        h.request_len = KVO_BSG_REQUEST_LEN;
        h.request = reinterpret_cast<uintptr_t>(&req);
        h.response = reinterpret_cast<uintptr_t>(&reply);
        h.max_response_len = sizeof reply;
        h.dout_xfer_len = h.din_xfer_len = len;
        h.dout_xferp = h.din_xferp = reinterpret_cast<uintptr_t>(rec);
        h.timeout = 60000;
        std::vector<uint8_t> other(len);
        uint64_t v;
        if (ov.has("guard", v)) h.guard = static_cast<int32_t>(v);
        if (ov.has("protocol", v)) h.protocol = static_cast<uint32_t>(v);
        if (ov.has("subprotocol", v)) h.subprotocol = static_cast<uint32_t>(v);
        if (ov.has("request_len", v)) h.request_len = static_cast<uint32_t>(v);
        if (ov.has("msgcode", v)) req[0].msgcode = static_cast<uint32_t>(v);
        if (ov.has("vendor_id", v)) req[0].vendor_id = v;
        if (ov.has("vcmd", v)) req[0].vendor_cmd[0] = static_cast<uint32_t>(v);
        if (ov.has("dout_len", v)) h.dout_xfer_len = static_cast<uint32_t>(v);
        if (ov.has("din_len", v)) h.din_xfer_len = static_cast<uint32_t>(v);
        if (ov.has("timeout", v)) h.timeout = static_cast<uint32_t>(v);
        if (ov.has("split", v)) h.din_xferp = reinterpret_cast<uintptr_t>(other.data());
        rc = ioctl(fd, kSgIo, &h);
        if (rc == 0 && verbose)
            printf("response_len=%u\nreply_len=%u\ndin_resid=%d\n", h.response_len, reply.reply_payload_rcv_len,
                   h.din_resid);
    } else if (node == "/dev/tqe") {
        rc = ioctl(fd, (code & ~0xFF00u) | 0x4400u, rec);
    } else {
        rc = ioctl(fd, code, rec);
    }
    int e = errno;
    close(fd);
    errno = e;
    return rc;
}

std::string wwn(wwn_t w) {
    uint8_t b[8];
    memcpy(b, &w, 8);
    char s[32];
    snprintf(s, sizeof s, "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7]);
    return s;
}

std::string mac(const mac_t& m) {
    char s[24];
    snprintf(s, sizeof s, "%02x:%02x:%02x:%02x:%02x:%02x", m.mac[0], m.mac[1], m.mac[2], m.mac[3], m.mac[4], m.mac[5]);
    return s;
}

template <size_t N>
std::string field(const char (&f)[N]) {
    return std::string(f, strnlen(f, N));
}

int cmd_info(const std::string& node, int kvod) {
    kvo_ioc_info_t r{};
    r.kvod_num = static_cast<uint16_t>(kvod);
    int rc = send(node, KVO_IOCMD_IOC_GET_INFO, &r, sizeof r, {}, true);
    if (rc != 0) return fail(rc == -2 ? "open" : "ioctl");
    printf("rc=0 status=%u kvod=%u\n", r.status, r.kvod_num);
    printf("serial=%s\nhwpath=%s\nadapter_hwpath=%s\nguid=%s\nname=%s\nport_name=%s\neth_name=%s\n",
           field(r.serialnum).c_str(), field(r.hwpath).c_str(), field(r.adapter_hwpath).c_str(),
           field(r.guid).c_str(), field(r.name).c_str(), field(r.port_name).c_str(), field(r.eth_name).c_str());
    printf("pwwn=%s\nnwwn=%s\nfactorypwwn=%s\nfactorynwwn=%s\n", wwn(r.pwwn).c_str(), wwn(r.nwwn).c_str(),
           wwn(r.factorypwwn).c_str(), wwn(r.factorynwwn).c_str());
    printf("mac=%s\nfactory_mac=%s\ncurrent_mac=%s\n", mac(r.mac).c_str(), mac(r.factory_mac).c_str(),
           mac(r.current_mac).c_str());
    printf("ioc_type=%u\npvid=%u\nhost=%u\nbandwidth=%u\n", r.ioc_type, r.pvid, r.host, r.bandwidth);
    return 0;
}

int cmd_attr(const std::string& node, int kvod) {
    kvo_ioc_attr_t r{};
    r.kvod_num = static_cast<uint16_t>(kvod);
    int rc = send(node, KVO_IOCMD_IOC_GET_ATTR, &r, sizeof r);
    if (rc != 0) return fail(rc == -2 ? "open" : "ioctl");
    const auto& a = r.adapter_attr;
    printf("rc=0 status=%u kvod=%u\n", r.status, r.kvod_num);
    printf("ioc_type=%u\nstate=%u\nport_id=%u\nport_mode=%u\npwwn=%s\nmac=%s\nbandwidth=%u\n", r.ioc_type, r.state,
           r.port_id, r.port_mode, wwn(r.pwwn).c_str(), mac(r.mac).c_str(), r.bandwidth);
    printf("manufacturer=%s\nserial_num=%s\nmodel=%s\nmodel_descr=%s\nadapter_type=%s\nfw_ver=%s\noptrom_ver=%s\n",
           field(a.manufacturer).c_str(), field(a.serial_num).c_str(), field(a.model).c_str(),
           field(a.model_descr).c_str(), field(a.adapter_type).c_str(), field(a.fw_ver).c_str(),
           field(a.optrom_ver).c_str());
    printf("card_type=%u\nmode=%u\nnports=%u\ncna_capable=%u\ntrunk_capable=%u\n", a.card_type, a.mode, a.nports,
           a.cna_capable, a.trunk_capable);
    printf("vendor_id=0x%04x\ndevice_id=0x%04x\npcifn=%u\ndriver_ver=%s\n", r.pci_attr.vendor_id, r.pci_attr.device_id,
           r.pci_attr.pcifn, field(r.driver_ver).c_str());
    return 0;
}

int cmd_raw(const std::string& node, uint32_t code, int kvod) {
    std::vector<uint8_t> rec(kvo_ioc_size(code) < 8 ? 8 : kvo_ioc_size(code));
    uint16_t k = static_cast<uint16_t>(kvod);
    memcpy(rec.data() + 4, &k, 2);
    int fd = open(node.c_str(), O_RDWR | O_NONBLOCK);
    if (fd < 0) return fail("open");
    int rc = ioctl(fd, code, rec.data());
    int e = errno;
    close(fd);
    errno = e;
    if (rc != 0) return fail("ioctl");
    uint32_t st;
    memcpy(&st, rec.data(), 4);
    printf("rc=0 status=%u\n", st);
    return 0;
}

int cmd_bsg(const std::string& node, uint32_t code, int kvod, int argc, char** argv) {
    Overrides ov;
    if (!parse_overrides(argc, argv, ov)) return 2;
    std::vector<uint8_t> rec(kvo_ioc_size(code) < 8 ? 8 : kvo_ioc_size(code));
    uint16_t k = static_cast<uint16_t>(kvod);
    memcpy(rec.data() + 4, &k, 2);
    int rc = send(node, code, rec.data(), static_cast<uint32_t>(rec.size()), ov);
    if (rc != 0) return fail(rc == -2 ? "open" : "ioctl");
    uint32_t st;
    memcpy(&st, rec.data(), 4);
    printf("rc=0 status=%u\n", st);
    return 0;
}

int cmd_fs(const std::string& op, const char* path, const char* text) {
    if (op == "ls") {
        DIR* d = opendir(path);
        if (d == nullptr) return fail("opendir");
        while (dirent* e = readdir(d))
            if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) printf("%s\n", e->d_name);
        closedir(d);
        return 0;
    }
    if (op == "lsat") {
        // The way libstdc++ walks a directory: openat from the working directory, then fdopendir.
        int fd = openat(AT_FDCWD, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0) return fail("openat");
        DIR* d = fdopendir(fd);
        if (d == nullptr) return fail("fdopendir");
        while (dirent* e = readdir(d))
            if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) printf("%s\n", e->d_name);
        closedir(d);
        return 0;
    }
    if (op == "scandir") {
        dirent** list = nullptr;
        int n = scandir(path, &list, nullptr, alphasort);
        if (n < 0) return fail("scandir");
        for (int i = 0; i < n; i++) {
            if (strcmp(list[i]->d_name, ".") != 0 && strcmp(list[i]->d_name, "..") != 0) printf("%s\n", list[i]->d_name);
            free(list[i]);
        }
        free(list);
        return 0;
    }
    if (op == "stat") {
        struct stat sb;
        if (stat(path, &sb) != 0) return fail("stat");
        printf("rc=0 %s size=%lld\n", S_ISDIR(sb.st_mode) ? "dir" : "file", static_cast<long long>(sb.st_size));
        return 0;
    }
    if (op == "cat") {
        FILE* f = fopen(path, "r");
        if (f == nullptr) return fail("fopen");
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, f)) > 0) fwrite(buf, 1, n, stdout);
        fclose(f);
        return 0;
    }
    if (op == "open") {
        int fd = open(path, O_RDWR | O_NONBLOCK);
        if (fd < 0) return fail("open");
        close(fd);
        printf("rc=0\n");
        return 0;
    }
    if (op == "realpath") {
        char buf[PATH_MAX];
        if (realpath(path, buf) == nullptr) return fail("realpath");
        printf("%s\n", buf);
        return 0;
    }
    if (op == "readlink") {
        char buf[PATH_MAX];
        ssize_t n = readlink(path, buf, sizeof buf - 1);
        if (n < 0) return fail("readlink");
        buf[n] = '\0';
        printf("%s\n", buf);
        return 0;
    }
    if (op == "write") {
        FILE* f = fopen(path, "w");
        if (f == nullptr) return fail("fopen");
        fputs(text, f);
        fclose(f);
        printf("rc=0\n");
        return 0;
    }
    return 2;
}

int ethtool(const char* ifname, void* data) {
    int s = socket(AF_INET, SOCK_DGRAM, 0);
    if (s < 0) return fail("socket");
    ifreq ifr{};
    snprintf(ifr.ifr_name, sizeof ifr.ifr_name, "%s", ifname);
    ifr.ifr_data = static_cast<char*>(data);
    int rc = ioctl(s, kSiocEthtool, &ifr);
    int e = errno;
    close(s);
    errno = e;
    if (rc != 0) return fail("SIOCETHTOOL");
    return 0;
}

int cmd_ethtool(int argc, char** argv) {
    if (argc < 2) return 2;
    const char* ifname = argv[0];
    const std::string op = argv[1];
    if (op == "flashdev" && argc >= 3) {
        kvol_ethtool_flash f{};
        f.cmd = KVO_ETHTOOL_FLASHDEV;
        f.region = argc >= 4 ? static_cast<uint32_t>(num(argv[3])) : 2;
        snprintf(f.data, sizeof f.data, "%s", argv[2]);
        if (ethtool(ifname, &f) != 0) return 1;
        printf("rc=0\n");
        return 0;
    }
    struct Eeprom {
        uint32_t cmd, magic, offset, len;
        uint8_t data[];
    };
    if (op == "geeprom" && (argc == 5 || argc == 6)) {
        uint32_t len = static_cast<uint32_t>(num(argv[4]));
        // With MAPPED, only that many bytes of the data area are mapped: the rest of the
        // caller's buffer lies in an inaccessible page.
        const size_t mapped = argc == 6 ? num(argv[5]) : len;
        const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        const size_t need = 16 + mapped;
        const size_t span = (need + page - 1) / page * page;
        void* map = mmap(nullptr, span + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (map == MAP_FAILED || mprotect(static_cast<uint8_t*>(map) + span, page, PROT_NONE) != 0) return fail("mmap");
        uint8_t* buf = static_cast<uint8_t*>(map) + span - need;
        auto* e = reinterpret_cast<Eeprom*>(buf);
        e->cmd = KVO_ETHTOOL_GEEPROM;
        e->magic = static_cast<uint32_t>(num(argv[2]));
        e->offset = static_cast<uint32_t>(num(argv[3]));
        e->len = len;
        int rc = ethtool(ifname, e);
        if (rc == 0) {
            printf("rc=0 data=");
            for (uint32_t i = 0; i < len; i++) printf("%02x", buf[16 + i]);
            printf("\n");
        }
        // What came back in the request itself (a read reports how much it did).
        printf("reply=magic 0x%08X offset 0x%X len %u\n", e->magic, e->offset, e->len);
        munmap(map, span + page);
        return rc;
    }
    if (op == "seeprom" && (argc == 5 || argc == 6)) {
        const std::string data_arg = argv[4];
        std::vector<uint8_t> bytes;
        if (!data_arg.empty() && data_arg[0] == '@') {
            bytes.resize(num(data_arg.c_str() + 1));
            for (size_t i = 0; i < bytes.size(); i++) bytes[i] = static_cast<uint8_t>((i * 37 + 11) & 0xFF);
        } else {
            bytes = hex_bytes(data_arg);
        }
        uint32_t n = static_cast<uint32_t>(bytes.size());
        uint32_t word = argc == 6 ? static_cast<uint32_t>(num(argv[5])) : n;
        std::vector<uint8_t> buf(16 + 4 + bytes.size());
        auto* e = reinterpret_cast<Eeprom*>(buf.data());
        e->cmd = KVO_ETHTOOL_SEEPROM;
        e->magic = static_cast<uint32_t>(num(argv[2]));
        e->offset = static_cast<uint32_t>(num(argv[3]));
        e->len = n + 4;
        memcpy(e->data, &word, 4);
        if (n > 0) memcpy(e->data + 4, bytes.data(), n);
        if (ethtool(ifname, e) != 0) return 1;
        printf("rc=0\n");
        return 0;
    }
    return 2;
}

void print_rc(int rc, const char* what) {
    if (rc == 0) printf("rc=0\n");
    else fail(what);
}

int cmd_ifioctl(const char* ifname, unsigned long request) {
    int s = socket(AF_INET, SOCK_DGRAM, 0);
    if (s < 0) return fail("socket");
    uint8_t data[64] = {};
    ifreq ifr{};
    snprintf(ifr.ifr_name, sizeof ifr.ifr_name, "%s", ifname);
    ifr.ifr_data = reinterpret_cast<char*>(data);
    int rc = ioctl(s, request, &ifr);
    print_rc(rc, "ioctl");
    close(s);
    return rc == 0 ? 0 : 1;
}

int cmd_devioctl(const char* path, unsigned long request) {
    int fd = open(path, O_RDONLY | O_NONBLOCK);
    if (fd < 0) return fail("open");
    uint8_t data[256] = {};
    int rc = ioctl(fd, request, data);
    print_rc(rc, "ioctl");
    close(fd);
    return rc == 0 ? 0 : 1;
}

int cmd_fdioctl(int fd, unsigned long request) {
    uint8_t data[256] = {};
    int rc = ioctl(fd, request, data);
    print_rc(rc, "ioctl");
    return rc == 0 ? 0 : 1;
}

// LUN masking: OP is enable, disable, clear, query, add or delete (the last two with LPWWN,
// RPWWN and LUN as eight hex bytes "0001000000000000"; LPWWN "0" lets the driver choose).
int cmd_lunmask(const std::string& node, int kvod, const std::string& op, int argc, char** argv) {
    static const std::map<std::string, uint32_t> codes = {
        {"enable", KVO_IOCMD_FCPIM_LUNMASK_ENABLE}, {"disable", KVO_IOCMD_FCPIM_LUNMASK_DISABLE},
        {"clear", KVO_IOCMD_FCPIM_LUNMASK_CLEAR},   {"query", KVO_IOCMD_FCPIM_LUNMASK_QUERY},
        {"add", KVO_IOCMD_FCPIM_LUNMASK_ADD},       {"delete", KVO_IOCMD_FCPIM_LUNMASK_DELETE}};
    auto it = codes.find(op);
    if (it == codes.end()) return 2;
    auto wwn_of = [](const char* t) {
        uint8_t b[8] = {};
        unsigned v[8];
        if (strcmp(t, "0") != 0 &&
            sscanf(t, "%x:%x:%x:%x:%x:%x:%x:%x", &v[0], &v[1], &v[2], &v[3], &v[4], &v[5], &v[6], &v[7]) == 8)
            for (int i = 0; i < 8; i++) b[i] = static_cast<uint8_t>(v[i]);
        uint64_t w;
        memcpy(&w, b, 8);
        return w;
    };
    auto show_wwn = [](uint64_t w) {
        uint8_t b[8];
        memcpy(b, &w, 8);
        printf("%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7]);
    };
    if (op == "add" || op == "delete") {
        if (argc != 3) return 2;
        kvo_ioctl_fcpim_lunmask_t r{};
        r.kvod_num = static_cast<uint16_t>(kvod);
        r.pwwn = wwn_of(argv[0]);
        r.rpwwn = wwn_of(argv[1]);
        uint64_t l = strtoull(argv[2], nullptr, 16);
        uint8_t b[8];
        for (int i = 0; i < 8; i++) b[i] = static_cast<uint8_t>(l >> (56 - 8 * i));
        memcpy(&r.lun, b, 8);
        if (send(node, it->second, &r, sizeof r) != 0) return 1;
        printf("rc=0 status=%u\npwwn=", r.status);
        show_wwn(r.pwwn);
        printf("\n");
        return 0;
    }
    if (op == "query") {
        kvo_ioctl_fcpim_lunmask_query_t r{};
        r.kvod_num = static_cast<uint16_t>(kvod);
        if (send(node, it->second, &r, sizeof r) != 0) return 1;
        printf("rc=0 status=%u\nmask_status=%u\n", r.status, r.lun_mask.status);
        for (int i = 0; i < KVO_LUNMASK_ENTRIES_MAX; i++) {
            const kvo_lun_mask_s& e = r.lun_mask.lun_list[i];
            if (e.state != KVO_LUNMASK_ENTRY_ACTIVE) continue;
            printf("entry=%d ", i);
            show_wwn(e.lp_wwn);
            printf(" ");
            show_wwn(e.rp_wwn);
            printf(" ");
            show_wwn(e.lun);
            printf(" rp_tag=%u\n", e.rp_tag);
        }
        return 0;
    }
    kvo_gen_t r{};
    r.kvod_num = static_cast<uint16_t>(kvod);
    if (send(node, it->second, &r, sizeof r) != 0) return 1;
    printf("rc=0 status=%u\n", r.status);
    return 0;
}

// One SG_IO (an INQUIRY of 36 bytes, from the device) with one header field spoiled: FIELD is
// none, interface_id, cmd_len, dxfer_direction, iovec_count, dxferp (an unmapped buffer),
// sbp or header (an unmapped header).
int cmd_sgio(const char* node, const std::string& field, long value) {
    int fd = open(node, O_RDWR | O_NONBLOCK);
    if (fd < 0) return fail("open");
    uint8_t cdb[6] = {0x12, 0, 0, 0, 36, 0};
    uint8_t data[36] = {};
    uint8_t sense[32] = {};
    sg_io_hdr_t h{};
    h.interface_id = 'S';
    h.dxfer_direction = SG_DXFER_FROM_DEV;
    h.cmd_len = sizeof cdb;
    h.cmdp = cdb;
    h.dxfer_len = sizeof data;
    h.dxferp = data;
    h.mx_sb_len = sizeof sense;
    h.sbp = sense;
    h.timeout = 30000;
    void* bad = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    void* arg = &h;
    if (field == "interface_id") h.interface_id = static_cast<int>(value);
    else if (field == "cmd_len") h.cmd_len = static_cast<unsigned char>(value);
    else if (field == "dxfer_direction") h.dxfer_direction = static_cast<int>(value);
    else if (field == "iovec_count") h.iovec_count = static_cast<unsigned short>(value);
    else if (field == "dxferp") h.dxferp = bad;
    else if (field == "header") arg = bad;
    else if (field != "none") return 2;
    int rc = ioctl(fd, SG_IO, arg);
    int e = errno;
    close(fd);
    errno = e;
    if (rc != 0) return fail("SG_IO");
    printf("rc=0 status=%u resid=%d info=%u\n", h.status, h.resid, h.info);
    return 0;
}

int cmd_threads(int n, const std::string& node, int kvod) {
    std::atomic<int> ok{0}, bad{0};
    std::vector<std::thread> ts;
    for (int i = 0; i < n; i++)
        ts.emplace_back([&] {
            for (int k = 0; k < 20; k++) {
                kvo_ioc_info_t r{};
                r.kvod_num = static_cast<uint16_t>(kvod);
                if (send(node, KVO_IOCMD_IOC_GET_INFO, &r, sizeof r) == 0 && r.status == 0 && r.serialnum[0] != '\0')
                    ok++;
                else
                    bad++;
            }
        });
    for (auto& t : ts) t.join();
    printf("ok=%d failed=%d\n", ok.load(), bad.load());
    return bad.load() == 0 ? 0 : 1;
}

int cmd_fcpt(const std::string& node, uint32_t msgcode, uint32_t d_id, const char* hex, int argc, char** argv) {
    Overrides ov;
    if (!parse_overrides(argc, argv, ov)) return 2;
    std::vector<uint8_t> payload = hex_bytes(hex);
    payload.resize(std::max<size_t>(payload.size(), 12));  // room for the preamble words
    // fc_bsg_request: msgcode, then per kind: rport ELS {els_code}, rport CT {preamble[3]},
    // host ELS {command_code, port_id[3]}, host CT {reserved, port_id[3], preamble[3]}.
    uint8_t req[KVO_BSG_REQUEST_LEN]{};
    const bool host = (msgcode & 0x80000000u) != 0;
    const bool els = msgcode == 0x40000001u || msgcode == 0x80000003u;
    uint64_t v;
    if (ov.has("msgcode", v)) msgcode = static_cast<uint32_t>(v);
    memcpy(req, &msgcode, 4);
    if (host) {
        req[5] = static_cast<uint8_t>(d_id >> 16);
        req[6] = static_cast<uint8_t>(d_id >> 8);
        req[7] = static_cast<uint8_t>(d_id);
    }
    if (els) req[4] = ov.has("code", v) ? static_cast<uint8_t>(v) : payload[0];
    else memcpy(req + (host ? 8 : 4), payload.data(), 12);
    if (!els && ov.has("preamble", v)) memcpy(req + (host ? 8 : 4), &v, 4);
    struct {
        uint32_t result, rcv_len, ctels_status;
        uint8_t action, reason, explanation, vendor;
    } reply{};
    std::vector<uint8_t> rsp(256);
    sg_io_v4 h{};
    h.guard = 'Q';
    h.protocol = BSG_PROTOCOL_SCSI;
    h.subprotocol = BSG_SUB_PROTOCOL_SCSI_TRANSPORT;
    h.request_len = KVO_BSG_REQUEST_LEN;
    h.request = reinterpret_cast<uintptr_t>(req);
    h.response = reinterpret_cast<uintptr_t>(&reply);
    h.max_response_len = sizeof reply;
    h.dout_xferp = reinterpret_cast<uintptr_t>(payload.data());
    h.dout_xfer_len = static_cast<uint32_t>(strlen(hex) / 2);
    h.din_xferp = reinterpret_cast<uintptr_t>(rsp.data());
    h.din_xfer_len = static_cast<uint32_t>(rsp.size());
    h.timeout = 60000;
    if (ov.has("dout_len", v)) h.dout_xfer_len = static_cast<uint32_t>(v);
    if (ov.has("din_len", v)) h.din_xfer_len = static_cast<uint32_t>(std::min<uint64_t>(v, rsp.size()));
    if (ov.has("timeout", v)) h.timeout = static_cast<uint32_t>(v);
    if (ov.has("iovec", v)) h.dout_iovec_count = static_cast<uint32_t>(v);
    int fd = open(node.c_str(), O_RDWR | O_NONBLOCK);
    if (fd < 0) return fail("open");
    int rc = ioctl(fd, kSgIo, &h);
    int e = errno;
    close(fd);
    errno = e;
    if (rc != 0) return fail("ioctl");
    printf("rc=0 result=%d rcv_len=%u ctels=%u reason=0x%02x resid=%d\nrsp=", static_cast<int>(reply.result),
           reply.rcv_len, reply.ctels_status, reply.reason, h.din_resid);
    for (uint32_t i = 0; i < reply.rcv_len && i < rsp.size(); i++) printf("%02x", rsp[i]);
    printf("\n");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: kvosim_probe COMMAND ARGS (see the source)\n");
        return 2;
    }
    const std::string cmd = argv[1];
    int rc = 2;
    if ((cmd == "info" || cmd == "attr") && argc == 4)
        rc = cmd == "info" ? cmd_info(argv[2], static_cast<int>(num(argv[3]))) : cmd_attr(argv[2], static_cast<int>(num(argv[3])));
    else if (cmd == "raw" && argc == 5)
        rc = cmd_raw(argv[2], static_cast<uint32_t>(num(argv[3])), static_cast<int>(num(argv[4])));
    else if (cmd == "bsg" && argc >= 5)
        rc = cmd_bsg(argv[2], static_cast<uint32_t>(num(argv[3])), static_cast<int>(num(argv[4])), argc - 5, argv + 5);
    else if (cmd == "write" && argc == 4)
        rc = cmd_fs(cmd, argv[2], argv[3]);
    else if (cmd == "ifioctl" && argc == 4)
        rc = cmd_ifioctl(argv[2], num(argv[3]));
    else if (cmd == "devioctl" && argc == 4)
        rc = cmd_devioctl(argv[2], num(argv[3]));
    else if (cmd == "fdioctl" && argc == 4)
        rc = cmd_fdioctl(static_cast<int>(num(argv[2])), num(argv[3]));
    else if (argc == 3 && cmd != "threads" && cmd != "ethtool")
        rc = cmd_fs(cmd, argv[2], nullptr);
    else if (cmd == "mount" && argc == 2) {
        if (mount("debugfs", "/sys/kernel/debug", "debugfs", 0, nullptr) != 0) return fail("mount");
        printf("rc=0\n");
        rc = 0;
    } else if (cmd == "ethtool")
        rc = cmd_ethtool(argc - 2, argv + 2);
    else if (cmd == "lunmask" && argc >= 5)
        rc = cmd_lunmask(argv[2], static_cast<int>(num(argv[3])), argv[4], argc - 5, argv + 5);
    else if (cmd == "sgio" && (argc == 4 || argc == 5))
        rc = cmd_sgio(argv[2], argv[3], argc == 5 ? static_cast<long>(num(argv[4])) : 0);
    else if (cmd == "fcpt" && argc >= 6)
        rc = cmd_fcpt(argv[2], static_cast<uint32_t>(num(argv[3])), static_cast<uint32_t>(num(argv[4])), argv[5],
                      argc - 6, argv + 6);
    else if (cmd == "threads" && argc == 5)
        rc = cmd_threads(static_cast<int>(num(argv[2])), argv[3], static_cast<int>(num(argv[4])));
    if (rc == 2) fprintf(stderr, "kvosim_probe: bad arguments\n");
    return rc;
}
