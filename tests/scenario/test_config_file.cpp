// /etc/kvo.conf seen from outside: a command that changes nothing leaves the file alone (inode,
// size, modification time), a real change rewrites it in place, and something other than a
// regular file at that path is an error, never a hang; processes changing settings at once
// lose none of them.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "harness.h"

using scen::Bed;
using scen::fails;
using scen::lines_with;
using scen::Result;

namespace {

std::string conf_path(const Bed& bed) { return bed.root() + "/etc/kvo.conf"; }

struct stat stat_of(const std::string& path) {
    struct stat st {};
    EXPECT_EQ(stat(path.c_str(), &st), 0) << path;
    return st;
}

// Sets the file's times far back, so that any write moves the modification time.
void age(const std::string& path) {
    const timespec long_ago[2] = {{1000000000, 0}, {1000000000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), long_ago, 0), 0);
}

bool aged(const struct stat& st) { return st.st_mtim.tv_sec == 1000000000 && st.st_mtim.tv_nsec == 0; }

// qmx on the bed, killed after 20 s instead of the harness's two minutes: a command that
// blocks on the file fails quickly.
Result qmx_within_20s(const Bed& bed, const std::vector<std::string>& args) {
    std::vector<std::string> argv = {scen::kvosim_bin(), "run", bed.dir(), "--", scen::qmx_bin()};
    argv.insert(argv.end(), args.begin(), args.end());
    return scen::run_process(argv, "", {}, 20);
}

}  // namespace

TEST(ConfigFile, ACommandThatChangesNothingLeavesTheFileUntouched) {
    Bed bed = Bed::preset("demo");
    ASSERT_EQ(bed.qmx({"adapter", "--list"}).status, 0);  // registers every adapter and port
    const std::string registered = bed.conf().value_or("");
    EXPECT_EQ(lines_with(registered, "-port-wwn = ").size(), 4u) << registered;
    EXPECT_EQ(lines_with(registered, "-port-mac = ").size(), 2u) << registered;

    age(conf_path(bed));
    const struct stat before = stat_of(conf_path(bed));
    for (const char* cmd : {"--list", "--count"}) {
        SCOPED_TRACE(cmd);
        ASSERT_EQ(bed.qmx({"adapter", cmd}).status, 0);
        const struct stat after = stat_of(conf_path(bed));
        EXPECT_EQ(after.st_ino, before.st_ino);
        EXPECT_EQ(after.st_size, before.st_size);
        EXPECT_TRUE(aged(after)) << after.st_mtim.tv_sec;
    }
    EXPECT_EQ(bed.conf(), registered);

    // A real change is written, into the same file.
    ASSERT_EQ(bed.qmx({"adapter", "--name", "1", "lab-hba"}).status, 0);
    const struct stat named = stat_of(conf_path(bed));
    EXPECT_EQ(named.st_ino, before.st_ino);
    EXPECT_FALSE(aged(named));
    EXPECT_EQ(lines_with(bed.conf().value_or(""), "-name = ").size(), 1u);
    EXPECT_TRUE(bed.log_clean());
}

TEST(ConfigFile, AFifoAtThePathIsAnErrorNotAHang) {
    Bed bed = Bed::preset("demo");
    const Result listed = bed.qmx({"adapter", "--list"});
    ASSERT_EQ(listed.status, 0);
    bed.remove_conf();
    ASSERT_EQ(mkfifo(conf_path(bed).c_str(), 0644), 0);

    // The scan's registrations fail quietly: the listing is the same.
    EXPECT_TRUE(scen::prints(qmx_within_20s(bed, {"adapter", "--list"}), listed.out));
    // A setting that must be persisted reports the file.
    EXPECT_TRUE(fails(qmx_within_20s(bed, {"adapter", "--name", "1", "lab-hba"}), 45,
                      "ERROR: Failed to open file \n"));
    EXPECT_TRUE(S_ISFIFO(stat_of(conf_path(bed)).st_mode));
    EXPECT_TRUE(bed.log_clean());
}

// Eight single-port FC HBAs: a name for each adapter and a path time-out for each port, set by
// sixteen processes started together while the test holds the file's lock. None may write while
// it is held; once it is released, every process reads and rewrites the whole file under the
// lock in turn, and each busy attempt costs a one-second sleep: the batch measures that convoy.
TEST(ConfigFile, SixteenProcessesChangingSettingsAtOnceLoseNothing) {
    constexpr int kAdapters = 8;
    std::string adapters;
    for (int i = 0; i < kAdapters; ++i) {
        char a[256];
        snprintf(a, sizeof a, R"(%s{"serial": "TVC%08d", "ports": [{"pwwn": "10:00:00:e1:f2:00:%02x:00",
                  "functions": [{"pci": "0000:%02x:00.0", "host": %d}]}]})",
                 i ? "," : "", i, i, 0x10 + i, 10 + i);
        adapters += a;
    }
    const std::string host = R"({"adapters": [)" + adapters + "]}";
    std::vector<std::vector<std::string>> commands;
    for (int i = 1; i <= kAdapters; ++i) {
        commands.push_back({"adapter", "--name", std::to_string(i), "hba-" + std::to_string(i)});
        commands.push_back({"fcpim", "--pathtov", std::to_string(i) + "/0", std::to_string(10 + i)});
    }

    // The file the same changes give one after another, for comparison.
    Bed serial = Bed::from_json(host);
    for (const auto& c : commands) ASSERT_EQ(serial.qmx(c).status, 0) << c[1] << " " << c[2];

    Bed bed = Bed::from_json(host);
    ASSERT_EQ(bed.qmx({"adapter", "--count"}).out, "8\n");  // the ports registered beforehand
    const std::string before = *bed.conf();
    const int lock = open(conf_path(bed).c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(lock, 0);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);

    using steady = std::chrono::steady_clock;
    std::vector<Result> results(commands.size());
    std::vector<double> seconds(commands.size());
    std::atomic<int> finished{0};
    std::latch go(static_cast<std::ptrdiff_t>(commands.size()));
    std::vector<std::thread> threads;
    const steady::time_point start = steady::now();
    for (size_t i = 0; i < commands.size(); ++i)
        threads.emplace_back([&, i] {
            go.arrive_and_wait();
            const steady::time_point own = steady::now();
            results[i] = bed.qmx(commands[i]);
            seconds[i] = std::chrono::duration<double>(steady::now() - own).count();
            ++finished;
        });
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    EXPECT_EQ(finished, 0) << "a process did not wait for the lock";
    EXPECT_EQ(bed.conf(), before) << "the file was written under another process's lock";
    const steady::time_point released = steady::now();
    flock(lock, LOCK_UN);
    close(lock);
    for (std::thread& t : threads) t.join();
    const auto since = [&](steady::time_point t) { return std::chrono::duration<double>(steady::now() - t).count(); };

    // A process's whole seconds are the busy attempts it slept through (the rest takes
    // milliseconds); the held lock accounts for about two of each.
    int waits = 0;
    for (double s : seconds) waits += static_cast<int>(s);
    printf("16 processes: all done %.2f s after the start, %.2f s after the lock's release; %d one-second lock "
           "waits in all, at most %d in one process\n",
           since(start), since(released), waits, static_cast<int>(*std::max_element(seconds.begin(), seconds.end())));

    for (size_t i = 0; i < commands.size(); ++i) {
        const auto& c = commands[i];
        EXPECT_TRUE(scen::prints(results[i], c[0] == "adapter" ? "adapter id " + c[2] + "; name set to: " + c[3] + "\n"
                                                               : "path timeout is set to " + c[3] + "\n"));
    }
    // Every setting is in the file, which holds the same lines as the serial one (the order of
    // the name records follows the order the names came in).
    std::vector<std::string> got = scen::lines(bed.conf().value_or("")), want = scen::lines(*serial.conf());
    std::sort(got.begin(), got.end());
    std::sort(want.begin(), want.end());
    EXPECT_EQ(got, want);
    // And in the driver.
    const nlohmann::json st = bed.state();
    for (int i = 0; i < kAdapters; ++i) {
        const nlohmann::json& a = st["adapters"][i];
        EXPECT_EQ(a["name"], "hba-" + std::to_string(i + 1));
        EXPECT_EQ(a["ports"][0]["functions"][0]["ext"]["fcpim"]["path_tov"], 11 + i);
    }
    EXPECT_TRUE(bed.log_clean());
}
