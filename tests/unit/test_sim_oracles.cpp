// The emulator's own tables, kept apart from the host software's so that the two check each
// other: the bsg command numbers.
#include <gtest/gtest.h>

#include <iterator>
#include <set>

#include "bsg_cmds.h"
#include "kvol.h"
#include "kvol_ioc_priv.h"

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
