// /etc/kvo.conf seen from outside: a command that changes nothing leaves the file alone (inode,
// size, modification time), a real change rewrites it in place, and something other than a
// regular file at that path is an error, never a hang.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
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
    const Result r = qmx_within_20s(bed, {"adapter", "--list"});
    EXPECT_EQ(r.status, listed.status) << r.err;
    EXPECT_EQ(r.out, listed.out);
    EXPECT_EQ(r.err, "");
    // A setting that must be persisted reports the file.
    EXPECT_TRUE(fails(qmx_within_20s(bed, {"adapter", "--name", "1", "lab-hba"}), 45,
                      "ERROR: Failed to open file \n"));
    EXPECT_TRUE(S_ISFIFO(stat_of(conf_path(bed)).st_mode));
    EXPECT_TRUE(bed.log_clean());
}
