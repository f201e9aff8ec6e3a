// fcpim --ioperf end to end: the rates of a port, its logical ports and its remote ports, for
// one port and a range, on a bed whose sleeps advance the I/O clock (no test waits in real
// time), and the monitor's refusals, failures and interruption.
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include <string>
#include <tuple>
#include <vector>

#include "harness.h"

using scen::Bed;
using scen::fails;
using scen::lines_with;
using scen::prints;
using scen::requests;
using scen::Result;
using strings = std::vector<std::string>;

namespace {

constexpr const char* kLport = "10:00:00:e1:f2:00:10:00";  // 1/0/0, the function's own port
constexpr const char* kVport = "30:00:00:e1:f2:00:10:01";  // an NPIV port of 1/0/0
constexpr const char* kTgtA = "50:0e:1f:20:00:a1:00:01";   // behind 1/0/0
constexpr const char* kTgtB = "50:0e:1f:20:00:a1:00:02";   // behind 1/0/0
constexpr const char* kTgtC = "50:0e:1f:20:00:b1:00:01";   // behind 1/1/1, idle
constexpr const char* kTgtD = "50:0e:1f:20:00:c1:00:01";   // behind 2/0/2

// An FC HBA (1/0/0 busy at every level, 1/1/1 idle) and a CNA whose port 0 has an Ethernet
// function besides its FCoE one (2/0/0, 2/0/2) and whose port 1 has FCoE only (2/1/3).
// Rates a second: nexus A 1500 I/Os of 4 KiB, nexus B 10 of 512 bytes, 1/0/0's own logical
// port 90 more of 1 KiB (nexuses gone), its NPIV port 7 of 64 KiB, the function 3 more of 100
// bytes; nexus D 256 of 4 KiB (1 MiB); 2/1/3 one I/O of 1048575 bytes.
const std::string kHost = std::string(R"({"sleep": "io_clock", "adapters": [
  {"serial": "TVF0000001", "model": "TV-1862", "type": "FC", "ports": [
    {"pwwn": ")") + kLport + R"(", "functions": [{"pci": "0000:03:00.0", "host": 5,
      "ext": {"io": {"read_iops": 3, "io_size": 100},
              "lport_io": {"read_iops": 90, "io_size": 1024},
              "vports": [{"pwwn": ")" + kVport + R"(", "io": {"read_iops": 7, "io_size": 65536}}]},
      "rports": [
        {"pwwn": ")" + kTgtA + R"(", "target": 0,
         "ext": {"io": {"read_iops": 1000, "write_iops": 500, "io_size": 4096}}},
        {"pwwn": ")" + kTgtB + R"(", "target": 1, "ext": {"io": {"write_iops": 10, "io_size": 512}}}]}]},
    {"pwwn": "10:00:00:e1:f2:00:10:01", "functions": [{"pci": "0000:03:00.1", "host": 6,
      "rports": [{"pwwn": ")" + kTgtC + R"(", "target": 0}]}]}]},
  {"serial": "TVC0000002", "model": "TV-1867", "type": "CNA", "mode": "CNA", "ports": [
    {"pwwn": "10:00:00:e1:f2:00:20:00", "mac": "02:e1:f2:00:20:00", "functions": [
      {"pci": "0000:04:00.0", "driver": "tqe"},
      {"pci": "0000:04:00.2", "ioc_type": "FCoE", "host": 7, "rports": [{"pwwn": ")" + kTgtD +
                                 R"(", "target": 0, "ext": {"io": {"read_iops": 256}}}]}]},
    {"pwwn": "10:00:00:e1:f2:00:20:01", "mac": "02:e1:f2:00:20:01", "functions": [
      {"pci": "0000:04:00.3", "ioc_type": "FCoE", "host": 8,
       "ext": {"io": {"read_iops": 1, "io_size": 1048575}}}]}]}]})";

const std::string kHeadPort = " Port    IOPs     Throughput\n" + std::string(30, '=') + "\n";
const std::string kHeadL = " Port        lport WWN            IOPs     Throughput\n" + std::string(55, '=') + "\n";
const std::string kHeadR = " Port        rport WWN            IOPs     Throughput\n" + std::string(55, '=') + "\n";
const std::string kHeadLR = " Port        lport WWN                rport WWN            IOPs     Throughput\n" +
                            std::string(80, '=') + "\n";

constexpr int exit_of(int code) { return code & 0xFF; }

Result ioperf(const Bed& bed, strings args) {
    args.insert(args.begin(), {"fcpim", "--ioperf"});
    return bed.qmx(args);
}

// Exit status, standard output and standard error of a run, to compare at once.
using Outcome = std::tuple<int, std::string, std::string>;
Outcome of(const Result& r) { return {r.status, r.out, r.err}; }

std::string words(const strings& args) {
    std::string w;
    for (const std::string& a : args) w += " " + a;
    return w;
}

}  // namespace

TEST(FcpimIoperf, RatesOfAPortAndARangeAtEachLevelAndArgumentErrors) {
    Bed bed = Bed::from_json(kHost);
    // It sleeps the interval count times and divides by it.
    bed.clear_log();
    const std::string row = " 2/0/2     256       1.0 MB/s \n\n";
    EXPECT_TRUE(prints(ioperf(bed, {"2/0", "-i", "5", "-c", "3"}), kHeadPort + row + row + row));
    EXPECT_EQ(lines_with(scen::read_text(bed.dir() + "/log").value_or(""), "sleep "),
              (strings{"sleep 5 s -> io_clock=5", "sleep 5 s -> io_clock=10", "sleep 5 s -> io_clock=15"}));
    EXPECT_EQ(requests(bed, "FCPIM_GET_MODSTATS").size(), 4u);  // a priming read, then one a sample

    const std::string skipped = "\nInfo: ioc 3 skipped\n\n";
    struct Case {
        strings args;
        std::string out;
        std::string err;
    } cases[] = {
        // The function: its logical ports (their nexuses and their own I/O) and its own I/O.
        {{"1/0"}, kHeadPort + " 1/0/0    1610       6.3 MB/s \n\n", ""},
        {{"1/0", "-l"}, kHeadL +
                            " 1/0/0  10:00:00:e1:f2:00:10:00    1600       5.9 MB/s \n"
                            " 1/0/0  30:00:00:e1:f2:00:10:01       7     448.7 KB/s \n\n", ""},
        {{"1/0", "-r"}, kHeadR +
                            " 1/0/0  50:0e:1f:20:00:a1:00:01    1500       5.8 MB/s \n"
                            " 1/0/0  50:0e:1f:20:00:a1:00:02      10       5.0 KB/s \n\n", ""},
        {{"1/0", "-l", kLport, "-r", kTgtB},
         kHeadLR + " 1/0/0  10:00:00:e1:f2:00:10:00  50:0e:1f:20:00:a1:00:02      10       5.0 KB/s \n\n", ""},
        // The NPIV port does not see B: said so, and only the port that does is sampled.
        {{"1/0", "-r", kTgtB}, kHeadR + " 1/0/0  50:0e:1f:20:00:a1:00:02      10       5.0 KB/s \n\n",
         "ERROR: rpwwn 30:00:00:e1:f2:00:10:01:50:0e:1f:20:00:a1:00:02 do not match\n"},
        // The range walks every function from 1/0 to 2/1; the Ethernet one is skipped. No bytes
        // show as five blanks.
        {{"1/0-2/1"}, skipped + kHeadPort +
                          " 1/0/0    1610       6.3 MB/s \n"
                          " 1/1/1       0       0.0      \n"
                          " 2/0/2     256       1.0 MB/s \n"
                          " 2/1/3       1    1023.0 KB/s \n\n", ""},
        {{"1/0-2/1", "-l"}, skipped + kHeadL +
                                " 1/0/0  10:00:00:e1:f2:00:10:00    1600       5.9 MB/s \n"
                                " 1/0/0  30:00:00:e1:f2:00:10:01       7     448.7 KB/s \n"
                                " 1/1/1  10:00:00:e1:f2:00:10:01       0       0.0      \n"
                                " 2/0/2  10:00:00:e1:f2:00:20:00     256       1.0 MB/s \n"
                                " 2/1/3  10:00:00:e1:f2:00:20:01       0       0.0      \n\n", ""},
        {{"1/0-2/1", "-r"}, skipped + kHeadR +
                                " 1/0/0  50:0e:1f:20:00:a1:00:01    1500       5.8 MB/s \n"
                                " 1/0/0  50:0e:1f:20:00:a1:00:02      10       5.0 KB/s \n"
                                " 1/1/1  50:0e:1f:20:00:b1:00:01       0       0.0      \n"
                                " 2/0/2  50:0e:1f:20:00:c1:00:01     256       1.0 MB/s \n\n", ""},
        // A last port before the first is ignored: the walk goes to the end.
        {{"1/1-1/0"}, "\nIgnoring invalid last port_id\n\n\nInfo: ioc 2 skipped\n\n" + kHeadPort +
                          " 1/1/1       0       0.0      \n"
                          " 2/0/2     256       1.0 MB/s \n"
                          " 2/1/3       1    1023.0 KB/s \n\n", ""},
    };
    for (const Case& c : cases) {
        strings args = c.args;
        args.insert(args.end(), {"-c", "1"});
        EXPECT_EQ(of(ioperf(bed, args)), Outcome(0, c.out, c.err)) << words(c.args);
    }
    // A remote port that no logical port lists is an unknown one.
    EXPECT_TRUE(fails(ioperf(bed, {"1/0", "-r", "50:0e:1f:20:00:00:00:77"}), 19,
                      "ERROR: rpwwn 10:00:00:e1:f2:00:10:00:50:0e:1f:20:00:00:00:77 do not match\n"
                      "ERROR: rpwwn 30:00:00:e1:f2:00:10:01:50:0e:1f:20:00:00:00:77 do not match\n"
                      "ERROR: Unknown remote port WWN \n"));
    EXPECT_TRUE(bed.log_clean());

    // Arguments are judged before anything is read.
    bed.clear_log();
    const std::string failed = "ERROR: Operation failed \n";
    const std::string syntax = "ERROR: command \"--ioperf\" syntax is incorrect or one of the parameters is incorrect\n";
    struct Bad {
        strings args;
        int status;
        std::string err;
    } bad[] = {
        {{"9/9", "-c", "0"}, 0, ""},  // a count of 0 ends before the port is looked at
        {{"1/0", "-c", "0", "-i", "0"}, exit_of(4019), "ERROR: Invalid interval value\n"},
        {{"1/0", "-l", "12"}, exit_of(4008), "ERROR: Incorrectly formatted WWN\n"},
        {{"1/0", "-i", "2147483648"}, exit_of(4007), syntax},
        {{"1/0", "-c", "-1"}, exit_of(4007), syntax},
        {{"1/0", "-c", "1", "2"}, exit_of(4007), syntax},
        {{"1/0-2/1", "-l", kLport}, 1, "\nERROR: lport WWN is invalid for port range option.\n\n" + failed},
        {{"1/0-2/1", "-r", kTgtA, "-l"}, 1, "\nERROR: rport WWN is invalid for port range option.\n\n" + failed},
        {{"9/9", "-c", "1"}, exit_of(4011), "ERROR: port id \"9/9\" in command is incorrect\n"},
    };
    for (const Bad& c : bad) EXPECT_EQ(of(ioperf(bed, c.args)), Outcome(c.status, "", c.err)) << words(c.args);
    // A word with a '-' is never a WWN: -c has no value here.
    EXPECT_EQ(ioperf(bed, {"1/0", "-l", "-c"}).status, exit_of(4001));
    EXPECT_EQ(requests(bed, "FABRIC_GET_LPORTS").size() + requests(bed, "FCPIM_GET_MODSTATS").size(), 0u);
}

TEST(FcpimIoperf, ACounterThatWentBackwardsCountsNewPlusFourMinusOld) {
    // A million one-byte reads a second: after 4294 seconds the counters are just below 2^32
    // and wrap during the next second.
    Bed bed = Bed::from_json(R"({"sleep": "io_clock", "adapters": [{"serial": "TVF0000001",
      "ports": [{"pwwn": "10:00:00:e1:f2:00:10:00", "functions": [{"pci": "0000:03:00.0",
        "rports": [{"pwwn": "50:0e:1f:20:00:a1:00:01", "ext": {"io": {"read_iops": 1000000, "io_size": 1}}}]}]}]}]})");
    ASSERT_EQ(bed.kvosim("io", {"4294"}).status, 0);
    EXPECT_TRUE(prints(ioperf(bed, {"1/0", "-c", "1"}), kHeadPort + " 1/0/0  1000004     976.3 KB/s \n\n"));
}

TEST(FcpimIoperf, FailuresSayWhichObjectAndEndWithTheStatus) {
    const std::string ioc = "ERROR: IOC failure - Retry if persists contact support \n";
    const std::string nexus = "10:00:00:e1:f2:00:10:00:50:0e:1f:20:00:a1:00:01";
    struct Case {
        std::string code;
        strings args;
        int status;
        std::string out;
        std::string err;
    } cases[] = {
        {"FCPIM_GET_MODSTATS", {"1/0"}, 56, "", "ERROR: Failed to get fcpim stats, error code = 56\n" + ioc},
        {"LPORT_GET_IOSTATS", {"1/0", "-l"}, 56, "",
         "ERROR: Failed to get lport 10:00:00:e1:f2:00:10:00 stats, error code = 56\n" + ioc},
        {"ITNIM_GET_IOSTATS", {"1/0", "-r"}, 56, "",
         "ERROR: Failed to get rport " + nexus + " IO stats, error code = 56\n" + ioc},
        {"ITNIM_GET_IOSTATS", {"1/0", "-l", kLport, "-r", kTgtA}, 56, "",
         "ERROR: Failed to get itnim " + nexus + " stats, error code = 56\n" + ioc},
        // Lists that cannot be read leave their port (or logical port) without rows.
        {"FABRIC_GET_LPORTS", {"1/0", "-l"}, 0, kHeadL + "\n", "\nERROR: Could not get port details for 1/0/0\n\n"},
        {"LPORT_GET_RPORTS", {"1/0", "-r"}, 0, kHeadR + "\n",
         "ERROR: Could not get rport details of 1/0/0: 10:00:00:e1:f2:00:10:00\n"},
    };
    for (const Case& c : cases) {
        Bed bed = Bed::from_json(kHost);
        bed.fault({"request", c.code, "status", "56", "times", "1"});
        strings args = c.args;
        args.insert(args.end(), {"-c", "1"});
        EXPECT_EQ(of(ioperf(bed, args)), Outcome(c.status, c.out, c.err)) << c.code;
    }
}

TEST(FcpimIoperf, LongListsAreCutToTheTable) {
    // 258 logical ports (257 NPIV ports) and 1030 remote ports on one function.
    std::string vports, rports;
    char w[32];
    for (int i = 1; i <= 257; ++i) {
        snprintf(w, sizeof w, "30:00:00:e1:f2:%02x:%02x:00", i >> 8, i & 0xFF);
        vports += std::string(i > 1 ? "," : "") + R"({"pwwn": ")" + w + R"("})";
    }
    for (int i = 0; i < 1030; ++i) {
        snprintf(w, sizeof w, "21:00:00:e1:f2:99:%02x:%02x", i >> 8, i & 0xFF);
        rports += std::string(i > 0 ? "," : "") + R"({"pwwn": ")" + w + R"(", "role": "initiator", "target": )" +
                  std::to_string(i) + "}";
    }
    Bed bed = Bed::from_json(std::string(R"({"sleep": "io_clock", "adapters": [{"serial": "TVF0000001",
      "ports": [{"pwwn": ")") + kLport + R"(", "functions": [{"pci": "0000:03:00.0",
        "ext": {"vports": [)" + vports + R"(]}, "rports": [)" + rports + "]}]}]}]}");
    // The remote ports fill what the table holds; the NPIV ports have none left to list.
    Result r = ioperf(bed, {"1/0", "-r", "-c", "1"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.rfind("\nWarning: lport list (258) reduced for 1/0/0\n"
                          "\nWarning: rport list (1030) reduced for 1000f2e1000010\n\n" + kHeadR, 0), 0u)
        << r.out.substr(0, 200);
    const strings rows = lines_with(r.out, " 1/0/0  ");
    ASSERT_EQ(rows.size(), 1024u);
    EXPECT_EQ(rows.back().rfind(" 1/0/0  21:00:00:e1:f2:99:03:ff  ", 0), 0u);
    EXPECT_TRUE(bed.log_clean());
}

TEST(FcpimIoperf, AnInterruptedMonitorEndsByItsSignalAndLeavesNothingBehind) {
    const std::string sample = " 1/0/0    1610       6.3 MB/s \n\n";
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) {
        Bed bed = Bed::from_json(kHost);
        ASSERT_EQ(bed.qmx({"adapter", "--list"}).status, 0);  // registers the adapters
        const std::optional<std::string> conf = bed.conf();
        // No count: it runs until the signal.
        Result r = bed.qmx_interrupted({"fcpim", "--ioperf", "1/0"}, {sample, sig});
        EXPECT_EQ(r.status, 128 + sig) << sig;
        EXPECT_EQ(r.err, "") << sig;
        // Whole samples only: all that was printed reached the pipe, nothing after the stop.
        ASSERT_EQ(r.out.rfind(kHeadPort, 0), 0u) << sig;
        std::string whole = kHeadPort;
        while (whole.size() < r.out.size()) whole += sample;
        EXPECT_EQ(r.out, whole) << sig;
        // The configuration file unchanged and unlocked.
        EXPECT_EQ(bed.conf(), conf) << sig;
        const int fd = open((bed.root() + "/etc/kvo.conf").c_str(), O_RDONLY | O_CLOEXEC);
        ASSERT_GE(fd, 0);
        EXPECT_EQ(flock(fd, LOCK_EX | LOCK_NB), 0) << sig;
        close(fd);
    }
}
