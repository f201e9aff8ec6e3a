// The driver channel's pure pieces: the bsg request-code map, errno mapping, the Ethernet
// type-byte rewrite, bsg and SCSI generic framing, and the refusals that happen before any
// system call.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <tuple>
#include <utility>

#include "kvol.h"
#include "kvol_linux.h"

namespace {

// A handle with no descriptor open.
kvol_t closed_ioc(kvo_ioc_type_e type) {
    kvol_t h{};
    h.fd = h.sg_fd = h.ipfc_fd = -1;
    h.ioc_type = type;
    return h;
}

}  // namespace

// Each row of the map: a mapped code becomes its driver number, a code with its own transport
// (number 0) passes unchanged. (The numbers themselves are checked against the emulator's own
// table in test_sim_oracles.cpp, and the row count at compile time.)
TEST(ChannelMap, EveryCodeOfTheMapIsTranslatedOrPassedThrough) {
    for (const auto& m : kvo_bsg_cmd_map) {
        uint32_t c = m.code;
        EXPECT_EQ(kvol_map_opensrc_iocmd_codes(&c), 0) << std::hex << m.code;
        EXPECT_EQ(c, m.vendor_cmd ? m.vendor_cmd : m.code) << std::hex << m.code;
    }
    uint32_t clear = KVO_IOCMD_FCPIM_LUNMASK_CLEAR, query = KVO_IOCMD_FCPIM_LUNMASK_QUERY;
    kvol_map_opensrc_iocmd_codes(&clear);
    kvol_map_opensrc_iocmd_codes(&query);
    EXPECT_EQ(clear, 116u);
    EXPECT_EQ(query, 116u);
}

// Unknown codes (the version check, a code one off a mapped one, a mapped number itself, zero,
// all ones) are refused and left alone.
TEST(ChannelMap, UnknownCodesAreRefusedAndLeftAlone) {
    for (uint32_t code : {0xC0084301u, 0xC0084305u, 0xC2104308u, 3u, 0u, 0xFFFFFFFFu}) {
        uint32_t c = code;
        EXPECT_EQ(kvol_map_opensrc_iocmd_codes(&c), 1) << std::hex << code;
        EXPECT_EQ(c, code) << std::hex << code;
    }
    EXPECT_EQ(kvol_map_opensrc_iocmd_codes(nullptr), 1);
}

TEST(ChannelErrno, MappedErrnosAndTheFallback) {
    const std::pair<int, kvo_status_t> mapped[] = {
        {ENOMEM, KVO_STATUS_ENOMEM}, {EINTR, KVO_STATUS_EINTR},   {EIO, KVO_STATUS_EIO},
        {ENXIO, KVO_STATUS_ENXIO},   {EBADF, KVO_STATUS_EBADF},   {ENODEV, KVO_STATUS_NODEV},
        {EINVAL, KVO_STATUS_EINVAL}, {ENOTTY, KVO_STATUS_ENOTTY}, {95, KVO_STATUS_CMD_NOTSUPP},
    };
    for (const auto& [e, status] : mapped) EXPECT_EQ(kvol_errno_to_status(e), status) << e;
    for (int e : {0, ENOENT, EACCES, EPERM, EAGAIN, EBUSY, -1, 100000})
        EXPECT_EQ(kvol_errno_to_status(e), KVO_STATUS_FAILED) << e;
}

// The type byte becomes 'D' whatever it was (other type bytes too, and 'D' itself).
TEST(ChannelEthernet, TypeByteBecomesD) {
    const std::pair<uint32_t, uint32_t> codes[] = {
        {0xC0084334, 0xC0084434}, {0xC6604306, 0xC6604406}, {0xC008B701, 0xC0084401},
        {0xD0144370, 0xD0144470}, {0xC0084434, 0xC0084434},
    };
    for (const auto& [in, out] : codes) EXPECT_EQ(kvol_eth_ioctl_code(in), out) << std::hex << in;
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

// ELS (type 0x01) or CT (0x20), to the fabric or through an N_Port nexus; other types none.
TEST(ChannelFcpt, MessageCodeFollowsFrameTypeAndDestination) {
    const struct {
        uint8_t nexus, type;
        uint32_t code;
    } rows[] = {{0, 0x01, 0x80000003}, {0, 0x20, 0x80000004}, {1, 0x20, 0x40000002},
                {1, 0x01, 0x40000001}, {1, 0x00, 0},          {1, 0x08, 0},
                {1, 0x21, 0},          {1, 0xFF, 0}};
    for (const auto& row : rows) {
        kvo_ioctl_fcpt_t r{};
        r.nport_nexus_needed = row.nexus;
        r.fchs[8] = row.type;
        EXPECT_EQ(kvol_fcpt_msgcode(&r), row.code) << int(row.nexus) << " " << int(row.type);
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
    const std::tuple<uint32_t, bool, uint32_t> rows[] = {
        {0x10000, true, 0xFFFC}, {0x10000, false, 0x10000}, {0, true, 0}, {0, false, 0}, {4, true, 0}};
    for (auto [off, write, want] : rows)
        EXPECT_EQ(kvol_eeprom_offset(off, write), want) << off << " " << write;
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
