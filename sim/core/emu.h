#pragma once
// What the preload library asks of the emulated host: which paths are emulated, which emulated
// files are driver nodes, and the answers to ioctl on them.
#include <sys/types.h>

#include <cstdint>

#include <string>

namespace kvosim {

// Lexically normalised absolute path ("//a/./b/../c/" -> "/a/c/", trailing slash kept);
// returns false for a relative path.
bool normalise_path(const char* path, std::string& out);

// True when the (normalised) path lies under one of the emulated prefixes.
bool emulated_path(const std::string& vpath);

// The real file of an emulated path: <bed>/root<vpath>; "" when no bed is set.
std::string bed_file(const std::string& vpath);

// The virtual path of a real path inside the bed's root/, or "" when it is outside.
std::string virtual_of(const std::string& real);

enum class NodeKind { none, kvo, tqe, ipfc, bsg_host, fc_host, bsg_rport, rport, sg, scsi };
struct NodeRef {
    NodeKind kind = NodeKind::none;
    int host = -1;     // fc_host number of bsg_host / fc_host nodes
    std::string path;  // the node's path as the caller named it (normalised)
    int fd = -1;       // the descriptor the request came on (scsi nodes keep per-open settings)
};
// Classifies an emulated path; kind none for anything that is not a driver node.
NodeRef classify_node(const std::string& vpath);

// What stat shows for an emulated SCSI node (/dev/sgN, /dev/sdX, ...): a character or block
// device with the number the kernel's drivers give it, so that tools that match sysfs `dev`
// attributes against /dev find it. False for any other path.
bool node_identity(const std::string& vpath, mode_t& type, dev_t& rdev);

// ioctl on a descriptor opened on an emulated node: 0 or -1 with errno, as the kernel answers.
int node_ioctl(const NodeRef& node, unsigned long request, void* arg);
// A SCSI node was opened on this descriptor: its per-open settings start at the defaults.
void scsi_fd_opened(int fd);

// The SCSI part of root/ (scsi_device entries, their classes and nodes) of a host with many
// LUNs is written at the first access to one of its paths: scsi_fs_path tells those paths,
// ensure_scsi_fs writes it once.
bool scsi_fs_path(const std::string& vpath);
void ensure_scsi_fs();

// sysfs files the kernel acts on when written (a SCSI device's `delete`, a host's `scan`).
bool sysfs_action_file(const std::string& vpath);
// Acts on what was written to such a file, once: the file reads empty again afterwards.
void sysfs_written(const std::string& vpath);

// While a bed is active no ioctl reaches a device or network interface of the machine.
//
// True for the socket requests that address or configure a network device (interface,
// routing, ARP, bridge, bonding, wireless, device-private); not for a socket's own requests.
bool netdev_request(unsigned long request);
// Such a request, on any socket: SIOCETHTOOL for an interface of the bed is answered by the
// emulated kernel and driver; another request for one of its interfaces is UNHANDLED
// (EOPNOTSUPP); a request for any other interface, or for none, is refused (ENODEV) with a
// BAD line. 0 or -1 with errno.
int net_ioctl(unsigned long request, void* arg);
// True for a character device whose ioctls are the process's own business: terminals and the
// null, zero and full devices.
bool own_char_device(dev_t rdev);
// Refuses an ioctl on a device of the machine: -1, errno ENODEV, and a BAD line naming it.
int refuse_device_ioctl(int fd, unsigned long request);

// errno with which an open of this emulated path fails by a fault rule, or 0. When
// hash_listing is given, it is set to whether the directory lists in sysfs hash order.
int open_fault(const std::string& vpath, bool* hash_listing = nullptr);

// True for an emulated path inside sysfs (debugfs, /dev and the rest are other file systems).
bool sysfs_path(const std::string& vpath);
// True when the bed lists this (emulated) directory in sysfs hash order rather than sorted.
bool hash_listing(const std::string& vpath);

// On a bed whose "sleep" is "io_clock": advances the bed's I/O clock by the whole seconds of a
// sleep of this many nanoseconds and returns true, so that the caller returns at once instead
// of waiting. False (the caller sleeps) on any other bed or without one.
bool sleep_on_io_clock(uint64_t nanoseconds);

}  // namespace kvosim
