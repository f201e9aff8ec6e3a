// SCSI paths without a target: REPORT LUNS data and its LUN-mask filter, the CDBs of the command
// calls, the pass-through node's life, and the SCSI columns of the LUN list (INQUIRY data and
// the size).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "kvol_linux.h"
#include "qmxhandlers.h"

namespace {

// REPORT LUNS data: the list length as given, then the LUNs (peripheral or flat space, first
// two bytes), then `extra` bytes of room.
std::vector<uint8_t> rpl(uint32_t list_len, std::initializer_list<uint16_t> luns, size_t extra = 0) {
    std::vector<uint8_t> d = {uint8_t(list_len >> 24), uint8_t(list_len >> 16), uint8_t(list_len >> 8),
                              uint8_t(list_len), 0xAA, 0xBB, 0xCC, 0xDD};  // reserved bytes, not zero
    for (uint16_t l : luns) {
        const uint8_t e[8] = {uint8_t(l >> 8), uint8_t(l), 0, 0, 0, 0, 0, 0};
        d.insert(d.end(), e, e + 8);
    }
    d.resize(d.size() + extra, 0xEE);
    return d;
}

lun_t lun_of(uint16_t first_level) {
    const uint8_t w[8] = {uint8_t(first_level >> 8), uint8_t(first_level), 0, 0, 0, 0, 0, 0};
    lun_t l;
    memcpy(&l, w, sizeof l);
    return l;
}

wwn_t wwn(uint8_t last) { return 0x0100000000000050ULL | uint64_t{last} << 56; }

kvo_lun_mask_s entry(wwn_t lp, wwn_t rp, uint16_t lun, uint8_t state = KVO_LUNMASK_ENTRY_ACTIVE) {
    kvo_lun_mask_s e{};
    e.lp_wwn = lp;
    e.rp_wwn = rp;
    e.lun = lun_of(lun);
    e.state = state;
    return e;
}

}  // namespace

TEST(ScsiReportLuns, CountIsWhatTheListSaysAndTheBufferHolds) {
    struct Case {
        std::vector<uint8_t> data;
        uint32_t size;  // as the caller allocated it (may be less than the bytes at hand)
        uint32_t count;
    } cases[] = {
        {rpl(24, {0, 1, 2}, 8), 40, 3},     // room to spare
        {rpl(0, {}), 8, 0},                  // header only
        {rpl(20, {0, 1, 2}), 32, 2},        // a length that is no multiple of 8 counts whole entries
        {rpl(800, {0, 1}), 24, 2},          // a list longer than the buffer: only what is there
        {rpl(0xFFFFFFF8, {0}), 16, 1},
        {rpl(24, {0, 1, 2}), 7, 0},         // not even a header
    };
    for (const Case& c : cases)
        EXPECT_EQ(kvol_scsi_rpl_count(c.data.data(), c.size), c.count) << c.size;
    EXPECT_EQ(kvol_scsi_rpl_count(nullptr, 64), 0u);
}

TEST(ScsiReportLuns, MaskKeepsLunZeroAndTheNexusEntriesInUse) {
    const wwn_t lp = wwn(1), rp = wwn(2);
    kvo_lunmask_cfg_s mask{};
    mask.status = KVO_LUNMASK_ENABLED;
    mask.lun_list[0] = entry(lp, rp, 0x0002);
    mask.lun_list[3] = entry(lp, rp, 0x412C);                      // flat space, LUN 300
    mask.lun_list[7] = entry(lp, rp, 0x0005, 0);                   // a free slot
    mask.lun_list[15] = entry(lp, rp, 0x0006);                     // the last slot counts
    std::vector<uint8_t> d = rpl(64, {0, 1, 2, 3, 4, 5, 6, 0x412C}, 8);
    ASSERT_EQ(kvol_scsi_lm_filter_rpl(mask, lp, rp, d.data(), uint32_t(d.size())), 1);
    // Kept in list order, packed from offset 8, the header rewritten and the rest zeroed.
    std::vector<uint8_t> want = rpl(32, {0, 2, 6, 0x412C});
    want[4] = want[5] = want[6] = want[7] = 0;
    want.resize(d.size(), 0);
    EXPECT_EQ(d, want);
}

TEST(ScsiReportLuns, MaskLeavesTheDataAloneUnlessEnabledAndWhole) {
    const wwn_t lp = wwn(1), rp = wwn(2);
    kvo_lunmask_cfg_s mask{};
    mask.lun_list[0] = entry(lp, rp, 0x0002);
    struct Case {
        uint8_t status;
        std::vector<uint8_t> data;
        uint32_t size;
    } cases[] = {
        {KVO_LUNMASK_DISABLED, rpl(24, {0, 1, 2}), 32},
        {KVO_LUNMASK_UNINITIALIZED, rpl(24, {0, 1, 2}), 32},
        {7, rpl(24, {0, 1, 2}), 32},                         // unknown status
        {KVO_LUNMASK_ENABLED, rpl(32, {0, 1, 2}), 32},       // a list cut short
        {KVO_LUNMASK_ENABLED, rpl(24, {0, 1, 2}), 7},        // no header
    };
    for (const Case& c : cases) {
        mask.status = c.status;
        std::vector<uint8_t> d = c.data;
        EXPECT_EQ(kvol_scsi_lm_filter_rpl(mask, lp, rp, d.data(), c.size), 0) << int(c.status);
        EXPECT_EQ(d, c.data) << int(c.status);
    }
}

TEST(ScsiCommands, CdbIsBuiltBeforeTheNodeIsSought) {
    // A storage function whose control node does not exist: every command fails at the nexus
    // query, after its CDB was built. (The commands of the LUN list show theirs in the
    // emulator's log.)
    kvol_t h{};
    h.fd = h.sg_fd = h.ipfc_fd = -1;
    h.ioc_type = KVO_IOC_TYPE_FC;
    strcpy(h.devpath, "/nonexistent/dev/kvo");
    uint8_t data[4096];
    uint8_t sense[32];
    uint8_t status = 0xFF;
    uint32_t sense_len = sizeof sense;
    scsi_cdb_t cdb{};
    const struct {
        decltype(&kvol_scsi_read10) call;
        std::vector<uint8_t> cdb;
    } calls[] = {
        {kvol_scsi_testunitready, std::vector<uint8_t>(16, 0)},
        {kvol_scsi_read10, {0x28, 0, 0, 0, 0, 0, 0, 0x00, 0x08, 0, 0, 0, 0, 0, 0, 0}},  // 8 blocks, LBA 0
    };
    for (const auto& c : calls) {
        cdb.scsi_cdb[0] = 0x77;  // replaced
        EXPECT_EQ(c.call(&h, 0, wwn(1), wwn(2), 0, &cdb, 0, data, sizeof data, &status, sense, &sense_len),
                  KVO_STATUS_NO_DRIVER);
        EXPECT_EQ(std::vector<uint8_t>(cdb.scsi_cdb, cdb.scsi_cdb + 16), c.cdb);
        EXPECT_EQ(status, 0xFF);  // untouched: nothing was sent
    }
    // REPORT LUNS hands back no buffer when it fails.
    cdb = {};
    uint8_t* buf = data;
    uint32_t len = 99;
    EXPECT_EQ(kvol_scsi_reportluns(&h, 0, wwn(1), wwn(2), 0, &cdb, 0, &buf, &len, &status, sense,
                                   &sense_len),
              KVO_STATUS_NO_DRIVER);
    EXPECT_EQ(buf, nullptr);
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(h.sg_fd, -1);
}

TEST(ScsiPassthru, NodeIsClosedWhenTheRequestFails) {
    int p[2];
    ASSERT_EQ(pipe(p), 0);
    close(p[1]);
    kvol_t h{};
    h.sg_fd = p[0];  // a pipe refuses SG_IO
    kvo_ioctl_scsi_t rec{};
    rec.cdb.scsi_cdb[0] = 0x00;
    rec.status = 77;
    EXPECT_EQ(kvol_scsi_passthru(&h, &rec), KVO_STATUS_ENOTTY);
    EXPECT_EQ(h.sg_fd, -1);
    errno = 0;
    EXPECT_EQ(fcntl(p[0], F_GETFD), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(rec.status, 77u);  // the record is not the driver's answer
}

TEST(LunlistColumns, InquiryVendorProductUpToItsFirstBlankAndRevision) {
    auto inq = [](const char* vendor, const char* product, const char* rev) {
        uint8_t d[36] = {};
        memcpy(d + 8, vendor, strnlen(vendor, 8));
        memcpy(d + 16, product, strnlen(product, 16));
        memcpy(d + 32, rev, strnlen(rev, 4));
        return qmx_fcpim_inquiry_columns(d);
    };
    EXPECT_EQ(inq("TORVANE ", "FlexStor 2400   ", "0930"), "TORVANE  FlexStor  0930");
    EXPECT_EQ(inq("VENDOR12", "PRODUCT-NO-BLANK", "REV1"), "VENDOR12 PRODUCT-NO-BLANK REV1");
    EXPECT_EQ(inq("ACME    ", " leading", "1"), "ACME       1   ");
    // A short answer (the rest of the buffer zero), or text ending early: padded, never past
    // the field.
    EXPECT_EQ(inq("", "", ""), std::string(8, ' ') + "  " + std::string(4, ' '));
    EXPECT_EQ(inq("AB", "XY", "9"), "AB       XY 9   ");
}

TEST(LunlistColumns, InquiryBytesThatAreNotPrintableShowAsQuestionMarks) {
    // The target writes these fields: control characters and bytes from 0x7F on would reach
    // the terminal as they are. Each keeps its place; a NUL still ends its field.
    uint8_t d[36] = {};
    memcpy(d + 8, "AC\x1b[2J\x7f\x80", 8);
    memcpy(d + 16, "Disk\nX\tY Z", 10);
    memcpy(d + 32, "\x01\xff", 2);
    EXPECT_EQ(qmx_fcpim_inquiry_columns(d), "AC?[2J?? Disk?X?Y  ??  ");
    memcpy(d + 8, "\x07" "B\0\x1b" "CDEF", 8);
    memcpy(d + 16, "\r", 2);
    memcpy(d + 32, " \x9b" "1\0", 4);
    EXPECT_EQ(qmx_fcpim_inquiry_columns(d), "?B       ?  ?1 ");
}

TEST(LunlistColumns, SizeOfLastLbaTimesBlockLength) {
    struct Case {
        int64_t last_lba;
        int64_t block_len;
        const char* text;
    } cases[] = {
        {0, 512, "0"},
        {2047, 512, "1048064"},                  // just below 1 MiB: bytes
        {2048, 512, "1.00MB"},
        {134222968, 1, "128.01MB"},              // single precision: double gives 128.00
        {2097151, 512, "1024.00MB"},             // 1 GiB - 512: still MiB
        {2097152, 512, "1.00GB"},
        {8595302933, 1, "8.01GB"},               // single precision: double gives 8.00
        {209715199, 512, "100.00GB"},
        {0x7FFFFFFF, 512, "1024.00GB"},          // the largest positive READ CAPACITY(10) answer
        {int64_t{1} << 31, 512, "1.00TB"},       // 2^40 bytes
        {6442450943, 512, "2.00TB"},             // 3 TiB - 512: whole TiB units only
        {int64_t{0x1FFFFFFFF}, 4096, "31.00TB"},
        {int32_t(0x80000000), 512, "  -----"},  // READ CAPACITY(10) fields read as signed
        {int32_t(0xFFFFFFFE), 512, "  -----"},
        {4096, int32_t(0x80000000), "  -----"},
        {int64_t{1} << 62, 2, "  -----"},        // 2^63: the 64-bit product turns negative
        {int64_t{1} << 62, 4, "0"},              // 2^64 wraps to 0
    };
    for (const Case& c : cases)
        EXPECT_EQ(qmx_fcpim_lun_size(c.last_lba, c.block_len), c.text) << c.last_lba << " x " << c.block_len;
}
