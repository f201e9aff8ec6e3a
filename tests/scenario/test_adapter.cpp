// The adapter class end to end: list, count, name, enable/disable, mode and firmware reload on
// emulated hosts with several adapters, with /etc/kvo.conf and the emulated state checked after
// every change.
#include <string>
#include <thread>
#include <vector>

#include "harness.h"
#include "test_adapter_hosts.h"

using adtest::kFourAdapters;
using adtest::lines_with;
using adtest::requests;
using adtest::rule;
using scen::Bed;
using scen::Result;

namespace {

const std::string kHead = "AD#  NP  HW-path        Type   Model-Info       Serial-num   Name\n";

std::string conf_of(const Bed& bed) { return bed.conf().value_or("<no file>"); }

std::vector<std::string> name_lines(const Bed& bed) {
    return lines_with(conf_of(bed), "adapter-");
}

}  // namespace

// ---- --list and --count -----------------------------------------------------------------------

TEST(AdapterList, ListsEveryAdapterInScanOrderWithDashesForUnnamed) {
    Bed bed = Bed::from_json(kFourAdapters);
    Result r = bed.qmx({"adapter", "--list"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, rule() + kHead + rule() +
                         " 1   2   0000:03:00.0   FC     TV-1862          TVA1000001   --             \n"
                         " 2   1   0000:04:00.0   FC     TV-1862          TVA2000002   --             \n"
                         " 3   2   0000:05:00.0   CNA    TV-1867          TVC3000003   --             \n"
                         " 4   1   0000:06:00.0   NIC    TV-1869          TVN4000004   --             \n" +
                         rule());
    EXPECT_EQ(bed.qmx({"adapter", "--count"}).out, "4\n");
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterList, HostWithDriversButNoAdapterListsNothingAndCountsZero) {
    Bed bed = Bed::from_json(R"({"adapters": [], "drivers": {"kvo": true, "tqe": true}})");
    Result list = bed.qmx({"adapter", "--list"});
    EXPECT_EQ(list.status, 0);
    EXPECT_EQ(list.out, "No KVO adapters found\n");
    EXPECT_EQ(list.err, "");
    Result count = bed.qmx({"adapter", "--count"});
    EXPECT_EQ(count.status, 0);
    EXPECT_EQ(count.out, "0\n");
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterList, HostWithoutDriversReportsTheMissingDriverInstead) {
    Bed bed = Bed::preset("empty");
    Result r = bed.qmx({"adapter", "--list"});
    EXPECT_EQ(r.status, 133);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "ERROR: Torvane adapter/driver not installed or loaded \n");
}

// ---- --name -----------------------------------------------------------------------------------

TEST(AdapterName, SetShowPersistAndClear) {
    Bed bed = Bed::from_json(kFourAdapters);
    Result show = bed.qmx({"adapter", "--name", "1"});
    EXPECT_EQ(show.status, 0);
    EXPECT_EQ(show.out, "adapter id 1; current name is \n");

    Result set = bed.qmx({"adapter", "--name", "1", "lab-hba"});
    EXPECT_EQ(set.status, 0);
    EXPECT_EQ(set.out, "adapter id 1; name set to: lab-hba\n");
    EXPECT_EQ(set.err, "");
    EXPECT_EQ(name_lines(bed), std::vector<std::string>{"adapter-TVA1000001-name = \"lab-hba\";"});
    EXPECT_EQ(adtest::adapter_state(bed, "TVA1000001")["name"], "lab-hba");
    EXPECT_EQ(requests(bed, "ADAPTER_SET_NAME").size(), 1u);

    EXPECT_EQ(bed.qmx({"adapter", "--name", "1"}).out, "adapter id 1; current name is lab-hba\n");
    // The name is now an identifier of the adapter, and the list shows it.
    EXPECT_EQ(bed.qmx({"adapter", "--name", "lab-hba"}).out, "adapter id 1; current name is lab-hba\n");
    EXPECT_EQ(lines_with(bed.qmx({"adapter", "--list"}).out, "TVA1000001"),
              std::vector<std::string>{
                  " 1   2   0000:03:00.0   FC     TV-1862          TVA1000001   lab-hba        "});

    // An empty name clears it, without verification, from the driver and from the file.
    Result clear = bed.qmx({"adapter", "--name", "1", ""});
    EXPECT_EQ(clear.status, 0);
    EXPECT_EQ(clear.out, "adapter id 1; name set to: \n");
    EXPECT_TRUE(name_lines(bed).empty()) << conf_of(bed);
    EXPECT_EQ(adtest::adapter_state(bed, "TVA1000001")["name"], "");
    EXPECT_EQ(lines_with(bed.qmx({"adapter", "--list"}).out, "TVA1000001"),
              std::vector<std::string>{
                  " 1   2   0000:03:00.0   FC     TV-1862          TVA1000001   --             "});
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterName, NamesAreVerifiedBeforeAnythingIsSent) {
    Bed bed = Bed::from_json(kFourAdapters);
    bed.qmx({"adapter", "--count"});  // registers the adapters
    const std::string before = conf_of(bed);
    bed.clear_log();
    for (const char* bad : {"9abc", "my name", "a234567890abcdef", "-dash", "x.y"}) {
        Result r = bed.qmx({"adapter", "--name", "2", bad});
        EXPECT_EQ(r.status, 175) << bad;
        EXPECT_EQ(r.out, "") << bad;
        EXPECT_EQ(r.err, std::string("ERROR: Please check the string \"") + bad + "\"\n");
    }
    EXPECT_TRUE(requests(bed, "ADAPTER_SET_NAME").empty());
    EXPECT_EQ(conf_of(bed), before);

    // Fifteen characters is the longest name; "-" and "_" may follow the first letter.
    Result longest = bed.qmx({"adapter", "--name", "2", "a234567890abc_-"});
    EXPECT_EQ(longest.status, 0);
    EXPECT_EQ(longest.out, "adapter id 2; name set to: a234567890abc_-\n");
    EXPECT_EQ(name_lines(bed),
              std::vector<std::string>{"adapter-TVA2000002-name = \"a234567890abc_-\";"});
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterName, AnotherAdaptersNameIsRefusedButTheOwnNameMayBeGivenAgain) {
    Bed bed = Bed::from_json(kFourAdapters);
    ASSERT_EQ(bed.qmx({"adapter", "--name", "2", "shared"}).status, 0);
    bed.clear_log();

    Result taken = bed.qmx({"adapter", "--name", "1", "shared"});
    EXPECT_EQ(taken.status, 63);
    EXPECT_EQ(taken.out, "");
    EXPECT_EQ(taken.err, "ERROR: Name exists! use a different name \n");
    EXPECT_TRUE(requests(bed, "ADAPTER_SET_NAME").empty());
    EXPECT_EQ(adtest::adapter_state(bed, "TVA1000001")["name"], "");

    Result again = bed.qmx({"adapter", "--name", "2", "shared"});
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.out, "adapter id 2; name set to: shared\n");
    // The Ethernet-only adapter is named through its own driver like any other.
    Result nic = bed.qmx({"adapter", "--name", "TVN4000004", "nic-four"});
    EXPECT_EQ(nic.out, "adapter id 4; name set to: nic-four\n");
    EXPECT_EQ(name_lines(bed), (std::vector<std::string>{"adapter-TVA2000002-name = \"shared\";",
                                                         "adapter-TVN4000004-name = \"nic-four\";"}));
    EXPECT_EQ(lines_with(requests(bed, "ADAPTER_SET_NAME").back(), "tqe /dev/tqe").size(), 1u);
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterName, DriverRefusalLeavesTheFileAlone) {
    Bed bed = Bed::from_json(kFourAdapters);
    bed.qmx({"adapter", "--count"});
    const std::string before = conf_of(bed);
    bed.fault({"request", "ADAPTER_SET_NAME", "status", "56"});
    Result r = bed.qmx({"adapter", "--name", "1", "refused"});
    EXPECT_EQ(r.status, 56);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "ERROR: IOC failure - Retry if persists contact support \n");
    EXPECT_EQ(conf_of(bed), before);
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
        EXPECT_EQ(ra.out, "adapter id 1; name set to: " + a + "\n") << ra.err;
        EXPECT_EQ(rb.out, "adapter id 3; name set to: " + b + "\n") << rb.err;
        EXPECT_EQ(name_lines(bed), (std::vector<std::string>{"adapter-TVA1000001-name = \"" + a + "\";",
                                                             "adapter-TVC3000003-name = \"" + b + "\";"}))
            << "round " << round;
    }
    // Each run registered the ports exactly once: no duplicated records crept in.
    EXPECT_EQ(lines_with(conf_of(bed), "10:00:00:e1:f2:01:00:00").size(), 1u);
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterName, ShellCommandsSeeEachOthersChanges) {
    Bed bed = Bed::from_json(kFourAdapters);
    Result r = bed.shell("adapter --name 2 from-shell\nadapter --name 2\nadapter --name 1 9bad\nquit\n");
    EXPECT_EQ(r.out,
              "\nqmx> adapter id 2; name set to: from-shell\n"
              "\nqmx> adapter id 2; current name is from-shell\n"
              "\nqmx> \nqmx> ");
    // The shell prints nothing for a failed command; its result is the shell's status.
    EXPECT_EQ(r.status, 175);
}

// ---- --enable and --disable ------------------------------------------------------------------

TEST(AdapterEnable, DisableTwiceFailsButEnableTwiceSucceeds) {
    Bed bed = Bed::from_json(kFourAdapters);
    Result off = bed.qmx({"adapter", "--disable", "1"});
    EXPECT_EQ(off.status, 0);
    EXPECT_EQ(off.out, "adapter id 1 disabled\n");
    EXPECT_EQ(adtest::function_states(bed, "TVA1000001"), (std::vector<int>{10, 10}));
    EXPECT_EQ(adtest::function_states(bed, "TVA2000002"), (std::vector<int>{6}));

    Result again = bed.qmx({"adapter", "--disable", "1"});
    EXPECT_EQ(again.status, 83);
    EXPECT_EQ(again.out, "");
    EXPECT_EQ(again.err, "ERROR: Adapter is disabled \n");

    Result on = bed.qmx({"adapter", "--enable", "TVA1000001"});
    EXPECT_EQ(on.status, 0);
    EXPECT_EQ(on.out, "adapter id 1 enabled\n");
    EXPECT_EQ(adtest::function_states(bed, "TVA1000001"), (std::vector<int>{6, 6}));

    Result on_again = bed.qmx({"adapter", "--enable", "1"});
    EXPECT_EQ(on_again.status, 0);
    EXPECT_EQ(on_again.out, "adapter id 1 enabled\n");
    EXPECT_EQ(on_again.err, "");
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterEnable, PartlyDisabledAdapterCanBeDisabledToTheEnd) {
    std::string host = kFourAdapters;
    const std::string fn = R"({"pci": "0000:03:00.1"})";
    host.replace(host.find(fn), fn.size(), R"({"pci": "0000:03:00.1", "state": 10})");
    Bed bed = Bed::from_json(host);
    Result r = bed.qmx({"adapter", "--disable", "1"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "adapter id 1 disabled\n");
    EXPECT_EQ(adtest::function_states(bed, "TVA1000001"), (std::vector<int>{10, 10}));
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterEnable, CnaFunctionsOfBothDriversGoDownControlFunctionLast) {
    Bed bed = Bed::from_json(kFourAdapters);
    bed.qmx({"adapter", "--count"});
    bed.clear_log();
    ASSERT_EQ(bed.qmx({"adapter", "--disable", "3"}).out, "adapter id 3 disabled\n");
    EXPECT_EQ(adtest::function_states(bed, "TVC3000003"), (std::vector<int>{10, 10, 10, 10}));
    std::vector<std::string> downs = requests(bed, "IOC_DISABLE");
    ASSERT_EQ(downs.size(), 4u);
    EXPECT_EQ(lines_with(downs[0] + "\n" + downs[1] + "\n" + downs[2], "tqe /dev/tqe").size(), 2u);
    // The control function, the FCoE function of port 0, is the last to go down.
    EXPECT_EQ(downs[3].rfind("bsg ", 0), 0u) << downs[3];
    EXPECT_NE(downs[3].find("kvod=3 "), std::string::npos) << downs[3];

    bed.clear_log();
    ASSERT_EQ(bed.qmx({"adapter", "--enable", "3"}).out, "adapter id 3 enabled\n");
    std::vector<std::string> ups = requests(bed, "IOC_ENABLE");
    ASSERT_EQ(ups.size(), 4u);
    EXPECT_EQ(ups[0], downs[3].substr(0, downs[3].find(" IOC_DISABLE")) + ups[0].substr(ups[0].find(" IOC_ENABLE")));
    EXPECT_EQ(adtest::function_states(bed, "TVC3000003"), (std::vector<int>{6, 6, 6, 6}));
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterEnable, DriverFailuresAreReported) {
    Bed bed = Bed::from_json(kFourAdapters);
    bed.fault({"request", "IOC_ENABLE", "status", "56", "times", "1"});
    Result on = bed.qmx({"adapter", "--enable", "2"});
    EXPECT_EQ(on.status, 56);
    EXPECT_EQ(on.out, "");
    EXPECT_EQ(on.err, "ERROR: IOC failure - Retry if persists contact support \n");

    bed.fault({"request", "IOC_DISABLE", "errno", "EIO", "times", "1"});
    Result off = bed.qmx({"adapter", "--disable", "2"});
    EXPECT_EQ(off.status, 42);
    EXPECT_EQ(off.out, "");
    EXPECT_EQ(adtest::function_states(bed, "TVA2000002"), (std::vector<int>{6}));
}

// ---- --mode -----------------------------------------------------------------------------------

TEST(AdapterMode, ModeWordIsCaseInsensitiveAndTheChangeIsPending) {
    Bed bed = Bed::from_json(kFourAdapters);
    Result r = bed.qmx({"adapter", "--mode", "3", "cna"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out,
              "Warning: This command will not reset the settings configured on the adapter.\n\n"
              "Adapter mode is configured successfully.\n"
              "A host reboot is needed for the changes to be effective. You may also have to change "
              "the SFP to match the new mode.\n\n");
    nlohmann::json a = adtest::adapter_state(bed, "TVC3000003");
    EXPECT_EQ(a["ext"]["pending_mode"], 2);
    EXPECT_EQ(a["ext"]["mode_force"], false);

    Result forced = bed.qmx({"adapter", "--mode", "TVC3000003", "Nic", "-f"});
    EXPECT_EQ(forced.status, 0);
    EXPECT_EQ(forced.out,
              "Warning: This command will reset all the settings configured on the adapter.\n\n"
              "Mode change command can take a lot of time to complete.\n"
              "Please don't terminate the command as it could result in undesirable adapter state.\n\n"
              "Adapter mode is configured successfully.\n"
              "A host reboot is needed for the changes to be effective. You may also have to change "
              "the SFP to match the new mode.\n\n");
    a = adtest::adapter_state(bed, "TVC3000003");
    EXPECT_EQ(a["ext"]["pending_mode"], 3);
    EXPECT_EQ(a["ext"]["mode_force"], true);
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterMode, BadWordsAreRefusedBeforeAnyWarningOrRequest) {
    Bed bed = Bed::from_json(kFourAdapters);
    bed.qmx({"adapter", "--count"});
    bed.clear_log();
    const std::string msg =
        "ERROR: command \"--mode\" syntax is incorrect or one of the parameters is incorrect\n";
    for (std::vector<std::string> args : {std::vector<std::string>{"adapter", "--mode", "3", "CNA", "-F"},
                                          {"adapter", "--mode", "3", "CNA", "force"},
                                          {"adapter", "--mode", "3", "FC"},
                                          {"adapter", "--mode", "3", "cnaa"}}) {
        Result r = bed.qmx(args);
        EXPECT_EQ(r.status, 167) << args[3] << " " << args.back();
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, msg);
    }
    EXPECT_TRUE(requests(bed, "ADAPTER_CFG_MODE").empty());
    EXPECT_FALSE(adtest::adapter_state(bed, "TVC3000003").contains("ext"));
}

TEST(AdapterMode, ChangeDropsTheAdaptersPersistedSettingsAndNothingElse) {
    Bed bed = Bed::from_json(kFourAdapters);
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
    Result r = bed.qmx({"adapter", "--mode", "TVC3000003", "nic"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string conf = conf_of(bed);
    EXPECT_EQ(name_lines(bed), std::vector<std::string>{"adapter-TVA1000001-name = \"keep-me\";"});
    EXPECT_EQ(lines_with(conf, "kvo0-port-speed = 8;").size(), 1u) << conf;
    EXPECT_EQ(lines_with(conf, "10:00:00:e1:f2:01:00:00").size(), 1u) << conf;
    for (const char* gone : {"TVC3000003", "10:00:00:e1:f2:03:00:0", "02:e1:f2:03:10:0", "fcoe-p0",
                             "eth-p0", "port-enable", "= 4;"})
        EXPECT_TRUE(lines_with(conf, gone).empty()) << gone << "\n" << conf;
    // Adapters not changed keep their registration.
    EXPECT_EQ(lines_with(conf, "02:e1:f2:04:10:00").size(), 1u) << conf;
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterMode, RefusedChangeKeepsEverything) {
    Bed bed = Bed::from_json(kFourAdapters);
    ASSERT_EQ(bed.qmx({"adapter", "--name", "1", "hba-one"}).status, 0);
    const std::string before = conf_of(bed);
    // The FC HBA cannot become a CNA: the driver refuses and nothing is cleaned.
    Result r = bed.qmx({"adapter", "--mode", "1", "CNA"});
    EXPECT_EQ(r.status, 216);
    EXPECT_EQ(r.out, "Warning: This command will not reset the settings configured on the adapter.\n\n");
    EXPECT_EQ(r.err, "ERROR: Mode is not supported \n");
    EXPECT_EQ(conf_of(bed), before);
    EXPECT_TRUE(bed.log_clean());
}

// ---- --reload_fw ------------------------------------------------------------------------------

TEST(AdapterReload, EchoesTheIdentifierAsTyped) {
    Bed bed = Bed::from_json(kFourAdapters);
    ASSERT_EQ(bed.qmx({"adapter", "--name", "2", "second"}).status, 0);
    for (const char* word : {"2", "TVA2000002", "0000:04:00.0", "second"}) {
        Result r = bed.qmx({"adapter", "--reload_fw", word});
        EXPECT_EQ(r.status, 0) << word;
        EXPECT_EQ(r.out, std::string("Firmware on adapter id ") + word + " is reloaded\n");
    }
    EXPECT_EQ(adtest::adapter_state(bed, "TVA2000002")["ext"]["fw_reloads"], 4);
    EXPECT_FALSE(adtest::adapter_state(bed, "TVA1000001").contains("ext"));
    EXPECT_TRUE(bed.log_clean());
}

TEST(AdapterReload, FailureIsReportedAndEthernetOnlyAdapterReloads) {
    Bed bed = Bed::from_json(kFourAdapters);
    bed.fault({"request", "ADAPTER_RELOAD_FW", "status", "56", "times", "1"});
    Result bad = bed.qmx({"adapter", "--reload_fw", "1"});
    EXPECT_EQ(bad.status, 56);
    EXPECT_EQ(bad.out, "");
    EXPECT_EQ(bad.err, "ERROR: IOC failure - Retry if persists contact support \n");

    Result nic = bed.qmx({"adapter", "--reload_fw", "4"});
    EXPECT_EQ(nic.status, 0);
    EXPECT_EQ(nic.out, "Firmware on adapter id 4 is reloaded\n");
    EXPECT_EQ(adtest::adapter_state(bed, "TVN4000004")["ext"]["fw_reloads"], 1);
}
