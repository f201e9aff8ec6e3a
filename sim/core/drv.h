#pragma once
// The emulated drivers' request interface. Every transport (the /dev/kvo ioctl, the bsg vendor
// request on an fc_host node, the /dev/tqe ioctl) is validated and decoded by the dispatcher
// (drv_dispatch.cpp) into one `Req`, which the handler of the request code answers.
//
// Handlers live in one file per family (drv_ioc.cpp, ...), each with a constant table of
// {code, name, handler, flags} registered with KVOSIM_HANDLERS; see sim/README.md.
#include <cstdint>
#include <cstring>
#include <iterator>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "bed.h"
#include "kvo_ioctl.h"

struct kvo_itnim_iostats_s;

namespace kvosim {

enum class Transport { bsg, ioctl, tqe, ethtool };
const char* transport_name(Transport t);

struct Req {
    State& st;
    Transport transport;
    const std::string& node;  // the node the request came through, as the caller named it
    uint32_t code;            // request code as the driver knows it (type byte restored on tqe)
    const char* name;         // its name without the KVO_IOCMD_ prefix
    int kvod;                 // kvod_num of the record
    FnRef target;             // the function kvod_num addresses (always set for a handler)
    std::span<uint8_t> data;  // the record, kvo_ioc_size(code) bytes; status is written from
                              // the handler's return value afterwards

    int err = 0;              // non-zero: the system call fails with this errno
    std::string note;         // appended to the log line

    // The record as its type; the header asserts that every record's size is its code's.
    template <class T>
    T& rec() {
        static_assert(std::is_trivially_copyable_v<T>);
        if (sizeof(T) != data.size()) bad_record_type(sizeof(T));
        return *reinterpret_cast<T*>(data.data());
    }
    Adapter& adapter() { return *target.adapter; }
    Port& port() { return *target.port; }
    Function& fn() { return *target.fn; }

    // The model changed: save state.json after the request; fs_changed also rebuilds root/.
    void changed() { st.dirty = true; }
    void fs_changed() { st.dirty = st.fs_dirty = true; }

    // Makes the system call fail (the record is left as the caller sent it).
    kvo_status_t fail_errno(int e, std::string why = {}) {
        err = e;
        note = std::move(why);
        return KVO_STATUS_OK;
    }

    [[noreturn]] void bad_record_type(size_t have) const;
};

// Copies between the caller's memory (an address inside a record) and ours; false when the
// range is not mapped, as the kernel's copy_from_user/copy_to_user would fail.
bool read_user(void* dst, uint64_t addr, size_t n);
bool write_user(uint64_t addr, const void* src, size_t n);

using Handler = kvo_status_t (*)(Req&);

enum : uint32_t {
    KVOSIM_NO_KVOD = 1,  // the record carries no kvod_num: target is the first function the
                         // transport reaches (the node's own on bsg)
};

struct HandlerEntry {
    uint32_t code;
    const char* name;
    Handler fn;
    uint32_t flags;
};

struct HandlerFamily {
    const char* family;
    const HandlerEntry* entries;
    size_t count;
};

// Registers a family's table at link time: the dispatcher walks the kvosim_handlers section.
#define KVOSIM_HANDLERS(family, table)                                                          \
    static const ::kvosim::HandlerFamily kvosim_family_##family = {#family, table,              \
                                                                   std::size(table)};           \
    [[gnu::used, gnu::section("kvosim_handlers")]] static const ::kvosim::HandlerFamily* const \
        kvosim_family_ptr_##family = &kvosim_family_##family

// The handler of a code (nullptr when none) and the name of a code (nullptr when unknown).
const HandlerEntry* find_handler(uint32_t code);
const HandlerEntry* find_handler_by_name(const std::string& name);
const char* code_name(uint32_t code);
// Parses "IOC_GET_INFO", "KVO_IOCMD_IOC_GET_INFO" or "0xC2104307".
bool parse_code(const std::string& s, uint32_t& code);
// errno names for the log and the fault rules.
const char* errno_name(int e);
// printf into a string, for log lines and notes (cut at 511 bytes).
std::string fmt(const char* f, ...) __attribute__((format(printf, 1, 2)));
bool parse_errno(const std::string& s, int& e);

// Copies a string into a fixed record field, always NUL-terminated.
template <size_t N>
void put_str(char (&dst)[N], const std::string& s) {
    size_t n = s.size() < N - 1 ? s.size() : N - 1;
    memcpy(dst, s.data(), n);
    memset(dst + n, 0, N - n);
}
// The storage driver starts again (kvosim restart): what waits for a start takes effect, such as
// a configured I/O throttle.
void fcpim_driver_start(Host& h);
// Emulated I/O (drv_iostats.cpp). The bed's I/O clock, in seconds; advance_io_clock runs I/O
// for that many seconds at every rate of the host (kvosim io).
uint64_t io_clock(const Host& h);
void advance_io_clock(Host& h, uint64_t seconds);
// Adds `seconds` of I/O at the rates of `io` ({"read_iops", "write_iops", "io_size"}) to the
// counters of s, each wrapping at 32 bits.
void add_io(kvo_itnim_iostats_s& s, const json& io, uint64_t seconds);
// The logical ports of a storage function, in wire order: its own port, then its NPIV ports.
std::vector<wwn_t> logical_ports(const Function& f);

// ioctl on a SCSI node (/dev/sgN, /dev/sdX, /dev/srN, /dev/stN, /dev/nstN), under the bed's lock.
struct NodeRef;
int scsi_node_ioctl(State& st, const NodeRef& node, unsigned long request, void* arg);

// WWN and MAC in wire order (the first written pair first).
wwn_t wire_wwn(uint64_t w);
mac_t wire_mac(const Mac& m);

}  // namespace kvosim
