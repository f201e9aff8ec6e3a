// The front end one-shot: help, version, class and command lookup, the argument count check,
// hidden classes and a driver status during the scan. (Identifier resolution is in
// test_identifiers.cpp, handler messages with the adapter commands.)
#include <regex>
#include <string>
#include <vector>

#include "harness.h"

using scen::Bed;
using scen::Result;

namespace {

const std::string kHelp =
    "\nAvailable command options are:"
    "\n\nCommon Adapter (HBA/CNA) Commands:\n"
    "adapter  auth     bios     boot     debug    diag     \n"
    "log      pcifn    port     "
    "\n\nCNA specific Commands:\n"
    "dcb      fcoe     phy      "
    "\n\nFC/FCoE specific Commands:\n"
    "fabric   fcdiag   fcpim    lport    qos      ratelim  \n"
    "rport    trunk    vhba     vport    "
    "\n\nETH specific Commands:\n"
    "ethboot  vnic     "
    "\n\n";

const std::string kExtendedHelp =
    "\nAvailable command options are:"
    "\n\nCommon Adapter (HBA/CNA) Commands:\n"
    "adapter  auth     bios     boot     bootdup  debug    \n"
    "diag     flash    fruvpd   log      mfg      pcifn    \n"
    "port     "
    "\n\nCNA specific Commands:\n"
    "dcb      fcoe     phy      "
    "\n\nFC/FCoE specific Commands:\n"
    "fabric   fcdiag   fcpim    ipfc     lport    qos      \n"
    "ratelim  rport    trunk    vhba     vport    "
    "\n\nETH specific Commands:\n"
    "ethboot  vnic     "
    "\n\n";

std::string not_supported(const std::string& cmd) {
    return "ERROR: \"" + cmd + "\" Command not supported\n\n";
}

std::vector<std::string> words(std::vector<std::string> head, int extra, const std::string& w) {
    for (int i = 0; i < extra; ++i) head.push_back(w);
    return head;
}

}  // namespace

// ---- Help and version: answered before the library is involved ------------------------------

TEST(FrontendHelp, NoArgumentAndHelpWordsPrintTheClassListInGroups) {
    Bed bed = Bed::preset("fc");
    const struct {
        std::vector<std::string> args;
        const std::string& out;
    } cases[] = {{{}, kHelp}, {{"--help"}, kHelp}, {{"--ehelp"}, kExtendedHelp}};
    for (const auto& c : cases) {
        Result r = bed.qmx(c.args);
        EXPECT_EQ(r.status, 0) << c.args.size();
        EXPECT_EQ(r.out, c.out);
        EXPECT_EQ(r.err, "");
    }
    EXPECT_TRUE(bed.log().empty());
}

TEST(FrontendHelp, VersionBannerForBothSpellings) {
    Bed bed = Bed::preset("empty");
    Result v = bed.qmx({"-v"});
    Result version = bed.qmx({"--version"});
    EXPECT_EQ(v.status, 0);
    EXPECT_EQ(v.err, "");
    EXPECT_TRUE(std::regex_match(
        v.out, std::regex("\nTorvane CLI utility\nVersion:[0-9]+\\.[0-9]+\\.[0-9]+\\.[0-9]+_ga "
                          "[0-9]{2}/[0-9]{2}/[0-9]{4} [0-9]{2}\\.[0-9]{2}\\.[0-9]{2}\n\n")))
        << v.out;
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, v.out);
}

TEST(FrontendHelp, HelpWordsWithMoreWordsAreLookedUpAsClasses) {
    Bed bed = Bed::preset("fc");
    Result r = bed.qmx({"--help", "adapter"});
    EXPECT_EQ(r.status, 185);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "ERROR: \"--help\" Command class not supported\n\n");
    r = bed.qmx({"-v", "x"});
    EXPECT_EQ(r.status, 185);
    EXPECT_EQ(r.err, "ERROR: \"-v\" Command class not supported\n\n");
}

// ---- Class usage ----------------------------------------------------------------------------

TEST(FrontendUsage, ClassWordAlonePrintsItsUsageWithoutScanning) {
    Bed bed = Bed::preset("fc");
    Result alone = bed.qmx({"port"});
    EXPECT_EQ(alone.status, 0);
    EXPECT_EQ(alone.err, "");
    EXPECT_EQ(alone.out.rfind("Example: qmx port ", 0), 0u) << alone.out;
    EXPECT_NE(alone.out.find("\n\t--query <port_id>\n"), std::string::npos);
    EXPECT_EQ(alone.out.find("\t--perf"), std::string::npos);  // hidden

    Result help = bed.qmx({"port", "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out, alone.out);

    Result ext = bed.qmx({"port", "--ehelp", "ignored", "words"});
    EXPECT_EQ(ext.status, 0);
    EXPECT_NE(ext.out.find("\n\t--perf <port_id>"), std::string::npos);
    EXPECT_GT(ext.out.size(), alone.out.size());
    EXPECT_TRUE(bed.log().empty());
}

TEST(FrontendUsage, UsageNeedsNoDriver) {
    Bed bed = Bed::preset("empty");
    Result r = bed.qmx({"boot", "--ehelp"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_NE(r.out.find(" [-d <dev_id>]\n"), std::string::npos);
    EXPECT_NE(r.out.find("dev_id should be 13 for dual port and 17 for single port card"),
              std::string::npos);
    EXPECT_EQ(bed.qmx({"boot"}).out.find("-d <dev_id>"), std::string::npos);
}

// ---- Lookup and the argument count -----------------------------------------------------------

TEST(FrontendLookup, UnknownClassIsRefusedCaseSensitively) {
    Bed bed = Bed::preset("fc");
    for (const char* word : {"foo", "Adapter", "none", "shel"}) {
        Result r = bed.qmx({word, "--list"});
        EXPECT_EQ(r.status, 185) << word;
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, std::string("ERROR: \"") + word + "\" Command class not supported\n\n");
    }
    EXPECT_EQ(bed.qmx({"foo"}).status, 185);
    EXPECT_TRUE(bed.log().empty());
}

TEST(FrontendLookup, UnknownCommandIsRefusedBeforeTheScan) {
    Bed bed = Bed::preset("fc");
    Result r = bed.qmx({"adapter", "--lists"});
    EXPECT_EQ(r.status, 162);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, not_supported("--lists"));
    // Commands of one class are not found in another.
    EXPECT_EQ(bed.qmx({"adapter", "--lunlist", "1/0"}).err, not_supported("--lunlist"));
    EXPECT_TRUE(bed.log().empty());
}

TEST(FrontendLookup, WrongArgumentCountPrintsTheMessageThenTheClassUsage) {
    Bed bed = Bed::preset("fc");
    const std::string usage = bed.qmx({"adapter"}).out;
    Result r = bed.qmx({"adapter", "--list", "extra"});
    EXPECT_EQ(r.status, 166);
    EXPECT_EQ(r.err, "ERROR: Incorrect argument count for command \"--list\"\n");
    EXPECT_EQ(r.out, usage);
    Result few = bed.qmx({"adapter", "--mode", "1"});
    EXPECT_EQ(few.status, 166);
    EXPECT_EQ(few.err, "ERROR: Incorrect argument count for command \"--mode\"\n");
    EXPECT_EQ(few.out, usage);
    EXPECT_TRUE(bed.log().empty());
}

TEST(FrontendLookup, CountBoundsAreInclusive) {
    Bed bed = Bed::preset("fc");
    // fruvpd --write takes 3 to 65 words; it has no handler, so a passing count ends as
    // "not supported" after the scan and the adapter lookup.
    Result at_max = bed.qmx(words({"fruvpd", "--write", "1", "0"}, 63, "ff"));
    EXPECT_EQ(at_max.status, 162);
    EXPECT_EQ(at_max.err, not_supported("--write"));
    Result at_min = bed.qmx({"fruvpd", "--write", "1", "0", "ff"});
    EXPECT_EQ(at_min.status, 162);
    EXPECT_FALSE(bed.log().empty());
    bed.clear_log();

    const std::string usage = bed.qmx({"fruvpd"}).out;
    for (int extra : {64, 0}) {
        Result r = bed.qmx(words({"fruvpd", "--write", "1", "0"}, extra, "ff"));
        EXPECT_EQ(r.status, 166) << extra;
        EXPECT_EQ(r.err, "ERROR: Incorrect argument count for command \"--write\"\n");
        EXPECT_EQ(r.out, usage);
    }
    EXPECT_TRUE(bed.log().empty());
    EXPECT_TRUE(bed.log_clean());
}

TEST(FrontendLookup, ManyWordsOnTheCommandLine) {
    Bed bed = Bed::preset("fc");
    Result r = bed.qmx(words({"port", "--list"}, 5000, std::string(100, 'w')));
    EXPECT_EQ(r.status, 166);
    EXPECT_EQ(r.err, "ERROR: Incorrect argument count for command \"--list\"\n");
    Result cls = bed.qmx({std::string(100000, 'c')});
    EXPECT_EQ(cls.status, 185);
    EXPECT_EQ(cls.err, "ERROR: \"" + std::string(100000, 'c') + "\" Command class not supported\n\n");
}

// ---- Commands without a handler and hidden classes -----------------------------------------

TEST(FrontendDispatch, HiddenClassRunsLikeAnyOther) {
    Bed bed = Bed::preset("fc");
    Result r = bed.qmx({"flash", "--query", "1"});
    EXPECT_EQ(r.status, 162);
    EXPECT_EQ(r.err, not_supported("--query"));
    // The identifier is resolved like any adapter identifier.
    Result bad = bed.qmx({"flash", "--query", "2"});
    EXPECT_EQ(bad.status, 172);
    EXPECT_EQ(bad.err, "ERROR: adapter id \"2\" in command is incorrect\n");
    EXPECT_NE(bed.qmx({"mfg", "--help"}).out.find("\t--update <ad_id>"), std::string::npos);
    EXPECT_TRUE(bed.log_clean());
}

// ---- Failures of the scan and of handlers ------------------------------------------------

TEST(FrontendFailures, DriverStatusDuringTheScanEndsTheCommandWithItsMessage) {
    Bed bed = Bed::preset("fc");
    bed.fault({"request", "IOC_GET_ATTR", "status", "13", "times", "1"});
    Result r = bed.qmx({"adapter", "--count"});
    EXPECT_EQ(r.status, 13);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "ERROR: Device busy - Retry operation \n");
    // Rule used up: the next command scans cleanly.
    Result again = bed.qmx({"adapter", "--count"});
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.out, "1\n");
    EXPECT_TRUE(bed.log_clean());
}

TEST(FrontendShellWord, ShellTakesNoFurtherWord) {
    Bed bed = Bed::preset("fc");
    Result r = bed.qmx({"shell", "x"}, "adapter --count\n");
    EXPECT_EQ(r.status, 166);
    EXPECT_EQ(r.out, "too many arguments for command \"shell\"\n");
    EXPECT_EQ(r.err, "");
    EXPECT_TRUE(bed.log().empty());
}
