// kvol_luns IOC RPWWN: the LUNs kvol_fcpim_get_luns gives for the target RPWWN of the IOC with
// that global index, seen from the IOC's own port. For scenarios on calls that no command makes
// yet. Prints "status=<s> count=<n>", then one LUN per line.
#include <cstdio>
#include <cstdlib>

#include "kvol.h"
#include "qmxwrapper.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: kvol_luns IOC RPWWN\n");
        return 2;
    }
    wwn_t rpwwn = 0;
    if (!qmx_get_port_wwn(argv[2], &rpwwn)) return 2;
    kvol_libinit(0);
    kvol_adapter_scan();
    kvol_t* h = kvol_adapter_open_ioc(atoi(argv[1]));
    kvo_ioc_info_t info{};
    if (h == nullptr || kvol_ioc_get_info(h, &info) != KVO_STATUS_OK) return 1;
    static lun_t luns[KVOL_FCPIM_MAX_LUNS];
    uint32_t count = 0;
    const kvo_status_t st = kvol_fcpim_get_luns(h, info.pwwn, rpwwn, luns, &count);
    printf("status=%d count=%u\n", static_cast<int>(st), count);
    for (uint32_t i = 0; i < count; ++i) {
        qmx_print_lun(luns[i]);
        printf("\n");
    }
    kvol_adapter_free();
    kvol_libexit();
    return 0;
}
