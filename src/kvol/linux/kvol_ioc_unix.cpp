// Small operating-system services of the library: the process mutex helpers, local time
// text, where the persistent configuration lives, and the host's SCSI rescans and device
// removals.
#include <pthread.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "kvol_ioc_priv.h"

void kvol_get_mutex_lock(pthread_mutex_t* m) {
    if (m != nullptr) pthread_mutex_lock(m);
}

void kvol_release_mutex_lock(pthread_mutex_t* m) {
    if (m != nullptr) pthread_mutex_unlock(m);
}

// Formats the time as local date and time ("%x %X"), at most size - 1 characters.
// Returns 0, or 1 when nothing could be formatted.
int kvol_get_time_string(long seconds, char* buf, size_t size) {
    if (buf == nullptr || size == 0) return 1;
    const time_t t = static_cast<time_t>(seconds);
    struct tm tm {};
    if (localtime_r(&t, &tm) == nullptr) {
        buf[0] = '\0';
        return 1;
    }
    if (strftime(buf, size, "%x %X", &tm) == 0) {
        buf[0] = '\0';
        return 1;
    }
    return 0;
}

const char* kvol_get_cfg_path() { return "/etc/kvo.conf"; }

// ---- The host's SCSI devices ------------------------------------------------------------------
// Through the shell, as an administrator would do it by hand. The sysfs file is looked at first
// so that no shell is started for a host or device the kernel does not have; what the shell or
// the kernel then makes of the write is not reported.

namespace {

void echo_into(const char* what, const char* path, int path_len, size_t path_size) {
    if (path_len < 0 || static_cast<size_t>(path_len) >= path_size) return;  // cut: not a real file
    struct stat st {};
    if (stat(path, &st) != 0) return;
    char cmd[128];
    snprintf(cmd, sizeof(cmd), "echo %s > %s", what, path);
    const int rc = system(cmd);
    (void)rc;
}

}  // namespace

void kvol_os_scsi_host_rescan(uint32_t host) {
    char path[64];
    const int n = snprintf(path, sizeof(path), "/sys/class/scsi_host/host%u/scan", host);
    echo_into("'- - -'", path, n, sizeof(path));
}

void kvol_os_scsi_device_remove(uint32_t host, uint32_t bus, uint32_t target, uint32_t lun) {
    char path[64];
    const int n = snprintf(path, sizeof(path), "/sys/class/scsi_device/%d:%d:%d:%d/device/delete",
                           static_cast<int>(host), static_cast<int>(bus), static_cast<int>(target),
                           static_cast<int>(lun));
    echo_into("1", path, n, sizeof(path));
}
