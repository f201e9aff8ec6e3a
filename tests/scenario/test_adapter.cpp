// The adapter class end to end: list, count, name, enable/disable, mode and firmware reload on
// emulated hosts with several adapters, with /etc/kvo.conf and the emulated state checked after
// every change.
#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "harness.h"
#include "test_adapter_hosts.h"

using adtest::adapter_state;
using scen::fails;
using adtest::function_states;
using adtest::kFourAdapters;
using adtest::partly_disabled;
using scen::lines_with;
using scen::prints;
using scen::requests;
using adtest::rule;
using scen::Bed;
using scen::Result;
using strings = std::vector<std::string>;

namespace {

std::string conf_of(const Bed& bed) { return bed.conf().value_or("<no file>"); }
strings name_lines(const Bed& bed) { return lines_with(conf_of(bed), "adapter-"); }

const std::string kIocFailure = "ERROR: IOC failure - Retry if persists contact support \n";
const std::string kModeSuccess =
    "Adapter mode is configured successfully.\nA host reboot is needed for the changes to be "
    "effective. You may also have to change the SFP to match the new mode.\n\n";
const std::string kNoReset =
    "Warning: This command will not reset the settings configured on the adapter.\n\n";

}  // namespace

TEST(AdapterList, ListsEveryAdapterInScanOrderWithDashesForUnnamedAndReloads) {
    Bed bed = Bed::from_json(kFourAdapters);
    EXPECT_TRUE(prints(bed.qmx({"adapter", "--list"}),
                       rule() + "AD#  NP  HW-path        Type   Model-Info       Serial-num   Name\n" + rule() +
                           " 1   2   0000:03:00.0   FC     TV-1862          TVA1000001   --             \n"
                           " 2   1   0000:04:00.0   FC     TV-1862          TVA2000002   --             \n"
                           " 3   2   0000:05:00.0   CNA    TV-1867          TVC3000003   --             \n"
                           " 4   1   0000:06:00.0   NIC    TV-1869          TVN4000004   --             \n" +
                           rule()));
    EXPECT_TRUE(prints(bed.qmx({"adapter", "--count"}), "4\n"));
    EXPECT_TRUE(bed.log_clean());

    // Firmware reload echoes the identifier as typed.
    ASSERT_EQ(bed.qmx({"adapter", "--name", "2", "second"}).status, 0);
    for (const char* word : {"2", "TVA2000002", "0000:04:00.0", "second"})
        EXPECT_TRUE(prints(bed.qmx({"adapter", "--reload_fw", word}),
                           std::string("Firmware on adapter id ") + word + " is reloaded\n"));
    EXPECT_TRUE(prints(bed.qmx({"adapter", "--reload_fw", "4"}), "Firmware on adapter id 4 is reloaded\n"));
    EXPECT_EQ(adapter_state(bed, "TVA2000002")["ext"]["fw_reloads"], 4);
    EXPECT_EQ(adapter_state(bed, "TVN4000004")["ext"]["fw_reloads"], 1);
    EXPECT_FALSE(adapter_state(bed, "TVA1000001").contains("ext"));
    EXPECT_TRUE(bed.log_clean());

    bed.fault({"request", "ADAPTER_RELOAD_FW", "status", "56"});
    EXPECT_TRUE(fails(bed.qmx({"adapter", "--reload_fw", "1"}), 56, kIocFailure));

    Bed none = Bed::from_json(R"({"adapters": [], "drivers": {"kvo": true, "tqe": true}})");
    EXPECT_TRUE(prints(none.qmx({"adapter", "--list"}), "No KVO adapters found\n"));
    EXPECT_TRUE(prints(none.qmx({"adapter", "--count"}), "0\n"));
}

TEST(AdapterName, SetShowPersistClearAndRefuse) {
    Bed bed = Bed::from_json(kFourAdapters);
    EXPECT_TRUE(prints(bed.qmx({"adapter", "--name", "1"}), "adapter id 1; current name is \n"));
    EXPECT_TRUE(prints(bed.qmx({"adapter", "--name", "1", "lab-hba"}), "adapter id 1; name set to: lab-hba\n"));
    EXPECT_EQ(name_lines(bed), strings{"adapter-TVA1000001-name = \"lab-hba\";"});
    EXPECT_EQ(adapter_state(bed, "TVA1000001")["name"], "lab-hba");
    // The name now identifies the adapter and shows in the list.
    EXPECT_TRUE(prints(bed.qmx({"adapter", "--name", "lab-hba"}), "adapter id 1; current name is lab-hba\n"));
    EXPECT_EQ(lines_with(bed.qmx({"adapter", "--list"}).out, "TVA1000001"),
              strings{" 1   2   0000:03:00.0   FC     TV-1862          TVA1000001   lab-hba        "});

    // An empty name is not verified: it clears the name in the driver and in the file.
    EXPECT_TRUE(prints(bed.qmx({"adapter", "--name", "1", ""}), "adapter id 1; name set to: \n"));
    EXPECT_TRUE(name_lines(bed).empty()) << conf_of(bed);
    EXPECT_EQ(adapter_state(bed, "TVA1000001")["name"], "");
    EXPECT_EQ(requests(bed, "ADAPTER_SET_NAME").size(), 2u);
    EXPECT_TRUE(bed.log_clean());

    // Another adapter's name is refused, but the own name may be given again.
    ASSERT_EQ(bed.qmx({"adapter", "--name", "2", "shared"}).status, 0);
    bed.clear_log();
    EXPECT_TRUE(fails(bed.qmx({"adapter", "--name", "1", "shared"}), 63,
                      "ERROR: Name exists! use a different name \n"));
    EXPECT_TRUE(requests(bed, "ADAPTER_SET_NAME").empty());
    EXPECT_EQ(adapter_state(bed, "TVA1000001")["name"], "");

    EXPECT_TRUE(prints(bed.qmx({"adapter", "--name", "2", "shared"}), "adapter id 2; name set to: shared\n"));
    // The Ethernet-only card is named through the Ethernet driver.
    EXPECT_TRUE(prints(bed.qmx({"adapter", "--name", "TVN4000004", "nic-four"}),
                       "adapter id 4; name set to: nic-four\n"));
    EXPECT_EQ(name_lines(bed), (strings{"adapter-TVA2000002-name = \"shared\";",
                                        "adapter-TVN4000004-name = \"nic-four\";"}));
    EXPECT_EQ(requests(bed, "ADAPTER_SET_NAME").back().rfind("tqe /dev/tqe ", 0), 0u);
    EXPECT_TRUE(bed.log_clean());

    // Names are verified before anything is sent.
    bed.clear_log();
    const std::string before = conf_of(bed);
    for (const char* bad : {"9abc", "my name", "a234567890abcdef", "-dash", "x.y"})
        EXPECT_TRUE(fails(bed.qmx({"adapter", "--name", "2", bad}), 175,
                          std::string("ERROR: Please check the string \"") + bad + "\"\n"));
    EXPECT_TRUE(requests(bed, "ADAPTER_SET_NAME").empty());
    EXPECT_EQ(conf_of(bed), before);

    // Fifteen characters is the longest name; "-" and "_" may follow the first letter.
    EXPECT_TRUE(prints(bed.qmx({"adapter", "--name", "2", "a234567890abc_-"}),
                       "adapter id 2; name set to: a234567890abc_-\n"));
    EXPECT_EQ(name_lines(bed), (strings{"adapter-TVA2000002-name = \"a234567890abc_-\";",
                                        "adapter-TVN4000004-name = \"nic-four\";"}));

    // A name the driver refuses is not persisted.
    bed.fault({"request", "ADAPTER_SET_NAME", "status", "56"});
    const std::string named = conf_of(bed);
    EXPECT_TRUE(fails(bed.qmx({"adapter", "--name", "2", "refused"}), 56, kIocFailure));
    EXPECT_EQ(conf_of(bed), named);
}

TEST(AdapterName, TwoProcessesRenamingDifferentAdaptersLoseNothing) {
    Bed bed = Bed::from_json(kFourAdapters);
    bed.qmx({"adapter", "--count"});
    for (int round = 0; round < 4; round++) {
        const std::string a = "alpha" + std::to_string(round), b = "beta" + std::to_string(round);
        Result ra, rb;
        std::thread t1([&] { ra = bed.qmx({"adapter", "--name", "1", a}); });
        std::thread t2([&] { rb = bed.qmx({"adapter", "--name", "3", b}); });
        t1.join();
        t2.join();
        EXPECT_TRUE(prints(ra, "adapter id 1; name set to: " + a + "\n"));
        EXPECT_TRUE(prints(rb, "adapter id 3; name set to: " + b + "\n"));
        // Records are written in the order the names were first set: either may come first.
        strings names = name_lines(bed);
        std::sort(names.begin(), names.end());
        EXPECT_EQ(names, (strings{"adapter-TVA1000001-name = \"" + a + "\";",
                                  "adapter-TVC3000003-name = \"" + b + "\";"}))
            << "round " << round;
    }
    EXPECT_EQ(lines_with(conf_of(bed), "10:00:00:e1:f2:01:00:00").size(), 1u);
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterEnable, DisableTwiceFailsEnableTwiceSucceedsAndCnaControlFunctionGoesLast) {
    // Adapter 1 starts partly disabled: that does not count as disabled.
    Bed bed = Bed::from_json(partly_disabled());
    EXPECT_TRUE(prints(bed.qmx({"adapter", "--disable", "1"}), "adapter id 1 disabled\n"));
    EXPECT_EQ(function_states(bed, "TVA1000001"), (std::vector<int>{10, 10}));
    EXPECT_EQ(function_states(bed, "TVA2000002"), (std::vector<int>{6}));
    EXPECT_TRUE(fails(bed.qmx({"adapter", "--disable", "1"}), 83, "ERROR: Adapter is disabled \n"));

    EXPECT_TRUE(prints(bed.qmx({"adapter", "--enable", "TVA1000001"}), "adapter id 1 enabled\n"));
    EXPECT_EQ(function_states(bed, "TVA1000001"), (std::vector<int>{6, 6}));
    EXPECT_TRUE(prints(bed.qmx({"adapter", "--enable", "1"}), "adapter id 1 enabled\n"));
    EXPECT_TRUE(bed.log_clean());

    // The CNA's functions of both drivers go down, its control function last.
    bed.clear_log();
    ASSERT_TRUE(prints(bed.qmx({"adapter", "--disable", "3"}), "adapter id 3 disabled\n"));
    EXPECT_EQ(function_states(bed, "TVC3000003"), (std::vector<int>{10, 10, 10, 10}));
    strings downs = requests(bed, "IOC_DISABLE");
    ASSERT_EQ(downs.size(), 4u);
    EXPECT_EQ(lines_with(downs[0] + "\n" + downs[1] + "\n" + downs[2], "tqe /dev/tqe").size(), 2u);
    // The control function (the FCoE function of port 0, instance 3) goes down last and comes
    // up first.
    EXPECT_EQ(downs[3], "bsg /dev/bsg/fc_host4 IOC_DISABLE vcmd=2 kvod=3 -> status=0");
    bed.clear_log();
    ASSERT_TRUE(prints(bed.qmx({"adapter", "--enable", "3"}), "adapter id 3 enabled\n"));
    strings ups = requests(bed, "IOC_ENABLE");
    ASSERT_EQ(ups.size(), 4u);
    EXPECT_EQ(ups[0], "bsg /dev/bsg/fc_host4 IOC_ENABLE vcmd=1 kvod=3 -> status=0");
    EXPECT_EQ(function_states(bed, "TVC3000003"), (std::vector<int>{6, 6, 6, 6}));
    EXPECT_TRUE(bed.log_clean());

    bed.fault({"request", "IOC_ENABLE", "status", "56", "times", "1"});
    ASSERT_EQ(bed.qmx({"adapter", "--disable", "2"}).status, 0);
    EXPECT_TRUE(fails(bed.qmx({"adapter", "--enable", "2"}), 56, kIocFailure));
    EXPECT_EQ(function_states(bed, "TVA2000002"), (std::vector<int>{10}));
}

TEST(AdapterMode, ModeWordIsCaseInsensitiveTheChangeIsPendingAndDropsTheAdaptersSettings) {
    Bed bed = Bed::from_json(kFourAdapters);
    EXPECT_TRUE(prints(bed.qmx({"adapter", "--mode", "3", "cna"}), kNoReset + kModeSuccess));
    EXPECT_EQ(adapter_state(bed, "TVC3000003")["ext"],
              (nlohmann::json{{"pending_mode", 2}, {"mode_force", false}}));

    EXPECT_TRUE(prints(bed.qmx({"adapter", "--mode", "TVC3000003", "Nic", "-f"}),
                       "Warning: This command will reset all the settings configured on the adapter.\n\n"
                       "Mode change command can take a lot of time to complete.\nPlease don't terminate "
                       "the command as it could result in undesirable adapter state.\n\n" +
                           kModeSuccess));
    EXPECT_EQ(adapter_state(bed, "TVC3000003")["ext"],
              (nlohmann::json{{"pending_mode", 3}, {"mode_force", true}}));
    EXPECT_TRUE(bed.log_clean());

    // Words are checked before any warning or request; the force flag is case-sensitive.
    bed.clear_log();
    for (strings args : {strings{"3", "CNA", "-F"}, {"3", "CNA", "force"}, {"3", "FC"}, {"3", "cnaa"}}) {
        args.insert(args.begin(), {"adapter", "--mode"});
        EXPECT_TRUE(fails(bed.qmx(args), 167,
                          "ERROR: command \"--mode\" syntax is incorrect or one of the parameters is "
                          "incorrect\n"));
    }
    EXPECT_TRUE(requests(bed, "ADAPTER_CFG_MODE").empty());

    // A change drops the adapter's persisted settings and nothing else.
    // A port record carries an FC and an Ethernet view under one index, and clean-up drops the
    // record whole; the CNA's Ethernet views are kept apart from the other adapters' ports.
    bed.set_conf(
        "adapter-TVA1000001-name = \"keep-me\";\n"
        "adapter-TVC3000003-name = \"cna-three\";\n"
        "kvo0-port-wwn = \"10:00:00:e1:f2:01:00:00\";\n"
        "kvo0-port-speed = 8;\n"
        "kvo3-port-wwn = \"10:00:00:e1:f2:03:00:00\";\n"
        "kvo3-port-name = \"fcoe-p0\";\n"
        "kvo3-port-speed = 4;\n"
        "kvo4-port-wwn = \"10:00:00:e1:f2:03:00:01\";\n"
        "kvo4-port-enable = \"FALSE\";\n"
        "tqe5-port-mac = \"02:e1:f2:03:10:00\";\n"
        "tqe5-port-name = \"eth-p0\";\n"
        "tqe6-port-mac = \"02:e1:f2:03:10:01\";\n");
    ASSERT_TRUE(prints(bed.qmx({"adapter", "--mode", "TVC3000003", "nic"}), kNoReset + kModeSuccess));
    const std::string conf = conf_of(bed);
    EXPECT_EQ(name_lines(bed), strings{"adapter-TVA1000001-name = \"keep-me\";"});
    for (const char* kept : {"kvo0-port-speed = 8;", "\"10:00:00:e1:f2:01:00:00\"", "\"02:e1:f2:04:10:00\""})
        EXPECT_EQ(lines_with(conf, kept).size(), 1u) << kept << "\n" << conf;
    for (const char* gone : {"TVC3000003", "10:00:00:e1:f2:03:00:0", "02:e1:f2:03:10:0", "fcoe-p0",
                             "eth-p0", "port-enable", "= 4;"})
        EXPECT_TRUE(lines_with(conf, gone).empty()) << gone << "\n" << conf;
    EXPECT_TRUE(bed.log_clean());

    // A change the driver refuses (an FC HBA cannot become a CNA) cleans nothing. (Any run
    // registers the CNA's ports again.)
    bed.qmx({"adapter", "--count"});
    const std::string before = conf_of(bed);
    Result r = bed.qmx({"adapter", "--mode", "1", "CNA"});
    EXPECT_EQ(r.status, 216);
    EXPECT_EQ(r.out, kNoReset);
    EXPECT_EQ(r.err, "ERROR: Mode is not supported \n");
    EXPECT_EQ(conf_of(bed), before);
}
