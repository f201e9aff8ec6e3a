// The boot class: boot code package update of one adapter or of all, with a spinner while the
// library works in a thread of its own.
#include <pthread.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "kvol.h"
#include "qmx.h"
#include "qmxhandlers.h"
#include "qmxwrapper.h"

namespace {

const qmx_usage_entry boot_usage[] = {
    {"--blunZone", "-n <zone_name> -p <port_id> -r <rpwwn> -l <LUN#>",
     "\t\tConfigures a boot LUN zone on the fabric\n", true},
    {"--update", "<adapter_id> <image file> | <image file> -a",
     "\t\tUpdates the boot code of the adapter, or of all the adapters\n"
     "\t\twith -a, from the boot code package <image file>\n",
     false, " [-d <dev_id>]",
     "\t\tdev_id should be 13 for dual port and 17 for single port card\n"},
};

// The spinner gives up after this many one-second waits (20 minutes).
constexpr int PROGRESS_MAX_PASSES = 1200;
constexpr char SPINNER[] = "|/-\\";

struct waitCond_t {
    pthread_mutex_t mutex;
    pthread_cond_t cond;
    int value;  // 1 once the worker is done
};

// One update per command; set by the handler before the worker starts, and read by the handler
// after the worker signalled completion under wc.mutex.
std::string image;
uint16_t devid;
uint16_t update_status;
kvo_status_t boot_status[KVOL_BOOT_MAX_ADAPTERS];
waitCond_t wc = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER, 0};

bool all_digits(const char* s) {
    if (s == nullptr || *s == '\0') return false;
    for (; *s; s++)
        if (*s < '0' || *s > '9') return false;
    return true;
}

void* qmx_boot_update_thread(void* arg) {
    kvol_t* ioc = static_cast<kvol_t*>(arg);
    kvo_status_t s;
    try {
        s = kvol_boot_fwupdate(ioc, image.c_str(), devid, &update_status, boot_status);
    } catch (const std::bad_alloc&) {
        s = KVO_STATUS_ENOMEM;
    }
    if (pthread_mutex_lock(&wc.mutex) != 0) printf("lock waitCond mutex failed\n");
    wc.value = 1;
    if (pthread_cond_signal(&wc.cond) != 0) printf("signaling waitCond failed\n");
    if (pthread_mutex_unlock(&wc.mutex) != 0) printf("unlock waitCond mutex failed\n");
    return reinterpret_cast<void*>(static_cast<uintptr_t>(s));
}

// Runs the update in a worker thread and turns a spinner once a second until it is done.
int qmx_boot_update_progress_indicator(kvol_t* ioc) {
    wc.value = 0;
    timespec start{};
    clock_gettime(CLOCK_REALTIME, &start);
    pthread_t worker;
    if (pthread_create(&worker, nullptr, qmx_boot_update_thread, ioc) != 0) return KVO_STATUS_FAILED;
    if (pthread_mutex_lock(&wc.mutex) != 0) printf("lock main waitCond mutex failed\n");
    int pass = 0;
    while (wc.value == 0) {
        timespec deadline = start;
        deadline.tv_sec += pass + 1;
        if (pthread_cond_timedwait(&wc.cond, &wc.mutex, &deadline) != ETIMEDOUT || wc.value != 0)
            continue;
        printf("%c\r", SPINNER[pass % 4]);
        fflush(stdout);
        if (++pass > PROGRESS_MAX_PASSES) {
            printf("boot code update timed out \n");
            if (pthread_mutex_unlock(&wc.mutex) != 0) printf("unlock main waitCond mutex failed\n");
            // The worker uses the adapter scan, which the dispatcher frees after this handler:
            // it is told to stop and waited for (it ends after the flash request in progress).
            kvol_boot_cancel();
            pthread_join(worker, nullptr);
            return KVO_STATUS_BOOT_CODE_TIMEDOUT;
        }
    }
    if (pthread_mutex_unlock(&wc.mutex) != 0) printf("unlock main waitCond mutex failed\n");
    void* ret = nullptr;
    pthread_join(worker, &ret);
    return static_cast<int>(reinterpret_cast<uintptr_t>(ret));
}

int qmx_update_boot_code(kvol_adapter_t* ad) {
    int count = kvol_adapter_get_count();
    if (count > KVOL_BOOT_MAX_ADAPTERS) {
        printf("Adapter count exceeds the maximum!\n");
        return KVO_STATUS_FAILED;
    }
    kvol_t* ioc = nullptr;
    if (ad != nullptr) {
        ioc = kvol_adapter_get_first_ioc(ad);
        if (ioc == nullptr) return KVO_STATUS_FAILED;
    }
    struct stat sb;
    if (stat(image.c_str(), &sb) != 0 && errno == ENOENT) return KVO_STATUS_FILE_NOT_FOUND;

    printf("\n\nBoot code update can take a ");
    printf("lot of time to complete. \n");
    printf("Please don't terminate the ");
    printf("command as it could result in\n");
    printf("undesirable adapter state.\n\n");
    printf("Updating boot code...\n\n");

    int r = qmx_boot_update_progress_indicator(ioc);
    if (r == KVO_STATUS_BOOT_CODE_TIMEDOUT) return r;

    bool reboot = false;
    if (ad == nullptr) {
        int ok = 0;
        for (int i = 0; i < count; i++) {
            if ((update_status & (1u << i)) == 0) {
                printf("adapter id %d boot update failed\n", i + 1);
                fflush(stdout);
                fprintf(stderr, "ERROR: %s\n\n", kvol_status_to_string(boot_status[i]));
            } else {
                ok++;
            }
        }
        if (ok > 0) {
            if (ok != count)
                printf("Boot code successfully updated for %d out of %d adapters\n", ok, count);
            else
                printf("Boot code successfully updated for %d adapters\n", ok);
            reboot = true;
        }
    } else if (r == 0) {
        printf("\nBoot code updated successfully\n");
        reboot = true;
    }
    if (reboot) {
        printf("A reboot of the system ");
        printf("is needed for the newly updated image to be effective\n\n");
    }
    return r;
}

}  // namespace

void qmx_boot_usage(int extended) {
    qmx_print_usage("boot --update 1 <image file>", boot_usage, extended);
}

// boot --update <adapter_id> <image file> [-d <dev_id>]
// boot --update <image file> -a [-d <dev_id>]
int qmx_boot_update(char** argv, int argc, qmx_id_t*) {
    kvol_adapter_t* ad = nullptr;
    const char* file;
    if (!all_digits(argv[QMX_ARG_ID])) {
        file = argv[QMX_ARG_ID];
        if (strcmp(argv[QMX_ARG_1], "-a") != 0) return E_CLI_INCORRECT_CMD;
    } else {
        ad = qmx_get_adapter_id(argv[QMX_ARG_ID]);
        if (ad == nullptr) return E_CLI_INCORRECT_ADAPTER_ID;
        file = argv[QMX_ARG_1];
    }
    devid = 0;
    update_status = 0;
    if (qmx_has_arg(argc, QMX_ARG_2)) {
        if (strcmp(argv[QMX_ARG_2], "-d") != 0) return E_CLI_INCORRECT_CMD;
        if (argc != QMX_ARG_2 + 2) return E_CLI_TOO_FEW_ARGS;
        if (!all_digits(argv[QMX_ARG_2 + 1])) return E_CLI_INCORRECT_CMD;
        // Written as the hexadecimal id: "13" is 0x13.
        unsigned long v = strtoul(argv[QMX_ARG_2 + 1], nullptr, 16);
        devid = static_cast<uint16_t>(v > UINT16_MAX ? UINT16_MAX : v);
    }
    image = file;
    return qmx_update_boot_code(ad);
}
