// The fault matrix: every built command is run once on an emulated host to learn from the
// request log which driver requests it sends; then, for each of those requests, again with the
// request failing in every way a driver can fail it: each errno the channel maps to a status
// of its own, two driver statuses, a garbage reply and a short one. Every run must end in the
// message and exit status the failure calls for, never in a signal, a sanitizer report or a
// malformed request, and a refused change must leave /etc/kvo.conf as it was.
//
// The commands come from the product's command table (a built command without a row fails
// the table test), the errnos from the channel's own mapping, the texts from the status table.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "boot_pkg.h"
#include "harness.h"
#include "kvol_linux.h"
#include "qmx.h"

using scen::Bed;
using scen::Result;
using strings = std::vector<std::string>;
using nlohmann::json;

namespace {

// One representative command line per built command, on the bed below. `tolerated` names the
// requests whose failure the command survives when it sends them itself (not in the scan).
struct Row {
    const char* cls;
    const char* cmd;
    strings args;  // "@pkg" stands for a boot code package made for the bed
    std::set<std::string> tolerated = {};
};

constexpr const char* kTarget0 = "50:0e:1f:20:00:00:00:01";  // behind port 0 (bsg node)
constexpr const char* kTarget1 = "50:0e:1f:20:00:00:00:02";  // behind port 1 (control node)

const Row kRows[] = {
    {"adapter", "--autostart", {"1", "on"}},
    {"adapter", "--count", {}},
    {"adapter", "--disable", {"1"}},
    {"adapter", "--enable", {"1"}},
    {"adapter", "--list", {}},
    {"adapter", "--mode", {"1", "HBA"}},
    {"adapter", "--name", {"1", "lab"}, {"IOC_GET_INFO"}},
    {"adapter", "--query", {"1"}, {"IOC_GET_INFO", "FLASH_GET_ATTR"}},
    {"adapter", "--reload_fw", {"1"}},
    {"boot", "--update", {"1", "@pkg"}},
    {"fcpim", "--ioperf", {"1/0", "-r", "-c", "1"}, {"FABRIC_GET_LPORTS", "LPORT_GET_RPORTS"}},
    {"fcpim", "--lunlist", {"1/0", "-v"}, {"RPORT_GET_SCSI_ADDRESS", "ITNIM_GET_ATTR"}},
    {"fcpim", "--lunmaskadd", {"1/0", kTarget0, "0001-0000-0000-0000"}, {"RPORT_GET_SCSI_ADDRESS"}},
    {"fcpim", "--lunmaskclear", {"1/0"}},
    {"fcpim", "--lunmaskdelete", {"1/0", kTarget0, "0002-0000-0000-0000"}, {"RPORT_GET_SCSI_ADDRESS"}},
    {"fcpim", "--lunmaskdisable", {"1/0"}},
    {"fcpim", "--lunmaskenable", {"1/0"}},
    {"fcpim", "--lunmaskquery", {"1/0"}},
    {"fcpim", "--pathtov", {"1/0", "30"}},
    {"fcpim", "--query", {"1/0", kTarget0}},
    {"fcpim", "--stats", {"1/0", kTarget0}},
    {"fcpim", "--statsclr", {"1/0", kTarget0}},
    {"fcpim", "--throttleclear", {"1/0"}},
    {"fcpim", "--throttlequery", {"1/0"}},
    {"fcpim", "--throttleset", {"1/0", "100"}},
    {"fcpim", "--trs_enable", {"1/1", kTarget1}},
    {"fcpim", "--trs_disable", {"1/1", kTarget1}},
    {"fcpim", "--trs_clear", {"1/1"}},
    {"fcpim", "--trs_query", {"1/1"}},
};

// A command that sends nothing but the scan's requests: its log tells them from the others'.
const strings kScanOnly = {"adapter", "--count"};

// Both drivers loaded (the Ethernet one without functions, so a failed storage scan keeps its
// own status); one FC HBA whose port 0 is reached through its bsg node and port 1 through the
// driver's control node, a target behind each.
const char kHost[] = R"({"drivers": {"kvo": true, "tqe": true}, "sg_to_from": "read", "adapters": [{
  "serial": "TVF0000001", "model": "TV-1862", "type": "FC", "ports": [
   {"pwwn": "10:00:00:e1:f2:00:00:00", "functions": [{"pci": "0000:03:00.0", "host": 5,
     "rports": [{"pwwn": "50:0e:1f:20:00:00:00:01", "target": 0}]}]},
   {"pwwn": "10:00:00:e1:f2:00:00:01", "functions": [{"pci": "0000:03:00.1", "host": 6, "node": "none",
     "rports": [{"pwwn": "50:0e:1f:20:00:00:00:02", "target": 0}]}]}]}]})";

// Settings in the file before every run, so that a refused change has something to keep.
const strings kBaseline[] = {
    {"adapter", "--name", "1", "base"},
    {"fcpim", "--pathtov", "1/0", "20"},
    {"fcpim", "--pathtov", "1/1", "40"},
    {"fcpim", "--trs_disable", "1/1", kTarget1},
    {"fcpim", "--lunmaskadd", "1/0", kTarget0, "0002-0000-0000-0000"},
};

constexpr int kGarbled = -1;  // a reply that cannot be told from a valid one

struct Fault {
    std::string name;
    json rule;    // the words of the fault rule, as state.json keeps them
    int expect;   // the status the command must end with, or kGarbled
};

// One errno for every status the channel maps errnos to (its catch-all included), a status of
// the table above 255 (the shell sees its low byte), one beyond the table that a front-end code
// shares, and the broken replies. A short bsg reply is a failed transfer: the channel's EIO.
std::vector<Fault> faults() {
    std::map<int, int> first_errno;
    for (int e = 1; e < 134; ++e) first_errno.emplace(kvol_errno_to_status(e), e);
    std::vector<Fault> v;
    for (auto [status, e] : first_errno) v.push_back({strerrorname_np(e), {{"errno", e}}, status});
    for (int s : {static_cast<int>(KVO_STATUS_PORT0_ONLY), static_cast<int>(E_CLI_INCORRECT_CMD)})
        v.push_back({"status " + std::to_string(s), {{"status", s}}, s});
    v.push_back({"garbage", {{"reply", "garbage"}}, kGarbled});
    v.push_back({"short", {{"reply", "short"}}, KVO_STATUS_EIO});
    return v;
}

// What the front end reports for a status: statuses beyond the table are unknown failures.
int reported(int status) { return status < KVO_STATUS_MAX_VAL ? status : KVO_STATUS_MAX_VAL; }
std::string message(int status) { return std::string("ERROR: ") + kvol_status_to_string(status) + "\n"; }

std::string row_name(const Row& r) { return std::string(r.cls) + " " + r.cmd; }

// The code name of a driver request's log line ("bsg /dev/bsg/fc_host5 IOC_GET_INFO vcmd=4 ...");
// "" for the log's other lines (SCSI commands, sysfs writes, sleeps).
std::string code_of(const std::string& line) {
    char transport[16], node[64], code[64];
    if (sscanf(line.c_str(), "%15s %63s %63s", transport, node, code) != 3) return "";
    const std::string t = transport;
    return t == "bsg" || t == "ioctl" || t == "tqe" || t == "ethtool" ? code : "";
}

// A failure the product explains: an error line whose text, when it is a status's, is that of
// a status whose low byte is the exit status (else one of the front end's own messages).
bool explained(const Result& r) {
    if (r.status == 0 || r.err.rfind("ERROR: ", 0) != 0) return false;
    bool status_text = false;
    const size_t code = r.err.find(", error code = ");  // the I/O monitor's own line
    if (code != std::string::npos && (atoi(r.err.c_str() + code + 15) & 0xFF) == r.status) return true;
    for (int s = 1; s <= KVO_STATUS_MAX_VAL; ++s) {
        if (r.err != message(s)) continue;
        if ((s & 0xFF) == r.status) return true;
        status_text = true;
    }
    return !status_text && r.status >= (E_CLI_TOO_FEW_ARGS & 0xFF) && r.status <= (E_CLI_LIST_ERR & 0xFF);
}

bool printable(const std::string& text) {
    for (unsigned char c : text)
        if ((c < 0x20 && c != '\n' && c != '\t' && c != '\r') || c >= 0x7F) return false;
    return true;
}

// The run's outcome against the one the fault calls for (0: success; kGarbled: success, or a
// failure the product explains, since what a garbled reply breaks depends on the field).
::testing::AssertionResult outcome(const Result& r, int expect, const Bed& bed, const std::string& conf) {
    auto fail = [&](const std::string& why) {
        return ::testing::AssertionFailure() << why << "; exit " << r.status << ", stderr: " << r.err;
    };
    if (r.signal != 0) return fail("killed by signal " + std::to_string(r.signal));
    if (r.err.find("Sanitizer") != std::string::npos || r.err.find("runtime error") != std::string::npos)
        return fail("sanitizer report");
    if (::testing::AssertionResult clean = bed.log_clean(); !clean) return clean;
    if (!printable(r.out) || !printable(r.err)) return fail("raw reply bytes reached the terminal");
    if (!printable(bed.conf().value_or(""))) return fail("raw reply bytes reached /etc/kvo.conf");
    if (r.status != 0 && bed.conf() != conf) return fail("a refused change reached /etc/kvo.conf");
    if (expect == kGarbled) return r.status == 0 || explained(r) ? ::testing::AssertionSuccess() : fail("unexplained outcome");
    // Surviving a failure may mean reporting it and going on (the I/O monitor skips a port).
    if (expect == 0) return r.status == 0 ? ::testing::AssertionSuccess() : fail("the command does not survive the failure");
    const int want = reported(expect);
    // The I/O monitor names the failing status in its own line ("..., error code = N").
    const bool named = r.err == message(want) ||
                       (r.err.rfind("ERROR: ", 0) == 0 && r.err.find(", error code = " + std::to_string(want) + "\n") != std::string::npos);
    if (r.status != (want & 0xFF) || !named)
        return fail("expected exit " + std::to_string(want & 0xFF) + " and " + message(want));
    return ::testing::AssertionSuccess();
}

void PrintTo(const Row& r, std::ostream* os) { *os << row_name(r); }

class FaultMatrix : public ::testing::TestWithParam<Row> {};

TEST_P(FaultMatrix, EveryRequestFailsCleanly) {
    const Row& row = GetParam();
    Bed bed = Bed::from_json(kHost);
    ASSERT_EQ(bed.kvosim("sleep", {"io_clock"}).status, 0);  // --ioperf's sleeps run the bed's clock
    for (const strings& args : kBaseline) ASSERT_EQ(bed.qmx(args).status, 0) << args[1];

    strings argv = {row.cls, row.cmd};
    for (const std::string& a : row.args) {
        if (a != "@pkg") {
            argv.push_back(a);
            continue;
        }
        boottest::Package p;
        p.boot_txt = "Version=3.0.0.0\nCARDTYPE=1862\nFIRMWARE=fw.bin\nOPTROM=rom.bin\nPORT=0,1\n";
        p.members = {{"fw.bin", boottest::pattern(4096, 1)}, {"rom.bin", boottest::build_rom({{0, true, 1}}, 0x22)}};
        argv.push_back(boottest::make_package(bed.dir(), p));
    }

    // What a run may change, put back before each run: the driver state (with the run's fault
    // rule), the configuration file and, for commands that write it, the flash.
    const json state = bed.state();
    const std::string conf = *bed.conf();
    const std::string flash_path = bed.dir() + "/flash/TVF0000001.bin";
    const std::string flash = scen::read_text(flash_path).value_or("");
    bool flash_written = false;
    auto restore = [&](const json& rule) {
        json st = state;
        st["faults"] = json::array({rule});
        ASSERT_TRUE(scen::write_text(bed.dir() + "/state.json", st.dump(1)));
        ASSERT_TRUE(scen::write_text(bed.root() + "/etc/kvo.conf", conf));
        if (flash_written) {
            ASSERT_TRUE(scen::write_text(flash_path, flash));
        }
        bed.clear_log();
    };

    // The clean runs: what the scan sends (a command that only scans), then what this one
    // sends; the two logs share the scan's requests.
    bed.clear_log();
    ASSERT_EQ(bed.qmx(kScanOnly).status, 0);
    const strings scan = bed.log();
    bed.clear_log();
    Result clean = bed.qmx(argv);
    ASSERT_EQ(clean.status, 0) << clean.err;
    ASSERT_TRUE(bed.log_clean());
    const strings log = bed.log();
    flash_written = scen::read_text(flash_path) != flash;
    size_t scanned = 0;
    while (scanned < std::min(scan.size(), log.size()) && scan[scanned] == log[scanned]) ++scanned;

    // Each code at its first use, and at its first use by the command itself when the scan
    // sent it before; kvosim gives the codes' numbers.
    struct Point {
        std::string code;
        uint32_t number;
        int skip;   // uses let through before it
        bool bsg;   // the request went to a bsg node (a short reply shows there)
        bool own;   // the command's own use, not the scan's
    };
    std::map<std::string, std::vector<size_t>> uses;
    for (size_t i = 0; i < log.size(); ++i)
        if (std::string c = code_of(log[i]); !c.empty()) uses[c].push_back(i);
    for (const auto& u : uses) bed.fault({"request", u.first, "errno", "EIO"});
    const json rules = bed.state()["faults"];
    std::vector<Point> points;
    size_t n = 0;
    for (const auto& [code, at] : uses) {
        const uint32_t number = static_cast<uint32_t>(std::stoul(rules[n++]["code"].get<std::string>(), nullptr, 0));
        const size_t own = static_cast<size_t>(std::lower_bound(at.begin(), at.end(), scanned) - at.begin());
        std::set<size_t> picked = {0};
        if (own < at.size()) picked.insert(own);
        for (size_t k : picked)
            points.push_back({code, number, static_cast<int>(k), log[at[k]].rfind("bsg ", 0) == 0, at[k] >= scanned});
    }

    size_t cases = 0;
    const std::vector<Fault> all = faults();
    for (const Point& pt : points) {
        for (const Fault& f : all) {
            json rule = f.rule;
            rule["kind"] = "request";
            rule["code"] = scen::hex(pt.number);
            if (pt.skip > 0) rule["skip"] = pt.skip;
            restore(rule);
            Result r = bed.qmx(argv);
            ++cases;
            int expect = f.expect;
            if (f.rule.contains("reply") && !pt.bsg) expect = kGarbled;  // a control node cannot tell
            if (expect != kGarbled && pt.own && row.tolerated.count(pt.code)) expect = 0;
            EXPECT_TRUE(outcome(r, expect, bed, conf)) << row_name(row) << ", " << pt.code
                                                       << (pt.own ? " sent by the command" : " sent by the scan")
                                                       << ": " << f.name;
        }
    }
    printf("%s: %zu codes, %zu points, %zu cases\n", row_name(row).c_str(), uses.size(), points.size(), cases);
}

INSTANTIATE_TEST_SUITE_P(Commands, FaultMatrix, ::testing::ValuesIn(kRows),
                         [](const ::testing::TestParamInfo<Row>& info) {
                             return std::string(info.param.cls) + "_" + (info.param.cmd + 2);
                         });

// Every command the table gives a handler has its row, and every row names such a command.
TEST(FaultMatrixRows, EveryBuiltCommandHasOneRow) {
    std::set<std::string> built;
    for (int c = 0; c < qmx_class_count; ++c)
        for (int i = 0; i < qmx_class_desc[c].num_cmd; ++i)
            if (qmx_class_desc[c].cmds[i].handler != nullptr)
                built.insert(std::string(qmx_class_desc[c].name) + " " + qmx_class_desc[c].cmds[i].name);
    std::multiset<std::string> rows;
    for (const Row& r : kRows) rows.insert(row_name(r));
    for (const std::string& b : built) EXPECT_EQ(rows.count(b), 1u) << b << " needs one row in kRows";
    for (const std::string& r : rows) EXPECT_EQ(built.count(r), 1u) << r << " is not a built command";
}

}  // namespace
