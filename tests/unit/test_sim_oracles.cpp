// The emulator's own tables, kept apart from the host software's so that the two check each
// other: the bsg command numbers, and the order in which sysfs lists a directory.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "bsg_cmds.h"
#include "kvol.h"
#include "kvol_ioc_priv.h"
#include "sysfs_order.h"

namespace {

using kvosim::bsg_commands;

const kvosim::BsgCommand* emulator_entry(uint32_t code) {
    for (const kvosim::BsgCommand& c : bsg_commands)
        if (c.code == code) return &c;
    return nullptr;
}

const kvo_bsg_cmd_map_s* product_entry(uint32_t code) {
    for (const kvo_bsg_cmd_map_s& m : kvo_bsg_cmd_map)
        if (m.code == code) return &m;
    return nullptr;
}

}  // namespace

TEST(SimBsgTable, EmulatorAndHostSoftwareNumberEveryCodeAlike) {
    for (const kvo_bsg_cmd_map_s& m : kvo_bsg_cmd_map) {
        const kvosim::BsgCommand* e = emulator_entry(m.code);
        ASSERT_NE(e, nullptr) << std::hex << "code 0x" << m.code << " is missing from the emulator's table";
        EXPECT_EQ(e->number, m.vendor_cmd) << std::hex << "code 0x" << m.code;
    }
    for (const kvosim::BsgCommand& e : bsg_commands) {
        const kvo_bsg_cmd_map_s* m = product_entry(e.code);
        ASSERT_NE(m, nullptr) << std::hex << "code 0x" << e.code << " is missing from the host software's map";
        EXPECT_EQ(m->vendor_cmd, e.number) << std::hex << "code 0x" << e.code;
    }
    // A code typed twice would hide behind the first of its rows.
    std::set<uint32_t> codes;
    for (const kvosim::BsgCommand& e : bsg_commands)
        EXPECT_TRUE(codes.insert(e.code).second) << std::hex << "code 0x" << e.code << " is in the table twice";
    EXPECT_EQ(std::size(kvo_bsg_cmd_map), kvosim::bsg_command_count);
}

// Directory listings a real kernel gave (ls -f of sysfs directories): their order is the one
// sysfs keeps, so sorting the names by the emulator's rule must give it back.
TEST(SimSysfsOrder, NamesSortAsARealKernelListsThem) {
    const std::vector<std::vector<std::string>> listings = {
        {"warn_count", "notes", "hardlockup_count", "mm", "uevent_seqnum", "profiling", "btf", "vmcoreinfo",
         "cpu_byteorder", "software_nodes", "reboot", "tracing", "oops_count", "slab", "iommu_groups",
         "security", "irq", "fscaps", "rcu_normal", "debug", "softlockup_count", "rcu_stall_count",
         "rcu_expedited", "cgroup", "boot_params", "address_bits"},
        {"0000:00:01.0", "0000:00:04.0", "0000:00:00.0", "0000:00:03.0", "0000:00:02.0", "0000:00:05.0"},
        {"tty28", "ptmx", "tty56", "tty18", "tty1", "tty46", "tty36", "tty26", "tty54", "tty16", "tty44",
         "console", "tty34", "tty62", "tty24", "tty8", "tty52", "tty14", "tty42", "tty32", "tty60", "tty22",
         "tty6", "tty50", "tty12", "tty40", "ttyS0", "tty30", "tty59", "tty20"},
    };
    for (const auto& listing : listings) {
        std::vector<std::string> names = listing;
        std::sort(names.begin(), names.end());
        names.push_back("..");
        names.push_back(".");
        std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
            return kvosim::kernfs_before(a.c_str(), b.c_str());
        });
        std::vector<std::string> want = {".", ".."};
        want.insert(want.end(), listing.begin(), listing.end());
        EXPECT_EQ(names, want);
    }
}

TEST(SimSysfsOrder, TheEmptyNameTakesTheFirstHashLeftToEntries) {
    // Hash 0 is the directory's own position, 1 its parent's: an entry never has them.
    EXPECT_EQ(kvosim::kernfs_name_hash(""), 2u);
}
