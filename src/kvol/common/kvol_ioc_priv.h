#pragma once
// The library's own pieces shared by its units: the one request path to the drivers, the one
// bounded copy, the IOC list and the adapter tree as discovery fills them. Nothing here knows
// the platform: the transport behind kvol_ioctl and the discovery that fills the list live in
// the platform's directory.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <type_traits>

#include "kvol.h"

constexpr int KVOL_MAX_PCI_FN = 128;  // PCI functions one scan records
constexpr int KVOL_MAX_PORTS = 128;   // port ids above this are a garbled reply

// Zeroed heap record for the library's linked lists (released with free()).
template <class T>
T* kvol_calloc() {
    static_assert(std::is_trivially_copyable_v<T> && std::is_standard_layout_v<T>);
    return static_cast<T*>(std::calloc(1, sizeof(T)));
}

// A malloc'ed block owned by a scope (released with free()).
struct kvol_free_deleter {
    void operator()(void* p) const { std::free(p); }
};
template <class T>
using kvol_heap = std::unique_ptr<T, kvol_free_deleter>;

// A zeroed heap record owned by the caller's scope (records too large for the stack).
template <class T>
struct kvol_heap_record {
    kvol_heap_record() : p(kvol_calloc<T>()) {}
    ~kvol_heap_record() { std::free(p); }
    kvol_heap_record(const kvol_heap_record&) = delete;
    kvol_heap_record& operator=(const kvol_heap_record&) = delete;
    explicit operator bool() const { return p != nullptr; }
    T* operator->() const { return p; }
    T& operator*() const { return *p; }
    T* p;
};

// Copies a possibly unterminated source field of at most src_size bytes into a fixed field;
// the result is always terminated, cut to the field, and the rest of the field zeroed. The only
// way text enters a fixed field.
template <size_t N>
void kvol_copy_str(char (&dst)[N], const char* src, size_t src_size) {
    static_assert(N > 0);
    size_t len = (src == nullptr) ? 0 : strnlen(src, src_size);
    if (len > N - 1) len = N - 1;
    if (len > 0) memcpy(dst, src, len);
    memset(dst + len, 0, N - len);
}
// The same for a terminated source string.
template <size_t N>
void kvol_copy_str(char (&dst)[N], const char* src) {
    kvol_copy_str(dst, src, N);
}

// ---- The request path -------------------------------------------------------------------------

// Sends one request record to the driver instance of h and returns one verdict: the channel's
// failure when the request could not be delivered, else the status the driver wrote into the
// record. The code's size field must equal the record's size; a mismatch does not compile.
// A new request is its record, its code and one call of this.
template <uint32_t Code, class Rec>
kvo_status_t kvol_request(kvol_t* h, Rec& rec) {
    static_assert(kvo_ioc_size(Code) == sizeof(Rec), "request code and record size differ");
    static_assert(std::is_standard_layout_v<Rec> && offsetof(Rec, status) == 0);
    if (h == nullptr) return KVO_STATUS_EINVAL;
    rec.kvod_num = static_cast<uint16_t>(h->instance);
    kvo_status_t rc = kvol_ioctl(h, Code, &rec, sizeof(Rec), sizeof(Rec), sizeof(Rec));
    if (rc != KVO_STATUS_OK) return rc;
    return static_cast<kvo_status_t>(rec.status);
}

// The same for a request whose code covers only its head (rec.head, at the start of rec): the
// data area behind the head travels with it.
template <uint32_t Code, class Rec>
kvo_status_t kvol_request_area(kvol_t* h, Rec& rec) {
    static_assert(kvo_ioc_size(Code) == sizeof(rec.head), "request code and head size differ");
    static_assert(std::is_standard_layout_v<Rec> && offsetof(Rec, head) == 0);
    if (h == nullptr) return KVO_STATUS_EINVAL;
    rec.head.kvod_num = static_cast<uint16_t>(h->instance);
    kvo_status_t rc = kvol_ioctl(h, Code, &rec, sizeof(rec.head), sizeof(Rec), sizeof(Rec));
    if (rc != KVO_STATUS_OK) return rc;
    return static_cast<kvo_status_t>(rec.head.status);
}

// A request that carries nothing but the instance (enable, disable, reload and the like).
template <uint32_t Code>
kvo_status_t kvol_request_gen(kvol_t* h) {
    kvo_gen_t req{};
    return kvol_request<Code>(h, req);
}

// ---- The IOC list and the adapter tree -----------------------------------------------------------

// The PCI function number: the hex digits after the last '.' of the address, -1 if none.
int kvol_parse_pcifn(const char* hwpath, size_t size);
// Fills an IOC record from the driver's IOC information reply (bounded copies only).
void kvol_ioc_fill_from_info(kvol_t* rec, const kvo_ioc_info_t* info);

// The global IOC list (kept by the scan): append a record, set the count.
void kvol_ioc_list_push(kvol_t* rec);
void kvol_ioc_set_num(int n);

// Adds one IOC to the adapter tree from its attributes and identity: sets its port, PCI
// function, PCI ids and adapter id, and puts a copy of the record into its port's list.
// *added is the adapter made for it, or null when it joined an existing one. Fails with
// KVO_STATUS_ENOMEM, or KVO_STATUS_FAILED when the reply names an impossible port.
kvo_status_t kvol_adapter_tree_add(kvol_t* h, const kvo_ioc_attr_t* attr,
                                   const kvo_ioc_info_t* info, kvol_adapter_t** added);
// The first adapter of the tree, null when there is none.
kvol_adapter_t* kvol_adapter_list_head();

// ---- SCSI pass-through (the platform's side) ---------------------------------------------------

// Makes h ready for one SCSI command to `lun` behind the remote port rpwwn: the I-T nexus must
// be online (else KVO_STATUS_NO_FCPIM_NEXUS), and the host's node for the LUN is opened into
// h->sg_fd. Returns the failing query's status, KVO_STATUS_FAILED when no node is found or it
// will not open ("Opening file %s failed" printed), KVO_STATUS_ENOMEM, or -12 when the nexus
// attributes cannot be allocated.
kvo_status_t kvol_prep_scsi_passthru_sg(kvol_t* h, uint16_t vf_id, wwn_t lpwwn, wwn_t rpwwn,
                                        lun_t lun);
// Closes the node a pass-through left open, if any.
void kvol_scsi_passthru_end(kvol_t* h);

// ---- REPORT LUNS data --------------------------------------------------------------------------

// Filters REPORT LUNS data of `size` bytes through the port's mask table: when the whole list
// is in the buffer and masking is enabled, keeps LUN 0 and the LUNs with an entry in use for
// (lpwwn, rpwwn), packed from offset 8 of an otherwise zeroed buffer, and sets the list length.
// Returns 1 when it rewrote the data, else 0.
int kvol_scsi_lm_filter_rpl(const kvo_lunmask_cfg_s& mask, wwn_t lpwwn, wwn_t rpwwn, uint8_t* data,
                            uint32_t size);
