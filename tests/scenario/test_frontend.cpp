// The front end one-shot: help, version, class and command lookup, the argument count check and
// hidden classes. (Identifier resolution is in test_identifiers.cpp, a driver status during the
// scan in test_discovery.cpp, handler messages with the adapter commands.)
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
        EXPECT_TRUE(scen::prints(bed.qmx(c.args), c.out)) << c.args.size();
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

// Unknown class words (case counts; help and version words with more words after them are
// looked up as classes) and commands (those of one class are not found in another) are
// refused before the scan.
TEST(FrontendLookup, UnknownClassOrCommandIsRefusedBeforeTheScan) {
    Bed bed = Bed::preset("fc");
    auto no_class = [](const std::string& w) { return "ERROR: \"" + w + "\" Command class not supported\n\n"; };
    const struct {
        std::vector<std::string> args;
        int status;
        std::string err;
    } cases[] = {
        {{"foo", "--list"}, 185, no_class("foo")},         {{"Adapter", "--list"}, 185, no_class("Adapter")},
        {{"none", "--list"}, 185, no_class("none")},       {{"shel", "--list"}, 185, no_class("shel")},
        {{"foo"}, 185, no_class("foo")},                   {{"--help", "adapter"}, 185, no_class("--help")},
        {{"-v", "x"}, 185, no_class("-v")},                {{"adapter", "--lists"}, 162, not_supported("--lists")},
        {{"adapter", "--lunlist", "1/0"}, 162, not_supported("--lunlist")},
    };
    for (const auto& c : cases) EXPECT_TRUE(scen::fails(bed.qmx(c.args), c.status, c.err)) << c.args[0] << " " << c.args.back();
    EXPECT_TRUE(bed.log().empty());
}

TEST(FrontendLookup, WrongArgumentCountPrintsTheMessageThenTheClassUsage) {
    Bed bed = Bed::preset("fc");
    const std::string usage = bed.qmx({"adapter"}).out;
    for (const std::vector<std::string>& args : {std::vector<std::string>{"adapter", "--list", "extra"},
                                                 std::vector<std::string>{"adapter", "--mode", "1"}}) {
        Result r = bed.qmx(args);
        EXPECT_EQ(r.status, 166) << args[1];
        EXPECT_EQ(r.err, "ERROR: Incorrect argument count for command \"" + args[1] + "\"\n");
        EXPECT_EQ(r.out, usage);
    }
    EXPECT_TRUE(bed.log().empty());
}

TEST(FrontendLookup, CountBoundsAreInclusive) {
    Bed bed = Bed::preset("fc");
    // fruvpd --write takes 3 to 65 words; it has no handler, so a passing count ends as
    // "not supported" after the scan and the adapter lookup.
    for (int extra : {63, 1})
        EXPECT_TRUE(scen::fails(bed.qmx(words({"fruvpd", "--write", "1", "0"}, extra, "ff")), 162, not_supported("--write")))
            << extra;
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
    EXPECT_TRUE(scen::fails(bed.qmx({std::string(100000, 'c')}), 185,
                            "ERROR: \"" + std::string(100000, 'c') + "\" Command class not supported\n\n"));
}

// ---- Commands without a handler and hidden classes -----------------------------------------

TEST(FrontendDispatch, HiddenClassRunsLikeAnyOther) {
    Bed bed = Bed::preset("fc");
    EXPECT_TRUE(scen::fails(bed.qmx({"flash", "--query", "1"}), 162, not_supported("--query")));
    // The identifier is resolved like any adapter identifier.
    EXPECT_TRUE(scen::fails(bed.qmx({"flash", "--query", "2"}), 172, "ERROR: adapter id \"2\" in command is incorrect\n"));
    EXPECT_NE(bed.qmx({"mfg", "--help"}).out.find("\t--update <ad_id>"), std::string::npos);
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
