// Small operating-system services of the library: the process mutex helpers, local time
// text, and where the persistent configuration lives.
#include <pthread.h>

#include <ctime>

#include "kvol.h"

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
