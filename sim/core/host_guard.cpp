// What of the machine itself a process on a bed may still reach with ioctl: its terminals and
// the null, zero and full devices, which are the process's own business (stdio asks a terminal
// for its settings, a shell for its process group). Any other character or block device is a
// device of the machine, which no test may touch: the request is refused and logged.
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>

#include "drv.h"
#include "emu.h"

namespace kvosim {

namespace {

// The device's class in sysfs ("tty" for every terminal driver), "" when it has none.
std::string char_class(dev_t rdev) {
    char link[64];
    snprintf(link, sizeof link, "/sys/dev/char/%u:%u/subsystem", major(rdev), minor(rdev));
    char target[PATH_MAX];
    ssize_t n = readlink(link, target, sizeof target - 1);
    if (n <= 0) return "";
    target[n] = '\0';
    const char* slash = strrchr(target, '/');
    return slash ? slash + 1 : target;
}

}  // namespace

bool own_char_device(dev_t rdev) {
    const unsigned maj = major(rdev), min = minor(rdev);
    if (maj == 1 && (min == 3 || min == 5 || min == 7)) return true;  // null, zero, full
    // Virtual consoles and serial lines, /dev/tty, the console and ptmx, and pseudo-terminals
    // have these majors on every Linux system; other terminal drivers show as class tty.
    if (maj == 4 || maj == 5 || (maj >= 136 && maj <= 143)) return true;
    return char_class(rdev) == "tty";
}

int refuse_device_ioctl(int fd, unsigned long request) {
    char link[32];
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    char path[PATH_MAX];
    ssize_t n = readlink(link, path, sizeof path - 1);
    std::string name = n > 0 ? std::string(path, static_cast<size_t>(n)) : fmt("descriptor %d", fd);
    if (!env_bed().empty())
        append_log(env_bed(), "BAD host " + name + fmt(" ioctl 0x%lx", request) +
                                  " -> errno=ENODEV (a device of the machine, not of the bed)");
    errno = ENODEV;
    return -1;
}

}  // namespace kvosim
