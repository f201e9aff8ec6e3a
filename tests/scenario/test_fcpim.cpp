// The fcpim class end to end: I-T nexus query and statistics reset, the path time-out, the I/O
// throttle and the target reset list, with the configuration file and the request log checked.
#include <string>
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

constexpr const char* kLocal0 = "10:00:00:e1:f2:00:00:00";  // adapter 1, port 0 (/dev/kvo)
constexpr const char* kLocal1 = "10:00:00:e1:f2:00:00:01";  // adapter 1, port 1 (bsg)
constexpr const char* kTarget = "50:0e:1f:20:00:00:01:00";  // behind port 1

std::string target(int i) {
    char b[32];
    snprintf(b, sizeof b, "50:0e:1f:20:00:00:00:%02x", i);
    return b;
}

// One FC HBA: port 0 reached through the driver's control node, with `targets` target ports
// (the second one offline), an initiator and a fabric controller behind it; port 1 on its bsg
// node with one target and a throttle of its own (max 1024, 512 in force).
std::string host(int targets = 3) {
    std::string rports;
    for (int i = 0; i < targets; ++i) {
        rports += R"({"pwwn": ")" + target(i) + R"(", "target": )" + std::to_string(i);
        if (i == 1) rports += R"(, "ext": {"itnim": {"state": 0, "retry": 0, "rec": 0, "task_retry_id": 1, "conf_comp": 1}})";
        rports += "},";
    }
    rports += R"({"pwwn": "21:00:00:e1:f2:99:00:00", "role": "initiator", "target": 60},
                 {"pwwn": "20:fe:00:05:1e:00:00:01", "role": "fabric", "target": 61})";
    return R"({"adapters": [{"serial": "TVF0000001", "model": "TV-1862", "type": "FC",
      "ports": [
        {"pwwn": ")" + std::string(kLocal0) + R"(", "functions": [{"pci": "0000:03:00.0", "host": 5,
          "node": "none", "rports": [)" + rports + R"(]}]},
        {"pwwn": ")" + std::string(kLocal1) + R"(", "functions": [{"pci": "0000:03:00.1", "host": 6,
          "ext": {"fcpim": {"throttle": {"max": 1024, "cur": 512, "cfg": 512}}},
          "rports": [{"pwwn": ")" + std::string(kTarget) + R"(", "target": 0}]}]}]}]})";
}

// The exit status of a front-end code (the shell sees its low byte).
constexpr int exit_of(int code) { return code & 0xFF; }

std::string err(const char* text) { return std::string("ERROR: ") + text + "\n"; }
std::string incorrect(const char* cmd) {
    return std::string("ERROR: command \"") + cmd +
           "\" syntax is incorrect or one of the parameters is incorrect\n";
}
std::string bad_arg(const char* id, const char* cmd) {
    return std::string("ERROR: Please check the argument \"") + id + "\" for command \"" + cmd + "\"\n";
}
const std::string kBadWwn = "ERROR: Incorrectly formatted WWN\n";

std::string query_out(const char* state, const char* retry, const char* rec, const char* task,
                      const char* conf, const char* trs) {
    char b[512];
    snprintf(b, sizeof b,
             "%-35s: %s\n%-35s: %s\n%-35s: %s\n%-35s: %s\n%-35s: %s\n%-35s: %s\n", "FCP IM state",
             state, "Data retransmission support", retry, "REC support", rec,
             "Task retry identification support", task, "Confirmed completions support", conf,
             "Target reset support", trs);
    return b;
}

strings conf_lines(const Bed& bed, const std::string& part) {
    return lines_with(bed.conf().value_or(""), part);
}

}  // namespace

// ---- I-T nexus --------------------------------------------------------------------------------

TEST(FcpimQuery, AttributesOfOnlineOfflineAndInitiatorNexusesAndErrors) {
    Bed bed = Bed::from_json(host());
    const std::string online = query_out("online", "Supported", "Supported", "Not Supported",
                                         "Not Supported", "Enabled");
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--query", "1/0", target(0)}), online));
    // The local port named explicitly is the same nexus.
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--query", "1/0", target(0), "-l", kLocal0}), online));
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--query", "1/0", target(1)}),
                       query_out("offline", "Not Supported", "Not Supported", "Supported",
                                 "Supported", "Enabled")));
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--query", "1/0", "21:00:00:e1:f2:99:00:00"}),
                       query_out("initiator", "Supported", "Supported", "Not Supported",
                                 "Not Supported", "Enabled")));
    // The nexus the driver was asked for: the function's own port and the target.
    strings asked = requests(bed, "ITNIM_GET_ATTR");
    ASSERT_EQ(asked.size(), 4u);
    EXPECT_NE(asked[0].find(std::string("lpwwn ") + kLocal0 + " rpwwn " + target(0)), std::string::npos)
        << asked[0];
    EXPECT_TRUE(bed.log_clean());

    bed.clear_log();
    struct Case {
        strings args;
        int status;
        std::string err;
    } cases[] = {
        {{"1/0", "50:0e:1f:20:00:00:00"}, exit_of(4008), kBadWwn},
        {{"1/0", target(0), "-l", "10:00"}, exit_of(4008), kBadWwn},
        {{"1/0", target(0), "-x", kLocal0}, exit_of(4007), incorrect("--query")},
        {{"1/0", target(0), "-l"}, exit_of(4007), incorrect("--query")},
        {{"1/0", "50:0e:1f:20:00:00:00:77"}, 19, err("Unknown remote port WWN ")},
        {{"1/0", "20:fe:00:05:1e:00:00:01"}, 19, err("Unknown remote port WWN ")},
        {{"1/0", target(0), "-l", kLocal1}, 18, err("Unknown local port WWN ")},
    };
    for (const Case& c : cases) {
        strings args = {"fcpim", "--query"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        EXPECT_TRUE(fails(bed.qmx(args), c.status, c.err)) << c.args.back();
    }
    // Word errors are found before anything is asked of the driver's nexus table.
    EXPECT_EQ(requests(bed, "ITNIM_GET_ATTR").size(), 3u);
    EXPECT_TRUE(bed.log_clean());
}

// ---- Path time-out ----------------------------------------------------------------------------

TEST(FcpimPathtov, BoundsChangeTheDriverAndTheFile) {
    Bed bed = Bed::from_json(host());
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--pathtov", "1/0", "60"}), "path timeout is set to 60\n"));
    EXPECT_EQ(conf_lines(bed, "pathtov"), strings{"kvo0-pathtov = 60;"});
    // In the initiator mode section, which follows the target reset one.
    const std::string conf = bed.conf().value_or("");
    const size_t section = conf.find("\n#\n# Initiator mode configuration\n#\n");
    ASSERT_NE(section, std::string::npos);
    EXPECT_GT(section, conf.find("\n#\n# Target reset configuration\n#\n"));
    EXPECT_GT(conf.find("kvo0-pathtov = 60;"), section);
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--pathtov", "1/1", "007"}), "path timeout is set to 7\n"));
    EXPECT_EQ(conf_lines(bed, "pathtov"), (strings{"kvo0-pathtov = 60;", "kvo1-pathtov = 7;"}));
    EXPECT_EQ(bed.state()["adapters"][0]["ports"][0]["functions"][0]["ext"]["fcpim"]["path_tov"], 60);
    // 0 is the driver's default: set in the driver, and its line leaves the file.
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--pathtov", "1/1", "0"}), "path timeout is set to 0\n"));
    EXPECT_EQ(conf_lines(bed, "pathtov"), (strings{"kvo0-pathtov = 60;"}));
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--pathtov", "1/1", "7"}), "path timeout is set to 7\n"));

    // Refused by the command line, before any request: the driver never sees 61.
    bed.clear_log();
    for (const char* word : {"61", "1000000000000", "-1", "6o", ""})
        EXPECT_TRUE(fails(bed.qmx({"fcpim", "--pathtov", "1/0", word}), exit_of(4007), incorrect("--pathtov")))
            << word;
    EXPECT_TRUE(requests(bed, "FCPIM_FAST_FAILOVER").empty());

    // A refusal of the driver leaves the file as it was.
    bed.fault({"request", "FCPIM_FAST_FAILOVER", "status", "68"});
    EXPECT_TRUE(fails(bed.qmx({"fcpim", "--pathtov", "1/0", "5"}), 68, err("Invalid time-out value ")));
    EXPECT_EQ(conf_lines(bed, "pathtov"), (strings{"kvo0-pathtov = 60;", "kvo1-pathtov = 7;"}));
    EXPECT_TRUE(bed.log_clean());
}

// ---- I/O throttle -----------------------------------------------------------------------------

TEST(FcpimThrottle, QuerySetAndClearAgainstTheDriversMaximum) {
    Bed bed = Bed::from_json(host());
    const std::string head = "IO Throttle:\nMax allowed\t: 1024\nCurrent value\t: 512\n";
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--throttlequery", "1/1"}), head));
    const std::string set_ok = "\nIO Throttle value will be effective on next reboot \n"
                               "and will be subject to number of PFs created.\n";
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--throttleset", "1/1", "1024"}), set_ok));
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--throttlequery", "1/1"}), head + "Configured\t: 1024\n"));

    // 65537 keeps its low 16 bits: 1.
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--throttleset", "1/1", "65537"}), set_ok));
    EXPECT_NE(requests(bed, "FCPIM_THROTTLE_SET").back().find("(cfg 1)"), std::string::npos)
        << requests(bed, "FCPIM_THROTTLE_SET").back();

    // Above the driver's maximum: the handler's own line, then the argument error.
    Result over = bed.qmx({"fcpim", "--throttleset", "1/1", "1025"});
    EXPECT_EQ(over.status, exit_of(4004));
    EXPECT_EQ(over.out, "Error: IO Throttle value can not exceed 1024\n");
    EXPECT_EQ(over.err, bad_arg("1/1", "--throttleset"));

    // Words refused before any request: low 16 bits of 0, and no number at all.
    bed.clear_log();
    EXPECT_TRUE(fails(bed.qmx({"fcpim", "--throttleset", "1/1", "65536"}), exit_of(4004), bad_arg("1/1", "--throttleset")));
    EXPECT_TRUE(fails(bed.qmx({"fcpim", "--throttleset", "1/1", "0"}), exit_of(4004), bad_arg("1/1", "--throttleset")));
    EXPECT_TRUE(fails(bed.qmx({"fcpim", "--throttleset", "1/1", "1e3"}), exit_of(4007), incorrect("--throttleset")));
    EXPECT_TRUE(requests(bed, "FCPIM_THROTTLE_QUERY").empty());
    EXPECT_TRUE(requests(bed, "FCPIM_THROTTLE_SET").empty());

    // Clearing configures the maximum.
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--throttleclear", "1/1"}),
                       "Default IO Throttle value will be effective on next reboot.\n"));
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--throttlequery", "1/1"}), head + "Configured\t: 1024\n"));
    EXPECT_TRUE(bed.log_clean());

    // The configured value takes effect at the driver's next start.
    ASSERT_EQ(bed.qmx({"fcpim", "--throttleset", "1/1", "100"}).status, 0);
    ASSERT_EQ(bed.kvosim("restart").status, 0);
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--throttlequery", "1/1"}),
                       "IO Throttle:\nMax allowed\t: 1024\nCurrent value\t: 100\n"));
}

// ---- Target reset list ------------------------------------------------------------------------

TEST(FcpimTrs, DisableEnableQueryAndClearMirroredInTheFile) {
    Bed bed = Bed::from_json(host());
    const std::string none = "\nNo valid entries are present in the target reset list\n\n";
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--trs_query", "1/0"}), none));

    const std::string disabled = "\nDisabled target reset for the specified target port\n\n";
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--trs_disable", "1/0", target(2)}), disabled));
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--trs_disable", "1/0", target(0), "-l", kLocal0}), disabled));
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--trs_query", "1/0"}),
                       "\nTarget reset has been disabled for the following IT Nexus:\n\n"
                       "Initiator WWN  : " + std::string(kLocal0) + "\nTarget WWN     : " + target(2) + "\n\n"
                       "Initiator WWN  : " + std::string(kLocal0) + "\nTarget WWN     : " + target(0) + "\n\n"));
    // In the target reset section.
    EXPECT_NE(bed.conf()->find("# Target reset configuration\n#\nkvo0-trs-cfg"), std::string::npos);
    EXPECT_EQ(conf_lines(bed, "trs-cfg"),
              strings{"kvo0-trs-cfg = \"2;" + std::string(kLocal0) + "," + target(2) + ";" + kLocal0 +
                      "," + target(0) + ";\";"});
    // The nexus query sees it too.
    EXPECT_NE(bed.qmx({"fcpim", "--query", "1/0", target(2)}).out.find("Disabled"), std::string::npos);

    const std::string enabled = "\nEnabled target reset for the specified target port\n\n";
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--trs_enable", "1/0", target(2)}), enabled));
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--trs_enable", "1/0", target(0)}), enabled));
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--trs_query", "1/0"}), none));
    // The last pair gone, the line stays with a count of 0; a clear removes it.
    EXPECT_EQ(conf_lines(bed, "trs-cfg"), strings{"kvo0-trs-cfg = \"0;\";"});
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--trs_disable", "1/0", target(1)}), disabled));
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--trs_clear", "1/0"}),
                       "\nCleared all entries in the target reset list\n\n"));
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--trs_query", "1/0"}), none));
    EXPECT_TRUE(conf_lines(bed, "trs-cfg").empty());
    EXPECT_TRUE(bed.log_clean());
}

TEST(FcpimTrs, SixteenNexusesAtMostAndNoneThroughBsg) {
    Bed bed = Bed::from_json(host(17));
    for (int i = 0; i < 16; ++i)
        ASSERT_EQ(bed.qmx({"fcpim", "--trs_disable", "1/0", target(i)}).status, 0) << i;
    EXPECT_TRUE(fails(bed.qmx({"fcpim", "--trs_disable", "1/0", target(16)}), 212,
                      err("Maximum number of entries reached ")));
    std::string line = conf_lines(bed, "trs-cfg").at(0);
    EXPECT_EQ(line.rfind("kvo0-trs-cfg = \"16;", 0), 0u) << line;
    EXPECT_EQ(line.find(target(16)), std::string::npos);
    EXPECT_EQ(lines_with(bed.qmx({"fcpim", "--trs_query", "1/0"}).out, "Target WWN").size(), 16u);

    // The bsg interface has no number for these requests: refused before any is sent.
    bed.clear_log();
    const std::string notsupp = err("Command/API not supported ");
    EXPECT_TRUE(fails(bed.qmx({"fcpim", "--trs_query", "1/1"}), 26, notsupp));
    EXPECT_TRUE(fails(bed.qmx({"fcpim", "--trs_disable", "1/1", kTarget}), 26, notsupp));
    EXPECT_TRUE(fails(bed.qmx({"fcpim", "--trs_clear", "1/1"}), 26, notsupp));
    EXPECT_TRUE(requests(bed, "ITNIM_TRS_QUERY").empty());
    EXPECT_TRUE(requests(bed, "ITNIM_TRS_DISABLE").empty());
    EXPECT_TRUE(bed.log_clean());
}

// ---- Statistics ---------------------------------------------------------------------------------

namespace {

// A host whose port-0 target carries I/O at the given rates.
std::string io_host(int read_iops, int write_iops, long io_size) {
    std::string h = host(1);
    const std::string at = R"("target": 0)";
    h.replace(h.find(at), at.size(),
              at + R"(, "ext": {"io": {"read_iops": )" + std::to_string(read_iops) +
                  R"(, "write_iops": )" + std::to_string(write_iops) + R"(, "io_size": )" +
                  std::to_string(io_size) + "}}");
    return h;
}

std::string itnim_block(int onlines, int prli) {
    return "\nITNIM Stats:\n\tOnlines : " + std::to_string(onlines) +
           "\n\tOfflines : 0\n\tPRLI sent : " + std::to_string(prli) +
           "\n\tExchange allocation waits : 0\n\tPRLI response errors : 0\n\tPRLI accepts : " +
           std::to_string(prli) +
           "\n\tRemote port is an initiator : 0\n\tPRLI response parse errors : 0\n"
           "\tPRLI rejects : 0\n\tTimeouts : 0\n\tSequence level error recoveries : 0\n";
}

std::string io_head(unsigned reads, unsigned writes, unsigned rd_bytes, unsigned wr_bytes) {
    return "\nHAL fcpim statistics\n\tTotal IO : " + std::to_string(reads + writes) +
           "\n\tData in-bound requests : " + std::to_string(reads) +
           "\n\tData out-bound requests : " + std::to_string(writes) +
           "\n\tTotal IO Completions : " + std::to_string(reads + writes) +
           "\n\tWrite data transferred in bytes : " + std::to_string(wr_bytes) +
           "\n\tRead data transferred in bytes : " + std::to_string(rd_bytes) + "\n";
}

}  // namespace

TEST(FcpimStats, CountersFollowTheBedsIoAndStartOverAfterAReset) {
    Bed bed = Bed::from_json(io_host(120, 30, 4096));
    ASSERT_EQ(bed.kvosim("io", {"10"}).status, 0);
    Result r = bed.qmx({"fcpim", "--stats", "1/0", target(0)});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out.rfind(itnim_block(1, 1) + io_head(1200, 300, 4915200, 1228800), 0), 0u) << r.out;
    const std::string total = "\n\nTotal data transferred in bytes  : 6144000\n";
    ASSERT_GT(r.out.size(), total.size());
    EXPECT_EQ(r.out.substr(r.out.size() - total.size()), total);
    // Every counter of the I/O table is printed once, in the table's order.
    EXPECT_EQ(lines_with(r.out, " : ").size(), 11u + 68u + 1u);

    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--statsclr", "1/0", target(0)}),
                       "Successfully reset the fcpim level stats\n"));
    r = bed.qmx({"fcpim", "--stats", "1/0", target(0)});
    EXPECT_EQ(r.out.rfind(itnim_block(0, 0) + io_head(0, 0, 0, 0), 0), 0u) << r.out;
    ASSERT_EQ(bed.kvosim("io", {"2"}).status, 0);
    r = bed.qmx({"fcpim", "--stats", "1/0", target(0), "-l", kLocal0});
    EXPECT_EQ(r.out.rfind(itnim_block(0, 0) + io_head(240, 60, 983040, 245760), 0), 0u) << r.out;
    EXPECT_TRUE(bed.log_clean());
}

TEST(FcpimStats, ByteTotalIsA32BitSumThatWraps) {
    // One second: 3,000,000,000 bytes read and 2,000,000,000 written; each fits 32 bits, the
    // sum does not.
    Bed bed = Bed::from_json(io_host(3000, 2000, 1000000));
    ASSERT_EQ(bed.kvosim("io", {"1"}).status, 0);
    Result r = bed.qmx({"fcpim", "--stats", "1/0", target(0)});
    ASSERT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("\tRead data transferred in bytes : 3000000000\n"), std::string::npos);
    EXPECT_NE(r.out.find("\nTotal data transferred in bytes  : 705032704\n"), std::string::npos) << r.out;
}

TEST(FcpimStatsclr, ResetsTheNamedNexusAndAFailedStatsQueryStopsAfterTheFirstTable) {
    Bed bed = Bed::from_json(host());
    EXPECT_TRUE(prints(bed.qmx({"fcpim", "--statsclr", "1/1", kTarget}),
                       "Successfully reset the fcpim level stats\n"));
    strings sent = requests(bed, "ITNIM_RESET_STATS");
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].rfind("bsg /dev/bsg/fc_host6 ITNIM_RESET_STATS vcmd=50 ", 0), 0u) << sent[0];
    EXPECT_TRUE(fails(bed.qmx({"fcpim", "--statsclr", "1/1", target(0)}), 19,
                      err("Unknown remote port WWN ")));
    EXPECT_TRUE(bed.log_clean());

    // A failed second query of --stats ends after the first table.
    bed.fault({"request", "ITNIM_GET_IOSTATS", "status", "35"});
    Result r = bed.qmx({"fcpim", "--stats", "1/0", target(0)});
    EXPECT_EQ(r.status, 35);
    EXPECT_EQ(r.out, itnim_block(1, 1));
    EXPECT_EQ(r.err, err("Remote port is offline "));
    EXPECT_TRUE(fails(bed.qmx({"fcpim", "--stats", "1/0", "50:0e:1f:20:00:00:00:77"}), 19,
                      err("Unknown remote port WWN ")));
}
