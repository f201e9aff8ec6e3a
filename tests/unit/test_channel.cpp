// The driver channel's pure pieces: the bsg request-code map, errno mapping, the Ethernet
// type-byte rewrite, bsg and SCSI generic framing, and the refusals that happen before any
// system call.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <set>
#include <utility>
#include <vector>

#include "kvol.h"
#include "kvol_linux.h"

namespace {

// Request code and vendor command number of every mapped request, as the driver numbers them.
const std::vector<std::pair<uint32_t, uint32_t>> kMapped = {
    {0xC0084303, 1}, {0xC0084304, 2}, {0xC6604306, 3}, {0xC2104307, 4},
    {0xC0504308, 5}, {0xC018430C, 6}, {0xC0084309, 7}, {0xC008430D, 8},
    {0xC048430A, 9}, {0xC048430B, 10}, {0xC0084310, 11}, {0xC048B001, 12},
    {0xC010B002, 13}, {0xC0084334, 14}, {0xC0084335, 15}, {0xC1804336, 16},
    {0xC0184337, 17}, {0xC008433A, 18}, {0xC010433B, 19}, {0xC010433C, 20},
    {0xC010433D, 21}, {0xC008433F, 22}, {0xC010433E, 23}, {0xC0084345, 24},
    {0xC0084346, 25}, {0xC00C4347, 26}, {0xC170B101, 27}, {0xC020B105, 28},
    {0xC108B103, 29}, {0xC010B104, 30}, {0xC120B102, 31}, {0xC168B205, 32},
    {0xC028B206, 33}, {0xC120B203, 34}, {0xC018B204, 35}, {0xC020B207, 36},
    {0xC178B305, 37}, {0xC158B306, 38}, {0xC010B307, 39}, {0xC018BE01, 40},
    {0xC008B701, 41}, {0xC008B702, 42}, {0xC00CB703, 43}, {0xC008B801, 44},
    {0xC118B803, 45}, {0xC008B804, 46}, {0xC028B805, 47}, {0xC028BB01, 48},
    {0xC128BB02, 49}, {0xC018BB03, 50}, {0xC048BB04, 51}, {0xC238430E, 52},
    {0xC008C103, 53}, {0xC008C104, 54}, {0xC018435E, 55}, {0xC018435F, 56},
    {0xC0184363, 57}, {0xC010430F, 58}, {0xC0104344, 59}, {0xC0084357, 60},
    {0xC0084358, 61}, {0xC018C303, 62}, {0xC018434B, 63}, {0xC018434C, 64},
    {0xC008434A, 65}, {0xC00C434E, 66}, {0xC00C434F, 67}, {0xC4104352, 68},
    {0xC0184353, 69}, {0xC0184354, 70}, {0xC0184355, 71}, {0xC0184314, 72},
    {0xC0384316, 73}, {0xC0304317, 74}, {0xC0204318, 75}, {0xC0184319, 76},
    {0xC100431B, 77}, {0xC018431C, 78}, {0xC014431D, 79}, {0xC008431F, 80},
    {0xC024435C, 81}, {0xC028435D, 82}, {0xC018435A, 83}, {0xC018435B, 84},
    {0xC02C4369, 85}, {0xC020432B, 86}, {0xC020432A, 87}, {0xC0084329, 88},
    {0xC008432C, 89}, {0xC008432E, 90}, {0xC008432F, 91}, {0xC010432D, 92},
    {0xC170C101, 96}, {0xC008C102, 97}, {0xC098B901, 98}, {0xC098B902, 99},
    {0xC090B903, 100}, {0xC0104350, 101}, {0xC0104351, 102}, {0xC008C201, 103},
    {0xC008C202, 104}, {0xC048C203, 105}, {0xC008B601, 106}, {0xC008B602, 107},
    {0xC018B603, 108}, {0xC050B604, 109}, {0xC050B605, 110}, {0xC008B606, 111},
    {0xC038B408, 112}, {0xC008B409, 113}, {0xC008B807, 114}, {0xC008B808, 115},
    {0xC008B80B, 116}, {0xC210B806, 116}, {0xC020B809, 118}, {0xC020B80A, 119},
    {0xC0104320, 120}, {0xC0084321, 121}, {0xC00CB607, 122}, {0xC010B80C, 123},
    {0xC010B80D, 124}, {0xC050436E, 125}, {0xC050436F, 126}, {0xD0144370, 127},
    {0xD0144371, 128}, {0xC00C4372, 129}, {0xC0804322, 130}, {0xC0104323, 131},
};

// Codes that pass the map unchanged: they have their own transport.
const uint32_t kPassThrough[] = {0xC0204325, 0xC0204327, 0xC0204328, 0xC0204311, 0xC0184313,
                                 0xC050BA01, 0xC060BA02, 0xC140B301, 0xC018B302};

// A handle with no descriptor open.
kvol_t closed_ioc(kvo_ioc_type_e type) {
    kvol_t h{};
    h.fd = h.sg_fd = h.ipfc_fd = -1;
    h.ioc_type = type;
    return h;
}

}  // namespace

TEST(ChannelMap, EveryMappedCodeGivesItsDriverNumber) {
    ASSERT_EQ(kMapped.size(), 128u);
    for (const auto& [code, number] : kMapped) {
        uint32_t c = code;
        EXPECT_EQ(kvol_map_opensrc_iocmd_codes(&c), 0) << std::hex << code;
        EXPECT_EQ(c, number) << std::hex << code;
    }
}

TEST(ChannelMap, TableHas137EntriesAndOnlyLunMaskClearAndQueryShareANumber) {
    EXPECT_EQ(std::size(kvo_bsg_cmd_map), 137u);
    std::set<uint32_t> codes;
    std::vector<uint32_t> shared;
    std::set<uint32_t> numbers;
    for (const auto& m : kvo_bsg_cmd_map) {
        EXPECT_TRUE(codes.insert(m.code).second) << "duplicate code " << std::hex << m.code;
        if (m.vendor_cmd == 0) continue;
        if (!numbers.insert(m.vendor_cmd).second) shared.push_back(m.vendor_cmd);
    }
    EXPECT_EQ(shared, std::vector<uint32_t>{116});
    for (uint32_t unused : {93u, 94u, 95u, 117u}) EXPECT_EQ(numbers.count(unused), 0u) << unused;
    EXPECT_EQ(numbers.size(), 127u);
    EXPECT_EQ(*numbers.begin(), 1u);
    EXPECT_EQ(*numbers.rbegin(), 131u);
    uint32_t clear = KVO_IOCMD_FCPIM_LUNMASK_CLEAR, query = KVO_IOCMD_FCPIM_LUNMASK_QUERY;
    kvol_map_opensrc_iocmd_codes(&clear);
    kvol_map_opensrc_iocmd_codes(&query);
    EXPECT_EQ(clear, 116u);
    EXPECT_EQ(query, 116u);
}

// Codes with their own transport pass unchanged; unknown ones (the version check, a code one
// off a mapped one, a mapped number itself, zero, all ones) are refused and left alone.
TEST(ChannelMap, UnmappedCodesAreLeftAloneAndOnlyUnknownOnesRefused) {
    std::vector<std::pair<uint32_t, int>> rows;
    for (uint32_t code : kPassThrough) rows.push_back({code, 0});
    for (uint32_t code : {0xC0084301u, 0xC0084305u, 0xC2104308u, 3u, 0u, 0xFFFFFFFFu})
        rows.push_back({code, 1});
    for (const auto& [code, refused] : rows) {
        uint32_t c = code;
        EXPECT_EQ(kvol_map_opensrc_iocmd_codes(&c), refused) << std::hex << code;
        EXPECT_EQ(c, code) << std::hex << code;
    }
    EXPECT_EQ(kvol_map_opensrc_iocmd_codes(nullptr), 1);
}

TEST(ChannelErrno, MappedErrnosAndTheFallback) {
    EXPECT_EQ(kvol_errno_to_status(ENOMEM), KVO_STATUS_ENOMEM);
    EXPECT_EQ(kvol_errno_to_status(EINTR), KVO_STATUS_EINTR);
    EXPECT_EQ(kvol_errno_to_status(EIO), KVO_STATUS_EIO);
    EXPECT_EQ(kvol_errno_to_status(ENXIO), KVO_STATUS_ENXIO);
    EXPECT_EQ(kvol_errno_to_status(EBADF), KVO_STATUS_EBADF);
    EXPECT_EQ(kvol_errno_to_status(ENODEV), KVO_STATUS_NODEV);
    EXPECT_EQ(kvol_errno_to_status(EINVAL), KVO_STATUS_EINVAL);
    EXPECT_EQ(kvol_errno_to_status(ENOTTY), KVO_STATUS_ENOTTY);
    EXPECT_EQ(kvol_errno_to_status(95), KVO_STATUS_CMD_NOTSUPP);
    for (int e : {0, ENOENT, EACCES, EPERM, EAGAIN, EBUSY, -1, 100000})
        EXPECT_EQ(kvol_errno_to_status(e), KVO_STATUS_FAILED) << e;
}

TEST(ChannelEthernet, TypeByteBecomesD) {
    EXPECT_EQ(kvol_eth_ioctl_code(0xC0084334), 0xC0084434u);
    EXPECT_EQ(kvol_eth_ioctl_code(0xC6604306), 0xC6604406u);
    EXPECT_EQ(kvol_eth_ioctl_code(0xC008B701), 0xC0084401u);  // other type bytes too
    EXPECT_EQ(kvol_eth_ioctl_code(0xD0144370), 0xD0144470u);
    EXPECT_EQ(kvol_eth_ioctl_code(0xC0084434), 0xC0084434u);
}

TEST(ChannelBsg, VendorFrameCarriesTheMappedNumberAndPointsBothTransfersAtTheRecord) {
    sg_io_v4 hdr;
    uint8_t req[32];
    memset(req, 0xAA, sizeof(req));
    kvo_bsg_reply_s reply{};
    kvo_ioc_attr_t rec{};
    ASSERT_EQ(kvol_bsg_vendor_frame(&hdr, req, 3, &rec, sizeof(rec), &reply), KVO_STATUS_OK);
    EXPECT_EQ(hdr.guard, static_cast<int>('Q'));
    EXPECT_EQ(hdr.protocol, 0u);
    EXPECT_EQ(hdr.subprotocol, 2u);
    EXPECT_EQ(hdr.request_len, 32u);
    EXPECT_EQ(hdr.request, reinterpret_cast<uintptr_t>(req));
    EXPECT_EQ(hdr.timeout, 60000u);
    EXPECT_EQ(hdr.dout_xferp, reinterpret_cast<uintptr_t>(&rec));
    EXPECT_EQ(hdr.din_xferp, reinterpret_cast<uintptr_t>(&rec));
    EXPECT_EQ(hdr.dout_xfer_len, 1632u);
    EXPECT_EQ(hdr.din_xfer_len, 1632u);
    EXPECT_EQ(hdr.response, reinterpret_cast<uintptr_t>(&reply));
    EXPECT_GE(hdr.max_response_len, sizeof(reply));
    // msgcode, 64-bit vendor id, vendor command: 20 bytes, little-endian; the rest zero.
    const uint8_t expect[20] = {0xFF, 0x00, 0x00, 0x80, 0xF2, 0xE1, 0, 0, 0, 0,
                                0,    0,    3,    0,    0,    0,    0, 0, 0, 0};
    EXPECT_EQ(memcmp(req, expect, sizeof(expect)), 0);
    for (size_t i = 20; i < sizeof(req); ++i) EXPECT_EQ(req[i], 0) << i;
    // A length the header cannot carry.
    EXPECT_EQ(kvol_bsg_vendor_frame(&hdr, req, 1, &rec, size_t{1} << 33, &reply),
              KVO_STATUS_FAILED);
}

TEST(ChannelBsg, UnknownCodeOnABsgNodeIsRefusedBeforeAnySystemCall) {
    kvol_t h = closed_ioc(KVO_IOC_TYPE_FC);
    // A node that cannot exist: reaching open() would give KVO_STATUS_NO_DRIVER instead.
    snprintf(h.devpath, sizeof(h.devpath), "/dev/bsg/fc_host_missing_node");
    kvo_gen_t rec{};
    kvol_set_last_error(KVO_STATUS_OK);
    EXPECT_EQ(kvol_ioctl(&h, KVO_IOCMD_IOC_CHECK_VERSION, &rec, 8, 8, 8), KVO_STATUS_CMD_NOTSUPP);
    EXPECT_EQ(kvol_get_last_error(), KVO_STATUS_OK);
    // A mapped code does reach the node, and the failed open is reported as no driver.
    EXPECT_EQ(kvol_ioctl(&h, KVO_IOCMD_IOC_ENABLE, &rec, 8, 8, 8), KVO_STATUS_NO_DRIVER);
    EXPECT_EQ(kvol_get_last_error(), KVO_STATUS_NO_DRIVER);
    kvol_set_last_error(KVO_STATUS_OK);
    // The same unknown code on the control node is not filtered.
    snprintf(h.devpath, sizeof(h.devpath), "/dev/kvo_missing_node");
    EXPECT_EQ(kvol_ioctl(&h, KVO_IOCMD_IOC_CHECK_VERSION, &rec, 8, 8, 8), KVO_STATUS_NO_DRIVER);
    kvol_set_last_error(KVO_STATUS_OK);
}

TEST(ChannelEthernet, FailedIoctlIsMappedFromErrno) {
    kvol_t h = closed_ioc(KVO_IOC_TYPE_LL);
    kvo_gen_t rec{};
    EXPECT_EQ(kvol_ioctl(&h, KVO_IOCMD_PORT_ENABLE, &rec, 8, 8, 8), KVO_STATUS_EBADF);
    FILE* f = fopen("/dev/null", "r");
    ASSERT_NE(f, nullptr);
    h.fd = fileno(f);
    EXPECT_EQ(kvol_ioctl(&h, KVO_IOCMD_PORT_ENABLE, &rec, 8, 8, 8), KVO_STATUS_ENOTTY);
    fclose(f);
    EXPECT_EQ(kvol_ioctl(nullptr, KVO_IOCMD_PORT_ENABLE, &rec, 8, 8, 8), KVO_STATUS_EINVAL);
}

TEST(ChannelFcpt, MessageCodeFollowsFrameTypeAndDestination) {
    kvo_ioctl_fcpt_t r{};
    r.fchs[8] = 0x01;
    EXPECT_EQ(kvol_fcpt_msgcode(&r), 0x80000003u);
    r.fchs[8] = 0x20;
    EXPECT_EQ(kvol_fcpt_msgcode(&r), 0x80000004u);
    r.nport_nexus_needed = 1;
    EXPECT_EQ(kvol_fcpt_msgcode(&r), 0x40000002u);
    r.fchs[8] = 0x01;
    EXPECT_EQ(kvol_fcpt_msgcode(&r), 0x40000001u);
    for (uint8_t type : {0x00, 0x08, 0x21, 0xFF}) {
        r.fchs[8] = type;
        EXPECT_EQ(kvol_fcpt_msgcode(&r), 0u) << int(type);
    }
}

TEST(ChannelFcpt, FrameAddressesTheDestinationAndBothBuffers) {
    uint8_t payload[16] = {0x52, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    uint8_t response[64];
    kvo_ioctl_fcpt_t r{};
    r.fchs[1] = 0xFF;  // D_ID FF FC 41
    r.fchs[2] = 0xFC;
    r.fchs[3] = 0x41;
    r.fchs[8] = 0x01;
    r.reqsz = sizeof(payload);
    r.rspsz = sizeof(response);
    r.reqbuf_ptr = reinterpret_cast<uintptr_t>(payload);
    r.rspbuf_ptr = reinterpret_cast<uintptr_t>(response);
    sg_io_v4 hdr;
    uint8_t req[32];
    kvo_bsg_reply_s reply{};
    ASSERT_EQ(kvol_fcpt_frame(&hdr, req, &r, &reply), KVO_STATUS_OK);
    const uint8_t els[8] = {0x03, 0x00, 0x00, 0x80, 0x52, 0xFF, 0xFC, 0x41};
    EXPECT_EQ(memcmp(req, els, sizeof(els)), 0);
    EXPECT_EQ(hdr.dout_xferp, reinterpret_cast<uintptr_t>(payload));
    EXPECT_EQ(hdr.dout_xfer_len, 16u);
    EXPECT_EQ(hdr.din_xferp, reinterpret_cast<uintptr_t>(response));
    EXPECT_EQ(hdr.din_xfer_len, 64u);
    EXPECT_EQ(hdr.timeout, 60000u);
    EXPECT_EQ(hdr.guard, static_cast<int>('Q'));

    r.fchs[8] = 0x20;  // CT to the fabric: port id, then the first three words of the CT IU
    ASSERT_EQ(kvol_fcpt_frame(&hdr, req, &r, &reply), KVO_STATUS_OK);
    const uint8_t ct[20] = {0x04, 0x00, 0x00, 0x80, 0x00, 0xFF, 0xFC, 0x41, 0x52, 1,
                            2,    3,    4,    5,    6,    7,    8,    9,    10,   11};
    EXPECT_EQ(memcmp(req, ct, sizeof(ct)), 0);

    r.fchs[8] = 0x08;  // FCP: refused
    EXPECT_EQ(kvol_fcpt_frame(&hdr, req, &r, &reply), KVO_STATUS_FAILED);
}

TEST(ChannelScsi, GenericHeaderFromTheRecord) {
    uint8_t data[512];
    uint8_t sense[256];
    kvo_ioctl_scsi_t r{};
    r.iosz = sizeof(data);
    r.iobuf_ptr = reinterpret_cast<uintptr_t>(data);
    r.snsbuf_pt = reinterpret_cast<uintptr_t>(sense);
    r.snssz = 96;
    r.cdb.scsi_cdb[0] = 0x12;  // INQUIRY
    sg_io_hdr_t hdr;
    kvol_scsi_sg_hdr(&hdr, &r);
    EXPECT_EQ(hdr.interface_id, 'S');
    EXPECT_EQ(hdr.cmd_len, 16);
    EXPECT_EQ(hdr.cmdp, r.cdb.scsi_cdb);
    EXPECT_EQ(hdr.dxfer_direction, SG_DXFER_TO_FROM_DEV);
    EXPECT_EQ(hdr.dxfer_len, 512u);
    EXPECT_EQ(hdr.dxferp, data);
    EXPECT_EQ(hdr.sbp, sense);
    EXPECT_EQ(hdr.mx_sb_len, 96);
    EXPECT_EQ(hdr.timeout, 30000u);
    EXPECT_EQ(hdr.flags, 0u);
    EXPECT_EQ(hdr.iovec_count, 0);
    for (uint8_t op : {0x0A, 0x10, 0x2A, 0x8A, 0xAA}) {
        r.cdb.scsi_cdb[0] = op;
        kvol_scsi_sg_hdr(&hdr, &r);
        EXPECT_EQ(hdr.dxfer_direction, SG_DXFER_TO_DEV) << int(op);
    }
    for (uint8_t op : {0x00, 0x28, 0x25, 0x9E, 0xA0, 0x0B}) {
        r.cdb.scsi_cdb[0] = op;
        kvol_scsi_sg_hdr(&hdr, &r);
        EXPECT_EQ(hdr.dxfer_direction, SG_DXFER_TO_FROM_DEV) << int(op);
    }
    r.snssz = 256;  // only the low byte counts
    kvol_scsi_sg_hdr(&hdr, &r);
    EXPECT_EQ(hdr.mx_sb_len, 0);
}

TEST(ChannelFlash, EepromWriteStartsFourBytesEarlyExceptAtZero) {
    EXPECT_EQ(kvol_eeprom_offset(0x10000, true), 0xFFFCu);
    EXPECT_EQ(kvol_eeprom_offset(0x10000, false), 0x10000u);
    EXPECT_EQ(kvol_eeprom_offset(0, true), 0u);
    EXPECT_EQ(kvol_eeprom_offset(0, false), 0u);
    EXPECT_EQ(kvol_eeprom_offset(4, true), 0u);
}

TEST(ChannelIoc, RequestsCarryTheInstanceAndSurfaceTheChannelFailure) {
    kvol_t h = closed_ioc(KVO_IOC_TYPE_LL);
    h.instance = 3;
    kvo_ioc_info_t info;
    memset(&info, 0xEE, sizeof(info));
    EXPECT_EQ(kvol_ioc_get_info(&h, &info), KVO_STATUS_EBADF);
    EXPECT_EQ(info.kvod_num, 3);
    EXPECT_EQ(info.status, 0u);  // the record went out cleared
    kvo_ioc_attr_t attr;
    EXPECT_EQ(kvol_ioc_get_attr(&h, &attr), KVO_STATUS_EBADF);
    EXPECT_EQ(attr.kvod_num, 3);
    EXPECT_EQ(kvol_ioc_enable(&h), KVO_STATUS_EBADF);
    EXPECT_EQ(kvol_ioc_disable(nullptr), KVO_STATUS_EINVAL);
    EXPECT_EQ(kvol_ioc_get_info(nullptr, &info), KVO_STATUS_EINVAL);

    // The unmasked request hands the caller's record back unchanged; no record needs no copy.
    kvo_gen_t rec{};
    rec.status = 77;
    rec.kvod_num = 5;
    EXPECT_EQ(kvol_ioctl_nomask(&h, KVO_IOCMD_PORT_ENABLE, &rec, sizeof(rec)), KVO_STATUS_EBADF);
    EXPECT_EQ(rec.status, 77u);
    EXPECT_EQ(rec.kvod_num, 5);
    EXPECT_EQ(kvol_ioctl_nomask(&h, KVO_IOCMD_PORT_ENABLE, nullptr, 0), KVO_STATUS_EBADF);
    EXPECT_EQ(kvol_ioctl_nomask(&h, KVO_IOCMD_PORT_ENABLE, nullptr, 8), KVO_STATUS_EINVAL);
}
