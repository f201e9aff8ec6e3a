// OS device names of SCSI devices: the disk or tape node that the host's upper-level driver made
// for a LUN, found through the device's children in sysfs. Older sysfs links the children from
// the device by "class:name" (block:sdb); the current one has a block directory holding the
// disk and a tape link to the st driver's first node.
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "kvol_linux.h"

namespace {

constexpr size_t PATH_LEN = 128;

// "/dev/<node>" into name; false when it does not fit (a name cut short would be another node).
bool dev_name(char (&name)[KVOL_OSNAME_LEN], const char* node) {
    const int n = snprintf(name, sizeof(name), "/dev/%s", node);
    return n > 0 && static_cast<size_t>(n) < sizeof(name);
}

// "/dev" and the last component of a link's text ("../scsi_tape/st0" gives /dev/st0); false
// when the text ends in "/".
bool name_from_link(const char* text, char (&name)[KVOL_OSNAME_LEN]) {
    const char* slash = strrchr(text, '/');
    const char* last = slash != nullptr ? slash + 1 : text;
    return *last != '\0' && dev_name(name, last);
}

}  // namespace

kvo_status_t kvol_get_osname(int host, int bus, int target, int lun, char (*names)[KVOL_OSNAME_LEN],
                             uint32_t* count) {
    if (names == nullptr || count == nullptr) return KVO_STATUS_EINVAL;
    *count = 1;
    char dev[PATH_LEN];
    snprintf(dev, sizeof(dev), "/sys/class/scsi_device/%d:%d:%d:%d/device/", host, bus, target,
             lun);
    char entry[PATH_LEN] = "";
    const char* kind = nullptr;
    const kvol_dir_scan r = kvol_dir_find(dev, [&](const char* name) {
        if (strncmp(name, "block", 5) == 0) kind = "block";
        else if (strncmp(name, "tape", 4) == 0) kind = "tape";
        else return false;
        kvol_copy_str(entry, name);
        return true;
    });
    if (r != kvol_dir_scan::found) return KVO_STATUS_FAILED;

    // Older sysfs: the link's name carries the node's (block:sdb).
    char tokens[PATH_LEN];
    kvol_copy_str(tokens, entry);
    char* save = nullptr;
    strtok_r(tokens, ":", &save);
    if (const char* second = strtok_r(nullptr, ":", &save))
        return dev_name(names[0], second) ? KVO_STATUS_OK : KVO_STATUS_FAILED;

    char path[PATH_LEN];
    if (snprintf(path, sizeof(path), "%s%s", dev, entry) >= static_cast<int>(sizeof(path)))
        return KVO_STATUS_FAILED;
    char text[PATH_LEN];
    ssize_t n = readlink(path, text, sizeof(text));
    if (n >= 0) {
        if (static_cast<size_t>(n) > sizeof(text) - 1) {
            printf("The symbolic link length exceeds the maximum\n");
            n = sizeof(text) - 1;
        }
        text[n] = '\0';
        return name_from_link(text, names[0]) ? KVO_STATUS_OK : KVO_STATUS_FAILED;
    }

    // Current sysfs: the child's directory holds the node's name (sdb; st0 and nst0 for a tape,
    // whichever the directory lists first).
    char child[PATH_LEN];
    if (snprintf(child, sizeof(child), "%s%s/", dev, kind) >= static_cast<int>(sizeof(child)))
        return KVO_STATUS_FAILED;
    const kvol_dir_scan c = kvol_dir_find(child, [&](const char* name) {
        return strchr(name, 's') != nullptr && dev_name(names[0], name);
    });
    return c == kvol_dir_scan::found ? KVO_STATUS_OK : KVO_STATUS_FAILED;
}
