#pragma once
// The storage driver's bsg vendor commands: which request code each driver command number
// stands for. Kept apart from the host software's own map on purpose, written out by hand as
// plain numbers, so that a wrong entry on either side shows as a difference (the unit tests
// compare the two entry by entry) instead of agreeing with itself.
//
// 128 codes have a driver number from 1 to 131 (93, 94, 95 and 117 are not used; LUN-mask
// clear and query share 116 and are told apart by their record size). Nine codes have number
// 0: they never travel as a vendor command (trace and register readers, SCSI and FC
// pass-through, virtual port create and delete have transports of their own).
#include <cstddef>
#include <cstdint>

namespace kvosim {

struct BsgCommand {
    uint32_t code;    // request code as the host software issues it
    uint32_t number;  // driver command number in vendor_cmd[0]; 0: not a vendor command
};

inline constexpr BsgCommand bsg_commands[] = {
    // IOC
    {0xC0084303, 1}, {0xC0084304, 2}, {0xC6604306, 3}, {0xC2104307, 4},
    {0xC0504308, 5}, {0xC018430C, 6}, {0xC0084309, 7}, {0xC008430D, 8},
    {0xC048430A, 9}, {0xC048430B, 10}, {0xC0084310, 11},
    // IOC FC
    {0xC048B001, 12}, {0xC010B002, 13},
    // physical port
    {0xC0084334, 14}, {0xC0084335, 15}, {0xC1804336, 16}, {0xC0184337, 17},
    {0xC008433A, 18}, {0xC010433B, 19}, {0xC010433C, 20}, {0xC010433D, 21},
    {0xC008433F, 22}, {0xC010433E, 23}, {0xC0084345, 24}, {0xC0084346, 25},
    {0xC00C4347, 26},
    // logical, remote and virtual ports, fabric
    {0xC170B101, 27}, {0xC020B105, 28}, {0xC108B103, 29}, {0xC010B104, 30},
    {0xC120B102, 31}, {0xC168B205, 32}, {0xC028B206, 33}, {0xC120B203, 34},
    {0xC018B204, 35}, {0xC020B207, 36}, {0xC178B305, 37}, {0xC158B306, 38},
    {0xC010B307, 39}, {0xC018BE01, 40},
    // rate limiting, FCP initiator, I-T nexus
    {0xC008B701, 41}, {0xC008B702, 42}, {0xC00CB703, 43}, {0xC008B801, 44},
    {0xC118B803, 45}, {0xC008B804, 46}, {0xC028B805, 47}, {0xC028BB01, 48},
    {0xC128BB02, 49}, {0xC018BB03, 50}, {0xC048BB04, 51},
    // PCI functions, FCoE port, vNIC, modes, option ROM, FAA, CEE, SFP
    {0xC238430E, 52}, {0xC008C103, 53}, {0xC008C104, 54}, {0xC018435E, 55},
    {0xC018435F, 56}, {0xC0184363, 57}, {0xC010430F, 58}, {0xC0104344, 59},
    {0xC0084357, 60}, {0xC0084358, 61}, {0xC018C303, 62}, {0xC018434B, 63},
    {0xC018434C, 64}, {0xC008434A, 65}, {0xC00C434E, 66}, {0xC00C434F, 67},
    // flash
    {0xC4104352, 68}, {0xC0184353, 69}, {0xC0184354, 70}, {0xC0184355, 71},
    // diagnostics
    {0xC0184314, 72}, {0xC0384316, 73}, {0xC0304317, 74}, {0xC0204318, 75},
    {0xC0184319, 76}, {0xC100431B, 77}, {0xC018431C, 78}, {0xC014431D, 79},
    {0xC008431F, 80},
    // PHY, vHBA
    {0xC024435C, 81}, {0xC028435D, 82}, {0xC018435A, 83}, {0xC018435B, 84},
    {0xC02C4369, 85},
    // debug
    {0xC020432B, 86}, {0xC020432A, 87}, {0xC0084329, 88}, {0xC008432C, 89},
    {0xC008432E, 90}, {0xC008432F, 91}, {0xC010432D, 92},
    // FCoE statistics, boot, trunking
    {0xC170C101, 96}, {0xC008C102, 97}, {0xC098B901, 98}, {0xC098B902, 99},
    {0xC090B903, 100}, {0xC0104350, 101}, {0xC0104351, 102}, {0xC008C201, 103},
    {0xC008C202, 104}, {0xC048C203, 105},
    // QoS, virtual fabric
    {0xC008B601, 106}, {0xC008B602, 107}, {0xC018B603, 108}, {0xC050B604, 109},
    {0xC050B605, 110}, {0xC008B606, 111}, {0xC038B408, 112}, {0xC008B409, 113},
    // LUN masking (clear and query share 116)
    {0xC008B807, 114}, {0xC008B808, 115}, {0xC008B80B, 116}, {0xC210B806, 116},
    {0xC020B809, 118}, {0xC020B80A, 119},
    // D-port, QoS bandwidth, throttle, FRU
    {0xC0104320, 120}, {0xC0084321, 121}, {0xC00CB607, 122}, {0xC010B80C, 123},
    {0xC010B80D, 124}, {0xC050436E, 125}, {0xC050436F, 126}, {0xD0144370, 127},
    {0xD0144371, 128}, {0xC00C4372, 129}, {0xC0804322, 130}, {0xC0104323, 131},
    // transports of their own: driver and firmware traces, registers, SCSI and FC
    // pass-through, virtual port create and delete
    {0xC0204325, 0}, {0xC0204327, 0}, {0xC0204328, 0}, {0xC0204311, 0},
    {0xC0184313, 0}, {0xC050BA01, 0}, {0xC060BA02, 0}, {0xC140B301, 0},
    {0xC018B302, 0},
};

inline constexpr size_t bsg_command_count = sizeof bsg_commands / sizeof bsg_commands[0];
static_assert(bsg_command_count == 137, "137 request codes: 128 numbered, 9 with transports of their own");

}  // namespace kvosim
