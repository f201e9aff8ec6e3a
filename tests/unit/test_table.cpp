// The command table and the usage texts written from it.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "qmx.h"
#include "qmxhandlers.h"
#include "unit_util.h"

namespace {

const qmx_cmd_desc_t* find_cmd(const char* cls, const char* cmd) {
    for (int i = 0; i < qmx_class_count; ++i) {
        const qmx_cmd_class_desc_t& c = qmx_class_desc[i];
        if (strcmp(c.name, cls) != 0) continue;
        for (int i = 0; i < c.num_cmd; ++i)
            if (strcmp(c.cmds[i].name, cmd) == 0) return &c.cmds[i];
    }
    return nullptr;
}

std::string capture_usage(qmx_cmd_usage_t usage, int extended) {
    return unit::stdout_of([&] { usage(extended); });
}

// The command words named at the start of the usage lines ("\t--cmd ..."), in order.
std::vector<std::string> usage_commands(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("\t--", 0) != 0) continue;
        size_t end = line.find(' ', 1);
        out.push_back(line.substr(1, end == std::string::npos ? std::string::npos : end - 1));
    }
    return out;
}

TEST(CommandTable, CommandRowsAreWellFormed) {
    std::set<std::string> classes;
    for (int i = 0; i < qmx_class_count; ++i) {
        const qmx_cmd_class_desc_t& c = qmx_class_desc[i];
        EXPECT_TRUE(classes.insert(c.name).second) << "duplicate class " << c.name;
        std::set<std::string> names;
        for (int k = 0; k < c.num_cmd; ++k) {
            const qmx_cmd_desc_t& cmd = c.cmds[k];
            SCOPED_TRACE(std::string(c.name) + " " + cmd.name);
            EXPECT_EQ(strncmp(cmd.name, "--", 2), 0);
            EXPECT_GT(strlen(cmd.name), 2u);
            // Help words are answered before the command lookup and would shadow a command.
            EXPECT_STRNE(cmd.name, "--help");
            EXPECT_STRNE(cmd.name, "--ehelp");
            EXPECT_GE(cmd.min_args, 0);
            EXPECT_LE(cmd.min_args, cmd.max_args);
            EXPECT_TRUE(names.insert(cmd.name).second) << "duplicate command";
            // These two kinds exist for the resolver only; no command uses them.
            EXPECT_NE(cmd.id_desc, TEAM_ID);
            EXPECT_NE(cmd.id_desc, PCIFN_ID_STRICT);
            EXPECT_LE(static_cast<int>(cmd.id_desc), static_cast<int>(ID_NONE));
            EXPECT_LE(static_cast<int>(cmd.drv_path), static_cast<int>(PATH_ANY_OPER));
        }
    }
}

TEST(CommandTable, RowsThatCarryTheirOwnRules) {
    struct want {
        const char* cls;
        const char* cmd;
        int min, max;
        qmx_id_desc_t id;
        qmx_drv_path_t path;
    };
    const want rows[] = {
        {"adapter", "--mode", 2, 3, ADAPTER_ID, PATH_ANY},
        {"boot", "--update", 2, 4, ID_NONE, PATH_ANY},
        {"dcb", "--query", 1, 1, PORT_ID, PATH_ANY_OPER},
        {"diag", "--ethloopback", 1, 7, PORT_ID, PATH_ETH},
        {"fcpim", "--ioperf", 1, 9, ID_NONE, PATH_FC},
        {"fcpim", "--lunlist", 1, 5, PCIFN_ID, PATH_FC},
        {"fruvpd", "--write", 3, 65, ADAPTER_ID, PATH_ANY},
        {"phy", "--update", 2, 2, ID_NONE, PATH_ANY_OPER},
        {"port", "--list", 0, 1, ID_NONE, PATH_ANY},
        {"port", "--mode", 2, 3, PORT_FIRST_IOC, PATH_ANY},
        {"vhba", "--bw", 2, 2, PCIFN_FIRST_IOC, PATH_FC},
        {"vnic", "--bw", 3, 5, PCIFN_FIRST_IOC, PATH_ETH},
    };
    for (const want& w : rows) {
        SCOPED_TRACE(std::string(w.cls) + " " + w.cmd);
        const qmx_cmd_desc_t* cmd = find_cmd(w.cls, w.cmd);
        ASSERT_NE(cmd, nullptr);
        EXPECT_EQ(cmd->min_args, w.min);
        EXPECT_EQ(cmd->max_args, w.max);
        EXPECT_EQ(cmd->id_desc, w.id);
        EXPECT_EQ(cmd->drv_path, w.path);
    }
    // Lookup is linear and first match wins: the port class keeps its given order.
    EXPECT_STREQ(qmx_port_cmd_desc[8].name, "--bbcr_enable");
    EXPECT_STREQ(qmx_port_cmd_desc[25].name, "--fec_query");
    EXPECT_STREQ(qmx_fcpim_cmd_desc[21].name, "--trs_enable");
    EXPECT_STREQ(qmx_fcpim_cmd_desc[22].name, "--trs_disable");
}

TEST(UsageText, ExtendedTextListsEveryCommandInTableOrder) {
    for (int i = 0; i < qmx_class_count; ++i) {
        const qmx_cmd_class_desc_t& c = qmx_class_desc[i];
        SCOPED_TRACE(c.name);
        std::vector<std::string> listed = usage_commands(capture_usage(c.usage, 1));
        // A command may have more than one usage line; drop repeats that follow each other.
        std::vector<std::string> distinct;
        for (const std::string& s : listed)
            if (distinct.empty() || distinct.back() != s) distinct.push_back(s);
        ASSERT_EQ(distinct.size(), static_cast<size_t>(c.num_cmd));
        for (int k = 0; k < c.num_cmd; ++k) EXPECT_EQ(distinct[k], c.cmds[k].name);
    }
}

TEST(UsageText, OrdinaryTextHidesOnlyTheHiddenCommands) {
    const std::set<std::string> hidden = {
        "boot --blunZone",    "debug --membase",  "debug --memread",
        "debug --regread",    "debug --regwrite", "port --perf",
    };
    for (int i = 0; i < qmx_class_count; ++i) {
        const qmx_cmd_class_desc_t& c = qmx_class_desc[i];
        std::vector<std::string> listed = usage_commands(capture_usage(c.usage, 0));
        std::set<std::string> shown(listed.begin(), listed.end());
        for (int k = 0; k < c.num_cmd; ++k) {
            std::string key = std::string(c.name) + " " + c.cmds[k].name;
            EXPECT_EQ(shown.count(c.cmds[k].name), hidden.count(key) ? 0u : 1u) << key;
        }
    }
}

TEST(UsageText, FcpimCarriesItsPublishedLines) {
    std::string text = capture_usage(qmx_fcpim_usage, 0);
    EXPECT_EQ(text.rfind("Example: qmx fcpim --query <pcifn> <rpwwn> [-l <lpwwn>]\n", 0), 0u);
    const char* blocks[] = {
        "\t--ioperf <pcifn> [-l [lpwwn]] [-r [rpwwn]] [-c count] [-i interval]\n"
        "\t--ioperf <port_range> [-l | -r] [-c count] [-i interval]\n"
        "\t\tShows IO performance in terms of IOPs and throughput at\n"
        "\t\tdifferent levels viz. Physical port, logical port &\n"
        "\t\tI-T sessions within a logical port\n\n"
        "\t\t<port_range> is low to high in the form of\n"
        "\t\t\t<adapter_id/port_id>-<adapter_id/port_id>\n"
        "\t\tCount is number of iterations (default = indefinite)\n"
        "\t\tInterval is sampling period (default = 1 sec)\n\n",
        "\t--lunlist <pcifn> [-l <lpwwn>] [-v verbose]\n"
        "\t\tDisplays info about each LUN connected to <pcifn>\n\n",
        "\t--lunmaskadd <port_id> <rpwwn> <LUN#> [-l <lpwwn>]\n"
        "\t\tAdd the lunmask entry <lun#> on the target <rpwwn>\n\t\tfor the initiator <lpwwn>\n"
        "\t\t<lun#> is the 64-bit lun number\n\t\tExample of lun# : 0001-0000-0000-0000\n\n",
        "\t--lunmaskdelete <port_id> <rpwwn> <LUN#> [-l <lpwwn>]\n"
        "\t\tDeletes the lunmask entry <lun#> on the target <rpwwn>\n"
        "\t\tfor the initiator <lpwwn>\n"
        "\t\t<lun#> is the 64-bit lun number\n\t\tExample of lun# : 0004-0000-0000-0000\n\n",
        "\t--lunmaskclear <port_id>\n\t\tClears all the LUN masks for the given port\n\n",
        "\t--lunmaskenable <port_id>\n\t\tEnables lunmasking feature for the given port\n\n",
        "\t--lunmaskdisable <port_id>\n\t\tDisables lunmasking feature for the given port\n\n",
        "\t--lunmaskquery <port_id> [-l <lpwwn>] [-r <rpwwn>]\n"
        "\t\tDisplays the active LUN masking configuration\n\n",
        "\t--pathtov <pcifn> <tov>\n"
        "\t\tSets device path timeout value [tov] in seconds (0..60)\n\n",
        "\t--query <pcifn> <rpwwn> [-l <lpwwn>]\n\t\tQueries fcpim attributes\n\n",
        "\t--stats <pcifn> <rpwwn> [-l <lpwwn>]\n\t\tDisplays fcpim statistics\n\n",
        "\t--statsclr <pcifn> <rpwwn> [-l <lpwwn>]\n\t\tClears fcpim statistics\n\n",
        "\t--throttlequery <pcifn>\n\t\tDisplay current IO throttle values in given fcpim\n\n",
        "\t--throttleset <pcifn> <throttle_size>\n"
        "\t\tConfigures IO throttle value (1...2000) in given fcpim\n\n",
        "\t--throttleclear <pcifn>\n"
        "\t\tConfigures IO throttle value in given fcpim to default\n\n",
        "\t--trs_enable <pcifn> <rpwwn> [-l <lpwwn>]\n"
        "\t\tEnables target reset for the specified target port\n\n",
        "\t--trs_disable <pcifn> <rpwwn> [-l <lpwwn>]\n"
        "\t\tDisables target reset for the specified target port\n\n",
        "\t--trs_query <pcifn>\n\t\tQueries all target reset entries for the given port\n\n",
        "\t--trs_clear <pcifn>\n\t\tClears all target reset entries for the given port\n\n",
    };
    for (const char* b : blocks) EXPECT_NE(text.find(b), std::string::npos) << b;
}

// The scenario tests see the option in the extended text only; here, where it stands.
TEST(UsageText, BootDeviceIdOptionEndsTheUpdateLine) {
    std::string plain = capture_usage(qmx_boot_usage, 0);
    std::string ext = capture_usage(qmx_boot_usage, 1);
    const char* opt = " [-d <dev_id>]";
    EXPECT_EQ(plain.find("dev_id should be 13"), std::string::npos);
    size_t line = ext.find("\t--update ");
    ASSERT_NE(line, std::string::npos);
    EXPECT_EQ(ext.find(std::string(opt) + "\n"), ext.find('\n', line) - strlen(opt));
    // Every block ends with a blank line, the extended one too.
    EXPECT_EQ(ext.substr(ext.size() - 2), "\n\n");
}

}  // namespace
