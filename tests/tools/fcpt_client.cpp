// fcpt_client: one FC pass-through frame through the library (kvol_fcpt), as a command of the
// host software would send it. Run it under `kvosim run`.
//   fcpt_client IOC RPWWN|0 els|ct D_ID PAYLOAD
// IOC is the global index of a storage function of the scan; RPWWN the remote port (0: a frame
// to the fabric); D_ID goes into the frame header; PAYLOAD is hex. Prints the result and, on
// success, the response's length and the response, on one line.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kvol.h"

int main(int argc, char** argv) {
    if (argc != 6) {
        fprintf(stderr, "usage: fcpt_client IOC RPWWN|0 els|ct D_ID PAYLOAD\n");
        return 2;
    }
    uint8_t rp[8] = {};
    if (strcmp(argv[2], "0") != 0 &&
        sscanf(argv[2], "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx", &rp[0], &rp[1], &rp[2], &rp[3], &rp[4],
               &rp[5], &rp[6], &rp[7]) != 8) {
        fprintf(stderr, "fcpt_client: bad WWN %s\n", argv[2]);
        return 2;
    }
    wwn_t rpwwn;
    memcpy(&rpwwn, rp, sizeof(rpwwn));
    const uint32_t d_id = static_cast<uint32_t>(strtoul(argv[4], nullptr, 16));
    uint8_t fchs[24] = {};  // R_CTL, D_ID, CS_CTL, S_ID, TYPE, ...
    fchs[0] = 0x22;         // unsolicited control (an ELS or CT request)
    fchs[1] = static_cast<uint8_t>(d_id >> 16);
    fchs[2] = static_cast<uint8_t>(d_id >> 8);
    fchs[3] = static_cast<uint8_t>(d_id);
    fchs[8] = strcmp(argv[3], "ct") == 0 ? KVO_FC_TYPE_CT : KVO_FC_TYPE_ELS;
    std::vector<uint8_t> req;
    for (const char* p = argv[5]; p[0] != '\0' && p[1] != '\0'; p += 2)
        req.push_back(static_cast<uint8_t>(strtoul(std::string(p, 2).c_str(), nullptr, 16)));

    kvol_libinit(0);
    kvol_adapter_scan();
    kvol_t* h = kvol_adapter_open_ioc(atoi(argv[1]));
    if (h == nullptr) {
        fprintf(stderr, "fcpt_client: no IOC %s\n", argv[1]);
        return 2;
    }
    std::vector<uint8_t> rsp(256);
    uint32_t len = static_cast<uint32_t>(rsp.size());
    kvo_status_t st = kvol_fcpt(h, 0, kvol_ioc_get_pwwn(h), rpwwn, 3, 10, 0, fchs, req.data(),
                                static_cast<uint32_t>(req.size()), rsp.data(), &len);
    printf("rc=%d", st);
    if (st == KVO_STATUS_OK) {
        printf(" len=%u rsp=", len);
        for (uint32_t i = 0; i < len; i++) printf("%02x", rsp[i]);
    }
    printf("\n");
    kvol_adapter_free();
    kvol_libexit();
    return 0;
}
