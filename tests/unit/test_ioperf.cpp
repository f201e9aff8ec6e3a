// The I/O monitor's rate of one object: units, tenths, the division by the interval and the
// rule for a counter that went backwards. (The scenario tests print the usual cases.)
#include <gtest/gtest.h>

#include <string>

#include "qmxioperf.h"

TEST(IoperfRates, ThroughputUnitsTenthsAndTheWrapRule) {
    struct Case {
        uint32_t old_ios, new_ios, old_bytes, new_bytes, interval;
        uint32_t iops, whole, tenths;
        std::string unit;
    } cases[] = {
        {0, 1500, 0, 0, 1, 1500, 0, 0, "     "},  // no bytes: five blanks, not " B/s "
        {7, 7, 0, 1023, 1, 0, 1023, 0, " B/s "},
        {0, 0, 0, 1048575, 1, 0, 1023, 0, " KB/s"},  // tenths from (t / 102) % 10, not rounded
        {0, 0, 0, 1048576, 1, 0, 1, 0, " MB/s"},
        {0, 0, 0, 1572864, 1, 0, 1, 5, " MB/s"},
        {100, 107, 0, 3000, 2, 3, 1, 4, " KB/s"},  // whole divisions by the interval
        // A counter that went backwards counts new + 4 - old, modulo 2^32.
        {4294967290u, 4, 0xFFFFFF00u, 0x100, 1, 14, 516, 0, " B/s "},
        {10, 4, 0, 0, 1, 4294967294u, 0, 0, "     "},
    };
    for (const Case& c : cases) {
        qmx_fcpim_perf_t p{1, 2, c.old_ios, c.new_ios, c.old_bytes, c.new_bytes};
        qmx_fcpim_perf_info_t info{};
        qmx_perf_fcpim_process_data(&p, c.interval, &info);
        const std::string what = std::to_string(c.new_ios) + " " + std::to_string(c.new_bytes);
        EXPECT_EQ(info.iops_int, c.iops) << what;
        EXPECT_EQ(info.perf_int, c.whole) << what;
        EXPECT_EQ(info.perf_exp, c.tenths) << what;
        EXPECT_EQ(info.perf_unit, c.unit) << what;
        // The newer reading becomes the older one.
        EXPECT_EQ(p.old_ios, c.new_ios) << what;
        EXPECT_EQ(p.old_perf, c.new_bytes) << what;
        EXPECT_EQ(p.new_ios + p.new_perf, 0u) << what;
    }
}
